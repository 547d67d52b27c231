// Spatial primitives: the plane Cplane3<T> and the circle in space Ccircle3<T>
// (exported for float and double), and the header-only value types Cline3,
// Csphere3, Ccylinder3 and CboundingBox3.
#ifndef MATH_PRIMITIVES3_H
#define MATH_PRIMITIVES3_H

#include <math/basevec.h>
#include <math/export.h>
#include <math/point.h>

#include <limits>
#include <list>
#include <vector>

namespace math {

// ---------------------------------------------------------------------------
// Cplane3
// ---------------------------------------------------------------------------

// The plane a*x + b*y + c*z + d = 0 in Hesse form: unit normal (a, b, c) and
// d = -normal.p for every point p of the plane.  Invalid when any of a, b, c,
// d is NaN (invalidate() sets d only); a default plane is invalid.
template <class T>
class METROMATH_API Cplane3 {
public:
    // Normal (0, 0, 1) and d = NaN: an invalid plane.
    Cplane3() : m_normal(T(0), T(0), T(1), true), m_d(quietNaN<T>()) {}
    // Normal and d as given.
    Cplane3(Cdirec3<T> const& n, T d) : m_normal(n), m_d(d) {}
    // The plane through p with normal n: d = -(p.x*a + p.y*b + p.z*c).
    Cplane3(Cpoint3<T> const& p, Cdirec3<T> const& n) { set(p, n); }
    // The plane through three points; the normal follows the right-hand rule
    // from p1->p2 to p1->p3.  For exactly linearly dependent directions a
    // message is printed to standard output and the plane comes out invalid
    // (or, from a cross product that rounding left non-zero, arbitrary).
    Cplane3(Cpoint3<T> const& p1, Cpoint3<T> const& p2, Cpoint3<T> const& p3);

    void set(Cpoint3<T> const& p, Cdirec3<T> const& n) {
        m_normal = n;
        m_d = -(p.x * n.x + p.y * n.y + p.z * n.z);
    }
    // Stores the four values as given; the normal is not renormalised.
    void set(T a, T b, T c, T d) {
        m_normal = Cdirec3<T>(a, b, c, true);
        m_d = d;
    }

    // The point base + u*e1 + v*e2 of the plane: base is the foot of the
    // perpendicular from the origin, (e1, e2, normal) a right-handed
    // orthonormal frame fixed by the normal alone.
    Cpoint3<T> pointAt(T u, T v) const;

    Cdirec3<T> const& normal() const { return m_normal; }
    Cdirec3<T>& normal() { return m_normal; }
    T d() const { return m_d; }
    T& d() { return m_d; }
    T a() const { return m_normal.x; }
    T b() const { return m_normal.y; }
    T c() const { return m_normal.z; }

    bool isValid() const {
        return !(detail::isNaN(m_normal.x) || detail::isNaN(m_normal.y) || detail::isNaN(m_normal.z) ||
                 detail::isNaN(m_d));
    }
    void invalidate() { m_d = quietNaN<T>(); }

private:
    Cdirec3<T> m_normal;
    T m_d;
};

// ---------------------------------------------------------------------------
// Ccircle3
// ---------------------------------------------------------------------------

// A circle in space: centre, the plane it lies in, radius.  Invalid when any
// coordinate of the centre, any plane value or the radius is NaN
// (invalidate() sets the radius only); a default circle is invalid.
template <class T>
class METROMATH_API Ccircle3 {
public:
    Ccircle3() : m_center(quietNaN<T>(), quietNaN<T>(), quietNaN<T>()), m_plane(), m_radius(quietNaN<T>()) {}
    // Plane, centre and radius as given.
    Ccircle3(Cplane3<T> const& e, Cpoint3<T> const& c, T const& r) : m_center(c), m_plane(e), m_radius(r) {}
    // The circle of the plane e through three points: the points are rotated
    // so that e's normal becomes the z axis, the circle through the rotated
    // (x, y) is found in closed form, and its centre is rotated back and
    // projected onto e; the radius is measured to p1 in the rotated frame.  A
    // normal already along +z needs no rotation, one along -z is turned by pi
    // about the x axis.  Collinear points give NaN or infinite values.
    Ccircle3(Cplane3<T> const& e, Cpoint3<T> const& p1, Cpoint3<T> const& p2, Cpoint3<T> const& p3);

