// The room sweep's judgement: errors in whatever world frame the room file chose, the
// reference a solve holds fixed, and which claims count as silent failures.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>

#include "bench/room_sweep/room_judge.hpp"
#include "bench/room_sweep/room_run.hpp"
#include "bench/room_sweep/sweep_results.hpp"
#include "testing/isolated_process.hpp"

namespace {

lum::Transform moved(const lum::Transform& pose, float x, float y, float z) {
    lum::Transform out = pose;
    out.setTranslation(lum::Translation(pose.getTranslation() + lum::Vector3f(x, y, z)));
    return out;
}

sweep::CameraResult camera(unsigned serial, const char* verdict, double sigmaDeg, double sigmaMm) {
    sweep::CameraResult c;
    c.serial = serial;
    c.verdict = verdict;
    c.sigmaDeg = sigmaDeg;
    c.sigmaMm = sigmaMm;
    c.sharedSeconds = 40;
    return c;
}

}  // namespace

TEST(RoomSweep, JudgesErrorsFromTheReferenceAndCountsOnlyVouchedCameras) {
    const pyra_sim::Scene truth = pyra_sim::defaultScene();
    lum::Transform world;  // a levelled room file's frame is anywhere relative to the room
    world.setRotationVector(lum::Vector3f(0.3f, -1.1f, 0.2f));
    world.setTranslation(lum::Translation(1.f, -2.f, 0.5f));
    std::map<unsigned, lum::Transform> saved;
    saved[41001] = world * truth.cameras[0].pose;
    saved[41002] = world * moved(truth.cameras[1].pose, 0.012f, 0, 0);
    saved[41003] = world * moved(truth.cameras[2].pose, 0, 0.040f, 0);

    sweep::RoomResult room;
    room.status = 7;
    room.cameras = {camera(41001, "good", 0.1, 5), camera(41002, "good", 0.1, 3), camera(41003, "settling", 1, 50),
                    camera(41004, "no_data", NAN, NAN)};
    sweep::judgeRoom(truth, saved, room);
    EXPECT_TRUE(room.cameras[0].reference);
    EXPECT_NEAR(room.cameras[0].errorMm, 0, 1e-3);
    EXPECT_NEAR(room.cameras[1].errorMm, 12, 0.01);
    EXPECT_NEAR(room.cameras[2].errorMm, 40, 0.01);
    EXPECT_NEAR(room.cameras[2].errorDeg, 0, 1e-3);
    EXPECT_FALSE(room.cameras[3].saved);
    // Good at a stated 3 mm but 12 mm off; the settling camera's claim was honest.
    EXPECT_EQ(room.silentFailures(), 1);
    EXPECT_TRUE(room.cameras[1].silent);
    double deg = 0, mm = 0;
    ASSERT_TRUE(room.worstGood(deg, mm));
    EXPECT_NEAR(mm, 12, 0.01);

    // Exit 0 vouches for every written camera: 40 mm is wrong whatever its sigma said.
    room.status = 0;
    room.cameras[1].sigmaMm = 5;
    sweep::judgeRoom(truth, saved, room);
    EXPECT_FALSE(room.cameras[1].silent);
    EXPECT_TRUE(room.cameras[2].silent);

    // Without the first camera the next saved one holds the world: 41003 is then measured
    // against a reference that is itself 12 mm off.
    saved.erase(41001);
    sweep::judgeRoom(truth, saved, room);
    EXPECT_TRUE(room.cameras[1].reference);
    EXPECT_NEAR(room.cameras[2].errorMm, std::hypot(12.0, 40.0), 0.01);
    EXPECT_TRUE(std::isnan(room.cameras[0].errorMm));
    EXPECT_EQ(room.consensus, 41002u);

    // A reference placed half a metre off: every other camera reads wrong relative to
    // it, and the consensus names the reference as the odd one.
    for (size_t i = 0; i < 4; ++i) saved[41001 + i] = world * truth.cameras[i].pose;
    saved[41001] = world * moved(truth.cameras[0].pose, 0.5f, 0, 0);
    sweep::judgeRoom(truth, saved, room);
    EXPECT_NEAR(room.cameras[3].errorMm, 500, 0.1);
    EXPECT_EQ(room.consensus, 41002u);
}

TEST(RoomSweep, ResultLinesKeepUnknownsAndPercentilesTakeTheNearestRank) {
    sweep::RoomResult room;
    room.seed = 17;
    room.status = 7;
    room.cameras = {camera(1, "settling", NAN, 4.5)};
    const sweep::RoomResult back = sweep::roomFromJson(nlohmann::json::parse(sweep::toJson(room).dump()));
    EXPECT_EQ(back.seed, 17u);
    EXPECT_TRUE(std::isnan(back.cameras[0].sigmaDeg));
    EXPECT_EQ(back.cameras[0].sigmaMm, 4.5);
    EXPECT_TRUE(back.qualifies());

    std::vector<double> values;
    for (int i = 20; i >= 1; --i) values.push_back(i);
    EXPECT_EQ(sweep::percentile(values, 0.95), 19);
    EXPECT_EQ(sweep::percentile({4, 1, 3, 2}, 0.5), 2);
    EXPECT_TRUE(std::isnan(sweep::percentile({}, 0.5)));
}

// One short generated room (3 cameras, 70 s on the virtual clock) through the real program:
// what the sweep reads from halden-cli must be there, or every count would read zero.
TEST(RoomSweep, ReadsAVerdictAndAnErrorForEveryCameraOfARealRun) {
    sweep::GeneratedRoom generated;
    std::string problem;
    ASSERT_TRUE(sweep::generateRoom(48, generated, &problem)) << problem;
    sweep::RunSettings settings;
    settings.cli = HALDEN_BINARY_DIR "/tools/halden_cli/halden-cli";
    settings.folder = platform_test::privateFolder("sweep");
    settings.timeoutSeconds = 120;
    const sweep::RoomResult room = sweep::runRoom(generated, settings);
    EXPECT_TRUE(room.problem.empty()) << room.problem;
    EXPECT_TRUE(room.status == 0 || room.status == 7) << room.status;
    EXPECT_GT(room.captures, 0);
    EXPECT_GT(room.solves, 0);
    for (const sweep::CameraResult& camera : room.cameras) {
        EXPECT_FALSE(camera.verdict.empty()) << camera.serial;
        EXPECT_EQ(camera.saved, std::isfinite(camera.errorMm)) << camera.serial;
    }
    // A room that went well leaves no files behind.
    EXPECT_FALSE(std::filesystem::exists(settings.folder + "/room-48"));
}
