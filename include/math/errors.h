// The library's exception classes.
//
// CthrowMath (numerics, matrices, solvers, transformations, areas of
// interest), CthrowSpline (spline bases, curves and surfaces) and
// Ccorrelationthrow (correlation of data vectors; for users of the library),
// all in namespace math, differ from CthrowBase only by their error tables.
// Global using-declarations keep the unqualified names working.  Each table row maps an id
// (from 24 upwards) to a key "Class::ENUMERATOR" and a German message with
// placeholders "%0", "%1", "%2".  Ids a table does not hold fall back to the
// core table of CthrowBase.
//
// Usage:
//   throw CthrowMath(CthrowMath::ERR_PRIMEXT_AOI_POINTINDEX, "") << "7" << "0" << "4";
//
// The message texts are stored as Windows-1252 bytes; use toUtf8() to display
// a composed message on a UTF-8 terminal.
#ifndef MATH_ERRORS_H
#define MATH_ERRORS_H

#include <math/export.h>

#include <core/throw.h>

#include <string>

namespace math {

// Converts Windows-1252 text (as held by the error tables) to UTF-8.  The five
// code points that Windows-1252 leaves undefined (0x81, 0x8D, 0x8F, 0x90, 0x9D)
// map to the C1 control characters of the same value.
METROMATH_API std::string toUtf8(std::string const& cp1252);

// The composed message of an exception, converted to UTF-8.
METROMATH_API std::string messageUtf8(CthrowBase const& e);

#define METROMATH_DECLARE_THROW_CLASS(NAME)                                                    \
public:                                                                                        \
    NAME(int id, std::string const& info);                                                     \
    NAME(std::string const& file, int line, std::string const& info);                          \
    NAME(CthrowBase const& prev, int id, std::string const& info);                             \
    NAME(CthrowBase const& prev, std::string const& file, int line, std::string const& info);  \
    NAME(NAME const& other);                                                                   \
    NAME& operator=(NAME const& other);                                                        \
    ~NAME() override;                                                                          \
    NAME& operator<<(char const* arg);                                                         \
    NAME& operator<<(std::string const& arg);                                                  \
    CbaseTransl::TtabTransl const& id2tab(int id) const override;                              \
    CthrowBase* clone() const override;                                                        \
    [[noreturn]] void throw_this() const override;                                             \
    /* The table in stored order, up to and including its terminator row. */                  \
    static CbaseTransl::TtabTransl const* table() { return errStr; }                           \
                                                                                               \
private:                                                                                       \
    static const CbaseTransl::TtabTransl errStr[];

class METROMATH_API CthrowMath : public CthrowBase {
public:
    enum {
        ERR_MATH_FUNCNOTIMPL = 24,
        ERR_MATH_INVALID_ARGUMENT = 25,
        ERR_MATH_ROUND_PREC = 26,
        ERR_TRANS_INV_MATRIX = 27,
        ERR_MATRIX_DIMS = 28,
        ERR_MATRIX_NOTSQUARE = 29,
        ERR_MATRIX_NOTORTHOGONAL = 30,
        ERR_SOLVE_NOTSOLVABLE = 31,
        ERR_SOLVE_MATRIXSINGULAR = 32,
        ERR_PRIMEXT_AOI_POLYINDEX = 33,
        ERR_PRIMEXT_AOI_POINTINDEX = 34,
        ERR_PRIMEXT_AOI_INVALID = 35
    };
    METROMATH_DECLARE_THROW_CLASS(CthrowMath)
};

class METROMATH_API CthrowSpline : public CthrowBase {
public:
    enum {
        ERR_FUNCNOTIMPL = 24,
        ERR_INVALID_ARGUMENT = 25,
        ERR_INVALID_CTRLPTS = 26,
        ERR_INVALID_FITCTRLPTS = 27,
        ERR_INVALID_CTRLWGHT = 28,
        ERR_INVALID_DATA = 29,
        ERR_INVALID_RATSUM = 30,
        ERR_INVALID_ARRAY = 31,
        ERR_INVALID_DIVISION = 32,
        ERR_INVALID_ORDER = 33
    };
    METROMATH_DECLARE_THROW_CLASS(CthrowSpline)
};

class METROMATH_API Ccorrelationthrow : public CthrowBase {
public:
    enum { ERR_SIZE_MISMATCH = 24, ERR_TEMPLATE_EMPTY = 25 };
    METROMATH_DECLARE_THROW_CLASS(Ccorrelationthrow)
};

}  // namespace math

// For code that names the error classes unqualified.
using math::CthrowMath;
using math::CthrowSpline;
using math::Ccorrelationthrow;

#undef METROMATH_DECLARE_THROW_CLASS

#endif
