#include <math/polygon.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <list>
#include <random>
#include <set>
#include <vector>

using namespace math;

namespace {

// Opens the protected helpers for testing.
template <class T>
struct Probe : Cpolygon2<T> {
    using Cpolygon2<T>::Cpolygon2;
    using Cpolygon2<T>::isDegenerated;
    using Cpolygon2<T>::isSimple;
    using Cpolygon2<T>::isConvex;
    using Cpolygon2<T>::testRect;
    using Cpolygon2<T>::optimize;
    using Cpolygon2<T>::theta;
    using Cpolygon2<T>::_sign;
};

template <class T>
std::vector<Cpoint2<T>> pts(std::initializer_list<std::pair<double, double>> l) {
    std::vector<Cpoint2<T>> v;
    for (auto& p : l) v.emplace_back(T(p.first), T(p.second));
    return v;
}

// Cross product in long double; exact for the small integer and
// half-integer coordinates used by the randomized tests.
template <class T>
long double crossL(Cpoint2<T> const& a, Cpoint2<T> const& b, Cpoint2<T> const& c) {
    return ((long double)b.x - a.x) * ((long double)c.y - a.y) - ((long double)c.x - a.x) * ((long double)b.y - a.y);
}

template <class T>
bool onSegment(Cpoint2<T> const& a, Cpoint2<T> const& b, Cpoint2<T> const& p) {
    return crossL(a, b, p) == 0 && std::min(a.x, b.x) <= p.x && p.x <= std::max(a.x, b.x) &&
           std::min(a.y, b.y) <= p.y && p.y <= std::max(a.y, b.y);
}

template <class T>
bool onBoundary(std::vector<Cpoint2<T>> const& v, Cpoint2<T> const& p) {
    for (std::size_t i = 0; i < v.size(); ++i)
        if (onSegment(v[i], v[(i + 1) % v.size()], p)) return true;
    return false;
}

// Winding number by summing the signed angles the edges subtend at p
// (independent of the crossing rule under test).  p must not lie on an edge.
template <class T>
int windingByAngles(std::vector<Cpoint2<T>> const& v, Cpoint2<T> const& p) {
    double sum = 0;
    for (std::size_t i = 0; i < v.size(); ++i) {
        const auto& a = v[i];
        const auto& b = v[(i + 1) % v.size()];
        const double ax = double(a.x) - p.x, ay = double(a.y) - p.y;
        const double bx = double(b.x) - p.x, by = double(b.y) - p.y;
        sum += std::atan2(ax * by - ay * bx, ax * bx + ay * by);
    }
    return int(std::lround(sum / (2 * 3.141592653589793)));
}

// Proper or touching intersection of two closed segments (exact for small integers).
template <class T>
bool segmentsMeet(Cpoint2<T> a, Cpoint2<T> b, Cpoint2<T> c, Cpoint2<T> d) {
    const auto s = [](long double v) { return v > 0 ? 1 : (v < 0 ? -1 : 0); };
    const int d1 = s(crossL(a, b, c)), d2 = s(crossL(a, b, d)), d3 = s(crossL(c, d, a)), d4 = s(crossL(c, d, b));
    if (d1 * d2 < 0 && d3 * d4 < 0) return true;
    return (d1 == 0 && onSegment(a, b, c)) || (d2 == 0 && onSegment(a, b, d)) || (d3 == 0 && onSegment(c, d, a)) ||
           (d4 == 0 && onSegment(c, d, b));
}

// No two non-adjacent edges meet and adjacent edges meet only in their vertex.
template <class T>
bool reallySimple(std::vector<Cpoint2<T>> const& v) {
    const std::size_t n = v.size();
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t j = i + 1; j < n; ++j) {
            const auto a = v[i], b = v[(i + 1) % n], c = v[j], d = v[(j + 1) % n];
            const bool adjacent = j == i + 1 || (i == 0 && j == n - 1);
            if (!adjacent && segmentsMeet(a, b, c, d)) return false;
            if (adjacent && crossL(a, b, j == i + 1 ? d : c) == 0) {
                // collinear neighbours: they overlap when the turn goes back
                const auto& shared = j == i + 1 ? b : a;
                const auto& other1 = j == i + 1 ? a : b;
                const auto& other2 = j == i + 1 ? d : c;
                if ((other1.x - shared.x) * (other2.x - shared.x) + (other1.y - shared.y) * (other2.y - shared.y) > 0)
                    return false;
            }
        }
    return true;
}

}  // namespace

template <class T>
class Polygon : public ::testing::Test {};
using FloatTypes = ::testing::Types<float, double>;
TYPED_TEST_SUITE(Polygon, FloatTypes);

