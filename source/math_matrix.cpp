#include <math/matrix.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <vector>

// Speed without changing a single bit.
//
// The product is the textbook sum C(i, j) = ((0 + A(i,0)B(0,j)) + A(i,1)B(1,j)) + ...
// in ascending k, rounded after every multiplication and every addition (the
// library is built with -ffp-contract=off, so no fused multiply-add).  Every
// kernel below keeps exactly that sequence of operations per element; what
// it changes is only which elements are worked on at the same time:
//
//  - SIMD across columns: one vector holds C(i, j..j+W-1), and each lane does
//    the scalar sequence for its own element.  IEEE multiplication and
//    addition are exactly rounded lane by lane, so the vector width (SSE2,
//    AVX2 or AVX-512, chosen once at run time) cannot change a result.
//  - Register blocking: an MR x (NV*W) tile of C stays in registers while k
//    runs, so each B row segment is loaded once per MR rows.
//  - Blocking over k: a tile's partial sums are stored to C after KC terms and
//    loaded again for the next KC terms.  The sum still runs in ascending k;
//    it only pauses in memory between blocks.
//  - Packing: for large B the KC x NR strip of B that a tile needs is copied
//    into a contiguous buffer, so that it stays in L1 whatever B's row stride.
//
// Nothing regroups the terms of one element (no split accumulators, no
// pairwise summation, no FMA), which is what would change results.

