// Room set-up dialog against the hub emulator on loopback: tenant rules, sign-in, workspaces,
// publishing cameras (served by body_relay processes), stored calibrations and the push.
#include <QComboBox>
#include <QFile>
#include <QLineEdit>
#include <QListWidget>
#include <QNetworkReply>
#include <QProcess>
#include <QPushButton>
#include <QSignalSpy>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QTreeWidget>

#include <nlohmann/json.hpp>

#include <iostream>
#include <sstream>

#include <unistd.h>

#include "hub/rest_requester.hpp"
#include "tests/workspace/wscreator_test_support.hpp"
#include "workspace/room_file.hpp"

using nlohmann::json;

namespace {

json device(const std::string& id, const std::string& name, int serial, int port) {
    json d = {{"id", id},
              {"name", name},
              {"host", {{"network", {{{"ip_address", "127.0.0.1"}}}}}},
              {"camera", {{{"serial_number", serial}}}}};
    if (port > 0) d["publication_port"] = port;
    return d;
}

lum::FusionConfiguration camera(int serial, float angle, lum::Translation where) {
    lum::FusionConfiguration c;
    c.serial_number = serial;
    c.communication_parameters.setForLocalNetwork("127.0.0.1", 31000 + 2 * (serial % 100));
    c.pose = lum::Transform::identity();
    c.pose.setRotationVector(lum::Vector3f(0.f, angle, 0.f));
    c.pose.setTranslation(where);
    return c;
}

}  // namespace

class WSCreatorHubTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void tenantRules();
    void signIn();
    void publishingCamerasTaken();
    void storedCalibrationTakenOrRefused();
    void pushKeepsUserDataAndHappensOnce();

private:
    template <typename T>
    T* widget(const char* name) { return find<T>(*dialog_, name); }
    void click(const char* name) { QTest::mouseClick(widget<QAbstractButton>(name), Qt::LeftButton); }
    // Hub requests answer on the event loop; nothing in the dialog waits for them.
    bool hubAnswered() {
        return QTest::qWaitFor([this] { return !dialog_->hubRequestUnderway(); }, 30000);
    }
    json admin(REST_VERB verb, const QString& path, const json& body = json::object());
    json workspaceOnDisk(int id);

    QTemporaryDir home_;
    QString dataPath_;
    QString url_;
    int relayPort_ = 0;
    std::vector<lum::FusionConfiguration> calibrated_;
    QProcess emulator_;
    QProcess relays_[2];
    RecordingPrompts prompts_;
    std::unique_ptr<WSCreator> dialog_;
};

json WSCreatorHubTest::admin(REST_VERB verb, const QString& path, const json& body) {
    QtRestRequester requester;
    QNetworkReply* reply = requester.performRequest(verb, url_ + path, {}, QByteArray::fromStdString(body.dump()));
    const json answer = json::parse(reply->readAll().toStdString(), nullptr, false);
    reply->deleteLater();
    return answer;
}

json WSCreatorHubTest::workspaceOnDisk(int id) {
    QFile file(dataPath_);
    if (!file.open(QIODevice::ReadOnly)) return json();
    const json document = json::parse(file.readAll().toStdString(), nullptr, false);
    for (const json& workspace : document.value("workspaces", json::array()))
        if (workspace.value("id", 0) == id) return workspace;
    return json();
}

