// Halden's main window: owns the fusion worker, the room set-up dialog, the 3D view, the
// busy spinner and the repaint timer, and turns the user's actions into worker calls.
#pragma once

#include <QMainWindow>
#include <QTimer>

#include <atomic>
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
class QActionGroup;
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
    // The cameras of the room set up last, live or recorded, as they were set up.
    const std::vector<lum::FusionConfiguration>& roomCameras() const { return runningRoom; }
    // A recording of `room` plays in place of live cameras: `start` sets the worker up with
    // it. Its calibration starts with its first set, so the whole walk counts.
    void playRecording(std::vector<lum::FusionConfiguration> room, std::function<void()> start);
    bool playingRecording() const { return playing; }

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
    // A camera no longer agrees with the others: said once, and the status keeps naming it
    // until the room is calibrated again or replaced.
    void onCameraMoved(int serial, double rotationDeg, double shiftMm);

private slots:
    void on_odom_check_toggled(bool checked);
    void on_sk_check_toggled(bool checked);
    void on_check_metrics_toggled(bool checked);
    void on_check_rawdata_toggled(bool checked);
    void on_calibration_button_released();
    void onCalibrationConcluded(std::vector<lum::FusionConfiguration> calibrated);
    void onCalibrationStored(QString outcome, bool stored);
    void onCalibrationReport(CalibrationReport report);

protected:
    void resizeEvent(QResizeEvent* event) override;
    // With a room running, the window goes at once and closes once the room has stopped. A
    // walk under way is only thrown away when the user agrees, and a calibration being
    // stored in a hub workspace is waited for (closing again stops waiting).
    void closeEvent(QCloseEvent* event) override;

private:
    // Where the calibration button stands. `Starting` lasts until the worker has emptied
    // its store, `Concluding` from Finish until the last solve has landed, both off the
    // GUI thread.
    enum class CalibrationStep { Unavailable, Idle, Starting, Collecting, Concluding };

    void setCalibrationStep(CalibrationStep step);
    // Stops the running room off the GUI thread; `start` then sets up the next one.
    void stopRoom();
    void replaceRoom(std::function<void()> start);
    void beginCalibration();
    void onCalibrationStarted(int room, bool started);
    void showCollecting();
    // False when the user chose to keep walking rather than save cameras that are not Good.
    bool agreesToSaveWhatIsNotGood();
    void concludeCalibration();
    // Runs `action` on the GUI thread, unless the room live when this was called has gone
    // (stopped or replaced) by then: a stopping room's late signals never reach the next.
    void forLiveRoom(std::function<void()> action);
    void showStatus();
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
    // Starts or concludes a calibration off the GUI thread; one call at a time.
    std::thread calibrationCall;
    QActionGroup* modelChoice = nullptr;
    // The room whose signals the window takes: a number given when a room starts, 0 while
    // none runs or one is stopping. Read by worker threads as they emit.
    std::atomic<int> liveRoom{0};
    int roomsStarted = 0;
    QString lastStatus;
    bool viewerDataPending = false;
    std::vector<int> movedCameras;
    std::vector<lum::FusionConfiguration> lastCalibration;
    // The cameras of the room set up last, as the set-up dialog listed them.
    std::vector<lum::FusionConfiguration> runningRoom;
    bool roomCalibrated = false;
    // A room was set up and has not been stopped since.
    bool roomOpen = false;
    // The room set up last is a recording.
    bool playing = false;
    // Closing was asked while the last solve landed: the window closes after saving.
    bool closeRequested = false;
    // Closing was asked while a calibration was being stored in a hub workspace.
    bool closeAfterUpload = false;
};