    Cpoint3<T> const& center() const { return m_center; }
    Cpoint3<T>& center() { return m_center; }
    Cplane3<T> const& plane() const { return m_plane; }
    Cplane3<T>& plane() { return m_plane; }
    T radius() const { return m_radius; }
    T& radius() { return m_radius; }

    bool isValid() const {
        return !(detail::isNaN(m_center.x) || detail::isNaN(m_center.y) || detail::isNaN(m_center.z) ||
                 !m_plane.isValid() || detail::isNaN(m_radius));
    }
    void invalidate() { m_radius = quietNaN<T>(); }

private:
    Cpoint3<T> m_center;
    Cplane3<T> m_plane;
    T m_radius;
};

extern template class Cplane3<float>;
extern template class Cplane3<double>;
extern template class Ccircle3<float>;
extern template class Ccircle3<double>;

// ---------------------------------------------------------------------------
// Header-only value types
// ---------------------------------------------------------------------------

// An infinite line point + t*direction in space; the direction is meant to be
// a unit vector and its sign orients the line.  Invalid when any component of
// point or direction is NaN; a default line is invalid.
template <class T>
class Cline3 {
public:
    Cline3() : m_point(quietNaN<T>(), T(0), T(0)), m_direction(quietNaN<T>(), T(0), T(0), true) {}
    // Point and direction as given (not renormalised).
    Cline3(Cpoint3<T> const& p, Cdirec3<T> const& d) : m_point(p), m_direction(d) {}
    // The line from p1 through p2; equal points give an invalid direction.
    Cline3(Cpoint3<T> const& p1, Cpoint3<T> const& p2) : m_point(p1), m_direction(p2 - p1) {}

    void set(Cpoint3<T> const& p, Cdirec3<T> const& d) {
        m_point = p;
        m_direction = d;
    }
    void set(Cpoint3<T> const& p1, Cpoint3<T> const& p2) {
        m_point = p1;
        m_direction = Cdirec3<T>(p2 - p1);
    }

    // point + t*direction.
    Cpoint3<T> pointAt(T t) const {
        return Cpoint3<T>(m_point.x + t * m_direction.x, m_point.y + t * m_direction.y,
                          m_point.z + t * m_direction.z);
    }

    Cpoint3<T> const& point() const { return m_point; }
    Cpoint3<T>& point() { return m_point; }
    Cdirec3<T> const& direction() const { return m_direction; }
    Cdirec3<T>& direction() { return m_direction; }

    bool isValid() const {
        return !(detail::isNaN(m_point.x) || detail::isNaN(m_point.y) || detail::isNaN(m_point.z)) &&
               m_direction.isValid();
    }
    void invalidate() { m_point.x = quietNaN<T>(); }

private:
    Cpoint3<T> m_point;
    Cdirec3<T> m_direction;
};

// A sphere: centre and radius (kept as given).  Invalid when a centre
// coordinate or the radius is NaN; a default sphere is invalid.
template <class T>
class Csphere3 {
public:
    Csphere3() : m_center(), m_radius(quietNaN<T>()) {}
    Csphere3(Cpoint3<T> const& c, T r) : m_center(c), m_radius(r) {}

    Cpoint3<T> const& center() const { return m_center; }
    Cpoint3<T>& center() { return m_center; }
    T radius() const { return m_radius; }
    T& radius() { return m_radius; }

    bool isValid() const {
        return !(detail::isNaN(m_center.x) || detail::isNaN(m_center.y) || detail::isNaN(m_center.z) ||
                 detail::isNaN(m_radius));
    }
    void invalidate() { m_radius = quietNaN<T>(); }

private:
    Cpoint3<T> m_center;
    T m_radius;
};

// An infinite circular cylinder: axis line and radius (kept as given).
// Invalid when the axis is invalid or the radius is NaN; a default cylinder
// is invalid.
template <class T>
class Ccylinder3 {
public:
    Ccylinder3() : m_axis(), m_radius(quietNaN<T>()) {}
    Ccylinder3(Cline3<T> const& axis, T r) : m_axis(axis), m_radius(r) {}

