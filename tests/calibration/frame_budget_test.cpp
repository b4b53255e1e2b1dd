// The budgeted frame store: a long walk kept within its budget solves to the poses of the
// whole walk, keeps the frames that saw something new, and leaves no solve's sums stale.
#include <gtest/gtest.h>

#include <set>

#include "calibration/skeleton_align.hpp"
#include "testing/pose_error.hpp"
#include "testing/synthetic_room.hpp"

namespace {

using Calibration = SkeletonMulticameraCalibration;

Calibration refined(size_t maxFrames) {
    Calibration calibration;
    calibration.options.model = Calibration::Model::Refined;
    calib::FrameBudget budget;
    budget.maxFrames = maxFrames;
    calibration.frames.setBudget(budget);
    return calibration;
}

// The largest rotation (deg) and shift (mm) between the two calibrations' cameras.
std::pair<double, double> apart(const Calibration& a, const Calibration& b) {
    std::pair<double, double> worst{0, 0};
    for (const auto& [camera, pose] : a.state.poses) {
        const auto e = synthetic::poseError(synthetic::toIsometry(pose), synthetic::toIsometry(b.state.poses.at(camera)));
        worst = {std::max(worst.first, e.first), std::max(worst.second, e.second)};
    }
    return worst;
}

std::set<std::pair<int, int>> cameraPairs(const calib::FrameStore& store) {
    std::set<std::pair<int, int>> pairs;
    for (const auto& [ts, bodies] : store)
        for (auto a = bodies.begin(); a != bodies.end(); ++a)
            for (auto b = std::next(a); b != bodies.end(); ++b) pairs.emplace(a->first, b->first);
    return pairs;
}

}  // namespace

TEST(FrameBudget, LongWalkSolvesLikeTheWholeWalkAndNoThinnedChunkGoesStale) {
    synthetic::Options options;
    options.seed = 5;
    // At the room's usual noise any two thirds of one walk solve a few millimetres apart;
    // a quieter room leaves what thinning itself loses to show.
    options.noise = 0.3;
    synthetic::Room room(options), same(options);
    Calibration full = refined(0), budgeted = refined(300);
    room.feed(full, 900);
    // Solved now and then on the way, as the worker does, so thinning meets kept sums.
    for (int part = 0; part < 9; ++part) {
        same.feed(budgeted, 100, 50.0 * part);
        if (part >= 2) {
            ASSERT_TRUE(budgeted.calibrate());
        }
    }
    ASSERT_GT(full.frames.size(), 800u);
    EXPECT_LE(budgeted.frames.size(), 300u + budgeted.frames.budget().slack);
    EXPECT_EQ(budgeted.frames.added(), full.frames.size());
    EXPECT_EQ(cameraPairs(budgeted.frames), cameraPairs(full.frames));

    ASSERT_TRUE(full.calibrate());
    ASSERT_TRUE(budgeted.calibrate());
    const auto [degrees, mm] = apart(full, budgeted);
    EXPECT_LT(degrees, 0.02);
    EXPECT_LT(mm, 1.0);

    // The same kept frames in a store of their own, solved from the same start without
    // any kept sums, land where the thinned store's warm solve did.
    Calibration fresh = refined(0);
    fresh.options.refined.keepSumsShift = 0;
    fresh.options.refined.keepSumsTurn = 0;
    for (const auto& [ts, bodies] : budgeted.frames) fresh.frames.add(ts, bodies);
    fresh.state = budgeted.state;
    ASSERT_TRUE(budgeted.calibrate() && fresh.calibrate());
    const auto [turn, shift] = apart(budgeted, fresh);
    EXPECT_LT(turn, 1e-6);
    EXPECT_LT(shift, 1e-4);
}

TEST(FrameBudget, ThinningDropsWhatIsSeenAgainAndKeepsWhatIsNew) {
    synthetic::Options options;
    options.seed = 8;
    synthetic::Room room(options);
    Calibration walk = refined(200);
    // The walk ends well before 500 s; from then on the person stands at its last waypoint.
    room.feed(walk, 400, 500.0);
    room.feed(walk, 200, 0.0);
    const lum::Timestamp walkEnd(uint64_t(1e9 + 100.0 * 1e9));
    size_t walking = 0, standing = 0, taken = 0;
    for (const auto& [ts, bodies] : walk.frames) (ts < walkEnd ? walking : standing)++;
    synthetic::Room fresh(options);
    Calibration all = refined(0);
    fresh.feed(all, 200, 0.0);
    for (const auto& entry : all.frames) taken += entry.first < walkEnd;
    EXPECT_LE(walk.frames.size(), 200u + walk.frames.budget().slack);
    EXPECT_GE(10 * walking, 9 * taken);
    EXPECT_LT(standing, walking / 4);

    // Thinning is a function of what came, in the order it came.
    synthetic::Room again(options);
    Calibration replayed = refined(200);
    again.feed(replayed, 400, 500.0);
    again.feed(replayed, 200, 0.0);
    std::vector<lum::Timestamp> a, b;
    for (const auto& entry : walk.frames) a.push_back(entry.first);
    for (const auto& entry : replayed.frames) b.push_back(entry.first);
    EXPECT_EQ(a, b);
}

TEST(FrameBudget, ClassicKeepsNoWorldJointsOfThinnedFrames) {
    synthetic::Options options;
    options.seed = 9;
    synthetic::Room room(options);
    Calibration classic;
    calib::FrameBudget budget;
    budget.maxFrames = 150;
    classic.frames.setBudget(budget);
    room.feed(classic, 120);
    ASSERT_TRUE(classic.calibrate());
    ASSERT_TRUE(classic.calibrate());  // the floor step's joints are written from the second solve on
    for (int part = 0; part < 8; ++part) {
        room.feed(classic, 40, 500.0 + 20.0 * part);
        ASSERT_TRUE(classic.calibrate());
    }
    EXPECT_LE(classic.state.worldJoints.size(), classic.frames.size());
}
