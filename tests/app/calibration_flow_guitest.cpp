// The calibration button on a running simulated room, through the real widgets: clicks
// that come too fast, finishing with nothing to save, cancelling the save, replacing a
// file, and a second calibration that starts from nothing and is closed on.
#include <QAction>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QPushButton>
#include <QSignalSpy>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QTest>
#include <QTreeWidget>

#include "app/application.hpp"
#include "app/calibration_panel.hpp"
#include "app/mainwindow.hpp"
#include "pyra_sim/scene.hpp"
#include "style/waiting_spinner_widget.hpp"
#include "tests/app/recording_prompts.hpp"
#include "tests/app/scratch_room.hpp"
#include "tests/app/widget_lookup.hpp"
#include "testing/synthetic_store.hpp"
#include "workspace/room_usb.hpp"
#include "workspace/wscreator.hpp"

class CalibrationFlowTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void doubleClickStartsOnceAndEmptyFinishAsksNothing();
    void cancelledSaveWritesNothingAndKeepsTheResult();
    void secondCalibrationStartsFromNothing();

private:
    template <typename T>
    T* find(const char* name) {
        return findWidget<T>(window.get(), name);
    }
    QPushButton* button() { return find<QPushButton>("calibration_button"); }
    void clickWhenSettled(QPushButton* target);
    bool said(const QString& title) const { return prompts->titles().contains(title); }

    QTemporaryDir home;
    std::shared_ptr<RecordingPrompts> prompts;
    std::unique_ptr<MainWindow> window;
};

void CalibrationFlowTest::initTestCase() {
    // The home folder is where a careless save would land.
    qputenv("HOME", home.path().toLocal8Bit());
    useScratchRoom(home);
    // On the room's virtual clock every solve lands after the same frames however busy the
    // machine, and with nobody walking the store holds only what the test hands in.
    qputenv("PYRA_SIM_CLOCK", "virtual");
    pyra_sim::Scene empty = pyra_sim::defaultScene();
    empty.people.count = 0;
    pyra_sim::setActiveScene(empty);
    applyLook(*qApp);

    prompts = std::make_shared<RecordingPrompts>();
    window = std::make_unique<MainWindow>(nullptr, prompts);
    window->show();
    QVERIFY(QTest::qWaitForWindowExposed(window.get()));
    window->onFusionConfigReady(roomusb::discover().configurations);
    QTRY_VERIFY_WITH_TIMEOUT(!find<WaitingSpinnerWidget>("spinner")->isSpinning(), 60000);
    // Before any calibration every camera draws in its own frame, and the view says so in a
    // corner, not over the people walking.
    auto* note = find<QLabel>("uncalibrated_note");
    QVERIFY(note->isVisible());
    auto* viewer = find<QWidget>("viewer");
    QVERIFY2(note->width() * note->height() * 12 <= viewer->width() * viewer->height(),
             qPrintable(QString("%1x%2").arg(note->width()).arg(note->height())));

    // Reopened, the room set-up lists the cameras running now.
    QTest::mouseClick(find<QPushButton>("roomSetupButton"), Qt::LeftButton);
    auto* list = find<QTreeWidget>("camera_list");
    QCOMPARE(list->topLevelItemCount(), int(roomusb::discover().configurations.size()));
    QCOMPARE(list->topLevelItem(0)->text(1), QString("Running now"));
    emit window->workspaceCreator()->selfClose();
}

void CalibrationFlowTest::cleanupTestCase() { window.reset(); }

void CalibrationFlowTest::clickWhenSettled(QPushButton* target) {
    QTRY_VERIFY_WITH_TIMEOUT(target->isEnabled(), 60000);
    QTest::mouseClick(target, Qt::LeftButton);
}

void CalibrationFlowTest::doubleClickStartsOnceAndEmptyFinishAsksNothing() {
    QTest::mouseDClick(button(), Qt::LeftButton);
    QTest::mouseClick(button(), Qt::LeftButton);
    QTRY_COMPARE_WITH_TIMEOUT(button()->text(), QString("Finish calibration"), 30000);
    QVERIFY(button()->isChecked());
    // Frames of one model cannot feed the other: the choice waits for the next walk.
    auto* refined = window->findChild<QAction*>("refined_model_action");
    QVERIFY(!refined->isEnabled());
    // Every wrapped text of the panel shows whole at the window's size.
    QTRY_COMPARE(clippedLabel(find<CalibrationPanel>("report_panel")), QString());

    // Finished before any solve: said at once, no file name asked for.
    clickWhenSettled(button());
    QTRY_VERIFY_WITH_TIMEOUT(said("No calibration to save"), 60000);
    QCOMPARE(int(prompts->saveQuestions), 0);
    QCOMPARE(button()->text(), QString("Start calibration"));
    QVERIFY(!find<QPushButton>("save_calibration_button")->isVisible());
    QVERIFY(refined->isEnabled());
}

