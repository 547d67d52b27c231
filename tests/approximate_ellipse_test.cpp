// Tests of the geometric ellipse fits of approximate<T> (Gauss-Newton and
// Levenberg-Marquardt forms) and of StdAbwEllipse.  Oracles: exact points of
// known ellipses, reference data built by the null-space method (deviations
// along the normals orthogonal to the Jacobian, solved with Eigen in long
// double), and the spread of the results over noise seeds.
#include <math/approximate.h>
#include <math/geometric.h>

#include "approximate_test_util.h"

#include <gtest/gtest.h>

#include <Eigen/Dense>

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
    const double c = std::cos(e.th), s = std::sin(e.th);
    const double u = e.a * std::cos(t), v = e.b * std::sin(t);
    x = e.xc + c * u - s * v;
    y = e.yc + s * u + c * v;
    double nu = e.b * std::cos(t), nv = e.a * std::sin(t);
    const double w = std::hypot(nu, nv);
    nu /= w;
    nv /= w;
    nx = c * nu - s * nv;
    ny = s * nu + c * nv;
}

// Difference of two axis angles modulo pi.
double angleDiff(double a, double b) { return std::fabs(std::remainder(a - b, kPi)); }

typedef void (*FitFn)(std::vector<Cpoint2<double>> const&, Cellipse2<double>&, CqEllipseGeomStdAbw<double>&,
                      CqGeomFitPrm<double> const&);

template <class T>
struct Methods {
    static void gn(std::vector<Cpoint2<T>> const& p, Cellipse2<T>& e, CqEllipseGeomStdAbw<T>& r) {
        approximate<T>::fitEllipseGeom(p, e, r);
    }
    static void lm(std::vector<Cpoint2<T>> const& p, Cellipse2<T>& e, CqEllipseGeomStdAbw<T>& r) {
        approximate<T>::fitEllipseGeomLM(p, e, r);
    }
};

template <class T>
class EllipseFit : public ::testing::Test {};
typedef ::testing::Types<float, double> Types;
TYPED_TEST_SUITE(EllipseFit, Types);

// Expected canonical ellipse: a >= b, angle in (-pi/2, pi/2].
void expectEllipse(Ell const& want, double ga, double gb, double gx, double gy, double gth, double tol) {
    Ell w = want;
    if (w.a < w.b) {
        std::swap(w.a, w.b);
        w.th += kPi / 2;
    }
    EXPECT_LE(std::fabs(gx - w.xc) / w.a, tol);
    EXPECT_LE(std::fabs(gy - w.yc) / w.a, tol);
    EXPECT_LE(std::fabs(ga - w.a) / w.a, tol);
    EXPECT_LE(std::fabs(gb - w.b) / w.b, tol);
    EXPECT_LE(angleDiff(gth, w.th), tol);
    EXPECT_GE(ga, gb);
    EXPECT_GT(gth, -kPi / 2);
    EXPECT_LE(gth, kPi / 2 + 1e-7);
}

TYPED_TEST(EllipseFit, ExactPointsAnyShapeOffsetAndAngle) {
    typedef TypeParam T;
    const double ratios[] = {0.05, 0.2, 0.5, 0.9, 0.999};
    const double angles[] = {0.0, 0.7, -1.3, kPi / 2, 3.0};
    const double offsets[] = {0.0, 1e6};
    const bool isD = std::is_same<T, double>::value;
    int k = 0;
    for (double q : ratios)
        for (double th : angles)
            for (double off : offsets) {
                if (!isD && off != 0.0) continue;
                ++k;
                // a < b in every other case: the fit must swap to a >= b.
                Ell e{off + 3.1, off - 7.4, 20.0, 20.0 * q, th};
                if (k % 2) std::swap(e.a, e.b);
                std::vector<Cpoint2<T>> pts;
                for (int i = 0; i < 41; ++i) {
                    double x, y, nx, ny;
                    onEllipse(e, 0.3 + 2 * kPi * i / 41 + 0.05 * std::sin(3.0 * i), x, y, nx, ny);
                    pts.emplace_back(T(x), T(y));
                }
                for (int m = 0; m < 2; ++m) {
                    SCOPED_TRACE(::testing::Message() << "b/a " << q << " angle " << th << " offset " << off
                                                      << (m ? " LM" : " GN"));
                    Cellipse2<T> el;
                    CqEllipseGeomStdAbw<T> rec;
                    (m ? Methods<T>::lm : Methods<T>::gn)(pts, el, rec);
                    ASSERT_TRUE(el.isValid());
                    EXPECT_TRUE(rec.converged);
                    EXPECT_GT(rec.iterations, 0u);
                    EXPECT_LE(rec.iterations, 30u);
                    expectEllipse(e, el.a(), el.b(), el.center().x, el.center().y, el.angle(),
                                  tolOf<T>(1e-9, 1e-4));
                    EXPECT_LE(double(rec.stdAbw), tolOf<T>(1e-9, 1e-4) * e.a);
                }
            }
}

