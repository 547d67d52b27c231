// Geometric cylinder fits of approximate<T> (automatic start, caller's start,
// fixed radius) and the deviation measure StdAbwCylinder.
//
// Residual of point q: distance from the axis minus r.  The axis is held as a
// point P (kept at the foot of the perpendicular from the centroid, the
// origin of the normalised coordinates) and a unit direction w with the
// orthonormal pair (u, v) across it.  A step moves P by tx u + ty v, turns w
// to normalise(w + a u + b v) about P and changes r; afterwards P is moved
// along the new axis back to the foot point and (u, v) are rebuilt.  With
// q - P = (qu, qv, qw) in that frame and rho = |(qu, qv)| the Jacobian row is
// (-qu/rho, -qv/rho, -qw qu/rho, -qw qv/rho, -1): no singular direction, and
// the shifts and tilts are decoupled because P is the foot point.
#include "math_geomfit_kernel.h"

#include <cmath>
#include <cstddef>

namespace math {

namespace {

using namespace geomfit_detail;

constexpr double kPi = 3.14159265358979323846;

template <bool FixR, class Pt>
struct CylModel {
    static constexpr int P = FixR ? 4 : 5;
    struct State {
        double p[3], w[3], u[3], v[3];
        double r;
    };
    CpointSpan<Pt> pts;
    Frame<3, Pt> const& fr;
    State state;

    CylModel(CpointSpan<Pt> pp, Frame<3, Pt> const& f) : pts(pp), fr(f), state() {}

    bool evaluate(State const& s, Normal<P>& ne) const {
        if (!(s.r >= 0.0)) return false;
        ne.clear();
        const std::size_t n = pts.size();
        for (std::size_t i = 0; i < n; ++i) {
            double q[3];
            fr.norm(pts[i], q);
            q[0] -= s.p[0], q[1] -= s.p[1], q[2] -= s.p[2];
            const double qu = dot3(q, s.u), qv = dot3(q, s.v), qw = dot3(q, s.w);
            const double rho = std::sqrt(qu * qu + qv * qv);
            const double inv = rho > 0.0 ? 1.0 / rho : 0.0;
            const double cu = qu * inv, cv = qv * inv;
            const double J[5] = {-cu, -cv, -qw * cu, -qw * cv, -1.0};
            ne.add(J, rho - s.r);
        }
        return ne.finish();
    }
    State step(State const& s, const double* d) const {
        State t = s;
        for (int k = 0; k < 3; ++k) {
            t.p[k] += d[0] * s.u[k] + d[1] * s.v[k];
            t.w[k] += d[2] * s.u[k] + d[3] * s.v[k];
        }
        if (!normalise3(t.w)) t.r = kNaN;
        recentre(t);
        if (!FixR) t.r += d[4];
        return t;
    }
    static void recentre(State& t) {
        const double a = dot3(t.p, t.w);
        for (int k = 0; k < 3; ++k) t.p[k] -= a * t.w[k];
        basis(t.w, t.u, t.v);
    }
    std::size_t count() const { return pts.size(); }
    double norm(State const& s) const { return std::sqrt(dot3(s.p, s.p) + 1.0 + s.r * s.r); }
};

// Means of x^i y^j z^k (i + j + k <= 4) of the normalised points, and the
// moments of their projection along a direction computed from them.
struct Moments4 {
    double m[5][5][5] = {};

