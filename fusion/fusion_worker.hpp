// The fusion worker: subscribes the SDK fusion to every camera of the room, keeps the
// viewer's shared records fed, and drives the skeleton calibration without stalling.
#pragma once

#include <QString>
#include <QThread>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "core/pipeline_clock.hpp"
#include "core/shared_records.hpp"
#include "core/user_prompts.hpp"
#include "calibration/body_association.hpp"
#include "calibration/calibration_report.hpp"
#include "calibration/capture_gate.hpp"
#include "calibration/capture_log.hpp"
#include "calibration/clock_aligner.hpp"
#include "calibration/drift_monitor.hpp"
#include "calibration/frame_assembler.hpp"
#include "calibration/pairing_watch.hpp"
#include "calibration/reseed_policy.hpp"
#include "calibration/skeleton_align.hpp"
#include "fusion/body_source.hpp"
#include "fusion/calibration_runner.hpp"
#include "fusion/pyra_worker.hpp"
#include "lum/lum.hpp"

// How long the steady loop went without calling `process`, as the stall benchmark reads it.
struct LoopTiming {
    int64_t iterations = 0;
    double longestBodyMs = 0;      // from one process() return to the next call
    double longestIntervalMs = 0;  // between the starts of two process() calls
};

// The name a calibration is saved under: ".json" appended unless the last dot-separated
// piece already is "json"; empty when none was chosen (nothing is saved then).
std::string calibrationFileName(const QString& chosen);

// How the fusion of a room is set up: units, axes, and how long it waits for a set.
lum::InitFusionParameters roomFusionParameters();

// No handshake with a camera starts later than this after the first: cameras not asked by
// then count as not answering.
constexpr std::chrono::seconds kHandshakeDeadline{4};

// Said instead of asking for a file name when no solve was usable.
PromptMessage nothingToSaveMessage();

// The calibration frame of one processed set: the body of every subscribed camera whose
// new bodies hold exactly one person, keyed by serial number. Cameras that see nobody or
// several people add nothing, so a frame only pairs cameras sure to see the same person.
std::map<int, lum::BodyData> singlePersonFrame(const std::vector<lum::CameraIdentifier>& cameras,
                                               const std::map<lum::CameraIdentifier, lum::Bodies>& bodies);

using CameraPeopleList = std::vector<calib::CameraPeople>;

class FusionWorker : public QThread {
    Q_OBJECT

public:
    explicit FusionWorker(std::shared_ptr<UserPrompts> prompts = nullptr);
    ~FusionWorker() override;

    // The prompts every box and question of this worker and its senders goes through.
    void setPrompts(std::shared_ptr<UserPrompts> prompts);

    void setup(std::string path, AppParams params);
    void setup(std::vector<lum::FusionConfiguration> list, AppParams params);
    // Plays `source` (a recording of `room`'s cameras) through the same loop instead of
    // opening cameras; the run ends by itself when the source does.
    void setupReplay(std::unique_ptr<BodySource> source, std::vector<lum::FusionConfiguration> room);

    // The time of the clock the pacing, solves and run length read: the live room's
    // (makeLivePipelineClock), or a replay's capture times.
    int64_t pipelineNowNs() const;
    // Every capture of a live room goes to `sink` (a recorder) until the run length passes
    // or another sink (or none) replaces it: from the start when set before setup, else
    // from the next set on. The worker's thread may still call the sink it replaces once.
    // Never waits for a set.
    void setCaptureSink(CaptureSink sink);
    // Starts the skeleton calibration on the worker's thread before the first set, instead
    // of whenever a startCalib() call comes in. Set before setup.
    void setCalibrateOnStart(bool calibrate);
    // Collecting and recording stop `lengthNs` of pipeline time after the next set, which
    // runEnded() then says. 0: no limit.
    void setRunLength(int64_t lengthNs);

    // The switches take effect at the next set, so that no caller waits for one.
    void enableModule(MODULES module);
    void enableSK();
    void enableDepth();
    void enableMapping();
    void enableTracking();
    void disableModules();

