// Data of the emulated hub. Every check of the data file names the member at fault, so a
// hand-edited file that is wrong says where.
#include "tools/hub_emulator/hub_state.hpp"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <random>
#include <sstream>

#include <unistd.h>

using nlohmann::json;

namespace {

std::string idText(const json& id) { return id.is_string() ? id.get<std::string>() : id.dump(); }

std::string checkStrings(const json& list, const char* listName, const char* first, const char* second) {
    if (!list.is_array()) return std::string(listName) + ": expected an array";
    for (std::size_t i = 0; i < list.size(); ++i) {
        const std::string where = std::string(listName) + "[" + std::to_string(i) + "]";
        if (!list[i].is_object()) return where + ": expected an object";
        for (const char* key : {first, second}) {
            if (!list[i].contains(key) || !list[i][key].is_string())
                return where + "." + key + ": expected a string";
        }
    }
    return {};
}

// Device entries may be malformed on purpose (the client must cope), so only what the
// emulator itself relies on is checked here.
std::string checkDocument(const json& document) {
    if (!document.is_object()) return "the document is not a JSON object";
    std::string problem = checkStrings(document.value("clients", json()), "clients", "client_id", "client_secret");
    if (problem.empty()) problem = checkStrings(document.value("accounts", json()), "accounts", "username", "password");
    if (!problem.empty()) return problem;
    const json& accounts = document["accounts"];
    for (std::size_t i = 0; i < accounts.size(); ++i) {
        if (accounts[i].contains("workspaces") && !accounts[i]["workspaces"].is_array())
            return "accounts[" + std::to_string(i) + "].workspaces: expected an array of workspace ids";
    }
    if (document.contains("token_lifetime_s") && !document["token_lifetime_s"].is_number_unsigned())
        return "token_lifetime_s: expected a positive integer";
    const json workspaces = document.value("workspaces", json());
    if (!workspaces.is_array()) return "workspaces: expected an array";
    for (std::size_t i = 0; i < workspaces.size(); ++i) {
        const std::string where = "workspaces[" + std::to_string(i) + "]";
        const json& workspace = workspaces[i];
        if (!workspace.is_object()) return where + ": expected an object";
        if (!workspace.contains("id") || !workspace["id"].is_number_integer())
            return where + ".id: expected an integer";
        if (!workspace.contains("name") || !workspace["name"].is_string()) return where + ".name: expected a string";
        if (workspace.contains("devices") && !workspace["devices"].is_array())
            return where + ".devices: expected an array";
    }
    return {};
}

}  // namespace

std::unique_ptr<HubState> HubState::load(const std::string& path, std::string* error) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        *error = path + ": cannot be opened";
        return nullptr;
    }
    std::unique_ptr<HubState> state(new HubState);
    state->path_ = path;
    state->document_ = json::parse(in, nullptr, false);
    if (state->document_.is_discarded()) {
        *error = path + ": not valid JSON";
        return nullptr;
    }
    const std::string problem = checkDocument(state->document_);
    if (!problem.empty()) {
        *error = path + ": " + problem;
        return nullptr;
    }
    state->tokenLifetime_ = std::chrono::seconds(state->document_.value("token_lifetime_s", 3600u));
    return state;
}

bool HubState::checkClient(const std::string& clientId, const std::string& secret) const {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const json& client : document_["clients"]) {
        if (client["client_id"] == clientId && client["client_secret"] == secret) return true;
    }
    return false;
}

bool HubState::checkAccount(const std::string& user, const std::string& password) const {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const json& account : document_["accounts"]) {
        if (account["username"] == user && account["password"] == password) return true;
    }
    return false;
}

std::string HubState::issueToken(const std::string& user) {
    static thread_local std::mt19937_64 generator{std::random_device{}()};
    char text[33];
    std::snprintf(text, sizeof text, "%016llx%016llx", static_cast<unsigned long long>(generator()),
                  static_cast<unsigned long long>(generator()));
    std::lock_guard<std::mutex> lock(mutex_);
    tokens_[text] = Token{user, std::chrono::steady_clock::now() + tokenLifetime_};
    return text;
}

std::optional<std::string> HubState::userOfToken(const std::string& token) const {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto found = tokens_.find(token);
    if (found == tokens_.end() || found->second.expiry <= std::chrono::steady_clock::now()) return std::nullopt;
    return found->second.user;
}

