// A fusion that never came up: the worker gives up on its cameras (an error) or its thread
// ends before the room was subscribed.
#include "tools/halden_cli/fusion_start.hpp"

#include <iostream>

void onFusionStartFailure(FusionWorker& worker, QObject* session, std::function<bool()> pending,
                          std::function<void()> failed) {
    auto check = [pending = std::move(pending), failed = std::move(failed)] {
        if (!pending()) return;
        std::cerr << "halden-cli: the fusion could not start with fewer than two working cameras" << std::endl;
        failed();
    };
    QObject::connect(&worker, &FusionWorker::error, session, check);
    QObject::connect(&worker, &QThread::finished, session, check);
}