TYPED_TEST(Polygon, ConstructionEditingAndMeasures) {
    using T = TypeParam;
    using P = Cpoint2<T>;
    Cpolygon2<T> sq(pts<T>({{0, 0}, {1, 0}, {1, 1}, {0, 1}}));
    EXPECT_EQ(sq.type(), Cpolygon2<T>::TYPE_UNKNOWN);
    EXPECT_FALSE(sq.isPreprocessed());
    EXPECT_EQ(sq.area(), T(1));
    EXPECT_EQ(sq.center(), P(T(0.5), T(0.5)));
    const Crect2<T> br = sq.boundingRect();
    EXPECT_EQ(br.topLeft(), P(0, 0));
    EXPECT_EQ(br.bottomRight(), P(1, 1));

    std::list<P> l{P(0, 0), P(0, 1), P(1, 1), P(1, 0)};
    Cpolygon2<T> cw(l);
    EXPECT_EQ(cw.area(), T(-1));
    cw.preprocess();
    EXPECT_EQ(cw.area(), T(1));
    EXPECT_EQ(cw.type(), Cpolygon2<T>::TYPE_RECT);

    Cpolygon2<T> e;
    EXPECT_TRUE(std::isnan(e.center().x));
    EXPECT_EQ(e.area(), T(0));
    EXPECT_FALSE(e.isValid());
    e.add(T(1), T(2));
    e.add(P(3, 4));
    EXPECT_EQ(e.area(), T(0));
    e.add(pts<T>({{5, 0}}));
    EXPECT_TRUE(e.isValid());
    EXPECT_EQ(e.size(), 3u);
    e.preprocess();
    EXPECT_TRUE(e.isPreprocessed());
    EXPECT_FALSE(e.remove(5u));
    EXPECT_TRUE(e.isPreprocessed());  // failed edit keeps the type
    EXPECT_FALSE(e.remove(P(9, 9)));
    EXPECT_TRUE(e.isPreprocessed());
    e.add(P(7, 7));
    EXPECT_FALSE(e.isPreprocessed());
    e.preprocess();
    EXPECT_TRUE(e.remove(P(7, 7)));
    EXPECT_FALSE(e.isPreprocessed());
    e.preprocess();
    EXPECT_TRUE(e.remove(0u));
    EXPECT_EQ(e.type(), Cpolygon2<T>::TYPE_UNKNOWN);
    e.clear();
    EXPECT_EQ(e.type(), Cpolygon2<T>::TYPE_INVALID);
    EXPECT_TRUE(std::isnan(e.boundingRect().left()));  // type 1: the default rectangle
    const Crect2<T> empty = Cpolygon2<T>::boundingRect({});
    EXPECT_EQ(empty.left(), std::numeric_limits<T>::max());
    EXPECT_EQ(empty.bottom(), -std::numeric_limits<T>::max());

    // Rectangle constructor: vertex order and cached type.
    const Cpolygon2<T> r(Crect2<T>(P(1, 2), P(5, 7)));
    EXPECT_EQ(r.type(), Cpolygon2<T>::TYPE_RECT);
    ASSERT_EQ(r.size(), 4u);
    EXPECT_EQ(r.points()[0], P(1, 2));
    EXPECT_EQ(r.points()[1], P(1, 7));
    EXPECT_EQ(r.points()[2], P(5, 7));
    EXPECT_EQ(r.points()[3], P(5, 2));
    EXPECT_TRUE(r.pointIsIn(P(5, 7)));
    EXPECT_FALSE(r.pointIsIn(P(5, 8)));

    // Equality: relative comparison, stored order, no cyclic shift.
    Cpolygon2<T> a(pts<T>({{0, 0}, {1, 0}, {0, 1}}));
    Cpolygon2<T> b(pts<T>({{0, 0}, {1, 0}, {0, 1}}));
    b = pts<T>({{0, 0}, {T(1) + T(1e-6) * tol::relative<T>(), 0}, {0, 1}});
    EXPECT_TRUE(a == b);
    b = pts<T>({{1, 0}, {0, 1}, {0, 0}});
    EXPECT_TRUE(a != b);
    b = pts<T>({{0, 0}, {1, 0}});
    EXPECT_FALSE(a == b);
    b.set(pts<T>({{0, 0}, {1, 0}, {0, T(1) + T(4) * tol::relative<T>()}}));
    EXPECT_FALSE(a == b);
}

