// Geometric ellipse fit by Gauss-Newton on the orthogonal distances
// (approximate<T>::fitEllipseGeom) and the deviation measure StdAbwEllipse.
// Every iteration: foot points and exact distance derivatives of all points
// (evalOrthogonal), a 5x5 Cholesky solve with a ridge at rounding level, and
// step halving until the sum of squares decreases (at most 30 halvings).
#include "math_fit_ellipse.h"

#include <math/geometric.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace math {
namespace ellipse_detail {

namespace {

template <class T>
void fitGN(CpointSpan<Cpoint2<T>> pts, Cellipse2<T>& el, CqEllipseGeomStdAbw<T>* rec,
           CqGeomFitPrm<T> const& prm) {
    Normalised d;
    Par p;
    if (!normalise(pts, double(std::numeric_limits<T>::epsilon()), d) || !directFit(d, p)) {
        writeResult(d, p, false, 0u, el, rec);
        return;
    }
    const double stepTol = double(prm.relStepTol), gradTol = double(prm.gradTol);
    double jtj[25], jtr[5], tj[25], tr[5];
    double f = evalOrthogonal(d, p, jtj, jtr);
    bool conv = false, evalAtP = true;  // jtj, jtr and f belong to p
    std::uint32_t it = 0;
    int flat = 0;
    while (std::isfinite(f) && it < prm.maxIter) {
        double gmax = 0.0, dmax = 0.0;
        for (int k = 0; k < 5; ++k) {
            gmax = std::max(gmax, std::fabs(jtr[k]));
            dmax = std::max(dmax, jtj[k * 5 + k]);
        }
        if (gmax <= gradTol * (f + gradTol)) {
            conv = true;
            break;
        }
        ++it;
        double rhs[5], step[5];
        for (int k = 0; k < 5; ++k) rhs[k] = -jtr[k];
        // A ridge at rounding level keeps an exact circle's free angle solvable;
        // it does not move the fixed point (J^T d = 0).
        if (!solve5(jtj, 1e-15 * dmax, rhs, step)) break;
        // Decrease predicted by the Gauss-Newton model.
        double pred = 0.0;
        for (int k = 0; k < 5; ++k) pred -= step[k] * jtr[k];
        if (pred <= flatLevel(f, d.n())) {
            // The sum of squares cannot judge such a step: take it whole.
            Par q = p;
            for (int k = 0; k < 5; ++k) q.v[k] += step[k];
            if (!sane(q)) break;
            const bool small = smallStep(step, p, stepTol);
            p = q;
            f = evalOrthogonal(d, p, jtj, jtr);
            if (small || ++flat >= kFlatSteps) {
                conv = true;
                break;
            }
            continue;
        }
        flat = 0;
        if (smallStep(step, p, stepTol)) {
            Par q = p;
            for (int k = 0; k < 5; ++k) q.v[k] += step[k];
            if (sane(q)) p = q, evalAtP = false;
            conv = true;
            break;
        }
        bool accepted = false;
        double lam = 1.0;
        for (int h = 0; h < 30 && !accepted; ++h, lam *= 0.5) {
            Par q = p;
            for (int k = 0; k < 5; ++k) q.v[k] += lam * step[k];
            if (!sane(q)) continue;
            const double ft = evalOrthogonal(d, q, tj, tr);
            if (ft < f) {
                accepted = true;
                p = q;
                f = ft;
                std::copy(tj, tj + 25, jtj);
                std::copy(tr, tr + 5, jtr);
            }
        }
        if (!accepted) break;  // no decrease although the model predicts one: not converged
    }
    writeResult(d, p, conv, it, el, rec, evalAtP ? jtj : nullptr, f);
}

}  // namespace

}  // namespace ellipse_detail

template <class T>
void approximate<T>::fitEllipseGeom(CpointSpan<Cpoint2<T>> pts, Cellipse2<T>& ellipse,
                                    CqGeomFitPrm<T> const& prm) {
    ellipse_detail::fitGN<T>(pts, ellipse, nullptr, prm);
}

template <class T>
void approximate<T>::fitEllipseGeom(CpointSpan<Cpoint2<T>> pts, Cellipse2<T>& ellipse,
                                    CqEllipseGeomStdAbw<T>& rec, CqGeomFitPrm<T> const& prm) {
    ellipse_detail::fitGN<T>(pts, ellipse, &rec, prm);
}

template <class T>
T approximate<T>::StdAbwEllipse(CpointSpan<Cpoint2<T>> pts, Cellipse2<T> const& ellipse) {
    const std::size_t n = pts.size();
    if (n < 2 || !ellipse.isValid()) return quietNaN<T>();
    std::vector<T> dist;
    geometric<T>::distance(ellipse, pts, dist);
    double s = 0.0, s2 = 0.0;
    for (T v : dist) {
        s += double(v);
        s2 += double(v) * double(v);
    }
    return static_cast<T>(std::sqrt((s2 - s * s / double(n)) / double(n - 1)));
}

#define METROMATH_FIT_ELLIPSE_GN_INSTANTIATE(T)                                                        \
    template void approximate<T>::fitEllipseGeom(CpointSpan<Cpoint2<T>>, Cellipse2<T>&,        \
                                                 CqGeomFitPrm<T> const&);                              \
    template void approximate<T>::fitEllipseGeom(CpointSpan<Cpoint2<T>>, Cellipse2<T>&,        \
                                                 CqEllipseGeomStdAbw<T>&, CqGeomFitPrm<T> const&);     \
    template T approximate<T>::StdAbwEllipse(CpointSpan<Cpoint2<T>>, Cellipse2<T> const&);

METROMATH_FIT_ELLIPSE_GN_INSTANTIATE(float)
METROMATH_FIT_ELLIPSE_GN_INSTANTIATE(double)

#undef METROMATH_FIT_ELLIPSE_GN_INSTANTIATE

}  // namespace math
