// A textured cube drawn behind the scene from three images (side, top, bottom). Ready to
// be switched on; the viewer keeps a slot for it but does not create one.
#pragma once

#include <QMatrix4x4>
#include <QOpenGLBuffer>
#include <QOpenGLFunctions>
#include <QOpenGLShaderProgram>
#include <QOpenGLTexture>
#include <QOpenGLVertexArrayObject>

#include <memory>

class SkyBox : protected QOpenGLFunctions {
public:
    SkyBox();
    ~SkyBox();
    SkyBox(const SkyBox&) = delete;
    SkyBox& operator=(const SkyBox&) = delete;

    // Needs the viewer's context current.
    void initializeGL();
    // Leaves depth testing disabled; the caller turns it back on.
    void draw(const QMatrix4x4& viewProjection);

private:
    void initBox();

    QOpenGLShaderProgram program;
    std::unique_ptr<QOpenGLTexture> texture;
    QOpenGLBuffer vertexBuffer;
    QOpenGLVertexArrayObject vao;
};
