// The sender worker: camera set-up in the order the SDK needs it (open, tracking,
// publishing, body tracking), then the grab loop that keeps the published data flowing.
#include "fusion/pyra_worker.hpp"

#include <QCoreApplication>

#include <mutex>
#include <string>

#include "core/console_log.hpp"
#include "core/console_prompts.hpp"

namespace {

// Model checks and optimisations use the whole GPU; one sender at a time.
std::mutex& aiModelMutex() {
    static std::mutex mutex;
    return mutex;
}

lum::AI_MODELS aiModelFor(int32_t bodyModel) {
    if (bodyModel >= 0 && bodyModel <= 2) return static_cast<lum::AI_MODELS>(bodyModel + 3);
    return lum::AI_MODELS::GENERIC_DETECTION;
}

}  // namespace

PyraWorker::PyraWorker(std::shared_ptr<UserPrompts> prompts_)
    : prompts(promptsOrConsole(std::move(prompts_))) {}

PyraWorker::~PyraWorker() {
    close();
    std::lock_guard<std::mutex> loopEnded(loopMutex);
}

void PyraWorker::setup(lum::FusionConfiguration configuration, AppParams params) {
    console::trace() << "Setup Pyra " << configuration.serial_number;

    lum::InitParameters init;
    init.input = configuration.input_type;
    init.flip = static_cast<lum::FLIP_MODE>(params.flipMode);
    init.depthMode = static_cast<lum::DEPTH_MODE>(params.depthMode);
    init.unit = lum::UNIT::METER;
    init.coordinateSystem = lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP;
    init.openTimeoutSeconds = 0.f;
    init.grabFpsCap = 15.f;

    const lum::ERROR_CODE opened = camera.open(init);
    if (opened != lum::ERROR_CODE::SUCCESS) {
        console::notice() << "Error Open " << lum::toString(opened);
        return;
    }

    lum::PositionalTrackingParameters tracking(lum::Transform::identity(), true, false, "", false, true, false,
                                               -1.f, true, lum::POSITIONAL_TRACKING_MODE::STANDARD, false, false);
    tracking.enableLightComputeMode = true;
    camera.enablePositionalTracking(tracking);

    lum::CommunicationParameters communication;
    communication.setForSharedMemory();
    camera.startPublishing(communication);

    std::lock_guard<std::mutex> modelLock(aiModelMutex());
    lum::BodyTrackingParameters bodyTracking(true, false, lum::BODY_TRACKING_MODEL::HUMAN_BODY_ACCURATE, false, -1.f,
                                             lum::BODY_FORMAT::BODY_18, lum::BODY_KEYPOINTS_SELECTION::FULL, 0.2f,
                                             true, 0);
    bodyTracking.enableTracking = false;
    bodyTracking.detectionModel = static_cast<lum::BODY_TRACKING_MODEL>(params.bodyModel);
    bodyTracking.enableBodyFitting = false;
    bodyTracking.instanceModuleId = 0;
    detectionConfidence = params.detectionConfidence;

    const lum::AI_MODELS model = aiModelFor(params.bodyModel);
    const lum::AI_Model_status status = lum::checkAIModelStatus(model, 0);
    if (!status.downloaded || !status.optimized) {
        auto box = prompts->show({"AI model not downloaded or optimized",
                                  "Halden is downloading or optimizing an AI model.\nThis can take a few minutes.",
                                  PromptIcon::Information});
        lum::optimizeAIModel(model, 0);
        box->hide();
    }
    camera.enableBodyTracking(bodyTracking);
}

void PyraWorker::askSkeleton() { skeletonRequested = true; }

void PyraWorker::run() {
    std::lock_guard<std::mutex> ownsCamera(loopMutex);
    if (!camera.isOpened()) return;
    running = true;

    lum::RuntimeParameters runtime(true, false, 95, 100, lum::REFERENCE_FRAME::CAMERA, false);
    runtime.depthSmoothingPercent = 50;
    lum::BodyTrackingRuntimeParameters bodyRuntime(20.f, 0, 0.f);
    bodyRuntime.detectionConfidenceThreshold = static_cast<float>(detectionConfidence);

    console::trace() << camera.getCameraInformation().serial_number << " START RUN Pyra ";

    std::string pendingError;
    while (running && !stopRequested && pendingError.empty()) {
        const lum::ERROR_CODE grabbed = camera.grab(runtime);
        if (grabbed == lum::ERROR_CODE::SUCCESS)
            camera.retrieveBodies(bodies, bodyRuntime, 0);
        else
            pendingError = lum::toString(grabbed);
    }

    // A stop request wins over an error seen on the way out: nobody is left to read the box.
    if (!pendingError.empty() && running && !stopRequested) {
        const QString serial = QString::number(camera.getCameraInformation().serial_number);
        const QString error = QString::fromStdString(pendingError);
        showAndWait({QString("SN%1: %2").arg(serial, error),
                     QString("Halden received error %2 from SN%1.\n\nNo new data will be ingested from SN%1.")
                         .arg(serial, error),
                     PromptIcon::Critical});
        running = false;
    }
    console::trace() << "STOP RUN Pyra ";
}

void PyraWorker::showAndWait(const PromptMessage& message) {
    auto box = prompts->show(message);
    while (running && !stopRequested && box->isVisible()) {
        msleep(500);
        QCoreApplication::processEvents();
    }
}

void PyraWorker::close() {
    if (!isRunning()) return;
    stopRequested = true;
    running = false;
    msleep(100);
    wait();
    std::lock_guard<std::mutex> loopEnded(loopMutex);
    camera.close();
}
