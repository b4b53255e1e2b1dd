// A fused point cloud of the room (points with packed colours) in one GL buffer that a
// new cloud overwrites in place, drawn as points in one call with the point-cloud program.
#pragma once

#include <QOpenGLFunctions>
#include <QOpenGLVertexArrayObject>

#include <cstdint>
#include <memory>
#include <vector>

#include "lum/records.hpp"

class QOpenGLContext;

class SubMapObj : protected QOpenGLFunctions {
public:
    SubMapObj() = default;
    ~SubMapObj();
    SubMapObj(const SubMapObj&) = delete;
    SubMapObj& operator=(const SubMapObj&) = delete;

    // An empty cloud keeps the previous map.
    void update(const lum::FusedPointCloud& cloud);
    void pushToGPU();
    void draw();

    uint32_t uploadedPoints() const { return current_fc; }
    size_t pendingPoints() const { return vertices.size(); }

private:
    std::vector<lum::float4> vertices;
    unsigned int vboID = 0;
    // Points the buffer can hold: a cloud no larger than the last is written in place.
    size_t capacity = 0;
    std::unique_ptr<QOpenGLVertexArrayObject> vao;
    uint32_t current_fc = 0;
    // Set by update: the map is uploaded once per new cloud, not once per frame.
    bool dirty = false;
    QOpenGLContext* owner = nullptr;
};
