// Tests of the closed-form fits of approximate<T>: algebraic line, circle and
// sphere fits and the deviation measures.  Oracles: Eigen least-squares
// solutions of the same algebraic models, direct long double evaluation of the
// deviation formulas, and the true primitives of synthetic measurement data.
#include <math/approximate.h>
#include <math/geometric.h>

#include "approximate_test_util.h"
#include "../source/math_approximate_sums.h"

#include <gtest/gtest.h>

#include <Eigen/Dense>

#include <cmath>
#include <cstdio>
#include <string>
#include <limits>
#include <random>
#include <vector>

using namespace math;
using namespace approx_test;

namespace {

// Points of the line p0 + t*(cos a, sin a), t uniform in [-len/2, len/2],
// displaced across the line by Gaussian noise sigma.
template <class T>
V2<T> noisyLine(std::mt19937_64& rng, std::size_t n, double x0, double y0, double a, double len, double sigma) {
    std::uniform_real_distribution<double> t(-0.5 * len, 0.5 * len);
    std::normal_distribution<double> e(0.0, sigma);
    V2<T> v(n);
    const double dx = std::cos(a), dy = std::sin(a);
    for (auto& p : v) {
        const double s = t(rng), o = sigma > 0 ? e(rng) : 0.0;
        p = Cpoint2<T>(static_cast<T>(x0 + s * dx - o * dy), static_cast<T>(y0 + s * dy + o * dx));
    }
    return v;
}

// Points on the arc of the circle (cx, cy, r) between angles a0 and a1,
// radially displaced by Gaussian noise sigma.
template <class T>
V2<T> noisyArc(std::mt19937_64& rng, std::size_t n, double cx, double cy, double r, double a0, double a1,
               double sigma) {
    std::uniform_real_distribution<double> a(a0, a1);
    std::normal_distribution<double> e(0.0, sigma);
    V2<T> v(n);
    for (auto& p : v) {
        const double phi = a(rng), rr = r + (sigma > 0 ? e(rng) : 0.0);
        p = Cpoint2<T>(static_cast<T>(cx + rr * std::cos(phi)), static_cast<T>(cy + rr * std::sin(phi)));
    }
    return v;
}

// Points on the sphere (c, r), directions uniform, radial noise sigma.
template <class T>
V3<T> noisySphere(std::mt19937_64& rng, std::size_t n, double cx, double cy, double cz, double r, double sigma) {
    std::normal_distribution<double> g(0.0, 1.0);
    std::normal_distribution<double> e(0.0, sigma);
    V3<T> v(n);
    for (auto& p : v) {
        double x = g(rng), y = g(rng), z = g(rng);
        const double s = (r + (sigma > 0 ? e(rng) : 0.0)) / std::sqrt(x * x + y * y + z * z);
        p = Cpoint3<T>(static_cast<T>(cx + s * x), static_cast<T>(cy + s * y), static_cast<T>(cz + s * z));
    }
    return v;
}

// Equal, or both NaN (the deviation measures give NaN when rounding makes the
// variance of exactly fitting data slightly negative).
template <class T>
bool sameValue(T a, T b) {
    return a == b || (std::isnan(a) && std::isnan(b));
}

// Sample standard deviation of the values, in long double, about their mean.
long double sampleStd(std::vector<long double> const& d) {
    long double m = 0;
    for (long double x : d) m += x;
    m /= static_cast<long double>(d.size());
    long double s = 0;
    for (long double x : d) s += (x - m) * (x - m);
    return std::sqrt(s / static_cast<long double>(d.size() - 1));
}

// Orthogonal Gauss-Newton circle fit in double (the geometric fit a user
// compares the algebraic one with), started from the true circle.
void geometricCircle(V2<double> const& pts, double& cx, double& cy, double& r) {
    for (int it = 0; it < 50; ++it) {
        Eigen::MatrixX3d J(pts.size(), 3);
        Eigen::VectorXd res(pts.size());
        for (std::size_t i = 0; i < pts.size(); ++i) {
            const double dx = pts[i].x - cx, dy = pts[i].y - cy, d = std::sqrt(dx * dx + dy * dy);
            J(i, 0) = -dx / d;
            J(i, 1) = -dy / d;
            J(i, 2) = -1.0;
            res[i] = d - r;
        }
        const Eigen::Vector3d step = J.colPivHouseholderQr().solve(-res);
        cx += step[0];
        cy += step[1];
        r += step[2];
        if (step.norm() < 1e-14) break;
    }
}

}  // namespace

template <class T>
class ApproxLsq : public ::testing::Test {};
using FitTypes = ::testing::Types<float, double>;
TYPED_TEST_SUITE(ApproxLsq, FitTypes);

// ---------------------------------------------------------------------------
// Algebraic line
// ---------------------------------------------------------------------------

