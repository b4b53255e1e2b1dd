// The hub source of the room set-up dialog: tenant and sign-in, workspace and device choice,
// taking the publishing cameras or a stored calibration, and pushing a finished calibration.
#include "workspace/wscreator.hpp"

#include "ui_wscreator.h"

#include <QDebug>
#include <QListWidgetItem>
#include <QSettings>

#include <iostream>

#include "core/user_prompts.hpp"
#include "workspace/room_file.hpp"
#include "workspace/wscreator_support.hpp"

namespace {
// Device::flags bit: the device answered with a publication port in the last retrieval.
constexpr int kDevicePublishing = 1;
}  // namespace

void WSCreator::updateHubControls() {
    const bool idle = !hubTask_->busy();
    const auto workspace = workspaces_.find(workspaceId_);
    const bool hasWorkspace = workspace != workspaces_.end();
    const nlohmann::json& userData = hasWorkspace ? workspace->second.user_data : nlohmann::json::object();
    ui_->hub_url_button->setEnabled(idle);
    ui_->hub_connection_button->setEnabled(idle);
    ui_->hub_cancel_button->setVisible(!idle);
    ui_->workspace_combo->setEnabled(idle && ui_->workspace_combo->count() > 0);
    ui_->device_list->setEnabled(idle);
    ui_->hub_retrieve_button->setEnabled(idle && hasWorkspace && ui_->device_list->count() > 0);
    ui_->hub_calib_button->setEnabled(idle && hasWorkspace && userData.is_object() &&
                                      userData.contains("calibration_data"));
    ui_->create_toolButton->setEnabled(idle);
    ui_->usb_discover_button->setEnabled(idle);
    ui_->local_load->setEnabled(idle);
    if (idle) ui_->hub_progress->hide();
}

bool WSCreator::hubRequestUnderway() const { return hubTask_->busy(); }

bool WSCreator::uploadUnderway() const { return uploadTask_->busy(); }

void WSCreator::cancelUpload() {
    if (!uploadTask_->busy()) return;
    uploadTask_->cancel();
    emit calibrationStored(tr("The calibration was not stored in workspace %1: Halden stopped waiting for the hub.")
                               .arg(uploadWorkspaceName_),
                           false);
}

void WSCreator::startHubRequest(const QString& token, HubTask::Request request) {
    // A newer choice replaces a request still under way.
    hubTask_->cancel();
    hubTask_->start(tenant_, token, std::move(request));
}

void WSCreator::refreshTenantLabel() { ui_->tenant_label->setText(tr("Pyra Hub at %1").arg(tenant_)); }

void WSCreator::on_hub_url_button_clicked() {
    if (hubTask_->busy()) return;
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
    if (hubTask_->busy()) return;
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
    // Said here, where a box can be shown; the request then fails like any other.
    if (tenant_.isEmpty()) warn(tr("Connection error"), tr("Invalid Pyra Hub tenant address."));

    startHubRequest(QString(), [this, user, password](HubConnector& hub) -> HubTask::Done {
        const QString token = hub.connectViaImplicitFlow(user, password);
        return [this, token] {
            if (token.isEmpty()) {
                ui_->hub_frame->hide();
                warn(tr("Connection error"), tr("Secure connection to PYRA HUB could not be established."));
                return;
            }
            on_connectionSuccess(token);
        };
    });
}

void WSCreator::on_connectionSuccess(const QString& token) {
    setWindowState(windowState() & ~Qt::WindowMinimized);
    raise();
    activateWindow();

    hub_ = std::make_shared<HubConnector>(tenant_, token);
    hub_->setPrompts(&prompts());
    ui_->hub_frame->show();
    {
        const QSignalBlocker blocker(ui_->workspace_combo);
        ui_->workspace_combo->clear();
    }
    workspaces_.clear();
    forgetWorkspaceChoice();

    startHubRequest(token, [this](HubConnector& hub) -> HubTask::Done {
        std::map<QString, Workspace> workspaces = hub.getWorkspaces();
        return [this, workspaces = std::move(workspaces)] {
            workspaces_ = workspaces;
            {
                // Filling the chooser must not fetch devices once per entry.
                const QSignalBlocker blocker(ui_->workspace_combo);
                for (const auto& [id, workspace] : workspaces_) ui_->workspace_combo->addItem(workspace.name, id);
                ui_->workspace_combo->setPlaceholderText(workspaces_.empty() ? tr("No workspace in this account")
                                                                             : tr("Choose a workspace"));
                ui_->workspace_combo->setCurrentIndex(workspaces_.empty() ? -1 : 0);
            }
            if (!workspaces_.empty()) on_workspaceSelectionChanged(ui_->workspace_combo->currentIndex());
            updateHubControls();
        };
    });
}

void WSCreator::forgetWorkspaceChoice() {
    workspaceId_.clear();
    devices_.clear();
    ui_->device_list->clear();
}

