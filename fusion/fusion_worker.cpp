// The fusion worker's set-up, start-up, module switches and close. The steady loop and
// the calibration control are in fusion_loop.cpp.
#include "fusion/fusion_worker.hpp"

#include <QCoreApplication>

#include <iostream>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <set>
#include <thread>
#include <utility>

#include "core/console_log.hpp"
#include "core/console_prompts.hpp"

std::string calibrationFileName(const QString& chosen) {
    if (chosen.isEmpty()) return std::string();
    if (chosen.split('.').last() != "json") return (chosen + ".json").toStdString();
    return chosen.toStdString();
}

lum::InitFusionParameters roomFusionParameters() {
    lum::InitFusionParameters init(lum::UNIT::MILLIMETER, lum::COORDINATE_SYSTEM::IMAGE, true, 0, 5, -1, nullptr,
                                   lum::SynchronizationParameter(0, 1000.f, false, 50.f),
                                   lum::Resolution(size_t(-1), size_t(-1)));
    init.unit = lum::UNIT::METER;
    init.coordinateSystem = lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP;
    init.outputPerformanceMetrics = true;
    init.verbose = 0;
    return init;
}

PromptMessage nothingToSaveMessage() {
    return {"No calibration to save", "Halden has not generated a calibration to save yet.", PromptIcon::Warning};
}

FusionWorker::FusionWorker(std::shared_ptr<UserPrompts> prompts_)
    : fusion(std::make_shared<lum::Fusion>()), liveSource(std::make_unique<LiveBodySource>(fusion)),
      clock(makeLivePipelineClock()) {
    registerSharedMetaTypes();
    qRegisterMetaType<CalibrationReport>("CalibrationReport");
    qRegisterMetaType<CameraPeopleList>("CameraPeopleList");
    setPrompts(std::move(prompts_));
    // Several people: the assembler's moments go through the cross-camera association, and
    // the frames it held back until a pairing was confirmed come out with them.
    frameAssembler.setAssociation([this](const calib::BodiesAtInstant& bodies) {
        std::vector<calib::CameraBodies> frames = associator.associate(bodies);
        for (calib::CameraBodies& earlier : associator.takeReleased()) frames.push_back(std::move(earlier));
        return frames;
    });
}

FusionWorker::~FusionWorker() { close(); }

void FusionWorker::setPrompts(std::shared_ptr<UserPrompts> prompts_) {
    prompts = promptsOrConsole(std::move(prompts_));
}

void FusionWorker::setup(std::string path, AppParams params_) {
    replaySource.reset();
    clock = makeLivePipelineClock();
    configurationPath = std::move(path);
    configurations.clear();
    params = params_;
    stopRequested = false;
    start(QThread::InheritPriority);
}

void FusionWorker::setup(std::vector<lum::FusionConfiguration> list, AppParams params_) {
    replaySource.reset();
    clock = makeLivePipelineClock();
    configurations.clear();
    for (const lum::FusionConfiguration& entry : list) {
        lum::FusionConfiguration copy;
        copy.serial_number = entry.serial_number;
        copy.communication_parameters = entry.communication_parameters;
        copy.pose = entry.pose;
        copy.input_type = entry.input_type;
        copy.override_gravity = entry.override_gravity;
        configurations.push_back(copy);
    }
    console::trace() << "Running the fusion for " << configurations.size() << " devices.";
    params = params_;
    stopRequested = false;
    start(QThread::InheritPriority);
}

void FusionWorker::setupReplay(std::unique_ptr<BodySource> recorded, std::vector<lum::FusionConfiguration> room) {
    configurationPath.clear();
    configurations = std::move(room);
    replaySource = std::move(recorded);
    clock = std::make_shared<CapturePipelineClock>();
    // As a live fusion subscribes each camera at the room's pose.
    for (const lum::FusionConfiguration& configuration : configurations)
        replaySource->updatePose(lum::CameraIdentifier(configuration.serial_number), configuration.pose);
    stopRequested = false;
    start(QThread::InheritPriority);
}

int64_t FusionWorker::pipelineNowNs() const {
    std::lock_guard<std::mutex> lock(workerMutex);
    return clock->nowNs();
}

