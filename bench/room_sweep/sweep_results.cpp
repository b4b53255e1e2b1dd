// Result lines and tables of the room sweep: counts by exit status, silent failures with
// their seeds, the worst Good camera's error, and the rooms that should end all-Good.
#include "bench/room_sweep/sweep_results.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>

namespace sweep {
namespace {

double number(const nlohmann::json& j, const char* key) {
    const auto it = j.find(key);
    return it != j.end() && it->is_number() ? it->get<double>() : kUnknown;
}

std::string fixed(double value, int decimals) {
    if (!std::isfinite(value)) return "-";
    char text[32];
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    return text;
}

std::string share(int part, int whole) {
    return whole ? std::to_string(part) + " of " + std::to_string(whole) + " (" +
                       fixed(100.0 * part / whole, 0) + " %)"
                 : "none";
}

struct Counts {
    int rooms = 0, good = 0, partial = 0, refused = 0, other = 0, silent = 0;
    void add(const RoomResult& room) {
        ++rooms;
        if (room.status == 0) ++good;
        else if (room.status == 7) ++partial;
        else if (room.status == 5) ++refused;
        else ++other;
        silent += room.silentFailures();
    }
};

std::string otherExits(const std::vector<RoomResult>& rooms) {
    std::map<std::string, int> kinds;
    for (const RoomResult& room : rooms)
        if (room.status != 0 && room.status != 5 && room.status != 7)
            ++kinds[room.status == -1 ? "did not run" : "exit " + std::to_string(room.status)];
    std::string text;
    for (const auto& [kind, count] : kinds) text += (text.empty() ? "" : ", ") + kind + ": " + std::to_string(count);
    return text.empty() ? "0" : text;
}

// Which bounds a silent failure broke.
std::string broken(const CameraResult& c) {
    std::string text;
    auto add = [&](bool broke, const char* what) {
        if (broke) text += (text.empty() ? "" : ", ") + std::string(what);
    };
    add(!std::isfinite(c.errorMm), "not measured");
    add(c.errorDeg > 1, "> 1 deg");
    add(c.errorMm > 30, "> 30 mm");
    add(std::isfinite(c.sigmaDeg) && c.errorDeg > 3 * c.sigmaDeg, "> 3 sigma rotation");
    add(std::isfinite(c.sigmaMm) && c.errorMm > 3 * c.sigmaMm, "> 3 sigma position");
    return text;
}

bool close(double a, double b) {
    if (!std::isfinite(a) || !std::isfinite(b)) return std::isfinite(a) == std::isfinite(b);
    return std::abs(a - b) <= 1e-9 * std::max(std::abs(a), std::abs(b));
}

bool sameFigures(const RoomResult& a, const RoomResult& b) {
    if (a.status != b.status || a.cameras.size() != b.cameras.size()) return false;
    for (size_t i = 0; i < a.cameras.size(); ++i) {
        const CameraResult &x = a.cameras[i], &y = b.cameras[i];
        if (x.verdict != y.verdict || x.saved != y.saved || !close(x.errorDeg, y.errorDeg) ||
            !close(x.errorMm, y.errorMm) || !close(x.sigmaDeg, y.sigmaDeg) || !close(x.sigmaMm, y.sigmaMm))
            return false;
    }
    return true;
}

}  // namespace

std::string cameraTable(const RoomResult& room) {
    std::ostringstream out;
    out << "exit " << room.status << (room.exitReason.empty() ? "" : " (" + room.exitReason + ")") << ", "
        << room.captures << " captures, " << room.frames << " frames, " << room.solves << " solves, "
        << fixed(room.wallSeconds, 0) << " s wall" << (room.problem.empty() ? "" : "; " + room.problem)
        << "; floor tilt " << fixed(room.floorTiltDeg, 2) << " deg, worst camera height " << fixed(room.worstHeightMm, 0)
        << " mm\n\n";
    out << "| camera | verdict | true error | stated 1-sigma | error / sigma | shared walking | vouched for and wrong |\n"
           "|---|---|---|---|---|---|---|\n";
    for (const CameraResult& c : room.cameras) {
        const std::string verdict = !c.saved ? "left out" + (c.leftOut.empty() ? "" : ": " + c.leftOut)
                                    : c.reference ? c.verdict + " (reference)"
                                                  : c.verdict;
        out << "| " << c.serial << " | " << verdict << " | " << fixed(c.errorDeg, 3) << " deg, "
            << fixed(c.errorMm, 1) << " mm | " << fixed(c.sigmaDeg, 3) << " deg, " << fixed(c.sigmaMm, 1) << " mm | "
            << fixed(c.errorDeg / c.sigmaDeg, 1) << ", " << fixed(c.errorMm / c.sigmaMm, 1) << " | "
            << fixed(c.sharedSeconds, 0) << " s | " << (c.silent ? broken(c) : "no") << " |\n";
    }
    return out.str();
}

std::string compareRuns(const std::vector<RoomResult>& first, const std::vector<RoomResult>& second) {
    std::map<uint64_t, const RoomResult*> earlier;
    for (const RoomResult& room : first) earlier[room.seed] = &room;
    int same = 0, compared = 0;
    std::ostringstream differences;
    for (const RoomResult& b : second) {
        const auto found = earlier.find(b.seed);
        if (found == earlier.end()) continue;
        const RoomResult& a = *found->second;
        ++compared;
        if (sameFigures(a, b)) {
            ++same;
            continue;
        }
        differences << "seed " << b.seed << ": "
                    << (a.captures < 0 || b.captures < 0                                  ? "the figures differ"
                        : a.captures != b.captures || a.recordingBytes != b.recordingBytes ? "the recordings differ"
                        : a.frames != b.frames || a.solves != b.solves ? "the calibrations' frames or solves differ"
                                                                       : "the figures differ")
                    << " (exit " << a.status << " / " << b.status << ", captures " << a.captures << " / "
                    << b.captures << ", frames " << a.frames << " / " << b.frames << ", solves " << a.solves << " / "
                    << b.solves << ")\n";
    }
    return std::to_string(same) + " of " + std::to_string(compared) + " rooms the same\n" + differences.str();
}

nlohmann::json toJson(const RoomResult& room) {
    nlohmann::json cameras = nlohmann::json::array();
    for (const CameraResult& c : room.cameras)
        cameras.push_back({{"serial", c.serial}, {"saved", c.saved}, {"reference", c.reference},
                           {"verdict", c.verdict}, {"leftOut", c.leftOut}, {"sigmaDeg", c.sigmaDeg},
                           {"sigmaMm", c.sigmaMm}, {"errorDeg", c.errorDeg}, {"errorMm", c.errorMm},
                           {"sharedSeconds", c.sharedSeconds}, {"silent", c.silent}});
    return {{"seed", room.seed},     {"layout", room.layout},         {"people", room.people},
            {"seconds", room.seconds}, {"status", room.status},       {"exitReason", room.exitReason},
            {"problem", room.problem}, {"wallSeconds", room.wallSeconds}, {"captures", room.captures},
            {"recordingBytes", room.recordingBytes}, {"frames", room.frames}, {"solves", room.solves},
            {"consensus", room.consensus}, {"cameras", cameras}};
}

RoomResult roomFromJson(const nlohmann::json& j) {
    RoomResult room;
    room.seed = j.value("seed", uint64_t(0));
    room.layout = j.value("layout", "");
    room.people = j.value("people", 0);
    room.seconds = j.value("seconds", 0);
    room.status = j.value("status", -1);
    room.exitReason = j.value("exitReason", "");
    room.problem = j.value("problem", "");
    room.wallSeconds = number(j, "wallSeconds");
    room.captures = j.value("captures", -1LL);
    room.recordingBytes = j.value("recordingBytes", -1LL);
    room.frames = j.value("frames", -1);
    room.solves = j.value("solves", -1);
    room.consensus = j.value("consensus", 0u);
    for (const nlohmann::json& c : j.value("cameras", nlohmann::json::array())) {
        CameraResult camera;
        camera.serial = c.value("serial", 0u);
        camera.saved = c.value("saved", false);
        camera.reference = c.value("reference", false);
        camera.verdict = c.value("verdict", "");
        camera.leftOut = c.value("leftOut", "");
        camera.sigmaDeg = number(c, "sigmaDeg");
        camera.sigmaMm = number(c, "sigmaMm");
        camera.errorDeg = number(c, "errorDeg");
        camera.errorMm = number(c, "errorMm");
        camera.sharedSeconds = number(c, "sharedSeconds");
        camera.silent = c.value("silent", false);
        room.cameras.push_back(camera);
    }
    return room;
}

std::vector<RoomResult> readResults(const std::vector<std::string>& files) {
    std::map<uint64_t, RoomResult> bySeed;
    for (const std::string& file : files) {
        std::ifstream in(file);
        std::string line;
        while (std::getline(in, line)) {
            const nlohmann::json j = nlohmann::json::parse(line, nullptr, false);
            if (j.is_object()) bySeed[j.value("seed", uint64_t(0))] = roomFromJson(j);
        }
    }
    std::vector<RoomResult> rooms;
    for (auto& [seed, room] : bySeed) rooms.push_back(std::move(room));
    return rooms;
}

std::set<uint64_t> seedsIn(const std::string& file) {
    std::set<uint64_t> seeds;
    for (const RoomResult& room : readResults({file})) seeds.insert(room.seed);
    return seeds;
}

double percentile(std::vector<double> values, double part) {
    if (values.empty()) return kUnknown;
    std::sort(values.begin(), values.end());
    const size_t rank = size_t(std::ceil(part * double(values.size())));
    return values[std::clamp<size_t>(rank, 1, values.size()) - 1];
}

std::string sweepTables(const std::vector<RoomResult>& rooms) {
    Counts all;
    std::map<std::string, Counts> byLayout;
    std::vector<double> worstMm, worstDeg;
    int qualifying = 0, qualifyingGood = 0, longQualifying = 0, longGood = 0, silentRooms = 0;
    std::map<std::string, int> verdicts;
    std::string oddReferences;  // rooms whose reference camera is the one placed wrong
    int wrongButNamed = 0;     // written, not Good, exit 7, and far off: allowed, but worth knowing
    std::string falseMoves;  // no generated room knocks a camera
    std::vector<double> wall;
    for (const RoomResult& room : rooms) {
        all.add(room);
        byLayout[room.layout].add(room);
        double deg = 0, mm = 0;
        if (room.worstGood(deg, mm)) {
            worstDeg.push_back(deg);
            worstMm.push_back(mm);
        }
        if (room.qualifies()) {
            ++qualifying;
            qualifyingGood += room.status == 0;
            // Rooms walked 100 s or more: nearly the two minutes such a room is given.
            longQualifying += room.seconds >= 100;
            longGood += room.seconds >= 100 && room.status == 0;
        }
        silentRooms += room.silentFailures() > 0;
        const auto reference = std::find_if(room.cameras.begin(), room.cameras.end(),
                                            [](const CameraResult& c) { return c.reference; });
        if (room.consensus && reference != room.cameras.end() && reference->serial != room.consensus)
            oddReferences += (oddReferences.empty() ? "" : ", ") + std::to_string(room.seed);
        for (const CameraResult& c : room.cameras) {
            ++verdicts[!c.saved ? "left out" : c.verdict.empty() ? "no verdict" : c.verdict];
            wrongButNamed += c.saved && c.verdict != "good" && room.status == 7 && (c.errorDeg > 1 || c.errorMm > 30);
            if (c.verdict == "moved")
                falseMoves += (falseMoves.empty() ? "" : ", ") + std::to_string(room.seed) + "/" + std::to_string(c.serial);
        }
        if (std::isfinite(room.wallSeconds)) wall.push_back(room.wallSeconds);
    }
    std::ostringstream out;
    out << "| rooms | all Good (exit 0) | partial (exit 7) | refused (exit 5) | other |\n|---|---|---|---|---|\n"
        << "| " << all.rooms << " | " << all.good << " | " << all.partial << " | " << all.refused << " | "
        << otherExits(rooms) << " |\n\n";
    out << "| figure | value |\n|---|---|\n";
    out << "| silent failures (cameras) | " << all.silent << " in " << silentRooms << " rooms |\n";
    out << "| worst Good camera's error, median (rooms with a Good camera besides the reference: "
        << worstMm.size() << ") | " << fixed(percentile(worstMm, 0.5), 1) << " mm, "
        << fixed(percentile(worstDeg, 0.5), 2) << " deg |\n";
    out << "| worst Good camera's error, 95th percentile | " << fixed(percentile(worstMm, 0.95), 1) << " mm, "
        << fixed(percentile(worstDeg, 0.95), 2) << " deg |\n";
    out << "| rooms whose every camera shares 30 s of walking with another, ending all-Good | "
        << share(qualifyingGood, qualifying) << " |\n";
    out << "| the same, among rooms walked 100-120 s | " << share(longGood, longQualifying) << " |\n";
    std::string verdictText;
    for (const auto& [verdict, count] : verdicts)
        verdictText += (verdictText.empty() ? "" : ", ") + verdict + " " + std::to_string(count);
    out << "| cameras by verdict | " << verdictText << " |\n";
    out << "| cameras written as not Good (exit 7, named) yet more than 30 mm / 1 deg off | " << wrongButNamed << " |\n";
    out << "| rooms whose reference camera is the one placed wrong (the others agree among themselves) | "
        << (oddReferences.empty() ? "none" : oddReferences) << " |\n";
    out << "| cameras read Moved though none moved (seed/camera) | " << (falseMoves.empty() ? "none" : falseMoves)
        << " |\n";
    out << "| wall time per room (record + calibrate), median / longest | " << fixed(percentile(wall, 0.5), 0)
        << " s / " << fixed(percentile(wall, 1.0), 0) << " s |\n\n";

    out << "| layout | rooms | all Good | partial | refused | other | silent failures |\n|---|---|---|---|---|---|---|\n";
    for (const auto& [layout, c] : byLayout)
        out << "| " << layout << " | " << c.rooms << " | " << c.good << " | " << c.partial << " | " << c.refused
            << " | " << c.other << " | " << c.silent << " |\n";
    if (all.silent == 0) return out.str();
    out << "\nSilent failures:\n\n| seed | layout | camera | verdict | exit | true error | stated 1-sigma | beyond |\n"
           "|---|---|---|---|---|---|---|---|\n";
    for (const RoomResult& room : rooms)
        for (const CameraResult& c : room.cameras)
            if (c.silent)
                out << "| " << room.seed << " | " << room.layout << " | " << c.serial << " | " << c.verdict << " | "
                    << room.status << " | " << fixed(c.errorDeg, 3) << " deg, " << fixed(c.errorMm, 1) << " mm | "
                    << fixed(c.sigmaDeg, 3) << " deg, " << fixed(c.sigmaMm, 1) << " mm | " << broken(c) << " |\n";
    return out.str();
}

}  // namespace sweep
