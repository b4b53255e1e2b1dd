// What each keypoint of a body is, for every layout a camera can send: the one place the
// calibration learns where the feet, the trunk and the neck of a body are.
#pragma once

#include <array>
#include <cstddef>

#include "lum/records.hpp"

namespace calib {

// Keypoint indices of the joints the calibration reads, left then right where there are
// two; -1 where the layout has no such joint.
struct BodyLayout {
    lum::BODY_FORMAT format = lum::BODY_FORMAT::LAST;
    size_t keypoints = 0;
    std::array<int, 2> ankles{-1, -1};
    std::array<int, 2> heels{-1, -1};
    std::array<int, 2> toes{-1, -1};  // the big toe, or the foot's tip where the layout has no toes
    std::array<int, 2> hips{-1, -1};
    int pelvis = -1;
    int neck = -1;
};

// The layout of `format`; nullptr for a format this build does not know.
const BodyLayout* bodyLayout(lum::BODY_FORMAT format);

// The layout a body was sent in, told by how many keypoints it carries: every known layout
// has its own count, so a body can be read even where its camera's format was not kept
// (stored frames, recordings). nullptr for any other count.
const BodyLayout* layoutOf(const lum::BodyData& body);

}  // namespace calib
