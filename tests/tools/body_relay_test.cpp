// body_relay processes on loopback feeding an in-process fusion, and the relay's refusals:
// unknown serial, busy port, a sender of another SDK version.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <chrono>
#include <cmath>
#include <fstream>
#include <sstream>

#include "lum/lum.hpp"
#include "testing/isolated_process.hpp"
#include "pyra_sim/scene.hpp"

extern char** environ;

namespace {

using platform_test::waitFor;

const char* kRelay = HALDEN_BINARY_DIR "/tools/body_relay/body_relay";

// A running body_relay; its output goes to a file the test can read.
struct Relay {
    pid_t pid = -1;
    std::string log;

    Relay(const std::string& scene, unsigned serial, int port, const std::vector<std::string>& extra = {}) {
        log = platform_test::privateFolder("logs") + "/relay-" + std::to_string(serial) + "-" + std::to_string(port);
        std::vector<std::string> args = {kRelay, "--scene", scene, "--serial", std::to_string(serial), "--port",
                                         std::to_string(port)};
        args.insert(args.end(), extra.begin(), extra.end());
        std::vector<char*> argv;
        for (auto& a : args) argv.push_back(a.data());
        argv.push_back(nullptr);
        posix_spawn_file_actions_t files;
        posix_spawn_file_actions_init(&files);
        posix_spawn_file_actions_addopen(&files, 1, log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        posix_spawn_file_actions_adddup2(&files, 1, 2);
        posix_spawn(&pid, kRelay, &files, nullptr, argv.data(), environ);
        posix_spawn_file_actions_destroy(&files);
    }
    // Exit status after SIGTERM (or after its own exit), -1 if it had to be killed.
    int stop(int signal = SIGTERM) {
        if (pid <= 0) return -1;
        ::kill(pid, signal);
        int status = 0;
        bool ended = waitFor([&] { return ::waitpid(pid, &status, WNOHANG) == pid; }, 10.0);
        if (!ended) {
            ::kill(pid, SIGKILL);
            ::waitpid(pid, &status, 0);
        }
        pid = -1;
        return ended && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    int wait() {
        int status = 0;
        bool ended = waitFor([&] { return ::waitpid(pid, &status, WNOHANG) == pid; }, 10.0);
        if (!ended) return stop(SIGKILL);
        pid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    std::string output() const {
        std::ifstream in(log);
        std::stringstream s;
        s << in.rdbuf();
        return s.str();
    }
    ~Relay() { stop(SIGKILL); }
};

std::string writeScene(const std::string& text) {
    std::string path = platform_test::privateFolder("scenes") + "/scene-" + std::to_string(std::hash<std::string>()(text)) + ".json";
    std::ofstream(path) << text;
    return path;
}

const char* kTwoCameras = R"({
  "seed": 11,
  "people": {"count": 1},
  "cameras": [
    {"serial": 51001, "position": [-2.8, 2.6, -2.8], "look_at": [0, 0.9, 0], "usb": false},
    {"serial": 51002, "position": [2.8, 2.6, 2.8], "look_at": [0, 0.9, 0], "usb": false},
    {"serial": 51003, "position": [2.8, 2.6, -2.8], "look_at": [0, 0.9, 0], "usb": false,
     "faults": {"sdk_version": "4.2.1"}}
  ]
})";

TEST(BodyRelay, TwoRelaysOnLoopbackFuseNearTheTruth) {
    platform_test::isolateProcess();
    std::string path = writeScene(kTwoCameras);
    pyra_sim::Scene scene;
    std::string error;
    ASSERT_TRUE(pyra_sim::loadScene(path, scene, &error)) << error;
    int portA = platform_test::testPort(0), portB = platform_test::testPort(1);
    Relay a(path, 51001, portA), b(path, 51002, portB);

    lum::Fusion fusion;
    lum::InitFusionParameters init;
    init.unit = lum::UNIT::METER;
    init.coordinateSystem = lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP;
    ASSERT_EQ(fusion.init(init), lum::FUSION_ERROR_CODE::SUCCESS);
    lum::CommunicationParameters linkA, linkB;
    linkA.setForLocalNetwork("127.0.0.1", portA);
    linkB.setForLocalNetwork("127.0.0.1", portB);
    // The relays may still be starting: the handshake waits up to two seconds per try.
    ASSERT_TRUE(waitFor([&] { return fusion.subscribe(lum::CameraIdentifier(51001), linkA, scene.cameras[0].pose) ==
                                     lum::FUSION_ERROR_CODE::SUCCESS; }, 15.0)) << a.output();
    ASSERT_TRUE(waitFor([&] { return fusion.subscribe(lum::CameraIdentifier(51002), linkB, scene.cameras[1].pose) ==
                                     lum::FUSION_ERROR_CODE::SUCCESS; }, 15.0)) << b.output();
    fusion.enableBodyTracking();

    double errorSum = 0.0;
    int sets = 0;
    ASSERT_TRUE(waitFor([&] {
        if (fusion.process() != lum::FUSION_ERROR_CODE::SUCCESS) return false;
        lum::Bodies fused;
        fusion.retrieveBodies(fused, lum::BodyTrackingFusionRuntimeParameters(4, 2));
        if (fused.body_list.size() != 1) return false;
        auto truth = pyra_sim::peopleAt(scene, fused.timestamp, lum::BODY_FORMAT::BODY_18)[0];
        const lum::BodyData& body = fused.body_list[0];
        double sum = 0.0;
        int n = 0;
        for (size_t i = 0; i < body.keypoint.size(); ++i)
            if (std::isfinite(body.keypoint[i].x)) {
                sum += (body.keypoint[i] - truth.keypoints[i]).norm();
                ++n;
            }
        errorSum += sum / n;
        return ++sets >= 30;
    }, 20.0));
    EXPECT_LT(errorSum / sets, 0.06);

    EXPECT_EQ(a.stop(), 0) << a.output();
    EXPECT_EQ(b.stop(), 0) << b.output();
    while (fusion.process() == lum::FUSION_ERROR_CODE::SUCCESS) {
    }
    auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(fusion.process(), lum::FUSION_ERROR_CODE::NO_NEW_DATA_AVAILABLE);
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(500));
}

TEST(BodyRelay, RefusalsAreClear) {
    platform_test::isolateProcess();
    std::string path = writeScene(kTwoCameras);
    int port = platform_test::testPort(2);

    Relay unknown(path, 777, port);
    EXPECT_EQ(unknown.wait(), 1);
    EXPECT_NE(unknown.output().find("serial 777 is not a camera of the scene"), std::string::npos) << unknown.output();

    Relay old(path, 51003, port);
    lum::Fusion fusion;
    fusion.init();
    lum::CommunicationParameters link;
    link.setForLocalNetwork("127.0.0.1", port);
    lum::FUSION_ERROR_CODE code = lum::FUSION_ERROR_CODE::FAILURE;
    waitFor([&] {
        code = fusion.subscribe(lum::CameraIdentifier(51003), link, lum::Transform());
        return code != lum::FUSION_ERROR_CODE::CONNECTION_TIMED_OUT;
    }, 15.0);
    EXPECT_EQ(code, lum::FUSION_ERROR_CODE::INVALID_SENDER_VERSION);
    EXPECT_EQ(lum::toString(code), "INVALID SENDER VERSION");
    // The sender is there, but it is not the camera we asked for.
    EXPECT_EQ(fusion.subscribe(lum::CameraIdentifier(51001), link, lum::Transform()),
              lum::FUSION_ERROR_CODE::SOURCE_MISMATCH);

    Relay busy(path, 51001, port);
    EXPECT_EQ(busy.wait(), 1);
    EXPECT_NE(busy.output().find("is busy"), std::string::npos) << busy.output();
    EXPECT_EQ(old.stop(SIGINT), 0) << old.output();
}

// Local addresses (hex, as the kernel lists them) listening on a TCP port.
std::vector<std::string> listeners(int port) {
    char wanted[8];
    std::snprintf(wanted, sizeof wanted, "%04X", port);
    std::vector<std::string> found;
    std::ifstream table("/proc/net/tcp");
    std::string line;
    while (std::getline(table, line)) {
        std::istringstream fields(line);
        std::string slot, local, remote, state;
        fields >> slot >> local >> remote >> state;
        if (state == "0A" && local.size() > 9 && local.substr(local.size() - 4) == wanted)
            found.push_back(local.substr(0, local.size() - 5));
    }
    return found;
}

TEST(BodyRelay, BindListensOnTheAddressGivenOnly) {
    platform_test::isolateProcess();
    const std::string path = writeScene(kTwoCameras);
    const int port = platform_test::testPort(3);
    Relay bad(path, 51001, port, {"--bind", "every.where"});
    EXPECT_EQ(bad.wait(), 2);
    EXPECT_NE(bad.output().find("not an IPv4 address"), std::string::npos) << bad.output();

    Relay local(path, 51001, port, {"--bind", "127.0.0.1"});
    ASSERT_TRUE(waitFor([&] { return local.output().find("publishing") != std::string::npos; }, 20.0))
        << local.output();
    for (int p : {port, port + 1}) EXPECT_EQ(listeners(p), std::vector<std::string>{"0100007F"}) << p;
    lum::Fusion fusion;
    fusion.init();
    lum::CommunicationParameters link;
    link.setForLocalNetwork("127.0.0.1", port);
    EXPECT_EQ(fusion.subscribe(lum::CameraIdentifier(51001), link, lum::Transform()), lum::FUSION_ERROR_CODE::SUCCESS);
    EXPECT_EQ(local.stop(SIGINT), 0) << local.output();
}

}  // namespace
