#include <math/convex_hull.h>

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

// A hull is right when it starts at the pivot, turns strictly left at every
// corner, has only input points as corners and no input point outside: a
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
    using H = std::vector<W>;
    EXPECT_TRUE(CcvxHull2D<T>().points().empty());
    const H sq{W(2, 2), W(0, 2), W(1, 1), W(2, 0), W(0, 0)};
    const CcvxHull2D<T> h(sq);
    EXPECT_EQ(h.points(), (H{W(0, 0), W(2, 0), W(2, 2), W(0, 2)}));  // ccw from the lower left
    EXPECT_EQ(sq.size(), 5u);  // the caller's vector is not touched
    // Edge points are no corners; collinear, two, one, no or repeated points: no hull.
    EXPECT_EQ(CcvxHull2D<T>({W(0, 0), W(1, 0), W(2, 0), W(2, 2), W(0, 2)}).points().size(), 4u);
    EXPECT_EQ(CcvxHull2D<T>({W(0, 0), W(2, 0), W(2, 1), W(2, 2), W(0, 2), W(0, 1)}).points().size(), 4u);
    for (H const& none : {H{W(0, 0), W(1, 1), W(2, 2), W(-3, -3), W(1, 1)}, H{W(0, 0), W(1, 1)}, H{},
                          H{W(1, 1), W(1, 1), W(1, 1), W(1, 1)}})
        EXPECT_TRUE(CcvxHull2D<T>(none).points().empty());
    // Same lowest y: the smaller x is the pivot; pivot duplicates, points on the first and last rays.
    EXPECT_EQ(CcvxHull2D<T>({W(5, 0), W(3, 4), W(1, 0)}).points(), (H{W(1, 0), W(5, 0), W(3, 4)}));
    const CcvxHull2D<T> d({W(0, 0), W(0, 0), W(1, 0), W(3, 0), W(3, 3), W(1, 1), W(0, 3), W(0, 1), W(0, 0)});
    EXPECT_EQ(d.points(), (H{W(0, 0), W(3, 0), W(3, 3), W(0, 3)}));
}

TYPED_TEST(Hull, InteriorFilterEqualsThePlainScan) {
    using T = TypeParam;
    using W = V<T>;
    std::mt19937 rng(7);
    std::uniform_int_distribution<int> G(-1000, 1000), S(0, 5);
    const char* names[] = {"random", "grid", "collinear-heavy", "duplicate-heavy"};
    for (int kind = 0; kind < 4; ++kind)
        for (int round = 0; round < 25; ++round) {
            SCOPED_TRACE(::testing::Message() << names[kind] << " round " << round);
            std::vector<W> pts;
            const int n = 64 + 40 * round;
            for (int i = 0; i < n; ++i) {
                const int a = G(rng), b = G(rng);
                if (kind == 0) pts.emplace_back(T(a), T(b));
                if (kind == 1) pts.emplace_back(T(a % 12), T(b % 9));
                const int s = S(rng);  // collinear-heavy: on two box edges and a diagonal
                if (kind == 2) pts.push_back(s == 0 ? W(T(a), T(b)) : s < 3 ? W(T(a), T(1000)) : s < 5 ? W(T(a), T(a)) : W(T(-1000), T(b)));
                if (kind == 3) pts.emplace_back(T(S(rng) * 100 - 250), T((S(rng) % 3) * 100));
            }
            ASSERT_TRUE(isHullOf(CcvxHull2D<T>(pts).points(), pts));
        }
}

TYPED_TEST(Hull, DenseFineGridAgainstExactOracle) {
    using T = TypeParam;
    if constexpr (!std::is_integral<T>::value) {
        // Points k * 2^-10 in [-1024, 1024]^2 (exact in float), dense enough that
        // rounded turn tests misorder points nearly collinear with the pivot;
        // the oracle works on the integers k exactly.  The second cloud is flat.
        std::mt19937 rng(2);
        std::uniform_int_distribution<int> K(-(1 << 20), 1 << 20);
        for (int round = 0; round < 2; ++round) {
            std::vector<V<T>> pts;
            std::vector<V<int>> scaled;
            for (int i = 0; i < (round == 0 ? 200000 : 50000); ++i) {
                const int kx = K(rng), ky = round == 1 ? K(rng) / 64 : K(rng);
                pts.emplace_back(T(kx) * T(0x1p-10), T(ky) * T(0x1p-10));
                scaled.emplace_back(kx, ky);
            }
            std::vector<V<int>> hs;
            const CcvxHull2D<T> h(pts);
            for (auto& p : h.points()) hs.emplace_back(int(p.x * T(1024)), int(p.y * T(1024)));
            ASSERT_TRUE(isHullOf(hs, scaled)) << round;
        }
    }
}

