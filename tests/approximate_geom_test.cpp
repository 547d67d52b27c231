// Tests of the orthogonal line and plane fits of approximate<T>.  Oracles: the
// principal axes of the centred scatter computed by Eigen in double, the true
// primitives of synthetic measurement data, and hand-run power iterations.
#include <math/approximate.h>

#include "approximate_test_util.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

using namespace math;
using namespace approx_test;
using Eigen::Vector3d;

namespace {

double sinAngle2(double ax, double ay, double bx, double by) {
    return std::fabs(ax * by - ay * bx) / (std::hypot(ax, ay) * std::hypot(bx, by));
}

// Points of a plane through c with normal nrm over a patch of half sizes a, b,
// normal noise sigma.
template <class T>
V3<T> noisyPlane(std::mt19937_64& rng, std::size_t n, Vector3d const& c, Vector3d nrm, double a, double b,
                 double sigma) {
    nrm.normalize();
    const Vector3d e1 = nrm.unitOrthogonal(), e2 = nrm.cross(e1);
    std::uniform_real_distribution<double> ua(-a, a), ub(-b, b);
    std::normal_distribution<double> e(0.0, sigma > 0 ? sigma : 1.0);
    V3<T> v(n);
    for (auto& p : v) {
        const Vector3d q = c + ua(rng) * e1 + ub(rng) * e2 + (sigma > 0 ? e(rng) : 0.0) * nrm;
        p = Cpoint3<T>(T(q.x()), T(q.y()), T(q.z()));
    }
    return v;
}

// Points of a spatial line through c along dir (length len), noise in every coordinate.
template <class T>
V3<T> noisyLine3(std::mt19937_64& rng, std::size_t n, Vector3d const& c, Vector3d dir, double len, double sigma) {
    std::uniform_real_distribution<double> t(-0.5 * len, 0.5 * len);
    std::normal_distribution<double> e(0.0, sigma);
    V3<T> v(n);
    for (auto& p : v) {
        const Vector3d q = c + t(rng) * dir.normalized();
        p = Cpoint3<T>(T(q.x() + e(rng)), T(q.y() + e(rng)), T(q.z() + e(rng)));
    }
    return v;
}

template <class T>
bool allNaN(T a, T b, T c = quietNaN<T>()) {
    return std::isnan(a) && std::isnan(b) && std::isnan(c);
}

}  // namespace

template <class T>
class ApproxGeom : public ::testing::Test {};
using FitTypes = ::testing::Types<float, double>;
TYPED_TEST_SUITE(ApproxGeom, FitTypes);

// n < 2: NaN line and record; n = 2: the two-point line (no spreads).  Every
// branch of the closed formula, including the absolute 1e-8 threshold.
TYPED_TEST(ApproxGeom, Line2SmallSetsAndClosedFormulaCases) {
    using T = TypeParam;
    const Cline2<T> start(Cpoint2<T>(T(0), T(0)), Cdirec2<T>(T(1), T(0), true));
    const V2<T> two = pts2<T>({{1, 2}, {4, 6}});
    for (std::size_t n : {0u, 1u, 2u}) {
        const V2<T> v(two.begin(), two.begin() + n);
        Cline2<T> a = start, b = start;
        CqLineGeom2DStdAbw<T> rec{T(1), T(1)};
        approximate<T>::fitLineGeom(v, a);
        approximate<T>::fitLineGeom(v, b, rec);
        EXPECT_TRUE(allNaN(rec.stdAbwOrth, rec.stdAbwAlong)) << n;
        for (Cline2<T> const* l : {&a, &b}) {
            if (n < 2) {
                EXPECT_TRUE(allNaN(l->point().x, l->direction().x)) << n;
            } else {
                EXPECT_EQ(l->point(), v[0]);
                EXPECT_EQ(l->direction().x, T(0.6));
                EXPECT_EQ(l->direction().y, T(0.8));
            }
        }
    }
    struct Case {
        V2<T> pts;
        double dx, dy, px, py;  // expected direction and point (NaN: not checked)
    };
    const double nan = std::numeric_limits<double>::quiet_NaN(), h = std::sqrt(0.5);
    const Case cases[] = {
        {pts2<T>({{0, 3}, {1, 3}, {5, 3}}), 1, 0, 2, 3},      // Syy = 0
        {pts2<T>({{3, 0}, {3, 1}, {3, 5}}), 0, 1, 3, 2},      // Sxx = 0
        {pts2<T>({{0, 0}, {1, 1}, {2, 2}}), h, h, 1, 1},      // Sxx = Syy
        {pts2<T>({{0, 2}, {1, 1}, {2, 0}}), h, -h, 1, 1},     // t = |Sxy|
        {pts2<T>({{0, 0}, {1e-3, 5e-4}, {2e-3, 1e-3}}), 0, 1, nan, nan},  // below 1e-8: (0, 1)
        {pts2<T>({{0, 0}, {1e-1, 5e-2}, {2e-1, 1e-1}}), 2 / std::sqrt(5.0), 1 / std::sqrt(5.0), nan, nan},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.dx);
        Cline2<T> line;
        approximate<T>::fitLineGeom(c.pts, line);
        EXPECT_NEAR(line.direction().x, c.dx, tolOf<T>(1e-12, 1e-6));
        EXPECT_NEAR(line.direction().y, c.dy, tolOf<T>(1e-12, 1e-6));
        if (!std::isnan(c.px)) {
            EXPECT_EQ(line.point().x, T(c.px));
            EXPECT_EQ(line.point().y, T(c.py));
        }
    }
}

