// A thirty-minute walk of four people through the default room, with the store's budget and
// keeping every frame: resident memory at its peak and the worst camera's error.
#include <benchmark/benchmark.h>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "testing/crowd_room.hpp"

namespace {

struct Outcome {
    double peakMb = 0, endMb = 0, worstDeg = -1, worstMm = -1, processorS = 0;
    int frames = 0;
};

double statusMb(const char* key) {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind(key, 0) == 0) return std::stod(line.substr(std::string(key).size())) / 1024.0;
    return -1;
}

// In a child process, so each walk's peak is its own and not the bench's earlier walks';
// the child's processor time is read when it is reaped.
Outcome walkInChild(bool budgeted, double seconds) {
    int channel[2];
    if (pipe(channel) != 0) return {};
    const pid_t child = fork();
    if (child == 0) {
        close(channel[0]);
        crowd::Options options;
        options.scene = pyra_sim::defaultScene();
        options.scene.people.count = 4;
        options.seconds = seconds;
        options.model = SkeletonMulticameraCalibration::Model::Refined;
        options.calibrateEvery = 60;
        if (!budgeted) options.budget.maxFrames = 0;
        const crowd::Result result = crowd::run(options);
        Outcome out;
        out.peakMb = statusMb("VmHWM:");
        out.endMb = statusMb("VmRSS:");
        out.frames = result.frames;
        if (result.calibrated) out.worstDeg = result.worstRotation(), out.worstMm = result.worstTranslation();
        const ssize_t written = write(channel[1], &out, sizeof out);
        _exit(written == ssize_t(sizeof out) ? 0 : 1);
    }
    close(channel[1]);
    Outcome out;
    const ssize_t got = read(channel[0], &out, sizeof out);
    close(channel[0]);
    rusage usage{};
    wait4(child, nullptr, 0, &usage);
    if (got != ssize_t(sizeof out)) return {};
    out.processorS = double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                     1e-6 * double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
    return out;
}

void thirtyMinuteWalk(benchmark::State& state) {
    const bool budgeted = state.range(0) != 0;
    Outcome out;
    for (auto _ : state) out = walkInChild(budgeted, 1800);
    state.counters["peak_MB"] = out.peakMb;
    state.counters["end_MB"] = out.endMb;
    state.counters["frames"] = out.frames;
    state.counters["worst_deg"] = out.worstDeg;
    state.counters["worst_mm"] = out.worstMm;
    state.counters["child_cpu_s"] = out.processorS;
}
BENCHMARK(thirtyMinuteWalk)->ArgName("budgeted")->Arg(1)->Arg(0)->Iterations(1)->Repetitions(5)
    ->Unit(benchmark::kSecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
