// What every benchmark program that runs the simulated room sets up in main(): a scratch
// folder for the room's runtime files and models, the room's clock, and the Qt application.
#pragma once

#include <string>

namespace bench {

enum class RoomClock { Wall, Virtual };

// Call first in main(). The folder and the application last until the program exits; a
// scene named in the environment is ignored, so every run measures the same rooms.
// Returns the folder's path.
std::string prepareProcess(int& argc, char** argv, RoomClock clock);

// Runs the benchmarks the command line selects.
void runBenchmarks(int& argc, char** argv);

}  // namespace bench
