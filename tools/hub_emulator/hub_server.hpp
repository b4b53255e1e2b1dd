// The emulated hub's HTTP front: the token endpoint and the workspace API with bearer checks,
// plus switchable faults and an optional loopback-only admin API for tests.
#pragma once

#include "tools/hub_emulator/hub_state.hpp"
#include "tools/hub_emulator/request_deadline.hpp"

#include <httplib.h>

#include <condition_variable>
#include <mutex>
#include <string>

// Misbehaviours applied to every hub reply (not to the admin API).
struct HubFaults {
    int delayMs = 0;        // answer this late
    int status = 0;         // when non-zero, answer with this status (body unchanged)
    bool nonJson = false;   // answer an HTML page instead of JSON
    bool wrongShape = false;  // answer JSON whose known members have the wrong types
};

class HubServer {
public:
    HubServer(HubState& state, const HubFaults& faults, bool adminEnabled);

    // Binds to host:port (port 0 picks a free one); returns the port, or -1.
    int bind(const std::string& host, int port);
    // Serves until stop(); false when serving could not start.
    bool run();
    // Safe from any thread; also cuts short replies held back by a delay fault.
    void stop();

private:
    using Handler = std::function<void(const httplib::Request&, httplib::Response&, const std::string& user)>;

    void routeHub();
    void routeAdmin();
    httplib::Server::Handler guarded(Handler handler, bool needsToken);
    void applyFaults(httplib::Response& response);
    void record(const httplib::Request& request);

    HubState& state_;
    DeadlineServer server_;
    bool adminEnabled_;

    std::mutex mutex_;
    std::condition_variable stopping_;
    bool stopped_ = false;
    HubFaults faults_;
    nlohmann::json lastRequest_ = nlohmann::json::object();
};
