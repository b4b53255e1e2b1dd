// The keypoint pairs of a solve, gathered once and only when a report asks for them.
// Shared between copies of the record, so a solve's copy on another thread gathers them once.
#include "calibration/solve_record.hpp"

namespace calib {

KeypointPairsOnDemand::KeypointPairsOnDemand(Pairs ready) : shared_(std::make_shared<Shared>()) {
    shared_->pairs = std::move(ready);
    std::call_once(shared_->once, [] {});
}

KeypointPairsOnDemand::KeypointPairsOnDemand(std::function<std::vector<CameraPairData>()> gather)
    : shared_(std::make_shared<Shared>()) {
    shared_->gather = std::move(gather);
}

const KeypointPairsOnDemand::Pairs& KeypointPairsOnDemand::get() const {
    static const Pairs none;
    if (!shared_) return none;
    std::call_once(shared_->once, [this] {
        shared_->pairs = std::make_shared<const std::vector<CameraPairData>>(shared_->gather());
        shared_->gather = nullptr;  // lets go of the frames it read
    });
    return shared_->pairs;
}

}  // namespace calib
