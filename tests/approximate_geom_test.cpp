// Tests of the orthogonal line and plane fits of approximate<T>.  Oracles: the
// principal axes of the centred scatter computed by Eigen in double, the true
// primitives of synthetic measurement data, and hand-run power iterations.
#include <math/approximate.h>

#include "approximate_test_util.h"

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

// |sin| of the angle between two directions (0 when parallel or antiparallel).
double sinAngle2(double ax, double ay, double bx, double by) {
    return std::fabs(ax * by - ay * bx) / (std::hypot(ax, ay) * std::hypot(bx, by));
}
double sinAngle3(Eigen::Vector3d const& a, Eigen::Vector3d const& b) {
    return a.cross(b).norm() / (a.norm() * b.norm());
}
template <class P>
Eigen::Vector3d vec(P const& p) {
    return Eigen::Vector3d(p.x, p.y, p.z);
}

// Centred scatter of a point set in double and its eigen decomposition
// (eigenvalues increasing).
struct Scatter {
    Eigen::Vector3d mean;
    Eigen::SelfAdjointEigenSolver<Eigen::Matrix3d> es;
};
template <class T>
Scatter scatterOf(V3<T> const& v) {
    Scatter s;
    s.mean.setZero();
    for (auto const& p : v) s.mean += vec(p);
    s.mean /= static_cast<double>(v.size());
    Eigen::Matrix3d C = Eigen::Matrix3d::Zero();
    for (auto const& p : v) {
        const Eigen::Vector3d d = vec(p) - s.mean;
        C += d * d.transpose();
    }
    s.es.compute(C);
    return s;
}

// Points of a plane through c with unit normal nrm, spread uniformly over a
// patch of half sizes a and b along two in-plane axes, normal noise sigma.
template <class T>
V3<T> noisyPlane(std::mt19937_64& rng, std::size_t n, Eigen::Vector3d const& c, Eigen::Vector3d nrm, double a,
                 double b, double sigma) {
    nrm.normalize();
    Eigen::Vector3d e1 = nrm.unitOrthogonal();
    Eigen::Vector3d e2 = nrm.cross(e1);
    std::uniform_real_distribution<double> ua(-a, a), ub(-b, b);
    std::normal_distribution<double> e(0.0, sigma);
    V3<T> v(n);
    for (auto& p : v) {
        const Eigen::Vector3d q = c + ua(rng) * e1 + ub(rng) * e2 + (sigma > 0 ? e(rng) : 0.0) * nrm;
        p = Cpoint3<T>(static_cast<T>(q.x()), static_cast<T>(q.y()), static_cast<T>(q.z()));
    }
    return v;
}

// Points of a spatial line through c along dir (length len), noise sigma in
// every coordinate.
template <class T>
V3<T> noisyLine3(std::mt19937_64& rng, std::size_t n, Eigen::Vector3d const& c, Eigen::Vector3d dir, double len,
                 double sigma) {
    dir.normalize();
    std::uniform_real_distribution<double> t(-0.5 * len, 0.5 * len);
    std::normal_distribution<double> e(0.0, sigma);
    V3<T> v(n);
    for (auto& p : v) {
        const Eigen::Vector3d q = c + t(rng) * dir;
        p = Cpoint3<T>(static_cast<T>(q.x() + e(rng)), static_cast<T>(q.y() + e(rng)), static_cast<T>(q.z() + e(rng)));
    }
    return v;
}

}  // namespace

template <class T>
class ApproxGeom : public ::testing::Test {};
using FitTypes = ::testing::Types<float, double>;
TYPED_TEST_SUITE(ApproxGeom, FitTypes);

// ---------------------------------------------------------------------------
// Planar line
// ---------------------------------------------------------------------------

TYPED_TEST(ApproxGeom, Line2TooFewAndTwoPoints) {
    using T = TypeParam;
    for (std::size_t n : {0u, 1u}) {
        V2<T> v = pts2<T>({{1, 2}});
        v.resize(n);
        Cline2<T> line(Cpoint2<T>(T(0), T(0)), Cdirec2<T>(T(1), T(0), true));
        approximate<T>::fitLineGeom(v, line);
        EXPECT_TRUE(std::isnan(line.point().x));
        EXPECT_TRUE(std::isnan(line.direction().x));
        CqLineGeom2DStdAbw<T> rec{T(1), T(1)};
        Cline2<T> line2(Cpoint2<T>(T(0), T(0)), Cdirec2<T>(T(1), T(0), true));
        approximate<T>::fitLineGeom(v, line2, rec);
        EXPECT_TRUE(std::isnan(line2.point().x));
        EXPECT_TRUE(std::isnan(line2.direction().x));
        EXPECT_TRUE(std::isnan(rec.stdAbwOrth));
        EXPECT_TRUE(std::isnan(rec.stdAbwAlong));
    }
    const V2<T> two = pts2<T>({{1, 2}, {4, 6}});
    Cline2<T> line;
    approximate<T>::fitLineGeom(two, line);
    EXPECT_EQ(line.point(), two[0]);
    EXPECT_EQ(line.direction().x, T(0.6));
    EXPECT_EQ(line.direction().y, T(0.8));
    CqLineGeom2DStdAbw<T> rec{T(1), T(1)};
    approximate<T>::fitLineGeom(two, line, rec);
    EXPECT_EQ(line.point(), two[0]);
    EXPECT_EQ(line.direction().y, T(0.8));
    EXPECT_TRUE(std::isnan(rec.stdAbwOrth));
    EXPECT_TRUE(std::isnan(rec.stdAbwAlong));
}

