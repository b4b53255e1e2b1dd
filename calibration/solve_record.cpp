// A solve's cameras as it left them, and counts over its joints, read from the keypoint
// pairs (Classic) or the chunks' frame pairs (Refined), so reports agree across models.
#include "calibration/solve_record.hpp"

#include <Eigen/Geometry>

namespace calib {

std::map<int, PlacedCamera> placedCameras(const std::map<int, PoseStruct>& poses, const std::map<int, double>& biases) {
    std::map<int, PlacedCamera> placed;
    for (const auto& [camera, pose] : poses) {
        auto bias = biases.find(camera);
        placed[camera] = {Eigen::Map<const Eigen::Quaterniond>(pose.q).normalized().toRotationMatrix(),
                          Eigen::Vector3d(pose.t[0], pose.t[1], pose.t[2]), bias == biases.end() ? 0.0 : bias->second};
    }
    return placed;
}

SolvedPairCounts countSolvedPairs(const SolveRecord& record) {
    SolvedPairCounts counts;
    if (record.pairs) {
        for (const CameraPairData& pair : *record.pairs) {
            counts.frames[{pair.cameraA, pair.cameraB}] = pair.frames;
            counts.blocks[pair.cameraA] += int(pair.pairs.size());
            counts.blocks[pair.cameraB] += int(pair.pairs.size());
        }
        return counts;
    }
    forEachSolvedFramePair(record, [&counts](const FramePair& pair) {
        ++counts.frames[{pair.cameraA, pair.cameraB}];
        ++counts.frames[{pair.cameraB, pair.cameraA}];
        counts.blocks[pair.cameraA] += 2 * int(pair.joints.size());
        counts.blocks[pair.cameraB] += 2 * int(pair.joints.size());
    });
    return counts;
}

bool hasSolvedPairs(const SolveRecord& record) {
    if (record.pairs) return true;
    bool any = false;
    forEachSolvedFramePair(record, [&any](const FramePair& pair) { any = any || !pair.joints.empty(); });
    return any;
}

}  // namespace calib
