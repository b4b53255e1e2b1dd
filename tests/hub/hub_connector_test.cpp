// The connector against a live hub emulator on a loopback port: sign-in, secret choice,
// reply shapes, faults and token failures.
#include "hub/hub_connector.hpp"

#include "core/user_prompts.hpp"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QNetworkReply>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <thread>

using nlohmann::json;

namespace {

const char* const kCustomSecret = "Vq7mT2xRb9LwKe4NpZ8cYh3GdJ6sUf5A";
const char* const kDefaultSecret = "Hx5Wn2Rq8ZtLm4Ve7YsKc3Pj9FdGuB";

json device(const std::string& id, const json& ip, bool withCamera = true) {
    json d = {{"id", id}, {"name", "cam " + id}, {"host", {{"network", json::array({{{"ip_address", ip}}})}}}};
    if (withCamera) d["camera"] = json::array({{{"serial_number", 41001}}});
    return d;
}

json testData() {
    json devices = json::array({device("good", "10.0.0.5"), device("no-camera", "10.0.0.6", false),
                                device("ip-number", 42), "not an object"});
    json emptyNetwork = device("empty-network", "x");
    emptyNetwork["host"]["network"] = json::array();
    devices.push_back(emptyNetwork);
    const std::map<std::string, json> replies = {{"p-string", {{"result", "5555"}}},
                                                 {"p-blank", {{"result", " 5555abc"}}},
                                                 {"p-number", {{"result", 5555}}},
                                                 {"p-missing", json::object()},
                                                 {"p-letters", {{"result", "abc"}}}};
    for (const auto& [id, reply] : replies) {
        json d = device(id, "10.0.0.7");
        d["function_reply"] = reply;
        devices.push_back(d);
    }
    return {{"clients", {{{"client_id", "lum-internal-halden-hub-implicit"}, {"client_secret", kCustomSecret}}}},
            {"accounts", {{{"username", "ada"}, {"password", "s3cret"}}}},
            {"workspaces",
             {{{"id", 7}, {"name", "Lab"}, {"user_data", {{"site", "north"}}}},
              {{"id", 3}, {"name", "Hall"}, {"devices", devices}}}}};
}

struct RecordingPrompts : UserPrompts {
    std::vector<PromptMessage> shown;
    std::shared_ptr<ShownMessage> show(const PromptMessage& message) override {
        shown.push_back(message);
        return nullptr;
    }
    void exec(const PromptMessage& message) override { shown.push_back(message); }
    QString askSaveFileName(const QString&, const QString&, const QString&) override { return {}; }
    QString askOpenFileName(const QString&, const QString&, const QString&) override { return {}; }
    std::optional<QString> askText(const QString&, const QString&, const QString&) override { return {}; }
};

class HubConnectorTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        static int argc = 1;
        static char name[] = "hub_tests";
        static char* argv[] = {name, nullptr};
        if (!QCoreApplication::instance()) new QCoreApplication(argc, argv);

        dir_ = new QTemporaryDir;
        dataPath_ = dir_->filePath(QStringLiteral("hub.json"));
        QFile file(dataPath_);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(QByteArray::fromStdString(testData().dump()));
        file.close();

        emulator_ = new QProcess;
        emulator_->start(QStringLiteral(HALDEN_BINARY_DIR "/tools/hub_emulator/halden-hub-emulator"),
                         {"--data", dataPath_, "--port", "0", "--admin"});
        const QRegularExpression served(QStringLiteral("serving (http://\\S+)"));
        QByteArray output;
        while (address_.isEmpty() && emulator_->waitForReadyRead(10000)) {
            output += emulator_->readAllStandardOutput();
            const auto match = served.match(QString::fromUtf8(output));
            if (match.hasMatch()) address_ = match.captured(1);
        }
        ASSERT_FALSE(address_.isEmpty()) << emulator_->readAllStandardError().toStdString();
    }

    static void TearDownTestSuite() {
        emulator_->terminate();
        if (!emulator_->waitForFinished(10000)) emulator_->kill();
        delete emulator_;
        delete dir_;
    }

    void SetUp() override { setFaults(json::object()); }
    void TearDown() override {
        QtRestRequester::setWaitRoundsForTesting(0);
        HubConnector::setDefaultHubAddressForTesting({});
    }

    static json admin(REST_VERB verb, const QString& path, const json& body = json::object()) {
        QtRestRequester requester;
        std::unique_ptr<QNetworkReply, void (*)(QNetworkReply*)> reply(
            requester.performRequest(verb, address_ + path, {}, QByteArray::fromStdString(body.dump())),
            [](QNetworkReply* r) { r->deleteLater(); });
        return json::parse(reply->readAll().toStdString(), nullptr, false);
    }
    static void setFaults(const json& faults) { admin(PUT, QStringLiteral("/_admin/faults"), faults); }
    static json lastRequest() { return admin(GET, QStringLiteral("/_admin/last_request")); }

    HubConnector signedIn() {
        const QString token = HubConnector(address_, {}).connectViaImplicitFlow("ada", "s3cret");
        EXPECT_FALSE(token.isEmpty());
        return HubConnector(address_, token);
    }

    static inline QTemporaryDir* dir_ = nullptr;
    static inline QString dataPath_;
    static inline QProcess* emulator_ = nullptr;
    static inline QString address_;
};

