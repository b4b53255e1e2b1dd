// Calibration accuracy against the simulated room's truth: six rooms, 60 s of one person
// walking, driven by simulated time; the classic model and the refined one step by step.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include <Eigen/Geometry>

#include "calibration/frame_assembler.hpp"
#include "calibration/skeleton_align.hpp"
#include "pyra_sim/scene.hpp"
#include "testing/pose_error.hpp"

namespace {

using Calibration = SkeletonMulticameraCalibration;
constexpr double kSeconds = 60.0;
constexpr double kStart = 1.7e9;  // simulated wall clock, seconds

struct CameraPlan {
    Eigen::Vector3d position, target;
    double rollDeg = 0;
    float hfov = 100, vfov = 70;
    pyra_sim::NoiseSettings noise;
};

lum::Transform toLum(const Eigen::Isometry3d& pose) {
    const Eigen::Quaternionf q(pose.linear().cast<float>());
    const Eigen::Vector3f t = pose.translation().cast<float>();
    return lum::Transform(lum::Orientation(q.x(), q.y(), q.z(), q.w()), lum::Translation(t.x(), t.y(), t.z()));
}

// Camera to room: -z at the target, y up, then turned about the viewing axis.
Eigen::Isometry3d lookAt(const CameraPlan& plan) {
    const Eigen::Vector3d back = (plan.position - plan.target).normalized();
    const Eigen::Vector3d right = Eigen::Vector3d::UnitY().cross(back).normalized();
    Eigen::Matrix3d r;
    r << right, back.cross(right), back;
    Eigen::Isometry3d pose = Eigen::Isometry3d::Identity();
    pose.linear() = r * Eigen::AngleAxisd(plan.rollDeg * M_PI / 180.0, Eigen::Vector3d::UnitZ()).toRotationMatrix();
    pose.translation() = plan.position;
    return pose;
}

struct Room {
    std::string name;
    float width, length;
    std::vector<CameraPlan> cameras;
};

pyra_sim::Scene toScene(const Room& room, uint64_t seed) {
    pyra_sim::Scene scene;
    scene.width = room.width;
    scene.length = room.length;
    scene.seed = seed;
    for (size_t i = 0; i < room.cameras.size(); ++i) {
        pyra_sim::CameraSettings c;
        c.serial = unsigned(51001 + i);
        c.pose = toLum(lookAt(room.cameras[i]));
        c.horizontalFovDeg = room.cameras[i].hfov;
        c.verticalFovDeg = room.cameras[i].vfov;
        c.noise = room.cameras[i].noise;
        scene.cameras.push_back(c);
    }
    return scene;
}

std::vector<Room> rooms() {
    const Eigen::Vector3d middle(0, 0.9, 0);
    pyra_sim::NoiseSettings noisy;
    noisy.depthSigmaAt3m = 0.03f;
    noisy.lateralSigmaPx = 4.f;
    noisy.biasTowardCamera = 0.05f;
    auto plan = [](Eigen::Vector3d p, Eigen::Vector3d t, double roll = 0, float h = 100, float v = 70,
                   pyra_sim::NoiseSettings n = {}) { return CameraPlan{p, t, roll, h, v, n}; };
    std::vector<Room> out;
    out.push_back({"four corners, 2.6 m", 6, 6,
                   {plan({-2.8, 2.6, -2.8}, middle), plan({2.8, 2.6, -2.8}, middle), plan({2.8, 2.6, 2.8}, middle),
                    plan({-2.8, 2.6, 2.8}, middle)}});
    out.push_back({"five, heights 1.1-2.9 m, tilts and rolls", 7, 6,
                   {plan({-3.2, 2.9, -2.8}, {0, 0.5, 0}, 8), plan({3.2, 1.1, -2.8}, {0, 1.2, 0.5}, -12),
                    plan({3.2, 2.2, 2.8}, {-0.5, 0.3, 0}, 20), plan({-3.2, 1.6, 2.8}, middle, -5),
                    plan({0, 2.7, -2.9}, {0, 0, 1.0}, 3)}});
    out.push_back({"four, narrow field of view (60 x 40 deg)", 6, 6,
                   {plan({-2.8, 2.3, -2.8}, middle, 0, 60, 40), plan({2.8, 2.1, -2.8}, middle, 0, 60, 40),
                    plan({2.8, 2.4, 2.8}, middle, 0, 60, 40), plan({-2.8, 2.0, 2.8}, middle, 0, 60, 40)}});
    out.push_back({"corridor chain of five, neighbours overlap", 3, 14,
                   {plan({0, 2.4, -6.8}, {0, 0.8, -3.5}), plan({-1.3, 2.2, -3.5}, {0.3, 0.8, -0.5}, 4),
                    plan({1.3, 2.6, 0}, {-0.3, 0.8, 3}, -4), plan({-1.3, 2.3, 3.5}, {0.3, 0.8, 6}),
                    plan({0, 2.5, 6.8}, {0, 0.8, 3.5}, 6)}});
    out.push_back({"four noisy cameras (2x depth and pixel noise, 5 cm bias)", 6, 6,
                   {plan({-2.8, 2.6, -2.8}, middle, 0, 100, 70, noisy), plan({2.8, 2.6, -2.8}, middle, 0, 100, 70, noisy),
                    plan({2.8, 2.6, 2.8}, middle, 0, 100, 70, noisy), plan({-2.8, 2.6, 2.8}, middle, 0, 100, 70, noisy)}});
    out.push_back({"six, one sees only a corner", 8, 7,
                   {plan({-3.8, 2.5, -3.3}, middle), plan({3.8, 2.5, -3.3}, middle), plan({3.8, 2.5, 3.3}, middle),
                    plan({-3.8, 2.5, 3.3}, middle), plan({0, 2.8, -3.4}, {0, 0.9, 1}),
                    plan({3.9, 1.8, 0}, {3.0, 0.9, -2.8}, 0, 60, 40)}});
    return out;
}

// Frames of a walk: every camera's own captures, and every 500 ms one frame of the
// newest body of each camera (as an unaligned loop pairs them) and one aligned frame.
struct Walk {
    calib::Frames unaligned, aligned;
};

Walk walk(const pyra_sim::Scene& scene) {
    struct Capture {
        double t;
        size_t camera;
    };
    std::vector<Capture> captures;
    for (size_t c = 0; c < scene.cameras.size(); ++c) {
        const double phase = pyra_sim::cameraPhase(scene, scene.cameras[c]);
        for (double t = kStart + phase; t < kStart + kSeconds; t += 1.0 / scene.cameras[c].fps) captures.push_back({t, c});
    }
    std::sort(captures.begin(), captures.end(), [](const Capture& a, const Capture& b) { return a.t < b.t; });
    pyra_sim::ObservationOptions options;
    calib::FrameAssembler assembler;
    std::map<int, std::pair<double, lum::Bodies>> newest;
    Walk out;
    double nextFrame = kStart + 0.5;
    for (const Capture& capture : captures) {
        const pyra_sim::CameraSettings& camera = scene.cameras[capture.camera];
        const lum::Bodies bodies = pyra_sim::observe(scene, camera, uint64_t(capture.t * 1e9), options);
        assembler.addBodies(int(camera.serial), bodies);
        newest[int(camera.serial)] = {capture.t, bodies};
        if (capture.t < nextFrame) continue;
        const lum::Timestamp ts(uint64_t(capture.t * 1e9));
        nextFrame += 0.5;
        std::map<int, lum::BodyData> frame;
        for (const auto& [serial, seen] : newest)
            if (capture.t - seen.first < 0.1 && seen.second.body_list.size() == 1) frame[serial] = seen.second.body_list[0];
        if (frame.size() >= 2) out.unaligned[ts] = frame;
        const std::vector<calib::CameraBodies> people = assembler.assemble();
        if (!people.empty()) out.aligned[ts] = people.front();
    }
    return out;
}

struct Figures {
    double worstDeg = 0, medianDeg = 0, worstMm = 0, medianMm = 0, tiltDeg = 0, heightMm = 0;
    bool solved = false;
};

double median(std::vector<double> v) {
    if (v.empty()) return 0;
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

Figures measure(const pyra_sim::Scene& scene, const calib::Frames& frames, Calibration::Model model,
                bool bias, bool floor) {
    Calibration c;
    c.options.model = model;
    c.options.refined.estimateBias = bias;
    c.options.levelFloor = floor;
    for (const auto& [ts, bodies] : frames) {
        std::map<int, lum::BodyData> copy = bodies;
        c.frames.add(ts, copy);
    }
    Figures f;
    f.solved = c.calibrate();
    if (!f.solved) return f;
    const int reference = c.state.poses.begin()->first;
    const Eigen::Isometry3d trueReference = synthetic::toIsometry(pyra_sim::findCamera(scene, unsigned(reference))->pose);
    const Eigen::Isometry3d estimatedReference = synthetic::toIsometry(c.state.calibratedPoses.at(reference));
    // Where the estimated world sits in the room.
    const Eigen::Isometry3d roomFromWorld = trueReference * estimatedReference.inverse();
    f.tiltDeg = std::acos(std::clamp((roomFromWorld.linear() * Eigen::Vector3d::UnitY()).y(), -1.0, 1.0)) * 180 / M_PI;
    std::vector<double> degrees, millimetres;
    for (const auto& [camera, pose] : c.state.poses) {
        const Eigen::Isometry3d truth = synthetic::toIsometry(pyra_sim::findCamera(scene, unsigned(camera))->pose);
        const Eigen::Isometry3d relative = trueReference.inverse() * truth;
        Eigen::Isometry3d estimated = Eigen::Isometry3d::Identity();
        estimated.linear() = Eigen::Quaterniond(pose.q[3], pose.q[0], pose.q[1], pose.q[2]).toRotationMatrix();
        estimated.translation() << pose.t[0], pose.t[1], pose.t[2];
        const Eigen::Isometry3d error = relative.inverse() * estimated;
        f.heightMm = std::max(f.heightMm, 1000 * std::abs(synthetic::toIsometry(c.state.calibratedPoses.at(camera)).translation().y() -
                                                          truth.translation().y()));
        if (camera == reference) continue;
        degrees.push_back(Eigen::AngleAxisd(error.linear()).angle() * 180 / M_PI);
        millimetres.push_back(1000 * (relative.translation() - estimated.translation()).norm());
    }
    f.worstDeg = *std::max_element(degrees.begin(), degrees.end());
    f.worstMm = *std::max_element(millimetres.begin(), millimetres.end());
    f.medianDeg = median(degrees);
    f.medianMm = median(millimetres);
    return f;
}

std::vector<std::string> table;

void BM_Accuracy(benchmark::State& state) {
    const Room room = rooms()[size_t(state.range(0))];
    const pyra_sim::Scene scene = toScene(room, 7 + uint64_t(state.range(0)));
    for (auto _ : state) {
        const Walk frames = walk(scene);
        struct Step {
            const char* name;
            const calib::Frames* frames;
            Calibration::Model model;
            bool bias, floor;
        };
        const Step steps[] = {{"Classic", &frames.unaligned, Calibration::Model::Classic, false, false},
                              {"Refined, clocks unaligned, no bias, no floor", &frames.unaligned,
                               Calibration::Model::Refined, false, false},
                              {"+ clock alignment", &frames.aligned, Calibration::Model::Refined, false, false},
                              {"+ bias", &frames.aligned, Calibration::Model::Refined, true, false},
                              {"+ level floor (Refined)", &frames.aligned, Calibration::Model::Refined, true, true}};
        for (const Step& step : steps) {
            const Figures f = measure(scene, *step.frames, step.model, step.bias, step.floor);
            char line[400];
            if (!f.solved)
                std::snprintf(line, sizeof(line), "| %s | %s | no solution | | | |", room.name.c_str(), step.name);
            else
                std::snprintf(line, sizeof(line), "| %s | %s | %.2f / %.2f | %.1f / %.1f | %.2f | %.0f |",
                              room.name.c_str(), step.name, f.worstDeg, f.medianDeg, f.worstMm, f.medianMm,
                              f.tiltDeg, f.heightMm);
            table.push_back(line);
        }
    }
}
BENCHMARK(BM_Accuracy)->DenseRange(0, 5)->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    std::printf("\n| room | model | rotation worst / median (deg) | position worst / median (mm) | floor tilt (deg) | "
                "worst camera height error (mm) |\n|---|---|---|---|---|---|\n");
    for (const std::string& line : table) std::printf("%s\n", line.c_str());
    return 0;
}
