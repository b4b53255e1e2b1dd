// Tests of the room document writer: the exact text it produces, and the same room read
// back from the document sent to the hub and from the file saved after a calibration.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>

#include "workspace/room_file.hpp"
#include "workspace/room_usb.hpp"

namespace {

using lum::COORDINATE_SYSTEM;
using lum::UNIT;

lum::FusionConfiguration camera(int serial, const std::string& ip, int port) {
    lum::FusionConfiguration c;
    c.serial_number = serial;
    c.communication_parameters.setForLocalNetwork(ip, port);
    return c;
}

TEST(RoomDocument, ExactTextForTheEdgeCases) {
    EXPECT_EQ(roomfile::writeDocument({}, COORDINATE_SYSTEM::IMAGE, UNIT::MILLIMETER).dump(), "{}");

    // Identity pose, negative and zero serials, members sorted at every level.
    const auto doc = roomfile::writeDocument({camera(-5, "10.0.0.1", 30000), camera(0, "", 0)},
                                             COORDINATE_SYSTEM::IMAGE, UNIT::MILLIMETER);
    EXPECT_EQ(doc.dump(),
              R"({"-5":{"input":{"fusion":{"configuration":{"ip":"10.0.0.1","port":30000},"type":"LOCAL_NETWORK"},)"
              R"("pyra":{"configuration":"-5"}},"world":{"rotation":[0.0,0.0,0.0],"translation":[0.0,0.0,0.0]}},)"
              R"("0":{"input":{"fusion":{"configuration":{"ip":"","port":0},"type":"LOCAL_NETWORK"},)"
              R"("pyra":{"configuration":"0"}},"world":{"rotation":[0.0,0.0,0.0],"translation":[0.0,0.0,0.0]}}})");

    // Millimetres become metres; floats are widened, not rounded to float text.
    auto c = camera(1000, "h", 1);
    c.pose.setTranslation(lum::Translation(1000.f, 0.1f * 1000.f, -250.f));
    c.pose.setRotationVector(lum::Vector3f(0.1f, 0.f, 0.f));
    auto world = roomfile::write(c, COORDINATE_SYSTEM::IMAGE, UNIT::MILLIMETER)["world"];
    EXPECT_EQ(world["translation"].dump(), "[1.0,0.10000000149011612,-0.25]");
    EXPECT_EQ(world["rotation"].dump(), "[0.10000000149011612,0.0,0.0]");

    // Same serial twice: one member, the later record; "1000" sorts before "999".
    const auto twice = roomfile::writeDocument({camera(999, "a", 1), camera(1000, "b", 2), camera(999, "c", 3)},
                                               COORDINATE_SYSTEM::IMAGE, UNIT::METER);
    ASSERT_EQ(twice.size(), 2u);
    EXPECT_EQ(twice.begin().key(), "1000");
    EXPECT_EQ(twice["999"]["input"]["fusion"]["configuration"]["ip"], "c");

    // The in-memory document names a network input even for a camera on this computer.
    lum::FusionConfiguration local;
    local.serial_number = 7;
    local.communication_parameters.setForSharedMemory();
    EXPECT_EQ(roomfile::write(local, COORDINATE_SYSTEM::IMAGE, UNIT::METER)["input"]["fusion"].dump(),
              R"({"configuration":{"ip":"","port":0},"type":"LOCAL_NETWORK"})");
}

TEST(RoomDocument, TheHubDocumentAndTheSavedFileReadBackToTheSameRoom) {
    // A room as the dialog builds it (a plugged-in camera, one entered by hand), with the
    // poses a calibration found. Listed in the order of their keys, as they read back.
    lum::DeviceProperties plugged;
    plugged.serial_number = 41001;
    std::vector<lum::FusionConfiguration> room = {roomusb::configurationFor(plugged),
                                                  camera(52, "192.168.0.3", 30002)};
    room[0].pose.setRotationVector(lum::Vector3f(0.3f, -1.2f, 2.f));
    room[0].pose.setTranslation(lum::Translation(1.5f, 2.25f, -0.5f));
    room[1].pose.setRotationVector(lum::Vector3f(-2.f, 0.1f, 0.4f));
    room[1].pose.setTranslation(lum::Translation(-3.f, 0.75f, 4.f));

    const std::string path = ::testing::TempDir() + "room_document_" + std::to_string(::getpid()) + ".json";
    for (int s = 0; s < int(COORDINATE_SYSTEM::LAST); ++s) {
        const auto system = COORDINATE_SYSTEM(s);
        std::string error;
        const auto pushed = lum::readFusionConfiguration(roomfile::writeDocument(room, system, UNIT::METER).dump(),
                                                         system, UNIT::METER, &error);
        ASSERT_TRUE(lum::writeConfigurationFile(path, room, system, UNIT::METER, &error)) << error;
        const auto saved = lum::readFusionConfigurationFile(path, system, UNIT::METER, &error);
        ASSERT_EQ(pushed.size(), room.size()) << error;
        ASSERT_EQ(saved.size(), room.size()) << error;
        for (size_t i = 0; i < room.size(); ++i) {
            for (const auto* read : {&pushed[i], &saved[i]}) {
                EXPECT_EQ(read->serial_number, room[i].serial_number);
                const auto& comm = read->communication_parameters;
                // Only the file keeps shared memory; the hub document reaches every camera by network.
                const auto type = read == &saved[i] ? room[i].communication_parameters.getType()
                                                    : lum::COMM_TYPE::LOCAL_NETWORK;
                EXPECT_EQ(comm.getType(), type) << s << " " << i;
                EXPECT_EQ(comm.getIpAddress(), room[i].communication_parameters.getIpAddress());
                EXPECT_EQ(comm.getPort(), room[i].communication_parameters.getPort());
                EXPECT_TRUE(read->input_type.isFromSerialNumber());
                EXPECT_EQ(read->input_type.getNumber(), room[i].serial_number);
                for (int k = 0; k < 16; ++k) EXPECT_NEAR(read->pose.m[k], room[i].pose.m[k], 2e-6f) << s;
            }
        }
    }
    std::remove(path.c_str());
}

}  // namespace
