// Progress output of halden-cli. On a terminal the line is redrawn with a carriage
// return; elsewhere a line every ten seconds and one per solve.
#include "tools/halden_cli/progress_line.hpp"

#include <unistd.h>

#include <cstdio>
#include <iostream>

ProgressLine::ProgressLine() : terminal(isatty(fileno(stderr)) != 0) {}

std::string ProgressLine::format(const State& state) {
    char rms[32] = "-";
    if (state.lastRmsMm) std::snprintf(rms, sizeof(rms), "%.1f mm", *state.lastRmsMm);
    char line[160];
    std::snprintf(line, sizeof(line), "calibrating %3d%%  frames %d  solves %d  last RMS %s  %d/%d s", state.percent,
                  state.frames, state.solves, rms, state.elapsedSeconds, state.totalSeconds);
    if (state.people.empty()) return line;
    return std::string(line) + "  | " + state.people;
}

void ProgressLine::update(const State& state, bool important) {
    if (terminal) {
        std::cerr << "\r\033[K" << format(state) << std::flush;
        drawn = true;
        return;
    }
    const int tenSeconds = state.elapsedSeconds / 10;
    if (!important && tenSeconds == lastPlainSecond) return;
    lastPlainSecond = tenSeconds;
    std::cerr << format(state) << std::endl;
}

void ProgressLine::close() {
    if (drawn) std::cerr << std::endl;
    drawn = false;
}
