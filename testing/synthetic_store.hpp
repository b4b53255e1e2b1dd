// Calibration stores whose answer is known: one person seen by cameras at known poses,
// for the tests and the stall benchmark.
#pragma once

#include <map>

#include "calibration/skeleton_align.hpp"
#include "lum/lum.hpp"

namespace synthetic {

// `frames` frames, 500 ms apart and ending now, of one person standing at random places
// in the middle of the room, seen by every camera of `cameraToWorld` (serial -> pose) with
// `noise` metres of keypoint noise in each camera's own frame.
SkeletonMulticameraCalibration syntheticStore(const std::map<int, lum::Transform>& cameraToWorld, int frames,
                                              double noise, unsigned seed);

}  // namespace synthetic
