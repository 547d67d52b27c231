#include <math/geometric.h>
#include <math/tools.h>

#include <Eigen/Dense>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <utility>
#include <vector>

using namespace math;

namespace {

template <class T>
Eigen::Vector3d ev(Cpoint3<T> const& p) {
    return Eigen::Vector3d(double(p.x), double(p.y), double(p.z));
}
template <class T>
Cpoint3<T> pt(Eigen::Vector3d const& v) {
    return Cpoint3<T>(T(v.x()), T(v.y()), T(v.z()));
}
template <class T>
Cdirec3<T> dir(Eigen::Vector3d const& v) {
    const Eigen::Vector3d n = v.normalized();
    return Cdirec3<T>(T(n.x()), T(n.y()), T(n.z()), true);
}

// Comparisons against double oracles: the routines run in T, so a few
// hundred ulps of T (scaled by the magnitudes of the data, about 10).
template <class T>
double tolT() {
    return std::is_same<T, float>::value ? 5e-4 : 1e-11;
}

Eigen::Vector3d randVec(std::mt19937& g, double s = 1.0) {
    std::uniform_real_distribution<double> u(-s, s);
    return Eigen::Vector3d(u(g), u(g), u(g));
}

template <class T>
class Geometric3 : public ::testing::Test {};
using Types = ::testing::Types<float, double>;
TYPED_TEST_SUITE(Geometric3, Types);

}  // namespace

// ---------------------------------------------------------------------------
// Distances
// ---------------------------------------------------------------------------

TYPED_TEST(Geometric3, DistancesAgainstEigen) {
    using T = TypeParam;
    std::mt19937 gen(21);
    for (int i = 0; i < 500; ++i) {
        const Eigen::Vector3d P = randVec(gen, 5), D = randVec(gen).normalized(), X = randVec(gen, 5);
        const Cline3<T> l(pt<T>(P), dir<T>(D));
        const Eigen::Vector3d Dd = ev(l.direction());
        // |(X - P) x D| is the distance from the line.
        EXPECT_NEAR(double(geometric<T>::distance(l, pt<T>(X))), (X - P).cross(Dd).norm(), tolT<T>());

        const double r = 0.5 + std::abs(P.x());
        const Ccylinder3<T> z(l, T(r));
        EXPECT_NEAR(double(geometric<T>::distance(z, pt<T>(X))), (X - P).cross(Dd).norm() - r, tolT<T>());

        const Csphere3<T> s(pt<T>(P), T(r));
        EXPECT_NEAR(double(geometric<T>::distance(s, pt<T>(X))), (X - P).norm() - r, tolT<T>());

        const Cplane3<T> e(pt<T>(P), dir<T>(D));
        // Signed: positive on the side the normal points to.
        EXPECT_NEAR(double(geometric<T>::distance(e, pt<T>(X))), (X - P).dot(Dd), tolT<T>());
        EXPECT_GT(geometric<T>::distance(e, pt<T>(P + 2 * Dd)), T(0));
        EXPECT_LT(geometric<T>::distance(e, pt<T>(P - 2 * Dd)), T(0));
    }
    // Documented examples.
    const Csphere3<T> s(Cpoint3<T>(3, 4, 0), T(2));
    EXPECT_EQ(geometric<T>::distance(s, Cpoint3<T>(0, 0, 0)), T(3));
    EXPECT_EQ(geometric<T>::distance(s, Cpoint3<T>(3, 4, 1)), T(-1));
    const Cplane3<T> e(Cdirec3<T>(0, 0, 1, true), T(-5));
    EXPECT_EQ(geometric<T>::distance(e, Cpoint3<T>(7, 8, 2)), T(-3));
}

TYPED_TEST(Geometric3, PointSetDistancesAndTheirEmptySetRules) {
    using T = TypeParam;
    std::mt19937 gen(22);
    std::vector<Cpoint3<T>> pts;
    for (int i = 0; i < 50; ++i) pts.push_back(pt<T>(randVec(gen, 3)));
    const Cline3<T> l(Cpoint3<T>(1, 0, 0), Cdirec3<T>(0, 1, 0, true));
    const Cplane3<T> e(Cpoint3<T>(0, 0, 1), Cdirec3<T>(0, 0, 1, true));
    const Csphere3<T> s(Cpoint3<T>(0, 1, 0), T(1));
    const Ccylinder3<T> z(l, T(2));
    const Cpoint3<T> q(1, 1, 1);

    // Each set form equals the single-point form (stale content replaced);
    // for an empty set line, plane and sphere clear the output, cylinder and
    // point forms leave it untouched.
    using Fn = std::function<void(std::vector<Cpoint3<T>> const&, std::vector<T>&)>;
    const struct {
        const char* name;
        Fn set;
        std::function<T(Cpoint3<T> const&)> one;
        bool clearsOnEmpty;
    } forms[] = {
        {"line", [&](auto const& v, auto& d) { geometric<T>::distance(l, v, d); }, [&](auto const& p) { return geometric<T>::distance(l, p); }, true},
        {"plane", [&](auto const& v, auto& d) { geometric<T>::distance(e, v, d); }, [&](auto const& p) { return geometric<T>::distance(e, p); }, true},
        {"sphere", [&](auto const& v, auto& d) { geometric<T>::distance(s, v, d); }, [&](auto const& p) { return geometric<T>::distance(s, p); }, true},
        {"cylinder", [&](auto const& v, auto& d) { geometric<T>::distance(z, v, d); }, [&](auto const& p) { return geometric<T>::distance(z, p); }, false},
        {"point", [&](auto const& v, auto& d) { geometric<T>::distance(q, v, d); }, [&](auto const& p) { return (p - q).length(); }, false}};
    const std::vector<T> stale = {T(1), T(2)};
    for (auto const& f : forms) {
        SCOPED_TRACE(f.name);
        std::vector<T> d = {T(9)};
        f.set(pts, d);
        ASSERT_EQ(d.size(), pts.size());
        for (std::size_t i = 0; i < pts.size(); ++i) EXPECT_EQ(d[i], f.one(pts[i]));
        d = stale;
        f.set({}, d);
        EXPECT_EQ(d, f.clearsOnEmpty ? std::vector<T>() : stale);
    }
}

// Brute force: dense sampling of the parameter, refined by golden-section
// search around the best sample.
static double ellipseBrute(double a, double b, double phi, double cx, double cy, double px, double py) {
    auto dist2 = [&](double t) {
        const double u = a * std::cos(t), v = b * std::sin(t);
        const double x = cx + std::cos(phi) * u - std::sin(phi) * v;
        const double y = cy + std::sin(phi) * u + std::cos(phi) * v;
        return (x - px) * (x - px) + (y - py) * (y - py);
    };
    const int N = 4000;
    const double h = 2 * 3.141592653589793 / N;
    int best = 0;
    for (int i = 1; i < N; ++i)
        if (dist2(i * h) < dist2(best * h)) best = i;
    double lo = (best - 1) * h, hi = (best + 1) * h;
    const double gr = 0.6180339887498949;
    for (int it = 0; it < 200; ++it) {
        const double m1 = hi - gr * (hi - lo), m2 = lo + gr * (hi - lo);
        if (dist2(m1) < dist2(m2))
            hi = m2;
        else
            lo = m1;
    }
    return std::sqrt(dist2(0.5 * (lo + hi)));
}

