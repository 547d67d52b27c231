// LU decomposition solver (Crout, partial pivoting, implicit row scaling).
#include <math/solver.h>

#include <math/errors.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace math {

template <class T>
Csolver_luDecomp<T>::Csolver_luDecomp() : Csolver_le<T>(), m_d(T(1)) {}

template <class T>
Csolver_luDecomp<T>::Csolver_luDecomp(Cmatrix<T> const& A) : Csolver_le<T>(A), m_d(T(1)) {}

template <class T>
Csolver_luDecomp<T>::Csolver_luDecomp(Cmatrix<T>& A) : Csolver_le<T>(A), m_d(T(1)) {}

template <class T>
Csolver_luDecomp<T>::Csolver_luDecomp(Csolver_luDecomp const& other) = default;

template <class T>
Csolver_luDecomp<T>& Csolver_luDecomp<T>::operator=(Csolver_luDecomp const& other) = default;

template <class T>
Csolver_luDecomp<T>::~Csolver_luDecomp() = default;

template <class T>
void Csolver_luDecomp<T>::init() {
    Cmatrix<T> const& A = this->m_A;
    if (A.m() != A.n()) throw CthrowMath(CthrowMath::ERR_MATRIX_NOTSQUARE, "");
    m_d = T(1);
    m_scale.resize(A.n());
    m_perm.resize(A.n());
    getScale();
    doCrout();
}

template <class T>
void Csolver_luDecomp<T>::getScale() {
    Cmatrix<T> const& A = this->m_A;
    const unsigned n = A.n();
    for (unsigned i = 0; i < n; ++i) {
        const T* a = A.getRow(i);
        T big = T(0);
        for (unsigned j = 0; j < n; ++j) {
            const T v = std::fabs(a[j]);
            if (v > big) big = v;
        }
        if (big == T(0)) throw CthrowMath(CthrowMath::ERR_SOLVE_MATRIXSINGULAR, "");
        m_scale[i] = T(1) / big;
    }
}

// Crout's column-by-column elimination, reorganised for row-major storage.
//
// Column j of the classic arrangement computes every element as
//   A(i, j) − A(i, 0)·A(0, j) − A(i, 1)·A(1, j) − …   (k ascending, k < min(i, j)),
// then picks the pivot row of column j by scale[i]·|A(i, j)|, exchanges whole
// rows, and divides the elements below the pivot.  Here the subtraction of the
// term k is applied to the whole remaining row right after column k is
// finished ("right-looking").  Every element receives exactly the same
// subtractions with the same operands in the same ascending order (a row
// exchange moves the partly reduced rows together with their L entries), so
// the results are bit for bit those of the column-by-column loop, while the
// inner loop runs along contiguous rows.
template <class T>
void Csolver_luDecomp<T>::doCrout() {
    Cmatrix<T>& A = this->m_A;
    const unsigned n = A.n();
    for (unsigned j = 0; j < n; ++j) {
        // Column j is complete for all rows: pick the pivot (>=: the last of
        // equal candidates wins).  The scale factor is taken by row position.
        T big = T(0);
        unsigned imax = j;
        for (unsigned i = j; i < n; ++i) {
            const T t = m_scale[i] * std::fabs(A(i, j));
            if (t >= big) {
                big = t;
                imax = i;
            }
        }
        if (imax != j) swapRow(j, imax);
        m_perm[j] = static_cast<int>(imax);
        T* aj = A.getRow(j);
        if (aj[j] == T(0x1p-52)) aj[j] = T(0);
        const T inv = T(1) / aj[j];
        for (unsigned i = j + 1; i < n; ++i) {
            T* ai = A.getRow(i);
            const T l = ai[j] * inv;
            ai[j] = l;
            // Term k = j of every later element of row i.
            for (unsigned c = j + 1; c < n; ++c) ai[c] -= l * aj[c];
        }
    }
}

template <class T>
void Csolver_luDecomp<T>::doCrout2() {
    Cmatrix<T>& A = this->m_A;
    const unsigned n = A.n();
    m_perm.resize(n);
    for (unsigned i = 0; i < n; ++i) {
        m_perm[i] = static_cast<int>(i);
        T* ai = A.getRow(i);
        for (unsigned j = 0; j < n; ++j) {
            const unsigned kmax = std::min(i, j);
            T s = ai[j];
            for (unsigned k = 0; k < kmax; ++k) s -= ai[k] * A(k, j);
            ai[j] = s;
            if (j < i) {
                const T piv = A(j, j);
                if (piv == T(0)) throw CthrowMath(CthrowMath::ERR_SOLVE_MATRIXSINGULAR, "");
                ai[j] = s / piv;
            }
        }
    }
}

template <class T>
void Csolver_luDecomp<T>::swapRow(unsigned int i, unsigned int j) {
    Cmatrix<T>& A = this->m_A;
    std::swap_ranges(A.getRow(i), A.getRow(i) + A.n(), A.getRow(j));
    m_d = -m_d;
}

template <class T>
void Csolver_luDecomp<T>::substitute() {
    Cmatrix<T> const& A = this->m_A;
    Cmatrix<T>& B = this->m_B;
    const unsigned n = A.n();
    const unsigned kc = B.n();
    m_col.resize(n);
    T* b = m_col.data();
    for (unsigned c = 0; c < kc; ++c) {
        for (unsigned i = 0; i < n; ++i) b[i] = B(i, c);
        // Forward substitution with the permutation; leading zeros of the
        // permuted right-hand side are skipped.
        int first = -1;
        for (unsigned i = 0; i < n; ++i) {
            const unsigned p = static_cast<unsigned>(m_perm[i]);
            T s = b[p];
            b[p] = b[i];
            if (first >= 0) {
                const T* a = A.getRow(i);
                for (unsigned j = static_cast<unsigned>(first); j < i; ++j) s -= a[j] * b[j];
            } else if (s != T(0)) {
                first = static_cast<int>(i);
            }
            b[i] = s;
        }
        // Back substitution.
        for (unsigned i = n; i-- > 0;) {
            const T* a = A.getRow(i);
            T s = b[i];
            for (unsigned j = i + 1; j < n; ++j) s -= a[j] * b[j];
            b[i] = s / a[i];
        }
        for (unsigned i = 0; i < n; ++i) B(i, c) = b[i];
    }
}

template <class T>
Cmatrix<T> Csolver_luDecomp<T>::subsolve() {
    this->prepare();
    if (this->m_B.m() != this->m_A.m()) throw CthrowMath(CthrowMath::ERR_MATH_INVALID_ARGUMENT, "");
    substitute();
    return this->m_B;
}

template <class T>
T Csolver_luDecomp<T>::getDet() {
    this->prepare();
    Cmatrix<T> const& A = this->m_A;
    const unsigned n = A.m() == A.n() ? A.n() : 0;
    T det = T(1);
    for (unsigned i = 0; i < n; ++i) det *= A(i, i);
    return det * m_d;
}

template class Csolver_luDecomp<float>;
template class Csolver_luDecomp<double>;

}  // namespace math
