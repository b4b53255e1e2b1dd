// The captures a walk's calibration frames were assembled from, kept for a while so that
// the frames can be made again once a camera's clock turns out other than assumed.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>

#include "calibration/frame_assembler.hpp"

namespace calib {

class CaptureLog {
public:
    struct Options {
        // Pipeline time kept: a camera's clock is known within a few estimates of the
        // walk's start, and the frames older than this are not made again.
        int64_t spanNs = 30'000'000'000;
    };

    CaptureLog() : CaptureLog(Options()) {}
    explicit CaptureLog(Options options) : options_(options) {}

    // One camera's bodies as the assembler was handed them, at pipeline time `nowNs`.
    void add(int camera, const lum::Bodies& bodies, int64_t nowNs);
    // The assembler made frames at pipeline time `atNs` from everything added before.
    void markAssembly(int64_t atNs);

    // Hands `assembler` every kept capture again in the order they came, calling
    // `assembled(atNs)` where the frames were made; the assembler's clocks are its own.
    void replay(FrameAssembler& assembler, const std::function<void(int64_t atNs)>& assembled) const;

    void clear() { entries_.clear(); }

private:
    struct Entry {
        int64_t atNs = 0;
        int camera = -1;  // -1: an assembly
        lum::Bodies bodies;
    };

    void forgetOld(int64_t nowNs);

    Options options_;
    std::deque<Entry> entries_;
};

}  // namespace calib
