// Client of the hub's REST service: password sign-in, workspaces, devices, publication
// ports, and the room calibration kept in a workspace's user data.
#pragma once

#include "hub/rest_requester.hpp"

#include "lum/lum.hpp"

#include <QObject>
#include <QString>

#include <nlohmann/json.hpp>

#include <map>
#include <memory>
#include <vector>

class UserPrompts;

struct Workspace {
    QString id;
    QString name;
    nlohmann::json user_data;
};

struct Device {
    // One record per camera the device contributes; filled by the workspace dialog.
    std::vector<lum::FusionConfiguration> configurations;
    // Free for the dialog's bookkeeping (e.g. whether the device publishes); 0 from the hub.
    int flags = 0;
    QString id;
    QString name;
    QString ip_address;
    QString serial_number;
};

class HubConnector : public QObject {
    Q_OBJECT

public:
    static inline const QString kDefaultHubAddress = QStringLiteral("https://hub.pyra.example");
    // What getPublicationPortFromDevice returns when no port could be had.
    static constexpr int kNoPort = -1;

    HubConnector(QString address, QString token, QObject* parent = nullptr);
    ~HubConnector() override;

    // Where the empty-address warning goes; nullptr (the default) writes it to the console.
    // The connector does not take ownership.
    void setPrompts(UserPrompts* prompts);
    // A request under way gives up soon after `*cancel` turns true (see QtRestRequester).
    void setCancelFlag(const std::atomic<bool>* cancel) { requester_->setCancelFlag(cancel); }

    // The access token, or an empty text on any failure. Uses neither the object's token nor
    // its workspace headers, so it may be called on a connector made with an empty token.
    QString connectViaImplicitFlow(const QString& user, const QString& password);

    // Keyed by workspace id; empty on failure.
    std::map<QString, Workspace> getWorkspaces();
    // Keyed by device id; devices of the wrong shape are left out; empty on failure.
    std::map<QString, Device> getDevicesFromWorkspaceId(const QString& workspaceId);
    // The port, or kNoPort on failure.
    int getPublicationPortFromDevice(const QString& workspaceId, const QString& deviceId);
    // Stores the calibration under "calibration_data" of the workspace's user data; an empty
    // or null calibration removes it. Other user data is kept. True when the hub accepted it.
    bool setWorkspaceCalibrationData(const QString& workspaceId, const nlohmann::json& calibration);

    // What another thread needs to open the same session: a connector's requests must be
    // made on the thread that created it.
    QString address() const { return address_; }
    QString token() const { return token_; }

    // Lets tests point the "is this the default hub" check at a loopback server without
    // changing kDefaultHubAddress. An empty text restores the constant.
    static void setDefaultHubAddressForTesting(const QString& address);

signals:
    void ExpiredToken();
    void WorkspaceSelected();
    void DevicesSelected();

private:
    QtRestRequester* requester_;
    QString token_;
    RestHeaderList authorisationHeaders_;
    QString address_;
    const QString clientId_ = QStringLiteral("lum-internal-halden-hub-implicit");
    const QString customTenantSecret_ = QStringLiteral("Vq7mT2xRb9LwKe4NpZ8cYh3GdJ6sUf5A");
    const QString defaultHubSecret_ = QStringLiteral("Hx5Wn2Rq8ZtLm4Ve7YsKc3Pj9FdGuB");

    UserPrompts* prompts_ = nullptr;
};
