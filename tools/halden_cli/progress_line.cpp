// Progress output of halden-cli. On a terminal the line is redrawn with a carriage
// return; elsewhere a line every ten seconds and one per solve.
#include "tools/halden_cli/progress_line.hpp"

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <iostream>

ProgressLine::ProgressLine() : terminal(isatty(fileno(stderr)) != 0) {}

namespace {
// The fusion worker solves once more than ten frames have come since the last solve, and
// takes at most one frame per half second.
constexpr int kFramesPerSolve = 11;
constexpr double kSecondsPerFrame = 0.5;
}  // namespace

std::string ProgressLine::format(const State& state) {
    char rms[32] = "-";
    if (state.lastRmsMm) std::snprintf(rms, sizeof(rms), "%.1f mm", *state.lastRmsMm);
    char next[64];
    const int framesSinceSolve = state.percent / 10;
    if (framesSinceSolve >= kFramesPerSolve) {
        std::snprintf(next, sizeof(next), "solving");
    } else {
        const int missing = kFramesPerSolve - framesSinceSolve;
        std::snprintf(next, sizeof(next), "next solve in %d frame%s (%.0f s or more)", missing,
                      missing == 1 ? "" : "s", std::ceil(missing * kSecondsPerFrame));
    }
    char line[200];
    std::snprintf(line, sizeof(line), "calibrating  frames %d  %s  solves %d  last RMS %s  %d/%d s", state.frames,
                  next, state.solves, rms, state.elapsedSeconds, state.totalSeconds);
    std::string text = line;
    for (int camera : state.reseeding) text += "  re-seeding " + std::to_string(camera);
    if (state.people.empty()) return text;
    return text + "  | " + state.people;
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
