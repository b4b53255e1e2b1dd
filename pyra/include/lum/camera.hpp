// A stereo camera of the lum API: open, tracking, body tracking, publishing, grab.
// Also the AI model status and optimisation calls.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "lum/math.hpp"
#include "lum/records.hpp"
#include "lum/types.hpp"

namespace lum {

struct InitParameters {
    InitParameters(RESOLUTION resolution_ = RESOLUTION::AUTO, int fps_ = 0,
                   bool realTimeReplay_ = false, DEPTH_MODE depthMode_ = DEPTH_MODE::ULTRA,
                   UNIT unit_ = UNIT::MILLIMETER,
                   COORDINATE_SYSTEM coordinateSystem_ = COORDINATE_SYSTEM::IMAGE,
                   int verbose_ = 1, int gpuDevice_ = -1, float minDepth_ = -1.f,
                   float maxDepth_ = -1.f, bool disableSelfCalibration_ = false,
                   FLIP_MODE flip_ = FLIP_MODE::OFF, bool rightSideMeasure_ = false,
                   std::string verboseLogFile_ = "", int depthStabilisation_ = 30,
                   void* cudaContext_ = nullptr, InputType input_ = InputType(),
                   std::string settingsPath_ = "", bool sensorsRequired_ = false,
                   bool imageEnhancement_ = true, std::string calibrationFile_ = "",
                   float openTimeoutSeconds_ = 5.0f, bool asyncRecovery_ = false,
                   float grabFpsCap_ = 0.0f, int imageValidityCheck_ = 1,
                   bool asyncImageRetrieval_ = false, Resolution maxWorkingResolution_ = Resolution(0, 0))
        : resolution(resolution_), fps(fps_), realTimeReplay(realTimeReplay_), depthMode(depthMode_),
          unit(unit_), coordinateSystem(coordinateSystem_), verbose(verbose_), gpuDevice(gpuDevice_),
          minDepth(minDepth_), maxDepth(maxDepth_), disableSelfCalibration(disableSelfCalibration_),
          flip(flip_), rightSideMeasure(rightSideMeasure_), verboseLogFile(std::move(verboseLogFile_)),
          depthStabilisation(depthStabilisation_), cudaContext(cudaContext_), input(std::move(input_)),
          settingsPath(std::move(settingsPath_)), sensorsRequired(sensorsRequired_),
          imageEnhancement(imageEnhancement_), calibrationFile(std::move(calibrationFile_)),
          openTimeoutSeconds(openTimeoutSeconds_), asyncRecovery(asyncRecovery_), grabFpsCap(grabFpsCap_),
          imageValidityCheck(imageValidityCheck_), asyncImageRetrieval(asyncImageRetrieval_),
          maxWorkingResolution(maxWorkingResolution_) {}

    RESOLUTION resolution;
    int fps;
    bool realTimeReplay;
    DEPTH_MODE depthMode;
    UNIT unit;
    COORDINATE_SYSTEM coordinateSystem;
    int verbose;
    int gpuDevice;
    float minDepth;
    float maxDepth;
    bool disableSelfCalibration;
    FLIP_MODE flip;
    bool rightSideMeasure;
    std::string verboseLogFile;
    int depthStabilisation;
    void* cudaContext;
    InputType input;
    std::string settingsPath;
    bool sensorsRequired;
    bool imageEnhancement;
    std::string calibrationFile;
    float openTimeoutSeconds;
    bool asyncRecovery;
    float grabFpsCap;
    int imageValidityCheck;
    bool asyncImageRetrieval;
    Resolution maxWorkingResolution;
};

struct PositionalTrackingParameters {
    PositionalTrackingParameters(Transform initialWorldTransform_ = Transform(), bool enableAreaMemory_ = true,
                                 bool enablePoseSmoothing_ = false, std::string areaFilePath_ = "",
                                 bool setFloorAsOrigin_ = false, bool enableImuFusion_ = true,
                                 bool setAsStatic_ = false, float depthMinRange_ = -1.f,
                                 bool setGravityAsOrigin_ = true,
                                 POSITIONAL_TRACKING_MODE mode_ = POSITIONAL_TRACKING_MODE::STANDARD,
                                 bool enableLocalisationOnly_ = false, bool enable2dGroundMode_ = false)
        : initialWorldTransform(initialWorldTransform_), enableAreaMemory(enableAreaMemory_),
          enablePoseSmoothing(enablePoseSmoothing_), areaFilePath(std::move(areaFilePath_)),
          setFloorAsOrigin(setFloorAsOrigin_), enableImuFusion(enableImuFusion_), setAsStatic(setAsStatic_),
          depthMinRange(depthMinRange_), setGravityAsOrigin(setGravityAsOrigin_), mode(mode_),
          enableLocalisationOnly(enableLocalisationOnly_), enable2dGroundMode(enable2dGroundMode_) {}

