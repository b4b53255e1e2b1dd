// Scene documents: the embedded default room and strict parsing of scene files.
// Every field is optional with the documented default; a wrong type is named, never guessed.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <map>
#include <mutex>
#include <set>
#include <sstream>
#include <type_traits>
#include <vector>

#include <nlohmann/json.hpp>

#include "pyra_sim/scene.hpp"
#include "printable_text.hpp"
#include "sim/hash_random.hpp"

namespace pyra_sim {

namespace {

using nlohmann::json;

// Camera at `position` whose -z axis looks at `target`, y as close to the room's up as possible.
lum::Transform lookAt(const lum::Vector3f& position, const lum::Vector3f& target) {
    lum::Vector3f back = (position - target).normalised();
    lum::Vector3f up(0.f, 1.f, 0.f);
    if (std::fabs(lum::Vector3f::dot(back, up)) > 0.999f) up = lum::Vector3f(0.f, 0.f, -1.f);
    lum::Vector3f x = lum::Vector3f::cross(up, back).normalised();
    lum::Vector3f y = lum::Vector3f::cross(back, x);
    lum::Transform t;
    for (int r = 0; r < 3; ++r) {
        t(r, 0) = x[r];
        t(r, 1) = y[r];
        t(r, 2) = back[r];
        t(r, 3) = position[r];
    }
    return t;
}

// Reads typed fields and keeps the first problem, named by its path in the document. Every
// key it is asked for is remembered, so whatever else an object holds (a misspelt
// setting that would silently keep its default) is refused by name.
class FieldReader {
public:
    explicit FieldReader(std::string* error) : error_(error) {}
    bool ok() const { return ok_; }

    void fail(const std::string& path, const std::string& what) {
        if (ok_ && error_) *error_ = lum::printableText("\"" + path + "\" " + what);
        ok_ = false;
    }

    // An object whose unknown keys refuseUnknown() will name, `path` ending in "." or empty.
    void visit(const json& object, const std::string& path) { visited_.emplace_back(&object, path); }

    const json* find(const json& object, const char* key) {
        seen_[&object].insert(key);
        auto it = object.find(key);
        return it == object.end() ? nullptr : &*it;
    }

    template <typename T>
    void number(const json& object, const char* key, const std::string& path, T& value, double lo, double hi) {
        const json* it = find(object, key);
        if (!it) return;
        std::string where = path + key;
        if (!it->is_number()) return fail(where, "must be a number");
        double v = it->get<double>();
        if (!std::isfinite(v) || v < lo || v > hi) {
            std::ostringstream range;
            range << "must be between " << lo << " and " << hi;
            return fail(where, range.str());
        }
        // 41001.7 is no serial number and 2.5 no head count; truncating would hide the typo.
        if (std::is_integral<T>::value && std::floor(v) != v) return fail(where, "must be a whole number");
        value = static_cast<T>(v);
    }

    void boolean(const json& object, const char* key, const std::string& path, bool& value) {
        const json* it = find(object, key);
        if (!it) return;
        if (!it->is_boolean()) return fail(path + key, "must be true or false");
        value = it->get<bool>();
    }

    bool vector3(const json& object, const char* key, const std::string& path, lum::Vector3f& value) {
        const json* it = find(object, key);
        if (!it) return false;
        if (!it->is_array() || it->size() != 3) {
            fail(path + key, "must be an array of 3 numbers");
            return false;
        }
        for (size_t i = 0; i < 3; ++i) {
            if (!(*it)[i].is_number() || !std::isfinite((*it)[i].get<double>()) ||
                std::fabs((*it)[i].get<double>()) > 1e4) {
                fail(path + key, "must be an array of 3 finite numbers");
                return false;
            }
            value[i] = (*it)[i].get<float>();
        }
        return true;
    }

    const json* object(const json& parent, const char* key, const std::string& path) {
        const json* it = find(parent, key);
        if (!it) return nullptr;
        if (!it->is_object()) {
            fail(path + key, "must be an object");
            return nullptr;
        }
        visit(*it, path + key + ".");
        return it;
    }

