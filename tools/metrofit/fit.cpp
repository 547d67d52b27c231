// runFit and the shape table: the calls into the library's fitting functions
// (approximate<T> for T = double, or float on request) and the checks that
// turn the library's silent degenerate results (NaN, huge or arbitrary
// values, see math/approximate.h) into clear errors.
#include "fit.h"

#include <math/approximate.h>
#include <math/geometric.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <stdexcept>
#include <type_traits>

namespace metrofit {

// The points of one fit in the library's types, as T, scaled by 2^scaleExp
// to about unit extent (see runFit).
struct FitInput {
    FitInput(PointSet const& p, ShapeInfo const& i, FitOptions const& o) : pts(p), info(i), options(o) {}
    PointSet const& pts;
    ShapeInfo const& info;
    FitOptions const& options;
    int scaleExp = 0;
    double diagonal = 0.0;  // of the bounding box of the (scaled) points
    std::vector<math::Cpoint2<double>> d2;
    std::vector<math::Cpoint3<double>> d3;
    std::vector<math::Cpoint2<float>> f2;
    std::vector<math::Cpoint3<float>> f3;

    template <class T>
    std::vector<math::Cpoint2<T>> const& p2() const {
        if constexpr (std::is_same<T, float>::value) return f2; else return d2;
    }
    template <class T>
    std::vector<math::Cpoint3<T>> const& p3() const {
        if constexpr (std::is_same<T, float>::value) return f3; else return d3;
    }
};

math::Cpoint2<double> point2(PointSet const& pts, std::size_t i) { return {pts.at(i, 0), pts.at(i, 1)}; }
math::Cpoint3<double> point3(PointSet const& pts, std::size_t i) {
    return {pts.at(i, 0), pts.at(i, 1), pts.dim == 3 ? pts.at(i, 2) : 0.0};
}

namespace {

template <class T>
const char* typeName() { return std::is_same<T, float>::value ? "float" : "double"; }

template <class T>
std::string functionName(const char* member) {
    return std::string("approximate<") + typeName<T>() + ">::" + member;
}

// A principal spread this many times smaller than the largest one counts as
// zero: the points are collinear (circle, plane) or coplanar (sphere).  The
// spreads are taken on the points scaled to unit extent, where exact
// degenerate input leaves about sqrt(2^-52) ~ 1.5e-8 of rounding; 1e-6 is well
// above that and far below any real measurement.
constexpr double kFlatRatio = 1e-6;

// A fitted radius this many times the diagonal of the points' bounding box
// is a straight line in disguise: over the measured extent L its arc departs
// from the chord by less than L / 8e6.
constexpr double kHugeRadius = 1e6;

std::string num(double v) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.6g", v);
    return buf;
}

InputError degenerate(FitInput const& in, std::string const& why) {
    return InputError(in.pts.source + ": degenerate point configuration: " + why);
}
InputError notDetermined(FitInput const& in, const char* why) {
    return degenerate(in, std::string(why) + ", " + in.info.noun + " is not determined");
}

// The fits form sums of up to fourth powers of the coordinates; beyond these
// magnitudes they could overflow, so such input is refused up front.  double:
// (1e60)^4 = 1e240 leaves room for any count of points.  float: the algebraic
// fits convert their double sums to float (largest 3.4e38), and (1e6)^4 n
// stays below that up to n = 1e14; float carries about 7 digits, so larger
// coordinates would hold little of their measured detail anyway.
template <class T>
constexpr double maxCoordinate() { return std::is_same<T, float>::value ? 1e6 : 1e60; }

template <class T>
void requireModestMagnitudes(PointSet const& pts) {
    for (std::size_t i = 0; i < pts.size(); ++i)
        for (int k = 0; k < pts.dim; ++k)
            if (!(std::fabs(pts.at(i, k)) <= maxCoordinate<T>()))
                throw InputError(pts.source + ":" + std::to_string(pts.lineNumbers[i]) + ": coordinate beyond +-" +
                                 num(maxCoordinate<T>()) + ", outside the range the " + typeName<T>() +
                                 " fits can sum");
}

// The points' bounding box (planar points in z = 0), largest side first.
struct Extent {
    math::CboundingBox3<double> box;
    double size = 0.0;
};
Extent extentOf(PointSet const& pts) {
    Extent e;
    for (std::size_t i = 0; i < pts.size(); ++i) {
        if (i == 0) e.box = math::CboundingBox3<double>(point3(pts, 0), point3(pts, 0));
        e.box.add(point3(pts, i));
    }
    const math::Cpoint3<double> side = e.box.max() - e.box.min();
    e.size = std::max({side.x, side.y, side.z});
    return e;
}

// Principal spreads of the points, scaled to unit extent about the centre of
// their box, from the library's orthogonal plane fit (planar points lie in
// z = 0 and have a zero normal spread).  In double on the data as read,
// whatever type fits them.  Needs at least 4 points.
math::CqPlaneGeomStdAbw<double> unitSpreads(FitInput const& in, Extent const& extent) {
    const math::Cpoint3<double> centre = (extent.box.min() + extent.box.max()) * 0.5;
    std::vector<math::Cpoint3<double>> p(in.pts.size());
    for (std::size_t i = 0; i < p.size(); ++i) p[i] = (point3(in.pts, i) - centre) / extent.size;
    math::Cplane3<double> plane;
    math::CqPlaneGeomStdAbw<double> rec;
    math::approximate<double>::fitPlaneGeom(p, plane, rec);
    return rec;
}

// The second spread vanishing: the points lie on a line.
void requireNotCollinear(FitInput const& in, Extent const& extent) {
    const math::CqPlaneGeomStdAbw<double> s = unitSpreads(in, extent);
    if (!(s.stdAbwSecond > kFlatRatio * s.stdAbwMain)) throw notDetermined(in, "the points are collinear");
}

// The result of a float fit in double.
template <class T>
math::Cpoint2<double> toDouble(math::Cpoint2<T> const& p) { return {double(p.x), double(p.y)}; }
template <class T>
math::Cpoint3<double> toDouble(math::Cpoint3<T> const& p) { return {double(p.x), double(p.y), double(p.z)}; }
template <class T>
math::Cdirec2<double> toDouble(math::Cdirec2<T> const& d) { return {double(d.x), double(d.y), true}; }
template <class T>
math::Cdirec3<double> toDouble(math::Cdirec3<T> const& d) { return {double(d.x), double(d.y), double(d.z), true}; }

template <class P>
bool finite(P const& p) {
    for (unsigned k = 0; k < sizeof(P) / sizeof(p.x); ++k)
        if (!std::isfinite(p[k])) return false;
    return true;
}

void addMeasure(FitResult& r, const char* key, const char* label, double value, int power = 1) {
    r.measures.push_back({key, label, value, power});
}

// ---- adapters, one per table entry ---------------------------------------

template <class T>
void line2Geom(FitInput const& in, FitResult& r) {
    using A = math::approximate<T>;
    auto const& p = in.p2<T>();
    // The line from the closed-formula fit, which handles axis-parallel sets;
    // the recorded (eigen) form only for its deviations, which it leaves NaN
    // ("n/a") when the scatter is already diagonal.
    r.function = functionName<T>("fitLineGeom");
    math::Cline2<T> line, eigenLine;
    A::fitLineGeom(p, line);
    math::CqLineGeom2DStdAbw<T> rec;
    A::fitLineGeom(p, eigenLine, rec);
    if (!line.isValid()) throw degenerate(in, "the fitted line is invalid");
    addMeasure(r, "stdAbwOrth", "std. deviation across (stdAbwOrth)", rec.stdAbwOrth);
    addMeasure(r, "stdAbwAlong", "std. deviation along (stdAbwAlong)", rec.stdAbwAlong);
    addMeasure(r, "StdAbwLine2", "std. deviation of distances (StdAbwLine2)", A::StdAbwLine2(p, line));
    r.primitive = math::Cline2<double>(toDouble(line.point()), toDouble(line.direction()));
}

template <class T>
void line2Lsq(FitInput const& in, FitResult& r) {
    using A = math::approximate<T>;
    auto const& p = in.p2<T>();
    r.function = functionName<T>("fitLineLsq");
    math::Cline2<T> line;
    const double meanSq = A::fitLineLsq(p, line);
    if (!line.isValid() || !finite(line.point()) || !finite(line.direction()))
        throw degenerate(in, "the algebraic line model a*x + b*y = 1 cannot represent a line through the origin "
                             "(0, 0); use --method geom");
    addMeasure(r, "meanSqDist", "mean squared distance (fitLineLsq)", meanSq, 2);
    addMeasure(r, "StdAbwLine2", "std. deviation of distances (StdAbwLine2)", A::StdAbwLine2(p, line));
    r.primitive = math::Cline2<double>(toDouble(line.point()), toDouble(line.direction()));
}

template <class T>
void line3Geom(FitInput const& in, FitResult& r) {
    r.function = functionName<T>("fitLineGeom");
    math::Cline3<T> line;
    math::CqLineGeom3DStdAbw<T> rec;
    math::approximate<T>::fitLineGeom(in.p3<T>(), line, rec);
    if (!line.isValid() || !finite(line.point()) || !finite(line.direction()))
        throw degenerate(in, "the fitted line is invalid");
    addMeasure(r, "stdAbwMain", "spread along the line (stdAbwMain)", rec.stdAbwMain);
    addMeasure(r, "stdAbwSecond", "spread across, major (stdAbwSecond)", rec.stdAbwSecond);
    addMeasure(r, "stdAbwThird", "spread across, minor (stdAbwThird)", rec.stdAbwThird);
    r.primitive = math::Cline3<double>(toDouble(line.point()), toDouble(line.direction()));
}

template <class T>
void circleLsq(FitInput const& in, FitResult& r) {
    r.function = functionName<T>("fitCircleLsq");
    math::Ccircle2<T> c;
    math::CqCircleLsqStdAbw<T> rec;
    math::approximate<T>::fitCircleLsq(in.p2<T>(), c, rec);
    if (!c.isValid() || !finite(c.center()) || !std::isfinite(c.radius()) ||
        std::fabs(c.radius()) > kHugeRadius * in.diagonal)
        throw degenerate(in, "the points lie too close to a straight line, the fitted radius (" +
                                 num(std::ldexp(double(c.radius()), -in.scaleExp)) + ") is not meaningful");
    addMeasure(r, "stdAbw", "std. deviation of radii (StdAbwCircle2)", rec.stdAbw);
    r.primitive = math::Ccircle2<double>(toDouble(c.center()), double(c.radius()));
}

template <class T>
void sphereLsq(FitInput const& in, FitResult& r) {
    r.function = functionName<T>("fitSphereLsq");
    math::Csphere3<T> s;
    math::CqSphereLsqStdAbw<T> rec;
    math::approximate<T>::fitSphereLsq(in.p3<T>(), s, rec);
    if (!s.isValid() || !finite(s.center()) || !std::isfinite(s.radius()) ||
        std::fabs(s.radius()) > kHugeRadius * in.diagonal)
        throw degenerate(in, "the points lie too close to a plane, the fitted radius (" +
                                 num(std::ldexp(double(s.radius()), -in.scaleExp)) + ") is not meaningful");
    addMeasure(r, "stdAbw", "std. deviation of radii (StdAbwSphere)", rec.stdAbw);
    // The algebraic sphere fit returns a negative radius when the origin lies
    // inside the sphere; the geometric radius is |r|.
    r.primitive = math::Csphere3<double>(toDouble(s.center()), std::fabs(double(s.radius())));
}

// ---- iterative geometric fits (circle, sphere, cylinder) ------------------

// The fixed radius of FitOptions at the fit's scale, as T.
template <class T>
T scaledRadius(FitInput const& in) { return T(std::ldexp(in.options.radius, in.scaleExp)); }

bool radiusFixed(FitInput const& in) { return std::isfinite(in.options.radius); }

// Iterations, sums and uncertainties of a geometric fit's record; throws
// when the library returned no valid primitive (refused input or no
// convergence within its limit).
template <class Rec>
void takeRecord(FitInput const& in, FitResult& r, Rec const& rec, bool valid) {
    if (!valid)
        throw InputError(in.pts.source + ": the geometric " + in.info.name + " fit found no solution (" +
                         std::to_string(rec.iterations) + " iterations, " +
                         (rec.converged ? "converged to an invalid result" : "not converged") + ")");
    r.iterations = {true, rec.iterations, rec.converged};
    addMeasure(r, "sumSqDist", "sum of squared distances (sumSqDist)", rec.sumSqDist, 2);
    addMeasure(r, "stdAbw", "std. deviation, divisor n - p (stdAbw)", rec.stdAbw);
}

// A fitted (not fixed) radius beyond kHugeRadius diagonals: the points lie
// on a line or plane, which the iteration approaches through ever larger
// radii.
template <class T>
void requireModestRadius(FitInput const& in, T radius, const char* flat) {
    if (!radiusFixed(in) && !(std::fabs(double(radius)) <= kHugeRadius * in.diagonal))
        throw degenerate(in, std::string("the points lie too close to ") + flat + ", the fitted radius (" +
                                 num(std::ldexp(double(radius), -in.scaleExp)) + ") is not meaningful");
}

template <class T>
void circleGeom(FitInput const& in, FitResult& r) {
    using A = math::approximate<T>;
    math::Ccircle2<T> c;
    math::CqCircleGeomStdAbw<T> rec;
    if (radiusFixed(in)) {
        r.function = functionName<T>("fitCircleGeomRfix");
        A::fitCircleGeomRfix(in.p2<T>(), scaledRadius<T>(in), c, rec);
    } else {
        r.function = functionName<T>("fitCircleGeom");
        A::fitCircleGeom(in.p2<T>(), c, rec);
    }
    takeRecord(in, r, rec, c.isValid() && finite(c.center()) && std::isfinite(c.radius()));
    requireModestRadius(in, c.radius(), "a straight line");
    addMeasure(r, "StdAbwCircle2", "std. deviation of radii (StdAbwCircle2)", A::StdAbwCircle2(in.p2<T>(), c));
    r.uncertainties = {{"center", {double(rec.uCenterX), double(rec.uCenterY)}, 1},
                       {"radius", {double(rec.uRadius)}, 1}};
    r.primitive = math::Ccircle2<double>(toDouble(c.center()), double(c.radius()));
}

template <class T>
void sphereGeom(FitInput const& in, FitResult& r) {
    using A = math::approximate<T>;
    math::Csphere3<T> s;
    math::CqSphereGeomStdAbw<T> rec;
    if (radiusFixed(in)) {
        r.function = functionName<T>("fitSphereGeomRfix");
        A::fitSphereGeomRfix(in.p3<T>(), scaledRadius<T>(in), s, rec);
    } else {
        r.function = functionName<T>("fitSphereGeom");
        A::fitSphereGeom(in.p3<T>(), s, rec);
    }
    takeRecord(in, r, rec, s.isValid() && finite(s.center()) && std::isfinite(s.radius()));
    requireModestRadius(in, s.radius(), "a plane");
    addMeasure(r, "StdAbwSphere", "std. deviation of radii (StdAbwSphere)", A::StdAbwSphere(in.p3<T>(), s));
    r.uncertainties = {{"center", {double(rec.uCenterX), double(rec.uCenterY), double(rec.uCenterZ)}, 1},
                       {"radius", {double(rec.uRadius)}, 1}};
    r.primitive = math::Csphere3<double>(toDouble(s.center()), double(s.radius()));
}

template <class T>
void cylinderGeom(FitInput const& in, FitResult& r) {
    using A = math::approximate<T>;
    math::Ccylinder3<T> z;
    math::CqCylinderGeomStdAbw<T> rec;
    if (radiusFixed(in)) {
        r.function = functionName<T>("fitCylinderGeomRfix");
        A::fitCylinderGeomRfix(in.p3<T>(), scaledRadius<T>(in), z, rec);
    } else {
        r.function = functionName<T>("fitCylinderGeom");
        A::fitCylinderGeom(in.p3<T>(), z, rec);
    }
    takeRecord(in, r, rec,
               z.isValid() && finite(z.axis().point()) && finite(z.axis().direction()) && std::isfinite(z.radius()));
    requireModestRadius(in, z.radius(), "a plane");
    addMeasure(r, "StdAbwCylinder", "std. deviation of axis distances (StdAbwCylinder)",
               A::StdAbwCylinder(in.p3<T>(), z));
    r.uncertainties = {{"point", {double(rec.uPointX), double(rec.uPointY), double(rec.uPointZ)}, 1},
                       {"direction", {double(rec.uDirX), double(rec.uDirY), double(rec.uDirZ)}, 0},
                       {"radius", {double(rec.uRadius)}, 1}};
    r.primitive = math::Ccylinder3<double>(
        math::Cline3<double>(toDouble(z.axis().point()), toDouble(z.axis().direction())), double(z.radius()));
}

// Both ellipse fits reach the same minimum; they differ in how (see
// approximate.h).  The library itself refuses semi-axes beyond 1e6 RMS radii
// of the data, the check the other iterative fits need here.
template <class T>
void ellipseFit(FitInput const& in, FitResult& r, bool lm) {
    using A = math::approximate<T>;
    math::Cellipse2<T> el;
    math::CqEllipseGeomStdAbw<T> rec;
    if (lm) {
        r.function = functionName<T>("fitEllipseGeomLM");
        A::fitEllipseGeomLM(in.p2<T>(), el, rec);
    } else {
        r.function = functionName<T>("fitEllipseGeom");
        A::fitEllipseGeom(in.p2<T>(), el, rec);
    }
    takeRecord(in, r, rec,
               el.isValid() && finite(el.center()) && std::isfinite(el.a()) && std::isfinite(el.b()) &&
                   std::isfinite(el.angle()));
    addMeasure(r, "StdAbwEllipse", "std. deviation of distances (StdAbwEllipse)", A::StdAbwEllipse(in.p2<T>(), el));
    r.uncertainties = {{"center", {double(rec.uCenterX), double(rec.uCenterY)}, 1},
                       {"a", {double(rec.uA)}, 1},
                       {"b", {double(rec.uB)}, 1},
                       {"angle", {double(rec.uAngle)}, 0}};
    r.primitive = math::Cellipse2<double>(toDouble(el.center()), double(el.a()), double(el.b()), double(el.angle()));
}

template <class T>
void ellipseGeom(FitInput const& in, FitResult& r) { ellipseFit<T>(in, r, false); }
template <class T>
void ellipseLM(FitInput const& in, FitResult& r) { ellipseFit<T>(in, r, true); }

template <class T>
void planeResult(FitInput const& in, FitResult& r, math::Cplane3<T> const& plane) {
    if (!plane.isValid() || !finite(plane.normal()) || !std::isfinite(plane.d()))
        throw degenerate(in, "the fitted plane is invalid");
    r.primitive = math::Cplane3<double>(toDouble(plane.normal()), double(plane.d()));
}

template <class T>
void planeGeom(FitInput const& in, FitResult& r) {
    r.function = functionName<T>("fitPlaneGeom");
    math::Cplane3<T> plane;
    math::CqPlaneGeomStdAbw<T> rec;
    math::approximate<T>::fitPlaneGeom(in.p3<T>(), plane, rec);
    // The record's in-plane spreads tell a line (three points have none and
    // were checked before).  Float sums hold about 7 digits, so its rounding
    // level in the spreads is about 3e-4.
    const double flat = std::is_same<T, float>::value ? 1e-3 : kFlatRatio;
    if (in.pts.size() > 3 && !(rec.stdAbwSecond > flat * rec.stdAbwMain))
        throw notDetermined(in, "the points are collinear");
    addMeasure(r, "stdAbwNormal", "std. deviation along the normal (stdAbwNormal)", rec.stdAbwNormal);
    addMeasure(r, "stdAbwSecond", "in-plane spread, minor (stdAbwSecond)", rec.stdAbwSecond);
    addMeasure(r, "stdAbwMain", "in-plane spread, major (stdAbwMain)", rec.stdAbwMain);
    planeResult(in, r, plane);
}

template <class T>
void planeFast(FitInput const& in, FitResult& r) {
    r.function = functionName<T>("fitPlaneGeomFast");
    math::Cplane3<T> plane;
    math::approximate<T>::fitPlaneGeomFast(in.p3<T>(), plane, math::CqPlaneGeomFast<T>());
    planeResult(in, r, plane);
}

// ---- checks before the fit ------------------------------------------------

// Shape-specific refusals that the fit's own result cannot tell.
void requireDetermined(FitInput const& in, Shape shape, Method method, Extent const& extent) {
    PointSet const& pts = in.pts;
    switch (shape) {
        case Shape::circle:
        case Shape::cylinder:
        case Shape::ellipse:
            requireNotCollinear(in, extent);
            break;
        case Shape::sphere:
            // Coplanar points (a circle in space, or less) leave the sphere open.
        {
            const math::CqPlaneGeomStdAbw<double> s = unitSpreads(in, extent);
            if (!(s.stdAbwNormal > kFlatRatio * s.stdAbwSecond)) throw notDetermined(in, "the points are coplanar");
            break;
        }
        case Shape::plane:
            if (pts.size() == 3) {
                // The three-point plane prints a message when the points are
                // exactly collinear: refuse angles whose sine is below the
                // flatness ratio before that can happen.
                const math::Cpoint3<double> a = point3(pts, 0), b = point3(pts, 1), c = point3(pts, 2);
                const math::Cline3<double> ab(a, math::Cdirec3<double>(b - a));
                if (!(math::geometric<double>::distance(ab, c) > kFlatRatio * (c - a).length()))
                    throw notDetermined(in, "the three points are collinear");
            } else if (method == Method::fast) {
                requireNotCollinear(in, extent);  // the geometric fit's record tells
            }
            break;
        case Shape::line2:
        case Shape::line3:
            break;
    }
}

// Line directions and plane normals come with the sign the eigen
// decomposition happened to produce.  For reports that read the same from
// run to run and between methods, turn them so that their largest component
// is positive (the first of equal ones); a plane's d changes sign with its
// normal.  The primitive itself is unchanged.
template <class D>
bool pointsBackwards(D const& v) {
    unsigned k = 0;
    for (unsigned i = 1; i < sizeof(D) / sizeof(v.x); ++i)
        if (std::fabs(v[i]) > std::fabs(v[k])) k = i;
    return v[k] < 0.0;
}

struct Orient {
    void operator()(math::Cline2<double>& l) const {
        if (pointsBackwards(l.direction())) l.direction() = -l.direction();
    }
    void operator()(math::Cline3<double>& l) const {
        if (pointsBackwards(l.direction())) l.direction() = -l.direction();
    }
    void operator()(math::Cplane3<double>& e) const {
        if (pointsBackwards(e.normal())) e = math::Cplane3<double>(-e.normal(), -e.d());
    }
    template <class P>
    void operator()(P&) const {}
};

}  // namespace

