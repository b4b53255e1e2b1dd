// The receiving side of a camera link: the handshake that checks who a sender is, and the
// SUB socket its frames arrive on.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <zmq.hpp>

#include "lum/records.hpp"
#include "lum/types.hpp"
#include "transport/frame_codec.hpp"

namespace pyra::transport {

// Asks the sender behind `link` who it is. SUCCESS with its answer; CONNECTION_TIMED_OUT
// when nobody answers in time; CONNECTION_FAILED for an answer that is not a handshake.
lum::FUSION_ERROR_CODE askSender(const lum::CommunicationParameters& link, uint32_t serial, int timeoutMs,
                                 SenderHello& hello, std::string* why = nullptr);

class FrameSubscriber {
public:
    // Connects (the sender may come later); nullptr only if ZeroMQ refuses the endpoint.
    static std::unique_ptr<FrameSubscriber> connect(const lum::CommunicationParameters& link, uint32_t serial);

    zmq::socket_t& socket() { return socket_; }
    // Takes one waiting frame without blocking. False when none is waiting; a bad frame
    // is counted and skipped.
    bool take(Frame& frame);
    uint64_t badFrames() const { return bad_; }
    const std::string& lastProblem() const { return lastProblem_; }

private:
    explicit FrameSubscriber(zmq::socket_t socket) : socket_(std::move(socket)) {}
    zmq::socket_t socket_;
    uint64_t bad_ = 0;
    std::string lastProblem_;
};

}  // namespace pyra::transport
