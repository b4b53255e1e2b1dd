// Refined skeleton calibration solve: joints summed per camera pair once per round, robust
// weights refreshed between plain least-squares rounds; the per-frame block is the yardstick.
#include "calibration/refined_solver.hpp"

#include <algorithm>
#include <array>
#include <cmath>

#include <Eigen/Cholesky>
#include <Eigen/Geometry>

#include "calibration/refined_moments.hpp"

namespace calib {

namespace {

Eigen::Matrix3d covarianceOf(const lum::BodyData& body, size_t k) {
    if (k >= body.keypoint_covariances.size()) return Eigen::Matrix3d::Zero();
    const std::array<float, 6>& c = body.keypoint_covariances[k];
    Eigen::Matrix3d m;
    m << c[0], c[1], c[2], c[1], c[3], c[4], c[2], c[4], c[5];
    return m;
}

bool usableCovariance(const Eigen::Matrix3d& c) {
    if (!c.allFinite()) return false;
    Eigen::SelfAdjointEigenSolver<Eigen::Matrix3d> eigen(c, Eigen::EigenvaluesOnly);
    return eigen.eigenvalues().minCoeff() >= 0.0;
}

Eigen::Matrix3d rotationOf(const double* q) {
    return Eigen::Quaterniond(q[3], q[0], q[1], q[2]).toRotationMatrix();
}

Eigen::Matrix3d skew(const Eigen::Vector3d& v) {
    Eigen::Matrix3d m;
    m << 0, -v.z(), v.y(), v.z(), 0, -v.x(), -v.y(), v.x(), 0;
    return m;
}

// How far apart the two views of a joint land, each pulled along its own ray: what the
// Huber weight judges, whichever rays this round's solve moves the joints along.
Eigen::Vector3d apart(const JointPair& joint, const Eigen::Matrix3d& rA, const Eigen::Vector3d& tA, double bA,
                      const Eigen::Matrix3d& rB, const Eigen::Vector3d& tB, double bB) {
    return rA * (joint.a + bA * joint.a.normalized()) + tA - rB * (joint.b + bB * joint.b.normalized()) - tB;
}

}  // namespace

std::vector<FramePair> collectFramePairs(const Frames& frames, int* dropped) {
    std::vector<FramePair> out;
    int skipped = 0;
    // Each body's joints are checked once, not once for every camera it pairs with.
    struct Joint {
        Eigen::Vector3d point;
        Eigen::Matrix3d covariance;
        bool seen = false, usable = false;
    };
    std::vector<std::array<Joint, kMaxKeypoints>> checked;
    for (const auto& [ts, bodies] : frames) {
        checked.resize(bodies.size());
        size_t body = 0;
        for (const auto& [camera, data] : bodies) {
            std::array<Joint, kMaxKeypoints>& joints = checked[body++];
            const size_t n = std::min(data.keypoint.size(), size_t(kMaxKeypoints));
            for (size_t k = 0; k < size_t(kMaxKeypoints); ++k) {
                Joint& joint = joints[k];
                joint.seen = k < n && std::isfinite(data.keypoint[k].x);
                if (!joint.seen) continue;
                const lum::Vector3f& p = data.keypoint[k];
                joint.point = Eigen::Vector3d(p.x, p.y, p.z);
                joint.covariance = covarianceOf(data, k);
                joint.usable = joint.point.allFinite() && joint.point.norm() >= 1e-6 && usableCovariance(joint.covariance);
            }
        }
        size_t indexA = 0;
        for (auto a = bodies.begin(); a != bodies.end(); ++a, ++indexA) {
            size_t indexB = indexA + 1;
            for (auto b = std::next(a); b != bodies.end(); ++b, ++indexB) {
                // The same index names another joint in another layout.
                if (a->second.keypoint.size() != b->second.keypoint.size()) continue;
                FramePair pair;
                pair.cameraA = a->first;
                pair.cameraB = b->first;
                const size_t n = std::min({a->second.keypoint.size(), b->second.keypoint.size(), size_t(kMaxKeypoints)});
                for (size_t k = 0; k < n; ++k) {
                    const Joint& ja = checked[indexA][k];
                    const Joint& jb = checked[indexB][k];
                    // A NaN x marks a joint the tracker did not see; anything else unusable is a fault.
                    if (!ja.seen || !jb.seen) continue;
                    if (!ja.usable || !jb.usable) {
                        ++skipped;
                        continue;
                    }
                    JointPair joint;
                    joint.a = ja.point;
                    joint.b = jb.point;
                    joint.covarianceA = ja.covariance;
                    joint.covarianceB = jb.covariance;
                    joint.rayA = joint.a.normalized();
                    joint.rayB = joint.b.normalized();
                    joint.keypoint = int(k);
                    pair.joints.push_back(joint);
                }
                if (pair.joints.empty()) continue;
                out.push_back(std::move(pair));
            }
        }
    }
    if (dropped) *dropped = skipped;
    return out;
}

void FramePairList::append(const std::vector<FramePair>& part) {
    if (part.empty()) return;
    parts_.push_back(&part);
    starts_.push_back(size_);
    size_ += part.size();
}

const FramePair& FramePairList::operator[](size_t i) const {
    const size_t p = size_t(std::upper_bound(starts_.begin(), starts_.end(), i) - starts_.begin()) - 1;
    return (*parts_[p])[i - starts_[p]];
}

FramePairCost::FramePairCost(const FramePair& pair) : pair_(pair) {
    set_num_residuals(int(3 * pair.joints.size()));
    *mutable_parameter_block_sizes() = {4, 3, 1, 4, 3, 1};
}

bool FramePairCost::Evaluate(double const* const* parameters, double* residuals, double** jacobians) const {
    const double* qA = parameters[0];
    const double* qB = parameters[3];
    const Eigen::Matrix3d rA = rotationOf(qA), rB = rotationOf(qB);
    const Eigen::Map<const Eigen::Vector3d> tA(parameters[1]), tB(parameters[4]);
    const double bA = parameters[2][0], bB = parameters[5][0];

    // Ceres' quaternion step turns by exp(d) q, so d(R p)/dd = -2 [R p]x; the ambient
    // Jacobian is that times the transposed plus-Jacobian (its columns are orthonormal).
    double plusA[12], plusB[12];
    if (jacobians && (jacobians[0] || jacobians[3])) {
        ceres::EigenQuaternionManifold manifold;
        manifold.PlusJacobian(qA, plusA);
        manifold.PlusJacobian(qB, plusB);
    }
    const Eigen::Map<const Eigen::Matrix<double, 4, 3, Eigen::RowMajor>> pA(plusA), pB(plusB);
    const int rows = num_residuals();
    for (size_t j = 0; j < pair_.joints.size(); ++j) {
        const JointPair& joint = pair_.joints[j];
        const Eigen::Matrix3d& w = pair_.weights[j];
        const Eigen::Vector3d turnedA = rA * (joint.a + bA * joint.rayA);
        const Eigen::Vector3d turnedB = rB * (joint.b + bB * joint.rayB);
        Eigen::Map<Eigen::Vector3d>(residuals + 3 * j) = w * (turnedA + tA - turnedB - tB);
        if (!jacobians) continue;
        const int row = int(3 * j);
        if (jacobians[0]) {
            Eigen::Map<Eigen::Matrix<double, Eigen::Dynamic, 4, Eigen::RowMajor>> J(jacobians[0], rows, 4);
            J.block<3, 4>(row, 0) = (w * (-2.0 * skew(turnedA))) * pA.transpose();
        }
        if (jacobians[1]) {
            Eigen::Map<Eigen::Matrix<double, Eigen::Dynamic, 3, Eigen::RowMajor>> J(jacobians[1], rows, 3);
            J.block<3, 3>(row, 0) = w;
        }
        if (jacobians[2]) Eigen::Map<Eigen::VectorXd>(jacobians[2], rows).segment<3>(row) = w * rA * joint.rayA;
        if (jacobians[3]) {
            Eigen::Map<Eigen::Matrix<double, Eigen::Dynamic, 4, Eigen::RowMajor>> J(jacobians[3], rows, 4);
            J.block<3, 4>(row, 0) = (w * (2.0 * skew(turnedB))) * pB.transpose();
        }
        if (jacobians[4]) {
            Eigen::Map<Eigen::Matrix<double, Eigen::Dynamic, 3, Eigen::RowMajor>> J(jacobians[4], rows, 3);
            J.block<3, 3>(row, 0) = -w;
        }
        if (jacobians[5]) Eigen::Map<Eigen::VectorXd>(jacobians[5], rows).segment<3>(row) = -(w * rB * joint.rayB);
    }
    return true;
}

JointTerms jointTerms(const JointPair& joint, const Eigen::Matrix3d& rA, const Eigen::Vector3d& tA, double bA,
                      const Eigen::Matrix3d& rB, const Eigen::Vector3d& tB, double bB, const RefinedOptions& options) {
    const double model = options.jointSigma * options.jointSigma;
    Eigen::Matrix3d covarianceA = rA * joint.covarianceA * rA.transpose();
    covarianceA.diagonal().array() += model;
    Eigen::Matrix3d covariance = covarianceA + rB * joint.covarianceB * rB.transpose();
    covariance.diagonal().array() += model;
    JointTerms terms;
    terms.information = covariance.inverse();
    terms.rayA = joint.a.normalized();
    terms.rayB = joint.b.normalized();
    const Eigen::Vector3d d = apart(joint, rA, tA, bA, rB, tB, bB);
    // Positive definite, as the factor reweight() takes needs; its leading minors say so.
    const Eigen::Matrix3d& information = terms.information;
    const bool positive = information(0, 0) > 0 && information.topLeftCorner<2, 2>().determinant() > 0 &&
                          information.determinant() > 0;
    if (positive) {
        // Each view weighed by the other's covariance: pA + CA (CA + CB)^-1 (pB - pA).
        const Eigen::Vector3d agreed = rA * (joint.a + bA * terms.rayA) + tA - covarianceA * (information * d);
        const Eigen::Vector3d inA = rA.transpose() * (agreed - tA), inB = rB.transpose() * (agreed - tB);
        if (agreed.allFinite() && inA.norm() >= 1e-6 && inB.norm() >= 1e-6) {
            terms.rayA = inA.normalized();
            terms.rayB = inB.normalized();
        }
    } else {
        terms.information = Eigen::Matrix3d::Identity() / model;
    }
    const double sigmas = std::sqrt(std::max(0.0, d.dot(terms.information * d)));
    if (sigmas > options.huberSigmas) terms.information *= options.huberSigmas / sigmas;
    return terms;
}

void reweight(std::vector<FramePair>& pairs, const std::map<int, CameraUnknowns>& cameras,
              const RefinedOptions& options) {
    for (FramePair& pair : pairs) {
        const CameraUnknowns& a = cameras.at(pair.cameraA);
        const CameraUnknowns& b = cameras.at(pair.cameraB);
        const Eigen::Matrix3d rA = rotationOf(a.q), rB = rotationOf(b.q);
        const Eigen::Map<const Eigen::Vector3d> tA(a.t), tB(b.t);
        pair.weights.resize(pair.joints.size());
        for (size_t j = 0; j < pair.joints.size(); ++j) {
            JointPair& joint = pair.joints[j];
            const JointTerms terms = jointTerms(joint, rA, tA, a.bias, rB, tB, b.bias, options);
            // information = L L^T, so W = L^T gives |W d|^2 = d^T information d.
            pair.weights[j] = Eigen::LLT<Eigen::Matrix3d>(terms.information).matrixL().transpose();
            joint.rayA = terms.rayA;
            joint.rayB = terms.rayB;
        }
    }
}

namespace {

// One least-squares solve of the summed pairs; biases free within their bounds or held.
bool solvePairs(const std::vector<PairMoments>& moments, std::map<int, CameraUnknowns>& cameras, int reference,
                const RefinedOptions& options, bool estimateBias, int maxIterations) {
    ceres::Problem problem;
    for (const PairMoments& pair : moments) {
        CameraUnknowns& a = cameras.at(pair.cameraA);
        CameraUnknowns& b = cameras.at(pair.cameraB);
        problem.AddResidualBlock(new PairMomentCost(pair), nullptr, a.q, a.t, &a.bias, b.q, b.t, &b.bias);
    }
    ceres::Manifold* manifold = new ceres::EigenQuaternionManifold;
    bool manifoldUsed = false;
    for (auto& [camera, unknowns] : cameras) {
        if (!problem.HasParameterBlock(unknowns.q)) continue;
        problem.SetManifold(unknowns.q, manifold);
        manifoldUsed = true;
        if (estimateBias) {
            problem.SetParameterLowerBound(&unknowns.bias, 0, options.minBias);
            problem.SetParameterUpperBound(&unknowns.bias, 0, options.maxBias);
        } else {
            problem.SetParameterBlockConstant(&unknowns.bias);
        }
        if (camera == reference) {
            problem.SetParameterBlockConstant(unknowns.q);
            problem.SetParameterBlockConstant(unknowns.t);
        }
    }
    if (!manifoldUsed) {
        delete manifold;
        return false;
    }
    ceres::Solver::Options solverOptions;
    solverOptions.linear_solver_type = ceres::DENSE_NORMAL_CHOLESKY;
    solverOptions.max_num_iterations = maxIterations;
    solverOptions.function_tolerance = 1e-7;
    ceres::Solver::Summary summary;
    ceres::Solve(solverOptions, &problem, &summary);
    return summary.IsSolutionUsable();
}

}  // namespace

bool solveLeastSquares(const std::vector<MomentPart>& parts, std::map<int, CameraUnknowns>& cameras, int reference,
                       int maxIterations) {
    const RefinedOptions plain;
    const std::vector<PairMoments> moments = sumMoments(parts, cameras, plain, MomentWeights::Identity, kSolveThreads);
    return solvePairs(moments, cameras, reference, plain, false, maxIterations);
}

bool solveLeastSquares(const FramePairList& pairs, std::map<int, CameraUnknowns>& cameras, int reference,
                       int maxIterations) {
    return solveLeastSquares({MomentPart{pairs}}, cameras, reference, maxIterations);
}

bool solveRefined(const std::vector<MomentPart>& parts, std::map<int, CameraUnknowns>& cameras, int reference,
                  const RefinedOptions& options, int rounds) {
    for (int round = 0; round < rounds; ++round) {
        const std::vector<PairMoments> moments =
            sumMoments(parts, cameras, options, MomentWeights::Refined, kSolveThreads);
        if (!solvePairs(moments, cameras, reference, options, options.estimateBias, options.maxIterations))
            return false;
    }
    return true;
}

bool solveRefined(const FramePairList& pairs, size_t begin, size_t end,
                  std::map<int, CameraUnknowns>& cameras, int reference, const RefinedOptions& options, int rounds) {
    return solveRefined({MomentPart{pairs, begin, end}}, cameras, reference, options, rounds);
}

bool solveRefined(const FramePairList& pairs, std::map<int, CameraUnknowns>& cameras, int reference,
                  const RefinedOptions& options, int rounds) {
    return solveRefined(pairs, 0, pairs.size(), cameras, reference, options, rounds);
}

}  // namespace calib
