// Room set-up dialog, driven through its widgets: hand-entered cameras, USB search on the
// simulated room, "create" and the room file chooser; saves a picture of each page.
#include <QComboBox>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QSlider>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QToolButton>
#include <QTreeWidget>

#include "pyra_sim/scene.hpp"
#include "style/style.hpp"
#include "tests/workspace/wscreator_test_support.hpp"

Q_DECLARE_METATYPE(std::string)

using Rooms = std::vector<lum::FusionConfiguration>;

class WSCreatorTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() {
        QVERIFY(home_.isValid());
        isolateSettings(home_.path());
        qRegisterMetaType<std::string>("std::string");
    }
    void init() {
        prompts_ = RecordingPrompts();
        dialog_ = std::make_unique<WSCreator>(nullptr, &prompts_);
        dialog_->resize(1040, 640);
        dialog_->show();
        QVERIFY(QTest::qWaitForWindowExposed(dialog_.get()));
    }
    void cleanup() { dialog_.reset(); }
    void manualEntryRules();
    void usbThenManualThenCreateTwice();
    void usbSearchWithNoCamera();
    void roomFileAndParameters();

private:
    template <typename T>
    T* widget(const char* name) { return find<T>(*dialog_, name); }
    // Replaces the field's text as a user would, so that every edit signal fires.
    void type(const char* field, const QString& text) {
        auto* edit = widget<QLineEdit>(field);
        edit->selectAll();
        if (text.isEmpty())
            QTest::keyClick(edit, Qt::Key_Backspace);
        else
            QTest::keyClicks(edit, text);
    }
    void enter(const QString& serial, const QString& address) {
        type("networkSNLineEdit", serial);
        type("networkAddressLineEdit", address);
        QTest::keyClick(widget<QLineEdit>("networkAddressLineEdit"), Qt::Key_Return);
    }
    void page(int index) { widget<QTabWidget>("source_tabs")->setCurrentIndex(index); }
    void click(const char* name) { QTest::mouseClick(widget<QAbstractButton>(name), Qt::LeftButton); }

    QTemporaryDir home_;
    RecordingPrompts prompts_;
    std::unique_ptr<WSCreator> dialog_;
};

void WSCreatorTest::manualEntryRules() {
    const QString ok = "Make sure to have an application running that send fusion data (like Body Relay).";
    const QString badBoth = "The given serial number, IP address and/or port are invalid.";
    const QString badSerial = "The given serial number is invalid.";
    const QString badAddress = "The given IP address and/or port are invalid.";
    struct Case {
        QString serial, address, tooltip;
        bool serialError, addressError;
    };
    const Case cases[] = {
        {"12345", "192.168.1.10:30000", ok, false, false},
        {"12345", "192.168.1.10::30000", ok, false, false},
        {"12345", "192.168.1.10:30001", badAddress, false, true},
        {"12345", "192.168.1.256:30000", badAddress, false, true},
        {"12345", "192.168.1:30000", badAddress, false, true},
        {"12345", "10.0.0.1:65536", badAddress, false, true},
        {"12345", "", badAddress, false, false},
        {"0", "192.168.1.10:30000", badSerial, true, false},
        {"-3", "192.168.1.10:30000", badSerial, true, false},
        {"12a", "1.2.3", badBoth, true, true},
    };
    page(2);
    auto* serial = widget<QLineEdit>("networkSNLineEdit");
    auto* address = widget<QLineEdit>("networkAddressLineEdit");
    auto* add = widget<QPushButton>("network_add_button");
    for (const Case& c : cases) {
        type("networkSNLineEdit", c.serial);
        type("networkAddressLineEdit", c.address);
        const QByteArray what = (c.serial + " / " + c.address).toUtf8();
        QVERIFY2(add->isEnabled() == (c.tooltip == ok), what.constData());
        QVERIFY2(add->toolTip() == c.tooltip, what.constData());
        QVERIFY2((serial->styleSheet() == Style::lineEditError()) == c.serialError, what.constData());
        QVERIFY2((address->styleSheet() == Style::lineEditError()) == c.addressError, what.constData());
    }
    type("networkSNLineEdit", "");
    type("networkAddressLineEdit", "");
    QVERIFY(!add->isEnabled());
    QVERIFY(address->toolTip().contains("must be even"));
    QCOMPARE(serial->styleSheet(), Style::lineEditNormal());
}

