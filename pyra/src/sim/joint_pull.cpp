// Joint depths below the seen surface, from round adult body breadths and depths: a joint
// on a segment's centre line lies half the segment's extent along the ray deep.
#include "sim/joint_pull.hpp"

#include <cmath>

#include "sim/people.hpp"

namespace pyra_sim {

namespace {

// Centimetres below the surface seen from the front (the back alike) and from the side.
// The trunk is wider (chest breadth ~32 cm) than deep (~22 cm), so its centre line lies
// deeper seen from the side; joints near the outside of the trunk or a limb (hips,
// shoulders, ears) lie closer to the side surface; the head is longer (~20 cm) than broad
// (~15 cm); hands, fingers and feet sit at the surface from every side.
void frontAndSide(int joint, float& front, float& side) {
    front = side = 1.5f;
    switch (joint) {
        case PELVIS: case SPINE_LOW: case SPINE_MID: case SPINE_HIGH: front = 11, side = 16; break;
        case L_HIP: case R_HIP: front = 9, side = 6; break;
        case NECK: front = 6, side = 6; break;
        case L_CLAVICLE: case R_CLAVICLE: front = 8, side = 12; break;
        case L_SHOULDER: case R_SHOULDER: front = 6, side = 5; break;
        case HEAD: front = 10, side = 7.5f; break;
        case NOSE: case L_EYE: case R_EYE: front = 1, side = 3; break;
        case L_EAR: case R_EAR: front = 5, side = 1; break;
        case L_ELBOW: case R_ELBOW: front = 4, side = 3.5f; break;
        case L_KNEE: case R_KNEE: front = 5, side = 5; break;
        // Hanging at the thigh, the wrist shows its narrow side to the front.
        case L_WRIST: case R_WRIST: front = 2, side = 2.5f; break;
        case L_ANKLE: case R_ANKLE: front = 3.5f, side = 3; break;
        default: break;
    }
}

// The extent along a ray of an ellipse with those half axes.
float alongRay(float front, float side, float cosFacing) {
    const float c2 = cosFacing * cosFacing;
    return std::sqrt(front * front * c2 + side * side * (1.f - c2));
}

// The view-blind factors the simulated room had before the pull turned with the view, kept
// so that the two can be compared: the trunk 1.8, shoulders 1.4, head 1.0, elbows and knees
// 0.9, wrists and ankles 0.5, hands and feet 0.4.
float viewBlindFactor(int joint) {
    if (joint <= SPINE_HIGH || joint == L_HIP || joint == R_HIP) return 1.8f;
    if (joint == NECK || joint == L_CLAVICLE || joint == R_CLAVICLE || joint == L_SHOULDER || joint == R_SHOULDER)
        return 1.4f;
    if (joint <= R_EAR) return 1.0f;
    if (joint == L_ELBOW || joint == R_ELBOW || joint == L_KNEE || joint == R_KNEE) return 0.9f;
    if (joint == L_WRIST || joint == R_WRIST || joint == L_ANKLE || joint == R_ANKLE) return 0.5f;
    return 0.4f;
}

}  // namespace

JointPull::JointPull(lum::BODY_FORMAT format, bool byView) : byView_(byView) {
    constexpr int kViews = 90;
    double total = 0;
    for (int joint : layoutJoints(format)) {
        Depths d;
        frontAndSide(joint, d.front, d.side);
        double mean = 0;
        if (byView) {
            for (int v = 0; v < kViews; ++v)
                mean += alongRay(d.front, d.side, float(std::cos((v + 0.5) * 3.14159265358979 / kViews)));
            mean /= kViews;
        } else {
            mean = viewBlindFactor(joint);
        }
        depths_.push_back(d);
        meanOverViews_.push_back(float(mean));
        total += mean;
    }
    if (total > 0) scale_ = float(double(depths_.size()) / total);
}

float JointPull::factor(size_t index, float cosFacing) const {
    if (index >= depths_.size()) return 1.f;
    if (!byView_) return scale_ * meanOverViews_[index];
    return scale_ * alongRay(depths_[index].front, depths_[index].side, cosFacing);
}

}  // namespace pyra_sim
