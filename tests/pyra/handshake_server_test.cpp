// The sender's handshake port under abuse: malformed requests, multi-part messages and
// raw garbage connections must each go unanswered while honest fusions keep being served.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <random>

#include "testing/isolated_process.hpp"
#include "transport/endpoints.hpp"
#include "transport/publisher.hpp"
#include "transport/subscriber.hpp"

namespace {

void sendGarbageConnection(int port, std::mt19937& random) {
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_GE(fd, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(uint16_t(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) {
        std::string bytes(512, '\0');
        for (char& c : bytes) c = char(random());
        ssize_t ignored = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        (void)ignored;
    }
    ::close(fd);
}

TEST(HandshakeServer, KeepsAnsweringAfterHostileRequests) {
    platform_test::isolateProcess();
    const int port = platform_test::testPort(5);
    lum::CommunicationParameters link;
    link.setForLocalNetwork("127.0.0.1", port);
    pyra::transport::SenderHello hello;
    hello.serial = 7;
    std::unique_ptr<pyra::transport::Publisher> publisher;
    ASSERT_EQ(pyra::transport::Publisher::start(link, hello, publisher), lum::ERROR_CODE::SUCCESS);

    zmq::context_t context(1);
    const std::string endpoint = pyra::transport::helloEndpoint(link, 7, false);
    // A request socket sending two parts, and a dealer with no delimiter; both stay
    // connected while the honest fusions ask.
    zmq::socket_t req(context, zmq::socket_type::req);
    req.set(zmq::sockopt::linger, 0);
    req.connect(endpoint);
    req.send(zmq::str_buffer("one"), zmq::send_flags::sndmore);
    req.send(zmq::str_buffer("two"), zmq::send_flags::none);
    zmq::socket_t dealer(context, zmq::socket_type::dealer);
    dealer.set(zmq::sockopt::linger, 0);
    dealer.connect(endpoint);
    dealer.send(zmq::str_buffer("no delimiter"), zmq::send_flags::none);
    dealer.send(zmq::buffer(std::string(100000, 'x')), zmq::send_flags::none);
    std::mt19937 random(3);
    for (int i = 0; i < 30; ++i) sendGarbageConnection(port + 1, random);

    for (int attempt = 0; attempt < 3; ++attempt) {
        pyra::transport::SenderHello answer;
        std::string why;
        ASSERT_EQ(pyra::transport::askSender(link, 7, 5000, answer, &why), lum::FUSION_ERROR_CODE::SUCCESS) << why;
        EXPECT_EQ(answer.serial, 7u);
    }
}

}  // namespace
