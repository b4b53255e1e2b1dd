// The window's recording menu. A recording is written from the fusion worker's capture sink
// on the worker's thread, and played through the worker's own loop like `calibrate --replay`.
#include "app/recording_actions.hpp"

#include <QAction>
#include <QDir>
#include <QFileInfo>
#include <QMenu>
#include <QMenuBar>
#include <QPushButton>
#include <QSettings>

#include <mutex>

#include "app/mainwindow.hpp"
#include "app/walk_recorder.hpp"
#include "core/user_prompts.hpp"
#include "fusion/fusion_worker.hpp"
#include "fusion/recorded_source.hpp"
#include "workspace/wscreator.hpp"

namespace {

constexpr const char* kFastKey = "recording/asFastAsPossible";
constexpr const char* kFolderKey = "recording/folder";

QString recordingFilter() { return QObject::tr("Halden recordings (*.rec)"); }

}  // namespace

// How a recording played to its end, kept apart from the source the worker owns and
// deletes when the next room starts.
struct PlayOutcome {
    std::mutex mutex;
    bool ended = false;
    bool truncated = false;
    std::string problem;
};

namespace {

// The recorded source, telling `outcome` when it has played out.
class WatchedRecording : public BodySource {
public:
    WatchedRecording(std::unique_ptr<RecordedBodySource> source, std::shared_ptr<PlayOutcome> outcome)
        : source_(std::move(source)), outcome_(std::move(outcome)) {}

    lum::FUSION_ERROR_CODE process() override {
        const lum::FUSION_ERROR_CODE status = source_->process();
        if (source_->ended()) {
            std::lock_guard<std::mutex> lock(outcome_->mutex);
            if (!outcome_->ended) {
                outcome_->ended = true;
                outcome_->truncated = source_->truncated();
                outcome_->problem = source_->problem();
            }
        }
        return status;
    }
    void retrieveBodies(lum::Bodies& bodies, lum::CameraIdentifier camera) override {
        source_->retrieveBodies(bodies, camera);
    }
    void updatePose(lum::CameraIdentifier camera, const lum::Transform& pose) override {
        source_->updatePose(camera, pose);
    }
    bool ended() const override { return source_->ended(); }

private:
    std::unique_ptr<RecordedBodySource> source_;
    std::shared_ptr<PlayOutcome> outcome_;
};

QMenu* recordingMenu(QMainWindow& window) {
    for (QMenu* candidate : window.menuBar()->findChildren<QMenu*>())
        if (candidate->title() == QObject::tr("Recording")) return candidate;
    return window.menuBar()->addMenu(QObject::tr("Recording"));
}

}  // namespace

RecordingActions::RecordingActions(MainWindow& window_, UserPrompts& prompts_)
    : QObject(&window_), window(window_), prompts(prompts_) {
    QMenu* menu = recordingMenu(window);
    recordAction = menu->addAction(tr("Record walk..."));
    recordAction->setObjectName("record_walk_action");
    connect(recordAction, &QAction::triggered, this, &RecordingActions::toggleRecording);
    QAction* open = menu->addAction(tr("Open recording..."));
    open->setObjectName("open_recording_action");
    connect(open, &QAction::triggered, this, &RecordingActions::openRecording);
    fastAction = menu->addAction(tr("Play recordings as fast as possible"));
    fastAction->setObjectName("fast_replay_action");
    fastAction->setCheckable(true);
    fastAction->setChecked(QSettings().value(kFastKey, false).toBool());
    connect(fastAction, &QAction::toggled, this, [](bool fast) { QSettings().setValue(kFastKey, fast); });

    FusionWorker& worker = window.fusionWorker();
    // A recording holds one room: it ends when that room stops or is replaced. Queued, so
    // that the window's own destruction (which closes the worker) says nothing.
    connect(
        &worker, &FusionWorker::closed, this,
        [this] {
            if (recorder) stopRecording(window.isVisible());
        },
        Qt::QueuedConnection);
    connect(&worker, &FusionWorker::runEnded, this, &RecordingActions::onPlayEnded);
}

// Runs after the window's worker is gone (its thread joined): only the file is left to close.
RecordingActions::~RecordingActions() {
    for (auto& [walk, closer] : closers) closer.join();
    if (!recorder) return;
    std::lock_guard<std::mutex> lock(recorder->mutex);
    recorder->writer.close(nullptr);
}

void RecordingActions::toggleRecording() {
    if (recorder)
        stopRecording(true);
    else
        startRecording();
}

