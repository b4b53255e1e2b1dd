// Tests of the skeleton calibration: residual, batched evaluation, recovery, counting
// rules, floor shift, robust re-solves and agreement of the fast and literal solvers.
#include <gtest/gtest.h>

#include <ceres/gradient_checker.h>

#include "calibration/calibration_verdict.hpp"
#include "calibration/report_json.hpp"
#include "calibration/pair_solver.hpp"
#include "calibration/skeleton_align.hpp"
#include "calibration/solve_record.hpp"
#include "testing/synthetic_room.hpp"

namespace {

using Calibration = SkeletonMulticameraCalibration;

synthetic::Options clean(int cameras) {
    synthetic::Options options;
    options.cameras = cameras;
    options.everythingVisible = true;
    options.noise = 0;
    options.bias = 0;
    options.missing = 0;
    return options;
}

int blocksOf(const Calibration& calibration) {
    return makeCalibrationReport(calibration).residualBlocks;
}

TEST(SkeletonResidual, MatchesHandComputedValuesAndDerivatives) {
    Eigen::Vector3d a(0, 3, 0), b(1, 0, 0);
    Eigen::Matrix3d weight = Eigen::Vector3d(2, 3, 4).asDiagonal();
    auto flag = std::make_shared<bool>(false);
    std::unique_ptr<ceres::CostFunction> cost(createResidualBlock(a, b, weight, flag));
    // A at (1, 0, 0); B turned 90 degrees about z at (0, 2, 0): B's (1, 0, 0) is (0, 3, 0)
    // in the world and (-1, 3, 0) in A.
    const double s = std::sqrt(0.5);
    double qA[4] = {0, 0, 0, 1}, tA[3] = {1, 0, 0}, qB[4] = {0, 0, s, s}, tB[3] = {0, 2, 0};
    const double* parameters[4] = {qA, tA, qB, tB};
    double r[3];
    ASSERT_TRUE(cost->Evaluate(parameters, r, nullptr));
    EXPECT_NEAR(r[0], 1, 1e-12);
    EXPECT_NEAR(r[1], 0, 1e-12);
    EXPECT_NEAR(r[2], 0, 1e-12);
    *flag = true;
    ASSERT_TRUE(cost->Evaluate(parameters, r, nullptr));
    EXPECT_NEAR(r[0], 2, 1e-12);

    ceres::EigenQuaternionManifold quaternion;
    const std::vector<const ceres::Manifold*> manifolds = {&quaternion, nullptr, &quaternion, nullptr};
    ceres::GradientChecker checker(cost.get(), &manifolds, ceres::NumericDiffOptions());
    Eigen::Quaterniond q1(Eigen::AngleAxisd(0.4, Eigen::Vector3d(1, 2, 2).normalized()));
    Eigen::Quaterniond q2(Eigen::AngleAxisd(1.1, Eigen::Vector3d(-3, 0.5, 1).normalized()));
    double t1[3] = {0.2, 0.7, -0.4}, t2[3] = {0.3, -1, 2};
    const double* probe[4] = {q1.coeffs().data(), t1, q2.coeffs().data(), t2};
    // No ProbeResults: its Eigen members would be freed on this side of the library.
    EXPECT_TRUE(checker.Probe(probe, 1e-6, nullptr));
}

// The batched pair blocks must give Ceres exactly what one robustified block per keypoint
// pair gives it: cost, gradient and Gauss-Newton matrix, Huber tails included.
TEST(SkeletonResidual, BatchedPairsMatchPerKeypointBlocks) {
    synthetic::Options options;
    options.cameras = 3;
    synthetic::Room room(options);
    Calibration store;
    room.feed(store, 8);
    auto pairs = std::make_shared<const std::vector<calib::CameraPairData>>(calib::collectKeypointPairs(store.frames.parts()));
    std::map<int, Calibration::PoseStruct> poses;
    for (size_t i = 0; i < room.cameras.size(); ++i) {
        const Eigen::Isometry3d truth = room.relativeTruth(i);
        Eigen::Quaterniond q(Eigen::AngleAxisd(0.01 * i, Eigen::Vector3d(1, 2, 3).normalized()) * truth.linear());
        Calibration::PoseStruct& pose = poses[room.cameras[i].id];
        std::copy(q.coeffs().data(), q.coeffs().data() + 4, pose.q);
        for (int k = 0; k < 3; ++k) pose.t[k] = truth.translation()(k) + 0.02 * (k + 1);
    }
    for (bool robustWeighted : {false, true}) {
        auto flag = std::make_shared<bool>(robustWeighted);
        ceres::Problem reference;
        for (const calib::CameraPairData& pair : *pairs) {
            auto& a = poses[pair.cameraA];
            auto& b = poses[pair.cameraB];
            for (calib::KeypointPair p : pair.pairs)
                reference.AddResidualBlock(createResidualBlock(p.a, p.b, p.weight, flag),
                                           robustWeighted ? getLoss() : nullptr, a.q, a.t, b.q, b.t);
        }
        for (auto& [camera, pose] : poses) reference.SetManifold(pose.q, new ceres::EigenQuaternionManifold);
        calib::PairProblem fast(pairs, poses, robustWeighted, 2, -1);
        fast.evaluator().setWeighted(robustWeighted);
        ceres::Problem& batched = fast.problem();
        auto evaluate = [&](ceres::Problem& problem, double& cost, std::vector<double>& gradient,
                            Eigen::MatrixXd& normal) {
            ceres::CRSMatrix jacobian;
            ASSERT_TRUE(problem.Evaluate(ceres::Problem::EvaluateOptions(), &cost, nullptr, &gradient, &jacobian));
            Eigen::MatrixXd j = Eigen::MatrixXd::Zero(jacobian.num_rows, jacobian.num_cols);
            for (int row = 0; row < jacobian.num_rows; ++row)
                for (int k = jacobian.rows[row]; k < jacobian.rows[row + 1]; ++k)
                    j(row, jacobian.cols[k]) = jacobian.values[k];
            normal = j.transpose() * j;
        };
        double costReference, costBatched;
        std::vector<double> gradientReference, gradientBatched;
        Eigen::MatrixXd normalReference, normalBatched;
        evaluate(reference, costReference, gradientReference, normalReference);
        evaluate(batched, costBatched, gradientBatched, normalBatched);
        EXPECT_NEAR(costBatched, costReference, 1e-10 * costReference);
        const Eigen::Map<Eigen::VectorXd> gR(gradientReference.data(), gradientReference.size());
        const Eigen::Map<Eigen::VectorXd> gB(gradientBatched.data(), gradientBatched.size());
        EXPECT_LT((gB - gR).norm(), 1e-8 * gR.norm());
        EXPECT_LT((normalBatched - normalReference).norm(), 1e-8 * normalReference.norm());
    }
}

TEST(SkeletonCalibration, RecoversNoiselessPosesExactly) {
    synthetic::Room room(clean(3));
    Calibration calibration;
    room.feed(calibration, 30);
    ASSERT_TRUE(calibration.calibrate());
    const Calibration::PoseStruct& reference = calibration.state.poses.at(room.cameras[0].id);
    EXPECT_EQ(Eigen::Vector4d(reference.q[0], reference.q[1], reference.q[2], reference.q[3]),
              Eigen::Vector4d(0, 0, 0, 1));
    for (size_t i = 1; i < room.cameras.size(); ++i) {
        const auto error = synthetic::poseError(room.relativeTruth(i),
                                                synthetic::toIsometry(calibration.state.poses.at(room.cameras[i].id)));
        EXPECT_LT(error.first * M_PI / 180.0, 1e-6);
        EXPECT_LT(error.second / 1000.0, 1e-6);
    }
    // The floor shift moves every camera by the same height, the reference included.
    const float shift = calibration.state.calibratedPoses.at(room.cameras[0].id).getTranslation().y;
    EXPECT_GT(std::abs(shift), 0.1f);
    for (size_t i = 0; i < room.cameras.size(); ++i) {
        const Calibration::PoseStruct& pose = calibration.state.poses.at(room.cameras[i].id);
        const lum::Translation t = calibration.state.calibratedPoses.at(room.cameras[i].id).getTranslation();
        EXPECT_NEAR(t.x, pose.t[0], 1e-5);
        EXPECT_NEAR(t.y, pose.t[1] + shift, 1e-5);
        EXPECT_NEAR(t.z, pose.t[2], 1e-5);
    }
}

// Cameras facing one another: the first solve starts each from the agreement of its joints
// with the reference's, not from the reference's own pose half a turn away.
TEST(SkeletonCalibration, FirstSolveStartsEveryCameraFromTheAgreedPose) {
    synthetic::Options options;
    options.cameras = 4;
    synthetic::Room room(options);
    Calibration calibration;
    room.feed(calibration, 60);
    ASSERT_TRUE(calibration.calibrate());
    ASSERT_TRUE(calibration.state.lastSolve);
    for (size_t i = 1; i < room.cameras.size(); ++i) {
        const auto start = synthetic::poseError(
            room.relativeTruth(i), synthetic::toIsometry(calibration.state.lastSolve->before.at(room.cameras[i].id)));
        EXPECT_LT(start.first, 3.0) << room.cameras[i].id;
        EXPECT_LT(start.second, 150.0) << room.cameras[i].id;
    }
}

TEST(SkeletonCalibration, NoisyPosesWithinReportedUncertainty) {
    synthetic::Options options;
    options.bias = 0;
    synthetic::Room room(options);
    Calibration calibration;
    room.feed(calibration, 60);
    ASSERT_TRUE(calibration.calibrate());
    const CalibrationReport report = makeCalibrationReport(calibration);
    ASSERT_TRUE(report.usable);
    for (size_t i = 1; i < room.cameras.size(); ++i) {
        const auto error = synthetic::poseError(room.relativeTruth(i),
                                                synthetic::toIsometry(calibration.state.poses.at(room.cameras[i].id)));
        const CameraCalibrationReport& camera = report.cameras[i];
        ASSERT_EQ(camera.camera, room.cameras[i].id);
        EXPECT_LT(error.first, 4 * camera.rotationSigmaDeg + 0.02) << camera.camera;
        EXPECT_LT(error.second, 4 * camera.translationSigmaMm + 1.0) << camera.camera;
        // It starts from rigid fits already close; the weighted solve may trade a hair of
        // the plain residual for the joints it trusts more.
        EXPECT_LT(camera.rmsAfterMm, 1.01 * camera.rmsBeforeMm);
    }
}

TEST(SkeletonCalibration, CountsKeypointPairsAndKeepsThresholds) {
    synthetic::Room room(clean(2));
    Calibration calibration;
    calibration.state.calibratedPoses[99] = lum::Transform(lum::Orientation(), lum::Translation(1, 2, 3));
    room.feed(calibration, 2);
    ASSERT_EQ(calibration.frames.size(), 2u);
    EXPECT_FALSE(calibration.calibrate());  // 72 blocks
    EXPECT_EQ(calibration.state.framesAtLastCalibration, 2);
    EXPECT_EQ(calibration.state.poses.size(), 2u);
    ASSERT_EQ(calibration.state.calibratedPoses.size(), 1u);
    EXPECT_EQ(calibration.state.calibratedPoses[99].getTranslation(), lum::Translation(1, 2, 3));

    room.feed(calibration, 1, 5.0);
    ASSERT_TRUE(calibration.calibrate());
    EXPECT_EQ(blocksOf(calibration), 3 * 36);
    EXPECT_EQ(calibration.state.calibratedPoses.count(99), 0u);

    std::map<int, lum::BodyData> bodies = room.observe(7.0);
    bodies.begin()->second.keypoint[5].x = NAN;
    calibration.frames.add(lum::Timestamp(7), bodies);
    ASSERT_TRUE(calibration.calibrate());
    EXPECT_EQ(blocksOf(calibration), 3 * 36 + 34);

    // Copies solve on their own flag.
    const Calibration copy = calibration;
    EXPECT_NE(copy.state.weightByCovariance, calibration.state.weightByCovariance);
    EXPECT_EQ(*copy.state.weightByCovariance, *calibration.state.weightByCovariance);

    for (int keypoints : {34, 38}) {
        synthetic::Options options = clean(2);
        options.keypoints = keypoints;
        synthetic::Room large(options);
        Calibration capped;
        large.feed(capped, 2);
        ASSERT_TRUE(capped.calibrate());
        EXPECT_EQ(blocksOf(capped), 2 * 2 * 30);
    }
}

TEST(SkeletonCalibration, FloorShiftNeedsMoreThanTwentySamples) {
    // 11 frames of 2 cameras: 22 up samples (joints 11 and 1) and 44 foot points (13, 10).
    auto shifted = [](int keypoints, int upRemoved, int feetRemoved) {
        synthetic::Options options = clean(2);
        options.keypoints = keypoints;
        synthetic::Room room(options);
        Calibration calibration;
        room.feed(calibration, 11, 0.0, [&](int, lum::BodyData& body) {
            if (upRemoved > 0 && upRemoved--) body.keypoint[1].x = NAN;
            for (int foot : {13, 10})
                if (feetRemoved > 0 && feetRemoved--) body.keypoint[foot].x = NAN;
        });
        EXPECT_TRUE(calibration.calibrate());
        return calibration.state.calibratedPoses.begin()->second.getTranslation().y != 0.f;
    };
    EXPECT_TRUE(shifted(18, 1, 23));
    EXPECT_FALSE(shifted(18, 2, 0));
    EXPECT_FALSE(shifted(18, 0, 24));
    EXPECT_FALSE(shifted(20, 0, 0));  // a layout nobody knows has no feet
}

// Outliers and a re-solve: the second call is robust, and the literal formulation gives
// the same poses and verdicts as the fast one on each call.
TEST(SkeletonCalibration, LaterCallsAreRobustAndMatchTheLiteralSolve) {
    synthetic::Options options;
    options.cameras = 3;
    synthetic::Room room(options);
    Calibration fast;
    int outliers = 0;
    room.feed(fast, 24, 0.0, [&](int, lum::BodyData& body) {
        if (++outliers % 7 == 0) body.keypoint[2].y += 0.8f;
    });
    Calibration literal = fast;
    literal.options.solver = Calibration::Solver::Reference;
    // The same walk without necks: no up pair, so no write-back of joints between the calls.
    Calibration robustOnly;
    synthetic::Room same(options);
    int spoiled = 0;
    same.feed(robustOnly, 24, 0.0, [&](int, lum::BodyData& body) {
        if (++spoiled % 7 == 0) body.keypoint[2].y += 0.8f;
        body.keypoint[1].x = NAN;
    });

    for (int call = 0; call < 2; ++call) {
        ASSERT_EQ(fast.calibrate(), literal.calibrate());
        for (const auto& [camera, pose] : fast.state.poses) {
            const auto d = synthetic::poseError(synthetic::toIsometry(pose),
                                                synthetic::toIsometry(literal.state.poses.at(camera)));
            EXPECT_LT(d.first, 0.01) << call << " " << camera;
            EXPECT_LT(d.second, 0.1) << call << " " << camera;
        }
    }
    // Same data three times: the second call changes the cost (Huber), the third does not.
    std::vector<std::map<int, Calibration::PoseStruct>> solutions;
    for (int call = 0; call < 3; ++call) {
        ASSERT_TRUE(robustOnly.calibrate());
        solutions.push_back(robustOnly.state.poses);
    }
    auto moved = [&](int from, int to) {
        double largest = 0;
        for (const auto& [camera, pose] : solutions[from])
            largest = std::max(largest, synthetic::poseError(synthetic::toIsometry(pose),
                                                             synthetic::toIsometry(solutions[to].at(camera)))
                                            .second);
        return largest;
    };
    EXPECT_GT(moved(0, 1), 1.0);
    EXPECT_LT(moved(1, 2), 0.1);
}

TEST(CalibrationReport, CountsBlocksAndShrinksWithData) {
    synthetic::Options options;
    options.cameras = 3;
    synthetic::Room room(options);
    Calibration calibration;
    EXPECT_FALSE(makeCalibrationReport(calibration).usable);
    Calibration larger = calibration;
    room.feed(calibration, 12);
    ASSERT_TRUE(calibration.calibrate());
    const CalibrationReport few = makeCalibrationReport(calibration);
    synthetic::Room same(options);
    same.feed(larger, 60);
    ASSERT_TRUE(larger.calibrate());
    const CalibrationReport many = makeCalibrationReport(larger);

    ASSERT_EQ(many.cameras.size(), 3u);
    int blocks = 0;
    for (const CameraCalibrationReport& camera : many.cameras) blocks += camera.residualBlocks;
    EXPECT_EQ(blocks, 2 * many.residualBlocks);  // each block involves two cameras
    EXPECT_EQ(many.frames, int(larger.frames.size()));
    EXPECT_EQ(many.cameras[0].rotationSigmaDeg, 0.0);
    for (size_t i = 1; i < 3; ++i) {
        EXPECT_LT(many.cameras[i].rotationSigmaDeg, few.cameras[i].rotationSigmaDeg);
        EXPECT_LT(many.cameras[i].translationSigmaMm, few.cameras[i].translationSigmaMm);
        EXPECT_GT(many.cameras[i].translationSigmaMm, 0.0);
        EXPECT_LE(many.cameras[i].framesSharedWith.at(many.cameras[0].camera), many.frames);
    }
    const nlohmann::json json = toJson(many);
    EXPECT_EQ(json["cameras"][1]["residualBlocks"], many.cameras[1].residualBlocks);
}

// Two pairs of cameras never in one frame: nothing ties the second pair to the reference's
// world, so no model may place it, report it well placed or let it be saved.
TEST(SkeletonCalibration, CamerasNeverLinkedToTheReferenceAreNotPlaced) {
    using Model = Calibration::Model;
    using Solver = Calibration::Solver;
    for (auto [model, solver] : {std::pair{Model::Classic, Solver::Fast}, std::pair{Model::Classic, Solver::Reference},
                                 std::pair{Model::Refined, Solver::Fast}}) {
        SCOPED_TRACE(int(model) * 2 + int(solver));
        synthetic::Room room(clean(4));
        Calibration calibration;
        calibration.options.model = model;
        calibration.options.solver = solver;
        for (int i = 0; i < 120; ++i) {
            std::map<int, lum::BodyData> bodies = room.observe(0.5 * i);
            for (int camera : i % 2 ? std::vector<int>{10, 11} : std::vector<int>{12, 13}) bodies.erase(camera);
            calibration.frames.add(lum::Timestamp(uint64_t(1e9 + 0.5e9 * i)), bodies);
        }
        for (int solve = 0; solve < 2; ++solve) {
            ASSERT_TRUE(calibration.calibrate());
            EXPECT_EQ(calibration.state.calibratedPoses.size(), 2u);
            EXPECT_TRUE(calibration.state.calibratedPoses.count(10));
            EXPECT_TRUE(calibration.state.calibratedPoses.count(11));
            const CalibrationReport report = makeCalibrationReport(calibration);
            for (int camera : {12, 13}) {
                EXPECT_TRUE(report.unplaced.count(camera)) << camera;
                const CameraCalibrationReport* entry = nullptr;
                for (const CameraCalibrationReport& c : report.cameras)
                    if (c.camera == camera) entry = &c;
                EXPECT_NE(assessCamera(entry, report).readiness, CameraReadiness::Good) << camera;
            }
        }
    }
}

// The floor step stores the up-pair joints back in world coordinates; a later report must
// not mistake them for camera residuals.
TEST(CalibrationReport, ResidualsLeaveOutTheRewrittenJoints) {
    synthetic::Room room{synthetic::Options()};
    Calibration calibration;
    room.feed(calibration, 40);
    ASSERT_TRUE(calibration.calibrate());
    const double first = makeCalibrationReport(calibration).cameras[1].rmsAfterMm;
    room.feed(calibration, 20, 20.0);
    ASSERT_TRUE(calibration.calibrate());
    EXPECT_LT(makeCalibrationReport(calibration).cameras[1].rmsAfterMm, 1.5 * first);
}

}  // namespace
