// What one skeleton calibration solve saw and produced, kept for its report.
// Immutable once made, so copies of the calibration can share it across threads.
#pragma once

#include <array>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "calibration/keypoint_pairs.hpp"
#include "calibration/solver_state.hpp"

namespace calib {

// Every keypoint pair of a solve by ordered camera pair, gathered the first time anyone
// asks (from any thread): the reports need them, the solves of the Refined model do not.
// Copies share one gathering.
class KeypointPairsOnDemand {
public:
    using Pairs = std::shared_ptr<const std::vector<CameraPairData>>;
    KeypointPairsOnDemand() = default;
    explicit KeypointPairsOnDemand(Pairs ready);
    explicit KeypointPairsOnDemand(std::function<std::vector<CameraPairData>()> gather);
    const Pairs& get() const;
    const std::vector<CameraPairData>& operator*() const { return *get(); }
    const std::vector<CameraPairData>* operator->() const { return get().get(); }
    explicit operator bool() const { return shared_ != nullptr; }

private:
    struct Shared {
        std::once_flag once;
        std::function<std::vector<CameraPairData>()> gather;
        Pairs pairs;
    };
    std::shared_ptr<Shared> shared_;
};

struct SolveRecord {
    KeypointPairsOnDemand pairs;
    std::map<int, PoseStruct> before;
    std::map<int, PoseStruct> after;
    // Refined only: each camera's depth bias at the start and at the end of the solve, so
    // the residuals read after the model's corrections, as the trackers' own noise.
    std::map<int, double> biasesBefore;
    std::map<int, double> biasesAfter;
    int reference = 0;      // camera held fixed
    bool robust = false;    // Huber loss on every keypoint pair
    bool weighted = false;  // the final solve weighted the residuals
    bool usable = false;
    int frames = 0;
    int residualBlocks = 0;
    double seconds = 0;
    // The up-pair joints, which the floor step stores back in world coordinates: after the
    // first usable solve they are no longer camera measurements, so residuals leave them out.
    std::array<int, 2> rewrittenJoints{-1, -1};
    std::string floorRefused;  // why the world was left unlevelled, when the floor was refused
    double floorRefusedSpanM = -1;  // the planted feet's spread that refused it, metres
    std::map<int, std::string> unplaced;  // cameras the solve left out until their pose is agreed, and why
};

}  // namespace calib
