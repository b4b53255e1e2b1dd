// Reading MessagePack from untrusted bytes, as the camera frames and the recordings both do:
// a DOM built under a depth and value budget, then fields read with their range checked.
#pragma once

#include <cstddef>
#include <cstdint>

#include <nlohmann/json.hpp>

namespace pyra_codec {

// Parses `size` bytes at `data` into `out`; false for anything but one whole document
// nested at most `maxDepth` deep and holding at most `maxValues` values, so hostile
// nesting or a flood of tiny values exhausts neither the stack nor the heap.
bool parseBounded(const uint8_t* data, size_t size, size_t maxDepth, size_t maxValues, nlohmann::json& out);

// The integer at `key` of `object`, if there is one and it lies within [lo, hi].
template <typename T>
bool readInteger(const nlohmann::json& object, const char* key, T lo, T hi, T& out) {
    auto it = object.find(key);
    if (it == object.end() || !it->is_number_integer()) return false;
    // Wide enough for every signed and unsigned 64-bit value MessagePack can carry.
    __int128 v = it->is_number_unsigned() ? __int128(it->get<uint64_t>()) : __int128(it->get<int64_t>());
    if (v < __int128(lo) || v > __int128(hi)) return false;
    out = T(v);
    return true;
}

}  // namespace pyra_codec
