// The fast matrix kernels against plain loops, bit for bit: every shape class
// the product's tiling distinguishes (row and column tails, vector-width
// tails, k-blocks, packed and unpacked B), the signed zero at the start of
// each sum, infinities and NaN, tiled transposition and the element-wise
// operations.  CTest also runs this file with METROMATH_MATRIX_ISA=sse2 and
// =avx2, so that the narrower product kernels are checked on a wide machine.
#include <math/matrix.h>

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

using math::Cmatrix;

template <class T>
class MatrixKernel : public ::testing::Test {};
using Scalars = ::testing::Types<float, double>;
TYPED_TEST_SUITE(MatrixKernel, Scalars);

namespace {

// Values over many binades and both signs, so that any regrouping of a sum
// shows in the last bits.
template <class T>
Cmatrix<T> spread(unsigned m, unsigned n, std::mt19937& rng) {
    std::uniform_real_distribution<double> mant(-1, 1);
    std::uniform_int_distribution<int> ex(-20, 20);
    Cmatrix<T> a(m, n);
    for (T& x : a) x = static_cast<T>(std::ldexp(mant(rng), ex(rng)));
    return a;
}

// The textbook triple loop: each element from +0, terms in ascending k, every
// product and sum rounded on its own (volatile keeps the compiler from
// fusing or regrouping).
template <class T>
Cmatrix<T> textbook(Cmatrix<T> const& a, Cmatrix<T> const& b) {
    Cmatrix<T> c(a.m(), b.n());
    for (unsigned i = 0; i < a.m(); ++i)
        for (unsigned j = 0; j < b.n(); ++j) {
            volatile T sum = 0;
            for (unsigned k = 0; k < a.n(); ++k) {
                volatile T prod = a(i, k) * b(k, j);
                sum = sum + prod;
            }
            c(i, j) = sum;
        }
    return c;
}

// Bitwise equal, except that any NaN matches any NaN (payloads are not part
// of the contract).
template <class T>
::testing::AssertionResult sameValues(Cmatrix<T> const& x, Cmatrix<T> const& y) {
    if (x.m() != y.m() || x.n() != y.n())
        return ::testing::AssertionFailure() << "shape " << x.m() << "x" << x.n() << " vs " << y.m() << "x" << y.n();
    for (unsigned k = 0; k < x.size(); ++k) {
        const T a = x.getBase()[k], b = y.getBase()[k];
        if (std::isnan(a) && std::isnan(b)) continue;
        if (std::memcmp(&a, &b, sizeof(T)) != 0)
            return ::testing::AssertionFailure() << "element " << k << " (" << k / x.n() << ", " << k % x.n()
                                                 << "): " << a << " vs " << b;
    }
    return ::testing::AssertionSuccess();
}

}  // namespace

// One table of m x n x p shapes: widths around every vector and tile width
// (4, 8, 16 lanes; tiles of 2 or 3 vectors), heights around the tile heights
// (4, 8), inner lengths around the k-block of 256, large shapes for packing
// and several k-blocks with ragged edges, row-times-column and outer products.
// Both a * b and a *= b against the plain loop.
TYPED_TEST(MatrixKernel, ProductMatchesTheTextbookLoopBitForBit) {
    using T = TypeParam;
    std::mt19937 rng(41);
    std::vector<std::array<unsigned, 3>> shapes = {{64, 64, 64}, {37, 300, 129}, {19, 513, 70}, {100, 257, 257},
                                                   {9, 600, 9},  {13, 255, 40},  {1, 256, 3},   {13, 256, 40},
                                                   {1, 300, 1},  {300, 1, 300}};
    const unsigned inners[] = {1, 2, 3, 4, 9, 64};
    for (unsigned p : {1, 2, 3, 4, 5, 7, 8, 9, 12, 15, 16, 17, 23, 24, 25, 31, 32, 33, 47, 48, 49, 63, 64, 65, 97})
        for (unsigned m : {1, 2, 3, 4, 5, 7, 8, 9, 11, 16, 17}) shapes.push_back({m, inners[(p + m) % 6], p});
    for (auto const& s : shapes) {
        SCOPED_TRACE(std::to_string(s[0]) + "x" + std::to_string(s[1]) + "x" + std::to_string(s[2]));
        const Cmatrix<T> a = spread<T>(s[0], s[1], rng), b = spread<T>(s[1], s[2], rng), ref = textbook(a, b);
        ASSERT_TRUE(sameValues(a * b, ref));
        Cmatrix<T> c = a;
        ASSERT_TRUE(sameValues(c *= b, ref));
    }
}

