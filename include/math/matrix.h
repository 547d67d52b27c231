// Dense row-major matrix of float or double.
//
// Cmatrix<T> is a thin value type over core::CmatrixBase: m rows, n columns,
// element (i, j) at offset i*n + j of one contiguous block from the tracked
// allocator.  Nothing here checks dimensions at run time: operands of the
// wrong shape and indices out of range are the caller's error (asserted in
// checking builds only).  Element-wise binary operations use the dimensions
// of *this; the product sums over the column count of *this.
#ifndef MATH_MATRIX_H
#define MATH_MATRIX_H

#include <math/export.h>

#include <core/matrix_base.h>

#include <vector>

namespace math {

template <class T>
class METROMATH_API Cmatrix : public core::CmatrixBase<T, core::CmatrixCheckAssert, core::Carray<T>> {
    using Base = core::CmatrixBase<T, core::CmatrixCheckAssert, core::Carray<T>>;

public:
    // The empty 0 x 0 matrix.
    Cmatrix() noexcept : Base() {}
    // m rows and n columns, every element `init`.
    Cmatrix(unsigned int m, unsigned int n, T const& init = T(0));
    Cmatrix(Cmatrix const&) = default;
    Cmatrix(Cmatrix&&) noexcept = default;
    Cmatrix& operator=(Cmatrix const&) = default;
    Cmatrix& operator=(Cmatrix&&) noexcept = default;
    ~Cmatrix() = default;

    // m*n*sizeof(T): the size of the element block in bytes.
    unsigned byteSize() const { return this->m() * this->n() * static_cast<unsigned>(sizeof(T)); }

    // Element (0, 0); the whole matrix follows in storage order.
    T* getBase() { return this->data(); }
    const T* getBase() const { return this->data(); }

    // First element of row i; its n elements follow contiguously.
    T* getRow(unsigned int i) { return this->data() + static_cast<std::size_t>(i) * this->n(); }
    const T* getRow(unsigned int i) const { return this->data() + static_cast<std::size_t>(i) * this->n(); }

    // v is resized to n and receives row i.
    void getRow(unsigned int i, std::vector<T>& v) const;
    // v is resized to m and receives column j.
    void getCol(unsigned int j, std::vector<T>& v) const;
    // Overwrites the first min(v.size(), n) elements of row i; the rest stays.
    void setRow(unsigned int i, std::vector<T> const& v);
    // Overwrites the first min(v.size(), m) elements of column j; the rest stays.
    void setCol(unsigned int j, std::vector<T> const& v);

    // All elements 0, then (k, k) = 1 for k < min(m, n).
    void setIdentity();
    // Copies `sub` with its top-left element at (row, col), silently clipped to
    // this matrix; nothing happens when row >= m or col >= n.
    void setMatrix(unsigned int row, unsigned int col, Cmatrix const& sub);

    Cmatrix operator+(Cmatrix const& b) const;
    Cmatrix operator-(Cmatrix const& b) const;
    Cmatrix& operator+=(Cmatrix const& b);
    Cmatrix& operator-=(Cmatrix const& b);
    Cmatrix operator-() const;
    // Adds / subtracts s to / from every element (not only the diagonal).
    Cmatrix& operator+=(T s);
    Cmatrix& operator-=(T s);
    Cmatrix& operator*=(T s);

    // Product: m rows by b.n() columns.  Every element is a plain sum over
    // k = 0 .. n-1 in ascending order, starting from 0, without fused
    // multiply-add; the result is the same as the textbook triple loop.
    Cmatrix operator*(Cmatrix const& b) const;
    // The product computed into a new block, which then replaces this one.
    Cmatrix& operator*=(Cmatrix const& b);

    // n by m matrix with element (j, i) = element (i, j).
    Cmatrix transp() const;

private:
    // m by n elements of unspecified value, for results that write them all.
    Cmatrix(unsigned int m, unsigned int n, core::Cuninitialized u) : Base(m, n, u) {}
};

extern template class Cmatrix<float>;
extern template class Cmatrix<double>;

}  // namespace math

#endif
