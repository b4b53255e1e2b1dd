// A growable list of coloured (optionally lit) vertices drawn with one indexed call, and
// the geometry builders the viewer composes cameras, rings and skeletons from.
#pragma once

#include <QOpenGLFunctions>
#include <QOpenGLVertexArrayObject>

#include <cstdint>
#include <iomanip>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "lum/math.hpp"

class QOpenGLContext;

class Simple3DObject : protected QOpenGLFunctions {
public:
    Simple3DObject();
    ~Simple3DObject();
    Simple3DObject(const Simple3DObject&) = delete;
    Simple3DObject& operator=(const Simple3DObject&) = delete;

    void setDrawingType(unsigned int mode) { drawingType = mode; }
    unsigned int getDrawingType() const { return drawingType; }

    void addPoint(const lum::Vector3f& position, const lum::Vector4f& colour);
    void addPoint(const lum::Vector3f& position, const lum::Vector3f& normal, const lum::Vector4f& colour);
    void addNormal(const lum::Vector3f& normal);
    void addLine(const lum::Vector3f& a, const lum::Vector3f& b, const lum::Vector4f& colour);
    // p1 takes colour1, p2 and p3 colour2: shades the face from one edge.
    void addFace(const lum::Vector3f& p1, const lum::Vector3f& p2, const lum::Vector3f& p3,
                 const lum::Vector4f& colour1, const lum::Vector4f& colour2);
    void addTriangle(const lum::Vector3f& p1, const lum::Vector3f& p2, const lum::Vector3f& p3,
                     const lum::Vector3f& na, const lum::Vector3f& nb, const lum::Vector3f& nc,
                     const lum::Vector4f& colour);
    void addQuad(const lum::Vector3f& p1, const lum::Vector3f& p2, const lum::Vector3f& p3,
                 const lum::Vector3f& p4, const lum::Vector3f& na, const lum::Vector3f& nb,
                 const lum::Vector3f& nc, const lum::Vector3f& nd, const lum::Vector4f& colour);
    // 16 side quads, no caps.
    void addCylinder(const lum::Vector3f& start, const lum::Vector3f& end, const lum::Vector4f& colour,
                     float radius);
    void addSphere(const lum::Vector3f& centre, const lum::Vector4f& colour, float radius);

    // Needs the viewer's context current.
    void pushToGPU();
    void draw();
    void clear();

    const std::vector<float>& getVertices() const { return vertices; }
    const std::vector<float>& getColors() const { return colors; }
    const std::vector<float>& getNormals() const { return normals; }
    const std::vector<uint32_t>& getIndices() const { return indices; }
    bool isInit() const { return is_init; }
    bool needsUpdate() const { return need_update; }

    bool isStatic = false;

private:
    std::vector<float> vertices;
    std::vector<float> colors;
    std::vector<float> normals;
    std::vector<uint32_t> indices;
    bool need_update = false;
    bool is_init = false;
    unsigned int drawingType;
    std::unique_ptr<QOpenGLVertexArrayObject> vao;
    unsigned int vboID[4] = {0, 0, 0, 0};
    // What the last upload holds: points added since are not drawn until the next one.
    uint32_t uploadedCount = 0;
    // The buffers belong to this context; they are only deleted while it is current.
    QOpenGLContext* owner = nullptr;
};

// Fixed notation, three decimals: the overlay's number format.
template <typename T>
std::string strQuant(T value) {
    std::ostringstream out;
    out << std::fixed << std::setprecision(3) << value;
    return out.str();
}
