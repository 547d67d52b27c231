// Shared parts of the geometric ellipse fits (Gauss-Newton form in
// math_fit_ellipse_gn.cpp, Levenberg-Marquardt form in math_fit_ellipse_lm.cpp):
// normalisation, the direct ellipse start, foot points, the orthogonal
// distances with their exact derivatives, 5x5 Cholesky and the final
// evaluation that fills the record.
//
// Parameters (normalised units): centre (xc, yc), semi-axes a, b, angle th of
// the a axis; X(t) = c + R(th) (a cos t, b sin t).  For a point p with foot
// parameter t and unit outward normal n at X(t), the signed distance is
// d = n . (p - X(t)), and since the foot point is stationary and n a unit
// vector, dd/dq = -n . dX/dq at fixed t for every parameter q:
//   dd/dxc = -n_x, dd/dyc = -n_y, dd/da = -n'_u cos t, dd/db = -n'_v sin t,
//   dd/dth = (b^2 - a^2) sin t cos t / w,
// with n' = (b cos t, a sin t) / w the normal in the ellipse's frame.
#include "math_fit_ellipse.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace math {
namespace ellipse_detail {

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kPi = 3.14159265358979323846;
const double kAxisLimit = 1e6;  // semi-axes above this (normalised) count as collapse

// Adds the distance and its gradient of one point to the sums.
inline double distAndGrad(double a, double b, double ca, double sa, double dx, double dy, double* g) {
    const double u = ca * dx + sa * dy, v = -sa * dx + ca * dy;
    const double t = footParameter(a, b, u, v);
    const double ct = std::cos(t), st = std::sin(t);
    const double nu0 = b * ct, nv0 = a * st;
    const double w = std::sqrt(nu0 * nu0 + nv0 * nv0);
    const double nu = nu0 / w, nv = nv0 / w;
    const double d = nu * (u - a * ct) + nv * (v - b * st);
    if (g) {
        g[0] = -(ca * nu - sa * nv);
        g[1] = -(sa * nu + ca * nv);
        g[2] = -nu * ct;
        g[3] = -nv * st;
        g[4] = (b * b - a * a) * st * ct / w;
    }
    return d;
}

bool cholesky5(double const* A, double mu, double* L) {
    for (int i = 0; i < 5; ++i) {
        for (int j = 0; j <= i; ++j) {
            double s = A[j * 5 + i] + (i == j ? mu : 0.0);  // upper triangle of A
            for (int k = 0; k < j; ++k) s -= L[i * 5 + k] * L[j * 5 + k];
            if (i == j) {
                if (!(s > 0.0)) return false;
                L[i * 5 + i] = std::sqrt(s);
            } else {
                L[i * 5 + j] = s / L[j * 5 + j];
            }
        }
    }
    return true;
}

// Real eigenvalues of a 3x3 matrix (row major): roots of its characteristic
// cubic, polished by Newton.  Returns their number (1 or 3).
int eigenvalues3(double const* M, double* lam) {
    const double c2 = M[0] + M[4] + M[8];
    const double c1 = M[0] * M[4] - M[1] * M[3] + M[0] * M[8] - M[2] * M[6] + M[4] * M[8] - M[5] * M[7];
    const double c0 = M[0] * (M[4] * M[8] - M[5] * M[7]) - M[1] * (M[3] * M[8] - M[5] * M[6]) +
                      M[2] * (M[3] * M[7] - M[4] * M[6]);
    // lambda^3 - c2 lambda^2 + c1 lambda - c0; lambda = x + c2/3
    const double p = c1 - c2 * c2 / 3.0;
    const double q = -2.0 * c2 * c2 * c2 / 27.0 + c2 * c1 / 3.0 - c0;
    int m;
    if (p < 0.0) {
        const double r = 2.0 * std::sqrt(-p / 3.0);
        const double arg = std::max(-1.0, std::min(1.0, 3.0 * q / (p * r)));
        const double phi = std::acos(arg) / 3.0;
        for (int k = 0; k < 3; ++k) lam[k] = r * std::cos(phi - 2.0 * kPi * k / 3.0) + c2 / 3.0;
        m = 3;
    } else {
        const double disc = std::sqrt(q * q / 4.0 + p * p * p / 27.0);
        lam[0] = std::cbrt(-q / 2.0 + disc) + std::cbrt(-q / 2.0 - disc) + c2 / 3.0;
        m = 1;
    }
    for (int k = 0; k < m; ++k) {
        for (int it = 0; it < 3; ++it) {
            const double l = lam[k];
            const double f = ((l - c2) * l + c1) * l - c0;
            const double df = (3.0 * l - 2.0 * c2) * l + c1;
            if (!(df != 0.0)) break;
            const double nl = l - f / df;
            if (!std::isfinite(nl)) break;
            lam[k] = nl;
        }
    }
    return m;
}

// Null vector of the 3x3 matrix M - lam*I: the largest cross product of two rows.
void nullVector3(double const* M, double lam, double* v) {
    double r[3][3];
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) r[i][j] = M[i * 3 + j] - (i == j ? lam : 0.0);
    double best = -1.0;
    v[0] = v[1] = v[2] = 0.0;
    const int pairs[3][2] = {{0, 1}, {0, 2}, {1, 2}};
    for (auto const& pr : pairs) {
        double const* x = r[pr[0]];
        double const* y = r[pr[1]];
        const double c[3] = {x[1] * y[2] - x[2] * y[1], x[2] * y[0] - x[0] * y[2], x[0] * y[1] - x[1] * y[0]};
        const double nn = c[0] * c[0] + c[1] * c[1] + c[2] * c[2];
        if (nn > best) {
            best = nn;
            v[0] = c[0];
            v[1] = c[1];
            v[2] = c[2];
        }
    }
}

}  // namespace

