// Pose errors between a found pose and the truth, in the units the tests state limits in.
#include "testing/pose_error.hpp"

#include <cmath>

namespace synthetic {

Eigen::Isometry3d toIsometry(const SkeletonMulticameraCalibration::PoseStruct& pose) {
    Eigen::Isometry3d t = Eigen::Isometry3d::Identity();
    t.linear() = Eigen::Quaterniond(pose.q[3], pose.q[0], pose.q[1], pose.q[2]).toRotationMatrix();
    t.translation() << pose.t[0], pose.t[1], pose.t[2];
    return t;
}

Eigen::Isometry3d toIsometry(const lum::Transform& pose) {
    Eigen::Isometry3d t = Eigen::Isometry3d::Identity();
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 3; ++c) t.linear()(r, c) = pose(r, c);
        t.translation()(r) = pose(r, 3);
    }
    return t;
}

std::pair<double, double> poseError(const Eigen::Isometry3d& a, const Eigen::Isometry3d& b) {
    const Eigen::Isometry3d d = a.inverse() * b;
    return {Eigen::AngleAxisd(d.linear()).angle() * 180.0 / M_PI, 1000.0 * d.translation().norm()};
}

std::pair<double, double> poseError(const lum::Transform& a, const lum::Transform& b) {
    return poseError(toIsometry(a), toIsometry(b));
}

lum::Transform relativePose(const lum::Transform& reference, const lum::Transform& camera) {
    return lum::Transform::inverse(reference) * camera;
}

}  // namespace synthetic
