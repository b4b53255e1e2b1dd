// Cross-correlation of a pose-free walking signal between cameras, stretch by stretch, and
// the pairs' lags chained to one reference by weighted least squares.
#include "calibration/clock_aligner.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include <Eigen/Dense>

namespace calib {
namespace {

constexpr int64_t kStepNs = 20'000'000;  // the signals' grid
constexpr double kStepS = 1e-9 * double(kStepNs);
constexpr int64_t kHalfSpanNs = 250'000'000;  // displacement over half a second
constexpr int64_t kMaxGapNs = 150'000'000;    // captures further apart are not bridged
constexpr double kMinOverlapS = 5.0;          // a pair of tracks seen together for less says little
constexpr double kMinWindowMotion = 0.05;     // m: a stretch in which nobody changed pace says nothing
constexpr double kMinCorrelation = 0.5;
constexpr int kSmoothSteps = 7;
constexpr int kFollowSteps = 25;  // a pair found before is searched again half a second around
// What the stretches' agreement cannot show: two cameras sample a walk at different
// instants and the signal is drawn straight between captures. Set on the default room's
// seeds 2-6 (errors up to 1.7 ms where the stretches alone claimed 0.2-0.9 ms).
constexpr double kSystematicS = 0.001;
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

// Missing keypoints are NaN; a keypoint kilometres away is a tracker fault, not a walk.
bool finite(const lum::Vector3f& p) {
    return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z) && std::abs(p.x) < 1e3f &&
           std::abs(p.y) < 1e3f && std::abs(p.z) < 1e3f;
}

struct Moments {
    double n = 0, x = 0, y = 0, xx = 0, yy = 0, xy = 0;
    void add(double a, double b) {
        n += 1;
        x += a;
        y += b;
        xx += a * a;
        yy += b * b;
        xy += a * b;
    }
    double spreadX() const { return n > 1 ? std::sqrt(std::max(0.0, xx / n - (x / n) * (x / n))) : 0; }
    double correlation() const {
        const double cxy = xy - x * y / n, cxx = xx - x * x / n, cyy = yy - y * y / n;
        return cxx > 0 && cyy > 0 ? cxy / std::sqrt(cxx * cyy) : 0;
    }
};

// A running mean over kSmoothSteps, twice (a triangle). The lag search reads a signal
// between its grid points; were its noise left white, a lag halfway between them would
// average two noise draws and correlate better than the true one.
void smooth(std::vector<double>& values) {
    for (int pass = 0; pass < 2; ++pass) {
        std::vector<double> out(values.size(), kNan);
        const int half = kSmoothSteps / 2;
        for (size_t i = 0; i < values.size(); ++i) {
            double sum = 0;
            int n = 0;
            for (int k = -half; k <= half; ++k) {
                const int64_t j = int64_t(i) + k;
                if (j < 0 || j >= int64_t(values.size()) || !std::isfinite(values[size_t(j)])) continue;
                sum += values[size_t(j)];
                ++n;
            }
            if (std::isfinite(values[i]) && 2 * n > kSmoothSteps) out[i] = sum / n;
        }
        values.swap(out);
    }
}

// Keypoint `k` at `t` (track[i].ns <= t <= track[i + 1].ns), between the nearest
// captures around `t` that saw it: a keypoint missing from one capture is bridged rather
// than dropped, since which keypoints make up the body must not change from one instant
// to the next.
template <typename Track>
bool keypointAt(const Track& track, size_t i, uint64_t t, size_t k, Eigen::Vector3d& out) {
    size_t l = i, r = i + 1;
    while (!finite(track[l].keypoints[k]) && l > 0 && track[l - 1].ns + uint64_t(kMaxGapNs) >= t) --l;
    while (!finite(track[r].keypoints[k]) && r + 1 < track.size() && track[r + 1].ns <= t + uint64_t(kMaxGapNs)) ++r;
    if (!finite(track[l].keypoints[k]) || !finite(track[r].keypoints[k]) || track[r].ns - track[l].ns > uint64_t(kMaxGapNs))
        return false;
    const double w = double(t - track[l].ns) / double(std::max<uint64_t>(1, track[r].ns - track[l].ns));
    const lum::Vector3f& a = track[l].keypoints[k];
    const lum::Vector3f& b = track[r].keypoints[k];
    out = Eigen::Vector3d(a.x, a.y, a.z) * (1 - w) + Eigen::Vector3d(b.x, b.y, b.z) * w;
    return true;
}

// A jitter spike jumps a capture away from its neighbours and back: a tenth of a metre in
// a thirtieth of a second, which the motion signal would read as a sprint. A capture whose
// keypoints moved together off the line between its neighbours (its depth went wrong) is
// left out; a keypoint far off that line while the rest follow it (a limb fitted to the
// wrong blob) is blanked. Either is then bridged like a capture or keypoint not seen.
constexpr double kSpikeShiftM = 0.05;
constexpr double kSpikeKeypointM = 0.06;

double median(std::vector<double> values) {
    std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
    return values[values.size() / 2];
}

template <typename Track>
Track despiked(const Track& track) {
    Track out;
    for (size_t i = 0; i < track.size(); ++i) {
        out.push_back(track[i]);
        if (i == 0 || i + 1 == track.size() || track[i + 1].ns - track[i - 1].ns > uint64_t(2 * kMaxGapNs)) continue;
        const auto& before = track[i - 1].keypoints;
        const auto& after = track[i + 1].keypoints;
        auto& here = out.back().keypoints;
        const double w = double(track[i].ns - track[i - 1].ns) / double(track[i + 1].ns - track[i - 1].ns);
        std::vector<size_t> seen;
        std::vector<Eigen::Vector3d> off;
        for (size_t k = 0; k < std::min({before.size(), after.size(), here.size()}); ++k) {
            if (!finite(before[k]) || !finite(after[k]) || !finite(here[k])) continue;
            const lum::Vector3f& a = before[k];
            const lum::Vector3f& b = after[k];
            const lum::Vector3f& p = here[k];
            seen.push_back(k);
            off.push_back(Eigen::Vector3d(p.x, p.y, p.z) - Eigen::Vector3d(a.x, a.y, a.z) * (1 - w) -
                          Eigen::Vector3d(b.x, b.y, b.z) * w);
        }
        if (off.size() < 3) continue;
        Eigen::Vector3d shift;
        for (int axis = 0; axis < 3; ++axis) {
            std::vector<double> along;
            for (const Eigen::Vector3d& d : off) along.push_back(d(axis));
            shift(axis) = median(along);
        }
        if (shift.norm() > kSpikeShiftM) {
            out.pop_back();
            continue;
        }
        std::vector<double> distances;
        for (const Eigen::Vector3d& d : off) distances.push_back(d.norm());
        const double limit = std::max(kSpikeKeypointM, 3 * median(distances));
        for (size_t j = 0; j < seen.size(); ++j)
            if (distances[j] > limit) here[seen[j]].x = std::numeric_limits<float>::quiet_NaN();
    }
    return out;
}

}  // namespace

