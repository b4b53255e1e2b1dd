// The main window: its construction order, the wiring between worker, dialog and viewer,
// and the states from "no room" through "room starting" and "running" to "calibrating".
#include "app/mainwindow.hpp"

#include <QResizeEvent>

#include "app/gui_prompts.hpp"
#include "style/style.hpp"
#include "ui_mainwindow.h"
#include "workspace/wscreator.hpp"

namespace {
constexpr int kFirstScreenPage = 0;
constexpr int kViewerPage = 1;
}  // namespace

MainWindow::MainWindow(QWidget* parent, std::shared_ptr<UserPrompts> userPrompts)
    : QMainWindow(parent), ui(std::make_unique<Ui::MainWindow>()) {
    Style::loadResources();
    ui->setupUi(this);
    registerSharedMetaTypes();
    qRegisterMetaType<CalibrationReport>("CalibrationReport");

    prompts = userPrompts ? std::move(userPrompts) : std::make_shared<GuiPrompts>(this);
    fusion.setPrompts(prompts);
    wsCreator = new WSCreator(this, prompts.get());
    // Shown over the window's own area rather than as a separate window.
    wsCreator->setWindowFlags(Qt::Widget);
    wsCreator->hide();

    styleWidgets();
    ui->odom_check->hide();
    ui->sk_check->hide();
    ui->enableFusionLabel->hide();

    timer.setInterval(50);
    connect(&timer, &QTimer::timeout, this, &MainWindow::updateUI);
    timer.start();
    connectAll();

    enableModules(false);
    makeCalibrationPossible(false);
    ui->progressBar->hide();
    ui->report_panel->hide();
    ui->spinner_wnd->hide();
    ui->view_stack->setCurrentIndex(kFirstScreenPage);
}

MainWindow::~MainWindow() {
    // The worker's thread and senders go before the widgets they report to.
    timer.stop();
    fusion.close();
}

void MainWindow::styleWidgets() {
    setWindowIcon(Style::appIcon());
    Style::styleButton(*ui->roomSetupButton);
    Style::styleButton(*ui->calibration_button);
    Style::styleButton(*ui->first_screen_button);
    ui->spinner->setColor(clr::accent);
    ui->spinner->setRoundness(70.0);
    ui->spinner->setMinimumTrailOpacity(15.0);
    ui->spinner->setTrailFadePercentage(70.0);
    ui->spinner_wnd->setStyleSheet(QString("QFrame#spinner_wnd { background: %1; border-radius: 8px; }")
                                       .arg(clr::surface.name()));
}

void MainWindow::connectAll() {
    connect(ui->roomSetupButton, &QPushButton::clicked, this, &MainWindow::onOption_button_released);
    connect(ui->first_screen_button, &QPushButton::clicked, this, &MainWindow::onOption_button_released);
    connect(&fusion, &FusionWorker::isInit, this, &MainWindow::stopSpinner);
    connect(&fusion, &FusionWorker::clearData, ui->viewer, &GlViewer::reset);
    connect(&fusion, &FusionWorker::newData, ui->viewer, &GlViewer::updateData);
    connect(wsCreator, &WSCreator::stopFusionWorker, &fusion, &FusionWorker::close);
    connect(wsCreator, &WSCreator::createFile, this, &MainWindow::openConfFile);
    connect(wsCreator, &WSCreator::FusionConfigReady, this, &MainWindow::onFusionConfigReady);
    connect(wsCreator, &WSCreator::selfClose, this, &MainWindow::onWsCreatorClosed);
    connect(&fusion, &FusionWorker::CalibrationConfigurationReady, wsCreator, &WSCreator::onConfigurationFileReady);
    connect(&fusion, &FusionWorker::updateFusionError, this, &MainWindow::updateFusionErrorLabel);
    connect(&fusion, &FusionWorker::incCalib, this, &MainWindow::calibprogress);
    connect(&fusion, &FusionWorker::calibrationReport, ui->report_panel, &CalibrationPanel::setReport);
    connect(&fusion, &FusionWorker::cameraMoved, this, [this](int serial, double rotationDeg, double shiftMm) {
        movedMessage = prompts->show(
            {tr("Camera moved"),
             tr("Camera %1 no longer agrees with the others: since the calibration it seems to have turned by "
                "about %2°, and what it sees has shifted by about %3 mm where people walk. Fix it in place and calibrate the room again.")
                 .arg(serial)
                 .arg(rotationDeg, 0, 'f', 1)
                 .arg(shiftMm, 0, 'f', 0),
             PromptIcon::Warning});
    });
}

