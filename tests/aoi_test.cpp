#include <math/aoi.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

using namespace math;

namespace {

// Runs f, expects a CthrowMath with the given key and arguments.
template <class F>
void expectThrow(F f, std::string const& key, std::vector<std::string> const& args) {
    try {
        f();
        ADD_FAILURE() << "no exception, expected " << key;
    } catch (CthrowMath const& e) {
        EXPECT_EQ(std::string(e.id2tab(e.id()).key), key);
        EXPECT_EQ(e.arguments(), args);
    }
}

template <class T>
std::vector<Cpoint2<T>> pts(std::initializer_list<std::pair<double, double>> l) {
    std::vector<Cpoint2<T>> v;
    for (auto& p : l) v.emplace_back(T(p.first), T(p.second));
    return v;
}

}  // namespace

template <class T>
class Aoi : public ::testing::Test {};
using FloatTypes = ::testing::Types<float, double>;
TYPED_TEST_SUITE(Aoi, FloatTypes);

TYPED_TEST(Aoi, InvalidAreaThrows) {
    using T = TypeParam;
    using P = Cpoint2<T>;
    const std::string key = "CthrowMath::ERR_PRIMEXT_AOI_INVALID";
    const Cimage img(4, 4);
    Caoi<T> a;
    EXPECT_FALSE(a.isValid());
    const auto allThrow = [&] {
        expectThrow([&] { a.pointIsIn(P(0, 0)); }, key, {});
        expectThrow([&] { a.boundingRect(); }, key, {});
        expectThrow([&] { a.count(img); }, key, {});
        expectThrow([&] { a.mask(img); }, key, {});
    };
    allThrow();
    // Only degenerate, too small, non-finite or excluding regions: still invalid.
    for (auto const& v : {pts<T>({{0, 0}, {1, 1}, {2, 2}}), pts<T>({{0, 0}, {1, 1}}), pts<T>({{0, 0}, {1, 0}, {std::nan(""), 1}}),
                          pts<T>({{0, 0}, {1, 0}, {HUGE_VAL, 1}})})
        a.add(Cpolygon2<T>(v));
    a.add(Crect2<T>(P(0, 0), P(0, 5)));  // zero width
    a.add(Crect2<T>(P(0, 0), P(4, 4)), Caoi<T>::MODE_EXCLUDE);
    EXPECT_EQ(a.polygonCount(), 6u);
    for (unsigned i = 0; i < 5; ++i) EXPECT_FALSE(a.regionIsValid(i));
    EXPECT_TRUE(a.regionIsValid(5));
    EXPECT_FALSE(a.isValid());
    allThrow();
    // Editing the degenerate region into a triangle makes the area valid.
    a.setPoint(0, 2, P(2, 0));
    EXPECT_TRUE(a.regionIsValid(0));
    EXPECT_TRUE(a.isValid());
    EXPECT_EQ(a.polygon(0).points()[2], P(2, 0));
    // Only the excluding square covers it: nothing inside.
    EXPECT_FALSE(a.pointIsIn(P(T(1), T(0.25))));
    a.setMode(5, Caoi<T>::MODE_INCLUDE);
    EXPECT_EQ(a.mode(5), Caoi<T>::MODE_INCLUDE);
    EXPECT_TRUE(a.pointIsIn(P(T(1), T(0.25))));
    a.clear();
    EXPECT_EQ(a.polygonCount(), 0u);
    allThrow();
}

TYPED_TEST(Aoi, IndexErrorsCarryIndexAndRange) {
    using T = TypeParam;
    using P = Cpoint2<T>;
    const std::string pk = "CthrowMath::ERR_PRIMEXT_AOI_POLYINDEX", vk = "CthrowMath::ERR_PRIMEXT_AOI_POINTINDEX";
    Caoi<T> a;
    expectThrow([&] { a.polygon(0); }, pk, {"0", "0", "-1"});
    a.add(Cpolygon2<T>(pts<T>({{0, 0}, {4, 0}, {4, 3}, {1, 5}})));
    a.add(Crect2<T>(P(10, 10), P(12, 12)));
    expectThrow([&] { a.polygon(2); }, pk, {"2", "0", "1"});
    expectThrow([&] { a.point(7, 0); }, pk, {"7", "0", "1"});
    expectThrow([&] { a.pointCount(2); }, pk, {"2", "0", "1"});
    expectThrow([&] { a.mode(3); }, pk, {"3", "0", "1"});
    expectThrow([&] { a.setMode(3, Caoi<T>::MODE_EXCLUDE); }, pk, {"3", "0", "1"});
    expectThrow([&] { a.remove(2); }, pk, {"2", "0", "1"});
    expectThrow([&] { a.setPolygon(2, Cpolygon2<T>()); }, pk, {"2", "0", "1"});
    expectThrow([&] { a.regionIsValid(2); }, pk, {"2", "0", "1"});
    expectThrow([&] { a.point(0, 4); }, vk, {"4", "0", "3"});
    expectThrow([&] { a.setPoint(1, 4, P(0, 0)); }, vk, {"4", "0", "3"});
    expectThrow([&] { a.point(0, 4000000000u); }, vk, {"4000000000", "0", "3"});
    // The regions are returned as given (not reordered by the classification).
    EXPECT_EQ(a.pointCount(0), 4u);
    EXPECT_EQ(a.point(0, 3), P(1, 5));
    EXPECT_EQ(a.point(1, 0), P(10, 10));
    a.remove(0);
    EXPECT_EQ(a.polygonCount(), 1u);
    EXPECT_EQ(a.point(0, 2), P(12, 12));
    expectThrow([&] { a.point(1, 0); }, pk, {"1", "0", "0"});
}

