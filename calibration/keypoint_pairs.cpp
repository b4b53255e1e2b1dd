// Gathering of the keypoint pairs of a skeleton calibration and their weights.
// The weight is kept exactly as the calibration has always computed it (see header).
#include "calibration/keypoint_pairs.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include <Eigen/Cholesky>
#include <Eigen/LU>

namespace calib {

bool isUsable(float x) {
    return std::fabs(x) <= std::numeric_limits<float>::max();
}

Eigen::Matrix3d informationFactor(const lum::BodyData& body, size_t keypoint) {
    if (keypoint >= body.keypoint_covariances.size()) return Eigen::Matrix3d::Identity();
    const std::array<float, 6>& c = body.keypoint_covariances[keypoint];
    Eigen::Matrix3d covariance;
    covariance << c[0], c[1], c[2], c[1], c[3], c[4], c[2], c[4], c[5];
    const Eigen::Matrix3d information = covariance.inverse();
    // LLT stops at the first non-positive pivot and leaves the rest as it found it,
    // which is the factor the weighting has always used.
    const Eigen::LLT<Eigen::Matrix3d> llt(information);
    return llt.matrixL();
}

std::vector<CameraPairData> collectKeypointPairs(const FrameParts& parts) {
    std::map<std::pair<int, int>, CameraPairData> byPair;
    std::map<std::pair<int, int>, lum::Timestamp> lastFrame;
    forEachKeypointPair(parts, [&](lum::Timestamp ts, int cameraA, int cameraB,
                                    const Eigen::Vector3d& a, const Eigen::Vector3d& b,
                                    const Eigen::Matrix3d& weight, int keypoint) {
        CameraPairData& data = byPair[{cameraA, cameraB}];
        if (data.pairs.empty() || lastFrame[{cameraA, cameraB}] != ts) ++data.frames;
        lastFrame[{cameraA, cameraB}] = ts;
        data.cameraA = cameraA;
        data.cameraB = cameraB;
        data.pairs.push_back({a, b, weight, weight.transpose() * weight, keypoint});
    });
    std::vector<CameraPairData> result;
    result.reserve(byPair.size());
    for (auto& [key, data] : byPair) result.push_back(std::move(data));
    return result;
}

}  // namespace calib
