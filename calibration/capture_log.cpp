// A rolling log of the assembler's input and of when it assembled, replayed in order.
// Whole seconds of captures: copies of bodies, a few megabytes for a room of four cameras.
#include "calibration/capture_log.hpp"

namespace calib {

void CaptureLog::forgetOld(int64_t nowNs) {
    while (!entries_.empty() && nowNs - entries_.front().atNs > options_.spanNs) entries_.pop_front();
}

void CaptureLog::add(int camera, const lum::Bodies& bodies, int64_t nowNs) {
    forgetOld(nowNs);
    entries_.push_back({nowNs, camera, bodies});
}

void CaptureLog::markAssembly(int64_t atNs) {
    forgetOld(atNs);
    entries_.push_back({atNs, -1, lum::Bodies()});
}

void CaptureLog::replay(FrameAssembler& assembler, const std::function<void(int64_t)>& assembled) const {
    for (const Entry& entry : entries_) {
        if (entry.camera >= 0) assembler.addBodies(entry.camera, entry.bodies);
        else assembled(entry.atNs);
    }
}

}  // namespace calib
