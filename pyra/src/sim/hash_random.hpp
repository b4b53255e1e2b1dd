// Counter-based random numbers: every draw is a pure function of its key, so separate
// processes simulating one scene draw the same values without sharing any state.
#pragma once

#include <cmath>
#include <cstdint>
#include <initializer_list>

namespace pyra_sim {

inline uint64_t mix64(uint64_t z) {
    z += 0x9e3779b97f4a7c15ULL;
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
    return z ^ (z >> 31);
}

inline uint64_t hashKey(std::initializer_list<uint64_t> parts) {
    uint64_t h = 0x2545f4914f6cdd1dULL;
    for (uint64_t p : parts) h = mix64(h ^ mix64(p));
    return h;
}

// A stream of draws from one key; cheap to create per frame or per person.
class HashRandom {
public:
    explicit HashRandom(uint64_t key) : state_(key) {}

    uint64_t next() { return mix64(state_++); }
    // Uniform in [0, 1).
    double uniform() { return double(next() >> 11) * (1.0 / 9007199254740992.0); }
    double uniform(double lo, double hi) { return lo + (hi - lo) * uniform(); }
    bool chance(double p) { return uniform() < p; }
    double normal() {
        double u1 = uniform();
        double u2 = uniform();
        if (u1 < 1e-300) u1 = 1e-300;
        return std::sqrt(-2.0 * std::log(u1)) * std::cos(6.283185307179586 * u2);
    }

private:
    uint64_t state_;
};

}  // namespace pyra_sim
