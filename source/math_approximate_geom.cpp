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

template <class T>
void setNaNLine(Cline2<T>& line) {
    const T nan = quietNaN<T>();
    line = Cline2<T>(Cpoint2<T>(nan, nan), Cdirec2<T>(nan, nan, true));
}

template <class T>
void setNaNLine(Cline3<T>& line) {
    const T nan = quietNaN<T>();
    line = Cline3<T>(Cpoint3<T>(nan, nan, nan), Cdirec3<T>(nan, nan, nan, true));
}

template <class T>
void setNaNPlane(Cplane3<T>& plane) {
    const T nan = quietNaN<T>();
    plane.set(nan, nan, nan, nan);
}

template <class T>
void setNaN(CqLineGeom2DStdAbw<T>& rec) {
    rec.stdAbwOrth = rec.stdAbwAlong = quietNaN<T>();
}

template <class T>
void setNaN(CqLineGeom3DStdAbw<T>& rec) {
    rec.stdAbwMain = rec.stdAbwSecond = rec.stdAbwThird = quietNaN<T>();
}

template <class T>
void setNaN(CqPlaneGeomStdAbw<T>& rec) {
    rec.stdAbwNormal = rec.stdAbwSecond = rec.stdAbwMain = quietNaN<T>();
}

// Raw sums of a spatial point set in the accumulator type S.
template <class S>
struct RawSums3 {
    S x, y, z;
    S xx, yy, zz, xy, xz, yz;
    RawSums3& operator+=(RawSums3 const& o) {
        x += o.x, y += o.y, z += o.z;
        xx += o.xx, yy += o.yy, zz += o.zz, xy += o.xy, xz += o.xz, yz += o.yz;
        return *this;
    }
};

template <class S, class T>
RawSums3<S> rawSums3(std::vector<Cpoint3<T>> const& pts) {
    return blockedSums<RawSums3<S>>(pts, [](RawSums3<S>& s, Cpoint3<T> const& p) {
        const S x = static_cast<S>(p.x);
        const S y = static_cast<S>(p.y);
        const S z = static_cast<S>(p.z);
        s.x += x;
        s.y += y;
        s.z += z;
        s.xx += x * x;
        s.yy += y * y;
        s.zz += z * z;
        s.xy += x * y;
        s.xz += x * z;
        s.yz += y * z;
    });
}

// Sums of the coordinates (centroid pass) in T.
template <class T>
struct Sums2 {
    T x, y;
    Sums2& operator+=(Sums2 const& o) {
        x += o.x, y += o.y;
        return *this;
    }
};
template <class T>
struct Sums3 {
    T x, y, z;
    Sums3& operator+=(Sums3 const& o) {
        x += o.x, y += o.y, z += o.z;
        return *this;
    }
};

// Five sums of planar coordinates: x, y and the three second moments, in S.
template <class S>
struct Sums5 {
    S x, y, xx, yy, xy;
    Sums5& operator+=(Sums5 const& o) {
        x += o.x, y += o.y, xx += o.xx, yy += o.yy, xy += o.xy;
        return *this;
    }
};

