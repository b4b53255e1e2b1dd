// Tests of the frame assembler: interpolation to the common instant, lagging cameras,
// gaps, and the one-person association.
#include <gtest/gtest.h>

#include <cmath>

#include "calibration/frame_assembler.hpp"

namespace {

constexpr uint64_t kMs = 1000000;

// One body moving along x at 1 m/s: x = t in seconds.
lum::Bodies walkerAt(uint64_t ns, int id = 7) {
    lum::Bodies bodies;
    bodies.timestamp = ns;
    lum::BodyData body;
    body.id = id;
    const float x = float(double(ns) * 1e-9);
    body.keypoint = {lum::Vector3f(x, 1.f, -3.f), lum::Vector3f(x, 0.f, -3.f)};
    body.keypoint_covariances = {{1, 0, 0, 1, 0, 1}, {3, 0, 0, 3, 0, 3}};
    bodies.body_list.push_back(body);
    return bodies;
}

TEST(FrameAssembler, BringsEveryCameraToTheOldestNewestCapture) {
    calib::FrameAssembler assembler;
    // Camera 1 captures at 0, 33, 66 ms; camera 2 at 20, 53, 86 ms.
    for (uint64_t k = 0; k < 3; ++k) {
        assembler.addBodies(1, walkerAt(1000 * kMs + k * 33 * kMs));
        assembler.addBodies(2, walkerAt(1020 * kMs + k * 33 * kMs));
    }
    EXPECT_EQ(assembler.commonInstant().getNanoseconds(), 1066 * kMs);
    const std::vector<calib::CameraBodies> frames = assembler.assemble();
    ASSERT_EQ(frames.size(), 1u);
    ASSERT_EQ(frames[0].size(), 2u);
    for (const auto& [camera, body] : frames[0]) {
        EXPECT_NEAR(body.keypoint[0].x, 1.066, 1e-5) << camera;
        EXPECT_NEAR(body.keypoint_covariances[1][0], 3.f, 1e-5);
    }

    // A camera that stops reporting drops out instead of holding the instant back.
    for (uint64_t k = 3; k < 8; ++k) assembler.addBodies(2, walkerAt(1020 * kMs + k * 33 * kMs));
    EXPECT_EQ(assembler.commonInstant().getNanoseconds(), 1251 * kMs);
    EXPECT_TRUE(assembler.assemble().empty());
    EXPECT_EQ(assembler.bodiesAt(1251 * kMs).count(1), 0u);

    // The cameras' host clock is set back an hour: what they capture next is taken anew,
    // not ignored until the clock has caught up.
    calib::FrameAssembler stepped;
    for (uint64_t base : {3600000 * kMs, 1000 * kMs})
        for (uint64_t k = 0; k < 3; ++k) {
            stepped.addBodies(1, walkerAt(base + k * 33 * kMs));
            stepped.addBodies(2, walkerAt(base + 20 * kMs + k * 33 * kMs));
        }
    EXPECT_EQ(stepped.commonInstant().getNanoseconds(), 1066 * kMs);
    EXPECT_EQ(stepped.assemble().size(), 1u);
}

// Camera 2's clock runs 2 s ahead: what it stamps T happened at T - 2 s. Delivered beside
// the captures camera 1 stamps alike, its walker is 2 m behind until its clock is known.
TEST(FrameAssembler, PlacesACameraByItsKnownClock) {
    const uint64_t ahead = 2000 * kMs;
    auto feed = [ahead](calib::FrameAssembler& assembler, uint64_t from, uint64_t to) {
        for (uint64_t t = from; t < to; t += 33 * kMs) {
            assembler.addBodies(1, walkerAt(t));
            lum::Bodies late = walkerAt(t - ahead);
            late.timestamp = t;
            assembler.addBodies(2, late);
        }
    };
    calib::FrameAssembler assembler;
    feed(assembler, 10000 * kMs, 11000 * kMs);
    std::vector<calib::CameraBodies> frames = assembler.assemble();
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_NEAR(frames[0].at(1).keypoint[0].x - frames[0].at(2).keypoint[0].x, 2.0, 0.01);

    calib::ClockEstimate clock;
    clock.offsetS = 2.0;
    clock.anchorNs = 10000 * kMs;
    assembler.setClock(2, clock);
    // The common instant is now camera 2's: 2 s back, which camera 1 must still hold.
    feed(assembler, 11000 * kMs, 14000 * kMs);
    frames = assembler.assemble();
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_NEAR(assembler.commonInstant().getNanoseconds() * 1e-9, 11.98, 0.04);
    EXPECT_NEAR(frames[0].at(1).keypoint[0].x, frames[0].at(2).keypoint[0].x, 1e-4);
    // It stalls when it stops sending, not because its captures are old.
    for (uint64_t t = 14000 * kMs; t < 14300 * kMs; t += 33 * kMs) assembler.addBodies(1, walkerAt(t));
    EXPECT_TRUE(assembler.assemble().empty());
}

TEST(FrameAssembler, LeavesOutGapsMissingJointsAndCrowdedCameras) {
    calib::FrameAssembler assembler;
    lum::Bodies first = walkerAt(1000 * kMs);
    first.body_list[0].keypoint[1].x = NAN;
    assembler.addBodies(1, first);
    assembler.addBodies(1, walkerAt(1040 * kMs));
    assembler.addBodies(1, walkerAt(1030 * kMs));  // out of order: ignored
    const calib::BodiesAtInstant at = assembler.bodiesAt(1010 * kMs);
    ASSERT_EQ(at.at(1).size(), 1u);
    EXPECT_NEAR(at.at(1)[0].keypoint[0].x, 1.010, 1e-5);
    EXPECT_TRUE(std::isnan(at.at(1)[0].keypoint[1].x));

    // 150 ms without a capture of this track: nothing is made up in between.
    assembler.addBodies(1, walkerAt(1190 * kMs));
    EXPECT_TRUE(assembler.bodiesAt(1100 * kMs).empty());

    calib::BodiesAtInstant crowded;
    crowded[1] = {walkerAt(0).body_list[0]};
    crowded[2] = {walkerAt(0, 1).body_list[0], walkerAt(0, 2).body_list[0]};
    EXPECT_TRUE(calib::singlePersonAssociation(crowded).empty());
    crowded[3] = {walkerAt(0).body_list[0]};
    const auto frames = calib::singlePersonAssociation(crowded);
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].count(2), 0u);
    EXPECT_EQ(frames[0].size(), 2u);
}

}  // namespace
