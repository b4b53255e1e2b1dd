// Skeleton calibration: cold and warm solve times of the fast, literal and refined solves,
// and the accuracy reached on the simulated room as a person walks for two minutes.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cmath>
#include <ctime>
#include <cstdio>
#include <map>
#include <string>

#include "calibration/calibration_report.hpp"
#include "calibration/skeleton_align.hpp"
#include "pyra_sim/scene.hpp"
#include "testing/synthetic_room.hpp"

namespace {

using Calibration = SkeletonMulticameraCalibration;

// Literal solves predicted to take longer than this are not run.
constexpr double kReferenceBudgetSeconds = 60.0;

struct Timing {
    double cold = -1, warm = -1;  // wall seconds; < 0: not run
    double coldCpu = 0, warmCpu = 0;  // processor seconds of all threads
    double predicted = 0;
    int blocks = 0;
};
enum Kind { kFast, kLiteral, kRefined };
std::map<std::tuple<int, int, int>, Timing> timings;  // cameras, frames, kind
double literalSecondsPerBlock = 0;                     // from the smallest literal run

void solveTwice(benchmark::State& state, int cameras, int frames, Kind kind) {
    const bool literal = kind == kLiteral;
    synthetic::Options options;
    options.cameras = cameras;
    options.everythingVisible = true;
    synthetic::Room room(options);
    Calibration store;
    store.options.bodyFormat = 0;
    store.options.solver = literal ? Calibration::Solver::Reference : Calibration::Solver::Fast;
    if (kind == kRefined) store.options.model = Calibration::Model::Refined;
    room.feed(store, frames);
    Timing& timing = timings[{cameras, frames, kind}];
    timing.blocks = frames * cameras * (cameras - 1) * 18;
    timing.predicted = 1.5 * literalSecondsPerBlock * timing.blocks;  // cold and warm
    if (literal && literalSecondsPerBlock > 0 && timing.predicted > kReferenceBudgetSeconds) {
        state.SkipWithError("literal solve predicted to exceed the budget");
        return;
    }
    for (auto _ : state) {
        Calibration calibration = store;
        auto start = std::chrono::steady_clock::now();
        std::clock_t cpu = std::clock();
        benchmark::DoNotOptimize(calibration.calibrate());
        timing.cold = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        timing.coldCpu = double(std::clock() - cpu) / CLOCKS_PER_SEC;
        start = std::chrono::steady_clock::now();
        cpu = std::clock();
        benchmark::DoNotOptimize(calibration.calibrate());
        timing.warm = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        timing.warmCpu = double(std::clock() - cpu) / CLOCKS_PER_SEC;
        state.SetIterationTime(timing.cold + timing.warm);
    }
    state.counters["cold_ms"] = timing.cold * 1e3;
    state.counters["warm_ms"] = timing.warm * 1e3;
    if (literal && literalSecondsPerBlock == 0) literalSecondsPerBlock = timing.cold / timing.blocks;
}

void printSpeedTable() {
    std::printf("\nWall time, with processor time of all threads in brackets.\n");
    std::printf("\n| cameras | frames | keypoint pairs | fast cold | fast warm | literal cold | literal warm | speed-up cold / warm | refined cold | refined warm |\n");
    std::printf("|---|---|---|---|---|---|---|---|---|---|\n");
    for (int cameras : {4, 6}) {
        for (int frames : {60, 240, 600, 1200}) {
            const Timing& fast = timings[{cameras, frames, kFast}];
            const Timing& literal = timings[{cameras, frames, kLiteral}];
            const Timing& refined = timings[{cameras, frames, kRefined}];
            if (fast.cold < 0) continue;
            std::printf("| %d | %d | %d | %.0f ms (%.0f) | %.0f ms (%.0f) | ", cameras, frames, fast.blocks,
                        fast.cold * 1e3, fast.coldCpu * 1e3, fast.warm * 1e3, fast.warmCpu * 1e3);
            if (literal.cold < 0) {
                std::printf("skipped (predicted %.0f s) | skipped | - |", literal.predicted);
            } else {
                std::printf("%.2f s (%.2f) | %.2f s (%.2f) | %.0fx / %.0fx (%.0fx / %.0fx) |", literal.cold,
                            literal.coldCpu, literal.warm, literal.warmCpu, literal.cold / fast.cold,
                            literal.warm / fast.warm, literal.coldCpu / fast.coldCpu, literal.warmCpu / fast.warmCpu);
            }
            std::printf(" %.0f ms (%.0f) | %.0f ms (%.0f) |\n", refined.cold * 1e3, refined.coldCpu * 1e3,
                        refined.warm * 1e3, refined.warmCpu * 1e3);
        }
    }
}

// One person walks through the default simulated room; every 500 ms each camera that sees
// exactly one person contributes its latest frame, and the calibration re-runs after more
// than ten new frames, as the fusion worker drives it.
void printAccuracyTable() {
    const pyra_sim::Scene scene = pyra_sim::defaultScene();
    pyra_sim::ObservationOptions observation;
    std::map<int, lum::Transform> truth;
    for (const pyra_sim::CameraSettings& camera : scene.cameras) truth[int(camera.serial)] = camera.pose;
    const int reference = truth.begin()->first;

    std::printf("\n| calibrate | walked | frames | solve | per camera: rotation error (deg) / translation error (mm) |\n");
    std::printf("|---|---|---|---|---|\n");
    Calibration calibration;
    calibration.options.bodyFormat = 0;
    const uint64_t start = 1700000000ull * 1000000000ull;
    int calls = 0;
    for (int step = 1; step <= 240; ++step) {
        const uint64_t now = start + uint64_t(step) * 500000000ull;
        std::map<int, lum::BodyData> frame;
        for (const pyra_sim::CameraSettings& camera : scene.cameras) {
            const double period = 1.0 / camera.fps;
            const double phase = pyra_sim::cameraPhase(scene, camera);
            const double seconds = double(now) * 1e-9;
            const double frameTime = phase + std::floor((seconds - phase) / period) * period;
            const lum::Bodies bodies = pyra_sim::observe(scene, camera, uint64_t(frameTime * 1e9), observation);
            if (bodies.body_list.size() == 1) frame[int(camera.serial)] = bodies.body_list.front();
        }
        if (frame.size() >= 2) calibration.frames.add(lum::Timestamp(now), frame);
        const bool milestone = step == 60 || step == 120 || step == 240;
        if (int(calibration.frames.size()) - calibration.state.framesAtLastCalibration <= 10 && !milestone) continue;
        if (int(calibration.frames.size()) == calibration.state.framesAtLastCalibration) continue;
        ++calls;
        if (!calibration.calibrate()) continue;
        const CalibrationReport report = makeCalibrationReport(calibration);
        const char* mark = milestone ? "**" : "";
        std::printf("| %d | %s%.0f s%s | %zu | %.0f ms |", calls, mark, step * 0.5, mark, calibration.frames.size(),
                    report.solveSeconds * 1e3);
        const lum::Transform toReference = lum::Transform::inverse(calibration.state.calibratedPoses.at(reference));
        const lum::Transform trueToReference = lum::Transform::inverse(truth.at(reference));
        for (const auto& [camera, pose] : calibration.state.calibratedPoses) {
            if (camera == reference) continue;
            const lum::Transform error =
                lum::Transform::inverse(trueToReference * truth.at(camera)) * (toReference * pose);
            const lum::Vector3f rotation = error.getRotationVector();
            std::printf(" %d: %.2f / %.0f", camera, rotation.norm() * 180.0 / M_PI,
                        error.getTranslation().norm() * 1e3);
        }
        std::printf(" |\n");
    }
}

}  // namespace

int main(int argc, char** argv) {
    for (int cameras : {4, 6}) {
        for (int frames : {60, 240, 600, 1200}) {
            for (Kind kind : {kFast, kLiteral, kRefined}) {
                const char* names[] = {"fast", "literal", "refined"};
                const std::string name = std::string(names[kind]) + "/cameras:" +
                                         std::to_string(cameras) + "/frames:" + std::to_string(frames);
                benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
                    solveTwice(state, cameras, frames, kind);
                })->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
            }
        }
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    printSpeedTable();
    printAccuracyTable();
    return 0;
}
