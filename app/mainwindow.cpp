// The main window: its construction order, the wiring between worker, dialog and viewer,
// and the states from "no room" through "room starting" and "running" to "calibrating".
#include "app/mainwindow.hpp"

#include <QActionGroup>
#include <QApplication>
#include <QCloseEvent>
#include <QDir>
#include <QFileInfo>
#include <QLabel>
#include <QResizeEvent>
#include <QSettings>

#include "app/calibration_model_menu.hpp"
#include "app/export_action.hpp"
#include "app/gui_prompts.hpp"
#include "app/recording_actions.hpp"
#include "style/style.hpp"
#include "ui_mainwindow.h"
#include "workspace/wscreator.hpp"

namespace {
constexpr int kFirstScreenPage = 0;
constexpr const char* kSaveFolderKey = "calibration/saveFolder";
constexpr int kViewerPage = 1;

bool anyPosed(const std::vector<lum::FusionConfiguration>& list) {
    for (const auto& configuration : list)
        if (!(configuration.pose == lum::Transform::identity())) return true;
    return false;
}
}  // namespace

MainWindow::MainWindow(QWidget* parent, std::shared_ptr<UserPrompts> userPrompts)
    : QMainWindow(parent), ui(std::make_unique<Ui::MainWindow>()) {
    Style::loadResources();
    ui->setupUi(this);
    registerSharedMetaTypes();
    qRegisterMetaType<CalibrationReport>("CalibrationReport");

    prompts = userPrompts ? std::move(userPrompts) : std::make_shared<GuiPrompts>(this);
    fusion.setPrompts(prompts);
    modelChoice = installCalibrationModelMenu(*this, fusion);
    installExportAction(*this, *prompts);
    wsCreator = new WSCreator(this, prompts.get());
    // Shown over the window's own area rather than as a separate window.
    wsCreator->setWindowFlags(Qt::Widget);
    wsCreator->hide();
    new RecordingActions(*this, *prompts);

    styleWidgets();
    ui->odom_check->hide();
    ui->sk_check->hide();
    ui->enableFusionLabel->hide();

    uncalibratedNote = new QLabel(
        tr("Not calibrated yet: each camera shows what it sees from where it stands, so one person appears once "
           "per camera. Start a calibration and walk through the room."),
        ui->viewer);
    uncalibratedNote->setObjectName("uncalibrated_note");
    uncalibratedNote->setWordWrap(true);
    uncalibratedNote->setStyleSheet(QString("QLabel { background: %1; color: %2; padding: 5px; border-radius: 4px; }")
                                        .arg(clr::surface.name(), clr::warning.name()));
    uncalibratedNote->hide();
    ui->save_calibration_button->hide();
    Style::styleButton(*ui->save_calibration_button);
    settling.setSingleShot(true);
    settling.setInterval(std::max(QApplication::doubleClickInterval(), 300));
    connect(&settling, &QTimer::timeout, this, [this] { setCalibrationStep(step); });

    // Twelve pictures a second still follow a walker, and drawn in software each one costs
    // about 1.4 % of a core: at fifteen a running room cost 26 %, at twelve 22 %
    // (scripts/window-cpu). The cameras send thirty.
    timer.setInterval(83);
    connect(&timer, &QTimer::timeout, this, &MainWindow::updateUI);
    timer.start();
    connectAll();

    enableModules(false);
    makeCalibrationPossible(false);
    ui->progressBar->hide();
    ui->report_panel->hide();
    ui->spinner_wnd->hide();
    ui->view_stack->setCurrentIndex(kFirstScreenPage);
}

MainWindow::~MainWindow() {
    // The worker's thread and senders go before the widgets they report to.
    timer.stop();
    liveRoom = 0;
    if (calibrationCall.joinable()) calibrationCall.join();
    roomStopper.wait();
    fusion.close();
}

