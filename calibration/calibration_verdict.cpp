// Per-camera verdict: enough shared frames, not moved, and an honest 2-sigma within what
// the fusion needs; otherwise the one thing to do next, naming cameras and view edges.
#include "calibration/calibration_verdict.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

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
bool thinSide(const ViewCoverage& view, double minimumShare, ViewEdge& edge) {
    if (view.keypoints == 0) return false;
    const std::pair<double, ViewEdge> sides[] = {
        {view.left, ViewEdge::Left}, {view.right, ViewEdge::Right}, {view.top, ViewEdge::Top}, {view.bottom, ViewEdge::Bottom}};
    const auto* thinnest = std::min_element(std::begin(sides), std::end(sides));
    edge = thinnest->second;
    return thinnest->first < minimumShare;
}

const char* edgeName(ViewEdge edge) {
    switch (edge) {
        case ViewEdge::Left: return "left";
        case ViewEdge::Right: return "right";
        case ViewEdge::Top: return "top";
        case ViewEdge::Bottom: return "bottom";
    }
    return "";
}

bool apart(double degrees, double millimetres, const ReadinessThresholds& t) {
    return degrees > t.movedApartDeg || millimetres > t.movedApartMm;
}

bool halvesKnown(const CameraUncertainty& u) { return std::isfinite(u.halvesApartDeg) && std::isfinite(u.halvesApartMm); }

// How far the two halves put the joints the camera sees: the shift, and the turn carried
// out to the depth it sees people at.
double halvesApartAtJointsMm(const CameraUncertainty& u) {
    const double depthMm = std::isfinite(u.viewDepthMm) ? u.viewDepthMm : 0.0;
    return std::hypot(u.halvesApartMm, depthMm * u.halvesApartDeg * M_PI / 180.0);
}

// The other cameras' halves, measured where each sees people.
std::vector<double> peersApartAtJointsMm(const CameraCalibrationReport& camera, const CalibrationReport& report) {
    std::vector<double> peers;
    for (const CameraCalibrationReport& other : report.cameras)
        if (other.camera != camera.camera && halvesKnown(other.uncertainty))
            peers.push_back(halvesApartAtJointsMm(other.uncertainty));
    return peers;
}

// The lower median: with two peers, one of them moved too must not hide this one.
double lowerMedian(std::vector<double> values) {
    std::nth_element(values.begin(), values.begin() + long((values.size() - 1) / 2), values.end());
    return values[(values.size() - 1) / 2];
}

bool hasMoved(const CameraCalibrationReport& camera, const CalibrationReport& report, const ReadinessThresholds& t) {
    const CameraUncertainty& u = camera.uncertainty;
    if (!(u.residualGrowth > t.movedResidualGrowth)) return false;
    // Every camera that shares joints with a moved one sees its residual grow; the moved
    // one grows most.
    for (const CameraCalibrationReport& other : report.cameras)
        if (other.uncertainty.residualGrowth > u.residualGrowth * 1.05) return false;
    const std::vector<double> peers = peersApartAtJointsMm(camera, report);
    // The halves of a short or lopsided walk disagree for every camera alike; a camera that
    // moved disagrees far more than its peers. With no peer, the halves alone decide.
    if (halvesKnown(u))
        return apart(u.halvesApartDeg, u.halvesApartMm, t) &&
               (peers.empty() || halvesApartAtJointsMm(u) > t.movedApartOverPeers * lowerMedian(peers));
    // The reference is held still in both halves, so it has no halves of its own; when it
    // moved, every other camera seen from it moved instead. Its residual growing most is
    // not enough on its own: some camera's always grows most.
    int moved = 0;
    for (const CameraCalibrationReport& other : report.cameras)
        if (other.camera != camera.camera && halvesKnown(other.uncertainty))
            moved += apart(other.uncertainty.halvesApartDeg, other.uncertainty.halvesApartMm, t);
    if (2 * moved <= int(peers.size())) return false;
    // Halves that merely disagree put the others apart from one another as much as from
    // the reference; a moved reference leaves them where they were relative to one another.
    return !std::isfinite(u.othersMutualApartMm) || lowerMedian(peers) > t.movedApartOverPeers * u.othersMutualApartMm;
}

}  // namespace

