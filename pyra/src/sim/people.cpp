// People walking between random waypoints with a simple gait: alternating legs, arms
// swinging against them, turning on the spot, pauses. A pure function of (scene, time).
#include "sim/people.hpp"

#include <algorithm>
#include <cmath>

#include "sim/hash_random.hpp"

namespace pyra_sim {

namespace {

constexpr double kSegmentSeconds = 10.0;
constexpr double kPi = 3.14159265358979323846;
constexpr float kWallMargin = 0.6f;

struct Walker {
    float height;
    float speed;
    double clockOffset;
};

Walker walker(const Scene& scene, int index) {
    HashRandom r(hashKey({scene.seed, uint64_t(index), 0x57414c4bULL}));
    Walker w;
    w.height = float(r.uniform(scene.people.minHeight, scene.people.maxHeight));
    w.speed = float(r.uniform(scene.people.minSpeed, scene.people.maxSpeed));
    w.clockOffset = r.uniform(0.0, kSegmentSeconds);
    return w;
}

lum::Vector3f waypoint(const Scene& scene, int index, int64_t segment) {
    HashRandom r(hashKey({scene.seed, uint64_t(index), uint64_t(segment), 0x57505431ULL}));
    float hx = std::max(0.f, scene.width * 0.5f - kWallMargin);
    float hz = std::max(0.f, scene.length * 0.5f - kWallMargin);
    return lum::Vector3f(float(r.uniform(-hx, hx)), 0.f, float(r.uniform(-hz, hz)));
}

double headingOf(const lum::Vector3f& from, const lum::Vector3f& to) {
    return std::atan2(double(to.x - from.x), double(to.z - from.z));
}

double smoothstep(double x) {
    x = std::clamp(x, 0.0, 1.0);
    return x * x * (3.0 - 2.0 * x);
}

// Where a walker is within segment k (walking from waypoint k to k + 1).
struct SegmentState {
    lum::Vector3f position;
    double heading = 0.0;
    double distance = 0.0;   // walked so far in this segment
    double amplitude = 0.0;  // 0 standing .. 1 full stride
};

// A segment's walk: a pause (turning on the spot at its end), then a polyline from
// waypoint k to waypoint k + 1 through as many detours as fill the segment at the
// walker's own pace.
struct Route {
    std::vector<lum::Vector3f> points;
    std::vector<double> lengths;  // cumulative, from the first point
    double pause = 0.0;
    double speed = 1.0;
};

Route route(const Scene& scene, int index, const Walker& w, int64_t k) {
    HashRandom r(hashKey({scene.seed, uint64_t(index), uint64_t(k), 0x50415553ULL}));
    Route best;
    best.pause = r.chance(scene.people.pauseProbability) ? r.uniform(2.0, 4.0) : r.uniform(0.2, 0.8);
    double walkTime = kSegmentSeconds - best.pause - 0.3;
    double budget = w.speed * walkTime;
    lum::Vector3f start = waypoint(scene, index, k), end = waypoint(scene, index, k + 1);
    double bestMiss = 1e30;
    for (int detours = 0; detours < 6; ++detours) {
        std::vector<lum::Vector3f> points{start};
        for (int d = 0; d < detours; ++d) points.push_back(waypoint(scene, index, k * 8 + d + (int64_t(1) << 40)));
        points.push_back(end);
        double length = 0.0;
        for (size_t i = 1; i < points.size(); ++i) length += (points[i] - points[i - 1]).norm();
        if (std::fabs(length - budget) < bestMiss) {
            bestMiss = std::fabs(length - budget);
            best.points = points;
        }
    }
    best.lengths.assign(1, 0.0);
    for (size_t i = 1; i < best.points.size(); ++i)
        best.lengths.push_back(best.lengths.back() + (best.points[i] - best.points[i - 1]).norm());
    best.speed = std::max(1e-3, best.lengths.back() / walkTime);
    return best;
}

double legHeading(const Route& route, size_t leg) { return headingOf(route.points[leg], route.points[leg + 1]); }

SegmentState segmentState(const Scene& scene, int index, const Walker& w, int64_t k, double tau) {
    Route here = route(scene, index, w, k);
    Route before = route(scene, index, w, k - 1);
    double previousHeading = legHeading(before, before.points.size() - 2);
    double heading = legHeading(here, 0);
    double turnTime = std::min(here.pause, 0.6);

    SegmentState s;
    if (tau < here.pause) {
        s.position = here.points[0];
        double turn = std::remainder(heading - previousHeading, 2.0 * kPi);
        s.heading = previousHeading + turn * smoothstep((tau - (here.pause - turnTime)) / turnTime);
        return s;
    }
    double total = here.lengths.back();
    double walked = std::min((tau - here.pause) * here.speed, total);
    size_t leg = 0;
    while (leg + 2 < here.points.size() && walked > here.lengths[leg + 1]) ++leg;
    double legLength = here.lengths[leg + 1] - here.lengths[leg];
    double along = legLength > 0 ? (walked - here.lengths[leg]) / legLength : 0.0;
    s.position = here.points[leg] + (here.points[leg + 1] - here.points[leg]) * float(along);
    s.distance = walked;
    // Round each corner over the last and first 0.3 m of the legs that meet there.
    const double radius = 0.3;
    s.heading = legHeading(here, leg);
    if (leg + 2 < here.points.size() && here.lengths[leg + 1] - walked < radius) {
        double next = legHeading(here, leg + 1);
        s.heading += std::remainder(next - s.heading, 2.0 * kPi) *
                     smoothstep((walked - (here.lengths[leg + 1] - radius)) / (2 * radius));
    } else if (leg > 0 && walked - here.lengths[leg] < radius) {
        double last = legHeading(here, leg - 1);
        s.heading = last + std::remainder(s.heading - last, 2.0 * kPi) *
                               smoothstep((walked - (here.lengths[leg] - radius)) / (2 * radius));
    }
    double ramp = 0.4 * here.speed;
    s.amplitude = std::clamp(std::min(walked, total - walked) / ramp, 0.0, 1.0);
    return s;
}

lum::Vector3f sagittal(double angle, float length) {
    // Down the leg or arm, swung forward by `angle` (body frame: x right, y up, z forward).
    return lum::Vector3f(0.f, -float(std::cos(angle)) * length, float(std::sin(angle)) * length);
}

// Heights and lengths as fractions of stature, from the segment-length table in Winter,
// "Biomechanics and Motor Control of Human Movement" (2009), after Drillis and Contini
// (1966): hip joint 0.530, knee 0.285, ankle joint centre 0.039, foot length 0.152.
constexpr float kHipHeight = 0.530f;
constexpr float kThigh = 0.530f - 0.285f;
constexpr float kShank = 0.285f - 0.039f;
constexpr float kAnkleHeight = 0.039f;
constexpr float kFootLength = 0.152f;
// Our estimates, not measurements: the ankle stands over the rear 22 % of the foot, and
// the heel and toe keypoints mark the middle of the heel's rounded back and of the toes,
// a centimetre or two above the floor.
constexpr float kHeelBehindAnkle = 0.22f * kFootLength;
constexpr float kSoleKeypointHeight = 0.010f;

// Joints in the body frame (x to the person's right, y up, z forward, origin on the floor).
// The lower foot stands flat on the floor, so the body rises over a straight stance leg
// and drops while both feet are down, as a walker's does.
Skeleton bodyFrameJoints(float h, double phase, double a) {
    Skeleton j;
    lum::Vector3f pelvis(0.f, kHipHeight * h, 0.f);
    j[PELVIS] = pelvis;
    j[SPINE_LOW] = pelvis + lum::Vector3f(0.f, 0.07f * h, 0.005f * h);
    j[SPINE_MID] = pelvis + lum::Vector3f(0.f, 0.15f * h, 0.01f * h);
    j[SPINE_HIGH] = pelvis + lum::Vector3f(0.f, 0.24f * h, 0.01f * h);
    j[NECK] = pelvis + lum::Vector3f(0.f, 0.34f * h, 0.005f * h);
    j[HEAD] = pelvis + lum::Vector3f(0.f, 0.40f * h, 0.01f * h);
    j[NOSE] = pelvis + lum::Vector3f(0.f, 0.405f * h, 0.06f * h);
    const float sole = (kSoleKeypointHeight - kAnkleHeight) * h;  // below the ankle
    const float toes = (kFootLength - kHeelBehindAnkle) * h;       // ahead of it
    for (int side = 0; side < 2; ++side) {
        float s = side == 0 ? -1.f : 1.f;  // left is -x in the body frame
        int L = side == 0 ? 0 : 1;         // offset from the left joint to this side's joint
        j[L_EYE + L] = pelvis + lum::Vector3f(s * 0.018f * h, 0.415f * h, 0.05f * h);
        j[L_EAR + L] = pelvis + lum::Vector3f(s * 0.042f * h, 0.405f * h, 0.005f * h);
        j[L_CLAVICLE + L] = pelvis + lum::Vector3f(s * 0.05f * h, 0.31f * h, 0.01f * h);
        lum::Vector3f shoulder = pelvis + lum::Vector3f(s * 0.129f * h, 0.288f * h, 0.f);
        j[L_SHOULDER + L] = shoulder;

        // The right leg leads at phase 0; the arm of each side swings against its leg.
        double legPhase = phase + (side == 0 ? kPi : 0.0);
        double hipAngle = 0.38 * a * std::sin(legPhase);
        double knee = 0.08 + a * 0.6 * std::max(0.0, std::sin(legPhase + 1.3));
        lum::Vector3f hip = pelvis + lum::Vector3f(s * 0.095f * h, 0.f, 0.f);
        j[L_HIP + L] = hip;
        j[L_KNEE + L] = hip + sagittal(hipAngle, kThigh * h);
        lum::Vector3f ankle = j[L_KNEE + L] + sagittal(hipAngle - knee, kShank * h);
        j[L_ANKLE + L] = ankle;
        j[L_HEEL + L] = ankle + lum::Vector3f(0.f, sole, -kHeelBehindAnkle * h);
        j[L_FOOT + L] = ankle + lum::Vector3f(s * 0.01f * h, sole, 0.8f * toes);
        j[L_BIG_TOE + L] = ankle + lum::Vector3f(-s * 0.01f * h, sole, toes);
        j[L_SMALL_TOE + L] = ankle + lum::Vector3f(s * 0.025f * h, sole, 0.8f * toes);

        double armAngle = -0.35 * a * std::sin(legPhase);
        double elbow = 0.2 + 0.25 * a * std::max(0.0, -std::sin(legPhase));
        lum::Vector3f elbowPoint = shoulder + sagittal(armAngle, 0.186f * h) + lum::Vector3f(s * 0.01f * h, 0.f, 0.f);
        j[L_ELBOW + L] = elbowPoint;
        lum::Vector3f forearm = sagittal(armAngle + elbow, 0.146f * h);
        lum::Vector3f wrist = elbowPoint + forearm;
        j[L_WRIST + L] = wrist;
        lum::Vector3f along = forearm / forearm.norm();
        j[L_HAND + L] = wrist + along * (0.05f * h);
        j[L_HAND_TIP + L] = wrist + along * (0.108f * h);
        j[L_THUMB + L] = wrist + along * (0.06f * h) + lum::Vector3f(0.f, 0.f, 0.025f * h);
        j[L_INDEX_BASE + L] = wrist + along * (0.055f * h) + lum::Vector3f(0.f, 0.f, 0.015f * h);
        j[L_PINKY_BASE + L] = wrist + along * (0.05f * h) + lum::Vector3f(0.f, 0.f, -0.015f * h);
    }
    const lum::Vector3f lift(0.f, kAnkleHeight * h - std::min(j[L_ANKLE].y, j[R_ANKLE].y), 0.f);
    for (lum::Vector3f& joint : j) joint += lift;
    return j;
}

std::vector<int> mirrorOf(const std::vector<int>& joints) {
    std::vector<int> mirror(joints.size());
    for (size_t i = 0; i < joints.size(); ++i) {
        int j = joints[i];
        int other = j;
        if (j >= L_EYE) other = ((j - L_EYE) % 2 == 0) ? j + 1 : j - 1;
        mirror[i] = int(i);
        for (size_t k = 0; k < joints.size(); ++k)
            if (joints[k] == other) mirror[i] = int(k);
    }
    return mirror;
}

}  // namespace

PersonPose personAt(const Scene& scene, int index, double seconds) {
    Walker w = walker(scene, index);
    const bool mirrored = scene.people.crossing && index % 2 == 1;
    const int leader = mirrored ? index - 1 : index;
    const Walker lead = walker(scene, leader);
    double t = seconds + lead.clockOffset;
    int64_t k = int64_t(std::floor(t / kSegmentSeconds));
    SegmentState s = segmentState(scene, leader, lead, k, t - double(k) * kSegmentSeconds);
    if (mirrored) {
        s.position = lum::Vector3f(-s.position.x, 0.f, s.position.z + scene.people.crossingOffset);
        s.heading = -s.heading;
    }
    if (index >= scene.people.count - scene.people.standing) {
        s = SegmentState();
        s.position = waypoint(scene, index, 0);
        s.heading = std::atan2(double(-s.position.x), double(-s.position.z));  // facing the room's centre
    }

    double stride = 0.8 * w.height;  // one full cycle: a step of each leg
    Skeleton local = bodyFrameJoints(w.height, 2.0 * kPi * s.distance / stride, s.amplitude);
    lum::Vector3f forward(float(std::sin(s.heading)), 0.f, float(std::cos(s.heading)));
    lum::Vector3f up(0.f, 1.f, 0.f);
    lum::Vector3f right = lum::Vector3f::cross(forward, up);

    PersonPose pose;
    pose.height = w.height;
    for (int i = 0; i < JOINT_COUNT; ++i) {
        const lum::Vector3f& p = local[i];
        pose.joints[i] = s.position + right * p.x + up * p.y + forward * p.z;
    }
    return pose;
}

const std::vector<int>& layoutJoints(lum::BODY_FORMAT format) {
    static const std::vector<int> body18 = {
        NOSE, NECK, R_SHOULDER, R_ELBOW, R_WRIST, L_SHOULDER, L_ELBOW, L_WRIST, R_HIP,
        R_KNEE, R_ANKLE, L_HIP, L_KNEE, L_ANKLE, R_EYE, L_EYE, R_EAR, L_EAR};
    static const std::vector<int> body34 = {
        PELVIS, SPINE_LOW, SPINE_HIGH, NECK, L_CLAVICLE, L_SHOULDER, L_ELBOW, L_WRIST, L_HAND,
        L_HAND_TIP, L_THUMB, R_CLAVICLE, R_SHOULDER, R_ELBOW, R_WRIST, R_HAND, R_HAND_TIP, R_THUMB,
        L_HIP, L_KNEE, L_ANKLE, L_FOOT, R_HIP, R_KNEE, R_ANKLE, R_FOOT, HEAD, NOSE, L_EYE, L_EAR,
        R_EYE, R_EAR, L_HEEL, R_HEEL};
    static const std::vector<int> body38 = {
        PELVIS, SPINE_LOW, SPINE_MID, SPINE_HIGH, NECK, NOSE, L_EYE, R_EYE, L_EAR, R_EAR,
        L_CLAVICLE, R_CLAVICLE, L_SHOULDER, R_SHOULDER, L_ELBOW, R_ELBOW, L_WRIST, R_WRIST,
        L_HIP, R_HIP, L_KNEE, R_KNEE, L_ANKLE, R_ANKLE, L_BIG_TOE, R_BIG_TOE, L_SMALL_TOE,
        R_SMALL_TOE, L_HEEL, R_HEEL, L_THUMB, R_THUMB, L_INDEX_BASE, R_INDEX_BASE, L_HAND_TIP,
        R_HAND_TIP, L_PINKY_BASE, R_PINKY_BASE};
    static const std::vector<int> none;
    switch (format) {
        case lum::BODY_FORMAT::BODY_18: return body18;
        case lum::BODY_FORMAT::BODY_34: return body34;
        case lum::BODY_FORMAT::BODY_38: return body38;
        default: return none;
    }
}

const std::vector<int>& layoutMirror(lum::BODY_FORMAT format) {
    static const std::vector<int> m18 = mirrorOf(layoutJoints(lum::BODY_FORMAT::BODY_18));
    static const std::vector<int> m34 = mirrorOf(layoutJoints(lum::BODY_FORMAT::BODY_34));
    static const std::vector<int> m38 = mirrorOf(layoutJoints(lum::BODY_FORMAT::BODY_38));
    static const std::vector<int> none;
    switch (format) {
        case lum::BODY_FORMAT::BODY_18: return m18;
        case lum::BODY_FORMAT::BODY_34: return m34;
        case lum::BODY_FORMAT::BODY_38: return m38;
        default: return none;
    }
}

std::vector<TrueBody> peopleAt(const Scene& scene, uint64_t timestampNs, lum::BODY_FORMAT format) {
    const std::vector<int>& joints = layoutJoints(format);
    std::vector<TrueBody> bodies;
    double seconds = double(timestampNs) * 1e-9;
    for (int i = 0; i < scene.people.count; ++i) {
        PersonPose pose = personAt(scene, i, seconds);
        TrueBody b;
        b.id = i;
        b.height = pose.height;
        for (int j : joints) b.keypoints.push_back(pose.joints[j]);
        bodies.push_back(std::move(b));
    }
    return bodies;
}

}  // namespace pyra_sim
