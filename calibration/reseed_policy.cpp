// The re-seeding decision: a Moved verdict at once, a residual outlier after it persists;
// placement by the consensus again ends it.
#include "calibration/reseed_policy.hpp"

#include <algorithm>

#include "calibration/calibration_verdict.hpp"

namespace calib {

namespace {

bool placedIn(const CalibrationReport& report, const CameraCalibrationReport& camera) {
    return camera.residualBlocks > 0 && !camera.reseedingAfterMove && !report.unplaced.count(camera.camera);
}

}  // namespace

std::vector<int> ReseedPolicy::review(const CalibrationReport& report) {
    if (!report.usable) return {};
    std::set<int> justPlaced;
    for (const CameraCalibrationReport& camera : report.cameras) {
        if (!placedIn(report, camera) || !awaiting_.count(camera.camera)) continue;
        awaiting_.erase(camera.camera);
        moved_.erase(camera.camera);
        justPlaced.insert(camera.camera);
    }

    int moved = 0, outlier = 0;
    double worst = 0;
    for (const CameraCalibrationReport& camera : report.cameras) {
        if (!placedIn(report, camera) || justPlaced.count(camera.camera)) continue;
        if (!moved && assessCamera(&camera, report).readiness == CameraReadiness::Moved) moved = camera.camera;
        std::vector<double> others;
        for (const CameraCalibrationReport& other : report.cameras)
            if (other.camera != camera.camera && placedIn(report, other)) others.push_back(other.rmsAfterMm);
        if (others.size() < 2) continue;  // with one peer, which of the two is off cannot be told
        std::nth_element(others.begin(), others.begin() + long(others.size() / 2), others.end());
        const double median = others[others.size() / 2];
        const bool above = camera.rmsAfterMm > options_.residualRatio * median &&
                           camera.rmsAfterMm > options_.minResidualMm;
        above_[camera.camera] = above ? above_[camera.camera] + 1 : 0;
        if (above_[camera.camera] >= options_.solvesAbove && camera.rmsAfterMm > worst) {
            outlier = camera.camera;
            worst = camera.rmsAfterMm;
        }
    }
    const int chosen = moved ? moved : outlier;
    if (!chosen) return {};
    awaiting_.insert(chosen);
    if (moved) moved_.insert(chosen);
    above_.erase(chosen);
    return {chosen};
}

std::vector<int> ReseedPolicy::reviewStarved(const std::set<int>& starved) {
    for (int camera : starved) {
        if (awaiting_.count(camera)) continue;
        awaiting_.insert(camera);
        above_.erase(camera);
        return {camera};
    }
    return {};
}

void ReseedPolicy::annotate(CalibrationReport& report) const {
    report.reseeding.assign(awaiting_.begin(), awaiting_.end());
    for (int camera : moved_) {
        auto entry = std::find_if(report.cameras.begin(), report.cameras.end(),
                                  [camera](const CameraCalibrationReport& c) { return c.camera == camera; });
        if (entry == report.cameras.end()) {
            CameraCalibrationReport missing;
            missing.camera = camera;
            entry = report.cameras.insert(
                std::upper_bound(report.cameras.begin(), report.cameras.end(), missing,
                                 [](const CameraCalibrationReport& a, const CameraCalibrationReport& b) {
                                     return a.camera < b.camera;
                                 }),
                missing);
        }
        entry->reseedingAfterMove = true;
        const auto waiting = report.unplaced.find(camera);
        report.unplaced[camera] = "it moved during the calibration and is being placed anew" +
                                  (waiting == report.unplaced.end() ? std::string() : "; " + waiting->second);
    }
}

}  // namespace calib
