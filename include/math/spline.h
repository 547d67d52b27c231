// B-spline bases, spline curves and tensor-product spline surfaces (double only).
//
// CsplineBasis owns a knot vector x and the order k (degree + 1) and evaluates
// the k basis functions that can be non-zero at a parameter t.  It is shared by
// reference count (TsplineBasisPtr) between the curves and surfaces using it.
//
// Cspline is a B-spline curve in space, rational when weights are given:
//   C(t) = sum_i w_i N_i(t) P_i / sum_i w_i N_i(t),  t in [x[k-1], x[n]]
// CsplineSurf is the tensor product of a u and a v basis over a row-major
// control net P(i, j) = net[i * nv + j].
//
// Usage:
//   CbaseVecN<Cpoint3<double>> data = ...;              // measured points in order
//   Cspline c;
//   double rms = c.fit(data, 4, 20);                     // cubic, 20 control points
//   Cpoint3<double> p = c.point(0.5 * (c.tMin() + c.tMax()));
//
// Errors are CthrowSpline exceptions with empty information (see each class).
#ifndef MATH_SPLINE_H
#define MATH_SPLINE_H

#include <math/basevec.h>
#include <math/errors.h>
#include <math/export.h>
#include <math/point.h>

// Loki's small-object pool (which holds the reference counts) is a singleton
// defined in header templates: it must have default visibility so that this
// library, libloki and the application share one pool.
#pragma GCC visibility push(default)
#include <loki/SmartPtr.h>
#pragma GCC visibility pop

#include <cstddef>
#include <vector>

namespace math {

// The knot vector and order of a B-spline.
//
// The knots are kept exactly as built or given: open uniform knots are the
// integers 0 ... n-k+1 (not normalised to [0, 1]).  Nothing is validated
// except negative order or count (CthrowSpline::ERR_INVALID_ARGUMENT); the
// curve and surface classes check their bases before use.
//
// basis/dbasis work on a caller's N (D1, D2) with one entry per knot interval
// (knot count - 1; resized to that when sized otherwise).  Their quirks are
// kept as users rely on them:
//   - the first pass writes N[0 .. size-2]; the last entry is read as given
//     (pass it zero), so t in the last interval of a periodic vector has no 1;
//   - span receives the first of the k functions that can be non-zero, i.e.
//     interval + 1 - k in unsigned arithmetic; t in no interval (outside the
//     knots, NaN) leaves N zero and span = caller's span + 1 - k;
//   - at exactly the last knot the last non-empty interval gets the 1 and the
//     recursion runs from its window (clamped: N[n-1] = 1, derivatives from the
//     left), but span is size(N) - k - 1 from basis and size(N) - k - 3 from
//     dbasis (two less);
//   - the recursion never reads a knot past the last one.
// rbasis divides by S = sum w[i] N[i] over the window and throws
// ERR_INVALID_DIVISION when |S| < EPS().
class METROMATH_API CsplineBasis {
public:
    enum enKnots { KNOT_OPEN = 0, KNOT_CHORD = 1, KNOT_PERIODIC = 2 };

    // 2.220446049250313e-16, the threshold of rbasis.
    static double EPS();

    // Order k, n control points, open uniform knots: k zeros, 1, 2, ..., k copies of n-k+1.
    CsplineBasis(int order, int nCtrl);
    // n = points.size(); KNOT_OPEN as above, KNOT_PERIODIC x[i] = i, KNOT_CHORD the
    // chord-length knots ((n-k+1) C_i + i d_i) / L (d_i the i-th chord, C_i the sum of
    // the first i; coincident points give NaN knots).  Any other kind leaves k + n zeros.
    CsplineBasis(int order, enKnots kind, CbaseVecN<Cpoint3<double>> const& points);
    CsplineBasis(CsplineBasis const& other);
    CsplineBasis& operator=(CsplineBasis const& other);
    ~CsplineBasis();

    void replaceKnotVec(std::vector<double> const& knots);

    void basis(double const& t, std::vector<double>& N, unsigned int& span) const;
    void dbasis(double const& t, std::vector<double>& N, std::vector<double>& D1, std::vector<double>& D2,
                unsigned int& span) const;
    void rbasis(std::vector<double>& N, std::vector<double> const& w, unsigned int const& span) const;

