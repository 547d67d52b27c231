// Writers of metrofit's text outputs: the readable table, the JSON document
// and the residual file.
#ifndef METROFIT_REPORT_H
#define METROFIT_REPORT_H

#include "fit.h"
#include "pointfile.h"

#include <nlohmann/json.hpp>

#include <iosfwd>
#include <string>

namespace metrofit {

// A number for the table: 9 significant digits in %g style, "n/a" for NaN.
std::string formatNumber(double v);

// The readable report: heading, parameters (with a column of standard
// uncertainties and a line of iterations for the iterative fits; a fixed
// radius is marked so), deviation measures, residual summary with the line
// of the worst point.
void writeTable(std::ostream& out, PointSet const& pts, FitResult const& r);

// The same content as a JSON document (numbers at full precision, NaN as
// null), keys in the order below.  Layout:
//   { "tool", "version", "fit", "method", "type", "function", "input", "points",
//     "parameters": { <key>: number or [numbers] },
//     iterative fits only (circle, sphere, cylinder by geom):
//     "uncertainties": { <parameter key>: standard uncertainty or [ones] },
//     "solver": { "iterations", "converged", "fixed_radius" (null if fitted) },
//     "deviations": { <library measure key>: number },
//     "residuals": { "meaning", "mean", "rms", "min", "max", "range",
//                    "max_abs", "max_abs_line" } }
nlohmann::ordered_json toJson(PointSet const& pts, FitResult const& r);

// One line per point: "line,x,y[,z],residual" after a header line, values
// at full precision (17 significant digits), so the file reads back as the
// same numbers.  Stops at the first failed write (the stream's state tells).
void writeResiduals(std::ostream& out, PointSet const& pts, FitResult const& r);

}  // namespace metrofit

#endif
