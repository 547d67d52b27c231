// Storage template under every dense matrix.
//
// CmatrixBase<T, Check, Storage> holds m rows of n elements, row-major without
// padding: element (i, j) is element i*n + j of one contiguous block.  The block
// comes from the tracked allocator (Carray).  Index and dimension checks are
// delegated to the policy `Check`; CmatrixCheckAssert asserts them in checking
// builds (NDEBUG not defined) and compiles to nothing otherwise.
#ifndef CORE_MATRIX_BASE_H
#define CORE_MATRIX_BASE_H

#include <core/memtracker.h>

#include <cassert>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <new>
#include <type_traits>
#include <utility>

namespace core {

// Tag for storage whose every element the caller writes before reading: the
// block is taken from the allocator without being cleared first.
struct Cuninitialized {};
constexpr Cuninitialized uninitialized{};

// Checking policy: assertions in checking builds only.
struct CmatrixCheckAssert {
    static void index(unsigned i, unsigned j, unsigned m, unsigned n) {
        (void)i, (void)j, (void)m, (void)n;
        assert(i < m && j < n && "matrix index out of range");
    }
    static void row(unsigned i, unsigned m) {
        (void)i, (void)m;
        assert(i <= m && "matrix row out of range");
    }
    static void col(unsigned j, unsigned n) {
        (void)j, (void)n;
        assert(j <= n && "matrix column out of range");
    }
};

// Owner of one tracked heap block of `count` elements of a trivially copyable T.
template <class T>
class Carray {
    static_assert(std::is_trivially_copyable<T>::value, "Carray holds trivially copyable elements");

public:
    Carray() noexcept : m_ptr(nullptr), m_count(0) {}
    // `count` elements, all zero.  Throws CthrowBase (ERR_CORE_NOMEMORY) when
    // the block cannot be had, including byte counts beyond 32 bits.
    explicit Carray(std::size_t count) : m_ptr(nullptr), m_count(0) { allocate(count, true); }
    // `count` elements of unspecified value, for callers that overwrite them all.
    Carray(std::size_t count, Cuninitialized) : m_ptr(nullptr), m_count(0) { allocate(count, false); }
    Carray(Carray const& o) : m_ptr(nullptr), m_count(0) {
        allocate(o.m_count, false);
        if (m_count) std::memcpy(m_ptr, o.m_ptr, m_count * sizeof(T));
    }
    Carray(Carray&& o) noexcept : m_ptr(o.m_ptr), m_count(o.m_count) {
        o.m_ptr = nullptr;
        o.m_count = 0;
    }
    Carray& operator=(Carray const& o) {
        if (this != &o) {
            Carray tmp(o);
            swap(tmp);
        }
        return *this;
    }
    Carray& operator=(Carray&& o) noexcept {
        swap(o);
        return *this;
    }
    ~Carray() { core_memTracker_free(m_ptr); }

    void swap(Carray& o) noexcept {
        std::swap(m_ptr, o.m_ptr);
        std::swap(m_count, o.m_count);
    }

    T* data() noexcept { return m_ptr; }
    const T* data() const noexcept { return m_ptr; }
    std::size_t count() const noexcept { return m_count; }

private:
    void allocate(std::size_t count, bool zero) {
        if (count == 0) return;
        const unsigned bytes = memTracker_bytes(count, sizeof(T));
        void* p = zero ? core_memTracker_calloc(bytes, true) : core_memTracker_malloc(bytes, true);
        m_ptr = static_cast<T*>(p);
        m_count = count;
    }

    T* m_ptr;
    std::size_t m_count;
};

// Iterator along one row (or over the whole block): a plain element pointer.
template <class T>
using CmatrixRowIterator = T*;

// Iterator down one column: an element pointer plus the row stride.
template <class T>
class CmatrixColIterator {
public:
    using iterator_category = std::random_access_iterator_tag;
    using value_type = std::remove_const_t<T>;
    using difference_type = std::ptrdiff_t;
    using pointer = T*;
    using reference = T&;

    CmatrixColIterator() noexcept : m_p(nullptr), m_stride(0) {}
    CmatrixColIterator(T* p, std::ptrdiff_t stride) noexcept : m_p(p), m_stride(stride) {}

