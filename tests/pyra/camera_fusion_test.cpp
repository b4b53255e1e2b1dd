// Cameras publishing over shared memory into an in-process fusion: fused bodies against the
// simulated truth, per-camera reads, poses, metrics, and the refusals of open and subscribe.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <thread>

#include "lum/lum.hpp"
#include "testing/isolated_process.hpp"
#include "pyra_sim/scene.hpp"

namespace {

using platform_test::waitFor;

class Isolated : public ::testing::Environment {
public:
    void SetUp() override { platform_test::isolateProcess(); }
};
const auto* const kEnvironment = ::testing::AddGlobalTestEnvironment(new Isolated);

lum::InitParameters openParameters(unsigned int serial) {
    lum::InitParameters init;
    init.input.setFromSerialNumber(serial);
    init.unit = lum::UNIT::METER;
    init.coordinateSystem = lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP;
    return init;
}

// A sender as the application runs one: open, track, publish, detect, grab in a loop.
class Sender {
public:
    lum::ERROR_CODE start(unsigned int serial) {
        lum::ERROR_CODE code = camera.open(openParameters(serial));
        if (code != lum::ERROR_CODE::SUCCESS) return code;
        camera.enablePositionalTracking();
        lum::CommunicationParameters shared;
        shared.setForSharedMemory();
        camera.startPublishing(shared);
        camera.enableBodyTracking(lum::BodyTrackingParameters());
        running = true;
        thread = std::thread([this] {
            lum::Bodies bodies;
            while (running && camera.grab() == lum::ERROR_CODE::SUCCESS)
                camera.retrieveBodies(bodies, lum::BodyTrackingRuntimeParameters(50.f));
        });
        return code;
    }
    void stop() {
        running = false;
        if (thread.joinable()) thread.join();
        camera.close();
    }
    ~Sender() { stop(); }

    lum::Camera camera;
    std::atomic<bool> running{false};
    std::thread thread;
};

lum::InitFusionParameters fusionParameters() {
    lum::InitFusionParameters init;
    init.unit = lum::UNIT::METER;
    init.coordinateSystem = lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP;
    return init;
}

double meanKeypointError(const lum::BodyData& body, const pyra_sim::TrueBody& truth) {
    double sum = 0.0;
    int n = 0;
    for (size_t i = 0; i < body.keypoint.size(); ++i) {
        if (!std::isfinite(body.keypoint[i].x)) continue;
        sum += (body.keypoint[i] - truth.keypoints[i]).norm();
        ++n;
    }
    return n ? sum / n : 1e9;
}

TEST(CameraFusion, SharedMemoryFusionFollowsTheWalker) {
    pyra_sim::Scene scene = pyra_sim::defaultScene();
    pyra_sim::setActiveScene(scene);
    Sender a, b;
    ASSERT_EQ(a.start(41001), lum::ERROR_CODE::SUCCESS);
    ASSERT_EQ(b.start(41003), lum::ERROR_CODE::SUCCESS);

    lum::Fusion fusion;
    ASSERT_EQ(fusion.init(fusionParameters()), lum::FUSION_ERROR_CODE::SUCCESS);
    lum::CommunicationParameters shared;
    shared.setForSharedMemory();
    lum::CameraIdentifier idA(41001), idB(41003);
    ASSERT_EQ(fusion.subscribe(idA, shared, scene.cameras[0].pose), lum::FUSION_ERROR_CODE::SUCCESS);
    ASSERT_EQ(fusion.subscribe(idB, shared, scene.cameras[2].pose), lum::FUSION_ERROR_CODE::SUCCESS);
    EXPECT_EQ(fusion.subscribe(idB, shared, scene.cameras[2].pose), lum::FUSION_ERROR_CODE::ALREADY_SUBSCRIBED);
    ASSERT_EQ(fusion.enableBodyTracking(), lum::FUSION_ERROR_CODE::SUCCESS);

    // Errors average out over many sets; one set may catch a walker mid-stride.
    double errorSum = 0.0;
    int sets = 0;
    lum::BodyTrackingFusionRuntimeParameters runtime(4, -1);
    ASSERT_TRUE(waitFor([&] {
        if (fusion.process() != lum::FUSION_ERROR_CODE::SUCCESS) return false;
        lum::Bodies fused;
        fusion.retrieveBodies(fused, runtime);
        if (fused.body_list.size() != 1 || !fused.is_new) return false;
        auto truth = pyra_sim::peopleAt(scene, fused.timestamp, lum::BODY_FORMAT::BODY_18);
        errorSum += meanKeypointError(fused.body_list[0], truth[0]);
        return ++sets >= 30;
    }, 20.0));
    EXPECT_LT(errorSum / sets, 0.06);

    lum::Bodies again;
    fusion.retrieveBodies(again, runtime);
    EXPECT_FALSE(again.is_new);
    lum::Bodies own;
    ASSERT_EQ(fusion.retrieveBodies(own, runtime, idA, lum::FUSION_REFERENCE_FRAME::BASELINK),
              lum::FUSION_ERROR_CODE::SUCCESS);
    EXPECT_TRUE(own.is_new);
    fusion.retrieveBodies(own, runtime, idA, lum::FUSION_REFERENCE_FRAME::BASELINK);
    EXPECT_FALSE(own.is_new);
    EXPECT_EQ(fusion.retrieveBodies(own, runtime, lum::CameraIdentifier(999)),
              lum::FUSION_ERROR_CODE::CAMERA_NOT_SUBSCRIBED);

    // A new pose is held from the next process on.
    lum::Pose pose;
    fusion.updatePose(idA, lum::Transform());
    fusion.getPosition(pose, lum::REFERENCE_FRAME::WORLD, idA, lum::POSITION_TYPE::RAW);
    EXPECT_EQ(pose.pose_data, scene.cameras[0].pose);
    ASSERT_TRUE(waitFor([&] { return fusion.process() == lum::FUSION_ERROR_CODE::SUCCESS; }, 5.0));
    fusion.getPosition(pose, lum::REFERENCE_FRAME::WORLD, idA, lum::POSITION_TYPE::RAW);
    EXPECT_EQ(pose.pose_data, lum::Transform());

    lum::FusionMetrics metrics;
    ASSERT_EQ(fusion.getProcessMetrics(metrics), lum::FUSION_ERROR_CODE::SUCCESS);
    ASSERT_EQ(metrics.camera_individual_stats.size(), 2u);
    for (const auto& [id, m] : metrics.camera_individual_stats) {
        EXPECT_TRUE(m.is_present);
        EXPECT_GT(m.received_fps, 0.f);
        EXPECT_GT(m.ratio_detection, 0.f);
        EXPECT_EQ(m.dropped_frames, 0u);
    }
    EXPECT_GT(metrics.mean_camera_fused, 0.f);

    // Once the senders are gone, process gives up within its short wait.
    a.stop();
    b.stop();
    while (fusion.process() == lum::FUSION_ERROR_CODE::SUCCESS) {
    }
    auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(fusion.process(), lum::FUSION_ERROR_CODE::NO_NEW_DATA_AVAILABLE);
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(500));

    // A camera closed and opened again publishes at once where it did before.
    ASSERT_EQ(a.start(41001), lum::ERROR_CODE::SUCCESS);
    lum::Fusion reopened;
    reopened.init(fusionParameters());
    EXPECT_EQ(reopened.subscribe(idA, shared, lum::Transform()), lum::FUSION_ERROR_CODE::SUCCESS);
    EXPECT_TRUE(waitFor([&] { return reopened.process() == lum::FUSION_ERROR_CODE::SUCCESS; }, 5.0));
}

}  // namespace
