// The solver thread and the merge of its result into the store. The thread runs at a
// lower scheduling priority so that on a busy machine the live view keeps its cores.
#include "fusion/calibration_runner.hpp"

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

CalibrationRunner::~CalibrationRunner() { join(); }

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
    join();
    auto snapshot = std::make_unique<SkeletonMulticameraCalibration>(store);
    thread = std::thread([this, low = lowPriority, snapshot = std::move(snapshot)]() mutable {
        if (low) lowerThisThreadPriority();
        SolvedCalibration solved{std::move(snapshot), false, {}};
        solved.usable = solved.calibration->calibrate();
        solved.report = makeCalibrationReport(*solved.calibration);
        if (solved.usable) addPoseUncertainty(*solved.calibration, solved.report);
        std::lock_guard<std::mutex> lock(mutex);
        result = std::move(solved);
        solving = false;
        finished.notify_all();
    });
}

std::optional<SolvedCalibration> CalibrationRunner::take() {
    std::optional<SolvedCalibration> taken;
    {
        std::lock_guard<std::mutex> lock(mutex);
        if (!result) return std::nullopt;
        taken = std::move(result);
        result.reset();
    }
    join();
    return taken;
}

void CalibrationRunner::wait() {
    std::unique_lock<std::mutex> lock(mutex);
    finished.wait(lock, [this] { return !solving; });
}

void CalibrationRunner::join() {
    if (thread.joinable()) thread.join();
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
