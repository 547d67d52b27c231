#include <math/geometric.h>
#include <math/primitives2.h>

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <limits>
#include <list>
#include <random>
#include <vector>

using namespace math;

template <class T>
class Planar : public ::testing::Test {};
using FloatTypes = ::testing::Types<float, double>;
TYPED_TEST_SUITE(Planar, FloatTypes);

TYPED_TEST(Planar, LineConstructionAndValidity) {
    using T = TypeParam;
    using P = Cpoint2<T>;
    for (Cline2<T> const& bad : {Cline2<T>(), Cline2<T>(P(1, 2), P(1, 2)), Cline2<T>(P(0, 0)),
                                 Cline2<T>(P(quietNaN<T>(), 0), Cdirec2<T>::posX),
                                 Cline2<T>(P(0, 0), Cdirec2<T>(0, quietNaN<T>(), true))})
        EXPECT_FALSE(bad.isValid());
    const Cline2<T> l(P(1, 2), P(4, 6));
    EXPECT_TRUE(l.isValid() && l.point() == P(1, 2));
    EXPECT_NEAR(l.direction().x, T(0.6), T(1e-6));
    EXPECT_NEAR(l.direction().y, T(0.8), T(1e-6));
    // The point/direction constructor does not renormalise.
    EXPECT_EQ(Cline2<T>(P(0, 0), Cdirec2<T>(3, 4, true)).pointAt(T(2)), P(6, 8));
    // The perpendicular-foot constructor and getLotPoint round trip.
    const Cline2<T> foot(P(3, 4));
    P f(T(99), T(-99));  // input value is ignored
    EXPECT_EQ(&foot.getLotPoint(f), &f);
    EXPECT_NEAR(f.x, T(3), T(1e-5));
    EXPECT_NEAR(f.y, T(4), T(1e-5));
    T dist, arc;
    foot.getDistArc(dist, arc);
    EXPECT_NEAR(dist, T(5), T(1e-5));
    EXPECT_NEAR(arc, std::atan2(T(4), T(3)), T(1e-6));
    Cline2<T> s;
    s.set(P(0, 0), P(0, -2));
    EXPECT_EQ(s.direction().y, T(-1));
    s.set(P(1, 1), Cdirec2<T>::negX);
    EXPECT_TRUE(s.point() == P(1, 1) && s.direction().x == T(-1));
}

TYPED_TEST(Planar, HesseFormAndDistArcDiffer) {
    using T = TypeParam;
    using P = Cpoint2<T>;
    const T pi = T(3.141592653589793);
    Cdirec2<T> n;
    T d, dist, arc;
    // HNF (n, d >= 0) and getDistArc: a vertical line through the origin has
    // normal (-1, 0) (angle pi) while getDistArc says -pi/2, unwrapped; through
    // the origin with dx < 0 the normal is (dy, -dx); below the origin the arc
    // is wrapped to 3*pi/2.
    const struct {
        Cline2<T> l;
        T nx, ny, d, arc;
    } known[] = {{Cline2<T>(P(0, 0), Cdirec2<T>::posY), T(-1), T(0), T(0), std::atan2(T(-1), T(0))},
                 {Cline2<T>(P(0, 0), Cdirec2<T>(-1, -1)), -std::sqrt(T(0.5)), std::sqrt(T(0.5)), T(0), -pi / 4},
                 {Cline2<T>(P(0, 1), Cdirec2<T>::posX), T(0), T(1), T(1), pi / 2},
                 {Cline2<T>(P(5, -2), Cdirec2<T>::posX), T(0), T(-1), T(2), T(1.5) * pi}};
    for (auto const& k : known) {
        k.l.getHNF(n, d);
        k.l.getDistArc(dist, arc);
        EXPECT_NEAR(n.x, k.nx, T(1e-6));
        EXPECT_NEAR(n.y, k.ny, T(1e-6));
        EXPECT_EQ(d, k.d);
        EXPECT_EQ(dist, k.d);
        EXPECT_NEAR(arc, k.arc, T(1e-5));
    }
    Cline2<T>(P(quietNaN<T>(), 0), Cdirec2<T>::posX).getHNF(n, d);
    EXPECT_FALSE(n.isValid());
    EXPECT_TRUE(std::isnan(d));
}

