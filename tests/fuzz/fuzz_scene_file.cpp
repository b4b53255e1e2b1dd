// Feeds arbitrary bytes to the scene reader: it must answer with a scene or a message,
// never crash or hang, and a scene it accepts holds only cameras it can simulate.
#include <cstddef>
#include <cstdint>
#include <set>
#include <string>

#include "pyra_sim/scene.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    pyra_sim::Scene scene;
    std::string error;
    if (!pyra_sim::parseScene(text, scene, &error)) {
        if (error.empty()) __builtin_trap();
        return 0;
    }
    std::set<unsigned int> serials;
    for (const pyra_sim::CameraSettings& camera : scene.cameras)
        if (camera.serial == 0 || !serials.insert(camera.serial).second || !(camera.maxDepth > camera.minDepth))
            __builtin_trap();
    return 0;
}
