// Text forms of the lum enums and the clock.
// Texts are short and upper case, as users see them in logs and message boxes.
#include "lum/types.hpp"

#include <chrono>

namespace lum {

std::string toString(UNIT value) {
    switch (value) {
        case UNIT::MILLIMETER: return "MILLIMETER";
        case UNIT::CENTIMETER: return "CENTIMETER";
        case UNIT::METER: return "METER";
        case UNIT::INCH: return "INCH";
        case UNIT::FOOT: return "FOOT";
        case UNIT::LAST: break;
    }
    return "UNKNOWN UNIT " + std::to_string(static_cast<int>(value));
}

std::string toString(COORDINATE_SYSTEM value) {
    switch (value) {
        case COORDINATE_SYSTEM::IMAGE: return "IMAGE";
        case COORDINATE_SYSTEM::LEFT_HANDED_Y_UP: return "LEFT HANDED Y UP";
        case COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP: return "RIGHT HANDED Y UP";
        case COORDINATE_SYSTEM::RIGHT_HANDED_Z_UP: return "RIGHT HANDED Z UP";
        case COORDINATE_SYSTEM::LEFT_HANDED_Z_UP: return "LEFT HANDED Z UP";
        case COORDINATE_SYSTEM::RIGHT_HANDED_Z_UP_X_FWD: return "RIGHT HANDED Z UP X FWD";
        case COORDINATE_SYSTEM::LAST: break;
    }
    return "UNKNOWN COORDINATE SYSTEM " + std::to_string(static_cast<int>(value));
}

std::string toString(ERROR_CODE value) {
    switch (value) {
        case ERROR_CODE::CAMERA_REBOOTING: return "CAMERA REBOOTING";
        case ERROR_CODE::CAMERA_ALREADY_IN_USE: return "CAMERA ALREADY IN USE";
        case ERROR_CODE::INVALID_MODEL: return "INVALID MODEL";
        case ERROR_CODE::AI_MODEL_NOT_OPTIMIZED: return "AI MODEL NOT OPTIMIZED";
        case ERROR_CODE::END_OF_STREAM: return "END OF STREAM";
        case ERROR_CODE::CORRUPTED_FRAME: return "CORRUPTED FRAME";
        case ERROR_CODE::CAMERA_STREAM_FAILED_TO_START: return "CAMERA STREAM FAILED TO START";
        case ERROR_CODE::CAMERA_NOT_DETECTED: return "CAMERA NOT DETECTED";
        case ERROR_CODE::SUCCESS: return "SUCCESS";
        case ERROR_CODE::FAILURE: return "FAILURE";
        case ERROR_CODE::INVALID_FUNCTION_PARAMETERS: return "INVALID FUNCTION PARAMETERS";
        case ERROR_CODE::CAMERA_NOT_INITIALIZED: return "CAMERA NOT INITIALIZED";
        case ERROR_CODE::MODULE_NOT_ENABLED: return "MODULE NOT ENABLED";
        case ERROR_CODE::PORT_IN_USE: return "PORT IN USE";
    }
    return "UNKNOWN ERROR CODE " + std::to_string(static_cast<int>(value));
}

std::string toString(FUSION_ERROR_CODE value) {
    switch (value) {
        case FUSION_ERROR_CODE::SUCCESS: return "SUCCESS";
        case FUSION_ERROR_CODE::NO_NEW_DATA_AVAILABLE: return "NO NEW DATA AVAILABLE";
        case FUSION_ERROR_CODE::CONNECTION_TIMED_OUT: return "CONNECTION TIMED OUT";
        case FUSION_ERROR_CODE::INVALID_SENDER_VERSION: return "INVALID SENDER VERSION";
        case FUSION_ERROR_CODE::SOURCE_MISMATCH: return "SOURCE MISMATCH";
        case FUSION_ERROR_CODE::CAMERA_NOT_SUBSCRIBED: return "CAMERA NOT SUBSCRIBED";
        case FUSION_ERROR_CODE::FUSION_NOT_INITIALIZED: return "FUSION NOT INITIALIZED";
        case FUSION_ERROR_CODE::INVALID_PARAMETERS: return "INVALID PARAMETERS";
        case FUSION_ERROR_CODE::MODULE_NOT_ENABLED: return "MODULE NOT ENABLED";
        case FUSION_ERROR_CODE::CONNECTION_FAILED: return "CONNECTION FAILED";
        case FUSION_ERROR_CODE::ALREADY_SUBSCRIBED: return "ALREADY SUBSCRIBED";
        case FUSION_ERROR_CODE::FAILURE: return "FAILURE";
    }
    return "UNKNOWN FUSION ERROR CODE " + std::to_string(static_cast<int>(value));
}

std::string toString(COMM_TYPE value) {
    switch (value) {
        case COMM_TYPE::LOCAL_NETWORK: return "LOCAL NETWORK";
        case COMM_TYPE::SHARED_MEMORY: return "SHARED MEMORY";
    }
    return "UNKNOWN COMM TYPE " + std::to_string(static_cast<int>(value));
}

std::string toString(BODY_FORMAT value) {
    switch (value) {
        case BODY_FORMAT::BODY_18: return "BODY 18";
        case BODY_FORMAT::BODY_34: return "BODY 34";
        case BODY_FORMAT::BODY_38: return "BODY 38";
        case BODY_FORMAT::LAST: break;
    }
    return "UNKNOWN BODY FORMAT " + std::to_string(static_cast<int>(value));
}

std::string toString(BODY_TRACKING_MODEL value) {
    switch (value) {
        case BODY_TRACKING_MODEL::HUMAN_BODY_FAST: return "HUMAN BODY FAST";
        case BODY_TRACKING_MODEL::HUMAN_BODY_MEDIUM: return "HUMAN BODY MEDIUM";
        case BODY_TRACKING_MODEL::HUMAN_BODY_ACCURATE: return "HUMAN BODY ACCURATE";
        case BODY_TRACKING_MODEL::LAST: break;
    }
    return "UNKNOWN BODY TRACKING MODEL " + std::to_string(static_cast<int>(value));
}

std::string toString(BODY_KEYPOINTS_SELECTION value) {
    switch (value) {
        case BODY_KEYPOINTS_SELECTION::FULL: return "FULL";
        case BODY_KEYPOINTS_SELECTION::UPPER_BODY: return "UPPER BODY";
    }
    return "UNKNOWN BODY KEYPOINTS SELECTION " + std::to_string(static_cast<int>(value));
}

std::string toString(AI_MODELS value) {
    switch (value) {
        case AI_MODELS::GENERIC_DETECTION: return "GENERIC DETECTION";
        case AI_MODELS::BODY_FAST: return "BODY FAST";
        case AI_MODELS::BODY_MEDIUM: return "BODY MEDIUM";
        case AI_MODELS::BODY_ACCURATE: return "BODY ACCURATE";
        case AI_MODELS::LAST: break;
    }
    return "UNKNOWN AI MODELS " + std::to_string(static_cast<int>(value));
}

std::string toString(DEPTH_MODE value) {
    switch (value) {
        case DEPTH_MODE::NONE: return "NONE";
        case DEPTH_MODE::PERFORMANCE: return "PERFORMANCE";
        case DEPTH_MODE::BALANCED: return "BALANCED";
        case DEPTH_MODE::QUALITY: return "QUALITY";
        case DEPTH_MODE::ULTRA: return "ULTRA";
        case DEPTH_MODE::NEURAL: return "NEURAL";
        case DEPTH_MODE::LAST: break;
    }
    return "UNKNOWN DEPTH MODE " + std::to_string(static_cast<int>(value));
}

std::string toString(FLIP_MODE value) {
    switch (value) {
        case FLIP_MODE::OFF: return "OFF";
        case FLIP_MODE::ON: return "ON";
        case FLIP_MODE::AUTO: return "AUTO";
    }
    return "UNKNOWN FLIP MODE " + std::to_string(static_cast<int>(value));
}

std::string toString(RESOLUTION value) {
    switch (value) {
        case RESOLUTION::HD2K: return "HD2K";
        case RESOLUTION::HD1200: return "HD1200";
        case RESOLUTION::HD1080: return "HD1080";
        case RESOLUTION::HD720: return "HD720";
        case RESOLUTION::SVGA: return "SVGA";
        case RESOLUTION::VGA: return "VGA";
        case RESOLUTION::AUTO: return "AUTO";
        case RESOLUTION::LAST: break;
    }
    return "UNKNOWN RESOLUTION " + std::to_string(static_cast<int>(value));
}

std::string toString(REFERENCE_FRAME value) {
    switch (value) {
        case REFERENCE_FRAME::WORLD: return "WORLD";
        case REFERENCE_FRAME::CAMERA: return "CAMERA";
    }
    return "UNKNOWN REFERENCE FRAME " + std::to_string(static_cast<int>(value));
}

std::string toString(FUSION_REFERENCE_FRAME value) {
    switch (value) {
        case FUSION_REFERENCE_FRAME::BASELINK: return "BASELINK";
        case FUSION_REFERENCE_FRAME::WORLD: return "WORLD";
    }
    return "UNKNOWN FUSION REFERENCE FRAME " + std::to_string(static_cast<int>(value));
}

std::string toString(POSITION_TYPE value) {
    switch (value) {
        case POSITION_TYPE::RAW: return "RAW";
        case POSITION_TYPE::FUSION: return "FUSION";
    }
    return "UNKNOWN POSITION TYPE " + std::to_string(static_cast<int>(value));
}

std::string toString(POSITIONAL_TRACKING_MODE value) {
    switch (value) {
        case POSITIONAL_TRACKING_MODE::STANDARD: return "STANDARD";
        case POSITIONAL_TRACKING_MODE::QUALITY: return "QUALITY";
    }
    return "UNKNOWN POSITIONAL TRACKING MODE " + std::to_string(static_cast<int>(value));
}

std::string toString(POSITIONAL_TRACKING_STATE value) {
    switch (value) {
        case POSITIONAL_TRACKING_STATE::SEARCHING: return "SEARCHING";
        case POSITIONAL_TRACKING_STATE::OK: return "OK";
        case POSITIONAL_TRACKING_STATE::OFF: return "OFF";
        case POSITIONAL_TRACKING_STATE::FPS_TOO_LOW: return "FPS TOO LOW";
    }
    return "UNKNOWN POSITIONAL TRACKING STATE " + std::to_string(static_cast<int>(value));
}

std::string toString(OBJECT_TRACKING_STATE value) {
    switch (value) {
        case OBJECT_TRACKING_STATE::OFF: return "OFF";
        case OBJECT_TRACKING_STATE::OK: return "OK";
        case OBJECT_TRACKING_STATE::SEARCHING: return "SEARCHING";
        case OBJECT_TRACKING_STATE::TERMINATE: return "TERMINATE";
    }
    return "UNKNOWN OBJECT TRACKING STATE " + std::to_string(static_cast<int>(value));
}

std::string toString(INPUT_TYPE value) {
    switch (value) {
        case INPUT_TYPE::USB: return "USB";
        case INPUT_TYPE::SVO: return "SVO";
        case INPUT_TYPE::STREAM: return "STREAM";
        case INPUT_TYPE::GMSL: return "GMSL";
    }
    return "UNKNOWN INPUT TYPE " + std::to_string(static_cast<int>(value));
}

std::string toString(CAMERA_STATE value) {
    switch (value) {
        case CAMERA_STATE::AVAILABLE: return "AVAILABLE";
        case CAMERA_STATE::NOT_AVAILABLE: return "NOT AVAILABLE";
    }
    return "UNKNOWN CAMERA STATE " + std::to_string(static_cast<int>(value));
}

std::string toString(MEM value) {
    switch (value) {
        case MEM::CPU: return "CPU";
        case MEM::GPU: return "GPU";
        case MEM::BOTH: return "BOTH";
    }
    return "UNKNOWN MEM " + std::to_string(static_cast<int>(value));
}

Timestamp Timestamp::now() {
    using namespace std::chrono;
    return Timestamp(static_cast<uint64_t>(duration_cast<nanoseconds>(system_clock::now().time_since_epoch()).count()));
}

}  // namespace lum
