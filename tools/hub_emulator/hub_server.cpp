// Routes of the emulated hub. Replies follow the shapes the client expects from the real
// service; the fault switches bend them so that the client's error paths can be exercised.
#include "tools/hub_emulator/hub_server.hpp"
#include "tools/hub_emulator/request_body.hpp"

#include <chrono>
#include <optional>

using nlohmann::json;

namespace {

const char* const kJson = "application/json";

void answer(httplib::Response& response, int status, const json& body) {
    response.status = status;
    response.set_content(body.dump(), kJson);
}

void answerError(httplib::Response& response, int status, const std::string& error, const std::string& description) {
    answer(response, status, {{"error", error}, {"error_description", description}});
}

// A slow or silent client must not hold a worker for long: two seconds for each read and
// write, and five for a whole request however it trickles in.
constexpr int kSocketTimeoutSeconds = 2;
constexpr std::chrono::milliseconds kRequestDeadline{5000};
// Room for many idle or trickling connections at once; each waits on a socket, and the
// deadline frees it within seconds.
constexpr size_t kWorkers = 256;

// The body as a JSON object, or an answer saying why not.
std::optional<json> objectBody(const httplib::Request& request, httplib::Response& response) {
    std::string problem;
    std::optional<json> body = parseObjectBody(request.body, problem);
    if (!body) answerError(response, 400, "bad_request", problem);
    return body;
}

bool isLoopback(const std::string& address) {
    return address.rfind("127.", 0) == 0 || address == "::1" || address == "::ffff:127.0.0.1";
}

}  // namespace

HubServer::HubServer(HubState& state, const HubFaults& faults, bool adminEnabled)
    : state_(state), server_(kRequestDeadline), adminEnabled_(adminEnabled), faults_(faults) {
    server_.set_payload_max_length(kMaxBodyBytes);
    server_.set_read_timeout(kSocketTimeoutSeconds, 0);
    server_.set_write_timeout(kSocketTimeoutSeconds, 0);
    server_.set_keep_alive_timeout(kSocketTimeoutSeconds);
    // Enough workers that a few dozen idle connections leave room for real requests.
    server_.new_task_queue = [] { return new httplib::ThreadPool(kWorkers); };
    // The library's default also sets SO_REUSEPORT, which lets a second emulator share a
    // busy port and take half of its requests.
    server_.set_socket_options([](socket_t socket) {
        int yes = 1;
        setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    });
    routeHub();
    if (adminEnabled_) routeAdmin();
}

int HubServer::bind(const std::string& host, int port) {
    if (port == 0) return server_.bind_to_any_port(host);
    return server_.bind_to_port(host, port) ? port : -1;
}

bool HubServer::run() { return server_.listen_after_bind(); }

void HubServer::stop() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopped_ = true;
    }
    stopping_.notify_all();
    server_.stop();
}

void HubServer::record(const httplib::Request& request) {
    std::lock_guard<std::mutex> lock(mutex_);
    lastRequest_ = {{"method", request.method},
                    {"path", request.path},
                    {"body", request.body},
                    {"content_type", request.get_header_value("Content-Type")},
                    {"authorization", request.get_header_value("Authorization")}};
}

void HubServer::applyFaults(httplib::Response& response) {
    std::unique_lock<std::mutex> lock(mutex_);
    const HubFaults faults = faults_;
    if (faults.delayMs > 0)
        stopping_.wait_for(lock, std::chrono::milliseconds(faults.delayMs), [this] { return stopped_; });
    if (faults.nonJson) response.set_content("<html><body>Service unavailable</body></html>", "text/html");
    if (faults.wrongShape) {
        const json wrong = {{"access_token", 42},        {"workspaces", {{"id", "one"}}}, {"devices", "none"},
                            {"result", 5555},            {"user_data", json::array({1, 2})}};
        response.set_content(wrong.dump(), kJson);
    }
    if (faults.status != 0) response.status = faults.status;
}

httplib::Server::Handler HubServer::guarded(Handler handler, bool needsToken) {
    return [this, handler, needsToken](const httplib::Request& request, httplib::Response& response) {
        record(request);
        std::string user;
        const std::string authorization = request.get_header_value("Authorization");
        const std::string prefix = "Bearer ";
        std::optional<std::string> owner;
        if (authorization.rfind(prefix, 0) == 0) owner = state_.userOfToken(authorization.substr(prefix.size()));
        if (needsToken && !owner) {
            answerError(response, 401, "invalid_token", "missing, unknown or expired bearer token");
        } else {
            handler(request, response, owner.value_or(std::string()));
        }
        applyFaults(response);
    };
}

