// Simple3DObject: vertex lists, cylinder and sphere tessellation, and the upload into one
// vertex-array object with a buffer per attribute.
#include "viewer/simple3d_object.hpp"

#include <QOpenGLContext>

#include <cmath>

namespace {

constexpr double kTwoPi = 2.0 * M_PI;

lum::Vector3f rotate(const float r[3][3], const lum::Vector3f& v) {
    return {r[0][0] * v.x + r[0][1] * v.y + r[0][2] * v.z, r[1][0] * v.x + r[1][1] * v.y + r[1][2] * v.z,
            r[2][0] * v.x + r[2][1] * v.y + r[2][2] * v.z};
}

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
    lum::Vector3f d = end - start;
    const float length = d.norm();
    if (length != 0.f) d = d / length;

    // Rodrigues: the rotation that turns the local +Y axis onto the bone. A bone along
    // +/-Y keeps the identity, so a downward bone is drawn upward from its start.
    float r[3][3] = {{1.f, 0.f, 0.f}, {0.f, 1.f, 0.f}, {0.f, 0.f, 1.f}};
    const lum::Vector3f v(-d.z, 0.f, d.x);  // d x Y
    if (v.norm() >= 1e-05f) {
        const float c = d.y;
        // v is d x Y, the reverse of the axis Y x d, so K is the transposed cross-product
        // matrix of v; the other sign would mirror every bone about the vertical.
        const float k[3][3] = {{0.f, v.z, -v.y}, {-v.z, 0.f, v.x}, {v.y, -v.x, 0.f}};
        const float s = (1.f - c) / (1.f - c * c);
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j) {
                float k2 = 0.f;
                for (int m = 0; m < 3; ++m) k2 += k[i][m] * k[m][j];
                r[i][j] += k[i][j] + k2 * s;
            }
    }

    float cos0 = 1.f, sin0 = 0.f;
    float cos1 = 0.9238795283293805f, sin1 = 0.38268344246110436f;
    for (int i = 1; i <= 16; ++i) {
        if (i > 1) {
            cos0 = cos1;
            sin0 = sin1;
            const double a1 = i * 0.0625 * kTwoPi;
            cos1 = static_cast<float>(std::cos(a1));
            sin1 = static_cast<float>(std::sin(a1));
        }
        const lum::Vector3f b0 = start + rotate(r, {radius * cos0, 0.f, radius * sin0});
        const lum::Vector3f b1 = start + rotate(r, {radius * cos1, 0.f, radius * sin1});
        const lum::Vector3f t1 = start + rotate(r, {radius * cos1, length, radius * sin1});
        const lum::Vector3f t0 = start + rotate(r, {radius * cos0, length, radius * sin0});
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
