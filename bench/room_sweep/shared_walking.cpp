// Shared walking from the simulation's truth: which people each camera reports, every
// 500 ms of the virtual room clock, and the best partner camera's count of common instants.
#include "bench/room_sweep/shared_walking.hpp"

#include <set>
#include <vector>

#include "pyra_sim/room_clock.hpp"

namespace sweep {

std::map<unsigned, double> sharedWalkingSeconds(const pyra_sim::Scene& scene, int seconds) {
    constexpr double kStep = 0.5;
    const int walkers = scene.people.count - scene.people.standing;
    const size_t n = scene.cameras.size();
    std::vector<std::vector<int>> together(n, std::vector<int>(n, 0));
    pyra_sim::ObservationOptions options;
    for (int step = 1; step * kStep <= seconds; ++step) {
        const uint64_t now = pyra_sim::virtualEpochNs() + uint64_t(step * kStep * 1e9);
        std::vector<std::set<int>> seen(n);
        for (size_t c = 0; c < n; ++c) {
            std::vector<pyra_sim::ObservedTruth> truth;
            pyra_sim::observe(scene, scene.cameras[c], now, options, &truth);
            for (const pyra_sim::ObservedTruth& body : truth)
                if (body.id < walkers) seen[c].insert(body.id);
        }
        for (size_t a = 0; a < n; ++a)
            for (size_t b = a + 1; b < n; ++b)
                for (int person : seen[a])
                    if (seen[b].count(person)) {
                        ++together[a][b];
                        ++together[b][a];
                        break;
                    }
    }
    std::map<unsigned, double> best;
    for (size_t a = 0; a < n; ++a) {
        int most = 0;
        for (size_t b = 0; b < n; ++b) most = std::max(most, together[a][b]);
        best[scene.cameras[a].serial] = most * kStep;
    }
    return best;
}

}  // namespace sweep
