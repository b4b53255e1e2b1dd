// How Halden's command-line tools learn of SIGINT and SIGTERM: the handler raises a flag
// that the tool's own loop polls, and nothing else happens inside the handler.
#pragma once

#include <atomic>

namespace stopflag {

// The signal may land on any thread (a worker's included), so the flag is a lock-free
// atomic rather than a sig_atomic_t, which is only safe within one thread.
inline std::atomic<bool> raised{false};
static_assert(std::atomic<bool>::is_always_lock_free, "the signal handler needs a lock-free flag");

// The handler to install for the signals that stop the tool.
inline void onSignal(int) { raised = true; }

}  // namespace stopflag
