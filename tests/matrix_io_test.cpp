// CioStreamMatrix: exact bytes of the text and binary forms, round trips, and
// damaged input (bad counts, short streams, garbage) that must neither crash
// nor leak nor touch the caller's matrix before the header is known.
#include <math/matrix_io.h>

#include <core/memtracker.h>
#include <core/throw.h>

#include <gtest/gtest.h>

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
    CioStreamMatrix<T> io(os);
    io.write(a);
    return os.str();
}

std::string counts(std::int32_t m, std::int32_t n) {
    std::string s(8, '\0');
    std::memcpy(&s[0], &m, 4);
    std::memcpy(&s[4], &n, 4);
    return s;
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

    // Every line after the header ends with a space before its line break,
    // and holds n values.
    std::mt19937_64 rng(1);
    const std::string s = text(randomBits<T>(7, 5, rng));
    std::istringstream lines(s);
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ(line, "7  5");
    int rows = 0;
    while (std::getline(lines, line)) {
        ++rows;
        ASSERT_FALSE(line.empty());
        EXPECT_EQ(line.back(), ' ');
        std::istringstream words(line);
        std::string w;
        int cnt = 0;
        while (words >> w) ++cnt;
        EXPECT_EQ(cnt, 5);
    }
    EXPECT_EQ(rows, 7);
    EXPECT_EQ(s.back(), '\n');

    // The header goes out as plain decimal whatever the stream's flags.
    std::ostringstream os;
    os << std::hex << std::showbase << std::setfill('*');
    os.width(9);
    CioStreamMatrix<T> io(os);
    io << counting<T>(16, 1);
    EXPECT_EQ(os.str().substr(0, 6), "16  1\n");
}

TYPED_TEST(MatrixIo, TextRoundTripIsBitExact) {
    using T = TypeParam;
    std::mt19937_64 rng(2);
    std::stringstream ss;
    CioStreamMatrix<T> w(static_cast<std::ostream&>(ss));
    std::vector<Cmatrix<T>> written;
    for (unsigned m : {1u, 3u, 17u})
        for (unsigned n : {1u, 4u, 31u}) written.push_back(randomBits<T>(m, n, rng));
    written.push_back(Cmatrix<T>());
    written.push_back(Cmatrix<T>(0, 4));
    for (auto const& a : written) w << a;

    CioStreamMatrix<T> r(static_cast<std::istream&>(ss));
    for (auto const& a : written) {
        Cmatrix<T> b(2, 2, T(9));
        r >> b;
        ASSERT_TRUE(r.good());
        ASSERT_TRUE(sameBits(a, b)) << a.m() << "x" << a.n();
    }
    Cmatrix<T> after(1, 1, T(4));
    r >> after;  // end of data: nothing read, nothing changed
    EXPECT_FALSE(r.good());
    EXPECT_EQ(after.m(), 1u);
    EXPECT_EQ(after(0, 0), T(4));

    // NaN has no payload in text, but stays NaN.
    Cmatrix<T> nan(1, 2, std::numeric_limits<T>::quiet_NaN());
    std::istringstream is(text(nan));
    CioStreamMatrix<T> rn(is);
    Cmatrix<T> back;
    rn >> back;
    EXPECT_TRUE(rn.good());
    EXPECT_TRUE(std::isnan(back(0, 0)) && std::isnan(back(0, 1)));
}

