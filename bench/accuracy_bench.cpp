// Calibration accuracy against the simulated room's truth: six rooms, 60 s of one person
// walking recorded on the virtual clock, calibrated from the recording with each model.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include <Eigen/Geometry>

#include "bench/bench_process.hpp"
#include "bench/replayed_walk.hpp"
#include "calibration/skeleton_align.hpp"
#include "pyra_sim/scene.hpp"

namespace {

using Calibration = SkeletonMulticameraCalibration;
constexpr double kSeconds = 60.0;

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

std::vector<std::string> table;

std::string folder;

// Each room recorded once, then calibrated from the recording with each model, as a user
// runs `halden-cli record` and `halden-cli calibrate --replay [--model classic]`.
void BM_Accuracy(benchmark::State& state) {
    const Room room = rooms()[size_t(state.range(0))];
    const pyra_sim::Scene scene = toScene(room, 7 + uint64_t(state.range(0)));
    const std::string path = folder + "/room" + std::to_string(state.range(0)) + ".rec";
    for (auto _ : state) {
        replayed::record(scene, int(kSeconds), path);
        for (const Calibration::Model model : {Calibration::Model::Classic, Calibration::Model::Refined}) {
            const replayed::Calibrated calibrated = replayed::calibrate(path, model);
            const replayed::Errors e = replayed::errorsAgainstTruth(scene, calibrated.poses);
            const char* name = model == Calibration::Model::Classic ? "Classic" : "Refined";
            char line[400];
            if (calibrated.poses.size() < scene.cameras.size())
                std::snprintf(line, sizeof(line), "| %s | %s | %zu of %zu cameras placed | | | |", room.name.c_str(),
                              name, calibrated.poses.size(), scene.cameras.size());
            else
                std::snprintf(line, sizeof(line), "| %s | %s | %.2f / %.2f | %.1f / %.1f | %.2f | %.0f |",
                              room.name.c_str(), name, e.worstRotation(), e.medianRotation(), e.worstPosition(),
                              e.medianPosition(), e.floorTiltDeg, e.worstHeightMm);
            table.push_back(line);
        }
    }
}
BENCHMARK(BM_Accuracy)->DenseRange(0, 5)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    folder = bench::prepareProcess(argc, argv, bench::RoomClock::Virtual);
    bench::runBenchmarks(argc, argv);
    std::printf("\n| room | model | rotation worst / median (deg) | position worst / median (mm) | floor tilt (deg) | "
                "worst camera height error (mm) |\n|---|---|---|---|---|---|\n");
    for (const std::string& line : table) std::printf("%s\n", line.c_str());
    return 0;
}
