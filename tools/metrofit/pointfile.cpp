#include "pointfile.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <istream>
#include <limits>
#include <system_error>

namespace metrofit {

namespace {

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f'; }
bool isDelimiter(char c) { return c == ',' || c == ';' || isBlank(c); }

std::string lineRef(std::string const& source, std::size_t line) {
    return source + ":" + std::to_string(line) + ": ";
}

// A short, printable excerpt of a field for messages.
std::string quoted(std::string const& field) {
    std::string out = "'";
    for (std::size_t i = 0; i < field.size() && i < 40; ++i) {
        const unsigned char c = static_cast<unsigned char>(field[i]);
        out += (c < 0x20 || c == 0x7f) ? '?' : field[i];
    }
    if (field.size() > 40) out += "...";
    return out + "'";
}

}  // namespace

namespace {

// Calls field(first, last) for each field of the text [b, e), after removing
// a comment.  Commas and semicolons separate fields and keep empty ones
// ("1,,2" has an empty middle field, which readPoints reports); runs of
// blanks count as one separator and never produce empty fields, also around
// a comma.
template <class F>
void forEachField(const char* b, const char* e, F field) {
    const char* hash = std::find(b, e, '#');
    e = hash;
    const char* i = b;
    while (i < e && isBlank(*i)) ++i;
    if (i == e) return;
    while (true) {
        const char* j = i;
        while (j < e && !isDelimiter(*j)) ++j;
        field(i, j);
        // Skip blanks, then at most one hard separator, then blanks again.
        while (j < e && isBlank(*j)) ++j;
        if (j == e) break;
        if (*j == ',' || *j == ';') {
            ++j;
            while (j < e && isBlank(*j)) ++j;
            if (j == e) {
                field(e, e);  // trailing separator: an empty last field
                break;
            }
        }
        i = j;
    }
}

// What one line holds, parsed in place.
struct LineFields {
    std::size_t count = 0, numeric = 0;
    double values[3] = {0, 0, 0};  // the first three fields
    std::size_t firstBad = 0;      // 1-based column of the first non-number, 0: none
    std::string badText;
    std::size_t firstNonFinite = 0;  // 1-based column of the first NaN or infinity, 0: none
    bool nonFiniteIsNaN = false;
    std::string nonFiniteText;
};

LineFields parseLine(const char* b, const char* e) {
    LineFields f;
    forEachField(b, e, [&f](const char* first, const char* last) {
        ++f.count;
        double v = 0.0;
        if (parseNumber(first, last, v)) {
            ++f.numeric;
            if (f.count <= 3) f.values[f.count - 1] = v;
            if (!std::isfinite(v) && f.firstNonFinite == 0) {
                f.firstNonFinite = f.count;
                f.nonFiniteIsNaN = std::isnan(v);
                f.nonFiniteText.assign(first, std::min<std::size_t>(static_cast<std::size_t>(last - first), 41));
            }
        } else if (f.firstBad == 0) {
            f.firstBad = f.count;
            f.badText.assign(first, std::min<std::size_t>(static_cast<std::size_t>(last - first), 41));
        }
    });
    return f;
}

}  // namespace

std::vector<std::string> splitFields(std::string const& line) {
    std::vector<std::string> fields;
    forEachField(line.data(), line.data() + line.size(),
                 [&fields](const char* first, const char* last) { fields.emplace_back(first, last); });
    return fields;
}

bool parseNumber(std::string const& field, double& value) {
    return parseNumber(field.data(), field.data() + field.size(), value);
}

bool parseNumber(const char* first, const char* last, double& value) {
    if (first == last) return false;
    if (*first == '+') {
        // from_chars does not take a leading '+'; accept exactly one, and no
        // sign after it.
        ++first;
        if (first == last || *first == '+' || *first == '-') return false;
    }
    const std::from_chars_result r = std::from_chars(first, last, value, std::chars_format::general);
    if (r.ec == std::errc::result_out_of_range && r.ptr == last) {
        // Overflow or underflow: report it as a number out of range, i.e. an
        // infinite value, so that readPoints rejects it with the reason.
        value = std::numeric_limits<double>::infinity();
        return true;
    }
    return r.ec == std::errc() && r.ptr == last;
}

PointSet readPoints(std::istream& in, std::string const& source, int wantDim) {
    PointSet set;
    set.source = source;
    // One byte more than the longest line accepted, and one for the
    // terminating zero getline writes: a longer line fills the buffer and is
    // refused without reading the rest of it.
    std::vector<char> buf(kMaxLineLength + 2);
    std::size_t lineNo = 0;
    bool sawData = false;
    bool sawHeader = false;
    while (true) {
        in.getline(buf.data(), static_cast<std::streamsize>(buf.size()));
        std::size_t len = static_cast<std::size_t>(in.gcount());
        if (in.bad()) break;
        if (in.fail() && in.eof() && len == 0) break;  // end of input
        ++lineNo;
        const bool filled = in.fail() && !in.eof();      // no line end within the buffer
        if (!in.fail() && !in.eof() && len > 0) --len;  // the line end counts in gcount
        if (filled || len > kMaxLineLength)
            throw InputError(lineRef(source, lineNo) + "line longer than " + std::to_string(kMaxLineLength) +
                             " bytes, not a point file");
        const char* b = buf.data();
        const char* e = b + len;
        if (lineNo == 1 && len >= 3 && std::equal(b, b + 3, "\xEF\xBB\xBF")) b += 3;
        for (const char* c = b; c != e; ++c) {
            const unsigned char u = static_cast<unsigned char>(*c);
            if ((u < 0x20 && !isBlank(*c)) || u == 0x7f)
                throw InputError(lineRef(source, lineNo) + "control character 0x" + "0123456789abcdef"[u >> 4] +
                                 "0123456789abcdef"[u & 15] + ", not a text point file");
        }
        const LineFields f = parseLine(b, e);
        if (f.count == 0) continue;

        if (f.numeric == 0 && !sawData && !sawHeader) {
            sawHeader = true;
            set.header = splitFields(std::string(b, e));
            continue;
        }
        if (f.firstBad != 0) {
            if (f.badText.empty())
                throw InputError(lineRef(source, lineNo) + "empty value in column " + std::to_string(f.firstBad));
            throw InputError(lineRef(source, lineNo) + "not a number: " + quoted(f.badText) + " in column " +
                             std::to_string(f.firstBad));
        }
        if (f.firstNonFinite != 0) {
            const std::string what = f.nonFiniteIsNaN ? "NaN" : "infinite or out-of-range value";
            throw InputError(lineRef(source, lineNo) + what + " " + quoted(f.nonFiniteText) + " in column " +
                             std::to_string(f.firstNonFinite));
        }

        const int cols = static_cast<int>(std::min<std::size_t>(f.count, 1000));
        if (!sawData) {
            if (cols != 2 && cols != 3)
                throw InputError(lineRef(source, lineNo) + "expected 2 or 3 values per line, found " +
                                 std::to_string(f.count));
            if (wantDim != 0 && cols != wantDim)
                throw InputError(lineRef(source, lineNo) + "this fit needs " + std::to_string(wantDim) +
                                 " values per line (" + (wantDim == 2 ? "x y" : "x y z") + "), found " +
                                 std::to_string(cols));
            set.dim = cols;
            sawData = true;
        } else if (cols != set.dim) {
            throw InputError(lineRef(source, lineNo) + "expected " + std::to_string(set.dim) +
                             " values as on the first data line, found " + std::to_string(f.count));
        }
        set.coords.insert(set.coords.end(), f.values, f.values + cols);
        set.lineNumbers.push_back(lineNo);
    }
    if (in.bad()) throw InputError(source + ": read error after line " + std::to_string(lineNo));
    return set;
}

PointSet readPointFile(std::string const& path, std::istream& stdinStream, int wantDim) {
    if (path == "-") return readPoints(stdinStream, "<stdin>", wantDim);
    // A directory opens as a stream on Linux and then reads as empty: ask first.
    std::error_code fsError;
    if (std::filesystem::is_directory(path, fsError)) throw InputError("cannot read '" + path + "': is a directory");
    errno = 0;
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        const int code = errno;
        throw InputError("cannot open '" + path + "'" +
                         (code != 0 ? ": " + std::error_code(code, std::generic_category()).message() : std::string()));
    }
    return readPoints(file, path, wantDim);
}

}  // namespace metrofit
