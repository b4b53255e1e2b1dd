// Skeleton calibration: cold, warm and whole-runner solve times of the fast, literal and
// refined solves, repeated; on request, the accuracy reached on the simulated room.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "calibration/calibration_report.hpp"
#include "calibration/pose_uncertainty.hpp"
#include "calibration/skeleton_align.hpp"
#include "pyra_sim/scene.hpp"
#include "testing/synthetic_room.hpp"

namespace {

using Calibration = SkeletonMulticameraCalibration;

enum Kind { kFast, kLiteral, kRefined };
enum Phase { kCold, kWarm, kRunner, kHalves };
const char* const kKindNames[] = {"fast", "literal", "refined"};
const char* const kPhaseNames[] = {"cold", "warm", "runner", "halves"};

// A live calibration solves again once more than ten frames arrived since the last solve.
constexpr int kNewerFrames = 11;

// Stores are built once per case and copied outside the timed region, so every repetition
// solves the same frames from the same start.
struct Case {
    Calibration fresh;   // as collected
    Calibration solved;  // after one cold solve: the start of every warm solve
    Calibration newer;   // the frames a live session collects before it solves again
};

const Case& prepared(int cameras, int frames, Kind kind) {
    static std::map<std::tuple<int, int, int>, Case> cases;
    auto found = cases.find({cameras, frames, kind});
    if (found != cases.end()) return found->second;
    synthetic::Options options;
    options.cameras = cameras;
    options.everythingVisible = true;
    synthetic::Room room(options);
    Case& made = cases[{cameras, frames, kind}];
    made.fresh.options.solver = kind == kLiteral ? Calibration::Solver::Reference : Calibration::Solver::Fast;
    if (kind == kRefined) made.fresh.options.model = Calibration::Model::Refined;
    room.feed(made.fresh, frames);
    made.solved = made.fresh;
    made.solved.calibrate();
    room.feed(made.newer, kNewerFrames, 0.5 * frames);
    return made;
}

// Cold: a first solve of a full store. Warm: the next solve of the same store with eleven
// frames more, started from the last one's poses, as every re-solve of a live calibration
// is. Runner: a warm solve with its report and uncertainty, all that the calibration runner
// does per solve. Halves: the uncertainty's two half-walk solves alone, after a warm solve.
void solve(benchmark::State& state, int cameras, int frames, Kind kind, Phase phase) {
    const Case& source = prepared(cameras, frames, kind);
    for (auto _ : state) {
        state.PauseTiming();
        auto calibration = std::make_unique<Calibration>(phase == kCold ? Calibration() : source.solved);
        if (phase == kCold) {
            // Frames added anew: a copy would share chunks whose joints an earlier solve
            // already gathered, and a first solve finds none gathered.
            calibration->options = source.fresh.options;
            for (const auto& [ts, bodies] : source.fresh.frames) calibration->frames.add(ts, bodies);
        } else {
            for (const auto& [ts, bodies] : source.newer.frames) calibration->frames.add(ts, bodies);
        }
        if (phase != kHalves) state.ResumeTiming();
        const bool usable = calibration->calibrate();
        if (phase == kRunner && usable) {
            CalibrationReport report = makeCalibrationReport(*calibration);
            addPoseUncertainty(*calibration, report);
            benchmark::DoNotOptimize(report);
        }
        if (phase == kHalves && usable) {
            CalibrationReport report = makeCalibrationReport(*calibration);
            state.ResumeTiming();
            addPoseUncertainty(*calibration, report);
            benchmark::DoNotOptimize(report);
        }
        state.PauseTiming();
        if (!usable) state.SkipWithError("the solve was not usable");
        calibration.reset();
        state.ResumeTiming();
    }
}

void registerSolve(int cameras, int frames, Kind kind, Phase phase, int repetitions) {
    const std::string name = std::string(kKindNames[kind]) + "_" + kPhaseNames[phase] +
                             "/cameras:" + std::to_string(cameras) + "/frames:" + std::to_string(frames);
    benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
        solve(state, cameras, frames, kind, phase);
    })
        ->Iterations(1)
        ->Repetitions(repetitions)
        ->ReportAggregatesOnly(true)
        ->MeasureProcessCPUTime()
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
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
    // Five repetitions at least: the machine these run on is shared, so a single run says
    // little; the median and the spread are what the tables quote.
    constexpr int kRepetitions = 5;
    for (const auto& [cameras, frames] : std::vector<std::pair<int, int>>{{4, 240}, {6, 240}, {6, 1200}, {16, 1200}}) {
        for (Kind kind : {kFast, kRefined})
            for (Phase phase : {kCold, kWarm, kRunner, kHalves}) registerSolve(cameras, frames, kind, phase, kRepetitions);
    }
    // The literal formulation only as the yardstick on small stores: it takes minutes beyond.
    for (Phase phase : {kCold, kWarm}) registerSolve(4, 240, kLiteral, phase, kRepetitions);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    printAccuracyTable();
    return 0;
}
