// Calibration stores whose answer is known: one person seen by cameras at known poses,
// for the tests and the stall benchmark.
#pragma once

#include <map>

#include "calibration/skeleton_align.hpp"
#include "lum/lum.hpp"

namespace fusiontest {

// `frames` frames, 500 ms apart and ending now, of one person standing at random places
// in the middle of the room, seen by every camera of `cameraToWorld` (serial -> pose) with
// `noise` metres of keypoint noise in each camera's own frame.
SkeletonMulticameraCalibration syntheticStore(const std::map<int, lum::Transform>& cameraToWorld, int frames,
                                              double noise, unsigned seed);

// Pose of `camera` relative to `reference` (reference^-1 * camera): what a calibration
// recovers whatever world frame it settles in.
lum::Transform relativePose(const lum::Transform& reference, const lum::Transform& camera);
double rotationErrorDeg(const lum::Transform& a, const lum::Transform& b);
double translationError(const lum::Transform& a, const lum::Transform& b);

}  // namespace fusiontest
