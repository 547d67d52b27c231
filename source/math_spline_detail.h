// Private kernels shared by the spline curve and surface: argument checks,
// chord-length parameters, averaged knots and the banded least-squares system.
#ifndef MATH_SPLINE_DETAIL_H
#define MATH_SPLINE_DETAIL_H

#include <math/spline.h>

#include <cmath>
#include <cstddef>
#include <vector>

namespace math {
namespace spline_detail {

typedef Cpoint3<double> Tpoint;

[[noreturn]] inline void fail(int id) { throw CthrowSpline(id, ""); }

inline bool finite(Tpoint const& p) { return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z); }

inline void checkPoints(CbaseVecN<Tpoint> const& pts) {
    for (Tpoint const& p : pts)
        if (!finite(p)) fail(CthrowSpline::ERR_INVALID_DATA);
}

// Weights for nCtrl control points: none, or one finite positive weight each.
inline void checkWeights(std::vector<double> const& w, std::size_t nCtrl) {
    if (w.empty()) return;
    if (w.size() != nCtrl) fail(CthrowSpline::ERR_INVALID_CTRLWGHT);
    for (double v : w)
        if (!(v > 0.0) || !std::isfinite(v)) fail(CthrowSpline::ERR_INVALID_RATSUM);
}

// Knots of order k for n control points: count k + n, finite, non-decreasing,
// x[k-1] < x[n].
inline void checkKnots(std::vector<double> const& x, unsigned k, std::size_t n) {
    if (x.size() != std::size_t(k) + n) fail(CthrowSpline::ERR_INVALID_ARRAY);
    for (std::size_t i = 0; i < x.size(); ++i) {
        if (!std::isfinite(x[i])) fail(CthrowSpline::ERR_INVALID_DATA);
        if (i && x[i] < x[i - 1]) fail(CthrowSpline::ERR_INVALID_DATA);
    }
    if (!(x[k - 1] < x[n])) fail(CthrowSpline::ERR_INVALID_DATA);
}

// The order of a basis given to a curve or surface, checked: null basis,
// order < 2, fewer control points than the order.
inline unsigned checkedOrder(TsplineBasisPtr const& b) {
    if (!b) fail(CthrowSpline::ERR_INVALID_ARGUMENT);
    CsplineBasis const& basis = *b;
    if (basis.order() < 2) fail(CthrowSpline::ERR_INVALID_ORDER);
    return unsigned(basis.order());
}

// Room for `count` arrays of k doubles: on the stack up to order 64.
class LocalBuf {
public:
    double* get(unsigned k, unsigned count) {
        if (k <= 64) return m_stack;
        m_heap.resize(std::size_t(k) * count);
        return m_heap.data();
    }

private:
    double m_stack[3 * 64];
    CbaseVecN<double> m_heap;
};

// Chord-length parameters t_j = (n-k+1) C_j / L of the m points p[0], p[s],
// p[2s], ... added to out[j] (so that rows can be averaged); false, with
// nothing added, when the total length L is 0 (or not finite).
inline bool addChordParams(Tpoint const* p, std::size_t m, std::size_t s, double span, double* out) {
    CbaseVecN<double> C(m);
    double L = 0.0;
    for (std::size_t j = 1; j < m; ++j) {
        L += (p[j * s] - p[(j - 1) * s]).length();
        C[j] = L;
    }
    if (!(L > 0.0) || !std::isfinite(L)) return false;
    for (std::size_t j = 1; j < m; ++j) {
        const double t = span * C[j] / L;
        out[j] += t < span ? t : span;
    }
    return true;
}

// Clamped knots of order k for n control points whose interior ones average
// the m parameters t: d = m / (n-k+1), for j = 1 ... n-k: i = floor(j d),
// a = j d - i, x[k-1+j] = (1-a) t[i-1] + a t[i].
inline std::vector<double> averagedKnots(unsigned k, unsigned n, double const* t, std::size_t m) {
    std::vector<double> x(std::size_t(k) + n);
    const double span = double(n - k + 1);
    const double d = double(m) / span;
    for (unsigned i = 0; i < k; ++i) {
        x[i] = 0.0;
        x[n + i] = span;
    }
    for (unsigned j = 1; j + k <= n; ++j) {
        const double jd = double(j) * d;
        std::size_t i = std::size_t(std::floor(jd));
        if (i < 1) i = 1;
        if (i > m - 1) i = m - 1;
        const double a = jd - double(i);
        x[k - 1 + j] = (1.0 - a) * t[i - 1] + a * t[i];
    }
    return x;
}

// Symmetric positive definite band system A X = B of n unknowns, half
// bandwidth k - 1, with c right-hand-side columns.  A's lower band is kept row
// by row (A(i, j) at band[i*k + j - i + k - 1]), B row-major n x c.  Rows of
// the normal equations are added one data point at a time; solve() factors A
// = L L^T in place (banded Cholesky) and overwrites B with X.
class CbandLsq {
public:
    CbandLsq(unsigned n, unsigned k, std::size_t c)
        : m_n(n), m_k(k), m_c(c), m_band(std::size_t(n) * k, 0.0), m_rhs(std::size_t(n) * c, 0.0) {}

