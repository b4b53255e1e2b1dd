// Value enums of the lum camera API and their text forms.
// Numbers are part of the API: callers pass and compare them as plain integers.
#pragma once

#include <cstdint>
#include <string>

namespace lum {

enum class UNIT : int { MILLIMETER = 0, CENTIMETER = 1, METER = 2, INCH = 3, FOOT = 4, LAST = 5 };

enum class COORDINATE_SYSTEM : int {
    IMAGE = 0,                      // x right, y down, z forward
    LEFT_HANDED_Y_UP = 1,           // x right, y up, z forward
    RIGHT_HANDED_Y_UP = 2,          // x right, y up, z backward
    RIGHT_HANDED_Z_UP = 3,          // x right, y forward, z up
    LEFT_HANDED_Z_UP = 4,           // x right, y backward, z up
    RIGHT_HANDED_Z_UP_X_FWD = 5,    // x forward, y left, z up
    LAST = 6
};

enum class ERROR_CODE : int {
    CAMERA_REBOOTING = 8,
    CAMERA_ALREADY_IN_USE = 7,
    INVALID_MODEL = 6,
    AI_MODEL_NOT_OPTIMIZED = 5,
    END_OF_STREAM = 4,
    CORRUPTED_FRAME = 3,
    CAMERA_STREAM_FAILED_TO_START = 2,
    CAMERA_NOT_DETECTED = 1,
    SUCCESS = 0,
    FAILURE = -1,
    INVALID_FUNCTION_PARAMETERS = -2,
    CAMERA_NOT_INITIALIZED = -3,
    MODULE_NOT_ENABLED = -4,
    PORT_IN_USE = -5,
};

enum class FUSION_ERROR_CODE : int {
    SUCCESS = 0,
    NO_NEW_DATA_AVAILABLE = -1,
    CONNECTION_TIMED_OUT = -2,
    INVALID_SENDER_VERSION = -3,
    SOURCE_MISMATCH = -4,
    CAMERA_NOT_SUBSCRIBED = -5,
    FUSION_NOT_INITIALIZED = -6,
    INVALID_PARAMETERS = -7,
    MODULE_NOT_ENABLED = -8,
    CONNECTION_FAILED = -9,
    ALREADY_SUBSCRIBED = -10,
    FAILURE = -11,
};

enum class COMM_TYPE : int { LOCAL_NETWORK = 0, SHARED_MEMORY = 1 };

enum class BODY_FORMAT : int { BODY_18 = 0, BODY_34 = 1, BODY_38 = 2, LAST = 3 };

enum class BODY_TRACKING_MODEL : int { HUMAN_BODY_FAST = 0, HUMAN_BODY_MEDIUM = 1, HUMAN_BODY_ACCURATE = 2, LAST = 3 };

enum class BODY_KEYPOINTS_SELECTION : int { FULL = 0, UPPER_BODY = 1 };

enum class AI_MODELS : int {
    GENERIC_DETECTION = 0,
    BODY_FAST = 3,
    BODY_MEDIUM = 4,
    BODY_ACCURATE = 5,
    LAST = 6
};

enum class DEPTH_MODE : int { NONE = 0, PERFORMANCE = 1, BALANCED = 2, QUALITY = 3, ULTRA = 4, NEURAL = 5, LAST = 6 };

enum class FLIP_MODE : int { OFF = 0, ON = 1, AUTO = 2 };

enum class RESOLUTION : int { HD2K = 0, HD1200 = 1, HD1080 = 2, HD720 = 3, SVGA = 4, VGA = 5, AUTO = 9, LAST = 10 };

enum class REFERENCE_FRAME : int { WORLD = 0, CAMERA = 1 };

enum class FUSION_REFERENCE_FRAME : int { BASELINK = 0, WORLD = 1 };

enum class POSITION_TYPE : int { RAW = 0, FUSION = 1 };

enum class POSITIONAL_TRACKING_MODE : int { STANDARD = 0, QUALITY = 1 };

enum class POSITIONAL_TRACKING_STATE : int { SEARCHING = 0, OK = 1, OFF = 2, FPS_TOO_LOW = 3 };

enum class OBJECT_TRACKING_STATE : int { OFF = 0, OK = 1, SEARCHING = 2, TERMINATE = 3 };

enum class INPUT_TYPE : int { USB = 0, SVO = 1, STREAM = 2, GMSL = 3 };

enum class CAMERA_STATE : int { AVAILABLE = 0, NOT_AVAILABLE = 1 };

enum class MEM : int { CPU = 1, GPU = 2, BOTH = 3 };

struct SdkVersion {
    int major = 5;
    int minor = 1;
    int patch = 0;
};
// The version senders report and the fusion requires (same major).
constexpr SdkVersion kSdkVersion{5, 1, 0};

std::string toString(UNIT value);
std::string toString(COORDINATE_SYSTEM value);
std::string toString(ERROR_CODE value);
std::string toString(FUSION_ERROR_CODE value);
std::string toString(COMM_TYPE value);
std::string toString(BODY_FORMAT value);
std::string toString(BODY_TRACKING_MODEL value);
std::string toString(BODY_KEYPOINTS_SELECTION value);
std::string toString(AI_MODELS value);
std::string toString(DEPTH_MODE value);
std::string toString(FLIP_MODE value);
std::string toString(RESOLUTION value);
std::string toString(REFERENCE_FRAME value);
std::string toString(FUSION_REFERENCE_FRAME value);
std::string toString(POSITION_TYPE value);
std::string toString(POSITIONAL_TRACKING_MODE value);
std::string toString(POSITIONAL_TRACKING_STATE value);
std::string toString(OBJECT_TRACKING_STATE value);
std::string toString(INPUT_TYPE value);
std::string toString(CAMERA_STATE value);
std::string toString(MEM value);

// Time since the epoch in nanoseconds.
struct Timestamp {
    uint64_t data_ns = 0;

    Timestamp() = default;
    Timestamp(uint64_t ns) : data_ns(ns) {}  // NOLINT: implicit on purpose, used as a plain number
    uint64_t getNanoseconds() const { return data_ns; }
    uint64_t getMilliseconds() const { return data_ns / 1000000ULL; }
    double getSeconds() const { return double(data_ns) * 1e-9; }
    void setMilliseconds(uint64_t ms) { data_ns = ms * 1000000ULL; }
    operator uint64_t() const { return data_ns; }  // NOLINT

    static Timestamp now();
};

}  // namespace lum
