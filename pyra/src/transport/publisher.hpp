// The sending side of a camera link: frames on an XPUB socket, and a handshake thread that
// tells any fusion who this sender is.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include <zmq.hpp>

#include "lum/records.hpp"
#include "lum/types.hpp"
#include "transport/frame_codec.hpp"

namespace pyra::transport {

class Publisher {
public:
    // A handshake request is a few bytes; the socket refuses anything much larger unread.
    static constexpr size_t kMaxHandshakeBytes = 4096;

    ~Publisher();
    Publisher(const Publisher&) = delete;
    Publisher& operator=(const Publisher&) = delete;

    // Binds both endpoints; PORT_IN_USE (with the reason) when another sender holds them.
    static lum::ERROR_CODE start(const lum::CommunicationParameters& link, const SenderHello& hello,
                                 std::unique_ptr<Publisher>& publisher, std::string* why = nullptr);

    // Never blocks: a frame nobody can take is dropped, as a live camera would.
    void publish(const Frame& frame);
    uint64_t publishedCount() const { return published_; }
    // True once a fusion has asked this sender who it is and its subscription has reached the
    // data socket. A subscriber joins on its own, later than the handshake on a busy machine,
    // and whatever is sent before it joined is lost to it.
    bool greeted();

private:
    Publisher() = default;
    void answerHandshakes();

    std::mutex sendMutex_;
    // A context of its own: ending it waits until the endpoints are really released, so a
    // camera closed and opened again can bind them at once.
    std::unique_ptr<zmq::context_t> context_;
    std::unique_ptr<zmq::socket_t> data_;
    std::unique_ptr<zmq::socket_t> hello_;
    std::string helloReply_;
    std::atomic<bool> stop_{false};
    std::atomic<uint64_t> published_{0};
    std::atomic<bool> greeted_{false};
    bool subscribed_ = false;  // under sendMutex_
    std::thread helloThread_;
};

}  // namespace pyra::transport
