// lum::Fusion: subscribes to publishing cameras, gathers their frames into synchronised
// sets, fuses their bodies in the world frame and measures what it receives.
#include "lum/fusion.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <deque>
#include <map>
#include <mutex>
#include <thread>

#include "body_fusion.hpp"
#include "pyra_sim/room_clock.hpp"
#include "transport/subscriber.hpp"

namespace lum {

namespace {

using pyra::transport::Frame;
using pyra::transport::FrameSubscriber;
using SteadyClock = std::chrono::steady_clock;

constexpr int kHandshakeTimeoutMs = 2000;
constexpr int kProcessWaitMs = 50;
constexpr uint64_t kMetricsWindowNs = 2000000000ULL;
// On the virtual room clock, how long (wall time) a camera with nothing queued is waited
// for before the others go on without it.
constexpr int kVirtualPatienceMs = 2000;

uint64_t nowNs() { return Timestamp::now().getNanoseconds(); }

struct Arrival {
    uint64_t arrivalNs;
    uint64_t frameNs;
    bool detected;
};

struct CameraLink {
    CommunicationParameters communication;
    Transform pose;  // camera to world, in the fusion's system and unit
    bool posePending = false;
    Transform pendingPose;
    std::unique_ptr<FrameSubscriber> subscriber;
    Bodies latest;  // camera frame, fusion's system and unit
    std::deque<Bodies> queued;  // virtual clock: received, not yet due
    bool silent = false;        // virtual clock: sends no more, or sent nothing for the whole patience
    uint64_t received = 0;      // virtual clock: frames taken from the camera
    bool hasFrame = false;
    bool newSinceSet = false;
    bool unread = false;
    uint64_t arrivalNs = 0;
    uint64_t foreignFrames = 0;
    std::deque<Arrival> arrivals;
    std::deque<float> syncedLatencies;
    float deltaTs = 0.f;
};

float rate(const std::deque<uint64_t>& times) {
    if (times.size() < 2 || times.back() <= times.front()) return 0.f;
    return float(double(times.size() - 1) * 1e9 / double(times.back() - times.front()));
}

}  // namespace

class FusionBackend {
public:
    std::mutex mutex;
    bool initialised = false;
    InitFusionParameters parameters;
    std::map<CameraIdentifier, CameraLink> links;
    bool bodyTracking = false;
    bool positionalTracking = false;
    pyra::BodyFuser fuser;
    std::vector<pyra::FusedBody> fused;
    Timestamp fusedTime;
    bool fusedUnread = false;
    std::deque<uint64_t> setTimes;
    float timestampSpread = 0.f;
    // PYRA_SIM_CLOCK=virtual: frames arrive when their capture time comes, in capture order,
    // so the sets do not depend on how the threads of this process were scheduled.
    bool virtualClock = false;

    uint64_t clockNs() const { return virtualClock ? pyra_sim::virtualNowNs() : nowNs(); }

    void receive(CameraIdentifier id, CameraLink& link) {
        Frame frame;
        while (link.subscriber->take(frame)) {
            if (frame.serial != id.sn) {
                ++link.foreignFrames;
                continue;
            }
            Matrix3f axes = getCoordinateTransformConversion3f(frame.coordinateSystem, parameters.coordinateSystem);
            pyra::transformBodies(frame.bodies, axes, getUnitScale(frame.unit, parameters.unit), Vector3f());
            if (virtualClock) {
                link.queued.push_back(std::move(frame.bodies));
                ++link.received;
            }
            else
                arrive(link, std::move(frame.bodies), nowNs());
        }
    }

    void arrive(CameraLink& link, Bodies&& bodies, uint64_t now) {
        link.latest = std::move(bodies);
        link.hasFrame = link.newSinceSet = link.unread = true;
        link.arrivalNs = now;
        link.arrivals.push_back({now, link.latest.timestamp.getNanoseconds(), !link.latest.body_list.empty()});
        while (!link.arrivals.empty() && link.arrivals.front().arrivalNs + kMetricsWindowNs < now)
            link.arrivals.pop_front();
    }

