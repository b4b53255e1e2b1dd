// A fused point cloud of the room (points with packed colours), uploaded whole on each
// update and drawn as points with the point-cloud program.
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
    size_t pendingPoints() const { return indices.size(); }

private:
    std::vector<lum::float4> vertices;
    std::vector<uint32_t> indices;
    unsigned int vboID[2] = {0, 0};
    std::unique_ptr<QOpenGLVertexArrayObject> vao;
    uint32_t current_fc = 0;
    // Set by update: the map is uploaded once per new cloud, not once per frame.
    bool dirty = false;
    QOpenGLContext* owner = nullptr;
};
