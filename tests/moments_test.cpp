// Mergeable moment sums: merged sums give the fit of the whole set, whatever
// the partition and merge order, far from the origin too; the fits from sums
// agree with the fits over points; the strided read gives the same bits; the
// byte form round-trips and refuses damaged buffers.
#include <math/approximate.h>
#include <math/errors.h>
#include <math/moments.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

using namespace math;

namespace {

double rel(double a, double b) { return std::fabs(a - b) / std::max(1.0, std::fabs(b)); }

// Noisy points of a circle arc, and of a tilted sphere cap (flat < 1: a
// nearly flat patch), offset by off in every coordinate.
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
std::vector<Cpoint3<double>> spherePts(std::mt19937& g, std::size_t n, double off, double flat, double noise = 1e-3) {
    std::normal_distribution<double> e(0, noise > 0 ? noise : 1.0);
    std::uniform_real_distribution<double> a(-1.2, 1.2);
    std::vector<Cpoint3<double>> p;
    const double c = std::cos(0.3), sn = std::sin(0.3);
    for (std::size_t i = 0; i < n; ++i) {
        const double th = a(g), ph = a(g), x = 20 * std::sin(th) * std::cos(ph), y = 20 * std::sin(th) * std::sin(ph),
                     z = flat * 20 * std::cos(th), ex = noise > 0 ? e(g) : 0, ey = noise > 0 ? e(g) : 0;
        p.emplace_back(off + c * x + sn * z + ex, off - y + ey, off + c * z - sn * x + (noise > 0 ? e(g) : 0));
    }
    return p;
}

// Sums of pts split at random cut points, merged in a random tree order.
template <class S, class P>
S mergedRandomly(std::vector<P> const& pts, std::mt19937& g) {
    std::uniform_int_distribution<std::size_t> cut(0, pts.size());
    std::vector<std::size_t> cuts{0, pts.size(), cut(g), cut(g), cut(g), cut(g)};
    std::sort(cuts.begin(), cuts.end());
    std::vector<S> parts(cuts.size() - 1);
    for (std::size_t k = 0; k + 1 < cuts.size(); ++k) parts[k].add(pts.data() + cuts[k], cuts[k + 1] - cuts[k]);
    while (parts.size() > 1) {
        std::uniform_int_distribution<std::size_t> pick(0, parts.size() - 1);
        const std::size_t i = pick(g), k = pick(g), j = i == k ? (i + 1) % parts.size() : k;
        parts[i] += parts[j];
        parts.erase(parts.begin() + static_cast<std::ptrdiff_t>(j));
    }
    return parts[0];
}

struct Fits {
    Ccircle2<double> c;
    Cline2<double> l;
    Csphere3<double> s;
    Cplane3<double> e;
    Cline3<double> l3;
    Fits(CmomentSums2<double> const& a, CmomentSums3<double> const& b) {
        approximate<double>::fitCircleLsq(a, c);
        approximate<double>::fitLineGeom(a, l);
        approximate<double>::fitSphereLsq(b, s);
        approximate<double>::fitPlaneGeom(b, e);
        approximate<double>::fitLineGeom(b, l3);
    }
};
double cosLines(Cline3<double> const& a, Cline3<double> const& b) {
    return std::fabs(a.direction().x * b.direction().x + a.direction().y * b.direction().y +
                     a.direction().z * b.direction().z);
}

}  // namespace