    // The camera whose queued capture comes first, once every camera still sending has one
    // queued; nullptr while one is awaited.
    CameraLink* nextDue(bool patienceOver) {
        CameraLink* earliest = nullptr;
        uint64_t earliestNs = 0;
        bool awaited = false;
        for (auto& [id, link] : links) {
            if (link.queued.empty()) {
                // A camera of this process is waited for until it said it sends no more and
                // all it sent is here; only frames lost on the way, or a camera elsewhere,
                // leave it to the wall-clock patience.
                const pyra_sim::VirtualSender sender = pyra_sim::virtualSender(unsigned(id.sn));
                if (sender.known && !sender.sending && link.received >= sender.published) link.silent = true;
                else if (patienceOver && !(sender.known && sender.sending)) link.silent = true;
                awaited = awaited || !link.silent;
                continue;
            }
            link.silent = false;
            const uint64_t ns = link.queued.front().timestamp.getNanoseconds();
            if (!earliest || ns < earliestNs) {
                earliest = &link;
                earliestNs = ns;
            }
        }
        return awaited ? nullptr : earliest;
    }

    bool present(const CameraLink& link, uint64_t now) const {
        double timeout = parameters.synchronization.dataSourceTimeoutMs > 0 ? parameters.synchronization.dataSourceTimeoutMs
                                                                           : 1000.0;
        return link.hasFrame && double(now - std::min(now, link.arrivalNs)) * 1e-6 <= timeout;
    }

    // A set is ready when every live camera sent something new, or when the oldest news
    // has waited the longest latency the synchronisation allows.
    bool setReady(uint64_t now) const {
        size_t live = 0, fresh = 0;
        uint64_t oldest = now;
        for (const auto& [id, link] : links) {
            if (!present(link, now)) continue;
            ++live;
            if (link.newSinceSet) {
                ++fresh;
                oldest = std::min(oldest, link.arrivalNs);
            }
        }
        double wait = parameters.synchronization.maximumLatencyMs > 0 ? parameters.synchronization.maximumLatencyMs : 50.0;
        return fresh > 0 && (fresh == live || double(now - oldest) * 1e-6 >= wait);
    }

    bool hasFreshFrame() const {
        for (const auto& [id, link] : links)
            if (link.newSinceSet) return true;
        return false;
    }

    Bodies worldBodies(const CameraLink& link) const {
        Bodies world = link.latest;
        pyra::transformBodies(world, link.pose.getRotationMatrix(), 1.f, link.pose.getTranslation());
        return world;
    }