    Transform initialWorldTransform;
    bool enableAreaMemory;
    bool enablePoseSmoothing;
    std::string areaFilePath;
    bool setFloorAsOrigin;
    bool enableImuFusion;
    bool setAsStatic;
    float depthMinRange;
    bool setGravityAsOrigin;
    POSITIONAL_TRACKING_MODE mode;
    bool enableLocalisationOnly;
    bool enable2dGroundMode;
    bool enableLightComputeMode = false;
};

struct BodyTrackingParameters {
    BodyTrackingParameters(bool enableTracking_ = true, bool enableSegmentation_ = false,
                           BODY_TRACKING_MODEL detectionModel_ = BODY_TRACKING_MODEL::HUMAN_BODY_ACCURATE,
                           bool enableBodyFitting_ = false, float maxRange_ = -1.f,
                           BODY_FORMAT bodyFormat_ = BODY_FORMAT::BODY_18,
                           BODY_KEYPOINTS_SELECTION bodySelection_ = BODY_KEYPOINTS_SELECTION::FULL,
                           float predictionTimeoutSeconds_ = 0.2f, bool allowReducedPrecision_ = true,
                           unsigned int instanceModuleId_ = 0)
        : enableTracking(enableTracking_), enableSegmentation(enableSegmentation_),
          detectionModel(detectionModel_), enableBodyFitting(enableBodyFitting_), maxRange(maxRange_),
          bodyFormat(bodyFormat_), bodySelection(bodySelection_),
          predictionTimeoutSeconds(predictionTimeoutSeconds_), allowReducedPrecision(allowReducedPrecision_),
          instanceModuleId(instanceModuleId_) {}

    bool enableTracking;
    bool enableSegmentation;
    BODY_TRACKING_MODEL detectionModel;
    bool enableBodyFitting;
    float maxRange;
    BODY_FORMAT bodyFormat;
    BODY_KEYPOINTS_SELECTION bodySelection;
    float predictionTimeoutSeconds;
    bool allowReducedPrecision;
    unsigned int instanceModuleId;
};

struct RuntimeParameters {
    RuntimeParameters(bool enableDepth_ = true, bool enableFillMode_ = false, int confidenceThreshold_ = 95,
                      int textureConfidenceThreshold_ = 100,
                      REFERENCE_FRAME measureReferenceFrame_ = REFERENCE_FRAME::CAMERA,
                      bool removeSaturatedAreas_ = false)
        : enableDepth(enableDepth_), enableFillMode(enableFillMode_), confidenceThreshold(confidenceThreshold_),
          textureConfidenceThreshold(textureConfidenceThreshold_), measureReferenceFrame(measureReferenceFrame_),
          removeSaturatedAreas(removeSaturatedAreas_) {}

    bool enableDepth;
    bool enableFillMode;
    int confidenceThreshold;
    int textureConfidenceThreshold;
    REFERENCE_FRAME measureReferenceFrame;
    bool removeSaturatedAreas;
    int depthSmoothingPercent = 0;
};

struct BodyTrackingRuntimeParameters {
    BodyTrackingRuntimeParameters(float detectionConfidenceThreshold_ = 20.f, int minimumKeypoints_ = 0,
                                  float skeletonSmoothing_ = 0.f)
        : detectionConfidenceThreshold(detectionConfidenceThreshold_), minimumKeypoints(minimumKeypoints_),
          skeletonSmoothing(skeletonSmoothing_) {}

    float detectionConfidenceThreshold;
    int minimumKeypoints;
    float skeletonSmoothing;
};

struct CameraConfiguration {
    Resolution resolution;
    float fps = 0.f;
    float focalLengthPixels = 0.f;
    float horizontalFovDegrees = 0.f;
};

struct CameraInformation {
    unsigned int serial_number = 0;
    std::string camera_model = "Pyra 2i";
    INPUT_TYPE input_type = INPUT_TYPE::USB;
    CameraConfiguration camera_configuration;
};

struct AI_Model_status {
    bool downloaded = false;
    bool optimized = false;
};

// Downloaded/optimised state of a model in the model cache folder.
AI_Model_status checkAIModelStatus(AI_MODELS model, int gpuId = 0);
// Blocks until the model is optimised (a short while the first time).
ERROR_CODE optimizeAIModel(AI_MODELS model, int gpuId = 0);

class CameraBackend;

class Camera {
public:
    Camera();
    ~Camera();
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;

    ERROR_CODE open(const InitParameters& parameters = InitParameters());
    bool isOpened() const;
    void close();

    ERROR_CODE enablePositionalTracking(const PositionalTrackingParameters& parameters = PositionalTrackingParameters());
    void disablePositionalTracking();
    POSITIONAL_TRACKING_STATE getPosition(Pose& pose, REFERENCE_FRAME frame = REFERENCE_FRAME::WORLD);

    ERROR_CODE enableBodyTracking(const BodyTrackingParameters& parameters = BodyTrackingParameters());
    void disableBodyTracking(unsigned int instanceId = 0);

    ERROR_CODE startPublishing(const CommunicationParameters& parameters = CommunicationParameters());
    ERROR_CODE stopPublishing();

    // Waits for the next frame at the camera's frame rate.
    ERROR_CODE grab(const RuntimeParameters& parameters = RuntimeParameters());
    ERROR_CODE retrieveBodies(Bodies& bodies,
                              const BodyTrackingRuntimeParameters& parameters = BodyTrackingRuntimeParameters(),
                              unsigned int instanceId = 0);

    CameraInformation getCameraInformation() const;
    Timestamp getTimestamp() const;

    static std::vector<DeviceProperties> getDeviceList();

private:
    std::unique_ptr<CameraBackend> backend_;
};

}  // namespace lum
