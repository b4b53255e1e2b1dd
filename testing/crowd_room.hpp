// Several people in the simulated room, driven by simulated time: frames taken every 500 ms
// through the body association (or the one-person rule), calibrated as the fusion worker
// does, with wrong pairings and pose errors counted against the simulation's truth.
#pragma once

#include <cmath>
#include <functional>
#include <map>
#include <set>
#include <vector>

#include "calibration/body_association.hpp"
#include "calibration/skeleton_align.hpp"
#include "pyra_sim/scene.hpp"

namespace crowd {

struct Options {
    pyra_sim::Scene scene;
    double seconds = 90;
    bool associate = true;        // false: only cameras that see exactly one person
    SkeletonMulticameraCalibration::Model model = SkeletonMulticameraCalibration::Model::Classic;
    double calibrateEvery = 0.5;  // seconds between solves, each after more than ten new frames
    calib::FrameBudget budget;    // of the store; maxFrames 0 keeps every frame
    // Whether camera `serial` reports person `person` at `seconds` (default: always).
    std::function<bool(unsigned serial, int person, double seconds)> reports;
    // A number added to a camera's track id of a person from `seconds` on (a new track).
    std::function<int(unsigned serial, int person, double seconds)> trackShift;
};

struct Result {
    int frames = 0;
    int wrong = 0;                        // frames mixing two people
    std::map<int, std::vector<double>> frameTimes;  // by true person, seconds into the run
    std::map<int, int> cameraFrames;      // frames each camera took part in
    std::map<int, double> rotationDeg;    // per camera, against the truth, relative to the reference
    std::map<int, double> translationMm;
    std::map<int, double> heightErrorMm;  // per camera, height above the floor found minus the true one
    std::set<int> personsOfFirst;         // numbers of person 0's frames after 30 s
    bool calibrated = false;

    double worstRotation() const {
        double w = 0;
        for (const auto& [c, e] : rotationDeg) w = std::max(w, e);
        return w;
    }
    double worstTranslation() const {
        double w = 0;
        for (const auto& [c, e] : translationMm) w = std::max(w, e);
        return w;
    }
};

inline Result run(const Options& options) {
    const pyra_sim::Scene& scene = options.scene;
    pyra_sim::ObservationOptions observation;
    calib::BodyAssociator associator;
    SkeletonMulticameraCalibration calibration;
    calibration.options.model = options.model;
    calibration.frames.setBudget(options.budget);
    Result result;
    const uint64_t start = 1700000000ull * 1000000000ull;
    double lastSolve = -1e9;
    std::map<std::pair<int, int>, int> who;  // (camera, track) to true person
    const int steps = int(options.seconds * 2);
    for (int step = 1; step <= steps; ++step) {
        const double into = step * 0.5;
        const uint64_t now = start + uint64_t(step) * 500000000ull;
        calib::SeenBodies seen;
        for (const pyra_sim::CameraSettings& camera : scene.cameras) {
            const double period = 1.0 / camera.fps;
            const double phase = pyra_sim::cameraPhase(scene, camera);
            const double frameTime = phase + std::floor((double(now) * 1e-9 - phase) / period) * period;
            std::vector<pyra_sim::ObservedTruth> truth;
            lum::Bodies bodies = pyra_sim::observe(scene, camera, uint64_t(frameTime * 1e9), observation, &truth);
            std::vector<lum::BodyData>& list = seen[int(camera.serial)];
            for (size_t i = 0; i < bodies.body_list.size(); ++i) {
                lum::BodyData body = bodies.body_list[i];
                const int person = truth[i].id;
                if (options.reports && !options.reports(camera.serial, person, into)) continue;
                if (options.trackShift) body.id += options.trackShift(camera.serial, person, into);
                who[{int(camera.serial), body.id}] = person;
                list.push_back(std::move(body));
            }
        }

        std::vector<calib::PersonFrame> frames;
        if (options.associate) {
            if (!calibration.state.calibratedPoses.empty()) associator.setPoses(calibration.state.calibratedPoses);
            frames = associator.associate(seen);
            for (const calib::PersonFrame& frame : frames) {
                const std::pair<int, int> track{frame.begin()->first, frame.begin()->second.id};
                if (who.at(track) == 0 && into >= 30) result.personsOfFirst.insert(associator.persons().at(track));
            }
            for (calib::PersonFrame& earlier : associator.takeReleased()) frames.push_back(std::move(earlier));
        } else {
            calib::PersonFrame frame;
            for (const auto& [camera, bodies] : seen)
                if (bodies.size() == 1) frame[camera] = bodies.front();
            if (frame.size() >= 2) frames.push_back(frame);
        }
        for (size_t i = 0; i < frames.size(); ++i) {
            std::set<int> people;
            for (const auto& [camera, body] : frames[i]) {
                people.insert(who.at({camera, body.id}));
                ++result.cameraFrames[camera];
            }
            result.wrong += people.size() > 1;
            result.frameTimes[*people.begin()].push_back(into);
            calibration.frames.add(lum::Timestamp(now + i), frames[i]);
        }
        const int taken = int(calibration.frames.added());
        if (taken - calibration.state.framesAtLastCalibration > 10 && into - lastSolve >= options.calibrateEvery) {
            lastSolve = into;
            result.calibrated = calibration.calibrate() || result.calibrated;
        }
    }
    result.frames = int(calibration.frames.size());
    if (!result.calibrated) return result;

    std::map<int, lum::Transform> truth;
    for (const pyra_sim::CameraSettings& camera : scene.cameras) truth[int(camera.serial)] = camera.pose;
    const int reference = calibration.state.calibratedPoses.begin()->first;
    const lum::Transform toReference = lum::Transform::inverse(calibration.state.calibratedPoses.at(reference));
    const lum::Transform trueToReference = lum::Transform::inverse(truth.at(reference));
    for (const auto& [camera, pose] : calibration.state.calibratedPoses) {
        const lum::Transform error = lum::Transform::inverse(trueToReference * truth.at(camera)) * (toReference * pose);
        result.rotationDeg[camera] = error.getRotationVector().norm() * 180.0 / M_PI;
        result.translationMm[camera] = error.getTranslation().norm() * 1e3;
        // The simulated floor is y = 0; a level world puts it there too, whatever its yaw.
        result.heightErrorMm[camera] = (pose.getTranslation().y - truth.at(camera).getTranslation().y) * 1e3;
    }
    return result;
}

// The default room with `people` walkers of one height, no pull toward the camera and a
// tracker without artefacts, so that what is left of the error is the association's and
// the clocks', not the bias's. With the artefacts on, no frame mixes two people, but id
// switches cost the association its person numbers; on the Classic model, occlusion once
// split the room of the one-person camera into two pairs of cameras never in one frame, and
// the pair away from the reference landed 140 deg off. Such a pair is now left unplaced and
// named (Refined keeps every pairing and misses the 10 mm target by about a millimetre).
inline pyra_sim::Scene room(int people, bool crossing) {
    pyra_sim::Scene scene = pyra_sim::defaultScene();
    scene.people.count = people;
    scene.people.minHeight = scene.people.maxHeight = 1.75f;
    scene.people.crossing = crossing;
    for (pyra_sim::CameraSettings& camera : scene.cameras) {
        camera.noise.biasTowardCamera = 0.f;
        camera.tracker = pyra_sim::TrackerSettings::none();
    }
    return scene;
}

}  // namespace crowd
