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
uint64_t frameTime = 1700000000000000000ull;

// Fills SharedData as the fusion worker would, people a frame further along each call.
void publishFrame(bool withCloud) {
    static const pyra_sim::Scene scene = [] {
        pyra_sim::Scene s = pyra_sim::defaultScene();
        s.people.count = kBodies;
        return s;
    }();
    frameTime += 33333333ull;
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

std::unique_ptr<GlViewer> makeViewer() {
    auto viewer = std::make_unique<GlViewer>();
    viewer->resize(1280, 800);
    viewer->show();
    QApplication::processEvents();
    SharedData::getInstance().showRawData = true;
    SharedData::getInstance().showMetrics = false;
    return viewer;
}

// New data every frame: refresh from SharedData, upload, draw, read the frame back.
void BM_FrameWithNewData(benchmark::State& state) {
    auto viewer = makeViewer();
    for (auto _ : state) {
        publishFrame(true);
        viewer->updateData();
        QImage frame = viewer->grabFramebuffer();
        benchmark::DoNotOptimize(frame.constBits());
    }
}
BENCHMARK(BM_FrameWithNewData)->Unit(benchmark::kMillisecond)->MinTime(3.0);

// The repaint timer's case between two fusion sets: draw and read back only. The
// argument switches the raw skeletons (6 x 4 bodies with joints) on or off.
void BM_FrameRedrawOnly(benchmark::State& state) {
    auto viewer = makeViewer();
    publishFrame(true);
    viewer->updateData();
    SharedData::getInstance().showRawData = state.range(0) != 0;
    viewer->grabFramebuffer();
    for (auto _ : state) {
        QImage frame = viewer->grabFramebuffer();
        benchmark::DoNotOptimize(frame.constBits());
    }
}
BENCHMARK(BM_FrameRedrawOnly)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->MinTime(3.0);

// Baseline: background and rings only, read back.
void BM_FrameEmptyRoom(benchmark::State& state) {
    auto viewer = makeViewer();
    viewer->reset();
    viewer->updateData();
    for (auto _ : state) {
        QImage frame = viewer->grabFramebuffer();
        benchmark::DoNotOptimize(frame.constBits());
    }
}
BENCHMARK(BM_FrameEmptyRoom)->Unit(benchmark::kMillisecond)->MinTime(2.0);

// The refresh alone (copy under try-locks and geometry building), without the cloud.
void BM_RefreshSkeletonsAndCameras(benchmark::State& state) {
    auto viewer = makeViewer();
    {
        std::lock_guard<std::mutex> lock(SharedData::getInstance().depthCloudMutex);
        SharedData::getInstance().depthCloud.clear();
    }
    for (auto _ : state) {
        publishFrame(false);
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
