// Exports a room calibration file to another tool's format, written whole or not at all.
#pragma once

#include <optional>
#include <string>

namespace exporters {

enum class Format { OpenCv, Toml, Ros2, Matrix };

// "opencv", "toml", "ros2" or "matrix".
std::optional<Format> parseFormat(const std::string& name);
const char* formatName(Format format);
// The file name ending users expect for the format (".yaml", ".toml", ".launch.xml", ".json").
const char* formatSuffix(Format format);

enum class ExportStatus { Written, BadRoom, WriteFailed };

// Reads `roomFile` and writes `output` through a temporary file renamed over it; on a
// failure `problem` names the file and the fault, and `output` is left as it was.
ExportStatus exportRoom(const std::string& roomFile, Format format, const std::string& output, std::string& problem);

}  // namespace exporters