void WSCreator::on_workspaceSelectionChanged(int index) {
    forgetWorkspaceChoice();
    if (index < 0) {
        hubTask_->cancel();
        updateHubControls();
        return;
    }
    const QString id = ui_->workspace_combo->itemData(index).toString();
    if (workspaces_.find(id) == workspaces_.end()) {
        qDebug().noquote() << "Unable to find the id " + id + " in the map. This should never happen.";
        updateHubControls();
        return;
    }
    workspaceId_ = id;
    updateHubControls();
    if (!hub_) return;
    startHubRequest(hub_->token(), [this, id](HubConnector& hub) -> HubTask::Done {
        std::map<QString, Device> devices = hub.getDevicesFromWorkspaceId(id);
        return [this, id, devices = std::move(devices)] {
            if (workspaceId_ != id) return;
            devices_ = devices;
            for (const auto& [deviceId, device] : devices_) {
                auto* item = new QListWidgetItem(device.name + " - SN" + device.serial_number, ui_->device_list);
                item->setData(Qt::UserRole, deviceId);
                item->setFlags(item->flags() | Qt::ItemIsUserCheckable);
                item->setCheckState(Qt::Checked);
                item->setToolTip(tr("Host %1").arg(device.ip_address));
            }
            updateHubControls();
        };
    });
}

void WSCreator::on_hub_retrieve_button_clicked() {
    if (hubTask_->busy() || !hub_) return;
    const QString workspaceId = workspaceId_;
    clean_network();
    clearCameras();
    storedCalibration_.clear();
    hubFromStoredCalibration_ = false;

    std::vector<QString> ticked;
    const int count = ui_->device_list->count();
    for (int i = 0; i < count; ++i) {
        QListWidgetItem* item = ui_->device_list->item(i);
        if (item->checkState() == Qt::Checked) ticked.push_back(item->data(Qt::UserRole).toString());
    }
    startHubRequest(hub_->token(), [this, workspaceId, ticked](HubConnector& hub) -> HubTask::Done {
        std::vector<int> ports;
        for (std::size_t i = 0; i < ticked.size(); ++i) {
            const int percent = int((100 * i) / ticked.size());
            QMetaObject::invokeMethod(
                ui_->hub_progress, [this, percent] { ui_->hub_progress->setValue(percent); }, Qt::QueuedConnection);
            ports.push_back(hub.getPublicationPortFromDevice(workspaceId, ticked[i]));
        }
        return [this, ticked, ports] { takePublishingCameras(ticked, ports); };
    });
    ui_->hub_progress->setValue(0);
    ui_->hub_progress->show();
}

void WSCreator::takePublishingCameras(const std::vector<QString>& deviceIds, const std::vector<int>& ports) {
    int taken = 0;
    for (std::size_t i = 0; i < deviceIds.size(); ++i) {
        const QString& deviceId = deviceIds[i];
        const int port = ports[i];
        Device& device = devices_[deviceId];
        device.configurations.clear();
        device.flags = 0;
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
    if (hubTask_->busy()) return;
    clean_network();
    clearCameras();
    storedCalibration_.clear();

    nlohmann::json calibration;
    const auto workspace = workspaces_.find(workspaceId_);
    if (workspace != workspaces_.end() && workspace->second.user_data.is_object())
        calibration = workspace->second.user_data.value("calibration_data", nlohmann::json());

    // An unusable member is only reported: the stored document may be the workspace's only
    // copy of a calibration, and a newer version may read it.
    if (calibration.is_object()) {
        for (const auto& [key, camera] : calibration.items()) {
            const auto configuration =
                wscreator::storedCamera(key, camera, lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP, lum::UNIT::METER);
            if (!configuration) {
                qDebug().noquote() << "Invalid calibration in this workspace.";
                continue;
            }
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

    if (uploadTask_->busy()) {
        emit calibrationStored(tr("The calibration could not be stored in workspace %1: an earlier one is still "
                                  "being stored.")
                                   .arg(workspaceName),
                               false);
        return;
    }
    uploadWorkspaceName_ = workspaceName;
    uploadTask_->start(hub_->address(), hub_->token(),
                       [this, workspaceId, workspaceName, document](HubConnector& hub) -> HubTask::Done {
                           const bool stored = hub.setWorkspaceCalibrationData(workspaceId, document);
                           return [this, stored, workspaceId, workspaceName, document] {
                               if (!stored) {
                                   emit calibrationStored(tr("The calibration could not be stored in workspace "
                                                             "%1: the hub refused it or did not answer.")
                                                              .arg(workspaceName),
                                                          false);
                                   return;
                               }
                               rememberCalibration(workspaceId, document);
                               emit calibrationStored(tr("Calibration stored in workspace %1.").arg(workspaceName), true);
                           };
                       });
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
