// Recording a walk on the virtual room clock and calibrating it again from the recording,
// both through the fusion worker halden-cli runs: 60 s of a 4- and a 6-camera room.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "bench/bench_process.hpp"
#include "bench/replayed_walk.hpp"
#include "pyra_sim/scene.hpp"

namespace {

constexpr int kSeconds = 60;

// The default room's four corners, or six cameras along the long walls of an 8 m room.
pyra_sim::Scene roomOf(int cameras) {
    if (cameras == 4) return pyra_sim::defaultScene();
    const char* six = R"({"seed": 7, "room": {"width": 8, "length": 6}, "cameras": [
        {"serial": 42001, "position": [-3.8, 2.6, -2.8], "look_at": [0, 0.9, 0]},
        {"serial": 42002, "position": [0, 2.6, -2.8], "look_at": [0, 0.9, 0]},
        {"serial": 42003, "position": [3.8, 2.6, -2.8], "look_at": [0, 0.9, 0]},
        {"serial": 42004, "position": [3.8, 2.6, 2.8], "look_at": [0, 0.9, 0]},
        {"serial": 42005, "position": [0, 2.6, 2.8], "look_at": [0, 0.9, 0]},
        {"serial": 42006, "position": [-3.8, 2.6, 2.8], "look_at": [0, 0.9, 0]}]})";
    pyra_sim::Scene scene;
    std::string problem;
    // A room that does not parse would be measured as an empty one, in no time.
    if (!pyra_sim::parseScene(six, scene, &problem)) {
        std::fprintf(stderr, "replay_bench: the 6-camera room: %s\n", problem.c_str());
        std::exit(1);
    }
    return scene;
}

std::string folder;

std::string recordingPath(int cameras) { return folder + "/walk" + std::to_string(cameras) + ".rec"; }

void BM_Record(benchmark::State& state) {
    const int cameras = static_cast<int>(state.range(0));
    const pyra_sim::Scene scene = roomOf(cameras);
    uint64_t captures = 0;
    for (auto _ : state) captures = replayed::record(scene, kSeconds, recordingPath(cameras));
    state.counters["captures"] = static_cast<double>(captures);
    state.counters["x_real_time"] =
        benchmark::Counter(kSeconds * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_Record)->Arg(4)->Arg(6)->Iterations(1)->Repetitions(3)->Unit(benchmark::kSecond)->UseRealTime();

void BM_CalibrateReplay(benchmark::State& state) {
    const int cameras = static_cast<int>(state.range(0));
    size_t placed = 0;
    for (auto _ : state)
        placed = replayed::calibrate(recordingPath(cameras), SkeletonMulticameraCalibration::Model::Refined).poses.size();
    state.counters["cameras_placed"] = static_cast<double>(placed);
    state.counters["x_real_time"] =
        benchmark::Counter(kSeconds * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_CalibrateReplay)->Arg(4)->Arg(6)->Iterations(1)->Repetitions(3)->Unit(benchmark::kSecond)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    folder = bench::prepareProcess(argc, argv, bench::RoomClock::Virtual);
    bench::runBenchmarks(argc, argv);
    return 0;
}
