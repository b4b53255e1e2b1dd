// The room configuration document on the library side. Every member is checked for presence,
// type and range; the first fault is named by its path so a user can find it in an editor.
#include "room_document.hpp"

#include "lum/room_document.hpp"

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <set>

namespace lum {
namespace room {
namespace {

using nlohmann::json;

// Thrown and caught inside this file only; the public entry points return the text.
struct Fault {
    std::string message;
};

[[noreturn]] void fail(const std::string& message) { throw Fault{message}; }

// Deeper nesting than this cannot be a room, and refusing it early keeps a hostile file
// from building a huge tree.
constexpr int kMaxNesting = 32;
// Metres or radians; anything larger is a corrupt value, not a room.
constexpr double kMaxMagnitude = 1e6;

bool isValid(COORDINATE_SYSTEM system) {
    return int(system) >= 0 && int(system) < int(COORDINATE_SYSTEM::LAST);
}
bool isValid(UNIT unit) { return int(unit) >= 0 && int(unit) < int(UNIT::LAST); }

bool nestingWithin(const std::string& text, int limit) {
    int depth = 0;
    bool inString = false, escaped = false;
    for (const char ch : text) {
        if (inString) {
            if (escaped) escaped = false;
            else if (ch == '\\') escaped = true;
            else if (ch == '"') inString = false;
        } else if (ch == '"') {
            inString = true;
        } else if (ch == '[' || ch == '{') {
            if (++depth > limit) return false;
        } else if (ch == ']' || ch == '}') {
            --depth;
        }
    }
    return true;
}

// Only the canonical decimal text ("12", "-5", "0"), so "012" and "12" cannot name two
// members for one camera.
bool parseInt32(const std::string& text, int& value) {
    long long v = 0;
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, v);
    if (result.ec != std::errc() || result.ptr != end) return false;
    if (v < INT32_MIN || v > INT32_MAX || std::to_string(v) != text) return false;
    value = int(v);
    return true;
}

// Keys come from the file: keep messages short and printable.
std::string printable(const std::string& text) {
    std::string out;
    for (const char ch : text.substr(0, 40)) out += (ch >= 0x20 && ch < 0x7f) ? ch : '?';
    if (text.size() > 40) out += "...";
    return out;
}

// Walks one camera object, naming each member by its path for the messages.
class CameraReader {
public:
    explicit CameraReader(const std::string& key) : where_("camera \"" + printable(key) + "\": ") {}

    const json& object(const json& parent, const std::string& path, const char* key) const {
        const json& value = member(parent, path, key);
        if (!value.is_object()) fail(where_ + join(path, key) + " must be an object");
        return value;
    }

    // Keys this reader does not know are refused by name: a misspelt member would
    // otherwise be dropped without a word and its default used instead.
    void onlyKnown(const json& object, const std::string& path, std::initializer_list<const char*> known) const {
        for (const auto& member : object.items()) {
            bool found = false;
            for (const char* key : known) found = found || member.key() == key;
            if (!found) fail(where_ + join(path, printable(member.key()).c_str()) + " is not a known member");
        }
    }

    const json* optional(const json& parent, const char* key) const {
        const auto it = parent.find(key);
        return it == parent.end() ? nullptr : &*it;
    }

    std::string text(const json& parent, const std::string& path, const char* key) const {
        const json& value = member(parent, path, key);
        if (!value.is_string()) fail(where_ + join(path, key) + " must be a string");
        return value.get<std::string>();
    }

    int port(const json& parent, const std::string& path, const char* key) const {
        const json& value = member(parent, path, key);
        if (!value.is_number_integer() || value.get<long long>() < 0 || value.get<long long>() > 65535)
            fail(where_ + join(path, key) + " must be an integer from 0 to 65535");
        return int(value.get<long long>());
    }

    Vector3f vector(const json& parent, const std::string& path, const char* key) const {
        const json& value = member(parent, path, key);
        const std::string name = join(path, key);
        if (!value.is_array() || value.size() != 3) fail(where_ + name + " must be an array of 3 numbers");
        Vector3f out;
        for (size_t i = 0; i < 3; ++i) {
            if (!value[i].is_number()) fail(where_ + name + " must be an array of 3 numbers");
            const double v = value[i].get<double>();
            if (!std::isfinite(v) || std::abs(v) > kMaxMagnitude)
                fail(where_ + name + " holds " + value[i].dump() + ", out of range");
            out[i] = float(v);
        }
        return out;
    }

