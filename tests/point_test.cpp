// Tests of points, directions, tolerances and the scalar helpers.
#include <math/geometric.h>
#include <math/point.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace math;

TEST(Point, ToleranceConstantsAreExact) {
    EXPECT_EQ(tol::epsFloat, 1.1920928955078125e-07);
    EXPECT_EQ(tol::epsDouble, 2.220446049250313e-16);
    EXPECT_EQ(tol::direcFloat, 3.0517578125e-05);
    EXPECT_EQ(tol::direcDouble, 2.9103830456733704e-11);
    EXPECT_EQ(tol::eps<float>(), std::numeric_limits<float>::epsilon());
    EXPECT_EQ(tol::eps<double>(), std::numeric_limits<double>::epsilon());
}

TEST(Point, DirectionNormalisation) {
    Cdirec2<double> d(Cpoint2<double>(3, 4)), z(Cpoint2<double>(0, 0));
    EXPECT_TRUE(d.x == 0.6 && d.y == 0.8 && d.isValid());
    EXPECT_TRUE(!z.isValid() && std::isnan(z.x) && z.y == 0.0);
    Cdirec2<float> raw(3, 4, true), raw2(3, 4, false);  // the flag is never looked at
    EXPECT_TRUE(raw.x == 3.0f && raw.y == 4.0f && raw2.x == 3.0f);
    Cdirec2<double> a = Cdirec2<double>::posX;
    a = Cpoint2<double>(0, -2);
    EXPECT_EQ(a, Cdirec2<double>::negY);
    a.invalidate();
    EXPECT_TRUE(!a.isValid() && a.y == -1.0);
    EXPECT_DOUBLE_EQ(Cdirec3<double>(Cpoint3<double>(2, 3, 6)).z, 6.0 / 7.0);
    EXPECT_FALSE(Cdirec3<float>(Cpoint3<float>(0, 0, 0)).isValid());
    Cdirec3<float> n3(0, 0, 1);
    n3.z = std::numeric_limits<float>::quiet_NaN();
    EXPECT_FALSE(n3.isValid());
}

// Components whose squares overflow or underflow are normalised through a
// power-of-two scaling; in the normal range the result is the direct one.
TEST(Point, DirectionNormalisationScalesExtremeComponents) {
    const double h = std::sqrt(0.5);
    for (double m : {1e300, -1e300, 1e-300, 4.9e-324, std::numeric_limits<double>::max()}) {
        const Cdirec2<double> d(m, m);
        EXPECT_TRUE(d.isValid()) << m;
        EXPECT_NEAR(d.x, m > 0 ? h : -h, 1e-15) << m;
        EXPECT_EQ(d.y, d.x) << m;
        if (std::fabs(m) > 1e-310 && std::fabs(m) < 1e307) {  // 2m, 3m, 6m exact and finite
            const Cdirec3<double> e(Cpoint3<double>(2 * m, 3 * m, 6 * m));
            EXPECT_TRUE(e.isValid()) << m;
            EXPECT_NEAR(e.z, m > 0 ? 6.0 / 7 : -6.0 / 7, 1e-15) << m;
        }
    }
    const Cdirec2<double> mixed(1e300, 1e-300);
    EXPECT_TRUE(mixed.x == 1.0 && mixed.y == 0.0);
    // Infinite or NaN components stay invalid; zero stays invalid.
    EXPECT_FALSE(Cdirec2<double>(HUGE_VAL, 1).isValid() || Cdirec2<double>(NAN, 1e300).isValid() || Cdirec3<float>(0, 0, 0).isValid());
}

TEST(Point, DirectionConstantsAndOperators) {
    // Constant-initialised: usable in other static initialisers.
    EXPECT_TRUE(Cdirec2<double>::posX.x == 1.0 && Cdirec2<float>::negX.x == -1.0f && Cdirec2<float>::negY.y == -1.0f);
    using D = Cdirec2<double>;
    EXPECT_TRUE(D::posX.perp() == D::posY && D::posY.perp() == D::negX && D::negX.perp() == D::negY);
    EXPECT_TRUE(-D::posX == D::negX && D::posY[1] == 1.0);
    EXPECT_TRUE(D::posX + Cpoint2<double>(5, 7) == Cpoint2<double>(6, 7) && D::posX - Cpoint2<double>(5, 7) == Cpoint2<double>(-4, -7));
}