// Reference data by the null-space method: points exactly on the ellipse,
// moved along their normals by deviations orthogonal to the columns of the
// Jacobian of the orthogonal distances, so that the ellipse stays the exact
// least-squares answer; then rotated and moved 1000 mm out.
TEST(EllipseFitRef, NullSpaceReferenceData) {
    const double ratios[] = {0.1, 0.5, 0.95};
    for (double q : ratios) {
        const Ell e{0.0, 0.0, 40.0, 40.0 * q, 0.4};
        const int n = 60;
        Eigen::Matrix<long double, Eigen::Dynamic, 5> J(n, 5);
        std::vector<double> px(n), py(n), nx(n), ny(n);
        for (int i = 0; i < n; ++i) {
            const double t = 0.1 + 2 * kPi * i / n;
            onEllipse(e, t, px[i], py[i], nx[i], ny[i]);
            const long double c = std::cos(e.th), s = std::sin(e.th), ct = std::cos(t), st = std::sin(t);
            // dX/dq at fixed phase for q = xc, yc, a, b, theta.
            const long double dX[5][2] = {{1, 0},
                                          {0, 1},
                                          {c * ct, s * ct},
                                          {-s * st, c * st},
                                          {-s * e.a * ct - c * e.b * st, c * e.a * ct - s * e.b * st}};
            for (int k = 0; k < 5; ++k) J(i, k) = -(nx[i] * dX[k][0] + ny[i] * dX[k][1]);
        }
        std::mt19937_64 rng(77);
        std::uniform_real_distribution<double> uni(-1.0, 1.0);
        Eigen::Matrix<long double, Eigen::Dynamic, 1> r(n);
        for (int i = 0; i < n; ++i) r(i) = uni(rng);
        Eigen::HouseholderQR<Eigen::Matrix<long double, Eigen::Dynamic, 5>> qr(J);
        Eigen::Matrix<long double, Eigen::Dynamic, 5> Q =
            qr.householderQ() * Eigen::Matrix<long double, Eigen::Dynamic, 5>::Identity(n, 5);
        r -= Q * (Q.transpose() * r);
        r *= 0.05L * e.b * q / r.cwiseAbs().maxCoeff();  // well inside the radius of curvature
        const double phi = 0.9, cphi = std::cos(phi), sphi = std::sin(phi), ox = 1000.0, oy = -1000.0;
        std::vector<Cpoint2<double>> pts;
        for (int i = 0; i < n; ++i) {
            const double x = px[i] + double(r(i)) * nx[i], y = py[i] + double(r(i)) * ny[i];
            pts.emplace_back(ox + cphi * x - sphi * y, oy + sphi * x + cphi * y);
        }
        const Ell moved{ox + cphi * e.xc - sphi * e.yc, oy + sphi * e.xc + cphi * e.yc, e.a, e.b, e.th + phi};
        for (int m = 0; m < 2; ++m) {
            SCOPED_TRACE(::testing::Message() << "b/a " << q << (m ? " LM" : " GN"));
            Cellipse2<double> el;
            CqEllipseGeomStdAbw<double> rec;
            (m ? Methods<double>::lm : Methods<double>::gn)(pts, el, rec);
            ASSERT_TRUE(el.isValid());
            expectEllipse(moved, el.a(), el.b(), el.center().x, el.center().y, el.angle(), 1e-9);
            const double ss = double(r.squaredNorm());
            EXPECT_NEAR(double(rec.sumSqDist), ss, 1e-9 * ss);
            EXPECT_NEAR(double(rec.stdAbw), std::sqrt(ss / (n - 5)), 1e-9 * std::sqrt(ss / (n - 5)));
            // The deviations are the orthogonal distances: StdAbwEllipse is their sample deviation.
            double sd = 0.0, sd2 = 0.0;
            for (int i = 0; i < n; ++i) sd += double(r(i)), sd2 += double(r(i) * r(i));
            EXPECT_NEAR(approximate<double>::StdAbwEllipse(pts, el),
                        std::sqrt((sd2 - sd * sd / n) / (n - 1)), 1e-9);
        }
    }
}

