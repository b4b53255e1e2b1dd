// Does the stated pose uncertainty cover the true error? A person walks through several
// simulated rooms; each camera's stated 1-sigma is set against its error from the truth.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "calibration/calibration_verdict.hpp"
#include "testing/sim_walk.hpp"

namespace {

using Model = SkeletonMulticameraCalibration::Model;

struct Tally {
    int cameras = 0, within2 = 0, within3 = 0, good = 0;
    double ratioRotation = 0, ratioPosition = 0;  // sums of stated sigma over true error
};

void printCoverage(double seconds, Model model) {
    std::printf("\n### %s, after %.0f s of walking\n\n", model == Model::Refined ? "Refined" : "Classic", seconds);
    std::printf("| room | camera | rotation: error / stated 1-sigma (deg) | position: error / stated 1-sigma (mm) | "
                "covariance alone (deg / mm) | halves apart (deg / mm) | within 2 sigma |\n");
    std::printf("|---|---|---|---|---|---|---|\n");
    Tally tally;
    for (const simwalk::NamedScene& named : simwalk::coverageScenes()) {
        const simwalk::Walk walk = simwalk::calibrateWalk(named.scene, seconds, model);
        const auto errors = simwalk::errorsAgainstTruth(named.scene, walk.store.state.calibratedPoses);
        const int reference = walk.store.state.calibratedPoses.empty() ? 0 : walk.store.state.calibratedPoses.begin()->first;
        for (const CameraCalibrationReport& camera : walk.report.cameras) {
            if (camera.camera == reference || !errors.count(camera.camera)) continue;
            const simwalk::PoseError& error = errors.at(camera.camera);
            const CameraUncertainty& u = camera.uncertainty;
            const double worst = std::max(error.rotationDeg / u.rotationSigmaDeg, error.positionMm / u.positionSigmaMm);
            ++tally.cameras;
            tally.within2 += worst <= 2.0;
            tally.within3 += worst <= 3.0;
            tally.good += assessCamera(&camera, walk.report).readiness == CameraReadiness::Good;
            tally.ratioRotation += u.rotationSigmaDeg / std::max(error.rotationDeg, 1e-3);
            tally.ratioPosition += u.positionSigmaMm / std::max(error.positionMm, 0.1);
            std::printf("| %s | %d | %.2f / %.2f | %.1f / %.1f | %.3f / %.1f | %.2f / %.1f | %s |\n", named.name,
                        camera.camera, error.rotationDeg, u.rotationSigmaDeg, error.positionMm, u.positionSigmaMm,
                        camera.rotationSigmaDeg, camera.translationSigmaMm, u.halvesApartDeg, u.halvesApartMm,
                        worst <= 2.0 ? "yes" : "**no**");
        }
    }
    std::printf("\n%d cameras: %.0f %% within 2 sigma, %.0f %% within 3 sigma; stated sigma / true error on average: "
                "rotation %.1f, position %.1f; %d read Good\n",
                tally.cameras, 100.0 * tally.within2 / tally.cameras, 100.0 * tally.within3 / tally.cameras,
                tally.ratioRotation / tally.cameras, tally.ratioPosition / tally.cameras, tally.good);
}

// The price of the honest sigma: two half-walk solves after every solve.
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
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    for (Model model : {Model::Classic, Model::Refined})
        for (double seconds : {60.0, 120.0}) printCoverage(seconds, model);
    return 0;
}
