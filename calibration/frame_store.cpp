// The calibration's frame store: the guard on the way in, and slices for the half-walk
// solves.
#include "calibration/frame_store.hpp"

#include <algorithm>
#include <iterator>

namespace calib {

bool FrameStore::add(lum::Timestamp ts, std::map<int, lum::BodyData> bodies) {
    if (frames_.count(ts)) return false;
    for (auto& [camera, body] : bodies) {
        dropUnusableKeypoints(body, drops_);
        cameras_.insert(camera);
    }
    frames_.emplace(ts, std::move(bodies));
    last_ = std::max(last_, ts);
    return true;
}

void FrameStore::dropCamera(int camera, lum::Timestamp before) {
    for (auto it = frames_.begin(); it != frames_.end() && it->first < before;) {
        it->second.erase(camera);
        it = it->second.size() < 2 ? frames_.erase(it) : std::next(it);
    }
    cameras_.clear();
    for (const auto& [ts, bodies] : frames_)
        for (const auto& [id, body] : bodies) cameras_.insert(id);
}

FrameStore FrameStore::slice(size_t first, size_t last) const {
    FrameStore part;
    last = std::min(last, frames_.size());
    if (first >= last) return part;
    auto from = std::next(frames_.begin(), std::ptrdiff_t(first));
    auto to = std::next(from, std::ptrdiff_t(last - first));
    for (auto it = from; it != to; ++it) {
        for (const auto& [camera, body] : it->second) part.cameras_.insert(camera);
        part.frames_.insert(*it);
        part.last_ = std::max(part.last_, it->first);
    }
    return part;
}

}  // namespace calib
