#include <math/spline.h>

#include <gtest/gtest.h>
#include <unsupported/Eigen/Splines>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <functional>
#include <random>
#include <vector>

using namespace math;
using P3 = Cpoint3<double>;
using Pts = CbaseVecN<P3>;

namespace {

// Runs f and returns the CthrowSpline id it throws (-1: none, -2: another exception).
int thrownId(std::function<void()> const& f) {
    try {
        f();
    } catch (CthrowSpline const& e) {
        EXPECT_EQ(e.info(), "");
        return e.id();
    } catch (...) {
        return -2;
    }
    return -1;
}

// Id and case name of an expected CthrowSpline.
struct Case {
    const char* what;
    int id;
    std::function<void()> f;
};

void expectCases(std::vector<Case> const& cases) {
    for (Case const& c : cases) EXPECT_EQ(thrownId(c.f), c.id) << c.what;
}

std::vector<double> slice(std::vector<double> const& v, std::size_t a, std::size_t b) {
    return std::vector<double>(v.begin() + a, v.begin() + b);
}

CsplineBasis basisWith(int k, std::vector<double> const& x) {
    CsplineBasis b(k, int(x.size()) - k);
    b.replaceKnotVec(x);
    return b;
}

// Clamped knots of order k for n control points on [0, span], interior knots
// random with some doubled.
std::vector<double> randomClamped(std::mt19937& g, unsigned k, unsigned n, double span) {
    std::uniform_real_distribution<double> U(0.0, span);
    std::vector<double> in(n - k);
    for (double& v : in) v = U(g);
    for (std::size_t i = 1; i < in.size(); i += 3) in[i] = in[i - 1];  // double knots, multiplicity <= 2
    std::sort(in.begin(), in.end());
    std::vector<double> x(k, 0.0);
    x.insert(x.end(), in.begin(), in.end());
    x.insert(x.end(), k, span);
    return x;
}

Pts randomPoints(std::mt19937& g, std::size_t n) {
    std::uniform_real_distribution<double> U(-1.0, 1.0);
    Pts p;
    for (std::size_t i = 0; i < n; ++i) p.push_back(P3(U(g), U(g), U(g)));
    return p;
}

// Cox-de Boor by its recursive definition in long double (0/0 = 0), with the
// r-th derivative d/dt N_{i,d} = (d-1) (N'_{i,d-1}/a - N'_{i+1,d-1}/b).  The
// last non-empty interval is closed on the right.
long double coxDeBoor(std::vector<double> const& x, int i, int d, int r, long double t) {
    if (d == 1) {
        if (r > 0) return 0;
        if (x[i] <= t && t < x[i + 1]) return 1;
        if (t == x.back() && x[i] < x[i + 1]) {
            for (std::size_t j = i + 1; j + 1 < x.size(); ++j)
                if (x[j] < x[j + 1]) return 0;
            return 1;
        }
        return 0;
    }
    const long double a = (long double)x[i + d - 1] - x[i], b = (long double)x[i + d] - x[i + 1];
    long double v = 0;
    if (r == 0) {
        if (a != 0) v += (t - x[i]) / a * coxDeBoor(x, i, d - 1, 0, t);
        if (b != 0) v += (x[i + d] - t) / b * coxDeBoor(x, i + 1, d - 1, 0, t);
    } else {
        if (a != 0) v += (d - 1) * coxDeBoor(x, i, d - 1, r - 1, t) / a;
        if (b != 0) v -= (d - 1) * coxDeBoor(x, i + 1, d - 1, r - 1, t) / b;
    }
    return v;
}

// The recursion of basis/dbasis written out literally for t in the interval
// iv: levels d = 2 ... k over the whole window w ... w+k-1, every term
// ((t - x_i) * src) / a, 0 when its source or denominator is 0, old values
// on the right, left to right.
void literalRecursion(std::vector<double> const& x, unsigned k, std::size_t iv, double t, std::vector<double>& N,
                      std::vector<double>& D1, std::vector<double>& D2) {
    const std::size_t sz = x.size() - 1;
    N.assign(sz, 0.0);
    D1.assign(sz, 0.0);
    D2.assign(sz, 0.0);
    N[iv] = 1;
    auto q = [](double num, double src, double den) { return src != 0 && den != 0 ? num * src / den : 0.0; };
    for (unsigned d = 2; d <= k; ++d) {
        for (std::size_t i = iv + 1 - k; i <= iv; ++i) {
            const double a = x[i + d - 1] - x[i], b = x[i + d] - x[i + 1], tl = t - x[i], tr = x[i + d] - t;
            const double n0 = N[i], n1 = N[i + 1], e0 = D1[i], e1 = D1[i + 1], f0 = D2[i], f1 = D2[i + 1];
            N[i] = q(tl, n0, a) + q(tr, n1, b);
            D1[i] = q(1.0, n0, a) - q(1.0, n1, b) + q(tl, e0, a) + q(tr, e1, b);
            D2[i] = q(2.0, e0, a) - q(2.0, e1, b) + q(tl, f0, a) + q(tr, f1, b);
        }
    }
}

void expectNear3(P3 const& a, P3 const& b, double tol) {
    EXPECT_TRUE(std::fabs(a.x - b.x) <= tol && std::fabs(a.y - b.y) <= tol && std::fabs(a.z - b.z) <= tol)
        << "(" << a.x << ", " << a.y << ", " << a.z << ") vs (" << b.x << ", " << b.y << ", " << b.z << ")";
}

}  // namespace

