// Batched evaluation of the skeleton calibration cost for Ceres (see header): analytic
// tangent-space Jacobians, Huber per keypoint pair, a deterministic two-thread split.
#include "calibration/pair_solver.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <thread>

#include <Eigen/Eigenvalues>
#include <Eigen/Geometry>

namespace calib {

namespace {

Eigen::Matrix3d rotation(const double* q) {
    return Eigen::Quaterniond(q[3], q[0], q[1], q[2]).toRotationMatrix();
}

inline Eigen::Vector3d times(const Eigen::Matrix3d& m, const Eigen::Vector3d& x) {
    return Eigen::Vector3d(m(0, 0) * x(0) + m(0, 1) * x(1) + m(0, 2) * x(2),
                           m(1, 0) * x(0) + m(1, 1) * x(1) + m(1, 2) * x(2),
                           m(2, 0) * x(0) + m(2, 1) * x(1) + m(2, 2) * x(2));
}

// Columns x cross m.col(j).
inline Eigen::Matrix3d crossColumns(const Eigen::Vector3d& x, const Eigen::Matrix3d& m) {
    Eigen::Matrix3d out;
    for (int j = 0; j < 3; ++j) {
        out(0, j) = x(1) * m(2, j) - x(2) * m(1, j);
        out(1, j) = x(2) * m(0, j) - x(0) * m(2, j);
        out(2, j) = x(0) * m(1, j) - x(1) * m(0, j);
    }
    return out;
}

// ceres::HuberLoss(1.0): rho and its first derivative.
void huber(double s, double& rho0, double& rho1) {
    if (s > 1.0) {
        const double r = std::sqrt(s);
        rho0 = 2.0 * r - 1.0;
        rho1 = std::max(std::numeric_limits<double>::min(), 1.0 / r);
    } else {
        rho0 = s;
        rho1 = 1.0;
    }
}

// Keypoint pairs per work item; items are summed per pair in a fixed order, so the
// result does not depend on how many threads ran.
constexpr size_t kChunk = 4096;

class CompressedPairCost : public ceres::CostFunction {
public:
    CompressedPairCost(const PairEvaluator& evaluator, size_t pair) : evaluator_(evaluator), pair_(pair) {
        set_num_residuals(kCompressedRows);
        *mutable_parameter_block_sizes() = {4, 3, 4, 3};
    }