TYPED_TEST(ApproxLsq, LineTooFewPointsAndTwoPoints) {
    using T = TypeParam;
    for (std::size_t n : {0u, 1u}) {
        V2<T> v = pts2<T>({{1, 2}});
        v.resize(n);
        Cline2<T> line(Cpoint2<T>(T(5), T(6)), Cdirec2<T>(T(1), T(0), true));
        EXPECT_TRUE(std::isnan(approximate<T>::fitLineLsq(v, line)));
        EXPECT_TRUE(std::isnan(line.point().x));
        EXPECT_TRUE(std::isnan(line.direction().x));
        EXPECT_FALSE(line.isValid());
        CqLineLsqNStdAbw<T> rec;
        rec.meanSqDist = T(7);
        approximate<T>::fitLineLsqN(v, line, rec);
        EXPECT_TRUE(std::isnan(rec.meanSqDist));
        EXPECT_FALSE(line.isValid());
    }
    // Exactly two points: the two-point line, and no deviation.
    const V2<T> two = pts2<T>({{1, 2}, {4, 6}});
    Cline2<T> line;
    EXPECT_TRUE(std::isnan(approximate<T>::fitLineLsq(two, line)));
    EXPECT_EQ(line.point(), two[0]);
    EXPECT_EQ(line.direction().x, T(0.6));
    EXPECT_EQ(line.direction().y, T(0.8));
    CqLineLsqNStdAbw<T> rec;
    rec.meanSqDist = T(0);
    approximate<T>::fitLineLsqN(two, line, rec);
    EXPECT_TRUE(std::isnan(rec.meanSqDist));
    // Two equal points: the two-point constructor's invalid line.
    const V2<T> same = pts2<T>({{1, 2}, {1, 2}});
    approximate<T>::fitLineLsq(same, line);
    EXPECT_FALSE(line.isValid());
}

TYPED_TEST(ApproxLsq, LineExactCases) {
    using T = TypeParam;
    Cline2<T> line;
    // Vertical line x = 3: B = 0, point (D/A, y of the first point), direction (0, 1).
    const V2<T> vert = pts2<T>({{3, 0}, {3, 1}, {3, 5}});
    EXPECT_EQ(approximate<T>::fitLineLsq(vert, line), 0.0);
    EXPECT_EQ(line.point().x, T(3));
    EXPECT_EQ(line.point().y, T(0));
    EXPECT_EQ(line.direction().x, T(0));
    EXPECT_EQ(line.direction().y, T(1));

    // y = 2x + 1: the integer sums are exact, so the mean square is exactly 0.
    const V2<T> l = pts2<T>({{0, 1}, {1, 3}, {2, 5}, {3, 7}, {-4, -7}});
    EXPECT_EQ(approximate<T>::fitLineLsq(l, line), 0.0);
    EXPECT_EQ(line.point().x, T(0));
    EXPECT_EQ(line.point().y, T(1));
    EXPECT_NEAR(line.direction().x, 1.0 / std::sqrt(5.0), tolOf<T>(1e-15, 1e-7));
    EXPECT_NEAR(line.direction().y, 2.0 / std::sqrt(5.0), tolOf<T>(1e-15, 1e-7));
    CqLineLsqNStdAbw<T> rec;
    approximate<T>::fitLineLsqN(l, line, rec);
    EXPECT_EQ(rec.meanSqDist, T(0));

    // Through the origin: A = B = D = 0, the model a*x + b*y = 1 has no solution.
    const V2<T> origin = pts2<T>({{0, 0}, {1, 1}, {2, 2}});
    approximate<T>::fitLineLsq(origin, line);
    EXPECT_TRUE(std::isnan(line.point().x));
    EXPECT_FALSE(line.isValid());
}

// Against the least-squares solution of [x y] (a, b)^T = 1 computed by Eigen,
// and the directly evaluated mean squared distance from a*x + b*y = 1.
TYPED_TEST(ApproxLsq, LineMatchesLeastSquaresOracle) {
    using T = TypeParam;
    std::mt19937_64 rng(101);
    std::uniform_real_distribution<double> pos(-50.0, 50.0), ang(0.0, 3.14159), noise(0.0, 0.5);
    for (int trial = 0; trial < 200; ++trial) {
        const std::size_t n = 3 + trial % 40;
        const double x0 = pos(rng), y0 = pos(rng);
        // Keep the line well away from the origin (the model's blind spot).
        if (std::hypot(x0, y0) < 5.0) continue;
        const V2<T> v = noisyLine<T>(rng, n, x0, y0, ang(rng), 20.0, noise(rng));

        Eigen::MatrixX2d M(n, 2);
        for (std::size_t i = 0; i < n; ++i) M.row(i) << v[i].x, v[i].y;
        const Eigen::Vector2d ab = M.colPivHouseholderQr().solve(Eigen::VectorXd::Ones(n));
        long double ms = 0;
        const long double nrm2 = (long double)ab[0] * ab[0] + (long double)ab[1] * ab[1];
        for (auto const& p : v) {
            const long double r = ab[0] * (long double)p.x + ab[1] * (long double)p.y - 1.0L;
            ms += r * r / nrm2;
        }
        ms /= n;

        Cline2<T> line;
        const double got = approximate<T>::fitLineLsq(v, line);
        // Point on the oracle line, direction perpendicular to (a, b).
        const double lenab = std::hypot(ab[0], ab[1]);
        const double onLine = (ab[0] * line.point().x + ab[1] * line.point().y - 1.0) / lenab;
        const double perp = (ab[0] * line.direction().x + ab[1] * line.direction().y) / lenab;
        // float: the point is stored in float (coordinates up to ~60, ulp 4e-6).
        EXPECT_NEAR(onLine, 0.0, tolOf<T>(1e-9, 2e-5)) << trial;
        EXPECT_NEAR(perp, 0.0, tolOf<T>(1e-10, 2e-7)) << trial;
        EXPECT_NEAR(std::hypot(line.direction().x, line.direction().y), 1.0, tolOf<T>(1e-15, 1e-7));
        // The mean square is formed from double sums in both instantiations; it
        // is a difference of large terms, so compare relative to the sums' scale.
        EXPECT_NEAR(got, static_cast<double>(ms), 1e-9 * (1.0 + static_cast<double>(ms)) * 1e3) << trial;

        CqLineLsqNStdAbw<T> rec;
        Cline2<T> line2;
        approximate<T>::fitLineLsqN(v, line2, rec);
        EXPECT_EQ(rec.meanSqDist, static_cast<T>(got));
        EXPECT_EQ(line2.point(), line.point());
    }
}

