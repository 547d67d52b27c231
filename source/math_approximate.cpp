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

// The invalid line of the too-few-points path: NaN in all four coordinates.
template <class T>
void setNaNLine(Cline2<T>& line) {
    const T nan = quietNaN<T>();
    line = Cline2<T>(Cpoint2<T>(nan, nan), Cdirec2<T>(nan, nan, true));
}

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
// double.  Order of the fields: as they enter the algebraic circle system.
struct CircleMoments {
    double u, v, uu, vv, uv;
    double uuu, vvv, uuv, uvv;
    double u4, v4, uuvv;
    CircleMoments& operator+=(CircleMoments const& o) {
        u += o.u, v += o.v, uu += o.uu, vv += o.vv, uv += o.uv;
        uuu += o.uuu, vvv += o.vvv, uuv += o.uuv, uvv += o.uvv;
        u4 += o.u4, v4 += o.v4, uuvv += o.uuvv;
        return *this;
    }
};

// Two sums of one type: of a value and of its square, or of x and y.
template <class S>
struct Sum2 {
    S a, b;
    Sum2& operator+=(Sum2 const& o) {
        a += o.a, b += o.b;
        return *this;
    }
};

// Means of the coordinates in double (first pass of the circle fits).
template <class T>
void meansDouble(std::vector<Cpoint2<T>> const& pts, double& mx, double& my) {
    const Sum2<double> s = blockedSums<Sum2<double>>(pts, [](Sum2<double>& acc, Cpoint2<T> const& p) {
        acc.a += static_cast<double>(p.x);
        acc.b += static_cast<double>(p.y);
    });
    const double n = static_cast<double>(pts.size());
    mx = s.a / n;
    my = s.b / n;
}

// Second pass of the circle fits: the moments of u = x - mx, v = y - my.
template <class T>
CircleMoments circleMoments(std::vector<Cpoint2<T>> const& pts, double mx, double my) {
    return blockedSums<CircleMoments>(pts, [mx, my](CircleMoments& s, Cpoint2<T> const& p) {
        const double u = static_cast<double>(p.x) - mx;
        const double v = static_cast<double>(p.y) - my;
        const double u2 = u * u;
        const double v2 = v * v;
        s.u += u;
        s.v += v;
        s.uu += u2;
        s.vv += v2;
        s.uv += u * v;
        s.uuu += u2 * u;
        s.vvv += v2 * v;
        s.uuv += u2 * v;
        s.uvv += u * v2;
        s.u4 += u2 * u2;
        s.v4 += v2 * v2;
        s.uuvv += u2 * v2;
    });
}

// Builds the algebraic circle system of A*(u^2+v^2) + B*u + C*v = 1 from the
// moments, solves it with the singular-value solver and writes the circle.
template <class T>
void solveCircleSystem(CircleMoments const& s, double mx, double my, Ccircle2<T>& circle) {
    Cmatrix<T> M(3, 3);
    M(0, 0) = static_cast<T>(s.u4 + 2.0 * s.uuvv + s.v4);
    M(0, 1) = static_cast<T>(s.uuu + s.uvv);
    M(0, 2) = static_cast<T>(s.uuv + s.vvv);
    M(1, 0) = M(0, 1);
    M(1, 1) = static_cast<T>(s.uu);
    M(1, 2) = static_cast<T>(s.uv);
    M(2, 0) = M(0, 2);
    M(2, 1) = M(1, 2);
    M(2, 2) = static_cast<T>(s.vv);
    const std::vector<T> r{static_cast<T>(s.uu + s.vv), static_cast<T>(s.u), static_cast<T>(s.v)};

    Csolver_svd<T> solver(M);
    const Cmatrix<T> sol = solver.solve(r);
    const double A = static_cast<double>(sol(0, 0));
    const double B = static_cast<double>(sol(1, 0));
    const double C = static_cast<double>(sol(2, 0));

    // Centre back in the caller's coordinates; the radius is made positive.
    const double cx = mx - 0.5 * B / A;
    const double cy = my - 0.5 * C / A;
    const double r0 = std::fabs(0.5 * std::sqrt(B * B + C * C + 4.0 * A) / A);
    circle = Ccircle2<T>(Cpoint2<T>(static_cast<T>(cx), static_cast<T>(cy)), static_cast<T>(r0));
}

// sqrt((sum d^2 - (sum d)^2 / n) / (n - 1)) with the sums of d (a) and d^2
// (b) in T.
template <class T>
T sampleDeviation(Sum2<T> const& s, std::size_t count) {
    const T n = static_cast<T>(count);
    return static_cast<T>(std::sqrt((s.b - s.a * s.a / n) / (n - T(1))));
}