TYPED_TEST(MatrixIo, BinaryFormBytesAndRoundTrip) {
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

    std::istringstream is(s);
    CioStreamMatrix<T> r(is);
    Cmatrix<T> b;
    r.read(b);
    EXPECT_TRUE(r.good());
    EXPECT_TRUE(sameBits(a, b));

    // The header flag plays no part in the binary form.
    std::ostringstream os;
    CioStreamMatrix<T> w(os);
    w.writeHeader(false);
    w.write(a);
    EXPECT_EQ(os.str(), s);

    // Several matrices in sequence, including empty ones.
    std::mt19937_64 rng(3);
    std::stringstream ss;
    CioStreamMatrix<T> ws(static_cast<std::ostream&>(ss));
    std::vector<Cmatrix<T>> written = {randomBits<T>(5, 3, rng), Cmatrix<T>(), randomBits<T>(1, 40, rng),
                                       Cmatrix<T>(3, 0), randomBits<T>(9, 9, rng)};
    for (auto const& x : written) ws.write(x);
    EXPECT_EQ(binary(Cmatrix<T>(3, 0)), counts(3, 0));
    CioStreamMatrix<T> rs(static_cast<std::istream&>(ss));
    for (auto const& x : written) {
        Cmatrix<T> y(1, 1, T(7));
        rs.read(y);
        ASSERT_TRUE(rs.good());
        ASSERT_TRUE(sameBits(x, y));
    }
}

TEST(MatrixIoFormats, FloatAndDoubleBlocksDiffer) {
    Cmatrix<float> f(2, 2, 1.0f);
    Cmatrix<double> d(2, 2, 1.0);
    EXPECT_EQ(binary(f).size(), 8u + 16u);
    EXPECT_EQ(binary(d).size(), 8u + 32u);
    // The header does not record the element type: reading a float block as
    // double takes twice the bytes and runs short.
    std::istringstream is(binary(f));
    CioStreamMatrix<double> r(is);
    Cmatrix<double> x;
    r.read(x);
    EXPECT_FALSE(r.good());
}

TYPED_TEST(MatrixIo, HeaderlessTextIsNotReadable) {
    using T = TypeParam;
    // Without the header the first two values are taken as the counts: the
    // 2 x 3 matrix 1..6 reads back as the 1 x 2 matrix (3 4).
    {
        std::istringstream is(text(counting<T>(2, 3), false));
        CioStreamMatrix<T> r(is);
        Cmatrix<T> b;
        r >> b;
        EXPECT_TRUE(r.good());
        ASSERT_EQ(b.m(), 1u);
        ASSERT_EQ(b.n(), 2u);
        EXPECT_EQ(b(0, 0), T(3));
        EXPECT_EQ(b(0, 1), T(4));
    }
    // With values that are not integers the count read fails: stream in fail
    // state, matrix untouched.
    {
        Cmatrix<T> a(2, 2, T(0.5));
        std::istringstream is(text(a, false));
        CioStreamMatrix<T> r(is);
        Cmatrix<T> b(1, 1, T(8));
        r >> b;
        EXPECT_FALSE(r.good());
        EXPECT_EQ(b.m(), 1u);
        EXPECT_EQ(b(0, 0), T(8));
    }
}

TYPED_TEST(MatrixIo, WrapperBehaviourAndScalarMembers) {
    using T = TypeParam;
    std::ostringstream os;
    CioStreamMatrix<T> w(os);
    EXPECT_TRUE(w.writeHeader());
    w.writeHeader(false);
    CioStreamMatrix<T> copy(w);
    EXPECT_FALSE(copy.writeHeader());
    CioStreamMatrix<T> fromBase(static_cast<Cstream const&>(w));
    EXPECT_TRUE(fromBase.writeHeader());  // a fresh wrapper over the same stream
    EXPECT_EQ(fromBase.ostream(), &os);
    std::istringstream dummy("");
    CioStreamMatrix<T> assigned(dummy);
    assigned = copy;
    EXPECT_FALSE(assigned.writeHeader());
    EXPECT_EQ(assigned.ostream(), &os);

    // The scalar operations of the wrapper stay available beside the matrix ones.
    Cmatrix<T> a = counting<T>(1, 2);
    w << 7 << " ";
    w << a;
    w.write(static_cast<unsigned>(0x01020304u));
    fromBase << a;
    std::string expected = "7 1 2 \n";
    const unsigned u = 0x01020304u;
    expected.append(reinterpret_cast<const char*>(&u), 4);
    expected += "1  2\n1 2 \n";
    EXPECT_EQ(os.str(), expected);

    std::istringstream is("5 2 1 3 4 \n");
    CioStreamMatrix<T> r(is);
    int five = 0;
    Cmatrix<T> b;
    r >> five;  // a scalar operator returns the Cstream base, so no chaining into a matrix
    r >> b;
    EXPECT_EQ(five, 5);
    ASSERT_EQ(b.m(), 2u);
    EXPECT_EQ(b(1, 0), T(4));

    // Reading from a wrapper of an output stream leaves the matrix alone.
    Cmatrix<T> c(1, 1, T(6));
    w >> c;
    w.read(c);
    EXPECT_EQ(c.m(), 1u);
    EXPECT_EQ(c(0, 0), T(6));
}

