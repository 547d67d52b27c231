#include <math/geometric.h>
#include <math/primitives3.h>

#include <core/memtracker.h>

#include <Eigen/Dense>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <random>
#include <string>
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

// Working precision for comparisons against double oracles: a few hundred ulps
// of T, since the routines under test run entirely in T.
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
    Cplane3<T> e(Cpoint3<T>(0, 0, 0), Cpoint3<T>(1, 0, 0), Cpoint3<T>(0, 1, 0));
    EXPECT_EQ(e.a(), T(0));
    EXPECT_EQ(e.b(), T(0));
    EXPECT_EQ(e.c(), T(1));
    EXPECT_EQ(e.d(), T(0));
    EXPECT_TRUE(e.isValid());
    EXPECT_EQ(e.pointAt(0, 0), Cpoint3<T>(0, 0, 0));

    Cplane3<T> f(Cpoint3<T>(0, 0, 5), Cdirec3<T>(0, 0, 1, true));
    EXPECT_EQ(f.d(), T(-5));
    EXPECT_EQ(f.pointAt(0, 0), Cpoint3<T>(0, 0, 5));
    // Normal along +z: first axis (1, 0, 0), second n x e1 = (0, 1, 0).
    EXPECT_EQ(f.pointAt(2, 0), Cpoint3<T>(2, 0, 5));
    EXPECT_EQ(f.pointAt(0, 3), Cpoint3<T>(0, 3, 5));
    // Along -z: still (1, 0, 0) first, the second axis flips.
    Cplane3<T> g(Cdirec3<T>(0, 0, -1, true), T(2));
    EXPECT_EQ(g.pointAt(0, 0), Cpoint3<T>(0, 0, 2));
    EXPECT_EQ(g.pointAt(1, 1), Cpoint3<T>(1, -1, 2));

    // The normal/d constructor, set(a, b, c, d) store as given (no renormalising).
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
    Cplane3<T> k(Cdirec3<T>(std::numeric_limits<T>::quiet_NaN(), 0, 1, true), T(0));
    EXPECT_FALSE(k.isValid());
}

TYPED_TEST(Primitives3, PlaneThroughCollinearPointsPrintsOnce) {
    using T = TypeParam;
    testing::internal::CaptureStdout();
    Cplane3<T> e(Cpoint3<T>(0, 0, 0), Cpoint3<T>(1, 1, 1), Cpoint3<T>(2, 2, 2));
    std::fflush(stdout);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out, std::string(kPlaneMessage));
    EXPECT_FALSE(e.isValid());
    EXPECT_TRUE(std::isnan(e.a()));

    // Antiparallel edges are linearly dependent as well.
    testing::internal::CaptureStdout();
    Cplane3<T> f(Cpoint3<T>(0, 0, 0), Cpoint3<T>(1, 0, 0), Cpoint3<T>(-3, 0, 0));
    std::fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), std::string(kPlaneMessage));
    EXPECT_FALSE(f.isValid());

    // A repeated point gives an invalid edge direction: no report (the ratio is
    // NaN), and the plane is invalid.
    testing::internal::CaptureStdout();
    Cplane3<T> g(Cpoint3<T>(1, 2, 3), Cpoint3<T>(1, 2, 3), Cpoint3<T>(0, 1, 0));
    std::fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), std::string());
    EXPECT_FALSE(g.isValid());
}

TYPED_TEST(Primitives3, PlaneThroughRandomPoints) {
    using T = TypeParam;
    std::mt19937 gen(17);
    testing::internal::CaptureStdout();
    for (int i = 0; i < 2000; ++i) {
        const Cpoint3<T> p1 = randPoint<T>(gen), p2 = randPoint<T>(gen), p3 = randPoint<T>(gen);
        Cplane3<T> e(p1, p2, p3);
        ASSERT_TRUE(e.isValid());
        const Eigen::Vector3d n(e.a(), e.b(), e.c());
        const Eigen::Vector3d en = (ev(p2) - ev(p1)).cross(ev(p3) - ev(p1));
        // Oracle: the normal of the Eigen cross product, right-hand rule.
        const double sinAngle = en.norm() / ((ev(p2) - ev(p1)).norm() * (ev(p3) - ev(p1)).norm());
        if (sinAngle < 1e-2) continue;  // nearly collinear: the normal is poorly determined
        EXPECT_NEAR((n - en.normalized()).norm(), 0.0, tolT<T>() / sinAngle);
        EXPECT_NEAR(n.norm(), 1.0, tolT<T>());
        for (Cpoint3<T> const& p : {p1, p2, p3}) EXPECT_NEAR(double(geometric<T>::distance(e, p)), 0.0, 20 * tolT<T>());
    }
    std::fflush(stdout);
    // Directions that are not parallel never reach the ratio 1.
    EXPECT_EQ(testing::internal::GetCapturedStdout(), std::string());
}

