// Tests of the iterative geometric circle, sphere and cylinder fits.  Oracles:
// exact synthetic features (any offset, arbitrary rotation), the published
// Gander-Golub-Strebel circle, reference data built by the null-space method
// (deviations along the normals orthogonal to the Jacobian's columns, so the
// chosen feature is the exact least-squares answer), and the spread of the
// fitted parameters over many noisy samples.
#include <math/approximate.h>

#include "approximate_test_util.h"

#include <gtest/gtest.h>

#include <Eigen/Dense>

#include <cmath>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

using namespace math;
using namespace approx_test;
using Eigen::Vector3d;

namespace {

const double kPi = 3.14159265358979323846;

Eigen::Matrix3d rotation(unsigned seed) {
    std::mt19937_64 rng(seed);
    std::normal_distribution<double> g;
    Eigen::Quaterniond q(g(rng), g(rng), g(rng), g(rng));
    return q.normalized().toRotationMatrix();
}

template <class T>
Vector3d vec(Cpoint3<T> const& p) {
    return Vector3d(p.x, p.y, p.z);
}
template <class T>
Cpoint3<T> pt3(Vector3d const& v) {
    return Cpoint3<T>(static_cast<T>(v.x()), static_cast<T>(v.y()), static_cast<T>(v.z()));
}

// |sin| of the angle between two lines' directions.
double sinAngle(Vector3d const& a, Vector3d const& b) { return a.cross(b).norm() / (a.norm() * b.norm()); }

// Distance between a point and a line.
double lineDist(Vector3d const& p, Vector3d const& a, Vector3d const& d) {
    return (p - a).cross(d.normalized()).norm();
}

template <class T>
class GeomFit : public ::testing::Test {};
using Types = ::testing::Types<double, float>;
TYPED_TEST_SUITE(GeomFit, Types);

// ---------------------------------------------------------------------------
// Exact data
// ---------------------------------------------------------------------------

struct ExactCase {
    const char* name;
    double span;    // arc (degrees) of circles / cap half-angle of spheres / arc of cylinders
    double length;  // cylinder length in radii
    double offset;
    unsigned rot;   // 0: no rotation
};

const ExactCase kExact[] = {
    {"full", 360, 2, 0, 0},         {"full far", 360, 2, 1e6, 3},   {"30deg", 30, 2, 0, 5},
    {"30deg far", 30, 2, 1e6, 7},   {"10deg", 10, 1, 0, 0},         {"10deg far", 10, 1, 1e6, 11},
    {"short wide", 360, 0.1, 0, 13}, {"short wide far", 360, 0.1, 1e6, 17}, {"20deg cyl", 20, 3, 1e6, 19},
};

TYPED_TEST(GeomFit, ExactCirclesSpheresCylindersAtAnyOffset) {
    using T = TypeParam;
    const bool isF = std::is_same<T, float>::value;
    const double R = 100.0;
    for (ExactCase const& c : kExact) {
        if (isF && c.offset != 0.0) continue;
        SCOPED_TRACE(c.name);
        const double tol = isF ? 1e-4 : 1e-9;
        const double a0 = 0.3, span = c.span * kPi / 180.0;
        const Eigen::Matrix3d Q = c.rot ? rotation(c.rot) : Eigen::Matrix3d::Identity();
        const Vector3d C = Vector3d(c.offset + 12.5, -c.offset + 3.25, 0.5 * c.offset - 7.0);
        const int n = 60;
        // planar circle (rotation in the plane from Q's angle)
        {
            const double phi = std::atan2(Q(1, 0), Q(0, 0));
            V2<T> p;
            for (int i = 0; i < n; ++i) {
                const double t = a0 + phi + span * i / (c.span == 360 ? n : n - 1);
                p.emplace_back(static_cast<T>(C.x() + R * std::cos(t)), static_cast<T>(C.y() + R * std::sin(t)));
            }
            Ccircle2<T> k;
            CqCircleGeomStdAbw<T> rec;
            approximate<T>::fitCircleGeom(p, k, rec);
            ASSERT_TRUE(rec.converged);
            EXPECT_LE(rec.iterations, 12u);
            EXPECT_NEAR((k.center().x - C.x()) / R, 0.0, tol);
            EXPECT_NEAR((k.center().y - C.y()) / R, 0.0, tol);
            EXPECT_NEAR(k.radius() / R, 1.0, tol);
        }
        // circle in space, in the plane rotated by Q
        {
            V3<T> p;
            for (int i = 0; i < n; ++i) {
                const double t = a0 + span * i / (c.span == 360 ? n : n - 1);
                p.push_back(pt3<T>(C + Q * Vector3d(R * std::cos(t), R * std::sin(t), 0.0)));
            }
            Ccircle3<T> k;
            CqCircle3GeomStdAbw<T> rec;
            approximate<T>::fitCircleGeom(p, k, rec);
            ASSERT_TRUE(rec.converged);
            EXPECT_LE((vec(k.center()) - C).norm() / R, tol);
            EXPECT_NEAR(k.radius() / R, 1.0, tol);
            const Vector3d nrm(k.plane().a(), k.plane().b(), k.plane().c());
            EXPECT_LE(sinAngle(nrm, Q.col(2)), tol);
            EXPECT_NEAR(nrm.dot(vec(k.center())) + k.plane().d(), 0.0, tol * (R + c.offset));
        }
        // sphere: cap of half-angle span/2 about Q's z axis (full sphere for 360)
        {
            V3<T> p;
            const double cap = c.span == 360 ? kPi : span / 2;
            for (int i = 0; i < n; ++i) {
                const double th = cap * std::sqrt((i + 0.5) / n), ph = 2.399963 * i;
                p.push_back(pt3<T>(C + Q * (R * Vector3d(std::sin(th) * std::cos(ph), std::sin(th) * std::sin(ph),
                                                         std::cos(th)))));
            }
            Csphere3<T> s;
            CqSphereGeomStdAbw<T> rec;
            approximate<T>::fitSphereGeom(p, s, rec);
            ASSERT_TRUE(rec.converged);
            EXPECT_LE((vec(s.center()) - C).norm() / R, tol);
            EXPECT_NEAR(s.radius() / R, 1.0, tol);
        }
        // cylinder: arc span, length c.length * R, axis Q's z
        {
            V3<T> p;
            const double L = c.length * R;
            for (int i = 0; i < n; ++i) {
                const double t = a0 + span * ((i * 7) % n) / n, z = L * (double(i) / (n - 1) - 0.5);
                p.push_back(pt3<T>(C + Q * Vector3d(R * std::cos(t), R * std::sin(t), z)));
            }
            Ccylinder3<T> cy;
            CqCylinderGeomStdAbw<T> rec;
            approximate<T>::fitCylinderGeom(p, cy, rec);
            ASSERT_TRUE(rec.converged);
            const Vector3d d(cy.axis().direction().x, cy.axis().direction().y, cy.axis().direction().z);
            EXPECT_LE(sinAngle(d, Q.col(2)), tol);
            EXPECT_LE(lineDist(C, vec(cy.axis().point()), d) / R, tol);
            EXPECT_NEAR(cy.radius() / R, 1.0, tol);
            // the axis point is the foot of the perpendicular from the centroid
            Vector3d m = Vector3d::Zero();
            for (auto const& q : p) m += vec(q);
            m /= n;
            EXPECT_NEAR((m - vec(cy.axis().point())).dot(d) / R, 0.0, tol);
        }
    }
}

// ---------------------------------------------------------------------------
// Published data and the optimality condition r = mean distance
// ---------------------------------------------------------------------------

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
        mean += d / 6;
        ss += (d - k.radius()) * (d - k.radius());
    }
    EXPECT_NEAR(k.radius(), mean, tolOf<T>(1e-13, 1e-5));
    EXPECT_LE(rec.iterations, 30u);
    EXPECT_NEAR(rec.sumSqDist, ss, tolOf<T>(1e-12, 1e-5));
    EXPECT_NEAR(rec.stdAbw, std::sqrt(ss / 3), tolOf<T>(1e-12, 1e-5));
    EXPECT_GT(rec.uRadius, 0);
}

