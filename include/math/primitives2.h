// Planar value types: the infinite line Cline2<T>, the circle Ccircle2<T>, the
// axis-parallel rectangle Crect2<T>, the bounding box CboundingBox2<T> and the
// header-only ellipse Cellipse2<T>.
//
// Cline2 and Ccircle2 exist for float and double, CboundingBox2 for int, float
// and double, Crect2 for int, long, float and double.  None of them throws:
// degenerate input gives an object whose isValid() is false (a quiet NaN in a
// field; integer rectangles and boxes have no invalid value).
//
// The intersection of two lines lives in geometric<T>::intersect (geometric.h).
#ifndef MATH_PRIMITIVES2_H
#define MATH_PRIMITIVES2_H

#include <math/export.h>
#include <math/point.h>

#include <cmath>
#include <list>
#include <vector>

namespace math {

// ---------------------------------------------------------------------------
// Cline2<T>: the infinite line point + t*direction.  The direction is meant to
// be of unit length and its sign orients the line; invalid when any of the four
// components is NaN (e.g. a line through two equal points).
// ---------------------------------------------------------------------------
template <class T>
class METROMATH_API Cline2 {
public:
    // The invalid line (point and direction x are NaN).
    Cline2();
    // point = p, direction = d as given (not renormalised).
    Cline2(Cpoint2<T> const& p, Cdirec2<T> const& d);
    // Through p1 towards p2: direction = normalised (p2 - p1); invalid if p1 == p2.
    Cline2(Cpoint2<T> const& p1, Cpoint2<T> const& p2);
    // The line whose foot of the perpendicular from the origin is p: point = p,
    // direction = normalised (-p.y, p.x); invalid for p = (0, 0).
    explicit Cline2(Cpoint2<T> const& p);

    void set(Cpoint2<T> const& p, Cdirec2<T> const& d);
    void set(Cpoint2<T> const& p1, Cpoint2<T> const& p2);

    Cpoint2<T> const& point() const { return m_point; }
    Cpoint2<T>& point() { return m_point; }
    Cdirec2<T> const& direction() const { return m_direction; }
    Cdirec2<T>& direction() { return m_direction; }

    // point + t*direction.
    Cpoint2<T> pointAt(T t) const;

    // Hesse normal form n.x = d with d >= 0.  d = point x direction (positive
    // when the origin lies left of the oriented line).  A line through the
    // origin (|d| <= eps of T) gets d = 0 and the normal into the half plane
    // y >= 0: (-dy, dx) if dx >= 0, else (dy, -dx).  A NaN d gives an invalid n.
    void getHNF(Cdirec2<T>& n, T& d) const;

    // Distance of the line from the origin and polar angle of the foot point,
    // in [0, 2*pi).  For a line through the origin (|d| <= eps of T) dist = 0 and
    // arc = atan2(-dy, dx) (dx >= 0) or atan2(dy, -dx), not wrapped: that is the
    // angle of (dx, -dy) or its opposite and deliberately not the angle of the
    // normal that getHNF chooses for the same line.
    void getDistArc(T& dist, T& arc) const;

    // Foot of the perpendicular from the origin, written into f and returned:
    // with k = point.y*dx - point.x*dy, f = (-k*dy, k*dx).  f is output only.
    Cpoint2<T>& getLotPoint(Cpoint2<T>& f) const;

    bool isValid() const;

private:
    Cpoint2<T> m_point;
    Cdirec2<T> m_direction;
};

// ---------------------------------------------------------------------------
// Ccircle2<T>: centre and radius (radius >= 0 after construction from a
// radius).  Invalid when the radius or a centre coordinate is NaN.
// ---------------------------------------------------------------------------
template <class T>
class METROMATH_API Ccircle2 {
public:
    // The invalid circle (centre x and radius NaN).
    Ccircle2();
    // centre = c, radius = |r|.
    Ccircle2(Cpoint2<T> const& c, T r);
    // The circle through three points: the intersection of the perpendicular
    // bisectors of p1p2 and p1p3.  Collinear (or nearly collinear: bisector
    // directions parallel within 2^-23) or coincident points give an invalid
    // circle (centre x and radius NaN).
    Ccircle2(Cpoint2<T> const& p1, Cpoint2<T> const& p2, Cpoint2<T> const& p3);

