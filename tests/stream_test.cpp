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
    Cstream(os) << v;
    return os.str();
}

// Reads one value of type T from `text`; `ok` receives the stream state.
template <class T>
T parsed(std::string const& text, T init, bool& ok) {
    std::istringstream is(text);
    Cstream s(is);
    s >> init;
    ok = s.good();
    return init;
}

// Writes `values` as text and binary, reads both back and compares with `same`;
// past the end both forms fail and leave the target unchanged.
template <class T, class Same>
void roundTrip(std::vector<T> const& values, Same same) {
    std::ostringstream text, bin;
    Cstream ts(text), bs(bin);
    for (T v : values) ts << v << "\n", bs.write(v);
    ASSERT_EQ(bin.str().size(), values.size() * sizeof(T));
    std::istringstream tin(text.str()), bin_in(bin.str());
    Cstream tr(tin), br(bin_in);
    for (T v : values) {
        T a = T(42), b = T(42);
        tr >> a;
        br.read(b);
        ASSERT_TRUE(tr.good() && br.good());
        ASSERT_TRUE(same(a, v) && same(b, v)) << formatted(v);
    }
    T a = T(5), b = T(5);
    tr >> a;
    br.read(b);
    EXPECT_FALSE(tr.good() || br.good());
    EXPECT_TRUE(a == T(5) && b == T(5));
}

// Tokens every numeric reader refuses, leaving the target unchanged.
const std::vector<std::string> kMalformed = {"", "   ", "abc", "1,5", "--1", "+-1", "++1", "+", "-", "0x10", "e5"};

}  // namespace

template <class T>
class StreamInteger : public ::testing::Test {};
using IntegerTypes = ::testing::Types<signed char, unsigned char, short, unsigned short, int, unsigned int, long,
                                      unsigned long, long long, unsigned long long>;
TYPED_TEST_SUITE(StreamInteger, IntegerTypes);

TYPED_TEST(StreamInteger, RoundTripsAndMalformedTokens) {
    using T = TypeParam;
    using L = std::numeric_limits<T>;
    std::vector<T> values = {L::min(), L::max(), T(0), T(1), T(L::max() / 3), T(L::min() / 7)};
    std::mt19937_64 rng(11);
    for (int k = 0; k < 200; ++k) values.push_back(static_cast<T>(rng()));
    roundTrip(values, [](T a, T b) { return a == b; });
    // Decimal text, independent of the stream's own base and width flags.
    EXPECT_EQ(formatted(T(L::max())), std::to_string(+L::max()));
    EXPECT_EQ(formatted(T(L::min())), std::to_string(+L::min()));

    // One past the range of T (max ends in 5 or 7: no carry), fractions,
    // exponents, trailing garbage, and "-1" for the unsigned types.
    std::string above = std::to_string(static_cast<unsigned long long>(L::max()));
    above.back() = static_cast<char>(above.back() + 1);
    std::vector<std::string> bad = kMalformed;
    bad.insert(bad.end(), {"12x", "1.5", "1e3", above, "99999999999999999999999"});
    if (!L::is_signed) bad.push_back("-1");
    bool ok = true;
    for (std::string const& t : bad) {
        EXPECT_EQ(parsed<T>(t, T(7), ok), T(7)) << t;
        EXPECT_FALSE(ok) << t;
    }
    EXPECT_EQ(parsed<T>("  \n\t+12 ", T(7), ok), T(12));
    EXPECT_TRUE(ok);
}

template <class T>
class StreamFloat : public ::testing::Test {};
using FloatTypes = ::testing::Types<float, double, long double>;
TYPED_TEST_SUITE(StreamFloat, FloatTypes);

// Text reads back bit for bit (long double: equal value and sign, its padding
// bytes are not compared); binary is the machine representation.
TYPED_TEST(StreamFloat, RoundTripsAreExact) {
    using T = TypeParam;
    using L = std::numeric_limits<T>;
    std::vector<T> values = {T(0),         -T(0),    L::infinity(), -L::infinity(), L::min(),    -L::min(),
                             L::denorm_min(), -L::denorm_min(), L::max(), -L::max(), L::epsilon(), T(0.1),
                             T(1) / T(3),  T(1e-30), std::nextafter(L::min(), T(0))};
    std::mt19937_64 rng(17);
    for (int k = 0; k < 20000; ++k) {
        T v;
        if constexpr (sizeof(T) <= 8) {  // uniform bit patterns: every exponent; every 10th subnormal
            using Bits = std::conditional_t<sizeof(T) == 4, std::uint32_t, std::uint64_t>;
            Bits b = static_cast<Bits>(rng());
            if (k % 10 == 0) b &= (Bits(1) << (L::digits - 1)) - 1;
            std::memcpy(&v, &b, sizeof b);
        } else {  // 64-bit mantissa, exponent over nearly the whole range
            v = std::ldexp(T(rng()) / T(18446744073709551616.0L), int(rng() % 32000) - 16000) * (k & 1 ? -1 : 1);
        }
        if (!std::isnan(v)) values.push_back(v);
    }
    roundTrip(values, [](T a, T b) {
        return sizeof(T) <= 8 ? std::memcmp(&a, &b, sizeof(T)) == 0 : (a == b && std::signbit(a) == std::signbit(b));
    });
    std::ostringstream os;
    const T v = T(-1.25);
    Cstream(os).write(v);
    ASSERT_EQ(os.str().size(), sizeof(T));
    EXPECT_EQ(std::memcmp(os.str().data(), &v, sizeof(T) <= 8 ? sizeof(T) : 10), 0);
    // A short block fails and leaves the target unchanged.
    std::istringstream shortIs(os.str().substr(0, sizeof(T) - 1));
    T y = 3;
    Cstream rs(shortIs);
    rs.read(y);
    EXPECT_FALSE(rs.good());
    EXPECT_EQ(y, T(3));
}