TYPED_TEST(ApproxGeom, Line2ClosedFormulaCases) {
    using T = TypeParam;
    Cline2<T> line;
    // All y equal: Syy = 0, direction (1, 0).
    approximate<T>::fitLineGeom(pts2<T>({{0, 3}, {1, 3}, {5, 3}}), line);
    EXPECT_EQ(line.direction().x, T(1));
    EXPECT_EQ(line.direction().y, T(0));
    EXPECT_EQ(line.point().x, T(2));
    EXPECT_EQ(line.point().y, T(3));
    // All x equal: direction (0, 1).
    approximate<T>::fitLineGeom(pts2<T>({{3, 0}, {3, 1}, {3, 5}}), line);
    EXPECT_EQ(line.direction().x, T(0));
    EXPECT_EQ(line.direction().y, T(1));
    // The diagonal: direction (1, 1)/sqrt(2), point (1, 1).
    approximate<T>::fitLineGeom(pts2<T>({{0, 0}, {1, 1}, {2, 2}}), line);
    EXPECT_EQ(line.point().x, T(1));
    EXPECT_EQ(line.point().y, T(1));
    EXPECT_NEAR(line.direction().x, std::sqrt(0.5), tolOf<T>(1e-15, 1e-7));
    EXPECT_NEAR(line.direction().y, std::sqrt(0.5), tolOf<T>(1e-15, 1e-7));
    // Descending diagonal: t = 0 but Sxy^2 = 4 >= 1e-8, direction (0, -2) -> (0, -1)?
    // No: Sxx = Syy gives t = |Sxy| = 2, direction (2, -2) normalised.
    approximate<T>::fitLineGeom(pts2<T>({{0, 2}, {1, 1}, {2, 0}}), line);
    EXPECT_NEAR(line.direction().x, std::sqrt(0.5), tolOf<T>(1e-15, 1e-7));
    EXPECT_NEAR(line.direction().y, -std::sqrt(0.5), tolOf<T>(1e-15, 1e-7));
    // A tiny set: Sxy^2 + t^2 < 1e-8 (an absolute constant) gives (0, 1)
    // although the points lie on a line of slope 1/2.
    approximate<T>::fitLineGeom(pts2<T>({{0, 0}, {1e-3, 5e-4}, {2e-3, 1e-3}}), line);
    EXPECT_EQ(line.direction().x, T(0));
    EXPECT_EQ(line.direction().y, T(1));
    // Ten times larger: above the threshold, the true direction.
    approximate<T>::fitLineGeom(pts2<T>({{0, 0}, {1e-1, 5e-2}, {2e-1, 1e-1}}), line);
    EXPECT_NEAR(line.direction().y / line.direction().x, 0.5, tolOf<T>(1e-12, 1e-5));
}

// Both planar forms against the principal axis of the centred scatter.
TYPED_TEST(ApproxGeom, Line2MatchesPrincipalAxis) {
    using T = TypeParam;
    std::mt19937_64 rng(601);
    std::uniform_real_distribution<double> pos(-20.0, 20.0), ang(-3.2, 3.2), noise(0.001, 0.3);
    std::normal_distribution<double> g(0.0, 1.0);
    for (int trial = 0; trial < 200; ++trial) {
        const std::size_t n = 3 + trial % 50;
        const double a = ang(rng), s = noise(rng), x0 = pos(rng), y0 = pos(rng);
        V2<T> v(n);
        for (auto& p : v) {
            const double t = 5.0 * g(rng), o = s * g(rng);
            p = Cpoint2<T>(T(x0 + t * std::cos(a) - o * std::sin(a)), T(y0 + t * std::sin(a) + o * std::cos(a)));
        }
        Eigen::Vector2d m(0, 0);
        for (auto const& p : v) m += Eigen::Vector2d(p.x, p.y);
        m /= double(n);
        Eigen::Matrix2d C = Eigen::Matrix2d::Zero();
        for (auto const& p : v) {
            const Eigen::Vector2d d = Eigen::Vector2d(p.x, p.y) - m;
            C += d * d.transpose();
        }
        Eigen::SelfAdjointEigenSolver<Eigen::Matrix2d> es(C);
        const Eigen::Vector2d axis = es.eigenvectors().col(1);
        // The axis is determined to eps * lambda_max / (lambda_max - lambda_min).
        const double gap = es.eigenvalues()[1] / (es.eigenvalues()[1] - es.eigenvalues()[0]);
        const double tol = tolOf<T>(1e-12, 3e-5) * gap * 10;

        Cline2<T> line;
        approximate<T>::fitLineGeom(v, line);
        EXPECT_LT(sinAngle2(line.direction().x, line.direction().y, axis.x(), axis.y()), tol) << trial;
        EXPECT_NEAR(line.point().x, m.x(), tolOf<T>(1e-12, 1e-5) * 20) << trial;
        EXPECT_NEAR(line.point().y, m.y(), tolOf<T>(1e-12, 1e-5) * 20) << trial;

        Cline2<T> line2;
        CqLineGeom2DStdAbw<T> rec;
        approximate<T>::fitLineGeom(v, line2, rec);
        // Raw sums in T: float loses the digits of the centroid's square.
        const double tol2 = tolOf<T>(1e-9, 3e-3) * gap * 10;
        EXPECT_LT(sinAngle2(line2.direction().x, line2.direction().y, axis.x(), axis.y()), tol2) << trial;
        EXPECT_NEAR(std::hypot(line2.direction().x, line2.direction().y), 1.0, tolOf<T>(1e-15, 1e-6));
        const double along = std::sqrt(es.eigenvalues()[1] / (n - 1));
        const double orth = std::sqrt(std::max(0.0, es.eigenvalues()[0]) / (n - 1));
        EXPECT_NEAR(rec.stdAbwAlong, along, tolOf<T>(1e-9, 1e-3) * along) << trial;
        if (std::is_same<T, float>::value && std::isnan(rec.stdAbwOrth)) {
            // Raw float sums: the small eigenvalue drowns in the cancellation
            // of sum x^2 - (sum x)^2 / n and may come out negative (NaN root).
            EXPECT_LT(orth, 1e-2 * (along + m.norm())) << trial;
        } else {
            EXPECT_NEAR(rec.stdAbwOrth, orth, tolOf<T>(1e-9, 1e-3) * (along + m.norm())) << trial;
            EXPECT_LE(rec.stdAbwOrth, rec.stdAbwAlong);
        }
    }
}

