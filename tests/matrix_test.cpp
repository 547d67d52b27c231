#include <math/matrix.h>

#include <core/memtracker.h>
#include <core/throw.h>

#include <gtest/gtest.h>

#include <Eigen/Dense>

#include <limits>
#include <random>
#include <vector>

using math::Cmatrix;

template <class T>
class MatrixTyped : public ::testing::Test {};
using Scalars = ::testing::Types<float, double>;
TYPED_TEST_SUITE(MatrixTyped, Scalars);

namespace {

template <class T>
Cmatrix<T> randomMatrix(unsigned m, unsigned n, std::mt19937& rng) {
    std::uniform_real_distribution<double> u(-10, 10);
    Cmatrix<T> a(m, n);
    for (T& x : a) x = static_cast<T>(u(rng));
    return a;
}

}  // namespace

TYPED_TEST(MatrixTyped, ConstructionAndAccess) {
    using T = TypeParam;
    Cmatrix<T> a(2, 3, T(1.5));
    EXPECT_EQ(a.m(), 2u);
    EXPECT_EQ(a.n(), 3u);
    EXPECT_EQ(a.size(), 6u);
    EXPECT_EQ(a.byteSize(), 6 * sizeof(T));
    for (T x : a) EXPECT_EQ(x, T(1.5));
    a(1, 2) = 7;
    EXPECT_EQ(a.getBase()[5], T(7));
    EXPECT_EQ(a.getRow(1)[2], T(7));
    Cmatrix<T> e;
    EXPECT_EQ(e.m(), 0u);
    EXPECT_EQ(e.size(), 0u);
    EXPECT_EQ(e.begin(), e.end());
    e.resize(3, 2);
    EXPECT_EQ(e.size(), 6u);
    for (T x : e) EXPECT_EQ(x, T(0));
}

TYPED_TEST(MatrixTyped, IdentityBlockRowAndColumnTransfer) {
    using T = TypeParam;
    Cmatrix<T> a(2, 3, T(9));
    a.setIdentity();
    const T id[] = {1, 0, 0, 0, 1, 0};
    for (unsigned k = 0; k < 6; ++k) EXPECT_EQ(a.getBase()[k], id[k]);

    Cmatrix<T> m(3, 3, T(0));
    Cmatrix<T> s(3, 3);
    for (unsigned k = 0; k < 9; ++k) s.getBase()[k] = T(k + 1);
    m.setMatrix(1, 1, s);
    const T exp[] = {0, 0, 0, 0, 1, 2, 0, 4, 5};
    for (unsigned k = 0; k < 9; ++k) EXPECT_EQ(m.getBase()[k], exp[k]) << k;
    Cmatrix<T> before = m;
    m.setMatrix(3, 0, s);
    m.setMatrix(0, 3, s);
    for (unsigned k = 0; k < 9; ++k) EXPECT_EQ(m.getBase()[k], before.getBase()[k]);

    Cmatrix<T> r(2, 3, T(5));
    r.setRow(0, {1, 2});
    EXPECT_EQ(r(0, 0), T(1));
    EXPECT_EQ(r(0, 1), T(2));
    EXPECT_EQ(r(0, 2), T(5));
    r.setRow(1, {7, 8, 9, 10});
    EXPECT_EQ(r(1, 2), T(9));
    r.setCol(2, {3});
    EXPECT_EQ(r(0, 2), T(3));
    EXPECT_EQ(r(1, 2), T(9));

    Cmatrix<T> c(4, 2);
    for (unsigned k = 0; k < 8; ++k) c.getBase()[k] = T(k);
    std::vector<T> v(17, T(1));
    c.getCol(1, v);
    EXPECT_EQ(v, (std::vector<T>{1, 3, 5, 7}));
    c.getRow(2, v);
    EXPECT_EQ(v, (std::vector<T>{4, 5}));

    std::vector<T> col(c.col_begin(0), c.col_end(0));
    EXPECT_EQ(col, (std::vector<T>{0, 2, 4, 6}));
    EXPECT_EQ(c.col_end(0) - c.col_begin(0), 4);
    std::vector<T> row(c.row_begin(3), c.row_end(3));
    EXPECT_EQ(row, (std::vector<T>{6, 7}));
}

// Hand-worked values; the kernels against scalar loops are in matrix_kernel_test.
TYPED_TEST(MatrixTyped, ElementWiseArithmetic) {
    using T = TypeParam;
    Cmatrix<T> z(2, 2, T(0));
    z += T(2);
    for (T x : z) EXPECT_EQ(x, T(2));
    z -= T(0.5);
    z *= T(4);
    for (T x : z) EXPECT_EQ(x, T(6));
    Cmatrix<T> s = z + z, d = s - Cmatrix<T>(2, 2, T(1)), n = -d;
    for (unsigned k = 0; k < 4; ++k) EXPECT_TRUE(s.getBase()[k] == T(12) && d.getBase()[k] == T(11) && n.getBase()[k] == T(-11));
    // A matrix added to or subtracted from itself.
    s += s;
    EXPECT_EQ(s(1, 1), T(24));
    s -= s;
    for (T x : s) EXPECT_EQ(x, T(0));
}

