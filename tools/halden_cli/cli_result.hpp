// What a headless calibration ended with, gathered as it ends, for --json: one document on
// standard output that a script can read instead of the lines meant for people.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "calibration/calibration_report.hpp"

struct CliResult {
    int status = 0;
    std::string message;  // what went wrong, when something did
    std::string reason;   // the exit reason when the status alone would mislead
    std::vector<int> roomCameras;
    std::string output;  // files really written; empty when not
    std::string report;
    int frames = 0;
    int solves = 0;
    std::vector<int> saved;
    std::map<int, std::string> leftOut;  // camera -> why it is not in the output
    std::optional<CalibrationReport> calibration;  // the last usable solve
};

// Every camera of the room, saved or not, with the report's verdict and figures.
nlohmann::ordered_json toJson(const CliResult& result);
void printJson(const CliResult& result);
