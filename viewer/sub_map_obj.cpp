// SubMapObj: the copy of a fused cloud and its upload into one buffer, once per new
// cloud.
#include "viewer/sub_map_obj.hpp"

#include <QOpenGLContext>


SubMapObj::~SubMapObj() {
    if (vao && owner && QOpenGLContext::currentContext() == owner) {
        glDeleteBuffers(1, &vboID);
        vao->destroy();
    }
}

void SubMapObj::update(const lum::FusedPointCloud& cloud) {
    if (cloud.vertices.empty()) return;
    vertices.assign(cloud.vertices.begin(), cloud.vertices.end());
    dirty = true;
}

void SubMapObj::pushToGPU() {
    if (vertices.empty() || !dirty) return;
    if (!vao) {
        initializeOpenGLFunctions();
        owner = QOpenGLContext::currentContext();
        vao = std::make_unique<QOpenGLVertexArrayObject>();
        vao->create();
        glGenBuffers(1, &vboID);
        vao->bind();
        glBindBuffer(GL_ARRAY_BUFFER, vboID);
        glVertexAttribPointer(0, 4, GL_FLOAT, GL_FALSE, 0, nullptr);
        glEnableVertexAttribArray(0);
        vao->release();
    }
    glBindBuffer(GL_ARRAY_BUFFER, vboID);
    const GLsizeiptr bytes = GLsizeiptr(vertices.size() * sizeof(lum::float4));
    if (vertices.size() > capacity) {
        // A growing map gets headroom, so that the next few clouds land in place.
        capacity = vertices.size() + vertices.size() / 4;
        glBufferData(GL_ARRAY_BUFFER, GLsizeiptr(capacity * sizeof(lum::float4)), nullptr, GL_DYNAMIC_DRAW);
    }
    glBufferSubData(GL_ARRAY_BUFFER, 0, bytes, vertices.data());
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    current_fc = uint32_t(vertices.size());
    dirty = false;
}

void SubMapObj::draw() {
    if (current_fc == 0 || !vao) return;
    vao->bind();
    glDrawArrays(GL_POINTS, 0, GLsizei(current_fc));
    vao->release();
}
