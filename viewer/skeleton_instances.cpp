// SkeletonInstances: instance lists, their partial upload, and the instanced draw calls.
#include "viewer/skeleton_instances.hpp"

#include <QOpenGLContext>

#include <algorithm>
#include <cstring>

namespace {

constexpr GLuint kRowLocation = 3;     // three rows: 3, 4, 5
constexpr GLuint kColourLocation = 6;
// Below this radius on screen the coarse shapes' outline stays within a pixel of the fine
// one's, at a third of the triangles or less.
constexpr float kCoarseRadiusPixels = 3.f;

ShapeInstance makeInstance(const ShapeTransform& transform, const lum::Vector4f& colour) {
    return {transform, {colour.x, colour.y, colour.z, colour.w}};
}

bool sameInstance(const ShapeInstance& a, const ShapeInstance& b) {
    return std::memcmp(&a, &b, sizeof(ShapeInstance)) == 0;
}

lum::Vector3f column(const ShapeTransform& t, int j) {
    return {t.m[0][j], t.m[1][j], t.m[2][j]};
}

// The radius on screen, seen from the nearer end of the shape's axis.
float radiusPixels(const ShapeInstance& instance, const SkeletonInstances::Viewpoint& view) {
    const ShapeTransform& t = instance.transform;
    const lum::Vector3f base = column(t, 3), axis = column(t, 1);
    const float distance = std::min((base - view.eye).norm(), (base + axis - view.eye).norm());
    return column(t, 0).norm() * view.focalPixels / std::max(distance, 1e-3f);
}

}  // namespace

UnitShapeBuffers::~UnitShapeBuffers() {
    if (!owner || QOpenGLContext::currentContext() != owner) return;
    for (Mesh& mesh : meshes) {
        glDeleteBuffers(1, &mesh.vertexBuffer);
        glDeleteBuffers(1, &mesh.indexBuffer);
    }
}

void UnitShapeBuffers::setup() {
    if (owner) return;
    initializeOpenGLFunctions();
    owner = QOpenGLContext::currentContext();
    const UnitMesh* sources[4] = {&unitCylinder(), &coarseCylinder(), &unitSphere(), &coarseSphere()};
    for (int i = 0; i < 4; ++i) {
        Mesh& mesh = meshes[i];
        glGenBuffers(1, &mesh.vertexBuffer);
        glBindBuffer(GL_ARRAY_BUFFER, mesh.vertexBuffer);
        glBufferData(GL_ARRAY_BUFFER, GLsizeiptr(sources[i]->vertices.size() * sizeof(float)),
                     sources[i]->vertices.data(), GL_STATIC_DRAW);
        glGenBuffers(1, &mesh.indexBuffer);
        glBindBuffer(GL_ARRAY_BUFFER, mesh.indexBuffer);
        glBufferData(GL_ARRAY_BUFFER, GLsizeiptr(sources[i]->indices.size() * sizeof(uint32_t)),
                     sources[i]->indices.data(), GL_STATIC_DRAW);
        mesh.indexCount = int(sources[i]->indices.size());
    }
    glBindBuffer(GL_ARRAY_BUFFER, 0);
}

SkeletonInstances::~SkeletonInstances() {
    if (!owner || QOpenGLContext::currentContext() != owner) return;
    for (Batch& batch : batches) {
        glDeleteBuffers(1, &batch.buffer);
        batch.vao->destroy();
    }
}

void SkeletonInstances::addCylinder(const lum::Vector3f& start, const lum::Vector3f& end,
                                    const lum::Vector4f& colour, float radius) {
    added[0].push_back(makeInstance(cylinderTransform(start, end, radius), colour));
}

void SkeletonInstances::addSphere(const lum::Vector3f& centre, const lum::Vector4f& colour, float radius) {
    added[1].push_back(makeInstance(sphereTransform(centre, radius), colour));
}

void SkeletonInstances::clear() {
    for (auto& list : added) list.clear();
}

