// First poses by consensus on synthetic walks: a fit is trusted only over a walk spread in
// the room that agrees with itself, and a camera reached two ways must land in one place.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "calibration/pose_consensus.hpp"

namespace {

Eigen::Isometry3d pose(double yawDeg, const Eigen::Vector3d& centre) {
    Eigen::Isometry3d t = Eigen::Isometry3d::Identity();
    t.linear() = Eigen::AngleAxisd(yawDeg * M_PI / 180.0, Eigen::Vector3d::UnitY()).toRotationMatrix() *
                 Eigen::AngleAxisd(-0.4, Eigen::Vector3d::UnitX()).toRotationMatrix();
    t.translation() = centre;
    return t;
}

// 18 joints of a person standing at `at` (room frame), seen by a camera at `cameraToRoom`.
lum::BodyData seen(const Eigen::Vector2d& at, const Eigen::Isometry3d& cameraToRoom, std::mt19937& random) {
    std::normal_distribution<double> noise(0.0, 0.01);
    lum::BodyData body;
    for (int k = 0; k < 18; ++k) {
        const Eigen::Vector3d joint(at.x() + 0.25 * std::sin(k * 1.7), 0.1 * k, at.y() + 0.1 * std::cos(k * 2.3));
        const Eigen::Vector3d p = cameraToRoom.inverse() * joint + Eigen::Vector3d(noise(random), noise(random), noise(random));
        body.keypoint.emplace_back(float(p.x()), float(p.y()), float(p.z()));
    }
    return body;
}

// `places` instants, each seen by the cameras given with the pose they are seen from.
calib::Frames walk(const std::vector<Eigen::Vector2d>& places, const std::map<int, Eigen::Isometry3d>& cameras,
                   uint64_t firstNs = 0) {
    std::mt19937 random(3);
    calib::Frames frames;
    for (size_t i = 0; i < places.size(); ++i)
        for (const auto& [camera, cameraPose] : cameras)
            frames[lum::Timestamp(firstNs + i * 500000000ull)][camera] = seen(places[i], cameraPose, random);
    return frames;
}

std::vector<Eigen::Vector2d> around(int count) {
    std::vector<Eigen::Vector2d> places;
    for (int i = 0; i < count; ++i) places.emplace_back(2.0 * std::cos(i * 0.7), 1.5 * std::sin(i * 1.1));
    return places;
}

double turnDeg(const Eigen::Isometry3d& a, const Eigen::Isometry3d& b) {
    return Eigen::AngleAxisd(a.linear().transpose() * b.linear()).angle() * 180.0 / M_PI;
}

}  // namespace

TEST(PoseConsensus, TrustsAFitOnlyOverAWalkThatAgreesWithItself) {
    const calib::ConsensusOptions options;
    const Eigen::Isometry3d a = pose(0, {0, 2.5, 3}), b = pose(160, {0.5, 2.4, -3});
    const calib::PairFit spread = calib::fitCameraPair(walk(around(30), {{1, a}, {2, b}}), 1, 2, options);
    ASSERT_TRUE(spread.trusted) << spread.problem;
    const Eigen::Isometry3d truth = a.inverse() * b;
    EXPECT_LT(turnDeg(spread.bToA, truth), 1.0);
    EXPECT_LT((spread.bToA.translation() - truth.translation()).norm(), 0.05);

    std::vector<Eigen::Vector2d> line;
    for (int i = 0; i < 30; ++i) line.emplace_back(-2.0 + 0.13 * i, 0.5);
    const calib::PairFit straight = calib::fitCameraPair(walk(line, {{1, a}, {2, b}}), 1, 2, options);
    EXPECT_FALSE(straight.trusted);
    EXPECT_NE(straight.problem.find("one line"), std::string::npos) << straight.problem;

    // Camera 2 turned 15 degrees halfway: neither pose fits the whole walk.
    calib::Frames moved = walk(around(16), {{1, a}, {2, b}});
    for (const auto& frame : walk(around(16), {{1, a}, {2, pose(175, {0.5, 2.4, -3})}}, 20000000000ull))
        moved.insert(frame);
    EXPECT_FALSE(calib::fitCameraPair(moved, 1, 2, options).trusted);
}

TEST(PoseConsensus, SeedsOutwardAndRefusesACameraWhoseRoutesDisagree) {
    const calib::ConsensusOptions options;
    const std::map<int, Eigen::Isometry3d> truth = {
        {1, pose(0, {0, 2.5, 3})}, {2, pose(90, {3, 2.5, 0})}, {3, pose(200, {0, 2.2, -3})}};
    const calib::ConsensusSeeds seeds = calib::seedCameras(walk(around(30), truth), {}, options);
    ASSERT_EQ(seeds.seeds.size(), 3u);
    EXPECT_TRUE(seeds.waiting.empty());
    for (const auto& [camera, seed] : seeds.seeds)
        EXPECT_LT(turnDeg(seed, truth.at(1).inverse() * truth.at(camera)), 1.0) << camera;

    // Camera 3 shares its frames with 1 and with 2 apart, and the two disagree by 20 degrees.
    calib::Frames frames = walk(around(30), {{1, truth.at(1)}, {2, truth.at(2)}});
    for (const auto& frame : walk(around(30), {{1, truth.at(1)}, {3, truth.at(3)}}, 20000000000ull)) frames.insert(frame);
    for (const auto& frame : walk(around(30), {{2, truth.at(2)}, {3, pose(220, {0, 2.2, -3})}}, 40000000000ull))
        frames.insert(frame);
    const calib::ConsensusSeeds split = calib::seedCameras(frames, {}, options);
    EXPECT_EQ(split.seeds.count(3), 0u);
    ASSERT_EQ(split.waiting.count(3), 1u);
    EXPECT_NE(split.waiting.at(3).find("apart"), std::string::npos) << split.waiting.at(3);
}
