// Camera frame transport: encode + decode alone, and encode + send + receive + decode over
// the shared-memory and loopback transports, with the CPU share 6 cameras at 30 fps cost.
#include <benchmark/benchmark.h>

#include <time.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "pyra_sim/scene.hpp"
#include "transport/endpoints.hpp"
#include "transport/frame_codec.hpp"
#include "transport/publisher.hpp"
#include "transport/subscriber.hpp"

namespace {

using pyra::transport::Frame;

Frame sampleFrame(int people) {
    pyra_sim::Scene scene = pyra_sim::defaultScene();
    scene.people.count = people;
    Frame f;
    f.serial = scene.cameras[0].serial;
    f.bodies = pyra_sim::observe(scene, scene.cameras[0], 1700000000000000000ULL, pyra_sim::ObservationOptions());
    return f;
}

double processCpuSeconds() {
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return double(t.tv_sec) + double(t.tv_nsec) * 1e-9;
}

void BM_EncodeDecode(benchmark::State& state) {
    Frame frame = sampleFrame(int(state.range(0)));
    Frame out;
    for (auto _ : state) {
        std::string bytes = pyra::transport::encodeFrame(frame);
        benchmark::DoNotOptimize(pyra::transport::decodeFrame(bytes.data(), bytes.size(), out));
    }
    state.counters["bodies"] = double(frame.bodies.body_list.size());
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_EncodeDecode)->Arg(1)->Arg(4);

struct Link {
    std::unique_ptr<pyra::transport::Publisher> publisher;
    std::unique_ptr<pyra::transport::FrameSubscriber> subscriber;
};

// Kept for the whole run: ZeroMQ releases a closed endpoint asynchronously, so binding
// it again for each benchmark repetition could find it still taken.
Link& link(bool sharedMemory) {
    static Link links[2];
    Link& l = links[sharedMemory ? 1 : 0];
    if (l.publisher) return l;
    std::string folder = "/tmp/pyra-bench-" + std::to_string(::getpid());
    std::filesystem::create_directories(folder);
    ::setenv("PYRA_RUNTIME_DIR", folder.c_str(), 1);
    lum::CommunicationParameters parameters;
    if (sharedMemory) parameters.setForSharedMemory();
    else parameters.setForLocalNetwork("127.0.0.1", 23000 + int(::getpid() % 1000) * 2);
    pyra::transport::SenderHello hello;
    hello.serial = 7;
    if (pyra::transport::Publisher::start(parameters, hello, l.publisher) == lum::ERROR_CODE::SUCCESS)
        l.subscriber = pyra::transport::FrameSubscriber::connect(parameters, 7);
    return l;
}

// One frame through a publisher and a subscriber; range(0): 1 shared memory, 0 loopback.
void BM_TransportFrame(benchmark::State& state) {
    Link& l = link(state.range(0) == 1);
    if (!l.subscriber) {
        state.SkipWithError("cannot bind");
        return;
    }
    zmq::pollitem_t item{l.subscriber->socket().handle(), 0, ZMQ_POLLIN, 0};
    Frame frame = sampleFrame(1), got;
    frame.serial = 7;
    // Wait until the subscription has reached the publisher, then drain.
    for (int i = 0; i < 500 && !l.subscriber->take(got); ++i) {
        l.publisher->publish(frame);
        zmq::poll(&item, 1, std::chrono::milliseconds(10));
    }
    while (l.subscriber->take(got)) {
    }
    double cpuBefore = processCpuSeconds();
    for (auto _ : state) {
        l.publisher->publish(frame);
        while (!l.subscriber->take(got)) zmq::poll(&item, 1, std::chrono::milliseconds(100));
    }
    double cpuPerFrame = (processCpuSeconds() - cpuBefore) / double(state.iterations());
    state.counters["cpu_us_per_frame"] = cpuPerFrame * 1e6;
    state.counters["core_share_6cams_30fps_pct"] = cpuPerFrame * 6 * 30 * 100;
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_TransportFrame)->Arg(1)->Arg(0)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