// The foot point of (u, v) minimises |(u, v) - (a cos t, b sin t)|^2 / 2,
// whose derivative is
//   G(t) = u a sin t - v b cos t - (a^2 - b^2) sin t cos t.
// The point is reflected into the first quadrant (u, v >= 0), where the
// nearest point lies too.  For u, v > 0, G(0) = -v b < 0 < G(pi/2) = u a and
// the root in between is unique; it is found by Newton's method from the
// phase of the point in the scaled frame (two to four steps for points near
// the ellipse), inside the bracket [0, pi/2], which every evaluation narrows
// and which takes over (bisection) whenever a Newton step would leave it.  On
// an axis the foot is either the vertex on that axis or, inside the evolute's
// cusp, the point given in closed form.
double footParameter(double a, double b, double u, double v) {
    const double au = std::fabs(u), av = std::fabs(v), c = a * a - b * b;
    const double halfPi = 0.5 * kPi;
    double t;
    if (av == 0.0) {
        t = (au * a < c) ? std::acos(au * a / c) : 0.0;
    } else if (au == 0.0) {
        t = (av * b < -c) ? std::asin(-av * b / c) : halfPi;
    } else {
        double lo = 0.0, hi = halfPi;
        t = std::atan2(av * a, au * b);  // phase of the point in the scaled frame
        for (int i = 0; i < 100; ++i) {
            const double st = std::sin(t), ct = std::cos(t);
            const double g = au * a * st - av * b * ct - c * st * ct;
            if (g < 0.0)
                lo = t;
            else if (g > 0.0)
                hi = t;
            else
                break;
            const double dg = au * a * ct + av * b * st - c * (ct * ct - st * st);
            double next = t - g / dg;
            if (!(next > lo && next < hi)) {  // also for dg <= 0 or NaN
                next = 0.5 * (lo + hi);
                if (next == lo || next == hi) break;
            }
            if (std::fabs(next - t) <= 1e-15 * halfPi) {
                t = next;
                break;
            }
            t = next;
        }
    }
    // Back to the point's quadrant.
    if (u < 0.0) t = kPi - t;
    if (v < 0.0) t = -t;
    return t;
}