// ---------------------------------------------------------------------------
// Null-space reference data, moved 1000 mm out and rotated
// ---------------------------------------------------------------------------

// Removes from e its components along the columns of J (Gram-Schmidt, twice).
Eigen::VectorXd nullSpace(Eigen::MatrixXd const& J, Eigen::VectorXd e) {
    Eigen::HouseholderQR<Eigen::MatrixXd> qr(J);
    const Eigen::MatrixXd Qm = qr.householderQ() * Eigen::MatrixXd::Identity(J.rows(), J.cols());
    for (int k = 0; k < 2; ++k) e -= Qm * (Qm.transpose() * e);
    return e;
}

TEST(GeomFitReference, NullSpaceDataFarOutAndRotated) {
    std::mt19937_64 rng(42);
    std::normal_distribution<double> g(0.0, 0.01);
    const int n = 40;
    const Eigen::Matrix3d Q = rotation(99);
    const Vector3d off(1000, 1000, 1000);
    const double R = 25.0, tol = 1e-9;
    // circle: residual columns cos, sin, 1
    {
        Eigen::MatrixXd J(n, 3);
        Eigen::VectorXd e(n);
        std::vector<double> t(n);
        for (int i = 0; i < n; ++i) {
            t[i] = 0.2 + 1.6 * i / (n - 1);  // a 92 degree arc
            J.row(i) << std::cos(t[i]), std::sin(t[i]), 1.0;
            e(i) = g(rng);
        }
        e = nullSpace(J, e);
        const double phi = 0.7;
        V2<double> p;
        for (int i = 0; i < n; ++i) {
            const double rr = R + e(i), tt = t[i] + phi;
            p.emplace_back(1000 + rr * std::cos(tt), 1000 + rr * std::sin(tt));
        }
        Ccircle2<double> k;
        CqCircleGeomStdAbw<double> rec;
        approximate<double>::fitCircleGeom(p, k, rec);
        ASSERT_TRUE(rec.converged);
        EXPECT_NEAR(k.center().x, 1000, tol * R);
        EXPECT_NEAR(k.center().y, 1000, tol * R);
        EXPECT_NEAR(k.radius(), R, tol * R);
        EXPECT_NEAR(rec.sumSqDist, e.squaredNorm(), 1e-9 * e.squaredNorm());
    }
    // sphere: columns the unit normal's components and 1
    {
        Eigen::MatrixXd J(n, 4);
        Eigen::VectorXd e(n);
        std::vector<Vector3d> nv(n);
        for (int i = 0; i < n; ++i) {
            const double th = 1.0 * std::sqrt((i + 0.5) / n), ph = 2.399963 * i;  // 57 degree cap
            nv[i] = Vector3d(std::sin(th) * std::cos(ph), std::sin(th) * std::sin(ph), std::cos(th));
            J.row(i) << nv[i].x(), nv[i].y(), nv[i].z(), 1.0;
            e(i) = g(rng);
        }
        e = nullSpace(J, e);
        V3<double> p;
        for (int i = 0; i < n; ++i) p.push_back(pt3<double>(off + Q * ((R + e(i)) * nv[i])));
        Csphere3<double> s;
        CqSphereGeomStdAbw<double> rec;
        approximate<double>::fitSphereGeom(p, s, rec);
        ASSERT_TRUE(rec.converged);
        EXPECT_LE((vec(s.center()) - off).norm(), tol * R);
        EXPECT_NEAR(s.radius(), R, tol * R);
    }
    // circle in space: point i deviates by e_i along (cos b_i) radial + (sin b_i) normal;
    // the gradient of the sum of squares is linear in e with these columns
    {
        Eigen::MatrixXd J(n, 6);
        Eigen::VectorXd e(n);
        std::vector<double> t(n), b(n);
        for (int i = 0; i < n; ++i) {
            t[i] = 2.2 * i / (n - 1);  // a 126 degree arc
            b[i] = 0.9 * std::sin(3.0 * i);
            const double cb = std::cos(b[i]), sb = std::sin(b[i]);
            J.row(i) << cb * std::cos(t[i]), cb * std::sin(t[i]), sb, sb * std::cos(t[i]), sb * std::sin(t[i]), cb;
            e(i) = g(rng);
        }
        e = nullSpace(J, e);
        V3<double> p;
        for (int i = 0; i < n; ++i) {
            const double rr = R + e(i) * std::cos(b[i]);
            p.push_back(pt3<double>(off + Q * Vector3d(rr * std::cos(t[i]), rr * std::sin(t[i]), e(i) * std::sin(b[i]))));
        }
        Ccircle3<double> k;
        CqCircle3GeomStdAbw<double> rec;
        approximate<double>::fitCircleGeom(p, k, rec);
        ASSERT_TRUE(rec.converged);
        EXPECT_LE((vec(k.center()) - off).norm(), tol * R);
        EXPECT_NEAR(k.radius(), R, tol * R);
        EXPECT_LE(sinAngle(Vector3d(k.plane().a(), k.plane().b(), k.plane().c()), Q.col(2)), tol);
        EXPECT_NEAR(rec.sumSqDist, e.squaredNorm(), 1e-9 * e.squaredNorm());
    }
    // cylinder: columns cos, sin, z cos, z sin, 1
    {
        Eigen::MatrixXd J(n, 5);
        Eigen::VectorXd e(n);
        std::vector<double> t(n), z(n);
        for (int i = 0; i < n; ++i) {
            t[i] = 2.0 * ((i * 13) % n) / n;  // a 115 degree arc
            z[i] = 60.0 * i / (n - 1);
            J.row(i) << std::cos(t[i]), std::sin(t[i]), z[i] * std::cos(t[i]), z[i] * std::sin(t[i]), 1.0;
            e(i) = g(rng);
        }
        e = nullSpace(J, e);
        V3<double> p;
        for (int i = 0; i < n; ++i)
            p.push_back(pt3<double>(off + Q * Vector3d((R + e(i)) * std::cos(t[i]), (R + e(i)) * std::sin(t[i]), z[i])));
        Ccylinder3<double> cy;
        CqCylinderGeomStdAbw<double> rec;
        approximate<double>::fitCylinderGeom(p, cy, rec);
        ASSERT_TRUE(rec.converged);
        const Vector3d d(cy.axis().direction().x, cy.axis().direction().y, cy.axis().direction().z);
        EXPECT_LE(sinAngle(d, Q.col(2)), tol);
        EXPECT_LE(lineDist(off, vec(cy.axis().point()), d), tol * R);
        EXPECT_NEAR(cy.radius(), R, tol * R);
        EXPECT_NEAR(rec.sumSqDist, e.squaredNorm(), 1e-9 * e.squaredNorm());
    }
}