TYPED_TEST(Polygon, ThetaPseudoAngle) {
    using T = TypeParam;
    using P = Cpoint2<T>;
    using Pr = Probe<T>;
    EXPECT_EQ(Pr::theta(P(0, 0), P(0, 0)), T(360));
    EXPECT_EQ(Pr::theta(P(0, 0), P(1, 1)), T(315));
    EXPECT_EQ(Pr::theta(P(0, 0), P(5, 0)), T(360));
    EXPECT_EQ(Pr::theta(P(0, 0), P(0, 2)), T(270));
    EXPECT_EQ(Pr::theta(P(1, 1), P(-2, 1)), T(180));
    EXPECT_EQ(Pr::theta(P(0, 0), P(0, -3)), T(90));
    EXPECT_EQ(Pr::_sign(T(-0.5)), -1);
    EXPECT_EQ(Pr::_sign(T(0)), 0);
    EXPECT_EQ(Pr::_sign(quietNaN<T>()), 0);
    EXPECT_EQ(Pr::_sign(T(3)), 1);
    // Monotone decreasing in the counter-clockwise angle in [0, 2*pi), range (0, 360].
    std::mt19937 rng(1);
    std::uniform_real_distribution<double> A(0, 6.283185307179586);
    std::vector<std::pair<double, T>> v;
    for (int i = 0; i < 3000; ++i) {
        const double a = A(rng);
        const T t = Pr::theta(P(0, 0), P(T(std::cos(a)), T(std::sin(a))));
        ASSERT_GT(t, T(0));
        ASSERT_LE(t, T(360));
        v.emplace_back(a, t);
    }
    std::sort(v.begin(), v.end());
    for (std::size_t i = 1; i < v.size(); ++i) ASSERT_LE(v[i].second, v[i - 1].second);
}

TYPED_TEST(Polygon, ClassificationOfEveryType) {
    using T = TypeParam;
    using C = Cpolygon2<T>;
    C p;
    // 1: fewer than three vertices.
    p = pts<T>({{0, 0}, {1, 1}});
    p.preprocess();
    EXPECT_EQ(p.type(), C::TYPE_INVALID);
    EXPECT_FALSE(p.pointIsIn({0, 0}));
    // 2: collinear; nothing is inside.
    p = pts<T>({{0, 0}, {1, 1}, {2, 2}});
    p.preprocess();
    EXPECT_EQ(p.type(), C::TYPE_DEGENERATED);
    EXPECT_FALSE(p.pointIsIn({1, 1}));
    p = pts<T>({{0, 0}, {2, 2}, {1, 1}, {0, 0}});
    p.preprocess();
    EXPECT_EQ(p.type(), C::TYPE_DEGENERATED);
    // 3: rectangle, border included; a collinear vertex is dropped first.
    p = pts<T>({{0, 0}, {1, 0}, {1, 1}, {0, 1}});
    p.preprocess();
    EXPECT_EQ(p.type(), C::TYPE_RECT);
    EXPECT_TRUE(p.pointIsIn({1, 1}));
    EXPECT_FALSE(p.pointIsIn({T(1.0001), 1}));
    p = pts<T>({{0, 0}, {2, 0}, {4, 0}, {4, 4}, {0, 4}});
    p.preprocess();
    EXPECT_EQ(p.type(), C::TYPE_RECT);
    EXPECT_EQ(p.size(), 4u);
    EXPECT_EQ(std::count(p.points().begin(), p.points().end(), Cpoint2<T>(2, 0)), 0);
    // 4: convex, also from clockwise input.
    p = pts<T>({{0, 0}, {0, 3}, {2, 5}, {4, 3}, {4, 0}});
    p.preprocess();
    EXPECT_EQ(p.type(), C::TYPE_CONVEX);
    EXPECT_GT(p.area(), T(0));
    EXPECT_TRUE(p.pointIsIn({2, 4}));
    EXPECT_TRUE(p.pointIsIn({2, 5}));   // vertex
    EXPECT_TRUE(p.pointIsIn({4, 1}));   // edge
    EXPECT_FALSE(p.pointIsIn({3, 5}));
    EXPECT_FALSE(p.pointIsIn({-1, 1}));
    // A square rotated by 45 degrees is convex, not a rectangle.
    p = pts<T>({{0, 1}, {1, 0}, {2, 1}, {1, 2}});
    p.preprocess();
    EXPECT_EQ(p.type(), C::TYPE_CONVEX);
    // 7: bow-tie; the winding number still answers.
    p = pts<T>({{0, 0}, {1, 1}, {1, 0}, {0, 1}});
    p.preprocess();
    EXPECT_EQ(p.type(), C::TYPE_COMPLEX);
    EXPECT_TRUE(p.pointIsIn({T(0.1), T(0.5)}));
    EXPECT_FALSE(p.pointIsIn({T(0.5), T(0.1)}));
    // A simple polygon with a reflex vertex: the neighbouring edges at the
    // reflex vertex do not "meet" under the orientation rule, so it classifies
    // as 7 rather than TYPE_CONCAVE (6), and answers by winding number.
    p = pts<T>({{0, 0}, {4, 0}, {4, 4}, {2, 1}, {0, 4}});
    p.preprocess();
    EXPECT_EQ(p.type(), C::TYPE_COMPLEX);
    EXPECT_EQ(int(C::TYPE_CONCAVE), 6);
    EXPECT_TRUE(p.pointIsIn({1, 1}));
    EXPECT_FALSE(p.pointIsIn({2, 3}));
    // Repeated vertex: both copies go (optimize tests the ring neighbours), the
    // rest is a triangle.
    p = pts<T>({{0, 0}, {4, 0}, {4, 0}, {0, 4}});
    p.preprocess();
    EXPECT_EQ(p.size(), 2u);
    EXPECT_EQ(p.type(), C::TYPE_COMPLEX);
}

