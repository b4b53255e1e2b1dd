// Chunk framing: zstd for the payload, zlib's CRC-32 for the checksum. All integers are
// little-endian whatever the machine, so a file moves between machines unchanged.
#include "recording/chunk_format.hpp"

#include <algorithm>
#include <cstring>

#include <zlib.h>
#include <zstd.h>

#include "recording/recording.hpp"

namespace rec {

namespace {

void putU32(uint8_t* out, uint32_t v) {
    for (int i = 0; i < 4; ++i) out[i] = uint8_t(v >> (8 * i));
}

uint32_t getU32(const uint8_t* in) {
    return uint32_t(in[0]) | uint32_t(in[1]) << 8 | uint32_t(in[2]) << 16 | uint32_t(in[3]) << 24;
}

uint32_t checksum(const uint8_t* header, const uint8_t* stored, size_t storedBytes) {
    uLong crc = crc32(0L, Z_NULL, 0);
    crc = crc32(crc, header, 12);
    if (storedBytes) crc = crc32(crc, stored, uInt(storedBytes));
    return uint32_t(crc);
}

bool fail(std::string* why, const std::string& text) {
    if (why) *why = text;
    return false;
}

}  // namespace

Bytes encodeFileHeader(uint32_t version) {
    Bytes bytes(kFileHeaderBytes);
    std::copy(kMagic.begin(), kMagic.end(), bytes.begin());
    putU32(bytes.data() + kMagic.size(), version);
    return bytes;
}

bool decodeFileHeader(const uint8_t* bytes, uint32_t& version, std::string* why) {
    if (!std::equal(kMagic.begin(), kMagic.end(), bytes)) return fail(why, "not a recording (wrong magic bytes)");
    version = getU32(bytes + kMagic.size());
    return true;
}

Bytes encodeChunk(ChunkKind kind, const Bytes& payload, int level) {
    Bytes packed;
    if (level > 0 && !payload.empty()) {
        packed.resize(ZSTD_compressBound(payload.size()));
        const size_t size = ZSTD_compress(packed.data(), packed.size(), payload.data(), payload.size(), level);
        if (!ZSTD_isError(size) && size < payload.size())
            packed.resize(size);
        else
            packed.clear();
    }
    const bool packedSmaller = !packed.empty();
    const Bytes& stored = packedSmaller ? packed : payload;
    Bytes chunk(kChunkHeaderBytes + stored.size());
    chunk[0] = uint8_t(kind);
    chunk[1] = uint8_t(packedSmaller ? ChunkCodec::Zstd : ChunkCodec::Stored);
    putU32(chunk.data() + 4, uint32_t(stored.size()));
    putU32(chunk.data() + 8, uint32_t(payload.size()));
    if (!stored.empty()) std::memcpy(chunk.data() + kChunkHeaderBytes, stored.data(), stored.size());
    putU32(chunk.data() + 12, checksum(chunk.data(), stored.data(), stored.size()));
    return chunk;
}

bool decodeChunkHeader(const uint8_t* bytes, ChunkHeader& header, std::string* why) {
    const uint8_t kind = bytes[0];
    if (kind != uint8_t(ChunkKind::Room) && kind != uint8_t(ChunkKind::Bodies) && kind != uint8_t(ChunkKind::End))
        return fail(why, "unknown chunk kind " + std::to_string(kind));
    if (bytes[1] > uint8_t(ChunkCodec::Zstd)) return fail(why, "unknown chunk codec " + std::to_string(bytes[1]));
    if (bytes[2] || bytes[3]) return fail(why, "reserved chunk bytes are not zero");
    header.kind = ChunkKind(kind);
    header.codec = ChunkCodec(bytes[1]);
    header.storedBytes = getU32(bytes + 4);
    header.rawBytes = getU32(bytes + 8);
    header.crc = getU32(bytes + 12);
    if (header.storedBytes > kMaxChunkBytes || header.rawBytes > kMaxChunkBytes)
        return fail(why, "chunk larger than " + std::to_string(kMaxChunkBytes) + " bytes");
    if (header.codec == ChunkCodec::Stored && header.storedBytes != header.rawBytes)
        return fail(why, "stored chunk whose two lengths differ");
    return true;
}

bool unpackChunk(const ChunkHeader& header, const uint8_t* stored, Bytes& raw, std::string* why) {
    uint8_t fixed[12] = {uint8_t(header.kind), uint8_t(header.codec), 0, 0};
    putU32(fixed + 4, header.storedBytes);
    putU32(fixed + 8, header.rawBytes);
    if (checksum(fixed, stored, header.storedBytes) != header.crc) return fail(why, "checksum mismatch");
    raw.assign(header.rawBytes, 0);
    if (header.codec == ChunkCodec::Stored) {
        if (header.rawBytes) std::memcpy(raw.data(), stored, header.rawBytes);
        return true;
    }
    if (header.rawBytes == 0 || header.storedBytes == 0) return fail(why, "compressed chunk without payload");
    // The unpacked length is known before unpacking, so a small chunk cannot expand into
    // more memory than its header announced.
    const size_t size = ZSTD_decompress(raw.data(), raw.size(), stored, header.storedBytes);
    if (ZSTD_isError(size) || size != header.rawBytes)
        return fail(why, "payload does not decompress to its stated length");
    return true;
}

}  // namespace rec
