// Calibration control of the fusion worker: which cameras make a frame, the saved file's
// name, finishing without a result, and a solve that runs beside the live loop.
#include <QFile>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <optional>

#include "fusion/fusion_worker.hpp"
#include "pyra_sim/scene.hpp"
#include "tests/fusion/fusion_support.hpp"
#include "tests/fusion/tampered_walk.hpp"
#include "testing/isolated_process.hpp"
#include "testing/pose_error.hpp"
#include "testing/synthetic_store.hpp"
#include "workspace/room_usb.hpp"

namespace {

lum::Bodies seeing(int people, bool isNew) {
    lum::Bodies bodies;
    bodies.is_new = isNew;
    for (int i = 0; i < people; ++i) {
        lum::BodyData body;
        body.id = i;
        bodies.body_list.push_back(body);
    }
    return bodies;
}

std::map<int, lum::Transform> sceneTruth(const pyra_sim::Scene& scene) {
    std::map<int, lum::Transform> truth;
    for (const pyra_sim::CameraSettings& camera : scene.cameras) truth[static_cast<int>(camera.serial)] = camera.pose;
    return truth;
}

void expectRelativePoses(const std::map<int, lum::Transform>& truth, const std::map<int, lum::Transform>& found) {
    ASSERT_EQ(found.size(), truth.size());
    const int reference = truth.begin()->first;
    for (const auto& [serial, pose] : truth) {
        const lum::Transform expected = synthetic::relativePose(truth.at(reference), pose);
        const lum::Transform got = synthetic::relativePose(found.at(reference), found.at(serial));
        const auto [degrees, millimetres] = synthetic::poseError(expected, got);
        EXPECT_LT(degrees, 0.5) << serial;
        EXPECT_LT(millimetres, 20.0) << serial;
    }
}

}  // namespace

TEST(CalibrationControl, FramePairsOnlyCamerasSeeingExactlyOnePerson) {
    const std::vector<lum::CameraIdentifier> cameras{lum::CameraIdentifier(1), lum::CameraIdentifier(2),
                                                     lum::CameraIdentifier(3), lum::CameraIdentifier(4),
                                                     lum::CameraIdentifier(5)};
    const std::map<lum::CameraIdentifier, lum::Bodies> bodies{{cameras[0], seeing(1, true)},
                                                              {cameras[1], seeing(2, true)},
                                                              {cameras[2], seeing(1, false)},
                                                              {cameras[3], seeing(0, true)},
                                                              {cameras[4], seeing(1, true)}};
    const auto frame = singlePersonFrame(cameras, bodies);
    ASSERT_EQ(frame.size(), 2u);
    EXPECT_TRUE(frame.count(1) && frame.count(5));
}

TEST(CalibrationControl, NamesTheFileAndRefusesToSaveNothing) {
    EXPECT_EQ(calibrationFileName(""), "");
    EXPECT_EQ(calibrationFileName("/tmp/room"), "/tmp/room.json");
    EXPECT_EQ(calibrationFileName("/tmp/room.txt"), "/tmp/room.txt.json");
    EXPECT_EQ(calibrationFileName("/tmp/room.json"), "/tmp/room.json");

    auto prompts = std::make_shared<fusiontest::RecordingPrompts>();
    FusionWorker worker(prompts);
    EXPECT_EQ(worker.startCalib(SKELETON_CALIB), -1);

    const pyra_sim::Scene scene = pyra_sim::defaultScene();
    worker.setCalibrationFrames(synthetic::syntheticStore(sceneTruth(scene), 2, 0.0, 1).frames);
    EXPECT_FALSE(worker.finishCalib(SKELETON_CALIB));
    EXPECT_EQ(worker.calibrationFrameCount(), 0);
    // Nothing to save is said before anyone is asked for a file name.
    EXPECT_TRUE(prompts->saveQuestions.empty());
    const auto shown = prompts->prompts();
    ASSERT_EQ(shown.size(), 1u);
    EXPECT_EQ(shown[0].kind, "exec");
    EXPECT_EQ(shown[0].icon, PromptIcon::Warning);
    EXPECT_EQ(shown[0].title, "No calibration to save");
    EXPECT_EQ(shown[0].text, "Halden has not generated a calibration to save yet.");
}

