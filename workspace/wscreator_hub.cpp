// The hub source of the room set-up dialog: tenant and sign-in, workspace and device choice,
// taking the publishing cameras or a stored calibration, and pushing a finished calibration.
#include "workspace/wscreator.hpp"

#include "ui_wscreator.h"

#include <QApplication>
#include <QDebug>
#include <QListWidgetItem>
#include <QSettings>
#include <QThread>

#include <atomic>
#include <iostream>

#include "core/user_prompts.hpp"
#include "workspace/room_file.hpp"
#include "workspace/wscreator_support.hpp"

namespace {
// Device::flags bit: the device answered with a publication port in the last retrieval.
constexpr int kDevicePublishing = 1;
}  // namespace

// Disables everything that starts a request while one is under way; the requester pumps
// events, so without this a second click would start a second request.
class WSCreator::HubBusy {
public:
    explicit HubBusy(WSCreator& dialog) : dialog_(dialog) {
        if (dialog_.hubBusy_++ == 0) {
            dialog_.updateHubControls();
            QApplication::setOverrideCursor(Qt::BusyCursor);
        }
    }
    ~HubBusy() {
        if (--dialog_.hubBusy_ == 0) {
            QApplication::restoreOverrideCursor();
            dialog_.updateHubControls();
        }
    }
    HubBusy(const HubBusy&) = delete;
    HubBusy& operator=(const HubBusy&) = delete;

private:
    WSCreator& dialog_;
};

void WSCreator::updateHubControls() {
    const bool idle = hubBusy_ == 0;
    const auto workspace = workspaces_.find(workspaceId_);
    const bool hasWorkspace = workspace != workspaces_.end();
    const nlohmann::json& userData = hasWorkspace ? workspace->second.user_data : nlohmann::json::object();
    ui_->hub_url_button->setEnabled(idle);
    ui_->hub_connection_button->setEnabled(idle);
    ui_->workspace_combo->setEnabled(idle && ui_->workspace_combo->count() > 0);
    ui_->device_list->setEnabled(idle);
    ui_->hub_retrieve_button->setEnabled(idle && hasWorkspace && ui_->device_list->count() > 0);
    ui_->hub_calib_button->setEnabled(idle && hasWorkspace && userData.is_object() &&
                                      userData.contains("calibration_data"));
    ui_->create_toolButton->setEnabled(idle);
    ui_->usb_discover_button->setEnabled(idle);
    ui_->local_load->setEnabled(idle);
}

void WSCreator::refreshTenantLabel() { ui_->tenant_label->setText(tr("Pyra Hub at %1").arg(tenant_)); }

void WSCreator::on_hub_url_button_clicked() {
    if (hubBusy_) return;
    const std::optional<QString> answer = prompts().askText(tr("Pyra Hub URL"), tr("Pyra Hub URL : "), tenant_);
    if (!answer) return;
    if (!answer->startsWith("http")) {
        std::cout << "Invalid address." << std::endl;
        return;
    }
    tenant_ = *answer;
    QSettings(wscreator::kHubOrganisation, wscreator::kHubApplication).setValue("tenant", tenant_);
    refreshTenantLabel();
}

void WSCreator::on_hub_connection_button_clicked() {
    if (hubBusy_) return;
    hub_ = std::make_shared<HubConnector>(tenant_, QString());
    hub_->setPrompts(&prompts());
    const QString user = ui_->hub_username->text();
    const QString password = ui_->hub_password->text();
    if (user.isEmpty() || password.isEmpty()) {
        warn(tr("Invalid credentials"), tr("Please fill your credentials before trying to connect to PYRA HUB."));
        return;
    }
    {
        QSettings settings(wscreator::kHubOrganisation, wscreator::kHubApplication);
        settings.setValue("username", user);
        settings.setValue("password", password);
    }
    clean_network();

    HubBusy busy(*this);
    const std::shared_ptr<HubConnector> hub = hub_;
    const QString token = hub->connectViaImplicitFlow(user, password);
    if (token.isEmpty()) {
        ui_->hub_frame->hide();
        warn(tr("Connection error"), tr("Secure connection to PYRA HUB could not be established."));
        return;
    }
    on_connectionSuccess(token);
}

void WSCreator::on_connectionSuccess(const QString& token) {
    HubBusy busy(*this);
    setWindowState(windowState() & ~Qt::WindowMinimized);
    raise();
    activateWindow();

    hub_ = std::make_shared<HubConnector>(tenant_, token);
    hub_->setPrompts(&prompts());
    const std::shared_ptr<HubConnector> hub = hub_;
    ui_->hub_frame->show();
    {
        const QSignalBlocker blocker(ui_->workspace_combo);
        ui_->workspace_combo->clear();
    }
    forgetWorkspaceChoice();

    workspaces_ = hub->getWorkspaces();
    {
        // Filling the chooser must not fetch devices once per entry.
        const QSignalBlocker blocker(ui_->workspace_combo);
        for (const auto& [id, workspace] : workspaces_) ui_->workspace_combo->addItem(workspace.name, id);
        ui_->workspace_combo->setPlaceholderText(workspaces_.empty() ? tr("No workspace in this account")
                                                                     : tr("Choose a workspace"));
        ui_->workspace_combo->setCurrentIndex(workspaces_.empty() ? -1 : 0);
    }
    if (!workspaces_.empty()) on_workspaceSelectionChanged(ui_->workspace_combo->currentIndex());
}

