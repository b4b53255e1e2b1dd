// lum::Camera on a simulated room: one process at a time per serial (a lock file), frames
// paced to the camera's own clock phase, bodies as the simulation sees them, publishing.
#include "lum/camera.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <iostream>
#include <thread>

#include "pyra_sim/room_clock.hpp"
#include "pyra_sim/scene.hpp"
#include "transport/endpoints.hpp"
#include "transport/publisher.hpp"

namespace lum {

namespace {

std::string lockPath(unsigned int serial) {
    return pyra::transport::runtimeFolder() + "/cam-" + std::to_string(serial) + ".lock";
}

// An exclusive lock on the camera's lock file, or -1 when another holder has it.
int lockCamera(unsigned int serial) {
    int fd = ::open(lockPath(serial).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) return -1;
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

bool pluggedIn(const pyra_sim::CameraSettings& c) { return c.pluggedIn || pyra_sim::allCamerasPluggedIn(); }

bool inRange(int value, int last) { return value >= 0 && value < last; }

// On the virtual clock a camera may run this far ahead of the fusion, and waits this long
// for it before taking a frame anyway (a fusion that stopped must not hold its cameras).
constexpr uint64_t kVirtualLeadNs = 1000000000ULL;
constexpr int kVirtualPatienceMs = 100;
constexpr int kVirtualGreetingMs = 10000;

}  // namespace

class CameraBackend {
public:
    pyra_sim::Scene scene;
    pyra_sim::CameraSettings simulated;
    InitParameters init;
    int lockFd = -1;
    uint64_t openedAtNs = 0;
    uint64_t periodNs = 0;
    uint64_t phaseNs = 0;
    pyra_sim::CameraClock clock;  // what the camera stamps its captures with
    int64_t lastFrame = -1;
    bool stalled = false;
    Timestamp frameTime;

    bool tracking = false;
    PositionalTrackingParameters trackingParameters;
    bool bodyTracking = false;
    float publishThreshold = 20.f;
    Bodies frameBodies;  // every detection of the last frame, before any threshold
    bool unread = false;

    std::unique_ptr<pyra::transport::Publisher> publisher;
    uint64_t sequence = 0;

    ~CameraBackend() { close(); }

    // The first capture from `frame` on that the sender does not lose.
    int64_t nextKept(int64_t frame) const {
        for (int skipped = 0; skipped < 1000 && pyra_sim::frameDropped(scene, simulated, frame); ++skipped) ++frame;
        return frame;
    }

    // The fusion of this process stops waiting for a camera on the virtual clock only once
    // it said it sends no more.
    void sendsNoMore() {
        if (publisher && pyra_sim::virtualRoomClock()) pyra_sim::virtualSenderStopped(simulated.serial);
    }
    void stopPublishing() {
        sendsNoMore();
        publisher.reset();
    }

    void close() {
        stopPublishing();
        if (lockFd >= 0) ::close(lockFd);
        lockFd = -1;
        tracking = bodyTracking = unread = false;
        lastFrame = -1;
    }

