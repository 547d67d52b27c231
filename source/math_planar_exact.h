// Private helper of the planar sources: the exact orientation of three points
// (and, beside it, the rounded cross product cross3).
//
// orient(a, b, c) = sign of (b.x - a.x)(c.y - a.y) - (c.x - a.x)(b.y - a.y),
// twice the signed area of the triangle a, b, c (1: left turn, -1: right turn,
// 0: collinear), evaluated without rounding error:
//   int, long       differences in 64 bits, products in 128 bits;
//   float, double   in double with a forward error bound (Shewchuk's filter:
//                   the rounded result is trusted when it exceeds
//                   (3 + 16u)u (|l| + |r|), u = 2^-53); otherwise exactly, by
//                   splitting each difference into a rounded value and its
//                   error (two-sum), each product into two doubles (fma), and
//                   summing the 16 terms into a non-overlapping expansion whose
//                   largest component carries the sign.
// The exact evaluation assumes that no product overflows or underflows: true
// for coordinates of magnitude in [2^-400, 2^500] (or 0), and for every float.
// Outside that range, and for NaN, the result is some value in {-1, 0, 1}.
//
// Sorting by angle and the Graham scan need these exact signs: with rounded
// turns, points nearly collinear with the pivot are ordered and turned
// inconsistently and the scan can wind around the pivot more than once.
#ifndef MATH_PLANAR_EXACT_H
#define MATH_PLANAR_EXACT_H

#include <cmath>
#include <type_traits>

namespace math {
namespace detail {

// x + y == a + b exactly, x = fl(a + b).
inline void twoSum(double a, double b, double& x, double& y) {
    x = a + b;
    const double bv = x - a;
    const double av = x - bv;
    y = (a - av) + (b - bv);
}

// x + y == a * b exactly, x = fl(a * b) (barring underflow).
inline void twoProduct(double a, double b, double& x, double& y) {
    x = a * b;
    y = std::fma(a, b, -x);
}

inline int orientExact(double ax, double ay, double bx, double by, double cx, double cy) {
    double ux[2], uy[2], vx[2], vy[2];  // {rounded, error}
    twoSum(bx, -ax, ux[0], ux[1]);
    twoSum(by, -ay, uy[0], uy[1]);
    twoSum(cx, -ax, vx[0], vx[1]);
    twoSum(cy, -ay, vy[0], vy[1]);
    // Expansion e[0..n), non-overlapping, increasing magnitude, no zeros.
    double e[40];
    int n = 0;
    const auto grow = [&e, &n](double t) {
        double q = t;
        int m = 0;
        for (int i = 0; i < n; ++i) {
            double s, h;
            twoSum(q, e[i], s, h);
            q = s;
            if (h != 0.0) e[m++] = h;
        }
        if (q != 0.0) e[m++] = q;
        n = m;
    };
    for (int i = 0; i < 2; ++i)
        for (int j = 0; j < 2; ++j) {
            double p, q;
            twoProduct(ux[i], vy[j], p, q);
            grow(q);
            grow(p);
            twoProduct(vx[i], uy[j], p, q);
            grow(-q);
            grow(-p);
        }
    if (n == 0) return 0;
    const double top = e[n - 1];
    return top > 0.0 ? 1 : (top < 0.0 ? -1 : 0);
}

inline int orient(double ax, double ay, double bx, double by, double cx, double cy) {
    const double l = (bx - ax) * (cy - ay);
    const double r = (cx - ax) * (by - ay);
    const double det = l - r;
    const double bound = (3.0 + 16.0 * 0x1p-53) * 0x1p-53 * (std::abs(l) + std::abs(r));
    if (det > bound) return 1;
    if (-det > bound) return -1;
    if (det == 0.0 && bound == 0.0) return 0;  // both products exactly 0
    if (!(det == det)) return 0;               // NaN
    return orientExact(ax, ay, bx, by, cx, cy);
}

// The rounded counterpart: (b - a) x (c - a) in the coordinates' own type.
template <class P>
inline auto cross3(P const& a, P const& b, P const& c) -> decltype(a.x) {
    return (b.x - a.x) * (c.y - a.y) - (c.x - a.x) * (b.y - a.y);
}

template <class P>
inline int orient(P const& a, P const& b, P const& c) {
    using T = std::remove_cv_t<decltype(a.x)>;
    if constexpr (std::is_integral<T>::value) {
        const __int128 ux = static_cast<long long>(b.x) - static_cast<long long>(a.x);
        const __int128 uy = static_cast<long long>(b.y) - static_cast<long long>(a.y);
        const __int128 vx = static_cast<long long>(c.x) - static_cast<long long>(a.x);
        const __int128 vy = static_cast<long long>(c.y) - static_cast<long long>(a.y);
        const __int128 l = ux * vy, r = vx * uy;
        return l > r ? 1 : (l < r ? -1 : 0);
    } else {
        return orient(double(a.x), double(a.y), double(b.x), double(b.y), double(c.x), double(c.y));
    }
}

}  // namespace detail
}  // namespace math

#endif
