// The hub's REST paths and JSON shapes. Every reply is checked field by field: a hub that
// answers with something unexpected yields an empty result and a debug-log line, never a throw.
#include "hub/hub_connector.hpp"

#include "core/console_prompts.hpp"
#include "core/user_prompts.hpp"

#include <QDebug>
#include <QNetworkReply>
#include <QNetworkRequest>

#include <optional>
#include <stdexcept>
#include <string>

using nlohmann::json;

namespace {

const QString kTokenPath = QStringLiteral("/auth/realms/tarsel/protocol/openid-connect/token");
const QString kWorkspacesPath = QStringLiteral("/api/v1/workspaces");

QString& defaultHubAddressOverride() {
    static QString address;
    return address;
}

QString effectiveDefaultHubAddress() {
    const QString& override = defaultHubAddressOverride();
    return override.isEmpty() ? HubConnector::kDefaultHubAddress : override;
}

// Releases the reply however the caller leaves the scope.
struct ReplyGuard {
    QNetworkReply* reply;
    ~ReplyGuard() {
        if (reply) reply->deleteLater();
    }
};

QString reasonOf(const QNetworkReply* reply) {
    const QString reason = reply->attribute(QNetworkRequest::HttpReasonPhraseAttribute).toString();
    // Transport failures (refused, timed out, bad URL) carry no HTTP reason phrase.
    return reason.isEmpty() ? reply->errorString() : reason;
}

// 200 is success; every other code is logged, and 201 still counts as success.
bool statusIsSuccess(QNetworkReply* reply, const QString& failurePrefix) {
    if (!reply) {
        qDebug().noquote() << failurePrefix + QStringLiteral("no reply");
        return false;
    }
    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (status.isValid() && status.toInt() == 200) return true;
    qDebug().noquote() << failurePrefix + reasonOf(reply);
    return status.isValid() && status.toInt() == 201;
}

std::optional<json> parseReply(const QByteArray& body) {
    try {
        return json::parse(body.constBegin(), body.constEnd());
    } catch (const json::exception& error) {
        qDebug().noquote() << QStringLiteral("Unable to parse the response from Pyra Hub (") +
                                  QString::fromUtf8(error.what()) + QStringLiteral(")");
        return std::nullopt;
    }
}

// Ids and serial numbers arrive as numbers or as strings depending on the hub version.
QString jsonText(const json& value) {
    if (value.is_string()) return QString::fromStdString(value.get<std::string>());
    return QString::fromStdString(value.dump());
}

bool isUsableDevice(const json& device) {
    if (!device.is_object() || !device.contains("id") || !device.contains("name")) return false;
    const auto host = device.find("host");
    if (host == device.end() || !host->is_object()) return false;
    const auto network = host->find("network");
    if (network == host->end() || !network->is_array() || network->empty()) return false;
    const json& firstNetwork = network->front();
    if (!firstNetwork.is_object()) return false;
    const auto ip = firstNetwork.find("ip_address");
    if (ip == firstNetwork.end() || !ip->is_string()) return false;
    const auto camera = device.find("camera");
    if (camera == device.end() || !camera->is_array() || camera->empty()) return false;
    const json& firstCamera = camera->front();
    return firstCamera.is_object() && firstCamera.contains("serial_number");
}

}  // namespace

HubConnector::HubConnector(QString address, QString token, QObject* parent)
    : QObject(parent),
      requester_(new QtRestRequester(this)),
      token_(std::move(token)),
      authorisationHeaders_{{QByteArrayLiteral("Authorization"), QByteArrayLiteral("Bearer ") + token_.toUtf8()}},
      address_(std::move(address)) {}

HubConnector::~HubConnector() = default;

void HubConnector::setPrompts(UserPrompts* prompts) { prompts_ = prompts; }

void HubConnector::setDefaultHubAddressForTesting(const QString& address) {
    defaultHubAddressOverride() = address;
}

QString HubConnector::connectViaImplicitFlow(const QString& user, const QString& password) {
    if (address_.isEmpty()) {
        promptsOrConsole(prompts_).exec({QStringLiteral("Connection error"),
                                         QStringLiteral("Invalid Pyra Hub tenant address."), PromptIcon::Warning});
    }

    const QString url = address_ + kTokenPath;
    const RestHeaderList headers{
        {QByteArrayLiteral("Content-Type"), QByteArrayLiteral("application/x-www-form-urlencoded")}};
    // The hub tells its own public address apart from custom tenants by the secret alone,
    // so the comparison is deliberately exact: a trailing slash is another tenant.
    const QString& secret = address_ == effectiveDefaultHubAddress() ? defaultHubSecret_ : customTenantSecret_;
    // Sent without percent-encoding; the hub's existing clients do the same.
    const QByteArray body = "client_id=" + clientId_.toUtf8() + "&client_secret=" + secret.toUtf8() +
                            "&grant_type=password" + "&username=" + user.toUtf8() +
                            "&password=" + password.toUtf8();

    ReplyGuard guard{requester_->performRequest(POST, url, headers, body)};
    if (!statusIsSuccess(guard.reply, QStringLiteral("Rest request to ") + url + QStringLiteral(" failed : ")))
        return {};
    const std::optional<json> reply = parseReply(guard.reply->readAll());
    if (!reply || !reply->is_object()) return {};
    const auto token = reply->find("access_token");
    if (token == reply->end() || !token->is_string()) return {};
    return QString::fromStdString(token->get<std::string>());
}

