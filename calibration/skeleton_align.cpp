// Skeleton multi-camera calibration: problem building, the two solves, the floor shift.
// The literal per-keypoint formulation is kept beside the fast one as its yardstick.
#include "calibration/skeleton_align.hpp"

#include <algorithm>
#include <array>
#include <set>
#include <chrono>
#include <string>
#include <vector>

#include <Eigen/Geometry>

#include "calibration/body_layout.hpp"
#include "calibration/keypoint_pairs.hpp"
#include "calibration/level_floor.hpp"
#include "calibration/pair_solver.hpp"
#include "calibration/pose_consensus.hpp"
#include "calibration/solve_record.hpp"
#include "lum/plane.hpp"

namespace {

constexpr int kMinimumResidualBlocks = 100;
// The sums are split the same way whatever the machine, so results never depend on it.
constexpr int kThreads = 2;
// Enough floor points and up samples before the floor height is trusted.
constexpr size_t kMinimumFloorSamples = 21;

// Classic stands its floor on the heels where they are among the keypoints it solves with
// (the 38-keypoint layout), on the ankles otherwise, and takes "up" from the pelvis (the
// left hip where the layout has no pelvis) to the neck.
struct FloorKeypoints {
    std::array<int, 2> feet{-1, -1};
    int upFrom = -1;
    int upTo = -1;
};

FloorKeypoints floorKeypoints(const lum::BodyData& body) {
    const calib::BodyLayout* layout = calib::layoutOf(body);
    if (!layout) return {};
    const bool heels = layout->heels[0] >= 0 && std::max(layout->heels[0], layout->heels[1]) < calib::kMaxKeypoints;
    return {heels ? layout->heels : layout->ankles, layout->pelvis >= 0 ? layout->pelvis : layout->hips[0], layout->neck};
}

lum::Transform toTransform(const SkeletonMulticameraCalibration::PoseStruct& pose) {
    return lum::Transform(lum::Orientation(float(pose.q[0]), float(pose.q[1]), float(pose.q[2]), float(pose.q[3])),
                          lum::Translation(float(pose.t[0]), float(pose.t[1]), float(pose.t[2])));
}

bool hasKeypoint(const lum::BodyData& body, int k) {
    return k >= 0 && size_t(k) < body.keypoint.size() && calib::isUsable(body.keypoint[k].x);
}

// Cameras with at least one keypoint pair; the rest have nothing a solve could place.
std::set<int> camerasSharingKeypoints(const std::vector<calib::CameraPairData>& pairs) {
    std::set<int> cameras;
    for (const calib::CameraPairData& pair : pairs) {
        if (pair.pairs.empty()) continue;
        cameras.insert(pair.cameraA);
        cameras.insert(pair.cameraB);
    }
    return cameras;
}

// The cameras joined to `reference` by shared keypoints, directly or through others. A
// group never seen together with the reference's has nothing tying it to that world: a
// solve would leave it wherever it started, which looks like a pose and is none.
std::set<int> linkedTo(int reference, const std::vector<calib::CameraPairData>& pairs) {
    std::set<int> linked{reference};
    for (bool grew = true; grew;) {
        grew = false;
        for (const calib::CameraPairData& pair : pairs) {
            if (pair.pairs.empty() || linked.count(pair.cameraA) == linked.count(pair.cameraB)) continue;
            linked.insert({pair.cameraA, pair.cameraB});
            grew = true;
        }
    }
    return linked;
}

Eigen::Isometry3d isometryOf(const calib::PoseStruct& pose) {
    Eigen::Isometry3d out = Eigen::Isometry3d::Identity();
    out.linear() = Eigen::Quaterniond(pose.q[3], pose.q[0], pose.q[1], pose.q[2]).normalized().toRotationMatrix();
    out.translation() = Eigen::Vector3d(pose.t[0], pose.t[1], pose.t[2]);
    return out;
}

calib::PoseStruct poseOf(const Eigen::Isometry3d& isometry) {
    const Eigen::Quaterniond q(isometry.linear());
    calib::PoseStruct pose;
    pose.q[0] = q.x();
    pose.q[1] = q.y();
    pose.q[2] = q.z();
    pose.q[3] = q.w();
    for (int i = 0; i < 3; ++i) pose.t[i] = isometry.translation()(i);
    return pose;
}

using WorldJoints = decltype(calib::SolverState::worldJoints);

// The stored frames with the joints Classic's floor steps carried into the world.
calib::Frames withWorldJoints(calib::Frames rewritten, const WorldJoints& world) {
    for (const auto& [ts, cameras] : world) {
        auto frame = rewritten.find(ts);
        if (frame == rewritten.end()) continue;
        for (const auto& [camera, joints] : cameras) {
            auto body = frame->second.find(camera);
            if (body == frame->second.end()) continue;
            const FloorKeypoints up = floorKeypoints(body->second);
            std::vector<lum::Vector3f>& keypoint = body->second.keypoint;
            const size_t from = size_t(up.upFrom), to = size_t(up.upTo);
            if (up.upFrom < 0 || up.upTo < 0 || std::max(from, to) >= keypoint.size()) continue;
            keypoint[from] = joints[0];
            keypoint[to] = joints[1];
        }
    }
    return rewritten;
}

bool bothPosed(const calib::FramePair& pair, const std::set<int>& posed) {
    return posed.count(pair.cameraA) && posed.count(pair.cameraB);
}

// The chunks' frame pairs between cameras that have a pose. Read in place when every pair
// qualifies (the usual case once all cameras are placed); otherwise the kept ones are
// copied into a part the list holds itself.
calib::FramePairList solvablePairs(const calib::FrameStore::Chunks& chunks, const std::set<int>& posed,
                                   int* leftOut) {
    calib::FramePairList list;
    bool everyPair = true;
    int dropped = 0;
    for (const auto& chunk : chunks) {
        dropped += chunk->jointsLeftOut();
        for (const calib::FramePair& pair : chunk->framePairs()) everyPair = everyPair && bothPosed(pair, posed);
    }
    if (leftOut) *leftOut = dropped;
    if (everyPair) {
        for (const auto& chunk : chunks) list.append(chunk->framePairs());
        return list;
    }
    auto copies = std::make_shared<std::vector<calib::FramePair>>();
    for (const auto& chunk : chunks)
        for (const calib::FramePair& pair : chunk->framePairs())
            if (bothPosed(pair, posed)) copies->push_back(pair);
    list.append(*copies);
    list.keep(copies);
    return list;
}

// Each chunk's frame pairs with the sums kept beside them; pairs with a camera left out of
// the solve are skipped by the sums.
std::vector<calib::MomentPart> momentParts(const calib::FrameStore::Chunks& chunks) {
    std::vector<calib::MomentPart> parts;
    parts.reserve(chunks.size());
    for (const auto& chunk : chunks) parts.push_back({chunk->framePairs(), 0, size_t(-1), &chunk->moments()});
    return parts;
}

}  // namespace

