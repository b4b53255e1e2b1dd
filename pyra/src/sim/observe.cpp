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
#include "sim/people.hpp"

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

// How deep below the visible surface each joint lies, relative to the camera's `bias`:
// the trunk is thick, wrists and ankles are thin. Scaled so that the mean over a layout's
// keypoints is 1, which keeps `bias` the mean pull.
std::vector<float> biasFactors(lum::BODY_FORMAT format) {
    std::vector<float> factors;
    for (int joint : layoutJoints(format)) {
        float f = 1.f;
        if (joint <= SPINE_HIGH || joint == L_HIP || joint == R_HIP) f = 1.8f;
        else if (joint == NECK || joint == L_CLAVICLE || joint == R_CLAVICLE || joint == L_SHOULDER ||
                 joint == R_SHOULDER)
            f = 1.4f;
        else if (joint <= R_EAR) f = 1.0f;
        else if (joint == L_ELBOW || joint == R_ELBOW || joint == L_KNEE || joint == R_KNEE) f = 0.9f;
        else if (joint == L_WRIST || joint == R_WRIST || joint == L_ANKLE || joint == R_ANKLE) f = 0.5f;
        else f = 0.4f;  // hands, fingers, heels, feet and toes
        factors.push_back(f);
    }
    float mean = 0.f;
    for (float f : factors) mean += f;
    if (!factors.empty()) mean /= float(factors.size());
    for (float& f : factors) f /= mean;
    return factors;
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
    const std::vector<float> bias = biasFactors(camera.bodyFormat);
    const float nan = std::numeric_limits<float>::quiet_NaN();

    for (const TrueBody& person : peopleAt(scene, timestampNs, camera.bodyFormat)) {
        HashRandom rng(hashKey({scene.seed, camera.serial, timestampNs, uint64_t(person.id), 0x4f4253ULL}));
        const size_t n = person.keypoints.size();
        std::vector<lum::Vector3f> local(n);
        std::vector<bool> inView(n);
        size_t visible = 0;
        for (size_t i = 0; i < n; ++i) {
            local[i] = roomToCamera * person.keypoints[i];
            float depth = -local[i].z;
            inView[i] = depth >= camera.minDepth && depth <= camera.maxDepth &&
                        std::fabs(local[i].x) <= tanH * depth && std::fabs(local[i].y) <= tanV * depth;
            visible += inView[i];
        }
        // A tracker needs most of a person in view before it reports anyone.
        if (visible * 2 < n) continue;

        lum::BodyData body;
        // Each camera's tracker numbers people its own way; only the truth knows who is who.
        body.id = int(hashKey({camera.serial, uint64_t(person.id), 0x5452414bULL}) % (1u << 30));
        body.unique_object_id = std::to_string(body.id);
        body.tracking_state = lum::OBJECT_TRACKING_STATE::OK;
        body.keypoint.assign(n, lum::Vector3f(nan, nan, nan));
        body.keypoint_confidence.assign(n, 0.f);
        body.keypoint_covariances.assign(n, std::array<float, 6>{});
        lum::Vector3f sum;
        int reported = 0;
        float meanDepth = 0.f;
        for (size_t i = 0; i < n; ++i) {
            if (!inView[i] || rng.chance(noise.missingRate)) continue;
            lum::Vector3f p = local[i];
            float depth = -p.z;
            float sd = depthSigma(noise, depth, options.depthMode);
            float sl = noise.lateralSigmaPx / noise.focalPx * depth;
            const float pull = noise.biasTowardCamera * (i < bias.size() ? bias[i] : 1.f);
            lum::Vector3f q = p - p * (pull / p.norm());
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

            body.keypoint[i] = frame.point(q);
            body.keypoint_covariances[i] = frame.covariance(c);
            body.keypoint_confidence[i] = std::clamp(95.f - 4.f * depth + 2.f * float(rng.normal()), 5.f, 99.f);
            sum += q;
            meanDepth += depth;
            ++reported;
        }
        if (reported == 0) continue;
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
