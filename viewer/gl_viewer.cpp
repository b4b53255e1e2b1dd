// GlViewer: GL set-up and the Qt-way teardown of its objects, the ground rings, and the
// per-frame drawing with the metrics overlay.
#include "viewer/gl_viewer.hpp"

#include <QFile>
#include <QMatrix4x4>
#include <QOpenGLContext>
#include <QFontMetrics>
#include <QPainter>
#include <QSurfaceFormat>
#include <QVector4D>

#include <malloc.h>

#include <cmath>
#include <iostream>

#include "viewer/skeleton_primitives.hpp"
#include "viewer/viewer_resources.hpp"

namespace {

QByteArray shaderSource(const char* path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) return QByteArray();
    return file.readAll();
}

QMatrix4x4 toQt(const lum::Matrix4f& m) {
    return QMatrix4x4(m.ptr());  // both row-major
}

// A software renderer allocates and frees several megabytes of binned geometry per frame,
// and a frame read back is another few. Above glibc's default threshold each of those is a
// fresh mapping whose pages fault in again on every frame: with 100 000 points that was
// two thirds of the frame. Keeping such blocks in the heap costs at most the trim
// threshold in memory not handed back.
void keepFrameBlocksInHeap() {
    static const bool once = [] {
        mallopt(M_MMAP_THRESHOLD, 32 << 20);
        mallopt(M_TRIM_THRESHOLD, 128 << 20);
        return true;
    }();
    (void)once;
}

}  // namespace

GlViewer::GlViewer(QWidget* parent) : QOpenGLWidget(parent), background(0.12f, 0.13f, 0.16f) {
    keepFrameBlocksInHeap();
    QSurfaceFormat format;
    format.setVersion(3, 3);
    format.setProfile(QSurfaceFormat::CoreProfile);
    format.setDepthBufferSize(24);
    setFormat(format);
    setFocusPolicy(Qt::StrongFocus);
    camera_.setProjection(90.f, 90.f, 0.05f, 100.f);
    ResetPosition();
}

GlViewer::~GlViewer() {
    QObject::disconnect(contextConnection);
    if (!context()) return;
    makeCurrent();
    releaseGL();
    doneCurrent();
}

void GlViewer::initShader(QOpenGLShaderProgram& program, const char* vertexSource, const char* fragmentSource) {
    auto* vertex = new QOpenGLShader(QOpenGLShader::Vertex, &program);
    auto* fragment = new QOpenGLShader(QOpenGLShader::Fragment, &program);
    vertex->compileSourceCode(vertexSource);
    fragment->compileSourceCode(fragmentSource);
    program.addShader(vertex);
    program.addShader(fragment);
    program.bindAttributeLocation("vertex", 0);
    program.bindAttributeLocation("texCoord", 1);
    if (!program.link() || !program.bind()) {
        std::cout << "-> prog log : " << program.log().toStdString() << "\n"
                  << "-> vshader log : " << vertex->log().toStdString() << "\n"
                  << "-> fshader log : " << fragment->log().toStdString() << std::endl;
    }
    program.release();
}

void GlViewer::addSKeleton(const lum::BodyData& body, Simple3DObject& target, const lum::Vector4f& colour,
                           bool withJoints) {
    addSkeletonPrimitive(body, target, colour, withJoints);
}

lum::Matrix4f GlViewer::cameraPose(int cameraNumber) const {
    auto it = cameras.find(cameraNumber);
    return it == cameras.end() ? lum::Matrix4f() : it->second.pose;
}

