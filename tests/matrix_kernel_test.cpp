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
#include <cstring>
#include <functional>
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
        if (!(std::isnan(a) && std::isnan(b)) && std::memcmp(&a, &b, sizeof(T)) != 0)
            return ::testing::AssertionFailure() << "element " << k << ": " << a << " vs " << b;
    }
    return ::testing::AssertionSuccess();
}

}  // namespace

// One table of m x k x n shapes around every vector, tile and k-block width,
// packed and unpacked B, ragged edges, outer products and an empty inner length;
// every third shape with ±inf, NaN and overflow, every shape also all -0 (sums
// start from +0).  Both a * b and a *= b against the plain loop.
TYPED_TEST(MatrixKernel, ProductMatchesTheTextbookLoopBitForBit) {
    using T = TypeParam;
    std::mt19937 rng(41);
    std::vector<std::array<unsigned, 3>> shapes = {{64, 64, 64}, {37, 300, 129}, {19, 513, 70}, {100, 257, 257},
                                                   {9, 600, 9},  {13, 255, 40},  {1, 256, 3},   {13, 256, 40},
                                                   {1, 300, 1},  {300, 1, 300},  {130, 130, 130}, {5, 0, 9}};
    const unsigned inners[] = {1, 2, 3, 4, 9, 64};
    for (unsigned p : {1, 2, 3, 4, 5, 7, 8, 9, 12, 15, 16, 17, 23, 24, 25, 31, 32, 33, 47, 48, 49, 63, 64, 65, 97})
        for (unsigned m : {1, 2, 3, 4, 5, 7, 8, 9, 11, 16, 17}) shapes.push_back({m, inners[(p + m) % 6], p});
    for (std::size_t t = 0; t < shapes.size(); ++t) {
        const unsigned m = shapes[t][0], k = shapes[t][1], n = shapes[t][2];
        SCOPED_TRACE(std::to_string(m) + "x" + std::to_string(k) + "x" + std::to_string(n));
        Cmatrix<T> a = spread<T>(m, k, rng), b = spread<T>(k, n, rng);
        if (t % 3 == 0 && k > 0) {
            a(0, k - 1) = std::numeric_limits<T>::infinity();
            a(m - 1, 0) = -std::numeric_limits<T>::infinity();
            b(k - 1, n / 2) = T(0);
            b(0, 0) = std::numeric_limits<T>::quiet_NaN();
            a(m / 2, k / 2) = b(k / 2, n - 1) = std::numeric_limits<T>::max();
        }
        const Cmatrix<T> ref = textbook(a, b);
        ASSERT_TRUE(sameValues(a * b, ref));
        Cmatrix<T> c = a;
        ASSERT_TRUE(sameValues(c *= b, ref));
        for (T x : Cmatrix<T>(m, k, -T(0)) * Cmatrix<T>(k, n, T(1))) ASSERT_FALSE(std::signbit(x));
    }
}

TYPED_TEST(MatrixKernel, TransposeAndElementWiseOperationsMatchScalarLoops) {
    using T = TypeParam;
    std::mt19937 rng(47);
    const unsigned sizes[] = {0, 1, 2, 3, 7, 8, 15, 16, 17, 31, 32, 33, 65, 130};
    for (unsigned m : sizes)
        for (unsigned n : sizes) {
            const Cmatrix<T> a = spread<T>(m, n, rng), t = a.transp();
            ASSERT_TRUE(t.m() == n && t.n() == m);
            for (unsigned i = 0; i < m; ++i)
                for (unsigned j = 0; j < n; ++j) ASSERT_EQ(t(j, i), a(i, j)) << m << "x" << n;
        }
    using M = Cmatrix<T>;
    const T s = static_cast<T>(std::ldexp(0.7, 3));
    const std::pair<std::function<M(M, M)>, std::function<T(T, T)>> ops[] = {
        {[](M a, M b) { return M(a + b); }, [](T x, T y) { return T(x + y); }},
        {[](M a, M b) { return M(a - b); }, [](T x, T y) { return T(x - y); }},
        {[](M a, M) { return M(-a); }, [](T x, T) { return T(-x); }},
        {[](M a, M b) { return a += b; }, [](T x, T y) { return T(x + y); }},
        {[](M a, M b) { return a -= b; }, [](T x, T y) { return T(x - y); }},
        {[s](M a, M) { return a += s; }, [s](T x, T) { return T(x + s); }},
        {[s](M a, M) { return a -= s; }, [s](T x, T) { return T(x - s); }},
        {[s](M a, M) { return a *= s; }, [s](T x, T) { return T(x * s); }}};
    for (unsigned n : {1u, 2u, 3u, 5u, 17u, 64u, 255u}) {
        M a = spread<T>(3, n, rng), b = spread<T>(3, n, rng), ref(3, n);
        a(0, 0) = b(0, 0) = -T(0);
        for (unsigned o = 0; o < 8; ++o) {
            for (unsigned k = 0; k < a.size(); ++k) ref.getBase()[k] = ops[o].second(a.getBase()[k], b.getBase()[k]);
            ASSERT_TRUE(sameValues(ops[o].first(a, b), ref)) << "operation " << o << " n=" << n;
        }
    }
    // Construction writes the given value, -0 and NaN included.
    for (T x : Cmatrix<T>(2, 3, -T(0))) EXPECT_TRUE(std::signbit(x));
    for (T x : Cmatrix<T>(2, 3, T(0))) EXPECT_FALSE(std::signbit(x));
    EXPECT_TRUE(std::isnan(Cmatrix<T>(1, 2, std::numeric_limits<T>::quiet_NaN())(0, 1)));
}
