// Unit shapes: the tessellation of the cylinder and sphere, and the bone rotation.
#include "viewer/unit_shapes.hpp"

#include <cmath>

namespace {

constexpr double kTwoPi = 2.0 * M_PI;

// Two triangles (p1, p2, p4) and (p2, p3, p4), the split the per-vertex builders use.
void addQuad(std::vector<uint32_t>& indices, uint32_t p1, uint32_t p2, uint32_t p3, uint32_t p4) {
    indices.insert(indices.end(), {p1, p2, p4, p2, p3, p4});
}

UnitMesh buildCylinder(uint32_t sides) {
    UnitMesh mesh;
    for (uint32_t i = 0; i < sides; ++i) {
        const double angle = kTwoPi * i / sides;
        const float c = float(std::cos(angle)), s = float(std::sin(angle));
        mesh.vertices.insert(mesh.vertices.end(), {c, 0.f, s, c, 1.f, s});
    }
    for (uint32_t i = 0; i < sides; ++i) {
        const uint32_t j = (i + 1) % sides;
        addQuad(mesh.indices, 2 * i, 2 * j, 2 * j + 1, 2 * i + 1);
    }
    return mesh;
}

UnitMesh buildSphere(uint32_t bands, uint32_t segments) {
    UnitMesh mesh;
    for (uint32_t i = 0; i <= bands; ++i) {
        const double lat = M_PI * (-0.5 + double(i) / bands);
        const float z = float(std::sin(lat)), r = float(std::cos(lat));
        for (uint32_t j = 0; j < segments; ++j) {
            const double lng = kTwoPi * (double(j) - 1.0) / segments;
            mesh.vertices.insert(mesh.vertices.end(), {r * float(std::cos(lng)), r * float(std::sin(lng)), z});
        }
    }
    for (uint32_t i = 0; i < bands; ++i)
        for (uint32_t j = 0; j < segments; ++j) {
            const uint32_t a = i * segments + j, b = i * segments + (j + 1) % segments;
            addQuad(mesh.indices, a, a + segments, b + segments, b);
        }
    return mesh;
}

}  // namespace

const UnitMesh& unitCylinder() {
    static const UnitMesh mesh = buildCylinder(16);
    return mesh;
}

const UnitMesh& coarseCylinder() {
    static const UnitMesh mesh = buildCylinder(6);
    return mesh;
}

const UnitMesh& unitSphere() {
    static const UnitMesh mesh = buildSphere(8, 8);
    return mesh;
}

const UnitMesh& coarseSphere() {
    static const UnitMesh mesh = buildSphere(4, 6);
    return mesh;
}

lum::Vector3f ShapeTransform::apply(const lum::Vector3f& p) const {
    return {m[0][0] * p.x + m[0][1] * p.y + m[0][2] * p.z + m[0][3],
            m[1][0] * p.x + m[1][1] * p.y + m[1][2] * p.z + m[1][3],
            m[2][0] * p.x + m[2][1] * p.y + m[2][2] * p.z + m[2][3]};
}

ShapeTransform cylinderTransform(const lum::Vector3f& start, const lum::Vector3f& end, float radius) {
    lum::Vector3f d = end - start;
    const float length = d.norm();
    if (length != 0.f) d = d / length;

    // Rodrigues: the rotation that turns the local +Y axis onto the bone.
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
    const float scale[3] = {radius, length, radius};
    const float origin[3] = {start.x, start.y, start.z};
    ShapeTransform t;
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) t.m[i][j] = r[i][j] * scale[j];
        t.m[i][3] = origin[i];
    }
    return t;
}

ShapeTransform sphereTransform(const lum::Vector3f& centre, float radius) {
    return {{{radius, 0.f, 0.f, centre.x}, {0.f, radius, 0.f, centre.y}, {0.f, 0.f, radius, centre.z}}};
}
