#include <math/matrix_io.h>

#include <charconv>
#include <limits>
#include <cstddef>

namespace math {

template <class T, class S>
CioStreamMatrix<T, S>::CioStreamMatrix(std::ostream& os) : S(os), m_writeHeader(true) {}

template <class T, class S>
CioStreamMatrix<T, S>::CioStreamMatrix(std::istream& is) : S(is), m_writeHeader(true) {}

template <class T, class S>
CioStreamMatrix<T, S>::CioStreamMatrix(S const& stream) : S(stream), m_writeHeader(true) {}

template <class T, class S>
CioStreamMatrix<T, S>::CioStreamMatrix(CioStreamMatrix const& other) : S(other), m_writeHeader(other.m_writeHeader) {}

template <class T, class S>
CioStreamMatrix<T, S>& CioStreamMatrix<T, S>::operator=(CioStreamMatrix const& other) {
    S::operator=(other);
    m_writeHeader = other.m_writeHeader;
    return *this;
}

template <class T, class S>
CioStreamMatrix<T, S>::~CioStreamMatrix() = default;

template <class T, class S>
CioStreamMatrix<T, S>& CioStreamMatrix<T, S>::operator<<(Cmatrix<T> const& M) {
    write_txt(M);
    return *this;
}

template <class T, class S>
CioStreamMatrix<T, S>& CioStreamMatrix<T, S>::operator>>(Cmatrix<T>& M) {
    read_txt(M);
    return *this;
}

template <class T, class S>
CioStreamMatrix<T, S>& CioStreamMatrix<T, S>::write(Cmatrix<T> const& M) {
    write_bin(M);
    return *this;
}

template <class T, class S>
CioStreamMatrix<T, S>& CioStreamMatrix<T, S>::read(Cmatrix<T>& M) {
    read_bin(M);
    return *this;
}

// Header "m  n\n" straight to the output stream, then every element through
// the wrapper's number format followed by one space, '\n' after each row.
// The counts are formatted with to_chars so that a locale imbued on the
// stream (digit grouping) cannot change the header.
template <class T, class S>
void CioStreamMatrix<T, S>::write_txt(Cmatrix<T> const& M) {
    this->wFrmt();
    std::ostream* os = this->ostream();
    const unsigned m = M.m();
    const unsigned n = M.n();
    if (m_writeHeader && os) {
        char buf[32];
        char* p = std::to_chars(buf, buf + 10, m).ptr;
        *p++ = ' ';
        *p++ = ' ';
        p = std::to_chars(p, p + 10, n).ptr;
        *p++ = '\n';
        os->write(buf, p - buf);
    }
    if (m == 0 || n == 0) return;
    for (unsigned i = 0; i < m; ++i) {
        const T* row = M.getRow(i);
        for (unsigned j = 0; j < n; ++j) {
            S::operator<<(row[j]);
            S::operator<<(" ");
        }
        S::operator<<('\n');
    }
}

// Two counts, resize, then m*n elements row by row.  The counts are written
// unsigned, so they are read in a wider type: every written count (up to
// 2^32 - 1) reads back as written, and a negative count of a damaged header
// reaches the resize as the unsigned value of the int it is (as before).  A
// count outside [INT_MIN, UINT_MAX] fails the stream like any unreadable
// number.  A wrapper without an input stream and a failed header read leave M
// as it is; a failed element read ends the loop (every further read on the
// failed stream would be a no-op), so a short stream after a large header
// costs no more than the allocation.
template <class T, class S>
void CioStreamMatrix<T, S>::read_txt(Cmatrix<T>& M) {
    if (!this->istream()) return;
    long long m = 0;
    long long n = 0;
    S::operator>>(m);
    S::operator>>(n);
    if (!this->good()) return;
    const long long lo = std::numeric_limits<int>::min(), hi = std::numeric_limits<unsigned>::max();
    if (m < lo || m > hi || n < lo || n > hi) {
        this->istream()->setstate(std::ios::failbit);
        return;
    }
    M.resize(static_cast<unsigned>(m), static_cast<unsigned>(n));
    const std::size_t count = static_cast<std::size_t>(M.m()) * M.n();
    T* p = M.getBase();
    for (std::size_t k = 0; k < count; ++k) {
        S::operator>>(p[k]);
        if (!this->good()) return;
    }
}

template <class T, class S>
void CioStreamMatrix<T, S>::write_bin(Cmatrix<T> const& M) {
    S::write(M.m());
    S::write(M.n());
    std::ostream* os = this->ostream();
    const std::size_t bytes = static_cast<std::size_t>(M.m()) * M.n() * sizeof(T);
    if (os && bytes != 0) os->write(reinterpret_cast<const char*>(M.getBase()), static_cast<std::streamsize>(bytes));
}

template <class T, class S>
void CioStreamMatrix<T, S>::read_bin(Cmatrix<T>& M) {
    if (!this->istream()) return;
    int m = 0;
    int n = 0;
    S::read(m);
    S::read(n);
    if (!this->good()) return;
    M.resize(static_cast<unsigned>(m), static_cast<unsigned>(n));
    std::istream* is = this->istream();
    const std::size_t bytes = static_cast<std::size_t>(M.m()) * M.n() * sizeof(T);
    if (is && bytes != 0) is->read(reinterpret_cast<char*>(M.getBase()), static_cast<std::streamsize>(bytes));
}

template class CioStreamMatrix<float, Cstream>;
template class CioStreamMatrix<double, Cstream>;

}  // namespace math