    void makeSet(uint64_t now) {
        uint64_t setNs = 0;
        std::vector<double> stamps;
        for (auto& [id, link] : links)
            if (link.newSinceSet) setNs = std::max(setNs, link.latest.timestamp.getNanoseconds());
        std::vector<Bodies> world;
        for (auto& [id, link] : links) {
            if (!present(link, now)) continue;
            uint64_t frameNs = link.latest.timestamp.getNanoseconds();
            link.deltaTs = float(double(int64_t(setNs - frameNs)) * 1e-9);
            if (link.newSinceSet) {
                link.syncedLatencies.push_back(float(double(int64_t(now - frameNs)) * 1e-9));
                if (link.syncedLatencies.size() > 60) link.syncedLatencies.pop_front();
            }
            link.newSinceSet = false;
            stamps.push_back(double(frameNs) * 1e-9);
            if (bodyTracking) world.push_back(worldBodies(link));
        }
        double mean = 0.0, spread = 0.0;
        for (double s : stamps) mean += s / double(stamps.size());
        for (double s : stamps) spread += (s - mean) * (s - mean) / double(stamps.size());
        timestampSpread = float(std::sqrt(spread));
        if (bodyTracking) {
            std::vector<const Bodies*> views;
            for (const Bodies& b : world) views.push_back(&b);
            float sameDistance = 0.6f * getUnitScale(UNIT::METER, parameters.unit);
            fused = fuser.fuse(views, sameDistance);
            fusedTime = Timestamp(setNs);
            fusedUnread = true;
        }
        setTimes.push_back(now);
        while (!setTimes.empty() && setTimes.front() + kMetricsWindowNs < now) setTimes.pop_front();
    }
};

namespace {

// Captures are taken in capture order, the virtual clock following them; a set is made at
// the capture time at which the wall-clock rules would have made it.
FUSION_ERROR_CODE processOnVirtualClock(FusionBackend& b, std::vector<zmq::pollitem_t>& items) {
    const auto patience = SteadyClock::now() + std::chrono::milliseconds(kVirtualPatienceMs);
    while (true) {
        for (auto& [id, link] : b.links) b.receive(id, link);
        CameraLink* due = b.nextDue(SteadyClock::now() >= patience);
        if (!due) {
            if (SteadyClock::now() >= patience) return FUSION_ERROR_CODE::NO_NEW_DATA_AVAILABLE;
            try {
                zmq::poll(items.data(), items.size(), std::chrono::milliseconds(5));
            } catch (const zmq::error_t&) {
                return FUSION_ERROR_CODE::FAILURE;
            }
            continue;
        }
        const uint64_t captureNs = due->queued.front().timestamp.getNanoseconds();
        if (b.setReady(captureNs)) {
            b.makeSet(captureNs);
            return FUSION_ERROR_CODE::SUCCESS;
        }
        Bodies bodies = std::move(due->queued.front());
        due->queued.pop_front();
        b.arrive(*due, std::move(bodies), captureNs);
        pyra_sim::advanceVirtualClock(captureNs);
        if (b.setReady(captureNs)) {
            b.makeSet(captureNs);
            return FUSION_ERROR_CODE::SUCCESS;
        }
    }
}

}  // namespace

Fusion::Fusion() : backend_(std::make_unique<FusionBackend>()) {}
Fusion::~Fusion() = default;

FUSION_ERROR_CODE Fusion::init(const InitFusionParameters& parameters) {
    if (int(parameters.unit) < 0 || parameters.unit >= UNIT::LAST || int(parameters.coordinateSystem) < 0 ||
        parameters.coordinateSystem >= COORDINATE_SYSTEM::LAST)
        return FUSION_ERROR_CODE::INVALID_PARAMETERS;
    close();
    std::lock_guard<std::mutex> lock(backend_->mutex);
    backend_->parameters = parameters;
    backend_->initialised = true;
    backend_->virtualClock = pyra_sim::virtualRoomClock();
    if (backend_->virtualClock) pyra_sim::restartVirtualClock();
    return FUSION_ERROR_CODE::SUCCESS;
}

void Fusion::close() {
    std::lock_guard<std::mutex> lock(backend_->mutex);
    FusionBackend& b = *backend_;
    b.links.clear();
    b.initialised = b.bodyTracking = b.positionalTracking = b.fusedUnread = false;
    b.fused.clear();
    b.setTimes.clear();
}

FUSION_ERROR_CODE Fusion::subscribe(CameraIdentifier uuid, CommunicationParameters parameters, Transform pose, bool) {
    {
        std::lock_guard<std::mutex> lock(backend_->mutex);
        if (!backend_->initialised) return FUSION_ERROR_CODE::FUSION_NOT_INITIALIZED;
        if (backend_->links.count(uuid)) return FUSION_ERROR_CODE::ALREADY_SUBSCRIBED;
    }
    if (uuid.sn == 0 || uuid.sn > 0xffffffffULL ||
        (parameters.getType() == COMM_TYPE::LOCAL_NETWORK && (parameters.getPort() <= 0 || parameters.getPort() >= 65535)))
        return FUSION_ERROR_CODE::INVALID_PARAMETERS;
    uint32_t serial = uint32_t(uuid.sn);
    // Listen first, so no frame sent right after the handshake is lost.
    CameraLink link;
    link.subscriber = FrameSubscriber::connect(parameters, serial);
    if (!link.subscriber) return FUSION_ERROR_CODE::CONNECTION_FAILED;
    pyra::transport::SenderHello hello;
    FUSION_ERROR_CODE code = pyra::transport::askSender(parameters, serial, kHandshakeTimeoutMs, hello);
    if (code != FUSION_ERROR_CODE::SUCCESS) return code;
    if (hello.serial != serial) return FUSION_ERROR_CODE::SOURCE_MISMATCH;
    if (hello.version[0] != kSdkVersion.major) return FUSION_ERROR_CODE::INVALID_SENDER_VERSION;
    link.communication = parameters;
    link.pose = pose;
    std::lock_guard<std::mutex> lock(backend_->mutex);
    if (!backend_->initialised) return FUSION_ERROR_CODE::FUSION_NOT_INITIALIZED;
    if (!backend_->links.emplace(uuid, std::move(link)).second) return FUSION_ERROR_CODE::ALREADY_SUBSCRIBED;
    return FUSION_ERROR_CODE::SUCCESS;
}

FUSION_ERROR_CODE Fusion::unsubscribe(CameraIdentifier uuid) {
    std::lock_guard<std::mutex> lock(backend_->mutex);
    if (!backend_->initialised) return FUSION_ERROR_CODE::FUSION_NOT_INITIALIZED;
    return backend_->links.erase(uuid) ? FUSION_ERROR_CODE::SUCCESS : FUSION_ERROR_CODE::CAMERA_NOT_SUBSCRIBED;
}

FUSION_ERROR_CODE Fusion::updatePose(CameraIdentifier uuid, Transform pose) {
    std::lock_guard<std::mutex> lock(backend_->mutex);
    if (!backend_->initialised) return FUSION_ERROR_CODE::FUSION_NOT_INITIALIZED;
    auto it = backend_->links.find(uuid);
    if (it == backend_->links.end()) return FUSION_ERROR_CODE::CAMERA_NOT_SUBSCRIBED;
    it->second.pendingPose = pose;
    it->second.posePending = true;
    return FUSION_ERROR_CODE::SUCCESS;
}

FUSION_ERROR_CODE Fusion::process() {
    std::unique_lock<std::mutex> lock(backend_->mutex);
    FusionBackend& b = *backend_;
    if (!b.initialised) return FUSION_ERROR_CODE::FUSION_NOT_INITIALIZED;
    for (auto& [id, link] : b.links)
        if (link.posePending) {
            link.pose = link.pendingPose;
            link.posePending = false;
        }
    auto deadline = SteadyClock::now() + std::chrono::milliseconds(kProcessWaitMs);
    if (b.links.empty()) {
        lock.unlock();
        std::this_thread::sleep_until(deadline);
        return FUSION_ERROR_CODE::NO_NEW_DATA_AVAILABLE;
    }
    std::vector<zmq::pollitem_t> items;
    for (auto& [id, link] : b.links) items.push_back({link.subscriber->socket().handle(), 0, ZMQ_POLLIN, 0});
    if (b.virtualClock) return processOnVirtualClock(b, items);
    while (true) {
        for (auto& [id, link] : b.links) b.receive(id, link);
        uint64_t now = nowNs();
        if (b.setReady(now)) {
            b.makeSet(now);
            return FUSION_ERROR_CODE::SUCCESS;
        }
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - SteadyClock::now());
        if (left.count() <= 0) {
            // Out of patience: whatever arrived is a set of its own, the late cameras wait.
            if (!b.hasFreshFrame()) return FUSION_ERROR_CODE::NO_NEW_DATA_AVAILABLE;
            b.makeSet(now);
            return FUSION_ERROR_CODE::SUCCESS;
        }
        // Wake at least every 5 ms: a set may become ready by waiting alone.
        try {
            zmq::poll(items.data(), items.size(), std::min(left, std::chrono::milliseconds(5)));
        } catch (const zmq::error_t&) {
            return FUSION_ERROR_CODE::FAILURE;
        }
    }
}

