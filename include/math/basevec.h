// CbaseVecN<T>: a growable contiguous array whose storage comes from the
// tracked allocator.  It is the container of point clouds
// (tools<T>::cutPointCloud) and of the spline basis vectors.
#ifndef MATH_BASEVEC_H
#define MATH_BASEVEC_H

#include <core/memtracker.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <new>
#include <utility>

namespace math {

// Invariants: size() <= capacity(); elements [0, size()) are constructed and
// contiguous in one tracked block (no block while capacity() == 0).  There is
// no invalid state; an allocation failure throws CthrowBase (ERR_CORE_NOMEMORY)
// and leaves the container as it was.
template <class T>
class CbaseVecN {
public:
    using value_type = T;
    using size_type = std::size_t;
    using iterator = T*;
    using const_iterator = T const*;

    CbaseVecN() noexcept : m_data(nullptr), m_size(0), m_cap(0) {}
    // n value-initialised elements.
    explicit CbaseVecN(size_type n) : CbaseVecN() { resize(n); }
    // n copies of v.
    CbaseVecN(size_type n, T const& v) : CbaseVecN() { resize(n, v); }
    CbaseVecN(std::initializer_list<T> il) : CbaseVecN() {
        reserve(il.size());
        for (T const& v : il) push_back(v);
    }
    CbaseVecN(CbaseVecN const& o) : CbaseVecN() {
        reserve(o.m_size);
        for (size_type i = 0; i < o.m_size; ++i) new (m_data + i) T(o.m_data[i]);
        m_size = o.m_size;
    }
    CbaseVecN(CbaseVecN&& o) noexcept : m_data(o.m_data), m_size(o.m_size), m_cap(o.m_cap) {
        o.m_data = nullptr;
        o.m_size = o.m_cap = 0;
    }
    CbaseVecN& operator=(CbaseVecN const& o) {
        if (this != &o) {
            CbaseVecN tmp(o);
            swap(tmp);
        }
        return *this;
    }
    CbaseVecN& operator=(CbaseVecN&& o) noexcept {
        swap(o);
        return *this;
    }
    ~CbaseVecN() { release(); }

    void swap(CbaseVecN& o) noexcept {
        std::swap(m_data, o.m_data);
        std::swap(m_size, o.m_size);
        std::swap(m_cap, o.m_cap);
    }

    size_type size() const noexcept { return m_size; }
    size_type capacity() const noexcept { return m_cap; }
    bool empty() const noexcept { return m_size == 0; }

    // Element i; no bounds check.
    T& operator[](size_type i) { return m_data[i]; }
    T const& operator[](size_type i) const { return m_data[i]; }
    T& back() { return m_data[m_size - 1]; }
    T const& back() const { return m_data[m_size - 1]; }
    T* data() noexcept { return m_data; }
    T const* data() const noexcept { return m_data; }
    iterator begin() noexcept { return m_data; }
    iterator end() noexcept { return m_data + m_size; }
    const_iterator begin() const noexcept { return m_data; }
    const_iterator end() const noexcept { return m_data + m_size; }

    // Makes room for n elements without changing the size.
    void reserve(size_type n) {
        if (n > m_cap) reallocate(n);
    }
    void push_back(T const& v) {
        if (m_size == m_cap) {
            // v may live in this container: copy it before the block moves.
            T tmp(v);
            reallocate(grown());
            new (m_data + m_size) T(std::move(tmp));
        } else {
            new (m_data + m_size) T(v);
        }
        ++m_size;
    }
    void pop_back() {
        if (m_size) m_data[--m_size].~T();
    }
    // Shrinks (destroying the tail) or grows with value-initialised elements.
    void resize(size_type n) { resizeImpl(n, nullptr); }
    // Shrinks or grows with copies of v.
    void resize(size_type n, T const& v) {
        T tmp(v);
        resizeImpl(n, &tmp);
    }
    // Destroys the elements; the block is kept for reuse.
    void clear() noexcept {
        for (size_type i = 0; i < m_size; ++i) m_data[i].~T();
        m_size = 0;
    }

    bool operator==(CbaseVecN const& o) const {
        if (m_size != o.m_size) return false;
        for (size_type i = 0; i < m_size; ++i)
            if (!(m_data[i] == o.m_data[i])) return false;
        return true;
    }
    bool operator!=(CbaseVecN const& o) const { return !(*this == o); }

private:
    size_type grown() const { return m_cap < 4 ? 4 : m_cap + m_cap / 2; }

    void resizeImpl(size_type n, T const* v) {
        if (n <= m_size) {
            for (size_type i = n; i < m_size; ++i) m_data[i].~T();
            m_size = n;
            return;
        }
        reserve(n);
        for (; m_size < n; ++m_size) {
            if (v)
                new (m_data + m_size) T(*v);
            else
                new (m_data + m_size) T();
        }
    }

    // Moves the elements into a new block of n elements (n >= m_size).
    void reallocate(size_type n) {
        const unsigned bytes = core::memTracker_bytes(static_cast<std::uint64_t>(n), sizeof(T));
        T* p = static_cast<T*>(core_memTracker_malloc(bytes, true));
        for (size_type i = 0; i < m_size; ++i) {
            new (p + i) T(std::move_if_noexcept(m_data[i]));
            m_data[i].~T();
        }
        core_memTracker_free(m_data);
        m_data = p;
        m_cap = n;
    }

    void release() noexcept {
        clear();
        core_memTracker_free(m_data);
        m_data = nullptr;
        m_cap = 0;
    }

    T* m_data;
    size_type m_size;
    size_type m_cap;
};

}  // namespace math

#endif
