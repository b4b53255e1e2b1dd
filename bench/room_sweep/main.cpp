// room_sweep: seeded generated rooms through the real halden-cli (record, then calibrate
// the recording), judged against the simulation's truth; results as JSON lines, tables on stdout.
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "bench/room_sweep/room_run.hpp"
#include "bench/room_sweep/sweep_results.hpp"

namespace {

const char* kUsage = R"(room_sweep [--rooms N] [--first-seed S] [--jobs J] [--shard K/M] [--results FILE]
           [--folder DIR] [--keep] [--cli PATH] [--timeout SECONDS] [--recordings DIR]
room_sweep --table FILE...
room_sweep --compare FILE FILE
room_sweep --scene SEED
room_sweep --scene-file FILE --seconds N [--folder DIR] [--keep] [--recordings DIR]

Generates rooms from seeds S .. S+N-1 (default 1 .. 100), runs each through halden-cli
record --usb (virtual room clock) and calibrate --replay, and judges every camera against
the simulation's truth. Each room appends one JSON line to --results (default
room_sweep.jsonl); seeds already there are skipped, so an interrupted sweep resumes and
shards (--shard 0/2 and --shard 1/2 on other machines or files) add up. --jobs runs that many
rooms at once. The tables of every room in the results go to standard output at the end;
--table prints them from result files without running anything; --compare says, seed by
seed, whether two result files agree and where the runs parted if not. A room that went wrong or
failed silently keeps its folder (scene.json, walk.rec, room.json, report.json, the outputs)
under --folder (default $TMPDIR/room_sweep); --keep keeps every room's. --recordings DIR
calibrates the recordings an earlier --keep run left in DIR (same seed, same scene) instead
of recording again: a change to the calibration alone is judged in a fraction of the time.
--scene prints the scene file a seed generates. --scene-file runs one scene file of ours
(a hall, say) the same way for N seconds and prints it camera by camera; its folder is named
after the scene's seed.
)";

struct Options {
    uint64_t firstSeed = 1;
    int rooms = 100;
    int jobs = 1;
    int shard = 0, shards = 1;
    std::string results = "room_sweep.jsonl";
    std::vector<std::string> tables, compared;
    long long sceneSeed = -1;
    std::string sceneFile;
    int seconds = 60;
    sweep::RunSettings run;
};

bool parse(int argc, char** argv, Options& o) {
    const char* tmp = std::getenv("TMPDIR");
    o.run.folder = std::string(tmp && *tmp ? tmp : "/tmp") + "/room_sweep";
    o.run.cli = HALDEN_BINARY_DIR "/tools/halden_cli/halden-cli";
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        const bool hasValue = i + 1 < argc;
        auto value = [&] { return std::string(argv[++i]); };
        if (a == "--keep") o.run.keepFiles = true;
        else if (a == "--table") {
            while (i + 1 < argc) o.tables.push_back(value());
            if (o.tables.empty()) return false;
        } else if (!hasValue) return false;
        else if (a == "--compare" && i + 2 < argc) {
            o.compared = {value(), value()};
        } else if (a == "--rooms") o.rooms = std::stoi(value());
        else if (a == "--first-seed") o.firstSeed = std::stoull(value());
        else if (a == "--jobs") o.jobs = std::max(1, std::stoi(value()));
        else if (a == "--results") o.results = value();
        else if (a == "--folder") o.run.folder = value();
        else if (a == "--cli") o.run.cli = value();
        else if (a == "--recordings") o.run.recordings = value();
        else if (a == "--timeout") o.run.timeoutSeconds = std::stoi(value());
        else if (a == "--scene") o.sceneSeed = std::stoll(value());
        else if (a == "--scene-file") o.sceneFile = value();
        else if (a == "--seconds") o.seconds = std::stoi(value());
        else if (a == "--shard") {
            if (std::sscanf(value().c_str(), "%d/%d", &o.shard, &o.shards) != 2 || o.shards < 1 || o.shard < 0 ||
                o.shard >= o.shards)
                return false;
        } else return false;
    }
    return o.rooms > 0 && o.seconds > 0;
}

