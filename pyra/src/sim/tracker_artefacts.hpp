// A body tracker's artefacts beyond noise: people hidden behind others, ids that change,
// frames the sender loses and jitter spikes. Pure functions of (seed, camera, person, time).
#pragma once

#include <cstdint>
#include <vector>

#include "lum/math.hpp"
#include "pyra_sim/scene.hpp"

namespace pyra_sim {

// For each person's keypoints (camera frame, metres), the depth of the nearer person
// that hides it from the camera, or NaN where nobody does. `up` is the room's up in the
// camera frame.
std::vector<std::vector<float>> hidingDepths(const std::vector<std::vector<lum::Vector3f>>& people,
                                             const lum::Vector3f& up);

// The id `camera`'s tracker gives `person` at the true time `trueNs`.
int trackerId(const Scene& scene, const CameraSettings& camera, int person, uint64_t trueNs);

// Moves some of `keypoints` (camera frame; NaN: not reported) on the frames where the
// tracker of `camera` jumps for `person`.
void addJitterSpike(const Scene& scene, const CameraSettings& camera, int person, uint64_t trueNs,
                    std::vector<lum::Vector3f>& keypoints);

}  // namespace pyra_sim
