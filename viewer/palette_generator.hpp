// Hands out one colour per id (camera number or body id), random per run but kept for the
// whole run, and well apart from the colours already given.
#pragma once

#include <QColor>

#include <cstdint>
#include <map>
#include <random>

#include "lum/math.hpp"

class PaletteGenerator {
public:
    // Reseeds from the system's random device; the colours already given are kept.
    void init();
    // Red, green, blue, alpha in 0..1; a new id gets its colour on first use.
    lum::Vector4f get(int id);
    void generateNew(int id);
    // Like get(), but a new id's colour is the one of many draws that stands furthest from
    // every colour already given: for the few ids a user must tell apart (the cameras).
    lum::Vector4f getDistinct(int id);
    void clear() { colors.clear(); }
    size_t size() const { return colors.size(); }

    // CIE76 difference between two colours, from their 8-bit channels.
    static float deltaE(const QColor& a, const QColor& b);

    // Lets tests replay the engine from a known seed.
    void seed(uint32_t value) { rng.seed(value); }

private:
    std::map<int, QColor> colors;
    std::mt19937 rng;
    std::uniform_int_distribution<uint32_t> distribution{0, 100};
};
