// Tests of Cmatrix: construction and access, blocks, rows and columns, value
// semantics through the tracked allocator, huge empty shapes.  The kernels
// against scalar loops are in matrix_kernel_test.
#include <math/matrix.h>

#include <core/memtracker.h>
#include <core/throw.h>

#include <gtest/gtest.h>

#include <limits>
#include <vector>

using math::Cmatrix;

template <class T>
class MatrixTyped : public ::testing::Test {};
using Scalars = ::testing::Types<float, double>;
TYPED_TEST_SUITE(MatrixTyped, Scalars);

template <class T>
std::vector<T> elements(Cmatrix<T> const& a) {
    return std::vector<T>(a.getBase(), a.getBase() + a.size());
}

TYPED_TEST(MatrixTyped, ConstructionAccessBlocksRowsAndColumns) {
    using T = TypeParam;
    Cmatrix<T> a(2, 3, T(1.5)), e;
    EXPECT_TRUE(a.m() == 2u && a.n() == 3u && a.size() == 6u && a.byteSize() == 6 * sizeof(T));
    EXPECT_EQ(elements(a), std::vector<T>(6, T(1.5)));
    a(1, 2) = 7;
    EXPECT_TRUE(a.getBase()[5] == T(7) && a.getRow(1)[2] == T(7));
    EXPECT_TRUE(e.m() == 0u && e.size() == 0u && e.begin() == e.end());
    e.resize(3, 2);
    EXPECT_EQ(elements(e), std::vector<T>(6, T(0)));
    a.setIdentity();  // also when not square
    EXPECT_EQ(elements(a), (std::vector<T>{1, 0, 0, 0, 1, 0}));

    // setMatrix copies the part of the block that fits; outside: nothing.
    Cmatrix<T> m(3, 3, T(0)), s(3, 3);
    for (unsigned k = 0; k < 9; ++k) s.getBase()[k] = T(k + 1);
    m.setMatrix(1, 1, s);
    EXPECT_EQ(elements(m), (std::vector<T>{0, 0, 0, 0, 1, 2, 0, 4, 5}));
    m.setMatrix(3, 0, s);
    m.setMatrix(0, 3, s);
    EXPECT_EQ(elements(m), (std::vector<T>{0, 0, 0, 0, 1, 2, 0, 4, 5}));

    // setRow / setCol write what fits; getRow / getCol resize the vector.
    Cmatrix<T> r(2, 3, T(5));
    r.setRow(0, {1, 2});
    r.setRow(1, {7, 8, 9, 10});
    r.setCol(2, {3});
    EXPECT_EQ(elements(r), (std::vector<T>{1, 2, 3, 7, 8, 9}));
    Cmatrix<T> c(4, 2);
    for (unsigned k = 0; k < 8; ++k) c.getBase()[k] = T(k);
    std::vector<T> v(17, T(1));
    c.getCol(1, v);
    EXPECT_EQ(v, (std::vector<T>{1, 3, 5, 7}));
    c.getRow(2, v);
    EXPECT_EQ(v, (std::vector<T>{4, 5}));
    EXPECT_EQ(std::vector<T>(c.col_begin(0), c.col_end(0)), (std::vector<T>{0, 2, 4, 6}));
    EXPECT_EQ(std::vector<T>(c.row_begin(3), c.row_end(3)), (std::vector<T>{6, 7}));
}

TYPED_TEST(MatrixTyped, AliasingWithItself) {
    using T = TypeParam;
    Cmatrix<T> s(2, 2, T(12));
    s += s;
    EXPECT_EQ(elements(s), std::vector<T>(4, T(24)));
    s *= s;
    EXPECT_EQ(elements(s), std::vector<T>(4, T(1152)));
    s -= s;
    EXPECT_EQ(elements(s), std::vector<T>(4, T(0)));
}

TYPED_TEST(MatrixTyped, ValueSemanticsAndSwap) {
    using T = TypeParam;
    const auto blocks = core::memTracker_liveBlocks();
    {
        Cmatrix<T> a(3, 3, T(1)), b(2, 5, T(2));
        EXPECT_EQ(core::memTracker_liveBlocks(), blocks + 2);
        const T* pa = a.getBase();
        a.swap(b);  // constant time: the blocks change hands
        EXPECT_TRUE(b.getBase() == pa && a.m() == 2u && a.n() == 5u);
        Cmatrix<T> c(a);  // a deep copy
        c(0, 0) = 9;
        EXPECT_EQ(a(0, 0), T(2));
        a = std::move(c);
        a = a;
        EXPECT_EQ(a(0, 0), T(9));
    }
    EXPECT_EQ(core::memTracker_liveBlocks(), blocks);
}

TEST(Matrix, ImpossibleSizeFailsThroughTheTrackedAllocator) {
    const auto blocks = core::memTracker_liveBlocks();
    EXPECT_THROW(Cmatrix<double>(100000, 100000), CthrowBase);
    Cmatrix<double> a(2, 2, 1.0);
    EXPECT_THROW(a.resize(0xFFFFFFFFu, 2), CthrowBase);
    EXPECT_TRUE(a.m() == 2u && a(1, 1) == 1.0);  // unchanged after the failed resize
    EXPECT_EQ(core::memTracker_liveBlocks(), blocks + 1);
}

// Empty matrices may carry a huge count in their other dimension (a damaged
// stream header reads "0 -1" as 0 x 4294967295).  Products and transposes of
// such shapes hold no element and must end at once: a blocked loop that steps
// its index past the dimension would wrap around 2^32 and never stop.
TYPED_TEST(MatrixTyped, EmptyShapesWithHugeCountsEndAtOnce) {
    using T = TypeParam;
    const unsigned huge = 0xFFFFFFFFu;
    const Cmatrix<T> wide(0, huge), tall(huge, 0);
    const Cmatrix<T> p = wide * tall, q = tall * Cmatrix<T>(0, 0);  // inner length 2^32 - 1, no term to add
    EXPECT_TRUE(p.m() == 0u && p.n() == 0u && q.m() == huge && q.n() == 0u);
    Cmatrix<T> r = wide;
    r *= tall;
    EXPECT_EQ(r.size(), 0u);
    for (unsigned rows : {huge, huge - 1, huge - 15, 0xFFFFFFF0u}) {
        const Cmatrix<T> t = Cmatrix<T>(rows, 0).transp(), back = t.transp();
        EXPECT_TRUE(t.m() == 0u && t.n() == rows && back.m() == rows && back.n() == 0u);
    }
    // A non-empty result of that shape cannot be allocated: reported, no hang.
    EXPECT_THROW(Cmatrix<T>(2, 0) * Cmatrix<T>(0, huge), CthrowBase);
}