    bool Evaluate(double const* const*, double* residuals, double** jacobians) const override {
        const CompressedPair& c = evaluator_.compressed(pair_);
        if (!c.finite) return false;
        std::copy(c.residual.data(), c.residual.data() + kCompressedRows, residuals);
        if (jacobians == nullptr) return true;
        const int offsets[4] = {0, 4, 7, 11};
        const int sizes[4] = {4, 3, 4, 3};
        for (int block = 0; block < 4; ++block) {
            if (jacobians[block] == nullptr) continue;
            for (int row = 0; row < kCompressedRows; ++row)
                for (int col = 0; col < sizes[block]; ++col)
                    jacobians[block][row * sizes[block] + col] = c.jacobian(row, offsets[block] + col);
        }
        return true;
    }

private:
    const PairEvaluator& evaluator_;
    size_t pair_;
};

}  // namespace

void sumKeypointPairs(const CameraPairData& data, size_t begin, size_t end, const PairPoses& poses,
                      bool weighted, bool robust, bool withDerivatives, PairSums& sums) {
    const Eigen::Matrix3d rA = rotation(poses.qA);
    const Eigen::Matrix3d rAB = rA.transpose() * rotation(poses.qB);
    const Eigen::Vector3d offset =
        rA.transpose() * Eigen::Vector3d(poses.tB[0] - poses.tA[0], poses.tB[1] - poses.tA[1], poses.tB[2] - poses.tA[2]);
    // In A's frame, r = a - u with v = RA^T RB b and u = v + RA^T (tB - tA). With rotations
    // perturbed on the left by angle 2|d|, J = L [-2[u]x, I, 2[v]x, -I] D, D = diag(RA^T)
    // four times; J^T J and J^T r only need the 3x3 and 3-vector sums below.
    Eigen::Matrix3d uu = Eigen::Matrix3d::Zero(), ug = Eigen::Matrix3d::Zero(), uv = Eigen::Matrix3d::Zero();
    Eigen::Matrix3d gg = Eigen::Matrix3d::Zero(), gv = Eigen::Matrix3d::Zero(), vv = Eigen::Matrix3d::Zero();
    Eigen::Vector3d h = Eigen::Vector3d::Zero(), hu = Eigen::Vector3d::Zero(), hv = Eigen::Vector3d::Zero();
    for (size_t i = begin; i < end; ++i) {
        const KeypointPair& p = data.pairs[i];
        const Eigen::Vector3d v = times(rAB, p.b);
        const Eigen::Vector3d u = v + offset;
        const Eigen::Vector3d r = p.a - u;
        const double s = weighted ? times(p.weight, r).squaredNorm() : r.squaredNorm();
        double rho0 = s, rho1 = 1.0;
        if (robust) huber(s, rho0, rho1);
        sums.cost += 0.5 * rho0;
        if (!withDerivatives) continue;
        const Eigen::Matrix3d g = weighted ? Eigen::Matrix3d(rho1 * p.weightSquared)
                                           : Eigen::Matrix3d(rho1 * Eigen::Matrix3d::Identity());
        const Eigen::Vector3d gr = times(g, r);
        // [x]x^T M = -(x cross each column of M); for symmetric g, g [x]x = ([x]x^T g)^T.
        const Eigen::Matrix3d ugLocal = -crossColumns(u, g);
        const Eigen::Matrix3d gvLocal = -crossColumns(v, g).transpose();
        ug += ugLocal;
        gv += gvLocal;
        uu -= crossColumns(u, ugLocal.transpose());
        uv -= crossColumns(u, gvLocal);
        vv -= crossColumns(v, gvLocal);
        gg += g;
        h += gr;
        hu += gr.cross(u);
        hv += gr.cross(v);
    }
    if (!withDerivatives) return;
    Matrix12d local;
    local.block<3, 3>(0, 0) = 4.0 * uu;
    local.block<3, 3>(0, 3) = -2.0 * ug;
    local.block<3, 3>(0, 6) = -4.0 * uv;
    local.block<3, 3>(0, 9) = 2.0 * ug;
    local.block<3, 3>(3, 3) = gg;
    local.block<3, 3>(3, 6) = 2.0 * gv;
    local.block<3, 3>(3, 9) = -gg;
    local.block<3, 3>(6, 6) = 4.0 * vv;
    local.block<3, 3>(6, 9) = -2.0 * gv.transpose();
    local.block<3, 3>(9, 9) = gg;
    Vector12d localGradient;
    localGradient << -2.0 * hu, h, 2.0 * hv, -h;
    // Back from A's frame: blocks become RA B RA^T.
    for (int row = 0; row < 4; ++row) {
        sums.gradient.segment<3>(3 * row) += rA * localGradient.segment<3>(3 * row);
        for (int col = row; col < 4; ++col) {
            const Eigen::Matrix3d block = rA * local.block<3, 3>(3 * row, 3 * col) * rA.transpose();
            sums.hessian.block<3, 3>(3 * row, 3 * col) += block;
            if (col != row) sums.hessian.block<3, 3>(3 * col, 3 * row) += block.transpose();
        }
    }
}

void compress(const PairSums& sums, const PairPoses& poses, bool withDerivatives, CompressedPair& out) {
    out.residual.setZero();
    out.finite = std::isfinite(sums.cost);
    if (!out.finite) return;
    if (!withDerivatives) {
        out.residual(0) = std::sqrt(2.0 * sums.cost);
        return;
    }
    if (!sums.hessian.allFinite() || !sums.gradient.allFinite()) {
        out.finite = false;
        return;
    }
    // H = V diag(l) V^T; rows sqrt(l_i) v_i^T with residuals v_i.g / sqrt(l_i) reproduce H
    // and g. The null space of a pair (both cameras moved together) carries no gradient.
    const Eigen::SelfAdjointEigenSolver<Matrix12d> eigen(sums.hessian);
    const double largest = eigen.eigenvalues().maxCoeff();
    Eigen::Matrix<double, kCompressedRows, kTangent> tangentJacobian =
        Eigen::Matrix<double, kCompressedRows, kTangent>::Zero();
    double modelled = 0;
    for (int i = 0; i < kTangent; ++i) {
        const double l = eigen.eigenvalues()(i);
        if (!(l > 1e-12 * largest)) continue;
        const Vector12d v = eigen.eigenvectors().col(i);
        tangentJacobian.row(i) = std::sqrt(l) * v.transpose();
        out.residual(i) = v.dot(sums.gradient) / std::sqrt(l);
        modelled += out.residual(i) * out.residual(i);
    }
    // The last row only carries the part of the cost the quadratic model does not see
    // (the Huber tails), with no Jacobian, just as Ceres' corrected residuals do.
    out.residual(kTangent) = std::sqrt(std::max(0.0, 2.0 * sums.cost - modelled));

    // Back to the parameters: with P the manifold's plus-Jacobian (P^T P = I for a unit
    // quaternion) J_ambient = J_tangent P^T gives J_ambient P = J_tangent.
    double plusA[12], plusB[12];
    ceres::EigenQuaternionManifold manifold;
    manifold.PlusJacobian(poses.qA, plusA);
    manifold.PlusJacobian(poses.qB, plusB);
    const Eigen::Map<const Eigen::Matrix<double, 4, 3, Eigen::RowMajor>> pA(plusA), pB(plusB);
    out.jacobian.setZero();
    out.jacobian.block<kCompressedRows, 4>(0, 0) = tangentJacobian.block<kCompressedRows, 3>(0, 0) * pA.transpose();
    out.jacobian.block<kCompressedRows, 3>(0, 4) = tangentJacobian.block<kCompressedRows, 3>(0, 3);
    out.jacobian.block<kCompressedRows, 4>(0, 7) = tangentJacobian.block<kCompressedRows, 3>(0, 6) * pB.transpose();
    out.jacobian.block<kCompressedRows, 3>(0, 11) = tangentJacobian.block<kCompressedRows, 3>(0, 9);
}

PairEvaluator::PairEvaluator(std::shared_ptr<const std::vector<CameraPairData>> pairs,
                             std::vector<PairPoses> poses, bool robust, int numThreads)
    : pairs_(std::move(pairs)), poses_(std::move(poses)), robust_(robust),
      numThreads_(std::max(1, numThreads)), compressed_(poses_.size()) {}

void PairEvaluator::setWeighted(bool weighted) {
    weighted_ = weighted;
    valid_ = false;
}

void PairEvaluator::PrepareForEvaluation(bool evaluateJacobians, bool newEvaluationPoint) {
    if (valid_ && !newEvaluationPoint && (haveJacobians_ || !evaluateJacobians)) return;
    struct Item {
        size_t pair, begin, end;
        PairSums sums;
    };
    std::vector<Item> items;
    size_t keypointPairs = 0;
    for (size_t pair = 0; pair < poses_.size(); ++pair) {
        const size_t n = (*pairs_)[pair].pairs.size();
        keypointPairs += n;
        for (size_t begin = 0; begin < n; begin += kChunk)
            items.push_back({pair, begin, std::min(n, begin + kChunk), PairSums()});
    }
    // Starting a thread costs more than summing a chunk: a small problem is summed here.
    const int threads = keypointPairs < kChunk ? 1 : numThreads_;
    auto work = [&](int thread) {
        for (size_t i = thread; i < items.size(); i += threads) {
            Item& item = items[i];
            sumKeypointPairs((*pairs_)[item.pair], item.begin, item.end, poses_[item.pair], weighted_,
                             robust_, evaluateJacobians, item.sums);
        }
    };
    std::vector<std::thread> helpers;
    for (int thread = 1; thread < threads && size_t(thread) < items.size(); ++thread)
        helpers.emplace_back(work, thread);
    work(0);
    for (std::thread& helper : helpers) helper.join();

    std::vector<PairSums> sums(poses_.size());
    for (const Item& item : items) {
        sums[item.pair].cost += item.sums.cost;
        if (!evaluateJacobians) continue;
        sums[item.pair].hessian += item.sums.hessian;
        sums[item.pair].gradient += item.sums.gradient;
    }
    for (size_t pair = 0; pair < poses_.size(); ++pair)
        compress(sums[pair], poses_[pair], evaluateJacobians, compressed_[pair]);
    valid_ = true;
    haveJacobians_ = evaluateJacobians;
}

ceres::CostFunction* PairEvaluator::makeCostFunction(size_t pair) {
    return new CompressedPairCost(*this, pair);
}

namespace {

std::vector<PairPoses> pairPoses(const std::vector<CameraPairData>& pairs, const PoseRefs& poses) {
    std::vector<PairPoses> out;
    for (const CameraPairData& pair : pairs) {
        const auto* a = poses.at(pair.cameraA);
        const auto* b = poses.at(pair.cameraB);
        out.push_back({a->q, a->t, b->q, b->t});
    }
    return out;
}

ceres::Problem::Options withCallback(ceres::EvaluationCallback* callback) {
    ceres::Problem::Options options;
    options.evaluation_callback = callback;
    return options;
}

}  // namespace

PoseRefs PairProblem::refsOf(const std::vector<CameraPairData>& pairs, PoseMap& poses) {
    for (const CameraPairData& pair : pairs) {
        poses[pair.cameraA];
        poses[pair.cameraB];
    }
    PoseRefs refs;
    for (auto& [camera, pose] : poses) refs[camera] = &pose;
    return refs;
}

PairProblem::PairProblem(std::shared_ptr<const std::vector<CameraPairData>> pairs, PoseMap& poses, bool robust,
                         int numThreads, int reference)
    : PairProblem(pairs, refsOf(*pairs, poses), robust, numThreads, reference) {}

PairProblem::PairProblem(std::shared_ptr<const std::vector<CameraPairData>> pairs, const PoseRefs& poses, bool robust,
                         int numThreads, int reference)
    : evaluator_(pairs, pairPoses(*pairs, poses), robust, numThreads), problem_(withCallback(&evaluator_)) {
    for (size_t i = 0; i < pairs->size(); ++i) {
        auto* a = poses.at((*pairs)[i].cameraA);
        auto* b = poses.at((*pairs)[i].cameraB);
        problem_.AddResidualBlock(evaluator_.makeCostFunction(i), nullptr, a->q, a->t, b->q, b->t);
    }
    ceres::Manifold* manifold = new ceres::EigenQuaternionManifold;
    bool used = false;
    for (auto& [camera, pose] : poses) {
        if (!problem_.HasParameterBlock(pose->q)) continue;
        problem_.SetManifold(pose->q, manifold);
        used = true;
        if (camera != reference) continue;
        problem_.SetParameterBlockConstant(pose->q);
        problem_.SetParameterBlockConstant(pose->t);
    }
    if (!used) delete manifold;
}

}  // namespace calib
