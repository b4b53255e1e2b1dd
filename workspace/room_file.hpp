// The room configuration document as Halden writes it: one JSON object per camera, keyed
// by serial number, with the pose in the image frame and in metres.
#pragma once

#include <vector>

#include <nlohmann/json.hpp>

#include "lum/lum.hpp"

namespace roomfile {

// The camera object of one record whose pose is expressed in `coordinateSystem` and `unit`.
nlohmann::json write(const lum::FusionConfiguration& configuration, lum::COORDINATE_SYSTEM coordinateSystem,
                     lum::UNIT unit);

// The whole document: one member per serial number; a later record replaces an earlier one
// with the same serial number.
nlohmann::json writeDocument(const std::vector<lum::FusionConfiguration>& configurations,
                             lum::COORDINATE_SYSTEM coordinateSystem, lum::UNIT unit);

}  // namespace roomfile
