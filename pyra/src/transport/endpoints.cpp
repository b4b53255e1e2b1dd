// Runtime folder and endpoint names. Shared memory is ZeroMQ's inter-process transport on
// a socket file named after the serial, which works within one process and across them.
#include "transport/endpoints.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

namespace pyra::transport {

namespace {

void makeFolder(const std::string& path) {
    for (size_t i = 1; i <= path.size(); ++i)
        if (i == path.size() || path[i] == '/') ::mkdir(path.substr(0, i).c_str(), 0700);
}

std::string networkHost(const lum::CommunicationParameters& link) {
    return link.getIpAddress().empty() ? std::string("127.0.0.1") : link.getIpAddress();
}

std::string endpoint(const lum::CommunicationParameters& link, uint32_t serial, bool bind, int portOffset,
                     const char* suffix) {
    if (link.getType() == lum::COMM_TYPE::SHARED_MEMORY)
        return "ipc://" + runtimeFolder() + "/cam-" + std::to_string(serial) + suffix;
    std::string port = std::to_string(link.getPort() + portOffset);
    // A sender given an address listens on that interface only, otherwise on all of them.
    if (bind) return "tcp://" + (link.getIpAddress().empty() ? std::string("*") : link.getIpAddress()) + ":" + port;
    return "tcp://" + networkHost(link) + ":" + port;
}

}  // namespace

std::string runtimeFolder() {
    std::string folder;
    if (const char* own = std::getenv("PYRA_RUNTIME_DIR"); own && *own) folder = own;
    else if (const char* xdg = std::getenv("XDG_RUNTIME_DIR"); xdg && *xdg) folder = std::string(xdg) + "/pyra";
    else folder = "/tmp/pyra-" + std::to_string(::getuid());
    makeFolder(folder);
    return folder;
}

std::string dataEndpoint(const lum::CommunicationParameters& link, uint32_t serial, bool bind) {
    return endpoint(link, serial, bind, 0, ".data");
}

std::string helloEndpoint(const lum::CommunicationParameters& link, uint32_t serial, bool bind) {
    return endpoint(link, serial, bind, 1, ".hello");
}

zmq::context_t& context() {
    static zmq::context_t* shared = new zmq::context_t(1);
    return *shared;
}

void configureSocket(zmq::socket_t& socket, int receiveTimeoutMs) {
    socket.set(zmq::sockopt::linger, 0);
    socket.set(zmq::sockopt::rcvtimeo, receiveTimeoutMs);
    socket.set(zmq::sockopt::sndtimeo, 200);
    socket.set(zmq::sockopt::reconnect_ivl, 100);
    socket.set(zmq::sockopt::reconnect_ivl_max, 500);
}

}  // namespace pyra::transport
