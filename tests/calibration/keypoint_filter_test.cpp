// Poisoned keypoints (non-finite, corrupted, zero covariance) against the calibration:
// refused and counted where they enter, and the report survives a problem built around them.
#include <gtest/gtest.h>

#include <cmath>

#include "calibration/calibration_report.hpp"
#include "calibration/keypoint_pairs.hpp"
#include "calibration/skeleton_align.hpp"
#include "testing/synthetic_room.hpp"

namespace {

synthetic::Options quiet() {
    synthetic::Options options;
    options.cameras = 3;
    options.everythingVisible = true;
    options.bias = 0;
    options.missing = 0;
    return options;
}

// Every frame of the last camera is corrupted in one of five ways; the last covariance is
// singular (two equal rows) behind huge entries, which rounding makes look positive.
void poison(std::map<int, lum::BodyData>& bodies, int frame, int camera) {
    lum::BodyData& body = bodies.at(camera);
    switch (frame % 5) {
    case 0: body.keypoint[3].x = 1e18f; break;
    case 1: body.keypoint[5].y = INFINITY; break;
    case 2: body.keypoint_covariances[7] = {0, 0, 0, 0, 0, 0}; break;
    case 3: body.keypoint_covariances[8] = {1e-4f, 0, 0, -1e-4f, 0, 1e-4f}; break;
    default: body.keypoint_covariances[9] = {2.26036e11f, 2.25831e11f, 2.25831e11f, 2.25831e11f, 2.25831e11f,
                                             2.25831e11f};
    }
}

TEST(KeypointFilter, RefusesAndCountsPoisonedKeypointsWithoutLosingTheRoom) {
    synthetic::Room room(quiet());
    SkeletonMulticameraCalibration calibration;
    const int bad = room.cameras.back().id;
    for (int i = 0; i < 40; ++i) {
        std::map<int, lum::BodyData> bodies = room.observe(0.5 * i);
        poison(bodies, i, bad);
        calibration.frames.add(lum::Timestamp(uint64_t(1e9 + 5e8 * i)), bodies);
    }
    EXPECT_EQ(calibration.frames.droppedKeypoints().implausible, 8);
    EXPECT_EQ(calibration.frames.droppedKeypoints().nonFinite, 8);
    EXPECT_EQ(calibration.frames.droppedKeypoints().badCovariance, 24);
    calib::forEachKeypointPair(calibration.frames.all(), [](lum::Timestamp, int, int, const Eigen::Vector3d&,
                                                      const Eigen::Vector3d&, const Eigen::Matrix3d& weight, int) {
        ASSERT_TRUE(weight.allFinite());
    });
    EXPECT_NE(calibration.frames.droppedKeypoints().describe().find("beyond 100 m"), std::string::npos);

    ASSERT_TRUE(calibration.calibrate());
    ASSERT_TRUE(calibration.calibrate());
    const auto worst = synthetic::worstError(room, calibration);
    EXPECT_LT(worst.first, 0.5);
    EXPECT_LT(worst.second, 20.0);
    const CalibrationReport report = makeCalibrationReport(calibration);
    ASSERT_EQ(report.cameras.size(), 3u);
    for (const CameraCalibrationReport& camera : report.cameras) {
        EXPECT_TRUE(std::isfinite(camera.rmsAfterMm)) << camera.camera;
        EXPECT_TRUE(std::isfinite(camera.translationSigmaMm)) << camera.camera;
    }
}

// A camera whose every keypoint was refused neither holds the world nor gets a pose.
TEST(KeypointFilter, CameraWithNothingUsableIsLeftOut) {
    synthetic::Room room(quiet());
    SkeletonMulticameraCalibration calibration;
    const int first = room.cameras[0].id;
    for (int i = 0; i < 30; ++i) {
        std::map<int, lum::BodyData> bodies = room.observe(0.5 * i);
        for (auto& point : bodies.at(first).keypoint) point.z = -500.f;
        calibration.frames.add(lum::Timestamp(uint64_t(1e9 + 5e8 * i)), bodies);
    }
    ASSERT_TRUE(calibration.calibrate());
    EXPECT_EQ(calibration.state.calibratedPoses.count(first), 0u);
    EXPECT_EQ(calibration.state.calibratedPoses.size(), 2u);
    const SkeletonMulticameraCalibration::PoseStruct& reference = calibration.state.poses.at(room.cameras[1].id);
    EXPECT_EQ(reference.q[3], 1.0);
    EXPECT_EQ(reference.t[0], 0.0);
}

}  // namespace
