// How deep below the surface a camera sees each joint lies: the pull of a depth-based
// tracker's keypoints toward the camera, by joint and by the side the body is seen from.
#pragma once

#include <vector>

#include "lum/types.hpp"

namespace pyra_sim {

class JointPull {
public:
    // `byView` false: the older view-blind factors of each joint, the same from every side.
    JointPull(lum::BODY_FORMAT format, bool byView);

    // Keypoint `index`'s depth below the seen surface, in units of the camera's mean pull,
    // for a ray whose horizontal part makes an angle with the body's facing whose cosine
    // is `cosFacing` (1 or -1: seen from the front or back, 0: from the side).
    float factor(size_t index, float cosFacing) const;

private:
    struct Depths {
        float front = 0, side = 0;  // metres below the surface seen from there
    };
    std::vector<Depths> depths_;
    std::vector<float> meanOverViews_;  // or the view-blind factor
    bool byView_ = true;
    float scale_ = 1.f;  // makes the layout's mean over keypoints and views 1
};

}  // namespace pyra_sim
