// The clock the simulated room's cameras take their frames by: the wall clock, or with
// PYRA_SIM_CLOCK=virtual a virtual one that the fusion of this process moves forward.
#pragma once

#include <cstdint>

namespace pyra_sim {

// True when PYRA_SIM_CLOCK is "virtual"; set it before any camera or fusion starts.
bool virtualRoomClock();

// Where every virtual run starts: a fixed instant, so one scene gives the same capture
// times on every run.
uint64_t virtualEpochNs();
uint64_t virtualNowNs();
// Back to the epoch: a fusion starting a run does this before its cameras take frames.
void restartVirtualClock();
// Moves the virtual clock forward to `ns` (never back) and wakes the cameras waiting on it.
void advanceVirtualClock(uint64_t ns);
// A camera's frame at `frameNs` may be taken once the virtual clock is within `leadNs` of
// it. Waits at most `maxWaitMs` of wall time (a run whose fusion stopped lets its cameras
// go); true when the clock allowed it.
bool waitForVirtualClock(uint64_t frameNs, uint64_t leadNs, int maxWaitMs);

// The cameras of this process that publish on the virtual clock, by serial. The fusion waits
// for a sending one however long its thread is held up, so that which captures make a set
// never depends on how the threads were scheduled; a stopped one is done once all it
// published has been received.
struct VirtualSender {
    bool known = false;  // false: not a camera of this process
    bool sending = false;
    uint64_t published = 0;
};
void virtualSenderStarted(unsigned int serial);
void virtualSenderPublished(unsigned int serial);
void virtualSenderStopped(unsigned int serial);
VirtualSender virtualSender(unsigned int serial);

}  // namespace pyra_sim