// Exactly axis-parallel data: the off-diagonal scatter term is 0 and the 2x2
// rotation divides by it; the record form gives NaN, the closed form a result.
TYPED_TEST(ApproxGeom, Line2RecordNaNOnAxisParallelData) {
    using T = TypeParam;
    for (auto const& v : {pts2<T>({{0, 3}, {1, 3}, {5, 3}, {7, 3}}), pts2<T>({{2, 0}, {2, 1}, {2, 5}}),
                          pts2<T>({{-1, 0}, {1, 0}, {0, 4}, {0, -4}})}) {
        Cline2<T> line;
        CqLineGeom2DStdAbw<T> rec;
        approximate<T>::fitLineGeom(v, line, rec);
        EXPECT_FALSE(line.direction().isValid());
        EXPECT_TRUE(std::isnan(rec.stdAbwOrth));
        EXPECT_TRUE(std::isnan(rec.stdAbwAlong));
        Cline2<T> closed;
        approximate<T>::fitLineGeom(v, closed);
        EXPECT_TRUE(closed.isValid());
    }
}

TEST(ApproxGeomAccuracy, Line2FarFromOrigin) {
    // 10^6 points of a 100 mm edge 1000 mm from the origin, 1 um noise.
    std::mt19937_64 rng(602);
    const double a = 0.3, cx = 1000.0, cy = 500.0;
    std::uniform_real_distribution<double> t(-50.0, 50.0);
    std::normal_distribution<double> e(0.0, 1e-3);
    V2<double> v(1000000);
    V2<float> vf(v.size());
    for (std::size_t i = 0; i < v.size(); ++i) {
        const double s = t(rng), o = e(rng);
        v[i] = Cpoint2<double>(cx + s * std::cos(a) - o * std::sin(a), cy + s * std::sin(a) + o * std::cos(a));
        vf[i] = Cpoint2<float>(float(v[i].x), float(v[i].y));
    }
    auto angErr = [&](auto const& l) { return sinAngle2(l.direction().x, l.direction().y, std::cos(a), std::sin(a)); };
    auto offErr = [&](auto const& l) {
        return std::fabs((l.point().x - cx) * std::sin(a) - (l.point().y - cy) * std::cos(a));
    };
    Cline2<double> l1, l2;
    CqLineGeom2DStdAbw<double> rec;
    approximate<double>::fitLineGeom(v, l1);
    approximate<double>::fitLineGeom(v, l2, rec);
    // Statistical limit: angle ~ 3.5e-8 rad, offset ~ 1e-6 mm.
    EXPECT_LT(angErr(l1), 2e-7);
    EXPECT_LT(offErr(l1), 1e-5);
    EXPECT_LT(angErr(l2), 2e-7);
    EXPECT_LT(offErr(l2), 1e-5);
    EXPECT_NEAR(rec.stdAbwOrth, 1e-3, 1e-5);
    EXPECT_NEAR(rec.stdAbwAlong, 100.0 / std::sqrt(12.0), 0.1);
    RecordProperty("line2_ang", sci(std::max(angErr(l1), angErr(l2))));
    RecordProperty("line2_off", sci(std::max(offErr(l1), offErr(l2))));
    RecordProperty("line2_rec_orth", sci(rec.stdAbwOrth));
    // float, sums in float: the centroid carries the rounding of the float
    // sums (about 2e-7 relative, 0.2 um at 1000 mm); the centred moments keep
    // the direction near the statistical limit.
    Cline2<float> lf;
    approximate<float>::fitLineGeom(vf, lf);
    EXPECT_LT(angErr(lf), 1e-6);
    EXPECT_LT(offErr(lf), 2e-3);
    RecordProperty("line2_float_ang", sci(angErr(lf)));
    RecordProperty("line2_float_off", sci(offErr(lf)));
}

// ---------------------------------------------------------------------------
// Spatial line
// ---------------------------------------------------------------------------

