// The few operations that the primitives' constructors share with the query
// and transformation families (private, not installed): the intersection of
// two planar lines, the projection onto a plane, and the rotation of a unit
// quaternion.  geometric<T> and Cquaternion<T> are built on these, so the
// primitives need neither of them.
#ifndef MATH_PRIMITIVE_OPS_H
#define MATH_PRIMITIVE_OPS_H

#include <math/point.h>
#include <math/primitives2.h>
#include <math/primitives3.h>

#include <cmath>

namespace math {
namespace ops {

// Intersection of two planar lines.  det = a.dx*b.dy - a.dy*b.dx is the sine
// of the angle between the unit directions; |det| <= 2^-23 (for float and
// double alike) counts as parallel: false, s unchanged.  Otherwise s is the
// common point, from the two equations x cross d = p cross d, and true.
template <class T>
bool intersectLines(Cline2<T> const& a, Cline2<T> const& b, Cpoint2<T>& s) {
    const T eps = T(tol::epsFloat);
    const Cpoint2<T>& pa = a.point();
    const Cpoint2<T>& pb = b.point();
    const Cdirec2<T>& da = a.direction();
    const Cdirec2<T>& db = b.direction();
    const T det = da.x * db.y - da.y * db.x;
    if (-eps <= det && det <= eps) return false;
    // NaN directions fail both comparisons above and give a NaN point.
    s.x = ((db.y * pb.x + pa.y * db.x) * da.x - (da.y * pa.x + pb.y * da.x) * db.x) / det;
    s.y = ((da.y * pb.x + pa.y * da.x) * db.y - (pb.y * db.x + pa.x * db.y) * da.y) / det;
    return true;
}

// p - (n.p + d)*n, in the form x' = (b^2 + c^2)*x - (b*y + c*z + d)*a and
// likewise for y and z, all from the old coordinates.
template <class T>
void projectOntoPlane(Cplane3<T> const& e, Cpoint3<T>& p) {
    const T a = e.a(), b = e.b(), c = e.c(), d = e.d();
    const T x = p.x, y = p.y, z = p.z;
    p.x = (b * b + c * c) * x - (b * y + c * z + d) * a;
    p.y = (a * a + c * c) * y - (a * x + c * z + d) * b;
    p.z = (a * a + b * b) * z - (a * x + b * y + d) * c;
}

// The quaternion (w, x, y, z) = (cos(angle/2), sin(angle/2)*axis).
template <class T>
void axisAngleQuaternion(Cdirec3<T> const& axis, T angle, T& w, T& x, T& y, T& z) {
    const T h = angle * T(0.5);
    const T s = std::sin(h);
    w = std::cos(h);
    x = s * axis.x;
    y = s * axis.y;
    z = s * axis.z;
}

// Divides (w, x, y, z) by its norm; false, and nothing changed, when the norm
// is 0 or NaN.
template <class T>
bool normalizeQuaternion(T& w, T& x, T& y, T& z) {
    const T n = std::sqrt(w * w + x * x + y * y + z * z);
    if (!(n > T(0) && n == n)) return false;
    w /= n;
    x /= n;
    y /= n;
    z /= n;
    return true;
}

// The rotation matrix of the unit quaternion (w, x, y, z), row-major, every
// element clamped into [-1, 1] (no renormalisation).
template <class T>
void quaternionMatrix(T w, T x, T y, T z, T (&R)[3][3]) {
    R[0][0] = T(1) - T(2) * (z * z + y * y);
    R[0][1] = T(2) * (y * x - w * z);
    R[0][2] = T(2) * (w * y + z * x);
    R[1][0] = T(2) * (w * z + y * x);
    R[1][1] = T(1) - T(2) * (z * z + x * x);
    R[1][2] = T(2) * (z * y - w * x);
    R[2][0] = T(2) * (z * x - w * y);
    R[2][1] = T(2) * (z * y + w * x);
    R[2][2] = T(1) - T(2) * (y * y + x * x);
    for (unsigned i = 0; i < 3; ++i)
        for (unsigned j = 0; j < 3; ++j) {
            if (R[i][j] >= T(1))
                R[i][j] = T(1);
            else if (R[i][j] <= T(-1))
                R[i][j] = T(-1);
        }
}

// The matrix of the rotation by angle (radians, right-handed) about the unit
// axis: its quaternion, normalised (a zero or NaN norm gives a NaN matrix),
// turned into a matrix.
template <class T>
void rotationMatrix(Cdirec3<T> const& axis, T angle, T (&R)[3][3]) {
    T w, x, y, z;
    axisAngleQuaternion(axis, angle, w, x, y, z);
    if (!normalizeQuaternion(w, x, y, z)) w = quietNaN<T>();
    quaternionMatrix(w, x, y, z, R);
}

// The similarity transformation s*R*p + t, row by row in this order (with
// s = 1 and t = 0 a pure rotation, whose zero results come out as +0).
template <class T>
Cpoint3<T> transformPoint(T const (&R)[3][3], T s, Cpoint3<T> const& t, Cpoint3<T> const& p) {
    return Cpoint3<T>(s * (R[0][0] * p.x + R[0][1] * p.y + R[0][2] * p.z) + t.x,
                      s * (R[1][0] * p.x + R[1][1] * p.y + R[1][2] * p.z) + t.y,
                      s * (R[2][0] * p.x + R[2][1] * p.y + R[2][2] * p.z) + t.z);
}

// Its inverse R^T*(p - t)/s for a rotation matrix R.
template <class T>
Cpoint3<T> retransformPoint(T const (&R)[3][3], T s, Cpoint3<T> const& t, Cpoint3<T> const& p) {
    const T dx = p.x - t.x, dy = p.y - t.y, dz = p.z - t.z;
    return Cpoint3<T>((R[0][0] * dx + R[1][0] * dy + R[2][0] * dz) / s, (R[0][1] * dx + R[1][1] * dy + R[2][1] * dz) / s,
                      (R[0][2] * dx + R[1][2] * dy + R[2][2] * dz) / s);
}

}  // namespace ops
}  // namespace math

#endif
