// Wire format of published camera frames and of the subscription handshake: MessagePack
// maps, float arrays as little-endian binary blobs. Decoding trusts nothing it reads.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "lum/records.hpp"
#include "lum/types.hpp"

namespace pyra::transport {

constexpr size_t kMaxFrameBytes = 1u << 20;
constexpr size_t kMaxBodiesPerFrame = 64;

struct Frame {
    uint32_t serial = 0;
    uint64_t sequence = 0;
    lum::COORDINATE_SYSTEM coordinateSystem = lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP;
    lum::UNIT unit = lum::UNIT::METER;
    lum::Bodies bodies;  // timestamp: the frame's capture time
};

std::string encodeFrame(const Frame& frame);
// False, with the reason, when the bytes are not a well-formed frame.
bool decodeFrame(const void* data, size_t size, Frame& frame, std::string* why = nullptr);

// What a sender answers when a fusion knocks on its handshake endpoint.
struct SenderHello {
    uint32_t serial = 0;
    std::array<int, 3> version{5, 1, 0};
    float fps = 0.f;
};

std::string encodeHelloRequest();
bool isHelloRequest(const void* data, size_t size);
std::string encodeHello(const SenderHello& hello);
bool decodeHello(const void* data, size_t size, SenderHello& hello, std::string* why = nullptr);

}  // namespace pyra::transport