TYPED_TEST(Primitives3, PointAtIsAnOrthonormalParametrisation) {
    using T = TypeParam;
    std::mt19937 gen(5);
    std::uniform_real_distribution<double> u(-1, 1);
    std::vector<Cdirec3<T>> normals;
    // Axes, ties of magnitudes and random directions reach every branch.
    for (int s = -1; s <= 1; s += 2) {
        normals.push_back(Cdirec3<T>(T(s), 0, 0, true));
        normals.push_back(Cdirec3<T>(0, T(s), 0, true));
        normals.push_back(Cdirec3<T>(0, 0, T(s), true));
        normals.push_back(Cdirec3<T>(T(s), T(1), 0));
        normals.push_back(Cdirec3<T>(T(1), T(s), T(1)));
        normals.push_back(Cdirec3<T>(0, T(s), T(1)));
    }
    for (int i = 0; i < 500; ++i) normals.push_back(Cdirec3<T>(T(u(gen)), T(u(gen)), T(u(gen))));
    for (Cdirec3<T> const& n : normals) {
        const T d = T(3 * u(gen));
        Cplane3<T> e(n, d);
        const Eigen::Vector3d N(n.x, n.y, n.z);
        const Eigen::Vector3d base = ev(e.pointAt(0, 0));
        EXPECT_NEAR((base + double(d) * N).norm(), 0.0, tolT<T>());  // foot point -d*n
        const Eigen::Vector3d e1 = ev(e.pointAt(1, 0)) - base;
        const Eigen::Vector3d e2 = ev(e.pointAt(0, 1)) - base;
        EXPECT_NEAR(e1.norm(), 1.0, 10 * tolT<T>());
        EXPECT_NEAR(e2.norm(), 1.0, 10 * tolT<T>());
        EXPECT_NEAR(e1.dot(e2), 0.0, 10 * tolT<T>());
        EXPECT_NEAR(e1.dot(N), 0.0, 10 * tolT<T>());
        // (e1, e2, n) is right-handed.
        EXPECT_NEAR((e1.cross(e2) - N).norm(), 0.0, 10 * tolT<T>());
        // The first axis has a zero component where the normal is largest
        // (with ties, at one of the largest).
        const double nmax = N.cwiseAbs().maxCoeff();
        const Cpoint3<T> a1 = e.pointAt(1, 0) - e.pointAt(0, 0);
        bool zeroAtMax = false;
        for (unsigned k = 0; k < 3; ++k)
            if (std::abs(N[k]) == nmax && std::abs(double(a1[k])) <= 10 * tolT<T>()) zeroAtMax = true;
        EXPECT_TRUE(zeroAtMax) << N.transpose();
        const Cpoint3<T> q = e.pointAt(T(u(gen) * 5), T(u(gen) * 5));
        EXPECT_NEAR(double(geometric<T>::distance(e, q)), 0.0, 50 * tolT<T>());
    }
}

TYPED_TEST(Primitives3, CircleThroughThreePoints) {
    using T = TypeParam;
    std::mt19937 gen(99);
    std::uniform_real_distribution<double> u(-1, 1);
    const double pi = 3.141592653589793;
    std::vector<Eigen::Vector3d> normals = {{0, 0, 1}, {0, 0, -1}, {1, 0, 0}, {0, 1, 0}, {0, 1e-9, 1}};
    for (int i = 0; i < 300; ++i) normals.push_back(Eigen::Vector3d(u(gen), u(gen), u(gen)).normalized());
    for (Eigen::Vector3d const& N : normals) {
        // Circle of the plane through c with normal N; points at three angles
        // at least 30 degrees apart, so the circle is well determined.
        const Eigen::Vector3d c(3 * u(gen), 3 * u(gen), 3 * u(gen));
        const double r = 0.5 + 2 * (u(gen) + 1);
        const Eigen::Vector3d helper = std::abs(N.x()) < 0.9 ? Eigen::Vector3d(1, 0, 0) : Eigen::Vector3d(0, 1, 0);
        const Eigen::Vector3d a1 = N.cross(helper).normalized(), a2 = N.cross(a1);
        const double t0 = pi * u(gen);
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
        EXPECT_NEAR(double(geometric<T>::distance(e, k.center())), 0.0, 20 * tolT<T>());
    }

    // Collinear points: no check is made; the result is NaN or infinite.
    const Cplane3<T> z0(Cdirec3<T>(0, 0, 1, true), T(0));
    const Ccircle3<T> bad(z0, Cpoint3<T>(0, 0, 0), Cpoint3<T>(1, 1, 0), Cpoint3<T>(2, 2, 0));
    EXPECT_FALSE(bad.isValid() && std::isfinite(bad.radius()) && std::isfinite(bad.center().x));
}

