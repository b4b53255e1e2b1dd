// Calibration accuracy against the simulated room's truth: each scene of a set, 60 s of
// walking recorded on the virtual clock, calibrated from the recording with each model.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "bench/bench_process.hpp"
#include "bench/replayed_walk.hpp"
#include "bench/scene_set.hpp"
#include "calibration/skeleton_align.hpp"
#include "pyra_sim/scene.hpp"

namespace {

using Calibration = SkeletonMulticameraCalibration;
constexpr double kSeconds = 60.0;

std::vector<sceneset::NamedScene> scenes;
std::vector<std::string> table;

std::string folder;

// Each room recorded once, then calibrated from the recording with each model, as a user
// runs `halden-cli record` and `halden-cli calibrate --replay [--model classic]`.
void BM_Accuracy(benchmark::State& state) {
    const sceneset::NamedScene& named = scenes[size_t(state.range(0))];
    const pyra_sim::Scene& scene = named.scene;
    const std::string path = folder + "/room" + std::to_string(state.range(0)) + ".rec";
    for (auto _ : state) {
        replayed::record(scene, int(kSeconds), path);
        for (const Calibration::Model model : {Calibration::Model::Classic, Calibration::Model::Refined}) {
            const replayed::Calibrated calibrated = replayed::calibrate(path, model);
            const replayed::Errors e = replayed::errorsAgainstTruth(scene, calibrated.poses);
            const char* name = model == Calibration::Model::Classic ? "Classic" : "Refined";
            char line[400];
            if (calibrated.poses.size() < scene.cameras.size())
                std::snprintf(line, sizeof(line), "| %s | %s | %zu of %zu cameras placed | | | |", named.name.c_str(),
                              name, calibrated.poses.size(), scene.cameras.size());
            else
                std::snprintf(line, sizeof(line), "| %s | %s | %.2f / %.2f | %.1f / %.1f | %.2f | %.0f |",
                              named.name.c_str(), name, e.worstRotation(), e.medianRotation(), e.worstPosition(),
                              e.medianPosition(), e.floorTiltDeg, e.worstHeightMm);
            table.push_back(line);
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    folder = bench::prepareProcess(argc, argv, bench::RoomClock::Virtual);
    const std::string set = sceneset::takeFolder(argc, argv);
    if (!sceneset::load(set, scenes)) return 2;
    benchmark::RegisterBenchmark("BM_Accuracy", BM_Accuracy)
        ->DenseRange(0, int(scenes.size()) - 1)
        ->Iterations(1)
        ->Unit(benchmark::kSecond)
        ->UseRealTime();
    bench::runBenchmarks(argc, argv);
    std::printf("\nScenes: %s\n", set.c_str());
    std::printf("\n| room | model | rotation worst / median (deg) | position worst / median (mm) | floor tilt (deg) | "
                "worst camera height error (mm) |\n|---|---|---|---|---|---|\n");
    for (const std::string& line : table) std::printf("%s\n", line.c_str());
    return 0;
}
