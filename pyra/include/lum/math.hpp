// Small vector, quaternion and matrix value types of the lum API, and the coordinate
// system and unit conversions. Plain values; Eigen does the arithmetic in math.cpp.
#pragma once

#include <cmath>
#include <cstddef>

#include "lum/types.hpp"

namespace lum {

struct Orientation;

template <typename T>
struct Vector2 {
    T x{}, y{};
    Vector2() = default;
    Vector2(T x_, T y_) : x(x_), y(y_) {}
    T& operator[](size_t i) { return (&x)[i]; }
    const T& operator[](size_t i) const { return (&x)[i]; }
};

template <typename T>
struct Vector3 {
    T x{}, y{}, z{};
    Vector3() = default;
    Vector3(T x_, T y_, T z_) : x(x_), y(y_), z(z_) {}
    T& operator[](size_t i) { return (&x)[i]; }
    const T& operator[](size_t i) const { return (&x)[i]; }
    T* ptr() { return &x; }
    const T* ptr() const { return &x; }
    static constexpr size_t size() { return 3; }

    Vector3 operator+(const Vector3& o) const { return {x + o.x, y + o.y, z + o.z}; }
    Vector3 operator-(const Vector3& o) const { return {x - o.x, y - o.y, z - o.z}; }
    Vector3 operator-() const { return {-x, -y, -z}; }
    Vector3 operator*(T s) const { return {x * s, y * s, z * s}; }
    Vector3 operator/(T s) const { return {x / s, y / s, z / s}; }
    Vector3& operator+=(const Vector3& o) { x += o.x; y += o.y; z += o.z; return *this; }
    Vector3& operator-=(const Vector3& o) { x -= o.x; y -= o.y; z -= o.z; return *this; }
    Vector3& operator*=(T s) { x *= s; y *= s; z *= s; return *this; }
    bool operator==(const Vector3& o) const { return x == o.x && y == o.y && z == o.z; }
    bool operator!=(const Vector3& o) const { return !(*this == o); }

    T norm() const { return std::sqrt(x * x + y * y + z * z); }
    T squaredNorm() const { return x * x + y * y + z * z; }
    void normalise() {
        T n = norm();
        if (n > T(0)) *this = *this / n;
    }
    Vector3 normalised() const {
        Vector3 v = *this;
        v.normalise();
        return v;
    }
    static T dot(const Vector3& a, const Vector3& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
    static Vector3 cross(const Vector3& a, const Vector3& b) {
        return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
    }
};

template <typename T>
struct Vector4 {
    T x{}, y{}, z{}, w{};
    Vector4() = default;
    Vector4(T x_, T y_, T z_, T w_) : x(x_), y(y_), z(z_), w(w_) {}
    T& operator[](size_t i) { return (&x)[i]; }
    const T& operator[](size_t i) const { return (&x)[i]; }
    T* ptr() { return &x; }
    const T* ptr() const { return &x; }
    static constexpr size_t size() { return 4; }
    bool operator==(const Vector4& o) const { return x == o.x && y == o.y && z == o.z && w == o.w; }
    bool operator!=(const Vector4& o) const { return !(*this == o); }
};

using Vector2f = Vector2<float>;
using Vector3f = Vector3<float>;
using Vector4f = Vector4<float>;
using float3 = Vector3<float>;
using float4 = Vector4<float>;

struct Matrix3f {
    float r[9];  // row-major

    Matrix3f();  // identity
    float& operator()(int row, int col) { return r[row * 3 + col]; }
    float operator()(int row, int col) const { return r[row * 3 + col]; }
    void setIdentity();
    void transpose();
    Matrix3f transposed() const;
    void inverse();
    static Matrix3f inverse(const Matrix3f& m);
    Matrix3f operator*(const Matrix3f& o) const;
    Vector3f operator*(const Vector3f& v) const;
    bool operator==(const Matrix3f& o) const;
    bool operator!=(const Matrix3f& o) const { return !(*this == o); }
};

struct Matrix4f {
    float m[16];  // row-major

