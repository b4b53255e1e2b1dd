// A walk through a simulated scene recorded on the virtual room clock, then calibrated from
// the recording by the fusion worker exactly as `halden-cli record` and `calibrate --replay` do.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "calibration/calibration_report.hpp"
#include "calibration/skeleton_align.hpp"
#include "pyra_sim/scene.hpp"

namespace replayed {

// Records `seconds` of `scene` into `path`; the captures written (0: the room did not run).
uint64_t record(const pyra_sim::Scene& scene, int seconds, const std::string& path);

struct Calibrated {
    std::map<int, lum::Transform> poses;  // what would be saved, by serial; empty: nothing usable
    CalibrationReport report;             // of the last solve, uncertainty included
    int frames = 0;                       // calibration frames in the store at the end
    int solves = 0;
};

// Calibrates the first `seconds` of the recording at `path` (0: all of it) with `model`.
Calibrated calibrate(const std::string& path, SkeletonMulticameraCalibration::Model model, int seconds = 0);

// Scored against the scene's truth, every camera relative to the smallest serial.
struct Errors {
    std::map<int, double> rotationDeg, positionMm;  // reference camera left out
    double floorTiltDeg = 0;     // the saved world's y against the true vertical
    double worstHeightMm = 0;    // the saved cameras' y against their true height
    double worstRotation() const;
    double worstPosition() const;
    double medianRotation() const;
    double medianPosition() const;
};
Errors errorsAgainstTruth(const pyra_sim::Scene& scene, const std::map<int, lum::Transform>& poses);

}  // namespace replayed
