// The window's menus and switches answer while the fusion worker's thread is held inside
// its lock (as by a long set or a solve), and the chosen model rules the next walk.
#include <QAction>
#include <QCheckBox>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "app/application.hpp"
#include "app/mainwindow.hpp"
#include "pyra_sim/scene.hpp"
#include "style/waiting_spinner_widget.hpp"
#include "tests/app/recording_prompts.hpp"
#include "tests/app/scratch_room.hpp"
#include "tests/app/widget_lookup.hpp"
#include "workspace/room_usb.hpp"

namespace {

constexpr int kPatienceMs = 120000;

// Holds the worker's thread in a slot it calls with its lock taken, until released; a
// GUI thread still stuck on that lock after `patience` is let go and the fact kept.
class LockHolder {
public:
    void enter() {
        std::unique_lock<std::mutex> lock(mutex);
        if (!armed) return;
        inside = true;
        changed.notify_all();
        changed.wait(lock, [this] { return !armed; });
    }
    void arm() {
        std::lock_guard<std::mutex> lock(mutex);
        armed = true;
        inside = false;
    }
    bool isInside() {
        std::lock_guard<std::mutex> lock(mutex);
        return inside;
    }
    void releaseAfter(std::chrono::seconds patience) {
        watchdog = std::thread([this, patience] {
            std::unique_lock<std::mutex> lock(mutex);
            if (!changed.wait_for(lock, patience, [this] { return answered; })) blocked = true;
            armed = false;
            changed.notify_all();
        });
    }
    // False when the GUI thread had to be let go.
    bool answer() {
        {
            std::lock_guard<std::mutex> lock(mutex);
            answered = true;
            changed.notify_all();
        }
        watchdog.join();
        return !blocked;
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    std::thread watchdog;
    bool armed = false, inside = false, answered = false, blocked = false;
};

}  // namespace

class WorkerLockTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase() { window.reset(); }
    void menusAnswerWhileTheWorkerHoldsItsLock();
    void theChosenModelRulesTheNextWalk();

private:
    QAction* action(const char* name) { return findWidget<QAction>(window.get(), name); }
    QPushButton* button() { return findWidget<QPushButton>(window.get(), "calibration_button"); }
    // Starts a calibration, lets `walkSets` sets through it and finishes; `lists`: how
    // many people lists it sent.
    void walk(int walkSets, int& lists);

    QTemporaryDir home;
    std::shared_ptr<RecordingPrompts> prompts;
    std::unique_ptr<MainWindow> window;
    LockHolder holder;
    std::atomic<int> sets{0};
    std::atomic<int> peopleLists{0};
};

void WorkerLockTest::initTestCase() {
    qputenv("HOME", home.path().toLocal8Bit());
    useScratchRoom(home);
    qputenv("PYRA_SIM_CLOCK", "virtual");
    pyra_sim::setActiveScene(pyra_sim::defaultScene());
    applyLook(*qApp);
    prompts = std::make_shared<RecordingPrompts>();
    window = std::make_unique<MainWindow>(nullptr, prompts);
    FusionWorker& worker = window->fusionWorker();
    // Emitted by the worker's thread with its lock taken.
    connect(&worker, &FusionWorker::newData, window.get(), [this] { ++sets, holder.enter(); }, Qt::DirectConnection);
    connect(
        &worker, &FusionWorker::cameraPeople, window.get(), [this] { ++peopleLists; }, Qt::DirectConnection);
    window->show();
    QVERIFY(QTest::qWaitForWindowExposed(window.get()));
    window->onFusionConfigReady(roomusb::discover().configurations);
    QTRY_VERIFY_WITH_TIMEOUT(!findWidget<WaitingSpinnerWidget>(window.get(), "spinner")->isSpinning(), kPatienceMs);
}

void WorkerLockTest::menusAnswerWhileTheWorkerHoldsItsLock() {
    holder.arm();
    QTRY_VERIFY_WITH_TIMEOUT(holder.isInside(), kPatienceMs);
    holder.releaseAfter(std::chrono::seconds(20));
    action("classic_model_action")->trigger();
    prompts->saveName = home.filePath("walk");
    action("record_walk_action")->trigger();
    action("record_walk_action")->trigger();
    // Not offered to the user, but wired all the same.
    findWidget<QCheckBox>(window.get(), "sk_check")->toggle();
    findWidget<QCheckBox>(window.get(), "odom_check")->toggle();
    QVERIFY2(holder.answer(), "the GUI thread waited for the worker's lock");
    QTRY_VERIFY_WITH_TIMEOUT(prompts->titles().contains("Recording saved"), kPatienceMs);
}

void WorkerLockTest::walk(int walkSets, int& lists) {
    QTRY_VERIFY_WITH_TIMEOUT(button()->isEnabled(), kPatienceMs);
    QTest::mouseClick(button(), Qt::LeftButton);
    QTRY_COMPARE_WITH_TIMEOUT(button()->text(), QString("Finish calibration"), kPatienceMs);
    peopleLists = 0;
    const int until = sets + walkSets;
    QTRY_VERIFY_WITH_TIMEOUT(sets >= until, kPatienceMs);
    lists = peopleLists;
    QTRY_VERIFY_WITH_TIMEOUT(button()->isEnabled(), kPatienceMs);
    prompts->confirmAnswer = true;
    QTest::mouseClick(button(), Qt::LeftButton);
    QTRY_COMPARE_WITH_TIMEOUT(button()->text(), QString("Start calibration"), kPatienceMs);
}

// Only the refined model tells people apart across cameras, twice a second of the walk.
void WorkerLockTest::theChosenModelRulesTheNextWalk() {
    QVERIFY(action("classic_model_action")->isChecked());
    int lists = -1;
    walk(150, lists);
    if (QTest::currentTestFailed()) return;
    QCOMPARE(lists, 0);
    action("refined_model_action")->trigger();
    walk(150, lists);
    QVERIFY(lists > 0);
}

QTEST_MAIN(WorkerLockTest)
#include "worker_lock_guitest.moc"
