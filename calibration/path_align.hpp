// Rigid transform between two cameras that moved together, from their odometry paths:
// the hand-eye problem A X = X B over matched relative motions, solved with Ceres.
#pragma once

#include <map>

#include <Eigen/Core>
#include <ceres/ceres.h>
#include <ceres/rotation.h>

#include "lum/math.hpp"

// One matched pair of relative motions of the two paths.
struct OptimData {
    Eigen::Matrix4d motionA;
    Eigen::Matrix4d motionB;
};

// Residual of A X = X B for one OptimData: translation of E = X B X^-1 A^-1, then twice
// the angle-axis of its rotation (rotation weighted against translation).
struct PoseGraph3dErrorTerm {
    OptimData data;

    explicit PoseGraph3dErrorTerm(const OptimData& d) : data(d) {}

    template <typename T>
    bool operator()(const T* translation, const T* rotation, T* residual) const {
        Eigen::Matrix<T, 3, 3> r;  // column-major, as Ceres writes it
        ceres::AngleAxisToRotationMatrix(rotation, r.data());
        Eigen::Matrix<T, 4, 4> x = Eigen::Matrix<T, 4, 4>::Identity();
        x.template topLeftCorner<3, 3>() = r;
        x.template topRightCorner<3, 1>() << translation[0], translation[1], translation[2];
        const Eigen::Matrix<T, 4, 4> e =
            x * data.motionB.cast<T>() * x.inverse() * data.motionA.cast<T>().inverse();
        residual[0] = e(0, 3);
        residual[1] = e(1, 3);
        residual[2] = e(2, 3);
        const Eigen::Matrix<T, 3, 3> er = e.template topLeftCorner<3, 3>();
        T quaternion[4];
        T angleAxis[3];
        ceres::RotationMatrixToQuaternion(er.data(), quaternion);
        ceres::QuaternionToAngleAxis(quaternion, angleAxis);
        residual[3] = T(2) * angleAxis[0];
        residual[4] = T(2) * angleAxis[1];
        residual[5] = T(2) * angleAxis[2];
        return true;
    }
};

// The first key of path within [ts - 8, ts + 8), earliest first.
bool findClosest(unsigned long ts, std::map<unsigned long, lum::Transform>& path, unsigned long& found);

// X with pathA motions = X pathB motions X^-1; result is written only when usable.
// Both paths must hold at least one pose.
bool AlignPath(std::map<unsigned long, lum::Transform>& pathA, std::map<unsigned long, lum::Transform>& pathB,
               lum::Transform& result);
