// One headless recording: runs the fusion on a room and writes every camera's bodies, as
// the fusion receives them, into a recording that calibrate --replay plays back.
#pragma once

#include <QObject>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "core/console_prompts.hpp"
#include "fusion/fusion_worker.hpp"
#include "recording/recording_writer.hpp"
#include "tools/halden_cli/cli_options.hpp"

class RecordSession : public QObject {
    Q_OBJECT

public:
    RecordSession(CliOptions options, std::vector<lum::FusionConfiguration> room);

    // Opens the output and starts the fusion; ends the event loop with a CliStatus.
    void start();
    // Ctrl-C: keeps what was recorded so far.
    void interrupt();

private:
    void append(int serial, const lum::Bodies& bodies);
    void end(int status);

    CliOptions options;
    std::vector<lum::FusionConfiguration> room;
    std::shared_ptr<ConsolePrompts> prompts;
    // Written from the worker's thread, closed on this one once the worker let go of it.
    std::mutex writerMutex;
    rec::RecordingWriter writer;
    std::string writeProblem;
    uint64_t entries = 0;
    FusionWorker worker;  // last: its thread stops before the writer goes
    bool started = false;
    bool ended = false;
};
