// CsplineSurf: tensor-product spline surfaces, their evaluation and grid fits.
#include "math_spline_detail.h"

#include <cmath>
#include <cstdint>
#include <limits>

namespace math {

using namespace spline_detail;

namespace {

// The net size nu * nv, refused (ERR_INVALID_ARRAY) unless it equals `size`.
void checkNet(std::size_t size, std::uint64_t nu, std::uint64_t nv) {
    if (std::uint64_t(size) != nu * nv) fail(CthrowSpline::ERR_INVALID_ARRAY);
}

CsplineBasis const& usable(TsplineBasisPtr const& b, unsigned nCtrl) {
    if (!b || nCtrl == 0) fail(CthrowSpline::ERR_INVALID_CTRLPTS);
    CsplineBasis const& basis = *b;
    if (basis.order() < 2 || basis.knots().size() != std::size_t(basis.order()) + nCtrl)
        fail(CthrowSpline::ERR_INVALID_ARRAY);
    return basis;
}

// Gives direction basis b the knots `knots` through a copy of it (the old
// basis may be shared with other surfaces or curves).
void replaceKnots(TsplineBasisPtr& b, unsigned nCtrl, std::vector<double> const& knots) {
    CsplineBasis const& basis = usable(b, nCtrl);
    checkKnots(knots, unsigned(basis.order()), nCtrl);
    TsplineBasisPtr copy(new CsplineBasis(basis));
    copy->replaceKnotVec(knots);
    b = copy;
}

double knotAt(TsplineBasisPtr const& b, unsigned nCtrl, bool upper) {
    if (!b || nCtrl == 0 || b->order() < 2 || b->knots().size() != std::size_t(b->order()) + nCtrl)
        return std::numeric_limits<double>::quiet_NaN();
    return b->knots()[upper ? nCtrl : unsigned(b->order()) - 1];
}

// Mean chord-length parameters over the rows of a grid: row r holds the m
// points p[r*rs + j*s], j < m; rows of zero length are left out.  False when
// every row has zero length.
bool meanParams(Tpoint const* p, std::size_t rows, std::size_t rs, std::size_t m, std::size_t s, double span,
                double* out) {
    std::size_t used = 0;
    for (std::size_t r = 0; r < rows; ++r)
        if (addChordParams(p + r * rs, m, s, span, out)) ++used;
    if (used == 0) return false;
    for (std::size_t j = 0; j < m; ++j) {
        const double t = out[j] / double(used);
        out[j] = t < span ? t : span;
    }
    return true;
}

}  // namespace

CsplineSurf::CsplineSurf() : m_nu(0), m_nv(0) {}

CsplineSurf::CsplineSurf(int ku, int kv, int nu, int nv, CbaseVecN<Tpoint> const& net,
                         std::vector<double> const& weights)
    : m_nu(0), m_nv(0) {
    if (ku < 2 || kv < 2) fail(CthrowSpline::ERR_INVALID_ORDER);
    if (nu < ku || nv < kv) fail(CthrowSpline::ERR_INVALID_CTRLPTS);
    checkNet(net.size(), unsigned(nu), unsigned(nv));
    checkWeights(weights, net.size());
    checkPoints(net);
    TsplineBasisPtr bu(new CsplineBasis(ku, nu));
    TsplineBasisPtr bv(new CsplineBasis(kv, nv));
    m_bu = bu;
    m_bv = bv;
    m_net = net;
    m_w = weights;
    m_nu = unsigned(nu);
    m_nv = unsigned(nv);
}

CsplineSurf::CsplineSurf(TsplineBasisPtr const& bu, TsplineBasisPtr const& bv, CbaseVecN<Tpoint> const& net,
                         std::vector<double> const& weights)
    : m_nu(0), m_nv(0) {
    const unsigned ku = checkedOrder(bu), kv = checkedOrder(bv);
    const unsigned nu = bu->ctrlCount(), nv = bv->ctrlCount();
    if (nu < ku || nv < kv) fail(CthrowSpline::ERR_INVALID_CTRLPTS);
    checkNet(net.size(), nu, nv);
    checkWeights(weights, net.size());
    checkKnots(bu->knots(), ku, nu);
    checkKnots(bv->knots(), kv, nv);
    checkPoints(net);
    m_bu = bu;
    m_bv = bv;
    m_net = net;
    m_w = weights;
    m_nu = nu;
    m_nv = nv;
}

CsplineSurf::CsplineSurf(CsplineSurf const& o)
    : m_bu(o.m_bu), m_bv(o.m_bv), m_net(o.m_net), m_w(o.m_w), m_nu(o.m_nu), m_nv(o.m_nv) {}

CsplineSurf& CsplineSurf::operator=(CsplineSurf const& other) {
    CsplineSurf tmp(other);
    swap(tmp);
    return *this;
}

CsplineSurf::~CsplineSurf() = default;

void CsplineSurf::swap(CsplineSurf& o) {
    m_bu.Swap(o.m_bu);
    m_bv.Swap(o.m_bv);
    m_net.swap(o.m_net);
    m_w.swap(o.m_w);
    std::swap(m_nu, o.m_nu);
    std::swap(m_nv, o.m_nv);
}

int CsplineSurf::orderU() const { return m_bu ? m_bu->order() : 0; }
int CsplineSurf::orderV() const { return m_bv ? m_bv->order() : 0; }

bool CsplineSurf::isValid() const { return !std::isnan(uMin()) && !std::isnan(vMin()); }

double CsplineSurf::uMin() const { return knotAt(m_bu, m_nu, false); }
double CsplineSurf::uMax() const { return knotAt(m_bu, m_nu, true); }
double CsplineSurf::vMin() const { return knotAt(m_bv, m_nv, false); }
double CsplineSurf::vMax() const { return knotAt(m_bv, m_nv, true); }

void CsplineSurf::setKnotsU(std::vector<double> const& knots) { replaceKnots(m_bu, m_nu, knots); }

void CsplineSurf::setKnotsV(std::vector<double> const& knots) { replaceKnots(m_bv, m_nv, knots); }

void CsplineSurf::derivs(double u, double v, Tpoint& p, Tpoint& du, Tpoint& dv) const {
    CsplineBasis const& bu = usable(m_bu, m_nu);
    CsplineBasis const& bv = usable(m_bv, m_nv);
    const unsigned ku = unsigned(bu.order()), kv = unsigned(bv.order());
    LocalBuf bufU, bufV;
    double* N = bufU.get(ku, 2);
    double* M = bufV.get(kv, 2);
    unsigned fu = 0, fv = 0;
    if (!bu.localBasis(u, fu, N, N + ku) || !bv.localBasis(v, fv, M, M + kv))
        fail(CthrowSpline::ERR_INVALID_ARGUMENT);
    double const* Nu = N + ku;
    double const* Mv = M + kv;
    // Homogeneous sums: A = sum w N M P, W = sum w N M and their u, v derivatives.
    Tpoint A, Au, Av;
    double W = 0.0, Wu = 0.0, Wv = 0.0;
    const bool rational = !m_w.empty();
    for (unsigned a = 0; a < ku; ++a) {
        Tpoint r, rv;
        double s = 0.0, sv = 0.0;
        const std::size_t row = std::size_t(fu + a) * m_nv + fv;
        Tpoint const* P = m_net.data() + row;
        for (unsigned b = 0; b < kv; ++b) {
            const double w = rational ? m_w[row + b] : 1.0;
            r += P[b] * (w * M[b]);
            rv += P[b] * (w * Mv[b]);
            s += w * M[b];
            sv += w * Mv[b];
        }
        A += r * N[a];
        Au += r * Nu[a];
        Av += rv * N[a];
        W += s * N[a];
        Wu += s * Nu[a];
        Wv += sv * N[a];
    }
    if (!rational) {
        p = A;
        du = Au;
        dv = Av;
        return;
    }
    if (std::fabs(W) < CsplineBasis::EPS()) fail(CthrowSpline::ERR_INVALID_DIVISION);
    const Tpoint S = A / W;
    p = S;
    du = (Au - S * Wu) / W;
    dv = (Av - S * Wv) / W;
}

CsplineSurf::Tpoint CsplineSurf::point(double u, double v) const {
    Tpoint p, du, dv;
    derivs(u, v, p, du, dv);
    return p;
}

Cdirec3<double> CsplineSurf::normal(double u, double v) const {
    Tpoint p, du, dv;
    derivs(u, v, p, du, dv);
    const Tpoint n = du.cross(dv);
    if (!(n.length() > tol::epsDouble * du.length() * dv.length())) {
        Cdirec3<double> bad(0.0, 0.0, 0.0, true);
        bad.invalidate();
        return bad;
    }
    return Cdirec3<double>(n);
}

double CsplineSurf::fit(CbaseVecN<Tpoint> const& grid, unsigned mu, unsigned mv, int ku, int kv, unsigned nu,
                        unsigned nv) {
    if (ku < 2 || kv < 2) fail(CthrowSpline::ERR_INVALID_ORDER);
    if (nu < unsigned(ku) || nv < unsigned(kv)) fail(CthrowSpline::ERR_INVALID_CTRLPTS);
    if (nu > mu || nv > mv) fail(CthrowSpline::ERR_INVALID_FITCTRLPTS);
    checkNet(grid.size(), mu, mv);
    checkPoints(grid);
    const unsigned Ku = unsigned(ku), Kv = unsigned(kv);
    // Parameters: along u the columns b (points a*mv + b), along v the rows a.
    CbaseVecN<double> tu(mu, 0.0), tv(mv, 0.0);
    if (!meanParams(grid.data(), mv, 1, mu, mv, double(nu - Ku + 1), tu.data()) ||
        !meanParams(grid.data(), mu, mv, mv, 1, double(nv - Kv + 1), tv.data()))
        fail(CthrowSpline::ERR_INVALID_DATA);
    TsplineBasisPtr bu(new CsplineBasis(ku, int(nu)));
    bu->replaceKnotVec(averagedKnots(Ku, nu, tu.data(), mu));
    TsplineBasisPtr bv(new CsplineBasis(kv, int(nv)));
    bv->replaceKnotVec(averagedKnots(Kv, nv, tv.data(), mv));

    // Columns with the u basis: R (nu x mv points) from the grid (mu x mv).
    LocalBuf buf;
    double* N = buf.get(Ku > Kv ? Ku : Kv, 1);
    CbandLsq su(nu, Ku, std::size_t(mv) * 3);
    for (unsigned a = 0; a < mu; ++a) {
        unsigned f = 0;
        if (!bu->localBasis(tu[a], f, N)) fail(CthrowSpline::ERR_INVALID_DATA);
        su.addRow(f, N);
        Tpoint const* q = grid.data() + std::size_t(a) * mv;
        for (unsigned c = 0; c < Ku; ++c) {
            double* r = su.rhs(f + c);
            for (unsigned b = 0; b < mv; ++b) {
                r[3 * b] += N[c] * q[b].x;
                r[3 * b + 1] += N[c] * q[b].y;
                r[3 * b + 2] += N[c] * q[b].z;
            }
        }
    }
    if (!su.solve()) fail(CthrowSpline::ERR_INVALID_DATA);
    // Rows of R with the v basis: P (nu x nv).
    CbandLsq sv(nv, Kv, std::size_t(nu) * 3);
    for (unsigned b = 0; b < mv; ++b) {
        unsigned f = 0;
        if (!bv->localBasis(tv[b], f, N)) fail(CthrowSpline::ERR_INVALID_DATA);
        sv.addRow(f, N);
        for (unsigned c = 0; c < Kv; ++c) {
            double* r = sv.rhs(f + c);
            for (unsigned i = 0; i < nu; ++i) {
                double const* R = su.solution(i) + 3 * std::size_t(b);
                r[3 * i] += N[c] * R[0];
                r[3 * i + 1] += N[c] * R[1];
                r[3 * i + 2] += N[c] * R[2];
            }
        }
    }
    if (!sv.solve()) fail(CthrowSpline::ERR_INVALID_DATA);
    CbaseVecN<Tpoint> net(std::size_t(nu) * nv);
    for (unsigned j = 0; j < nv; ++j) {
        double const* x = sv.solution(j);
        for (unsigned i = 0; i < nu; ++i) net[std::size_t(i) * nv + j] = Tpoint(x[3 * i], x[3 * i + 1], x[3 * i + 2]);
    }
    CsplineSurf s;
    s.m_bu = bu;
    s.m_bv = bv;
    s.m_net.swap(net);
    s.m_nu = nu;
    s.m_nv = nv;
    double sum = 0.0;
    for (unsigned a = 0; a < mu; ++a)
        for (unsigned b = 0; b < mv; ++b) sum += (grid[std::size_t(a) * mv + b] - s.point(tu[a], tv[b])).squaredLength();
    swap(s);
    return std::sqrt(sum / (double(mu) * double(mv)));
}

}  // namespace math