void WSCreator::forgetWorkspaceChoice() {
    workspaceId_.clear();
    devices_.clear();
    ui_->device_list->clear();
}

void WSCreator::on_workspaceSelectionChanged(int index) {
    HubBusy busy(*this);
    forgetWorkspaceChoice();
    if (index < 0) return;
    const QString id = ui_->workspace_combo->itemData(index).toString();
    if (workspaces_.find(id) == workspaces_.end()) {
        qDebug().noquote() << "Unable to find the id " + id + " in the map. This should never happen.";
        return;
    }
    workspaceId_ = id;
    if (!hub_) return;
    const std::shared_ptr<HubConnector> hub = hub_;
    std::map<QString, Device> devices = hub->getDevicesFromWorkspaceId(id);
    if (workspaceId_ != id) return;  // the choice changed while the request ran
    devices_ = std::move(devices);
    for (const auto& [deviceId, device] : devices_) {
        auto* item = new QListWidgetItem(device.name + " - SN" + device.serial_number, ui_->device_list);
        item->setData(Qt::UserRole, deviceId);
        item->setFlags(item->flags() | Qt::ItemIsUserCheckable);
        item->setCheckState(Qt::Checked);
        item->setToolTip(tr("Host %1").arg(device.ip_address));
    }
}

void WSCreator::on_hub_retrieve_button_clicked() {
    if (hubBusy_ || !hub_) return;
    HubBusy busy(*this);
    const std::shared_ptr<HubConnector> hub = hub_;
    const QString workspaceId = workspaceId_;
    clean_network();
    clearCameras();
    storedCalibration_.clear();
    hubFromStoredCalibration_ = false;
    ui_->hub_progress->setValue(0);
    ui_->hub_progress->show();

    int taken = 0;
    const int count = ui_->device_list->count();
    for (int i = 0; i < count; ++i) {
        ui_->hub_progress->setValue((100 * i) / count);
        QListWidgetItem* item = ui_->device_list->item(i);
        if (item->checkState() != Qt::Checked) continue;
        const QString deviceId = item->data(Qt::UserRole).toString();
        Device& device = devices_[deviceId];
        device.configurations.clear();
        device.flags = 0;
        const int port = hub->getPublicationPortFromDevice(workspaceId, deviceId);
        const QString line = device.name + " - SN" + device.serial_number;
        if (port <= 0 || port > 65535) {
            addCameraLine(line + " - NOT PUBLISHING", tr("Hub, not publishing"), deviceId, false);
            continue;
        }
        lum::FusionConfiguration configuration;
        configuration.serial_number = device.serial_number.toInt();
        configuration.communication_parameters.setForLocalNetwork(device.ip_address.toStdString(), port);
        configuration.pose = lum::Transform::identity();
        device.configurations.push_back(configuration);
        device.flags |= kDevicePublishing;
        addCameraLine(line + " - " + device.ip_address + ":" + QString::number(port),
                      tr("Hub, %1:%2").arg(device.ip_address).arg(port), deviceId);
        ++taken;
    }
    ui_->hub_progress->hide();
    if (taken == 0) {
        sourceKind_ = SOURCE_NONE;
        showCameraArea(ui_->camera_list->topLevelItemCount() > 0);
        warn(tr("No valid cameras"), tr("No valid cameras are currently publishing data in this workspace."));
        return;
    }
    sourceKind_ = SOURCE_HUB;
    showCameraArea(true);
    inform(tr("Fusion now running on these cameras"),
           QString::number(taken) + tr(" cameras are currently publishing data."));
}

