// How far a found camera pose is from the truth, for tests and benchmarks: rotation in
// degrees and translation in millimetres, whatever type the pose comes in.
#pragma once

#include <utility>

#include <Eigen/Geometry>

#include "calibration/skeleton_align.hpp"
#include "lum/math.hpp"

namespace synthetic {

Eigen::Isometry3d toIsometry(const SkeletonMulticameraCalibration::PoseStruct& pose);
Eigen::Isometry3d toIsometry(const lum::Transform& pose);

// Rotation (degrees) and translation (millimetres) between two poses.
std::pair<double, double> poseError(const Eigen::Isometry3d& a, const Eigen::Isometry3d& b);
std::pair<double, double> poseError(const lum::Transform& a, const lum::Transform& b);

// Pose of `camera` relative to `reference` (reference^-1 * camera): what a calibration
// recovers whatever world frame it settles in.
lum::Transform relativePose(const lum::Transform& reference, const lum::Transform& camera);

}  // namespace synthetic