void FusionWorker::setCaptureSink(CaptureSink sink) {
    CaptureSink unused;  // a sink the loop never took; let go outside the lock
    std::lock_guard<std::mutex> lock(sinkHandover);
    unused = std::exchange(nextSink, std::move(sink));
    sinkChanged = true;
}

bool FusionWorker::takeNewSink() {
    if (!sinkChanged) return false;
    CaptureSink next;
    {
        std::lock_guard<std::mutex> lock(sinkHandover);
        next = std::exchange(nextSink, nullptr);
        sinkChanged = false;
    }
    captureSink = std::move(next);
    return true;
}

void FusionWorker::setCalibrateOnStart(bool calibrate) { calibrateOnStart = calibrate; }

void FusionWorker::setRunLength(int64_t lengthNs) {
    std::lock_guard<std::mutex> lock(workerMutex);
    runLengthNs = lengthNs;
    runStartNs = -1;
}

BodySource& FusionWorker::source() {
    if (replaySource) return *replaySource;
    return *liveSource;
}

void FusionWorker::enableModule(MODULES module) { requestedModules |= 1u << module; }

void FusionWorker::enableSK() { enableModule(SKELETON); }

void FusionWorker::enableDepth() { enableModule(DEPTH); }

void FusionWorker::enableMapping() { enableModule(MAPPING); }

void FusionWorker::enableTracking() { enableModule(TRACKING); }

void FusionWorker::takeRequests() {
    const unsigned asked = requestedModules.exchange(0);
    for (MODULES module : {SKELETON, DEPTH, MAPPING, TRACKING})
        if (asked & (1u << module)) switchOn(module);
}

void FusionWorker::switchOn(MODULES module) {
    switch (module) {
        case SKELETON: {
            if (modules.skeletonEnabled) return;
            console::trace() << "enableSK ";
            for (auto& [serial, sender] : senders) sender->askSkeleton();
            lum::BodyTrackingFusionParameters parameters;
            parameters.enableTracking = true;
            const lum::FUSION_ERROR_CODE enabled = fusion->enableBodyTracking(parameters);
            if (enabled == lum::FUSION_ERROR_CODE::SUCCESS)
                modules.skeletonEnabled = true;
            else
                console::notice() << "ERROR : " << lum::toString(enabled);
            return;
        }
        case DEPTH:
            if (!modules.depthEnabled) console::trace() << "enableDepth ";
            modules.depthEnabled = true;
            return;
        case MAPPING:
            if (!modules.mappingEnabled) console::trace() << "enableMapping ";
            modules.mappingEnabled = true;
            return;
        case TRACKING:
            if (modules.trackingEnabled) return;
            console::trace() << "enableTracking ";
            fusion->enablePositionalTracking(lum::PositionalTrackingFusionParameters());
            modules.trackingEnabled = true;
            return;
    }
}

void FusionWorker::disableModules() {
    std::lock_guard<std::mutex> lock(workerMutex);
    requestedModules = 0;
    modules = ModuleSwitches();
}

void FusionWorker::close() {
    if (isRunning()) {
        stopRequested = true;
        running = false;
        msleep(100);
        wait();
    }
    // A start-up that gave up already started the senders; they are stopped here too.
    fusion->close();
    // Closed from a thread of its own while the GUI may switch modules: the senders leave
    // the map under the lock, and are closed outside it.
    std::map<int, std::unique_ptr<PyraWorker>> closing;
    {
        std::lock_guard<std::mutex> lock(workerMutex);
        closing.swap(senders);
    }
    for (auto& [serial, sender] : closing) sender->close();
    closing.clear();
    solver.wait();
    std::optional<CalibrationReport> last;
    {
        std::lock_guard<std::mutex> lock(workerMutex);
        last = takeSolvedCalibration();
    }
    if (last) emit calibrationReport(*last);
    disableModules();
    std::lock_guard<std::mutex> lock(workerMutex);
    fusion = std::make_shared<lum::Fusion>();
    emit closed();
}

