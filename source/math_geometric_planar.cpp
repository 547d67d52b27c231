// Planar queries of geometric<T>: the intersection of two lines, the signed
// distance of points from a line, the distance of two lines and the
// projection of points onto a line.
#include <math/geometric.h>

#include <cmath>

#include "math_kernels.h"
#include "math_primitive_ops.h"

namespace math {

namespace {

// |x| within eps_p of 1, closed interval (the tolerance comparison of geometric).
template <class T>
bool nearOne(T x) {
    return geometric<T>::equal(std::abs(x), T(1));
}

}  // namespace

template <class T>
bool geometric<T>::intersect(Cline2<T> const& a, Cline2<T> const& b, Cpoint2<T>& s) {
    // An invalid line meets nothing: no point, s unchanged.  (Non-finite
    // components of valid lines, infinite coordinates, may still give a NaN
    // point.)
    if (!a.isValid() || !b.isValid()) return false;
    return ops::intersectLines(a, b, s);
}

template <class T>
T geometric<T>::distance(Cline2<T> const& l, Cpoint2<T> const& p) {
    Cpoint2<T> const& o = l.point();
    Cdirec2<T> const& d = l.direction();
    return d.x * (p.y - o.y) - d.y * (p.x - o.x);
}

template <class T>
void geometric<T>::distance(Cline2<T> const& l, CpointSpan<Cpoint2<T>> ps, std::vector<T>& dist) {
    kernel::mapPoints(ps, dist, [&](Cpoint2<T> const& p) { return distance(l, p); });
}

template <class T>
T geometric<T>::distance(Cline2<T> const& a, Cline2<T> const& b) {
    const T c = a.direction().x * b.direction().x + a.direction().y * b.direction().y;
    if (nearOne(c)) return std::abs(distance(a, b.point()));
    return T(0);
}

template <class T>
void geometric<T>::project(Cline2<T> const& l, Cpoint2<T>& p) {
    Cpoint2<T> const& o = l.point();
    Cdirec2<T> const& d = l.direction();
    const T t = (p.x - o.x) * d.x + (p.y - o.y) * d.y;
    p = Cpoint2<T>(o.x + t * d.x, o.y + t * d.y);
}

template <class T>
bool geometric<T>::project(Cline2<T> const& l, std::vector<Cpoint2<T>>& ps) {
    if (ps.empty()) return false;
    const Cdirec2<T> normal = l.direction().perp();
    for (Cpoint2<T>& p : ps) {
        Cpoint2<T> s;
        if (!intersect(l, Cline2<T>(p, normal), s)) return false;
        p = s;
    }
    return true;
}

#define METROMATH_GEOMETRIC_PLANAR(T)                                                                        \
    template bool geometric<T>::intersect(Cline2<T> const&, Cline2<T> const&, Cpoint2<T>&);                  \
    template T geometric<T>::distance(Cline2<T> const&, Cpoint2<T> const&);                                  \
    template void geometric<T>::distance(Cline2<T> const&, CpointSpan<Cpoint2<T>>, std::vector<T>&); \
    template T geometric<T>::distance(Cline2<T> const&, Cline2<T> const&);                                   \
    template void geometric<T>::project(Cline2<T> const&, Cpoint2<T>&);                                      \
    template bool geometric<T>::project(Cline2<T> const&, std::vector<Cpoint2<T>>&);

METROMATH_GEOMETRIC_PLANAR(float)
METROMATH_GEOMETRIC_PLANAR(double)

#undef METROMATH_GEOMETRIC_PLANAR

}  // namespace math
