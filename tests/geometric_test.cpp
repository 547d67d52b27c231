#include <math/geometric.h>
#include <math/tools.h>

#include <Eigen/Dense>
#include <gtest/gtest.h>

#include <cmath>
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
template <class T>
Eigen::Vector2d ev2(Cpoint2<T> const& p) {
    return Eigen::Vector2d(double(p.x), double(p.y));
}
template <class T>
Cpoint2<T> pt2(Eigen::Vector2d const& v) {
    return Cpoint2<T>(T(v.x()), T(v.y()));
}

// A few hundred ulps of T at data magnitudes of about 10: the routines run in T.
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

TYPED_TEST(Geometric3, DistancesAndProjectionsAgainstEigen) {
    using T = TypeParam;
    std::mt19937 gen(21);
    for (int i = 0; i < 500; ++i) {
        const Eigen::Vector3d P = randVec(gen, 5), D = randVec(gen).normalized(), X = randVec(gen, 5);
        const Cline3<T> l(pt<T>(P), dir<T>(D));
        const Eigen::Vector3d Dd = ev(l.direction());
        const double r = 0.5 + std::abs(P.x()), lineDist = (X - P).cross(Dd).norm();
        EXPECT_NEAR(double(geometric<T>::distance(l, pt<T>(X))), lineDist, tolT<T>());
        EXPECT_NEAR(double(geometric<T>::distance(Ccylinder3<T>(l, T(r)), pt<T>(X))), lineDist - r, tolT<T>());
        EXPECT_NEAR(double(geometric<T>::distance(Csphere3<T>(pt<T>(P), T(r)), pt<T>(X))), (X - P).norm() - r, tolT<T>());
        // Signed: positive on the side the normal points to.
        const Cplane3<T> e(pt<T>(P), dir<T>(D));
        EXPECT_NEAR(double(geometric<T>::distance(e, pt<T>(X))), (X - P).dot(Dd), tolT<T>());
        Cpoint3<T> x = pt<T>(X), y = pt<T>(X);
        geometric<T>::project(e, x);
        geometric<T>::project(l, y);
        EXPECT_NEAR((ev(x) - (X - (X - P).dot(Dd) * Dd)).norm(), 0.0, tolT<T>());
        EXPECT_NEAR((ev(y) - (P + (X - P).dot(Dd) * Dd)).norm(), 0.0, tolT<T>());
    }
    const Csphere3<T> s(Cpoint3<T>(3, 4, 0), T(2));
    EXPECT_EQ(geometric<T>::distance(s, Cpoint3<T>(0, 0, 0)), T(3));
    EXPECT_EQ(geometric<T>::distance(s, Cpoint3<T>(3, 4, 1)), T(-1));
    EXPECT_EQ(geometric<T>::distance(Cplane3<T>(Cdirec3<T>(0, 0, 1, true), T(-5)), Cpoint3<T>(7, 8, 2)), T(-3));
    EXPECT_TRUE(std::isnan(geometric<T>::distance(Cplane3<T>(), Cpoint3<T>(1, 2, 3))));
    EXPECT_TRUE(std::isnan(geometric<T>::distance(Csphere3<T>(), Cpoint3<T>(1, 2, 3))));
}

// Each set form equals the single-point form and replaces stale content; for
// an empty set line, plane and sphere clear the output, cylinder and point
// forms leave it untouched (kept).
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
    const std::vector<T> stale = {T(1), T(2)};
    const auto check = [&](const char* name, auto const& prim, auto const& one, bool clearsOnEmpty) {
        SCOPED_TRACE(name);
        std::vector<T> d = {T(9)};
        geometric<T>::distance(prim, pts, d);
        ASSERT_EQ(d.size(), pts.size());
        for (std::size_t i = 0; i < pts.size(); ++i) EXPECT_EQ(d[i], one(pts[i]));
        d = stale;
        geometric<T>::distance(prim, std::vector<Cpoint3<T>>(), d);
        EXPECT_EQ(d, clearsOnEmpty ? std::vector<T>() : stale);
    };
    check("line", l, [&](Cpoint3<T> const& p) { return geometric<T>::distance(l, p); }, true);
    check("plane", e, [&](Cpoint3<T> const& p) { return geometric<T>::distance(e, p); }, true);
    check("sphere", s, [&](Cpoint3<T> const& p) { return geometric<T>::distance(s, p); }, true);
    check("cylinder", z, [&](Cpoint3<T> const& p) { return geometric<T>::distance(z, p); }, false);
    check("point", q, [&](Cpoint3<T> const& p) { return (p - q).length(); }, false);
}

