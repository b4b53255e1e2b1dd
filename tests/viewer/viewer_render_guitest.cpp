// The viewer rendered off-screen under Xvfb: what appears where, busy shared groups,
// steering, and surviving a change of GL context. Pictures go to the build folder.
#include <QApplication>
#include <QDir>
#include <QImage>
#include <QMainWindow>
#include <QMouseEvent>
#include <QOpenGLFramebufferObject>
#include <QWheelEvent>
#include <QtTest>

#include <atomic>
#include <cmath>
#include <condition_variable>
#include <cstring>
#include <thread>

#include "viewer/gl_viewer.hpp"
#include "viewer/point_cloud.hpp"
#include "viewer/skeleton_primitives.hpp"

namespace {

const int kWidth = 640, kHeight = 480;

lum::BodyData standingBody(int id, float x, float z) {
    lum::BodyData body;
    body.id = id;
    // No bone exactly vertical: those are drawn upward from their first keypoint.
    const float k[18][2] = {{0.01f, 1.65f}, {0, 1.5f},  {-0.2f, 1.45f}, {-0.25f, 1.2f}, {-0.27f, 0.95f},
                            {0.2f, 1.45f}, {0.25f, 1.2f}, {0.27f, 0.95f}, {-0.1f, 1.f},   {-0.12f, 0.5f},
                            {-0.13f, 0.05f}, {0.1f, 1.f},  {0.12f, 0.5f},  {0.13f, 0.05f},  {-0.03f, 1.68f},
                            {0.03f, 1.68f}, {-0.07f, 1.65f}, {0.07f, 1.65f}};
    for (const auto& p : k) body.keypoint.emplace_back(x + p[0], p[1], z);
    return body;
}

QPoint pixelOf(GlViewer& viewer, const lum::Vector3f& p) {
    viewer.camera().update();
    const lum::Vector4f c = viewer.camera().getViewProjectionMatrix() * lum::Vector4f(p.x, p.y, p.z, 1.f);
    return QPoint(int((c.x / c.w + 1.f) * 0.5f * viewer.width()), int((1.f - c.y / c.w) * 0.5f * viewer.height()));
}

int colourDistance(QRgb a, const lum::Vector4f& c) {
    return std::abs(qRed(a) - int(c.x * 255.f + 0.5f)) + std::abs(qGreen(a) - int(c.y * 255.f + 0.5f)) +
           std::abs(qBlue(a) - int(c.z * 255.f + 0.5f));
}

void send(QWidget& w, QEvent::Type type, QPointF at, Qt::MouseButtons buttons) {
    QMouseEvent event(type, at, at, Qt::NoButton, buttons, Qt::NoModifier);
    QApplication::sendEvent(&w, &event);
}

}  // namespace

class ViewerRenderTest : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<GlViewer> viewer;

    QImage render(const char* name) {
        viewer->updateData();
        QImage image = viewer->grabFramebuffer().convertToFormat(QImage::Format_RGB32);
        const QString dir = QStringLiteral(HALDEN_BINARY_DIR "/tests/viewer/images");
        QDir().mkpath(dir);
        image.save(dir + "/viewer_" + name + ".png");
        return image;
    }

