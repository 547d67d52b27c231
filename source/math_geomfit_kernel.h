// Kernels shared by the iterative geometric fits of approximate<T> (private to
// the library's sources): normalisation of a point set, small dense Cholesky
// solves, the damped Gauss-Newton driver and the filling of the records.
//
// All iterations run in double on coordinates q = (p - m) * is, m the
// centroid and 1/is the RMS distance of the points from it, computed on the
// fly from the caller's points (no copy, no allocation).
#ifndef MATH_GEOMFIT_KERNEL_H
#define MATH_GEOMFIT_KERNEL_H

#include <math/approximate.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

namespace math {
namespace geomfit_detail {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

template <class T>
inline void loadPt(Cpoint2<T> const& p, double* q) {
    q[0] = static_cast<double>(p.x);
    q[1] = static_cast<double>(p.y);
}
template <class T>
inline void loadPt(Cpoint3<T> const& p, double* q) {
    q[0] = static_cast<double>(p.x);
    q[1] = static_cast<double>(p.y);
    q[2] = static_cast<double>(p.z);
}

// Centroid and inverse RMS distance of a point set.  False for non-finite
// coordinates (checked point by point, the scan ends at the first one) and for
// coincident points (zero spread).
template <int D, class Pt>
struct Frame {
    double m[D];
    double scale;     // RMS distance from the centroid
    double invScale;  // 1 / scale
    double S[D][D];   // scatter of the normalised points, divided by n (trace 1)

    bool set(CpointSpan<Pt> pts) {
        const std::size_t n = pts.size();
        double s[D] = {};
        for (std::size_t i = 0; i < n; ++i) {
            double q[D];
            loadPt(pts[i], q);
            for (int k = 0; k < D; ++k) {
                if (!std::isfinite(q[k])) return false;
                s[k] += q[k];
            }
        }
        for (int k = 0; k < D; ++k) m[k] = s[k] / static_cast<double>(n);
        double C[D][D] = {};
        for (std::size_t i = 0; i < n; ++i) {
            double q[D];
            loadPt(pts[i], q);
            for (int k = 0; k < D; ++k) q[k] -= m[k];
            for (int a = 0; a < D; ++a)
                for (int b = a; b < D; ++b) C[a][b] += q[a] * q[b];
        }
        double ss = 0.0;
        for (int k = 0; k < D; ++k) ss += C[k][k];
        scale = std::sqrt(ss / static_cast<double>(n));
        if (!(scale > 0.0) || !std::isfinite(scale)) return false;
        invScale = 1.0 / scale;
        for (int a = 0; a < D; ++a)
            for (int b = a; b < D; ++b) S[a][b] = S[b][a] = C[a][b] / ss;
        return true;
    }
    // Normalised coordinates of a point.
    inline void norm(Pt const& p, double* q) const {
        loadPt(p, q);
        for (int k = 0; k < D; ++k) q[k] = (q[k] - m[k]) * invScale;
    }
};

// Normal equations J^T J, J^T r and the sum of squares of one evaluation.
template <int P>
struct Normal {
    double A[P][P];
    double g[P];
    double cost;

