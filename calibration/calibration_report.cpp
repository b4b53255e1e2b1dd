// Per-camera residuals and pose uncertainty of the last skeleton calibration solve.
// Uncertainty: Ceres' covariance of the final (weighted, robust) problem, scaled by its residual variance.
#include "calibration/calibration_report.hpp"

#include <cmath>
#include <limits>

#include <Eigen/Geometry>

#include "calibration/pair_solver.hpp"
#include "calibration/skeleton_align.hpp"
#include "calibration/solve_record.hpp"

namespace {

using Poses = std::map<int, SkeletonMulticameraCalibration::PoseStruct>;

// Sum of squared unweighted residuals (m^2) and their count per camera, leaving out the
// joints the floor step rewrote, so the figure measures the cameras and not that rewrite.
void squaredResiduals(const calib::SolveRecord& record, const Poses& poses, const std::map<int, double>& biases,
                      std::map<int, double>& sums, std::map<int, int>& counts) {
    // A joint corrected for its camera's depth bias: pushed back out along its viewing ray.
    auto corrected = [&biases](int camera, const Eigen::Vector3d& joint) -> Eigen::Vector3d {
        auto bias = biases.find(camera);
        return bias == biases.end() ? joint : Eigen::Vector3d(joint + bias->second * joint.normalized());
    };
    for (const calib::CameraPairData& pair : *record.pairs) {
        const auto& a = poses.at(pair.cameraA);
        const auto& b = poses.at(pair.cameraB);
        const Eigen::Quaterniond qA = Eigen::Map<const Eigen::Quaterniond>(a.q);
        const Eigen::Quaterniond qB = Eigen::Map<const Eigen::Quaterniond>(b.q);
        const Eigen::Vector3d tA(a.t[0], a.t[1], a.t[2]), tB(b.t[0], b.t[1], b.t[2]);
        for (const calib::KeypointPair& p : pair.pairs) {
            if (p.keypoint == record.rewrittenJoints[0] || p.keypoint == record.rewrittenJoints[1]) continue;
            const Eigen::Vector3d jointA = corrected(pair.cameraA, p.a), jointB = corrected(pair.cameraB, p.b);
            const double squared = (jointA - qA.conjugate() * (qB * jointB + tB - tA)).squaredNorm();
            for (int camera : {pair.cameraA, pair.cameraB}) {
                sums[camera] += squared;
                ++counts[camera];
            }
        }
    }
}

// Covariance of every camera's pose in the tangent space of the final solve, times the
// residual variance; false when the problem is not finite or Ceres finds it rank deficient.
bool poseCovariances(const calib::SolveRecord& record, std::map<int, Eigen::Matrix3d>& rotation,
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
    calib::PairProblem fast(record.pairs.get(), poses, record.robust, 2, record.reference);
    fast.evaluator().setWeighted(record.weighted);
    ceres::Problem& problem = fast.problem();
    std::vector<std::pair<const double*, const double*>> wanted;
    for (auto& [camera, pose] : poses) {
        if (camera == record.reference || !problem.HasParameterBlock(pose->q)) continue;
        wanted.push_back({pose->q, pose->q});
        wanted.push_back({pose->t, pose->t});
    }
    calib::PairEvaluator& evaluator = fast.evaluator();
    evaluator.PrepareForEvaluation(true, true);
    double cost = 0;
    for (size_t i = 0; i < record.pairs->size(); ++i) {
        const calib::CompressedPair& block = evaluator.compressed(i);
        // The SVD below has no answer for a non-finite matrix; no figure beats a crash.
        if (!block.finite || !block.residual.allFinite() || !block.jacobian.allFinite()) return false;
        cost += 0.5 * block.residual.squaredNorm();
    }

    ceres::Covariance::Options options;
    options.algorithm_type = ceres::DENSE_SVD;
    ceres::Covariance covariance(options);
    if (!covariance.Compute(wanted, &problem)) return false;
    const double dof = 3.0 * record.residualBlocks - 6.0 * double(wanted.size() / 2);
    const double variance = dof > 0 ? 2.0 * cost / dof : std::numeric_limits<double>::quiet_NaN();
    for (auto& [camera, pose] : poses) {
        if (camera == record.reference || !problem.HasParameterBlock(pose->q)) continue;
        Eigen::Matrix<double, 3, 3, Eigen::RowMajor> r, t;
        covariance.GetCovarianceBlockInTangentSpace(pose->q, pose->q, r.data());
        covariance.GetCovarianceBlockInTangentSpace(pose->t, pose->t, t.data());
        rotation[camera] = variance * r;
        translation[camera] = variance * t;
    }
    return true;
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

    std::map<int, double> before, after;
    std::map<int, int> counts, unused;
    squaredResiduals(*record, record->before, record->biasesBefore, before, counts);
    squaredResiduals(*record, record->after, record->biasesAfter, after, unused);
    std::map<int, int> blocks;
    for (const calib::CameraPairData& pair : *record->pairs) {
        blocks[pair.cameraA] += int(pair.pairs.size());
        blocks[pair.cameraB] += int(pair.pairs.size());
    }
    std::map<int, Eigen::Matrix3d> rotation, translation;
    const bool haveCovariance = withCovariance && poseCovariances(*record, rotation, translation);

    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (const auto& [camera, blockCount] : blocks) {
        CameraCalibrationReport entry;
        entry.camera = camera;
        entry.residualBlocks = blockCount;
        const int n = counts[camera];
        entry.rmsBeforeMm = n > 0 ? 1000.0 * std::sqrt(before[camera] / n) : nan;
        entry.rmsAfterMm = n > 0 ? 1000.0 * std::sqrt(after[camera] / n) : nan;
        if (camera != record->reference) {
            // The manifold's tangent step d turns by 2|d|.
            entry.rotationSigmaDeg = haveCovariance ? 2.0 * std::sqrt(rotation[camera].trace()) * 180.0 / M_PI : nan;
            entry.translationSigmaMm = haveCovariance ? 1000.0 * std::sqrt(translation[camera].trace()) : nan;
        }
        for (const calib::CameraPairData& pair : *record->pairs)
            if (pair.cameraA == camera) entry.framesSharedWith[pair.cameraB] = pair.frames;
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
