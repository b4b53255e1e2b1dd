// The fusion worker's steady loop and calibration control. Solves run on the calibration
// runner's thread; the loop only snapshots the store, and merges results when they land.
#include "fusion/fusion_worker.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <iostream>

#include "core/console_log.hpp"
namespace {

int64_t steadyNs() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

constexpr auto kWorld = lum::FUSION_REFERENCE_FRAME::WORLD;
// The drift monitor needs a few frames a second, not every one.
constexpr uint64_t kDriftFrameNs = 200000000ull;

// Each joint is first pushed back out along its viewing ray by the camera's estimated depth
// bias (zero for Classic), so what is drawn is what the solve compared.
void transformBodies(lum::Bodies& bodies, const lum::Transform& pose, float bias) {
    for (lum::BodyData& body : bodies.body_list) {
        for (lum::Vector3f& p : body.keypoint) {
            const float range = p.norm();
            if (range > 0.f) p *= (range + bias) / range;
            p = pose * p;
        }
        body.position = pose * body.position;
    }
}

}  // namespace

std::map<int, lum::BodyData> singlePersonFrame(const std::vector<lum::CameraIdentifier>& cameras,
                                               const std::map<lum::CameraIdentifier, lum::Bodies>& bodies) {
    std::map<int, lum::BodyData> frame;
    for (const lum::CameraIdentifier& camera : cameras) {
        auto found = bodies.find(camera);
        if (found == bodies.end()) continue;
        const lum::Bodies& seen = found->second;
        if (seen.is_new && seen.body_list.size() == 1) frame[static_cast<int>(camera.sn)] = seen.body_list.front();
    }
    return frame;
}

void FusionWorker::steadyLoop() {
    int64_t previousStart = 0;
    int64_t previousReturn = 0;
    while (running && !stopRequested) {
        const int64_t callStart = steadyNs();
        recordLoopTiming(callStart, previousStart, previousReturn);
        ++setsRequested;
        const lum::FUSION_ERROR_CODE status = source().process();
        previousStart = callStart;
        previousReturn = steadyNs();

        if (status == lum::FUSION_ERROR_CODE::SUCCESS) {
            processFrame();
            // Outside the worker's lock: the GUI thread may ask for counts meanwhile.
            if (awaitSolve) solver.wait();
            awaitSolve = false;
            // A recording has nothing more to give once its run is over.
            if (runOver && replaySource) break;
        } else if (source().ended()) {
            emit runEnded();
            break;
        }

        const int64_t nowMs = steadyNs() / 1000000;
        if (status != lum::FUSION_ERROR_CODE::NO_NEW_DATA_AVAILABLE || nowMs - lastErrorReport > 200) {
            emit updateFusionError(QString::fromStdString(lum::toString(status)));
            lastErrorReport = nowMs;
        }
    }
    running = false;
    console::trace() << "STOP RUN FUSION ";
}

void FusionWorker::processFrame() {
    std::lock_guard<std::mutex> lock(workerMutex);
    takeRequests();
    SharedData& shared = SharedData::getInstance();

    // Bodies of a set fetched before the poses changed would be read through the old poses:
    // room-frame bodies among camera-frame ones. Left unread, they come with the next set.
    if (modules.skeletonEnabled && setsRequested >= firstPosedSet) {
        if (collecting) {
            collectSkeletons();
        } else {
            std::lock_guard<std::mutex> skeletons(shared.skeletonMutex);
            fusion->retrieveBodies(shared.fusedBodies, bodyRuntimeParameters, lum::CameraIdentifier(), kWorld);
            retrieveCameraBodies();
            watchForDrift();
        }
    }
    // No point cloud is fetched yet: the switches only keep the lock order in place.
    if (modules.depthEnabled) {
        std::lock_guard<std::mutex> reserved(shared.depthCloudMutex);
    }
    if (modules.mappingEnabled) {
        std::lock_guard<std::mutex> reserved(shared.mappingCloudMutex);
    }

    if (!collecting) {
        std::lock_guard<std::mutex> positions(shared.positionMutex);
        if (modules.trackingEnabled)
            fusion->getPosition(shared.fusedPose, lum::REFERENCE_FRAME::WORLD, lum::CameraIdentifier(),
                                lum::POSITION_TYPE::FUSION);
        for (const lum::CameraIdentifier& camera : subscribedCameras)
            fusion->getPosition(shared.cameraPoses[camera], lum::REFERENCE_FRAME::WORLD, camera,
                                lum::POSITION_TYPE::RAW);
    }
    {
        std::lock_guard<std::mutex> metrics(shared.metricsMutex);
        fusion->getProcessMetrics(shared.metrics);
    }
    // After this set's bodies were read: the live source forgets what its old sink took.
    if (takeNewSink() && !replaySource) liveSource->setSink(captureSink, subscribedCameras);
    checkRunLength();
    emit newData();
}

