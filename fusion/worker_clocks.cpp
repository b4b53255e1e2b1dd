// Each camera's clock found from the walk, handed to the assembler and the capture gate;
// frames made again when a clock turns out other than the one they were made on.
#include "fusion/fusion_worker.hpp"

#include <cmath>

#include "core/console_log.hpp"

namespace {

// Clocks change slowly; comparing the whole walk costs a few milliseconds per camera pair.
constexpr int64_t kClockEstimateNs = 5000000000ll;
// A clock found this far from the one the frames so far were assembled on has them made
// again: 10 ms of walking is 14 mm of disagreement per joint. Well above what an estimate
// of a synchronised room moves by (a few milliseconds).
constexpr double kRetimeS = 0.010;

}  // namespace

void FusionWorker::updateClocks() {
    const int64_t now = clock->nowNs();
    if (lastClockEstimateNs >= 0 && now - lastClockEstimateNs < kClockEstimateNs) return;
    lastClockEstimateNs = now;
    calib::ClockEstimates latest = clockAligner.estimate();
    if (latest.reference < 0) return;
    // A camera once placed keeps its clock while a later comparison falls short.
    for (const auto& [camera, estimate] : clocks.cameras)
        if (!latest.cameras.count(camera) && clocks.reference == latest.reference) latest.cameras[camera] = estimate;
    std::vector<int> retimed;
    for (const auto& [camera, estimate] : latest.cameras) {
        auto before = clocks.cameras.find(camera);
        const double was = before == clocks.cameras.end() ? 0.0 : before->second.offsetAtS(estimate.anchorNs);
        // Also a camera that made no frame yet: on a wrong clock it may have paired with
        // nobody, and the frames it should have been in are made again.
        if (std::abs(estimate.offsetS - was) > kRetimeS) retimed.push_back(camera);
        frameAssembler.setClock(camera, estimate);
        captureGate.setClockOffset(camera, std::llround(estimate.offsetS * 1e9));
    }
    clocks = latest;
    if (retimed.empty()) return;
    for (int camera : retimed)
        console::notice() << "Camera " << camera << "'s clock is " << clocks.cameras.at(camera).offsetS
                          << " s off the first camera's: the frames so far are made again on it.";
    reassembleFrames();
}

// Frames, pairings and poses found on a wrong clock would hold the solve where they put it
// (a pose off by a walk's worth of offset pairs nobody through it): all of them go, and
// the frames are made again from the logged captures as if the clocks had been known from
// the start. Frames older than the log are lost.
void FusionWorker::reassembleFrames() {
    associator.clear();
    pairingWatch = calib::PairingWatch();
    calibration.frames = calib::FrameStore();
    calibration.state = calib::SolverState();
    discardRunningSolve = solver.busy();
    frameAssembler.clear();
    for (const auto& [camera, estimate] : clocks.cameras) frameAssembler.setClock(camera, estimate);
    captureLog.replay(frameAssembler, [this](int64_t atNs) {
        const std::vector<calib::CameraBodies> people = frameAssembler.assemble();
        for (size_t i = 0; i < people.size(); ++i)
            calibration.frames.add(lum::Timestamp(static_cast<uint64_t>(atNs) + i), people[i]);
    });
    calibrationFrames = static_cast<int>(calibration.frames.size());
}

// Offsets against the report's reference camera (its smallest identifier, the solve's).
void FusionWorker::addClocks(CalibrationReport& report) const {
    if (report.cameras.empty()) return;
    auto reference = clocks.cameras.find(report.cameras.front().camera);
    if (reference == clocks.cameras.end()) return;
    for (CameraCalibrationReport& camera : report.cameras) {
        auto found = clocks.cameras.find(camera.camera);
        if (found == clocks.cameras.end()) continue;
        camera.clockOffsetS = found->second.offsetS - reference->second.offsetAtS(found->second.anchorNs);
        camera.clockOffsetSigmaS = camera.camera == reference->first
                                       ? 0.0
                                       : std::hypot(found->second.sigmaS, reference->second.sigmaS);
    }
}

