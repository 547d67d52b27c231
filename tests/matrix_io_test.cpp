// CioStreamMatrix: exact bytes of the text and binary forms, round trips, and
// damaged input (bad counts, short streams, garbage) that must neither crash
// nor leak nor touch the caller's matrix before the header is known.
#include <math/matrix_io.h>

#include <core/memtracker.h>
#include <core/throw.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <iomanip>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <vector>

using math::Cmatrix;
using math::CioStreamMatrix;

#if defined(__SANITIZE_ADDRESS__)
#define MATRIX_IO_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define MATRIX_IO_ASAN 1
#endif
#endif

template <class T>
class MatrixIo : public ::testing::Test {};
using Scalars = ::testing::Types<float, double>;
TYPED_TEST_SUITE(MatrixIo, Scalars);

namespace {

template <class T>
Cmatrix<T> counting(unsigned m, unsigned n) {
    Cmatrix<T> a(m, n);
    for (unsigned k = 0; k < a.size(); ++k) a.getBase()[k] = T(k + 1);
    return a;
}

// Random bit patterns (every exponent, subnormals, infinities), NaN excluded,
// plus the awkward values at fixed places.
template <class T>
Cmatrix<T> randomBits(unsigned m, unsigned n, std::mt19937_64& rng) {
    using L = std::numeric_limits<T>;
    Cmatrix<T> a(m, n);
    for (T& x : a) {
        do {
            const std::uint64_t b = rng();
            std::memcpy(&x, &b, sizeof x);
        } while (std::isnan(x));
    }
    const T special[] = {T(0), -T(0), L::infinity(), -L::infinity(), L::denorm_min(), -L::max(), L::min(), T(0.1)};
    for (unsigned k = 0; k < a.size() && k < 8; ++k) a.getBase()[k] = special[k];
    return a;
}

template <class T>
bool sameBits(Cmatrix<T> const& a, Cmatrix<T> const& b) {
    return a.m() == b.m() && a.n() == b.n() &&
           (a.size() == 0 || std::memcmp(a.getBase(), b.getBase(), a.byteSize()) == 0);
}

template <class T>
std::string text(Cmatrix<T> const& a, bool header = true) {
    std::ostringstream os;
    CioStreamMatrix<T> io(os);
    io.writeHeader(header);
    io << a;
    return os.str();
}

template <class T>
std::string binary(Cmatrix<T> const& a) {
    std::ostringstream os;
    CioStreamMatrix<T>(os).write(a);
    return os.str();
}

std::string counts(std::int32_t m, std::int32_t n) {
    std::string s(8, '\0');
    std::memcpy(&s[0], &m, 4);
    std::memcpy(&s[4], &n, 4);
    return s;
}

// Reads `s` into M in the text or binary form; returns the stream state.
template <class T>
bool readInto(std::string const& s, Cmatrix<T>& M, bool bin) {
    std::istringstream is(s);
    CioStreamMatrix<T> r(is);
    bin ? r.read(M) : r >> M;
    return r.good();
}

}  // namespace

TYPED_TEST(MatrixIo, TextFormBytes) {
    using T = TypeParam;
    EXPECT_EQ(text(counting<T>(2, 3)), "2  3\n1 2 3 \n4 5 6 \n");
    EXPECT_EQ(text(counting<T>(2, 3), false), "1 2 3 \n4 5 6 \n");
    Cmatrix<T> f(1, 2);
    f(0, 0) = T(0.1);
    f(0, 1) = T(-2.5e-8);
    EXPECT_EQ(text(f), "1  2\n0.1 -2.5e-08 \n");  // shortest form that reads back exactly
    // Empty matrices: only the header, or nothing at all.
    EXPECT_EQ(text(Cmatrix<T>()), "0  0\n");
    EXPECT_EQ(text(Cmatrix<T>(), false), "");
    EXPECT_EQ(text(Cmatrix<T>(0, 3)), "0  3\n");
    EXPECT_EQ(text(Cmatrix<T>(3, 0)), "3  0\n");
    EXPECT_EQ(text(Cmatrix<T>(3, 0), false), "");

    // After the header: one space after each value, a line break after each row.
    std::mt19937_64 rng(1);
    const std::string s = text(randomBits<T>(7, 5, rng));
    EXPECT_EQ(s.substr(0, 5), "7  5\n");
    EXPECT_EQ(std::count(s.begin(), s.end(), ' '), 2 + 35);
    EXPECT_EQ(std::count(s.begin(), s.end(), '\n'), 8);
    for (std::size_t k = s.find('\n', 5); k != std::string::npos; k = s.find('\n', k + 1)) EXPECT_EQ(s[k - 1], ' ');

    // The header goes out as plain decimal whatever the stream's flags.
    std::ostringstream os;
    os << std::hex << std::showbase << std::setfill('*');
    os.width(9);
    CioStreamMatrix<T>(os) << counting<T>(16, 1);
    EXPECT_EQ(os.str().substr(0, 6), "16  1\n");
}