void WSCreatorTest::usbThenManualThenCreateTwice() {
    QSignalSpy stops(dialog_.get(), &WSCreator::stopFusionWorker);
    QSignalSpy rooms(dialog_.get(), &WSCreator::FusionConfigReady);
    auto* list = widget<QTreeWidget>("camera_list");

    page(1);
    click("usb_discover_button");
    QCOMPARE(list->topLevelItemCount(), 4);
    QVERIFY(list->topLevelItem(0)->text(0).startsWith("Pyra: 41001 ID: "));
    QVERIFY(list->topLevelItem(0)->text(1).startsWith("USB"));
    QVERIFY(savePicture(*dialog_, "wscreator_usb.png"));
    click("create_toolButton");
    QCOMPARE(rooms.size(), 1);
    for (const auto& camera : rooms.takeFirst().at(0).value<Rooms>()) {
        QVERIFY(camera.communication_parameters.getType() == lum::COMM_TYPE::SHARED_MEMORY);
        QCOMPARE(camera.input_type.getNumber(), camera.serial_number);
    }

    // A manual entry replaces the USB cameras, and a serial entered again replaces its line.
    page(2);
    enter("777", "10.0.0.9:30000");
    QCOMPARE(list->topLevelItemCount(), 1);
    QCOMPARE(list->topLevelItem(0)->text(0), QString("SN777 - 10.0.0.9:30000"));
    QCOMPARE(list->topLevelItem(0)->text(1), QString("Network, 10.0.0.9:30000"));
    enter("777", "192.168.1.10::30002");
    enter("1000", "192.168.1.21:30004");
    QCOMPARE(list->topLevelItemCount(), 2);
    QVERIFY(savePicture(*dialog_, "wscreator_network.png"));

    const int stopsBefore = stops.size();
    click("create_toolButton");
    QCOMPARE(stops.size(), stopsBefore + 1);
    const Rooms manual = rooms.takeFirst().at(0).value<Rooms>();
    QCOMPARE(manual.size(), std::size_t(2));
    QCOMPARE(manual[0].serial_number, 1000);  // ordered by the serial's text
    QCOMPARE(manual[1].serial_number, 777);
    QVERIFY(manual[1].communication_parameters.getType() == lum::COMM_TYPE::LOCAL_NETWORK);
    QCOMPARE(QString::fromStdString(manual[1].communication_parameters.getIpAddress()), QString("192.168.1.10"));
    QCOMPARE(manual[1].communication_parameters.getPort(), 30002);

    QVERIFY(prompts_.messages.empty());
    click("create_toolButton");
    QCOMPARE(rooms.size(), 0);
    QCOMPARE(prompts_.lastTitle(), QString("No valid cameras"));
    QVERIFY(prompts_.lastText().contains("add network cameras by serial number and address"));
}

void WSCreatorTest::usbSearchWithNoCamera() {
    pyra_sim::Scene empty = pyra_sim::defaultScene();
    empty.cameras.clear();
    pyra_sim::setActiveScene(empty);
    page(1);
    click("usb_discover_button");
    pyra_sim::setActiveScene(pyra_sim::defaultScene());

    QCOMPARE(prompts_.messages.size(), std::size_t(1));
    QCOMPARE(prompts_.lastTitle(), QString("No cameras found"));
    QCOMPARE(prompts_.lastText(),
             QString("No camera found plugged on this computer. Please either plug one or use network cameras."));
    QVERIFY(prompts_.messages.back().icon == PromptIcon::Warning);
    QCOMPARE(dialog_->sourceKind(), int(WSCreator::SOURCE_NONE));
    QVERIFY(widget<QTreeWidget>("camera_list")->isHidden());
}

void WSCreatorTest::roomFileAndParameters() {
    QSignalSpy files(dialog_.get(), &WSCreator::createFile);
    QSignalSpy stops(dialog_.get(), &WSCreator::stopFusionWorker);
    click("local_load");  // cancelled
    QCOMPARE(files.size() + stops.size(), 0);
    QCOMPARE(prompts_.questions.last(),
             "Open a room or calibration file|" + QDir::homePath() + "|Room or calibration files (*.json)");

    const QString folder = home_.path() + QString::fromUtf8("/salle été");
    QVERIFY(QDir().mkpath(folder));
    prompts_.openFileName = folder + "/room.json";
    click("local_load");
    QCOMPARE(stops.size(), 1);
    QCOMPARE(files.size(), 1);
    QCOMPARE(QByteArray::fromStdString(files.first().at(0).value<std::string>()), prompts_.openFileName.toUtf8());
    // A new dialog opens the chooser where the last room file was.
    init();
    QVERIFY(savePicture(*dialog_, "wscreator_file.png"));
    click("local_load");
    QCOMPARE(prompts_.questions.last().section('|', 1, 1), folder);

    auto* depth = widget<QComboBox>("combo_depth");
    QCOMPARE(dialog_->getParameters().depthMode, 4);
    depth->setCurrentIndex(-1);
    QCOMPARE(dialog_->getParameters().depthMode, 3);
    depth->setCurrentIndex(2);
    widget<QComboBox>("combo_body")->setCurrentIndex(2);
    widget<QComboBox>("combo_flip")->setCurrentIndex(1);
    widget<QSlider>("horizontalSlider")->setValue(65);
    const AppParams params = dialog_->getParameters();
    QCOMPARE(params.depthMode, 5);
    QCOMPARE(params.bodyModel, 2);
    QCOMPARE(params.flipMode, 1);
    QCOMPARE(params.detectionConfidence, 65);
}

QTEST_MAIN(WSCreatorTest)
#include "wscreator_guitest.moc"
