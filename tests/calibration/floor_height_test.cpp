// The level world's floor on the simulated room, whose ankles stand where a walker's do:
// every camera at its true height whichever body layout the cameras send.
#include <gtest/gtest.h>

#include "testing/sim_walk.hpp"

TEST(FloorHeight, CamerasAtTheirTrueHeightsForEveryBodyLayout) {
    for (const lum::BODY_FORMAT format :
         {lum::BODY_FORMAT::BODY_18, lum::BODY_FORMAT::BODY_34, lum::BODY_FORMAT::BODY_38}) {
        pyra_sim::Scene scene = pyra_sim::defaultScene();
        for (pyra_sim::CameraSettings& camera : scene.cameras) camera.bodyFormat = format;
        const simwalk::Walk walk =
            simwalk::calibrateWalk(scene, 40.0, SkeletonMulticameraCalibration::Model::Refined);
        ASSERT_TRUE(walk.report.usable) << int(format);
        EXPECT_TRUE(walk.report.floorRefused.empty()) << walk.report.floorRefused;
        ASSERT_EQ(walk.store.state.calibratedPoses.size(), scene.cameras.size());
        for (const auto& [serial, pose] : walk.store.state.calibratedPoses) {
            const float truth = pyra_sim::findCamera(scene, unsigned(serial))->pose.getTranslation().y;
            EXPECT_NEAR(pose.getTranslation().y, truth, 0.02) << "layout " << int(format) << ", camera " << serial;
        }
    }
}