void GlViewer::initializeGL() {
    initializeOpenGLFunctions();
    initViewerResources();
    // A new context (the widget was re-parented) starts from a clean slate.
    QObject::disconnect(contextConnection);
    contextConnection = connect(context(), &QOpenGLContext::aboutToBeDestroyed, this, [this] {
        makeCurrent();
        releaseGL();
        doneCurrent();
    });

    glEnable(GL_BLEND);
    glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    glEnable(GL_LINE_SMOOTH);
    glHint(GL_LINE_SMOOTH_HINT, GL_NICEST);
    glEnable(GL_PROGRAM_POINT_SIZE);

    const QByteArray basicVertex = shaderSource(":/shaders/basic.vert");
    const QByteArray basicFragment = shaderSource(":/shaders/basic.frag");
    basicProgram = std::make_unique<QOpenGLShaderProgram>();
    initShader(*basicProgram, basicVertex.constData(), basicFragment.constData());
    skeletonProgram = std::make_unique<QOpenGLShaderProgram>();
    initShader(*skeletonProgram, shaderSource(":/shaders/skeleton.vert").constData(),
               shaderSource(":/shaders/skeleton.frag").constData());
    pointCloudProgram = std::make_unique<QOpenGLShaderProgram>();
    initShader(*pointCloudProgram, shaderSource(":/shaders/pointcloud.vert").constData(),
               basicFragment.constData());
    instanceProgram = std::make_unique<QOpenGLShaderProgram>();
    initShader(*instanceProgram, shaderSource(":/shaders/instanced.vert").constData(), basicFragment.constData());
    unitShapes = std::make_unique<UnitShapeBuffers>();
    unitShapes->setup();

    buildRings();
    for (auto& map : maps)
        if (!map) map = std::make_unique<SubMapObj>();
    if (!fusedSkeletons) fusedSkeletons = std::make_unique<SkeletonInstances>();
    if (skyBox) skyBox->initializeGL();
    bodyColors.init();
    cameraColors.init();
}

void GlViewer::buildRings() {
    rings.clear();
    const lum::Vector4f lime(217.f / 255.f, 1.f, 66.f / 255.f, 1.f);
    for (int i = 0; i < 10; ++i) {
        const float t = 0.1f * float(i);
        const lum::Vector4f colour(lime.x * (1.f - t) + background.x * t, lime.y * (1.f - t) + background.y * t,
                                   lime.z * (1.f - t) + background.z * t, 1.f);
        auto ring = std::make_unique<Simple3DObject>();
        ring->isStatic = true;
        ring->setDrawingType(GL_LINE_LOOP);
        const float radius = float(i + 1);
        ring->addPoint(lum::Vector3f(radius, 0.f, 0.f), colour);
        for (int k = 1; k < 48; ++k) {
            const double angle = 2.0 * M_PI * k / 48.0;
            ring->addPoint(lum::Vector3f(radius * float(std::cos(angle)), 0.f, radius * float(std::sin(angle))),
                           colour);
        }
        ring->pushToGPU();
        rings.push_back(std::move(ring));
    }
}

void GlViewer::releaseGL() {
    std::lock_guard<std::mutex> lock(dataMutex);
    rings.clear();
    cameras.clear();
    fusedSkeletons.reset();
    rawSkeletons.clear();
    unitShapes.reset();
    for (auto& map : maps) map.reset();
    skyBox.reset();
    basicProgram.reset();
    skeletonProgram.reset();
    pointCloudProgram.reset();
    instanceProgram.reset();
}

void GlViewer::resizeGL(int width, int height) {
    const qreal scale = devicePixelRatioF();  // 1 except on high-density screens
    glViewport(0, 0, int(width * scale), int(height * scale));
    constexpr double kRadToDeg = 57.29577951308232;
    camera_.setProjection(float(2.0 * std::atan(width / 1000.0) * kRadToDeg),
                          float(2.0 * std::atan(height / 1000.0) * kRadToDeg), camera_.getZNear(),
                          camera_.getZFar());
    if (followScene) frameScene(false);
}

