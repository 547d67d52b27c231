#include <math/geometric.h>
#include <math/primitives3.h>

#include <Eigen/Dense>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

using namespace math;

namespace {

const char* const kPlaneMessage = "\n [FEHLER!]: Richtungsvektoren der Ebene linear abhaengig!\n\n";

template <class T>
Cpoint3<T> randPoint(std::mt19937& g, double lo = -10, double hi = 10) {
    std::uniform_real_distribution<double> u(lo, hi);
    return Cpoint3<T>(T(u(g)), T(u(g)), T(u(g)));
}

template <class T>
Eigen::Vector3d ev(Cpoint3<T> const& p) {
    return Eigen::Vector3d(double(p.x), double(p.y), double(p.z));
}

// A few hundred ulps of T: the routines under test run entirely in T.
template <class T>
double tolT() {
    return std::is_same<T, float>::value ? 2e-4 : 1e-11;
}

template <class T>
class Primitives3 : public ::testing::Test {};
using Types = ::testing::Types<float, double>;
TYPED_TEST_SUITE(Primitives3, Types);

}  // namespace

TYPED_TEST(Primitives3, PlaneEdgeCases) {
    using T = TypeParam;
    using P = Cpoint3<T>;
    const Cplane3<T> e(P(0, 0, 0), P(1, 0, 0), P(0, 1, 0));
    EXPECT_EQ(e.normal(), Cdirec3<T>(0, 0, 1, true));
    EXPECT_EQ(e.d(), T(0));
    EXPECT_EQ(e.pointAt(0, 0), P(0, 0, 0));
    // Normal +z: axes (1, 0, 0) and n x e1 = (0, 1, 0); along -z the second flips.
    const Cplane3<T> f(P(0, 0, 5), Cdirec3<T>(0, 0, 1, true));
    EXPECT_EQ(f.d(), T(-5));
    EXPECT_EQ(f.pointAt(0, 0), P(0, 0, 5));
    EXPECT_EQ(f.pointAt(2, 0), P(2, 0, 5));
    EXPECT_EQ(f.pointAt(0, 3), P(0, 3, 5));
    EXPECT_EQ(Cplane3<T>(Cdirec3<T>(0, 0, -1, true), T(2)).pointAt(1, 1), P(1, -1, 2));
    // |a| <= |b| <= |c|: the first axis is (1, -a/b, 0) normalised.
    const P a1 = Cplane3<T>(Cdirec3<T>(1, 2, 2), T(0)).pointAt(1, 0);
    EXPECT_NEAR((ev(a1) - Eigen::Vector3d(2, -1, 0) / std::sqrt(5.0)).norm(), 0.0, tolT<T>());
    // For an axis normal both axes are axis vectors: the component that cannot
    // be solved (division by a zero component) is 0.
    for (int k = 0; k < 6; ++k) {
        P n(0, 0, 0);
        n[unsigned(k % 3)] = k < 3 ? T(1) : T(-1);
        const Cplane3<T> g(Cdirec3<T>(n.x, n.y, n.z, true), T(0));
        for (P const& ax : {g.pointAt(1, 0), g.pointAt(0, 1)})
            EXPECT_EQ(std::abs(ax.x) + std::abs(ax.y) + std::abs(ax.z), T(1)) << k;
    }
    // The normal/d constructor and set(a, b, c, d) store as given (no renormalising).
    Cplane3<T> h(Cdirec3<T>(2, 0, 0, true), T(7));
    EXPECT_EQ(h.a(), T(2));
    EXPECT_EQ(h.d(), T(7));
    h.set(T(0), T(3), T(4), T(-1));
    EXPECT_EQ(h.normal(), Cdirec3<T>(0, 3, 4, true));
    EXPECT_EQ(h.d(), T(-1));
    h.invalidate();
    EXPECT_FALSE(h.isValid());
    EXPECT_TRUE(std::isnan(h.d()));
    EXPECT_EQ(h.c(), T(4));  // only d is touched
    EXPECT_FALSE(Cplane3<T>().isValid());
    EXPECT_FALSE(Cplane3<T>(Cdirec3<T>(std::numeric_limits<T>::quiet_NaN(), 0, 1, true), T(0)).isValid());
}

