// The MessagePack documents inside the chunks: the room, batches of camera bodies, and the
// closing summary. Floats travel as little-endian binary blobs so they come back bit for bit.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "recording/chunk_format.hpp"
#include "recording/recording.hpp"

namespace rec {

Bytes encodeRoom(const RecordingHeader& header);
bool decodeRoom(const Bytes& payload, RecordingHeader& header, std::string* why);

// One entry as a MessagePack map, appended to `out`; a bodies chunk is an array of them.
void appendEntry(const RecordedBodies& entry, Bytes& out);
// Wraps `count` entries appended by appendEntry into the payload of one bodies chunk.
Bytes entriesPayload(const Bytes& entries, size_t count);
bool decodeEntries(const Bytes& payload, std::vector<RecordedBodies>& entries, std::string* why);

// What the closing chunk states, so a reader can tell a whole recording from a cut one.
struct RecordingSummary {
    uint64_t entries = 0;
    uint64_t bodyChunks = 0;
};
Bytes encodeSummary(const RecordingSummary& summary);
bool decodeSummary(const Bytes& payload, RecordingSummary& summary, std::string* why);

}  // namespace rec
