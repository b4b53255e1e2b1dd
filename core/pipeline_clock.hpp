// The one clock the calibration pipeline paces itself by: the steady wall clock while
// cameras run in real time, or the capture times of the bodies themselves.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

class PipelineClock {
public:
    virtual ~PipelineClock() = default;
    virtual int64_t nowNs() const = 0;
    // True when time moves only as captures arrive (a virtual room clock, a replay). Every
    // decision then falls at the same capture time on every run, so the pipeline also waits
    // for the solves it starts instead of racing them.
    virtual bool followsCaptures() const = 0;
    // The newest capture time of a set the pipeline has just received.
    virtual void captured(int64_t captureNs) = 0;
};

// Never steps back, whatever the system clock does.
class SteadyPipelineClock : public PipelineClock {
public:
    int64_t nowNs() const override;
    bool followsCaptures() const override { return false; }
    void captured(int64_t) override {}
};

// Moves by how far the capture times move forward. A capture time that steps back (the
// cameras' host clock was set back) costs nothing and is not waited for.
class CapturePipelineClock : public PipelineClock {
public:
    int64_t nowNs() const override { return now.load(); }
    bool followsCaptures() const override { return true; }
    void captured(int64_t captureNs) override;

private:
    std::atomic<int64_t> now{0};
    int64_t lastCaptureNs = 0;  // written only by the one thread that reports captures
};

// The clock of a live room: capture times when the simulated room runs on its virtual
// clock (PYRA_SIM_CLOCK=virtual), the steady clock otherwise.
std::shared_ptr<PipelineClock> makeLivePipelineClock();