TYPED_TEST(ApproxGeom, Line3TooFewAndTwoPoints) {
    using T = TypeParam;
    for (std::size_t n : {0u, 1u}) {
        V3<T> v(n, Cpoint3<T>(T(1), T(2), T(3)));
        Cline3<T> line(Cpoint3<T>(), Cdirec3<T>(T(1), T(0), T(0), true));
        approximate<T>::fitLineGeom(v, line);
        EXPECT_TRUE(std::isnan(line.point().x));
        EXPECT_TRUE(std::isnan(line.direction().x));
        CqLineGeom3DStdAbw<T> rec{T(1), T(1), T(1)};
        approximate<T>::fitLineGeom(v, line, rec);
        EXPECT_TRUE(std::isnan(line.point().x));
        EXPECT_TRUE(std::isnan(line.direction().x));
        EXPECT_TRUE(std::isnan(rec.stdAbwMain) && std::isnan(rec.stdAbwSecond) && std::isnan(rec.stdAbwThird));
    }
    const V3<T> two{Cpoint3<T>(T(1), T(2), T(3)), Cpoint3<T>(T(3), T(5), T(9))};
    Cline3<T> line;
    approximate<T>::fitLineGeom(two, line);
    EXPECT_EQ(line.point(), two[0]);
    EXPECT_EQ(line.direction().x, T(2) / T(7));
    EXPECT_EQ(line.direction().z, T(6) / T(7));
    CqLineGeom3DStdAbw<T> rec{T(1), T(1), T(1)};
    approximate<T>::fitLineGeom(two, line, rec);
    EXPECT_EQ(line.direction().y, T(3) / T(7));
    EXPECT_TRUE(std::isnan(rec.stdAbwMain) && std::isnan(rec.stdAbwSecond) && std::isnan(rec.stdAbwThird));
}

// Both spatial forms give the principal axis; the record holds the spreads
// along the three axes, largest first.
TYPED_TEST(ApproxGeom, Line3MatchesPrincipalAxis) {
    using T = TypeParam;
    std::mt19937_64 rng(701);
    std::uniform_real_distribution<double> pos(-30.0, 30.0), u(-1.0, 1.0), noise(0.001, 0.5);
    for (int trial = 0; trial < 150; ++trial) {
        const std::size_t n = 3 + trial % 60;
        const Eigen::Vector3d c(pos(rng), pos(rng), pos(rng));
        Eigen::Vector3d dir(u(rng), u(rng), u(rng));
        if (dir.norm() < 0.1) continue;
        const V3<T> v = noisyLine3<T>(rng, n, c, dir, 20.0, noise(rng));
        const Scatter s = scatterOf(v);
        const Eigen::Vector3d ev = s.es.eigenvalues();
        const Eigen::Vector3d axis = s.es.eigenvectors().col(2);
        const double gap = ev[2] / (ev[2] - ev[1]);

        Cline3<T> a, b;
        CqLineGeom3DStdAbw<T> rec;
        approximate<T>::fitLineGeom(v, a);
        approximate<T>::fitLineGeom(v, b, rec);
        const double tol = tolOf<T>(1e-11, 1e-4) * gap;
        EXPECT_LT(sinAngle3(vec(a.direction()), axis), tol) << trial;
        EXPECT_LT(sinAngle3(vec(b.direction()), axis), tol) << trial;
        EXPECT_NEAR(vec(a.direction()).norm(), 1.0, tolOf<T>(1e-15, 1e-6));
        EXPECT_LT((vec(a.point()) - s.mean).norm(), tolOf<T>(1e-12, 1e-5) * 50) << trial;
        EXPECT_LT((vec(b.point()) - s.mean).norm(), tolOf<T>(1e-12, 1e-5) * 50) << trial;
        const double sMain = std::sqrt(ev[2] / (n - 1));
        EXPECT_NEAR(rec.stdAbwMain, sMain, tolOf<T>(1e-10, 1e-5) * sMain) << trial;
        EXPECT_NEAR(rec.stdAbwSecond, std::sqrt(std::fabs(ev[1]) / (n - 1)), tolOf<T>(1e-6, 1e-3) * sMain) << trial;
        EXPECT_NEAR(rec.stdAbwThird, std::sqrt(std::fabs(ev[0]) / (n - 1)), tolOf<T>(1e-6, 1e-3) * sMain) << trial;
        EXPECT_GE(rec.stdAbwMain, rec.stdAbwSecond);
        EXPECT_GE(rec.stdAbwSecond, rec.stdAbwThird);
    }
}

TEST(ApproxGeomAccuracy, Line3MillionPoints) {
    // A 100 mm line 1000 mm from the origin, 10^6 points, 1 um noise per axis.
    std::mt19937_64 rng(702);
    const Eigen::Vector3d c(600.0, -700.0, 400.0), dir = Eigen::Vector3d(0.48, 0.6, 0.64).normalized();
    const V3<double> v = noisyLine3<double>(rng, 1000000, c, dir, 100.0, 1e-3);
    V3<float> vf(v.size());
    for (std::size_t i = 0; i < v.size(); ++i) vf[i] = Cpoint3<float>(float(v[i].x), float(v[i].y), float(v[i].z));
    auto offErr = [&](auto const& l) {
        const Eigen::Vector3d d = vec(l.point()) - c;
        return (d - d.dot(dir) * dir).norm();
    };
    Cline3<double> a, b;
    CqLineGeom3DStdAbw<double> rec;
    approximate<double>::fitLineGeom(v, a);
    approximate<double>::fitLineGeom(v, b, rec);
    EXPECT_LT(sinAngle3(vec(a.direction()), dir), 2e-7);
    EXPECT_LT(sinAngle3(vec(b.direction()), dir), 2e-7);
    EXPECT_LT(offErr(a), 1e-5);
    EXPECT_LT(offErr(b), 1e-5);
    EXPECT_NEAR(rec.stdAbwMain, 100.0 / std::sqrt(12.0), 0.1);
    EXPECT_NEAR(rec.stdAbwSecond, 1e-3, 1e-5);
    EXPECT_NEAR(rec.stdAbwThird, 1e-3, 1e-5);

    RecordProperty("line3_ang", sci(std::max(sinAngle3(vec(a.direction()), dir), sinAngle3(vec(b.direction()), dir))));
    RecordProperty("line3_off", sci(std::max(offErr(a), offErr(b))));
    RecordProperty("line3_rec_second", sci(rec.stdAbwSecond));
    Cline3<float> af, bf;
    CqLineGeom3DStdAbw<float> recf;
    approximate<float>::fitLineGeom(vf, af);
    approximate<float>::fitLineGeom(vf, bf, recf);
    RecordProperty("line3_float_ang_tensor", sci(sinAngle3(vec(af.direction()), dir)));
    RecordProperty("line3_float_ang_scatter", sci(sinAngle3(vec(bf.direction()), dir)));
    RecordProperty("line3_float_off_tensor", sci(offErr(af)));
    RecordProperty("line3_float_off_scatter", sci(offErr(bf)));
    // float: the tensor form's centroid is summed in float (0.5 um here), the
    // record form sums everything in double.
    EXPECT_LT(sinAngle3(vec(af.direction()), dir), 2e-6);
    EXPECT_LT(sinAngle3(vec(bf.direction()), dir), 2e-6);
    EXPECT_LT(offErr(af), 3e-3);
    EXPECT_LT(offErr(bf), 2e-4);
}

