// Cstream: formatted and binary forms of every scalar type, and its failure
// behaviour on malformed or short input.
#include <core/stream.h>

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace {

template <class T>
std::string formatted(T v) {
    std::ostringstream os;
    Cstream s(os);
    s << v;
    return os.str();
}

// Reads one value of type T from `text`; `ok` receives the stream state.
template <class T>
T parsed(std::string const& text, T init, bool& ok) {
    std::istringstream is(text);
    Cstream s(is);
    T v = init;
    s >> v;
    ok = s.good();
    return v;
}

template <class T>
bool sameBits(T a, T b) {
    return std::memcmp(&a, &b, sizeof(T)) == 0;
}

}  // namespace

// ---------------------------------------------------------------------------
// Integer types: formatted and binary round trips at the limits and between.
// ---------------------------------------------------------------------------
template <class T>
class StreamInteger : public ::testing::Test {};
using IntegerTypes = ::testing::Types<signed char, unsigned char, short, unsigned short, int, unsigned int, long,
                                      unsigned long, long long, unsigned long long>;
TYPED_TEST_SUITE(StreamInteger, IntegerTypes);

TYPED_TEST(StreamInteger, FormattedAndBinaryRoundTrip) {
    using T = TypeParam;
    using L = std::numeric_limits<T>;
    std::vector<T> values = {L::min(), L::max(), T(0), T(1), T(L::max() / 3), T(L::min() / 7)};
    std::mt19937_64 rng(11);
    for (int k = 0; k < 200; ++k) values.push_back(static_cast<T>(rng()));

    std::ostringstream text, bin;
    Cstream ts(text), bs(bin);
    for (T v : values) {
        ts << v << " ";
        bs.write(v);
    }
    // Decimal text, independent of the stream's own base and width flags.
    EXPECT_EQ(formatted(T(L::max())), std::to_string(+L::max()));
    EXPECT_EQ(formatted(T(L::min())), std::to_string(+L::min()));
    ASSERT_EQ(bin.str().size(), values.size() * sizeof(T));

    std::istringstream tin(text.str()), bin_in(bin.str());
    Cstream tr(tin), br(bin_in);
    for (T v : values) {
        T a = T(42), b = T(42);
        tr >> a;
        br.read(b);
        ASSERT_TRUE(tr.good());
        ASSERT_TRUE(br.good());
        EXPECT_EQ(a, v);
        EXPECT_EQ(b, v);
    }
    // Past the end both forms fail and leave the target unchanged.
    T a = T(5), b = T(5);
    tr >> a;
    br.read(b);
    EXPECT_FALSE(tr.good());
    EXPECT_FALSE(br.good());
    EXPECT_EQ(a, T(5));
    EXPECT_EQ(b, T(5));
}

TYPED_TEST(StreamInteger, MalformedTokensFailAndLeaveTheTargetUnchanged) {
    using T = TypeParam;
    using L = std::numeric_limits<T>;
    // One past the range of T (as text), a fraction, trailing garbage, words,
    // doubled or lonely signs, hex.
    std::string above = std::to_string(static_cast<unsigned long long>(L::max()));
    above.back() = static_cast<char>(above.back() + 1);  // max ends in 5 or 7: no carry
    const std::vector<std::string> bad = {"abc", "12x", "1.5", "1e3", "--1", "+-1", "++1", "+", "-", "0x10",
                                          above, "99999999999999999999999"};
    for (std::string const& t : bad) {
        bool ok = true;
        EXPECT_EQ(parsed<T>(t, T(7), ok), T(7)) << t;
        EXPECT_FALSE(ok) << t;
    }
    if (!L::is_signed) {
        bool ok = true;
        EXPECT_EQ(parsed<T>("-1", T(7), ok), T(7));
        EXPECT_FALSE(ok);
    }
    bool ok = false;
    EXPECT_EQ(parsed<T>("  \n\t+12 ", T(7), ok), T(12));
    EXPECT_TRUE(ok);
    EXPECT_EQ(parsed<T>("", T(7), ok), T(7));
    EXPECT_FALSE(ok);
    EXPECT_EQ(parsed<T>("   ", T(7), ok), T(7));
    EXPECT_FALSE(ok);
}

// ---------------------------------------------------------------------------
// Floating types: the text form reads back bit for bit.
// ---------------------------------------------------------------------------
template <class T>
class StreamFloat : public ::testing::Test {};
using FloatTypes = ::testing::Types<float, double>;
TYPED_TEST_SUITE(StreamFloat, FloatTypes);

