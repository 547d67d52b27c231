// Spatial intersections of geometric<T>: plane and line, two and three
// planes, two lines, sphere and line, box and line.
#include <math/geometric.h>
#include <math/solver.h>

#include <core/throw.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "math_kernels.h"

namespace math {

namespace {

// Parallelism tolerance: the single-precision epsilon for float and double.
template <class T>
constexpr T epsP() {
    return T(tol::epsFloat);
}

}  // namespace

template <class T>
bool geometric<T>::intersect(Cplane3<T> const& e, Cline3<T> const& l, Cpoint3<T>& s) {
    Cdirec3<T> const& n = e.normal();
    Cdirec3<T> const& D = l.direction();
    Cpoint3<T> const& P = l.point();
    const T den = n.x * D.x + n.y * D.y + n.z * D.z;
    if (!(std::abs(den) > epsP<T>()) || !l.isValid() || !e.isValid()) {  // parallel or invalid
        s.x = quietNaN<T>();
        return false;
    }
    const T t = (-e.d() - (n.x * P.x + n.y * P.y + n.z * P.z)) / den;
    s = Cpoint3<T>(P.x + t * D.x, P.y + t * D.y, P.z + t * D.z);
    return true;
}

template <class T>
bool geometric<T>::intersect(Cplane3<T> const& e1, Cplane3<T> const& e2, Cline3<T>& l) {
    Cdirec3<T> const& N1 = e1.normal();
    Cdirec3<T> const& N2 = e2.normal();
    const T c = N1.x * N2.x + N1.y * N2.y + N1.z * N2.z;
    if (geometric<T>::equal(c, T(1)) || geometric<T>::equal(c, T(-1))) return false;
    const T d1 = e1.d(), d2 = e2.d();
    const T den = T(1) - c * c;
    const T alpha = (-d1 + d2 * c) / den;
    const T beta = (-d2 + d1 * c) / den;
    l.direction() = Cdirec3<T>(N1.cross(N2));
    l.point() = Cpoint3<T>(alpha * N1.x + beta * N2.x, alpha * N1.y + beta * N2.y, alpha * N1.z + beta * N2.z);
    return true;
}

template <class T>
bool geometric<T>::intersect(Cline3<T> const& a, Cline3<T> const& b, Cpoint3<T>& s) {
    T gap;
    return intersect(a, b, s, gap);
}

template <class T>
bool geometric<T>::intersect(Cline3<T> const& a, Cline3<T> const& b, Cpoint3<T>& s, T& gap) {
    Cdirec3<T> const& da = a.direction();
    Cdirec3<T> const& db = b.direction();
    const T c = -(da.x * db.x + da.y * db.y + da.z * db.z);
    if (geometric<T>::equal(c, T(1)) || geometric<T>::equal(c, T(-1))) return false;

    const Cpoint3<T> w = b.point() - a.point();
    const T e = da.x * w.x + da.y * w.y + da.z * w.z;
    const T f = -(db.x * w.x + db.y * w.y + db.z * w.z);
    const T den = T(1) - c * c;
    const T t = (e - f * c) / den;
    const T u = (f - e * c) / den;
    const Cpoint3<T> P = a.pointAt(t);
    const Cpoint3<T> Q = b.pointAt(u);

    if (geometric<T>::equal(P, Q)) {
        s = P;
        gap = T(0);
        return true;
    }
    // Skew lines: the midpoint and the gap are delivered with the false result.
    gap = (P - Q).length();
    s = (P + Q) * T(0.5);
    return false;
}

template <class T>
bool geometric<T>::intersect(Cplane3<T> const& e1, Cplane3<T> const& e2, Cplane3<T> const& e3, Cpoint3<T>& s) {
    const T N[3][3] = {{e1.a(), e1.b(), e1.c()}, {e2.a(), e2.b(), e2.c()}, {e3.a(), e3.b(), e3.c()}};
    const T det = kernel::det3(N);
    if (-epsP<T>() <= det && det <= epsP<T>()) return false;
    if (!(det == det)) return false;  // NaN plane: no system to solve
    Cmatrix<T> A(3, 3);
    for (unsigned i = 0; i < 3; ++i)
        for (unsigned j = 0; j < 3; ++j) A(i, j) = N[i][j];
    try {
        Csolver_luDecomp<T> lu(A);
        const Cmatrix<T> x = lu.solve(std::vector<T>{-e1.d(), -e2.d(), -e3.d()});
        s = Cpoint3<T>(x(0, 0), x(1, 0), x(2, 0));
    } catch (CthrowBase const&) {
        // The determinant test excludes a singular system; a solver error is
        // reported as "no intersection" all the same, never passed on.
        return false;
    }
    return true;
}

template <class T>
bool geometric<T>::intersect(Csphere3<T> const& k, Cline3<T> const& l, std::pair<T, T>& t) {
    Cpoint3<T> const& C = k.center();
    Cpoint3<T> const& P = l.point();
    Cdirec3<T> const& D = l.direction();
    const T r = k.radius();
    const T b = ((D.x * P.x + D.y * P.y + D.z * P.z) - T(2) * (D.x * C.x + D.y * C.y + D.z * C.z)) * T(0.5);
    const T q = (C.x * C.x + C.y * C.y + C.z * C.z) + (P.x * P.x + P.y * P.y + P.z * P.z) -
                T(2) * (C.x * P.x + C.y * P.y + C.z * P.z) - r * r;
    const T disc = b * b - q;
    if (disc < T(0) || !l.isValid() || !k.isValid()) {
        t.first = t.second = quietNaN<T>();
        return false;
    }
    const T root = std::sqrt(disc);
    t.first = -b - root;
    t.second = -b + root;
    return true;
}

// Slab method: on each axis the line p + t*d lies between the two faces for
// t between (min - p)/d and (max - p)/d; the line meets the box where the
// three intervals overlap, [tEnter, tExit].  An axis with d = 0 constrains
// nothing if p lies between its faces and excludes everything otherwise.  The
// coordinates of the entry and exit point are clamped into the box so that
// rounding cannot leave them a hair outside.
template <class T>
bool geometric<T>::intersect(CboundingBox3<T> const& box, Cline3<T> const& l,
                             std::pair<Cpoint3<T>, Cpoint3<T>>& s) {
    if (!box.isValid() || !l.isValid()) return false;
    Cpoint3<T> const& p = l.point();
    Cdirec3<T> const& d = l.direction();
    T tEnter = -std::numeric_limits<T>::infinity();
    T tExit = std::numeric_limits<T>::infinity();
    for (unsigned i = 0; i < 3; ++i) {
        const T lo = box.min()[i], hi = box.max()[i];
        if (d[i] == T(0)) {
            if (p[i] < lo || p[i] > hi) return false;
            continue;
        }
        T t1 = (lo - p[i]) / d[i];
        T t2 = (hi - p[i]) / d[i];
        if (t1 > t2) std::swap(t1, t2);
        if (t1 > tEnter) tEnter = t1;
        if (t2 < tExit) tExit = t2;
        if (tEnter > tExit) return false;
    }
    if (std::isinf(tEnter) || std::isinf(tExit)) return false;  // a zero direction
    Cpoint3<T> a = l.pointAt(tEnter), b = l.pointAt(tExit);
    for (unsigned i = 0; i < 3; ++i) {
        a[i] = std::min(std::max(a[i], box.min()[i]), box.max()[i]);
        b[i] = std::min(std::max(b[i], box.min()[i]), box.max()[i]);
    }
    s.first = a;
    s.second = b;
    return true;
}

#define METROMATH_GEOMETRIC_INTERSECT3(T)                                                        \
    template bool geometric<T>::intersect(Cplane3<T> const&, Cline3<T> const&, Cpoint3<T>&);     \
    template bool geometric<T>::intersect(Cplane3<T> const&, Cplane3<T> const&, Cline3<T>&);     \
    template bool geometric<T>::intersect(Cline3<T> const&, Cline3<T> const&, Cpoint3<T>&);      \
    template bool geometric<T>::intersect(Cline3<T> const&, Cline3<T> const&, Cpoint3<T>&, T&);  \
    template bool geometric<T>::intersect(Cplane3<T> const&, Cplane3<T> const&, Cplane3<T> const&, \
                                          Cpoint3<T>&);                                          \
    template bool geometric<T>::intersect(Csphere3<T> const&, Cline3<T> const&, std::pair<T, T>&); \
    template bool geometric<T>::intersect(CboundingBox3<T> const&, Cline3<T> const&,             \
                                          std::pair<Cpoint3<T>, Cpoint3<T>>&);

METROMATH_GEOMETRIC_INTERSECT3(float)
METROMATH_GEOMETRIC_INTERSECT3(double)

#undef METROMATH_GEOMETRIC_INTERSECT3

}  // namespace math
