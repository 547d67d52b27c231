// Tests of the closed-form fits of approximate<T>: algebraic line, circle and
// sphere fits and the deviation measures.  Oracles: Eigen least-squares
// solutions of the same algebraic models, long double evaluation of the
// deviation formulas, and the true primitives of synthetic measurement data.
#include <math/approximate.h>

#include "approximate_test_util.h"
#include "../source/math_approximate_sums.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

using namespace math;
using namespace approx_test;

namespace {

// Points of the line p0 + t*(cos a, sin a), |t| <= len/2, Gaussian noise
// sigma across the line.
template <class T>
V2<T> noisyLine(std::mt19937_64& rng, std::size_t n, double x0, double y0, double a, double len, double sigma) {
    std::uniform_real_distribution<double> t(-0.5 * len, 0.5 * len);
    std::normal_distribution<double> e(0.0, sigma);
    V2<T> v(n);
    for (auto& p : v) {
        const double s = t(rng), o = sigma > 0 ? e(rng) : 0.0;
        p = Cpoint2<T>(T(x0 + s * std::cos(a) - o * std::sin(a)), T(y0 + s * std::sin(a) + o * std::cos(a)));
    }
    return v;
}

// Points of the arc of circle (cx, cy, r) between angles a0 and a1, radial noise.
template <class T>
V2<T> noisyArc(std::mt19937_64& rng, std::size_t n, double cx, double cy, double r, double a0, double a1,
               double sigma) {
    std::uniform_real_distribution<double> a(a0, a1);
    std::normal_distribution<double> e(0.0, sigma);
    V2<T> v(n);
    for (auto& p : v) {
        const double phi = a(rng), rr = r + (sigma > 0 ? e(rng) : 0.0);
        p = Cpoint2<T>(T(cx + rr * std::cos(phi)), T(cy + rr * std::sin(phi)));
    }
    return v;
}

// Points of the sphere (c, r), uniform directions, radial noise.
template <class T>
V3<T> noisySphere(std::mt19937_64& rng, std::size_t n, double cx, double cy, double cz, double r, double sigma) {
    std::normal_distribution<double> g(0.0, 1.0), e(0.0, sigma > 0 ? sigma : 1.0);
    V3<T> v(n);
    for (auto& p : v) {
        const double x = g(rng), y = g(rng), z = g(rng);
        const double s = (r + (sigma > 0 ? e(rng) : 0.0)) / std::sqrt(x * x + y * y + z * z);
        p = Cpoint3<T>(T(cx + s * x), T(cy + s * y), T(cz + s * z));
    }
    return v;
}

template <class T>
V2<float> toFloat(V2<T> const& v) {
    V2<float> f;
    for (auto const& p : v) f.emplace_back(float(p.x), float(p.y));
    return f;
}

// Equal, or both NaN.
template <class T>
bool sameValue(T a, T b) {
    return a == b || (std::isnan(a) && std::isnan(b));
}

// Sample standard deviation in long double.
long double sampleStd(std::vector<long double> const& d) {
    long double m = 0, s = 0;
    for (long double x : d) m += x;
    m /= static_cast<long double>(d.size());
    for (long double x : d) s += (x - m) * (x - m);
    return std::sqrt(s / static_cast<long double>(d.size() - 1));
}

}  // namespace

template <class T>
class ApproxLsq : public ::testing::Test {};
using FitTypes = ::testing::Types<float, double>;
TYPED_TEST_SUITE(ApproxLsq, FitTypes);

