// Robust floor fit over the planted foot of every frame, and the level world frame it gives.
// A swinging foot is never the lower one for long, so each frame's lower ankle is the planted one.
#include "calibration/level_floor.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

#include <Eigen/Eigenvalues>

#include "calibration/body_layout.hpp"

namespace calib {

namespace {

constexpr size_t kMinimumFrames = 20;
// Feet on one line leave the floor free to turn about it: a stride's sway (about 0.1 m
// each side) is too little to hold it, a walk through the room is plenty.
constexpr double kMinimumSpreadM = 0.2;

// The feet's spread along their narrowest direction across `up`, as a standard deviation.
double narrowestSpread(const std::vector<Eigen::Vector3d>& points, const Eigen::Vector3d& up) {
    Eigen::Vector3d centre = Eigen::Vector3d::Zero();
    for (const Eigen::Vector3d& p : points) centre += p;
    centre /= double(points.size());
    const Eigen::Matrix3d across = Eigen::Matrix3d::Identity() - up * up.transpose();
    Eigen::Matrix3d scatter = Eigen::Matrix3d::Zero();
    for (const Eigen::Vector3d& p : points) {
        const Eigen::Vector3d d = across * (p - centre);
        scatter += d * d.transpose();
    }
    // The smallest eigenvalue is `up` itself (zero); the middle one is the narrowest side.
    const Eigen::SelfAdjointEigenSolver<Eigen::Matrix3d> eigen(scatter / double(points.size()));
    return std::sqrt(std::max(0.0, eigen.eigenvalues()[1]));
}

using Role = int (*)(const BodyLayout&);

// A joint of one frame in the reference frame, averaged over the cameras that see it; each
// camera's body is read in the layout it was sent in.
bool fusedJoint(const std::map<int, lum::BodyData>& bodies, const std::map<int, CameraUnknowns>& cameras, Role role,
                Eigen::Vector3d& out) {
    Eigen::Vector3d sum = Eigen::Vector3d::Zero();
    int count = 0;
    for (const auto& [camera, body] : bodies) {
        auto unknowns = cameras.find(camera);
        const BodyLayout* layout = layoutOf(body);
        if (unknowns == cameras.end() || !layout) continue;
        const int k = role(*layout);
        if (k < 0) continue;
        const lum::Vector3f& p = body.keypoint[size_t(k)];
        const Eigen::Vector3d local(p.x, p.y, p.z);
        if (!local.allFinite() || local.norm() < 1e-6) continue;
        const CameraUnknowns& c = unknowns->second;
        const Eigen::Quaterniond q(c.q[3], c.q[0], c.q[1], c.q[2]);
        sum += q * (local + c.bias * local.normalized()) + Eigen::Vector3d(c.t[0], c.t[1], c.t[2]);
        ++count;
    }
    if (count == 0) return false;
    out = sum / count;
    return true;
}

int leftAnkleOf(const BodyLayout& layout) { return layout.ankles[0]; }
int rightAnkleOf(const BodyLayout& layout) { return layout.ankles[1]; }
int neckOf(const BodyLayout& layout) { return layout.neck; }

// Least-squares plane through points (normal oriented along `up`), refitted without the
// points further than three robust standard deviations from it.
bool fitPlane(std::vector<Eigen::Vector3d> points, const Eigen::Vector3d& up, Eigen::Vector3d& centre,
              Eigen::Vector3d& normal, double& rms) {
    for (int round = 0; round < 4; ++round) {
        if (points.size() < kMinimumFrames) return false;
        centre = Eigen::Vector3d::Zero();
        for (const Eigen::Vector3d& p : points) centre += p;
        centre /= double(points.size());
        Eigen::Matrix3d scatter = Eigen::Matrix3d::Zero();
        for (const Eigen::Vector3d& p : points) scatter += (p - centre) * (p - centre).transpose();
        const Eigen::SelfAdjointEigenSolver<Eigen::Matrix3d> eigen(scatter);
        normal = eigen.eigenvectors().col(0);
        if (normal.dot(up) < 0) normal = -normal;
        std::vector<double> distances;
        for (const Eigen::Vector3d& p : points) distances.push_back(std::abs((p - centre).dot(normal)));
        std::vector<double> sorted = distances;
        std::nth_element(sorted.begin(), sorted.begin() + sorted.size() / 2, sorted.end());
        const double limit = std::max(0.005, 3.0 * 1.4826 * sorted[sorted.size() / 2]);
        std::vector<Eigen::Vector3d> kept;
        rms = 0;
        for (size_t i = 0; i < points.size(); ++i) {
            if (distances[i] > limit) continue;
            kept.push_back(points[i]);
            rms += distances[i] * distances[i];
        }
        rms = kept.empty() ? 0 : std::sqrt(rms / double(kept.size()));
        if (kept.size() == points.size()) break;
        points = std::move(kept);
    }
    return true;
}

}  // namespace

FloorFit levelFloor(const Frames& frames, const std::map<int, CameraUnknowns>& cameras, int reference,
                    double ankleHeight) {
    FloorFit fit;
    auto referenceUnknowns = cameras.find(reference);
    if (referenceUnknowns == cameras.end()) return fit;

    struct Sample {
        Eigen::Vector3d left, right;
    };
    std::vector<Sample> samples;
    Eigen::Vector3d up = Eigen::Vector3d::Zero();
    for (const auto& [ts, bodies] : frames) {
        Sample s;
        Eigen::Vector3d neck;
        if (!fusedJoint(bodies, cameras, leftAnkleOf, s.left) || !fusedJoint(bodies, cameras, rightAnkleOf, s.right) ||
            !fusedJoint(bodies, cameras, neckOf, neck))
            continue;
        // People stand upright: over a walk, ankles to neck averages to the vertical.
        up += (neck - 0.5 * (s.left + s.right)).normalized();
        samples.push_back(s);
    }
    if (samples.size() < kMinimumFrames) return fit;
    up.normalize();

    std::vector<Eigen::Vector3d> planted;
    for (const Sample& s : samples) planted.push_back(s.left.dot(up) < s.right.dot(up) ? s.left : s.right);
    const double spread = narrowestSpread(planted, up);
    if (spread < kMinimumSpreadM) {
        char text[160];
        std::snprintf(text, sizeof text,
                      "the feet stayed on one spot or one line (%.2f m across); the floor is left unlevelled", spread);
        fit.refused = text;
        return fit;
    }
    Eigen::Vector3d centre, normal;
    double rms = 0;
    if (!fitPlane(planted, up, centre, normal, rms)) return fit;

    const CameraUnknowns& ref = referenceUnknowns->second;
    const Eigen::Quaterniond q(ref.q[3], ref.q[0], ref.q[1], ref.q[2]);
    const Eigen::Vector3d camera(ref.t[0], ref.t[1], ref.t[2]);
    const Eigen::Vector3d floorPoint = centre - ankleHeight * normal;
    const Eigen::Vector3d origin = camera - (camera - floorPoint).dot(normal) * normal;
    const Eigen::Vector3d view = q * Eigen::Vector3d(0, 0, -1);
    Eigen::Vector3d forward = view - view.dot(normal) * normal;
    // A camera looking straight down has no forward direction on the floor; its up will do.
    if (forward.norm() < 1e-3) forward = q * Eigen::Vector3d(0, 1, 0) - (q * Eigen::Vector3d(0, 1, 0)).dot(normal) * normal;
    const Eigen::Vector3d z = -forward.normalized();
    const Eigen::Vector3d x = normal.cross(z).normalized();
    Eigen::Matrix3d rows;
    rows.row(0) = x.transpose();
    rows.row(1) = normal.transpose();
    rows.row(2) = z.transpose();
    fit.worldFromReference.linear() = rows;
    fit.worldFromReference.translation() = -rows * origin;
    fit.found = true;
    fit.samples = int(planted.size());
    fit.rmsMm = 1000.0 * rms;
    return fit;
}

}  // namespace calib
