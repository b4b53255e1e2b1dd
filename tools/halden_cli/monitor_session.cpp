// The headless drift watch: the fusion worker's own monitor, its warnings printed as
// they come, and an exit status scripts can act on. It refuses to vouch for a room it
// cannot watch, and says "not settled" rather than "no camera moved" when it ran too short.
#include "tools/halden_cli/monitor_session.hpp"

#include <QCoreApplication>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iostream>

#include "tools/halden_cli/fusion_start.hpp"

namespace {

// Farther than this from the room's origin no camera of one room stands; a pose there
// is a corrupt or uncalibrated file, and its drift would be measured against nonsense.
constexpr double kFarthestMetres = 1000.0;
// Two cameras' centres closer than this would overlap: their bodies are wider.
constexpr double kClosestMetres = 0.05;

std::string listed(const std::vector<int>& serials) {
    std::string text;
    for (size_t i = 0; i < serials.size(); ++i) text += (i ? ", " : "") + std::to_string(serials[i]);
    return text;
}

}  // namespace

std::string implausiblePoses(const std::vector<lum::FusionConfiguration>& room) {
    for (size_t i = 0; i < room.size(); ++i) {
        const lum::Translation a = room[i].pose.getTranslation();
        const double distance = std::sqrt(double(a.x) * a.x + double(a.y) * a.y + double(a.z) * a.z);
        if (!std::isfinite(distance) || distance > kFarthestMetres)
            return "camera " + std::to_string(room[i].serial_number) + " stands " +
                   std::to_string(std::lround(distance)) + " m from the room's origin";
        for (size_t j = 0; j < i; ++j) {
            const lum::Translation b = room[j].pose.getTranslation();
            const double dx = double(a.x) - b.x, dy = double(a.y) - b.y, dz = double(a.z) - b.z;
            if (std::sqrt(dx * dx + dy * dy + dz * dz) < kClosestMetres)
                return "cameras " + std::to_string(room[j].serial_number) + " and " +
                       std::to_string(room[i].serial_number) + " stand at one spot";
        }
    }
    return std::string();
}

MonitorSession::MonitorSession(CliOptions options_, std::vector<lum::FusionConfiguration> room_,
                               std::unique_ptr<rec::RecordingReader> replay_)
    : options(std::move(options_)), room(std::move(room_)), prompts(std::make_shared<ConsolePrompts>()),
      replay(std::move(replay_)) {
    worker.setPrompts(prompts);
    if (options.seconds > 0) worker.setRunLength(int64_t(options.seconds) * 1000000000);
    connect(&worker, &FusionWorker::isInit, this, [this] {
        if (ended) return;
        started = true;
        const std::vector<int> absent = missing(worker.runningCameras());
        if (!absent.empty()) {
            std::cerr << "halden-cli: cannot watch the room: camera" << (absent.size() > 1 ? "s " : " ")
                      << listed(absent) << " never opened or subscribed, so nothing could be said about "
                      << (absent.size() > 1 ? "them" : "it") << std::endl;
            end(kCannotWatch);
            return;
        }
        if (options.seconds > 0)
            std::cerr << "halden-cli: watching " << room.size() << " cameras for " << options.seconds << " s"
                      << std::endl;
        else
            std::cerr << "halden-cli: watching " << room.size() << " cameras through " << options.replay << std::endl;
    });
    onFusionStartFailure(worker, this, [this] { return !ended && !started; }, [this] { end(kFusionNotStarted); });
    connect(&worker, &FusionWorker::cameraMoved, this, [this](int serial, double rotationDeg, double shiftMm) {
        ++moved;
        std::printf("camera %d moved: turned about %.1f deg, its view shifted about %.0f mm where people walk\n", serial, rotationDeg,
                    shiftMm);
        std::fflush(stdout);
    });
    // On the worker's clock: a replay watches the same stretch of the recording every run.
    connect(&worker, &FusionWorker::runEnded, this, &MonitorSession::conclude);
}

void MonitorSession::start() {
    const std::string implausible = implausiblePoses(room);
    if (!implausible.empty()) {
        std::cerr << "halden-cli: cannot watch the room: " << implausible
                  << "; that is not a calibration (calibrate the room first)" << std::endl;
        // The event loop is not running yet; ending it now would be ignored.
        QMetaObject::invokeMethod(this, [this] { end(kCannotWatch); }, Qt::QueuedConnection);
        return;
    }
    if (!replay) {
        worker.setup(room, options.params);
        return;
    }
    worker.setupReplay(
        std::make_unique<RecordedBodySource>(std::move(replay), roomFusionParameters().synchronization), room);
}

void MonitorSession::interrupt() { conclude(); }

void MonitorSession::conclude() {
    if (ended) return;
    if (moved) return end(kCameraMoved);
    const std::vector<int> unjudged = missing(worker.watchedCameras());
    if (!unjudged.empty()) {
        std::printf("not settled: camera%s %s could not be judged yet; the watch settles on its first 30 s of people "
                    "walking in view, so run it longer\n",
                    unjudged.size() > 1 ? "s" : "", listed(unjudged).c_str());
        std::fflush(stdout);
        return end(kNotSettled);
    }
    std::printf("no camera moved\n");
    std::fflush(stdout);
    end(0);
}

std::vector<int> MonitorSession::missing(const std::vector<int>& present) const {
    std::vector<int> absent;
    for (const lum::FusionConfiguration& camera : room)
        if (std::find(present.begin(), present.end(), camera.serial_number) == present.end())
            absent.push_back(camera.serial_number);
    return absent;
}

void MonitorSession::end(int status) {
    if (ended) return;
    ended = true;
    worker.close();
    QCoreApplication::exit(status);
}
