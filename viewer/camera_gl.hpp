// The viewer's virtual camera: an anchor point, an orbit offset, an orientation and a
// projection, giving one view-projection matrix per frame.
#pragma once

#include "lum/math.hpp"

class CameraGL {
public:
    CameraGL();

    static const lum::Translation ORIGINAL_FORWARD;
    static const lum::Translation ORIGINAL_UP;
    static const lum::Translation ORIGINAL_RIGHT;

    void update();
    void setProjection(float horizontalFOV, float verticalFOV, float znear, float zfar);
    const lum::Transform& getViewProjectionMatrix() const { return vpMatrix; }
    const lum::Transform& getViewMatrix() const { return view; }

    float getHorizontalFOV() const { return horizontalFieldOfView; }
    float getVerticalFOV() const { return verticalFieldOfView; }
    float getZNear() const { return znear; }
    float getZFar() const { return zfar; }

    void setOffsetFromPosition(const lum::Translation& o) { offset = o; }
    const lum::Translation& getOffsetFromPosition() const { return offset; }

    void setDirection(const lum::Translation& direction, const lum::Translation& vertical);
    // Looks at `centre` along `direction` from just far enough for a sphere of `radius`
    // round it to fit a widget of the given size, `topBand` pixels at its top kept free.
    // The sphere stays centred, so orbiting about the anchor keeps all of it in view.
    void frameSphere(const lum::Vector3f& centre, float radius, const lum::Translation& direction, float width,
                     float height, float topBand);
    void translate(const lum::Translation& t);
    void setTranslation(const lum::Translation& p) { position = p; }
    void setPosition(const lum::Translation& p) { position = p; }
    void rotate(const lum::Orientation& rot);
    void rotate(const lum::Rotation& rot);
    void setRotation(const lum::Orientation& rot);
    void setRotation(const lum::Rotation& rot);

    const lum::Translation& getPosition() const { return position; }
    const lum::Translation& getForward() const { return forward; }
    const lum::Translation& getRight() const { return right; }
    const lum::Translation& getUp() const { return up; }
    const lum::Translation& getVertical() const { return vertical; }
    const lum::Orientation& getRotation() const { return rotation; }

    void updateVectors();
    void updateView();
    void updateVPMatrix();

private:
    lum::Transform projection;
    lum::Translation offset;
    lum::Translation position;
    lum::Translation forward;
    lum::Translation up;
    lum::Translation right;
    lum::Translation vertical;
    lum::Orientation rotation;
    lum::Transform view;
    lum::Transform vpMatrix;
    float horizontalFieldOfView = 0.f;
    float verticalFieldOfView = 0.f;
    float znear = 0.f;
    float zfar = 0.f;
};