void MainWindow::updateUI() {
    ui->viewer->update();
    update();
}

void MainWindow::calibprogress(int value) {
    ui->progressBar->setValue(value);
    ui->report_panel->setFrameCount(fusion.calibrationFrameCount());
}

void MainWindow::updateFusionErrorLabel(QString text) {
    const QString colour = text == "SUCCESS" ? "green" : "red";
    ui->fusion_error->setText("<font color=" + colour + ">" + text + "</font>");
}

void MainWindow::stopSpinner() {
    enableModules(true);
    ui->spinner->stop();
    ui->spinner_wnd->hide();
    makeCalibrationPossible(true);
}

void MainWindow::setAsReady() {
    wsCreator->hide();
    wsCreator->clearUi();
    makeCalibrationPossible(false);
    ui->report_panel->hide();
    ui->report_panel->clear();
    ui->view_stack->setCurrentIndex(kViewerPage);
    ui->spinner_wnd->show();
    ui->spinner_wnd->raise();
    fitOverlays();
    ui->spinner->start();
    ui->centralwidget->show();
}

void MainWindow::openConfFile(std::string path) {
    setAsReady();
    std::string error;
    showRoomCameras(lum::readFusionConfigurationFile(path, lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP,
                                                     lum::UNIT::METER, &error));
    fusion.setup(path, wsCreator->getParameters());
}

void MainWindow::onFusionConfigReady(std::vector<lum::FusionConfiguration> list) {
    setAsReady();
    ui->viewer->reset();
    fusion.close();
    showRoomCameras(list);
    fusion.setup(list, wsCreator->getParameters());
}

void MainWindow::showRoomCameras(const std::vector<lum::FusionConfiguration>& list) {
    std::vector<int> serials;
    for (const auto& configuration : list) serials.push_back(static_cast<int>(configuration.serial_number));
    ui->report_panel->setRoomCameras(serials);
}

void MainWindow::onOption_button_released() {
    wsCreator->resize(size());
    wsCreator->move(0, 0);
    wsCreator->show();
    wsCreator->raise();
    ui->centralwidget->hide();
}

void MainWindow::onWsCreatorClosed() {
    wsCreator->hide();
    wsCreator->clearUi();
    ui->centralwidget->show();
}

void MainWindow::enableModules(bool enabled) {
    ui->odom_check->setEnabled(enabled);
    ui->sk_check->setEnabled(enabled);
}

void MainWindow::on_odom_check_toggled(bool) {
    if (fusion.isRunning()) fusion.enableModule(MODULES::TRACKING);
}

void MainWindow::on_sk_check_toggled(bool) {
    if (fusion.isRunning()) fusion.enableModule(MODULES::SKELETON);
}

void MainWindow::on_check_metrics_toggled(bool checked) { SharedData::getInstance().showMetrics = checked; }

void MainWindow::on_check_rawdata_toggled(bool checked) { SharedData::getInstance().showRawData = checked; }

void MainWindow::makeCalibrationPossible(bool possible) {
    ui->calibration_button->setEnabled(possible);
    ui->calibration_button->setToolTip(possible ? QString() : tr("You must setup your room before calibrating it."));
    Style::styleButton(*ui->calibration_button);
    ui->fusion_error_label->setVisible(possible);
    ui->fusion_error->setVisible(possible);
    ui->fusion_error->clear();
}

void MainWindow::on_calibration_button_released() {
    if (ui->calibration_button->isChecked()) {
        if (fusion.startCalib(CALIB::SKELETON_CALIB) == 0) {
            ui->progressBar->setValue(0);
            ui->progressBar->show();
            ui->calibration_button->setText(tr("Finish calibration"));
            ui->roomSetupButton->setEnabled(false);
            ui->report_panel->show();
        } else {
            // Nothing started, so the button must not claim otherwise.
            ui->calibration_button->setChecked(false);
        }
    } else {
        ui->progressBar->hide();
        fusion.finishCalib(CALIB::SKELETON_CALIB);
        ui->calibration_button->setText(tr("Start calibration"));
        ui->roomSetupButton->setEnabled(true);
    }
    ui->check_rawdata->setChecked(true);
}

void MainWindow::resizeEvent(QResizeEvent* event) {
    QMainWindow::resizeEvent(event);
    fitOverlays();
}

void MainWindow::fitOverlays() {
    if (wsCreator) wsCreator->setGeometry(rect());
    const QRect view = ui->view_stack->geometry();
    ui->spinner_wnd->move(view.center().x() - ui->spinner_wnd->width() / 2,
                          view.center().y() - ui->spinner_wnd->height() / 2);
}
