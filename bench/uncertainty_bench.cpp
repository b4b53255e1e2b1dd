// Does the stated pose uncertainty cover the true error? Walks through a set of simulated
// rooms, recorded and calibrated from the recordings; each stated 1-sigma against the truth.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "bench/bench_process.hpp"
#include "bench/replayed_walk.hpp"
#include "bench/scene_set.hpp"
#include "calibration/calibration_verdict.hpp"
#include "testing/sim_walk.hpp"

namespace {

using Model = SkeletonMulticameraCalibration::Model;

struct Tally {
    int cameras = 0, within2 = 0, within3 = 0, good = 0;
    double ratioRotation = 0, ratioPosition = 0;  // sums of stated sigma over true error
};

std::string folder;
std::vector<sceneset::NamedScene> scenes;
constexpr int kLongestWalk = 120;

std::string recordingOf(size_t scene) { return folder + "/scene" + std::to_string(scene) + ".rec"; }

void printCoverage(int seconds, Model model) {
    std::printf("\n### %s, after %d s of walking\n\n", model == Model::Refined ? "Refined" : "Classic", seconds);
    std::printf("| room | camera | rotation: error / stated 1-sigma (deg) | position: error / stated 1-sigma (mm) | "
                "covariance alone (deg / mm) | halves apart (deg / mm) | within 2 sigma |\n");
    std::printf("|---|---|---|---|---|---|---|\n");
    Tally tally;
    for (size_t i = 0; i < scenes.size(); ++i) {
        const sceneset::NamedScene& named = scenes[i];
        const replayed::Calibrated walk = replayed::calibrate(recordingOf(i), model, seconds);
        const replayed::Errors errors = replayed::errorsAgainstTruth(named.scene, walk.poses);
        for (const CameraCalibrationReport& camera : walk.report.cameras) {
            if (!errors.rotationDeg.count(camera.camera)) continue;
            const double rotationError = errors.rotationDeg.at(camera.camera);
            const double positionError = errors.positionMm.at(camera.camera);
            const CameraUncertainty& u = camera.uncertainty;
            const double worst = std::max(rotationError / u.rotationSigmaDeg, positionError / u.positionSigmaMm);
            ++tally.cameras;
            tally.within2 += worst <= 2.0;
            tally.within3 += worst <= 3.0;
            tally.good += assessCamera(&camera, walk.report).readiness == CameraReadiness::Good;
            tally.ratioRotation += u.rotationSigmaDeg / std::max(rotationError, 1e-3);
            tally.ratioPosition += u.positionSigmaMm / std::max(positionError, 0.1);
            std::printf("| %s | %d | %.2f / %.2f | %.1f / %.1f | %.3f / %.1f | %.2f / %.1f | %s |\n", named.name.c_str(),
                        camera.camera, rotationError, u.rotationSigmaDeg, positionError, u.positionSigmaMm,
                        camera.rotationSigmaDeg, camera.translationSigmaMm, u.halvesApartDeg, u.halvesApartMm,
                        worst <= 2.0 ? "yes" : "**no**");
        }
    }
    if (tally.cameras == 0) return;
    std::printf("\n%d cameras: %.0f %% within 2 sigma, %.0f %% within 3 sigma; stated sigma / true error on average: "
                "rotation %.1f, position %.1f; %d read Good\n",
                tally.cameras, 100.0 * tally.within2 / tally.cameras, 100.0 * tally.within3 / tally.cameras,
                tally.ratioRotation / tally.cameras, tally.ratioPosition / tally.cameras, tally.good);
}

// The price of the honest sigma: two half-walk solves after every solve. A cost on a store
// walked by testing/sim_walk.hpp (the worker keeps its store to itself), not an accuracy.
void uncertaintyCost(benchmark::State& state) {
    simwalk::Walk walk = simwalk::calibrateWalk(pyra_sim::defaultScene(), 60.0, Model(state.range(0)));
    for (auto _ : state) {
        CalibrationReport report = walk.report;
        addPoseUncertainty(walk.store, report);
        benchmark::DoNotOptimize(report);
    }
}
BENCHMARK(uncertaintyCost)->Arg(int(Model::Classic))->Arg(int(Model::Refined))->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace

int main(int argc, char** argv) {
    folder = bench::prepareProcess(argc, argv, bench::RoomClock::Virtual);
    const std::string set = sceneset::takeFolder(argc, argv);
    if (!sceneset::load(set, scenes)) return 2;
    bench::runBenchmarks(argc, argv);
    std::printf("Scenes: %s\n", set.c_str());
    for (size_t i = 0; i < scenes.size(); ++i) replayed::record(scenes[i].scene, kLongestWalk, recordingOf(i));
    for (Model model : {Model::Classic, Model::Refined})
        for (int seconds : {60, kLongestWalk}) printCoverage(seconds, model);
    return 0;
}