// Sums of d and d^2 over the points for the per-point quantity d = dist(p).
template <class T, class Pt, class Dist>
Sum2<T> deviationSums(std::vector<Pt> const& pts, Dist dist) {
    return blockedSums<Sum2<T>>(pts, [&dist](Sum2<T>& s, Pt const& p) {
        const T d = dist(p);
        s.a += d;
        s.b += d * d;
    });
}

// The five raw sums of the algebraic line fit.
struct LineSums {
    double x, y, xx, yy, xy;
    LineSums& operator+=(LineSums const& o) {
        x += o.x, y += o.y, xx += o.xx, yy += o.yy, xy += o.xy;
        return *this;
    }
};

// The 24 raw sums of the algebraic sphere fit.
struct SphereSums {
    double x, y, z;
    double xx, yy, zz, xy, xz, yz;
    double xxx, yyy, zzz;
    double xxy, xxz, xyy, yyz, xzz, yzz;
    double x4, y4, z4, xxyy, xxzz, yyzz;
    SphereSums& operator+=(SphereSums const& o) {
        x += o.x, y += o.y, z += o.z;
        xx += o.xx, yy += o.yy, zz += o.zz, xy += o.xy, xz += o.xz, yz += o.yz;
        xxx += o.xxx, yyy += o.yyy, zzz += o.zzz;
        xxy += o.xxy, xxz += o.xxz, xyy += o.xyy, yyz += o.yyz, xzz += o.xzz, yzz += o.yzz;
        x4 += o.x4, y4 += o.y4, z4 += o.z4, xxyy += o.xxyy, xxzz += o.xxzz, yyzz += o.yyzz;
        return *this;
    }
};

}  // namespace

// ---------------------------------------------------------------------------
// Algebraic line
// ---------------------------------------------------------------------------

