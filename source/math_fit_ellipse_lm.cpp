// Geometric ellipse fit by Levenberg-Marquardt over the ellipse and one phase
// per point (approximate<T>::fitEllipseGeomLM).
//
// Unknowns: q = (xc, yc, a, b, th) and t_1..t_n; residuals r_i = p_i - X(t_i)
// with X(t) = c + R(th) (a cos t, b sin t), two per point.  Minimising over
// t_i makes |r_i| the orthogonal distance, so the minimum is that of the
// orthogonal fit.  The damped normal equations
//   [U + lam I    W_i        ] [dq  ]     [g_q]
//   [W_i^T        V_i + lam  ] [dt_i] = - [g_i]
// (U = sum A_i^T A_i, W_i = A_i^T B_i, V_i = |B_i|^2, A_i the 2x5 block of
// point i, B_i its 2x1 phase column) have a diagonal phase block, which is
// eliminated: (U + lam I - sum W_i W_i^T / (V_i + lam)) dq =
// -(g_q - sum W_i g_i / (V_i + lam)), then dt_i = -(g_i + W_i . dq) / (V_i + lam).
// An iteration is two passes over the points and one 5x5 Cholesky solve.
// Damping is Marquardt's, lam times the diagonal of J^T J (so the phases,
// whose diagonal V_i is small beside that of the centre, are damped in their
// own scale), lam starting at prm.initDamping and following Nielsen's update
// (lam *= max(1/3, 1 - (2 rho - 1)^3) on success, lam *= nu, nu *= 2 on
// failure).  In the equations above, "+ lam I" reads "+ lam diag".
#include "math_fit_ellipse.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace math {
namespace ellipse_detail {
namespace {

const double kPi = 3.14159265358979323846;

// Blocks of one point: A (2x5, column major: A[2k], A[2k+1]), B, residual r.
struct PointBlock {
    double A[10], B[2], r[2];
};

inline void pointBlock(Par const& p, double ca, double sa, double x, double y, double ct, double st,
                       PointBlock& b) {
    const double a = p.v[2], bb = p.v[3];
    const double u = a * ct, v = bb * st;
    b.r[0] = x - (p.v[0] + ca * u - sa * v);
    b.r[1] = y - (p.v[1] + sa * u + ca * v);
    b.A[0] = -1.0, b.A[1] = 0.0;
    b.A[2] = 0.0, b.A[3] = -1.0;
    b.A[4] = -ca * ct, b.A[5] = -sa * ct;
    b.A[6] = sa * st, b.A[7] = -ca * st;
    b.A[8] = ca * v + sa * u, b.A[9] = sa * v - ca * u;
    b.B[0] = ca * a * st + sa * bb * ct;
    b.B[1] = sa * a * st - ca * bb * ct;
}

struct State {
    Par p;
    std::vector<double> t, c, s;  // phases and their cosines and sines
};

template <class T>
void fitLM(CpointSpan<Cpoint2<T>> pts, Cellipse2<T>& el, CqEllipseGeomStdAbw<T>* rec,
           CqGeomFitPrm<T> const& prm) {
    Normalised d;
    State cur, trial;
    if (!normalise(pts, double(std::numeric_limits<T>::epsilon()), d) || !directFit(d, cur.p)) {
        writeResult(d, cur.p, false, 0u, el, rec);
        return;
    }
    const std::size_t n = d.n();
    const double stepTol = double(prm.relStepTol), gradTol = double(prm.gradTol);
    cur.t.resize(n);
    cur.c.resize(n);
    cur.s.resize(n);
    trial.t.resize(n);
    trial.c.resize(n);
    trial.s.resize(n);
    {  // start phases: the angles of the points in the start ellipse's scaled frame
        const double ca = std::cos(cur.p.v[4]), sa = std::sin(cur.p.v[4]);
        for (std::size_t i = 0; i < n; ++i) {
            const double dx = d.x[i] - cur.p.v[0], dy = d.y[i] - cur.p.v[1];
            const double u = ca * dx + sa * dy, v = -sa * dx + ca * dy;
            cur.t[i] = std::atan2(v / cur.p.v[3], u / cur.p.v[2]);
            cur.c[i] = std::cos(cur.t[i]);
            cur.s[i] = std::sin(cur.t[i]);
        }
    }
    double f = 0.0, lam = double(prm.initDamping), nu = 2.0;
    if (!(lam > 0.0)) lam = 1e-12;
    {
        const double ca = std::cos(cur.p.v[4]), sa = std::sin(cur.p.v[4]);
        for (std::size_t i = 0; i < n; ++i) {
            PointBlock b;
            pointBlock(cur.p, ca, sa, d.x[i], d.y[i], cur.c[i], cur.s[i], b);
            f += b.r[0] * b.r[0] + b.r[1] * b.r[1];
        }
    }
    bool conv = false;
    std::uint32_t it = 0;
    int rejects = 0, flat = 0;
    while (std::isfinite(f) && it < prm.maxIter) {
        // Pass 1: U, g_q, the phase gradient and the eliminated terms at lam.
        const double ca = std::cos(cur.p.v[4]), sa = std::sin(cur.p.v[4]);
        double U[25] = {0}, gq[5] = {0}, gmax = 0.0;
        double S[25] = {0}, h[5] = {0};  // sum W W^T / (V (1 + lam)), sum W g / (V (1 + lam))
        for (std::size_t i = 0; i < n; ++i) {
            PointBlock b;
            pointBlock(cur.p, ca, sa, d.x[i], d.y[i], cur.c[i], cur.s[i], b);
            double W[5];
            const double V = b.B[0] * b.B[0] + b.B[1] * b.B[1];
            const double gi = b.B[0] * b.r[0] + b.B[1] * b.r[1];
            for (int k = 0; k < 5; ++k) {
                W[k] = b.A[2 * k] * b.B[0] + b.A[2 * k + 1] * b.B[1];
                gq[k] += b.A[2 * k] * b.r[0] + b.A[2 * k + 1] * b.r[1];
                for (int l = k; l < 5; ++l) U[k * 5 + l] += b.A[2 * k] * b.A[2 * l] + b.A[2 * k + 1] * b.A[2 * l + 1];
            }
            gmax = std::max(gmax, std::fabs(gi));
            const double w = 1.0 / (V * (1.0 + lam));
            for (int k = 0; k < 5; ++k) {
                h[k] += W[k] * gi * w;
                for (int l = k; l < 5; ++l) S[k * 5 + l] += W[k] * W[l] * w;
            }
        }
        for (int k = 0; k < 5; ++k) gmax = std::max(gmax, std::fabs(gq[k]));
        if (gmax <= gradTol * (f + gradTol)) {
            conv = true;
            break;
        }
        ++it;
        double R[25], rhs[5], dq[5];
        for (int k = 0; k < 5; ++k) {
            rhs[k] = -(gq[k] - h[k]);
            for (int l = k; l < 5; ++l) R[k * 5 + l] = U[k * 5 + l] - S[k * 5 + l];
            R[k * 5 + k] += lam * U[k * 5 + k];
        }
        if (!solve5(R, 0.0, rhs, dq)) break;
        // Pass 2: back-substitution of the phases, trial residuals, predicted decrease.
        trial.p = cur.p;
        for (int k = 0; k < 5; ++k) trial.p.v[k] += dq[k];
        bool small = smallStep(dq, cur.p, stepTol);
        double ft = 0.0, hh = 0.0, hg = 0.0;
        for (int k = 0; k < 5; ++k) {
            hh += U[k * 5 + k] * dq[k] * dq[k];
            hg += dq[k] * gq[k];
        }
        const double tca = std::cos(trial.p.v[4]), tsa = std::sin(trial.p.v[4]);
        const double tlim = stepTol * (stepTol + 1.0);
        for (std::size_t i = 0; i < n; ++i) {
            PointBlock b;
            pointBlock(cur.p, ca, sa, d.x[i], d.y[i], cur.c[i], cur.s[i], b);
            const double V = b.B[0] * b.B[0] + b.B[1] * b.B[1];
            const double gi = b.B[0] * b.r[0] + b.B[1] * b.r[1];
            double wd = 0.0;
            for (int k = 0; k < 5; ++k) wd += (b.A[2 * k] * b.B[0] + b.A[2 * k + 1] * b.B[1]) * dq[k];
            const double dt = -(gi + wd) / (V * (1.0 + lam));
            if (!(std::fabs(dt) <= tlim)) small = false;
            hh += V * dt * dt;
            hg += dt * gi;
            trial.t[i] = cur.t[i] + dt;
            trial.c[i] = std::cos(trial.t[i]);
            trial.s[i] = std::sin(trial.t[i]);
            PointBlock tb;
            pointBlock(trial.p, tca, tsa, d.x[i], d.y[i], trial.c[i], trial.s[i], tb);
            ft += tb.r[0] * tb.r[0] + tb.r[1] * tb.r[1];
        }
        const double pred = 0.5 * (lam * hh - hg);  // decrease of sum r^2 / 2 predicted by the model
        const bool flipA = trial.p.v[2] < 0.0, flipB = trial.p.v[3] < 0.0;
        const bool ok = sane(trial.p) && std::isfinite(ft);
        const bool flatStep = pred <= kFlat * f + 1e-28 * double(n);
        if (ok && (ft < f || (flatStep && ft <= f + flatLevel(f, n)))) {
            const double rho = pred > 0.0 ? 0.5 * (f - ft) / pred : 1.0;
            std::swap(cur, trial);
            f = ft;
            const double c3 = 2.0 * rho - 1.0;
            lam *= std::max(1.0 / 3.0, 1.0 - c3 * c3 * c3);
            nu = 2.0;
            rejects = 0;
            // Fold negative semi-axes (sane() took the absolute values) into the phases.
            if (flipA || flipB) {
                for (std::size_t i = 0; i < n; ++i) {
                    if (flipA) cur.t[i] = kPi - cur.t[i], cur.c[i] = -cur.c[i];
                    if (flipB) cur.t[i] = -cur.t[i], cur.s[i] = -cur.s[i];
                }
            }
            flat = flatStep ? flat + 1 : 0;
            if (small || flat >= kFlatSteps) {
                conv = true;
                break;
            }
            continue;
        }
        // No decrease: converged when the step was negligible; otherwise damp
        // more (bounded).
        if (small || ++rejects > 40 || !(lam < 1e300)) {
            conv = small;
            break;
        }
        lam *= nu;
        nu *= 2.0;
    }
    writeResult(d, cur.p, conv, it, el, rec);
}

}  // namespace
}  // namespace ellipse_detail

