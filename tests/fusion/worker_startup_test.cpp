// Fusion worker start-up on rooms that force each failure: the boxes the user sees, and
// a room with broken cameras that still runs on with the ones that work.
#include <QProcess>

#include <gtest/gtest.h>

#include <atomic>

#include "fusion/fusion_worker.hpp"
#include "pyra_sim/scene.hpp"
#include "tests/fusion/fusion_support.hpp"
#include "testing/isolated_process.hpp"
#include "workspace/room_usb.hpp"

namespace {

const char* kFaultScene = HALDEN_SOURCE_DIR "/tests/fusion/scenes/faults.json";

void useFaultScene() {
    platform_test::isolateProcess();
    pyra_sim::Scene scene;
    std::string problem;
    ASSERT_TRUE(pyra_sim::loadScene(kFaultScene, scene, &problem)) << problem;
    pyra_sim::setActiveScene(scene);
}

lum::FusionConfiguration local(unsigned serial) {
    lum::DeviceProperties device;
    device.serial_number = serial;
    return roomusb::configurationFor(device);
}

lum::FusionConfiguration remote(int serial, int port) {
    lum::FusionConfiguration configuration;
    configuration.serial_number = serial;
    configuration.communication_parameters.setForLocalNetwork("127.0.0.1", port);
    return configuration;
}

struct Observed {
    std::atomic<bool> initialised{false};
    std::atomic<bool> failed{false};
    std::atomic<int> frames{0};

    void watch(FusionWorker& worker) {
        QObject::connect(&worker, &FusionWorker::isInit, [this] { initialised = true; });
        QObject::connect(&worker, &FusionWorker::error, [this] { failed = true; });
        QObject::connect(&worker, &FusionWorker::newData, [this] { ++frames; });
    }
};

const fusiontest::RecordedPrompt* find(const std::vector<fusiontest::RecordedPrompt>& prompts,
                                       const std::string& title) {
    for (const auto& prompt : prompts)
        if (prompt.title == title) return &prompt;
    return nullptr;
}

}  // namespace

TEST(WorkerStartUp, StopsWithOneOpenedOrNoSubscribedCamera) {
    useFaultScene();
    auto prompts = std::make_shared<fusiontest::RecordingPrompts>();
    {
        Observed observed;  // outlives the worker, whose thread writes into it
        FusionWorker worker(prompts);
        observed.watch(worker);
        worker.setup({local(51004), remote(51003, platform_test::testPort(0))}, AppParams());
        ASSERT_TRUE(fusiontest::waitFor([&] { return observed.failed.load(); }));
        ASSERT_TRUE(worker.wait(10000));
        EXPECT_FALSE(observed.initialised);
        const auto shown = prompts->prompts();
        ASSERT_EQ(shown.size(), 1u);
        EXPECT_EQ(shown[0].kind, "show");
        EXPECT_EQ(shown[0].icon, PromptIcon::Critical);
        EXPECT_EQ(shown[0].title, "Only ONE opened camera");
        EXPECT_EQ(shown[0].text,
                  "Halden is able to open one camera. The calibration process requires at least two cameras.");
    }
    auto second = std::make_shared<fusiontest::RecordingPrompts>();
    Observed observed;  // outlives the worker, whose thread writes into it
    FusionWorker worker(second);
    observed.watch(worker);
    worker.setup({remote(51001, platform_test::testPort(1)), remote(51002, platform_test::testPort(2))}, AppParams());
    ASSERT_TRUE(fusiontest::waitFor([&] { return observed.failed.load(); }));
    EXPECT_FALSE(observed.initialised);
    const auto shown = second->prompts();
    ASSERT_EQ(shown.size(), 1u);
    // Not modal: closing the window meanwhile must not wait for a box on the GUI thread.
    EXPECT_EQ(shown[0].kind, "show");
    EXPECT_EQ(shown[0].title, "No subscribed camera");
    EXPECT_EQ(shown[0].text,
              "Halden could not subscribe to any camera. Please check that the senders are compatible with Pyra "
              "SDK v5.1.0.");
}

TEST(WorkerStartUp, RunsOnWithTheCamerasThatWork) {
    useFaultScene();
    const int port = platform_test::testPort(3);
    QProcess relay;
    relay.start(HALDEN_BINARY_DIR "/tools/body_relay/body_relay",
                {"--scene", kFaultScene, "--serial", "51003", "--port", QString::number(port)});
    ASSERT_TRUE(fusiontest::waitFor([&] {
        relay.waitForReadyRead(50);
        return relay.peek(4096).contains("publishing");
    }));

    auto prompts = std::make_shared<fusiontest::RecordingPrompts>();
    Observed observed;
    FusionWorker worker(prompts);
    observed.watch(worker);
    testing::internal::CaptureStdout();
    worker.setup({local(51001), local(51002), remote(51003, port), local(51004)}, AppParams());
    ASSERT_TRUE(fusiontest::waitFor([&] { return observed.initialised.load(); }));
    worker.enableSK();

    // The camera with the grab fault stops after a few seconds; the others go on.
    ASSERT_TRUE(fusiontest::waitFor([&] { return find(prompts->prompts(), "SN51002: CAMERA NOT DETECTED"); }));
    SharedData& shared = SharedData::getInstance();
    auto stamps = [&shared] {
        std::lock_guard<std::mutex> lock(shared.skeletonMutex);
        return std::make_pair(shared.cameraBodies[lum::CameraIdentifier(51001)].timestamp.getNanoseconds(),
                              shared.cameraBodies[lum::CameraIdentifier(51002)].timestamp.getNanoseconds());
    };
    const int framesAtError = observed.frames;
    ASSERT_TRUE(fusiontest::waitFor([&] { return observed.frames > framesAtError + 10; }));
    const auto before = stamps();
    ASSERT_TRUE(fusiontest::waitFor([&] { return observed.frames > framesAtError + 40; }));
    const auto after = stamps();
    EXPECT_GT(after.first, before.first);
    EXPECT_EQ(after.second, before.second);

    worker.close();
    relay.terminate();
    relay.waitForFinished();
    const std::string log = testing::internal::GetCapturedStdout();

    const auto shown = prompts->prompts();
    const auto* openFailure = find(shown, "Camera(s) failed to open");
    ASSERT_NE(openFailure, nullptr);
    EXPECT_EQ(openFailure->text, "Halden failed to open: 51004");
    const auto* subscribeFailure = find(shown, "Failed to subscribe");
    ASSERT_NE(subscribeFailure, nullptr);
    EXPECT_EQ(subscribeFailure->kind, "show");
    EXPECT_EQ(subscribeFailure->text, "Halden failed to subscribe to: 51003");
    const auto* grabError = find(shown, "SN51002: CAMERA NOT DETECTED");
    EXPECT_EQ(grabError->text,
              "Halden received error CAMERA NOT DETECTED from SN51002.\n\nNo new data will be ingested from SN51002.");
    EXPECT_EQ(grabError->kind, "show");

    EXPECT_NE(log.find(" camera 51004 failed to open"), std::string::npos);
    EXPECT_NE(log.find("Unable to subscribe to 51003 . INVALID SENDER VERSION"), std::string::npos);
    size_t enableLines = 0;
    for (size_t at = log.find("enableSK "); at != std::string::npos; at = log.find("enableSK ", at + 1)) ++enableLines;
    EXPECT_EQ(enableLines, 1u);
}
