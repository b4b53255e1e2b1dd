// Frames on the wire: a round trip keeps every value, and hostile bytes are refused and
// counted without ever taking the receiver down.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include <nlohmann/json.hpp>

#include "testing/isolated_process.hpp"
#include "pyra_sim/scene.hpp"
#include "transport/endpoints.hpp"
#include "transport/frame_codec.hpp"
#include "transport/subscriber.hpp"

namespace {

using pyra::transport::Frame;

Frame observedFrame(lum::BODY_FORMAT format) {
    pyra_sim::Scene scene = pyra_sim::defaultScene();
    scene.people.count = 3;
    pyra_sim::CameraSettings camera = scene.cameras[0];
    camera.bodyFormat = format;
    Frame f;
    f.serial = camera.serial;
    f.sequence = 42;
    f.bodies = pyra_sim::observe(scene, camera, 1700000000123456789ULL, pyra_sim::ObservationOptions());
    return f;
}

TEST(FrameTransport, RoundTripKeepsEveryValueOfEveryLayout) {
    for (lum::BODY_FORMAT format : {lum::BODY_FORMAT::BODY_18, lum::BODY_FORMAT::BODY_34, lum::BODY_FORMAT::BODY_38}) {
        Frame sent = observedFrame(format);
        ASSERT_FALSE(sent.bodies.body_list.empty());
        std::string bytes = pyra::transport::encodeFrame(sent);
        Frame got;
        std::string why;
        ASSERT_TRUE(pyra::transport::decodeFrame(bytes.data(), bytes.size(), got, &why)) << why;
        EXPECT_EQ(got.serial, sent.serial);
        EXPECT_EQ(got.sequence, 42u);
        EXPECT_EQ(got.bodies.timestamp.getNanoseconds(), 1700000000123456789ULL);
        EXPECT_EQ(got.bodies.body_format, format);
        ASSERT_EQ(got.bodies.body_list.size(), sent.bodies.body_list.size());
        for (size_t b = 0; b < got.bodies.body_list.size(); ++b) {
            const auto& x = sent.bodies.body_list[b];
            const auto& y = got.bodies.body_list[b];
            EXPECT_EQ(y.id, x.id);
            EXPECT_EQ(y.confidence, x.confidence);
            EXPECT_EQ(y.keypoint_covariances, x.keypoint_covariances);
            for (size_t k = 0; k < x.keypoint.size(); ++k)
                EXPECT_TRUE((std::isnan(x.keypoint[k].x) && std::isnan(y.keypoint[k].x)) || x.keypoint[k] == y.keypoint[k]);
        }
    }
}

TEST(FrameTransport, HostileBytesAreRefusedAndCounted) {
    std::string good = pyra::transport::encodeFrame(observedFrame(lum::BODY_FORMAT::BODY_18));
    Frame f;
    std::string why;
    // Every truncation, and random corruption, fails cleanly or decodes to a sane frame.
    for (size_t n = 0; n < good.size(); ++n) EXPECT_FALSE(pyra::transport::decodeFrame(good.data(), n, f));
    std::mt19937 rng(5);
    for (int i = 0; i < 3000; ++i) {
        std::string bad = good;
        for (int j = 0; j < 4; ++j) bad[rng() % bad.size()] = char(rng());
        if (!pyra::transport::decodeFrame(bad.data(), bad.size(), f)) continue;
        for (const auto& b : f.bodies.body_list)
            EXPECT_EQ(b.keypoint.size(), size_t(lum::getKeypointCount(f.bodies.body_format)));
    }
    using nlohmann::json;
    auto pack = [](const json& j) { auto v = json::to_msgpack(j); return std::string(v.begin(), v.end()); };
    json doc = json::from_msgpack(good);
    json wrongSize = doc;
    wrongSize["bodies"][0]["kp"] = json::binary(std::vector<uint8_t>(12 * 17));
    json wrongFormat = doc;
    wrongFormat["fmt"] = 7;
    json wrongType = doc;
    wrongType["ts"] = "soon";
    const std::pair<std::string, const char*> cases[] = {
        {pack(wrongSize), "\"kp\""}, {pack(wrongFormat), "\"fmt\""}, {pack(wrongType), "\"ts\""},
        {std::string(100000, char(0x91)), "depth"}, {"plain text", "MessagePack"}};
    for (const auto& [bytes, what] : cases) {
        EXPECT_FALSE(pyra::transport::decodeFrame(bytes.data(), bytes.size(), f, &why));
        EXPECT_NE(why.find(what), std::string::npos) << why;
    }

    // Over a real socket: garbage is dropped and counted, the good frame still comes through.
    platform_test::isolateProcess();
    lum::CommunicationParameters link;
    link.setForLocalNetwork("127.0.0.1", platform_test::testPort(3));
    zmq::socket_t pub(pyra::transport::context(), zmq::socket_type::pub);
    pyra::transport::configureSocket(pub, 100);
    pub.bind(pyra::transport::dataEndpoint(link, 1, true));
    auto sub = pyra::transport::FrameSubscriber::connect(link, 1);
    ASSERT_TRUE(sub);
    bool received = platform_test::waitFor([&] {
        pub.send(zmq::buffer(std::string("\xc1 not a frame")), zmq::send_flags::dontwait);
        pub.send(zmq::buffer(good), zmq::send_flags::dontwait);
        return sub->take(f);
    }, 10.0);
    ASSERT_TRUE(received);
    EXPECT_EQ(sub->badFrames(), 1u);
}

// A test's port taken by another process fails it with "Address already in use".
TEST(TestPorts, StayOutOfOutgoingConnectionsAndApartForNearbyProcesses) {
    for (long pid = 1; pid < 70000; ++pid) {
        ASSERT_LT(platform_test::testPort(15, pid) + 1, 30000) << pid;
        for (long other = pid + 1; other < pid + 200; ++other)
            ASSERT_TRUE(platform_test::testPort(15, pid) < platform_test::testPort(0, other) ||
                        platform_test::testPort(15, other) < platform_test::testPort(0, pid))
                << pid << " and " << other;
    }
}

}  // namespace