void CalibrationFlowTest::cancelledSaveWritesNothingAndKeepsTheResult() {
    QSignalSpy reports(&window->fusionWorker(), &FusionWorker::calibrationReport);
    clickWhenSettled(button());
    QTRY_COMPARE_WITH_TIMEOUT(button()->text(), QString("Finish calibration"), 30000);
    std::map<int, lum::Transform> truth;
    for (const auto& camera : pyra_sim::activeScene().cameras) truth[int(camera.serial)] = camera.pose;
    window->fusionWorker().setCalibrationFrames(synthetic::syntheticStore(truth, 25, 0.003, 7).frames);
    QTRY_VERIFY_WITH_TIMEOUT(!reports.isEmpty() && reports.last().at(0).value<CalibrationReport>().usable, 120000);
    QTRY_VERIFY(!find<QLabel>("uncalibrated_note")->isVisible());

    // Finishing with cameras that are not Good names them, and the user may walk on.
    prompts->saveName.clear();
    prompts->confirmAnswer = false;
    clickWhenSettled(button());
    QVERIFY(said("Save cameras that are not Good?"));
    QCOMPARE(button()->text(), QString("Finish calibration"));
    QCOMPARE(int(prompts->saveQuestions), 0);
    prompts->confirmAnswer = true;
    clickWhenSettled(button());
    prompts->confirmAnswer = false;
    // The last solve is awaited off the GUI thread: the window answers meanwhile.
    QCOMPARE(button()->text(), QString("Finishing..."));
    QVERIFY(!button()->isEnabled());
    QTRY_VERIFY_WITH_TIMEOUT(said("Calibration not saved"), 60000);
    QVERIFY(!QFile::exists(home.filePath("calib.json")));
    QCOMPARE(prompts->lastSaveDirectory, home.filePath("calib.json"));
    auto* save = find<QPushButton>("save_calibration_button");
    QVERIFY(save->isVisible());

    // An existing file is only replaced when the user agrees.
    QVERIFY(QDir(home.path()).mkpath("rooms"));
    const QString path = home.filePath("rooms/room.json");
    QFile existing(path);
    QVERIFY(existing.open(QIODevice::WriteOnly));
    existing.write("mine");
    existing.close();
    prompts->saveName = path;
    clickWhenSettled(save);
    QVERIFY(said("Replace file?"));
    QVERIFY(existing.open(QIODevice::ReadOnly));
    QCOMPARE(existing.readAll(), QByteArray("mine"));
    existing.close();

    prompts->confirmAnswer = true;
    clickWhenSettled(save);
    std::string error;
    QCOMPARE(lum::readFusionConfigurationFile(path.toStdString(), lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP,
                                              lum::UNIT::METER, &error)
                 .size(),
             truth.size());
    QVERIFY(!save->isVisible());
    QVERIFY(find<CalibrationPanel>("report_panel")->summaryText().contains("Calibration saved to " + path));
    windowPicture(*window).save(screenshotPath("app_calibration_saved.png"));

    // The next save starts where the last one went.
    prompts->saveName.clear();
    QVERIFY(!window->saveCalibration());
    QCOMPARE(prompts->lastSaveDirectory, home.filePath("rooms/calib.json"));
}

void CalibrationFlowTest::secondCalibrationStartsFromNothing() {
    clickWhenSettled(button());
    QTRY_COMPARE_WITH_TIMEOUT(button()->text(), QString("Finish calibration"), 30000);
    // The 25 frames of the last walk are gone.
    QCOMPARE(window->fusionWorker().calibrationFrameCount(), 0);
    auto* panel = find<CalibrationPanel>("report_panel");
    for (int row = 0; row < panel->rowCount(); ++row) QCOMPARE(panel->readinessAt(row), CameraReadiness::NoData);

    // Closing mid-walk asks first; a No keeps the window and the walk.
    prompts->confirmAnswer = false;
    window->close();
    QVERIFY(said("Throw the calibration away?"));
    QVERIFY(window->isVisible());
    QCOMPARE(button()->text(), QString("Finish calibration"));

    // Closing right after Finish is kept: the window goes once the walk is concluded.
    clickWhenSettled(button());
    window->close();
    QTRY_VERIFY_WITH_TIMEOUT(!window->isVisible(), 60000);
    QCOMPARE(button()->text(), QString("Start calibration"));
}

QTEST_MAIN(CalibrationFlowTest)
#include "calibration_flow_guitest.moc"
