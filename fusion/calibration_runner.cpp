// The solver thread and the merge of its result into the store. The thread runs at a
// lower scheduling priority so that on a busy machine the live view keeps its cores.
#include "fusion/calibration_runner.hpp"

#include <malloc.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <utility>

namespace {

void lowerThisThreadPriority() {
    const auto tid = static_cast<id_t>(syscall(SYS_gettid));
    setpriority(PRIO_PROCESS, tid, 10);
}

}  // namespace

CalibrationRunner::~CalibrationRunner() { stopThread(); }

void CalibrationRunner::stopThread() {
    {
        std::lock_guard<std::mutex> lock(mutex);
        stopping = true;
    }
    requested.notify_all();
    if (thread.joinable()) thread.join();
    std::lock_guard<std::mutex> lock(mutex);
    stopping = false;
}

bool CalibrationRunner::busy() const {
    std::lock_guard<std::mutex> lock(mutex);
    return solving || result.has_value();
}

void CalibrationRunner::start(const SkeletonMulticameraCalibration& store) {
    {
        std::lock_guard<std::mutex> lock(mutex);
        if (solving || result) return;
        solving = true;
    }
    // The thread is idle here: no solve runs while start() is allowed.
    if (thread.joinable() && threadLowered != lowPriority) stopThread();
    auto snapshot = std::make_unique<SkeletonMulticameraCalibration>(store);
    {
        std::lock_guard<std::mutex> lock(mutex);
        pending = std::move(snapshot);
    }
    // A thread of its own for every solve would leave glibc an arena per thread, each
    // holding on to what the solves' large temporaries freed.
    if (!thread.joinable()) {
        threadLowered = lowPriority;
        thread = std::thread([this, low = lowPriority] { serve(low); });
    }
    requested.notify_all();
}

void CalibrationRunner::serve(bool low) {
    if (low) lowerThisThreadPriority();
    std::unique_lock<std::mutex> lock(mutex);
    for (;;) {
        requested.wait(lock, [this] { return stopping || pending; });
        if (stopping) return;  // a solve not yet begun is not worth waiting for
        SolvedCalibration solved{std::move(pending), false, {}};
        lock.unlock();
        solved.usable = solved.calibration->calibrate();
        solved.report = makeCalibrationReport(*solved.calibration);
        if (solved.usable) addPoseUncertainty(*solved.calibration, solved.report);
        // The solve's temporaries are gone; hand their pages back rather than keep them
        // for a solve that may never come.
        malloc_trim(0);
        lock.lock();
        result = std::move(solved);
        solving = false;
        finished.notify_all();
        if (stopping) return;
    }
}

std::optional<SolvedCalibration> CalibrationRunner::take() {
    std::lock_guard<std::mutex> lock(mutex);
    if (!result) return std::nullopt;
    std::optional<SolvedCalibration> taken = std::move(result);
    result.reset();
    return taken;
}

void CalibrationRunner::wait() {
    std::unique_lock<std::mutex> lock(mutex);
    finished.wait(lock, [this] { return !solving; });
}

void mergeSolvedCalibration(SkeletonMulticameraCalibration& store, SolvedCalibration&& solved) {
    SkeletonMulticameraCalibration& done = *solved.calibration;
    store.poses = std::move(done.poses);
    store.biases = std::move(done.biases);
    store.droppedKeypoints = done.droppedKeypoints;
    store.lastSolve = done.lastSolve;
    if (!solved.usable) return;
    store.calibratedPoses = std::move(done.calibratedPoses);
    for (auto& [timestamp, bodies] : done.frames) store.frames[timestamp] = std::move(bodies);
}
