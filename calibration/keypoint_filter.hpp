// Guard at the calibration's door: keypoints that would poison a solve are blanked out
// as they arrive, and counted by reason so the user can be told what was wrong.
#pragma once

#include <string>

#include "lum/records.hpp"

namespace calib {

// No depth camera measures a joint this far away (metres, from the camera); anything
// beyond is a corrupted frame, and one such point would outweigh a room of good ones.
constexpr double kMaxKeypointDistance = 100.0;
// Smallest believable variance along any axis (m^2, a 10 um sigma). Anything tighter is a
// zero in disguise, and its inverse would pin the solve to that one keypoint.
constexpr double kMinKeypointVariance = 1e-10;
// Smallest believable ratio of the smallest to the largest variance (a sigma 30 000 times
// tighter across than along): beyond it the matrix is singular but for rounding.
constexpr double kMinVarianceRatio = 1e-9;

struct KeypointDrops {
    long long nonFinite = 0;      // a NaN or infinite coordinate beside finite ones
    long long badCovariance = 0;  // non-finite, zero, singular or not positive definite
    long long implausible = 0;    // beyond kMaxKeypointDistance
    long long total() const { return nonFinite + badCovariance + implausible; }
    // "12 with a bad covariance, 3 beyond 100 m"; empty when nothing was dropped.
    std::string describe() const;
};

// Blanks (all NaN, the mark of an undetected joint) every keypoint that cannot be trusted
// and adds it to `drops`. A joint already blanked is not counted.
void dropUnusableKeypoints(lum::BodyData& body, KeypointDrops& drops);

}  // namespace calib
