// The frames a skeleton calibration collected, keyed by capture time, in shared immutable
// chunks: a copy for a solve costs a few pointers, and the collector goes on adding.
#pragma once

#include <atomic>
#include <cstddef>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <vector>

#include "calibration/frame_coverage.hpp"
#include "calibration/keypoint_filter.hpp"
#include "calibration/keypoint_pairs.hpp"
#include "calibration/refined_moments.hpp"
#include "calibration/refined_solver.hpp"
#include "lum/records.hpp"

namespace calib {

// A stretch of consecutive frames. Never changed once two stores hold it (a store about
// to add to a shared chunk adds to its own copy), so what a solve derives from its frames
// alone is derived once and kept beside them.
class FrameChunk {
public:
    explicit FrameChunk(Frames frames) : frames_(std::move(frames)) {}
    FrameChunk(const FrameChunk& other) : frames_(other.frames_) {}
    FrameChunk& operator=(const FrameChunk&) = delete;

    const Frames& frames() const { return frames_; }
    Frames& mutableFrames() { return frames_; }
    // The frame pairs of these frames and the joints left out of them; built on first use,
    // from any thread.
    const std::vector<FramePair>& framePairs() const;
    int jointsLeftOut() const;
    bool collected() const { return collectedFlag_.load(std::memory_order_acquire); }
    // The refined solve's sums of these frame pairs, kept for the next solve.
    MomentCache& moments() const { return moments_; }

private:
    void collect() const;

    Frames frames_;
    mutable std::once_flag collected_;
    mutable std::vector<FramePair> pairs_;
    mutable int leftOut_ = 0;
    mutable std::atomic<bool> collectedFlag_{false};
    mutable MomentCache moments_;
};

class FrameStore {
public:
    using Chunks = std::vector<std::shared_ptr<const FrameChunk>>;

    class const_iterator {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = Frames::value_type;
        using difference_type = std::ptrdiff_t;
        using pointer = const value_type*;
        using reference = const value_type&;

        const_iterator() = default;
        const_iterator(const Chunks* chunks, size_t chunk);
        reference operator*() const { return *frame_; }
        pointer operator->() const { return &*frame_; }
        const_iterator& operator++();
        const_iterator operator++(int) {
            const_iterator before = *this;
            ++*this;
            return before;
        }
        bool operator==(const const_iterator& other) const {
            return chunk_ == other.chunk_ && (chunk_ == end_ || frame_ == other.frame_);
        }
        bool operator!=(const const_iterator& other) const { return !(*this == other); }

    private:
        const Chunks* chunks_ = nullptr;
        size_t chunk_ = 0, end_ = 0;
        Frames::const_iterator frame_;
    };

    // Stores one frame (each camera's body of one person at one instant), after blanking
    // the keypoints the guard refuses. A frame never replaces one already stored at `ts`:
    // false then, and nothing changes. Past the budget, the store then thins itself: the
    // frames whose every camera pair is well seen elsewhere go.
    bool add(lum::Timestamp ts, std::map<int, lum::BodyData> bodies);
    // Applies to the frames added from now on.
    void setBudget(FrameBudget budget) { budget_ = budget; }
    const FrameBudget& budget() const { return budget_; }
    // Frames ever stored, thinned or dropped since or not: what tells that new ones came.
    size_t added() const { return added_; }

    const_iterator begin() const { return const_iterator(&chunks_, 0); }
    const_iterator end() const { return const_iterator(&chunks_, chunks_.size()); }
    size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    // Every camera that brought a body, and the time of the latest frame (0 when empty).
    const std::set<int>& cameras() const { return cameras_; }
    lum::Timestamp lastTimestamp() const { return last_; }
    // Keypoints add() refused, by reason, since this store was made.
    const KeypointDrops& droppedKeypoints() const { return drops_; }

    // The chunks in time order, and their frames as parts to read in that order.
    const Chunks& chunks() const { return chunks_; }
    FrameParts parts() const;

    // Takes `camera`'s bodies out of every frame stamped before `before`; a frame left with
    // fewer than two bodies goes. For a camera whose pose is being found anew: what it saw
    // from where it stood before no longer fits.
    void dropCamera(int camera, lum::Timestamp before);

    // The frames from the `first`-th (in time) up to but excluding the `last`-th, as a store
    // of their own; whole chunks are shared, not copied.
    FrameStore slice(size_t first, size_t last) const;
    // The index of the chunk start nearest to `index` when it lies within `within` of it,
    // else `index`: a slice cut there shares every chunk whole, with the joints and sums
    // it already gathered.
    size_t chunkStartNear(size_t index, size_t within) const;

private:
    void thin(size_t count);

    FrameBudget budget_;
    Chunks chunks_;
    size_t size_ = 0, added_ = 0;
    std::set<int> cameras_;
    lum::Timestamp last_ = 0;
    KeypointDrops drops_;
};

}  // namespace calib