// Exactly dependent edge directions print the message once; a repeated point
// gives a NaN ratio and no message.  Random points never print.
TYPED_TEST(Primitives3, PlaneThroughThreePoints) {
    using T = TypeParam;
    using P = Cpoint3<T>;
    const struct {
        P p1, p2, p3;
        const char* out;
    } bad[] = {{P(0, 0, 0), P(1, 1, 1), P(2, 2, 2), kPlaneMessage},
               {P(0, 0, 0), P(1, 0, 0), P(-3, 0, 0), kPlaneMessage},
               {P(1, 2, 3), P(1, 2, 3), P(0, 1, 0), ""}};
    for (auto const& b : bad) {
        testing::internal::CaptureStdout();
        const Cplane3<T> e(b.p1, b.p2, b.p3);
        std::fflush(stdout);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), std::string(b.out));
        EXPECT_FALSE(e.isValid());
        EXPECT_TRUE(std::isnan(e.a()) || std::isnan(e.d()));
    }
    std::mt19937 gen(17);
    testing::internal::CaptureStdout();
    for (int i = 0; i < 2000; ++i) {
        const P p1 = randPoint<T>(gen), p2 = randPoint<T>(gen), p3 = randPoint<T>(gen);
        const Cplane3<T> e(p1, p2, p3);
        ASSERT_TRUE(e.isValid());
        // Oracle: the normal of the Eigen cross product, right-hand rule.
        const Eigen::Vector3d en = (ev(p2) - ev(p1)).cross(ev(p3) - ev(p1));
        const double sinAngle = en.norm() / ((ev(p2) - ev(p1)).norm() * (ev(p3) - ev(p1)).norm());
        if (sinAngle < 1e-2) continue;  // nearly collinear: the normal is poorly determined
        EXPECT_NEAR((Eigen::Vector3d(e.a(), e.b(), e.c()) - en.normalized()).norm(), 0.0, tolT<T>() / sinAngle);
        for (P const& p : {p1, p2, p3}) EXPECT_NEAR(double(geometric<T>::distance(e, p)), 0.0, 20 * tolT<T>());
    }
    std::fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), std::string());
}

TYPED_TEST(Primitives3, PointAtIsAnOrthonormalParametrisation) {
    using T = TypeParam;
    std::mt19937 gen(5);
    std::uniform_real_distribution<double> u(-1, 1);
    // Ties of magnitudes and random directions reach every branch.
    std::vector<Cdirec3<T>> normals;
    for (int s = -1; s <= 1; s += 2) {
        normals.push_back(Cdirec3<T>(T(s), T(1), 0));
        normals.push_back(Cdirec3<T>(T(1), T(s), T(1)));
        normals.push_back(Cdirec3<T>(0, T(s), T(1)));
    }
    for (int i = 0; i < 500; ++i) normals.push_back(Cdirec3<T>(T(u(gen)), T(u(gen)), T(u(gen))));
    for (Cdirec3<T> const& n : normals) {
        const T d = T(3 * u(gen));
        const Cplane3<T> e(n, d);
        const Eigen::Vector3d N(n.x, n.y, n.z), base = ev(e.pointAt(0, 0));
        EXPECT_NEAR((base + double(d) * N).norm(), 0.0, tolT<T>());  // foot point -d*n
        const Eigen::Vector3d e1 = ev(e.pointAt(1, 0)) - base, e2 = ev(e.pointAt(0, 1)) - base;
        // (e1, e2, n) is a right-handed orthonormal frame.
        EXPECT_NEAR(e1.norm() + e2.norm(), 2.0, 10 * tolT<T>());
        EXPECT_NEAR(std::abs(e1.dot(e2)) + std::abs(e1.dot(N)), 0.0, 10 * tolT<T>());
        EXPECT_NEAR((e1.cross(e2) - N).norm(), 0.0, 10 * tolT<T>());
        // The first axis has a zero component where the normal is largest (with
        // ties, at one of the largest): it never divides by a small component.
        const double nmax = N.cwiseAbs().maxCoeff();
        bool zeroAtMax = false;
        for (unsigned k = 0; k < 3; ++k) zeroAtMax = zeroAtMax || (std::abs(N[k]) == nmax && std::abs(e1[k]) <= 10 * tolT<T>());
        EXPECT_TRUE(zeroAtMax) << N.transpose();
    }
}