// ---------------------------------------------------------------------------
// Noise: no radius bias, uncertainties that match the spread
// ---------------------------------------------------------------------------

struct Stat {
    double s = 0, ss = 0, u = 0;
    int n = 0;
    void add(double x, double unc) { s += x, ss += x * x, u += unc, ++n; }
    double mean() const { return s / n; }
    double sd() const { return std::sqrt((ss - s * s / n) / (n - 1)); }
    double meanU() const { return u / n; }
};

TEST(GeomFitNoise, CircleSphereCylinderUnbiasedWithHonestUncertainties) {
    const int seeds = 1000, n = 20;
    const double R = 10.0, sigma = 0.05;
    Stat cr, cx, sr, sx, yr, yp, kr, kn, kz;
    for (int seed = 0; seed < seeds; ++seed) {
        std::mt19937_64 rng(1000 + seed);
        std::normal_distribution<double> g(0.0, sigma);
        V2<double> p2;
        for (int i = 0; i < n; ++i) {
            const double t = 2.0 * i / n, r = R + g(rng);  // a 115 degree arc, noise along the normal
            p2.emplace_back(5 + r * std::cos(t), -3 + r * std::sin(t));
        }
        Ccircle2<double> k;
        CqCircleGeomStdAbw<double> rk;
        approximate<double>::fitCircleGeom(p2, k, rk);
        ASSERT_TRUE(rk.converged);
        cr.add(k.radius() - R, rk.uRadius);
        cx.add(k.center().x - 5, rk.uCenterX);
        V3<double> p3, pc, pk;
        for (int i = 0; i < n; ++i) {
            const double tk = 2.0 * i / n, rk = R + g(rng);  // circle in the plane z = 1, height noise
            pk.emplace_back(rk * std::cos(tk), rk * std::sin(tk), 1 + g(rng));
            const double th = 1.2 * std::sqrt((i + 0.5) / n), ph = 2.399963 * i, r = R + g(rng);
            p3.emplace_back(r * std::sin(th) * std::cos(ph), r * std::sin(th) * std::sin(ph), r * std::cos(th));
            const double t = 2.5 * ((i * 7) % n) / n, rc = R + g(rng);
            pc.emplace_back(rc * std::cos(t), rc * std::sin(t), 30.0 * i / n);
        }
        Ccircle3<double> k3;
        CqCircle3GeomStdAbw<double> r3;
        approximate<double>::fitCircleGeom(pk, k3, r3);
        ASSERT_TRUE(r3.converged);
        kr.add(k3.radius() - R, r3.uRadius);
        kn.add(k3.plane().a(), r3.uNormalX);
        kz.add(k3.center().z, r3.uCenterZ);
        Csphere3<double> s;
        CqSphereGeomStdAbw<double> rs;
        approximate<double>::fitSphereGeom(p3, s, rs);
        ASSERT_TRUE(rs.converged);
        sr.add(s.radius() - R, rs.uRadius);
        sx.add(s.center().x, rs.uCenterX);
        Ccylinder3<double> cy;
        CqCylinderGeomStdAbw<double> ry;
        approximate<double>::fitCylinderGeom(pc, cy, ry);
        ASSERT_TRUE(ry.converged);
        yr.add(cy.radius() - R, ry.uRadius);
        yp.add(cy.axis().direction().x * (cy.axis().direction().z < 0 ? -1 : 1), ry.uDirX);
    }
    const double bound = 3 * sigma / std::sqrt(double(n));
    for (Stat const* st : {&cr, &sr, &yr, &kr}) {
        EXPECT_LT(std::fabs(st->mean()), bound);
        EXPECT_LT(std::fabs(st->mean()), 4 * st->sd() / std::sqrt(double(seeds)));  // within 4 standard errors
    }
    for (Stat const* st : {&cr, &cx, &sr, &sx, &yr, &yp, &kr, &kn, &kz}) EXPECT_NEAR(st->meanU() / st->sd(), 1.0, 0.2);
    const char* names[] = {"circle_r", "circle_cx", "sphere_r", "sphere_cx", "cyl_r", "cyl_dirx", "circle3_r",
                           "circle3_nx", "circle3_cz"};
    const Stat* stats[] = {&cr, &cx, &sr, &sx, &yr, &yp, &kr, &kn, &kz};
    for (int k = 0; k < 9; ++k) {
        RecordProperty(std::string(names[k]) + "_mean_over_se",
                       sci(stats[k]->mean() / (stats[k]->sd() / std::sqrt(double(seeds)))));
        RecordProperty(std::string(names[k]) + "_u_over_spread", sci(stats[k]->meanU() / stats[k]->sd()));
    }
}

