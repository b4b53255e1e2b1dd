// Body association in a room with several people: no frame ever mixes two people, and the
// calibration built from the frames lands where the truth is.
#include <gtest/gtest.h>

#include "tests/calibration/crowd_room.hpp"

namespace {

constexpr double kRotationTargetDeg = 0.3;
constexpr double kTranslationTargetMm = 10.0;

TEST(BodyAssociation, PeopleOfOneHeightCrossingAreNeverMixedAndCalibrate) {
    for (int people : {2, 3}) {
        SCOPED_TRACE(people);
        crowd::Options options;
        options.scene = crowd::room(people, true);
        options.calibrateEvery = 2;
        crowd::Result result = crowd::run(options);
        EXPECT_EQ(result.wrong, 0);
        ASSERT_TRUE(result.calibrated);
        // Every walker contributes, not only whoever happened to be paired first.
        for (int person = 0; person < people; ++person) EXPECT_GT(result.frameTimes[person].size(), 40u) << person;
        EXPECT_LT(result.worstRotation(), kRotationTargetDeg);
        EXPECT_LT(result.worstTranslation(), kTranslationTargetMm);
        // One person keeps one number however often the others cross it.
        EXPECT_EQ(result.personsOfFirst.size(), 1u);
    }
}

TEST(BodyAssociation, OnePersonGivesAsManyFramesAsTheOnePersonRule) {
    crowd::Options options;
    options.scene = crowd::room(1, false);
    options.seconds = 60;
    const crowd::Result associated = crowd::run(options);
    options.associate = false;
    const crowd::Result rule = crowd::run(options);
    EXPECT_EQ(associated.wrong, 0);
    EXPECT_GE(associated.frames, rule.frames * 9 / 10);
    EXPECT_LT(associated.worstTranslation(), rule.worstTranslation() + 2.0);
}

TEST(BodyAssociation, CameraSeeingOnePersonWhileItsNeighbourSeesTwo) {
    crowd::Options options;
    options.scene = crowd::room(2, false);
    const unsigned blind = options.scene.cameras[1].serial;
    options.reports = [blind](unsigned serial, int person, double) { return serial != blind || person == 0; };
    crowd::Result result = crowd::run(options);
    EXPECT_EQ(result.wrong, 0);
    EXPECT_GT(result.cameraFrames[int(blind)], 40);
    EXPECT_LT(result.worstTranslation(), kTranslationTargetMm);
}

TEST(BodyAssociation, PersonLeavingAndComingBackUnderNewTracksIsPairedAgain) {
    crowd::Options options;
    options.scene = crowd::room(2, false);
    options.reports = [](unsigned, int person, double t) { return person != 1 || t < 30 || t >= 45; };
    options.trackShift = [](unsigned, int person, double t) { return person == 1 && t >= 45 ? 1000 : 0; };
    crowd::Result result = crowd::run(options);
    EXPECT_EQ(result.wrong, 0);
    int before = 0, after = 0;
    for (double t : result.frameTimes[1]) (t < 30 ? before : after) += t >= 45 || t < 30;
    EXPECT_GT(before, 10);
    // Through the calibration the new tracks pair again within seconds.
    EXPECT_GT(after, 50);
    EXPECT_LT(result.worstTranslation(), kTranslationTargetMm);
}

}  // namespace
