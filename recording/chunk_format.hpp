// The framing of a recording file: the file header, and chunks that each carry their own
// length and checksum so that a reader can tell a whole chunk from a cut or damaged one.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace rec {

using Bytes = std::vector<uint8_t>;

inline constexpr std::array<uint8_t, 8> kMagic{0x89, 'H', 'A', 'L', 'D', 'R', 'E', 'C'};
inline constexpr size_t kFileHeaderBytes = 12;   // magic, then the version (u32 little-endian)
inline constexpr size_t kChunkHeaderBytes = 16;

enum class ChunkKind : uint8_t { Room = 'R', Bodies = 'B', End = 'E' };
enum class ChunkCodec : uint8_t { Stored = 0, Zstd = 1 };

struct ChunkHeader {
    ChunkKind kind = ChunkKind::Bodies;
    ChunkCodec codec = ChunkCodec::Stored;
    uint32_t storedBytes = 0;  // payload bytes on disk after the header
    uint32_t rawBytes = 0;     // payload bytes once unpacked
    uint32_t crc = 0;          // CRC-32 of the header's first 12 bytes and the stored payload
};

Bytes encodeFileHeader(uint32_t version);
// The version of a file header; false with the reason when the magic is wrong.
bool decodeFileHeader(const uint8_t* bytes, uint32_t& version, std::string* why);

// A whole chunk (header and payload), compressed when that makes it smaller.
// `level` is the zstd level, 0 stores the payload as it is.
Bytes encodeChunk(ChunkKind kind, const Bytes& payload, int level);
// Checks the fixed fields and the size bounds; the payload is checked by unpackChunk.
bool decodeChunkHeader(const uint8_t* bytes, ChunkHeader& header, std::string* why);
// Verifies the checksum of `stored` and unpacks it into `raw`.
bool unpackChunk(const ChunkHeader& header, const uint8_t* stored, Bytes& raw, std::string* why);

}  // namespace rec
