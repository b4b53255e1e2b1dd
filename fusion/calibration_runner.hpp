// Runs one skeleton calibration at a time on a thread of its own, on a snapshot sharing the
// store's frames, so the fusion loop keeps processing frames while the solver works. One thread serves
// every solve of the runner's life.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include "calibration/calibration_report.hpp"
#include "calibration/skeleton_align.hpp"

struct SolvedCalibration {
    // The snapshot after its solve; held by pointer since the store has no cheap move.
    std::unique_ptr<SkeletonMulticameraCalibration> calibration;
    bool usable = false;
    CalibrationReport report;
};

class CalibrationRunner {
public:
    CalibrationRunner() = default;
    ~CalibrationRunner();
    CalibrationRunner(const CalibrationRunner&) = delete;
    CalibrationRunner& operator=(const CalibrationRunner&) = delete;

    // Whether solves run at a lower scheduling priority (the default: a live view keeps its
    // cores). A caller that waits for each solve anyway wants it at full speed.
    void setLowPriority(bool low) { lowPriority = low; }
    // True from start() until the result has been taken.
    bool busy() const;
    // Takes a snapshot (on the caller's thread; the frames are shared, not copied) and solves
    // it on the solver thread.
    // Does nothing while busy(). The owner serialises start(), take() and destruction.
    void start(const SkeletonMulticameraCalibration& store);
    // The finished solve, once; nothing while the solver still works or after it was taken.
    std::optional<SolvedCalibration> take();
    // Blocks until the running solve (if any) has finished; its result stays to be taken.
    void wait();

private:
    void serve(bool low);
    void stopThread();

    mutable std::mutex mutex;
    std::condition_variable finished;
    std::condition_variable requested;
    std::thread thread;
    bool solving = false;
    bool stopping = false;
    bool lowPriority = true;
    bool threadLowered = false;  // a lowered thread cannot raise itself again
    std::unique_ptr<SkeletonMulticameraCalibration> pending;
    std::optional<SolvedCalibration> result;
};

// Brings what a solve changed back into the calibration: the poses it reached (they seed
// the next solve, usable or not) and, when usable, the rest of its state. The frames are
// never written by a solve, so those added since the snapshot stay as they are.
void mergeSolvedCalibration(SkeletonMulticameraCalibration& store, SolvedCalibration&& solved);
