// Plane fit by principal component analysis: the normal is the direction of least
// spread of the points about their mean.
#include "lum/plane.hpp"

#include <Eigen/Eigenvalues>

namespace plane {

void compute_pca(const std::vector<lum::Vector3f>& points, lum::Vector3f& first, lum::Vector3f& second,
                 lum::Vector3f& third) {
    first = second = third = lum::Vector3f();
    if (points.empty()) return;

    // Double precision: points a few metres from the origin would otherwise lose the
    // millimetre spread that decides the normal.
    Eigen::Vector3d mean = Eigen::Vector3d::Zero();
    for (const auto& p : points) mean += Eigen::Vector3d(p.x, p.y, p.z);
    mean /= double(points.size());

    Eigen::Matrix3d covariance = Eigen::Matrix3d::Zero();
    for (const auto& p : points) {
        const Eigen::Vector3d d = Eigen::Vector3d(p.x, p.y, p.z) - mean;
        covariance += d * d.transpose();
    }
    covariance /= double(points.size());

    // Eigenvalues come out ascending; the first eigenvector is the normal.
    const Eigen::SelfAdjointEigenSolver<Eigen::Matrix3d> solver(covariance);
    const Eigen::Vector3d normal = solver.eigenvectors().col(0).normalized();
    const Eigen::Vector3d values = solver.eigenvalues();

    first = {float(normal.x()), float(normal.y()), float(normal.z())};
    second = {float(mean.x()), float(mean.y()), float(mean.z())};
    third = {float(values.x()), float(values.y()), float(values.z())};
}

}  // namespace plane
