// DemoRoom: senders grabbing in their own threads, and the fusion loop copying fused and
// per-camera bodies, poses and metrics into SharedData one group at a time.
#include "tools/viewer_demo/demo_room.hpp"

#include <iostream>

#include "core/shared_records.hpp"
#include "pyra_sim/scene.hpp"

namespace {

constexpr lum::COORDINATE_SYSTEM kFrame = lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP;
constexpr lum::UNIT kUnit = lum::UNIT::METER;

}  // namespace

DemoRoom::~DemoRoom() {
    stop();
}

bool DemoRoom::start(std::function<void()> onNewData, std::string* message) {
    newData = std::move(onNewData);
    running = true;
    lum::CommunicationParameters sharedMemory;
    sharedMemory.setForSharedMemory();
    for (const lum::DeviceProperties& device : lum::Camera::getDeviceList()) {
        auto sender = std::make_unique<Sender>();
        sender->serial = device.serial_number;
        lum::InitParameters init;
        init.input.setFromSerialNumber(device.serial_number);
        init.unit = kUnit;
        init.coordinateSystem = kFrame;
        const lum::ERROR_CODE code = sender->camera.open(init);
        if (code != lum::ERROR_CODE::SUCCESS) {
            std::cerr << "Camera " << device.serial_number << ": " << lum::toString(code) << std::endl;
            continue;
        }
        sender->camera.enablePositionalTracking();
        sender->camera.startPublishing(sharedMemory);
        sender->camera.enableBodyTracking(lum::BodyTrackingParameters());
        Sender* raw = sender.get();
        sender->thread = std::thread([this, raw] {
            lum::Bodies bodies;
            while (running && raw->camera.grab() == lum::ERROR_CODE::SUCCESS)
                raw->camera.retrieveBodies(bodies, lum::BodyTrackingRuntimeParameters(40.f));
        });
        senders.push_back(std::move(sender));
    }
    if (senders.empty()) {
        *message = "No camera of the simulated room could be opened.";
        stop();
        return false;
    }

    lum::InitFusionParameters init;
    init.unit = kUnit;
    init.coordinateSystem = kFrame;
    fusion.init(init);
    fusion.enableBodyTracking();
    fusion.enablePositionalTracking();
    const pyra_sim::Scene scene = pyra_sim::activeScene();
    for (const auto& sender : senders) {
        const pyra_sim::CameraSettings* camera = pyra_sim::findCamera(scene, sender->serial);
        const lum::CameraIdentifier id(sender->serial);
        const lum::FUSION_ERROR_CODE code =
            fusion.subscribe(id, sharedMemory, camera ? camera->pose : lum::Transform());
        if (code == lum::FUSION_ERROR_CODE::SUCCESS)
            subscribed.push_back(id);
        else
            std::cerr << "Subscribe " << sender->serial << ": " << lum::toString(code) << std::endl;
    }
    fusionThread = std::thread([this] { fusionLoop(); });
    return true;
}

void DemoRoom::fusionLoop() {
    SharedData& shared = SharedData::getInstance();
    const lum::BodyTrackingFusionRuntimeParameters runtime;
    while (running) {
        if (fusion.process() != lum::FUSION_ERROR_CODE::SUCCESS) continue;
        {
            std::lock_guard<std::mutex> lock(shared.skeletonMutex);
            fusion.retrieveBodies(shared.fusedBodies, runtime);
            for (const lum::CameraIdentifier& id : subscribed)
                fusion.retrieveBodies(shared.cameraBodies[id], runtime, id, lum::FUSION_REFERENCE_FRAME::WORLD);
        }
        {
            std::lock_guard<std::mutex> lock(shared.positionMutex);
            fusion.getPosition(shared.fusedPose, lum::REFERENCE_FRAME::WORLD);
            for (const lum::CameraIdentifier& id : subscribed)
                fusion.getPosition(shared.cameraPoses[id], lum::REFERENCE_FRAME::WORLD, id, lum::POSITION_TYPE::RAW);
        }
        {
            std::lock_guard<std::mutex> lock(shared.metricsMutex);
            fusion.getProcessMetrics(shared.metrics);
        }
        if (newData) newData();
    }
}

void DemoRoom::stop() {
    running = false;
    if (fusionThread.joinable()) fusionThread.join();
    for (auto& sender : senders)
        if (sender->thread.joinable()) sender->thread.join();
    for (auto& sender : senders) sender->camera.close();
    senders.clear();
    subscribed.clear();
    fusion.close();
}