TYPED_TEST(Planar, LineIntersection) {
    using T = TypeParam;
    using P = Cpoint2<T>;
    P s(T(7), T(7));
    // Parallel, antiparallel and within the parallel band (sine 2^-24): false, s untouched.
    EXPECT_FALSE(geometric<T>::intersect(Cline2<T>(P(0, 0), P(1, 1)), Cline2<T>(P(0, 1), P(1, 2)), s));
    EXPECT_FALSE(geometric<T>::intersect(Cline2<T>(P(0, 0), P(1, 1)), Cline2<T>(P(0, 1), P(-1, 0)), s));
    const Cline2<T> ox(P(0, 0), Cdirec2<T>::posX);
    EXPECT_FALSE(geometric<T>::intersect(ox, Cline2<T>(P(0, 1), Cdirec2<T>(T(1), T(0x1p-24), true)), s));
    EXPECT_EQ(s, P(7, 7));
    // Beyond it (2^-22): they meet at x = -2^22.
    ASSERT_TRUE(geometric<T>::intersect(ox, Cline2<T>(P(0, 1), Cdirec2<T>(T(1), T(0x1p-22), true)), s));
    EXPECT_EQ(s.y, T(0));
    EXPECT_NEAR(s.x, -T(0x1p22), T(1));
}

TYPED_TEST(Planar, Circle) {
    using T = TypeParam;
    using P = Cpoint2<T>;
    const Ccircle2<T> c(P(1, 2), T(-2));
    EXPECT_EQ(c.radius(), T(2));
    EXPECT_TRUE(c.isValid());
    Ccircle2<T> inv = c;
    inv.invalidate();
    EXPECT_FALSE(inv.isValid());
    EXPECT_EQ(inv.center(), P(1, 2));
    EXPECT_FALSE(Ccircle2<T>().isValid());
    const Ccircle2<T> col(P(0, 0), P(1, 1), P(2, 2));
    EXPECT_FALSE(col.isValid());
    EXPECT_TRUE(std::isnan(col.center().x) && std::isnan(col.radius()));
    EXPECT_FALSE(Ccircle2<T>(P(0, 0), P(0, 0), P(2, 1)).isValid());
    EXPECT_FALSE(Ccircle2<T>(P(0, 0), P(1, 0), P(1, 0)).isValid());
    // The circle through (0, 0), (2, 0), (0, 2).
    const Ccircle2<T> k(P(0, 0), P(2, 0), P(0, 2));
    EXPECT_NEAR(double(k.center().x), 1.0, 1e-6);
    EXPECT_NEAR(double(k.center().y), 1.0, 1e-6);
    EXPECT_NEAR(double(k.radius()), std::sqrt(2.0), 1e-6);
}

template <class T>
class Rect : public ::testing::Test {};
using RectTypes = ::testing::Types<int, long, float, double>;
TYPED_TEST_SUITE(Rect, RectTypes);

