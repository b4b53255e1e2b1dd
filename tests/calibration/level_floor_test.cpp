// The level world frame from one camera's view of planted feet: a walk through the room
// levels it; feet on one spot or one line, whose plane could turn about them, do not.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "calibration/level_floor.hpp"

namespace {

// A person whose ankles (18-keypoint layout) touch the floor 1.5 m below a level camera,
// at the floor points `where` gives, with a centimetre of noise in height.
calib::Frames walk(const std::function<Eigen::Vector2d(int)>& where) {
    std::mt19937 random(7);
    std::normal_distribution<double> noise(0, 0.01);
    calib::Frames frames;
    for (int i = 0; i < 200; ++i) {
        const Eigen::Vector2d at = where(i);
        lum::BodyData body;
        body.keypoint.assign(18, lum::Vector3f(0, 0, 0));
        const auto floor = [&](double side) {
            return lum::Vector3f(float(at.x() + side), float(-1.5 + 0.08 + noise(random)), float(at.y()));
        };
        body.keypoint[13] = floor(-0.1);
        body.keypoint[10] = floor(0.1);
        body.keypoint[1] = lum::Vector3f(float(at.x()), -0.1f, float(at.y()));
        frames[lum::Timestamp(uint64_t(i + 1) * 33000000)][41001] = body;
    }
    return frames;
}

calib::FloorFit fit(const calib::Frames& frames) {
    return calib::levelFloor(frames, {{41001, calib::CameraUnknowns()}}, 41001, {0.08, 0.02});
}

}  // namespace

TEST(LevelFloor, LevelsAWalkAndRefusesFeetOnOneSpotOrLine) {
    const calib::FloorFit room = fit(walk([](int i) { return Eigen::Vector2d(1.5 * std::sin(i * 0.1), -3 + std::cos(i * 0.07)); }));
    ASSERT_TRUE(room.found) << room.refused;
    EXPECT_TRUE(room.refused.empty());
    // Level camera: the world's up is the camera's up, and it stands 1.5 m above the floor.
    EXPECT_NEAR(room.worldFromReference.translation().y(), 1.5, 0.02);
    EXPECT_GT(room.worldFromReference.linear()(1, 1), std::cos(M_PI / 180));

    for (const auto& degenerate : std::vector<std::function<Eigen::Vector2d(int)>>{
             [](int) { return Eigen::Vector2d(0.3, -3); },                      // standing still
             [](int i) { return Eigen::Vector2d(-2 + 0.02 * i, -3 + 0.03 * std::sin(i)); }}) {  // one line
        const calib::FloorFit refused = fit(walk(degenerate));
        EXPECT_FALSE(refused.found);
        EXPECT_NE(refused.refused.find("unlevelled"), std::string::npos) << refused.refused;
    }
}
