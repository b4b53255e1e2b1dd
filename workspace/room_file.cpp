// The room configuration document as Halden writes it. Each camera comes from the library's
// own camera writer, so the document sent to the hub and the file saved after a calibration
// cannot drift apart.
#include "workspace/room_file.hpp"

#include <string>

#include "lum/room_document.hpp"

namespace roomfile {

nlohmann::json write(const lum::FusionConfiguration& configuration, lum::COORDINATE_SYSTEM coordinateSystem,
                     lum::UNIT unit) {
    return lum::writeRoomCamera(configuration, coordinateSystem, unit);
}

nlohmann::json writeDocument(const std::vector<lum::FusionConfiguration>& configurations,
                             lum::COORDINATE_SYSTEM coordinateSystem, lum::UNIT unit) {
    nlohmann::json document = nlohmann::json::object();
    for (const auto& configuration : configurations)
        document[std::to_string(configuration.serial_number)] = write(configuration, coordinateSystem, unit);
    return document;
}

}  // namespace roomfile
