// Robust floor fit over the planted foot of every frame, and the level world frame it gives.
// A swinging foot is never the lower one for long, so each frame's lower foot is the planted one.
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
// Heel and toes further apart in height than noise makes them: the foot is rolling.
constexpr double kRolledM = 0.04;

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
// camera's body is read in the layout it was sent in. A camera's bias is the depth of joint
// centres below the surface it sees; heel and toe keypoints lie on that surface, the foot
// being thin, so they take none of it.
bool fusedJoint(const std::map<int, lum::BodyData>& bodies, const std::map<int, CameraUnknowns>& cameras, Role role,
                Eigen::Vector3d& out, bool belowSurface = true) {
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
        const double bias = belowSurface ? c.bias : 0.0;
        sum += q * (local + bias * local.normalized()) + Eigen::Vector3d(c.t[0], c.t[1], c.t[2]);
        ++count;
    }
    if (count == 0) return false;
    out = sum / count;
    return true;
}

int leftAnkleOf(const BodyLayout& layout) { return layout.ankles[0]; }
int rightAnkleOf(const BodyLayout& layout) { return layout.ankles[1]; }
int leftHeelOf(const BodyLayout& layout) { return layout.heels[0]; }
int rightHeelOf(const BodyLayout& layout) { return layout.heels[1]; }
int leftToesOf(const BodyLayout& layout) { return layout.toes[0]; }
int rightToesOf(const BodyLayout& layout) { return layout.toes[1]; }
int neckOf(const BodyLayout& layout) { return layout.neck; }

// One foot of one frame: its ankle, and the heel and toe keypoints the cameras saw.
struct Foot {
    Eigen::Vector3d ankle = Eigen::Vector3d::Zero();
    std::vector<Eigen::Vector3d> sole;
};

Foot fusedFoot(const std::map<int, lum::BodyData>& bodies, const std::map<int, CameraUnknowns>& cameras, Role ankle,
               Role heel, Role toes, bool& found) {
    Foot foot;
    found = fusedJoint(bodies, cameras, ankle, foot.ankle);
    Eigen::Vector3d point;
    for (Role role : {heel, toes})
        if (fusedJoint(bodies, cameras, role, point, false)) foot.sole.push_back(point);
    return foot;
}

// Where the floor is under a foot: below its heel and toe keypoints where the cameras saw
// them, else below its ankle. A foot rolling onto its heel or toes stands on the lower
// one; a flat foot on their mean, since the lower of two noisy points lies below both.
Eigen::Vector3d floorUnder(const Foot& foot, const Eigen::Vector3d& up, const FootHeights& heights) {
    if (foot.sole.empty()) return foot.ankle - heights.ankle * up;
    Eigen::Vector3d point = foot.sole.front();
    if (foot.sole.size() == 2) {
        const double rise = (foot.sole[1] - foot.sole[0]).dot(up);
        point = std::abs(rise) > kRolledM ? foot.sole[rise > 0 ? 0 : 1] : 0.5 * (foot.sole[0] + foot.sole[1]);
    }
    return point - heights.sole * up;
}

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
                    const FootHeights& heights) {
    return levelFloor(FrameParts{&frames}, cameras, reference, heights);
}

FloorFit levelFloor(const FrameParts& parts, const std::map<int, CameraUnknowns>& cameras, int reference,
                    const FootHeights& heights) {
    FloorFit fit;
    auto referenceUnknowns = cameras.find(reference);
    if (referenceUnknowns == cameras.end()) return fit;

    struct Sample {
        Foot left, right;
    };
    std::vector<Sample> samples;
    Eigen::Vector3d up = Eigen::Vector3d::Zero();
    for (const Frames* frames : parts)
    for (const auto& [ts, bodies] : *frames) {
        Sample s;
        Eigen::Vector3d neck;
        bool left = false, right = false;
        s.left = fusedFoot(bodies, cameras, leftAnkleOf, leftHeelOf, leftToesOf, left);
        s.right = fusedFoot(bodies, cameras, rightAnkleOf, rightHeelOf, rightToesOf, right);
        if (!left || !right || !fusedJoint(bodies, cameras, neckOf, neck)) continue;
        // People stand upright: over a walk, ankles to neck averages to the vertical.
        up += (neck - 0.5 * (s.left.ankle + s.right.ankle)).normalized();
        samples.push_back(std::move(s));
    }
    if (samples.size() < kMinimumFrames) return fit;
    up.normalize();

    // The lower ankle tells the planted foot: choosing by the floor points themselves would
    // pick the one whose noise drew it down.
    std::vector<Eigen::Vector3d> planted;
    for (const Sample& s : samples) {
        const Foot& foot = s.left.ankle.dot(up) < s.right.ankle.dot(up) ? s.left : s.right;
        planted.push_back(floorUnder(foot, up, heights));
    }
    const double spread = narrowestSpread(planted, up);
    if (spread < kMinimumSpreadM) {
        char text[160];
        std::snprintf(text, sizeof text,
                      "the feet stayed on one spot or one line (%.2f m across); the floor is left unlevelled", spread);
        fit.refused = text;
        fit.refusedSpanM = spread;
        return fit;
    }
    Eigen::Vector3d centre, normal;
    double rms = 0;
    if (!fitPlane(planted, up, centre, normal, rms)) return fit;

    const CameraUnknowns& ref = referenceUnknowns->second;
    const Eigen::Quaterniond q(ref.q[3], ref.q[0], ref.q[1], ref.q[2]);
    const Eigen::Vector3d camera(ref.t[0], ref.t[1], ref.t[2]);
    const Eigen::Vector3d origin = camera - (camera - centre).dot(normal) * normal;
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
