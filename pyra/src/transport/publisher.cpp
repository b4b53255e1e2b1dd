// Publisher: binds the data and handshake endpoints and answers handshakes on a thread of
// its own, polling with a short time-out so that shutting down is always prompt.
#include "transport/publisher.hpp"

#include "transport/endpoints.hpp"

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
        p->data_ = std::make_unique<zmq::socket_t>(*p->context_, zmq::socket_type::pub);
        configureSocket(*p->data_, 100);
        p->data_->set(zmq::sockopt::sndhwm, 256);
        where = dataEndpoint(link, hello.serial, true);
        p->data_->bind(where);
        p->hello_ = std::make_unique<zmq::socket_t>(*p->context_, zmq::socket_type::rep);
        configureSocket(*p->hello_, 50);
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

void Publisher::answerHandshakes() {
    while (!stop_) {
        zmq::message_t request;
        try {
            if (!hello_->recv(request, zmq::recv_flags::none)) continue;
            // A reply is owed to every request, or the socket stops taking new ones.
            hello_->send(zmq::buffer(helloReply_), zmq::send_flags::none);
        } catch (const zmq::error_t&) {
            return;
        }
    }
}

}  // namespace pyra::transport