// ---------------------------------------------------------------------------
// Fixed radius
// ---------------------------------------------------------------------------

TYPED_TEST(GeomFit, RfixPicksTheFreeFitsSideAndIsOptimal) {
    using T = TypeParam;
    const double R = 50.0;
    for (double rf : {50.0, 60.0, 45.0}) {
        SCOPED_TRACE(rf);
        V2<T> p;
        V3<T> p3, pc;
        for (int i = 0; i < 30; ++i) {
            const double t = 1.0 + (kPi / 6) * i / 29;  // 30 degree arc, centre at (10, 20)
            p.emplace_back(static_cast<T>(10 + R * std::cos(t)), static_cast<T>(20 + R * std::sin(t)));
            p3.emplace_back(static_cast<T>(10 + R * std::cos(t)), static_cast<T>(20 + R * std::sin(t)), T(5));
            for (double z : {0.0, 10.0, 20.0})  // mirror-symmetric heights: no tilt
                pc.emplace_back(static_cast<T>(10 + R * std::cos(t)), static_cast<T>(20 + R * std::sin(t)),
                                static_cast<T>(z));
        }
        Ccircle2<T> k;
        CqCircleGeomStdAbw<T> rec;
        approximate<T>::fitCircleGeomRfix(p, static_cast<T>(rf), k, rec);
        ASSERT_TRUE(rec.converged);
        EXPECT_EQ(k.radius(), static_cast<T>(rf));
        EXPECT_EQ(rec.uRadius, T(0));
        // same side as the true centre: towards (10, 20) from the arc
        const double mx = 10 + R * std::cos(1.0 + kPi / 12), my = 20 + R * std::sin(1.0 + kPi / 12);
        EXPECT_GT((k.center().x - mx) * (10 - mx) + (k.center().y - my) * (20 - my), 0);
        // optimality: sum (d_i) * unit(p_i - c) = 0
        double gx = 0, gy = 0, ss = 0;
        for (auto const& q : p) {
            const double dx = q.x - k.center().x, dy = q.y - k.center().y, d = std::hypot(dx, dy);
            gx += (d - rf) * dx / d, gy += (d - rf) * dy / d, ss += (d - rf) * (d - rf);
        }
        EXPECT_NEAR(gx / 30, 0, tolOf<T>(1e-10, 1e-3));
        EXPECT_NEAR(gy / 30, 0, tolOf<T>(1e-10, 1e-3));
        if (rf == R) {
            EXPECT_NEAR(k.center().x, 10, tolOf<T>(1e-9, 1e-3));
        }
        Ccircle3<T> k3;
        approximate<T>::fitCircleGeomRfix(p3, static_cast<T>(rf), k3);
        ASSERT_TRUE(k3.isValid());
        EXPECT_NEAR(k3.center().x, k.center().x, tolOf<T>(1e-8, 1e-2));
        EXPECT_NEAR(k3.center().y, k.center().y, tolOf<T>(1e-8, 1e-2));
        EXPECT_NEAR(k3.center().z, 5, tolOf<T>(1e-8, 1e-3));
        Ccylinder3<T> cy;
        approximate<T>::fitCylinderGeomRfix(pc, static_cast<T>(rf), cy);
        ASSERT_TRUE(cy.isValid());
        EXPECT_EQ(cy.radius(), static_cast<T>(rf));
        EXPECT_NEAR(cy.axis().point().x, k.center().x, tolOf<T>(1e-7, 1e-2));
        EXPECT_NEAR(cy.axis().point().y, k.center().y, tolOf<T>(1e-7, 1e-2));
        Csphere3<T> s;
        V3<T> ps;
        for (int i = 0; i < 30; ++i) {
            const double th = 0.5 * std::sqrt((i + 0.5) / 30), ph = 2.399963 * i;
            ps.emplace_back(static_cast<T>(R * std::sin(th) * std::cos(ph)), static_cast<T>(R * std::sin(th) * std::sin(ph)),
                            static_cast<T>(R * std::cos(th)));
        }
        approximate<T>::fitSphereGeomRfix(ps, static_cast<T>(rf), s);
        ASSERT_TRUE(s.isValid());
        EXPECT_LT(s.center().z, 50 * std::cos(0.5));  // below the cap, as the free centre
        EXPECT_EQ(s.radius(), static_cast<T>(rf));
        if (rf == R) {
            EXPECT_NEAR(s.center().x, 0, tolOf<T>(1e-9, 1e-3));
        }
    }
}