// ---------------------------------------------------------------------------
// Damaged input.
// ---------------------------------------------------------------------------

TYPED_TEST(MatrixIo, DamagedTextHeader) {
    using T = TypeParam;
    const auto blocks = core::memTracker_liveBlocks();
    auto readText = [](std::string const& s, Cmatrix<T>& M) {
        std::istringstream is(s);
        CioStreamMatrix<T> r(is);
        r >> M;
        return r.good();
    };
    Cmatrix<T> M = counting<T>(2, 2);
    auto unchanged = [&] { return M.m() == 2 && M.n() == 2 && M(1, 1) == T(4); };

    // Short or garbage headers: the stream fails, M stays as it was.
    for (std::string s : {"", "  \n", "3", "3 ", "x 3", "3 y", "2.5 3", "99999999999 2", "2 -", "0x2 2"}) {
        EXPECT_FALSE(readText(s, M)) << '"' << s << '"';
        EXPECT_TRUE(unchanged()) << s;
    }
    // Counts that cannot be allocated: a negative count is a huge unsigned
    // one, the byte count saturates and the tracked allocator refuses it.
    for (std::string s : {"-1 3\n1 2 3", "3 -1", "-2147483648 -2147483648", "2147483647 2147483647",
                          "65536 65536", "60000 60000 1 2 3"}) {
        try {
            readText(s, M);
            ADD_FAILURE() << "no exception for " << s;
        } catch (CthrowBase const& e) {
            EXPECT_EQ(e.id(), CthrowBase::ERR_CORE_NOMEMORY) << s;
        }
        EXPECT_TRUE(unchanged()) << s;
    }
    EXPECT_EQ(core::memTracker_liveBlocks(), blocks + 1);

    // A zero count with a huge other count holds no element: nothing to read.
    EXPECT_TRUE(readText("0 -1", M));
    EXPECT_EQ(M.size(), 0u);
    EXPECT_EQ(M.m(), 0u);
    EXPECT_EQ(M.n(), 0xFFFFFFFFu);
    EXPECT_EQ(M.transp().size(), 0u);
    EXPECT_EQ(text(M), "0  4294967295\n");
    // Written counts of 2^31 and more read back as written (the written form
    // is unsigned); beyond 32 bits the header is unreadable.
    for (std::string s : {"0  4294967295\n", "3000000000  0\n", "2147483648  0\n"}) {
        Cmatrix<T> E(1, 1);
        EXPECT_TRUE(readText(s, E)) << s;
        EXPECT_EQ(text(E), s);
    }
    Cmatrix<T> F(1, 1, T(9));
    EXPECT_FALSE(readText("4294967296 0", F));
    EXPECT_FALSE(readText("0 -2147483649", F));
    EXPECT_EQ(F(0, 0), T(9));
}

