// Parses halden-cli's command line with QCommandLineParser and checks every value, so
// a bad argument is reported by name before any camera is touched.
#include "tools/halden_cli/cli_options.hpp"

#include <QCommandLineParser>

#include <optional>

#include "exporters/room_export.hpp"

namespace {

bool readInt(const QCommandLineParser& parser, const QString& name, int low, int high, int& value,
             std::string& problem) {
    if (!parser.isSet(name)) return true;
    bool ok = false;
    const int read = parser.value(name).toInt(&ok);
    if (!ok || read < low || read > high) {
        problem = "--" + name.toStdString() + " must be a whole number from " + std::to_string(low) + " to " +
                  std::to_string(high) + ", not \"" + parser.value(name).toStdString() + "\"";
        return false;
    }
    value = read;
    return true;
}

std::optional<CliOptions> parseExport(const QCommandLineParser& parser, const QStringList& positional,
                                      CliOptions options, std::string& problem) {
    options.command = CliOptions::Command::Export;
    if (positional.size() != 2) {
        problem = "export needs one room file: halden-cli export ROOM --format FORMAT --output FILE";
        return std::nullopt;
    }
    if (options.json) {
        problem = "--json is for calibrate";
        return std::nullopt;
    }
    options.roomFile = positional[1].toStdString();
    options.format = parser.value("format").toStdString();
    options.output = parser.value("output").toStdString();
    if (!exporters::parseFormat(options.format)) {
        problem = "--format must be opencv, toml, ros2 or matrix";
        return std::nullopt;
    }
    if (options.output.empty()) {
        problem = "export needs --output FILE";
        return std::nullopt;
    }
    return options;
}

}  // namespace