std::vector<ShapeInfo> const& shapes() {
    // Minimum counts: the library's own minimum where it has one (4 for the
    // algebraic circle), otherwise the count that determines the primitive
    // (2 points a line, 3 a plane, 4 a sphere, 5 a cylinder or an ellipse).  The circle
    // keeps 4 for its geometric fit too, which would take 3: the collinearity
    // check before the fit needs 4.
    static const std::vector<ShapeInfo> table = {
        {Shape::line2, "line2", "planar line", "a line",
         "signed distance from the line, positive to the left of its direction", 2, 2,
         {{Method::geom, line2Geom<double>, line2Geom<float>}, {Method::lsq, line2Lsq<double>, line2Lsq<float>}}},
        {Shape::line3, "line3", "spatial line", "a line", "distance from the line (radial, never negative)", 3, 2,
         {{Method::geom, line3Geom<double>, line3Geom<float>}}},
        {Shape::circle, "circle", "circle", "a circle", "radial distance from the circle, positive outside", 2, 4,
         {{Method::geom, circleGeom<double>, circleGeom<float>, true},
          {Method::lsq, circleLsq<double>, circleLsq<float>}}},
        {Shape::sphere, "sphere", "sphere", "a sphere", "radial distance from the sphere, positive outside", 3, 4,
         {{Method::geom, sphereGeom<double>, sphereGeom<float>, true},
          {Method::lsq, sphereLsq<double>, sphereLsq<float>}}},
        {Shape::plane, "plane", "plane", "a plane",
         "signed distance from the plane, positive on the side the normal points to", 3, 3,
         {{Method::geom, planeGeom<double>, planeGeom<float>}, {Method::fast, planeFast<double>, planeFast<float>}}},
        {Shape::cylinder, "cylinder", "cylinder", "a cylinder",
         "distance from the axis minus the radius, positive outside", 3, 5,
         {{Method::geom, cylinderGeom<double>, cylinderGeom<float>, true}}},
        {Shape::ellipse, "ellipse", "ellipse", "an ellipse",
         "orthogonal distance from the ellipse, positive outside", 2, 5,
         {{Method::geom, ellipseGeom<double>, ellipseGeom<float>}, {Method::lm, ellipseLM<double>, ellipseLM<float>}}},
    };
    return table;
}

