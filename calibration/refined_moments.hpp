// The refined calibration's cost summed once per round: with the weights of a round fixed,
// every joint's residual is linear in 42 numbers of its two cameras, so one sum per pair.
#pragma once

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

// Sums the frame pairs in [begin, end) per camera pair, in frame pair order. The range is
// split in two fixed halves (one per thread when `threads` > 1), so the sums never depend
// on how many threads ran.
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
