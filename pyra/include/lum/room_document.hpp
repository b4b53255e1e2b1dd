// One camera of the room configuration document, built the same way wherever the document
// is made: the room file on disk, the document sent to the hub, the debug log of the dialog.
#pragma once

#include <nlohmann/json.hpp>

#include "lum/records.hpp"

namespace lum {

// The camera object of `configuration`, whose pose is expressed in `coordinateSystem` and
// `unit`: "input"."pyra"."configuration" (the serial number), "input"."fusion" (type
// "LOCAL_NETWORK" with the address and port; the file writer alone names shared memory)
// and "world" (rotation vector and translation in the image frame and in
// metres, single-precision values widened to double so the text gives back the exact float).
nlohmann::json writeRoomCamera(const FusionConfiguration& configuration, COORDINATE_SYSTEM coordinateSystem,
                               UNIT unit);

}  // namespace lum
