// Halden end to end on the default simulated room, through the real widgets: set up the
// room from USB, calibrate while the simulated person walks, save, and compare the saved
// poses with the room's truth.
#include <QDir>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QTest>
#include <QToolButton>

#include <cmath>

#include "app/application.hpp"
#include "app/calibration_panel.hpp"
#include "app/mainwindow.hpp"
#include "pyra_sim/room_clock.hpp"
#include "pyra_sim/scene.hpp"
#include "style/waiting_spinner_widget.hpp"
#include "tests/app/recording_prompts.hpp"
#include "tests/app/scratch_room.hpp"
#include "tests/app/widget_lookup.hpp"
#include "testing/pose_error.hpp"
#include "workspace/wscreator.hpp"

namespace {

// The default room's trackers pull each joint by how it is seen, which the Refined model
// cannot tell from where a camera stands: its cameras settle near 11-12 mm at two sigma,
// short of Good's 10 mm, while lying 3-8 mm from the truth. Four minutes of walking is
// where they settle; a camera that reads Good by then is held to its promise below.
constexpr double kWalkLimitS = 240.0;

// The room's cameras relative to the smallest serial: comparable between the truth and a
// calibration, whatever reference and floor each was expressed in.
std::map<int, lum::Transform> relativeToReference(std::map<int, lum::Transform> poses) {
    const lum::Transform toReference = lum::Transform::inverse(poses.begin()->second);
    for (auto& [serial, pose] : poses) pose = toReference * pose;
    return poses;
}

}  // namespace

class EndToEndTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void calibratesTheDefaultRoom();

private:
    template <typename T>
    T* find(QObject* in, const char* name) {
        T* widget = in->findChild<T*>(name);
        if (!widget) qFatal("no widget %s", name);
        return widget;
    }

    QTemporaryDir scratch;
};

void EndToEndTest::initTestCase() {
    useScratchRoom(scratch);
    // The room runs as fast as the fusion takes its frames, the same walk on every run, so
    // the minutes of walking cost seconds and a loaded machine changes nothing.
    qputenv("PYRA_SIM_CLOCK", "virtual");
    applyLook(*qApp);
}