TYPED_TEST(Primitives3, CircleMembers) {
    using T = TypeParam;
    const Cplane3<T> e(Cdirec3<T>(0, 1, 0, true), T(-2));
    Ccircle3<T> k(e, Cpoint3<T>(1, 2, 3), T(-4));
    EXPECT_EQ(k.center(), Cpoint3<T>(1, 2, 3));
    EXPECT_EQ(k.radius(), T(-4));  // kept as given
    EXPECT_EQ(k.plane().normal(), e.normal());
    EXPECT_TRUE(k.isValid());
    k.invalidate();
    EXPECT_FALSE(k.isValid());
    EXPECT_EQ(k.center(), Cpoint3<T>(1, 2, 3));
    EXPECT_EQ(k.plane().d(), T(-2));
    EXPECT_FALSE(Ccircle3<T>().isValid());
    Ccircle3<T> m(Cplane3<T>(), Cpoint3<T>(0, 0, 0), T(1));  // invalid plane
    EXPECT_FALSE(m.isValid());
    Ccircle3<T> c2 = m;
    c2 = Ccircle3<T>(e, Cpoint3<T>(0, 2, 0), T(1));
    EXPECT_TRUE(c2.isValid());
}

TYPED_TEST(Primitives3, ValueTypes) {
    using T = TypeParam;
    const T nan = std::numeric_limits<T>::quiet_NaN();
    Cline3<T> l(Cpoint3<T>(1, 2, 3), Cpoint3<T>(1, 2, 5));
    EXPECT_EQ(l.point(), Cpoint3<T>(1, 2, 3));
    EXPECT_EQ(l.direction(), Cdirec3<T>(0, 0, 1, true));
    EXPECT_EQ(l.pointAt(T(-2)), Cpoint3<T>(1, 2, 1));
    EXPECT_TRUE(l.isValid());
    EXPECT_FALSE(Cline3<T>(Cpoint3<T>(1, 2, 3), Cpoint3<T>(1, 2, 3)).isValid());
    EXPECT_FALSE(Cline3<T>().isValid());
    Cline3<T> l2(Cpoint3<T>(0, 0, 0), Cdirec3<T>(3, 0, 0, true));  // kept as given
    EXPECT_EQ(l2.direction().x, T(3));
    l2.point().y = nan;
    EXPECT_FALSE(l2.isValid());

    Csphere3<T> s(Cpoint3<T>(1, 1, 1), T(2));
    EXPECT_EQ(s.center(), Cpoint3<T>(1, 1, 1));
    EXPECT_EQ(s.radius(), T(2));
    EXPECT_TRUE(s.isValid());
    s.invalidate();
    EXPECT_FALSE(s.isValid());
    EXPECT_FALSE(Csphere3<T>().isValid());

    Ccylinder3<T> z(l, T(0.5));
    EXPECT_EQ(z.axis().point(), l.point());
    EXPECT_EQ(z.radius(), T(0.5));
    EXPECT_TRUE(z.isValid());
    z.axis().direction().z = nan;
    EXPECT_FALSE(z.isValid());
    EXPECT_FALSE(Ccylinder3<T>().isValid());

    Cellipse2<T> el(Cpoint2<T>(1, 2), T(3), T(1), T(0.5));
    EXPECT_EQ(el.center(), Cpoint2<T>(1, 2));
    EXPECT_EQ(el.a(), T(3));
    EXPECT_EQ(el.b(), T(1));
    EXPECT_EQ(el.angle(), T(0.5));
    EXPECT_TRUE(el.isValid());
    // pointAt(t) satisfies the implicit equation in the ellipse frame.
    for (int i = 0; i < 16; ++i) {
        const Cpoint2<T> p = el.pointAt(T(0.4 * i));
        const double dx = p.x - 1.0, dy = p.y - 2.0, c = std::cos(0.5), sn = std::sin(0.5);
        const double uu = c * dx + sn * dy, vv = -sn * dx + c * dy;
        EXPECT_NEAR(uu * uu / 9 + vv * vv, 1.0, 10 * tolT<T>());
    }
    el.invalidate();
    EXPECT_FALSE(el.isValid());
    EXPECT_FALSE(Cellipse2<T>().isValid());
}

