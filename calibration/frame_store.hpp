// The frames a skeleton calibration collected, keyed by capture time: only a camera found
// anew loses its old ones. A solve never writes; keypoints that would poison it never get in.
#pragma once

#include <cstddef>
#include <map>
#include <set>

#include "calibration/keypoint_filter.hpp"
#include "calibration/keypoint_pairs.hpp"
#include "lum/records.hpp"

namespace calib {

class FrameStore {
public:
    // Stores one frame (each camera's body of one person at one instant), after blanking
    // the keypoints the guard refuses. A frame never replaces one already stored at `ts`:
    // false then, and nothing changes.
    bool add(lum::Timestamp ts, std::map<int, lum::BodyData> bodies);

    const Frames& all() const { return frames_; }
    Frames::const_iterator begin() const { return frames_.begin(); }
    Frames::const_iterator end() const { return frames_.end(); }
    size_t size() const { return frames_.size(); }
    bool empty() const { return frames_.empty(); }
    // Every camera that brought a body, and the time of the latest frame (0 when empty).
    const std::set<int>& cameras() const { return cameras_; }
    lum::Timestamp lastTimestamp() const { return last_; }
    // Keypoints add() refused, by reason, since this store was made.
    const KeypointDrops& droppedKeypoints() const { return drops_; }

    // Takes `camera`'s bodies out of every frame stamped before `before`; a frame left with
    // fewer than two bodies goes. For a camera whose pose is being found anew: what it saw
    // from where it stood before no longer fits.
    void dropCamera(int camera, lum::Timestamp before);

    // The frames from the `first`-th (in time) up to but excluding the `last`-th, as a store
    // of their own.
    FrameStore slice(size_t first, size_t last) const;

private:
    Frames frames_;
    std::set<int> cameras_;
    lum::Timestamp last_ = 0;
    KeypointDrops drops_;
};

}  // namespace calib