void EndToEndTest::calibratesTheDefaultRoom() {
    auto prompts = std::make_shared<RecordingPrompts>();
    prompts->saveName = scratch.filePath("room.json");
    prompts->confirmAnswer = true;
    MainWindow window(nullptr, prompts);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));

    // Room set-up: the cameras plugged into this computer.
    QTest::mouseClick(find<QPushButton>(&window, "roomSetupButton"), Qt::LeftButton);
    WSCreator* creator = window.workspaceCreator();
    QVERIFY(creator->isVisible());
    find<QTabWidget>(creator, "source_tabs")->setCurrentWidget(find<QWidget>(creator, "usb_page"));
    find<QPushButton>(creator, "usb_discover_button")->click();
    windowPicture(window).save(screenshotPath("app_room_setup_usb.png"));
    find<QToolButton>(creator, "create_toolButton")->click();
    QVERIFY(!creator->isVisible());

    auto* spinner = find<WaitingSpinnerWidget>(&window, "spinner");
    auto* calibrate = find<QPushButton>(&window, "calibration_button");
    QTRY_VERIFY_WITH_TIMEOUT(!spinner->isSpinning(), 60000);
    QVERIFY(calibrate->isEnabled());
    QVERIFY(calibrate->toolTip().isEmpty());
    QTRY_COMPARE_WITH_TIMEOUT(find<QLabel>(&window, "fusion_error")->text(),
                              QString("<font color=green>SUCCESS</font>"), 20000);
    QTest::qWait(1500);
    windowPicture(window).save(screenshotPath("app_room_running.png"));

    // Calibrate until every camera reads Good, as the README promises.
    QTest::mouseClick(calibrate, Qt::LeftButton);
    QVERIFY(calibrate->isChecked());
    QTRY_COMPARE_WITH_TIMEOUT(calibrate->text(), QString("Finish calibration"), 30000);
    const uint64_t walkStartNs = pyra_sim::virtualNowNs();
    QVERIFY(!find<QPushButton>(&window, "roomSetupButton")->isEnabled());
    auto* progress = find<QProgressBar>(&window, "progressBar");
    QVERIFY(progress->isVisible());
    QTRY_VERIFY_WITH_TIMEOUT(progress->value() > 0, 30000);
    windowPicture(window).save(screenshotPath("converge_start.png"));

    auto* panel = find<CalibrationPanel>(&window, "report_panel");
    QVERIFY(panel->isVisible());
    QCOMPARE(panel->rowCount(), int(pyra_sim::activeScene().cameras.size()));
    QTRY_VERIFY_WITH_TIMEOUT(panel->readinessAt(0) != CameraReadiness::NoData, 60000);
    windowPicture(window).save(screenshotPath("converge_first_solve.png"));
    // Bounded by the room's own clock, so a busy machine only makes the wait longer.
    const auto walkedS = [walkStartNs] { return double(pyra_sim::virtualNowNs() - walkStartNs) * 1e-9; };
    while (!panel->camerasNotGood().empty() && walkedS() < kWalkLimitS) QTest::qWait(20);
    const std::vector<int> notGood = panel->camerasNotGood();
    qInfo("%zu of %d cameras Good after %.0f s of walking", panel->rowCount() - notGood.size(), panel->rowCount(),
          walkedS());
    windowPicture(window).save(screenshotPath("app_calibrating.png"));
    windowPicture(window).save(screenshotPath("converge_settled.png"));
    QTRY_COMPARE(clippedLabel(panel), QString());

    // Finish asks before saving cameras that are not Good, and only then.
    QTRY_VERIFY(calibrate->isEnabled());
    QTest::mouseClick(calibrate, Qt::LeftButton);
    QTRY_COMPARE_WITH_TIMEOUT(calibrate->text(), QString("Start calibration"), 60000);
    QVERIFY(!calibrate->isChecked());
    QVERIFY(!progress->isVisible());
    QVERIFY(find<QPushButton>(&window, "roomSetupButton")->isEnabled());
    // Only the passing note about the body model being prepared; no warning, no error.
    QStringList titles = prompts->titles();
    titles.removeAll("AI model not downloaded or optimized");
    const QStringList expected =
        notGood.empty() ? QStringList() : QStringList{QStringLiteral("Save cameras that are not Good?")};
    QCOMPARE(titles, expected);
    windowPicture(window).save(screenshotPath("app_calibrated.png"));

    // The saved poses against the truth.
    std::string error;
    const auto saved = lum::readFusionConfigurationFile(scratch.filePath("room.json").toStdString(),
                                                        lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP, lum::UNIT::METER,
                                                        &error);
    QVERIFY2(!saved.empty(), error.c_str());
    std::map<int, lum::Transform> truth, calibrated;
    for (const auto& camera : pyra_sim::activeScene().cameras) truth[int(camera.serial)] = camera.pose;
    for (const auto& camera : saved) calibrated[camera.serial_number] = camera.pose;
    QCOMPARE(calibrated.size(), truth.size());
    // The level floor: "up" seen from the reference camera, and every camera's height.
    const Eigen::Vector3d up = Eigen::Vector3d::UnitY();
    const auto upSeenBy = [&up](const lum::Transform& pose) {
        return Eigen::Vector3d(synthetic::toIsometry(pose).linear().transpose() * up);
    };
    const double tiltDeg = std::acos(std::min(1.0, upSeenBy(truth.begin()->second).dot(
                                                       upSeenBy(calibrated.begin()->second)))) * 180.0 / M_PI;
    qInfo("floor tilt %.2f deg", tiltDeg);
    QVERIFY(tiltDeg < 0.5);
    for (const auto& [serial, truePose] : truth) {
        const double heightMm =
            1000.0 * std::abs(truePose.getTranslation().y - calibrated.at(serial).getTranslation().y);
        qInfo("camera %d: height error %.1f mm", serial, heightMm);
        QVERIFY(heightMm < 30.0);
    }
    const std::map<int, lum::Transform> trueLayout = relativeToReference(truth);
    const std::map<int, lum::Transform> foundLayout = relativeToReference(calibrated);
    for (const auto& [serial, truePose] : trueLayout) {
        const auto [rotationDeg, translationMm] = synthetic::poseError(truePose, foundLayout.at(serial));
        qInfo("camera %d: rotation error %.3f deg, translation error %.1f mm", serial, rotationDeg, translationMm);
        // Good means within 0.3 deg and 10 mm at two sigma; against the reference, whose own
        // error adds in, a camera at the limit may land a little further. A camera that is not
        // Good is saved on the user's word and must still be as close.
        QVERIFY(rotationDeg < 0.3);
        QVERIFY(translationMm < 15.0);
    }
}

QTEST_MAIN(EndToEndTest)
#include "end_to_end_guitest.moc"
