// Closing the window right after Finish, with Qt's own dialogs answered as a user would:
// the calibration is saved through the real save dialog, and then the window goes.
#include <QApplication>
#include <QFileDialog>
#include <QFileInfo>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include "app/application.hpp"
#include "app/mainwindow.hpp"
#include "pyra_sim/scene.hpp"
#include "style/waiting_spinner_widget.hpp"
#include "tests/app/scratch_room.hpp"
#include "tests/app/widget_lookup.hpp"
#include "testing/synthetic_store.hpp"
#include "workspace/room_usb.hpp"

class CloseAfterFinishTest : public QObject {
    Q_OBJECT
private slots:
    void closingDuringFinishSavesThenCloses();
};

void CloseAfterFinishTest::closingDuringFinishSavesThenCloses() {
    QTemporaryDir home;
    qputenv("HOME", home.path().toLocal8Bit());
    useScratchRoom(home);
    applyLook(*qApp);

    // The user: says Yes to every question and saves where asked.
    const QString saved = home.filePath("room.json");
    QStringList asked;
    QTimer user;
    user.setInterval(20);
    connect(&user, &QTimer::timeout, [&] {
        QWidget* modal = QApplication::activeModalWidget();
        if (auto* dialog = qobject_cast<QFileDialog*>(modal)) {
            asked << "save";
            dialog->selectFile(saved);
            QMetaObject::invokeMethod(dialog, "accept", Qt::QueuedConnection);
        } else if (auto* box = qobject_cast<QMessageBox*>(modal)) {
            asked << box->windowTitle();
            QAbstractButton* yes = box->button(QMessageBox::Yes);
            (yes ? yes : box->buttons().first())->click();
        }
    });
    user.start();

    auto* window = new MainWindow();
    window->setAttribute(Qt::WA_DeleteOnClose);
    QPointer<MainWindow> alive(window);
    window->show();
    QVERIFY(QTest::qWaitForWindowExposed(window));
    window->onFusionConfigReady(roomusb::discover().configurations);
    QTRY_VERIFY_WITH_TIMEOUT(!findWidget<WaitingSpinnerWidget>(window, "spinner")->isSpinning(), 60000);

    auto* button = findWidget<QPushButton>(window, "calibration_button");
    QSignalSpy reports(&window->fusionWorker(), &FusionWorker::calibrationReport);
    QTRY_VERIFY_WITH_TIMEOUT(button->isEnabled(), 30000);
    QTest::mouseClick(button, Qt::LeftButton);
    QTRY_COMPARE_WITH_TIMEOUT(button->text(), QString("Finish calibration"), 30000);
    std::map<int, lum::Transform> truth;
    for (const auto& camera : pyra_sim::activeScene().cameras) truth[int(camera.serial)] = camera.pose;
    window->fusionWorker().setCalibrationFrames(synthetic::syntheticStore(truth, 25, 0.003, 7).frames);
    QTRY_VERIFY_WITH_TIMEOUT(!reports.isEmpty() && reports.last().at(0).value<CalibrationReport>().usable, 120000);

    QTRY_VERIFY_WITH_TIMEOUT(button->isEnabled(), 30000);
    QTest::mouseClick(button, Qt::LeftButton);
    QTRY_COMPARE_WITH_TIMEOUT(button->text(), QString("Finishing..."), 30000);
    window->close();
    QTRY_VERIFY_WITH_TIMEOUT(asked.contains("save"), 60000);
    QVERIFY(QFileInfo::exists(saved));
    QTRY_VERIFY_WITH_TIMEOUT(alive.isNull(), 60000);
    QVERIFY2(!asked.contains("Calibration not saved"), qPrintable(asked.join(", ")));
    qInfo("%s", qPrintable(asked.join(", ")));
}

QTEST_MAIN(CloseAfterFinishTest)
#include "close_after_finish_guitest.moc"