void RecordingActions::startRecording() {
    if (!window.fusionWorker().isRunning() || window.playingRecording() || window.roomCameras().empty()) {
        prompts.exec({tr("Nothing to record"),
                      tr("Set up a room and let it run first: a recording keeps what its cameras see while you "
                         "walk."),
                      PromptIcon::Information});
        return;
    }
    const QString folder = QSettings().value(kFolderKey, QDir::homePath()).toString();
    const QString chosen = prompts.askSaveFileName(tr("Record walk into"), QDir(folder).filePath("walk.rec"),
                                                   recordingFilter());
    if (chosen.isEmpty()) return;
    const QString path = QFileInfo(chosen).suffix().isEmpty() ? chosen + ".rec" : chosen;

    rec::RecordingHeader header;
    header.room = window.roomCameras();
    header.coordinateSystem = lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP;
    header.unit = lum::UNIT::METER;
    header.bodyFormat = lum::BODY_FORMAT::BODY_18;
    header.depthMode = static_cast<lum::DEPTH_MODE>(window.workspaceCreator()->getParameters().depthMode);
    header.createdBy = "halden";
    auto next = std::make_shared<WalkRecorder>();
    next->path = path;
    if (!next->writer.open(path.toStdString(), header, &next->problem)) {
        prompts.exec({tr("Recording not started"), QString::fromStdString(next->problem), PromptIcon::Warning});
        return;
    }
    QSettings().setValue(kFolderKey, QFileInfo(path).absolutePath());
    recorder = next;
    window.fusionWorker().setCaptureSink([next](int serial, const lum::Bodies& bodies) { next->append(serial, bodies); });
    recordAction->setText(tr("Stop recording"));
}

void RecordingActions::stopRecording(bool tell) {
    window.fusionWorker().setCaptureSink(nullptr);
    const std::shared_ptr<WalkRecorder> done = std::move(recorder);
    recorder.reset();
    recordAction->setText(tr("Record walk..."));
    // The worker's thread may be writing a chunk, and closing writes the last one: neither
    // is the GUI thread's to wait for.
    closers[done.get()] = std::thread([this, done, tell] {
        {
            std::lock_guard<std::mutex> lock(done->mutex);
            if (done->problem.empty()) done->writer.close(&done->problem);
        }
        QMetaObject::invokeMethod(
            this, [this, done, tell] { onRecordingClosed(done, tell); }, Qt::QueuedConnection);
    });
}

void RecordingActions::onRecordingClosed(const std::shared_ptr<WalkRecorder>& done, bool tell) {
    const auto closer = closers.find(done.get());
    closer->second.join();
    closers.erase(closer);
    if (!tell) return;
    if (!done->problem.empty()) {
        prompts.exec({tr("Recording not saved"), QString::fromStdString(done->problem), PromptIcon::Warning});
        return;
    }
    prompts.exec({tr("Recording saved"),
                  tr("%1 captures written to %2. Open it with \"Open recording...\", or calibrate it with "
                     "halden-cli calibrate --replay.")
                      .arg(done->captures)
                      .arg(done->path),
                  PromptIcon::Information});
}

void RecordingActions::openRecording() {
    const auto* calibrate = window.findChild<QPushButton*>("calibration_button");
    if (calibrate && calibrate->isChecked()) {
        prompts.exec({tr("Calibration under way"),
                      tr("Finish the calibration of this room before playing a recording."), PromptIcon::Information});
        return;
    }
    const QString folder = QSettings().value(kFolderKey, QDir::homePath()).toString();
    const QString path = prompts.askOpenFileName(tr("Recording to play"), folder, recordingFilter());
    if (path.isEmpty()) return;
    auto reader = std::make_unique<rec::RecordingReader>();
    std::string problem;
    if (!reader->open(path.toStdString(), &problem)) {
        prompts.exec({tr("Recording not opened"), QString::fromStdString(problem), PromptIcon::Warning});
        return;
    }
    if (recorder) stopRecording(true);
    const std::vector<lum::FusionConfiguration> room = reader->header().room;
    auto source = std::make_unique<RecordedBodySource>(std::move(reader), roomFusionParameters().synchronization);
    source->setRecordedPace(!fastAction->isChecked());
    auto outcome = std::make_shared<PlayOutcome>();
    // The room's start runs later, on this thread; a function object must be copyable.
    auto watched = std::make_shared<std::unique_ptr<BodySource>>(
        std::make_unique<WatchedRecording>(std::move(source), outcome));
    playOutcome = outcome;
    playingName = path;
    FusionWorker& worker = window.fusionWorker();
    window.playRecording(room, [&worker, watched, room] {
        if (*watched) worker.setupReplay(std::move(*watched), room);
    });
}

void RecordingActions::onPlayEnded() {
    if (!playOutcome || !window.playingRecording()) return;
    std::lock_guard<std::mutex> lock(playOutcome->mutex);
    if (!playOutcome->ended) return;
    const QString name = QFileInfo(playingName).fileName();
    if (playOutcome->truncated)
        prompts.exec({tr("Recording ends early"),
                      tr("%1 is cut short or damaged (%2); everything before that point was played.")
                          .arg(name, QString::fromStdString(playOutcome->problem)),
                      PromptIcon::Warning});
    else
        prompts.show({tr("Recording played"),
                      tr("%1 has played to its end. Finish the calibration to save it.").arg(name),
                      PromptIcon::Information});
    playOutcome.reset();
}
