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

// Cross product in long double: exact for the small (quarter-)integer coordinates used.
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

// Winding number from the signed angles the edges subtend at p (independent of
// the crossing rule under test); p must not lie on an edge.
template <class T>
int windingByAngles(std::vector<Cpoint2<T>> const& v, Cpoint2<T> const& p) {
    double sum = 0;
    for (std::size_t i = 0; i < v.size(); ++i) {
        const auto &a = v[i], &b = v[(i + 1) % v.size()];
        const double ax = double(a.x) - p.x, ay = double(a.y) - p.y, bx = double(b.x) - p.x, by = double(b.y) - p.y;
        sum += std::atan2(ax * by - ay * bx, ax * bx + ay * by);
    }
    return int(std::lround(sum / (2 * 3.141592653589793)));
}

// Distinct vertices; no two non-adjacent edges meet, adjacent ones do not fold back.
template <class T>
bool reallySimple(std::vector<Cpoint2<T>> const& v) {
    const std::size_t n = v.size();
    const auto sg = [](long double x) { return x > 0 ? 1 : (x < 0 ? -1 : 0); };
    for (std::size_t i = 0; i < n; ++i) {
        const auto &a = v[i], &b = v[(i + 1) % n], &c = v[(i + 2) % n];
        if (crossL(a, b, c) == 0 && (a.x - b.x) * (c.x - b.x) + (a.y - b.y) * (c.y - b.y) > 0) return false;
        for (std::size_t j = i + 2; j < n; ++j) {
            if (i == 0 && j == n - 1) continue;
            const auto &p = v[j], &q = v[(j + 1) % n];
            const int d1 = sg(crossL(a, b, p)), d2 = sg(crossL(a, b, q)), d3 = sg(crossL(p, q, a)), d4 = sg(crossL(p, q, b));
            if ((d1 * d2 < 0 && d3 * d4 < 0) || onSegment(a, b, p) || onSegment(a, b, q) || onSegment(p, q, a) || onSegment(p, q, b))
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
    using C = Cpolygon2<T>;
    C sq(pts<T>({{0, 0}, {1, 0}, {1, 1}, {0, 1}}));
    EXPECT_EQ(sq.type(), C::TYPE_UNKNOWN);
    EXPECT_EQ(sq.area(), T(1));
    EXPECT_EQ(sq.center(), P(T(0.5), T(0.5)));
    EXPECT_EQ(sq.boundingRect().bottomRight(), P(1, 1));
    C cw(std::list<P>{P(0, 0), P(0, 1), P(1, 1), P(1, 0)});
    EXPECT_EQ(cw.area(), T(-1));
    cw.preprocess();  // reorders counter-clockwise
    EXPECT_EQ(cw.area(), T(1));
    EXPECT_EQ(cw.type(), C::TYPE_RECT);
    // Editing: a successful change resets the type, a failed one keeps it.
    C e;
    EXPECT_TRUE(std::isnan(e.center().x) && !e.isValid());
    e.add(T(1), T(2));
    e.add(P(3, 4));
    EXPECT_EQ(e.area(), T(0));
    e.add(pts<T>({{5, 0}, {7, 7}}));
    EXPECT_TRUE(e.isValid());
    e.preprocess();
    EXPECT_FALSE(e.remove(5u) || e.remove(P(9, 9)));
    EXPECT_TRUE(e.isPreprocessed());
    EXPECT_TRUE(e.remove(P(7, 7)));
    EXPECT_FALSE(e.isPreprocessed());
    e.preprocess();
    EXPECT_TRUE(e.remove(0u));
    EXPECT_EQ(e.type(), C::TYPE_UNKNOWN);
    e.preprocess();
    e.add(P(9, 9));
    EXPECT_FALSE(e.isPreprocessed());
    e.clear();
    EXPECT_EQ(e.type(), C::TYPE_INVALID);
    EXPECT_TRUE(std::isnan(e.boundingRect().left()));  // the default rectangle
    EXPECT_EQ(C::boundingRect({}).left(), std::numeric_limits<T>::max());
    EXPECT_EQ(C::boundingRect({}).bottom(), -std::numeric_limits<T>::max());
    // Rectangle constructor: vertex order and cached type.
    const C r(Crect2<T>(P(1, 2), P(5, 7)));
    EXPECT_EQ(r.type(), C::TYPE_RECT);
    EXPECT_EQ(r.points(), pts<T>({{1, 2}, {1, 7}, {5, 7}, {5, 2}}));
    EXPECT_TRUE(r.pointIsIn(P(5, 7)));
    EXPECT_FALSE(r.pointIsIn(P(5, 8)));
    // Equality: relative comparison, stored order, no cyclic shift.
    const C a(pts<T>({{0, 0}, {1, 0}, {0, 1}}));
    C b;
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
    const std::pair<P, T> known[] = {{P(0, 0), T(360)}, {P(1, 1), T(315)}, {P(5, 0), T(360)}, {P(0, 2), T(270)}, {P(-2, 0), T(180)}, {P(0, -3), T(90)}};
    for (auto const& k : known) EXPECT_EQ(Pr::theta(P(0, 0), k.first), k.second) << k.first.x << "," << k.first.y;
    EXPECT_EQ(Pr::theta(P(1, 1), P(-2, 1)), T(180));
    for (auto const& k : {std::make_pair(T(-0.5), -1), std::make_pair(T(0), 0), std::make_pair(quietNaN<T>(), 0), std::make_pair(T(3), 1)})
        EXPECT_EQ(Pr::_sign(k.first), k.second) << k.first;
}

TYPED_TEST(Polygon, ClassificationOfEveryType) {
    using T = TypeParam;
    using C = Cpolygon2<T>;
    using P = Cpoint2<T>;
    const struct {
        std::vector<P> v;
        int type;
        std::vector<P> in, out;
    } table[] = {
        {pts<T>({{0, 0}, {1, 1}}), C::TYPE_INVALID, {}, {P(0, 0)}},
        {pts<T>({{0, 0}, {1, 1}, {2, 2}}), C::TYPE_DEGENERATED, {}, {P(1, 1)}},
        {pts<T>({{0, 0}, {2, 2}, {1, 1}, {0, 0}}), C::TYPE_DEGENERATED, {}, {}},
        {pts<T>({{0, 0}, {1, 0}, {1, 1}, {0, 1}}), C::TYPE_RECT, {P(1, 1)}, {P(T(1.0001), 1)}},
        // Convex from clockwise input, border included; a square turned by 45 degrees.
        {pts<T>({{0, 0}, {0, 3}, {2, 5}, {4, 3}, {4, 0}}), C::TYPE_CONVEX, {P(2, 4), P(2, 5), P(4, 1)}, {P(3, 5), P(-1, 1)}},
        {pts<T>({{0, 1}, {1, 0}, {2, 1}, {1, 2}}), C::TYPE_CONVEX, {P(1, 1)}, {}},
        // Bow-tie: the winding number answers.
        {pts<T>({{0, 0}, {1, 1}, {1, 0}, {0, 1}}), C::TYPE_COMPLEX, {P(T(0.1), T(0.5))}, {P(T(0.5), T(0.1))}},
        // A reflex vertex: its neighbouring edges do not "meet" under the
        // orientation rule, so a simple polygon classifies as COMPLEX (kept).
        {pts<T>({{0, 0}, {4, 0}, {4, 4}, {2, 1}, {0, 4}}), C::TYPE_COMPLEX, {P(1, 1)}, {P(2, 3)}},
    };
    for (auto const& row : table) {
        SCOPED_TRACE(::testing::Message() << "type " << row.type << ", " << row.v.size() << " vertices");
        C p(row.v);
        p.preprocess();
        EXPECT_EQ(p.type(), row.type);
        for (P const& q : row.in) EXPECT_TRUE(p.pointIsIn(q)) << q.x << "," << q.y;
        for (P const& q : row.out) EXPECT_FALSE(p.pointIsIn(q)) << q.x << "," << q.y;
    }
    EXPECT_EQ(int(C::TYPE_CONCAVE), 6);
    // A collinear vertex is dropped before the rectangle test.
    C p(pts<T>({{0, 0}, {2, 0}, {4, 0}, {4, 4}, {0, 4}}));
    p.preprocess();
    EXPECT_EQ(p.type(), C::TYPE_RECT);
    EXPECT_EQ(p.points(), pts<T>({{0, 0}, {4, 0}, {4, 4}, {0, 4}}));
    // A repeated vertex: both copies go (optimize tests the ring neighbours).
    p = pts<T>({{0, 0}, {4, 0}, {4, 0}, {0, 4}});
    p.preprocess();
    EXPECT_EQ(p.size(), 2u);
    EXPECT_EQ(p.type(), C::TYPE_COMPLEX);
}

TYPED_TEST(Polygon, ProtectedHelpers) {
    using T = TypeParam;
    using P = Cpoint2<T>;
    using Pr = Probe<T>;
    // optimize: start at the smallest (x, y), clockwise ring kept, or reversed
    // (the start vertex then comes last); collinear runs lose their inner vertices.
    Pr p(pts<T>({{3, 1}, {1, 0}, {0, 0}, {0, 2}, {1, 2}}));
    p.optimize(false);
    EXPECT_EQ(p.points(), pts<T>({{0, 0}, {0, 2}, {1, 2}, {3, 1}, {1, 0}}));
    p.optimize(true);
    EXPECT_GT(p.area(), T(0));
    EXPECT_EQ(p.points().back(), P(0, 0));
    Pr q(pts<T>({{0, 0}, {1, 0}, {2, 0}, {3, 0}, {3, 3}}));
    q.optimize(true);
    EXPECT_EQ(q.size(), 3u);
    Pr e;
    e.optimize(true);
    EXPECT_EQ(e.size(), 0u);
    // isSimple: convex ccw true; clockwise false (right turns everywhere).
    EXPECT_TRUE(Pr(pts<T>({{0, 0}, {2, 0}, {1, 2}})).isSimple());
    EXPECT_FALSE(Pr(pts<T>({{0, 0}, {1, 2}, {2, 0}})).isSimple());
    EXPECT_FALSE(Pr(pts<T>({{0, 0}, {1, 0}})).isSimple());
    // isConvex ignores the two turns that wrap around the end of the list.
    EXPECT_TRUE(Pr(pts<T>({{0, 0}, {4, 0}, {4, 4}, {0, 4}, {2, 2}})).isConvex());
    EXPECT_FALSE(Pr(pts<T>({{0, 0}, {4, 0}, {2, 1}, {4, 4}, {0, 4}})).isConvex());
    // isDegenerated over all cyclic triples.
    EXPECT_TRUE(Pr(pts<T>({{0, 0}, {1, 1}, {3, 3}, {2, 2}})).isDegenerated());
    EXPECT_FALSE(Pr(pts<T>({{0, 0}, {1, 1}, {3, 3}, {2, 3}})).isDegenerated());
    EXPECT_TRUE(Pr(pts<T>({{0, 0}, {1, 1}})).isDegenerated());
    // testRect: any vertex order, exactly four vertices.
    EXPECT_TRUE(Pr(pts<T>({{2, 5}, {0, 0}, {2, 0}, {0, 5}})).testRect());
    EXPECT_FALSE(Pr(pts<T>({{0, 0}, {2, 0}, {2, 5}, {1, 6}})).testRect());
    EXPECT_FALSE(Pr(pts<T>({{0, 0}, {2, 0}, {2, 5}, {0, 5}, {0, 4}})).testRect());
}

// Every path against an independent reference: the convex hull (angle table
// or rectangle cache) against the exact half-plane test, border included;
// simple concave contours and raw self-intersecting clouds (winding number)
// against the winding by angles off the border.
TYPED_TEST(Polygon, PointInPolygonAgainstReferences) {
    using T = TypeParam;
    using P = Cpoint2<T>;
    std::mt19937 rng(2024);
    std::uniform_int_distribution<int> G(0, 40), Q(-4, 164);  // quarter-integer queries
    int convexSeen = 0, tested = 0;
    for (int round = 0; round < 300; ++round) {
        std::vector<P> cloud;
        for (int i = 0; i < 3 + round % 40; ++i) cloud.emplace_back(T(G(rng)), T(G(rng)));
        Cpolygon2<T> hull = Cpolygon2<T>::convexPoly(cloud, false);
        const std::vector<P> hv = hull.points(), cv = Cpolygon2<T>::contourPoly(cloud).points();
        hull.preprocess();
        const Cpolygon2<T> contour(cv), raw(cloud);
        if (hv.size() >= 3) {
            ASSERT_TRUE(hull.type() == Cpolygon2<T>::TYPE_CONVEX || hull.type() == Cpolygon2<T>::TYPE_RECT);
            convexSeen += hull.type() == Cpolygon2<T>::TYPE_CONVEX;
        }
        for (int k = 0; k < 200; ++k) {
            const P q(T(Q(rng)) / T(4), T(Q(rng)) / T(4));
            if (hv.size() >= 3) {
                bool in = true;
                for (std::size_t i = 0; i < hv.size(); ++i) in = in && crossL(hv[i], hv[(i + 1) % hv.size()], q) >= 0;
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

// A preprocessed concave or complex polygon of 32+ vertices answers through its
// slab index; the same vertices unclassified run the full winding test.  They
// agree on random points, vertices, edge midpoints, points at the heights of
// vertices (the slab boundaries) and NaN.
TYPED_TEST(Polygon, SlabIndexGivesTheWindingAnswerEverywhere) {
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
    polys.emplace_back();
    for (int i = 0; i < 400; ++i) {  // a gear
        const double a = 2 * 3.141592653589793 * i / 400, r = i % 2 ? 18 : 30;
        polys.back().emplace_back(T(30 + r * std::cos(a)), T(30 + r * std::sin(a)));
    }
    int indexed = 0;
    for (auto const& v : polys) {
        Cpolygon2<T> fast(v);
        fast.preprocess();
        if (fast.type() != Cpolygon2<T>::TYPE_CONCAVE && fast.type() != Cpolygon2<T>::TYPE_COMPLEX) continue;
        ++indexed;
        const Cpolygon2<T> plain(fast.points());  // same vertices, TYPE_UNKNOWN
        std::vector<P> q = {P(std::numeric_limits<T>::quiet_NaN(), T(30)), P(T(30), std::numeric_limits<T>::quiet_NaN())};
        for (int k = 0; k < 300; ++k) q.emplace_back(T(U(rng)), T(U(rng)));
        for (std::size_t i = 0; i < v.size(); ++i) {
            const P a = v[i], b = v[(i + 1) % v.size()];
            q.insert(q.end(), {a, P((a.x + b.x) / T(2), (a.y + b.y) / T(2)), P(T(U(rng)), a.y)});
        }
        for (P const& p : q) ASSERT_EQ(fast.pointIsIn(p), plain.pointIsIn(p)) << p.x << "," << p.y;
    }
    EXPECT_GT(indexed, 30);
}

TYPED_TEST(Polygon, HullAndContourAgainstBruteForce) {
    using T = TypeParam;
    using P = Cpoint2<T>;
    std::mt19937 rng(77);
    for (int round = 0; round < 400; ++round) {
        std::uniform_int_distribution<int> G(-(round % 2 ? 6 : 1000), round % 2 ? 6 : 1000);  // small: collinear, repeated
        std::vector<P> cloud;
        for (int i = 0; i < 1 + round % 60; ++i) cloud.emplace_back(T(G(rng)), T(G(rng)));
        std::set<std::pair<T, T>> distinct;
        for (auto& p : cloud) distinct.insert({p.x, p.y});
        const std::vector<P> strict = Cpolygon2<T>::convexPoly(cloud, false).points();
        const std::vector<P> full = Cpolygon2<T>::convexPoly(cloud, true).points();
        const std::vector<P> contour = Cpolygon2<T>::contourPoly(cloud).points();
        ASSERT_EQ(contour.size(), distinct.size());
        if (strict.size() < 3) continue;
        // Strict hull: from the smallest (x, y), strictly convex ccw, input points
        // only, every input point inside or on it.
        const P start(distinct.begin()->first, distinct.begin()->second);
        ASSERT_EQ(strict[0], start);
        ASSERT_EQ(full[0], start);
        const std::size_t h = strict.size();
        std::size_t onB = 0;
        for (std::size_t i = 0; i < h; ++i) {
            ASSERT_GT(crossL(strict[i], strict[(i + 1) % h], strict[(i + 2) % h]), 0);
            ASSERT_TRUE(distinct.count({strict[i].x, strict[i].y}));
        }
        for (auto& q : distinct) {
            for (std::size_t i = 0; i < h; ++i) ASSERT_GE(crossL(strict[i], strict[(i + 1) % h], P(q.first, q.second)), 0);
            onB += onBoundary(strict, P(q.first, q.second));
        }
        // With edge points: exactly the input points on the boundary, in order.
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
    // Degenerate sets; non-finite points are dropped.
    EXPECT_EQ(Cpolygon2<T>::convexPoly({}, false).size(), 0u);
    EXPECT_EQ(Cpolygon2<T>::convexPoly(pts<T>({{1, 1}, {1, 1}}), true).size(), 1u);
    const auto line = pts<T>({{2, 2}, {0, 0}, {1, 1}, {3, 3}, {1, 1}});
    EXPECT_EQ(Cpolygon2<T>::convexPoly(line, false).points(), pts<T>({{0, 0}, {3, 3}}));
    EXPECT_EQ(Cpolygon2<T>::convexPoly(line, true).points(), pts<T>({{0, 0}, {1, 1}, {2, 2}, {3, 3}}));
    const T inf = std::numeric_limits<T>::infinity();
    auto bad = pts<T>({{0, 0}, {1, 0}, {std::nan(""), 5}, {0, 1}});
    EXPECT_EQ(Cpolygon2<T>::contourPoly(bad).size(), 3u);
    bad.insert(bad.end(), {Cpoint2<T>(inf, 5), Cpoint2<T>(-inf, -inf), Cpoint2<T>(2, inf)});
    for (bool keep : {false, true})
        EXPECT_EQ(Cpolygon2<T>::convexPoly(bad, keep).points(), pts<T>({{0, 0}, {1, 0}, {0, 1}}));
    // The member form keeps edge points and leaves the polygon unchanged.
    const Cpolygon2<T> sq(pts<T>({{0, 0}, {2, 0}, {1, 0}, {2, 2}, {0, 2}, {1, 1}}));
    EXPECT_EQ(sq.convexPoly().size(), 5u);
    EXPECT_EQ(sq.size(), 6u);
}

TYPED_TEST(Polygon, MinimumEnclosingRect) {
    using T = TypeParam;
    using P = Cpoint2<T>;
    // Random clouds: a right-angled rectangle containing every point.
    std::mt19937 rng(8);
    std::uniform_real_distribution<double> U(-50, 50);
    const auto d = [](P a, P b) { return std::hypot(double(a.x) - b.x, double(a.y) - b.y); };
    for (int round = 0; round < 200; ++round) {
        std::vector<P> cloud;
        for (int i = 0; i < 3 + round % 100; ++i) cloud.emplace_back(T(U(rng)), T(0.3 * U(rng)));
        const Cpolygon2<T> poly(cloud);
        const std::vector<P> q = poly.minimumEnclosingRect();
        ASSERT_EQ(q.size(), 4u);
        ASSERT_EQ(poly.size(), cloud.size());  // the polygon is not changed
        const double eps = std::is_same<T, float>::value ? 2e-3 : 1e-9;  // absolute, coordinates <= 50
        for (int i = 0; i < 4; ++i) {
            const P a = q[i], b = q[(i + 1) % 4], e = q[(i + 2) % 4];
            const double dot = (double(b.x) - a.x) * (double(e.x) - b.x) + (double(b.y) - a.y) * (double(e.y) - b.y);
            ASSERT_NEAR(dot / (d(a, b) * d(b, e) + 1e-300), 0.0, 1e-3);
            for (auto& p : cloud) ASSERT_GE(crossL(a, b, p) / d(a, b), -eps);
        }
    }
    EXPECT_TRUE(Cpolygon2<T>().minimumEnclosingRect().empty());
    EXPECT_EQ(Cpolygon2<T>(pts<T>({{1, 2}, {1, 2}})).minimumEnclosingRect(), pts<T>({{1, 2}, {1, 2}, {1, 2}, {1, 2}}));
    EXPECT_EQ(Cpolygon2<T>(pts<T>({{0, 0}, {2, 2}, {1, 1}})).minimumEnclosingRect(), pts<T>({{0, 0}, {2, 2}, {2, 2}, {0, 0}}));
}

TYPED_TEST(Polygon, Simplification) {
    using T = TypeParam;
    using P = Cpoint2<T>;
    // Hexagon with six equal triangles: P0 goes first, then P2.
    const auto hex = pts<T>({{1, 0}, {1, 1}, {0, 1}, {-1, 0}, {-1, -1}, {0, -1}});
    const Cpolygon2<T> h(hex);
    EXPECT_EQ(h.simplifiedTo(4).points(), pts<T>({{1, 1}, {-1, 0}, {-1, -1}, {0, -1}}));
    EXPECT_EQ(h.simplifiedTo(3).points(), pts<T>({{1, 1}, {-1, 0}, {0, -1}}));
    // The last vertex goes first here: the ring must close over it.
    EXPECT_EQ(Cpolygon2<T>(pts<T>({{0, 0}, {4, 0}, {4, 4}, {0, 4}, {0, 2}})).simplifiedTo(3).points(), pts<T>({{4, 0}, {4, 4}, {0, 4}}));
    for (unsigned n : {2u, 6u, 60u}) EXPECT_EQ(h.simplifiedTo(n).points(), hex) << n;
    EXPECT_EQ(Cpolygon2<T>(pts<T>({{0, 0}, {1, 1}})).simplifiedTo(1).size(), 0u);
    Cpolygon2<T> pre(hex);
    pre.preprocess();
    EXPECT_EQ(pre.simplifiedTo(3).type(), Cpolygon2<T>::TYPE_UNKNOWN);
    // NaN is compared by bit pattern here (NaN == NaN).
    const auto same = [](std::vector<P> const& a, std::vector<P> const& b) {
        if (a.size() != b.size()) return false;
        for (std::size_t i = 0; i < a.size(); ++i)
            if (!((std::isnan(a[i].x) && std::isnan(b[i].x)) || a[i].x == b[i].x) || !((std::isnan(a[i].y) && std::isnan(b[i].y)) || a[i].y == b[i].y))
                return false;
        return true;
    };
    const T nan = std::numeric_limits<T>::quiet_NaN();
    EXPECT_TRUE(same(Cpolygon2<T>(pts<T>({{nan, nan}, {0, 0}, {4, 0}, {4, 4}, {2, 5}, {0, 4}})).simplifiedTo(5).points(),
                     pts<T>({{0, 0}, {4, 0}, {4, 4}, {2, 5}, {0, 4}})));

}

// A NaN point is in no polygon, an infinite one in no (bounded) polygon, by
// every path: rectangle cache, convex angle table, winding number.
TYPED_TEST(Polygon, NonFinitePointsAreOutside) {
    using T = TypeParam;
    using P = Cpoint2<T>;
    const T nan = std::numeric_limits<T>::quiet_NaN(), inf = std::numeric_limits<T>::infinity();
    for (auto const& v : {pts<T>({{0, 0}, {2, 0}, {2, 2}, {0, 2}}), pts<T>({{0, 0}, {4, 0}, {5, 2}, {2, 4}, {-1, 2}}),
                          pts<T>({{0, 0}, {4, 0}, {4, 4}, {2, 1}, {0, 4}})})
        for (bool classify : {false, true}) {
            Cpolygon2<T> poly(v);
            if (classify) poly.preprocess();
            EXPECT_TRUE(poly.pointIsIn(P(1, 1))) << poly.type();
            for (auto const& p : {P(nan, 1), P(1, nan), P(nan, nan), P(inf, inf), P(inf, 1), P(-inf, 1), P(1, -inf), P(-inf, inf)})
                EXPECT_FALSE(poly.pointIsIn(p)) << poly.type() << " (" << p.x << ", " << p.y << ")";
        }
}
