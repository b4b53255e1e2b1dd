// Quality figures of the last skeleton calibration, per camera, for users and logs.
// Built on demand from what the last solve recorded, so calibrate() pays nothing for it.
#pragma once

#include <limits>
#include <map>
#include <string>
#include <vector>

#include "calibration/pose_uncertainty.hpp"

class SkeletonMulticameraCalibration;

struct CameraCalibrationReport {
    int camera = 0;
    int residualBlocks = 0;         // keypoint pairs (both orders) this camera takes part in
    double rmsBeforeMm = 0;         // unweighted residual at the poses the solve started from
    double rmsAfterMm = 0;          // unweighted residual at the solved poses
    double rotationSigmaDeg = 0;    // 1-sigma rotation from the final solve's covariance
    double translationSigmaMm = 0;  // 1-sigma translation (norm) from the same covariance
    std::map<int, int> framesSharedWith;  // other camera -> frames in which both gave a block
    // The camera's clock minus the reference camera's, seconds, and its 1-sigma; NaN while
    // the bodies have not told them (Refined only).
    double clockOffsetS = std::numeric_limits<double>::quiet_NaN();
    double clockOffsetSigmaS = std::numeric_limits<double>::quiet_NaN();
    CameraUncertainty uncertainty;        // what a user may trust; see addPoseUncertainty()
    // It moved during the calibration: its earlier frames and pose are gone and it is being
    // placed anew; it reads Moved until then.
    bool reseedingAfterMove = false;
};

struct CalibrationReport {
    bool usable = false;
    int frames = 0;
    int residualBlocks = 0;
    double solveSeconds = 0;
    std::string floorRefused;  // why the world is not levelled, when the floor was refused
    double floorRefusedSpanM = -1;  // the fact behind it, for the window to say in its own language
    std::map<int, std::string> unplaced;  // cameras waiting for an agreed first pose, and why
    std::vector<int> reseeding;           // cameras whose pose is being found anew
    std::vector<CameraCalibrationReport> cameras;  // by camera identifier
};

// Report of the last calibrate() of this object that reached the solver; an empty
// (unusable) report when none did. Sigmas are NaN when the covariance is rank deficient.
// Keypoints are taken to be in metres (the unit the fusion runs in).
CalibrationReport makeCalibrationReport(const SkeletonMulticameraCalibration& calibration);
// The same without the covariance (sigmas NaN): residuals and shared frames only, for
// solves that are only compared by them.
CalibrationReport makeResidualReport(const SkeletonMulticameraCalibration& calibration);
