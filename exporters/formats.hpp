// One writer per export format; each returns the whole text of the file.
#pragma once

#include <string>
#include <vector>

#include "exporters/room_poses.hpp"

namespace exporters {

// OpenCV FileStorage YAML: per camera R (3x3) and T (3x1), room to optical, metres.
std::string toOpenCvYaml(const std::vector<CameraPose>& cameras);
// One table per camera: name, rotation (Rodrigues vector, room to optical), translation (metres).
std::string toToml(const std::vector<CameraPose>& cameras);
// A ROS 2 XML launch file: one static transform per camera, halden_world to camera_<serial>.
std::string toRos2Launch(const std::vector<CameraPose>& cameras);
// JSON: optical-to-room 4x4 matrices, with the units and axes written beside them.
std::string toMatrixJson(const std::vector<CameraPose>& cameras);

}  // namespace exporters
