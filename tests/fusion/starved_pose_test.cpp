// A camera whose pose went wrong after it was placed: its bodies no longer pair through that
// pose, so it would never earn a frame to correct it. It is found anew from what it sees.
#include <gtest/gtest.h>

#include <Eigen/Geometry>

#include "testing/pose_error.hpp"
#include "tests/fusion/tampered_walk.hpp"

namespace {

constexpr int kKnocked = 41003;
constexpr double kKnockS = 20;

lum::Transform toTransform(const Eigen::Isometry3d& isometry) {
    const Eigen::Quaterniond q(isometry.linear());
    const Eigen::Vector3d t = isometry.translation();
    return lum::Transform(lum::Orientation(float(q.x()), float(q.y()), float(q.z()), float(q.w())),
                          lum::Translation(float(t.x()), float(t.y()), float(t.z())));
}

Eigen::Isometry3d toIsometry(const lum::Transform& transform) {
    Eigen::Isometry3d out = Eigen::Isometry3d::Identity();
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 4; ++c) out.matrix()(r, c) = transform(r, c);
    return out;
}

}  // namespace

// 41003 turns 25 deg and slides 0.6 m in its own frame 20 s into a 60 s walk, far outside
// the association's gate: every later body of it lands nowhere near its peers' through the
// pose the first solves gave it.
TEST(StarvedPose, ACameraWhoseBodiesStopPairingThroughItsPoseIsPlacedAnew) {
    pyra_sim::Scene scene = pyra_sim::defaultScene();
    Eigen::Isometry3d knock = Eigen::Isometry3d::Identity();
    knock.linear() = Eigen::AngleAxisd(25.0 * M_PI / 180.0, Eigen::Vector3d::UnitY()).toRotationMatrix();
    knock.translation() = Eigen::Vector3d(0.6, 0.0, 0.1);
    const tampered::Outcome outcome = tampered::calibrate(scene, 60, [&knock](int serial, double s, lum::Bodies& b) {
        if (serial != kKnocked || s < kKnockS) return;
        for (lum::BodyData& body : b.body_list) {
            for (lum::Vector3f& p : body.keypoint) {
                const Eigen::Vector3d moved = knock * Eigen::Vector3d(p.x, p.y, p.z);
                p = lum::Vector3f(float(moved.x()), float(moved.y()), float(moved.z()));
            }
            const Eigen::Vector3d centre = knock * Eigen::Vector3d(body.position.x, body.position.y, body.position.z);
            body.position = lum::Vector3f(float(centre.x()), float(centre.y()), float(centre.z()));
        }
    });

    // Where the camera stands now, as its bodies tell it.
    for (pyra_sim::CameraSettings& camera : scene.cameras)
        if (camera.serial == kKnocked) camera.pose = toTransform(toIsometry(camera.pose) * knock.inverse());
    ASSERT_TRUE(outcome.saved.count(kKnocked)) << "not placed again";
    for (const auto& [serial, error] : tampered::errors(scene, outcome.saved)) {
        EXPECT_LT(error.first, 2.0) << serial;
        EXPECT_LT(error.second, 60.0) << serial;
    }
}