// n < 2: NaN line and result; n = 2: the two-point line, no deviation; the
// vertical-line branch (B == 0), an exact line, and the origin blind spot.
TYPED_TEST(ApproxLsq, LineSmallAndExactCases) {
    using T = TypeParam;
    const V2<T> two = pts2<T>({{1, 2}, {4, 6}});
    Cline2<T> line;
    CqLineLsqNStdAbw<T> rec;
    for (std::size_t n : {0u, 1u, 2u}) {
        const V2<T> v(two.begin(), two.begin() + n);
        line = Cline2<T>(Cpoint2<T>(T(5), T(6)), Cdirec2<T>(T(1), T(0), true));
        EXPECT_TRUE(std::isnan(approximate<T>::fitLineLsq(v, line))) << n;  // no deviation below 3 points
        if (n < 2) {
            EXPECT_TRUE(std::isnan(line.point().x) && std::isnan(line.direction().x) && !line.isValid());
        } else {
            EXPECT_EQ(line.point(), two[0]);
            EXPECT_EQ(line.direction().x, T(0.6));
            EXPECT_EQ(line.direction().y, T(0.8));
        }
        rec.meanSqDist = T(7);
        approximate<T>::fitLineLsqN(v, line, rec);
        EXPECT_TRUE(std::isnan(rec.meanSqDist)) << n;
    }
    approximate<T>::fitLineLsq(pts2<T>({{1, 2}, {1, 2}}), line);
    EXPECT_FALSE(line.isValid());

    // Vertical x = 3: point (D/A, y of the first point), direction (0, 1).
    EXPECT_EQ(approximate<T>::fitLineLsq(pts2<T>({{3, 0}, {3, 1}, {3, 5}}), line), 0.0);
    EXPECT_EQ(line.point(), Cpoint2<T>(T(3), T(0)));
    EXPECT_EQ(line.direction().x, T(0));
    EXPECT_EQ(line.direction().y, T(1));
    // y = 2x + 1 with integer sums: mean square exactly 0.
    const V2<T> l = pts2<T>({{0, 1}, {1, 3}, {2, 5}, {3, 7}, {-4, -7}});
    EXPECT_EQ(approximate<T>::fitLineLsq(l, line), 0.0);
    EXPECT_EQ(line.point(), Cpoint2<T>(T(0), T(1)));
    EXPECT_NEAR(line.direction().x, 1.0 / std::sqrt(5.0), tolOf<T>(1e-15, 1e-7));
    EXPECT_NEAR(line.direction().y, 2.0 / std::sqrt(5.0), tolOf<T>(1e-15, 1e-7));
    approximate<T>::fitLineLsqN(l, line, rec);
    EXPECT_EQ(rec.meanSqDist, T(0));
    // Through the origin the model a*x + b*y = 1 has no solution.
    approximate<T>::fitLineLsq(pts2<T>({{0, 0}, {1, 1}, {2, 2}}), line);
    EXPECT_TRUE(std::isnan(line.point().x));
    for (T bad : {std::numeric_limits<T>::quiet_NaN(), std::numeric_limits<T>::infinity()}) {
        V2<T> b = l;
        b[2].x = bad;
        EXPECT_FALSE(std::isfinite(approximate<T>::fitLineLsq(b, line)));
    }
}

// A 100 mm edge 1000 mm from the origin, 10^6 points, 1 um noise: the
// statistical limit (angle ~3.5e-8 rad, offset ~1e-6 mm), float as double.
TEST(ApproxLsqAccuracy, LineFarFromOriginMillionPoints) {
    std::mt19937_64 rng(102);
    const double a = 0.7;
    const V2<double> v = noisyLine<double>(rng, 1000000, 1000.0, 500.0, a, 100.0, 1e-3);
    Cline2<double> line;
    const double ms = approximate<double>::fitLineLsq(v, line);
    Cline2<float> lf;
    approximate<float>::fitLineLsq(toFloat(v), lf);
    auto ang = [&](auto const& l) { return std::fabs(l.direction().x * std::sin(a) - l.direction().y * std::cos(a)); };
    auto off = [&](auto const& l) {
        return std::fabs((l.point().x - 1000.0) * std::sin(a) - (l.point().y - 500.0) * std::cos(a));
    };
    EXPECT_LT(ang(line), 2e-7);
    EXPECT_LT(off(line), 1e-5);
    EXPECT_LT(ang(lf), 2e-7);
    EXPECT_LT(off(lf), 1e-5);
    // sigma^2 within sampling (0.3 %) and the rounding of terms 1e12 times larger.
    EXPECT_NEAR(ms, 1e-6, 1e-7);
    record({{"lsq_line_ang", ang(line)}, {"lsq_line_off", off(line)}, {"lsq_line_ms_rel", ms / 1e-6 - 1.0},
            {"lsq_line_float_ang", ang(lf)}, {"lsq_line_float_off", off(lf)}});
}