    Cline3<T> const& axis() const { return m_axis; }
    Cline3<T>& axis() { return m_axis; }
    T radius() const { return m_radius; }
    T& radius() { return m_radius; }

    bool isValid() const { return m_axis.isValid() && !detail::isNaN(m_radius); }
    void invalidate() { m_radius = quietNaN<T>(); }

private:
    Cline3<T> m_axis;
    T m_radius;
};

// The axis-parallel extent of a spatial point set: minimum and maximum corner.
// Invalid (x of both corners NaN; 0 for integer types, which have no invalid
// value) after default construction and after set() of an empty set.
template <class T>
class CboundingBox3 {
public:
    CboundingBox3() { setInvalid(); }
    // The box spanned by two corners, each coordinate ordered.
    CboundingBox3(Cpoint3<T> const& a, Cpoint3<T> const& b)
        : m_min(a.x < b.x ? a.x : b.x, a.y < b.y ? a.y : b.y, a.z < b.z ? a.z : b.z),
          m_max(a.x < b.x ? b.x : a.x, a.y < b.y ? b.y : a.y, a.z < b.z ? b.z : a.z) {}

    // The extent of the points; an empty set gives the invalid box.  Each of
    // the six comparisons is independent, so one point may set both corners.
    template <class Container>
    void set(Container const& pts) {
        if (pts.empty()) {
            setInvalid();
            return;
        }
        const T M = std::numeric_limits<T>::max();
        m_min = Cpoint3<T>(M, M, M);
        m_max = Cpoint3<T>(-M, -M, -M);
        for (Cpoint3<T> const& p : pts) add(p);
    }
    void set(std::vector<Cpoint3<T>> const& pts) { set<std::vector<Cpoint3<T>>>(pts); }
    void set(std::list<Cpoint3<T>> const& pts) { set<std::list<Cpoint3<T>>>(pts); }

    // Grows the box to contain p (the box must have been set before).
    void add(Cpoint3<T> const& p) {
        for (unsigned i = 0; i < 3; ++i) {
            if (p[i] < m_min[i]) m_min[i] = p[i];
            if (p[i] > m_max[i]) m_max[i] = p[i];
        }
    }

    // Containment with an absolute margin of the machine epsilon of T for
    // floating types (exact for integers); NaN gives false.
    bool isInside(Cpoint3<T> const& p) const {
        const T e = std::numeric_limits<T>::is_integer ? T(0) : tol::eps<T>();
        for (unsigned i = 0; i < 3; ++i)
            if (!(m_min[i] - e <= p[i] && p[i] <= m_max[i] + e)) return false;
        return true;
    }
    // The centre (min + max)/2; integers truncate the sum divided by 2.
    Cpoint3<T> getCenter() const {
        if (std::numeric_limits<T>::is_integer)
            return Cpoint3<T>((m_min.x + m_max.x) / 2, (m_min.y + m_max.y) / 2, (m_min.z + m_max.z) / 2);
        return Cpoint3<T>((m_min.x + m_max.x) * T(0.5), (m_min.y + m_max.y) * T(0.5),
                          (m_min.z + m_max.z) * T(0.5));
    }
    void getCenter(Cpoint3<T>& c) const { c = getCenter(); }

    Cpoint3<T> const& min() const { return m_min; }
    Cpoint3<T>& min() { return m_min; }
    Cpoint3<T> const& max() const { return m_max; }
    Cpoint3<T>& max() { return m_max; }

    bool isValid() const {
        if (std::numeric_limits<T>::is_integer) return true;
        for (unsigned i = 0; i < 3; ++i)
            if (detail::isNaN(m_min[i]) || detail::isNaN(m_max[i])) return false;
        return true;
    }

private:
    void setInvalid() {
        m_min = Cpoint3<T>(quietNaN<T>(), T(0), T(0));
        m_max = m_min;
    }

    Cpoint3<T> m_min;
    Cpoint3<T> m_max;
};

}  // namespace math

#endif
