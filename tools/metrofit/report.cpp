#include "report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ostream>
#include <vector>

#ifndef METROFIT_VERSION
#define METROFIT_VERSION "unknown"
#endif

namespace metrofit {

namespace {

// Shortest text that reads back as the same double ("%.17g" is always
// enough; try shorter first so that 0.1 stays 0.1).
std::string exactNumber(double v) {
    char buf[40];
    for (int prec = 15; prec <= 17; ++prec) {
        std::snprintf(buf, sizeof buf, "%.*g", prec, v);
        if (std::strtod(buf, nullptr) == v) break;
    }
    return buf;
}

nlohmann::ordered_json number(double v) {
    // nlohmann writes non-finite numbers as null; make that explicit.
    if (!std::isfinite(v)) return nullptr;
    return v;
}

// Pads `s` on the right to `width` characters (counting UTF-8 code points).
std::string padRight(std::string const& s, std::size_t width) {
    std::size_t chars = 0;
    for (unsigned char c : s)
        if ((c & 0xC0) != 0x80) ++chars;
    return chars >= width ? s + " " : s + std::string(width - chars, ' ');
}

std::string padLeft(std::string const& s, std::size_t width) {
    return s.size() >= width ? s : std::string(width - s.size(), ' ') + s;
}

}  // namespace

std::string formatNumber(double v) {
    if (std::isnan(v)) return "n/a";
    if (v == 0.0) return "0";  // also -0: a sign on zero only confuses readers
    char buf[40];
    std::snprintf(buf, sizeof buf, "%.9g", v);
    return buf;
}

void writeTable(std::ostream& out, PointSet const& pts, FitResult const& r) {
    ShapeInfo const& info = shapeInfo(r.shape);
    out << info.title << " fit (" << methodName(r.method) << ", " << r.function << ") to " << pts.size()
        << " points from " << pts.source << "\n\n";

    // Labels padded to the longest one, values right-aligned in one column.
    std::size_t labelWidth = 20;
    for (Parameter const& p : parameters(r)) labelWidth = std::max(labelWidth, p.label.size() + 4);
    for (Measure const& m : r.measures) labelWidth = std::max(labelWidth, m.label.size() + 2);
    const std::size_t valueWidth = 18;
    const std::vector<Parameter> params = parameters(r);
    bool withUncertainty = false;
    for (Parameter const& p : params) withUncertainty = withUncertainty || !p.uncertainties.empty();
    out << "  " << padRight("parameter", labelWidth) << padLeft("value", valueWidth)
        << (withUncertainty ? padLeft("std. uncertainty", valueWidth) : "") << "\n";
    const char axes[3] = {'x', 'y', 'z'};
    for (Parameter const& p : params) {
        std::string name = p.label;
        if (p.key == "radius" && !std::isnan(r.fixedRadius)) name += " (fixed)";
        for (std::size_t k = 0; k < p.values.size(); ++k) {
            const std::string label = p.values.size() > 1 ? name + " " + axes[k] : name;
            out << "  " << padRight(label, labelWidth) << padLeft(formatNumber(p.values[k]), valueWidth);
            if (k < p.uncertainties.size()) out << padLeft(formatNumber(p.uncertainties[k]), valueWidth);
            out << "\n";
        }
    }
    if (r.iterations.reported)
        out << "  " << padRight("iterations", labelWidth) << padLeft(std::to_string(r.iterations.count), valueWidth)
            << (r.iterations.converged ? "  (converged)" : "  (not converged)") << "\n";

    out << "\n  " << padRight("deviation measure", labelWidth) << padLeft("value", valueWidth) << "\n";
    if (r.measures.empty()) out << "  (none reported by this fit)\n";
    for (Measure const& m : r.measures)
        out << "  " << padRight(m.label, labelWidth) << padLeft(formatNumber(m.value), valueWidth) << "\n";

    ResidualStats const& s = r.stats;
    out << "\n  residuals: " << residualMeaning(r.shape) << "\n";
    auto row = [&](std::string const& label, double v) {
        out << "  " << padRight(label, labelWidth) << padLeft(formatNumber(v), valueWidth) << "\n";
    };
    row("rms", s.rms);
    row("mean", s.mean);
    row("min", s.min);
    row("max", s.max);
    row("range (max - min)", s.max - s.min);
    if (pts.size() > 0) {
        out << "  " << padRight("largest |residual|", labelWidth) << padLeft(formatNumber(s.maxAbs), valueWidth)
            << "  at line " << pts.lineNumbers[s.maxAbsIndex] << "\n";
    }
}

nlohmann::ordered_json toJson(PointSet const& pts, FitResult const& r) {
    nlohmann::ordered_json j;
    j["tool"] = "metrofit";
    j["version"] = METROFIT_VERSION;
    j["fit"] = shapeInfo(r.shape).name;
    j["method"] = methodName(r.method);
    j["type"] = r.scalar;
    j["function"] = r.function;
    j["input"] = pts.source;
    j["points"] = pts.size();

    nlohmann::ordered_json params = nlohmann::ordered_json::object();
    for (Parameter const& p : parameters(r)) {
        if (p.values.size() == 1) {
            params[p.key] = number(p.values[0]);
        } else {
            nlohmann::ordered_json a = nlohmann::ordered_json::array();
            for (double v : p.values) a.push_back(number(v));
            params[p.key] = a;
        }
    }
    j["parameters"] = params;

    if (r.iterations.reported) {
        nlohmann::ordered_json unc = nlohmann::ordered_json::object();
        for (Parameter const& p : parameters(r)) {
            if (p.uncertainties.empty()) continue;
            if (p.uncertainties.size() == 1) {
                unc[p.key] = number(p.uncertainties[0]);
            } else {
                nlohmann::ordered_json a = nlohmann::ordered_json::array();
                for (double v : p.uncertainties) a.push_back(number(v));
                unc[p.key] = a;
            }
        }
        j["uncertainties"] = unc;
        nlohmann::ordered_json solver;
        solver["iterations"] = r.iterations.count;
        solver["converged"] = r.iterations.converged;
        solver["fixed_radius"] = number(r.fixedRadius);
        j["solver"] = solver;
    }

    nlohmann::ordered_json dev = nlohmann::ordered_json::object();
    for (Measure const& m : r.measures) dev[m.key] = number(m.value);
    j["deviations"] = dev;

    ResidualStats const& s = r.stats;
    nlohmann::ordered_json res;
    res["meaning"] = residualMeaning(r.shape);
    res["mean"] = number(s.mean);
    res["rms"] = number(s.rms);
    res["min"] = number(s.min);
    res["max"] = number(s.max);
    res["range"] = number(s.max - s.min);
    res["max_abs"] = number(s.maxAbs);
    if (pts.size() > 0) {
        res["max_abs_line"] = pts.lineNumbers[s.maxAbsIndex];
    } else {
        res["max_abs_line"] = nullptr;
    }
    j["residuals"] = res;
    return j;
}

void writeResiduals(std::ostream& out, PointSet const& pts, FitResult const& r) {
    out << (pts.dim == 3 ? "line,x,y,z,residual\n" : "line,x,y,residual\n");
    const std::size_t n = std::min(pts.size(), r.residuals.size());
    for (std::size_t i = 0; i < n; ++i) {
        out << pts.lineNumbers[i];
        for (int k = 0; k < pts.dim; ++k) out << ',' << exactNumber(pts.at(i, k));
        out << ',' << exactNumber(r.residuals[i]) << '\n';
        if (!out) return;  // the caller reports the failed write
    }
}

}  // namespace metrofit