bool SkeletonMulticameraCalibration::calibrate() {
    return options.model == Model::Refined ? calibrateRefined() : calibrateClassic();
}

bool SkeletonMulticameraCalibration::calibrateClassic() {
    const auto start = std::chrono::steady_clock::now();
    std::map<int, PoseStruct>& poses = state.poses;
    const bool robust = !poses.empty();
    *state.weightByCovariance = false;
    // A camera new to the solve starts where its joints' agreement with a placed camera's
    // puts it rather than at the reference's pose, from which a camera facing another way
    // may settle in the wrong basin. One the agreement cannot place still starts there.
    std::map<int, Eigen::Isometry3d> placedPoses;
    for (const auto& [camera, pose] : poses) placedPoses[camera] = isometryOf(pose);
    if (placedPoses.size() < frames.cameras().size()) {
        const calib::ConsensusSeeds consensus =
            calib::seedCameras(calib::Frames(frames.begin(), frames.end()), placedPoses, options.consensus);
        for (const auto& [camera, seed] : consensus.seeds) poses[camera] = poseOf(seed);
    }
    for (int camera : frames.cameras())
        if (poses.find(camera) == poses.end()) poses[camera] = PoseStruct();
    state.framesAtLastCalibration = int(frames.added());
    // Frames the store thinned away leave no joints behind: the state is copied per solve.
    auto stored = frames.begin();
    for (auto joints = state.worldJoints.begin(); joints != state.worldJoints.end();) {
        while (stored != frames.end() && stored->first < joints->first) ++stored;
        if (stored == frames.end() || stored->first != joints->first) joints = state.worldJoints.erase(joints);
        else ++joints;
    }
    // Earlier floor steps carried some joints into the world; this solve reads them so.
    calib::Frames rewrittenFrames;
    if (!state.worldJoints.empty())
        rewrittenFrames = withWorldJoints(calib::Frames(frames.begin(), frames.end()), state.worldJoints);
    const calib::FrameParts seen = state.worldJoints.empty() ? frames.parts() : calib::FrameParts{&rewrittenFrames};

    auto record = std::make_shared<calib::SolveRecord>();
    std::vector<calib::CameraPairData> collected = calib::collectKeypointPairs(seen);
    int residualBlocks = 0;
    for (const calib::CameraPairData& pair : collected) residualBlocks += int(pair.pairs.size());
    if (residualBlocks < kMinimumResidualBlocks) return false;

    // The smallest camera that shares keypoints holds the world; one whose every keypoint
    // was refused has no say in it. Only its group is solved; the rest wait to be linked.
    const std::set<int> sharing = camerasSharingKeypoints(collected);
    const int referenceCamera = *sharing.begin();
    const std::set<int> linked = linkedTo(referenceCamera, collected);
    for (int camera : sharing)
        if (!linked.count(camera))
            record->unplaced[camera] = "no frame links it, directly or through other cameras, to camera " +
                                       std::to_string(referenceCamera);
    if (linked.size() < sharing.size()) {
        collected.erase(std::remove_if(collected.begin(), collected.end(),
                                       [&linked](const calib::CameraPairData& pair) {
                                           return !linked.count(pair.cameraA) || !linked.count(pair.cameraB);
                                       }),
                        collected.end());
        residualBlocks = 0;
        for (const calib::CameraPairData& pair : collected) residualBlocks += int(pair.pairs.size());
        if (residualBlocks < kMinimumResidualBlocks) return false;
    }
    auto pairs = std::make_shared<const std::vector<calib::CameraPairData>>(std::move(collected));

    record->pairs = pairs;
    record->before = poses;
    record->reference = referenceCamera;
    record->robust = robust;
    record->frames = int(frames.size());
    record->residualBlocks = residualBlocks;
    // A room sends one layout; the first body tells which.
    if (!seen.empty() && !seen.front()->empty() && !seen.front()->begin()->second.empty()) {
        const FloorKeypoints rewritten = floorKeypoints(seen.front()->begin()->second.begin()->second);
        record->rewrittenJoints = {rewritten.upFrom, rewritten.upTo};
    }

    ceres::Solver::Options solverOptions = getSolverOptions(options.maxIterations);
    std::unique_ptr<calib::PairProblem> fast;
    std::unique_ptr<ceres::Problem> literal;
    if (options.solver == Solver::Fast) {
        fast = std::make_unique<calib::PairProblem>(pairs, poses, robust, kThreads, referenceCamera);
    } else {
        literal = std::make_unique<ceres::Problem>();
        ceres::LossFunction* loss = robust ? getLoss() : nullptr;  // one, shared by every block
        calib::forEachKeypointPair(seen, [&](lum::Timestamp, int cameraA, int cameraB, Eigen::Vector3d a,
                                               Eigen::Vector3d b, Eigen::Matrix3d weight, int) {
            if (!linked.count(cameraA) || !linked.count(cameraB)) return;
            PoseStruct& poseA = poses[cameraA];
            PoseStruct& poseB = poses[cameraB];
            literal->AddResidualBlock(createResidualBlock(a, b, weight, state.weightByCovariance), loss, poseA.q,
                                      poseA.t, poseB.q, poseB.t);
        });
        ceres::Manifold* manifold = new ceres::EigenQuaternionManifold;
        for (int camera : frames.cameras())
            if (literal->HasParameterBlock(poses[camera].q)) literal->SetManifold(poses[camera].q, manifold);
        PoseStruct& reference = poses[referenceCamera];
        if (literal->HasParameterBlock(reference.q)) {
            literal->SetParameterBlockConstant(reference.q);
            literal->SetParameterBlockConstant(reference.t);
        }
    }
    ceres::Problem& problem = fast ? fast->problem() : *literal;

    ceres::Solver::Summary summary;
    ceres::Solve(solverOptions, &problem, &summary);
    if (summary.IsSolutionUsable()) {
        *state.weightByCovariance = true;
        if (fast) fast->evaluator().setWeighted(true);
        record->weighted = true;
        ceres::Solve(solverOptions, &problem, &summary);
    }
    record->usable = summary.IsSolutionUsable();
    record->after = poses;
    record->seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    state.lastSolve = record;
    if (!summary.IsSolutionUsable()) return false;

    std::map<int, lum::Transform> transforms;
    for (int camera : frames.cameras()) transforms[camera] = toTransform(poses[camera]);

    std::vector<lum::Vector3f> floor;
    size_t upSamples = 0;
    for (const calib::Frames* part : seen)
    for (const auto& [ts, bodies] : *part) {
        for (const auto& [camera, body] : bodies) {
            if (!linked.count(camera)) continue;  // its transform is no pose in this world
            const lum::Transform& transform = transforms[camera];
            const FloorKeypoints keypoints = floorKeypoints(body);
            for (int foot : keypoints.feet)
                if (hasKeypoint(body, foot)) floor.push_back(transform * body.keypoint[foot]);
            if (!hasKeypoint(body, keypoints.upFrom) || !hasKeypoint(body, keypoints.upTo)) continue;
            // On purpose: from here on these joints are read in world coordinates.
            state.worldJoints[ts][camera] = {transform * body.keypoint[keypoints.upFrom],
                                             transform * body.keypoint[keypoints.upTo]};
            ++upSamples;
        }
    }
    lum::Transform world;  // "optimized WORLD": only the floor height is corrected
    if (floor.size() >= kMinimumFloorSamples && upSamples >= kMinimumFloorSamples) {
        lum::Vector3f normal, mean, spread;
        plane::compute_pca(floor, normal, mean, spread);
        world.setTranslation(lum::Translation(0.f, -mean.y, 0.f));
    }

    state.calibratedPoses.clear();
    // A camera that shared no usable keypoint with the reference's group has no pose to report.
    for (int camera : frames.cameras())
        if (problem.HasParameterBlock(poses[camera].q))
            state.calibratedPoses[camera] = world * toTransform(poses[camera]);
    return true;
}

