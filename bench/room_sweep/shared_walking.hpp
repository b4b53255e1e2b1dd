// How much walking each camera of a simulated room shares with another, from the truth:
// the rooms a calibration can be asked to get right.
#pragma once

#include <map>

#include "pyra_sim/scene.hpp"

namespace sweep {

// Per camera serial: the most seconds, with any one other camera, during which both
// report the same walking person (people standing still all the time do not count).
// Sampled every 500 ms over `seconds` from the virtual room clock's start.
std::map<unsigned, double> sharedWalkingSeconds(const pyra_sim::Scene& scene, int seconds);

}  // namespace sweep