void WSCreatorHubTest::initTestCase() {
    QVERIFY(home_.isValid());
    isolateSettings(home_.path());
    qunsetenv("LUM_HUB_CUSTOM_TENANT");

    relayPort_ = 36000 + 4 * (getpid() % 3000);
    calibrated_ = {camera(41001, 0.5f, lum::Translation(1.f, 2.f, -3.f)),
                   camera(41004, -1.25f, lum::Translation(-2.5f, 2.2f, 0.75f))};
    json broken = {{"5", {{"input", {{"fusion", {{"configuration", {{"ip", "10.0.0.5"}, {"port", -30000}}}}},
                                     {"pyra", {{"configuration", "5"}}}}}}},
                   {"6", {{"input", {{"fusion", {{"configuration", {{"ip", "10.0.0.6"}, {"port", "30000"}}}}},
                                     {"pyra", {{"configuration", "6"}}}}}}}};
    const json data = {
        {"clients", {{{"client_id", "lum-internal-halden-hub-implicit"},
                      {"client_secret", "Vq7mT2xRb9LwKe4NpZ8cYh3GdJ6sUf5A"}}}},
        {"accounts", {{{"username", "ana"}, {"password", "s3cret"}, {"workspaces", {1, 2, 3}}}}},
        {"workspaces",
         {{{"id", 1}, {"name", "Studio"}, {"user_data", {{"site", "lab"}, {"notes", {1, 2}}}},
           {"devices", {device("dev-a", "Corner A", 41001, relayPort_), device("dev-b", "Corner B", 41002, relayPort_ + 2),
                        device("dev-c", "Corner C", 41003, 0)}}},
          {{"id", 2}, {"name", "Calibrated"},
           {"user_data", {{"calibration_data", roomfile::writeDocument(calibrated_, lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP,
                                                                       lum::UNIT::METER)}}},
           {"devices", json::array()}},
          {{"id", 3}, {"name", "Broken"}, {"user_data", {{"owner", "x"}, {"calibration_data", broken}}},
           {"devices", json::array()}}}}};
    dataPath_ = home_.filePath("hub.json");
    QFile file(dataPath_);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(QByteArray::fromStdString(data.dump(2)));
    file.close();

    emulator_.start(HALDEN_BINARY_DIR "/tools/hub_emulator/halden-hub-emulator",
                    {"--data", dataPath_, "--port", "0", "--admin"});
    QVERIFY(emulator_.waitForStarted());
    QTRY_VERIFY_WITH_TIMEOUT(emulator_.canReadLine(), 20000);
    const QString banner = QString::fromUtf8(emulator_.readLine()).trimmed();
    url_ = banner.section("serving ", 1).section(' ', 0, 0);
    QVERIFY2(url_.startsWith("http://127.0.0.1:"), qPrintable(banner));
    QSettings("Tarsel", "PYRA HUB").setValue("tenant", url_);

    for (int i = 0; i < 2; ++i) {
        relays_[i].start(HALDEN_BINARY_DIR "/tools/body_relay/body_relay",
                         {"--serial", QString::number(41001 + i), "--port", QString::number(relayPort_ + 2 * i)});
        QVERIFY(relays_[i].waitForStarted());
    }
    dialog_ = std::make_unique<WSCreator>(nullptr, &prompts_);
    dialog_->show();
    widget<QTabWidget>("source_tabs")->setCurrentIndex(3);
    QVERIFY(QTest::qWaitForWindowExposed(dialog_.get()));
}

void WSCreatorHubTest::cleanupTestCase() {
    dialog_.reset();
    for (QProcess* process : {&emulator_, &relays_[0], &relays_[1]}) {
        process->terminate();
        if (!process->waitForFinished(10000)) process->kill();
    }
}

void WSCreatorHubTest::tenantRules() {
    auto* tenantButton = widget<QPushButton>("hub_url_button");
    QVERIFY(tenantButton->isHidden());
    qputenv("LUM_HUB_CUSTOM_TENANT", "");
    dialog_->clearUi();
    QVERIFY(!tenantButton->isHidden());
    qunsetenv("LUM_HUB_CUSTOM_TENANT");

    std::ostringstream out;
    std::streambuf* console = std::cout.rdbuf(out.rdbuf());
    prompts_.text = QString("ftp://hub.example");
    click("hub_url_button");
    std::cout.rdbuf(console);
    QCOMPARE(QString::fromStdString(out.str()), QString("Invalid address.\n"));
    QCOMPARE(dialog_->tenantAddress(), url_);
    QCOMPARE(prompts_.questions.last(), "Pyra Hub URL|" + url_ + "|Pyra Hub URL : ");

    for (const QString accepted : {"https://hub.example", "httpfoo"}) {
        prompts_.text = accepted;
        click("hub_url_button");
        QCOMPARE(dialog_->tenantAddress(), accepted);
        QCOMPARE(QSettings("Tarsel", "PYRA HUB").value("tenant").toString(), accepted);
    }
    prompts_.text.reset();
    click("hub_url_button");
    QCOMPARE(dialog_->tenantAddress(), QString("httpfoo"));
    prompts_.text = url_;
    click("hub_url_button");
    QCOMPARE(dialog_->tenantAddress(), url_);
    QVERIFY(prompts_.messages.empty());
}

