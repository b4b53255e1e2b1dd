// The calibration progress on standard error: one line redrawn in place on a terminal,
// a plain line now and then otherwise (logs and CI output stay readable).
#pragma once

#include <optional>
#include <string>
#include <vector>

class ProgressLine {
public:
    struct State {
        int percent = 0;  // toward the next solve, as the worker reports it; passes 100 while a solve is due
        int frames = 0;
        int solves = 0;
        std::optional<double> lastRmsMm;
        int elapsedSeconds = 0;
        int totalSeconds = 0;
        std::string people;  // per camera: people in view and whether they are used
        std::vector<int> reseeding;  // cameras whose pose is being found anew
    };

    ProgressLine();
    // `important` lines (a new solve) are printed even when not on a terminal.
    void update(const State& state, bool important);
    // Ends the redrawn line so that what follows starts on a fresh one.
    void close();

    static std::string format(const State& state);

private:
    bool terminal;
    bool drawn = false;
    int lastPlainSecond = -1;
};
