// Pose uncertainty from two half-walk solves and the solver's covariance, and where each
// camera's joints fell in its view.
#include "calibration/pose_uncertainty.hpp"

#include <algorithm>
#include <array>
#include <cmath>

#include <Eigen/Geometry>

#include "calibration/calibration_report.hpp"
#include "calibration/skeleton_align.hpp"
#include "calibration/solve_record.hpp"

namespace {

// A half shorter than this says more about its own noise than about the camera.
constexpr size_t kMinimumHalfFrames = 10;
// A keypoint pair further apart than this along the ray is two different bodies or a
// left-right swap; a keypoint seen in fewer pairs has too noisy a mean to count.
constexpr double kSpreadResidualCap = 0.25;
constexpr double kSpreadMinimumPairs = 20;

using Poses = std::map<int, SkeletonMulticameraCalibration::PoseStruct>;

struct HalfSolve {
    Poses poses;
    std::map<int, double> biases;  // the pull toward each camera, where the model estimates it
    CalibrationReport report;
};

// A Refined half's residuals straight from its chunks' frame pairs, each joint once: the
// report gathers every pair both ways round for these two figures per camera, which cost
// ten times the half's solve. Counted as the report counts, so the figures are the same.
CalibrationReport refinedResiduals(const SkeletonMulticameraCalibration& half) {
    const calib::SolveRecord& record = *half.state.lastSolve;
    const std::map<int, calib::PlacedCamera> placed = calib::placedCameras(record.after, record.biasesAfter);
    std::map<int, double> sums;
    std::map<int, int> counts;
    for (const auto& chunk : half.frames.chunks()) {
        for (const calib::FramePair& pair : chunk->framePairs()) {
            auto a = placed.find(pair.cameraA), b = placed.find(pair.cameraB);
            if (a == placed.end() || b == placed.end()) continue;
            const calib::PlacedCamera& pa = a->second;
            const calib::PlacedCamera& pb = b->second;
            for (const calib::JointPair& joint : pair.joints) {
                const double squared = (pa.rotation * (joint.a + pa.bias * joint.rayA) + pa.translation -
                                        pb.rotation * (joint.b + pb.bias * joint.rayB) - pb.translation)
                                           .squaredNorm();
                sums[pair.cameraA] += squared;
                sums[pair.cameraB] += squared;
                ++counts[pair.cameraA];
                ++counts[pair.cameraB];
            }
        }
    }
    CalibrationReport report;
    report.usable = record.usable;
    for (const auto& [camera, n] : counts) {
        CameraCalibrationReport entry;
        entry.camera = camera;
        entry.residualBlocks = 2 * n;
        entry.rmsAfterMm = 1000.0 * std::sqrt(sums[camera] / n);
        report.cameras.push_back(entry);
    }
    return report;
}

bool solveHalf(const SkeletonMulticameraCalibration& solved, bool later, HalfSolve& out) {
    SkeletonMulticameraCalibration half;
    half.options = solved.options;
    // The halves are compared in the reference camera's frame; levelling only turns the
    // room, which they never read.
    half.options.levelFloor = false;
    half.state = solved.state;
    // Cut where a chunk starts, when one lies near the middle: each half then reads whole
    // chunks, gathered and summed before, instead of gathering and summing a cut one anew.
    const size_t middle = solved.frames.chunkStartNear(solved.frames.size() / 2, solved.frames.size() / 16);
    half.frames = later ? solved.frames.slice(middle, solved.frames.size()) : solved.frames.slice(0, middle);
    if (half.frames.size() < kMinimumHalfFrames || !half.calibrate()) return false;
    out.poses = half.state.poses;
    out.biases = half.state.biases;
    // The halves are compared by residuals alone.
    const bool refined = half.options.model == SkeletonMulticameraCalibration::Model::Refined &&
                         half.state.lastSolve->rewrittenJoints == std::array<int, 2>{-1, -1};
    out.report = refined ? refinedResiduals(half) : makeResidualReport(half);
    return true;
}

const CameraCalibrationReport* findCamera(const CalibrationReport& report, int camera) {
    for (const CameraCalibrationReport& entry : report.cameras)
        if (entry.camera == camera) return &entry;
    return nullptr;
}

double rotationApartDeg(const SkeletonMulticameraCalibration::PoseStruct& a,
                        const SkeletonMulticameraCalibration::PoseStruct& b) {
    const Eigen::Quaterniond qa = Eigen::Map<const Eigen::Quaterniond>(a.q).normalized();
    const Eigen::Quaterniond qb = Eigen::Map<const Eigen::Quaterniond>(b.q).normalized();
    return qa.angularDistance(qb) * 180.0 / M_PI;
}

double positionApartMm(const SkeletonMulticameraCalibration::PoseStruct& a,
                       const SkeletonMulticameraCalibration::PoseStruct& b) {
    return 1000.0 * (Eigen::Vector3d(a.t[0], a.t[1], a.t[2]) - Eigen::Vector3d(b.t[0], b.t[1], b.t[2])).norm();
}

// How far the halves put camera b's joints as seen from camera a: the shift of b relative
// to a, and its turn carried out to the depth b sees people at.
double mutualApartMm(const std::map<int, calib::PlacedCamera>& earlier, const std::map<int, calib::PlacedCamera>& later,
                     int a, int b, double depthMm) {
    const auto relative = [a, b](const std::map<int, calib::PlacedCamera>& placed) {
        const calib::PlacedCamera &from = placed.at(a), &to = placed.at(b);
        return std::make_pair(Eigen::Matrix3d(from.rotation.transpose() * to.rotation),
                              Eigen::Vector3d(from.rotation.transpose() * (to.translation - from.translation)));
    };
    const auto [firstTurn, firstShift] = relative(earlier);
    const auto [secondTurn, secondShift] = relative(later);
    const double turn = Eigen::AngleAxisd(firstTurn.transpose() * secondTurn).angle();
    return std::hypot(1000.0 * (firstShift - secondShift).norm(), depthMm * turn);
}

// For the reference, which has no halves of its own: the median over pairs of the other
// cameras of how far the halves put them apart relative to one another.
double othersMutualApartMm(const Poses& earlier, const Poses& later, const CalibrationReport& report, int reference) {
    const std::map<int, calib::PlacedCamera> first = calib::placedCameras(earlier, {});
    const std::map<int, calib::PlacedCamera> second = calib::placedCameras(later, {});
    std::vector<const CameraCalibrationReport*> others;
    for (const CameraCalibrationReport& camera : report.cameras)
        if (camera.camera != reference && std::isfinite(camera.uncertainty.halvesApartMm)) others.push_back(&camera);
    std::vector<double> apart;
    for (size_t i = 0; i < others.size(); ++i)
        for (size_t j = i + 1; j < others.size(); ++j)
            apart.push_back(mutualApartMm(first, second, others[i]->camera, others[j]->camera,
                                          std::max(0.0, others[j]->uncertainty.viewDepthMm)));
    if (apart.empty()) return CameraUncertainty::kUnknown;
    std::nth_element(apart.begin(), apart.begin() + long(apart.size() / 2), apart.end());
    return apart[apart.size() / 2];
}

// `formalShare` 2 where the covariance counted each joint twice (Classic, both ways round).
double combined(double scale, double formalShare, double formal, double halvesApart, double bias) {
    const double random = formalShare * formal * formal + 0.25 * halvesApart * halvesApart;
    return std::sqrt(scale * scale * random + bias * bias);
}

bool estimatesPull(const SkeletonMulticameraCalibration& solved) {
    return solved.options.model == SkeletonMulticameraCalibration::Model::Refined && solved.options.refined.estimateBias;
}

double pullMm(const std::map<int, double>& biases, int camera) {
    auto found = biases.find(camera);
    return found == biases.end() ? 0.0 : 1000.0 * found->second;
}

struct ViewGeometry {
    ViewCoverage coverage;
    Eigen::Vector3d direction = Eigen::Vector3d::Zero();  // mean unit ray to its joints, room frame
    double depthMm = 0;                                   // mean distance to its joints
};

std::map<int, ViewGeometry> viewGeometry(const calib::SolveRecord& record) {
    std::map<int, ViewGeometry> geometry;
    auto add = [](ViewGeometry& g, const Eigen::Vector3d& joint) {
        if (joint.z() >= 0) return;  // behind the camera: not a measurement of its view
        ViewCoverage& view = g.coverage;
        ++view.keypoints;
        (joint.x() < 0 ? view.left : view.right) += 1;
        (joint.y() > 0 ? view.top : view.bottom) += 1;
        g.direction += joint.normalized();
        g.depthMm += 1000.0 * joint.norm();
    };
    int lastA = -1, lastB = -1;
    ViewGeometry *gA = nullptr, *gB = nullptr;
    calib::forEachSolvedJoint(record, [&](int cameraA, int cameraB, const Eigen::Vector3d& a, const Eigen::Vector3d& b,
                                          int keypoint, int sides) {
        if (cameraA != lastA || cameraB != lastB) {
            gA = &geometry[cameraA];
            gB = &geometry[cameraB];
            lastA = cameraA;
            lastB = cameraB;
        }
        if (keypoint == record.rewrittenJoints[0] || keypoint == record.rewrittenJoints[1]) return;
        add(*gA, a);
        if (sides == 2) add(*gB, b);
    });
    for (auto& [camera, g] : geometry) {
        ViewCoverage& view = g.coverage;
        if (view.keypoints == 0) continue;
        const double n = view.keypoints;
        view.left /= n;
        view.right /= n;
        view.top /= n;
        view.bottom /= n;
        g.depthMm /= n;
        auto pose = record.after.find(camera);
        if (pose != record.after.end()) g.direction = Eigen::Map<const Eigen::Quaterniond>(pose->second.q) * (g.direction / n);
    }
    return geometry;
}

// What one camera's joints still disagree on after the solve, keypoint by keypoint, along
// its own rays: the single pull per camera fits the mean over the joints, so a keypoint
// whose mean residual stays away from the others' is pulled differently (or is a different
// point of the body for this tracker). Such an offset is the same in every frame, so no
// amount of walking averages it out, and the halves, which share it, cannot see it.
std::map<int, double> pullSpreadMm(const calib::SolveRecord& record) {
    struct Sums {
        double n = 0, sum = 0, squares = 0;
    };
    std::map<int, std::map<int, Sums>> perKeypoint;  // camera -> keypoint -> residual along its rays
    const std::map<int, calib::PlacedCamera> placed = calib::placedCameras(record.after, record.biasesAfter);
    // Seen from B the joints are just as far apart, the other way round.
    auto add = [](std::map<int, Sums>& sums, int keypoint, const Eigen::Vector3d& ray, const Eigen::Vector3d& apart) {
        const double along = ray.dot(apart);
        if (!std::isfinite(along) || std::abs(along) > kSpreadResidualCap) return;  // a mismatch, not a pull
        Sums& s = sums[keypoint];
        s.n += 1;
        s.sum += along;
        s.squares += along * along;
    };
    int lastA = -1, lastB = -1;
    const calib::PlacedCamera *pa = nullptr, *pb = nullptr;
    std::map<int, Sums>* sumsA = nullptr;
    std::map<int, Sums>* sumsB = nullptr;
    calib::forEachSolvedJoint(record, [&](int cameraA, int cameraB, const Eigen::Vector3d& a, const Eigen::Vector3d& b,
                                          int keypoint, int sides) {
        if (keypoint == record.rewrittenJoints[0] || keypoint == record.rewrittenJoints[1]) return;
        if (cameraA != lastA || cameraB != lastB) {
            auto foundA = placed.find(cameraA), foundB = placed.find(cameraB);
            pa = foundA == placed.end() ? nullptr : &foundA->second;
            pb = foundB == placed.end() ? nullptr : &foundB->second;
            sumsA = &perKeypoint[cameraA];
            sumsB = &perKeypoint[cameraB];
            lastA = cameraA;
            lastB = cameraB;
        }
        if (!pa || !pb) return;
        const Eigen::Vector3d rayA = pa->rotation * a.normalized(), rayB = pb->rotation * b.normalized();
        const Eigen::Vector3d apart = (pa->rotation * a + pa->bias * rayA + pa->translation) -
                                      (pb->rotation * b + pb->bias * rayB + pb->translation);
        add(*sumsA, keypoint, rayA, apart);
        if (sides == 2) add(*sumsB, keypoint, rayB, -apart);
    });
    std::map<int, double> spread;
    for (const auto& [camera, keypoints] : perKeypoint) {
        double n = 0, sum = 0;
        for (const auto& [keypoint, s] : keypoints)
            if (s.n >= kSpreadMinimumPairs) n += s.n, sum += s.sum;
        if (n == 0) continue;
        const double overall = sum / n;
        double between = 0;
        for (const auto& [keypoint, s] : keypoints) {
            if (s.n < kSpreadMinimumPairs) continue;
            const double mean = s.sum / s.n;
            // Less what the keypoint's own noise puts into its mean, so a short walk's
            // scatter does not pass for a pull.
            const double noise = std::max(0.0, s.squares / s.n - mean * mean) / (s.n - 1);
            between += s.n * std::max(0.0, (mean - overall) * (mean - overall) - noise);
        }
        spread[camera] = 1000.0 * std::sqrt(between / n);
    }
    return spread;
}

}  // namespace

