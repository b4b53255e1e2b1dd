// "Record walk..." and "Open recording..." in the window's File menu: a running room's
// captures written to a recording, and a recording played through the window's own view.
#pragma once

#include <QObject>

#include <map>
#include <memory>
#include <thread>

class MainWindow;
class QAction;
class UserPrompts;
struct PlayOutcome;
struct WalkRecorder;

class RecordingActions : public QObject {
    Q_OBJECT
public:
    // `prompts` must outlive the window; the actions are the window's children.
    RecordingActions(MainWindow& window, UserPrompts& prompts);
    ~RecordingActions() override;

    // True from "Record walk..." until "Stop recording" or the room stopping.
    bool recording() const { return recorder != nullptr; }
    // The walk being written, while recording() holds.
    std::shared_ptr<WalkRecorder> activeRecording() const { return recorder; }

private:
    void toggleRecording();
    void startRecording();
    // Closes the file off the GUI thread and, when `tell`, then says how many captures it holds.
    void stopRecording(bool tell);
    void onRecordingClosed(const std::shared_ptr<WalkRecorder>& done, bool tell);
    void openRecording();
    void onPlayEnded();

    MainWindow& window;
    UserPrompts& prompts;
    QAction* recordAction = nullptr;
    QAction* fastAction = nullptr;
    std::shared_ptr<WalkRecorder> recorder;
    // Recordings being closed, each by its own thread, joined once it has reported back.
    std::map<const WalkRecorder*, std::thread> closers;
    // The recording playing now, for what its end says.
    std::shared_ptr<PlayOutcome> playOutcome;
    QString playingName;
};
