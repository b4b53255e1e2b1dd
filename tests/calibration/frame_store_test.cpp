// The shared frame store: a snapshot solved on another thread while frames keep arriving
// (some out of order) loses none of them, and no chunk a solve read goes stale.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "calibration/skeleton_align.hpp"
#include "testing/pose_error.hpp"
#include "testing/synthetic_room.hpp"

namespace {

using Calibration = SkeletonMulticameraCalibration;
using Frame = std::pair<lum::Timestamp, std::map<int, lum::BodyData>>;

Calibration refined() {
    Calibration calibration;
    calibration.options.model = Calibration::Model::Refined;
    // Stores with different histories are compared: no sums kept between solves.
    calibration.options.refined.keepSumsShift = 0;
    calibration.options.refined.keepSumsTurn = 0;
    return calibration;
}

std::vector<Frame> walk(int frames, unsigned seed) {
    synthetic::Options options;
    options.seed = seed;
    synthetic::Room room(options);
    Calibration scratch;
    room.feed(scratch, frames);
    return {scratch.frames.begin(), scratch.frames.end()};
}

std::vector<lum::Timestamp> times(const calib::FrameStore& store) {
    std::vector<lum::Timestamp> out;
    for (const auto& [ts, bodies] : store) out.push_back(ts);
    return out;
}

bool samePoses(const Calibration& a, const Calibration& b) {
    if (a.state.poses.size() != b.state.poses.size()) return false;
    for (const auto& [camera, pose] : a.state.poses) {
        // Chunks cut elsewhere add the same sums in another order: rounding apart, no more.
        const auto apart = synthetic::poseError(synthetic::toIsometry(pose), synthetic::toIsometry(b.state.poses.at(camera)));
        if (apart.first > 1e-7 || apart.second > 1e-6) return false;
    }
    return true;
}

}  // namespace

TEST(FrameStore, SnapshotSolvedWhileFramesArriveLosesNoneAndNeverGoesStale) {
    const std::vector<Frame> frames = walk(400, 3);
    ASSERT_GT(frames.size(), 300u);
    Calibration live = refined();
    for (size_t i = 0; i < 250; ++i) live.frames.add(frames[i].first, frames[i].second);
    {
        Calibration first = live;  // every chunk is read by a solve
        ASSERT_TRUE(first.calibrate());
        live.state.poses = first.state.poses;
        live.state.biases = first.state.biases;
    }

    {
        Calibration snapshot = live;
        EXPECT_EQ(snapshot.frames.chunks().front(), live.frames.chunks().front());  // shared, not copied
        bool usable = false;
        std::thread solver([&] { usable = snapshot.calibrate(); });
        for (size_t i = 250; i < frames.size(); ++i) live.frames.add(frames[i].first, frames[i].second);
        solver.join();
        EXPECT_TRUE(usable);
        EXPECT_EQ(snapshot.frames.size(), 250u);
    }
    // With the snapshot gone the chunks are this store's alone, but a solve has read them:
    // frames slipped in between the stored ones must not leave that reading stale.
    for (size_t i = 0; i < 250; i += 2) live.frames.add(frames[i].first + 1000000, frames[i].second);
    EXPECT_FALSE(live.frames.add(frames[7].first, frames[7].second));  // never replaces
    EXPECT_EQ(live.frames.size(), frames.size() + 125);
    const std::vector<lum::Timestamp> seen = times(live.frames);
    EXPECT_EQ(seen.size(), live.frames.size());
    EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()));
    EXPECT_EQ(std::adjacent_find(seen.begin(), seen.end()), seen.end());

    // The same frames added in time order to a new store solve to the very same poses, and so
    // does a slice against a store of just its frames.
    Calibration fresh = refined();
    for (const auto& [ts, bodies] : live.frames) fresh.frames.add(ts, bodies);
    fresh.state = live.state;
    ASSERT_TRUE(live.calibrate() && fresh.calibrate());
    EXPECT_TRUE(samePoses(live, fresh));

    Calibration part = refined(), expected = refined();
    part.frames = live.frames.slice(100, 333);
    auto from = std::next(live.frames.begin(), 100);
    for (int i = 100; i < 333; ++i, ++from) expected.frames.add(from->first, from->second);
    EXPECT_EQ(times(part.frames), times(expected.frames));
    part.state = expected.state = live.state;
    ASSERT_TRUE(part.calibrate() && expected.calibrate());
    EXPECT_TRUE(samePoses(part, expected));
}
