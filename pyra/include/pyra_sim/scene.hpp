// The simulated room behind our lum cameras: scene loading, ground truth and what each
// camera sees. For tests, tools and benchmarks only; Halden's own code never includes it.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "lum/math.hpp"
#include "lum/records.hpp"
#include "lum/types.hpp"

namespace pyra_sim {

// Room frame: metres, right-handed, y up, floor at y = 0, room centred on x = z = 0.
// Camera frames: x right, y up, looking along -z (coordinate system 2).

struct NoiseSettings {
    float depthSigmaAt3m = 0.015f;  // metres, at depth mode 4; grows with depth squared
    float lateralSigmaPx = 2.f;
    float focalPx = 700.f;
    float biasTowardCamera = 0.03f;  // metres along the viewing ray
    float missingRate = 0.03f;       // share of visible keypoints reported missing
    float swapRate = 0.005f;         // share of frames with left and right exchanged
    // Joints lie deeper below the surface seen from the front or back than from the side
    // (limbs and the trunk are not round); false keeps each joint's pull the same from
    // every side, at its mean over the directions.
    bool pullByView = true;
};

// What a real body tracker gets wrong beyond noise. Every artefact is a pure function of
// (scene seed, camera, person, time), so recordings of one scene stay identical.
struct TrackerSettings {
    bool occlusion = true;         // a person behind another loses the keypoints it hides
    float occlusionLeak = 0.25f;   // share of hidden keypoints reported at the hider's depth
    float idSwitchIntervalS = 60;  // mean seconds between a person's new ids; 0: never
    float dropRate = 0.01f;        // share of frames the sender loses
    float grabFps = 0;             // the sender takes at most this many frames a second; 0: all
    float spikeRate = 0.01f;       // share of a body's frames with a jitter spike
    float spikeMetres = 0.15f;     // size of a spike