ClockAligner::ClockAligner(Options options) : options_(options) {}

void ClockAligner::addBodies(int camera, const lum::Bodies& bodies) {
    const uint64_t ns = bodies.timestamp.getNanoseconds();
    uint64_t& newest = newestNs_[camera];
    std::map<int, Track>& tracks = cameras_[camera];
    // A clock set back starts the camera anew rather than scrambling its signal.
    if (ns <= newest) {
        if (newest - ns < uint64_t(kMaxGapNs)) return;
        tracks.clear();
    }
    newest = ns;
    for (const lum::BodyData& body : bodies.body_list) tracks[body.id].push_back({ns, body.keypoint});
    const uint64_t history = uint64_t(options_.historyS * 1e9);
    const uint64_t keepFrom = ns > history ? ns - history : 0;
    for (auto track = tracks.begin(); track != tracks.end();) {
        while (!track->second.empty() && track->second.front().ns < keepFrom) track->second.pop_front();
        if (track->second.empty()) track = tracks.erase(track);
        else ++track;
    }
}

void ClockAligner::clear() {
    cameras_.clear();
    newestNs_.clear();
    coarseLags_.clear();
}

// How far the body moved over the half second around each grid instant: the mean
// displacement of the keypoints seen at both ends, so a keypoint that comes and goes
// does not move the body.
std::vector<ClockAligner::Signal> ClockAligner::motionSignals(int camera) const {
    std::vector<Signal> out;
    for (const auto& entry : cameras_.at(camera)) {
        const auto track = despiked(entry.second);
        if (track.size() < 2) continue;
        Signal signal;
        signal.firstStep = int64_t((track.front().ns + kHalfSpanNs) / kStepNs) + 1;
        const int64_t lastStep = int64_t((track.back().ns - kHalfSpanNs) / kStepNs);
        if (lastStep <= signal.firstStep) continue;
        signal.values.assign(size_t(lastStep - signal.firstStep + 1), kNan);
        size_t before = 0, after = 0;  // bracketing the early and the late end
        // The two captures around `t`, found moving forward only.
        auto bracket = [&track](size_t& i, uint64_t t) {
            while (i + 2 < track.size() && track[i + 1].ns <= t) ++i;
            return track[i].ns <= t && track[i + 1].ns >= t && track[i + 1].ns - track[i].ns <= uint64_t(kMaxGapNs);
        };
        for (int64_t step = signal.firstStep; step <= lastStep; ++step) {
            const uint64_t t = uint64_t(step * kStepNs);
            if (!bracket(before, t - kHalfSpanNs) || !bracket(after, t + kHalfSpanNs)) continue;
            size_t n = std::numeric_limits<size_t>::max();
            for (size_t i : {before, before + 1, after, after + 1}) n = std::min(n, track[i].keypoints.size());
            Eigen::Vector3d sum = Eigen::Vector3d::Zero();
            size_t used = 0;
            for (size_t k = 0; k < n; ++k) {
                Eigen::Vector3d p, q;
                if (!keypointAt(track, before, t - kHalfSpanNs, k, p) || !keypointAt(track, after, t + kHalfSpanNs, k, q))
                    continue;
                sum += q - p;
                ++used;
            }
            if (used * 3 >= n && used > 0) signal.values[size_t(step - signal.firstStep)] = (sum / double(used)).norm();
        }
        smooth(signal.values);
        out.push_back(std::move(signal));
    }
    return out;
}

