#include <math/matrix.h>

#include <algorithm>
#include <cstddef>

namespace math {

template <class T>
Cmatrix<T>::Cmatrix(unsigned int m, unsigned int n, T const& init) : Base(m, n) {
    if (init != T(0)) std::fill(this->begin(), this->end(), init);
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

template <class T>
Cmatrix<T> Cmatrix<T>::operator+(Cmatrix const& b) const {
    Cmatrix r(*this);
    r += b;
    return r;
}

template <class T>
Cmatrix<T> Cmatrix<T>::operator-(Cmatrix const& b) const {
    Cmatrix r(*this);
    r -= b;
    return r;
}

template <class T>
Cmatrix<T>& Cmatrix<T>::operator+=(Cmatrix const& b) {
    T* __restrict a = this->data();
    const T* __restrict q = b.data();
    const std::size_t cnt = this->size();
    for (std::size_t k = 0; k < cnt; ++k) a[k] += q[k];
    return *this;
}

template <class T>
Cmatrix<T>& Cmatrix<T>::operator-=(Cmatrix const& b) {
    T* __restrict a = this->data();
    const T* __restrict q = b.data();
    const std::size_t cnt = this->size();
    for (std::size_t k = 0; k < cnt; ++k) a[k] -= q[k];
    return *this;
}

template <class T>
Cmatrix<T> Cmatrix<T>::operator-() const {
    Cmatrix r(*this);
    for (T& x : r) x = -x;
    return r;
}

template <class T>
Cmatrix<T>& Cmatrix<T>::operator+=(T s) {
    for (T& x : *this) x += s;
    return *this;
}

template <class T>
Cmatrix<T>& Cmatrix<T>::operator-=(T s) {
    for (T& x : *this) x -= s;
    return *this;
}

template <class T>
Cmatrix<T>& Cmatrix<T>::operator*=(T s) {
    for (T& x : *this) x *= s;
    return *this;
}

template <class T>
Cmatrix<T> Cmatrix<T>::operator*(Cmatrix const& b) const {
    const unsigned m = this->m();
    const unsigned inner = this->n();
    const unsigned p = b.n();
    Cmatrix c(m, p);
    // Row i of C accumulates A(i, k) * row k of B for ascending k.  Each element
    // C(i, j) therefore receives its terms in ascending k starting from 0, exactly
    // as the textbook loop, while the inner loop runs contiguously over j.
    for (unsigned i = 0; i < m; ++i) {
        T* __restrict ci = c.getRow(i);
        const T* ai = getRow(i);
        for (unsigned k = 0; k < inner; ++k) {
            const T aik = ai[k];
            const T* __restrict bk = b.getRow(k);
            for (unsigned j = 0; j < p; ++j) ci[j] += aik * bk[j];
        }
    }
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
    const unsigned m = this->m();
    const unsigned n = this->n();
    Cmatrix t(n, m);
    for (unsigned i = 0; i < m; ++i) {
        const T* src = getRow(i);
        T* dst = t.data() + i;
        for (unsigned j = 0; j < n; ++j) dst[static_cast<std::size_t>(j) * m] = src[j];
    }
    return t;
}

template class Cmatrix<float>;
template class Cmatrix<double>;

}  // namespace math
