// Rooms with several people: what one association instant costs, and for scenes of one to
// four people (crossing, of one height, one standing still) the frames a minute, the frames
// that mixed two people, and each camera's error after 90 s against the simulated truth.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>
#include <vector>

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
    bool associate = true;
};

std::vector<Row> rows() {
    std::vector<Row> out;
    auto scene = [](int people) {
        pyra_sim::Scene s = pyra_sim::defaultScene();
        s.people.count = people;
        return s;
    };
    out.push_back({"1 person, one-person rule", scene(1), false});
    out.push_back({"1 person", scene(1)});
    out.push_back({"2 people", scene(2)});
    pyra_sim::Scene wide = scene(2);
    wide.length = 7;
    out.push_back({"2 people, 6 m x 7 m, one-person rule", wide, false});
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

void printTable(double bias, SkeletonMulticameraCalibration::Model model) {
    const bool refined = model == SkeletonMulticameraCalibration::Model::Refined;
    std::printf("\n%s model, bias toward the camera %.0f mm; 90 s; frames every 500 ms; error of the worst camera.\n\n",
                refined ? "Refined" : "Classic", bias * 1e3);
    std::printf("| scene | frames / min | wrong pairings in the store | worst rotation | worst translation |\n");
    std::printf("|---|---|---|---|---|\n");
    for (Row row : rows()) {
        for (pyra_sim::CameraSettings& camera : row.scene.cameras) camera.noise.biasTowardCamera = float(bias);
        crowd::Options options;
        options.scene = row.scene;
        options.associate = row.associate;
        options.model = model;
        options.calibrateEvery = 1.0;  // about the pace of solves beside a live loop
        const crowd::Result result = crowd::run(options);
        std::printf("| %s | %.0f | %d | ", row.name.c_str(), result.frames / (options.seconds / 60.0), result.wrong);
        if (result.calibrated)
            std::printf("%.2f deg | %.1f mm |\n", result.worstRotation(), result.worstTranslation());
        else
            std::printf("no calibration | - |\n");
    }
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    printTable(0.03, SkeletonMulticameraCalibration::Model::Refined);
    printTable(0.03, SkeletonMulticameraCalibration::Model::Classic);
    printTable(0.0, SkeletonMulticameraCalibration::Model::Classic);
    return 0;
}