FUSION_ERROR_CODE Fusion::enableBodyTracking(const BodyTrackingFusionParameters&) {
    std::lock_guard<std::mutex> lock(backend_->mutex);
    if (!backend_->initialised) return FUSION_ERROR_CODE::FUSION_NOT_INITIALIZED;
    backend_->bodyTracking = true;
    return FUSION_ERROR_CODE::SUCCESS;
}

void Fusion::disableBodyTracking() {
    std::lock_guard<std::mutex> lock(backend_->mutex);
    backend_->bodyTracking = false;
    backend_->fused.clear();
}

FUSION_ERROR_CODE Fusion::retrieveBodies(Bodies& bodies, const BodyTrackingFusionRuntimeParameters& parameters,
                                         CameraIdentifier uuid, FUSION_REFERENCE_FRAME referenceFrame) {
    std::lock_guard<std::mutex> lock(backend_->mutex);
    FusionBackend& b = *backend_;
    if (!b.initialised) return FUSION_ERROR_CODE::FUSION_NOT_INITIALIZED;
    if (uuid.sn != 0) {
        auto it = b.links.find(uuid);
        if (it == b.links.end()) return FUSION_ERROR_CODE::CAMERA_NOT_SUBSCRIBED;
        CameraLink& link = it->second;
        bodies = referenceFrame == FUSION_REFERENCE_FRAME::WORLD ? b.worldBodies(link) : link.latest;
        bodies.is_new = link.unread;
        link.unread = false;
        return FUSION_ERROR_CODE::SUCCESS;
    }
    if (!b.bodyTracking) return FUSION_ERROR_CODE::MODULE_NOT_ENABLED;
    bodies = Bodies();
    bodies.timestamp = b.fusedTime;
    bodies.is_new = b.fusedUnread;
    bodies.is_tracked = true;
    b.fusedUnread = false;
    for (const pyra::FusedBody& f : b.fused) {
        int keypoints = int(std::count_if(f.body.keypoint.begin(), f.body.keypoint.end(),
                                          [](const Vector3f& p) { return std::isfinite(p.x); }));
        if (keypoints < parameters.skeletonMinimumAllowedKeypoints || f.cameras < parameters.skeletonMinimumAllowedCameras)
            continue;
        bodies.body_list.push_back(f.body);
        if (f.body.keypoint.size() == 34) bodies.body_format = BODY_FORMAT::BODY_34;
        else if (f.body.keypoint.size() == 38) bodies.body_format = BODY_FORMAT::BODY_38;
    }
    return FUSION_ERROR_CODE::SUCCESS;
}

