// Tracker artefacts of the simulated cameras. Nothing is remembered between frames: an id
// is found by looking back for the last switch, a burst of hidden keypoints follows from
// the people's own movement in front of each other.
#include "sim/tracker_artefacts.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include "sim/hash_random.hpp"

namespace pyra_sim {

namespace {

// A person's silhouette: a vertical capsule through their centre, as wide as shoulders.
constexpr float kHalfWidth = 0.22f;
constexpr float kFrontOfCentre = 0.12f;  // the silhouette's surface lies this far before its centre
constexpr double kSwitchWindowS = 1.0;   // at most one id switch a second

struct Silhouette {
    float x0 = 0, y0 = 0, x1 = 0, y1 = 0;  // image axis, normalised coordinates (x / depth, y / depth)
    float halfWidth = 0;                   // normalised
    float depth = 0;                       // of the surface facing the camera
    bool valid = false;
};

Silhouette silhouetteOf(const std::vector<lum::Vector3f>& keypoints, const lum::Vector3f& up) {
    Silhouette s;
    lum::Vector3f centre;
    int n = 0;
    float top = -1e9f, bottom = 1e9f;
    for (const lum::Vector3f& p : keypoints) {
        if (std::isnan(p.x)) continue;
        centre += p;
        ++n;
    }
    if (n == 0) return s;
    centre = centre / float(n);
    for (const lum::Vector3f& p : keypoints) {
        if (std::isnan(p.x)) continue;
        const float h = lum::Vector3f::dot(p - centre, up);
        top = std::max(top, h);
        bottom = std::min(bottom, h);
    }
    const lum::Vector3f a = centre + up * (top + 0.08f);  // the crown is above the highest joint
    const lum::Vector3f b = centre + up * bottom;
    const float depth = -centre.z;
    if (depth < 0.2f || -a.z < 0.1f || -b.z < 0.1f) return s;
    s.x0 = a.x / -a.z;
    s.y0 = a.y / -a.z;
    s.x1 = b.x / -b.z;
    s.y1 = b.y / -b.z;
    s.halfWidth = kHalfWidth / depth;
    s.depth = depth - kFrontOfCentre;
    s.valid = true;
    return s;
}

bool covers(const Silhouette& s, float x, float y) {
    const float dx = s.x1 - s.x0, dy = s.y1 - s.y0;
    const float length2 = dx * dx + dy * dy;
    float t = length2 > 0 ? ((x - s.x0) * dx + (y - s.y0) * dy) / length2 : 0.f;
    t = std::clamp(t, 0.f, 1.f);
    const float ex = x - (s.x0 + t * dx), ey = y - (s.y0 + t * dy);
    return ex * ex + ey * ey <= s.halfWidth * s.halfWidth;
}

}  // namespace

std::vector<std::vector<float>> hidingDepths(const std::vector<std::vector<lum::Vector3f>>& people,
                                             const lum::Vector3f& up) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    std::vector<Silhouette> silhouettes;
    for (const auto& keypoints : people) silhouettes.push_back(silhouetteOf(keypoints, up));
    std::vector<std::vector<float>> hidden;
    for (size_t p = 0; p < people.size(); ++p) {
        hidden.emplace_back(people[p].size(), nan);
        for (size_t i = 0; i < people[p].size(); ++i) {
            const lum::Vector3f& k = people[p][i];
            const float depth = -k.z;
            if (std::isnan(k.x) || depth <= 0.f) continue;
            for (size_t o = 0; o < people.size(); ++o) {
                const Silhouette& s = silhouettes[o];
                if (o == p || !s.valid || s.depth + kFrontOfCentre >= depth - 0.05f) continue;
                if (!covers(s, k.x / depth, k.y / depth)) continue;
                if (std::isnan(hidden[p][i]) || s.depth < hidden[p][i]) hidden[p][i] = s.depth;
            }
        }
    }
    return hidden;
}

int trackerId(const Scene& scene, const CameraSettings& camera, int person, uint64_t trueNs) {
    int64_t epoch = -1;
    const double interval = camera.tracker.idSwitchIntervalS;
    if (interval > 0) {
        // The last switch at or before now; a switch older than eight mean intervals is
        // as good as none (one chance in three thousand).
        const int64_t now = int64_t(std::floor(double(trueNs) * 1e-9 / kSwitchWindowS));
        const int64_t lookBack = int64_t(std::ceil(8.0 * interval / kSwitchWindowS));
        const double chance = std::min(1.0, kSwitchWindowS / interval);
        for (int64_t w = now; w > now - lookBack; --w) {
            if (HashRandom(hashKey({scene.seed, camera.serial, uint64_t(person), uint64_t(w), 0x49445357ULL}))
                    .chance(chance)) {
                epoch = w;
                break;
            }
        }
    }
    const uint64_t key = epoch < 0 ? hashKey({camera.serial, uint64_t(person), 0x5452414bULL})
                                   : hashKey({camera.serial, uint64_t(person), uint64_t(epoch), 0x5452414bULL});
    return int(key % (1u << 30));
}

void addJitterSpike(const Scene& scene, const CameraSettings& camera, int person, uint64_t trueNs,
                    std::vector<lum::Vector3f>& keypoints) {
    const TrackerSettings& t = camera.tracker;
    if (t.spikeRate <= 0 || t.spikeMetres <= 0) return;
    HashRandom rng(hashKey({scene.seed, camera.serial, trueNs, uint64_t(person), 0x53504b45ULL}));
    if (!rng.chance(t.spikeRate)) return;
    if (rng.chance(0.5)) {
        // The whole body jumps along the rays, as when the depth of a frame goes wrong.
        const float jump = t.spikeMetres * float(rng.uniform(0.5, 1.5)) * (rng.chance(0.5) ? 1.f : -1.f);
        for (lum::Vector3f& p : keypoints)
            if (!std::isnan(p.x)) p = p + p * (jump / p.norm());
        return;
    }
    // A few joints are put somewhere else, as when a limb is fitted to the wrong blob.
    for (lum::Vector3f& p : keypoints) {
        if (std::isnan(p.x) || !rng.chance(0.25)) continue;
        lum::Vector3f direction(float(rng.normal()), float(rng.normal()), float(rng.normal()));
        const float norm = direction.norm();
        if (norm < 1e-6f) continue;
        p = p + direction * (t.spikeMetres * float(rng.uniform(0.5, 1.5)) / norm);
    }
}

bool frameDropped(const Scene& scene, const CameraSettings& camera, int64_t frame) {
    const TrackerSettings& t = camera.tracker;
    if (t.grabFps > 0 && t.grabFps < camera.fps) {
        // A slow sender takes the frame its grab falls on and misses the ones in between.
        const double ratio = double(t.grabFps) / double(camera.fps);
        if (std::floor(double(frame) * ratio) == std::floor(double(frame - 1) * ratio)) return true;
    }
    return t.dropRate > 0 &&
           HashRandom(hashKey({scene.seed, camera.serial, uint64_t(frame), 0x44524f50ULL})).chance(t.dropRate);
}

}  // namespace pyra_sim
