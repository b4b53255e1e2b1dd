// The capture gate and clock offsets: a camera held apart for its clock comes back once an
// estimate explains its skew, keeps its own stamps, and never moves the room's clock.
#include <gtest/gtest.h>

#include "calibration/capture_gate.hpp"

namespace {

constexpr int64_t kSecondNs = 1'000'000'000;

// One set as a live fusion hands it over: every camera's capture arriving at `nowNs`,
// stamped on its own clock (`aheadNs` of the true time).
struct Room {
    std::map<int, int64_t> aheadNs;
    std::map<int, lum::Bodies> bodies;

    std::map<int, lum::Bodies*> set(int64_t nowNs) {
        std::map<int, lum::Bodies*> captures;
        for (const auto& [camera, ahead] : aheadNs) {
            lum::Bodies& b = bodies[camera];
            b = lum::Bodies();
            b.is_new = true;
            b.timestamp = lum::Timestamp(uint64_t(nowNs + ahead));
            captures[camera] = &b;
        }
        return captures;
    }
};

// Which cameras pass after a few sets, and which move the room's clock.
std::pair<std::set<int>, std::set<int>> screenFew(calib::CaptureGate& gate, Room& room, int64_t& nowNs) {
    std::set<int> passed, clocked;
    for (int i = 0; i < 5; ++i, nowNs += kSecondNs / 30) {
        std::map<int, lum::Bodies*> captures = room.set(nowNs);
        gate.screen(captures, nowNs);
        passed.clear();
        clocked.clear();
        for (const auto& [camera, bodies] : captures) {
            if (bodies->is_new) passed.insert(camera);
            if (gate.onRoomClock(camera)) clocked.insert(camera);
            EXPECT_EQ(bodies->timestamp.getNanoseconds(), uint64_t(nowNs + room.aheadNs[camera])) << camera;
        }
    }
    return {passed, clocked};
}

}  // namespace

TEST(CaptureGate, AClockOffsetThatExplainsTheSkewTakesTheCameraBack) {
    const int64_t t0 = 1'700'000'000 * kSecondNs;
    Room room;
    room.aheadNs = {{1, 0}, {2, 0}, {3, 2 * kSecondNs}, {4, 0}};
    calib::CaptureGate gate;
    int64_t now = t0;
    EXPECT_EQ(screenFew(gate, room, now).first, (std::set<int>{1, 2, 4}));

    // A wrong estimate (1 s for a 2 s skew) explains nothing.
    for (int camera : {1, 2, 4}) gate.setClockOffset(camera, 0);
    gate.setClockOffset(3, kSecondNs);
    EXPECT_EQ(screenFew(gate, room, now).first, (std::set<int>{1, 2, 4}));

    gate.setClockOffset(3, 2 * kSecondNs + 3'000'000);
    const auto [passed, clocked] = screenFew(gate, room, now);
    EXPECT_EQ(passed, (std::set<int>{1, 2, 3, 4}));
    EXPECT_EQ(clocked, (std::set<int>{1, 2, 4}));
    EXPECT_NE(gate.trouble(3).find("taken back"), std::string::npos) << gate.trouble(3);

    // Offsets are relative to a reference camera, which may itself be the one apart.
    calib::CaptureGate other;
    room.aheadNs = {{1, 2 * kSecondNs}, {2, 0}, {3, 0}, {4, 0}};
    EXPECT_EQ(screenFew(other, room, now).first, (std::set<int>{2, 3, 4}));
    other.setClockOffset(1, 0);
    for (int camera : {2, 3, 4}) other.setClockOffset(camera, -2 * kSecondNs);
    EXPECT_EQ(screenFew(other, room, now).first, (std::set<int>{1, 2, 3, 4}));

    // A new walk estimates its clocks anew.
    other.clear();
    EXPECT_EQ(screenFew(other, room, now).first, (std::set<int>{2, 3, 4}));
}
