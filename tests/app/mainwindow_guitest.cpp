// The main window around its rooms: the first screen, the status colours, the room set-up
// over the window, rooms that fail to start or stop slowly, and the calibration panel.
#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QHeaderView>
#include <QLabel>
#include <QMessageBox>
#include <QMouseEvent>
#include <QPointer>
#include <QProcess>
#include <QProgressBar>
#include <QPushButton>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QSettings>
#include <QStackedWidget>
#include <QStandardPaths>
#include <QStyle>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QTest>
#include <QTranslator>

#include <unistd.h>

#include <cmath>
#include <thread>

#include "app/application.hpp"
#include "app/calibration_panel.hpp"
#include "app/mainwindow.hpp"
#include "style/waiting_spinner_widget.hpp"
#include "testing/camera_report.hpp"
#include "viewer/gl_viewer.hpp"
#include "tests/app/recording_prompts.hpp"
#include "tests/app/widget_lookup.hpp"
#include "workspace/room_usb.hpp"
#include "workspace/wscreator.hpp"

class MainWindowTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanup();
    void withoutRoomNothingCanBeCalibrated();
    void statusTextIsGreenOnlyForExactSuccess();
    void roomSetupCoversTheWindowUntilClosed();
    void roomThatFailsToStartKeepsTheSpinnerTurning();
    void reportPanelNamesTheCamerasThatLackData();
    void closingWhileTheRoomStartsNeverWaitsForABox();
    void stoppingARoomNeverHoldsTheWindow();
    void frenchTranslationIsFoundByLanguageName();
    void calibrationModelChoiceIsRemembered();
    void signalsOfNoLiveRoomAreDropped();
    void panelFiguresHoldSteadyAndNeverFlatter();
    void movedCameraStaysMarkedAfterItsWarning();
    void viewDrawsOnlyWhenSomethingChanged();
    void helpNeedsNoDisplay();

private:
    template <typename T>
    T* find(const char* name) {
        return findWidget<T>(window.get(), name);
    }

    QTemporaryDir runtime;
    std::shared_ptr<RecordingPrompts> prompts;
    std::unique_ptr<MainWindow> window;
};

void MainWindowTest::initTestCase() {
    qputenv("PYRA_RUNTIME_DIR", runtime.filePath("ipc").toLocal8Bit());
    qputenv("PYRA_MODEL_CACHE", runtime.filePath("models").toLocal8Bit());
    qputenv("PYRA_MODEL_OPTIMIZE_SECONDS", "0");
    applyLook(*qApp);
    // Settings this test writes stay out of the user's own.
    QStandardPaths::setTestModeEnabled(true);
}

void MainWindowTest::init() {
    prompts = std::make_shared<RecordingPrompts>();
    window = std::make_unique<MainWindow>(nullptr, prompts);
    window->show();
    QVERIFY(QTest::qWaitForWindowExposed(window.get()));
}

void MainWindowTest::cleanup() { window.reset(); }

void MainWindowTest::withoutRoomNothingCanBeCalibrated() {
    auto* button = find<QPushButton>("calibration_button");
    QVERIFY(!button->isEnabled());
    QCOMPARE(button->toolTip(), QString("You must set up your room before calibrating it."));
    QVERIFY(!find<QLabel>("fusion_error")->isVisible());
    QVERIFY(!find<QLabel>("fusion_error_label")->isVisible());
    QVERIFY(!find<QCheckBox>("sk_check")->isVisible());
    QVERIFY(!find<QCheckBox>("odom_check")->isEnabled());
    QVERIFY(!find<QProgressBar>("progressBar")->isVisible());
    QCOMPARE(find<QStackedWidget>("view_stack")->currentWidget()->objectName(), QString("first_screen"));
    QVERIFY(!find<WaitingSpinnerWidget>("spinner")->isSpinning());
    windowPicture(*window).save(screenshotPath("app_first_screen.png"));
}

void MainWindowTest::statusTextIsGreenOnlyForExactSuccess() {
    auto* label = find<QLabel>("fusion_error");
    window->updateFusionErrorLabel("SUCCESS");
    QCOMPARE(label->text(), QString("<font color=green>SUCCESS</font>"));
    window->updateFusionErrorLabel("success");
    QCOMPARE(label->text(), QString("<font color=red>success</font>"));
}

