// Which body is which across cameras when several people are in the room: pairings of
// camera tracks confirmed without poses, then kept and extended through the calibration.
#pragma once

#include <deque>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <Eigen/Core>
#include <Eigen/Geometry>

#include "lum/records.hpp"

namespace calib {

// More people than one camera sees in any room a calibration is walked in.
constexpr int kMaxBodiesPerCapture = 10;

// Every camera's bodies at one instant, by camera identifier.
using SeenBodies = std::map<int, std::vector<lum::BodyData>>;
// One person as several cameras see it: camera identifier to that camera's body.
using PersonFrame = std::map<int, lum::BodyData>;

// One camera at the last instant: how many people it sees and whether one of its bodies
// went into a frame.
struct CameraPeople {
    int camera = 0;
    int people = 0;
    bool used = false;
};

// "41001: 2 people, used; 41003: nobody; 41004: 1 person, not paired yet"
std::string describe(const std::vector<CameraPeople>& cameras);

// Pairs the tracks of two cameras by what does not depend on where the cameras stand:
// one rigid transform must carry one camera's track onto the other's at every instant
// (which also means equal bone lengths and height). A pairing is only let through once
// that transform holds over a long, moving stretch and no rival pairing fits nearly as
// well. Once a camera pair's transform is known (from a confirmed pairing or from the
// calibration's poses), further tracks are paired through it, which is what keeps frames
// coming as people cross, stand still, or leave and come back under a new track.
class BodyAssociator {
public:
    struct Options {
        int minSamples = 12;             // instants two tracks are seen together before a pose-free pairing
        double minTravel = 1.0;          // metres the person must cover in those instants
        double maxFitRms = 0.12;         // metres, residual of the rigid fit over all instants
        double maxShapeDifference = 0.06;  // metres, median difference of the joint-to-joint distances
        double rivalRatio = 2.5;         // a rival pairing must fit at least this much worse
        int historySamples = 40;         // instants kept per candidate pairing
        double gate = 0.2;               // metres, mean joint distance through a known transform
        double margin = 0.3;             // metres, the next body must be at least this far off
        int agreementsToConfirm = 3;     // instants of unambiguous agreement through a transform
        int missesToDrop = 2;            // instants in a row outside the gate before a pairing goes
        int minJoints = 6;               // joints two bodies must share to be compared
        // A camera with more bodies at one instant is left out of it: every body of a camera
        // is compared with every body of each other camera, so this caps the work and memory.
        int maxBodies = kMaxBodiesPerCapture;
    };

    // A camera's track: camera identifier and the camera's own body id.
    using TrackKey = std::pair<int, int>;
    using LinkKey = std::pair<TrackKey, TrackKey>;  // lower camera identifier first

    BodyAssociator() : BodyAssociator(Options()) {}
    explicit BodyAssociator(Options options);

    // Camera-to-world poses of the current calibration; pairs of cameras that both have a
    // pose are associated through them instead of through their pose-free transform.
    void setPoses(const std::map<int, lum::Transform>& cameraToWorld);

    // One instant; returns one frame per person that two or more cameras see through
    // confirmed pairings.
    std::vector<PersonFrame> associate(const SeenBodies& seen);

    // Earlier instants of pairings confirmed since the last call: the moments that proved
    // a pairing are frames too, so waiting for proof costs no frames.
    std::vector<PersonFrame> takeReleased();

    std::vector<CameraPeople> cameraPeople() const;
    // The person number of every track seen so far, stable from frame to frame.
    const std::map<TrackKey, int>& persons() const { return personOf_; }
    const std::map<LinkKey, int>& links() const { return links_; }  // value: misses in a row

    // Whether a recent track of `camera` fits a track of another posed camera rigidly, as one
    // person does, yet lies outside the gate through the two poses: evidence that one of
    // them is wrong, gathered even while nothing pairs through them.
    bool poseContradicted(int camera) const;

    void clear();
    // Forgets every pairing, candidate and transform of `camera`, whose pose is being found
    // anew: its bodies are paired without poses again.
    void forgetCamera(int camera);

private:
    struct Sample {
        Eigen::Matrix3Xd a, b;  // the shared joints, in each camera's frame
        double shapeDifference = 0;
        long instant = 0;
        lum::BodyData bodyA, bodyB;
    };
    struct Candidate {
        std::deque<Sample> samples;
        long lastInstant = 0;
        long usedUntil = 0;  // instants up to this one already went into frames
        int agreements = 0;
    };
    struct Fit {
        Eigen::Isometry3d bToA = Eigen::Isometry3d::Identity();
        double rms = 1e9;
        double travel = 0;
        double shape = 1e9;
        bool eligible = false;  // enough instants and travel to be judged at all
    };
    using Body = std::pair<TrackKey, const lum::BodyData*>;

    bool transformFor(int cameraA, int cameraB, Eigen::Isometry3d& bToA) const;
    void associatePair(int cameraA, const std::vector<Body>& bodiesA, int cameraB, const std::vector<Body>& bodiesB,
                       std::vector<LinkKey>& valid);
    void confirmWithoutPoses(int cameraA, int cameraB, const std::vector<LinkKey>& present);
    Fit fit(const Candidate& candidate) const;
    bool linked(const TrackKey& track, int otherCamera) const;
    void confirm(const LinkKey& key, const Eigen::Isometry3d& bToA);
    std::vector<PersonFrame> framesOf(const std::vector<Body>& bodies, const std::vector<LinkKey>& valid);

    Options options_;
    long instant_ = 0;
    std::map<int, Eigen::Isometry3d> poses_;
    std::map<std::pair<int, int>, Eigen::Isometry3d> pairTransforms_;  // B to A, from pose-free pairings
    std::map<LinkKey, Candidate> candidates_;
    std::map<LinkKey, int> links_;
    std::map<TrackKey, int> personOf_;
    int nextPerson_ = 0;
    std::map<int, CameraPeople> use_;
    std::vector<PersonFrame> released_;
};

}  // namespace calib
