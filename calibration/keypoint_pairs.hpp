// The observations of a skeleton calibration: every usable joint seen by two cameras in
// one frame, with its weight, grouped by ordered camera pair for fast evaluation.
#pragma once

#include <algorithm>
#include <array>
#include <map>
#include <vector>

#include <Eigen/Core>

#include "lum/records.hpp"

namespace calib {

// Only the first joints of a body are used, whatever its layout.
constexpr int kMaxKeypoints = 30;

struct KeypointPair {
    Eigen::Vector3d a;       // joint in camera A's frame
    Eigen::Vector3d b;       // same joint in camera B's frame
    Eigen::Matrix3d weight;  // lower factor of the information of A's keypoint
    Eigen::Matrix3d weightSquared;  // weight^T weight: what the normal equations need
    int keypoint = -1;              // joint index in the body layout
};

struct CameraPairData {
    int cameraA = 0;
    int cameraB = 0;
    int frames = 0;  // frames that gave this pair at least one keypoint pair
    std::vector<KeypointPair> pairs;
};

using Frames = std::map<lum::Timestamp, std::map<int, lum::BodyData>>;
// Frames kept in several consecutive parts, read one part after the other.
using FrameParts = std::vector<const Frames*>;

// True for a finite coordinate (NaN marks an undetected joint).
bool isUsable(float x);

// Lower Cholesky factor of the inverse of a keypoint covariance (upper triangle, row by
// row). A pivot that is not positive ends the factorisation; the partial factor is kept.
// A keypoint without covariance gets the identity.
Eigen::Matrix3d informationFactor(const lum::BodyData& body, size_t keypoint);

// Calls visit(ts, cameraA, cameraB, pointA, pointB, weight, keypoint) for every block of the
// problem, in frame, camera A, camera B, keypoint order (both orders of each pair).
template <typename Visit>
void forEachKeypointPair(const FrameParts& parts, Visit&& visit) {
    for (const Frames* frames : parts)
    for (const auto& [ts, bodies] : *frames) {
        for (const auto& [cameraA, bodyA] : bodies) {
            for (const auto& [cameraB, bodyB] : bodies) {
                if (cameraA == cameraB) continue;
                const size_t n = std::min({bodyA.keypoint.size(), size_t(kMaxKeypoints),
                                           bodyB.keypoint.size()});
                for (size_t k = 0; k < n; ++k) {
                    const lum::Vector3f& a = bodyA.keypoint[k];
                    const lum::Vector3f& b = bodyB.keypoint[k];
                    if (!isUsable(a.x) || !isUsable(b.x)) continue;
                    visit(ts, cameraA, cameraB, Eigen::Vector3d(a.x, a.y, a.z),
                          Eigen::Vector3d(b.x, b.y, b.z), informationFactor(bodyA, k), int(k));
                }
            }
        }
    }
}

template <typename Visit>
void forEachKeypointPair(const Frames& frames, Visit&& visit) {
    forEachKeypointPair(FrameParts{&frames}, visit);
}

// All blocks grouped by ordered camera pair (pairs without a block are left out).
std::vector<CameraPairData> collectKeypointPairs(const FrameParts& parts);
inline std::vector<CameraPairData> collectKeypointPairs(const Frames& frames) {
    return collectKeypointPairs(FrameParts{&frames});
}

}  // namespace calib
