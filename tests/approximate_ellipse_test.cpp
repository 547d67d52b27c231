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

}  // namespace
