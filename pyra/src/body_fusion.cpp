// Association and averaging of per-camera bodies. Each keypoint is weighted by the inverse
// of its covariance trace, so a near camera counts more than a far one.
#include "body_fusion.hpp"

#include <cmath>
#include <limits>

namespace pyra {

namespace {

bool valid(const lum::Vector3f& p) { return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z); }

bool centreOf(const lum::BodyData& body, lum::Vector3f& centre) {
    lum::Vector3f sum;
    int n = 0;
    for (const lum::Vector3f& p : body.keypoint)
        if (valid(p)) {
            sum += p;
            ++n;
        }
    if (n == 0) return false;
    centre = sum / float(n);
    return true;
}

struct Cluster {
    lum::Vector3f centre;
    std::vector<const lum::BodyData*> members;
    std::vector<size_t> views;
};

}  // namespace

void transformBodies(lum::Bodies& bodies, const lum::Matrix3f& axes, float scale, const lum::Vector3f& offset) {
    for (lum::BodyData& b : bodies.body_list) {
        for (lum::Vector3f& p : b.keypoint) p = axes * p * scale + offset;
        for (auto& cov : b.keypoint_covariances) cov = lum::transformCovariance(axes, scale, cov);
        b.position = axes * b.position * scale + offset;
        b.position_covariance = lum::transformCovariance(axes, scale, b.position_covariance);
        b.velocity = axes * b.velocity * scale;
        b.dimensions = b.dimensions * scale;
    }
}

std::vector<FusedBody> BodyFuser::fuse(const std::vector<const lum::Bodies*>& views, float sameDistance) {
    std::vector<Cluster> clusters;
    for (size_t v = 0; v < views.size(); ++v) {
        for (const lum::BodyData& body : views[v]->body_list) {
            lum::Vector3f centre;
            if (!centreOf(body, centre)) continue;
            Cluster* best = nullptr;
            float bestDistance = sameDistance;
            for (Cluster& c : clusters) {
                bool seen = false;
                for (size_t w : c.views) seen = seen || w == v;
                float d = (c.centre - centre).norm();
                if (!seen && d < bestDistance && c.members[0]->keypoint.size() == body.keypoint.size()) {
                    best = &c;
                    bestDistance = d;
                }
            }
            if (!best) {
                clusters.push_back(Cluster{centre, {}, {}});
                best = &clusters.back();
            } else {
                float n = float(best->members.size());
                best->centre = (best->centre * n + centre) / (n + 1.f);
            }
            best->members.push_back(&body);
            best->views.push_back(v);
        }
    }

    std::vector<FusedBody> fused;
    std::vector<Track> tracks;
    for (const Cluster& c : clusters) {
        FusedBody f;
        f.cameras = int(c.members.size());
        lum::BodyData& out = f.body;
        size_t n = c.members[0]->keypoint.size();
        const float nan = std::numeric_limits<float>::quiet_NaN();
        out.keypoint.assign(n, lum::Vector3f(nan, nan, nan));
        out.keypoint_confidence.assign(n, 0.f);
        out.keypoint_covariances.assign(n, std::array<float, 6>{});
        for (size_t k = 0; k < n; ++k) {
            lum::Vector3f sum;
            float weights = 0.f, confidence = 0.f;
            for (const lum::BodyData* m : c.members) {
                if (!valid(m->keypoint[k])) continue;
                float trace = 0.f;
                if (k < m->keypoint_covariances.size()) {
                    const auto& cov = m->keypoint_covariances[k];
                    trace = cov[0] + cov[3] + cov[5];
                }
                float w = trace > 0.f ? 1.f / trace : 1.f;
                sum += m->keypoint[k] * w;
                weights += w;
                if (k < m->keypoint_confidence.size()) confidence = std::max(confidence, m->keypoint_confidence[k]);
            }
            if (weights <= 0.f) continue;
            out.keypoint[k] = sum / weights;
            out.keypoint_confidence[k] = confidence;
            float variance = 1.f / weights / 3.f;  // the weighted mean's variance per axis
            out.keypoint_covariances[k] = {variance, 0.f, 0.f, variance, 0.f, variance};
        }
        for (const lum::BodyData* m : c.members) {
            out.confidence = std::max(out.confidence, m->confidence);
            out.dimensions = m->dimensions;
        }
        out.position = c.centre;
        out.tracking_state = lum::OBJECT_TRACKING_STATE::OK;

        // Keep the id of the nearest person of the previous set, if any is near enough.
        int id = -1;
        float nearest = sameDistance;
        for (const Track& t : tracks_) {
            bool taken = false;
            for (const Track& u : tracks) taken = taken || u.id == t.id;
            float d = (t.centre - c.centre).norm();
            if (!taken && d < nearest) {
                nearest = d;
                id = t.id;
            }
        }
        if (id < 0) id = nextId_++;
        out.id = id;
        out.unique_object_id = std::to_string(id);
        tracks.push_back(Track{id, c.centre});
        fused.push_back(std::move(f));
    }
    tracks_ = std::move(tracks);
    return fused;
}

}  // namespace pyra
