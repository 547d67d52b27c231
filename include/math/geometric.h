// geometric<T>: the library's static geometric functions: tolerance
// comparisons, and the intersections, distances and projections between the
// planar and spatial primitives.
#ifndef MATH_GEOMETRIC_H
#define MATH_GEOMETRIC_H

#include <math/export.h>
#include <math/point.h>

// ---- includes of the planar primitives ----
#include <math/primitives2.h>
// ---- end of planar includes ----

// ---- includes of the spatial primitives ----

// ---- end of spatial includes ----

namespace math {

template <class T>
class METROMATH_API geometric {
public:
    // ---------------------------------------------------------------------
    // Tolerance comparisons
    // ---------------------------------------------------------------------

    // Absolute, closed interval: a - eps <= b && b <= a + eps with the
    // single-precision epsilon 2^-23 for float and double alike.  The coarse
    // tolerance for double is intended; equalT uses the type's own epsilon.
    static bool equal(T const& a, T const& b) {
        const T e = T(tol::epsFloat);
        return a - e <= b && b <= a + e;
    }
    // Absolute, closed interval with the epsilon of T (2^-23 float, 2^-52 double).
    static bool equalT(T const& a, T const& b) {
        const T e = tol::eps<T>();
        return a - e <= b && b <= a + e;
    }
    // Per component, absolute, open interval with the epsilon of T:
    // a_i - eps < b_i && b_i < a_i + eps.  Taken literally: once a_i + eps
    // rounds back to a_i (always for |a_i| >= 4, for even significands in
    // [2, 4)), a point is unequal even to itself.  That is the contract.
    static bool equal(Cpoint2<T> const& a, Cpoint2<T> const& b) {
        const T e = tol::eps<T>();
        return a.x - e < b.x && b.x < a.x + e && a.y - e < b.y && b.y < a.y + e;
    }
    static bool equal(Cpoint3<T> const& a, Cpoint3<T> const& b) {
        const T e = tol::eps<T>();
        return a.x - e < b.x && b.x < a.x + e && a.y - e < b.y && b.y < a.y + e && a.z - e < b.z &&
               b.z < a.z + e;
    }

    // ---------------------------------------------------------------------
    // Planar queries
    // ---------------------------------------------------------------------

    // Intersection of two planar lines.  det = a.dx*b.dy - a.dy*b.dx is the
    // sine of the angle between the unit directions; |det| <= 2^-23 (for float
    // and double alike) counts as parallel: false, s unchanged.  Otherwise s is
    // the common point, from the two equations x cross d = p cross d, and true.
    static bool intersect(Cline2<T> const& a, Cline2<T> const& b, Cpoint2<T>& s);

    // ---- end of planar queries ----

    // ---------------------------------------------------------------------
    // Spatial queries
    // ---------------------------------------------------------------------

    // ---- end of spatial queries ----
};

extern template class geometric<float>;
extern template class geometric<double>;

}  // namespace math

#endif
