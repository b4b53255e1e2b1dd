// The calibration panel: turns the last solve's report into one line per camera of the
// room, with plain advice, so a user knows where to walk and when to finish.
#include "app/calibration_panel.hpp"

#include <QHeaderView>
#include <QLabel>
#include <QLocale>
#include <QTableWidget>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>
#include <set>

#include "app/calibration_advice.hpp"
#include "style/style.hpp"

namespace {

// How far past a threshold a camera that read Good may go before it reads Settling again.
constexpr double kHoldMargin = 1.25;

QColor colourOf(CameraReadiness readiness) {
    switch (readiness) {
        case CameraReadiness::NoData:
        case CameraReadiness::Moved: return clr::error;
        case CameraReadiness::NeedsFrames:
        case CameraReadiness::Uncertain: return clr::warning;
        case CameraReadiness::Good: return clr::success;
    }
    return clr::textMuted;
}

QString stateName(CameraReadiness readiness) {
    switch (readiness) {
        case CameraReadiness::NoData: return QObject::tr("No data");
        case CameraReadiness::NeedsFrames: return QObject::tr("Needs frames");
        case CameraReadiness::Uncertain: return QObject::tr("Settling");
        case CameraReadiness::Moved: return QObject::tr("Moved");
        case CameraReadiness::Good: return QObject::tr("Good");
    }
    return QString();
}

QTableWidgetItem* cell(const QString& text, const QString& tip = QString()) {
    auto* item = new QTableWidgetItem(text);
    item->setFlags(Qt::ItemIsEnabled);
    item->setToolTip(tip.isEmpty() ? text : tip);
    return item;
}

// The first few cameras' advice: in a large room the whole list would leave the table no
// room; every camera's advice stays on its state's tooltip.
QString shortList(const QStringList& advices) {
    constexpr int kShown = 3;
    if (advices.size() <= kShown) return advices.join("<br>");
    return advices.mid(0, kShown).join("<br>") + "<br>" +
           QObject::tr("... and %1 more: point at a camera's state for its advice.").arg(advices.size() - kShown);
}

}  // namespace

CalibrationPanel::CalibrationPanel(QWidget* parent) : QFrame(parent) {
    setObjectName("report_panel");
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(14, 12, 14, 12);
    layout->setSpacing(8);

    auto* heading = new QLabel(tr("Calibration"), this);
    heading->setProperty("role", "heading");
    layout->addWidget(heading);

    summary_ = new QLabel(this);
    summary_->setObjectName("report_summary");
    summary_->setWordWrap(true);
    layout->addWidget(summary_);

    framesLabel_ = new QLabel(this);
    framesLabel_->setObjectName("report_frames");
    framesLabel_->setProperty("role", "muted");
    layout->addWidget(framesLabel_);

    peopleLabel_ = new QLabel(this);
    peopleLabel_->setObjectName("report_people");
    peopleLabel_->setProperty("role", "muted");
    peopleLabel_->setWordWrap(true);
    layout->addWidget(peopleLabel_);

    floorLabel_ = new QLabel(this);
    floorLabel_->setObjectName("report_floor");
    floorLabel_->setWordWrap(true);
    floorLabel_->hide();
    layout->addWidget(floorLabel_);

    table_ = new QTableWidget(0, 4, this);
    table_->setObjectName("report_table");
    // Two-line headings: the panel is narrow, and the partners' column gives way first.
    table_->setHorizontalHeaderLabels({tr("Camera"), tr("Shared\nframes"), tr("Residual\n±1σ"), tr("State")});
    table_->verticalHeader()->hide();
    table_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    // The state is what a user reads first: it keeps its full width, and the list of
    // partners, which wraps, gives way instead.
    table_->horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    table_->horizontalHeader()->setSectionResizeMode(1, QHeaderView::Stretch);
    table_->setSelectionMode(QAbstractItemView::NoSelection);
    table_->setFocusPolicy(Qt::NoFocus);
    table_->setWordWrap(true);
    layout->addWidget(table_, 1);

    auto* legend = new QLabel(tr("Shared frames: frames in which this camera and another one saw the same person. "
                                 "Residual: distance between matching joints after the solve. "
                                 "Uncertainty: one standard deviation of the camera's rotation and position, bias and "
                                 "model error included (two halves of the walk are solved apart and compared). "
                                 "Clock: the camera's clock minus the first camera's, found from how people move, "
                                 "with one standard deviation."),
                              this);
    legend->setWordWrap(true);
    legend->setProperty("role", "muted");
    layout->addWidget(legend);

    refresh();
}

