// The headless calibration flow: the same fusion worker as the main window, answered by
// console prompts, with a timer in place of the "Finish calibration" button.
#include "tools/halden_cli/calibration_session.hpp"

#include <QCoreApplication>
#include <QSaveFile>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstdio>
#include <functional>
#include <iostream>

#include "calibration/calibration_verdict.hpp"
#include "calibration/report_json.hpp"
#include "tools/halden_cli/fusion_start.hpp"
#include "tools/halden_cli/output_paths.hpp"

namespace {

const char* readinessName(CameraReadiness readiness) {
    switch (readiness) {
        case CameraReadiness::NoData: return "no data";
        case CameraReadiness::NeedsFrames: return "needs frames";
        case CameraReadiness::Uncertain: return "settling";
        case CameraReadiness::Moved: return "moved";
        case CameraReadiness::Good: return "good";
    }
    return "";
}

// One figure for the whole room: the per-camera RMS weighted by the blocks behind it.
std::optional<double> roomRmsMm(const CalibrationReport& report) {
    double sum = 0;
    double blocks = 0;
    for (const CameraCalibrationReport& camera : report.cameras) {
        sum += camera.rmsAfterMm * camera.rmsAfterMm * camera.residualBlocks;
        blocks += camera.residualBlocks;
    }
    if (blocks <= 0) return std::nullopt;
    return std::sqrt(sum / blocks);
}

// A replay's report leaves out the solve's wall time, so that every replay of a recording
// writes the same bytes.
bool writeReport(const std::string& path, const CalibrationReport& report, bool replayed, std::string& problem) {
    // Checked again: in the minute of walking, the name may have become a link or a device.
    const std::string target = writableTarget(path, "--report", problem);
    if (target.empty()) return false;
    QSaveFile file(QString::fromStdString(target));
    if (!file.open(QIODevice::WriteOnly)) {
        problem = "--report " + path + ": " + file.errorString().toStdString();
        return false;
    }
    nlohmann::ordered_json document = toJson(report);
    if (replayed) document.erase("solveSeconds");
    const std::string text = document.dump(2) + "\n";
    file.write(text.data(), static_cast<qint64>(text.size()));
    if (!file.commit()) {
        problem = "--report " + path + ": " + file.errorString().toStdString();
        return false;
    }
    return true;
}

// Asks the session before handing out the file name, so a room that is not all good can
// be kept back after the last solve and before anything is written.
class GatedPrompts : public ConsolePrompts {
public:
    explicit GatedPrompts(std::function<bool()> allow_) : allow(std::move(allow_)) {}
    QString askSaveFileName(const QString& title, const QString& directory, const QString& filter) override {
        return allow() ? ConsolePrompts::askSaveFileName(title, directory, filter) : QString();
    }

private:
    std::function<bool()> allow;
};

}  // namespace

