// Whether a big live room keeps up on this machine: the simulated cameras, their senders and
// the fusion worker of the 20 x 12 m hall on the wall clock, the whole process's CPU share.
#include <QThread>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <ctime>
#include <fstream>
#include <mutex>
#include <sstream>

#include <nlohmann/json.hpp>

#include "bench/bench_process.hpp"
#include "fusion/fusion_worker.hpp"
#include "pyra_sim/scene.hpp"
#include "workspace/room_usb.hpp"

namespace {

constexpr int kSettleSeconds = 5;   // cameras open, handshakes, people come into view
constexpr int kMeasureSeconds = 20;

double processSeconds() {
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return double(t.tv_sec) + 1e-9 * double(t.tv_nsec);
}

// The hall's twelve wall cameras, and for more, cameras high in its corners, then in the
// middle of its long walls; all at 30 fps with the simulation's defaults.
bool hallScene(int cameras, pyra_sim::Scene& scene, std::string& problem) {
    std::ifstream in(HALDEN_SOURCE_DIR "/bench/scenes/scale/hall_twelve_three_people.json");
    std::stringstream text;
    text << in.rdbuf();
    nlohmann::json room = nlohmann::json::parse(text.str(), nullptr, false);
    if (room.is_discarded()) {
        problem = "the hall scene does not parse";
        return false;
    }
    const float corners[][3] = {{-9.8f, 3.3f, -5.8f}, {9.8f, 3.3f, 5.8f}, {9.8f, 3.0f, -5.8f}, {-9.8f, 3.0f, 5.8f},
                                {0.f, 3.5f, -5.9f},   {0.f, 3.5f, 5.9f}};
    nlohmann::json& list = room["cameras"];
    for (int extra = 0; int(list.size()) < cameras && extra < 6; ++extra) {
        const float* p = corners[extra];
        list.push_back({{"serial", 91101 + extra},
                        {"position", {p[0], p[1], p[2]}},
                        {"look_at", {p[0] * 0.4f, 0.9f, p[2] * 0.3f}}});
    }
    while (int(list.size()) > cameras) list.erase(list.size() - 1);
    return pyra_sim::parseScene(room.dump(), scene, &problem);
}

void BM_LiveHall(benchmark::State& state) {
    const int cameras = int(state.range(0));
    const bool collecting = state.range(1) != 0;
    pyra_sim::Scene scene;
    std::string problem;
    if (!hallScene(cameras, scene, problem)) {
        state.SkipWithError(problem.c_str());
        return;
    }
    pyra_sim::setActiveScene(scene);
    for (auto _ : state) {
        std::atomic<bool> initialised{false}, failed{false}, measuring{false};
        std::atomic<long long> captures{0};
        std::mutex lagMutex;
        double lagSum = 0, lagMax = 0;
        FusionWorker worker;  // after what its thread writes into: joined first
        worker.setCaptureSink([&](int, const lum::Bodies& bodies) {
            if (!measuring) return;
            ++captures;
            const double lag = double(lum::Timestamp::now().getNanoseconds() - bodies.timestamp.getNanoseconds()) * 1e-9;
            std::lock_guard<std::mutex> lock(lagMutex);
            lagSum += lag;
            lagMax = std::max(lagMax, lag);
        });
        QObject::connect(&worker, &FusionWorker::isInit, [&] { initialised = true; });
        QObject::connect(&worker, &FusionWorker::error, [&] { failed = true; });
        if (collecting) {
            worker.setCalibrationModel(SkeletonMulticameraCalibration::Model::Refined);
            worker.setCalibrateOnStart(true);
        }
        worker.setup(roomusb::discover().configurations, AppParams());
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!initialised && !failed && std::chrono::steady_clock::now() < deadline) QThread::msleep(10);
        if (!initialised) {
            worker.close();
            state.SkipWithError("the fusion did not start");
            return;
        }
        QThread::sleep(kSettleSeconds);
        worker.resetLoopTiming();
        const double cpu0 = processSeconds();
        const auto wall0 = std::chrono::steady_clock::now();
        measuring = true;
        QThread::sleep(kMeasureSeconds);
        measuring = false;
        const double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - wall0).count();
        const double cpu = processSeconds() - cpu0;
        const LoopTiming loop = worker.loopTiming();
        const int running = int(worker.runningCameras().size());
        worker.close();

        state.SetIterationTime(wall);
        state.counters["cameras_running"] = running;
        state.counters["cpu_share_of_one_core_pct"] = 100.0 * cpu / wall;
        state.counters["captures_per_camera_s"] = double(captures) / wall / std::max(running, 1);
        state.counters["lag_mean_ms"] = captures ? 1e3 * lagSum / double(captures) : 0;
        state.counters["lag_max_ms"] = 1e3 * lagMax;
        state.counters["loop_longest_interval_ms"] = loop.longestIntervalMs;
    }
}
// Cameras, then whether a Refined calibration collects frames (and solves) meanwhile.
BENCHMARK(BM_LiveHall)
    ->ArgNames({"cameras", "collecting"})
    ->Args({4, 0})
    ->Args({16, 0})
    ->Args({16, 1})
    ->Iterations(1)
    ->Repetitions(3)
    ->UseManualTime()
    ->Unit(benchmark::kSecond);

}  // namespace

int main(int argc, char** argv) {
    bench::prepareProcess(argc, argv, bench::RoomClock::Wall);
    bench::runBenchmarks(argc, argv);
    return 0;
}