// Exactly axis-parallel data: the 2x2 rotation divides by the zero
// off-diagonal term; the record form gives NaN, the closed form a result.
TYPED_TEST(ApproxGeom, Line2RecordNaNOnAxisParallelData) {
    using T = TypeParam;
    for (auto const& v : {pts2<T>({{0, 3}, {1, 3}, {5, 3}, {7, 3}}), pts2<T>({{2, 0}, {2, 1}, {2, 5}}),
                          pts2<T>({{-1, 0}, {1, 0}, {0, 4}, {0, -4}})}) {
        Cline2<T> line, closed;
        CqLineGeom2DStdAbw<T> rec;
        approximate<T>::fitLineGeom(v, line, rec);
        approximate<T>::fitLineGeom(v, closed);
        EXPECT_FALSE(line.direction().isValid());
        EXPECT_TRUE(allNaN(rec.stdAbwOrth, rec.stdAbwAlong));
        EXPECT_TRUE(closed.isValid());
    }
}

// 10^6 points of a 100 mm edge 1000 mm from the origin, 1 um noise.
TEST(ApproxGeomAccuracy, Line2FarFromOrigin) {
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
    auto ang = [&](auto const& l) { return sinAngle2(l.direction().x, l.direction().y, std::cos(a), std::sin(a)); };
    auto off = [&](auto const& l) { return std::fabs((l.point().x - cx) * std::sin(a) - (l.point().y - cy) * std::cos(a)); };
    Cline2<double> l1, l2;
    Cline2<float> lf;
    CqLineGeom2DStdAbw<double> rec;
    approximate<double>::fitLineGeom(v, l1);
    approximate<double>::fitLineGeom(v, l2, rec);
    approximate<float>::fitLineGeom(vf, lf);
    // Statistical limit: angle ~3.5e-8 rad, offset ~1e-6 mm.
    EXPECT_LT(std::max(ang(l1), ang(l2)), 2e-7);
    EXPECT_LT(std::max(off(l1), off(l2)), 1e-5);
    EXPECT_NEAR(rec.stdAbwOrth, 1e-3, 1e-5);
    EXPECT_NEAR(rec.stdAbwAlong, 100.0 / std::sqrt(12.0), 0.1);
    // float: the centroid carries the rounding of float sums (0.2 um at
    // 1000 mm); the centred moments keep the direction.
    EXPECT_LT(ang(lf), 1e-6);
    EXPECT_LT(off(lf), 2e-3);
    record({{"line2_ang", std::max(ang(l1), ang(l2))}, {"line2_off", std::max(off(l1), off(l2))},
            {"line2_rec_orth", rec.stdAbwOrth}, {"line2_float_ang", ang(lf)}, {"line2_float_off", off(lf)}});
}

