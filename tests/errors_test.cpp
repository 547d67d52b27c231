#include <math/errors.h>

#include <core/memtracker.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

namespace {

struct Row {
    int id;
    const char* key;
    const char* text;
};

template <class E>
void expectTable(std::vector<Row> const& rows) {
    CbaseTransl::TtabTransl const* t = E::table();
    for (std::size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE(rows[i].key);
        EXPECT_EQ(t[i].id, rows[i].id);
        ASSERT_NE(t[i].key, nullptr);
        EXPECT_STREQ(t[i].key, rows[i].key);
        EXPECT_STREQ(t[i].text, rows[i].text);
        // id2tab finds every row by id, whatever its stored position.
        E e(rows[i].id, "");
        EXPECT_EQ(&e.id2tab(rows[i].id), &t[i]);
    }
    // Terminator row.
    EXPECT_EQ(t[rows.size()].id, 0);
    EXPECT_EQ(t[rows.size()].key, nullptr);
    EXPECT_EQ(t[rows.size()].text, nullptr);
}

}  // namespace

TEST(Errors, MathTableBytes) {
    expectTable<CthrowMath>({
        {24, "CthrowMath::ERR_MATH_FUNCNOTIMPL", "Funktion ist nicht implementiert."},
        {25, "CthrowMath::ERR_MATH_INVALID_ARGUMENT", "Ung\xFCltiges Argument wurde \xFC" "bergeben."},
        {26, "CthrowMath::ERR_MATH_ROUND_PREC", "Precision %0 for rounding out of range ([%1,%2])."},
        {27, "CthrowMath::ERR_TRANS_INV_MATRIX", "\xDC" "bergebene Matrix ist keine g\xFCltige Transformationsmatrix."},
        {28, "CthrowMath::ERR_MATRIX_DIMS",
         "Dimensionen der \xFC" "bergebene Matrix sind ung\xFCltig (m:%0,n:%1). Erwartet wird eine 3x3- oder 4x4-Matrix."},
        {29, "CthrowMath::ERR_MATRIX_NOTSQUARE", "Es wude keine Quadratische Matrix \xFC" "bergeben."},
        {30, "CthrowMath::ERR_MATRIX_NOTORTHOGONAL", "Matrix ist nicht orthogonal."},
        {31, "CthrowMath::ERR_SOLVE_NOTSOLVABLE", "Gleichungssystem kann nicht berechnet werden."},
        {32, "CthrowMath::ERR_SOLVE_MATRIXSINGULAR", "\xDC" "bergebene Matrix ist singul\xE4r."},
        {33, "CthrowMath::ERR_PRIMEXT_AOI_POLYINDEX", "Polygonindex %0 des Aoi ungueltig. (min: %1, max: %2)"},
        {34, "CthrowMath::ERR_PRIMEXT_AOI_POINTINDEX", "Punktindex %0 des Polygons ungueltig. (min: %1, max: %2)"},
        {35, "CthrowMath::ERR_PRIMEXT_AOI_INVALID", "AOI ist ung\xFCltig."},
    });
}

TEST(Errors, SplineTableStoredOrderAndLookup) {
    expectTable<CthrowSpline>({
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
    });
    CthrowSpline e(CthrowSpline::ERR_INVALID_DATA, "");
    EXPECT_STREQ(e.id2tab(29).key, "CthrowSpline::ERR_INVALID_DATA");
}

TEST(Errors, CorrelationTableKeepsMathPrefix) {
    expectTable<Ccorrelationthrow>({
        {24, "CthrowMath::ERR_SIZE_MISMATCH",
         "Korrelation nur zwischen Vektoren gleicher Gr\xF6\xDF" "e berechenbar (%0 != %1)."},
        {25, "CthrowMath::ERR_TEMPLATE_EMPTY", "Korrelationsinitialisierung mit leeren Daten."},
    });
    EXPECT_EQ(Ccorrelationthrow::ERR_SIZE_MISMATCH, 24);
    EXPECT_EQ(Ccorrelationthrow::ERR_TEMPLATE_EMPTY, 25);
}

TEST(Errors, Id24DiffersPerClassAndUnknownIdsFallBack) {
    EXPECT_STREQ(CthrowMath(24, "").id2tab(24).key, "CthrowMath::ERR_MATH_FUNCNOTIMPL");
    EXPECT_STREQ(CthrowSpline(24, "").id2tab(24).key, "CthrowSpline::ERR_FUNCNOTIMPL");
    EXPECT_STREQ(Ccorrelationthrow(24, "").id2tab(24).key, "CthrowMath::ERR_SIZE_MISMATCH");
    CthrowBase base(0, "");
    for (int id : {36, 23, 2, 0, -5, 1000}) {
        EXPECT_EQ(&CthrowMath(24, "").id2tab(id), &base.id2tab(id)) << id;
        EXPECT_EQ(&CthrowSpline(24, "").id2tab(id), &base.id2tab(id)) << id;
        EXPECT_EQ(&Ccorrelationthrow(24, "").id2tab(id), &base.id2tab(id)) << id;
    }
    // The core table's defined row for ids it does not hold.
    EXPECT_STREQ(base.id2tab(36).key, "CthrowBase::ERR_CORE_UNDEFINED_ID");
    EXPECT_STREQ(base.id2tab(CthrowBase::ERR_CORE_NOMEMORY).key, "CthrowBase::ERR_CORE_NOMEMORY");
}

