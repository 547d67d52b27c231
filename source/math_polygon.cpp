// Cpolygon2<T>: construction and editing, measures, classification and point
// in polygon.  The polygons derived from one (simplification, hull, contour,
// enclosing rectangle) are in math_polygon_derived.cpp.
#include <math/polygon.h>

#include "math_planar_exact.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace math {

namespace {
using detail::cross3;
}  // namespace

// ===========================================================================
// Construction and editing
// ===========================================================================

template <class T>
Cpolygon2<T>::Cpolygon2() : m_type(TYPE_UNKNOWN), m_ref(quietNaN<T>(), T(0)) {}

template <class T>
Cpolygon2<T>::Cpolygon2(std::vector<Cpoint2<T>> const& pts)
    : m_points(pts), m_type(TYPE_UNKNOWN), m_ref(quietNaN<T>(), T(0)) {}

template <class T>
Cpolygon2<T>::Cpolygon2(std::list<Cpoint2<T>> const& pts)
    : m_points(pts.begin(), pts.end()), m_type(TYPE_UNKNOWN), m_ref(quietNaN<T>(), T(0)) {}

template <class T>
Cpolygon2<T>::Cpolygon2(Crect2<T> const& r) : Cpolygon2() {
    set(r);
}

template <class T>
Cpolygon2<T>& Cpolygon2<T>::operator=(std::vector<Cpoint2<T>> const& pts) {
    set(pts);
    return *this;
}

template <class T>
void Cpolygon2<T>::set(std::vector<Cpoint2<T>> const& pts) {
    m_points = pts;
    m_type = TYPE_UNKNOWN;
}

template <class T>
void Cpolygon2<T>::set(Crect2<T> const& r) {
    m_points.assign({Cpoint2<T>(r.left(), r.top()), Cpoint2<T>(r.left(), r.bottom()),
                     Cpoint2<T>(r.right(), r.bottom()), Cpoint2<T>(r.right(), r.top())});
    m_rect = r;
    m_type = TYPE_RECT;
}

template <class T>
void Cpolygon2<T>::add(T x, T y) {
    m_points.emplace_back(x, y);
    m_type = TYPE_UNKNOWN;
}

template <class T>
void Cpolygon2<T>::add(Cpoint2<T> const& p) {
    m_points.push_back(p);
    m_type = TYPE_UNKNOWN;
}

template <class T>
void Cpolygon2<T>::add(std::vector<Cpoint2<T>> const& pts) {
    m_points.insert(m_points.end(), pts.begin(), pts.end());
    m_type = TYPE_UNKNOWN;
}

template <class T>
bool Cpolygon2<T>::remove(unsigned int i) {
    if (i >= m_points.size()) return false;
    m_points.erase(m_points.begin() + i);
    m_type = TYPE_UNKNOWN;
    return true;
}

template <class T>
bool Cpolygon2<T>::remove(Cpoint2<T> const& p) {
    const auto it = std::find(m_points.begin(), m_points.end(), p);
    if (it == m_points.end()) return false;
    m_points.erase(it);
    m_type = TYPE_UNKNOWN;
    return true;
}

template <class T>
void Cpolygon2<T>::clear() {
    m_points.clear();
    m_type = TYPE_INVALID;
}

// ===========================================================================
// Measures
// ===========================================================================

template <class T>
T Cpolygon2<T>::area() const {
    const std::size_t n = m_points.size();
    if (n < 3) return T(0);
    T sum = T(0);
    for (std::size_t i = 0; i < n; ++i) {
        const Cpoint2<T>& a = m_points[i];
        const Cpoint2<T>& b = m_points[i + 1 == n ? 0 : i + 1];
        sum += a.x * b.y - a.y * b.x;
    }
    return T(0.5) * sum;
}

template <class T>
Cpoint2<T> Cpolygon2<T>::center() const {
    T sx = T(0), sy = T(0);
    for (Cpoint2<T> const& p : m_points) {
        sx += p.x;
        sy += p.y;
    }
    const T n = static_cast<T>(m_points.size());
    return Cpoint2<T>(sx / n, sy / n);  // 0/0 = NaN for an empty polygon
}

template <class T>
Crect2<T> Cpolygon2<T>::boundingRect() const {
    if (m_type == TYPE_INVALID) return Crect2<T>();
    if (m_type == TYPE_RECT) return m_rect;
    return boundingRect(m_points);
}

template <class T>
Crect2<T> Cpolygon2<T>::boundingRect(std::vector<Cpoint2<T>> const& pts) {
    const T big = std::numeric_limits<T>::max();
    T l = big, t = big, r = -big, b = -big;
    for (Cpoint2<T> const& p : pts) {
        if (p.x < l) l = p.x;
        if (p.x > r) r = p.x;
        if (p.y < t) t = p.y;
        if (p.y > b) b = p.y;
    }
    return Crect2<T>(Cpoint2<T>(l, t), Cpoint2<T>(r, b));
}