// n < 2: NaN line and record; two points: the two-point line, NaN record.
TYPED_TEST(ApproxGeom, Line3SmallSets) {
    using T = TypeParam;
    const V3<T> two{Cpoint3<T>(T(1), T(2), T(3)), Cpoint3<T>(T(3), T(5), T(9))};
    for (std::size_t n : {0u, 1u, 2u}) {
        const V3<T> v(two.begin(), two.begin() + n);
        Cline3<T> a(Cpoint3<T>(), Cdirec3<T>(T(1), T(0), T(0), true)), b = a;
        CqLineGeom3DStdAbw<T> rec{T(1), T(1), T(1)};
        approximate<T>::fitLineGeom(v, a);
        approximate<T>::fitLineGeom(v, b, rec);
        EXPECT_TRUE(allNaN(rec.stdAbwMain, rec.stdAbwSecond, rec.stdAbwThird)) << n;
        for (Cline3<T> const* l : {&a, &b}) {
            if (n < 2) {
                EXPECT_TRUE(allNaN(l->point().x, l->direction().x)) << n;
            } else {
                EXPECT_EQ(l->point(), two[0]);
                EXPECT_EQ(vec(l->direction()), vec(Cpoint3<T>(T(2) / T(7), T(3) / T(7), T(6) / T(7))));
            }
        }
    }
}

// A 100 mm line 1000 mm from the origin, 10^6 points, 1 um noise per axis.
TEST(ApproxGeomAccuracy, Line3MillionPoints) {
    std::mt19937_64 rng(702);
    const Vector3d c(600.0, -700.0, 400.0), dir = Vector3d(0.48, 0.6, 0.64).normalized();
    const V3<double> v = noisyLine3<double>(rng, 1000000, c, dir, 100.0, 1e-3);
    V3<float> vf(v.size());
    for (std::size_t i = 0; i < v.size(); ++i) vf[i] = Cpoint3<float>(float(v[i].x), float(v[i].y), float(v[i].z));
    auto off = [&](auto const& l) {
        const Vector3d d = vec(l.point()) - c;
        return (d - d.dot(dir) * dir).norm();
    };
    auto ang = [&](auto const& l) { return sinAngle3(vec(l.direction()), dir); };
    Cline3<double> a, b;
    Cline3<float> af, bf;
    CqLineGeom3DStdAbw<double> rec;
    CqLineGeom3DStdAbw<float> recf;
    approximate<double>::fitLineGeom(v, a);
    approximate<double>::fitLineGeom(v, b, rec);
    approximate<float>::fitLineGeom(vf, af);
    approximate<float>::fitLineGeom(vf, bf, recf);
    EXPECT_LT(std::max(ang(a), ang(b)), 2e-7);
    EXPECT_LT(std::max(off(a), off(b)), 1e-5);
    EXPECT_NEAR(rec.stdAbwMain, 100.0 / std::sqrt(12.0), 0.1);
    EXPECT_NEAR(rec.stdAbwSecond, 1e-3, 1e-5);
    EXPECT_NEAR(rec.stdAbwThird, 1e-3, 1e-5);
    // float: the tensor form's centroid is summed in float (0.5 um here), the
    // record form sums everything in double.
    EXPECT_LT(std::max(ang(af), ang(bf)), 2e-6);
    EXPECT_LT(off(af), 3e-3);
    EXPECT_LT(off(bf), 2e-4);
    record({{"line3_ang", std::max(ang(a), ang(b))}, {"line3_off", std::max(off(a), off(b))},
            {"line3_rec_second", rec.stdAbwSecond}, {"line3_float_ang_tensor", ang(af)},
            {"line3_float_ang_scatter", ang(bf)}, {"line3_float_off_tensor", off(af)},
            {"line3_float_off_scatter", off(bf)}});
}

