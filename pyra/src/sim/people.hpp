// Walkers of the simulated room: anatomical joints of each person at a time, and how the
// three body layouts pick and mirror those joints.
#pragma once

#include <array>
#include <vector>

#include "lum/math.hpp"
#include "lum/types.hpp"
#include "pyra_sim/scene.hpp"

namespace pyra_sim {

enum Joint : int {
    PELVIS, SPINE_LOW, SPINE_MID, SPINE_HIGH, NECK, HEAD, NOSE,
    L_EYE, R_EYE, L_EAR, R_EAR, L_CLAVICLE, R_CLAVICLE, L_SHOULDER, R_SHOULDER,
    L_ELBOW, R_ELBOW, L_WRIST, R_WRIST, L_HAND, R_HAND, L_HAND_TIP, R_HAND_TIP,
    L_THUMB, R_THUMB, L_INDEX_BASE, R_INDEX_BASE, L_PINKY_BASE, R_PINKY_BASE,
    L_HIP, R_HIP, L_KNEE, R_KNEE, L_ANKLE, R_ANKLE, L_HEEL, R_HEEL, L_FOOT, R_FOOT,
    L_BIG_TOE, R_BIG_TOE, L_SMALL_TOE, R_SMALL_TOE,
    JOINT_COUNT
};

using Skeleton = std::array<lum::Vector3f, JOINT_COUNT>;

struct PersonPose {
    float height = 0.f;
    Skeleton joints;  // room frame, metres
};

// Person `index` of the scene at `seconds` since the epoch.
PersonPose personAt(const Scene& scene, int index, double seconds);

// For each keypoint of a layout, the joint it reports; empty for an unknown layout.
const std::vector<int>& layoutJoints(lum::BODY_FORMAT format);
// For each keypoint of a layout, the keypoint of the other side (itself when central).
const std::vector<int>& layoutMirror(lum::BODY_FORMAT format);

}  // namespace pyra_sim
