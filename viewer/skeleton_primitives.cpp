// Skeleton primitives: picks the keypoint layout of a body by its keypoint count and
// draws it with that layout's bone list.
#include "viewer/skeleton_primitives.hpp"

void addSkeletonPrimitive(const lum::BodyData& body, Simple3DObject& target, const lum::Vector4f& colour,
                          bool withJoints) {
    switch (body.keypoint.size()) {
        case 18: createSKPrimitive(body, lum::BODY_18_BONES, target, colour, withJoints); break;
        case 34: createSKPrimitive(body, lum::BODY_34_BONES, target, colour, withJoints); break;
        case 38: createSKPrimitive(body, lum::BODY_38_BONES, target, colour, withJoints); break;
        default: break;
    }
}
