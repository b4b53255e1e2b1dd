// Tests of the refined calibration: its residual and per-pair sums, recovery of poses and
// biases, a level floor under a tilted reference, clock alignment, and bad keypoints.
#include <gtest/gtest.h>

#include <utility>

#include <ceres/gradient_checker.h>

#include "calibration/calibration_report.hpp"
#include "calibration/frame_assembler.hpp"
#include "calibration/refined_moments.hpp"
#include "calibration/refined_solver.hpp"
#include "calibration/skeleton_align.hpp"
#include "calibration/solve_record.hpp"
#include "testing/synthetic_room.hpp"

namespace {

using Calibration = SkeletonMulticameraCalibration;

// Noise-free joints, all of them seen, each pulled `bias` toward its camera.
synthetic::Options exact(int cameras, double bias) {
    synthetic::Options options;
    options.cameras = cameras;
    options.noise = 0;
    options.missing = 0;
    options.bias = bias;
    options.everythingVisible = true;
    return options;
}

Calibration refinedCalibration() {
    Calibration calibration;
    calibration.options.model = Calibration::Model::Refined;
    calibration.options.refined.ankleHeight = 0.08;  // where the synthetic skeleton has its ankles
    return calibration;
}

TEST(RefinedResidual, MatchesHandComputedValuesAndDerivatives) {
    calib::FramePair pair;
    calib::JointPair joint;
    joint.a = Eigen::Vector3d(0, 0, -2);
    joint.b = Eigen::Vector3d(0, 0, -3);
    joint.rayA = joint.a.normalized();
    joint.rayB = joint.b.normalized();
    pair.joints = {joint};
    pair.weights = {Eigen::Vector3d(1, 2, 3).asDiagonal()};
    calib::FramePairCost cost(pair);
    // A at the origin; B turned 90 degrees about y at (1, 0, 0): its (0, 0, -3) is (-2, 0, 0).
    // Bias 0.5 moves A's joint to (0, 0, -2.5) and 0.25 moves B's to (-2.25, 0, 0).
    const double s = std::sqrt(0.5);
    double qA[4] = {0, 0, 0, 1}, tA[3] = {0, 0, 0}, bA = 0.5, qB[4] = {0, s, 0, s}, tB[3] = {1, 0, 0}, bB = 0.25;
    const double* parameters[6] = {qA, tA, &bA, qB, tB, &bB};
    double r[3];
    ASSERT_TRUE(cost.Evaluate(parameters, r, nullptr));
    EXPECT_NEAR(r[0], 2.25, 1e-12);
    EXPECT_NEAR(r[1], 0, 1e-12);
    EXPECT_NEAR(r[2], 3 * -2.5, 1e-12);

    // A full weight: structural zeros would compare rounding noise with rounding noise.
    pair.weights[0] << 1, 0.2, -0.3, 0.1, 2, 0.4, -0.2, 0.5, 3;
    ceres::EigenQuaternionManifold quaternion;
    const std::vector<const ceres::Manifold*> manifolds = {&quaternion, nullptr, nullptr, &quaternion, nullptr, nullptr};
    ceres::GradientChecker checker(&cost, &manifolds, ceres::NumericDiffOptions());
    Eigen::Quaterniond q1(Eigen::AngleAxisd(0.4, Eigen::Vector3d(1, 2, 2).normalized()));
    Eigen::Quaterniond q2(Eigen::AngleAxisd(1.1, Eigen::Vector3d(-3, 0.5, 1).normalized()));
    double t1[3] = {0.2, 0.7, -0.4}, t2[3] = {0.3, -1, 2}, b1 = 0.03, b2 = -0.01;
    const double* probe[6] = {q1.coeffs().data(), t1, &b1, q2.coeffs().data(), t2, &b2};
    EXPECT_TRUE(checker.Probe(probe, 1e-6, nullptr));
}

// Every camera's bias is observable, the reference camera's too: a radial shift of what
// one camera sees is no rigid motion, so no pose can absorb it.
TEST(RefinedCalibration, RecoversPosesAndEveryBiasAndLevelsTheFloor) {
    synthetic::Room room(exact(4, 0.04));
    Calibration calibration = refinedCalibration();
    room.feed(calibration, 60);
    ASSERT_TRUE(calibration.calibrate());
    const auto worst = synthetic::worstError(room, calibration);
    EXPECT_LT(worst.first, 0.01);
    EXPECT_LT(worst.second, 0.5);
    for (const auto& [camera, bias] : calibration.state.biases) EXPECT_NEAR(bias, 0.04, 1e-3) << camera;
    // The report's residual is what is left after the corrections: with noiseless joints,
    // nothing, where the same joints seen from two sides lie apart by the pull, even at the
    // rigid fits the solve starts from.
    for (const CameraCalibrationReport& camera : makeCalibrationReport(calibration).cameras) {
        EXPECT_LT(camera.rmsAfterMm, 1.0) << camera.camera;
        EXPECT_GT(camera.rmsBeforeMm, 5.0) << camera.camera;
    }

    // The reference camera looks down at the room, yet the world's y is the true vertical,
    // the floor at 0 and every camera at its true height.
    for (const synthetic::Camera& camera : room.cameras) {
        const lum::Transform& pose = calibration.state.calibratedPoses.at(camera.id);
        EXPECT_NEAR(pose.getTranslation().y, camera.centre.y(), 0.005) << camera.id;
        const lum::Vector3f up = pose.getRotationMatrix() * lum::Vector3f(0, 1, 0);
        const Eigen::Vector3d trueUp = camera.rotation * Eigen::Vector3d::UnitY();
        EXPECT_NEAR(up.y, trueUp.y(), 1e-3) << camera.id;
    }
    // Nothing of the stored frames was rewritten, and a warm re-solve stays put.
    const Calibration before = calibration;
    ASSERT_TRUE(calibration.calibrate());
    EXPECT_EQ(calibration.frames.begin()->second.begin()->second.keypoint[1],
              before.frames.begin()->second.begin()->second.keypoint[1]);
    EXPECT_LT(synthetic::worstError(room, calibration).second, 0.5);
}

TEST(RefinedCalibration, NoisyBiasedRoomBeatsTheClassicModel) {
    synthetic::Options options;
    options.cameras = 4;
    options.seed = 5;
    synthetic::Room room(options);
    Calibration refined = refinedCalibration();
    Calibration classic;
    room.feed(refined, 120);
    classic.frames = refined.frames;
    ASSERT_TRUE(refined.calibrate());
    ASSERT_TRUE(classic.calibrate());
    const auto worst = synthetic::worstError(room, refined);
    EXPECT_LT(worst.first, 0.3);
    EXPECT_LT(worst.second, 15.0);
    EXPECT_LT(worst.second, 0.5 * synthetic::worstError(room, classic).second);
}

// A walker seen by cameras 30 ms apart: once the assembler brings every body to one
// instant, the calibration is as good as with synchronised cameras.
TEST(RefinedCalibration, ClockAlignedFramesMatchSynchronisedOnes) {
    synthetic::Room room(exact(3, 0));
    auto solve = [&](double offset, bool align) {
        Calibration calibration = refinedCalibration();
        calib::FrameAssembler assembler;
        for (int frame = 0; frame < 1200; ++frame) {
            for (size_t c = 0; c < room.cameras.size(); ++c) {
                const double t = frame / 30.0 + offset * double(c);
                lum::Bodies bodies;
                bodies.timestamp = uint64_t(1e9 + t * 1e9);
                bodies.body_list.push_back(room.observe(t).at(room.cameras[c].id));
                assembler.addBodies(room.cameras[c].id, bodies);
            }
            if (frame % 15 != 14) continue;
            std::map<int, lum::BodyData> frameBodies;
            if (align) {
                const std::vector<calib::CameraBodies> frames = assembler.assemble();
                if (frames.empty()) continue;
                frameBodies = frames.front();
            } else {
                // Each camera's newest body, as a loop without alignment pairs them.
                for (size_t c = 0; c < room.cameras.size(); ++c)
                    frameBodies[room.cameras[c].id] = room.observe(frame / 30.0 + offset * double(c)).at(room.cameras[c].id);
            }
            calibration.frames.add(lum::Timestamp(uint64_t(1e9 + frame * 1e9 / 30.0)), frameBodies);
        }
        EXPECT_TRUE(calibration.calibrate());
        return synthetic::worstError(room, calibration).second;
    };
    EXPECT_LT(solve(0.0, false), 0.5);
    EXPECT_GT(solve(0.030, false), 10.0);
    EXPECT_LT(solve(0.030, true), 2.0);
}

// A joint with a NaN coordinate or a covariance that is no covariance is refused at the
// door and counted; it neither breaks this solve nor any later one.
TEST(RefinedCalibration, BadKeypointsAreDroppedAndCounted) {
    synthetic::Room room(exact(3, 0.03));
    Calibration calibration = refinedCalibration();
    bool first = true;
    room.feed(calibration, 40, 0.0, [&](int, lum::BodyData& body) {
        if (!std::exchange(first, false)) return;
        body.keypoint[2].y = NAN;
        body.keypoint_covariances[3] = {1, 2, 0, 1, 0, 1};  // indefinite
        body.keypoint_covariances[4] = {NAN, 0, 0, 1, 0, 1};
    });
    ASSERT_TRUE(calibration.calibrate());
    EXPECT_EQ(calibration.frames.droppedKeypoints().total(), 3);
    room.feed(calibration, 10, 40);
    ASSERT_TRUE(calibration.calibrate());
    EXPECT_LT(synthetic::worstError(room, calibration).second, 0.5);
}

// The per-pair sums stand for every joint: the same cost, gradient and Gauss-Newton matrix
// as the literal blocks of all the pair's frames, away from the solution and with Huber
// weights in play.
TEST(RefinedMoments, MatchTheLiteralBlocksOfEveryFrame) {
    synthetic::Options options = exact(3, 0.03);
    options.noise = 3.0;
    synthetic::Room room(options);
    Calibration store = refinedCalibration();
    room.feed(store, 40);
    std::vector<calib::FramePair> pairs = calib::collectFramePairs(calib::Frames(store.frames.begin(), store.frames.end()));
    std::map<int, calib::CameraUnknowns> cameras;
    for (size_t i = 0; i < room.cameras.size(); ++i) {
        const Eigen::Isometry3d truth = room.relativeTruth(i);
        const Eigen::Quaterniond q(Eigen::AngleAxisd(0.02 * double(i), Eigen::Vector3d(1, 2, 3).normalized()) *
                                   Eigen::Quaterniond(truth.linear()));
        calib::CameraUnknowns& u = cameras[room.cameras[i].id];
        std::copy(q.coeffs().data(), q.coeffs().data() + 4, u.q);
        for (int k = 0; k < 3; ++k) u.t[k] = truth.translation()(k) + 0.01 * double(i + k);
        u.bias = 0.01 * double(i);
    }
    calib::RefinedOptions refined;
    refined.huberSigmas = 1.0;  // several joints beyond it
    calib::reweight(pairs, cameras, refined);
    const std::vector<calib::PairMoments> moments =
        calib::sumMoments(pairs, 0, pairs.size(), cameras, refined, calib::MomentWeights::Refined, 2);
    ASSERT_EQ(moments.size(), 3u);

    using Matrix16 = Eigen::Matrix<double, 16, 16>;
    using Vector16 = Eigen::Matrix<double, 16, 1>;
    // Cost, J^T J and J^T r of one cost function over the six blocks.
    auto normal = [](const ceres::CostFunction& cost, double const* const* parameters, double& value, Matrix16& jtj,
                     Vector16& jtr) {
        const int rows = cost.num_residuals();
        Eigen::VectorXd r(rows);
        Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor> blocks[6];
        double* jacobians[6];
        const int sizes[6] = {4, 3, 1, 4, 3, 1};
        for (int b = 0; b < 6; ++b) {
            blocks[b].resize(rows, sizes[b]);
            jacobians[b] = blocks[b].data();
        }
        ASSERT_TRUE(cost.Evaluate(parameters, r.data(), jacobians));
        Eigen::MatrixXd j(rows, 16);
        for (int b = 0, col = 0; b < 6; col += sizes[b++]) j.middleCols(col, sizes[b]) = blocks[b];
        value += 0.5 * r.squaredNorm();
        jtj += j.transpose() * j;
        jtr += j.transpose() * r;
    };
    for (const calib::PairMoments& pair : moments) {
        calib::CameraUnknowns& a = cameras.at(pair.cameraA);
        calib::CameraUnknowns& b = cameras.at(pair.cameraB);
        const double* parameters[6] = {a.q, a.t, &a.bias, b.q, b.t, &b.bias};
        double literalCost = 0, summedCost = 0;
        Matrix16 literalJtJ = Matrix16::Zero(), summedJtJ = Matrix16::Zero();
        Vector16 literalJtr = Vector16::Zero(), summedJtr = Vector16::Zero();
        for (const calib::FramePair& frame : pairs)
            if (frame.cameraA == pair.cameraA && frame.cameraB == pair.cameraB)
                normal(calib::FramePairCost(frame), parameters, literalCost, literalJtJ, literalJtr);
        normal(calib::PairMomentCost(pair), parameters, summedCost, summedJtJ, summedJtr);
        EXPECT_NEAR(summedCost, literalCost, 1e-9 * literalCost);
        EXPECT_LT((summedJtJ - literalJtJ).norm(), 1e-9 * literalJtJ.norm());
        EXPECT_LT((summedJtr - literalJtr).norm(), 1e-7 * literalJtr.norm());
    }
}

// Sums kept from one solve to the next stand in for sums at the new poses only while the
// cameras stay close: a live session of warm re-solves lands where summing anew lands, and
// a camera moved far (a re-seed) is summed anew, not solved with the weights it left.
TEST(RefinedMoments, KeptSumsFollowALiveSessionAndNeverOutliveAMovedCamera) {
    synthetic::Options options;
    options.cameras = 4;
    options.everythingVisible = true;
    synthetic::Room room(options), same(options);  // the same noise for both
    Calibration kept = refinedCalibration();
    Calibration anew = refinedCalibration();
    anew.options.refined.keepSumsShift = 0;
    anew.options.refined.keepSumsTurn = 0;
    auto worstApart = [](const Calibration& a, const Calibration& b) {
        std::pair<double, double> worst{0, 0};
        for (const auto& [camera, pose] : a.state.poses) {
            const auto e = synthetic::poseError(synthetic::toIsometry(pose), synthetic::toIsometry(b.state.poses.at(camera)));
            worst = {std::max(worst.first, e.first), std::max(worst.second, e.second)};
        }
        return worst;
    };
    for (int step = 0; step < 8; ++step) {
        // Frames arrive between solves, as the worker collects them.
        room.feed(kept, step == 0 ? 150 : 12, 0.5 * (step == 0 ? 0 : 150 + 12 * (step - 1)));
        same.feed(anew, step == 0 ? 150 : 12, 0.5 * (step == 0 ? 0 : 150 + 12 * (step - 1)));
        ASSERT_TRUE(kept.calibrate());
        ASSERT_TRUE(anew.calibrate());
        const auto apart = worstApart(kept, anew);
        EXPECT_LT(apart.first, 1e-3) << step;
        EXPECT_LT(apart.second, 0.05) << step;
    }


    // Sums taken at some poses are asked for again: a camera moved a little keeps them, one
    // turned (a re-seed) or a changed weighting has them summed anew, its pairs only.
    std::vector<calib::FramePair> pairs = calib::collectFramePairs(calib::Frames(kept.frames.begin(), kept.frames.end()));
    std::map<int, calib::CameraUnknowns> cameras;
    for (const auto& [camera, pose] : kept.state.poses) {
        std::copy(pose.q, pose.q + 4, cameras[camera].q);
        std::copy(pose.t, pose.t + 3, cameras[camera].t);
    }
    calib::MomentCache cache;
    const std::vector<calib::MomentPart> part{{pairs, 0, pairs.size(), &cache}};
    auto sums = [&](const calib::RefinedOptions& refined, bool useCache) {
        return useCache ? calib::sumMoments(part, cameras, refined, calib::MomentWeights::Refined, 2)
                        : calib::sumMoments(pairs, 0, pairs.size(), cameras, refined, calib::MomentWeights::Refined, 1);
    };
    calib::RefinedOptions refined;
    const std::vector<calib::PairMoments> first = sums(refined, true);
    const int moved = std::next(cameras.begin(), 2)->first;
    cameras[moved].t[0] += 2e-4;
    for (size_t i = 0; i < first.size(); ++i) EXPECT_EQ(sums(refined, true)[i].q, first[i].q);
    const Eigen::Quaterniond turned = Eigen::AngleAxisd(0.01, Eigen::Vector3d::UnitY()) *
                                      Eigen::Quaterniond(cameras[moved].q[3], cameras[moved].q[0], cameras[moved].q[1], cameras[moved].q[2]);
    std::copy(turned.coeffs().data(), turned.coeffs().data() + 4, cameras[moved].q);
    for (int pass = 0; pass < 2; ++pass) {  // the moved camera's pairs, then a new weighting
        const std::vector<calib::PairMoments> fromCache = sums(refined, true), summed = sums(refined, false);
        ASSERT_EQ(fromCache.size(), summed.size());
        for (size_t i = 0; i < summed.size(); ++i)
            EXPECT_LT((fromCache[i].q - summed[i].q).norm(), 1e-9 * summed[i].q.norm()) << pass << " " << i;
        refined.huberSigmas = 1.0;
    }
}

}  // namespace