CalibrationSession::CalibrationSession(CliOptions options_, std::vector<lum::FusionConfiguration> room_,
                                       std::unique_ptr<rec::RecordingReader> replay_)
    : options(std::move(options_)), room(std::move(room_)),
      prompts(std::make_shared<GatedPrompts>([this] { return allowSave(); })),
      replay(std::move(replay_)), replaySpan(replay ? rec::captureSpan(options.replay) : rec::CaptureSpan()) {
    for (const lum::FusionConfiguration& camera : room) result.roomCameras.push_back(camera.serial_number);
    prompts->setSaveFileName(QString::fromStdString(options.output));
    worker.setPrompts(prompts);
    worker.setCalibrationModel(options.classicModel ? SkeletonMulticameraCalibration::Model::Classic
                                                    : SkeletonMulticameraCalibration::Model::Refined);

    connect(&worker, &FusionWorker::isInit, this, &CalibrationSession::onStarted);
    onFusionStartFailure(worker, this, [this] { return !ended && !started; }, [this] { end(kFusionNotStarted); });
    connect(&worker, &FusionWorker::incCalib, this, [this](int value) { percent = value; });
    connect(&worker, &FusionWorker::calibrationReport, this, &CalibrationSession::onReport);
    // As it happens: a camera gone quiet or held apart at minute 3 is named at minute 3.
    connect(&worker, &FusionWorker::cameraNotice, this, [this](int, const QString& text, double secondsIntoRun) {
        progress.close();
        char when[32];
        std::snprintf(when, sizeof when, "%.1f", secondsIntoRun);
        std::cerr << "halden-cli: " << text.toStdString() << " (" << when << " s into the run)" << std::endl;
    });
    connect(&worker, &FusionWorker::cameraPeople, this,
            [this](const CameraPeopleList& cameras) { people = calib::describe(cameras); });
    // Emitted on this thread from finishCalib(), once the save was attempted.
    connect(&worker, &FusionWorker::CalibrationConfigurationReady, this,
            [this](const std::vector<lum::FusionConfiguration>& calibrated) {
                configurationPublished = true;
                unsaved = calibrated;
            },
            Qt::DirectConnection);

    // The worker starts the calibration before its first set and stops collecting after
    // --seconds of its own clock, so a replay collects the same frames on every run.
    worker.setCalibrateOnStart(true);
    if (options.seconds > 0) worker.setRunLength(int64_t(options.seconds) * 1000000000);
    connect(&worker, &FusionWorker::runEnded, this, &CalibrationSession::finish);
    connect(&tickTimer, &QTimer::timeout, this, [this] { progress.update(progressState(), false); });
}

void CalibrationSession::start() {
    if (!replay) {
        worker.setup(room, options.params);
        return;
    }
    auto source = std::make_unique<RecordedBodySource>(std::move(replay), roomFusionParameters().synchronization);
    replaySource = source.get();
    worker.setupReplay(std::move(source), room);
}

void CalibrationSession::onStarted() {
    if (ended) return;
    started = true;
    clock.start();
    tickTimer.start(1000);
    progress.update(progressState(), true);
}

void CalibrationSession::onReport(const CalibrationReport& report) {
    ++solves;
    unplaced = report.unplaced;
    reseeding = report.reseeding;
    if (report.usable) {
        lastUsable = report;
        lastRmsMm = roomRmsMm(report);
    }
    if (started) progress.update(progressState(), true);
}

ProgressLine::State CalibrationSession::progressState() const {
    ProgressLine::State state;
    state.percent = percent;
    state.frames = worker.calibrationFrameCount();
    state.solves = solves;
    state.lastRmsMm = lastRmsMm;
    state.elapsedSeconds = clock.isValid() ? static_cast<int>(clock.elapsed() / 1000) : 0;
    state.totalSeconds = options.seconds;
    if (replaySource) {
        // A replay runs many times faster than it was recorded: it counts the recording's time.
        const int64_t into = worker.pipelineNowNs() - static_cast<int64_t>(replaySpan.firstNs);
        state.elapsedSeconds = into > 0 ? static_cast<int>(into / 1000000000) : 0;
        const int length = static_cast<int>(std::lround(double(replaySpan.lastNs - replaySpan.firstNs) * 1e-9));
        state.totalSeconds = options.seconds > 0 ? std::min(options.seconds, length) : length;
    }
    state.people = people;
    state.reseeding = reseeding;
    return state;
}

void CalibrationSession::interrupt() {
    if (ended) return;
    if (started) {
        progress.close();
        std::cerr << "halden-cli: interrupted, saving what has been calibrated so far" << std::endl;
        finish();
        return;
    }
    std::cerr << "halden-cli: interrupted before the calibration started; nothing to save" << std::endl;
    if (options.json) {
        result.status = kNothingToSave;
        result.message = "interrupted before the calibration started";
        printJson(result);
    }
    // The fusion may be waiting seconds for senders that never answer. Nothing has been
    // written yet and the kernel releases the camera locks, so leaving now loses nothing.
    std::cout.flush();
    std::_Exit(kNothingToSave);
}

