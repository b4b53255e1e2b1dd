// The window's recording menu on the virtual room clock: a walk recorded from a running
// room, played back as fast as possible, calibrated and saved; a file cut short or no
// recording at all is said, never played silently.
#include <QAction>
#include <QFile>
#include <QFileInfo>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>

#include <condition_variable>
#include <mutex>
#include <thread>

#include "app/application.hpp"
#include "app/calibration_panel.hpp"
#include "app/mainwindow.hpp"
#include "app/recording_actions.hpp"
#include "app/walk_recorder.hpp"
#include "pyra_sim/scene.hpp"
#include "recording/recording_reader.hpp"
#include "style/waiting_spinner_widget.hpp"
#include "tests/app/recording_prompts.hpp"
#include "tests/app/scratch_room.hpp"
#include "tests/app/widget_lookup.hpp"
#include "workspace/room_usb.hpp"

namespace {

class OpeningPrompts : public RecordingPrompts {
public:
    QString askOpenFileName(const QString&, const QString&, const QString&) override { return openName; }
    QString openName;
};

// Generous limits on runs whose outcome the virtual clock fixes; only a stuck run meets them.
constexpr int kPatienceMs = 120000;

// Holds a recording's lock on a thread of its own, as the worker's thread does while it
// writes a chunk; a GUI thread still waiting for it after 20 s is let go and the fact kept.
class LockedRecording {
public:
    explicit LockedRecording(std::shared_ptr<WalkRecorder> walk) : holder([this, walk] {
        std::unique_lock<std::mutex> held(walk->mutex);
        std::unique_lock<std::mutex> lock(mutex);
        taken = true;
        changed.notify_all();
        blocked = !changed.wait_for(lock, std::chrono::seconds(20), [this] { return answered; });
    }) {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait(lock, [this] { return taken; });
    }
    ~LockedRecording() { release(); }
    // False when the GUI thread had to be let go.
    bool release() {
        {
            std::lock_guard<std::mutex> lock(mutex);
            answered = true;
            changed.notify_all();
        }
        if (holder.joinable()) holder.join();
        return !blocked;
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    bool taken = false, answered = false, blocked = false;
    std::thread holder;
};

}  // namespace

class RecordingActionsTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void recordsAWalkAndCalibratesItsReplay();
    void damagedRecordingsAreSaid();

private:
    template <typename T>
    T* find(const char* name) {
        return findWidget<T>(window.get(), name);
    }
    QAction* action(const char* name) { return window->findChild<QAction*>(name); }
    bool said(const QString& title) const { return prompts->titles().contains(title); }

    QTemporaryDir home;
    std::shared_ptr<OpeningPrompts> prompts;
    std::unique_ptr<MainWindow> window;
};

void RecordingActionsTest::initTestCase() {
    qputenv("HOME", home.path().toLocal8Bit());
    useScratchRoom(home);
    qputenv("PYRA_SIM_CLOCK", "virtual");
    pyra_sim::setActiveScene(pyra_sim::defaultScene());
    applyLook(*qApp);
    prompts = std::make_shared<OpeningPrompts>();
    window = std::make_unique<MainWindow>(nullptr, prompts);
    window->show();
    QVERIFY(QTest::qWaitForWindowExposed(window.get()));
}

void RecordingActionsTest::recordsAWalkAndCalibratesItsReplay() {
    // Nothing runs yet: nothing to record.
    action("record_walk_action")->trigger();
    QVERIFY(said("Nothing to record"));

    window->onFusionConfigReady(roomusb::discover().configurations);
    QTRY_VERIFY_WITH_TIMEOUT(!find<WaitingSpinnerWidget>("spinner")->isSpinning(), kPatienceMs);
    const QString walk = home.filePath("walk");
    prompts->saveName = walk;
    action("record_walk_action")->trigger();
    QCOMPARE(action("record_walk_action")->text(), QString("Stop recording"));
    // About half a minute of the room, on its virtual clock.
    QTRY_VERIFY_WITH_TIMEOUT(QFileInfo(walk + ".rec").size() > 2000000, kPatienceMs);
    // Stopped while the worker's thread is writing a chunk: the menu answers at once, and
    // the file is said saved once the chunk is written.
    {
        LockedRecording writing(window->findChild<RecordingActions*>()->activeRecording());
        action("record_walk_action")->trigger();
        QCOMPARE(action("record_walk_action")->text(), QString("Record walk..."));
        QVERIFY2(writing.release(), "the GUI thread waited for the recording's lock");
    }
    QTRY_VERIFY_WITH_TIMEOUT(said("Recording saved"), kPatienceMs);

    rec::RecordingReader reader;
    std::string problem;
    QVERIFY2(reader.open((walk + ".rec").toStdString(), &problem), problem.c_str());
    QCOMPARE(reader.header().room.size(), pyra_sim::activeScene().cameras.size());
    int entries = 0;
    while (reader.next()) ++entries;
    QVERIFY(!reader.truncated());
    QVERIFY(entries > 1000);

    // Played back, it calibrates from its first set on, and is saved as a live walk is.
    action("fast_replay_action")->setChecked(true);
    prompts->openName = walk + ".rec";
    action("open_recording_action")->trigger();
    auto* button = find<QPushButton>("calibration_button");
    QTRY_COMPARE_WITH_TIMEOUT(button->text(), QString("Finish calibration"), kPatienceMs);
    QTRY_VERIFY_WITH_TIMEOUT(said("Recording played"), kPatienceMs);
    QVERIFY(find<CalibrationPanel>("report_panel")->hasUsableReport());
    // A recording is no room to record from.
    action("record_walk_action")->trigger();
    QCOMPARE(prompts->titles().count("Nothing to record"), 2);

    prompts->confirmAnswer = true;
    prompts->saveName = home.filePath("replayed.json");
    QTRY_VERIFY(button->isEnabled());
    QTest::mouseClick(button, Qt::LeftButton);
    QTRY_COMPARE_WITH_TIMEOUT(button->text(), QString("Start calibration"), kPatienceMs);
    const auto saved = lum::readFusionConfigurationFile(prompts->saveName.toStdString(),
                                                        lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP, lum::UNIT::METER,
                                                        &problem);
    QCOMPARE(saved.size(), pyra_sim::activeScene().cameras.size());
}

void RecordingActionsTest::damagedRecordingsAreSaid() {
    const QString text = home.filePath("notes.rec");
    QFile notes(text);
    QVERIFY(notes.open(QIODevice::WriteOnly));
    notes.write("not a recording");
    notes.close();
    prompts->openName = text;
    action("open_recording_action")->trigger();
    QVERIFY(said("Recording not opened"));

    // Cut mid-chunk: played up to the cut, and said.
    QFile whole(home.filePath("walk.rec"));
    QVERIFY(whole.open(QIODevice::ReadOnly));
    const QByteArray bytes = whole.readAll();
    QFile cut(home.filePath("cut.rec"));
    QVERIFY(cut.open(QIODevice::WriteOnly));
    cut.write(bytes.left(bytes.size() / 2));
    cut.close();
    prompts->openName = cut.fileName();
    action("open_recording_action")->trigger();
    QTRY_VERIFY_WITH_TIMEOUT(said("Recording ends early"), kPatienceMs);
    QCOMPARE(find<QPushButton>("calibration_button")->text(), QString("Finish calibration"));
    window.reset();
}

QTEST_MAIN(RecordingActionsTest)
#include "recording_actions_guitest.moc"