void MainWindowTest::roomSetupCoversTheWindowUntilClosed() {
    WSCreator* creator = window->workspaceCreator();
    QVERIFY(!creator->isVisible());
    QTest::mouseClick(find<QPushButton>("roomSetupButton"), Qt::LeftButton);
    QVERIFY(creator->isVisible());
    QVERIFY(!find<QWidget>("centralwidget")->isVisible());
    QCOMPARE(creator->geometry(), window->rect());
    windowPicture(*window).save(screenshotPath("app_room_setup.png"));

    window->resize(window->width() + 40, window->height() + 20);
    QTRY_COMPARE(creator->size(), window->size());

    emit creator->selfClose();
    QVERIFY(!creator->isVisible());
    QVERIFY(find<QWidget>("centralwidget")->isVisible());
}

void MainWindowTest::roomThatFailsToStartKeepsTheSpinnerTurning() {
    // One plugged-in camera alone cannot be calibrated: the worker gives up at start-up.
    const roomusb::UsbRoom usb = roomusb::discover();
    QVERIFY(!usb.configurations.empty());
    window->onFusionConfigReady({usb.configurations.front()});

    auto* spinner = find<WaitingSpinnerWidget>("spinner");
    QVERIFY(spinner->isSpinning());
    QCOMPARE(find<QStackedWidget>("view_stack")->currentWidget()->objectName(), QString("viewer_page"));
    windowPicture(*window).save(screenshotPath("app_room_starting.png"));

    QTRY_VERIFY_WITH_TIMEOUT(prompts->titles().contains("Only ONE opened camera"), 30000);
    QTRY_VERIFY_WITH_TIMEOUT(window->fusionWorker().isFinished(), 30000);
    QCoreApplication::processEvents();
    QVERIFY(spinner->isSpinning());
    auto* button = find<QPushButton>("calibration_button");
    QVERIFY(!button->isEnabled());
    QTest::mouseClick(button, Qt::LeftButton);
    QVERIFY(!button->isChecked());
}

