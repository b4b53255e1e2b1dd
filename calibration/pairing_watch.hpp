// Which placed cameras keep seeing people yet go into no frame: a pose that pairs none of
// their bodies refuses the very frames that would correct it, so it never heals by itself.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <vector>

#include "calibration/body_association.hpp"

namespace calib {

struct PairingWatchOptions {
    double starvedSeconds = 10.0;  // pipeline time a placed camera is watched before it can starve
    double minSeenShare = 0.5;     // of the instants in that time, those it must see someone at
    double maxUsedShare = 0.1;     // of those, the most that may have gone into a frame
};

class PairingWatch {
public:
    PairingWatch() = default;
    explicit PairingWatch(PairingWatchOptions options) : options_(options) {}

    // One association instant: who saw people and who was paired. Cameras not in `placed`
    // are forgotten: only a pose can starve a camera of frames.
    void observe(int64_t nowNs, const std::vector<CameraPeople>& cameras, const std::set<int>& placed);
    // Placed cameras that saw people through the last starvedSeconds and were almost never paired.
    std::set<int> starved() const;
    void forget(int camera) { history_.erase(camera); }

private:
    struct Instant {
        int64_t ns = 0;
        bool seen = false;
        bool used = false;
    };
    PairingWatchOptions options_;
    int64_t latestNs_ = 0;
    std::map<int, std::deque<Instant>> history_;
};

}  // namespace calib
