// Tests of the library's room configuration files: round trips in every frame and unit,
// the document Halden's own writer makes, and bad files of every kind.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>

#include "lum/lum.hpp"

namespace {

namespace fs = std::filesystem;
using lum::COORDINATE_SYSTEM;
using lum::UNIT;

class RoomFile : public ::testing::Test {
protected:
    void SetUp() override {
        dir_ = fs::temp_directory_path() / ("room_config_test_" + std::to_string(::getpid()));
        fs::remove_all(dir_);
        fs::create_directories(dir_);
    }
    void TearDown() override { fs::remove_all(dir_); }

    std::string file(const std::string& name, const std::string& contents) const {
        const std::string path = (dir_ / name).string();
        std::ofstream(path, std::ios::binary) << contents;
        return path;
    }
    static std::string slurp(const std::string& path) {
        std::ifstream in(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }

    fs::path dir_;
};

std::vector<lum::FusionConfiguration> sampleRoom() {
    std::mt19937 rng(5);
    std::uniform_real_distribution<float> u(-3.f, 3.f);
    std::vector<lum::FusionConfiguration> room(5);
    for (size_t i = 0; i < room.size(); ++i) {
        room[i].serial_number = 30000000 + int(i) * 7;
        room[i].pose.setRotationVector(lum::Vector3f(u(rng), u(rng), u(rng)) * 0.9f);
        room[i].pose.setTranslation(lum::Translation(u(rng), u(rng), u(rng)));
        room[i].communication_parameters.setForLocalNetwork("192.168.1." + std::to_string(10 + i), 30000 + 2 * int(i));
    }
    room[0].communication_parameters.setForSharedMemory();
    room[0].input_type.setFromSerialNumber(30000000);
    room[1].input_type.setFromCameraID(2);
    room[2].input_type.setFromSVOFile("/data/walk.svo");
    room[3].input_type.setFromStream("10.0.0.4", 30010);
    room[4].serial_number = 5;  // only the default input: opened by its serial number
    return room;
}

TEST_F(RoomFile, RoundTripInEverySystemAndUnit) {
    const auto room = sampleRoom();
    const std::string path = (dir_ / "room.json").string();
    for (int c = 0; c < int(COORDINATE_SYSTEM::LAST); ++c) {
        for (int u = 0; u < int(UNIT::LAST); ++u) {
            const auto system = COORDINATE_SYSTEM(c);
            const auto unit = UNIT(u);
            // Poses stated in metres, expressed in the unit under test.
            auto written = room;
            for (auto& camera : written) lum::convertUnit(camera.pose, UNIT::METER, unit);

            std::string error;
            ASSERT_TRUE(lum::writeConfigurationFile(path, written, system, unit, &error)) << error;
            const auto read = lum::readFusionConfigurationFile(path, system, unit, &error);
            ASSERT_EQ(read.size(), written.size()) << error;
            for (const auto& expected : written) {
                const auto it = std::find_if(read.begin(), read.end(), [&](const lum::FusionConfiguration& r) {
                    return r.serial_number == expected.serial_number;
                });
                ASSERT_NE(it, read.end()) << expected.serial_number;
                const auto& ec = expected.communication_parameters;
                EXPECT_EQ(it->communication_parameters.getType(), ec.getType());
                EXPECT_EQ(it->communication_parameters.getPort(), ec.getPort());
                EXPECT_EQ(it->communication_parameters.getIpAddress(), ec.getIpAddress());
                // A camera without an input of its own is opened by its serial number.
                lum::InputType input = expected.input_type;
                if (!input.isInit()) input.setFromSerialNumber(static_cast<unsigned>(expected.serial_number));
                EXPECT_EQ(it->input_type.getType(), input.getType());
                EXPECT_EQ(it->input_type.getConfiguration(), input.getConfiguration());
                EXPECT_EQ(it->input_type.getNumber(), input.getNumber());
                EXPECT_EQ(it->input_type.isFromSerialNumber(), input.isFromSerialNumber());
                const float scale = lum::getUnitScale(UNIT::METER, unit);
                for (int i = 0; i < 16; ++i)
                    EXPECT_NEAR(it->pose.m[i], expected.pose.m[i], (i % 4 == 3 ? 2e-6f * scale : 2e-6f))
                        << c << "/" << u << " element " << i;
            }
        }
    }
    // Nothing but the room file is left beside it.
    EXPECT_EQ(std::distance(fs::directory_iterator(dir_), fs::directory_iterator()), 1);
}

TEST_F(RoomFile, ReadsHaldensOwnDocumentAndExpandsHome) {
    const std::string document = R"({"17": {"input": {"fusion": {"configuration": {"ip": "10.1.2.3", "port": 30004},
        "type": "LOCAL_NETWORK"}, "pyra": {"configuration": "17"}},
        "world": {"rotation": [0.0, 0.0, 0.0], "translation": [1.0, 2.0, 3.0]}}})";
    const char* oldHome = std::getenv("HOME");
    const std::string savedHome = oldHome ? oldHome : "";
    ::setenv("HOME", dir_.c_str(), 1);
    file("room.json", document);
    std::string error;
    const auto read = lum::readFusionConfigurationFile("~/room.json", COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP,
                                                       UNIT::MILLIMETER, &error);
    ::setenv("HOME", savedHome.c_str(), 1);

    ASSERT_EQ(read.size(), 1u) << error;
    EXPECT_EQ(read[0].serial_number, 17);
    EXPECT_EQ(read[0].communication_parameters.getType(), lum::COMM_TYPE::LOCAL_NETWORK);
    EXPECT_EQ(read[0].communication_parameters.getIpAddress(), "10.1.2.3");
    EXPECT_EQ(read[0].input_type.getNumber(), 17);
    EXPECT_TRUE(read[0].input_type.isFromSerialNumber());
    // Image frame (y down, z forward) to right-handed y up (y up, z backward), in mm.
    EXPECT_TRUE(read[0].pose.getTranslation() == lum::Vector3f(1000.f, -2000.f, -3000.f));
}

