// "Export calibration..." in the real window: the chosen file's ending picks the format,
// and a name that picks none writes nothing and says why.
#include <QAction>
#include <QApplication>
#include <QFile>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include "app/mainwindow.hpp"
#include "lum/lum.hpp"
#include "tests/app/recording_prompts.hpp"
#include "tests/app/widget_lookup.hpp"

namespace {

class ExportPrompts : public RecordingPrompts {
public:
    QString askOpenFileName(const QString&, const QString&, const QString&) override { return openName; }
    QString openName;
};

}  // namespace

class ExportActionTest : public QObject {
    Q_OBJECT
private slots:
    void exportsTheChosenRoomInTheFormatOfTheName();
};

void ExportActionTest::exportsTheChosenRoomInTheFormatOfTheName() {
    QStandardPaths::setTestModeEnabled(true);
    QTemporaryDir folder;
    std::vector<lum::FusionConfiguration> cameras(2);
    for (int i = 0; i < 2; ++i) {
        cameras[i].serial_number = 41001 + i;
        cameras[i].communication_parameters.setForLocalNetwork("127.0.0.1", 30000 + 2 * i);
        cameras[i].pose.setTranslation(lum::Translation(float(i), 2.5f, -1.0f));
    }
    const QString room = folder.filePath("room.json");
    QVERIFY(lum::writeConfigurationFile(room.toStdString(), cameras, lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP,
                                        lum::UNIT::METER));
    auto prompts = std::make_shared<ExportPrompts>();
    MainWindow window(nullptr, prompts);
    auto* action = findWidget<QAction>(&window, "export_calibration_action");
    prompts->openName = room;

    prompts->saveName = folder.filePath("room.toml");
    action->trigger();
    QFile toml(prompts->saveName);
    QVERIFY(toml.open(QIODevice::ReadOnly));
    const QByteArray text = toml.readAll();
    QVERIFY(text.contains("[cam_1]") && text.contains("name = \"41002\""));
    QCOMPARE(prompts->titles().last(), QString("Calibration exported"));

    prompts->saveName = folder.filePath("room.txt");
    action->trigger();
    QVERIFY(!QFile::exists(prompts->saveName));
    QCOMPARE(prompts->titles().last(), QString("Calibration not exported"));
}

QTEST_MAIN(ExportActionTest)
#include "export_action_guitest.moc"
