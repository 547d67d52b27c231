// The fits metrofit offers, and the result record its writers share.
//
// runFit (fit.cpp) is the only place that calls the library's fitting
// functions (approximate<double>); everything else in the tool works on the
// FitResult below, so the writers can be tested without fitting anything.
#ifndef METROFIT_FIT_H
#define METROFIT_FIT_H

#include "pointfile.h"

#include <array>
#include <cstddef>
#include <limits>
#include <string>
#include <vector>

namespace metrofit {

enum class Shape { line2, line3, circle, sphere, plane };

// lsq: algebraic least squares in closed form; geom: orthogonal (total) least
// squares; fast: the power-iteration variant of the orthogonal plane fit.
enum class Method { lsq, geom, fast };

struct ShapeInfo {
    Shape shape;
    const char* name;          // command-line name
    const char* title;         // for the report heading
    int dim;                   // columns of the point file
    std::size_t minPoints;     // fewer is an input error
    std::vector<Method> methods;  // first one is the default
};

std::vector<ShapeInfo> const& shapes();
ShapeInfo const& shapeInfo(Shape s);
// False if `name` is not a shape name.
bool shapeFromName(std::string const& name, Shape& s);
const char* methodName(Method m);
bool methodFromName(std::string const& name, Method& m);

// A named deviation measure as the library reports it.
struct Measure {
    std::string key;    // JSON key, the library's field or function name
    std::string label;  // table label
    double value;       // NaN if the library leaves it undetermined
};

// Summary of the signed residuals (point-to-primitive distances).
struct ResidualStats {
    double mean = 0, rms = 0, min = 0, max = 0;
    double maxAbs = 0;        // largest |residual|
    std::size_t maxAbsIndex = 0;  // index of the point with the largest |residual|
};

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

struct FitResult {
    Shape shape = Shape::line2;
    Method method = Method::geom;
    std::string function;  // library call, e.g. "approximate<double>::fitCircleLsq"
    std::string scalar = "double";  // coordinate type of the fit: "double" or "float"

    // The primitive; which fields are used depends on the shape:
    // line2/line3: point, direction (unit); circle/sphere: center, radius;
    // plane: normal (unit), d with normal·x + d = 0.  2D shapes leave [2] at 0.
    std::array<double, 3> point{}, direction{}, center{}, normal{};
    double radius = kNaN, d = kNaN;

    std::vector<Measure> measures;   // deviation measures of the library
    std::vector<double> residuals;   // signed distance of each point
    ResidualStats stats;
};

// Parameters of the primitive in report order: key (JSON), label (table) and
// 1 to 3 values.
struct Parameter {
    std::string key, label;
    std::vector<double> values;
};
std::vector<Parameter> parameters(FitResult const& r);

// What the sign of a residual means for the shape, for reports.
const char* residualMeaning(Shape s);

// Signed distance of every point from the primitive in `r` (see
// residualMeaning), and their summary.  Fills r.residuals and r.stats.
void computeResiduals(PointSet const& pts, FitResult& r);

// Runs the library's fit.  Line directions and plane normals are turned so
// that their largest component is positive (d follows the normal).  Throws InputError for too few points and for
// degenerate configurations (with the reason), and lets CthrowBase from the
// library pass.
// With singlePrecision the points are rounded to float and fitted by
// approximate<float> (results reported in double as computed in float).
FitResult runFit(Shape shape, Method method, PointSet const& pts, bool singlePrecision = false);

}  // namespace metrofit

#endif