    reference operator*() const { return *m_p; }
    pointer operator->() const { return m_p; }
    reference operator[](difference_type k) const { return m_p[k * m_stride]; }
    CmatrixColIterator& operator++() { m_p += m_stride; return *this; }
    CmatrixColIterator operator++(int) { CmatrixColIterator t(*this); m_p += m_stride; return t; }
    CmatrixColIterator& operator--() { m_p -= m_stride; return *this; }
    CmatrixColIterator operator--(int) { CmatrixColIterator t(*this); m_p -= m_stride; return t; }
    CmatrixColIterator& operator+=(difference_type k) { m_p += k * m_stride; return *this; }
    CmatrixColIterator& operator-=(difference_type k) { m_p -= k * m_stride; return *this; }
    friend CmatrixColIterator operator+(CmatrixColIterator a, difference_type k) { return a += k; }
    friend CmatrixColIterator operator-(CmatrixColIterator a, difference_type k) { return a -= k; }
    friend difference_type operator-(CmatrixColIterator const& a, CmatrixColIterator const& b) {
        return a.m_stride ? (a.m_p - b.m_p) / a.m_stride : 0;
    }
    friend bool operator==(CmatrixColIterator const& a, CmatrixColIterator const& b) { return a.m_p == b.m_p; }
    friend bool operator!=(CmatrixColIterator const& a, CmatrixColIterator const& b) { return a.m_p != b.m_p; }
    friend bool operator<(CmatrixColIterator const& a, CmatrixColIterator const& b) { return a.m_p < b.m_p; }

private:
    T* m_p;
    std::ptrdiff_t m_stride;
};

template <class T, class Check = CmatrixCheckAssert, class Storage = Carray<T>>
class CmatrixBase {
public:
    using value_type = T;
    using iterator = CmatrixRowIterator<T>;
    using const_iterator = CmatrixRowIterator<const T>;
    using row_iterator = CmatrixRowIterator<T>;
    using const_row_iterator = CmatrixRowIterator<const T>;
    using col_iterator = CmatrixColIterator<T>;
    using const_col_iterator = CmatrixColIterator<const T>;

    CmatrixBase() noexcept : m_data(), m_n(0), m_m(0) {}
    // m rows, n columns, all elements zero.
    CmatrixBase(unsigned m, unsigned n)
        : m_data(static_cast<std::size_t>(m) * n), m_n(n), m_m(m) {}
    // m rows, n columns of unspecified value: for derived classes that write
    // every element before the matrix is seen.
    CmatrixBase(unsigned m, unsigned n, Cuninitialized)
        : m_data(static_cast<std::size_t>(m) * n, uninitialized), m_n(n), m_m(m) {}
    CmatrixBase(CmatrixBase const&) = default;
    CmatrixBase(CmatrixBase&& o) noexcept : m_data(std::move(o.m_data)), m_n(o.m_n), m_m(o.m_m) {
        o.m_n = o.m_m = 0;
    }
    CmatrixBase& operator=(CmatrixBase const&) = default;
    CmatrixBase& operator=(CmatrixBase&& o) noexcept {
        swap(o);
        return *this;
    }
    ~CmatrixBase() = default;

    unsigned m() const noexcept { return m_m; }
    unsigned n() const noexcept { return m_n; }
    unsigned size() const noexcept { return m_m * m_n; }

    T& operator()(unsigned i, unsigned j) {
        Check::index(i, j, m_m, m_n);
        return m_data.data()[static_cast<std::size_t>(i) * m_n + j];
    }
    T const& operator()(unsigned i, unsigned j) const {
        Check::index(i, j, m_m, m_n);
        return m_data.data()[static_cast<std::size_t>(i) * m_n + j];
    }

    // Exchanges block and dimensions in constant time.
    void swap(CmatrixBase& o) noexcept {
        m_data.swap(o.m_data);
        std::swap(m_n, o.m_n);
        std::swap(m_m, o.m_m);
    }

    // Replaces the contents by an m by n block of zeros.  Throws (and leaves
    // the matrix unchanged) when the block cannot be allocated.
    void resize(unsigned m, unsigned n) {
        CmatrixBase tmp(m, n);
        swap(tmp);
    }

    iterator begin() noexcept { return m_data.data(); }
    iterator end() noexcept { return m_data.data() + static_cast<std::size_t>(m_m) * m_n; }
    const_iterator begin() const noexcept { return m_data.data(); }
    const_iterator end() const noexcept { return m_data.data() + static_cast<std::size_t>(m_m) * m_n; }

    row_iterator row_begin(unsigned i) {
        Check::row(i, m_m);
        return m_data.data() + static_cast<std::size_t>(i) * m_n;
    }
    row_iterator row_end(unsigned i) {
        Check::row(i, m_m);
        return m_data.data() + static_cast<std::size_t>(i + 1) * m_n;
    }
    const_row_iterator row_begin(unsigned i) const {
        Check::row(i, m_m);
        return m_data.data() + static_cast<std::size_t>(i) * m_n;
    }
    const_row_iterator row_end(unsigned i) const {
        Check::row(i, m_m);
        return m_data.data() + static_cast<std::size_t>(i + 1) * m_n;
    }
    col_iterator col_begin(unsigned j) {
        Check::col(j, m_n);
        return col_iterator(m_data.data() + j, m_n);
    }
    col_iterator col_end(unsigned j) {
        Check::col(j, m_n);
        return col_iterator(m_data.data() + static_cast<std::size_t>(m_m) * m_n + j, m_n);
    }
    const_col_iterator col_begin(unsigned j) const {
        Check::col(j, m_n);
        return const_col_iterator(m_data.data() + j, m_n);
    }
    const_col_iterator col_end(unsigned j) const {
        Check::col(j, m_n);
        return const_col_iterator(m_data.data() + static_cast<std::size_t>(m_m) * m_n + j, m_n);
    }

protected:
    T* data() noexcept { return m_data.data(); }
    const T* data() const noexcept { return m_data.data(); }

    Storage m_data;
    unsigned m_n;  // columns, also the row stride
    unsigned m_m;  // rows
};

}  // namespace core

#endif