template <class T>
bool normalise(CpointSpan<Cpoint2<T>> pts, double epsT, Normalised& d) {
    const std::size_t n = pts.size();
    if (n < 5) return false;
    double sx = 0.0, sy = 0.0;
    for (std::size_t i0 = 0; i0 < n; i0 += 1024) {  // blocked sums
        double bx = 0.0, by = 0.0;
        const std::size_t i1 = std::min(n, i0 + 1024);
        for (std::size_t i = i0; i < i1; ++i) {
            const double x = pts[i].x, y = pts[i].y;
            if (!(std::fabs(x) <= std::numeric_limits<double>::max() &&
                  std::fabs(y) <= std::numeric_limits<double>::max()))
                return false;  // NaN or infinity: stop at once
            bx += x;
            by += y;
        }
        sx += bx;
        sy += by;
    }
    double cx = sx / double(n), cy = sy / double(n);
    d.x.resize(n);
    d.y.resize(n);
    double rx = 0.0, ry = 0.0;
    for (std::size_t i = 0; i < n; ++i) {  // residual of the mean, then centred values
        d.x[i] = double(pts[i].x) - cx;
        d.y[i] = double(pts[i].y) - cy;
        rx += d.x[i];
        ry += d.y[i];
    }
    rx /= double(n);
    ry /= double(n);
    cx += rx;
    cy += ry;
    double sxx = 0.0, syy = 0.0, sxy = 0.0;
    for (std::size_t i = 0; i < n; ++i) {
        d.x[i] -= rx;
        d.y[i] -= ry;
        sxx += d.x[i] * d.x[i];
        syy += d.y[i] * d.y[i];
        sxy += d.x[i] * d.y[i];
    }
    const double s = std::sqrt((sxx + syy) / double(n));
    if (!(s > 16.0 * epsT * (std::fabs(cx) + std::fabs(cy))) || !(s > 0.0) || !std::isfinite(s))
        return false;  // coincident points
    const double h = 0.5 * (sxx - syy), disc = std::hypot(h, sxy);
    const double lmax = 0.5 * (sxx + syy) + disc, lmin = 0.5 * (sxx + syy) - disc;
    if (!(lmin > lmax * (16.0 * epsT) * (16.0 * epsT))) return false;  // collinear
    const double f = 1.0 / s;
    for (std::size_t i = 0; i < n; ++i) {
        d.x[i] *= f;
        d.y[i] *= f;
    }
    d.cx = cx;
    d.cy = cy;
    d.s = s;
    return true;
}

bool directFit(Normalised const& d, Par& p) {
    // Scatter blocks of the rows (x^2, xy, y^2 | x, y, 1).
    double S1[9] = {0}, S2[9] = {0}, S3[9] = {0};
    for (std::size_t i = 0; i < d.n(); ++i) {
        const double x = d.x[i], y = d.y[i];
        const double q[3] = {x * x, x * y, y * y}, l[3] = {x, y, 1.0};
        for (int r = 0; r < 3; ++r)
            for (int c = 0; c < 3; ++c) {
                S1[r * 3 + c] += q[r] * q[c];
                S2[r * 3 + c] += q[r] * l[c];
                S3[r * 3 + c] += l[r] * l[c];
            }
    }
    // S3^-1 by the adjugate.
    double I3[9];
    I3[0] = S3[4] * S3[8] - S3[5] * S3[7];
    I3[1] = S3[2] * S3[7] - S3[1] * S3[8];
    I3[2] = S3[1] * S3[5] - S3[2] * S3[4];
    I3[3] = S3[5] * S3[6] - S3[3] * S3[8];
    I3[4] = S3[0] * S3[8] - S3[2] * S3[6];
    I3[5] = S3[2] * S3[3] - S3[0] * S3[5];
    I3[6] = S3[3] * S3[7] - S3[4] * S3[6];
    I3[7] = S3[1] * S3[6] - S3[0] * S3[7];
    I3[8] = S3[0] * S3[4] - S3[1] * S3[3];
    const double det = S3[0] * I3[0] + S3[1] * I3[3] + S3[2] * I3[6];
    if (!(det > 0.0)) return false;
    for (double& v : I3) v /= det;
    double Tm[9];  // -S3^-1 S2^T
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c) {
            double s = 0.0;
            for (int k = 0; k < 3; ++k) s += I3[r * 3 + k] * S2[c * 3 + k];
            Tm[r * 3 + c] = -s;
        }
    double M[9];  // S1 + S2 Tm
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c) {
            double s = S1[r * 3 + c];
            for (int k = 0; k < 3; ++k) s += S2[r * 3 + k] * Tm[k * 3 + c];
            M[r * 3 + c] = s;
        }
    double Mc[9];  // C1^-1 M with C1 = [[0, 0, 2], [0, -1, 0], [2, 0, 0]]
    for (int c = 0; c < 3; ++c) {
        Mc[0 * 3 + c] = 0.5 * M[2 * 3 + c];
        Mc[1 * 3 + c] = -M[1 * 3 + c];
        Mc[2 * 3 + c] = 0.5 * M[0 * 3 + c];
    }
    double lam[3];
    const int m = eigenvalues3(Mc, lam);
    double best = std::numeric_limits<double>::infinity(), a1[3] = {0, 0, 0};
    bool found = false;
    for (int k = 0; k < m; ++k) {
        double v[3];
        nullVector3(Mc, lam[k], v);
        const double cond = 4.0 * v[0] * v[2] - v[1] * v[1];
        const double nn = v[0] * v[0] + v[1] * v[1] + v[2] * v[2];
        if (!(cond > 1e-10 * nn)) continue;
        // Algebraic cost of the normalised conic: a1^T M a1 / (a1^T C1 a1).
        double cost = 0.0;
        for (int r = 0; r < 3; ++r)
            for (int c = 0; c < 3; ++c) cost += v[r] * M[r * 3 + c] * v[c];
        cost /= cond;
        if (cost < best) {
            best = cost;
            found = true;
            for (int r = 0; r < 3; ++r) a1[r] = v[r];
        }
    }
    if (!found) return false;
    double A = a1[0], B = a1[1], C = a1[2];
    double D = Tm[0] * A + Tm[1] * B + Tm[2] * C;
    double E = Tm[3] * A + Tm[4] * B + Tm[5] * C;
    double F = Tm[6] * A + Tm[7] * B + Tm[8] * C;
    if (A + C < 0.0) {
        A = -A, B = -B, C = -C, D = -D, E = -E, F = -F;
    }
    const double den = 4.0 * A * C - B * B;
    const double x0 = (B * E - 2.0 * C * D) / den, y0 = (B * D - 2.0 * A * E) / den;
    const double F0 = F + 0.5 * (D * x0 + E * y0);
    const double hs = 0.5 * (A + C), hd = std::hypot(0.5 * (A - C), 0.5 * B);
    const double lmin = hs - hd, lmax = hs + hd;
    if (!(F0 < 0.0) || !(lmin > 0.0)) return false;
    p.v[0] = x0;
    p.v[1] = y0;
    p.v[2] = std::sqrt(-F0 / lmin);
    p.v[3] = std::sqrt(-F0 / lmax);
    p.v[4] = 0.5 * std::atan2(B, A - C) + 0.5 * kPi;
    return sane(p);
}

