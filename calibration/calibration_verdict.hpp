// The verdict on each camera of a calibration and what the user should do about it, in
// plain words; the calibration panel and the headless tool show it as it stands.
#pragma once

#include <string>
#include <vector>

#include "calibration/calibration_report.hpp"

enum class CameraReadiness { NoData, NeedsFrames, Uncertain, Moved, Good };

// What the fusion needs from a pose: a joint seen by two cameras must land within about
// a centimetre of itself for the fused skeleton not to double, and at four metres a
// third of a degree is two centimetres. Good means within these at 2 sigma.
struct ReadinessThresholds {
    int minimumSharedFrames = 30;
    double maximumRotationDeg = 0.3;   // at 2 sigma
    double maximumPositionMm = 10.0;   // at 2 sigma
    // No single pose fits the whole walk while each half fits its own: the camera moved.
    double movedResidualGrowth = 1.4;
    double movedApartDeg = 0.7;
    double movedApartMm = 20.0;
    // A side of the view with fewer of the camera's joints than this is left uncovered.
    double minimumSideShare = 0.15;
};

struct CameraAssessment {
    CameraReadiness readiness = CameraReadiness::NoData;
    std::string advice;
};

// `camera` is null when the last solve did not involve that camera at all; `report` is
// the whole last report (the advice names the neighbours to walk between).
CameraAssessment assessCamera(const CameraCalibrationReport* camera, const CalibrationReport& report,
                              const ReadinessThresholds& thresholds = ReadinessThresholds());
