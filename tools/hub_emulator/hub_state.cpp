// Data of the emulated hub. Every check of the data file names the member at fault, so a
// hand-edited file that is wrong says where.
#include "tools/hub_emulator/hub_state.hpp"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <random>
#include <sstream>

#include <fcntl.h>
#include <malloc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

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

// Raised when the data would outgrow its file: the text stops growing there rather than
// after a deep document's indentation has taken dozens of times its size.
struct TooLarge {};

class BoundedText : public nlohmann::detail::output_adapter_protocol<char> {
public:
    BoundedText(std::string& text, std::size_t limit) : text_(text), limit_(limit) {}
    void write_character(char c) override {
        if (text_.size() >= limit_) throw TooLarge{};
        text_.push_back(c);
    }
    void write_characters(const char* s, std::size_t length) override {
        if (text_.size() + length > limit_) throw TooLarge{};
        text_.append(s, length);
    }

private:
    std::string& text_;
    std::size_t limit_;
};

std::string folderOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

// The data file holds passwords and the client secret: a link to it stays a link, and the
// file keeps its owner's permissions. The temporary file is private from its creation.
bool replaceThroughLinks(std::string path, const std::string& text, std::string* error) {
    for (int hop = 0; hop < 40; ++hop) {
        struct stat info {};
        char target[4096];
        if (::lstat(path.c_str(), &info) != 0 || !S_ISLNK(info.st_mode)) break;
        const ssize_t length = ::readlink(path.c_str(), target, sizeof target - 1);
        if (length <= 0) break;
        const std::string next(target, std::size_t(length));
        path = next.front() == '/' ? next : folderOf(path) + "/" + next;
    }
    struct stat existing {};
    const bool exists = ::stat(path.c_str(), &existing) == 0;
    if (exists && !S_ISREG(existing.st_mode)) {
        *error = path + ": not a regular file";
        return false;
    }
    std::string temporary = path + ".XXXXXX";
    const int fd = ::mkstemp(&temporary[0]);
    if (fd < 0) {
        *error = path + ": cannot create a temporary file beside it: " + std::strerror(errno);
        return false;
    }
    bool ok = ::fchmod(fd, exists ? (existing.st_mode & 07777) : mode_t(0600)) == 0;
    for (std::size_t done = 0; ok && done < text.size();) {
        const ssize_t n = ::write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) continue;
        ok = n > 0;
        if (ok) done += std::size_t(n);
    }
    const int failure = ok && ::fsync(fd) == 0 ? 0 : (errno ? errno : EIO);
    const bool closed = ::close(fd) == 0;
    if (failure == 0 && closed && ::rename(temporary.c_str(), path.c_str()) == 0) return true;
    *error = path + ": cannot be replaced: " + std::strerror(failure ? failure : errno);
    ::unlink(temporary.c_str());
    return false;
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
    const bool saved = save(error);
    if (!saved) *workspace = std::move(before);
    // A large request leaves its pages in the allocator of the worker thread that parsed
    // it; without handing them back, each of many threads keeps its own high-water mark.
    before = json();
    ::malloc_trim(0);
    return saved ? Update::Done : Update::WriteFailed;
}

bool HubState::save(std::string* error) const {
    std::string text;
    try {
        BoundedText bounded(text, kMaxDataFileBytes);
        nlohmann::detail::serializer<json> serializer(
            std::shared_ptr<nlohmann::detail::output_adapter_protocol<char>>(&bounded, [](auto*) {}), ' ',
            json::error_handler_t::replace);
        serializer.dump(document_, true, false, 2);
    } catch (const TooLarge&) {
        *error = "the hub's data would take more than " + std::to_string(kMaxDataFileBytes >> 20) + " MiB";
        return false;
    }
    text += '\n';
    return replaceThroughLinks(path_, text, error);
}
