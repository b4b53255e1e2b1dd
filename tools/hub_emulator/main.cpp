// halden-hub-emulator: a local stand-in for the hub service, so the hub flow can be
// rehearsed and tested on one machine over plain HTTP.
#include "tools/hub_emulator/hub_server.hpp"
#include "tools/hub_emulator/hub_state.hpp"

#include <malloc.h>

#include <csignal>
#include <cstdlib>
#include <iostream>
#include <string>
#include <thread>

namespace {

const char* const kUsage =
    "Usage: halden-hub-emulator --data FILE [options]\n"
    "Serves the hub's sign-in and workspace API over HTTP from the JSON data in FILE;\n"
    "workspace changes are written back to FILE.\n"
    "  --data FILE        accounts, clients, workspaces and devices (required)\n"
    "  --port N           port to listen on (default 8480; 0 picks a free one)\n"
    "  --listen ADDR      address to listen on (default 127.0.0.1)\n"
    "  --admin            enable the loopback-only test API under /_admin/\n"
    "  --delay-ms N       answer every hub request N ms late\n"
    "  --fail-status N    answer every hub request with HTTP status N\n"
    "  --non-json         answer every hub request with an HTML page\n"
    "  --wrong-shape      answer every hub request with JSON of the wrong shape\n"
    "  --help             this text\n";

bool parseInt(const std::string& text, int* value) {
    char* end = nullptr;
    const long parsed = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || parsed < 0 || parsed > 65535 * 1000L) return false;
    *value = static_cast<int>(parsed);
    return true;
}

int usageError(const std::string& message) {
    std::cerr << "halden-hub-emulator: " << message << "\n" << kUsage;
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    std::string dataPath;
    std::string host = "127.0.0.1";
    int port = 8480;
    bool admin = false;
    HubFaults faults;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        const bool hasValue = i + 1 < argc;
        if (argument == "--help") {
            std::cout << kUsage;
            return 0;
        } else if (argument == "--admin") {
            admin = true;
        } else if (argument == "--non-json") {
            faults.nonJson = true;
        } else if (argument == "--wrong-shape") {
            faults.wrongShape = true;
        } else if (argument == "--data" && hasValue) {
            dataPath = argv[++i];
        } else if (argument == "--listen" && hasValue) {
            host = argv[++i];
        } else if (argument == "--port" && hasValue) {
            if (!parseInt(argv[++i], &port) || port > 65535) return usageError("--port needs a port number");
        } else if (argument == "--delay-ms" && hasValue) {
            if (!parseInt(argv[++i], &faults.delayMs)) return usageError("--delay-ms needs a number of milliseconds");
        } else if (argument == "--fail-status" && hasValue) {
            if (!parseInt(argv[++i], &faults.status) || faults.status < 100 || faults.status > 599)
                return usageError("--fail-status needs an HTTP status between 100 and 599");
        } else {
            return usageError("unknown or incomplete option " + argument);
        }
    }
    if (dataPath.empty()) return usageError("--data FILE is required");
    // Each of the many worker threads would otherwise get an allocator arena of its own,
    // and keep what the largest request it served once took.
    mallopt(M_ARENA_MAX, 2);

    std::string error;
    const std::unique_ptr<HubState> state = HubState::load(dataPath, &error);
    if (!state) {
        std::cerr << "halden-hub-emulator: " << error << "\n";
        return 1;
    }

    // Signals are taken by one thread with sigwait, so stopping the server happens outside
    // a signal handler; the server's own threads inherit the blocked mask.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);

    HubServer server(*state, faults, admin);
    const int boundPort = server.bind(host, port);
    if (boundPort < 0) {
        std::cerr << "halden-hub-emulator: cannot listen on " << host << ":" << port << "\n";
        return 1;
    }
    std::thread([&server, signals] {
        int received = 0;
        sigwait(&signals, &received);
        server.stop();
    }).detach();

    std::cout << "halden-hub-emulator: serving http://" << host << ":" << boundPort << " from " << dataPath
              << std::endl;
    return server.run() ? 0 : 1;
}
