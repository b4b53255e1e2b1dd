// One room through the real halden-cli: `record --usb` on the virtual clock, then
// `calibrate --replay --json`, each in the room's own runtime folder so rooms can run side by side.
#include "bench/room_sweep/room_run.hpp"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>
#include <thread>

#include <nlohmann/json.hpp>

#include "bench/room_sweep/shared_walking.hpp"
#include "lum/fusion.hpp"

extern char** environ;

namespace sweep {
namespace {

namespace fs = std::filesystem;

struct Program {
    std::vector<std::string> arguments;
    std::map<std::string, std::string> environment;  // added to, or replacing, this process's
    std::string out, err;                            // files standard output and error go to
};

// The exit status, or minus the signal that ended it; `timedOut` when it was killed for
// running past `timeoutSeconds`.
int run(const Program& program, int timeoutSeconds, bool& timedOut) {
    std::vector<std::string> variables;
    for (char** e = environ; *e; ++e) {
        const std::string entry(*e);
        if (!program.environment.count(entry.substr(0, entry.find('=')))) variables.push_back(entry);
    }
    for (const auto& [name, value] : program.environment) variables.push_back(name + "=" + value);
    std::vector<char*> envp, argv;
    for (std::string& v : variables) envp.push_back(v.data());
    envp.push_back(nullptr);
    std::vector<std::string> arguments = program.arguments;
    for (std::string& a : arguments) argv.push_back(a.data());
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, program.out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, 2, program.err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    pid_t pid = 0;
    const int spawned = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    timedOut = false;
    if (spawned != 0) return -1000;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeoutSeconds);
    int status = 0;
    while (waitpid(pid, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            timedOut = true;
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : WIFSIGNALED(status) ? -WTERMSIG(status) : -1000;
}

std::string readText(const fs::path& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// The last line of a program's standard error, to name what went wrong.
std::string lastLine(const fs::path& path) {
    std::string text = readText(path);
    while (!text.empty() && text.back() == '\n') text.pop_back();
    const size_t cut = text.find_last_of('\n');
    return cut == std::string::npos ? text : text.substr(cut + 1);
}

double figure(const nlohmann::json& camera, const char* key) {
    const auto it = camera.find(key);
    return it != camera.end() && it->is_number() ? it->get<double>() : kUnknown;
}

void readResult(const std::string& text, RoomResult& room) {
    const nlohmann::json result = nlohmann::json::parse(text, nullptr, false);
    if (result.is_discarded() || !result.is_object()) {
        room.problem = "calibrate printed no JSON result";
        return;
    }
    room.exitReason = result.value("exitReason", "");
    room.frames = result.value("frames", -1);
    room.solves = result.value("solves", -1);
    const auto cameras = result.find("cameras");
    if (cameras == result.end() || !cameras->is_array()) return;
    for (const nlohmann::json& entry : *cameras) {
        const unsigned serial = entry.value("camera", 0u);
        for (CameraResult& camera : room.cameras) {
            if (camera.serial != serial) continue;
            camera.verdict = entry.value("verdict", "");
            camera.sigmaDeg = figure(entry, "rotationSigmaDeg");
            camera.sigmaMm = figure(entry, "positionSigmaMm");
            const auto why = entry.find("leftOut");
            if (why != entry.end() && why->is_string()) camera.leftOut = why->get<std::string>();
        }
    }
}

// Takes an earlier run's recording of the same scene, if there is one, into `folder`.
bool reuseRecording(const std::string& recordings, const GeneratedRoom& generated, const fs::path& folder) {
    if (recordings.empty()) return false;
    const fs::path earlier = fs::path(recordings) / ("room-" + std::to_string(generated.seed));
    if (!fs::exists(earlier / "walk.rec") || !fs::exists(earlier / "record.out")) return false;
    if (readText(earlier / "scene.json") != generated.sceneText) return false;
    std::error_code failed;
    fs::copy_file(earlier / "record.out", folder / "record.out", fs::copy_options::overwrite_existing, failed);
    if (!failed) fs::create_hard_link(earlier / "walk.rec", folder / "walk.rec", failed);
    if (failed) fs::copy_file(earlier / "walk.rec", folder / "walk.rec", fs::copy_options::overwrite_existing, failed);
    return !failed;
}

}  // namespace

RoomResult runRoom(const GeneratedRoom& generated, const RunSettings& settings) {
    const auto start = std::chrono::steady_clock::now();
    RoomResult room;
    room.seed = generated.seed;
    room.layout = generated.layout;
    room.people = generated.scene.people.count;
    room.seconds = generated.seconds;
    // The simulation's library was written for one room per process; rooms share it in turn.
    static std::mutex simulation;
    std::unique_lock<std::mutex> lock(simulation);
    const std::map<unsigned, double> shared = sharedWalkingSeconds(generated.scene, generated.seconds);
    lock.unlock();
    for (const pyra_sim::CameraSettings& camera : generated.scene.cameras) {
        CameraResult c;
        c.serial = camera.serial;
        c.sharedSeconds = shared.at(camera.serial);
        room.cameras.push_back(c);
    }

    const fs::path folder = fs::path(settings.folder) / ("room-" + std::to_string(generated.seed));
    std::error_code ignored;
    fs::remove_all(folder, ignored);
    fs::create_directories(folder / "runtime", ignored);
    fs::permissions(folder / "runtime", fs::perms::owner_all, ignored);
    std::ofstream(folder / "scene.json") << generated.sceneText;
    const std::map<std::string, std::string> environment = {
        {"PYRA_SIM_SCENE", (folder / "scene.json").string()}, {"PYRA_SIM_CLOCK", "virtual"},
        {"PYRA_RUNTIME_DIR", (folder / "runtime").string()},   {"PYRA_MODEL_CACHE", (folder / "runtime").string()},
        {"PYRA_MODEL_OPTIMIZE_SECONDS", "0"},                  {"XDG_STATE_HOME", (folder / "state").string()},
        {"TMPDIR", folder.string()}};
    const std::string recording = (folder / "walk.rec").string();
    bool timedOut = false;
    const int recorded = reuseRecording(settings.recordings, generated, folder)
                             ? 0
                             : run({{settings.cli, "record", "--usb", "--seconds", std::to_string(generated.seconds),
                                     "--output", recording},
                                    environment, (folder / "record.out").string(), (folder / "record.err").string()},
                                   settings.timeoutSeconds, timedOut);
    if (recorded != 0) {
        room.problem = timedOut ? "record killed after the time limit"
                                : "record exited " + std::to_string(recorded) + ": " + lastLine(folder / "record.err");
    } else {
        long long captures = -1;
        if (std::sscanf(readText(folder / "record.out").c_str(), "Recording of %lld captures", &captures) == 1)
            room.captures = captures;
        room.recordingBytes = (long long)fs::file_size(recording, ignored);
        const fs::path output = folder / "room.json";
        room.status = run({{settings.cli, "calibrate", "--replay", recording, "--output", output.string(), "--report",
                            (folder / "report.json").string(), "--json"},
                           environment, (folder / "calibrate.out").string(), (folder / "calibrate.err").string()},
                          settings.timeoutSeconds, timedOut);
        if (timedOut) room.problem = "calibrate killed after the time limit";
        else readResult(readText(folder / "calibrate.out"), room);
        std::map<unsigned, lum::Transform> saved;
        lock.lock();
        if (fs::exists(output))
            for (const lum::FusionConfiguration& camera : lum::readFusionConfigurationFile(
                     output.string(), lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP, lum::UNIT::METER))
                saved[unsigned(camera.serial_number)] = camera.pose;
        judgeRoom(generated.scene, saved, room);
        lock.unlock();
        // A result read wrongly would count no silent failure at all; say so instead.
        for (const CameraResult& camera : room.cameras)
            if ((room.status == 0 || room.status == 7) && camera.verdict.empty() && room.problem.empty())
                room.problem = "calibrate gave no verdict for camera " + std::to_string(camera.serial);
    }
    room.wallSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    // A room that went wrong keeps its files (scene, recording, outputs) for whoever fixes it.
    if (!settings.keepFiles && room.problem.empty() && room.silentFailures() == 0) fs::remove_all(folder, ignored);
    return room;
}

}  // namespace sweep
