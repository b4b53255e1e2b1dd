// A walk through the simulated room handed to the fusion worker set by set, in the order a
// live fusion on the wall clock hands captures over, with every capture open to tampering.
#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "calibration/calibration_report.hpp"
#include "fusion/body_source.hpp"
#include "pyra_sim/scene.hpp"

namespace tampered {

// Changes one camera's capture, `seconds` into the walk, before the worker sees it; a
// capture left without is_new is never sent.
using Tamper = std::function<void(int serial, double seconds, lum::Bodies& bodies)>;

// One set per frame period: every camera's next capture, stamped with its true capture
// time unless a tamper says otherwise.
class WalkSource : public BodySource {
public:
    WalkSource(pyra_sim::Scene scene, double seconds, Tamper tamper);

    lum::FUSION_ERROR_CODE process() override;
    void retrieveBodies(lum::Bodies& bodies, lum::CameraIdentifier camera) override;
    void updatePose(lum::CameraIdentifier camera, const lum::Transform& pose) override;
    bool ended() const override { return ended_; }

private:
    pyra_sim::Scene scene_;
    int frames_ = 0;
    int next_ = 0;
    Tamper tamper_;
    std::map<int, HeldCapture> cameras_;
    std::mutex poseMutex_;
    std::map<int, lum::Transform> pendingPoses_;
    bool ended_ = false;
};

struct Outcome {
    std::map<int, lum::Transform> saved;  // the poses concludeCalibration handed back
    int frames = 0;
    std::vector<std::string> notices;  // every camera notice the worker gave
    std::optional<CalibrationReport> lastUsable;
};

// Calibrates (Refined) from `seconds` of `scene` played through a fusion worker, which
// stops collecting a second before the walk ends, as `halden-cli calibrate --seconds` does.
Outcome calibrate(const pyra_sim::Scene& scene, double seconds, const Tamper& tamper);

// Each camera's rotation (deg) and position (mm) error relative to the smallest serial.
std::map<int, std::pair<double, double>> errors(const pyra_sim::Scene& scene, const std::map<int, lum::Transform>& found);

}  // namespace tampered