    ERROR_CODE pickCamera(const InputType& input, const pyra_sim::CameraSettings*& found) {
        found = nullptr;
        if (input.isInit() && input.getType() != INPUT_TYPE::USB && input.getType() != INPUT_TYPE::GMSL)
            return ERROR_CODE::CAMERA_NOT_DETECTED;
        std::vector<const pyra_sim::CameraSettings*> attached;
        for (const auto& c : scene.cameras)
            if (pluggedIn(c)) attached.push_back(&c);
        if (input.isInit() && input.isFromSerialNumber()) {
            const pyra_sim::CameraSettings* c = pyra_sim::findCamera(scene, unsigned(input.getNumber()));
            if (!c || !pluggedIn(*c)) return ERROR_CODE::CAMERA_NOT_DETECTED;
            found = c;
        } else if (input.isInit()) {
            if (input.getNumber() < 0 || size_t(input.getNumber()) >= attached.size())
                return ERROR_CODE::CAMERA_NOT_DETECTED;
            found = attached[size_t(input.getNumber())];
        } else {
            // No input given: the first attached camera nobody holds.
            for (const auto* c : attached) {
                int fd = lockCamera(c->serial);
                if (fd < 0) continue;
                ::close(fd);
                found = c;
                break;
            }
            if (!found) return attached.empty() ? ERROR_CODE::CAMERA_NOT_DETECTED : ERROR_CODE::CAMERA_ALREADY_IN_USE;
        }
        return ERROR_CODE::SUCCESS;
    }
};

Camera::Camera() : backend_(std::make_unique<CameraBackend>()) {}
Camera::~Camera() = default;

ERROR_CODE Camera::open(const InitParameters& parameters) {
    close();
    CameraBackend& b = *backend_;
    if (!inRange(int(parameters.unit), int(UNIT::LAST)) ||
        !inRange(int(parameters.coordinateSystem), int(COORDINATE_SYSTEM::LAST)) ||
        !inRange(int(parameters.depthMode), int(DEPTH_MODE::LAST)) || int(parameters.flip) < 0 ||
        int(parameters.flip) > 2)
        return ERROR_CODE::INVALID_FUNCTION_PARAMETERS;
    b.scene = pyra_sim::activeScene();
    const pyra_sim::CameraSettings* simulated = nullptr;
    ERROR_CODE found = b.pickCamera(parameters.input, simulated);
    if (found != ERROR_CODE::SUCCESS) return found;
    if (simulated->faults.failToOpen) return ERROR_CODE::CAMERA_STREAM_FAILED_TO_START;
    int fd = lockCamera(simulated->serial);
    if (fd < 0) return ERROR_CODE::CAMERA_ALREADY_IN_USE;
    b.lockFd = fd;
    b.simulated = *simulated;
    b.init = parameters;
    b.openedAtNs = pyra_sim::virtualRoomClock() ? pyra_sim::virtualNowNs() : Timestamp::now().getNanoseconds();
    b.periodNs = uint64_t(std::llround(1e9 / double(simulated->fps)));
    b.phaseNs = uint64_t(std::llround(pyra_sim::cameraPhase(b.scene, *simulated) * 1e9));
    b.clock = pyra_sim::CameraClock(*simulated, b.openedAtNs);
    b.lastFrame = -1;
    b.stalled = false;
    b.sequence = 0;
    return ERROR_CODE::SUCCESS;
}

bool Camera::isOpened() const { return backend_->lockFd >= 0; }

void Camera::close() { backend_->close(); }

ERROR_CODE Camera::enablePositionalTracking(const PositionalTrackingParameters& parameters) {
    if (!isOpened()) return ERROR_CODE::CAMERA_NOT_INITIALIZED;
    backend_->trackingParameters = parameters;
    backend_->tracking = true;
    return ERROR_CODE::SUCCESS;
}

void Camera::disablePositionalTracking() { backend_->tracking = false; }

POSITIONAL_TRACKING_STATE Camera::getPosition(Pose& pose, REFERENCE_FRAME) {
    if (!isOpened() || !backend_->tracking) return POSITIONAL_TRACKING_STATE::OFF;
    // A camera on a stand never moves: its pose stays where tracking started.
    pose.pose_data = backend_->trackingParameters.initialWorldTransform;
    pose.timestamp = backend_->frameTime;
    pose.pose_confidence = 100;
    pose.valid = true;
    return POSITIONAL_TRACKING_STATE::OK;
}

ERROR_CODE Camera::enableBodyTracking(const BodyTrackingParameters& parameters) {
    if (!isOpened()) return ERROR_CODE::CAMERA_NOT_INITIALIZED;
    if (!inRange(int(parameters.detectionModel), int(BODY_TRACKING_MODEL::LAST))) return ERROR_CODE::INVALID_MODEL;
    if (!inRange(int(parameters.bodyFormat), int(BODY_FORMAT::LAST)))
        return ERROR_CODE::INVALID_FUNCTION_PARAMETERS;
    AI_MODELS model = AI_MODELS(int(parameters.detectionModel) + 3);
    if (!checkAIModelStatus(model, 0).optimized) {
        ERROR_CODE optimised = optimizeAIModel(model, 0);
        if (optimised != ERROR_CODE::SUCCESS) return optimised;
    }
    backend_->simulated.bodyFormat = parameters.bodyFormat;
    backend_->bodyTracking = true;
    return ERROR_CODE::SUCCESS;
}

void Camera::disableBodyTracking(unsigned int) { backend_->bodyTracking = false; }

ERROR_CODE Camera::startPublishing(const CommunicationParameters& parameters) {
    if (!isOpened()) return ERROR_CODE::CAMERA_NOT_INITIALIZED;
    CameraBackend& b = *backend_;
    b.stopPublishing();
    pyra::transport::SenderHello hello;
    hello.serial = b.simulated.serial;
    hello.version = b.simulated.faults.reportedVersion;
    hello.fps = b.simulated.fps;
    std::string why;
    ERROR_CODE code = pyra::transport::Publisher::start(parameters, hello, b.publisher, &why);
    if (code != ERROR_CODE::SUCCESS && b.init.verbose > 0)
        std::cerr << "SN" << b.simulated.serial << " publishing: " << why << std::endl;
    if (code == ERROR_CODE::SUCCESS && pyra_sim::virtualRoomClock()) pyra_sim::virtualSenderStarted(b.simulated.serial);
    return code;
}

ERROR_CODE Camera::stopPublishing() {
    backend_->stopPublishing();
    return ERROR_CODE::SUCCESS;
}

ERROR_CODE Camera::grab(const RuntimeParameters&) {
    if (!isOpened()) return ERROR_CODE::CAMERA_NOT_INITIALIZED;
    CameraBackend& b = *backend_;
    const bool onVirtualClock = pyra_sim::virtualRoomClock();
    uint64_t now = onVirtualClock ? pyra_sim::virtualNowNs() : Timestamp::now().getNanoseconds();
    const pyra_sim::FaultSettings& faults = b.simulated.faults;
    const auto failsAt = [&](uint64_t ns) {
        return faults.grabErrorAfterSeconds >= 0 &&
               double(ns - std::min(ns, b.openedAtNs)) * 1e-9 >= faults.grabErrorAfterSeconds;
    };
    if (!onVirtualClock && failsAt(now)) return ERROR_CODE::CAMERA_NOT_DETECTED;

    int64_t frame = 0;
    uint64_t frameNs = 0;  // on the camera's own clock, which stamps the capture
    if (onVirtualClock) {
        // Not a frame before a fusion listens, so that none is lost; then every frame in
        // turn, none skipped, as fast as the fusion takes them. The fusion moves the room
        // clock by the stamps it takes, so the camera paces itself by its own stamps.
        for (int waited = 0; b.lastFrame < 0 && b.publisher && !b.publisher->greeted() && waited < kVirtualGreetingMs;
             ++waited)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        frame = b.lastFrame >= 0 ? b.lastFrame + 1
                                 : int64_t((b.clock.stampOf(b.openedAtNs) - b.phaseNs + b.periodNs - 1) / b.periodNs);
        frame = b.nextKept(frame);
        frameNs = b.phaseNs + uint64_t(frame) * b.periodNs;
        // By the capture's own time: the room clock's reading depends on how far the fusion
        // got, which depends on the threads.
        if (failsAt(b.clock.trueTimeOf(frameNs))) {
            b.sendsNoMore();
            return ERROR_CODE::CAMERA_NOT_DETECTED;
        }
        pyra_sim::waitForVirtualClock(frameNs, kVirtualLeadNs, kVirtualPatienceMs);
    } else {
        // The next frame on this camera's clock; a caller that fell behind gets the latest one.
        int64_t latest = int64_t((b.clock.stampOf(now) - b.phaseNs) / b.periodNs);
        frame = b.nextKept(std::max(b.lastFrame + 1, latest));
        frameNs = b.phaseNs + uint64_t(frame) * b.periodNs;
        const uint64_t dueNs = b.clock.trueTimeOf(frameNs);
        if (dueNs > now)
            std::this_thread::sleep_until(std::chrono::system_clock::time_point(
                std::chrono::duration_cast<std::chrono::system_clock::duration>(std::chrono::nanoseconds(dueNs))));
    }
    // The world is seen at the true time of the capture.
    const uint64_t captureNs = b.clock.trueTimeOf(frameNs);
    if (faults.stallAfterSeconds >= 0 && !b.stalled &&
        double(captureNs - std::min(captureNs, b.openedAtNs)) * 1e-9 >= faults.stallAfterSeconds) {
        b.stalled = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(faults.stallMs));
    }
    b.lastFrame = frame;
    b.frameTime = Timestamp(frameNs);

