// GlViewer: the start view that frames the scene, and mouse, wheel and key steering of
// the viewer camera. Actions change only the camera; the picture follows at the next repaint.
#include "viewer/gl_viewer.hpp"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QWheelEvent>

#include <algorithm>
#include <cmath>

namespace {

// Halves round upward: 2.5 gives 3 and -2.5 gives -2.
lum::Vector2f roundedPosition(const QPointF& p) {
    return {std::floor(float(p.x()) + 0.5f), std::floor(float(p.y()) + 0.5f)};
}

}  // namespace

void GlViewer::setViewpoint(const lum::Translation& position, const lum::Translation& direction,
                            const lum::Translation& offset) {
    followScene = false;
    camera_.setPosition(position);
    camera_.setDirection(direction, lum::Translation(0.f, 1.f, 0.f));
    camera_.setOffsetFromPosition(offset);
}

void GlViewer::ResetPosition() {
    followScene = true;
    frameScene(true);
}

float GlViewer::overlayBand() const {
    if (metricsText.empty() || !SharedData::getInstance().showMetrics.load()) return 0.f;
    return metricsText.back().position.y + 6.f;  // below the last baseline's descenders
}

void GlViewer::frameScene(bool restart) {
    // The framed box only grows, so the view stays put while people walk inside it and
    // widens when someone or a calibrated camera leaves it.
    if (restart) framedAnything = false;
    auto include = [this](const lum::Vector3f& p) {
        if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z)) return;
        if (!framedAnything) {
            framedLow = framedHigh = p;
            framedAnything = true;
            return;
        }
        framedLow = {std::min(framedLow.x, p.x), std::min(framedLow.y, p.y), std::min(framedLow.z, p.z)};
        framedHigh = {std::max(framedHigh.x, p.x), std::max(framedHigh.y, p.y), std::max(framedHigh.z, p.z)};
    };
    for (const auto& entry : cameras)
        include({entry.second.pose(0, 3), entry.second.pose(1, 3), entry.second.pose(2, 3)});
    for (const lum::Vector3f& p : bodyPoints) include(p);
    framedBand = overlayBand();
    // An empty room shows the inner rings; a scene gets room for the camera models round
    // their centres and never less than a person's height.
    lum::Vector3f centre(0.f, 0.f, 0.f);
    float radius = 3.f;
    if (framedAnything) {
        centre = (framedLow + framedHigh) * 0.5f;
        radius = std::max((framedHigh - framedLow).norm() * 0.5f + 0.4f, 1.f);
    }
    camera_.frameSphere(centre, radius, {0.f, -1.4f, -1.5f}, float(width()), float(height()), framedBand);
}

void GlViewer::mousePressEvent(QMouseEvent* event) {
    if (!(event->buttons() & (Qt::LeftButton | Qt::RightButton))) return;
    mouseButton = true;
    previousMouseMotion = roundedPosition(event->localPos());
}

void GlViewer::mouseReleaseEvent(QMouseEvent*) {
    mouseButton = false;
}

void GlViewer::mouseMoveEvent(QMouseEvent* event) {
    if (!mouseButton) return;
    const lum::Vector2f current = roundedPosition(event->localPos());
    if (event->buttons() & Qt::LeftButton) {
        mouseMotion = {(current.x - previousMouseMotion.x) / 5.f, (current.y - previousMouseMotion.y) / 5.f};
        rotateCamera();
        previousMouseMotion = current;
        update();
    }
    if (event->buttons() & Qt::RightButton) {
        mouseMotion = {(current.x - previousMouseMotion.x) / 10.f, (current.y - previousMouseMotion.y) / 10.f};
        translateCamera();
        previousMouseMotion = current;
        update();
    }
}

void GlViewer::wheelEvent(QWheelEvent* event) {
    followScene = false;
    const int steps = event->angleDelta().y() / 8;
    camera_.translate(lum::Translation(camera_.getForward() * (-float(steps) * 0.01f)));
    update();
}

void GlViewer::keyPressEvent(QKeyEvent* event) {
    switch (event->key()) {
        case Qt::Key_Left: mouseMotion = {-0.1f, 0.f}; translateCamera(); break;
        case Qt::Key_Right: mouseMotion = {0.1f, 0.f}; translateCamera(); break;
        case Qt::Key_Up: mouseMotion = {0.f, -0.1f}; translateCamera(); break;
        case Qt::Key_Down: mouseMotion = {0.f, 0.1f}; translateCamera(); break;
        case Qt::Key_R: ResetPosition(); break;
        case Qt::Key_T: setViewpoint({0.f, 1.5f, -0.8f}, {0.f, -1.4f, -1.5f}, {0.f, 0.f, 4.f}); break;
        case Qt::Key_O: setViewpoint({0.f, 0.f, 0.f}, {0.f, 0.f, -1.f}, {0.f, 0.f, 1.f}); break;
        default: QOpenGLWidget::keyPressEvent(event); return;
    }
    update();
}

void GlViewer::rotateCamera() {
    followScene = false;
    camera_.rotate(lum::Rotation(mouseMotion.x * 0.03f, lum::Translation(-camera_.getVertical())));
    camera_.rotate(lum::Rotation(mouseMotion.y * 0.03f, camera_.getRight()));
}

void GlViewer::translateCamera() {
    followScene = false;
    camera_.translate(lum::Translation(camera_.getRight() * (mouseMotion.x * 0.2f)));
    camera_.translate(lum::Translation(camera_.getUp() * (mouseMotion.y * 0.2f)));
}