void WSCreatorHubTest::signIn() {
    auto* user = widget<QLineEdit>("hub_username");
    auto* password = widget<QLineEdit>("hub_password");
    QCOMPARE(password->echoMode(), QLineEdit::Password);
    user->setText("ana");
    password->clear();
    click("hub_connection_button");
    QCOMPARE(prompts_.lastTitle(), QString("Invalid credentials"));
    QCOMPARE(prompts_.lastText(), QString("Please fill your credentials before trying to connect to PYRA HUB."));
    QVERIFY(!QSettings("Tarsel", "PYRA HUB").contains("username"));
    QCOMPARE(admin(GET, "/_admin/last_request"), json::object());  // nothing was sent

    password->setText("wrong");
    click("hub_connection_button");
    QVERIFY(hubAnswered());
    QCOMPARE(prompts_.lastTitle(), QString("Connection error"));
    QCOMPARE(prompts_.lastText(), QString("Secure connection to PYRA HUB could not be established."));
    QVERIFY(widget<QWidget>("hub_frame")->isHidden());

    // A slow hub holds nothing: the click returns at once, the buttons that would start a
    // second request are off, and a cancel drops the answer without a word.
    password->setText("s3cret");
    const std::size_t boxes = prompts_.messages.size();
    admin(PUT, "/_admin/faults", {{"delay_ms", 3000}});
    click("hub_connection_button");
    QVERIFY(dialog_->hubRequestUnderway());
    QVERIFY(!widget<QPushButton>("hub_connection_button")->isEnabled());
    QVERIFY(!widget<QAbstractButton>("create_toolButton")->isEnabled());
    click("hub_connection_button");
    click("hub_cancel_button");
    QVERIFY(!dialog_->hubRequestUnderway());
    QVERIFY(widget<QPushButton>("hub_connection_button")->isEnabled());
    QVERIFY(widget<QPushButton>("hub_cancel_button")->isHidden());
    admin(PUT, "/_admin/faults", json::object());
    QTest::qWait(200);
    QCOMPARE(prompts_.messages.size(), boxes);
    QVERIFY(widget<QWidget>("hub_frame")->isHidden());

    click("hub_connection_button");
    QVERIFY(hubAnswered());
    QCOMPARE(prompts_.messages.size(), boxes);

    QSettings settings("Tarsel", "PYRA HUB");
    QCOMPARE(settings.value("username").toString(), QString("ana"));
    QCOMPARE(settings.value("password").toString(), QString("s3cret"));
    QVERIFY(!widget<QWidget>("hub_frame")->isHidden());
    auto* workspaces = widget<QComboBox>("workspace_combo");
    QCOMPARE(workspaces->count(), 3);
    QCOMPARE(workspaces->itemText(0), QString("Studio"));
    QCOMPARE(workspaces->itemData(2).toString(), QString("3"));
    QCOMPARE(dialog_->selectedWorkspaceId(), QString("1"));
    auto* devices = widget<QListWidget>("device_list");
    QCOMPARE(devices->count(), 3);
    QCOMPARE(devices->item(0)->text(), QString("Corner A - SN41001"));
    QCOMPARE(devices->item(0)->checkState(), Qt::Checked);
    QVERIFY(!widget<QPushButton>("hub_calib_button")->isEnabled());  // nothing stored in "Studio"
}