    Cpoint2<T> const& center() const { return m_center; }
    Cpoint2<T>& center() { return m_center; }
    T radius() const { return m_radius; }
    T& radius() { return m_radius; }

    // Sets the radius (only) to NaN.
    void invalidate();
    bool isValid() const;

private:
    Cpoint2<T> m_center;
    T m_radius;
};

// ---------------------------------------------------------------------------
// Crect2<T>: axis-parallel rectangle by its corners (left, top) and
// (right, bottom); normalised when left <= right and top <= bottom (y grows
// downward).  Width and height are plain differences, no +1 for integers.
// float/double: invalid when a field is NaN (the default rectangle);
// int/long: always valid.
// ---------------------------------------------------------------------------
template <class T>
class METROMATH_API Crect2 {
public:
    // int/long: left = right = 0; float/double: left = right = NaN.  top and
    // bottom are 0.
    Crect2();
    // left = l, top = t, right = l + w, bottom = t + h.
    Crect2(T l, T t, T w, T h);
    Crect2(Cpoint2<T> const& tl, T w, T h);
    // The two corners as given (no normalisation).
    Crect2(Cpoint2<T> const& tl, Cpoint2<T> const& br);

    T left() const { return m_tl.x; }
    T top() const { return m_tl.y; }
    T right() const { return m_br.x; }
    T bottom() const { return m_br.y; }
    T& left() { return m_tl.x; }
    T& top() { return m_tl.y; }
    T& right() { return m_br.x; }
    T& bottom() { return m_br.y; }

    Cpoint2<T> const& topLeft() const { return m_tl; }
    Cpoint2<T>& topLeft() { return m_tl; }
    Cpoint2<T> const& bottomRight() const { return m_br; }
    Cpoint2<T>& bottomRight() { return m_br; }
    Cpoint2<T> topRight() const { return Cpoint2<T>(m_br.x, m_tl.y); }
    Cpoint2<T> bottomLeft() const { return Cpoint2<T>(m_tl.x, m_br.y); }

    // right - left and bottom - top (negative when not normalised).
    T width() const { return m_br.x - m_tl.x; }
    T height() const { return m_br.y - m_tl.y; }
    void setWidth(T w) { m_br.x = m_tl.x + w; }
    void setHeight(T h) { m_br.y = m_tl.y + h; }

    // ((left + right)/2, (top + bottom)/2); integers truncate toward zero,
    // float/double multiply the sum by 0.5.
    Cpoint2<T> center() const;
    // Moves all four fields by p - center() (the truncated centre for integers).
    void setCenter(Cpoint2<T> const& p);
    // Each edge moved by its own amount: left += dl, top += dt, right += dr, bottom += db.
    void adjust(T dl, T dt, T dr, T db);
    void moveBy(Cpoint2<T> const& p);
    // Moves the rectangle so that (left, top) = p, keeping its size.
    void moveTo(Cpoint2<T> const& p);
    Crect2& operator+=(Cpoint2<T> const& p);
    Crect2& operator-=(Cpoint2<T> const& p);
    Crect2 operator+(Cpoint2<T> const& p) const;
    Crect2 operator-(Cpoint2<T> const& p) const;
    // Scales all four fields about the origin (not about the centre).
    Crect2& operator*=(T s);
    Crect2 operator*(T s) const;

    // A copy with left/right swapped if left > right and top/bottom swapped if
    // bottom < top.
    Crect2 normalize() const;
    bool isValid() const;

    // Exact tests, no normalisation (a rectangle with left > right holds no point).
    // left <= x <= right and top <= y <= bottom.
    bool pointIsIn(Cpoint2<T> const& p) const;
    // left < x < right and top < y < bottom.
    bool pointIsRealIn(Cpoint2<T> const& p) const;
    // On one of the four edges (exact equality also for float/double).
    bool pointOnBorder(Cpoint2<T> const& p) const;

    // Overlap test by two 4-bit comparison patterns per axis: x gives
    // (left <= o.left, right <= o.right, left <= o.right, right <= o.left);
    // the rectangles intersect unless a pattern is all clear or all set.  So a
    // rectangle touching this one's right (bottom) edge does not intersect,
    // one touching its left (top) edge does: a.intersects(b) and
    // b.intersects(a) differ for rectangles sharing exactly one edge.
    bool intersects(Crect2 const& o) const;
    // Of the normalised operands: (max left, max top, min right, min bottom);
    // disjoint rectangles give a negative width or height (not checked).
    Crect2 intersect(Crect2 const& o) const;
    // Of the normalised operands: (min left, min top, max right, max bottom).
    Crect2 unite(Crect2 const& o) const;