    // Adds N N^T at rows/columns first ... first+k-1.
    void addRow(unsigned first, double const* N) {
        for (unsigned a = 0; a < m_k; ++a) {
            double* row = &m_band[std::size_t(first + a) * m_k + (m_k - 1 - a)];
            for (unsigned b = 0; b <= a; ++b) row[b] += N[a] * N[b];
        }
    }
    double* rhs(unsigned row) { return &m_rhs[std::size_t(row) * m_c]; }
    double const* solution(unsigned row) const { return &m_rhs[std::size_t(row) * m_c]; }

    // False when A is not (numerically) positive definite: a pivot not above
    // k * 2^-52 times its diagonal element.
    bool solve() {
        const unsigned p = m_k - 1;
        for (unsigned i = 0; i < m_n; ++i) {
            const unsigned j0 = i > p ? i - p : 0;
            for (unsigned j = j0; j <= i; ++j) {
                const unsigned l0 = j > p && j - p > j0 ? j - p : j0;
                double s = at(i, j);
                for (unsigned l = l0; l < j; ++l) s -= at(i, l) * at(j, l);
                if (j < i) {
                    at(i, j) = s / at(j, j);
                } else {
                    if (!(s > double(m_k) * tol::epsDouble * at(i, i)) || !std::isfinite(s)) return false;
                    at(i, i) = std::sqrt(s);
                }
            }
        }
        for (unsigned i = 0; i < m_n; ++i) {  // L y = b
            double* yi = rhs(i);
            for (unsigned l = i > p ? i - p : 0; l < i; ++l) {
                const double Lil = at(i, l);
                double const* yl = rhs(l);
                for (std::size_t c = 0; c < m_c; ++c) yi[c] -= Lil * yl[c];
            }
            const double d = at(i, i);
            for (std::size_t c = 0; c < m_c; ++c) yi[c] /= d;
        }
        for (unsigned i = m_n; i-- > 0;) {  // L^T x = y
            double* xi = rhs(i);
            const unsigned lend = i + p < m_n - 1 ? i + p : m_n - 1;
            for (unsigned l = i + 1; l <= lend; ++l) {
                const double Lli = at(l, i);
                double const* xl = rhs(l);
                for (std::size_t c = 0; c < m_c; ++c) xi[c] -= Lli * xl[c];
            }
            const double d = at(i, i);
            for (std::size_t c = 0; c < m_c; ++c) xi[c] /= d;
        }
        return true;
    }

private:
    // A(i, j), L(i, j) for i - k < j <= i.
    double& at(unsigned i, unsigned j) { return m_band[std::size_t(i) * m_k + (j + m_k - 1 - i)]; }

    unsigned m_n, m_k;
    std::size_t m_c;
    CbaseVecN<double> m_band, m_rhs;
};

}  // namespace spline_detail
}  // namespace math

#endif