// A common pull toward every camera is nearly a change of the room's scale, so the solve
// holds it weakly, and any pull the noise alone puts into the sums shrinks the room. With
// honest covariances and a long walk, the pull comes out as it was and so does the scale.
TEST(RefinedCalibration, NoiseNeitherShrinksThePullNorTheRoom) {
    // Each walk scatters the scale by a few tenths of a millimetre per metre; four agree.
    double meanBias = 0, meanScale = 0;
    for (unsigned seed : {1u, 2u, 3u, 4u}) {
        synthetic::Options options;
        options.cameras = 4;
        options.seed = seed;
        options.bias = 0.03;
        synthetic::Room room(options);
        Calibration refined = refinedCalibration();
        room.feed(refined, 400);
        ASSERT_TRUE(refined.calibrate());
        for (const auto& [camera, bias] : refined.state.biases) meanBias += bias / 16.0;
        for (size_t i = 1; i < room.cameras.size(); ++i) {
            const double truth = room.relativeTruth(i).translation().norm();
            const double found = synthetic::toIsometry(refined.state.poses.at(room.cameras[i].id)).translation().norm();
            meanScale += (found / truth - 1.0) / 12.0;
        }
    }
    EXPECT_NEAR(meanBias, 0.03, 0.0015);
    EXPECT_NEAR(meanScale, 0.0, 3.5e-4);
}

