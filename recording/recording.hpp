// What a recording of a room holds: the room as it was set up, then every camera's bodies
// as the fusion handed them over, in the order they arrived.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "lum/fusion.hpp"
#include "lum/records.hpp"
#include "lum/types.hpp"

namespace rec {

// Version written into every new file; readers refuse anything newer.
inline constexpr uint32_t kFormatVersion = 1;

// Bounds a reader holds every file to, so a hostile or damaged file cannot make it
// allocate without limit. Writers never come near them.
inline constexpr size_t kMaxChunkBytes = 8u << 20;       // stored or unpacked payload
inline constexpr size_t kMaxEntriesPerChunk = 1u << 16;
inline constexpr size_t kMaxCameras = 256;
inline constexpr size_t kMaxBodiesPerEntry = 256;
inline constexpr size_t kMaxKeypointsPerBody = 256;
inline constexpr size_t kMaxTextBytes = 4096;

struct RecordingHeader {
    uint32_t version = kFormatVersion;
    std::vector<lum::FusionConfiguration> room;  // serials, inputs, starting poses
    lum::COORDINATE_SYSTEM coordinateSystem = lum::COORDINATE_SYSTEM::IMAGE;
    lum::UNIT unit = lum::UNIT::MILLIMETER;
    lum::BODY_FORMAT bodyFormat = lum::BODY_FORMAT::BODY_18;
    lum::DEPTH_MODE depthMode = lum::DEPTH_MODE::ULTRA;
    std::string createdBy;  // e.g. "halden-cli 0.1.0"
};

// One camera's bodies as the fusion handed them over; the capture time is bodies.timestamp.
struct RecordedBodies {
    int serial = 0;
    lum::Bodies bodies;
};

}  // namespace rec
