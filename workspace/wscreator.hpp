// The room set-up dialog: the user picks the cameras of a fusion run from a room file, USB
// discovery, hand-entered network cameras or a hub workspace, and gets calibrations pushed back.
#pragma once

#include <QDialog>
#include <QString>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "core/shared_records.hpp"
#include "hub/hub_connector.hpp"
#include "lum/lum.hpp"
#include "workspace/hub_task.hpp"

namespace Ui {
class WSCreator;
}

class CustomStyle;
class UserPrompts;

class WSCreator : public QDialog {
    Q_OBJECT

public:
    // Which list "create" hands over.
    // SOURCE_RUNNING: the cameras of the room running now, listed when the dialog reopens.
    enum SourceKind : int { SOURCE_USB = 0, SOURCE_HUB = 1, SOURCE_MANUAL = 2, SOURCE_NONE = 3, SOURCE_RUNNING = 4 };

    // Messages, file choosers and the tenant question go through `prompts`; without one
    // they go to the console. The dialog does not take ownership.
    explicit WSCreator(QWidget* parent = nullptr, UserPrompts* prompts = nullptr);
    ~WSCreator() override;

    void setPrompts(UserPrompts* prompts);

    // The capture choices for the workers.
    AppParams getParameters() const;

    // Forgets the cameras collected and empties the entry fields. A hub session and its
    // selected workspace survive, so a calibration made afterwards is still pushed.
    void clearUi();

    // Lists the cameras of the room running now, so a user reopening the dialog sees what
    // runs; "create" starts that room again until another source is chosen.
    void showRunningRoom(const std::vector<lum::FusionConfiguration>& configurations);

    int sourceKind() const { return sourceKind_; }
    QString selectedWorkspaceId() const { return workspaceId_; }
    QString tenantAddress() const { return tenant_; }

    // A hub request (sign-in, workspaces, devices, ports) is under way; the dialog's buttons
    // that start another are off meanwhile.
    bool hubRequestUnderway() const;
    // A calibration is being stored in a workspace.
    bool uploadUnderway() const;
    // Stops waiting for the calibration being stored, and says so through calibrationStored.
    void cancelUpload();

    // After a successful sign-in: opens the hub session and lists the workspaces.
    void on_connectionSuccess(const QString& token);
    // Fetches the devices of the workspace at `index` of the chooser.
    void on_workspaceSelectionChanged(int index);

signals:
    void createFile(std::string path);
    void FusionConfigReady(std::vector<lum::FusionConfiguration> configurations);
    void selfClose();
    void stopFusionWorker();
    // After a calibration was pushed to the hub: where it went, or why it did not.
    void calibrationStored(QString outcome, bool stored);

public slots:
    // Stores a finished calibration in the selected hub workspace, once, on a thread of its
    // own: a slow hub never holds up the window. The outcome comes as calibrationStored.
    void onConfigurationFileReady(std::vector<lum::FusionConfiguration> configurations,
                                  lum::COORDINATE_SYSTEM coordinateSystem, lum::UNIT unit);

    void on_local_load_released();
    void onUsbDiscoverButtonClicked();
    void on_network_add_button_clicked();
    void on_network_clear_button_clicked();
    void on_networkSNLineEdit_textEdited(const QString& text);
    void on_networkAddressLineEdit_textEdited(const QString& text);
    void on_horizontalSlider_valueChanged(int value);
    void on_create_toolButton_released();
    void onCloseButtonClicked();

    void on_hub_url_button_clicked();
    void on_hub_connection_button_clicked();
    void on_hub_retrieve_button_clicked();
    void onRetrieveCalibrationFromWorkspaceClicked();

protected:
    // Escape and the window's close button leave the room set-up like its Close button.
    void reject() override;

private:
    UserPrompts& prompts() const;
    void check_manual_network_validity();
    void clean_network();
    void clearCameras();
    void addCameraLine(const QString& line, const QString& reachedBy, const QString& key = QString(),
                       bool usable = true);
    void showCameraArea(bool visible);
    void warn(const QString& title, const QString& text);
    void inform(const QString& title, const QString& text);
    void logConfiguration(const lum::FusionConfiguration& configuration);
    void refreshTenantLabel();
    void refreshLastFolderLabel();
    void updateHubControls();
    void forgetWorkspaceChoice();
    void createFromHub();
    void startHubRequest(const QString& token, HubTask::Request request);
    void takePublishingCameras(const std::vector<QString>& deviceIds, const std::vector<int>& ports);
    // Keeps the local copy of a workspace's user data in step with what the hub accepted.
    void rememberCalibration(const QString& workspaceId, const nlohmann::json& document);

    std::unique_ptr<Ui::WSCreator> ui_;
    CustomStyle* customStyle_ = nullptr;  // owned by the dialog
    UserPrompts* prompts_ = nullptr;

    int sourceKind_ = SOURCE_NONE;
    std::vector<lum::FusionConfiguration> usbConfigurations_;
    std::map<QString, lum::FusionConfiguration> manualConfigurations_;

    QString tenant_;
    std::shared_ptr<HubConnector> hub_;
    std::map<QString, Workspace> workspaces_;
    QString workspaceId_;
    std::map<QString, Device> devices_;
    // Cameras taken from a stored calibration; the live ones stay with their devices.
    std::vector<lum::FusionConfiguration> storedCalibration_;
    bool hubFromStoredCalibration_ = false;
    QString uploadWorkspaceName_;
    // Last, so their threads are joined before anything they report to goes.
    std::unique_ptr<HubTask> hubTask_ = std::make_unique<HubTask>();
    std::unique_ptr<HubTask> uploadTask_ = std::make_unique<HubTask>();
};