void MainWindow::styleWidgets() {
    setWindowIcon(Style::appIcon());
    Style::styleButton(*ui->roomSetupButton);
    Style::styleButton(*ui->calibration_button);
    Style::styleButton(*ui->first_screen_button);
    ui->spinner->setColor(clr::accent);
    ui->spinner->setRoundness(70.0);
    ui->spinner->setMinimumTrailOpacity(15.0);
    ui->spinner->setTrailFadePercentage(70.0);
    ui->spinner_wnd->setStyleSheet(QString("QFrame#spinner_wnd { background: %1; border-radius: 8px; }")
                                       .arg(clr::surface.name()));
}

void MainWindow::connectAll() {
    connect(ui->roomSetupButton, &QPushButton::clicked, this, &MainWindow::onOption_button_released);
    connect(ui->first_screen_button, &QPushButton::clicked, this, &MainWindow::onOption_button_released);
    // The worker's signals are taken as they are emitted, on its thread, to stamp them with
    // the room they belong to; they are acted on later on this thread.
    const auto now = Qt::DirectConnection;
    connect(&fusion, &FusionWorker::isInit, this, [this] { forLiveRoom([this] { stopSpinner(); }); }, now);
    connect(&fusion, &FusionWorker::clearData, this, [this] { forLiveRoom([this] { ui->viewer->reset(); }); }, now);
    // The view takes new data once per repaint tick, however fast the fusion runs.
    connect(&fusion, &FusionWorker::newData, this, [this] { forLiveRoom([this] { viewerDataPending = true; }); },
            now);
    connect(
        &fusion, &FusionWorker::updateFusionError, this,
        [this](QString text) { forLiveRoom([this, text] { updateFusionErrorLabel(text); }); }, now);
    connect(
        &fusion, &FusionWorker::incCalib, this, [this](int value) { forLiveRoom([this, value] { calibprogress(value); }); },
        now);
    connect(
        &fusion, &FusionWorker::calibrationReport, this,
        [this](CalibrationReport report) { forLiveRoom([this, report] { onCalibrationReport(report); }); }, now);
    connect(
        &fusion, &FusionWorker::cameraPeople, this,
        [this](CameraPeopleList people) {
            forLiveRoom([this, people] { ui->report_panel->setCameraPeople(people); });
        },
        now);
    connect(
        &fusion, &FusionWorker::cameraMoved, this,
        [this](int serial, double rotationDeg, double shiftMm) {
            forLiveRoom([=] { onCameraMoved(serial, rotationDeg, shiftMm); });
        },
        now);
    connect(wsCreator, &WSCreator::stopFusionWorker, this, &MainWindow::stopRoom);
    connect(&roomStopper, &RoomStopper::stopped, this, [this] { roomOpen = false; });
    connect(wsCreator, &WSCreator::createFile, this, &MainWindow::openConfFile);
    connect(wsCreator, &WSCreator::FusionConfigReady, this, &MainWindow::onFusionConfigReady);
    connect(wsCreator, &WSCreator::selfClose, this, &MainWindow::onWsCreatorClosed);
    connect(wsCreator, &WSCreator::calibrationStored, this, &MainWindow::onCalibrationStored);
    connect(ui->save_calibration_button, &QPushButton::clicked, this, &MainWindow::saveCalibration);
}

void MainWindow::forLiveRoom(std::function<void()> action) {
    const int room = liveRoom.load();
    QMetaObject::invokeMethod(
        this,
        [this, room, action = std::move(action)] {
            if (room != 0 && room == liveRoom.load()) action();
        },
        Qt::QueuedConnection);
}

void MainWindow::onCameraMoved(int serial, double rotationDeg, double shiftMm) {
    if (std::find(movedCameras.begin(), movedCameras.end(), serial) == movedCameras.end())
        movedCameras.push_back(serial);
    showStatus();
    movedMessage = prompts->show(
        {tr("Camera moved"),
         tr("Camera %1 no longer agrees with the others: since the calibration it seems to have turned by about "
            "%2°, and what it sees has shifted by about %3 mm where people walk. Fix it in place and calibrate the "
            "room again.")
             .arg(serial)
             .arg(rotationDeg, 0, 'f', 1)
             .arg(shiftMm, 0, 'f', 0),
         PromptIcon::Warning});
}