private slots:
    void init() {
        viewer = std::make_unique<GlViewer>();
        viewer->resize(kWidth, kHeight);
        viewer->show();
        QVERIFY(QTest::qWaitForWindowExposed(viewer.get()));
        viewer->reset();
        SharedData::getInstance().showRawData = false;
        SharedData::getInstance().showMetrics = false;
        // Pictures compared across scene changes need a view that does not reframe.
        viewer->setFollowScene(false);
    }

    void cleanup() { viewer.reset(); }

    void emptySceneIsBackgroundAndRings() {
        const QImage image = render("empty");
        const lum::Vector3f bg = viewer->backgroundColor();
        const float lime[3] = {217.f / 255.f, 1.f, 66.f / 255.f};
        int ringPixels = 0;
        for (int y = 0; y < image.height(); ++y)
            for (int x = 0; x < image.width(); ++x) {
                const QRgb p = image.pixel(x, y);
                // Every pixel lies on the blend from the background to lime green.
                const float t = (qGreen(p) / 255.f - bg.y) / (lime[1] - bg.y);
                QVERIFY2(t > -0.02f && t < 1.02f, qPrintable(QString("pixel %1,%2").arg(x).arg(y)));
                QVERIFY(std::abs(qRed(p) / 255.f - (bg.x + t * (lime[0] - bg.x))) < 0.03f);
                QVERIFY(std::abs(qBlue(p) / 255.f - (bg.z + t * (lime[2] - bg.z))) < 0.03f);
                ringPixels += t > 0.1f;
            }
        QVERIFY(ringPixels > 500);
    }

    void skeletonShowsItsPaletteColourWhereItProjects() {
        SharedData& shared = SharedData::getInstance();
        {
            std::lock_guard<std::mutex> lock(shared.skeletonMutex);
            shared.fusedBodies.body_list = {standingBody(7, -0.6f, 0.f)};
            shared.cameraBodies[lum::CameraIdentifier(41001)].body_list = {standingBody(9, 0.8f, 0.f)};
        }
        shared.showRawData = true;
        viewer->camera().setPosition({0.f, 1.f, 0.f});
        viewer->camera().setDirection({0.f, 0.f, -1.f}, {0.f, 1.f, 0.f});
        viewer->camera().setOffsetFromPosition({0.f, 0.f, 2.5f});
        const QImage image = render("skeleton");
        // Mid-thigh of the fused body (bones only) and of the raw one (camera colour).
        const QPoint fused = pixelOf(*viewer, {-0.71f, 0.75f, 0.f});
        QVERIFY(colourDistance(image.pixel(fused), viewer->bodyPalette().get(7)) <= 6);
        const QPoint raw = pixelOf(*viewer, {0.69f, 0.75f, 0.f});
        QVERIFY(colourDistance(image.pixel(raw), viewer->cameraPalette().get(41001)) <= 6);
        // Between the two bodies: only background.
        const QPoint gap = pixelOf(*viewer, {0.1f, 1.2f, 0.f});
        QVERIFY(colourDistance(image.pixel(gap), {viewer->backgroundColor().x, viewer->backgroundColor().y,
                                                  viewer->backgroundColor().z, 1.f}) <= 3);
    }

    void fusedCloudShowsPackedColoursAndOutlivesAnEmptyCloud() {
        SharedData& shared = SharedData::getInstance();
        const uint32_t orange = 0x00FF8000u;
        float packed;
        std::memcpy(&packed, &orange, sizeof(packed));
        {
            std::lock_guard<std::mutex> lock(shared.mappingCloudMutex);
            for (int i = 0; i < 40; ++i)
                for (int j = 0; j < 40; ++j)
                    shared.mappingCloud.vertices.emplace_back(-0.2f + 0.01f * i, 0.8f + 0.01f * j, 0.f, packed);
        }
        const QPoint centre = pixelOf(*viewer, {0.f, 1.f, 0.f});
        QCOMPARE(render("cloud").pixel(centre), qRgb(255, 128, 0));
        {
            std::lock_guard<std::mutex> lock(shared.mappingCloudMutex);
            shared.mappingCloud.clear();
        }
        QCOMPARE(render("cloud_kept").pixel(centre), qRgb(255, 128, 0));

        // A smaller cloud lands in the same buffer: the points beyond it must not linger.
        const uint32_t blue = 0x000000FFu;
        std::memcpy(&packed, &blue, sizeof(packed));
        {
            std::lock_guard<std::mutex> lock(shared.mappingCloudMutex);
            for (int i = 0; i < 10; ++i)
                for (int j = 0; j < 10; ++j)
                    shared.mappingCloud.vertices.emplace_back(0.5f + 0.01f * i, 0.5f + 0.01f * j, 0.f, packed);
        }
        const QImage smaller = render("cloud_smaller");
        QCOMPARE(smaller.pixel(pixelOf(*viewer, {0.545f, 0.545f, 0.f})), qRgb(0, 0, 255));
        QVERIFY(colourDistance(smaller.pixel(centre), {viewer->backgroundColor().x, viewer->backgroundColor().y,
                                                       viewer->backgroundColor().z, 1.f}) <= 3);
    }

    void skeletonInstancesUploadOnlyWhatChanged() {
        viewer->makeCurrent();
        {
            UnitShapeBuffers shapes;
            shapes.setup();
            SkeletonInstances set;
            const lum::Vector4f red(1.f, 0.f, 0.f, 1.f);
            auto fill = [&](float secondX) {
                set.clear();
                addSkeletonPrimitive(standingBody(1, 0.f, 0.f), set, red, true);
                addSkeletonPrimitive(standingBody(2, secondX, 0.f), set, red, true);
            };
            const size_t perBody = (lum::BODY_18_BONES.size() + 18) * sizeof(ShapeInstance);
            // Far enough that every shape stays coarse: only the data decides what is sent.
            const SkeletonInstances::Viewpoint far{{0.f, 1.f, 50.f}, 500.f};
            fill(1.f);
            QCOMPARE(set.pushToGPU(shapes, far), 2 * perBody);
            fill(1.f);
            QCOMPARE(set.pushToGPU(shapes, far), size_t(0));  // nobody moved
            fill(1.2f);
            QCOMPARE(set.pushToGPU(shapes, far), perBody);  // only the second body's bones and joints
            set.clear();
            addSkeletonPrimitive(standingBody(1, 0.f, 0.f), set, red, true);
            QCOMPARE(set.pushToGPU(shapes, far), size_t(0));  // the second left: drawn count shrinks only
        }
        viewer->doneCurrent();
    }

    void cameraPointCloudDrawsWhatWasIngested() {
        viewer->makeCurrent();
        auto source = [](const char* path) {
            QFile file(path);
            return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
        };
        QOpenGLShaderProgram program;
        GlViewer::initShader(program, source(":/shaders/pointcloud.vert").constData(),
                             source(":/shaders/basic.frag").constData());
        QVERIFY(program.isLinked());
        QOpenGLFramebufferObject target(32, 32);
        QVERIFY(target.bind());
        lum::Mat image(lum::Resolution(32, 32));
        const uint32_t teal = 0x0000A0A0u;
        float packed;
        std::memcpy(&packed, &teal, sizeof(packed));
        for (size_t i = 0; i < 32 * 32; ++i)  // one point per pixel centre, clip space
            image.getPtr()[i] = lum::float4((int(i % 32) + 0.5f) / 16.f - 1.f, (int(i / 32) + 0.5f) / 16.f - 1.f,
                                            0.f, packed);
        {
            PointCloud cloud;
            cloud.init(image);
            cloud.ingest();
            auto* gl = QOpenGLContext::currentContext()->functions();
            gl->glViewport(0, 0, 32, 32);
            gl->glClearColor(0.f, 0.f, 0.f, 1.f);
            gl->glClear(GL_COLOR_BUFFER_BIT);
            program.bind();
            program.setUniformValue("u_mvpMatrix", QMatrix4x4());
            program.setUniformValue("pointsize", 1.f);
            cloud.draw();
            program.release();
            const QImage drawn = target.toImage();
            QCOMPARE(drawn.pixel(0, 0), qRgb(0, 0xA0, 0xA0));
            QCOMPARE(drawn.pixel(31, 17), qRgb(0, 0xA0, 0xA0));
        }
        target.release();
        viewer->doneCurrent();
    }

    void cameraModelAppearsWhereItIsPlaced() {
        const QImage empty = render("empty_reference");
        SharedData& shared = SharedData::getInstance();
        const lum::Transform atRight(lum::Orientation(lum::Translation(0, 0, -1), lum::Translation(-1, 0, 0)),
                                     lum::Translation(2.5f, 1.f, 0.f));
        {
            std::lock_guard<std::mutex> lock(shared.positionMutex);
            shared.cameraPoses[lum::CameraIdentifier(41002)].pose_data = atRight;
        }
        const QImage placed = render("camera_right");
        int left = 0, right = 0;
        for (int y = 0; y < kHeight; ++y)
            for (int x = 0; x < kWidth; ++x)
                if (placed.pixel(x, y) != empty.pixel(x, y)) ++(x < kWidth / 2 ? left : right);
        QCOMPARE(left, 0);
        QVERIFY(right > 100);
        QCOMPARE(viewer->cameraPose(41002), lum::Matrix4f(atRight));  // no placement: its own pose

        // A calibrated placement replaces the camera's pose.
        const lum::Transform placement(lum::Orientation(), lum::Translation(-2.f, 1.f, 0.f));
        {
            std::lock_guard<std::mutex> lock(shared.positionMutex);
            shared.cameraTransforms[lum::CameraIdentifier(41002)] = placement;
        }
        viewer->updateData();
        QCOMPARE(viewer->cameraPose(41002), lum::Matrix4f(placement));
    }

    void busyGroupKeepsItsPictureAndOthersRefresh() {
        SharedData& shared = SharedData::getInstance();
        {
            std::lock_guard<std::mutex> lock(shared.skeletonMutex);
            shared.fusedBodies.body_list = {standingBody(3, 0.f, 0.f)};
        }
        const QImage before = render("busy_before");
        {
            std::lock_guard<std::mutex> lock(shared.skeletonMutex);
            shared.fusedBodies.body_list = {standingBody(3, 1.5f, 0.f)};
        }
        {
            std::lock_guard<std::mutex> lock(shared.positionMutex);
            shared.cameraPoses[lum::CameraIdentifier(41003)].pose_data =
                lum::Transform(lum::Orientation(), lum::Translation(0.f, 2.f, -2.f));
        }
        // Another thread (as the fusion worker would) holds the skeleton group until the
        // refresh has returned, or a generous time-out has passed.
        std::mutex m;
        std::condition_variable cv;
        bool held = false, refreshed = false;
        std::thread worker([&] {
            std::lock_guard<std::mutex> group(shared.skeletonMutex);
            std::unique_lock<std::mutex> lock(m);
            held = true;
            cv.notify_all();
            cv.wait_for(lock, std::chrono::seconds(20), [&] { return refreshed; });
        });
        {
            std::unique_lock<std::mutex> lock(m);
            cv.wait(lock, [&] { return held; });
        }
        viewer->updateData();
        bool returnedWhileHeld;
        {
            std::lock_guard<std::mutex> lock(m);
            returnedWhileHeld = !refreshed;
            refreshed = true;
        }
        cv.notify_all();
        worker.join();
        QVERIFY(returnedWhileHeld);
        QCOMPARE(viewer->cameraCount(), size_t(1));  // the position group was refreshed
        const QImage during = viewer->grabFramebuffer().convertToFormat(QImage::Format_RGB32);
        const QPoint body = pixelOf(*viewer, {0.005f, 1.575f, 0.f});  // neck: the old skeleton still drawn
        QCOMPARE(during.pixel(body), before.pixel(body));
        const QImage after = render("busy_after");
        QVERIFY(after.pixel(body) != before.pixel(body));  // moved once the group is free
    }

    void steeringMovesTheViewTheRightWay() {
        const lum::Vector3f origin(0.f, 0.f, 0.f);
        const QPoint start = pixelOf(*viewer, origin);
        // Right-drag to the right: the scene follows the mouse.
        send(*viewer, QEvent::MouseButtonPress, {100, 100}, Qt::RightButton);
        send(*viewer, QEvent::MouseMove, {150, 100}, Qt::RightButton);
        send(*viewer, QEvent::MouseButtonRelease, {150, 100}, Qt::NoButton);
        const QPoint panned = pixelOf(*viewer, origin);
        QVERIFY(panned.x() > start.x() + 20);
        QVERIFY(std::abs(panned.y() - start.y()) <= 1);

        // Middle button: no drag starts.
        send(*viewer, QEvent::MouseButtonPress, {100, 100}, Qt::MiddleButton);
        send(*viewer, QEvent::MouseMove, {300, 300}, Qt::MiddleButton);
        QCOMPARE(pixelOf(*viewer, origin), panned);

        // Left-drag orbits about the anchor, which stays in the centre of the view.
        const lum::Vector3f anchor = viewer->camera().getPosition();
        send(*viewer, QEvent::MouseButtonPress, {100, 100}, Qt::LeftButton);
        send(*viewer, QEvent::MouseMove, {160, 120}, Qt::LeftButton);
        send(*viewer, QEvent::MouseButtonRelease, {160, 120}, Qt::NoButton);
        QVERIFY(pixelOf(*viewer, origin) != panned);
        const QPoint centre = pixelOf(*viewer, anchor);
        QVERIFY(std::abs(centre.x() - kWidth / 2) <= 1 && std::abs(centre.y() - kHeight / 2) <= 1);
        QVERIFY(viewer->camera().getUp().y > 0.f);

        // One wheel notch moves 0.15 m towards the scene; a sub-step moves nothing.
        QTest::keyClick(viewer.get(), Qt::Key_R);
        const lum::Vector3f before = viewer->camera().getPosition();
        auto wheel = [&](int delta) {
            QWheelEvent event(QPointF(10, 10), QPointF(10, 10), QPoint(), QPoint(0, delta), Qt::NoButton,
                              Qt::NoModifier, Qt::NoScrollPhase, false);
            QApplication::sendEvent(viewer.get(), &event);
        };
        wheel(7);
        QCOMPARE(viewer->camera().getPosition(), before);
        wheel(120);
        const lum::Vector3f moved = viewer->camera().getPosition() - before;
        QVERIFY(std::abs(moved.norm() - 0.15f) < 1e-4f);
        QVERIFY(lum::Vector3f::dot(moved, viewer->camera().getForward()) < 0.f);

        // Arrow keys pan 2 cm; R returns to the start.
        QTest::keyClick(viewer.get(), Qt::Key_Left);
        QVERIFY(pixelOf(*viewer, origin).x() < start.x());
        QTest::keyClick(viewer.get(), Qt::Key_R);
        QCOMPARE(pixelOf(*viewer, origin), start);

        // The field of view follows the widget, as for a 1000-pixel focal length.
        viewer->resize(1000, 400);
        viewer->grabFramebuffer();
        QVERIFY(std::abs(viewer->camera().getHorizontalFOV() - 90.f) < 1e-3f);
    }

    void startViewFramesTheRoomClearOfTheTextAndDragOrbitsIt() {
        SharedData& shared = SharedData::getInstance();
        const lum::Vector3f corners[4] = {{-4.f, 2.5f, -4.f}, {4.f, 2.5f, -4.f}, {4.f, 2.5f, 4.f}, {-4.f, 2.5f, 4.f}};
        {
            std::lock_guard<std::mutex> lock(shared.positionMutex);
            for (int i = 0; i < 4; ++i)
                shared.cameraPoses[lum::CameraIdentifier(41010 + i)].pose_data = lum::Transform(
                    lum::Orientation(), lum::Translation(corners[i].x, corners[i].y, corners[i].z));
        }
        {
            std::lock_guard<std::mutex> lock(shared.skeletonMutex);
            shared.fusedBodies.body_list = {standingBody(1, 3.f, 3.f)};
        }
        {
            std::lock_guard<std::mutex> lock(shared.metricsMutex);
            for (int i = 0; i < 4; ++i) shared.metrics.camera_individual_stats[lum::CameraIdentifier(41010 + i)];
        }
        shared.showMetrics = true;
        QTest::keyClick(viewer.get(), Qt::Key_R);
        const QImage framed = render("framed");
        QCOMPARE(viewer->overlayLines().size(), size_t(5));
        // The metrics lines are longer than this view is wide: they end before its edge.
        const lum::Vector3f& back = viewer->backgroundColor();
        for (int y = 4; y < 70; ++y)
            for (int x = kWidth - 6; x < kWidth; ++x)
                QVERIFY2(colourDistance(framed.pixel(x, y), {back.x, back.y, back.z, 1.f}) < 30,
                         qPrintable(QString("text at %1,%2").arg(x).arg(y)));
        const float textBottom = viewer->overlayLines().back().position.y + 4.f;
        auto allInView = [&] {
            for (const lum::Vector3f& c : corners) {
                const QPoint p = pixelOf(*viewer, c);
                if (p.x() < 0 || p.x() >= kWidth || p.y() <= textBottom || p.y() >= kHeight) return false;
            }
            const QPoint head = pixelOf(*viewer, {3.f, 1.7f, 3.f});
            return head.x() >= 0 && head.x() < kWidth && head.y() > textBottom && head.y() < kHeight;
        };
        QVERIFY(allInView());

        // Each camera is named beside its model, and no two share a colour.
        const std::vector<CameraLabel>& labels = viewer->cameraLabels();
        QCOMPARE(labels.size(), size_t(4));
        for (const CameraLabel& label : labels) {
            const QPoint model = pixelOf(*viewer, corners[label.camera - 41010]);
            QVERIFY((label.position - QPointF(model)).manhattanLength() < 2.0);
            for (const CameraLabel& other : labels)
                if (other.camera != label.camera)
                    QVERIFY2(PaletteGenerator::deltaE(label.colour, other.colour) >= 25.f,
                             qPrintable(label.colour.name() + " " + other.colour.name()));
        }

        // A long sideways drag turns the room about its middle: it stays in view.
        const QPoint before = pixelOf(*viewer, corners[0]);
        send(*viewer, QEvent::MouseButtonPress, {100, 300}, Qt::LeftButton);
        send(*viewer, QEvent::MouseMove, {400, 300}, Qt::LeftButton);
        send(*viewer, QEvent::MouseButtonRelease, {400, 300}, Qt::NoButton);
        QVERIFY(pixelOf(*viewer, corners[0]) != before);
        QVERIFY(allInView());

        // Once steered, the view no longer follows the scene; R frames it again.
        {
            std::lock_guard<std::mutex> lock(shared.positionMutex);
            shared.cameraPoses[lum::CameraIdentifier(41020)].pose_data =
                lum::Transform(lum::Orientation(), lum::Translation(0.f, 2.5f, 12.f));
        }
        const lum::Vector3f anchor = viewer->camera().getPosition();
        viewer->updateData();
        QCOMPARE(viewer->camera().getPosition(), anchor);
        QTest::keyClick(viewer.get(), Qt::Key_R);
        const QPoint far = pixelOf(*viewer, {0.f, 2.5f, 12.f});
        QVERIFY(far.x() >= 0 && far.x() < kWidth && far.y() > textBottom && far.y() < kHeight);
    }

    void survivesANewContextAndReopening() {
        SharedData& shared = SharedData::getInstance();
        {
            std::lock_guard<std::mutex> lock(shared.positionMutex);
            shared.cameraPoses[lum::CameraIdentifier(41004)].pose_data =
                lum::Transform(lum::Orientation(), lum::Translation(1.f, 1.f, 0.f));
        }
        const QImage first = render("context_first");
        // Moving the widget to another window replaces its GL context.
        QMainWindow window;
        viewer->setParent(&window);
        window.setCentralWidget(viewer.get());
        window.resize(kWidth, kHeight);
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        viewer->resize(kWidth, kHeight);
        const QImage second = render("context_second");
        QCOMPARE(second, first);
        viewer->reset();
        const QImage empty = viewer->grabFramebuffer().convertToFormat(QImage::Format_RGB32);
        viewer.release();  // owned by the window from here on

        for (int i = 0; i < 3; ++i) {
            GlViewer again;
            again.resize(kWidth, kHeight);
            again.show();
            QVERIFY(QTest::qWaitForWindowExposed(&again));
            again.updateData();
            QCOMPARE(again.grabFramebuffer().convertToFormat(QImage::Format_RGB32), empty);
        }
    }
};

QTEST_MAIN(ViewerRenderTest)
#include "viewer_render_guitest.moc"
