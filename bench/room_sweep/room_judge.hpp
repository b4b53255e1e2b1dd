// What one generated room's calibration came to, camera by camera, judged against the
// simulation's truth: the error, what the run claimed, and whether that claim was silent.
#pragma once

#include <cstdint>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "lum/math.hpp"
#include "pyra_sim/scene.hpp"

namespace sweep {

constexpr double kUnknown = std::numeric_limits<double>::quiet_NaN();
constexpr double kSharedSecondsNeeded = 30;  // walking a camera shares with another

struct CameraResult {
    unsigned serial = 0;
    bool saved = false;      // in the written room file
    bool reference = false;  // the saved camera the others are measured from
    std::string verdict;     // the report's, empty when the run gave none
    std::string leftOut;     // why the run left it out of the file, if it did
    double sigmaDeg = kUnknown, sigmaMm = kUnknown;  // stated 1-sigma
    double errorDeg = kUnknown, errorMm = kUnknown;  // true error relative to the reference
    double sharedSeconds = 0;
    bool silent = false;
};

struct RoomResult {
    uint64_t seed = 0;
    std::string layout;
    int people = 0;
    int seconds = 0;
    int status = -1;  // halden-cli's exit status; negative: killed by that signal, or never ran
    std::string exitReason;
    std::string problem;  // what went wrong running the room, if anything did
    double wallSeconds = 0;
    // What the pipeline saw, to tell where two runs of one seed parted: the captures the
    // recording holds, its size, and the frames and solves of the calibration.
    long long captures = -1, recordingBytes = -1;
    int frames = -1, solves = -1;
    // The saved camera the most others agree with (within 1 deg / 30 mm relative to it);
    // when it is not the reference, the reference itself is the camera placed wrong.
    unsigned consensus = 0;
    // Where the saved world stands in the room: its up against the true vertical, and the
    // saved cameras' heights against the truth (the reference's pose carries the room over).
    double floorTiltDeg = kUnknown, worstHeightMm = kUnknown;
    std::vector<CameraResult> cameras;

    // Every camera shares enough walking with another for a calibration to be expected.
    bool qualifies() const;
    int silentFailures() const;
    // The largest error among Good cameras other than the reference; false if none.
    bool worstGood(double& degrees, double& millimetres) const;
};

// A camera the run vouched for (written as good, or written with exit 0) whose true error
// exceeds three of its stated sigmas or 1 deg / 30 mm.
bool isSilentFailure(const CameraResult& camera, int status);

// Measures every saved camera (poses from the room file, by serial) against the truth,
// relative to the smallest saved serial as the solve's reference is, and marks silent failures.
void judgeRoom(const pyra_sim::Scene& truth, const std::map<unsigned, lum::Transform>& saved, RoomResult& room);

}  // namespace sweep