TYPED_TEST(Primitives3, BoundingBox) {
    using T = TypeParam;
    CboundingBox3<T> b;
    EXPECT_FALSE(b.isValid());
    b.set(std::vector<Cpoint3<T>>());
    EXPECT_FALSE(b.isValid());
    b.set(std::vector<Cpoint3<T>>{Cpoint3<T>(1, -2, 3)});
    EXPECT_TRUE(b.isValid());
    EXPECT_EQ(b.min(), Cpoint3<T>(1, -2, 3));
    EXPECT_EQ(b.max(), Cpoint3<T>(1, -2, 3));

    std::mt19937 gen(3);
    std::vector<Cpoint3<T>> pts;
    for (int i = 0; i < 200; ++i) pts.push_back(randPoint<T>(gen));
    b.set(pts);
    Cpoint3<T> lo = pts[0], hi = pts[0];
    for (auto const& p : pts)
        for (unsigned k = 0; k < 3; ++k) {
            lo[k] = std::min(lo[k], p[k]);
            hi[k] = std::max(hi[k], p[k]);
        }
    EXPECT_EQ(b.min(), lo);
    EXPECT_EQ(b.max(), hi);
    for (auto const& p : pts) EXPECT_TRUE(b.isInside(p));
    EXPECT_EQ(b.getCenter(), (lo + hi) * T(0.5));
    std::list<Cpoint3<T>> lst(pts.begin(), pts.end());
    CboundingBox3<T> bl;
    bl.set(lst);
    EXPECT_EQ(bl.min(), lo);

    // Absolute margin of the machine epsilon of T.
    CboundingBox3<T> u(Cpoint3<T>(0, 0, 0), Cpoint3<T>(-1, -1, -1));
    EXPECT_EQ(u.min(), Cpoint3<T>(-1, -1, -1));
    const T e = std::numeric_limits<T>::epsilon();
    EXPECT_TRUE(u.isInside(Cpoint3<T>(e, 0, 0)));
    EXPECT_FALSE(u.isInside(Cpoint3<T>(3 * e, 0, 0)));
    EXPECT_FALSE(u.isInside(Cpoint3<T>(std::numeric_limits<T>::quiet_NaN(), 0, 0)));
}

TEST(BaseVecN, ContainerAndTrackedStorage) {
    const auto blocks0 = core::memTracker_liveBlocks();
    {
        CbaseVecN<Cpoint3<double>> v;
        EXPECT_TRUE(v.empty());
        EXPECT_EQ(core::memTracker_liveBlocks(), blocks0);  // no block while empty
        for (int i = 0; i < 1000; ++i) v.push_back(Cpoint3<double>(i, 2 * i, 3 * i));
        EXPECT_EQ(core::memTracker_liveBlocks(), blocks0 + 1);  // one tracked block
        ASSERT_EQ(v.size(), 1000u);
        for (int i = 0; i < 1000; ++i) ASSERT_EQ(v[i], Cpoint3<double>(i, 2 * i, 3 * i));
        // push_back of an element of the container itself across a regrowth.
        CbaseVecN<Cpoint3<double>> w;
        w.push_back(Cpoint3<double>(1, 2, 3));
        for (int i = 0; i < 20; ++i) w.push_back(w[0]);
        for (auto const& p : w) EXPECT_EQ(p, Cpoint3<double>(1, 2, 3));

        CbaseVecN<Cpoint3<double>> c(v);
        EXPECT_TRUE(c == v);
        c[5].x = -1;
        EXPECT_TRUE(c != v);
        CbaseVecN<Cpoint3<double>> m(std::move(c));
        EXPECT_TRUE(c.empty());
        EXPECT_EQ(m[5].x, -1.0);
        m = v;
        EXPECT_TRUE(m == v);
        m.resize(3);
        EXPECT_EQ(m.size(), 3u);
        m.resize(5, Cpoint3<double>(9, 9, 9));
        EXPECT_EQ(m[4], Cpoint3<double>(9, 9, 9));
        EXPECT_EQ(m.back(), Cpoint3<double>(9, 9, 9));
        m.pop_back();
        EXPECT_EQ(m.size(), 4u);
        m.clear();
        EXPECT_TRUE(m.empty());
        CbaseVecN<double> d(4, 2.5);
        EXPECT_EQ(d[3], 2.5);
        CbaseVecN<double> il{1.0, 2.0, 3.0};
        EXPECT_EQ(il.size(), 3u);
        EXPECT_EQ(il[2], 3.0);
        CbaseVecN<std::string> s;  // elements with a destructor are destroyed properly
        for (int i = 0; i < 50; ++i) s.push_back(std::string(40, char('a' + i % 26)));
        EXPECT_EQ(s[27], std::string(40, 'b'));
    }
    EXPECT_EQ(core::memTracker_liveBlocks(), blocks0);
}