    // The k values N_first ... N_first+k-1 (and first and second derivatives when
    // D1, D2 are given; each array holds k entries) at t in [x[k-1], x[n]], n the
    // control count, in O(log n + k^2) without allocation (D2 without D1: orders
    // up to 64).  Bit for bit the values of basis/dbasis at first ... first+k-1
    // (with N's last entry zero).  At x[n] the limit from the left is taken: the
    // last non-empty interval before x[n], as basis does at the last knot of a
    // clamped vector.  first is the true first index (basis reports another span
    // at the last knot).  False, with nothing written, for t outside the range or
    // NaN, order < 1, fewer knots than 2k, or no non-empty interval in the range.
    bool localBasis(double t, unsigned& first, double* N, double* D1 = nullptr, double* D2 = nullptr) const;

    std::vector<double> const& knots() const { return m_knots; }
    int order() const { return m_order; }
    // knot count - order (0 when there are fewer knots).
    unsigned ctrlCount() const;

    // Bases live in tracked memory.
    static void* operator new(std::size_t size);
    static void operator delete(void* p) noexcept;

private:
    void evalFull(double t, double* N, double* D1, double* D2, std::size_t sz, unsigned& span,
                  unsigned endSpanLess) const;
    void knot(unsigned n);
    void knotu(unsigned n);
    void knotc(CbaseVecN<Cpoint3<double>> const& points);

    std::vector<double> m_knots;
    int m_order;
};

typedef Loki::SmartPtr<CsplineBasis, Loki::RefCounted> TsplineBasisPtr;

// A B-spline curve in space, rational when weights are given.  Copies share the
// basis; setKnots and fit give the curve a basis of its own.
//
// Invariants of a valid curve: order >= 2, ctrlCount >= order, knot count =
// order + ctrlCount, finite non-decreasing knots with x[k-1] < x[n], finite
// control points, no weights or one finite positive weight per control point.
// The empty curve (default constructed) is invalid; evaluating it throws
// ERR_INVALID_CTRLPTS.  A shared basis changed afterwards to another knot count
// makes the curve invalid (evaluation throws ERR_INVALID_ARRAY).
//
// Errors (CthrowSpline, checked in this order): ERR_INVALID_ARGUMENT null basis
// or unknown knot kind; ERR_INVALID_ORDER order < 2; ERR_INVALID_CTRLPTS fewer
// control points than the order; ERR_INVALID_FITCTRLPTS more control points
// than data; ERR_INVALID_CTRLWGHT weight count != control count;
// ERR_INVALID_RATSUM a weight <= 0 or not finite; ERR_INVALID_ARRAY knot count
// != order + control count, parameter count != data count; ERR_INVALID_DATA
// non-finite point or knot, decreasing knots, empty parameter range, zero
// chord length, a fit system not positive definite; ERR_INVALID_ARGUMENT t
// outside [tMin, tMax] or NaN; ERR_INVALID_DIVISION a rational weight sum
// below CsplineBasis::EPS() (as rbasis).  A failed call leaves the object
// unchanged.
class METROMATH_API Cspline {
public:
    typedef Cpoint3<double> Tpoint;

    Cspline();
    Cspline(int order, CbaseVecN<Tpoint> const& ctrl, CsplineBasis::enKnots kind = CsplineBasis::KNOT_OPEN,
            std::vector<double> const& weights = {});
    Cspline(TsplineBasisPtr const& basis, CbaseVecN<Tpoint> const& ctrl, std::vector<double> const& weights = {});
    Cspline(Cspline const& other);
    Cspline& operator=(Cspline const& other);
    ~Cspline();

    int order() const;
    unsigned ctrlCount() const { return static_cast<unsigned>(m_ctrl.size()); }
    bool isRational() const { return !m_w.empty(); }
    bool isValid() const;
    TsplineBasisPtr const& basis() const { return m_basis; }
    CbaseVecN<Tpoint> const& ctrlPoints() const { return m_ctrl; }
    std::vector<double> const& weights() const { return m_w; }
    // x[k-1] and x[n]; quiet NaN for an invalid curve.
    double tMin() const;
    double tMax() const;

