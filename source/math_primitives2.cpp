// Planar lines, circles, rectangles and bounding boxes.
#include <math/primitives2.h>

#include <cmath>
#include <limits>
#include <type_traits>

#include "math_primitive_ops.h"

namespace math {

namespace {

// One full turn in T: 6.2831855f for float, 6.283185307179586 for double.
template <class T>
constexpr T fullTurn() {
    return T(6.283185307179586);
}

}  // namespace

// ===========================================================================
// Cline2
// ===========================================================================

template <class T>
Cline2<T>::Cline2() : m_point(quietNaN<T>(), quietNaN<T>()), m_direction(quietNaN<T>(), T(0), true) {}

template <class T>
Cline2<T>::Cline2(Cpoint2<T> const& p, Cdirec2<T> const& d) : Cline2() {
    // Start from the invalid line and overwrite both fields: a NaN in p or d
    // stays visible to isValid().
    m_point = p;
    m_direction = d;
}

template <class T>
Cline2<T>::Cline2(Cpoint2<T> const& p1, Cpoint2<T> const& p2)
    : m_point(p1), m_direction(p2.x - p1.x, p2.y - p1.y) {}

template <class T>
Cline2<T>::Cline2(Cpoint2<T> const& p) : m_point(p), m_direction(-p.y, p.x) {}

template <class T>
void Cline2<T>::set(Cpoint2<T> const& p, Cdirec2<T> const& d) {
    m_point = p;
    m_direction = d;
}

template <class T>
void Cline2<T>::set(Cpoint2<T> const& p1, Cpoint2<T> const& p2) {
    m_point = p1;
    m_direction = Cdirec2<T>(p2.x - p1.x, p2.y - p1.y);
}

template <class T>
Cpoint2<T> Cline2<T>::pointAt(T t) const {
    return Cpoint2<T>(m_point.x + t * m_direction.x, m_point.y + t * m_direction.y);
}

template <class T>
void Cline2<T>::getHNF(Cdirec2<T>& n, T& d) const {
    const T dx = m_direction.x;
    const T dy = m_direction.y;
    // Signed distance of the line from the origin (point x direction).
    d = m_point.x * dy - m_point.y * dx;
    if (std::abs(d) <= tol::eps<T>()) {
        // Through the origin: the normal points into the half plane y >= 0.
        d = T(0);
        n = dx >= T(0) ? Cdirec2<T>(-dy, dx) : Cdirec2<T>(dy, -dx);
    } else if (d < T(0)) {
        d = -d;
        n = Cdirec2<T>(-dy, dx);
    } else if (d > T(0)) {
        n = Cdirec2<T>(dy, -dx);
    } else {
        // d is NaN: no normal form.
        n.invalidate();
    }
}

template <class T>
void Cline2<T>::getDistArc(T& dist, T& arc) const {
    const T dx = m_direction.x;
    const T dy = m_direction.y;
    const T d = m_point.x * dy - m_point.y * dx;
    if (std::abs(d) > tol::eps<T>()) {
        dist = std::abs(d);
        // Polar angle of the foot point (d*dy, -d*dx), wrapped into [0, 2*pi).
        arc = std::atan2(-d * dx, d * dy);
        if (arc < T(0)) arc += fullTurn<T>();
    } else {
        // Through the origin (or NaN): angle of (dx, -dy) or its opposite, not
        // wrapped.
        dist = T(0);
        arc = dx >= T(0) ? std::atan2(-dy, dx) : std::atan2(dy, -dx);
    }
}

template <class T>
Cpoint2<T>& Cline2<T>::getLotPoint(Cpoint2<T>& f) const {
    const T k = m_point.y * m_direction.x - m_point.x * m_direction.y;
    f.x = -k * m_direction.y;
    f.y = k * m_direction.x;
    return f;
}

template <class T>
bool Cline2<T>::isValid() const {
    return m_point.x == m_point.x && m_point.y == m_point.y && m_direction.x == m_direction.x &&
           m_direction.y == m_direction.y;
}

// ===========================================================================
// Ccircle2
// ===========================================================================

template <class T>
Ccircle2<T>::Ccircle2() : m_center(quietNaN<T>(), quietNaN<T>()), m_radius(quietNaN<T>()) {}

template <class T>
Ccircle2<T>::Ccircle2(Cpoint2<T> const& c, T r) : m_center(c), m_radius(std::abs(r)) {}

template <class T>
Ccircle2<T>::Ccircle2(Cpoint2<T> const& p1, Cpoint2<T> const& p2, Cpoint2<T> const& p3) {
    m_center.x = quietNaN<T>();
    m_center.y = T(0);
    // Half chords from p1; the centre lies on both perpendicular bisectors.
    const Cpoint2<T> u = (p2 - p1) * T(0.5);
    const Cpoint2<T> v = (p3 - p1) * T(0.5);
    const Cline2<T> b1(p1 + u, Cdirec2<T>(u.y, -u.x));
    const Cline2<T> b2(p1 + v, Cdirec2<T>(v.y, -v.x));
    // Parallel bisectors leave the centre untouched (x stays NaN).
    ops::intersectLines(b1, b2, m_center);
    m_radius = static_cast<T>(std::sqrt((p1.x - m_center.x) * (p1.x - m_center.x) +
                                        (p1.y - m_center.y) * (p1.y - m_center.y)));
}

template <class T>
void Ccircle2<T>::invalidate() {
    m_radius = quietNaN<T>();
}

template <class T>
bool Ccircle2<T>::isValid() const {
    return m_radius == m_radius && m_center.x == m_center.x && m_center.y == m_center.y;
}

// ===========================================================================
// Crect2
// ===========================================================================

template <class T>
Crect2<T>::Crect2() : m_tl(quietNaN<T>(), T(0)), m_br(quietNaN<T>(), T(0)) {}

template <class T>
Crect2<T>::Crect2(T l, T t, T w, T h) : m_tl(l, t), m_br(l + w, t + h) {}

template <class T>
Crect2<T>::Crect2(Cpoint2<T> const& tl, T w, T h) : m_tl(tl), m_br(tl.x + w, tl.y + h) {}

template <class T>
Crect2<T>::Crect2(Cpoint2<T> const& tl, Cpoint2<T> const& br) : m_tl(tl), m_br(br) {}

template <class T>
Cpoint2<T> Crect2<T>::center() const {
    if constexpr (std::is_integral<T>::value) {
        return Cpoint2<T>((m_tl.x + m_br.x) / 2, (m_tl.y + m_br.y) / 2);
    } else {
        return Cpoint2<T>((m_tl.x + m_br.x) * T(0.5), (m_tl.y + m_br.y) * T(0.5));
    }
}

template <class T>
void Crect2<T>::setCenter(Cpoint2<T> const& p) {
    const Cpoint2<T> c = center();
    moveBy(Cpoint2<T>(p.x - c.x, p.y - c.y));
}

template <class T>
void Crect2<T>::adjust(T dl, T dt, T dr, T db) {
    m_tl.x += dl;
    m_tl.y += dt;
    m_br.x += dr;
    m_br.y += db;
}

template <class T>
void Crect2<T>::moveBy(Cpoint2<T> const& p) {
    m_tl.x += p.x;
    m_br.x += p.x;
    m_tl.y += p.y;
    m_br.y += p.y;
}

template <class T>
void Crect2<T>::moveTo(Cpoint2<T> const& p) {
    m_br.x += p.x - m_tl.x;
    m_br.y += p.y - m_tl.y;
    m_tl.x = p.x;
    m_tl.y = p.y;
}

template <class T>
Crect2<T>& Crect2<T>::operator+=(Cpoint2<T> const& p) {
    moveBy(p);
    return *this;
}

template <class T>
Crect2<T>& Crect2<T>::operator-=(Cpoint2<T> const& p) {
    m_tl.x -= p.x;
    m_br.x -= p.x;
    m_tl.y -= p.y;
    m_br.y -= p.y;
    return *this;
}

template <class T>
Crect2<T> Crect2<T>::operator+(Cpoint2<T> const& p) const {
    Crect2 r(*this);
    r += p;
    return r;
}

template <class T>
Crect2<T> Crect2<T>::operator-(Cpoint2<T> const& p) const {
    Crect2 r(*this);
    r -= p;
    return r;
}

template <class T>
Crect2<T>& Crect2<T>::operator*=(T s) {
    m_tl.x *= s;
    m_tl.y *= s;
    m_br.x *= s;
    m_br.y *= s;
    return *this;
}

template <class T>
Crect2<T> Crect2<T>::operator*(T s) const {
    Crect2 r(*this);
    r *= s;
    return r;
}

template <class T>
Crect2<T> Crect2<T>::normalize() const {
    Crect2 r(*this);
    if (r.m_tl.x > r.m_br.x) std::swap(r.m_tl.x, r.m_br.x);
    if (r.m_br.y < r.m_tl.y) std::swap(r.m_tl.y, r.m_br.y);
    return r;
}

template <class T>
bool Crect2<T>::isValid() const {
    if constexpr (std::is_integral<T>::value) {
        return true;  // integers have no invalid value
    } else {
        return m_tl.x == m_tl.x && m_tl.y == m_tl.y && m_br.x == m_br.x && m_br.y == m_br.y;
    }
}

template <class T>
bool Crect2<T>::pointIsIn(Cpoint2<T> const& p) const {
    return m_tl.x <= p.x && p.x <= m_br.x && m_tl.y <= p.y && p.y <= m_br.y;
}

template <class T>
bool Crect2<T>::pointIsRealIn(Cpoint2<T> const& p) const {
    return m_tl.x < p.x && p.x < m_br.x && m_tl.y < p.y && p.y < m_br.y;
}

template <class T>
bool Crect2<T>::pointOnBorder(Cpoint2<T> const& p) const {
    return ((p.x == m_tl.x || p.x == m_br.x) && m_tl.y <= p.y && p.y <= m_br.y) ||
           ((p.y == m_tl.y || p.y == m_br.y) && m_tl.x <= p.x && p.x <= m_br.x);
}

template <class T>
bool Crect2<T>::intersects(Crect2 const& o) const {
    // Bit patterns of the four edge comparisons per axis; all clear or all set
    // means the other rectangle lies entirely to one side.
    const unsigned px = (m_tl.x <= o.m_tl.x ? 1u : 0u) | (m_br.x <= o.m_br.x ? 2u : 0u) |
                        (m_tl.x <= o.m_br.x ? 4u : 0u) | (m_br.x <= o.m_tl.x ? 8u : 0u);
    const unsigned py = (m_tl.y <= o.m_tl.y ? 1u : 0u) | (m_br.y <= o.m_br.y ? 2u : 0u) |
                        (m_tl.y <= o.m_br.y ? 4u : 0u) | (m_br.y <= o.m_tl.y ? 8u : 0u);
    return px != 0u && px != 15u && py != 0u && py != 15u;
}

template <class T>
Crect2<T> Crect2<T>::intersect(Crect2 const& o) const {
    const Crect2 a = normalize();
    const Crect2 b = o.normalize();
    return Crect2(Cpoint2<T>(cNRB_math<T>::max(a.m_tl.x, b.m_tl.x), cNRB_math<T>::max(a.m_tl.y, b.m_tl.y)),
                  Cpoint2<T>(cNRB_math<T>::min(a.m_br.x, b.m_br.x), cNRB_math<T>::min(a.m_br.y, b.m_br.y)));
}

template <class T>
Crect2<T> Crect2<T>::unite(Crect2 const& o) const {
    const Crect2 a = normalize();
    const Crect2 b = o.normalize();
    return Crect2(Cpoint2<T>(cNRB_math<T>::min(a.m_tl.x, b.m_tl.x), cNRB_math<T>::min(a.m_tl.y, b.m_tl.y)),
                  Cpoint2<T>(cNRB_math<T>::max(a.m_br.x, b.m_br.x), cNRB_math<T>::max(a.m_br.y, b.m_br.y)));
}

template <class T>
bool Crect2<T>::operator==(Crect2 const& o) const {
    if constexpr (std::is_integral<T>::value) {
        return m_tl.x == o.m_tl.x && m_tl.y == o.m_tl.y && m_br.x == o.m_br.x && m_br.y == o.m_br.y;
    } else {
        const T t = tol::relative<T>();
        return relEqual<T>(m_tl.x, o.m_tl.x, t) && relEqual<T>(m_tl.y, o.m_tl.y, t) &&
               relEqual<T>(m_br.x, o.m_br.x, t) && relEqual<T>(m_br.y, o.m_br.y, t);
    }
}

// ===========================================================================
// CboundingBox2
// ===========================================================================

template <class T>
CboundingBox2<T>::CboundingBox2() : m_min(quietNaN<T>(), T(0)), m_max(quietNaN<T>(), T(0)) {}

template <class T>
template <class It>
void CboundingBox2<T>::setRange(It first, It last) {
    if (first == last) {
        m_min = Cpoint2<T>(quietNaN<T>(), T(0));
        m_max = Cpoint2<T>(quietNaN<T>(), T(0));
        return;
    }
    const T big = std::numeric_limits<T>::max();
    m_min = Cpoint2<T>(big, big);
    m_max = Cpoint2<T>(-big, -big);
    for (; first != last; ++first) {
        const Cpoint2<T>& p = *first;
        if (p.x < m_min.x) m_min.x = p.x;
        if (p.x > m_max.x) m_max.x = p.x;
        if (p.y < m_min.y) m_min.y = p.y;
        if (p.y > m_max.y) m_max.y = p.y;
    }
}

template <class T>
void CboundingBox2<T>::set(std::vector<Cpoint2<T>> const& pts) {
    setRange(pts.begin(), pts.end());
}

template <class T>
void CboundingBox2<T>::set(std::list<Cpoint2<T>> const& pts) {
    setRange(pts.begin(), pts.end());
}

template <class T>
void CboundingBox2<T>::getCenter(T& x, T& y) const {
    if constexpr (std::is_integral<T>::value) {
        x = (m_min.x + m_max.x) / 2;
        y = (m_min.y + m_max.y) / 2;
    } else {
        x = (m_min.x + m_max.x) * T(0.5);
        y = (m_min.y + m_max.y) * T(0.5);
    }
}

template <class T>
void CboundingBox2<T>::getCenter(Cpoint2<T>& c) const {
    getCenter(c.x, c.y);
}

template <class T>
bool CboundingBox2<T>::isInside(Cpoint2<T> const& p) const {
    if constexpr (std::is_integral<T>::value) {
        return m_min.x <= p.x && p.x <= m_max.x && m_min.y <= p.y && p.y <= m_max.y;
    } else {
        const T e = tol::eps<T>();
        return m_min.x - e <= p.x && p.x <= m_max.x + e && m_min.y - e <= p.y && p.y <= m_max.y + e;
    }
}

template <class T>
bool CboundingBox2<T>::isValid() const {
    if constexpr (std::is_integral<T>::value) {
        return true;
    } else {
        return m_min.x == m_min.x && m_min.y == m_min.y && m_max.x == m_max.x && m_max.y == m_max.y;
    }
}

template class Cline2<float>;
template class Cline2<double>;
template class Ccircle2<float>;
template class Ccircle2<double>;
template class Crect2<int>;
template class Crect2<long>;
template class Crect2<float>;
template class Crect2<double>;
template class CboundingBox2<int>;
template class CboundingBox2<float>;
template class CboundingBox2<double>;

}  // namespace math