    Matrix4f();  // identity
    float& operator()(int row, int col) { return m[row * 4 + col]; }
    float operator()(int row, int col) const { return m[row * 4 + col]; }
    float* ptr() { return m; }
    const float* ptr() const { return m; }
    void setIdentity();
    void setZeros();
    void transpose();
    Matrix4f transposed() const;
    // General 4x4 inverse; returns false (and leaves the matrix) when singular.
    bool inverse();
    static Matrix4f inverse(const Matrix4f& m);
    Matrix4f operator*(const Matrix4f& o) const;
    Vector4f operator*(const Vector4f& v) const;
    Matrix4f operator*(float s) const;
    Matrix4f operator+(const Matrix4f& o) const;
    bool operator==(const Matrix4f& o) const;
    bool operator!=(const Matrix4f& o) const { return !(*this == o); }
    // Upper-left 3x3 block and last column.
    Matrix3f getSubMatrix3f() const;
    void setSubMatrix3f(const Matrix3f& rot);
    Vector3f getSubVector3f() const;
    void setSubVector3f(const Vector3f& v);
};

struct Translation : Vector3f {
    Translation() = default;
    Translation(float x_, float y_, float z_) : Vector3f(x_, y_, z_) {}
    Translation(const Vector3f& v) : Vector3f(v) {}  // NOLINT
    Translation operator*(const Orientation& o) const;  // rotate this vector by o
    using Vector3f::operator*;                          // scaling stays visible beside the rotation
    Translation& operator=(const Vector3f& v) { Vector3f::operator=(v); return *this; }
    float& tx() { return x; }
    float& ty() { return y; }
    float& tz() { return z; }
};

struct Rotation : Matrix3f {
    Rotation() = default;  // identity
    Rotation(const Matrix3f& m) : Matrix3f(m) {}  // NOLINT
    explicit Rotation(const Orientation& o);
    Rotation(float angleRadians, const Translation& axis);
    void setOrientation(const Orientation& o);
    Orientation getOrientation() const;
    Vector3f getRotationVector() const;
    void setRotationVector(const Vector3f& v);
    Vector3f getEulerAngles(bool radians = true) const;
    void setEulerAngles(const Vector3f& angles, bool radians = true);
};

// Unit quaternion, stored x, y, z, w.
struct Orientation : Vector4f {
    Orientation() : Vector4f(0.f, 0.f, 0.f, 1.f) {}
    Orientation(float x_, float y_, float z_, float w_) : Vector4f(x_, y_, z_, w_) {}
    explicit Orientation(const Rotation& r);
    // Shortest arc turning a onto b.
    Orientation(const Translation& a, const Translation& b);
    Orientation operator*(const Orientation& o) const;
    void setIdentity() { x = y = z = 0.f; w = 1.f; }
    static Orientation identity() { return Orientation(); }
    void setZeros() { x = y = z = w = 0.f; }
    void normalise();
    static Orientation normalise(const Orientation& o);
    Orientation inverse() const;
    Rotation getRotationMatrix() const;
    void setRotationMatrix(const Rotation& r);
    float getRotationAngle() const;
};

// Rigid transform (rotation + translation), row-major 4x4.
struct Transform : Matrix4f {
    Transform() = default;  // identity
    Transform(const Matrix4f& m) : Matrix4f(m) {}  // NOLINT
    Transform(const Rotation& r, const Translation& t);
    Transform(const Orientation& o, const Translation& t);

    void setIdentity() { Matrix4f::setIdentity(); }
    static Transform identity() { return Transform(); }

    Rotation getRotationMatrix() const;
    void setRotationMatrix(const Rotation& r);
    Orientation getOrientation() const;
    void setOrientation(const Orientation& o);
    Translation getTranslation() const;
    void setTranslation(const Translation& t);
    Vector3f getRotationVector() const;  // axis x angle, radians
    void setRotationVector(const Vector3f& v);
    Vector3f getEulerAngles(bool radians = true) const;
    void setEulerAngles(const Vector3f& angles, bool radians = true);

    // Rigid inverse: [R^T, -R^T t].
    void inverse();
    static Transform inverse(const Transform& t);
    Transform operator*(const Transform& o) const;
    Vector3f operator*(const Vector3f& p) const;  // transforms a point
    Vector4f operator*(const Vector4f& p) const { return Matrix4f::operator*(p); }
};

// Matrix that takes coordinates from `from` to `to` (homogeneous, rotation only).
Matrix4f getCoordinateTransformConversion4f(COORDINATE_SYSTEM from, COORDINATE_SYSTEM to);
Matrix3f getCoordinateTransformConversion3f(COORDINATE_SYSTEM from, COORDINATE_SYSTEM to);
// Re-expresses a point / a pose given in `from` in `to`. Poses are conjugated: C * T * C^-1.
bool convertCoordinateSystem(Vector3f& point, COORDINATE_SYSTEM from, COORDINATE_SYSTEM to);
bool convertCoordinateSystem(Transform& pose, COORDINATE_SYSTEM from, COORDINATE_SYSTEM to);
// Factor s such that value_in_to = value_in_from * s.
float getUnitScale(UNIT from, UNIT to);
bool convertUnit(Transform& pose, UNIT from, UNIT to);

}  // namespace lum
