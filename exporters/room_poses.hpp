// The camera poses of a room calibration file in double precision, and the fixed axis
// changes between the frames the export formats use.
#pragma once

#include <string>
#include <vector>

#include <Eigen/Geometry>

namespace exporters {

// Frames:
//   room     Halden's room frame: metres, right-handed, x right, y up (floor at y = 0
//            after a Refined calibration), z back: -z is the reference camera's view along the floor.
//   optical  the camera's optical frame: x right, y down, z forward along the view.
//   rep103   ROS conventions: x forward, y left, z up, for the room and for the camera body.
// Written into every export, so a file read on its own says what its numbers mean.
constexpr const char* kRoomAxes = "x right, y up, z back (-z is the reference camera's view along the floor); floor at y = 0";
constexpr const char* kOpticalAxes = "x right, y down, z forward (optical)";

struct CameraPose {
    int serial = 0;
    Eigen::Isometry3d opticalToRoom = Eigen::Isometry3d::Identity();
};

// Cameras by increasing serial number. False with `problem` naming the file and the fault
// when the file is not a room the room reader accepts.
bool readRoomPoses(const std::string& path, std::vector<CameraPose>& cameras, std::string& problem);

Eigen::Isometry3d roomToOptical(const CameraPose& camera);
// The camera body (x forward, y left, z up) in the REP 103 room (x forward along the
// reference camera's view on the floor, y left, z up).
Eigen::Isometry3d bodyToRep103Room(const CameraPose& camera);

}  // namespace exporters
