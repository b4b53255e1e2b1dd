// Handshake client and frame subscriber. Every wait has a time-out and every socket
// lingers zero, so a vanished sender can never hold the fusion.
#include "transport/subscriber.hpp"

#include "transport/endpoints.hpp"

namespace pyra::transport {

lum::FUSION_ERROR_CODE askSender(const lum::CommunicationParameters& link, uint32_t serial, int timeoutMs,
                                 SenderHello& hello, std::string* why) {
    try {
        zmq::socket_t req(context(), zmq::socket_type::req);
        configureSocket(req, timeoutMs);
        req.set(zmq::sockopt::sndtimeo, timeoutMs);
        req.connect(helloEndpoint(link, serial, false));
        std::string request = encodeHelloRequest();
        if (!req.send(zmq::buffer(request), zmq::send_flags::none)) {
            if (why) *why = "no sender took the handshake";
            return lum::FUSION_ERROR_CODE::CONNECTION_TIMED_OUT;
        }
        zmq::message_t reply;
        if (!req.recv(reply, zmq::recv_flags::none)) {
            if (why) *why = "no handshake reply within " + std::to_string(timeoutMs) + " ms";
            return lum::FUSION_ERROR_CODE::CONNECTION_TIMED_OUT;
        }
        if (!decodeHello(reply.data(), reply.size(), hello, why)) return lum::FUSION_ERROR_CODE::CONNECTION_FAILED;
        return lum::FUSION_ERROR_CODE::SUCCESS;
    } catch (const zmq::error_t& e) {
        if (why) *why = e.what();
        return lum::FUSION_ERROR_CODE::CONNECTION_FAILED;
    }
}

std::unique_ptr<FrameSubscriber> FrameSubscriber::connect(const lum::CommunicationParameters& link, uint32_t serial) {
    try {
        zmq::socket_t sub(context(), zmq::socket_type::sub);
        configureSocket(sub, 0);
        sub.set(zmq::sockopt::rcvhwm, 1000);
        sub.set(zmq::sockopt::maxmsgsize, int64_t(kMaxFrameBytes));
        sub.set(zmq::sockopt::subscribe, "");
        sub.connect(dataEndpoint(link, serial, false));
        return std::unique_ptr<FrameSubscriber>(new FrameSubscriber(std::move(sub)));
    } catch (const zmq::error_t&) {
        return nullptr;
    }
}

bool FrameSubscriber::take(Frame& frame) {
    while (true) {
        zmq::message_t message;
        try {
            if (!socket_.recv(message, zmq::recv_flags::dontwait)) return false;
        } catch (const zmq::error_t&) {
            return false;
        }
        if (decodeFrame(message.data(), message.size(), frame, &lastProblem_)) return true;
        ++bad_;
    }
}

}  // namespace pyra::transport
