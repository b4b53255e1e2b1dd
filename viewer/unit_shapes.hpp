// The unit cylinder and sphere every bone and joint is drawn from, and the affine
// transforms that place one of them in the room.
#pragma once

#include <cstdint>
#include <vector>

#include "lum/math.hpp"

// An indexed triangle mesh, shared vertices, positions only.
struct UnitMesh {
    std::vector<float> vertices;  // x, y, z per vertex
    std::vector<uint32_t> indices;
};

// Radius 1 around +Y from y = 0 to y = 1, 16 sides, open ends; the coarse one, for bones a
// few pixels wide, has 6 sides.
const UnitMesh& unitCylinder();
const UnitMesh& coarseCylinder();
// Radius 1, 8 bands from pole to pole on Z, 8 segments; the coarse one 4 bands, 6 segments.
const UnitMesh& unitSphere();
const UnitMesh& coarseSphere();

// Row-major 3 x 4 affine map: world = m * (local, 1).
struct ShapeTransform {
    float m[3][4];

    lum::Vector3f apply(const lum::Vector3f& p) const;
};

// The unit cylinder scaled to the radius and the bone's length, turned onto the bone and
// standing on its start. A bone along +/-Y is not turned: it rises from its start.
ShapeTransform cylinderTransform(const lum::Vector3f& start, const lum::Vector3f& end, float radius);
ShapeTransform sphereTransform(const lum::Vector3f& centre, float radius);
