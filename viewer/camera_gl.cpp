// CameraGL: aim, orbit and projection arithmetic of the viewer's camera, on the camera
// API's vector, quaternion and matrix types.
#include "viewer/camera_gl.hpp"

#include <algorithm>
#include <cmath>

const lum::Translation CameraGL::ORIGINAL_FORWARD = lum::Translation(0, 0, 1);
const lum::Translation CameraGL::ORIGINAL_UP = lum::Translation(0, 1, 0);
const lum::Translation CameraGL::ORIGINAL_RIGHT = lum::Translation(1, 0, 0);

CameraGL::CameraGL() {
    position = lum::Translation(0, 0, 0);
    setDirection(lum::Translation(0, 0, -1), lum::Translation(0, 1, 0));
    offset = lum::Translation(0, 0, 1);
    view.setIdentity();
    updateView();
    updateVPMatrix();
}

void CameraGL::update() {
    if (lum::Vector3f::dot(vertical, up) < 0.f) vertical = -vertical;
    updateView();
    updateVPMatrix();
}

void CameraGL::setProjection(float horizontalFOV, float verticalFOV, float znear_, float zfar_) {
    horizontalFieldOfView = horizontalFOV;
    verticalFieldOfView = verticalFOV;
    znear = znear_;
    zfar = zfar_;
    constexpr double kDegToRad = 3.141592653589793 / 180.0;
    const double fovx = horizontalFOV * kDegToRad * 0.5;
    const double fovy = verticalFOV * kDegToRad * 0.5;
    // Near plane to depth 0 rather than -1; depth testing works the same with it.
    projection.setIdentity();
    projection(0, 0) = float(1.0 / std::tan(fovx));
    projection(1, 1) = float(1.0 / std::tan(fovy));
    projection(2, 2) = -zfar / (zfar - znear);
    projection(2, 3) = -(zfar * znear) / (zfar - znear);
    projection(3, 2) = -1.f;
    projection(3, 3) = 0.f;
}

void CameraGL::updateVPMatrix() {
    const lum::Matrix4f& p = projection;
    vpMatrix = p * view;
}

void CameraGL::translate(const lum::Translation& t) {
    position = position + t;
}

void CameraGL::rotate(const lum::Orientation& rot) {
    rotation = rot * rotation;
    updateVectors();
}

void CameraGL::rotate(const lum::Rotation& rot) {
    rotate(lum::Orientation(rot));
}

void CameraGL::setRotation(const lum::Orientation& rot) {
    rotation = rot;
    updateVectors();
}

void CameraGL::setRotation(const lum::Rotation& rot) {
    setRotation(lum::Orientation(rot));
}

void CameraGL::setDirection(const lum::Translation& direction, const lum::Translation& vertical_) {
    const lum::Translation d = direction.normalised();
    // The camera's forward axis points away from what it looks at.
    rotation = lum::Orientation(ORIGINAL_FORWARD, lum::Translation(-d));
    updateVectors();
    vertical = vertical_;
    if (lum::Vector3f::dot(vertical, up) < 0.f) rotate(lum::Rotation(3.1415927f, ORIGINAL_FORWARD));
}

void CameraGL::frameSphere(const lum::Vector3f& centre, float radius, const lum::Translation& direction,
                           float width, float height, float topBand) {
    constexpr double kDegToRad = 3.141592653589793 / 180.0;
    constexpr float kMarginPx = 12.f, kSmallestPx = 24.f;
    const double focalX = 0.5 * width / std::tan(horizontalFieldOfView * kDegToRad * 0.5);
    const double focalY = 0.5 * height / std::tan(verticalFieldOfView * kDegToRad * 0.5);
    // The band is only at the top, but the sphere stays centred: it gets the same room below.
    const double availableX = std::max(0.5f * width - kMarginPx, kSmallestPx);
    const double availableY = std::max(0.5f * height - topBand - kMarginPx, kSmallestPx);
    // A centred sphere seen from distance d projects to a circle of radius f r / sqrt(d^2 - r^2).
    const double ratio = std::max(focalX / availableX, focalY / availableY);
    const double distance = double(radius) * std::sqrt(1.0 + ratio * ratio);
    setPosition(lum::Translation(centre.x, centre.y, centre.z));
    setDirection(direction, lum::Translation(0.f, 1.f, 0.f));
    setOffsetFromPosition(lum::Translation(0.f, 0.f, float(distance)));
}

void CameraGL::updateVectors() {
    forward = ORIGINAL_FORWARD * rotation;
    up = ORIGINAL_UP * rotation;
    right = lum::Translation(-ORIGINAL_RIGHT) * rotation;
}

void CameraGL::updateView() {
    const lum::Translation eye = lum::Translation(offset * rotation) + position;
    view = lum::Transform::inverse(lum::Transform(rotation, eye));
}
