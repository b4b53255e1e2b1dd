// Output file checks for halden-cli: where links really lead, only regular files or new
// names, two outputs never one file, and a fallback home for a calibration that failed to save.
#include "tools/halden_cli/output_paths.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "fusion/fusion_worker.hpp"

namespace {

std::string folderOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string nameOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// Follows links one by one rather than with realpath, which gives up on a dangling link
// while a writer would still create the file it points at.
std::string followLinks(std::string path, std::string& problem) {
    for (int hop = 0; hop < 40; ++hop) {
        struct stat info {};
        if (::lstat(path.c_str(), &info) != 0 || !S_ISLNK(info.st_mode)) {
            char* folder = ::realpath(folderOf(path).c_str(), nullptr);
            if (!folder) return path;  // the folder check names what is missing
            std::string resolved = std::string(folder) + (folder[1] ? "/" : "") + nameOf(path);
            std::free(folder);
            return resolved;
        }
        char target[PATH_MAX];
        const ssize_t length = ::readlink(path.c_str(), target, sizeof target - 1);
        if (length < 0) break;
        const std::string next(target, size_t(length));
        path = next.front() == '/' ? next : folderOf(path) + "/" + next;
    }
    problem = "its links go round in a loop";
    return std::string();
}

std::string timestamp() {
    const std::time_t now = std::time(nullptr);
    std::tm local {};
    localtime_r(&now, &local);
    char text[32];
    std::strftime(text, sizeof text, "%Y%m%d-%H%M%S", &local);
    return std::string(text) + "-" + std::to_string(::getpid());
}

bool makeFolders(const std::string& path) {
    for (size_t slash = path.find('/', 1); ; slash = path.find('/', slash + 1)) {
        const std::string part = path.substr(0, slash);
        if (::mkdir(part.c_str(), 0700) != 0 && errno != EEXIST) return false;
        if (slash == std::string::npos) return true;
    }
}

}  // namespace

std::string expandHome(const std::string& path) {
    if (path.rfind("~/", 0) != 0) return path;
    const char* home = std::getenv("HOME");
    if (!home || !*home) return path;
    return std::string(home) + path.substr(1);
}

std::string writableTarget(const std::string& path, const char* what, std::string& problem) {
    const std::string name = std::string(what) + " " + path;
    std::string why;
    const std::string target = followLinks(path, why);
    if (target.empty()) {
        problem = name + ": " + why;
        return target;
    }
    const std::string through = target == path ? std::string() : " (through a link, " + target + ")";
    struct stat info {};
    if (::stat(target.c_str(), &info) == 0) {
        if (S_ISDIR(info.st_mode)) {
            problem = name + through + " is a folder";
            return std::string();
        }
        // Replacing a device or a pipe would put a plain file where the system expects a node.
        if (!S_ISREG(info.st_mode)) {
            problem = name + through + " is not a regular file; only a regular file or a new name is written";
            return std::string();
        }
    }
    struct stat folder {};
    const std::string folderPath = folderOf(target);
    if (::stat(folderPath.c_str(), &folder) != 0 || !S_ISDIR(folder.st_mode)) {
        problem = name + through + ": the folder " + folderPath + " does not exist";
        return std::string();
    }
    // The file is replaced through a temporary file beside it, so the folder must take one.
    if (::access(folderPath.c_str(), W_OK | X_OK) != 0 || (::access(target.c_str(), F_OK) == 0 &&
                                                            ::access(target.c_str(), W_OK) != 0)) {
        problem = name + through + " cannot be written: permission denied";
        return std::string();
    }
    return target;
}

int checkOutputs(CliOptions& options, std::string& problem) {
    // A recording keeps its name as given; a calibration gets ".json" when missing.
    options.output = expandHome(options.command == CliOptions::Command::Record
                                    ? options.output
                                    : calibrationFileName(QString::fromStdString(options.output)));
    options.report = expandHome(options.report);
    const std::string output = writableTarget(options.output, "--output", problem);
    if (output.empty()) return kWriteFailed;
    if (options.report.empty()) return 0;
    const std::string report = writableTarget(options.report, "--report", problem);
    if (report.empty()) return kWriteFailed;
    // Hard links are one file under two names: compare the files, not only the names.
    struct stat a {}, b {};
    const bool sameFile = output == report || (::stat(output.c_str(), &a) == 0 && ::stat(report.c_str(), &b) == 0 &&
                                               a.st_dev == b.st_dev && a.st_ino == b.st_ino);
    if (sameFile) {
        problem = "--output and --report name the same file, " + output + "; the report would replace "
                  "the calibration";
        return kUsage;
    }
    return 0;
}

std::string keepUnsavedCalibration(const std::vector<lum::FusionConfiguration>& calibrated, std::string& problem) {
    std::vector<std::string> candidates;
    const char* state = std::getenv("XDG_STATE_HOME");
    const char* home = std::getenv("HOME");
    const std::string name = "unsaved-calibration-" + timestamp() + ".json";
    if (state && *state == '/') candidates.push_back(std::string(state) + "/halden");
    else if (home && *home == '/') candidates.push_back(std::string(home) + "/.local/state/halden");
    const char* temporary = std::getenv("TMPDIR");
    candidates.push_back(temporary && *temporary == '/' ? temporary : "/tmp");
    problem.clear();
    for (const std::string& folder : candidates) {
        const std::string path = folder + "/" + (folder == candidates.back() ? "halden-" : "") + name;
        std::string why;
        if (makeFolders(folder) && lum::writeConfigurationFile(path, calibrated, lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP,
                                                                lum::UNIT::METER, &why))
            return path;
        problem += (problem.empty() ? "" : "; ") + (why.empty() ? folder + ": " + std::strerror(errno) : why);
    }
    return std::string();
}
