// How long the fusion loop goes without calling process() while a Refined calibration of
// 1200 frames of the default room is solved, against the loop at rest and the solve inline.
#include <QThread>

#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <cstdlib>

#include "bench/bench_process.hpp"
#include "fusion/fusion_worker.hpp"
#include "pyra_sim/scene.hpp"
#include "testing/synthetic_store.hpp"
#include "workspace/room_usb.hpp"

namespace {

constexpr int kFrames = 1200;

bool waitFor(const std::atomic<bool>& flag, int seconds) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    while (!flag) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        QThread::msleep(10);
    }
    return true;
}

std::map<int, lum::Transform> defaultRoom() {
    std::map<int, lum::Transform> poses;
    for (const pyra_sim::CameraSettings& camera : pyra_sim::defaultScene().cameras)
        poses[static_cast<int>(camera.serial)] = camera.pose;
    return poses;
}

void BM_LoopWhileSolving(benchmark::State& state) {
    const SkeletonMulticameraCalibration store = synthetic::syntheticStore(defaultRoom(), kFrames, 0.01, 7);
    for (auto _ : state) {
        FusionWorker worker;
        std::atomic<bool> initialised{false};
        std::atomic<bool> solved{false};
        std::atomic<int> frames{0};
        CalibrationReport report;
        QObject::connect(&worker, &FusionWorker::isInit, [&] { initialised = true; });
        QObject::connect(&worker, &FusionWorker::newData, [&] { ++frames; });
        QObject::connect(&worker, &FusionWorker::calibrationReport, [&](const CalibrationReport& r) {
            report = r;
            solved = true;
        });
        worker.setup(roomusb::discover().configurations, AppParams());
        if (!waitFor(initialised, 30)) {
            state.SkipWithError("the fusion did not start");
            return;
        }

        QThread::sleep(3);
        const LoopTiming rest = worker.loopTiming();

        // Starting a calibration empties the store, so the 1200 frames are handed over after
        // it; the first collection then solves all of them.
        worker.setCalibrationModel(SkeletonMulticameraCalibration::Model::Refined);
        worker.startCalib(SKELETON_CALIB);
        worker.setCalibrationFrames(store.frames);
        worker.resetLoopTiming();
        const int framesBefore = frames;
        const auto started = std::chrono::steady_clock::now();
        if (!waitFor(solved, 300)) {
            state.SkipWithError("the solve did not finish");
            return;
        }
        const double solveSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
        const LoopTiming during = worker.loopTiming();
        const int framesDuring = frames - framesBefore;
        worker.close();

        state.counters["rest_longest_gap_ms"] = rest.longestBodyMs;
        state.counters["rest_longest_interval_ms"] = rest.longestIntervalMs;
        state.counters["longest_gap_ms"] = during.longestBodyMs;
        state.counters["longest_interval_ms"] = during.longestIntervalMs;
        state.counters["solve_wall_s"] = solveSeconds;
        state.counters["solve_only_s"] = report.solveSeconds;
        state.counters["frames_fused_meanwhile"] = framesDuring;
        state.counters["usable"] = report.usable ? 1 : 0;
        state.counters["solved_frames"] = report.frames;
    }
}
BENCHMARK(BM_LoopWhileSolving)->Iterations(1)->Repetitions(5)->ReportAggregatesOnly(true)->Unit(benchmark::kSecond)->UseRealTime();

// The same solve on the calling thread: the stall a loop that calibrates inline would see.
void BM_InlineSolve(benchmark::State& state) {
    const SkeletonMulticameraCalibration store = synthetic::syntheticStore(defaultRoom(), kFrames, 0.01, 7);
    for (auto _ : state) {
        SkeletonMulticameraCalibration copy = store;
        copy.options.model = SkeletonMulticameraCalibration::Model::Refined;
        benchmark::DoNotOptimize(copy.calibrate());
    }
}
BENCHMARK(BM_InlineSolve)->Iterations(1)->Repetitions(5)->ReportAggregatesOnly(true)->MeasureProcessCPUTime()->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    bench::prepareProcess(argc, argv, bench::RoomClock::Wall);
    bench::runBenchmarks(argc, argv);
    return 0;
}