TYPED_TEST(Rect, GeometryAndPointTests) {
    using T = TypeParam;
    using P = Cpoint2<T>;
    using R = Crect2<T>;
    R r(T(0), T(0), T(10), T(5));
    EXPECT_TRUE(r.bottomRight() == P(10, 5) && r.topRight() == P(10, 0) && r.bottomLeft() == P(0, 5));
    EXPECT_TRUE(r.width() == T(10) && r.height() == T(5));
    // pointIsIn is the closed rectangle; pointIsRealIn the open one, pointOnBorder the rest.
    for (int x = -2; x <= 12; ++x)
        for (int y = -2; y <= 7; ++y) {
            const P p{T(x), T(y)};
            const bool in = x >= 0 && x <= 10 && y >= 0 && y <= 5, inner = x > 0 && x < 10 && y > 0 && y < 5;
            ASSERT_EQ(r.pointIsIn(p), in) << x << "," << y;
            ASSERT_EQ(r.pointIsRealIn(p), inner) << x << "," << y;
            ASSERT_EQ(r.pointOnBorder(p), in && !inner) << x << "," << y;
        }
    // A non-normalised rectangle contains nothing; normalize returns a copy.
    const R flipped(P(10, 10), P(0, 0));
    EXPECT_FALSE(flipped.pointIsIn(P(5, 5)));
    EXPECT_EQ(flipped.normalize(), R(P(0, 0), P(10, 10)));
    EXPECT_EQ(flipped.left(), T(10));
    // Centre: integers truncate the sum toward zero.
    const bool integral = std::is_integral<T>::value;
    EXPECT_EQ(Crect2<T>(P(0, 0), P(3, -3)).center(), integral ? P(1, -1) : P(T(1.5), T(-1.5)));
    R m(P(0, 0), P(3, 3));
    m.setCenter(P(10, 10));
    EXPECT_EQ(m, integral ? R(P(9, 9), P(12, 12)) : R(P(T(8.5), T(8.5)), P(T(11.5), T(11.5))));
    // Edits, each against the rectangle it must give.
    R e(P(1, 2), T(3), T(4));
    e.adjust(T(1), T(1), T(1), T(1));
    EXPECT_EQ(e, R(P(2, 3), P(5, 7)));
    e.moveTo(P(0, 0));
    EXPECT_EQ(e, R(P(0, 0), P(3, 4)));
    e += P(1, 1);
    e -= P(2, 2);
    EXPECT_EQ(e, R(P(-1, -1), P(2, 3)));
    EXPECT_EQ(e + P(1, 1), R(P(0, 0), P(3, 4)));
    EXPECT_EQ(e - P(1, 1), R(P(-2, -2), P(1, 2)));
    EXPECT_EQ(e * T(2), R(P(-2, -2), P(4, 6)));
    e *= T(3);
    EXPECT_EQ(e, R(P(-3, -3), P(6, 9)));
    e.setWidth(T(1));
    e.setHeight(T(2));
    EXPECT_EQ(e, R(P(-3, -3), P(-2, -1)));
    e.moveBy(P(1, 0));
    EXPECT_EQ(e, R(P(-2, -3), P(-1, -1)));
}

// intersects says false when the other rectangle only touches this one's right
// or bottom edge (kept), true when it touches the left or top edge.
TYPED_TEST(Rect, IntersectsIsAsymmetricOnSharedEdge) {
    using T = TypeParam;
    using P = Cpoint2<T>;
    const Crect2<T> A(P(0, 0), P(10, 10)), B(P(10, 0), P(20, 10));
    EXPECT_FALSE(A.intersects(B));
    EXPECT_TRUE(B.intersects(A));
    const Crect2<T> AB = A.intersect(B);
    EXPECT_EQ(AB.topLeft(), P(10, 0));
    EXPECT_EQ(AB.bottomRight(), P(10, 10));
    EXPECT_LT(A.intersect(Crect2<T>(P(30, 30), P(40, 40))).width(), T(0));  // disjoint
    const Crect2<T> U = A.unite(Crect2<T>(P(40, 40), P(30, 30)));  // operand normalised
    EXPECT_EQ(U.topLeft(), P(0, 0));
    EXPECT_EQ(U.bottomRight(), P(40, 40));
    // Against the brute-force overlap of the closed rectangles on a small grid.
    std::mt19937 rng(5);
    std::uniform_int_distribution<int> G(0, 6);
    for (int i = 0; i < 3000; ++i) {
        const int l1 = G(rng), r1 = G(rng), t1 = G(rng), b1 = G(rng), l2 = G(rng), r2 = G(rng), t2 = G(rng), b2 = G(rng);
        if (l1 >= r1 || t1 >= b1 || l2 >= r2 || t2 >= b2) continue;
        const Crect2<T> a{P{T(l1), T(t1)}, P{T(r1), T(b1)}}, b{P{T(l2), T(t2)}, P{T(r2), T(b2)}};
        const bool closed = l1 <= r2 && l2 <= r1 && t1 <= b2 && t2 <= b1;
        ASSERT_EQ(a.intersects(b), closed && r1 != l2 && b1 != t2) << l1 << t1 << r1 << b1 << " " << l2 << t2 << r2 << b2;
    }
}

