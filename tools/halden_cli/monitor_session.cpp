// The headless drift watch: the fusion worker's own monitor, its warnings printed as
// they come, and an exit status scripts can act on.
#include "tools/halden_cli/monitor_session.hpp"

#include <QCoreApplication>

#include <cstdio>
#include <iostream>

MonitorSession::MonitorSession(CliOptions options_, std::vector<lum::FusionConfiguration> room_,
                               std::unique_ptr<rec::RecordingReader> replay_)
    : options(std::move(options_)), room(std::move(room_)), prompts(std::make_shared<ConsolePrompts>()),
      replay(std::move(replay_)) {
    worker.setPrompts(prompts);
    if (options.seconds > 0) worker.setRunLength(int64_t(options.seconds) * 1000000000);
    connect(&worker, &FusionWorker::isInit, this, [this] {
        if (ended) return;
        started = true;
        if (options.seconds > 0)
            std::cerr << "halden-cli: watching " << room.size() << " cameras for " << options.seconds << " s"
                      << std::endl;
        else
            std::cerr << "halden-cli: watching " << room.size() << " cameras through " << options.replay << std::endl;
    });
    auto failed = [this] {
        if (ended || started) return;
        std::cerr << "halden-cli: the fusion could not start with fewer than two working cameras" << std::endl;
        end(kFusionNotStarted);
    };
    connect(&worker, &FusionWorker::error, this, failed);
    connect(&worker, &QThread::finished, this, failed);
    connect(&worker, &FusionWorker::cameraMoved, this, [this](int serial, double rotationDeg, double shiftMm) {
        ++moved;
        std::printf("camera %d moved: turned about %.1f deg, its view shifted about %.0f mm where people walk\n", serial, rotationDeg,
                    shiftMm);
        std::fflush(stdout);
    });
    // On the worker's clock: a replay watches the same stretch of the recording every run.
    connect(&worker, &FusionWorker::runEnded, this, [this] {
        if (moved == 0) std::printf("no camera moved\n");
        end(moved ? kCameraMoved : 0);
    });
}

void MonitorSession::start() {
    if (!replay) {
        worker.setup(room, options.params);
        return;
    }
    worker.setupReplay(
        std::make_unique<RecordedBodySource>(std::move(replay), roomFusionParameters().synchronization), room);
}

void MonitorSession::interrupt() {
    if (!ended) end(moved ? kCameraMoved : 0);
}

void MonitorSession::end(int status) {
    if (ended) return;
    ended = true;
    worker.close();
    QCoreApplication::exit(status);
}
