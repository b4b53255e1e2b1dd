// Recording and replaying through the fusion worker on the virtual room clock: one scene
// gives one recording, a replay saves the room the live run saved, a file cut short
// replays up to the cut; and the capture clock shrugs off a clock set back.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <iterator>

#include "fusion/body_source.hpp"
#include "fusion/fusion_worker.hpp"
#include "fusion/recorded_source.hpp"
#include "pyra_sim/scene.hpp"
#include "recording/recording_writer.hpp"
#include "tests/fusion/fusion_support.hpp"
#include "testing/isolated_process.hpp"
#include "workspace/room_usb.hpp"

namespace {

constexpr int64_t kSeconds = 1000000000;

std::string fileBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::map<int, lum::Transform> poses(const std::vector<lum::FusionConfiguration>& room) {
    std::map<int, lum::Transform> found;
    for (const lum::FusionConfiguration& camera : room) found[camera.serial_number] = camera.pose;
    return found;
}

// Runs `worker` (already set up) until its run ends, then concludes the calibration.
std::vector<lum::FusionConfiguration> calibrated(FusionWorker& worker, const std::atomic<bool>& ended) {
    // No time-out that matters: on the virtual clock nothing here depends on how fast it goes.
    EXPECT_TRUE(fusiontest::waitFor([&] { return ended.load(); }, fusiontest::kNoTimeout));
    std::vector<lum::FusionConfiguration> room = worker.concludeCalibration();
    worker.close();
    return room;
}

// The default room live on the virtual clock for `seconds`, recorded into `path`.
std::vector<lum::FusionConfiguration> calibrateLive(const std::string& path, int seconds) {
    const std::vector<lum::FusionConfiguration> room = roomusb::discover().configurations;
    rec::RecordingWriter writer;
    rec::RecordingHeader header;
    header.room = room;
    std::string problem;
    EXPECT_TRUE(writer.open(path, header, &problem)) << problem;
    std::atomic<bool> ended{false};
    FusionWorker worker;  // after what its thread uses, so it is joined first
    worker.setCaptureSink([&](int serial, const lum::Bodies& bodies) { writer.append({serial, bodies}, nullptr); });
    worker.setCalibrateOnStart(true);
    worker.setRunLength(seconds * kSeconds);
    QObject::connect(&worker, &FusionWorker::runEnded, [&] { ended = true; });
    worker.setup(room, AppParams());
    std::vector<lum::FusionConfiguration> saved = calibrated(worker, ended);
    EXPECT_TRUE(writer.close(&problem)) << problem;
    return saved;
}

struct Replayed {
    std::vector<lum::FusionConfiguration> room;
    uint64_t captures = 0;
    bool truncated = false;
};

Replayed calibrateReplay(const std::string& path) {
    auto reader = std::make_unique<rec::RecordingReader>();
    std::string problem;
    EXPECT_TRUE(reader->open(path, &problem)) << problem;
    const std::vector<lum::FusionConfiguration> room = reader->header().room;
    auto source = std::make_unique<RecordedBodySource>(std::move(reader), roomFusionParameters().synchronization);
    const RecordedBodySource* played = source.get();
    std::atomic<bool> ended{false};
    FusionWorker worker;
    worker.setCalibrateOnStart(true);
    QObject::connect(&worker, &FusionWorker::runEnded, [&] { ended = true; });
    worker.setupReplay(std::move(source), room);
    Replayed replayed;
    replayed.room = calibrated(worker, ended);
    replayed.captures = played->captures();
    replayed.truncated = played->truncated();
    return replayed;
}

// A recording that ends at the set where `end` was raised, as one whose last set starts a
// solve: the worker stops with that solve's result not yet taken.
class EndingSource : public BodySource {
public:
    EndingSource(std::unique_ptr<BodySource> source, const std::atomic<bool>& end)
        : source_(std::move(source)), end_(end) {}
    lum::FUSION_ERROR_CODE process() override {
        return end_ ? lum::FUSION_ERROR_CODE::FAILURE : source_->process();
    }
    void retrieveBodies(lum::Bodies& bodies, lum::CameraIdentifier camera) override {
        source_->retrieveBodies(bodies, camera);
    }
    void updatePose(lum::CameraIdentifier camera, const lum::Transform& pose) override {
        source_->updatePose(camera, pose);
    }
    bool ended() const override { return end_ || source_->ended(); }

private:
    std::unique_ptr<BodySource> source_;
    const std::atomic<bool>& end_;
};

}  // namespace