TYPED_TEST(Polygon, ProtectedHelpers) {
    using T = TypeParam;
    using P = Cpoint2<T>;
    Probe<T> p(pts<T>({{3, 1}, {1, 0}, {0, 0}, {0, 2}, {1, 2}}));
    // optimize: start at (0, 0), ring (0,0) (0,2) (1,2) (3,1) (1,0) (0,0).
    p.optimize(false);
    ASSERT_EQ(p.size(), 5u);
    EXPECT_EQ(p.points()[0], P(0, 0));
    EXPECT_EQ(p.points()[1], P(0, 2));
    EXPECT_LT(p.area(), T(0));
    p.optimize(true);
    EXPECT_GT(p.area(), T(0));
    EXPECT_EQ(p.points().back(), P(0, 0));  // reversed: the start vertex comes last
    // Collinear run: all inner vertices of the run dropped.
    Probe<T> q(pts<T>({{0, 0}, {1, 0}, {2, 0}, {3, 0}, {3, 3}}));
    q.optimize(true);
    EXPECT_EQ(q.size(), 3u);
    // Empty polygon: no effect.
    Probe<T> e;
    e.optimize(true);
    EXPECT_EQ(e.size(), 0u);

    // isSimple: convex ccw true; clockwise false (right turns everywhere).
    Probe<T> ccw(pts<T>({{0, 0}, {2, 0}, {1, 2}}));
    EXPECT_TRUE(ccw.isSimple());
    Probe<T> cw(pts<T>({{0, 0}, {1, 2}, {2, 0}}));
    EXPECT_FALSE(cw.isSimple());
    EXPECT_FALSE(Probe<T>(pts<T>({{0, 0}, {1, 0}})).isSimple());

    // isConvex ignores the two turns that wrap around the end of the list.
    Probe<T> w(pts<T>({{0, 0}, {4, 0}, {4, 4}, {0, 4}, {2, 2}}));
    EXPECT_TRUE(w.isConvex());
    Probe<T> nc(pts<T>({{0, 0}, {4, 0}, {2, 1}, {4, 4}, {0, 4}}));
    EXPECT_FALSE(nc.isConvex());

    // isDegenerated over all cyclic triples.
    EXPECT_TRUE(Probe<T>(pts<T>({{0, 0}, {1, 1}, {3, 3}, {2, 2}})).isDegenerated());
    EXPECT_FALSE(Probe<T>(pts<T>({{0, 0}, {1, 1}, {3, 3}, {2, 3}})).isDegenerated());
    EXPECT_TRUE(Probe<T>(pts<T>({{0, 0}, {1, 1}})).isDegenerated());

    // testRect: any vertex order; caches the bounding rectangle also when false.
    Probe<T> r(pts<T>({{2, 5}, {0, 0}, {2, 0}, {0, 5}}));
    EXPECT_TRUE(r.testRect());
    Probe<T> nr(pts<T>({{0, 0}, {2, 0}, {2, 5}, {1, 6}}));
    EXPECT_FALSE(nr.testRect());
    Probe<T> five(pts<T>({{0, 0}, {2, 0}, {2, 5}, {0, 5}, {0, 4}}));
    EXPECT_FALSE(five.testRect());
}

TYPED_TEST(Polygon, PointInPolygonAgainstReferences) {
    using T = TypeParam;
    using P = Cpoint2<T>;
    std::mt19937 rng(2024);
    std::uniform_int_distribution<int> G(0, 40);
    std::uniform_int_distribution<int> Q(-4, 164);  // quarter-integer query grid
    int convexSeen = 0, tested = 0;
    for (int round = 0; round < 300; ++round) {
        std::vector<P> cloud;
        const int n = 3 + round % 40;
        for (int i = 0; i < n; ++i) cloud.emplace_back(T(G(rng)), T(G(rng)));

        // Convex polygon (hull) -> TYPE_CONVEX or TYPE_RECT; border included.
        Cpolygon2<T> hull = Cpolygon2<T>::convexPoly(cloud, false);
        const std::vector<P> hv = hull.points();
        hull.preprocess();
        // Random simple polygon through the points; and the points in random order.
        const std::vector<P> cv = Cpolygon2<T>::contourPoly(cloud).points();
        Cpolygon2<T> contour(cv), raw(cloud);
        if (hv.size() >= 3) {
            ASSERT_TRUE(hull.type() == Cpolygon2<T>::TYPE_CONVEX || hull.type() == Cpolygon2<T>::TYPE_RECT);
            convexSeen += hull.type() == Cpolygon2<T>::TYPE_CONVEX;
        }
        for (int k = 0; k < 200; ++k) {
            const P q(T(Q(rng)) / T(4), T(Q(rng)) / T(4));
            if (hv.size() >= 3) {
                bool in = true;
                for (std::size_t i = 0; i < hv.size(); ++i)
                    if (crossL(hv[i], hv[(i + 1) % hv.size()], q) < 0) in = false;
                ASSERT_EQ(hull.pointIsIn(q), in) << q.x << "," << q.y;
            }
            if (cv.size() >= 3 && !onBoundary(cv, q)) {
                ASSERT_EQ(contour.pointIsIn(q), windingByAngles(cv, q) != 0);
                ++tested;
            }
            if (!onBoundary(cloud, q)) {
                ASSERT_EQ(raw.pointIsIn(q), windingByAngles(cloud, q) != 0);
            }
        }
    }
    EXPECT_GT(convexSeen, 200);
    EXPECT_GT(tested, 20000);
}

