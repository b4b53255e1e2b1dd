// Turns a tracked body into bone cylinders and, optionally, joint spheres, for the three
// keypoint layouts of the camera API, on a vertex list or an instance set alike.
#pragma once

#include <utility>
#include <vector>

#include "lum/records.hpp"
#include "viewer/simple3d_object.hpp"

// True for a finite keypoint: rejects NaN (not detected) and infinities.
inline bool isKeypointFinite(const lum::Vector3f& p) {
    return p.norm() <= 3.4028235e38f;
}

template <typename PARTS, typename Target>
void createSKPrimitive(const lum::BodyData& body, const std::vector<std::pair<PARTS, PARTS>>& bones,
                       Target& target, const lum::Vector4f& colour, bool withJoints) {
    const float boneRadius = withJoints ? 0.01f : 0.025f;
    const size_t count = body.keypoint.size();
    for (const auto& bone : bones) {
        const size_t a = size_t(bone.first), b = size_t(bone.second);
        if (a >= count || b >= count) continue;
        const lum::Vector3f& first = body.keypoint[a];
        const lum::Vector3f& second = body.keypoint[b];
        if (isKeypointFinite(first) && isKeypointFinite(second))
            target.addCylinder(first, second, colour, boneRadius);
    }
    if (!withJoints) return;
    const size_t parts = size_t(PARTS::LAST);
    for (size_t i = 0; i < parts && i < count; ++i)
        if (isKeypointFinite(body.keypoint[i])) target.addSphere(body.keypoint[i], colour, 0.01f);
}

// Picks the layout by the number of keypoints (18, 34, 38); any other count adds nothing.
template <typename Target>
void addSkeletonPrimitive(const lum::BodyData& body, Target& target, const lum::Vector4f& colour,
                          bool withJoints) {
    switch (body.keypoint.size()) {
        case 18: createSKPrimitive(body, lum::BODY_18_BONES, target, colour, withJoints); break;
        case 34: createSKPrimitive(body, lum::BODY_34_BONES, target, colour, withJoints); break;
        case 38: createSKPrimitive(body, lum::BODY_38_BONES, target, colour, withJoints); break;
        default: break;
    }
}