TEST_F(RoomFile, BadDocumentsGiveNoCamerasAndSayWhy) {
    const std::string good = R"("input": {"fusion": {"type": "LOCAL_NETWORK", "configuration": {"ip": "a", "port": 2}},
        "pyra": {"configuration": "12"}}, "world": {"rotation": [0, 0, 0], "translation": [0, 0, 0]})";
    auto camera = [&](const std::string& key, std::string body) { return "{\"" + key + "\": {" + body + "}}"; };
    auto replaced = [&](const std::string& from, const std::string& to) {
        std::string body = good;
        body.replace(body.find(from), from.size(), to);
        return camera("12", body);
    };
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"", "empty"},
        {"{\"12\": ", "not valid JSON"},
        {"[1, 2]", "must be an object of cameras"},
        {"{\"12\": 5}", "camera \"12\": the camera must be an object"},
        {camera("abc", good), "camera \"abc\": the key must be the camera's serial number"},
        {camera("012", good), "camera \"012\": the key"},
        {camera("-41001", good), "camera \"-41001\": the key must be the camera's serial number (a positive"},
        {camera("0", good), "camera \"0\": the key must be"},
        {replaced("\"configuration\": \"12\"", "\"configuration\": \"-12\""), "\"input\".\"pyra\".\"configuration\" must"},
        {replaced("\"world\"", "\"typo_wrold\": 1, \"world\""), "camera \"12\": \"typo_wrold\" is not a known member"},
        {replaced("\"port\": 2", "\"port\": 2, \"prot\": 3"),
         "\"input\".\"fusion\".\"configuration\".\"prot\" is not a known member"},
        {replaced("\"port\": 2", "\"port\": 2, \"port\": 3"), "member \"port\" appears twice"},
        {replaced("\"rotation\": [0, 0, 0]", "\"rotation\": [0, 0]"),
         "camera \"12\": \"world\".\"rotation\" must be an array of 3 numbers"},
        {replaced("\"translation\": [0, 0, 0]", "\"translation\": [0, 1e300, 0]"), "out of range"},
        {replaced("\"translation\": [0, 0, 0]", "\"translation\": [0, NaN, 0]"), "not valid JSON"},
        {replaced("\"world\"", "\"earth\""), "\"world\" is missing"},
        {replaced("\"port\": 2", "\"port\": -1"), "\"port\" must be an integer from 0 to 65535"},
        {replaced("\"port\": 2", "\"port\": 65536"), "\"port\" must be an integer from 0 to 65535"},
        {replaced("\"ip\": \"a\"", "\"ip\": 7"), "\"input\".\"fusion\".\"configuration\".\"ip\" must be a string"},
        {replaced("LOCAL_NETWORK", "CARRIER_PIGEON"), "\"input\".\"fusion\".\"type\" must be"},
        {replaced("\"configuration\": \"12\"", "\"configuration\": \"twelve\""), "\"input\".\"pyra\".\"configuration\""},
        {replaced("\"configuration\": \"12\"", "\"configuration\": \"12\", \"type\": \"FLOPPY\""),
         "\"input\".\"pyra\".\"type\" must be one of"},
        {std::string(100, '[') + std::string(100, ']'), "nested deeper"},
    };
    for (const auto& [text, expected] : cases) {
        std::string error;
        EXPECT_TRUE(lum::readFusionConfiguration(text, COORDINATE_SYSTEM::IMAGE, UNIT::METER, &error).empty())
            << text;
        EXPECT_NE(error.find(expected), std::string::npos) << text << "\n  gave: " << error;
    }

    // The file's name leads the message.
    std::string error;
    const std::string path = file("bad.json", replaced("\"port\": 2", "\"port\": 1e9"));
    EXPECT_TRUE(lum::readFusionConfigurationFile(path, COORDINATE_SYSTEM::IMAGE, UNIT::METER, &error).empty());
    EXPECT_EQ(error, path + ": camera \"12\": \"input\".\"fusion\".\"configuration\".\"port\" must be an integer "
                            "from 0 to 65535");

    // One camera twice: the parser would keep only the last, so the file is refused.
    const std::string twice = "{\"12\": {" + good + "}, \"13\": {" + good + "}, \"12\": {" + good + "}}";
    EXPECT_TRUE(lum::readFusionConfiguration(twice, COORDINATE_SYSTEM::IMAGE, UNIT::METER, &error).empty());
    EXPECT_NE(error.find("camera \"12\" appears twice"), std::string::npos) << error;
}

