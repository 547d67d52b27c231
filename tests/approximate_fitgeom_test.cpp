// Tests of the iterative geometric circle, sphere and cylinder fits.  Oracles:
// exact synthetic features (any offset, arbitrary rotation), the published
// Gander-Golub-Strebel circle, reference data built by the null-space method
// (deviations orthogonal to the Jacobian's columns, so the chosen feature is
// the exact least-squares answer), and the spread of the fitted parameters
// over many noisy samples.
#include <math/approximate.h>

#include "approximate_test_util.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <vector>

using namespace math;
using namespace approx_test;
using Eigen::Vector3d;

namespace {

const double kPi = 3.14159265358979323846;

Eigen::Matrix3d rotation(unsigned seed) {
    std::mt19937_64 rng(seed);
    std::normal_distribution<double> g;
    return Eigen::Quaterniond(g(rng), g(rng), g(rng), g(rng)).normalized().toRotationMatrix();
}
template <class T>
Cpoint3<T> pt3(Vector3d const& v) {
    return Cpoint3<T>(T(v.x()), T(v.y()), T(v.z()));
}
template <class T>
Vector3d dirOf(Ccylinder3<T> const& c) {
    return vec(c.axis().direction());
}
template <class T>
Vector3d normalOf(Ccircle3<T> const& k) {
    return Vector3d(k.plane().a(), k.plane().b(), k.plane().c());
}
double lineDist(Vector3d const& p, Vector3d const& a, Vector3d const& d) { return (p - a).cross(d.normalized()).norm(); }
// Direction i of n spread over a spherical cap of half-angle cap about z.
Vector3d capDir(int i, int n, double cap) {
    const double th = cap * std::sqrt((i + 0.5) / n), ph = 2.399963 * i;
    return Vector3d(std::sin(th) * std::cos(ph), std::sin(th) * std::sin(ph), std::cos(th));
}

template <class T>
class GeomFit : public ::testing::Test {};
using Types = ::testing::Types<double, float>;
TYPED_TEST_SUITE(GeomFit, Types);

// Exact points of full circles, arcs of 30 and 10 degrees (caps of those
// angles for spheres; cylinders of those arcs, also short and wide), at the
// origin and 10^6 away, rotated: every parameter to rounding.
TYPED_TEST(GeomFit, ExactCirclesSpheresCylindersAtAnyOffset) {
    using T = TypeParam;
    struct ExactCase {
        double span, length, offset;  // degrees; cylinder length in radii
        unsigned rot;                 // 0: no rotation
    };
    const ExactCase cases[] = {{360, 2, 0, 0},   {360, 2, 1e6, 3},   {30, 2, 0, 5},       {30, 2, 1e6, 7},
                               {10, 1, 0, 0},    {10, 1, 1e6, 11},   {360, 0.1, 0, 13},   {360, 0.1, 1e6, 17},
                               {20, 3, 1e6, 19}};
    const bool isF = std::is_same<T, float>::value;
    const double R = 100.0, a0 = 0.3, tol = isF ? 1e-4 : 1e-9;
    const int n = 60;
    for (ExactCase const& c : cases) {
        if (isF && c.offset != 0.0) continue;
        SCOPED_TRACE(::testing::Message() << c.span << " deg, offset " << c.offset);
        const double span = c.span * kPi / 180.0, step = span / (c.span == 360 ? n : n - 1);
        const Eigen::Matrix3d Q = c.rot ? rotation(c.rot) : Eigen::Matrix3d::Identity();
        const Vector3d C(c.offset + 12.5, -c.offset + 3.25, 0.5 * c.offset - 7.0);
        const double phi = std::atan2(Q(1, 0), Q(0, 0));
        V2<T> p2;
        V3<T> pk, ps, pc;
        for (int i = 0; i < n; ++i) {
            const double t = a0 + step * i, tc = a0 + span * ((i * 7) % n) / n;
            p2.emplace_back(T(C.x() + R * std::cos(t + phi)), T(C.y() + R * std::sin(t + phi)));
            pk.push_back(pt3<T>(C + Q * Vector3d(R * std::cos(t), R * std::sin(t), 0.0)));
            ps.push_back(pt3<T>(C + Q * (R * capDir(i, n, c.span == 360 ? kPi : span / 2))));
            pc.push_back(pt3<T>(C + Q * Vector3d(R * std::cos(tc), R * std::sin(tc), c.length * R * (double(i) / (n - 1) - 0.5))));
        }
        Ccircle2<T> k;
        Ccircle3<T> k3;
        Csphere3<T> s;
        Ccylinder3<T> cy;
        CqCircleGeomStdAbw<T> r2;
        CqCircle3GeomStdAbw<T> r3;
        CqSphereGeomStdAbw<T> rs;
        CqCylinderGeomStdAbw<T> ry;
        approximate<T>::fitCircleGeom(p2, k, r2);
        approximate<T>::fitCircleGeom(pk, k3, r3);
        approximate<T>::fitSphereGeom(ps, s, rs);
        approximate<T>::fitCylinderGeom(pc, cy, ry);
        ASSERT_TRUE(r2.converged && r3.converged && rs.converged && ry.converged);
        EXPECT_LE(r2.iterations, 12u);
        EXPECT_LE(std::hypot(k.center().x - C.x(), k.center().y - C.y()) / R, tol);
        EXPECT_NEAR(k.radius() / R, 1.0, tol);
        EXPECT_LE((vec(k3.center()) - C).norm() / R, tol);
        EXPECT_NEAR(k3.radius() / R, 1.0, tol);
        EXPECT_LE(sinAngle3(normalOf(k3), Q.col(2)), tol);
        EXPECT_NEAR(normalOf(k3).dot(vec(k3.center())) + k3.plane().d(), 0.0, tol * (R + c.offset));
        EXPECT_LE((vec(s.center()) - C).norm() / R, tol);
        EXPECT_NEAR(s.radius() / R, 1.0, tol);
        EXPECT_LE(sinAngle3(dirOf(cy), Q.col(2)), tol);
        EXPECT_LE(lineDist(C, vec(cy.axis().point()), dirOf(cy)) / R, tol);
        EXPECT_NEAR(cy.radius() / R, 1.0, tol);
        // The axis point is the foot of the perpendicular from the centroid.
        Vector3d m = Vector3d::Zero();
        for (auto const& q : pc) m += vec(q) / n;
        EXPECT_NEAR((m - vec(cy.axis().point())).dot(dirOf(cy)) / R, 0.0, tol);
    }
}

// Published data; at the optimum r is the mean distance from the centre.
TYPED_TEST(GeomFit, GanderGolubStrebelCircle) {
    using T = TypeParam;
    const V2<T> p = pts2<T>({{1, 7}, {2, 6}, {5, 8}, {7, 7}, {9, 5}, {3, 7}});
    Ccircle2<T> k;
    CqCircleGeomStdAbw<T> rec;
    approximate<T>::fitCircleGeom(p, k, rec);
    ASSERT_TRUE(rec.converged);
    const double tol = tolOf<T>(1e-8, 2e-5);
    EXPECT_NEAR(k.center().x, 4.739782411, tol);
    EXPECT_NEAR(k.center().y, 2.983532699, tol);
    EXPECT_NEAR(k.radius(), 4.714226038, tol);
    double mean = 0.0, ss = 0.0;
    for (auto const& q : p) {
        const double d = std::hypot(q.x - k.center().x, q.y - k.center().y);
        mean += d / 6, ss += (d - k.radius()) * (d - k.radius());
    }
    EXPECT_NEAR(k.radius(), mean, tolOf<T>(1e-13, 1e-5));
    EXPECT_NEAR(rec.sumSqDist, ss, tolOf<T>(1e-12, 1e-5));
    EXPECT_NEAR(rec.stdAbw, std::sqrt(ss / 3), tolOf<T>(1e-12, 1e-5));
}

// Deviations e of 40 points with the components along the columns of the
// Jacobian J (one row per point, built by row(i, J)) removed.
Eigen::VectorXd nullSpaceDeviations(int cols, std::function<void(int, Eigen::MatrixXd&)> const& row, unsigned seed) {
    std::mt19937_64 rng(seed);
    std::normal_distribution<double> g(0.0, 0.01);
    Eigen::MatrixXd J(40, cols);
    Eigen::VectorXd e(40);
    for (int i = 0; i < 40; ++i) row(i, J), e(i) = g(rng);
    const Eigen::MatrixXd Qm = Eigen::HouseholderQR<Eigen::MatrixXd>(J).householderQ() * Eigen::MatrixXd::Identity(40, cols);
    for (int k = 0; k < 2; ++k) e -= Qm * (Qm.transpose() * e);
    return e;
}

TEST(GeomFitReference, NullSpaceDataFarOutAndRotated) {
    const int n = 40;
    const Eigen::Matrix3d Q = rotation(99);
    const Vector3d off(1000, 1000, 1000);
    const double R = 25.0, tol = 1e-9 * R;
    auto arc = [](int i, double span) { return span * i / (n - 1); };
    {  // planar circle on a 92 degree arc: columns cos, sin, 1
        const Eigen::VectorXd e = nullSpaceDeviations(3, [&](int i, Eigen::MatrixXd& J) {
            J.row(i) << std::cos(0.2 + arc(i, 1.6)), std::sin(0.2 + arc(i, 1.6)), 1.0; }, 42);
        V2<double> p;
        for (int i = 0; i < n; ++i)
            p.emplace_back(1000 + (R + e(i)) * std::cos(0.9 + arc(i, 1.6)), 1000 + (R + e(i)) * std::sin(0.9 + arc(i, 1.6)));
        Ccircle2<double> k;
        CqCircleGeomStdAbw<double> rec;
        approximate<double>::fitCircleGeom(p, k, rec);
        ASSERT_TRUE(rec.converged);
        EXPECT_LE(std::hypot(k.center().x - 1000, k.center().y - 1000), tol);
        EXPECT_NEAR(k.radius(), R, tol);
        EXPECT_NEAR(rec.sumSqDist, e.squaredNorm(), 1e-9 * e.squaredNorm());
    }
    {  // sphere on a 57 degree cap: columns the normal's components and 1
        const Eigen::VectorXd e = nullSpaceDeviations(4, [&](int i, Eigen::MatrixXd& J) {
            J.row(i) << capDir(i, n, 1.0).transpose(), 1.0; }, 43);
        V3<double> p;
        for (int i = 0; i < n; ++i) p.push_back(pt3<double>(off + Q * ((R + e(i)) * capDir(i, n, 1.0))));
        Csphere3<double> s;
        CqSphereGeomStdAbw<double> rec;
        approximate<double>::fitSphereGeom(p, s, rec);
        ASSERT_TRUE(rec.converged);
        EXPECT_LE((vec(s.center()) - off).norm(), tol);
        EXPECT_NEAR(s.radius(), R, tol);
    }
    {  // circle in space on a 126 degree arc: point i deviates by e_i along
       // cos b_i radial + sin b_i normal
        auto b = [](int i) { return 0.9 * std::sin(3.0 * i); };
        const Eigen::VectorXd e = nullSpaceDeviations(6, [&](int i, Eigen::MatrixXd& J) {
            const double t = arc(i, 2.2), cb = std::cos(b(i)), sb = std::sin(b(i));
            J.row(i) << cb * std::cos(t), cb * std::sin(t), sb, sb * std::cos(t), sb * std::sin(t), cb; }, 44);
        V3<double> p;
        for (int i = 0; i < n; ++i) {
            const double t = arc(i, 2.2), rr = R + e(i) * std::cos(b(i));
            p.push_back(pt3<double>(off + Q * Vector3d(rr * std::cos(t), rr * std::sin(t), e(i) * std::sin(b(i)))));
        }
        Ccircle3<double> k;
        CqCircle3GeomStdAbw<double> rec;
        approximate<double>::fitCircleGeom(p, k, rec);
        ASSERT_TRUE(rec.converged);
        EXPECT_LE((vec(k.center()) - off).norm(), tol);
        EXPECT_NEAR(k.radius(), R, tol);
        EXPECT_LE(sinAngle3(normalOf(k), Q.col(2)), 1e-9);
        EXPECT_NEAR(rec.sumSqDist, e.squaredNorm(), 1e-9 * e.squaredNorm());
    }
    {  // cylinder, 115 degree arc, 60 long: columns cos, sin, z cos, z sin, 1
        auto t = [](int i) { return 2.0 * ((i * 13) % n) / n; };
        auto z = [&](int i) { return arc(i, 60.0); };
        const Eigen::VectorXd e = nullSpaceDeviations(5, [&](int i, Eigen::MatrixXd& J) {
            J.row(i) << std::cos(t(i)), std::sin(t(i)), z(i) * std::cos(t(i)), z(i) * std::sin(t(i)), 1.0; }, 45);
        V3<double> p;
        for (int i = 0; i < n; ++i)
            p.push_back(pt3<double>(off + Q * Vector3d((R + e(i)) * std::cos(t(i)), (R + e(i)) * std::sin(t(i)), z(i))));
        Ccylinder3<double> cy;
        CqCylinderGeomStdAbw<double> rec;
        approximate<double>::fitCylinderGeom(p, cy, rec);
        ASSERT_TRUE(rec.converged);
        EXPECT_LE(sinAngle3(dirOf(cy), Q.col(2)), 1e-9);
        EXPECT_LE(lineDist(off, vec(cy.axis().point()), dirOf(cy)), tol);
        EXPECT_NEAR(cy.radius(), R, tol);
        EXPECT_NEAR(rec.sumSqDist, e.squaredNorm(), 1e-9 * e.squaredNorm());
    }
}

// Over 1000 noisy samples of 20 points: no radius bias, and the reported
// uncertainties match the spread of the parameters.
TEST(GeomFitNoise, CircleSphereCylinderUnbiasedWithHonestUncertainties) {
    struct Stat {
        double s = 0, ss = 0, u = 0;
        int n = 0;
        void add(double x, double unc) { s += x, ss += x * x, u += unc, ++n; }
        double mean() const { return s / n; }
        double sd() const { return std::sqrt((ss - s * s / n) / (n - 1)); }
    };
    const int seeds = 1000, n = 20;
    const double R = 10.0, sigma = 0.05;
    Stat cr, cx, sr, sx, yr, yp, kr, kn, kz;
    for (int seed = 0; seed < seeds; ++seed) {
        std::mt19937_64 rng(1000 + seed);
        std::normal_distribution<double> g(0.0, sigma);
        V2<double> p2;
        V3<double> p3, pc, pk;
        for (int i = 0; i < n; ++i) {
            const double t = 2.0 * i / n, r = R + g(rng);  // a 115 degree arc, radial noise
            p2.emplace_back(5 + r * std::cos(t), -3 + r * std::sin(t));
            const double rk = R + g(rng);  // circle in the plane z = 1, height noise
            pk.emplace_back(rk * std::cos(t), rk * std::sin(t), 1 + g(rng));
            p3.push_back(pt3<double>((R + g(rng)) * capDir(i, n, 1.2)));
            const double tc = 2.5 * ((i * 7) % n) / n, rc = R + g(rng);
            pc.emplace_back(rc * std::cos(tc), rc * std::sin(tc), 30.0 * i / n);
        }
        Ccircle2<double> k;
        Ccircle3<double> k3;
        Csphere3<double> s;
        Ccylinder3<double> cy;
        CqCircleGeomStdAbw<double> rk;
        CqCircle3GeomStdAbw<double> r3;
        CqSphereGeomStdAbw<double> rs;
        CqCylinderGeomStdAbw<double> ry;
        approximate<double>::fitCircleGeom(p2, k, rk);
        approximate<double>::fitCircleGeom(pk, k3, r3);
        approximate<double>::fitSphereGeom(p3, s, rs);
        approximate<double>::fitCylinderGeom(pc, cy, ry);
        ASSERT_TRUE(rk.converged && r3.converged && rs.converged && ry.converged);
        cr.add(k.radius() - R, rk.uRadius);
        cx.add(k.center().x - 5, rk.uCenterX);
        kr.add(k3.radius() - R, r3.uRadius);
        kn.add(k3.plane().a(), r3.uNormalX);
        kz.add(k3.center().z, r3.uCenterZ);
        sr.add(s.radius() - R, rs.uRadius);
        sx.add(s.center().x, rs.uCenterX);
        yr.add(cy.radius() - R, ry.uRadius);
        yp.add(cy.axis().direction().x * (cy.axis().direction().z < 0 ? -1 : 1), ry.uDirX);
    }
    for (Stat const* st : {&cr, &sr, &yr, &kr}) {
        EXPECT_LT(std::fabs(st->mean()), 3 * sigma / std::sqrt(double(n)));
        EXPECT_LT(std::fabs(st->mean()), 4 * st->sd() / std::sqrt(double(seeds)));  // within 4 standard errors
    }
    const char* names[] = {"circle_r", "circle_cx", "sphere_r", "sphere_cx", "cyl_r", "cyl_dirx", "circle3_r",
                           "circle3_nx", "circle3_cz"};
    const Stat* stats[] = {&cr, &cx, &sr, &sx, &yr, &yp, &kr, &kn, &kz};
    for (int k = 0; k < 9; ++k) EXPECT_NEAR(stats[k]->u / seeds / stats[k]->sd(), 1.0, 0.2) << names[k];
}

// On a partial arc two centres fit a fixed radius: the fits return the one on
// the free fit's side, and it satisfies the optimality condition.
TYPED_TEST(GeomFit, RfixPicksTheFreeFitsSideAndIsOptimal) {
    using T = TypeParam;
    const double R = 50.0;
    V2<T> p;
    V3<T> pc, ps;
    for (int i = 0; i < 30; ++i) {
        const double t = 1.0 + (kPi / 6) * i / 29, x = 10 + R * std::cos(t), y = 20 + R * std::sin(t);
        p.emplace_back(T(x), T(y));  // a 30 degree arc about (10, 20)
        for (double z : {0.0, 10.0, 20.0}) pc.emplace_back(T(x), T(y), T(z));  // symmetric heights: no tilt
        ps.push_back(pt3<T>(R * capDir(i, 30, 0.5)));
    }
    const double mx = 10 + R * std::cos(1.0 + kPi / 12), my = 20 + R * std::sin(1.0 + kPi / 12);
    for (double rf : {50.0, 60.0, 45.0}) {
        SCOPED_TRACE(rf);
        Ccircle2<T> k;
        CqCircleGeomStdAbw<T> rec;
        approximate<T>::fitCircleGeomRfix(p, T(rf), k, rec);
        ASSERT_TRUE(rec.converged);
        EXPECT_EQ(k.radius(), T(rf));
        EXPECT_EQ(rec.uRadius, T(0));
        EXPECT_GT((k.center().x - mx) * (10 - mx) + (k.center().y - my) * (20 - my), 0);  // the true centre's side
        double gx = 0, gy = 0;  // optimality: sum (d_i - r) unit(p_i - c) = 0
        for (auto const& q : p) {
            const double dx = q.x - k.center().x, dy = q.y - k.center().y, d = std::hypot(dx, dy);
            gx += (d - rf) * dx / d / 30, gy += (d - rf) * dy / d / 30;
        }
        EXPECT_NEAR(gx, 0, tolOf<T>(1e-10, 1e-3));
        EXPECT_NEAR(gy, 0, tolOf<T>(1e-10, 1e-3));
        EXPECT_NEAR(rf == R ? k.center().x : T(10), 10, tolOf<T>(1e-9, 1e-3));  // the true circle
        Ccylinder3<T> cy;
        approximate<T>::fitCylinderGeomRfix(pc, T(rf), cy);
        ASSERT_TRUE(cy.isValid());
        EXPECT_EQ(cy.radius(), T(rf));
        EXPECT_NEAR(cy.axis().point().x, k.center().x, tolOf<T>(1e-7, 1e-2));
        EXPECT_NEAR(cy.axis().point().y, k.center().y, tolOf<T>(1e-7, 1e-2));
        Csphere3<T> s;
        approximate<T>::fitSphereGeomRfix(ps, T(rf), s);
        ASSERT_TRUE(s.isValid());
        EXPECT_LT(s.center().z, 50 * std::cos(0.5));  // below the cap, as the free centre
        EXPECT_EQ(s.radius(), T(rf));
        EXPECT_NEAR(rf == R ? s.center().x : T(0), 0, tolOf<T>(1e-9, 1e-3));
    }
}

// A caller's start cylinder: the sign of its direction is kept.
TYPED_TEST(GeomFit, CylinderFromNominalAxisKeepsItsSign) {
    using T = TypeParam;
    V3<T> p;
    for (int i = 0; i < 50; ++i) p.emplace_back(T(100 + 8 * std::cos(0.4 * i)), T(200 + 8 * std::sin(0.4 * i)), T(2 * i));
    const Ccylinder3<T> nominal(Cline3<T>(Cpoint3<T>(T(101), T(199), T(0)), Cdirec3<T>(T(0.05), T(-0.03), T(-1))), T(0));
    Ccylinder3<T> cy;
    CqCylinderGeomStdAbw<T> rec;
    approximate<T>::fitCylinderGeom(p, nominal, cy, rec);
    ASSERT_TRUE(rec.converged);
    EXPECT_NEAR(cy.axis().direction().z, -1.0, tolOf<T>(1e-12, 1e-6));
    EXPECT_NEAR(cy.axis().point().x, 100, tolOf<T>(1e-9, 1e-3));
    EXPECT_NEAR(cy.axis().point().z, 49, tolOf<T>(1e-9, 1e-3));  // foot point of the centroid
    EXPECT_NEAR(cy.radius(), 8, tolOf<T>(1e-10, 1e-4));
}

TEST(GeomFitMeasure, StdAbwCylinderIsTheSpreadOfAxisDistances) {
    std::mt19937_64 rng(7);
    std::uniform_real_distribution<double> u(-5, 5);
    V3<double> p;
    double m = 0, s = 0;
    std::vector<double> d;
    for (int i = 0; i < 25; ++i) {
        p.emplace_back(u(rng), u(rng), u(rng));
        d.push_back(lineDist(vec(p.back()), Vector3d(1, 2, 3), Vector3d(1, 1, 0)));
        m += d.back() / 25;
    }
    for (double x : d) s += (x - m) * (x - m);
    const Ccylinder3<double> cy(Cline3<double>(Cpoint3<double>(1, 2, 3), Cdirec3<double>(1, 1, 0)), 1e9);
    EXPECT_NEAR(approximate<double>::StdAbwCylinder(p, cy), std::sqrt(s / 24), 1e-12);
    EXPECT_TRUE(std::isnan(approximate<double>::StdAbwCylinder(p, Ccylinder3<double>())));
}

// Refused input: invalid primitives, not converged; non-finite input is
// refused before iterating.
TYPED_TEST(GeomFit, BadInputGivesInvalidResultsAndSaysWhy) {
    using T = TypeParam;
    const T nan = quietNaN<T>(), inf = std::numeric_limits<T>::infinity();
    V3<T> ring, line, plane, coinc;
    for (int i = 0; i < 12; ++i) {
        ring.emplace_back(T(std::cos(i * 0.5)), T(std::sin(i * 0.5)), T(0));
        line.emplace_back(T(i), T(2 * i), T(3 * i));
        plane.emplace_back(T(i % 4), T(i / 4), T(0.5) * T(i % 4));
        coinc.emplace_back(T(3), T(4), T(5));
    }
    V3<T> withNaN = ring, withInf = ring;
    withNaN[5].y = nan;
    withInf[7].x = inf;
    auto flat = [](V3<T> const& v) {
        V2<T> p2;
        for (auto const& q : v) p2.emplace_back(q.x, q.y);
        return p2;
    };
    const std::pair<const char*, V3<T>> cases[] = {{"empty", {}}, {"two", V3<T>(ring.begin(), ring.begin() + 2)},
                                                   {"coincident", coinc}, {"collinear", line},
                                                   {"NaN", withNaN}, {"inf", withInf}};
    for (auto const& c : cases) {
        SCOPED_TRACE(c.first);
        Ccircle2<T> k;
        Ccircle3<T> k3;
        Csphere3<T> s;
        Ccylinder3<T> cy, cyf;
        CqCircleGeomStdAbw<T> rk;
        CqCircle3GeomStdAbw<T> r3;
        CqSphereGeomStdAbw<T> rs;
        CqCylinderGeomStdAbw<T> ry;
        approximate<T>::fitCircleGeom(flat(c.second), k, rk);
        approximate<T>::fitCircleGeom(c.second, k3, r3);
        approximate<T>::fitSphereGeom(c.second, s, rs);
        approximate<T>::fitCylinderGeom(c.second, cy, ry);
        EXPECT_FALSE(k.isValid() || k3.isValid() || s.isValid() || cy.isValid());
        EXPECT_FALSE(rk.converged || r3.converged || rs.converged || ry.converged);
        EXPECT_TRUE(std::isnan(rk.stdAbw) && std::isnan(rk.uRadius));
        EXPECT_EQ(rs.iterations, 0u);  // refused before iterating
        approximate<T>::fitCylinderGeomRfix(c.second, T(1), cyf);
        approximate<T>::fitCircleGeomRfix(flat(c.second), T(1), k);
        EXPECT_FALSE(cyf.isValid() || k.isValid());
    }
    // Coplanar points: no sphere.
    Csphere3<T> s;
    CqSphereGeomStdAbw<T> rs;
    for (V3<T> const* v : {&ring, &plane}) {
        approximate<T>::fitSphereGeom(*v, s, rs);
        EXPECT_FALSE(s.isValid());
    }
    // A bad fixed radius.
    V2<T> r2 = flat(ring);
    Ccircle2<T> k;
    for (T bad : {T(0), T(-1), nan, inf}) {
        approximate<T>::fitCircleGeomRfix(r2, bad, k);
        approximate<T>::fitSphereGeomRfix(ring, bad, s);
        EXPECT_FALSE(k.isValid() || s.isValid());
    }
    // Too few iterations allowed: not converged, invalid, the count reported.
    CqGeomFitPrm<T> prm;
    prm.maxIter = 1;
    r2[3].x += T(0.01);
    CqCircleGeomStdAbw<T> rk;
    approximate<T>::fitCircleGeom(r2, k, rk, prm);
    EXPECT_FALSE(k.isValid() || rk.converged);
    EXPECT_EQ(rk.iterations, 1u);
    // An invalid start cylinder.
    Ccylinder3<T> cy;
    approximate<T>::fitCylinderGeom(line, Ccylinder3<T>(), cy);
    EXPECT_FALSE(cy.isValid());
}

}  // namespace
