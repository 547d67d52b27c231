#include "app.h"

#include "fit.h"
#include "pointfile.h"
#include "report.h"
#include "svg.h"

#include <math/errors.h>

#include <CLI/CLI.hpp>

#include <cmath>
#include <fstream>
#include <functional>
#include <new>
#include <ostream>
#include <sstream>

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
    for (Method m : info.methods) s += (s.empty() ? "" : ", ") + std::string(methodName(m));
    return s;
}

// Writes to `path` ("-": the standard output) through `write`.
void writeOutput(std::string const& path, std::ostream& out, std::string const& what,
                 std::function<void(std::ostream&)> const& write) {
    if (path == "-") {
        write(out);
        return;
    }
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    if (!file) throw InputError("cannot write the " + what + " file '" + path + "'");
    write(file);
    file.flush();
    if (!file) throw InputError("writing the " + what + " file '" + path + "' failed");
}

}  // namespace

int run(int argc, const char* const* argv, std::istream& in, std::ostream& out, std::ostream& err) {
    CLI::App app{"Fits a geometric primitive to measured points and reports its parameters, the deviation "
                 "measures and the residuals.",
                 "metrofit"};
    std::string fitName, file, methodText, residualsPath, svgPath;
    bool json = false, yDown = false, singlePrecision = false;
    double magnify = 0.0;

    app.add_option("FIT", fitName, "Primitive to fit: " + shapeNames())->required();
    app.add_option("FILE", file,
                   "Point file: 2 or 3 columns separated by commas, semicolons or blanks; '#' comments and one "
                   "header line allowed; '-' reads standard input")
        ->required();
    app.add_option("-m,--method", methodText,
                   "lsq (algebraic least squares), geom (orthogonal distances) or fast (plane by power "
                   "iteration); default: geom for line2, line3 and plane, lsq for circle and sphere");
    app.add_flag("--float", singlePrecision,
                 "Fit with the library's float instantiation (points rounded to float) instead of double");
    app.add_flag("--json", json, "Print the result as JSON instead of a table");
    app.add_option("--residuals", residualsPath, "Write each point's signed distance from the fit to this CSV file");
    app.add_option("--svg", svgPath, "Draw points, fitted primitive and magnified residuals into this SVG file");
    CLI::Option* magnifyOption =
        app.add_option("--magnify", magnify, "Residual magnification in the drawing (default: automatic)");
    app.add_flag("--y-down", yDown, "Draw planar fits with y pointing down, as in image pixel coordinates");
    app.set_version_flag("--version", std::string("metrofit ") + METROFIT_VERSION);
    app.footer("Example:\n  metrofit circle examples/data/bore_edge.csv --svg bore.svg\n\n"
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

    Shape shape;
    if (!shapeFromName(fitName, shape)) {
        err << "metrofit: error: unknown fit '" << oneLine(fitName) << "'; choose one of " << shapeNames() << "\n";
        return kExitUsage;
    }
    ShapeInfo const& info = shapeInfo(shape);
    Method method = info.methods.front();
    if (!methodText.empty()) {
        bool offered = methodFromName(methodText, method);
        if (offered) {
            offered = false;
            for (Method m : info.methods) offered = offered || m == method;
        }
        if (!offered) {
            err << "metrofit: error: method '" << oneLine(methodText) << "' is not available for " << info.name
                << "; available: " << methodList(info) << "\n";
            return kExitUsage;
        }
    }

    try {
        const PointSet pts = readPointFile(file, in, info.dim);
        if (pts.size() < info.minPoints) {
            throw InputError(pts.source + ": the " + info.name + " fit needs at least " +
                             std::to_string(info.minPoints) + " points, found " + std::to_string(pts.size()));
        }
        const FitResult result = runFit(shape, method, pts, singlePrecision);

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
