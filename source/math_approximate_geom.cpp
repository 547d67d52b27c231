// Orthogonal (total least squares) line and plane fits of approximate<T>.
//
// A line or plane minimising the sum of squared orthogonal distances passes
// through the centroid of the points; its direction (normal) is a principal
// axis of the scatter matrix C = sum (p - c)(p - c)^T: the axis of the
// largest eigenvalue for a line, of the smallest for a plane.  The inertia
// tensor I = trace(C)*E - C has the same axes with the eigenvalue order
// reversed, so its largest axis is a plane's normal and its smallest axis a
// line's direction.  Three ways of finding the axis are used: a closed
// formula for the planar line, the symmetric eigen decomposition of
// CmatrixCalc, and a power iteration (fitPlaneGeomFast).
#include <math/approximate.h>

#include <math/matrix.h>
#include <math/matrix_calc.h>

#include "math_approximate_sums.h"

#include <cmath>
#include <cstddef>

namespace math {

namespace {

using approx_detail::blockedSums;
using approx_detail::fewPoints;
using approx_detail::setNaN;
using approx_detail::setNaNLine;
using approx_detail::setNaNPlane;

// Raw sums of a spatial point set in the accumulator type S:
// x, y, z, xx, yy, zz, xy, xz, yz.
enum { rX, rY, rZ, rXX, rYY, rZZ, rXY, rXZ, rYZ, rCount };

template <class S, class T>
approx_detail::Sums<S, rCount> rawSums3(CpointSpan<Cpoint3<T>> pts) {
    return blockedSums<S, rCount>(pts, [](auto* a, auto x, auto y, auto z) {
        a[rX] += x;
        a[rY] += y;
        a[rZ] += z;
        a[rXX] += x * x;
        a[rYY] += y * y;
        a[rZZ] += z * z;
        a[rXY] += x * y;
        a[rXZ] += x * z;
        a[rYZ] += y * z;
    });
}

// Row k of the eigenvector matrix (eigenvectors are rows), normalised.
template <class T>
Cdirec3<T> eigenRow3(Cmatrix<T> const& V, unsigned k) {
    return Cdirec3<T>(Cpoint3<T>(V(k, 0), V(k, 1), V(k, 2)));
}

// sqrt(value / (n - 1)).
template <class T>
T spread(T value, T nm1) {
    return static_cast<T>(std::sqrt(value / nm1));
}

}  // namespace

// ---------------------------------------------------------------------------
// Planar line
// ---------------------------------------------------------------------------

template <class T>
void approximate<T>::fitLineGeom(CpointSpan<Cpoint2<T>> pts, Cline2<T>& line) {
    const std::size_t count = pts.size();
    if (fewPoints<2>(pts, line)) return;

    // Pass 1: centroid (sums in T).
    const auto c = blockedSums<T, 2>(pts, [](auto* a, auto x, auto y) {
        a[0] += x;
        a[1] += y;
    });
    const T n = static_cast<T>(count);
    const T mx = c[0] / n;
    const T my = c[1] / n;

    // Pass 2: centred second moments (in T).
    const auto m = blockedSums<T, 3>(pts, [mx, my](auto* a, auto x, auto y) {
        const auto u = x - mx;
        const auto v = y - my;
        a[0] += u * u;
        a[1] += v * v;
        a[2] += u * v;
    });
    const T Sxx = m[0], Syy = m[1], Sxy = m[2];

    // Closed-form principal axis of [[Sxx, Sxy], [Sxy, Syy]]: t is the larger
    // eigenvalue minus Syy, and (t, Sxy) is its eigenvector.
    Cdirec2<T> dir;
    if (Syy == T(0)) {
        dir = Cdirec2<T>(T(1), T(0), true);
    } else if (Sxx == T(0)) {
        dir = Cdirec2<T>(T(0), T(1), true);
    } else {
        const T dxy = Sxx - Syy;
        const T t = (dxy + static_cast<T>(std::sqrt(dxy * dxy + T(4) * Sxy * Sxy))) * T(0.5);
        if (Sxy * Sxy + t * t < T(1e-08)) {
            dir = Cdirec2<T>(T(0), T(1), true);
        } else {
            dir = Cdirec2<T>(Cpoint2<T>(t, Sxy));
        }
    }
    line = Cline2<T>(Cpoint2<T>(mx, my), dir);
}

template <class T>
void approximate<T>::fitLineGeom(CpointSpan<Cpoint2<T>> pts, Cline2<T>& line,
                                 CqLineGeom2DStdAbw<T>& rec) {
    const std::size_t count = pts.size();
    if (fewPoints<2>(pts, line, &rec)) return;

    const auto r = blockedSums<T, 5>(pts, [](auto* a, auto x, auto y) {
        a[0] += x;
        a[1] += y;
        a[2] += x * x;
        a[3] += y * y;
        a[4] += x * y;
    });
    const T sx = r[0], sy = r[1], sxx = r[2], syy = r[3], sxy = r[4];
    const T n = static_cast<T>(count);

    Cmatrix<T> A(2, 2);
    A(0, 0) = sxx - sx * sx / n;
    A(0, 1) = sxy - sx * sy / n;
    A(1, 0) = A(0, 1);
    A(1, 1) = syy - sy * sy / n;

    // One plane rotation diagonalises A; its rows are the eigenvectors.  For
    // A(0, 1) == 0 the rotation divides by zero and leaves NaN (documented).
    // The routine declines a matrix that is not exactly symmetric (NaN
    // entries); V then keeps its NaN start and the line comes out invalid.
    Cmatrix<T> V(2, 2, quietNaN<T>());
    CmatrixCalc<T>::getEigenvalue2x2sym(A, V);
    if (!(V(0, 0) == V(0, 0))) {
        // No rotation took place (non-finite sums): the spreads are NaN too,
        // as for a zero off-diagonal term.
        A(0, 0) = A(1, 1) = quietNaN<T>();
    }
    const T e0 = A(0, 0);
    const T e1 = A(1, 1);
    const T nm1 = n - T(1);

    unsigned row;
    if (e1 > e0) {
        rec.stdAbwAlong = spread(e1, nm1);
        rec.stdAbwOrth = spread(e0, nm1);
        row = 1;
    } else {
        rec.stdAbwOrth = spread(e1, nm1);
        rec.stdAbwAlong = spread(e0, nm1);
        row = 0;
    }
    line = Cline2<T>(Cpoint2<T>(sx / n, sy / n), Cdirec2<T>(Cpoint2<T>(V(row, 0), V(row, 1))));
}

// ---------------------------------------------------------------------------
// Spatial line
// ---------------------------------------------------------------------------

template <class T>
void approximate<T>::fitLineGeom(CpointSpan<Cpoint3<T>> pts, Cline3<T>& line) {
    const std::size_t count = pts.size();
    if (fewPoints<2>(pts, line)) return;

    // Pass 1: centroid, sums in T.
    const auto sc = blockedSums<T, 3>(pts, [](auto* a, auto x, auto y, auto z) {
        a[0] += x;
        a[1] += y;
        a[2] += z;
    });
    const T n = static_cast<T>(count);
    const Cpoint3<T> c(sc[0] / n, sc[1] / n, sc[2] / n);

    // Pass 2: centred moments in double.
    const double cx = static_cast<double>(c.x);
    const double cy = static_cast<double>(c.y);
    const double cz = static_cast<double>(c.z);
    const auto m = blockedSums<double, 6>(pts, [=](auto* a, auto x, auto y, auto z) {
        const auto u = x - cx;
        const auto v = y - cy;
        const auto w = z - cz;
        a[0] += u * u;
        a[1] += v * v;
        a[2] += w * w;
        a[3] += u * v;
        a[4] += u * w;
        a[5] += v * w;
    });
    const double Sxx = m[0], Syy = m[1], Szz = m[2], Sxy = m[3], Sxz = m[4], Syz = m[5];

    // Inertia tensor about the centroid; the line is its axis of least inertia.
    Cmatrix<T> I(3, 3);
    I(0, 0) = static_cast<T>(Syy + Szz);
    I(0, 1) = static_cast<T>(-Sxy);
    I(0, 2) = static_cast<T>(-Sxz);
    I(1, 0) = I(0, 1);
    I(1, 1) = static_cast<T>(Sxx + Szz);
    I(1, 2) = static_cast<T>(-Syz);
    I(2, 0) = I(0, 2);
    I(2, 1) = I(1, 2);
    I(2, 2) = static_cast<T>(Sxx + Syy);

    Cmatrix<T> V(3, 3, quietNaN<T>());
    if (!approx_detail::eigenOfFinite(I, V)) {
        setNaNLine(line);
        return;
    }
    line = Cline3<T>(c, eigenRow3(V, 2));
}

template <class T>
void approximate<T>::fitLineGeom(CpointSpan<Cpoint3<T>> pts, Cline3<T>& line,
                                 CqLineGeom3DStdAbw<T>& rec) {
    const std::size_t count = pts.size();
    if (fewPoints<2>(pts, line, &rec)) return;

    const auto s = rawSums3<double>(pts);
    const double n = static_cast<double>(count);

    Cmatrix<T> C(3, 3);
    C(0, 0) = static_cast<T>(s[rXX] - s[rX] * s[rX] / n);
    C(0, 1) = static_cast<T>(s[rXY] - s[rX] * s[rY] / n);
    C(0, 2) = static_cast<T>(s[rXZ] - s[rX] * s[rZ] / n);
    C(1, 0) = C(0, 1);
    C(1, 1) = static_cast<T>(s[rYY] - s[rY] * s[rY] / n);
    C(1, 2) = static_cast<T>(s[rYZ] - s[rY] * s[rZ] / n);
    C(2, 0) = C(0, 2);
    C(2, 1) = C(1, 2);
    C(2, 2) = static_cast<T>(s[rZZ] - s[rZ] * s[rZ] / n);

    Cmatrix<T> V(3, 3, quietNaN<T>());
    if (!approx_detail::eigenOfFinite(C, V)) {
        setNaNLine(line);
        setNaN(rec);
        return;
    }
    const T nm1 = static_cast<T>(count) - T(1);
    // Absolute values here only: the scatter is positive semi-definite, but a
    // rounded zero eigenvalue may come out slightly negative.
    rec.stdAbwMain = spread(static_cast<T>(std::fabs(C(0, 0))), nm1);
    rec.stdAbwSecond = spread(static_cast<T>(std::fabs(C(1, 1))), nm1);
    rec.stdAbwThird = spread(static_cast<T>(std::fabs(C(2, 2))), nm1);

    const Cpoint3<T> c(static_cast<T>(s[rX] / n), static_cast<T>(s[rY] / n), static_cast<T>(s[rZ] / n));
    line = Cline3<T>(c, eigenRow3(V, 0));
}

// ---------------------------------------------------------------------------
// Plane
// ---------------------------------------------------------------------------

namespace {

// The plane fit shared by both forms of fitPlaneGeom: fills the plane and,
// when rec is given, the spreads.
template <class T>
void planeGeom(CpointSpan<Cpoint3<T>> pts, Cplane3<T>& plane, CqPlaneGeomStdAbw<T>* rec) {
    const std::size_t count = pts.size();
    if (fewPoints<3>(pts, plane, rec)) return;

    const auto s = rawSums3<T>(pts);
    const T f = T(1) / static_cast<T>(count);

    Cmatrix<T> C(3, 3);
    C(0, 0) = s[rXX] - s[rX] * s[rX] * f;
    C(0, 1) = s[rXY] - s[rX] * s[rY] * f;
    C(0, 2) = s[rXZ] - s[rX] * s[rZ] * f;
    C(1, 0) = C(0, 1);
    C(1, 1) = s[rYY] - s[rY] * s[rY] * f;
    C(1, 2) = s[rYZ] - s[rY] * s[rZ] * f;
    C(2, 0) = C(0, 2);
    C(2, 1) = C(1, 2);
    C(2, 2) = s[rZZ] - s[rZ] * s[rZ] * f;

    Cmatrix<T> V(3, 3, quietNaN<T>());
    if (!approx_detail::eigenOfFinite(C, V)) {
        setNaNPlane(plane);
        if (rec) setNaN(*rec);
        return;
    }
    const Cdirec3<T> normal = eigenRow3(V, 2);
    plane.set(Cpoint3<T>(s[rX] * f, s[rY] * f, s[rZ] * f), normal);

    if (rec) {
        // No absolute value: a slightly negative smallest eigenvalue of exactly
        // planar data gives stdAbwNormal = NaN (documented).
        const T nm1 = static_cast<T>(count) - T(1);
        rec->stdAbwNormal = spread(C(2, 2), nm1);
        rec->stdAbwSecond = spread(C(1, 1), nm1);
        rec->stdAbwMain = spread(C(0, 0), nm1);
    }
}

}  // namespace

template <class T>
void approximate<T>::fitPlaneGeom(CpointSpan<Cpoint3<T>> pts, Cplane3<T>& plane) {
    planeGeom<T>(pts, plane, nullptr);
}

template <class T>
void approximate<T>::fitPlaneGeom(CpointSpan<Cpoint3<T>> pts, Cplane3<T>& plane,
                                  CqPlaneGeomStdAbw<T>& rec) {
    planeGeom<T>(pts, plane, &rec);
}

template <class T>
void approximate<T>::fitPlaneGeomFast(CpointSpan<Cpoint3<T>> pts, Cplane3<T>& plane,
                                      CqPlaneGeomFast<T> const& prm) {
    const std::size_t count = pts.size();
    if (fewPoints<3>(pts, plane)) return;

    const auto s = rawSums3<T>(pts);
    const T f = T(1) / static_cast<T>(count);

    // Centred inertia tensor from the raw sums (in T), then carried in double:
    // ten successive products grow like lambda_max^10, beyond float's range
    // for realistic clouds.
    const double t00 = static_cast<double>((s[rYY] + s[rZZ]) - f * (s[rY] * s[rY] + s[rZ] * s[rZ]));
    const double t11 = static_cast<double>((s[rXX] + s[rZZ]) - f * (s[rX] * s[rX] + s[rZ] * s[rZ]));
    const double t22 = static_cast<double>((s[rXX] + s[rYY]) - f * (s[rX] * s[rX] + s[rY] * s[rY]));
    const double t01 = static_cast<double>(-s[rXY] + f * s[rX] * s[rY]);
    const double t02 = static_cast<double>(-s[rXZ] + f * s[rX] * s[rZ]);
    const double t12 = static_cast<double>(-s[rYZ] + f * s[rY] * s[rZ]);

    double vx = 1.0, vy = 1.0, vz = 1.0;
    double Lprev = 0.0;
    const double eps = static_cast<double>(prm.eps);
    // k counts in 64 bits, so that maxIter = 2^32 - 1 still ends.
    for (std::uint64_t k = 0;; ++k) {
        const double px = vx, py = vy, pz = vz;
        for (int r = 0; r < 10; ++r) {
            const double wx = t00 * vx + t01 * vy + t02 * vz;
            const double wy = t01 * vx + t11 * vy + t12 * vz;
            const double wz = t02 * vx + t12 * vy + t22 * vz;
            vx = wx;
            vy = wy;
            vz = wz;
        }
        const double L = std::sqrt(vx * vx + vy * vy + vz * vz);
        vx /= L;
        vy /= L;
        vz /= L;
        // maxIter < k: with maxIter = 0 the iterations k = 0 and k = 1 run.
        if (std::fabs(L - Lprev) < eps || prm.maxIter < k) break;
        // A zero or non-finite tensor leaves v NaN for good, and a vector that
        // repeats exactly stays so: the remaining iterations could not change
        // the result, so stop at once.
        if (!(L > 0.0) || !std::isfinite(L)) break;
        if (vx == px && vy == py && vz == pz && L == Lprev) break;
        Lprev = L;
    }

    const Cdirec3<T> nrm(Cpoint3<T>(static_cast<T>(vx), static_cast<T>(vy), static_cast<T>(vz)));
    const T d = -(nrm.x * (s[rX] * f) + nrm.y * (s[rY] * f) + nrm.z * (s[rZ] * f));
    plane.set(nrm.x, nrm.y, nrm.z, d);
}

// Explicit instantiation of the members defined in this file (the class itself
// is instantiated with the closed-form fits).
#define METROMATH_APPROX_GEOM_INSTANTIATE(T)                                                           \
    template void approximate<T>::fitLineGeom(CpointSpan<Cpoint2<T>>, Cline2<T>&);             \
    template void approximate<T>::fitLineGeom(CpointSpan<Cpoint2<T>>, Cline2<T>&,              \
                                              CqLineGeom2DStdAbw<T>&);                                 \
    template void approximate<T>::fitLineGeom(CpointSpan<Cpoint3<T>>, Cline3<T>&);             \
    template void approximate<T>::fitLineGeom(CpointSpan<Cpoint3<T>>, Cline3<T>&,              \
                                              CqLineGeom3DStdAbw<T>&);                                 \
    template void approximate<T>::fitPlaneGeom(CpointSpan<Cpoint3<T>>, Cplane3<T>&);           \
    template void approximate<T>::fitPlaneGeom(CpointSpan<Cpoint3<T>>, Cplane3<T>&,            \
                                               CqPlaneGeomStdAbw<T>&);                                 \
    template void approximate<T>::fitPlaneGeomFast(CpointSpan<Cpoint3<T>>, Cplane3<T>&,        \
                                                   CqPlaneGeomFast<T> const&);

METROMATH_APPROX_GEOM_INSTANTIATE(float)
METROMATH_APPROX_GEOM_INSTANTIATE(double)

#undef METROMATH_APPROX_GEOM_INSTANTIATE

}  // namespace math