// Six centred second moments in S.
template <class S>
struct Moments6 {
    S xx, yy, zz, xy, xz, yz;
    Moments6& operator+=(Moments6 const& o) {
        xx += o.xx, yy += o.yy, zz += o.zz, xy += o.xy, xz += o.xz, yz += o.yz;
        return *this;
    }
};

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
void approximate<T>::fitLineGeom(std::vector<Cpoint2<T>> const& pts, Cline2<T>& line) {
    const std::size_t count = pts.size();
    if (count < 2) {
        setNaNLine(line);
        return;
    }
    if (count == 2) {
        line = Cline2<T>(pts[0], pts[1]);
        return;
    }

    // Pass 1: centroid (sums in T).
    const Sums2<T> c = blockedSums<Sums2<T>>(pts, [](Sums2<T>& s, Cpoint2<T> const& p) {
        s.x += p.x;
        s.y += p.y;
    });
    const T n = static_cast<T>(count);
    const T mx = c.x / n;
    const T my = c.y / n;

    // Pass 2: centred second moments (in T).
    const Sums5<T> m = blockedSums<Sums5<T>>(pts, [mx, my](Sums5<T>& s, Cpoint2<T> const& p) {
        const T u = p.x - mx;
        const T v = p.y - my;
        s.xx += u * u;
        s.yy += v * v;
        s.xy += u * v;
    });
    const T Sxx = m.xx, Syy = m.yy, Sxy = m.xy;

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
void approximate<T>::fitLineGeom(std::vector<Cpoint2<T>> const& pts, Cline2<T>& line,
                                 CqLineGeom2DStdAbw<T>& rec) {
    const std::size_t count = pts.size();
    if (count < 2) {
        setNaNLine(line);
        setNaN(rec);
        return;
    }
    if (count == 2) {
        line = Cline2<T>(pts[0], pts[1]);
        setNaN(rec);
        return;
    }

    const Sums5<T> r = blockedSums<Sums5<T>>(pts, [](Sums5<T>& s, Cpoint2<T> const& p) {
        s.x += p.x;
        s.y += p.y;
        s.xx += p.x * p.x;
        s.yy += p.y * p.y;
        s.xy += p.x * p.y;
    });
    const T sx = r.x, sy = r.y, sxx = r.xx, syy = r.yy, sxy = r.xy;
    const T n = static_cast<T>(count);

    Cmatrix<T> A(2, 2);
    A(0, 0) = sxx - sx * sx / n;
    A(0, 1) = sxy - sx * sy / n;
    A(1, 0) = A(0, 1);
    A(1, 1) = syy - sy * sy / n;

    // One plane rotation diagonalises A; its rows are the eigenvectors.  For
    // A(0, 1) == 0 the rotation divides by zero and leaves NaN (documented).
    Cmatrix<T> V;
    CmatrixCalc<T>::getEigenvalue2x2sym(A, V);
    if (V.m() != 2) {
        // The rotation refuses a NaN off-diagonal term (non-finite sums) and
        // leaves V empty: direction and spreads are NaN, as for a zero term.
        V = Cmatrix<T>(2, 2, quietNaN<T>());
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
void approximate<T>::fitLineGeom(std::vector<Cpoint3<T>> const& pts, Cline3<T>& line) {
    const std::size_t count = pts.size();
    if (count < 2) {
        setNaNLine(line);
        return;
    }
    if (count == 2) {
        line = Cline3<T>(pts[0], pts[1]);
        return;
    }

    // Pass 1: centroid, sums in T.
    const Sums3<T> sc = blockedSums<Sums3<T>>(pts, [](Sums3<T>& s, Cpoint3<T> const& p) {
        s.x += p.x;
        s.y += p.y;
        s.z += p.z;
    });
    const T n = static_cast<T>(count);
    const Cpoint3<T> c(sc.x / n, sc.y / n, sc.z / n);

    // Pass 2: centred moments in double.
    const double cx = static_cast<double>(c.x);
    const double cy = static_cast<double>(c.y);
    const double cz = static_cast<double>(c.z);
    const Moments6<double> m = blockedSums<Moments6<double>>(pts, [=](Moments6<double>& s, Cpoint3<T> const& p) {
        const double u = static_cast<double>(p.x) - cx;
        const double v = static_cast<double>(p.y) - cy;
        const double w = static_cast<double>(p.z) - cz;
        s.xx += u * u;
        s.yy += v * v;
        s.zz += w * w;
        s.xy += u * v;
        s.xz += u * w;
        s.yz += v * w;
    });
    const double Sxx = m.xx, Syy = m.yy, Szz = m.zz, Sxy = m.xy, Sxz = m.xz, Syz = m.yz;

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

    Cmatrix<T> V;
    CmatrixCalc<T>::getEigenvalue(I, V);
    line = Cline3<T>(c, eigenRow3(V, 2));
}

template <class T>
void approximate<T>::fitLineGeom(std::vector<Cpoint3<T>> const& pts, Cline3<T>& line,
                                 CqLineGeom3DStdAbw<T>& rec) {
    const std::size_t count = pts.size();
    if (count < 2) {
        setNaNLine(line);
        setNaN(rec);
        return;
    }
    if (count == 2) {
        line = Cline3<T>(pts[0], pts[1]);
        setNaN(rec);
        return;
    }

    const RawSums3<double> s = rawSums3<double>(pts);
    const double n = static_cast<double>(count);

    Cmatrix<T> C(3, 3);
    C(0, 0) = static_cast<T>(s.xx - s.x * s.x / n);
    C(0, 1) = static_cast<T>(s.xy - s.x * s.y / n);
    C(0, 2) = static_cast<T>(s.xz - s.x * s.z / n);
    C(1, 0) = C(0, 1);
    C(1, 1) = static_cast<T>(s.yy - s.y * s.y / n);
    C(1, 2) = static_cast<T>(s.yz - s.y * s.z / n);
    C(2, 0) = C(0, 2);
    C(2, 1) = C(1, 2);
    C(2, 2) = static_cast<T>(s.zz - s.z * s.z / n);

    Cmatrix<T> V;
    CmatrixCalc<T>::getEigenvalue(C, V);
    const T nm1 = static_cast<T>(count) - T(1);
    // Absolute values here only: the scatter is positive semi-definite, but a
    // rounded zero eigenvalue may come out slightly negative.
    rec.stdAbwMain = spread(static_cast<T>(std::fabs(C(0, 0))), nm1);
    rec.stdAbwSecond = spread(static_cast<T>(std::fabs(C(1, 1))), nm1);
    rec.stdAbwThird = spread(static_cast<T>(std::fabs(C(2, 2))), nm1);

    const Cpoint3<T> c(static_cast<T>(s.x / n), static_cast<T>(s.y / n), static_cast<T>(s.z / n));
    line = Cline3<T>(c, eigenRow3(V, 0));
}

// ---------------------------------------------------------------------------
// Plane
// ---------------------------------------------------------------------------

namespace {

// The plane fit shared by both forms of fitPlaneGeom: fills the plane and,
// when rec is given, the spreads.
template <class T>
void planeGeom(std::vector<Cpoint3<T>> const& pts, Cplane3<T>& plane, CqPlaneGeomStdAbw<T>* rec) {
    const std::size_t count = pts.size();
    if (count < 3) {
        setNaNPlane(plane);
        if (rec) setNaN(*rec);
        return;
    }
    if (count == 3) {
        plane = Cplane3<T>(pts[0], pts[1], pts[2]);
        if (rec) setNaN(*rec);
        return;
    }

    const RawSums3<T> s = rawSums3<T>(pts);
    const T f = T(1) / static_cast<T>(count);

    Cmatrix<T> C(3, 3);
    C(0, 0) = s.xx - s.x * s.x * f;
    C(0, 1) = s.xy - s.x * s.y * f;
    C(0, 2) = s.xz - s.x * s.z * f;
    C(1, 0) = C(0, 1);
    C(1, 1) = s.yy - s.y * s.y * f;
    C(1, 2) = s.yz - s.y * s.z * f;
    C(2, 0) = C(0, 2);
    C(2, 1) = C(1, 2);
    C(2, 2) = s.zz - s.z * s.z * f;

    Cmatrix<T> V;
    CmatrixCalc<T>::getEigenvalue(C, V);
    const Cdirec3<T> normal = eigenRow3(V, 2);
    plane.set(Cpoint3<T>(s.x * f, s.y * f, s.z * f), normal);

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
void approximate<T>::fitPlaneGeom(std::vector<Cpoint3<T>> const& pts, Cplane3<T>& plane) {
    planeGeom<T>(pts, plane, nullptr);
}

template <class T>
void approximate<T>::fitPlaneGeom(std::vector<Cpoint3<T>> const& pts, Cplane3<T>& plane,
                                  CqPlaneGeomStdAbw<T>& rec) {
    planeGeom<T>(pts, plane, &rec);
}

template <class T>
void approximate<T>::fitPlaneGeomFast(std::vector<Cpoint3<T>> const& pts, Cplane3<T>& plane,
                                      CqPlaneGeomFast<T> const& prm) {
    const std::size_t count = pts.size();
    if (count < 3) {
        setNaNPlane(plane);
        return;
    }
    if (count == 3) {
        plane = Cplane3<T>(pts[0], pts[1], pts[2]);
        return;
    }

    const RawSums3<T> s = rawSums3<T>(pts);
    const T f = T(1) / static_cast<T>(count);

    // Centred inertia tensor from the raw sums (in T), then carried in double:
    // ten successive products grow like lambda_max^10, beyond float's range
    // for realistic clouds.
    const double t00 = static_cast<double>((s.yy + s.zz) - f * (s.y * s.y + s.z * s.z));
    const double t11 = static_cast<double>((s.xx + s.zz) - f * (s.x * s.x + s.z * s.z));
    const double t22 = static_cast<double>((s.xx + s.yy) - f * (s.x * s.x + s.y * s.y));
    const double t01 = static_cast<double>(-s.xy + f * s.x * s.y);
    const double t02 = static_cast<double>(-s.xz + f * s.x * s.z);
    const double t12 = static_cast<double>(-s.yz + f * s.y * s.z);

    double vx = 1.0, vy = 1.0, vz = 1.0;
    double Lprev = 0.0;
    const double eps = static_cast<double>(prm.eps);
    // k is 64-bit so that maxIter = 2^32 - 1 still ends the loop.
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
        // A vector that repeats exactly (or has turned NaN) stays so in every
        // further iteration: the remaining ones could not change the result.
        if ((vx == px && vy == py && vz == pz && L == Lprev) || L != L || vx != vx) break;
        Lprev = L;
    }

    const Cdirec3<T> nrm(Cpoint3<T>(static_cast<T>(vx), static_cast<T>(vy), static_cast<T>(vz)));
    const T d = -(nrm.x * (s.x * f) + nrm.y * (s.y * f) + nrm.z * (s.z * f));
    plane.set(nrm.x, nrm.y, nrm.z, d);
}

// Explicit instantiation of the members defined in this file (the class itself
// is instantiated with the closed-form fits).
#define METROMATH_APPROX_GEOM_INSTANTIATE(T)                                                           \
    template void approximate<T>::fitLineGeom(std::vector<Cpoint2<T>> const&, Cline2<T>&);             \
    template void approximate<T>::fitLineGeom(std::vector<Cpoint2<T>> const&, Cline2<T>&,              \
                                              CqLineGeom2DStdAbw<T>&);                                 \
    template void approximate<T>::fitLineGeom(std::vector<Cpoint3<T>> const&, Cline3<T>&);             \
    template void approximate<T>::fitLineGeom(std::vector<Cpoint3<T>> const&, Cline3<T>&,              \
                                              CqLineGeom3DStdAbw<T>&);                                 \
    template void approximate<T>::fitPlaneGeom(std::vector<Cpoint3<T>> const&, Cplane3<T>&);           \
    template void approximate<T>::fitPlaneGeom(std::vector<Cpoint3<T>> const&, Cplane3<T>&,            \
                                               CqPlaneGeomStdAbw<T>&);                                 \
    template void approximate<T>::fitPlaneGeomFast(std::vector<Cpoint3<T>> const&, Cplane3<T>&,        \
                                                   CqPlaneGeomFast<T> const&);

METROMATH_APPROX_GEOM_INSTANTIATE(float)
METROMATH_APPROX_GEOM_INSTANTIATE(double)

#undef METROMATH_APPROX_GEOM_INSTANTIATE

}  // namespace math