double evalOrthogonal(Normalised const& d, Par const& p, double* jtj, double* jtr) {
    const double ca = std::cos(p.v[4]), sa = std::sin(p.v[4]);
    const double a = p.v[2], b = p.v[3];
    double sum = 0.0;
    if (jtj) {
        std::fill(jtj, jtj + 25, 0.0);
        std::fill(jtr, jtr + 5, 0.0);
    }
    for (std::size_t i = 0; i < d.n(); ++i) {
        double g[5];
        const double r = distAndGrad(a, b, ca, sa, d.x[i] - p.v[0], d.y[i] - p.v[1], jtj ? g : nullptr);
        sum += r * r;
        if (jtj) {
            for (int k = 0; k < 5; ++k) {
                jtr[k] += g[k] * r;
                for (int l = k; l < 5; ++l) jtj[k * 5 + l] += g[k] * g[l];
            }
        }
    }
    return sum;
}

bool solve5(double const* A, double mu, double const* b, double* x) {
    double L[25];
    if (!cholesky5(A, mu, L)) return false;
    double y[5];
    for (int i = 0; i < 5; ++i) {
        double s = b[i];
        for (int k = 0; k < i; ++k) s -= L[i * 5 + k] * y[k];
        y[i] = s / L[i * 5 + i];
    }
    for (int i = 4; i >= 0; --i) {
        double s = y[i];
        for (int k = i + 1; k < 5; ++k) s -= L[k * 5 + i] * x[k];
        x[i] = s / L[i * 5 + i];
    }
    for (int i = 0; i < 5; ++i)
        if (!std::isfinite(x[i])) return false;
    return true;
}

bool invDiag5(double const* A, double* diag) {
    double maxd = 0.0;
    for (int i = 0; i < 5; ++i) maxd = std::max(maxd, A[i * 5 + i]);
    for (int c = 0; c < 5; ++c) {
        double e[5] = {0, 0, 0, 0, 0}, x[5];
        e[c] = 1.0;
        if (!solve5(A, 0.0, e, x)) return false;
        // A column whose pivot is lost in rounding (a circle's angle) is unknown.
        if (!(x[c] > 0.0) || x[c] * maxd > 1e14) return false;
        diag[c] = x[c];
    }
    return true;
}

