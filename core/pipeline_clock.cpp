// The steady and capture-driven pipeline clocks, and which one a live room runs on.
#include "core/pipeline_clock.hpp"

#include <chrono>
#include <cstdlib>
#include <cstring>

int64_t SteadyPipelineClock::nowNs() const {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

void CapturePipelineClock::captured(int64_t captureNs) {
    if (lastCaptureNs == 0) {
        // The first capture sets the clock; it starts at the recording's own time.
        now = captureNs;
    } else if (captureNs > lastCaptureNs) {
        now += captureNs - lastCaptureNs;
    }
    lastCaptureNs = captureNs;
}

std::shared_ptr<PipelineClock> makeLivePipelineClock() {
    // Read here rather than asked of the simulation, which Halden's own code never includes.
    const char* roomClock = std::getenv("PYRA_SIM_CLOCK");
    if (roomClock && std::strcmp(roomClock, "virtual") == 0) return std::make_shared<CapturePipelineClock>();
    return std::make_shared<SteadyPipelineClock>();
}