    void refuseUnknown() {
        for (const auto& [object, path] : visited_) {
            const std::set<std::string>& known = seen_[object];
            for (const auto& member : object->items())
                if (!known.count(member.key())) return fail(path + member.key(), "is not a known setting");
        }
    }

private:
    std::string* error_;
    bool ok_ = true;
    std::map<const json*, std::set<std::string>> seen_;
    std::vector<std::pair<const json*, std::string>> visited_;
};

void readNoise(FieldReader& in, const json& j, const std::string& path, NoiseSettings& n) {
    in.number(j, "depth_sigma_at_3m", path, n.depthSigmaAt3m, 0.0, 1.0);
    in.number(j, "lateral_sigma_px", path, n.lateralSigmaPx, 0.0, 100.0);
    in.number(j, "focal_px", path, n.focalPx, 1.0, 1e5);
    in.number(j, "bias", path, n.biasTowardCamera, -1.0, 1.0);
    in.number(j, "missing_rate", path, n.missingRate, 0.0, 1.0);
    in.number(j, "swap_rate", path, n.swapRate, 0.0, 1.0);
    in.boolean(j, "pull_by_view", path, n.pullByView);
}

void readTracker(FieldReader& in, const json& j, const std::string& path, TrackerSettings& t) {
    in.boolean(j, "occlusion", path, t.occlusion);
    in.number(j, "occlusion_leak", path, t.occlusionLeak, 0.0, 1.0);
    in.number(j, "id_switch_interval_s", path, t.idSwitchIntervalS, 0.0, 86400.0);
    in.number(j, "drop_rate", path, t.dropRate, 0.0, 0.9);
    in.number(j, "grab_fps", path, t.grabFps, 0.0, 120.0);
    in.number(j, "spike_rate", path, t.spikeRate, 0.0, 1.0);
    in.number(j, "spike_m", path, t.spikeMetres, 0.0, 2.0);
}

void readFaults(FieldReader& in, const json& j, const std::string& path, FaultSettings& f) {
    in.boolean(j, "fail_to_open", path, f.failToOpen);
    in.number(j, "grab_error_after_s", path, f.grabErrorAfterSeconds, 0.0, 1e7);
    in.number(j, "stop_publishing_after_s", path, f.stopPublishingAfterSeconds, 0.0, 1e7);
    in.number(j, "stall_after_s", path, f.stallAfterSeconds, 0.0, 1e7);
    in.number(j, "stall_ms", path, f.stallMs, 0.0, 600000.0);
    in.number(j, "knock_after_s", path, f.knockAfterSeconds, 0.0, 1e7);
    in.vector3(j, "knock_rotation_deg", path, f.knockRotationDeg);
    in.vector3(j, "knock_shift", path, f.knockShift);
    const json* it = in.find(j, "sdk_version");
    if (!it) return;
    std::array<int, 3> v{};
    char dot1 = 0, dot2 = 0;
    std::istringstream text(it->is_string() ? it->get<std::string>() : std::string());
    if (!(text >> v[0] >> dot1 >> v[1] >> dot2 >> v[2]) || dot1 != '.' || dot2 != '.' || !text.eof() ||
        v[0] < 0 || v[1] < 0 || v[2] < 0)
        return in.fail(path + "sdk_version", "must be a version text like \"5.1.0\"");
    f.reportedVersion = v;
}

void readCamera(FieldReader& in, const json& j, const std::string& path, CameraSettings& c) {
    if (!j.is_object()) return in.fail(path, "must be an object");
    in.visit(j, path);
    if (!j.contains("serial")) return in.fail(path + "serial", "is missing");
    in.number(j, "serial", path, c.serial, 1.0, 4294967295.0);
    lum::Vector3f position(0.f, 2.5f, 0.f), target(0.f, 1.f, 0.f), rotation;
    in.vector3(j, "position", path, position);
    bool hasTarget = in.vector3(j, "look_at", path, target);
    bool hasRotation = in.vector3(j, "rotation", path, rotation);
    if (hasTarget && hasRotation) return in.fail(path + "rotation", "cannot be given together with \"look_at\"");
    if (hasRotation) {
        c.pose.setRotationVector(rotation);
        c.pose.setTranslation(lum::Translation(position));
    } else {
        if ((position - target).norm() < 1e-3f) return in.fail(path + "look_at", "must differ from \"position\"");
        c.pose = lookAt(position, target);
    }
    in.number(j, "fps", path, c.fps, 1.0, 120.0);
    in.number(j, "hfov_deg", path, c.horizontalFovDeg, 10.0, 170.0);
    in.number(j, "vfov_deg", path, c.verticalFovDeg, 10.0, 170.0);
    in.number(j, "min_depth", path, c.minDepth, 0.0, 100.0);
    in.number(j, "max_depth", path, c.maxDepth, 0.1, 100.0);
    if (c.maxDepth <= c.minDepth) in.fail(path + "max_depth", "must be above \"min_depth\"");
    int keypoints = 18;
    in.number(j, "body_format", path, keypoints, 0.0, 100.0);
    if (keypoints == 18) c.bodyFormat = lum::BODY_FORMAT::BODY_18;
    else if (keypoints == 34) c.bodyFormat = lum::BODY_FORMAT::BODY_34;
    else if (keypoints == 38) c.bodyFormat = lum::BODY_FORMAT::BODY_38;
    else in.fail(path + "body_format", "must be 18, 34 or 38");
    in.boolean(j, "usb", path, c.pluggedIn);
    in.number(j, "phase_s", path, c.phaseSeconds, 0.0, 10.0);
    in.number(j, "clock_offset_s", path, c.clockOffsetSeconds, -86400.0, 86400.0);
    in.number(j, "clock_drift_ppm", path, c.clockDriftPpm, -1000.0, 1000.0);
    if (const json* n = in.object(j, "noise", path)) readNoise(in, *n, path + "noise.", c.noise);
    if (const json* t = in.object(j, "tracker", path)) readTracker(in, *t, path + "tracker.", c.tracker);
    if (const json* f = in.object(j, "faults", path)) readFaults(in, *f, path + "faults.", c.faults);
}

std::mutex& sceneMutex() {
    static std::mutex m;
    return m;
}

std::unique_ptr<Scene>& sceneSlot() {
    static std::unique_ptr<Scene> scene;
    return scene;
}

bool& allPluggedIn() {
    static bool all = false;
    return all;
}

}  // namespace

Scene defaultScene() {
    Scene scene;
    const float corner = 2.8f;
    const float xs[4] = {-corner, corner, corner, -corner};
    const float zs[4] = {-corner, -corner, corner, corner};
    for (int i = 0; i < 4; ++i) {
        CameraSettings c;
        c.serial = 41001 + i;
        c.pose = lookAt(lum::Vector3f(xs[i], 2.6f, zs[i]), lum::Vector3f(0.f, 0.9f, 0.f));
        scene.cameras.push_back(c);
    }
    return scene;
}

bool parseScene(const std::string& jsonText, Scene& scene, std::string* error) {
    // The parser keeps the last of two members with one key; the first would be lost unseen.
    std::vector<std::set<std::string>> keysByDepth;
    std::string repeated;
    const json::parser_callback_t findRepeats = [&](int, json::parse_event_t event, json& parsed) {
        if (event == json::parse_event_t::object_start) keysByDepth.emplace_back();
        else if (event == json::parse_event_t::object_end && !keysByDepth.empty()) keysByDepth.pop_back();
        else if (event == json::parse_event_t::key && !keysByDepth.empty() &&
                 !keysByDepth.back().insert(parsed.get<std::string>()).second && repeated.empty())
            repeated = parsed.get<std::string>();
        return true;
    };
    json doc = json::parse(jsonText, findRepeats, false);
    if (doc.is_discarded()) {
        if (error) *error = "not a JSON document";
        return false;
    }
    if (!repeated.empty()) {
        if (error) *error = lum::printableText("\"" + repeated.substr(0, 40) + "\" appears twice in one object");
        return false;
    }
    if (!doc.is_object()) {
        if (error) *error = "the document must be a JSON object";
        return false;
    }
    Scene s;
    s.cameras.clear();
    FieldReader in(error);
    in.visit(doc, "");
    if (const json* room = in.object(doc, "room", "")) {
        in.number(*room, "width", "room.", s.width, 1.0, 100.0);
        in.number(*room, "length", "room.", s.length, 1.0, 100.0);
        in.number(*room, "height", "room.", s.height, 2.0, 20.0);
    }
    in.number(doc, "seed", "", s.seed, 0.0, 9007199254740992.0);
    if (const json* p = in.object(doc, "people", "")) {
        in.number(*p, "count", "people.", s.people.count, 0.0, 50.0);
        in.number(*p, "min_height", "people.", s.people.minHeight, 0.5, 2.5);
        in.number(*p, "max_height", "people.", s.people.maxHeight, 0.5, 2.5);
        in.number(*p, "min_speed", "people.", s.people.minSpeed, 0.1, 3.0);
        in.number(*p, "max_speed", "people.", s.people.maxSpeed, 0.1, 3.0);
        in.number(*p, "pause_probability", "people.", s.people.pauseProbability, 0.0, 1.0);
        in.boolean(*p, "crossing", "people.", s.people.crossing);
        in.number(*p, "crossing_offset", "people.", s.people.crossingOffset, 0.0, 5.0);
        in.number(*p, "standing", "people.", s.people.standing, 0.0, 50.0);
        if (s.people.maxHeight < s.people.minHeight) in.fail("people.max_height", "must not be below \"min_height\"");
        if (s.people.maxSpeed < s.people.minSpeed) in.fail("people.max_speed", "must not be below \"min_speed\"");
    }
    const json* cams = in.find(doc, "cameras");
    if (cams) {
        if (!cams->is_array()) {
            in.fail("cameras", "must be an array");
        } else if (cams->size() > 64) {
            in.fail("cameras", "holds more than 64 cameras");
        } else {
            for (size_t i = 0; i < cams->size() && in.ok(); ++i) {
                CameraSettings c;
                readCamera(in, (*cams)[i], "cameras[" + std::to_string(i) + "].", c);
                if (in.ok() && findCamera(s, c.serial))
                    in.fail("cameras[" + std::to_string(i) + "].serial", "repeats serial " + std::to_string(c.serial));
                s.cameras.push_back(c);
            }
        }
    }
    in.refuseUnknown();
    if (!in.ok()) return false;
    scene = s;
    return true;
}

bool loadScene(const std::string& path, Scene& scene, std::string* error) {
    // Opened without blocking and checked on the descriptor, so a pipe or a device named
    // as the scene is refused rather than read for ever.
    const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    struct stat info {};
    std::string problem;
    if (fd < 0 || ::fstat(fd, &info) != 0) problem = "cannot be read";
    else if (S_ISDIR(info.st_mode)) problem = "is a folder, not a scene file";
    else if (!S_ISREG(info.st_mode)) problem = "is not a regular file, not a scene file";
    else if (info.st_size > (4 << 20)) problem = "larger than 4 MiB, not a scene";
    std::string text;
    char buffer[65536];
    while (problem.empty()) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) problem = "cannot be read";
        if (n <= 0) break;
        text.append(buffer, size_t(n));
        // Bounded even if the file grows while it is read.
        if (text.size() > (4u << 20)) problem = "larger than 4 MiB, not a scene";
    }
    if (fd >= 0) ::close(fd);
    if (!problem.empty()) {
        if (error) *error = lum::printableText(path) + ": " + problem;
        return false;
    }
    std::string why;
    if (!parseScene(text, scene, &why)) {
        if (error) *error = lum::printableText(path) + ": " + why;
        return false;
    }
    return true;
}