namespace {

using Signals = std::vector<std::vector<double>>;

// The correlation of a's signals with b's `lagSteps` later on b's grid, over a's steps
// [from, to), every `stride`-th step; pairs of tracks seen together too briefly are left
// out. Each track's correlation counts by how long it was seen.
struct Score {
    double correlation = -1;
    double samples = 0;
    double motion = 0;
};

template <typename SignalT>
Score correlate(const std::vector<SignalT>& a, const std::vector<SignalT>& b, double lagSteps, int64_t from,
                int64_t to, int stride, double minSamples) {
    const int64_t whole = int64_t(std::floor(lagSteps));
    const double frac = lagSteps - double(whole);
    double weighted = 0, samples = 0, motion = 0;
    for (const SignalT& sa : a) {
        // Each track of one camera against the other camera's track that matches it best:
        // with several people, the others' tracks would only dilute the match.
        Moments best;
        double bestCorrelation = -2;
        for (const SignalT& sb : b) {
            Moments m;
            const int64_t begin = std::max({from, sa.firstStep, sb.firstStep - whole});
            const int64_t end =
                std::min({to, sa.firstStep + int64_t(sa.values.size()), sb.firstStep + int64_t(sb.values.size()) - whole - 1});
            for (int64_t step = begin; step < end; step += stride) {
                const double x = sa.values[size_t(step - sa.firstStep)];
                const size_t j = size_t(step + whole - sb.firstStep);
                const double y = sb.values[j] * (1 - frac) + sb.values[j + 1] * frac;
                if (std::isfinite(x) && std::isfinite(y)) m.add(x, y);
            }
            if (m.n < minSamples / stride || m.correlation() <= bestCorrelation) continue;
            best = m;
            bestCorrelation = m.correlation();
        }
        if (best.n == 0) continue;
        weighted += best.n * bestCorrelation;
        samples += best.n;
        motion += best.n * best.spreadX();
    }
    if (samples == 0) return {};
    return {weighted / samples, samples * stride, motion / samples};
}

// The best lag within [centre - reach, centre + reach] steps, to a hundredth of a step:
// a scan at `spacing` steps, then a parabola through the best three.
template <typename SignalT>
double refine(const std::vector<SignalT>& a, const std::vector<SignalT>& b, double centre, double reach,
              double spacing, int64_t from, int64_t to, double minSamples, Score* best) {
    std::vector<double> lags, scores;
    for (double lag = centre - reach; lag <= centre + reach + 1e-9; lag += spacing) {
        lags.push_back(lag);
        scores.push_back(correlate(a, b, lag, from, to, 1, minSamples).correlation);
    }
    const size_t i = size_t(std::max_element(scores.begin(), scores.end()) - scores.begin());
    *best = correlate(a, b, lags[i], from, to, 1, minSamples);
    if (i == 0 || i + 1 == lags.size()) return kNan;  // at the edge: not a peak
    const double l = scores[i - 1], c = scores[i], r = scores[i + 1];
    const double curvature = l - 2 * c + r;
    const double shift = curvature < 0 ? 0.5 * (l - r) / curvature : 0;
    return lags[i] + std::clamp(shift, -0.5, 0.5) * spacing;
}

}  // namespace

