// Fast evaluation of the skeleton calibration cost: all keypoint pairs of one ordered
// camera pair are summed into one small block that gives Ceres the same cost, gradient
// and Gauss-Newton matrix as one robustified block per keypoint pair would.
#pragma once

#include <map>
#include <memory>
#include <vector>

#include <Eigen/Core>
#include <ceres/ceres.h>

#include "calibration/keypoint_pairs.hpp"
#include "calibration/skeleton_align.hpp"

namespace calib {

// Tangent coordinates of one pair: rotation of A, translation of A, same for B. The
// rotation coordinates are those of ceres::EigenQuaternionManifold (q <- exp(d) * q).
constexpr int kTangent = 12;
// Enough rows for a full-rank 12x12 normal matrix, plus one row that only carries cost.
constexpr int kCompressedRows = kTangent + 1;

using Matrix12d = Eigen::Matrix<double, kTangent, kTangent>;
using Vector12d = Eigen::Matrix<double, kTangent, 1>;

struct PairSums {
    double cost = 0;  // 1/2 sum of rho(|r|^2)
    Matrix12d hessian = Matrix12d::Zero();
    Vector12d gradient = Vector12d::Zero();
};

struct PairPoses {
    const double* qA;
    const double* tA;
    const double* qB;
    const double* tB;
};

// Sums keypoint pairs [begin, end) of data. weighted: residuals times their weight;
// robust: Huber(1) per keypoint pair, scaled by sqrt(rho') as Ceres does for a loss whose
// second derivative is never positive (so no curvature term).
void sumKeypointPairs(const CameraPairData& data, size_t begin, size_t end, const PairPoses& poses,
                      bool weighted, bool robust, bool withDerivatives, PairSums& sums);

// Residual rows r and Jacobian rows J (kCompressedRows x 14, over qA, tA, qB, tB) with
// |r|^2 = 2 cost, J^T r = gradient and J^T J = hessian once mapped to the tangent space.
struct CompressedPair {
    Eigen::Matrix<double, kCompressedRows, 1> residual;
    Eigen::Matrix<double, kCompressedRows, 14, Eigen::RowMajor> jacobian;
    bool finite = true;  // false makes the evaluation fail, as a NaN residual would
};
void compress(const PairSums& sums, const PairPoses& poses, bool withDerivatives,
              CompressedPair& out);

// Owns the per-pair results of one evaluation point; Ceres calls it before every
// evaluation, and the cost functions it hands out only copy their pair's rows.
class PairEvaluator : public ceres::EvaluationCallback {
public:
    PairEvaluator(std::shared_ptr<const std::vector<CameraPairData>> pairs,
                  std::vector<PairPoses> poses, bool robust, int numThreads);

    void setWeighted(bool weighted);
    void PrepareForEvaluation(bool evaluateJacobians, bool newEvaluationPoint) override;

    // A cost function over (qA, tA, qB, tB) of pair i; the caller's problem owns it.
    ceres::CostFunction* makeCostFunction(size_t pair);
    const CompressedPair& compressed(size_t pair) const { return compressed_[pair]; }

private:
    std::shared_ptr<const std::vector<CameraPairData>> pairs_;
    std::vector<PairPoses> poses_;
    bool robust_;
    bool weighted_ = false;
    int numThreads_;
    bool haveJacobians_ = false;
    bool valid_ = false;
    std::vector<CompressedPair> compressed_;
};

using PoseMap = std::map<int, SkeletonMulticameraCalibration::PoseStruct>;
using PoseRefs = std::map<int, SkeletonMulticameraCalibration::PoseStruct*>;

// The fast calibration problem on `poses`: one batched block per ordered camera pair, the
// quaternion manifold on every camera in it, and the camera `reference` held fixed
// (none when negative). `poses` must outlive it and keep its entries.
class PairProblem {
public:
    PairProblem(std::shared_ptr<const std::vector<CameraPairData>> pairs, PoseMap& poses, bool robust,
                int numThreads, int reference);
    // The same on poses kept elsewhere; every camera of `pairs` must be there.
    PairProblem(std::shared_ptr<const std::vector<CameraPairData>> pairs, const PoseRefs& poses, bool robust,
                int numThreads, int reference);

    PairEvaluator& evaluator() { return evaluator_; }
    ceres::Problem& problem() { return problem_; }

private:
    static PoseRefs refsOf(const std::vector<CameraPairData>& pairs, PoseMap& poses);

    PairEvaluator evaluator_;
    ceres::Problem problem_;
};

}  // namespace calib
