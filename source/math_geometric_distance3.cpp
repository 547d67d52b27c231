// Spatial distances and projections of geometric<T>: points against planes,
// lines, spheres, cylinders and points, the feet of perpendiculars on lines
// and planes, and the removal of points by their residuals.
#include <math/geometric.h>

#include <cmath>
#include <cstddef>

#include "math_kernels.h"
#include "math_primitive_ops.h"

namespace math {

template <class T>
T geometric<T>::distance(Cplane3<T> const& e, Cpoint3<T> const& p) {
    return e.a() * p.x + e.b() * p.y + e.c() * p.z + e.d();
}

template <class T>
void geometric<T>::distance(Cplane3<T> const& e, CpointSpan<Cpoint3<T>> ps, std::vector<T>& dist) {
    kernel::mapPoints(ps, dist, [&](Cpoint3<T> const& p) { return distance(e, p); });
}

template <class T>
T geometric<T>::distance(Cline3<T> const& l, Cpoint3<T> const& p) {
    Cpoint3<T> f(p);
    project(l, f);
    return (p - f).length();
}

template <class T>
void geometric<T>::distance(Cline3<T> const& l, CpointSpan<Cpoint3<T>> ps, std::vector<T>& dist) {
    kernel::mapPoints(ps, dist, [&](Cpoint3<T> const& p) { return distance(l, p); });
}

template <class T>
T geometric<T>::distance(Csphere3<T> const& s, Cpoint3<T> const& p) {
    return (p - s.center()).length() - s.radius();
}

template <class T>
void geometric<T>::distance(Csphere3<T> const& s, CpointSpan<Cpoint3<T>> ps, std::vector<T>& dist) {
    kernel::mapPoints(ps, dist, [&](Cpoint3<T> const& p) { return distance(s, p); });
}

template <class T>
T geometric<T>::distance(Ccylinder3<T> const& z, Cpoint3<T> const& p) {
    return distance(z.axis(), p) - z.radius();
}

template <class T>
void geometric<T>::distance(Ccylinder3<T> const& z, CpointSpan<Cpoint3<T>> ps, std::vector<T>& dist) {
    if (ps.empty()) return;
    kernel::mapPoints(ps, dist, [&](Cpoint3<T> const& p) { return distance(z, p); });
}

template <class T>
void geometric<T>::distance(Cpoint3<T> const& q, CpointSpan<Cpoint3<T>> ps, std::vector<T>& dist) {
    if (ps.empty()) return;
    kernel::mapPoints(ps, dist, [&](Cpoint3<T> const& p) { return (p - q).length(); });
}

template <class T>
void geometric<T>::project(Cline3<T> const& l, Cpoint3<T>& p) {
    Cpoint3<T> const& o = l.point();
    Cdirec3<T> const& d = l.direction();
    const T t = (p.x - o.x) * d.x + (p.y - o.y) * d.y + (p.z - o.z) * d.z;
    p = Cpoint3<T>(o.x + t * d.x, o.y + t * d.y, o.z + t * d.z);
}

template <class T>
bool geometric<T>::project(Cline3<T> const& l, std::vector<Cpoint3<T>>& ps) {
    if (ps.empty()) return false;
    for (Cpoint3<T>& p : ps) project(l, p);
    return true;
}

template <class T>
void geometric<T>::project(Cplane3<T> const& e, Cpoint3<T>& p) {
    ops::projectOntoPlane(e, p);
}

template <class T>
void geometric<T>::project(Cplane3<T> const& e, std::vector<Cpoint3<T>>& ps) {
    for (Cpoint3<T>& p : ps) project(e, p);
}

template <class T>
bool geometric<T>::outlier(std::vector<Cpoint3<T>>& pts, std::vector<T> const& residuals, T const& threshold) {
    if (pts.size() != residuals.size()) return false;
    std::size_t k = 0;
    for (std::size_t i = 0; i < pts.size(); ++i)
        if (std::abs(residuals[i]) <= threshold) pts[k++] = pts[i];
    pts.resize(k);
    return true;
}

#define METROMATH_GEOMETRIC_DISTANCE3(T)                                                                       \
    template T geometric<T>::distance(Cplane3<T> const&, Cpoint3<T> const&);                                   \
    template void geometric<T>::distance(Cplane3<T> const&, CpointSpan<Cpoint3<T>>, std::vector<T>&);  \
    template T geometric<T>::distance(Cline3<T> const&, Cpoint3<T> const&);                                    \
    template void geometric<T>::distance(Cline3<T> const&, CpointSpan<Cpoint3<T>>, std::vector<T>&);   \
    template T geometric<T>::distance(Csphere3<T> const&, Cpoint3<T> const&);                                  \
    template void geometric<T>::distance(Csphere3<T> const&, CpointSpan<Cpoint3<T>>, std::vector<T>&); \
    template T geometric<T>::distance(Ccylinder3<T> const&, Cpoint3<T> const&);                                \
    template void geometric<T>::distance(Ccylinder3<T> const&, CpointSpan<Cpoint3<T>>,                 \
                                         std::vector<T>&);                                                     \
    template void geometric<T>::distance(Cpoint3<T> const&, CpointSpan<Cpoint3<T>>, std::vector<T>&);  \
    template void geometric<T>::project(Cline3<T> const&, Cpoint3<T>&);                                        \
    template bool geometric<T>::project(Cline3<T> const&, std::vector<Cpoint3<T>>&);                           \
    template void geometric<T>::project(Cplane3<T> const&, Cpoint3<T>&);                                       \
    template void geometric<T>::project(Cplane3<T> const&, std::vector<Cpoint3<T>>&);                          \
    template bool geometric<T>::outlier(std::vector<Cpoint3<T>>&, std::vector<T> const&, T const&);

METROMATH_GEOMETRIC_DISTANCE3(float)
METROMATH_GEOMETRIC_DISTANCE3(double)

#undef METROMATH_GEOMETRIC_DISTANCE3

}  // namespace math
