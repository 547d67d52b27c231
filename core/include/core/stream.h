// Stream wrapper over the standard streams.
//
// A Cstream refers to (never owns) a std::ostream or a std::istream.  It
// offers formatted output and input of every scalar type and binary output
// and input of every scalar type in machine byte order.  Errors are left in
// the underlying stream's state; nothing here throws on a stream failure.
//
// Number format: floating-point values (float, double, long double) are
// written in the shortest decimal form that reads back to the same value
// (std::to_chars), and read with std::from_chars, so a value written and read
// as text is bit-for-bit the same (including subnormals, infinities
// "inf"/"-inf", and NaN as "nan").  Neither direction depends on the locale.
// Integers are written in decimal.  Numbers and strings go out verbatim,
// whatever base, width or fill the stream has been given.  Formatted input
// skips leading white space and reads one white-space delimited token; a
// token that is not a complete number of the requested type sets failbit on
// the underlying stream and leaves the target unchanged.
#ifndef CORE_STREAM_H
#define CORE_STREAM_H

#include <core/core_export.h>

#include <istream>
#include <ostream>
#include <string>

class CORE_API Cstream {
public:
    explicit Cstream(std::ostream& os);
    explicit Cstream(std::istream& is);
    Cstream(Cstream const& other) = default;
    Cstream& operator=(Cstream const& other) = default;
    virtual ~Cstream();

    // The wrapped streams (null for the direction the wrapper was not made for).
    std::ostream* ostream() const { return m_os; }
    std::istream* istream() const { return m_is; }

    // True while the wrapped stream has no error flag set.
    bool good() const;

#define CORE_CSTREAM_SCALAR(T)        \
    Cstream& operator<<(T v);         \
    Cstream& operator>>(T& v);        \
    Cstream& write(T v);              \
    Cstream& read(T& v);
    CORE_CSTREAM_SCALAR(bool)
    CORE_CSTREAM_SCALAR(char)
    CORE_CSTREAM_SCALAR(signed char)
    CORE_CSTREAM_SCALAR(unsigned char)
    CORE_CSTREAM_SCALAR(short)
    CORE_CSTREAM_SCALAR(unsigned short)
    CORE_CSTREAM_SCALAR(int)
    CORE_CSTREAM_SCALAR(unsigned int)
    CORE_CSTREAM_SCALAR(long)
    CORE_CSTREAM_SCALAR(unsigned long)
    CORE_CSTREAM_SCALAR(long long)
    CORE_CSTREAM_SCALAR(unsigned long long)
    CORE_CSTREAM_SCALAR(float)
    CORE_CSTREAM_SCALAR(double)
    CORE_CSTREAM_SCALAR(long double)
#undef CORE_CSTREAM_SCALAR

    // Text output of strings.
    Cstream& operator<<(const char* s);
    Cstream& operator<<(std::string const& s);
    // One white-space delimited word.
    Cstream& operator>>(std::string& s);

protected:
    // Prepares the wrapped output stream for formatted output (decimal
    // integers, no field width).  Called by writers of formatted blocks.
    void wFrmt();

private:
    template <class T> Cstream& putNumber(T v);
    template <class T> Cstream& getNumber(T& v);
    template <class T> Cstream& putBinary(T v);
    template <class T> Cstream& getBinary(T& v);

    std::ostream* m_os;
    std::istream* m_is;
};

#endif