template <class T>
void approximate<T>::fitEllipseGeomLM(CpointSpan<Cpoint2<T>> pts, Cellipse2<T>& ellipse,
                                      CqGeomFitPrm<T> const& prm) {
    ellipse_detail::fitLM<T>(pts, ellipse, nullptr, prm);
}

template <class T>
void approximate<T>::fitEllipseGeomLM(CpointSpan<Cpoint2<T>> pts, Cellipse2<T>& ellipse,
                                      CqEllipseGeomStdAbw<T>& rec, CqGeomFitPrm<T> const& prm) {
    ellipse_detail::fitLM<T>(pts, ellipse, &rec, prm);
}

#define METROMATH_FIT_ELLIPSE_LM_INSTANTIATE(T)                                                        \
    template void approximate<T>::fitEllipseGeomLM(CpointSpan<Cpoint2<T>>, Cellipse2<T>&,     \
                                                   CqGeomFitPrm<T> const&);                            \
    template void approximate<T>::fitEllipseGeomLM(CpointSpan<Cpoint2<T>>, Cellipse2<T>&,     \
                                                   CqEllipseGeomStdAbw<T>&, CqGeomFitPrm<T> const&);

METROMATH_FIT_ELLIPSE_LM_INSTANTIATE(float)
METROMATH_FIT_ELLIPSE_LM_INSTANTIATE(double)

#undef METROMATH_FIT_ELLIPSE_LM_INSTANTIATE

}  // namespace math