// A measured edge 1000 mm from the origin, 100 mm long, 1 um noise, 10^6
// points: the algebraic line agrees with the true line to well below the noise.
TEST(ApproxLsqAccuracy, LineFarFromOriginMillionPoints) {
    std::mt19937_64 rng(102);
    const double a = 0.7;
    const V2<double> v = noisyLine<double>(rng, 1000000, 1000.0, 500.0, a, 100.0, 1e-3);
    Cline2<double> line;
    const double ms = approximate<double>::fitLineLsq(v, line);
    const double angErr = std::fabs(line.direction().x * std::sin(a) - line.direction().y * std::cos(a));
    const double distErr = std::fabs((line.point().x - 1000.0) * std::sin(a) - (line.point().y - 500.0) * std::cos(a));
    // Statistical errors: angle ~ sigma/(sqrt(n)*L/sqrt(12)) ~ 3.5e-8 rad,
    // offset ~ 1e-6 mm; rounding of the raw sums adds less than that.
    EXPECT_LT(angErr, 2e-7);
    EXPECT_LT(distErr, 1e-5);
    // Mean square distance = sigma^2 within the sampling error (0.3 %) and the
    // rounding of the expanded formula, whose terms are (1000 mm / 1 um)^2 =
    // 1e12 times larger than the result: a few percent here (the rounding of
    // the sums, hence this error, depends on their order).
    EXPECT_NEAR(ms, 1e-6, 1e-7);
    RecordProperty("lsq_line_ang", sci(angErr));
    RecordProperty("lsq_line_off", sci(distErr));
    RecordProperty("lsq_line_ms_rel", sci(ms / 1e-6 - 1.0));

    // float input, double sums: as good, up to the input's quantisation.
    V2<float> vf;
    for (auto const& p : v) vf.emplace_back(static_cast<float>(p.x), static_cast<float>(p.y));
    Cline2<float> lf;
    approximate<float>::fitLineLsq(vf, lf);
    const double angF = std::fabs(lf.direction().x * std::sin(a) - lf.direction().y * std::cos(a));
    const double offF = std::fabs((lf.point().x - 1000.0) * std::sin(a) - (lf.point().y - 500.0) * std::cos(a));
    EXPECT_LT(angF, 2e-7);
    EXPECT_LT(offF, 1e-5);
    RecordProperty("lsq_line_float_ang", sci(angF));
    RecordProperty("lsq_line_float_off", sci(offF));
}

// ---------------------------------------------------------------------------
// Algebraic circle
// ---------------------------------------------------------------------------

TYPED_TEST(ApproxLsq, CircleTooFewPoints) {
    using T = TypeParam;
    const V2<T> all = pts2<T>({{1, 0}, {0, 1}, {-1, 0}, {0, -1}});
    for (std::size_t n = 0; n <= 3; ++n) {
        const V2<T> v(all.begin(), all.begin() + n);
        Ccircle2<T> c(Cpoint2<T>(T(1), T(1)), T(1));
        approximate<T>::fitCircleLsq(v, c);
        EXPECT_TRUE(std::isnan(c.center().x)) << n;
        EXPECT_TRUE(std::isnan(c.radius())) << n;
        Ccircle2<T> b(Cpoint2<T>(T(1), T(1)), T(1));
        approximate<T>::fitCircleLsqBeta(v, b);
        EXPECT_TRUE(std::isnan(b.center().x)) << n;
        EXPECT_TRUE(std::isnan(b.radius())) << n;
        CqCircleLsqStdAbw<T> rec;
        rec.stdAbw = T(1);
        approximate<T>::fitCircleLsq(v, c, rec);
        EXPECT_TRUE(std::isnan(rec.stdAbw)) << n;
        EXPECT_FALSE(c.isValid());
    }
    // Four points of a circle give that circle.
    Ccircle2<T> c;
    const V2<T> four = pts2<T>({{7, 2}, {2, 7}, {-3, 2}, {2, -3}});
    approximate<T>::fitCircleLsq(four, c);
    EXPECT_NEAR(c.center().x, 2.0, tolOf<T>(1e-12, 1e-5));
    EXPECT_NEAR(c.center().y, 2.0, tolOf<T>(1e-12, 1e-5));
    EXPECT_NEAR(c.radius(), 5.0, tolOf<T>(1e-12, 1e-5));
}

