// PaletteGenerator: random hue draws, each checked against the colours already given by
// the CIE76 difference in Lab space.
#include "viewer/palette_generator.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace {

std::array<float, 3> toLab(const QColor& colour) {
    auto linear = [](int channel) {
        float c = float(channel) / 255.f;
        c = c > 0.04045f ? std::pow((c + 0.055f) / 1.055f, 2.4f) : c / 12.92f;
        return c * 100.f;
    };
    const float r = linear(colour.red()), g = linear(colour.green()), b = linear(colour.blue());
    const float x = (0.4124f * r + 0.3576f * g + 0.1805f * b) / 95.047f;
    const float y = (0.2126f * r + 0.7152f * g + 0.0722f * b) / 100.f;
    const float z = (0.0193f * r + 0.1192f * g + 0.9505f * b) / 108.883f;
    auto f = [](float t) { return t > 0.008856f ? std::cbrt(t) : 7.787f * t + 0.13793103448275862f; };
    return {116.f * f(y) - 16.f, 500.f * (f(x) - f(y)), 200.f * (f(y) - f(z))};
}

}  // namespace

void PaletteGenerator::init() {
    std::random_device device("default");
    rng.seed(device());
    distribution = std::uniform_int_distribution<uint32_t>(0, 100);
}

lum::Vector4f PaletteGenerator::get(int id) {
    auto it = colors.find(id);
    if (it == colors.end()) {
        generateNew(id);
        it = colors.find(id);
    }
    return {float(it->second.redF()), float(it->second.greenF()), float(it->second.blueF()), 1.f};
}

float PaletteGenerator::deltaE(const QColor& a, const QColor& b) {
    const auto la = toLab(a), lb = toLab(b);
    const float dl = la[0] - lb[0], da = la[1] - lb[1], db = la[2] - lb[2];
    return std::sqrt(dl * dl + da * da + db * db);
}

void PaletteGenerator::generateNew(int id) {
    // Alternate bright and darker colours so that neighbours in creation order stand apart.
    const bool odd = colors.size() % 2 == 1;
    const double saturation = odd ? 0.8 : 0.95;
    const double value = odd ? 0.7 : 0.95;
    // The best difference is kept across attempts and taken against any one stored colour:
    // a candidate far from one colour is enough, which keeps the loop short for many ids.
    float best = 0.f;
    QColor candidate;
    for (;;) {
        const uint32_t k = distribution(rng);
        candidate = QColor::fromHsvF(double(k) / 100.0, saturation, value, 1.0);
        if (colors.empty()) break;
        for (const auto& entry : colors) best = std::max(best, deltaE(entry.second, candidate));
        if (best >= 50.f) break;
    }
    colors[id] = candidate;
}

lum::Vector4f PaletteGenerator::getDistinct(int id) {
    if (colors.find(id) == colors.end()) {
        // Bounded: with many ids no draw may reach the goal, and the furthest one is kept.
        constexpr int kDraws = 64;
        constexpr float kEnough = 40.f;
        const bool odd = colors.size() % 2 == 1;
        QColor chosen;
        float chosenDistance = -1.f;
        for (int draw = 0; draw < kDraws && chosenDistance < kEnough; ++draw) {
            const QColor candidate =
                QColor::fromHsvF(double(distribution(rng)) / 100.0, odd ? 0.8 : 0.95, odd ? 0.7 : 0.95, 1.0);
            float nearest = colors.empty() ? kEnough : std::numeric_limits<float>::max();
            for (const auto& entry : colors) nearest = std::min(nearest, deltaE(entry.second, candidate));
            if (nearest > chosenDistance) {
                chosen = candidate;
                chosenDistance = nearest;
            }
        }
        colors[id] = chosen;
    }
    return get(id);
}
