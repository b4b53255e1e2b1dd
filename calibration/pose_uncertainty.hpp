// How far each camera's calibrated pose can be off, systematic error included: the
// solver's own covariance widened by how much solves on two halves of the walk disagree.
#pragma once

#include <limits>
#include <map>

class SkeletonMulticameraCalibration;
struct CalibrationReport;

// Stated sigma^2 = scale^2 * (2 * formal^2 + (halves apart / 2)^2) + bias^2.
// The covariance only sees random noise, and counts every joint twice (both orders of a
// pair); the halves see what changes with where the person walked. Neither sees the
// trackers' pull of every joint a few centimetres toward the camera: it shifts a camera
// along the direction it looks, the same way in every half. Its share is a pull times
// how differently the camera and the reference look into the room.
// For the Classic model, which cannot see the pull, that pull is the prior kTrackerBiasMm.
constexpr double kUncertaintyScale = 2.0;
constexpr double kTrackerBiasMm = 30.0;
// The Refined model estimates one pull per camera, but the trackers pull the trunk's
// joints about four times as far as the hands and feet, so a share of the estimate stays
// unexplained; the halves also solve the pull, and their disagreement on it counts with
// theirs on position. With the pull no longer swamping everything, the random part needs
// less headroom. All four constants were set on the uncertainty benchmark's rooms against
// their truth (see the coverage tables in docs/trust.md).
constexpr double kRefinedUncertaintyScale = 1.4;
constexpr double kRefinedPullShare = 0.05;
// The same pull turns a camera a little: roughly this share of the shift over the depth.
constexpr double kBiasTurnShare = 0.25;
// What one pull per camera leaves unexplained shows in the residuals: keypoints whose mean
// offset along the camera's rays stays apart from the others' (the pull spread). How far
// such offsets shift and turn the camera's pose depends on the room's geometry; these
// shares were fitted on the room sweep's training seeds (see docs/benchmarks.md).
constexpr double kPullSpreadShift = 0.22;
constexpr double kPullSpreadTurn = 0.28;

// Where a camera's keypoints fell in its view: the share of them left of, right of,
// above and below its optical axis. A camera that only sees people at one edge of its
// view pins its rotation poorly.
struct ViewCoverage {
    int keypoints = 0;
    double left = 0, right = 0, top = 0, bottom = 0;
};

struct CameraUncertainty {
    static constexpr double kUnknown = std::numeric_limits<double>::quiet_NaN();
    double rotationSigmaDeg = kUnknown;  // NaN: not known (a half could not place the camera)
    double positionSigmaMm = kUnknown;
    double halvesApartDeg = kUnknown;  // the two halves' solutions of this camera, relative to the reference
    double halvesApartMm = kUnknown;
    // The whole walk's residual over the better half's: well above 1 when no single pose
    // fits both halves, i.e. the camera moved while the walk was recorded.
    double residualGrowth = kUnknown;
    double trackerBiasMm = kUnknown;  // the share of positionSigmaMm no amount of walking removes
    // Refined: how far apart the keypoints' mean residuals along the rays stay (this camera
    // and the reference together), and how deep its joints are on average.
    double pullSpreadMm = kUnknown;
    double viewDepthMm = kUnknown;
    // The reference only: how far the two halves put the other cameras' joints relative to
    // one another (median over pairs). A moved reference moves them all alike, so that
    // they stay put relative to one another.
    double othersMutualApartMm = kUnknown;
    ViewCoverage coverage;
};

// Fills every camera's `uncertainty` in a usable report of `solved`, the store just
// solved: solves copies on the earlier and the later half of its frames (warm started
// from its poses) and combines their disagreement with the report's covariance. Sigmas
// stay unknown where a half cannot place a camera. Costs about one more solve; meant for
// the calibration runner's thread.
void addPoseUncertainty(const SkeletonMulticameraCalibration& solved, CalibrationReport& report);
