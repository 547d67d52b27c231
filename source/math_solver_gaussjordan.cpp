// Gauss-Jordan solver: full pivoting, the inverse built in place.
#include <math/solver.h>

#include <math/errors.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace math {

namespace {

// Steps a to g of the elimination (see subsolve) on raw row-major storage: A
// n x n, B n x k (null when k = 0), the pivot records and 2n scratch values
// (column mask, then row maxima).  Returns false at an exactly zero pivot.
// N > 0 fixes n at compile time (small systems: the loops unroll); N = 0
// takes nrt.  Every instantiation and clone runs the same operations in the
// same order (no fused multiply-add), so the results are the same bits.
template <class T, unsigned N>
inline __attribute__((always_inline)) bool gaussJordanCore(T* A, T* B, unsigned nrt, unsigned k, int* indxr, int* indxc, int* ipiv, T* mask) {
    const unsigned n = N ? N : nrt;
    unsigned irow = 0;
    unsigned icol = 0;
    for (unsigned i = 0; i < n; ++i) {
        // a. Pivot: the largest magnitude among unused rows and columns; on
        //    ties the last one wins (>=), so a zero can become the pivot.
        //    The scan "if |A(j, k)| >= big, take (j, k)" in row-major order
        //    ends on the last position holding the maximum magnitude, so it is
        //    done in two passes: the maximum over whole rows (used columns
        //    masked to 0, which cannot change a maximum that starts at 0; NaN
        //    never wins a comparison), then a backward search for its last
        //    position (only rows whose maximum reaches it are searched).  No
        //    candidate (all NaN): the previous pivot stays.  A maximum is exact
        //    whatever the grouping, so four partial maxima per row keep the
        //    comparisons independent.
        for (unsigned c = 0; c < n; ++c) mask[c] = ipiv[c] == 0 ? T(1) : T(0);
        T big = T(0);
        for (unsigned j = 0; j < n; ++j) {
            if (ipiv[j] == 1) continue;
            const T* aj = A + static_cast<std::size_t>(j) * n;
            T part[4] = {T(0), T(0), T(0), T(0)};
            unsigned c = 0;
            for (; c + 4 <= n; c += 4) {
                for (unsigned q = 0; q < 4; ++q) {
                    const T v = std::fabs(aj[c + q]) * mask[c + q];
                    part[q] = part[q] < v ? v : part[q];
                }
            }
            for (; c < n; ++c) {
                const T v = std::fabs(aj[c]) * mask[c];
                part[0] = part[0] < v ? v : part[0];
            }
            T rmax = part[0];
            for (unsigned q = 1; q < 4; ++q) rmax = rmax < part[q] ? part[q] : rmax;
            mask[n + j] = rmax;  // the row's maximum
            big = big < rmax ? rmax : big;
        }
        bool found = false;
        for (unsigned j = n; j-- > 0 && !found;) {
            if (ipiv[j] == 1 || !(mask[n + j] >= big)) continue;
            const T* aj = A + static_cast<std::size_t>(j) * n;
            for (unsigned c = n; c-- > 0;) {
                if (ipiv[c] == 0 && std::fabs(aj[c]) >= big) {
                    irow = j;
                    icol = c;
                    found = true;
                    break;
                }
            }
        }
        // b. Mark the pivot column.
        ++ipiv[icol];
        // c. Bring the pivot onto the diagonal.
        if (irow != icol) {
            std::swap_ranges(A + static_cast<std::size_t>(irow) * n, A + static_cast<std::size_t>(irow) * n + n, A + static_cast<std::size_t>(icol) * n);
            if (k) std::swap_ranges(B + static_cast<std::size_t>(irow) * k, B + static_cast<std::size_t>(irow) * k + k, B + static_cast<std::size_t>(icol) * k);
        }
        // d. Record the step.
        indxr[i] = static_cast<int>(irow);
        indxc[i] = static_cast<int>(icol);
        // e. Only an exact zero is singular.
        T* ap = A + static_cast<std::size_t>(icol) * n;
        if (ap[icol] == T(0)) return false;
        // f. Normalise the pivot row.
        const T inv = T(1) / ap[icol];
        ap[icol] = T(1);
        for (unsigned c = 0; c < n; ++c) ap[c] *= inv;
        T* bp = k ? B + static_cast<std::size_t>(icol) * k : nullptr;
        for (unsigned c = 0; c < k; ++c) bp[c] *= inv;
        // g. Eliminate the pivot column from every other row.
        for (unsigned r = 0; r < n; ++r) {
            if (r == icol) continue;
            T* ar = A + static_cast<std::size_t>(r) * n;
            const T d = ar[icol];
            ar[icol] = T(0);
            for (unsigned c = 0; c < n; ++c) ar[c] -= ap[c] * d;
            if (k) {
                T* br = B + static_cast<std::size_t>(r) * k;
                for (unsigned c = 0; c < k; ++c) br[c] -= bp[c] * d;
            }
        }
    }
    return true;
}

template <class T>
inline __attribute__((always_inline)) bool gaussJordanDispatch(T* A, T* B, unsigned n, unsigned k, int* indxr, int* indxc, int* ipiv, T* mask) {
    switch (n) {
        case 3: return gaussJordanCore<T, 3>(A, B, n, k, indxr, indxc, ipiv, mask);
        case 4: return gaussJordanCore<T, 4>(A, B, n, k, indxr, indxc, ipiv, mask);
        case 5: return gaussJordanCore<T, 5>(A, B, n, k, indxr, indxc, ipiv, mask);
        case 6: return gaussJordanCore<T, 6>(A, B, n, k, indxr, indxc, ipiv, mask);
        case 8: return gaussJordanCore<T, 8>(A, B, n, k, indxr, indxc, ipiv, mask);
        case 10: return gaussJordanCore<T, 10>(A, B, n, k, indxr, indxc, ipiv, mask);
        case 12: return gaussJordanCore<T, 12>(A, B, n, k, indxr, indxc, ipiv, mask);
        case 16: return gaussJordanCore<T, 16>(A, B, n, k, indxr, indxc, ipiv, mask);
        default: return gaussJordanCore<T, 0>(A, B, n, k, indxr, indxc, ipiv, mask);
    }
}

template <class T>
using GaussJordanFn = bool (*)(T*, T*, unsigned, unsigned, int*, int*, int*, T*);

template <class T>
bool gaussJordanBaseline(T* A, T* B, unsigned n, unsigned k, int* indxr, int* indxc, int* ipiv, T* mask) {
    return gaussJordanDispatch(A, B, n, k, indxr, indxc, ipiv, mask);
}

#if defined(__x86_64__) && defined(__GNUC__)
#define METROMATH_GJ_X86_DISPATCH 1
template <class T>
__attribute__((target("avx2"))) bool gaussJordanAvx2(T* A, T* B, unsigned n, unsigned k, int* indxr, int* indxc,
                                                     int* ipiv, T* mask) {
    return gaussJordanDispatch(A, B, n, k, indxr, indxc, ipiv, mask);
}
#endif

// The AVX2 build of the elimination where the processor has it, chosen once;
// METROMATH_MATRIX_ISA=sse2 in the environment keeps the baseline build (for
// the tests that check both give the same bits).
template <class T>
GaussJordanFn<T> selectGaussJordan() {
#ifdef METROMATH_GJ_X86_DISPATCH
    const char* cap = std::getenv("METROMATH_MATRIX_ISA");
    __builtin_cpu_init();
    if (!(cap && std::strcmp(cap, "sse2") == 0) && __builtin_cpu_supports("avx2")) return &gaussJordanAvx2<T>;
#endif
    return &gaussJordanBaseline<T>;
}

template <class T>
bool gaussJordanEliminate(T* A, T* B, unsigned n, unsigned k, int* indxr, int* indxc, int* ipiv, T* mask) {
    static const GaussJordanFn<T> fn = selectGaussJordan<T>();
    return fn(A, B, n, k, indxr, indxc, ipiv, mask);
}

}  // namespace

