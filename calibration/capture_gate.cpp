// The capture gate: a vote of the cameras on the room's clock, per-capture body checks,
// keypoint screening counted per camera, and cameras that stop sending.
#include "calibration/capture_gate.hpp"

#include <algorithm>
#include <cstdio>
#include <cmath>
#include <set>
#include <tuple>

namespace calib {
namespace {

std::string seconds(double s) {
    char text[32];
    std::snprintf(text, sizeof text, "%.2f s", s);
    return text;
}

std::string skewText(double skewS) { return seconds(std::abs(skewS)) + (skewS > 0 ? " ahead of" : " behind"); }

// Stamps come from the cameras as they are, anywhere in 64 bits: compared without overflow.
uint64_t apartNs(uint64_t a, uint64_t b) { return a > b ? a - b : b - a; }

}  // namespace

CaptureGate::CaptureGate(Options options) : options_(options) {}

void CaptureGate::clear() {
    cameras_.clear();
    offsets_.clear();
    drops_.clear();
    firstNs_ = -1;
}

void CaptureGate::setClockOffset(int camera, int64_t offsetNs) { offsets_[camera] = offsetNs; }

bool CaptureGate::onRoomClock(int camera) const {
    auto found = cameras_.find(camera);
    return found != cameras_.end() && found->second.inStep;
}

CameraNotice CaptureGate::notice(int camera, int64_t nowNs, std::string text) const {
    return {camera, nowNs, double(nowNs - firstNs_) * 1e-9, "camera " + std::to_string(camera) + ": " + text};
}

// Every camera's clock may be the wrong one, so the room's is the one most cameras agree
// on; a tie goes to the cameras that agreed before, then to the earliest stamps (a stamp
// in the future is a likelier fault than a camera far behind that still sends).
uint64_t CaptureGate::roomStamp(int64_t nowNs, std::map<int, bool>& inStep) const {
    std::vector<std::pair<int, const Camera*>> voters;
    for (const auto& [id, camera] : cameras_)
        if (camera.lastSeenNs >= 0 && nowNs - camera.lastSeenNs <= options_.voterWindowNs)
            voters.emplace_back(id, &camera);
    const uint64_t tolerance = uint64_t(options_.maxClockSkewNs);
    std::tuple<int, int, uint64_t> best{-1, -1, 0};
    std::vector<uint64_t> members;
    for (const auto& [id, v] : voters) {
        std::vector<uint64_t> agreeing;
        int before = 0;
        for (const auto& [other, u] : voters)
            if (apartNs(u->stampNs, v->stampNs) <= tolerance) {
                agreeing.push_back(u->stampNs);
                before += !u->apart;
            }
        const std::tuple<int, int, uint64_t> rank{int(agreeing.size()), before, ~v->stampNs};
        if (rank > best) {
            best = rank;
            members = std::move(agreeing);
        }
    }
    if (members.empty()) return 0;
    std::nth_element(members.begin(), members.begin() + long(members.size() / 2), members.end());
    const uint64_t room = members[members.size() / 2];
    for (const auto& [id, camera] : voters) inStep[id] = apartNs(camera->stampNs, room) <= tolerance;
    return room;
}

bool CaptureGate::offsetExplains(int id, const std::map<int, bool>& inStep) const {
    auto own = offsets_.find(id);
    if (own == offsets_.end()) return false;
    // The room's stamp on the offsets' reference clock, as the in-step cameras tell it.
    std::vector<int64_t> room;
    for (const auto& [other, agrees] : inStep) {
        auto offset = offsets_.find(other);
        if (agrees && offset != offsets_.end()) room.push_back(int64_t(cameras_.at(other).stampNs) - offset->second);
    }
    if (room.empty()) return false;
    std::nth_element(room.begin(), room.begin() + long(room.size() / 2), room.end());
    const int64_t stamp = int64_t(cameras_.at(id).stampNs) - own->second;
    return apartNs(uint64_t(stamp), uint64_t(room[room.size() / 2])) <= uint64_t(options_.maxClockSkewNs);
}

std::vector<CameraNotice> CaptureGate::screen(std::map<int, lum::Bodies*>& captures, int64_t nowNs) {
    std::vector<CameraNotice> notices;
    // A clock driven by captures reads 0 until the first of them.
    if (firstNs_ <= 0) firstNs_ = nowNs;
    for (auto& [id, bodies] : captures) {
        if (!bodies->is_new) continue;
        Camera& camera = cameras_[id];
        if (camera.quiet)
            notices.push_back(notice(id, nowNs, "sends again after " +
                                                    seconds(double(nowNs - camera.quietSinceNs) * 1e-9) + " of silence"));
        camera.quiet = false;
        camera.stampNs = bodies->timestamp.getNanoseconds();
        camera.lastSeenNs = nowNs;
    }
    std::map<int, bool> inStep;
    const uint64_t room = roomStamp(nowNs, inStep);

    for (auto& [id, bodies] : captures) {
        if (!bodies->is_new) continue;
        Camera& camera = cameras_[id];
        camera.inStep = inStep[id];
        if (!camera.inStep) {
            camera.skewS = camera.stampNs >= room ? double(camera.stampNs - room) * 1e-9
                                                  : -double(room - camera.stampNs) * 1e-9;
            if (!offsetExplains(id, inStep)) {
                bodies->is_new = false;
                if (!camera.apart)
                    notices.push_back(notice(id, nowNs, "its clock is " + skewText(camera.skewS) +
                                                            " the others': its captures are held apart"));
                camera.apart = camera.everApart = true;
                continue;
            }
            if (camera.apart || !camera.takenBack)
                notices.push_back(notice(id, nowNs, "its clock is " + skewText(camera.skewS) +
                                                        " the others', as its estimated offset says: its captures "
                                                        "are taken back"));
            camera.takenBack = camera.everApart = true;
        } else if (camera.apart) {
            notices.push_back(notice(id, nowNs, "its clock agrees with the others' again"));
        }
        camera.apart = false;

        const int count = int(bodies->body_list.size());
        if (count > options_.maxBodies) {
            bodies->is_new = false;
            if (camera.mostBodies == 0)
                notices.push_back(notice(id, nowNs, "sent " + std::to_string(count) + " bodies in one capture, more than " +
                                                        std::to_string(options_.maxBodies) + ": refused"));
            camera.mostBodies = std::max(camera.mostBodies, count);
            continue;
        }
        // Two bodies under one id cannot both be that track; neither is kept.
        std::map<int, int> uses;
        for (const lum::BodyData& body : bodies->body_list) ++uses[body.id];
        const auto repeated = [&uses](const lum::BodyData& body) { return uses[body.id] > 1; };
        std::vector<lum::BodyData>& list = bodies->body_list;
        if (std::any_of(list.begin(), list.end(), repeated)) {
            list.erase(std::remove_if(list.begin(), list.end(), repeated), list.end());
            if (!camera.repeatedIds)
                notices.push_back(notice(id, nowNs, "sent several bodies under one id: those bodies are refused"));
            camera.repeatedIds = true;
        }
    }
    watchQuiet(captures, nowNs, notices);
    return notices;
}

void CaptureGate::watchQuiet(const std::map<int, lum::Bodies*>& captures, int64_t nowNs,
                             std::vector<CameraNotice>& notices) {
    bool anyNews = false;
    for (const auto& [id, bodies] : captures) anyNews = anyNews || cameras_[id].lastSeenNs == nowNs;
    if (!anyNews) return;
    for (auto& [id, camera] : cameras_) {
        if (camera.quiet || camera.lastSeenNs < 0 || nowNs - camera.lastSeenNs < options_.quietNs) continue;
        camera.quiet = true;
        camera.quietSinceNs = camera.lastSeenNs;
        notices.push_back(notice(id, nowNs, "went quiet " + seconds(double(camera.lastSeenNs - firstNs_) * 1e-9) +
                                                " into the run"));
    }
}

void CaptureGate::screenKeypoints(int camera, lum::Bodies& bodies) {
    KeypointDrops& drops = drops_[camera];
    for (lum::BodyData& body : bodies.body_list) dropUnusableKeypoints(body, drops);
}

std::string CaptureGate::trouble(int id) const {
    auto found = cameras_.find(id);
    if (found == cameras_.end()) return {};
    const Camera& camera = found->second;
    std::vector<std::string> causes;
    if (camera.everApart)
        causes.push_back("its clock was " + skewText(camera.skewS) + " the others' (its captures were " +
                         (camera.takenBack ? "taken back once its offset was known)" : "held apart)"));
    if (camera.mostBodies > 0)
        causes.push_back("it sent up to " + std::to_string(camera.mostBodies) + " bodies in one capture, more than " +
                         std::to_string(options_.maxBodies) + " (refused)");
    if (camera.repeatedIds) causes.push_back("it sent several bodies under one id (refused)");
    if (camera.quiet)
        causes.push_back("it went quiet " + seconds(double(camera.quietSinceNs - firstNs_) * 1e-9) + " into the run");
    std::string text;
    for (const std::string& cause : causes) text += (text.empty() ? "" : "; ") + cause;
    return text;
}

}  // namespace calib