TEST_F(HubConnectorTest, SignInGivesATokenOnlyForGoodCredentialsAndJson) {
    HubConnector anonymous(address_, {});
    EXPECT_EQ(anonymous.connectViaImplicitFlow("ada", "s3cret").size(), 32);
    EXPECT_EQ(lastRequest()["content_type"], "application/x-www-form-urlencoded");
    EXPECT_TRUE(anonymous.connectViaImplicitFlow("ada", "wrong").isEmpty());
    EXPECT_TRUE(anonymous.connectViaImplicitFlow("bob", "s3cret").isEmpty());

    setFaults({{"non_json", true}});
    EXPECT_TRUE(anonymous.connectViaImplicitFlow("ada", "s3cret").isEmpty());
    setFaults({{"wrong_shape", true}});
    EXPECT_TRUE(anonymous.connectViaImplicitFlow("ada", "s3cret").isEmpty());

    RecordingPrompts prompts;
    HubConnector noAddress({}, {});
    noAddress.setPrompts(&prompts);
    EXPECT_TRUE(noAddress.connectViaImplicitFlow("ada", "s3cret").isEmpty());
    ASSERT_EQ(prompts.shown.size(), 1u);
    EXPECT_EQ(prompts.shown[0].title, "Connection error");
    EXPECT_EQ(prompts.shown[0].text, "Invalid Pyra Hub tenant address.");
}

TEST_F(HubConnectorTest, SecretFollowsTheExactDefaultAddress) {
    HubConnector::setDefaultHubAddressForTesting(address_);
    // The emulator knows only the custom-tenant secret, so the default one is refused.
    EXPECT_TRUE(HubConnector(address_, {}).connectViaImplicitFlow("a&b", "p=q").isEmpty());
    EXPECT_EQ(lastRequest()["body"], std::string("client_id=lum-internal-halden-hub-implicit&client_secret=") +
                                         kDefaultSecret + "&grant_type=password&username=a&b&password=p=q");

    HubConnector(address_ + "/", {}).connectViaImplicitFlow("ada", "s3cret");
    EXPECT_NE(lastRequest()["body"].get<std::string>().find(std::string("client_secret=") + kCustomSecret + "&"),
              std::string::npos);
}

TEST_F(HubConnectorTest, RequesterUsesOnlyTwoStringHeaderEntries) {
    QtRestRequester requester;
    const RestHeaderList headers{{"Authorization"}, {"Authorization", "Bearer x"}, {"Authorization", "a", "b"}};
    requester.performRequest(GET, address_ + "/api/v1/workspaces", headers, {})->deleteLater();
    EXPECT_EQ(lastRequest()["authorization"], "Bearer x");
    EXPECT_EQ(lastRequest()["content_type"], "application/json");
    EXPECT_EQ(requester.performRequest(static_cast<REST_VERB>(3), address_, {}, {}), nullptr);
}

