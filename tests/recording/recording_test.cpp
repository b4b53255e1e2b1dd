// Recordings of a simulated room: exact round trips, files cut or damaged on disk, and
// files that are not recordings at all.
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "pyra_sim/scene.hpp"
#include "recording/recording_reader.hpp"
#include "recording/recording_writer.hpp"

namespace fs = std::filesystem;

namespace {

template <typename T>
bool sameBits(const std::vector<T>& a, const std::vector<T>& b) {
    return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(T)) == 0);
}

bool sameBits(const rec::RecordedBodies& a, const rec::RecordedBodies& b) {
    if (a.serial != b.serial || a.bodies.timestamp != b.bodies.timestamp || a.bodies.is_new != b.bodies.is_new ||
        a.bodies.body_format != b.bodies.body_format || a.bodies.body_list.size() != b.bodies.body_list.size())
        return false;
    for (size_t i = 0; i < a.bodies.body_list.size(); ++i) {
        const lum::BodyData& x = a.bodies.body_list[i];
        const lum::BodyData& y = b.bodies.body_list[i];
        if (x.id != y.id || x.unique_object_id != y.unique_object_id || x.tracking_state != y.tracking_state ||
            std::memcmp(&x.confidence, &y.confidence, sizeof(float)) || std::memcmp(&x.position, &y.position, 12) ||
            std::memcmp(&x.dimensions, &y.dimensions, 12) || !sameBits(x.keypoint, y.keypoint) ||
            !sameBits(x.keypoint_confidence, y.keypoint_confidence) ||
            !sameBits(x.keypoint_covariances, y.keypoint_covariances))
            return false;
    }
    return true;
}

class Recording : public ::testing::Test {
protected:
    void SetUp() override {
        dir_ = fs::temp_directory_path() / ("recording_test_" + std::to_string(::getpid()));
        fs::create_directories(dir_);
        // Two seconds of the default room, each camera at its own phase, as the fusion hands them over.
        const pyra_sim::Scene scene = pyra_sim::defaultScene();
        pyra_sim::ObservationOptions options;
        for (const pyra_sim::CameraSettings& camera : scene.cameras) {
            lum::FusionConfiguration entry;
            entry.serial_number = int(camera.serial);
            entry.pose = camera.pose;
            entry.input_type.setFromSerialNumber(camera.serial);
            header_.room.push_back(entry);
        }
        header_.room.back().communication_parameters.setForLocalNetwork("10.0.0.7", 30002);
        header_.coordinateSystem = options.coordinateSystem;
        header_.unit = options.unit;
        header_.createdBy = "recording_tests";
        const uint64_t start = 1'700'000'000'000'000'000ull;
        for (int frame = 0; frame < 60; ++frame)
            for (const pyra_sim::CameraSettings& camera : scene.cameras) {
                const double phase = pyra_sim::cameraPhase(scene, camera);
                const uint64_t t = start + uint64_t((phase + frame / camera.fps) * 1e9);
                entries_.push_back({int(camera.serial), pyra_sim::observe(scene, camera, t, options)});
                entries_.back().bodies.is_new = true;
            }
        entries_[5].bodies.body_list.at(0).unique_object_id = "tracker-7";
    }
    void TearDown() override { fs::remove_all(dir_); }

    std::string write(const std::string& name, bool close = true) {
        rec::RecordingWriterOptions options;
        options.chunkBytes = 16u << 10;  // several chunks from a short walk
        options.syncEachChunk = false;
        rec::RecordingWriter writer(options);
        std::string problem;
        const std::string path = (dir_ / name).string();
        EXPECT_TRUE(writer.open(path, header_, &problem)) << problem;
        for (const rec::RecordedBodies& entry : entries_) EXPECT_TRUE(writer.append(entry, &problem)) << problem;
        if (close) {
            EXPECT_TRUE(writer.close(&problem)) << problem;
        } else {
            EXPECT_TRUE(writer.flush(&problem)) << problem;
            fs::copy_file(path, path + ".crashed");  // what a power cut leaves behind
        }
        return close ? path : path + ".crashed";
    }

