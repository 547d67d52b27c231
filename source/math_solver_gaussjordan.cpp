// Gauss-Jordan solver: full pivoting, the inverse built in place.
#include <math/solver.h>

#include <math/errors.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

namespace math {

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
        for (unsigned c = 0; c < n; ++c) mask[c] = m_ipiv[c] == 0 ? T(1) : T(0);
        T big = T(0);
        for (unsigned j = 0; j < n; ++j) {
            if (m_ipiv[j] == 1) continue;
            const T* aj = A.getRow(j);
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
            if (m_ipiv[j] == 1 || !(mask[n + j] >= big)) continue;
            const T* aj = A.getRow(j);
            for (unsigned c = n; c-- > 0;) {
                if (m_ipiv[c] == 0 && std::fabs(aj[c]) >= big) {
                    irow = j;
                    icol = c;
                    found = true;
                    break;
                }
            }
        }
        // b. Mark the pivot column.
        ++m_ipiv[icol];
        // c. Bring the pivot onto the diagonal.
        if (irow != icol) {
            std::swap_ranges(A.getRow(irow), A.getRow(irow) + n, A.getRow(icol));
            if (k) std::swap_ranges(B.getRow(irow), B.getRow(irow) + k, B.getRow(icol));
        }
        // d. Record the step.
        m_indxr[i] = static_cast<int>(irow);
        m_indxc[i] = static_cast<int>(icol);
        // e. Only an exact zero is singular.
        T* ap = A.getRow(icol);
        if (ap[icol] == T(0)) throw CthrowMath(CthrowMath::ERR_SOLVE_MATRIXSINGULAR, "");
        // f. Normalise the pivot row.
        const T inv = T(1) / ap[icol];
        ap[icol] = T(1);
        for (unsigned c = 0; c < n; ++c) ap[c] *= inv;
        T* bp = k ? B.getRow(icol) : nullptr;
        for (unsigned c = 0; c < k; ++c) bp[c] *= inv;
        // g. Eliminate the pivot column from every other row.
        for (unsigned r = 0; r < n; ++r) {
            if (r == icol) continue;
            T* ar = A.getRow(r);
            const T d = ar[icol];
            ar[icol] = T(0);
            for (unsigned c = 0; c < n; ++c) ar[c] -= ap[c] * d;
            if (k) {
                T* br = B.getRow(r);
                for (unsigned c = 0; c < k; ++c) br[c] -= bp[c] * d;
            }
        }
    }
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