TEST(Hull, IntegerExtremesAreExact) {
    using W = V<int>;
    // Differences up to 2^32 and products up to 2^64: no overflow, exact turns.
    EXPECT_EQ(CcvxHull2D<int>({W(INT_MIN, INT_MIN), W(INT_MAX, INT_MIN), W(INT_MAX, INT_MAX), W(INT_MIN, INT_MAX),
                               W(0, 0), W(INT_MAX, 0), W(INT_MIN + 1, INT_MAX)})
                  .points(),
              (std::vector<W>{W(INT_MIN, INT_MIN), W(INT_MAX, INT_MIN), W(INT_MAX, INT_MAX), W(INT_MIN, INT_MAX)}));
    // F46*F44 - F45^2 = -1 with products near 2^61: a double evaluation rounds
    // the turn to 0 and would drop the triangle as collinear.
    const int F44 = 701408733, F45 = 1134903170, F46 = 1836311903;
    const W a(INT_MIN, INT_MIN), b(INT_MIN + F46, INT_MIN + F45), c(INT_MIN + F45, INT_MIN + F44);
    EXPECT_EQ(CcvxHull2D<int>({a, b, c}).points(), (std::vector<W>{a, c, b}));
    // Near-collinear points across the whole int range, against the exact oracle.
    std::mt19937 rng(4);
    std::uniform_int_distribution<int> G(INT_MIN, INT_MAX), S(-3, 3);
    for (int round = 0; round < 200; ++round) {
        std::vector<W> p;
        const int ya = G(rng), yb = G(rng);
        for (int i = 0; i < 50; ++i) {
            const double t = double(i) / 49.0;
            const long long y = (long long)(ya + t * (double(yb) - ya)) + S(rng);
            p.emplace_back(int((long long)(INT_MIN + t * (double(INT_MAX) - INT_MIN))),
                           int(std::min<long long>(INT_MAX, std::max<long long>(INT_MIN, y))));
        }
        ASSERT_TRUE(isHullOf(CcvxHull2D<int>(p).points(), p)) << round;
    }
}

TYPED_TEST(Hull, NonFiniteAndNearlyCollinearInput) {
    using T = TypeParam;
    if constexpr (!std::is_integral<T>::value) {
        using W = V<T>;
        const T nan = std::numeric_limits<T>::quiet_NaN(), inf = std::numeric_limits<T>::infinity();
        const CcvxHull2D<T> h({W(nan, 0), W(0, 0), W(2, 0), W(inf, 1), W(2, 2), W(0, nan), W(0, 2), W(-inf, -inf)});
        EXPECT_EQ(h.points(), (std::vector<W>{W(0, 0), W(2, 0), W(2, 2), W(0, 2)}));
        EXPECT_TRUE(CcvxHull2D<T>({W(nan, nan), W(nan, nan), W(nan, nan), W(1, 1)}).points().empty());
        // Extreme magnitudes take the fallback sort; the scan must still finish.
        const T big = std::numeric_limits<T>::max();
        EXPECT_LE(CcvxHull2D<T>({W(-big, -big), W(big, -big), W(big, big), W(-big, big), W(0, 0), W(1, 1)}).points().size(), 6u);
        // Many points nearly collinear with the pivot: the sort must see a
        // consistent order (else std::sort may run out of bounds under ASan).
        std::mt19937 rng(99);
        std::uniform_real_distribution<double> U(0, 1);
        std::vector<W> pts;
        for (int i = 0; i < 20000; ++i) {
            const double t = U(rng);
            pts.emplace_back(T(1 + t * 1000), T(1 + t * 1000 * (1 + 1e-7 * U(rng))));
        }
        pts.emplace_back(T(0), T(0));
        pts.emplace_back(T(1000), T(0));
        const auto hc = CcvxHull2D<T>(pts).points();
        ASSERT_GE(hc.size(), 3u);
        EXPECT_EQ(hc[0], W(0, 0));
        for (std::size_t i = 0; i < hc.size(); ++i) {
            const auto &a = hc[i], &b = hc[(i + 1) % hc.size()], &c = hc[(i + 2) % hc.size()];
            ASSERT_GT((double(b.x) - a.x) * (double(c.y) - a.y) - (double(c.x) - a.x) * (double(b.y) - a.y), -1e-3);
            ASSERT_NE(std::find(pts.begin(), pts.end(), a), pts.end());
        }
    }
}