// n < 3: NaN plane (all three fits) and record; three points: the plane
// through them; 16 points on z = 5: exact normal, d and spreads.
TYPED_TEST(ApproxGeom, PlaneSmallSetsAndExactPlane) {
    using T = TypeParam;
    const CqPlaneGeomFast<T> prm;
    const Cplane3<T> start(Cdirec3<T>(T(0), T(0), T(1), true), T(0));
    const V3<T> three{Cpoint3<T>(T(0), T(0), T(2)), Cpoint3<T>(T(1), T(0), T(2)), Cpoint3<T>(T(0), T(1), T(2))};
    for (std::size_t n : {0u, 1u, 2u, 3u}) {
        const V3<T> v(three.begin(), three.begin() + n);
        Cplane3<T> p = start, q = start, f = start;
        CqPlaneGeomStdAbw<T> rec{T(1), T(1), T(1)};
        approximate<T>::fitPlaneGeom(v, p);
        approximate<T>::fitPlaneGeom(v, q, rec);
        approximate<T>::fitPlaneGeomFast(v, f, prm);
        EXPECT_TRUE(allNaN(rec.stdAbwNormal, rec.stdAbwSecond, rec.stdAbwMain)) << n;
        for (Cplane3<T> const* pl : {&p, &q, &f}) {
            if (n < 3) {
                EXPECT_TRUE(allNaN(pl->normal().x, pl->d())) << n;
            } else {  // the three-point constructor's plane
                EXPECT_EQ(pl->normal().z, Cplane3<T>(three[0], three[1], three[2]).normal().z);
                EXPECT_EQ(pl->d(), T(-2));
            }
        }
    }
    V3<T> v;
    for (int i = 0; i < 16; ++i) v.emplace_back(T(i / 4 * 3 - 1), T(i % 4 * 2 + 7), T(5));
    Cplane3<T> p, f;
    CqPlaneGeomStdAbw<T> rec;
    approximate<T>::fitPlaneGeom(v, p, rec);
    EXPECT_EQ(std::fabs(p.normal().z), T(1));
    EXPECT_EQ(p.d(), -T(5) * p.normal().z);
    EXPECT_EQ(rec.stdAbwNormal, T(0));
    // x in {-1, 2, 5, 8}, y in {7, 9, 11, 13}: squared deviations 180 and 80, n - 1 = 15.
    EXPECT_NEAR(rec.stdAbwMain, std::sqrt(180.0 / 15.0), tolOf<T>(1e-14, 1e-6));
    EXPECT_NEAR(rec.stdAbwSecond, std::sqrt(80.0 / 15.0), tolOf<T>(1e-14, 1e-6));
    approximate<T>::fitPlaneGeomFast(v, f, prm);
    EXPECT_NEAR(std::fabs(f.normal().z), 1.0, tolOf<T>(1e-15, 1e-7));
    EXPECT_NEAR(f.d(), -5.0 * f.normal().z, tolOf<T>(1e-9, 1e-6));
}

