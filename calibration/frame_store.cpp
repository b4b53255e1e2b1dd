// The calibration's frame store: the guard on the way in, copy-on-write chunks, and
// slices for the half-walk solves.
#include "calibration/frame_store.hpp"

#include <algorithm>

namespace calib {

namespace {

// Small enough that copying the chunk a solve still shares costs little, large enough
// that a long walk is a few dozen chunks.
constexpr size_t kChunkFrames = 64;

}  // namespace

void FrameChunk::collect() const {
    std::call_once(collected_, [this] {
        pairs_ = collectFramePairs(frames_, &leftOut_);
        collectedFlag_.store(true, std::memory_order_release);
    });
}

const std::vector<FramePair>& FrameChunk::framePairs() const {
    collect();
    return pairs_;
}

int FrameChunk::jointsLeftOut() const {
    collect();
    return leftOut_;
}

FrameStore::const_iterator::const_iterator(const Chunks* chunks, size_t chunk)
    : chunks_(chunks), chunk_(chunk), end_(chunks->size()) {
    // A store never keeps an empty chunk.
    if (chunk_ < end_) frame_ = (*chunks_)[chunk_]->frames().begin();
}

FrameStore::const_iterator& FrameStore::const_iterator::operator++() {
    if (++frame_ == (*chunks_)[chunk_]->frames().end() && ++chunk_ < end_)
        frame_ = (*chunks_)[chunk_]->frames().begin();
    return *this;
}

bool FrameStore::add(lum::Timestamp ts, std::map<int, lum::BodyData> bodies) {
    // The chunk whose stretch of time holds ts: the last that starts at or before it.
    size_t at = 0;
    while (at + 1 < chunks_.size() && chunks_[at + 1]->frames().begin()->first <= ts) ++at;
    if (!chunks_.empty() && chunks_[at]->frames().count(ts)) return false;
    for (auto& [camera, body] : bodies) {
        dropUnusableKeypoints(body, drops_);
        cameras_.insert(camera);
    }
    const bool append = chunks_.empty() ||
                        (at + 1 == chunks_.size() && chunks_[at]->frames().size() >= kChunkFrames &&
                         chunks_[at]->frames().rbegin()->first < ts);
    if (append) {
        Frames frames;
        frames.emplace(ts, std::move(bodies));
        chunks_.push_back(std::make_shared<FrameChunk>(std::move(frames)));
    } else {
        // A chunk a snapshot holds, or one a solve already read, is never written.
        std::shared_ptr<FrameChunk> chunk;
        if (chunks_[at].use_count() == 1 && !chunks_[at]->collected())
            chunk = std::const_pointer_cast<FrameChunk>(chunks_[at]);
        else
            chunk = std::make_shared<FrameChunk>(*chunks_[at]);
        chunk->mutableFrames().emplace(ts, std::move(bodies));
        chunks_[at] = chunk;
        // Frames that arrive out of order can swell a chunk in the middle; split it then.
        if (chunk->frames().size() >= 2 * kChunkFrames) {
            Frames later;
            auto middle = std::next(chunk->frames().begin(), std::ptrdiff_t(kChunkFrames));
            later.insert(middle, chunk->frames().end());
            chunk->mutableFrames().erase(middle, chunk->mutableFrames().end());
            chunks_.insert(chunks_.begin() + std::ptrdiff_t(at + 1), std::make_shared<FrameChunk>(std::move(later)));
        }
    }
    ++size_;
    ++added_;
    last_ = std::max(last_, ts);
    if (budget_.maxFrames > 0 && size_ > budget_.maxFrames + budget_.slack) thin(size_ - budget_.maxFrames);
    return true;
}

void FrameStore::thin(size_t count) {
    std::vector<std::vector<CoverageCell>> cells;
    std::vector<size_t> chunkOf;
    cells.reserve(size_);
    chunkOf.reserve(size_);
    for (size_t c = 0; c < chunks_.size(); ++c) {
        for (const auto& [ts, bodies] : chunks_[c]->frames()) {
            cells.push_back(coverageCells(bodies));
            chunkOf.push_back(c);
        }
    }
    const std::vector<size_t> drops = framesToDrop(cells, chunkOf, count);
    // Only the chunks that lose frames are made anew (and so lose what was derived from
    // them); every other one stays shared with the snapshots that hold it. Neighbours made
    // anew join while they fit one chunk, so thinning after thinning leaves no crumbs.
    Chunks kept;
    Frames rebuilt;
    const auto flush = [&] {
        if (!rebuilt.empty()) kept.push_back(std::make_shared<FrameChunk>(std::move(rebuilt)));
        rebuilt = Frames();
    };
    size_t frame = 0;
    auto drop = drops.begin();
    for (const auto& chunk : chunks_) {
        const size_t end = frame + chunk->frames().size();
        if (drop == drops.end() || *drop >= end) {
            flush();
            kept.push_back(chunk);
            frame = end;
            continue;
        }
        Frames left;
        for (const auto& entry : chunk->frames()) {
            if (drop != drops.end() && *drop == frame) ++drop;
            else left.insert(left.end(), entry);
            ++frame;
        }
        if (rebuilt.size() + left.size() > kChunkFrames) flush();
        rebuilt.merge(left);
    }
    flush();
    chunks_ = std::move(kept);
    size_ -= drops.size();
    cameras_.clear();
    for (const auto& chunk : chunks_)
        for (const auto& [ts, bodies] : chunk->frames())
            for (const auto& [camera, body] : bodies) cameras_.insert(camera);
}

FrameParts FrameStore::parts() const {
    FrameParts parts;
    parts.reserve(chunks_.size());
    for (const auto& chunk : chunks_) parts.push_back(&chunk->frames());
    return parts;
}

void FrameStore::dropCamera(int camera, lum::Timestamp before) {
    // Chunks a snapshot holds stay as they are: the affected ones are rebuilt, not edited.
    Chunks kept;
    size_ = 0;
    cameras_.clear();
    for (const auto& chunk : chunks_) {
        const Frames& frames = chunk->frames();
        const bool touched = frames.begin()->first < before &&
                             std::any_of(frames.begin(), frames.end(), [&](const auto& frame) {
                                 return frame.first < before && frame.second.count(camera);
                             });
        if (touched) {
            Frames left;
            for (const auto& [ts, bodies] : frames) {
                if (ts >= before || !bodies.count(camera)) {
                    left.emplace(ts, bodies);
                } else if (bodies.size() > 2) {
                    auto rest = bodies;
                    rest.erase(camera);
                    left.emplace(ts, std::move(rest));
                }
            }
            if (left.empty()) continue;
            kept.push_back(std::make_shared<FrameChunk>(std::move(left)));
        } else {
            kept.push_back(chunk);
        }
        for (const auto& [ts, bodies] : kept.back()->frames())
            for (const auto& [id, body] : bodies) cameras_.insert(id);
        size_ += kept.back()->frames().size();
    }
    chunks_ = std::move(kept);
}

FrameStore FrameStore::slice(size_t first, size_t last) const {
    FrameStore part;
    last = std::min(last, size_);
    size_t from = 0;  // index of the chunk's first frame
    for (const auto& chunk : chunks_) {
        const size_t n = chunk->frames().size(), to = from + n;
        if (to > first && from < last) {
            if (from >= first && to <= last) {
                part.chunks_.push_back(chunk);
            } else {
                auto begin = std::next(chunk->frames().begin(), std::ptrdiff_t(std::max(first, from) - from));
                auto end = std::next(chunk->frames().begin(), std::ptrdiff_t(std::min(last, to) - from));
                part.chunks_.push_back(std::make_shared<FrameChunk>(Frames(begin, end)));
            }
            const Frames& kept = part.chunks_.back()->frames();
            part.size_ += kept.size();
            part.last_ = std::max(part.last_, kept.rbegin()->first);
            for (const auto& [ts, bodies] : kept)
                for (const auto& [camera, body] : bodies) part.cameras_.insert(camera);
        }
        from = to;
    }
    part.added_ = part.size_;
    return part;
}

size_t FrameStore::chunkStartNear(size_t index, size_t within) const {
    auto distance = [index](size_t at) { return at > index ? at - index : index - at; };
    size_t from = 0, best = 0;
    for (const auto& chunk : chunks_) {
        if (distance(from) < distance(best)) best = from;
        from += chunk->frames().size();
    }
    return distance(best) <= within ? best : index;
}

}  // namespace calib
