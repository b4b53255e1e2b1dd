// Frame time of the 3D viewer on a busy room: 6 cameras, 4 fused bodies, every camera's
// raw skeletons and a 100 000-point fused cloud. Run under Xvfb (software GL).
#include <benchmark/benchmark.h>

#include <QApplication>
#include <QImage>

#include <cmath>
#include <cstring>
#include <memory>
#include <random>

#include "core/shared_records.hpp"
#include "pyra_sim/scene.hpp"
#include "viewer/gl_viewer.hpp"

namespace {

constexpr int kCameras = 6;
constexpr int kBodies = 4;
constexpr size_t kCloudPoints = 100000;
constexpr int kFramesPerLoop = 90;

// Fills SharedData as the fusion worker would with the people at the given frame of a
// 3 s walk: every case sees the same poses, so cases and builds compare.
void publishFrame(int frame, bool withCloud) {
    static const pyra_sim::Scene scene = [] {
        pyra_sim::Scene s = pyra_sim::defaultScene();
        s.people.count = kBodies;
        return s;
    }();
    const uint64_t frameTime = 1700000000000000000ull + uint64_t(frame % kFramesPerLoop) * 33333333ull;
    SharedData& shared = SharedData::getInstance();
    const auto people = pyra_sim::peopleAt(scene, frameTime, lum::BODY_FORMAT::BODY_18);
    {
        std::lock_guard<std::mutex> lock(shared.skeletonMutex);
        shared.fusedBodies.body_list.clear();
        for (const auto& person : people) {
            lum::BodyData body;
            body.id = person.id;
            body.keypoint = person.keypoints;
            shared.fusedBodies.body_list.push_back(body);
        }
        for (int c = 0; c < kCameras; ++c)
            shared.cameraBodies[lum::CameraIdentifier(41001 + c)].body_list = shared.fusedBodies.body_list;
    }
    {
        std::lock_guard<std::mutex> lock(shared.positionMutex);
        for (int c = 0; c < kCameras; ++c) {
            const double angle = 2.0 * M_PI * c / kCameras;
            const lum::Translation at(float(3.5 * std::cos(angle)), 2.5f, float(3.5 * std::sin(angle)));
            shared.cameraPoses[lum::CameraIdentifier(41001 + c)].pose_data =
                lum::Transform(lum::Orientation(lum::Translation(0, 0, -1), lum::Translation(-at).normalised()), at);
        }
    }
    if (!withCloud) return;
    std::lock_guard<std::mutex> lock(shared.depthCloudMutex);
    if (shared.depthCloud.vertices.size() != kCloudPoints) {
        std::mt19937 rng(3);
        std::uniform_real_distribution<float> u(-3.f, 3.f), h(0.f, 2.5f);
        shared.depthCloud.vertices.resize(kCloudPoints);
        for (auto& p : shared.depthCloud.vertices) {
            const uint32_t colour = rng() & 0x00FFFFFFu;
            float packed;
            std::memcpy(&packed, &colour, sizeof(packed));
            p = lum::float4(u(rng), h(rng), u(rng), packed);
        }
    }
}

std::unique_ptr<GlViewer> makeViewer(bool withCloud) {
    {
        std::lock_guard<std::mutex> lock(SharedData::getInstance().depthCloudMutex);
        if (!withCloud) SharedData::getInstance().depthCloud.clear();
    }
    auto viewer = std::make_unique<GlViewer>();
    viewer->resize(1280, 800);
    viewer->show();
    QApplication::processEvents();
    SharedData::getInstance().showRawData = true;
    SharedData::getInstance().showMetrics = false;
    return viewer;
}

// Arguments of the frame cases: raw skeletons shown (1) or hidden (0), cloud on or off.
void frameArgs(benchmark::internal::Benchmark* b) {
    b->ArgNames({"raw", "cloud"});
    for (int cloud : {1, 0})
        for (int raw : {1, 0}) b->Args({raw, cloud});
    // Process time: llvmpipe rasterises on its own threads, which a per-thread clock misses.
    b->MeasureProcessCPUTime()->Unit(benchmark::kMillisecond)->MinTime(3.0);
}

// New data every frame: refresh from SharedData, upload, draw, read the frame back.
void BM_FrameWithNewData(benchmark::State& state) {
    const bool withCloud = state.range(1) != 0;
    auto viewer = makeViewer(withCloud);
    SharedData::getInstance().showRawData = state.range(0) != 0;
    int frame = 0;
    for (auto _ : state) {
        publishFrame(frame++, withCloud);
        viewer->updateData();
        QImage frame = viewer->grabFramebuffer();
        benchmark::DoNotOptimize(frame.constBits());
    }
}
BENCHMARK(BM_FrameWithNewData)->Apply(frameArgs);

// The repaint timer's case between two fusion sets: draw and read back only.
void BM_FrameRedrawOnly(benchmark::State& state) {
    const bool withCloud = state.range(1) != 0;
    auto viewer = makeViewer(withCloud);
    publishFrame(kFramesPerLoop / 2, withCloud);
    viewer->updateData();
    SharedData::getInstance().showRawData = state.range(0) != 0;
    viewer->grabFramebuffer();
    for (auto _ : state) {
        QImage frame = viewer->grabFramebuffer();
        benchmark::DoNotOptimize(frame.constBits());
    }
}
BENCHMARK(BM_FrameRedrawOnly)->Apply(frameArgs);

// Baseline: background and rings only, read back.
void BM_FrameEmptyRoom(benchmark::State& state) {
    auto viewer = makeViewer(false);
    viewer->reset();
    viewer->updateData();
    for (auto _ : state) {
        QImage frame = viewer->grabFramebuffer();
        benchmark::DoNotOptimize(frame.constBits());
    }
}
BENCHMARK(BM_FrameEmptyRoom)->MeasureProcessCPUTime()->Unit(benchmark::kMillisecond)->MinTime(2.0);

// The refresh alone (copy under try-locks and the instance data), without the cloud.
void BM_RefreshSkeletonsAndCameras(benchmark::State& state) {
    auto viewer = makeViewer(false);
    int frame = 0;
    for (auto _ : state) {
        publishFrame(frame++, false);
        viewer->updateData();
    }
}
BENCHMARK(BM_RefreshSkeletonsAndCameras)->Unit(benchmark::kMillisecond)->MinTime(2.0);

}  // namespace

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
