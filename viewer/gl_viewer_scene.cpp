// GlViewer: the refresh from SharedData (try-locks only), the camera models, skeletons and
// metrics lines, and the reset that empties the shared store.
#include "viewer/gl_viewer.hpp"

#include "viewer/skeleton_primitives.hpp"

namespace {

bool isIdentity(const lum::Matrix4f& m) {
    return m == lum::Matrix4f();
}

std::string milliseconds(float seconds) {
    return strQuant(seconds * 1000.f) + "ms";
}

}  // namespace

void GlViewer::updateData() {
    SharedData& shared = SharedData::getInstance();
    std::lock_guard<std::mutex> lock(dataMutex);
    // Each group is copied under its own lock, taken only if free: the fusion worker is
    // never kept waiting, and a busy group simply keeps its last picture.
    std::mutex* cloudMutexes[2] = {&shared.depthCloudMutex, &shared.mappingCloudMutex};
    lum::FusedPointCloud* clouds[2] = {&shared.depthCloud, &shared.mappingCloud};
    for (int i = 0; i < 2; ++i) {
        std::unique_lock<std::mutex> cloudLock(*cloudMutexes[i], std::try_to_lock);
        if (!cloudLock.owns_lock()) continue;
        if (!maps[i]) maps[i] = std::make_unique<SubMapObj>();
        maps[i]->update(*clouds[i]);
    }

    SkeletonData skeletons;
    bool haveSkeletons = false;
    {
        std::unique_lock<std::mutex> groupLock(shared.skeletonMutex, std::try_to_lock);
        if (groupLock.owns_lock()) {
            skeletons.fusedBodies = shared.fusedBodies;
            skeletons.showRawData = shared.showRawData.load();
            if (skeletons.showRawData) skeletons.cameraBodies = shared.cameraBodies;
            haveSkeletons = true;
        }
    }
    if (haveSkeletons) updateSkeletons(skeletons);

    MetricsData metrics;
    bool haveMetrics = false;
    {
        std::unique_lock<std::mutex> groupLock(shared.metricsMutex, std::try_to_lock);
        if (groupLock.owns_lock()) {
            metrics.showMetrics = shared.showMetrics.load();
            if (metrics.showMetrics) metrics.metrics = shared.metrics;
            haveMetrics = true;
        }
    }
    if (haveMetrics) updateMetrics(metrics);

    TrackingData tracking;
    bool haveTracking = false;
    {
        std::unique_lock<std::mutex> groupLock(shared.positionMutex, std::try_to_lock);
        if (groupLock.owns_lock()) {
            for (const auto& entry : shared.cameraPoses) {
                tracking.poses[entry.first] = entry.second.pose_data;
                auto placement = shared.cameraTransforms.find(entry.first);
                tracking.transforms[entry.first] =
                    placement == shared.cameraTransforms.end() ? lum::Transform() : placement->second;
            }
            haveTracking = true;
        }
    }
    if (haveTracking)
        for (const auto& entry : tracking.poses)
            updateCamera(int(entry.first.sn), entry.second, tracking.transforms[entry.first]);
    if (followScene) frameScene(false);
    redrawPending = true;
}

void GlViewer::updateSkeletons(SkeletonData& data) {
    // The shared list always holds the complete current set, so the object is rebuilt on
    // every refresh; this also drops the old skeletons when a calibration starts.
    if (!fusedSkeletons) fusedSkeletons = std::make_unique<SkeletonInstances>();
    fusedSkeletons->clear();
    bodyPoints.clear();
    for (const lum::BodyData& body : data.fusedBodies.body_list) {
        addSkeletonPrimitive(body, *fusedSkeletons, bodyColors.get(body.id), false);
        bodyPoints.insert(bodyPoints.end(), body.keypoint.begin(), body.keypoint.end());
    }

    if (!data.showRawData) return;
    for (const auto& entry : data.cameraBodies) {
        const int cameraNumber = int(entry.first.sn);
        const lum::Vector4f colour = cameraColors.getDistinct(cameraNumber);
        auto& object = rawSkeletons[cameraNumber];
        if (!object) object = std::make_unique<SkeletonInstances>();
        object->clear();
        for (const lum::BodyData& body : entry.second.body_list) addSkeletonPrimitive(body, *object, colour, true);
    }
}