std::string describe(const Advice& a) {
    const std::string id = std::to_string(a.camera), partner = std::to_string(a.partner);
    const std::string figures =
        format("±%.2f° / %.0f mm at 2σ", a.rotationDeg, a.positionMm) +
        format(", %.1f° / %.0f mm needed", a.neededDeg, a.neededMm);
    switch (a.kind) {
        case AdviceKind::PlacedAnew:
            return "It moved during the calibration: its frames from before were dropped and it is being placed "
                   "anew. Keep walking where it and a neighbour both see you.";
        case AdviceKind::NotSeenTogether:
            return "Not yet seen together with another camera: walk where it and a neighbour both see you.";
        case AdviceKind::KeepWalkingTogether:
            return "Keep walking where " + id + " and " + partner + " both see you (" + std::to_string(a.sharedFrames) +
                   " of " + std::to_string(a.neededFrames) + " frames).";
        case AdviceKind::FixAndRestart:
            return "It seems to have moved during the calibration" +
                   (a.apartKnown ? format(" (the first and second half of the walk put it %.1f° and %.0f mm apart)",
                                          a.apartDeg, a.apartMm)
                                 : std::string()) +
                   ": fix it in place and restart the calibration.";
        case AdviceKind::UncertaintyUnknown:
            return "Its uncertainty is not known yet: keep walking where " + id + " and " + partner + " both see you.";
        case AdviceKind::WellPlaced:
            return format("Well placed: ±%.2f° / %.0f mm at 2σ.", a.rotationDeg, a.positionMm);
        case AdviceKind::ModelLimit:
            return figures + format(". Walking longer will not bring it under %.0f mm: this calibration model cannot "
                                    "tell the trackers' pull toward the camera from where the camera stands.",
                                    a.floorMm, 0);
        case AdviceKind::CoverEdge:
            return figures + ". Cover the " + edgeName(a.edge) + " edge of " + id + "'s view, where " + partner +
                   " also sees you.";
        case AdviceKind::WalkNearAndFar:
            return figures + ". Walk where " + id + " and " + partner + " both see you, near and far, facing both.";
    }
    return std::string();
}

namespace {

CameraAssessment assessed(CameraReadiness readiness, const Advice& facts) { return {readiness, facts, describe(facts)}; }

}  // namespace

CameraAssessment assessCamera(const CameraCalibrationReport* camera, const CalibrationReport& report,
                              const ReadinessThresholds& t) {
    Advice a;
    a.camera = camera ? camera->camera : 0;
    if (camera && camera->reseedingAfterMove) {
        a.kind = AdviceKind::PlacedAnew;
        return assessed(CameraReadiness::Moved, a);
    }
    if (!camera || camera->residualBlocks == 0 || camera->framesSharedWith.empty())
        return assessed(CameraReadiness::NoData, a);
    a.partner = neighbour(*camera, true);
    a.sharedFrames = mostSharedFrames(*camera);
    a.neededFrames = t.minimumSharedFrames;
    if (!report.usable || a.sharedFrames < t.minimumSharedFrames) {
        a.kind = AdviceKind::KeepWalkingTogether;
        return assessed(CameraReadiness::NeedsFrames, a);
    }
    const CameraUncertainty& u = camera->uncertainty;
    if (hasMoved(*camera, report, t)) {
        a.kind = AdviceKind::FixAndRestart;
        a.apartKnown = std::isfinite(u.halvesApartDeg) && std::isfinite(u.halvesApartMm);
        a.apartDeg = u.halvesApartDeg;
        a.apartMm = u.halvesApartMm;
        return assessed(CameraReadiness::Moved, a);
    }
    if (!std::isfinite(u.rotationSigmaDeg) || !std::isfinite(u.positionSigmaMm)) {
        a.kind = AdviceKind::UncertaintyUnknown;
        return assessed(CameraReadiness::Uncertain, a);
    }

    const double rotation = 2.0 * u.rotationSigmaDeg, position = 2.0 * u.positionSigmaMm;
    a.rotationDeg = roundedUp(rotation, 100.0);
    a.positionMm = roundedUp(position, 1.0);
    a.neededDeg = t.maximumRotationDeg;
    a.neededMm = t.maximumPositionMm;
    if (rotation <= t.maximumRotationDeg && position <= t.maximumPositionMm) {
        a.kind = AdviceKind::WellPlaced;
        return assessed(CameraReadiness::Good, a);
    }
    if (2.0 * u.trackerBiasMm > t.maximumPositionMm) {
        a.kind = AdviceKind::ModelLimit;
        a.floorMm = 2.0 * u.trackerBiasMm;
    } else if (thinSide(u.coverage, t.minimumSideShare, a.edge)) {
        a.kind = AdviceKind::CoverEdge;
    } else {
        a.kind = AdviceKind::WalkNearAndFar;
        a.partner = neighbour(*camera, false);
    }
    return assessed(CameraReadiness::Uncertain, a);
}