// Brute force: dense sampling of the parameter, refined by golden-section search.
static double ellipseBrute(double a, double b, double phi, double cx, double cy, double px, double py) {
    auto dist2 = [&](double t) {
        const double u = a * std::cos(t), v = b * std::sin(t);
        const double x = cx + std::cos(phi) * u - std::sin(phi) * v, y = cy + std::sin(phi) * u + std::cos(phi) * v;
        return (x - px) * (x - px) + (y - py) * (y - py);
    };
    const int N = 4000;
    const double h = 2 * 3.141592653589793 / N, gr = 0.6180339887498949;
    int best = 0;
    for (int i = 1; i < N; ++i)
        if (dist2(i * h) < dist2(best * h)) best = i;
    double lo = (best - 1) * h, hi = (best + 1) * h;
    for (int it = 0; it < 200; ++it) {
        const double m1 = hi - gr * (hi - lo), m2 = lo + gr * (hi - lo);
        if (dist2(m1) < dist2(m2)) hi = m2; else lo = m1;
    }
    return std::sqrt(dist2(0.5 * (lo + hi)));
}

TYPED_TEST(Geometric3, EllipseDistance) {
    using T = TypeParam;
    std::mt19937 gen(23);
    std::uniform_real_distribution<double> u(-1, 1);
    const double tol = std::is_same<T, float>::value ? 2e-5 : 1e-7;  // of the brute force
    for (int i = 0; i < 300; ++i) {
        const T a = T(0.5 + 3 * std::abs(u(gen))), b = T(0.2 + 2 * std::abs(u(gen))), phi = T(3 * u(gen));
        const Cpoint2<T> c(T(u(gen)), T(u(gen)));
        const double scale = i % 3 == 0 ? 0.3 : (i % 3 == 1 ? 1.0 : 4.0);  // inside, near, far
        const Cpoint2<T> p(T(c.x + scale * 3 * u(gen)), T(c.y + scale * 3 * u(gen)));
        const double ref = ellipseBrute(a, b, phi, c.x, c.y, p.x, p.y);
        const double dx = p.x - double(c.x), dy = p.y - double(c.y);
        const double uu = std::cos(double(phi)) * dx + std::sin(double(phi)) * dy;
        const double vv = -std::sin(double(phi)) * dx + std::cos(double(phi)) * dy;
        const bool inside = uu * uu / (double(a) * a) + vv * vv / (double(b) * b) < 1;
        EXPECT_NEAR(double(geometric<T>::distance(Cellipse2<T>(c, a, b, phi), p)), inside ? -ref : ref, tol) << i;
    }
    // Exact at the centre, on the axes and at a vertex; negative inside.
    const Cellipse2<T> el(Cpoint2<T>(1, 1), T(3), T(2), T(0));
    const std::pair<Cpoint2<T>, T> exact[] = {{{1, 1}, T(-2)}, {{1, 6}, T(3)}, {{1, 0}, T(-1)}, {{-5, 1}, T(3)}, {{4, 1}, T(0)}};
    for (auto const& e : exact) EXPECT_EQ(geometric<T>::distance(el, e.first), e.second) << e.first.x << "," << e.first.y;
    // On the major axis inside the evolute the nearest point lies off the axis:
    // for (x, 0) with |x| < (a^2 - b^2)/a the distance is b*sqrt(1 - x^2/(a^2 - b^2)).
    EXPECT_NEAR(double(geometric<T>::distance(el, Cpoint2<T>(2, 1))), -2 * std::sqrt(1 - 1.0 / 5), 1e-6);
    // A flat ellipse is the segment between its vertices; NaN in, NaN out; vector form.
    const Cellipse2<T> flat(Cpoint2<T>(0, 0), T(2), T(0), T(0));
    EXPECT_EQ(geometric<T>::distance(flat, Cpoint2<T>(1, 3)), T(3));
    EXPECT_EQ(geometric<T>::distance(flat, Cpoint2<T>(5, 4)), T(5));
    EXPECT_TRUE(std::isnan(geometric<T>::distance(el, Cpoint2<T>(std::numeric_limits<T>::quiet_NaN(), 0))));
    std::vector<T> d = {T(7)};
    geometric<T>::distance(el, std::vector<Cpoint2<T>>{Cpoint2<T>(1, 1), Cpoint2<T>(1, 6)}, d);
    EXPECT_EQ(d, (std::vector<T>{T(-2), T(3)}));
}

TYPED_TEST(Geometric3, ProjectionExamples) {
    using T = TypeParam;
    const Cplane3<T> z5(Cdirec3<T>(0, 0, 1, true), T(-5));
    Cpoint3<T> p(1, 2, 3);
    geometric<T>::project(z5, p);
    EXPECT_EQ(p, Cpoint3<T>(1, 2, 5));
    const Cline3<T> l(Cpoint3<T>(0, 0, 0), Cdirec3<T>(1, 0, 0, true));
    std::vector<Cpoint3<T>> pts = {Cpoint3<T>(1, 2, 3), Cpoint3<T>(-4, 5, 6)}, none;
    EXPECT_TRUE(geometric<T>::project(l, pts));
    EXPECT_EQ(pts, (std::vector<Cpoint3<T>>{Cpoint3<T>(1, 0, 0), Cpoint3<T>(-4, 0, 0)}));
    EXPECT_FALSE(geometric<T>::project(l, none));
}

