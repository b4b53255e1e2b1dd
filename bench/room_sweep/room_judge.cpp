// Judging a calibrated room: errors relative to the reference camera (the only frame a
// calibration fixes, and the one its stated sigmas are given in) and the silent-failure rule.
#include "bench/room_sweep/room_judge.hpp"

#include <algorithm>
#include <cmath>

#include "testing/pose_error.hpp"

namespace sweep {

namespace {

constexpr double kSigmas = 3;
constexpr double kMaxDeg = 1;
constexpr double kMaxMm = 30;

bool beyond(double error, double sigma) { return std::isfinite(sigma) && error > kSigmas * sigma; }

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
    const auto reference = std::find_if(saved.begin(), saved.end(), [&](const auto& entry) {
        return pyra_sim::findCamera(truth, entry.first) != nullptr;
    });
    for (CameraResult& camera : room.cameras) {
        camera.saved = saved.count(camera.serial) > 0;
        camera.reference = reference != saved.end() && camera.serial == reference->first;
        const pyra_sim::CameraSettings* real = pyra_sim::findCamera(truth, camera.serial);
        camera.errorDeg = camera.errorMm = kUnknown;
        if (camera.saved && real && reference != saved.end()) {
            const lum::Transform& trueReference = pyra_sim::findCamera(truth, reference->first)->pose;
            const auto [degrees, millimetres] =
                synthetic::poseError(synthetic::relativePose(trueReference, real->pose),
                                     synthetic::relativePose(reference->second, saved.at(camera.serial)));
            camera.errorDeg = degrees;
            camera.errorMm = millimetres;
        }
        camera.silent = isSilentFailure(camera, room.status);
    }
}

}  // namespace sweep
