// Tests of the odometry path alignment: matching window and tie-break, key-pose rules,
// and recovery of a known hand-eye transform.
#include <gtest/gtest.h>

#include <Eigen/Geometry>
#include <ceres/gradient_checker.h>

#include "calibration/path_align.hpp"

namespace {

using Path = std::map<unsigned long, lum::Transform>;

lum::Transform toTransform(const Eigen::Isometry3d& pose) {
    lum::Transform t;
    for (int row = 0; row < 4; ++row)
        for (int col = 0; col < 4; ++col) t(row, col) = float(pose.matrix()(row, col));
    return t;
}

// Where the solve starts (1 along x, 1 rad about x): what a problem without key poses leaves.
lum::Transform startingGuess() {
    Eigen::Isometry3d x = Eigen::Isometry3d::Identity();
    x.linear() = Eigen::AngleAxisd(1.0, Eigen::Vector3d::UnitX()).toRotationMatrix();
    x.translation() = Eigen::Vector3d(1, 0, 0);
    return toTransform(x);
}

bool same(const lum::Transform& a, const lum::Transform& b) {
    for (int k = 0; k < 16; ++k)
        if (std::abs(a.m[k] - b.m[k]) > 1e-5f) return false;
    return true;
}

// Steps of 1 m that turn 0.5 rad about x and y in turn: every step is a key pose.
std::vector<Eigen::Isometry3d> walk(int steps) {
    std::vector<Eigen::Isometry3d> poses{Eigen::Isometry3d::Identity()};
    for (int i = 1; i < steps; ++i) {
        Eigen::Isometry3d step = Eigen::Isometry3d::Identity();
        step.linear() = Eigen::AngleAxisd(0.5, i % 2 ? Eigen::Vector3d::UnitX() : Eigen::Vector3d::UnitY()).toRotationMatrix();
        step.translation() = Eigen::Vector3d(0.6, 0.5 * (i % 3), 0.7);
        poses.push_back(poses.back() * step);
    }
    return poses;
}

TEST(PathAlign, ErrorTermMatchesHandComputedValuesAndDerivatives) {
    // X a pure shift t, both motions a quarter turn R about z: E = [I, t - R t].
    OptimData data;
    data.motionA.setIdentity();
    data.motionA.topLeftCorner<3, 3>() = Eigen::AngleAxisd(M_PI / 2, Eigen::Vector3d::UnitZ()).toRotationMatrix();
    data.motionB = data.motionA;
    const double translation[3] = {1, 0, 0}, rotation[3] = {0, 0, 0};
    double r[6];
    ASSERT_TRUE(PoseGraph3dErrorTerm(data)(translation, rotation, r));
    const double expected[6] = {1, -1, 0, 0, 0, 0};
    for (int i = 0; i < 6; ++i) EXPECT_NEAR(r[i], expected[i], 1e-12) << i;

    data.motionB.topRightCorner<3, 1>() = Eigen::Vector3d(0.3, -0.2, 0.5);
    data.motionB.topLeftCorner<3, 3>() = Eigen::AngleAxisd(0.7, Eigen::Vector3d(1, 1, 0).normalized()).toRotationMatrix();
    ceres::AutoDiffCostFunction<PoseGraph3dErrorTerm, 6, 3, 3> cost(new PoseGraph3dErrorTerm(data));
    const std::vector<const ceres::Manifold*>* noManifolds = nullptr;
    ceres::GradientChecker checker(&cost, noManifolds, ceres::NumericDiffOptions());
    const double t[3] = {0.2, -0.4, 0.1}, a[3] = {0.3, 0.2, -0.5};
    const double* probe[2] = {t, a};
    // No ProbeResults: its Eigen members would be freed on this side of the library.
    EXPECT_TRUE(checker.Probe(probe, 1e-6, nullptr));
}

TEST(PathAlign, FindClosestTakesTheEarliestKeyOfTheWindow) {
    unsigned long found = 0;
    Path path{{108, {}}};
    EXPECT_FALSE(findClosest(100, path, found));
    path = {{92, {}}, {200, {}}};
    ASSERT_TRUE(findClosest(100, path, found));
    EXPECT_EQ(found, 92u);
    path = {{97, {}}, {101, {}}};
    ASSERT_TRUE(findClosest(100, path, found));
    EXPECT_EQ(found, 97u);
    path = {{0, {}}};
    EXPECT_FALSE(findClosest(3, path, found));  // the window wraps around below zero
}

TEST(PathAlign, KeyPosesNeedDistanceOrWholeRadians) {
    // One motion, the same on both paths. As a key pose it moves X away from the start,
    // which does not commute with it; otherwise the problem is empty and X stays there
    // (or the solve is refused and the result left alone).
    auto solvedSomething = [](float angle, float distance) {
        lum::Transform moved;
        moved.setRotationVector(lum::Vector3f(0, 0, angle));
        moved.setTranslation(lum::Translation(0, distance, 0));
        Path a{{0, lum::Transform()}, {100, moved}};
        Path b = a;
        const lum::Transform untouched(lum::Orientation(0.5f, 0.5f, 0.5f, 0.5f), lum::Translation(9, 9, 9));
        lum::Transform result = untouched;
        const bool usable = AlignPath(a, b, result);
        EXPECT_EQ(usable, !same(result, untouched));
        return usable && !same(result, startingGuess());
    };
    EXPECT_FALSE(solvedSomething(1.9f, 0.5f));
    EXPECT_TRUE(solvedSomething(2.1f, 0.5f));
    EXPECT_TRUE(solvedSomething(0.f, 0.8f));
}

TEST(PathAlign, IdenticalPathsGiveTheIdentity) {
    Path a, b;
    const std::vector<Eigen::Isometry3d> poses = walk(12);
    for (size_t i = 0; i < poses.size(); ++i) a[100 * i] = b[100 * i] = toTransform(poses[i]);
    lum::Transform result(lum::Orientation(0.5f, 0.5f, 0.5f, 0.5f), lum::Translation(9, 9, 9));
    ASSERT_TRUE(AlignPath(a, b, result));
    for (int row = 0; row < 4; ++row)
        for (int col = 0; col < 4; ++col) EXPECT_NEAR(result(row, col), row == col ? 1.f : 0.f, 1e-4f);
}

TEST(PathAlign, RecoversAKnownRigTransform) {
    Eigen::Isometry3d x = Eigen::Isometry3d::Identity();
    x.linear() = Eigen::AngleAxisd(0.4, Eigen::Vector3d(1, -2, 0.5).normalized()).toRotationMatrix();
    x.translation() = Eigen::Vector3d(0.1, -0.2, 0.3);
    Path a, b;
    const std::vector<Eigen::Isometry3d> poses = walk(15);
    // B's clock runs 3 units early: each key pose of A finds B within the window.
    for (size_t i = 0; i < poses.size(); ++i) {
        a[1000 + 100 * i] = toTransform(poses[i]);
        b[997 + 100 * i] = toTransform(x.inverse() * poses[i] * x);
    }
    lum::Transform result;
    ASSERT_TRUE(AlignPath(a, b, result));
    for (int row = 0; row < 3; ++row)
        for (int col = 0; col < 4; ++col) EXPECT_NEAR(result(row, col), x.matrix()(row, col), 1e-3) << row << col;
}

}  // namespace