TYPED_TEST(StreamFloat, TextFormAndMalformedTokens) {
    using T = TypeParam;
    using L = std::numeric_limits<T>;
    EXPECT_EQ(formatted(L::infinity()), "inf");
    EXPECT_EQ(formatted(-L::infinity()), "-inf");
    EXPECT_EQ(formatted(-T(0)), "-0");
    EXPECT_EQ(formatted(T(0.5)), "0.5");
    EXPECT_EQ(formatted(T(1) / T(10)), "0.1");  // shortest form, not 0.100000001
    bool ok = false;
    EXPECT_TRUE(std::isnan(parsed<T>(formatted(L::quiet_NaN()), T(0), ok)));
    EXPECT_TRUE(ok);
    // Magnitudes beyond the type round like strtod: to infinity or to zero,
    // keeping the sign.
    struct Good { const char* text; T value; } good[] = {
        {"1e5000", L::infinity()}, {"-1e-5000", -T(0)}, {"+2.5", T(2.5)}, {"1E2", T(100)}};
    for (auto const& g : good) {
        const T x = parsed<T>(g.text, T(7), ok);
        EXPECT_TRUE(ok && x == g.value && std::signbit(x) == std::signbit(g.value)) << g.text;
    }
    // No hexadecimal form; a token longer than the reader's limit fails
    // instead of growing without bound.
    std::vector<std::string> bad = kMalformed;
    bad.insert(bad.end(), {"x", "1.5.5", "0x1p3", "1e", "1.0f", "1.5q", std::string(5000, '1')});
    for (std::string const& t : bad) {
        EXPECT_EQ(parsed<T>(t, T(7), ok), T(7)) << t.substr(0, 10);
        EXPECT_FALSE(ok) << t.substr(0, 10);
    }
}

TEST(Stream, BoolAndChar) {
    EXPECT_EQ(formatted(true), "1");
    EXPECT_EQ(formatted(false), "0");
    struct Case { const char* text; bool ok, value; } cases[] = {
        {"1", true, true},  {"true", true, true},  {"false", true, false}, {"0", true, false}, {"2", false, true},
        {"yes", false, true}, {"TRUE", false, true}, {"01", false, true},   {"-1", false, true}};
    for (auto const& c : cases) {
        bool ok = !c.ok;
        EXPECT_EQ(parsed<bool>(c.text, !c.value || !c.ok, ok), c.value) << c.text;
        EXPECT_EQ(ok, c.ok) << c.text;
    }
    // A char is text: the character itself, read back as the next non-blank one;
    // signed and unsigned char are numbers.
    EXPECT_EQ(formatted('x'), "x");
    EXPECT_EQ(formatted(static_cast<signed char>('x')), "120");
    EXPECT_EQ(formatted(static_cast<unsigned char>(200)), "200");
    bool ok = false;
    EXPECT_EQ(parsed<char>("   q r", 'a', ok), 'q');
    EXPECT_TRUE(ok);
    EXPECT_EQ(parsed<char>("  ", 'a', ok), 'a');
    EXPECT_FALSE(ok);

    std::ostringstream os;
    Cstream(os).write(true).write('z').write(false);
    ASSERT_EQ(os.str().size(), 2 * sizeof(bool) + 1);
    std::istringstream is(os.str());
    Cstream r(is);
    bool a = false, c = true;
    char b = 0;
    r.read(a).read(b).read(c);
    EXPECT_TRUE(r.good() && a && b == 'z' && !c);
}

TEST(Stream, StringsDirectionAndFlags) {
    std::ostringstream os;
    os << std::hex << std::showbase;
    os.width(12);
    Cstream w(os);
    w << 255 << " " << std::string("word") << " " << -3.5 << static_cast<const char*>(nullptr);
    EXPECT_EQ(os.str(), "255 word -3.5");  // decimal whatever the stream's flags; a null text writes nothing

    std::istringstream is("  alpha\tbeta");
    Cstream r(is);
    std::string s1, s2, s3 = "kept";
    r >> s1 >> s2;
    EXPECT_TRUE(s1 == "alpha" && s2 == "beta" && r.good());
    r >> s3;
    EXPECT_FALSE(r.good());

    // A wrapper of an output stream ignores reads and one of an input stream
    // ignores writes (numbers and texts alike); neither touches the target.
    std::ostringstream o2;
    Cstream wo(o2);
    int v = 9;
    wo >> v;
    wo.read(v);
    EXPECT_EQ(v, 9);
    EXPECT_TRUE(wo.istream() == nullptr && wo.ostream() == &o2);
    std::istringstream i2("5");
    Cstream ri(i2);
    ri << 7 << "text" << std::string("more");
    ri.write(7);
    EXPECT_EQ(ri.ostream(), nullptr);
    ri >> v;
    EXPECT_EQ(v, 5);

    // Copies refer to the same stream.
    Cstream copy(w);
    copy << 1;
    EXPECT_EQ(os.str(), "255 word -3.51");
}
