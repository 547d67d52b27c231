// Mergeable moment sums: merged sums give the fit of the whole set, whatever
// the partition and merge order, far from the origin too; the fits from sums
// agree with the fits over points; the byte form round-trips and refuses
// damaged buffers.
#include <math/approximate.h>
#include <math/errors.h>
#include <math/moments.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>
#include <vector>

using namespace math;

namespace {

double rel(double a, double b) { return std::fabs(a - b) / std::max(1.0, std::fabs(b)); }

// Noisy points of a circle arc and of a tilted sphere cap / plane patch, offset.
std::vector<Cpoint2<double>> circlePts(std::mt19937& g, std::size_t n, double off) {
    std::normal_distribution<double> e(0, 1e-3);
    std::uniform_real_distribution<double> a(0, 2.0);
    std::vector<Cpoint2<double>> p;
    for (std::size_t i = 0; i < n; ++i) {
        const double t = a(g);
        p.emplace_back(off + 3 + 10 * std::cos(t) + e(g), off - 7 + 10 * std::sin(t) + e(g));
    }
    return p;
}
std::vector<Cpoint3<double>> spherePts(std::mt19937& g, std::size_t n, double off, double flat,
                                       double noise = 1e-3) {
    std::normal_distribution<double> e(0, noise);
    std::uniform_real_distribution<double> a(-1.2, 1.2);
    std::vector<Cpoint3<double>> p;
    for (std::size_t i = 0; i < n; ++i) {
        const double th = a(g), ph = a(g);
        const double x = 20 * std::sin(th) * std::cos(ph), y = 20 * std::sin(th) * std::sin(ph);
        const double z = flat * 20 * std::cos(th);
        const double c = std::cos(0.3), sn = std::sin(0.3);  // tilted about the y axis
        p.emplace_back(off + c * x + sn * z + e(g), off - y + e(g), off + c * z - sn * x + e(g));
    }
    return p;
}

// Sums of pts split at random cut points, merged in a random tree order.
template <class S, class P>
S mergedRandomly(std::vector<P> const& pts, std::mt19937& g) {
    std::uniform_int_distribution<std::size_t> cut(0, pts.size());
    std::vector<std::size_t> cuts{0, pts.size(), cut(g), cut(g), cut(g), cut(g)};
    std::sort(cuts.begin(), cuts.end());
    std::vector<S> parts;
    for (std::size_t k = 0; k + 1 < cuts.size(); ++k) {
        S s;
        s.add(pts.data() + cuts[k], cuts[k + 1] - cuts[k]);
        parts.push_back(s);
    }
    while (parts.size() > 1) {
        std::uniform_int_distribution<std::size_t> pick(0, parts.size() - 1);
        const std::size_t i = pick(g);
        std::size_t j = pick(g);
        if (i == j) j = (i + 1) % parts.size();
        parts[i] += parts[j];
        parts.erase(parts.begin() + static_cast<std::ptrdiff_t>(j));
    }
    return parts[0];
}

}  // namespace

TEST(MomentSums, MergedEqualsWholeForAnyPartitionAndOrder) {
    std::mt19937 g(7);
    for (double off : {0.0, 1e6}) {
        SCOPED_TRACE(off);
        const auto p2 = circlePts(g, 5000, off);
        const auto p3 = spherePts(g, 5000, off, 1.0);
        CmomentSums2<double> w2;
        w2.add(p2);
        CmomentSums3<double> w3;
        w3.add(p3);
        Ccircle2<double> cw;
        Cline2<double> lw;
        Csphere3<double> sw;
        Cplane3<double> ew;
        Cline3<double> l3w;
        approximate<double>::fitCircleLsq(w2, cw);
        approximate<double>::fitLineGeom(w2, lw);
        approximate<double>::fitSphereLsq(w3, sw);
        approximate<double>::fitPlaneGeom(w3, ew);
        approximate<double>::fitLineGeom(w3, l3w);
        ASSERT_TRUE(cw.isValid() && sw.isValid());
        for (int trial = 0; trial < 20; ++trial) {
            const auto m2 = mergedRandomly<CmomentSums2<double>>(p2, g);
            const auto m3 = mergedRandomly<CmomentSums3<double>>(p3, g);
            ASSERT_EQ(m2.count(), p2.size());
            Ccircle2<double> c;
            Cline2<double> l;
            Csphere3<double> s;
            Cplane3<double> e;
            Cline3<double> l3;
            approximate<double>::fitCircleLsq(m2, c);
            approximate<double>::fitLineGeom(m2, l);
            approximate<double>::fitSphereLsq(m3, s);
            approximate<double>::fitPlaneGeom(m3, e);
            approximate<double>::fitLineGeom(m3, l3);
            EXPECT_LT(rel(c.center().x, cw.center().x), 1e-12);
            EXPECT_LT(rel(c.center().y, cw.center().y), 1e-12);
            EXPECT_LT(rel(c.radius(), cw.radius()), 1e-12);
            EXPECT_LT(std::fabs(std::fabs(l.direction().x * lw.direction().x + l.direction().y * lw.direction().y) - 1), 1e-12);
            EXPECT_LT(rel(s.center().x, sw.center().x), 1e-12);
            EXPECT_LT(rel(s.center().z, sw.center().z), 1e-12);
            EXPECT_LT(rel(s.radius(), sw.radius()), 1e-12);
            EXPECT_LT(std::fabs(e.a() * ew.a() + e.b() * ew.b() + e.c() * ew.c()) - 1, 1e-12);
            EXPECT_LT(rel(std::fabs(e.d()), std::fabs(ew.d())), 1e-12);
            EXPECT_LT(1 - std::fabs(l3.direction().x * l3w.direction().x + l3.direction().y * l3w.direction().y +
                                    l3.direction().z * l3w.direction().z), 1e-12);
        }
    }
}