    b.frameBodies = Bodies();
    b.frameBodies.timestamp = b.frameTime;
    b.frameBodies.body_format = b.simulated.bodyFormat;
    if (b.bodyTracking) {
        pyra_sim::ObservationOptions options;
        options.depthMode = b.init.depthMode;
        options.confidenceThreshold = 0.f;
        options.coordinateSystem = b.init.coordinateSystem;
        options.unit = b.init.unit;
        const double sinceOpen = double(captureNs - std::min(captureNs, b.openedAtNs)) * 1e-9;
        b.frameBodies = pyra_sim::observe(b.scene, pyra_sim::cameraAt(b.simulated, sinceOpen), captureNs, options);
        b.frameBodies.timestamp = b.frameTime;
    }
    b.unread = true;

    bool silenced = faults.stopPublishingAfterSeconds >= 0 &&
                    double(captureNs - std::min(captureNs, b.openedAtNs)) * 1e-9 >= faults.stopPublishingAfterSeconds;
    if (b.publisher && !silenced) {
        pyra::transport::Frame f;
        f.serial = b.simulated.serial;
        f.sequence = b.sequence++;
        f.coordinateSystem = b.init.coordinateSystem;
        f.unit = b.init.unit;
        f.bodies = b.frameBodies;
        auto& list = f.bodies.body_list;
        list.erase(std::remove_if(list.begin(), list.end(),
                                  [&](const BodyData& body) { return body.confidence < b.publishThreshold; }),
                   list.end());
        b.publisher->publish(f);
        if (onVirtualClock) pyra_sim::virtualSenderPublished(b.simulated.serial);
    } else if (silenced) {
        b.sendsNoMore();
    }
    return ERROR_CODE::SUCCESS;
}

ERROR_CODE Camera::retrieveBodies(Bodies& bodies, const BodyTrackingRuntimeParameters& parameters, unsigned int) {
    if (!isOpened()) return ERROR_CODE::CAMERA_NOT_INITIALIZED;
    CameraBackend& b = *backend_;
    if (!b.bodyTracking) return ERROR_CODE::MODULE_NOT_ENABLED;
    b.publishThreshold = parameters.detectionConfidenceThreshold;
    bodies = b.frameBodies;
    bodies.is_new = b.unread;
    b.unread = false;
    auto& list = bodies.body_list;
    list.erase(std::remove_if(list.begin(), list.end(),
                              [&](const BodyData& body) {
                                  int valid = int(std::count_if(body.keypoint.begin(), body.keypoint.end(),
                                                                [](const Vector3f& p) { return !std::isnan(p.x); }));
                                  return body.confidence < parameters.detectionConfidenceThreshold ||
                                         valid < parameters.minimumKeypoints;
                              }),
               list.end());
    return ERROR_CODE::SUCCESS;
}

CameraInformation Camera::getCameraInformation() const {
    CameraInformation info;
    if (!isOpened()) return info;
    const pyra_sim::CameraSettings& c = backend_->simulated;
    info.serial_number = c.serial;
    info.camera_configuration.fps = c.fps;
    info.camera_configuration.focalLengthPixels = c.noise.focalPx;
    info.camera_configuration.horizontalFovDegrees = c.horizontalFovDeg;
    const double halfRadians = 3.14159265358979323846 / 360.0;
    info.camera_configuration.resolution =
        Resolution(size_t(2.0 * c.noise.focalPx * std::tan(c.horizontalFovDeg * halfRadians)),
                   size_t(2.0 * c.noise.focalPx * std::tan(c.verticalFovDeg * halfRadians)));
    return info;
}

Timestamp Camera::getTimestamp() const { return backend_->frameTime; }

std::vector<DeviceProperties> Camera::getDeviceList() {
    std::vector<DeviceProperties> devices;
    for (const pyra_sim::CameraSettings& c : pyra_sim::activeScene().cameras) {
        if (!pluggedIn(c)) continue;
        DeviceProperties d;
        d.id = int(devices.size());
        d.path = "/dev/video" + std::to_string(2 * d.id);
        d.serial_number = c.serial;
        int fd = lockCamera(c.serial);
        d.camera_state = fd >= 0 ? CAMERA_STATE::AVAILABLE : CAMERA_STATE::NOT_AVAILABLE;
        if (fd >= 0) ::close(fd);
        devices.push_back(d);
    }
    return devices;
}

}  // namespace lum
