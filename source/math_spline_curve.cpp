// Cspline: B-spline curves in space, their evaluation and least-squares fits.
#include "math_spline_detail.h"

#include <cmath>
#include <limits>

namespace math {

using namespace spline_detail;

namespace {

// Basis of a valid curve with ctrlCount control points; throws for the empty
// curve and for a shared basis whose knot count no longer fits.
CsplineBasis const& usable(TsplineBasisPtr const& b, std::size_t nCtrl) {
    if (!b || nCtrl == 0) fail(CthrowSpline::ERR_INVALID_CTRLPTS);
    CsplineBasis const& basis = *b;
    if (basis.order() < 2 || basis.knots().size() != std::size_t(basis.order()) + nCtrl)
        fail(CthrowSpline::ERR_INVALID_ARRAY);
    return basis;
}

// Point (and derivatives when d1 != nullptr) at t.
void evaluate(CsplineBasis const& basis, CbaseVecN<Tpoint> const& P, std::vector<double> const& w, double t,
              Tpoint& p, Tpoint* d1, Tpoint* d2) {
    const unsigned k = unsigned(basis.order());
    LocalBuf buf;
    double* N = buf.get(k, 3);
    double* D1 = d1 ? N + k : nullptr;
    double* D2 = d1 ? N + 2 * k : nullptr;
    unsigned f = 0;
    if (!basis.localBasis(t, f, N, D1, D2)) fail(CthrowSpline::ERR_INVALID_ARGUMENT);
    Tpoint const* Q = P.data() + f;
    if (w.empty()) {
        Tpoint a;
        for (unsigned j = 0; j < k; ++j) a += Q[j] * N[j];
        p = a;
        if (d1) {
            Tpoint b, c;
            for (unsigned j = 0; j < k; ++j) {
                b += Q[j] * D1[j];
                c += Q[j] * D2[j];
            }
            *d1 = b;
            *d2 = c;
        }
        return;
    }
    // Rational: C = A / W, C' = (A' - W' C) / W, C'' = (A'' - 2 W' C' - W'' C) / W.
    double const* wq = w.data() + f;
    Tpoint A;
    double W = 0.0;
    for (unsigned j = 0; j < k; ++j) {
        const double wn = wq[j] * N[j];
        A += Q[j] * wn;
        W += wn;
    }
    if (std::fabs(W) < CsplineBasis::EPS()) fail(CthrowSpline::ERR_INVALID_DIVISION);
    const Tpoint C = A / W;
    p = C;
    if (!d1) return;
    Tpoint A1, A2;
    double W1 = 0.0, W2 = 0.0;
    for (unsigned j = 0; j < k; ++j) {
        const double w1 = wq[j] * D1[j], w2 = wq[j] * D2[j];
        A1 += Q[j] * w1;
        A2 += Q[j] * w2;
        W1 += w1;
        W2 += w2;
    }
    const Tpoint C1 = (A1 - C * W1) / W;
    *d1 = C1;
    *d2 = (A2 - C1 * (2.0 * W1) - C * W2) / W;
}

// Solves the least-squares control points for data at params on basis (all
// checked); returns the rms distance of the data from the fitted curve.
double fitOnBasis(TsplineBasisPtr const& bp, CbaseVecN<Tpoint> const& data, double const* params,
                  CbaseVecN<Tpoint>& ctrl) {
    CsplineBasis const& basis = *bp;
    const unsigned k = unsigned(basis.order());
    const unsigned n = basis.ctrlCount();
    CbandLsq sys(n, k, 3);
    // The basis values of every data point, kept for the residuals.
    CbaseVecN<double> Nall(data.size() * k);
    CbaseVecN<unsigned> fall(data.size());
    for (std::size_t j = 0; j < data.size(); ++j) {
        double* N = Nall.data() + j * k;
        if (!basis.localBasis(params[j], fall[j], N)) fail(CthrowSpline::ERR_INVALID_ARGUMENT);
        const unsigned f = fall[j];
        sys.addRow(f, N);
        Tpoint const& q = data[j];
        for (unsigned a = 0; a < k; ++a) {
            double* r = sys.rhs(f + a);
            r[0] += N[a] * q.x;
            r[1] += N[a] * q.y;
            r[2] += N[a] * q.z;
        }
    }
    if (!sys.solve()) fail(CthrowSpline::ERR_INVALID_DATA);
    CbaseVecN<Tpoint> P(n);
    for (unsigned i = 0; i < n; ++i) {
        double const* x = sys.solution(i);
        P[i] = Tpoint(x[0], x[1], x[2]);
    }
    double sum = 0.0;
    for (std::size_t j = 0; j < data.size(); ++j) {
        double const* N = Nall.data() + j * k;
        Tpoint const* Q = P.data() + fall[j];
        Tpoint c;
        for (unsigned a = 0; a < k; ++a) c += Q[a] * N[a];
        sum += (data[j] - c).squaredLength();
    }
    ctrl.swap(P);
    return std::sqrt(sum / double(data.size()));
}

}  // namespace

Cspline::Cspline() : m_basis(), m_ctrl(), m_w() {}

Cspline::Cspline(int order, CbaseVecN<Tpoint> const& ctrl, CsplineBasis::enKnots kind,
                 std::vector<double> const& weights) {
    if (kind != CsplineBasis::KNOT_OPEN && kind != CsplineBasis::KNOT_CHORD && kind != CsplineBasis::KNOT_PERIODIC)
        fail(CthrowSpline::ERR_INVALID_ARGUMENT);
    if (order < 2) fail(CthrowSpline::ERR_INVALID_ORDER);
    if (ctrl.size() < std::size_t(order)) fail(CthrowSpline::ERR_INVALID_CTRLPTS);
    checkWeights(weights, ctrl.size());
    checkPoints(ctrl);
    if (kind == CsplineBasis::KNOT_CHORD) {
        double L = 0.0;
        for (std::size_t j = 1; j < ctrl.size(); ++j) L += (ctrl[j] - ctrl[j - 1]).length();
        if (!(L > 0.0)) fail(CthrowSpline::ERR_INVALID_DATA);
    }
    TsplineBasisPtr b(new CsplineBasis(order, kind, ctrl));
    checkKnots(b->knots(), unsigned(order), ctrl.size());
    m_basis = b;
    m_ctrl = ctrl;
    m_w = weights;
}

Cspline::Cspline(TsplineBasisPtr const& basis, CbaseVecN<Tpoint> const& ctrl, std::vector<double> const& weights) {
    const unsigned k = checkedOrder(basis);
    if (ctrl.size() < k) fail(CthrowSpline::ERR_INVALID_CTRLPTS);
    checkWeights(weights, ctrl.size());
    checkKnots(basis->knots(), k, ctrl.size());
    checkPoints(ctrl);
    m_basis = basis;
    m_ctrl = ctrl;
    m_w = weights;
}

Cspline::Cspline(Cspline const& other) : m_basis(other.m_basis), m_ctrl(other.m_ctrl), m_w(other.m_w) {}

Cspline& Cspline::operator=(Cspline const& other) {
    Cspline tmp(other);
    swap(tmp);
    return *this;
}

Cspline::~Cspline() = default;

void Cspline::swap(Cspline& other) {
    m_basis.Swap(other.m_basis);
    m_ctrl.swap(other.m_ctrl);
    m_w.swap(other.m_w);
}

int Cspline::order() const { return m_basis ? m_basis->order() : 0; }

bool Cspline::isValid() const {
    return m_basis && !m_ctrl.empty() && m_basis->order() >= 2 &&
           m_basis->knots().size() == std::size_t(m_basis->order()) + m_ctrl.size();
}

double Cspline::tMin() const {
    return isValid() ? m_basis->knots()[std::size_t(m_basis->order()) - 1] : std::numeric_limits<double>::quiet_NaN();
}

double Cspline::tMax() const {
    return isValid() ? m_basis->knots()[m_ctrl.size()] : std::numeric_limits<double>::quiet_NaN();
}

void Cspline::setKnots(std::vector<double> const& knots) {
    CsplineBasis const& basis = usable(m_basis, m_ctrl.size());
    checkKnots(knots, unsigned(basis.order()), m_ctrl.size());
    TsplineBasisPtr b(new CsplineBasis(basis));
    b->replaceKnotVec(knots);
    m_basis = b;
}

Cspline::Tpoint Cspline::point(double t) const {
    Tpoint p;
    evaluate(usable(m_basis, m_ctrl.size()), m_ctrl, m_w, t, p, nullptr, nullptr);
    return p;
}

void Cspline::derivs(double t, Tpoint& p, Tpoint& d1, Tpoint& d2) const {
    Tpoint a, b, c;
    evaluate(usable(m_basis, m_ctrl.size()), m_ctrl, m_w, t, a, &b, &c);
    p = a;
    d1 = b;
    d2 = c;
}

double Cspline::fit(CbaseVecN<Tpoint> const& data, int order, unsigned nCtrl) {
    if (order < 2) fail(CthrowSpline::ERR_INVALID_ORDER);
    if (nCtrl < unsigned(order)) fail(CthrowSpline::ERR_INVALID_CTRLPTS);
    if (nCtrl > data.size()) fail(CthrowSpline::ERR_INVALID_FITCTRLPTS);
    checkPoints(data);
    const unsigned k = unsigned(order);
    CbaseVecN<double> t(data.size(), 0.0);
    if (!addChordParams(data.data(), data.size(), 1, double(nCtrl - k + 1), t.data()))
        fail(CthrowSpline::ERR_INVALID_DATA);
    TsplineBasisPtr b(new CsplineBasis(order, int(nCtrl)));
    b->replaceKnotVec(averagedKnots(k, nCtrl, t.data(), t.size()));
    CbaseVecN<Tpoint> P;
    const double rms = fitOnBasis(b, data, t.data(), P);
    m_basis = b;
    m_ctrl.swap(P);
    m_w.clear();
    return rms;
}

double Cspline::fit(CbaseVecN<Tpoint> const& data, std::vector<double> const& params, TsplineBasisPtr const& basis) {
    const unsigned k = checkedOrder(basis);
    const unsigned n = basis->ctrlCount();
    if (n < k) fail(CthrowSpline::ERR_INVALID_CTRLPTS);
    if (n > data.size()) fail(CthrowSpline::ERR_INVALID_FITCTRLPTS);
    if (params.size() != data.size()) fail(CthrowSpline::ERR_INVALID_ARRAY);
    checkKnots(basis->knots(), k, n);
    checkPoints(data);
    CbaseVecN<Tpoint> P;
    const double rms = fitOnBasis(basis, data, params.data(), P);
    m_basis = basis;
    m_ctrl.swap(P);
    m_w.clear();
    return rms;
}

}  // namespace math