TYPED_TEST(Geometric3, EllipseDistance) {
    using T = TypeParam;
    std::mt19937 gen(23);
    std::uniform_real_distribution<double> u(-1, 1);
    // Brute-force tolerance: the golden-section minimum is found to ~1e-9 in
    // the distance; float inputs are rounded first, so compare with the rounded data.
    const double tol = std::is_same<T, float>::value ? 2e-5 : 1e-7;
    for (int i = 0; i < 300; ++i) {
        const T a = T(0.5 + 3 * std::abs(u(gen))), b = T(0.2 + 2 * std::abs(u(gen)));
        const T phi = T(3 * u(gen));
        const Cpoint2<T> c(T(u(gen)), T(u(gen)));
        const Cellipse2<T> el(c, a, b, phi);
        const double scale = i % 3 == 0 ? 0.3 : (i % 3 == 1 ? 1.0 : 4.0);  // inside, near, far
        const Cpoint2<T> p(T(c.x + scale * 3 * u(gen)), T(c.y + scale * 3 * u(gen)));
        const double ref = ellipseBrute(a, b, phi, c.x, c.y, p.x, p.y);
        const double dx = p.x - double(c.x), dy = p.y - double(c.y);
        const double uu = std::cos(double(phi)) * dx + std::sin(double(phi)) * dy;
        const double vv = -std::sin(double(phi)) * dx + std::cos(double(phi)) * dy;
        const bool inside = uu * uu / (double(a) * a) + vv * vv / (double(b) * b) < 1;
        EXPECT_NEAR(double(geometric<T>::distance(el, p)), inside ? -ref : ref, tol) << i;
    }
    // Exact at the centre (the smaller semi-axis, inside) and on the axes.
    const Cellipse2<T> el(Cpoint2<T>(1, 1), T(3), T(2), T(0));
    EXPECT_EQ(geometric<T>::distance(el, Cpoint2<T>(1, 1)), T(-2));
    EXPECT_EQ(geometric<T>::distance(el, Cpoint2<T>(1, 6)), T(3));      // on the minor axis, outside
    EXPECT_EQ(geometric<T>::distance(el, Cpoint2<T>(1, 0)), T(-1));     // on the minor axis, inside
    EXPECT_EQ(geometric<T>::distance(el, Cpoint2<T>(-5, 1)), T(3));     // on the major axis, outside
    EXPECT_EQ(geometric<T>::distance(el, Cpoint2<T>(4, 1)), T(0));      // a vertex
    // On the major axis inside the evolute the nearest point lies off the axis:
    // for (x, 0) with |x| < (a^2 - b^2)/a the distance is b*sqrt(1 - x^2/(a^2 - b^2)).
    EXPECT_NEAR(double(geometric<T>::distance(el, Cpoint2<T>(2, 1))), -2 * std::sqrt(1 - 1.0 / 5), 1e-6);
    // A circle: radius minus distance from the centre.
    const Cellipse2<T> circ(Cpoint2<T>(0, 0), T(2), T(2), T(0.3));
    EXPECT_NEAR(double(geometric<T>::distance(circ, Cpoint2<T>(0, 0))), -2.0, 1e-6);
    EXPECT_NEAR(double(geometric<T>::distance(circ, Cpoint2<T>(3, 4))), 3.0, 1e-6);
    // The axes swap when b > a; a rotation of 90 degrees is the same ellipse.
    const Cellipse2<T> tall(Cpoint2<T>(0, 0), T(2), T(3), T(0));
    const Cellipse2<T> turned(Cpoint2<T>(0, 0), T(3), T(2), T(1.5707963267948966));
    for (int i = 0; i < 20; ++i) {
        const Cpoint2<T> p(T(4 * u(gen)), T(4 * u(gen)));
        EXPECT_NEAR(double(geometric<T>::distance(tall, p)), double(geometric<T>::distance(turned, p)), 1e-5);
    }
    // A flat ellipse is the segment between its vertices.
    const Cellipse2<T> flat(Cpoint2<T>(0, 0), T(2), T(0), T(0));
    EXPECT_EQ(geometric<T>::distance(flat, Cpoint2<T>(1, 3)), T(3));
    EXPECT_EQ(geometric<T>::distance(flat, Cpoint2<T>(5, 4)), T(5));
    // NaN in, NaN out; vector form.
    EXPECT_TRUE(std::isnan(geometric<T>::distance(el, Cpoint2<T>(std::numeric_limits<T>::quiet_NaN(), 0))));
    std::vector<T> d = {T(7)};
    geometric<T>::distance(el, std::vector<Cpoint2<T>>{Cpoint2<T>(1, 1), Cpoint2<T>(1, 6)}, d);
    ASSERT_EQ(d.size(), 2u);
    EXPECT_EQ(d[0], T(-2));
    EXPECT_EQ(d[1], T(3));
}

// ---------------------------------------------------------------------------
// Projections
// ---------------------------------------------------------------------------

TYPED_TEST(Geometric3, Projections) {
    using T = TypeParam;
    std::mt19937 gen(24);
    for (int i = 0; i < 300; ++i) {
        const Eigen::Vector3d P = randVec(gen, 5), N = randVec(gen).normalized(), X = randVec(gen, 5);
        const Cplane3<T> e(pt<T>(P), dir<T>(N));
        Cpoint3<T> x = pt<T>(X);
        geometric<T>::project(e, x);
        const Eigen::Vector3d Nd = ev(e.normal());
        EXPECT_NEAR((ev(x) - (X - (X - P).dot(Nd) * Nd)).norm(), 0.0, tolT<T>());

        const Cline3<T> l(pt<T>(P), dir<T>(N));
        Cpoint3<T> y = pt<T>(X);
        geometric<T>::project(l, y);
        EXPECT_NEAR((ev(y) - (P + (X - P).dot(Nd) * Nd)).norm(), 0.0, tolT<T>());
    }
    // The plane projection's own form, exact for axis normals.
    const Cplane3<T> z5(Cdirec3<T>(0, 0, 1, true), T(-5));
    Cpoint3<T> p(1, 2, 3);
    geometric<T>::project(z5, p);
    EXPECT_EQ(p, Cpoint3<T>(1, 2, 5));

    const Cline3<T> l(Cpoint3<T>(0, 0, 0), Cdirec3<T>(1, 0, 0, true));
    std::vector<Cpoint3<T>> pts = {Cpoint3<T>(1, 2, 3), Cpoint3<T>(-4, 5, 6)};
    EXPECT_TRUE(geometric<T>::project(l, pts));
    EXPECT_EQ(pts[0], Cpoint3<T>(1, 0, 0));
    EXPECT_EQ(pts[1], Cpoint3<T>(-4, 0, 0));
    std::vector<Cpoint3<T>> none;
    EXPECT_FALSE(geometric<T>::project(l, none));
    pts = {Cpoint3<T>(1, 2, 3), Cpoint3<T>(-4, 5, 6)};
    geometric<T>::project(z5, pts);
    EXPECT_EQ(pts[1], Cpoint3<T>(-4, 5, 5));
}

// ---------------------------------------------------------------------------
// Intersections
// ---------------------------------------------------------------------------

