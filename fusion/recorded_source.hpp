// A recording played through the fusion worker: its captures are taken in capture order
// and grouped into synchronised sets by the rules the live fusion follows, as fast as the
// worker asks for them.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>

#include "fusion/body_source.hpp"
#include "recording/recording_reader.hpp"

class RecordedBodySource : public BodySource {
public:
    // `reader` is open; `synchronisation` is what the live fusion of the room runs with.
    RecordedBodySource(std::unique_ptr<rec::RecordingReader> reader, lum::SynchronizationParameter synchronisation);

    lum::FUSION_ERROR_CODE process() override;
    void retrieveBodies(lum::Bodies& bodies, lum::CameraIdentifier camera) override;
    void updatePose(lum::CameraIdentifier camera, const lum::Transform& pose) override;
    bool ended() const override { return ended_; }

    // Plays at the pace it was recorded, each capture no earlier on the steady clock than its
    // time after the first, instead of as fast as the worker asks. Set before playing.
    void setRecordedPace(bool recordedPace) { recordedPace_ = recordedPace; }

    // After the end: whether the file was cut short or damaged, and where.
    bool truncated() const { return reader_->truncated(); }
    const std::string& problem() const { return reader_->problem(); }
    uint64_t captures() const { return captures_; }

private:
    struct Camera : HeldCapture {
        lum::Transform pendingPose;
        bool posePending = false;
        bool hasFrame = false;
        bool newSinceSet = false;
        uint64_t arrivalNs = 0;
    };

    // Reads ahead far enough that captures written a set apart come out in capture order.
    void refill();
    bool present(const Camera& camera, uint64_t now) const;
    bool setReady(uint64_t now) const;
    void makeSet();
    // Recorded pace: whether the capture at `captureNs` is due yet; waits a little for it.
    bool due(uint64_t captureNs);

    std::unique_ptr<rec::RecordingReader> reader_;
    lum::SynchronizationParameter synchronisation_;
    std::map<lum::CameraIdentifier, Camera> cameras_;
    std::multimap<std::pair<uint64_t, uint64_t>, lum::Bodies> pending_;  // by capture time, serial
    bool readerDone_ = false;
    bool ended_ = false;
    uint64_t captures_ = 0;
    bool recordedPace_ = false;
    uint64_t firstCaptureNs_ = 0;
    int64_t firstSteadyNs_ = 0;
};
