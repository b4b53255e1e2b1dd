// One misbehaving camera through the fusion worker: a stamp an hour ahead, a clock two
// seconds ahead, bodies repeated under one id, a crowd of bodies, one absurd keypoint per
// body. The others calibrate as if it were not there, and the camera is named.
#include <gtest/gtest.h>

#include "tests/fusion/tampered_walk.hpp"

namespace {

constexpr double kWalkSeconds = 30;
constexpr int64_t kSecondNs = 1000000000;

void shiftStamp(lum::Bodies& bodies, int64_t ns) {
    bodies.timestamp = lum::Timestamp(uint64_t(int64_t(bodies.timestamp.getNanoseconds()) + ns));
}

bool named(const tampered::Outcome& outcome, int camera, const std::string& words) {
    for (const std::string& notice : outcome.notices)
        if (notice.find("camera " + std::to_string(camera)) != std::string::npos && notice.find(words) != std::string::npos)
            return true;
    return false;
}

// Every camera of `scene` but `except` placed within 2 deg and 60 mm of the truth.
void expectPlaced(const pyra_sim::Scene& scene, const tampered::Outcome& outcome, int except = 0) {
    for (const pyra_sim::CameraSettings& camera : scene.cameras) {
        const int serial = int(camera.serial);
        if (serial == except) continue;
        EXPECT_TRUE(outcome.saved.count(serial)) << serial << " not placed";
    }
    for (const auto& [serial, error] : tampered::errors(scene, outcome.saved)) {
        EXPECT_LT(error.first, 2.0) << serial;
        EXPECT_LT(error.second, 60.0) << serial;
    }
}

class OneCamera : public ::testing::Test {
protected:
    pyra_sim::Scene scene = pyra_sim::defaultScene();
};

}  // namespace

TEST_F(OneCamera, AStampAnHourAheadAClockTwoSecondsAheadOrASilenceIsNamed) {
    const tampered::Outcome clean = tampered::calibrate(scene, kWalkSeconds, nullptr);
    expectPlaced(scene, clean);
    EXPECT_TRUE(clean.notices.empty());

    const tampered::Outcome future = tampered::calibrate(scene, kWalkSeconds, [](int serial, double s, lum::Bodies& b) {
        if (serial == 41002 && s >= 5.0 && s < 5.03) shiftStamp(b, 3600 * kSecondNs);
    });
    EXPECT_GE(future.frames, clean.frames * 9 / 10);
    expectPlaced(scene, future);
    EXPECT_TRUE(named(future, 41002, "3600.0")) << ::testing::PrintToString(future.notices);

    const tampered::Outcome ahead = tampered::calibrate(scene, kWalkSeconds, [](int serial, double, lum::Bodies& b) {
        if (serial == 41003) shiftStamp(b, 2 * kSecondNs);
    });
    // Held apart until the walk tells its clock, then taken back and placed with the others.
    EXPECT_GT(ahead.frames, clean.frames / 2);
    expectPlaced(scene, ahead);
    EXPECT_TRUE(named(ahead, 41003, "s ahead of the others'")) << ::testing::PrintToString(ahead.notices);
    EXPECT_TRUE(named(ahead, 41003, "taken back")) << ::testing::PrintToString(ahead.notices);

    const tampered::Outcome quiet = tampered::calibrate(scene, kWalkSeconds, [](int serial, double s, lum::Bodies& b) {
        if (serial == 41004 && s > 12 && s < 20) b.is_new = false;
    });
    EXPECT_TRUE(named(quiet, 41004, "went quiet 11.9")) << ::testing::PrintToString(quiet.notices);
    EXPECT_TRUE(named(quiet, 41004, "sends again after 8.0")) << ::testing::PrintToString(quiet.notices);
    expectPlaced(scene, quiet);
}

// A clock 0.3 s ahead pairs the camera with nobody until the walk tells it; the frames
// of those first seconds are made again on it, not lost.
TEST_F(OneCamera, AClockFoundLateCostsNoFrames) {
    const auto sharedBy = [](const tampered::Outcome& outcome, int camera) {
        int shared = 0;
        for (const CameraCalibrationReport& entry : outcome.lastUsable->cameras)
            if (entry.camera == camera)
                for (const auto& [other, frames] : entry.framesSharedWith) shared = std::max(shared, frames);
        return shared;
    };
    const tampered::Outcome clean = tampered::calibrate(scene, kWalkSeconds, nullptr);
    const tampered::Outcome late = tampered::calibrate(scene, kWalkSeconds, [](int serial, double, lum::Bodies& b) {
        if (serial == 41002) shiftStamp(b, 300'000'000);
    });
    ASSERT_TRUE(clean.lastUsable && late.lastUsable);
    expectPlaced(scene, late);
    EXPECT_GE(sharedBy(late, 41002), sharedBy(clean, 41002) * 9 / 10);
    EXPECT_GE(late.frames, clean.frames * 9 / 10);
}

TEST_F(OneCamera, BodiesRepeatedUnderOneIdAreRefused) {
    const tampered::Outcome twice = tampered::calibrate(scene, kWalkSeconds, [](int serial, double, lum::Bodies& b) {
        if (serial != 41004) return;
        std::vector<lum::BodyData> doubled;
        for (const lum::BodyData& body : b.body_list) {
            doubled.push_back(body);
            lum::BodyData ghost = body;
            for (lum::Vector3f& p : ghost.keypoint) p.x += 0.4f;
            doubled.push_back(ghost);
        }
        b.body_list = doubled;
    });
    expectPlaced(scene, twice, 41004);
    EXPECT_FALSE(twice.saved.count(41004));
    EXPECT_TRUE(named(twice, 41004, "under one id"));
}

// Every camera floods the association: the run still ends, refusing them by name.
TEST_F(OneCamera, ACrowdOfBodiesIsRefusedWithoutStallingTheWorker) {
    const tampered::Outcome crowd = tampered::calibrate(scene, 10, [](int, double, lum::Bodies& b) {
        if (b.body_list.empty()) return;
        const lum::BodyData body = b.body_list.front();
        for (int i = 1; i < 64; ++i) {
            lum::BodyData copy = body;
            copy.id = body.id + 1000 * i;
            for (lum::Vector3f& p : copy.keypoint) p += lum::Vector3f(0.3f * float(i % 8), 0.f, 0.3f * float(i / 8));
            b.body_list.push_back(copy);
        }
    });
    for (const pyra_sim::CameraSettings& camera : scene.cameras)
        EXPECT_TRUE(named(crowd, int(camera.serial), "64 bodies")) << camera.serial;
}

TEST_F(OneCamera, OneAbsurdKeypointPerBodyDoesNotCostTheCamera) {
    const tampered::Outcome absurd = tampered::calibrate(scene, kWalkSeconds, [](int serial, double, lum::Bodies& b) {
        if (serial != 41002) return;
        for (lum::BodyData& body : b.body_list) body.keypoint[3] = lum::Vector3f(1e30f, 1e30f, 1e30f);
    });
    expectPlaced(scene, absurd);
}