    // -1 when no room is loaded, 0 otherwise. Starts from an empty store.
    int startCalib(CALIB kind);
    // Stops collecting, waits for a running solve (so never call it on the GUI thread) and
    // hands the room's configurations with the calibrated poses, which the fusion now uses
    // too; empty when no solve was usable.
    std::vector<lum::FusionConfiguration> concludeCalibration();
    // Concludes, asks where to save and writes the file. True when a file was written;
    // a cancelled question writes nothing.
    bool finishCalib(CALIB kind);
    // Stops the room: joins the worker, closes the senders, waits for a running solve.
    // Takes as long as the slowest of them, so a window calls it from a thread of its own.
    void close();

    // The model of the next calibration, from its start to its end: a walk never changes
    // model midway. Refined also brings every camera's body to one instant. Never waits.
    void setCalibrationModel(SkeletonMulticameraCalibration::Model model);
    // Hands the running calibration frames gathered elsewhere in place of its own; its
    // options and solver state stay this calibration's.
    void setCalibrationFrames(calib::FrameStore frames);
    int calibrationFrameCount() const { return calibrationFrames; }
    // Serials the last finishCalib() wrote, the cameras the fusion runs with, and the
    // keypoints the calibration refused so far: what a caller needs to say what was left out.
    std::vector<int> savedCameras() const;
    std::vector<int> runningCameras() const;
    // Cameras the drift watch has judged since the room settled; one missing here has not
    // been seen long enough, with people in view, for "it did not move" to mean anything.
    std::vector<int> watchedCameras() const;
    calib::KeypointDrops droppedKeypoints() const;
    // Per camera: the keypoints refused at the door, and what else it did wrong this
    // calibration (its clock, its body counts, its silence); empty when nothing.
    std::map<int, calib::KeypointDrops> droppedKeypointsByCamera() const;
    std::string cameraTrouble(int serial) const;
    LoopTiming loopTiming() const;
    void resetLoopTiming();

signals:
    void isInit();
    void clearData();
    void newData();
    void CalibrationConfigurationReady(std::vector<lum::FusionConfiguration> configurations,
                                       lum::COORDINATE_SYSTEM coordinateSystem, lum::UNIT unit);
    void incCalib(int percent);
    void updateFusionError(QString status);
    // The start-up ended without a usable room (fewer than two cameras opened or subscribed).
    void error();
    // After close(): the senders and the fusion are gone.
    void closed();
    // After every solve, usable or not.
    void calibrationReport(CalibrationReport report);
    // Every 500 ms while collecting with the body association on: per camera, how many
    // people it sees and whether its bodies are used.
    void cameraPeople(CameraPeopleList cameras);
    // While the room runs on its calibration: a camera no longer agrees with the others
    // the way it did: it turned by about rotationDeg, and its joints landed about
    // jointShiftMm away from where they did.
    void cameraMoved(int serial, double rotationDeg, double jointShiftMm);
    // The run length passed or the played-back recording ended: collecting and recording
    // stopped at that set.
    void runEnded();
    // A camera misbehaved or recovered: "camera 41003: its clock is 2.00 s ahead of the
    // others': its captures are held apart", and when, in seconds into the run.
    void cameraNotice(int serial, QString text, double secondsIntoRun);

protected:
    void run() override;

private:
    bool startUp();
    // Subscribes the fusion to every camera of the room but `skipped`, handshakes side by
    // side; the result of each, in the order of `configurations`. `notAsked` marks the
    // cameras whose handshake would have started after kHandshakeDeadline.
    std::vector<lum::FUSION_ERROR_CODE> subscribeAll(const std::set<int>& skipped, std::vector<char>& notAsked);
    void steadyLoop();
    void processFrame();
    void collectSkeletons();
    // Takes a solve that landed into the calibration, under workerMutex, and says it. The
    // report is emitted by the caller once the mutex is released: a slot on the caller's
    // thread runs at once and may ask the worker for its state.
    std::optional<CalibrationReport> takeSolvedCalibration();
    void applySolvedCalibration();
    // The cameras the solves placed, at their poses; under workerMutex.
    std::vector<lum::FusionConfiguration> placedConfigurations();
    // Drops `camera`'s frames and pose: the next solves place it anew from pose-free pairings.
    void reseedCamera(int camera, const char* why);
    // Finds anew a camera that keeps seeing people no body of which pairs through its pose.
    void reseedStarvedCamera();
    void showThroughCalibration();
    void watchForDrift();
    void updateClocks();
    void reassembleFrames();
    void addClocks(CalibrationReport& report) const;
    void restartDriftWatch();
    void waitUntilHidden(const PromptMessage& message);
    void resetCalibration();
    void recordLoopTiming(int64_t callStartNs, int64_t previousCallStartNs, int64_t previousReturnNs);
    BodySource& source();
    // Gives the cameras new poses, under workerMutex. A source applies them as its next
    // set starts, so a set already fetched still reads the bodies through the old ones.
    void movePose(lum::CameraIdentifier camera, const lum::Transform& pose);
    // Tells the clock the newest capture among the cameras' bodies just retrieved.
    void noteCaptures();
    // Every subscribed camera's bodies of this set, through the capture gate.
    void retrieveCameraBodies();
    void checkRunLength();
    // What other threads asked for since the last set; called with the worker's lock held.
    void takeRequests();
    void switchOn(MODULES module);
    // True when a sink was set since the last look; it is the worker's own from now on.
    bool takeNewSink();