TEST(MomentSums, FitsFromSumsAgreeWithFitsOverPoints) {
    std::mt19937 g(3);
    const auto p2 = circlePts(g, 2000, 1000.0);
    // The sphere fit over points works on raw coordinates, the one from sums on
    // centred ones: the two algebraic models weight noise differently, so they
    // are compared on exact points (near the origin, where the raw one is exact).
    const auto p3 = spherePts(g, 2000, 0.0, 1.0, 0.0);
    const auto q3 = spherePts(g, 2000, 1500.0, 0.001);  // nearly flat: a plane patch
    CmomentSums2<double> s2;
    s2.add(p2);
    CmomentSums3<double> s3, t3;
    s3.add(p3);
    t3.add(q3);
    Ccircle2<double> a, b;
    approximate<double>::fitCircleLsq(s2, a);
    approximate<double>::fitCircleLsq(p2, b);
    EXPECT_LT(rel(a.center().x, b.center().x), 1e-10);
    EXPECT_LT(rel(a.radius(), b.radius()), 1e-10);
    Csphere3<double> sa, sb;
    approximate<double>::fitSphereLsq(s3, sa);
    approximate<double>::fitSphereLsq(p3, sb);
    EXPECT_LT(rel(sa.center().y, sb.center().y), 1e-10);
    EXPECT_LT(rel(sa.radius(), std::fabs(sb.radius())), 1e-10);
    Cplane3<double> ea, eb;
    approximate<double>::fitPlaneGeom(t3, ea);
    approximate<double>::fitPlaneGeom(q3, eb);
    const double dot = ea.a() * eb.a() + ea.b() * eb.b() + ea.c() * eb.c();
    EXPECT_GT(std::fabs(dot), 1 - 1e-12);
    EXPECT_LT(rel(ea.d() * (dot > 0 ? 1 : -1), eb.d()), 1e-10);
    Cline3<double> la, lb;
    approximate<double>::fitLineGeom(t3, la);
    approximate<double>::fitLineGeom(q3, lb);
    EXPECT_NEAR(la.point().x, lb.point().x, 1e-9);
    Cline2<double> ma, mb;
    approximate<double>::fitLineGeom(s2, ma);
    approximate<double>::fitLineGeom(p2, mb);
    EXPECT_GT(std::fabs(ma.direction().x * mb.direction().x + ma.direction().y * mb.direction().y), 1 - 1e-12);

    // Float points: double sums, the same answer as the double points.
    std::vector<Cpoint2<float>> f2;
    for (auto const& p : p2) f2.emplace_back(static_cast<float>(p.x), static_cast<float>(p.y));
    CmomentSums2<float> sf;
    sf.add(f2);
    Ccircle2<float> cf;
    approximate<float>::fitCircleLsq(sf, cf);
    EXPECT_NEAR(cf.radius(), a.radius(), 1e-3);
}

