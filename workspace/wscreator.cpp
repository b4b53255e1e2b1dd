// The room set-up dialog: construction and look, the capture settings, and the room-file,
// USB and hand-entered network sources with the "create" action that hands the room over.
#include "workspace/wscreator.hpp"

#include "ui_wscreator.h"

#include <QDebug>
#include <QDir>
#include <QFileInfo>
#include <QHeaderView>
#include <QPushButton>
#include <QSettings>
#include <QStringList>

#include <algorithm>

#include "core/console_prompts.hpp"
#include "style/style.hpp"
#include "workspace/room_file.hpp"
#include "workspace/room_usb.hpp"
#include "workspace/wscreator_support.hpp"

namespace {

const char* const kNoValidCamerasText = QT_TRANSLATE_NOOP(
    "WSCreator",
    "There are no cameras to start with yet. Search for the cameras plugged into this computer over USB, add "
    "network cameras by serial number and address, or take them from a Pyra Hub workspace.");

// Dialog-only touches on top of the application's style sheet.
const char* const kDialogSheet = R"(
QTabWidget::pane { border: 1px solid #383f49; border-radius: 6px; background: #252a31; top: -1px; }
QTabBar::tab { background: transparent; color: #9aa3ad; padding: 8px 18px; border: none;
               border-bottom: 2px solid transparent; }
QTabBar::tab:selected { color: #e8eaed; border-bottom: 2px solid #3da5d9; }
QTabBar::tab:hover { color: #e8eaed; }
QGroupBox { border: 1px solid #383f49; border-radius: 6px; margin-top: 14px; padding: 6px 4px 4px 4px;
            background: #252a31; font-weight: bold; }
QGroupBox::title { subcontrol-origin: margin; left: 12px; padding: 0 4px; color: #9aa3ad; }
QTreeWidget, QListWidget { background: #15181d; border: 1px solid #454d58; border-radius: 3px; }
QTreeWidget::item, QListWidget::item { padding: 4px 2px; }
QToolButton#create_toolButton { padding: 10px 16px; font-size: 11pt; }
)";

}  // namespace

WSCreator::WSCreator(QWidget* parent, UserPrompts* prompts)
    : QDialog(parent), ui_(std::make_unique<Ui::WSCreator>()) {
    prompts_ = prompts;
    ui_->setupUi(this);

    setStyleSheet(Style::styleSheet() + kDialogSheet);
    setFont(Style::font(10));
    ui_->title_label->setProperty("role", "heading");
    ui_->title_label->setFont(Style::font(16, true));
    ui_->subtitle_label->setProperty("role", "muted");
    for (QLabel* help : {ui_->file_help, ui_->usb_help, ui_->network_help, ui_->last_folder_label,
                         ui_->tenant_label, ui_->camera_placeholder})
        help->setProperty("role", "muted");
    // A dialog makes its push buttons react to Enter; here Enter belongs to the line edits.
    for (QPushButton* button : findChildren<QPushButton*>()) {
        button->setAutoDefault(false);
        button->setDefault(false);
    }
    for (QPushButton* secondary :
         {ui_->close_button, ui_->network_clear_button, ui_->hub_url_button, ui_->hub_cancel_button})
        secondary->setFlat(true);
    customStyle_ = new CustomStyle();
    customStyle_->setParent(this);
    for (QAbstractButton* primary : std::initializer_list<QAbstractButton*>{
             ui_->create_toolButton, ui_->local_load, ui_->usb_discover_button, ui_->network_add_button,
             ui_->hub_connection_button, ui_->hub_retrieve_button, ui_->hub_calib_button})
        primary->setStyle(customStyle_);
    ui_->create_toolButton->setToolButtonStyle(Qt::ToolButtonTextOnly);
    ui_->body_layout->setStretch(0, 5);
    ui_->body_layout->setStretch(1, 6);
    ui_->side_layout->setStretch(0, 1);
    ui_->camera_list->header()->setStretchLastSection(false);
    ui_->camera_list->header()->setSectionResizeMode(0, QHeaderView::Stretch);
    ui_->camera_list->header()->setSectionResizeMode(1, QHeaderView::ResizeToContents);
    ui_->camera_list->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    ui_->workspace_combo->setPlaceholderText(tr("Choose a workspace"));
    ui_->networkSNLineEdit->setStyleSheet(Style::lineEditNormal());
    ui_->networkAddressLineEdit->setStyleSheet(Style::lineEditNormal());

    connect(ui_->usb_discover_button, &QPushButton::clicked, this, &WSCreator::onUsbDiscoverButtonClicked);
    connect(ui_->close_button, &QPushButton::clicked, this, &WSCreator::onCloseButtonClicked);
    connect(hubTask_.get(), &HubTask::busyChanged, this, &WSCreator::updateHubControls);
    connect(ui_->hub_cancel_button, &QPushButton::clicked, hubTask_.get(), &HubTask::cancel);
    connect(ui_->hub_calib_button, &QPushButton::clicked, this, &WSCreator::onRetrieveCalibrationFromWorkspaceClicked);
    connect(ui_->workspace_combo, qOverload<int>(&QComboBox::currentIndexChanged), this,
            &WSCreator::on_workspaceSelectionChanged);
    auto addOnEnter = [this] {
        if (ui_->network_add_button->isEnabled()) on_network_add_button_clicked();
    };
    connect(ui_->networkSNLineEdit, &QLineEdit::returnPressed, this, addOnEnter);
    connect(ui_->networkAddressLineEdit, &QLineEdit::returnPressed, this, addOnEnter);
    connect(ui_->hub_password, &QLineEdit::returnPressed, this, [this] {
        if (ui_->hub_connection_button->isEnabled()) on_hub_connection_button_clicked();
    });

    QSettings hubSettings(wscreator::kHubOrganisation, wscreator::kHubApplication);
    tenant_ = hubSettings.value("tenant", HubConnector::kDefaultHubAddress).toString();
    ui_->hub_username->setText(hubSettings.value("username").toString());
    ui_->hub_password->setText(hubSettings.value("password").toString());
    refreshTenantLabel();
    refreshLastFolderLabel();

    ui_->hub_frame->hide();
    clearUi();
    updateHubControls();
}

WSCreator::~WSCreator() = default;

void WSCreator::setPrompts(UserPrompts* prompts) {
    prompts_ = prompts;
    if (hub_) hub_->setPrompts(&this->prompts());
}

UserPrompts& WSCreator::prompts() const { return promptsOrConsole(prompts_); }

AppParams WSCreator::getParameters() const {
    AppParams params;
    params.bodyModel = ui_->combo_body->currentIndex();
    params.flipMode = ui_->combo_flip->currentIndex();
    // The first entry of the depth list is the SDK's depth mode 3.
    params.depthMode = std::max(0, ui_->combo_depth->currentIndex()) + 3;
    params.detectionConfidence = ui_->horizontalSlider->value();
    return params;
}

void WSCreator::clearUi() {
    clean_network();
    clearCameras();
    usbConfigurations_.clear();
    storedCalibration_.clear();
    hubFromStoredCalibration_ = false;
    sourceKind_ = SOURCE_NONE;
    showCameraArea(false);
    ui_->hub_progress->hide();
    ui_->hub_url_button->setVisible(qEnvironmentVariableIsSet("LUM_HUB_CUSTOM_TENANT"));
}

void WSCreator::showRunningRoom(const std::vector<lum::FusionConfiguration>& configurations) {
    if (configurations.empty()) return;
    clearCameras();
    usbConfigurations_ = configurations;
    for (const lum::FusionConfiguration& camera : configurations) {
        const auto& network = camera.communication_parameters;
        const QString where = network.getType() == lum::COMM_TYPE::SHARED_MEMORY
                                  ? tr("USB, this computer")
                                  : QString::fromStdString(network.getIpAddress()) + ":" +
                                        QString::number(network.getPort());
        addCameraLine(tr("SN%1 - %2").arg(camera.serial_number).arg(where), tr("Running now"));
    }
    sourceKind_ = SOURCE_RUNNING;
    showCameraArea(true);
}

void WSCreator::on_horizontalSlider_valueChanged(int value) {
    ui_->confidence_value->setText(QString::number(value));
}

void WSCreator::onCloseButtonClicked() { emit selfClose(); }

void WSCreator::reject() { onCloseButtonClicked(); }

void WSCreator::on_local_load_released() {
    QSettings settings(wscreator::kAppOrganisation, wscreator::kAppApplication);
    const QString folder = settings.value(wscreator::kLastRoomFolderKey, QDir::homePath()).toString();
    const QString path =
        prompts().askOpenFileName(tr("Open a room or calibration file"), folder,
                                  tr("Room or calibration files (*.json)"));
    if (path.isEmpty()) return;
    settings.setValue(wscreator::kLastRoomFolderKey, QFileInfo(path).absolutePath());
    settings.sync();
    refreshLastFolderLabel();
    emit stopFusionWorker();
    emit createFile(path.toUtf8().toStdString());
}

void WSCreator::onUsbDiscoverButtonClicked() {
    emit stopFusionWorker();
    clearCameras();
    usbConfigurations_.clear();
    manualConfigurations_.clear();

    const roomusb::UsbRoom room = roomusb::discover();
    for (std::size_t i = 0; i < room.configurations.size(); ++i) {
        usbConfigurations_.push_back(room.configurations[i]);
        addCameraLine(QString::fromStdString(room.lines[i]), tr("USB, this computer"));
    }
    if (!usbConfigurations_.empty()) {
        sourceKind_ = SOURCE_USB;
        showCameraArea(true);
    } else {
        sourceKind_ = SOURCE_NONE;
        showCameraArea(false);
        warn(tr("No cameras found"),
             tr("No camera found plugged on this computer. Please either plug one or use network cameras."));
    }
}

void WSCreator::on_networkSNLineEdit_textEdited(const QString&) { check_manual_network_validity(); }

void WSCreator::on_networkAddressLineEdit_textEdited(const QString&) { check_manual_network_validity(); }

void WSCreator::check_manual_network_validity() {
    const QString serialText = ui_->networkSNLineEdit->text();
    const QString addressText = ui_->networkAddressLineEdit->text();
    if (serialText.isEmpty() && addressText.isEmpty()) {
        ui_->networkSNLineEdit->setStyleSheet(Style::lineEditNormal());
        ui_->networkAddressLineEdit->setStyleSheet(Style::lineEditNormal());
        ui_->network_add_button->setEnabled(false);
        return;
    }
    const bool serialValid = wscreator::parseSerial(serialText).has_value();
    const bool addressValid = wscreator::parseAddress(addressText).has_value();
    ui_->networkSNLineEdit->setStyleSheet(!serialText.isEmpty() && !serialValid ? Style::lineEditError()
                                                                                : Style::lineEditNormal());
    ui_->networkAddressLineEdit->setStyleSheet(!addressText.isEmpty() && !addressValid ? Style::lineEditError()
                                                                                       : Style::lineEditNormal());
    ui_->network_add_button->setEnabled(serialValid && addressValid);
    if (serialValid && addressValid)
        ui_->network_add_button->setToolTip(
            tr("Make sure to have an application running that send fusion data (like Body Relay)."));
    else if (!serialValid && !addressValid)
        ui_->network_add_button->setToolTip(tr("The given serial number, IP address and/or port are invalid."));
    else if (!serialValid)
        ui_->network_add_button->setToolTip(tr("The given serial number is invalid."));
    else
        ui_->network_add_button->setToolTip(tr("The given IP address and/or port are invalid."));
}

void WSCreator::on_network_add_button_clicked() {
    const auto serial = wscreator::parseSerial(ui_->networkSNLineEdit->text());
    const auto address = wscreator::parseAddress(ui_->networkAddressLineEdit->text());
    if (!serial || !address) return;
    if (sourceKind_ != SOURCE_MANUAL) {
        clearCameras();
        usbConfigurations_.clear();
        manualConfigurations_.clear();
        sourceKind_ = SOURCE_MANUAL;
    }
    lum::FusionConfiguration configuration;
    configuration.serial_number = *serial;
    configuration.communication_parameters.setForLocalNetwork(address->ip.toStdString(), address->port);
    configuration.pose = lum::Transform::identity();

    // One line per camera: a serial entered again replaces its earlier line.
    const QString key = QString::number(*serial);
    for (int i = ui_->camera_list->topLevelItemCount() - 1; i >= 0; --i)
        if (ui_->camera_list->topLevelItem(i)->data(0, Qt::UserRole).toString() == key)
            delete ui_->camera_list->takeTopLevelItem(i);
    addCameraLine("SN" + ui_->networkSNLineEdit->text() + " - " + ui_->networkAddressLineEdit->text(),
                  tr("Network, %1:%2").arg(address->ip).arg(address->port), key);
    showCameraArea(true);
    manualConfigurations_[key] = configuration;
}

void WSCreator::on_network_clear_button_clicked() {
    clearCameras();
    manualConfigurations_.clear();
    sourceKind_ = SOURCE_NONE;
    showCameraArea(false);
}

void WSCreator::clean_network() {
    ui_->networkSNLineEdit->clear();
    ui_->networkAddressLineEdit->clear();
    ui_->networkSNLineEdit->setStyleSheet(Style::lineEditNormal());
    ui_->networkAddressLineEdit->setStyleSheet(Style::lineEditNormal());
    ui_->network_add_button->setEnabled(false);
    manualConfigurations_.clear();
}

void WSCreator::on_create_toolButton_released() {
    emit stopFusionWorker();
    switch (sourceKind_) {
    case SOURCE_RUNNING:
    case SOURCE_USB: {
        // A copy: receivers may clear the dialog while the signal is still being delivered.
        const std::vector<lum::FusionConfiguration> configurations = usbConfigurations_;
        emit FusionConfigReady(configurations);
        break;
    }
    case SOURCE_MANUAL: {
        std::vector<lum::FusionConfiguration> configurations;
        for (const auto& entry : manualConfigurations_) configurations.push_back(entry.second);
        // The hand-entered list is handed over once; a second click asks for new entries.
        sourceKind_ = SOURCE_NONE;
        for (const lum::FusionConfiguration& configuration : configurations) logConfiguration(configuration);
        emit FusionConfigReady(configurations);
        break;
    }
    case SOURCE_NONE:
        warn(tr("No valid cameras"), tr(kNoValidCamerasText));
        break;
    case SOURCE_HUB:
        createFromHub();
        break;
    default:
        break;
    }
}

void WSCreator::logConfiguration(const lum::FusionConfiguration& configuration) {
    const nlohmann::json camera =
        roomfile::write(configuration, lum::COORDINATE_SYSTEM::IMAGE, lum::UNIT::MILLIMETER);
    qDebug().noquote() << QString::fromStdString(camera.dump());
}

void WSCreator::clearCameras() { ui_->camera_list->clear(); }

void WSCreator::addCameraLine(const QString& line, const QString& reachedBy, const QString& key, bool usable) {
    auto* item = new QTreeWidgetItem(ui_->camera_list, QStringList{line, reachedBy});
    item->setData(0, Qt::UserRole, key);
    item->setToolTip(0, line);
    if (!usable) {
        item->setForeground(0, clr::textMuted);
        item->setForeground(1, clr::warning);
    }
}

void WSCreator::showCameraArea(bool visible) {
    ui_->camera_list->setVisible(visible);
    ui_->camera_placeholder->setVisible(!visible);
}

void WSCreator::warn(const QString& title, const QString& text) {
    prompts().exec(PromptMessage{title, text, PromptIcon::Warning});
}

void WSCreator::inform(const QString& title, const QString& text) {
    prompts().exec(PromptMessage{title, text, PromptIcon::Information});
}

void WSCreator::refreshLastFolderLabel() {
    const QSettings settings(wscreator::kAppOrganisation, wscreator::kAppApplication);
    const QString folder = settings.value(wscreator::kLastRoomFolderKey).toString();
    ui_->last_folder_label->setText(folder.isEmpty() ? QString()
                                                     : tr("Opens in the folder used last: %1").arg(folder));
}