TYPED_TEST(MatrixKernel, ProductSignedZeroInfinityAndNaN) {
    using T = TypeParam;
    const T inf = std::numeric_limits<T>::infinity();
    // Every sum starts from +0: terms that are all -0 give +0, in every path.
    for (unsigned s : {1u, 3u, 4u, 8u, 19u, 70u}) {
        Cmatrix<T> c = Cmatrix<T>(s, s, -T(0)) * Cmatrix<T>(s, s, T(1));
        for (T x : c) ASSERT_FALSE(std::signbit(x)) << s;
    }
    // An empty inner dimension gives sums of nothing: +0.
    Cmatrix<T> e = Cmatrix<T>(5, 0) * Cmatrix<T>(0, 9);
    ASSERT_TRUE(e.m() == 5u && e.n() == 9u);
    for (T x : e) EXPECT_TRUE(x == T(0) && !std::signbit(x));
    // Infinities and NaN propagate as in the plain loop (inf * 0 is NaN,
    // inf - inf is NaN, overflow gives inf).
    std::mt19937 rng(43);
    for (unsigned s : {3u, 5u, 33u, 130u}) {
        Cmatrix<T> a = spread<T>(s, s, rng), b = spread<T>(s, s, rng);
        a(0, s - 1) = inf;
        a(s - 1, 0) = -inf;
        b(s - 1, s / 2) = T(0);
        b(0, 0) = std::numeric_limits<T>::quiet_NaN();
        a(s / 2, s / 2) = std::numeric_limits<T>::max();
        b(s / 2, 1 % s) = std::numeric_limits<T>::max();
        ASSERT_TRUE(sameValues(a * b, textbook(a, b))) << s;
    }
}

TYPED_TEST(MatrixKernel, TransposeAllShapes) {
    using T = TypeParam;
    std::mt19937 rng(47);
    const unsigned sizes[] = {0, 1, 2, 3, 7, 8, 15, 16, 17, 31, 32, 33, 65, 130};
    for (unsigned m : sizes)
        for (unsigned n : sizes) {
            Cmatrix<T> a = spread<T>(m, n, rng);
            Cmatrix<T> t = a.transp();
            ASSERT_EQ(t.m(), n);
            ASSERT_EQ(t.n(), m);
            for (unsigned i = 0; i < m; ++i)
                for (unsigned j = 0; j < n; ++j) ASSERT_EQ(t(j, i), a(i, j)) << m << "x" << n;
        }
}

TYPED_TEST(MatrixKernel, ElementWiseOperationsMatchScalarLoops) {
    using T = TypeParam;
    std::mt19937 rng(53);
    const T s = static_cast<T>(std::ldexp(0.7, 3));
    struct Op {
        const char* name;
        Cmatrix<T> (*fast)(Cmatrix<T> const&, Cmatrix<T> const&, T);
        T (*plain)(T, T, T);
    };
    const Op ops[] = {
        {"a + b", [](Cmatrix<T> const& a, Cmatrix<T> const& b, T) { return Cmatrix<T>(a + b); }, [](T x, T y, T) { return T(x + y); }},
        {"a - b", [](Cmatrix<T> const& a, Cmatrix<T> const& b, T) { return Cmatrix<T>(a - b); }, [](T x, T y, T) { return T(x - y); }},
        {"-a", [](Cmatrix<T> const& a, Cmatrix<T> const&, T) { return Cmatrix<T>(-a); }, [](T x, T, T) { return T(-x); }},
        {"a += b", [](Cmatrix<T> const& a, Cmatrix<T> const& b, T) { Cmatrix<T> c = a; return c += b; }, [](T x, T y, T) { return T(x + y); }},
        {"a -= b", [](Cmatrix<T> const& a, Cmatrix<T> const& b, T) { Cmatrix<T> c = a; return c -= b; }, [](T x, T y, T) { return T(x - y); }},
        {"a += s", [](Cmatrix<T> const& a, Cmatrix<T> const&, T v) { Cmatrix<T> c = a; return c += v; }, [](T x, T, T v) { return T(x + v); }},
        {"a -= s", [](Cmatrix<T> const& a, Cmatrix<T> const&, T v) { Cmatrix<T> c = a; return c -= v; }, [](T x, T, T v) { return T(x - v); }},
        {"a *= s", [](Cmatrix<T> const& a, Cmatrix<T> const&, T v) { Cmatrix<T> c = a; return c *= v; }, [](T x, T, T v) { return T(x * v); }}};
    for (unsigned n : {1u, 2u, 3u, 5u, 17u, 64u, 255u}) {
        Cmatrix<T> a = spread<T>(3, n, rng), b = spread<T>(3, n, rng);
        a(0, 0) = b(0, 0) = -T(0);
        for (Op const& op : ops) {
            SCOPED_TRACE(std::string(op.name) + " n=" + std::to_string(n));
            Cmatrix<T> ref(3, n);
            for (unsigned k = 0; k < a.size(); ++k) ref.getBase()[k] = op.plain(a.getBase()[k], b.getBase()[k], s);
            ASSERT_TRUE(sameValues(op.fast(a, b, s), ref));
        }
    }
    // Construction with -0 writes -0 (it compares equal to 0 but is not +0).
    for (T x : Cmatrix<T>(2, 3, -T(0))) EXPECT_TRUE(std::signbit(x));
    for (T x : Cmatrix<T>(2, 3, T(0))) EXPECT_FALSE(std::signbit(x));
    EXPECT_TRUE(std::isnan(Cmatrix<T>(1, 2, std::numeric_limits<T>::quiet_NaN())(0, 1)));
}
