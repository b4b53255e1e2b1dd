// How a skeleton calibration solves: the model, the solver and its limits (the body layout
// comes with the bodies). Set by its owner; a solve only reads it.
#pragma once

#include "calibration/pose_consensus.hpp"
#include "calibration/refined_solver.hpp"

namespace calib {

struct CalibrationOptions {
    // Classic: poses only, residuals in camera A's frame, only the floor height corrected.
    // Refined: poses and each camera's depth bias, joints compared in the world with both
    // covariances, and a level world frame; its stored frames are never rewritten.
    enum class Model { Classic, Refined };
    // The literal formulation (one automatically differentiated block per keypoint pair)
    // is kept as the yardstick the fast one is checked and measured against.
    enum class Solver { Fast, Reference };

    Model model = Model::Classic;
    Solver solver = Solver::Fast;
    RefinedOptions refined;
    ConsensusOptions consensus;  // Refined: when a camera's first pose is agreed
    // Iterations one Classic solve (and Refined's cold start) may take. A live room keeps
    // the default; a caller that only needs the paths walked, not converged, lowers it.
    int maxIterations = 50;
    bool levelFloor = true;  // Refined: level world frame (else the reference camera's own)
};

}  // namespace calib
