// What a skeleton calibration's solves carry from one to the next: where each camera
// stands, its depth bias, the last result and its record. A new calibration starts a new one.
#pragma once

#include <array>
#include <map>
#include <memory>

#include "lum/records.hpp"

namespace calib {

struct SolveRecord;

struct PoseStruct {
    double q[4] = {0.0, 0.0, 0.0, 1.0};  // x, y, z, w
    double t[3] = {0.0, 0.0, 0.0};
};

// A flag shared by the residual functors of one problem. A copy of its owner gets a flag
// of its own (same value), so a copy can be solved on another thread while the original
// keeps collecting.
struct OwnedFlag : std::shared_ptr<bool> {
    OwnedFlag() : std::shared_ptr<bool>(std::make_shared<bool>(false)) {}
    OwnedFlag(const OwnedFlag& other) : std::shared_ptr<bool>(std::make_shared<bool>(*other)) {}
    OwnedFlag& operator=(const OwnedFlag& other) {
        std::shared_ptr<bool>::operator=(std::make_shared<bool>(*other));
        return *this;
    }
};

struct SolverState {
    std::map<int, PoseStruct> poses;  // where the next solve starts from (camera to reference)
    std::map<int, double> biases;     // Refined: metres toward each camera along its rays
    std::map<int, lum::Transform> calibratedPoses;  // the last usable solve, in the world frame
    int framesAtLastCalibration = 0;
    int keypointsLeftOut = 0;  // Refined: joints left out of the last solve (unusable covariance)
    // Read by every residual functor of a Classic problem.
    OwnedFlag weightByCovariance;
    // Classic's floor step carries the up-pair joints of every frame into world
    // coordinates, and later solves read them so; kept here, so the frames stay as taken.
    std::map<lum::Timestamp, std::map<int, std::array<lum::Vector3f, 2>>> worldJoints;
    // What the last solve saw and produced, for makeCalibrationReport(); immutable and
    // shared between copies.
    std::shared_ptr<const SolveRecord> lastSolve;
};

}  // namespace calib
