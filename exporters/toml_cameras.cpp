// TOML camera tables as multi-camera pose tools read them: [cam_N] with the camera's name,
// its Rodrigues rotation and its translation. Intrinsics are no part of a room calibration.
#include <toml.hpp>

#include <map>

#include "exporters/formats.hpp"

namespace exporters {

std::string toToml(const std::vector<CameraPose>& cameras) {
    // Sorted tables, so the same room always gives the same file; a comment inside a table
    // also keeps it a [table] of its own rather than one long inline line.
    using Value = toml::basic_value<toml::preserve_comments, std::map, std::vector>;
    using Table = Value::table_type;
    using Array = Value::array_type;
    Table document;
    document["metadata"] = Table{{"units", Value("metres", {" of every translation"})},
                                 {"transform", "x_camera = rotate(rotation) * x_room + translation"},
                                 {"room_axes", kRoomAxes},
                                 {"camera_axes", kOpticalAxes}};
    for (size_t i = 0; i < cameras.size(); ++i) {
        const Eigen::Isometry3d pose = roomToOptical(cameras[i]);
        const Eigen::AngleAxisd turn(pose.linear());
        const Eigen::Vector3d r = turn.angle() * turn.axis();
        const Eigen::Vector3d t = pose.translation();
        document["cam_" + std::to_string(i)] =
            Table{{"name", Value(std::to_string(cameras[i].serial), {" serial number"})},
                  {"rotation", Value(Array{r.x(), r.y(), r.z()}, {" Rodrigues vector, room to camera, radians"})},
                  {"translation", Value(Array{t.x(), t.y(), t.z()}, {" room to camera, metres"})}};
    }
    return toml::format(Value(std::move(document)), 200, 17);
}

}  // namespace exporters
