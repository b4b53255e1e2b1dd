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
    // ... and this many times the lower median of the other cameras' halves, measured where
    // each sees people (shift and turn together).
    double movedApartOverPeers = 3.0;
    // A side of the view with fewer of the camera's joints than this is left uncovered.
    double minimumSideShare = 0.15;
};

// The one thing to do next, as facts, so that each front end words it in its own language.
enum class AdviceKind {
    PlacedAnew,          // moved; its old frames dropped, being placed again
    NotSeenTogether,     // no frame shared with another camera yet
    KeepWalkingTogether, // with `partner`, `sharedFrames` of `neededFrames`
    FixAndRestart,       // moved; `apartDeg` / `apartMm` between the halves when known
    UncertaintyUnknown,  // walk with `partner`
    WellPlaced,
    ModelLimit,          // walking longer will not bring it under `floorMm`
    CoverEdge,           // cover `edge` of the view where `partner` also sees you
    WalkNearAndFar,      // with `partner`, near and far, facing both
};
enum class ViewEdge { Left, Right, Top, Bottom };

struct Advice {
    AdviceKind kind = AdviceKind::NotSeenTogether;
    int camera = 0;
    int partner = 0;
    int sharedFrames = 0;
    int neededFrames = 0;
    // At 2 sigma, rounded up as shown: 10.4 mm shown as "10 mm" beside "10 mm needed"
    // would read as a pass.
    double rotationDeg = 0, positionMm = 0;
    double neededDeg = 0, neededMm = 0;
    double apartDeg = 0, apartMm = 0;
    bool apartKnown = false;
    double floorMm = 0;
    ViewEdge edge = ViewEdge::Left;
};

// The advice in English, as the headless tool and the report carry it.
std::string describe(const Advice& advice);

struct CameraAssessment {
    CameraReadiness readiness = CameraReadiness::NoData;
    Advice facts;
    std::string advice;  // describe(facts)
};

// `camera` is null when the last solve did not involve that camera at all; `report` is
// the whole last report (the advice names the neighbours to walk between).
CameraAssessment assessCamera(const CameraCalibrationReport* camera, const CalibrationReport& report,
                              const ReadinessThresholds& thresholds = ReadinessThresholds());
