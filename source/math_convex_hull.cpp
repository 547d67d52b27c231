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

    // Pivot: lowest y, then lowest x; the first on an exact tie.
    std::size_t piv = 0;
    bool safe = true;
    for (std::size_t i = 0; i < pts.size(); ++i) {
        const Cvector2<T>& p = pts[i];
        safe = safe && safeCoordinate(p.x) && safeCoordinate(p.y);
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
