// Picks the writer for a format and puts its text on disk atomically: a half-written
// export read by a robot's launch or another program is worse than none.
#include "exporters/room_export.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "exporters/formats.hpp"

namespace exporters {
namespace {

bool writeAtomically(const std::string& path, const std::string& text, std::string& problem) {
    std::vector<char> temporary(path.begin(), path.end());
    const std::string pattern = ".XXXXXX";
    temporary.insert(temporary.end(), pattern.begin(), pattern.end());
    temporary.push_back('\0');
    const int fd = ::mkstemp(temporary.data());
    if (fd < 0) {
        problem = path + ": cannot be written: " + std::strerror(errno);
        return false;
    }
    // mkstemp makes the file private; an export is as readable as any file the user writes.
    const mode_t mask = ::umask(0);
    ::umask(mask);
    ::fchmod(fd, 0666 & ~mask);
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t wrote = ::write(fd, text.data() + done, text.size() - done);
        if (wrote < 0 && errno == EINTR) continue;
        if (wrote <= 0) break;
        done += size_t(wrote);
    }
    const bool complete = done == text.size() && ::fsync(fd) == 0;
    const int error = errno;
    ::close(fd);
    if (!complete || ::rename(temporary.data(), path.c_str()) != 0) {
        problem = path + ": cannot be written: " + std::strerror(complete ? errno : error);
        ::unlink(temporary.data());
        return false;
    }
    return true;
}

}  // namespace

std::optional<Format> parseFormat(const std::string& name) {
    for (const Format format : {Format::OpenCv, Format::Toml, Format::Ros2, Format::Matrix})
        if (name == formatName(format)) return format;
    return std::nullopt;
}

const char* formatName(Format format) {
    switch (format) {
        case Format::OpenCv: return "opencv";
        case Format::Toml: return "toml";
        case Format::Ros2: return "ros2";
        case Format::Matrix: return "matrix";
    }
    return "";
}

const char* formatSuffix(Format format) {
    switch (format) {
        case Format::OpenCv: return ".yaml";
        case Format::Toml: return ".toml";
        case Format::Ros2: return ".launch.xml";
        case Format::Matrix: return ".json";
    }
    return "";
}

ExportStatus exportRoom(const std::string& roomFile, Format format, const std::string& output, std::string& problem) {
    std::vector<CameraPose> cameras;
    if (!readRoomPoses(roomFile, cameras, problem)) return ExportStatus::BadRoom;
    std::string text;
    switch (format) {
        case Format::OpenCv: text = toOpenCvYaml(cameras); break;
        case Format::Toml: text = toToml(cameras); break;
        case Format::Ros2: text = toRos2Launch(cameras); break;
        case Format::Matrix: text = toMatrixJson(cameras); break;
    }
    return writeAtomically(output, text, problem) ? ExportStatus::Written : ExportStatus::WriteFailed;
}

}  // namespace exporters
