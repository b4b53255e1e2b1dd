// Tests of the lum value maths: coordinate system changes, unit scales, rotation vectors,
// rigid inverses, the plane fit and the body layouts.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "lum/lum.hpp"

namespace {

using lum::COORDINATE_SYSTEM;
using lum::UNIT;

constexpr int kSystems = static_cast<int>(COORDINATE_SYSTEM::LAST);

lum::Transform randomRigid(std::mt19937& rng) {
    std::uniform_real_distribution<float> u(-3.f, 3.f);
    lum::Transform t;
    t.setRotationVector(lum::Vector3f(u(rng), u(rng), u(rng)) * 0.9f);
    t.setTranslation(lum::Translation(u(rng), u(rng), u(rng)));
    return t;
}

void expectNear(const lum::Matrix4f& a, const lum::Matrix4f& b, float tolerance) {
    for (int i = 0; i < 16; ++i) EXPECT_NEAR(a.m[i], b.m[i], tolerance) << "element " << i;
}

TEST(CoordinateSystems, EveryPairIsExactAndConsistent) {
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> u(-5.f, 5.f);
    for (int trial = 0; trial < 20; ++trial) {
        const lum::Transform pose = randomRigid(rng);
        const lum::Vector3f point(u(rng), u(rng), u(rng));
        for (int f = 0; f < kSystems; ++f) {
            for (int t = 0; t < kSystems; ++t) {
                const auto from = COORDINATE_SYSTEM(f), to = COORDINATE_SYSTEM(t);
                lum::Transform p = pose;
                lum::Vector3f q = point;
                ASSERT_TRUE(lum::convertCoordinateSystem(p, from, to));
                ASSERT_TRUE(lum::convertCoordinateSystem(q, from, to));

                // The converted pose maps converted points as the original maps points.
                lum::Vector3f moved = pose * point;
                lum::convertCoordinateSystem(moved, from, to);
                const lum::Vector3f viaConverted = p * q;
                for (size_t i = 0; i < 3; ++i) EXPECT_NEAR(viaConverted[i], moved[i], 1e-5f);
                // Still a proper rotation, even across handedness.
                const lum::Rotation r = p.getRotationMatrix();
                const lum::Vector3f x(r(0, 0), r(0, 1), r(0, 2)), y(r(1, 0), r(1, 1), r(1, 2)),
                    z(r(2, 0), r(2, 1), r(2, 2));
                EXPECT_NEAR(lum::Vector3f::dot(x, lum::Vector3f::cross(y, z)), 1.f, 1e-5f);

                // Signed permutations: there and back is bit-exact.
                lum::convertCoordinateSystem(p, to, from);
                lum::convertCoordinateSystem(q, to, from);
                EXPECT_TRUE(p == pose) << f << " -> " << t;
                EXPECT_TRUE(q == point) << f << " -> " << t;
            }
        }
    }
}

TEST(CoordinateSystems, KnownPointAgainstHandDerivedAxes) {
    // The point 1 to the right, 2 up and 3 forward, written in each system.
    const lum::Vector3f expected[kSystems] = {
        {1, -2, 3},   // image: x right, y down, z forward
        {1, 2, 3},    // left-handed y up: z forward
        {1, 2, -3},   // right-handed y up: z backward
        {1, 3, 2},    // right-handed z up: y forward
        {1, -3, 2},   // left-handed z up: y backward
        {3, -1, 2},   // right-handed z up, x forward: y left
    };
    for (int f = 0; f < kSystems; ++f) {
        for (int t = 0; t < kSystems; ++t) {
            lum::Vector3f p = expected[f];
            lum::convertCoordinateSystem(p, COORDINATE_SYSTEM(f), COORDINATE_SYSTEM(t));
            EXPECT_TRUE(p == expected[t]) << f << " -> " << t << ": " << p.x << " " << p.y << " " << p.z;
        }
    }
    lum::Vector3f p(1, 2, 3);
    EXPECT_FALSE(lum::convertCoordinateSystem(p, COORDINATE_SYSTEM::LAST, COORDINATE_SYSTEM::IMAGE));
}

TEST(Units, ExactFactors) {
    EXPECT_EQ(lum::getUnitScale(UNIT::METER, UNIT::MILLIMETER), 1000.f);
    EXPECT_EQ(lum::getUnitScale(UNIT::MILLIMETER, UNIT::METER), 0.001f);
    EXPECT_EQ(lum::getUnitScale(UNIT::INCH, UNIT::MILLIMETER), 25.4f);
    EXPECT_EQ(lum::getUnitScale(UNIT::FOOT, UNIT::INCH), 12.f);
    EXPECT_EQ(lum::getUnitScale(UNIT::FOOT, UNIT::METER), 0.3048f);
    EXPECT_EQ(lum::getUnitScale(UNIT::CENTIMETER, UNIT::INCH), float(10.0 / 25.4));
    for (int a = 0; a < int(UNIT::LAST); ++a) {
        EXPECT_EQ(lum::getUnitScale(UNIT(a), UNIT(a)), 1.f);
        for (int b = 0; b < int(UNIT::LAST); ++b)
            EXPECT_NEAR(lum::getUnitScale(UNIT(a), UNIT(b)) * lum::getUnitScale(UNIT(b), UNIT(a)), 1.f, 1e-6f);
    }
    lum::Transform t(lum::Rotation(), lum::Translation(1.f, -2.f, 0.5f));
    ASSERT_TRUE(lum::convertUnit(t, UNIT::METER, UNIT::CENTIMETER));
    EXPECT_TRUE(t.getTranslation() == lum::Vector3f(100.f, -200.f, 50.f));
}

TEST(Rotations, RotationVectorNearZeroAndPiAndInverse) {
    const lum::Vector3f axis = lum::Vector3f(1.f, 2.f, -2.f) / 3.f;
    for (const float angle : {0.f, 1e-7f, 1e-3f, 1.f, 3.f, float(M_PI) - 1e-5f, float(M_PI)}) {
        lum::Transform t;
        t.setRotationVector(axis * angle);
        const lum::Vector3f back = t.getRotationVector();
        EXPECT_NEAR(back.norm(), angle, 2e-6f) << angle;
        if (angle > 0.f && angle < 3.1f) {
            for (size_t i = 0; i < 3; ++i) EXPECT_NEAR(back[i], axis[i] * angle, 2e-6f) << angle;
        }
        // Near pi the sign of the axis is free; the rotation must not change.
        lum::Transform again;
        again.setRotationVector(back);
        expectNear(again, t, 1e-5f);
    }

    std::mt19937 rng(11);
    for (int i = 0; i < 50; ++i) {
        const lum::Transform t = randomRigid(rng);
        expectNear(t * lum::Transform::inverse(t), lum::Transform(), 1e-5f);
        expectNear(lum::Transform(lum::Matrix4f::inverse(t)), lum::Transform::inverse(t), 1e-5f);
        const lum::Transform fromQuaternion(t.getOrientation(), t.getTranslation());
        expectNear(fromQuaternion, t, 1e-5f);
    }
}

TEST(Plane, PcaFindsNormalMeanAndAscendingSpread) {
    std::mt19937 rng(3);
    std::uniform_real_distribution<float> u(-2.f, 2.f);
    std::normal_distribution<float> noise(0.f, 0.002f);
    const lum::Vector3f normal = lum::Vector3f(0.2f, 1.f, -0.3f).normalised();
    const lum::Vector3f a = lum::Vector3f::cross(normal, {1, 0, 0}).normalised();
    const lum::Vector3f b = lum::Vector3f::cross(normal, a);
    const lum::Vector3f centre(4.f, 1.5f, -7.f);
    std::vector<lum::Vector3f> points;
    for (int i = 0; i < 500; ++i) points.push_back(centre + a * u(rng) + b * (0.5f * u(rng)) + normal * noise(rng));

    lum::Vector3f n, mean, values;
    plane::compute_pca(points, n, mean, values);
    EXPECT_NEAR(std::abs(lum::Vector3f::dot(n, normal)), 1.f, 1e-4f);
    EXPECT_NEAR(n.norm(), 1.f, 1e-6f);
    for (size_t i = 0; i < 3; ++i) EXPECT_NEAR(mean[i], centre[i], 0.1f);
    EXPECT_LT(values.x, values.y);
    EXPECT_LT(values.y, values.z);
    EXPECT_NEAR(values.x, 0.002f * 0.002f, 2e-6f);

    plane::compute_pca({}, n, mean, values);
    EXPECT_TRUE(n == lum::Vector3f() && mean == lum::Vector3f() && values == lum::Vector3f());
}

TEST(BodyLayouts, BonesFormOneTreeOverAllKeypoints) {
    for (const auto format : {lum::BODY_FORMAT::BODY_18, lum::BODY_FORMAT::BODY_34, lum::BODY_FORMAT::BODY_38}) {
        const int count = lum::getKeypointCount(format);
        const auto bones = lum::getBones(format);
        // A skeleton is a tree: one bone fewer than keypoints, every keypoint reached.
        ASSERT_EQ(int(bones.size()), count - 1) << lum::toString(format);
        std::vector<int> root(count);
        for (int i = 0; i < count; ++i) root[i] = i;
        auto find = [&](int i) { while (root[i] != i) i = root[i]; return i; };
        for (const auto& [a, b] : bones) {
            ASSERT_TRUE(a >= 0 && a < count && b >= 0 && b < count);
            EXPECT_NE(find(a), find(b)) << "bone " << a << "-" << b << " closes a loop";
            root[find(a)] = find(b);
        }
    }
    EXPECT_EQ(lum::getKeypointCount(lum::BODY_FORMAT::LAST), 0);
    EXPECT_TRUE(lum::getBones(lum::BODY_FORMAT::LAST).empty());
}

}  // namespace