TYPED_TEST(Aoi, PointsBoundingRectAndImages) {
    using T = TypeParam;
    using P = Cpoint2<T>;
    // Including: a rectangle, a convex polygon, and an L-shape (winding number);
    // excluding: a triangle cutting a hole into the rectangle.
    Caoi<T> a(Crect2<T>(T(1.5), T(2), T(10), T(6)));  // (1.5, 2) .. (11.5, 8)
    const Cpolygon2<T> convex(pts<T>({{20, 3}, {26, 1}, {29, 7}, {22, 9.5}}));
    const Cpolygon2<T> ell(pts<T>({{-5, 12}, {5, 12}, {5, 14}, {-3, 14}, {-3, 30}, {-5, 30}}));
    const Cpolygon2<T> hole(pts<T>({{4, 3}, {9, 3}, {6.5, 7}}));
    a.add(convex);
    a.add(ell);
    a.add(hole, Caoi<T>::MODE_EXCLUDE);
    ASSERT_TRUE(a.isValid());

    const Crect2<T> b = a.boundingRect();
    EXPECT_EQ(b.left(), T(-5));
    EXPECT_EQ(b.top(), T(1));
    EXPECT_EQ(b.right(), T(29));
    EXPECT_EQ(b.bottom(), T(30));

    EXPECT_TRUE(a.pointIsIn(P(2, 2)));   // rectangle border
    EXPECT_FALSE(a.pointIsIn(P(6, 5)));  // in the hole
    EXPECT_FALSE(a.pointIsIn(P(0, 25)));  // in the L's notch
    // Images: count and mask against a test of every pixel; the image cuts
    // the L-shape (x < 0) and the area extends beyond its right edge.
    const Cimage img(25, 28, 7);
    const Cimage m = a.mask(img);
    ASSERT_TRUE(m.width() == 25u && m.height() == 28u);
    std::uint64_t expected = 0;
    for (unsigned y = 0; y < img.height(); ++y)
        for (unsigned x = 0; x < img.width(); ++x) {
            const bool in = a.pointIsIn(P(T(x), T(y)));
            expected += in;
            ASSERT_EQ(m.at(x, y), in ? 255 : 0) << x << "," << y;
        }
    EXPECT_EQ(a.count(img), expected);
    EXPECT_GT(expected, 50u);  // the regions do reach into the image
    // Pixel (x, y) is the point (x, y): the rectangle (1.5, 2)..(11.5, 8) covers
    // columns 2..11 and rows 2..8, minus the hole.
    EXPECT_EQ(Caoi<T>(Crect2<T>(T(1.5), T(2), T(10), T(6))).count(img), 10u * 7u);
    // Areas entirely outside the image, and empty images.
    EXPECT_EQ(Caoi<T>(Crect2<T>(T(-100), T(-100), T(10), T(10))).count(img), 0u);
    Caoi<T> huge(Crect2<T>(T(-1e30), T(-1e30), T(2e30), T(2e30)));
    EXPECT_EQ(huge.count(img), 25u * 28u);
    EXPECT_EQ(huge.count(Cimage()), 0u);
    EXPECT_EQ(huge.mask(Cimage()).width(), 0u);
}

// Non-finite points are outside every area, with or without excluding regions.
TYPED_TEST(Aoi, NonFinitePointsAreOutside) {
    using T = TypeParam;
    using P = Cpoint2<T>;
    const T nan = std::numeric_limits<T>::quiet_NaN(), inf = std::numeric_limits<T>::infinity();
    Caoi<T> a(Cpolygon2<T>(pts<T>({{0, 0}, {4, 0}, {5, 2}, {2, 4}, {-1, 2}})));
    Caoi<T> b(Crect2<T>(P(0, 0), P(4, 4)));
    b.add(Cpolygon2<T>(pts<T>({{1, 1}, {2, 1}, {2, 2}})), Caoi<T>::MODE_EXCLUDE);
    for (Caoi<T> const* area : {&a, &b}) {
        EXPECT_TRUE(area->pointIsIn(P(3, 1)));
        for (P const& p : {P(nan, nan), P(nan, 1), P(1, nan), P(inf, inf), P(-inf, 1)})
            EXPECT_FALSE(area->pointIsIn(p)) << p.x << ", " << p.y;
    }
}