TEST(MomentSums, MergedEqualsWholeForAnyPartitionAndOrder) {
    std::mt19937 g(7);
    for (double off : {0.0, 1e6}) {
        SCOPED_TRACE(off);
        const auto p2 = circlePts(g, 5000, off);
        const auto p3 = spherePts(g, 5000, off, 1.0);
        CmomentSums2<double> w2;
        CmomentSums3<double> w3;
        w2.add(p2);
        w3.add(p3);
        const Fits w(w2, w3);
        ASSERT_TRUE(w.c.isValid() && w.s.isValid());
        for (int trial = 0; trial < 20; ++trial) {
            const auto m2 = mergedRandomly<CmomentSums2<double>>(p2, g);
            const auto m3 = mergedRandomly<CmomentSums3<double>>(p3, g);
            ASSERT_EQ(m2.count(), p2.size());
            const Fits m(m2, m3);
            EXPECT_LT(rel(m.c.center().x, w.c.center().x) + rel(m.c.center().y, w.c.center().y), 1e-12);
            EXPECT_LT(rel(m.c.radius(), w.c.radius()), 1e-12);
            EXPECT_LT(1 - std::fabs(m.l.direction().x * w.l.direction().x + m.l.direction().y * w.l.direction().y), 1e-12);
            EXPECT_LT(rel(m.s.center().x, w.s.center().x) + rel(m.s.center().z, w.s.center().z), 1e-12);
            EXPECT_LT(rel(m.s.radius(), w.s.radius()), 1e-12);
            EXPECT_LT(1 - std::fabs(m.e.a() * w.e.a() + m.e.b() * w.e.b() + m.e.c() * w.e.c()), 1e-12);
            EXPECT_LT(rel(std::fabs(m.e.d()), std::fabs(w.e.d())), 1e-12);
            EXPECT_LT(1 - cosLines(m.l3, w.l3), 1e-12);
        }
    }
}

TEST(MomentSums, FitsFromSumsAgreeWithFitsOverPoints) {
    std::mt19937 g(3);
    // The sphere over points uses raw coordinates, the one from sums centred
    // ones: they weight noise differently, so compare on exact points near
    // the origin.  A nearly flat cap far out serves the plane and the line.
    const auto p2 = circlePts(g, 2000, 1000.0);
    const auto p3 = spherePts(g, 2000, 0.0, 1.0, 0.0), q3 = spherePts(g, 2000, 1500.0, 0.001);
    CmomentSums2<double> s2;
    CmomentSums3<double> s3, t3;
    s2.add(p2), s3.add(p3), t3.add(q3);
    const Fits a(s2, s3), b(s2, t3);
    Fits pa(s2, s3), pb(s2, t3);  // overwritten with the fits over points
    approximate<double>::fitCircleLsq(p2, pa.c);
    approximate<double>::fitLineGeom(p2, pa.l);
    approximate<double>::fitSphereLsq(p3, pa.s);
    approximate<double>::fitPlaneGeom(q3, pb.e);
    approximate<double>::fitLineGeom(q3, pb.l3);
    EXPECT_LT(rel(a.c.center().x, pa.c.center().x) + rel(a.c.center().y, pa.c.center().y), 1e-10);
    EXPECT_LT(rel(a.c.radius(), pa.c.radius()), 1e-10);
    EXPECT_GT(std::fabs(a.l.direction().x * pa.l.direction().x + a.l.direction().y * pa.l.direction().y), 1 - 1e-12);
    EXPECT_LT(rel(a.s.center().y, pa.s.center().y) + rel(a.s.center().x, pa.s.center().x), 1e-10);
    EXPECT_LT(rel(a.s.radius(), std::fabs(pa.s.radius())), 1e-10);
    const double dot = b.e.a() * pb.e.a() + b.e.b() * pb.e.b() + b.e.c() * pb.e.c();
    EXPECT_GT(std::fabs(dot), 1 - 1e-12);
    EXPECT_LT(rel(b.e.d() * (dot > 0 ? 1 : -1), pb.e.d()), 1e-10);
    EXPECT_NEAR(b.l3.point().x, pb.l3.point().x, 1e-9);
    EXPECT_GT(cosLines(b.l3, pb.l3), 1 - 1e-9);
    // Float points: double sums, the same answer as the double points.
    CmomentSums2<float> sf;
    for (auto const& p : p2) sf.add(Cpoint2<float>(float(p.x), float(p.y)));
    Ccircle2<float> cf;
    approximate<float>::fitCircleLsq(sf, cf);
    EXPECT_NEAR(cf.radius(), a.c.radius(), 1e-3);
}

