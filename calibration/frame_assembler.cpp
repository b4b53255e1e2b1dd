// Per-camera, per-track body histories and their interpolation to a common instant.
// Only interpolation: walking limbs accelerate too much for extrapolation to be safe.
#include "calibration/frame_assembler.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace calib {

std::vector<CameraBodies> singlePersonAssociation(const BodiesAtInstant& bodies) {
    CameraBodies frame;
    for (const auto& [camera, seen] : bodies)
        if (seen.size() == 1) frame[camera] = seen.front();
    if (frame.size() < 2) return {};
    return {frame};
}

lum::BodyData interpolateBody(const lum::BodyData& a, const lum::BodyData& b, double fraction) {
    const float w = float(std::clamp(fraction, 0.0, 1.0));
    lum::BodyData out = w < 0.5f ? a : b;
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const size_t n = std::min(a.keypoint.size(), b.keypoint.size());
    out.keypoint.resize(n);
    for (size_t k = 0; k < n; ++k) {
        const lum::Vector3f& p = a.keypoint[k];
        const lum::Vector3f& q = b.keypoint[k];
        const bool known = std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z) && std::isfinite(q.x) &&
                           std::isfinite(q.y) && std::isfinite(q.z);
        out.keypoint[k] = known ? p * (1.f - w) + q * w : lum::Vector3f(nan, nan, nan);
    }
    if (a.keypoint_covariances.size() >= n && b.keypoint_covariances.size() >= n) {
        // A convex blend of two covariances is still a covariance.
        out.keypoint_covariances.resize(n);
        for (size_t k = 0; k < n; ++k)
            for (int i = 0; i < 6; ++i)
                out.keypoint_covariances[k][i] =
                    a.keypoint_covariances[k][i] * (1.f - w) + b.keypoint_covariances[k][i] * w;
    }
    out.position = a.position * (1.f - w) + b.position * w;
    return out;
}

FrameAssembler::FrameAssembler(Options options) : options_(options), association_(singlePersonAssociation) {}

void FrameAssembler::setAssociation(BodyAssociation association) {
    association_ = association ? std::move(association) : BodyAssociation(singlePersonAssociation);
}

void FrameAssembler::setClock(int camera, const ClockEstimate& clock) {
    CameraHistory& history = cameras_[camera];
    history.clockKnown = true;
    history.clock = clock;
}

uint64_t FrameAssembler::toCommon(const CameraHistory& history, uint64_t ns) const {
    if (!history.clockKnown) return ns;
    const int64_t common = int64_t(ns) - std::llround(history.clock.offsetAtS(ns) * 1e9);
    return uint64_t(std::max<int64_t>(1, common));
}

uint64_t FrameAssembler::toOwn(const CameraHistory& history, uint64_t commonNs) const {
    if (!history.clockKnown) return commonNs;
    const uint64_t guess = uint64_t(std::max<int64_t>(1, int64_t(commonNs) + std::llround(history.clock.offsetS * 1e9)));
    return uint64_t(std::max<int64_t>(1, int64_t(commonNs) + std::llround(history.clock.offsetAtS(guess) * 1e9)));
}

uint64_t FrameAssembler::roomNewestNs() const {
    uint64_t newest = 0;
    for (const auto& [camera, history] : cameras_)
        if (history.newestNs > 0) newest = std::max(newest, toCommon(history, history.newestNs));
    return newest;
}

void FrameAssembler::addBodies(int camera, const lum::Bodies& bodies) {
    CameraHistory& history = cameras_[camera];
    const uint64_t ns = bodies.timestamp.getNanoseconds();
    if (ns <= history.newestNs) {
        // Far older than this camera's last capture: its host clock was set back. Waiting
        // for it to catch up would stall the collection for as long as the step.
        if (history.newestNs - ns <= uint64_t(options_.historyNs)) return;
        const bool known = history.clockKnown;
        const ClockEstimate clock = history.clock;
        history = CameraHistory();
        history.clockKnown = known;
        history.clock = clock;
    }
    history.newestNs = ns;
    for (const lum::BodyData& body : bodies.body_list) history.tracks[body.id].push_back({ns, body});
    history.roomNewestWhenSeenNs = roomNewestNs();
    // What the next frames may still need: the history before the common instant, which a
    // camera whose clock is known to run behind can hold seconds back.
    const uint64_t instant = commonInstant().getNanoseconds();
    const uint64_t needed = toOwn(history, instant > 0 ? std::min(instant, toCommon(history, ns)) : toCommon(history, ns));
    const uint64_t keepFrom = needed > uint64_t(options_.historyNs) ? needed - uint64_t(options_.historyNs) : 0;
    for (auto track = history.tracks.begin(); track != history.tracks.end();) {
        std::deque<Capture>& captures = track->second;
        // Keep one capture older than the window, so the window's start can still be reached.
        while (captures.size() > 1 && captures[1].ns <= keepFrom) captures.pop_front();
        if (captures.back().ns < keepFrom) track = history.tracks.erase(track);
        else ++track;
    }
}

std::vector<int> FrameAssembler::activeCameras() const {
    const int64_t newest = int64_t(roomNewestNs());
    std::vector<int> active;
    for (const auto& [camera, history] : cameras_) {
        if (history.newestNs == 0) continue;
        // A known clock places the camera's captures; only its silence can make it stale.
        const int64_t behind = history.clockKnown ? newest - int64_t(history.roomNewestWhenSeenNs)
                                                  : newest - int64_t(toCommon(history, history.newestNs));
        if (behind <= options_.maxLagNs) active.push_back(camera);
    }
    return active;
}

lum::Timestamp FrameAssembler::commonInstant() const {
    uint64_t instant = std::numeric_limits<uint64_t>::max();
    for (int camera : activeCameras()) {
        const CameraHistory& history = cameras_.at(camera);
        instant = std::min(instant, toCommon(history, history.newestNs));
    }
    return instant == std::numeric_limits<uint64_t>::max() ? lum::Timestamp(0) : lum::Timestamp(instant);
}

BodiesAtInstant FrameAssembler::bodiesAt(lum::Timestamp instant) const {
    BodiesAtInstant out;
    for (int camera : activeCameras()) {
        const CameraHistory& history = cameras_.at(camera);
        const uint64_t t = toOwn(history, instant.getNanoseconds());
        for (const auto& [id, captures] : history.tracks) {
            auto after = std::lower_bound(captures.begin(), captures.end(), t,
                                          [](const Capture& c, uint64_t ns) { return c.ns < ns; });
            if (after == captures.end()) continue;
            if (after->ns == t) {
                out[camera].push_back(after->body);
                continue;
            }
            if (after == captures.begin()) continue;
            const Capture& before = *std::prev(after);
            if (after->ns - before.ns > uint64_t(options_.maxGapNs)) continue;
            const double fraction = double(t - before.ns) / double(after->ns - before.ns);
            out[camera].push_back(interpolateBody(before.body, after->body, fraction));
        }
    }
    return out;
}

std::vector<CameraBodies> FrameAssembler::assemble() const {
    const lum::Timestamp instant = commonInstant();
    if (instant.getNanoseconds() == 0) return {};
    return association_(bodiesAt(instant));
}

void FrameAssembler::clear() {
    cameras_.clear();
}

}  // namespace calib
