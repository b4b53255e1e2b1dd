// Simple3DObject: vertex lists, cylinder and sphere tessellation, and the upload into one
// vertex-array object with a buffer per attribute.
#include "viewer/simple3d_object.hpp"

#include <QOpenGLContext>

#include <cmath>

#include "viewer/unit_shapes.hpp"

namespace {

constexpr double kTwoPi = 2.0 * M_PI;

}  // namespace

Simple3DObject::Simple3DObject() : drawingType(GL_TRIANGLES) {}

Simple3DObject::~Simple3DObject() {
    if (vao && owner && QOpenGLContext::currentContext() == owner) {
        glDeleteBuffers(4, vboID);
        vao->destroy();
    }
}

void Simple3DObject::addPoint(const lum::Vector3f& position, const lum::Vector4f& colour) {
    vertices.insert(vertices.end(), {position.x, position.y, position.z});
    colors.insert(colors.end(), {colour.x, colour.y, colour.z, colour.w});
    indices.push_back(static_cast<uint32_t>(indices.size()));
    need_update = true;
}

void Simple3DObject::addPoint(const lum::Vector3f& position, const lum::Vector3f& normal,
                              const lum::Vector4f& colour) {
    addPoint(position, colour);
    addNormal(normal);
}

void Simple3DObject::addNormal(const lum::Vector3f& normal) {
    normals.insert(normals.end(), {normal.x, normal.y, normal.z});
}

void Simple3DObject::addLine(const lum::Vector3f& a, const lum::Vector3f& b, const lum::Vector4f& colour) {
    addPoint(a, colour);
    addPoint(b, colour);
}

void Simple3DObject::addFace(const lum::Vector3f& p1, const lum::Vector3f& p2, const lum::Vector3f& p3,
                             const lum::Vector4f& colour1, const lum::Vector4f& colour2) {
    addPoint(p1, colour1);
    addPoint(p2, colour2);
    addPoint(p3, colour2);
}

void Simple3DObject::addTriangle(const lum::Vector3f& p1, const lum::Vector3f& p2, const lum::Vector3f& p3,
                                 const lum::Vector3f& na, const lum::Vector3f& nb, const lum::Vector3f& nc,
                                 const lum::Vector4f& colour) {
    addPoint(p1, na, colour);
    addPoint(p2, nb, colour);
    addPoint(p3, nc, colour);
}

void Simple3DObject::addQuad(const lum::Vector3f& p1, const lum::Vector3f& p2, const lum::Vector3f& p3,
                             const lum::Vector3f& p4, const lum::Vector3f& na, const lum::Vector3f& nb,
                             const lum::Vector3f& nc, const lum::Vector3f& nd, const lum::Vector4f& colour) {
    addTriangle(p1, p2, p4, na, nb, nd, colour);
    addTriangle(p2, p3, p4, nb, nc, nd, colour);
}

void Simple3DObject::addCylinder(const lum::Vector3f& start, const lum::Vector3f& end,
                                 const lum::Vector4f& colour, float radius) {
    // The same rim the instanced bones are drawn from, so both kinds of bone look alike.
    const ShapeTransform t = cylinderTransform(start, end, radius);
    const std::vector<float>& rim = unitCylinder().vertices;  // bottom, top per side
    const size_t sides = rim.size() / 6;
    auto at = [&](size_t k) { return t.apply({rim[3 * k], rim[3 * k + 1], rim[3 * k + 2]}); };
    for (size_t i = 0; i < sides; ++i) {
        const size_t j = (i + 1) % sides;
        const lum::Vector3f b0 = at(2 * i), t0 = at(2 * i + 1), b1 = at(2 * j), t1 = at(2 * j + 1);
        const lum::Vector3f n = lum::Vector3f::cross(b1 - b0, t1 - b0).normalised();
        addQuad(b0, b1, t1, t0, n, n, n, n, colour);
    }
}