TEST(Errors, ArgumentsFillPlaceholdersAndDoNotCarryOver) {
    CthrowMath e(CthrowMath::ERR_PRIMEXT_AOI_POINTINDEX, "");
    e << "7" << std::string("0") << "4";
    EXPECT_EQ(e.arguments(), (std::vector<std::string>{"7", "0", "4"}));
    EXPECT_EQ(static_cast<std::string>(e),
              "CthrowMath::ERR_PRIMEXT_AOI_POINTINDEX: Punktindex 7 des Polygons ungueltig. (min: 0, max: 4)");
    CthrowMath f(CthrowMath::ERR_PRIMEXT_AOI_POINTINDEX, "");
    EXPECT_TRUE(f.arguments().empty());
    // Missing arguments leave their placeholders visible.
    EXPECT_EQ(static_cast<std::string>(f),
              "CthrowMath::ERR_PRIMEXT_AOI_POINTINDEX: Punktindex %0 des Polygons ungueltig. (min: %1, max: %2)");
}

TEST(Errors, ComposedTextWithInfoLocationAndChain) {
    CthrowMath inner(CthrowMath::ERR_SOLVE_MATRIXSINGULAR, "");
    inner.setExInfo(".\\source\\math_solver_le", 797);
    CthrowSpline outer(inner, CthrowSpline::ERR_INVALID_DATA, "while fitting");
    const std::string s = outer;
    EXPECT_EQ(s,
              "CthrowSpline::ERR_INVALID_DATA: Daten sind fehlerhaft. [while fitting]\n"
              "<- CthrowMath::ERR_SOLVE_MATRIXSINGULAR: \xDC" "bergebene Matrix ist singul\xE4r. "
              "(.\\source\\math_solver_le:797)");
    EXPECT_EQ(std::string(outer.what()), s);
    ASSERT_NE(outer.previous(), nullptr);
    EXPECT_EQ(outer.previous()->line(), 797);

    CthrowMath located(".\\source\\x", 12, "info");
    EXPECT_EQ(located.file(), ".\\source\\x");
    EXPECT_EQ(located.line(), 12);
    CthrowMath both(inner, "f.cpp", 3, "");
    EXPECT_EQ(both.previous()->id(), CthrowMath::ERR_SOLVE_MATRIXSINGULAR);
}

TEST(Errors, CopyAndAssignKeepEverything) {
    CthrowMath a(CthrowMath::ERR_MATRIX_DIMS, "x");
    a << "2" << "3";
    CthrowMath chained(a, CthrowMath::ERR_MATH_FUNCNOTIMPL, "");
    CthrowMath b(chained);
    EXPECT_EQ(static_cast<std::string>(b), static_cast<std::string>(chained));
    CthrowMath c(24, "");
    c = b;
    c = c;
    EXPECT_EQ(static_cast<std::string>(c), static_cast<std::string>(chained));
    EXPECT_EQ(c.previous()->arguments(), (std::vector<std::string>{"2", "3"}));
}

// A clone is tracked and throws as the most derived type, arguments included.
TEST(Errors, CloneAndThrowThisKeepTheMostDerivedType) {
    const auto before = core::memTracker_liveBlocks();
    CthrowSpline s(CthrowSpline::ERR_INVALID_ORDER, "");
    s << "1";
    std::unique_ptr<CthrowBase> p(s.clone()), m(CthrowMath(CthrowMath::ERR_MATH_FUNCNOTIMPL, "").clone()),
        c(Ccorrelationthrow(25, "").clone());
    EXPECT_EQ(core::memTracker_liveBlocks(), before + 3);
    try {
        p->throw_this();
    } catch (CthrowSpline const& e) {
        EXPECT_EQ(e.arguments(), std::vector<std::string>{"1"});
    }
    EXPECT_THROW(m->throw_this(), CthrowMath);
    EXPECT_THROW(c->throw_this(), Ccorrelationthrow);
    p.reset(), m.reset(), c.reset();
    EXPECT_EQ(core::memTracker_liveBlocks(), before);
}

// The error classes live in namespace math like every class of the library;
// the unqualified names are the same types.
static_assert(std::is_same<math::CthrowMath, CthrowMath>::value, "same type");
static_assert(std::is_base_of<CthrowBase, math::CthrowSpline>::value, "a CthrowBase");
static_assert(std::is_base_of<CthrowBase, math::Ccorrelationthrow>::value, "a CthrowBase");

