// Output file checks for halden-cli: distinct targets, existing writable folders.
#include "tools/halden_cli/output_paths.hpp"

#include <QDir>
#include <QFileInfo>

#include <unistd.h>

#include <cstdlib>

#include "fusion/fusion_worker.hpp"

namespace {

// The same file however it is spelled: through links, "..", or relative to here.
QString identity(const QString& path) {
    const QFileInfo info(path);
    if (info.exists()) return info.canonicalFilePath();
    const QString folder = QFileInfo(info.absolutePath()).canonicalFilePath();
    return folder.isEmpty() ? info.absoluteFilePath() : QDir(folder).filePath(info.fileName());
}

bool writable(const std::string& path, const char* what, std::string& problem) {
    const QFileInfo info(QString::fromStdString(path));
    const std::string name = std::string(what) + " " + path;
    if (info.isDir()) {
        problem = name + " is a folder";
        return false;
    }
    const QFileInfo folder(info.absolutePath());
    if (!folder.isDir()) {
        problem = name + ": the folder " + folder.absoluteFilePath().toStdString() + " does not exist";
        return false;
    }
    // The file is replaced through a temporary file beside it, so the folder must take one.
    if (::access(folder.absoluteFilePath().toLocal8Bit().constData(), W_OK | X_OK) != 0 ||
        (info.exists() && !info.isWritable())) {
        problem = name + " cannot be written: permission denied";
        return false;
    }
    return true;
}

}  // namespace

std::string expandHome(const std::string& path) {
    if (path.rfind("~/", 0) != 0) return path;
    const char* home = std::getenv("HOME");
    if (!home || !*home) return path;
    return std::string(home) + path.substr(1);
}

int checkOutputs(CliOptions& options, std::string& problem) {
    // A recording keeps its name as given; a calibration gets ".json" when missing.
    options.output = expandHome(options.command == CliOptions::Command::Record
                                    ? options.output
                                    : calibrationFileName(QString::fromStdString(options.output)));
    options.report = expandHome(options.report);
    if (!options.report.empty() &&
        identity(QString::fromStdString(options.output)) == identity(QString::fromStdString(options.report))) {
        problem = "--output and --report name the same file, " + options.output + "; the report would replace "
                  "the calibration";
        return kUsage;
    }
    if (!writable(options.output, "--output", problem)) return kWriteFailed;
    if (!options.report.empty() && !writable(options.report, "--report", problem)) return kWriteFailed;
    return 0;
}