TEST(SplineBasis, KnotVectorExample) {
    const CsplineBasis b = basisWith(3, {0, 0, 0, 1, 2, 3, 4, 4, 5, 5, 5});
    std::vector<double> N, D1, D2;
    unsigned span = 0;
    const std::vector<double> wantN{0.125, 0.75, 0.125}, wantD2{1, -2, 1};
    b.basis(2.5, N, span);
    ASSERT_EQ(N.size(), 10u);
    EXPECT_EQ(span, 2u);
    EXPECT_EQ(slice(N, 2, 5), wantN);
    b.dbasis(2.5, N, D1, D2, span);
    EXPECT_EQ(span, 2u);
    EXPECT_EQ(slice(N, 2, 5), wantN);
    EXPECT_EQ(slice(D1, 2, 5), (std::vector<double>{-0.5, 0, 0.5}));
    EXPECT_EQ(slice(D2, 2, 5), wantD2);
    std::vector<double> n(3), d2(3, 9.0);
    unsigned first = 99;
    ASSERT_TRUE(b.localBasis(2.5, first, n.data(), nullptr, d2.data()));  // D2 alone: D1 in scratch space
    EXPECT_EQ(first, 2u);
    EXPECT_EQ(n, wantN);
    EXPECT_EQ(d2, wantD2);
    // rbasis with unit weights leaves these exact values; zero weights divide by 0.
    b.rbasis(N, std::vector<double>(8, 1.0), span);
    EXPECT_EQ(N[3], 0.75);
    EXPECT_EQ(thrownId([&] { b.rbasis(N, std::vector<double>(8, 0.0), span); }), int(CthrowSpline::ERR_INVALID_DIVISION));
    EXPECT_EQ(CsplineBasis::EPS(), 2.220446049250313e-16);
}

