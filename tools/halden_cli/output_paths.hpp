// The files a headless calibration will write, checked before any skeleton is collected,
// so a minute of walking is never lost to a typo or a read-only folder.
#pragma once

#include <string>

#include "tools/halden_cli/cli_options.hpp"

// "~/..." is in the home folder, as the room file writer reads it.
std::string expandHome(const std::string& path);

// Rewrites options.output and options.report to the files that will really be written
// (home expanded, ".json" added to the calibration). 0 when both can be written; else a
// CliStatus with `problem` naming the file and what is wrong.
int checkOutputs(CliOptions& options, std::string& problem);
