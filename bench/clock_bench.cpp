// Camera clocks found from the walk: 60 s of the default room on the virtual clock through
// the fusion worker halden-cli runs, two cameras' clocks set apart; and what an estimate costs.
#include <QThread>

#include <benchmark/benchmark.h>

#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include <Eigen/Geometry>

#include "bench/bench_process.hpp"
#include "calibration/clock_aligner.hpp"
#include "fusion/fusion_worker.hpp"
#include "pyra_sim/scene.hpp"
#include "workspace/room_usb.hpp"

namespace {

constexpr int kSeconds = 60;
// Two of the four cameras run apart, one ahead and one behind the first camera's clock.
constexpr unsigned kAhead = 41002, kBehind = 41004;
constexpr double kBehindShare = -0.6;

struct Run {
    CalibrationReport report;
    std::map<int, lum::Transform> poses;
};

pyra_sim::Scene roomWithClocks(double offsetS) {
    pyra_sim::Scene scene = pyra_sim::defaultScene();
    for (pyra_sim::CameraSettings& camera : scene.cameras) {
        if (camera.serial == kAhead) camera.clockOffsetSeconds = offsetS;
        if (camera.serial == kBehind) camera.clockOffsetSeconds = kBehindShare * offsetS;
    }
    return scene;
}

// The same room with every clock on true time, each camera capturing at the same true
// instants as in `room` (its phase moved by its offset), so that it sees exactly the same
// bodies: poses apart from this twin are what the clocks cost, not another noise draw.
pyra_sim::Scene synchronisedTwin(const pyra_sim::Scene& room) {
    pyra_sim::Scene twin = room;
    for (pyra_sim::CameraSettings& camera : twin.cameras) {
        const double period = 1.0 / camera.fps;
        const double phase = std::fmod(pyra_sim::cameraPhase(room, camera) - camera.clockOffsetSeconds, period);
        camera.phaseSeconds = phase < 0 ? phase + period : phase;
        camera.clockOffsetSeconds = 0;
    }
    return twin;
}

Run calibrate(const pyra_sim::Scene& scene) {
    pyra_sim::setActiveScene(scene);
    const std::vector<lum::FusionConfiguration> room = roomusb::discover().configurations;
    std::atomic<bool> ended{false};
    std::mutex mutex;
    Run run;
    FusionWorker worker;
    worker.setCalibrationModel(SkeletonMulticameraCalibration::Model::Refined);
    worker.setCalibrateOnStart(true);
    worker.setRunLength(int64_t(kSeconds) * 1000000000);
    QObject::connect(&worker, &FusionWorker::runEnded, [&] { ended = true; });
    QObject::connect(&worker, &FusionWorker::calibrationReport, [&](const CalibrationReport& report) {
        std::lock_guard<std::mutex> lock(mutex);
        if (report.usable) run.report = report;
    });
    worker.setup(room, AppParams());
    while (!ended) QThread::msleep(1);
    for (const lum::FusionConfiguration& camera : worker.concludeCalibration())
        run.poses[int(camera.serial_number)] = camera.pose;
    worker.close();
    return run;
}

Eigen::Isometry3d toIsometry(const lum::Transform& t) {
    const lum::Orientation q = t.getOrientation();
    const lum::Translation p = t.getTranslation();
    Eigen::Isometry3d out = Eigen::Isometry3d::Identity();
    out.linear() = Eigen::Quaterniond(q.w, q.x, q.y, q.z).toRotationMatrix();
    out.translation() << p.x, p.y, p.z;
    return out;
}

std::map<int64_t, Run> twins;  // by offset: the run of the synchronised twin
std::vector<std::string> table;

void BM_ClockFromWalk(benchmark::State& state) {
    const double offsetS = 1e-3 * double(state.range(0));
    const pyra_sim::Scene room = roomWithClocks(offsetS);
    if (!twins.count(state.range(0))) twins[state.range(0)] = calibrate(synchronisedTwin(room));
    Run run;
    for (auto _ : state) run = calibrate(room);

    const std::map<unsigned, double> truth = {{kAhead, offsetS}, {kBehind, kBehindShare * offsetS}};
    double worstClockMs = 0, worstSigmaMs = 0, worstMm = 0, worstDeg = 0;
    int clocksKnown = 0;
    for (const CameraCalibrationReport& camera : run.report.cameras) {
        if (!std::isfinite(camera.clockOffsetS)) continue;
        ++clocksKnown;
        auto found = truth.find(unsigned(camera.camera));
        const double expected = found == truth.end() ? 0.0 : found->second;
        worstClockMs = std::max(worstClockMs, 1000 * std::abs(camera.clockOffsetS - expected));
        worstSigmaMs = std::max(worstSigmaMs, 1000 * camera.clockOffsetSigmaS);
    }
    for (const auto& [serial, pose] : twins[state.range(0)].poses) {
        auto other = run.poses.find(serial);
        if (other == run.poses.end()) {
            worstMm = INFINITY;
            continue;
        }
        const Eigen::Isometry3d a = toIsometry(pose), b = toIsometry(other->second);
        worstMm = std::max(worstMm, 1000 * (a.translation() - b.translation()).norm());
        worstDeg = std::max(worstDeg, Eigen::AngleAxisd(a.linear().transpose() * b.linear()).angle() * 180 / M_PI);
    }
    state.counters["clocks_known"] = clocksKnown;
    state.counters["worst_clock_error_ms"] = worstClockMs;
    state.counters["worst_clock_sigma_ms"] = worstSigmaMs;
    state.counters["poses_apart_mm"] = worstMm;
    state.counters["poses_apart_deg"] = worstDeg;
    char line[200];
    std::snprintf(line, sizeof line, "| %5.0f ms | %d of %zu | %.2f ms | %.2f ms | %.2f mm, %.3f deg |", 1000 * offsetS,
                  clocksKnown, run.report.cameras.size(), worstClockMs, worstSigmaMs, worstMm, worstDeg);
    table.push_back(line);
}
BENCHMARK(BM_ClockFromWalk)
    ->Arg(0)->Arg(50)->Arg(300)->Arg(2000)
    ->Iterations(1)->Repetitions(2)->Unit(benchmark::kSecond)->UseRealTime();

// One estimate over a full history (120 s of walking, every pair of `cameras` compared),
// as the fusion worker makes every 5 s while collecting.
void BM_ClockEstimate(benchmark::State& state) {
    pyra_sim::Scene scene = pyra_sim::defaultScene();
    scene.cameras.resize(size_t(state.range(0)));
    const pyra_sim::ObservationOptions options;
    calib::ClockAligner aligner;
    for (const pyra_sim::CameraSettings& camera : scene.cameras)
        for (double t = 0; t < 120; t += 1.0 / camera.fps) {
            const uint64_t ns = uint64_t(1.7e18) + uint64_t(t * 1e9);
            aligner.addBodies(int(camera.serial), pyra_sim::observe(scene, camera, ns, options));
        }
    size_t known = 0;
    for (auto _ : state) known = aligner.estimate().cameras.size();
    state.counters["clocks_known"] = double(known);
}
BENCHMARK(BM_ClockEstimate)->Arg(2)->Arg(4)->Repetitions(3)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    bench::prepareProcess(argc, argv, bench::RoomClock::Virtual);
    bench::runBenchmarks(argc, argv);
    std::printf("| offset (41002; 41004 -0.6x) | clocks known | worst clock error | worst 1-sigma | poses from the synchronised twin |\n");
    std::printf("|---|---|---|---|---|\n");
    for (const std::string& line : table) std::printf("%s\n", line.c_str());
    return 0;
}
