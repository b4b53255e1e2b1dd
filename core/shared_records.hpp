// Records that cross thread and module borders: the user's capture choices, module and
// calibration selectors, and the process-wide store the fusion worker fills for the viewer.
#pragma once

#include <QMetaType>

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <vector>

#include "lum/lum.hpp"

struct AppParams {
    int32_t bodyModel = 0;
    int32_t flipMode = 0;
    int32_t depthMode = 4;
    int32_t detectionConfidence = 50;
};

enum MODULES : int32_t { SKELETON = 0, DEPTH = 1, MAPPING = 2, TRACKING = 3 };

enum CALIB : int32_t { SKELETON_CALIB = 0, PATH_CALIB = 1 };

class SharedData {
public:
    static SharedData& getInstance();

    // Skeleton group.
    std::mutex skeletonMutex;
    lum::Bodies fusedBodies;
    std::map<lum::CameraIdentifier, lum::Bodies> cameraBodies;

    // Position group.
    std::mutex positionMutex;
    lum::Pose fusedPose;
    std::map<lum::CameraIdentifier, lum::Pose> cameraPoses;
    std::map<lum::CameraIdentifier, lum::Transform> cameraTransforms;

    // Metrics group.
    std::mutex metricsMutex;
    lum::FusionMetrics metrics;

    // Depth and mapping point clouds.
    std::mutex depthCloudMutex;
    lum::FusedPointCloud depthCloud;
    std::mutex mappingCloudMutex;
    lum::FusedPointCloud mappingCloud;

    // Flags read by the viewer.
    std::atomic<bool> showMetrics{false};
    std::atomic<bool> showRawData{false};
    std::atomic<bool> reset{false};

private:
    SharedData() = default;
};

// Registers the types that travel in queued signals between threads.
void registerSharedMetaTypes();

Q_DECLARE_METATYPE(std::vector<lum::FusionConfiguration>)
Q_DECLARE_METATYPE(lum::UNIT)
Q_DECLARE_METATYPE(lum::COORDINATE_SYSTEM)
Q_DECLARE_METATYPE(AppParams)
