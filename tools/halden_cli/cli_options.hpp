// Command line of halden-cli: what to do, with which room, for how long, saved where.
#pragma once

#include <QStringList>

#include <optional>
#include <string>

#include "core/shared_records.hpp"

// Exit statuses; each failure has its own so scripts can tell them apart.
enum CliStatus : int {
    kWritten = 0,
    kUsage = 1,
    kNoRoom = 2,
    kTooFewCameras = 3,
    kFusionNotStarted = 4,
    kNothingToSave = 5,
    kWriteFailed = 6,
    kPartial = 7,
    kCameraMoved = 8,
    kBadRecording = 9,
    kCannotWatch = 10,
    kNotSettled = 11,
};

struct CliOptions {
    enum class Command { Help, Version, Devices, Calibrate, Monitor, Record, Export };
    Command command = Command::Help;
    std::string roomFile;  // empty with --usb
    std::string format;    // export: opencv, toml, ros2 or matrix
    bool usb = false;
    std::string replay;  // a recording played instead of live cameras
    int seconds = 60;    // 0 with --replay and no --seconds: the whole recording
    std::string output;
    std::string report;  // empty: no report
    bool requireGood = false;   // write no room file unless every camera reads good
    bool classicModel = false;  // --model classic: poses only, the reference camera's frame
    AppParams params;
    bool verbose = false;  // the workers' trace lines, on standard error
    bool json = false;     // the result as one JSON document on standard output, and nothing else there
};

// The options, or nullopt with `problem` saying what is wrong with the command line.
std::optional<CliOptions> parseCliOptions(const QStringList& arguments, std::string& problem);
const char* cliHelpText();
// What an exit status means, in a few words (the JSON result's "exitReason").
const char* exitReason(int status);
