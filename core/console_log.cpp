// The console sink: one mutex keeps whole lines together, destinations are read without
// it so that a line nobody wants costs only its formatting.
#include "core/console_log.hpp"

#include <atomic>
#include <iostream>
#include <mutex>

namespace console {
namespace {

std::atomic<Destination> traceDestination{Destination::StandardOutput};
std::atomic<Destination> noticeDestination{Destination::StandardOutput};

std::mutex& writing() {
    static std::mutex mutex;
    return mutex;
}

}  // namespace

void setDestinations(Destination traces, Destination notices) {
    traceDestination = traces;
    noticeDestination = notices;
}

Line::~Line() {
    const Destination destination = notice_ ? noticeDestination.load() : traceDestination.load();
    if (destination == Destination::Nowhere) return;
    std::ostream& stream = destination == Destination::StandardError ? std::cerr : std::cout;
    std::lock_guard<std::mutex> whole(writing());
    stream << text_.str() << std::endl;
}

}  // namespace console