TEST(SplineBasis, KnotVectors) {
    EXPECT_EQ(CsplineBasis(3, 5).knots(), (std::vector<double>{0, 0, 0, 1, 2, 3, 3, 3}));
    EXPECT_TRUE(CsplineBasis(3, 5).ctrlCount() == 5u && CsplineBasis(3, 5).order() == 3);
    const Pts three{P3(0, 0, 0), P3(1, 0, 0), P3(3, 0, 0)};
    // The extra i*d_i: d = 1, 2, 3, L = 6 gives 5/6 and 15/6, not 1/2 and 3/2.
    const Pts four{P3(0, 0, 0), P3(1, 0, 0), P3(3, 0, 0), P3(6, 0, 0)};
    EXPECT_EQ(CsplineBasis(2, CsplineBasis::KNOT_CHORD, four).knots(), (std::vector<double>{0, 0, 5.0 / 6, 2.5, 3, 3}));
    EXPECT_EQ(CsplineBasis(3, CsplineBasis::KNOT_PERIODIC, four).knots(), (std::vector<double>{0, 1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(CsplineBasis(3, CsplineBasis::KNOT_OPEN, four).knots(), (std::vector<double>{0, 0, 0, 1, 2, 2, 2}));
    EXPECT_EQ(CsplineBasis(2, CsplineBasis::enKnots(7), three).knots(), (std::vector<double>(5, 0.0)));
    // Order 0 and 1 are accepted; the order is unsigned in the loop, so order 0 never counts.
    EXPECT_EQ(CsplineBasis(0, 3).knots(), (std::vector<double>{0, 0, 0}));
    EXPECT_EQ(CsplineBasis(1, 3).knots(), (std::vector<double>{0, 1, 2, 3}));
    EXPECT_EQ(CsplineBasis(1, CsplineBasis::KNOT_CHORD, four).knots(), (std::vector<double>{0, 1, 3, 4, 4}));
    // Coincident points: L = 0, NaN interior knots (the formula, unguarded).
    const Pts same{P3(1, 1, 1), P3(1, 1, 1), P3(1, 1, 1)};
    EXPECT_TRUE(std::isnan(CsplineBasis(2, CsplineBasis::KNOT_CHORD, same).knots()[2]));
    EXPECT_EQ(CsplineBasis(2, CsplineBasis::KNOT_CHORD, Pts{P3(1, 2, 3)}).knots(), (std::vector<double>{0, 0, 0}));
    const int arg = CthrowSpline::ERR_INVALID_ARGUMENT;
    expectCases({{"order -1", arg, [] { CsplineBasis(-1, 3); }}, {"count -1", arg, [] { CsplineBasis(3, -1); }},
                 {"order -2, points", arg, [&] { CsplineBasis(-2, CsplineBasis::KNOT_OPEN, three); }}});
    try {
        CsplineBasis(INT_MAX, INT_MAX);
        ADD_FAILURE() << "huge knot vector accepted";
    } catch (CthrowBase const& e) {
        EXPECT_EQ(e.id(), int(CthrowBase::ERR_CORE_NOMEMORY));
    }
}

TEST(SplineBasis, LastKnotAndOutsideQuirks) {
    const CsplineBasis b(3, 5);  // 0 0 0 1 2 3 3 3, N has 7 entries
    std::vector<double> N(7, 0.0), D1, D2;
    unsigned span = 0;
    b.basis(3.0, N, span);
    EXPECT_EQ(span, 3u);  // size(N) - k - 1
    EXPECT_EQ(N, (std::vector<double>{0, 0, 0, 0, 1, 0, 0}));
    b.dbasis(3.0, N, D1, D2, span);
    EXPECT_EQ(span, 1u);  // two less than basis
    EXPECT_EQ(N, (std::vector<double>{0, 0, 0, 0, 1, 0, 0}));
    // Derivatives from the left: last piece N_4 = (t-2)^2, N_3 = ..., at t = 3.
    EXPECT_EQ(slice(D1, 2, 5), (std::vector<double>{0, -2, 2}));
    EXPECT_EQ(slice(D2, 2, 5), (std::vector<double>{1, -3, 2}));
    // Outside or NaN: N zero, span = caller's + 1 - k, the last entry as given.
    for (double t : {-0.5, 3.5, std::nan("")}) {
        std::vector<double> M(7, 5.0);
        unsigned s10 = 10, s1 = 1, f = 7;
        b.basis(t, M, s10);
        EXPECT_EQ(M, (std::vector<double>{0, 0, 0, 0, 0, 0, 5}));
        b.basis(t, M, s1);
        double n[3];
        EXPECT_FALSE(b.localBasis(t, f, n));
        EXPECT_TRUE(s10 == 8u && s1 == 4294967295u && f == 7u);
    }
    // Order 1: the last interval is the unwritten last entry, so basis has no 1
    // there; localBasis gives the true value.
    const CsplineBasis one(1, 3);  // 0 1 2 3
    std::vector<double> M1(3, 0.0);
    one.basis(2.5, M1, span);
    EXPECT_EQ(M1, std::vector<double>(3, 0.0));
    one.basis(1.5, M1, span);
    EXPECT_TRUE(M1 == (std::vector<double>{0, 1, 0}) && span == 1u);
    double v1 = 0;
    unsigned f1 = 0;
    ASSERT_TRUE(one.localBasis(2.5, f1, &v1));
    EXPECT_TRUE(f1 == 2u && v1 == 1.0);
    // A single non-empty interval, the first: the last knot still sets its 1.
    std::vector<double> M0;
    basisWith(1, {0, 1, 1}).basis(1.0, M0, span);
    EXPECT_EQ(M0, (std::vector<double>{1, 0}));
    // Periodic knots: the last interval is not examined, so it gets no 1.
    const CsplineBasis p(3, CsplineBasis::KNOT_PERIODIC, Pts(4));
    std::vector<double> M(6, 0.0);
    p.basis(5.5, M, span);
    EXPECT_EQ(M, std::vector<double>(6, 0.0));
    // The unwritten last entry takes part as given (order 2, second-last interval).
    const CsplineBasis p2(2, CsplineBasis::KNOT_PERIODIC, Pts(4));  // 0 1 2 3 4 5
    std::vector<double> M2{9, 9, 9, 9, 0.5};
    p2.basis(3.5, M2, span);
    EXPECT_EQ(span, 2u);
    EXPECT_EQ(M2, (std::vector<double>{0, 0, 0.5, 1.25, 0.5}));
    // Derivatives where the window reaches past the last knot (order 3,
    // periodic 0 ... 6, t = 4.5): the levels stop at the last knot, so N_4
    // keeps its level-2 value; the complete functions are the uniform
    // quadratic's (1/8, 3/4; -1/2, 0; 1, -2).
    std::vector<double> P, PD1, PD2;
    p.dbasis(4.5, P, PD1, PD2, span);
    EXPECT_EQ(span, 2u);
    EXPECT_EQ(P, (std::vector<double>{0, 0, 0.125, 0.75, 0.5, 0}));
    EXPECT_EQ(slice(PD1, 2, 5), (std::vector<double>{-0.5, 0, 1}));
    EXPECT_EQ(slice(PD2, 2, 5), (std::vector<double>{1, -2, 0}));
    // rbasis stops at the end of N and w: a span past them sums to 0.
    std::vector<double> w{1, 1, 1, 1, 1, 3};
    w.pop_back();  // 3 stays in the storage just past the end
    std::vector<double> R{0, 0, 0, 0.5, 0.5, 7, 0};
    b.rbasis(R, w, 3u);
    EXPECT_EQ(R, (std::vector<double>{0, 0, 0, 0.5, 0.5, 7, 0}));  // nothing written past w
    EXPECT_EQ(thrownId([&] { b.rbasis(N, w, 6u); }), int(CthrowSpline::ERR_INVALID_DIVISION));
    EXPECT_EQ(thrownId([&] { b.rbasis(N, w, 4000000000u); }), int(CthrowSpline::ERR_INVALID_DIVISION));
}

TEST(SplineBasis, CoxDeBoorReferenceAndLocalBitForBit) {
    std::mt19937 g(14);
    for (int rep = 0; rep < 60; ++rep) {
        const unsigned k = 2 + rep % 7, n = k + unsigned(g() % 9);
        const std::vector<double> x = randomClamped(g, k, n, 4.0);
        const CsplineBasis b = basisWith(int(k), x);
        std::uniform_real_distribution<double> U(0.0, 4.0);
        std::vector<double> ts{0.0, 4.0};
        for (int i = 0; i < 20; ++i) ts.push_back(U(g));
        for (std::size_t i = k; i < n; ++i) ts.push_back(x[i]);  // at the knots
        for (double t : ts) {
            SCOPED_TRACE(testing::Message() << "k " << k << " n " << n << " t " << t);
            std::vector<double> N, D1, D2, N2;
            unsigned span = 0, dspan = 0, first = 0;
            b.basis(t, N, span);
            b.dbasis(t, N2, D1, D2, dspan);
            std::vector<double> n1(k), d1(k), d2(k), n0(k);
            ASSERT_TRUE(b.localBasis(t, first, n1.data(), d1.data(), d2.data()));
            ASSERT_TRUE(b.localBasis(t, first, n0.data()));
            EXPECT_TRUE(t == 4.0 || (span == first && dspan == first));
            // The literal recursion (from the last non-empty interval at the last
            // knot), bit for bit, zero outside the window; the local forms equal it.
            std::vector<double> LN, LD1, LD2;
            literalRecursion(x, k, first + k - 1, t, LN, LD1, LD2);
            const std::size_t bytes = (N.size() - 1) * sizeof(double);
            EXPECT_TRUE(!std::memcmp(N.data(), LN.data(), bytes) && !std::memcmp(N2.data(), LN.data(), bytes) &&
                        !std::memcmp(D1.data(), LD1.data(), bytes) && !std::memcmp(D2.data(), LD2.data(), bytes));
            double sum = 0;
            for (unsigned j = 0; j < k; ++j) {
                EXPECT_TRUE(!std::memcmp(&N[first + j], &n0[j], 8) && !std::memcmp(&N2[first + j], &n1[j], 8) &&
                            !std::memcmp(&D1[first + j], &d1[j], 8) && !std::memcmp(&D2[first + j], &d2[j], 8));
                EXPECT_NEAR(n1[j], double(coxDeBoor(x, int(first + j), int(k), 0, t)), 1e-14);
                if (t != 4.0 && std::find(x.begin(), x.end(), t) == x.end()) {
                    const double r1 = double(coxDeBoor(x, int(first + j), int(k), 1, t));
                    const double r2 = double(coxDeBoor(x, int(first + j), int(k), 2, t));
                    EXPECT_NEAR(d1[j], r1, 1e-12 * (1 + std::fabs(r1)));
                    EXPECT_NEAR(d2[j], r2, 1e-11 * (1 + std::fabs(r2)));
                }
                sum += n1[j];
            }
            EXPECT_NEAR(sum, 1.0, 1e-14);
        }
    }
}

TEST(Spline, AgainstEigenSpline) {
    std::mt19937 g(7);
    for (int rep = 0; rep < 40; ++rep) {
        const unsigned k = 2 + rep % 6, n = k + unsigned(g() % 12);
        const std::vector<double> x = randomClamped(g, k, n, 5.0);
        const Pts P = randomPoints(g, n);
        TsplineBasisPtr bp(new CsplineBasis(basisWith(int(k), x)));
        const Cspline c(bp, P);
        const Eigen::Array<double, 1, Eigen::Dynamic> ek = Eigen::Map<const Eigen::ArrayXd>(x.data(), x.size()).transpose();
        Eigen::Matrix<double, 3, Eigen::Dynamic> ec(3, n);
        for (unsigned i = 0; i < n; ++i) ec.col(i) << P[i].x, P[i].y, P[i].z;
        const Eigen::Spline<double, 3> es(ek, ec);
        std::uniform_real_distribution<double> U(0.0, 5.0);
        for (int i = 0; i < 30; ++i) {
            const double t = i == 0 ? 0.0 : (i == 1 ? 5.0 : U(g));
            SCOPED_TRACE(testing::Message() << "k " << k << " n " << n << " t " << t);
            P3 p, d1, d2;
            c.derivs(t, p, d1, d2);
            const auto e = es.derivatives(t, 2);
            expectNear3(p, P3(e(0, 0), e(1, 0), e(2, 0)), 1e-12);
            expectNear3(c.point(t), p, 0.0);
            expectNear3(d1, P3(e(0, 1), e(1, 1), e(2, 1)), 1e-12 * std::max(1.0, e.col(1).matrix().norm()));
            if (k >= 3)  // Eigen gives derivatives up to the degree only
                expectNear3(d2, P3(e(0, 2), e(1, 2), e(2, 2)), 1e-12 * std::max(1.0, e.col(2).matrix().norm()));
            else
                expectNear3(d2, P3(), 0.0);
        }
    }
}

// A rational curve is the projection of its homogeneous curve: A = sum w P N
// and W = sum w N as plain curves, C = A / W, C' = (A' - W' C) / W,
// C'' = (A'' - 2 W' C' - W'' C) / W.
TEST(Spline, RationalIsTheProjectedHomogeneousCurve) {
    std::mt19937 g(19);
    const std::vector<double> x = randomClamped(g, 3, 7, 4.0), w{1.0, 0.5, 2.0, 1.5, 0.7, 3.0, 1.2};
    TsplineBasisPtr bp(new CsplineBasis(basisWith(3, x)));
    const Pts P = randomPoints(g, 7);
    Pts A, W;
    for (int i = 0; i < 7; ++i) A.push_back(P[i] * w[i]), W.push_back(P3(w[i], 0, 0));
    const Cspline c(bp, P, w), ca(bp, A), cw(bp, W);
    EXPECT_TRUE(c.isRational());
    for (double t : {0.0, 0.3, 1.1, 2.5, 3.9, 4.0}) {
        SCOPED_TRACE(t);
        P3 p, d1, d2, a, a1, a2, v, v1, v2;
        c.derivs(t, p, d1, d2);
        ca.derivs(t, a, a1, a2);
        cw.derivs(t, v, v1, v2);
        const P3 q = a * (1 / v.x), q1 = (a1 - q * v1.x) * (1 / v.x), q2 = (a2 - q1 * (2 * v1.x) - q * v2.x) * (1 / v.x);
        expectNear3(p, q, 1e-13);
        expectNear3(c.point(t), q, 1e-13);
        expectNear3(d1, q1, 1e-12);
        expectNear3(d2, q2, 1e-11);
    }
}

TEST(Spline, FitKnotsAndInterpolation) {
    // 7 points evenly on a line, k = 3, n = 5: t_j = j/2, d = 7/3, interior knots 2/3 and 11/6.
    Pts line;
    for (int j = 0; j < 7; ++j) line.push_back(P3(2.0 * j, 1.0, -j));
    Cspline c;
    EXPECT_LT(c.fit(line, 3, 5), 1e-13);
    std::vector<double> const& x = c.basis()->knots();
    ASSERT_EQ(x.size(), 8u);
    EXPECT_TRUE(slice(x, 0, 3) == std::vector<double>(3, 0.0) && slice(x, 5, 8) == std::vector<double>(3, 3.0));
    EXPECT_DOUBLE_EQ(x[3], 2.0 / 3);
    EXPECT_DOUBLE_EQ(x[4], 11.0 / 6);
    EXPECT_FALSE(c.isRational());
    // As many control points as data: the curve interpolates.
    std::mt19937 g(5);
    const Pts d = randomPoints(g, 9);
    EXPECT_LT(c.fit(d, 4, 9), 1e-12);
    expectNear3(c.point(c.tMin()), d[0], 1e-12);
    expectNear3(c.point(c.tMax()), d[8], 1e-12);
}

TEST(Spline, SharingAndCopies) {
    const Pts P{P3(0, 0, 0), P3(1, 2, 0), P3(3, 2, 1), P3(4, 0, 0)};
    Cspline a(3, P);
    Cspline b(a);
    EXPECT_TRUE(Loki::GetImpl(a.basis()) == Loki::GetImpl(b.basis()) && a.tMin() == 0.0 && a.tMax() == 2.0);
    b.setKnots({0, 0, 0, 0.5, 1, 1, 1});  // own basis, a unchanged
    EXPECT_TRUE(Loki::GetImpl(a.basis()) != Loki::GetImpl(b.basis()) && a.tMax() == 2.0 && b.tMax() == 1.0);
    expectNear3(a.point(1.0), b.point(0.5), 1e-15);
    // A shared basis changed to another knot count invalidates the curve.
    TsplineBasisPtr bp(new CsplineBasis(3, 4));
    const Cspline d(bp, P);
    bp->replaceKnotVec({0, 0, 0, 1, 1});
    EXPECT_TRUE(!d.isValid() && std::isnan(d.tMax()));
    EXPECT_EQ(thrownId([&] { d.point(0.5); }), int(CthrowSpline::ERR_INVALID_ARRAY));
    // Periodic knots start the curve at knot k-1.
    const Cspline f(3, P, CsplineBasis::KNOT_PERIODIC);
    EXPECT_TRUE(f.tMin() == 2.0 && f.tMax() == 4.0);
}

TEST(Spline, Errors) {
    const Pts P{P3(0, 0, 0), P3(1, 2, 0), P3(3, 2, 1), P3(4, 0, 0)};
    const Pts nanP{P3(0, 0, 0), P3(1, NAN, 0), P3(3, 2, 1)};
    const Pts dup{P3(1, 1, 1), P3(1, 1, 1), P3(1, 1, 1), P3(1, 1, 1)};
    TsplineBasisPtr b34(new CsplineBasis(3, 4)), null;
    const Cspline good(3, P), empty;
    Cspline tgt(good);
    const double inf = INFINITY;
    // Two equal points, a third left in the storage: only the two count.
    Pts two{P3(1, 1, 1), P3(1, 1, 1), P3(5, 5, 5)};
    two.pop_back();
    expectCases({
        {"order 1", CthrowSpline::ERR_INVALID_ORDER, [&] { Cspline(1, P); }},
        {"order -3", CthrowSpline::ERR_INVALID_ORDER, [&] { Cspline(-3, P); }},
        {"basis order 1", CthrowSpline::ERR_INVALID_ORDER,
         [&] { Cspline(TsplineBasisPtr(new CsplineBasis(1, 4)), P); }},
        {"null basis", CthrowSpline::ERR_INVALID_ARGUMENT, [&] { Cspline(null, P); }},
        {"unknown kind", CthrowSpline::ERR_INVALID_ARGUMENT, [&] { Cspline(3, P, CsplineBasis::enKnots(5)); }},
        {"too few ctrl", CthrowSpline::ERR_INVALID_CTRLPTS, [&] { Cspline(5, P); }},
        {"empty ctrl", CthrowSpline::ERR_INVALID_CTRLPTS, [&] { Cspline(2, Pts()); }},
        {"empty point", CthrowSpline::ERR_INVALID_CTRLPTS, [&] { empty.point(0); }},
        {"empty setKnots", CthrowSpline::ERR_INVALID_CTRLPTS, [&] { Cspline e; e.setKnots({0, 1}); }},
        {"weight count", CthrowSpline::ERR_INVALID_CTRLWGHT, [&] { Cspline(3, P, CsplineBasis::KNOT_OPEN, {1, 1}); }},
        {"weight 0", CthrowSpline::ERR_INVALID_RATSUM, [&] { Cspline(3, P, CsplineBasis::KNOT_OPEN, {1, 0, 1, 1}); }},
        {"weight -1", CthrowSpline::ERR_INVALID_RATSUM, [&] { Cspline(b34, P, {1, -1, 1, 1}); }},
        {"weight inf", CthrowSpline::ERR_INVALID_RATSUM, [&] { Cspline(b34, P, {1, inf, 1, 1}); }},
        {"weight NaN", CthrowSpline::ERR_INVALID_RATSUM, [&] { Cspline(b34, P, {1, NAN, 1, 1}); }},
        {"knot count", CthrowSpline::ERR_INVALID_ARRAY, [&] { Cspline(TsplineBasisPtr(new CsplineBasis(3, 5)), P); }},
        {"setKnots count", CthrowSpline::ERR_INVALID_ARRAY, [&] { tgt.setKnots({0, 0, 0, 1, 1, 1}); }},
        {"setKnots decreasing", CthrowSpline::ERR_INVALID_DATA, [&] { tgt.setKnots({0, 0, 0, 2, 1, 3, 3}); }},
        {"setKnots NaN", CthrowSpline::ERR_INVALID_DATA, [&] { tgt.setKnots({0, 0, 0, NAN, 1, 3, 3}); }},
        {"setKnots empty range", CthrowSpline::ERR_INVALID_DATA, [&] { tgt.setKnots({0, 0, 1, 1, 1, 1, 1}); }},
        {"NaN ctrl", CthrowSpline::ERR_INVALID_DATA, [&] { Cspline(3, nanP); }},
        {"zero chord", CthrowSpline::ERR_INVALID_DATA, [&] { Cspline(2, dup, CsplineBasis::KNOT_CHORD); }},
        {"t below", CthrowSpline::ERR_INVALID_ARGUMENT, [&] { good.point(-1e-300); }},
        {"t above", CthrowSpline::ERR_INVALID_ARGUMENT, [&] { good.point(std::nextafter(2.0, 3.0)); }},
        {"t NaN", CthrowSpline::ERR_INVALID_ARGUMENT, [&] { P3 a, b, c; good.derivs(NAN, a, b, c); }},
        {"fit order", CthrowSpline::ERR_INVALID_ORDER, [&] { tgt.fit(P, 1, 3); }},
        {"fit ctrl < order", CthrowSpline::ERR_INVALID_CTRLPTS, [&] { tgt.fit(P, 3, 2); }},
        {"fit ctrl > data", CthrowSpline::ERR_INVALID_FITCTRLPTS, [&] { tgt.fit(P, 3, 5); }},
        {"fit huge ctrl", CthrowSpline::ERR_INVALID_FITCTRLPTS, [&] { tgt.fit(P, 3, UINT_MAX); }},
        {"fit empty", CthrowSpline::ERR_INVALID_FITCTRLPTS, [&] { tgt.fit(Pts(), 2, 2); }},
        {"fit NaN data", CthrowSpline::ERR_INVALID_DATA, [&] { tgt.fit(nanP, 2, 2); }},
        {"fit zero chord", CthrowSpline::ERR_INVALID_DATA, [&] { tgt.fit(dup, 2, 2); }},
        {"fit params count", CthrowSpline::ERR_INVALID_ARRAY, [&] { tgt.fit(P, {0, 1, 2}, b34); }},
        {"fit null basis", CthrowSpline::ERR_INVALID_ARGUMENT, [&] { tgt.fit(P, {0, 1, 2, 2}, null); }},
        {"fit param outside", CthrowSpline::ERR_INVALID_ARGUMENT, [&] { tgt.fit(P, {0, 1, 2, 2.5}, b34); }},
        {"fit param NaN", CthrowSpline::ERR_INVALID_ARGUMENT, [&] { tgt.fit(P, {0, 1, NAN, 2}, b34); }},
        // Every parameter in the first span: the system is singular.
        {"fit not PD", CthrowSpline::ERR_INVALID_DATA, [&] { tgt.fit(P, {0, 0.2, 0.4, 0.6}, b34); }},
        {"zero chord, no interior knot", CthrowSpline::ERR_INVALID_DATA, [&] { Cspline(2, two, CsplineBasis::KNOT_CHORD); }},
        {"coincident open", -1, [&] { Cspline(3, dup); }},  // only chord lengths need a length
    });
    // Failed calls left the target as it was.
    EXPECT_EQ(Loki::GetImpl(tgt.basis()), Loki::GetImpl(good.basis()));
    EXPECT_EQ(tgt.ctrlPoints(), good.ctrlPoints());
    EXPECT_TRUE(!empty.isValid() && empty.order() == 0 && std::isnan(empty.tMin()));
}

TEST(SplineSurf, AgainstProductsOfCurves) {
    std::mt19937 g(11);
    for (int rep = 0; rep < 12; ++rep) {
        const unsigned ku = 2 + rep % 4, kv = 2 + (rep / 4) % 3;
        const unsigned nu = ku + unsigned(g() % 5), nv = kv + unsigned(g() % 5);
        TsplineBasisPtr bu(new CsplineBasis(basisWith(int(ku), randomClamped(g, ku, nu, 3.0))));
        TsplineBasisPtr bv(new CsplineBasis(basisWith(int(kv), randomClamped(g, kv, nv, 2.0))));
        const Pts net = randomPoints(g, nu * nv);
        const CsplineSurf s(bu, bv, net);
        EXPECT_TRUE(s.ctrlCountU() == nu && s.orderV() == int(kv));
        std::uniform_real_distribution<double> U(0.0, 3.0), V(0.0, 2.0);
        for (int i = 0; i < 10; ++i) {
            const double u = i == 0 ? 3.0 : U(g), v = i == 0 ? 2.0 : V(g);
            // Row curves in v, evaluated at v, are the control points of a curve in u.
            Pts q, qv;
            for (unsigned a = 0; a < nu; ++a) {
                Pts rowCtrl;
                for (unsigned b = 0; b < nv; ++b) rowCtrl.push_back(net[a * nv + b]);
                const Cspline row(bv, rowCtrl);
                P3 p, d1, d2;
                row.derivs(v, p, d1, d2);
                q.push_back(p);
                qv.push_back(d1);
            }
            P3 p, du, dv, cp, cu, c2;
            s.derivs(u, v, p, du, dv);
            Cspline(bu, q).derivs(u, cp, cu, c2);
            expectNear3(p, cp, 1e-13);
            expectNear3(du, cu, 1e-12);
            expectNear3(dv, Cspline(bu, qv).point(u), 1e-12);
            EXPECT_EQ(s.point(u, v), p);
        }
    }
}

TEST(SplineSurf, RationalCylinderNormal) {
    // Quarter circle (r = 10) along u times a straight line along v.
    const double w = std::sqrt(0.5);
    TsplineBasisPtr bu(new CsplineBasis(basisWith(3, {0, 0, 0, 1, 1, 1})));
    TsplineBasisPtr bv(new CsplineBasis(2, 2));
    const Pts net{P3(10, 0, 0), P3(10, 0, 5), P3(10, 10, 0), P3(10, 10, 5), P3(0, 10, 0), P3(0, 10, 5)};
    const CsplineSurf s(bu, bv, net, {1, 1, w, w, 1, 1});
    for (int i = 0; i <= 20; ++i) {
        const double u = i / 20.0, v = (i % 7) / 6.0;
        const P3 p = s.point(u, v);
        EXPECT_NEAR(std::hypot(p.x, p.y), 10.0, 1e-12);
        EXPECT_NEAR(p.z, 5.0 * v, 1e-13);
        const Cdirec3<double> n = s.normal(u, v);  // du x dv points away from the axis
        ASSERT_TRUE(n.isValid());
        expectNear3(P3(n.x, n.y, n.z), P3(p.x / 10, p.y / 10, 0), 1e-12);
    }
    // A collapsed edge (all points of the first row equal): du vanishes there.
    Pts cone(net);
    for (int i = 0; i < 6; ++i) cone[i] = P3(0, 0, 0);
    EXPECT_FALSE(CsplineSurf(bu, bv, cone).normal(0.3, 0.5).isValid());
}

TEST(SplineSurf, FitIsTheGridLeastSquares) {
    const unsigned mu = 13, mv = 9, nu = 6, nv = 5;
    const int ku = 4, kv = 3;
    std::mt19937 g(21);
    std::normal_distribution<double> noise(0.0, 0.01);
    Pts grid;
    for (unsigned a = 0; a < mu; ++a)
        for (unsigned b = 0; b < mv; ++b)
            grid.push_back(P3(a + 0.3 * std::sin(b), b + 0.1 * a * a / mu, std::cos(0.4 * a) * std::sin(0.5 * b) + noise(g)));
    CsplineSurf s;
    const double rms = s.fit(grid, mu, mv, ku, kv, nu, nv);
    ASSERT_TRUE(s.isValid());
    // Parameters: the mean chord-length parameters of the rows in each direction.
    auto params = [&](unsigned m, unsigned rows, unsigned n, int k, bool alongU) {
        std::vector<double> t(m, 0.0);
        for (unsigned r = 0; r < rows; ++r) {
            auto at = [&](unsigned j) { return alongU ? grid[j * mv + r] : grid[r * mv + j]; };
            std::vector<double> c(m, 0.0);
            for (unsigned j = 1; j < m; ++j) c[j] = c[j - 1] + (at(j) - at(j - 1)).length();
            for (unsigned j = 0; j < m; ++j) t[j] += (n - k + 1) * c[j] / c[m - 1] / rows;
        }
        return t;
    };
    const std::vector<double> tu = params(mu, mv, nu, ku, true), tv = params(mv, mu, nv, kv, false);
    // Dense least squares of the Kronecker design matrix (Eigen, QR) on the fitted bases.
    Eigen::MatrixXd A = Eigen::MatrixXd::Zero(mu * mv, nu * nv), B(mu * mv, 3);
    double sum = 0;
    for (unsigned a = 0; a < mu; ++a) {
        for (unsigned b = 0; b < mv; ++b) {
            double N[4], M[3];
            unsigned fu, fv;
            ASSERT_TRUE(s.basisU()->localBasis(std::min(tu[a], s.uMax()), fu, N));
            ASSERT_TRUE(s.basisV()->localBasis(std::min(tv[b], s.vMax()), fv, M));
            for (int i = 0; i < ku; ++i)
                for (int j = 0; j < kv; ++j) A(a * mv + b, (fu + i) * nv + fv + j) = N[i] * M[j];
            const P3 q = grid[a * mv + b];
            B.row(a * mv + b) << q.x, q.y, q.z;
            sum += (q - s.point(std::min(tu[a], s.uMax()), std::min(tv[b], s.vMax()))).squaredLength();
        }
    }
    EXPECT_NEAR(rms, std::sqrt(sum / (mu * mv)), 1e-12);
    const Eigen::MatrixXd X = A.colPivHouseholderQr().solve(B);
    for (unsigned i = 0; i < nu * nv; ++i) expectNear3(s.ctrlPoints()[i], P3(X(i, 0), X(i, 1), X(i, 2)), 1e-9);
}

TEST(SplineSurf, Errors) {
    const Pts net4(4, P3(1, 2, 3));
    Pts grid;
    for (int a = 0; a < 4; ++a)
        for (int b = 0; b < 3; ++b) grid.push_back(P3(a, b, a * b));
    TsplineBasisPtr b2(new CsplineBasis(2, 2)), null;
    CsplineSurf s(2, 2, 2, 2, net4);
    expectCases({
        {"order", CthrowSpline::ERR_INVALID_ORDER, [&] { CsplineSurf(1, 2, 2, 2, net4); }},
        {"ctrl", CthrowSpline::ERR_INVALID_CTRLPTS, [&] { CsplineSurf(3, 2, 2, 2, net4); }},
        {"negative ctrl", CthrowSpline::ERR_INVALID_CTRLPTS, [&] { CsplineSurf(2, 2, -2, 2, net4); }},
        {"net size", CthrowSpline::ERR_INVALID_ARRAY, [&] { CsplineSurf(2, 2, 2, 3, net4); }},
        {"net huge", CthrowSpline::ERR_INVALID_ARRAY, [&] { CsplineSurf(2, 2, INT_MAX, INT_MAX, net4); }},
        {"weights", CthrowSpline::ERR_INVALID_CTRLWGHT, [&] { CsplineSurf(b2, b2, net4, {1, 1}); }},
        {"weight 0", CthrowSpline::ERR_INVALID_RATSUM, [&] { CsplineSurf(b2, b2, net4, {1, 1, 0, 1}); }},
        {"null basis", CthrowSpline::ERR_INVALID_ARGUMENT, [&] { CsplineSurf(b2, null, net4); }},
        {"empty eval", CthrowSpline::ERR_INVALID_CTRLPTS, [&] { CsplineSurf().point(0, 0); }},
        {"u outside", CthrowSpline::ERR_INVALID_ARGUMENT, [&] { s.point(1.5, 0.5); }},
        {"v NaN", CthrowSpline::ERR_INVALID_ARGUMENT, [&] { s.normal(0.5, NAN); }},
        {"setKnotsV", CthrowSpline::ERR_INVALID_DATA, [&] { s.setKnotsV({0, 1, 0.5, 1}); }},
        {"fit order", CthrowSpline::ERR_INVALID_ORDER, [&] { s.fit(grid, 4, 3, 2, 1, 2, 2); }},
        {"fit ctrl", CthrowSpline::ERR_INVALID_CTRLPTS, [&] { s.fit(grid, 4, 3, 2, 3, 2, 2); }},
        {"fit ctrl > data", CthrowSpline::ERR_INVALID_FITCTRLPTS, [&] { s.fit(grid, 4, 3, 2, 2, 2, 4); }},
        {"fit grid size", CthrowSpline::ERR_INVALID_ARRAY, [&] { s.fit(grid, 3, 3, 2, 2, 2, 2); }},
        {"fit grid huge", CthrowSpline::ERR_INVALID_ARRAY, [&] { s.fit(grid, 1u << 20, 1u << 20, 2, 2, 2, 2); }},
        {"fit zero rows", CthrowSpline::ERR_INVALID_DATA, [&] { s.fit(Pts(12, P3(1, 1, 1)), 4, 3, 2, 2, 2, 2); }},
    });
    EXPECT_EQ(s.ctrlPoints(), net4);
    EXPECT_TRUE(CsplineSurf().orderU() == 0 && CsplineSurf().orderV() == 0);
    // Rows of zero length are left out of the mean: a grid whose first column
    // is one point still fits.
    Pts g2(grid);
    for (int a = 0; a < 4; ++a) g2[a * 3] = P3(0, 0, 0);
    EXPECT_TRUE(std::isfinite(s.fit(g2, 4, 3, 2, 2, 3, 2)));
}