TEST_F(RoomFile, BadFilesAndFailedWritesLeaveNoTrace) {
    std::string error;
    const std::string missing = (dir_ / "missing.json").string();
    EXPECT_TRUE(lum::readFusionConfigurationFile(missing, COORDINATE_SYSTEM::IMAGE, UNIT::METER, &error).empty());
    EXPECT_EQ(error.rfind(missing + ": ", 0), 0u) << error;

    EXPECT_TRUE(lum::readFusionConfigurationFile(dir_.string(), COORDINATE_SYSTEM::IMAGE, UNIT::METER, &error).empty());
    EXPECT_NE(error.find("not a regular file"), std::string::npos) << error;

    // 100 MB of garbage is refused by its size, without being read.
    const std::string huge = file("huge.json", "garbage");
    fs::resize_file(huge, 100u << 20);
    EXPECT_TRUE(lum::readFusionConfigurationFile(huge, COORDINATE_SYSTEM::IMAGE, UNIT::METER, &error).empty());
    EXPECT_NE(error.find("larger than 1 MiB"), std::string::npos) << error;
    fs::remove(huge);

    // A pose that cannot be written faithfully leaves the old file as it was.
    auto room = sampleRoom();
    const std::string path = (dir_ / "room.json").string();
    ASSERT_TRUE(lum::writeConfigurationFile(path, room, COORDINATE_SYSTEM::IMAGE, UNIT::METER, &error)) << error;
    const std::string before = slurp(path);
    room[2].pose.m[3] = NAN;
    EXPECT_FALSE(lum::writeConfigurationFile(path, room, COORDINATE_SYSTEM::IMAGE, UNIT::METER, &error));
    EXPECT_EQ(error, path + ": camera \"30000014\": the pose is not finite or out of range");
    EXPECT_EQ(slurp(path), before);

    const std::string nowhere = (dir_ / "no" / "room.json").string();
    EXPECT_FALSE(lum::writeConfigurationFile(nowhere, sampleRoom(), COORDINATE_SYSTEM::IMAGE, UNIT::METER, &error));
    EXPECT_EQ(error.rfind(nowhere + ": cannot create a temporary file", 0), 0u) << error;
    EXPECT_EQ(std::distance(fs::directory_iterator(dir_), fs::directory_iterator()), 1);
}

