// Bones and joints of many bodies as instances of the unit cylinder and sphere: 64 bytes
// per bone or joint, uploaded only where they changed, drawn in one call per shape.
#pragma once

#include <QOpenGLFunctions_3_3_Core>
#include <QOpenGLVertexArrayObject>

#include <memory>
#include <vector>

#include "viewer/unit_shapes.hpp"

class QOpenGLContext;

// What the instanced vertex shader reads per instance (locations 3-5: the rows of the
// transform, 6: the colour).
struct ShapeInstance {
    ShapeTransform transform;
    float colour[4];
};

// The unit meshes in GL, uploaded once per context and shared by every instance set.
class UnitShapeBuffers : protected QOpenGLFunctions_3_3_Core {
public:
    struct Mesh {
        unsigned int vertexBuffer = 0;
        unsigned int indexBuffer = 0;
        int indexCount = 0;
    };

    UnitShapeBuffers() = default;
    ~UnitShapeBuffers();
    UnitShapeBuffers(const UnitShapeBuffers&) = delete;
    UnitShapeBuffers& operator=(const UnitShapeBuffers&) = delete;

    // Needs the viewer's context current.
    void setup();
    // Shape 0: cylinder, 1: sphere; level 0: fine, 1: coarse.
    const Mesh& mesh(int shape, int level) const { return meshes[2 * shape + level]; }

private:
    Mesh meshes[4];
    QOpenGLContext* owner = nullptr;
};

class SkeletonInstances : protected QOpenGLFunctions_3_3_Core {
public:
    SkeletonInstances() = default;
    ~SkeletonInstances();
    SkeletonInstances(const SkeletonInstances&) = delete;
    SkeletonInstances& operator=(const SkeletonInstances&) = delete;

    // The builders the skeleton primitives call; a downward bone rises from its start.
    void addCylinder(const lum::Vector3f& start, const lum::Vector3f& end, const lum::Vector4f& colour,
                     float radius);
    void addSphere(const lum::Vector3f& centre, const lum::Vector4f& colour, float radius);
    // Starts a new set; what is still drawn is kept until the next upload.
    void clear();

    // Where the view is seen from: the eye and the pixels one metre spans one metre away.
    struct Viewpoint {
        lum::Vector3f eye;
        float focalPixels;
    };

    // Needs the viewer's context current. Gives each bone and joint the coarse shape when
    // it is only a few pixels wide from the viewpoint, then uploads only the instances
    // that differ from the last upload; returns the number of bytes sent.
    size_t pushToGPU(const UnitShapeBuffers& shapes, const Viewpoint& view);
    // The instanced program bound by the caller.
    void draw();

    const std::vector<ShapeInstance>& bones() const { return added[0]; }
    const std::vector<ShapeInstance>& joints() const { return added[1]; }

private:
    struct Batch {
        std::vector<ShapeInstance> pending;
        std::vector<ShapeInstance> uploaded;
        unsigned int buffer = 0;
        size_t capacity = 0;
        std::unique_ptr<QOpenGLVertexArrayObject> vao;
        int indexCount = 0;
    };

    void setupBatch(Batch& batch, const UnitShapeBuffers::Mesh& mesh);
    size_t upload(Batch& batch);

    std::vector<ShapeInstance> added[2];  // bones, joints
    Batch batches[4];                     // bones fine, coarse; joints fine, coarse
    QOpenGLContext* owner = nullptr;
};
