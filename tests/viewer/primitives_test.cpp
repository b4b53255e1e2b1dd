// Geometry builders and skeleton primitives, checked on the vertex lists they produce
// (no GL needed).
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "viewer/simple3d_object.hpp"
#include "viewer/skeleton_instances.hpp"
#include "viewer/skeleton_primitives.hpp"
#include "viewer/unit_shapes.hpp"

namespace {

const lum::Vector4f kRed(1.f, 0.f, 0.f, 1.f);

lum::Vector3f vertexAt(const Simple3DObject& o, size_t i) {
    const auto& v = o.getVertices();
    return {v[3 * i], v[3 * i + 1], v[3 * i + 2]};
}

TEST(Simple3DObject, IndicesAreConsecutiveAndFaceShadesFromFirstPoint) {
    Simple3DObject o;
    o.addLine({0, 0, 0}, {1, 0, 0}, kRed);
    o.addFace({0, 0, 0}, {1, 0, 0}, {0, 1, 0}, kRed, {0.f, 0.f, 1.f, 0.5f});
    ASSERT_EQ(o.getIndices().size(), 5u);
    for (uint32_t i = 0; i < 5; ++i) EXPECT_EQ(o.getIndices()[i], i);
    EXPECT_TRUE(o.getNormals().empty());
    EXPECT_TRUE(o.needsUpdate());
    const auto& c = o.getColors();
    EXPECT_EQ(c[2 * 4 + 0], 1.f);                          // p1 of the face: colour1
    EXPECT_EQ(c[3 * 4 + 2], 1.f);                          // p2: colour2
    EXPECT_EQ(c[4 * 4 + 3], 0.5f);                         // p3: colour2
    o.clear();
    EXPECT_TRUE(o.getVertices().empty() && o.getIndices().empty() && !o.isInit());
}

TEST(Simple3DObject, CylinderRunsAlongBoneAndDownwardBoneIsDrawnUpward) {
    Simple3DObject tilted;
    tilted.addCylinder({0, 0, 0}, {2, 0, 0}, kRed, 0.1f);
    ASSERT_EQ(tilted.getIndices().size(), 96u);
    ASSERT_EQ(tilted.getNormals().size(), 96u * 3);
    float minX = 1e9f, maxX = -1e9f;
    for (size_t i = 0; i < 96; ++i) {
        const lum::Vector3f p = vertexAt(tilted, i);
        minX = std::min(minX, p.x);
        maxX = std::max(maxX, p.x);
        EXPECT_NEAR(std::hypot(p.y, p.z), 0.1f, 1e-5f);  // every rim point at the radius
    }
    EXPECT_NEAR(minX, 0.f, 1e-5f);
    EXPECT_NEAR(maxX, 2.f, 1e-5f);
    const auto& n = tilted.getNormals();
    EXPECT_NEAR(std::hypot(n[0], n[1], n[2]), 1.f, 1e-5f);
    EXPECT_NEAR(n[0], 0.f, 1e-5f);  // perpendicular to the bone

    Simple3DObject down;
    down.addCylinder({0, 1, 0}, {0, -0.5f, 0}, kRed, 0.1f);
    float maxY = -1e9f;
    for (size_t i = 0; i < 96; ++i) maxY = std::max(maxY, vertexAt(down, i).y);
    EXPECT_NEAR(maxY, 2.5f, 1e-5f);  // from y = 1 upward, full length 1.5
}

TEST(Simple3DObject, SphereHasNineBandsOnTheRadius) {
    Simple3DObject o;
    o.addSphere({1, 2, 3}, kRed, 0.5f);
    ASSERT_EQ(o.getIndices().size(), 432u);
    for (size_t i = 0; i < 432; ++i) EXPECT_NEAR((vertexAt(o, i) - lum::Vector3f(1, 2, 3)).norm(), 0.5f, 1e-5f);
}

// Twice the area of every triangle of a mesh, summed: a missing, doubled or misindexed
// triangle shows up as a wrong surface.
float meshArea(const UnitMesh& mesh) {
    const auto& v = mesh.vertices;
    auto at = [&](uint32_t i) { return lum::Vector3f(v[3 * i], v[3 * i + 1], v[3 * i + 2]); };
    float area = 0.f;
    for (size_t t = 0; t < mesh.indices.size(); t += 3) {
        const lum::Vector3f a = at(mesh.indices[t]), b = at(mesh.indices[t + 1]), c = at(mesh.indices[t + 2]);
        area += 0.5f * lum::Vector3f::cross(b - a, c - a).norm();
    }
    return area;
}

TEST(UnitShapes, MeshesCoverTheirSurfaceOnce) {
    for (const UnitMesh* mesh : {&unitCylinder(), &coarseCylinder(), &unitSphere(), &coarseSphere()})
        for (uint32_t index : mesh->indices) ASSERT_LT(index, mesh->vertices.size() / 3);
    // A tube of height 1: the perimeter of the polygon inscribed in the unit circle.
    EXPECT_NEAR(meshArea(unitCylinder()), 32.f * std::sin(float(M_PI) / 16.f), 1e-4f);
    EXPECT_NEAR(meshArea(coarseCylinder()), 12.f * std::sin(float(M_PI) / 6.f), 1e-4f);
    // Facets inscribed in the unit sphere: a little under its 4 pi, less for the coarse one.
    const float fine = meshArea(unitSphere()), coarse = meshArea(coarseSphere());
    EXPECT_GT(fine, 0.9f * 4.f * float(M_PI));
    EXPECT_LT(fine, 4.f * float(M_PI));
    EXPECT_GT(coarse, 0.7f * 4.f * float(M_PI));
    EXPECT_LT(coarse, fine);
    for (const UnitMesh* mesh : {&unitSphere(), &coarseSphere()})
        for (size_t i = 0; i < mesh->vertices.size(); i += 3)
            EXPECT_NEAR(std::hypot(mesh->vertices[i], mesh->vertices[i + 1], mesh->vertices[i + 2]), 1.f, 1e-6f);
    // A joint is the unit sphere scaled and moved, not turned.
    const lum::Vector3f p = sphereTransform({1, 2, 3}, 0.5f).apply({0.f, 0.f, -1.f});
    EXPECT_NEAR((p - lum::Vector3f(1.f, 2.f, 2.5f)).norm(), 0.f, 1e-6f);
}

TEST(SkeletonPrimitives, SkipsUnknownLayoutsAndNonFiniteKeypoints) {
    lum::BodyData body;
    body.keypoint.assign(18, lum::Vector3f(0.f, 1.f, 0.f));
    for (int i = 0; i < 18; ++i) body.keypoint[i].x = 0.1f * i;
    const size_t bones = lum::BODY_18_BONES.size();

    Simple3DObject full;
    addSkeletonPrimitive(body, full, kRed, false);
    EXPECT_EQ(full.getIndices().size(), bones * 96);

    Simple3DObject joints;
    addSkeletonPrimitive(body, joints, kRed, true);
    EXPECT_EQ(joints.getIndices().size(), bones * 96 + 18 * 432);

    // Keypoint 4 (right wrist) ends one bone only; keypoint 0 (nose) sits on three.
    body.keypoint[4].x = std::numeric_limits<float>::infinity();
    body.keypoint[0].x = std::numeric_limits<float>::quiet_NaN();
    Simple3DObject partial;
    addSkeletonPrimitive(body, partial, kRed, true);
    EXPECT_EQ(partial.getIndices().size(), (bones - 4) * 96 + 16 * 432);

    // The instanced set keeps the same bones and joints, one instance each.
    SkeletonInstances instances;
    addSkeletonPrimitive(body, instances, kRed, true);
    EXPECT_EQ(instances.bones().size(), bones - 4);
    EXPECT_EQ(instances.joints().size(), 16u);

    body.keypoint.resize(17);
    Simple3DObject none;
    addSkeletonPrimitive(body, none, kRed, true);
    EXPECT_TRUE(none.getIndices().empty());
}

TEST(StrQuant, FixedThreeDecimals) {
    EXPECT_EQ(strQuant(0.5f), "0.500");
    EXPECT_EQ(strQuant(1.23456f), "1.235");
    EXPECT_EQ(strQuant(-0.0004f), "-0.000");
}

}  // namespace