// Too few points (n <= 3), rank-deficient systems (collinear, coincident) and
// non-finite or overflowing input: NaN circle from both fits, no throw, NaN
// record; four points of a circle give that circle.  On noisy arcs Beta gives
// the bits of fitCircleLsq and the record holds StdAbwCircle2 of the result.
TYPED_TEST(ApproxLsq, CircleInvalidCasesAndFourPoints) {
    using T = TypeParam;
    const T nan = std::numeric_limits<T>::quiet_NaN(), inf = std::numeric_limits<T>::infinity();
    const T big = std::is_same<T, float>::value ? T(1e30) : T(1e200);
    const V2<T> four = pts2<T>({{7, 2}, {2, 7}, {-3, 2}, {2, -3}}), general = pts2<T>({{0, 0}, {1, 0}, {0, 1}, {2, 3}});
    std::vector<V2<T>> sets{V2<T>(), V2<T>(four.begin(), four.begin() + 1), V2<T>(four.begin(), four.begin() + 3),
                            pts2<T>({{0, 0}, {1, 1}, {2, 2}, {3, 3}, {4, 4}}),
                            pts2<T>({{0, 1}, {1, 2}, {2, 3}, {3, 4}, {5, 6}}),
                            pts2<T>({{-3, 7}, {-3, 7.5}, {-3, 8}, {-3, 20}}), V2<T>(10, Cpoint2<T>(T(2.5), T(-1))),
                            general, general, general};
    sets[7][2].x = nan;
    sets[8][1].y = inf;
    for (auto& p : sets[9]) p = Cpoint2<T>(p.x * big, p.y * big);
    for (std::size_t k = 0; k < sets.size(); ++k) {
        SCOPED_TRACE(k);
        Ccircle2<T> c(Cpoint2<T>(T(1), T(1)), T(1)), b = c;
        CqCircleLsqStdAbw<T> rec{T(1)};
        approximate<T>::fitCircleLsq(sets[k], c, rec);
        EXPECT_NO_THROW(approximate<T>::fitCircleLsqBeta(sets[k], b));
        EXPECT_TRUE(std::isnan(c.center().x) && std::isnan(c.radius()) && std::isnan(rec.stdAbw));
        EXPECT_TRUE(std::isnan(b.center().y) && std::isnan(b.radius()));
    }
    Ccircle2<T> c;
    approximate<T>::fitCircleLsq(four, c);
    EXPECT_NEAR(c.center().x, 2.0, tolOf<T>(1e-12, 1e-5));
    EXPECT_NEAR(c.center().y, 2.0, tolOf<T>(1e-12, 1e-5));
    EXPECT_NEAR(c.radius(), 5.0, tolOf<T>(1e-12, 1e-5));
    std::mt19937_64 rng(201);
    for (int k = 0; k < 30; ++k) {
        const V2<T> v = noisyArc<T>(rng, 4 + 2 * k, 7.0 * k - 100, 50.0 - 3 * k, 1.0 + k, 0.2 * k, 1.0 + 0.4 * k, 0.02 * k);
        Ccircle2<T> b;
        CqCircleLsqStdAbw<T> rec;
        approximate<T>::fitCircleLsq(v, c, rec);
        approximate<T>::fitCircleLsqBeta(v, b);
        EXPECT_EQ(b.center(), c.center()) << k;
        EXPECT_EQ(b.radius(), c.radius()) << k;
        EXPECT_TRUE(sameValue(rec.stdAbw, approximate<T>::StdAbwCircle2(v, c))) << k;
    }
}

// The design matrix of fitCircleLsqBeta has one row per point; a count beyond
// 32 bits is refused before allocation instead of being narrowed.
TEST(ApproxLsqBeta, DesignMatrixRowsAreNotNarrowed) {
    EXPECT_EQ(approx_detail::matrixRows(0xFFFFFFFFu), 0xFFFFFFFFu);
    for (std::size_t n : {std::size_t(1) << 32, (std::size_t(1) << 32) + 5}) try {
            approx_detail::matrixRows(n);
            ADD_FAILURE() << n;
        } catch (CthrowMath const& e) {
            EXPECT_EQ(e.id(), CthrowMath::ERR_MATRIX_DIMS);
        }
}

