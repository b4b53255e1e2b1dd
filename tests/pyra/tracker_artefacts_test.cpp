// The simulated tracker's artefacts and view-dependent pull against their settings: who
// hides whom, ids that change, frames a slow sender loses, spikes, and deeper joints
// seen from the front than from the side.
#include <gtest/gtest.h>

#include <cmath>
#include <set>

#include "pyra_sim/scene.hpp"
#include "sim/people.hpp"
#include "sim/tracker_artefacts.hpp"

namespace {

constexpr uint64_t kStart = 1700000000000000000ULL;

// A standing column of keypoints `depth` metres in front of the camera, `x` to its right.
std::vector<lum::Vector3f> column(float x, float depth) {
    std::vector<lum::Vector3f> points;
    for (float y = -0.9f; y <= 0.8f; y += 0.1f) points.emplace_back(x, y, -depth);
    return points;
}

TEST(TrackerArtefacts, OnlyTheNearerPersonHidesAndOnlyWhatItCovers) {
    const lum::Vector3f up(0.f, 1.f, 0.f);
    const auto hidden = pyra_sim::hidingDepths({column(0.f, 3.f), column(0.1f, 5.f), column(1.2f, 5.f)}, up);
    for (float d : hidden[0]) EXPECT_TRUE(std::isnan(d));  // the front person is never hidden
    for (float d : hidden[2]) EXPECT_TRUE(std::isnan(d));  // a person to the side is seen
    int covered = 0;
    for (float d : hidden[1]) {
        if (std::isnan(d)) continue;
        ++covered;
        EXPECT_NEAR(d, 2.88f, 0.01f);  // the front person's surface facing the camera
    }
    EXPECT_EQ(covered, int(hidden[1].size()));  // smaller with distance, wholly behind
}

TEST(TrackerArtefacts, IdsSwitchAtTheirRateAndHoldBetween) {
    pyra_sim::CameraSettings camera = pyra_sim::defaultScene().cameras[0];
    const pyra_sim::Scene scene = pyra_sim::defaultScene();
    camera.tracker.idSwitchIntervalS = 20;
    std::set<int> ids;
    int changes = 0, previous = -1;
    for (int frame = 0; frame < 30 * 1200; ++frame) {
        const int id = pyra_sim::trackerId(scene, camera, 0, kStart + uint64_t(frame) * 33333333ULL);
        changes += previous >= 0 && id != previous;
        previous = id;
        ids.insert(id);
    }
    EXPECT_NEAR(changes, 60, 20);  // 1200 s at one switch in 20 s
    EXPECT_EQ(int(ids.size()), changes + 1);  // a new id is never an old one
    EXPECT_NE(pyra_sim::trackerId(scene, camera, 0, kStart), pyra_sim::trackerId(scene, camera, 1, kStart));
    camera.tracker.idSwitchIntervalS = 0;
    EXPECT_EQ(pyra_sim::trackerId(scene, camera, 0, kStart), pyra_sim::trackerId(scene, camera, 0, kStart + 600000000000ULL));
}

TEST(TrackerArtefacts, SendersLoseFramesAtTheirRate) {
    const pyra_sim::Scene scene = pyra_sim::defaultScene();
    pyra_sim::CameraSettings camera = scene.cameras[0];
    camera.tracker = pyra_sim::TrackerSettings::none();
    camera.tracker.grabFps = 15;
    int kept = 0;
    for (int64_t frame = 0; frame < 3000; ++frame) {
        const bool dropped = pyra_sim::frameDropped(scene, camera, frame);
        EXPECT_NE(dropped, pyra_sim::frameDropped(scene, camera, frame + 1));  // every other frame
        kept += !dropped;
    }
    EXPECT_EQ(kept, 1500);
    camera.tracker.grabFps = 0;
    camera.tracker.dropRate = 0.1f;
    int dropped = 0;
    for (int64_t frame = 0; frame < 20000; ++frame) dropped += pyra_sim::frameDropped(scene, camera, frame);
    EXPECT_NEAR(dropped, 2000, 200);
}

// One camera far back with a very wide view, one walker: spikes and the pull by view.
pyra_sim::Scene wideScene() {
    pyra_sim::Scene scene;
    std::string error;
    EXPECT_TRUE(pyra_sim::parseScene(R"({"seed": 5, "cameras": [{"serial": 7, "position": [0, 1.2, 6.5],
        "look_at": [0, 1.0, 0], "hfov_deg": 160, "vfov_deg": 160, "max_depth": 20,
        "noise": {"depth_sigma_at_3m": 0, "lateral_sigma_px": 0, "missing_rate": 0, "swap_rate": 0},
        "tracker": {"occlusion": false, "id_switch_interval_s": 0, "drop_rate": 0, "spike_rate": 0.05, "spike_m": 0.3}}]})",
                                     scene, &error))
        << error;
    return scene;
}

TEST(TrackerArtefacts, SpikesAtTheirRateAndHipsPulledDeeperFromTheFront) {
    pyra_sim::Scene scene = wideScene();
    const pyra_sim::CameraSettings& camera = scene.cameras[0];
    const int rightHip = 8, leftHip = 11;  // of the 18-keypoint layout
    int frames = 0, spikes = 0;
    double pull[2] = {0, 0};  // front or back, side
    int count[2] = {0, 0};
    for (int frame = 0; frame < 20000; ++frame) {
        const uint64_t t = kStart + uint64_t(frame) * 61000000ULL;
        std::vector<pyra_sim::ObservedTruth> truth;
        const lum::Bodies seen = pyra_sim::observe(scene, camera, t, pyra_sim::ObservationOptions(), &truth);
        ASSERT_EQ(seen.body_list.size(), 1u);
        const auto& body = seen.body_list[0];
        const auto& exact = truth[0].keypoints;
        double worst = 0;
        for (size_t k = 0; k < exact.size(); ++k) worst = std::max(worst, double((body.keypoint[k] - exact[k]).norm()));
        ++frames;
        if (worst > 0.1) {  // beyond any pull: a spike
            ++spikes;
            continue;
        }
        // Facing from the true hips; the camera looks along -z.
        const lum::Vector3f across = exact[rightHip] - exact[leftHip];
        const float cosine = std::fabs(across.x) / std::hypot(across.x, across.z);  // 1: seen from the front
        const int view = cosine > 0.97f ? 0 : cosine < 0.25f ? 1 : -1;
        if (view < 0) continue;
        for (int hip : {rightHip, leftHip}) {
            pull[view] += exact[hip].norm() - body.keypoint[hip].norm();
            ++count[view];
        }
    }
    EXPECT_NEAR(double(spikes) / frames, 0.05, 0.01);
    ASSERT_GT(count[0], 500);
    ASSERT_GT(count[1], 500);
    // Hips lie 9 cm below the front surface and 6 cm below the side one.
    EXPECT_NEAR((pull[0] / count[0]) / (pull[1] / count[1]), 1.5, 0.1);

    scene.cameras[0].noise.pullByView = false;
    const lum::Bodies flat = pyra_sim::observe(scene, scene.cameras[0], kStart, pyra_sim::ObservationOptions());
    scene.cameras[0].noise.pullByView = true;
    EXPECT_NE(flat.body_list[0].keypoint[rightHip],
              pyra_sim::observe(scene, scene.cameras[0], kStart, pyra_sim::ObservationOptions()).body_list[0].keypoint[rightHip]);
}

}  // namespace