// Called with the skeleton mutex held.
void FusionWorker::noteCaptures() {
    SharedData& shared = SharedData::getInstance();
    uint64_t newest = 0;
    for (const lum::CameraIdentifier& camera : subscribedCameras) {
        const lum::Bodies& bodies = shared.cameraBodies[camera];
        // A camera taken back for its known clock still stamps on its own.
        if (bodies.is_new && captureGate.onRoomClock(static_cast<int>(camera.sn)))
            newest = std::max<uint64_t>(newest, bodies.timestamp.getNanoseconds());
    }
    if (newest > 0) clock->captured(static_cast<int64_t>(newest));
}

void FusionWorker::checkRunLength() {
    if (runLengthNs <= 0) return;
    const int64_t now = clock->nowNs();
    if (runStartNs < 0) runStartNs = now;
    if (now - runStartNs < runLengthNs) return;
    runLengthNs = 0;
    runOver = true;
    collecting = false;
    liveSource->setSink(nullptr, {});
    emit runEnded();
}

void FusionWorker::collectSkeletons() {
    applySolvedCalibration();

    SharedData& shared = SharedData::getInstance();
    std::map<int, lum::BodyData> frame;
    {
        std::lock_guard<std::mutex> skeletons(shared.skeletonMutex);
        retrieveCameraBodies();
        // Before any association: one absurd keypoint would make a body match nobody.
        for (const lum::CameraIdentifier& camera : subscribedCameras) {
            lum::Bodies& bodies = shared.cameraBodies[camera];
            if (bodies.is_new) captureGate.screenKeypoints(static_cast<int>(camera.sn), bodies);
        }
        if (calibration.options.model == SkeletonMulticameraCalibration::Model::Refined) {
            for (const lum::CameraIdentifier& camera : subscribedCameras) {
                const lum::Bodies& bodies = shared.cameraBodies[camera];
                if (!bodies.is_new) continue;
                frameAssembler.addBodies(static_cast<int>(camera.sn), bodies);
                captureLog.add(static_cast<int>(camera.sn), bodies, clock->nowNs());
            }
        } else {
            frame = singlePersonFrame(subscribedCameras, shared.cameraBodies);
        }
        showThroughCalibration();
    }

    const int64_t now = clock->nowNs();
    // A store resumed from another session may be stamped on another clock, ahead of this
    // one: only a frame taken on this clock holds the next one back.
    const auto tooSoon = [now](int64_t lastMs) { return now / 1000000 >= lastMs && now / 1000000 - lastMs <= 499; };
    if (tooSoon(static_cast<int64_t>(calibration.frames.lastTimestamp().getMilliseconds()))) return;
    if (calibration.options.model == SkeletonMulticameraCalibration::Model::Refined) {
        // Moments with nobody to pair do not move lastTimestamp, so the association keeps
        // its own pace.
        if (tooSoon(lastAssociationMs)) return;
        lastAssociationMs = now / 1000000;
        updateClocks();
        if (!calibration.state.calibratedPoses.empty()) associator.setPoses(calibration.state.calibratedPoses);
        const std::vector<calib::CameraBodies> people = frameAssembler.assemble();
        captureLog.markAssembly(now);
        emit cameraPeople(associator.cameraPeople());
        reseedStarvedCamera();
        // One frame per person; a nanosecond apart keeps them distinct in the store.
        for (size_t i = 0; i < people.size(); ++i) {
            calibration.frames.add(lum::Timestamp(static_cast<uint64_t>(now) + i), people[i]);
        }
    } else if (frame.size() >= 2) {
        calibration.frames.add(lum::Timestamp(static_cast<uint64_t>(now)), frame);
    }
    calibrationFrames = static_cast<int>(calibration.frames.size());
    // Counted as taken, not as kept: a store at its budget keeps about as many as it drops.
    const int taken = static_cast<int>(calibration.frames.added());

    const float progress = static_cast<float>(taken - calibration.state.framesAtLastCalibration) / 10.0f;
    emit incCalib(static_cast<int>(progress * 100));
    // One solve at a time; when one is still running the next starts as soon as it lands.
    if (progress > 1.0f && !solver.busy()) {
        calibration.state.framesAtLastCalibration = taken;
        solver.setLowPriority(!clock->followsCaptures());
        solver.start(calibration);
        // On capture time the next set waits for this solve, so that it lands at the same
        // point of every run.
        awaitSolve = clock->followsCaptures();
    }
}

