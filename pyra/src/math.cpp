// Arithmetic of the lum value types, coordinate system changes and unit scales.
// The lum types stay plain row-major values; Eigen maps them and does the work.
#include "lum/math.hpp"

#include <Eigen/Geometry>
#include <Eigen/LU>

namespace lum {
namespace {

using RowMatrix3f = Eigen::Matrix<float, 3, 3, Eigen::RowMajor>;
using RowMatrix4f = Eigen::Matrix<float, 4, 4, Eigen::RowMajor>;

Eigen::Map<RowMatrix3f> map(Matrix3f& m) { return Eigen::Map<RowMatrix3f>(m.r); }
Eigen::Map<const RowMatrix3f> map(const Matrix3f& m) { return Eigen::Map<const RowMatrix3f>(m.r); }
Eigen::Map<RowMatrix4f> map(Matrix4f& m) { return Eigen::Map<RowMatrix4f>(m.m); }
Eigen::Map<const RowMatrix4f> map(const Matrix4f& m) { return Eigen::Map<const RowMatrix4f>(m.m); }

Eigen::Vector3f toEigen(const Vector3f& v) { return {v.x, v.y, v.z}; }
Vector3f fromEigen(const Eigen::Vector3f& v) { return {v.x(), v.y(), v.z()}; }

Eigen::Quaterniond toEigen(const Orientation& o) { return Eigen::Quaterniond(o.w, o.x, o.y, o.z); }
Orientation fromEigen(const Eigen::Quaterniond& q) {
    return Orientation(float(q.x()), float(q.y()), float(q.z()), float(q.w()));
}

Matrix3f fromEigen(const Eigen::Matrix3d& m) {
    Matrix3f out;
    map(out) = m.cast<float>();
    return out;
}

// Axis times angle of a rotation; through the quaternion, which stays well conditioned
// near 0 and near pi where the matrix formulas lose the axis.
Vector3f rotationVectorOf(const Matrix3f& r) {
    Eigen::Quaterniond q(map(r).cast<double>());
    q.normalize();
    if (q.w() < 0) q.coeffs() = -q.coeffs();
    const double n = q.vec().norm();
    // For tiny angles atan2(n, w) / n tends to 1 / w; the limit avoids 0 / 0.
    const double factor = n < 1e-12 ? 2.0 / q.w() : 2.0 * std::atan2(n, q.w()) / n;
    const Eigen::Vector3d v = q.vec() * factor;
    return {float(v.x()), float(v.y()), float(v.z())};
}

Matrix3f rotationOfVector(const Vector3f& v) {
    const Eigen::Vector3d d(v.x, v.y, v.z);
    const double angle = d.norm();
    if (angle == 0.0) return Matrix3f();
    return fromEigen(Eigen::AngleAxisd(angle, d / angle).toRotationMatrix());
}

// Euler angles (x, y, z) with R = Rx * Ry * Rz.
Vector3f eulerAnglesOf(const Matrix3f& r, bool radians) {
    const Eigen::Vector3d a = map(r).cast<double>().eulerAngles(0, 1, 2);
    const double k = radians ? 1.0 : 180.0 / M_PI;
    return {float(a.x() * k), float(a.y() * k), float(a.z() * k)};
}

Matrix3f rotationOfEulerAngles(const Vector3f& angles, bool radians) {
    const double k = radians ? 1.0 : M_PI / 180.0;
    const Eigen::Matrix3d m = (Eigen::AngleAxisd(angles.x * k, Eigen::Vector3d::UnitX()) *
                               Eigen::AngleAxisd(angles.y * k, Eigen::Vector3d::UnitY()) *
                               Eigen::AngleAxisd(angles.z * k, Eigen::Vector3d::UnitZ()))
                                  .toRotationMatrix();
    return fromEigen(m);
}

bool isValid(COORDINATE_SYSTEM system) {
    const int v = static_cast<int>(system);
    return v >= 0 && v < static_cast<int>(COORDINATE_SYSTEM::LAST);
}

// Axes of each system as columns, written in one common frame whose basis is
// (right, up, forward). Signed permutations only, so every conversion is exact.
Eigen::Matrix3i axesOf(COORDINATE_SYSTEM system) {
    Eigen::Matrix3i a;
    switch (system) {
        case COORDINATE_SYSTEM::IMAGE: a << 1, 0, 0, 0, -1, 0, 0, 0, 1; break;
        case COORDINATE_SYSTEM::LEFT_HANDED_Y_UP: a << 1, 0, 0, 0, 1, 0, 0, 0, 1; break;
        case COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP: a << 1, 0, 0, 0, 1, 0, 0, 0, -1; break;
        case COORDINATE_SYSTEM::RIGHT_HANDED_Z_UP: a << 1, 0, 0, 0, 0, 1, 0, 1, 0; break;
        case COORDINATE_SYSTEM::LEFT_HANDED_Z_UP: a << 1, 0, 0, 0, 0, 1, 0, -1, 0; break;
        case COORDINATE_SYSTEM::RIGHT_HANDED_Z_UP_X_FWD: a << 0, -1, 0, 0, 0, 1, 1, 0, 0; break;
        default: a.setIdentity(); break;
    }
    return a;
}

double millimetresPer(UNIT unit) {
    switch (unit) {
        case UNIT::MILLIMETER: return 1.0;
        case UNIT::CENTIMETER: return 10.0;
        case UNIT::METER: return 1000.0;
        case UNIT::INCH: return 25.4;
        case UNIT::FOOT: return 304.8;
        case UNIT::LAST: break;
    }
    return 0.0;
}

}  // namespace

// ---- Matrix3f ----

Matrix3f::Matrix3f() { setIdentity(); }
void Matrix3f::setIdentity() { map(*this).setIdentity(); }
void Matrix3f::transpose() { map(*this).transposeInPlace(); }
Matrix3f Matrix3f::transposed() const {
    Matrix3f out = *this;
    out.transpose();
    return out;
}
void Matrix3f::inverse() { *this = inverse(*this); }
Matrix3f Matrix3f::inverse(const Matrix3f& m) {
    Matrix3f out;
    map(out) = map(m).inverse();
    return out;
}
Matrix3f Matrix3f::operator*(const Matrix3f& o) const {
    Matrix3f out;
    map(out) = map(*this) * map(o);
    return out;
}
Vector3f Matrix3f::operator*(const Vector3f& v) const { return fromEigen(Eigen::Vector3f(map(*this) * toEigen(v))); }
bool Matrix3f::operator==(const Matrix3f& o) const { return map(*this) == map(o); }

// ---- Matrix4f ----

Matrix4f::Matrix4f() { setIdentity(); }
void Matrix4f::setIdentity() { map(*this).setIdentity(); }
void Matrix4f::setZeros() { map(*this).setZero(); }
void Matrix4f::transpose() { map(*this).transposeInPlace(); }
Matrix4f Matrix4f::transposed() const {
    Matrix4f out = *this;
    out.transpose();
    return out;
}
bool Matrix4f::inverse() {
    RowMatrix4f inv;
    bool invertible = false;
    map(*this).computeInverseWithCheck(inv, invertible);
    if (invertible) map(*this) = inv;
    return invertible;
}
Matrix4f Matrix4f::inverse(const Matrix4f& m) {
    Matrix4f out = m;
    out.inverse();
    return out;
}
Matrix4f Matrix4f::operator*(const Matrix4f& o) const {
    Matrix4f out;
    map(out) = map(*this) * map(o);
    return out;
}
Vector4f Matrix4f::operator*(const Vector4f& v) const {
    const Eigen::Vector4f r = map(*this) * Eigen::Vector4f(v.x, v.y, v.z, v.w);
    return {r.x(), r.y(), r.z(), r.w()};
}
Matrix4f Matrix4f::operator*(float s) const {
    Matrix4f out;
    map(out) = map(*this) * s;
    return out;
}
Matrix4f Matrix4f::operator+(const Matrix4f& o) const {
    Matrix4f out;
    map(out) = map(*this) + map(o);
    return out;
}
bool Matrix4f::operator==(const Matrix4f& o) const { return map(*this) == map(o); }
Matrix3f Matrix4f::getSubMatrix3f() const {
    Matrix3f out;
    map(out) = map(*this).topLeftCorner<3, 3>();
    return out;
}
void Matrix4f::setSubMatrix3f(const Matrix3f& rot) { map(*this).topLeftCorner<3, 3>() = map(rot); }
Vector3f Matrix4f::getSubVector3f() const { return {m[3], m[7], m[11]}; }
void Matrix4f::setSubVector3f(const Vector3f& v) {
    m[3] = v.x;
    m[7] = v.y;
    m[11] = v.z;
}

// ---- Translation, Rotation, Orientation ----

Translation Translation::operator*(const Orientation& o) const {
    return Translation(o.getRotationMatrix() * static_cast<const Vector3f&>(*this));
}

Rotation::Rotation(const Orientation& o) : Matrix3f(o.getRotationMatrix()) {}
Rotation::Rotation(float angleRadians, const Translation& axis) {
    Eigen::Vector3d a(axis.x, axis.y, axis.z);
    if (a.norm() == 0.0) return;
    *this = fromEigen(Eigen::AngleAxisd(angleRadians, a.normalized()).toRotationMatrix());
}
void Rotation::setOrientation(const Orientation& o) { *this = o.getRotationMatrix(); }
Orientation Rotation::getOrientation() const { return Orientation(*this); }
Vector3f Rotation::getRotationVector() const { return rotationVectorOf(*this); }
void Rotation::setRotationVector(const Vector3f& v) { *this = rotationOfVector(v); }
Vector3f Rotation::getEulerAngles(bool radians) const { return eulerAnglesOf(*this, radians); }
void Rotation::setEulerAngles(const Vector3f& angles, bool radians) { *this = rotationOfEulerAngles(angles, radians); }

Orientation::Orientation(const Rotation& r) : Orientation() { setRotationMatrix(r); }
Orientation::Orientation(const Translation& a, const Translation& b) : Orientation() {
    const Eigen::Vector3d ea(a.x, a.y, a.z), eb(b.x, b.y, b.z);
    *this = fromEigen(Eigen::Quaterniond::FromTwoVectors(ea, eb));
}
Orientation Orientation::operator*(const Orientation& o) const { return fromEigen(toEigen(*this) * toEigen(o)); }
void Orientation::normalise() { *this = normalise(*this); }
Orientation Orientation::normalise(const Orientation& o) {
    const Eigen::Quaterniond q = toEigen(o);
    if (q.norm() == 0.0) return Orientation();
    return fromEigen(q.normalized());
}
Orientation Orientation::inverse() const { return fromEigen(toEigen(*this).inverse()); }
Rotation Orientation::getRotationMatrix() const {
    return Rotation(fromEigen(toEigen(normalise(*this)).toRotationMatrix()));
}
void Orientation::setRotationMatrix(const Rotation& r) {
    *this = fromEigen(Eigen::Quaterniond(map(r).cast<double>()).normalized());
}
float Orientation::getRotationAngle() const {
    const Eigen::Quaterniond q = toEigen(normalise(*this));
    return float(2.0 * std::atan2(q.vec().norm(), std::abs(q.w())));
}

// ---- Transform ----

Transform::Transform(const Rotation& r, const Translation& t) {
    setSubMatrix3f(r);
    setSubVector3f(t);
}
Transform::Transform(const Orientation& o, const Translation& t) : Transform(o.getRotationMatrix(), t) {}

Rotation Transform::getRotationMatrix() const { return Rotation(getSubMatrix3f()); }
void Transform::setRotationMatrix(const Rotation& r) { setSubMatrix3f(r); }
Orientation Transform::getOrientation() const { return Orientation(getRotationMatrix()); }
void Transform::setOrientation(const Orientation& o) { setSubMatrix3f(o.getRotationMatrix()); }
Translation Transform::getTranslation() const { return Translation(getSubVector3f()); }
void Transform::setTranslation(const Translation& t) { setSubVector3f(t); }
Vector3f Transform::getRotationVector() const { return rotationVectorOf(getSubMatrix3f()); }
void Transform::setRotationVector(const Vector3f& v) { setSubMatrix3f(rotationOfVector(v)); }
Vector3f Transform::getEulerAngles(bool radians) const { return eulerAnglesOf(getSubMatrix3f(), radians); }
void Transform::setEulerAngles(const Vector3f& angles, bool radians) {
    setSubMatrix3f(rotationOfEulerAngles(angles, radians));
}

void Transform::inverse() { *this = inverse(*this); }
Transform Transform::inverse(const Transform& t) {
    const Matrix3f rt = t.getSubMatrix3f().transposed();
    return Transform(Rotation(rt), Translation(-(rt * t.getSubVector3f())));
}
Transform Transform::operator*(const Transform& o) const { return Transform(Matrix4f::operator*(o)); }
Vector3f Transform::operator*(const Vector3f& p) const {
    return getSubMatrix3f() * p + getSubVector3f();
}

// ---- Coordinate systems and units ----

Matrix3f getCoordinateTransformConversion3f(COORDINATE_SYSTEM from, COORDINATE_SYSTEM to) {
    const Eigen::Matrix3i c = axesOf(to).transpose() * axesOf(from);
    Matrix3f out;
    map(out) = c.cast<float>();
    return out;
}

Matrix4f getCoordinateTransformConversion4f(COORDINATE_SYSTEM from, COORDINATE_SYSTEM to) {
    Matrix4f out;
    out.setSubMatrix3f(getCoordinateTransformConversion3f(from, to));
    return out;
}

bool convertCoordinateSystem(Vector3f& point, COORDINATE_SYSTEM from, COORDINATE_SYSTEM to) {
    if (!isValid(from) || !isValid(to)) return false;
    point = getCoordinateTransformConversion3f(from, to) * point;
    return true;
}

bool convertCoordinateSystem(Transform& pose, COORDINATE_SYSTEM from, COORDINATE_SYSTEM to) {
    if (!isValid(from) || !isValid(to)) return false;
    const Matrix4f c = getCoordinateTransformConversion4f(from, to);
    pose = Transform(c * pose * c.transposed());
    return true;
}

float getUnitScale(UNIT from, UNIT to) {
    const double a = millimetresPer(from), b = millimetresPer(to);
    if (a == 0.0 || b == 0.0) return 1.f;
    return float(a / b);
}

bool convertUnit(Transform& pose, UNIT from, UNIT to) {
    if (millimetresPer(from) == 0.0 || millimetresPer(to) == 0.0) return false;
    pose.setSubVector3f(pose.getSubVector3f() * getUnitScale(from, to));
    return true;
}

}  // namespace lum