// ---------------------------------------------------------------------------
// Plane
// ---------------------------------------------------------------------------

TYPED_TEST(ApproxGeom, PlaneTooFewAndThreePoints) {
    using T = TypeParam;
    const CqPlaneGeomFast<T> prm;
    for (std::size_t n : {0u, 1u, 2u}) {
        V3<T> v;
        for (std::size_t i = 0; i < n; ++i) v.emplace_back(T(i), T(1), T(2));
        Cplane3<T> p(Cdirec3<T>(T(0), T(0), T(1), true), T(0));
        approximate<T>::fitPlaneGeom(v, p);
        EXPECT_TRUE(std::isnan(p.normal().x));
        EXPECT_TRUE(std::isnan(p.d()));
        CqPlaneGeomStdAbw<T> rec{T(1), T(1), T(1)};
        Cplane3<T> q(Cdirec3<T>(T(0), T(0), T(1), true), T(0));
        approximate<T>::fitPlaneGeom(v, q, rec);
        EXPECT_TRUE(std::isnan(q.normal().x) && std::isnan(q.d()));
        EXPECT_TRUE(std::isnan(rec.stdAbwNormal) && std::isnan(rec.stdAbwSecond) && std::isnan(rec.stdAbwMain));
        Cplane3<T> f(Cdirec3<T>(T(0), T(0), T(1), true), T(0));
        approximate<T>::fitPlaneGeomFast(v, f, prm);
        EXPECT_TRUE(std::isnan(f.normal().x) && std::isnan(f.d()));
    }
    // Three points: the plane through them (three-point constructor).
    const V3<T> three{Cpoint3<T>(T(0), T(0), T(2)), Cpoint3<T>(T(1), T(0), T(2)), Cpoint3<T>(T(0), T(1), T(2))};
    const Cplane3<T> ref(three[0], three[1], three[2]);
    Cplane3<T> p;
    CqPlaneGeomStdAbw<T> rec{T(1), T(1), T(1)};
    approximate<T>::fitPlaneGeom(three, p, rec);
    EXPECT_EQ(p.normal().z, T(1));
    EXPECT_EQ(p.d(), T(-2));
    EXPECT_TRUE(std::isnan(rec.stdAbwNormal) && std::isnan(rec.stdAbwSecond) && std::isnan(rec.stdAbwMain));
    approximate<T>::fitPlaneGeom(three, p);
    EXPECT_EQ(p.normal().z, ref.normal().z);
    EXPECT_EQ(p.d(), ref.d());
    approximate<T>::fitPlaneGeomFast(three, p, prm);
    EXPECT_EQ(p.normal().z, ref.normal().z);
    EXPECT_EQ(p.d(), ref.d());
}

// Points on z = 5 spread in x and y: normal (0, 0, +-1), d = -+5, no spread
// along the normal.  16 points, so 1/n and all sums are exact.
TYPED_TEST(ApproxGeom, PlaneHorizontal) {
    using T = TypeParam;
    V3<T> v;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) v.emplace_back(T(i * 3 - 1), T(j * 2 + 7), T(5));
    Cplane3<T> p;
    CqPlaneGeomStdAbw<T> rec;
    approximate<T>::fitPlaneGeom(v, p, rec);
    EXPECT_EQ(std::fabs(p.normal().z), T(1));
    EXPECT_EQ(p.d(), -T(5) * p.normal().z);
    EXPECT_EQ(rec.stdAbwNormal, T(0));
    // In-plane spreads: x takes -1, 2, 5, 8 and y 7, 9, 11, 13, four times each:
    // sum of squared deviations 180 and 80, divided by n - 1 = 15.
    EXPECT_NEAR(rec.stdAbwMain, std::sqrt(180.0 / 15.0), tolOf<T>(1e-14, 1e-6));
    EXPECT_NEAR(rec.stdAbwSecond, std::sqrt(80.0 / 15.0), tolOf<T>(1e-14, 1e-6));

    Cplane3<T> f;
    approximate<T>::fitPlaneGeomFast(v, f, CqPlaneGeomFast<T>());
    // The power iteration stops when L repeats, with the normal converged to
    // about the square root of the working precision (see CqPlaneGeomFast).
    EXPECT_NEAR(std::fabs(f.normal().z), 1.0, tolOf<T>(1e-15, 1e-7));
    EXPECT_NEAR(f.d(), -5.0 * f.normal().z, tolOf<T>(1e-9, 1e-6));
}

