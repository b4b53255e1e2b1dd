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

std::string folderOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

// The file a path finally names: a link is written through, so the link survives and its
// target changes. A dangling link is followed too, so the file it promises is created
// rather than the link replaced; empty when the links go round in a loop.
std::string finalTarget(std::string path) {
    for (int hop = 0; hop < 40; ++hop) {
        struct stat info {};
        if (::lstat(path.c_str(), &info) != 0 || !S_ISLNK(info.st_mode)) return path;
        char target[4096];
        const ssize_t length = ::readlink(path.c_str(), target, sizeof target - 1);
        if (length <= 0) return path;
        const std::string next(target, size_t(length));
        path = next.front() == '/' ? next : folderOf(path) + "/" + next;
    }
    return std::string();
}

}  // namespace

bool replaceFile(const std::string& requested, const std::string& bytes, std::string& problem) {
    const std::string path = finalTarget(requested);
    if (path.empty()) {
        problem = "cannot be written: its links go round in a loop";
        return false;
    }
    // A replaced file keeps the permissions its owner gave it; a new one is an ordinary document.
    struct stat existing {};
    const bool exists = ::stat(path.c_str(), &existing) == 0;
    // Renaming over a device, a pipe or a folder would put a plain file where the system
    // expects something else.
    if (exists && !S_ISREG(existing.st_mode)) {
        problem = "cannot be written: not a regular file";
        return false;
    }
    const mode_t mode = exists ? (existing.st_mode & 07777) : mode_t(0644);
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
