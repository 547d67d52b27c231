#include <math/errors.h>

#include <core/memtracker.h>

namespace math {

// Message texts are Windows-1252 bytes.  A hex escape ends at the next
// non-hex character, so literals are split after every escaped byte.

const CbaseTransl::TtabTransl CthrowMath::errStr[] = {
    {24, "CthrowMath::ERR_MATH_FUNCNOTIMPL", "Funktion ist nicht implementiert."},
    {25, "CthrowMath::ERR_MATH_INVALID_ARGUMENT", "Ung\xFC" "ltiges Argument wurde \xFC" "bergeben."},
    {26, "CthrowMath::ERR_MATH_ROUND_PREC", "Precision %0 for rounding out of range ([%1,%2])."},
    {27, "CthrowMath::ERR_TRANS_INV_MATRIX", "\xDC" "bergebene Matrix ist keine g\xFC" "ltige Transformationsmatrix."},
    {28, "CthrowMath::ERR_MATRIX_DIMS",
     "Dimensionen der \xFC" "bergebene Matrix sind ung\xFC" "ltig (m:%0,n:%1). Erwartet wird eine 3x3- oder 4x4-Matrix."},
    {29, "CthrowMath::ERR_MATRIX_NOTSQUARE", "Es wude keine Quadratische Matrix \xFC" "bergeben."},
    {30, "CthrowMath::ERR_MATRIX_NOTORTHOGONAL", "Matrix ist nicht orthogonal."},
    {31, "CthrowMath::ERR_SOLVE_NOTSOLVABLE", "Gleichungssystem kann nicht berechnet werden."},
    {32, "CthrowMath::ERR_SOLVE_MATRIXSINGULAR", "\xDC" "bergebene Matrix ist singul\xE4" "r."},
    {33, "CthrowMath::ERR_PRIMEXT_AOI_POLYINDEX", "Polygonindex %0 des Aoi ungueltig. (min: %1, max: %2)"},
    {34, "CthrowMath::ERR_PRIMEXT_AOI_POINTINDEX", "Punktindex %0 des Polygons ungueltig. (min: %1, max: %2)"},
    {35, "CthrowMath::ERR_PRIMEXT_AOI_INVALID", "AOI ist ung\xFC" "ltig."},
    {0, nullptr, nullptr}};

// Stored order differs from id order on purpose: 29 stands after 31.
const CbaseTransl::TtabTransl CthrowSpline::errStr[] = {
    {24, "CthrowSpline::ERR_FUNCNOTIMPL", "Funktion ist nicht implementiert."},
    {25, "CthrowSpline::ERR_INVALID_ARGUMENT", "Ungueltiges Argument wurde \xFC" "bergeben."},
    {26, "CthrowSpline::ERR_INVALID_CTRLPTS", "Zu wenig Kontrollpunkte."},
    {27, "CthrowSpline::ERR_INVALID_FITCTRLPTS", "Anzahl Kontrollpunkte groesser als Anzahl Mess-Punkte."},
    {28, "CthrowSpline::ERR_INVALID_CTRLWGHT", "Anzahl Kontrollpunkte und Gewichte ungleich."},
    {30, "CthrowSpline::ERR_INVALID_RATSUM", "Fehler beim Gewichten der Basisfunktionen."},
    {31, "CthrowSpline::ERR_INVALID_ARRAY", "Uebergebenes Vektorfeld ist inkonsistent."},
    {29, "CthrowSpline::ERR_INVALID_DATA", "Daten sind fehlerhaft."},
    {32, "CthrowSpline::ERR_INVALID_DIVISION", "Division durch 0 aufgetreten."},
    {33, "CthrowSpline::ERR_INVALID_ORDER", "Die Mindestordnung der Kurve/Flaeche ist kleiner 2."},
    {0, nullptr, nullptr}};

// The keys carry the prefix "CthrowMath::" on purpose.
const CbaseTransl::TtabTransl Ccorrelationthrow::errStr[] = {
    {24, "CthrowMath::ERR_SIZE_MISMATCH",
     "Korrelation nur zwischen Vektoren gleicher Gr\xF6\xDF" "e berechenbar (%0 != %1)."},
    {25, "CthrowMath::ERR_TEMPLATE_EMPTY", "Korrelationsinitialisierung mit leeren Daten."},
    {0, nullptr, nullptr}};

namespace {

// Linear search by id; the terminator row (null key) ends the table.
CbaseTransl::TtabTransl const* findRow(CbaseTransl::TtabTransl const* table, int id) {
    for (CbaseTransl::TtabTransl const* row = table; row->key != nullptr; ++row)
        if (row->id == id) return row;
    return nullptr;
}

}  // namespace

#define METROMATH_DEFINE_THROW_CLASS(NAME)                                                         \
    NAME::NAME(int id, std::string const& info) : CthrowBase(id, info) {}                          \
    NAME::NAME(std::string const& file, int line, std::string const& info)                         \
        : CthrowBase(file, line, info) {}                                                          \
    NAME::NAME(CthrowBase const& prev, int id, std::string const& info) : CthrowBase(prev, id, info) {} \
    NAME::NAME(CthrowBase const& prev, std::string const& file, int line, std::string const& info) \
        : CthrowBase(prev, file, line, info) {}                                                    \
    NAME::NAME(NAME const& other) : CthrowBase(other) {}                                           \
    NAME& NAME::operator=(NAME const& other) {                                                     \
        CthrowBase::operator=(other);                                                              \
        return *this;                                                                              \
    }                                                                                              \
    NAME::~NAME() = default;                                                                       \
    NAME& NAME::operator<<(char const* arg) {                                                      \
        addArgument(arg ? arg : "");                                                               \
        return *this;                                                                              \
    }                                                                                              \
    NAME& NAME::operator<<(std::string const& arg) {                                               \
        addArgument(arg);                                                                          \
        return *this;                                                                              \
    }                                                                                              \
    CbaseTransl::TtabTransl const& NAME::id2tab(int id) const {                                    \
        if (CbaseTransl::TtabTransl const* row = findRow(errStr, id)) return *row;                 \
        return CthrowBase::id2tab(id);                                                             \
    }                                                                                              \
    CthrowBase* NAME::clone() const { return new NAME(*this); }                                    \
    void NAME::throw_this() const { throw NAME(*this); }

METROMATH_DEFINE_THROW_CLASS(CthrowMath)
METROMATH_DEFINE_THROW_CLASS(CthrowSpline)
METROMATH_DEFINE_THROW_CLASS(Ccorrelationthrow)

std::string toUtf8(std::string const& in) {
    // Code points of 0x80..0x9F in Windows-1252; 0 marks the undefined ones.
    static const unsigned short high[32] = {
        0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
        0x2039, 0x0152, 0,      0x017D, 0,      0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
        0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178};
    std::string out;
    out.reserve(in.size() + in.size() / 8);
    for (unsigned char c : in) {
        unsigned cp = c;
        if (c >= 0x80 && c < 0xA0 && high[c - 0x80] != 0) cp = high[c - 0x80];
        if (cp < 0x80) {
            out += static_cast<char>(cp);
        } else if (cp < 0x800) {
            out += static_cast<char>(0xC0 | (cp >> 6));
            out += static_cast<char>(0x80 | (cp & 0x3F));
        } else {
            out += static_cast<char>(0xE0 | (cp >> 12));
            out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (cp & 0x3F));
        }
    }
    return out;
}

std::string messageUtf8(CthrowBase const& e) { return toUtf8(static_cast<std::string>(e)); }

}  // namespace math
