// The refined skeleton calibration: camera poses and each camera's depth bias along its
// viewing rays, joints compared in the world with weights from both cameras' covariances.
#pragma once

#include <map>
#include <memory>
#include <vector>

#include <Eigen/Core>
#include <ceres/ceres.h>

#include "calibration/keypoint_pairs.hpp"

namespace calib {

struct RefinedOptions {
    bool estimateBias = true;
    // Trackers report joints on the visible surface, a few centimetres in front of the
    // joint centre; further than this either way is not a bias but a broken camera.
    double minBias = -0.02;
    double maxBias = 0.10;
    // Spread of the joint definition itself between two views (metres), added to every
    // camera's reported covariance: two trackers never agree on a joint closer than this.
    double jointSigma = 0.01;
    // Residuals beyond this many standard deviations count linearly (Huber).
    double huberSigmas = 2.5;
    // Heights above the floor of a planted foot's keypoints: a mid adult stature (1.70 m)
    // times the anatomical fraction, 0.039 for the ankle joint centre (docs/calibration.md)
    // and about 0.01 for the heel and toe keypoints, which mark the heel's back and the toes.
    double ankleHeight = 0.066;
    double soleHeight = 0.017;
    // Iterations each reweighting round may take.
    int maxIterations = 20;
    // A camera pair's sums taken at poses this close (position and bias in metres, turn in
    // radians) stand for sums at the poses asked for: a weight changes by about the turn
    // times the covariance's elongation, and the residual's Huber weight by the shift over
    // a joint's sigma (1-3 cm), both a few parts in ten thousand. Zero sums every solve anew.
    double keepSumsShift = 5e-4;
    double keepSumsTurn = 1e-4;
};

// One joint seen by two cameras at the same instant, each in its own frame.
struct JointPair {
    Eigen::Vector3d a = Eigen::Vector3d::Zero(), b = Eigen::Vector3d::Zero();
    // Where a depth bias moves them: through each joint as seen, until reweight() sets the agreed rays.
    Eigen::Vector3d rayA = Eigen::Vector3d::Zero(), rayB = Eigen::Vector3d::Zero();
    Eigen::Matrix3d covarianceA = Eigen::Matrix3d::Zero(), covarianceB = Eigen::Matrix3d::Zero();
    int keypoint = -1;
};

// Every joint two cameras share in one frame, with the square-root weights of this round.
struct FramePair {
    int cameraA = 0, cameraB = 0;
    std::vector<JointPair> joints;
    std::vector<Eigen::Matrix3d> weights;  // W with W^T W = information of the difference; set by reweight()
};

// Frame pairs read in order from one or more parts that outlive the list (a store's
// chunks, each collected once), so a solve never copies them.
class FramePairList {
public:
    FramePairList() = default;
    // Implicit: one vector is a list of one part.
    FramePairList(const std::vector<FramePair>& pairs) { append(pairs); }  // NOLINT(google-explicit-constructor)
    void append(const std::vector<FramePair>& part);
    // Holds what parts of this list live in, for a list that made its own.
    void keep(std::shared_ptr<const void> owner) { owners_.push_back(std::move(owner)); }
    size_t size() const { return size_; }
    const FramePair& operator[](size_t i) const;

private:
    std::vector<const std::vector<FramePair>*> parts_;
    std::vector<size_t> starts_;
    size_t size_ = 0;
    std::vector<std::shared_ptr<const void>> owners_;
};

// Every frame's joint pairs (each unordered camera pair once); joints with an unusable
// covariance are left out and counted.
std::vector<FramePair> collectFramePairs(const Frames& frames, int* dropped = nullptr);


struct CameraUnknowns {
    double q[4] = {0, 0, 0, 1};  // x, y, z, w: camera to reference
    double t[3] = {0, 0, 0};
    double bias = 0;  // metres toward the camera
};

// r = W ((RA (a + bA rayA) + tA) - (RB (b + bB rayB) + tB)) over every joint of one frame
// pair; parameter blocks qA, tA, bA, qB, tB, bB, analytic Jacobians. The solves sum the
// same residuals per camera pair; this literal form is what those sums are checked against.
class FramePairCost : public ceres::CostFunction {
public:
    explicit FramePairCost(const FramePair& pair);
    bool Evaluate(double const* const* parameters, double* residuals, double** jacobians) const override;

private:
    const FramePair& pair_;
};

// What the solves need of one joint at the given unknowns: the information of the two
// views' difference (both covariances turned into the world) times the Huber weight of
// its residual, and the rays a depth bias moves the two views along, through
// the point both views agree on (each weighed by the other's covariance). A ray through
// the joint as one camera saw it carries that camera's pixel noise, which the residual
// carries too, and a pull common to every camera (nearly a change of the room's scale)
// took up their product: the solve shrank the room. The agreed point's error is
// uncorrelated with the views' difference.
struct JointTerms {
    Eigen::Matrix3d information = Eigen::Matrix3d::Zero();
    Eigen::Vector3d rayA = Eigen::Vector3d::Zero(), rayB = Eigen::Vector3d::Zero();
};
JointTerms jointTerms(const JointPair& joint, const Eigen::Matrix3d& rA, const Eigen::Vector3d& tA, double bA,
                      const Eigen::Matrix3d& rB, const Eigen::Vector3d& tB, double bB, const RefinedOptions& options);

// Sets every joint's weight W (W^T W = jointTerms' information) and bias rays at the given unknowns.
void reweight(std::vector<FramePair>& pairs, const std::map<int, CameraUnknowns>& cameras,
              const RefinedOptions& options);

// The solves sum their pairs on two threads, split the same way on any machine.
constexpr int kSolveThreads = 2;

struct MomentPart;

// Plain least squares of the joints' distances, biases held: what finds the basin for a
// first solve from nowhere. False when the solve gave no usable result.
bool solveLeastSquares(const FramePairList& pairs, std::map<int, CameraUnknowns>& cameras, int reference,
                       int maxIterations);
bool solveLeastSquares(const std::vector<MomentPart>& parts, std::map<int, CameraUnknowns>& cameras, int reference,
                       int maxIterations);

// Solves poses (and biases) from the current unknowns, which should already be close, on
// the frame pairs [begin, end): reweighting rounds, each a plain least-squares solve. The
// camera `reference` keeps its pose. False when a solve gave no usable result.
bool solveRefined(const FramePairList& pairs, size_t begin, size_t end,
                  std::map<int, CameraUnknowns>& cameras, int reference, const RefinedOptions& options, int rounds);
bool solveRefined(const FramePairList& pairs, std::map<int, CameraUnknowns>& cameras, int reference,
                  const RefinedOptions& options, int rounds);
// The same over parts whose sums may be kept between solves (see MomentCache).
bool solveRefined(const std::vector<MomentPart>& parts, std::map<int, CameraUnknowns>& cameras, int reference,
                  const RefinedOptions& options, int rounds);

}  // namespace calib
