// Rooms drawn from a seed for the sweep: a scene file text (cameras, people, noise) and
// how long to walk it. One seed always gives the same room, on any machine.
#pragma once

#include <cstdint>
#include <string>

#include "pyra_sim/scene.hpp"

namespace sweep {

struct GeneratedRoom {
    uint64_t seed = 0;
    std::string layout;     // "ring", "chain", "two walls" or "mixed heights"
    int seconds = 60;       // how long people walk
    std::string sceneText;  // the scene file, as PYRA_SIM_SCENE reads it
    pyra_sim::Scene scene;  // the same text parsed: the truth the result is judged against
};

// False (with the reason) only if the drawn scene fails to parse, which is a fault here.
bool generateRoom(uint64_t seed, GeneratedRoom& room, std::string* problem);

}  // namespace sweep
