// libFuzzer driver for the camera frame and handshake decoders: arbitrary bytes must be
// refused or decoded into a consistent frame, never crash or hang.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "transport/frame_codec.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    pyra::transport::Frame frame;
    if (pyra::transport::decodeFrame(data, size, frame)) {
        size_t keypoints = size_t(lum::getKeypointCount(frame.bodies.body_format));
        for (const lum::BodyData& body : frame.bodies.body_list)
            if (body.keypoint.size() != keypoints || body.keypoint_covariances.size() != keypoints ||
                body.keypoint_confidence.size() != keypoints)
                std::abort();
        // A decoded frame encodes and decodes to itself.
        std::string again = pyra::transport::encodeFrame(frame);
        pyra::transport::Frame twice;
        if (!pyra::transport::decodeFrame(again.data(), again.size(), twice) ||
            twice.bodies.body_list.size() != frame.bodies.body_list.size())
            std::abort();
    }
    pyra::transport::SenderHello hello;
    pyra::transport::decodeHello(data, size, hello);
    return 0;
}