    void clear() {
        for (int i = 0; i < P; ++i) {
            g[i] = 0.0;
            for (int j = 0; j < P; ++j) A[i][j] = 0.0;
        }
        cost = 0.0;
    }
    // Adds one residual r with Jacobian row J (upper triangle of A only).
    inline void add(const double* J, double r) {
        for (int i = 0; i < P; ++i) {
            const double ji = J[i];
            g[i] += ji * r;
            for (int j = i; j < P; ++j) A[i][j] += ji * J[j];
        }
        cost += r * r;
    }
    // Mirrors the upper triangle and reports whether everything is finite.
    bool finish() {
        bool ok = std::isfinite(cost);
        for (int i = 0; i < P; ++i) {
            ok = ok && std::isfinite(g[i]);
            for (int j = i; j < P; ++j) {
                ok = ok && std::isfinite(A[i][j]);
                A[j][i] = A[i][j];
            }
        }
        return ok;
    }
};

// Cholesky factor L of A + mu*I (lower, in place of a copy); false when a
// pivot is not positive or is below 1e-15 of the largest diagonal.
template <int P>
bool cholesky(const double A[P][P], double mu, double L[P][P]) {
    double maxd = 0.0;
    for (int i = 0; i < P; ++i) maxd = std::max(maxd, A[i][i] + mu);
    for (int i = 0; i < P; ++i) {
        for (int j = 0; j <= i; ++j) {
            double s = A[i][j] + (i == j ? mu : 0.0);
            for (int k = 0; k < j; ++k) s -= L[i][k] * L[j][k];
            if (i == j) {
                if (!(s > 1e-15 * maxd)) return false;
                L[i][i] = std::sqrt(s);
            } else {
                L[i][j] = s / L[j][j];
            }
        }
        for (int j = i + 1; j < P; ++j) L[i][j] = 0.0;
    }
    return true;
}

template <int P>
void cholSolve(const double L[P][P], const double* b, double* x) {
    double y[P];
    for (int i = 0; i < P; ++i) {
        double s = b[i];
        for (int k = 0; k < i; ++k) s -= L[i][k] * y[k];
        y[i] = s / L[i][i];
    }
    for (int i = P - 1; i >= 0; --i) {
        double s = y[i];
        for (int k = i + 1; k < P; ++k) s -= L[k][i] * x[k];
        x[i] = s / L[i][i];
    }
}

// (J^T J)^-1, or NaN everywhere when J^T J is singular.
template <int P>
void inverse(const double A[P][P], double inv[P][P]) {
    double L[P][P];
    if (!cholesky<P>(A, 0.0, L)) {
        for (int i = 0; i < P; ++i)
            for (int j = 0; j < P; ++j) inv[i][j] = kNaN;
        return;
    }
    for (int c = 0; c < P; ++c) {
        double e[P] = {}, x[P];
        e[c] = 1.0;
        cholSolve<P>(L, e, x);
        for (int i = 0; i < P; ++i) inv[i][c] = x[i];
    }
}

constexpr double kEps = 2.220446049250313e-16;

// max_j |(J^T r)_j| / |J_j|.
template <int P>
double gradMeasure(Normal<P> const& ne) {
    double m = 0.0;
    for (int i = 0; i < P; ++i) m = std::max(m, std::fabs(ne.g[i]) / std::sqrt(ne.A[i][i]));
    return m;
}

struct Outcome {
    std::uint32_t iterations = 0u;
    bool converged = false;
};

// Damped Gauss-Newton.  The model provides
//   State state;                               the current parameters
//   bool evaluate(State const&, Normal<P>&);   one pass: J^T J, J^T r, cost
//                                              (false: non-finite or outside
//                                              the domain, e.g. r < 0)
//   State step(State const&, const double* d); parameters moved by d
//   double norm(State const&);                 |x| for the step test
//   std::size_t count();                        number of residuals
// On return model.state is the last accepted state and ne its normal
// equations.  Every loop is bounded: each pass counts against maxIter, and
// the damping can grow only up to 1e20 times the largest diagonal.
template <int P, class Model>
Outcome solve(Model& model, Normal<P>& ne, double stepTol, double gradTol, double initDamping,
              std::uint32_t maxIter) {
    Outcome out;
    if (maxIter == 0u) return out;
    out.iterations = 1u;
    if (!model.evaluate(model.state, ne)) return out;
    if (!(initDamping > 0.0) || !std::isfinite(initDamping)) initDamping = 1e-3;
    double mu = 0.0, nu = 2.0;
    const double costRound = 32.0 * kEps * std::sqrt(static_cast<double>(model.count()) + 1.0);
    Normal<P> trial;
    for (;;) {
        double maxd = 0.0;
        for (int i = 0; i < P; ++i) maxd = std::max(maxd, ne.A[i][i]);
        if (!(maxd > 0.0)) return out;
        bool gradSmall = true;
        for (int i = 0; i < P; ++i)
            if (std::fabs(ne.g[i]) > gradTol * std::sqrt(ne.A[i][i] * ne.cost)) gradSmall = false;
        if (gradSmall) {
            out.converged = true;
            return out;
        }
        if (out.iterations >= maxIter) return out;
        double L[P][P], d[P], mg[P];
        if (!cholesky<P>(ne.A, mu, L)) {
            mu = (mu == 0.0) ? initDamping * maxd : mu * nu;
            nu *= 2.0;
            if (!(mu < 1e20 * maxd)) return out;
            continue;
        }
        for (int i = 0; i < P; ++i) mg[i] = -ne.g[i];
        cholSolve<P>(L, mg, d);
        double dn = 0.0, pred = 0.0;
        for (int i = 0; i < P; ++i) {
            dn += d[i] * d[i];
            double ad = 0.0;
            for (int j = 0; j < P; ++j) ad += ne.A[i][j] * d[j];
            pred -= d[i] * (2.0 * ne.g[i] + ad);
        }
        dn = std::sqrt(dn);
        const bool stepSmall = dn <= stepTol * (model.norm(model.state) + stepTol);
        typename Model::State ts = model.step(model.state, d);
        const bool ok = model.evaluate(ts, trial);
        ++out.iterations;
        // Near the minimum the change of the sum of squares drowns in its
        // rounding (about eps * sqrt(number of residuals) relative); there a
        // step is also taken when the sum stays within that rounding and the
        // gradient shrinks.
        const bool flat = ok && trial.cost <= ne.cost * (1.0 + costRound) &&
                          gradMeasure<P>(trial) < gradMeasure<P>(ne);
        if (ok && (trial.cost < ne.cost || flat || (stepSmall && trial.cost <= ne.cost))) {
            const double rho = pred > 0.0 ? (ne.cost - trial.cost) / pred : 0.0;
            model.state = ts;
            ne = trial;
            if (mu > 0.0) {
                const double t = 2.0 * rho - 1.0;
                mu *= std::max(1.0 / 3.0, 1.0 - t * t * t);
                if (mu < 1e-12 * maxd) mu = 0.0;
            }
            nu = 2.0;
        } else if (!stepSmall) {
            mu = (mu == 0.0) ? initDamping * maxd : mu * nu;
            nu *= 2.0;
            if (!(mu < 1e20 * maxd)) return out;
        }
        if (stepSmall) {
            out.converged = true;
            return out;
        }
    }
}

// An orthonormal pair (u, v) across the unit vector w, (u, v, w) right-handed;
// a fixed function of w (u built from the coordinate axis of w's smallest
// component).
inline void basis(const double* w, double* u, double* v) {
    int k = 0;
    if (std::fabs(w[1]) < std::fabs(w[k])) k = 1;
    if (std::fabs(w[2]) < std::fabs(w[k])) k = 2;
    double e[3] = {0.0, 0.0, 0.0};
    e[k] = 1.0;
    // u = e x w, normalised
    u[0] = e[1] * w[2] - e[2] * w[1];
    u[1] = e[2] * w[0] - e[0] * w[2];
    u[2] = e[0] * w[1] - e[1] * w[0];
    const double l = std::sqrt(u[0] * u[0] + u[1] * u[1] + u[2] * u[2]);
    for (int i = 0; i < 3; ++i) u[i] /= l;
    v[0] = w[1] * u[2] - w[2] * u[1];
    v[1] = w[2] * u[0] - w[0] * u[2];
    v[2] = w[0] * u[1] - w[1] * u[0];
}

inline double dot3(const double* a, const double* b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

inline bool normalise3(double* w) {
    const double l = std::sqrt(dot3(w, w));
    if (!(l > 0.0) || !std::isfinite(l)) return false;
    for (int i = 0; i < 3; ++i) w[i] /= l;
    return true;
}

// The direction turned so that its largest-magnitude component is positive.
inline void orient3(double* w) {
    int k = 0;
    if (std::fabs(w[1]) > std::fabs(w[k])) k = 1;
    if (std::fabs(w[2]) > std::fabs(w[k])) k = 2;
    if (w[k] < 0.0)
        for (int i = 0; i < 3; ++i) w[i] = -w[i];
}

// Eigen decomposition of a symmetric 3x3 matrix by cyclic Jacobi rotations
// (at most 50 sweeps): eigenvalues ev ascending, eigenvector k in column k of V.
void symEigen3(const double S[3][3], double ev[3], double V[3][3]);

// Planar circle by Taubin's algebraic fit on normalised coordinates, from the
// centred moments (means of x, y, xx, xy, yy, xz, yz, zz with z = x^2 + y^2,
// taken about the mean of the points).  False when the points are collinear
// (or nearly so: radius above 1e12 in normalised units).
struct Moments2 {
    double mx, my, xx, xy, yy, xz, yz, zz;
};
bool taubinCircle(Moments2 const& M, double& cx, double& cy, double& r);

// Standard uncertainty sqrt(sigma2 * a^T C a) of the linear combination a of
// parameters with covariance C / sigma2 = inv (P x P, only the first K entries
// of a non-zero).
template <int P>
double combUnc(const double inv[P][P], double sigma2, const double* a, int K) {
    double s = 0.0;
    for (int i = 0; i < K; ++i)
        for (int j = 0; j < K; ++j) s += a[i] * inv[i][j] * a[j];
    return std::sqrt(sigma2 * s);
}

// Marks every value field of a record NaN (iterations and converged are set by
// the caller).
template <class R>
void clearRecord(R& rec) {
    const auto it = rec.iterations;
    const bool cv = rec.converged;
    rec = R();
    rec.iterations = it;
    rec.converged = cv;
}

}  // namespace geomfit_detail
}  // namespace math

#endif