TYPED_TEST(StreamFloat, TextRoundTripIsBitExact) {
    using T = TypeParam;
    using L = std::numeric_limits<T>;
    using Bits = std::conditional_t<sizeof(T) == 4, std::uint32_t, std::uint64_t>;
    std::vector<T> values = {T(0),         -T(0),        L::infinity(), -L::infinity(), L::min(),
                             -L::min(),    L::denorm_min(), -L::denorm_min(), L::max(),    -L::max(),
                             L::epsilon(), T(0.1),       T(1) / T(3),  T(1e-30),      std::nextafter(L::min(), T(0))};
    std::mt19937_64 rng(17);
    for (int k = 0; k < 20000; ++k) {
        // Uniform bit patterns cover every exponent, subnormals included.
        Bits b = static_cast<Bits>(rng());
        T v;
        std::memcpy(&v, &b, sizeof v);
        if (std::isnan(v)) continue;
        values.push_back(v);
    }
    for (int k = 0; k < 2000; ++k) {
        Bits b = static_cast<Bits>(rng()) & ((Bits(1) << (L::digits - 1)) - 1);  // subnormal mantissas
        T v;
        std::memcpy(&v, &b, sizeof v);
        values.push_back(v);
    }
    std::ostringstream os;
    Cstream w(os);
    for (T v : values) w << v << "\n";
    std::istringstream is(os.str());
    Cstream r(is);
    for (T v : values) {
        T x = T(42);
        r >> x;
        ASSERT_TRUE(r.good());
        ASSERT_TRUE(sameBits(x, v)) << formatted(v);
    }

    EXPECT_EQ(formatted(L::infinity()), "inf");
    EXPECT_EQ(formatted(-L::infinity()), "-inf");
    EXPECT_EQ(formatted(-T(0)), "-0");
    EXPECT_EQ(formatted(T(0.5)), "0.5");
    EXPECT_EQ(formatted(T(0.1)), "0.1");  // shortest form, not 0.100000001
    bool ok = false;
    EXPECT_TRUE(std::isnan(parsed<T>(formatted(L::quiet_NaN()), T(0), ok)));
    EXPECT_TRUE(ok);
}

TYPED_TEST(StreamFloat, OutOfRangeAndMalformedText) {
    using T = TypeParam;
    using L = std::numeric_limits<T>;
    bool ok = false;
    // Magnitudes beyond the type round like strtod: to infinity or to zero,
    // keeping the sign.
    EXPECT_EQ(parsed<T>("1e5000", T(7), ok), L::infinity());
    EXPECT_TRUE(ok);
    T z = parsed<T>("-1e-5000", T(7), ok);
    EXPECT_TRUE(ok);
    EXPECT_EQ(z, T(0));
    EXPECT_TRUE(std::signbit(z));
    EXPECT_EQ(parsed<T>("+2.5", T(7), ok), T(2.5));
    EXPECT_TRUE(ok);
    EXPECT_EQ(parsed<T>("1E2", T(7), ok), T(100));
    EXPECT_TRUE(ok);
    for (std::string t : {"x", "1.5.5", "1,5", "0x1p3", "1e", "--1", "+-1", "+", "e5", "1.0f"}) {
        EXPECT_EQ(parsed<T>(t, T(7), ok), T(7)) << t;
        EXPECT_FALSE(ok) << t;
    }
    // A token longer than the reader's limit fails instead of growing without bound.
    EXPECT_EQ(parsed<T>(std::string(5000, '1'), T(7), ok), T(7));
    EXPECT_FALSE(ok);
}

TYPED_TEST(StreamFloat, BinaryIsTheMachineRepresentation) {
    using T = TypeParam;
    std::ostringstream os;
    Cstream w(os);
    const T v = T(-1.25);
    w.write(v);
    ASSERT_EQ(os.str().size(), sizeof(T));
    EXPECT_EQ(std::memcmp(os.str().data(), &v, sizeof(T)), 0);
    std::istringstream is(os.str());
    Cstream r(is);
    T x = 0;
    r.read(x);
    EXPECT_TRUE(r.good());
    EXPECT_EQ(x, v);
    // A short block fails and leaves the target unchanged.
    std::istringstream shortIs(os.str().substr(0, sizeof(T) - 1));
    Cstream rs(shortIs);
    T y = 3;
    rs.read(y);
    EXPECT_FALSE(rs.good());
    EXPECT_EQ(y, T(3));
}

