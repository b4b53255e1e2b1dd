// The starvation watch: a sliding window of association instants per placed camera, on the
// pipeline clock so that a replay judges exactly as the live room did.
#include "calibration/pairing_watch.hpp"

namespace calib {

void PairingWatch::observe(int64_t nowNs, const std::vector<CameraPeople>& cameras, const std::set<int>& placed) {
    latestNs_ = nowNs;
    for (auto it = history_.begin(); it != history_.end();)
        it = placed.count(it->first) ? std::next(it) : history_.erase(it);
    const int64_t windowNs = int64_t(options_.starvedSeconds * 1e9);
    for (int camera : placed) {
        Instant instant{nowNs, false, false};
        for (const CameraPeople& people : cameras)
            if (people.camera == camera) instant = {nowNs, people.people > 0, people.used};
        std::deque<Instant>& history = history_[camera];
        history.push_back(instant);
        // One instant older than the window stays, to tell a full window from a young one.
        while (history.size() > 2 && history[1].ns <= nowNs - windowNs) history.pop_front();
    }
}

std::set<int> PairingWatch::starved() const {
    const int64_t windowNs = int64_t(options_.starvedSeconds * 1e9);
    std::set<int> out;
    for (const auto& [camera, history] : history_) {
        if (history.empty() || history.front().ns > latestNs_ - windowNs) continue;
        int seen = 0, used = 0;
        for (const Instant& instant : history) {
            seen += instant.seen;
            used += instant.seen && instant.used;
        }
        if (seen >= options_.minSeenShare * double(history.size()) && used <= options_.maxUsedShare * seen)
            out.insert(camera);
    }
    return out;
}

}  // namespace calib
