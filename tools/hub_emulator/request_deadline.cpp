// The connection loop of the hub emulator: wait for a request while the connection may
// idle, then give the sender one budget to deliver all of it.
#include "tools/hub_emulator/request_deadline.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace {

using Clock = std::chrono::steady_clock;

int millisecondsUntil(Clock::time_point deadline) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return int(std::max<long long>(0, left));
}

bool waitFor(socket_t sock, short events, int timeoutMs) {
    pollfd entry{sock, events, 0};
    int ready;
    do ready = ::poll(&entry, 1, timeoutMs);
    while (ready < 0 && errno == EINTR);
    return ready > 0;
}

void describe(const sockaddr_storage& address, std::string& ip, int& port) {
    char text[INET6_ADDRSTRLEN] = "";
    if (address.ss_family == AF_INET) {
        const auto& v4 = reinterpret_cast<const sockaddr_in&>(address);
        ::inet_ntop(AF_INET, &v4.sin_addr, text, sizeof text);
        port = ntohs(v4.sin_port);
    } else if (address.ss_family == AF_INET6) {
        const auto& v6 = reinterpret_cast<const sockaddr_in6&>(address);
        ::inet_ntop(AF_INET6, &v6.sin6_addr, text, sizeof text);
        port = ntohs(v6.sin6_port);
    }
    ip = text;
}

class DeadlineStream : public httplib::Stream {
public:
    DeadlineStream(socket_t sock, std::chrono::milliseconds readTimeout, std::chrono::milliseconds writeTimeout)
        : sock_(sock), readTimeout_(readTimeout), writeTimeout_(writeTimeout) {}

    void startRequest(std::chrono::milliseconds budget) { deadline_ = Clock::now() + budget; }

    bool is_readable() const override {
        const int perRead = int(readTimeout_.count());
        return waitFor(sock_, POLLIN, std::min(perRead, millisecondsUntil(deadline_)));
    }
    bool is_writable() const override { return waitFor(sock_, POLLOUT, int(writeTimeout_.count())); }
    ssize_t read(char* ptr, size_t size) override {
        if (!is_readable()) return -1;
        ssize_t n;
        do n = ::recv(sock_, ptr, size, 0);
        while (n < 0 && errno == EINTR);
        return n;
    }
    ssize_t write(const char* ptr, size_t size) override {
        if (!is_writable()) return -1;
        ssize_t n;
        do n = ::send(sock_, ptr, size, MSG_NOSIGNAL);
        while (n < 0 && errno == EINTR);
        return n;
    }
    void get_remote_ip_and_port(std::string& ip, int& port) const override {
        sockaddr_storage address{};
        socklen_t length = sizeof address;
        if (::getpeername(sock_, reinterpret_cast<sockaddr*>(&address), &length) == 0) describe(address, ip, port);
    }
    void get_local_ip_and_port(std::string& ip, int& port) const override {
        sockaddr_storage address{};
        socklen_t length = sizeof address;
        if (::getsockname(sock_, reinterpret_cast<sockaddr*>(&address), &length) == 0) describe(address, ip, port);
    }
    socket_t socket() const override { return sock_; }

private:
    socket_t sock_;
    std::chrono::milliseconds readTimeout_;
    std::chrono::milliseconds writeTimeout_;
    Clock::time_point deadline_ = Clock::time_point::max();
};

}  // namespace

bool DeadlineServer::process_and_close_socket(socket_t sock) {
    using std::chrono::milliseconds;
    DeadlineStream stream(sock, milliseconds(read_timeout_sec_ * 1000 + read_timeout_usec_ / 1000),
                          milliseconds(write_timeout_sec_ * 1000 + write_timeout_usec_ / 1000));
    bool served = false;
    for (size_t left = keep_alive_max_count_; left > 0 && svr_sock_ != INVALID_SOCKET; --left) {
        // An idle kept-alive connection waits for its next request as long as the library would.
        if (!waitFor(sock, POLLIN, int(keep_alive_timeout_sec_ * 1000))) break;
        stream.startRequest(perRequest_);
        bool closed = false;
        served = process_request(stream, left == 1, closed, nullptr);
        if (!served || closed) break;
    }
    ::shutdown(sock, SHUT_RDWR);
    ::close(sock);
    return served;
}
