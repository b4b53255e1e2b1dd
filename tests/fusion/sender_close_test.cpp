// Stopping a camera's sender: close() returns even when the sender's thread had not yet
// begun to run when it was asked to stop, as happens when a room is stopped while starting.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <thread>

#include "fusion/pyra_worker.hpp"
#include "pyra_sim/scene.hpp"
#include "testing/isolated_process.hpp"
#include "workspace/room_usb.hpp"

TEST(SenderClose, StopsASenderWhoseThreadBeginsAfterTheStop) {
    platform_test::isolateProcess();
    pyra_sim::setActiveScene(pyra_sim::defaultScene());
    const std::vector<lum::FusionConfiguration> room = roomusb::discover().configurations;
    ASSERT_FALSE(room.empty());

    std::atomic<bool> finished{false};
    std::thread stopper([&] {
        for (int attempt = 0; attempt < 5; ++attempt) {
            PyraWorker sender;
            sender.setup(room.front(), AppParams());
            if (!sender.isOpened()) break;
            // Both cores busy for longer than close() pauses: an idle-priority thread only
            // begins to run once they let go, after close() asked it to stop.
            std::atomic<bool> busy{true};
            auto spin = [&busy] {
                while (busy) {
                }
            };
            std::thread first(spin), second(spin);
            sender.start(QThread::IdlePriority);
            std::thread release([&busy] {
                std::this_thread::sleep_for(std::chrono::milliseconds(300));
                busy = false;
            });
            sender.close();
            release.join();
            first.join();
            second.join();
        }
        finished = true;
    });
    if (!platform_test::waitFor([&] { return finished.load(); }, 60.0)) {
        ADD_FAILURE() << "close() still waits for a sender loop that began after the stop";
        // The stuck loop can never be joined; end here rather than hang the run.
        std::_Exit(1);
    }
    stopper.join();
}
