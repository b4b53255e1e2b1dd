// The shared set-up of the simulated-room benchmarks: environment first, since the room
// reads it when its first camera opens, then the application the worker's signals need.
#include "bench/bench_process.hpp"

#include <QCoreApplication>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <cstdlib>

namespace bench {

std::string prepareProcess(int& argc, char** argv, RoomClock clock) {
    static QTemporaryDir scratch;
    const std::string folder = scratch.path().toStdString();
    setenv("PYRA_RUNTIME_DIR", folder.c_str(), 1);
    setenv("PYRA_MODEL_CACHE", folder.c_str(), 1);
    setenv("PYRA_MODEL_OPTIMIZE_SECONDS", "0", 1);
    if (clock == RoomClock::Virtual)
        setenv("PYRA_SIM_CLOCK", "virtual", 1);
    else
        unsetenv("PYRA_SIM_CLOCK");
    unsetenv("PYRA_SIM_SCENE");
    static QCoreApplication application(argc, argv);
    return folder;
}

void runBenchmarks(int& argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}

}  // namespace bench
