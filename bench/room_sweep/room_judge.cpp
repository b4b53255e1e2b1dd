// Judging a calibrated room: errors relative to the reference camera (the only frame a
// calibration fixes, and the one its stated sigmas are given in) and the silent-failure rule.
#include "bench/room_sweep/room_judge.hpp"

#include <algorithm>
#include <cmath>
#include <tuple>

#include "testing/pose_error.hpp"

namespace sweep {

namespace {

constexpr double kSigmas = 3;
constexpr double kMaxDeg = 1;
constexpr double kMaxMm = 30;

bool beyond(double error, double sigma) { return std::isfinite(sigma) && error > kSigmas * sigma; }

std::pair<double, double> errorFrom(const pyra_sim::Scene& truth, const std::map<unsigned, lum::Transform>& saved,
                                    unsigned reference, unsigned camera) {
    return synthetic::poseError(
        synthetic::relativePose(pyra_sim::findCamera(truth, reference)->pose, pyra_sim::findCamera(truth, camera)->pose),
        synthetic::relativePose(saved.at(reference), saved.at(camera)));
}

unsigned consensusCamera(const pyra_sim::Scene& truth, const std::map<unsigned, lum::Transform>& saved) {
    unsigned best = 0;
    int most = -1;
    for (const auto& [reference, pose] : saved) {
        int agree = 0;
        for (const auto& [camera, other] : saved) {
            const auto [degrees, millimetres] = errorFrom(truth, saved, reference, camera);
            agree += camera != reference && degrees <= kMaxDeg && millimetres <= kMaxMm;
        }
        if (agree > most) {
            most = agree;
            best = reference;
        }
    }
    return best;
}

// The saved world carried into the room by the reference camera, as a user's tool would
// carry it by one surveyed camera: how far its up leans and how wrong the heights come out.
void judgeFloor(const pyra_sim::Scene& truth, const std::map<unsigned, lum::Transform>& saved, RoomResult& room) {
    if (saved.empty()) return;
    const auto& [reference, referencePose] = *saved.begin();
    const lum::Transform roomFromSaved =
        pyra_sim::findCamera(truth, reference)->pose * lum::Transform::inverse(referencePose);
    const lum::Vector3f up =
        roomFromSaved * lum::Vector3f(0.f, 1.f, 0.f) - roomFromSaved * lum::Vector3f(0.f, 0.f, 0.f);
    room.floorTiltDeg = std::acos(std::clamp(double(up.y) / double(up.norm()), -1.0, 1.0)) * 180.0 / M_PI;
    room.worstHeightMm = 0;
    for (const auto& [serial, pose] : saved)
        room.worstHeightMm =
            std::max(room.worstHeightMm, 1000.0 * std::abs(double(pose.getTranslation().y) -
                                                           double(pyra_sim::findCamera(truth, serial)->pose.getTranslation().y)));
}

}  // namespace

bool RoomResult::qualifies() const {
    return !cameras.empty() && std::all_of(cameras.begin(), cameras.end(), [](const CameraResult& c) {
        return c.sharedSeconds >= kSharedSecondsNeeded;
    });
}

int RoomResult::silentFailures() const {
    return int(std::count_if(cameras.begin(), cameras.end(), [](const CameraResult& c) { return c.silent; }));
}

bool RoomResult::worstGood(double& degrees, double& millimetres) const {
    bool any = false;
    degrees = millimetres = 0;
    for (const CameraResult& c : cameras) {
        if (!c.saved || c.reference || c.verdict != "good" || !std::isfinite(c.errorMm)) continue;
        any = true;
        degrees = std::max(degrees, c.errorDeg);
        millimetres = std::max(millimetres, c.errorMm);
    }
    return any;
}

bool isSilentFailure(const CameraResult& camera, int status) {
    if (!camera.saved || (camera.verdict != "good" && status != 0)) return false;
    // A vouched-for camera the run placed but nobody could measure is no less wrong.
    if (!std::isfinite(camera.errorDeg) || !std::isfinite(camera.errorMm)) return true;
    return camera.errorDeg > kMaxDeg || camera.errorMm > kMaxMm || beyond(camera.errorDeg, camera.sigmaDeg) ||
           beyond(camera.errorMm, camera.sigmaMm);
}

void judgeRoom(const pyra_sim::Scene& truth, const std::map<unsigned, lum::Transform>& saved, RoomResult& room) {
    std::map<unsigned, lum::Transform> known;  // a camera the truth does not know cannot be judged
    for (const auto& [serial, pose] : saved)
        if (pyra_sim::findCamera(truth, serial)) known[serial] = pose;
    room.consensus = consensusCamera(truth, known);
    judgeFloor(truth, known, room);
    for (CameraResult& camera : room.cameras) {
        camera.saved = saved.count(camera.serial) > 0;
        camera.reference = !known.empty() && camera.serial == known.begin()->first;
        camera.errorDeg = camera.errorMm = kUnknown;
        if (known.count(camera.serial))
            std::tie(camera.errorDeg, camera.errorMm) = errorFrom(truth, known, known.begin()->first, camera.serial);
        camera.silent = isSilentFailure(camera, room.status);
    }
}

}  // namespace sweep