void FusionWorker::run() {
    if (!startUp()) {
        if (!stopRequested) emit error();
        return;
    }
    emit isInit();
    console::trace() << "START RUN FUSION ";
    running = true;
    runOver = false;
    {
        // At once, not at the next set: the first set is fused with the bodies on.
        std::lock_guard<std::mutex> lock(workerMutex);
        switchOn(SKELETON);
    }
    // Before the first set, so that the run collects from the same capture every time.
    if (calibrateOnStart) startCalib(SKELETON_CALIB);
    steadyLoop();
}

void FusionWorker::waitUntilHidden(const PromptMessage& message) {
    auto box = prompts->show(message);
    while (box->isVisible() && !stopRequested) {
        msleep(500);
        QCoreApplication::processEvents();
    }
}

// Every handshake waits up to two seconds for a sender that may never answer; one after
// another, ten absent cameras took twenty seconds and a thousand half an hour. They run
// side by side, and none starts after the room's deadline, so a room of any size says
// which cameras answered within a few seconds.
std::vector<lum::FUSION_ERROR_CODE> FusionWorker::subscribeAll(const std::set<int>& skipped,
                                                               std::vector<char>& notAsked) {
    constexpr size_t kParallelHandshakes = 128;
    const auto deadline = std::chrono::steady_clock::now() + kHandshakeDeadline;
    std::vector<lum::FUSION_ERROR_CODE> results(configurations.size(), lum::FUSION_ERROR_CODE::FAILURE);
    notAsked.assign(configurations.size(), 0);
    std::atomic<size_t> next{0};
    const std::shared_ptr<lum::Fusion> room = fusion;
    auto subscribeNext = [&] {
        for (size_t i = next++; i < configurations.size(); i = next++) {
            const lum::FusionConfiguration& configuration = configurations[i];
            if (skipped.count(configuration.serial_number) || stopRequested) continue;
            if (std::chrono::steady_clock::now() > deadline) {
                results[i] = lum::FUSION_ERROR_CODE::CONNECTION_TIMED_OUT;
                notAsked[i] = 1;
                continue;
            }
            results[i] = room->subscribe(lum::CameraIdentifier(static_cast<uint64_t>(configuration.serial_number)),
                                           configuration.communication_parameters, configuration.pose,
                                           configuration.override_gravity);
        }
    };
    std::vector<std::thread> handshakes;
    const size_t threads = std::min(kParallelHandshakes, configurations.size());
    for (size_t t = 1; t < threads; ++t) handshakes.emplace_back(subscribeNext);
    subscribeNext();
    for (std::thread& handshake : handshakes) handshake.join();
    return results;
}

