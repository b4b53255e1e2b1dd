// Each camera's clock relative to a reference camera, found from the bodies themselves:
// how far a person moves in half a second looks the same from every camera, at one time.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <utility>
#include <vector>

#include "lum/records.hpp"

namespace calib {

// One camera's clock against the reference's: a capture this camera stamps `s` happened
// when the reference's clock read s - offsetAt(s).
struct ClockEstimate {
    double offsetS = 0;       // this camera's clock minus the reference's, at anchorNs
    double sigmaS = 0;        // 1-sigma of offsetS, from how much stretches of the walk disagree
    double driftPpm = 0;      // how fast this clock gains on the reference's
    uint64_t anchorNs = 0;    // on this camera's clock
    int windows = 0;          // stretches of walking that gave an estimate of their own

    double offsetAtS(uint64_t stampNs) const {
        return offsetS + driftPpm * 1e-6 * (double(int64_t(stampNs - anchorNs)) * 1e-9);
    }
};

struct ClockEstimates {
    int reference = -1;                   // -1 until two cameras could be compared
    std::map<int, ClockEstimate> cameras;  // every camera whose clock is known, the reference too
};

class ClockAligner {
public:
    struct Options {
        double maxOffsetS = 5.0;   // offsets searched, either way; a clock further off is not found
        double historyS = 120.0;   // how much of each camera's walk is compared
        double windowS = 4.0;      // a stretch of walking that must agree with the others
        int minWindows = 3;        // stretches needed before a clock counts as known
        double maxSigmaS = 0.004;  // a clock less sure than this is not known
        // A clear peak: the best match must beat the best one more than 0.3 s away by this.
        double peakMargin = 0.1;
        double driftSpanS = 40.0;  // drift is only fitted over walks at least this long
    };

    ClockAligner() : ClockAligner(Options()) {}
    explicit ClockAligner(Options options);

    // One camera's bodies, stamped on its own clock.
    void addBodies(int camera, const lum::Bodies& bodies);
    // Compares every pair of cameras over the walk so far and chains the pairs to the
    // reference (the smallest identifier that could be compared). Costs a few milliseconds
    // per camera pair; a pair found once is then followed near its lag, at a fraction of that.
    ClockEstimates estimate();
    void clear();

private:
    struct Sample {
        uint64_t ns = 0;
        std::vector<lum::Vector3f> keypoints;
    };
    using Track = std::deque<Sample>;
    struct Signal {
        int64_t firstStep = 0;       // on a grid of kStepNs, this camera's clock
        std::vector<double> values;  // NaN where the track had no body
    };
    struct PairLag {
        double lagS = 0, sigmaS = 0, driftPpm = 0;
        uint64_t anchorNs = 0;  // on the second camera's clock
        int windows = 0;
    };

    std::vector<Signal> motionSignals(int camera) const;
    bool comparePair(int a, int b, const std::vector<Signal>& sa, const std::vector<Signal>& sb, PairLag& out);

    Options options_;
    std::map<int, std::map<int, Track>> cameras_;  // camera -> body id -> samples
    std::map<int, uint64_t> newestNs_;
    std::map<std::pair<int, int>, int> coarseLags_;  // grid steps, of the pairs found last time
};

}  // namespace calib