void FusionWorker::applySolvedCalibration() {
    if (std::optional<CalibrationReport> report = takeSolvedCalibration()) emit calibrationReport(*report);
}

std::optional<CalibrationReport> FusionWorker::takeSolvedCalibration() {
    std::optional<SolvedCalibration> solved = solver.take();
    if (!solved) return std::nullopt;
    if (discardRunningSolve) {
        discardRunningSolve = false;
        return std::nullopt;
    }
    const bool usable = solved->usable;
    CalibrationReport report = solved->report;
    addClocks(report);
    mergeSolvedCalibration(calibration, std::move(*solved));
    // Before the next solve starts, so that it already places the camera anew.
    for (int camera : reseeds.review(report))
        reseedCamera(camera, reseeds.moved(camera) ? "it moved" : "its residual stays far above its peers'");
    reseeds.annotate(report);
    if (usable) {
        SharedData& shared = SharedData::getInstance();
        std::lock_guard<std::mutex> positions(shared.positionMutex);
        for (const auto& [serial, transform] : calibration.state.calibratedPoses)
            shared.cameraTransforms[lum::CameraIdentifier(static_cast<uint64_t>(serial))] = transform;
    }
    return report;
}

void FusionWorker::reseedCamera(int camera, const char* why) {
    console::trace() << "re-seeding " << camera << ": " << why;
    // Everything it saw so far was seen from where it may no longer stand.
    calibration.frames.dropCamera(camera, lum::Timestamp(std::numeric_limits<uint64_t>::max()));
    calibration.state.poses.erase(camera);
    calibration.state.biases.erase(camera);
    calibration.state.calibratedPoses.erase(camera);
    calibrationFrames = static_cast<int>(calibration.frames.size());
    associator.forgetCamera(camera);
    associator.setPoses(calibration.state.calibratedPoses);
    pairingWatch.forget(camera);
}

void FusionWorker::reseedStarvedCamera() {
    std::set<int> placed;
    for (const auto& [camera, pose] : calibration.state.calibratedPoses) placed.insert(camera);
    pairingWatch.observe(clock->nowNs(), associator.cameraPeople(), placed);
    // A solve under way would bring the pose back when it lands.
    if (solver.busy()) return;
    std::set<int> starved;
    for (int camera : pairingWatch.starved())
        if (associator.poseContradicted(camera)) starved.insert(camera);
    for (int camera : reseeds.reviewStarved(starved)) reseedCamera(camera, "its bodies no longer pair through its pose");
}

// The raw skeletons arrive in each camera's own frame while calibrating; drawn through
// the latest solve they merge into one person as the calibration converges.
void FusionWorker::showThroughCalibration() {
    SharedData& shared = SharedData::getInstance();
    for (const lum::CameraIdentifier& camera : subscribedCameras) {
        auto pose = calibration.state.calibratedPoses.find(static_cast<int>(camera.sn));
        if (pose == calibration.state.calibratedPoses.end()) continue;
        auto bias = calibration.state.biases.find(pose->first);
        transformBodies(shared.cameraBodies[camera], pose->second,
                        bias == calibration.state.biases.end() ? 0.f : static_cast<float>(bias->second));
    }
}

// Called with the skeleton mutex held and the bodies just retrieved in the room frame.
void FusionWorker::watchForDrift() {
    SharedData& shared = SharedData::getInstance();
    // On the pipeline clock, which never steps back as the cameras' capture times may.
    const uint64_t now = static_cast<uint64_t>(clock->nowNs());
    if (!roomPosed || now < lastDriftFrameNs + kDriftFrameNs) return;
    lastDriftFrameNs = now;
    // Every body: the monitor tells people apart through the calibration itself.
    RoomBodies seen;
    for (const lum::CameraIdentifier& camera : subscribedCameras) {
        auto found = shared.cameraBodies.find(camera);
        if (found != shared.cameraBodies.end() && found->second.is_new)
            seen[static_cast<int>(camera.sn)] = found->second.body_list;
    }
    for (const DriftWarning& warning : driftMonitor.addFrame(now, seen)) {
        console::trace() << "CAMERA " << warning.camera << " MOVED about " << warning.rotationDeg << " deg, "
                         << warning.jointShiftMm << " mm";
        emit cameraMoved(warning.camera, warning.rotationDeg, warning.jointShiftMm);
    }
}

