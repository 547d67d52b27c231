// Private helper of the planar sources: the exact sign of a 2x2 determinant.
//
// crossSign(ux, uy, vx, vy) = sign(ux*vy - uy*vx) evaluated without rounding
// error for the given (already rounded) vector components, so that orderings
// built on it are consistent (transitive), which sorting requires:
//   float        the products of two floats are exact in double;
//   double       rounding is monotone, so differing rounded products already
//                decide; equal ones are decided by their exact rounding errors
//                (fma), valid while the products neither overflow nor underflow;
//   int, long    the products in 128-bit integers.
#ifndef MATH_PLANAR_EXACT_H
#define MATH_PLANAR_EXACT_H

#include <cmath>
#include <type_traits>

namespace math {
namespace detail {

inline int crossSign(float ux, float uy, float vx, float vy) {
    const double a = double(ux) * double(vy);
    const double b = double(uy) * double(vx);
    return a > b ? 1 : (a < b ? -1 : 0);
}

inline int crossSign(double ux, double uy, double vx, double vy) {
    const double a = ux * vy;
    const double b = uy * vx;
    if (a > b) return 1;
    if (a < b) return -1;
    if (!(a == b)) return 0;  // NaN
    const double ea = std::fma(ux, vy, -a);
    const double eb = std::fma(uy, vx, -b);
    return ea > eb ? 1 : (ea < eb ? -1 : 0);
}

template <class I, class = std::enable_if_t<std::is_integral<I>::value>>
inline int crossSign(I ux, I uy, I vx, I vy) {
    const __int128 a = static_cast<__int128>(ux) * vy;
    const __int128 b = static_cast<__int128>(uy) * vx;
    return a > b ? 1 : (a < b ? -1 : 0);
}

}  // namespace detail
}  // namespace math

#endif
