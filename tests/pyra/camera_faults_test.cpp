// What a camera refuses and how its scene faults show: busy or absent cameras, a stream
// that fails to start, a grab error after a while, a sender that falls silent, the models.
#include <gtest/gtest.h>

#include <thread>

#include "lum/lum.hpp"
#include "testing/isolated_process.hpp"
#include "pyra_sim/scene.hpp"

namespace {

using platform_test::waitFor;

pyra_sim::Scene faultyScene() {
    pyra_sim::Scene scene;
    std::string error;
    EXPECT_TRUE(pyra_sim::parseScene(R"({"cameras": [
        {"serial": 61001},
        {"serial": 61002, "usb": false},
        {"serial": 61003, "faults": {"fail_to_open": true}},
        {"serial": 61004, "faults": {"grab_error_after_s": 0.2}},
        {"serial": 61005, "faults": {"stop_publishing_after_s": 0.3}}]})", scene, &error)) << error;
    return scene;
}

lum::InitParameters bySerial(unsigned int serial) {
    lum::InitParameters init;
    init.input.setFromSerialNumber(serial);
    return init;
}

TEST(CameraFaults, OpenAndGrabFailuresHaveTheirCodes) {
    platform_test::isolateProcess();
    pyra_sim::setActiveScene(faultyScene());
    std::vector<lum::DeviceProperties> devices = lum::Camera::getDeviceList();
    ASSERT_EQ(devices.size(), 4u);  // the camera not on USB here is not listed
    EXPECT_EQ(devices[1].serial_number, 61003u);

    lum::Camera first, second, absent, broken, failing;
    ASSERT_EQ(first.open(bySerial(61001)), lum::ERROR_CODE::SUCCESS);
    EXPECT_EQ(first.getCameraInformation().serial_number, 61001u);
    EXPECT_EQ(lum::Camera::getDeviceList()[0].camera_state, lum::CAMERA_STATE::NOT_AVAILABLE);
    EXPECT_EQ(second.open(bySerial(61001)), lum::ERROR_CODE::CAMERA_ALREADY_IN_USE);
    EXPECT_EQ(absent.open(bySerial(61002)), lum::ERROR_CODE::CAMERA_NOT_DETECTED);
    EXPECT_EQ(absent.open(bySerial(99)), lum::ERROR_CODE::CAMERA_NOT_DETECTED);
    lum::ERROR_CODE code = broken.open(bySerial(61003));
    EXPECT_EQ(code, lum::ERROR_CODE::CAMERA_STREAM_FAILED_TO_START);
    EXPECT_EQ(lum::toString(code), "CAMERA STREAM FAILED TO START");
    EXPECT_FALSE(broken.isOpened());
    EXPECT_EQ(broken.grab(), lum::ERROR_CODE::CAMERA_NOT_INITIALIZED);
    // Without an input the first free attached camera opens; a released one opens again.
    first.close();
    ASSERT_EQ(second.open(), lum::ERROR_CODE::SUCCESS);
    EXPECT_EQ(second.getCameraInformation().serial_number, 61001u);

    ASSERT_EQ(failing.open(bySerial(61004)), lum::ERROR_CODE::SUCCESS);
    lum::Bodies bodies;
    EXPECT_EQ(failing.retrieveBodies(bodies), lum::ERROR_CODE::MODULE_NOT_ENABLED);
    lum::ERROR_CODE grab = lum::ERROR_CODE::SUCCESS;
    ASSERT_TRUE(waitFor([&] { return (grab = failing.grab()) != lum::ERROR_CODE::SUCCESS; }, 5.0));
    EXPECT_EQ(grab, lum::ERROR_CODE::CAMERA_NOT_DETECTED);
    EXPECT_EQ(lum::toString(grab), "CAMERA NOT DETECTED");

    pyra_sim::setActiveScene(pyra_sim::Scene());
    EXPECT_TRUE(lum::Camera::getDeviceList().empty());
}

