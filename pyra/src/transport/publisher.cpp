// Publisher: binds the data and handshake endpoints and answers handshakes on a thread of
// its own, polling with a short time-out so that shutting down is always prompt.
#include "transport/publisher.hpp"

#include "transport/endpoints.hpp"

#include <vector>

namespace pyra::transport {

lum::ERROR_CODE Publisher::start(const lum::CommunicationParameters& link, const SenderHello& hello,
                                 std::unique_ptr<Publisher>& publisher, std::string* why) {
    if (link.getType() == lum::COMM_TYPE::LOCAL_NETWORK && (link.getPort() <= 0 || link.getPort() >= 65535)) {
        if (why) *why = "port " + std::to_string(link.getPort()) + " is not between 1 and 65534";
        return lum::ERROR_CODE::INVALID_FUNCTION_PARAMETERS;
    }
    std::unique_ptr<Publisher> p(new Publisher());
    std::string where;
    try {
        p->context_ = std::make_unique<zmq::context_t>(1);
        p->data_ = std::make_unique<zmq::socket_t>(*p->context_, zmq::socket_type::xpub);
        configureSocket(*p->data_, 100);
        p->data_->set(zmq::sockopt::sndhwm, 256);
        where = dataEndpoint(link, hello.serial, true);
        p->data_->bind(where);
        // A router, not a reply socket: it has no send/receive state for a malformed or
        // abandoned request to wedge, so each request is answered or dropped on its own.
        p->hello_ = std::make_unique<zmq::socket_t>(*p->context_, zmq::socket_type::router);
        configureSocket(*p->hello_, 50);
        p->hello_->set(zmq::sockopt::maxmsgsize, int64_t(kMaxHandshakeBytes));
        p->hello_->set(zmq::sockopt::handshake_ivl, 2000);
        where = helloEndpoint(link, hello.serial, true);
        p->hello_->bind(where);
    } catch (const zmq::error_t& e) {
        if (why) *why = where + ": " + e.what();
        return e.num() == EADDRINUSE ? lum::ERROR_CODE::PORT_IN_USE : lum::ERROR_CODE::FAILURE;
    }
    p->helloReply_ = encodeHello(hello);
    Publisher* raw = p.get();
    p->helloThread_ = std::thread([raw] { raw->answerHandshakes(); });
    publisher = std::move(p);
    return lum::ERROR_CODE::SUCCESS;
}

Publisher::~Publisher() {
    stop_ = true;
    if (helloThread_.joinable()) helloThread_.join();
    data_.reset();
    hello_.reset();
    context_.reset();
}

void Publisher::publish(const Frame& frame) {
    std::string bytes = encodeFrame(frame);
    std::lock_guard<std::mutex> lock(sendMutex_);
    try {
        if (data_->send(zmq::buffer(bytes), zmq::send_flags::dontwait)) ++published_;
    } catch (const zmq::error_t&) {
    }
}

bool Publisher::greeted() {
    if (!greeted_) return false;
    std::lock_guard<std::mutex> lock(sendMutex_);
    while (!subscribed_) {
        zmq::message_t message;
        try {
            if (!data_->recv(message, zmq::recv_flags::dontwait)) break;
        } catch (const zmq::error_t&) {
            break;
        }
        // The socket hands each new subscription up as a message whose first byte is 1.
        if (message.size() > 0 && static_cast<const unsigned char*>(message.data())[0] == 1) subscribed_ = true;
    }
    return subscribed_;
}

void Publisher::answerHandshakes() {
    while (!stop_) {
        try {
            zmq::message_t part;
            if (!hello_->recv(part, zmq::recv_flags::none)) continue;
            // A handshake is the peer's identity, an empty delimiter and one request. Longer
            // messages are read to their end (they arrive whole) and dropped unanswered.
            std::vector<zmq::message_t> parts;
            for (;;) {
                const bool more = part.more();
                if (parts.size() < 4) parts.push_back(std::move(part));
                if (!more || !hello_->recv(part, zmq::recv_flags::none)) break;
            }
            if (parts.size() != 3 || parts[1].size() != 0 || !isHelloRequest(parts[2].data(), parts[2].size()))
                continue;
            hello_->send(parts[0], zmq::send_flags::sndmore);
            hello_->send(zmq::message_t(), zmq::send_flags::sndmore);
            hello_->send(zmq::buffer(helloReply_), zmq::send_flags::none);
            greeted_ = true;
        } catch (const zmq::error_t& e) {
            // Only the end of the context stops the answering; any other failure concerns
            // one peer.
            if (e.num() == ETERM) return;
        }
    }
}

}  // namespace pyra::transport