// r = 10 mm at (1000, 2000) mm, 1 um noise.  A 30 degree arc fixes the centre
// only along its mid-normal (the orthogonal fit scatters as much); a full
// circle gives the centre to sigma / sqrt(n / 2).  Float sums are in double.
TEST(ApproxLsqAccuracy, ArcAndFullCircleFarFromOrigin) {
    const double cx = 1000.0, cy = 2000.0, r = 10.0, pi = 3.14159265358979323846;
    double worstC = 0, worstR = 0, worstGeo = 0, worstFloat = 0;
    for (int seed = 0; seed < 20; ++seed) {
        std::mt19937_64 rng(300 + seed);
        const V2<double> v = noisyArc<double>(rng, 200, cx, cy, r, 0.2, 0.2 + pi / 6, 1e-3);
        Ccircle2<double> c, g;
        Ccircle2<float> cf;
        approximate<double>::fitCircleLsq(v, c);
        approximate<double>::fitCircleGeom(v, g);
        approximate<float>::fitCircleLsq(toFloat(v), cf);
        worst(worstC, std::hypot(c.center().x - cx, c.center().y - cy));
        worst(worstR, std::fabs(c.radius() - r));
        worst(worstGeo, std::hypot(g.center().x - cx, g.center().y - cy));
        worst(worstFloat, std::hypot(cf.center().x - cx, cf.center().y - cy));
    }
    EXPECT_LT(worstC, 0.02) << "geometric fit scatter " << worstGeo;
    EXPECT_LT(worstR, 0.02);
    EXPECT_LT(worstFloat, 0.02);
    record({{"arc_centre_err_um", worstC * 1e3}, {"arc_radius_err_um", worstR * 1e3},
            {"arc_geometric_err_um", worstGeo * 1e3}, {"arc_float_err_um", worstFloat * 1e3}});

    std::mt19937_64 rng(310);
    const V2<double> v = noisyArc<double>(rng, 1000, cx, cy, r, 0.0, 2 * pi, 1e-3);
    Ccircle2<double> c;
    Ccircle2<float> cf;
    approximate<double>::fitCircleLsq(v, c);
    approximate<float>::fitCircleLsq(toFloat(v), cf);
    EXPECT_LT(std::hypot(c.center().x - cx, c.center().y - cy), 2e-4);
    EXPECT_NEAR(c.radius(), r, 2e-4);
    // float input is quantised to 6e-5 / 1.2e-4 mm at these coordinates.
    EXPECT_LT(std::hypot(cf.center().x - cx, cf.center().y - cy), 1e-3);
    EXPECT_NEAR(cf.radius(), r, 1e-3);
}

// The radius is negative exactly when the origin lies inside the sphere (no
// absolute value); the record holds StdAbwSphere, which ignores the radius.
TYPED_TEST(ApproxLsq, SphereSignedRadiusAndRecord) {
    using T = TypeParam;
    std::mt19937_64 rng(402);
    Csphere3<T> s;
    approximate<T>::fitSphereLsq(noisySphere<T>(rng, 200, 0.0, 0.0, 0.0, 4.0, 0.0), s);
    EXPECT_NEAR(s.radius(), -4.0, tolOf<T>(1e-10, 1e-4));
    EXPECT_NEAR(s.center().x, 0.0, tolOf<T>(1e-10, 1e-4));
    approximate<T>::fitSphereLsq(noisySphere<T>(rng, 200, 6.0, -3.0, 2.0, 4.0, 0.0), s);
    EXPECT_NEAR(s.radius(), 4.0, tolOf<T>(1e-10, 1e-3));
    EXPECT_NEAR(s.center().y, -3.0, tolOf<T>(1e-10, 1e-3));
    EXPECT_NEAR(s.center().z, 2.0, tolOf<T>(1e-10, 1e-3));
    const V3<T> v = noisySphere<T>(rng, 50, 1.0, 2.0, 3.0, 4.0, 0.1);
    CqSphereLsqStdAbw<T> rec;
    approximate<T>::fitSphereLsq(v, s, rec);
    EXPECT_EQ(rec.stdAbw, approximate<T>::StdAbwSphere(v, Csphere3<T>(s.center(), T(-100))));
}

// No count check: empty, one to three points, coincident points, points of
// one circle and non-finite points are all the NaN-invalid sphere, no throw.
TYPED_TEST(ApproxLsq, SphereRankDeficientIsInvalid) {
    using T = TypeParam;
    std::vector<V3<T>> sets{V3<T>(), V3<T>(10, Cpoint3<T>(T(1.5), T(-2), T(3))), V3<T>()};
    for (int k = 0; k < 12; ++k) sets[2].emplace_back(T(3 + 2 * std::cos(k * 0.5)), T(1 + 2 * std::sin(k * 0.5)), T(4));
    V3<T> few;
    for (int n = 0; n < 3; ++n) few.emplace_back(T(n + 1), T(2 * n), T(1)), sets.push_back(few);
    sets.push_back(sets[2]);
    sets.back()[4].z = std::numeric_limits<T>::quiet_NaN();
    sets.push_back(sets[2]);
    sets.back()[4].y = std::numeric_limits<T>::infinity();
    for (V3<T> const& v : sets) {
        Csphere3<T> s(Cpoint3<T>(0, 0, 0), T(1));
        EXPECT_NO_THROW(approximate<T>::fitSphereLsq(v, s)) << v.size();
        EXPECT_TRUE(std::isnan(s.radius()) && std::isnan(s.center().x)) << v.size();
    }
}

