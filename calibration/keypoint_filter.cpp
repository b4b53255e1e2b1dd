// Keypoint screening for the skeleton calibration: finiteness, covariance, distance.
#include "calibration/keypoint_filter.hpp"

#include <cmath>
#include <limits>

#include <Eigen/Eigenvalues>

namespace calib {
namespace {

enum class Verdict { Keep, Blank, NonFinite, BadCovariance, Implausible };

Verdict judge(const lum::BodyData& body, size_t k) {
    const lum::Vector3f& p = body.keypoint[k];
    const bool nanX = std::isnan(p.x), finite = std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
    if (nanX && std::isnan(p.y) && std::isnan(p.z)) return Verdict::Blank;
    if (!finite) return Verdict::NonFinite;
    const double distance = Eigen::Vector3d(p.x, p.y, p.z).norm();
    if (!(distance <= kMaxKeypointDistance)) return Verdict::Implausible;
    // A keypoint without a covariance is weighted by the identity, which is harmless.
    if (k >= body.keypoint_covariances.size()) return Verdict::Keep;
    const std::array<float, 6>& c = body.keypoint_covariances[k];
    for (float v : c)
        if (!std::isfinite(v)) return Verdict::BadCovariance;
    Eigen::Matrix3d covariance;
    covariance << c[0], c[1], c[2], c[1], c[3], c[4], c[2], c[4], c[5];
    const Eigen::SelfAdjointEigenSolver<Eigen::Matrix3d> eigen(covariance, Eigen::EigenvaluesOnly);
    if (eigen.info() != Eigen::Success) return Verdict::BadCovariance;
    // Rounding leaves a singular matrix with large entries a small positive eigenvalue, so
    // the spread of the eigenvalues is bounded too: within it the weight always exists.
    const double smallest = eigen.eigenvalues().minCoeff(), largest = eigen.eigenvalues().maxCoeff();
    if (!(smallest >= kMinKeypointVariance) || !(smallest >= largest * kMinVarianceRatio))
        return Verdict::BadCovariance;
    return Verdict::Keep;
}

}  // namespace

std::string KeypointDrops::describe() const {
    std::string text;
    auto add = [&text](long long count, const std::string& why) {
        if (count == 0) return;
        if (!text.empty()) text += ", ";
        text += std::to_string(count) + " " + why;
    };
    add(nonFinite, "with a non-finite coordinate");
    add(badCovariance, "with an unusable covariance (zero, non-finite or not positive definite)");
    add(implausible, "beyond " + std::to_string(int(kMaxKeypointDistance)) + " m of their camera");
    return text;
}

void dropUnusableKeypoints(lum::BodyData& body, KeypointDrops& drops) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    for (size_t k = 0; k < body.keypoint.size(); ++k) {
        switch (judge(body, k)) {
        case Verdict::Keep:
        case Verdict::Blank: continue;
        case Verdict::NonFinite: ++drops.nonFinite; break;
        case Verdict::BadCovariance: ++drops.badCovariance; break;
        case Verdict::Implausible: ++drops.implausible; break;
        }
        body.keypoint[k] = lum::Vector3f(nan, nan, nan);
    }
}

}  // namespace calib