// The monitor learns the room anew whenever the poses it runs on change.
void FusionWorker::restartDriftWatch() {
    std::map<int, Eigen::Vector3d> centres;
    roomPosed = false;
    for (const lum::FusionConfiguration& configuration : configurations) {
        if (!(configuration.pose == lum::Transform::identity())) roomPosed = true;
        const lum::Translation t = configuration.pose.getTranslation();
        centres[static_cast<int>(configuration.serial_number)] = Eigen::Vector3d(t.x, t.y, t.z);
    }
    driftMonitor = DriftMonitor(centres);
    lastDriftFrameNs = 0;
}

int FusionWorker::startCalib(CALIB kind) {
    // A finished calibration's solve has landed by now; its result must not seed this one.
    solver.wait();
    solver.take();
    std::lock_guard<std::mutex> lock(workerMutex);
    // The loop may have started one between the wait and the lock; it holds no lock itself.
    solver.wait();
    solver.take();
    if (configurationPath.empty() && configurations.empty()) {
        console::notice() << "No configuration loaded. You must load a configuration file, autodiscover USB devices or "
                             "connect to Pyra Hub.";
        return -1;
    }
    // Frames of an earlier walk were taken with the cameras at their old poses; mixing them
    // in makes the residuals meaningless.
    resetCalibration();
    calibration.options.model = chosenModel;

    lum::Transform reset = lum::Transform::identity();
    lum::convertCoordinateSystem(reset, lum::COORDINATE_SYSTEM::IMAGE, lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP);
    SharedData& shared = SharedData::getInstance();
    {
        std::lock_guard<std::mutex> positions(shared.positionMutex);
        for (const lum::CameraIdentifier& camera : subscribedCameras) {
            movePose(camera, reset);
            shared.cameraPoses[camera].pose_data = lum::Transform::identity();
            shared.cameraTransforms[camera] = lum::Transform::identity();
        }
    }
    {
        std::lock_guard<std::mutex> skeletons(shared.skeletonMutex);
        shared.fusedBodies.body_list.clear();
    }
    shared.reset = true;

    if (kind == PATH_CALIB) {
        console::trace() << "CALIB PATH NOT enabled";
        return 0;
    }
    if (kind != SKELETON_CALIB) return 0;

    emit incCalib(0);
    frameAssembler.clear();
    captureLog.clear();
    clockAligner.clear();
    clocks = calib::ClockEstimates();
    lastClockEstimateNs = -1;
    discardRunningSolve = false;
    restartDriftWatch();
    // The fusion runs on the reset poses now, whatever the room file said: should this walk
    // give nothing usable, the room goes on uncalibrated.
    roomPosed = false;
    collecting = true;
    console::trace() << "START CALIB SK";
    return 0;
}

std::vector<lum::FusionConfiguration> FusionWorker::concludeCalibration() {
    console::trace() << "STOP CALIB SK";
    {
        std::lock_guard<std::mutex> lock(workerMutex);
        collecting = false;
    }
    // The loop goes on meanwhile; only the conclusion waits for the solver.
    solver.wait();
    std::optional<CalibrationReport> last;
    std::vector<lum::FusionConfiguration> calibrated;
    {
        std::lock_guard<std::mutex> lock(workerMutex);
        last = takeSolvedCalibration();
        calibrated = placedConfigurations();
    }
    if (last) emit calibrationReport(*last);
    return calibrated;
}