// Both plane fits against the smallest principal axis of the scatter, over
// random planes, orientations and noise levels.
TYPED_TEST(ApproxGeom, PlaneMatchesPrincipalAxis) {
    using T = TypeParam;
    std::mt19937_64 rng(801);
    std::uniform_real_distribution<double> pos(-20.0, 20.0), u(-1.0, 1.0), size(2.0, 20.0), noise(0.0, 0.2);
    for (int trial = 0; trial < 150; ++trial) {
        const std::size_t n = 4 + trial % 60;
        const Eigen::Vector3d c(pos(rng), pos(rng), pos(rng));
        Eigen::Vector3d nrm(u(rng), u(rng), u(rng));
        if (nrm.norm() < 0.1) continue;
        const double a = size(rng), b = size(rng);
        const V3<T> v = noisyPlane<T>(rng, n, c, nrm, a, b, noise(rng));
        const Scatter s = scatterOf(v);
        const Eigen::Vector3d ev = s.es.eigenvalues();
        const Eigen::Vector3d axis = s.es.eigenvectors().col(0);
        // The normal is determined to eps * (scale of the raw sums) /
        // (lambda_2 - lambda_3); the raw sums carry n * |centroid|^2.
        const double gap = (ev[2] + n * s.mean.squaredNorm()) / (ev[1] - ev[0]);
        // float: raw sums in float near the origin (coordinates up to ~50).
        const double tol = tolOf<T>(1e-13, 3e-5) * gap + tolOf<T>(2e-8, 1e-6);

        Cplane3<T> p, q, f;
        CqPlaneGeomStdAbw<T> rec;
        approximate<T>::fitPlaneGeom(v, p);
        approximate<T>::fitPlaneGeom(v, q, rec);
        approximate<T>::fitPlaneGeomFast(v, f, CqPlaneGeomFast<T>());
        for (Cplane3<T> const* pl : {&p, &q, &f}) {
            // The power iteration's stop rule leaves up to ~1e-6 rad on patches
            // of aspect ratio 10 (see CqPlaneGeomFast).
            EXPECT_LT(sinAngle3(vec(pl->normal()), axis), tol + (pl == &f ? 2e-6 : 0.0)) << trial;
            EXPECT_NEAR(vec(pl->normal()).norm(), 1.0, tolOf<T>(1e-14, 1e-6));
            // The centroid lies on the plane.
            EXPECT_NEAR(vec(pl->normal()).dot(s.mean) + pl->d(), 0.0, tolOf<T>(1e-10, 1e-3) * (1 + s.mean.norm()))
                << trial;
        }
        EXPECT_EQ(p.normal().x, q.normal().x);
        EXPECT_EQ(p.d(), q.d());
        const double sMain = std::sqrt(ev[2] / (n - 1));
        EXPECT_NEAR(rec.stdAbwMain, sMain, tolOf<T>(1e-10, 1e-3) * sMain) << trial;
        EXPECT_NEAR(rec.stdAbwSecond, std::sqrt(ev[1] / (n - 1)), tolOf<T>(1e-10, 1e-3) * sMain) << trial;
        if (!std::isnan(rec.stdAbwNormal)) {
            EXPECT_NEAR(rec.stdAbwNormal, std::sqrt(std::max(0.0, ev[0]) / (n - 1)), tolOf<T>(1e-7, 3e-2) * sMain)
                << trial;
        }
    }
}

// Planes with normals near each axis, 1000 mm from the origin, 100 mm across,
// 1 um noise: the accuracy a user can expect from double clouds.
TEST(ApproxGeomAccuracy, PlanesNearEachAxisFarFromOrigin) {
    std::mt19937_64 rng(802);
    const Eigen::Vector3d normals[] = {Eigen::Vector3d(1, 1e-3, -2e-3), Eigen::Vector3d(2e-3, 1, 1e-3),
                                       Eigen::Vector3d(-1e-3, 2e-3, 1), Eigen::Vector3d(0, 0, 1),
                                       Eigen::Vector3d(1, 0, 0)};
    double worstAng = 0, worstD = 0, worstAngF = 0, worstAngFar = 0;
    for (Eigen::Vector3d nrm : normals) {
        nrm.normalize();
        const Eigen::Vector3d c(1000.0 + 50 * nrm.x(), -800.0, 1200.0);
        const V3<double> v = noisyPlane<double>(rng, 100000, c, nrm, 50.0, 50.0, 1e-3);
        for (int variant = 0; variant < 3; ++variant) {
            Cplane3<double> p;
            CqPlaneGeomStdAbw<double> rec;
            if (variant == 0) approximate<double>::fitPlaneGeom(v, p);
            if (variant == 1) approximate<double>::fitPlaneGeom(v, p, rec);
            if (variant == 2) approximate<double>::fitPlaneGeomFast(v, p, CqPlaneGeomFast<double>());
            worstAng = std::max(worstAng, sinAngle3(vec(p.normal()), nrm));
            // Distance of the true centre from the fitted plane.
            worstD = std::max(worstD, std::fabs(vec(p.normal()).dot(c) + p.d()));
            if (variant == 1) {
                EXPECT_NEAR(rec.stdAbwNormal, 1e-3, 2e-5);
            }
        }
        // float clouds near the origin (the same patch moved to the origin).
        V3<float> vf;
        for (auto const& p : v)
            vf.emplace_back(float(p.x - c.x()), float(p.y - c.y()), float(p.z - c.z()));
        Cplane3<float> pf;
        // The float cloud left where it is (1000 mm out): raw float sums.
        V3<float> vfar;
        for (auto const& p : v) vfar.emplace_back(float(p.x), float(p.y), float(p.z));
        approximate<float>::fitPlaneGeom(vfar, pf);
        worstAngFar = std::max(worstAngFar, sinAngle3(vec(pf.normal()), nrm));
        approximate<float>::fitPlaneGeom(vf, pf);
        worstAngF = std::max(worstAngF, sinAngle3(vec(pf.normal()), nrm));
        approximate<float>::fitPlaneGeomFast(vf, pf, CqPlaneGeomFast<float>());
        worstAngF = std::max(worstAngF, sinAngle3(vec(pf.normal()), nrm));
    }
    // Statistical limit: sigma / (sqrt(n) * 29 mm) ~ 1.1e-7 rad.
    EXPECT_LT(worstAng, 1e-6);
    EXPECT_LT(worstD, 1e-5);
    EXPECT_LT(worstAngF, 3e-6);
    // float clouds 1000 mm out: raw float sums cancel; the normal keeps ~1e-3.
    EXPECT_LT(worstAngFar, 1e-2);
    RecordProperty("plane_ang", sci(worstAng));
    RecordProperty("plane_d", sci(worstD));
    RecordProperty("plane_float_centred_ang", sci(worstAngF));
    RecordProperty("plane_float_far_ang", sci(worstAngFar));
}