TYPED_TEST(Polygon, SlabIndexGivesTheWindingAnswerEverywhere) {
    // A preprocessed concave or complex polygon of 32+ vertices answers through
    // its slab index; a copy left unclassified runs the full winding test.
    // They must agree on every query: random points, vertices, edge midpoints
    // and points at the exact heights of vertices (the slab boundaries).
    using T = TypeParam;
    using P = Cpoint2<T>;
    std::mt19937 rng(77);
    std::uniform_int_distribution<int> G(0, 60);
    std::uniform_real_distribution<double> U(-5, 65);
    std::vector<std::vector<P>> polys;
    for (int round = 0; round < 20; ++round) {
        std::vector<P> cloud;
        for (int i = 0; i < 32 + round * 7; ++i) cloud.emplace_back(T(G(rng)), T(G(rng)));
        polys.push_back(Cpolygon2<T>::contourPoly(cloud).points());  // simple, concave
        polys.push_back(cloud);                                      // self-intersecting
    }
    std::vector<P> gear;
    for (int i = 0; i < 400; ++i) {
        const double a = 2 * 3.141592653589793 * i / 400, r = i % 2 ? 18 : 30;
        gear.emplace_back(T(30 + r * std::cos(a)), T(30 + r * std::sin(a)));
    }
    polys.push_back(gear);
    int indexed = 0;
    for (auto const& v : polys) {
        Cpolygon2<T> fast(v);
        fast.preprocess();
        if (fast.type() != Cpolygon2<T>::TYPE_CONCAVE && fast.type() != Cpolygon2<T>::TYPE_COMPLEX) continue;
        ++indexed;
        const Cpolygon2<T> plain(fast.points());  // same vertices, TYPE_UNKNOWN
        std::vector<P> q;
        for (int k = 0; k < 300; ++k) q.emplace_back(T(U(rng)), T(U(rng)));
        for (std::size_t i = 0; i < v.size(); ++i) {
            const P a = v[i], b = v[(i + 1) % v.size()];
            q.push_back(a);
            q.emplace_back((a.x + b.x) / T(2), (a.y + b.y) / T(2));
            q.emplace_back(T(U(rng)), a.y);
        }
        q.emplace_back(std::numeric_limits<T>::quiet_NaN(), T(30));
        q.emplace_back(T(30), std::numeric_limits<T>::quiet_NaN());
        for (P const& p : q) ASSERT_EQ(fast.pointIsIn(p), plain.pointIsIn(p)) << p.x << "," << p.y;
    }
    EXPECT_GT(indexed, 30);
}