TYPED_TEST(Geometric3, PlaneLineAndPlanePlane) {
    using T = TypeParam;
    const Cplane3<T> z0(Cdirec3<T>(0, 0, 1, true), T(0));
    Cpoint3<T> s(7, 7, 7);
    EXPECT_TRUE(geometric<T>::intersect(z0, Cline3<T>(Cpoint3<T>(0, 0, 5), Cdirec3<T>(0, 0, -1, true)), s));
    EXPECT_EQ(s, Cpoint3<T>(0, 0, 0));
    s = Cpoint3<T>(7, 7, 7);
    EXPECT_FALSE(geometric<T>::intersect(z0, Cline3<T>(Cpoint3<T>(0, 0, 5), Cdirec3<T>(1, 0, 0, true)), s));
    EXPECT_TRUE(std::isnan(s.x));

    std::mt19937 gen(25);
    for (int i = 0; i < 300; ++i) {
        const Eigen::Vector3d P1 = randVec(gen, 3), N1 = randVec(gen).normalized();
        const Eigen::Vector3d P2 = randVec(gen, 3), N2 = randVec(gen).normalized();
        const Cplane3<T> e1(pt<T>(P1), dir<T>(N1)), e2(pt<T>(P2), dir<T>(N2));
        const Cline3<T> l(pt<T>(P2), dir<T>(N2));
        const double sinA = ev(e1.normal()).cross(ev(e2.normal())).norm();
        if (sinA < 0.05) continue;
        Cpoint3<T> x;
        ASSERT_TRUE(geometric<T>::intersect(e1, l, x));
        EXPECT_NEAR(double(geometric<T>::distance(e1, x)), 0.0, tolT<T>() / sinA);
        EXPECT_NEAR(double(geometric<T>::distance(l, x)), 0.0, tolT<T>() / sinA);

        Cline3<T> g;
        ASSERT_TRUE(geometric<T>::intersect(e1, e2, g));
        // The line lies in both planes along n1 x n2.
        for (T t : {T(-3), T(0), T(4)}) {
            EXPECT_NEAR(double(geometric<T>::distance(e1, g.pointAt(t))), 0.0, tolT<T>() / sinA);
            EXPECT_NEAR(double(geometric<T>::distance(e2, g.pointAt(t))), 0.0, tolT<T>() / sinA);
        }
        const Eigen::Vector3d dOracle = ev(e1.normal()).cross(ev(e2.normal())).normalized();
        EXPECT_NEAR((ev(g.direction()) - dOracle).norm(), 0.0, tolT<T>() / sinA);
        // The point a*n1 + b*n2 is the point of the line nearest the origin.
        EXPECT_NEAR(ev(g.point()).dot(dOracle), 0.0, 10 * tolT<T>() / sinA);
    }

    // Parallel planes within the single-precision tolerance, also for double:
    // the line is left unchanged.
    const double delta = 1e-4;  // 1 - cos(delta) ~ 5e-9 < 2^-23
    const Cplane3<T> a(Cdirec3<T>(0, 0, 1, true), T(0));
    const Cplane3<T> b(Cdirec3<T>(T(std::sin(delta)), 0, T(std::cos(delta)), true), T(-1));
    Cline3<T> g(Cpoint3<T>(1, 2, 3), Cdirec3<T>(0, 1, 0, true));
    EXPECT_FALSE(geometric<T>::intersect(a, b, g));
    EXPECT_EQ(g.point(), Cpoint3<T>(1, 2, 3));
    EXPECT_FALSE(geometric<T>::intersect(a, Cplane3<T>(Cdirec3<T>(0, 0, -1, true), T(2)), g));
    // Plane and line within 2^-23 of parallel: false, NaN, also for double.
    Cpoint3<T> x;
    EXPECT_FALSE(geometric<T>::intersect(a, Cline3<T>(Cpoint3<T>(0, 0, 1), Cdirec3<T>(T(1), 0, T(1e-7), true)), x));
    EXPECT_TRUE(std::isnan(x.x));
    EXPECT_TRUE(geometric<T>::intersect(a, Cline3<T>(Cpoint3<T>(0, 0, 1), Cdirec3<T>(T(1), 0, T(2e-7), true)), x));
}

TYPED_TEST(Geometric3, LineLine) {
    using T = TypeParam;
    // Skew lines: false, yet the midpoint and the gap are delivered.
    const Cline3<T> ax(Cpoint3<T>(0, 0, 0), Cdirec3<T>(1, 0, 0, true));
    const Cline3<T> ay(Cpoint3<T>(0, 1, 1), Cdirec3<T>(0, 1, 0, true));
    Cpoint3<T> s(9, 9, 9);
    T gap = T(-1);
    EXPECT_FALSE(geometric<T>::intersect(ax, ay, s, gap));
    EXPECT_EQ(s, Cpoint3<T>(0, 0, T(0.5)));
    EXPECT_EQ(gap, T(1));
    s = Cpoint3<T>(9, 9, 9);
    EXPECT_FALSE(geometric<T>::intersect(ax, ay, s));
    EXPECT_EQ(s, Cpoint3<T>(0, 0, T(0.5)));

    // Meeting lines: true, the common point, gap 0.
    gap = T(-1);
    const Cline3<T> c(Cpoint3<T>(T(0.5), -1, T(0)), Cdirec3<T>(0, 1, 0, true));
    EXPECT_TRUE(geometric<T>::intersect(ax, c, s, gap));
    EXPECT_EQ(s, Cpoint3<T>(T(0.5), 0, 0));
    EXPECT_EQ(gap, T(0));

    // Parallel (within 2^-23, also for double): false, s and gap untouched.
    s = Cpoint3<T>(9, 9, 9);
    gap = T(-1);
    const Cline3<T> par(Cpoint3<T>(0, 1, 0), Cdirec3<T>(T(1), T(1e-4), 0));
    EXPECT_FALSE(geometric<T>::intersect(ax, par, s, gap));
    EXPECT_EQ(s, Cpoint3<T>(9, 9, 9));
    EXPECT_EQ(gap, T(-1));
    EXPECT_FALSE(geometric<T>::intersect(ax, Cline3<T>(Cpoint3<T>(0, 1, 0), Cdirec3<T>(-1, 0, 0, true)), s, gap));

    // Random skew lines against the closest points from Eigen's solve of the
    // 2x2 normal equations.
    std::mt19937 gen(26);
    for (int i = 0; i < 300; ++i) {
        const Eigen::Vector3d P = randVec(gen, 1), D = randVec(gen).normalized();
        const Eigen::Vector3d Q = randVec(gen, 1), E = randVec(gen).normalized();
        const Cline3<T> l1(pt<T>(P), dir<T>(D)), l2(pt<T>(Q), dir<T>(E));
        const Eigen::Vector3d Pd = ev(l1.point()), Dd = ev(l1.direction()), Qd = ev(l2.point()),
                              Ed = ev(l2.direction());
        const double sinA = Dd.cross(Ed).norm();
        if (sinA < 0.05) continue;
        Eigen::Matrix2d A;
        A << Dd.dot(Dd), -Dd.dot(Ed), -Dd.dot(Ed), Ed.dot(Ed);
        const Eigen::Vector2d rhs(Dd.dot(Qd - Pd), -Ed.dot(Qd - Pd));
        const Eigen::Vector2d tu = A.ldlt().solve(rhs);
        const Eigen::Vector3d X = Pd + tu[0] * Dd, Y = Qd + tu[1] * Ed;
        Cpoint3<T> m;
        T g = 0;
        const bool met = geometric<T>::intersect(l1, l2, m, g);
        EXPECT_NEAR((ev(m) - 0.5 * (X + Y)).norm(), 0.0, tolT<T>() / (sinA * sinA));
        EXPECT_NEAR(double(g), met ? 0.0 : (X - Y).norm(), tolT<T>() / (sinA * sinA));

        // A second line through a point of the first: they meet up to
        // rounding.  P and Q are compared within one epsilon of T, absolute,
        // so whether rounding lets them count as equal varies; either way the
        // gap is at rounding level and s is the common point.
        const Cline3<T> l3(l1.pointAt(T(0.25)), dir<T>(E));
        g = T(-1);
        const bool meet = geometric<T>::intersect(l1, l3, m, g);
        EXPECT_NEAR(double(g), 0.0, tolT<T>() / sinA);
        if (meet) {
            EXPECT_EQ(g, T(0));
        }
        EXPECT_NEAR((ev(m) - ev(l1.pointAt(T(0.25)))).norm(), 0.0, tolT<T>() / sinA);
    }
}

