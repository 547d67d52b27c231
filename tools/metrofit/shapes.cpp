// Shape table, parameter lists and residuals: the parts of the fit record
// that do not call the library.
#include "fit.h"

#include <cmath>
#include <stdexcept>

namespace metrofit {

std::vector<ShapeInfo> const& shapes() {
    // Minimum counts: the library's own minimum where it has one (4 for the
    // algebraic circle), otherwise the count that determines the primitive
    // (2 points a line, 3 a plane, 4 a sphere).
    static const std::vector<ShapeInfo> table = {
        {Shape::line2, "line2", "planar line", 2, 2, {Method::geom, Method::lsq}},
        {Shape::line3, "line3", "spatial line", 3, 2, {Method::geom}},
        {Shape::circle, "circle", "circle", 2, 4, {Method::lsq}},
        {Shape::sphere, "sphere", "sphere", 3, 4, {Method::lsq}},
        {Shape::plane, "plane", "plane", 3, 3, {Method::geom, Method::fast}},
    };
    return table;
}

ShapeInfo const& shapeInfo(Shape s) {
    for (ShapeInfo const& info : shapes())
        if (info.shape == s) return info;
    throw std::logic_error("metrofit: unknown shape");
}

bool shapeFromName(std::string const& name, Shape& s) {
    for (ShapeInfo const& info : shapes()) {
        if (name == info.name) {
            s = info.shape;
            return true;
        }
    }
    return false;
}

const char* methodName(Method m) {
    switch (m) {
        case Method::lsq: return "lsq";
        case Method::geom: return "geom";
        case Method::fast: return "fast";
    }
    return "?";
}

bool methodFromName(std::string const& name, Method& m) {
    for (Method c : {Method::lsq, Method::geom, Method::fast}) {
        if (name == methodName(c)) {
            m = c;
            return true;
        }
    }
    return false;
}

std::vector<Parameter> parameters(FitResult const& r) {
    auto v2 = [](std::array<double, 3> const& a) { return std::vector<double>{a[0], a[1]}; };
    auto v3 = [](std::array<double, 3> const& a) { return std::vector<double>{a[0], a[1], a[2]}; };
    switch (r.shape) {
        case Shape::line2:
            return {{"point", "point", v2(r.point)}, {"direction", "direction", v2(r.direction)}};
        case Shape::line3:
            return {{"point", "point", v3(r.point)}, {"direction", "direction", v3(r.direction)}};
        case Shape::circle:
            return {{"center", "centre", v2(r.center)}, {"radius", "radius", {r.radius}}};
        case Shape::sphere:
            return {{"center", "centre", v3(r.center)}, {"radius", "radius", {r.radius}}};
        case Shape::plane:
            return {{"normal", "normal", v3(r.normal)}, {"d", "d (n.x + d = 0)", {r.d}}};
    }
    return {};
}

const char* residualMeaning(Shape s) {
    switch (s) {
        case Shape::line2: return "signed distance from the line, positive to the left of its direction";
        case Shape::line3: return "distance from the line (radial, never negative)";
        case Shape::circle: return "radial distance from the circle, positive outside";
        case Shape::sphere: return "radial distance from the sphere, positive outside";
        case Shape::plane: return "signed distance from the plane, positive on the side the normal points to";
    }
    return "";
}

void computeResiduals(PointSet const& pts, FitResult& r) {
    const std::size_t n = pts.size();
    r.residuals.assign(n, 0.0);
    for (std::size_t i = 0; i < n; ++i) {
        const double x = pts.at(i, 0), y = pts.at(i, 1), z = pts.dim == 3 ? pts.at(i, 2) : 0.0;
        double res = 0.0;
        switch (r.shape) {
            case Shape::line2:
                // (p - q) · (-dy, dx): the left normal of the oriented line.
                res = (y - r.point[1]) * r.direction[0] - (x - r.point[0]) * r.direction[1];
                break;
            case Shape::line3: {
                // |(p - q) × d| with a unit direction d.
                const double px = x - r.point[0], py = y - r.point[1], pz = z - r.point[2];
                const double cx = py * r.direction[2] - pz * r.direction[1];
                const double cy = pz * r.direction[0] - px * r.direction[2];
                const double cz = px * r.direction[1] - py * r.direction[0];
                res = std::sqrt(cx * cx + cy * cy + cz * cz);
                break;
            }
            case Shape::circle:
                res = std::hypot(x - r.center[0], y - r.center[1]) - std::fabs(r.radius);
                break;
            case Shape::sphere: {
                const double dx = x - r.center[0], dy = y - r.center[1], dz = z - r.center[2];
                res = std::sqrt(dx * dx + dy * dy + dz * dz) - std::fabs(r.radius);
                break;
            }
            case Shape::plane:
                res = r.normal[0] * x + r.normal[1] * y + r.normal[2] * z + r.d;
                break;
        }
        r.residuals[i] = res;
    }

    ResidualStats s;
    if (n > 0) {
        double sum = 0.0, sumSq = 0.0;
        s.min = s.max = r.residuals[0];
        for (std::size_t i = 0; i < n; ++i) {
            const double v = r.residuals[i];
            sum += v;
            sumSq += v * v;
            if (v < s.min) s.min = v;
            if (v > s.max) s.max = v;
            if (std::fabs(v) > s.maxAbs) {
                s.maxAbs = std::fabs(v);
                s.maxAbsIndex = i;
            }
        }
        s.mean = sum / static_cast<double>(n);
        s.rms = std::sqrt(sumSq / static_cast<double>(n));
    }
    r.stats = s;
}

}  // namespace metrofit