template <class T>
std::vector<Cpoint2<T>> noisyEllipse(Ell const& e, int n, double sigma, std::uint64_t seed, double arc = 2 * kPi) {
    std::mt19937_64 rng(seed);
    std::normal_distribution<double> g(0.0, sigma);
    std::vector<Cpoint2<T>> pts;
    for (int i = 0; i < n; ++i) {
        double x, y, nx, ny;
        onEllipse(e, arc * (i + 0.5) / n, x, y, nx, ny);
        pts.emplace_back(T(x + g(rng)), T(y + g(rng)));
    }
    return pts;
}

// Random well-posed data (arcs of 180 degrees and more, noise up to 1e-3 b,
// float and double): both methods converge to the same minimum, a >= b, the
// angle in (-pi/2, pi/2].
TYPED_TEST(EllipseFit, RandomWellPosedDataBothMethodsAgree) {
    typedef TypeParam T;
    std::mt19937_64 rng(2024);
    std::uniform_real_distribution<double> U(0.0, 1.0);
    for (int k = 0; k < 150; ++k) {
        const double a = 1 + 99 * U(rng), b = a * (0.05 + 0.9 * U(rng));
        const Ell e{200 * U(rng) - 100, 200 * U(rng) - 100, a, b, 7 * U(rng) - 3.5};
        const double arc = kPi + kPi * U(rng), sigma = b * std::pow(10.0, -6 + 3 * U(rng));
        const int n = 8 + int(300 * U(rng));
        const std::vector<Cpoint2<T>> pts = noisyEllipse<T>(e, n, sigma, 500 + k, arc);
        SCOPED_TRACE(::testing::Message() << "case " << k << " n " << n << " b/a " << b / a << " arc " << arc);
        Cellipse2<T> g, l;
        CqEllipseGeomStdAbw<T> rg, rl;
        approximate<T>::fitEllipseGeom(pts, g, rg);
        approximate<T>::fitEllipseGeomLM(pts, l, rl);
        ASSERT_TRUE(g.isValid() && l.isValid());
        EXPECT_TRUE(rg.converged && rl.converged);
        for (Cellipse2<T> const* el : {&g, &l}) {
            EXPECT_GE(el->a(), el->b());
            EXPECT_GT(el->angle(), -T(kPi / 2));
            EXPECT_LE(el->angle(), T(kPi / 2));
        }
        const double tol = tolOf<T>(1e-8, 1e-3);
        EXPECT_NEAR(double(rg.sumSqDist), double(rl.sumSqDist), tol * double(rg.sumSqDist) + 1e-24);
        EXPECT_NEAR(double(g.a()), double(l.a()), tol * a);
        EXPECT_NEAR(double(g.b()), double(l.b()), tol * a);
    }
}

