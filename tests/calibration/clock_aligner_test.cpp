// Tests of the clock aligner: two cameras of the simulated room, one on a clock set apart
// by a known offset (and drift), found from the walk alone; a still room tells nothing.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "calibration/clock_aligner.hpp"
#include "pyra_sim/scene.hpp"

namespace {

constexpr uint64_t kStartNs = 1'700'000'000'000'000'000ull;

// `seconds` of the default room seen by its first two cameras, the second stamping on a
// clock `offsetS` ahead and gaining `driftPpm`; the first camera is the reference.
calib::ClockEstimates watch(pyra_sim::Scene scene, double offsetS, double driftPpm, double seconds) {
    scene.cameras.resize(2);
    scene.cameras[1].clockOffsetSeconds = offsetS;
    scene.cameras[1].clockDriftPpm = driftPpm;
    calib::ClockAligner aligner;
    const pyra_sim::ObservationOptions options;
    for (size_t c = 0; c < 2; ++c) {
        const pyra_sim::CameraSettings& camera = scene.cameras[c];
        const pyra_sim::CameraClock clock(camera, kStartNs);
        const double phase = pyra_sim::cameraPhase(scene, camera);
        for (double t = phase; t < seconds; t += 1.0 / camera.fps) {
            const uint64_t stamp = clock.stampOf(kStartNs) + uint64_t(t * 1e9);
            lum::Bodies bodies = pyra_sim::observe(scene, camera, clock.trueTimeOf(stamp), options);
            bodies.timestamp = stamp;
            aligner.addBodies(int(camera.serial), bodies);
        }
    }
    return aligner.estimate();
}

TEST(ClockAligner, FindsAKnownOffsetFromTheWalkAlone) {
    const pyra_sim::Scene room = pyra_sim::defaultScene();
    for (double offset : {0.0, 0.05, 0.3, 2.0, -1.3}) {
        const calib::ClockEstimates clocks = watch(room, offset, 0, 60);
        ASSERT_EQ(clocks.reference, int(room.cameras[0].serial)) << offset;
        ASSERT_EQ(clocks.cameras.count(clocks.reference), 1u);
        EXPECT_EQ(clocks.cameras.at(clocks.reference).offsetS, 0.0);
        const calib::ClockEstimate& second = clocks.cameras.at(int(room.cameras[1].serial));
        EXPECT_NEAR(second.offsetS, offset, 0.005);
        // The uncertainty is earned: neither zero nor far smaller than the error.
        EXPECT_GT(second.sigmaS, 0.0);
        EXPECT_LT(std::abs(second.offsetS - offset), 4 * second.sigmaS + 0.002) << offset;
    }

    // A clock gaining 300 ppm (18 ms a minute) is followed to its latest reading.
    const calib::ClockEstimates drifting = watch(room, 0.3, 300, 90);
    const calib::ClockEstimate& second = drifting.cameras.at(int(room.cameras[1].serial));
    const double trueNow = 0.3 + 300e-6 * 90;
    EXPECT_NEAR(second.offsetS, trueNow, 0.005);
    EXPECT_NEAR(second.driftPpm, 300, 150);
}

TEST(ClockAligner, SaysNothingWhenNobodyWalks) {
    pyra_sim::Scene still = pyra_sim::defaultScene();
    still.people.standing = 1;
    EXPECT_TRUE(watch(still, 0.3, 0, 40).cameras.empty());
}

}  // namespace
