// Text and binary stream formats of Cmatrix<T>.
//
// CioStreamMatrix<T> is the core stream wrapper Cstream extended by two matrix
// formats.  The streaming operators choose the text form, the named write/read
// the binary form:
//
//   text    "m  n\n" (header, written while the header flag is set), then m
//           lines of n values, each value followed by one space:
//           "2  3\n1 2 3 \n4 5 6 \n"
//   binary  m and n as 4-byte unsigned integers in machine byte order, then the
//           m*n elements in row-major order as raw bytes (byteSize() bytes).
//
// Reading always expects the header in both forms (text written with
// writeHeader(false) cannot be read back).  Nothing is checked or thrown here:
// stream errors stay in the underlying stream's state, and counts read from a
// damaged header go to Cmatrix::resize unchanged (text counts are read in a
// wider type: every count written, up to 2^32 - 1, reads back as written; one
// outside [INT_MIN, 2^32 - 1] fails the stream), where a block that cannot be
// allocated (a negative count reads as a huge unsigned one) throws CthrowBase
// (ERR_CORE_NOMEMORY) and leaves the matrix as it was.  The binary element
// block does not record the element type: read with the type that wrote it.
#ifndef MATH_MATRIX_IO_H
#define MATH_MATRIX_IO_H

#include <math/export.h>
#include <math/matrix.h>

#include <core/stream.h>

#include <istream>
#include <ostream>

namespace math {

// A Cstream with the matrix formats; S is the stream wrapper it extends.  The
// only state of its own is the write-header flag (true after construction).
template <class T, class S = Cstream>
class METROMATH_API CioStreamMatrix : public S {
public:
    explicit CioStreamMatrix(std::ostream& os);
    explicit CioStreamMatrix(std::istream& is);
    explicit CioStreamMatrix(S const& stream);
    CioStreamMatrix(CioStreamMatrix const& other);
    CioStreamMatrix& operator=(CioStreamMatrix const& other);
    ~CioStreamMatrix() override;

    // Whether the text form starts with the header line "m  n".
    void writeHeader(bool on) { m_writeHeader = on; }
    bool writeHeader() const { return m_writeHeader; }

    // Every scalar read/write/<</>> of the wrapper stays available.
    using S::operator<<;
    using S::operator>>;
    using S::read;
    using S::write;

    // Text form.
    CioStreamMatrix& operator<<(Cmatrix<T> const& M);
    CioStreamMatrix& operator>>(Cmatrix<T>& M);
    // Binary form.
    CioStreamMatrix& write(Cmatrix<T> const& M);
    CioStreamMatrix& read(Cmatrix<T>& M);

protected:
    void write_txt(Cmatrix<T> const& M);
    void read_txt(Cmatrix<T>& M);
    void write_bin(Cmatrix<T> const& M);
    void read_bin(Cmatrix<T>& M);

private:
    bool m_writeHeader;
};

extern template class CioStreamMatrix<float, Cstream>;
extern template class CioStreamMatrix<double, Cstream>;

}  // namespace math

#endif