void addPoseUncertainty(const SkeletonMulticameraCalibration& solved, CalibrationReport& report) {
    if (!report.usable || !solved.state.lastSolve || !calib::hasSolvedPairs(*solved.state.lastSolve)) return;
    const std::map<int, ViewGeometry> geometry = viewGeometry(*solved.state.lastSolve);
    const std::map<int, double> spread = estimatesPull(solved) ? pullSpreadMm(*solved.state.lastSolve) : std::map<int, double>();
    for (CameraCalibrationReport& camera : report.cameras) {
        auto found = geometry.find(camera.camera);
        if (found != geometry.end()) camera.uncertainty.coverage = found->second.coverage;
    }

    HalfSolve earlier, later;
    if (!solveHalf(solved, false, earlier) || !solveHalf(solved, true, later)) return;
    const int reference = solved.state.lastSolve->reference;
    const double formalShare = solved.state.lastSolve->pairs ? 2.0 : 1.0;
    const ViewGeometry referenceView = geometry.count(reference) ? geometry.at(reference) : ViewGeometry();
    for (CameraCalibrationReport& camera : report.cameras) {
        const CameraCalibrationReport* first = findCamera(earlier.report, camera.camera);
        const CameraCalibrationReport* second = findCamera(later.report, camera.camera);
        // A half that never saw the camera left its warm start untouched: no evidence.
        if (!first || !second || first->residualBlocks == 0 || second->residualBlocks == 0) continue;
        CameraUncertainty& u = camera.uncertainty;
        u.residualGrowth = camera.rmsAfterMm / std::max(1e-9, std::min(first->rmsAfterMm, second->rmsAfterMm));
        if (camera.camera == reference) continue;
        u.halvesApartDeg = rotationApartDeg(earlier.poses.at(camera.camera), later.poses.at(camera.camera));
        u.halvesApartMm = positionApartMm(earlier.poses.at(camera.camera), later.poses.at(camera.camera));
        const ViewGeometry view = geometry.count(camera.camera) ? geometry.at(camera.camera) : ViewGeometry();
        const double lookApart = (view.direction - referenceView.direction).norm();
        double scale = kUncertaintyScale, pull = kTrackerBiasMm, halvesMm = u.halvesApartMm;
        if (estimatesPull(solved)) {
            // The pull is estimated, so what remains is how far the halves disagree on it
            // (relative to the reference's) and the part no single figure per camera fits.
            scale = kRefinedUncertaintyScale;
            pull = kRefinedPullShare * std::abs(pullMm(solved.state.biases, camera.camera));
            const double pullApartMm = (pullMm(earlier.biases, camera.camera) - pullMm(earlier.biases, reference)) -
                                       (pullMm(later.biases, camera.camera) - pullMm(later.biases, reference));
            halvesMm = std::hypot(halvesMm, pullApartMm);
        }
        // Both ends of the relative pose carry their own joints' unexplained pull.
        const double spreadMm = std::hypot(spread.count(camera.camera) ? spread.at(camera.camera) : 0.0,
                                           spread.count(reference) ? spread.at(reference) : 0.0);
        if (estimatesPull(solved)) u.pullSpreadMm = spreadMm;
        u.viewDepthMm = view.depthMm;
        const double depthMm = std::max(view.depthMm, 1.0);
        const double biasShiftMm = std::hypot(pull * lookApart, kPullSpreadShift * spreadMm);
        const double biasTurnDeg = std::hypot(kBiasTurnShare * pull * lookApart / depthMm,
                                              kPullSpreadTurn * spreadMm / depthMm) * 180.0 / M_PI;
        u.rotationSigmaDeg = combined(scale, formalShare, camera.rotationSigmaDeg, u.halvesApartDeg, biasTurnDeg);
        u.positionSigmaMm = combined(scale, formalShare, camera.translationSigmaMm, halvesMm, biasShiftMm);
        u.trackerBiasMm = biasShiftMm;
    }

    // The reference camera is pinned by definition; what a user can trust is its pose
    // relative to the neighbour it is best tied to.
    for (CameraCalibrationReport& camera : report.cameras) {
        if (camera.camera != reference) continue;
        camera.uncertainty.othersMutualApartMm = othersMutualApartMm(earlier.poses, later.poses, report, reference);
        for (const auto& [other, frames] : camera.framesSharedWith) {
            const CameraCalibrationReport* neighbour = findCamera(report, other);
            if (!neighbour || !std::isfinite(neighbour->uncertainty.positionSigmaMm)) continue;
            CameraUncertainty& u = camera.uncertainty;
            if (std::isfinite(u.positionSigmaMm) && u.positionSigmaMm <= neighbour->uncertainty.positionSigmaMm)
                continue;
            u.rotationSigmaDeg = neighbour->uncertainty.rotationSigmaDeg;
            u.positionSigmaMm = neighbour->uncertainty.positionSigmaMm;
            u.trackerBiasMm = neighbour->uncertainty.trackerBiasMm;
        }
    }
}