TEST(Point, DirectionEqualityIsRelativeAndStrict) {
    const double td = 0x1p-35;
    const Cdirec2<double> a(1, 0, true);
    EXPECT_TRUE(a == Cdirec2<double>(1 + 1.5 * td, 0, true));  // within t*(1+|b|) = 2t
    EXPECT_FALSE(a == Cdirec2<double>(1 + 2.5 * td, 0, true));
    EXPECT_FALSE(a == Cdirec2<double>(1, 1.5 * td, true));  // 0 vs t*(1+0) = t
    EXPECT_TRUE(a == Cdirec2<double>(1, 0.5 * td, true));
    const float tf = 0x1p-15f;
    const Cdirec2<float> f(0, 1, true);
    EXPECT_TRUE(f == Cdirec2<float>(0.5f * tf, 1, true));
    EXPECT_FALSE(f == Cdirec2<float>(1.5f * tf, 1, true));
    Cdirec2<double> n;
    n.invalidate();
    EXPECT_FALSE(n == n);
}

TEST(Point, ScalarEqualIsClosedWithSingleEpsilon) {
    EXPECT_TRUE(geometric<double>::equal(1.0, 1.0 + 1e-7));
    EXPECT_FALSE(geometric<double>::equalT(1.0, 1.0 + 1e-7));
    EXPECT_TRUE(geometric<float>::equal(0.0f, 1.1920928955078125e-07f));
    EXPECT_TRUE(geometric<float>::equalT(0.0f, 1.1920928955078125e-07f));
    EXPECT_TRUE(geometric<double>::equal(0.0, 0x1p-23));
    EXPECT_FALSE(geometric<double>::equal(0.0, 0x1p-23 * (1 + 0x1p-52)));
    EXPECT_TRUE(geometric<double>::equalT(0.0, 0x1p-52));
    EXPECT_FALSE(geometric<double>::equalT(0.0, 0x1p-51));
    EXPECT_FALSE(geometric<double>::equal(std::nan(""), std::nan("")));
}

TEST(Point, PointEqualIsOpenWithTypeEpsilonTakenLiterally) {
    using P2f = Cpoint2<float>;
    using P2d = Cpoint2<double>;
    using P3d = Cpoint3<double>;
    EXPECT_FALSE(geometric<float>::equal(P2f(0, 0), P2f(1.1920928955078125e-07f, 0)));
    EXPECT_TRUE(geometric<float>::equal(P2f(0, 0), P2f(5e-8f, -5e-8f)));
    EXPECT_TRUE(geometric<double>::equal(P2d(1, 0.5), P2d(1, 0.5)));
    // In [2, 4) a + eps is a rounding tie: even significands stay put.
    EXPECT_FALSE(geometric<double>::equal(P2d(2, 0), P2d(2, 0)));
    EXPECT_TRUE(geometric<double>::equal(P2d(2 + 0x1p-51, 0), P2d(2 + 0x1p-51, 0)));
    // a + eps rounds back to a for |a| >= 4 in double: unequal even to itself.
    EXPECT_FALSE(geometric<double>::equal(P2d(4, 0), P2d(4, 0)));
    EXPECT_FALSE(geometric<double>::equal(P2d(0, -1e6), P2d(0, -1e6)));
    EXPECT_TRUE(geometric<double>::equal(P3d(1, -1.5, 0.25), P3d(1, -1.5, 0.25)));
    EXPECT_FALSE(geometric<double>::equal(P3d(1, 0, 0.5), P3d(1, 0, 0.5 + 1e-15)));
    EXPECT_FALSE(geometric<double>::equal(P3d(1, 2, 5), P3d(1, 2, 5)));
}

TEST(Point, ScalarHelpers) {
    using M = cNRB_math<double>;
    using F = cNRB_math<float>;
    EXPECT_DOUBLE_EQ(M::pythag(3e200, 4e200), 5e200);
    EXPECT_TRUE(M::pythag(0, 0) == 0.0 && M::pythag(-3, 4) == 5.0 && M::absDistance(6, -8) == 10.0);
    EXPECT_TRUE(std::isinf(M::calcEuclidDist(3e200, 4e200)));
    EXPECT_EQ(M::calcEuclidDist(3, 4), 5.0);
    EXPECT_TRUE(M::sign(2, 0) == -2.0 && M::sign(-2, 1) == -2.0 && M::sign(2, std::nan("")) == -2.0);
    EXPECT_TRUE(M::setSignof(2, 0) == 2.0 && M::setSignof(-2, 1) == 2.0 && M::setSignof(2, -0.5) == -2.0);
    EXPECT_TRUE(M::absmax(-5, 3) == 5.0 && M::absmax(3, -3) == 3.0 && M::min(1, 2) == 1.0 && M::max(1, 2) == 2.0);
    // Ties return b: visible with signed zeros.
    EXPECT_TRUE(std::signbit(M::min(0.0, -0.0)) && std::signbit(M::max(0.0, -0.0)) && !std::signbit(M::min(-0.0, 0.0)));
    EXPECT_EQ(F::pythag(3e30f, 4e30f), 5e30f);  // squares overflow float, not double
    EXPECT_EQ(F::pythag(1e-30f, 1e-30f), static_cast<float>(1e-30f * std::sqrt(2.0)));
}