// ---------------------------------------------------------------------------
// A caller's start cylinder
// ---------------------------------------------------------------------------

TYPED_TEST(GeomFit, CylinderFromNominalAxisKeepsItsSign) {
    using T = TypeParam;
    V3<T> p;
    for (int i = 0; i < 50; ++i) {
        const double t = 0.4 * i, z = 2.0 * i;
        p.emplace_back(static_cast<T>(100 + 8 * std::cos(t)), static_cast<T>(200 + 8 * std::sin(t)), static_cast<T>(z));
    }
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
    std::vector<double> d;
    const Vector3d a(1, 2, 3), w = Vector3d(1, 1, 0).normalized();
    for (int i = 0; i < 25; ++i) {
        p.emplace_back(u(rng), u(rng), u(rng));
        d.push_back(lineDist(vec(p.back()), a, w));
    }
    double m = 0, s = 0;
    for (double x : d) m += x / 25;
    for (double x : d) s += (x - m) * (x - m);
    const Ccylinder3<double> cy(Cline3<double>(pt3<double>(a), Cdirec3<double>(1, 1, 0)), 1e9);
    EXPECT_NEAR(approximate<double>::StdAbwCylinder(p, cy), std::sqrt(s / 24), 1e-12);
    EXPECT_TRUE(std::isnan(approximate<double>::StdAbwCylinder(p, Ccylinder3<double>())));
}

