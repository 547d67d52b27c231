// The plane through three points and its local frame, and the circle in space
// through three points.
#include <math/primitives3.h>

#include <cmath>
#include <cstdio>

#include "math_primitive_ops.h"

namespace math {

// ---------------------------------------------------------------------------
// Cplane3
// ---------------------------------------------------------------------------

template <class T>
Cplane3<T>::Cplane3(Cpoint3<T> const& p1, Cpoint3<T> const& p2, Cpoint3<T> const& p3)
    : m_normal(quietNaN<T>(), T(0), T(0), true), m_d(T(0)) {
    // The two edge directions from p1, each made a unit vector.
    const Cdirec3<T> u(p2 - p1);
    const Cdirec3<T> w(p3 - p1);

    // |cos| of the angle between them.  Exactly parallel unit vectors may
    // round to a ratio just above 1, non-parallel ones never reach 1; the
    // report does not stop the construction.
    const T ratio = std::abs(u.dot(w)) / (u.length() * w.length());
    if (ratio >= T(1)) {
        std::printf("\n [FEHLER!]: Richtungsvektoren der Ebene linear abhaengig!\n\n");
    }

    // Right-hand rule from p1->p2 to p1->p3; a zero cross product gives the
    // invalid direction (x NaN) and thus an invalid plane.
    m_normal = Cdirec3<T>(u.cross(w));
    m_d = -(m_normal.x * p1.x + m_normal.y * p1.y + m_normal.z * p1.z);
}

template <class T>
Cpoint3<T> Cplane3<T>::pointAt(T u, T v) const {
    const T a = m_normal.x, b = m_normal.y, c = m_normal.z;
    const Cpoint3<T> base(-a * m_d, -b * m_d, -c * m_d);

    // First axis: 1 in the component where the normal is smallest, 0 where
    // it is largest, and the middle component solved from n.e1 = 0; the
    // division is by the middle component, never by the smallest one.  A
    // middle component of 0 means the normal is an axis: e1 is then the unit
    // vector of the smallest component.  Ties resolve in the order of the
    // branches, so a normal along +-z gives e1 = (1, 0, 0).
    const T aa = std::abs(a), ab = std::abs(b), ac = std::abs(c);
    Cpoint3<T> e1;
    if (aa <= ab && ab <= ac) {
        e1 = Cpoint3<T>(T(1), b != T(0) ? -a / b : T(0), T(0));
    } else if (ab <= aa && aa <= ac) {
        e1 = Cpoint3<T>(a != T(0) ? -b / a : T(0), T(1), T(0));
    } else if (aa <= ac && ac <= ab) {
        e1 = Cpoint3<T>(T(1), T(0), c != T(0) ? -a / c : T(0));
    } else if (ac <= aa && aa <= ab) {
        e1 = Cpoint3<T>(a != T(0) ? -c / a : T(0), T(0), T(1));
    } else if (ab <= ac && ac <= aa) {
        e1 = Cpoint3<T>(T(0), T(1), c != T(0) ? -b / c : T(0));
    } else {  // |c| <= |b| <= |a| (and NaN normals, which stay NaN)
        e1 = Cpoint3<T>(T(0), b != T(0) ? -c / b : T(0), T(1));
    }
    const Cdirec3<T> d1(e1);
    const Cdirec3<T> d2(m_normal.cross(d1));

    return Cpoint3<T>(base.x + u * d1.x + v * d2.x, base.y + u * d1.y + v * d2.y, base.z + u * d1.z + v * d2.z);
}

// ---------------------------------------------------------------------------
// Ccircle3
// ---------------------------------------------------------------------------

template <class T>
Ccircle3<T>::Ccircle3(Cplane3<T> const& e, Cpoint3<T> const& p1, Cpoint3<T> const& p2, Cpoint3<T> const& p3)
    : m_center(quietNaN<T>(), quietNaN<T>(), quietNaN<T>()), m_plane(e), m_radius(quietNaN<T>()) {
    // Rotation turning the unit normal n onto the z axis: about the axis
    // n x z = (n.y, -n.x, 0) by the angle acos(n.z).  When n is already
    // (anti)parallel to z that axis vanishes: the angle is then 0 or pi and
    // any axis in the xy plane will do; the x axis is taken.
    Cdirec3<T> const& n = e.normal();
    Cdirec3<T> axis(Cpoint3<T>(n.y, -n.x, T(0)));
    if (!axis.isValid()) axis = Cdirec3<T>(T(1), T(0), T(0), true);
    const T cz = n.z > T(1) ? T(1) : (n.z < T(-1) ? T(-1) : n.z);  // rounding may leave |n.z| > 1
    T R[3][3];
    ops::rotationMatrix(axis, std::acos(cz), R);
    const Cpoint3<T> none;  // the rotation is applied with scale 1 and no translation

    const Cpoint3<T> q1 = ops::transformPoint(R, T(1), none, p1);
    const Cpoint3<T> q2 = ops::transformPoint(R, T(1), none, p2);
    const Cpoint3<T> q3 = ops::transformPoint(R, T(1), none, p3);

    // Circle through (x_i, y_i) in closed form.
    const T x1 = q1.x, y1 = q1.y, x2 = q2.x, y2 = q2.y, x3 = q3.x, y3 = q3.y;
    const T s1 = x1 * x1 + y1 * y1, s2 = x2 * x2 + y2 * y2, s3 = x3 * x3 + y3 * y3;
    const T D = T(1) / (x1 * (y2 - y3) + x2 * (y3 - y1) + x3 * (y1 - y2));
    const T cx = T(0.5) * D * (s1 * (y2 - y3) + s2 * (y3 - y1) + s3 * (y1 - y2));
    const T cy = T(0.5) * D * (s1 * (x3 - x2) + s2 * (x1 - x3) + s3 * (x2 - x1));

    // Back into the world frame (at the mean height of the rotated points)
    // and onto the plane.
    const Cpoint3<T> c(cx, cy, (q1.z + q2.z + q3.z) / T(3));
    m_center = ops::retransformPoint(R, T(1), none, c);
    ops::projectOntoPlane(e, m_center);

    m_radius = std::sqrt((x1 - cx) * (x1 - cx) + (y1 - cy) * (y1 - cy));
}

template class Cplane3<float>;
template class Cplane3<double>;
template class Ccircle3<float>;
template class Ccircle3<double>;

}  // namespace math
