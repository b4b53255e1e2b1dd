// Where the fusion worker's bodies come from: the live fusion of the room's cameras, or a
// recording played back through the very same loop.
#pragma once

#include <functional>
#include <map>
#include <memory>

#include "lum/lum.hpp"

class BodySource {
public:
    virtual ~BodySource() = default;
    // Waits for the next synchronised set: SUCCESS, NO_NEW_DATA_AVAILABLE while nothing
    // came, or another code when the source failed or (a recording) has ended.
    virtual lum::FUSION_ERROR_CODE process() = 0;
    // A camera's bodies of the last set in the room frame, through the pose it was last
    // given; is_new once per capture.
    virtual void retrieveBodies(lum::Bodies& bodies, lum::CameraIdentifier camera) = 0;
    virtual void updatePose(lum::CameraIdentifier camera, const lum::Transform& pose) = 0;
    // True once a recording has been played to its end (a live room never ends).
    virtual bool ended() const { return false; }
};

// Called with every new capture of a camera, in the camera's own frame, as received.
using CaptureSink = std::function<void(int serial, const lum::Bodies& bodies)>;

// The live room: the SDK fusion the worker set up and subscribed. Reads `fusion` anew on
// every call, since the worker replaces it when a room restarts.
class LiveBodySource : public BodySource {
public:
    explicit LiveBodySource(const std::shared_ptr<lum::Fusion>& fusion) : fusion_(fusion) {}

    lum::FUSION_ERROR_CODE process() override;
    void retrieveBodies(lum::Bodies& bodies, lum::CameraIdentifier camera) override;
    void updatePose(lum::CameraIdentifier camera, const lum::Transform& pose) override;

    // Captures are handed to `sink` (a recorder) before the worker reads them; empty: none.
    void setSink(CaptureSink sink, std::vector<lum::CameraIdentifier> cameras);

private:
    const std::shared_ptr<lum::Fusion>& fusion_;
    CaptureSink sink_;
    std::vector<lum::CameraIdentifier> cameras_;
    std::map<lum::CameraIdentifier, bool> unread_;  // news the sink took first
};

// The room frame of a camera's bodies through its pose, as the SDK fusion computes it.
void bodiesToRoom(lum::Bodies& bodies, const lum::Transform& pose);

// A camera's latest capture as a played-back source holds it: in the camera's own frame,
// with the pose the worker last gave the camera.
struct HeldCapture {
    lum::Bodies latest;
    lum::Transform pose;
    bool unread = false;

    // What retrieveBodies hands over: the capture in the room frame, new only the first time.
    void handOver(lum::Bodies& bodies);
};
