// Where a camera stands before any solve has placed it: the rigid fit of its joints onto a
// neighbour's, trusted only when it holds all over the walk and around camera triangles.
#pragma once

#include <map>
#include <string>

#include <Eigen/Geometry>

#include "calibration/keypoint_pairs.hpp"

namespace calib {

struct ConsensusOptions {
    int minInstants = 12;           // frames two cameras must share before their fit is judged
    int minJoints = 6;              // joints both bodies report, for an instant to count
    double gate = 0.2;              // metres, mean joint distance of an instant that agrees with the fit
    double minInlierShare = 0.8;    // instants that must agree with the fit
    int stretches = 3;              // parts of the walk, by place, each fitted on its own
    double maxStretchRotationDeg = 8.0;  // how far a part's fit may turn from the whole walk's
    double maxStretchShift = 0.2;   // metres, how far a part's fit may move the walked places
    // Metres (standard deviation of where the instants were) across the main direction of
    // the walk: one straight line leaves the turn about that line to the trackers' noise.
    double minSpread = 0.15;
    double maxLoopRotationDeg = 5.0;  // two routes to one camera must agree this well
    double maxLoopShift = 0.2;        // metres, at the places the camera saw people
};

// The rigid transform carrying camera B's joints onto camera A's, from every frame the two
// share, and whether it can be trusted.
struct PairFit {
    Eigen::Isometry3d bToA = Eigen::Isometry3d::Identity();
    int instants = 0;
    int inliers = 0;
    bool trusted = false;
    std::string problem;  // why it is not trusted
    Eigen::Vector3d walkedCentre = Eigen::Vector3d::Zero();  // mean of the instants' centres, in A's frame
    Eigen::Matrix3d walkedSpread = Eigen::Matrix3d::Zero();  // their covariance, in A's frame
};

PairFit fitCameraPair(const Frames& frames, int cameraA, int cameraB, const ConsensusOptions& options);

struct ConsensusSeeds {
    std::map<int, Eigen::Isometry3d> seeds;   // camera to the placed cameras' frame
    std::map<int, std::string> waiting;       // cameras sharing joints yet left unplaced, with the reason
};

// Seeds every camera of `frames` that `placed` (camera to reference) lacks, one at a time
// from the placed camera it shares most with; a camera reachable two ways must land in the
// same place both ways. With nothing placed, the largest group of cameras joined by trusted
// fits starts, from its smallest camera.
ConsensusSeeds seedCameras(const Frames& frames, const std::map<int, Eigen::Isometry3d>& placed,
                           const ConsensusOptions& options);

}  // namespace calib
