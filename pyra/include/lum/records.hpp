// Records of the lum API: bodies and their keypoint layouts, camera identity and
// transport, room entries, poses, metrics, images and fused point clouds.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "lum/math.hpp"
#include "lum/types.hpp"

namespace lum {

// ---- Body layouts (the keypoint order is part of the API) ----

enum class BODY_18_PARTS : int {
    NOSE = 0, NECK = 1, RIGHT_SHOULDER = 2, RIGHT_ELBOW = 3, RIGHT_WRIST = 4,
    LEFT_SHOULDER = 5, LEFT_ELBOW = 6, LEFT_WRIST = 7, RIGHT_HIP = 8, RIGHT_KNEE = 9,
    RIGHT_ANKLE = 10, LEFT_HIP = 11, LEFT_KNEE = 12, LEFT_ANKLE = 13, RIGHT_EYE = 14,
    LEFT_EYE = 15, RIGHT_EAR = 16, LEFT_EAR = 17, LAST = 18
};

enum class BODY_34_PARTS : int {
    PELVIS = 0, NAVAL_SPINE = 1, CHEST_SPINE = 2, NECK = 3, LEFT_CLAVICLE = 4,
    LEFT_SHOULDER = 5, LEFT_ELBOW = 6, LEFT_WRIST = 7, LEFT_HAND = 8, LEFT_HANDTIP = 9,
    LEFT_THUMB = 10, RIGHT_CLAVICLE = 11, RIGHT_SHOULDER = 12, RIGHT_ELBOW = 13,
    RIGHT_WRIST = 14, RIGHT_HAND = 15, RIGHT_HANDTIP = 16, RIGHT_THUMB = 17, LEFT_HIP = 18,
    LEFT_KNEE = 19, LEFT_ANKLE = 20, LEFT_FOOT = 21, RIGHT_HIP = 22, RIGHT_KNEE = 23,
    RIGHT_ANKLE = 24, RIGHT_FOOT = 25, HEAD = 26, NOSE = 27, LEFT_EYE = 28, LEFT_EAR = 29,
    RIGHT_EYE = 30, RIGHT_EAR = 31, LEFT_HEEL = 32, RIGHT_HEEL = 33, LAST = 34
};

enum class BODY_38_PARTS : int {
    PELVIS = 0, SPINE_1 = 1, SPINE_2 = 2, SPINE_3 = 3, NECK = 4, NOSE = 5, LEFT_EYE = 6,
    RIGHT_EYE = 7, LEFT_EAR = 8, RIGHT_EAR = 9, LEFT_CLAVICLE = 10, RIGHT_CLAVICLE = 11,
    LEFT_SHOULDER = 12, RIGHT_SHOULDER = 13, LEFT_ELBOW = 14, RIGHT_ELBOW = 15,
    LEFT_WRIST = 16, RIGHT_WRIST = 17, LEFT_HIP = 18, RIGHT_HIP = 19, LEFT_KNEE = 20,
    RIGHT_KNEE = 21, LEFT_ANKLE = 22, RIGHT_ANKLE = 23, LEFT_BIG_TOE = 24,
    RIGHT_BIG_TOE = 25, LEFT_SMALL_TOE = 26, RIGHT_SMALL_TOE = 27, LEFT_HEEL = 28,
    RIGHT_HEEL = 29, LEFT_HAND_THUMB_4 = 30, RIGHT_HAND_THUMB_4 = 31,
    LEFT_HAND_INDEX_1 = 32, RIGHT_HAND_INDEX_1 = 33, LEFT_HAND_MIDDLE_4 = 34,
    RIGHT_HAND_MIDDLE_4 = 35, LEFT_HAND_PINKY_1 = 36, RIGHT_HAND_PINKY_1 = 37, LAST = 38
};

extern const std::vector<std::pair<BODY_18_PARTS, BODY_18_PARTS>> BODY_18_BONES;
extern const std::vector<std::pair<BODY_34_PARTS, BODY_34_PARTS>> BODY_34_BONES;
extern const std::vector<std::pair<BODY_38_PARTS, BODY_38_PARTS>> BODY_38_BONES;

int getKeypointCount(BODY_FORMAT format);  // 18, 34, 38; 0 for an unknown format
// Bones of a format as index pairs; empty for an unknown format.
std::vector<std::pair<int, int>> getBones(BODY_FORMAT format);

// ---- Bodies ----

struct BodyData {
    int id = -1;
    std::string unique_object_id;
    OBJECT_TRACKING_STATE tracking_state = OBJECT_TRACKING_STATE::OFF;
    float confidence = 0.f;
    Vector3f position;
    Vector3f velocity;
    std::array<float, 6> position_covariance{};
    std::vector<Vector3f> keypoint;             // NaN x = not detected
    std::vector<float> keypoint_confidence;
    std::vector<std::array<float, 6>> keypoint_covariances;  // upper triangle, row by row
    Vector3f dimensions;
    Orientation global_root_orientation;
};

struct Bodies {
    Timestamp timestamp;
    bool is_new = false;
    bool is_tracked = false;
    BODY_FORMAT body_format = BODY_FORMAT::BODY_18;
    std::vector<BodyData> body_list;
    void clear() { body_list.clear(); is_new = false; timestamp = Timestamp(); }
};

// ---- Cameras and transport ----

struct CameraIdentifier {
    uint64_t sn = 0;
    CameraIdentifier() = default;
    explicit CameraIdentifier(uint64_t serial) : sn(serial) {}
    bool operator<(const CameraIdentifier& o) const { return sn < o.sn; }
    bool operator==(const CameraIdentifier& o) const { return sn == o.sn; }
    bool operator!=(const CameraIdentifier& o) const { return sn != o.sn; }
};

class CommunicationParameters {
public:
    CommunicationParameters() = default;
    void setForSharedMemory();
    void setForLocalNetwork(int port);
    void setForLocalNetwork(const std::string& ip, int port);
    COMM_TYPE getType() const { return type_; }
    int getPort() const { return port_; }
    const std::string& getIpAddress() const { return ip_; }

private:
    COMM_TYPE type_ = COMM_TYPE::SHARED_MEMORY;
    int port_ = 0;
    std::string ip_;
};

class InputType {
public:
    InputType() = default;
    void setFromCameraID(int id, INPUT_TYPE kind = INPUT_TYPE::USB);
    void setFromSerialNumber(unsigned int serial, INPUT_TYPE kind = INPUT_TYPE::USB);
    bool setFromSVOFile(const std::string& path);
    bool setFromStream(const std::string& ip, unsigned short port = 30000);

