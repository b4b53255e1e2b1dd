// OpenCV's FileStorage reads a YAML 1.0 dialect: a "%YAML:1.0" first line that standard
// YAML emitters do not write, and matrices tagged !!opencv-matrix with rows, cols, dt, data.
#include <yaml-cpp/yaml.h>

#include <cstdio>

#include "exporters/formats.hpp"

namespace exporters {
namespace {

// FileStorage's own style: every element of a "d" matrix written as a real ("1." rather
// than "1"), which YAML 1.1 readers also take for a float only with the point.
std::string real(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.17g", value);
    std::string written = text;
    if (written.find_first_of(".ni") != std::string::npos) return written;  // a point, or nan / inf
    const size_t exponent = written.find('e');
    return exponent == std::string::npos ? written + "." : written.insert(exponent, ".");
}

template <typename Matrix>
void writeMatrix(YAML::Emitter& out, const char* key, const Matrix& m) {
    out << YAML::Key << key << YAML::Value << YAML::SecondaryTag("opencv-matrix") << YAML::BeginMap;
    out << YAML::Key << "rows" << YAML::Value << int(m.rows());
    out << YAML::Key << "cols" << YAML::Value << int(m.cols());
    out << YAML::Key << "dt" << YAML::Value << "d";
    out << YAML::Key << "data" << YAML::Value << YAML::Flow << YAML::BeginSeq;
    for (int r = 0; r < m.rows(); ++r)
        for (int c = 0; c < m.cols(); ++c) out << real(m(r, c));  // row-major, as OpenCV stores it
    out << YAML::EndSeq << YAML::EndMap;
}

}  // namespace

std::string toOpenCvYaml(const std::vector<CameraPose>& cameras) {
    YAML::Emitter out;
    out << YAML::BeginMap;
    out << YAML::Key << "units" << YAML::Value << "metres";
    out << YAML::Key << "transform" << YAML::Value << "x_camera = R * x_room + T";
    out << YAML::Key << "room_axes" << YAML::Value << kRoomAxes;
    out << YAML::Key << "camera_axes" << YAML::Value << kOpticalAxes;
    out << YAML::Key << "cameras" << YAML::Value << YAML::Flow << YAML::BeginSeq;
    for (const CameraPose& camera : cameras) out << camera.serial;
    out << YAML::EndSeq;
    for (const CameraPose& camera : cameras) {
        const Eigen::Isometry3d pose = roomToOptical(camera);
        out << YAML::Key << "camera_" + std::to_string(camera.serial) << YAML::Value << YAML::BeginMap;
        writeMatrix(out, "R", pose.linear());
        writeMatrix(out, "T", pose.translation());
        out << YAML::EndMap;
    }
    out << YAML::EndMap;
    return "%YAML:1.0\n---\n" + std::string(out.c_str()) + "\n";
}

}  // namespace exporters