    static std::string bytesOf(const std::string& path) {
        std::ifstream in(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }

    // Reads everything; the entries returned must be the recorded ones, in order.
    size_t readPrefix(rec::RecordingReader& reader) {
        size_t count = 0;
        while (auto entry = reader.next()) {
            EXPECT_TRUE(count < entries_.size() && sameBits(*entry, entries_[count])) << "entry " << count;
            ++count;
        }
        return count;
    }

    fs::path dir_;
    rec::RecordingHeader header_;
    std::vector<rec::RecordedBodies> entries_;
};

TEST_F(Recording, RoundTripsASimulatedRoomBitForBitAndDeterministically) {
    const std::string path = write("walk.rec");
    rec::RecordingReader reader;
    std::string problem;
    ASSERT_TRUE(reader.open(path, &problem)) << problem;
    ASSERT_EQ(reader.header().room.size(), header_.room.size());
    for (size_t i = 0; i < header_.room.size(); ++i) {
        const lum::FusionConfiguration& got = reader.header().room[i];
        EXPECT_EQ(got.serial_number, header_.room[i].serial_number);
        EXPECT_EQ(got.pose, header_.room[i].pose);
        EXPECT_EQ(got.input_type.getNumber(), header_.room[i].input_type.getNumber());
        EXPECT_EQ(got.communication_parameters.getIpAddress(), header_.room[i].communication_parameters.getIpAddress());
    }
    EXPECT_EQ(reader.header().createdBy, "recording_tests");
    EXPECT_EQ(readPrefix(reader), entries_.size());
    EXPECT_FALSE(reader.truncated()) << reader.problem();
    // The same bodies make the same file, byte for byte, and a compressed one much smaller
    // than the MessagePack it carries.
    const std::string bytes = bytesOf(path);
    EXPECT_EQ(bytes, bytesOf(write("again.rec")));
    rec::Bytes packed;
    for (const rec::RecordedBodies& entry : entries_) rec::appendEntry(entry, packed);
    EXPECT_LT(bytes.size(), packed.size() * 3 / 4);
}

TEST_F(Recording, AFileCutAnywhereGivesEverythingBeforeTheCutAndSaysSo) {
    const std::string bytes = bytesOf(write("walk.rec"));
    size_t previous = 0;
    for (size_t cut = 100; cut < bytes.size(); cut += 2999) {
        rec::RecordingReader reader;
        std::string problem;
        if (!reader.openBytes(bytes.substr(0, cut), "cut.rec", &problem)) {  // inside the room
            EXPECT_NE(problem.find("chunk 0 at byte 12: cut short"), std::string::npos) << problem;
            continue;
        }
        const size_t count = readPrefix(reader);
        EXPECT_GE(count, previous);
        EXPECT_TRUE(reader.truncated());
        EXPECT_NE(reader.problem().find("cut"), std::string::npos) << reader.problem();
        previous = count;
    }
    EXPECT_GT(previous, entries_.size() / 2);
    // A crash between chunks keeps every flushed entry, and is still told apart from a closed file.
    rec::RecordingReader crashed;
    std::string problem;
    ASSERT_TRUE(crashed.open(write("live.rec", false), &problem)) << problem;
    EXPECT_EQ(readPrefix(crashed), entries_.size());
    EXPECT_TRUE(crashed.truncated());
    EXPECT_NE(crashed.problem().find("without its closing chunk"), std::string::npos) << crashed.problem();
}

TEST_F(Recording, DamagedOrForeignFilesAreRefusedWithTheReason) {
    const std::string bytes = bytesOf(write("walk.rec"));
    auto openProblem = [](const std::string& content) {
        rec::RecordingReader reader;
        std::string problem;
        EXPECT_FALSE(reader.openBytes(content, "x.rec", &problem));
        return problem;
    };
    std::string future = bytes;
    future[8] = 2;
    EXPECT_NE(openProblem(future).find("format version 2 is newer"), std::string::npos);
    EXPECT_NE(openProblem(bytes.substr(0, 10)).find("file header cut short"), std::string::npos);
    EXPECT_NE(openProblem("{\"room\": 1}").find("wrong magic"), std::string::npos);
    EXPECT_NE(openProblem(bytes.substr(0, 40)).find("chunk 0 at byte 12: cut short"), std::string::npos);

    // One flipped bit in the middle of the bodies stops the replay at that chunk.
    std::string flipped = bytes;
    flipped[bytes.size() / 2] ^= 0x10;
    rec::RecordingReader reader;
    std::string problem;
    ASSERT_TRUE(reader.openBytes(flipped, "flipped.rec", &problem)) << problem;
    const size_t count = readPrefix(reader);
    EXPECT_GT(count, 0u);
    EXPECT_LT(count, entries_.size());
    EXPECT_TRUE(reader.truncated());
    EXPECT_NE(reader.problem().find("checksum mismatch"), std::string::npos) << reader.problem();

    // Neither a FIFO nor a folder may be waited on or read as a recording.
    const std::string fifo = (dir_ / "fifo").string();
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_FALSE(reader.open(fifo, &problem));
    EXPECT_NE(problem.find("is a FIFO"), std::string::npos) << problem;
    EXPECT_FALSE(reader.open(dir_.string(), &problem));
    EXPECT_NE(problem.find("is a folder"), std::string::npos) << problem;
    EXPECT_FALSE(reader.open((dir_ / "missing.rec").string(), &problem));
    EXPECT_NE(problem.find("No such file"), std::string::npos) << problem;
}

}  // namespace
