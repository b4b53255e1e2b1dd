// The fusion worker's intake: each camera's new bodies pass the capture gate before the
// pipeline clock, the calibration or the drift watch read them.
#include "fusion/fusion_worker.hpp"

#include "core/console_log.hpp"

// Called with the worker's and the skeleton mutex held.
void FusionWorker::retrieveCameraBodies() {
    SharedData& shared = SharedData::getInstance();
    std::map<int, lum::Bodies*> captures;
    for (const lum::CameraIdentifier& camera : subscribedCameras) {
        lum::Bodies& bodies = shared.cameraBodies[camera];
        source().retrieveBodies(bodies, camera);
        captures[static_cast<int>(camera.sn)] = &bodies;
    }
    // The clock aligner sees every capture as stamped, those the gate holds apart for their
    // clock too: its estimate is what can bring them back.
    if (collecting && calibration.options.model == SkeletonMulticameraCalibration::Model::Refined)
        for (const auto& [serial, bodies] : captures)
            if (bodies->is_new) clockAligner.addBodies(serial, *bodies);
    for (const calib::CameraNotice& notice : captureGate.screen(captures, clock->nowNs())) {
        console::trace() << notice.text << " (" << QString::number(notice.secondsIntoRun, 'f', 1).toStdString()
                          << " s into the run)";
        emit cameraNotice(notice.camera, QString::fromStdString(notice.text), notice.secondsIntoRun);
    }
    // A capture held apart must not move the room's clock either.
    noteCaptures();
}

std::map<int, calib::KeypointDrops> FusionWorker::droppedKeypointsByCamera() const {
    std::lock_guard<std::mutex> lock(workerMutex);
    return captureGate.keypointDrops();
}

std::string FusionWorker::cameraTrouble(int serial) const {
    std::lock_guard<std::mutex> lock(workerMutex);
    return captureGate.trouble(serial);
}