void MainWindowTest::reportPanelNamesTheCamerasThatLackData() {
    CalibrationPanel panel;
    panel.setRoomCameras({3, 1, 2});
    QCOMPARE(panel.rowCount(), 3);
    QCOMPARE(panel.readinessAt(0), CameraReadiness::NoData);

    const auto camera = synthetic::cameraReport;
    CalibrationReport report;
    report.usable = true;
    // Camera 3 of the room never shared a frame; camera 4 is not in the room list at all.
    report.cameras = {camera(1, {{2, 80}}, 0.0, 0.0), camera(2, {{1, 80}, {4, 10}}, 0.1, 3.0),
                      camera(4, {{2, 10}}, std::nan(""), std::nan(""))};
    panel.setReport(report);
    QCOMPARE(panel.rowCount(), 4);
    QCOMPARE(panel.readinessAt(0), CameraReadiness::NoData);
    QCOMPARE(panel.readinessAt(1), CameraReadiness::Good);
    QCOMPARE(panel.readinessAt(2), CameraReadiness::Good);
    QCOMPARE(panel.readinessAt(3), CameraReadiness::NeedsFrames);
    QVERIFY(panel.summaryText().contains("2 of 4 cameras"));
    QVERIFY(panel.summaryText().contains("4: Keep walking where 4 and 2 both see you"));

    // Enough frames but a wide or unknown sigma is not good yet; an unusable solve never is.
    const CameraCalibrationReport wide = camera(5, {{1, 90}}, 0.1, 8.0);
    QCOMPARE(assessCamera(&wide, report).readiness, CameraReadiness::Uncertain);
    const CameraCalibrationReport fine = camera(5, {{1, 90}}, 0.1, 1.0);
    report.usable = false;
    QCOMPARE(assessCamera(&fine, report).readiness, CameraReadiness::NeedsFrames);
    report.usable = true;

    report.cameras = {camera(1, {{2, 80}}, 0.0, 0.0), camera(2, {{1, 80}}, 0.1, 3.0)};
    panel.setRoomCameras({1, 2});
    panel.setReport(report);
    QVERIFY(panel.summaryText().contains("you can finish"));
    // A refused floor is said beside the verdicts: the poses hold, the heights do not.
    auto* floor = panel.findChild<QLabel*>("report_floor");
    QVERIFY(floor->isHidden());
    report.floorRefused = "the feet stayed on one spot or one line (0.05 m across); the floor is left unlevelled";
    panel.setReport(report);
    QVERIFY(!floor->isHidden());
    QVERIFY2(floor->text().contains("one spot or one line"), qPrintable(floor->text()));
    report.floorRefused.clear();

    // At the width the window gives it, every state is read in full.
    panel.setFixedWidth(420);
    panel.show();
    QVERIFY(QTest::qWaitForWindowExposed(&panel));
    auto* table = panel.findChild<QTableWidget*>("report_table");
    for (int row = 0; row < table->rowCount(); ++row) {
        const QString state = table->item(row, 3)->text();
        QVERIFY2(table->columnWidth(3) >= table->fontMetrics().horizontalAdvance(state), qPrintable(state));
    }
    QVERIFY(table->horizontalHeader()->length() <= table->viewport()->width());
    // So is every column's heading, with six cameras of eight-digit serials; their advice
    // leaves the table room to be read.
    std::vector<int> serials;
    for (int i = 0; i < 6; ++i) serials.push_back(30123456 + i);
    report.cameras.clear();
    for (int serial : serials) {
        std::map<int, int> shared;
        for (int other : serials)
            if (other != serial) shared[other] = 1234;
        report.cameras.push_back(camera(serial, shared, 0.25, 12.3));
        report.cameras.back().clockOffsetS = -2.0;  // a clock two seconds behind
        report.cameras.back().clockOffsetSigmaS = 0.0008;
    }
    panel.setRoomCameras(serials);
    panel.setReport(report);
    QVERIFY(panel.summaryText().contains("and 3 more"));
    const QHeaderView* header = table->horizontalHeader();
    const int margins = 2 * header->style()->pixelMetric(QStyle::PM_HeaderMargin, nullptr, header);
    for (int column = 0; column < table->columnCount(); ++column) {
        const QString heading = table->horizontalHeaderItem(column)->text();
        int widest = 0;
        for (const QString& line : heading.split('\n'))
            widest = std::max(widest, header->fontMetrics().horizontalAdvance(line));
        QVERIFY2(header->sectionSize(column) >= widest + margins, qPrintable(heading));
    }
    // A partner's line may wrap at its space, but never cut a serial short.
    const QString partner = table->item(0, 1)->text().split('\n').first().split(' ').first();
    QVERIFY2(table->columnWidth(1) >= table->fontMetrics().horizontalAdvance(partner) + margins, qPrintable(partner));
}

void MainWindowTest::closingWhileTheRoomStartsNeverWaitsForABox() {
    // Real boxes: the worker tells the user that nobody could be subscribed while the
    // window is being closed, and neither may wait for the other.
    window = std::make_unique<MainWindow>();
    window->show();
    QVERIFY(QTest::qWaitForWindowExposed(window.get()));
    std::vector<lum::FusionConfiguration> room(2);
    for (int i = 0; i < 2; ++i) {
        room[i].serial_number = 52001 + i;
        room[i].communication_parameters.setForLocalNetwork("127.0.0.1", 47000 + 4 * (getpid() % 2000) + 2 * i);
    }
    window->onFusionConfigReady(room);
    auto boxShown = [] {
        for (QWidget* widget : QApplication::topLevelWidgets())
            if (auto* box = qobject_cast<QMessageBox*>(widget); box && box->isVisible()) return true;
        return false;
    };
    QTRY_VERIFY_WITH_TIMEOUT(boxShown(), 60000);
    window.reset();
}