// The strided read gathers a block at a time and must give the sums of the
// point read bit for bit, at every block boundary and for any layout.
TEST(MomentSums, StridedReadEqualsPointReadBitForBit) {
    std::mt19937 g(5);
    const auto all = spherePts(g, 3000, 50.0, 1.0);
    for (std::size_t n : {0u, 1u, 7u, 1023u, 1024u, 1025u, 2049u, 3000u}) {
        SCOPED_TRACE(n);
        const std::vector<Cpoint3<double>> p3(all.begin(), all.begin() + n);
        std::vector<double> cm(3 * n + 1), rm(3 * n + 1);  // column-major, row-major
        for (std::size_t i = 0; i < n; ++i)
            for (int k = 0; k < 3; ++k) cm[k * n + i] = rm[3 * i + k] = (k == 0 ? p3[i].x : k == 1 ? p3[i].y : p3[i].z);
        CmomentSums3<double> a, b, c;
        CmomentSums2<double> a2, b2;
        a.add(p3);
        b.add(cm.data(), n, 1, static_cast<std::ptrdiff_t>(n));
        c.add(rm.data(), n, 3, 1);
        EXPECT_EQ(a.toBytes(), b.toBytes());
        EXPECT_EQ(a.toBytes(), c.toBytes());
        std::vector<Cpoint2<double>> p2;
        for (auto const& p : p3) p2.emplace_back(p.x, p.z);
        a2.add(p2);
        b2.add(rm.data(), n, 3, 2);  // x and z of the row-major array
        EXPECT_EQ(a2.toBytes(), b2.toBytes());
        EXPECT_EQ(a.count(), n);
        EXPECT_EQ(a.reference().x, n ? p3[0].x : 0.0);
    }
}

TEST(MomentSums, ByteFormRoundTripsAndRefusesDamage) {
    std::mt19937 g(9);
    CmomentSums2<double> s;
    s.add(circlePts(g, 100, 1e5));
    const auto bytes = s.toBytes();
    ASSERT_EQ(bytes.size(), CmomentSums2<double>::kBytes);
    EXPECT_EQ(bytes[0], 1);
    EXPECT_EQ(bytes[1], 2);
    EXPECT_EQ(bytes[8], 100);  // n, little-endian
    EXPECT_EQ(CmomentSums2<double>::fromBytes(bytes).toBytes(), bytes);
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
    for (int i = 0; i <= 4; ++i) line.add(Cpoint2<double>(i, i));
    for (int i = 0; i < 10; ++i) one.add(Cpoint2<double>(3, 4));
    EXPECT_TRUE(std::isnan(empty.centroid().x));
    Ccircle2<double> c;
    Cline2<double> l;
    for (auto const* s : {&empty, &line, &one}) {  // too few, collinear, coincident
        approximate<double>::fitCircleLsq(*s, c);
        EXPECT_FALSE(c.isValid());
    }
    approximate<double>::fitLineGeom(empty, l);
    EXPECT_FALSE(l.isValid());

    CmomentSums3<double> flat;
    for (int i = 0; i < 25; ++i) flat.add(Cpoint3<double>(i / 5, i % 5, 2));
    Csphere3<double> s;
    Cplane3<double> e;
    approximate<double>::fitSphereLsq(flat, s);  // coplanar: no sphere
    EXPECT_FALSE(s.isValid());
    CmomentSums3<double> bad = flat;
    bad.add(Cpoint3<double>(1, quietNaN<double>(), 0));
    EXPECT_FALSE(bad.isFinite());
    approximate<double>::fitPlaneGeom(bad, e);
    approximate<double>::fitSphereLsq(bad, s);
    EXPECT_FALSE(e.isValid() || s.isValid());
    // Merging into itself doubles every sum.
    CmomentSums3<double> twice = flat;
    twice.merge(twice);
    EXPECT_EQ(twice.count(), 50u);
    EXPECT_DOUBLE_EQ(twice.sum(3), 2 * flat.sum(3));
}
