// End-to-end latency from a camera's capture time to the fused bodies that hold it: two
// simulated cameras publishing over shared memory into a fusion in the same process.
#include <benchmark/benchmark.h>

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "lum/lum.hpp"

namespace {

class Sender {
public:
    explicit Sender(unsigned int serial) {
        lum::InitParameters init;
        init.input.setFromSerialNumber(serial);
        init.unit = lum::UNIT::METER;
        init.coordinateSystem = lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP;
        ok = camera.open(init) == lum::ERROR_CODE::SUCCESS;
        lum::CommunicationParameters shared;
        shared.setForSharedMemory();
        camera.startPublishing(shared);
        camera.enableBodyTracking();
        thread = std::thread([this] {
            lum::Bodies bodies;
            while (running && camera.grab() == lum::ERROR_CODE::SUCCESS) camera.retrieveBodies(bodies);
        });
    }
    ~Sender() {
        running = false;
        thread.join();
    }
    bool ok = false;
    lum::Camera camera;
    std::atomic<bool> running{true};
    std::thread thread;
};

void BM_GrabToFusedBodies(benchmark::State& state) {
    std::string folder = "/tmp/pyra-bench-latency-" + std::to_string(::getpid());
    std::filesystem::create_directories(folder);
    ::setenv("PYRA_RUNTIME_DIR", folder.c_str(), 1);
    ::setenv("PYRA_MODEL_CACHE", folder.c_str(), 1);
    ::setenv("PYRA_MODEL_OPTIMIZE_SECONDS", "0", 1);
    {
        Sender a(41001), b(41003);
        lum::Fusion fusion;
        lum::InitFusionParameters init;
        init.unit = lum::UNIT::METER;
        init.coordinateSystem = lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP;
        fusion.init(init);
        lum::CommunicationParameters shared;
        shared.setForSharedMemory();
        if (!a.ok || !b.ok || fusion.subscribe(lum::CameraIdentifier(41001), shared, lum::Transform()) != lum::FUSION_ERROR_CODE::SUCCESS ||
            fusion.subscribe(lum::CameraIdentifier(41003), shared, lum::Transform()) != lum::FUSION_ERROR_CODE::SUCCESS) {
            state.SkipWithError("cameras did not come up");
        } else {
            fusion.enableBodyTracking();
            lum::Bodies fused;
            double oldest = 0.0;
            for (auto _ : state) {
                while (fusion.process() != lum::FUSION_ERROR_CODE::SUCCESS) {
                }
                fusion.retrieveBodies(fused);
                // The set is as old as its newest frame; the other camera's frame is older still.
                double latency = double(lum::Timestamp::now().getNanoseconds() - fused.timestamp.getNanoseconds()) * 1e-9;
                lum::FusionMetrics metrics;
                fusion.getProcessMetrics(metrics);
                for (const auto& [id, m] : metrics.camera_individual_stats) oldest = std::max(oldest, double(m.delta_ts));
                state.SetIterationTime(latency);
            }
            state.counters["max_delta_ts_ms"] = oldest * 1e3;
        }
    }
    std::filesystem::remove_all(folder);
}
BENCHMARK(BM_GrabToFusedBodies)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(300);

}  // namespace

BENCHMARK_MAIN();
