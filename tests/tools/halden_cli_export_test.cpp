// halden-cli export: every format read back by another program's parser gives the room
// file's poses, and a room or a destination that cannot be used writes nothing.
#include <QFile>
#include <QProcess>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "lum/lum.hpp"
#include "testing/isolated_process.hpp"

namespace {

struct Outcome {
    int status = -1;
    std::string out;
};

Outcome runProgram(const QString& program, const QStringList& arguments) {
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(30000)) {
        process.kill();
        process.waitForFinished();
        return {};
    }
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            (process.readAllStandardOutput() + process.readAllStandardError()).toStdString()};
}

Outcome exportRoom(const QStringList& arguments) {
    return runProgram(HALDEN_BINARY_DIR "/tools/halden_cli/halden-cli", QStringList{"export"} + arguments);
}

QString inTemporary(const std::string& name) {
    return QString::fromStdString(platform_test::privateFolder("exports") + "/" + name);
}

// A room whose poses use all the digits a double holds, a half turn included (where
// rotation vectors and quaternions are least forgiving).
QString writeRoom() {
    std::vector<lum::FusionConfiguration> cameras(3);
    for (int i = 0; i < 3; ++i) {
        cameras[i].serial_number = 41001 + i;
        cameras[i].communication_parameters.setForLocalNetwork("127.0.0.1", 30000 + 2 * i);
    }
    const QString path = inTemporary("room.json");
    EXPECT_TRUE(lum::writeConfigurationFile(path.toStdString(), cameras, lum::COORDINATE_SYSTEM::IMAGE,
                                            lum::UNIT::METER));
    std::ifstream in(path.toStdString());
    nlohmann::json room = nlohmann::json::parse(in);
    room["41002"]["world"] = {{"rotation", {0.123456789012345, -1.98765432109876, 0.555555555555555}},
                              {"translation", {2.71828182845905, -2.4142135623731, -3.14159265358979}}};
    room["41003"]["world"] = {{"rotation", {0.1, 3.13, -0.2}}, {"translation", {-2.8, -2.6, 2.8000000000001}}};
    std::ofstream(path.toStdString()) << room.dump(4);
    return path;
}

}  // namespace

TEST(HaldenCliExport, EveryFormatReadsBackToTheRoomThroughOtherReaders) {
    platform_test::isolateProcess();
    const QString room = writeRoom();
    QStringList files;
    for (const char* format : {"opencv", "toml", "ros2", "matrix"}) {
        files << inTemporary(std::string("room.") + format);
        const Outcome done = exportRoom({room, "--format", format, "--output", files.back()});
        ASSERT_EQ(done.status, 0) << format << ": " << done.out;
    }
    const Outcome readBack =
        runProgram("python3", QStringList{HALDEN_SOURCE_DIR "/tests/tools/read_exports.py", room} + files);
    EXPECT_EQ(readBack.status, 0) << readBack.out;
    EXPECT_NE(readBack.out.find("largest difference"), std::string::npos) << readBack.out;

    EXPECT_EQ(exportRoom({room, "--format", "yaml", "--output", inTemporary("x")}).status, 1);
    EXPECT_EQ(exportRoom({room, "--format", "toml"}).status, 1);
    EXPECT_EQ(exportRoom({inTemporary("absent.json"), "--format", "toml", "--output", inTemporary("x")}).status, 2);
    const Outcome nowhere = exportRoom({room, "--format", "toml", "--output", inTemporary("no/such/room.toml")});
    EXPECT_EQ(nowhere.status, 6);
    EXPECT_NE(nowhere.out.find("no/such/room.toml"), std::string::npos) << nowhere.out;
    EXPECT_FALSE(QFile::exists(inTemporary("x")));
    // A pipe someone reads from is never replaced by a file.
    const QString pipe = inTemporary("pipe");
    ASSERT_EQ(::mkfifo(pipe.toLocal8Bit().constData(), 0600), 0);
    EXPECT_EQ(exportRoom({room, "--format", "toml", "--output", pipe}).status, 6);
}