// Refused input: the ellipse is invalid, the record says not converged, how
// many iterations were used, and holds NaN.
TYPED_TEST(EllipseFit, BadInputGivesInvalidEllipseAndRecord) {
    typedef TypeParam T;
    const T nan = std::numeric_limits<T>::quiet_NaN(), inf = std::numeric_limits<T>::infinity();
    const Ell e{1.0, 2.0, 5.0, 3.0, 0.3};
    std::vector<Cpoint2<T>> good = noisyEllipse<T>(e, 20, 0.0, 1);
    struct Case {
        const char* what;
        std::vector<Cpoint2<T>> pts;
        std::uint32_t maxIter;
        bool iterates;
    };
    std::vector<Case> cases;
    cases.push_back({"empty", {}, 100u, false});
    cases.push_back({"four points", std::vector<Cpoint2<T>>(good.begin(), good.begin() + 4), 100u, false});
    std::vector<Cpoint2<T>> v = good;
    v[7].y = nan;
    cases.push_back({"NaN", v, 100u, false});
    v = good;
    v[19].x = inf;
    cases.push_back({"infinity", v, 100u, false});
    cases.push_back({"coincident", std::vector<Cpoint2<T>>(9, Cpoint2<T>(T(1e6), T(-3))), 100u, false});
    v.clear();
    for (int i = 0; i < 12; ++i) v.emplace_back(T(1000 + 0.5 * i), T(-20 + 1.5 * i));
    cases.push_back({"collinear", v, 100u, false});
    // Noisy data need more than one iteration: a limit of 1 is no convergence.
    cases.push_back({"iteration limit", noisyEllipse<T>(e, 200, 0.2, 5), 1u, true});
    for (auto const& c : cases)
        for (int m = 0; m < 2; ++m) {
            SCOPED_TRACE(::testing::Message() << c.what << (m ? " LM" : " GN"));
            Cellipse2<T> el(Cpoint2<T>(T(1), T(1)), T(2), T(1), T(0));
            CqEllipseGeomStdAbw<T> rec;
            rec.converged = true;
            rec.iterations = 77u;
            CqGeomFitPrm<T> prm;
            prm.maxIter = c.maxIter;
            if (m)
                approximate<T>::fitEllipseGeomLM(c.pts, el, rec, prm);
            else
                approximate<T>::fitEllipseGeom(c.pts, el, rec, prm);
            EXPECT_FALSE(el.isValid());
            EXPECT_FALSE(rec.converged);
            EXPECT_EQ(rec.iterations, c.iterates ? c.maxIter : 0u);
            EXPECT_TRUE(std::isnan(rec.sumSqDist) && std::isnan(rec.stdAbw) && std::isnan(rec.uA) &&
                        std::isnan(rec.uCenterX) && std::isnan(rec.uCenterY) && std::isnan(rec.uB) &&
                        std::isnan(rec.uAngle));
            Cellipse2<T> el2(Cpoint2<T>(T(1), T(1)), T(2), T(1), T(0));
            if (m)
                approximate<T>::fitEllipseGeomLM(c.pts, el2, prm);
            else
                approximate<T>::fitEllipseGeom(c.pts, el2, prm);
            EXPECT_FALSE(el2.isValid());
        }
    EXPECT_TRUE(std::isnan(approximate<T>::StdAbwEllipse(good, Cellipse2<T>())));
    EXPECT_TRUE(std::isnan(approximate<T>::StdAbwEllipse(
        std::vector<Cpoint2<T>>(1, good[0]), Cellipse2<T>(Cpoint2<T>(T(0), T(0)), T(2), T(1), T(0)))));
}

// Near-circular ellipses with noise (where the angle is poorly determined)
// converge; both methods reach the same minimum.
TEST(EllipseFitNoise, NearCircularConvergesAndMethodsAgree) {
    const Ell e{500.0, -250.0, 10.0, 9.99, 0.8};
    for (std::uint64_t seed = 1; seed <= 3; ++seed) {
        SCOPED_TRACE(seed);
        const std::vector<Cpoint2<double>> pts = noisyEllipse<double>(e, 10000, 1e-3 * e.a, seed);
        Cellipse2<double> g, l;
        CqEllipseGeomStdAbw<double> rg, rl;
        approximate<double>::fitEllipseGeom(pts, g, rg);
        approximate<double>::fitEllipseGeomLM(pts, l, rl);
        ASSERT_TRUE(g.isValid());
        ASSERT_TRUE(l.isValid());
        EXPECT_TRUE(rg.converged && rl.converged);
        EXPECT_NEAR(g.a(), e.a, 5e-3);
        EXPECT_NEAR(g.b(), e.b, 5e-3);
        EXPECT_LE(std::fabs(g.center().x - e.xc) + std::fabs(g.center().y - e.yc), 5e-3);
        EXPECT_NEAR(g.center().x, l.center().x, 1e-9 * e.a);
        EXPECT_NEAR(g.center().y, l.center().y, 1e-9 * e.a);
        EXPECT_NEAR(g.a(), l.a(), 1e-9 * e.a);
        EXPECT_NEAR(g.b(), l.b(), 1e-9 * e.a);
        EXPECT_LE(angleDiff(g.angle(), l.angle()), 1e-6);
        EXPECT_NEAR(rg.sumSqDist, rl.sumSqDist, 1e-10 * rg.sumSqDist);
        // sumSqDist is the sum of the squared distances of the existing distance query.
        std::vector<double> d;
        geometric<double>::distance(g, pts, d);
        double ss = 0.0;
        for (double v : d) ss += v * v;
        EXPECT_NEAR(rg.sumSqDist, ss, 1e-9 * ss);
        EXPECT_NEAR(rg.stdAbw, std::sqrt(ss / (pts.size() - 5)), 1e-9 * rg.stdAbw);
    }
}

