// fusion_example: subscribes a fusion to cameras published on the local network (for example
// by body_relay) and prints, once a second, the fused people and how far they are from the
// simulated truth. Poses are the scene's true poses, so the distance shows the fusion alone.
#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

#include "lum/lum.hpp"
#include "pyra_sim/scene.hpp"
#include "tools/stop_flag.hpp"

namespace {

const char* kUsage =
    "usage: fusion_example [--scene FILE] [--host IP] [--seconds N] SERIAL:PORT [SERIAL:PORT ...]\n"
    "Fuses the cameras published at the given ports and prints the fused people once a second.\n";

}  // namespace

int main(int argc, char** argv) {
    std::string scenePath, host = "127.0.0.1";
    double seconds = 1e9;
    std::vector<std::pair<unsigned, int>> cameras;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        if (arg == "--help" || arg == "-h") {
            std::cout << kUsage;
            return 0;
        }
        if ((arg == "--scene" || arg == "--host" || arg == "--seconds") && i + 1 < argc) {
            std::string value = argv[++i];
            if (arg == "--scene") scenePath = value;
            else if (arg == "--host") host = value;
            else seconds = std::atof(value.c_str());
            continue;
        }
        unsigned serial = 0;
        int port = 0;
        char tail = 0;
        if (std::sscanf(arg.c_str(), "%u:%d%c", &serial, &port, &tail) != 2 || port <= 0 || port > 65534) {
            std::cerr << "fusion_example: expected SERIAL:PORT, got \"" << arg << "\"\n" << kUsage;
            return 2;
        }
        cameras.emplace_back(serial, port);
    }
    if (cameras.empty()) {
        std::cerr << kUsage;
        return 2;
    }
    pyra_sim::Scene scene = pyra_sim::activeScene();
    std::string error;
    if (!scenePath.empty() && !pyra_sim::loadScene(scenePath, scene, &error)) {
        std::cerr << "fusion_example: scene " << error << std::endl;
        return 1;
    }

    lum::Fusion fusion;
    lum::InitFusionParameters init;
    init.unit = lum::UNIT::METER;
    init.coordinateSystem = lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP;
    fusion.init(init);
    int subscribed = 0;
    for (auto [serial, port] : cameras) {
        const pyra_sim::CameraSettings* known = pyra_sim::findCamera(scene, serial);
        lum::CommunicationParameters link;
        link.setForLocalNetwork(host, port);
        lum::FUSION_ERROR_CODE code =
            fusion.subscribe(lum::CameraIdentifier(serial), link, known ? known->pose : lum::Transform());
        std::cout << "subscribe " << serial << " at " << host << ":" << port << ": " << lum::toString(code) << std::endl;
        subscribed += code == lum::FUSION_ERROR_CODE::SUCCESS;
    }
    if (subscribed == 0) return 1;
    fusion.enableBodyTracking();
    std::signal(SIGINT, stopflag::onSignal);
    std::signal(SIGTERM, stopflag::onSignal);

    lum::Timestamp start = lum::Timestamp::now(), lastPrint = start;
    lum::Bodies fused;
    while (!stopflag::raised && (lum::Timestamp::now().getSeconds() - start.getSeconds()) < seconds) {
        if (fusion.process() != lum::FUSION_ERROR_CODE::SUCCESS) continue;
        fusion.retrieveBodies(fused, lum::BodyTrackingFusionRuntimeParameters(4, -1));
        lum::Timestamp now = lum::Timestamp::now();
        if (now.getSeconds() - lastPrint.getSeconds() < 1.0) continue;
        lastPrint = now;
        auto truth = pyra_sim::peopleAt(scene, fused.timestamp, fused.body_format);
        std::printf("%zu fused", fused.body_list.size());
        for (const lum::BodyData& body : fused.body_list) {
            double best = 1e9;
            for (const auto& t : truth) {
                double sum = 0;
                int n = 0;
                for (size_t k = 0; k < body.keypoint.size() && k < t.keypoints.size(); ++k)
                    if (std::isfinite(body.keypoint[k].x)) {
                        sum += (body.keypoint[k] - t.keypoints[k]).norm();
                        ++n;
                    }
                if (n) best = std::min(best, sum / n);
            }
            std::printf(" | body %d at (%.2f, %.2f, %.2f), %.1f cm from the truth", body.id, body.position.x,
                        body.position.y, body.position.z, best * 100);
        }
        lum::FusionMetrics metrics;
        fusion.getProcessMetrics(metrics);
        std::printf(" | %.1f sets/s", metrics.mean_camera_fused);
        for (const auto& [id, m] : metrics.camera_individual_stats)
            std::printf(" | %llu: %.1f fps", (unsigned long long)id.sn, m.received_fps);
        std::printf("\n");
        std::fflush(stdout);
    }
    fusion.close();
    return 0;
}
