// tools<T>: point-cloud helpers built on the spatial primitives (exported for
// float and double).
#ifndef MATH_TOOLS_H
#define MATH_TOOLS_H

#include <math/basevec.h>
#include <math/export.h>
#include <math/primitives3.h>

namespace math {

// A collection of static functions only; no state.
template <class T>
class METROMATH_API tools {
public:
    // The points of `in` whose distance from the plane e is at most `dist`
    // (|a*x + b*y + c*z + d| <= dist, border included), appended to the
    // cleared `out` in their order.  false, with `out` cleared, for an invalid
    // plane or a negative or NaN distance.  `in` and `out` may be the same
    // container.
    static bool cutPointCloud(Cplane3<T> const& e, T const& dist, CbaseVecN<Cpoint3<T>> const& in,
                              CbaseVecN<Cpoint3<T>>& out);
};

extern template class tools<float>;
extern template class tools<double>;

}  // namespace math

#endif
