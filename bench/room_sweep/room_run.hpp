// Runs one generated room as a user would: halden-cli records it on the virtual room
// clock, then calibrates the recording; the result read back from its JSON and room file.
#pragma once

#include <string>

#include "bench/room_sweep/room_generator.hpp"
#include "bench/room_sweep/room_judge.hpp"

namespace sweep {

struct RunSettings {
    std::string cli;          // the halden-cli program
    std::string folder;       // where each room gets its own folder of files
    bool keepFiles = false;   // keep scene, recording, room file and outputs of every room
    int timeoutSeconds = 1800;  // per program run, in wall time: a hung run is killed and named
    // Where an earlier sweep kept its rooms (--keep): a room whose scene there is the same
    // calibrates that recording again instead of recording anew (recordings are replayed
    // identically), so a change to the calibration alone is judged in a fraction of the time.
    std::string recordings;
};

// Never throws: a run that fails says so in the result's status and problem. The room's
// folder is removed afterwards unless asked to keep it, or the run went wrong.
RoomResult runRoom(const GeneratedRoom& room, const RunSettings& settings);

}  // namespace sweep
