// A camera's point-cloud image (4-float pixels: x, y, z, packed colour) drawn as points
// from one GL buffer the size of the image.
#pragma once

#include <QOpenGLFunctions>
#include <QOpenGLVertexArrayObject>

#include <cstdint>
#include <mutex>
#include <vector>

#include "lum/records.hpp"

class QOpenGLContext;

class PointCloud : protected QOpenGLFunctions {
public:
    PointCloud() = default;
    ~PointCloud();
    PointCloud(const PointCloud&) = delete;
    PointCloud& operator=(const PointCloud&) = delete;

    // Needs the viewer's context current. Keeps a shared reference to the image.
    void init(lum::Mat& image);
    // Any thread: takes a copy of the image's current pixels for the next draw.
    void ingest();
    // Needs the viewer's context current; the point-cloud program bound by the caller.
    void draw();

    bool isInitialized() const { return initialized; }

private:
    uint32_t width = 0;
    uint32_t height = 0;
    std::mutex mutex;
    lum::Mat refMat;
    bool initialized = false;
    // Pixels ingested since the last draw; uploaded by the thread that owns the context.
    std::vector<lum::float4> staging;
    bool pending = false;
    unsigned int bufferGLID = 0;
    QOpenGLVertexArrayObject vao;
    QOpenGLContext* owner = nullptr;
};
