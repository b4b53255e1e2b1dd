// MessagePack parsed under a depth and value budget, so hostile nesting or a flood of tiny
// values cannot exhaust the stack or the heap; every field is checked.
#include "recording/record_codec.hpp"

#include <cstring>
#include <utility>

#include <nlohmann/json.hpp>

#include "pyra_codec/msgpack_reader.hpp"

namespace rec {

namespace {

using nlohmann::json;
using pyra_codec::readInteger;

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "float blobs are copied as little-endian bytes");
static_assert(sizeof(lum::Vector3f) == 3 * sizeof(float), "keypoints are copied as packed floats");
static_assert(sizeof(std::array<float, 6>) == 6 * sizeof(float), "covariances are copied as packed floats");
static_assert(sizeof(lum::Matrix4f) == 16 * sizeof(float), "poses are copied as packed floats");

constexpr size_t kMaxDepth = 6;
// Every MessagePack value takes at least one byte, so a payload within the chunk bound
// cannot exceed this many values by much; the budget keeps the tree's memory in proportion.
constexpr size_t kMaxValues = kMaxChunkBytes;
constexpr size_t kBodyScalars = 20;  // confidence, position, velocity, position covariance, dimensions, orientation

bool fail(std::string* why, const std::string& text) {
    if (why) *why = text;
    return false;
}

bool parse(const Bytes& payload, json& out, std::string* why) {
    if (pyra_codec::parseBounded(payload.data(), payload.size(), kMaxDepth, kMaxValues, out)) return true;
    return fail(why, "payload is not a MessagePack document of accepted depth and size");
}

// Floats are stored byte plane by byte plane (every float's lowest byte, then every
// second byte...): signs and exponents then sit together and compress far better than the
// noisy low mantissa bytes they would otherwise be interleaved with.
json floatBlob(const float* values, size_t count) {
    std::vector<uint8_t> bytes(count * sizeof(float));
    const uint8_t* in = reinterpret_cast<const uint8_t*>(values);
    for (size_t i = 0; i < count; ++i)
        for (size_t plane = 0; plane < sizeof(float); ++plane) bytes[plane * count + i] = in[i * sizeof(float) + plane];
    return json::binary(std::move(bytes));
}

// A blob of whole floats, at most `maxCount`, back in their order.
bool readBlob(const json& object, const char* key, size_t maxCount, std::vector<float>& values) {
    auto it = object.find(key);
    if (it == object.end() || !it->is_binary()) return false;
    const std::vector<uint8_t>& bytes = it->get_binary();
    if (bytes.size() % sizeof(float) || bytes.size() / sizeof(float) > maxCount) return false;
    const size_t count = bytes.size() / sizeof(float);
    values.resize(count);
    uint8_t* out = reinterpret_cast<uint8_t*>(values.data());
    for (size_t i = 0; i < count; ++i)
        for (size_t plane = 0; plane < sizeof(float); ++plane) out[i * sizeof(float) + plane] = bytes[plane * count + i];
    return true;
}

bool readBool(const json& object, const char* key, bool& out) {
    auto it = object.find(key);
    if (it == object.end() || !it->is_boolean()) return false;
    out = it->get<bool>();
    return true;
}

bool readText(const json& object, const char* key, std::string& out) {
    auto it = object.find(key);
    if (it == object.end() || !it->is_string() || it->get_ref<const std::string&>().size() > kMaxTextBytes) return false;
    out = it->get<std::string>();
    return true;
}

constexpr int kIntMin = std::numeric_limits<int>::min();
constexpr int kIntMax = std::numeric_limits<int>::max();

json encodeCamera(const lum::FusionConfiguration& camera) {
    const lum::CommunicationParameters& comm = camera.communication_parameters;
    const lum::InputType& input = camera.input_type;
    return {{"sn", camera.serial_number},
            {"pose", floatBlob(camera.pose.ptr(), 16)},
            {"grav", camera.override_gravity},
            {"comm", {{"type", int(comm.getType())}, {"ip", comm.getIpAddress()}, {"port", comm.getPort()}}},
            {"in",
             {{"type", int(input.type_)},
              {"conf", input.configuration_},
              {"conf2", input.secondConfiguration_},
              {"init", input.isInit_},
              {"live", input.isLive_},
              {"num", input.number_},
              {"bysn", input.bySerialNumber_}}}};
}

bool decodeCamera(const json& c, lum::FusionConfiguration& camera, std::string* why) {
    if (!c.is_object()) return fail(why, "a room camera is not a map");
    if (!readInteger(c, "sn", kIntMin, kIntMax, camera.serial_number)) return fail(why, "camera \"sn\" missing or out of range");
    std::vector<float> pose;
    if (!readBlob(c, "pose", 16, pose) || pose.size() != 16) return fail(why, "camera \"pose\" is not 16 floats");
    std::memcpy(camera.pose.ptr(), pose.data(), 16 * sizeof(float));
    if (!readBool(c, "grav", camera.override_gravity)) return fail(why, "camera \"grav\" missing or not a boolean");
    auto comm = c.find("comm");
    int type = 0, port = 0;
    std::string ip;
    if (comm == c.end() || !comm->is_object() || !readInteger(*comm, "type", 0, 1, type) ||
        !readText(*comm, "ip", ip) || !readInteger(*comm, "port", kIntMin, kIntMax, port))
        return fail(why, "camera \"comm\" missing or malformed");
    if (lum::COMM_TYPE(type) == lum::COMM_TYPE::SHARED_MEMORY) {
        camera.communication_parameters.setForSharedMemory();
    } else {
        camera.communication_parameters.setForLocalNetwork(ip, port);
    }
    // The setters may normalise; the recording keeps the values exactly as they were.
    if (camera.communication_parameters.getIpAddress() != ip || camera.communication_parameters.getPort() != port)
        return fail(why, "camera \"comm\" holds values a room cannot carry");
    auto in = c.find("in");
    lum::InputType& input = camera.input_type;
    int inputType = 0;
    if (in == c.end() || !in->is_object() || !readInteger(*in, "type", 0, int(lum::INPUT_TYPE::GMSL), inputType) ||
        !readText(*in, "conf", input.configuration_) || !readText(*in, "conf2", input.secondConfiguration_) ||
        !readBool(*in, "init", input.isInit_) || !readBool(*in, "live", input.isLive_) ||
        !readInteger(*in, "num", kIntMin, kIntMax, input.number_) || !readBool(*in, "bysn", input.bySerialNumber_))
        return fail(why, "camera \"in\" missing or malformed");
    input.type_ = lum::INPUT_TYPE(inputType);
    return true;
}

json encodeBody(const lum::BodyData& b) {
    const float scalars[kBodyScalars] = {
        b.confidence,
        b.position.x, b.position.y, b.position.z,
        b.velocity.x, b.velocity.y, b.velocity.z,
        b.position_covariance[0], b.position_covariance[1], b.position_covariance[2],
        b.position_covariance[3], b.position_covariance[4], b.position_covariance[5],
        b.dimensions.x, b.dimensions.y, b.dimensions.z,
        b.global_root_orientation.x, b.global_root_orientation.y, b.global_root_orientation.z,
        b.global_root_orientation.w};
    json body = {{"id", b.id},
                 {"st", int(b.tracking_state)},
                 {"f", floatBlob(scalars, kBodyScalars)},
                 {"kp", floatBlob(b.keypoint.empty() ? nullptr : &b.keypoint[0].x, b.keypoint.size() * 3)},
                 {"kc", floatBlob(b.keypoint_confidence.data(), b.keypoint_confidence.size())},
                 {"cov", floatBlob(b.keypoint_covariances.empty() ? nullptr : b.keypoint_covariances[0].data(),
                                   b.keypoint_covariances.size() * 6)}};
    // The tracker's text id is nearly always the number's; only a different one is kept.
    if (b.unique_object_id != std::to_string(b.id)) body["uid"] = b.unique_object_id;
    return body;
}

bool decodeBody(const json& j, lum::BodyData& b, std::string* why) {
    if (!j.is_object()) return fail(why, "a body is not a map");
    int state = 0;
    if (!readInteger(j, "id", kIntMin, kIntMax, b.id)) return fail(why, "body \"id\" missing or out of range");
    if (!readInteger(j, "st", 0, int(lum::OBJECT_TRACKING_STATE::TERMINATE), state))
        return fail(why, "body \"st\" missing or out of range");
    b.tracking_state = lum::OBJECT_TRACKING_STATE(state);
    std::vector<float> s;
    if (!readBlob(j, "f", kBodyScalars, s) || s.size() != kBodyScalars)
        return fail(why, "body \"f\" is not " + std::to_string(kBodyScalars) + " floats");
    b.confidence = s[0];
    b.position = lum::Vector3f(s[1], s[2], s[3]);
    b.velocity = lum::Vector3f(s[4], s[5], s[6]);
    std::memcpy(b.position_covariance.data(), s.data() + 7, 6 * sizeof(float));
    b.dimensions = lum::Vector3f(s[13], s[14], s[15]);
    b.global_root_orientation = lum::Orientation(s[16], s[17], s[18], s[19]);
    if (!readBlob(j, "kp", kMaxKeypointsPerBody * 3, s) || s.size() % 3)
        return fail(why, "body \"kp\" is not whole keypoints");
    b.keypoint.resize(s.size() / 3);
    if (!s.empty()) std::memcpy(&b.keypoint[0].x, s.data(), s.size() * sizeof(float));
    if (!readBlob(j, "kc", kMaxKeypointsPerBody, b.keypoint_confidence))
        return fail(why, "body \"kc\" is not keypoint confidences");
    if (!readBlob(j, "cov", kMaxKeypointsPerBody * 6, s) || s.size() % 6)
        return fail(why, "body \"cov\" is not whole covariances");
    b.keypoint_covariances.resize(s.size() / 6);
    if (!s.empty()) std::memcpy(b.keypoint_covariances[0].data(), s.data(), s.size() * sizeof(float));
    auto uid = j.find("uid");
    if (uid == j.end()) {
        b.unique_object_id = std::to_string(b.id);
    } else if (!readText(j, "uid", b.unique_object_id)) {
        return fail(why, "body \"uid\" is not a short text");
    }
    return true;
}

bool decodeEntry(const json& j, RecordedBodies& entry, std::string* why) {
    if (!j.is_object()) return fail(why, "an entry is not a map");
    uint64_t ts = 0;
    int format = 0;
    if (!readInteger(j, "sn", kIntMin, kIntMax, entry.serial)) return fail(why, "entry \"sn\" missing or out of range");
    if (!readInteger(j, "ts", uint64_t(0), ~uint64_t(0), ts)) return fail(why, "entry \"ts\" missing or out of range");
    if (!readInteger(j, "fmt", 0, int(lum::BODY_FORMAT::LAST) - 1, format))
        return fail(why, "entry \"fmt\" missing or out of range");
    if (!readBool(j, "new", entry.bodies.is_new) || !readBool(j, "trk", entry.bodies.is_tracked))
        return fail(why, "entry \"new\" or \"trk\" missing or not a boolean");
    entry.bodies.timestamp = lum::Timestamp(ts);
    entry.bodies.body_format = lum::BODY_FORMAT(format);
    auto bodies = j.find("b");
    if (bodies == j.end() || !bodies->is_array() || bodies->size() > kMaxBodiesPerEntry)
        return fail(why, "entry \"b\" missing, not a list or longer than " + std::to_string(kMaxBodiesPerEntry));
    entry.bodies.body_list.resize(bodies->size());
    for (size_t i = 0; i < bodies->size(); ++i)
        if (!decodeBody((*bodies)[i], entry.bodies.body_list[i], why)) return false;
    return true;
}

}  // namespace