// Against Eigen's least-squares solution of the same algebraic model
// A*(u^2+v^2) + B*u + C*v = 1 on centred coordinates, over random circles,
// arcs and noise levels; Beta must give bit for bit the same circle.
TYPED_TEST(ApproxLsq, CircleMatchesAlgebraicOracle) {
    using T = TypeParam;
    std::mt19937_64 rng(201);
    std::uniform_real_distribution<double> pos(-100.0, 100.0), rad(1.0, 50.0), ang(0.0, 6.2831853),
        span(1.0, 6.2831853), noise(0.0, 0.05);
    for (int trial = 0; trial < 200; ++trial) {
        const std::size_t n = 4 + trial % 60;
        const double cx = pos(rng), cy = pos(rng), r = rad(rng), a0 = ang(rng);
        const V2<T> v = noisyArc<T>(rng, n, cx, cy, r, a0, a0 + span(rng), noise(rng) * r);

        double mx = 0, my = 0;
        for (auto const& p : v) mx += p.x, my += p.y;
        mx /= n, my /= n;
        Eigen::MatrixXd M(n, 3);
        for (std::size_t i = 0; i < n; ++i) {
            const double u = v[i].x - mx, w = v[i].y - my;
            M.row(i) << u * u + w * w, u, w;
        }
        const Eigen::Vector3d s = M.jacobiSvd(Eigen::ComputeThinU | Eigen::ComputeThinV).solve(Eigen::VectorXd::Ones(n));
        const double ocx = mx - 0.5 * s[1] / s[0], ocy = my - 0.5 * s[2] / s[0];
        const double orad = std::fabs(0.5 * std::sqrt(s[1] * s[1] + s[2] * s[2] + 4 * s[0]) / s[0]);

        Ccircle2<T> c;
        approximate<T>::fitCircleLsq(v, c);
        // float: the normal equations are rounded to float; their condition on
        // arcs of one radian stays below ~1e3, so 1e-3 of the radius is safe.
        const double tol = tolOf<T>(1e-7, 2e-3) * r;
        EXPECT_NEAR(c.center().x, ocx, tol) << trial;
        EXPECT_NEAR(c.center().y, ocy, tol) << trial;
        EXPECT_NEAR(c.radius(), orad, tol) << trial;

        Ccircle2<T> b;
        approximate<T>::fitCircleLsqBeta(v, b);
        EXPECT_EQ(b.center(), c.center()) << trial;
        EXPECT_EQ(b.radius(), c.radius()) << trial;

        CqCircleLsqStdAbw<T> rec;
        Ccircle2<T> c2;
        approximate<T>::fitCircleLsq(v, c2, rec);
        EXPECT_TRUE(sameValue(rec.stdAbw, approximate<T>::StdAbwCircle2(v, c2)));
    }
}

// Collinear or coincident points make the circle system rank-deficient: the
// circle is NaN-invalid (both fits).  Non-finite input never reaches the
// eigen stage of fitCircleLsqBeta.
TYPED_TEST(ApproxLsq, CircleDegenerateAndNonFiniteAreInvalid) {
    using T = TypeParam;
    const T nan = std::numeric_limits<T>::quiet_NaN(), inf = std::numeric_limits<T>::infinity();
    const T big = std::is_same<T, float>::value ? T(1e30) : T(1e200);
    const V2<T> general = pts2<T>({{0, 0}, {1, 0}, {0, 1}, {2, 3}});
    const std::vector<V2<T>> sets{pts2<T>({{0, 0}, {1, 1}, {2, 2}, {3, 3}, {4, 4}}),
                                  pts2<T>({{0, 1}, {1, 2}, {2, 3}, {3, 4}, {5, 6}}),
                                  pts2<T>({{-3, 7}, {-3, 7.5}, {-3, 8}, {-3, 20}}),
                                  V2<T>(10, Cpoint2<T>(T(2.5), T(-1))), general, general, general};
    for (std::size_t k = 0; k < sets.size(); ++k) {
        V2<T> v = sets[k];
        if (k == 4) v[2].x = nan;
        if (k == 5) v[1].y = inf;
        if (k == 6)
            for (auto& p : v) p = Cpoint2<T>(p.x * big, p.y * big);
        Ccircle2<T> c, b;
        approximate<T>::fitCircleLsq(v, c);
        EXPECT_NO_THROW(approximate<T>::fitCircleLsqBeta(v, b)) << k;
        EXPECT_FALSE(c.isValid()) << k << " r = " << c.radius();
        EXPECT_FALSE(b.isValid()) << k << " r = " << b.radius();
        EXPECT_TRUE(std::isnan(c.radius()) && std::isnan(b.center().y)) << k;
    }
}

// The design matrix of fitCircleLsqBeta has one row per point; a count beyond
// 32 bits is refused before allocation instead of being narrowed.
TEST(ApproxLsqBeta, DesignMatrixRowsAreNotNarrowed) {
    EXPECT_EQ(approx_detail::matrixRows(0xFFFFFFFFu), 0xFFFFFFFFu);
    for (std::size_t n : {std::size_t(1) << 32, (std::size_t(1) << 32) + 5})
        try {
            approx_detail::matrixRows(n);
            ADD_FAILURE() << n;
        } catch (CthrowMath const& e) {
            EXPECT_EQ(e.id(), CthrowMath::ERR_MATRIX_DIMS);
        }
}

