// The room configuration document on the library side: records to JSON and back, with
// every member checked. No file access here; room_config_file.cpp does that.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "lum/records.hpp"

namespace lum {
namespace room {

// A room file is a few hundred bytes per camera; 1 MiB holds thousands of cameras, and
// refusing more before parsing keeps a hostile file from costing seconds and gigabytes.
constexpr std::size_t kMaxDocumentBytes = 1u << 20;

// The document for `configurations`, whose poses are in `coordinateSystem` and `unit`.
// False, with `problem` set, when a record cannot be written faithfully.
bool toDocument(const std::vector<FusionConfiguration>& configurations, COORDINATE_SYSTEM coordinateSystem,
                UNIT unit, nlohmann::json& document, std::string& problem);

// Parses and checks a document; poses come out in `coordinateSystem` and `unit`.
// False, with `problem` set and `configurations` empty, on the first fault found.
bool fromText(const std::string& text, COORDINATE_SYSTEM coordinateSystem, UNIT unit,
              std::vector<FusionConfiguration>& configurations, std::string& problem);

// "~/x" -> "$HOME/x"; other paths unchanged.
std::string expandHome(const std::string& path);

}  // namespace room
}  // namespace lum
