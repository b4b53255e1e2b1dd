// The room configuration document as Halden writes it. Poses leave in the image frame and
// in metres whatever frame and unit the records use, so every reader sees one convention.
#include "workspace/room_file.hpp"

#include <string>

namespace roomfile {
namespace {

// Widened to double on purpose: the stored number must give back the exact float.
nlohmann::json asArray(const lum::Vector3f& v) {
    return nlohmann::json::array({double(v.x), double(v.y), double(v.z)});
}

}  // namespace

nlohmann::json write(const lum::FusionConfiguration& configuration, lum::COORDINATE_SYSTEM coordinateSystem,
                     lum::UNIT unit) {
    nlohmann::json camera = nlohmann::json::object();

    // A change of basis of the pose, so both sides of it are converted.
    const lum::Matrix4f c = lum::getCoordinateTransformConversion4f(coordinateSystem, lum::COORDINATE_SYSTEM::IMAGE);
    const lum::Matrix4f m = (c * configuration.pose) * lum::Matrix4f::inverse(c);
    const lum::Transform pose(m);
    camera["world"]["rotation"] = asArray(pose.getRotationVector());

    const float s = lum::getUnitScale(unit, lum::UNIT::METER);
    const lum::Translation t = pose.getTranslation();
    camera["world"]["translation"] = asArray(lum::Vector3f(t.x * s, t.y * s, t.z * s));

    camera["input"]["pyra"]["configuration"] = std::to_string(configuration.serial_number);
    camera["input"]["fusion"]["type"] = "LOCAL_NETWORK";
    camera["input"]["fusion"]["configuration"]["port"] = configuration.communication_parameters.getPort();
    camera["input"]["fusion"]["configuration"]["ip"] = configuration.communication_parameters.getIpAddress();
    return camera;
}

nlohmann::json writeDocument(const std::vector<lum::FusionConfiguration>& configurations,
                             lum::COORDINATE_SYSTEM coordinateSystem, lum::UNIT unit) {
    nlohmann::json document = nlohmann::json::object();
    for (const auto& configuration : configurations)
        document[std::to_string(configuration.serial_number)] = write(configuration, coordinateSystem, unit);
    return document;
}

}  // namespace roomfile