void CalibrationPanel::setRoomCameras(std::vector<int> serials) {
    roomCameras_ = std::move(serials);
    refresh();
}

void CalibrationPanel::clear() {
    report_ = CalibrationReport();
    held_.clear();
    concluded_ = false;
    frames_ = 0;
    heldMoments_ = 0;
    peopleLabel_->clear();
    refresh();
}

int CalibrationPanel::rowCount() const { return table_->rowCount(); }

QString CalibrationPanel::summaryText() const { return summary_->text(); }

std::vector<int> CalibrationPanel::camerasNotGood() const {
    std::vector<int> serials;
    for (std::size_t row = 0; row < rows_.size(); ++row)
        if (readiness_[row] != CameraReadiness::Good) serials.push_back(rows_[row]);
    return serials;
}

void CalibrationPanel::setConclusion(const QString& text) {
    concluded_ = true;
    summary_->setText(text);
}

void CalibrationPanel::setReport(CalibrationReport report) {
    report_ = std::move(report);
    refresh();
}

void CalibrationPanel::setFrameCount(int frames) {
    frames_ = frames;
    if (frames_ == 0 && heldMoments_ > 0)
        framesLabel_->setText(tr("Matching each person across the cameras; moments held: %1, counted as frames once "
                                 "the cameras agree")
                                  .arg(heldMoments_));
    else
        framesLabel_->setText(tr("%1 frames collected, %2 used by the last solve").arg(frames_).arg(report_.frames));
    for (int camera : report_.reseeding) framesLabel_->setText(framesLabel_->text() + tr("; re-seeding %1").arg(camera));
}

void CalibrationPanel::setCameraPeople(std::vector<calib::CameraPeople> cameras) {
    int seeing = 0;
    for (const calib::CameraPeople& camera : cameras)
        if (camera.people > 0) ++seeing;
    if (frames_ == 0 && seeing >= 2) ++heldMoments_;
    peopleLabel_->setText(tr("In view: %1").arg(CalibrationAdvice::peopleInView(cameras)));
}