void CalibrationSession::finish() {
    if (ended) return;
    tickTimer.stop();
    progress.close();
    // A replay interrupted midway stops here; its source is read on this thread from now on.
    if (replaySource) worker.close();
    if (replaySource && replaySource->truncated())
        std::cerr << "halden-cli: warning: the recording ends early: " << replaySource->problem()
                  << "; calibrated from what came before" << std::endl;
    const int frames = worker.calibrationFrameCount();
    const calib::KeypointDrops drops = worker.droppedKeypoints();
    const std::string refused =
        drops.total() > 0 ? "; keypoints refused as unusable: " + drops.describe() : std::string();
    // Before finishCalib: a calibration with nothing to save starts afresh there.
    const std::map<int, CameraCause> causes = cameraCauses();
    const bool written = worker.finishCalib(SKELETON_CALIB);
    // Solves that landed during finishCalib have been reported by now.
    QCoreApplication::sendPostedEvents(this);
    if (!written && withheld) {
        std::cerr << "halden-cli: nothing written to " << options.output
                  << ": --require-good and not every camera is good" << std::endl;
        result.reason = "not every camera good: nothing written";
        if (!writeReportIfAsked()) return;
        end(kPartial);
        return;
    }
    if (!written) {
        if (configurationPublished) {
            std::cerr << "halden-cli: could not write " << options.output << std::endl;
            std::string problem;
            const std::string kept = keepUnsavedCalibration(unsaved, problem);
            if (kept.empty())
                std::cerr << "halden-cli: the calibration is lost: no fallback file could be written either: "
                          << problem << std::endl;
            else
                std::cerr << "halden-cli: the calibration of " << unsaved.size() << " cameras is kept in " << kept
                          << "; copy it where it belongs" << std::endl;
            result.message = kept.empty() ? "could not write " + options.output : "calibration kept in " + kept;
            end(kWriteFailed);
        } else {
            std::cerr << "halden-cli: nothing to save: no usable calibration from " << frames
                      << " frames; walk where at least two cameras see one person at a time, for longer" << refused
                      << std::endl;
            for (const auto& [serial, cause] : causes)
                if (!cause.trouble.empty())
                    std::cerr << "halden-cli: camera " << serial << ": " << cause.trouble << std::endl;
            for (const auto& [serial, why] : unplaced)
                std::cerr << "halden-cli: camera " << serial << " not placed: " << why << std::endl;
            end(kNothingToSave);
        }
        return;
    }

    const std::vector<int> saved = worker.savedCameras();
    result.output = options.output;
    result.saved = saved;
    out() << "Calibration of " << saved.size() << " cameras written to " << options.output << " (" << frames
          << " frames, " << solves << " solves)" << std::endl;
    const bool leftOut = reportLeftOut(saved, causes);
    if (lastUsable) {
        for (const CameraCalibrationReport& camera : lastUsable->cameras) {
            // The verdict and the uncertainty that covers systematic error come first; the
            // formal sigma only knows random noise.
            const CameraAssessment assessment = assessCamera(&camera, *lastUsable);
            char line[256];
            std::snprintf(line, sizeof line,
                          "  camera %d: %s, 1-sigma %.2f deg / %.1f mm, residual %.1f mm (formal sigma %.3f deg / "
                          "%.1f mm), %d keypoint pairs",
                          camera.camera, readinessName(assessment.readiness), camera.uncertainty.rotationSigmaDeg,
                          camera.uncertainty.positionSigmaMm, camera.rmsAfterMm, camera.rotationSigmaDeg,
                          camera.translationSigmaMm, camera.residualBlocks);
            out() << line << "\n";
            if (assessment.readiness != CameraReadiness::Good && !assessment.advice.empty())
                out() << "    " << assessment.advice << "\n";
        }
        out().flush();
    }
    if (lastUsable && !lastUsable->floorRefused.empty())
        std::cerr << "halden-cli: warning: " << lastUsable->floorRefused << std::endl;
    const bool partial = reportNotGood(saved) || leftOut;
    if (!writeReportIfAsked()) return;
    end(partial ? kPartial : kWritten);
}