TYPED_TEST(Geometric3, LinesMeetingFarFromTheOriginCountAsSkew) {
    using T = TypeParam;
    // P and Q are compared with geometric<T>::equal for points (absolute,
    // open interval, epsilon of T): once |coordinate| >= 4 the interval
    // collapses, so even identical P and Q fail and the lines report false
    // with the common point as "midpoint" and gap 0.
    const Cline3<T> a(Cpoint3<T>(0, 8, 0), Cdirec3<T>(1, 0, 0, true));
    const Cline3<T> b(Cpoint3<T>(8, 0, 0), Cdirec3<T>(0, 1, 0, true));
    Cpoint3<T> s;
    T gap = T(-1);
    EXPECT_FALSE(geometric<T>::intersect(a, b, s, gap));
    EXPECT_EQ(s, Cpoint3<T>(8, 8, 0));
    EXPECT_EQ(gap, T(0));
}

TYPED_TEST(Geometric3, SphereLine) {
    using T = TypeParam;
    const Csphere3<T> unit(Cpoint3<T>(0, 0, 0), T(1));
    std::pair<T, T> t(0, 0);
    EXPECT_TRUE(geometric<T>::intersect(unit, Cline3<T>(Cpoint3<T>(0, 0, 0), Cdirec3<T>(0, 0, 1, true)), t));
    EXPECT_EQ(t.first, T(-1));
    EXPECT_EQ(t.second, T(1));
    // The same line given by (0, 0, 5): b = 2.5, b^2 - q < 0, false and NaN.
    EXPECT_FALSE(geometric<T>::intersect(unit, Cline3<T>(Cpoint3<T>(0, 0, 5), Cdirec3<T>(0, 0, 1, true)), t));
    EXPECT_TRUE(std::isnan(t.first));
    EXPECT_TRUE(std::isnan(t.second));
    // Through (0, 0, 0.5): b = (0.5 - 0)*0.5 = 0.25, q = -0.75, so the
    // parameters are -0.25 -+ sqrt(0.8125), not the true crossings -1.5, 0.5.
    EXPECT_TRUE(geometric<T>::intersect(unit, Cline3<T>(Cpoint3<T>(0, 0, T(0.5)), Cdirec3<T>(0, 0, 1, true)), t));
    EXPECT_NEAR(double(t.first), -0.25 - std::sqrt(0.8125), 1e-6);
    EXPECT_NEAR(double(t.second), -0.25 + std::sqrt(0.8125), 1e-6);

    // Lines given by their foot point from the origin (D.P = 0): the
    // parameters are the true crossings, checked against the sphere.
    std::mt19937 gen(27);
    for (int i = 0; i < 300; ++i) {
        const Eigen::Vector3d C = randVec(gen, 2), D = randVec(gen).normalized(), R = randVec(gen, 2);
        const Eigen::Vector3d foot = R - R.dot(D) * D;
        const Csphere3<T> k(pt<T>(C), T(0.5 + std::abs(R.x()) + 2));
        const Cline3<T> l(pt<T>(foot), dir<T>(D));
        // Oracle for the stated b: (D.P - 2 D.C)/2 with q = |P - C|^2 - r^2.
        const Eigen::Vector3d Pd = ev(l.point()), Dd = ev(l.direction()), Cd = ev(k.center());
        const double bb = (Dd.dot(Pd) - 2 * Dd.dot(Cd)) * 0.5, qq = (Pd - Cd).squaredNorm() - double(k.radius()) * k.radius();
        const bool hit = bb * bb - qq >= 0;
        ASSERT_EQ(geometric<T>::intersect(k, l, t), hit);
        if (!hit) continue;
        EXPECT_NEAR(double(t.first), -bb - std::sqrt(bb * bb - qq), tolT<T>());
        EXPECT_NEAR(double(t.second), -bb + std::sqrt(bb * bb - qq), tolT<T>());
        EXPECT_LE(t.first, t.second);
        if (std::abs(Dd.dot(Pd)) < 1e-12) {
            EXPECT_NEAR(double(geometric<T>::distance(k, l.pointAt(t.first))), 0.0, 10 * tolT<T>());
            EXPECT_NEAR(double(geometric<T>::distance(k, l.pointAt(t.second))), 0.0, 10 * tolT<T>());
        }
    }
}

TYPED_TEST(Geometric3, BoxLine) {
    using T = TypeParam;
    const CboundingBox3<T> box(Cpoint3<T>(0, 0, 0), Cpoint3<T>(2, 1, 1));
    std::pair<Cpoint3<T>, Cpoint3<T>> s;
    // Along x through the middle: entry on x = 0, exit on x = 2.
    ASSERT_TRUE(geometric<T>::intersect(box, Cline3<T>(Cpoint3<T>(-5, T(0.5), T(0.5)), Cdirec3<T>(1, 0, 0, true)), s));
    EXPECT_EQ(s.first, Cpoint3<T>(0, T(0.5), T(0.5)));
    EXPECT_EQ(s.second, Cpoint3<T>(2, T(0.5), T(0.5)));
    // Reversed direction: entry and exit follow the direction.
    ASSERT_TRUE(geometric<T>::intersect(box, Cline3<T>(Cpoint3<T>(-5, T(0.5), T(0.5)), Cdirec3<T>(-1, 0, 0, true)), s));
    EXPECT_EQ(s.first, Cpoint3<T>(2, T(0.5), T(0.5)));
    // Parallel to a face outside the slab: miss.  Along an edge: touches.
    EXPECT_FALSE(geometric<T>::intersect(box, Cline3<T>(Cpoint3<T>(0, 2, T(0.5)), Cdirec3<T>(1, 0, 0, true)), s));
    ASSERT_TRUE(geometric<T>::intersect(box, Cline3<T>(Cpoint3<T>(0, 1, 1), Cdirec3<T>(1, 0, 0, true)), s));
    EXPECT_EQ(s.first, Cpoint3<T>(0, 1, 1));
    EXPECT_EQ(s.second, Cpoint3<T>(2, 1, 1));
    // Through a corner only.
    ASSERT_TRUE(geometric<T>::intersect(box, Cline3<T>(Cpoint3<T>(3, 0, 2), Cpoint3<T>(2, 1, 1)), s));
    EXPECT_NEAR((ev(s.first) - Eigen::Vector3d(2, 1, 1)).norm(), 0.0, tolT<T>());
    EXPECT_NEAR((ev(s.second) - Eigen::Vector3d(2, 1, 1)).norm(), 0.0, tolT<T>());
    // Invalid box or line: false.
    EXPECT_FALSE(geometric<T>::intersect(CboundingBox3<T>(), Cline3<T>(Cpoint3<T>(0, 0, 0), Cdirec3<T>(1, 0, 0, true)), s));
    EXPECT_FALSE(geometric<T>::intersect(box, Cline3<T>(), s));

    // Random lines: a hit gives entry and exit on the surface with the points
    // between inside and the points beyond outside; a miss is confirmed by
    // sampling the line densely.
    std::mt19937 gen(28);
    int hits = 0;
    for (int i = 0; i < 1000; ++i) {
        const Eigen::Vector3d lo = randVec(gen, 2), ext = randVec(gen, 1).cwiseAbs() + Eigen::Vector3d::Constant(0.1);
        const CboundingBox3<T> b(pt<T>(lo), pt<T>(lo + ext));
        const Cline3<T> l(pt<T>(lo + 0.5 * ext + randVec(gen, 0.6)), dir<T>(randVec(gen)));
        const Eigen::Vector3d bmin = ev(b.min()), bmax = ev(b.max());
        auto inside = [&](Eigen::Vector3d const& x, double m) {
            return (x.array() >= bmin.array() - m).all() && (x.array() <= bmax.array() + m).all();
        };
        const double m = 10 * tolT<T>();
        if (geometric<T>::intersect(b, l, s)) {
            ++hits;
            const Eigen::Vector3d A = ev(s.first), B = ev(s.second);
            EXPECT_TRUE(inside(A, 0) && inside(B, 0));
            EXPECT_LT(double(geometric<T>::distance(l, s.first)), m);
            EXPECT_LT(double(geometric<T>::distance(l, s.second)), m);
            const Eigen::Vector3d D = ev(l.direction());
            EXPECT_GE((B - A).dot(D), -m);
            const double len = (B - A).norm();
            if (len > 1e-2) {
                EXPECT_TRUE(inside(0.5 * (A + B), 0));
                EXPECT_FALSE(inside(A - 1e-2 * D, 0));
                EXPECT_FALSE(inside(B + 1e-2 * D, 0));
            }
        } else {
            const Eigen::Vector3d P = ev(l.point()), D = ev(l.direction());
            for (int k = -1000; k <= 1000; ++k) {
                const double t = k * 0.003;
                bool in = true;
                for (int c = 0; c < 3; ++c) {
                    const double x = P[c] + t * D[c];
                    in = in && x >= bmin[c] + m && x <= bmax[c] - m;
                }
                ASSERT_FALSE(in) << i;
            }
        }
    }
    EXPECT_GT(hits, 300);
    EXPECT_LT(hits, 900);
}