void MainWindowTest::stoppingARoomNeverHoldsTheWindow() {
    // A first start optimises the AI model for seconds on the worker's side. Changing the
    // room, stopping it from the set-up or closing the window meanwhile returns at once.
    const auto restore = qScopeGuard([cache = qgetenv("PYRA_MODEL_CACHE")] {
        qputenv("PYRA_MODEL_CACHE", cache);
        qputenv("PYRA_MODEL_OPTIMIZE_SECONDS", "0");
    });
    // Set while no room runs: the environment is not safe to change beside running threads.
    QTemporaryDir models;
    qputenv("PYRA_MODEL_CACHE", models.path().toLocal8Bit());
    qputenv("PYRA_MODEL_OPTIMIZE_SECONDS", "6");
    const auto optimising = [this] { return prompts->titles().count("AI model not downloaded or optimized"); };
    const std::vector<lum::FusionConfiguration> room = roomusb::discover().configurations;
    QVERIFY(room.size() >= 2);

    window->onFusionConfigReady(room);
    QTRY_COMPARE_WITH_TIMEOUT(optimising(), 1, 30000);
    QElapsedTimer clock;
    clock.start();
    emit window->workspaceCreator()->stopFusionWorker();
    window->onFusionConfigReady(room);
    QVERIFY2(clock.elapsed() < 2000, qPrintable(QString::number(clock.elapsed())));
    QVERIFY(!find<QPushButton>("calibration_button")->isEnabled());
    // The room asked for last starts once the first has stopped.
    QTRY_VERIFY_WITH_TIMEOUT(!find<WaitingSpinnerWidget>("spinner")->isSpinning(), 60000);
    QVERIFY(find<QPushButton>("calibration_button")->isEnabled());

    // Without its optimised file, the model is optimised again when the next room starts.
    for (const QFileInfo& file : QDir(models.path()).entryInfoList({"*.engine"}, QDir::Files))
        QVERIFY(QFile::remove(file.filePath()));
    window->onFusionConfigReady(room);
    QTRY_COMPARE_WITH_TIMEOUT(optimising(), 2, 30000);
    // The window is deleted once it really closed, which is after the room stopped.
    MainWindow* closing = window.release();
    closing->setAttribute(Qt::WA_DeleteOnClose);
    QPointer<MainWindow> alive(closing);
    clock.restart();
    closing->close();
    QVERIFY2(clock.elapsed() < 2000, qPrintable(QString::number(clock.elapsed())));
    QVERIFY(alive && !alive->isVisible());
    QTRY_VERIFY_WITH_TIMEOUT(alive.isNull(), 60000);
}

void MainWindowTest::frenchTranslationIsFoundByLanguageName() {
    // The look-up uses full locale names; a file per language must serve every country.
    QTranslator translator;
    QVERIFY(translator.load(":/i18n/untitled_" + QLocale("fr-CA").name()));
    QCoreApplication::installTranslator(&translator);
    MainWindow french(nullptr, prompts);
    QCoreApplication::removeTranslator(&translator);
    auto* button = french.findChild<QPushButton*>("calibration_button");
    QCOMPARE(button->text(), QString("Démarrer la calibration"));
    QCOMPARE(button->toolTip(), QString("Vous devez configurer votre pièce avant de la calibrer."));
}

void MainWindowTest::calibrationModelChoiceIsRemembered() {
    QSettings().remove("calibration/model");
    window = std::make_unique<MainWindow>(nullptr, prompts);
    QVERIFY(find<QAction>("refined_model_action")->isChecked());
    find<QAction>("classic_model_action")->trigger();
    QVERIFY(!find<QAction>("refined_model_action")->isChecked());
    window = std::make_unique<MainWindow>(nullptr, prompts);
    QVERIFY(find<QAction>("classic_model_action")->isChecked());
    QSettings().remove("calibration/model");
}

void MainWindowTest::signalsOfNoLiveRoomAreDropped() {
    // What a worker thread emits for a room that is stopping (or already gone) never
    // reaches the window: the calibration button stays off, the status stays empty.
    FusionWorker& worker = window->fusionWorker();
    std::thread late([&worker] {
        emit worker.isInit();
        emit worker.updateFusionError("SUCCESS");
        emit worker.incCalib(40);
    });
    late.join();
    QTest::qWait(50);
    QVERIFY(!find<QPushButton>("calibration_button")->isEnabled());
    QVERIFY(find<QLabel>("fusion_error")->text().isEmpty());
    QCOMPARE(find<QProgressBar>("progressBar")->value(), 0);
}