TEST_F(HubConnectorTest, WorkspacesAndWellFormedDevices) {
    HubConnector hub = signedIn();
    const auto workspaces = hub.getWorkspaces();
    ASSERT_EQ(workspaces.size(), 2u);
    EXPECT_EQ(workspaces.at("7").name, "Lab");
    EXPECT_EQ(workspaces.at("7").user_data, json({{"site", "north"}}));

    const auto devices = hub.getDevicesFromWorkspaceId("3");
    std::vector<QString> ids;
    for (const auto& entry : devices) ids.push_back(entry.first);
    EXPECT_EQ(ids, (std::vector<QString>{"good", "p-blank", "p-letters", "p-missing", "p-number", "p-string"}));
    EXPECT_EQ(devices.at("good").ip_address, "10.0.0.5");
    EXPECT_EQ(devices.at("good").serial_number, "41001");
    EXPECT_TRUE(hub.getDevicesFromWorkspaceId("99").empty());
}

TEST_F(HubConnectorTest, PublicationPortAcceptsOnlyAStringResult) {
    HubConnector hub = signedIn();
    EXPECT_EQ(hub.getPublicationPortFromDevice("3", "p-string"), 5555);
    EXPECT_EQ(lastRequest()["body"], "{\"dummy\":\"dummy\"}");
    EXPECT_EQ(hub.getPublicationPortFromDevice("3", "p-blank"), 5555);
    EXPECT_EQ(hub.getPublicationPortFromDevice("3", "p-number"), HubConnector::kNoPort);
    EXPECT_EQ(hub.getPublicationPortFromDevice("3", "p-missing"), HubConnector::kNoPort);
    EXPECT_EQ(hub.getPublicationPortFromDevice("3", "p-letters"), HubConnector::kNoPort);
}

TEST_F(HubConnectorTest, CalibrationIsStoredAndRemovedKeepingOtherUserData) {
    HubConnector hub = signedIn();
    const json calibration = {{"41001", {{"world", {{"translation", {0.5, 1, 2}}}}}}};
    EXPECT_TRUE(hub.setWorkspaceCalibrationData("7", calibration));
    EXPECT_EQ(lastRequest()["body"], json({{"user_data", {{"calibration_data", calibration}, {"site", "north"}}}}).dump());
    EXPECT_EQ(hub.getWorkspaces().at("7").user_data["calibration_data"], calibration);
    // Written through to the data file, so it outlives the emulator.
    QFile file(dataPath_);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(json::parse(file.readAll().toStdString())["workspaces"][0]["user_data"]["calibration_data"], calibration);

    EXPECT_TRUE(hub.setWorkspaceCalibrationData("7", json::object()));
    EXPECT_EQ(hub.getWorkspaces().at("7").user_data, json({{"site", "north"}}));
}

TEST_F(HubConnectorTest, StatusFaultsAndWrongShapes) {
    HubConnector hub = signedIn();
    setFaults({{"status", 201}});
    EXPECT_EQ(hub.getWorkspaces().size(), 2u);
    EXPECT_EQ(hub.getPublicationPortFromDevice("3", "p-string"), 5555);

    setFaults({{"status", 500}});
    EXPECT_TRUE(hub.getWorkspaces().empty());
    EXPECT_EQ(hub.getPublicationPortFromDevice("3", "p-string"), HubConnector::kNoPort);
    EXPECT_FALSE(hub.setWorkspaceCalibrationData("7", {{"x", 1}}));

    for (const char* fault : {"wrong_shape", "non_json"}) {
        setFaults({{fault, true}});
        EXPECT_TRUE(hub.getWorkspaces().empty()) << fault;
        EXPECT_TRUE(hub.getDevicesFromWorkspaceId("3").empty()) << fault;
        EXPECT_EQ(hub.getPublicationPortFromDevice("3", "p-string"), HubConnector::kNoPort) << fault;
    }
    // An unreadable workspace must not be overwritten with empty user data.
    EXPECT_FALSE(hub.setWorkspaceCalibrationData("7", {{"x", 1}}));
    setFaults(json::object());
    EXPECT_EQ(hub.getWorkspaces().at("7").user_data, json({{"site", "north"}}));
}

TEST_F(HubConnectorTest, ReplyThatNeverFinishesIsAFailure) {
    HubConnector hub = signedIn();
    QtRestRequester::setWaitRoundsForTesting(20);
    setFaults({{"delay_ms", 60000}});
    EXPECT_TRUE(hub.getWorkspaces().empty());
    EXPECT_EQ(hub.getPublicationPortFromDevice("3", "p-string"), HubConnector::kNoPort);
}

