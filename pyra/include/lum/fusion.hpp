// The multi-camera fusion of the lum API: subscribe to publishing cameras, process
// synchronised sets, fused and per-camera bodies, poses and metrics. Also the room file.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "lum/math.hpp"
#include "lum/records.hpp"
#include "lum/types.hpp"

namespace lum {

struct SynchronizationParameter {
    SynchronizationParameter(int windowSize_ = 0, float dataSourceTimeoutMs_ = 1000.f, bool keepLastData_ = false,
                             float maximumLatencyMs_ = 50.f)
        : windowSize(windowSize_), dataSourceTimeoutMs(dataSourceTimeoutMs_), keepLastData(keepLastData_),
          maximumLatencyMs(maximumLatencyMs_) {}

    int windowSize;
    float dataSourceTimeoutMs;
    bool keepLastData;
    float maximumLatencyMs;
};

struct InitFusionParameters {
    InitFusionParameters(UNIT unit_ = UNIT::MILLIMETER, COORDINATE_SYSTEM coordinateSystem_ = COORDINATE_SYSTEM::IMAGE,
                         bool outputPerformanceMetrics_ = true, int verbose_ = 0,
                         unsigned int timeoutPeriodsNumber_ = 5, int gpuDevice_ = -1, void* cudaContext_ = nullptr,
                         SynchronizationParameter synchronization_ = SynchronizationParameter(),
                         Resolution maximumWorkingResolution_ = Resolution(size_t(-1), size_t(-1)))
        : unit(unit_), coordinateSystem(coordinateSystem_), outputPerformanceMetrics(outputPerformanceMetrics_),
          verbose(verbose_), timeoutPeriodsNumber(timeoutPeriodsNumber_), gpuDevice(gpuDevice_),
          cudaContext(cudaContext_), synchronization(synchronization_),
          maximumWorkingResolution(maximumWorkingResolution_) {}

    UNIT unit;
    COORDINATE_SYSTEM coordinateSystem;
    bool outputPerformanceMetrics;
    int verbose;
    unsigned int timeoutPeriodsNumber;
    int gpuDevice;
    void* cudaContext;
    SynchronizationParameter synchronization;
    Resolution maximumWorkingResolution;
};

struct BodyTrackingFusionParameters {
    bool enableTracking = false;
    bool enableBodyFitting = false;
};

struct BodyTrackingFusionRuntimeParameters {
    BodyTrackingFusionRuntimeParameters(int skeletonMinimumAllowedKeypoints_ = -1,
                                        int skeletonMinimumAllowedCameras_ = -1, float skeletonSmoothing_ = 0.f)
        : skeletonMinimumAllowedKeypoints(skeletonMinimumAllowedKeypoints_),
          skeletonMinimumAllowedCameras(skeletonMinimumAllowedCameras_), skeletonSmoothing(skeletonSmoothing_) {}

    int skeletonMinimumAllowedKeypoints;
    int skeletonMinimumAllowedCameras;
    float skeletonSmoothing;
};

struct PositionalTrackingFusionParameters {
    bool enableGNSSFusion = false;
    Transform baseFootprintToWorld;
};

class FusionBackend;

class Fusion {
public:
    Fusion();
    ~Fusion();
    Fusion(const Fusion&) = delete;
    Fusion& operator=(const Fusion&) = delete;

    FUSION_ERROR_CODE init(const InitFusionParameters& parameters = InitFusionParameters());
    void close();

    // Connects to a publishing camera and checks its serial number and SDK version.
    // `pose` is the camera's pose in the room (camera to world).
    FUSION_ERROR_CODE subscribe(CameraIdentifier uuid, CommunicationParameters parameters, Transform pose,
                                bool overrideGravity = false);
    FUSION_ERROR_CODE unsubscribe(CameraIdentifier uuid);
    FUSION_ERROR_CODE updatePose(CameraIdentifier uuid, Transform pose);

    // 0 on a new synchronised set; -1 after at most ~50 ms with nothing new.
    FUSION_ERROR_CODE process();

    FUSION_ERROR_CODE enableBodyTracking(const BodyTrackingFusionParameters& parameters = BodyTrackingFusionParameters());
    void disableBodyTracking();
    // Default uuid: the fused bodies; a camera's uuid: that camera's last frame.
    FUSION_ERROR_CODE retrieveBodies(Bodies& bodies,
                                     const BodyTrackingFusionRuntimeParameters& parameters = BodyTrackingFusionRuntimeParameters(),
                                     CameraIdentifier uuid = CameraIdentifier(),
                                     FUSION_REFERENCE_FRAME referenceFrame = FUSION_REFERENCE_FRAME::WORLD);

    FUSION_ERROR_CODE enablePositionalTracking(
        const PositionalTrackingFusionParameters& parameters = PositionalTrackingFusionParameters());
    void disablePositionalTracking();
    POSITIONAL_TRACKING_STATE getPosition(Pose& pose, REFERENCE_FRAME referenceFrame = REFERENCE_FRAME::WORLD,
                                          CameraIdentifier uuid = CameraIdentifier(),
                                          POSITION_TYPE positionType = POSITION_TYPE::FUSION);

    FUSION_ERROR_CODE getProcessMetrics(FusionMetrics& metrics);
    std::vector<CameraIdentifier> getSenderState() const;

private:
    std::unique_ptr<FusionBackend> backend_;
};

// Reads a room configuration file into a list of cameras with poses in the given frame and
// unit. On any problem: an empty list, and `error` (when given) names the file and the fault.
std::vector<FusionConfiguration> readFusionConfigurationFile(const std::string& path, COORDINATE_SYSTEM coordinateSystem,
                                                             UNIT unit, std::string* error = nullptr);
// Same, from a document already in memory (a JSON text).
std::vector<FusionConfiguration> readFusionConfiguration(const std::string& jsonText, COORDINATE_SYSTEM coordinateSystem,
                                                         UNIT unit, std::string* error = nullptr);
// Writes the room document atomically (temporary file, then rename). False on failure,
// with `error` naming the file and the fault.
bool writeConfigurationFile(const std::string& path, const std::vector<FusionConfiguration>& configurations,
                            COORDINATE_SYSTEM coordinateSystem, UNIT unit, std::string* error = nullptr);

}  // namespace lum
