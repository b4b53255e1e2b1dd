// Sliding-window rigid alignment of each camera's joints onto the other cameras' joints,
// compared with the alignment the camera settled at.
#include "calibration/drift_monitor.hpp"

#include <algorithm>
#include <cmath>

#include <Eigen/Geometry>

namespace {

constexpr int kMaxJoints = 30;

bool finite(const Eigen::Vector3d& p) { return p.allFinite(); }

}  // namespace

DriftMonitor::DriftMonitor(std::map<int, Eigen::Vector3d> cameraCentres, DriftSettings settings)
    : centres_(std::move(cameraCentres)), settings_(settings) {}

void DriftMonitor::reset() {
    window_.clear();
    firstNs_ = nextStepNs_ = 0;
    settled_.clear();
    latest_.clear();
    candidate_ = 0;
    candidateSinceNs_ = 0;
    warned_.clear();
}

std::vector<DriftWarning> DriftMonitor::addFrame(uint64_t timestampNs, const std::map<int, lum::BodyData>& roomBodies) {
    std::vector<DriftWarning> warnings;
    if (!window_.empty() && timestampNs <= window_.back().timestampNs) return warnings;  // stale or repeated
    if (firstNs_ == 0) {
        firstNs_ = timestampNs;
        nextStepNs_ = timestampNs + uint64_t(settings_.settleSeconds * 1e9);
    }
    Frame frame{timestampNs, {}};
    for (const auto& [camera, body] : roomBodies) {
        std::vector<Eigen::Vector3d>& joints = frame.joints[camera];
        const size_t n = std::min(body.keypoint.size(), size_t(kMaxJoints));
        for (size_t k = 0; k < n; ++k) joints.emplace_back(body.keypoint[k].x, body.keypoint[k].y, body.keypoint[k].z);
    }
    if (frame.joints.size() >= 2) window_.push_back(std::move(frame));
    const uint64_t span = uint64_t(settings_.windowSeconds * 1e9);
    if (timestampNs < nextStepNs_) return warnings;
    nextStepNs_ = timestampNs + uint64_t(settings_.stepSeconds * 1e9);
    // Until the room has settled the whole start is kept, so that what it settles at
    // is seen from as many places as possible.
    const bool settling = settled_.empty();
    auto forgetOld = [&] {
        while (!window_.empty() && window_.front().timestampNs + span < timestampNs) window_.pop_front();
    };
    if (!settling) forgetOld();
    evaluate(timestampNs, warnings);
    if (settling) forgetOld();
    return warnings;
}

std::optional<std::pair<Eigen::Isometry3d, Eigen::Vector3d>> DriftMonitor::alignment(int camera) const {
    std::vector<Eigen::Vector3d> from, to;
    for (const Frame& frame : window_) {
        auto own = frame.joints.find(camera);
        if (own == frame.joints.end()) continue;
        for (const auto& [other, joints] : frame.joints) {
            if (other == camera) continue;
            const size_t n = std::min(own->second.size(), joints.size());
            for (size_t k = 0; k < n; ++k) {
                if (!finite(own->second[k]) || !finite(joints[k])) continue;
                from.push_back(own->second[k]);
                to.push_back(joints[k]);
            }
        }
    }
    if (int(from.size()) < settings_.minimumJoints) return std::nullopt;
    Eigen::Matrix3Xd a(3, from.size()), b(3, to.size());
    for (size_t i = 0; i < from.size(); ++i) {
        a.col(Eigen::Index(i)) = from[i];
        b.col(Eigen::Index(i)) = to[i];
    }
    Eigen::Isometry3d result;
    result.matrix() = Eigen::umeyama(a, b, false);
    return std::make_pair(result, Eigen::Vector3d(a.rowwise().mean()));
}

void DriftMonitor::evaluate(uint64_t nowNs, std::vector<DriftWarning>& warnings) {
    std::map<int, bool> cameras;
    for (const Frame& frame : window_)
        for (const auto& [camera, joints] : frame.joints) cameras[camera] = true;

    int worst = 0;
    double worstScore = 0;
    for (const auto& [camera, seen] : cameras) {
        const auto now = alignment(camera);
        if (!now) continue;
        const auto& [motion, joints] = *now;
        auto settled = settled_.find(camera);
        if (settled == settled_.end()) {
            settled_[camera] = motion;
            continue;
        }
        // The change is applied where the joints were seen: seen from the joints, the
        // settled alignment maps them to `settled * joints` and the current one elsewhere.
        const Eigen::Isometry3d change = settled->second * motion.inverse();
        const Eigen::Vector3d at = centres_.count(camera) ? centres_.at(camera) : joints;
        DriftChange& latest = latest_[camera];
        latest.rotationDeg = Eigen::AngleAxisd(change.rotation()).angle() * 180.0 / M_PI;
        latest.shiftMm = (change * at - at).norm() * 1000.0;
        latest.jointShiftMm = (change * joints - joints).norm() * 1000.0;
        const double score = latest.jointShiftMm / settings_.warnJointShiftMm;
        if (score > worstScore) {
            worstScore = score;
            worst = camera;
        }
    }
    // Every camera that shares joints with a moved one drifts a little with it; only the
    // one that drifts most is named.
    if (worstScore <= 1.0 || worst != candidate_) {
        candidate_ = worstScore > 1.0 ? worst : 0;
        candidateSinceNs_ = nowNs;
        return;
    }
    if (double(nowNs - candidateSinceNs_) * 1e-9 < settings_.windowSeconds || warned_[worst]) return;
    warned_[worst] = true;
    warnings.push_back({worst, latest_[worst].rotationDeg, latest_[worst].jointShiftMm,
                        double(nowNs - firstNs_) * 1e-9});
}
