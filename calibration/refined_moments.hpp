// The refined calibration's cost summed once per round: with the weights of a round fixed,
// every joint's residual is linear in 42 numbers of its two cameras, so one sum per pair.
#pragma once

#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include <Eigen/Core>
#include <ceres/ceres.h>

#include "calibration/refined_solver.hpp"

namespace calib {

// RA's columns, bias A times them, tA, then the same for B: d = sum_k c_k z_k with
// c = (a, rayA, 1, -b, -rayB, -1) per joint.
constexpr int kMomentSize = 42;
using MomentMatrix = Eigen::Matrix<double, kMomentSize, kMomentSize>;

// sum over the pair's joints of (c c^T) kron G, G the joint's weight W^T W: the cost at any
// poses and biases is z^T Q z / 2, its Gauss-Newton matrix and gradient follow from it.
struct PairMoments {
    int cameraA = 0, cameraB = 0;
    MomentMatrix q = MomentMatrix::Zero();
};

enum class MomentWeights {
    Refined,   // each joint's information at the given unknowns, Huber-limited, as reweight()
    Identity,  // plain distances, biases ignored: the least squares a cold start begins with
};

// One camera pair's sums before unpacking: c_k c_l (k <= l) times each distinct entry of G.
using PackedMoments = Eigen::Matrix<double, 105, 6>;

// The sums of one immutable run of frame pairs, per camera pair, with the unknowns they
// were taken at. A weight moves with the poses only smoothly, so sums taken within
// RefinedOptions::keepSums* of the poses asked for are used as they are, and a live
// re-solve sums only the newest frames and the cameras that moved.
class MomentCache {
public:
    MomentCache() = default;
    MomentCache(const MomentCache&) = delete;
    MomentCache& operator=(const MomentCache&) = delete;

private:
    friend struct MomentSummer;
    struct Entry {
        CameraUnknowns a, b;
        double jointSigma = 0, huberSigmas = 0;
        PackedMoments sums;
    };
    std::mutex mutex_;
    std::map<std::pair<int, int>, Entry> refined_;
    std::map<std::pair<int, int>, PackedMoments> identity_;  // never depend on the unknowns
};

// Frame pairs [begin, end) of a list, and where their sums are kept (none: summed anew).
struct MomentPart {
    FramePairList pairs;
    size_t begin = 0, end = size_t(-1);
    MomentCache* kept = nullptr;
};

// Sums the parts per camera pair, in part order; frame pairs with a camera missing from
// `cameras` are left out. A part without a cache is split in two fixed halves, and the
// parts shared among `threads`, so the sums never depend on how many threads ran.
std::vector<PairMoments> sumMoments(const std::vector<MomentPart>& parts, const std::map<int, CameraUnknowns>& cameras,
                                    const RefinedOptions& options, MomentWeights weights, int threads);
std::vector<PairMoments> sumMoments(const FramePairList& pairs, size_t begin, size_t end,
                                    const std::map<int, CameraUnknowns>& cameras, const RefinedOptions& options,
                                    MomentWeights weights, int threads);

// The cost of one camera pair over (qA, tA, bA, qB, tB, bB): 15 rows whose cost, gradient
// and Gauss-Newton matrix are those of all its joints' residuals. `moments` must outlive it.
class PairMomentCost : public ceres::CostFunction {
public:
    explicit PairMomentCost(const PairMoments& moments);
    bool Evaluate(double const* const* parameters, double* residuals, double** jacobians) const override;

private:
    const PairMoments& moments_;
};

}  // namespace calib