Bytes encodeRoom(const RecordingHeader& header) {
    json cameras = json::array();
    for (const lum::FusionConfiguration& camera : header.room) cameras.push_back(encodeCamera(camera));
    json doc = {{"by", header.createdBy},
                {"cs", int(header.coordinateSystem)},
                {"unit", int(header.unit)},
                {"fmt", int(header.bodyFormat)},
                {"depth", int(header.depthMode)},
                {"cams", std::move(cameras)}};
    return json::to_msgpack(doc);
}

bool decodeRoom(const Bytes& payload, RecordingHeader& header, std::string* why) {
    json doc;
    if (!parse(payload, doc, why)) return false;
    if (!doc.is_object()) return fail(why, "room is not a map");
    int cs = 0, unit = 0, format = 0, depth = 0;
    if (!readText(doc, "by", header.createdBy)) return fail(why, "room \"by\" missing or not a short text");
    if (!readInteger(doc, "cs", 0, int(lum::COORDINATE_SYSTEM::LAST) - 1, cs)) return fail(why, "room \"cs\" missing or out of range");
    if (!readInteger(doc, "unit", 0, int(lum::UNIT::LAST) - 1, unit)) return fail(why, "room \"unit\" missing or out of range");
    if (!readInteger(doc, "fmt", 0, int(lum::BODY_FORMAT::LAST) - 1, format)) return fail(why, "room \"fmt\" missing or out of range");
    if (!readInteger(doc, "depth", 0, int(lum::DEPTH_MODE::LAST) - 1, depth)) return fail(why, "room \"depth\" missing or out of range");
    header.coordinateSystem = lum::COORDINATE_SYSTEM(cs);
    header.unit = lum::UNIT(unit);
    header.bodyFormat = lum::BODY_FORMAT(format);
    header.depthMode = lum::DEPTH_MODE(depth);
    auto cameras = doc.find("cams");
    if (cameras == doc.end() || !cameras->is_array() || cameras->size() > kMaxCameras)
        return fail(why, "room \"cams\" missing, not a list or longer than " + std::to_string(kMaxCameras));
    header.room.assign(cameras->size(), lum::FusionConfiguration());
    for (size_t i = 0; i < cameras->size(); ++i)
        if (!decodeCamera((*cameras)[i], header.room[i], why)) return false;
    return true;
}

