// halden-cli from the outside: exit statuses for rooms that cannot be calibrated, and a
// full headless calibration of a simulated room with two people checked against its truth.
#include <QFile>
#include <QProcess>

#include <gtest/gtest.h>

#include <iostream>
#include <nlohmann/json.hpp>

#include "pyra_sim/scene.hpp"
#include "tests/fusion/fusion_support.hpp"
#include "tests/fusion/synthetic_store.hpp"

namespace {

struct CliRun {
    int status = -1;
    std::string out;
    std::string err;
};

CliRun runCli(const QStringList& arguments, int timeoutMs = 120000) {
    fusiontest::isolateProcess();
    QProcess cli;
    cli.start(HALDEN_BINARY_DIR "/tools/halden_cli/halden-cli", arguments);
    CliRun run;
    if (!cli.waitForFinished(timeoutMs)) {
        cli.kill();
        cli.waitForFinished();
        return run;
    }
    run.status = cli.exitStatus() == QProcess::NormalExit ? cli.exitCode() : -1;
    run.out = cli.readAllStandardOutput().toStdString();
    run.err = cli.readAllStandardError().toStdString();
    return run;
}

QString inTemporary(const std::string& name) { return QString::fromStdString(fusiontest::temporaryFolder() + "/" + name); }

}  // namespace

TEST(HaldenCli, RefusesWhatCannotBeCalibratedWithDistinctStatuses) {
    EXPECT_EQ(runCli({"calibrate", "--usb", "--room", "x.json", "--output", "o"}).status, 1);

    const CliRun missing = runCli({"calibrate", "--room", inTemporary("missing.json"), "--output", "o"});
    EXPECT_EQ(missing.status, 2);
    EXPECT_NE(missing.err.find("missing.json"), std::string::npos) << missing.err;

    lum::FusionConfiguration lone;
    lone.serial_number = 41001;
    lone.communication_parameters.setForSharedMemory();
    const QString single = inTemporary("single.json");
    ASSERT_TRUE(lum::writeConfigurationFile(single.toStdString(), {lone}, lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP,
                                            lum::UNIT::METER));
    EXPECT_EQ(runCli({"calibrate", "--room", single, "--output", "o"}).status, 3);

    const CliRun help = runCli({"--help"});
    EXPECT_EQ(help.status, 0);
    for (const char* documented : {"--room", "--usb", "--seconds", "--output", "--report", "--depth-mode",
                                   "--body-model", "--confidence", "devices", "Exit status"})
        EXPECT_NE(help.out.find(documented), std::string::npos) << documented;
}

TEST(HaldenCli, CalibratesARoomWithTwoPeopleWithinTheBenchmarkAccuracy) {
    const char* scenePath = HALDEN_SOURCE_DIR "/tests/fusion/scenes/two_people.json";
    pyra_sim::Scene scene;
    std::string problem;
    ASSERT_TRUE(pyra_sim::loadScene(scenePath, scene, &problem)) << problem;
    qputenv("PYRA_SIM_SCENE", scenePath);
    const QString output = inTemporary("room");
    const QString report = inTemporary("report.json");
    const CliRun run = runCli({"calibrate", "--usb", "--seconds", "40", "--output", output, "--report", report}, 150000);
    qunsetenv("PYRA_SIM_SCENE");
    ASSERT_EQ(run.status, 0) << run.out << run.err;
    // Every camera sees both people most of the time; the progress line says whose bodies count.
    EXPECT_NE(run.err.find("2 people, used"), std::string::npos) << run.err;

    const auto room = lum::readFusionConfigurationFile(output.toStdString() + ".json",
                                                       lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP, lum::UNIT::METER,
                                                       &problem);
    ASSERT_EQ(room.size(), scene.cameras.size()) << problem;
    const lum::Transform& trueReference = scene.cameras.front().pose;
    const lum::Transform& foundReference = room.front().pose;
    for (size_t i = 1; i < room.size(); ++i) {
        ASSERT_EQ(room[i].serial_number, static_cast<int>(scene.cameras[i].serial));
        const lum::Transform truth = fusiontest::relativePose(trueReference, scene.cameras[i].pose);
        const lum::Transform found = fusiontest::relativePose(foundReference, room[i].pose);
        const double rotation = fusiontest::rotationErrorDeg(truth, found);
        const double translation = fusiontest::translationError(truth, found);
        std::cout << "camera " << room[i].serial_number << ": " << rotation << " deg, " << translation * 1000
                  << " mm" << std::endl;
        EXPECT_LT(rotation, 2.0) << room[i].serial_number;
        EXPECT_LT(translation, 0.10) << room[i].serial_number;
    }

    QFile file(report);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const nlohmann::json parsed = nlohmann::json::parse(file.readAll().toStdString(), nullptr, false);
    ASSERT_FALSE(parsed.is_discarded());
    EXPECT_TRUE(parsed.value("usable", false));
    EXPECT_EQ(parsed["cameras"].size(), scene.cameras.size());
}
