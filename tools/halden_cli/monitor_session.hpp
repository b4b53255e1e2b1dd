// One headless watch of a calibrated room: runs the fusion on the saved poses for the
// time asked and reports every camera that moves away from them.
#pragma once

#include <QObject>
#include <QTimer>

#include <memory>
#include <string>
#include <vector>

#include "core/console_prompts.hpp"
#include "fusion/fusion_worker.hpp"
#include "fusion/recorded_source.hpp"
#include "tools/halden_cli/cli_options.hpp"

// Why the poses of `room` cannot be a calibration (a camera kilometres away, two at one
// spot), or empty when they could be.
std::string implausiblePoses(const std::vector<lum::FusionConfiguration>& room);

class MonitorSession : public QObject {
    Q_OBJECT

public:
    // `replay`, when given, is an open recording watched instead of the room's cameras.
    MonitorSession(CliOptions options, std::vector<lum::FusionConfiguration> room,
                   std::unique_ptr<rec::RecordingReader> replay = nullptr);

    // Starts the fusion; the session ends the event loop with 0 (every camera judged and
    // none moved), kCameraMoved, kNotSettled, kCannotWatch or kFusionNotStarted.
    void start();
    void interrupt();

private:
    void conclude();
    // The room's serials missing from `present`.
    std::vector<int> missing(const std::vector<int>& present) const;
    void end(int status);

    CliOptions options;
    std::vector<lum::FusionConfiguration> room;
    std::shared_ptr<ConsolePrompts> prompts;
    FusionWorker worker;
    std::unique_ptr<rec::RecordingReader> replay;
    bool started = false;
    bool ended = false;
    int moved = 0;
};