void MainWindow::updateUI() {
    if (std::exchange(viewerDataPending, false)) ui->viewer->updateData();
    if (ui->viewer->takePendingRedraw()) ui->viewer->update();
}

void MainWindow::calibprogress(int value) {
    ui->progressBar->setValue(value);
    ui->report_panel->setFrameCount(fusion.calibrationFrameCount());
}

void MainWindow::updateFusionErrorLabel(QString text) {
    lastStatus = text;
    showStatus();
}

void MainWindow::showStatus() {
    if (lastStatus.isEmpty() && movedCameras.empty()) {
        ui->fusion_error->clear();
        return;
    }
    // A camera that moved outweighs a fusion that runs well: the room is no longer right.
    QStringList moved;
    for (int serial : movedCameras) moved << QString::number(serial);
    const QString text = movedCameras.empty() ? lastStatus : tr("camera %1 moved: calibrate again").arg(moved.join(", "));
    const QString colour = movedCameras.empty() && text == "SUCCESS" ? "green" : "red";
    ui->fusion_error->setText("<font color=" + colour + ">" + text.toHtmlEscaped() + "</font>");
}

void MainWindow::stopSpinner() {
    enableModules(true);
    ui->spinner->stop();
    ui->spinner_wnd->hide();
    makeCalibrationPossible(true);
    showUncalibratedNote(!roomCalibrated);
    if (playing) showCollecting();
}

void MainWindow::setAsReady() {
    wsCreator->hide();
    wsCreator->clearUi();
    makeCalibrationPossible(false);
    lastCalibration.clear();
    movedCameras.clear();
    lastStatus.clear();
    ui->save_calibration_button->hide();
    showUncalibratedNote(false);
    ui->report_panel->hide();
    ui->report_panel->clear();
    ui->view_stack->setCurrentIndex(kViewerPage);
    ui->spinner_wnd->show();
    ui->spinner_wnd->raise();
    fitOverlays();
    ui->spinner->start();
    ui->centralwidget->show();
}

void MainWindow::openConfFile(std::string path) {
    setAsReady();
    playing = false;
    std::string error;
    showRoomCameras(lum::readFusionConfigurationFile(path, lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP,
                                                     lum::UNIT::METER, &error));
    const AppParams params = wsCreator->getParameters();
    replaceRoom([this, path, params] { fusion.setup(path, params); });
}

void MainWindow::onFusionConfigReady(std::vector<lum::FusionConfiguration> list) {
    setAsReady();
    playing = false;
    ui->viewer->reset();
    showRoomCameras(list);
    const AppParams params = wsCreator->getParameters();
    replaceRoom([this, list, params] { fusion.setup(list, params); });
}

void MainWindow::playRecording(std::vector<lum::FusionConfiguration> room, std::function<void()> start) {
    setAsReady();
    playing = true;
    ui->viewer->reset();
    showRoomCameras(room);
    replaceRoom([this, start = std::move(start)] {
        fusion.setCalibrateOnStart(true);
        start();
    });
}

void MainWindow::stopRoom() {
    liveRoom = 0;
    enableModules(false);
    makeCalibrationPossible(false);
    roomStopper.stopThen();
}

void MainWindow::replaceRoom(std::function<void()> start) {
    liveRoom = 0;
    roomStopper.stopThen([this, start] {
        liveRoom = ++roomsStarted;
        fusion.setCalibrateOnStart(false);
        start();
        roomOpen = true;
    });
}

