// halden-cli never writes a camera far from where it stands: corridors whose first solves
// used to settle a camera half a turn away, and a camera knocked in the middle of a walk.
#include <QProcess>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>

#include "lum/lum.hpp"
#include "pyra_sim/scene.hpp"
#include "testing/isolated_process.hpp"
#include "testing/pose_error.hpp"

namespace {

struct CliRun {
    int status = -1;
    std::string out, err;
};

// One calibration of `scenePath` on the virtual room clock, written to `output`.
CliRun calibrate(const std::string& scenePath, int seconds, const QString& output) {
    platform_test::isolateProcess();
    ::setenv("PYRA_SIM_SCENE", scenePath.c_str(), 1);
    ::setenv("PYRA_SIM_CLOCK", "virtual", 1);
    QProcess cli;
    cli.start(HALDEN_BINARY_DIR "/tools/halden_cli/halden-cli",
              {"calibrate", "--usb", "--seconds", QString::number(seconds), "--output", output});
    CliRun run;
    if (cli.waitForFinished(150000) && cli.exitStatus() == QProcess::NormalExit) run.status = cli.exitCode();
    run.out = cli.readAllStandardOutput().toStdString();
    run.err = cli.readAllStandardError().toStdString();
    ::unsetenv("PYRA_SIM_SCENE");
    ::unsetenv("PYRA_SIM_CLOCK");
    return run;
}

// Every written camera against the truth (after any knock), relative to the first written one.
void expectNearTruth(pyra_sim::Scene scene, const QString& output, const std::string& context) {
    for (pyra_sim::CameraSettings& camera : scene.cameras) camera = pyra_sim::cameraAt(camera, 1e6);
    std::string problem;
    const auto room = lum::readFusionConfigurationFile(output.toStdString(), lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP,
                                                       lum::UNIT::METER, &problem);
    ASSERT_GE(room.size(), 2u) << context << problem;
    const lum::Transform& trueReference = pyra_sim::findCamera(scene, unsigned(room.front().serial_number))->pose;
    for (const lum::FusionConfiguration& camera : room) {
        const lum::Transform truth = synthetic::relativePose(
            trueReference, pyra_sim::findCamera(scene, unsigned(camera.serial_number))->pose);
        const auto [rotation, translation] =
            synthetic::poseError(truth, synthetic::relativePose(room.front().pose, camera.pose));
        std::cout << context << ": camera " << camera.serial_number << " " << rotation << " deg, " << translation
                  << " mm" << std::endl;
        EXPECT_LT(rotation, 2.0) << context << " camera " << camera.serial_number;
        EXPECT_LT(translation, 100.0) << context << " camera " << camera.serial_number;
    }
}

}  // namespace

// One person in 12 m x 3 m corridors: cameras that only see the walk from the far end,
// or only each other, wait for an agreed pose instead of being written wherever the
// solver's first steps left them. The scenes lose no captures: with 1 % lost, corridor_a's
// far pair is still written 24 deg off, named as not good (exit 7).
TEST(WrongPose, ACorridorWalkNeverWritesACameraFarFromTheTruth) {
    for (const char* name : {"corridor_a", "corridor_b"}) {
        const std::string path = std::string(HALDEN_SOURCE_DIR "/tests/fusion/scenes/") + name + ".json";
        pyra_sim::Scene scene;
        std::string problem;
        ASSERT_TRUE(pyra_sim::loadScene(path, scene, &problem)) << problem;
        const QString output = QString::fromStdString(platform_test::privateFolder("files") + "/" + name + ".json");
        const CliRun run = calibrate(path, 60, output);
        ASSERT_TRUE(run.status == 0 || run.status == 7) << run.out << run.err;
        expectNearTruth(scene, output, name);
    }
}

// Camera 41003 knocked 4 degrees and 10 cm 35 s into the walk: it is found anew at its new
// pose from what it sees after the knock, never written where it stood before nor in between.
TEST(WrongPose, AKnockedCameraIsPlacedAnewAtItsNewPose) {
    const std::string path = platform_test::privateFolder("files") + "/knocked.json";
    {
        std::FILE* file = std::fopen(path.c_str(), "w");
        ASSERT_TRUE(file);
        std::fputs(R"({"seed": 5, "cameras": [
            {"serial": 41001, "position": [-2.8, 2.6, -2.8], "look_at": [0, 0.9, 0]},
            {"serial": 41002, "position": [2.8, 2.6, -2.8], "look_at": [0, 0.9, 0]},
            {"serial": 41003, "position": [2.8, 2.6, 2.8], "look_at": [0, 0.9, 0],
             "faults": {"knock_after_s": 35, "knock_rotation_deg": [0, 4, 0], "knock_shift": [0.1, 0, 0]}},
            {"serial": 41004, "position": [-2.8, 2.6, 2.8], "look_at": [0, 0.9, 0]}]})",
                   file);
        std::fclose(file);
    }
    pyra_sim::Scene scene;
    std::string problem;
    ASSERT_TRUE(pyra_sim::loadScene(path, scene, &problem)) << problem;
    const QString output = QString::fromStdString(platform_test::privateFolder("files") + "/knocked_room.json");
    const CliRun run = calibrate(path, 150, output);
    EXPECT_NE(run.err.find("re-seeding 41003"), std::string::npos) << run.err;
    ASSERT_TRUE(run.status == 0 || run.status == 7) << run.out << run.err;
    if (run.status == 7) {
        EXPECT_NE(run.err.find("camera 41003"), std::string::npos) << run.err;
    }
    expectNearTruth(scene, output, "knocked");
}
