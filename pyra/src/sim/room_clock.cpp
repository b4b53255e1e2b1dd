// The virtual room clock: one per process, shared by the cameras that wait on it and the
// fusion that moves it.
#include "pyra_sim/room_clock.hpp"

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>

namespace pyra_sim {

namespace {

// 2026-01-01 00:00:00 UTC: capture times that read as dates, and the same ones every run.
constexpr uint64_t kEpochNs = 1767225600ULL * 1000000000ULL;

struct VirtualClock {
    std::mutex mutex;
    std::condition_variable moved;
    uint64_t nowNs = kEpochNs;
    std::map<unsigned int, VirtualSender> senders;
};

VirtualClock& virtualClock() {
    static VirtualClock clock;
    return clock;
}

}  // namespace

bool virtualRoomClock() {
    const char* value = std::getenv("PYRA_SIM_CLOCK");
    return value && std::strcmp(value, "virtual") == 0;
}

uint64_t virtualEpochNs() { return kEpochNs; }

uint64_t virtualNowNs() {
    VirtualClock& clock = virtualClock();
    std::lock_guard<std::mutex> lock(clock.mutex);
    return clock.nowNs;
}

void restartVirtualClock() {
    VirtualClock& clock = virtualClock();
    std::lock_guard<std::mutex> lock(clock.mutex);
    clock.nowNs = kEpochNs;
}

void advanceVirtualClock(uint64_t ns) {
    VirtualClock& clock = virtualClock();
    {
        std::lock_guard<std::mutex> lock(clock.mutex);
        if (ns <= clock.nowNs) return;
        clock.nowNs = ns;
    }
    clock.moved.notify_all();
}

bool waitForVirtualClock(uint64_t frameNs, uint64_t leadNs, int maxWaitMs) {
    VirtualClock& clock = virtualClock();
    std::unique_lock<std::mutex> lock(clock.mutex);
    return clock.moved.wait_for(lock, std::chrono::milliseconds(maxWaitMs),
                                [&] { return clock.nowNs + leadNs >= frameNs; });
}

void virtualSenderStarted(unsigned int serial) {
    VirtualClock& clock = virtualClock();
    std::lock_guard<std::mutex> lock(clock.mutex);
    clock.senders[serial] = VirtualSender{true, true, 0};
}

void virtualSenderPublished(unsigned int serial) {
    VirtualClock& clock = virtualClock();
    std::lock_guard<std::mutex> lock(clock.mutex);
    auto found = clock.senders.find(serial);
    if (found != clock.senders.end()) ++found->second.published;
}

void virtualSenderStopped(unsigned int serial) {
    VirtualClock& clock = virtualClock();
    std::lock_guard<std::mutex> lock(clock.mutex);
    auto found = clock.senders.find(serial);
    if (found != clock.senders.end()) found->second.sending = false;
}

VirtualSender virtualSender(unsigned int serial) {
    VirtualClock& clock = virtualClock();
    std::lock_guard<std::mutex> lock(clock.mutex);
    auto found = clock.senders.find(serial);
    return found == clock.senders.end() ? VirtualSender() : found->second;
}

}  // namespace pyra_sim