// A 30 degree arc of radius 10 mm centred at (1000, 2000) mm, 200 points, 1 um
// noise: the algebraic fit against the truth and against the orthogonal fit.
TEST(ApproxLsqAccuracy, ShortArcFarFromOrigin) {
    const double cx = 1000.0, cy = 2000.0, r = 10.0;
    const double pi = 3.14159265358979323846;
    double worstC = 0, worstR = 0, worstGeo = 0, worstFloat = 0;
    for (int seed = 0; seed < 20; ++seed) {
        std::mt19937_64 rng(300 + seed);
        const V2<double> v = noisyArc<double>(rng, 200, cx, cy, r, 0.2, 0.2 + pi / 6, 1e-3);
        Ccircle2<double> c;
        approximate<double>::fitCircleLsq(v, c);
        worstC = std::max(worstC, std::hypot(c.center().x - cx, c.center().y - cy));
        worstR = std::max(worstR, std::fabs(c.radius() - r));

        double gx = cx, gy = cy, gr = r;
        geometricCircle(v, gx, gy, gr);
        worstGeo = std::max(worstGeo, std::hypot(gx - cx, gy - cy));

        V2<float> vf;
        for (auto const& p : v) vf.emplace_back(static_cast<float>(p.x), static_cast<float>(p.y));
        Ccircle2<float> cf;
        approximate<float>::fitCircleLsq(vf, cf);
        worstFloat = std::max(worstFloat, std::hypot(cf.center().x - cx, cf.center().y - cy));
    }
    // The short arc fixes the centre only along the arc's mid-normal to about
    // sigma * 40: the orthogonal fit scatters by the same order.
    EXPECT_LT(worstC, 0.02) << "geometric fit scatter " << worstGeo;
    EXPECT_LT(worstR, 0.02);
    EXPECT_LT(worstGeo, 0.02);
    // float: input quantised to 0.1 um and the 3x3 system rounded to single
    // precision; the moments are centred and summed in double, so float does
    // about as well as double here.
    EXPECT_LT(worstFloat, 0.02);
    RecordProperty("arc_centre_err_um", sci(worstC * 1e3));
    RecordProperty("arc_radius_err_um", sci(worstR * 1e3));
    RecordProperty("arc_geometric_err_um", sci(worstGeo * 1e3));
    RecordProperty("arc_float_err_um", sci(worstFloat * 1e3));
}

TEST(ApproxLsqAccuracy, FullCircleFloatAndDouble) {
    std::mt19937_64 rng(310);
    const V2<double> v = noisyArc<double>(rng, 1000, 1000.0, 2000.0, 10.0, 0.0, 6.2831853, 1e-3);
    V2<float> vf;
    for (auto const& p : v) vf.emplace_back(static_cast<float>(p.x), static_cast<float>(p.y));
    Ccircle2<double> c;
    Ccircle2<float> cf;
    approximate<double>::fitCircleLsq(v, c);
    approximate<float>::fitCircleLsq(vf, cf);
    // sigma / sqrt(n / 2) ~ 4.5e-5 mm statistical scatter of the centre.
    EXPECT_LT(std::hypot(c.center().x - 1000.0, c.center().y - 2000.0), 2e-4);
    EXPECT_NEAR(c.radius(), 10.0, 2e-4);
    // float input is quantised to 6e-5 / 1.2e-4 mm at these coordinates.
    EXPECT_LT(std::hypot(cf.center().x - 1000.0, cf.center().y - 2000.0), 1e-3);
    EXPECT_NEAR(cf.radius(), 10.0, 1e-3);
}

// ---------------------------------------------------------------------------
// Algebraic sphere
// ---------------------------------------------------------------------------

TYPED_TEST(ApproxLsq, SphereSignedRadius) {
    using T = TypeParam;
    std::mt19937_64 rng(401);
    // Centred at the origin: the origin is inside, the radius comes out negative.
    const V3<T> inside = noisySphere<T>(rng, 200, 0.0, 0.0, 0.0, 4.0, 0.0);
    Csphere3<T> s;
    approximate<T>::fitSphereLsq(inside, s);
    EXPECT_NEAR(s.radius(), -4.0, tolOf<T>(1e-10, 1e-4));
    EXPECT_NEAR(s.center().x, 0.0, tolOf<T>(1e-10, 1e-4));
    EXPECT_NEAR(s.center().y, 0.0, tolOf<T>(1e-10, 1e-4));
    EXPECT_NEAR(s.center().z, 0.0, tolOf<T>(1e-10, 1e-4));
    // Off-centre but still containing the origin: still negative.
    const V3<T> inside2 = noisySphere<T>(rng, 200, 1.0, -2.0, 0.5, 4.0, 0.0);
    approximate<T>::fitSphereLsq(inside2, s);
    EXPECT_NEAR(s.radius(), -4.0, tolOf<T>(1e-10, 1e-4));
    EXPECT_NEAR(s.center().y, -2.0, tolOf<T>(1e-10, 1e-4));
    // Origin outside: positive.
    const V3<T> outside = noisySphere<T>(rng, 200, 6.0, -3.0, 2.0, 4.0, 0.0);
    approximate<T>::fitSphereLsq(outside, s);
    EXPECT_NEAR(s.radius(), 4.0, tolOf<T>(1e-10, 1e-3));
    EXPECT_NEAR(s.center().x, 6.0, tolOf<T>(1e-10, 1e-3));
    EXPECT_NEAR(s.center().y, -3.0, tolOf<T>(1e-10, 1e-3));
    EXPECT_NEAR(s.center().z, 2.0, tolOf<T>(1e-10, 1e-3));
    // The record holds StdAbwSphere of the result; it does not read the radius.
    CqSphereLsqStdAbw<T> rec;
    approximate<T>::fitSphereLsq(outside, s, rec);
    EXPECT_TRUE(sameValue(rec.stdAbw, approximate<T>::StdAbwSphere(outside, s)));
    const Csphere3<T> other(s.center(), T(-100));
    EXPECT_TRUE(sameValue(rec.stdAbw, approximate<T>::StdAbwSphere(outside, other)));
}