    std::atomic<bool> running{false};
    // Set by close(); seen by a start-up that has not yet reached the loop.
    std::atomic<bool> stopRequested{false};
    std::shared_ptr<lum::Fusion> fusion;
    std::unique_ptr<LiveBodySource> liveSource;
    std::unique_ptr<BodySource> replaySource;  // set: a recording plays instead of the room
    std::shared_ptr<PipelineClock> clock;
    CaptureSink captureSink;
    // A sink set beside a running room waits here for the loop; the mutex is held only to
    // move one in or out, never across a set.
    std::mutex sinkHandover;
    CaptureSink nextSink;
    std::atomic<bool> sinkChanged{false};
    std::atomic<unsigned> requestedModules{0};  // one bit per MODULES value
    std::atomic<SkeletonMulticameraCalibration::Model> chosenModel{SkeletonMulticameraCalibration::Model::Classic};
    int64_t runLengthNs = 0;
    int64_t runStartNs = -1;  // pipeline time of the first set after the length was set
    bool awaitSolve = false;  // worker thread only
    // Sets the loop asked the source for, counted as each request starts; a set numbered
    // below firstPosedSet (under workerMutex) was fetched before the last pose change.
    std::atomic<uint64_t> setsRequested{0};
    uint64_t firstPosedSet = 0;
    bool runOver = false;     // worker thread only
    std::atomic<bool> calibrateOnStart{false};
    lum::BodyTrackingFusionRuntimeParameters bodyRuntimeParameters{-1, -1};
    std::vector<lum::CameraIdentifier> subscribedCameras;
    AppParams params;
    mutable std::mutex workerMutex;
    // Side by side so that disableModules() clears them with one write.
    struct ModuleSwitches {
        bool skeletonEnabled = false;
        bool depthEnabled = false;
        bool mappingEnabled = false;
        bool trackingEnabled = false;
    };
    ModuleSwitches modules;
    std::map<int, std::unique_ptr<PyraWorker>> senders;
    std::string configurationPath;
    SkeletonMulticameraCalibration calibration;
    bool collecting = false;  // skeletons go to the calibration rather than the room's view
    calib::FrameAssembler frameAssembler;
    // Each camera's clock, estimated from the bodies while collecting (Refined), and the
    // estimate the assembler places each camera's captures by.
    calib::ClockAligner clockAligner;
    calib::ClockEstimates clocks;
    int64_t lastClockEstimateNs = -1;
    // What the frames were assembled from, to make them again on a clock found later.
    calib::CaptureLog captureLog;
    bool discardRunningSolve = false;  // it started before the clocks were known
    calib::CaptureGate captureGate;
    std::vector<int> savedSerials;
    std::vector<lum::FusionConfiguration> configurations;
    int64_t lastErrorReport = 0;
    calib::BodyAssociator associator;
    int64_t lastAssociationMs = 0;

    CalibrationRunner solver;
    calib::ReseedPolicy reseeds;
    calib::PairingWatch pairingWatch;
    DriftMonitor driftMonitor;
    // A room whose cameras all stand at the origin has no calibration to drift from.
    bool roomPosed = false;
    uint64_t lastDriftFrameNs = 0;
    std::atomic<int> calibrationFrames{0};
    std::shared_ptr<UserPrompts> prompts;
    mutable std::mutex timingMutex;
    LoopTiming timing;
};

Q_DECLARE_METATYPE(CalibrationReport)
Q_DECLARE_METATYPE(CameraPeopleList)