    INPUT_TYPE getType() const { return type_; }
    const std::string& getConfiguration() const { return configuration_; }
    const std::string& getSecondConfiguration() const { return secondConfiguration_; }
    bool isInit() const { return isInit_; }
    bool isLive() const { return isLive_; }
    int getNumber() const { return number_; }
    bool isFromSerialNumber() const { return bySerialNumber_; }

    // Raw member access, used when a room entry is copied field by field.
    INPUT_TYPE type_ = INPUT_TYPE::USB;
    std::string configuration_;        // device path, serial text or stream address
    std::string secondConfiguration_;  // second location (e.g. stream port or file)
    bool isInit_ = false;
    bool isLive_ = true;
    int number_ = 0;                   // serial number or camera id
    bool bySerialNumber_ = false;      // number_ is a serial number rather than a camera id
};

// One camera of a room.
struct FusionConfiguration {
    int serial_number = 0;
    CommunicationParameters communication_parameters;
    Transform pose;
    InputType input_type;
    bool override_gravity = false;
};

struct DeviceProperties {
    CAMERA_STATE camera_state = CAMERA_STATE::AVAILABLE;
    int id = -1;
    std::string path;
    std::string camera_model = "Pyra 2i";
    unsigned int serial_number = 0;
    INPUT_TYPE input_type = INPUT_TYPE::USB;
};

struct Pose {
    Transform pose_data;
    Timestamp timestamp;
    int pose_confidence = 0;
    std::array<float, 36> pose_covariance{};
    bool valid = false;
    Translation getTranslation() const { return pose_data.getTranslation(); }
    Orientation getOrientation() const { return pose_data.getOrientation(); }
    Vector3f getRotationVector() const { return pose_data.getRotationVector(); }
};

// Per-camera figures measured by the fusion.
struct CameraMetrics {
    float received_fps = 0.f;
    float received_latency = 0.f;  // seconds
    float synced_latency = 0.f;    // seconds
    bool is_present = false;
    float ratio_detection = 0.f;   // share of frames with at least one body
    float delta_ts = 0.f;          // seconds between this camera's frame and the synced set
    uint64_t dropped_frames = 0;   // malformed or foreign frames received and thrown away
};

struct FusionMetrics {
    float mean_camera_fused = 0.f;         // fused fps
    float mean_stdev_between_camera = 0.f; // seconds
    std::map<CameraIdentifier, CameraMetrics> camera_individual_stats;
    void reset() { *this = FusionMetrics(); }
};

// ---- Images and point clouds (CPU memory only) ----

struct Resolution {
    size_t width = 0;
    size_t height = 0;
    Resolution() = default;
    Resolution(size_t w, size_t h) : width(w), height(h) {}
    size_t area() const { return width * height; }
};

// An image of 4-float pixels (x, y, z, colour) kept in CPU memory; copies share the data.
class Mat {
public:
    Mat() = default;
    Mat(Resolution resolution);  // NOLINT
    void alloc(Resolution resolution);
    void free(MEM memory = MEM::BOTH);
    bool isInit() const { return static_cast<bool>(data_); }
    Resolution getResolution() const { return resolution_; }
    size_t getWidth() const { return resolution_.width; }
    size_t getHeight() const { return resolution_.height; }
    // Pixels, row by row; nullptr when not allocated.
    float4* getPtr(MEM memory = MEM::CPU) const;
    size_t getStepBytes() const { return resolution_.width * sizeof(float4); }

private:
    Resolution resolution_;
    std::shared_ptr<std::vector<float4>> data_;
};

struct FusedPointCloud {
    std::vector<float4> vertices;  // x, y, z, packed colour
    std::vector<int> indices;
    Timestamp timestamp;
    void clear() { vertices.clear(); indices.clear(); }
    size_t getNumberOfPoints() const { return vertices.size(); }
};

}  // namespace lum
