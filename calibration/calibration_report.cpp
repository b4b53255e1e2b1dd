// Per-camera residuals and pose uncertainty of the last skeleton calibration solve.
// Uncertainty: Ceres' covariance of the final problem (Refined: its joints' plain distances), scaled by its residual variance.
#include "calibration/calibration_report.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include <Eigen/Geometry>

#include "calibration/pair_solver.hpp"
#include "calibration/refined_moments.hpp"
#include "calibration/skeleton_align.hpp"
#include "calibration/solve_record.hpp"

namespace {


// Sums of squared unweighted residuals (m^2) at the solve's start and end, and their count
// per camera, leaving out the joints the floor step rewrote, so the figures measure the
// cameras and not that rewrite. A joint is corrected for its camera's depth bias: pushed
// back out along its viewing ray.
struct ResidualSums {
    std::map<int, double> before, after;
    std::map<int, int> counts;
};

ResidualSums squaredResiduals(const calib::SolveRecord& record) {
    struct Side {
        const calib::PlacedCamera* start;
        const calib::PlacedCamera* end;
        double* before;
        double* after;
        int* count;
    };
    const std::map<int, calib::PlacedCamera> start = calib::placedCameras(record.before, record.biasesBefore);
    const std::map<int, calib::PlacedCamera> end = calib::placedCameras(record.after, record.biasesAfter);
    ResidualSums sums;
    auto side = [&](int camera) {
        return Side{&start.at(camera), &end.at(camera), &sums.before[camera], &sums.after[camera], &sums.counts[camera]};
    };
    auto squared = [](const calib::PlacedCamera& a, const Eigen::Vector3d& jointA, const Eigen::Vector3d& rayA,
                      const calib::PlacedCamera& b, const Eigen::Vector3d& jointB, const Eigen::Vector3d& rayB) {
        return ((a.rotation * (jointA + a.bias * rayA) + a.translation) -
                (b.rotation * (jointB + b.bias * rayB) + b.translation))
            .squaredNorm();
    };
    int lastA = -1, lastB = -1;
    Side a{}, b{};
    // A joint's residual is the same seen from either side.
    calib::forEachSolvedJoint(record, [&](int cameraA, int cameraB, const Eigen::Vector3d& jointA,
                                          const Eigen::Vector3d& jointB, int keypoint, int sides) {
        if (keypoint == record.rewrittenJoints[0] || keypoint == record.rewrittenJoints[1]) return;
        if (cameraA != lastA || cameraB != lastB) {
            a = side(cameraA);
            b = side(cameraB);
            lastA = cameraA;
            lastB = cameraB;
        }
        const Eigen::Vector3d rayA = jointA.normalized(), rayB = jointB.normalized();
        const double before = sides * squared(*a.start, jointA, rayA, *b.start, jointB, rayB);
        const double after = sides * squared(*a.end, jointA, rayA, *b.end, jointB, rayB);
        for (const Side& s : {a, b}) {
            *s.before += before;
            *s.after += after;
            *s.count += sides;
        }
    });
    return sums;
}

// Where each camera's rotation and translation blocks lie in a problem.
using PoseBlocks = std::map<int, std::pair<const double*, const double*>>;

// Ceres' covariance of the cameras' blocks in their tangent spaces, times the residual
// variance 2 cost / dof; false when Ceres finds the problem rank deficient.
bool scaledCovariances(ceres::Problem& problem, const PoseBlocks& cameras, double cost, double dof,
                       std::map<int, Eigen::Matrix3d>& rotation, std::map<int, Eigen::Matrix3d>& translation) {
    std::vector<std::pair<const double*, const double*>> wanted;
    for (const auto& [camera, blocks] : cameras) {
        wanted.push_back({blocks.first, blocks.first});
        wanted.push_back({blocks.second, blocks.second});
    }
    ceres::Covariance::Options options;
    options.algorithm_type = ceres::DENSE_SVD;
    ceres::Covariance covariance(options);
    if (!covariance.Compute(wanted, &problem)) return false;
    const double variance = dof > 0 ? 2.0 * cost / dof : std::numeric_limits<double>::quiet_NaN();
    for (const auto& [camera, blocks] : cameras) {
        Eigen::Matrix<double, 3, 3, Eigen::RowMajor> r, t;
        covariance.GetCovarianceBlockInTangentSpace(blocks.first, blocks.first, r.data());
        covariance.GetCovarianceBlockInTangentSpace(blocks.second, blocks.second, t.data());
        rotation[camera] = variance * r;
        translation[camera] = variance * t;
    }
    return true;
}

// Covariance of every camera's pose in the tangent space of the final solve, times the
// residual variance; false when the problem is not finite or Ceres finds it rank deficient.
// Classic: every keypoint pair both ways round, each joint counted twice.
bool classicCovariances(const calib::SolveRecord& record, std::map<int, Eigen::Matrix3d>& rotation,
                        std::map<int, Eigen::Matrix3d>& translation) {
    // Ceres orders the covariance's columns by the parameter blocks' addresses, and map nodes
    // lie wherever the heap put them, which would change the last bits of every sigma from
    // run to run. One array in serial order sums the same way every time.
    std::vector<SkeletonMulticameraCalibration::PoseStruct> blocks;
    for (const auto& [camera, pose] : record.after) blocks.push_back(pose);
    calib::PoseRefs poses;
    size_t next = 0;
    for (const auto& [camera, pose] : record.after) poses[camera] = &blocks[next++];
    for (const calib::CameraPairData& pair : *record.pairs)
        if (!poses.count(pair.cameraA) || !poses.count(pair.cameraB)) return false;
    calib::PairProblem fast(record.pairs, poses, record.robust, 2, record.reference);
    fast.evaluator().setWeighted(record.weighted);
    ceres::Problem& problem = fast.problem();
    PoseBlocks wanted;
    for (auto& [camera, pose] : poses)
        if (camera != record.reference && problem.HasParameterBlock(pose->q)) wanted[camera] = {pose->q, pose->t};
    calib::PairEvaluator& evaluator = fast.evaluator();
    evaluator.PrepareForEvaluation(true, true);
    double cost = 0;
    for (size_t i = 0; i < record.pairs->size(); ++i) {
        const calib::CompressedPair& block = evaluator.compressed(i);
        // The SVD below has no answer for a non-finite matrix; no figure beats a crash.
        if (!block.finite || !block.residual.allFinite() || !block.jacobian.allFinite()) return false;
        cost += 0.5 * block.residual.squaredNorm();
    }
    return scaledCovariances(problem, wanted, cost, 3.0 * record.residualBlocks - 6.0 * double(wanted.size()),
                             rotation, translation);
}

// Refined: the same plain distances, each joint once, from the sums its chunks keep (they
// never depend on the poses), at the poses the solve ended on and with the biases held, so
// only a few hundred numbers per camera pair are read however long the walk.
bool refinedCovariances(const calib::SolveRecord& record, std::map<int, Eigen::Matrix3d>& rotation,
                        std::map<int, Eigen::Matrix3d>& translation) {
    std::map<int, calib::CameraUnknowns> unknowns;
    for (const auto& [camera, pose] : record.after) {
        if (!record.posed.count(camera)) continue;
        std::copy(pose.q, pose.q + 4, unknowns[camera].q);
        std::copy(pose.t, pose.t + 3, unknowns[camera].t);
    }
    // Ceres orders the covariance's columns by the parameter blocks' addresses; one array
    // in serial order sums the same way every run, where map nodes would not.
    std::vector<calib::CameraUnknowns> blocks;
    for (const auto& [camera, u] : unknowns) blocks.push_back(u);
    std::map<int, calib::CameraUnknowns*> block;
    size_t next = 0;
    for (const auto& [camera, u] : unknowns) block[camera] = &blocks[next++];
    std::vector<calib::MomentPart> parts;
    for (const auto& chunk : record.chunks) parts.push_back({chunk->framePairs(), 0, size_t(-1), &chunk->moments()});
    size_t joints = 0;
    calib::forEachSolvedFramePair(record, [&joints](const calib::FramePair& pair) { joints += pair.joints.size(); });
    const std::vector<calib::PairMoments> moments =
        calib::sumMoments(parts, unknowns, calib::RefinedOptions(), calib::MomentWeights::Identity, 1);
    ceres::Problem problem;
    for (const calib::PairMoments& pair : moments) {
        calib::CameraUnknowns& a = *block.at(pair.cameraA);
        calib::CameraUnknowns& b = *block.at(pair.cameraB);
        problem.AddResidualBlock(new calib::PairMomentCost(pair), nullptr, a.q, a.t, &a.bias, b.q, b.t, &b.bias);
    }
    PoseBlocks wanted;
    for (auto& [camera, pointer] : block) {
        calib::CameraUnknowns& u = *pointer;
        if (!problem.HasParameterBlock(u.q)) continue;
        problem.SetManifold(u.q, new ceres::EigenQuaternionManifold);
        problem.SetParameterBlockConstant(&u.bias);
        if (camera == record.reference) {
            problem.SetParameterBlockConstant(u.q);
            problem.SetParameterBlockConstant(u.t);
        } else {
            wanted[camera] = {u.q, u.t};
        }
    }
    if (wanted.empty()) return false;
    double cost = 0;
    // The SVD below has no answer for a non-finite matrix; no figure beats a crash.
    if (!problem.Evaluate(ceres::Problem::EvaluateOptions(), &cost, nullptr, nullptr, nullptr) || !std::isfinite(cost))
        return false;
    return scaledCovariances(problem, wanted, cost, 3.0 * double(joints) - 6.0 * double(wanted.size()), rotation,
                             translation);
}

bool poseCovariances(const calib::SolveRecord& record, std::map<int, Eigen::Matrix3d>& rotation,
                     std::map<int, Eigen::Matrix3d>& translation) {
    return record.pairs ? classicCovariances(record, rotation, translation)
                        : refinedCovariances(record, rotation, translation);
}

}  // namespace