void MainWindowTest::panelFiguresHoldSteadyAndNeverFlatter() {
    CalibrationPanel panel;
    panel.setRoomCameras({1, 2});
    CalibrationReport report;
    report.usable = true;
    const auto reportWith = [&](double sigmaMm) {
        report.cameras = {synthetic::cameraReport(1, {{2, 80}}, 0.05, sigmaMm),
                          synthetic::cameraReport(2, {{1, 80}}, 0.05, 1.0)};
        panel.setReport(report);
        return panel.readinessAt(0);
    };
    // 2 sigma of 10.4 mm against 10 mm needed is not a pass, and must not read as one.
    QCOMPARE(reportWith(5.2), CameraReadiness::Uncertain);
    auto* table = panel.findChild<QTableWidget*>("report_table");
    const QString advice = table->item(0, 3)->toolTip();
    QVERIFY2(!advice.contains("/ 10 mm at"), qPrintable(advice));
    // Once Good, a camera wobbling just past the threshold stays Good; well past it, not.
    QCOMPARE(reportWith(4.9), CameraReadiness::Good);
    QCOMPARE(reportWith(5.3), CameraReadiness::Good);
    QCOMPARE(reportWith(4.8), CameraReadiness::Good);
    QCOMPARE(reportWith(6.5), CameraReadiness::Uncertain);
    QCOMPARE(reportWith(5.3), CameraReadiness::Uncertain);
    QCOMPARE(panel.camerasNotGood(), std::vector<int>{1});
    panel.clear();
    QCOMPARE(reportWith(5.3), CameraReadiness::Uncertain);

    // The first frames only count once each person is matched across the cameras: until
    // then the moments held grow steadily, rather than "0 frames" jumping to a hundred.
    auto* frames = panel.findChild<QLabel*>("report_frames");
    const std::vector<calib::CameraPeople> unpaired{{1, 1, false}, {2, 1, false}};
    for (int moment = 1; moment <= 3; ++moment) {
        panel.setCameraPeople(unpaired);
        panel.setFrameCount(0);
        QVERIFY2(frames->text().contains(QString("moments held: %1,").arg(moment)), qPrintable(frames->text()));
    }
    panel.setCameraPeople({{1, 1, true}, {2, 1, true}});
    panel.setFrameCount(74);
    QVERIFY2(frames->text().startsWith("74 frames collected"), qPrintable(frames->text()));
}

void MainWindowTest::movedCameraStaysMarkedAfterItsWarning() {
    window->onCameraMoved(41002, 2.5, 120.0);
    QVERIFY(prompts->titles().contains("Camera moved"));
    // The warning was acknowledged long ago; the fusion itself keeps running well.
    window->updateFusionErrorLabel("SUCCESS");
    const QString status = find<QLabel>("fusion_error")->text();
    QVERIFY2(status.contains("41002") && !status.contains("green"), qPrintable(status));
}

void MainWindowTest::viewDrawsOnlyWhenSomethingChanged() {
    window->setAsReady();
    find<WaitingSpinnerWidget>("spinner")->stop();
    find<QWidget>("spinner_wnd")->hide();
    auto* viewer = find<GlViewer>("viewer");
    QVERIFY(QTest::qWaitForWindowExposed(viewer));
    QSignalSpy frames(viewer, &QOpenGLWidget::frameSwapped);
    QTRY_VERIFY(!frames.isEmpty());  // the first picture of the view, and its exposure
    QTest::qWait(200);
    // A still scene: the repaint timer ticks several times and draws nothing.
    frames.clear();
    QTest::qWait(500);
    QCOMPARE(frames.count(), 0);
    // New data, then a turn of the view: one frame each.
    viewer->updateData();
    QTRY_COMPARE(frames.count(), 1);
    const QPoint from = viewer->rect().center(), to = from + QPoint(30, 0);
    QTest::mousePress(viewer, Qt::LeftButton, {}, from);
    QMouseEvent drag(QEvent::MouseMove, to, viewer->mapToGlobal(to), Qt::NoButton, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(viewer, &drag);
    QTest::mouseRelease(viewer, Qt::LeftButton, {}, to);
    QTRY_COMPARE(frames.count(), 2);
}

void MainWindowTest::helpNeedsNoDisplay() {
    QProcess halden;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"}) environment.remove(name);
    halden.setProcessEnvironment(environment);
    halden.start(HALDEN_BINARY_DIR "/app/halden", {"--help"});
    QVERIFY(halden.waitForFinished(20000));
    QCOMPARE(halden.exitCode(), 0);
    QVERIFY(halden.readAllStandardOutput().contains("--room <file>"));
}

QTEST_MAIN(MainWindowTest)
#include "mainwindow_guitest.moc"
