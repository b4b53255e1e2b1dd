// A person walking through a simulated scene, fed to a skeleton calibration the way the
// fusion worker feeds it, and the calibrated poses scored against the scene's truth.
#pragma once

#include <cmath>
#include <map>
#include <vector>

#include "calibration/calibration_report.hpp"
#include "calibration/skeleton_align.hpp"
#include "pyra_sim/scene.hpp"

namespace simwalk {

constexpr uint64_t kStartNs = 1700000000ull * 1000000000ull;
constexpr uint64_t kStepNs = 500000000ull;  // the worker takes a frame every 500 ms

// Every body each camera sees in its latest frame at `nowNs`, in its own frame. Cameras
// count as opened at kStartNs (knocks count from there).
inline std::map<int, std::vector<lum::BodyData>> bodiesAt(const pyra_sim::Scene& scene, uint64_t nowNs) {
    std::map<int, std::vector<lum::BodyData>> seen;
    pyra_sim::ObservationOptions observation;
    for (const pyra_sim::CameraSettings& settings : scene.cameras) {
        const double period = 1.0 / settings.fps;
        const double phase = pyra_sim::cameraPhase(scene, settings);
        const double seconds = double(nowNs) * 1e-9;
        const double frameTime = phase + std::floor((seconds - phase) / period) * period;
        const pyra_sim::CameraSettings camera = pyra_sim::cameraAt(settings, frameTime - double(kStartNs) * 1e-9);
        seen[int(camera.serial)] = pyra_sim::observe(scene, camera, uint64_t(frameTime * 1e9), observation).body_list;
    }
    return seen;
}

// The same, kept where the camera sees exactly one person.
inline std::map<int, lum::BodyData> frameAt(const pyra_sim::Scene& scene, uint64_t nowNs) {
    std::map<int, lum::BodyData> frame;
    for (const auto& [camera, bodies] : bodiesAt(scene, nowNs))
        if (bodies.size() == 1) frame[camera] = bodies.front();
    return frame;
}

struct Walk {
    SkeletonMulticameraCalibration store;
    CalibrationReport report;  // of the last solve, with its uncertainty
};

// Walks for `seconds`, solving after every ten new frames and once at the end.
inline Walk calibrateWalk(const pyra_sim::Scene& scene, double seconds,
                          SkeletonMulticameraCalibration::Model model = SkeletonMulticameraCalibration::Model::Classic) {
    Walk walk;
    walk.store.options.model = model;
    const int steps = int(seconds * 2.0);
    for (int step = 1; step <= steps; ++step) {
        std::map<int, lum::BodyData> frame = frameAt(scene, kStartNs + uint64_t(step) * kStepNs);
        if (frame.size() >= 2) walk.store.frames.add(lum::Timestamp(kStartNs + uint64_t(step) * kStepNs), frame);
        const int fresh = int(walk.store.frames.added()) - walk.store.state.framesAtLastCalibration;
        if (fresh > 10 || (step == steps && fresh > 0)) walk.store.calibrate();
    }
    walk.report = makeCalibrationReport(walk.store);
    addPoseUncertainty(walk.store, walk.report);
    return walk;
}

struct PoseError {
    double rotationDeg = 0;
    double positionMm = 0;
};

// Each camera's error relative to the calibration's reference camera (smallest serial).
inline std::map<int, PoseError> errorsAgainstTruth(const pyra_sim::Scene& scene,
                                                   const std::map<int, lum::Transform>& calibrated) {
    std::map<int, PoseError> errors;
    if (calibrated.empty()) return errors;
    const int reference = calibrated.begin()->first;
    const pyra_sim::CameraSettings* referenceTruth = pyra_sim::findCamera(scene, unsigned(reference));
    const lum::Transform toReference = lum::Transform::inverse(calibrated.at(reference));
    const lum::Transform trueToReference = lum::Transform::inverse(referenceTruth->pose);
    for (const auto& [camera, pose] : calibrated) {
        const lum::Transform truth = trueToReference * pyra_sim::findCamera(scene, unsigned(camera))->pose;
        const lum::Transform estimate = toReference * pose;
        const lum::Transform error = lum::Transform::inverse(truth) * estimate;
        const lum::Vector3f apart = estimate.getTranslation() - truth.getTranslation();
        errors[camera] = {error.getRotationVector().norm() * 180.0 / M_PI, apart.norm() * 1000.0};
    }
    return errors;
}

struct NamedScene {
    const char* name;
    pyra_sim::Scene scene;
};

// Rooms the uncertainty is checked on: sizes, camera counts, heights and noise unlike
// the default room's, so that a scale tuned to one room is caught out on the others.
inline std::vector<NamedScene> coverageScenes() {
    std::vector<NamedScene> scenes;
    scenes.push_back({"default room", pyra_sim::defaultScene()});

    pyra_sim::Scene other = pyra_sim::defaultScene();
    other.seed = 7;
    for (pyra_sim::CameraSettings& camera : other.cameras) camera.noise.biasTowardCamera = 0.05f;
    scenes.push_back({"default room, seed 7, 5 cm bias", other});

    auto camera = [](unsigned serial, lum::Vector3f position, lum::Vector3f target) {
        pyra_sim::CameraSettings c;
        c.serial = serial;
        lum::Vector3f back = (position - target).normalised();
        lum::Vector3f x = lum::Vector3f::cross(lum::Vector3f(0.f, 1.f, 0.f), back).normalised();
        lum::Vector3f y = lum::Vector3f::cross(back, x);
        for (int r = 0; r < 3; ++r) {
            c.pose(r, 0) = x[r];
            c.pose(r, 1) = y[r];
            c.pose(r, 2) = back[r];
            c.pose(r, 3) = position[r];
        }
        return c;
    };
    pyra_sim::Scene wide;
    wide.width = 8.f;
    wide.seed = 3;
    const float xs[6] = {-3.8f, 0.f, 3.8f, 3.8f, 0.f, -3.8f};
    const float zs[6] = {-2.8f, -2.8f, -2.8f, 2.8f, 2.8f, 2.8f};
    for (int i = 0; i < 6; ++i)
        wide.cameras.push_back(camera(52001 + i, {xs[i], 2.4f + 0.1f * float(i % 3), zs[i]}, {0.f, 1.f, 0.f}));
    scenes.push_back({"8 x 6 m, six cameras", wide});

    pyra_sim::Scene three;
    three.seed = 11;
    three.cameras.push_back(camera(63001, {-2.8f, 2.9f, -2.8f}, {0.f, 0.8f, 0.f}));
    three.cameras.push_back(camera(63002, {2.8f, 1.8f, -2.5f}, {0.f, 1.1f, 0.f}));
    three.cameras.push_back(camera(63003, {0.f, 2.2f, 2.9f}, {0.5f, 0.9f, 0.f}));
    for (pyra_sim::CameraSettings& c : three.cameras) {
        c.noise.depthSigmaAt3m = 0.025f;
        c.noise.lateralSigmaPx = 3.f;
    }
    scenes.push_back({"three cameras at mixed heights, noisy", three});

    pyra_sim::Scene small;
    small.width = 4.5f;
    small.length = 4.f;
    small.seed = 5;
    small.cameras.push_back(camera(74001, {-2.1f, 2.3f, -1.9f}, {0.f, 0.9f, 0.f}));
    small.cameras.push_back(camera(74002, {2.1f, 2.3f, -1.9f}, {0.f, 0.9f, 0.f}));
    small.cameras.push_back(camera(74003, {2.1f, 2.5f, 1.9f}, {0.f, 0.9f, 0.f}));
    small.cameras.push_back(camera(74004, {-2.1f, 2.1f, 1.9f}, {0.f, 0.9f, 0.f}));
    small.cameras.push_back(camera(74005, {0.f, 2.6f, 1.95f}, {0.f, 0.9f, -0.5f}));
    for (pyra_sim::CameraSettings& c : small.cameras) c.noise.biasTowardCamera = 0.02f;
    scenes.push_back({"4.5 x 4 m, five cameras", small});
    return scenes;
}

}  // namespace simwalk
