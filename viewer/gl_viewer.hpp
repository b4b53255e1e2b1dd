// The 3D view: copies what the fusion publishes in SharedData into drawables (rings,
// camera models, fused and raw skeletons, fused maps, metrics text) and draws them.
#pragma once

#include <QColor>
#include <QMetaObject>
#include <QPointF>
#include <QOpenGLFunctions_3_3_Core>
#include <QOpenGLShaderProgram>
#include <QOpenGLWidget>

#include <array>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "core/shared_records.hpp"
#include "lum/lum.hpp"
#include "viewer/camera_gl.hpp"
#include "viewer/palette_generator.hpp"
#include "viewer/simple3d_object.hpp"
#include "viewer/skeleton_instances.hpp"
#include "viewer/sky_box.hpp"
#include "viewer/sub_map_obj.hpp"

// One overlay line: text, anchor in widget pixels (x right, y down; z unused), colour.
struct ObjectClassName {
    std::string name;
    lum::Vector3f position;
    lum::Vector4f color;
};

// The SharedData groups as the viewer reads them.
struct SkeletonData {
    lum::Bodies fusedBodies;
    std::map<lum::CameraIdentifier, lum::Bodies> cameraBodies;
    bool showRawData = false;
};

struct MetricsData {
    lum::FusionMetrics metrics;
    bool showMetrics = false;
};

struct TrackingData {
    std::map<lum::CameraIdentifier, lum::Transform> poses;
    std::map<lum::CameraIdentifier, lum::Transform> transforms;
};

struct CameraData {
    std::unique_ptr<Simple3DObject> model;
    lum::Matrix4f pose;
};

// A camera's serial number as drawn beside its model, in the model's colour.
struct CameraLabel {
    int camera = 0;
    QPointF position;  // widget pixels
    QColor colour;
};

class GlViewer : public QOpenGLWidget, protected QOpenGLFunctions_3_3_Core {
    Q_OBJECT

public:
    explicit GlViewer(QWidget* parent = nullptr);
    ~GlViewer() override;

    static void initShader(QOpenGLShaderProgram& program, const char* vertexSource, const char* fragmentSource);
    static void addSKeleton(const lum::BodyData& body, Simple3DObject& target, const lum::Vector4f& colour,
                            bool withJoints);

    CameraGL& camera() { return camera_; }
    const lum::Vector3f& backgroundColor() const { return background; }
    PaletteGenerator& bodyPalette() { return bodyColors; }
    PaletteGenerator& cameraPalette() { return cameraColors; }
    size_t cameraCount() const { return cameras.size(); }
    const std::vector<ObjectClassName>& overlayLines() const { return metricsText; }
    // The camera labels of the last frame drawn.
    const std::vector<CameraLabel>& cameraLabels() const { return labels; }
    // The pose a camera model is drawn at; identity for an unknown camera.
    lum::Matrix4f cameraPose(int cameraNumber) const;

    // The start view: frames every camera and person, clear of the metrics text, and
    // keeps following the scene as it grows until the user steers.
    void ResetPosition();
    void setFollowScene(bool follow) { followScene = follow; }
    bool followsScene() const { return followScene; }

    // Whether something drawn changed since the last call: the owner's repaint timer asks,
    // so a still scene costs no frames and a busy one at most one per tick.
    bool takePendingRedraw() { return std::exchange(redrawPending, false); }
    void scheduleRedraw() { redrawPending = true; }

public slots:
    // Refreshes from SharedData, skipping every group whose lock is busy.
    void updateData();
    // Empties SharedData group by group (blocking) and the scene drawn from it.
    void reset();

protected:
    void initializeGL() override;
    void resizeGL(int width, int height) override;
    void paintGL() override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    void updateSkeletons(SkeletonData& data);
    void updateMetrics(MetricsData& data);
    void updateCamera(int cameraNumber, const lum::Transform& pose, const lum::Transform& placement);
    std::unique_ptr<Simple3DObject> createCamera(int cameraNumber, const lum::Vector4f& colour);
    void buildRings();
    void printText();
    void placeCameraLabels(const QMatrix4x4& viewProjection);
    void rotateCamera();
    void translateCamera();
    // Frames everything seen since the last start view; `restart` forgets it first.
    void frameScene(bool restart);
    // Pixels at the top that the metrics text covers.
    float overlayBand() const;
    void setViewpoint(const lum::Translation& position, const lum::Translation& direction,
                      const lum::Translation& offset);
    // Frees every GL object while the context is still alive; the scene is rebuilt from
    // SharedData on the next refresh.
    void releaseGL();

    CameraGL camera_;
    lum::Vector3f background;
    std::unique_ptr<QOpenGLShaderProgram> basicProgram;
    std::unique_ptr<QOpenGLShaderProgram> skeletonProgram;
    std::unique_ptr<QOpenGLShaderProgram> pointCloudProgram;
    std::unique_ptr<QOpenGLShaderProgram> instanceProgram;
    float pointSize = 2.f;

    std::vector<std::unique_ptr<Simple3DObject>> rings;
    std::unordered_map<int, CameraData> cameras;
    // Declared before the skeleton sets, whose vertex arrays read its buffers.
    std::unique_ptr<UnitShapeBuffers> unitShapes;
    std::unique_ptr<SkeletonInstances> fusedSkeletons;
    std::map<int, std::unique_ptr<SkeletonInstances>> rawSkeletons;
    std::array<std::unique_ptr<SubMapObj>, 2> maps;
    std::unique_ptr<SkyBox> skyBox;
    PaletteGenerator bodyColors;
    PaletteGenerator cameraColors;
    std::mutex dataMutex;
    std::vector<ObjectClassName> metricsText;
    std::vector<CameraLabel> labels;

    // Fused keypoints of the current people, kept for framing.
    std::vector<lum::Vector3f> bodyPoints;
    bool followScene = true;
    bool framedAnything = false;
    lum::Vector3f framedLow, framedHigh;
    float framedBand = 0.f;

    bool mouseButton = false;
    lum::Vector2f previousMouseMotion;
    lum::Vector2f mouseMotion;
    QMetaObject::Connection contextConnection;
    bool redrawPending = true;
};