void SkeletonInstances::setupBatch(Batch& batch, const UnitShapeBuffers::Mesh& mesh) {
    batch.vao = std::make_unique<QOpenGLVertexArrayObject>();
    batch.vao->create();
    batch.vao->bind();
    glBindBuffer(GL_ARRAY_BUFFER, mesh.vertexBuffer);
    glVertexAttribPointer(0, 3, GL_FLOAT, GL_FALSE, 0, nullptr);
    glEnableVertexAttribArray(0);
    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, mesh.indexBuffer);
    glGenBuffers(1, &batch.buffer);
    glBindBuffer(GL_ARRAY_BUFFER, batch.buffer);
    for (GLuint row = 0; row < 3; ++row) {
        glVertexAttribPointer(kRowLocation + row, 4, GL_FLOAT, GL_FALSE, sizeof(ShapeInstance),
                              reinterpret_cast<const void*>(row * 4 * sizeof(float)));
        glEnableVertexAttribArray(kRowLocation + row);
        glVertexAttribDivisor(kRowLocation + row, 1);
    }
    glVertexAttribPointer(kColourLocation, 4, GL_FLOAT, GL_FALSE, sizeof(ShapeInstance),
                          reinterpret_cast<const void*>(offsetof(ShapeInstance, colour)));
    glEnableVertexAttribArray(kColourLocation);
    glVertexAttribDivisor(kColourLocation, 1);
    batch.vao->release();
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, 0);
    batch.indexCount = mesh.indexCount;
}

size_t SkeletonInstances::upload(Batch& batch) {
    const std::vector<ShapeInstance>& next = batch.pending;
    const std::vector<ShapeInstance>& last = batch.uploaded;
    // Everything from the first instance that differs to the last one that does: people
    // who stood still, and a camera that saw nobody new, cost nothing.
    size_t first = 0;
    const size_t common = std::min(next.size(), last.size());
    while (first < common && sameInstance(next[first], last[first])) ++first;
    size_t end = next.size();
    if (next.size() == last.size())
        while (end > first && sameInstance(next[end - 1], last[end - 1])) --end;
    if (first >= end) {
        batch.uploaded.resize(next.size());
        return 0;
    }
    glBindBuffer(GL_ARRAY_BUFFER, batch.buffer);
    size_t bytes = 0;
    if (next.size() > batch.capacity) {
        // Room to grow, so that a person walking in does not reallocate every frame.
        batch.capacity = std::max<size_t>(next.size() * 2, 64);
        glBufferData(GL_ARRAY_BUFFER, GLsizeiptr(batch.capacity * sizeof(ShapeInstance)), nullptr, GL_DYNAMIC_DRAW);
        first = 0;
    }
    bytes = (end - first) * sizeof(ShapeInstance);
    glBufferSubData(GL_ARRAY_BUFFER, GLintptr(first * sizeof(ShapeInstance)), GLsizeiptr(bytes), next.data() + first);
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    batch.uploaded = next;
    return bytes;
}

size_t SkeletonInstances::pushToGPU(const UnitShapeBuffers& shapes, const Viewpoint& view) {
    if (!owner) {
        initializeOpenGLFunctions();
        owner = QOpenGLContext::currentContext();
        for (int i = 0; i < 4; ++i) setupBatch(batches[i], shapes.mesh(i / 2, i % 2));
    }
    size_t bytes = 0;
    for (int shape = 0; shape < 2; ++shape) {
        Batch& fine = batches[2 * shape];
        Batch& coarse = batches[2 * shape + 1];
        fine.pending.clear();
        coarse.pending.clear();
        for (const ShapeInstance& instance : added[shape])
            (radiusPixels(instance, view) < kCoarseRadiusPixels ? coarse : fine).pending.push_back(instance);
        bytes += upload(fine) + upload(coarse);
    }
    return bytes;
}

void SkeletonInstances::draw() {
    if (!owner) return;
    for (Batch& batch : batches) {
        if (batch.uploaded.empty()) continue;
        batch.vao->bind();
        glDrawElementsInstanced(GL_TRIANGLES, batch.indexCount, GL_UNSIGNED_INT, nullptr,
                                GLsizei(batch.uploaded.size()));
        batch.vao->release();
    }
}
