// Body association in a room with several people: no frame ever mixes two people, and the
// calibration built from the frames lands where the truth is.
#include <gtest/gtest.h>

#include "calibration/frame_assembler.hpp"
#include "testing/crowd_room.hpp"

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

TEST(BodyAssociation, PairsPeopleOnTheAssemblersCommonClock) {
    const pyra_sim::Scene scene = crowd::room(2, true);
    calib::BodyAssociator associator;
    calib::FrameAssembler assembler;
    assembler.setAssociation([&associator](const calib::BodiesAtInstant& bodies) {
        std::vector<calib::CameraBodies> frames = associator.associate(bodies);
        for (calib::CameraBodies& earlier : associator.takeReleased()) frames.push_back(std::move(earlier));
        return frames;
    });
    std::map<std::pair<int, int>, int> who;
    int frames = 0, wrong = 0;
    const uint64_t start = 1700000000ull * 1000000000ull;
    for (int tick = 0; tick < 40 * 30; ++tick) {
        for (const pyra_sim::CameraSettings& camera : scene.cameras) {
            const uint64_t ns = start + uint64_t((tick + pyra_sim::cameraPhase(scene, camera) * 30) * 1e9 / 30);
            std::vector<pyra_sim::ObservedTruth> truth;
            const lum::Bodies bodies = pyra_sim::observe(scene, camera, ns, pyra_sim::ObservationOptions(), &truth);
            for (size_t i = 0; i < truth.size(); ++i) who[{int(camera.serial), bodies.body_list[i].id}] = truth[i].id;
            assembler.addBodies(int(camera.serial), bodies);
        }
        if (tick % 15 != 14) continue;
        for (const calib::CameraBodies& frame : assembler.assemble()) {
            std::set<int> people;
            for (const auto& [camera, body] : frame) people.insert(who.at({camera, body.id}));
            ++frames;
            wrong += people.size() > 1;
        }
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_GT(frames, 100);
}

// Pose-free evidence against a pose: none through the true poses while two people cross,
// plenty once one camera's pose is wrong, though then nothing of it pairs through the poses.
TEST(BodyAssociation, PoseFreeEvidenceContradictsOnlyAWrongPose) {
    const pyra_sim::Scene scene = crowd::room(2, true);
    std::map<int, lum::Transform> poses;
    for (const pyra_sim::CameraSettings& camera : scene.cameras) poses[int(camera.serial)] = camera.pose;
    const int wrong = int(scene.cameras[2].serial);
    const uint64_t start = 1700000000ull * 1000000000ull;
    calib::BodyAssociator associator;
    associator.setPoses(poses);
    int contradicted = 0, wrongFrames = 0;
    for (int step = 1; step <= 80; ++step) {
        if (step == 40) {
            poses[wrong] = poses[wrong] * lum::Transform(lum::Orientation(0.f, 0.2164f, 0.f, 0.9763f),
                                                         lum::Translation(0.6f, 0.f, 0.f));
            associator.setPoses(poses);
        }
        calib::SeenBodies seen;
        for (const pyra_sim::CameraSettings& camera : scene.cameras)
            seen[int(camera.serial)] =
                pyra_sim::observe(scene, camera, start + uint64_t(step) * 500000000ull, pyra_sim::ObservationOptions())
                    .body_list;
        for (const calib::PersonFrame& frame : associator.associate(seen))
            wrongFrames += step >= 40 && frame.count(wrong);
        for (const auto& [camera, pose] : poses) {
            const bool against = associator.poseContradicted(camera);
            EXPECT_TRUE(step >= 40 || !against) << camera << " at " << step;
            contradicted += camera == wrong && against;
        }
    }
    EXPECT_EQ(wrongFrames, 0);
    EXPECT_GT(contradicted, 20);
}

}  // namespace