TEST(MomentSums, StridedReadEqualsPointReadBitForBit) {
    std::mt19937 g(5);
    const auto p3 = spherePts(g, 3000, 50.0, 1.0);
    // Column-major copy: coordinate k of point i at k * n + i.
    std::vector<double> cm(3 * p3.size());
    for (std::size_t i = 0; i < p3.size(); ++i) {
        cm[i] = p3[i].x;
        cm[p3.size() + i] = p3[i].y;
        cm[2 * p3.size() + i] = p3[i].z;
    }
    CmomentSums3<double> a, b;
    a.add(p3);
    b.add(cm.data(), p3.size(), 1, static_cast<std::ptrdiff_t>(p3.size()));
    EXPECT_EQ(a.toBytes(), b.toBytes());
    EXPECT_EQ(a.count(), 3000u);
    EXPECT_EQ(a.reference().x, p3[0].x);
}

TEST(MomentSums, ByteFormRoundTripsAndRefusesDamage) {
    std::mt19937 g(9);
    const auto p2 = circlePts(g, 100, 1e5);
    CmomentSums2<double> s;
    s.add(p2);
    const auto bytes = s.toBytes();
    ASSERT_EQ(bytes.size(), CmomentSums2<double>::kBytes);
    EXPECT_EQ(bytes[0], 1);
    EXPECT_EQ(bytes[1], 2);
    EXPECT_EQ(bytes[8], 100);  // n, little-endian
    const auto back = CmomentSums2<double>::fromBytes(bytes);
    EXPECT_EQ(back.toBytes(), bytes);
    EXPECT_EQ(back.count(), 100u);
    // A float accumulator reads the same layout; a spatial one refuses it.
    EXPECT_EQ(CmomentSums2<float>::fromBytes(bytes).count(), 100u);
    EXPECT_THROW(CmomentSums3<double>::fromBytes(bytes), CthrowMath);
    // Every single-bit flip and every truncation is refused.
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        auto d = bytes;
        d[i] ^= static_cast<std::uint8_t>(1u << (i % 8));
        try {
            (void)CmomentSums2<double>::fromBytes(d);
            ADD_FAILURE() << "flip at byte " << i << " accepted";
        } catch (CthrowMath const& e) {
            EXPECT_EQ(e.id(), CthrowMath::ERR_MATH_INVALID_ARGUMENT);
        }
    }
    for (std::size_t len = 0; len < bytes.size(); ++len)
        EXPECT_THROW(CmomentSums2<double>::fromBytes(bytes.data(), len), CthrowMath) << len;
    EXPECT_THROW(CmomentSums2<double>::fromBytes(nullptr, bytes.size()), CthrowMath);
}

TEST(MomentSums, DegenerateAndNonFiniteSetsGiveInvalidFits) {
    CmomentSums2<double> empty, line, one;
    Ccircle2<double> c;
    Cline2<double> l;
    approximate<double>::fitCircleLsq(empty, c);
    EXPECT_FALSE(c.isValid());
    approximate<double>::fitLineGeom(empty, l);
    EXPECT_FALSE(l.isValid());
    EXPECT_TRUE(std::isnan(empty.centroid().x));
    for (int i = 0; i <= 4; ++i) line.add(Cpoint2<double>(i, i));
    approximate<double>::fitCircleLsq(line, c);  // collinear: rank-deficient system
    EXPECT_FALSE(c.isValid());
    approximate<double>::fitLineGeom(line, l);
    EXPECT_NEAR(std::fabs(l.direction().x), std::sqrt(0.5), 1e-15);
    for (int i = 0; i < 10; ++i) one.add(Cpoint2<double>(3, 4));
    approximate<double>::fitCircleLsq(one, c);
    EXPECT_FALSE(c.isValid());

    CmomentSums3<double> flat, bad;
    for (int i = 0; i < 5; ++i)
        for (int j = 0; j < 5; ++j) flat.add(Cpoint3<double>(i, j, 2));
    Csphere3<double> s;
    approximate<double>::fitSphereLsq(flat, s);  // coplanar: no sphere
    EXPECT_FALSE(s.isValid());
    Cplane3<double> e;
    approximate<double>::fitPlaneGeom(flat, e);
    EXPECT_NEAR(std::fabs(e.c()), 1.0, 1e-15);
    EXPECT_NEAR(e.d() * e.c(), -2.0, 1e-13);
    bad = flat;
    bad.add(Cpoint3<double>(1, quietNaN<double>(), 0));
    EXPECT_FALSE(bad.isFinite());
    approximate<double>::fitPlaneGeom(bad, e);
    EXPECT_FALSE(e.isValid());
    approximate<double>::fitSphereLsq(bad, s);
    EXPECT_FALSE(s.isValid());
    // Merging into itself doubles every sum.
    CmomentSums3<double> twice = flat;
    twice.merge(twice);
    EXPECT_EQ(twice.count(), 50u);
    EXPECT_DOUBLE_EQ(twice.sum(3), 2 * flat.sum(3));
}