void MainWindow::closeEvent(QCloseEvent* event) {
    if (step == CalibrationStep::Concluding || step == CalibrationStep::Starting) {
        closeRequested = true;
        event->ignore();
        return;
    }
    if (step == CalibrationStep::Collecting &&
        !prompts->confirm({tr("Throw the calibration away?"),
                           tr("A calibration is under way. Closing Halden now throws away the walk so far; finish "
                              "the calibration first to keep it. Close anyway?"),
                           PromptIcon::Warning})) {
        closeRequested = false;
        event->ignore();
        return;
    }
    if (wsCreator->uploadUnderway()) {
        event->ignore();
        if (closeAfterUpload) {
            wsCreator->cancelUpload();
            return;
        }
        closeAfterUpload = true;
        ui->report_panel->setConclusion(ui->report_panel->summaryText() + "<br>" +
                                        tr("Halden closes once the hub has stored the calibration; close again to "
                                           "stop waiting."));
        return;
    }
    if (!roomOpen && !roomStopper.isStopping()) {
        event->accept();
        return;
    }
    event->ignore();
    hide();
    liveRoom = 0;
    // Replaces a room still waiting to start: nothing starts once the window is going.
    roomStopper.stopThen([this] { close(); });
}

void MainWindow::showRoomCameras(const std::vector<lum::FusionConfiguration>& list) {
    std::vector<int> serials;
    for (const auto& configuration : list) serials.push_back(static_cast<int>(configuration.serial_number));
    ui->report_panel->setRoomCameras(serials);
    roomCalibrated = anyPosed(list);
    runningRoom = list;
}

void MainWindow::onOption_button_released() {
    if (roomOpen) wsCreator->showRunningRoom(runningRoom);
    wsCreator->resize(size());
    wsCreator->move(0, 0);
    wsCreator->show();
    wsCreator->raise();
    ui->centralwidget->hide();
}

void MainWindow::onWsCreatorClosed() {
    wsCreator->hide();
    wsCreator->clearUi();
    ui->centralwidget->show();
}

void MainWindow::enableModules(bool enabled) {
    ui->odom_check->setEnabled(enabled);
    ui->sk_check->setEnabled(enabled);
}

void MainWindow::on_odom_check_toggled(bool) {
    if (fusion.isRunning()) fusion.enableModule(MODULES::TRACKING);
}

void MainWindow::on_sk_check_toggled(bool) {
    if (fusion.isRunning()) fusion.enableModule(MODULES::SKELETON);
}

void MainWindow::on_check_metrics_toggled(bool checked) {
    SharedData::getInstance().showMetrics = checked;
    ui->viewer->scheduleRedraw();
}

void MainWindow::on_check_rawdata_toggled(bool checked) {
    SharedData::getInstance().showRawData = checked;
    ui->viewer->scheduleRedraw();
}

void MainWindow::makeCalibrationPossible(bool possible) {
    ui->calibration_button->setToolTip(possible ? QString() : tr("You must set up your room before calibrating it."));
    ui->fusion_error_label->setVisible(possible);
    ui->fusion_error->setVisible(possible);
    ui->fusion_error->clear();
    setCalibrationStep(possible ? CalibrationStep::Idle : CalibrationStep::Unavailable);
}

void MainWindow::setCalibrationStep(CalibrationStep next) {
    step = next;
    const bool collecting = step == CalibrationStep::Collecting;
    modelChoice->setEnabled(step == CalibrationStep::Idle || step == CalibrationStep::Unavailable);
    ui->calibration_button->setEnabled((step == CalibrationStep::Idle || collecting) && !settling.isActive());
    ui->calibration_button->setChecked(collecting || step == CalibrationStep::Concluding ||
                                       step == CalibrationStep::Starting);
    ui->calibration_button->setText(step == CalibrationStep::Concluding ? tr("Finishing...")
                                    : step == CalibrationStep::Starting  ? tr("Starting...")
                                    : collecting                         ? tr("Finish calibration")
                                                                         : tr("Start calibration"));
    Style::styleButton(*ui->calibration_button);
    ui->progressBar->setVisible(collecting);
    ui->roomSetupButton->setEnabled(step == CalibrationStep::Idle || step == CalibrationStep::Unavailable);
    ui->save_calibration_button->setVisible(!lastCalibration.empty());
    ui->save_calibration_button->setEnabled(step == CalibrationStep::Idle);
}