namespace {

CalibrationReport makeReport(const SkeletonMulticameraCalibration& calibration, bool withCovariance) {
    CalibrationReport report;
    const std::shared_ptr<const calib::SolveRecord> record = calibration.state.lastSolve;
    if (!record) return report;
    report.usable = record->usable;
    report.frames = record->frames;
    report.residualBlocks = record->residualBlocks;
    report.solveSeconds = record->seconds;
    report.floorRefused = record->floorRefused;
    report.floorRefusedSpanM = record->floorRefusedSpanM;
    report.unplaced = record->unplaced;

    ResidualSums residuals = squaredResiduals(*record);
    const calib::SolvedPairCounts shared = calib::countSolvedPairs(*record);
    std::map<int, Eigen::Matrix3d> rotation, translation;
    const bool haveCovariance = withCovariance && poseCovariances(*record, rotation, translation);

    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (const auto& [camera, blockCount] : shared.blocks) {
        CameraCalibrationReport entry;
        entry.camera = camera;
        entry.residualBlocks = blockCount;
        const int n = residuals.counts[camera];
        entry.rmsBeforeMm = n > 0 ? 1000.0 * std::sqrt(residuals.before[camera] / n) : nan;
        entry.rmsAfterMm = n > 0 ? 1000.0 * std::sqrt(residuals.after[camera] / n) : nan;
        if (camera != record->reference) {
            // The manifold's tangent step d turns by 2|d|.
            entry.rotationSigmaDeg = haveCovariance ? 2.0 * std::sqrt(rotation[camera].trace()) * 180.0 / M_PI : nan;
            entry.translationSigmaMm = haveCovariance ? 1000.0 * std::sqrt(translation[camera].trace()) : nan;
        }
        for (const auto& [cameras, frames] : shared.frames)
            if (cameras.first == camera) entry.framesSharedWith[cameras.second] = frames;
        report.cameras.push_back(entry);
    }
    return report;
}

}  // namespace

CalibrationReport makeCalibrationReport(const SkeletonMulticameraCalibration& calibration) {
    return makeReport(calibration, true);
}

CalibrationReport makeResidualReport(const SkeletonMulticameraCalibration& calibration) {
    return makeReport(calibration, false);
}
