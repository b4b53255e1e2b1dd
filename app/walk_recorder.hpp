// A walk being written to a recording: the capture sink appends on the fusion worker's
// thread, and the file is closed on a thread of its own when the user stops it.
#pragma once

#include <QString>

#include <cstdint>
#include <mutex>
#include <string>

#include "recording/recording_writer.hpp"

// Shared by the window and the sink the worker's thread calls, which may run once more
// after the window replaced it: appends after close() are dropped.
struct WalkRecorder {
    std::mutex mutex;
    rec::RecordingWriter writer;
    QString path;
    uint64_t captures = 0;
    std::string problem;

    void append(int serial, const lum::Bodies& bodies) {
        std::lock_guard<std::mutex> lock(mutex);
        if (!problem.empty() || !writer.isOpen()) return;
        if (writer.append({serial, bodies}, &problem)) ++captures;
    }
};