FUSION_ERROR_CODE Fusion::enablePositionalTracking(const PositionalTrackingFusionParameters&) {
    std::lock_guard<std::mutex> lock(backend_->mutex);
    if (!backend_->initialised) return FUSION_ERROR_CODE::FUSION_NOT_INITIALIZED;
    backend_->positionalTracking = true;
    return FUSION_ERROR_CODE::SUCCESS;
}

void Fusion::disablePositionalTracking() {
    std::lock_guard<std::mutex> lock(backend_->mutex);
    backend_->positionalTracking = false;
}

POSITIONAL_TRACKING_STATE Fusion::getPosition(Pose& pose, REFERENCE_FRAME, CameraIdentifier uuid, POSITION_TYPE) {
    std::lock_guard<std::mutex> lock(backend_->mutex);
    FusionBackend& b = *backend_;
    if (!b.initialised) return POSITIONAL_TRACKING_STATE::OFF;
    pose = Pose();
    pose.timestamp = b.fusedTime;
    if (uuid.sn == 0) {
        // The rig of static cameras does not move: the fused odometry stays at the origin.
        if (!b.positionalTracking) return POSITIONAL_TRACKING_STATE::OFF;
        pose.valid = true;
        pose.pose_confidence = 100;
        return POSITIONAL_TRACKING_STATE::OK;
    }
    auto it = b.links.find(uuid);
    if (it == b.links.end()) return POSITIONAL_TRACKING_STATE::OFF;
    pose.pose_data = it->second.pose;
    pose.valid = true;
    pose.pose_confidence = 100;
    return POSITIONAL_TRACKING_STATE::OK;
}

FUSION_ERROR_CODE Fusion::getProcessMetrics(FusionMetrics& metrics) {
    std::lock_guard<std::mutex> lock(backend_->mutex);
    FusionBackend& b = *backend_;
    if (!b.initialised) return FUSION_ERROR_CODE::FUSION_NOT_INITIALIZED;
    metrics.reset();
    uint64_t now = b.clockNs();
    for (auto& [id, link] : b.links) {
        CameraMetrics m;
        std::deque<uint64_t> times;
        double latency = 0.0, detected = 0.0;
        for (const Arrival& a : link.arrivals) {
            if (a.arrivalNs + kMetricsWindowNs < now) continue;
            times.push_back(a.arrivalNs);
            latency += double(int64_t(a.arrivalNs - a.frameNs)) * 1e-9;
            detected += a.detected ? 1.0 : 0.0;
        }
        m.received_fps = rate(times);
        if (!times.empty()) {
            m.received_latency = float(latency / double(times.size()));
            m.ratio_detection = float(detected / double(times.size()));
        }
        for (float s : link.syncedLatencies) m.synced_latency += s / float(link.syncedLatencies.size());
        m.is_present = b.present(link, now);
        m.delta_ts = link.deltaTs;
        m.dropped_frames = link.subscriber->badFrames() + link.foreignFrames;
        metrics.camera_individual_stats[id] = m;
    }
    metrics.mean_camera_fused = rate(b.setTimes);
    metrics.mean_stdev_between_camera = b.timestampSpread;
    return FUSION_ERROR_CODE::SUCCESS;
}

std::vector<CameraIdentifier> Fusion::getSenderState() const {
    std::lock_guard<std::mutex> lock(backend_->mutex);
    std::vector<CameraIdentifier> live;
    uint64_t now = backend_->clockNs();
    for (const auto& [id, link] : backend_->links)
        if (backend_->present(link, now)) live.push_back(id);
    return live;
}

}  // namespace lum