void WSCreatorHubTest::publishingCamerasTaken() {
    QSignalSpy rooms(dialog_.get(), &WSCreator::FusionConfigReady);
    auto* list = widget<QTreeWidget>("camera_list");
    click("hub_retrieve_button");
    QVERIFY(hubAnswered());
    QCOMPARE(list->topLevelItemCount(), 3);
    QCOMPARE(list->topLevelItem(0)->text(0), "Corner A - SN41001 - 127.0.0.1:" + QString::number(relayPort_));
    QCOMPARE(list->topLevelItem(2)->text(0), QString("Corner C - SN41003 - NOT PUBLISHING"));
    QCOMPARE(prompts_.lastTitle(), QString("Fusion now running on these cameras"));
    QCOMPARE(prompts_.lastText(), QString("2 cameras are currently publishing data."));
    QVERIFY(prompts_.messages.back().icon == PromptIcon::Information);
    QCOMPARE(dialog_->sourceKind(), int(WSCreator::SOURCE_HUB));
    QVERIFY(savePicture(*dialog_, "wscreator_hub.png"));

    click("create_toolButton");
    QCOMPARE(rooms.size(), 1);
    const auto cameras = rooms.takeFirst().at(0).value<std::vector<lum::FusionConfiguration>>();
    QCOMPARE(cameras.size(), std::size_t(2));

    // The room reaches the body_relay processes that publish those cameras.
    lum::Fusion fusion;
    QVERIFY(fusion.init(lum::InitFusionParameters(lum::UNIT::METER, lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP)) ==
            lum::FUSION_ERROR_CODE::SUCCESS);
    for (const lum::FusionConfiguration& c : cameras) {
        QVERIFY(c.communication_parameters.getType() == lum::COMM_TYPE::LOCAL_NETWORK);
        lum::FUSION_ERROR_CODE code = lum::FUSION_ERROR_CODE::FAILURE;
        QDeadlineTimer deadline(30000);  // the relays may still be starting
        while ((code = fusion.subscribe(lum::CameraIdentifier(c.serial_number), c.communication_parameters, c.pose)) !=
                   lum::FUSION_ERROR_CODE::SUCCESS &&
               !deadline.hasExpired())
            QTest::qWait(50);
        QVERIFY2(code == lum::FUSION_ERROR_CODE::SUCCESS, lum::toString(code).c_str());
    }
    fusion.close();

    // An unticked device is left out.
    widget<QListWidget>("device_list")->item(1)->setCheckState(Qt::Unchecked);
    click("hub_retrieve_button");
    QVERIFY(hubAnswered());
    QCOMPARE(prompts_.lastText(), QString("1 cameras are currently publishing data."));
    QCOMPARE(list->topLevelItemCount(), 2);
}

void WSCreatorHubTest::storedCalibrationTakenOrRefused() {
    QSignalSpy rooms(dialog_.get(), &WSCreator::FusionConfigReady);
    widget<QComboBox>("workspace_combo")->setCurrentIndex(1);
    QVERIFY(hubAnswered());
    click("hub_calib_button");
    QCOMPARE(prompts_.lastText(), QString("2 cameras are registered in the workspace."));
    QCOMPARE(widget<QTreeWidget>("camera_list")->topLevelItemCount(), 2);
    click("create_toolButton");
    QCOMPARE(rooms.size(), 1);
    const auto cameras = rooms.takeFirst().at(0).value<std::vector<lum::FusionConfiguration>>();
    QCOMPARE(cameras.size(), calibrated_.size());
    for (std::size_t i = 0; i < cameras.size(); ++i) {
        QCOMPARE(cameras[i].serial_number, calibrated_[i].serial_number);
        QCOMPARE(cameras[i].communication_parameters.getPort(), calibrated_[i].communication_parameters.getPort());
        for (int r = 0; r < 4; ++r)
            for (int k = 0; k < 4; ++k) QVERIFY(std::abs(cameras[i].pose(r, k) - calibrated_[i].pose(r, k)) < 1e-5f);
    }

    // Neither member of "Broken" is usable: refused, and the workspace is left as it was: a
    // calibration this version cannot read may still be someone's only copy.
    widget<QComboBox>("workspace_combo")->setCurrentIndex(2);
    QVERIFY(hubAnswered());
    click("hub_calib_button");
    QCOMPARE(prompts_.lastText(), QString("Invalid calibration in this workspace."));
    QCOMPARE(dialog_->sourceKind(), int(WSCreator::SOURCE_NONE));
    click("create_toolButton");
    QCOMPARE(rooms.size(), 0);
    QCOMPARE(workspaceOnDisk(3)["user_data"]["owner"], json("x"));
    QVERIFY(workspaceOnDisk(3)["user_data"].contains("calibration_data"));
}