void WSCreator::onRetrieveCalibrationFromWorkspaceClicked() {
    if (hubBusy_) return;
    HubBusy busy(*this);
    clean_network();
    clearCameras();
    storedCalibration_.clear();

    nlohmann::json calibration;
    const auto workspace = workspaces_.find(workspaceId_);
    if (workspace != workspaces_.end() && workspace->second.user_data.is_object())
        calibration = workspace->second.user_data.value("calibration_data", nlohmann::json());

    // What was usable, in the frame the document is written in, for rewriting it if needed.
    std::vector<lum::FusionConfiguration> usableAsWritten;
    bool unusableSeen = false;
    if (calibration.is_object()) {
        for (const auto& [key, camera] : calibration.items()) {
            const auto configuration =
                wscreator::storedCamera(key, camera, lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP, lum::UNIT::METER);
            if (!configuration) {
                qDebug().noquote() << "Invalid calibration in this workspace.";
                unusableSeen = true;
                continue;
            }
            usableAsWritten.push_back(
                *wscreator::storedCamera(key, camera, lum::COORDINATE_SYSTEM::IMAGE, lum::UNIT::MILLIMETER));
            storedCalibration_.push_back(*configuration);
            const auto& network = configuration->communication_parameters;
            const QString address =
                QString::fromStdString(network.getIpAddress()) + ":" + QString::number(network.getPort());
            QString name = tr("Camera");
            for (const auto& entry : devices_)
                if (entry.second.serial_number == QString::fromStdString(key)) name = entry.second.name;
            addCameraLine(name + " - SN" + QString::fromStdString(key) + " - " + address,
                          tr("Hub calibration, %1").arg(address), QString::fromStdString(key));
        }
    }
    // A stored calibration the fusion cannot use is replaced by what it can use, so the next
    // person to open this workspace is not stopped by it again.
    if (unusableSeen) {
        const QString workspaceId = workspaceId_;
        const nlohmann::json document =
            roomfile::writeDocument(usableAsWritten, lum::COORDINATE_SYSTEM::IMAGE, lum::UNIT::MILLIMETER);
        HubBusy busy(*this);
        if (hub_->setWorkspaceCalibrationData(workspaceId, document)) rememberCalibration(workspaceId, document);
    }

    if (storedCalibration_.empty()) {
        sourceKind_ = SOURCE_NONE;
        hubFromStoredCalibration_ = false;
        showCameraArea(false);
        warn(tr("Invalid calibration"), tr("Invalid calibration in this workspace."));
        return;
    }
    sourceKind_ = SOURCE_HUB;
    hubFromStoredCalibration_ = true;
    showCameraArea(true);
    inform(tr("Fusion now running on these cameras"),
           QString::number(storedCalibration_.size()) + tr(" cameras are registered in the workspace."));
}

void WSCreator::createFromHub() {
    std::vector<lum::FusionConfiguration> configurations;
    if (hubFromStoredCalibration_) {
        configurations = storedCalibration_;
    } else if (workspaces_.find(workspaceId_) == workspaces_.end()) {
        qDebug().noquote() << "Error : wrong workspace id : " + workspaceId_;
    } else {
        for (const auto& [id, device] : devices_) {
            if (!(device.flags & kDevicePublishing)) continue;
            if (device.configurations.empty() || device.configurations.front().serial_number <= 0) {
                qDebug().noquote() << "INVALID DEVICE";
                continue;
            }
            configurations.insert(configurations.end(), device.configurations.begin(), device.configurations.end());
        }
    }
    if (configurations.empty()) {
        warn(tr("No valid cameras"), tr("No valid cameras are currently publishing data in this workspace."));
        return;
    }
    for (const lum::FusionConfiguration& configuration : configurations) logConfiguration(configuration);
    emit FusionConfigReady(configurations);
}

void WSCreator::onConfigurationFileReady(std::vector<lum::FusionConfiguration> configurations,
                                         lum::COORDINATE_SYSTEM coordinateSystem, lum::UNIT unit) {
    const nlohmann::json document = roomfile::writeDocument(configurations, coordinateSystem, unit);
    if (workspaceId_.isEmpty() || !hub_) return;
    // Cleared before the request: a calibration is pushed once.
    const QString workspaceId = workspaceId_;
    auto workspace = workspaces_.find(workspaceId);
    const QString workspaceName = workspace == workspaces_.end() ? workspaceId : workspace->second.name;
    {
        const QSignalBlocker blocker(ui_->workspace_combo);
        ui_->workspace_combo->setCurrentIndex(-1);
    }
    forgetWorkspaceChoice();

    auto stored = std::make_shared<std::atomic<bool>>(false);
    QThread* upload = QThread::create([address = hub_->address(), token = hub_->token(), workspaceId, document,
                                       stored] {
        HubConnector hub(address, token);
        *stored = hub.setWorkspaceCalibrationData(workspaceId, document);
    });
    connect(upload, &QThread::finished, upload, &QObject::deleteLater);
    connect(upload, &QThread::finished, this, [this, stored, workspaceId, workspaceName, document] {
        if (!*stored) {
            emit calibrationStored(tr("The calibration could not be stored in workspace %1: the hub refused it "
                                      "or did not answer.")
                                       .arg(workspaceName));
            return;
        }
        rememberCalibration(workspaceId, document);
        emit calibrationStored(tr("Calibration stored in workspace %1.").arg(workspaceName));
    });
    upload->start();
}

void WSCreator::rememberCalibration(const QString& workspaceId, const nlohmann::json& document) {
    auto workspace = workspaces_.find(workspaceId);
    if (workspace == workspaces_.end()) return;
    nlohmann::json& userData = workspace->second.user_data;
    if (!userData.is_object()) userData = nlohmann::json::object();
    if (document.empty())
        userData.erase("calibration_data");
    else
        userData["calibration_data"] = document;
}