template <class T>
Csolver_GaussJordan<T>::Csolver_GaussJordan() : Csolver_le<T>() {}

template <class T>
Csolver_GaussJordan<T>::Csolver_GaussJordan(Cmatrix<T> const& A) : Csolver_le<T>(A) {}

template <class T>
Csolver_GaussJordan<T>::Csolver_GaussJordan(Cmatrix<T>& A) : Csolver_le<T>(A) {}

template <class T>
Csolver_GaussJordan<T>::Csolver_GaussJordan(Csolver_GaussJordan const& other) = default;

template <class T>
Csolver_GaussJordan<T>& Csolver_GaussJordan<T>::operator=(Csolver_GaussJordan const& other) = default;

template <class T>
Csolver_GaussJordan<T>::~Csolver_GaussJordan() = default;

template <class T>
void Csolver_GaussJordan<T>::init() {
    Cmatrix<T> const& A = this->m_A;
    if (A.m() == m_saved.m() && A.n() == m_saved.n())
        std::copy(A.begin(), A.end(), m_saved.begin());  // no new block
    else
        m_saved = A;
}

template <class T>
Cmatrix<T> Csolver_GaussJordan<T>::subsolve() {
    this->prepare();
    Cmatrix<T>& A = this->m_A;
    Cmatrix<T>& B = this->m_B;

    // 1. Every solve starts from the system matrix as installed (no new block
    //    when the shapes agree).
    if (A.m() == m_saved.m() && A.n() == m_saved.n())
        std::copy(m_saved.begin(), m_saved.end(), A.begin());
    else
        A = m_saved;

    // 2.-4. Shapes.
    if (A.m() != A.n()) throw CthrowMath(CthrowMath::ERR_MATRIX_NOTSQUARE, "");
    const unsigned n = A.n();
    m_indxr.assign(n, 0);
    m_indxc.assign(n, 0);
    m_ipiv.assign(n, 0);
    if (B.m() != n) throw CthrowMath(CthrowMath::ERR_MATH_INVALID_ARGUMENT, "");
    const unsigned k = B.n();
    m_scan.resize(2 * static_cast<std::size_t>(n));
    T* mask = m_scan.data();  // column mask, then row maxima

    if (!gaussJordanEliminate(A.getBase(), k ? B.getBase() : nullptr, n, k, m_indxr.data(), m_indxc.data(),
                              m_ipiv.data(), mask))
        throw CthrowMath(CthrowMath::ERR_SOLVE_MATRIXSINGULAR, "");
    // 6. Unscramble the column exchanges: A becomes the inverse.
    for (unsigned l = n; l-- > 0;) {
        const unsigned r = static_cast<unsigned>(m_indxr[l]);
        const unsigned c = static_cast<unsigned>(m_indxc[l]);
        if (r == c) continue;
        for (unsigned row = 0; row < n; ++row) {
            T* a = A.getRow(row);
            std::swap(a[r], a[c]);
        }
    }
    // 7. B holds the solution.
    return B;
}

template class Csolver_GaussJordan<float>;
template class Csolver_GaussJordan<double>;

}  // namespace math
