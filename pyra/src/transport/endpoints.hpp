// Where senders and subscribers meet: the per-user runtime folder, ZeroMQ endpoints for
// shared memory (keyed by serial) and the local network, and the process's ZeroMQ context.
#pragma once

#include <cstdint>
#include <string>

#include <zmq.hpp>

#include "lum/records.hpp"

namespace pyra::transport {

// PYRA_RUNTIME_DIR, else $XDG_RUNTIME_DIR/pyra, else /tmp/pyra-<uid>; created on demand.
std::string runtimeFolder();

// Data (PUB/SUB) and handshake (REQ/REP) endpoints of a camera. Local network: the given
// port for data and the port above it for the handshake.
std::string dataEndpoint(const lum::CommunicationParameters& link, uint32_t serial, bool bind);
std::string helloEndpoint(const lum::CommunicationParameters& link, uint32_t serial, bool bind);

// One context for the whole process; never torn down, so no exit can hang on it.
zmq::context_t& context();

// Options every socket gets: nothing may wait forever for a peer.
void configureSocket(zmq::socket_t& socket, int receiveTimeoutMs);

}  // namespace pyra::transport