TEST(Stream, LongDoubleRoundTrip) {
    std::vector<long double> values = {0.0L,
                                       -0.0L,
                                       1.0L / 3.0L,
                                       LDBL_MAX,
                                       -LDBL_MAX,
                                       LDBL_MIN,
                                       LDBL_TRUE_MIN,
                                       std::numeric_limits<long double>::infinity(),
                                       -std::numeric_limits<long double>::infinity()};
    std::mt19937_64 rng(23);
    std::uniform_int_distribution<int> e(-16000, 16000);
    for (int k = 0; k < 2000; ++k) {
        const long double mant = static_cast<long double>(rng()) / 18446744073709551616.0L;  // [0, 1), 64 bits
        values.push_back((k & 1 ? -1 : 1) * std::ldexp(mant, e(rng)));
    }
    std::ostringstream os, bos;
    Cstream w(os), bw(bos);
    for (long double v : values) {
        w << v << " ";
        bw.write(v);
    }
    std::istringstream is(os.str()), bis(bos.str());
    Cstream r(is), br(bis);
    for (long double v : values) {
        long double x = 42, y = 42;
        r >> x;
        br.read(y);
        ASSERT_TRUE(r.good());
        ASSERT_TRUE(br.good());
        ASSERT_EQ(x, v);  // values compare equal: padding bytes of the 80-bit format are not compared
        ASSERT_EQ(std::signbit(x), std::signbit(v));
        ASSERT_EQ(y, v);
    }
    EXPECT_EQ(formatted(0.1L), "0.1");  // shortest form, as for float and double
    EXPECT_EQ(formatted(-std::numeric_limits<long double>::infinity()), "-inf");
    bool ok = true;
    EXPECT_EQ(parsed<long double>("1.5q", 7.0L, ok), 7.0L);
    EXPECT_FALSE(ok);
    EXPECT_EQ(parsed<long double>("0x1p3", 7.0L, ok), 7.0L);  // no hexadecimal form, as for double
    EXPECT_FALSE(ok);
}

TEST(Stream, BoolAndChar) {
    EXPECT_EQ(formatted(true), "1");
    EXPECT_EQ(formatted(false), "0");
    bool ok = false;
    EXPECT_EQ(parsed<bool>("1", false, ok), true);
    EXPECT_TRUE(ok);
    EXPECT_EQ(parsed<bool>("true", false, ok), true);
    EXPECT_EQ(parsed<bool>("false", true, ok), false);
    EXPECT_EQ(parsed<bool>("0", true, ok), false);
    EXPECT_TRUE(ok);
    for (std::string t : {"2", "yes", "TRUE", "01", "-1"}) {
        EXPECT_EQ(parsed<bool>(t, true, ok), true) << t;
        EXPECT_FALSE(ok) << t;
    }

    // A char is text: the character itself, read back as the next non-blank one.
    EXPECT_EQ(formatted('x'), "x");
    EXPECT_EQ(formatted(static_cast<signed char>('x')), "120");  // signed/unsigned char are numbers
    EXPECT_EQ(formatted(static_cast<unsigned char>(200)), "200");
    EXPECT_EQ(parsed<char>("   q r", 'a', ok), 'q');
    EXPECT_TRUE(ok);
    EXPECT_EQ(parsed<char>("  ", 'a', ok), 'a');
    EXPECT_FALSE(ok);

    std::ostringstream os;
    Cstream w(os);
    w.write(true).write('z').write(false);
    ASSERT_EQ(os.str().size(), 2 * sizeof(bool) + 1);
    std::istringstream is(os.str());
    Cstream r(is);
    bool a = false, c = true;
    char b = 0;
    r.read(a).read(b).read(c);
    EXPECT_TRUE(r.good());
    EXPECT_TRUE(a);
    EXPECT_EQ(b, 'z');
    EXPECT_FALSE(c);
}

TEST(Stream, StringsDirectionAndFlags) {
    std::ostringstream os;
    os << std::hex << std::showbase;
    os.width(12);
    Cstream w(os);
    w << 255 << " " << std::string("word") << " " << -3.5;
    EXPECT_EQ(os.str(), "255 word -3.5");  // decimal whatever the stream's flags

    std::istringstream is("  alpha\tbeta");
    Cstream r(is);
    std::string s1, s2, s3 = "kept";
    r >> s1 >> s2;
    EXPECT_EQ(s1, "alpha");
    EXPECT_EQ(s2, "beta");
    EXPECT_TRUE(r.good());
    r >> s3;
    EXPECT_FALSE(r.good());

    // A wrapper of an output stream ignores reads and one of an input stream
    // ignores writes; neither touches the target.
    std::ostringstream o2;
    Cstream wo(o2);
    int v = 9;
    wo >> v;
    wo.read(v);
    EXPECT_EQ(v, 9);
    EXPECT_EQ(wo.istream(), nullptr);
    EXPECT_EQ(wo.ostream(), &o2);
    std::istringstream i2("5");
    Cstream ri(i2);
    ri << 7;
    ri.write(7);
    EXPECT_EQ(ri.ostream(), nullptr);
    ri >> v;
    EXPECT_EQ(v, 5);

    // Copies refer to the same stream.
    Cstream copy(w);
    copy << 1;
    EXPECT_EQ(os.str(), "255 word -3.51");
}
