#include "app.h"

#include "fit.h"
#include "pointfile.h"
#include "report.h"
#include "svg.h"

#include <math/errors.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <new>
#include <ostream>
#include <sstream>
#include <system_error>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#ifndef METROFIT_VERSION
#define METROFIT_VERSION "unknown"
#endif

namespace metrofit {

std::string oneLine(std::string const& message) {
    std::string out;
    out.reserve(message.size());
    bool pendingBreak = false;
    for (char c : message) {
        if (c == '\n' || c == '\r') {
            pendingBreak = !out.empty();
            continue;
        }
        if (pendingBreak) {
            out += "; ";
            pendingBreak = false;
        }
        out += (c == '\t') ? ' ' : c;
    }
    return out;
}

std::string libraryErrorLine(std::string const& fitName, CthrowBase const& e) {
    return "metrofit: error: the " + fitName + " fit failed: " + oneLine(math::messageUtf8(e));
}

namespace {

std::string shapeNames() {
    std::string s;
    for (ShapeInfo const& info : shapes()) s += (s.empty() ? "" : ", ") + std::string(info.name);
    return s;
}

std::string methodList(ShapeInfo const& info) {
    std::string s;
    for (FitMethod const& m : info.methods) s += (s.empty() ? "" : ", ") + std::string(methodName(m.method));
    return s;
}

// "circle, sphere, cylinder (method geom)": the shapes and methods that
// take a fixed radius.
std::string fixedRadiusShapes() {
    std::vector<std::string> names, methods;
    auto addOnce = [](std::vector<std::string>& v, std::string const& x) {
        if (std::find(v.begin(), v.end(), x) == v.end()) v.push_back(x);
    };
    for (ShapeInfo const& info : shapes())
        for (FitMethod const& m : info.methods)
            if (m.fixedRadius) {
                addOnce(names, info.name);
                addOnce(methods, methodName(m.method));
            }
    auto join = [](std::vector<std::string> const& v) {
        std::string s;
        for (std::string const& x : v) s += (s.empty() ? "" : ", ") + x;
        return s;
    };
    return join(names) + " (method " + join(methods) + ")";
}

std::string systemError(int code) {
    return code != 0 ? ": " + std::error_code(code, std::generic_category()).message() : std::string();
}

// Refuses an output path that names the input file (compared by device and
// inode, so also through another path or a hard link).
bool sameFile(std::string const& a, std::string const& b) {
    struct stat sa, sb;
    return a != "-" && b != "-" && ::stat(a.c_str(), &sa) == 0 && ::stat(b.c_str(), &sb) == 0 &&
           sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
}

// Writes to `path` ("-": the standard output) through `write`, which stops at
// a failed write.  A regular file is written to a temporary file beside it
// and renamed into place only when complete: a failure leaves no output file
// (and an existing one unchanged).  Devices and pipes are written directly.
void writeOutput(std::string const& path, std::ostream& out, std::string const& what,
                 std::function<void(std::ostream&)> const& write) {
    const std::string name = "the " + what + " file '" + path + "'";
    if (path == "-") {
        write(out);
        out.flush();
        if (!out) throw InputError("writing the " + what + " to the standard output failed");
        return;
    }
    // A symbolic link keeps pointing to the file it names: write that file.
    std::error_code linkError;
    const std::filesystem::path real = std::filesystem::canonical(path, linkError);
    const std::string finalPath = linkError ? path : real.string();
    struct stat st;
    const bool exists = ::stat(finalPath.c_str(), &st) == 0;
    if (exists && S_ISDIR(st.st_mode)) throw InputError("cannot write " + name + ": is a directory");
    std::string target;  // the temporary file; empty for devices and pipes, written directly
    if (!exists || S_ISREG(st.st_mode)) {
        std::string tmp = finalPath + ".tmp-XXXXXX";
        const int fd = ::mkstemp(&tmp[0]);
        if (fd < 0) throw InputError("cannot write " + name + systemError(errno));
        // The mode a new file would get, or the one of the file replaced.
        const mode_t mask = ::umask(0);
        ::umask(mask);
        ::fchmod(fd, exists ? (st.st_mode & 07777) : (0666 & ~mask));
        ::close(fd);
        target = tmp;
    }
    const std::string& file = target.empty() ? path : target;
    try {
        errno = 0;
        std::ofstream f(file, std::ios::binary | std::ios::trunc);
        if (!f) throw InputError("cannot write " + name + systemError(errno));
        write(f);
        f.close();
        if (!f) throw InputError("writing " + name + " failed" + systemError(errno));
        if (!target.empty() && std::rename(target.c_str(), finalPath.c_str()) != 0)
            throw InputError("cannot write " + name + systemError(errno));
    } catch (...) {
        if (!target.empty()) std::remove(target.c_str());
        throw;
    }
}

}  // namespace

int run(int argc, const char* const* argv, std::istream& in, std::ostream& out, std::ostream& err) {
    CLI::App app{"Fits a geometric primitive to measured points and reports its parameters, the deviation "
                 "measures and the residuals.",
                 "metrofit"};
    std::string fitName, file, methodText, residualsPath, svgPath;
    bool json = false, yDown = false, singlePrecision = false;
    double magnify = 0.0, radius = kNaN;

    app.add_option("FIT", fitName, "Primitive to fit: " + shapeNames())->required();
    app.add_option("FILE", file,
                   "Point file: 2 or 3 columns separated by commas, semicolons or blanks; '#' comments and one "
                   "header line allowed; '-' reads standard input")
        ->required();
    std::string methodHelp = "lsq (algebraic least squares), geom (orthogonal distances), fast (plane by power "
                             "iteration) or lm (orthogonal distances by Levenberg-Marquardt); offered (first = "
                             "default):";
    for (ShapeInfo const& info : shapes()) methodHelp += std::string(" ") + info.name + ": " + methodList(info) + ";";
    methodHelp.back() = '.';
    app.add_option("-m,--method", methodText, methodHelp);
    CLI::Option* radiusOption = app.add_option(
        "--radius", radius, "Fit with this radius fixed, only the centre or axis free (" + fixedRadiusShapes() + ")");
    app.add_flag("--float", singlePrecision,
                 "Fit with the library's float instantiation (points rounded to float) instead of double");
    app.add_flag("--json", json, "Print the result as JSON instead of a table");
    app.add_option("--residuals", residualsPath, "Write each point's signed distance from the fit to this CSV file");
    app.add_option("--svg", svgPath, "Draw points, fitted primitive and magnified residuals into this SVG file");
    CLI::Option* magnifyOption =
        app.add_option("--magnify", magnify, "Residual magnification in the drawing (default: automatic)");
    app.add_flag("--y-down", yDown, "Draw planar fits with y pointing down, as in image pixel coordinates");
    app.set_version_flag("--version", std::string("metrofit ") + METROFIT_VERSION);
    app.footer("Examples:\n  metrofit circle examples/data/bore_edge.csv --svg bore.svg\n"
               "  metrofit cylinder examples/data/shaft_scan.txt --radius 8\n\n"
               "Exit status: 0 success, 1 bad data or failed fit, 2 usage error.");

    try {
        app.parse(argc, argv);
    } catch (CLI::ParseError const& e) {
        if (e.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) return app.exit(e, out, err);
        err << "metrofit: error: " << oneLine(e.what()) << " (see metrofit --help)\n";
        return kExitUsage;
    }

    if (magnifyOption->count() > 0 && !(magnify > 0.0 && std::isfinite(magnify))) {
        err << "metrofit: error: --magnify needs a positive number\n";
        return kExitUsage;
    }
    if (radiusOption->count() > 0 && !(radius > 0.0 && std::isfinite(radius))) {
        err << "metrofit: error: --radius needs a positive number\n";
        return kExitUsage;
    }

    ShapeInfo const* found = shapeFromName(fitName);
    if (found == nullptr) {
        err << "metrofit: error: unknown fit '" << oneLine(fitName) << "'; choose one of " << shapeNames() << "\n";
        return kExitUsage;
    }
    ShapeInfo const& info = *found;
    FitOptions options;
    options.method = info.methods.front().method;
    options.singlePrecision = singlePrecision;
    if (!methodText.empty()) {
        Method m = Method::geom;
        if (!methodFromName(methodText, m) || findMethod(info, m) == nullptr) {
            err << "metrofit: error: method '" << oneLine(methodText) << "' is not available for " << info.name
                << "; available: " << methodList(info) << "\n";
            return kExitUsage;
        }
        options.method = m;
    }
    if (radiusOption->count() > 0) {
        if (!findMethod(info, options.method)->fixedRadius) {
            err << "metrofit: error: --radius is not available for " << info.name << " with method "
                << methodName(options.method) << "; a fixed radius is offered for " << fixedRadiusShapes() << "\n";
            return kExitUsage;
        }
        options.radius = radius;
    }
    for (std::string const* o : {&residualsPath, &svgPath}) {
        if (!o->empty() && sameFile(*o, file)) {
            err << "metrofit: error: the " << (o == &svgPath ? "SVG" : "residuals") << " file '" << oneLine(*o)
                << "' is the input file; choose another output file\n";
            return kExitUsage;
        }
    }
    if (!svgPath.empty() && (svgPath == residualsPath || sameFile(svgPath, residualsPath)) && svgPath != "-") {
        err << "metrofit: error: --svg and --residuals name the same file '" << oneLine(svgPath) << "'\n";
        return kExitUsage;
    }

    try {
        const PointSet pts = readPointFile(file, in, info.dim);
        const FitResult result = runFit(info.shape, options, pts);

        if (!residualsPath.empty())
            writeOutput(residualsPath, out, "residuals", [&](std::ostream& o) { writeResiduals(o, pts, result); });
        if (!svgPath.empty()) {
            SvgOptions opt;
            opt.magnification = magnify;
            opt.yDown = yDown;
            writeOutput(svgPath, out, "SVG", [&](std::ostream& o) { writeSvg(o, pts, result, opt); });
        }
        if (json) {
            out << toJson(pts, result).dump(2) << "\n";
        } else {
            writeTable(out, pts, result);
        }
        out.flush();
        if (!out) {
            err << "metrofit: error: writing the report failed\n";
            return kExitData;
        }
        return 0;
    } catch (InputError const& e) {
        err << "metrofit: error: " << oneLine(e.what()) << "\n";
    } catch (CthrowBase const& e) {
        err << libraryErrorLine(info.name, e) << "\n";
    } catch (std::bad_alloc const&) {
        err << "metrofit: error: out of memory\n";
    }
    return kExitData;
}

}  // namespace metrofit