TYPED_TEST(Polygon, HullAndContourAgainstBruteForce) {
    using T = TypeParam;
    using P = Cpoint2<T>;
    std::mt19937 rng(77);
    for (int round = 0; round < 400; ++round) {
        const int range = round % 2 ? 6 : 1000;  // small ranges force collinear and repeated points
        std::uniform_int_distribution<int> G(-range, range);
        std::vector<P> cloud;
        const int n = 1 + round % 60;
        for (int i = 0; i < n; ++i) cloud.emplace_back(T(G(rng)), T(G(rng)));
        std::set<std::pair<T, T>> distinct;
        for (auto& p : cloud) distinct.insert({p.x, p.y});

        const std::vector<P> strict = Cpolygon2<T>::convexPoly(cloud, false).points();
        const std::vector<P> full = Cpolygon2<T>::convexPoly(cloud, true).points();
        const std::vector<P> contour = Cpolygon2<T>::contourPoly(cloud).points();
        ASSERT_EQ(contour.size(), distinct.size());
        if (strict.size() < 3) continue;  // collinear sets are checked separately

        // Strict hull: starts at the smallest (x, y), strictly convex ccw, every
        // vertex an input point, every input point inside or on it.
        const P start = *std::min_element(cloud.begin(), cloud.end(), [](P a, P b) {
            return a.x < b.x || (a.x == b.x && a.y < b.y);
        });
        ASSERT_EQ(strict[0], start);
        ASSERT_EQ(full[0], start);
        const std::size_t h = strict.size();
        for (std::size_t i = 0; i < h; ++i) {
            ASSERT_GT(crossL(strict[i], strict[(i + 1) % h], strict[(i + 2) % h]), 0);
            ASSERT_TRUE(distinct.count({strict[i].x, strict[i].y}));
        }
        std::size_t onB = 0;
        for (auto& q : distinct) {
            const P p(q.first, q.second);
            for (std::size_t i = 0; i < h; ++i) ASSERT_GE(crossL(strict[i], strict[(i + 1) % h], p), 0);
            onB += onBoundary(strict, p);
        }
        // With edge points: exactly the input points on the hull boundary, in
        // order (non-negative turns), same area.
        ASSERT_EQ(full.size(), onB);
        for (std::size_t i = 0; i < full.size(); ++i) {
            ASSERT_GE(crossL(full[i], full[(i + 1) % full.size()], full[(i + 2) % full.size()]), 0);
            ASSERT_TRUE(onBoundary(strict, full[i]));
        }
        ASSERT_EQ(Cpolygon2<T>(full).area(), Cpolygon2<T>(strict).area());
        // The contour is simple, counter-clockwise, through every point.
        ASSERT_TRUE(reallySimple(contour)) << round;
        ASSERT_GT(Cpolygon2<T>(contour).area(), T(0));
    }
    // Degenerate sets.
    EXPECT_EQ(Cpolygon2<T>::convexPoly({}, false).size(), 0u);
    EXPECT_EQ(Cpolygon2<T>::convexPoly(pts<T>({{1, 1}, {1, 1}}), true).size(), 1u);
    const auto line = pts<T>({{2, 2}, {0, 0}, {1, 1}, {3, 3}, {1, 1}});
    EXPECT_EQ(Cpolygon2<T>::convexPoly(line, false).points(), pts<T>({{0, 0}, {3, 3}}));
    EXPECT_EQ(Cpolygon2<T>::convexPoly(line, true).points(), pts<T>({{0, 0}, {1, 1}, {2, 2}, {3, 3}}));
    const auto withNaN = pts<T>({{0, 0}, {1, 0}, {std::nan(""), 5}, {0, 1}});
    EXPECT_EQ(Cpolygon2<T>::convexPoly(withNaN, false).size(), 3u);
    EXPECT_EQ(Cpolygon2<T>::contourPoly(withNaN).size(), 3u);
    // Infinite points are dropped as well (like CcvxHull2D): the hull of the rest.
    const T inf = std::numeric_limits<T>::infinity();
    for (bool keep : {false, true}) {
        const auto withInf = pts<T>({{0, 0}, {1, 0}, {0, 1}});
        auto v = withInf;
        v.push_back(Cpoint2<T>(inf, 5));
        v.push_back(Cpoint2<T>(-inf, -inf));
        v.push_back(Cpoint2<T>(2, inf));
        EXPECT_EQ(Cpolygon2<T>::convexPoly(v, keep).points(), Cpolygon2<T>::convexPoly(withInf, keep).points());
    }
    // The member form keeps edge points and leaves the polygon unchanged.
    Cpolygon2<T> sq(pts<T>({{0, 0}, {2, 0}, {1, 0}, {2, 2}, {0, 2}, {1, 1}}));
    EXPECT_EQ(sq.convexPoly().size(), 5u);
    EXPECT_EQ(sq.size(), 6u);
}