    template <class Pt>
    void set(CpointSpan<Pt> pts, Frame<3, Pt> const& fr) {
        for (std::size_t i = 0; i < pts.size(); ++i) {
            double q[3];
            fr.norm(pts[i], q);
            double px[5] = {1.0, q[0], q[0] * q[0], q[0] * q[0] * q[0], q[0] * q[0] * q[0] * q[0]};
            double py[5] = {1.0, q[1], q[1] * q[1], q[1] * q[1] * q[1], q[1] * q[1] * q[1] * q[1]};
            double pz[5] = {1.0, q[2], q[2] * q[2], q[2] * q[2] * q[2], q[2] * q[2] * q[2] * q[2]};
            for (int a = 0; a <= 4; ++a)
                for (int b = 0; a + b <= 4; ++b) {
                    const double xy = px[a] * py[b];
                    for (int c = 0; a + b + c <= 4; ++c) m[a][b][c] += xy * pz[c];
                }
        }
        const double f = 1.0 / static_cast<double>(pts.size());
        for (int a = 0; a <= 4; ++a)
            for (int b = 0; a + b <= 4; ++b)
                for (int c = 0; a + b + c <= 4; ++c) m[a][b][c] *= f;
    }
};

// A polynomial of degree <= 4 in (x, y, z).
struct Poly {
    double c[5][5][5];
    int deg;
};
inline Poly mulLin(Poly const& p, const double* l) {
    Poly r;
    r.deg = p.deg + 1;
    for (int a = 0; a <= r.deg; ++a)
        for (int b = 0; a + b <= r.deg; ++b)
            for (int c = 0; a + b + c <= r.deg; ++c) {
                double s = 0.0;
                if (a > 0 && a - 1 + b + c <= p.deg) s += l[0] * p.c[a - 1][b][c];
                if (b > 0 && a + b - 1 + c <= p.deg) s += l[1] * p.c[a][b - 1][c];
                if (c > 0 && a + b + c - 1 <= p.deg) s += l[2] * p.c[a][b][c - 1];
                r.c[a][b][c] = s;
            }
    return r;
}
inline double expect(Poly const& p, Moments4 const& M) {
    double s = 0.0;
    for (int a = 0; a <= p.deg; ++a)
        for (int b = 0; a + b <= p.deg; ++b)
            for (int c = 0; a + b + c <= p.deg; ++c) s += p.c[a][b][c] * M.m[a][b][c];
    return s;
}

// Taubin's circle of the points projected onto (u, v) and its error, an
// estimate of the mean squared distance: mean of (|x - c|^2 - r^2)^2 / (4 r^2).
// Infinite for degenerate projections.
double projectedCircle(Moments4 const& M, const double* u, const double* v, double& cx, double& cy, double& r) {
    Poly one;
    one.deg = 0;
    one.c[0][0][0] = 1.0;
    const Poly x1 = mulLin(one, u), y1 = mulLin(one, v);
    const Poly x2 = mulLin(x1, u), xy = mulLin(x1, v), y2 = mulLin(y1, v);
    const Poly x3 = mulLin(x2, u), x2y = mulLin(x2, v), xy2 = mulLin(xy, v), y3 = mulLin(y2, v);
    const Poly x4 = mulLin(x3, u), x2y2 = mulLin(x2y, v), y4 = mulLin(y3, v);
    Moments2 m2;
    m2.mx = 0.0, m2.my = 0.0;  // the points are centred, so are their projections
    m2.xx = expect(x2, M), m2.xy = expect(xy, M), m2.yy = expect(y2, M);
    m2.xz = expect(x3, M) + expect(xy2, M);
    m2.yz = expect(x2y, M) + expect(y3, M);
    m2.zz = expect(x4, M) + 2.0 * expect(x2y2, M) + expect(y4, M);
    if (!taubinCircle(m2, cx, cy, r) || !(r > 0.0)) return std::numeric_limits<double>::infinity();
    const double k = cx * cx + cy * cy - r * r;
    const double Mz = m2.xx + m2.yy;
    const double e2 = m2.zz + 4.0 * cx * cx * m2.xx + 4.0 * cy * cy * m2.yy + k * k - 4.0 * cx * m2.xz -
                      4.0 * cy * m2.yz + 2.0 * k * Mz + 8.0 * cx * cy * m2.xy;
    const double e = std::max(e2, 0.0) / (4.0 * r * r);
    return std::isfinite(e) ? e : std::numeric_limits<double>::infinity();
}

double dirError(Moments4 const& M, const double* w) {
    double u[3], v[3], cx, cy, r;
    basis(w, u, v);
    return projectedCircle(M, u, v, cx, cy, r);
}

// Pattern search on the sphere of directions from w with initial step h, down
// to 1e-5 rad (the start only has to lie in the basin of the minimum).
double refineDir(Moments4 const& M, double* w, double err, double h) {
    for (int guard = 0; guard < 400 && h > 1e-5; ++guard) {
        double u[3], v[3];
        basis(w, u, v);
        double best = err, bw[3] = {w[0], w[1], w[2]};
        static const int da[8] = {1, -1, 0, 0, 1, 1, -1, -1};
        static const int db[8] = {0, 0, 1, -1, 1, -1, 1, -1};
        for (int k = 0; k < 8; ++k) {
            double t[3];
            for (int i = 0; i < 3; ++i) t[i] = w[i] + h * (da[k] * u[i] + db[k] * v[i]);
            if (!normalise3(t)) continue;
            const double e = dirError(M, t);
            if (e < best) best = e, bw[0] = t[0], bw[1] = t[1], bw[2] = t[2];
        }
        if (best < err) {
            err = best;
            w[0] = bw[0], w[1] = bw[1], w[2] = bw[2];
        } else {
            h *= 0.5;
        }
    }
    return err;
}

// The start axis: coarse hemisphere grid (10 rings of 9 degrees, 4*10*sin(theta)
// directions each, 259 in all) plus the principal axes of the scatter, the
// best three refined.  False when every projection is degenerate.
template <class Pt, class State>
bool startCylinder(CpointSpan<Pt> pts, Frame<3, Pt> const& fr, State& s) {
    Moments4 M;
    M.set(pts, fr);
    double cand[3][4];  // direction, error of the three best
    for (auto& c : cand) c[3] = std::numeric_limits<double>::infinity(), c[0] = 0, c[1] = 0, c[2] = 1;
    auto offer = [&](const double* w) {
        const double e = dirError(M, w);
        if (!(e < cand[2][3])) return;
        int k = 2;
        while (k > 0 && e < cand[k - 1][3]) {
            for (int i = 0; i < 4; ++i) cand[k][i] = cand[k - 1][i];
            --k;
        }
        cand[k][0] = w[0], cand[k][1] = w[1], cand[k][2] = w[2], cand[k][3] = e;
    };
    const int K = 10;
    for (int i = 0; i < K; ++i) {
        const double th = (i + 0.5) * (kPi / 2) / K;
        const int m = static_cast<int>(std::ceil(4 * K * std::sin(th)));
        for (int j = 0; j < m; ++j) {
            const double ph = (j + 0.5 * (i & 1)) * 2 * kPi / m;
            const double w[3] = {std::sin(th) * std::cos(ph), std::sin(th) * std::sin(ph), std::cos(th)};
            offer(w);
        }
    }
    double S[3][3];
    for (int a = 0; a < 3; ++a)
        for (int b = 0; b < 3; ++b) {
            int e[3] = {0, 0, 0};
            ++e[a], ++e[b];
            S[a][b] = M.m[e[0]][e[1]][e[2]];
        }
    double ev[3], V[3][3];
    symEigen3(S, ev, V);
    for (int k = 0; k < 3; ++k) {
        const double w[3] = {V[0][k], V[1][k], V[2][k]};
        offer(w);
    }
    int best = -1;
    double bestErr = std::numeric_limits<double>::infinity();
    for (int k = 0; k < 3; ++k) {
        if (!std::isfinite(cand[k][3])) continue;
        const double e = refineDir(M, cand[k], cand[k][3], 0.08);
        if (e < bestErr) bestErr = e, best = k;
    }
    if (best < 0) return false;
    for (int i = 0; i < 3; ++i) s.w[i] = cand[best][i];
    if (!normalise3(s.w)) return false;
    basis(s.w, s.u, s.v);
    double cx, cy;
    if (!std::isfinite(projectedCircle(M, s.u, s.v, cx, cy, s.r))) return false;
    for (int i = 0; i < 3; ++i) s.p[i] = cx * s.u[i] + cy * s.v[i];
    return true;
}

template <class T>
void setInvalid(Ccylinder3<T>& c) {
    const T nan = quietNaN<T>();
    c = Ccylinder3<T>(Cline3<T>(Cpoint3<T>(nan, nan, nan), Cdirec3<T>(nan, nan, nan, true)), nan);
}

// start == nullptr: automatic start.  fixR < 0: free radius.
template <class T>
void fitCylinder(CpointSpan<Cpoint3<T>> pts, Ccylinder3<T> const* start, double fixR, Ccylinder3<T>& out,
                 CqCylinderGeomStdAbw<T>& rec, CqGeomFitPrm<T> const& prm) {
    using Pt = Cpoint3<T>;
    using Free = CylModel<false, Pt>;
    rec = CqCylinderGeomStdAbw<T>();
    setInvalid(out);
    const bool fixed = fixR >= 0.0;
    const std::size_t n = pts.size();
    const std::size_t p = fixed ? 4 : 5;
    if (fixed && !(fixR > 0.0 && std::isfinite(fixR))) return;
    if (n < 5) return;
    Frame<3, Pt> fr;
    if (!fr.set(pts)) return;

    {
        // collinear points lie on every cylinder through their line
        double ev[3], V[3][3];
        symEigen3(fr.S, ev, V);
        if (!(ev[1] > 1e-14)) return;
    }
    Free free(pts, fr);
    double orient[3] = {0.0, 0.0, 0.0};
    if (start) {
        Cline3<T> const& ax = start->axis();
        double a[3], d[3];
        loadPt(ax.point(), a);
        loadPt(Cpoint3<T>(ax.direction().x, ax.direction().y, ax.direction().z), d);
        for (int k = 0; k < 3; ++k) {
            if (!std::isfinite(a[k]) || !std::isfinite(d[k])) return;
            free.state.p[k] = (a[k] - fr.m[k]) * fr.invScale;
            free.state.w[k] = orient[k] = d[k];
        }
        if (!normalise3(free.state.w)) return;
        Free::recentre(free.state);
        double sum = 0.0;  // mean distance from the start axis
        for (std::size_t i = 0; i < n; ++i) {
            double q[3];
            fr.norm(pts[i], q);
            for (int k = 0; k < 3; ++k) q[k] -= free.state.p[k];
            const double qu = dot3(q, free.state.u), qv = dot3(q, free.state.v);
            sum += std::sqrt(qu * qu + qv * qv);
        }
        free.state.r = sum / static_cast<double>(n);
    } else if (!startCylinder(pts, fr, free.state)) {
        return;
    }
    Normal<5> ne5;
    Outcome o = solve<5>(free, ne5, prm.relStepTol, prm.gradTol, prm.initDamping, prm.maxIter);
    rec.iterations = o.iterations;
    if (!o.converged) return;

    typename Free::State st = free.state;
    double inv[5][5], sumSq = ne5.cost;
    if (!fixed) {
        inverse<5>(ne5.A, inv);
    } else {
        CylModel<true, Pt> fx(pts, fr);
        for (int k = 0; k < 3; ++k)
            fx.state.p[k] = st.p[k], fx.state.w[k] = st.w[k], fx.state.u[k] = st.u[k], fx.state.v[k] = st.v[k];
        fx.state.r = fixR * fr.invScale;
        Normal<4> ne4;
        const std::uint32_t left = prm.maxIter > o.iterations ? prm.maxIter - o.iterations : 0u;
        Outcome of = solve<4>(fx, ne4, prm.relStepTol, prm.gradTol, prm.initDamping, left);
        rec.iterations += of.iterations;
        if (!of.converged) return;
        for (int k = 0; k < 3; ++k)
            st.p[k] = fx.state.p[k], st.w[k] = fx.state.w[k], st.u[k] = fx.state.u[k], st.v[k] = fx.state.v[k];
        st.r = fx.state.r;
        sumSq = ne4.cost;
        double i4[4][4];
        inverse<4>(ne4.A, i4);
        for (int i = 0; i < 5; ++i)
            for (int j = 0; j < 5; ++j) inv[i][j] = (i < 4 && j < 4) ? i4[i][j] : 0.0;
    }
    rec.converged = true;
    double w[3] = {st.w[0], st.w[1], st.w[2]};
    if (start) {
        if (dot3(w, orient) < 0.0)
            for (double& x : w) x = -x;
    } else {
        orient3(w);
    }
    const double sc = fr.scale;
    const Cpoint3<T> pt(static_cast<T>(fr.m[0] + st.p[0] * sc), static_cast<T>(fr.m[1] + st.p[1] * sc),
                        static_cast<T>(fr.m[2] + st.p[2] * sc));
    out = Ccylinder3<T>(Cline3<T>(pt, Cdirec3<T>(static_cast<T>(w[0]), static_cast<T>(w[1]), static_cast<T>(w[2]))),
                        fixed ? static_cast<T>(fixR) : static_cast<T>(st.r * sc));
    rec.sumSqDist = static_cast<T>(sumSq * sc * sc);
    const double sigma2 = n > p ? sumSq / static_cast<double>(n - p) : kNaN;
    rec.stdAbw = static_cast<T>(std::sqrt(sigma2) * sc);
    // The reported foot point moves by tx u + ty v - ((P.u) a + (P.v) b) w.
    const double pu = dot3(st.p, st.u), pv = dot3(st.p, st.v);
    double up[3], ud[3];
    for (int k = 0; k < 3; ++k) {
        const double a[4] = {st.u[k], st.v[k], -pu * st.w[k], -pv * st.w[k]};
        up[k] = combUnc<5>(inv, sigma2, a, 4) * sc;
        double s = 0.0;
        const double b[2] = {st.u[k], st.v[k]};
        for (int i = 0; i < 2; ++i)
            for (int j = 0; j < 2; ++j) s += b[i] * inv[2 + i][2 + j] * b[j];
        ud[k] = std::sqrt(sigma2 * s);
    }
    rec.uPointX = static_cast<T>(up[0]), rec.uPointY = static_cast<T>(up[1]), rec.uPointZ = static_cast<T>(up[2]);
    rec.uDirX = static_cast<T>(ud[0]), rec.uDirY = static_cast<T>(ud[1]), rec.uDirZ = static_cast<T>(ud[2]);
    rec.uRadius = fixed ? T(0) : static_cast<T>(std::sqrt(sigma2 * inv[4][4]) * sc);
}

}  // namespace

template <class T>
void approximate<T>::fitCylinderGeom(CpointSpan<Cpoint3<T>> pts, Ccylinder3<T>& cyl,
                                     CqCylinderGeomStdAbw<T>& rec, CqGeomFitPrm<T> const& prm) {
    fitCylinder<T>(pts, nullptr, -1.0, cyl, rec, prm);
}
template <class T>
void approximate<T>::fitCylinderGeom(CpointSpan<Cpoint3<T>> pts, Ccylinder3<T>& cyl) {
    CqCylinderGeomStdAbw<T> rec;
    fitCylinder<T>(pts, nullptr, -1.0, cyl, rec, CqGeomFitPrm<T>());
}
template <class T>
void approximate<T>::fitCylinderGeom(CpointSpan<Cpoint3<T>> pts, Ccylinder3<T> const& start,
                                     Ccylinder3<T>& cyl, CqCylinderGeomStdAbw<T>& rec, CqGeomFitPrm<T> const& prm) {
    const Ccylinder3<T> s = start;  // start and cyl may be the same object
    fitCylinder<T>(pts, &s, -1.0, cyl, rec, prm);
}
template <class T>
void approximate<T>::fitCylinderGeom(CpointSpan<Cpoint3<T>> pts, Ccylinder3<T> const& start,
                                     Ccylinder3<T>& cyl) {
    CqCylinderGeomStdAbw<T> rec;
    fitCylinderGeom(pts, start, cyl, rec, CqGeomFitPrm<T>());
}
template <class T>
void approximate<T>::fitCylinderGeomRfix(CpointSpan<Cpoint3<T>> pts, T radius, Ccylinder3<T>& cyl,
                                         CqCylinderGeomStdAbw<T>& rec, CqGeomFitPrm<T> const& prm) {
    const double r = static_cast<double>(radius);
    fitCylinder<T>(pts, nullptr, r > 0.0 ? r : 0.0, cyl, rec, prm);
}
template <class T>
void approximate<T>::fitCylinderGeomRfix(CpointSpan<Cpoint3<T>> pts, T radius, Ccylinder3<T>& cyl) {
    CqCylinderGeomStdAbw<T> rec;
    fitCylinderGeomRfix(pts, radius, cyl, rec, CqGeomFitPrm<T>());
}

template <class T>
T approximate<T>::StdAbwCylinder(CpointSpan<Cpoint3<T>> pts, Ccylinder3<T> const& cyl) {
    Cline3<T> const& ax = cyl.axis();
    if (!ax.isValid()) return quietNaN<T>();
    const Cpoint3<T> a = ax.point();
    const Cpoint3<T> d(ax.direction().x, ax.direction().y, ax.direction().z);
    T s = T(0), ss = T(0);
    for (Cpoint3<T> const& p : pts) {
        const Cpoint3<T> q = p - a;
        const T dist = q.cross(d).length();
        s += dist;
        ss += dist * dist;
    }
    const T n = static_cast<T>(pts.size());
    return static_cast<T>(std::sqrt((ss - s * s / n) / (n - T(1))));
}

#define METROMATH_FIT_CYLINDER_INSTANTIATE(T)                                                              \
    template void approximate<T>::fitCylinderGeom(CpointSpan<Cpoint3<T>>, Ccylinder3<T>&);         \
    template void approximate<T>::fitCylinderGeom(CpointSpan<Cpoint3<T>>, Ccylinder3<T>&,          \
                                                  CqCylinderGeomStdAbw<T>&, CqGeomFitPrm<T> const&);       \
    template void approximate<T>::fitCylinderGeom(CpointSpan<Cpoint3<T>>, Ccylinder3<T> const&,    \
                                                  Ccylinder3<T>&);                                         \
    template void approximate<T>::fitCylinderGeom(CpointSpan<Cpoint3<T>>, Ccylinder3<T> const&,    \
                                                  Ccylinder3<T>&, CqCylinderGeomStdAbw<T>&,                \
                                                  CqGeomFitPrm<T> const&);                                 \
    template void approximate<T>::fitCylinderGeomRfix(CpointSpan<Cpoint3<T>>, T, Ccylinder3<T>&);  \
    template void approximate<T>::fitCylinderGeomRfix(CpointSpan<Cpoint3<T>>, T, Ccylinder3<T>&,   \
                                                      CqCylinderGeomStdAbw<T>&, CqGeomFitPrm<T> const&);   \
    template T approximate<T>::StdAbwCylinder(CpointSpan<Cpoint3<T>>, Ccylinder3<T> const&);

METROMATH_FIT_CYLINDER_INSTANTIATE(float)
METROMATH_FIT_CYLINDER_INSTANTIATE(double)

#undef METROMATH_FIT_CYLINDER_INSTANTIATE

}  // namespace math
