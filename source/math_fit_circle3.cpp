// Geometric fit of a circle in space (plane and circle together), free and
// with fixed radius.
//
// The orthogonal distance of q from the circle (centre C, unit normal w,
// radius r) is sqrt(h^2 + (rho - r)^2) with h = (q - C).w the height over the
// plane and rho the distance from C within the plane.  Its square is the sum
// of the squares of the two smooth residuals h and rho - r, which are used
// instead (the same least-squares problem, differentiable also on the circle).
// Parameters of a step: shifts of C along u, v, w, two tilts of the normal
// (w' = normalise(w + a u + b v)) about the current centre, the radius;
// (u, v, w) are rebuilt from w after every step.
#include "math_geomfit_kernel.h"

#include <cmath>
#include <cstddef>

namespace math {

namespace {

using namespace geomfit_detail;

template <bool FixR, class Pt>
struct Circle3Model {
    static constexpr int P = FixR ? 5 : 6;
    struct State {
        double c[3], w[3], u[3], v[3];
        double r;
    };
    CpointSpan<Pt> pts;
    Frame<3, Pt> const& fr;
    State state;

    Circle3Model(CpointSpan<Pt> p, Frame<3, Pt> const& f) : pts(p), fr(f), state() {}

    bool evaluate(State const& s, Normal<P>& ne) const {
        if (!(s.r >= 0.0)) return false;
        ne.clear();
        const std::size_t n = pts.size();
        for (std::size_t i = 0; i < n; ++i) {
            double q[3];
            fr.norm(pts[i], q);
            q[0] -= s.c[0], q[1] -= s.c[1], q[2] -= s.c[2];
            const double qu = dot3(q, s.u), qv = dot3(q, s.v), h = dot3(q, s.w);
            const double rho = std::sqrt(qu * qu + qv * qv);
            const double inv = rho > 0.0 ? 1.0 / rho : 0.0;
            const double Jh[6] = {0.0, 0.0, -1.0, qu, qv, 0.0};
            ne.add(Jh, h);
            const double cu = qu * inv, cv = qv * inv;
            const double Jr[6] = {-cu, -cv, 0.0, -h * cu, -h * cv, -1.0};
            ne.add(Jr, rho - s.r);
        }
        return ne.finish();
    }
    State step(State const& s, const double* d) const {
        State t = s;
        for (int k = 0; k < 3; ++k) {
            t.c[k] += d[0] * s.u[k] + d[1] * s.v[k] + d[2] * s.w[k];
            t.w[k] += d[3] * s.u[k] + d[4] * s.v[k];
        }
        if (!normalise3(t.w)) t.r = kNaN;
        basis(t.w, t.u, t.v);
        if (!FixR) t.r += d[5];
        return t;
    }
    std::size_t count() const { return 2 * pts.size(); }
    double norm(State const& s) const { return std::sqrt(dot3(s.c, s.c) + 1.0 + s.r * s.r); }
};

template <class T>
void setInvalid(Ccircle3<T>& c) {
    const T nan = quietNaN<T>();
    Cplane3<T> e;
    e.set(nan, nan, nan, nan);
    c = Ccircle3<T>(e, Cpoint3<T>(nan, nan, nan), nan);
}

// Start: plane through the centroid across the smallest axis of the scatter,
// Taubin's circle of the points projected onto it.
template <class Pt, class State>
bool startCircle3(CpointSpan<Pt> pts, Frame<3, Pt> const& fr, State& s) {
    const std::size_t n = pts.size();
    double ev[3], V[3][3];
    symEigen3(fr.S, ev, V);
    for (int k = 0; k < 3; ++k) s.w[k] = V[k][0];
    if (!normalise3(s.w)) return false;
    basis(s.w, s.u, s.v);
    Moments2 M{};
    for (std::size_t i = 0; i < n; ++i) {
        double q[3];
        fr.norm(pts[i], q);
        const double x = dot3(q, s.u), y = dot3(q, s.v), z = x * x + y * y;
        M.xx += x * x, M.xy += x * y, M.yy += y * y, M.xz += x * z, M.yz += y * z, M.zz += z * z;
    }
    const double f = 1.0 / static_cast<double>(n);
    M.xx *= f, M.xy *= f, M.yy *= f, M.xz *= f, M.yz *= f, M.zz *= f;
    double cx, cy;
    if (!taubinCircle(M, cx, cy, s.r)) return false;
    for (int k = 0; k < 3; ++k) s.c[k] = cx * s.u[k] + cy * s.v[k];
    return true;
}

template <class T>
void fitCircle3(CpointSpan<Cpoint3<T>> pts, double fixR, Ccircle3<T>& out, CqCircle3GeomStdAbw<T>& rec,
                CqGeomFitPrm<T> const& prm) {
    using Pt = Cpoint3<T>;
    rec = CqCircle3GeomStdAbw<T>();
    setInvalid(out);
    const bool fixed = fixR >= 0.0;
    const std::size_t n = pts.size();
    const std::size_t p = fixed ? 5 : 6;
    if (fixed && !(fixR > 0.0 && std::isfinite(fixR))) return;
    if (n < 3) return;
    Frame<3, Pt> fr;
    if (!fr.set(pts)) return;

    Circle3Model<false, Pt> free(pts, fr);
    if (!startCircle3(pts, fr, free.state)) return;
    Normal<6> ne6;
    Outcome o = solve<6>(free, ne6, prm.relStepTol, prm.gradTol, prm.initDamping, prm.maxIter);
    rec.iterations = o.iterations;
    if (!o.converged) return;

    typename Circle3Model<false, Pt>::State st = free.state;
    double inv[6][6], sumSq = ne6.cost;
    if (!fixed) {
        inverse<6>(ne6.A, inv);
    } else {
        Circle3Model<true, Pt> fx(pts, fr);
        fx.state.r = fixR * fr.invScale;
        for (int k = 0; k < 3; ++k)
            fx.state.c[k] = st.c[k], fx.state.w[k] = st.w[k], fx.state.u[k] = st.u[k], fx.state.v[k] = st.v[k];
        Normal<5> ne5;
        const std::uint32_t left = prm.maxIter > o.iterations ? prm.maxIter - o.iterations : 0u;
        Outcome of = solve<5>(fx, ne5, prm.relStepTol, prm.gradTol, prm.initDamping, left);
        rec.iterations += of.iterations;
        if (!of.converged) return;
        for (int k = 0; k < 3; ++k)
            st.c[k] = fx.state.c[k], st.w[k] = fx.state.w[k], st.u[k] = fx.state.u[k], st.v[k] = fx.state.v[k];
        st.r = fx.state.r;
        sumSq = ne5.cost;
        double i5[5][5];
        inverse<5>(ne5.A, i5);
        for (int i = 0; i < 6; ++i)
            for (int j = 0; j < 6; ++j) inv[i][j] = (i < 5 && j < 5) ? i5[i][j] : 0.0;
    }
    rec.converged = true;
    double w[3] = {st.w[0], st.w[1], st.w[2]};
    orient3(w);
    const double sc = fr.scale;
    const Cpoint3<T> c(static_cast<T>(fr.m[0] + st.c[0] * sc), static_cast<T>(fr.m[1] + st.c[1] * sc),
                       static_cast<T>(fr.m[2] + st.c[2] * sc));
    const Cplane3<T> plane(c, Cdirec3<T>(static_cast<T>(w[0]), static_cast<T>(w[1]), static_cast<T>(w[2])));
    out = Ccircle3<T>(plane, c, fixed ? static_cast<T>(fixR) : static_cast<T>(st.r * sc));
    rec.sumSqDist = static_cast<T>(sumSq * sc * sc);
    const double sigma2 = 2 * n > p ? sumSq / static_cast<double>(2 * n - p) : kNaN;
    rec.stdAbw = static_cast<T>(std::sqrt(sigma2) * sc);
    double uc[3], un[3];
    for (int k = 0; k < 3; ++k) {
        const double a[3] = {st.u[k], st.v[k], st.w[k]};
        uc[k] = combUnc<6>(inv, sigma2, a, 3) * sc;
        double s = 0.0;  // normal component k: u_k a + v_k b on parameters 3, 4
        const double b[2] = {st.u[k], st.v[k]};
        for (int i = 0; i < 2; ++i)
            for (int j = 0; j < 2; ++j) s += b[i] * inv[3 + i][3 + j] * b[j];
        un[k] = std::sqrt(sigma2 * s);
    }
    rec.uCenterX = static_cast<T>(uc[0]), rec.uCenterY = static_cast<T>(uc[1]), rec.uCenterZ = static_cast<T>(uc[2]);
    rec.uNormalX = static_cast<T>(un[0]), rec.uNormalY = static_cast<T>(un[1]), rec.uNormalZ = static_cast<T>(un[2]);
    rec.uRadius = fixed ? T(0) : static_cast<T>(std::sqrt(sigma2 * inv[5][5]) * sc);
}

}  // namespace

template <class T>
void approximate<T>::fitCircleGeom(CpointSpan<Cpoint3<T>> pts, Ccircle3<T>& circle,
                                   CqCircle3GeomStdAbw<T>& rec, CqGeomFitPrm<T> const& prm) {
    fitCircle3(pts, -1.0, circle, rec, prm);
}
template <class T>
void approximate<T>::fitCircleGeom(CpointSpan<Cpoint3<T>> pts, Ccircle3<T>& circle) {
    CqCircle3GeomStdAbw<T> rec;
    fitCircle3(pts, -1.0, circle, rec, CqGeomFitPrm<T>());
}
template <class T>
void approximate<T>::fitCircleGeomRfix(CpointSpan<Cpoint3<T>> pts, T radius, Ccircle3<T>& circle,
                                       CqCircle3GeomStdAbw<T>& rec, CqGeomFitPrm<T> const& prm) {
    const double r = static_cast<double>(radius);
    fitCircle3(pts, r > 0.0 ? r : 0.0, circle, rec, prm);
}
template <class T>
void approximate<T>::fitCircleGeomRfix(CpointSpan<Cpoint3<T>> pts, T radius, Ccircle3<T>& circle) {
    CqCircle3GeomStdAbw<T> rec;
    fitCircleGeomRfix(pts, radius, circle, rec, CqGeomFitPrm<T>());
}

#define METROMATH_FIT_CIRCLE3_INSTANTIATE(T)                                                               \
    template void approximate<T>::fitCircleGeom(CpointSpan<Cpoint3<T>>, Ccircle3<T>&);             \
    template void approximate<T>::fitCircleGeom(CpointSpan<Cpoint3<T>>, Ccircle3<T>&,              \
                                                CqCircle3GeomStdAbw<T>&, CqGeomFitPrm<T> const&);          \
    template void approximate<T>::fitCircleGeomRfix(CpointSpan<Cpoint3<T>>, T, Ccircle3<T>&);      \
    template void approximate<T>::fitCircleGeomRfix(CpointSpan<Cpoint3<T>>, T, Ccircle3<T>&,       \
                                                    CqCircle3GeomStdAbw<T>&, CqGeomFitPrm<T> const&);

METROMATH_FIT_CIRCLE3_INSTANTIATE(float)
METROMATH_FIT_CIRCLE3_INSTANTIATE(double)

#undef METROMATH_FIT_CIRCLE3_INSTANTIATE

}  // namespace math
