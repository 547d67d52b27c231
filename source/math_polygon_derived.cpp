// Polygons derived from a polygon or a point set: simplification by vertex
// removal, convex hull, contour and minimum enclosing rectangle of Cpolygon2<T>.
#include <math/polygon.h>

#include "math_planar_exact.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <queue>

namespace math {

namespace {

using detail::cross3;

// Exact sign of (b - a) x (c - a).
template <class T>
inline int orient(Cpoint2<T> const& a, Cpoint2<T> const& b, Cpoint2<T> const& c) {
    return detail::orient(a, b, c);
}

template <class T>
inline bool lexLess(Cpoint2<T> const& a, Cpoint2<T> const& b) {
    return a.x < b.x || (a.x == b.x && a.y < b.y);
}

template <class T>
inline bool hasNaN(Cpoint2<T> const& p) {
    return !(p.x == p.x) || !(p.y == p.y);
}

// The distinct points of pts without NaN, sorted by (x, y).
template <class T>
std::vector<Cpoint2<T>> sortedUnique(std::vector<Cpoint2<T>> const& pts, bool finiteOnly = false) {
    std::vector<Cpoint2<T>> s;
    s.reserve(pts.size());
    for (Cpoint2<T> const& p : pts)
        if (finiteOnly ? std::isfinite(p.x) && std::isfinite(p.y) : !hasNaN(p)) s.push_back(p);
    std::sort(s.begin(), s.end(), lexLess<T>);
    s.erase(std::unique(s.begin(), s.end()), s.end());
    return s;
}

}  // namespace

// ===========================================================================
// Simplification
// ===========================================================================

template <class T>
Cpolygon2<T> Cpolygon2<T>::simplifiedTo(unsigned int n) const {
    const std::size_t size = m_points.size();
    if (size < 3) return Cpolygon2();
    if (n <= 2 || n >= size) return *this;

    // Cyclic list as index links; a vertex is removed by unlinking.  The
    // candidate with the smallest triangle is taken from a heap keyed by
    // (area, position): positions never change order, so the earliest vertex
    // of the list wins a tie, as in a scan that replaces its candidate only on
    // a strictly smaller area.  Entries made stale by a neighbour's removal are
    // recognised by their version stamp and skipped.
    //
    // NaN areas (a NaN vertex or neighbour) follow the same scan: a NaN never
    // replaces the candidate, so it ranks behind every number in the heap; but
    // when the first vertex of the list has a NaN area nothing replaces it,
    // and it is removed before the heap is consulted.
    std::vector<std::size_t> prev(size), next(size);
    std::vector<unsigned> version(size, 0u);
    std::vector<char> alive(size, 1);
    for (std::size_t i = 0; i < size; ++i) {
        prev[i] = i == 0 ? size - 1 : i - 1;
        next[i] = i + 1 == size ? 0 : i + 1;
    }
    struct Entry {
        T area;
        std::size_t index;
        unsigned version;
    };
    // std::priority_queue is a max-heap: "less" means larger area, or equal
    // area and later position.
    const auto later = [](Entry const& a, Entry const& b) {
        const bool an = !(a.area == a.area), bn = !(b.area == b.area);
        if (an != bn) return an;
        if (!an && a.area != b.area) return a.area > b.area;
        return a.index > b.index;
    };
    std::priority_queue<Entry, std::vector<Entry>, decltype(later)> heap(later);
    const auto areaOf = [&](std::size_t i) {
        return std::abs(cross3(m_points[prev[i]], m_points[i], m_points[next[i]]));
    };
    for (std::size_t i = 0; i < size; ++i) heap.push(Entry{areaOf(i), i, 0u});

    std::size_t count = size;
    std::size_t head = 0;  // the first vertex of the list (smallest live position)
    while (count > n) {
        std::size_t i;
        const T headArea = areaOf(head);
        if (!(headArea == headArea)) {
            i = head;
        } else {
            const Entry e = heap.top();
            heap.pop();
            if (e.version != version[e.index]) continue;
            i = e.index;
        }
        const std::size_t a = prev[i], c = next[i];
        next[a] = c;
        prev[c] = a;
        if (i == head) head = c;
        alive[i] = 0;
        ++version[i];  // all its entries are stale now
        --count;
        for (std::size_t j : {a, c}) {
            ++version[j];
            heap.push(Entry{areaOf(j), j, version[j]});
        }
    }
    std::vector<Cpoint2<T>> out;
    out.reserve(count);
    for (std::size_t i = 0; i < size; ++i)
        if (alive[i]) out.push_back(m_points[i]);
    return Cpolygon2(out);
}

// ===========================================================================
// Hull, contour, minimum enclosing rectangle
// ===========================================================================

template <class T>
Cpolygon2<T> Cpolygon2<T>::convexPoly() const {
    return convexPoly(m_points, true);
}

template <class T>
Cpolygon2<T> Cpolygon2<T>::convexPoly(std::vector<Cpoint2<T>> const& pts, bool keepEdgePoints) {
    // Infinite points have no place on a hull (CcvxHull2D drops them too).
    const std::vector<Cpoint2<T>> s = sortedUnique(pts, true);
    const std::size_t n = s.size();
    if (n <= 2) return Cpolygon2(s);
    // Collinear set: the end points, or all points along the line.
    bool collinear = true;
    for (std::size_t i = 1; i + 1 < n && collinear; ++i) collinear = orient(s[0], s[n - 1], s[i]) == 0;
    if (collinear) {
        if (keepEdgePoints) return Cpolygon2(s);
        return Cpolygon2(std::vector<Cpoint2<T>>{s[0], s[n - 1]});
    }
    // Monotone chain: lower hull left to right, upper hull right to left; a
    // point is popped on a right turn, and on a straight continuation unless
    // edge points are kept.
    const int limit = keepEdgePoints ? 0 : 1;
    std::vector<Cpoint2<T>> h(2 * n);
    std::size_t k = 0;
    for (std::size_t i = 0; i < n; ++i) {
        while (k >= 2 && orient(h[k - 2], h[k - 1], s[i]) < limit) --k;
        h[k++] = s[i];
    }
    const std::size_t lower = k + 1;
    for (std::size_t i = n - 1; i-- > 0;) {
        while (k >= lower && orient(h[k - 2], h[k - 1], s[i]) < limit) --k;
        h[k++] = s[i];
    }
    h.resize(k - 1);  // the last point is the first again
    return Cpolygon2(h);
}

template <class T>
Cpolygon2<T> Cpolygon2<T>::contourPoly(std::vector<Cpoint2<T>> const& pts) {
    const std::vector<Cpoint2<T>> s = sortedUnique(pts);
    const std::size_t n = s.size();
    if (n <= 2) return Cpolygon2(s);
    const Cpoint2<T>& L = s[0];
    const Cpoint2<T>& R = s[n - 1];
    std::vector<Cpoint2<T>> out;
    out.reserve(n);
    // Lower chain (on or below L->R) forward, then the upper chain backward.
    for (std::size_t i = 0; i < n; ++i)
        if (i == 0 || i == n - 1 || orient(L, R, s[i]) <= 0) out.push_back(s[i]);
    for (std::size_t i = n - 1; i-- > 1;)
        if (orient(L, R, s[i]) > 0) out.push_back(s[i]);
    return Cpolygon2(out);
}

template <class T>
std::vector<Cpoint2<T>> Cpolygon2<T>::minimumEnclosingRect() const {
    const Cpolygon2 hull = convexPoly(m_points, false);
    const std::vector<Cpoint2<T>>& h = hull.points();
    const std::size_t m = h.size();
    if (m == 0) return {};
    if (m == 1) return {h[0], h[0], h[0], h[0]};
    if (m == 2) return {h[0], h[1], h[1], h[0]};

    const auto dot = [](Cpoint2<T> const& a, T ex, T ey) { return a.x * ex + a.y * ey; };
    T bestArea = std::numeric_limits<T>::infinity();
    std::vector<Cpoint2<T>> best;
    std::size_t j = 1, t = 1, k = 1;  // extreme along +e, along the inner normal, along -e
    for (std::size_t i = 0; i < m; ++i) {
        const Cpoint2<T>& a = h[i];
        const Cpoint2<T>& b = h[(i + 1) % m];
        const T len = (b - a).length();
        const T ex = (b.x - a.x) / len, ey = (b.y - a.y) / len;
        const T nx = -ey, ny = ex;  // inner normal of the counter-clockwise hull
        // Advance each caliper while the next hull point is at least as far;
        // at most m steps each, so ties cannot cycle.
        for (std::size_t s = 0; s < m && dot(h[(j + 1) % m], ex, ey) >= dot(h[j], ex, ey); ++s) j = (j + 1) % m;
        if (i == 0) t = j;
        for (std::size_t s = 0; s < m && dot(h[(t + 1) % m], nx, ny) >= dot(h[t], nx, ny); ++s) t = (t + 1) % m;
        if (i == 0) k = t;
        for (std::size_t s = 0; s < m && dot(h[(k + 1) % m], ex, ey) <= dot(h[k], ex, ey); ++s) k = (k + 1) % m;

        const T sMax = (h[j].x - a.x) * ex + (h[j].y - a.y) * ey;
        const T sMin = (h[k].x - a.x) * ex + (h[k].y - a.y) * ey;
        const T hgt = (h[t].x - a.x) * nx + (h[t].y - a.y) * ny;
        const T ar = (sMax - sMin) * hgt;
        if (ar < bestArea) {
            bestArea = ar;
            best = {Cpoint2<T>(a.x + ex * sMin, a.y + ey * sMin), Cpoint2<T>(a.x + ex * sMax, a.y + ey * sMax),
                    Cpoint2<T>(a.x + ex * sMax + nx * hgt, a.y + ey * sMax + ny * hgt),
                    Cpoint2<T>(a.x + ex * sMin + nx * hgt, a.y + ey * sMin + ny * hgt)};
        }
    }
    return best;
}

#define METROMATH_POLYGON_DERIVED(T)                                                                \
    template Cpolygon2<T> Cpolygon2<T>::simplifiedTo(unsigned int) const;                            \
    template Cpolygon2<T> Cpolygon2<T>::convexPoly() const;                                          \
    template Cpolygon2<T> Cpolygon2<T>::convexPoly(std::vector<Cpoint2<T>> const&, bool);            \
    template Cpolygon2<T> Cpolygon2<T>::contourPoly(std::vector<Cpoint2<T>> const&);                 \
    template std::vector<Cpoint2<T>> Cpolygon2<T>::minimumEnclosingRect() const;

METROMATH_POLYGON_DERIVED(float)
METROMATH_POLYGON_DERIVED(double)

#undef METROMATH_POLYGON_DERIVED

}  // namespace math
