// Reading measured points from text files.
//
// Accepted format, one point per line:
//   - values separated by commas, semicolons or whitespace (tabs, blanks),
//     e.g. "12.5,3.75", "12.5; 3.75" or "12.5  3.75  0.0";
//   - numbers in the C locale ('.' as decimal point, exponents allowed, an
//     optional leading '+'); no decimal commas;
//   - blank lines are skipped; '#' starts a comment that runs to the end of
//     the line (whole-line and trailing comments);
//   - one header line is tolerated: the first non-comment line, if none of
//     its fields is a number (e.g. "x_px,y_px");
//   - every data line has the same number of values, 2 or 3;
//   - NaN and infinite values are rejected, as are values that overflow double;
//   - Windows line ends (CRLF) and a UTF-8 byte-order mark are accepted;
//     other control characters (binary data) are rejected.
//   - a line may hold at most kMaxLineLength bytes (without its line end);
//     a longer one is refused as soon as that many bytes have been read.
// Every rejection names the line number (counted from 1) in its message.
// Lines are parsed in place, field by field, without copies.
#ifndef METROFIT_POINTFILE_H
#define METROFIT_POINTFILE_H

#include <cstddef>
#include <iosfwd>
#include <stdexcept>
#include <string>
#include <vector>

namespace metrofit {

// A failure the user has to fix in the input or on the command line; the
// message is one line without the "metrofit: error: " prefix.
class InputError : public std::runtime_error {
public:
    explicit InputError(std::string const& what) : std::runtime_error(what) {}
};

// Points as read: n rows of dim (2 or 3) coordinates, row-major, plus the
// line of the file each row came from.  dim is 0 only for an empty set.
struct PointSet {
    int dim = 0;
    std::vector<double> coords;           // size n * dim
    std::vector<std::size_t> lineNumbers; // size n, 1-based line of each point
    std::vector<std::string> header;      // column names if a header line was present
    std::string source;                   // file name as given ("-" for standard input)

    std::size_t size() const { return lineNumbers.size(); }
    double at(std::size_t i, int k) const { return coords[i * static_cast<std::size_t>(dim) + static_cast<std::size_t>(k)]; }
};

constexpr std::size_t kMaxLineLength = 65536;

// Reads points from a stream.  `source` only names the input in messages.
// `wantDim` is 2 or 3 to require that many columns, 0 to accept either.
// Throws InputError for any malformed content.
PointSet readPoints(std::istream& in, std::string const& source, int wantDim = 0);

// Opens `path` ("-" means `stdinStream`) and reads it with readPoints.
// Throws InputError if the file cannot be opened or read.
PointSet readPointFile(std::string const& path, std::istream& stdinStream, int wantDim = 0);

// Splits one line (without its line end) into fields, after removing a
// comment.  Exposed for the tests.
std::vector<std::string> splitFields(std::string const& line);

// Parses one field completely as a double (C locale).  Returns false if the
// field is not a number in full; NaN and infinities do parse (and are
// rejected by readPoints with their own message).
bool parseNumber(std::string const& field, double& value);
bool parseNumber(const char* first, const char* last, double& value);

}  // namespace metrofit

#endif
