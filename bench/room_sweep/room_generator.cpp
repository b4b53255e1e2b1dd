// Seeded room drawing: a layout (ring, corridor chain, two walls, mixed heights), then
// each camera's own quirks (tripod, overhead, narrow view, a view of a corner), noise and people.
#include "bench/room_sweep/room_generator.hpp"

#include <algorithm>
#include <cmath>
#include <vector>

#include <Eigen/Geometry>
#include <nlohmann/json.hpp>

namespace sweep {
namespace {

// SplitMix64: the same numbers from every standard library, unlike std's distributions.
class Draw {
public:
    explicit Draw(uint64_t seed) : state(seed ^ 0x5EED5EED5EED5EEDull) {}
    uint64_t next() {
        uint64_t z = (state += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
    double uniform(double a, double b) { return a + (b - a) * double(next() >> 11) * 0x1.0p-53; }
    int integer(int a, int b) { return a + int(next() % uint64_t(b - a + 1)); }
    bool chance(double p) { return uniform(0, 1) < p; }

private:
    uint64_t state;
};

struct Room {
    double width = 6, length = 6, height = 3;
};

struct Plan {
    Eigen::Vector3d position, target;
    double rollDeg = 0, hfov = 100, vfov = 70, maxDepth = 10;
};

// How likely each quirk is; the mixed-heights layout takes them twice as often.
struct Quirks {
    double tripod = 0.15, overhead = 0.12, narrow = 0.2, corner = 0.08;
};

double round3(double v) { return std::round(v * 1000.0) / 1000.0; }

Eigen::Vector3d inside(const Room& room, Eigen::Vector3d p) {
    p.x() = std::clamp(p.x(), -room.width / 2 + 0.1, room.width / 2 - 0.1);
    p.z() = std::clamp(p.z(), -room.length / 2 + 0.1, room.length / 2 - 0.1);
    p.y() = std::clamp(p.y(), 0.3, room.height - 0.05);
    return p;
}

Eigen::Vector3d middleTarget(Draw& draw, const Room& room) {
    return {draw.uniform(-0.25, 0.25) * room.width, draw.uniform(0.6, 1.1), draw.uniform(-0.25, 0.25) * room.length};
}

// Where a ray from the centre at `angle` meets the walls, 0.2 m in.
Eigen::Vector3d onWalls(const Room& room, double angle, double height) {
    const double hx = room.width / 2 - 0.2, hz = room.length / 2 - 0.2;
    const double c = std::cos(angle), s = std::sin(angle);
    const double scale = std::min(std::abs(c) > 1e-9 ? hx / std::abs(c) : 1e9, std::abs(s) > 1e-9 ? hz / std::abs(s) : 1e9);
    return {c * scale, height, s * scale};
}

std::vector<Plan> ring(Draw& draw, const Room& room, int count) {
    std::vector<Plan> plans;
    const double start = draw.uniform(0, 2 * M_PI);
    for (int i = 0; i < count; ++i) {
        const double angle = start + 2 * M_PI * (i + draw.uniform(-0.25, 0.25)) / count;
        plans.push_back({onWalls(room, angle, draw.uniform(1.9, 2.8)), middleTarget(draw, room)});
    }
    return plans;
}

// A corridor: cameras along alternate walls, each looking a few metres down it, with a
// depth range short enough that mostly neighbours overlap.
std::vector<Plan> chain(Draw& draw, Room& room, int count) {
    room.width = draw.uniform(2.4, 3.6);
    room.length = count * draw.uniform(2.2, 3.0) + draw.uniform(1.0, 3.0);
    std::vector<Plan> plans;
    for (int i = 0; i < count; ++i) {
        const double z = -room.length / 2 + 0.4 + i * (room.length - 0.8) / (count - 1);
        const double x = (i % 2 ? 1 : -1) * (room.width / 2 - 0.2);
        const double ahead = (i + 1 == count ? -1 : 1) * draw.uniform(1.5, 3.0);
        Plan plan{{x, draw.uniform(2.0, 2.7), z}, {-0.3 * x, draw.uniform(0.7, 1.1), z + ahead}};
        plan.maxDepth = draw.uniform(5.5, 7.0);
        plans.push_back(plan);
    }
    return plans;
}

// Cameras along two adjacent walls only, as on a stage: views cross at wide angles.
std::vector<Plan> twoWalls(Draw& draw, const Room& room, int count) {
    std::vector<Plan> plans;
    const double sx = draw.chance(0.5) ? 1 : -1, sz = draw.chance(0.5) ? 1 : -1;
    for (int i = 0; i < count; ++i) {
        const double along = draw.uniform(-0.45, 0.45);
        const Eigen::Vector3d p = i % 2 ? Eigen::Vector3d(along * room.width, 0, sz * (room.length / 2 - 0.2))
                                        : Eigen::Vector3d(sx * (room.width / 2 - 0.2), 0, along * room.length);
        plans.push_back({p + Eigen::Vector3d(0, draw.uniform(1.8, 2.8), 0), middleTarget(draw, room)});
    }
    return plans;
}

void addQuirks(Draw& draw, const Room& room, const Quirks& quirks, Plan& plan) {
    if (draw.chance(quirks.tripod)) {
        plan.position.y() = draw.uniform(0.6, 1.3);
        plan.target.y() = draw.uniform(0.7, 1.2);
    } else if (draw.chance(quirks.overhead)) {
        // Near the ceiling, looking steeply down a metre or so toward the room.
        plan.position.y() = room.height - 0.15;
        const Eigen::Vector3d toward(-plan.position.x(), 0, -plan.position.z());
        plan.target = plan.position + toward.normalized() * draw.uniform(0.6, 1.6);
        plan.target.y() = draw.uniform(0.0, 0.4);
    }
    if (draw.chance(quirks.corner)) {
        // Looking mostly along its own wall: it sees a sliver of the room.
        const Eigen::Vector3d wall = std::abs(plan.position.x()) > std::abs(plan.position.z()) ? Eigen::Vector3d::UnitZ()
                                                                                              : Eigen::Vector3d::UnitX();
        const Eigen::Vector3d into = Eigen::Vector3d(-plan.position.x(), 0, -plan.position.z()).normalized();
        plan.target = plan.position + (draw.chance(0.5) ? 1 : -1) * 2.5 * wall + draw.uniform(0.3, 0.8) * into;
        plan.target.y() = draw.uniform(0.5, 1.5);
    }
    if (draw.chance(quirks.narrow)) {
        plan.hfov = draw.uniform(45, 65);
        plan.vfov = draw.uniform(30, 45);
    }
    if (draw.chance(0.3)) plan.rollDeg = draw.uniform(-8, 8);
    if (draw.chance(0.2)) plan.maxDepth = std::min(plan.maxDepth, draw.uniform(6, 8));
    plan.position = inside(room, plan.position);
}

// Camera to room: -z at the target, y up, then turned about the viewing axis; as the
// rotation vector a scene file takes.
Eigen::Vector3d rotationVector(const Plan& plan) {
    const Eigen::Vector3d back = (plan.position - plan.target).normalized();
    const Eigen::Vector3d right = Eigen::Vector3d::UnitY().cross(back).normalized();
    Eigen::Matrix3d r;
    r << right, back.cross(right), back;
    r = r * Eigen::AngleAxisd(plan.rollDeg * M_PI / 180.0, Eigen::Vector3d::UnitZ()).toRotationMatrix();
    const Eigen::AngleAxisd turn(r);
    return turn.angle() * turn.axis();
}

nlohmann::json vector3(const Eigen::Vector3d& v) { return {round3(v.x()), round3(v.y()), round3(v.z())}; }

nlohmann::json noise(Draw& draw, double level) {
    return {{"depth_sigma_at_3m", round3(level * draw.uniform(0.008, 0.025))},
            {"lateral_sigma_px", round3(level * draw.uniform(1.0, 3.0))},
            {"bias", round3(draw.uniform(0.0, 0.06))},
            {"missing_rate", round3(draw.uniform(0.01, 0.08))},
            {"swap_rate", round3(draw.uniform(0.0, 0.015))}};
}

nlohmann::json people(Draw& draw, int count) {
    nlohmann::json p = {{"count", count}, {"pause_probability", round3(draw.uniform(0.1, 0.4))}};
    if (count >= 2 && draw.chance(0.25)) p["crossing"] = true;
    if (count >= 2 && draw.chance(0.2)) p["standing"] = 1;
    return p;
}

}  // namespace

bool generateRoom(uint64_t seed, GeneratedRoom& out, std::string* problem) {
    Draw draw(seed);
    Room room{draw.uniform(4.0, 9.0), draw.uniform(4.0, 10.0), draw.uniform(2.6, 3.4)};
    const int cameras = draw.integer(3, 8);
    const double kind = draw.uniform(0, 1);
    Quirks quirks;
    std::vector<Plan> plans;
    if (kind < 0.35) {
        out.layout = "ring";
        plans = ring(draw, room, cameras);
    } else if (kind < 0.55) {
        out.layout = "chain";
        plans = chain(draw, room, cameras);
    } else if (kind < 0.75) {
        out.layout = "two walls";
        plans = twoWalls(draw, room, cameras);
    } else {
        out.layout = "mixed heights";
        quirks = {0.3, 0.25, 0.3, 0.15};
        plans = ring(draw, room, cameras);
    }
    const double level = draw.uniform(0.7, 1.6);  // the room's noise; each camera varies around it
    nlohmann::json cameraList = nlohmann::json::array();
    for (size_t i = 0; i < plans.size(); ++i) {
        Plan& plan = plans[i];
        addQuirks(draw, room, quirks, plan);
        if ((plan.position - plan.target).norm() < 0.3) plan.target = plan.position + Eigen::Vector3d(0, -0.5, -1);
        cameraList.push_back({{"serial", 71001 + int(i)},
                              {"position", vector3(plan.position)},
                              {"rotation", vector3(rotationVector(plan))},
                              {"hfov_deg", round3(plan.hfov)},
                              {"vfov_deg", round3(plan.vfov)},
                              {"max_depth", round3(plan.maxDepth)},
                              {"noise", noise(draw, level * draw.uniform(0.7, 1.3))}});
    }
    const int weights = draw.integer(0, 19);  // 1 to 4 people: 7, 6, 4 and 3 in 20
    const int count = weights < 7 ? 1 : weights < 13 ? 2 : weights < 17 ? 3 : 4;
    const nlohmann::json scene = {
        {"room", {{"width", round3(room.width)}, {"length", round3(room.length)}, {"height", round3(room.height)}}},
        {"seed", seed},
        {"people", people(draw, count)},
        {"cameras", cameraList}};
    out.seed = seed;
    out.seconds = 60 + 10 * draw.integer(0, 6);
    out.sceneText = scene.dump(1);
    return pyra_sim::parseScene(out.sceneText, out.scene, problem);
}

}  // namespace sweep
