// Extrinsic calibration of all cameras of a room from skeleton keypoints that pairs of
// cameras see in the same frame: one rigid pose per camera, smallest identifier fixed.
#pragma once

#include <map>
#include <memory>

#include <Eigen/Core>
#include <ceres/ceres.h>

#include "calibration/keypoint_filter.hpp"
#include "calibration/refined_solver.hpp"
#include "lum/records.hpp"

namespace lum {

// Residual of one joint seen by cameras A and B: B's keypoint carried into A's frame,
// compared with A's keypoint, optionally weighted.
struct KeypointPairCameraProjectionCostFunction {
    double pointA[4];
    double pointB[4];
    Eigen::Matrix3d weight;  // column-major
    std::shared_ptr<bool> useWeight;

    KeypointPairCameraProjectionCostFunction(const Eigen::Vector3d& a, const Eigen::Vector3d& b,
                                             const Eigen::Matrix3d& w, std::shared_ptr<bool> flag)
        : pointA{a.x(), a.y(), a.z(), 1.0}, pointB{b.x(), b.y(), b.z(), 1.0}, weight(w),
          useWeight(std::move(flag)) {}

    template <typename T>
    static Eigen::Matrix<T, 4, 4> toMatrix(const T* q, const T* t) {
        Eigen::Matrix<T, 4, 4> m = Eigen::Matrix<T, 4, 4>::Identity();
        m.template topLeftCorner<3, 3>() =
            Eigen::Quaternion<T>(q[3], q[0], q[1], q[2]).toRotationMatrix();
        m.template topRightCorner<3, 1>() << t[0], t[1], t[2];
        return m;
    }

    template <typename T>
    bool operator()(const T* qA, const T* tA, const T* qB, const T* tB, T* residual) const {
        const Eigen::Matrix<T, 4, 4> toA = toMatrix(qA, tA).inverse() * toMatrix(qB, tB);
        const Eigen::Matrix<T, 4, 1> v = toA * Eigen::Matrix<double, 4, 1>(pointB).cast<T>();
        Eigen::Matrix<T, 3, 1> r;
        r << T(pointA[0]) - v(0), T(pointA[1]) - v(1), T(pointA[2]) - v(2);
        if (*useWeight) r = weight.cast<T>() * r;
        residual[0] = r(0);
        residual[1] = r(1);
        residual[2] = r(2);
        return true;
    }
};

}  // namespace lum

namespace calib {
struct SolveRecord;
}

// A flag shared by the residual functors of one problem. A copy of its owner gets a flag
// of its own (same value), so a copy can be solved on another thread while the original
// keeps collecting.
struct OwnedFlag : std::shared_ptr<bool> {
    OwnedFlag() : std::shared_ptr<bool>(std::make_shared<bool>(false)) {}
    OwnedFlag(const OwnedFlag& other) : std::shared_ptr<bool>(std::make_shared<bool>(*other)) {}
    OwnedFlag& operator=(const OwnedFlag& other) {
        std::shared_ptr<bool>::operator=(std::make_shared<bool>(*other));
        return *this;
    }
};

class SkeletonMulticameraCalibration {
public:
    struct PoseStruct {
        double q[4] = {0.0, 0.0, 0.0, 1.0};  // x, y, z, w
        double t[3] = {0.0, 0.0, 0.0};
    };

    std::map<lum::Timestamp, std::map<int, lum::BodyData>> frames;
    std::map<int, bool> cameraSeen;
    std::map<int, lum::Transform> calibratedPoses;
    std::map<int, PoseStruct> poses;
    int bodyFormat = -1;  // set by the owner before the first calibration; -1: unknown, no floor
    lum::Timestamp lastTimestamp = 0;
    bool isCollecting = false;
    int framesAtLastCalibration = 0;
    // Read by every residual functor of a Classic problem.
    OwnedFlag weightByCovariance;

    // The literal formulation (one automatically differentiated block per keypoint pair)
    // is kept as the yardstick the fast one is checked and measured against.
    enum class Solver { Fast, Reference };
    Solver solver = Solver::Fast;

    // Classic: poses only, residuals in camera A's frame, only the floor height corrected.
    // Refined: poses and each camera's depth bias, joints compared in the world with both
    // covariances, and a level world frame; its stored frames are never rewritten.
    enum class Model { Classic, Refined };
    Model model = Model::Classic;
    calib::RefinedOptions refined;
    // Iterations one Classic solve (and Refined's cold start) may take. A live room keeps
    // the default; a caller that only needs the paths walked, not converged, lowers it.
    int maxIterations = 50;
    bool levelFloor = true;  // Refined: level world frame (else the reference camera's own)
    std::map<int, double> biases;  // Refined: metres toward each camera along its rays
    int keypointsLeftOut = 0;      // Refined: joints left out of the last solve (unusable covariance)

    // What the last solve saw and produced, for makeCalibrationReport(); immutable and
    // shared between copies.
    std::shared_ptr<const calib::SolveRecord> lastSolve;
    // Keypoints addSkeletonData refused, by reason, since this store was made.
    calib::KeypointDrops droppedKeypoints;

    void addSkeletonData(lum::Timestamp ts, std::map<int, lum::BodyData>& bodies);
    bool calibrate();

private:
    bool calibrateClassic();
    bool calibrateRefined();
};

ceres::CostFunction* createResidualBlock(Eigen::Vector3d& pointA, Eigen::Vector3d& pointB,
                                         Eigen::Matrix3d& weight, std::shared_ptr<bool>& useWeight);
ceres::LossFunction* getLoss();
ceres::Solver::Options getSolverOptions(int maxIterations);