TYPED_TEST(Geometric3, LeastSquaresIntersectionOfLines) {
    using T = TypeParam;
    std::mt19937 gen(29);
    std::normal_distribution<double> noise(0, 0.01);
    for (int i = 0; i < 200; ++i) {
        const int n = 2 + i % 6;
        const Eigen::Vector3d X = randVec(gen, 3);
        std::vector<Cline3<T>> lines;
        const bool noisy = i % 2 == 1;
        for (int k = 0; k < n; ++k) {
            const Eigen::Vector3d D = randVec(gen).normalized();
            Eigen::Vector3d P = X + 2 * randVec(gen)[0] * D;
            if (noisy) P += Eigen::Vector3d(noise(gen), noise(gen), noise(gen));
            lines.push_back(Cline3<T>(pt<T>(P), dir<T>(D)));
        }
        // Oracle: the stacked system [I - d d^T] x = [I - d d^T] p solved by
        // Eigen's QR in the least-squares sense.
        Eigen::MatrixXd A(3 * n, 3);
        Eigen::VectorXd b(3 * n);
        for (int k = 0; k < n; ++k) {
            const Eigen::Vector3d D = ev(lines[k].direction()).normalized();
            const Eigen::Matrix3d Pk = Eigen::Matrix3d::Identity() - D * D.transpose();
            A.block<3, 3>(3 * k, 0) = Pk;
            b.segment<3>(3 * k) = Pk * ev(lines[k].point());
        }
        const Eigen::Vector3d ref = A.colPivHouseholderQr().solve(b);
        const double rmsRef = std::sqrt((A * ref - b).squaredNorm() / n);
        const Eigen::JacobiSVD<Eigen::MatrixXd> svd(A);
        const double cond = svd.singularValues()(0) / svd.singularValues()(2);
        Cpoint3<T> s;
        T rms = -1;
        ASSERT_TRUE(geometric<T>::intersect(lines, s, rms)) << i;
        EXPECT_NEAR((ev(s) - ref).norm(), 0.0, tolT<T>() * cond * cond) << i;
        EXPECT_NEAR(double(rms), rmsRef, tolT<T>() * cond);
        if (!noisy) {
            EXPECT_NEAR((ev(s) - X).norm(), 0.0, tolT<T>() * cond * cond);
            EXPECT_NEAR(double(rms), 0.0, tolT<T>() * cond);
        }
    }
    // Failures: fewer than two lines, parallel lines (within 2^-23 also for
    // double), a zero direction; outputs untouched.
    Cpoint3<T> s(9, 9, 9);
    T rms = -1;
    std::vector<Cline3<T>> lines;
    EXPECT_FALSE(geometric<T>::intersect(lines, s, rms));
    lines.push_back(Cline3<T>(Cpoint3<T>(0, 0, 0), Cdirec3<T>(1, 0, 0, true)));
    EXPECT_FALSE(geometric<T>::intersect(lines, s, rms));
    lines.push_back(Cline3<T>(Cpoint3<T>(0, 1, 0), Cdirec3<T>(T(1), T(1e-4), 0)));
    EXPECT_FALSE(geometric<T>::intersect(lines, s, rms));
    lines.push_back(Cline3<T>(Cpoint3<T>(0, 0, 1), Cdirec3<T>(-1, 0, 0, true)));
    EXPECT_FALSE(geometric<T>::intersect(lines, s, rms));
    EXPECT_EQ(s, Cpoint3<T>(9, 9, 9));
    EXPECT_EQ(rms, T(-1));
    lines.push_back(Cline3<T>(Cpoint3<T>(0, 0, 1), Cdirec3<T>(0, 0, 0, true)));
    EXPECT_FALSE(geometric<T>::intersect(lines, s, rms));
    // A NaN or infinite line point leaves no finite solution: false, outputs
    // untouched (not true with a NaN point).
    const T bad[] = {std::numeric_limits<T>::quiet_NaN(), std::numeric_limits<T>::infinity()};
    for (T b : bad) {
        lines = {Cline3<T>(Cpoint3<T>(b, 0, 0), Cdirec3<T>(1, 0, 0, true)),
                 Cline3<T>(Cpoint3<T>(0, 1, 1), Cdirec3<T>(0, 1, 0, true))};
        EXPECT_FALSE(geometric<T>::intersect(lines, s, rms));
        EXPECT_EQ(s, Cpoint3<T>(9, 9, 9));
        EXPECT_EQ(rms, T(-1));
    }
    // Two lines at a clear angle meet in their closest points' midpoint.
    lines = {Cline3<T>(Cpoint3<T>(0, 0, 0), Cdirec3<T>(1, 0, 0, true)),
             Cline3<T>(Cpoint3<T>(0, 1, 1), Cdirec3<T>(0, 1, 0, true))};
    ASSERT_TRUE(geometric<T>::intersect(lines, s, rms));
    EXPECT_NEAR(double(s.z), 0.5, tolT<T>());
    EXPECT_NEAR(double(rms), 0.5, tolT<T>());
}