    // Replaces the knots (count order + ctrlCount, finite, non-decreasing,
    // x[k-1] < x[n]) on a new basis of this curve's own.
    void setKnots(std::vector<double> const& knots);

    // Evaluation on [tMin, tMax] inclusive; tMax is the limit from the left.
    // No allocation for orders up to 64.
    Tpoint point(double t) const;
    void derivs(double t, Tpoint& p, Tpoint& d1, Tpoint& d2) const;

    // Least-squares fit of n control points of order k to data in their order:
    // chord-length parameters t_j = (n-k+1) C_j / L, clamped knots whose interior
    // ones average the parameters (every span holds data), banded normal
    // equations solved by banded Cholesky.  Returns sqrt(sum |P_j - C(t_j)|^2 / m).
    double fit(CbaseVecN<Tpoint> const& data, int order, unsigned nCtrl);
    // The same on a given basis (shared, not copied) and given parameters.
    double fit(CbaseVecN<Tpoint> const& data, std::vector<double> const& params, TsplineBasisPtr const& basis);

    void swap(Cspline& other);

private:
    TsplineBasisPtr m_basis;
    CbaseVecN<Tpoint> m_ctrl;
    std::vector<double> m_w;
};

// A tensor-product B-spline surface S(u, v) = sum_ij w_ij N_i(u) M_j(v) P_ij /
// sum_ij w_ij N_i(u) M_j(v), net and weights row-major: P(i, j) = net[i*nv + j],
// i along u, j along v.  Invariants and errors as for Cspline per direction;
// ERR_INVALID_ARRAY also when the net or grid size != the product of the counts.
class METROMATH_API CsplineSurf {
public:
    typedef Cpoint3<double> Tpoint;

    CsplineSurf();
    // Open uniform knots in both directions.
    CsplineSurf(int ku, int kv, int nu, int nv, CbaseVecN<Tpoint> const& net, std::vector<double> const& weights = {});
    CsplineSurf(TsplineBasisPtr const& bu, TsplineBasisPtr const& bv, CbaseVecN<Tpoint> const& net,
                std::vector<double> const& weights = {});
    CsplineSurf(CsplineSurf const& other);
    CsplineSurf& operator=(CsplineSurf const& other);
    ~CsplineSurf();

    int orderU() const;
    int orderV() const;
    unsigned ctrlCountU() const { return m_nu; }
    unsigned ctrlCountV() const { return m_nv; }
    bool isRational() const { return !m_w.empty(); }
    bool isValid() const;
    TsplineBasisPtr const& basisU() const { return m_bu; }
    TsplineBasisPtr const& basisV() const { return m_bv; }
    CbaseVecN<Tpoint> const& ctrlPoints() const { return m_net; }
    std::vector<double> const& weights() const { return m_w; }
    double uMin() const;
    double uMax() const;
    double vMin() const;
    double vMax() const;
    void setKnotsU(std::vector<double> const& knots);
    void setKnotsV(std::vector<double> const& knots);

    Tpoint point(double u, double v) const;
    void derivs(double u, double v, Tpoint& p, Tpoint& du, Tpoint& dv) const;
    // Unit normal du x dv; invalid where |du x dv| <= 2^-52 |du| |dv| (it vanishes).
    Cdirec3<double> normal(double u, double v) const;

    // Least squares of a row-major grid of mu x mv points (Q(a, b) = grid[a*mv + b],
    // a along u): per direction the mean chord-length parameters of its rows
    // (rows of zero length left out), averaged knots, the columns fitted with the
    // u basis, then the rows of that with the v basis (the exact least squares of
    // the full grid).  Returns sqrt(sum |Q - S(u_a, v_b)|^2 / (mu mv)).
    double fit(CbaseVecN<Tpoint> const& grid, unsigned mu, unsigned mv, int ku, int kv, unsigned nu, unsigned nv);

    void swap(CsplineSurf& other);

private:
    TsplineBasisPtr m_bu, m_bv;
    CbaseVecN<Tpoint> m_net;
    std::vector<double> m_w;
    unsigned m_nu, m_nv;
};

}  // namespace math

#endif