TEST(CameraFaults, FramesPacedAndSilencedSenderSeenByFusion) {
    platform_test::isolateProcess();
    pyra_sim::setActiveScene(faultyScene());
    lum::Camera camera;
    ASSERT_EQ(camera.open(bySerial(61005)), lum::ERROR_CODE::SUCCESS);
    lum::CommunicationParameters shared;
    shared.setForSharedMemory();
    ASSERT_EQ(camera.startPublishing(shared), lum::ERROR_CODE::SUCCESS);
    ASSERT_EQ(camera.enableBodyTracking(), lum::ERROR_CODE::SUCCESS);

    lum::Fusion fusion;
    EXPECT_EQ(fusion.process(), lum::FUSION_ERROR_CODE::FUSION_NOT_INITIALIZED);
    EXPECT_EQ(fusion.subscribe(lum::CameraIdentifier(61005), shared, lum::Transform()),
              lum::FUSION_ERROR_CODE::FUSION_NOT_INITIALIZED);
    ASSERT_EQ(fusion.init(), lum::FUSION_ERROR_CODE::SUCCESS);
    ASSERT_EQ(fusion.subscribe(lum::CameraIdentifier(61005), shared, lum::Transform()),
              lum::FUSION_ERROR_CODE::SUCCESS);

    std::atomic<bool> running{true};
    std::vector<uint64_t> stamps;
    std::thread grabber([&] {
        lum::Bodies bodies;
        while (running && camera.grab() == lum::ERROR_CODE::SUCCESS) {
            camera.retrieveBodies(bodies);
            stamps.push_back(bodies.timestamp.getNanoseconds());
        }
    });
    ASSERT_TRUE(waitFor([&] { return fusion.process() == lum::FUSION_ERROR_CODE::SUCCESS; }, 5.0));
    // After the fault no frame comes through, though the camera keeps grabbing.
    ASSERT_TRUE(waitFor([&] {
        int quiet = 0;
        while (quiet < 6 && fusion.process() == lum::FUSION_ERROR_CODE::NO_NEW_DATA_AVAILABLE) ++quiet;
        return quiet == 6;
    }, 10.0));
    running = false;
    grabber.join();
    // Frames follow the camera's clock: one period apart, never twice the same.
    ASSERT_GT(stamps.size(), 5u);
    for (size_t i = 1; i < stamps.size(); ++i) EXPECT_EQ((stamps[i] - stamps[i - 1]) % 33333333ULL, 0u);

    // The fusion never hears from a camera that does not publish.
    lum::Fusion lonely;
    lonely.init();
    EXPECT_EQ(lonely.subscribe(lum::CameraIdentifier(61001), shared, lum::Transform()),
              lum::FUSION_ERROR_CODE::CONNECTION_TIMED_OUT);
}

TEST(CameraFaults, ModelsAreOptimisedOnceIntoTheCache) {
    platform_test::isolateProcess();
    std::string cache = platform_test::privateFolder("fresh-models");
    std::filesystem::remove_all(cache);
    ::setenv("PYRA_MODEL_CACHE", cache.c_str(), 1);
    EXPECT_FALSE(lum::checkAIModelStatus(lum::AI_MODELS::BODY_ACCURATE).optimized);
    EXPECT_EQ(lum::optimizeAIModel(lum::AI_MODELS::BODY_ACCURATE), lum::ERROR_CODE::SUCCESS);
    lum::AI_Model_status status = lum::checkAIModelStatus(lum::AI_MODELS::BODY_ACCURATE);
    EXPECT_TRUE(status.downloaded && status.optimized);
    EXPECT_FALSE(lum::checkAIModelStatus(lum::AI_MODELS::BODY_FAST).downloaded);
    EXPECT_EQ(lum::optimizeAIModel(lum::AI_MODELS(1)), lum::ERROR_CODE::INVALID_FUNCTION_PARAMETERS);
}

}  // namespace