// Planes with normals near each axis, 1500 mm out, 100 mm across, 10^5
// points, 1 um noise; float clouds far out and moved to the origin.
TEST(ApproxGeomAccuracy, PlanesNearEachAxisFarFromOrigin) {
    std::mt19937_64 rng(802);
    const Vector3d normals[] = {Vector3d(1, 1e-3, -2e-3), Vector3d(2e-3, 1, 1e-3), Vector3d(-1e-3, 2e-3, 1),
                                Vector3d(0, 0, 1), Vector3d(1, 0, 0)};
    double worstAng = 0, worstD = 0, worstAngF = 0, worstAngFar = 0;
    for (Vector3d nrm : normals) {
        nrm.normalize();
        const Vector3d c(1000.0 + 50 * nrm.x(), -800.0, 1200.0);
        const V3<double> v = noisyPlane<double>(rng, 100000, c, nrm, 50.0, 50.0, 1e-3);
        Cplane3<double> p[3];
        CqPlaneGeomStdAbw<double> rec;
        approximate<double>::fitPlaneGeom(v, p[0]);
        approximate<double>::fitPlaneGeom(v, p[1], rec);
        approximate<double>::fitPlaneGeomFast(v, p[2], CqPlaneGeomFast<double>());
        for (auto const& q : p) {
            worst(worstAng, sinAngle3(vec(q.normal()), nrm));
            worst(worstD, std::fabs(vec(q.normal()).dot(c) + q.d()));
        }
        EXPECT_NEAR(rec.stdAbwNormal, 1e-3, 2e-5);
        V3<float> vf, vfar;
        for (auto const& q : v) {
            vf.emplace_back(float(q.x - c.x()), float(q.y - c.y()), float(q.z - c.z()));
            vfar.emplace_back(float(q.x), float(q.y), float(q.z));
        }
        Cplane3<float> pf;
        approximate<float>::fitPlaneGeom(vfar, pf);
        worst(worstAngFar, sinAngle3(vec(pf.normal()), nrm));
        approximate<float>::fitPlaneGeom(vf, pf);
        worst(worstAngF, sinAngle3(vec(pf.normal()), nrm));
        // lambda^10 exceeds the float range here: the products are carried in double.
        approximate<float>::fitPlaneGeomFast(vf, pf, CqPlaneGeomFast<float>());
        worst(worstAngF, sinAngle3(vec(pf.normal()), nrm));
    }
    // Statistical limit: sigma / (sqrt(n) * 29 mm) ~ 1.1e-7 rad.
    EXPECT_LT(worstAng, 1e-6);
    EXPECT_LT(worstD, 1e-5);
    EXPECT_LT(worstAngF, 3e-6);
    EXPECT_LT(worstAngFar, 1e-2);  // raw float sums 1000 mm out cancel
    record({{"plane_ang", worstAng}, {"plane_d", worstD}, {"plane_float_centred_ang", worstAngF},
            {"plane_float_far_ang", worstAngFar}});
}

// Exactly planar data: the smallest eigenvalue may round below zero and the
// record then holds NaN (square root without absolute value); the plane is right.
TEST(ApproxGeomQuirks, PlaneRecordSqrtWithoutAbs) {
    std::mt19937_64 rng(803);
    int nanCount = 0;
    for (int trial = 0; trial < 100; ++trial) {
        const V3<double> v = noisyPlane<double>(rng, 50, Vector3d(3, 4, 5), Vector3d(1, 2, 3), 10.0, 7.0, 0.0);
        Cplane3<double> p;
        CqPlaneGeomStdAbw<double> rec;
        approximate<double>::fitPlaneGeom(v, p, rec);
        EXPECT_LT(sinAngle3(vec(p.normal()), Vector3d(1, 2, 3)), 1e-12);
        nanCount += std::isnan(rec.stdAbwNormal);
        EXPECT_TRUE(std::isnan(rec.stdAbwNormal) || rec.stdAbwNormal < 1e-6);
        EXPECT_FALSE(std::isnan(rec.stdAbwMain));
    }
    EXPECT_GT(nanCount, 0);
    record({{"exact_plane_nan_count", nanCount}});
}