TYPED_TEST(Geometric3, PlaneLineAndPlanePlane) {
    using T = TypeParam;
    const Cplane3<T> z0(Cdirec3<T>(0, 0, 1, true), T(0));
    Cpoint3<T> s(7, 7, 7);
    EXPECT_TRUE(geometric<T>::intersect(z0, Cline3<T>(Cpoint3<T>(0, 0, 5), Cdirec3<T>(0, 0, -1, true)), s));
    EXPECT_EQ(s, Cpoint3<T>(0, 0, 0));
    const Cplane3<T> oblique(Cpoint3<T>(1, 2, 3), dir<T>(Eigen::Vector3d(1, 1, 1)));  // x + y + z = 6
    ASSERT_TRUE(geometric<T>::intersect(oblique, Cline3<T>(Cpoint3<T>(1, 1, 1), Cdirec3<T>(0, 1, 0, true)), s));
    EXPECT_NEAR((ev(s) - Eigen::Vector3d(1, 4, 1)).norm(), 0.0, tolT<T>());
    // The planes z = 0 and x = 2 meet in the line along n1 x n2 = (0, 1, 0) through (2, 0, 0).
    Cline3<T> m;
    ASSERT_TRUE(geometric<T>::intersect(z0, Cplane3<T>(Cdirec3<T>(1, 0, 0, true), T(-2)), m));
    EXPECT_NEAR((ev(m.point()) - Eigen::Vector3d(2, 0, 0)).norm(), 0.0, tolT<T>());
    EXPECT_NEAR((ev(m.direction()) - Eigen::Vector3d(0, 1, 0)).norm(), 0.0, tolT<T>());
    // Parallel within the single-precision tolerance, also for double: false,
    // the line unchanged, the point NaN.
    const double delta = 1e-4;  // 1 - cos(delta) ~ 5e-9 < 2^-23
    const Cplane3<T> b(Cdirec3<T>(T(std::sin(delta)), 0, T(std::cos(delta)), true), T(-1));
    Cline3<T> g(Cpoint3<T>(1, 2, 3), Cdirec3<T>(0, 1, 0, true));
    EXPECT_FALSE(geometric<T>::intersect(z0, b, g));
    EXPECT_EQ(g.point(), Cpoint3<T>(1, 2, 3));
    EXPECT_FALSE(geometric<T>::intersect(z0, Cplane3<T>(Cdirec3<T>(0, 0, -1, true), T(2)), g));
    EXPECT_FALSE(geometric<T>::intersect(z0, Cline3<T>(Cpoint3<T>(0, 0, 1), Cdirec3<T>(T(1), 0, T(1e-7), true)), s));
    EXPECT_TRUE(std::isnan(s.x));
    EXPECT_TRUE(geometric<T>::intersect(z0, Cline3<T>(Cpoint3<T>(0, 0, 1), Cdirec3<T>(T(1), 0, T(2e-7), true)), s));
}

TYPED_TEST(Geometric3, LineLine) {
    using T = TypeParam;
    // Skew lines: false, yet the midpoint and the gap are delivered.
    const Cline3<T> ax(Cpoint3<T>(0, 0, 0), Cdirec3<T>(1, 0, 0, true)), ay(Cpoint3<T>(0, 1, 1), Cdirec3<T>(0, 1, 0, true));
    Cpoint3<T> s(9, 9, 9);
    T gap = T(-1);
    EXPECT_FALSE(geometric<T>::intersect(ax, ay, s, gap));
    EXPECT_EQ(s, Cpoint3<T>(0, 0, T(0.5)));
    EXPECT_EQ(gap, T(1));
    s = Cpoint3<T>(9, 9, 9);
    EXPECT_FALSE(geometric<T>::intersect(ax, ay, s));
    EXPECT_EQ(s, Cpoint3<T>(0, 0, T(0.5)));
    // Meeting lines: true, the common point, gap 0.
    EXPECT_TRUE(geometric<T>::intersect(ax, Cline3<T>(Cpoint3<T>(T(0.5), -1, T(0)), Cdirec3<T>(0, 1, 0, true)), s, gap));
    EXPECT_EQ(s, Cpoint3<T>(T(0.5), 0, 0));
    EXPECT_EQ(gap, T(0));
    // Parallel (within 2^-23, also for double): false, s and gap untouched.
    s = Cpoint3<T>(9, 9, 9);
    gap = T(-1);
    EXPECT_FALSE(geometric<T>::intersect(ax, Cline3<T>(Cpoint3<T>(0, 1, 0), Cdirec3<T>(T(1), T(1e-4), 0)), s, gap));
    EXPECT_FALSE(geometric<T>::intersect(ax, Cline3<T>(Cpoint3<T>(0, 1, 0), Cdirec3<T>(-1, 0, 0, true)), s, gap));
    EXPECT_EQ(s, Cpoint3<T>(9, 9, 9));
    EXPECT_EQ(gap, T(-1));
    // The points P, Q are compared absolutely within the epsilon of T (an open
    // interval): from |coordinate| >= 4 even identical points differ, so lines
    // meeting there report false with the common point and gap 0 (kept).
    EXPECT_FALSE(geometric<T>::intersect(Cline3<T>(Cpoint3<T>(0, 8, 0), Cdirec3<T>(1, 0, 0, true)),
                                         Cline3<T>(Cpoint3<T>(8, 0, 0), Cdirec3<T>(0, 1, 0, true)), s, gap));
    EXPECT_EQ(s, Cpoint3<T>(8, 8, 0));
    EXPECT_EQ(gap, T(0));
}