TYPED_TEST(MatrixIo, DamagedTextElements) {
    using T = TypeParam;
    // Garbage in the element block: the header was good, so M has the new
    // size; the elements up to the bad token are read, the rest stay zero.
    {
        std::istringstream is("2  3\n1 2 x 4 5 6 \n");
        CioStreamMatrix<T> r(is);
        Cmatrix<T> M(1, 1, T(9));
        r >> M;
        EXPECT_FALSE(r.good());
        ASSERT_EQ(M.m(), 2u);
        ASSERT_EQ(M.n(), 3u);
        EXPECT_EQ(M(0, 0), T(1));
        EXPECT_EQ(M(0, 1), T(2));
        for (unsigned k = 2; k < 6; ++k) EXPECT_EQ(M.getBase()[k], T(0));
    }
    // A truncated block leaves the stream in fail state.
    {
        std::string s = text(counting<T>(4, 4));
        s.resize(s.size() / 2);
        std::istringstream is(s);
        CioStreamMatrix<T> r(is);
        Cmatrix<T> M;
        r >> M;
        EXPECT_FALSE(r.good());
        EXPECT_EQ(M.m(), 4u);
    }
    // A large but allocatable header on a short stream: the zeroed block is
    // cheap (calloc), and the reader stops at the first failed element instead
    // of trying all m*n of them.  Under the address sanitizer a smaller block
    // keeps shadow memory small.
#ifdef MATRIX_IO_ASAN
    const std::string big = "4000 4000 1 2 3";
    const unsigned bigM = 4000;
#else
    const std::string big = "20000 20000 1 2 3";
    const unsigned bigM = 20000;
#endif
    {
        std::istringstream is(big);
        CioStreamMatrix<T> r(is);
        Cmatrix<T> M;
        try {
            r >> M;
            EXPECT_FALSE(r.good());
            EXPECT_EQ(M.m(), bigM);
            EXPECT_EQ(M(0, 2), T(3));
            EXPECT_EQ(M(0, 3), T(0));
        } catch (CthrowBase const& e) {
            // A machine without that much address space refuses the block.
            EXPECT_EQ(e.id(), CthrowBase::ERR_CORE_NOMEMORY);
        }
    }
}

TYPED_TEST(MatrixIo, DamagedBinary) {
    using T = TypeParam;
    const auto blocks = core::memTracker_liveBlocks();
    auto readBin = [](std::string const& s, Cmatrix<T>& M) {
        std::istringstream is(s);
        CioStreamMatrix<T> r(is);
        r.read(M);
        return r.good();
    };
    Cmatrix<T> M = counting<T>(2, 2);
    auto unchanged = [&] { return M.m() == 2 && M.n() == 2 && M(1, 1) == T(4); };

    // Truncated header.
    for (std::string s : {std::string(), std::string("\x02\x00", 2), counts(2, 2).substr(0, 6)}) {
        EXPECT_FALSE(readBin(s, M));
        EXPECT_TRUE(unchanged());
    }
    // Counts that cannot be allocated.
    for (auto mn : {std::pair<int, int>{-1, 2}, {2, -1}, {-1, -1}, {60000, 60000}, {65536, 65536},
                    {std::numeric_limits<int>::min(), 1}}) {
        EXPECT_THROW(readBin(counts(mn.first, mn.second) + std::string(64, '\1'), M), CthrowBase);
        EXPECT_TRUE(unchanged());
    }
    EXPECT_EQ(core::memTracker_liveBlocks(), blocks + 1);

    // Truncated element block: fail state, the bytes that were there arrived.
    {
        const Cmatrix<T> a = counting<T>(3, 3);
        std::string s = binary(a);
        s.resize(s.size() - 1);
        Cmatrix<T> b;
        EXPECT_FALSE(readBin(s, b));
        ASSERT_EQ(b.m(), 3u);
        EXPECT_EQ(b(2, 1), T(8));
    }
    // A large allocatable header with nothing behind it ends quickly.
    {
#ifdef MATRIX_IO_ASAN
        const int big = 4000;
#else
        const int big = 20000;
#endif
        Cmatrix<T> b;
        try {
            EXPECT_FALSE(readBin(counts(big, big) + std::string(16, '\0'), b));
        } catch (CthrowBase const& e) {
            EXPECT_EQ(e.id(), CthrowBase::ERR_CORE_NOMEMORY);
        }
    }
}
