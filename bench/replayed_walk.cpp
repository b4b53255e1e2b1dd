// Record and replay through the fusion worker for the benchmarks: the same calls halden-cli
// makes, waiting on flags its thread sets, and the saved poses scored against the truth.
#include "bench/replayed_walk.hpp"

#include <QThread>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <mutex>

#include "fusion/fusion_worker.hpp"
#include "fusion/recorded_source.hpp"
#include "recording/recording_writer.hpp"
#include "workspace/room_usb.hpp"

namespace replayed {

namespace {

void waitFor(const std::atomic<bool>& flag) {
    while (!flag) QThread::msleep(1);
}

double median(std::vector<double> values) {
    if (values.empty()) return 0;
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

double largest(const std::map<int, double>& values) {
    double worst = 0;
    for (const auto& [camera, value] : values) worst = std::max(worst, value);
    return worst;
}

std::vector<double> valuesOf(const std::map<int, double>& values) {
    std::vector<double> out;
    for (const auto& [camera, value] : values) out.push_back(value);
    return out;
}

}  // namespace

uint64_t record(const pyra_sim::Scene& scene, int seconds, const std::string& path) {
    pyra_sim::setActiveScene(scene);
    const std::vector<lum::FusionConfiguration> room = roomusb::discover().configurations;
    rec::RecordingWriter writer;
    rec::RecordingHeader header;
    header.room = room;
    header.coordinateSystem = lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP;
    header.unit = lum::UNIT::METER;
    header.createdBy = "bench";
    if (!writer.open(path, header, nullptr)) return 0;
    std::atomic<uint64_t> captures{0};
    std::atomic<bool> ended{false};
    FusionWorker worker;  // after what its thread writes into: joined first
    worker.setCaptureSink([&](int serial, const lum::Bodies& bodies) {
        if (writer.append({serial, bodies}, nullptr)) ++captures;
    });
    worker.setRunLength(int64_t(seconds) * 1000000000);
    QObject::connect(&worker, &FusionWorker::runEnded, [&] { ended = true; });
    QObject::connect(&worker, &FusionWorker::error, [&] { ended = true; });
    worker.setup(room, AppParams());
    waitFor(ended);
    worker.close();
    writer.close(nullptr);
    return captures;
}

Calibrated calibrate(const std::string& path, SkeletonMulticameraCalibration::Model model, int seconds) {
    Calibrated out;
    auto reader = std::make_unique<rec::RecordingReader>();
    if (!reader->open(path, nullptr)) return out;
    const std::vector<lum::FusionConfiguration> room = reader->header().room;
    std::atomic<bool> ended{false};
    std::mutex reportMutex;
    FusionWorker worker;
    worker.setCalibrationModel(model);
    worker.setCalibrateOnStart(true);
    if (seconds > 0) worker.setRunLength(int64_t(seconds) * 1000000000);
    QObject::connect(&worker, &FusionWorker::runEnded, [&] { ended = true; });
    QObject::connect(&worker, &FusionWorker::calibrationReport, [&](const CalibrationReport& report) {
        std::lock_guard<std::mutex> lock(reportMutex);
        out.report = report;
        ++out.solves;
    });
    worker.setupReplay(std::make_unique<RecordedBodySource>(std::move(reader), roomFusionParameters().synchronization),
                       room);
    waitFor(ended);
    out.frames = worker.calibrationFrameCount();
    for (const lum::FusionConfiguration& camera : worker.concludeCalibration())
        out.poses[int(camera.serial_number)] = camera.pose;
    worker.close();
    return out;
}

Errors errorsAgainstTruth(const pyra_sim::Scene& scene, const std::map<int, lum::Transform>& poses) {
    Errors errors;
    if (poses.empty()) return errors;
    const int reference = poses.begin()->first;
    const lum::Transform trueReference = pyra_sim::findCamera(scene, unsigned(reference))->pose;
    const lum::Transform toReference = lum::Transform::inverse(poses.at(reference));
    const lum::Transform trueToReference = lum::Transform::inverse(trueReference);
    // Where the saved world stands in the room: its up against the true vertical.
    const lum::Transform roomFromWorld = trueReference * toReference;
    const lum::Vector3f up = roomFromWorld * lum::Vector3f(0.f, 1.f, 0.f) - roomFromWorld * lum::Vector3f(0.f, 0.f, 0.f);
    errors.floorTiltDeg = std::acos(std::clamp(double(up.y) / double(up.norm()), -1.0, 1.0)) * 180.0 / M_PI;
    for (const auto& [camera, pose] : poses) {
        const lum::Transform truth = pyra_sim::findCamera(scene, unsigned(camera))->pose;
        errors.worstHeightMm = std::max(
            errors.worstHeightMm, 1000.0 * std::abs(double(pose.getTranslation().y) - double(truth.getTranslation().y)));
        if (camera == reference) continue;
        const lum::Transform expected = trueToReference * truth;
        const lum::Transform estimate = toReference * pose;
        const lum::Transform error = lum::Transform::inverse(expected) * estimate;
        errors.rotationDeg[camera] = error.getRotationVector().norm() * 180.0 / M_PI;
        errors.positionMm[camera] = (estimate.getTranslation() - expected.getTranslation()).norm() * 1000.0;
    }
    return errors;
}

double Errors::worstRotation() const { return largest(rotationDeg); }
double Errors::worstPosition() const { return largest(positionMm); }
double Errors::medianRotation() const { return median(valuesOf(rotationDeg)); }
double Errors::medianPosition() const { return median(valuesOf(positionMm)); }

}  // namespace replayed
