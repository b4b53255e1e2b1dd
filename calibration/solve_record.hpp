// What one skeleton calibration solve saw and produced, kept for its report.
// Immutable once made, so copies of the calibration can share it across threads.
#pragma once

#include <array>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "calibration/keypoint_pairs.hpp"
#include "calibration/solver_state.hpp"

namespace calib {

struct SolveRecord {
    std::shared_ptr<const std::vector<CameraPairData>> pairs;
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
    std::map<int, std::string> unplaced;  // cameras the solve left out until their pose is agreed, and why
};

}  // namespace calib
