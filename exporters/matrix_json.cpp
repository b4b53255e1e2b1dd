// 4x4 camera-to-room matrices in JSON, for tools that take a matrix and nothing else; the
// units and the axes travel in the same file.
#include <nlohmann/json.hpp>

#include "exporters/formats.hpp"

namespace exporters {

std::string toMatrixJson(const std::vector<CameraPose>& cameras) {
    nlohmann::json list = nlohmann::json::array();
    for (const CameraPose& camera : cameras) {
        const Eigen::Matrix4d m = camera.opticalToRoom.matrix();
        nlohmann::json rows = nlohmann::json::array();
        for (int r = 0; r < 4; ++r) rows.push_back({m(r, 0), m(r, 1), m(r, 2), m(r, 3)});
        list.push_back({{"serial", camera.serial}, {"cameraToRoom", rows}});
    }
    const nlohmann::json document = {
        {"units", "metres"},
        {"transform", "x_room = cameraToRoom * [x_camera, 1]"},
        {"roomAxes", kRoomAxes},
        {"cameraAxes", kOpticalAxes},
        {"cameras", list}};
    return document.dump(2) + "\n";
}

}  // namespace exporters
