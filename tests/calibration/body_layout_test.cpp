// Rooms whose cameras send 34- or 38-keypoint bodies: the feet and the neck are found in
// the layout the bodies came in, so the floor is level and every height right.
#include <gtest/gtest.h>

#include "testing/crowd_room.hpp"

namespace {

TEST(BodyLayout, RoomsOfEveryLayoutCalibrateOnALevelFloor) {
    for (const lum::BODY_FORMAT format : {lum::BODY_FORMAT::BODY_34, lum::BODY_FORMAT::BODY_38}) {
        SCOPED_TRACE(lum::getKeypointCount(format));
        crowd::Options options;
        options.scene = crowd::room(2, false);
        for (pyra_sim::CameraSettings& camera : options.scene.cameras) camera.bodyFormat = format;
        options.model = SkeletonMulticameraCalibration::Model::Refined;
        options.seconds = 60;
        options.calibrateEvery = 5;
        const crowd::Result result = crowd::run(options);
        ASSERT_TRUE(result.calibrated);
        EXPECT_EQ(result.wrong, 0);
        ASSERT_EQ(result.heightErrorMm.size(), options.scene.cameras.size());
        for (const auto& [camera, error] : result.heightErrorMm) EXPECT_LT(std::abs(error), 30.0) << camera;
    }
}

}  // namespace
