// Which cameras a calibration finds anew: one that moved, one whose residual stays far above
// its peers', one whose bodies no longer pair through its pose. A moved one reads Moved until placed again.
#pragma once

#include <map>
#include <set>
#include <vector>

#include "calibration/calibration_report.hpp"

namespace calib {

struct ReseedOptions {
    double residualRatio = 3.0;    // times the median of the other placed cameras' residuals
    double minResidualMm = 150.0;  // and at least this much
    int solvesAbove = 2;           // usable solves in a row before a residual counts
};

class ReseedPolicy {
public:
    ReseedPolicy() = default;
    explicit ReseedPolicy(ReseedOptions options) : options_(options) {}

    // After a solve: the cameras to find anew from now on (their frames and pose go). One
    // camera at a time, the clearest case first; a camera being found anew is left alone.
    std::vector<int> review(const CalibrationReport& report);
    // Between solves: of the placed cameras whose bodies stopped pairing through their pose
    // while pose-free pairing says they still see what their peers see, the one to find anew.
    std::vector<int> reviewStarved(const std::set<int>& starved);
    // What a reader of the report must know: the cameras being found anew, and that those
    // which moved still read Moved until they are placed again.
    void annotate(CalibrationReport& report) const;
    const std::set<int>& reseeding() const { return awaiting_; }
    bool moved(int camera) const { return moved_.count(camera) > 0; }

private:
    ReseedOptions options_;
    std::set<int> awaiting_;  // found anew, not placed again yet
    std::set<int> moved_;     // of those, the ones that moved
    std::map<int, int> above_;  // usable solves in a row with a residual far above the peers'
};

}  // namespace calib
