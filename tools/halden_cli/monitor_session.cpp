// The headless drift watch: the fusion worker's own monitor, its warnings printed as
// they come, and an exit status scripts can act on.
#include "tools/halden_cli/monitor_session.hpp"

#include <QCoreApplication>

#include <cstdio>
#include <iostream>

MonitorSession::MonitorSession(CliOptions options_, std::vector<lum::FusionConfiguration> room_)
    : options(std::move(options_)), room(std::move(room_)), prompts(std::make_shared<ConsolePrompts>()) {
    worker.setPrompts(prompts);
    connect(&worker, &FusionWorker::isInit, this, [this] {
        if (ended) return;
        started = true;
        std::cerr << "halden-cli: watching " << room.size() << " cameras for " << options.seconds << " s" << std::endl;
        watchTimer.start(options.seconds * 1000);
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
    watchTimer.setSingleShot(true);
    connect(&watchTimer, &QTimer::timeout, this, [this] {
        if (moved == 0) std::printf("no camera moved\n");
        end(moved ? kCameraMoved : 0);
    });
}

void MonitorSession::start() { worker.setup(room, options.params); }

void MonitorSession::interrupt() {
    if (!ended) end(moved ? kCameraMoved : 0);
}

void MonitorSession::end(int status) {
    if (ended) return;
    ended = true;
    watchTimer.stop();
    worker.close();
    QCoreApplication::exit(status);
}