TYPED_TEST(MatrixIo, BinaryFormBytes) {
    using T = TypeParam;
    Cmatrix<T> a(2, 2);
    a(0, 0) = T(1.5);
    a(0, 1) = T(-0.0);
    a(1, 0) = std::numeric_limits<T>::denorm_min();
    a(1, 1) = T(1) / T(3);
    const std::string s = binary(a);
    ASSERT_EQ(s.size(), 8 + 4 * sizeof(T));  // two 4-byte counts, then the raw block
    EXPECT_EQ(s.substr(0, 8), counts(2, 2));
    EXPECT_EQ(std::memcmp(s.data() + 8, a.getBase(), a.byteSize()), 0);
    EXPECT_EQ(binary(Cmatrix<T>(3, 0)), counts(3, 0));
    // The header flag plays no part in the binary form.
    std::ostringstream os;
    CioStreamMatrix<T> w(os);
    w.writeHeader(false);
    w.write(a);
    EXPECT_EQ(os.str(), s);
}

// Several matrices in sequence, empty ones included, read back bit for bit in
// both forms; at the end of the data nothing is read and nothing changes.
// NaN has no payload in text, but stays NaN.
TYPED_TEST(MatrixIo, RoundTripsAreBitExact) {
    using T = TypeParam;
    std::mt19937_64 rng(2);
    std::vector<Cmatrix<T>> written;
    for (unsigned m : {1u, 3u, 17u})
        for (unsigned n : {1u, 4u, 31u}) written.push_back(randomBits<T>(m, n, rng));
    written.insert(written.begin() + 3, {Cmatrix<T>(), Cmatrix<T>(0, 4), Cmatrix<T>(3, 0)});
    for (bool bin : {false, true}) {
        std::stringstream ss;
        CioStreamMatrix<T> w(static_cast<std::ostream&>(ss)), r(static_cast<std::istream&>(ss));
        for (auto const& a : written) bin ? w.write(a) : w << a;
        for (auto const& a : written) {
            Cmatrix<T> b(2, 2, T(9));
            bin ? r.read(b) : r >> b;
            ASSERT_TRUE(r.good() && sameBits(a, b)) << bin << " " << a.m() << "x" << a.n();
        }
        Cmatrix<T> after(1, 1, T(4));
        bin ? r.read(after) : r >> after;
        EXPECT_FALSE(r.good());
        EXPECT_TRUE(after.m() == 1u && after(0, 0) == T(4));
    }
    Cmatrix<T> back;
    EXPECT_TRUE(readInto(text(Cmatrix<T>(1, 2, std::numeric_limits<T>::quiet_NaN())), back, false));
    EXPECT_TRUE(std::isnan(back(0, 0)) && std::isnan(back(0, 1)));
}

TEST(MatrixIoFormats, FloatAndDoubleBlocksDiffer) {
    EXPECT_EQ(binary(Cmatrix<float>(2, 2, 1.0f)).size(), 8u + 16u);
    EXPECT_EQ(binary(Cmatrix<double>(2, 2, 1.0)).size(), 8u + 32u);
    // The header does not record the element type: reading a float block as
    // double takes twice the bytes and runs short.
    Cmatrix<double> x;
    EXPECT_FALSE(readInto(binary(Cmatrix<float>(2, 2, 1.0f)), x, true));
}