void HubServer::routeHub() {
    server_.Post("/auth/realms/tarsel/protocol/openid-connect/token",
                 guarded([this](const httplib::Request& request, httplib::Response& response, const std::string&) {
                     httplib::Params form;
                     httplib::detail::parse_query_text(request.body, form);
                     const auto field = [&form](const char* key) {
                         const auto found = form.find(key);
                         return found == form.end() ? std::string() : found->second;
                     };
                     if (field("grant_type") != "password")
                         return answerError(response, 400, "unsupported_grant_type", "only the password grant");
                     if (!state_.checkClient(field("client_id"), field("client_secret")))
                         return answerError(response, 401, "invalid_client", "unknown client or wrong secret");
                     if (!state_.checkAccount(field("username"), field("password")))
                         return answerError(response, 401, "invalid_grant", "invalid user credentials");
                     answer(response, 200,
                            {{"access_token", state_.issueToken(field("username"))},
                             {"token_type", "Bearer"},
                             {"expires_in", state_.tokenLifetime().count()}});
                 }, false));

    server_.Get("/api/v1/workspaces",
                guarded([this](const httplib::Request&, httplib::Response& response, const std::string& user) {
                    answer(response, 200, {{"workspaces", state_.workspaces(user)}});
                }, true));

    server_.Get(R"(/api/v1/workspaces/([^/]+))",
                guarded([this](const httplib::Request& request, httplib::Response& response, const std::string& user) {
                    const auto workspace = state_.workspace(user, request.matches[1]);
                    if (!workspace) return answerError(response, 404, "not_found", "no such workspace");
                    answer(response, 200, *workspace);
                }, true));

    server_.Put(R"(/api/v1/workspaces/([^/]+))",
                guarded([this](const httplib::Request& request, httplib::Response& response, const std::string& user) {
                    const std::optional<json> body = objectBody(request, response);
                    if (!body) return;
                    std::string error;
                    switch (state_.updateWorkspace(user, request.matches[1], *body, &error)) {
                    case HubState::Update::NotFound: return answerError(response, 404, "not_found", "no such workspace");
                    case HubState::Update::WriteFailed: return answerError(response, 500, "storage", error);
                    case HubState::Update::Done: break;
                    }
                    answer(response, 200, *state_.workspace(user, request.matches[1]));
                }, true));

    server_.Get(R"(/api/v1/workspaces/([^/]+)/devices)",
                guarded([this](const httplib::Request& request, httplib::Response& response, const std::string& user) {
                    const auto devices = state_.devices(user, request.matches[1]);
                    if (!devices) return answerError(response, 404, "not_found", "no such workspace");
                    answer(response, 200, {{"devices", *devices}});
                }, true));

    server_.Post(R"(/api/v1/workspaces/([^/]+)/devices/([^/]+)/functions/core_communication_parameters)",
                 guarded([this](const httplib::Request& request, httplib::Response& response, const std::string& user) {
                     if (!objectBody(request, response)) return;
                     const auto reply = state_.publicationReply(user, request.matches[1], request.matches[2]);
                     if (!reply) return answerError(response, 404, "not_found", "no such device");
                     answer(response, 200, *reply);
                 }, true));
}

void HubServer::routeAdmin() {
    // The admin API changes the server's behaviour, so it never answers another machine.
    const auto local = [](auto body) {
        return [body](const httplib::Request& request, httplib::Response& response) {
            if (!isLoopback(request.remote_addr)) return answerError(response, 403, "forbidden", "loopback only");
            body(request, response);
        };
    };
    server_.Put("/_admin/faults", local([this](const httplib::Request& request, httplib::Response& response) {
        const std::optional<json> parsed = objectBody(request, response);
        if (!parsed) return;
        const json& body = *parsed;
        const auto integer = [&body](const char* key) {
            const auto found = body.find(key);
            return found != body.end() && found->is_number_integer() ? found->get<int>() : 0;
        };
        const auto flag = [&body](const char* key) {
            const auto found = body.find(key);
            return found != body.end() && found->is_boolean() && found->get<bool>();
        };
        HubFaults faults;
        faults.delayMs = integer("delay_ms");
        faults.status = integer("status");
        faults.nonJson = flag("non_json");
        faults.wrongShape = flag("wrong_shape");
        std::lock_guard<std::mutex> lock(mutex_);
        faults_ = faults;
        answer(response, 200, json::object());
    }));
    server_.Post("/_admin/expire_tokens", local([this](const httplib::Request&, httplib::Response& response) {
        state_.expireTokens();
        answer(response, 200, json::object());
    }));
    server_.Get("/_admin/last_request", local([this](const httplib::Request&, httplib::Response& response) {
        std::lock_guard<std::mutex> lock(mutex_);
        answer(response, 200, lastRequest_);
    }));
}