TEST(Replay, TheSameSceneGivesTheSameRecordingAndEveryReplayTheLiveRoom) {
    platform_test::isolateProcess();
    pyra_sim::setActiveScene(pyra_sim::defaultScene());
    const std::string folder = platform_test::privateFolder("replay");
    std::vector<lum::FusionConfiguration> live, again;
    {
        fusiontest::ScopedVirtualClock virtualClock;
        live = calibrateLive(folder + "/first.rec", 12);
        again = calibrateLive(folder + "/second.rec", 12);
    }
    ASSERT_EQ(live.size(), 4u);
    const std::string recording = fileBytes(folder + "/first.rec");
    EXPECT_EQ(recording, fileBytes(folder + "/second.rec"));
    EXPECT_EQ(poses(live), poses(again));

    const Replayed replayed = calibrateReplay(folder + "/first.rec");
    EXPECT_FALSE(replayed.truncated);
    EXPECT_EQ(poses(replayed.room), poses(live));
    EXPECT_EQ(poses(calibrateReplay(folder + "/first.rec").room), poses(replayed.room));

    // Cut in the middle of a chunk: the captures before the cut replay, and still calibrate.
    {
        std::ofstream cut(folder + "/cut.rec", std::ios::binary);
        cut.write(recording.data(), static_cast<std::streamsize>(recording.size() * 3 / 4));
    }
    const Replayed shortened = calibrateReplay(folder + "/cut.rec");
    EXPECT_TRUE(shortened.truncated);
    EXPECT_GT(shortened.captures, replayed.captures / 2);
    EXPECT_LT(shortened.captures, replayed.captures);
    EXPECT_EQ(shortened.room.size(), 4u);
}

// A camera whose thread is held up longer than any wall-clock patience, as on a starved
// machine, must not change what the fusion received, nor when.
TEST(Replay, ACameraThreadHeldUpChangesNothingRecorded) {
    platform_test::isolateProcess();
    const std::string folder = platform_test::privateFolder("replay-stall");
    pyra_sim::Scene scene = pyra_sim::defaultScene();
    fusiontest::ScopedVirtualClock virtualClock;
    pyra_sim::setActiveScene(scene);
    calibrateLive(folder + "/smooth.rec", 3);
    scene.cameras[1].faults.stallAfterSeconds = 1.0;
    scene.cameras[1].faults.stallMs = 2500;
    pyra_sim::setActiveScene(scene);
    calibrateLive(folder + "/stalled.rec", 3);
    const std::string smooth = fileBytes(folder + "/smooth.rec");
    EXPECT_GT(smooth.size(), 100000u);
    EXPECT_TRUE(smooth == fileBytes(folder + "/stalled.rec"));
}

TEST(Replay, CaptureClockMovesOnWhenCaptureTimesStepBack) {
    CapturePipelineClock clock;
    clock.captured(3600 * kSeconds);
    clock.captured(3600 * kSeconds + kSeconds / 2);
    EXPECT_EQ(clock.nowNs(), 3600 * kSeconds + kSeconds / 2);
    // The host clock is set back an hour: the pipeline's time neither jumps back nor waits
    // an hour for the captures to catch up.
    clock.captured(kSeconds);
    clock.captured(kSeconds + kSeconds / 2);
    EXPECT_EQ(clock.nowNs(), 3601 * kSeconds);
}

// halden-cli's progress line asks the worker for its clock on every report. The last report,
// of a solve that lands as the calibration concludes, reaches it on the concluding thread:
// it must not find the worker's mutex held (a replay hung there at the end of its walk).
TEST(Replay, TheLastSolveLandingAsTheCalibrationConcludesIsReportedWithoutHoldingTheWorker) {
    platform_test::isolateProcess();
    pyra_sim::setActiveScene(pyra_sim::defaultScene());
    const std::string path = platform_test::privateFolder("replay-last-solve") + "/walk.rec";
    {
        fusiontest::ScopedVirtualClock virtualClock;
        calibrateLive(path, 8);
    }
    auto reader = std::make_unique<rec::RecordingReader>();
    std::string problem;
    ASSERT_TRUE(reader->open(path, &problem)) << problem;
    const std::vector<lum::FusionConfiguration> room = reader->header().room;
    std::atomic<bool> solveStarted{false}, ended{false};
    auto source = std::make_unique<EndingSource>(
        std::make_unique<RecordedBodySource>(std::move(reader), roomFusionParameters().synchronization), solveStarted);
    FusionWorker worker;
    int reports = 0;
    // On the worker's thread, as the first solve starts.
    QObject::connect(&worker, &FusionWorker::incCalib, &worker, [&](int percent) {
        if (percent > 100) solveStarted = true;
    }, Qt::DirectConnection);
    QObject::connect(&worker, &FusionWorker::calibrationReport, &worker, [&](const CalibrationReport&) {
        worker.pipelineNowNs();
        ++reports;
    });
    QObject::connect(&worker, &FusionWorker::runEnded, [&] { ended = true; });
    worker.setCalibrateOnStart(true);
    worker.setupReplay(std::move(source), room);
    EXPECT_EQ(calibrated(worker, ended).size(), 4u);
    EXPECT_EQ(reports, 1);
}