// Against Eigen's least-squares solution of the same model on raw coordinates.
TYPED_TEST(ApproxLsq, SphereMatchesAlgebraicOracle) {
    using T = TypeParam;
    std::mt19937_64 rng(402);
    std::uniform_real_distribution<double> pos(-10.0, 10.0), rad(5.0, 20.0), noise(0.0, 0.02);
    for (int trial = 0; trial < 100; ++trial) {
        const std::size_t n = 10 + trial % 50;
        const double cx = pos(rng), cy = pos(rng), cz = pos(rng), r = rad(rng);
        const V3<T> v = noisySphere<T>(rng, n, cx, cy, cz, r, noise(rng) * r);
        Eigen::MatrixXd M(n, 4);
        for (std::size_t i = 0; i < n; ++i)
            M.row(i) << (double)v[i].x * v[i].x + (double)v[i].y * v[i].y + (double)v[i].z * v[i].z, v[i].x, v[i].y,
                v[i].z;
        const Eigen::Vector4d s = M.jacobiSvd(Eigen::ComputeThinU | Eigen::ComputeThinV).solve(Eigen::VectorXd::Ones(n));
        const double orad = -0.5 * std::sqrt(s[1] * s[1] + s[2] * s[2] + s[3] * s[3] + 4 * s[0]) / s[0];

        Csphere3<T> sp;
        approximate<T>::fitSphereLsq(v, sp);
        const double tol = tolOf<T>(1e-8, 5e-3) * r;
        EXPECT_NEAR(sp.center().x, -0.5 * s[1] / s[0], tol) << trial;
        EXPECT_NEAR(sp.center().y, -0.5 * s[2] / s[0], tol) << trial;
        EXPECT_NEAR(sp.center().z, -0.5 * s[3] / s[0], tol) << trial;
        EXPECT_NEAR(sp.radius(), orad, tol) << trial;
        // Origin inside the true sphere (|c| < r - noise) <=> negative radius.
        const double dist = std::sqrt(cx * cx + cy * cy + cz * cz);
        if (dist < 0.8 * r) {
            EXPECT_LT(sp.radius(), T(0)) << trial;
        } else if (dist > 1.2 * r) {
            EXPECT_GT(sp.radius(), T(0)) << trial;
        }
    }
}

// Without a count check, every rank-deficient system (empty set, one to three
// points, coincident points, points on one circle) is reported as the
// NaN-invalid sphere; no throw.
TYPED_TEST(ApproxLsq, SphereRankDeficientIsInvalid) {
    using T = TypeParam;
    std::vector<V3<T>> sets{V3<T>(), V3<T>(10, Cpoint3<T>(T(1.5), T(-2), T(3)))};
    for (std::size_t n : {1u, 2u, 3u}) {
        V3<T> v;
        for (std::size_t i = 0; i < n; ++i) v.emplace_back(T(i + 1), T(2 * i), T(1));
        sets.push_back(v);
    }
    V3<T> ring;
    for (int k = 0; k < 12; ++k) ring.emplace_back(T(3 + 2 * std::cos(k * 0.5)), T(1 + 2 * std::sin(k * 0.5)), T(4));
    sets.push_back(ring);
    for (V3<T> const& v : sets) {
        Csphere3<T> s(Cpoint3<T>(0, 0, 0), T(1));
        EXPECT_NO_THROW(approximate<T>::fitSphereLsq(v, s)) << v.size();
        EXPECT_FALSE(s.isValid()) << v.size() << " r = " << s.radius();
        EXPECT_TRUE(std::isnan(s.radius()) && std::isnan(s.center().x)) << v.size();
    }
}

TEST(ApproxLsqAccuracy, SphereConditionGrowsWithDistanceFromOrigin) {
    // Exact data: the error measures the conditioning of the uncentred system.
    std::mt19937_64 rng(403);
    const V3<double> near = noisySphere<double>(rng, 500, 30.0, -20.0, 25.0, 10.0, 0.0);
    Csphere3<double> s;
    approximate<double>::fitSphereLsq(near, s);
    EXPECT_NEAR(s.center().x, 30.0, 1e-7);
    EXPECT_NEAR(s.radius(), 10.0, 1e-7);
    RecordProperty("sphere_d45_err", sci(std::fabs(s.radius() - 10.0) + std::fabs(s.center().x - 30.0)));
    // With 1 um noise near the origin the centre is found to sigma-level.
    const V3<double> noisy = noisySphere<double>(rng, 10000, 3.0, -2.0, 5.0, 10.0, 1e-3);
    approximate<double>::fitSphereLsq(noisy, s);
    EXPECT_NEAR(s.center().x, 3.0, 1e-4);
    EXPECT_NEAR(s.center().z, 5.0, 1e-4);
    EXPECT_NEAR(std::fabs(s.radius()), 10.0, 1e-4);
    // Far from the origin the raw moments lose digits: 100 radii out, about
    // eight of sixteen remain (measured 3.5e-8 mm).
    const V3<double> far = noisySphere<double>(rng, 500, 1000.0, 0.0, 0.0, 10.0, 0.0);
    approximate<double>::fitSphereLsq(far, s);
    EXPECT_NEAR(s.center().x, 1000.0, 1e-6);
    EXPECT_NEAR(s.radius(), 10.0, 1e-6);
    RecordProperty("sphere_d1000_err", sci(std::fabs(s.radius() - 10.0) + std::fabs(s.center().x - 1000.0)));
    // float near the origin: a sphere containing the origin.
    const V3<float> nearF = noisySphere<float>(rng, 500, 3.0, -2.0, 5.0, 10.0, 0.0);
    Csphere3<float> sf;
    approximate<float>::fitSphereLsq(nearF, sf);
    EXPECT_NEAR(sf.center().x, 3.0, 1e-4);
    EXPECT_NEAR(sf.radius(), -10.0, 1e-4);
    RecordProperty("sphere_float_near_err", sci(std::fabs(sf.radius() + 10.0) + std::fabs(sf.center().x - 3.0)));
    // float, 50 mm from the origin: the uncentred system is beyond single precision.
    const V3<float> midF = noisySphere<float>(rng, 500, 30.0, -20.0, 25.0, 10.0, 0.0);
    approximate<float>::fitSphereLsq(midF, sf);
    EXPECT_NEAR(sf.radius(), 10.0, 5e-3);
    RecordProperty("sphere_float_d45_err", sci(std::fabs(sf.radius() - 10.0) + std::fabs(sf.center().x - 30.0)));
}

