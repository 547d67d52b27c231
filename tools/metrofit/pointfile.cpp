#include "pointfile.h"

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

std::vector<std::string> splitFields(std::string const& line) {
    std::string text = line.substr(0, line.find('#'));
    std::vector<std::string> fields;
    // Commas and semicolons separate fields and keep empty ones ("1,,2" has an
    // empty middle field, which readPoints reports); runs of blanks count as
    // one separator and never produce empty fields, also around a comma.
    std::size_t i = 0;
    const std::size_t n = text.size();
    while (i < n && isBlank(text[i])) ++i;
    if (i == n) return fields;
    while (true) {
        std::size_t j = i;
        while (j < n && !isDelimiter(text[j])) ++j;
        fields.push_back(text.substr(i, j - i));
        // Skip blanks, then at most one hard separator, then blanks again.
        while (j < n && isBlank(text[j])) ++j;
        if (j == n) break;
        if (text[j] == ',' || text[j] == ';') {
            ++j;
            while (j < n && isBlank(text[j])) ++j;
            if (j == n) {
                fields.emplace_back();  // trailing separator: an empty last field
                break;
            }
        }
        i = j;
    }
    return fields;
}

bool parseNumber(std::string const& field, double& value) {
    if (field.empty()) return false;
    const char* first = field.data();
    const char* last = field.data() + field.size();
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
    std::string line;
    std::size_t lineNo = 0;
    bool sawData = false;
    bool sawHeader = false;
    while (std::getline(in, line)) {
        ++lineNo;
        if (lineNo == 1 && line.size() >= 3 && line.compare(0, 3, "\xEF\xBB\xBF") == 0) line.erase(0, 3);
        for (char c : line) {
            const unsigned char u = static_cast<unsigned char>(c);
            if ((u < 0x20 && !isBlank(c)) || u == 0x7f)
                throw InputError(lineRef(source, lineNo) + "control character 0x" + "0123456789abcdef"[u >> 4] +
                                 "0123456789abcdef"[u & 15] + ", not a text point file");
        }
        const std::vector<std::string> fields = splitFields(line);
        if (fields.empty()) continue;

        std::vector<double> values(fields.size());
        std::size_t numeric = 0;
        std::size_t firstBad = fields.size();
        for (std::size_t k = 0; k < fields.size(); ++k) {
            if (parseNumber(fields[k], values[k])) {
                ++numeric;
            } else if (firstBad == fields.size()) {
                firstBad = k;
            }
        }

        if (numeric == 0 && !sawData && !sawHeader) {
            sawHeader = true;
            set.header = fields;
            continue;
        }
        if (firstBad != fields.size()) {
            if (fields[firstBad].empty())
                throw InputError(lineRef(source, lineNo) + "empty value in column " + std::to_string(firstBad + 1));
            throw InputError(lineRef(source, lineNo) + "not a number: " + quoted(fields[firstBad]) + " in column " +
                             std::to_string(firstBad + 1));
        }
        for (std::size_t k = 0; k < values.size(); ++k) {
            if (!std::isfinite(values[k])) {
                const std::string what = std::isnan(values[k]) ? "NaN" : "infinite or out-of-range value";
                throw InputError(lineRef(source, lineNo) + what + " " + quoted(fields[k]) + " in column " +
                                 std::to_string(k + 1));
            }
        }

        const int cols = static_cast<int>(fields.size());
        if (!sawData) {
            if (cols != 2 && cols != 3)
                throw InputError(lineRef(source, lineNo) + "expected 2 or 3 values per line, found " +
                                 std::to_string(cols));
            if (wantDim != 0 && cols != wantDim)
                throw InputError(lineRef(source, lineNo) + "this fit needs " + std::to_string(wantDim) +
                                 " values per line (" + (wantDim == 2 ? "x y" : "x y z") + "), found " +
                                 std::to_string(cols));
            set.dim = cols;
            sawData = true;
        } else if (cols != set.dim) {
            throw InputError(lineRef(source, lineNo) + "expected " + std::to_string(set.dim) +
                             " values as on the first data line, found " + std::to_string(cols));
        }
        set.coords.insert(set.coords.end(), values.begin(), values.end());
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