bool ClockAligner::comparePair(int a, int b, const std::vector<Signal>& sa, const std::vector<Signal>& sb,
                               PairLag& out) {
    if (sa.empty() || sb.empty()) return false;
    int64_t from = std::numeric_limits<int64_t>::max(), to = std::numeric_limits<int64_t>::min();
    for (const Signal& s : sa) {
        from = std::min(from, s.firstStep);
        to = std::max(to, s.firstStep + int64_t(s.values.size()));
    }
    const double minSamples = kMinOverlapS / kStepS;

    // Coarse: every other step of lag and of signal over the whole range searched, or
    // around the lag this pair had last time.
    const int reach = int(std::ceil(options_.maxOffsetS / kStepS));
    auto known = coarseLags_.find({a, b});
    const int low = known == coarseLags_.end() ? -reach : known->second - kFollowSteps;
    const int high = known == coarseLags_.end() ? reach : known->second + kFollowSteps;
    coarseLags_.erase({a, b});
    std::vector<std::pair<int, double>> coarse;
    for (int lag = low; lag <= high; lag += 2)
        coarse.push_back({lag, correlate(sa, sb, double(lag), from, to, 2, minSamples).correlation});
    const auto top = std::max_element(coarse.begin(), coarse.end(),
                                       [](const auto& x, const auto& y) { return x.second < y.second; });
    double rival = -1;
    for (const auto& [lag, score] : coarse)
        if (std::abs(lag - top->first) * kStepS > 0.3) rival = std::max(rival, score);
    if (top->second < kMinCorrelation || top->second - rival < options_.peakMargin) return false;
    coarseLags_[{a, b}] = top->first;

    Score whole;
    const double lagSteps = refine(sa, sb, double(top->first), 3, 0.25, from, to, minSamples, &whole);
    if (!std::isfinite(lagSteps)) return false;

    // Each stretch on its own: their spread is the honest uncertainty, their trend the drift.
    const int64_t windowSteps = int64_t(options_.windowS / kStepS);
    std::vector<double> centres, lags;
    for (int64_t start = from; start + windowSteps / 2 < to; start += windowSteps) {
        Score local;
        const double lag = refine(sa, sb, lagSteps, 4, 0.5, start, start + windowSteps, 0.5 * double(windowSteps), &local);
        if (!std::isfinite(lag) || local.correlation < kMinCorrelation || local.motion < kMinWindowMotion) continue;
        centres.push_back(double(start + windowSteps / 2) * kStepS);
        lags.push_back(lag * kStepS);
    }
    const int n = int(lags.size());
    if (n < options_.minWindows) return false;
    // Stretches more than three spreads from the median are someone else's walk.
    std::vector<double> sorted = lags;
    std::nth_element(sorted.begin(), sorted.begin() + n / 2, sorted.end());
    const double median = sorted[size_t(n / 2)];
    std::vector<double> deviations;
    for (double lag : lags) deviations.push_back(std::abs(lag - median));
    std::nth_element(deviations.begin(), deviations.begin() + n / 2, deviations.end());
    const double limit = std::max(0.003, 4.5 * deviations[size_t(n / 2)]);
    std::vector<double> t, y;
    for (int i = 0; i < n; ++i)
        if (std::abs(lags[i] - median) <= limit) {
            t.push_back(centres[size_t(i)]);
            y.push_back(lags[size_t(i)]);
        }
    const int kept = int(y.size());
    if (kept < options_.minWindows) return false;

    const double anchorS = 1e-9 * double(newestNs_.at(a));
    double meanT = 0, meanY = 0;
    for (int i = 0; i < kept; ++i) {
        meanT += t[size_t(i)] / kept;
        meanY += y[size_t(i)] / kept;
    }
    double stt = 0, sty = 0;
    for (int i = 0; i < kept; ++i) {
        stt += (t[size_t(i)] - meanT) * (t[size_t(i)] - meanT);
        sty += (t[size_t(i)] - meanT) * (y[size_t(i)] - meanY);
    }
    const double slope = stt > 0 ? sty / stt : 0;
    double residual = 0;
    for (int i = 0; i < kept; ++i) residual += std::pow(y[size_t(i)] - meanY - slope * (t[size_t(i)] - meanT), 2);
    // A floor of half a millisecond per stretch: a handful of stretches can agree by chance.
    const double spread = std::max(0.0005, std::sqrt(residual / std::max(1, kept - 2)));
    const double systematic = kSystematicS;
    const double slopeSigma = stt > 0 ? spread / std::sqrt(stt) : kNan;
    out = PairLag();
    out.windows = kept;
    out.anchorNs = newestNs_.at(a);
    if (t.back() - t.front() >= options_.driftSpanS && kept >= 4 && std::abs(slope) > 3 * slopeSigma) {
        out.driftPpm = slope * 1e6;
        out.lagS = meanY + slope * (anchorS - meanT);
        out.sigmaS = std::hypot(systematic, spread * std::sqrt(1.0 / kept + std::pow(anchorS - meanT, 2) / stt));
    } else {
        // No drift to speak of: the whole walk's peak is the sharpest estimate.
        out.lagS = lagSteps * kStepS;
        out.sigmaS = std::hypot(systematic, spread / std::sqrt(double(kept)));
    }
    return true;
}