FitResult runFit(Shape shape, FitOptions const& options, PointSet const& pts) {
    ShapeInfo const& info = shapeInfo(shape);
    FitMethod const* method = findMethod(info, options.method);
    if (method == nullptr)
        throw std::logic_error(std::string("metrofit: method not offered for ") + info.name);
    const bool fixed = !std::isnan(options.radius);
    if (fixed && !method->fixedRadius)
        throw std::logic_error(std::string("metrofit: no fixed radius for ") + info.name);
    if (fixed && !(options.radius > 0.0 && std::isfinite(options.radius)))
        throw InputError("the fixed radius must be a positive number, got " + num(options.radius));
    if (pts.size() < info.minPoints)
        throw InputError(pts.source + ": the " + info.name + " fit needs at least " +
                         std::to_string(info.minPoints) + " points, found " + std::to_string(pts.size()));
    if (pts.dim != info.dim)
        throw InputError(pts.source + ": the " + info.name + " fit needs " + std::to_string(info.dim) +
                         " coordinates per point");
    const bool single = options.singlePrecision;
    if (single) {
        requireModestMagnitudes<float>(pts);
    } else {
        requireModestMagnitudes<double>(pts);
    }

    FitInput in(pts, info, options);
    // Degeneracy is judged on the data's own extent: equal points are equal
    // at any scale, and tiny but well-formed sets are scaled up instead.
    const Extent extent = extentOf(pts);
    if (!(extent.size > 0.0)) throw notDetermined(in, "all points coincide");
    // The fits then run on the points scaled by a power of two to an extent
    // in (1, 2] (but no coordinate beyond the range checked above): exact,
    // and the library's absolute constants (the closed-form line's 1e-8, the
    // fast plane's eps) and its sums of powers then see data of unit size.
    std::frexp(1.0 / extent.size, &in.scaleExp);
    double largest = 0.0;
    for (double c : pts.coords) largest = std::max(largest, std::fabs(c));
    const double room = (single ? maxCoordinate<float>() : maxCoordinate<double>()) / largest;
    if (std::isfinite(room)) {
        int roomExp = 0;
        std::frexp(room, &roomExp);
        in.scaleExp = std::min(in.scaleExp, roomExp - 1);
    }
    requireDetermined(in, shape, options.method, extent);

    const std::size_t n = pts.size();
    math::CboundingBox3<double> box;
    for (std::size_t i = 0; i < n; ++i) {
        const math::Cpoint3<double> q(std::ldexp(pts.at(i, 0), in.scaleExp), std::ldexp(pts.at(i, 1), in.scaleExp),
                                      pts.dim == 3 ? std::ldexp(pts.at(i, 2), in.scaleExp) : 0.0);
        if (i == 0) box = math::CboundingBox3<double>(q, q);
        box.add(q);
        if (pts.dim == 2) {
            if (single) in.f2.emplace_back(float(q.x), float(q.y)); else in.d2.emplace_back(q.x, q.y);
        } else {
            if (single) in.f3.emplace_back(float(q.x), float(q.y), float(q.z)); else in.d3.push_back(q);
        }
    }
    in.diagonal = (box.max() - box.min()).length();

    FitResult r;
    r.shape = shape;
    r.method = options.method;
    r.scalar = single ? "float" : "double";
    r.scaleExp = in.scaleExp;
    (single ? method->asFloat : method->asDouble)(in, r);
    r.primitive = scaledBy(r.primitive, -in.scaleExp);
    for (Measure& m : r.measures) m.value = std::ldexp(m.value, -m.lengthPower * in.scaleExp);
    for (Uncertainty& u : r.uncertainties)
        for (double& v : u.values) v = std::ldexp(v, -u.lengthPower * in.scaleExp);
    r.fixedRadius = options.radius;
    std::visit(Orient(), r.primitive);
    computeResiduals(pts, r);
    return r;
}

}  // namespace metrofit