bool sane(Par& p) {
    for (double v : p.v)
        if (!std::isfinite(v)) return false;
    p.v[2] = std::fabs(p.v[2]);
    p.v[3] = std::fabs(p.v[3]);
    return p.v[2] > 1e-12 && p.v[3] > 1e-12 && p.v[2] < kAxisLimit && p.v[3] < kAxisLimit &&
           std::fabs(p.v[0]) < kAxisLimit && std::fabs(p.v[1]) < kAxisLimit;
}

void finalEval(Normalised const& d, Par const& p, Final& f, double const* jtjAt, double sumAt) {
    double jtj[25], jtr[5];
    if (jtjAt) {
        std::copy(jtjAt, jtjAt + 25, jtj);
        f.sumSq = sumAt;
    } else {
        f.sumSq = evalOrthogonal(d, p, jtj, jtr);
    }
    const std::size_t n = d.n();
    f.stdAbw = n > 5 ? std::sqrt(f.sumSq / double(n - 5)) : kNaN;
    for (int i = 0; i < 5; ++i)
        for (int j = 0; j < i; ++j) jtj[i * 5 + j] = jtj[j * 5 + i];
    double diag[5];
    if (n > 5 && invDiag5(jtj, diag)) {
        for (int k = 0; k < 5; ++k) f.u[k] = f.stdAbw * std::sqrt(diag[k]);
    } else {
        for (double& u : f.u) u = kNaN;
    }
}

template <class T>
void writeResult(Normalised const& d, Par const& p, bool ok, std::uint32_t iterations, Cellipse2<T>& el,
                 CqEllipseGeomStdAbw<T>* rec, double const* jtjAt, double sumAt) {
    if (rec) *rec = CqEllipseGeomStdAbw<T>();
    if (rec) rec->iterations = iterations;
    if (!ok) {
        el = Cellipse2<T>();
        return;
    }
    Final f{kNaN, kNaN, {kNaN, kNaN, kNaN, kNaN, kNaN}};
    if (rec) finalEval(d, p, f, jtjAt, sumAt);
    double a = p.v[2], b = p.v[3], th = p.v[4];
    double ua = f.u[2], ub = f.u[3];
    if (a < b) {
        std::swap(a, b);
        std::swap(ua, ub);
        th += 0.5 * kPi;
    }
    th = std::remainder(th, kPi);  // [-pi/2, pi/2]
    T angle = static_cast<T>(th);
    const T halfPi = static_cast<T>(0.5 * kPi);
    if (angle <= -halfPi) angle = halfPi;
    el = Cellipse2<T>(Cpoint2<T>(static_cast<T>(d.cx + d.s * p.v[0]), static_cast<T>(d.cy + d.s * p.v[1])),
                      static_cast<T>(d.s * a), static_cast<T>(d.s * b), angle);
    if (rec) {
        rec->converged = true;
        rec->sumSqDist = static_cast<T>(f.sumSq * d.s * d.s);
        rec->stdAbw = static_cast<T>(f.stdAbw * d.s);
        rec->uCenterX = static_cast<T>(f.u[0] * d.s);
        rec->uCenterY = static_cast<T>(f.u[1] * d.s);
        rec->uA = static_cast<T>(ua * d.s);
        rec->uB = static_cast<T>(ub * d.s);
        rec->uAngle = static_cast<T>(f.u[4]);
    }
}

}  // namespace ellipse_detail

#define METROMATH_FIT_ELLIPSE_INSTANTIATE(T)                                                            \
    template bool ellipse_detail::normalise(CpointSpan<Cpoint2<T>>, double,                     \
                                            ellipse_detail::Normalised&);                              \
    template void ellipse_detail::writeResult(ellipse_detail::Normalised const&, ellipse_detail::Par const&, \
                                              bool, std::uint32_t, Cellipse2<T>&, CqEllipseGeomStdAbw<T>*, \
                                              double const*, double);

METROMATH_FIT_ELLIPSE_INSTANTIATE(float)
METROMATH_FIT_ELLIPSE_INSTANTIATE(double)

#undef METROMATH_FIT_ELLIPSE_INSTANTIATE

}  // namespace math
