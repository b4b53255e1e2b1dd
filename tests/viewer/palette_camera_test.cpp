// PaletteGenerator colours by id, and CameraGL matrices against hand-computed
// projections. No GL needed.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <set>

#include "viewer/camera_gl.hpp"
#include "viewer/palette_generator.hpp"

namespace {

QColor toColor(const lum::Vector4f& c) {
    return QColor::fromRgbF(c.x, c.y, c.z);
}

TEST(PaletteGenerator, StableDistinctAndAlternatingBrightness) {
    PaletteGenerator palette;
    palette.seed(7);
    const lum::Vector4f first = palette.get(42);
    const lum::Vector4f second = palette.get(-3);
    EXPECT_EQ(palette.get(42), first);  // stable, and no new colour drawn
    EXPECT_EQ(palette.size(), 2u);
    EXPECT_EQ(first.w, 1.f);
    EXPECT_NEAR(toColor(first).hsvSaturationF(), 0.95, 0.01);
    EXPECT_NEAR(toColor(first).valueF(), 0.95, 0.01);
    EXPECT_NEAR(toColor(second).hsvSaturationF(), 0.8, 0.01);
    EXPECT_NEAR(toColor(second).valueF(), 0.7, 0.01);
    EXPECT_GE(PaletteGenerator::deltaE(toColor(first), toColor(second)), 50.f);

    // Same seed, same ids: same colours (only the reseed at start-up makes runs differ).
    PaletteGenerator replay;
    replay.seed(7);
    EXPECT_EQ(replay.get(42), first);
    EXPECT_EQ(replay.get(-3), second);

    // Regenerating an existing id counts the map with that id in it: one, so darker.
    PaletteGenerator single;
    single.get(5);
    single.generateNew(5);
    EXPECT_EQ(single.size(), 1u);
    EXPECT_NEAR(toColor(single.get(5)).valueF(), 0.7, 0.01);

    // Hues come in hundredths: over many ids at most 101 hues per brightness class.
    std::set<int> hues;
    for (int id = 100; id < 160; ++id) hues.insert(toColor(replay.get(id)).hsvHue());
    EXPECT_LE(hues.size(), 101u);
    EXPECT_GT(hues.size(), 5u);
}

TEST(PaletteGenerator, DeltaEMatchesReferenceValues) {
    EXPECT_NEAR(PaletteGenerator::deltaE(Qt::black, Qt::white), 100.f, 0.05f);
    EXPECT_NEAR(PaletteGenerator::deltaE(Qt::red, Qt::red), 0.f, 1e-6f);
    // sRGB red is L 53.24, a 80.09, b 67.20; blue is L 32.30, a 79.19, b -107.86.
    EXPECT_NEAR(PaletteGenerator::deltaE(Qt::red, Qt::blue), 176.3f, 0.3f);
}

lum::Vector4f project(const lum::Matrix4f& m, const lum::Vector3f& p) {
    lum::Vector4f c = m * lum::Vector4f(p.x, p.y, p.z, 1.f);
    return {c.x / c.w, c.y / c.w, c.z / c.w, c.w};
}

TEST(CameraGL, ProjectionAndViewMatchHandComputation) {
    CameraGL camera;  // at the origin, eye one metre back along +Z, looking down -Z
    camera.setProjection(90.f, 60.f, 0.05f, 100.f);
    camera.update();
    const lum::Matrix4f& vp = camera.getViewProjectionMatrix();
    // (1, 0.5, -1) is two metres in front of the eye: x = 1 / 2 / tan 45, y = 0.5 / 2 / tan 30.
    lum::Vector4f p = project(vp, {1.f, 0.5f, -1.f});
    EXPECT_NEAR(p.x, 0.5f, 1e-5f);
    EXPECT_NEAR(p.y, 0.25f * std::sqrt(3.f), 1e-5f);
    EXPECT_NEAR(p.w, 2.f, 1e-5f);
    EXPECT_NEAR(p.z, (200.f - 5.f) / 99.95f / 2.f, 1e-5f);
    EXPECT_NEAR(project(vp, {0.f, 0.f, 1.f - 0.05f}).z, 0.f, 1e-5f);  // near plane at depth 0
    EXPECT_NEAR(project(vp, {0.f, 0.f, 1.f - 100.f}).z, 1.f, 1e-4f);  // far plane at depth 1

    // Orbit: the eye sits at the offset from the anchor, along the camera's forward axis.
    camera.setPosition({0.f, 2.f, 3.f});
    camera.setDirection({0.f, -1.4f, -1.5f}, {0.f, 1.f, 0.f});
    camera.setOffsetFromPosition({0.f, 0.f, 4.f});
    camera.update();
    const lum::Vector3f f = lum::Vector3f(0.f, 1.4f, 1.5f).normalised();
    EXPECT_NEAR(camera.getForward().y, f.y, 1e-5f);
    EXPECT_NEAR(camera.getForward().z, f.z, 1e-5f);
    EXPECT_GT(camera.getUp().y, 0.f);
    EXPECT_NEAR(camera.getRight().x, -1.f, 1e-5f);
    p = project(camera.getViewProjectionMatrix(), {0.f, 2.f, 3.f});
    EXPECT_NEAR(p.x, 0.f, 1e-5f);
    EXPECT_NEAR(p.y, 0.f, 1e-5f);
    EXPECT_NEAR(p.w, 4.f, 1e-4f);
}

TEST(CameraGL, DirectionAgainstVerticalFlipsTheImage) {
    CameraGL camera;
    camera.setDirection({0.f, 0.f, -1.f}, {0.f, -1.f, 0.f});
    EXPECT_NEAR(camera.getUp().y, -1.f, 1e-5f);
    EXPECT_NEAR(camera.getForward().z, 1.f, 1e-5f);
    camera.update();  // vertical already agrees with up: kept
    EXPECT_NEAR(camera.getVertical().y, -1.f, 1e-6f);
}

TEST(CameraGL, FramedSphereFitsBelowTheBandFromEverySide) {
    CameraGL camera;
    const float width = 640.f, height = 480.f, band = 100.f;
    camera.setProjection(65.f, 51.f, 0.05f, 100.f);
    const lum::Vector3f centre(1.f, 1.2f, -2.f);
    const float radius = 4.f;
    camera.frameSphere(centre, radius, {0.f, -1.4f, -1.5f}, width, height, band);
    float lowest = height, highest = 0.f;
    // Sample the sphere, and turn the view about its centre as a sideways drag does.
    for (float turn : {0.f, 1.f, 2.5f}) {
        camera.rotate(lum::Rotation(turn, lum::Translation(0.f, -1.f, 0.f)));
        camera.update();
        for (int i = 0; i < 24; ++i)
            for (int k = -5; k <= 5; ++k) {
                const float a = float(i) * 0.2618f, b = float(k) * 0.3f;
                const lum::Vector3f p = centre + lum::Vector3f(std::cos(a) * std::cos(b), std::sin(b),
                                                               std::sin(a) * std::cos(b)) * radius;
                const lum::Vector4f q = project(camera.getViewProjectionMatrix(), p);
                const float x = (q.x + 1.f) * 0.5f * width, y = (1.f - q.y) * 0.5f * height;
                EXPECT_GT(q.w, 0.f);
                EXPECT_GE(x, 0.f);
                EXPECT_LE(x, width);
                EXPECT_GE(y, band);
                EXPECT_LE(y, height);
                lowest = std::min(lowest, y);
                highest = std::max(highest, y);
            }
        const lum::Vector4f c = project(camera.getViewProjectionMatrix(), centre);
        EXPECT_NEAR(c.x, 0.f, 1e-4f);
        EXPECT_NEAR(c.y, 0.f, 1e-4f);
    }
    // Not needlessly far: the sphere fills the height left between band and margins.
    EXPECT_LT(lowest, band + 40.f);
    EXPECT_GT(highest, height - 140.f);
}

}  // namespace
