// The drift monitor on the simulated room, in simulated time: a knocked camera is named
// within 30 s with roughly how far it moved; undisturbed minutes raise nothing, with one
// person in the room or two.
#include <gtest/gtest.h>

#include "calibration/drift_monitor.hpp"
#include "testing/sim_walk.hpp"

namespace {

constexpr uint64_t kFrameNs = 200000000ull;  // the fusion worker hands the monitor 5 frames a second

// A calibration a little off the truth, as any real one is: the monitor must learn the
// room as calibrated, not as it truly is.
std::map<int, lum::Transform> imperfectCalibration(const pyra_sim::Scene& scene) {
    std::map<int, lum::Transform> poses;
    for (const pyra_sim::CameraSettings& camera : scene.cameras) {
        lum::Transform error;
        const float s = float(camera.serial % 7) - 3.f;
        error.setRotationVector(lum::Vector3f(0.004f * s, -0.006f, 0.003f));
        error.setTranslation(lum::Translation(0.01f * s, 0.02f, -0.015f));
        poses[int(camera.serial)] = camera.pose * error;
    }
    return poses;
}

struct Watch {
    std::vector<DriftWarning> warnings;
    std::map<int, DriftChange> largestChange;
};

Watch watch(const pyra_sim::Scene& scene, double seconds) {
    const std::map<int, lum::Transform> calibration = imperfectCalibration(scene);
    std::map<int, Eigen::Vector3d> centres;
    for (const auto& [camera, pose] : calibration) {
        const lum::Translation t = pose.getTranslation();
        centres[camera] = Eigen::Vector3d(t.x, t.y, t.z);
    }
    DriftMonitor monitor(centres);
    Watch run;
    for (uint64_t t = simwalk::kStartNs; t < simwalk::kStartNs + uint64_t(seconds * 1e9); t += kFrameNs) {
        RoomBodies frame = simwalk::bodiesAt(scene, t);
        for (auto& [camera, bodies] : frame)
            for (lum::BodyData& body : bodies)
                for (lum::Vector3f& p : body.keypoint) p = calibration.at(camera) * p;
        for (const DriftWarning& warning : monitor.addFrame(t, frame)) run.warnings.push_back(warning);
        for (const auto& [camera, change] : monitor.latestChange()) {
            auto& largest = run.largestChange[camera];
            largest = {std::max(largest.rotationDeg, change.rotationDeg), std::max(largest.shiftMm, change.shiftMm),
                       std::max(largest.jointShiftMm, change.jointShiftMm)};
        }
    }
    return run;
}

TEST(DriftMonitor, namesAKnockedCameraAndStaysQuietOtherwise) {
    const pyra_sim::Scene quiet = pyra_sim::defaultScene();
    const Watch undisturbed = watch(quiet, 600.0);
    for (const auto& [camera, change] : undisturbed.largestChange)
        std::printf("camera %d: largest wander %.2f deg, %.1f mm, joints %.1f mm\n", camera, change.rotationDeg,
                    change.shiftMm, change.jointShiftMm);
    EXPECT_TRUE(undisturbed.warnings.empty()) << "camera " << undisturbed.warnings.front().camera;

    struct Knock {
        int camera;
        lum::Vector3f rotationDeg;
        lum::Vector3f shift;
    };
    for (const Knock& knock : {Knock{41003, {0.f, 2.f, 0.f}, {}}, Knock{41002, {}, {0.05f, 0.f, 0.f}},
                               Knock{41001, {1.5f, 0.f, 1.3f}, {0.f, -0.02f, 0.f}}}) {
        pyra_sim::Scene scene = quiet;
        for (pyra_sim::CameraSettings& camera : scene.cameras) {
            if (int(camera.serial) != knock.camera) continue;
            camera.faults.knockAfterSeconds = 60.0;
            camera.faults.knockRotationDeg = knock.rotationDeg;
            camera.faults.knockShift = knock.shift;
        }
        const Watch run = watch(scene, 95.0);
        ASSERT_EQ(run.warnings.size(), 1u) << "knock of " << knock.camera;
        const DriftWarning& warning = run.warnings.front();
        EXPECT_EQ(warning.camera, knock.camera);
        EXPECT_GT(warning.atSeconds, 60.0);
        EXPECT_LT(warning.atSeconds, 90.0);  // within 30 s
        const double turned = knock.rotationDeg.norm(), shifted = knock.shift.norm() * 1000.0;
        std::printf("knock of %d (%.1f deg, %.0f mm): warned after %.1f s, %.2f deg, %.0f mm\n", knock.camera,
                    turned, shifted, warning.atSeconds - 60.0, warning.rotationDeg, warning.jointShiftMm);
        EXPECT_NEAR(warning.rotationDeg, turned, 0.5);
        if (turned == 0) {
            EXPECT_NEAR(warning.jointShiftMm, shifted, 0.4 * shifted);
        }
    }
}

// Each camera sees one of the two people now and then, and only the calibration tells
// which: another person's joints are no measure of where a camera stands.
TEST(DriftMonitor, twoPeopleRaiseNothingUntilACameraIsKnocked) {
    pyra_sim::Scene scene = pyra_sim::defaultScene();
    scene.people.count = 2;
    for (pyra_sim::CameraSettings& camera : scene.cameras) camera.horizontalFovDeg = 50.f;
    const Watch quiet = watch(scene, 300.0);
    EXPECT_TRUE(quiet.warnings.empty()) << "camera " << quiet.warnings.front().camera;
    EXPECT_EQ(quiet.largestChange.size(), scene.cameras.size());
    for (const auto& [camera, change] : quiet.largestChange)
        std::printf("two people, camera %d: largest wander %.2f deg, joints %.1f mm\n", camera, change.rotationDeg,
                    change.jointShiftMm);

    scene.cameras[2].faults.knockAfterSeconds = 60.0;
    scene.cameras[2].faults.knockRotationDeg = {0.f, 2.f, 0.f};
    const Watch knocked = watch(scene, 95.0);
    ASSERT_EQ(knocked.warnings.size(), 1u);
    EXPECT_EQ(knocked.warnings.front().camera, int(scene.cameras[2].serial));
}

}  // namespace