TYPED_TEST(MatrixIo, HeaderlessTextIsNotReadable) {
    using T = TypeParam;
    // Without the header the first two values are taken as the counts: the
    // 2 x 3 matrix 1..6 reads back as the 1 x 2 matrix (3 4).
    Cmatrix<T> b;
    EXPECT_TRUE(readInto(text(counting<T>(2, 3), false), b, false));
    ASSERT_TRUE(b.m() == 1u && b.n() == 2u);
    EXPECT_TRUE(b(0, 0) == T(3) && b(0, 1) == T(4));
    // With values that are not integers the count read fails: stream in fail
    // state, matrix untouched.
    Cmatrix<T> c(1, 1, T(8));
    EXPECT_FALSE(readInto(text(Cmatrix<T>(2, 2, T(0.5)), false), c, false));
    EXPECT_TRUE(c.m() == 1u && c(0, 0) == T(8));
}

// Copies keep the header flag, a wrapper made from the base stream starts
// with it set; the scalar operations stay available beside the matrix ones; a
// wrapper of an input stream writes nothing, one of an output stream reads nothing.
TYPED_TEST(MatrixIo, WrapperBehaviourAndScalarMembers) {
    using T = TypeParam;
    std::ostringstream os;
    std::istringstream dummy(""), is("5 2 1 3 4 \n");
    CioStreamMatrix<T> w(os), r(is), assigned(dummy);
    EXPECT_TRUE(w.writeHeader());
    w.writeHeader(false);
    CioStreamMatrix<T> copy(w), fromBase(static_cast<Cstream const&>(w));
    assigned = copy;
    EXPECT_TRUE(!copy.writeHeader() && fromBase.writeHeader() && !assigned.writeHeader());
    EXPECT_TRUE(fromBase.ostream() == &os && assigned.ostream() == &os);

    const Cmatrix<T> a = counting<T>(1, 2);
    const unsigned u = 0x01020304u;
    w << 7 << " ";
    w << a;
    w.write(u);
    fromBase << a;
    EXPECT_EQ(os.str(), "7 1 2 \n" + std::string(reinterpret_cast<const char*>(&u), 4) + "1  2\n1 2 \n");
    int five = 0;
    Cmatrix<T> b, c(1, 1, T(6));
    r >> five;  // a scalar operator returns the Cstream base, so no chaining into a matrix
    r >> b;
    ASSERT_TRUE(five == 5 && b.m() == 2u);
    EXPECT_EQ(b(1, 0), T(4));
    r << a;
    r.write(a);
    w >> c;
    w.read(c);
    EXPECT_TRUE(c.m() == 1u && c(0, 0) == T(6));
}

// ---------------------------------------------------------------------------
// Damaged input: a table of inputs in both forms and what each must give.
// ---------------------------------------------------------------------------

enum class Outcome { failUnchanged, noMemory, ok };

