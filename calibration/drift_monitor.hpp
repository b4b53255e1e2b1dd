// Watches a calibrated room for a camera that moves: keeps aligning each camera's joints
// with the other cameras' over a sliding window of the data's own time, and warns when a
// camera's alignment walks away from where it settled after the calibration.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <vector>

#include <Eigen/Geometry>

#include "lum/records.hpp"

struct DriftSettings {
    double settleSeconds = 30.0;  // the first alignment, what the room looks like calibrated
    double windowSeconds = 12.0;  // joints older than this leave the alignment
    double stepSeconds = 1.0;     // one alignment per camera per step
    // How far the camera's joints land from where they landed when it settled. A knock of
    // 2 degrees moves joints four metres away by 14 cm, one of 5 cm by 5 cm; an undisturbed
    // camera's joints wander far less as people walk between views.
    double warnJointShiftMm = 30.0;
    // A camera is named once it has stayed over the line for a whole window: then the
    // window holds only what it sees since it moved, and the figures are its own.
    int minimumJoints = 150;  // joint pairs a camera needs in the window to be judged
    // Which body is whom is told in the room frame: two cameras' bodies are one person when
    // their joints lie this close on average (metres) and every other body of either camera
    // is clearly further. Wide enough for a knocked camera's bodies to stay paired (2 degrees
    // move joints four metres away by 14 cm), so that it can still be judged.
    double pairGateM = 0.5;
    double pairMarginM = 0.3;
};

// Every camera's bodies at one instant, in the room frame (mapped through the calibration).
using RoomBodies = std::map<int, std::vector<lum::BodyData>>;

struct DriftChange {
    double rotationDeg = 0;   // how far it turned since it settled
    double shiftMm = 0;       // how far its centre moved
    double jointShiftMm = 0;  // how far its joints moved, where they are
};

struct DriftWarning {
    int camera = 0;
    double rotationDeg = 0;   // how far it turned since it settled
    double jointShiftMm = 0;  // how far its joints moved, where people were seen
    double atSeconds = 0;    // data time of the warning, from the first frame
};

class DriftMonitor {
public:
    // cameraCentres: where each camera stands in the room frame (the calibration's poses);
    // a camera without one has its shift measured where its joints are.
    explicit DriftMonitor(std::map<int, Eigen::Vector3d> cameraCentres = {}, DriftSettings settings = DriftSettings());

    // One instant: every body each camera sees. Only bodies that the calibration puts on one
    // person are compared. Returns the warnings this instant raised (each camera warns once
    // until reset()).
    std::vector<DriftWarning> addFrame(uint64_t timestampNs, const RoomBodies& roomBodies);
    // Forgets what it learned: after a new calibration, the room settles anew.
    void reset();

    // The latest change of each judged camera since it settled (rotation deg, shift mm).
    std::map<int, DriftChange> latestChange() const { return latest_; }

private:
    using Person = std::map<int, std::vector<Eigen::Vector3d>>;  // camera to its joints, NaN where not seen
    struct Frame {
        uint64_t timestampNs;
        std::vector<Person> people;  // each seen by two cameras or more
    };
    std::vector<Person> peopleOf(const RoomBodies& roomBodies) const;
    void evaluate(uint64_t nowNs, std::vector<DriftWarning>& warnings);
    // The rigid motion taking the camera's joints onto the others', and where its joints are.
    std::optional<std::pair<Eigen::Isometry3d, Eigen::Vector3d>> alignment(int camera) const;

    std::map<int, Eigen::Vector3d> centres_;
    DriftSettings settings_;
    std::deque<Frame> window_;
    uint64_t firstNs_ = 0;
    uint64_t nextStepNs_ = 0;
    std::map<int, Eigen::Isometry3d> settled_;
    std::map<int, DriftChange> latest_;
    int candidate_ = 0;
    uint64_t candidateSinceNs_ = 0;
    std::map<int, bool> warned_;
};