void WSCreatorHubTest::pushKeepsUserDataAndHappensOnce() {
    widget<QComboBox>("workspace_combo")->setCurrentIndex(0);
    QVERIFY(hubAnswered());
    QCOMPARE(dialog_->selectedWorkspaceId(), QString("1"));
    QSignalSpy outcomes(dialog_.get(), &WSCreator::calibrationStored);
    // A hub that takes its time never holds the caller: the push is still under way when
    // the call returns.
    admin(PUT, "/_admin/faults", {{"delay_ms", 2000}});
    const json before = workspaceOnDisk(1)["user_data"];
    dialog_->onConfigurationFileReady(calibrated_, lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP, lum::UNIT::METER);
    QVERIFY(dialog_->selectedWorkspaceId().isEmpty());
    QCOMPARE(outcomes.count(), 0);
    QCOMPARE(workspaceOnDisk(1)["user_data"], before);
    admin(PUT, "/_admin/faults", json::object());
    QTRY_COMPARE_WITH_TIMEOUT(outcomes.count(), 1, 60000);
    QCOMPARE(outcomes.at(0).at(0).toString(), QString("Calibration stored in workspace Studio."));
    const json expected = {{"site", "lab"},
                           {"notes", {1, 2}},
                           {"calibration_data", roomfile::writeDocument(calibrated_, lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP,
                                                                        lum::UNIT::METER)}};
    QCOMPARE(workspaceOnDisk(1)["user_data"], expected);

    dialog_->onConfigurationFileReady({camera(7, 0.f, lum::Translation(0.f, 0.f, 0.f))},
                                      lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP, lum::UNIT::METER);
    QCOMPARE(outcomes.count(), 1);
    QCOMPARE(workspaceOnDisk(1)["user_data"], expected);

    // What was just stored reads back in the same session, and reading it rewrites nothing.
    widget<QComboBox>("workspace_combo")->setCurrentIndex(0);
    QVERIFY(hubAnswered());
    click("hub_calib_button");
    QCOMPARE(prompts_.lastText(), QString("2 cameras are registered in the workspace."));
    QCOMPARE(dialog_->sourceKind(), int(WSCreator::SOURCE_HUB));
    QCOMPARE(workspaceOnDisk(1)["user_data"], expected);

    // A push given up on (the window closing) says so, and nothing is waited for.
    admin(PUT, "/_admin/faults", {{"delay_ms", 3000}});
    dialog_->onConfigurationFileReady(calibrated_, lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP, lum::UNIT::METER);
    QVERIFY(dialog_->uploadUnderway());
    dialog_->cancelUpload();
    QVERIFY(!dialog_->uploadUnderway());
    QCOMPARE(outcomes.count(), 2);
    QCOMPARE(outcomes.at(1).at(0).toString(),
             QString("The calibration was not stored in workspace Studio: Halden stopped waiting for the hub."));
    QVERIFY(!outcomes.at(1).at(1).toBool());
    admin(PUT, "/_admin/faults", json::object());
}

QTEST_MAIN(WSCreatorHubTest)
#include "wscreator_hub_guitest.moc"