void CalibrationPanel::refresh() {
    // The room's cameras first, then any the report knows and the room list does not.
    std::vector<int> serials = roomCameras_;
    std::set<int> known(serials.begin(), serials.end());
    for (const auto& camera : report_.cameras)
        if (known.insert(camera.camera).second) serials.push_back(camera.camera);

    rows_ = serials;
    table_->setRowCount(static_cast<int>(serials.size()));
    readiness_.assign(serials.size(), CameraReadiness::NoData);
    int good = 0;
    QStringList moved;
    QStringList advices;  // what to do, camera by camera, under the summary
    for (size_t row = 0; row < serials.size(); ++row) {
        const int serial = serials[row];
        const auto found = std::find_if(report_.cameras.begin(), report_.cameras.end(),
                                        [serial](const CameraCalibrationReport& c) { return c.camera == serial; });
        const CameraCalibrationReport* camera = found == report_.cameras.end() ? nullptr : &*found;
        ReadinessThresholds thresholds;
        if (held_.count(serial)) {
            thresholds.maximumRotationDeg *= kHoldMargin;
            thresholds.maximumPositionMm *= kHoldMargin;
        }
        const CameraAssessment assessment = assessCamera(camera, report_, thresholds);
        readiness_[row] = assessment.readiness;
        if (assessment.readiness == CameraReadiness::Good)
            held_.insert(serial);
        else
            held_.erase(serial);
        if (assessment.readiness == CameraReadiness::Good) ++good;
        if (assessment.readiness == CameraReadiness::Moved) moved << QString::number(serial);

        QStringList shared;
        QString quality = QStringLiteral("-");
        if (camera) {
            for (const auto& [other, frames] : camera->framesSharedWith)
                shared << tr("%1: %2").arg(other).arg(frames);
            quality = tr("%1 mm").arg(camera->rmsAfterMm, 0, 'f', 1);
            const CameraUncertainty& u = camera->uncertainty;
            if (std::isfinite(u.rotationSigmaDeg) && std::isfinite(u.positionSigmaMm))
                quality += tr("\n%1° %2 mm").arg(u.rotationSigmaDeg, 0, 'f', 2).arg(u.positionSigmaMm, 0, 'f', 1);
        }
        QString name = QString::number(serial);
        // Shown once the walk has told it, reference included (+0.000 s): an unknown clock
        // is assumed to be the reference's. Three short lines: on one, the camera column
        // took the width the partners' column needs.
        if (camera && std::isfinite(camera->clockOffsetS) && std::isfinite(camera->clockOffsetSigmaS))
            name += tr("\nclock %1%2 s\n±%3 ms")
                        .arg(camera->clockOffsetS < 0 ? "" : "+")
                        .arg(camera->clockOffsetS, 0, 'f', 3)
                        .arg(1000 * camera->clockOffsetSigmaS, 0, 'f', 1);
        const int r = static_cast<int>(row);
        table_->setItem(r, 0, cell(name));
        table_->setItem(r, 1, cell(shared.isEmpty() ? tr("none yet") : shared.join('\n')));
        table_->setItem(r, 2, cell(quality));
        const QString advice = CalibrationAdvice::text(assessment.facts);
        QTableWidgetItem* state = cell(stateName(assessment.readiness), advice);
        if (assessment.readiness != CameraReadiness::Good && camera) advices << tr("%1: %2").arg(serial).arg(advice);
        state->setForeground(colourOf(assessment.readiness));
        table_->setItem(r, 3, state);
    }
    table_->resizeRowsToContents();
    // The poses are good whatever the floor, but heights are then the reference camera's own.
    floorLabel_->setVisible(report_.usable && !report_.floorRefused.empty());
    // The reason is said from its fact, so that it reads in the window's language.
    const QString floorReason =
        report_.floorRefusedSpanM >= 0
            ? tr("the feet stayed on one spot or one line (%1 m across); the floor is left unlevelled")
                  .arg(QLocale().toString(report_.floorRefusedSpanM, 'f', 2))
            : QString::fromStdString(report_.floorRefused).toHtmlEscaped();
    floorLabel_->setText(tr("<font color=%1>Floor not found: %2.</font>").arg(clr::warning.name()).arg(floorReason));
    if (concluded_) return;

    const int total = static_cast<int>(serials.size());
    if (!moved.isEmpty() && !report_.reseeding.empty())
        summary_->setText(tr("<font color=%1>Camera %2 moved while you calibrated: its frames from before were "
                             "dropped and it is being placed anew. Keep walking where it and a neighbour both see "
                             "you.</font>")
                              .arg(clr::error.name())
                              .arg(moved.join(", ")));
    else if (!moved.isEmpty())
        summary_->setText(tr("<font color=%1>Camera %2 moved while you calibrated: fix it in place, then finish "
                             "and start the calibration again.</font>")
                              .arg(clr::error.name())
                              .arg(moved.join(", ")));
    else if (total > 0 && good == total)
        summary_->setText(tr("<font color=%1>All %2 cameras are well placed: you can finish the calibration.</font>")
                              .arg(clr::success.name())
                              .arg(total));
    else if (!report_.usable)
        summary_->setText(tr("Walk through the room so that several cameras see you at once; others may walk too. "
                             "A first result comes after a few seconds."));
    else
        summary_->setText(tr("<font color=%1>%2 of %3 cameras are not good yet.</font>")
                              .arg(clr::warning.name())
                              .arg(total - good)
                              .arg(total) +
                          "<br>" + shortList(advices));
    setFrameCount(frames_);
}