template <class T>
double approximate<T>::fitLineLsq(std::vector<Cpoint2<T>> const& pts, Cline2<T>& line) {
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

    const LineSums s = blockedSums<LineSums>(pts, [](LineSums& acc, Cpoint2<T> const& p) {
        const double x = static_cast<double>(p.x);
        const double y = static_cast<double>(p.y);
        acc.x += x;
        acc.y += y;
        acc.xx += x * x;
        acc.yy += y * y;
        acc.xy += x * y;
    });
    const double Sx = s.x, Sy = s.y, Sxx = s.xx, Syy = s.yy, Sxy = s.xy;

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
void approximate<T>::fitLineLsqN(std::vector<Cpoint2<T>> const& pts, Cline2<T>& line,
                                 CqLineLsqNStdAbw<T>& rec) {
    rec.meanSqDist = static_cast<T>(fitLineLsq(pts, line));
}

template <class T>
void approximate<T>::fitLineLsqN(std::vector<Cpoint2<T>> const& pts, Cline2<T>& line) {
    CqLineLsqNStdAbw<T> rec;
    fitLineLsqN(pts, line, rec);
}

// ---------------------------------------------------------------------------
// Algebraic circle
// ---------------------------------------------------------------------------

template <class T>
void approximate<T>::fitCircleLsq(std::vector<Cpoint2<T>> const& pts, Ccircle2<T>& circle) {
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
void approximate<T>::fitCircleLsq(std::vector<Cpoint2<T>> const& pts, Ccircle2<T>& circle,
                                  CqCircleLsqStdAbw<T>& rec) {
    fitCircleLsq(pts, circle);
    rec.stdAbw = pts.size() < 4 ? quietNaN<T>() : StdAbwCircle2(pts, circle);
}

template <class T>
void approximate<T>::fitCircleLsqBeta(std::vector<Cpoint2<T>> const& pts, Ccircle2<T>& circle) {
    const std::size_t n = pts.size();
    if (n < 4) {
        setNaNCircle(circle);
        return;
    }
    double mx, my;
    meansDouble(pts, mx, my);

    const CircleMoments s = circleMoments(pts, mx, my);

    // Design matrix Z with rows (2u, 2v, -1).
    Cmatrix<T> Z(static_cast<unsigned>(n), 3);
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
    g(0, 0) = static_cast<T>(2.0 * (s.uuu + s.uvv));
    g(1, 0) = static_cast<T>(2.0 * (s.uuv + s.vvv));
    g(2, 0) = static_cast<T>(-(s.uu + s.vv));

    // Pseudo-inverse through the eigen decomposition K = V^T diag(lambda) V
    // (eigenvectors are the rows of V).  Eigenvalues within the single-precision
    // epsilon of 0 are dropped, in the double instantiation as well.
    Cmatrix<T> V;
    CmatrixCalc<T>::getEigenvalue(K, V);
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
void approximate<T>::fitSphereLsq(std::vector<Cpoint3<T>> const& pts, Csphere3<T>& sphere) {
    // No input check: an empty or too small set goes to the solver as it is.
    const SphereSums S = blockedSums<SphereSums>(pts, [](SphereSums& s, Cpoint3<T> const& p) {
        const double x = static_cast<double>(p.x);
        const double y = static_cast<double>(p.y);
        const double z = static_cast<double>(p.z);
        const double x2 = x * x;
        const double y2 = y * y;
        const double z2 = z * z;
        s.x += x;
        s.y += y;
        s.z += z;
        s.xx += x2;
        s.yy += y2;
        s.zz += z2;
        s.xy += x * y;
        s.xz += x * z;
        s.yz += y * z;
        s.xxx += x2 * x;
        s.yyy += y2 * y;
        s.zzz += z2 * z;
        s.xxy += x2 * y;
        s.xxz += x2 * z;
        s.xyy += x * y2;
        s.yyz += y2 * z;
        s.xzz += x * z2;
        s.yzz += y * z2;
        s.x4 += x2 * x2;
        s.y4 += y2 * y2;
        s.z4 += z2 * z2;
        s.xxyy += x2 * y2;
        s.xxzz += x2 * z2;
        s.yyzz += y2 * z2;
    });

    Cmatrix<T> M(4, 4);
    M(0, 0) = static_cast<T>(S.x4 + S.y4 + S.z4 + 2.0 * (S.xxyy + S.xxzz + S.yyzz));
    M(0, 1) = static_cast<T>(S.xxx + S.xyy + S.xzz);
    M(0, 2) = static_cast<T>(S.yyy + S.xxy + S.yzz);
    M(0, 3) = static_cast<T>(S.zzz + S.xxz + S.yyz);
    M(1, 0) = M(0, 1);
    M(1, 1) = static_cast<T>(S.xx);
    M(1, 2) = static_cast<T>(S.xy);
    M(1, 3) = static_cast<T>(S.xz);
    M(2, 0) = M(0, 2);
    M(2, 1) = M(1, 2);
    M(2, 2) = static_cast<T>(S.yy);
    M(2, 3) = static_cast<T>(S.yz);
    M(3, 0) = M(0, 3);
    M(3, 1) = M(1, 3);
    M(3, 2) = M(2, 3);
    M(3, 3) = static_cast<T>(S.zz);
    const std::vector<T> r{static_cast<T>(S.xx + S.yy + S.zz), static_cast<T>(S.x), static_cast<T>(S.y),
                           static_cast<T>(S.z)};

    Csolver_svd<T> solver(M);
    const Cmatrix<T> sol = solver.solve(r);
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
void approximate<T>::fitSphereLsq(std::vector<Cpoint3<T>> const& pts, Csphere3<T>& sphere,
                                  CqSphereLsqStdAbw<T>& rec) {
    fitSphereLsq(pts, sphere);
    rec.stdAbw = StdAbwSphere(pts, sphere);
}

// ---------------------------------------------------------------------------
// Deviation measures
// ---------------------------------------------------------------------------

template <class T>
T approximate<T>::StdAbwLine2(std::vector<Cpoint2<T>> const& pts, Cline2<T> const& line) {
    // Unit normal: the direction turned by +90 degrees, normalised.
    const Cdirec2<T> nrm(Cpoint2<T>(-line.direction().y, line.direction().x));
    const T nx = nrm.x, ny = nrm.y;
    const T qx = line.point().x, qy = line.point().y;
    const Sum2<T> s = deviationSums<T>(pts, [=](Cpoint2<T> const& p) { return nx * (p.x - qx) + ny * (p.y - qy); });
    return sampleDeviation(s, pts.size());
}

template <class T>
T approximate<T>::StdAbwCircle2(std::vector<Cpoint2<T>> const& pts, Ccircle2<T> const& circle) {
    const T cx = circle.center().x, cy = circle.center().y;
    const Sum2<T> s = deviationSums<T>(pts, [=](Cpoint2<T> const& p) {
        const T dx = cx - p.x;
        const T dy = cy - p.y;
        return static_cast<T>(std::sqrt(dx * dx + dy * dy));
    });
    return sampleDeviation(s, pts.size());
}

template <class T>
T approximate<T>::StdAbwSphere(std::vector<Cpoint3<T>> const& pts, Csphere3<T> const& sphere) {
    const T cx = sphere.center().x, cy = sphere.center().y, cz = sphere.center().z;
    const Sum2<T> s = deviationSums<T>(pts, [=](Cpoint3<T> const& p) {
        const T dx = p.x - cx;
        const T dy = p.y - cy;
        const T dz = p.z - cz;
        return static_cast<T>(std::sqrt(dx * dx + dy * dy + dz * dz));
    });
    return sampleDeviation(s, pts.size());
}

template class approximate<float>;
template class approximate<double>;

}  // namespace math
