// Extrinsic calibration of all cameras of a room from skeleton keypoints that pairs of
// cameras see in the same frame: one rigid pose per camera, smallest identifier fixed.
#pragma once

#include <map>
#include <memory>

#include <Eigen/Core>
#include <ceres/ceres.h>

#include "calibration/calibration_options.hpp"
#include "calibration/frame_store.hpp"
#include "calibration/solver_state.hpp"
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

// One skeleton calibration: how it solves, the frames it collected and what its solves
// carry forward, as three separate parts. Starting a calibration anew means a new
// `frames` and a new `state`; only the options outlive it.
class SkeletonMulticameraCalibration {
public:
    using PoseStruct = calib::PoseStruct;
    using Model = calib::CalibrationOptions::Model;
    using Solver = calib::CalibrationOptions::Solver;

    calib::CalibrationOptions options;
    calib::FrameStore frames;
    calib::SolverState state;

    // Solves from `state` with every stored frame; false when the solve was not usable.
    bool calibrate();

private:
    bool calibrateClassic();
    bool calibrateRefined();
};

ceres::CostFunction* createResidualBlock(Eigen::Vector3d& pointA, Eigen::Vector3d& pointB,
                                         Eigen::Matrix3d& weight, std::shared_ptr<bool>& useWeight);
ceres::LossFunction* getLoss();
ceres::Solver::Options getSolverOptions(int maxIterations);