// The reported standard uncertainties match the spread of the parameters over
// noise seeds (within 20 %), on a full ellipse and on a half arc.
TEST(EllipseFitNoise, UncertaintiesMatchSpreadOverSeeds) {
    const Ell e{30.0, 40.0, 12.0, 7.0, -0.6};
    const double arcs[] = {2 * kPi, kPi};
    for (double arc : arcs) {
        SCOPED_TRACE(arc);
        const int seeds = 300;
        double sum[5] = {0}, sum2[5] = {0}, rep[5] = {0};
        for (int k = 0; k < seeds; ++k) {
            const std::vector<Cpoint2<double>> pts = noisyEllipse<double>(e, 100, 0.05, 1000 + k, arc);
            Cellipse2<double> el;
            CqEllipseGeomStdAbw<double> rec;
            approximate<double>::fitEllipseGeom(pts, el, rec);
            ASSERT_TRUE(el.isValid());
            const double v[5] = {el.center().x, el.center().y, el.a(), el.b(),
                                 e.th + std::remainder(el.angle() - e.th, kPi)};
            const double u[5] = {rec.uCenterX, rec.uCenterY, rec.uA, rec.uB, rec.uAngle};
            for (int j = 0; j < 5; ++j) {
                sum[j] += v[j];
                sum2[j] += v[j] * v[j];
                rep[j] += u[j] * u[j];
            }
        }
        for (int j = 0; j < 5; ++j) {
            SCOPED_TRACE(j);
            const double spread = std::sqrt((sum2[j] - sum[j] * sum[j] / seeds) / (seeds - 1));
            const double reported = std::sqrt(rep[j] / seeds);
            EXPECT_NEAR(reported / spread, 1.0, 0.2);
        }
    }
}

// An exact circle is an ellipse with a == b: fitted, angle free, uncertainties NaN.
TEST(EllipseFitRef, ExactCircle) {
    for (double off : {0.0, 1e6}) {
        std::vector<Cpoint2<double>> pts;
        for (int i = 0; i < 50; ++i) {
            const double t = 2 * kPi * i / 50 + 0.1;
            pts.emplace_back(off + 5 + 3 * std::cos(t), off - 2 + 3 * std::sin(t));
        }
        for (int m = 0; m < 2; ++m) {
            SCOPED_TRACE(::testing::Message() << off << (m ? " LM" : " GN"));
            Cellipse2<double> el;
            CqEllipseGeomStdAbw<double> rec;
            (m ? Methods<double>::lm : Methods<double>::gn)(pts, el, rec);
            ASSERT_TRUE(el.isValid());
            EXPECT_TRUE(rec.converged);
            EXPECT_NEAR(el.a(), 3.0, 3e-9);
            EXPECT_NEAR(el.b(), 3.0, 3e-9);
            EXPECT_NEAR(el.center().x, off + 5, 3e-9);
            EXPECT_NEAR(el.center().y, off - 2, 3e-9);
            EXPECT_TRUE(std::isnan(rec.uAngle) && std::isnan(rec.uA) && std::isnan(rec.uCenterX));
        }
    }
}

}  // namespace
