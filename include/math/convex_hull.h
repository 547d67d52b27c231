// CcvxHull2D<T>: the convex hull of a planar point set by a Graham scan, for
// int, float and double; Cvector2<T>, the plain planar vector it works on.
//
// Usage:
//   std::vector<Cvector2<double>> pts = ...;
//   CcvxHull2D<double> hull(pts);          // pts itself is not changed
//   for (auto const& c : hull.points()) ...  // corners, ccw, from the lowest point
#ifndef MATH_CONVEX_HULL_H
#define MATH_CONVEX_HULL_H

#include <math/export.h>

#include <type_traits>
#include <vector>

namespace math {

// A planar vector: two coordinates x, y and nothing else.
template <class T>
struct Cvector2 {
    T x, y;

    constexpr Cvector2() : x(0), y(0) {}
    constexpr Cvector2(T x_, T y_) : x(x_), y(y_) {}

    constexpr bool operator==(Cvector2 const& o) const { return x == o.x && y == o.y; }
    constexpr bool operator!=(Cvector2 const& o) const { return !(*this == o); }
};

namespace detail {
// Arithmetic of the hull predicates: T itself for floating types; for integer
// coordinates differences in 64 bits and products in 128 bits, so that the
// predicates are exact for every int input.
template <class T, bool = std::is_integral<T>::value>
struct hullArith {
    using diff = T;
    using wide = T;
};
template <class T>
struct hullArith<T, true> {
    using diff = long long;
    using wide = __int128;
};
}  // namespace detail

// The hull corners of the last computed set in counter-clockwise order (y up),
// starting at the pivot (lowest y, then lowest x).  Only strict corners: points
// on a hull edge are not part of it.  Empty after default construction and for
// fewer than three points or collinear points.
template <class T>
class METROMATH_API CcvxHull2D {
public:
    CcvxHull2D() = default;
    // Computes the hull of pts (taken by value: the working copy is reordered
    // and thinned, the caller's vector is not; pass std::move(v) to avoid the copy).
    explicit CcvxHull2D(std::vector<Cvector2<T>> pts);
    CcvxHull2D(CcvxHull2D const&) = default;
    CcvxHull2D& operator=(CcvxHull2D const&) = default;
    ~CcvxHull2D() = default;

    std::vector<Cvector2<T>> const& points() const { return m_hull; }

private:
    using Tdiff = typename detail::hullArith<T>::diff;
    using Twide = typename detail::hullArith<T>::wide;

    // Graham scan into m_hull; reorders pts and erases points from it.
    //  1. clear the hull; fewer than 3 points: done (no hull).
    //  2. points with a NaN or infinite coordinate are erased: they have no
    //     angle to be sorted by.
    //  2a. with at least 64 points (all coordinates in the exact range): the
    //     points strictly inside the polygon of the extreme points in eight
    //     directions are erased; they are strictly inside the hull, so the
    //     result is the same, and random clouds lose most of their points
    //     before the sort.
    //  3. pivot = lowest y, then lowest x, first on exact ties; swapped to pts[0].
    //  4. pts[1..] sorted counter-clockwise around the pivot (a before b when
    //     T_func(pivot, a, b) > 0); on one ray the nearer point first (sqDist,
    //     exact coordinate order on a tie of the rounded distances).
    //  5. of each run of neighbours with T_func(pivot, a, b) == 0 only the last
    //     (the farthest) is kept.
    //  6. fewer than 3 points left: no hull.
    //  7. scan: push the pivot and the first point; for each further point pop
    //     the hull top while the last two hull points and the point do not make
    //     a strict left turn (T_func > 0), then push it.
    // Every decision uses the sign of T_func evaluated exactly (T_func), so the
    // order is a strict weak order and the hull exact.  Evaluated with rounding,
    // points nearly collinear with the pivot are misordered and the scan can
    // wind around the pivot several times (for 10^6 random float points in a
    // square it returns a star of 135 "corners" instead of the 36 true ones).
    // Exactness holds for coordinates of magnitude 2^-400 .. 2^500 (and 0) and
    // for every int and float; beyond, the sort falls back to a merge sort that
    // stays in bounds for any comparator and the shape is unspecified.
    void calc(std::vector<Cvector2<T>>& pts);
    // Sign (1, 0, -1) of (b.x - a.x)(c.y - a.y) - (c.x - a.x)(b.y - a.y), twice
    // the signed area of the triangle a, b, c, evaluated exactly: positive for
    // a left (counter-clockwise) turn.
    static int T_func(Cvector2<T> const& a, Cvector2<T> const& b, Cvector2<T> const& c);
    // (a.x - b.x)^2 + (a.y - b.y)^2, no square root (128-bit for int).
    static Twide sqDist(Cvector2<T> const& a, Cvector2<T> const& b);

    std::vector<Cvector2<T>> m_hull;
};

extern template class CcvxHull2D<int>;
extern template class CcvxHull2D<float>;
extern template class CcvxHull2D<double>;

}  // namespace math

#endif
