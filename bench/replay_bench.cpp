// Recording a walk on the virtual room clock and calibrating it again from the recording,
// both through the fusion worker halden-cli runs: 60 s of a 4- and a 6-camera room.
#include <QCoreApplication>
#include <QTemporaryDir>
#include <QThread>

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdlib>
#include <string>

#include "fusion/fusion_worker.hpp"
#include "fusion/recorded_source.hpp"
#include "pyra_sim/scene.hpp"
#include "recording/recording_writer.hpp"
#include "workspace/room_usb.hpp"

namespace {

constexpr int kSeconds = 60;

// The default room's four corners, or six cameras along the long walls of an 8 m room.
pyra_sim::Scene roomOf(int cameras) {
    if (cameras == 4) return pyra_sim::defaultScene();
    const char* six = R"({"seed": 7, "width": 8, "length": 6, "cameras": [
        {"serial": 42001, "position": [-3.8, 2.6, -2.8], "look_at": [0, 0.9, 0]},
        {"serial": 42002, "position": [0, 2.6, -2.8], "look_at": [0, 0.9, 0]},
        {"serial": 42003, "position": [3.8, 2.6, -2.8], "look_at": [0, 0.9, 0]},
        {"serial": 42004, "position": [3.8, 2.6, 2.8], "look_at": [0, 0.9, 0]},
        {"serial": 42005, "position": [0, 2.6, 2.8], "look_at": [0, 0.9, 0]},
        {"serial": 42006, "position": [-3.8, 2.6, 2.8], "look_at": [0, 0.9, 0]}]})";
    pyra_sim::Scene scene;
    pyra_sim::parseScene(six, scene, nullptr);
    return scene;
}

void waitFor(const std::atomic<bool>& flag) {
    while (!flag) QThread::msleep(1);
}

// Records kSeconds of the active room into `path`; the number of captures written.
int64_t record(const std::string& path) {
    const std::vector<lum::FusionConfiguration> room = roomusb::discover().configurations;
    rec::RecordingWriter writer;
    rec::RecordingHeader header;
    header.room = room;
    writer.open(path, header, nullptr);
    std::atomic<int64_t> captures{0};
    std::atomic<bool> ended{false};
    FusionWorker worker;
    worker.setCaptureSink([&](int serial, const lum::Bodies& bodies) {
        if (writer.append({serial, bodies}, nullptr)) ++captures;
    });
    worker.setRunLength(int64_t(kSeconds) * 1000000000);
    QObject::connect(&worker, &FusionWorker::runEnded, [&] { ended = true; });
    worker.setup(room, AppParams());
    waitFor(ended);
    worker.close();
    writer.close(nullptr);
    return captures;
}

// Calibrates from the recording at `path` as calibrate --replay does; the cameras placed.
size_t replay(const std::string& path) {
    auto reader = std::make_unique<rec::RecordingReader>();
    reader->open(path, nullptr);
    const std::vector<lum::FusionConfiguration> room = reader->header().room;
    std::atomic<bool> ended{false};
    FusionWorker worker;
    worker.setCalibrateOnStart(true);
    QObject::connect(&worker, &FusionWorker::runEnded, [&] { ended = true; });
    worker.setupReplay(std::make_unique<RecordedBodySource>(std::move(reader), roomFusionParameters().synchronization),
                       room);
    waitFor(ended);
    const size_t placed = worker.concludeCalibration().size();
    worker.close();
    return placed;
}

std::string recordingPath(int cameras) {
    return std::string(std::getenv("PYRA_RUNTIME_DIR")) + "/walk" + std::to_string(cameras) + ".rec";
}

void BM_Record(benchmark::State& state) {
    const int cameras = static_cast<int>(state.range(0));
    pyra_sim::setActiveScene(roomOf(cameras));
    int64_t captures = 0;
    for (auto _ : state) captures = record(recordingPath(cameras));
    state.counters["captures"] = static_cast<double>(captures);
    state.counters["x_real_time"] =
        benchmark::Counter(kSeconds * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_Record)->Arg(4)->Arg(6)->Iterations(1)->Repetitions(3)->Unit(benchmark::kSecond)->UseRealTime();

void BM_CalibrateReplay(benchmark::State& state) {
    const int cameras = static_cast<int>(state.range(0));
    size_t placed = 0;
    for (auto _ : state) placed = replay(recordingPath(cameras));
    state.counters["cameras_placed"] = static_cast<double>(placed);
    state.counters["x_real_time"] =
        benchmark::Counter(kSeconds * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_CalibrateReplay)->Arg(4)->Arg(6)->Iterations(1)->Repetitions(3)->Unit(benchmark::kSecond)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    QTemporaryDir folder;
    setenv("PYRA_RUNTIME_DIR", folder.path().toUtf8().constData(), 1);
    setenv("PYRA_MODEL_CACHE", folder.path().toUtf8().constData(), 1);
    setenv("PYRA_MODEL_OPTIMIZE_SECONDS", "0", 1);
    setenv("PYRA_SIM_CLOCK", "virtual", 1);
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
