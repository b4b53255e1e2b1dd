// Halden's main window: owns the fusion worker, the room set-up dialog, the 3D view, the
// busy spinner and the repaint timer, and turns the user's actions into worker calls.
#pragma once

#include <QMainWindow>
#include <QTimer>

#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "core/shared_records.hpp"
#include "app/room_stopper.hpp"
#include "fusion/fusion_worker.hpp"
#include "lum/lum.hpp"

namespace Ui {
class MainWindow;
}

class GuiPrompts;
class QLabel;
class UserPrompts;
class WSCreator;

class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    // Every message and question of the window, its workers and its dialog goes through
    // `prompts`; by default they are Qt dialogs over this window.
    explicit MainWindow(QWidget* parent = nullptr, std::shared_ptr<UserPrompts> prompts = nullptr);
    ~MainWindow() override;

    WSCreator* workspaceCreator() const { return wsCreator; }
    FusionWorker& fusionWorker() { return fusion; }

public slots:
    void updateUI();
    void calibprogress(int value);
    void updateFusionErrorLabel(QString text);
    void stopSpinner();
    void setAsReady();
    void openConfFile(std::string path);
    void onFusionConfigReady(std::vector<lum::FusionConfiguration> list);
    void onOption_button_released();
    void onWsCreatorClosed();
    void enableModules(bool enabled);
    void makeCalibrationPossible(bool possible);
    // Asks where to save the last calibration and writes it; false when nothing was saved.
    bool saveCalibration();

private slots:
    void on_odom_check_toggled(bool checked);
    void on_sk_check_toggled(bool checked);
    void on_check_metrics_toggled(bool checked);
    void on_check_rawdata_toggled(bool checked);
    void on_calibration_button_released();
    void onCalibrationConcluded(std::vector<lum::FusionConfiguration> calibrated);
    void onCalibrationStored(QString outcome);
    void onCalibrationReport(CalibrationReport report);

protected:
    void resizeEvent(QResizeEvent* event) override;
    // With a room running, the window goes at once and closes once the room has stopped.
    void closeEvent(QCloseEvent* event) override;

private:
    // Where the calibration button stands. `Concluding` lasts from Finish until the last
    // solve has landed, off the GUI thread.
    enum class CalibrationStep { Unavailable, Idle, Collecting, Concluding };

    void setCalibrationStep(CalibrationStep step);
    // Stops the running room off the GUI thread; `start` then sets up the next one.
    void stopRoom();
    void replaceRoom(std::function<void()> start);
    void beginCalibration();
    void concludeCalibration();
    void keepUnsavedCalibration(const QString& why);
    void showUncalibratedNote(bool show);
    void styleWidgets();
    void connectAll();
    void fitOverlays();
    void showRoomCameras(const std::vector<lum::FusionConfiguration>& list);

    // The worker and the timer come first: they are built before the form.
    FusionWorker fusion;
    RoomStopper roomStopper{fusion};
    QTimer timer;
    std::unique_ptr<Ui::MainWindow> ui;
    std::shared_ptr<UserPrompts> prompts;
    // The last "camera moved" note, kept so that it stays on screen until dismissed.
    std::shared_ptr<ShownMessage> movedMessage;
    WSCreator* wsCreator = nullptr;
    QLabel* uncalibratedNote = nullptr;
    CalibrationStep step = CalibrationStep::Unavailable;
    // Clicks on the calibration button wait for this, so a double-click is one click.
    QTimer settling;
    std::thread concluder;
    std::vector<lum::FusionConfiguration> lastCalibration;
    bool roomCalibrated = false;
    // A room was set up and has not been stopped since.
    bool roomOpen = false;
    // Closing was asked while the last solve landed: the window closes after saving.
    bool closeRequested = false;
};
