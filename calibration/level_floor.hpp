// A level world frame for a calibrated room: the floor fitted to the planted feet of the
// whole walk gives "up", the reference camera gives the origin and the forward direction.
#pragma once

#include <map>
#include <string>

#include <Eigen/Geometry>

#include "calibration/keypoint_pairs.hpp"
#include "calibration/refined_solver.hpp"

namespace calib {

// Heights above the floor of a planted foot's keypoints, metres.
struct FootHeights {
    double ankle = 0;
    double sole = 0;  // heel and toe keypoints
};

struct FloorFit {
    bool found = false;
    Eigen::Isometry3d worldFromReference = Eigen::Isometry3d::Identity();
    int samples = 0;       // planted feet the plane was fitted to
    double rmsMm = 0;      // their distance to it
    std::string refused;   // why the feet gave no floor, when they gave too little of one
    double refusedSpanM = -1;  // how far across the planted feet spread, when refused for it
};

// World y = the floor's normal, pointing up (the way people stand); floor at y = 0;
// origin below the reference camera; world -z = the reference camera's viewing direction
// laid on the floor. Not found with fewer than 20 frames that show ankles and neck, nor
// (refused, saying why) when the planted feet do not span a plane: one spot, one line.
// Each body's feet and neck are those of the layout it was sent in; a foot stands on its
// heel and toe keypoints where the layout has them and the cameras saw them, else on its ankle.
FloorFit levelFloor(const FrameParts& parts, const std::map<int, CameraUnknowns>& cameras, int reference,
                    const FootHeights& heights);
FloorFit levelFloor(const Frames& frames, const std::map<int, CameraUnknowns>& cameras, int reference,
                    const FootHeights& heights);

}  // namespace calib