void Simple3DObject::addSphere(const lum::Vector3f& centre, const lum::Vector4f& colour, float radius) {
    constexpr int kBands = 8;
    constexpr int kSegments = 8;
    // Band 0 doubles back under the south pole; it costs eight quads and is kept.
    for (int i = 0; i <= kBands; ++i) {
        const double lat0 = M_PI * (-0.5 + double(i - 1) / kBands);
        const double lat1 = M_PI * (-0.5 + double(i) / kBands);
        const float z0 = float(std::sin(lat0)), r0 = float(std::cos(lat0));
        const float z1 = float(std::sin(lat1)), r1 = float(std::cos(lat1));
        for (int j = 0; j < kSegments; ++j) {
            const double lngA = kTwoPi * double(j - 1) / kSegments;
            const double lngB = kTwoPi * double(j) / kSegments;
            const float xA = float(std::cos(lngA)), yA = float(std::sin(lngA));
            const float xB = float(std::cos(lngB)), yB = float(std::sin(lngB));
            const lum::Vector3f na = lum::Vector3f(r0 * xA, r0 * yA, z0).normalised();
            const lum::Vector3f nb = lum::Vector3f(r1 * xA, r1 * yA, z1).normalised();
            const lum::Vector3f nc = lum::Vector3f(r1 * xB, r1 * yB, z1).normalised();
            const lum::Vector3f nd = lum::Vector3f(r0 * xB, r0 * yB, z0).normalised();
            addQuad(centre + lum::Vector3f(r0 * xA, r0 * yA, z0) * radius,
                    centre + lum::Vector3f(r1 * xA, r1 * yA, z1) * radius,
                    centre + lum::Vector3f(r1 * xB, r1 * yB, z1) * radius,
                    centre + lum::Vector3f(r0 * xB, r0 * yB, z0) * radius, na, nb, nc, nd, colour);
        }
    }
}

void Simple3DObject::pushToGPU() {
    // A static object is uploaded exactly once, whatever is added afterwards.
    if (isStatic && (vao || !need_update)) return;
    is_init = false;
    if (!vao) {
        initializeOpenGLFunctions();
        owner = QOpenGLContext::currentContext();
        vao = std::make_unique<QOpenGLVertexArrayObject>();
        vao->create();
        glGenBuffers(4, vboID);
    }
    const GLenum usage = isStatic ? GL_STATIC_DRAW : GL_DYNAMIC_DRAW;
    vao->bind();
    glBindBuffer(GL_ARRAY_BUFFER, vboID[0]);
    glBufferData(GL_ARRAY_BUFFER, GLsizeiptr(vertices.size() * sizeof(float)), vertices.data(), usage);
    glVertexAttribPointer(0, 3, GL_FLOAT, GL_FALSE, 0, nullptr);
    glEnableVertexAttribArray(0);

    glBindBuffer(GL_ARRAY_BUFFER, vboID[1]);
    glBufferData(GL_ARRAY_BUFFER, GLsizeiptr(colors.size() * sizeof(float)), colors.data(), usage);
    glVertexAttribPointer(1, 4, GL_FLOAT, GL_FALSE, 0, nullptr);
    glEnableVertexAttribArray(1);

    if (!indices.empty()) {
        glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, vboID[2]);
        glBufferData(GL_ELEMENT_ARRAY_BUFFER, GLsizeiptr(indices.size() * sizeof(uint32_t)), indices.data(),
                     usage);
    }
    if (!normals.empty()) {
        glBindBuffer(GL_ARRAY_BUFFER, vboID[3]);
        glBufferData(GL_ARRAY_BUFFER, GLsizeiptr(normals.size() * sizeof(float)), normals.data(), usage);
        glVertexAttribPointer(2, 3, GL_FLOAT, GL_FALSE, 0, nullptr);
        glEnableVertexAttribArray(2);
    }
    vao->release();
    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, 0);
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    uploadedCount = uint32_t(indices.size());
    need_update = false;
    is_init = true;
}

void Simple3DObject::draw() {
    if (!is_init) return;
    vao->bind();
    glDrawElements(drawingType, GLsizei(uploadedCount), GL_UNSIGNED_INT, nullptr);
    vao->release();
}

void Simple3DObject::clear() {
    is_init = false;
    vertices.clear();
    colors.clear();
    normals.clear();
    indices.clear();
}
