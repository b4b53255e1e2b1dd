// Room configuration files on disk: oversized files are refused unread, and writes go through
// a temporary file renamed over the target, so a crash never leaves half a room file.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>

#include "lum/fusion.hpp"
#include "atomic_file.hpp"
#include "printable_text.hpp"
#include "room_document.hpp"

namespace lum {
namespace {

// Messages quote file names and keys from the document; a control byte in them must not
// reach the user's terminal as a command.
void report(const std::string& raw, std::string* error) {
    const std::string message = printableText(raw);
    if (error) *error = message;
    else std::cerr << message << std::endl;
}

bool readWholeFile(const std::string& path, std::string& text, std::string& problem) {
    // Opened without blocking and checked on the descriptor: a pipe put in the file's place
    // after a check by name would otherwise hang the reader for ever.
    const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        problem = std::strerror(errno);
        return false;
    }
    struct stat info {};
    bool ok = false;
    if (::fstat(fd, &info) != 0) {
        problem = std::strerror(errno);
    } else if (!S_ISREG(info.st_mode)) {
        problem = "not a regular file";
    } else if (static_cast<unsigned long long>(info.st_size) > room::kMaxDocumentBytes) {
        problem = "larger than " + std::to_string(room::kMaxDocumentBytes >> 20) + " MiB, not a room configuration";
    } else {
        // Bounded even if the file grows while we read it.
        text.resize(room::kMaxDocumentBytes + 1);
        size_t done = 0;
        ok = true;
        while (done < text.size()) {
            const ssize_t n = ::read(fd, &text[done], text.size() - done);
            if (n < 0 && errno == EINTR) continue;
            if (n < 0) {
                problem = std::string("read failed: ") + std::strerror(errno);
                ok = false;
            }
            if (n <= 0) break;
            done += size_t(n);
        }
        text.resize(done);
    }
    ::close(fd);
    return ok;
}

}  // namespace

std::vector<FusionConfiguration> readFusionConfiguration(const std::string& jsonText,
                                                         COORDINATE_SYSTEM coordinateSystem, UNIT unit,
                                                         std::string* error) {
    std::vector<FusionConfiguration> configurations;
    std::string problem;
    if (!room::fromText(jsonText, coordinateSystem, unit, configurations, problem))
        report("room configuration: " + problem, error);
    return configurations;
}

std::vector<FusionConfiguration> readFusionConfigurationFile(const std::string& path,
                                                             COORDINATE_SYSTEM coordinateSystem, UNIT unit,
                                                             std::string* error) {
    std::vector<FusionConfiguration> configurations;
    const std::string fullPath = room::expandHome(path);
    std::string text, problem;
    if (!readWholeFile(fullPath, text, problem) ||
        !room::fromText(text, coordinateSystem, unit, configurations, problem))
        report(fullPath + ": " + problem, error);
    return configurations;
}

bool writeConfigurationFile(const std::string& path, const std::vector<FusionConfiguration>& configurations,
                            COORDINATE_SYSTEM coordinateSystem, UNIT unit, std::string* error) {
    const std::string fullPath = room::expandHome(path);
    nlohmann::json document;
    std::string problem, text;
    if (!room::toDocument(configurations, coordinateSystem, unit, document, problem)) {
        report(fullPath + ": " + problem, error);
        return false;
    }
    try {
        text = document.dump(4) + "\n";
    } catch (const nlohmann::json::exception& e) {
        // Only text that is not UTF-8 (an address, a path) gets here.
        report(fullPath + ": cannot be written: " + e.what(), error);
        return false;
    }
    // What is written here must open again: the reader refuses anything larger.
    if (text.size() > room::kMaxDocumentBytes) {
        report(fullPath + ": " + std::to_string(configurations.size()) + " cameras make " +
                   std::to_string(text.size() >> 10) + " KiB, more than the " +
                   std::to_string(room::kMaxDocumentBytes >> 20) + " MiB a room configuration may hold",
               error);
        return false;
    }
    if (!replaceFile(fullPath, text, problem)) {
        report(fullPath + ": " + problem, error);
        return false;
    }
    return true;
}

}  // namespace lum
