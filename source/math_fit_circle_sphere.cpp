// Geometric circle and sphere fits of approximate<T> (free and fixed radius).
//
// Residual of point i: d_i = |q_i - c| - r, q_i the normalised point, c the
// centre, r the radius; Jacobian row (-(q_i - c)/|q_i - c|, -1).  The start is
// Taubin's circle or the algebraic (Kasa) sphere on the normalised points.
#include "math_geomfit_kernel.h"

#include <cmath>
#include <cstddef>

namespace math {

namespace {

using namespace geomfit_detail;

// Circle (D = 2) or sphere (D = 3); the radius fitted unless FixR.
template <int D, bool FixR, class Pt>
struct BallModel {
    static constexpr int P = FixR ? D : D + 1;
    struct State {
        double c[D];
        double r;
    };
    CpointSpan<Pt> pts;
    Frame<D, Pt> const& fr;
    State state;

    BallModel(CpointSpan<Pt> p, Frame<D, Pt> const& f) : pts(p), fr(f), state() {}

    bool evaluate(State const& s, Normal<P>& ne) const {
        if (!(s.r >= 0.0)) return false;
        ne.clear();
        const std::size_t n = pts.size();
        for (std::size_t i = 0; i < n; ++i) {
            double q[D];
            fr.norm(pts[i], q);
            double rr = 0.0;
            for (int k = 0; k < D; ++k) {
                q[k] -= s.c[k];
                rr += q[k] * q[k];
            }
            const double rho = std::sqrt(rr);
            const double inv = rho > 0.0 ? 1.0 / rho : 0.0;
            double J[D + 1];
            for (int k = 0; k < D; ++k) J[k] = -q[k] * inv;
            J[D] = -1.0;
            ne.add(J, rho - s.r);
        }
        return ne.finish();
    }
    State step(State const& s, const double* d) const {
        State t = s;
        for (int k = 0; k < D; ++k) t.c[k] += d[k];
        if (!FixR) t.r += d[D];
        return t;
    }
    std::size_t count() const { return pts.size(); }
    double norm(State const& s) const {
        double x = s.r * s.r;
        for (int k = 0; k < D; ++k) x += s.c[k] * s.c[k];
        return std::sqrt(x);
    }
};

// Start on the normalised points: Taubin's circle, or the Kasa sphere
// (x^2 + y^2 + z^2 = 2 c.q + k) solved by Cholesky; false when degenerate.
template <class T>
bool startBall(CpointSpan<Cpoint2<T>> pts, Frame<2, Cpoint2<T>> const& fr, double* c, double& r) {
    Moments2 M{};
    const std::size_t n = pts.size();
    for (std::size_t i = 0; i < n; ++i) {
        double q[2];
        fr.norm(pts[i], q);
        M.mx += q[0];
        M.my += q[1];
    }
    M.mx /= static_cast<double>(n);
    M.my /= static_cast<double>(n);
    for (std::size_t i = 0; i < n; ++i) {
        double q[2];
        fr.norm(pts[i], q);
        const double x = q[0] - M.mx, y = q[1] - M.my, z = x * x + y * y;
        M.xx += x * x;
        M.xy += x * y;
        M.yy += y * y;
        M.xz += x * z;
        M.yz += y * z;
        M.zz += z * z;
    }
    const double f = 1.0 / static_cast<double>(n);
    M.xx *= f, M.xy *= f, M.yy *= f, M.xz *= f, M.yz *= f, M.zz *= f;
    return taubinCircle(M, c[0], c[1], r);
}

template <class T>
bool startBall(CpointSpan<Cpoint3<T>> pts, Frame<3, Cpoint3<T>> const& fr, double* c, double& r) {
    Normal<4> ne;
    ne.clear();
    for (std::size_t i = 0; i < pts.size(); ++i) {
        double q[3];
        fr.norm(pts[i], q);
        const double J[4] = {2.0 * q[0], 2.0 * q[1], 2.0 * q[2], 1.0};
        ne.add(J, q[0] * q[0] + q[1] * q[1] + q[2] * q[2]);
    }
    if (!ne.finish()) return false;
    double L[4][4], x[4];
    if (!cholesky<4>(ne.A, 0.0, L)) return false;
    // coplanar points leave the system singular up to rounding
    double minPiv = L[0][0], maxPiv = L[0][0];
    for (int i = 1; i < 4; ++i) minPiv = std::min(minPiv, L[i][i]), maxPiv = std::max(maxPiv, L[i][i]);
    if (!(minPiv * minPiv > 1e-13 * maxPiv * maxPiv)) return false;
    cholSolve<4>(L, ne.g, x);
    c[0] = x[0], c[1] = x[1], c[2] = x[2];
    r = std::sqrt(x[3] + x[0] * x[0] + x[1] * x[1] + x[2] * x[2]);
    return std::isfinite(r) && r < 1e12;
}

template <int D, class T>
void writeBall(Frame<D, Cpoint2<T>> const& fr, double const* c, double r, Ccircle2<T>& out) {
    out = Ccircle2<T>(Cpoint2<T>(static_cast<T>(fr.m[0] + c[0] * fr.scale), static_cast<T>(fr.m[1] + c[1] * fr.scale)),
                      static_cast<T>(r * fr.scale));
}
template <int D, class T>
void writeBall(Frame<D, Cpoint3<T>> const& fr, double const* c, double r, Csphere3<T>& out) {
    out = Csphere3<T>(Cpoint3<T>(static_cast<T>(fr.m[0] + c[0] * fr.scale), static_cast<T>(fr.m[1] + c[1] * fr.scale),
                                 static_cast<T>(fr.m[2] + c[2] * fr.scale)),
                      static_cast<T>(r * fr.scale));
}

template <class T>
void setInvalid(Ccircle2<T>& c) {
    c = Ccircle2<T>(Cpoint2<T>(quietNaN<T>(), quietNaN<T>()), T(0));
    c.radius() = quietNaN<T>();
}
template <class T>
void setInvalid(Csphere3<T>& s) {
    s = Csphere3<T>(Cpoint3<T>(quietNaN<T>(), quietNaN<T>(), quietNaN<T>()), quietNaN<T>());
}

template <class T>
void fillUnc(CqCircleGeomStdAbw<T>& rec, const double* u) {
    rec.uCenterX = static_cast<T>(u[0]);
    rec.uCenterY = static_cast<T>(u[1]);
    rec.uRadius = static_cast<T>(u[2]);
}
template <class T>
void fillUnc(CqSphereGeomStdAbw<T>& rec, const double* u) {
    rec.uCenterX = static_cast<T>(u[0]);
    rec.uCenterY = static_cast<T>(u[1]);
    rec.uCenterZ = static_cast<T>(u[2]);
    rec.uRadius = static_cast<T>(u[3]);
}

// The whole fit: free (fixR < 0 means free) or with the radius fixR given in
// the caller's units.  Rec and Prim are the record and primitive types.
template <int D, class T, class Pt, class Prim, class Rec>
void fitBall(CpointSpan<Pt> pts, double fixR, Prim& out, Rec& rec, CqGeomFitPrm<T> const& prm) {
    rec = Rec();
    setInvalid(out);
    const bool fixed = fixR >= 0.0;
    const std::size_t n = pts.size();
    const std::size_t p = fixed ? D : D + 1;
    if (fixed && !(fixR > 0.0 && std::isfinite(fixR))) return;
    if (n < static_cast<std::size_t>(D + 1) || n < p) return;
    Frame<D, Pt> fr;
    if (!fr.set(pts)) return;
    const double stepTol = prm.relStepTol, gradTol = prm.gradTol, damp = prm.initDamping;

    BallModel<D, false, Pt> free(pts, fr);
    if (!startBall(pts, fr, free.state.c, free.state.r)) return;
    Normal<D + 1> neFree;
    Outcome o = solve<D + 1>(free, neFree, stepTol, gradTol, damp, prm.maxIter);
    rec.iterations = o.iterations;
    if (!o.converged) return;

    double c[D], r, sumSq, inv[D + 1][D + 1];
    if (!fixed) {
        for (int k = 0; k < D; ++k) c[k] = free.state.c[k];
        r = free.state.r;
        sumSq = neFree.cost;
        inverse<D + 1>(neFree.A, inv);
    } else {
        // Started at the free centre, the iteration stays on its side.
        BallModel<D, true, Pt> fx(pts, fr);
        for (int k = 0; k < D; ++k) fx.state.c[k] = free.state.c[k];
        fx.state.r = fixR * fr.invScale;
        Normal<D> ne;
        const std::uint32_t left = prm.maxIter > o.iterations ? prm.maxIter - o.iterations : 0u;
        Outcome of = solve<D>(fx, ne, stepTol, gradTol, damp, left);
        rec.iterations += of.iterations;
        if (!of.converged) return;
        for (int k = 0; k < D; ++k) c[k] = fx.state.c[k];
        r = fx.state.r;
        sumSq = ne.cost;
        double invD[D][D];
        inverse<D>(ne.A, invD);
        for (int i = 0; i <= D; ++i)
            for (int j = 0; j <= D; ++j) inv[i][j] = (i < D && j < D) ? invD[i][j] : 0.0;
    }
    rec.converged = true;
    writeBall<D, T>(fr, c, r, out);
    if (fixed) out.radius() = static_cast<T>(fixR);
    const double s2 = fr.scale * fr.scale;
    rec.sumSqDist = static_cast<T>(sumSq * s2);
    const double sigma2 = n > p ? sumSq / static_cast<double>(n - p) : kNaN;
    rec.stdAbw = static_cast<T>(std::sqrt(sigma2 * s2));
    double u[D + 1];
    for (int k = 0; k <= D; ++k) u[k] = std::sqrt(sigma2 * inv[k][k]) * fr.scale;
    if (fixed) u[D] = 0.0;
    fillUnc(rec, u);
}

}  // namespace

template <class T>
void approximate<T>::fitCircleGeom(CpointSpan<Cpoint2<T>> pts, Ccircle2<T>& circle,
                                   CqCircleGeomStdAbw<T>& rec, CqGeomFitPrm<T> const& prm) {
    fitBall<2, T>(pts, -1.0, circle, rec, prm);
}
template <class T>
void approximate<T>::fitCircleGeom(CpointSpan<Cpoint2<T>> pts, Ccircle2<T>& circle) {
    CqCircleGeomStdAbw<T> rec;
    fitBall<2, T>(pts, -1.0, circle, rec, CqGeomFitPrm<T>());
}
template <class T>
void approximate<T>::fitCircleGeomRfix(CpointSpan<Cpoint2<T>> pts, T radius, Ccircle2<T>& circle,
                                       CqCircleGeomStdAbw<T>& rec, CqGeomFitPrm<T> const& prm) {
    const double r = static_cast<double>(radius);
    fitBall<2, T>(pts, r > 0.0 ? r : 0.0, circle, rec, prm);
}
template <class T>
void approximate<T>::fitCircleGeomRfix(CpointSpan<Cpoint2<T>> pts, T radius, Ccircle2<T>& circle) {
    CqCircleGeomStdAbw<T> rec;
    fitCircleGeomRfix(pts, radius, circle, rec, CqGeomFitPrm<T>());
}
template <class T>
void approximate<T>::fitSphereGeom(CpointSpan<Cpoint3<T>> pts, Csphere3<T>& sphere,
                                   CqSphereGeomStdAbw<T>& rec, CqGeomFitPrm<T> const& prm) {
    fitBall<3, T>(pts, -1.0, sphere, rec, prm);
}
template <class T>
void approximate<T>::fitSphereGeom(CpointSpan<Cpoint3<T>> pts, Csphere3<T>& sphere) {
    CqSphereGeomStdAbw<T> rec;
    fitBall<3, T>(pts, -1.0, sphere, rec, CqGeomFitPrm<T>());
}
template <class T>
void approximate<T>::fitSphereGeomRfix(CpointSpan<Cpoint3<T>> pts, T radius, Csphere3<T>& sphere,
                                       CqSphereGeomStdAbw<T>& rec, CqGeomFitPrm<T> const& prm) {
    const double r = static_cast<double>(radius);
    fitBall<3, T>(pts, r > 0.0 ? r : 0.0, sphere, rec, prm);
}
template <class T>
void approximate<T>::fitSphereGeomRfix(CpointSpan<Cpoint3<T>> pts, T radius, Csphere3<T>& sphere) {
    CqSphereGeomStdAbw<T> rec;
    fitSphereGeomRfix(pts, radius, sphere, rec, CqGeomFitPrm<T>());
}

// Explicit instantiation of the members defined in this file.
#define METROMATH_FIT_BALL_INSTANTIATE(T)                                                                  \
    template void approximate<T>::fitCircleGeom(CpointSpan<Cpoint2<T>>, Ccircle2<T>&);             \
    template void approximate<T>::fitCircleGeom(CpointSpan<Cpoint2<T>>, Ccircle2<T>&,              \
                                                CqCircleGeomStdAbw<T>&, CqGeomFitPrm<T> const&);           \
    template void approximate<T>::fitCircleGeomRfix(CpointSpan<Cpoint2<T>>, T, Ccircle2<T>&);      \
    template void approximate<T>::fitCircleGeomRfix(CpointSpan<Cpoint2<T>>, T, Ccircle2<T>&,       \
                                                    CqCircleGeomStdAbw<T>&, CqGeomFitPrm<T> const&);       \
    template void approximate<T>::fitSphereGeom(CpointSpan<Cpoint3<T>>, Csphere3<T>&);             \
    template void approximate<T>::fitSphereGeom(CpointSpan<Cpoint3<T>>, Csphere3<T>&,              \
                                                CqSphereGeomStdAbw<T>&, CqGeomFitPrm<T> const&);           \
    template void approximate<T>::fitSphereGeomRfix(CpointSpan<Cpoint3<T>>, T, Csphere3<T>&);      \
    template void approximate<T>::fitSphereGeomRfix(CpointSpan<Cpoint3<T>>, T, Csphere3<T>&,       \
                                                    CqSphereGeomStdAbw<T>&, CqGeomFitPrm<T> const&);

METROMATH_FIT_BALL_INSTANTIATE(float)
METROMATH_FIT_BALL_INSTANTIATE(double)

#undef METROMATH_FIT_BALL_INSTANTIATE

}  // namespace math
