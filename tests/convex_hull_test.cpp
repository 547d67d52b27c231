#include <math/convex_hull.h>
#include <math/polygon.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <limits>
#include <random>
#include <set>
#include <vector>

using namespace math;

namespace {

template <class T>
using V = Cvector2<T>;

// Exact for the integer-valued coordinates of the tests (|c| < 2^31).
template <class T>
__int128 cross(V<T> const& a, V<T> const& b, V<T> const& c) {
    const __int128 bx = (long long)b.x - (long long)a.x, by = (long long)b.y - (long long)a.y;
    const __int128 cx = (long long)c.x - (long long)a.x, cy = (long long)c.y - (long long)a.y;
    return bx * cy - cx * by;
}

// The hull is correct when: it starts at the pivot, every turn is a strict left
// turn, every corner is an input point and no input point lies outside.  A
// strictly convex polygon with these properties is the set of extreme points.
template <class T>
::testing::AssertionResult isHullOf(std::vector<V<T>> const& h, std::vector<V<T>> const& pts) {
    std::set<std::pair<T, T>> in;
    for (auto& p : pts) in.insert({p.x, p.y});
    if (h.size() < 3) return ::testing::AssertionFailure() << "hull has " << h.size() << " points";
    V<T> piv = pts[0];
    for (auto& p : pts)
        if (p.y < piv.y || (p.y == piv.y && p.x < piv.x)) piv = p;
    if (h[0] != piv) return ::testing::AssertionFailure() << "does not start at the pivot";
    const std::size_t n = h.size();
    for (std::size_t i = 0; i < n; ++i) {
        if (cross(h[i], h[(i + 1) % n], h[(i + 2) % n]) <= 0)
            return ::testing::AssertionFailure() << "no strict left turn at " << i;
        if (!in.count({h[i].x, h[i].y})) return ::testing::AssertionFailure() << "corner not an input point";
    }
    for (auto& p : pts)
        for (std::size_t i = 0; i < n; ++i)
            if (cross(h[i], h[(i + 1) % n], p) < 0)
                return ::testing::AssertionFailure() << "point (" << p.x << "," << p.y << ") outside";
    return ::testing::AssertionSuccess();
}

}  // namespace

template <class T>
class Hull : public ::testing::Test {};
using HullTypes = ::testing::Types<int, float, double>;
TYPED_TEST_SUITE(Hull, HullTypes);

TYPED_TEST(Hull, EdgeCases) {
    using T = TypeParam;
    using W = V<T>;
    EXPECT_TRUE(CcvxHull2D<T>().points().empty());
    // Square corners plus centre: ccw from the lower-left corner.
    const std::vector<W> sq{W(2, 2), W(0, 2), W(1, 1), W(2, 0), W(0, 0)};
    const CcvxHull2D<T> h(sq);
    EXPECT_EQ(h.points(), (std::vector<W>{W(0, 0), W(2, 0), W(2, 2), W(0, 2)}));
    EXPECT_EQ(sq.size(), 5u);  // the caller's vector is not touched
    // A point in the middle of an edge is not a corner.
    EXPECT_EQ(CcvxHull2D<T>({W(0, 0), W(1, 0), W(2, 0), W(2, 2), W(0, 2)}).points().size(), 4u);
    EXPECT_EQ(CcvxHull2D<T>({W(0, 0), W(2, 0), W(2, 1), W(2, 2), W(0, 2), W(0, 1)}).points().size(), 4u);
    // Three collinear points, two points, one, none: no hull.
    EXPECT_TRUE(CcvxHull2D<T>({W(0, 0), W(1, 1), W(2, 2)}).points().empty());
    EXPECT_TRUE(CcvxHull2D<T>({W(0, 0), W(1, 1), W(2, 2), W(-3, -3), W(1, 1)}).points().empty());
    EXPECT_TRUE(CcvxHull2D<T>({W(0, 0), W(1, 1)}).points().empty());
    EXPECT_TRUE(CcvxHull2D<T>(std::vector<W>{}).points().empty());
    // Repeated points only.
    EXPECT_TRUE(CcvxHull2D<T>({W(1, 1), W(1, 1), W(1, 1), W(1, 1)}).points().empty());
    // Two points with the same lowest y: the smaller x is the pivot.
    const CcvxHull2D<T> t({W(5, 0), W(3, 4), W(1, 0)});
    ASSERT_EQ(t.points().size(), 3u);
    EXPECT_EQ(t.points()[0], W(1, 0));
    EXPECT_EQ(t.points()[1], W(5, 0));
    // Pivot duplicates and points on the first and last rays.
    const CcvxHull2D<T> d({W(0, 0), W(0, 0), W(1, 0), W(3, 0), W(3, 3), W(1, 1), W(0, 3), W(0, 1), W(0, 0)});
    EXPECT_EQ(d.points(), (std::vector<W>{W(0, 0), W(3, 0), W(3, 3), W(0, 3)}));
    // Copy and assignment.
    CcvxHull2D<T> c;
    c = h;
    EXPECT_EQ(c.points(), h.points());
    CcvxHull2D<T> c2(h);
    EXPECT_EQ(c2.points().size(), 4u);
}