// Never a modal box here: close() on the GUI thread may be waiting for this thread, and a
// box that needs the GUI thread to return would hold both forever.
bool FusionWorker::startUp() {
    console::trace() << "INIT FUSION ";
    {
        std::lock_guard<std::mutex> lock(workerMutex);
        fusion = std::make_shared<lum::Fusion>();
    }
    const lum::FUSION_ERROR_CODE initialised = fusion->init(roomFusionParameters());
    if (initialised != lum::FUSION_ERROR_CODE::SUCCESS)
        console::notice() << "ERROR : " << lum::toString(initialised);
    bodyRuntimeParameters.skeletonMinimumAllowedKeypoints = 4;
    if (replaySource) {
        // A recording: its cameras are the room, already "subscribed".
        std::lock_guard<std::mutex> lock(workerMutex);
        restartDriftWatch();
        subscribedCameras.clear();
        for (const lum::FusionConfiguration& configuration : configurations)
            subscribedCameras.push_back(lum::CameraIdentifier(configuration.serial_number));
        return !stopRequested;
    }

    if (configurations.empty()) {
        std::string problem;
        auto read = lum::readFusionConfigurationFile(configurationPath, lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP,
                                                     lum::UNIT::METER, &problem);
        if (!problem.empty()) std::cerr << problem << std::endl;
        std::lock_guard<std::mutex> lock(workerMutex);
        configurations = std::move(read);
    }
    {
        std::lock_guard<std::mutex> lock(workerMutex);
        restartDriftWatch();
    }

    std::set<int> failed;
    QStringList openFailures;
    for (const lum::FusionConfiguration& configuration : configurations) {
        if (configuration.communication_parameters.getType() != lum::COMM_TYPE::SHARED_MEMORY) continue;
        const int serial = configuration.serial_number;
        std::unique_ptr<PyraWorker> sender;
        {
            std::lock_guard<std::mutex> lock(workerMutex);
            auto found = senders.find(serial);
            if (found != senders.end()) {
                sender = std::move(found->second);
                senders.erase(found);
            }
        }
        if (!sender) sender = std::make_unique<PyraWorker>(prompts);
        // Opening may wait for an AI model; the mutex stays free meanwhile.
        sender->setup(configuration, params);
        if (!sender->isOpened()) {
            failed.insert(serial);
            console::notice() << " camera " << serial << " failed to open";
            openFailures << QString::number(serial);
            continue;
        }
        std::lock_guard<std::mutex> lock(workerMutex);
        senders[serial] = std::move(sender);
    }

    const size_t usable = configurations.size() - failed.size();
    if (usable == 0) {
        waitUntilHidden({"No opened camera",
                         "Halden could not open any camera. Please check whether they can be opened by another "
                         "application like Lookout.",
                         PromptIcon::Critical});
        return false;
    }
    if (usable == 1) {
        waitUntilHidden({"Only ONE opened camera",
                         "Halden is able to open one camera. The calibration process requires at least two cameras.",
                         PromptIcon::Critical});
        return false;
    }
    if (!failed.empty())
        waitUntilHidden({"Camera(s) failed to open", "Halden failed to open: " + openFailures.join(", "),
                         PromptIcon::Critical});

    {
        std::lock_guard<std::mutex> lock(workerMutex);
        for (auto& [serial, sender] : senders) sender->start(QThread::InheritPriority);
        subscribedCameras.clear();
    }
    emit clearData();

    QStringList subscribeFailures;
    std::vector<char> notAsked;
    const std::vector<lum::FUSION_ERROR_CODE> results = subscribeAll(failed, notAsked);
    for (size_t i = 0; i < configurations.size(); ++i) {
        const int serial = configurations[i].serial_number;
        if (failed.count(serial)) continue;
        const lum::CameraIdentifier camera(static_cast<uint64_t>(serial));
        const lum::FUSION_ERROR_CODE subscribed = results[i];
        if (subscribed == lum::FUSION_ERROR_CODE::SUCCESS) {
            std::lock_guard<std::mutex> lock(workerMutex);
            subscribedCameras.push_back(camera);
        } else {
            if (notAsked[i])
                console::notice() << "Unable to subscribe to " << serial << ": not asked, the "
                                  << kHandshakeDeadline.count() << " s the room gives its handshakes had passed";
            else
                console::notice() << "Unable to subscribe to " << serial << " . " << lum::toString(subscribed);
            subscribeFailures << QString::number(serial);
        }
    }

    const QString version = QString("%1.%2.%3.")
                                .arg(lum::kSdkVersion.major)
                                .arg(lum::kSdkVersion.minor)
                                .arg(lum::kSdkVersion.patch);
    if (subscribedCameras.empty()) {
        waitUntilHidden({"No subscribed camera",
                       "Halden could not subscribe to any camera. Please check that the senders are compatible "
                       "with Pyra SDK v" + version,
                       PromptIcon::Critical});
        return false;
    }
    if (subscribedCameras.size() == 1) {
        waitUntilHidden({"Subscribed to ONE camera only",
                       "Halden subscribed to one camera only. The calibration process requires at least two "
                       "cameras. Please check that the senders are compatible with Pyra SDK v" + version,
                       PromptIcon::Critical});
        return false;
    }
    if (!subscribeFailures.empty())
        waitUntilHidden({"Failed to subscribe", "Halden failed to subscribe to: " + subscribeFailures.join(", "),
                       PromptIcon::Critical});
    {
        std::lock_guard<std::mutex> lock(workerMutex);
        takeNewSink();
        liveSource->setSink(captureSink, subscribedCameras);
    }
    return !stopRequested;
}