TEST(CalibrationControl, SolvesBesideTheLiveLoopAndSavesTheLatestResult) {
    platform_test::isolateProcess();
    // Set before any thread starts: the cancelled save below must leave this folder empty.
    const std::string home = platform_test::privateFolder("home");
    ::setenv("HOME", home.c_str(), 1);
    // Nobody walks in the live room: the frames are handed in, so what each solve sees does
    // not depend on how long this thread takes between its steps. With the walker, its
    // frames joined the handed-in ones for as long as this thread was held up, and a solve
    // on the mixture could read a camera as moved and leave it out of the file.
    pyra_sim::Scene scene = pyra_sim::defaultScene();
    scene.people.count = 0;
    pyra_sim::setActiveScene(scene);
    const std::map<int, lum::Transform> truth = sceneTruth(scene);

    auto prompts = std::make_shared<fusiontest::RecordingPrompts>();
    prompts->saveName = QString::fromStdString(platform_test::privateFolder("files") + "/saved.room");
    // Declared before the worker, like everything its thread writes into: an early return
    // joins the worker's thread first.
    fusiontest::ScopedVirtualClock virtualClock;
    std::atomic<bool> initialised{false};
    std::atomic<int> usableReports{0};
    std::mutex progressMutex;
    std::vector<int> progress;
    std::atomic<bool> published{false};
    FusionWorker worker(prompts);
    QObject::connect(&worker, &FusionWorker::isInit, [&] { initialised = true; });
    QObject::connect(&worker, &FusionWorker::incCalib, [&](int percent) {
        std::lock_guard<std::mutex> lock(progressMutex);
        progress.push_back(percent);
    });
    QObject::connect(&worker, &FusionWorker::calibrationReport, [&](const CalibrationReport& report) {
        if (report.usable) ++usableReports;
    });
    QObject::connect(&worker, &FusionWorker::CalibrationConfigurationReady,
                     [&](std::vector<lum::FusionConfiguration>, lum::COORDINATE_SYSTEM, lum::UNIT) { published = true; });

    worker.setup(roomusb::discover().configurations, AppParams());
    ASSERT_TRUE(fusiontest::waitFor([&] { return initialised.load(); }));
    ASSERT_EQ(worker.startCalib(SKELETON_CALIB), 0);

    // 25 frames since the last solve: the progress passes 100 % unclamped and a solve starts.
    worker.setCalibrationFrames(synthetic::syntheticStore(truth, 25, 0.003, 3).frames);
    ASSERT_TRUE(fusiontest::waitFor([&] { return usableReports > 0; }, fusiontest::kNoTimeout));
    {
        std::lock_guard<std::mutex> lock(progressMutex);
        EXPECT_EQ(progress.front(), 0);
        EXPECT_GE(*std::max_element(progress.begin(), progress.end()), 250);
    }

    std::map<int, lum::Transform> shown;
    {
        SharedData& shared = SharedData::getInstance();
        std::lock_guard<std::mutex> lock(shared.positionMutex);
        for (const auto& [serial, pose] : truth) shown[serial] = shared.cameraTransforms[lum::CameraIdentifier(serial)];
    }
    expectRelativePoses(truth, shown);

    ASSERT_TRUE(worker.finishCalib(SKELETON_CALIB));
    EXPECT_TRUE(published);

    // A second calibration whose file name question is cancelled writes nothing at all.
    published = false;
    ASSERT_EQ(worker.startCalib(SKELETON_CALIB), 0);
    const int reportsBefore = usableReports;
    worker.setCalibrationFrames(synthetic::syntheticStore(truth, 25, 0.003, 4).frames);
    ASSERT_TRUE(fusiontest::waitFor([&] { return usableReports > reportsBefore; }, fusiontest::kNoTimeout));
    const QString chosen = prompts->saveName;
    prompts->saveName.clear();
    EXPECT_FALSE(worker.finishCalib(SKELETON_CALIB));
    EXPECT_FALSE(QFile::exists(QString::fromStdString(home + "/calib.json")));
    EXPECT_FALSE(published);
    prompts->saveName = chosen;
    worker.close();

    std::string problem;
    const auto saved = lum::readFusionConfigurationFile(prompts->saveName.toStdString() + ".json",
                                                        lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP, lum::UNIT::METER,
                                                        &problem);
    std::map<int, lum::Transform> written;
    for (const lum::FusionConfiguration& configuration : saved) written[configuration.serial_number] = configuration.pose;
    expectRelativePoses(truth, written);
}

// A calibration started from another thread while the loop holds a set fetched through the
// room file's poses: bodies read from that set are in the room frame, not the cameras'.
TEST(CalibrationControl, ASetFetchedBeforeTheStartIsNotTakenThroughTheOldPoses) {
    const pyra_sim::Scene scene = pyra_sim::defaultScene();
    std::vector<lum::FusionConfiguration> room;
    for (const pyra_sim::CameraSettings& camera : scene.cameras) {
        lum::FusionConfiguration configuration;
        configuration.serial_number = camera.serial;
        configuration.pose = camera.pose;
        room.push_back(configuration);
    }
    std::mutex mutex;
    std::optional<CalibrationReport> last;
    std::atomic<bool> ended{false}, started{false};
    FusionWorker worker(std::make_shared<fusiontest::RecordingPrompts>());
    QObject::connect(&worker, &FusionWorker::runEnded, [&] { ended = true; });
    QObject::connect(&worker, &FusionWorker::calibrationReport, [&](const CalibrationReport& report) {
        std::lock_guard<std::mutex> lock(mutex);
        if (report.usable) last = report;
    });
    // Called inside the source's process(): after it applied the poses of this set, before
    // the loop reads the set, as a click can land on a live room.
    const tampered::Tamper startOnce = [&](int, double seconds, lum::Bodies&) {
        if (seconds > 2.0 && !started.exchange(true)) {
            EXPECT_EQ(worker.startCalib(SKELETON_CALIB), 0);
        }
    };
    worker.setRunLength(int64_t(14e9));
    worker.setupReplay(std::make_unique<tampered::WalkSource>(scene, 15.0, startOnce), room);
    ASSERT_TRUE(fusiontest::waitFor([&] { return ended.load(); }, fusiontest::kNoTimeout));
    worker.close();

    std::lock_guard<std::mutex> lock(mutex);
    ASSERT_TRUE(last);
    // This walk leaves 70-110 mm of residual; one room-frame frame among the rest, a metre.
    for (const CameraCalibrationReport& camera : last->cameras) EXPECT_LT(camera.rmsAfterMm, 300.0) << camera.camera;
}
