// Calibrations one after another in one worker: each starts from nothing, so a second
// room (or the same room with its cameras moved) is found as if it were the first.
#include <gtest/gtest.h>

#include <atomic>

#include "fusion/fusion_worker.hpp"
#include "pyra_sim/scene.hpp"
#include "tests/fusion/fusion_support.hpp"
#include "testing/isolated_process.hpp"
#include "testing/pose_error.hpp"
#include "testing/synthetic_store.hpp"
#include "workspace/room_usb.hpp"

namespace {

using Model = SkeletonMulticameraCalibration::Model;
using Poses = std::map<int, lum::Transform>;

Poses truthOf(const pyra_sim::Scene& scene) {
    Poses truth;
    for (const pyra_sim::CameraSettings& camera : scene.cameras) truth[int(camera.serial)] = camera.pose;
    return truth;
}

// The room with every camera standing where the next one stood.
pyra_sim::Scene camerasMovedOn(pyra_sim::Scene scene) {
    const pyra_sim::Scene before = scene;
    for (size_t i = 0; i < scene.cameras.size(); ++i)
        scene.cameras[i].pose = before.cameras[(i + 1) % before.cameras.size()].pose;
    return scene;
}

// Worst rotation (deg) and position (mm) error of every camera relative to the first.
std::pair<double, double> worstError(const Poses& truth, const Poses& found) {
    std::pair<double, double> worst{0, 0};
    const int reference = truth.begin()->first;
    for (const auto& [serial, pose] : truth) {
        if (!found.count(serial) || !found.count(reference)) return {1e9, 1e9};
        const auto error = synthetic::poseError(synthetic::relativePose(truth.at(reference), pose),
                                                synthetic::relativePose(found.at(reference), found.at(serial)));
        worst = {std::max(worst.first, error.first), std::max(worst.second, error.second)};
    }
    return worst;
}

// A running room whose calibrations are driven one at a time.
struct Room {
    // Declared before the worker, which is destroyed (its thread joined) first: a failed
    // wait returns while that thread may still be writing into them.
    std::atomic<int> usable{0};
    std::atomic<bool> initialised{false};
    FusionWorker worker{std::make_shared<fusiontest::RecordingPrompts>()};

    explicit Room(Model model) {
        worker.setCalibrationModel(model);
        QObject::connect(&worker, &FusionWorker::isInit, [this] { initialised = true; });
        QObject::connect(&worker, &FusionWorker::calibrationReport, [this](const CalibrationReport& report) {
            if (report.usable) ++usable;
        });
    }

    bool open(const pyra_sim::Scene& scene) {
        pyra_sim::setActiveScene(scene);
        initialised = false;
        worker.setup(roomusb::discover().configurations, AppParams());
        return fusiontest::waitFor([&] { return initialised.load(); });
    }

    // Calibrates from `frames` until the first usable solve, and concludes.
    Poses calibrate(const calib::FrameStore& frames) {
        const int before = usable;
        if (worker.startCalib(SKELETON_CALIB) != 0) return {};
        worker.setCalibrationFrames(frames);
        if (!fusiontest::waitFor([&] { return usable > before; }, fusiontest::kNoTimeout)) return {};
        Poses poses;
        for (const lum::FusionConfiguration& camera : worker.concludeCalibration())
            poses[int(camera.serial_number)] = camera.pose;
        return poses;
    }
};

TEST(FreshCalibration, SecondRoomIsFoundAsIfItWereTheFirst) {
    platform_test::isolateProcess();
    // On the room's virtual clock the solve lands at the same point however busy the machine.
    fusiontest::ScopedVirtualClock virtualClock;
    // Nobody walks in the live rooms: the frames are handed in, so each solve sees only them.
    pyra_sim::Scene roomA = pyra_sim::defaultScene();
    roomA.people.count = 0;
    const pyra_sim::Scene roomB = camerasMovedOn(roomA);
    const calib::FrameStore framesA = synthetic::syntheticStore(truthOf(roomA), 25, 0.003, 10).frames;
    const calib::FrameStore framesB = synthetic::syntheticStore(truthOf(roomB), 25, 0.003, 11).frames;

    Room room(Model::Refined);
    ASSERT_TRUE(room.open(roomA));
    const Poses a = room.calibrate(framesA);
    room.worker.close();
    ASSERT_TRUE(room.open(roomB));
    const Poses b = room.calibrate(framesB);
    room.worker.close();
    for (const auto& [truth, found] : {std::pair{truthOf(roomA), a}, std::pair{truthOf(roomB), b}}) {
        const auto error = worstError(truth, found);
        EXPECT_LT(error.first, 0.5);
        EXPECT_LT(error.second, 20.0);
    }

    // Room B's frames give the same poses, to the last bit, in a worker that never saw room A.
    Room fresh(Model::Refined);
    ASSERT_TRUE(fresh.open(roomB));
    const Poses first = fresh.calibrate(framesB);
    fresh.worker.close();
    ASSERT_FALSE(first.empty());
    EXPECT_EQ(b, first);
}

}  // namespace
