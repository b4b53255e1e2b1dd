// Synthetic room for calibration tests and benchmarks: cameras with known poses watching
// one walking person, keypoints with depth-dependent noise, bias and dropouts.
#pragma once

#include <cmath>
#include <functional>
#include <map>
#include <random>
#include <vector>

#include <Eigen/Geometry>

#include "calibration/skeleton_align.hpp"
#include "lum/records.hpp"
#include "testing/pose_error.hpp"
#include "testing/standing_body.hpp"

namespace synthetic {

struct Options {
    int cameras = 4;
    int keypoints = 18;
    double noise = 1.0;    // scale of the applied noise; covariances always report the nominal one
    double bias = 0.03;    // metres toward the camera
    double missing = 0.03; // share of visible keypoints dropped
    unsigned seed = 1;
    bool everythingVisible = false;  // no field of view: every joint of every camera is seen
};

struct Camera {
    int id;
    Eigen::Matrix3d rotation;  // camera to world; camera looks along -z, y up
    Eigen::Vector3d centre;
};

class Room {
public:
    explicit Room(const Options& options) : options_(options), random_(options.seed) {
        const double positions[6][2] = {{-3, -3}, {3, 3}, {3, -3}, {-3, 3}, {0, -3}, {0, 3}};
        for (int i = 0; i < options.cameras; ++i) {
            const Eigen::Vector3d centre(positions[i % 6][0], 2.4 + 0.1 * (i / 6), positions[i % 6][1]);
            const Eigen::Vector3d forward = (Eigen::Vector3d(0, 0.9, 0) - centre).normalized();
            const Eigen::Vector3d right = forward.cross(Eigen::Vector3d::UnitY()).normalized();
            Eigen::Matrix3d r;
            r << right, right.cross(forward), -forward;
            cameras.push_back({10 + i, r, centre});
        }
        std::uniform_real_distribution<double> place(-2.2, 2.2);
        for (int i = 0; i < 200; ++i) waypoints_.emplace_back(place(random_), place(random_));
    }

    std::vector<Camera> cameras;

    // World keypoints of the walking person at time t (seconds).
    std::vector<Eigen::Vector3d> person(double t) const {
        double remaining = t * 1.1;  // walking speed, m/s
        size_t leg = 0;
        Eigen::Vector2d from = waypoints_[0], to = waypoints_[1];
        while ((to - from).norm() < remaining && leg + 2 < waypoints_.size()) {
            remaining -= (to - from).norm();
            ++leg;
            from = waypoints_[leg];
            to = waypoints_[leg + 1];
        }
        const Eigen::Vector2d direction = (to - from).normalized();
        const Eigen::Vector2d at = from + direction * std::min(remaining, (to - from).norm());
        const Eigen::Vector3d forward(direction.x(), 0, direction.y());
        const Eigen::Vector3d lateral = forward.cross(Eigen::Vector3d::UnitY());
        const double swing = std::sin(t * 2 * M_PI * 0.9);
        std::vector<Eigen::Vector3d> points;
        for (int k = 0; k < options_.keypoints; ++k) {
            const double* s = kSkeleton[k % 18];
            double ahead = s[2];
            if (k == 9 || k == 12) ahead += (k == 9 ? 0.15 : -0.15) * swing;
            if (k == 10 || k == 13) ahead += (k == 10 ? 0.25 : -0.25) * swing;
            if (k == 4 || k == 7) ahead += (k == 4 ? -0.2 : 0.2) * swing;
            const double extra = k >= 18 ? 0.05 * (k / 18) : 0.0;  // further joints near known ones
            points.push_back(Eigen::Vector3d(at.x(), 0, at.y()) + lateral * (s[0] + extra) +
                             Eigen::Vector3d::UnitY() * s[1] + forward * ahead);
        }
        return points;
    }

    // The body each camera reports at time t; cameras seeing fewer than 6 joints are left out.
    std::map<int, lum::BodyData> observe(double t) {
        const std::vector<Eigen::Vector3d> world = person(t);
        std::normal_distribution<double> normal;
        std::uniform_real_distribution<double> uniform;
        std::map<int, lum::BodyData> bodies;
        for (const Camera& camera : cameras) {
            lum::BodyData body;
            body.id = 0;
            int visible = 0;
            for (const Eigen::Vector3d& p : world) {
                Eigen::Vector3d c = camera.rotation.transpose() * (p - camera.centre);
                const double depth = -c.z();
                const bool inView = options_.everythingVisible ||
                                    (depth > 0.5 && depth < 9 && std::abs(c.x()) < depth * 1.19 &&
                                     std::abs(c.y()) < depth * 0.7);
                const double lateral = depth * 2.0 / 700.0;
                const double axial = 0.015 * (depth / 3.0) * (depth / 3.0);
                const bool dropped = uniform(random_) < options_.missing;
                c += options_.noise * Eigen::Vector3d(lateral * normal(random_), lateral * normal(random_),
                                                      axial * normal(random_));
                c -= options_.bias * c.normalized();
                if (!inView || dropped) {
                    body.keypoint.emplace_back(NAN, NAN, NAN);
                } else {
                    body.keypoint.emplace_back(float(c.x()), float(c.y()), float(c.z()));
                    ++visible;
                }
                body.keypoint_covariances.push_back({float(lateral * lateral), 0.f, 0.f,
                                                     float(lateral * lateral), 0.f, float(axial * axial)});
            }
            if (visible >= 6) bodies[camera.id] = body;
        }
        return bodies;
    }

    // Frames every 500 ms from time start on, kept when two or more cameras see the person;
    // `edit` may spoil each camera's body before the store takes it.
    void feed(SkeletonMulticameraCalibration& calibration, int frames, double start = 0.0,
              const std::function<void(int camera, lum::BodyData&)>& edit = {}) {
        for (int i = 0; i < frames; ++i) {
            const double t = start + 0.5 * i;
            std::map<int, lum::BodyData> bodies = observe(t);
            if (bodies.size() < 2) continue;
            if (edit)
                for (auto& [camera, body] : bodies) edit(camera, body);
            calibration.frames.add(lum::Timestamp(uint64_t(1e9 + t * 1e9)), bodies);
        }
    }

    // Truth of camera i relative to the first camera (the calibration's reference).
    Eigen::Isometry3d relativeTruth(size_t i) const {
        return pose(cameras[0]).inverse() * pose(cameras[i]);
    }

    static Eigen::Isometry3d pose(const Camera& camera) {
        Eigen::Isometry3d t = Eigen::Isometry3d::Identity();
        t.linear() = camera.rotation;
        t.translation() = camera.centre;
        return t;
    }

private:
    Options options_;
    std::mt19937 random_;
    std::vector<Eigen::Vector2d> waypoints_;
};

// Largest error over the cameras of the solved poses against the truth.
inline std::pair<double, double> worstError(const Room& room, const SkeletonMulticameraCalibration& c) {
    std::pair<double, double> worst{0, 0};
    for (size_t i = 0; i < room.cameras.size(); ++i) {
        auto it = c.state.poses.find(room.cameras[i].id);
        if (it == c.state.poses.end()) continue;
        const auto e = poseError(room.relativeTruth(i), toIsometry(it->second));
        worst = {std::max(worst.first, e.first), std::max(worst.second, e.second)};
    }
    return worst;
}

}  // namespace synthetic
