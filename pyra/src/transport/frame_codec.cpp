// MessagePack frames and handshake messages. The decoder parses under a depth limit so
// hostile nesting cannot exhaust the stack, then checks every field it uses.
#include "transport/frame_codec.hpp"

#include <cmath>
#include <cstring>
#include <vector>

#include <nlohmann/json.hpp>

#include "pyra_codec/msgpack_reader.hpp"

namespace pyra::transport {

namespace {

using nlohmann::json;
using Bytes = std::vector<uint8_t>;
using pyra_codec::readInteger;

constexpr int kFormatVersion = 1;
constexpr size_t kMaxDepth = 6;

bool parseMsgpack(const void* data, size_t size, json& out, std::string* why) {
    if (!data || size == 0) {
        if (why) *why = "empty message";
        return false;
    }
    if (size > kMaxFrameBytes) {
        if (why) *why = "message larger than " + std::to_string(kMaxFrameBytes) + " bytes";
        return false;
    }
    // Only depth is budgeted: a frame's size bound already bounds its values.
    if (pyra_codec::parseBounded(static_cast<const uint8_t*>(data), size, kMaxDepth, SIZE_MAX, out)) return true;
    if (why) *why = "not a MessagePack document of accepted depth";
    return false;
}

Bytes floatBlob(const float* values, size_t count) {
    Bytes b(count * sizeof(float));
    if (count) std::memcpy(b.data(), values, b.size());
    return b;
}

// Reads a blob of exactly `count` floats; false if the field is absent, mistyped or sized wrong.
bool readFloats(const json& object, const char* key, size_t count, float* out) {
    auto it = object.find(key);
    if (it == object.end() || !it->is_binary()) return false;
    const auto& bin = it->get_binary();
    if (bin.size() != count * sizeof(float)) return false;
    if (count) std::memcpy(out, bin.data(), bin.size());
    return true;
}

bool fail(std::string* why, const std::string& text) {
    if (why) *why = text;
    return false;
}

bool decodeBody(const json& b, size_t keypoints, lum::BodyData& body, std::string* why) {
    if (!b.is_object()) return fail(why, "a body is not a map");
    int state = 0;
    if (!readInteger(b, "id", -1, 1 << 30, body.id)) return fail(why, "body \"id\" missing or out of range");
    if (!readInteger(b, "state", 0, 3, state)) return fail(why, "body \"state\" missing or out of range");
    body.tracking_state = lum::OBJECT_TRACKING_STATE(state);
    body.unique_object_id = std::to_string(body.id);
    float conf = 0.f;
    if (!readFloats(b, "conf", 1, &conf) || !(conf >= 0.f && conf <= 100.f))
        return fail(why, "body \"conf\" missing or out of range");
    body.confidence = conf;
    float dims[6];
    if (!readFloats(b, "pos", 3, dims)) return fail(why, "body \"pos\" is not 3 floats");
    body.position = lum::Vector3f(dims[0], dims[1], dims[2]);
    if (!readFloats(b, "dim", 3, dims + 3)) return fail(why, "body \"dim\" is not 3 floats");
    body.dimensions = lum::Vector3f(dims[3], dims[4], dims[5]);
    body.keypoint.resize(keypoints);
    body.keypoint_confidence.resize(keypoints);
    body.keypoint_covariances.resize(keypoints);
    if (!readFloats(b, "kp", keypoints * 3, &body.keypoint[0].x))
        return fail(why, "body \"kp\" does not hold 3 floats per keypoint");
    if (!readFloats(b, "kc", keypoints, body.keypoint_confidence.data()))
        return fail(why, "body \"kc\" does not hold one float per keypoint");
    if (!readFloats(b, "cov", keypoints * 6, body.keypoint_covariances[0].data()))
        return fail(why, "body \"cov\" does not hold 6 floats per keypoint");
    for (size_t i = 0; i < keypoints; ++i) {
        const lum::Vector3f& p = body.keypoint[i];
        // NaN marks a missing keypoint; infinities are never sent by a healthy camera.
        if (std::isinf(p.x) || std::isinf(p.y) || std::isinf(p.z))
            return fail(why, "body keypoint " + std::to_string(i) + " is infinite");
    }
    return true;
}

static_assert(sizeof(lum::Vector3f) == 3 * sizeof(float), "keypoints are copied as packed floats");
static_assert(sizeof(std::array<float, 6>) == 6 * sizeof(float), "covariances are copied as packed floats");

}  // namespace

std::string encodeFrame(const Frame& frame) {
    json bodies = json::array();
    for (const lum::BodyData& b : frame.bodies.body_list) {
        size_t n = b.keypoint.size();
        std::vector<float> kc(b.keypoint_confidence);
        kc.resize(n, 0.f);
        std::vector<std::array<float, 6>> cov(b.keypoint_covariances);
        cov.resize(n, std::array<float, 6>{});
        float pos[3] = {b.position.x, b.position.y, b.position.z};
        float dim[3] = {b.dimensions.x, b.dimensions.y, b.dimensions.z};
        bodies.push_back({{"id", b.id},
                          {"state", int(b.tracking_state)},
                          {"conf", json::binary(floatBlob(&b.confidence, 1))},
                          {"pos", json::binary(floatBlob(pos, 3))},
                          {"dim", json::binary(floatBlob(dim, 3))},
                          {"kp", json::binary(floatBlob(n ? &b.keypoint[0].x : nullptr, n * 3))},
                          {"kc", json::binary(floatBlob(kc.data(), n))},
                          {"cov", json::binary(floatBlob(n ? cov[0].data() : nullptr, n * 6))}});
    }
    json doc = {{"kind", "frame"},
                {"v", kFormatVersion},
                {"sn", frame.serial},
                {"seq", frame.sequence},
                {"ts", frame.bodies.timestamp.getNanoseconds()},
                {"cs", int(frame.coordinateSystem)},
                {"unit", int(frame.unit)},
                {"fmt", int(frame.bodies.body_format)},
                {"tracked", frame.bodies.is_tracked},
                {"bodies", std::move(bodies)}};
    Bytes bytes = json::to_msgpack(doc);
    return std::string(bytes.begin(), bytes.end());
}

bool decodeFrame(const void* data, size_t size, Frame& frame, std::string* why) {
    json doc;
    if (!parseMsgpack(data, size, doc, why)) return false;
    if (!doc.is_object()) return fail(why, "frame is not a map");
    auto kind = doc.find("kind");
    if (kind == doc.end() || !kind->is_string() || kind->get_ref<const std::string&>() != "frame")
        return fail(why, "not a frame message");
    int version = 0, cs = 0, unit = 0, format = 0;
    if (!readInteger(doc, "v", 1, 1000, version) || version != kFormatVersion)
        return fail(why, "unsupported frame format version");
    Frame f;
    if (!readInteger(doc, "sn", uint32_t(1), uint32_t(0xffffffffu), f.serial)) return fail(why, "\"sn\" missing or out of range");
    if (!readInteger(doc, "seq", uint64_t(0), ~uint64_t(0), f.sequence)) return fail(why, "\"seq\" missing or out of range");
    uint64_t ts = 0;
    if (!readInteger(doc, "ts", uint64_t(0), ~uint64_t(0), ts)) return fail(why, "\"ts\" missing or out of range");
    if (!readInteger(doc, "cs", 0, int(lum::COORDINATE_SYSTEM::LAST) - 1, cs)) return fail(why, "\"cs\" missing or out of range");
    if (!readInteger(doc, "unit", 0, int(lum::UNIT::LAST) - 1, unit)) return fail(why, "\"unit\" missing or out of range");
    if (!readInteger(doc, "fmt", 0, int(lum::BODY_FORMAT::LAST) - 1, format)) return fail(why, "\"fmt\" missing or out of range");
    auto tracked = doc.find("tracked");
    if (tracked == doc.end() || !tracked->is_boolean()) return fail(why, "\"tracked\" missing or not a boolean");
    auto bodies = doc.find("bodies");
    if (bodies == doc.end() || !bodies->is_array()) return fail(why, "\"bodies\" missing or not an array");
    if (bodies->size() > kMaxBodiesPerFrame) return fail(why, "more bodies than a frame may carry");
    f.coordinateSystem = lum::COORDINATE_SYSTEM(cs);
    f.unit = lum::UNIT(unit);
    f.bodies.timestamp = lum::Timestamp(ts);
    f.bodies.body_format = lum::BODY_FORMAT(format);
    f.bodies.is_tracked = tracked->get<bool>();
    f.bodies.is_new = true;
    size_t keypoints = size_t(lum::getKeypointCount(f.bodies.body_format));
    for (const json& b : *bodies) {
        lum::BodyData body;
        if (!decodeBody(b, keypoints, body, why)) return false;
        f.bodies.body_list.push_back(std::move(body));
    }
    frame = std::move(f);
    return true;
}

std::string encodeHelloRequest() {
    Bytes bytes = json::to_msgpack(json{{"kind", "hello?"}});
    return std::string(bytes.begin(), bytes.end());
}

bool isHelloRequest(const void* data, size_t size) {
    json doc;
    if (!parseMsgpack(data, size, doc, nullptr) || !doc.is_object()) return false;
    auto kind = doc.find("kind");
    return kind != doc.end() && kind->is_string() && kind->get_ref<const std::string&>() == "hello?";
}

std::string encodeHello(const SenderHello& hello) {
    json doc = {{"kind", "hello"},
                {"sn", hello.serial},
                {"version", {hello.version[0], hello.version[1], hello.version[2]}},
                {"fps", hello.fps}};
    Bytes bytes = json::to_msgpack(doc);
    return std::string(bytes.begin(), bytes.end());
}

bool decodeHello(const void* data, size_t size, SenderHello& hello, std::string* why) {
    json doc;
    if (!parseMsgpack(data, size, doc, why)) return false;
    if (!doc.is_object()) return fail(why, "handshake reply is not a map");
    auto kind = doc.find("kind");
    if (kind == doc.end() || !kind->is_string() || kind->get_ref<const std::string&>() != "hello")
        return fail(why, "not a handshake reply");
    SenderHello h;
    if (!readInteger(doc, "sn", uint32_t(1), uint32_t(0xffffffffu), h.serial)) return fail(why, "handshake \"sn\" invalid");
    auto version = doc.find("version");
    if (version == doc.end() || !version->is_array() || version->size() != 3)
        return fail(why, "handshake \"version\" is not 3 integers");
    for (size_t i = 0; i < 3; ++i) {
        const json& v = (*version)[i];
        if (!v.is_number_integer() || v.get<int64_t>() < 0 || v.get<int64_t>() > 1000)
            return fail(why, "handshake \"version\" is not 3 integers");
        h.version[i] = int(v.get<int64_t>());
    }
    auto fps = doc.find("fps");
    if (fps == doc.end() || !fps->is_number() || !(fps->get<double>() >= 0.0 && fps->get<double>() <= 1000.0))
        return fail(why, "handshake \"fps\" invalid");
    h.fps = fps->get<float>();
    hello = h;
    return true;
}

}  // namespace pyra::transport
