// First poses by consensus: per camera pair a rigid fit with its outlying instants left
// out, checked part by part of the walk; cameras placed outward and checked round loops.
#include "calibration/pose_consensus.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <set>
#include <vector>

#include <Eigen/Eigenvalues>

namespace calib {

namespace {

struct Instant {
    Eigen::Matrix3Xd a, b;  // the joints both bodies report, in each camera's frame
    Eigen::Vector3d centreA, centreB;
};

std::vector<Instant> sharedInstants(const Frames& frames, int cameraA, int cameraB, int minJoints) {
    std::vector<Instant> instants;
    for (const auto& [ts, bodies] : frames) {
        const auto a = bodies.find(cameraA);
        const auto b = bodies.find(cameraB);
        if (a == bodies.end() || b == bodies.end()) continue;
        const std::vector<lum::Vector3f>& ka = a->second.keypoint;
        const std::vector<lum::Vector3f>& kb = b->second.keypoint;
        const size_t n = std::min({ka.size(), kb.size(), size_t(kMaxKeypoints)});
        Instant instant;
        instant.a.resize(3, Eigen::Index(n));
        instant.b.resize(3, Eigen::Index(n));
        Eigen::Index count = 0;
        for (size_t k = 0; k < n; ++k) {
            const Eigen::Vector3d pa(ka[k].x, ka[k].y, ka[k].z), pb(kb[k].x, kb[k].y, kb[k].z);
            if (!pa.allFinite() || !pb.allFinite()) continue;
            instant.a.col(count) = pa;
            instant.b.col(count) = pb;
            ++count;
        }
        if (count < minJoints) continue;
        instant.a.conservativeResize(3, count);
        instant.b.conservativeResize(3, count);
        instant.centreA = instant.a.rowwise().mean();
        instant.centreB = instant.b.rowwise().mean();
        instants.push_back(std::move(instant));
    }
    return instants;
}

Eigen::Isometry3d rigidFit(const std::vector<const Instant*>& instants) {
    Eigen::Index columns = 0;
    for (const Instant* instant : instants) columns += instant->a.cols();
    Eigen::Matrix3Xd a(3, columns), b(3, columns);
    Eigen::Index at = 0;
    for (const Instant* instant : instants) {
        a.middleCols(at, instant->a.cols()) = instant->a;
        b.middleCols(at, instant->b.cols()) = instant->b;
        at += instant->a.cols();
    }
    Eigen::Isometry3d fit;
    fit.matrix() = Eigen::umeyama(b, a, false);
    return fit;
}

double meanDistance(const Instant& instant, const Eigen::Isometry3d& bToA) {
    return ((bToA * instant.b) - instant.a).colwise().norm().mean();
}

double turnDeg(const Eigen::Isometry3d& x, const Eigen::Isometry3d& y) {
    return Eigen::AngleAxisd(x.linear().transpose() * y.linear()).angle() * 180.0 / M_PI;
}

std::string describe(const char* pattern, double a, double b) {
    char text[200];
    std::snprintf(text, sizeof text, pattern, a, b);
    return text;
}

}  // namespace

PairFit fitCameraPair(const Frames& frames, int cameraA, int cameraB, const ConsensusOptions& options) {
    PairFit result;
    const std::vector<Instant> instants = sharedInstants(frames, cameraA, cameraB, options.minJoints);
    result.instants = int(instants.size());
    if (result.instants < options.minInstants) {
        result.problem = describe("shares %.0f of the %.0f frames a first pose needs", result.instants,
                                  options.minInstants);
        return result;
    }

    std::vector<const Instant*> inliers;
    for (const Instant& instant : instants) inliers.push_back(&instant);
    // A wrong pairing or a swapped body cannot pull the fit far when it is left out and
    // the rest refitted; twice settles it.
    for (int round = 0; round < 3; ++round) {
        result.bToA = rigidFit(inliers);
        if (round == 2) break;
        inliers.clear();
        for (const Instant& instant : instants)
            if (meanDistance(instant, result.bToA) < options.gate) inliers.push_back(&instant);
        if (int(inliers.size()) < 3) break;
    }
    result.inliers = int(inliers.size());
    if (result.inliers < options.minInlierShare * result.instants || result.inliers < options.minInstants) {
        result.problem = describe("only %.0f of its %.0f shared frames agree on one pose", result.inliers,
                                  result.instants);
        return result;
    }

    Eigen::Vector3d mean = Eigen::Vector3d::Zero();
    for (const Instant* instant : inliers) mean += instant->centreA;
    mean /= double(inliers.size());
    Eigen::Matrix3d spread = Eigen::Matrix3d::Zero();
    for (const Instant* instant : inliers) spread += (instant->centreA - mean) * (instant->centreA - mean).transpose();
    spread /= double(inliers.size());
    result.walkedCentre = mean;
    result.walkedSpread = spread;
    const Eigen::SelfAdjointEigenSolver<Eigen::Matrix3d> eigen(spread);
    const double across = std::sqrt(std::max(0.0, eigen.eigenvalues()(1)));
    if (!(across >= options.minSpread)) {
        result.problem = describe("was seen with the other on one line of walking only (%.2f m across, %.2f m needed)",
                                  across, options.minSpread);
        return result;
    }

    // Each part of the walk, by where along it the person was, must give the same pose.
    const Eigen::Vector3d along = eigen.eigenvectors().col(2);
    std::sort(inliers.begin(), inliers.end(), [&along](const Instant* x, const Instant* y) {
        return x->centreA.dot(along) < y->centreA.dot(along);
    });
    const size_t parts = size_t(std::max(1, options.stretches));
    for (size_t part = 0; part < parts; ++part) {
        const std::vector<const Instant*> stretch(inliers.begin() + long(part * inliers.size() / parts),
                                                  inliers.begin() + long((part + 1) * inliers.size() / parts));
        if (stretch.size() < 2) continue;
        const Eigen::Isometry3d local = rigidFit(stretch);
        double shift = 0;
        for (const Instant* instant : inliers)
            shift += (local * instant->centreB - result.bToA * instant->centreB).norm();
        shift /= double(inliers.size());
        const double turn = turnDeg(local, result.bToA);
        if (turn > options.maxStretchRotationDeg || shift > options.maxStretchShift) {
            result.problem = describe("gives poses %.1f deg and %.2f m apart in different parts of the walk", turn,
                                      shift);
            return result;
        }
    }
    result.trusted = true;
    return result;
}

ConsensusSeeds seedCameras(const Frames& frames, const std::map<int, Eigen::Isometry3d>& placed,
                           const ConsensusOptions& options) {
    ConsensusSeeds out;
    std::set<int> cameras;
    for (const auto& [ts, bodies] : frames)
        for (const auto& [camera, body] : bodies) cameras.insert(camera);

    // Fits between two placed cameras are the solve's business.
    std::map<std::pair<int, int>, PairFit> fits;
    for (auto a = cameras.begin(); a != cameras.end(); ++a)
        for (auto b = std::next(a); b != cameras.end(); ++b)
            if (!placed.count(*a) || !placed.count(*b)) fits[{*a, *b}] = fitCameraPair(frames, *a, *b, options);

    std::map<int, Eigen::Isometry3d> current;
    for (const auto& [camera, pose] : placed)
        if (cameras.count(camera)) current[camera] = pose;
    if (current.empty()) {
        // The largest group joined by trusted fits; ties go to the one holding the smallest camera.
        std::map<int, int> group;
        std::function<void(int, int)> spread = [&](int camera, int id) {
            if (group.count(camera)) return;
            group[camera] = id;
            for (const auto& [key, fit] : fits)
                if (fit.trusted && (key.first == camera || key.second == camera))
                    spread(key.first == camera ? key.second : key.first, id);
        };
        for (int camera : cameras) spread(camera, camera);
        std::map<int, int> sizes;
        for (const auto& [camera, id] : group) ++sizes[id];
        int start = 0, size = 0;
        for (const auto& [id, count] : sizes)
            if (count > size) start = id, size = count;
        if (size >= 2) current[start] = out.seeds[start] = Eigen::Isometry3d::Identity();
    }

    std::set<int> refused;
    for (;;) {
        // The unplaced camera most tied to the placed ones goes next.
        int next = 0, strongest = 0;
        for (const auto& [key, fit] : fits) {
            if (!fit.trusted) continue;
            for (const auto& [inside, outside] : {key, std::make_pair(key.second, key.first)}) {
                if (!current.count(inside) || current.count(outside) || refused.count(outside)) continue;
                if (fit.inliers > strongest) next = outside, strongest = fit.inliers;
            }
        }
        if (strongest == 0) break;

        struct Route {
            int via;
            Eigen::Isometry3d seed;
            Eigen::Vector3d seen;  // where this camera saw people, in its own frame
            int inliers;
        };
        std::vector<Route> routes;
        for (const auto& [key, fit] : fits) {
            if (!fit.trusted || (key.first != next && key.second != next)) continue;
            const int via = key.first == next ? key.second : key.first;
            if (!current.count(via)) continue;
            // fit carries the larger camera's joints into the smaller one's frame.
            const Eigen::Isometry3d toVia = key.second == next ? fit.bToA : fit.bToA.inverse();
            const Eigen::Vector3d seen =
                key.second == next ? fit.bToA.inverse() * fit.walkedCentre : fit.walkedCentre;
            routes.push_back({via, current.at(via) * toVia, seen, fit.inliers});
        }
        std::sort(routes.begin(), routes.end(), [](const Route& x, const Route& y) { return x.inliers > y.inliers; });
        std::string disagreement;
        for (size_t i = 1; i < routes.size() && disagreement.empty(); ++i) {
            const double turn = turnDeg(routes[0].seed, routes[i].seed);
            const double shift = (routes[0].seed * routes[0].seen - routes[i].seed * routes[0].seen).norm();
            if (turn > options.maxLoopRotationDeg || shift > options.maxLoopShift)
                disagreement = "its fits through " + std::to_string(routes[0].via) + " and " +
                               std::to_string(routes[i].via) +
                               describe(" put it %.1f deg and %.2f m apart", turn, shift);
        }
        if (!disagreement.empty()) {
            refused.insert(next);
            out.waiting[next] = disagreement;
            continue;
        }
        current[next] = routes[0].seed;
        out.seeds[next] = routes[0].seed;
    }

    for (int camera : cameras) {
        if (current.count(camera) || out.waiting.count(camera)) continue;
        // The most promising fit says best what is still missing.
        const PairFit* best = nullptr;
        int other = 0;
        for (const auto& [key, fit] : fits)
            if ((key.first == camera || key.second == camera) && (!best || fit.instants > best->instants)) {
                best = &fit;
                other = key.first == camera ? key.second : key.first;
            }
        // A camera without one usable joint shared is not waiting for agreement.
        if (!best || best->instants == 0) continue;
        if (best->trusted)
            out.waiting[camera] = "not yet tied to the placed cameras (only to " + std::to_string(other) + ")";
        else
            out.waiting[camera] = "with " + std::to_string(other) + " it " + best->problem;
    }
    return out;
}

}  // namespace calib
