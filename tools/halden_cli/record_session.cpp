// The headless recorder: the fusion worker's capture sink feeds a recording writer until
// the run length passes on the worker's own clock.
#include "tools/halden_cli/record_session.hpp"

#include <QCoreApplication>

#include <iostream>

#include "tools/halden_cli/fusion_start.hpp"

RecordSession::RecordSession(CliOptions options_, std::vector<lum::FusionConfiguration> room_)
    : options(std::move(options_)), room(std::move(room_)), prompts(std::make_shared<ConsolePrompts>()) {
    worker.setPrompts(prompts);
    worker.setCaptureSink([this](int serial, const lum::Bodies& bodies) { append(serial, bodies); });
    worker.setRunLength(int64_t(options.seconds) * 1000000000);
    connect(&worker, &FusionWorker::isInit, this, [this] {
        if (ended) return;
        started = true;
        std::cerr << "halden-cli: recording " << room.size() << " cameras for " << options.seconds << " s into "
                  << options.output << std::endl;
    });
    onFusionStartFailure(worker, this, [this] { return !ended && !started; }, [this] { end(kFusionNotStarted); });
    connect(&worker, &FusionWorker::runEnded, this, [this] { end(kWritten); });
}

void RecordSession::start() {
    rec::RecordingHeader header;
    header.room = room;
    header.coordinateSystem = lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP;
    header.unit = lum::UNIT::METER;
    header.bodyFormat = lum::BODY_FORMAT::BODY_18;
    header.depthMode = static_cast<lum::DEPTH_MODE>(options.params.depthMode);
    header.createdBy = "halden-cli";
    std::string problem;
    if (!writer.open(options.output, header, &problem)) {
        std::cerr << "halden-cli: could not write " << options.output << ": " << problem << std::endl;
        end(kWriteFailed);
        return;
    }
    worker.setup(room, options.params);
}

void RecordSession::append(int serial, const lum::Bodies& bodies) {
    std::lock_guard<std::mutex> lock(writerMutex);
    if (!writeProblem.empty() || !writer.isOpen()) return;
    if (writer.append({serial, bodies}, &writeProblem)) ++entries;
}

void RecordSession::interrupt() {
    if (ended) return;
    std::cerr << "halden-cli: interrupted, keeping what was recorded so far" << std::endl;
    end(started ? kWritten : kFusionNotStarted);
}

void RecordSession::end(int status) {
    if (ended) return;
    ended = true;
    worker.close();
    std::lock_guard<std::mutex> lock(writerMutex);
    if (writer.isOpen() && !writer.close(&writeProblem) && writeProblem.empty()) writeProblem = "closing failed";
    if (!writeProblem.empty()) {
        std::cerr << "halden-cli: could not write " << options.output << ": " << writeProblem << std::endl;
        QCoreApplication::exit(kWriteFailed);
        return;
    }
    if (status == kWritten)
        std::cout << "Recording of " << entries << " captures written to " << options.output << std::endl;
    QCoreApplication::exit(status);
}