void GlViewer::paintGL() {
    // The text overlay paints with QPainter, which leaves its own blend state behind.
    glEnable(GL_BLEND);
    glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    glClearColor(background.x, background.y, background.z, 1.f);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    if (!basicProgram || !pointCloudProgram || !instanceProgram || !unitShapes || !fusedSkeletons || !maps[0] ||
        !maps[1])
        return;

    std::lock_guard<std::mutex> lock(dataMutex);
    const bool showRaw = SharedData::getInstance().showRawData.load();
    camera_.update();
    const QMatrix4x4 vp = toQt(camera_.getViewProjectionMatrix());
    if (isVisible()) {
        const SkeletonInstances::Viewpoint viewpoint{
            lum::Transform::inverse(camera_.getViewMatrix()).getTranslation(),
            0.5f * float(height()) / float(std::tan(camera_.getVerticalFOV() * M_PI / 360.0))};
        for (auto& entry : cameras) entry.second.model->pushToGPU();
        fusedSkeletons->pushToGPU(*unitShapes, viewpoint);
        for (auto& entry : rawSkeletons) entry.second->pushToGPU(*unitShapes, viewpoint);
        for (auto& map : maps) map->pushToGPU();
    }

    if (skyBox) skyBox->draw(vp);
    glEnable(GL_DEPTH_TEST);
    glPolygonMode(GL_FRONT_AND_BACK, GL_FILL);

    basicProgram->bind();
    basicProgram->setUniformValue("u_mvpMatrix", vp);
    for (auto& ring : rings) ring->draw();

    pointCloudProgram->bind();
    pointCloudProgram->setUniformValue("pointsize", pointSize);
    pointCloudProgram->setUniformValue("u_mvpMatrix", vp);
    for (auto& map : maps) map->draw();

    basicProgram->bind();
    for (auto& entry : cameras) {
        basicProgram->setUniformValue("u_mvpMatrix", vp * toQt(entry.second.pose));
        entry.second.model->draw();
    }
    instanceProgram->bind();
    instanceProgram->setUniformValue("u_mvpMatrix", vp);
    if (showRaw)
        for (auto& entry : rawSkeletons) entry.second->draw();
    fusedSkeletons->draw();
    instanceProgram->release();
    glDisable(GL_DEPTH_TEST);
    placeCameraLabels(vp);
    printText();
}

void GlViewer::placeCameraLabels(const QMatrix4x4& viewProjection) {
    labels.clear();
    for (const auto& [number, data] : cameras) {
        // Through the same matrix the model is drawn with, so the label sits at its apex.
        const QVector4D clip = viewProjection * toQt(data.pose) * QVector4D(0.f, 0.f, 0.f, 1.f);
        if (clip.w() <= 0.f) continue;  // behind the viewpoint
        const float x = clip.x() / clip.w(), y = clip.y() / clip.w();
        if (std::abs(x) > 1.f || std::abs(y) > 1.f) continue;
        const lum::Vector4f c = cameraColors.getDistinct(number);
        labels.push_back({number, QPointF((x + 1.f) * 0.5f * width(), (1.f - y) * 0.5f * height()),
                          QColor::fromRgbF(c.x, c.y, c.z)});
    }
}

void GlViewer::printText() {
    const bool showMetrics = !metricsText.empty() && SharedData::getInstance().showMetrics.load();
    if (labels.empty() && !showMetrics) return;
    QPainter painter(this);
    painter.setRenderHint(QPainter::TextAntialiasing);
    QFont font = painter.font();
    font.setPointSize(9);
    font.setBold(true);
    painter.setFont(font);
    // On a dark plate, so a label stays legible over skeletons and the floor rings.
    for (const CameraLabel& label : labels) {
        const QString text = QString::number(label.camera);
        QRectF box = painter.fontMetrics().boundingRect(text);
        box.moveTopLeft(label.position + QPointF(8, -box.height() - 4));
        box.adjust(-3, -1, 3, 1);
        painter.fillRect(box, QColor(0, 0, 0, 150));
        painter.setPen(label.colour);
        painter.drawText(box, Qt::AlignCenter, text);
    }
    if (!showMetrics) return;
    font.setBold(false);
    painter.setFont(font);
    // Long lines are cut at the view's edge with an ellipsis rather than running under
    // whatever stands beside the view.
    const QFontMetrics metrics(font);
    for (const ObjectClassName& line : metricsText) {
        painter.setPen(QColor::fromRgbF(line.color.x, line.color.y, line.color.z, line.color.w));
        const QString text = metrics.elidedText(QString::fromStdString(line.name), Qt::ElideRight,
                                                int(width() - line.position.x - 8));
        painter.drawText(QPointF(line.position.x, line.position.y), text);
    }
}
