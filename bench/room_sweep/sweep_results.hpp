// The sweep's results: one JSON line per room (so shards and interrupted runs add up),
// and the tables made from them.
#pragma once

#include <set>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "bench/room_sweep/room_judge.hpp"

namespace sweep {

nlohmann::json toJson(const RoomResult& room);
RoomResult roomFromJson(const nlohmann::json& line);

// Every room of the files, one per seed (the last line of a seed wins), by seed.
std::vector<RoomResult> readResults(const std::vector<std::string>& files);
std::set<uint64_t> seedsIn(const std::string& file);

// Markdown: the summary, rooms by layout, every silent failure with its seed.
std::string sweepTables(const std::vector<RoomResult>& rooms);

// Markdown: one room camera by camera (true error against the stated sigma, verdict, how
// much walking it shares), for a room run on its own from a scene file.
std::string cameraTable(const RoomResult& room);

// Seed by seed, whether two runs gave the same room (figures within a relative 1e-9), and
// where those that did not parted: the recording, the calibration's frames, or its figures.
std::string compareRuns(const std::vector<RoomResult>& first, const std::vector<RoomResult>& second);

// The nearest-rank percentile (0..1) of `values`; NaN when empty.
double percentile(std::vector<double> values, double share);

}  // namespace sweep