const char* cliHelpText() {
    return R"(Usage:
  halden-cli calibrate (--room FILE | --usb) --output FILE [--seconds N] [--report FILE]
                       [--depth-mode N] [--body-model N] [--confidence N]
                       [--model classic|refined] [--require-good] [--json] [--verbose]
  halden-cli calibrate --replay FILE --output FILE [--seconds N] [--report FILE] [--model M]
                       [--require-good] [--json] [--verbose]
  halden-cli monitor --room FILE [--seconds N] [--verbose]
  halden-cli monitor --replay FILE --room FILE [--seconds N] [--verbose]
  halden-cli record (--room FILE | --usb) --seconds N --output FILE [--depth-mode N]
                    [--body-model N] [--confidence N] [--verbose]
  halden-cli export ROOM --format opencv|toml|ros2|matrix --output FILE
  halden-cli devices
  halden-cli --help | --version

calibrate    Starts the fusion on a room, runs a skeleton calibration while people walk
             through the room (with the refined model, several at once; with classic, a
             camera's frame only counts while it sees one person), then saves the camera
             poses and prints each camera's verdict, 1-sigma and advice.
  --room FILE        room configuration file to start from
  --usb              the cameras plugged into this computer, as the room set-up's USB search
  --output FILE      where the room calibration is written (".json" is added when missing)
  --seconds N        how long to collect skeletons, default 60; Ctrl-C finishes earlier
                     and saves what has been calibrated so far
  --report FILE      also write the calibration report (per camera residuals before and
                     after, uncertainty, frames shared with each other camera) as JSON
  --depth-mode N     depth mode of the cameras, 1 (fastest) to 5 (finest), default 4
  --body-model N     body tracking model, 0 fast, 1 medium, 2 accurate, default 0
  --confidence N     body detection confidence threshold, 0 to 100, default 50
  --replay FILE      calibrate from a recording (see record) instead of live cameras: the
                     same collection, solves, verdict and save, paced by the recorded
                     capture times as fast as this computer goes; the same recording
                     gives the same files on every run. --seconds then counts recording
                     time, default the whole recording
  --model M          refined (default): camera poses and depth biases from clock-aligned
                     frames, in a level world frame with the floor at height 0;
                     classic: camera poses only, in the reference camera's frame
  --require-good     write no room file unless every camera's verdict is good (the
                     report is still written); exit 7 naming the cameras that are not
  --json             print the result (cameras, verdicts, sigmas, files written, exit
                     status and its reason) as one JSON document on standard output;
                     everything else goes to standard error
monitor      Runs a calibrated room (a file saved by calibrate) and reports every camera
             that moves away from its calibrated pose, with how far it moved, until
             --seconds have passed (default 60) or Ctrl-C. The watch first settles on
             30 s of people walking in view; until every camera has settled it says
             "not settled" rather than that nothing moved.
             With --replay, watches a recording against the calibrated room instead.
record       Records a room's cameras (their bodies as received, and the room) into a
             recording for --replay, for --seconds (default 60) or until Ctrl-C. A file
             cut short (power loss, a kill) still replays up to the cut.
export       Writes a room calibration (a file saved by calibrate) for another tool:
  --format opencv    OpenCV FileStorage YAML, R and T per camera (room to camera)
  --format toml      one table per camera: name, Rodrigues rotation, translation
  --format ros2      ROS 2 launch file of static transforms, halden_world to camera_<serial>
  --format matrix    JSON of 4x4 camera-to-room matrices
  --output FILE      the file to write
devices      Lists the cameras plugged into this computer.

  --verbose          also print what the fusion and the cameras are doing (trace lines)
                     on standard error
  --version          print the version and exit

Progress (percent toward the next solve, frames collected, solves, last RMS residual)
is one line redrawn in place on a terminal, plain lines otherwise, on standard error.

Exit status:
  0  a calibration (or a recording, or an export) was written, every camera good
  1  bad command line
  2  no room: unreadable room file, or none of its cameras plugged in
  3  the room has fewer than two cameras
  4  the fusion could not start (fewer than two cameras opened or subscribed)
  5  nothing to save: no calibration could be computed from what was collected
  6  the calibration, the report or the export could not be written (a calibration's
     files are checked before collecting too: only a regular file or a new name, never
     both through one file). A calibration whose file failed at the end is kept in
     $XDG_STATE_HOME/halden (default ~/.local/state/halden), else in $TMPDIR (default
     /tmp); the message names the file
  7  partial: some cameras of the room are not good, each named on standard error with
     its verdict and advice: left out (never opened or subscribed, or no usable keypoint
     shared with another camera), or written with a verdict other than good (moved,
     settling, needs frames). The solved cameras are written, unless --require-good
  8  monitor: a camera moved
  9  the recording to replay could not be read: missing, not a recording, from a newer
     Halden, or its room is damaged. A recording damaged or cut short after its room is
     replayed up to the damage, with a warning saying where, and exits as above
 10  monitor: the room cannot be watched (a camera that never opened or subscribed, or
     poses that cannot be a calibration: cameras at one spot or kilometres away)
 11  monitor: not settled: the watch ended before every camera could be judged
)";
}