void appendEntry(const RecordedBodies& entry, Bytes& out) {
    json bodies = json::array();
    for (const lum::BodyData& body : entry.bodies.body_list) bodies.push_back(encodeBody(body));
    json doc = {{"sn", entry.serial},
                {"ts", entry.bodies.timestamp.getNanoseconds()},
                {"new", entry.bodies.is_new},
                {"trk", entry.bodies.is_tracked},
                {"fmt", int(entry.bodies.body_format)},
                {"b", std::move(bodies)}};
    json::to_msgpack(doc, out);
}

Bytes entriesPayload(const Bytes& entries, size_t count) {
    // A MessagePack array32 header: the entries were packed one by one as they came.
    Bytes payload(5 + entries.size());
    payload[0] = 0xdd;
    for (int i = 0; i < 4; ++i) payload[1 + i] = uint8_t(count >> (24 - 8 * i));
    if (!entries.empty()) std::memcpy(payload.data() + 5, entries.data(), entries.size());
    return payload;
}

bool decodeEntries(const Bytes& payload, std::vector<RecordedBodies>& entries, std::string* why) {
    json doc;
    if (!parse(payload, doc, why)) return false;
    if (!doc.is_array() || doc.size() > kMaxEntriesPerChunk)
        return fail(why, "bodies chunk is not a list of at most " + std::to_string(kMaxEntriesPerChunk) + " entries");
    std::vector<RecordedBodies> decoded(doc.size());
    for (size_t i = 0; i < doc.size(); ++i)
        if (!decodeEntry(doc[i], decoded[i], why)) return false;
    entries = std::move(decoded);
    return true;
}

Bytes encodeSummary(const RecordingSummary& summary) {
    return json::to_msgpack(json{{"entries", summary.entries}, {"chunks", summary.bodyChunks}});
}

bool decodeSummary(const Bytes& payload, RecordingSummary& summary, std::string* why) {
    json doc;
    if (!parse(payload, doc, why)) return false;
    if (!doc.is_object() || !readInteger(doc, "entries", uint64_t(0), ~uint64_t(0), summary.entries) ||
        !readInteger(doc, "chunks", uint64_t(0), ~uint64_t(0), summary.bodyChunks))
        return fail(why, "closing chunk is not a map of \"entries\" and \"chunks\"");
    return true;
}

}  // namespace rec
