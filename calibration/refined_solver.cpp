// Refined skeleton calibration solve: one block per frame and camera pair, analytic
// tangent-space Jacobians, robust weights refreshed between plain least-squares rounds.
#include "calibration/refined_solver.hpp"

#include <algorithm>
#include <cmath>

#include <Eigen/Cholesky>
#include <Eigen/Geometry>

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

}  // namespace

std::vector<FramePair> collectFramePairs(const Frames& frames, int* dropped) {
    std::vector<FramePair> out;
    int skipped = 0;
    for (const auto& [ts, bodies] : frames) {
        for (auto a = bodies.begin(); a != bodies.end(); ++a) {
            for (auto b = std::next(a); b != bodies.end(); ++b) {
                FramePair pair;
                pair.cameraA = a->first;
                pair.cameraB = b->first;
                const size_t n = std::min({a->second.keypoint.size(), b->second.keypoint.size(), size_t(kMaxKeypoints)});
                for (size_t k = 0; k < n; ++k) {
                    const lum::Vector3f& pa = a->second.keypoint[k];
                    const lum::Vector3f& pb = b->second.keypoint[k];
                    JointPair joint;
                    joint.a = Eigen::Vector3d(pa.x, pa.y, pa.z);
                    joint.b = Eigen::Vector3d(pb.x, pb.y, pb.z);
                    // A NaN x marks a joint the tracker did not see; anything else non-finite is a fault.
                    if (!std::isfinite(pa.x) || !std::isfinite(pb.x)) continue;
                    if (!joint.a.allFinite() || !joint.b.allFinite()) {
                        ++skipped;
                        continue;
                    }
                    joint.covarianceA = covarianceOf(a->second, k);
                    joint.covarianceB = covarianceOf(b->second, k);
                    if (joint.a.norm() < 1e-6 || joint.b.norm() < 1e-6 || !usableCovariance(joint.covarianceA) ||
                        !usableCovariance(joint.covarianceB)) {
                        ++skipped;
                        continue;
                    }
                    joint.rayA = joint.a.normalized();
                    joint.rayB = joint.b.normalized();
                    joint.keypoint = int(k);
                    pair.joints.push_back(joint);
                }
                if (pair.joints.empty()) continue;
                pair.weights.assign(pair.joints.size(), Eigen::Matrix3d::Identity());
                out.push_back(std::move(pair));
            }
        }
    }
    if (dropped) *dropped = skipped;
    return out;
}

std::vector<CameraPairData> toCameraPairs(const std::vector<FramePair>& pairs) {
    std::map<std::pair<int, int>, CameraPairData> byPair;
    for (const FramePair& pair : pairs) {
        for (const bool swap : {false, true}) {
            CameraPairData& data = byPair[swap ? std::make_pair(pair.cameraB, pair.cameraA)
                                               : std::make_pair(pair.cameraA, pair.cameraB)];
            data.cameraA = swap ? pair.cameraB : pair.cameraA;
            data.cameraB = swap ? pair.cameraA : pair.cameraB;
            ++data.frames;
            for (const JointPair& joint : pair.joints)
                data.pairs.push_back({swap ? joint.b : joint.a, swap ? joint.a : joint.b, Eigen::Matrix3d::Identity(),
                                      Eigen::Matrix3d::Identity(), joint.keypoint});
        }
    }
    std::vector<CameraPairData> out;
    for (auto& [key, data] : byPair) out.push_back(std::move(data));
    return out;
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

void reweight(std::vector<FramePair>& pairs, const std::map<int, CameraUnknowns>& cameras,
              const RefinedOptions& options) {
    const Eigen::Matrix3d model = 2.0 * options.jointSigma * options.jointSigma * Eigen::Matrix3d::Identity();
    for (FramePair& pair : pairs) {
        const CameraUnknowns& a = cameras.at(pair.cameraA);
        const CameraUnknowns& b = cameras.at(pair.cameraB);
        const Eigen::Matrix3d rA = rotationOf(a.q), rB = rotationOf(b.q);
        const Eigen::Map<const Eigen::Vector3d> tA(a.t), tB(b.t);
        for (size_t j = 0; j < pair.joints.size(); ++j) {
            const JointPair& joint = pair.joints[j];
            const Eigen::Matrix3d covariance =
                rA * joint.covarianceA * rA.transpose() + rB * joint.covarianceB * rB.transpose() + model;
            const Eigen::LLT<Eigen::Matrix3d> llt(covariance.inverse());
            // information = L L^T, so W = L^T gives |W d|^2 = d^T information d.
            Eigen::Matrix3d w = llt.info() == Eigen::Success ? Eigen::Matrix3d(llt.matrixL().transpose())
                                                             : Eigen::Matrix3d(Eigen::Matrix3d::Identity() / options.jointSigma);
            const Eigen::Vector3d d = rA * (joint.a + a.bias * joint.rayA) + tA - rB * (joint.b + b.bias * joint.rayB) - tB;
            const double sigmas = (w * d).norm();
            if (sigmas > options.huberSigmas) w *= std::sqrt(options.huberSigmas / sigmas);
            pair.weights[j] = w;
        }
    }
}

bool solveRefined(std::vector<FramePair>& pairs, std::map<int, CameraUnknowns>& cameras, int reference,
                  const RefinedOptions& options, int rounds) {
    for (int round = 0; round < rounds; ++round) {
        reweight(pairs, cameras, options);
        ceres::Problem problem;
        for (const FramePair& pair : pairs) {
            CameraUnknowns& a = cameras.at(pair.cameraA);
            CameraUnknowns& b = cameras.at(pair.cameraB);
            problem.AddResidualBlock(new FramePairCost(pair), nullptr, a.q, a.t, &a.bias, b.q, b.t, &b.bias);
        }
        ceres::Manifold* manifold = new ceres::EigenQuaternionManifold;
        bool manifoldUsed = false;
        for (auto& [camera, unknowns] : cameras) {
            if (!problem.HasParameterBlock(unknowns.q)) continue;
            problem.SetManifold(unknowns.q, manifold);
            manifoldUsed = true;
            if (options.estimateBias) {
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
        solverOptions.max_num_iterations = options.maxIterations;
        solverOptions.function_tolerance = 1e-7;
        ceres::Solver::Summary summary;
        ceres::Solve(solverOptions, &problem, &summary);
        if (!summary.IsSolutionUsable()) return false;
    }
    return true;
}

}  // namespace calib
