// The whole main window's share of the CPU on the default simulated room with raw data
// shown: senders, fusion and the 3D view's repaints together, as a user would run it.
#include <benchmark/benchmark.h>

#include <QApplication>
#include <QCheckBox>
#include <QEventLoop>
#include <QTimer>

#include <chrono>
#include <ctime>

#include "app/mainwindow.hpp"
#include "workspace/room_usb.hpp"

namespace {

double processSeconds() {
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return double(t.tv_sec) + 1e-9 * double(t.tv_nsec);
}

void runEventsFor(int milliseconds) {
    QEventLoop loop;
    QTimer::singleShot(milliseconds, &loop, &QEventLoop::quit);
    loop.exec();
}

// The argument switches the raw skeletons on (1) or off (0).
void BM_MainWindowDefaultRoom(benchmark::State& state) {
    for (auto _ : state) {
        MainWindow window;
        window.resize(1280, 900);
        window.show();
        const roomusb::UsbRoom room = roomusb::discover();
        window.onFusionConfigReady(room.configurations);
        window.findChild<QCheckBox*>("check_rawdata")->setChecked(state.range(0) != 0);
        runEventsFor(5000);  // cameras open and people are found
        const double cpu0 = processSeconds();
        const auto wall0 = std::chrono::steady_clock::now();
        runEventsFor(20000);
        const double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - wall0).count();
        state.counters["cpu_share_percent"] = 100.0 * (processSeconds() - cpu0) / wall;
    }
}
BENCHMARK(BM_MainWindowDefaultRoom)->ArgName("raw")->Arg(1)->Arg(0)->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