template <class T>
bool Cpolygon2<T>::operator==(Cpolygon2 const& o) const {
    if (m_points.size() != o.m_points.size()) return false;
    const T t = tol::relative<T>();
    for (std::size_t i = 0; i < m_points.size(); ++i) {
        if (!relEqual<T>(m_points[i].x, o.m_points[i].x, t) || !relEqual<T>(m_points[i].y, o.m_points[i].y, t))
            return false;
    }
    return true;
}

// ===========================================================================
// Classification
// ===========================================================================

template <class T>
void Cpolygon2<T>::preprocess() {
    m_type = TYPE_INVALID;
    m_slabY.clear();
    m_slabStart.clear();
    m_slabEdges.clear();
    if (m_points.size() < 3) return;
    if (isDegenerated()) {
        m_type = TYPE_DEGENERATED;
        return;
    }
    optimize(true);
    if (!isSimple()) {
        m_type = TYPE_COMPLEX;
        buildSlabs();
        return;
    }
    if (testRect()) {
        m_type = TYPE_RECT;
        return;
    }
    if (!isConvex()) {
        m_type = TYPE_CONCAVE;
        buildSlabs();
        return;
    }
    m_type = TYPE_CONVEX;
    // The mean of three consecutive corners of a convex polygon without
    // collinear vertices lies strictly inside it.
    m_ref = Cpoint2<T>((m_points[0].x + m_points[1].x + m_points[2].x) / T(3),
                       (m_points[0].y + m_points[1].y + m_points[2].y) / T(3));
    m_angles.clear();
    m_angles.reserve(m_points.size());
    for (Cpoint2<T> const& v : m_points) m_angles.emplace_back(theta(m_ref, v), v);
    std::sort(m_angles.begin(), m_angles.end(),
              [](Tangle const& a, Tangle const& b) { return a.first < b.first; });
}

template <class T>
bool Cpolygon2<T>::isDegenerated() const {
    const std::size_t n = m_points.size();
    if (n < 3) return true;
    for (std::size_t i = 0; i < n; ++i) {
        const Cpoint2<T>& a = m_points[i];
        const Cpoint2<T>& b = m_points[(i + 1) % n];
        const Cpoint2<T>& c = m_points[(i + 2) % n];
        if (cross3(a, b, c) != T(0)) return false;
    }
    return true;
}

template <class T>
void Cpolygon2<T>::optimize(bool makePositive) {
    const std::size_t n = m_points.size();
    if (n == 0) return;
    // Start vertex: smallest x, then smallest y, the first such in order.
    std::size_t s = 0;
    for (std::size_t i = 1; i < n; ++i) {
        const Cpoint2<T>& p = m_points[i];
        const Cpoint2<T>& q = m_points[s];
        if (p.x < q.x || (p.x == q.x && p.y < q.y)) s = i;
    }
    // Ring: v[s .. n-1], v[0 .. s]; the start vertex stands at both ends.
    std::vector<Cpoint2<T>> ring;
    ring.reserve(n + 1);
    ring.insert(ring.end(), m_points.begin() + static_cast<std::ptrdiff_t>(s), m_points.end());
    ring.insert(ring.end(), m_points.begin(), m_points.begin() + static_cast<std::ptrdiff_t>(s) + 1);
    // Keep the inner vertices that are not collinear with their ring
    // neighbours (the neighbours in the ring, not the last vertex kept).
    m_points.clear();
    m_points.push_back(ring[0]);
    for (std::size_t k = 1; k + 1 < ring.size(); ++k) {
        if (cross3(ring[k - 1], ring[k], ring[k + 1]) != T(0)) m_points.push_back(ring[k]);
    }
    if (makePositive && area() < T(0)) std::reverse(m_points.begin(), m_points.end());
}

template <class T>
int Cpolygon2<T>::turn(Cpoint2<T> const& p0, Cpoint2<T> const& p1, Cpoint2<T> const& p2) {
    const T d1x = p1.x - p0.x, d1y = p1.y - p0.y;
    const T d2x = p2.x - p0.x, d2y = p2.y - p0.y;
    if (d2x * d1y > d1x * d2y) return 1;
    if (d2x * d1y < d1x * d2y) return -1;
    if (d1x * d2x < T(0) || d1y * d2y < T(0)) return -1;   // p2 behind p0
    if (d1x * d1x + d1y * d1y <= d1x * d2x + d1y * d2y) return 0;  // at or beyond p1
    return 1;
}

template <class T>
bool Cpolygon2<T>::isSimple() const {
    const std::size_t n = m_points.size();
    if (n < 3) return false;
    for (std::size_t i = 0; i < n; ++i) {
        const Cpoint2<T>& a = m_points[i];
        const Cpoint2<T>& b = m_points[(i + 1) % n];
        unsigned meets = 0;
        for (std::size_t j = 0; j < n; ++j) {
            if (j == i) continue;
            const Cpoint2<T>& c = m_points[j];
            const Cpoint2<T>& d = m_points[(j + 1) % n];
            if (turn(a, b, c) * turn(a, b, d) <= 0 && turn(c, d, a) * turn(c, d, b) <= 0) {
                if (++meets > 2) return false;
            }
        }
        if (meets != 2) return false;
    }
    return true;
}

