// libFuzzer driver for workspace updates sent to the hub emulator: any body is refused or
// stored, and what is stored reloads and stays in proportion to what was sent.
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <string>

#include "tools/hub_emulator/hub_state.hpp"
#include "tools/hub_emulator/request_body.hpp"

namespace {

const char* const kData = R"({"clients": [{"client_id": "c", "client_secret": "s"}],
  "accounts": [{"username": "ada", "password": "p"}],
  "workspaces": [{"id": 7, "name": "Lab", "user_data": {"site": "north"}}]})";

std::string dataPath() {
    static const std::string path = "/tmp/fuzz_hub_request_" + std::to_string(::getpid()) + ".json";
    static const bool cleaned = std::atexit([] { std::remove(path.c_str()); }) == 0;
    (void)cleaned;
    return path;
}

long long fileSize(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 ? static_cast<long long>(info.st_size) : -1;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::string problem;
    const auto body = parseObjectBody(text, problem);
    if (!body) return 0;
    std::ofstream(dataPath(), std::ios::trunc) << kData;
    std::unique_ptr<HubState> state = HubState::load(dataPath(), &problem);
    if (!state) std::abort();
    if (state->updateWorkspace("ada", "7", *body, &problem) != HubState::Update::Done) return 0;
    // Indentation costs at most two spaces per level on each of a bounded number of lines.
    if (fileSize(dataPath()) > 4096 + 2 * (kMaxBodyNesting + 2) * static_cast<long long>(size + 1)) std::abort();
    if (!HubState::load(dataPath(), &problem)) std::abort();
    return 0;
}
