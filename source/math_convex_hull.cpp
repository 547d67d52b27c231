// Convex hull by a Graham scan.
#include <math/convex_hull.h>

#include "math_planar_exact.h"

#include <algorithm>
#include <cmath>

namespace math {

namespace {

// Coordinates for which the exact orientation holds (see math_planar_exact.h):
// every float and int; doubles of magnitude 2^-400 .. 2^500 or 0.
inline bool safeCoordinate(float) {
    return true;
}
inline bool safeCoordinate(double v) {
    const double a = std::abs(v);
    return a <= 0x1p500 && (a == 0.0 || a >= 0x1p-400);
}
inline bool safeCoordinate(int) {
    return true;
}

template <class T>
inline bool isFinite(Cvector2<T> const& p) {
    if constexpr (std::is_integral<T>::value) {
        (void)p;
        return true;
    } else {
        return std::isfinite(p.x) && std::isfinite(p.y);
    }
}

// Discards the points strictly inside the polygon of the extreme points in
// the eight directions 0, 45, .., 315 degrees (Akl-Toussaint).  None of them can
// be a hull corner or lie on a hull edge, so the hull of the rest is the same,
// corner for corner.  A point strictly left of every edge of a closed polygon
// of input points is enclosed by it (its angles all turn the same way), so it
// lies strictly inside the hull even when rounding of x + y and x - y picked a
// slightly non-extreme point: the test needs only exact orientations, which
// hold for safe coordinates.  Keeps the order of the remaining points.
template <class T>
void discardInterior(std::vector<Cvector2<T>>& pts) {
    using W = typename std::conditional<std::is_integral<T>::value, long long, double>::type;
    const std::size_t n = pts.size();
    // Indices of min y, max x-y, max x, max x+y, max y, min x-y, min x, min x+y:
    // counter-clockwise by direction.
    std::size_t e[8] = {0, 0, 0, 0, 0, 0, 0, 0};
    W minY = W(pts[0].y), maxX = W(pts[0].x), maxY = minY, minX = maxX;
    W maxD = maxX - minY, minD = maxD, maxS = maxX + minY, minS = maxS;
    for (std::size_t i = 1; i < n; ++i) {
        const W x = W(pts[i].x), y = W(pts[i].y), d = x - y, s = x + y;
        if (y < minY) { minY = y; e[0] = i; }
        if (d > maxD) { maxD = d; e[1] = i; }
        if (x > maxX) { maxX = x; e[2] = i; }
        if (s > maxS) { maxS = s; e[3] = i; }
        if (y > maxY) { maxY = y; e[4] = i; }
        if (d < minD) { minD = d; e[5] = i; }
        if (x < minX) { minX = x; e[6] = i; }
        if (s < minS) { minS = s; e[7] = i; }
    }
    Cvector2<T> poly[8];
    int m = 0;
    for (int k = 0; k < 8; ++k) {
        const Cvector2<T> v = pts[e[k]];
        if (m == 0 || v != poly[m - 1]) poly[m++] = v;
    }
    while (m > 1 && poly[m - 1] == poly[0]) --m;
    if (m < 3) return;
    std::size_t k = 0;
    for (std::size_t i = 0; i < n; ++i) {
        const Cvector2<T> p = pts[i];
        bool inside = true;
        for (int j = 0; j < m && inside; ++j) inside = detail::orient(poly[j], poly[(j + 1) % m], p) > 0;
        if (!inside) pts[k++] = p;
    }
    pts.resize(k);
}

// Below this many points the filter costs more than it saves.
constexpr std::size_t kFilterMin = 64;

}  // namespace

template <class T>
CcvxHull2D<T>::CcvxHull2D(std::vector<Cvector2<T>> pts) {
    calc(pts);
}

template <class T>
int CcvxHull2D<T>::T_func(Cvector2<T> const& a, Cvector2<T> const& b, Cvector2<T> const& c) {
    return detail::orient(a, b, c);
}

template <class T>
typename CcvxHull2D<T>::Twide CcvxHull2D<T>::sqDist(Cvector2<T> const& a, Cvector2<T> const& b) {
    const Twide dx = Tdiff(a.x) - Tdiff(b.x);
    const Twide dy = Tdiff(a.y) - Tdiff(b.y);
    return dx * dx + dy * dy;
}

template <class T>
void CcvxHull2D<T>::calc(std::vector<Cvector2<T>>& pts) {
    m_hull.clear();
    if (pts.size() < 3) return;

    if constexpr (!std::is_integral<T>::value) {
        pts.erase(std::remove_if(pts.begin(), pts.end(), [](Cvector2<T> const& p) { return !isFinite(p); }),
                  pts.end());
        if (pts.size() < 3) return;
    }

    bool safe = true;
    for (Cvector2<T> const& p : pts) safe = safe && safeCoordinate(p.x) && safeCoordinate(p.y);
    if (safe && pts.size() >= kFilterMin) discardInterior(pts);

    // Pivot: lowest y, then lowest x; the first on an exact tie.
    std::size_t piv = 0;
    for (std::size_t i = 0; i < pts.size(); ++i) {
        const Cvector2<T>& p = pts[i];
        if (p.y < pts[piv].y || (p.y == pts[piv].y && p.x < pts[piv].x)) piv = i;
    }
    std::swap(pts[0], pts[piv]);
    const Cvector2<T> pivot = pts[0];

    // Counter-clockwise around the pivot; on one ray the nearer point first.
    // All points lie in the half plane above the pivot (or right of it on its
    // row), so the sign of T_func orders them by angle.  The rounded squared
    // distance grows monotonically along a ray; where it ties, the coordinate
    // along the ray decides exactly.
    const auto ccw = [&pivot](Cvector2<T> const& a, Cvector2<T> const& b) {
        const int s = T_func(pivot, a, b);
        if (s != 0) return s > 0;
        const Twide da = sqDist(pivot, a), db = sqDist(pivot, b);
        if (da != db) return da < db;
        if (a.x != b.x) return a.x > pivot.x ? a.x < b.x : a.x > b.x;
        return a.y < b.y;
    };
    if (safe) {
        std::sort(pts.begin() + 1, pts.end(), ccw);
    } else {
        // Extreme magnitudes: the comparator may be inconsistent; the merge
        // sort stays within bounds for any deterministic comparator.
        std::stable_sort(pts.begin() + 1, pts.end(), ccw);
    }

    // Thin rays: keep a point only if the next one is not collinear with it
    // and the pivot (so of each run the last, farthest one survives).
    std::size_t k = 1;
    for (std::size_t i = 1; i < pts.size(); ++i) {
        if (i + 1 == pts.size() || T_func(pivot, pts[i], pts[i + 1]) != 0) pts[k++] = pts[i];
    }
    pts.resize(k);
    if (pts.size() < 3) return;

    // Scan: strict left turns only, so points on hull edges are dropped.
    m_hull.reserve(pts.size());
    m_hull.push_back(pts[0]);
    m_hull.push_back(pts[1]);
    std::size_t i = 2;
    while (i < pts.size()) {
        const std::size_t h = m_hull.size();
        if (h < 2 || T_func(m_hull[h - 2], m_hull[h - 1], pts[i]) > 0) {
            m_hull.push_back(pts[i]);
            ++i;
        } else {
            m_hull.pop_back();
        }
    }
}

template class CcvxHull2D<int>;
template class CcvxHull2D<float>;
template class CcvxHull2D<double>;

}  // namespace math