TYPED_TEST(Geometric3, SphereLine) {
    using T = TypeParam;
    const Csphere3<T> unit(Cpoint3<T>(0, 0, 0), T(1));
    std::pair<T, T> t(0, 0);
    EXPECT_TRUE(geometric<T>::intersect(unit, Cline3<T>(Cpoint3<T>(0, 0, 0), Cdirec3<T>(0, 0, 1, true)), t));
    EXPECT_EQ(t, std::make_pair(T(-1), T(1)));
    // The same line given by (0, 0, 5): b = 2.5, b^2 - q < 0, false and NaN (kept).
    EXPECT_FALSE(geometric<T>::intersect(unit, Cline3<T>(Cpoint3<T>(0, 0, 5), Cdirec3<T>(0, 0, 1, true)), t));
    EXPECT_TRUE(std::isnan(t.first) && std::isnan(t.second));
    // Through (0, 0, 0.5): b = 0.25, q = -0.75, so -0.25 -+ sqrt(0.8125), not the
    // true crossings -1.5, 0.5.
    EXPECT_TRUE(geometric<T>::intersect(unit, Cline3<T>(Cpoint3<T>(0, 0, T(0.5)), Cdirec3<T>(0, 0, 1, true)), t));
    EXPECT_NEAR(double(t.first), -0.25 - std::sqrt(0.8125), 1e-6);
    EXPECT_NEAR(double(t.second), -0.25 + std::sqrt(0.8125), 1e-6);
}

TYPED_TEST(Geometric3, BoxLine) {
    using T = TypeParam;
    using P = Cpoint3<T>;
    const CboundingBox3<T> box(P(0, 0, 0), P(2, 1, 1));
    std::pair<P, P> s;
    const T h = T(0.5);
    // Entry and exit follow the direction; along an edge it touches; parallel outside: miss.
    ASSERT_TRUE(geometric<T>::intersect(box, Cline3<T>(P(-5, h, h), Cdirec3<T>(1, 0, 0, true)), s));
    EXPECT_EQ(s, std::make_pair(P(0, h, h), P(2, h, h)));
    ASSERT_TRUE(geometric<T>::intersect(box, Cline3<T>(P(-5, h, h), Cdirec3<T>(-1, 0, 0, true)), s));
    EXPECT_EQ(s, std::make_pair(P(2, h, h), P(0, h, h)));
    ASSERT_TRUE(geometric<T>::intersect(box, Cline3<T>(P(0, 1, 1), Cdirec3<T>(1, 0, 0, true)), s));
    EXPECT_EQ(s, std::make_pair(P(0, 1, 1), P(2, 1, 1)));
    EXPECT_FALSE(geometric<T>::intersect(box, Cline3<T>(P(0, 2, h), Cdirec3<T>(1, 0, 0, true)), s));
    ASSERT_TRUE(geometric<T>::intersect(box, Cline3<T>(P(3, 0, 2), P(2, 1, 1)), s));  // a corner only
    EXPECT_NEAR((ev(s.first) - Eigen::Vector3d(2, 1, 1)).norm() + (ev(s.second) - Eigen::Vector3d(2, 1, 1)).norm(), 0.0, tolT<T>());
    EXPECT_FALSE(geometric<T>::intersect(CboundingBox3<T>(), Cline3<T>(P(0, 0, 0), Cdirec3<T>(1, 0, 0, true)), s));
    EXPECT_FALSE(geometric<T>::intersect(box, Cline3<T>(), s));
}

