// The fits metrofit offers, and the result record its writers share.
//
// Every fit is one entry of the shape table (shapes()): a shape names its
// columns, its minimum point count and the methods that fit it, and each
// method names the adapter (fit.cpp) that calls the library's fitting
// function for double and for float.  runFit is the only place that calls the
// library's fits; everything else in the tool works on the FitResult below,
// whose primitive is the library's own type, so the writers can be tested
// without fitting anything.
#ifndef METROFIT_FIT_H
#define METROFIT_FIT_H

#include "pointfile.h"

#include <math/primitives2.h>
#include <math/primitives3.h>

#include <cstddef>
#include <limits>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace metrofit {

enum class Shape { line2, line3, circle, sphere, plane, cylinder, ellipse };

// lsq: algebraic least squares in closed form; geom: orthogonal (total) least
// squares (closed form for lines and planes, iterative for circles, spheres,
// cylinders and ellipses, Gauss-Newton for the ellipse); fast: the power-iteration variant of the orthogonal plane
// fit; lm: the Levenberg-Marquardt form of the geometric fit (ellipse).
enum class Method { lsq, geom, fast, lm };

// The fitted primitive as the library returns it (always in double; a float
// fit's result is converted).  Sphere radii are stored as |r|.  A new shape
// adds its primitive here, a visitor overload in shapes.cpp (parameters,
// scaling, residuals) and in svg.cpp (views), and one entry in shapes().
using Primitive = std::variant<math::Cline2<double>, math::Cline3<double>, math::Ccircle2<double>,
                               math::Csphere3<double>, math::Cplane3<double>, math::Ccylinder3<double>,
                               math::Cellipse2<double>>;

// A named deviation measure as the library reports it.
struct Measure {
    std::string key;    // JSON key, the library's field or function name
    std::string label;  // table label
    double value;       // NaN if the library leaves it undetermined
    int lengthPower = 1;  // the unit of the value: length^lengthPower
};

// Summary of the signed residuals (point-to-primitive distances).
struct ResidualStats {
    double mean = 0, rms = 0, min = 0, max = 0;
    double maxAbs = 0;            // largest |residual|
    std::size_t maxAbsIndex = 0;  // index of the point with the largest |residual|
};

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// Standard uncertainties of one parameter (key as in Parameter), from the
// record of an iterative fit; NaN where the library leaves them undetermined.
struct Uncertainty {
    std::string key;
    std::vector<double> values;
    int lengthPower = 1;  // 1 for coordinates and radii, 0 for unit directions and angles
};

// Progress of an iterative fit, from its record.
struct Iterations {
    bool reported = false;  // false for the closed-form fits
    unsigned count = 0;     // evaluations of residuals and Jacobian
    bool converged = false;
};

struct FitResult {
    Shape shape = Shape::line2;
    Method method = Method::geom;
    std::string function;           // library call, e.g. "approximate<double>::fitCircleLsq"
    std::string scalar = "double";  // coordinate type of the fit: "double" or "float"
    Primitive primitive;
    // The points were fitted scaled by 2^scaleExp (to about unit extent); the
    // residuals are measured at that scale too, then scaled back.
    int scaleExp = 0;
    std::vector<Measure> measures;  // deviation measures of the library
    std::vector<Uncertainty> uncertainties;  // iterative fits only
    Iterations iterations;
    double fixedRadius = kNaN;  // the radius given with --radius, else NaN
    std::vector<double> residuals;  // signed distance of each point
    ResidualStats stats;
};

// What a fit is asked for besides shape and points.  New fit parameters
// (a fixed radius, say) go here and into the adapters that read them.
struct FitOptions {
    Method method = Method::geom;
    bool singlePrecision = false;  // fit with approximate<float> (points rounded to float)
    // Finite and positive: fit with this radius fixed (the Rfix forms); only
    // for methods whose FitMethod::fixedRadius is set.  NaN: radius fitted.
    double radius = kNaN;
};

struct FitInput;  // the points in the library's types (fit.cpp)
// An adapter: fits the points of `in` and fills the primitive, the function
// name and the measures of `r`; throws InputError for degenerate sets.
using FitAdapter = void (*)(FitInput const& in, FitResult& r);

// One way to fit a shape.
struct FitMethod {
    Method method;
    FitAdapter asDouble;  // approximate<double>
    FitAdapter asFloat;   // approximate<float>
    bool fixedRadius = false;  // the adapters honour FitOptions::radius
};

struct ShapeInfo {
    Shape shape;
    const char* name;         // command-line name
    const char* title;        // for the report heading
    const char* noun;         // for messages: "a circle"
    const char* meaning;      // what the sign of a residual means
    int dim;                  // columns of the point file
    std::size_t minPoints;    // fewer is an input error
    std::vector<FitMethod> methods;  // first one is the default
};

std::vector<ShapeInfo> const& shapes();
ShapeInfo const& shapeInfo(Shape s);
// nullptr if `name` is not a shape name.
ShapeInfo const* shapeFromName(std::string const& name);
// nullptr if the shape is not fitted by `m`.
FitMethod const* findMethod(ShapeInfo const& info, Method m);
const char* methodName(Method m);
bool methodFromName(std::string const& name, Method& m);

// Parameters of the primitive in report order: key (JSON), label (table),
// 1 to 3 values and, for the iterative fits, their standard uncertainties
// (empty otherwise).
struct Parameter {
    Parameter(std::string k, std::string l, std::vector<double> v)
        : key(std::move(k)), label(std::move(l)), values(std::move(v)) {}
    std::string key, label;
    std::vector<double> values;
    std::vector<double> uncertainties;
};
std::vector<Parameter> parameters(FitResult const& r);

// What the sign of a residual means for the shape, for reports.
const char* residualMeaning(Shape s);

// Signed radial distance |p - centre| - radius of a point from a circle
// (positive outside), without underflow for tiny circles.
double radialResidual(math::Ccircle2<double> const& c, math::Cpoint2<double> const& p);

// The primitive scaled about the origin by 2^e (exact unless it under- or
// overflows).
Primitive scaledBy(Primitive const& p, int e);

// Signed distance of every point from the primitive in `r` (see
// residualMeaning; the library's distance functions), and their summary.
// Fills r.residuals and r.stats.
void computeResiduals(PointSet const& pts, FitResult& r);

// Runs the library's fit.  Checks the column count and the minimum number of
// points of the shape, that a fixed radius is offered by the method
// (std::logic_error otherwise: the command line refuses it first) and is
// finite and positive (InputError), refuses degenerate sets (all points equal, collinear
// points for a circle or plane, coplanar points for a sphere) with the
// reason, and lets CthrowBase from the library pass (all as InputError).
// Line directions and plane normals are turned so that their largest
// component is positive (d follows the normal).  Degeneracy is judged
// against the data's own extent, and the fit runs on the points scaled by the
// power of two that brings their extent near 1, its result scaled back (both
// exact), so neither depends on the unit of length.  With singlePrecision the points are rounded to float
// and fitted by approximate<float> (results reported in double as computed
// in float).
FitResult runFit(Shape shape, FitOptions const& options, PointSet const& pts);
inline FitResult runFit(Shape shape, Method method, PointSet const& pts, bool singlePrecision = false) {
    FitOptions o;
    o.method = method;
    o.singlePrecision = singlePrecision;
    return runFit(shape, o, pts);
}

// The library points of a point set (2D sets as planar points, 3D as spatial).
math::Cpoint2<double> point2(PointSet const& pts, std::size_t i);
math::Cpoint3<double> point3(PointSet const& pts, std::size_t i);

}  // namespace metrofit

#endif
