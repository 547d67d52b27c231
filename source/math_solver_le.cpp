// Solver frame Csolver_le<T>: the shared interface of the linear solvers.
#include <math/solver.h>

#include <math/errors.h>
#include <math/matrix_calc.h>
#include <math/point.h>

#include <algorithm>
#include <vector>

namespace math {

// ---------------------------------------------------------------------------
// Csolver_le
// ---------------------------------------------------------------------------

template <class T>
Csolver_le<T>::Csolver_le() : m_A(), m_B(), m_matrixChanged(false), m_rhsSet(false) {}

template <class T>
Csolver_le<T>::Csolver_le(Cmatrix<T> const& A) : m_A(A), m_B(), m_matrixChanged(true), m_rhsSet(false) {}

template <class T>
Csolver_le<T>::Csolver_le(Cmatrix<T>& A) : m_A(A), m_B(), m_matrixChanged(true), m_rhsSet(false) {}

template <class T>
Csolver_le<T>::Csolver_le(Csolver_le const& other) = default;

template <class T>
Csolver_le<T>& Csolver_le<T>::operator=(Csolver_le const& other) = default;

template <class T>
Csolver_le<T>::~Csolver_le() = default;

template <class T>
void Csolver_le<T>::setMatrix(Cmatrix<T>& A) {
    m_A.swap(A);
    m_matrixChanged = true;
    prepare();
}

template <class T>
void Csolver_le<T>::setMatrix(Cmatrix<T> const& A) {
    if (&A != &m_A && A.m() == m_A.m() && A.n() == m_A.n()) {
        std::copy(A.begin(), A.end(), m_A.begin());  // same shape: no new block
    } else {
        Cmatrix<T> copy(A);
        m_A.swap(copy);
    }
    m_matrixChanged = true;
    prepare();
}

template <class T>
void Csolver_le<T>::prepare() {
    if (!m_matrixChanged) return;
    init();
    m_matrixChanged = false;
}

template <class T>
Cmatrix<T> Csolver_le<T>::solve(Cmatrix<T>& B) {
    m_B.swap(B);
    m_rhsSet = true;
    return subsolve();
}

template <class T>
Cmatrix<T> Csolver_le<T>::solve(Cmatrix<T> const& B) {
    Cmatrix<T> copy(B);
    return solve(copy);
}

template <class T>
Cmatrix<T> Csolver_le<T>::solve(std::vector<T> const& b) {
    if (b.empty()) {
        m_B.resize(0, 0);
    } else {
        // Matrix dimensions are 32-bit: a longer vector cannot be a right-hand side.
        if (b.size() > 0xFFFFFFFFu) throw CthrowMath(CthrowMath::ERR_MATH_INVALID_ARGUMENT, "");
        const unsigned m = static_cast<unsigned>(b.size());
        if (m_B.m() != m || m_B.n() != 1) m_B.resize(m, 1);
        std::copy(b.begin(), b.end(), m_B.begin());
    }
    m_rhsSet = true;
    return subsolve();
}

template <class T>
Cmatrix<T> Csolver_le<T>::invert() {
    const unsigned n = m_A.m();
    if (m_B.m() != n || m_B.n() != n) m_B.resize(n, n);
    m_B.setIdentity();
    m_rhsSet = true;
    return subsolve();
}

template <class T>
Cmatrix<T> Csolver_le<T>::solveItr(Cmatrix<T> const& A, Cmatrix<T> const& B) {
    Cmatrix<T> X = solve(B);
    // A·X must be defined and of B's shape, or the residuals make no sense.
    if (A.n() != X.m() || A.m() != B.m() || X.n() != B.n())
        throw CthrowMath(CthrowMath::ERR_MATH_INVALID_ARGUMENT, "");
    T measure = CmatrixCalc<T>::dif(A * X, B);
    Cmatrix<T> kept;
    for (;;) {
        kept = X;
        Cmatrix<T> residual = B - A * X;  // B − A·X: the correction is added
        X += solve(residual);
        const T next = CmatrixCalc<T>::dif(A * X, B);
        if (!(next < measure)) break;  // also ends on NaN
        measure = next;
    }
    return kept;
}

template <class T>
T Csolver_le<T>::deviation(Cmatrix<T> const& A, Cmatrix<T> const& X, Cmatrix<T> const& B) const {
    if (A.n() != X.m() || A.m() < B.m() || X.n() < B.n()) return quietNaN<T>();
    const unsigned inner = A.n();
    T sum = T(0);
    if (B.n() == 0) return sum;  // no element, however many rows B has
    for (unsigned i = 0; i < B.m(); ++i) {
        const T* a = A.getRow(i);
        for (unsigned j = 0; j < B.n(); ++j) {
            T ax = T(0);
            for (unsigned k = 0; k < inner; ++k) ax += a[k] * X(k, j);
            const T r = B(i, j) - ax;
            sum += r * r;
        }
    }
    return sum;
}

template <class T>
Cmatrix<T> Csolver_le<T>::subsolve() {
    throw CthrowMath(CthrowMath::ERR_MATH_FUNCNOTIMPL, "");
}

template <class T>
void Csolver_le<T>::init() {
    throw CthrowMath(CthrowMath::ERR_MATH_FUNCNOTIMPL, "");
}

template class Csolver_le<float>;
template class Csolver_le<double>;

}  // namespace math