TYPED_TEST(Geometric3, LeastSquaresIntersectionOfLines) {
    using T = TypeParam;
    std::mt19937 gen(29);
    std::normal_distribution<double> noise(0, 0.01);
    for (int i = 0; i < 200; ++i) {
        const int n = 2 + i % 6;
        const bool noisy = i % 2 == 1;
        const Eigen::Vector3d X = randVec(gen, 3);
        std::vector<Cline3<T>> lines;
        for (int k = 0; k < n; ++k) {
            const Eigen::Vector3d D = randVec(gen).normalized();
            Eigen::Vector3d P = X + 2 * randVec(gen)[0] * D;
            if (noisy) P += Eigen::Vector3d(noise(gen), noise(gen), noise(gen));
            lines.push_back(Cline3<T>(pt<T>(P), dir<T>(D)));
        }
        // Oracle: [I - d d^T] x = [I - d d^T] p stacked, by Eigen's QR.
        Eigen::MatrixXd A(3 * n, 3);
        Eigen::VectorXd b(3 * n);
        for (int k = 0; k < n; ++k) {
            const Eigen::Vector3d D = ev(lines[k].direction()).normalized();
            const Eigen::Matrix3d Pk = Eigen::Matrix3d::Identity() - D * D.transpose();
            A.block<3, 3>(3 * k, 0) = Pk;
            b.segment<3>(3 * k) = Pk * ev(lines[k].point());
        }
        const Eigen::Vector3d ref = A.colPivHouseholderQr().solve(b);
        const Eigen::JacobiSVD<Eigen::MatrixXd> svd(A);
        const double cond = svd.singularValues()(0) / svd.singularValues()(2);
        Cpoint3<T> s;
        T rms = -1;
        ASSERT_TRUE(geometric<T>::intersect(lines, s, rms)) << i;
        EXPECT_NEAR((ev(s) - (noisy ? ref : X)).norm(), 0.0, tolT<T>() * cond * cond) << i;
        EXPECT_NEAR(double(rms), noisy ? std::sqrt((A * ref - b).squaredNorm() / n) : 0.0, tolT<T>() * cond);
    }
    // Fewer than two lines, parallel lines (within 2^-23 also for double), a
    // zero direction, a NaN or infinite point: false, outputs untouched.
    Cpoint3<T> s(9, 9, 9);
    T rms = -1;
    const Cline3<T> ox(Cpoint3<T>(0, 0, 0), Cdirec3<T>(1, 0, 0, true));
    const T nan = std::numeric_limits<T>::quiet_NaN(), inf = std::numeric_limits<T>::infinity();
    const std::vector<std::vector<Cline3<T>>> bad = {
        {},
        {ox},
        {ox, Cline3<T>(Cpoint3<T>(0, 1, 0), Cdirec3<T>(T(1), T(1e-4), 0)), Cline3<T>(Cpoint3<T>(0, 0, 1), Cdirec3<T>(-1, 0, 0, true))},
        {ox, Cline3<T>(Cpoint3<T>(0, 0, 1), Cdirec3<T>(-1, 0, 0, true)), Cline3<T>(Cpoint3<T>(0, 0, 1), Cdirec3<T>(0, 0, 0, true))},
        {Cline3<T>(Cpoint3<T>(nan, 0, 0), Cdirec3<T>(1, 0, 0, true)), Cline3<T>(Cpoint3<T>(0, 1, 1), Cdirec3<T>(0, 1, 0, true))},
        {Cline3<T>(Cpoint3<T>(inf, 0, 0), Cdirec3<T>(1, 0, 0, true)), Cline3<T>(Cpoint3<T>(0, 1, 1), Cdirec3<T>(0, 1, 0, true))}};
    for (std::size_t k = 0; k < bad.size(); ++k) EXPECT_FALSE(geometric<T>::intersect(bad[k], s, rms)) << k;
    EXPECT_EQ(s, Cpoint3<T>(9, 9, 9));
    EXPECT_EQ(rms, T(-1));
    // Two lines at a clear angle meet in their closest points' midpoint.
    ASSERT_TRUE(geometric<T>::intersect(std::vector<Cline3<T>>{ox, Cline3<T>(Cpoint3<T>(0, 1, 1), Cdirec3<T>(0, 1, 0, true))}, s, rms));
    EXPECT_NEAR(double(s.z), 0.5, tolT<T>());
    EXPECT_NEAR(double(rms), 0.5, tolT<T>());
}

