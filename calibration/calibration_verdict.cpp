// Per-camera verdict: enough shared frames, not moved, and an honest 2-sigma within what
// the fusion needs; otherwise the one thing to do next, naming cameras and view edges.
#include "calibration/calibration_verdict.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

std::string format(const char* pattern, double a, double b) {
    char text[160];
    std::snprintf(text, sizeof text, pattern, a, b);
    return text;
}

// Up to the next step of 1 / `steps`; the slack keeps a value that is exactly on a step there.
double roundedUp(double value, double steps) { return std::ceil(value * steps - 1e-9) / steps; }

// The neighbour this camera shares the most (or, for spreading the walk, the fewest) frames with.
int neighbour(const CameraCalibrationReport& camera, bool most) {
    int chosen = 0, chosenFrames = most ? -1 : 1 << 30;
    for (const auto& [other, frames] : camera.framesSharedWith) {
        if (most ? frames > chosenFrames : (frames > 0 && frames < chosenFrames)) {
            chosen = other;
            chosenFrames = frames;
        }
    }
    return chosen;
}

int mostSharedFrames(const CameraCalibrationReport& camera) {
    int best = 0;
    for (const auto& [other, frames] : camera.framesSharedWith) best = std::max(best, frames);
    return best;
}

// The side of the camera's view it has seen least of, if it is thin enough to matter.
const char* thinSide(const ViewCoverage& view, double minimumShare) {
    if (view.keypoints == 0) return nullptr;
    const std::pair<double, const char*> sides[] = {
        {view.left, "left"}, {view.right, "right"}, {view.top, "top"}, {view.bottom, "bottom"}};
    const auto* thinnest = std::min_element(std::begin(sides), std::end(sides));
    return thinnest->first < minimumShare ? thinnest->second : nullptr;
}

bool apart(double degrees, double millimetres, const ReadinessThresholds& t) {
    return degrees > t.movedApartDeg || millimetres > t.movedApartMm;
}

bool hasMoved(const CameraCalibrationReport& camera, const CalibrationReport& report, const ReadinessThresholds& t) {
    const CameraUncertainty& u = camera.uncertainty;
    if (!(u.residualGrowth > t.movedResidualGrowth)) return false;
    // Every camera that shares joints with a moved one sees its residual grow; the moved
    // one grows most.
    for (const CameraCalibrationReport& other : report.cameras)
        if (other.uncertainty.residualGrowth > u.residualGrowth * 1.05) return false;
    if (std::isfinite(u.halvesApartDeg) && std::isfinite(u.halvesApartMm))
        return apart(u.halvesApartDeg, u.halvesApartMm, t);
    // The reference is held still in both halves, so it has no halves of its own; when it
    // moved, every other camera seen from it moved instead. Its residual growing most is
    // not enough on its own: some camera's always grows most.
    int known = 0, moved = 0;
    for (const CameraCalibrationReport& other : report.cameras) {
        const CameraUncertainty& o = other.uncertainty;
        if (other.camera == camera.camera || !std::isfinite(o.halvesApartDeg) || !std::isfinite(o.halvesApartMm))
            continue;
        ++known;
        moved += apart(o.halvesApartDeg, o.halvesApartMm, t);
    }
    return known > 0 && 2 * moved > known;
}

}  // namespace

CameraAssessment assessCamera(const CameraCalibrationReport* camera, const CalibrationReport& report,
                              const ReadinessThresholds& t) {
    if (camera && camera->reseedingAfterMove)
        return {CameraReadiness::Moved, "It moved during the calibration: its frames from before were dropped and it "
                                        "is being placed anew. Keep walking where it and a neighbour both see you."};
    if (!camera || camera->residualBlocks == 0 || camera->framesSharedWith.empty())
        return {CameraReadiness::NoData,
                "Not yet seen together with another camera: walk where it and a neighbour both see you."};
    const std::string id = std::to_string(camera->camera);
    const std::string partner = std::to_string(neighbour(*camera, true));
    const int shared = mostSharedFrames(*camera);
    if (!report.usable || shared < t.minimumSharedFrames)
        return {CameraReadiness::NeedsFrames, "Keep walking where " + id + " and " + partner + " both see you (" +
                                                  std::to_string(shared) + " of " +
                                                  std::to_string(t.minimumSharedFrames) + " frames)."};
    const CameraUncertainty& u = camera->uncertainty;
    if (hasMoved(*camera, report, t)) {
        std::string how = std::isfinite(u.halvesApartDeg)
                              ? format(" (the first and second half of the walk put it %.1f° and %.0f mm apart)",
                                       u.halvesApartDeg, u.halvesApartMm)
                              : std::string();
        return {CameraReadiness::Moved,
                "It seems to have moved during the calibration" + how + ": fix it in place and restart the calibration."};
    }
    if (!std::isfinite(u.rotationSigmaDeg) || !std::isfinite(u.positionSigmaMm))
        return {CameraReadiness::Uncertain,
                "Its uncertainty is not known yet: keep walking where " + id + " and " + partner + " both see you."};

    const double rotation = 2.0 * u.rotationSigmaDeg, position = 2.0 * u.positionSigmaMm;
    // Rounded up: 10.4 mm shown as "10 mm" beside "10 mm needed" would read as a pass.
    const std::string figures = format("±%.2f° / %.0f mm at 2σ", roundedUp(rotation, 100.0), roundedUp(position, 1.0));
    if (rotation <= t.maximumRotationDeg && position <= t.maximumPositionMm)
        return {CameraReadiness::Good, "Well placed: " + figures + "."};
    const std::string needed = format(", %.1f° / %.0f mm needed", t.maximumRotationDeg, t.maximumPositionMm);
    if (2.0 * u.trackerBiasMm > t.maximumPositionMm)
        return {CameraReadiness::Uncertain,
                figures + needed + format(". Walking longer will not bring it under %.0f mm: this calibration model "
                                          "cannot tell the trackers' pull toward the camera from where the camera "
                                          "stands.",
                                          2.0 * u.trackerBiasMm, 0)};
    if (const char* side = thinSide(u.coverage, t.minimumSideShare))
        return {CameraReadiness::Uncertain, figures + needed + ". Cover the " + side + " edge of " + id +
                                                "'s view, where " + partner + " also sees you."};
    return {CameraReadiness::Uncertain, figures + needed + ". Walk where " + id + " and " +
                                            std::to_string(neighbour(*camera, false)) +
                                            " both see you, near and far, facing both."};
}
