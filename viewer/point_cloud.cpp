// PointCloud: the camera image reaches the GL buffer through a CPU staging copy, so the
// grabbing thread never needs the viewer's context.
#include "viewer/point_cloud.hpp"

#include <QOpenGLContext>

PointCloud::~PointCloud() {
    std::lock_guard<std::mutex> lock(mutex);
    if (!initialized) return;
    initialized = false;
    refMat.free(lum::MEM::BOTH);
    if (owner && QOpenGLContext::currentContext() == owner) {
        glDeleteBuffers(1, &bufferGLID);
        vao.destroy();
    }
}

void PointCloud::init(lum::Mat& image) {
    std::lock_guard<std::mutex> lock(mutex);
    initializeOpenGLFunctions();
    owner = QOpenGLContext::currentContext();
    refMat = image;
    width = uint32_t(image.getWidth());
    height = uint32_t(image.getHeight());
    vao.create();
    glGenBuffers(1, &bufferGLID);
    glBindBuffer(GL_ARRAY_BUFFER, bufferGLID);
    glBufferData(GL_ARRAY_BUFFER, GLsizeiptr(size_t(width) * height * sizeof(lum::float4)), nullptr,
                 GL_DYNAMIC_DRAW);
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    initialized = true;
}

void PointCloud::ingest() {
    std::lock_guard<std::mutex> lock(mutex);
    if (!initialized) return;
    const lum::float4* pixels = refMat.getPtr(lum::MEM::CPU);
    if (!pixels || refMat.getWidth() != width || refMat.getHeight() != height) return;
    staging.assign(pixels, pixels + size_t(width) * height);
    pending = true;
}

void PointCloud::draw() {
    std::lock_guard<std::mutex> lock(mutex);
    if (!initialized) return;
    vao.bind();
    glBindBuffer(GL_ARRAY_BUFFER, bufferGLID);
    if (pending) {
        glBufferSubData(GL_ARRAY_BUFFER, 0, GLsizeiptr(staging.size() * sizeof(lum::float4)), staging.data());
        pending = false;
    }
    glEnableVertexAttribArray(0);
    glVertexAttribPointer(0, 4, GL_FLOAT, GL_FALSE, 0, nullptr);
    glDrawArrays(GL_POINTS, 0, GLsizei(size_t(width) * height));
    vao.release();
    glBindBuffer(GL_ARRAY_BUFFER, 0);
}
