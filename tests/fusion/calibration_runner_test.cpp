// The off-thread solve: its result comes back once, and frames collected while it ran
// survive the merge.
#include <gtest/gtest.h>

#include "fusion/calibration_runner.hpp"
#include "pyra_sim/scene.hpp"
#include "testing/synthetic_store.hpp"

TEST(CalibrationRunner, MergesTheSolveWithoutLosingFramesCollectedMeanwhile) {
    std::map<int, lum::Transform> truth;
    for (const pyra_sim::CameraSettings& camera : pyra_sim::defaultScene().cameras)
        truth[static_cast<int>(camera.serial)] = camera.pose;
    SkeletonMulticameraCalibration store = synthetic::syntheticStore(truth, 15, 0.003, 5);
    const SkeletonMulticameraCalibration later = synthetic::syntheticStore(truth, 3, 0.003, 6);

    CalibrationRunner runner;
    runner.start(store);
    EXPECT_TRUE(runner.busy());
    for (const auto& [timestamp, bodies] : later.frames) {
        auto frame = bodies;
        store.frames.add(timestamp + 1000000000000ULL, frame);  // after the snapshot's frames
    }
    runner.start(store);  // ignored: one solve at a time
    runner.wait();
    std::optional<SolvedCalibration> solved = runner.take();
    ASSERT_TRUE(solved && solved->usable);
    EXPECT_FALSE(runner.take());
    EXPECT_FALSE(runner.busy());
    EXPECT_EQ(solved->calibration->frames.size(), 15u);
    EXPECT_TRUE(solved->report.usable);

    const auto expectedPoses = solved->calibration->state.calibratedPoses;
    mergeSolvedCalibration(store, std::move(*solved));
    EXPECT_EQ(store.frames.size(), 18u);
    EXPECT_EQ(store.state.poses.size(), truth.size());
    ASSERT_EQ(store.state.calibratedPoses.size(), truth.size());
    for (const auto& [serial, pose] : expectedPoses) EXPECT_EQ(store.state.calibratedPoses.at(serial), pose);
}