TYPED_TEST(Geometric3, LeastSquaresIntersectionOfSpheres) {
    using T = TypeParam;
    std::mt19937 gen(30);
    for (int i = 0; i < 200; ++i) {
        // Four to seven spheres with centres spanning space, through one point.
        const Eigen::Vector3d X = randVec(gen, 3);
        const int n = 4 + i % 4;
        std::vector<Csphere3<T>> sph;
        for (int k = 0; k < n; ++k) {
            const Eigen::Vector3d C = X + randVec(gen, 3);
            sph.push_back(Csphere3<T>(pt<T>(C), T((C - X).norm())));
        }
        Eigen::MatrixXd Cm(n, 3);
        for (int k = 0; k < n; ++k) Cm.row(k) = ev(sph[k].center()).transpose();
        const Eigen::MatrixXd Cc = Cm.rowwise() - Cm.colwise().mean();
        const Eigen::JacobiSVD<Eigen::MatrixXd> svd(Cc);
        const double cond = svd.singularValues()(0) / svd.singularValues()(2);
        if (cond > 50) continue;
        Cpoint3<T> s;
        ASSERT_TRUE(geometric<T>::intersect(sph, s, true));
        EXPECT_NEAR((ev(s) - X).norm(), 0.0, 10 * tolT<T>() * cond * cond) << i;
        Cpoint3<T> s2;
        ASSERT_TRUE(geometric<T>::intersect(sph, s2, false));  // the flag is not used
        EXPECT_EQ(s, s2);
    }
    for (int i = 0; i < 200; ++i) {
        // Three spheres: two mirror solutions about the centres' plane; true
        // picks the side of (c1 - c0) x (c2 - c0).
        const Eigen::Vector3d C0 = randVec(gen, 3), C1 = randVec(gen, 3), C2 = randVec(gen, 3);
        const Eigen::Vector3d N = (C1 - C0).cross(C2 - C0);
        if (N.norm() < 0.5) continue;
        const Eigen::Vector3d X = (C0 + C1 + C2) / 3 + randVec(gen, 1) + 1.5 * N.normalized();
        std::vector<Csphere3<T>> sph;
        for (Eigen::Vector3d const& C : {C0, C1, C2}) sph.push_back(Csphere3<T>(pt<T>(C), T((C - X).norm())));
        const Eigen::Vector3d Nn = N.normalized();
        const Eigen::Vector3d mirror = X - 2 * (X - C0).dot(Nn) * Nn;
        Cpoint3<T> up, down;
        ASSERT_TRUE(geometric<T>::intersect(sph, up, true));
        ASSERT_TRUE(geometric<T>::intersect(sph, down, false));
        // The height above the plane is a square root of a difference: its
        // error grows like eps/height.
        EXPECT_NEAR((ev(up) - X).norm(), 0.0, 1e3 * tolT<T>()) << i;
        EXPECT_NEAR((ev(down) - mirror).norm(), 0.0, 1e3 * tolT<T>()) << i;
        // Reversing the order of the spheres flips the orientation.
        std::reverse(sph.begin(), sph.end());
        ASSERT_TRUE(geometric<T>::intersect(sph, up, true));
        EXPECT_NEAR((ev(up) - mirror).norm(), 0.0, 1e3 * tolT<T>());
    }
    // Collinear or coincident centres, fewer than two spheres: false, s untouched.
    Cpoint3<T> s(9, 9, 9);
    std::vector<Csphere3<T>> sph = {Csphere3<T>(Cpoint3<T>(0, 0, 0), 1), Csphere3<T>(Cpoint3<T>(1, 0, 0), 1)};
    EXPECT_FALSE(geometric<T>::intersect(sph, s, true));
    sph.push_back(Csphere3<T>(Cpoint3<T>(3, 0, 0), 2));
    EXPECT_FALSE(geometric<T>::intersect(sph, s, true));
    sph = {Csphere3<T>(Cpoint3<T>(1, 1, 1), 1), Csphere3<T>(Cpoint3<T>(1, 1, 1), 2)};
    EXPECT_FALSE(geometric<T>::intersect(sph, s, true));
    sph.resize(1);
    EXPECT_FALSE(geometric<T>::intersect(sph, s, true));
    EXPECT_EQ(s, Cpoint3<T>(9, 9, 9));
    // Three unit spheres at the corners of a triangle in z = 0 that do not
    // reach each other's common point: the height is 0, the point lies in the plane.
    sph = {Csphere3<T>(Cpoint3<T>(0, 0, 0), 1), Csphere3<T>(Cpoint3<T>(4, 0, 0), 1),
           Csphere3<T>(Cpoint3<T>(0, 4, 0), 1)};
    ASSERT_TRUE(geometric<T>::intersect(sph, s, true));
    EXPECT_NEAR(double(s.z), 0.0, tolT<T>());
    EXPECT_NEAR(double(s.x), 2.0, tolT<T>());
    EXPECT_NEAR(double(s.y), 2.0, tolT<T>());
}

TYPED_TEST(Geometric3, OutlierAndCutPointCloud) {
    using T = TypeParam;
    std::vector<Cpoint3<T>> pts = {Cpoint3<T>(0, 0, 0), Cpoint3<T>(1, 0, 0), Cpoint3<T>(2, 0, 0),
                                   Cpoint3<T>(3, 0, 0), Cpoint3<T>(4, 0, 0)};
    const std::vector<T> res = {T(0.1), T(-0.5), T(0.5), std::numeric_limits<T>::quiet_NaN(), T(-0.2)};
    std::vector<Cpoint3<T>> p = pts;
    EXPECT_FALSE(geometric<T>::outlier(p, std::vector<T>(3, T(0)), T(1)));
    EXPECT_EQ(p, pts);
    EXPECT_TRUE(geometric<T>::outlier(p, res, T(0.5)));  // border kept, NaN removed
    ASSERT_EQ(p.size(), 4u);
    EXPECT_EQ(p[0].x, T(0));
    EXPECT_EQ(p[1].x, T(1));
    EXPECT_EQ(p[2].x, T(2));
    EXPECT_EQ(p[3].x, T(4));
    p = pts;
    EXPECT_TRUE(geometric<T>::outlier(p, res, T(0.3)));
    ASSERT_EQ(p.size(), 2u);
    EXPECT_EQ(p[1].x, T(4));

    // cutPointCloud against brute force.
    std::mt19937 gen(31);
    CbaseVecN<Cpoint3<T>> cloud;
    for (int i = 0; i < 2000; ++i) cloud.push_back(pt<T>(randVec(gen, 5)));
    const Cplane3<T> e(Cpoint3<T>(1, 0, 0), Cdirec3<T>(1, 1, 1));
    CbaseVecN<Cpoint3<T>> out;
    out.push_back(Cpoint3<T>(7, 7, 7));
    ASSERT_TRUE(tools<T>::cutPointCloud(e, T(0.5), cloud, out));
    std::vector<Cpoint3<T>> ref;
    for (auto const& q : cloud) {
        const Eigen::Vector3d N = ev(e.normal());
        if (std::abs(N.dot(ev(q)) + double(e.d())) <= 0.5 - 1e-5) ref.push_back(q);
    }
    std::size_t j = 0;
    for (auto const& q : out) {
        EXPECT_LE(std::abs(geometric<T>::distance(e, q)), T(0.5));
        if (j < ref.size() && ref[j] == q) ++j;
    }
    EXPECT_EQ(j, ref.size());  // every clearly-near point, in order
    EXPECT_GT(out.size(), 100u);
    EXPECT_LT(out.size(), 1000u);
    // In place gives the same selection.
    CbaseVecN<Cpoint3<T>> same = cloud;
    ASSERT_TRUE(tools<T>::cutPointCloud(e, T(0.5), same, same));
    EXPECT_TRUE(same == out);
    // Invalid plane or negative distance: false, output cleared.
    EXPECT_FALSE(tools<T>::cutPointCloud(Cplane3<T>(), T(1), cloud, out));
    EXPECT_TRUE(out.empty());
    out.push_back(Cpoint3<T>());
    EXPECT_FALSE(tools<T>::cutPointCloud(e, T(-1), cloud, out));
    EXPECT_TRUE(out.empty());
    // The border is included.
    CbaseVecN<Cpoint3<T>> two{Cpoint3<T>(0, 0, 1), Cpoint3<T>(0, 0, 2)};
    ASSERT_TRUE(tools<T>::cutPointCloud(Cplane3<T>(Cdirec3<T>(0, 0, 1, true), T(0)), T(1), two, out));
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].z, T(1));
}

// ---------------------------------------------------------------------------
// Planar lines and circles
// ---------------------------------------------------------------------------