std::map<QString, Workspace> HubConnector::getWorkspaces() {
    std::map<QString, Workspace> workspaces;
    const QString url = address_ + kWorkspacesPath;
    ReplyGuard guard{requester_->performRequest(GET, url, authorisationHeaders_, {})};
    if (!statusIsSuccess(guard.reply, QStringLiteral("Rest request to ") + url + QStringLiteral(" failed : ")))
        return workspaces;
    const std::optional<json> reply = parseReply(guard.reply->readAll());
    if (!reply || !reply->is_object()) return workspaces;
    const auto list = reply->find("workspaces");
    if (list == reply->end() || !list->is_array()) return workspaces;

    for (const json& element : *list) {
        if (!element.is_object()) continue;
        const auto id = element.find("id");
        if (id == element.end() || !id->is_number_integer()) continue;
        Workspace workspace;
        workspace.id = QString::fromStdString(id->dump());
        const auto name = element.find("name");
        if (name != element.end() && name->is_string())
            workspace.name = QString::fromStdString(name->get<std::string>());
        workspace.user_data = element.value("user_data", json());
        workspaces[workspace.id] = std::move(workspace);
    }
    return workspaces;
}

std::map<QString, Device> HubConnector::getDevicesFromWorkspaceId(const QString& workspaceId) {
    std::map<QString, Device> devices;
    const QString url = address_ + kWorkspacesPath + QStringLiteral("/") + workspaceId + QStringLiteral("/devices");
    ReplyGuard guard{requester_->performRequest(GET, url, authorisationHeaders_, {})};
    if (!statusIsSuccess(guard.reply, QStringLiteral("Rest request to ") + url + QStringLiteral(" failed : ")))
        return devices;
    const std::optional<json> reply = parseReply(guard.reply->readAll());
    if (!reply || !reply->is_object()) return devices;
    const auto list = reply->find("devices");
    if (list == reply->end() || !list->is_array()) return devices;

    for (const json& element : *list) {
        if (!isUsableDevice(element)) continue;
        Device device;
        device.id = jsonText(element["id"]);
        device.name = jsonText(element["name"]);
        device.ip_address = jsonText(element["host"]["network"].front()["ip_address"]);
        device.serial_number = jsonText(element["camera"].front()["serial_number"]);
        devices[device.id] = std::move(device);
    }
    return devices;
}

int HubConnector::getPublicationPortFromDevice(const QString& workspaceId, const QString& deviceId) {
    const QString url = address_ + kWorkspacesPath + QStringLiteral("/") + workspaceId + QStringLiteral("/devices/") +
                        deviceId + QStringLiteral("/functions/core_communication_parameters");
    // The function ignores its argument but the hub refuses a call without a body.
    ReplyGuard guard{requester_->performRequest(POST, url, authorisationHeaders_, QByteArrayLiteral("{\"dummy\":\"dummy\"}"))};
    if (!statusIsSuccess(guard.reply, QStringLiteral("Rest request to ") + url + QStringLiteral(" failed : ")))
        return kNoPort;
    const std::optional<json> reply = parseReply(guard.reply->readAll());
    if (!reply) return kNoPort;
    const json result = reply->is_object() ? reply->value("result", json()) : json();
    if (!result.is_string()) {
        qDebug().noquote() << QStringLiteral("not a string ! ") + QString::fromStdString(result.dump()) +
                                  QStringLiteral(" ") + QString::fromUtf8(result.type_name());
        return kNoPort;
    }
    try {
        return std::stoi(result.get<std::string>());
    } catch (const std::logic_error& error) {
        qDebug().noquote() << QString::fromUtf8(error.what());
        return kNoPort;
    }
}

bool HubConnector::setWorkspaceCalibrationData(const QString& workspaceId, const json& calibration) {
    const QString url = address_ + kWorkspacesPath + QStringLiteral("/") + workspaceId;
    json userData = json::object();
    {
        ReplyGuard guard{requester_->performRequest(GET, url, authorisationHeaders_, {})};
        if (!statusIsSuccess(guard.reply, QStringLiteral("GET Rest request to ") + url + QStringLiteral(" failed : ")))
            return false;
        // Writing back after an unreadable reply would wipe the workspace's other user data.
        const std::optional<json> workspace = parseReply(guard.reply->readAll());
        if (!workspace) return false;
        if (workspace->is_object()) {
            const auto existing = workspace->find("user_data");
            if (existing != workspace->end() && existing->is_object()) userData = *existing;
        }
    }

    if (calibration.is_null() || calibration.empty())
        userData.erase("calibration_data");
    else
        userData["calibration_data"] = calibration;
    const json body = {{"user_data", userData}};

    ReplyGuard guard{requester_->performRequest(PUT, url, authorisationHeaders_, QByteArray::fromStdString(body.dump()))};
    if (!guard.reply) return false;
    const QVariant status = guard.reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (status.isValid() && status.toInt() == 200) return true;
    qDebug().noquote() << QStringLiteral("PUT Rest request to ") + url + QStringLiteral(" failed : ") +
                              QString::number(status.toInt()) + QStringLiteral(" - ") + reasonOf(guard.reply);
    return status.isValid() && status.toInt() == 201;
}