// ---------------------------------------------------------------------------
// Deviation measures
// ---------------------------------------------------------------------------

TYPED_TEST(ApproxLsq, DeviationMeasuresIgnoreOffsets) {
    using T = TypeParam;
    // Points of radius 5 (exact distances) against the right centre with radius 1.
    const V2<T> ring = pts2<T>({{5, 0}, {0, 5}, {-5, 0}, {0, -5}, {3, 4}, {-4, 3}, {-3, -4}, {4, -3}});
    V2<T> shifted = ring;
    for (auto& p : shifted) p += Cpoint2<T>(T(10), T(-20));
    EXPECT_EQ(approximate<T>::StdAbwCircle2(shifted, Ccircle2<T>(Cpoint2<T>(T(10), T(-20)), T(1))), T(0));
    // Points 2 units to one side of the line y = 0, on the parallel y = 2.
    const V2<T> par = pts2<T>({{-3, 2}, {0, 2}, {1, 2}, {7, 2}});
    const Cline2<T> xaxis(Cpoint2<T>(T(0), T(0)), Cdirec2<T>(T(1), T(0), true));
    EXPECT_EQ(approximate<T>::StdAbwLine2(par, xaxis), T(0));
    // The same with an unnormalised direction: it is normalised first.
    const Cline2<T> xaxis3(Cpoint2<T>(T(0), T(0)), Cdirec2<T>(T(3), T(0), true));
    EXPECT_EQ(approximate<T>::StdAbwLine2(par, xaxis3), T(0));
    // Sphere points of radius 3 (exact distances) against a sphere of radius 1.
    V3<T> sph{{T(3), T(0), T(0)}, {T(0), T(-3), T(0)}, {T(0), T(0), T(3)}, {T(1), T(2), T(2)}, {T(-2), T(1), T(-2)}};
    EXPECT_EQ(approximate<T>::StdAbwSphere(sph, Csphere3<T>(Cpoint3<T>(T(0), T(0), T(0)), T(1))), T(0));
}

TYPED_TEST(ApproxLsq, DeviationMeasuresDegenerateInput) {
    using T = TypeParam;
    const V2<T> none;
    const V2<T> one = pts2<T>({{1, 2}});
    const Ccircle2<T> c(Cpoint2<T>(T(0), T(0)), T(1));
    const Cline2<T> l(Cpoint2<T>(T(0), T(0)), Cdirec2<T>(T(1), T(0), true));
    EXPECT_TRUE(std::isnan(approximate<T>::StdAbwCircle2(none, c)));
    EXPECT_TRUE(std::isnan(approximate<T>::StdAbwCircle2(one, c)));
    EXPECT_TRUE(std::isnan(approximate<T>::StdAbwLine2(none, l)));
    EXPECT_TRUE(std::isnan(approximate<T>::StdAbwLine2(one, l)));
    EXPECT_TRUE(std::isnan(approximate<T>::StdAbwSphere(V3<T>(), Csphere3<T>(Cpoint3<T>(), T(1)))));
    EXPECT_TRUE(std::isnan(approximate<T>::StdAbwSphere(V3<T>(1), Csphere3<T>(Cpoint3<T>(), T(1)))));
    // A zero direction normalises to NaN.
    const V2<T> three = pts2<T>({{1, 2}, {2, 3}, {4, 1}});
    const Cline2<T> zero(Cpoint2<T>(T(0), T(0)), Cdirec2<T>(T(0), T(0), true));
    EXPECT_TRUE(std::isnan(approximate<T>::StdAbwLine2(three, zero)));
}