// The uncentred system loses digits with the distance from the origin: exact
// spheres 45 and 1000 from it, 10^4 points with 1 um noise near it (centre to
// sigma level); in float the origin inside (negative radius) and 45 out.
TEST(ApproxLsqAccuracy, SphereConditionGrowsWithDistanceFromOrigin) {
    struct Case {
        const char* name;
        double cx, cy, cz, sigma, radius, tol;
        std::size_t n;
        bool inFloat;
    };
    const Case cases[] = {{"sphere_d45_err", 30, -20, 25, 0, 10, 1e-7, 500, false},
                          {"sphere_noisy_err", 3, -2, 5, 1e-3, -10, 1e-4, 10000, false},
                          {"sphere_d1000_err", 1000, 0, 0, 0, 10, 1e-6, 500, false},
                          {"sphere_float_near_err", 3, -2, 5, 0, -10, 1e-4, 500, true},
                          {"sphere_float_d45_err", 30, -20, 25, 0, 10, 5e-3, 500, true}};
    std::mt19937_64 rng(403);
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        Csphere3<double> s;
        Csphere3<float> sf;
        if (c.inFloat) {
            approximate<float>::fitSphereLsq(noisySphere<float>(rng, c.n, c.cx, c.cy, c.cz, 10.0, c.sigma), sf);
            s = Csphere3<double>(Cpoint3<double>(sf.center().x, sf.center().y, sf.center().z), sf.radius());
        } else {
            approximate<double>::fitSphereLsq(noisySphere<double>(rng, c.n, c.cx, c.cy, c.cz, 10.0, c.sigma), s);
        }
        const double err = std::fabs(s.radius() - c.radius) +
                           (vec(s.center()) - Eigen::Vector3d(c.cx, c.cy, c.cz)).lpNorm<Eigen::Infinity>();
        EXPECT_LT(err, c.tol);
        record({{c.name, err}});
    }
}