namespace math {
namespace {

#define METROMATH_ALWAYS_INLINE inline __attribute__((always_inline))

template <class T, int W>
struct Vec {
    typedef T type __attribute__((vector_size(W * sizeof(T))));
};

template <class V, class T>
METROMATH_ALWAYS_INLINE void vload(V& v, const T* p) {
    std::memcpy(&v, p, sizeof v);
}
template <class V, class T>
METROMATH_ALWAYS_INLINE void vstore(T* p, V const& v) {
    std::memcpy(p, &v, sizeof v);
}

// Terms of the k-blocks between two pauses in memory.
constexpr unsigned KC = 256;

// C[r][0..NV*W) for r < R: continue (first == false) or start (first == true,
// from 0) the sums over kc terms: c += a(r, k) * b(k, .).  a has row stride lda,
// b row stride ldb (NR for a packed strip), c row stride ldc.
template <class T, int W, int R, int NV>
METROMATH_ALWAYS_INLINE void microKernel(const T* __restrict a, std::size_t lda, const T* __restrict b,
                                         std::size_t ldb, T* __restrict c, std::size_t ldc, unsigned kc,
                                         bool first) {
    typedef typename Vec<T, W>::type V;
    V acc[R][NV];
    for (int r = 0; r < R; ++r)
        for (int v = 0; v < NV; ++v) {
            if (first)
                acc[r][v] = V{};  // +0 in every lane, as the textbook sum starts
            else
                vload(acc[r][v], c + r * ldc + v * W);
        }
    for (unsigned k = 0; k < kc; ++k) {
        V bv[NV];
        for (int v = 0; v < NV; ++v) vload(bv[v], b + k * ldb + v * W);
        for (int r = 0; r < R; ++r) {
            const T ar = a[r * lda + k];
            for (int v = 0; v < NV; ++v) {
                const V prod = ar * bv[v];  // A(i,k) * B(k,j), rounded
                acc[r][v] = acc[r][v] + prod;  // then added, rounded
            }
        }
    }
    for (int r = 0; r < R; ++r)
        for (int v = 0; v < NV; ++v) vstore(c + r * ldc + v * W, acc[r][v]);
}

// Rows i0 .. m-1 of one column strip, MR rows at a time, the rest one by one
// through a kernel of matching height.
template <class T, int W, int MR, int NV>
METROMATH_ALWAYS_INLINE void stripRows(const T* a, std::size_t lda, const T* b, std::size_t ldb, T* c,
                                       std::size_t ldc, unsigned m, unsigned kc, bool first) {
    unsigned i = 0;
    for (; i + MR <= m; i += MR) microKernel<T, W, MR, NV>(a + i * lda, lda, b, ldb, c + i * ldc, ldc, kc, first);
    for (; i < m; ++i) microKernel<T, W, 1, NV>(a + i * lda, lda, b, ldb, c + i * ldc, ldc, kc, first);
}

// Columns j.. of the strip that are left over by the wide tiles: one vector
// per tile, halving the width down to 16 bytes.
template <class T, int W, int MR>
METROMATH_ALWAYS_INLINE void narrowStrips(const T* a, std::size_t lda, const T* bk, T* C, unsigned m, unsigned p,
                                          unsigned kc, bool first, unsigned& j) {
    for (; j + W <= p; j += W) stripRows<T, W, MR, 1>(a, lda, bk + j, p, C + j, p, m, kc, first);
    if constexpr (W * sizeof(T) > 16) narrowStrips<T, W / 2, MR>(a, lda, bk, C, m, p, kc, first, j);
}

// C (m x p, row stride p) = A (m x n) * B (n x p), every element in textbook
// order.  C need not be initialised.
template <class T, int W, int MR, int NV>
METROMATH_ALWAYS_INLINE void productKernel(const T* A, const T* B, T* C, unsigned m, unsigned n, unsigned p) {
    constexpr unsigned NR = W * NV;
    if (n == 0) {  // empty sums
        std::fill(C, C + static_cast<std::size_t>(m) * p, T(0));
        return;
    }
    // A B strip is packed when B is too large to stay in L1 as it lies.
    const bool pack = static_cast<std::size_t>(n) * p * sizeof(T) > 16384 && m > 2 * MR;
    std::vector<T> packed(pack ? KC * NR : 0);
    T* buf = packed.data();
    for (unsigned k0 = 0, kc = 0; k0 < n; k0 += kc) {  // k0 + kc <= n: no wrap
        kc = std::min(KC, n - k0);
        const bool first = k0 == 0;
        const T* a = A + k0;
        const T* bk = B + static_cast<std::size_t>(k0) * p;
        unsigned j = 0;
        for (; j + NR <= p; j += NR) {
            if (pack) {
                for (unsigned k = 0; k < kc; ++k) std::memcpy(buf + k * NR, bk + static_cast<std::size_t>(k) * p + j, NR * sizeof(T));
                stripRows<T, W, MR, NV>(a, n, buf, NR, C + j, p, m, kc, first);
            } else {
                stripRows<T, W, MR, NV>(a, n, bk + j, p, C + j, p, m, kc, first);
            }
        }
        narrowStrips<T, W, MR>(a, n, bk, C, m, p, kc, first, j);
        // The last columns that fill no vector: scalar, same order.
        if (j < p) {
            for (unsigned i = 0; i < m; ++i) {
                const T* ai = a + static_cast<std::size_t>(i) * n;
                T* ci = C + static_cast<std::size_t>(i) * p;
                for (unsigned jj = j; jj < p; ++jj) {
                    T s = first ? T(0) : ci[jj];
                    for (unsigned k = 0; k < kc; ++k) s = s + ai[k] * bk[static_cast<std::size_t>(k) * p + jj];
                    ci[jj] = s;
                }
            }
        }
    }
}

template <class T>
using ProductFn = void (*)(const T*, const T*, T*, unsigned, unsigned, unsigned);

// Vector widths in bytes: 16 (SSE2, the x86-64 baseline), 32 (AVX2), 64 (AVX-512).
template <class T>
void productBaseline(const T* A, const T* B, T* C, unsigned m, unsigned n, unsigned p) {
    productKernel<T, 16 / sizeof(T), 4, 2>(A, B, C, m, n, p);
}

#if defined(__x86_64__) && defined(__GNUC__)
#define METROMATH_X86_DISPATCH 1
template <class T>
__attribute__((target("avx2"))) void productAvx2(const T* A, const T* B, T* C, unsigned m, unsigned n, unsigned p) {
    productKernel<T, 32 / sizeof(T), 6, 2>(A, B, C, m, n, p);
}
template <class T>
__attribute__((target("avx512f"))) void productAvx512(const T* A, const T* B, T* C, unsigned m, unsigned n,
                                                      unsigned p) {
    productKernel<T, 64 / sizeof(T), 8, 3>(A, B, C, m, n, p);
}
#endif

// The widest kernel the processor runs, chosen once.  METROMATH_MATRIX_ISA=sse2
// (or avx2) in the environment caps the choice, so that tests can check the
// narrower kernels on a wide machine; results are the same with every kernel.
template <class T>
ProductFn<T> selectProduct() {
#ifdef METROMATH_X86_DISPATCH
    const char* cap = std::getenv("METROMATH_MATRIX_ISA");
    const int limit = !cap ? 2 : std::strcmp(cap, "sse2") == 0 ? 0 : std::strcmp(cap, "avx2") == 0 ? 1 : 2;
    __builtin_cpu_init();
    if (limit >= 2 && __builtin_cpu_supports("avx512f")) return &productAvx512<T>;
    if (limit >= 1 && __builtin_cpu_supports("avx2")) return &productAvx2<T>;
#endif
    return &productBaseline<T>;
}

template <class T>
void product(const T* A, const T* B, T* C, unsigned m, unsigned n, unsigned p) {
    // An empty result has nothing to compute, however long its inner sums
    // would be (0 x (2^32 - 1) times (2^32 - 1) x 0 must not walk k).
    if (m == 0 || p == 0) return;
    if (m == 3 && n == 3 && p == 3) {
        // Fully unrolled 3 x 3: the same sums, written out.
        for (unsigned i = 0; i < 3; ++i) {
            const T a0 = A[3 * i], a1 = A[3 * i + 1], a2 = A[3 * i + 2];
            for (unsigned j = 0; j < 3; ++j) C[3 * i + j] = ((T(0) + a0 * B[j]) + a1 * B[3 + j]) + a2 * B[6 + j];
        }
        return;
    }
    static const ProductFn<T> fn = selectProduct<T>();
    fn(A, B, C, m, n, p);
}

// W x W block of src (row stride n) to dst (row stride m), transposed in
// registers: four floats or two doubles per vector.
#if defined(__has_builtin)
#if __has_builtin(__builtin_shufflevector)
#define METROMATH_HAVE_SHUFFLE 1
#endif
#endif

template <class T>
struct TransposeBlock {
    static constexpr unsigned W = 1;
    static void run(const T* s, std::size_t n, T* d, std::size_t m) { *d = *s; (void)n, (void)m; }
};

#ifdef METROMATH_HAVE_SHUFFLE
template <>
struct TransposeBlock<float> {
    static constexpr unsigned W = 4;
    typedef Vec<float, 4>::type V;
    static METROMATH_ALWAYS_INLINE void run(const float* s, std::size_t n, float* d, std::size_t m) {
        V r0, r1, r2, r3;
        vload(r0, s);
        vload(r1, s + n);
        vload(r2, s + 2 * n);
        vload(r3, s + 3 * n);
        const V t0 = __builtin_shufflevector(r0, r1, 0, 4, 1, 5);
        const V t1 = __builtin_shufflevector(r0, r1, 2, 6, 3, 7);
        const V t2 = __builtin_shufflevector(r2, r3, 0, 4, 1, 5);
        const V t3 = __builtin_shufflevector(r2, r3, 2, 6, 3, 7);
        vstore(d, V(__builtin_shufflevector(t0, t2, 0, 1, 4, 5)));
        vstore(d + m, V(__builtin_shufflevector(t0, t2, 2, 3, 6, 7)));
        vstore(d + 2 * m, V(__builtin_shufflevector(t1, t3, 0, 1, 4, 5)));
        vstore(d + 3 * m, V(__builtin_shufflevector(t1, t3, 2, 3, 6, 7)));
    }
};

template <>
struct TransposeBlock<double> {
    static constexpr unsigned W = 2;
    typedef Vec<double, 2>::type V;
    static METROMATH_ALWAYS_INLINE void run(const double* s, std::size_t n, double* d, std::size_t m) {
        V r0, r1;
        vload(r0, s);
        vload(r1, s + n);
        vstore(d, V(__builtin_shufflevector(r0, r1, 0, 2)));
        vstore(d + m, V(__builtin_shufflevector(r0, r1, 1, 3)));
    }
};
#endif

// Transposition in square tiles of 128-byte rows (32 floats, 16 doubles), so
// that a tile's source and destination rows stay in L1 even when the row
// stride is a power of two (which maps the rows to few cache sets), and
// within a tile in register blocks.
template <class T>
void transpose(const T* __restrict src, T* __restrict dst, unsigned m, unsigned n) {
    constexpr unsigned TB = 128 / sizeof(T);
    constexpr unsigned W = TransposeBlock<T>::W;
    // No element: the tile loops below would step i0 past a huge m (an empty
    // (2^32 - 1) x 0 matrix) and wrap around.  Any matrix with elements has
    // both dimensions far below 2^32 - TB.
    if (m == 0 || n == 0) return;
    for (unsigned i0 = 0; i0 < m; i0 += TB) {
        const unsigned i1 = std::min(m, i0 + TB);
        for (unsigned j0 = 0; j0 < n; j0 += TB) {
            const unsigned j1 = std::min(n, j0 + TB);
            unsigned i = i0;
            for (; i + W <= i1; i += W) {
                unsigned j = j0;
                for (; j + W <= j1; j += W)
                    TransposeBlock<T>::run(src + static_cast<std::size_t>(i) * n + j, n,
                                           dst + static_cast<std::size_t>(j) * m + i, m);
                for (; j < j1; ++j)
                    for (unsigned r = i; r < i + W; ++r)
                        dst[static_cast<std::size_t>(j) * m + r] = src[static_cast<std::size_t>(r) * n + j];
            }
            for (; i < i1; ++i)
                for (unsigned j = j0; j < j1; ++j)
                    dst[static_cast<std::size_t>(j) * m + i] = src[static_cast<std::size_t>(i) * n + j];
        }
    }
}

}  // namespace

// A block of +0 comes cheaper from the allocator than from a fill, but -0
// (which compares equal to 0) must be written like any other value.
template <class T>
static bool isPositiveZero(T const& v) {
    return v == T(0) && !std::signbit(v);
}

template <class T>
Cmatrix<T>::Cmatrix(unsigned int m, unsigned int n, T const& init)
    : Base(isPositiveZero(init) ? Base(m, n) : Base(m, n, core::uninitialized)) {
    if (!isPositiveZero(init)) std::fill(this->begin(), this->end(), init);
}

template <class T>
void Cmatrix<T>::getRow(unsigned int i, std::vector<T>& v) const {
    v.assign(this->row_begin(i), this->row_end(i));
}

template <class T>
void Cmatrix<T>::getCol(unsigned int j, std::vector<T>& v) const {
    v.assign(this->col_begin(j), this->col_end(j));
}

template <class T>
void Cmatrix<T>::setRow(unsigned int i, std::vector<T> const& v) {
    const std::size_t k = std::min<std::size_t>(v.size(), this->n());
    std::copy(v.begin(), v.begin() + static_cast<std::ptrdiff_t>(k), getRow(i));
}

template <class T>
void Cmatrix<T>::setCol(unsigned int j, std::vector<T> const& v) {
    const std::size_t k = std::min<std::size_t>(v.size(), this->m());
    T* p = this->data() + j;
    for (std::size_t r = 0; r < k; ++r) p[r * this->n()] = v[r];
}

template <class T>
void Cmatrix<T>::setIdentity() {
    std::fill(this->begin(), this->end(), T(0));
    const unsigned d = std::min(this->m(), this->n());
    for (unsigned k = 0; k < d; ++k) (*this)(k, k) = T(1);
}

template <class T>
void Cmatrix<T>::setMatrix(unsigned int row, unsigned int col, Cmatrix const& sub) {
    if (row >= this->m() || col >= this->n()) return;
    const unsigned rows = std::min(this->m() - row, sub.m());
    const unsigned cols = std::min(this->n() - col, sub.n());
    for (unsigned i = 0; i < rows; ++i) std::copy(sub.getRow(i), sub.getRow(i) + cols, getRow(row + i) + col);
}

// Element-wise results are written into a fresh block in one pass.
template <class T>
Cmatrix<T> Cmatrix<T>::operator+(Cmatrix const& b) const {
    Cmatrix r(this->m(), this->n(), core::uninitialized);
    const T* __restrict x = this->data();
    const T* __restrict y = b.data();
    T* __restrict z = r.data();
    const std::size_t cnt = this->size();
    for (std::size_t k = 0; k < cnt; ++k) z[k] = x[k] + y[k];
    return r;
}

template <class T>
Cmatrix<T> Cmatrix<T>::operator-(Cmatrix const& b) const {
    Cmatrix r(this->m(), this->n(), core::uninitialized);
    const T* __restrict x = this->data();
    const T* __restrict y = b.data();
    T* __restrict z = r.data();
    const std::size_t cnt = this->size();
    for (std::size_t k = 0; k < cnt; ++k) z[k] = x[k] - y[k];
    return r;
}

template <class T>
Cmatrix<T>& Cmatrix<T>::operator+=(Cmatrix const& b) {
    T* a = this->data();
    const T* q = b.data();  // may be this matrix itself (M += M): no restrict
    const std::size_t cnt = this->size();
    for (std::size_t k = 0; k < cnt; ++k) a[k] += q[k];
    return *this;
}

template <class T>
Cmatrix<T>& Cmatrix<T>::operator-=(Cmatrix const& b) {
    T* a = this->data();
    const T* q = b.data();  // may be this matrix itself (M -= M): no restrict
    const std::size_t cnt = this->size();
    for (std::size_t k = 0; k < cnt; ++k) a[k] -= q[k];
    return *this;
}

template <class T>
Cmatrix<T> Cmatrix<T>::operator-() const {
    Cmatrix r(this->m(), this->n(), core::uninitialized);
    const T* __restrict x = this->data();
    T* __restrict z = r.data();
    const std::size_t cnt = this->size();
    for (std::size_t k = 0; k < cnt; ++k) z[k] = -x[k];
    return r;
}

template <class T>
Cmatrix<T>& Cmatrix<T>::operator+=(T s) {
    T* __restrict a = this->data();
    const std::size_t cnt = this->size();
    for (std::size_t k = 0; k < cnt; ++k) a[k] += s;
    return *this;
}

template <class T>
Cmatrix<T>& Cmatrix<T>::operator-=(T s) {
    T* __restrict a = this->data();
    const std::size_t cnt = this->size();
    for (std::size_t k = 0; k < cnt; ++k) a[k] -= s;
    return *this;
}

template <class T>
Cmatrix<T>& Cmatrix<T>::operator*=(T s) {
    T* __restrict a = this->data();
    const std::size_t cnt = this->size();
    for (std::size_t k = 0; k < cnt; ++k) a[k] *= s;
    return *this;
}

template <class T>
Cmatrix<T> Cmatrix<T>::operator*(Cmatrix const& b) const {
    Cmatrix c(this->m(), b.n(), core::uninitialized);
    product(this->data(), b.data(), c.data(), this->m(), this->n(), b.n());
    return c;
}

template <class T>
Cmatrix<T>& Cmatrix<T>::operator*=(Cmatrix const& b) {
    Cmatrix c = (*this) * b;
    this->swap(c);
    return *this;
}

template <class T>
Cmatrix<T> Cmatrix<T>::transp() const {
    Cmatrix t(this->n(), this->m(), core::uninitialized);
    transpose(this->data(), t.data(), this->m(), this->n());
    return t;
}

template class Cmatrix<float>;
template class Cmatrix<double>;

}  // namespace math
