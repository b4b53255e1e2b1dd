// A level world frame for a calibrated room: the floor fitted to the planted feet of the
// whole walk gives "up", the reference camera gives the origin and the forward direction.
#pragma once

#include <map>
#include <string>

#include <Eigen/Geometry>

#include "calibration/keypoint_pairs.hpp"
#include "calibration/refined_solver.hpp"

namespace calib {

struct FloorFit {
    bool found = false;
    Eigen::Isometry3d worldFromReference = Eigen::Isometry3d::Identity();
    int samples = 0;       // planted feet the plane was fitted to
    double rmsMm = 0;      // their distance to it
    std::string refused;   // why the feet gave no floor, when they gave too little of one
};

// World y = the floor's normal, pointing up (the way people stand); floor at y = 0;
// origin below the reference camera; world -z = the reference camera's viewing direction
// laid on the floor. Not found with fewer than 20 frames that show ankles and neck, nor
// (refused, saying why) when the planted feet do not span a plane: one spot, one line.
// Each body's ankles and neck are those of the layout it was sent in.
FloorFit levelFloor(const Frames& frames, const std::map<int, CameraUnknowns>& cameras, int reference,
                    double ankleHeight);

}  // namespace calib
