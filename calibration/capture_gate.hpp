// Where a camera's captures enter the pipeline: stamps far from the other cameras' clocks,
// repeated body ids and impossible body counts are stopped here, with the camera named.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "calibration/body_association.hpp"
#include "calibration/keypoint_filter.hpp"
#include "lum/records.hpp"

namespace calib {

// Something a camera did that the user should hear about, when it happened (pipeline time).
struct CameraNotice {
    int camera = 0;
    int64_t atNs = 0;
    double secondsIntoRun = 0;
    std::string text;  // "camera 41003: its clock is 2.00 s ahead of the others' ..."
};

class CaptureGate {
public:
    struct Options {
        // A capture stamped further than this from the room's clock cannot be brought to a
        // common instant with the others' (the assembler keeps half a second of history).
        int64_t maxClockSkewNs = 500'000'000;
        // Cameras that sent a capture this recently (pipeline time) vote on the room's clock.
        int64_t voterWindowNs = 1'000'000'000;
        // A camera that sent nothing for this long while others kept sending has gone quiet.
        int64_t quietNs = 2'000'000'000;
        int maxBodies = kMaxBodiesPerCapture;
    };

    CaptureGate() : CaptureGate(Options()) {}
    explicit CaptureGate(Options options);

    // Screens one set of captures at pipeline time `nowNs`, by camera. A capture held apart
    // or refused loses is_new (nothing downstream takes it); bodies sharing an id within a
    // capture are removed. Returns what this set gave the user to hear.
    std::vector<CameraNotice> screen(std::map<int, lum::Bodies*>& captures, int64_t nowNs);

    // Blanks the keypoints no solve should see, counted for `camera`. Only for bodies in the
    // camera's own frame (distances are from the camera).
    void screenKeypoints(int camera, lum::Bodies& bodies);

    // A camera's clock estimated from the walk (its clock minus a reference camera's, which
    // need not be in step itself). A camera held apart for its clock is taken back while
    // its stamp less `offsetNs` agrees with the in-step cameras' stamps less theirs; its
    // stamps pass on as stamped, for whatever places captures by that clock downstream.
    void setClockOffset(int camera, int64_t offsetNs);
    // Whether the camera's last capture agreed with the room's clock as stamped: only such
    // captures may move a clock driven by capture times. A camera taken back does not.
    bool onRoomClock(int camera) const;

    // What went wrong with a camera, worst first ("its clock is 2.00 s ahead of the
    // others'"); empty when nothing did.
    std::string trouble(int camera) const;
    const std::map<int, KeypointDrops>& keypointDrops() const { return drops_; }

    void clear();

private:
    struct Camera {
        uint64_t stampNs = 0;      // newest stamp, offset applied
        int64_t lastSeenNs = -1;   // pipeline time of the newest capture
        double skewS = 0;          // stamp minus the room's, when last held apart
        bool apart = false;
        bool inStep = false;
        bool takenBack = false;    // off the room's clock as stamped, by as much as its offset says
        bool everApart = false;
        bool quiet = false;
        int64_t quietSinceNs = 0;
        int mostBodies = 0;        // in one refused capture
        bool repeatedIds = false;
    };

    // The cameras whose clocks agree with most others', and the room's stamp among them.
    uint64_t roomStamp(int64_t nowNs, std::map<int, bool>& inStep) const;
    // Whether the camera's offset explains its skew: false when it, or every in-step camera,
    // has no offset yet.
    bool offsetExplains(int camera, const std::map<int, bool>& inStep) const;
    void watchQuiet(const std::map<int, lum::Bodies*>& captures, int64_t nowNs, std::vector<CameraNotice>& notices);
    CameraNotice notice(int camera, int64_t nowNs, std::string text) const;

    Options options_;
    std::map<int, Camera> cameras_;
    std::map<int, int64_t> offsets_;
    std::map<int, KeypointDrops> drops_;
    int64_t firstNs_ = -1;
};

}  // namespace calib