    // int/long exact; float/double each field with the relative comparison
    // (2^-15 float, 2^-35 double).
    bool operator==(Crect2 const& o) const;
    bool operator!=(Crect2 const& o) const { return !(*this == o); }

private:
    Cpoint2<T> m_tl;  // (left, top)
    Cpoint2<T> m_br;  // (right, bottom)
};

// ---------------------------------------------------------------------------
// CboundingBox2<T>: the extent (min corner, max corner) of a point set.  An
// empty set gives the invalid box (min.x = max.x = NaN; int: 0, always valid).
// ---------------------------------------------------------------------------
template <class T>
class METROMATH_API CboundingBox2 {
public:
    // min.x = max.x = NaN (int: 0); y = 0.
    CboundingBox2();

    // Componentwise minimum and maximum, starting from (M, M) and (-M, -M) with
    // M the largest finite T (for int the start maximum is -2147483647, so a
    // point at INT_MIN never raises the maximum).  An empty set gives the
    // invalid box.
    void set(std::vector<Cpoint2<T>> const& pts);
    void set(std::list<Cpoint2<T>> const& pts);

    // ((min + max)/2) per axis; int truncates, float/double multiply by 0.5.
    void getCenter(T& x, T& y) const;
    void getCenter(Cpoint2<T>& c) const;

    // float/double: min - eps <= p <= max + eps per axis with the machine
    // epsilon of T as absolute margin; int: min <= p <= max.  NaN gives false.
    bool isInside(Cpoint2<T> const& p) const;
    bool isValid() const;

    Cpoint2<T> const& min() const { return m_min; }
    Cpoint2<T>& min() { return m_min; }
    Cpoint2<T> const& max() const { return m_max; }
    Cpoint2<T>& max() { return m_max; }

private:
    template <class It>
    void setRange(It first, It last);

    Cpoint2<T> m_min;
    Cpoint2<T> m_max;
};

// A planar ellipse: centre, semi-axes a (along the rotated x axis) and b
// (along the rotated y axis), and the rotation angle (radians, counter-
// clockwise from the x axis to the a axis).  Invalid when any value is NaN;
// a default ellipse is invalid.
template <class T>
class Cellipse2 {
public:
    Cellipse2() : m_center(), m_a(quietNaN<T>()), m_b(quietNaN<T>()), m_angle(T(0)) {}
    Cellipse2(Cpoint2<T> const& c, T a, T b, T angle) : m_center(c), m_a(a), m_b(b), m_angle(angle) {}

    Cpoint2<T> const& center() const { return m_center; }
    Cpoint2<T>& center() { return m_center; }
    T a() const { return m_a; }
    T& a() { return m_a; }
    T b() const { return m_b; }
    T& b() { return m_b; }
    T angle() const { return m_angle; }
    T& angle() { return m_angle; }

    // The point at parameter t: centre + R(angle)*(a*cos t, b*sin t).
    Cpoint2<T> pointAt(T t) const {
        const T ca = std::cos(m_angle), sa = std::sin(m_angle);
        const T u = m_a * std::cos(t), v = m_b * std::sin(t);
        return Cpoint2<T>(m_center.x + ca * u - sa * v, m_center.y + sa * u + ca * v);
    }

    bool isValid() const {
        return !(detail::isNaN(m_center.x) || detail::isNaN(m_center.y) || detail::isNaN(m_a) ||
                 detail::isNaN(m_b) || detail::isNaN(m_angle));
    }
    void invalidate() { m_a = quietNaN<T>(); }

private:
    Cpoint2<T> m_center;
    T m_a;
    T m_b;
    T m_angle;
};

extern template class Cline2<float>;
extern template class Cline2<double>;
extern template class Ccircle2<float>;
extern template class Ccircle2<double>;
extern template class Crect2<int>;
extern template class Crect2<long>;
extern template class Crect2<float>;
extern template class Crect2<double>;
extern template class CboundingBox2<int>;
extern template class CboundingBox2<float>;
extern template class CboundingBox2<double>;

}  // namespace math

#endif