// Against the sample standard deviation of the residuals in long double.
TYPED_TEST(ApproxLsq, DeviationMeasuresMatchDirectEvaluation) {
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
        const Ccircle2<T> circ(q, T(3));
        const Csphere3<T> sph(Cpoint3<T>(T(1), T(2), T(3)), T(3));
        std::vector<long double> dl, dc, ds;
        for (std::size_t i = 0; i < n; ++i) {
            const long double px = v[i].x - (long double)q.x, py = v[i].y - (long double)q.y;
            dl.push_back(-(long double)line.direction().y * px + (long double)line.direction().x * py);
            dc.push_back(std::sqrt(px * px + py * py));
            const long double sx = w[i].x - 1.0L, sy = w[i].y - 2.0L, sz = w[i].z - 3.0L;
            ds.push_back(std::sqrt(sx * sx + sy * sy + sz * sz));
        }
        // Sums in T: relative error of the one-pass formula about n*eps times
        // (mean^2 / variance), which stays below ~10 for these data.
        const double rel = tolOf<T>(1e-12, 2e-4);
        EXPECT_NEAR(approximate<T>::StdAbwLine2(v, line), (double)sampleStd(dl), rel * (double)sampleStd(dl) + 1e-30);
        EXPECT_NEAR(approximate<T>::StdAbwCircle2(v, circ), (double)sampleStd(dc), rel * 10 * (double)sampleStd(dc));
        EXPECT_NEAR(approximate<T>::StdAbwSphere(w, sph), (double)sampleStd(ds), rel * 10 * (double)sampleStd(ds));
    }
}

// Points with NaN or infinite coordinates: the closed-form fits give NaN or
// non-finite results (or pass a solver exception through) without crashing
// or hanging.
TEST(ApproxLsqBadInput, NonFinitePoints) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    for (double bad : {nan, inf}) {
        V2<double> v2{{0, 1}, {1, 2}, {bad, 1}, {3, 1}, {2, 5}};
        V3<double> v3{{0, 0, 1}, {1, 2, 3}, {bad, 1, 2}, {3, 1, 0}, {2, 5, 1}};
        Cline2<double> l;
        Ccircle2<double> c;
        Csphere3<double> s;
        int thrown = 0;
        auto guarded = [&](auto f) {
            try {
                f();
            } catch (...) {
                ++thrown;
            }
        };
        guarded([&] { EXPECT_FALSE(std::isfinite(approximate<double>::fitLineLsq(v2, l))); });
        guarded([&] { approximate<double>::fitCircleLsq(v2, c); });
        guarded([&] { approximate<double>::fitCircleLsqBeta(v2, c); });
        guarded([&] { approximate<double>::fitSphereLsq(v3, s); });
        EXPECT_FALSE(std::isfinite(approximate<double>::StdAbwLine2(v2, Cline2<double>(Cpoint2<double>(0, 0), Cdirec2<double>(1, 0, true)))));
        EXPECT_FALSE(std::isfinite(approximate<double>::StdAbwCircle2(v2, Ccircle2<double>(Cpoint2<double>(0, 0), 1.0))));
        EXPECT_FALSE(std::isfinite(approximate<double>::StdAbwSphere(v3, Csphere3<double>(Cpoint3<double>(0, 0, 0), 1.0))));
        RecordProperty(bad == bad ? "inf_throws" : "nan_throws", thrown);
    }
}

// Coordinates stored elsewhere (an interleaved array, as numpy or a mapped
// file hold them) are fitted in place through CpointSpan, with the same bits
// as a fit of the same points in a vector.
TEST(ApproximateSpan, InterleavedCoordinatesFitInPlace) {
    std::mt19937_64 rng(41);
    std::normal_distribution<double> g(0.0, 1.0);
    std::vector<double> xy(2 * 500), xyz(3 * 500);
    for (std::size_t i = 0; i < 500; ++i) {
        const double a = 0.01 * double(i);
        xy[2 * i] = 100 + 5 * std::cos(a) + 1e-3 * g(rng);
        xy[2 * i + 1] = -50 + 5 * std::sin(a) + 1e-3 * g(rng);
        xyz[3 * i] = xy[2 * i];
        xyz[3 * i + 1] = xy[2 * i + 1];
        xyz[3 * i + 2] = 0.5 * xy[2 * i] + 1e-3 * g(rng);
    }
    const CpointSpan<Cpoint2<double>> s2(reinterpret_cast<Cpoint2<double> const*>(xy.data()), 500);
    const CpointSpan<Cpoint3<double>> s3(reinterpret_cast<Cpoint3<double> const*>(xyz.data()), 500);
    ASSERT_EQ(&s2[7].y, &xy[15]);
    ASSERT_EQ(&s3.back().z, &xyz.back());
    const V2<double> v2(s2.begin(), s2.end());
    const V3<double> v3(s3.begin(), s3.end());

    Ccircle2<double> a, b, ga, gb;
    approximate<double>::fitCircleLsq(s2, a);
    approximate<double>::fitCircleLsq(v2, b);
    approximate<double>::fitCircleGeom(s2, ga);
    approximate<double>::fitCircleGeom(v2, gb);
    EXPECT_EQ(a.center(), b.center());
    EXPECT_EQ(a.radius(), b.radius());
    EXPECT_EQ(ga.center(), gb.center());
    EXPECT_NEAR(ga.radius(), 5.0, 1e-3);
    EXPECT_EQ(approximate<double>::StdAbwCircle2(s2, ga), approximate<double>::StdAbwCircle2(v2, ga));
    Cplane3<double> pa, pb;
    approximate<double>::fitPlaneGeom(s3, pa);
    approximate<double>::fitPlaneGeom(v3, pb);
    EXPECT_EQ(pa.d(), pb.d());
    std::vector<double> da, db;
    geometric<double>::distance(pa, s3, da);
    geometric<double>::distance(pa, v3, db);
    EXPECT_EQ(da, db);
    // An empty view is too few points, as an empty vector is.
    approximate<double>::fitCircleLsq(CpointSpan<Cpoint2<double>>(), a);
    EXPECT_TRUE(std::isnan(a.radius()));
}
