#include <core/stream.h>

#include <cctype>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <locale.h>
#include <limits>
#include <type_traits>

namespace {

// Reads one white-space delimited token (at most `cap` characters).
bool readToken(std::istream& is, std::string& tok, std::size_t cap = 4096) {
    tok.clear();
    std::istream::sentry s(is);  // skips leading white space
    if (!s) return false;
    std::streambuf* sb = is.rdbuf();
    for (;;) {
        const int c = sb->sgetc();
        if (c == std::char_traits<char>::eof()) {
            is.setstate(std::ios::eofbit);
            break;
        }
        if (std::isspace(c)) break;
        if (tok.size() >= cap) {
            is.setstate(std::ios::failbit);
            return false;
        }
        tok.push_back(static_cast<char>(c));
        sb->sbumpc();
    }
    if (tok.empty()) {
        is.setstate(std::ios::failbit);
        return false;
    }
    return true;
}

// strtold in the "C" locale: the text format must not depend on the decimal
// separator of whatever locale the application has set.
long double strtoldC(const char* s, char** end) {
    static const locale_t c = newlocale(LC_ALL_MASK, "C", locale_t(0));
    return strtold_l(s, end, c);
}

template <class T>
bool parseToken(std::string const& tok, T& v) {
    const char* b = tok.data();
    const char* e = b + tok.size();
    if constexpr (std::is_same_v<T, bool>) {
        if (tok == "0" || tok == "false") { v = false; return true; }
        if (tok == "1" || tok == "true") { v = true; return true; }
        return false;
    } else {
        // from_chars does not take a leading '+'; skip one, but not in front of
        // another sign or alone, so that "+-5", "++5" and "+" stay malformed.
        if (b != e && *b == '+') {
            if (b + 1 == e || b[1] == '-' || b[1] == '+') return false;
            ++b;
        }
        T r{};
        auto res = std::from_chars(b, e, r);
        if (res.ec != std::errc() || res.ptr != e) {
            // from_chars reports out-of-range for values that round to zero or
            // overflow (and, for long double, for subnormal results); accept
            // them the way strtod does (0, subnormal or inf).
            if constexpr (std::is_floating_point_v<T>) {
                if (res.ec == std::errc::result_out_of_range && res.ptr == e) {
                    const long double x = strtoldC(tok.c_str(), nullptr);
                    v = static_cast<T>(x);
                    return true;
                }
            }
            return false;
        }
        v = r;
        return true;
    }
}

}  // namespace

Cstream::Cstream(std::ostream& os) : m_os(&os), m_is(nullptr) {}
Cstream::Cstream(std::istream& is) : m_os(nullptr), m_is(&is) {}
Cstream::~Cstream() = default;

bool Cstream::good() const {
    if (m_os) return !m_os->fail();
    if (m_is) return !m_is->fail();
    return false;
}

void Cstream::wFrmt() {
    if (!m_os) return;
    m_os->setf(std::ios::dec, std::ios::basefield);
    m_os->width(0);
}

template <class T>
Cstream& Cstream::putNumber(T v) {
    if (!m_os) return *this;
    if constexpr (std::is_same_v<T, bool>) {
        m_os->put(v ? '1' : '0');
    } else {
        char buf[128];
        auto res = std::to_chars(buf, buf + sizeof buf, v);
        m_os->write(buf, res.ptr - buf);
    }
    return *this;
}

template <class T>
Cstream& Cstream::getNumber(T& v) {
    if (!m_is) return *this;
    std::string tok;
    if (!readToken(*m_is, tok)) return *this;
    if (!parseToken(tok, v)) m_is->setstate(std::ios::failbit);
    return *this;
}

template <class T>
Cstream& Cstream::putBinary(T v) {
    if (m_os) m_os->write(reinterpret_cast<const char*>(&v), sizeof(T));
    return *this;
}

template <class T>
Cstream& Cstream::getBinary(T& v) {
    if (!m_is) return *this;
    T tmp;
    if (m_is->read(reinterpret_cast<char*>(&tmp), sizeof(T))) v = tmp;
    return *this;
}

#define CORE_CSTREAM_SCALAR(T)                                     \
    Cstream& Cstream::operator<<(T v) { return putNumber<T>(v); }  \
    Cstream& Cstream::operator>>(T& v) { return getNumber<T>(v); } \
    Cstream& Cstream::write(T v) { return putBinary<T>(v); }       \
    Cstream& Cstream::read(T& v) { return getBinary<T>(v); }
CORE_CSTREAM_SCALAR(bool)
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

// A char is text: written as the character itself, read as the next
// non-blank character.
Cstream& Cstream::operator<<(char v) {
    if (m_os) m_os->put(v);
    return *this;
}
Cstream& Cstream::operator>>(char& v) {
    if (m_is) *m_is >> v;
    return *this;
}
Cstream& Cstream::write(char v) { return putBinary<char>(v); }
Cstream& Cstream::read(char& v) { return getBinary<char>(v); }

// Strings go out verbatim, like the numbers: a field width left on the stream
// by its owner must not pad whichever piece of text happens to come next.
Cstream& Cstream::operator<<(const char* s) {
    if (m_os && s) m_os->write(s, static_cast<std::streamsize>(std::strlen(s)));
    return *this;
}
Cstream& Cstream::operator<<(std::string const& s) {
    if (m_os) m_os->write(s.data(), static_cast<std::streamsize>(s.size()));
    return *this;
}
Cstream& Cstream::operator>>(std::string& s) {
    if (m_is) readToken(*m_is, s, std::numeric_limits<std::size_t>::max());
    return *this;
}
