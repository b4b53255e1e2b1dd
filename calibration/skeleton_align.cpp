// Skeleton multi-camera calibration: problem building, the two solves, the floor shift.
// The literal per-keypoint formulation is kept beside the fast one as its yardstick.
#include "calibration/skeleton_align.hpp"

#include <chrono>
#include <vector>

#include "calibration/keypoint_pairs.hpp"
#include "calibration/pair_solver.hpp"
#include "calibration/solve_record.hpp"
#include "lum/plane.hpp"

namespace {

constexpr int kMinimumResidualBlocks = 100;
// The sums are split the same way whatever the machine, so results never depend on it.
constexpr int kThreads = 2;
// Enough floor points and up samples before the floor height is trusted.
constexpr size_t kMinimumFloorSamples = 21;

struct FloorKeypoints {
    std::vector<int> feet;
    int upFrom = -1;
    int upTo = -1;
};

FloorKeypoints floorKeypoints(int bodyFormat) {
    switch (bodyFormat) {
    case 0: return {{13, 10}, 11, 1};
    case 1: return {{20, 24}, 0, 3};
    case 2: return {{28, 29}, 0, 4};
    default: return {};
    }
}

lum::Transform toTransform(const SkeletonMulticameraCalibration::PoseStruct& pose) {
    return lum::Transform(lum::Orientation(float(pose.q[0]), float(pose.q[1]), float(pose.q[2]), float(pose.q[3])),
                          lum::Translation(float(pose.t[0]), float(pose.t[1]), float(pose.t[2])));
}

bool hasKeypoint(const lum::BodyData& body, int k) {
    return k >= 0 && size_t(k) < body.keypoint.size() && calib::isUsable(body.keypoint[k].x);
}

}  // namespace

SkeletonMulticameraCalibration::SkeletonMulticameraCalibration()
    : weightByCovariance(std::make_shared<bool>(false)) {}

SkeletonMulticameraCalibration::~SkeletonMulticameraCalibration() = default;

SkeletonMulticameraCalibration::SkeletonMulticameraCalibration(const SkeletonMulticameraCalibration& other)
    : frames(other.frames), cameraSeen(other.cameraSeen), calibratedPoses(other.calibratedPoses),
      poses(other.poses), bodyFormat(other.bodyFormat), lastTimestamp(other.lastTimestamp),
      isCollecting(other.isCollecting), framesAtLastCalibration(other.framesAtLastCalibration),
      weightByCovariance(std::make_shared<bool>(*other.weightByCovariance)), solver(other.solver),
      lastSolve(other.lastSolve), droppedKeypoints(other.droppedKeypoints) {}

SkeletonMulticameraCalibration& SkeletonMulticameraCalibration::operator=(const SkeletonMulticameraCalibration& other) {
    if (this == &other) return *this;
    frames = other.frames;
    cameraSeen = other.cameraSeen;
    calibratedPoses = other.calibratedPoses;
    poses = other.poses;
    bodyFormat = other.bodyFormat;
    lastTimestamp = other.lastTimestamp;
    isCollecting = other.isCollecting;
    framesAtLastCalibration = other.framesAtLastCalibration;
    weightByCovariance = std::make_shared<bool>(*other.weightByCovariance);
    solver = other.solver;
    lastSolve = other.lastSolve;
    droppedKeypoints = other.droppedKeypoints;
    return *this;
}

void SkeletonMulticameraCalibration::addSkeletonData(lum::Timestamp ts, std::map<int, lum::BodyData>& bodies) {
    for (const auto& [camera, body] : bodies) {
        lum::BodyData& stored = frames[ts][camera] = body;
        calib::dropUnusableKeypoints(stored, droppedKeypoints);
        cameraSeen[camera] = true;
    }
    lastTimestamp = ts;
}