// Replacing keeps what the user set up around the file; what is written can be read back;
// and bytes from a hostile document never reach the terminal raw.
TEST_F(RoomFile, WritesRespectTheFileAndTheReaderAndMessagesStayPrintable) {
    std::string error;
    const std::string target = (dir_ / "private.json").string();
    const std::string link = (dir_ / "link.json").string();
    ASSERT_TRUE(lum::writeConfigurationFile(target, sampleRoom(), COORDINATE_SYSTEM::IMAGE, UNIT::METER, &error));
    fs::permissions(target, fs::perms::owner_read | fs::perms::owner_write);
    fs::create_symlink(target, link);
    auto room = sampleRoom();
    room[1].pose.setTranslation(lum::Translation(1.f, 2.f, 3.f));
    ASSERT_TRUE(lum::writeConfigurationFile(link, room, COORDINATE_SYSTEM::IMAGE, UNIT::METER, &error)) << error;
    EXPECT_TRUE(fs::is_symlink(link));
    EXPECT_EQ(fs::status(target).permissions() & fs::perms::all, fs::perms::owner_read | fs::perms::owner_write);
    const auto reread = lum::readFusionConfigurationFile(target, COORDINATE_SYSTEM::IMAGE, UNIT::METER);
    EXPECT_TRUE(std::any_of(reread.begin(), reread.end(), [&](const lum::FusionConfiguration& c) {
        return c.serial_number == room[1].serial_number && c.pose.getTranslation().x == 1.f;
    }));

    // A dangling link promises a file: it is created and the link kept. Nodes are never replaced.
    const std::string promised = (dir_ / "promised.json").string();
    fs::create_symlink(promised, dir_ / "dangling.json");
    ASSERT_TRUE(lum::writeConfigurationFile((dir_ / "dangling.json").string(), room, COORDINATE_SYSTEM::IMAGE,
                                            UNIT::METER, &error)) << error;
    EXPECT_TRUE(fs::is_symlink(dir_ / "dangling.json"));
    EXPECT_EQ(lum::readFusionConfigurationFile(promised, COORDINATE_SYSTEM::IMAGE, UNIT::METER).size(), room.size());
    const std::string pipe = (dir_ / "pipe.json").string();
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_FALSE(lum::writeConfigurationFile(pipe, room, COORDINATE_SYSTEM::IMAGE, UNIT::METER, &error));
    EXPECT_NE(error.find("not a regular file"), std::string::npos) << error;
    EXPECT_TRUE(fs::is_fifo(pipe));
    fs::remove(pipe);

    std::vector<lum::FusionConfiguration> crowd(7000, sampleRoom()[3]);
    for (size_t i = 0; i < crowd.size(); ++i) crowd[i].serial_number = 40000000 + int(i);
    const std::string big = (dir_ / "crowd.json").string();
    EXPECT_FALSE(lum::writeConfigurationFile(big, crowd, COORDINATE_SYSTEM::IMAGE, UNIT::METER, &error));
    EXPECT_NE(error.find("more than the 1 MiB"), std::string::npos) << error;
    EXPECT_FALSE(fs::exists(big));

    const std::string hostile = file("hostile\x1b.json", "{\"\\u001b[2J\": 5}");
    EXPECT_TRUE(lum::readFusionConfigurationFile(hostile, COORDINATE_SYSTEM::IMAGE, UNIT::METER, &error).empty());
    EXPECT_NE(error.find("hostile\\x1b.json"), std::string::npos) << error;
    EXPECT_TRUE(std::none_of(error.begin(), error.end(), [](char c) { return (unsigned char)c < 0x20; })) << error;
    // Bytes that are not UTF-8 garble a terminal too; well-formed characters stay.
    const std::string garbled = file("caf\xc3\xa9-\xff\xc3(.json", "[");
    EXPECT_TRUE(lum::readFusionConfigurationFile(garbled, COORDINATE_SYSTEM::IMAGE, UNIT::METER, &error).empty());
    EXPECT_NE(error.find("caf\xc3\xa9-\\xff\\xc3(.json"), std::string::npos) << error;
}

}  // namespace
