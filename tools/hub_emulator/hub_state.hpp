// The emulated hub's data: client credentials, accounts, bearer tokens, workspaces with
// their devices. Loaded from a JSON file and written back to it atomically after each change.
#pragma once

#include <nlohmann/json.hpp>

#include <chrono>
#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

// The data file never grows past this; an update that would take it further is refused.
constexpr std::size_t kMaxDataFileBytes = 16u << 20;

class HubState {
public:
    // Reads and checks the data file; nullptr with *error naming the problem when it is unusable.
    static std::unique_ptr<HubState> load(const std::string& path, std::string* error);

    bool checkClient(const std::string& clientId, const std::string& secret) const;
    bool checkAccount(const std::string& user, const std::string& password) const;

    // A fresh random bearer token for the user, valid for tokenLifetime().
    std::string issueToken(const std::string& user);
    // The user the token belongs to, if it is known and not expired.
    std::optional<std::string> userOfToken(const std::string& token) const;
    void expireTokens();
    std::chrono::seconds tokenLifetime() const { return tokenLifetime_; }

    // The user's workspaces as the hub lists them: id, name, user_data.
    nlohmann::json workspaces(const std::string& user) const;
    std::optional<nlohmann::json> workspace(const std::string& user, const std::string& id) const;
    std::optional<nlohmann::json> devices(const std::string& user, const std::string& id) const;
    // What the device's core_communication_parameters function answers.
    std::optional<nlohmann::json> publicationReply(const std::string& user, const std::string& workspaceId,
                                                   const std::string& deviceId) const;

    enum class Update { Done, NotFound, WriteFailed };
    // Takes "name" and "user_data" from the body and saves the file (through links, keeping
    // its permissions); WriteFailed when it cannot, or when the data would outgrow
    // kMaxDataFileBytes, and then nothing changes.
    Update updateWorkspace(const std::string& user, const std::string& id, const nlohmann::json& body,
                           std::string* error);

private:
    HubState() = default;
    nlohmann::json* findWorkspace(const std::string& user, const std::string& id);
    const nlohmann::json* findWorkspace(const std::string& user, const std::string& id) const;
    bool save(std::string* error) const;

    struct Token {
        std::string user;
        std::chrono::steady_clock::time_point expiry;
    };

    mutable std::mutex mutex_;
    std::string path_;
    nlohmann::json document_;
    std::chrono::seconds tokenLifetime_{3600};
    std::map<std::string, Token> tokens_;
};