    // A tracker that only adds noise, for tests that look at the noise alone.
    static TrackerSettings none() {
        TrackerSettings t;
        t.occlusion = false;
        t.idSwitchIntervalS = 0;
        t.dropRate = 0;
        t.spikeRate = 0;
        return t;
    }
};

struct FaultSettings {
    bool failToOpen = false;
    double grabErrorAfterSeconds = -1.0;       // < 0: never
    double stopPublishingAfterSeconds = -1.0;  // < 0: never
    // A hiccup of the camera's driver: the grab of the capture due this many seconds after
    // opening hangs for stallMs of wall time, once. The capture itself is the same.
    double stallAfterSeconds = -1.0;  // < 0: never
    int stallMs = 0;
    std::array<int, 3> reportedVersion{5, 1, 0};
    // Someone bumps the camera: from this many seconds after opening on, it is turned by
    // knockRotationDeg (a rotation vector in its own frame, degrees) about its own centre
    // and shifted by knockShift (room frame, metres).
    double knockAfterSeconds = -1.0;  // < 0: never
    lum::Vector3f knockRotationDeg;
    lum::Vector3f knockShift;
};

struct CameraSettings {
    unsigned int serial = 0;
    lum::Transform pose;  // camera to room
    float fps = 30.f;
    float horizontalFovDeg = 100.f;
    float verticalFovDeg = 70.f;
    float minDepth = 0.3f;
    float maxDepth = 10.f;
    lum::BODY_FORMAT bodyFormat = lum::BODY_FORMAT::BODY_18;
    bool pluggedIn = true;     // listed by the USB device list of this computer
    double phaseSeconds = -1;  // on the camera's own clock; < 0: drawn from the seed
    // The camera's clock minus the true time when it is opened, and how fast it gains
    // on the true time from then on (parts per million; negative: it loses).
    double clockOffsetSeconds = 0.0;
    double clockDriftPpm = 0.0;
    NoiseSettings noise;
    TrackerSettings tracker;
    FaultSettings faults;
};

struct PeopleSettings {
    int count = 1;
    float minHeight = 1.5f;
    float maxHeight = 1.95f;
    float minSpeed = 0.9f;  // metres per second
    float maxSpeed = 1.4f;
    float pauseProbability = 0.25f;  // per walk segment
    // Person 2k + 1 walks the mirror image (about x = 0) of person 2k's route, offset by
    // crossingOffset along z, so that the two meet face to face that far apart.
    bool crossing = false;
    float crossingOffset = 0.4f;
    int standing = 0;  // the last `standing` people stand still at their first waypoint
};

struct Scene {
    float width = 6.f;   // along x
    float length = 6.f;  // along z
    float height = 3.f;
    uint64_t seed = 1;
    std::vector<CameraSettings> cameras;
    PeopleSettings people;
};

// The embedded default room: 6 m x 6 m, four cameras high in the corners, one walker.
Scene defaultScene();
// Parses a scene document; false with a message naming the field on any problem.
bool parseScene(const std::string& jsonText, Scene& scene, std::string* error);
bool loadScene(const std::string& path, Scene& scene, std::string* error);
// The scene of this process: the file named by PYRA_SIM_SCENE, else the default.
// A broken file is reported once on standard error and gives a room without cameras.
Scene activeScene();
// Replaces the scene of this process (tools and tests).
void setActiveScene(const Scene& scene);
const CameraSettings* findCamera(const Scene& scene, unsigned int serial);
// This process plays another machine: every scene camera counts as plugged in.
void setAllCamerasPluggedIn(bool all);
bool allCamerasPluggedIn();

// The camera as it stands `secondsSinceOpen` after it was opened (a knock moves it).
CameraSettings cameraAt(const CameraSettings& camera, double secondsSinceOpen);

// Clock phase of a camera in [0, 1/fps): frames are taken at phase + k / fps of its own clock.
double cameraPhase(const Scene& scene, const CameraSettings& camera);

// A camera's own clock, the one it stamps its captures with (nanoseconds since the epoch).
class CameraClock {
public:
    CameraClock() = default;
    // The clock of `camera` opened at the true time `openedAtNs`.
    CameraClock(const CameraSettings& camera, uint64_t openedAtNs);
    uint64_t stampOf(uint64_t trueNs) const;
    // The true time at which the clock reads `stampNs`.
    uint64_t trueTimeOf(uint64_t stampNs) const;

private:
    uint64_t referenceNs_ = 0;
    double offsetNs_ = 0.0;
    double rate_ = 1.0;  // camera seconds per true second
};

struct TrueBody {
    int id = 0;
    float height = 0.f;
    std::vector<lum::Vector3f> keypoints;  // room frame, metres
};

// Where every person's keypoints are at a time (nanoseconds since the epoch).
std::vector<TrueBody> peopleAt(const Scene& scene, uint64_t timestampNs, lum::BODY_FORMAT format);

struct ObservationOptions {
    lum::DEPTH_MODE depthMode = lum::DEPTH_MODE::ULTRA;
    float confidenceThreshold = 20.f;  // bodies below it are dropped (0..100)
    lum::COORDINATE_SYSTEM coordinateSystem = lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP;
    lum::UNIT unit = lum::UNIT::METER;
};

// Ground truth of one reported body, aligned with the reported list.
struct ObservedTruth {
    int id = 0;
    bool swapped = false;
    std::vector<lum::Vector3f> keypoints;  // noise free, same frame and unit as the report
};

// What `camera` reports at a frame time: its bodies with the noise of the scene.
lum::Bodies observe(const Scene& scene, const CameraSettings& camera, uint64_t timestampNs,
                    const ObservationOptions& options, std::vector<ObservedTruth>* truth = nullptr);

// Whether the sender of `camera` loses its capture number `frame` (frames are taken at
// phase + frame / fps of the camera's own clock).
bool frameDropped(const Scene& scene, const CameraSettings& camera, int64_t frame);

// Depth noise of a camera at a depth, in metres, for a depth mode.
float depthSigma(const NoiseSettings& noise, float depth, lum::DEPTH_MODE mode);

}  // namespace pyra_sim