void GlViewer::updateMetrics(MetricsData& data) {
    if (!data.showMetrics) return;
    metricsText.clear();
    const float lineHeight = 16.f;
    float y = 20.f;
    for (const auto& entry : data.metrics.camera_individual_stats) {
        const lum::CameraMetrics& stats = entry.second;
        ObjectClassName line;
        line.name = "CAM: " + std::to_string(entry.first.sn) + " " + strQuant(stats.received_fps) + " fps" +
                    " / " + "Ratio Detection: " + strQuant(stats.ratio_detection) + " /" + " Delta : " +
                    milliseconds(stats.delta_ts) + " / " + "Publisher: " + milliseconds(stats.received_latency) +
                    " / " + milliseconds(stats.synced_latency);
        line.position = lum::Vector3f(10.f, y, 0.f);
        line.color = stats.is_present ? cameraColors.getDistinct(int(entry.first.sn)) : lum::Vector4f(0.6f, 0.6f, 0.6f, 1.f);
        metricsText.push_back(line);
        y += lineHeight;
    }
    ObjectClassName fused;
    fused.name = "Fusion: " + strQuant(data.metrics.mean_camera_fused) + " fps" + " / " + "Std dev : " +
                 milliseconds(data.metrics.mean_stdev_between_camera);
    fused.position = lum::Vector3f(10.f, y, 0.f);
    fused.color = lum::Vector4f(217.f / 255.f, 1.f, 66.f / 255.f, 1.f);
    metricsText.push_back(fused);
}

void GlViewer::updateCamera(int cameraNumber, const lum::Transform& pose, const lum::Transform& placement) {
    CameraData& data = cameras[cameraNumber];
    if (!data.model) data.model = createCamera(cameraNumber, cameraColors.getDistinct(cameraNumber));
    // A calibrated placement is a pose in the room of its own: while a calibration runs
    // the camera's pose is held at identity, and once it is saved both agree. Composing
    // them would count the calibration twice.
    data.pose = isIdentity(placement) ? pose : placement;
}

std::unique_ptr<Simple3DObject> GlViewer::createCamera(int, const lum::Vector4f& colour) {
    // A pyramid opening along -Z (the camera's viewing direction in a y-up, right-handed
    // frame), solid near the lens and fading towards the field of view.
    auto model = std::make_unique<Simple3DObject>();
    model->setDrawingType(GL_TRIANGLES);
    const float depth = 0.35f, halfWidth = 0.25f, halfHeight = 0.15f;
    const lum::Vector3f apex(0.f, 0.f, 0.f);
    const lum::Vector3f corners[4] = {{-halfWidth, halfHeight, -depth},
                                      {halfWidth, halfHeight, -depth},
                                      {halfWidth, -halfHeight, -depth},
                                      {-halfWidth, -halfHeight, -depth}};
    const lum::Vector4f faded(colour.x, colour.y, colour.z, 0.35f);
    for (int i = 0; i < 4; ++i) model->addFace(apex, corners[i], corners[(i + 1) % 4], colour, faded);
    // A small body behind the lens, so that a camera seen from behind still reads as one.
    const float b = 0.08f;
    const lum::Vector3f back[4] = {{-b, b, b}, {b, b, b}, {b, -b, b}, {-b, -b, b}};
    model->addFace(back[0], back[1], back[2], colour, colour);
    model->addFace(back[0], back[2], back[3], colour, colour);
    for (int i = 0; i < 4; ++i) model->addFace(apex, back[i], back[(i + 1) % 4], colour, colour);
    return model;
}

void GlViewer::reset() {
    SharedData& shared = SharedData::getInstance();
    {
        std::lock_guard<std::mutex> lock(shared.depthCloudMutex);
        shared.depthCloud.clear();
    }
    {
        std::lock_guard<std::mutex> lock(shared.mappingCloudMutex);
        shared.mappingCloud.clear();
    }
    {
        std::lock_guard<std::mutex> lock(shared.skeletonMutex);
        shared.fusedBodies.clear();
        shared.cameraBodies.clear();
    }
    {
        std::lock_guard<std::mutex> lock(shared.positionMutex);
        shared.cameraPoses.clear();
        shared.cameraTransforms.clear();
    }
    {
        std::lock_guard<std::mutex> lock(shared.metricsMutex);
        shared.metrics.reset();
    }
    // A new room: drop what was drawn from the old one (GL objects need the context).
    if (context()) makeCurrent();
    {
        std::lock_guard<std::mutex> lock(dataMutex);
        cameras.clear();
        rawSkeletons.clear();
        if (fusedSkeletons) fusedSkeletons->clear();
        for (auto& map : maps) map = std::make_unique<SubMapObj>();
        metricsText.clear();
        bodyPoints.clear();
    }
    if (context()) doneCurrent();
    ResetPosition();
    redrawPending = true;
}
