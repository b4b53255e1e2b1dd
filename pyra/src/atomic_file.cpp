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

// The file a path finally names: a link is written through, so the link survives and its
// target changes. A dangling or unreadable link is replaced like a plain path.
std::string finalTarget(const std::string& path) {
    char* resolved = ::realpath(path.c_str(), nullptr);
    if (!resolved) return path;
    std::string target(resolved);
    std::free(resolved);
    return target;
}

}  // namespace

bool replaceFile(const std::string& requested, const std::string& bytes, std::string& problem) {
    const std::string path = finalTarget(requested);
    // A replaced file keeps the permissions its owner gave it; a new one is an ordinary document.
    struct stat existing {};
    const mode_t mode = (::stat(path.c_str(), &existing) == 0 && S_ISREG(existing.st_mode))
                            ? (existing.st_mode & 07777)
                            : mode_t(0644);
    std::string temporary = path + ".XXXXXX";
    const int fd = ::mkstemp(&temporary[0]);
    if (fd < 0) {
        problem = std::string("cannot create a temporary file beside it: ") + std::strerror(errno);
        return false;
    }
    errno = 0;
    int failure = (writeAll(fd, bytes) && ::fchmod(fd, mode) == 0 && ::fsync(fd) == 0) ? 0 : (errno ? errno : EIO);
    if (::close(fd) != 0 && failure == 0) failure = errno;
    if (failure == 0 && ::rename(temporary.c_str(), path.c_str()) != 0) failure = errno;
    if (failure == 0) return true;
    ::unlink(temporary.c_str());
    problem = std::string("cannot be written: ") + std::strerror(failure);
    return false;
}

}  // namespace lum
