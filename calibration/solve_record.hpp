// What one skeleton calibration solve saw and produced, kept for its report.
// Immutable once made, so copies of the calibration can share it across threads.
#pragma once

#include <array>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "calibration/frame_store.hpp"
#include "calibration/keypoint_pairs.hpp"
#include "calibration/solver_state.hpp"

namespace calib {

struct SolveRecord {
    // Classic: every keypoint pair by ordered camera pair. Refined: none; its joints are read
    // where its solve read them, each once, in the chunks' frame pairs between the cameras
    // that had a pose, so that no report gathers (and allocates) every pair both ways round.
    std::shared_ptr<const std::vector<CameraPairData>> pairs;
    FrameStore::Chunks chunks;
    std::set<int> posed;
    std::map<int, PoseStruct> before;
    std::map<int, PoseStruct> after;
    // Refined only: each camera's depth bias at the start and at the end of the solve, so
    // the residuals read after the model's corrections, as the trackers' own noise.
    std::map<int, double> biasesBefore;
    std::map<int, double> biasesAfter;
    int reference = 0;      // camera held fixed
    bool robust = false;    // Huber loss on every keypoint pair
    bool weighted = false;  // the final solve weighted the residuals
    bool usable = false;
    int frames = 0;
    int residualBlocks = 0;
    double seconds = 0;
    // The up-pair joints, which the floor step stores back in world coordinates: after the
    // first usable solve they are no longer camera measurements, so residuals leave them out.
    std::array<int, 2> rewrittenJoints{-1, -1};
    std::string floorRefused;  // why the world was left unlevelled, when the floor was refused
    double floorRefusedSpanM = -1;  // the planted feet's spread that refused it, metres
    std::map<int, std::string> unplaced;  // cameras the solve left out until their pose is agreed, and why
};

// A camera as a solve left it: rotation and translation into the reference's frame, and
// its depth pull (0 where the model has none).
struct PlacedCamera {
    Eigen::Matrix3d rotation;
    Eigen::Vector3d translation;
    double bias = 0;
};
std::map<int, PlacedCamera> placedCameras(const std::map<int, PoseStruct>& poses, const std::map<int, double>& biases);

// Refined: calls visit(pair) for every frame pair the solve read, those between cameras
// that had a pose.
template <class Visit>
void forEachSolvedFramePair(const SolveRecord& record, Visit&& visit) {
    for (const auto& chunk : record.chunks)
        for (const FramePair& pair : chunk->framePairs())
            if (record.posed.count(pair.cameraA) && record.posed.count(pair.cameraB)) visit(pair);
}

// Calls visit(cameraA, cameraB, a, b, keypoint, sides) for every joint the solve used:
// `sides` 2 where one call stands for both cameras' sides of the joint (Refined), 1 where
// each side comes as a call of its own (Classic's pairs both ways round).
template <class Visit>
void forEachSolvedJoint(const SolveRecord& record, Visit&& visit) {
    if (record.pairs) {
        for (const CameraPairData& pair : *record.pairs)
            for (const KeypointPair& p : pair.pairs) visit(pair.cameraA, pair.cameraB, p.a, p.b, p.keypoint, 1);
        return;
    }
    forEachSolvedFramePair(record, [&visit](const FramePair& pair) {
        for (const JointPair& joint : pair.joints) visit(pair.cameraA, pair.cameraB, joint.a, joint.b, joint.keypoint, 2);
    });
}

// Calls visit(cameraA, cameraB, a, b, keypoint) for every joint the solve used, once from
// each camera's side.
template <class Visit>
void forEachSolvedPair(const SolveRecord& record, Visit&& visit) {
    forEachSolvedJoint(record, [&visit](int cameraA, int cameraB, const Eigen::Vector3d& a, const Eigen::Vector3d& b,
                                        int keypoint, int sides) {
        visit(cameraA, cameraB, a, b, keypoint);
        if (sides == 2) visit(cameraB, cameraA, b, a, keypoint);
    });
}

// Frames that gave each ordered camera pair a joint, and the joints each camera was paired
// in (counted from both sides, as the solve's residual blocks are).
struct SolvedPairCounts {
    std::map<std::pair<int, int>, int> frames;
    std::map<int, int> blocks;
};
SolvedPairCounts countSolvedPairs(const SolveRecord& record);

// True when the record holds any joints to report on.
bool hasSolvedPairs(const SolveRecord& record);

}  // namespace calib
