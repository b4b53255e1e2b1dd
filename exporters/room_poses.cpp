// The room file stores each camera-to-room pose as a rotation vector and a translation in
// image axes (x right, y down, z forward for the camera and for the room alike). Its own
// reader works in single precision, so the values are read again here as doubles once
// that reader has accepted the file.
#include "exporters/room_poses.hpp"

#include <algorithm>
#include <fstream>
#include <sstream>

#include <nlohmann/json.hpp>

#include "lum/fusion.hpp"

namespace exporters {
namespace {

// Image axes to Halden's y-up axes and back (its own inverse).
const Eigen::Matrix3d kFlipYZ = Eigen::Vector3d(1, -1, -1).asDiagonal();

// Halden's y-up axes (x right, y up, z back) to REP 103 axes (x forward, y left, z up).
Eigen::Matrix3d rep103FromYUp() {
    Eigen::Matrix3d m;
    m << 0, 0, -1,  //
        -1, 0, 0,   //
        0, 1, 0;
    return m;
}

Eigen::Vector3d vector3(const nlohmann::json& value) {
    return {value.at(0).get<double>(), value.at(1).get<double>(), value.at(2).get<double>()};
}

Eigen::Matrix3d fromRotationVector(const Eigen::Vector3d& v) {
    const double angle = v.norm();
    if (angle == 0) return Eigen::Matrix3d::Identity();
    return Eigen::AngleAxisd(angle, v / angle).toRotationMatrix();
}

}  // namespace

bool readRoomPoses(const std::string& path, std::vector<CameraPose>& cameras, std::string& problem) {
    cameras.clear();
    std::string refused;
    if (lum::readFusionConfigurationFile(path, lum::COORDINATE_SYSTEM::IMAGE, lum::UNIT::METER, &refused).empty()) {
        problem = refused.empty() ? path + ": no camera in the room" : refused;
        return false;
    }
    try {
        std::ifstream in(path, std::ios::binary);
        std::stringstream text;
        text << in.rdbuf();
        const nlohmann::json document = nlohmann::json::parse(text.str());
        for (const auto& [key, camera] : document.items()) {
            const nlohmann::json& world = camera.at("world");
            CameraPose pose;
            pose.serial = std::stoi(key);
            // Image-axes room to Halden's room is the same flip of y and z.
            pose.opticalToRoom.linear() = kFlipYZ * fromRotationVector(vector3(world.at("rotation")));
            pose.opticalToRoom.translation() = kFlipYZ * vector3(world.at("translation"));
            cameras.push_back(pose);
        }
    } catch (const std::exception& e) {
        // The reader above accepted the file: only a change on disk in between gets here.
        problem = path + ": changed while it was read (" + e.what() + ")";
        return false;
    }
    std::sort(cameras.begin(), cameras.end(),
              [](const CameraPose& a, const CameraPose& b) { return a.serial < b.serial; });
    return true;
}

Eigen::Isometry3d roomToOptical(const CameraPose& camera) { return camera.opticalToRoom.inverse(); }

Eigen::Isometry3d bodyToRep103Room(const CameraPose& camera) {
    // Body axes are the camera's y-up axes turned like the room's: the camera looks along
    // its own -z in y-up axes, which REP 103 calls x.
    const Eigen::Matrix3d m = rep103FromYUp();
    Eigen::Isometry3d pose = Eigen::Isometry3d::Identity();
    pose.linear() = m * camera.opticalToRoom.linear() * kFlipYZ * m.transpose();
    pose.translation() = m * camera.opticalToRoom.translation();
    return pose;
}

}  // namespace exporters