TYPED_TEST(Hull, RandomSetsAgainstBruteForceAndMonotoneChain) {
    using T = TypeParam;
    using W = V<T>;
    std::mt19937 rng(123);
    for (int round = 0; round < 500; ++round) {
        const int range = round % 3 == 0 ? 5 : (round % 3 == 1 ? 100 : 1000000);
        std::uniform_int_distribution<int> G(-range, range);
        std::vector<W> pts;
        const int n = 3 + round % 200;
        for (int i = 0; i < n; ++i) pts.emplace_back(T(G(rng)), T(G(rng)));
        const CcvxHull2D<T> h(pts);
        // Exactly the collinear sets (brute force) have no hull.
        bool degenerate = true;
        for (auto& q : pts) {
            if (q == pts[0]) continue;
            for (auto& p : pts) degenerate = degenerate && cross(pts[0], q, p) == 0;
            break;
        }
        ASSERT_EQ(h.points().empty(), degenerate) << round;
        if (degenerate) continue;
        ASSERT_TRUE(isHullOf(h.points(), pts)) << "round " << round;
        if constexpr (!std::is_integral<T>::value) {
            // Same corner set as the monotone chain, same cyclic order.
            std::vector<Cpoint2<T>> q;
            for (auto& p : pts) q.emplace_back(p.x, p.y);
            const auto mc = Cpolygon2<T>::convexPoly(q, false).points();
            ASSERT_EQ(mc.size(), h.points().size());
            const auto it = std::find(mc.begin(), mc.end(), Cpoint2<T>(h.points()[0].x, h.points()[0].y));
            ASSERT_NE(it, mc.end());
            const std::size_t off = std::size_t(it - mc.begin());
            for (std::size_t i = 0; i < mc.size(); ++i) {
                const auto& m = mc[(i + off) % mc.size()];
                ASSERT_EQ(m.x, h.points()[i].x);
                ASSERT_EQ(m.y, h.points()[i].y);
            }
        }
    }
}

TYPED_TEST(Hull, DenseFineGridAgainstExactOracle) {
    using T = TypeParam;
    if constexpr (!std::is_integral<T>::value) {
        // 2*10^5 points k * 2^-10 in [-1024, 1024]^2 (exact in float): dense
        // enough that rounded turn tests misorder points nearly collinear with
        // the pivot.  The oracle works on the integers k exactly.
        std::mt19937 rng(2);
        std::uniform_int_distribution<int> K(-(1 << 20), 1 << 20);
        for (int round = 0; round < 2; ++round) {
            std::vector<V<T>> pts;
            std::vector<V<int>> scaled;
            for (int i = 0; i < (round == 0 ? 200000 : 50000); ++i) {
                const int kx = K(rng), ky = round == 1 ? K(rng) / 64 : K(rng);  // then a flat cloud
                pts.emplace_back(T(kx) * T(0x1p-10), T(ky) * T(0x1p-10));
                scaled.emplace_back(kx, ky);
            }
            const CcvxHull2D<T> h(pts);
            std::vector<V<int>> hs;
            for (auto& p : h.points()) hs.emplace_back(int(p.x * T(1024)), int(p.y * T(1024)));
            ASSERT_TRUE(isHullOf(hs, scaled)) << round;
            EXPECT_EQ(hs, CcvxHull2D<int>(scaled).points());
        }
    }
}