TYPED_TEST(Polygon, MinimumEnclosingRect) {
    using T = TypeParam;
    using P = Cpoint2<T>;
    // A rotated rectangle 4 x 2 with inner points: the result is itself.
    const double c = std::cos(0.3), s = std::sin(0.3);
    std::vector<P> v;
    for (auto q : {std::make_pair(0.0, 0.0), {4.0, 0.0}, {4.0, 2.0}, {0.0, 2.0}, {1.0, 1.0}, {3.0, 0.5}})
        v.emplace_back(T(10 + q.first * c - q.second * s), T(-3 + q.first * s + q.second * c));
    const Cpolygon2<T> rot(v);
    const std::vector<P> r = rot.minimumEnclosingRect();
    ASSERT_EQ(r.size(), 4u);
    const T tolr = std::is_same<T, float>::value ? T(1e-4) : T(1e-12);
    const T w = (r[1] - r[0]).length(), h = (r[2] - r[1]).length();
    EXPECT_NEAR(w * h, T(8), tolr * 8);
    EXPECT_EQ(rot.size(), 6u);  // the polygon is not changed

    // Random clouds: a right-angled ccw rectangle containing every point whose
    // area equals the brute-force minimum over all hull edge directions.
    std::mt19937 rng(8);
    std::uniform_real_distribution<double> U(-50, 50);
    for (int round = 0; round < 200; ++round) {
        std::vector<P> cloud;
        const int n = 3 + round % 100;
        for (int i = 0; i < n; ++i) cloud.emplace_back(T(U(rng)), T(0.3 * U(rng)));
        const std::vector<P> q = Cpolygon2<T>(cloud).minimumEnclosingRect();
        ASSERT_EQ(q.size(), 4u);
        const double eps = std::is_same<T, float>::value ? 2e-3 : 1e-9;  // absolute, coordinates <= 50
        const auto d = [](P a, P b) { return std::hypot(double(a.x) - b.x, double(a.y) - b.y); };
        for (int i = 0; i < 4; ++i) {
            const P a = q[i], b = q[(i + 1) % 4], e = q[(i + 2) % 4];
            const double dot = (double(b.x) - a.x) * (double(e.x) - b.x) + (double(b.y) - a.y) * (double(e.y) - b.y);
            ASSERT_NEAR(dot / (d(a, b) * d(b, e) + 1e-300), 0.0, 1e-3);  // right angle
            for (auto& p : cloud) ASSERT_GE(crossL(a, b, p) / d(a, b), -eps);  // inside
        }
        const auto hull = Cpolygon2<T>::convexPoly(cloud, false).points();
        double best = 1e300;
        for (std::size_t i = 0; i < hull.size(); ++i) {
            const P a = hull[i], b = hull[(i + 1) % hull.size()];
            const double L = d(a, b), ex = (double(b.x) - a.x) / L, ey = (double(b.y) - a.y) / L;
            double lo = 1e300, hi = -1e300, top = 0;
            for (auto& p : hull) {
                const double u = (double(p.x) - a.x) * ex + (double(p.y) - a.y) * ey;
                const double t = -(double(p.x) - a.x) * ey + (double(p.y) - a.y) * ex;
                lo = std::min(lo, u);
                hi = std::max(hi, u);
                top = std::max(top, t);
            }
            best = std::min(best, (hi - lo) * top);
        }
        const double got = d(q[0], q[1]) * d(q[1], q[2]);
        ASSERT_NEAR(got, best, (std::is_same<T, float>::value ? 1e-4 : 1e-10) * best) << round;
    }
    // Degenerate inputs.
    EXPECT_TRUE(Cpolygon2<T>().minimumEnclosingRect().empty());
    EXPECT_EQ(Cpolygon2<T>(pts<T>({{1, 2}, {1, 2}})).minimumEnclosingRect(), pts<T>({{1, 2}, {1, 2}, {1, 2}, {1, 2}}));
    EXPECT_EQ(Cpolygon2<T>(pts<T>({{0, 0}, {2, 2}, {1, 1}})).minimumEnclosingRect(),
              pts<T>({{0, 0}, {2, 2}, {2, 2}, {0, 0}}));
}

// The simplification, written the straightforward way: recompute every
// triangle and scan with the tie rule (first vertex is the first candidate,
// later ones replace it only when strictly smaller).
template <class T>
std::vector<Cpoint2<T>> naiveSimplify(std::vector<Cpoint2<T>> v, unsigned n) {
    while (v.size() > n) {
        const std::size_t m = v.size();
        std::size_t best = 0;
        T bestA = T(0);
        for (std::size_t i = 0; i < m; ++i) {
            const auto& a = v[(i + m - 1) % m];
            const auto& b = v[i];
            const auto& c = v[(i + 1) % m];
            const T ar = std::abs((b.x - a.x) * (c.y - a.y) - (c.x - a.x) * (b.y - a.y));
            if (i == 0 || ar < bestA) {
                best = i;
                bestA = ar;
            }
        }
        v.erase(v.begin() + static_cast<std::ptrdiff_t>(best));
    }
    return v;
}