ClockEstimates ClockAligner::estimate() {
    std::vector<int> ids;
    std::map<int, std::vector<Signal>> signals;
    for (const auto& [camera, tracks] : cameras_)
        if (!tracks.empty()) {
            ids.push_back(camera);
            signals[camera] = motionSignals(camera);
        }
    struct Edge {
        size_t a, b;
        PairLag lag;
    };
    std::vector<Edge> edges;
    for (size_t i = 0; i < ids.size(); ++i)
        for (size_t j = i + 1; j < ids.size(); ++j) {
            PairLag lag;
            if (comparePair(ids[i], ids[j], signals[ids[i]], signals[ids[j]], lag) && lag.sigmaS <= options_.maxSigmaS)
                edges.push_back({i, j, lag});
        }
    ClockEstimates out;
    if (edges.empty()) return out;

    // Cameras chained to the reference, the first camera that saw anybody (so that the
    // reference does not change as the walk goes on); the others stay unknown.
    const size_t reference = 0;
    std::vector<bool> linked(ids.size(), false);
    linked[reference] = true;
    for (bool grew = true; grew;) {
        grew = false;
        for (const Edge& e : edges)
            if (linked[e.a] != linked[e.b]) linked[e.a] = linked[e.b] = grew = true;
    }
    std::vector<int> index(ids.size(), -1);
    int unknowns = 0;
    for (size_t i = 0; i < ids.size(); ++i)
        if (linked[i] && i != reference) index[i] = unknowns++;
    if (unknowns == 0) return out;

    // Offsets and drifts both: o_b - o_a = lag, weighted by the lag's own uncertainty.
    Eigen::MatrixXd normal = Eigen::MatrixXd::Zero(unknowns, unknowns);
    Eigen::VectorXd offsetRhs = Eigen::VectorXd::Zero(unknowns), driftRhs = Eigen::VectorXd::Zero(unknowns);
    std::map<size_t, int> windows;
    for (const Edge& e : edges) {
        if (!linked[e.a]) continue;
        const double w = 1.0 / (e.lag.sigmaS * e.lag.sigmaS);
        const int ia = index[e.a], ib = index[e.b];
        if (ia >= 0) normal(ia, ia) += w;
        if (ib >= 0) normal(ib, ib) += w;
        if (ia >= 0 && ib >= 0) {
            normal(ia, ib) -= w;
            normal(ib, ia) -= w;
        }
        if (ib >= 0) {
            offsetRhs(ib) += w * e.lag.lagS;
            driftRhs(ib) += w * e.lag.driftPpm;
        }
        if (ia >= 0) {
            offsetRhs(ia) -= w * e.lag.lagS;
            driftRhs(ia) -= w * e.lag.driftPpm;
        }
        windows[e.a] += e.lag.windows;
        windows[e.b] += e.lag.windows;
    }
    const Eigen::MatrixXd covariance = normal.ldlt().solve(Eigen::MatrixXd::Identity(unknowns, unknowns));
    const Eigen::VectorXd offsets = covariance * offsetRhs, drifts = covariance * driftRhs;

    out.reference = ids[reference];
    for (size_t i = 0; i < ids.size(); ++i) {
        if (!linked[i]) continue;
        ClockEstimate clock;
        clock.anchorNs = newestNs_.at(ids[i]);
        clock.windows = windows[i];
        if (index[i] >= 0) {
            clock.offsetS = offsets(index[i]);
            clock.driftPpm = drifts(index[i]);
            clock.sigmaS = std::sqrt(std::max(0.0, covariance(index[i], index[i])));
        }
        out.cameras[ids[i]] = clock;
    }
    return out;
}

}  // namespace calib