Scene activeScene() {
    std::lock_guard<std::mutex> lock(sceneMutex());
    auto& slot = sceneSlot();
    if (!slot) {
        slot = std::make_unique<Scene>(defaultScene());
        const char* path = std::getenv("PYRA_SIM_SCENE");
        if (path && *path) {
            std::string error;
            Scene loaded;
            if (loadScene(path, loaded, &error)) {
                *slot = loaded;
            } else {
                // Another room than the one asked for would be calibrated without a word;
                // a room without cameras makes every program stop and say why.
                slot->cameras.clear();
                std::cerr << "PYRA_SIM_SCENE " << error << "; no camera is available" << std::endl;
            }
        }
    }
    return *slot;
}

void setActiveScene(const Scene& scene) {
    std::lock_guard<std::mutex> lock(sceneMutex());
    sceneSlot() = std::make_unique<Scene>(scene);
}

const CameraSettings* findCamera(const Scene& scene, unsigned int serial) {
    for (const CameraSettings& c : scene.cameras)
        if (c.serial == serial) return &c;
    return nullptr;
}

void setAllCamerasPluggedIn(bool all) { allPluggedIn() = all; }
bool allCamerasPluggedIn() { return allPluggedIn(); }

CameraSettings cameraAt(const CameraSettings& camera, double secondsSinceOpen) {
    const FaultSettings& f = camera.faults;
    if (f.knockAfterSeconds < 0 || secondsSinceOpen < f.knockAfterSeconds) return camera;
    CameraSettings knocked = camera;
    lum::Transform turn;
    turn.setRotationVector(f.knockRotationDeg * float(3.14159265358979323846 / 180.0));
    knocked.pose = camera.pose * turn;
    knocked.pose.setTranslation(lum::Translation(camera.pose.getTranslation() + f.knockShift));
    return knocked;
}

double cameraPhase(const Scene& scene, const CameraSettings& camera) {
    double period = 1.0 / camera.fps;
    if (camera.phaseSeconds >= 0) return std::fmod(camera.phaseSeconds, period);
    return HashRandom(hashKey({scene.seed, camera.serial, 0x5048415345ULL})).uniform(0.0, period);
}

CameraClock::CameraClock(const CameraSettings& camera, uint64_t openedAtNs)
    : referenceNs_(openedAtNs), offsetNs_(camera.clockOffsetSeconds * 1e9), rate_(1.0 + camera.clockDriftPpm * 1e-6) {}

// Differences from the reference stay below a few days, where a double still holds
// nanoseconds exactly; whole times since the epoch would not fit.
uint64_t CameraClock::stampOf(uint64_t trueNs) const {
    const double since = double(int64_t(trueNs - referenceNs_));
    return referenceNs_ + uint64_t(std::llround(offsetNs_ + since * rate_));
}

uint64_t CameraClock::trueTimeOf(uint64_t stampNs) const {
    const double since = double(int64_t(stampNs - referenceNs_));
    return referenceNs_ + uint64_t(std::llround((since - offsetNs_) / rate_));
}

}  // namespace pyra_sim