template <class T>
bool Cpolygon2<T>::testRect() {
    if (m_points.size() != 4) return false;
    m_rect = boundingRect(m_points);
    const T t = tol::relative<T>();
    const T l = m_rect.left(), tp = m_rect.top(), r = m_rect.right(), b = m_rect.bottom();
    bool corner[4] = {false, false, false, false};
    for (Cpoint2<T> const& v : m_points) {
        const bool xl = relEqual<T>(v.x, l, t), xr = relEqual<T>(v.x, r, t);
        const bool yt = relEqual<T>(v.y, tp, t), yb = relEqual<T>(v.y, b, t);
        if (xl && yt) corner[0] = true;
        if (xr && yt) corner[1] = true;
        if (xr && yb) corner[2] = true;
        if (xl && yb) corner[3] = true;
    }
    return corner[0] && corner[1] && corner[2] && corner[3];
}

template <class T>
int Cpolygon2<T>::_sign(T v) {
    return v > T(0) ? 1 : (v < T(0) ? -1 : 0);
}

template <class T>
bool Cpolygon2<T>::isConvex() const {
    const std::size_t n = m_points.size();
    if (n < 3) return false;
    const auto turnSign = [this](std::size_t i) {
        const Cpoint2<T>& a = m_points[i - 1];
        const Cpoint2<T>& b = m_points[i];
        const Cpoint2<T>& c = m_points[i + 1];
        return _sign((b.x - a.x) * (c.y - b.y) - (b.y - a.y) * (c.x - b.x));
    };
    const int s = turnSign(1);
    for (std::size_t i = 2; i + 1 < n; ++i)
        if (turnSign(i) != s) return false;
    return true;
}

template <class T>
T Cpolygon2<T>::theta(Cpoint2<T> const& p, Cpoint2<T> const& q) {
    const T dx = q.x - p.x;
    const T dy = q.y - p.y;
    const T s = std::abs(dx) + std::abs(dy);
    T t = s == T(0) ? T(0) : dy / s;
    if (dx >= T(0)) {
        if (dy < T(0)) t = t + T(4);
        return T(360) - T(90) * t;
    }
    return T(360) - T(90) * (T(2) - t);
}

// ===========================================================================
// Point in polygon
// ===========================================================================

template <class T>
bool Cpolygon2<T>::pointIsIn(Cpoint2<T> const& p) const {
    if (m_points.size() < 3) return false;
    if (p.x != p.x || p.y != p.y) return false;  // NaN: in no polygon
    switch (m_type) {
        case TYPE_UNKNOWN:
            return pointIsInWinding(p);
        case TYPE_CONCAVE:
        case TYPE_COMPLEX:
            return m_slabY.empty() ? pointIsInWinding(p) : pointIsInSlabs(p);
        case TYPE_RECT:
            return m_rect.pointIsIn(p);
        case TYPE_CONVEX:
            return pointIsInConvex(p);
        default:
            return false;
    }
}

template <class T>
bool Cpolygon2<T>::pointIsInWinding(Cpoint2<T> const& p) const {
    const std::size_t n = m_points.size();
    const Cpoint2<T>* v = m_points.data();
    int w = 0;
    for (std::size_t i = 0; i < n; ++i) {
        const Cpoint2<T>& a = v[i];
        const Cpoint2<T>& b = v[i + 1 == n ? 0 : i + 1];
        if (a.y <= p.y) {
            if (p.y < b.y && cross3(a, b, p) > T(0)) ++w;  // upward, p strictly left
        } else if (b.y <= p.y && cross3(a, b, p) < T(0)) {
            --w;  // downward, p strictly right
        }
    }
    return w != 0;
}

template <class T>
bool Cpolygon2<T>::pointIsInConvex(Cpoint2<T> const& p) const {
    const std::size_t n = m_angles.size();
    if (n < 3) return false;
    // A convex polygon of finite vertices is bounded; an infinite point would
    // make the side tests below NaN (sign 0, "on the edge").
    if (!std::isfinite(p.x) || !std::isfinite(p.y)) return false;
    const T a = theta(m_ref, p);
    // First table entry whose angle is not less than the point's.
    const auto it = std::lower_bound(m_angles.begin(), m_angles.end(), a,
                                     [](Tangle const& e, T v) { return e.first < v; });
    const std::size_t k = static_cast<std::size_t>(it - m_angles.begin());
    // The wedge between two neighbouring table vertices; at either end of the
    // table the wedge that wraps around (last and first vertex).
    const Cpoint2<T>& u = m_angles[(k == 0 || k == n) ? n - 1 : k - 1].second;
    const Cpoint2<T>& w = m_angles[(k == 0 || k == n) ? 0 : k].second;
    // Inside unless p lies strictly on the other side of the edge u-w than the
    // reference point.
    const int sr = _sign(cross3(u, w, m_ref));
    const int sp = _sign(cross3(u, w, p));
    return !(sp != 0 && sp == -sr);
}


template class Cpolygon2<float>;
template class Cpolygon2<double>;

}  // namespace math
