// Sliding-window rigid alignment of each camera's joints onto the other cameras' joints,
// compared with the alignment the camera settled at.
#include "calibration/drift_monitor.hpp"

#include <algorithm>
#include <cmath>

#include <Eigen/Geometry>

namespace {

constexpr int kMinSharedJoints = 6;

bool finite(const Eigen::Vector3d& p) { return p.allFinite(); }

// Mean distance of the joints two bodies both report; infinite when they share too few (or
// come in two layouts, where one index names two joints).
double apart(const std::vector<Eigen::Vector3d>& a, const std::vector<Eigen::Vector3d>& b) {
    if (a.size() != b.size()) return INFINITY;
    double sum = 0;
    int shared = 0;
    for (size_t k = 0; k < a.size(); ++k) {
        if (!finite(a[k]) || !finite(b[k])) continue;
        sum += (a[k] - b[k]).norm();
        ++shared;
    }
    return shared >= kMinSharedJoints ? sum / shared : INFINITY;
}

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

std::vector<DriftWarning> DriftMonitor::addFrame(uint64_t timestampNs, const RoomBodies& roomBodies) {
    std::vector<DriftWarning> warnings;
    if (!window_.empty() && timestampNs <= window_.back().timestampNs) return warnings;  // stale or repeated
    if (firstNs_ == 0) {
        firstNs_ = timestampNs;
        nextStepNs_ = timestampNs + uint64_t(settings_.settleSeconds * 1e9);
    }
    Frame frame{timestampNs, peopleOf(roomBodies)};
    if (!frame.people.empty()) window_.push_back(std::move(frame));
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

std::vector<DriftMonitor::Person> DriftMonitor::peopleOf(const RoomBodies& roomBodies) const {
    struct Seen {
        int camera;
        std::vector<Eigen::Vector3d> joints;
    };
    std::vector<Seen> seen;
    for (const auto& [camera, bodies] : roomBodies)
        for (const lum::BodyData& body : bodies) {
            Seen s{camera, {}};
            for (const lum::Vector3f& p : body.keypoint) s.joints.emplace_back(p.x, p.y, p.z);
            seen.push_back(std::move(s));
        }
    const size_t n = seen.size();
    std::vector<double> distance(n * n, INFINITY);
    for (size_t i = 0; i < n; ++i)
        for (size_t j = i + 1; j < n; ++j)
            if (seen[i].camera != seen[j].camera)
                distance[i * n + j] = distance[j * n + i] = apart(seen[i].joints, seen[j].joints);

    // Two bodies are one person when they lie close and every other body of either camera
    // is clearly further from the other one: two people side by side pair with nobody.
    std::vector<size_t> parent(n);
    for (size_t i = 0; i < n; ++i) parent[i] = i;
    const auto root = [&parent](size_t i) {
        while (parent[i] != i) i = parent[i] = parent[parent[i]];
        return i;
    };
    for (size_t i = 0; i < n; ++i)
        for (size_t j = i + 1; j < n; ++j) {
            const double d = distance[i * n + j];
            if (!(d < settings_.pairGateM)) continue;
            const double clear = std::max(d + settings_.pairMarginM, 2 * d);
            bool unambiguous = true;
            for (size_t k = 0; k < n && unambiguous; ++k) {
                if (k != j && seen[k].camera == seen[j].camera) unambiguous = distance[i * n + k] > clear;
                if (unambiguous && k != i && seen[k].camera == seen[i].camera) unambiguous = distance[k * n + j] > clear;
            }
            if (unambiguous) parent[root(i)] = root(j);
        }

    std::map<size_t, Person> groups;
    std::map<size_t, bool> doubtful;
    for (size_t i = 0; i < n; ++i) {
        const size_t r = root(i);
        // Two bodies of one camera in one person: a chain of pairings went wrong somewhere.
        if (groups[r].count(seen[i].camera)) doubtful[r] = true;
        groups[r][seen[i].camera] = seen[i].joints;
    }
    std::vector<Person> people;
    for (auto& [r, person] : groups)
        if (!doubtful[r] && person.size() >= 2) people.push_back(std::move(person));
    return people;
}

std::optional<std::pair<Eigen::Isometry3d, Eigen::Vector3d>> DriftMonitor::alignment(int camera) const {
    std::vector<Eigen::Vector3d> from, to;
    for (const Frame& frame : window_)
        for (const Person& person : frame.people) {
            auto own = person.find(camera);
            if (own == person.end()) continue;
            for (const auto& [other, joints] : person) {
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
        for (const Person& person : frame.people)
            for (const auto& [camera, joints] : person) cameras[camera] = true;

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
