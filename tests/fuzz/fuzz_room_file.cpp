// Feeds arbitrary bytes to the room configuration reader: it must answer with cameras or
// a message, never crash, hang or leak, in any frame and unit.
#include <cstddef>
#include <cstdint>
#include <string>

#include "lum/fusion.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::string error;
    const auto image = lum::readFusionConfiguration(text, lum::COORDINATE_SYSTEM::IMAGE, lum::UNIT::MILLIMETER, &error);
    // Cameras are never returned together with a complaint.
    if (!image.empty() && !error.empty()) __builtin_trap();
    lum::readFusionConfiguration(text, lum::COORDINATE_SYSTEM::RIGHT_HANDED_Z_UP_X_FWD, lum::UNIT::FOOT, &error);
    return 0;
}
