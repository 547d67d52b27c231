// Tests of the geometric ellipse fits of approximate<T> (Gauss-Newton and
// Levenberg-Marquardt forms) and of StdAbwEllipse.  Oracles: exact points of
// known ellipses, reference data built by the null-space method (deviations
// along the normals orthogonal to the Jacobian, solved with Eigen in long
// double), and the spread of the results over noise seeds.
#include <math/approximate.h>

#include "approximate_test_util.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

using namespace math;
using namespace approx_test;

namespace {

const double kPi = 3.14159265358979323846;

struct Ell {
    double xc, yc, a, b, th;
};

// Point at phase t and the unit outward normal there.
void onEllipse(Ell const& e, double t, double& x, double& y, double& nx, double& ny) {
    const double c = std::cos(e.th), s = std::sin(e.th), u = e.a * std::cos(t), v = e.b * std::sin(t);
    x = e.xc + c * u - s * v;
    y = e.yc + s * u + c * v;
    const double nu = e.b * std::cos(t), nv = e.a * std::sin(t), w = std::hypot(nu, nv);
    nx = (c * nu - s * nv) / w;
    ny = (s * nu + c * nv) / w;
}

// Difference of two axis angles modulo pi.
double angleDiff(double a, double b) { return std::fabs(std::remainder(a - b, kPi)); }

// Gauss-Newton (lm false) or Levenberg-Marquardt.
template <class T>
void fit(bool lm, V2<T> const& p, Cellipse2<T>& e, CqEllipseGeomStdAbw<T>& r, CqGeomFitPrm<T> const& prm = {}) {
    if (lm)
        approximate<T>::fitEllipseGeomLM(p, e, r, prm);
    else
        approximate<T>::fitEllipseGeom(p, e, r, prm);
}

template <class T>
class EllipseFit : public ::testing::Test {};
typedef ::testing::Types<float, double> Types;
TYPED_TEST_SUITE(EllipseFit, Types);

// The canonical form of want (a >= b, angle in (-pi/2, pi/2]) within tol.
template <class T>
void expectEllipse(Ell const& want, Cellipse2<T> const& got, double tol) {
    Ell w = want;
    if (w.a < w.b) std::swap(w.a, w.b), w.th += kPi / 2;
    EXPECT_LE(std::fabs(got.center().x - w.xc) / w.a, tol);
    EXPECT_LE(std::fabs(got.center().y - w.yc) / w.a, tol);
    EXPECT_LE(std::fabs(got.a() - w.a) / w.a, tol);
    EXPECT_LE(std::fabs(got.b() - w.b) / w.b, tol);
    EXPECT_LE(angleDiff(got.angle(), w.th), tol);
    EXPECT_GE(got.a(), got.b());
    EXPECT_GT(got.angle(), -T(kPi / 2));
    EXPECT_LE(double(got.angle()), kPi / 2 + 1e-7);
}

template <class T>
V2<T> noisyEllipse(Ell const& e, int n, double sigma, std::uint64_t seed, double arc = 2 * kPi) {
    std::mt19937_64 rng(seed);
    std::normal_distribution<double> g(0.0, sigma > 0 ? sigma : 1.0);
    V2<T> pts;
    for (int i = 0; i < n; ++i) {
        double x, y, nx, ny;
        onEllipse(e, arc * (i + 0.5) / n, x, y, nx, ny);
        pts.emplace_back(T(x + (sigma > 0 ? g(rng) : 0)), T(y + (sigma > 0 ? g(rng) : 0)));
    }
    return pts;
}

TYPED_TEST(EllipseFit, ExactPointsAnyShapeOffsetAndAngle) {
    typedef TypeParam T;
    int k = 0;
    for (double q : {0.05, 0.2, 0.5, 0.9, 0.999})
        for (double th : {0.0, 0.7, -1.3, kPi / 2, 3.0})
            for (double off : {0.0, 1e6}) {
                if (std::is_same<T, float>::value && off != 0.0) continue;
                // a < b in every other case: the fit must swap to a >= b.
                Ell e{off + 3.1, off - 7.4, 20.0, 20.0 * q, th};
                if (++k % 2) std::swap(e.a, e.b);
                const V2<T> pts = noisyEllipse<T>(e, 41, 0.0, 0);
                for (bool lm : {false, true}) {
                    SCOPED_TRACE(::testing::Message() << "b/a " << q << " angle " << th << " offset " << off << lm);
                    Cellipse2<T> el;
                    CqEllipseGeomStdAbw<T> rec;
                    fit(lm, pts, el, rec);
                    ASSERT_TRUE(el.isValid());
                    EXPECT_TRUE(rec.converged);
                    EXPECT_GT(rec.iterations, 0u);
                    EXPECT_LE(rec.iterations, 30u);
                    expectEllipse(e, el, tolOf<T>(1e-9, 1e-4));
                    EXPECT_LE(double(rec.stdAbw), tolOf<T>(1e-9, 1e-4) * e.a);
                }
            }
}

// Points exactly on the ellipse moved along their normals by deviations
// orthogonal to the columns of the Jacobian of the orthogonal distances: the
// ellipse stays the exact least-squares answer.  Rotated, 1000 mm out.
TEST(EllipseFitRef, NullSpaceReferenceData) {
    for (double q : {0.1, 0.5, 0.95}) {
        const Ell e{0.0, 0.0, 40.0, 40.0 * q, 0.4};
        const int n = 60;
        typedef Eigen::Matrix<long double, Eigen::Dynamic, 5> J5;
        J5 J(n, 5);
        std::vector<double> px(n), py(n), nx(n), ny(n);
        for (int i = 0; i < n; ++i) {
            const double t = 0.1 + 2 * kPi * i / n;
            onEllipse(e, t, px[i], py[i], nx[i], ny[i]);
            const long double c = std::cos(e.th), s = std::sin(e.th), ct = std::cos(t), st = std::sin(t);
            // dX/dq at fixed phase for q = xc, yc, a, b, theta.
            const long double dX[5][2] = {{1, 0}, {0, 1}, {c * ct, s * ct}, {-s * st, c * st},
                                          {-s * e.a * ct - c * e.b * st, c * e.a * ct - s * e.b * st}};
            for (int k = 0; k < 5; ++k) J(i, k) = -(nx[i] * dX[k][0] + ny[i] * dX[k][1]);
        }
        std::mt19937_64 rng(77);
        std::uniform_real_distribution<double> uni(-1.0, 1.0);
        Eigen::Matrix<long double, Eigen::Dynamic, 1> r(n);
        for (int i = 0; i < n; ++i) r(i) = uni(rng);
        const J5 Q = Eigen::HouseholderQR<J5>(J).householderQ() * J5::Identity(n, 5);
        r -= Q * (Q.transpose() * r);
        r *= 0.05L * e.b * q / r.cwiseAbs().maxCoeff();  // well inside the radius of curvature
        const double phi = 0.9, cp = std::cos(phi), sp = std::sin(phi), ox = 1000.0, oy = -1000.0;
        V2<double> pts;
        for (int i = 0; i < n; ++i) {
            const double x = px[i] + double(r(i)) * nx[i], y = py[i] + double(r(i)) * ny[i];
            pts.emplace_back(ox + cp * x - sp * y, oy + sp * x + cp * y);
        }
        const double ss = double(r.squaredNorm()), sd = double(r.sum());
        for (bool lm : {false, true}) {
            SCOPED_TRACE(::testing::Message() << "b/a " << q << lm);
            Cellipse2<double> el;
            CqEllipseGeomStdAbw<double> rec;
            fit(lm, pts, el, rec);
            ASSERT_TRUE(el.isValid());
            expectEllipse(Ell{ox, oy, e.a, e.b, e.th + phi}, el, 1e-9);
            EXPECT_NEAR(rec.sumSqDist, ss, 1e-9 * ss);
            EXPECT_NEAR(rec.stdAbw, std::sqrt(ss / (n - 5)), 1e-9 * std::sqrt(ss / (n - 5)));
            // The deviations are the orthogonal distances: StdAbwEllipse is their sample deviation.
            EXPECT_NEAR(approximate<double>::StdAbwEllipse(pts, el), std::sqrt((ss - sd * sd / n) / (n - 1)), 1e-9);
        }
    }
}

// Refused input: invalid ellipse, not converged, the iterations used, NaN record.
TYPED_TEST(EllipseFit, BadInputGivesInvalidEllipseAndRecord) {
    typedef TypeParam T;
    const Ell e{1.0, 2.0, 5.0, 3.0, 0.3};
    const V2<T> good = noisyEllipse<T>(e, 20, 0.0, 1);
    V2<T> withNaN = good, withInf = good, line;
    withNaN[7].y = std::numeric_limits<T>::quiet_NaN();
    withInf[19].x = std::numeric_limits<T>::infinity();
    for (int i = 0; i < 12; ++i) line.emplace_back(T(1000 + 0.5 * i), T(-20 + 1.5 * i));
    struct Case {
        const char* what;
        V2<T> pts;
        std::uint32_t maxIter;  // iterations expected when not 100
    };
    const Case cases[] = {{"empty", {}, 100u}, {"four points", V2<T>(good.begin(), good.begin() + 4), 100u},
                          {"NaN", withNaN, 100u}, {"infinity", withInf, 100u},
                          {"coincident", V2<T>(9, Cpoint2<T>(T(1e6), T(-3))), 100u}, {"collinear", line, 100u},
                          // Noisy data need more than one iteration.
                          {"iteration limit", noisyEllipse<T>(e, 200, 0.2, 5), 1u}};
    for (auto const& c : cases)
        for (bool lm : {false, true}) {
            SCOPED_TRACE(::testing::Message() << c.what << lm);
            Cellipse2<T> el(Cpoint2<T>(T(1), T(1)), T(2), T(1), T(0)), el2 = el;
            CqEllipseGeomStdAbw<T> rec;
            rec.converged = true;
            rec.iterations = 77u;
            CqGeomFitPrm<T> prm;
            prm.maxIter = c.maxIter;
            fit(lm, c.pts, el, rec, prm);
            EXPECT_FALSE(el.isValid());
            EXPECT_FALSE(rec.converged);
            EXPECT_EQ(rec.iterations, c.maxIter == 100u ? 0u : c.maxIter);
            EXPECT_TRUE(std::isnan(rec.sumSqDist) && std::isnan(rec.stdAbw) && std::isnan(rec.uA) &&
                        std::isnan(rec.uCenterX) && std::isnan(rec.uCenterY) && std::isnan(rec.uB) &&
                        std::isnan(rec.uAngle));
            if (lm)
                approximate<T>::fitEllipseGeomLM(c.pts, el2, prm);
            else
                approximate<T>::fitEllipseGeom(c.pts, el2, prm);
            EXPECT_FALSE(el2.isValid());
        }
    EXPECT_TRUE(std::isnan(approximate<T>::StdAbwEllipse(good, Cellipse2<T>())));
    EXPECT_TRUE(std::isnan(approximate<T>::StdAbwEllipse(V2<T>(1, good[0]),
                                                         Cellipse2<T>(Cpoint2<T>(T(0), T(0)), T(2), T(1), T(0)))));
}

// Near-circular ellipses with noise (angle poorly determined) converge, both
// methods to the same minimum.
TEST(EllipseFitNoise, NearCircularConvergesAndMethodsAgree) {
    const Ell e{500.0, -250.0, 10.0, 9.99, 0.8};
    for (std::uint64_t seed = 1; seed <= 3; ++seed) {
        SCOPED_TRACE(seed);
        const V2<double> pts = noisyEllipse<double>(e, 10000, 1e-3 * e.a, seed);
        Cellipse2<double> g, l;
        CqEllipseGeomStdAbw<double> rg, rl;
        fit(false, pts, g, rg);
        fit(true, pts, l, rl);
        ASSERT_TRUE(g.isValid() && l.isValid());
        EXPECT_TRUE(rg.converged && rl.converged);
        EXPECT_NEAR(g.a(), e.a, 5e-3);
        EXPECT_NEAR(g.b(), e.b, 5e-3);
        EXPECT_LE(std::fabs(g.center().x - e.xc) + std::fabs(g.center().y - e.yc), 5e-3);
        EXPECT_LE(std::fabs(g.center().x - l.center().x) + std::fabs(g.center().y - l.center().y), 1e-9 * e.a);
        EXPECT_LE(std::fabs(g.a() - l.a()) + std::fabs(g.b() - l.b()), 1e-9 * e.a);
        EXPECT_LE(angleDiff(g.angle(), l.angle()), 1e-6);
        EXPECT_NEAR(rg.sumSqDist, rl.sumSqDist, 1e-10 * rg.sumSqDist);
    }
}

// The reported uncertainties match the spread of the parameters over noise
// seeds (within 20 %), on a full ellipse and on a half arc.
TEST(EllipseFitNoise, UncertaintiesMatchSpreadOverSeeds) {
    const Ell e{30.0, 40.0, 12.0, 7.0, -0.6};
    for (double arc : {2 * kPi, kPi}) {
        SCOPED_TRACE(arc);
        const int seeds = 300;
        double sum[5] = {0}, sum2[5] = {0}, rep[5] = {0};
        for (int k = 0; k < seeds; ++k) {
            Cellipse2<double> el;
            CqEllipseGeomStdAbw<double> rec;
            fit(false, noisyEllipse<double>(e, 100, 0.05, 1000 + k, arc), el, rec);
            ASSERT_TRUE(el.isValid());
            const double v[5] = {el.center().x, el.center().y, el.a(), el.b(), e.th + std::remainder(el.angle() - e.th, kPi)};
            const double u[5] = {rec.uCenterX, rec.uCenterY, rec.uA, rec.uB, rec.uAngle};
            for (int j = 0; j < 5; ++j) sum[j] += v[j], sum2[j] += v[j] * v[j], rep[j] += u[j] * u[j];
        }
        for (int j = 0; j < 5; ++j)
            EXPECT_NEAR(std::sqrt(rep[j] / seeds) / std::sqrt((sum2[j] - sum[j] * sum[j] / seeds) / (seeds - 1)), 1.0, 0.2)
                << j;
    }
}

// An exact circle is an ellipse with a == b: fitted, angle free, uncertainties NaN.
TEST(EllipseFitRef, ExactCircle) {
    for (double off : {0.0, 1e6}) {
        V2<double> pts;
        for (int i = 0; i < 50; ++i)
            pts.emplace_back(off + 5 + 3 * std::cos(2 * kPi * i / 50 + 0.1), off - 2 + 3 * std::sin(2 * kPi * i / 50 + 0.1));
        for (bool lm : {false, true}) {
            SCOPED_TRACE(::testing::Message() << off << lm);
            Cellipse2<double> el;
            CqEllipseGeomStdAbw<double> rec;
            fit(lm, pts, el, rec);
            ASSERT_TRUE(el.isValid());
            EXPECT_TRUE(rec.converged);
            EXPECT_LE(std::fabs(el.a() - 3) + std::fabs(el.b() - 3), 3e-9);
            EXPECT_LE(std::fabs(el.center().x - off - 5) + std::fabs(el.center().y - off + 2), 3e-9);
            EXPECT_TRUE(std::isnan(rec.uAngle) && std::isnan(rec.uA) && std::isnan(rec.uCenterX));
        }
    }
}

}  // namespace