TYPED_TEST(Polygon, Simplification) {
    using T = TypeParam;
    using P = Cpoint2<T>;
    // Hexagon with six equal triangles: P0 goes first, then P2.
    const auto hex = pts<T>({{1, 0}, {1, 1}, {0, 1}, {-1, 0}, {-1, -1}, {0, -1}});
    const Cpolygon2<T> h(hex);
    EXPECT_EQ(h.simplifiedTo(4).points(), pts<T>({{1, 1}, {-1, 0}, {-1, -1}, {0, -1}}));
    EXPECT_EQ(h.simplifiedTo(2).points(), hex);
    EXPECT_EQ(h.simplifiedTo(6).points(), hex);
    EXPECT_EQ(h.simplifiedTo(60).points(), hex);
    EXPECT_EQ(Cpolygon2<T>(pts<T>({{0, 0}, {1, 1}})).simplifiedTo(1).size(), 0u);
    Cpolygon2<T> pre(hex);
    pre.preprocess();
    EXPECT_EQ(pre.simplifiedTo(3).type(), Cpolygon2<T>::TYPE_UNKNOWN);

    std::mt19937 rng(31);
    for (int round = 0; round < 300; ++round) {
        const int range = round % 3 == 0 ? 3 : 100;  // small range: many ties
        std::uniform_int_distribution<int> G(-range, range);
        std::vector<P> v;
        const int n = 3 + round % 50;
        for (int i = 0; i < n; ++i) v.emplace_back(T(G(rng)), T(G(rng)));
        const unsigned target = 3 + unsigned(round) % unsigned(n);
        const Cpolygon2<T> s = Cpolygon2<T>(v).simplifiedTo(target);
        if (target >= unsigned(n)) {
            ASSERT_EQ(s.points(), v);
        } else {
            ASSERT_EQ(s.points(), naiveSimplify(v, target)) << round;
        }
    }

    // NaN vertices: the scan never replaces its candidate by a NaN area, and
    // a NaN area of the first vertex is never replaced either, so that vertex
    // goes.  The ordering of the candidates must follow that rule, not break
    // down on the unordered NaN (compared by bit pattern, NaN == NaN here).
    const auto same = [](std::vector<P> const& a, std::vector<P> const& b) {
        if (a.size() != b.size()) return false;
        for (std::size_t i = 0; i < a.size(); ++i) {
            const bool xn = std::isnan(a[i].x) && std::isnan(b[i].x);
            const bool yn = std::isnan(a[i].y) && std::isnan(b[i].y);
            if (!(xn || a[i].x == b[i].x) || !(yn || a[i].y == b[i].y)) return false;
        }
        return true;
    };
    const T nan = std::numeric_limits<T>::quiet_NaN();
    // First vertex NaN: it is removed first, then the smallest triangle.
    const auto withNaN = pts<T>({{nan, nan}, {0, 0}, {4, 0}, {4, 4}, {2, 5}, {0, 4}});
    EXPECT_TRUE(same(Cpolygon2<T>(withNaN).simplifiedTo(5).points(), pts<T>({{0, 0}, {4, 0}, {4, 4}, {2, 5}, {0, 4}})));
    for (int round = 0; round < 400; ++round) {
        std::uniform_int_distribution<int> G(-3, 3);
        std::vector<P> v;
        const int n = 4 + round % 20;
        for (int i = 0; i < n; ++i) v.emplace_back(T(G(rng)), T(G(rng)));
        const int nans = 1 + round % 3;
        for (int k = 0; k < nans; ++k) v[std::size_t(G(rng) + 3) % v.size()].x = nan;
        const unsigned target = 3 + unsigned(round) % unsigned(n - 3);
        ASSERT_TRUE(same(Cpolygon2<T>(v).simplifiedTo(target).points(), naiveSimplify(v, target))) << round;
    }
}

// A NaN point is in no polygon, an infinite one in no (bounded) polygon, by
// every path: rectangle cache, convex angle table, winding number.
TYPED_TEST(Polygon, NonFinitePointsAreOutside) {
    using T = TypeParam;
    const T nan = std::numeric_limits<T>::quiet_NaN(), inf = std::numeric_limits<T>::infinity();
    std::vector<Cpolygon2<T>> polys{Cpolygon2<T>(pts<T>({{0, 0}, {2, 0}, {2, 2}, {0, 2}})),
                                    Cpolygon2<T>(pts<T>({{0, 0}, {4, 0}, {5, 2}, {2, 4}, {-1, 2}})),
                                    Cpolygon2<T>(pts<T>({{0, 0}, {4, 0}, {4, 4}, {2, 1}, {0, 4}}))};
    const std::size_t raw = polys.size();
    for (std::size_t k = 0; k < raw; ++k) {
        polys.push_back(polys[k]);
        polys.back().preprocess();
    }
    EXPECT_EQ(polys[3].type(), Cpolygon2<T>::TYPE_RECT);
    EXPECT_EQ(polys[4].type(), Cpolygon2<T>::TYPE_CONVEX);
    EXPECT_GE(polys[5].type(), Cpolygon2<T>::TYPE_CONCAVE);  // winding path
    for (std::size_t k = 0; k < polys.size(); ++k) {
        EXPECT_TRUE(polys[k].pointIsIn(Cpoint2<T>(1, 1))) << k;
        for (auto const& p : {Cpoint2<T>(nan, 1), Cpoint2<T>(1, nan), Cpoint2<T>(nan, nan), Cpoint2<T>(inf, inf),
                              Cpoint2<T>(inf, 1), Cpoint2<T>(-inf, 1), Cpoint2<T>(1, -inf), Cpoint2<T>(-inf, inf)})
            EXPECT_FALSE(polys[k].pointIsIn(p)) << k << " (" << p.x << ", " << p.y << ")";
    }
}
