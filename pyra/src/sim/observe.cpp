// What a simulated stereo camera reports: the people in its field of view and depth range,
// with depth noise growing with distance squared, pixel noise, a near-surface bias,
// dropped keypoints, rare left/right swaps and the covariance of the noise it applied.
#include <algorithm>
#include <cmath>
#include <limits>
#include <string>

#include "lum/covariance.hpp"
#include "pyra_sim/scene.hpp"
#include "sim/hash_random.hpp"
#include "sim/joint_pull.hpp"
#include "sim/people.hpp"
#include "sim/tracker_artefacts.hpp"

namespace pyra_sim {

namespace {

constexpr double kDegToRad = 3.14159265358979323846 / 180.0;

// The six covariance terms (xx, xy, xz, yy, yz, zz) of a 3x3 symmetric matrix.
std::array<float, 6> upperTriangle(const float c[3][3]) {
    return {c[0][0], c[0][1], c[0][2], c[1][1], c[1][2], c[2][2]};
}

struct OutputFrame {
    lum::Matrix3f axes;  // camera frame (coordinate system 2) to the requested system
    float scale = 1.f;   // metres to the requested unit

    lum::Vector3f point(const lum::Vector3f& p) const { return axes * p * scale; }

    std::array<float, 6> covariance(const float c[3][3]) const {
        return lum::transformCovariance(axes, scale, upperTriangle(c));
    }
};

// The body's facing in the camera frame, from its hips (x to the person's right, y up,
// z forward); false when the layout has no hips to tell.
bool facingOf(const std::vector<lum::Vector3f>& local, lum::BODY_FORMAT format, const lum::Vector3f& up,
              lum::Vector3f& forward) {
    const std::vector<int>& joints = layoutJoints(format);
    int left = -1, right = -1;
    for (size_t i = 0; i < joints.size(); ++i) {
        if (joints[i] == L_HIP) left = int(i);
        if (joints[i] == R_HIP) right = int(i);
    }
    if (left < 0 || right < 0) return false;
    lum::Vector3f across = local[size_t(right)] - local[size_t(left)];
    across = across - up * lum::Vector3f::dot(across, up);
    forward = lum::Vector3f::cross(up, across);
    const float norm = forward.norm();
    if (norm < 1e-6f) return false;
    forward = forward / norm;
    return true;
}

// Cosine of the angle between the horizontal part of the ray to `p` and the facing.
float cosineToFacing(const lum::Vector3f& p, const lum::Vector3f& up, const lum::Vector3f& forward) {
    lum::Vector3f flat = p - up * lum::Vector3f::dot(p, up);
    const float norm = flat.norm();
    return norm < 1e-6f ? 0.f : lum::Vector3f::dot(flat, forward) / norm;
}

}  // namespace

float depthSigma(const NoiseSettings& noise, float depth, lum::DEPTH_MODE mode) {
    float factor = 2.5f;
    if (mode == lum::DEPTH_MODE::NEURAL) factor = 0.7f;
    else if (mode == lum::DEPTH_MODE::ULTRA) factor = 1.f;
    else if (mode == lum::DEPTH_MODE::QUALITY) factor = 1.5f;
    float ratio = depth / 3.f;
    return noise.depthSigmaAt3m * ratio * ratio * factor;
}

lum::Bodies observe(const Scene& scene, const CameraSettings& camera, uint64_t timestampNs,
                    const ObservationOptions& options, std::vector<ObservedTruth>* truth) {
    lum::Bodies out;
    out.timestamp = lum::Timestamp(timestampNs);
    out.is_new = true;
    out.is_tracked = true;
    out.body_format = camera.bodyFormat;
    if (truth) truth->clear();

    OutputFrame frame;
    frame.axes = lum::getCoordinateTransformConversion3f(lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP,
                                                         options.coordinateSystem);
    frame.scale = lum::getUnitScale(lum::UNIT::METER, options.unit);
    const lum::Transform roomToCamera = lum::Transform::inverse(camera.pose);
    const float tanH = float(std::tan(0.5 * camera.horizontalFovDeg * kDegToRad));
    const float tanV = float(std::tan(0.5 * camera.verticalFovDeg * kDegToRad));
    const NoiseSettings& noise = camera.noise;
    const std::vector<int>& mirror = layoutMirror(camera.bodyFormat);
    const JointPull pull(camera.bodyFormat, noise.pullByView);
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const lum::Vector3f up = roomToCamera * lum::Vector3f(0.f, 1.f, 0.f) - roomToCamera * lum::Vector3f();
    const TrackerSettings& tracker = camera.tracker;

    const std::vector<TrueBody> people = peopleAt(scene, timestampNs, camera.bodyFormat);
    std::vector<std::vector<lum::Vector3f>> locals;
    for (const TrueBody& person : people) {
        std::vector<lum::Vector3f> local;
        for (const lum::Vector3f& p : person.keypoints) local.push_back(roomToCamera * p);
        locals.push_back(std::move(local));
    }
    std::vector<std::vector<float>> hiders;
    if (tracker.occlusion && people.size() > 1) hiders = hidingDepths(locals, up);

    for (size_t index = 0; index < people.size(); ++index) {
        const TrueBody& person = people[index];
        HashRandom rng(hashKey({scene.seed, camera.serial, timestampNs, uint64_t(person.id), 0x4f4253ULL}));
        HashRandom hiding(hashKey({scene.seed, camera.serial, timestampNs, uint64_t(person.id), 0x48494445ULL}));
        const size_t n = person.keypoints.size();
        const std::vector<lum::Vector3f>& local = locals[index];
        std::vector<bool> inView(n);
        std::vector<float> hiddenAt(n, nan);  // a hidden keypoint reported at its hider's depth
        size_t visible = 0;
        for (size_t i = 0; i < n; ++i) {
            float depth = -local[i].z;
            inView[i] = depth >= camera.minDepth && depth <= camera.maxDepth &&
                        std::fabs(local[i].x) <= tanH * depth && std::fabs(local[i].y) <= tanV * depth;
            if (inView[i] && !hiders.empty() && !std::isnan(hiders[index][i])) {
                // The tracker either loses a hidden joint or puts it on the surface in front.
                if (hiding.chance(tracker.occlusionLeak)) hiddenAt[i] = hiders[index][i];
                else inView[i] = false;
            }
            visible += inView[i];
        }
        // A tracker needs most of a person in view before it reports anyone.
        if (visible * 2 < n) continue;
        lum::Vector3f forward;
        const bool facing = facingOf(local, camera.bodyFormat, up, forward);

        lum::BodyData body;
        // Each camera's tracker numbers people its own way; only the truth knows who is who.
        body.id = trackerId(scene, camera, person.id, timestampNs);
        body.unique_object_id = std::to_string(body.id);
        body.tracking_state = lum::OBJECT_TRACKING_STATE::OK;
        body.keypoint.assign(n, lum::Vector3f(nan, nan, nan));
        body.keypoint_confidence.assign(n, 0.f);
        body.keypoint_covariances.assign(n, std::array<float, 6>{});
        std::vector<lum::Vector3f> seen(n, lum::Vector3f(nan, nan, nan));  // camera frame
        int reported = 0;
        float meanDepth = 0.f;
        for (size_t i = 0; i < n; ++i) {
            if (!inView[i] || rng.chance(noise.missingRate)) continue;
            lum::Vector3f p = local[i];
            float depth = -p.z;
            float sd = depthSigma(noise, depth, options.depthMode);
            float sl = noise.lateralSigmaPx / noise.focalPx * depth;
            const float towardCamera =
                noise.biasTowardCamera * pull.factor(i, facing ? cosineToFacing(p, up, forward) : 0.f);
            lum::Vector3f q = p - p * (towardCamera / p.norm());
            // Stereo depth finds the surface in front of a hidden joint.
            if (!std::isnan(hiddenAt[i])) q = p * (hiddenAt[i] / depth);
            float biasedDepth = -q.z;
            q = q * ((biasedDepth + sd * float(rng.normal())) / biasedDepth);
            q.x += sl * float(rng.normal());
            q.y += sl * float(rng.normal());

            // Depth noise runs along the viewing ray, pixel noise across it.
            lum::Vector3f ray = p / depth;
            float c[3][3];
            for (int r = 0; r < 3; ++r)
                for (int k = 0; k < 3; ++k) c[r][k] = sd * sd * ray[r] * ray[k];
            c[0][0] += sl * sl;
            c[1][1] += sl * sl;

            seen[i] = q;
            body.keypoint_covariances[i] = frame.covariance(c);
            body.keypoint_confidence[i] = std::clamp(95.f - 4.f * depth + 2.f * float(rng.normal()), 5.f, 99.f);
            meanDepth += depth;
            ++reported;
        }
        if (reported == 0) continue;
        // The tracker's stated covariance knows nothing of its own spikes.
        addJitterSpike(scene, camera, person.id, timestampNs, seen);
        lum::Vector3f sum;
        for (size_t i = 0; i < n; ++i) {
            if (std::isnan(seen[i].x)) continue;
            body.keypoint[i] = frame.point(seen[i]);
            sum += seen[i];
        }
        meanDepth /= float(reported);
        float share = float(reported) / float(n);
        body.confidence = std::clamp(40.f + 55.f * share - 3.f * std::max(0.f, meanDepth - 5.f) +
                                         3.f * float(rng.normal()), 0.f, 100.f);
        if (body.confidence < options.confidenceThreshold) continue;

        bool swapped = rng.chance(noise.swapRate);
        if (swapped) {
            std::vector<lum::Vector3f> kp = body.keypoint;
            std::vector<float> kc = body.keypoint_confidence;
            std::vector<std::array<float, 6>> cov = body.keypoint_covariances;
            for (size_t i = 0; i < n; ++i) {
                body.keypoint[i] = kp[size_t(mirror[i])];
                body.keypoint_confidence[i] = kc[size_t(mirror[i])];
                body.keypoint_covariances[i] = cov[size_t(mirror[i])];
            }
        }
        body.position = frame.point(sum / float(reported));
        body.dimensions = lum::Vector3f(0.5f, person.height, 0.3f) * frame.scale;

        if (truth) {
            ObservedTruth t;
            t.id = person.id;
            t.swapped = swapped;
            for (const lum::Vector3f& p : local) t.keypoints.push_back(frame.point(p));
            truth->push_back(std::move(t));
        }
        out.body_list.push_back(std::move(body));
    }
    return out;
}

}  // namespace pyra_sim
