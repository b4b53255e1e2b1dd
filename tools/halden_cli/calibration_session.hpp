// One headless calibration: starts the fusion worker on a room, collects skeletons for
// the time asked, then finishes the calibration into the output file.
#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "calibration/calibration_verdict.hpp"
#include "core/console_prompts.hpp"
#include "fusion/fusion_worker.hpp"
#include "fusion/recorded_source.hpp"
#include "tools/halden_cli/cli_options.hpp"
#include "tools/halden_cli/cli_result.hpp"
#include "tools/halden_cli/progress_line.hpp"

class CalibrationSession : public QObject {
    Q_OBJECT

public:
    // `replay`, when given, is an open recording played instead of the room's cameras.
    CalibrationSession(CliOptions options, std::vector<lum::FusionConfiguration> room,
                       std::unique_ptr<rec::RecordingReader> replay = nullptr);

    // Starts the fusion; the session ends the application's event loop with a CliStatus.
    void start();
    // Finishes early, saving what has been calibrated so far (from a signal handler's poll).
    void interrupt();

private:
    void onStarted();
    void onReport(const CalibrationReport& report);
    void finish();
    void end(CliStatus status);
    // What each camera of the room did wrong, as the worker saw it.
    struct CameraCause {
        bool running = false;  // opened and subscribed
        std::string trouble;   // its clock, its body counts, its silence; empty: nothing
        std::string refused;   // "; keypoints refused as unusable: ..." for this camera alone
    };
    std::map<int, CameraCause> cameraCauses() const;
    // Names every camera of the room missing from `saved`, and why; true if any was.
    bool reportLeftOut(const std::vector<int>& saved, const std::map<int, CameraCause>& causes);
    // The room's cameras whose verdict on the last usable solve is not good, with it.
    std::vector<std::pair<int, CameraAssessment>> notGood() const;
    // Names each saved camera that is not good on standard error; true if any was.
    bool reportNotGood(const std::vector<int>& saved);
    // With --require-good, asked just before the room file is written: false withholds it.
    bool allowSave();
    bool writeReportIfAsked();
    ProgressLine::State progressState() const;
    // Where the lines meant for people go: standard error when standard output is the JSON.
    std::ostream& out() const;

    CliOptions options;
    std::vector<lum::FusionConfiguration> room;
    std::shared_ptr<ConsolePrompts> prompts;
    FusionWorker worker;
    ProgressLine progress;
    std::unique_ptr<rec::RecordingReader> replay;
    rec::CaptureSpan replaySpan;  // of the recording replayed, read through once before it plays
    const RecordedBodySource* replaySource = nullptr;  // owned by the worker
    QTimer tickTimer;
    QElapsedTimer clock;
    bool started = false;
    bool ended = false;
    bool configurationPublished = false;
    bool withheld = false;  // --require-good kept the room file back
    int percent = 0;
    int solves = 0;
    // What finishCalib tried to save, kept elsewhere when its file cannot be written.
    std::vector<lum::FusionConfiguration> unsaved;
    std::optional<CalibrationReport> lastUsable;
    std::vector<int> reseeding;           // of the last solve: cameras whose pose is being found anew
    std::map<int, std::string> unplaced;  // of the last solve, usable or not: cameras still without a first pose
    std::optional<double> lastRmsMm;
    std::string people;
    CliResult result;
};