TYPED_TEST(MatrixIo, DamagedHeaders) {
    using T = TypeParam;
    using O = Outcome;
    struct Case { bool bin; std::string in; O out; } cases[] = {
        // Short or garbage headers: the stream fails, M stays as it was.
        {false, "", O::failUnchanged}, {false, "  \n", O::failUnchanged}, {false, "3", O::failUnchanged},
        {false, "3 ", O::failUnchanged}, {false, "x 3", O::failUnchanged}, {false, "3 y", O::failUnchanged},
        {false, "2.5 3", O::failUnchanged}, {false, "99999999999 2", O::failUnchanged},
        {false, "2 -", O::failUnchanged}, {false, "0x2 2", O::failUnchanged},
        // Beyond 32 bits the header is unreadable.
        {false, "4294967296 0", O::failUnchanged}, {false, "0 -2147483649", O::failUnchanged},
        {true, "", O::failUnchanged}, {true, std::string("\x02\x00", 2), O::failUnchanged},
        {true, counts(2, 2).substr(0, 6), O::failUnchanged},
        // Counts that cannot be allocated: a negative count is a huge unsigned
        // one, the byte count saturates and the tracked allocator refuses it.
        {false, "-1 3\n1 2 3", O::noMemory}, {false, "3 -1", O::noMemory},
        {false, "-2147483648 -2147483648", O::noMemory}, {false, "2147483647 2147483647", O::noMemory},
        {false, "65536 65536", O::noMemory}, {false, "60000 60000 1 2 3", O::noMemory},
        {true, counts(-1, 2), O::noMemory}, {true, counts(2, -1), O::noMemory}, {true, counts(-1, -1), O::noMemory},
        {true, counts(60000, 60000), O::noMemory}, {true, counts(65536, 65536), O::noMemory},
        {true, counts(std::numeric_limits<int>::min(), 1), O::noMemory},
        // A zero count with a huge other count holds no element; written
        // counts of 2^31 and more read back as written (the written form is
        // unsigned).
        {false, "0  4294967295\n", O::ok}, {false, "3000000000  0\n", O::ok}, {false, "2147483648  0\n", O::ok},
        {false, "0  -1\n", O::ok}, {true, counts(0, -1), O::ok}};
    const auto blocks = core::memTracker_liveBlocks();
    for (auto const& c : cases) {
        SCOPED_TRACE((c.bin ? "binary " : "text ") + c.in);
        Cmatrix<T> M = counting<T>(2, 2);
        bool good = false;
        int id = -1;
        try {
            good = readInto(c.bin && c.out != O::failUnchanged ? c.in + std::string(64, '\1') : c.in, M, c.bin);
        } catch (CthrowBase const& e) {
            id = e.id();
        }
        if (c.out == O::ok) {
            EXPECT_TRUE(good && id == -1 && M.size() == 0u);
            if (!c.bin) { EXPECT_EQ(text(M), c.in == "0  -1\n" ? "0  4294967295\n" : c.in); }
            if (c.bin) { EXPECT_TRUE(M.m() == 0u && M.n() == 0xFFFFFFFFu && M.transp().size() == 0u); }
        } else {
            EXPECT_EQ(id, c.out == O::noMemory ? int(CthrowBase::ERR_CORE_NOMEMORY) : -1);
            EXPECT_FALSE(good);
            EXPECT_TRUE(M.m() == 2 && M.n() == 2 && M(1, 1) == T(4));
        }
    }
    EXPECT_EQ(core::memTracker_liveBlocks(), blocks);
}

// A good header with a damaged block: M has the new size; the elements up to
// the damage are read, the rest stay zero.  A large but allocatable header on
// a short stream ends at the first failed read (the zeroed block is cheap);
// under the address sanitizer a smaller block keeps shadow memory small.
TYPED_TEST(MatrixIo, DamagedBlocks) {
    using T = TypeParam;
#ifdef MATRIX_IO_ASAN
    const unsigned big = 4000;
#else
    const unsigned big = 20000;
#endif
    std::string bin = binary(counting<T>(3, 3));
    bin.pop_back();
    const std::string bigText = std::to_string(big) + " " + std::to_string(big) + " 1 2 3";
    struct Case { bool bin; std::string in; unsigned m, n, read; } cases[] = {
        {false, "2  3\n1 2 x 4 5 6 \n", 2, 3, 2}, {false, text(counting<T>(4, 4)).substr(0, 20), 4, 4, 7},
        {true, bin, 3, 3, 8}, {false, bigText, big, big, 3}, {true, counts(int(big), int(big)) + std::string(16, '\0'), big, big, 0}};
    for (auto const& c : cases) {
        SCOPED_TRACE(c.in.substr(0, 12));
        Cmatrix<T> M(1, 1, T(9));
        try {
            EXPECT_FALSE(readInto(c.in, M, c.bin));
        } catch (CthrowBase const& e) {
            // A machine without that much address space refuses the large block.
            EXPECT_TRUE(e.id() == CthrowBase::ERR_CORE_NOMEMORY && c.m == big);
            continue;
        }
        ASSERT_TRUE(M.m() == c.m && M.n() == c.n);
        for (unsigned k = 0; k < (c.bin ? c.read : std::min(c.read + 2, c.m * c.n)); ++k)
            EXPECT_EQ(M.getBase()[k], k < c.read ? T(k + 1) : T(0)) << k;
    }
}
