// Where each pair of cameras saw the body of a frame, in coarse cells, and which frames a
// store over its budget can best do without: those whose every pair is already well seen.
#pragma once

#include <array>
#include <cstddef>
#include <map>
#include <vector>

#include "lum/records.hpp"

namespace calib {

struct FrameBudget {
    // Frames a store keeps; 0 keeps every frame.
    size_t maxFrames = 2400;
    // Frames taken beyond maxFrames before the store thins back down to it. Thinning rebuilds
    // the chunks it drops frames from, and those lose the sums a warm solve reuses, so it
    // happens seldom and all at once.
    size_t slack = 64;
};

// The cells of one frame, one per pair of cameras that saw the body: where the body stood
// in each camera's view, how far it was from the first, and which way it faced it. Equal
// cells tell the solve about the same thing; any cell may be missing where a camera's body
// has too few keypoints to say. A cell is the pair's two cameras and the place within it.
using CoverageCell = std::array<int, 3>;
std::vector<CoverageCell> coverageCells(const std::map<int, lum::BodyData>& bodies);

// Of frames whose cells are `cells` (oldest first), the `count` to drop, as ascending
// indices. Each drop takes the frame whose least crowded cell is the most crowded of all;
// ties go to a frame in a chunk (`chunkOf`) already thinned, then to the oldest, so that
// the newest frame of a crowded cell stays and a thinning touches few chunks.
std::vector<size_t> framesToDrop(const std::vector<std::vector<CoverageCell>>& cells, const std::vector<size_t>& chunkOf,
                                 size_t count);

}  // namespace calib
