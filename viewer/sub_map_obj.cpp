// SubMapObj: the copy of a fused cloud and its upload into one vertex-array object,
// once per new cloud.
#include "viewer/sub_map_obj.hpp"

#include <QOpenGLContext>

#include <numeric>

SubMapObj::~SubMapObj() {
    if (vao && owner && QOpenGLContext::currentContext() == owner) {
        glDeleteBuffers(2, vboID);
        vao->destroy();
    }
}

void SubMapObj::update(const lum::FusedPointCloud& cloud) {
    const size_t n = cloud.vertices.size();
    if (n == 0) return;
    indices.resize(n);
    std::iota(indices.begin(), indices.end(), 0u);
    vertices.assign(cloud.vertices.begin(), cloud.vertices.end());
    dirty = true;
}

void SubMapObj::pushToGPU() {
    if (indices.empty() || !dirty) return;
    if (!vao) {
        initializeOpenGLFunctions();
        owner = QOpenGLContext::currentContext();
        vao = std::make_unique<QOpenGLVertexArrayObject>();
        vao->create();
        glGenBuffers(2, vboID);
    }
    vao->bind();
    glBindBuffer(GL_ARRAY_BUFFER, vboID[0]);
    glBufferData(GL_ARRAY_BUFFER, GLsizeiptr(vertices.size() * sizeof(lum::float4)), vertices.data(),
                 GL_DYNAMIC_DRAW);
    glVertexAttribPointer(0, 4, GL_FLOAT, GL_FALSE, 0, nullptr);
    glEnableVertexAttribArray(0);
    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, vboID[1]);
    glBufferData(GL_ELEMENT_ARRAY_BUFFER, GLsizeiptr(indices.size() * sizeof(uint32_t)), indices.data(),
                 GL_DYNAMIC_DRAW);
    vao->release();
    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, 0);
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    current_fc = uint32_t(indices.size());
    dirty = false;
}

void SubMapObj::draw() {
    if (current_fc == 0 || !vao) return;
    vao->bind();
    glDrawElements(GL_POINTS, GLsizei(current_fc), GL_UNSIGNED_INT, nullptr);
    vao->release();
}
