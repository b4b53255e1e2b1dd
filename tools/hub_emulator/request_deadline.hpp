// An HTTP server whose connections each get a deadline for a whole request, not only for
// each read: a sender trickling one byte a second would otherwise hold a worker for ever.
#pragma once

#include <httplib.h>

#include <chrono>

class DeadlineServer : public httplib::Server {
public:
    explicit DeadlineServer(std::chrono::milliseconds perRequest) : perRequest_(perRequest) {}

private:
    // The library's own loop over the requests of one connection, with reads that also
    // stop at the request's deadline.
    bool process_and_close_socket(socket_t sock) override;

    const std::chrono::milliseconds perRequest_;
};
