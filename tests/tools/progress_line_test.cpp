// The headless progress line: frames and the wait to the next solve, never a percentage
// that runs past 100 while a solve is under way.
#include <gtest/gtest.h>

#include "tools/halden_cli/progress_line.hpp"

TEST(ProgressLine, SaysHowFarTheNextSolveIs) {
    ProgressLine::State state;
    state.frames = 37;
    state.solves = 3;
    state.lastRmsMm = 12.34;
    state.elapsedSeconds = 14;
    state.totalSeconds = 30;
    state.percent = 40;
    EXPECT_EQ(ProgressLine::format(state),
              "calibrating  frames 37  next solve in 7 frames (4 s or more)  solves 3  last RMS 12.3 mm  14/30 s");
    state.percent = 100;
    EXPECT_NE(ProgressLine::format(state).find("next solve in 1 frame (1 s or more)"), std::string::npos);
    state.percent = 110;
    state.lastRmsMm.reset();
    const std::string solving = ProgressLine::format(state);
    EXPECT_NE(solving.find("  solving  "), std::string::npos);
    EXPECT_NE(solving.find("last RMS -"), std::string::npos);
    EXPECT_EQ(solving.find('%'), std::string::npos);
}
