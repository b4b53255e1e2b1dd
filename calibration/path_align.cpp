// Odometry path alignment: key-pose selection, motion pairing and the hand-eye solve.
// Key poses need a large enough motion; the rotation test counts whole radians on purpose.
#include "calibration/path_align.hpp"

#include <cstdlib>
#include <iostream>
#include <vector>

namespace {

constexpr float kKeyTranslation = 0.75f;
// pi / 3, but compared with each rotation-vector component truncated to whole radians, so a
// turn counts from 2 rad on. Intended: only a clear turn makes a key pose without a move.
constexpr float kKeyRotation = 1.0471976f;
constexpr unsigned long kMatchInterval = 8;

Eigen::Matrix4d toEigen(const lum::Transform& t) {
    Eigen::Matrix4d m;
    for (int row = 0; row < 4; ++row)
        for (int col = 0; col < 4; ++col) m(row, col) = t(row, col);
    return m;
}

bool isKeyMotion(const lum::Transform& rel) {
    const lum::Vector3f rotation = rel.getRotationVector();
    int turned = 0;
    for (int i = 0; i < 3; ++i)
        if (float(std::abs(int(rotation[i]))) > kKeyRotation) ++turned;
    return rel.getTranslation().norm() >= kKeyTranslation || turned > 0;
}

}  // namespace

bool findClosest(unsigned long ts, std::map<unsigned long, lum::Transform>& path, unsigned long& found) {
    for (unsigned long key = ts - kMatchInterval; key < ts + kMatchInterval; ++key) {
        if (path.count(key) == 0) continue;
        found = key;
        return true;
    }
    return false;
}

bool AlignPath(std::map<unsigned long, lum::Transform>& pathA, std::map<unsigned long, lum::Transform>& pathB,
               lum::Transform& result) {
    lum::Transform prevA = pathA.begin()->second;
    lum::Transform prevB = pathB.begin()->second;
    std::vector<OptimData> motions;
    for (const auto& [tsA, poseA] : pathA) {
        if (!isKeyMotion(lum::Transform::inverse(prevA) * poseA)) continue;
        unsigned long tsB = 0;
        if (!findClosest(tsA, pathB, tsB)) continue;
        const lum::Transform& poseB = pathB[tsB];
        motions.push_back({toEigen(lum::Transform::inverse(prevA) * poseA),
                           toEigen(lum::Transform::inverse(prevB) * poseB)});
        prevA = poseA;
        prevB = poseB;
    }
    std::cout << "Number of poses: " << motions.size() << "\n";

    // A deliberate non-zero start: 1 along x, 1 radian about x.
    double translation[3] = {1.0, 0.0, 0.0};
    double rotation[3] = {1.0, 0.0, 0.0};
    ceres::Problem problem;
    for (const OptimData& motion : motions)
        problem.AddResidualBlock(new ceres::AutoDiffCostFunction<PoseGraph3dErrorTerm, 6, 3, 3>(
                                     new PoseGraph3dErrorTerm(motion)),
                                 nullptr, translation, rotation);
    ceres::Solver::Options options;
    options.max_num_iterations = 100;
    options.linear_solver_type = ceres::DENSE_SCHUR;
    options.num_threads = 1;
    options.minimizer_progress_to_stdout = false;
    ceres::Solver::Summary summary;
    ceres::Solve(options, &problem, &summary);
    std::cout << summary.BriefReport() << " : " << summary.final_cost << "\n";
    if (!summary.IsSolutionUsable()) return false;

    double r[9];  // column-major
    ceres::AngleAxisToRotationMatrix(rotation, r);
    lum::Transform x;
    for (int row = 0; row < 3; ++row) {
        for (int col = 0; col < 3; ++col) x(row, col) = float(r[col * 3 + row]);
        x(row, 3) = float(translation[row]);
    }
    result = x;
    return true;
}