bool SkeletonMulticameraCalibration::calibrateRefined() {
    const auto start = std::chrono::steady_clock::now();
    std::map<int, PoseStruct>& poses = state.poses;
    std::map<int, double>& biases = state.biases;
    // A camera joins the solve only once where it stands is agreed: a solve started from
    // nowhere settles wherever its first steps lead and holds on to it.
    std::map<int, Eigen::Isometry3d> placedPoses;
    for (int camera : frames.cameras())
        if (poses.count(camera)) placedPoses[camera] = isometryOf(poses[camera]);
    // Seeding reads every frame, which only a camera not yet placed needs.
    calib::ConsensusSeeds consensus;
    if (placedPoses.size() < frames.cameras().size())
        consensus = calib::seedCameras(calib::Frames(frames.begin(), frames.end()), placedPoses, options.consensus);
    for (const auto& [camera, seed] : consensus.seeds) poses[camera] = poseOf(seed);
    state.framesAtLastCalibration = int(frames.added());

    // Each chunk's frame pairs were gathered when a solve first read it; frames never change.
    // Pairs with a camera still waiting to be placed stay out of the solve.
    std::set<int> posed;
    for (const auto& [camera, pose] : poses) posed.insert(camera);
    const calib::FramePairList framePairs = solvablePairs(frames.chunks(), posed, &state.keypointsLeftOut);
    size_t joints = 0;
    for (size_t i = 0; i < framePairs.size(); ++i) joints += framePairs[i].joints.size();
    // The same minimum as the classic model, which counts each joint pair twice.
    if (2 * int(joints) < kMinimumResidualBlocks) {
        // Cameras kept out until their pose is agreed still say why.
        if (!consensus.waiting.empty()) {
            auto waiting = std::make_shared<calib::SolveRecord>();
            waiting->chunks = frames.chunks();
            waiting->posed = posed;
            waiting->frames = int(frames.size());
            waiting->unplaced = consensus.waiting;
            state.lastSolve = waiting;
        }
        return false;
    }

    std::set<int> placed;  // every frame pair holds at least one joint
    for (size_t i = 0; i < framePairs.size(); ++i) placed.insert({framePairs[i].cameraA, framePairs[i].cameraB});
    const int reference = *placed.begin();
    auto record = std::make_shared<calib::SolveRecord>();
    record->chunks = frames.chunks();
    record->posed = posed;
    record->before = poses;
    record->reference = reference;
    record->robust = true;
    record->weighted = true;
    record->frames = int(frames.size());
    record->residualBlocks = 2 * int(joints);
    record->unplaced = consensus.waiting;

    std::map<int, calib::CameraUnknowns> unknowns;
    for (int camera : placed) {
        const PoseStruct& pose = poses[camera];
        calib::CameraUnknowns& u = unknowns[camera];
        std::copy(pose.q, pose.q + 4, u.q);
        std::copy(pose.t, pose.t + 3, u.t);
        auto bias = biases.find(camera);
        u.bias = options.refined.estimateBias && bias != biases.end() ? bias->second : 0.0;
    }
    // A camera new to the solve starts from its agreed seed: plain least squares settles it
    // in its basin, the refined rounds then settle weights and biases.
    const std::vector<calib::MomentPart> parts = momentParts(frames.chunks());
    const bool cold = std::any_of(placed.begin(), placed.end(), [&biases](int camera) { return !biases.count(camera); });
    if (cold) {
        if (!calib::solveLeastSquares(parts, unknowns, reference, options.maxIterations)) return false;
        // Where it got seeds the next solve even if the refined rounds fail.
        for (const auto& [camera, u] : unknowns) {
            std::copy(u.q, u.q + 4, poses[camera].q);
            std::copy(u.t, u.t + 3, poses[camera].t);
        }
    }
    for (const auto& [camera, u] : unknowns) record->biasesBefore[camera] = u.bias;
    const bool usable = calib::solveRefined(parts, unknowns, reference, options.refined, cold ? 3 : 1);
    record->usable = usable;
    if (usable) {
        for (const auto& [camera, u] : unknowns) {
            std::copy(u.q, u.q + 4, poses[camera].q);
            std::copy(u.t, u.t + 3, poses[camera].t);
            biases[camera] = u.bias;
        }
        record->biasesAfter = biases;
    }
    record->after = poses;
    record->seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    state.lastSolve = record;
    if (!usable) return false;

    Eigen::Isometry3d world = Eigen::Isometry3d::Identity();
    if (options.levelFloor) {
        const calib::FloorFit floor =
            calib::levelFloor(frames.parts(), unknowns, reference,
                              {options.refined.ankleHeight, options.refined.soleHeight});
        if (floor.found) world = floor.worldFromReference;
        record->floorRefused = floor.refused;
        record->floorRefusedSpanM = floor.refusedSpanM;
    }
    state.calibratedPoses.clear();
    for (int camera : placed) {
        const PoseStruct& pose = poses[camera];
        const Eigen::Quaterniond q(world.linear() * Eigen::Quaterniond(pose.q[3], pose.q[0], pose.q[1], pose.q[2]));
        const Eigen::Vector3d t = world * Eigen::Vector3d(pose.t[0], pose.t[1], pose.t[2]);
        PoseStruct leveled;
        leveled.q[0] = q.x();
        leveled.q[1] = q.y();
        leveled.q[2] = q.z();
        leveled.q[3] = q.w();
        std::copy(t.data(), t.data() + 3, leveled.t);
        state.calibratedPoses[camera] = toTransform(leveled);
    }
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

ceres::Solver::Options getSolverOptions(int maxIterations) {
    ceres::Solver::Options options;
    options.max_num_iterations = maxIterations;
    options.linear_solver_type = ceres::DENSE_NORMAL_CHOLESKY;
    return options;
}
