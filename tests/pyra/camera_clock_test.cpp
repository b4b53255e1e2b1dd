// Camera clocks: each simulated camera stamps its captures with its own clock, which may be
// set off from the true time and drift from it.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>

#include "lum/lum.hpp"
#include "pyra_sim/room_clock.hpp"
#include "pyra_sim/scene.hpp"

namespace {

double meanDistance(const lum::BodyData& a, const lum::BodyData& b) {
    double sum = 0.0;
    int n = 0;
    for (size_t i = 0; i < a.keypoint.size() && i < b.keypoint.size(); ++i) {
        if (std::isnan(a.keypoint[i].x) || std::isnan(b.keypoint[i].x)) continue;
        sum += (a.keypoint[i] - b.keypoint[i]).norm();
        ++n;
    }
    return n ? sum / n : 1e9;
}

// The room's virtual clock for one test: the cameras then take every frame in turn whatever
// the machine's load, instead of the latest one on the wall clock.
struct VirtualRoomClock {
    VirtualRoomClock() {
        setenv("PYRA_SIM_CLOCK", "virtual", 1);
        pyra_sim::restartVirtualClock();
    }
    ~VirtualRoomClock() { unsetenv("PYRA_SIM_CLOCK"); }
};

TEST(CameraClock, TwoCamerasStampOneInstantWithTheirOwnClocks) {
    const VirtualRoomClock roomClock;
    // Two cameras side by side on the ceiling looking down, seeing the whole room; the
    // second one's clock is 3 s ahead, 90 frame periods, so both take frames at one instant.
    pyra_sim::Scene scene;
    std::string error;
    ASSERT_TRUE(pyra_sim::parseScene(R"({
        "people": {"pause_probability": 0},
        "cameras": [
            {"serial": 52001, "position": [0, 3.5, 0], "rotation": [-1.5707963, 0, 0],
             "hfov_deg": 170, "vfov_deg": 170, "phase_s": 0},
            {"serial": 52002, "position": [0, 3.5, 0], "rotation": [-1.5707963, 0, 0],
             "hfov_deg": 170, "vfov_deg": 170, "phase_s": 0, "clock_offset_s": 3.0, "clock_drift_ppm": 40}
        ]})", scene, &error)) << error;
    pyra_sim::setActiveScene(scene);

    lum::Camera cameras[2];
    for (int i = 0; i < 2; ++i) {
        lum::InitParameters init;
        init.input.setFromSerialNumber(scene.cameras[size_t(i)].serial);
        init.unit = lum::UNIT::METER;
        init.coordinateSystem = lum::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP;
        ASSERT_EQ(cameras[i].open(init), lum::ERROR_CODE::SUCCESS);
        ASSERT_EQ(cameras[i].enableBodyTracking(lum::BodyTrackingParameters()), lum::ERROR_CODE::SUCCESS);
    }
    // Ten seconds of room time let both cameras take their first frames, the second one's
    // stamped 3 s ahead by its own clock.
    pyra_sim::advanceVirtualClock(pyra_sim::virtualEpochNs() + 10'000'000'000ull);
    for (int frame = 0; frame < 12; ++frame) {
        lum::Bodies seen[2];
        for (int i = 0; i < 2; ++i) {
            ASSERT_EQ(cameras[i].grab(), lum::ERROR_CODE::SUCCESS);
            cameras[i].retrieveBodies(seen[i], lum::BodyTrackingRuntimeParameters(0.f));
        }
        const double apart = double(seen[1].timestamp.getNanoseconds()) - double(seen[0].timestamp.getNanoseconds());
        ASSERT_NEAR(apart, 3e9, 1e6);
        ASSERT_EQ(seen[0].body_list.size(), 1u);
        ASSERT_EQ(seen[1].body_list.size(), 1u);
        // The walker stands where the first camera saw it, not 3 s (metres) further along its
        // way. The two views disagree by a few decimetres at the edge of a 170 deg view, where
        // both cameras' depth noise and swapped joints are largest.
        EXPECT_LT(meanDistance(seen[0].body_list[0], seen[1].body_list[0]), 1.0);
    }

    // The drift accumulates from the opening: 40 ppm is 40 ms after 1000 s, and a stamp
    // maps back to the very nanosecond.
    const uint64_t opened = 1'767'225'600'000'000'000ull;
    const pyra_sim::CameraClock clock(scene.cameras[1], opened);
    const uint64_t later = opened + 1000'000'000'000ull;
    EXPECT_EQ(clock.stampOf(later), later + 3'040'000'000ull);
    EXPECT_EQ(clock.trueTimeOf(clock.stampOf(later + 7)), later + 7);
}

}  // namespace