// Exactly planar data: the smallest eigenvalue may round below zero; the
// record then holds NaN (square root without absolute value) and the plane
// itself is right.
TEST(ApproxGeomQuirks, PlaneRecordSqrtWithoutAbs) {
    std::mt19937_64 rng(803);
    int nanCount = 0;
    for (int trial = 0; trial < 100; ++trial) {
        const V3<double> v = noisyPlane<double>(rng, 50, Eigen::Vector3d(3, 4, 5), Eigen::Vector3d(1, 2, 3), 10.0,
                                                7.0, 0.0);
        Cplane3<double> p;
        CqPlaneGeomStdAbw<double> rec;
        approximate<double>::fitPlaneGeom(v, p, rec);
        EXPECT_LT(sinAngle3(vec(p.normal()), Eigen::Vector3d(1, 2, 3)), 1e-12);
        if (std::isnan(rec.stdAbwNormal)) {
            ++nanCount;
        } else {
            EXPECT_LT(rec.stdAbwNormal, 1e-6);
        }
        EXPECT_FALSE(std::isnan(rec.stdAbwMain));
    }
    RecordProperty("exact_plane_nan_count", sci(nanCount));
}

// ---------------------------------------------------------------------------
// Power iteration
// ---------------------------------------------------------------------------

TEST(ApproxGeomFast, DefaultsAndStopRule) {
    const CqPlaneGeomFast<double> d;
    EXPECT_EQ(d.maxIter, 200u);
    EXPECT_EQ(d.eps, std::numeric_limits<double>::min());
    const CqPlaneGeomFast<float> f;
    EXPECT_EQ(f.maxIter, 200u);
    EXPECT_EQ(f.eps, std::numeric_limits<float>::min());

    // A long narrow patch converges slowly (second/first inertia about 0.98),
    // so the number of iterations shows in the result.  maxIter = 0 runs
    // exactly two iterations (k = 0 continues, k = 1 stops): compare with a
    // hand-run of 20 tensor products.
    std::mt19937_64 rng(901);
    const V3<double> v = noisyPlane<double>(rng, 500, Eigen::Vector3d(1, 2, 3), Eigen::Vector3d(0.3, -0.2, 1.0), 20.0,
                                            2.0, 0.01);
    double S[9] = {0};
    for (auto const& p : v) {
        S[0] += p.x, S[1] += p.y, S[2] += p.z;
        S[3] += p.x * p.x, S[4] += p.y * p.y, S[5] += p.z * p.z;
        S[6] += p.x * p.y, S[7] += p.x * p.z, S[8] += p.y * p.z;
    }
    const double f1 = 1.0 / v.size();
    Eigen::Matrix3d I;
    I << S[4] + S[5] - f1 * (S[1] * S[1] + S[2] * S[2]), -S[6] + f1 * S[0] * S[1], -S[7] + f1 * S[0] * S[2],
        -S[6] + f1 * S[0] * S[1], S[3] + S[5] - f1 * (S[0] * S[0] + S[2] * S[2]), -S[8] + f1 * S[1] * S[2],
        -S[7] + f1 * S[0] * S[2], -S[8] + f1 * S[1] * S[2], S[3] + S[4] - f1 * (S[0] * S[0] + S[1] * S[1]);
    auto handRun = [&](int iterations) {
        Eigen::Vector3d w(1, 1, 1);
        for (int i = 0; i < iterations; ++i) {
            for (int r = 0; r < 10; ++r) w = I * w;
            w /= w.norm();
        }
        return w;
    };
    Cplane3<double> p0, p1;
    approximate<double>::fitPlaneGeomFast(v, p0, CqPlaneGeomFast<double>(0u, 0.0));
    approximate<double>::fitPlaneGeomFast(v, p1, CqPlaneGeomFast<double>(1u, 0.0));
    EXPECT_LT(sinAngle3(vec(p0.normal()), handRun(2)), 1e-12);
    EXPECT_GT(sinAngle3(vec(p0.normal()), handRun(3)), 1e-6);
    EXPECT_LT(sinAngle3(vec(p1.normal()), handRun(3)), 1e-12);
    // eps = 0 never stops early: maxIter + 2 iterations.
    Cplane3<double> p10;
    approximate<double>::fitPlaneGeomFast(v, p10, CqPlaneGeomFast<double>(10u, 0.0));
    EXPECT_LT(sinAngle3(vec(p10.normal()), handRun(12)), 1e-12);
    // A huge eps stops after the first iteration that changes L by less, i.e.
    // at once when L_prev = 0 and L < eps.
    Cplane3<double> pe;
    approximate<double>::fitPlaneGeomFast(v, pe, CqPlaneGeomFast<double>(100u, 1e300));
    EXPECT_LT(sinAngle3(vec(pe.normal()), handRun(1)), 1e-12);
    // The defaults stop when L repeats exactly; L is stationary to second
    // order in the angle error, so the normal is then good to about 1e-7 here.
    // eps = 0 with enough iterations converges fully.
    Cplane3<double> pd, pz, ref;
    approximate<double>::fitPlaneGeomFast(v, pd, CqPlaneGeomFast<double>());
    approximate<double>::fitPlaneGeomFast(v, pz, CqPlaneGeomFast<double>(2000u, 0.0));
    approximate<double>::fitPlaneGeom(v, ref);
    EXPECT_LT(sinAngle3(vec(pd.normal()), vec(ref.normal())), 1e-6);
    EXPECT_LT(sinAngle3(vec(pz.normal()), vec(ref.normal())), 1e-12);
}

