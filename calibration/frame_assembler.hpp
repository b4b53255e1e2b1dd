// Calibration frames on one clock: each camera's recent bodies, per tracked person,
// brought to one common instant by interpolating between that camera's own captures.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <vector>

#include "calibration/clock_aligner.hpp"
#include "lum/records.hpp"

namespace calib {

// Every camera's bodies at one instant, by camera identifier (one entry per tracked body).
using BodiesAtInstant = std::map<int, std::vector<lum::BodyData>>;
// One calibration frame: camera identifier to the body that camera sees of one person.
using CameraBodies = std::map<int, lum::BodyData>;

// Decides which body of each camera is the same person; returns one frame per person that
// two or more cameras see. Pluggable so that rooms with several people can match bodies.
using BodyAssociation = std::function<std::vector<CameraBodies>(const BodiesAtInstant&)>;

// The one-person rule: a frame from every camera that sees exactly one body, when at least
// two do; a camera seeing several people cannot tell which one the others see.
std::vector<CameraBodies> singlePersonAssociation(const BodiesAtInstant& bodies);

class FrameAssembler {
public:
    struct Options {
        // A camera whose newest capture is further than this behind the newest capture of
        // any camera is left out of the frame: it has stalled or lost the person.
        int64_t maxLagNs = 100'000'000;
        // Two captures of one track further apart than this are not interpolated across.
        int64_t maxGapNs = 100'000'000;
        // How much of each track's past is kept.
        int64_t historyNs = 500'000'000;
    };

    FrameAssembler() : FrameAssembler(Options()) {}
    explicit FrameAssembler(Options options);

    void setAssociation(BodyAssociation association);

    // The camera's clock against the room's common one (the reference camera's). From then
    // on its captures are placed by it, and the camera is judged stalled only when it stops
    // sending: a camera whose clock is known may legitimately deliver what it saw seconds
    // after the others do. A camera without one is taken to share the common clock.
    void setClock(int camera, const ClockEstimate& clock);

    // One camera's bodies as it captured them (bodies.timestamp is the capture time).
    // Older or repeated captures of a camera are ignored, unless they are older than the
    // whole history (the camera's clock was set back): the camera then starts anew.
    void addBodies(int camera, const lum::Bodies& bodies);

    // The common instant of the next frame: the oldest of the newest captures of the cameras
    // that are not lagging, so that every camera's body is interpolated and none is
    // extrapolated. 0 while no camera has reported.
    lum::Timestamp commonInstant() const;

    // Every non-lagging camera's tracks at `instant`, each interpolated between the two
    // captures around it; tracks without captures on both sides (or with too wide a gap)
    // are left out.
    BodiesAtInstant bodiesAt(lum::Timestamp instant) const;

    // The frames of the common instant, one per person seen by two or more cameras.
    std::vector<CameraBodies> assemble() const;

    // Forgets the cameras and their clocks.
    void clear();

private:
    struct Capture {
        uint64_t ns = 0;
        lum::BodyData body;
    };
    struct CameraHistory {
        uint64_t newestNs = 0;  // on the camera's own clock, as are the captures
        std::map<int, std::deque<Capture>> tracks;  // by BodyData::id
        bool clockKnown = false;
        ClockEstimate clock;
        uint64_t roomNewestWhenSeenNs = 0;  // the room's newest common time at its last capture
    };

    std::vector<int> activeCameras() const;
    uint64_t toCommon(const CameraHistory& history, uint64_t ns) const;
    uint64_t toOwn(const CameraHistory& history, uint64_t commonNs) const;
    uint64_t roomNewestNs() const;

    Options options_;
    BodyAssociation association_;
    std::map<int, CameraHistory> cameras_;
};

// The body between two captures of one track, `fraction` of the way from `a` to `b`
// (0..1). Keypoints missing in either capture stay missing; covariances are blended.
lum::BodyData interpolateBody(const lum::BodyData& a, const lum::BodyData& b, double fraction);

}  // namespace calib