void HubState::expireTokens() {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto& entry : tokens_) entry.second.expiry = std::chrono::steady_clock::time_point::min();
}

const json* HubState::findWorkspace(const std::string& user, const std::string& id) const {
    const json* allowed = nullptr;
    for (const json& account : document_["accounts"]) {
        if (account["username"] == user) allowed = account.contains("workspaces") ? &account["workspaces"] : nullptr;
    }
    for (const json& workspace : document_["workspaces"]) {
        if (idText(workspace["id"]) != id) continue;
        if (allowed && std::find(allowed->begin(), allowed->end(), workspace["id"]) == allowed->end()) return nullptr;
        return &workspace;
    }
    return nullptr;
}

json* HubState::findWorkspace(const std::string& user, const std::string& id) {
    return const_cast<json*>(static_cast<const HubState*>(this)->findWorkspace(user, id));
}

json HubState::workspaces(const std::string& user) const {
    std::lock_guard<std::mutex> lock(mutex_);
    json list = json::array();
    for (const json& workspace : document_["workspaces"]) {
        if (!findWorkspace(user, idText(workspace["id"]))) continue;
        list.push_back({{"id", workspace["id"]}, {"name", workspace["name"]},
                        {"user_data", workspace.value("user_data", json::object())}});
    }
    return list;
}

std::optional<json> HubState::workspace(const std::string& user, const std::string& id) const {
    std::lock_guard<std::mutex> lock(mutex_);
    const json* workspace = findWorkspace(user, id);
    if (!workspace) return std::nullopt;
    return json{{"id", (*workspace)["id"]}, {"name", (*workspace)["name"]},
                {"user_data", workspace->value("user_data", json::object())}};
}

std::optional<json> HubState::devices(const std::string& user, const std::string& id) const {
    std::lock_guard<std::mutex> lock(mutex_);
    const json* workspace = findWorkspace(user, id);
    if (!workspace) return std::nullopt;
    json list = json::array();
    for (json device : workspace->value("devices", json::array())) {
        if (device.is_object()) {
            device.erase("publication_port");
            device.erase("function_reply");
        }
        list.push_back(std::move(device));
    }
    return list;
}

std::optional<json> HubState::publicationReply(const std::string& user, const std::string& workspaceId,
                                               const std::string& deviceId) const {
    std::lock_guard<std::mutex> lock(mutex_);
    const json* workspace = findWorkspace(user, workspaceId);
    if (!workspace) return std::nullopt;
    for (const json& device : workspace->value("devices", json::array())) {
        if (!device.is_object() || !device.contains("id") || idText(device["id"]) != deviceId) continue;
        // A recorded reply wins, so that odd answers of a real hub can be replayed.
        if (device.contains("function_reply")) return device["function_reply"];
        const auto port = device.find("publication_port");
        if (port != device.end() && port->is_number_integer()) return json{{"result", std::to_string(port->get<int>())}};
        return json::object();
    }
    return std::nullopt;
}

HubState::Update HubState::updateWorkspace(const std::string& user, const std::string& id, const json& body,
                                           std::string* error) {
    std::lock_guard<std::mutex> lock(mutex_);
    json* workspace = findWorkspace(user, id);
    if (!workspace) return Update::NotFound;
    // Readers wait on the same mutex, so nobody sees the change before the file holds it,
    // and a failed save leaves the workspace as the file still has it.
    json before = *workspace;
    if (body.contains("name") && body["name"].is_string()) (*workspace)["name"] = body["name"];
    if (body.contains("user_data")) (*workspace)["user_data"] = body["user_data"];
    if (save(error)) return Update::Done;
    *workspace = std::move(before);
    return Update::WriteFailed;
}

bool HubState::save(std::string* error) const {
    const std::string temporary = path_ + ".tmp" + std::to_string(::getpid());
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        out << document_.dump(2) << '\n';
        out.flush();
        if (!out) {
            *error = temporary + ": cannot be written";
            std::remove(temporary.c_str());
            return false;
        }
    }
    if (std::rename(temporary.c_str(), path_.c_str()) != 0) {
        *error = path_ + ": cannot be replaced";
        std::remove(temporary.c_str());
        return false;
    }
    return true;
}