void MainWindow::on_calibration_button_released() {
    // Disabled for a moment, so the second click of a double-click finds it off.
    settling.start();
    if (step == CalibrationStep::Idle)
        beginCalibration();
    else if (step == CalibrationStep::Collecting && agreesToSaveWhatIsNotGood())
        concludeCalibration();
    else
        setCalibrationStep(step);
    ui->check_rawdata->setChecked(true);
}

void MainWindow::beginCalibration() {
    setCalibrationStep(CalibrationStep::Starting);
    if (calibrationCall.joinable()) calibrationCall.join();
    const int room = liveRoom.load();
    // Emptying the store waits for a solve and the worker's lock: never on this thread.
    calibrationCall = std::thread([this, room] {
        const bool started = fusion.startCalib(CALIB::SKELETON_CALIB) == 0;
        QMetaObject::invokeMethod(
            this, [this, room, started] { onCalibrationStarted(room, started); }, Qt::QueuedConnection);
    });
}

void MainWindow::onCalibrationStarted(int room, bool started) {
    if (calibrationCall.joinable()) calibrationCall.join();
    if (step != CalibrationStep::Starting) return;  // the room went meanwhile
    if (!started || room != liveRoom) {
        // Nothing started, so the button must not claim otherwise.
        setCalibrationStep(CalibrationStep::Idle);
    } else {
        showCollecting();
    }
    if (closeRequested) close();
}

void MainWindow::showCollecting() {
    lastCalibration.clear();
    movedCameras.clear();
    showStatus();
    ui->progressBar->setValue(0);
    ui->report_panel->clear();
    ui->report_panel->show();
    setCalibrationStep(CalibrationStep::Collecting);
}

bool MainWindow::agreesToSaveWhatIsNotGood() {
    const std::vector<int> notGood = ui->report_panel->camerasNotGood();
    // Before a usable solve there is nothing to save at all, and that is said later.
    if (!ui->report_panel->hasUsableReport() || notGood.empty()) return true;
    QStringList names;
    for (int serial : notGood) names << QString::number(serial);
    return prompts->confirm(
        {tr("Save cameras that are not Good?"),
         tr("Camera %1 does not read Good yet: its pose may be off by more than the fusion allows. Save the "
            "calibration anyway? Choose No to keep walking.")
             .arg(names.join(", ")),
         PromptIcon::Warning});
}

void MainWindow::concludeCalibration() {
    setCalibrationStep(CalibrationStep::Concluding);
    if (calibrationCall.joinable()) calibrationCall.join();
    // The last solve may take seconds; the window keeps drawing meanwhile.
    calibrationCall = std::thread([this] {
        std::vector<lum::FusionConfiguration> calibrated = fusion.concludeCalibration();
        QMetaObject::invokeMethod(
            this, [this, calibrated] { onCalibrationConcluded(calibrated); }, Qt::QueuedConnection);
    });
}

void MainWindow::onCalibrationConcluded(std::vector<lum::FusionConfiguration> calibrated) {
    if (calibrationCall.joinable()) calibrationCall.join();
    lastCalibration = std::move(calibrated);
    setCalibrationStep(CalibrationStep::Idle);
    if (lastCalibration.empty()) {
        ui->report_panel->setConclusion(
            tr("No calibration yet: no solve was usable. Start again and walk where several cameras see you."));
        prompts->exec(nothingToSaveMessage());
    } else {
        roomCalibrated = true;
        showUncalibratedNote(false);
        saveCalibration();
    }
    if (closeRequested) close();
}

