// Coverage cells of a frame and the greedy choice of the frames a budgeted store drops.
// Cells are coarse on purpose: a frame only adds something when it lands where few did.
#include "calibration/frame_coverage.hpp"

#include <algorithm>
#include <climits>
#include <cmath>
#include <optional>
#include <set>

#include <Eigen/Core>

#include "calibration/body_layout.hpp"

namespace calib {

namespace {

constexpr int kViews = 6;       // left, middle, right of the view; above or below its axis
constexpr int kDistances = 6;   // 1.5 m apart, the last open-ended
constexpr int kFacings = 5;     // four quarters of the hip line's heading, or unknown
constexpr double kDistanceStepM = 1.5;
constexpr double kSideCosine = 0.25;  // about 15 deg off the axis

struct Seen {
    int view = 0;
    int distance = 0;
    int facing = kFacings - 1;
};

std::optional<Eigen::Vector3d> keypointAt(const lum::BodyData& body, int index) {
    if (index < 0 || size_t(index) >= body.keypoint.size()) return std::nullopt;
    const lum::Vector3f& k = body.keypoint[size_t(index)];
    if (!std::isfinite(k.x) || !std::isfinite(k.y) || !std::isfinite(k.z)) return std::nullopt;
    return Eigen::Vector3d(k.x, k.y, k.z);
}

std::optional<Seen> seenBy(const lum::BodyData& body) {
    const BodyLayout* layout = layoutOf(body);
    std::optional<Eigen::Vector3d> centre = layout ? keypointAt(body, layout->pelvis) : std::nullopt;
    if (!centre) {
        Eigen::Vector3d sum = Eigen::Vector3d::Zero();
        int found = 0;
        for (int k = 0; k < int(body.keypoint.size()); ++k)
            if (auto point = keypointAt(body, k)) sum += *point, ++found;
        // Too few joints to place the body; such a frame adds little to any pair.
        if (found < 3) return std::nullopt;
        centre = sum / found;
    }
    const double distance = centre->norm();
    if (!(distance > 1e-6)) return std::nullopt;
    const Eigen::Vector3d direction = *centre / distance;
    Seen seen;
    const int column = direction.x() < -kSideCosine ? 0 : direction.x() > kSideCosine ? 2 : 1;
    seen.view = column * 2 + (direction.y() > 0 ? 1 : 0);
    seen.distance = std::min(kDistances - 1, int(distance / kDistanceStepM));
    if (layout) {
        const auto left = keypointAt(body, layout->hips[0]), right = keypointAt(body, layout->hips[1]);
        if (left && right) {
            // The heading of the hip line across the floor, in the camera's own axes.
            const Eigen::Vector3d across = *right - *left;
            const double heading = std::atan2(across.z(), across.x()) + M_PI;
            seen.facing = std::min(3, int(heading / (M_PI / 2)));
        }
    }
    return seen;
}

}  // namespace

std::vector<CoverageCell> coverageCells(const std::map<int, lum::BodyData>& bodies) {
    std::vector<std::pair<int, Seen>> seen;
    for (const auto& [camera, body] : bodies)
        if (auto where = seenBy(body)) seen.emplace_back(camera, *where);
    std::vector<CoverageCell> cells;
    for (size_t a = 0; a < seen.size(); ++a) {
        for (size_t b = a + 1; b < seen.size(); ++b) {
            const Seen& first = seen[a].second;
            const int place = ((first.view * kViews + seen[b].second.view) * kDistances + first.distance) * kFacings +
                              first.facing;
            cells.push_back({seen[a].first, seen[b].first, place});
        }
    }
    return cells;
}

std::vector<size_t> framesToDrop(const std::vector<std::vector<CoverageCell>>& cells, const std::vector<size_t>& chunkOf,
                                 size_t count) {
    count = std::min(count, cells.size());
    // Dense numbers for the cells, so the greedy passes below only index vectors.
    std::map<CoverageCell, int> numbers;
    std::vector<std::vector<int>> frameCells(cells.size());
    for (size_t f = 0; f < cells.size(); ++f)
        for (const CoverageCell& cell : cells[f])
            frameCells[f].push_back(numbers.emplace(cell, int(numbers.size())).first->second);
    std::vector<int> crowd(numbers.size(), 0);
    for (const auto& list : frameCells)
        for (int cell : list) ++crowd[size_t(cell)];

    std::vector<char> dropped(cells.size(), 0);
    std::set<size_t> thinnedChunks;
    std::vector<size_t> drops;
    for (size_t round = 0; round < count; ++round) {
        size_t best = cells.size();
        int bestScore = -1;
        bool bestThinned = false;
        for (size_t f = 0; f < cells.size(); ++f) {
            if (dropped[f]) continue;
            // A frame no pair can read is the first to go.
            int score = INT_MAX;
            for (int cell : frameCells[f]) score = std::min(score, crowd[size_t(cell)]);
            const bool thinned = thinnedChunks.count(chunkOf[f]) > 0;
            if (score > bestScore || (score == bestScore && thinned && !bestThinned)) {
                best = f;
                bestScore = score;
                bestThinned = thinned;
            }
        }
        dropped[best] = 1;
        drops.push_back(best);
        thinnedChunks.insert(chunkOf[best]);
        for (int cell : frameCells[best]) --crowd[size_t(cell)];
    }
    std::sort(drops.begin(), drops.end());
    return drops;
}

}  // namespace calib