bool CalibrationSession::writeReportIfAsked() {
    if (!options.report.empty()) {
        std::string problem;
        if (!lastUsable) {
            std::cerr << "halden-cli: no report to write" << std::endl;
            end(kWriteFailed);
            return false;
        }
        if (!writeReport(options.report, *lastUsable, !options.replay.empty(), problem)) {
            std::cerr << "halden-cli: could not write the report: " << problem << std::endl;
            end(kWriteFailed);
            return false;
        }
        result.report = options.report;
        out() << "Report written to " << options.report << std::endl;
    }
    return true;
}

std::vector<std::pair<int, CameraAssessment>> CalibrationSession::notGood() const {
    std::vector<std::pair<int, CameraAssessment>> found;
    for (const lum::FusionConfiguration& configuration : room) {
        const int serial = configuration.serial_number;
        CameraAssessment assessment;
        if (lastUsable) {
            const CameraCalibrationReport* camera = nullptr;
            for (const CameraCalibrationReport& entry : lastUsable->cameras)
                if (entry.camera == serial) camera = &entry;
            assessment = assessCamera(camera, *lastUsable);
        }
        if (assessment.readiness != CameraReadiness::Good) found.emplace_back(serial, assessment);
    }
    return found;
}

bool CalibrationSession::reportNotGood(const std::vector<int>& saved) {
    bool any = false;
    for (const auto& [serial, assessment] : notGood()) {
        // A camera left out has been named with its reason already.
        if (!withheld && std::find(saved.begin(), saved.end(), serial) == saved.end()) continue;
        any = true;
        std::cerr << "halden-cli: camera " << serial << " not good (" << readinessName(assessment.readiness) << ")"
                  << (assessment.advice.empty() ? "" : ": " + assessment.advice) << std::endl;
    }
    return any;
}

bool CalibrationSession::allowSave() {
    if (!options.requireGood) return true;
    // The last solve's report is on its way from the solver thread; its verdict decides.
    QCoreApplication::sendPostedEvents(this);
    withheld = !notGood().empty();
    if (withheld) reportNotGood({});
    return !withheld;
}

std::map<int, CalibrationSession::CameraCause> CalibrationSession::cameraCauses() const {
    const std::vector<int> running = worker.runningCameras();
    const std::map<int, calib::KeypointDrops> drops = worker.droppedKeypointsByCamera();
    std::map<int, CameraCause> causes;
    for (const lum::FusionConfiguration& camera : room) {
        const int serial = camera.serial_number;
        CameraCause& cause = causes[serial];
        cause.running = std::find(running.begin(), running.end(), serial) != running.end();
        if (!cause.running) continue;
        cause.trouble = worker.cameraTrouble(serial);
        auto dropped = drops.find(serial);
        if (dropped != drops.end() && dropped->second.total() > 0)
            cause.refused = "; keypoints refused as unusable: " + dropped->second.describe();
    }
    return causes;
}

bool CalibrationSession::reportLeftOut(const std::vector<int>& saved, const std::map<int, CameraCause>& causes) {
    bool leftOut = false;
    for (const auto& [serial, cause] : causes) {
        if (std::find(saved.begin(), saved.end(), serial) != saved.end()) continue;
        leftOut = true;
        // The camera's own fault, when it made one, is the cause; the pairing is the last guess.
        const auto waiting = unplaced.find(serial);
        std::string why = "it never opened or subscribed";
        if (cause.running && !cause.trouble.empty())
            why = cause.trouble + cause.refused;
        else if (cause.running && waiting != unplaced.end())
            why = waiting->second + cause.refused;
        else if (cause.running)
            why = "it shared no usable keypoint with another camera" + cause.refused;
        std::cerr << "halden-cli: camera " << serial << " left out: " << why << std::endl;
        result.leftOut[serial] = why;
    }
    return leftOut;
}

std::ostream& CalibrationSession::out() const { return options.json ? std::cerr : std::cout; }

void CalibrationSession::end(CliStatus status) {
    ended = true;
    if (options.json) {
        result.status = status;
        result.frames = worker.calibrationFrameCount();
        result.solves = solves;
        result.calibration = lastUsable;
        printJson(result);
    }
    tickTimer.stop();
    progress.close();
    worker.close();
    QCoreApplication::exit(status);
}