std::optional<CliOptions> parseCliOptions(const QStringList& arguments, std::string& problem) {
    QCommandLineParser parser;
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    parser.addOptions({{"help", "Help."},
                       {"room", "Room file.", "FILE"},
                       {"usb", "Cameras plugged in."},
                       {"seconds", "Seconds.", "N"},
                       {"output", "Output file.", "FILE"},
                       {"report", "Report file.", "FILE"},
                       {"depth-mode", "Depth mode.", "N"},
                       {"body-model", "Body model.", "N"},
                       {"confidence", "Confidence.", "N"},
                       {"model", "Calibration model.", "M"},
                       {"replay", "Recording to replay.", "FILE"},
                       {"json", "JSON result."},
                       {"require-good", "Save only an all-good room."},
                       {"verbose", "Trace lines."},
                       {"version", "Version."},
                       {"format", "Export format.", "F"}});
    if (!parser.parse(arguments)) {
        problem = parser.errorText().toStdString();
        return std::nullopt;
    }

    CliOptions options;
    const QStringList positional = parser.positionalArguments();
    if (parser.isSet("help")) return options;
    if (parser.isSet("version")) {
        options.command = CliOptions::Command::Version;
        return options;
    }
    options.verbose = parser.isSet("verbose");
    options.json = parser.isSet("json");
    const QString command = positional.value(0);
    if (command == "export") return parseExport(parser, positional, options, problem);
    if (positional.size() != 1) {
        problem = positional.isEmpty() ? "a command is needed: calibrate, monitor, record, export or devices"
                                       : "only one command at a time";
        return std::nullopt;
    }
    if (options.json && command != "calibrate") {
        problem = "--json is for calibrate";
        return std::nullopt;
    }
    if (command == "devices") {
        options.command = CliOptions::Command::Devices;
        return options;
    }
    options.replay = parser.value("replay").toStdString();
    if (parser.isSet("replay") && options.replay.empty()) {
        problem = "--replay needs a file name";
        return std::nullopt;
    }
    // A replay runs to the recording's end unless told otherwise.
    if (!options.replay.empty()) options.seconds = 0;
    if (command == "monitor") {
        options.command = CliOptions::Command::Monitor;
        options.params.depthMode = 4;
        options.params.detectionConfidence = 50;
        options.roomFile = parser.value("room").toStdString();
        if (options.roomFile.empty()) {
            problem = "monitor needs --room FILE, a calibrated room";
            return std::nullopt;
        }
        if (!readInt(parser, "seconds", 1, 7 * 24 * 3600, options.seconds, problem)) return std::nullopt;
        return options;
    }
    if (command != "calibrate" && command != "record") {
        problem = "unknown command \"" + command.toStdString() + "\"";
        return std::nullopt;
    }

    const bool record = command == "record";
    options.command = record ? CliOptions::Command::Record : CliOptions::Command::Calibrate;
    options.usb = parser.isSet("usb");
    options.roomFile = parser.value("room").toStdString();
    const int sources = int(options.usb) + int(parser.isSet("room")) + int(parser.isSet("replay"));
    if (record && parser.isSet("replay")) {
        problem = "record needs live cameras: --room FILE or --usb, not --replay";
        return std::nullopt;
    }
    if (sources != 1) {
        problem = record ? "record needs exactly one of --room FILE and --usb"
                         : "calibrate needs exactly one of --room FILE, --usb and --replay FILE";
        return std::nullopt;
    }
    if (options.roomFile.empty() && !options.usb && options.replay.empty()) {
        problem = "--room needs a file name";
        return std::nullopt;
    }
    options.output = parser.value("output").toStdString();
    if (options.output.empty()) {
        problem = command.toStdString() + " needs --output FILE";
        return std::nullopt;
    }
    options.report = parser.value("report").toStdString();
    if (parser.isSet("report") && options.report.empty()) {
        problem = "--report needs a file name";
        return std::nullopt;
    }
    const QString model = parser.value("model");
    if (parser.isSet("model") && model != "classic" && model != "refined") {
        problem = "--model must be classic or refined";
        return std::nullopt;
    }
    options.classicModel = model == "classic";
    if (parser.isSet("require-good") && record) {
        problem = "--require-good is for calibrate";
        return std::nullopt;
    }
    options.requireGood = parser.isSet("require-good");
    AppParams& params = options.params;
    params.depthMode = 4;
    params.detectionConfidence = 50;
    if (!readInt(parser, "seconds", 1, 24 * 3600, options.seconds, problem) ||
        !readInt(parser, "depth-mode", 1, 5, params.depthMode, problem) ||
        !readInt(parser, "body-model", 0, 2, params.bodyModel, problem) ||
        !readInt(parser, "confidence", 0, 100, params.detectionConfidence, problem))
        return std::nullopt;
    return options;
}

const char* exitReason(int status) {
    switch (status) {
        case kWritten: return "written";
        case kUsage: return "bad command line";
        case kNoRoom: return "no room";
        case kTooFewCameras: return "fewer than two cameras";
        case kFusionNotStarted: return "fusion not started";
        case kNothingToSave: return "nothing to save";
        case kWriteFailed: return "write failed";
        case kPartial: return "partial";
        case kCameraMoved: return "camera moved";
        case kBadRecording: return "bad recording";
    }
    return "unknown";
}
