// halden-cli: calibrates a room without the GUI (same workers, console prompts), and
// lists the cameras plugged into this computer.
#include <QCoreApplication>
#include <QTimer>

#include <csignal>
#include <iostream>
#include <set>

#include "core/console_log.hpp"
#include "exporters/room_export.hpp"
#include "tools/halden_cli/calibration_session.hpp"
#include "tools/halden_cli/cli_options.hpp"
#include "tools/halden_cli/cli_result.hpp"
#include "tools/halden_cli/monitor_session.hpp"
#include "tools/halden_cli/output_paths.hpp"
#include "tools/halden_cli/record_session.hpp"
#include "tools/stop_flag.hpp"
#include "workspace/room_usb.hpp"

namespace {

int listDevices() {
    const roomusb::UsbRoom room = roomusb::discover();
    if (room.lines.empty()) {
        std::cerr << "halden-cli: no camera plugged into this computer" << std::endl;
        return kNoRoom;
    }
    for (const std::string& line : room.lines) std::cout << line << std::endl;
    return 0;
}

// True when every camera of the room is one of this computer's and none is plugged in:
// opening them would only fail one by one.
bool noneAttached(const std::vector<lum::FusionConfiguration>& room) {
    std::set<unsigned int> plugged;
    for (const lum::DeviceProperties& device : lum::Camera::getDeviceList()) plugged.insert(device.serial_number);
    for (const lum::FusionConfiguration& camera : room)
        if (camera.communication_parameters.getType() != lum::COMM_TYPE::SHARED_MEMORY ||
            plugged.count(camera.serial_number))
            return false;
    return true;
}

// The room to calibrate, or a status when there is none worth starting.
int loadRoom(const CliOptions& options, std::vector<lum::FusionConfiguration>& room) {
    if (options.usb) {
        room = roomusb::discover().configurations;
        if (room.empty()) {
            std::cerr << "halden-cli: no room: no camera plugged into this computer" << std::endl;
            return kNoRoom;
        }
    } else {
        std::string problem;
        room = lum::readFusionConfigurationFile(options.roomFile, lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP,
                                                lum::UNIT::METER, &problem);
        if (room.empty()) {
            std::cerr << "halden-cli: no room: "
                      << (problem.empty() ? "no camera in " + options.roomFile : problem) << std::endl;
            return kNoRoom;
        }
    }
    if (room.size() < 2) {
        std::cerr << "halden-cli: the room has " << room.size()
                  << " camera; a calibration needs at least two" << std::endl;
        return kTooFewCameras;
    }
    if (!options.usb && noneAttached(room)) {
        std::cerr << "halden-cli: no room: " << options.roomFile
                  << " lists cameras of this computer, and none of them is plugged in" << std::endl;
        return kNoRoom;
    }
    return 0;
}

int exportRoom(const CliOptions& options) {
    const exporters::Format format = *exporters::parseFormat(options.format);
    std::string problem;
    // The same rule as a calibration's files: a regular file or a new name, links followed.
    const std::string output = writableTarget(expandHome(options.output), "--output", problem);
    if (output.empty()) {
        std::cerr << "halden-cli: " << problem << std::endl;
        return kWriteFailed;
    }
    switch (exporters::exportRoom(expandHome(options.roomFile), format, output, problem)) {
        case exporters::ExportStatus::Written:
            std::cout << "Room calibration " << options.roomFile << " exported as " << options.format << " to "
                      << output << std::endl;
            return kWritten;
        case exporters::ExportStatus::BadRoom:
            std::cerr << "halden-cli: no room: " << problem << std::endl;
            return kNoRoom;
        case exporters::ExportStatus::WriteFailed: break;
    }
    std::cerr << "halden-cli: " << problem << std::endl;
    return kWriteFailed;
}

// A calibration that ends before its session starts still answers --json with a document.
int endEarly(const CliOptions& options, int status, const std::string& message) {
    if (options.json) {
        CliResult result;
        result.status = status;
        result.message = message;
        printJson(result);
    }
    return status;
}

// The recording to replay, opened; its room becomes the room unless one was given (a
// monitor watches against a calibrated room file).
int openReplay(const CliOptions& options, std::unique_ptr<rec::RecordingReader>& reader,
               std::vector<lum::FusionConfiguration>& room) {
    reader = std::make_unique<rec::RecordingReader>();
    std::string problem;
    if (!reader->open(options.replay, &problem)) {
        std::cerr << "halden-cli: cannot replay " << options.replay << ": " << problem << std::endl;
        return kBadRecording;
    }
    if (room.empty()) room = reader->header().room;
    if (room.size() < 2) {
        std::cerr << "halden-cli: the recording " << options.replay << " holds " << room.size()
                  << " camera; a calibration needs at least two" << std::endl;
        return kTooFewCameras;
    }
    return 0;
}

// Runs a session to its end; Ctrl-C or a termination asks it to finish early.
template <typename Session>
int runSession(QCoreApplication& app, Session& session) {
    QTimer signalPoll;
    QObject::connect(&signalPoll, &QTimer::timeout, [&session] {
        if (stopflag::raised) session.interrupt();
    });
    signalPoll.start(100);
    session.start();
    return app.exec();
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    std::string problem;
    const std::optional<CliOptions> options = parseCliOptions(app.arguments(), problem);
    if (!options) {
        std::cerr << "halden-cli: " << problem << "\n\n" << cliHelpText();
        CliOptions asked;
        asked.json = app.arguments().contains("--json");
        return endEarly(asked, kUsage, problem);
    }
    if (options->command == CliOptions::Command::Help) {
        std::cout << cliHelpText();
        return 0;
    }
    if (options->command == CliOptions::Command::Version) {
        std::cout << "halden-cli " << HALDEN_VERSION << std::endl;
        return 0;
    }
    // The workers' trace lines are for whoever debugs a room; what went wrong is for everyone.
    console::setDestinations(options->verbose ? console::Destination::StandardError : console::Destination::Nowhere,
                             console::Destination::StandardError);
    if (options->command == CliOptions::Command::Devices) return listDevices();
    if (options->command == CliOptions::Command::Export) return exportRoom(*options);

    CliOptions checked = *options;
    // A monitor writes nothing; a calibration checks its outputs before a minute of walking.
    const int unwritable = checked.command == CliOptions::Command::Monitor ? 0 : checkOutputs(checked, problem);
    if (unwritable) {
        std::cerr << "halden-cli: " << problem << std::endl;
        return endEarly(checked, unwritable, problem);
    }
    std::vector<lum::FusionConfiguration> room;
    std::unique_ptr<rec::RecordingReader> replay;
    if (checked.replay.empty() || checked.command == CliOptions::Command::Monitor) {
        // A replayed monitor still needs the calibrated room, whose cameras need not be here.
        if (!checked.replay.empty()) {
            std::string problem;
            room = lum::readFusionConfigurationFile(checked.roomFile, lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP,
                                                    lum::UNIT::METER, &problem);
            if (room.empty()) {
                std::cerr << "halden-cli: no room: " << (problem.empty() ? "no camera in " + checked.roomFile : problem)
                          << std::endl;
                return endEarly(checked, kNoRoom, problem);
            }
        } else if (const int status = loadRoom(checked, room)) {
            return endEarly(checked, status, "");
        }
    }
    if (!checked.replay.empty())
        if (const int status = openReplay(checked, replay, room)) return endEarly(checked, status, "");

    std::signal(SIGINT, stopflag::onSignal);
    std::signal(SIGTERM, stopflag::onSignal);
    if (checked.command == CliOptions::Command::Monitor) {
        MonitorSession monitor(checked, std::move(room), std::move(replay));
        return runSession(app, monitor);
    }
    if (checked.command == CliOptions::Command::Record) {
        RecordSession recorder(checked, std::move(room));
        return runSession(app, recorder);
    }
    CalibrationSession session(checked, std::move(room), std::move(replay));
    return runSession(app, session);
}