// float clouds of realistic size: the largest eigenvalue is far above 100, so
// lambda^10 exceeds the float range; the products are carried in double.
TEST(ApproxGeomFast, FloatCloudDoesNotOverflow) {
    std::mt19937_64 rng(902);
    const Eigen::Vector3d nrm = Eigen::Vector3d(0.2, -0.3, 1.0).normalized();
    const V3<float> v = noisyPlane<float>(rng, 20000, Eigen::Vector3d(0, 0, 0), nrm, 100.0, 80.0, 1e-3);
    Cplane3<float> p;
    approximate<float>::fitPlaneGeomFast(v, p, CqPlaneGeomFast<float>());
    ASSERT_TRUE(p.isValid());
    EXPECT_LT(sinAngle3(vec(p.normal()), nrm), 1e-5);
    EXPECT_NEAR(p.d(), 0.0, 1e-2);
}

// The start vector (1, 1, 1) is kept: data symmetric under exchanging x and y
// with the normal (1, -1, 0)/sqrt(2) keep the iteration in the symmetric
// subspace, and the result is an in-plane direction.  fitPlaneGeom finds it.
TEST(ApproxGeomFast, StartVectorBlindSpot) {
    V3<double> v;
    for (int i = -5; i <= 5; ++i)
        for (int k = -3; k <= 3; ++k) v.emplace_back(i + 0.0, i + 0.0, 2.0 * k);  // plane x = y
    Cplane3<double> f, g;
    approximate<double>::fitPlaneGeomFast(v, f, CqPlaneGeomFast<double>());
    approximate<double>::fitPlaneGeom(v, g);
    const Eigen::Vector3d truth = Eigen::Vector3d(1, -1, 0).normalized();
    EXPECT_LT(sinAngle3(vec(g.normal()), truth), 1e-12);
    EXPECT_NEAR(std::fabs(vec(f.normal()).dot(truth)), 0.0, 1e-12);
}

// Points with NaN or infinite coordinates: every fit returns (NaN or
// non-finite results, or an exception of the eigenvalue routine) without
// crashing or hanging; the power iteration ends even with maxIter = 2^32 - 1.
// A NaN or infinite coordinate, or finite coordinates whose squares overflow,
// give the NaN-invalid primitive and record, never an exception.
TEST(ApproxGeomBadInput, NonFinitePoints) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    for (double bad : {nan, inf, 1e200}) {
        SCOPED_TRACE(bad);
        V2<double> v2{{0, 0}, {1, 2}, {bad, 1}, {3, 1}, {2, 5}};
        V3<double> v3{{0, 0, 0}, {1, 2, 3}, {bad, 1, 2}, {3, 1, 0}, {2, 5, 1}};
        if (bad == 1e200)
            for (auto& p : v3) p = Cpoint3<double>(p.x * 1e200, p.y * 1e200, p.z * 1e200);
        Cline2<double> l2;
        Cline3<double> l3, l3r;
        Cplane3<double> pl, plr;
        CqLineGeom2DStdAbw<double> r2;
        CqLineGeom3DStdAbw<double> r3;
        CqPlaneGeomStdAbw<double> rp;
        if (bad != 1e200) {
            approximate<double>::fitLineGeom(v2, l2);
            EXPECT_FALSE(l2.isValid());
            approximate<double>::fitLineGeom(v2, l2, r2);
        }
        EXPECT_NO_THROW(approximate<double>::fitLineGeom(v3, l3));
        EXPECT_NO_THROW(approximate<double>::fitLineGeom(v3, l3r, r3));
        EXPECT_NO_THROW(approximate<double>::fitPlaneGeom(v3, pl));
        EXPECT_NO_THROW(approximate<double>::fitPlaneGeom(v3, plr, rp));
        EXPECT_FALSE(l3.isValid());
        EXPECT_FALSE(l3r.isValid());
        EXPECT_FALSE(pl.isValid());
        EXPECT_FALSE(plr.isValid());
        EXPECT_TRUE(std::isnan(r3.stdAbwMain) && std::isnan(rp.stdAbwNormal));
        approximate<double>::fitPlaneGeomFast(v3, pl, CqPlaneGeomFast<double>(0xFFFFFFFFu, 0.0));
        EXPECT_FALSE(pl.isValid());
    }
}
