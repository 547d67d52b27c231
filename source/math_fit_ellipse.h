// Shared parts of the geometric ellipse fits of approximate<T> (private to the
// library's sources): normalisation of the data, the direct ellipse start,
// foot points, the 5x5 linear algebra and the final evaluation that fills the
// result record.  Everything works in double on the normalised points.
#ifndef MATH_FIT_ELLIPSE_H
#define MATH_FIT_ELLIPSE_H

#include <math/approximate.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace math {
namespace ellipse_detail {

// Points translated to their centroid (cx, cy) and divided by their RMS
// distance s from it: sum(x^2 + y^2) / n == 1.
struct Normalised {
    double cx = 0.0, cy = 0.0, s = 0.0;
    std::vector<double> x, y;
    std::size_t n() const { return x.size(); }
};

// Ellipse in normalised coordinates: centre, semi-axes (not ordered during
// the iteration), angle of the a axis.
struct Par {
    double v[5] = {0.0, 0.0, 0.0, 0.0, 0.0};  // xc, yc, a, b, theta
};

// Outcome of the final evaluation, in normalised units.
struct Final {
    double sumSq;
    double stdAbw;
    double u[5];  // standard uncertainties of xc, yc, a, b, theta (NaN unknown)
};

// Normalises the points; false for fewer than 5 points, a non-finite
// coordinate, coincident or collinear points.  epsT: machine epsilon of the
// caller's coordinate type.
template <class T>
bool normalise(CpointSpan<Cpoint2<T>> pts, double epsT, Normalised& d);

// Direct least-squares ellipse (Halir-Flusser); false when no ellipse results.
bool directFit(Normalised const& d, Par& p);

// Foot point of (u, v), given in the ellipse's own frame, on the ellipse
// (x/a)^2 + (y/b)^2 = 1 (a, b > 0 in any order): returns its parameter t with
// foot = (a cos t, b sin t).
double footParameter(double a, double b, double u, double v);

// Sum of squared orthogonal distances, J^T J (upper triangle used, row major
// 5x5) and J^T d at p; the Jacobian rows are the exact derivatives of the
// signed distances.  Either matrix pointer may be null (sum only).
double evalOrthogonal(Normalised const& d, Par const& p, double* jtj, double* jtr);

// Solves (A + mu*I) x = b for symmetric 5x5 A (row major) by Cholesky; false
// when not positive definite.
bool solve5(double const* A, double mu, double const* b, double* x);
// Diagonal of A^-1 (A symmetric positive definite); false otherwise.
bool invDiag5(double const* A, double* diag);

// a, b > 0 and finite, below the collapse limits; folds negative axes.
bool sane(Par& p);

// Final evaluation at p (orthogonal distances, covariance); jtjAt and sumAt,
// when given, are evalOrthogonal's results at p and save that pass.
void finalEval(Normalised const& d, Par const& p, Final& f, double const* jtjAt = nullptr, double sumAt = 0.0);

// Writes the ellipse (a >= b, angle in (-pi/2, pi/2], mapped back) and the
// record; on failure the ellipse is invalid and the record says so.
template <class T>
void writeResult(Normalised const& d, Par const& p, bool ok, std::uint32_t iterations,
                 Cellipse2<T>& el, CqEllipseGeomStdAbw<T>* rec, double const* jtjAt = nullptr,
                 double sumAt = 0.0);

// Resolution of a sum of squares f of n distances (normalised units): each
// distance carries a rounding error of a few ulps of the data's scale (1), so
// f is uncertain by about 2 eps sum |d_i| <= 2 eps sqrt(n f), plus the
// rounding of the sum itself.  A decrease predicted by the linear model below
// this level cannot be judged by comparing sums: such a step is taken whole,
// and kFlatSteps of them in a row count as convergence (the iteration
// contracts at each; what remains is rounding, e.g. the angle of an exact
// circle).  The Levenberg-Marquardt form, whose sums come from the phase
// residuals, uses the stricter kFlat * f alone (its damped steps would
// otherwise be judged flat too early).
constexpr double kFlat = 64.0 * 2.220446049250313e-16;
constexpr int kFlatSteps = 3;
inline double flatLevel(double f, std::size_t n) {
    return kFlat * (f + std::sqrt(double(n) * f)) + 1e-28 * double(n);
}

// Relative step test of CqGeomFitPrm: |step_k| <= tol * (tol + scale_k) for
// every component.  The scale of a semi-axis is its value; centre
// coordinates, the angle and the phases count with scale 1 (normalised
// units, radians), which keeps the test meaningful for a centre or angle
// that happens to be near 0.
inline bool smallStep(double const* step, Par const& p, double tol) {
    for (int k = 0; k < 5; ++k) {
        const double sc = (k == 2 || k == 3) ? (p.v[k] < 0 ? -p.v[k] : p.v[k]) : 1.0;
        const double lim = tol * (tol + sc);
        if (!(step[k] <= lim && -step[k] <= lim)) return false;
    }
    return true;
}

}  // namespace ellipse_detail
}  // namespace math

#endif