TYPED_TEST(Geometric3, LeastSquaresIntersectionOfSpheres) {
    using T = TypeParam;
    using S = Csphere3<T>;
    std::mt19937 gen(30);
    {
        // Four spheres through (1, 2, 3); the side flag is not used then.
        const Eigen::Vector3d X(1, 2, 3);
        std::vector<S> sph;
        using V = Eigen::Vector3d;
        for (V const& C : {V(0, 0, 0), V(4, 0, 0), V(0, 4, 0), V(0, 0, 4)})
            sph.push_back(S(pt<T>(C), T((C - X).norm())));
        Cpoint3<T> s, s2;
        ASSERT_TRUE(geometric<T>::intersect(sph, s, true));
        ASSERT_TRUE(geometric<T>::intersect(sph, s2, false));
        EXPECT_NEAR((ev(s) - X).norm(), 0.0, 10 * tolT<T>());
        EXPECT_EQ(s, s2);
    }
    for (int i = 0; i < 200; ++i) {
        // Three spheres: two mirror solutions; true picks the side of (c1 - c0) x (c2 - c0).
        const Eigen::Vector3d C0 = randVec(gen, 3), C1 = randVec(gen, 3), C2 = randVec(gen, 3);
        const Eigen::Vector3d N = (C1 - C0).cross(C2 - C0);
        if (N.norm() < 0.5) continue;
        const Eigen::Vector3d X = (C0 + C1 + C2) / 3 + randVec(gen, 1) + 1.5 * N.normalized();
        const Eigen::Vector3d mirror = X - 2 * (X - C0).dot(N.normalized()) * N.normalized();
        std::vector<S> sph;
        for (Eigen::Vector3d const& C : {C0, C1, C2}) sph.push_back(S(pt<T>(C), T((C - X).norm())));
        Cpoint3<T> up, down;
        ASSERT_TRUE(geometric<T>::intersect(sph, up, true));
        ASSERT_TRUE(geometric<T>::intersect(sph, down, false));
        // The height is a square root of a difference: its error grows like eps/height.
        EXPECT_NEAR((ev(up) - X).norm(), 0.0, 1e3 * tolT<T>()) << i;
        EXPECT_NEAR((ev(down) - mirror).norm(), 0.0, 1e3 * tolT<T>()) << i;
    }
    // Collinear or coincident centres, fewer than two spheres: false, s untouched.
    Cpoint3<T> s(9, 9, 9);
    using P = Cpoint3<T>;
    for (auto const& sph : {std::vector<S>{S(P(0, 0, 0), 1), S(P(1, 0, 0), 1)},
                            std::vector<S>{S(P(0, 0, 0), 1), S(P(1, 0, 0), 1), S(P(3, 0, 0), 2)},
                            std::vector<S>{S(P(1, 1, 1), 1), S(P(1, 1, 1), 2)}, std::vector<S>{S(P(1, 1, 1), 1)}})
        EXPECT_FALSE(geometric<T>::intersect(sph, s, true));
    EXPECT_EQ(s, P(9, 9, 9));
    // Unit spheres too far apart to meet: the height is 0, the point in their plane.
    ASSERT_TRUE(geometric<T>::intersect(std::vector<S>{S(P(0, 0, 0), 1), S(P(4, 0, 0), 1), S(P(0, 4, 0), 1)}, s, true));
    EXPECT_NEAR((ev(s) - Eigen::Vector3d(2, 2, 0)).norm(), 0.0, tolT<T>());
}

TYPED_TEST(Geometric3, OutlierAndCutPointCloud) {
    using T = TypeParam;
    using P = Cpoint3<T>;
    const std::vector<P> pts = {P(0, 0, 0), P(1, 0, 0), P(2, 0, 0), P(3, 0, 0), P(4, 0, 0)};
    const std::vector<T> res = {T(0.1), T(-0.5), T(0.5), std::numeric_limits<T>::quiet_NaN(), T(-0.2)};
    std::vector<P> p = pts;
    EXPECT_FALSE(geometric<T>::outlier(p, std::vector<T>(3, T(0)), T(1)));  // size mismatch
    EXPECT_EQ(p, pts);
    EXPECT_TRUE(geometric<T>::outlier(p, res, T(0.5)));  // border kept, NaN removed
    EXPECT_EQ(p, (std::vector<P>{P(0, 0, 0), P(1, 0, 0), P(2, 0, 0), P(4, 0, 0)}));
    p = pts;
    EXPECT_TRUE(geometric<T>::outlier(p, res, T(0.3)));
    EXPECT_EQ(p, (std::vector<P>{P(0, 0, 0), P(4, 0, 0)}));

    // cutPointCloud against brute force: every clearly-near point, in order.
    std::mt19937 gen(31);
    CbaseVecN<P> cloud, out;
    for (int i = 0; i < 2000; ++i) cloud.push_back(pt<T>(randVec(gen, 5)));
    const Cplane3<T> e(P(1, 0, 0), Cdirec3<T>(1, 1, 1));
    out.push_back(P(7, 7, 7));
    ASSERT_TRUE(tools<T>::cutPointCloud(e, T(0.5), cloud, out));
    std::size_t j = 0;
    for (auto const& q : out) EXPECT_LE(std::abs(geometric<T>::distance(e, q)), T(0.5));
    for (auto const& q : cloud)
        if (std::abs(ev(e.normal()).dot(ev(q)) + double(e.d())) <= 0.5 - 1e-5) {
            while (j < out.size() && !(out[j] == q)) ++j;
            ASSERT_LT(j, out.size());
        }
    EXPECT_GT(out.size(), 100u);
    EXPECT_LT(out.size(), 1000u);
    CbaseVecN<P> same = cloud;  // in place gives the same selection
    ASSERT_TRUE(tools<T>::cutPointCloud(e, T(0.5), same, same));
    EXPECT_TRUE(same == out);
    // Invalid plane or negative distance: false, output cleared.
    EXPECT_FALSE(tools<T>::cutPointCloud(Cplane3<T>(), T(1), cloud, out));
    EXPECT_TRUE(out.empty());
    out.push_back(P());
    EXPECT_FALSE(tools<T>::cutPointCloud(e, T(-1), cloud, out));
    EXPECT_TRUE(out.empty());
    CbaseVecN<P> two{P(0, 0, 1), P(0, 0, 2)};  // the border is included
    ASSERT_TRUE(tools<T>::cutPointCloud(Cplane3<T>(Cdirec3<T>(0, 0, 1, true), T(0)), T(1), two, out));
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].z, T(1));
}