TYPED_TEST(Geometric3, PlanarLineDistancesAndProjections) {
    using T = TypeParam;
    const Cline2<T> ox(Cpoint2<T>(0, 0), Cdirec2<T>(1, 0, true));
    EXPECT_EQ(geometric<T>::distance(ox, Cpoint2<T>(0, 1)), T(1));
    EXPECT_EQ(geometric<T>::distance(ox, Cpoint2<T>(0, -1)), T(-1));
    std::vector<T> d = {T(5)};
    geometric<T>::distance(ox, std::vector<Cpoint2<T>>{Cpoint2<T>(3, 2), Cpoint2<T>(-1, -4)}, d);
    ASSERT_EQ(d.size(), 2u);
    EXPECT_EQ(d[0], T(2));
    EXPECT_EQ(d[1], T(-4));
    geometric<T>::distance(ox, std::vector<Cpoint2<T>>(), d);
    EXPECT_TRUE(d.empty());

    // Line-line: parallel (also antiparallel, and within 2^-23 for double)
    // gives the unsigned distance of b's point from a, otherwise 0.
    EXPECT_EQ(geometric<T>::distance(ox, Cline2<T>(Cpoint2<T>(5, -3), Cdirec2<T>(-1, 0, true))), T(3));
    EXPECT_EQ(geometric<T>::distance(ox, Cline2<T>(Cpoint2<T>(5, 3), Cdirec2<T>(1, 0, true))), T(3));
    const T tiny = T(1e-8);
    const Cline2<T> nearPar(Cpoint2<T>(0, 2), Cdirec2<T>(T(std::sqrt(1 - 1e-16)), tiny, true));
    EXPECT_EQ(geometric<T>::distance(ox, nearPar), T(2));
    EXPECT_EQ(geometric<T>::distance(ox, Cline2<T>(Cpoint2<T>(0, 2), Cdirec2<T>(T(1), T(1e-3)))), T(0));

    std::mt19937 gen(32);
    std::uniform_real_distribution<double> u(-5, 5);
    std::vector<Cpoint2<T>> ps;
    for (int i = 0; i < 300; ++i) {
        const Cline2<T> l(Cpoint2<T>(T(u(gen)), T(u(gen))), Cdirec2<T>(T(u(gen)), T(u(gen))));
        const Cpoint2<T> p(T(u(gen)), T(u(gen)));
        // Oracle in double: foot of the perpendicular and the signed cross product.
        const Eigen::Vector2d P(l.point().x, l.point().y), D(l.direction().x, l.direction().y), X(p.x, p.y);
        const Eigen::Vector2d F = P + (X - P).dot(D) * D;
        const double sd = D.x() * (X - P).y() - D.y() * (X - P).x();
        EXPECT_NEAR(double(geometric<T>::distance(l, p)), sd, tolT<T>());
        Cpoint2<T> q = p;
        geometric<T>::project(l, q);
        EXPECT_NEAR(double(q.x), F.x(), tolT<T>());
        EXPECT_NEAR(double(q.y), F.y(), tolT<T>());
        ps.assign(3, p);
        ASSERT_TRUE(geometric<T>::project(l, ps));
        EXPECT_NEAR(double(ps[2].x), F.x(), tolT<T>());
        EXPECT_NEAR(double(ps[2].y), F.y(), tolT<T>());
    }
    std::vector<Cpoint2<T>> none;
    EXPECT_FALSE(geometric<T>::project(ox, none));
    // A direction far from unit length makes the perpendicular look parallel
    // (|det| = |d|^2 <= 2^-23): false at the first point, nothing changed.
    const Cline2<T> shortDir(Cpoint2<T>(0, 0), Cdirec2<T>(T(1e-4), 0, true));
    ps = {Cpoint2<T>(1, 1), Cpoint2<T>(2, 2)};
    EXPECT_FALSE(geometric<T>::project(shortDir, ps));
    EXPECT_EQ(ps[0], Cpoint2<T>(1, 1));
    EXPECT_EQ(ps[1], Cpoint2<T>(2, 2));
}

TYPED_TEST(Geometric3, LeastSquaresIntersectionOfCircles) {
    using T = TypeParam;
    std::mt19937 gen(33);
    std::uniform_real_distribution<double> u(-3, 3);
    for (int i = 0; i < 200; ++i) {
        // Three to six circles through X with centres spanning the plane.
        const Eigen::Vector2d X(u(gen), u(gen));
        const int n = 3 + i % 4;
        std::vector<Ccircle2<T>> cs;
        Eigen::MatrixXd C(n, 2);
        for (int k = 0; k < n; ++k) {
            const Eigen::Vector2d c = X + Eigen::Vector2d(u(gen), u(gen));
            cs.push_back(Ccircle2<T>(Cpoint2<T>(T(c.x()), T(c.y())), T((c - X).norm())));
            C.row(k) = Eigen::Vector2d(cs.back().center().x, cs.back().center().y).transpose();
        }
        const Eigen::MatrixXd Cc = C.rowwise() - C.colwise().mean();
        const Eigen::JacobiSVD<Eigen::MatrixXd> svd(Cc);
        const double cond = svd.singularValues()(0) / svd.singularValues()(1);
        if (cond > 30) continue;
        Cpoint2<T> s;
        ASSERT_TRUE(geometric<T>::intersect(cs, s, true));
        EXPECT_NEAR((Eigen::Vector2d(s.x, s.y) - X).norm(), 0.0, 10 * tolT<T>() * cond * cond) << i;
    }
    for (int i = 0; i < 200; ++i) {
        // Two circles: true gives the crossing left of c0 -> c1.
        const Eigen::Vector2d c0(u(gen), u(gen)), c1(u(gen), u(gen));
        if ((c1 - c0).norm() < 0.5) continue;
        const Eigen::Vector2d dd = (c1 - c0).normalized(), nl(-dd.y(), dd.x());
        const Eigen::Vector2d X = c0 + (0.2 + 0.6 * std::abs(u(gen)) / 3) * (c1 - c0) + (0.5 + std::abs(u(gen))) * nl;
        const Eigen::Vector2d M = X - 2 * (X - c0).dot(nl) * nl;  // the mirror crossing
        std::vector<Ccircle2<T>> cs = {Ccircle2<T>(Cpoint2<T>(T(c0.x()), T(c0.y())), T((X - c0).norm())),
                                       Ccircle2<T>(Cpoint2<T>(T(c1.x()), T(c1.y())), T((X - c1).norm()))};
        Cpoint2<T> l, r;
        ASSERT_TRUE(geometric<T>::intersect(cs, l, true));
        ASSERT_TRUE(geometric<T>::intersect(cs, r, false));
        EXPECT_NEAR((Eigen::Vector2d(l.x, l.y) - X).norm(), 0.0, 1e3 * tolT<T>()) << i;
        EXPECT_NEAR((Eigen::Vector2d(r.x, r.y) - M).norm(), 0.0, 1e3 * tolT<T>()) << i;
        // A third circle of the pencil, centre on the line beyond c1.
        const Eigen::Vector2d c2 = c1 + 0.7 * (c1 - c0);
        cs.push_back(Ccircle2<T>(Cpoint2<T>(T(c2.x()), T(c2.y())), T((X - c2).norm())));
        ASSERT_TRUE(geometric<T>::intersect(cs, l, true));
        EXPECT_NEAR((Eigen::Vector2d(l.x, l.y) - X).norm(), 0.0, 1e3 * tolT<T>()) << i;
    }
    // Circles (0,0) r 1 and (4,0) r 1 do not meet: the point between them on the centre line.
    std::vector<Ccircle2<T>> cs = {Ccircle2<T>(Cpoint2<T>(0, 0), T(1)), Ccircle2<T>(Cpoint2<T>(4, 0), T(1))};
    Cpoint2<T> s(9, 9);
    ASSERT_TRUE(geometric<T>::intersect(cs, s, true));
    EXPECT_NEAR(double(s.x), 2.0, tolT<T>());
    EXPECT_EQ(s.y, T(0));
    // Exact example: (0,0) and (2,0) with radius sqrt 2 meet in (1, +-1).
    cs = {Ccircle2<T>(Cpoint2<T>(0, 0), T(std::sqrt(2.0))), Ccircle2<T>(Cpoint2<T>(2, 0), T(std::sqrt(2.0)))};
    ASSERT_TRUE(geometric<T>::intersect(cs, s, true));
    EXPECT_NEAR(double(s.x), 1.0, tolT<T>());
    EXPECT_NEAR(double(s.y), 1.0, 1e3 * tolT<T>());
    ASSERT_TRUE(geometric<T>::intersect(cs, s, false));
    EXPECT_NEAR(double(s.y), -1.0, 1e3 * tolT<T>());
    // Concentric circles, a single circle, NaN: false, s untouched.
    s = Cpoint2<T>(9, 9);
    cs = {Ccircle2<T>(Cpoint2<T>(1, 1), T(1)), Ccircle2<T>(Cpoint2<T>(1, 1), T(2))};
    EXPECT_FALSE(geometric<T>::intersect(cs, s, true));
    cs.resize(1);
    EXPECT_FALSE(geometric<T>::intersect(cs, s, true));
    cs = {Ccircle2<T>(Cpoint2<T>(1, 1), T(1)), Ccircle2<T>()};
    EXPECT_FALSE(geometric<T>::intersect(cs, s, true));
    EXPECT_EQ(s, Cpoint2<T>(9, 9));
}