std::vector<lum::FusionConfiguration> FusionWorker::placedConfigurations() {
    if (calibration.state.calibratedPoses.empty()) {
        resetCalibration();
        return {};
    }
    // Only cameras the solve placed are saved: one that never ran or shared no frame would
    // otherwise be written at its starting pose as if it had been calibrated.
    std::vector<lum::FusionConfiguration> calibrated;
    for (lum::FusionConfiguration& configuration : configurations) {
        auto found = calibration.state.calibratedPoses.find(configuration.serial_number);
        if (found == calibration.state.calibratedPoses.end()) continue;
        configuration.pose = found->second;
        calibrated.push_back(configuration);
    }
    savedSerials.clear();
    for (const lum::FusionConfiguration& configuration : calibrated) savedSerials.push_back(configuration.serial_number);
    for (const auto& [serial, transform] : calibration.state.calibratedPoses)
        movePose(lum::CameraIdentifier(static_cast<uint64_t>(serial)), transform);
    restartDriftWatch();
    return calibrated;
}

bool FusionWorker::finishCalib(CALIB) {
    const std::vector<lum::FusionConfiguration> calibrated = concludeCalibration();
    if (calibrated.empty()) {
        prompts->exec(nothingToSaveMessage());
        return false;
    }
    const QString chosen =
        prompts->askSaveFileName("Save room calibration", "", "Pyra Room Calibration files (*.json)");
    const std::string name = calibrationFileName(chosen);
    if (name.empty()) {
        console::notice() << "Saving was cancelled: nothing was written.";
        return false;
    }
    console::trace() << "Writing file " << name;
    std::string problem;
    const bool written = lum::writeConfigurationFile(name, calibrated, lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP,
                                                     lum::UNIT::METER, &problem);
    if (!written) std::cerr << problem << std::endl;
    emit CalibrationConfigurationReady(calibrated, lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP, lum::UNIT::METER);
    return written;
}

std::vector<int> FusionWorker::savedCameras() const {
    std::lock_guard<std::mutex> lock(workerMutex);
    return savedSerials;
}

std::vector<int> FusionWorker::runningCameras() const {
    std::lock_guard<std::mutex> lock(workerMutex);
    std::vector<int> serials;
    for (const lum::CameraIdentifier& camera : subscribedCameras) serials.push_back(static_cast<int>(camera.sn));
    return serials;
}

std::vector<int> FusionWorker::watchedCameras() const {
    std::lock_guard<std::mutex> lock(workerMutex);
    std::vector<int> serials;
    for (const auto& [serial, change] : driftMonitor.latestChange()) serials.push_back(serial);
    return serials;
}

calib::KeypointDrops FusionWorker::droppedKeypoints() const {
    std::lock_guard<std::mutex> lock(workerMutex);
    calib::KeypointDrops drops = calibration.frames.droppedKeypoints();
    for (const auto& [serial, camera] : captureGate.keypointDrops()) {
        drops.nonFinite += camera.nonFinite;
        drops.badCovariance += camera.badCovariance;
        drops.implausible += camera.implausible;
    }
    return drops;
}

void FusionWorker::resetCalibration() {
    associator.clear();
    reseeds = calib::ReseedPolicy();
    pairingWatch = calib::PairingWatch();
    captureGate.clear();
    lastAssociationMs = 0;
    // Only the options outlive a calibration: nothing of an earlier room may seed this one.
    calibration.frames = calib::FrameStore();
    calibration.state = calib::SolverState();
    collecting = false;
    calibrationFrames = 0;
}

void FusionWorker::setCalibrationModel(SkeletonMulticameraCalibration::Model model) { chosenModel = model; }

void FusionWorker::movePose(lum::CameraIdentifier camera, const lum::Transform& pose) {
    firstPosedSet = setsRequested + 1;
    source().updatePose(camera, pose);
}

void FusionWorker::setCalibrationFrames(calib::FrameStore frames) {
    std::lock_guard<std::mutex> lock(workerMutex);
    calibration.frames = std::move(frames);
    calibrationFrames = static_cast<int>(calibration.frames.size());
}

void FusionWorker::recordLoopTiming(int64_t callStart, int64_t previousStart, int64_t previousReturn) {
    if (previousStart == 0) return;
    std::lock_guard<std::mutex> lock(timingMutex);
    ++timing.iterations;
    timing.longestBodyMs = std::max(timing.longestBodyMs, (callStart - previousReturn) * 1e-6);
    timing.longestIntervalMs = std::max(timing.longestIntervalMs, (callStart - previousStart) * 1e-6);
}

LoopTiming FusionWorker::loopTiming() const {
    std::lock_guard<std::mutex> lock(timingMutex);
    return timing;
}

void FusionWorker::resetLoopTiming() {
    std::lock_guard<std::mutex> lock(timingMutex);
    timing = LoopTiming();
}