TYPED_TEST(Geometric3, PlanarLineDistancesAndProjections) {
    using T = TypeParam;
    using P = Cpoint2<T>;
    const Cline2<T> ox(P(0, 0), Cdirec2<T>(1, 0, true));
    std::vector<T> d = {T(5)};
    geometric<T>::distance(ox, std::vector<P>{P(3, 2), P(-1, -4)}, d);
    EXPECT_EQ(d, (std::vector<T>{T(2), T(-4)}));
    geometric<T>::distance(ox, std::vector<P>(), d);
    EXPECT_TRUE(d.empty());
    // Line-line: parallel (also antiparallel, and within 2^-23 for double) gives
    // the unsigned distance of b's point from a, otherwise 0.
    EXPECT_EQ(geometric<T>::distance(ox, Cline2<T>(P(5, -3), Cdirec2<T>(-1, 0, true))), T(3));
    EXPECT_EQ(geometric<T>::distance(ox, Cline2<T>(P(5, 3), Cdirec2<T>(1, 0, true))), T(3));
    EXPECT_EQ(geometric<T>::distance(ox, Cline2<T>(P(0, 2), Cdirec2<T>(T(std::sqrt(1 - 1e-16)), T(1e-8), true))), T(2));
    EXPECT_EQ(geometric<T>::distance(ox, Cline2<T>(P(0, 2), Cdirec2<T>(T(1), T(1e-3)))), T(0));
    // The line through (1, 0) along (0.6, 0.8): (4, 0) lies 2.4 to its right,
    // its foot is (2.08, 1.44), for the single point and the set form alike.
    const Cline2<T> l(P(1, 0), Cdirec2<T>(3, 4));
    EXPECT_NEAR(double(geometric<T>::distance(l, P(4, 0))), -2.4, tolT<T>());
    P q(4, 0);
    geometric<T>::project(l, q);
    std::vector<P> ps(2, P(4, 0));
    ASSERT_TRUE(geometric<T>::project(l, ps));
    for (P const& f : {q, ps[0], ps[1]}) EXPECT_NEAR((ev2(f) - Eigen::Vector2d(2.08, 1.44)).norm(), 0.0, tolT<T>());
    EXPECT_FALSE(geometric<T>::project(ox, ps = {}));
    // A direction far from unit length makes the perpendicular look parallel
    // (|det| = |d|^2 <= 2^-23): false at the first point, nothing changed.
    ps = {P(1, 1), P(2, 2)};
    EXPECT_FALSE(geometric<T>::project(Cline2<T>(P(0, 0), Cdirec2<T>(T(1e-4), 0, true)), ps));
    EXPECT_EQ(ps, (std::vector<P>{P(1, 1), P(2, 2)}));
}