TEST_F(HubConnectorTest, MissingOrExpiredTokenIsAFailure) {
    HubConnector anonymous(address_, {});
    EXPECT_TRUE(anonymous.getWorkspaces().empty());
    EXPECT_FALSE(anonymous.setWorkspaceCalibrationData("7", {{"x", 1}}));

    HubConnector hub = signedIn();
    ASSERT_FALSE(hub.getWorkspaces().empty());
    admin(POST, QStringLiteral("/_admin/expire_tokens"));
    EXPECT_TRUE(hub.getWorkspaces().empty());
    EXPECT_EQ(hub.getPublicationPortFromDevice("3", "p-string"), HubConnector::kNoPort);
}

}  // namespace

namespace {

int portOf(const QString& address) { return address.section(':', -1).toInt(); }

int connectTo(int port) {
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in where{};
    where.sin_family = AF_INET;
    where.sin_port = htons(uint16_t(port));
    where.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const timeval limit{8, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    if (::connect(fd, reinterpret_cast<sockaddr*>(&where), sizeof where) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

// The status of one plain HTTP exchange; 0 when no answer came within the socket limit.
int httpStatus(int port, const std::string& method, const std::string& path, const std::string& token,
               const std::string& body = {}) {
    const int fd = connectTo(port);
    if (fd < 0) return 0;
    const std::string request = method + " " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n" +
                                "Authorization: Bearer " + token + "\r\nContent-Type: application/json\r\n" +
                                "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
    ssize_t sent = ::send(fd, request.data(), request.size(), MSG_NOSIGNAL);
    (void)sent;
    char reply[64] = {};
    const ssize_t got = ::recv(fd, reply, sizeof reply - 1, 0);
    ::close(fd);
    int status = 0;
    return got > 12 && std::sscanf(reply, "HTTP/1.%*d %d", &status) == 1 ? status : 0;
}

}  // namespace

TEST_F(HubConnectorTest, HostileRequestsChangeNothingAndStarveNobody) {
    const std::string token = HubConnector(address_, {}).connectViaImplicitFlow("ada", "s3cret").toStdString();
    ASSERT_FALSE(token.empty());
    const int port = portOf(address_);
    const auto site = [this] { return signedIn().getWorkspaces().at("7").user_data; };
    const json before = site();

    const std::string deep = "{\"user_data\": " + std::string(100000, '[') + std::string(100000, ']') + "}";
    EXPECT_EQ(httpStatus(port, "PUT", "/api/v1/workspaces/7", token, deep), 400);
    EXPECT_EQ(httpStatus(port, "PUT", "/api/v1/workspaces/7", token, std::string(2 << 20, ' ')), 413);
    EXPECT_LT(QFile(dataPath_).size(), 100000);

    // A save that fails (the file's folder is gone) leaves the served state alone.
    const std::string path = dataPath_.toStdString();
    ASSERT_EQ(::rename(path.c_str(), (path + ".kept").c_str()), 0);
    ASSERT_EQ(::symlink("/nonexistent/hub.json", path.c_str()), 0);
    EXPECT_EQ(httpStatus(port, "PUT", "/api/v1/workspaces/7", token, R"({"user_data": {"site": "south"}})"), 500);
    ::unlink(path.c_str());
    ASSERT_EQ(::rename((path + ".kept").c_str(), path.c_str()), 0);
    EXPECT_EQ(site(), before);

    // Thirty connections that never finish their request leave room for a real one.
    std::vector<int> idle;
    for (int i = 0; i < 30; ++i) {
        idle.push_back(connectTo(port));
        ssize_t sent = ::send(idle.back(), "GET /api/v1/work", 16, MSG_NOSIGNAL);
        (void)sent;
    }
    EXPECT_EQ(httpStatus(port, "GET", "/api/v1/workspaces", token), 200);
    for (int fd : idle) ::close(fd);

    QProcess second;
    second.start(QStringLiteral(HALDEN_BINARY_DIR "/tools/hub_emulator/halden-hub-emulator"),
                 {"--data", dataPath_, "--port", QString::number(port)});
    ASSERT_TRUE(second.waitForFinished(10000));
    EXPECT_NE(second.exitCode(), 0);
    EXPECT_TRUE(second.readAllStandardError().contains("cannot listen"));
}

// The data file is a link to a private file: saving writes through the link and keeps the
// file private. Deep bodies sent again and again neither grow the emulator nor its file.
TEST_F(HubConnectorTest, EmulatorKeepsItsFileItsMemoryAndItsWorkers) {
    const std::string token = HubConnector(address_, {}).connectViaImplicitFlow("ada", "s3cret").toStdString();
    ASSERT_FALSE(token.empty());
    const int port = portOf(address_);
    const std::string path = dataPath_.toStdString();
    const std::string target = path + ".private";
    ASSERT_EQ(::rename(path.c_str(), target.c_str()), 0);
    ASSERT_EQ(::chmod(target.c_str(), 0600), 0);
    ASSERT_EQ(::symlink(target.c_str(), path.c_str()), 0);
    EXPECT_EQ(httpStatus(port, "PUT", "/api/v1/workspaces/7", token, R"({"user_data": {"site": "east"}})"), 200);
    struct stat link {}, file {};
    EXPECT_TRUE(::lstat(path.c_str(), &link) == 0 && S_ISLNK(link.st_mode));
    ASSERT_EQ(::stat(target.c_str(), &file), 0);
    EXPECT_EQ(file.st_mode & 0777, 0600u);
    EXPECT_EQ(signedIn().getWorkspaces().at("7").user_data.value("site", ""), "east");

    // A megabyte of 60-deep arrays, and a body just within the value limit, by turns.
    std::string ones;
    while (ones.size() < (1u << 20) - 200) ones += "1,";
    const std::string huge = "{\"user_data\": " + std::string(60, '[') + ones + "1" + std::string(60, ']') + "}";
    std::string some;
    for (int i = 0; i < 40000; ++i) some += "1,";
    const std::string large = "{\"user_data\": " + std::string(60, '[') + some + "1" + std::string(60, ']') + "}";
    for (int i = 0; i < 40; ++i)
        httpStatus(port, "PUT", i % 4 < 2 ? "/api/v1/workspaces/7" : "/api/v1/workspaces/3", token,
                   i % 2 ? large : huge);
    QFile status(QStringLiteral("/proc/%1/status").arg(emulator_->processId()));
    ASSERT_TRUE(status.open(QIODevice::ReadOnly));
    const QString text = QString::fromUtf8(status.readAll());
    const long residentKb = text.section("VmRSS:", 1).trimmed().section(' ', 0, 0).toLong();
#ifdef __SANITIZE_ADDRESS__
    // The address sanitizer keeps freed memory in quarantine and adds its shadow on top.
    const long boundKb = 600 * 1024;
#else
    const long boundKb = 300 * 1024;
#endif
    EXPECT_LT(residentKb, boundKb) << text.toStdString();
    // The file stays small too: the old emulator's indentation made 69 MB of a 1 MB body.
    EXPECT_LT(QFileInfo(QString::fromStdString(target)).size(), qint64(16) << 20);
    EXPECT_EQ(httpStatus(port, "PUT", "/api/v1/workspaces/3", token, R"({"user_data": {}})"), 200);
    EXPECT_EQ(httpStatus(port, "PUT", "/api/v1/workspaces/7", token, R"({"user_data": {"site": "north"}})"), 200);

    // 150 senders trickling a byte a second are cut off per request, not per byte.
    std::vector<int> trickling;
    for (int i = 0; i < 150; ++i) trickling.push_back(connectTo(port));
    std::atomic<bool> done{false};
    const std::string slow = "GET /api/v1/workspaces HTTP/1.1\r\nHost: 127.0.0.1\r\nX-Slow: " + std::string(60, 'a');
    std::thread trickle([&] {
        for (size_t second = 0; second < slow.size() && !done; ++second) {
            for (int fd : trickling) {
                ssize_t sent = ::send(fd, &slow[second], 1, MSG_NOSIGNAL | MSG_DONTWAIT);
                (void)sent;
            }
            for (int tick = 0; tick < 10 && !done; ++tick) std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(2500));
    EXPECT_EQ(httpStatus(port, "GET", "/api/v1/workspaces", token), 200);
    done = true;
    trickle.join();
    for (int fd : trickling) ::close(fd);
}