    [[noreturn]] void fault(const std::string& what) const { fail(where_ + what); }

    static std::string join(const std::string& path, const char* key) {
        const std::string quotedKey = std::string("\"") + key + "\"";
        return path.empty() ? quotedKey : path + "." + quotedKey;
    }

private:
    const json& member(const json& parent, const std::string& path, const char* key) const {
        const auto it = parent.find(key);
        if (it == parent.end()) fail(where_ + join(path, key) + " is missing");
        return *it;
    }

    std::string where_;
};

CommunicationParameters readFusionInput(const CameraReader& reader, const json& input) {
    const json& fusion = reader.object(input, "\"input\"", "fusion");
    reader.onlyKnown(fusion, "\"input\".\"fusion\"", {"type", "configuration"});
    const std::string type = reader.text(fusion, "\"input\".\"fusion\"", "type");
    CommunicationParameters parameters;
    if (type == "SHARED_MEMORY") {
        parameters.setForSharedMemory();
    } else if (type == "LOCAL_NETWORK") {
        const std::string path = "\"input\".\"fusion\".\"configuration\"";
        const json& configuration = reader.object(fusion, "\"input\".\"fusion\"", "configuration");
        reader.onlyKnown(configuration, path, {"ip", "port"});
        const std::string ip = reader.text(configuration, path, "ip");
        parameters.setForLocalNetwork(ip, reader.port(configuration, path, "port"));
    } else {
        reader.fault("\"input\".\"fusion\".\"type\" must be \"LOCAL_NETWORK\" or \"SHARED_MEMORY\"");
    }
    return parameters;
}

InputType readPyraInput(const CameraReader& reader, const json& input) {
    const json& pyra = reader.object(input, "\"input\"", "pyra");
    reader.onlyKnown(pyra, "\"input\".\"pyra\"", {"configuration", "type"});
    const std::string configuration = reader.text(pyra, "\"input\".\"pyra\"", "configuration");
    std::string type;
    if (reader.optional(pyra, "type")) type = reader.text(pyra, "\"input\".\"pyra\"", "type");

    const INPUT_TYPE kind = type.rfind("GMSL", 0) == 0 ? INPUT_TYPE::GMSL : INPUT_TYPE::USB;
    InputType result;
    int number = 0;
    // Without a type the document came from Halden's own writer: a serial number.
    if (type.empty() || type == "USB_SERIAL" || type == "GMSL_SERIAL") {
        if (!parseInt32(configuration, number) || number <= 0)
            reader.fault("\"input\".\"pyra\".\"configuration\" must be a serial number (a positive whole number) "
                         "as decimal text");
        result.setFromSerialNumber(static_cast<unsigned int>(number), kind);
    } else if (type == "USB_ID" || type == "GMSL_ID") {
        if (!parseInt32(configuration, number) || number < 0)
            reader.fault("\"input\".\"pyra\".\"configuration\" must be a camera id as decimal text");
        result.setFromCameraID(number, kind);
    } else if (type == "SVO_FILE") {
        if (!result.setFromSVOFile(expandHome(configuration)))
            reader.fault("\"input\".\"pyra\".\"configuration\" must be the path of a recording");
    } else if (type == "STREAM") {
        const size_t colon = configuration.rfind(':');
        int port = 0;
        if (colon == std::string::npos || !parseInt32(configuration.substr(colon + 1), port) || port <= 0 ||
            port > 65535 || !result.setFromStream(configuration.substr(0, colon), static_cast<unsigned short>(port)))
            reader.fault("\"input\".\"pyra\".\"configuration\" must be \"address:port\" for a stream");
    } else {
        reader.fault("\"input\".\"pyra\".\"type\" must be one of \"USB_SERIAL\", \"USB_ID\", \"GMSL_SERIAL\", "
                     "\"GMSL_ID\", \"SVO_FILE\", \"STREAM\"");
    }
    return result;
}

FusionConfiguration readCamera(const std::string& key, const json& camera, COORDINATE_SYSTEM coordinateSystem,
                               UNIT unit) {
    const CameraReader reader(key);
    FusionConfiguration configuration;
    // Serial numbers of real cameras are positive; "0" or "-41001" is a typo or a corrupt file.
    if (!parseInt32(key, configuration.serial_number) || configuration.serial_number <= 0)
        reader.fault("the key must be the camera's serial number (a positive whole number) as decimal text");
    if (!camera.is_object()) reader.fault("the camera must be an object");

    const json& input = reader.object(camera, "", "input");
    reader.onlyKnown(input, "\"input\"", {"fusion", "pyra"});
    configuration.communication_parameters = readFusionInput(reader, input);
    configuration.input_type = readPyraInput(reader, input);

    // Stored in the image frame and in metres.
    const json& world = reader.object(camera, "", "world");
    reader.onlyKnown(world, "\"world\"", {"rotation", "translation"});
    Transform pose;
    pose.setRotationVector(reader.vector(world, "\"world\"", "rotation"));
    pose.setTranslation(reader.vector(world, "\"world\"", "translation") * getUnitScale(UNIT::METER, unit));
    convertCoordinateSystem(pose, COORDINATE_SYSTEM::IMAGE, coordinateSystem);
    configuration.pose = pose;
    // Last, so a misspelt "world" is reported as missing rather than as unknown.
    reader.onlyKnown(camera, "", {"input", "world"});
    return configuration;
}

json asArray(const Vector3f& v) { return json::array({double(v.x), double(v.y), double(v.z)}); }

// Checked on the numbers as written, so the check and the file can never disagree.
bool withinRange(const json& v) {
    for (const json& x : v)
        if (!std::isfinite(x.get<double>()) || std::abs(x.get<double>()) > kMaxMagnitude) return false;
    return true;
}

std::string pyraType(const InputType& input) {
    const std::string prefix = input.getType() == INPUT_TYPE::GMSL ? "GMSL" : "USB";
    switch (input.getType()) {
        case INPUT_TYPE::SVO: return "SVO_FILE";
        case INPUT_TYPE::STREAM: return "STREAM";
        case INPUT_TYPE::USB:
        case INPUT_TYPE::GMSL: break;
    }
    return prefix + (input.isInit() && !input.isFromSerialNumber() ? "_ID" : "_SERIAL");
}

std::string pyraConfiguration(const FusionConfiguration& configuration) {
    const InputType& input = configuration.input_type;
    switch (input.getType()) {
        case INPUT_TYPE::SVO: return input.getConfiguration();
        case INPUT_TYPE::STREAM: return input.getConfiguration() + ":" + input.getSecondConfiguration();
        case INPUT_TYPE::USB:
        case INPUT_TYPE::GMSL: break;
    }
    return std::to_string(input.isInit() ? input.getNumber() : configuration.serial_number);
}

}  // namespace

std::string expandHome(const std::string& path) {
    if (path.rfind("~/", 0) != 0) return path;
    const char* home = std::getenv("HOME");
    if (!home || !*home) return path;
    return std::string(home) + path.substr(1);
}

bool toDocument(const std::vector<FusionConfiguration>& configurations, COORDINATE_SYSTEM coordinateSystem,
                UNIT unit, json& document, std::string& problem) {
    if (!isValid(coordinateSystem) || !isValid(unit)) {
        problem = "unknown coordinate system or unit (" + toString(coordinateSystem) + ", " + toString(unit) + ")";
        return false;
    }
    document = json::object();
    for (const auto& configuration : configurations) {
        const std::string key = std::to_string(configuration.serial_number);
        // What is written must open again, and the reader takes only real serial numbers.
        if (configuration.serial_number <= 0) {
            problem = "camera \"" + key + "\": a serial number must be positive";
            return false;
        }
        json camera = writeRoomCamera(configuration, coordinateSystem, unit);
        if (!withinRange(camera["world"]["rotation"]) || !withinRange(camera["world"]["translation"])) {
            problem = "camera \"" + key + "\": the pose is not finite or out of range";
            return false;
        }
        const CommunicationParameters& comm = configuration.communication_parameters;
        if (comm.getPort() < 0 || comm.getPort() > 65535) {
            problem = "camera \"" + key + "\": port " + std::to_string(comm.getPort()) + " is out of range";
            return false;
        }
        // The file also says how a camera on this computer is reached and what kind of
        // input the serial number names; the in-memory document never does.
        if (comm.getType() == COMM_TYPE::SHARED_MEMORY) camera["input"]["fusion"]["type"] = "SHARED_MEMORY";
        camera["input"]["pyra"]["type"] = pyraType(configuration.input_type);
        camera["input"]["pyra"]["configuration"] = pyraConfiguration(configuration);
        document[key] = std::move(camera);
    }
    return true;
}

bool fromText(const std::string& text, COORDINATE_SYSTEM coordinateSystem, UNIT unit,
              std::vector<FusionConfiguration>& configurations, std::string& problem) {
    configurations.clear();
    try {
        if (!isValid(coordinateSystem) || !isValid(unit))
            fail("unknown coordinate system or unit (" + toString(coordinateSystem) + ", " + toString(unit) + ")");
        if (text.size() > kMaxDocumentBytes)
            fail("larger than " + std::to_string(kMaxDocumentBytes >> 20) + " MiB, not a room configuration");
        if (text.find_first_not_of(" \t\r\n") == std::string::npos) fail("empty, not a room configuration");
        if (!nestingWithin(text, kMaxNesting))
            fail("nested deeper than " + std::to_string(kMaxNesting) + " levels, not a room configuration");

        // The parser keeps the last of two members with one key; a room file holding one
        // camera twice would lose the other without a word, so a repeated key is refused.
        std::vector<std::set<std::string>> keysByDepth;
        const json::parser_callback_t refuseRepeats = [&keysByDepth](int, json::parse_event_t event, json& parsed) {
            if (event == json::parse_event_t::object_start) keysByDepth.emplace_back();
            else if (event == json::parse_event_t::object_end) keysByDepth.pop_back();
            else if (event == json::parse_event_t::key && !keysByDepth.empty()) {
                const std::string& key = parsed.get_ref<const std::string&>();
                if (!keysByDepth.back().insert(key).second)
                    fail((keysByDepth.size() == 1 ? "camera \"" : "member \"") + printable(key) +
                         "\" appears twice; only one of them could be kept");
            }
            return true;
        };
        json document;
        try {
            document = json::parse(text, refuseRepeats);
        } catch (const json::exception& e) {
            const std::string what = e.what();
            const size_t start = what.find("] ");
            fail("not valid JSON: " + (start == std::string::npos ? what : what.substr(start + 2)));
        }
        if (!document.is_object()) fail("the document must be an object of cameras keyed by serial number");

        std::vector<FusionConfiguration> result;
        for (const auto& [key, camera] : document.items())
            result.push_back(readCamera(key, camera, coordinateSystem, unit));
        configurations = std::move(result);
        return true;
    } catch (const Fault& fault) {
        problem = fault.message;
    } catch (const std::exception& e) {
        problem = std::string("unexpected fault: ") + e.what();
    }
    return false;
}

}  // namespace room

nlohmann::json writeRoomCamera(const FusionConfiguration& configuration, COORDINATE_SYSTEM coordinateSystem,
                               UNIT unit) {
    using nlohmann::json;
    json camera = json::object();
    // A change of basis of the pose, so both sides of it are converted.
    const Matrix4f c = getCoordinateTransformConversion4f(coordinateSystem, COORDINATE_SYSTEM::IMAGE);
    const Transform pose((c * configuration.pose) * Matrix4f::inverse(c));
    camera["world"]["rotation"] = room::asArray(pose.getRotationVector());
    camera["world"]["translation"] = room::asArray(pose.getTranslation() * getUnitScale(unit, UNIT::METER));

    const CommunicationParameters& comm = configuration.communication_parameters;
    camera["input"]["pyra"]["configuration"] = std::to_string(configuration.serial_number);
    camera["input"]["fusion"]["type"] = "LOCAL_NETWORK";
    camera["input"]["fusion"]["configuration"]["port"] = comm.getPort();
    camera["input"]["fusion"]["configuration"]["ip"] = comm.getIpAddress();
    return camera;
}

}  // namespace lum