bool SkeletonMulticameraCalibration::calibrate() {
    const auto start = std::chrono::steady_clock::now();
    const bool robust = !poses.empty();
    *weightByCovariance = false;
    for (const auto& [camera, seen] : cameraSeen)
        if (poses.find(camera) == poses.end()) poses[camera] = PoseStruct();
    framesAtLastCalibration = int(frames.size());

    auto record = std::make_shared<calib::SolveRecord>();
    auto pairs = std::make_shared<const std::vector<calib::CameraPairData>>(calib::collectKeypointPairs(frames));
    int residualBlocks = 0;
    for (const calib::CameraPairData& pair : *pairs) residualBlocks += int(pair.pairs.size());
    if (residualBlocks < kMinimumResidualBlocks) return false;

    record->pairs = pairs;
    record->before = poses;
    record->reference = poses.begin()->first;
    record->robust = robust;
    record->frames = int(frames.size());
    record->residualBlocks = residualBlocks;
    const FloorKeypoints rewritten = floorKeypoints(bodyFormat);
    record->rewrittenJoints = {rewritten.upFrom, rewritten.upTo};

    ceres::Problem::Options problemOptions;
    ceres::Solver::Options options = getSolverOptions();
    std::unique_ptr<calib::PairEvaluator> evaluator;
    if (solver == Solver::Fast) {
        std::vector<calib::PairPoses> pairPoses;
        for (const calib::CameraPairData& pair : *pairs) {
            PoseStruct& a = poses[pair.cameraA];
            PoseStruct& b = poses[pair.cameraB];
            pairPoses.push_back({a.q, a.t, b.q, b.t});
        }
        evaluator = std::make_unique<calib::PairEvaluator>(pairs, std::move(pairPoses), robust, kThreads);
        problemOptions.evaluation_callback = evaluator.get();
    }
    ceres::Problem problem(problemOptions);
    if (solver == Solver::Fast) {
        for (size_t i = 0; i < pairs->size(); ++i) {
            PoseStruct& a = poses[(*pairs)[i].cameraA];
            PoseStruct& b = poses[(*pairs)[i].cameraB];
            problem.AddResidualBlock(evaluator->makeCostFunction(i), nullptr, a.q, a.t, b.q, b.t);
        }
    } else {
        ceres::LossFunction* loss = robust ? getLoss() : nullptr;  // one, shared by every block
        calib::forEachKeypointPair(frames, [&](lum::Timestamp, int cameraA, int cameraB, Eigen::Vector3d a,
                                               Eigen::Vector3d b, Eigen::Matrix3d weight, int) {
            PoseStruct& poseA = poses[cameraA];
            PoseStruct& poseB = poses[cameraB];
            problem.AddResidualBlock(createResidualBlock(a, b, weight, weightByCovariance), loss, poseA.q,
                                     poseA.t, poseB.q, poseB.t);
        });
    }

    ceres::Manifold* manifold = new ceres::EigenQuaternionManifold;
    bool manifoldUsed = false;
    for (const auto& [camera, seen] : cameraSeen) {
        if (!problem.HasParameterBlock(poses[camera].q)) continue;
        problem.SetManifold(poses[camera].q, manifold);
        manifoldUsed = true;
    }
    if (!manifoldUsed) delete manifold;
    // The smallest camera that shares keypoints holds the world; one whose every keypoint
    // was refused has no say in it.
    for (auto& [camera, reference] : poses) {
        if (!problem.HasParameterBlock(reference.q)) continue;
        problem.SetParameterBlockConstant(reference.q);
        problem.SetParameterBlockConstant(reference.t);
        record->reference = camera;
        break;
    }

    ceres::Solver::Summary summary;
    ceres::Solve(options, &problem, &summary);
    if (summary.IsSolutionUsable()) {
        *weightByCovariance = true;
        if (evaluator) evaluator->setWeighted(true);
        record->weighted = true;
        ceres::Solve(options, &problem, &summary);
    }
    record->usable = summary.IsSolutionUsable();
    record->after = poses;
    record->seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    lastSolve = record;
    if (!summary.IsSolutionUsable()) return false;

    std::map<int, lum::Transform> transforms;
    for (const auto& [camera, seen] : cameraSeen) transforms[camera] = toTransform(poses[camera]);

    const FloorKeypoints keypoints = floorKeypoints(bodyFormat);
    std::vector<lum::Vector3f> floor;
    size_t upSamples = 0;
    for (auto& [ts, bodies] : frames) {
        for (auto& [camera, body] : bodies) {
            const lum::Transform& transform = transforms[camera];
            for (int foot : keypoints.feet)
                if (hasKeypoint(body, foot)) floor.push_back(transform * body.keypoint[foot]);
            if (!hasKeypoint(body, keypoints.upFrom) || !hasKeypoint(body, keypoints.upTo)) continue;
            // Written back on purpose: from here on these stored joints are in world coordinates.
            lum::Vector3f& from = body.keypoint[keypoints.upFrom];
            lum::Vector3f& to = body.keypoint[keypoints.upTo];
            from = transform * from;
            to = transform * to;
            ++upSamples;
        }
    }
    lum::Transform world;  // "optimized WORLD": only the floor height is corrected
    if (floor.size() >= kMinimumFloorSamples && upSamples >= kMinimumFloorSamples) {
        lum::Vector3f normal, mean, spread;
        plane::compute_pca(floor, normal, mean, spread);
        world.setTranslation(lum::Translation(0.f, -mean.y, 0.f));
    }

    calibratedPoses.clear();
    // A camera that shared no usable keypoint with another has no pose to report.
    for (const auto& [camera, seen] : cameraSeen)
        if (problem.HasParameterBlock(poses[camera].q)) calibratedPoses[camera] = world * toTransform(poses[camera]);
    return true;
}

ceres::CostFunction* createResidualBlock(Eigen::Vector3d& pointA, Eigen::Vector3d& pointB,
                                         Eigen::Matrix3d& weight, std::shared_ptr<bool>& useWeight) {
    return new ceres::AutoDiffCostFunction<lum::KeypointPairCameraProjectionCostFunction, 3, 4, 3, 4, 3>(
        new lum::KeypointPairCameraProjectionCostFunction(pointA, pointB, weight, useWeight));
}

ceres::LossFunction* getLoss() {
    return new ceres::HuberLoss(1.0);
}

ceres::Solver::Options getSolverOptions() {
    ceres::Solver::Options options;
    options.linear_solver_type = ceres::DENSE_NORMAL_CHOLESKY;
    return options;
}
