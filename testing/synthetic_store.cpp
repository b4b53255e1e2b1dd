// Synthetic skeleton frames: a rough 18-keypoint body at random places and headings,
// seen from given camera poses, with isotropic Gaussian noise and its covariance.
#include "testing/synthetic_store.hpp"

#include <Eigen/Geometry>

#include <chrono>
#include <cmath>
#include <random>

#include "testing/standing_body.hpp"

namespace synthetic {

SkeletonMulticameraCalibration syntheticStore(const std::map<int, lum::Transform>& cameraToWorld, int frames,
                                              double noise, unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> place(-1.5f, 1.5f);
    std::uniform_real_distribution<float> turn(0.f, 6.2831853f);
    std::normal_distribution<float> jitter(0.f, static_cast<float>(noise));

    SkeletonMulticameraCalibration store;
    const float variance = static_cast<float>(std::max(noise * noise, 1e-8));
    const uint64_t end = static_cast<uint64_t>(
        std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now().time_since_epoch())
            .count());
    for (int f = 0; f < frames; ++f) {
        const Eigen::AngleAxisf heading(turn(random), Eigen::Vector3f::UnitY());
        const Eigen::Vector3f at(place(random), 0.f, place(random));
        std::map<int, lum::BodyData> frame;
        for (const auto& [serial, pose] : cameraToWorld) {
            const lum::Transform toCamera = lum::Transform::inverse(pose);
            lum::BodyData body;
            body.id = 0;
            for (const auto& joint : kSkeleton) {
                const Eigen::Vector3f world =
                    heading * Eigen::Vector3d(joint[0], joint[1], joint[2]).cast<float>() + at;
                lum::Vector3f seen = toCamera * lum::Vector3f(world.x(), world.y(), world.z());
                seen += lum::Vector3f(jitter(random), jitter(random), jitter(random));
                body.keypoint.push_back(seen);
                body.keypoint_confidence.push_back(90.f);
                body.keypoint_covariances.push_back({variance, 0.f, 0.f, variance, 0.f, variance});
            }
            frame[serial] = body;
        }
        store.frames.add(lum::Timestamp(end - static_cast<uint64_t>(frames - f) * 500000000ULL), frame);
    }
    return store;
}

}  // namespace synthetic
