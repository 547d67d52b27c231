// metrofit's command line: parses the options, runs the fit and writes the
// outputs.  main() only forwards to run(); the tests call run() directly.
//
// Exit status: 0 success (also --help, --version); 1 bad data (unreadable or
// malformed file, too few points, degenerate configuration, failed fit,
// unwritable output); 2 usage error (unknown fit or option, missing
// argument, method not available for the fit).  Every failure is reported
// as one line "metrofit: error: ..." on the error stream.
#ifndef METROFIT_APP_H
#define METROFIT_APP_H

#include <iosfwd>
#include <string>

class CthrowBase;

namespace metrofit {

constexpr int kExitData = 1;
constexpr int kExitUsage = 2;

int run(int argc, const char* const* argv, std::istream& in, std::ostream& out, std::ostream& err);

// The report of an exception of the library: its composed message (key,
// text with the placeholders filled in, chained exceptions), converted from
// the tables' Windows-1252 to UTF-8 and folded onto one line.
std::string libraryErrorLine(std::string const& fitName, CthrowBase const& e);

// Folds a message onto one line: line breaks and tabs become "; " or a blank.
std::string oneLine(std::string const& message);

}  // namespace metrofit

#endif