TYPED_TEST(Primitives3, CircleThroughThreePoints) {
    using T = TypeParam;
    std::mt19937 gen(99);
    std::uniform_real_distribution<double> u(-1, 1);
    std::vector<Eigen::Vector3d> normals = {{0, 0, 1}, {0, 0, -1}, {1, 0, 0}, {0, 1, 0}, {0, 1e-9, 1}};
    for (int i = 0; i < 300; ++i) normals.push_back(Eigen::Vector3d(u(gen), u(gen), u(gen)).normalized());
    for (Eigen::Vector3d const& N : normals) {
        // Points at three angles at least 30 degrees apart on a circle of the
        // plane through c with normal N: the centre and radius come back.
        const Eigen::Vector3d c(3 * u(gen), 3 * u(gen), 3 * u(gen));
        const double r = 0.5 + 2 * (u(gen) + 1), t0 = 3.141592653589793 * u(gen);
        const Eigen::Vector3d helper = std::abs(N.x()) < 0.9 ? Eigen::Vector3d(1, 0, 0) : Eigen::Vector3d(0, 1, 0);
        const Eigen::Vector3d a1 = N.cross(helper).normalized(), a2 = N.cross(a1);
        const double ts[3] = {t0, t0 + 2.2 + 0.3 * u(gen), t0 + 4.2 + 0.3 * u(gen)};
        Cpoint3<T> p[3];
        for (int k = 0; k < 3; ++k) {
            const Eigen::Vector3d q = c + r * (std::cos(ts[k]) * a1 + std::sin(ts[k]) * a2);
            p[k] = Cpoint3<T>(T(q.x()), T(q.y()), T(q.z()));
        }
        const Cplane3<T> e(Cpoint3<T>(T(c.x()), T(c.y()), T(c.z())), Cdirec3<T>(T(N.x()), T(N.y()), T(N.z())));
        const Ccircle3<T> k(e, p[0], p[1], p[2]);
        ASSERT_TRUE(k.isValid());
        EXPECT_NEAR((ev(k.center()) - c).norm(), 0.0, 20 * tolT<T>()) << N.transpose();
        EXPECT_NEAR(double(k.radius()), r, 20 * tolT<T>());
        EXPECT_EQ(k.plane().normal(), e.normal());
        EXPECT_EQ(k.plane().d(), e.d());
    }
    // Collinear points: no check is made; the result is NaN or infinite.
    const Ccircle3<T> bad(Cplane3<T>(Cdirec3<T>(0, 0, 1, true), T(0)), Cpoint3<T>(0, 0, 0), Cpoint3<T>(1, 1, 0), Cpoint3<T>(2, 2, 0));
    EXPECT_FALSE(bad.isValid() && std::isfinite(bad.radius()) && std::isfinite(bad.center().x));
    // Members: the radius is kept as given; invalidate keeps centre and plane.
    Ccircle3<T> m(Cplane3<T>(Cdirec3<T>(0, 1, 0, true), T(-2)), Cpoint3<T>(1, 2, 3), T(-4));
    EXPECT_TRUE(m.isValid() && m.radius() == T(-4));
    m.invalidate();
    EXPECT_FALSE(m.isValid());
    EXPECT_TRUE(m.center() == Cpoint3<T>(1, 2, 3) && m.plane().d() == T(-2));
    EXPECT_FALSE(Ccircle3<T>().isValid() || Ccircle3<T>(Cplane3<T>(), Cpoint3<T>(0, 0, 0), T(1)).isValid());
}

TYPED_TEST(Primitives3, ValueTypes) {
    using T = TypeParam;
    // Ellipse: pointAt(t) satisfies the implicit equation in the ellipse frame.
    Cellipse2<T> el(Cpoint2<T>(1, 2), T(3), T(1), T(0.5));
    EXPECT_TRUE(el.isValid());
    for (int i = 0; i < 16; ++i) {
        const Cpoint2<T> p = el.pointAt(T(0.4 * i));
        const double dx = p.x - 1.0, dy = p.y - 2.0, c = std::cos(0.5), sn = std::sin(0.5);
        const double uu = c * dx + sn * dy, vv = -sn * dx + c * dy;
        EXPECT_NEAR(uu * uu / 9 + vv * vv, 1.0, 10 * tolT<T>());
    }
    el.invalidate();
    EXPECT_FALSE(el.isValid() || Cellipse2<T>().isValid());
}

TYPED_TEST(Primitives3, BoundingBox) {
    using T = TypeParam;
    using P = Cpoint3<T>;
    CboundingBox3<T> b;
    b.set(std::vector<P>());
    EXPECT_FALSE(b.isValid());
    const std::vector<P> pts = {P(1, -2, 3), P(-4, 5, 0), P(2, 2, -6)};
    b.set(pts);
    EXPECT_TRUE(b.isValid());
    EXPECT_EQ(b.min(), P(-4, -2, -6));
    EXPECT_EQ(b.max(), P(2, 5, 3));
    for (auto const& p : pts) EXPECT_TRUE(b.isInside(p));
    EXPECT_EQ(b.getCenter(), P(-1, T(1.5), T(-1.5)));
    // The corners are ordered; the margin is the absolute machine epsilon of T.
    CboundingBox3<T> u(P(0, 0, 0), P(-1, -1, -1));
    EXPECT_EQ(u.min(), P(-1, -1, -1));
    const T e = std::numeric_limits<T>::epsilon();
    EXPECT_TRUE(u.isInside(P(e, 0, 0)));
    EXPECT_FALSE(u.isInside(P(3 * e, 0, 0)));
    EXPECT_FALSE(u.isInside(P(std::numeric_limits<T>::quiet_NaN(), 0, 0)));
}