// ---------------------------------------------------------------------------
// Refused input
// ---------------------------------------------------------------------------

TYPED_TEST(GeomFit, BadInputGivesInvalidResultsAndSaysWhy) {
    using T = TypeParam;
    const T nan = quietNaN<T>(), inf = std::numeric_limits<T>::infinity();
    struct Case {
        const char* name;
        V3<T> p;
        bool circleOk;  // a planar circle through the (x, y) is defined
    };
    V3<T> ring, line, plane, coinc;
    for (int i = 0; i < 12; ++i) {
        ring.emplace_back(static_cast<T>(std::cos(i * 0.5)), static_cast<T>(std::sin(i * 0.5)), T(0));
        line.emplace_back(static_cast<T>(i), static_cast<T>(2 * i), static_cast<T>(3 * i));
        plane.emplace_back(static_cast<T>(i % 4), static_cast<T>(i / 4), T(0.5) * static_cast<T>(i % 4));
        coinc.emplace_back(T(3), T(4), T(5));
    }
    V3<T> withNaN = ring, withInf = ring;
    withNaN[5].y = nan;
    withInf[7].x = inf;
    const Case cases[] = {{"empty", {}, false},      {"two", V3<T>(ring.begin(), ring.begin() + 2), false},
                          {"coincident", coinc, false}, {"collinear", line, false},
                          {"NaN", withNaN, false},   {"inf", withInf, false}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        V2<T> p2;
        for (auto const& q : c.p) p2.emplace_back(q.x, q.y);
        Ccircle2<T> k;
        CqCircleGeomStdAbw<T> rk;
        approximate<T>::fitCircleGeom(p2, k, rk);
        EXPECT_FALSE(k.isValid());
        EXPECT_FALSE(rk.converged);
        EXPECT_TRUE(std::isnan(rk.stdAbw) && std::isnan(rk.uRadius));
        Ccircle3<T> k3;
        CqCircle3GeomStdAbw<T> r3;
        approximate<T>::fitCircleGeom(c.p, k3, r3);
        EXPECT_FALSE(k3.isValid());
        EXPECT_FALSE(r3.converged);
        Csphere3<T> s;
        CqSphereGeomStdAbw<T> rs;
        approximate<T>::fitSphereGeom(c.p, s, rs);
        EXPECT_FALSE(s.isValid());
        EXPECT_FALSE(rs.converged);
        EXPECT_EQ(rs.iterations, 0u);  // refused before iterating
        Ccylinder3<T> cy;
        CqCylinderGeomStdAbw<T> ry;
        approximate<T>::fitCylinderGeom(c.p, cy, ry);
        EXPECT_FALSE(cy.isValid());
        EXPECT_FALSE(ry.converged);
        approximate<T>::fitCylinderGeomRfix(c.p, T(1), cy);
        EXPECT_FALSE(cy.isValid());
        approximate<T>::fitCircleGeomRfix(p2, T(1), k);
        EXPECT_FALSE(k.isValid());
    }
    // coplanar points: no sphere
    Csphere3<T> s;
    CqSphereGeomStdAbw<T> rs;
    approximate<T>::fitSphereGeom(ring, s, rs);
    EXPECT_FALSE(s.isValid());
    approximate<T>::fitSphereGeom(plane, s, rs);
    EXPECT_FALSE(s.isValid());
    // bad fixed radius
    V2<T> r2;
    for (auto const& q : ring) r2.emplace_back(q.x, q.y);
    Ccircle2<T> k;
    for (T bad : {T(0), T(-1), nan, inf}) {
        approximate<T>::fitCircleGeomRfix(r2, bad, k);
        EXPECT_FALSE(k.isValid());
        approximate<T>::fitSphereGeomRfix(ring, bad, s);
        EXPECT_FALSE(s.isValid());
    }
    // too few iterations allowed: not converged, invalid, the count reported
    CqGeomFitPrm<T> prm;
    prm.maxIter = 1;
    r2[3].x += T(0.01);
    CqCircleGeomStdAbw<T> rk;
    approximate<T>::fitCircleGeom(r2, k, rk, prm);
    EXPECT_FALSE(k.isValid());
    EXPECT_FALSE(rk.converged);
    EXPECT_EQ(rk.iterations, 1u);
    // invalid start cylinder
    Ccylinder3<T> cy;
    approximate<T>::fitCylinderGeom(line, Ccylinder3<T>(), cy);
    EXPECT_FALSE(cy.isValid());
    // the ring itself is a fine circle, also in space, and a zero-length cylinder
    Ccircle3<T> k3;
    approximate<T>::fitCircleGeom(ring, k3);
    EXPECT_NEAR(k3.radius(), 1, tolOf<T>(1e-12, 1e-5));
    approximate<T>::fitCylinderGeom(ring, cy);
    EXPECT_NEAR(cy.radius(), 1, tolOf<T>(1e-12, 1e-5));
}

}  // namespace