// The report reads a Refined solve's joints where the solve keeps them, each once, and its
// covariance from the chunks' kept sums: the figures of the literal problem, a block of
// plain distances per frame pair, with the solve's poses and the biases held.
TEST(RefinedReport, CovarianceAndResidualsAreThoseOfEveryJointReadOnce) {
    synthetic::Options options = exact(4, 0.03);
    options.noise = 3.0;
    synthetic::Room room(options);
    Calibration calibration = refinedCalibration();
    room.feed(calibration, 80);
    ASSERT_TRUE(calibration.calibrate());
    const CalibrationReport report = makeCalibrationReport(calibration);
    const calib::SolveRecord& record = *calibration.state.lastSolve;

    std::vector<calib::FramePair> pairs =
        calib::collectFramePairs(calib::Frames(calibration.frames.begin(), calibration.frames.end()));
    std::vector<calib::CameraUnknowns> blocks;
    for (const auto& [camera, pose] : record.after) {
        blocks.emplace_back();
        std::copy(pose.q, pose.q + 4, blocks.back().q);
        std::copy(pose.t, pose.t + 3, blocks.back().t);
    }
    std::map<int, calib::CameraUnknowns*> cameras;
    size_t next = 0;
    for (const auto& [camera, pose] : record.after) cameras[camera] = &blocks[next++];
    ceres::Problem problem;
    std::map<int, double> squared, count;
    double joints = 0;
    for (calib::FramePair& pair : pairs) {
        pair.weights.assign(pair.joints.size(), Eigen::Matrix3d::Identity());
        calib::CameraUnknowns& a = *cameras.at(pair.cameraA);
        calib::CameraUnknowns& b = *cameras.at(pair.cameraB);
        problem.AddResidualBlock(new calib::FramePairCost(pair), nullptr, a.q, a.t, &a.bias, b.q, b.t, &b.bias);
        joints += double(pair.joints.size());
        for (const calib::JointPair& joint : pair.joints) {
            auto placed = [&](int camera, const Eigen::Vector3d& p) {
                const calib::PoseStruct& pose = record.after.at(camera);
                return Eigen::Vector3d(Eigen::Map<const Eigen::Quaterniond>(pose.q) *
                                           (p + record.biasesAfter.at(camera) * p.normalized()) +
                                       Eigen::Vector3d(pose.t[0], pose.t[1], pose.t[2]));
            };
            const double d = (placed(pair.cameraA, joint.a) - placed(pair.cameraB, joint.b)).squaredNorm();
            for (int camera : {pair.cameraA, pair.cameraB}) squared[camera] += d, count[camera] += 1;
        }
    }
    std::vector<std::pair<const double*, const double*>> wanted;
    for (auto& [camera, u] : cameras) {
        problem.SetManifold(u->q, new ceres::EigenQuaternionManifold);
        problem.SetParameterBlockConstant(&u->bias);
        if (camera == record.reference) {
            problem.SetParameterBlockConstant(u->q);
            problem.SetParameterBlockConstant(u->t);
        } else {
            wanted.push_back({u->q, u->q});
            wanted.push_back({u->t, u->t});
        }
    }
    double cost = 0;
    ASSERT_TRUE(problem.Evaluate(ceres::Problem::EvaluateOptions(), &cost, nullptr, nullptr, nullptr));
    ceres::Covariance covariance(ceres::Covariance::Options{});
    ASSERT_TRUE(covariance.Compute(wanted, &problem));
    const double variance = 2.0 * cost / (3.0 * joints - 6.0 * double(cameras.size() - 1));

    ASSERT_EQ(report.cameras.size(), cameras.size());
    for (const CameraCalibrationReport& camera : report.cameras) {
        EXPECT_EQ(camera.residualBlocks, 2 * int(count[camera.camera])) << camera.camera;
        EXPECT_NEAR(camera.rmsAfterMm, 1000.0 * std::sqrt(squared[camera.camera] / count[camera.camera]), 1e-9);
        if (camera.camera == record.reference) continue;
        Eigen::Matrix<double, 3, 3, Eigen::RowMajor> r, t;
        covariance.GetCovarianceBlockInTangentSpace(cameras[camera.camera]->q, cameras[camera.camera]->q, r.data());
        covariance.GetCovarianceBlockInTangentSpace(cameras[camera.camera]->t, cameras[camera.camera]->t, t.data());
        const double rotationDeg = 2.0 * std::sqrt(variance * r.trace()) * 180.0 / M_PI;
        const double translationMm = 1000.0 * std::sqrt(variance * t.trace());
        EXPECT_NEAR(camera.rotationSigmaDeg, rotationDeg, 1e-6 * rotationDeg) << camera.camera;
        EXPECT_NEAR(camera.translationSigmaMm, translationMm, 1e-6 * translationMm) << camera.camera;
        EXPECT_GT(translationMm, 0.05);
    }
}