// The measures are sample standard deviations about the mean (long double
// oracle): a constant offset of the distances gives 0; fewer than two points,
// a zero direction or a non-finite point give NaN.
TYPED_TEST(ApproxLsq, DeviationMeasures) {
    using T = TypeParam;
    std::mt19937_64 rng(501);
    std::uniform_real_distribution<double> u(-10.0, 10.0);
    for (int trial = 0; trial < 50; ++trial) {
        const std::size_t n = 2 + trial * 7;
        V2<T> v(n);
        V3<T> w(n);
        for (std::size_t i = 0; i < n; ++i) {
            v[i] = Cpoint2<T>(T(u(rng)), T(u(rng)));
            w[i] = Cpoint3<T>(T(u(rng)), T(u(rng)), T(u(rng)));
        }
        const Cpoint2<T> q(T(u(rng)), T(u(rng)));
        const double a = u(rng);
        const Cline2<T> line(q, Cdirec2<T>(T(std::cos(a)), T(std::sin(a))));
        std::vector<long double> dl, dc, ds;
        for (std::size_t i = 0; i < n; ++i) {
            const long double px = v[i].x - (long double)q.x, py = v[i].y - (long double)q.y;
            dl.push_back(-(long double)line.direction().y * px + (long double)line.direction().x * py);
            dc.push_back(std::sqrt(px * px + py * py));
            const long double sx = w[i].x - 1.0L, sy = w[i].y - 2.0L, sz = w[i].z - 3.0L;
            ds.push_back(std::sqrt(sx * sx + sy * sy + sz * sz));
        }
        // One-pass formula in T: relative error ~ n eps (mean^2 / variance).
        const double rel = tolOf<T>(1e-12, 2e-4), sl = double(sampleStd(dl)), sc = double(sampleStd(dc)),
                     ss = double(sampleStd(ds));
        EXPECT_NEAR(approximate<T>::StdAbwLine2(v, line), sl, rel * sl + 1e-30);
        EXPECT_NEAR(approximate<T>::StdAbwCircle2(v, Ccircle2<T>(q, T(3))), sc, rel * 10 * sc);
        EXPECT_NEAR(approximate<T>::StdAbwSphere(w, Csphere3<T>(Cpoint3<T>(T(1), T(2), T(3)), T(3))), ss, rel * 10 * ss);
    }
    const V2<T> par = pts2<T>({{-3, 2}, {0, 2}, {1, 2}, {7, 2}});
    const Cpoint2<T> o(T(0), T(0));
    const Cline2<T> l(o, Cdirec2<T>(T(1), T(0), true));
    EXPECT_EQ(approximate<T>::StdAbwLine2(par, l), T(0));
    EXPECT_EQ(approximate<T>::StdAbwLine2(par, Cline2<T>(o, Cdirec2<T>(T(3), T(0), true))), T(0));  // normalised
    const V3<T> sph{{T(3), T(0), T(0)}, {T(0), T(-3), T(0)}, {T(0), T(0), T(3)}, {T(1), T(2), T(2)}, {T(-2), T(1), T(-2)}};
    const Csphere3<T> unit(Cpoint3<T>(), T(1));

    V2<T> bad2 = par;
    V3<T> bad3 = sph;
    bad2[1].y = std::numeric_limits<T>::quiet_NaN();
    bad3[2].x = std::numeric_limits<T>::infinity();
    for (V2<T> const& v : {V2<T>(), pts2<T>({{1, 2}}), bad2}) {
        EXPECT_FALSE(std::isfinite(approximate<T>::StdAbwCircle2(v, Ccircle2<T>(o, T(1)))));
        EXPECT_FALSE(std::isfinite(approximate<T>::StdAbwLine2(v, l)));
    }
    for (V3<T> const& v : {V3<T>(), V3<T>(1), bad3}) EXPECT_FALSE(std::isfinite(approximate<T>::StdAbwSphere(v, unit)));
    EXPECT_TRUE(std::isnan(approximate<T>::StdAbwLine2(par, Cline2<T>(o, Cdirec2<T>(T(0), T(0), true)))));
}

// Coordinates stored elsewhere (an interleaved array, as numpy or a mapped
// file hold them) are fitted in place through CpointSpan, with the same bits
// as a fit of the same points in a vector.
TEST(ApproximateSpan, InterleavedCoordinatesFitInPlace) {
    std::mt19937_64 rng(41);
    std::normal_distribution<double> g(0.0, 1.0);
    std::vector<double> xy(2 * 500), xyz(3 * 500);
    for (std::size_t i = 0; i < 500; ++i) {
        xyz[3 * i] = xy[2 * i] = 100 + 5 * std::cos(0.01 * double(i)) + 1e-3 * g(rng);
        xyz[3 * i + 1] = xy[2 * i + 1] = -50 + 5 * std::sin(0.01 * double(i)) + 1e-3 * g(rng);
        xyz[3 * i + 2] = 0.5 * xy[2 * i] + 1e-3 * g(rng);
    }
    const CpointSpan<Cpoint2<double>> s2(reinterpret_cast<Cpoint2<double> const*>(xy.data()), 500);
    const CpointSpan<Cpoint3<double>> s3(reinterpret_cast<Cpoint3<double> const*>(xyz.data()), 500);
    ASSERT_EQ(&s2[7].y, &xy[15]);
    ASSERT_EQ(&s3.back().z, &xyz.back());
    const V2<double> v2(s2.begin(), s2.end());
    const V3<double> v3(s3.begin(), s3.end());
    Ccircle2<double> a, b;
    approximate<double>::fitCircleGeom(s2, a);
    approximate<double>::fitCircleGeom(v2, b);
    EXPECT_EQ(a.center(), b.center());
    EXPECT_NEAR(a.radius(), 5.0, 1e-3);
    EXPECT_EQ(approximate<double>::StdAbwCircle2(s2, a), approximate<double>::StdAbwCircle2(v2, a));
    Cplane3<double> pa, pb;
    approximate<double>::fitPlaneGeom(s3, pa);
    approximate<double>::fitPlaneGeom(v3, pb);
    EXPECT_EQ(pa.d(), pb.d());
    // An empty view is too few points, as an empty vector is.
    approximate<double>::fitCircleLsq(CpointSpan<Cpoint2<double>>(), a);
    EXPECT_TRUE(std::isnan(a.radius()));
}