// Windows-1252 to UTF-8: 0x80..0x9F through the code page, the five bytes it
// leaves undefined and 0xA0..0xFF as the code points of the same number.
TEST(Errors, Utf8Conversion) {
    CthrowMath e(CthrowMath::ERR_MATRIX_NOTSQUARE, "");
    EXPECT_EQ(math::messageUtf8(e), "CthrowMath::ERR_MATRIX_NOTSQUARE: Es wude keine Quadratische Matrix \xC3\xBC" "bergeben.");
    EXPECT_EQ(math::toUtf8("\x80\xDF\xE4\x9F\x8A\x9E a"), "\xE2\x82\xAC\xC3\x9F\xC3\xA4\xC5\xB8\xC5\xA0\xC5\xBE a");
    EXPECT_EQ(math::toUtf8("\x81\x8D\x8F\x90\x9D"), "\xC2\x81\xC2\x8D\xC2\x8F\xC2\x90\xC2\x9D");
    EXPECT_EQ(math::toUtf8(""), "");
    for (int c = 0; c < 256; ++c) {
        const std::string u = math::toUtf8(std::string(1, static_cast<char>(c)));
        if (c < 0x80) {
            EXPECT_EQ(u, std::string(1, static_cast<char>(c)));
        } else if (c >= 0xA0) {
            EXPECT_EQ(u, std::string({static_cast<char>(0xC0 | (c >> 6)), static_cast<char>(0x80 | (c & 0x3F))}));
        } else {
            EXPECT_TRUE(u.size() == 2 || u.size() == 3) << c;
        }
    }
}

TEST(Errors, TrackedAllocatorCountsAndRefusesImpossibleSizes) {
    const auto blocks = core::memTracker_liveBlocks();
    const auto bytes = core::memTracker_liveBytes();
    void* p = core_memTracker_malloc(100, true);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(core::memTracker_liveBlocks(), blocks + 1);
    EXPECT_EQ(core::memTracker_liveBytes(), bytes + 100);
    core_memTracker_free(p);
    core_memTracker_free(nullptr);
    EXPECT_EQ(core::memTracker_liveBlocks(), blocks);
    EXPECT_EQ(core::memTracker_liveBytes(), bytes);

    EXPECT_EQ(core::memTracker_bytes(1u << 20, 8), 8u << 20);
    EXPECT_EQ(core::memTracker_bytes(0xFFFFFFFFull, 8), 0xFFFFFFFFu);
    EXPECT_EQ(core::memTracker_bytes(1ull << 40, 1), 0xFFFFFFFFu);
    EXPECT_EQ(core::memTracker_bytes(1u << 30, std::size_t(1) << 40), 0xFFFFFFFFu);  // the product wraps 64 bits
    EXPECT_EQ(core_memTracker_malloc(0xFFFFFFFFu, false), nullptr);
    try {
        core_memTracker_malloc(0xFFFFFFFFu, true);
        FAIL() << "no exception";
    } catch (CthrowBase const& e) {
        EXPECT_EQ(e.id(), CthrowBase::ERR_CORE_NOMEMORY);
        EXPECT_EQ(e.arguments(), std::vector<std::string>{"4294967295"});
    }
    EXPECT_EQ(core::memTracker_liveBlocks(), blocks);
}

// ---------------------------------------------------------------------------
// Copying a chained exception when memory runs out.
// ---------------------------------------------------------------------------

namespace {
// Global allocations fail while armed (the tracked allocator is not affected).
bool g_failNew = false;
}  // namespace

// Not inlined: GCC would otherwise pair the inlined malloc/free with the
// new-expressions of the tests and warn about mismatched allocation functions.
__attribute__((noinline)) void* operator new(std::size_t size) {
    if (g_failNew) throw std::bad_alloc();
    if (void* p = std::malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}
__attribute__((noinline)) void operator delete(void* p) noexcept { std::free(p); }
__attribute__((noinline)) void operator delete(void* p, std::size_t) noexcept { std::free(p); }

// The copy of a chained exception clones the previous one into tracked memory;
// when a later part of the copy (the argument list) cannot be allocated, that
// clone must be returned, not leaked.
TEST(Errors, FailedCopyOfAChainedExceptionLeaksNothing) {
    CthrowMath inner(CthrowMath::ERR_SOLVE_MATRIXSINGULAR, "");
    CthrowMath outer(inner, CthrowMath::ERR_MATH_FUNCNOTIMPL, "");
    outer << "an argument long enough to need the heap, whatever the small-string buffer";
    const auto blocks = core::memTracker_liveBlocks();
    g_failNew = true;
    bool thrown = false;
    try {
        CthrowMath copy(outer);
    } catch (std::bad_alloc const&) {
        thrown = true;
    }
    g_failNew = false;
    EXPECT_TRUE(thrown);
    EXPECT_EQ(core::memTracker_liveBlocks(), blocks);
    // Chained construction itself: the clone is the last thing it takes.
    g_failNew = true;
    try {
        CthrowMath chained(outer, CthrowMath::ERR_MATRIX_DIMS, "");
    } catch (std::bad_alloc const&) {
    }
    g_failNew = false;
    EXPECT_EQ(core::memTracker_liveBlocks(), blocks);
}
