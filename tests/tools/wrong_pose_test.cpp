// halden-cli never writes a camera far from where it stands: corridors whose first solves
// used to settle a camera half a turn away, and a camera knocked in the middle of a walk.
#include <QProcess>

#include <gtest/gtest.h>

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

// Every written camera against the truth, relative to the first written one.
void expectNearTruth(const pyra_sim::Scene& scene, const QString& output, const std::string& context) {
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
// solver's first steps left them.
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
