// The files a headless calibration will write, checked before any skeleton is collected,
// so a minute of walking is never lost to a typo or a read-only folder.
#pragma once

#include <string>
#include <vector>

#include "lum/lum.hpp"
#include "tools/halden_cli/cli_options.hpp"

// "~/..." is in the home folder, as the room file writer reads it.
std::string expandHome(const std::string& path);

// Rewrites options.output and options.report to the files that will really be written
// (home expanded, ".json" added to the calibration). 0 when both can be written; else a
// CliStatus with `problem` naming the file and what is wrong. Only a regular file or a
// new name may be replaced, whatever links lead there, and never both through one file.
int checkOutputs(CliOptions& options, std::string& problem);

// The file `path` finally names once every link is followed, dangling ones included, or
// empty with `problem` set when it must not be written (a folder, a device, a pipe, links
// in a loop, a missing or read-only folder). `what` names the option in the message.
std::string writableTarget(const std::string& path, const char* what, std::string& problem);

// Keeps a calibration whose own file could not be written, in the first of
// $XDG_STATE_HOME/halden (default ~/.local/state/halden) and $TMPDIR (default /tmp) that
// takes it. The file's name, or empty with `problem` saying why neither did.
std::string keepUnsavedCalibration(const std::vector<lum::FusionConfiguration>& calibrated, std::string& problem);
