// Atomic file replacement shared by the room file writer and the model cache.
// POSIX calls, because the temporary file must be flushed before it replaces the target.
#include "atomic_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace lum {
namespace {

bool writeAll(int fd, const std::string& bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

}  // namespace

bool replaceFile(const std::string& path, const std::string& bytes, std::string& problem) {
    std::string temporary = path + ".XXXXXX";
    const int fd = ::mkstemp(&temporary[0]);
    if (fd < 0) {
        problem = std::string("cannot create a temporary file beside it: ") + std::strerror(errno);
        return false;
    }
    errno = 0;
    // mkstemp makes the file private; these are ordinary documents.
    int failure = (writeAll(fd, bytes) && ::fchmod(fd, 0644) == 0 && ::fsync(fd) == 0) ? 0 : (errno ? errno : EIO);
    if (::close(fd) != 0 && failure == 0) failure = errno;
    if (failure == 0 && ::rename(temporary.c_str(), path.c_str()) != 0) failure = errno;
    if (failure == 0) return true;
    ::unlink(temporary.c_str());
    problem = std::string("cannot be written: ") + std::strerror(failure);
    return false;
}

}  // namespace lum
