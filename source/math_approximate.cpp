// Closed-form least-squares fits of approximate<T>: the algebraic line, circle
// and sphere fits and the deviation measures.
//
// Every fit forms moment sums over the points once (the centred circle fits:
// once for the mean, once for the moments) and then evaluates a closed formula
// or solves one 3x3 / 4x4 system.  The moment sums are carried in double also
// for T = float, so that the cancellation inside the normal equations costs
// double, not single, precision; only the finished sums are rounded to T when
// they enter the Cmatrix<T> of the system.  The per-point loops allocate
// nothing; the sums are accumulated block-wise (math_approximate_sums.h).
#include <math/approximate.h>

#include <math/matrix.h>
#include <math/matrix_calc.h>
#include <math/solver.h>

#include "math_approximate_sums.h"

#include <cmath>
#include <cstddef>

namespace math {

namespace {

using approx_detail::blockedSums;
using approx_detail::setNaNLine;

// The invalid circle of the too-few-points path: centre and radius NaN.
template <class T>
void setNaNCircle(Ccircle2<T>& circle) {
    const T nan = quietNaN<T>();
    circle = Ccircle2<T>(Cpoint2<T>(nan, nan), nan);
}

// (dx, dy) normalised by the rule of Cdirec2 (divide by the length; a length
// of exactly 0 sets x to NaN), computed in double and stored in T.
template <class T>
Cdirec2<T> direcFromDouble(double dx, double dy) {
    const double len = std::sqrt(dx * dx + dy * dy);
    if (len != 0.0) {
        dx /= len;
        dy /= len;
    } else {
        dx = quietNaN<double>();
    }
    return Cdirec2<T>(static_cast<T>(dx), static_cast<T>(dy), true);
}

// Moment sums of centred planar coordinates u = x - mx, v = y - my, all in
// double, in the order in which they enter the algebraic circle system.
enum { cU, cV, cUU, cVV, cUV, cUUU, cVVV, cUUV, cUVV, cU4, cV4, cUUVV, cCount };
using CircleMoments = approx_detail::Sums<double, cCount>;

// Means of the coordinates in double (first pass of the circle fits).
template <class T>
void meansDouble(CpointSpan<Cpoint2<T>> pts, double& mx, double& my) {
    const auto s = blockedSums<double, 2>(pts, [](auto* a, auto x, auto y) {
        a[0] += x;
        a[1] += y;
    });
    const double n = static_cast<double>(pts.size());
    mx = s[0] / n;
    my = s[1] / n;
}

// Second pass of the circle fits: the moments of u = x - mx, v = y - my.
template <class T>
CircleMoments circleMoments(CpointSpan<Cpoint2<T>> pts, double mx, double my) {
    return blockedSums<double, cCount>(pts, [mx, my](auto* a, auto x, auto y) {
        const auto u = x - mx;
        const auto v = y - my;
        const auto u2 = u * u;
        const auto v2 = v * v;
        a[cU] += u;
        a[cV] += v;
        a[cUU] += u2;
        a[cVV] += v2;
        a[cUV] += u * v;
        a[cUUU] += u2 * u;
        a[cVVV] += v2 * v;
        a[cUUV] += u2 * v;
        a[cUVV] += u * v2;
        a[cU4] += u2 * u2;
        a[cV4] += v2 * v2;
        a[cUUVV] += u2 * v2;
    });
}

// Builds the algebraic circle system of A*(u^2+v^2) + B*u + C*v = 1 from the
// moments, solves it with the singular-value solver and writes the circle.
template <class T>
void solveCircleSystem(CircleMoments const& s, double mx, double my, Ccircle2<T>& circle) {
    Cmatrix<T> M(3, 3);
    M(0, 0) = static_cast<T>(s[cU4] + 2.0 * s[cUUVV] + s[cV4]);
    M(0, 1) = static_cast<T>(s[cUUU] + s[cUVV]);
    M(0, 2) = static_cast<T>(s[cUUV] + s[cVVV]);
    M(1, 0) = M(0, 1);
    M(1, 1) = static_cast<T>(s[cUU]);
    M(1, 2) = static_cast<T>(s[cUV]);
    M(2, 0) = M(0, 2);
    M(2, 1) = M(1, 2);
    M(2, 2) = static_cast<T>(s[cVV]);
    const std::vector<T> r{static_cast<T>(s[cUU] + s[cVV]), static_cast<T>(s[cU]), static_cast<T>(s[cV])};

    Csolver_svd<T> solver(M);
    const Cmatrix<T> sol = solver.solve(r);
    // Collinear or coincident points: the system is rank-deficient and its
    // minimum-norm solution is no circle.
    if (solver.getRank() < 3) {
        setNaNCircle(circle);
        return;
    }
    const double A = static_cast<double>(sol(0, 0));
    const double B = static_cast<double>(sol(1, 0));
    const double C = static_cast<double>(sol(2, 0));

    // Centre back in the caller's coordinates; the radius is made positive.
    const double cx = mx - 0.5 * B / A;
    const double cy = my - 0.5 * C / A;
    const double r0 = std::fabs(0.5 * std::sqrt(B * B + C * C + 4.0 * A) / A);
    circle = Ccircle2<T>(Cpoint2<T>(static_cast<T>(cx), static_cast<T>(cy)), static_cast<T>(r0));
}

// sqrt((sum d^2 - (sum d)^2 / n) / (n - 1)) from the sums of d (s[0]) and d^2
// (s[1]) in T.
template <class T>
T sampleDeviation(approx_detail::Sums<T, 2> const& s, std::size_t count) {
    const T n = static_cast<T>(count);
    return static_cast<T>(std::sqrt((s[1] - s[0] * s[0] / n) / (n - T(1))));
}

// The raw sums of the algebraic sphere fit.
enum {
    sX, sY, sZ, sXX, sYY, sZZ, sXY, sXZ, sYZ, sXXX, sYYY, sZZZ,
    sXXY, sXXZ, sXYY, sYYZ, sXZZ, sYZZ, sX4, sY4, sZ4, sXXYY, sXXZZ, sYYZZ, sCount
};

}  // namespace

// ---------------------------------------------------------------------------
// Algebraic line
// ---------------------------------------------------------------------------

template <class T>
double approximate<T>::fitLineLsq(CpointSpan<Cpoint2<T>> pts, Cline2<T>& line) {
    const std::size_t n = pts.size();
    if (n < 2) {
        setNaNLine(line);
        return quietNaN<double>();
    }
    if (n == 2) {
        // The exact line; deliberately no deviation for two points.
        line = Cline2<T>(pts[0], pts[1]);
        return quietNaN<double>();
    }

    const auto s = blockedSums<double, 5>(pts, [](auto* a, auto x, auto y) {
        a[0] += x;
        a[1] += y;
        a[2] += x * x;
        a[3] += y * y;
        a[4] += x * y;
    });
    const double Sx = s[0], Sy = s[1], Sxx = s[2], Syy = s[3], Sxy = s[4];

    // Cramer's rule on the normal equations of a*x + b*y = 1: a = A/D, b = B/D,
    // so the line is A*x + B*y = D.
    const double A = Syy * Sx - Sxy * Sy;
    const double B = Sxx * Sy - Sxy * Sx;
    const double D = Sxx * Syy - Sxy * Sxy;

    const double x0 = static_cast<double>(pts[0].x);
    if (B == 0.0) {
        // Vertical line x = D/A, anchored at the first point's height.
        line = Cline2<T>(Cpoint2<T>(static_cast<T>(D / A), pts[0].y), Cdirec2<T>(T(0), T(1), true));
    } else {
        const double invB = 1.0 / B;
        line = Cline2<T>(Cpoint2<T>(pts[0].x, static_cast<T>((D - x0 * A) * invB)),
                         direcFromDouble<T>(1.0, -A * invB));
    }

    // Mean squared orthogonal distance from A*x + B*y = D, expanded in the sums.
    const double nd = static_cast<double>(n);
    return D * (nd * D - A * Sx - B * Sy) / (nd * (A * A + B * B));
}

template <class T>
void approximate<T>::fitLineLsqN(CpointSpan<Cpoint2<T>> pts, Cline2<T>& line,
                                 CqLineLsqNStdAbw<T>& rec) {
    rec.meanSqDist = static_cast<T>(fitLineLsq(pts, line));
}

template <class T>
void approximate<T>::fitLineLsqN(CpointSpan<Cpoint2<T>> pts, Cline2<T>& line) {
    CqLineLsqNStdAbw<T> rec;
    fitLineLsqN(pts, line, rec);
}

// ---------------------------------------------------------------------------
// Algebraic circle
// ---------------------------------------------------------------------------

template <class T>
void approximate<T>::fitCircleLsq(CpointSpan<Cpoint2<T>> pts, Ccircle2<T>& circle) {
    if (pts.size() < 4) {
        setNaNCircle(circle);
        return;
    }
    double mx, my;
    meansDouble(pts, mx, my);
    const CircleMoments s = circleMoments(pts, mx, my);
    solveCircleSystem(s, mx, my, circle);
}

template <class T>
void approximate<T>::fitCircleLsq(CpointSpan<Cpoint2<T>> pts, Ccircle2<T>& circle,
                                  CqCircleLsqStdAbw<T>& rec) {
    fitCircleLsq(pts, circle);
    // Fewer than 4 points leave a NaN centre, so the deviation is NaN as well.
    rec.stdAbw = StdAbwCircle2(pts, circle);
}

template <class T>
void approximate<T>::fitCircleLsqBeta(CpointSpan<Cpoint2<T>> pts, Ccircle2<T>& circle) {
    const std::size_t n = pts.size();
    if (n < 4) {
        setNaNCircle(circle);
        return;
    }
    double mx, my;
    meansDouble(pts, mx, my);

    const CircleMoments s = circleMoments(pts, mx, my);

    // Non-finite input (a NaN point, squares that overflowed): no circle, and
    // no eigen stage to run on it.
    for (double x : s.s)
        if (!std::isfinite(x)) {
            setNaNCircle(circle);
            return;
        }

    // Design matrix Z with rows (2u, 2v, -1); a matrix has at most 2^32 - 1 rows.
    Cmatrix<T> Z(approx_detail::matrixRows(n), 3);
    T* z = Z.getBase();
    for (std::size_t i = 0; i < n; ++i, z += 3) {
        z[0] = static_cast<T>(2.0 * (static_cast<double>(pts[i].x) - mx));
        z[1] = static_cast<T>(2.0 * (static_cast<double>(pts[i].y) - my));
        z[2] = T(-1);
    }

    // Normal equations K*(a, b, c) = g of 2u*a + 2v*b - c = u^2 + v^2:
    // K = Z^T Z = [[4 Suu, 4 Suv, -2 Su], [4 Suv, 4 Svv, -2 Sv], [-2 Su, -2 Sv, n]].
    const Cmatrix<T> Zt = Z.transp();
    Cmatrix<T> K = Zt * Z;
    Cmatrix<T> g(3, 1);
    g(0, 0) = static_cast<T>(2.0 * (s[cUUU] + s[cUVV]));
    g(1, 0) = static_cast<T>(2.0 * (s[cUUV] + s[cVVV]));
    g(2, 0) = static_cast<T>(-(s[cUU] + s[cVV]));

    // Pseudo-inverse through the eigen decomposition K = V^T diag(lambda) V
    // (eigenvectors are the rows of V).  Eigenvalues within the single-precision
    // epsilon of 0 are dropped, in the double instantiation as well.
    Cmatrix<T> V(3, 3, quietNaN<T>());
    if (!approx_detail::eigenOfFinite(K, V)) {
        setNaNCircle(circle);
        return;
    }
    const T eps = static_cast<T>(tol::epsFloat);
    Cmatrix<T> invL(3, 3);
    for (unsigned k = 0; k < 3; ++k) {
        const T lambda = K(k, k);
        invL(k, k) = (lambda - eps > T(0) || lambda + eps < T(0)) ? T(1) / lambda : T(0);
    }
    const Cmatrix<T> Vt = V.transp();
    const Cmatrix<T> Kpinv = Vt * invL * V;
    // Parameters (a, b, c): centre (mean + (a, b)), radius sqrt(a^2 + b^2 - c).
    // They accompany the fit only; the circle written below is that of the
    // algebraic circle system, identical to fitCircleLsq.
    const Cmatrix<T> abc = Kpinv * g;
    (void)abc;

    solveCircleSystem(s, mx, my, circle);
}

// ---------------------------------------------------------------------------
// Algebraic sphere
// ---------------------------------------------------------------------------

template <class T>
void approximate<T>::fitSphereLsq(CpointSpan<Cpoint3<T>> pts, Csphere3<T>& sphere) {
    // No input check: an empty or too small set goes to the solver as it is.
    const auto S = blockedSums<double, sCount>(pts, [](auto* a, auto x, auto y, auto z) {
        const auto x2 = x * x;
        const auto y2 = y * y;
        const auto z2 = z * z;
        a[sX] += x;
        a[sY] += y;
        a[sZ] += z;
        a[sXX] += x2;
        a[sYY] += y2;
        a[sZZ] += z2;
        a[sXY] += x * y;
        a[sXZ] += x * z;
        a[sYZ] += y * z;
        a[sXXX] += x2 * x;
        a[sYYY] += y2 * y;
        a[sZZZ] += z2 * z;
        a[sXXY] += x2 * y;
        a[sXXZ] += x2 * z;
        a[sXYY] += x * y2;
        a[sYYZ] += y2 * z;
        a[sXZZ] += x * z2;
        a[sYZZ] += y * z2;
        a[sX4] += x2 * x2;
        a[sY4] += y2 * y2;
        a[sZ4] += z2 * z2;
        a[sXXYY] += x2 * y2;
        a[sXXZZ] += x2 * z2;
        a[sYYZZ] += y2 * z2;
    });

    Cmatrix<T> M(4, 4);
    M(0, 0) = static_cast<T>(S[sX4] + S[sY4] + S[sZ4] + 2.0 * (S[sXXYY] + S[sXXZZ] + S[sYYZZ]));
    M(0, 1) = static_cast<T>(S[sXXX] + S[sXYY] + S[sXZZ]);
    M(0, 2) = static_cast<T>(S[sYYY] + S[sXXY] + S[sYZZ]);
    M(0, 3) = static_cast<T>(S[sZZZ] + S[sXXZ] + S[sYYZ]);
    M(1, 0) = M(0, 1);
    M(1, 1) = static_cast<T>(S[sXX]);
    M(1, 2) = static_cast<T>(S[sXY]);
    M(1, 3) = static_cast<T>(S[sXZ]);
    M(2, 0) = M(0, 2);
    M(2, 1) = M(1, 2);
    M(2, 2) = static_cast<T>(S[sYY]);
    M(2, 3) = static_cast<T>(S[sYZ]);
    M(3, 0) = M(0, 3);
    M(3, 1) = M(1, 3);
    M(3, 2) = M(2, 3);
    M(3, 3) = static_cast<T>(S[sZZ]);
    const std::vector<T> r{static_cast<T>(S[sXX] + S[sYY] + S[sZZ]), static_cast<T>(S[sX]), static_cast<T>(S[sY]),
                           static_cast<T>(S[sZ])};

    Csolver_svd<T> solver(M);
    const Cmatrix<T> sol = solver.solve(r);
    // Too few, coplanar-on-a-circle or coincident points: rank-deficient.
    if (solver.getRank() < 4) {
        const T nan = quietNaN<T>();
        sphere.center() = Cpoint3<T>(nan, nan, nan);
        sphere.radius() = nan;
        return;
    }
    const double A = static_cast<double>(sol(0, 0));
    const double B = static_cast<double>(sol(1, 0));
    const double C = static_cast<double>(sol(2, 0));
    const double D = static_cast<double>(sol(3, 0));

    // The sign of the radius follows A = 1/(r^2 - |c|^2): negative when the
    // origin is inside the sphere.  Deliberately no absolute value.
    sphere.center() = Cpoint3<T>(static_cast<T>(-0.5 * B / A), static_cast<T>(-0.5 * C / A),
                                 static_cast<T>(-0.5 * D / A));
    sphere.radius() = static_cast<T>(-0.5 * std::sqrt(B * B + C * C + D * D + 4.0 * A) / A);
}

template <class T>
void approximate<T>::fitSphereLsq(CpointSpan<Cpoint3<T>> pts, Csphere3<T>& sphere,
                                  CqSphereLsqStdAbw<T>& rec) {
    fitSphereLsq(pts, sphere);
    rec.stdAbw = StdAbwSphere(pts, sphere);
}

// ---------------------------------------------------------------------------
// Deviation measures
// ---------------------------------------------------------------------------

template <class T>
T approximate<T>::StdAbwLine2(CpointSpan<Cpoint2<T>> pts, Cline2<T> const& line) {
    // Unit normal: the direction turned by +90 degrees, normalised.
    const Cdirec2<T> nrm(Cpoint2<T>(-line.direction().y, line.direction().x));
    const T nx = nrm.x, ny = nrm.y;
    const T qx = line.point().x, qy = line.point().y;
    const auto s = blockedSums<T, 2>(pts, [=](auto* a, auto x, auto y) {
        const auto d = nx * (x - qx) + ny * (y - qy);
        a[0] += d;
        a[1] += d * d;
    });
    return sampleDeviation(s, pts.size());
}

template <class T>
T approximate<T>::StdAbwCircle2(CpointSpan<Cpoint2<T>> pts, Ccircle2<T> const& circle) {
    const T cx = circle.center().x, cy = circle.center().y;
    const auto s = blockedSums<T, 2>(pts, [=](auto* a, auto x, auto y) {
        const auto dx = cx - x;
        const auto dy = cy - y;
        const auto d = approx_detail::lanewiseSqrt(dx * dx + dy * dy);
        a[0] += d;
        a[1] += d * d;
    });
    return sampleDeviation(s, pts.size());
}

template <class T>
T approximate<T>::StdAbwSphere(CpointSpan<Cpoint3<T>> pts, Csphere3<T> const& sphere) {
    const T cx = sphere.center().x, cy = sphere.center().y, cz = sphere.center().z;
    const auto s = blockedSums<T, 2>(pts, [=](auto* a, auto x, auto y, auto z) {
        const auto dx = x - cx;
        const auto dy = y - cy;
        const auto dz = z - cz;
        const auto d = approx_detail::lanewiseSqrt(dx * dx + dy * dy + dz * dz);
        a[0] += d;
        a[1] += d * d;
    });
    return sampleDeviation(s, pts.size());
}

template class approximate<float>;
template class approximate<double>;

}  // namespace math