// NaN geometry yields NaN results (not exceptions).  The sweep over
// special values in every position is Robust.Geometric.
TYPED_TEST(Geometric3, BadInputNeitherCrashesNorHangs) {
    using T = TypeParam;
    const T nan = std::numeric_limits<T>::quiet_NaN();
    EXPECT_TRUE(std::isnan(geometric<T>::distance(Cplane3<T>(), Cpoint3<T>(1, 2, 3))));
    EXPECT_TRUE(std::isnan(geometric<T>::distance(Csphere3<T>(), Cpoint3<T>(1, 2, 3))));
    const Cplane3<T> nanNormal(Cdirec3<T>(nan, 0, 0, true), T(0));
    EXPECT_FALSE(Ccircle3<T>(nanNormal, Cpoint3<T>(1, 0, 0), Cpoint3<T>(0, 1, 0), Cpoint3<T>(-1, 0, 0)).isValid());
}

TYPED_TEST(Geometric3, ThreePlanes) {
    using T = TypeParam;
    std::mt19937 gen(34);
    for (int i = 0; i < 300; ++i) {
        const Eigen::Vector3d X = randVec(gen, 3);
        Cplane3<T> e[3];
        Eigen::Matrix3d N;
        for (int k = 0; k < 3; ++k) {
            e[k] = Cplane3<T>(pt<T>(X), dir<T>(randVec(gen)));
            N.row(k) = ev(e[k].normal()).transpose();
        }
        const double det = N.determinant();
        Cpoint3<T> s(9, 9, 9);
        if (std::abs(det) <= 1.2e-7) {
            EXPECT_FALSE(geometric<T>::intersect(e[0], e[1], e[2], s));
            continue;
        }
        ASSERT_TRUE(geometric<T>::intersect(e[0], e[1], e[2], s));
        // Oracle: Eigen's LU of the same system.
        const Eigen::Vector3d rhs(-double(e[0].d()), -double(e[1].d()), -double(e[2].d()));
        const Eigen::Vector3d ref = N.partialPivLu().solve(rhs);
        const double cond = 1.0 / std::abs(det);
        EXPECT_NEAR((ev(s) - ref).norm(), 0.0, tolT<T>() * cond) << i;
        EXPECT_NEAR((ev(s) - X).norm(), 0.0, tolT<T>() * cond) << i;
    }
    // The three coordinate planes through (1, 2, 3).
    const Cplane3<T> px(Cpoint3<T>(1, 2, 3), Cdirec3<T>(1, 0, 0, true));
    const Cplane3<T> py(Cpoint3<T>(1, 2, 3), Cdirec3<T>(0, 1, 0, true));
    const Cplane3<T> pz(Cpoint3<T>(1, 2, 3), Cdirec3<T>(0, 0, 1, true));
    Cpoint3<T> s;
    ASSERT_TRUE(geometric<T>::intersect(px, py, pz, s));
    EXPECT_EQ(s, Cpoint3<T>(1, 2, 3));
    // Two parallel planes, or a determinant within +-2^-23 (also for double):
    // false, s unchanged.
    s = Cpoint3<T>(9, 9, 9);
    EXPECT_FALSE(geometric<T>::intersect(px, py, Cplane3<T>(Cdirec3<T>(0, -1, 0, true), T(5)), s));
    const T t = T(1e-7);  // det = t
    const Cplane3<T> tilted(Cdirec3<T>(0, T(std::sqrt(1 - 1e-14)), t, true), T(0));
    EXPECT_FALSE(geometric<T>::intersect(px, py, tilted, s));
    EXPECT_EQ(s, Cpoint3<T>(9, 9, 9));
    const Cplane3<T> tilted2(Cdirec3<T>(0, T(std::sqrt(1 - 1e-12)), T(1e-6), true), T(0));
    EXPECT_TRUE(geometric<T>::intersect(px, py, tilted2, s));
    EXPECT_FALSE(geometric<T>::intersect(px, py, Cplane3<T>(), s) && std::isfinite(s.z));
}

// An invalid line (NaN in point or direction), plane or sphere intersects
// nothing: false, and no NaN point reported as an intersection.
TYPED_TEST(Geometric3, InvalidPrimitivesIntersectNothing) {
    using T = TypeParam;
    const T nan = std::numeric_limits<T>::quiet_NaN();
    const Cline2<T> good2(Cpoint2<T>(0, 0), Cdirec2<T>(1, 0, true));
    for (const Cline2<T>& bad : {Cline2<T>(Cpoint2<T>(0, 1), Cdirec2<T>(nan, 1, true)),
                                 Cline2<T>(Cpoint2<T>(nan, 1), Cdirec2<T>(0, 1, true)), Cline2<T>()}) {
        Cpoint2<T> s(7, 8);
        EXPECT_FALSE(geometric<T>::intersect(good2, bad, s));
        EXPECT_FALSE(geometric<T>::intersect(bad, good2, s));
        EXPECT_EQ(s, Cpoint2<T>(7, 8));
    }
    Cpoint2<T> s2;
    EXPECT_TRUE(geometric<T>::intersect(good2, Cline2<T>(Cpoint2<T>(2, 1), Cdirec2<T>(0, 1, true)), s2));
    EXPECT_EQ(s2, Cpoint2<T>(2, 0));

    const Cplane3<T> plane(Cdirec3<T>(0, 0, 1, true), T(-1));
    const Csphere3<T> sphere(Cpoint3<T>(0, 0, 0), T(2));
    for (const Cline3<T>& bad : {Cline3<T>(Cpoint3<T>(0, 0, 0), Cdirec3<T>(nan, 0, 1, true)),
                                 Cline3<T>(Cpoint3<T>(0, nan, 0), Cdirec3<T>(0, 0, 1, true))}) {
        Cpoint3<T> s;
        EXPECT_FALSE(geometric<T>::intersect(plane, bad, s));
        std::pair<T, T> t;
        EXPECT_FALSE(geometric<T>::intersect(sphere, bad, t));
        EXPECT_TRUE(std::isnan(t.first) && std::isnan(t.second));
    }
    const Cline3<T> axis(Cpoint3<T>(0, 0, 0), Cdirec3<T>(0, 0, 1, true));
    Cpoint3<T> s3;
    EXPECT_FALSE(geometric<T>::intersect(Cplane3<T>(), axis, s3));
    std::pair<T, T> t;
    EXPECT_FALSE(geometric<T>::intersect(Csphere3<T>(), axis, t));
    EXPECT_TRUE(geometric<T>::intersect(sphere, axis, t));
    EXPECT_EQ(t.first, T(-2));
}