TEST(Hull, IntegerExtremesAreExact) {
    using W = V<int>;
    // Differences up to 2^32 and products up to 2^64: no overflow, exact turns.
    const std::vector<W> pts{W(INT_MIN, INT_MIN), W(INT_MAX, INT_MIN), W(INT_MAX, INT_MAX), W(INT_MIN, INT_MAX),
                             W(0, 0),             W(INT_MAX, 0),       W(INT_MIN + 1, INT_MAX)};
    const CcvxHull2D<int> h(pts);
    EXPECT_EQ(h.points(), (std::vector<W>{W(INT_MIN, INT_MIN), W(INT_MAX, INT_MIN), W(INT_MAX, INT_MAX),
                                          W(INT_MIN, INT_MAX)}));
    // Consecutive Fibonacci vectors are as parallel as lattice vectors get:
    // F46*F44 - F45^2 = -1 with products near 2^61, where a double evaluation
    // rounds the turn to 0 (and would drop the triangle as collinear).
    const int F44 = 701408733, F45 = 1134903170, F46 = 1836311903;
    const W a(INT_MIN, INT_MIN), b(INT_MIN + F46, INT_MIN + F45), c(INT_MIN + F45, INT_MIN + F44);
    EXPECT_EQ(CcvxHull2D<int>({a, b, c}).points(), (std::vector<W>{a, c, b}));
    // Near-collinear points across the whole int range, where a double
    // evaluation of the turns would round: checked against the exact oracle.
    std::mt19937 rng(4);
    std::uniform_int_distribution<int> G(INT_MIN, INT_MAX), S(-3, 3);
    for (int round = 0; round < 200; ++round) {
        std::vector<W> p;
        const int a = G(rng), b = G(rng);
        for (int i = 0; i < 50; ++i) {
            const double t = double(i) / 49.0;
            const long long x = (long long)(INT_MIN + t * (double(INT_MAX) - INT_MIN));
            const long long y = (long long)(a + t * (double(b) - a)) + S(rng);
            p.emplace_back(int(x), int(std::min<long long>(INT_MAX, std::max<long long>(INT_MIN, y))));
        }
        const CcvxHull2D<int> hh(p);
        ASSERT_FALSE(hh.points().empty());
        ASSERT_TRUE(isHullOf(hh.points(), p)) << round;
    }
}

TYPED_TEST(Hull, NonFiniteAndNearlyCollinearInputDoNotFail) {
    using T = TypeParam;
    if constexpr (!std::is_integral<T>::value) {
        using W = V<T>;
        const T nan = std::numeric_limits<T>::quiet_NaN(), inf = std::numeric_limits<T>::infinity();
        const CcvxHull2D<T> h({W(nan, 0), W(0, 0), W(2, 0), W(inf, 1), W(2, 2), W(0, nan), W(0, 2), W(-inf, -inf)});
        EXPECT_EQ(h.points(), (std::vector<W>{W(0, 0), W(2, 0), W(2, 2), W(0, 2)}));
        EXPECT_TRUE(CcvxHull2D<T>({W(nan, nan), W(nan, nan), W(nan, nan), W(1, 1)}).points().empty());
        // Extreme magnitudes take the fallback sort; the scan must still finish.
        const T big = std::numeric_limits<T>::max();
        std::vector<W> e{W(-big, -big), W(big, -big), W(big, big), W(-big, big), W(0, 0), W(1, 1)};
        const CcvxHull2D<T> he(e);
        EXPECT_LE(he.points().size(), e.size());

        // Many nearly collinear points around one pivot: the sort must see a
        // consistent order (an inconsistent comparator can run std::sort out of
        // bounds, which the sanitizer build would catch).
        std::mt19937 rng(99);
        std::uniform_real_distribution<double> U(0, 1);
        std::vector<W> pts;
        for (int i = 0; i < 20000; ++i) {
            const double t = U(rng);
            pts.emplace_back(T(1 + t * 1000), T(1 + t * 1000 * (1 + 1e-7 * U(rng))));
        }
        pts.emplace_back(T(0), T(0));
        pts.emplace_back(T(1000), T(0));
        const CcvxHull2D<T> hc(pts);
        ASSERT_GE(hc.points().size(), 3u);
        EXPECT_EQ(hc.points()[0], W(0, 0));
        // Every corner is an input point and all turns are left turns (within rounding).
        for (std::size_t i = 0; i < hc.points().size(); ++i) {
            const auto& a = hc.points()[i];
            const auto& b = hc.points()[(i + 1) % hc.points().size()];
            const auto& c = hc.points()[(i + 2) % hc.points().size()];
            const double cr = (double(b.x) - a.x) * (double(c.y) - a.y) - (double(c.x) - a.x) * (double(b.y) - a.y);
            ASSERT_GT(cr, -1e-3);
            ASSERT_NE(std::find(pts.begin(), pts.end(), a), pts.end());
        }
    }
}
