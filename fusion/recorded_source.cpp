// Sets from a recording: the live fusion's synchronisation rules, with each capture
// arriving at its own capture time.
#include "fusion/recorded_source.hpp"

#include <algorithm>
#include <chrono>
#include <thread>

namespace {

// Entries of one set are written together, so a few sets' worth of read-ahead per camera
// restores capture order.
constexpr size_t kReadAheadPerCamera = 16;
// Short enough that a worker told to stop notices at once.
constexpr int64_t kLongestPaceWaitNs = 20000000;

int64_t steadyNs() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

}  // namespace

RecordedBodySource::RecordedBodySource(std::unique_ptr<rec::RecordingReader> reader,
                                       lum::SynchronizationParameter synchronisation)
    : reader_(std::move(reader)), synchronisation_(synchronisation) {
    for (const lum::FusionConfiguration& camera : reader_->header().room)
        cameras_[lum::CameraIdentifier(camera.serial_number)].pose = camera.pose;
}

void RecordedBodySource::refill() {
    const size_t wanted = kReadAheadPerCamera * std::max<size_t>(1, cameras_.size());
    while (!readerDone_ && pending_.size() < wanted) {
        std::optional<rec::RecordedBodies> entry = reader_->next();
        if (!entry) {
            readerDone_ = true;
            break;
        }
        const lum::CameraIdentifier camera(static_cast<uint64_t>(entry->serial));
        // Bodies of a camera the room does not list have no pose to be placed with.
        if (!cameras_.count(camera)) continue;
        pending_.emplace(std::make_pair(entry->bodies.timestamp.getNanoseconds(), camera.sn), std::move(entry->bodies));
    }
}

bool RecordedBodySource::present(const Camera& camera, uint64_t now) const {
    const double timeoutMs =
        synchronisation_.dataSourceTimeoutMs > 0 ? synchronisation_.dataSourceTimeoutMs : 1000.0;
    return camera.hasFrame && double(now - std::min(now, camera.arrivalNs)) * 1e-6 <= timeoutMs;
}

bool RecordedBodySource::setReady(uint64_t now) const {
    size_t live = 0, fresh = 0;
    uint64_t oldest = now;
    for (const auto& [id, camera] : cameras_) {
        if (!present(camera, now)) continue;
        ++live;
        if (camera.newSinceSet) {
            ++fresh;
            oldest = std::min(oldest, camera.arrivalNs);
        }
    }
    const double waitMs = synchronisation_.maximumLatencyMs > 0 ? synchronisation_.maximumLatencyMs : 50.0;
    return fresh > 0 && (fresh == live || double(now - oldest) * 1e-6 >= waitMs);
}

void RecordedBodySource::makeSet() {
    for (auto& [id, camera] : cameras_) camera.newSinceSet = false;
}

bool RecordedBodySource::due(uint64_t captureNs) {
    if (firstCaptureNs_ == 0) {
        firstCaptureNs_ = captureNs;
        firstSteadyNs_ = steadyNs();
    }
    if (captureNs <= firstCaptureNs_) return true;
    const int64_t dueNs = firstSteadyNs_ + static_cast<int64_t>(captureNs - firstCaptureNs_);
    const int64_t early = dueNs - steadyNs();
    if (early <= 0) return true;
    std::this_thread::sleep_for(std::chrono::nanoseconds(std::min(early, kLongestPaceWaitNs)));
    return steadyNs() >= dueNs;
}

lum::FUSION_ERROR_CODE RecordedBodySource::process() {
    for (auto& [id, camera] : cameras_)
        if (camera.posePending) {
            camera.pose = camera.pendingPose;
            camera.posePending = false;
        }
    while (true) {
        refill();
        if (pending_.empty()) {
            bool fresh = false;
            for (const auto& [id, camera] : cameras_) fresh = fresh || camera.newSinceSet;
            if (fresh) {
                makeSet();
                return lum::FUSION_ERROR_CODE::SUCCESS;
            }
            ended_ = true;
            return lum::FUSION_ERROR_CODE::NO_NEW_DATA_AVAILABLE;
        }
        auto next = pending_.begin();
        const uint64_t captureNs = next->first.first;
        if (recordedPace_ && !due(captureNs)) return lum::FUSION_ERROR_CODE::NO_NEW_DATA_AVAILABLE;
        if (setReady(captureNs)) {
            makeSet();
            return lum::FUSION_ERROR_CODE::SUCCESS;
        }
        Camera& camera = cameras_[lum::CameraIdentifier(next->first.second)];
        camera.latest = std::move(next->second);
        pending_.erase(next);
        camera.hasFrame = camera.newSinceSet = camera.unread = true;
        camera.arrivalNs = captureNs;
        ++captures_;
        if (setReady(captureNs)) {
            makeSet();
            return lum::FUSION_ERROR_CODE::SUCCESS;
        }
    }
}

void RecordedBodySource::retrieveBodies(lum::Bodies& bodies, lum::CameraIdentifier camera) {
    auto found = cameras_.find(camera);
    if (found == cameras_.end()) bodies = lum::Bodies();
    else found->second.handOver(bodies);
}

void RecordedBodySource::updatePose(lum::CameraIdentifier camera, const lum::Transform& pose) {
    auto found = cameras_.find(camera);
    if (found == cameras_.end()) return;
    found->second.pendingPose = pose;
    found->second.posePending = true;
}
