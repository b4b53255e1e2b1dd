// Shared set-up of the camera and fusion tests: a private runtime folder and model cache
// per test process, so tests running side by side never meet each other's cameras.
#pragma once

#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace platform_test {

// Removes the folders this test process made when it exits.
struct FolderCleaner {
    std::vector<std::string> folders;
    ~FolderCleaner() {
        std::error_code ignored;
        for (const auto& f : folders) std::filesystem::remove_all(f, ignored);
    }
};
inline FolderCleaner cleaner;

inline std::string privateFolder(const char* what) {
    std::string folder = "/tmp/pyra-test-" + std::to_string(::getpid()) + "-" + what;
    if (std::filesystem::create_directories(folder)) cleaner.folders.push_back(folder);
    return folder;
}

inline void isolateProcess() {
    ::setenv("PYRA_RUNTIME_DIR", privateFolder("run").c_str(), 1);
    ::setenv("PYRA_MODEL_CACHE", privateFolder("models").c_str(), 1);
    ::setenv("PYRA_MODEL_OPTIMIZE_SECONDS", "0", 1);
}

// Polls `condition` until it holds or `seconds` pass.
inline bool waitFor(const std::function<bool()>& condition, double seconds) {
    auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (std::chrono::steady_clock::now() < end) {
        if (condition()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return condition();
}

// An even port (its odd neighbour goes with it) unlikely to clash with another process:
// 16 slots of their own for test processes whose ids lie within 280 of each other, and
// below 29 000, out of the simulated room's 30 000 and of the range the kernel hands out
// to outgoing connections (from 32 768), where a busy machine's own sockets took one.
inline int testPort(int slot, long pid = long(::getpid())) { return 20000 + int(pid % 280) * 32 + slot * 2; }

}  // namespace platform_test
