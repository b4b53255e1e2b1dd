// The tampered walk: captures made on demand from the simulated room, one set per frame
// period, and a Refined calibration of them through the fusion worker.
#include "tests/fusion/tampered_walk.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>

#include "fusion/fusion_worker.hpp"
#include "testing/sim_walk.hpp"
#include "tests/fusion/fusion_support.hpp"

namespace tampered {
namespace {

constexpr uint64_t kStartNs = 1767225600ull * 1000000000ull;  // the virtual room's first instant

}  // namespace

WalkSource::WalkSource(pyra_sim::Scene scene, double seconds, Tamper tamper)
    : scene_(std::move(scene)), tamper_(std::move(tamper)) {
    frames_ = int(seconds * double(scene_.cameras.front().fps));
    for (const pyra_sim::CameraSettings& camera : scene_.cameras) cameras_[int(camera.serial)];
}

lum::FUSION_ERROR_CODE WalkSource::process() {
    {
        std::lock_guard<std::mutex> lock(poseMutex_);
        for (const auto& [serial, pose] : pendingPoses_) cameras_[serial].pose = pose;
        pendingPoses_.clear();
    }
    if (next_ >= frames_) {
        ended_ = true;
        return lum::FUSION_ERROR_CODE::NO_NEW_DATA_AVAILABLE;
    }
    const pyra_sim::ObservationOptions observation;
    for (const pyra_sim::CameraSettings& settings : scene_.cameras) {
        const double since = pyra_sim::cameraPhase(scene_, settings) + next_ / double(settings.fps);
        const uint64_t trueNs = kStartNs + uint64_t(std::llround(since * 1e9));
        HeldCapture& camera = cameras_[int(settings.serial)];
        camera.latest = pyra_sim::observe(scene_, pyra_sim::cameraAt(settings, since), trueNs, observation);
        camera.latest.timestamp = lum::Timestamp(trueNs);
        camera.latest.is_new = true;
        if (tamper_) tamper_(int(settings.serial), since, camera.latest);
        camera.unread = camera.latest.is_new;
    }
    ++next_;
    return lum::FUSION_ERROR_CODE::SUCCESS;
}

void WalkSource::retrieveBodies(lum::Bodies& bodies, lum::CameraIdentifier id) {
    auto found = cameras_.find(int(id.sn));
    if (found == cameras_.end()) bodies = lum::Bodies();
    else found->second.handOver(bodies);
}

void WalkSource::updatePose(lum::CameraIdentifier camera, const lum::Transform& pose) {
    std::lock_guard<std::mutex> lock(poseMutex_);
    pendingPoses_[int(camera.sn)] = pose;
}

Outcome calibrate(const pyra_sim::Scene& scene, double seconds, const Tamper& tamper) {
    std::vector<lum::FusionConfiguration> room;
    for (const pyra_sim::CameraSettings& camera : scene.cameras) {
        lum::FusionConfiguration configuration;
        configuration.serial_number = camera.serial;
        room.push_back(configuration);
    }
    Outcome outcome;
    std::mutex mutex;
    std::atomic<bool> ended{false};
    FusionWorker worker(std::make_shared<fusiontest::RecordingPrompts>());
    worker.setCalibrationModel(SkeletonMulticameraCalibration::Model::Refined);
    worker.setCalibrateOnStart(true);
    // As `calibrate --seconds` runs: collecting stops a second before the walk does.
    worker.setRunLength(int64_t((seconds - 1) * 1e9));
    QObject::connect(&worker, &FusionWorker::runEnded, [&] { ended = true; });
    QObject::connect(&worker, &FusionWorker::calibrationReport, [&](const CalibrationReport& report) {
        std::lock_guard<std::mutex> lock(mutex);
        if (report.usable) outcome.lastUsable = report;
    });
    QObject::connect(&worker, &FusionWorker::cameraNotice, [&](int, const QString& text, double) {
        std::lock_guard<std::mutex> lock(mutex);
        outcome.notices.push_back(text.toStdString());
    });
    worker.setupReplay(std::make_unique<WalkSource>(scene, seconds, tamper), room);
    EXPECT_TRUE(fusiontest::waitFor([&] { return ended.load(); }, fusiontest::kNoTimeout));
    outcome.frames = worker.calibrationFrameCount();
    for (const lum::FusionConfiguration& camera : worker.concludeCalibration())
        outcome.saved[int(camera.serial_number)] = camera.pose;
    worker.close();
    return outcome;
}

std::map<int, std::pair<double, double>> errors(const pyra_sim::Scene& scene, const std::map<int, lum::Transform>& found) {
    std::map<int, std::pair<double, double>> out;
    for (const auto& [serial, error] : simwalk::errorsAgainstTruth(scene, found))
        out[serial] = {error.rotationDeg, error.positionMm};
    return out;
}

}  // namespace tampered