// Defaults, and the iteration count against hand-run power iterations of the
// inertia tensor: maxIter = m runs m + 2 iterations (k = 0 .. m + 1) when eps
// never stops it; a huge eps stops after the first.
TEST(ApproxGeomFast, DefaultsAndStopRule) {
    EXPECT_TRUE(CqPlaneGeomFast<double>().maxIter == 200u && CqPlaneGeomFast<float>().maxIter == 200u);
    EXPECT_TRUE(CqPlaneGeomFast<double>().eps == std::numeric_limits<double>::min() &&
                CqPlaneGeomFast<float>().eps == std::numeric_limits<float>::min());
    // A long narrow patch converges slowly, so the iteration count shows.
    std::mt19937_64 rng(901);
    const V3<double> v = noisyPlane<double>(rng, 500, Vector3d(1, 2, 3), Vector3d(0.3, -0.2, 1.0), 20.0, 2.0, 0.01);
    Vector3d mean = Vector3d::Zero();
    for (auto const& p : v) mean += vec(p) / double(v.size());
    Eigen::Matrix3d C = Eigen::Matrix3d::Zero();  // centred scatter
    for (auto const& p : v) C += (vec(p) - mean) * (vec(p) - mean).transpose();
    const Eigen::Matrix3d I = C.trace() * Eigen::Matrix3d::Identity() - C;  // inertia tensor
    auto handRun = [&](int iterations) {
        Vector3d w(1, 1, 1);
        for (int i = 0; i < iterations; ++i) {
            for (int r = 0; r < 10; ++r) w = I * w;
            w.normalize();
        }
        return w;
    };
    struct Case {
        unsigned maxIter;
        double eps;
        int iterations;
    };
    for (Case c : {Case{0u, 0.0, 2}, Case{1u, 0.0, 3}, Case{10u, 0.0, 12}, Case{100u, 1e300, 1}}) {
        SCOPED_TRACE(c.maxIter);
        Cplane3<double> p;
        approximate<double>::fitPlaneGeomFast(v, p, CqPlaneGeomFast<double>(c.maxIter, c.eps));
        EXPECT_LT(sinAngle3(vec(p.normal()), handRun(c.iterations)), 1e-9);
        EXPECT_GT(sinAngle3(vec(p.normal()), handRun(c.iterations + 1)), 1e-6);
    }
    // The defaults stop when L repeats (normal to ~1e-7 here); eps = 0 with
    // enough iterations converges fully.
    Cplane3<double> pd, pz, ref;
    approximate<double>::fitPlaneGeomFast(v, pd, CqPlaneGeomFast<double>());
    approximate<double>::fitPlaneGeomFast(v, pz, CqPlaneGeomFast<double>(2000u, 0.0));
    approximate<double>::fitPlaneGeom(v, ref);
    EXPECT_LT(sinAngle3(vec(pd.normal()), vec(ref.normal())), 1e-6);
    EXPECT_LT(sinAngle3(vec(pz.normal()), vec(ref.normal())), 1e-12);
}

// The start vector (1, 1, 1) is kept: data symmetric under exchanging x and y
// with normal (1, -1, 0)/sqrt(2) keep the iteration in the symmetric subspace
// and give an in-plane direction; fitPlaneGeom finds the normal.
TEST(ApproxGeomFast, StartVectorBlindSpot) {
    V3<double> v;
    for (int i = -5; i <= 5; ++i)
        for (int k = -3; k <= 3; ++k) v.emplace_back(i, i, 2.0 * k);
    Cplane3<double> f, g;
    approximate<double>::fitPlaneGeomFast(v, f, CqPlaneGeomFast<double>());
    approximate<double>::fitPlaneGeom(v, g);
    const Vector3d truth = Vector3d(1, -1, 0).normalized();
    EXPECT_LT(sinAngle3(vec(g.normal()), truth), 1e-12);
    EXPECT_NEAR(vec(f.normal()).dot(truth), 0.0, 1e-12);
}

// A NaN or infinite coordinate, or coordinates whose squares overflow: the
// NaN-invalid primitive and record, never an exception; the power iteration
// ends even with maxIter = 2^32 - 1.
TEST(ApproxGeomBadInput, NonFinitePoints) {
    for (double bad : {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(), 1e200}) {
        SCOPED_TRACE(bad);
        const double s = bad == 1e200 ? 1e200 : 1.0;  // squares beyond the double range
        const V2<double> v2{{0, 0}, {1, 2}, {bad, 1}, {3, 1}, {2, 5}};
        const V3<double> v3{{0, 0, 0}, {s, 2 * s, 3 * s}, {bad * s, s, 2 * s}, {3 * s, s, 0}, {2 * s, 5 * s, s}};
        Cline2<double> l2;
        Cline3<double> l3, l3r;
        Cplane3<double> pl, plr, pf;
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
        approximate<double>::fitPlaneGeomFast(v3, pf, CqPlaneGeomFast<double>(0xFFFFFFFFu, 0.0));
        EXPECT_FALSE(l3.isValid() || l3r.isValid() || pl.isValid() || plr.isValid() || pf.isValid());
        EXPECT_TRUE(std::isnan(r3.stdAbwMain) && std::isnan(rp.stdAbwNormal));
    }
}
