// Rooms with several people: what one association instant costs, and for scenes of one to
// four people recorded and calibrated from the recordings, frames a minute and worst errors.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>
#include <vector>

#include "bench/bench_process.hpp"
#include "bench/replayed_walk.hpp"
#include "testing/crowd_room.hpp"

namespace {

// Association alone, four cameras and `people` walkers, pairings long since confirmed.
void associateInstant(benchmark::State& state) {
    pyra_sim::Scene scene = crowd::room(int(state.range(0)), false);
    std::vector<calib::SeenBodies> instants;
    const uint64_t start = 1700000000ull * 1000000000ull;
    for (int step = 0; step < 120; ++step) {
        calib::SeenBodies seen;
        for (const pyra_sim::CameraSettings& camera : scene.cameras)
            seen[int(camera.serial)] =
                pyra_sim::observe(scene, camera, start + uint64_t(step) * 500000000ull, pyra_sim::ObservationOptions()).body_list;
        instants.push_back(std::move(seen));
    }
    calib::BodyAssociator associator;
    for (const calib::SeenBodies& seen : instants) associator.associate(seen);
    size_t next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(associator.associate(instants[next]));
        next = (next + 1) % instants.size();
    }
}
BENCHMARK(associateInstant)->Arg(1)->Arg(2)->Arg(4)->Unit(benchmark::kMicrosecond);

struct Row {
    std::string name;
    pyra_sim::Scene scene;
};

std::vector<Row> rows() {
    std::vector<Row> out;
    auto scene = [](int people) {
        pyra_sim::Scene s = pyra_sim::defaultScene();
        s.people.count = people;
        return s;
    };
    out.push_back({"1 person", scene(1)});
    out.push_back({"2 people", scene(2)});
    pyra_sim::Scene wide = scene(2);
    wide.length = 7;
    out.push_back({"2 people, 6 m x 7 m", wide});
    pyra_sim::Scene crossing = scene(2);
    crossing.people.crossing = true;
    crossing.people.minHeight = crossing.people.maxHeight = 1.75f;
    out.push_back({"2 people, 1.75 m, crossing 0.4 m apart", crossing});
    out.push_back({"3 people", scene(3)});
    pyra_sim::Scene still = scene(3);
    still.people.standing = 1;
    out.push_back({"3 people, one standing still", still});
    out.push_back({"4 people", scene(4)});
    pyra_sim::Scene alike = scene(4);
    alike.people.crossing = true;
    alike.people.minHeight = 1.72f;
    alike.people.maxHeight = 1.76f;
    out.push_back({"4 people, 1.72-1.76 m, two crossing pairs", alike});
    return out;
}

constexpr int kSeconds = 90;
std::string folder;

std::string cell(const replayed::Calibrated& calibrated, const pyra_sim::Scene& scene) {
    char text[160];
    const double perMinute = calibrated.frames / (kSeconds / 60.0);
    if (calibrated.poses.size() < scene.cameras.size()) {
        std::snprintf(text, sizeof(text), "%.0f | %zu of %zu cameras placed | -", perMinute, calibrated.poses.size(),
                      scene.cameras.size());
    } else {
        const replayed::Errors e = replayed::errorsAgainstTruth(scene, calibrated.poses);
        std::snprintf(text, sizeof(text), "%.0f | %.2f deg | %.1f mm", perMinute, e.worstRotation(), e.worstPosition());
    }
    return text;
}

// Refined pairs people through the body association; Classic keeps the frames where each
// camera sees exactly one person. One recording per scene feeds both.
void printTable(double bias) {
    std::printf("\nBias toward the camera %.0f mm; %d s recorded on the virtual clock, then calibrated from the "
                "recording; error of the worst camera.\n\n",
                bias * 1e3, kSeconds);
    std::printf("| scene | Refined: frames / min | worst rotation | worst translation | Classic: frames / min | "
                "worst rotation | worst translation |\n");
    std::printf("|---|---|---|---|---|---|---|\n");
    for (Row row : rows()) {
        for (pyra_sim::CameraSettings& camera : row.scene.cameras) camera.noise.biasTowardCamera = float(bias);
        const std::string path = folder + "/crowd.rec";
        replayed::record(row.scene, kSeconds, path);
        const replayed::Calibrated refined = replayed::calibrate(path, SkeletonMulticameraCalibration::Model::Refined);
        const replayed::Calibrated classic = replayed::calibrate(path, SkeletonMulticameraCalibration::Model::Classic);
        std::printf("| %s | %s | %s |\n", row.name.c_str(), cell(refined, row.scene).c_str(),
                    cell(classic, row.scene).c_str());
        std::fflush(stdout);
    }
}

}  // namespace

int main(int argc, char** argv) {
    folder = bench::prepareProcess(argc, argv, bench::RoomClock::Virtual);
    bench::runBenchmarks(argc, argv);
    printTable(0.03);
    printTable(0.0);
    return 0;
}