bool MainWindow::saveCalibration() {
    if (lastCalibration.empty()) return false;
    const QString folder = QSettings().value(kSaveFolderKey, QDir::homePath()).toString();
    const QString chosen = prompts->askSaveFileName(tr("Save room calibration"), QDir(folder).filePath("calib.json"),
                                                    tr("Pyra Room Calibration files (*.json)"));
    if (chosen.isEmpty()) {
        keepUnsavedCalibration(tr("Saving was cancelled."));
        return false;
    }
    const QString name = QString::fromStdString(calibrationFileName(chosen));
    if (QFileInfo::exists(name) &&
        !prompts->confirm({tr("Replace file?"), tr("%1 already exists. Do you want to replace it?").arg(name),
                           PromptIcon::Warning})) {
        keepUnsavedCalibration(tr("%1 was kept as it was.").arg(name));
        return false;
    }
    std::string problem;
    if (!lum::writeConfigurationFile(name.toStdString(), lastCalibration, lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP,
                                     lum::UNIT::METER, &problem)) {
        QString why = QString::fromStdString(problem);
        if (!why.endsWith('.')) why += '.';
        keepUnsavedCalibration(tr("%1 could not be written: %2").arg(name, why));
        return false;
    }
    QSettings().setValue(kSaveFolderKey, QFileInfo(name).absolutePath());
    ui->report_panel->setConclusion(tr("Calibration saved to %1.").arg(name));
    ui->save_calibration_button->hide();
    // The hub upload runs off this thread and reports through calibrationStored.
    wsCreator->onConfigurationFileReady(lastCalibration, lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP, lum::UNIT::METER);
    return true;
}

void MainWindow::keepUnsavedCalibration(const QString& why) {
    const QString text = why + " " + tr("The calibration is kept: use \"Save calibration...\" to save it.");
    ui->report_panel->setConclusion(text);
    ui->save_calibration_button->show();
    ui->save_calibration_button->setEnabled(step == CalibrationStep::Idle);
    prompts->exec({tr("Calibration not saved"), text, PromptIcon::Warning});
}

void MainWindow::onCalibrationStored(QString outcome, bool stored) {
    ui->report_panel->setConclusion(ui->report_panel->summaryText() + "<br>" + outcome.toHtmlEscaped());
    if (!closeAfterUpload) return;
    // Said before going: the panel that would show it goes with the window.
    if (!stored)
        prompts->exec({tr("Calibration not stored in the hub"), outcome, PromptIcon::Warning});
    close();
}

void MainWindow::onCalibrationReport(CalibrationReport report) {
    if (report.usable) showUncalibratedNote(false);
    ui->report_panel->setReport(std::move(report));
}

void MainWindow::showUncalibratedNote(bool show) {
    uncalibratedNote->setVisible(show);
    if (show) fitOverlays();
}

void MainWindow::resizeEvent(QResizeEvent* event) {
    QMainWindow::resizeEvent(event);
    fitOverlays();
}

void MainWindow::fitOverlays() {
    if (wsCreator) wsCreator->setGeometry(rect());
    const QRect view = ui->view_stack->geometry();
    ui->spinner_wnd->move(view.center().x() - ui->spinner_wnd->width() / 2,
                          view.center().y() - ui->spinner_wnd->height() / 2);
    // Bottom left of the view, small: the metrics text takes the top, and the people walking
    // are mostly in the middle.
    const int width = std::min(300, ui->viewer->width() / 3);
    uncalibratedNote->setFixedWidth(width);
    // The height its wrapped text needs at that width, from the font: the label's own size
    // hints, under the style sheet, wrap it one word a line and stand a third of the view tall.
    constexpr int kPadding = 5;
    const QRect text = uncalibratedNote->fontMetrics().boundingRect(
        QRect(0, 0, width - 2 * kPadding - 2, 4000), Qt::TextWordWrap, uncalibratedNote->text());
    uncalibratedNote->setFixedHeight(text.height() + 2 * kPadding + 4);
    uncalibratedNote->move(12, ui->viewer->height() - uncalibratedNote->height() - 12);
    uncalibratedNote->raise();
}