TEST(Rect, EqualityAndValidity) {
    EXPECT_TRUE(Crect2<double>(1.0, 1.0, 1.0, 1.0) == Crect2<double>(1.0 + 1e-12, 1.0, 1.0, 1.0));
    EXPECT_TRUE(Crect2<double>(1.0, 1.0, 1.0, 1.0) != Crect2<double>(1.0 + 1e-9, 1.0, 1.0, 1.0));
    EXPECT_TRUE(Crect2<float>(1.f, 1.f, 1.f, 1.f) == Crect2<float>(1.00003f, 1.f, 1.f, 1.f));
    EXPECT_FALSE(Crect2<float>(1.f, 1.f, 1.f, 1.f) == Crect2<float>(1.0001f, 1.f, 1.f, 1.f));
    EXPECT_FALSE(Crect2<int>(1, 1, 1, 1) == Crect2<int>(2, 1, 1, 1));
    EXPECT_FALSE(Crect2<double>().isValid());
    EXPECT_TRUE(std::isnan(Crect2<float>().left()) && std::isnan(Crect2<float>().right()));
    EXPECT_FALSE(Crect2<double>() == Crect2<double>());  // NaN never equal
    EXPECT_TRUE(Crect2<int>().isValid());
    EXPECT_EQ(Crect2<long>().right(), 0L);
    EXPECT_TRUE(Crect2<double>(0, 0, 1, 1).isValid());
}

TEST(BoundingBox, SetAndInside) {
    CboundingBox2<double> b;
    EXPECT_FALSE(b.isValid());
    b.set(std::vector<Cpoint2<double>>{});
    EXPECT_FALSE(b.isValid());
    EXPECT_TRUE(std::isnan(b.min().x));
    b.set(std::vector<Cpoint2<double>>{{2, 3}});
    EXPECT_TRUE(b.isValid());
    EXPECT_EQ(b.min(), Cpoint2<double>(2, 3));
    EXPECT_EQ(b.max(), Cpoint2<double>(2, 3));
    // Absolute margin of the machine epsilon; NaN is never inside.
    b.set(std::vector<Cpoint2<double>>{{-1, 0}, {0, 0}});
    EXPECT_TRUE(b.isInside({1e-17, 0}));
    EXPECT_FALSE(b.isInside({1e-15, 0}));
    EXPECT_TRUE(b.isInside({-1 - 1e-17, 0}));
    EXPECT_FALSE(b.isInside({std::nan(""), 0}));
    double cx, cy;
    b.getCenter(cx, cy);
    EXPECT_EQ(cx, -0.5);
    EXPECT_EQ(cy, 0.0);
    // A list and a vector give the box of min/max.
    const std::vector<Cpoint2<float>> v = {{3, -1}, {-2, 5}, {1, 7}, {0, -4}};
    CboundingBox2<float> bv, bl;
    bv.set(v);
    bl.set(std::list<Cpoint2<float>>(v.begin(), v.end()));
    EXPECT_TRUE(bv.min() == Cpoint2<float>(-2, -4) && bv.max() == Cpoint2<float>(3, 7));
    EXPECT_TRUE(bl.min() == bv.min() && bl.max() == bv.max());
    Cpoint2<float> c;
    bv.getCenter(c);
    EXPECT_EQ(c, Cpoint2<float>(0.5f, 1.5f));
    // The start values are the largest finite ones, not infinity.
    CboundingBox2<double> big;
    big.set(std::vector<Cpoint2<double>>{{std::numeric_limits<double>::infinity(), 0}});
    EXPECT_EQ(big.min().x, std::numeric_limits<double>::max());
    EXPECT_EQ(big.max().x, std::numeric_limits<double>::infinity());
}

TEST(BoundingBox, IntegerRules) {
    CboundingBox2<int> b;
    EXPECT_TRUE(b.isValid());
    EXPECT_EQ(b.min().x, 0);
    b.set(std::vector<Cpoint2<int>>{});
    EXPECT_TRUE(b.isValid());
    EXPECT_EQ(b.max().x, 0);
    // INT_MIN never raises the start maximum -2147483647.
    b.set(std::vector<Cpoint2<int>>{{INT_MIN, INT_MIN}});
    EXPECT_EQ(b.min().x, INT_MIN);
    EXPECT_EQ(b.max(), Cpoint2<int>(-2147483647, -2147483647));
    b.set(std::vector<Cpoint2<int>>{{0, 0}, {3, -3}});
    int x, y;
    b.getCenter(x, y);
    EXPECT_EQ(x, 1);
    EXPECT_EQ(y, -1);
    EXPECT_TRUE(b.isInside({3, 0}));
    EXPECT_FALSE(b.isInside({4, 0}));
    EXPECT_FALSE(b.isInside({0, 1}));
    b.set(std::list<Cpoint2<int>>{{5, 5}});
    EXPECT_EQ(b.min(), Cpoint2<int>(5, 5));
}