// One scene file through record and calibrate, camera by camera on standard output.
int runSceneFile(const Options& o) {
    sweep::GeneratedRoom room;
    std::ifstream in(o.sceneFile);
    std::stringstream text;
    text << in.rdbuf();
    room.sceneText = text.str();
    std::string problem;
    if (!pyra_sim::loadScene(o.sceneFile, room.scene, &problem)) {
        std::cerr << "room_sweep: " << problem << std::endl;
        return 2;
    }
    room.seed = room.scene.seed;
    room.layout = std::filesystem::path(o.sceneFile).stem().string();
    room.seconds = o.seconds;
    std::filesystem::create_directories(o.run.folder);
    const sweep::RoomResult result = sweep::runRoom(room, o.run);
    std::cout << room.layout << ", " << room.scene.cameras.size() << " cameras, " << room.scene.people.count
              << " people, " << o.seconds << " s: " << sweep::cameraTable(result);
    return 0;
}

std::string worstGoodText(const sweep::RoomResult& room) {
    double deg = 0, mm = 0;
    if (!room.worstGood(deg, mm)) return "no Good camera";
    char text[64];
    std::snprintf(text, sizeof text, "worst Good %.1f mm / %.2f deg", mm, deg);
    return text;
}

}  // namespace

int main(int argc, char** argv) {
    Options o;
    bool ok = false;
    try {
        ok = parse(argc, argv, o);
    } catch (const std::exception&) {
        ok = false;
    }
    if (!ok) {
        std::cerr << kUsage;
        return 1;
    }
    if (!o.compared.empty()) {
        std::cout << sweep::compareRuns(sweep::readResults({o.compared[0]}), sweep::readResults({o.compared[1]}));
        return 0;
    }
    if (!o.tables.empty()) {
        std::cout << sweep::sweepTables(sweep::readResults(o.tables));
        return 0;
    }
    if (!o.sceneFile.empty()) return runSceneFile(o);
    if (o.sceneSeed >= 0) {
        sweep::GeneratedRoom room;
        std::string problem;
        if (!sweep::generateRoom(uint64_t(o.sceneSeed), room, &problem)) {
            std::cerr << "room_sweep: seed " << o.sceneSeed << " gives a bad scene: " << problem << std::endl;
            return 2;
        }
        std::cout << room.sceneText << "\n";
        std::cerr << room.layout << ", walk " << room.seconds << " s" << std::endl;
        return 0;
    }

    const std::set<uint64_t> done = sweep::seedsIn(o.results);
    std::vector<uint64_t> seeds;
    for (int i = 0; i < o.rooms; ++i)
        if (i % o.shards == o.shard && !done.count(o.firstSeed + uint64_t(i))) seeds.push_back(o.firstSeed + uint64_t(i));
    std::filesystem::create_directories(o.run.folder);
    std::cerr << "room_sweep: " << seeds.size() << " rooms to run (" << done.size() << " already in " << o.results
              << "), " << o.jobs << " at a time" << std::endl;

    std::mutex output;
    std::ofstream results(o.results, std::ios::app);
    std::atomic<size_t> next{0};
    std::atomic<int> finished{0};
    auto work = [&] {
        for (size_t i = next++; i < seeds.size(); i = next++) {
            sweep::GeneratedRoom generated;
            sweep::RoomResult room;
            std::string problem;
            if (sweep::generateRoom(seeds[i], generated, &problem)) {
                room = sweep::runRoom(generated, o.run);
            } else {
                room.seed = seeds[i];
                room.problem = "bad scene: " + problem;
            }
            std::lock_guard<std::mutex> lock(output);
            results << sweep::toJson(room).dump() << std::endl;
            std::cerr << "[" << ++finished << "/" << seeds.size() << "] seed " << room.seed << ", " << room.layout
                      << ", " << room.cameras.size() << " cameras, " << room.people << " people, " << room.seconds
                      << " s: exit " << room.status << ", " << worstGoodText(room) << ", "
                      << room.silentFailures() << " silent, " << int(room.wallSeconds) << " s"
                      << (room.problem.empty() ? "" : " (" + room.problem + ")") << std::endl;
        }
    };
    std::vector<std::thread> workers;
    for (int j = 0; j < o.jobs; ++j) workers.emplace_back(work);
    for (std::thread& t : workers) t.join();
    results.close();
    std::cout << sweep::sweepTables(sweep::readResults({o.results}));
    return 0;
}
