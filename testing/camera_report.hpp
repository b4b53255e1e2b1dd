// A camera's line of a calibration report written by hand, as the verdict reads it: the
// verdict's tests and the panel's tests start from the same line.
#pragma once

#include <map>
#include <utility>

#include "calibration/calibration_report.hpp"

namespace synthetic {

// Frames shared with each other camera, a 1-sigma rotation and position, and residuals
// that did not grow; a camera sharing nothing has no keypoint pairs.
inline CameraCalibrationReport cameraReport(int id, std::map<int, int> shared, double rotationSigmaDeg,
                                            double positionSigmaMm) {
    CameraCalibrationReport camera;
    camera.camera = id;
    camera.residualBlocks = shared.empty() ? 0 : 1000;
    camera.framesSharedWith = std::move(shared);
    camera.uncertainty.rotationSigmaDeg = rotationSigmaDeg;
    camera.uncertainty.positionSigmaMm = positionSigmaMm;
    camera.uncertainty.residualGrowth = 1.0;
    return camera;
}

}  // namespace synthetic
