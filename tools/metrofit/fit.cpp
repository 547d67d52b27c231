// runFit: the calls into the library's fitting functions (approximate<double>)
// and the checks that turn the library's silent degenerate results (NaN,
// huge or arbitrary values, see math/approximate.h) into clear errors.
#include "fit.h"

#include <math/approximate.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace metrofit {

namespace {

using A = math::approximate<double>;

// A principal spread this many times smaller than the largest one counts as
// zero: the points are collinear (circle, plane) or coplanar (sphere).  Exact
// degenerate input leaves about sqrt(2^-52) ~ 1.5e-8 of rounding in the
// spreads; 1e-6 is well above that and far below any real measurement.
constexpr double kFlatRatio = 1e-6;

// A fitted radius this many times the diagonal of the points' bounding box
// is a straight line in disguise: over the measured extent L its arc departs
// from the chord by less than L / 8e6.
constexpr double kHugeRadius = 1e6;

std::vector<math::Cpoint2<double>> points2(PointSet const& pts) {
    std::vector<math::Cpoint2<double>> v;
    v.reserve(pts.size());
    for (std::size_t i = 0; i < pts.size(); ++i) v.emplace_back(pts.at(i, 0), pts.at(i, 1));
    return v;
}

std::vector<math::Cpoint3<double>> points3(PointSet const& pts) {
    std::vector<math::Cpoint3<double>> v;
    v.reserve(pts.size());
    for (std::size_t i = 0; i < pts.size(); ++i) v.emplace_back(pts.at(i, 0), pts.at(i, 1), pts.at(i, 2));
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
void spreads2(std::vector<math::Cpoint2<double>> const& p, double& large, double& small) {
    const double n = static_cast<double>(p.size());
    double mx = 0.0, my = 0.0;
    for (auto const& q : p) {
        mx += q.x;
        my += q.y;
    }
    mx /= n;
    my /= n;
    double sxx = 0.0, syy = 0.0, sxy = 0.0;
    for (auto const& q : p) {
        const double u = q.x - mx, v = q.y - my;
        sxx += u * u;
        syy += v * v;
        sxy += u * v;
    }
    const double mean = 0.5 * (sxx + syy);
    const double root = std::hypot(0.5 * (sxx - syy), sxy);
    large = mean + root;
    small = std::max(0.0, mean - root);
}

void requireNotCollinear2(std::vector<math::Cpoint2<double>> const& p, PointSet const& pts, const char* what) {
    double large = 0.0, small = 0.0;
    spreads2(p, large, small);
    if (!(large > 0.0)) throw degenerate(pts, std::string("all points coincide, ") + what + " is not determined");
    // Variances, so the ratio of standard deviations is squared.
    if (!(small > kFlatRatio * kFlatRatio * large))
        throw degenerate(pts, std::string("the points are collinear, ") + what + " is not determined");
}

// The fits form sums of up to fourth powers of the coordinates; beyond this
// magnitude they could overflow, so such input is refused up front.
constexpr double kMaxCoordinate = 1e60;

void requireModestMagnitudes(PointSet const& pts) {
    for (std::size_t i = 0; i < pts.size(); ++i)
        for (int k = 0; k < pts.dim; ++k)
            if (!(std::fabs(pts.at(i, k)) <= kMaxCoordinate))
                throw InputError(pts.source + ":" + std::to_string(pts.lineNumbers[i]) +
                                 ": coordinate beyond +-1e60, outside the range the fits can sum");
}

FitResult fitLine2(Method method, PointSet const& pts) {
    const std::vector<math::Cpoint2<double>> p = points2(pts);
    FitResult r;
    r.shape = Shape::line2;
    r.method = method;
    double large = 0.0, small = 0.0;
    spreads2(p, large, small);
    if (!(large > 0.0)) throw degenerate(pts, "all points coincide, a line is not determined");

    math::Cline2<double> line;
    if (method == Method::lsq) {
        r.function = "approximate<double>::fitLineLsq";
        const double meanSq = A::fitLineLsq(p, line);
        if (!line.isValid() || !allFinite({line.point().x, line.point().y, line.direction().x, line.direction().y}))
            throw degenerate(pts, "the algebraic line model a*x + b*y = 1 cannot represent a line through the "
                                  "origin (0, 0); use --method geom");
        r.measures.push_back({"meanSqDist", "mean squared distance (fitLineLsq)", meanSq});
    } else {
        // The line from the closed-formula fit, which handles axis-parallel
        // sets; the recorded (eigen) form only for its deviations, which it
        // leaves NaN ("n/a") when the scatter is already diagonal.
        r.function = "approximate<double>::fitLineGeom";
        A::fitLineGeom(p, line);
        math::Cline2<double> eigenLine;
        math::CqLineGeom2DStdAbw<double> rec;
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

FitResult fitCircle(PointSet const& pts) {
    const std::vector<math::Cpoint2<double>> p = points2(pts);
    requireNotCollinear2(p, pts, "a circle");
    FitResult r;
    r.shape = Shape::circle;
    r.method = Method::lsq;
    r.function = "approximate<double>::fitCircleLsq";
    math::Ccircle2<double> c;
    math::CqCircleLsqStdAbw<double> rec;
    A::fitCircleLsq(p, c, rec);
    if (!c.isValid() || !allFinite({c.center().x, c.center().y, c.radius()}) ||
        std::fabs(c.radius()) > kHugeRadius * boxDiagonal(pts))
        throw degenerate(pts, "the points lie too close to a straight line, the fitted radius (" +
                                  num(c.radius()) + ") is not meaningful");
    r.center = {c.center().x, c.center().y, 0.0};
    r.radius = std::fabs(c.radius());
    r.measures.push_back({"stdAbw", "std. deviation of radii (StdAbwCircle2)", rec.stdAbw});
    return r;
}

FitResult fitSphere(PointSet const& pts) {
    const std::vector<math::Cpoint3<double>> p = points3(pts);
    {
        // Coplanar points (a circle in space, or less) leave the sphere open.
        math::Cplane3<double> plane;
        math::CqPlaneGeomStdAbw<double> rec;
        A::fitPlaneGeom(p, plane, rec);
        if (!(rec.stdAbwMain > 0.0)) throw degenerate(pts, "all points coincide, a sphere is not determined");
        if (!(rec.stdAbwNormal > kFlatRatio * rec.stdAbwSecond))
            throw degenerate(pts, "the points are coplanar, a sphere is not determined");
    }
    FitResult r;
    r.shape = Shape::sphere;
    r.method = Method::lsq;
    r.function = "approximate<double>::fitSphereLsq";
    math::Csphere3<double> s;
    math::CqSphereLsqStdAbw<double> rec;
    A::fitSphereLsq(p, s, rec);
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

FitResult fitPlane(Method method, PointSet const& pts) {
    const std::vector<math::Cpoint3<double>> p = points3(pts);
    FitResult r;
    r.shape = Shape::plane;
    r.method = method;
    math::CqPlaneGeomStdAbw<double> rec;
    math::Cplane3<double> plane;
    if (p.size() == 3) {
        // Three points go to the three-point plane, which prints a message
        // when the cosine of the angle between p1p2 and p1p3 rounds to 1
        // (angles below about 1e-8): refuse angles whose sine is below the
        // flatness ratio before that can happen.
        const double ux = p[1].x - p[0].x, uy = p[1].y - p[0].y, uz = p[1].z - p[0].z;
        const double wx = p[2].x - p[0].x, wy = p[2].y - p[0].y, wz = p[2].z - p[0].z;
        const double cx = uy * wz - uz * wy, cy = uz * wx - ux * wz, cz = ux * wy - uy * wx;
        const double lu = std::sqrt(ux * ux + uy * uy + uz * uz), lw = std::sqrt(wx * wx + wy * wy + wz * wz);
        if (!(std::sqrt(cx * cx + cy * cy + cz * cz) > kFlatRatio * lu * lw))
            throw degenerate(pts, "the three points are collinear, a plane is not determined");
    }
    // The orthogonal fit with its record also tells whether the points span a
    // plane at all (for the fast fit too).
    A::fitPlaneGeom(p, plane, rec);
    if (p.size() > 3) {
        if (!(rec.stdAbwMain > 0.0)) throw degenerate(pts, "all points coincide, a plane is not determined");
        if (!(rec.stdAbwSecond > kFlatRatio * rec.stdAbwMain))
            throw degenerate(pts, "the points are collinear, a plane is not determined");
    }
    if (method == Method::fast) {
        r.function = "approximate<double>::fitPlaneGeomFast";
        const math::CqPlaneGeomFast<double> prm;
        A::fitPlaneGeomFast(p, plane, prm);
    } else {
        r.function = "approximate<double>::fitPlaneGeom";
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

FitResult fitLine3(PointSet const& pts) {
    const std::vector<math::Cpoint3<double>> p = points3(pts);
    FitResult r;
    r.shape = Shape::line3;
    r.method = Method::geom;
    r.function = "approximate<double>::fitLineGeom";
    math::Cline3<double> line;
    math::CqLineGeom3DStdAbw<double> rec;
    A::fitLineGeom(p, line, rec);
    if (p.size() > 2 && !(rec.stdAbwMain > 0.0)) throw degenerate(pts, "all points coincide, a line is not determined");
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

}  // namespace

FitResult runFit(Shape shape, Method method, PointSet const& pts) {
    ShapeInfo const& info = shapeInfo(shape);
    if (pts.dim != info.dim)
        throw InputError(pts.source + ": the " + info.name + " fit needs " + std::to_string(info.dim) +
                         " coordinates per point");
    if (pts.size() < info.minPoints)
        throw InputError(pts.source + ": the " + info.name + " fit needs at least " +
                         std::to_string(info.minPoints) + " points, found " + std::to_string(pts.size()));
    requireModestMagnitudes(pts);
    FitResult r;
    switch (shape) {
        case Shape::line2: r = fitLine2(method, pts); break;
        case Shape::line3: r = fitLine3(pts); break;
        case Shape::circle: r = fitCircle(pts); break;
        case Shape::sphere: r = fitSphere(pts); break;
        case Shape::plane: r = fitPlane(method, pts); break;
    }
    if (shape == Shape::plane) {
        if (orient(r.normal)) r.d = -r.d;
    } else if (shape == Shape::line2 || shape == Shape::line3) {
        orient(r.direction);
    }
    computeResiduals(pts, r);
    return r;
}

}  // namespace metrofit