TYPED_TEST(Geometric3, LeastSquaresIntersectionOfCircles) {
    using T = TypeParam;
    using C = Ccircle2<T>;
    using P = Cpoint2<T>;
    std::mt19937 gen(33);
    std::uniform_real_distribution<double> u(-3, 3);
    {
        // Four circles through (1, 2) with centres spanning the plane.
        const Eigen::Vector2d X(1, 2);
        std::vector<C> cs;
        for (Eigen::Vector2d const& c : {Eigen::Vector2d(0, 0), Eigen::Vector2d(4, 0), Eigen::Vector2d(0, 4), Eigen::Vector2d(5, 5)})
            cs.push_back(C(pt2<T>(c), T((c - X).norm())));
        P s;
        ASSERT_TRUE(geometric<T>::intersect(cs, s, true));
        EXPECT_NEAR((ev2(s) - X).norm(), 0.0, 10 * tolT<T>());
    }
    for (int i = 0; i < 200; ++i) {
        // Two circles: true gives the crossing left of c0 -> c1; a third circle
        // of the pencil (centre on the line beyond c1) changes nothing.
        const Eigen::Vector2d c0(u(gen), u(gen)), c1(u(gen), u(gen));
        if ((c1 - c0).norm() < 0.5) continue;
        const Eigen::Vector2d dd = (c1 - c0).normalized(), nl(-dd.y(), dd.x());
        const Eigen::Vector2d X = c0 + (0.2 + 0.6 * std::abs(u(gen)) / 3) * (c1 - c0) + (0.5 + std::abs(u(gen))) * nl;
        const Eigen::Vector2d M = X - 2 * (X - c0).dot(nl) * nl, c2 = c1 + 0.7 * (c1 - c0);
        std::vector<C> cs = {C(pt2<T>(c0), T((X - c0).norm())), C(pt2<T>(c1), T((X - c1).norm()))};
        P l, r;
        ASSERT_TRUE(geometric<T>::intersect(cs, l, true));
        ASSERT_TRUE(geometric<T>::intersect(cs, r, false));
        EXPECT_NEAR((ev2(l) - X).norm(), 0.0, 1e3 * tolT<T>()) << i;
        EXPECT_NEAR((ev2(r) - M).norm(), 0.0, 1e3 * tolT<T>()) << i;
        cs.push_back(C(pt2<T>(c2), T((X - c2).norm())));
        ASSERT_TRUE(geometric<T>::intersect(cs, l, true));
        EXPECT_NEAR((ev2(l) - X).norm(), 0.0, 1e3 * tolT<T>()) << i;
    }
    // Circles that do not meet: the point between them on the centre line.
    P s(9, 9);
    ASSERT_TRUE(geometric<T>::intersect(std::vector<C>{C(P(0, 0), T(1)), C(P(4, 0), T(1))}, s, true));
    EXPECT_NEAR(double(s.x), 2.0, tolT<T>());
    EXPECT_EQ(s.y, T(0));
    // Concentric circles, a single circle, an invalid circle: false, s untouched.
    s = P(9, 9);
    for (auto const& cs : {std::vector<C>{C(P(1, 1), T(1)), C(P(1, 1), T(2))}, std::vector<C>{C(P(1, 1), T(1))},
                           std::vector<C>{C(P(1, 1), T(1)), C()}})
        EXPECT_FALSE(geometric<T>::intersect(cs, s, true));
    EXPECT_EQ(s, P(9, 9));
}

TYPED_TEST(Geometric3, ThreePlanes) {
    using T = TypeParam;
    const Cplane3<T> px(Cpoint3<T>(1, 2, 3), Cdirec3<T>(1, 0, 0, true)), py(Cpoint3<T>(1, 2, 3), Cdirec3<T>(0, 1, 0, true));
    Cpoint3<T> s;
    ASSERT_TRUE(geometric<T>::intersect(px, py, Cplane3<T>(Cpoint3<T>(1, 2, 3), Cdirec3<T>(0, 0, 1, true)), s));
    EXPECT_EQ(s, Cpoint3<T>(1, 2, 3));
    // Parallel planes or a determinant within +-2^-23 (also for double): false, s unchanged.
    s = Cpoint3<T>(9, 9, 9);
    EXPECT_FALSE(geometric<T>::intersect(px, py, Cplane3<T>(Cdirec3<T>(0, -1, 0, true), T(5)), s));
    EXPECT_FALSE(geometric<T>::intersect(px, py, Cplane3<T>(Cdirec3<T>(0, T(std::sqrt(1 - 1e-14)), T(1e-7), true), T(0)), s));
    EXPECT_EQ(s, Cpoint3<T>(9, 9, 9));
    EXPECT_TRUE(geometric<T>::intersect(px, py, Cplane3<T>(Cdirec3<T>(0, T(std::sqrt(1 - 1e-12)), T(1e-6), true), T(0)), s));
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
    std::pair<T, T> t;
    Cpoint3<T> s;
    for (const Cline3<T>& bad : {Cline3<T>(Cpoint3<T>(0, 0, 0), Cdirec3<T>(nan, 0, 1, true)),
                                 Cline3<T>(Cpoint3<T>(0, nan, 0), Cdirec3<T>(0, 0, 1, true))}) {
        EXPECT_FALSE(geometric<T>::intersect(plane, bad, s));
        EXPECT_FALSE(geometric<T>::intersect(sphere, bad, t));
        EXPECT_TRUE(std::isnan(t.first) && std::isnan(t.second));
    }
    const Cline3<T> axis(Cpoint3<T>(0, 0, 0), Cdirec3<T>(0, 0, 1, true));
    EXPECT_FALSE(geometric<T>::intersect(Cplane3<T>(), axis, s));
    EXPECT_FALSE(geometric<T>::intersect(Csphere3<T>(), axis, t));
    EXPECT_TRUE(geometric<T>::intersect(sphere, axis, t));
    EXPECT_EQ(t.first, T(-2));
}
