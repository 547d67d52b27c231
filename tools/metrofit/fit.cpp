// runFit: the calls into the library's fitting functions (approximate<T> for
// T = double, or float on request) and the checks that turn the library's silent degenerate results (NaN,
// huge or arbitrary values, see math/approximate.h) into clear errors.
#include "fit.h"

#include <math/approximate.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <stdexcept>
#include <type_traits>

namespace metrofit {

namespace {

template <class T>
const char* typeName();
template <>
const char* typeName<double>() { return "double"; }
template <>
const char* typeName<float>() { return "float"; }

template <class T>
std::string functionName(const char* member) {
    return std::string("approximate<") + typeName<T>() + ">::" + member;
}

// A principal spread this many times smaller than the largest one counts as
// zero: the points are collinear (circle, plane) or coplanar (sphere).  Exact
// degenerate input leaves about sqrt(2^-52) ~ 1.5e-8 of rounding in the
// spreads; 1e-6 is well above that and far below any real measurement.
constexpr double kFlatRatio = 1e-6;

// A fitted radius this many times the diagonal of the points' bounding box
// is a straight line in disguise: over the measured extent L its arc departs
// from the chord by less than L / 8e6.
constexpr double kHugeRadius = 1e6;

// The points in the library's types; for float each coordinate is rounded
// to the nearest float.
template <class T>
std::vector<math::Cpoint2<T>> points2(PointSet const& pts) {
    std::vector<math::Cpoint2<T>> v;
    v.reserve(pts.size());
    for (std::size_t i = 0; i < pts.size(); ++i) v.emplace_back(T(pts.at(i, 0)), T(pts.at(i, 1)));
    return v;
}

template <class T>
std::vector<math::Cpoint3<T>> points3(PointSet const& pts) {
    std::vector<math::Cpoint3<T>> v;
    v.reserve(pts.size());
    for (std::size_t i = 0; i < pts.size(); ++i) v.emplace_back(T(pts.at(i, 0)), T(pts.at(i, 1)), T(pts.at(i, 2)));
    return v;
}

double boxDiagonal(PointSet const& pts) {
    double sum = 0.0;
    for (int k = 0; k < pts.dim; ++k) {
        double lo = pts.at(0, k), hi = lo;
        for (std::size_t i = 1; i < pts.size(); ++i) {
            lo = std::min(lo, pts.at(i, k));
            hi = std::max(hi, pts.at(i, k));
        }
        sum += (hi - lo) * (hi - lo);
    }
    return std::sqrt(sum);
}

bool allFinite(std::initializer_list<double> values) {
    for (double v : values)
        if (!std::isfinite(v)) return false;
    return true;
}

std::string num(double v) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.6g", v);
    return buf;
}

InputError degenerate(PointSet const& pts, std::string const& why) {
    return InputError(pts.source + ": degenerate point configuration: " + why);
}

// Principal spreads of a planar set: the eigenvalues of its centred 2x2
// scatter matrix [[sxx, sxy], [sxy, syy]] in closed form, largest first.
// Used only to recognise degenerate sets before fitting; computed here rather
// than with the library's recorded line fit because that one yields NaN for
// sets whose scatter is already diagonal (sxy = 0, e.g. axis-parallel lines
// or symmetric point sets), which are perfectly good input.
// The test is on the data as read, in double, whatever type fits them.
void spreads2(PointSet const& pts, double& large, double& small) {
    const std::size_t count = pts.size();
    const double n = static_cast<double>(count);
    double mx = 0.0, my = 0.0;
    for (std::size_t i = 0; i < count; ++i) {
        mx += pts.at(i, 0);
        my += pts.at(i, 1);
    }
    mx /= n;
    my /= n;
    double sxx = 0.0, syy = 0.0, sxy = 0.0;
    for (std::size_t i = 0; i < count; ++i) {
        const double u = pts.at(i, 0) - mx, v = pts.at(i, 1) - my;
        sxx += u * u;
        syy += v * v;
        sxy += u * v;
    }
    const double mean = 0.5 * (sxx + syy);
    const double root = std::hypot(0.5 * (sxx - syy), sxy);
    large = mean + root;
    small = std::max(0.0, mean - root);
}

void requireNotCollinear2(PointSet const& pts, const char* what) {
    double large = 0.0, small = 0.0;
    spreads2(pts, large, small);
    if (!(large > 0.0)) throw degenerate(pts, std::string("all points coincide, ") + what + " is not determined");
    // Variances, so the ratio of standard deviations is squared.
    if (!(small > kFlatRatio * kFlatRatio * large))
        throw degenerate(pts, std::string("the points are collinear, ") + what + " is not determined");
}

// The fits form sums of up to fourth powers of the coordinates; beyond these
// magnitudes they could overflow, so such input is refused up front.  double:
// (1e60)^4 = 1e240 leaves room for any count of points.  float: the algebraic
// fits convert their double sums to float (largest 3.4e38), and (1e6)^4 n
// stays below that up to n = 1e14; float carries about 7 digits, so larger
// coordinates would hold little of their measured detail anyway.
template <class T>
constexpr double maxCoordinate() {
    return std::is_same<T, float>::value ? 1e6 : 1e60;
}

template <class T>
void requireModestMagnitudes(PointSet const& pts) {
    for (std::size_t i = 0; i < pts.size(); ++i)
        for (int k = 0; k < pts.dim; ++k)
            if (!(std::fabs(pts.at(i, k)) <= maxCoordinate<T>()))
                throw InputError(pts.source + ":" + std::to_string(pts.lineNumbers[i]) + ": coordinate beyond +-" +
                                 num(maxCoordinate<T>()) + ", outside the range the " + typeName<T>() +
                                 " fits can sum");
}

// Coplanarity and collinearity of a spatial set from the principal spreads
// of the library's orthogonal plane fit, in double on the data as read.
// Needs at least 4 points (3 go to the three-point plane without spreads).
void spreads3(PointSet const& pts, math::CqPlaneGeomStdAbw<double>& rec) {
    math::Cplane3<double> plane;
    math::approximate<double>::fitPlaneGeom(points3<double>(pts), plane, rec);
}

template <class T>
FitResult fitLine2(Method method, PointSet const& pts) {
    using A = math::approximate<T>;
    double large = 0.0, small = 0.0;
    spreads2(pts, large, small);
    if (!(large > 0.0)) throw degenerate(pts, "all points coincide, a line is not determined");
    const std::vector<math::Cpoint2<T>> p = points2<T>(pts);
    FitResult r;
    r.shape = Shape::line2;
    r.method = method;

    math::Cline2<T> line;
    if (method == Method::lsq) {
        r.function = functionName<T>("fitLineLsq");
        const double meanSq = A::fitLineLsq(p, line);
        if (!line.isValid() || !allFinite({line.point().x, line.point().y, line.direction().x, line.direction().y}))
            throw degenerate(pts, "the algebraic line model a*x + b*y = 1 cannot represent a line through the "
                                  "origin (0, 0); use --method geom");
        r.measures.push_back({"meanSqDist", "mean squared distance (fitLineLsq)", meanSq});
    } else {
        // The line from the closed-formula fit, which handles axis-parallel
        // sets; the recorded (eigen) form only for its deviations, which it
        // leaves NaN ("n/a") when the scatter is already diagonal.
        r.function = functionName<T>("fitLineGeom");
        A::fitLineGeom(p, line);
        math::Cline2<T> eigenLine;
        math::CqLineGeom2DStdAbw<T> rec;
        A::fitLineGeom(p, eigenLine, rec);
        r.measures.push_back({"stdAbwOrth", "std. deviation across (stdAbwOrth)", rec.stdAbwOrth});
        r.measures.push_back({"stdAbwAlong", "std. deviation along (stdAbwAlong)", rec.stdAbwAlong});
    }
    if (!line.isValid()) throw degenerate(pts, "the fitted line is invalid");
    r.measures.push_back({"StdAbwLine2", "std. deviation of distances (StdAbwLine2)", A::StdAbwLine2(p, line)});
    r.point = {line.point().x, line.point().y, 0.0};
    r.direction = {line.direction().x, line.direction().y, 0.0};
    return r;
}

template <class T>
FitResult fitCircle(PointSet const& pts) {
    requireNotCollinear2(pts, "a circle");
    const std::vector<math::Cpoint2<T>> p = points2<T>(pts);
    FitResult r;
    r.shape = Shape::circle;
    r.method = Method::lsq;
    r.function = functionName<T>("fitCircleLsq");
    math::Ccircle2<T> c;
    math::CqCircleLsqStdAbw<T> rec;
    math::approximate<T>::fitCircleLsq(p, c, rec);
    if (!c.isValid() || !allFinite({c.center().x, c.center().y, c.radius()}) ||
        std::fabs(c.radius()) > kHugeRadius * boxDiagonal(pts))
        throw degenerate(pts, "the points lie too close to a straight line, the fitted radius (" +
                                  num(c.radius()) + ") is not meaningful");
    r.center = {c.center().x, c.center().y, 0.0};
    r.radius = std::fabs(c.radius());
    r.measures.push_back({"stdAbw", "std. deviation of radii (StdAbwCircle2)", rec.stdAbw});
    return r;
}

template <class T>
FitResult fitSphere(PointSet const& pts) {
    {
        // Coplanar points (a circle in space, or less) leave the sphere open.
        math::CqPlaneGeomStdAbw<double> rec;
        spreads3(pts, rec);
        if (!(rec.stdAbwMain > 0.0)) throw degenerate(pts, "all points coincide, a sphere is not determined");
        if (!(rec.stdAbwNormal > kFlatRatio * rec.stdAbwSecond))
            throw degenerate(pts, "the points are coplanar, a sphere is not determined");
    }
    FitResult r;
    r.shape = Shape::sphere;
    r.method = Method::lsq;
    r.function = functionName<T>("fitSphereLsq");
    math::Csphere3<T> s;
    math::CqSphereLsqStdAbw<T> rec;
    math::approximate<T>::fitSphereLsq(points3<T>(pts), s, rec);
    if (!s.isValid() || !allFinite({s.center().x, s.center().y, s.center().z, s.radius()}) ||
        std::fabs(s.radius()) > kHugeRadius * boxDiagonal(pts))
        throw degenerate(pts, "the points lie too close to a plane, the fitted radius (" + num(s.radius()) +
                                  ") is not meaningful");
    r.center = {s.center().x, s.center().y, s.center().z};
    // The algebraic sphere fit returns a negative radius when the origin lies
    // inside the sphere; the report gives the geometric radius |r|.
    r.radius = std::fabs(s.radius());
    r.measures.push_back({"stdAbw", "std. deviation of radii (StdAbwSphere)", rec.stdAbw});
    return r;
}

template <class T>
FitResult fitPlane(Method method, PointSet const& pts) {
    using A = math::approximate<T>;
    FitResult r;
    r.shape = Shape::plane;
    r.method = method;
    if (pts.size() == 3) {
        // Three points go to the three-point plane, which prints a message
        // when the cosine of the angle between p1p2 and p1p3 rounds to 1
        // (angles below about 1e-8): refuse angles whose sine is below the
        // flatness ratio before that can happen.
        const double ux = pts.at(1, 0) - pts.at(0, 0), uy = pts.at(1, 1) - pts.at(0, 1), uz = pts.at(1, 2) - pts.at(0, 2);
        const double wx = pts.at(2, 0) - pts.at(0, 0), wy = pts.at(2, 1) - pts.at(0, 1), wz = pts.at(2, 2) - pts.at(0, 2);
        const double cx = uy * wz - uz * wy, cy = uz * wx - ux * wz, cz = ux * wy - uy * wx;
        const double lu = std::sqrt(ux * ux + uy * uy + uz * uz), lw = std::sqrt(wx * wx + wy * wy + wz * wz);
        if (!(std::sqrt(cx * cx + cy * cy + cz * cz) > kFlatRatio * lu * lw))
            throw degenerate(pts, "the three points are collinear, a plane is not determined");
    }
    if (pts.size() > 3) {
        math::CqPlaneGeomStdAbw<double> check;
        spreads3(pts, check);
        if (!(check.stdAbwMain > 0.0)) throw degenerate(pts, "all points coincide, a plane is not determined");
        if (!(check.stdAbwSecond > kFlatRatio * check.stdAbwMain))
            throw degenerate(pts, "the points are collinear, a plane is not determined");
    }
    const std::vector<math::Cpoint3<T>> p = points3<T>(pts);
    math::Cplane3<T> plane;
    if (method == Method::fast) {
        r.function = functionName<T>("fitPlaneGeomFast");
        const math::CqPlaneGeomFast<T> prm;
        A::fitPlaneGeomFast(p, plane, prm);
    } else {
        r.function = functionName<T>("fitPlaneGeom");
        math::CqPlaneGeomStdAbw<T> rec;
        A::fitPlaneGeom(p, plane, rec);
        r.measures.push_back({"stdAbwNormal", "std. deviation along the normal (stdAbwNormal)", rec.stdAbwNormal});
        r.measures.push_back({"stdAbwSecond", "in-plane spread, minor (stdAbwSecond)", rec.stdAbwSecond});
        r.measures.push_back({"stdAbwMain", "in-plane spread, major (stdAbwMain)", rec.stdAbwMain});
    }
    if (!plane.isValid() || !allFinite({plane.normal().x, plane.normal().y, plane.normal().z, plane.d()}))
        throw degenerate(pts, "the fitted plane is invalid");
    r.normal = {plane.normal().x, plane.normal().y, plane.normal().z};
    r.d = plane.d();
    return r;
}

template <class T>
FitResult fitLine3(PointSet const& pts) {
    FitResult r;
    r.shape = Shape::line3;
    r.method = Method::geom;
    r.function = functionName<T>("fitLineGeom");
    math::Cline3<T> line;
    math::CqLineGeom3DStdAbw<T> rec;
    math::approximate<T>::fitLineGeom(points3<T>(pts), line, rec);
    if (pts.size() > 2 && !(rec.stdAbwMain > 0.0)) throw degenerate(pts, "all points coincide, a line is not determined");
    if (!line.isValid() || !allFinite({line.point().x, line.point().y, line.point().z, line.direction().x,
                                       line.direction().y, line.direction().z}))
        throw degenerate(pts, "the points coincide, a line is not determined");
    r.point = {line.point().x, line.point().y, line.point().z};
    r.direction = {line.direction().x, line.direction().y, line.direction().z};
    r.measures.push_back({"stdAbwMain", "spread along the line (stdAbwMain)", rec.stdAbwMain});
    r.measures.push_back({"stdAbwSecond", "spread across, major (stdAbwSecond)", rec.stdAbwSecond});
    r.measures.push_back({"stdAbwThird", "spread across, minor (stdAbwThird)", rec.stdAbwThird});
    return r;
}

// Line directions and plane normals come with the sign the eigen
// decomposition happened to produce.  For reports that read the same from
// run to run and between methods, turn them so that their largest component
// is positive (the first of equal ones); a plane's d changes sign with its
// normal.  The primitive itself is unchanged.
bool orient(std::array<double, 3>& v) {
    std::size_t k = 0;
    for (std::size_t i = 1; i < 3; ++i)
        if (std::fabs(v[i]) > std::fabs(v[k])) k = i;
    if (!(v[k] < 0.0)) return false;
    for (double& c : v) c = -c;
    return true;
}

template <class T>
FitResult fitAs(Shape shape, Method method, PointSet const& pts) {
    requireModestMagnitudes<T>(pts);
    switch (shape) {
        case Shape::line2: return fitLine2<T>(method, pts);
        case Shape::line3: return fitLine3<T>(pts);
        case Shape::circle: return fitCircle<T>(pts);
        case Shape::sphere: return fitSphere<T>(pts);
        case Shape::plane: return fitPlane<T>(method, pts);
    }
    throw std::logic_error("metrofit: unknown shape");
}

}  // namespace

FitResult runFit(Shape shape, Method method, PointSet const& pts, bool singlePrecision) {
    ShapeInfo const& info = shapeInfo(shape);
    if (pts.dim != info.dim)
        throw InputError(pts.source + ": the " + info.name + " fit needs " + std::to_string(info.dim) +
                         " coordinates per point");
    if (pts.size() < info.minPoints)
        throw InputError(pts.source + ": the " + info.name + " fit needs at least " +
                         std::to_string(info.minPoints) + " points, found " + std::to_string(pts.size()));
    FitResult r = singlePrecision ? fitAs<float>(shape, method, pts) : fitAs<double>(shape, method, pts);
    r.scalar = singlePrecision ? "float" : "double";
    if (shape == Shape::plane) {
        if (orient(r.normal)) r.d = -r.d;
    } else if (shape == Shape::line2 || shape == Shape::line3) {
        orient(r.direction);
    }
    computeResiduals(pts, r);
    return r;
}

}  // namespace metrofit
