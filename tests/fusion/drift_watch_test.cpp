// The watch for a camera that moved, in a running room: it needs a calibrated room to
// compare against, and a room nobody calibrated yet must never raise "camera moved".
#include <gtest/gtest.h>

#include <atomic>

#include "fusion/fusion_worker.hpp"
#include "pyra_sim/room_clock.hpp"
#include "pyra_sim/scene.hpp"
#include "tests/fusion/fusion_support.hpp"
#include "testing/isolated_process.hpp"
#include "workspace/room_usb.hpp"

namespace {

// Runs the default room for `seconds` of its virtual clock on `room`; returns the cameras
// named as moved and, through `watched`, the cameras the watch judged.
std::vector<int> movedWhileRunning(const std::vector<lum::FusionConfiguration>& room, double seconds,
                                   std::vector<int>& watched) {
    fusiontest::ScopedVirtualClock virtualClock;
    std::atomic<bool> initialised{false};
    std::mutex movedMutex;
    std::vector<int> moved;
    FusionWorker worker(std::make_shared<fusiontest::RecordingPrompts>());
    QObject::connect(&worker, &FusionWorker::isInit, [&] { initialised = true; });
    QObject::connect(&worker, &FusionWorker::cameraMoved, [&](int serial, double, double) {
        std::lock_guard<std::mutex> lock(movedMutex);
        moved.push_back(serial);
    });
    worker.setup(room, AppParams());
    EXPECT_TRUE(fusiontest::waitFor([&] { return initialised.load(); }));
    const uint64_t until = pyra_sim::virtualNowNs() + static_cast<uint64_t>(seconds * 1e9);
    EXPECT_TRUE(fusiontest::waitFor([&] { return pyra_sim::virtualNowNs() >= until; }, fusiontest::kNoTimeout));
    watched = worker.watchedCameras();
    worker.close();
    std::lock_guard<std::mutex> lock(movedMutex);
    return moved;
}

}  // namespace

TEST(DriftWatch, OnlyACalibratedRoomIsWatched) {
    platform_test::isolateProcess();
    const pyra_sim::Scene scene = pyra_sim::defaultScene();
    pyra_sim::setActiveScene(scene);
    std::vector<lum::FusionConfiguration> room = roomusb::discover().configurations;
    ASSERT_EQ(room.size(), scene.cameras.size());

    // Every camera still at the origin, each seeing the walker in its own frame: past the
    // watch's settling time, nothing may be said to have moved.
    std::vector<int> watched;
    EXPECT_EQ(movedWhileRunning(room, 150.0, watched), std::vector<int>{});
    EXPECT_TRUE(watched.empty());

    // The same room on its true poses is watched, and nothing moved.
    for (lum::FusionConfiguration& camera : room)
        for (const pyra_sim::CameraSettings& truth : scene.cameras)
            if (int(truth.serial) == camera.serial_number) camera.pose = truth.pose;
    EXPECT_EQ(movedWhileRunning(room, 75.0, watched), std::vector<int>{});
    EXPECT_EQ(watched.size(), room.size());
}