TYPED_TEST(MatrixTyped, ProductKeepsTheTextbookSummationOrder) {
    using T = TypeParam;
    // 1 + 2^-p + 2^-p - 1 summed in order from the left is 2^-p+1 only when each
    // term is added on its own: (1 + e) + e rounds each step.
    const T e = std::numeric_limits<T>::epsilon() / 2;
    Cmatrix<T> row(1, 4), ones(4, 1, T(1));
    row(0, 0) = T(1), row(0, 1) = e, row(0, 2) = e, row(0, 3) = T(-1);
    EXPECT_EQ((row * ones)(0, 0), T(0));  // (1 + e) rounds to 1, twice; then 1 - 1
    Cmatrix<T> rowv(1, 3), colv(3, 1);
    for (unsigned k = 0; k < 3; ++k) rowv(0, k) = T(k + 1), colv(k, 0) = T(k + 4);
    const Cmatrix<T> dot = rowv * colv, outer = colv * rowv;
    EXPECT_TRUE(dot.m() == 1u && dot.n() == 1u && dot(0, 0) == T(32));
    EXPECT_TRUE(outer.m() == 3u && outer.n() == 3u && outer(2, 1) == T(12));
    Cmatrix<T> a2 = colv;
    a2 *= rowv;
    for (unsigned k = 0; k < 9; ++k) EXPECT_EQ(a2.getBase()[k], outer.getBase()[k]);
}

TYPED_TEST(MatrixTyped, TransposeAndEigenOracle) {
    using T = TypeParam;
    std::mt19937 rng(9);
    Cmatrix<T> a = randomMatrix<T>(2, 3, rng);
    Cmatrix<T> t = a.transp();
    EXPECT_EQ(t.m(), 3u);
    EXPECT_EQ(t.n(), 2u);
    Cmatrix<T> tt = t.transp();
    for (unsigned k = 0; k < a.size(); ++k) EXPECT_EQ(tt.getBase()[k], a.getBase()[k]);
    for (unsigned i = 0; i < 2; ++i)
        for (unsigned j = 0; j < 3; ++j) EXPECT_EQ(t(j, i), a(i, j));

    using EM = Eigen::Matrix<T, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;
    Cmatrix<T> x = randomMatrix<T>(6, 4, rng), y = randomMatrix<T>(4, 5, rng);
    Eigen::Map<const EM> ex(x.getBase(), 6, 4), ey(y.getBase(), 4, 5);
    EM ez = ex * ey;
    Cmatrix<T> z = x * y;
    for (unsigned i = 0; i < 6; ++i)
        for (unsigned j = 0; j < 5; ++j) EXPECT_NEAR(z(i, j), ez(i, j), (std::is_same<T, float>::value ? 1e-3 : 1e-11));
}

TYPED_TEST(MatrixTyped, ValueSemanticsAndSwap) {
    using T = TypeParam;
    const auto blocks = core::memTracker_liveBlocks();
    {
        Cmatrix<T> a(3, 3, T(1)), b(2, 5, T(2));
        EXPECT_EQ(core::memTracker_liveBlocks(), blocks + 2);
        const T* pa = a.getBase();
        a.swap(b);  // constant time: the blocks change hands
        EXPECT_EQ(b.getBase(), pa);
        EXPECT_EQ(a.m(), 2u);
        EXPECT_EQ(a.n(), 5u);
        Cmatrix<T> c(a);
        c(0, 0) = 9;
        EXPECT_EQ(a(0, 0), T(2));
        Cmatrix<T> d = std::move(c);
        EXPECT_EQ(d(0, 0), T(9));
        a = d;
        EXPECT_EQ(a(0, 0), T(9));
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
    EXPECT_EQ(a.m(), 2u);  // unchanged after the failed resize
    EXPECT_EQ(a(1, 1), 1.0);
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
    const Cmatrix<T> p = wide * tall;  // inner length 2^32 - 1, no term to add
    EXPECT_EQ(p.m(), 0u);
    EXPECT_EQ(p.n(), 0u);
    const Cmatrix<T> q = tall * Cmatrix<T>(0, 0);
    EXPECT_EQ(q.m(), huge);
    EXPECT_EQ(q.n(), 0u);
    Cmatrix<T> r = wide;
    r *= tall;
    EXPECT_EQ(r.size(), 0u);
    for (unsigned rows : {huge, huge - 1, huge - 15, 0xFFFFFFF0u}) {
        const Cmatrix<T> t = Cmatrix<T>(rows, 0).transp();
        EXPECT_EQ(t.m(), 0u);
        EXPECT_EQ(t.n(), rows);
        const Cmatrix<T> back = t.transp();
        EXPECT_EQ(back.m(), rows);
        EXPECT_EQ(back.n(), 0u);
    }
    // A non-empty result of that shape cannot be allocated: reported, no hang.
    EXPECT_THROW(Cmatrix<T>(2, 0) * Cmatrix<T>(0, huge), CthrowBase);
}
