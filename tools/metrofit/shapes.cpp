// Lookups in the shape table, parameter lists and residuals: the parts of
// the fit record that do not call the library's fits.
#include "fit.h"

#include <math/geometric.h>

#include <cmath>
#include <stdexcept>

namespace metrofit {

ShapeInfo const& shapeInfo(Shape s) {
    for (ShapeInfo const& info : shapes())
        if (info.shape == s) return info;
    throw std::logic_error("metrofit: unknown shape");
}

ShapeInfo const* shapeFromName(std::string const& name) {
    for (ShapeInfo const& info : shapes())
        if (name == info.name) return &info;
    return nullptr;
}

FitMethod const* findMethod(ShapeInfo const& info, Method m) {
    for (FitMethod const& fm : info.methods)
        if (fm.method == m) return &fm;
    return nullptr;
}

const char* methodName(Method m) {
    switch (m) {
        case Method::lsq: return "lsq";
        case Method::geom: return "geom";
        case Method::fast: return "fast";
        case Method::lm: return "lm";
    }
    return "?";
}

bool methodFromName(std::string const& name, Method& m) {
    for (Method c : {Method::lsq, Method::geom, Method::fast, Method::lm}) {
        if (name == methodName(c)) {
            m = c;
            return true;
        }
    }
    return false;
}

const char* residualMeaning(Shape s) { return shapeInfo(s).meaning; }

namespace {

std::vector<double> values(math::Cpoint2<double> const& p) { return {p.x, p.y}; }
std::vector<double> values(math::Cpoint3<double> const& p) { return {p.x, p.y, p.z}; }

struct Parameters {
    template <class Line>
    std::vector<Parameter> line(Line const& l) const {
        return {{"point", "point", values(l.point())}, {"direction", "direction", values(l.direction())}};
    }
    std::vector<Parameter> operator()(math::Cline2<double> const& l) const { return line(l); }
    std::vector<Parameter> operator()(math::Cline3<double> const& l) const { return line(l); }
    std::vector<Parameter> operator()(math::Ccircle2<double> const& c) const {
        return {{"center", "centre", values(c.center())}, {"radius", "radius", {c.radius()}}};
    }
    std::vector<Parameter> operator()(math::Csphere3<double> const& s) const {
        return {{"center", "centre", values(s.center())}, {"radius", "radius", {s.radius()}}};
    }
    std::vector<Parameter> operator()(math::Cplane3<double> const& e) const {
        return {{"normal", "normal", values(e.normal())}, {"d", "d (n.x + d = 0)", {e.d()}}};
    }
    std::vector<Parameter> operator()(math::Ccylinder3<double> const& z) const {
        std::vector<Parameter> p = line(z.axis());
        p[0].label = "axis point";
        p[1].label = "axis direction";
        p.push_back({"radius", "radius", {z.radius()}});
        return p;
    }
    std::vector<Parameter> operator()(math::Cellipse2<double> const& el) const {
        return {{"center", "centre", values(el.center())},
                {"a", "semi-axis a", {el.a()}},
                {"b", "semi-axis b", {el.b()}},
                {"angle", "angle of a (rad)", {el.angle()}}};
    }
};

template <class P>
P scaled(P const& p, int e) { return p * std::ldexp(1.0, e); }

struct ScaledBy {
    int e;
    Primitive operator()(math::Cline2<double> const& l) const {
        return math::Cline2<double>(scaled(l.point(), e), l.direction());
    }
    Primitive operator()(math::Cline3<double> const& l) const {
        return math::Cline3<double>(scaled(l.point(), e), l.direction());
    }
    Primitive operator()(math::Ccircle2<double> const& c) const {
        return math::Ccircle2<double>(scaled(c.center(), e), std::ldexp(c.radius(), e));
    }
    Primitive operator()(math::Csphere3<double> const& s) const {
        return math::Csphere3<double>(scaled(s.center(), e), std::ldexp(s.radius(), e));
    }
    Primitive operator()(math::Cplane3<double> const& p) const {
        return math::Cplane3<double>(p.normal(), std::ldexp(p.d(), e));
    }
    Primitive operator()(math::Ccylinder3<double> const& z) const {
        return math::Ccylinder3<double>(math::Cline3<double>(scaled(z.axis().point(), e), z.axis().direction()),
                                        std::ldexp(z.radius(), e));
    }
    Primitive operator()(math::Cellipse2<double> const& el) const {
        return math::Cellipse2<double>(scaled(el.center(), e), std::ldexp(el.a(), e), std::ldexp(el.b(), e),
                                       el.angle());
    }
};

// Residual of point i: the library's distance, the circle's radial one; on
// points and primitive scaled by 2^e, the result scaled back.  Any primitive
// with a planar or spatial geometric<double>::distance is served without an
// overload of its own.
struct Residuals {
    PointSet const& pts;
    std::vector<double>& out;
    int e;
    template <class P>
    auto operator()(P const& prim) const
        -> decltype(math::geometric<double>::distance(prim, math::Cpoint2<double>()), void()) {
        for (std::size_t i = 0; i < out.size(); ++i)
            out[i] = std::ldexp(math::geometric<double>::distance(prim, scaled(point2(pts, i), e)), -e);
    }
    template <class P>
    auto operator()(P const& prim) const
        -> decltype(math::geometric<double>::distance(prim, math::Cpoint3<double>()), void()) {
        for (std::size_t i = 0; i < out.size(); ++i)
            out[i] = std::ldexp(math::geometric<double>::distance(prim, scaled(point3(pts, i), e)), -e);
    }
    void operator()(math::Ccircle2<double> const& c) const {
        for (std::size_t i = 0; i < out.size(); ++i)
            out[i] = std::ldexp(radialResidual(c, scaled(point2(pts, i), e)), -e);
    }
};

}  // namespace

Primitive scaledBy(Primitive const& p, int e) { return e == 0 ? p : std::visit(ScaledBy{e}, p); }

std::vector<Parameter> parameters(FitResult const& r) {
    std::vector<Parameter> ps = std::visit(Parameters(), r.primitive);
    for (Parameter& p : ps)
        for (Uncertainty const& u : r.uncertainties)
            if (u.key == p.key) p.uncertainties = u.values;
    return ps;
}

double radialResidual(math::Ccircle2<double> const& c, math::Cpoint2<double> const& p) {
    const math::Cpoint2<double> w = p - c.center();
    return std::hypot(w.x, w.y) - c.radius();
}

void computeResiduals(PointSet const& pts, FitResult& r) {
    const std::size_t n = pts.size();
    r.residuals.assign(n, 0.0);
    std::visit(Residuals{pts, r.residuals, r.scaleExp}, scaledBy(r.primitive, r.scaleExp));

    ResidualStats s;
    if (n > 0) {
        double sum = 0.0;
        s.min = s.max = r.residuals[0];
        for (std::size_t i = 0; i < n; ++i) {
            const double v = r.residuals[i];
            sum += v;
            if (v < s.min) s.min = v;
            if (v > s.max) s.max = v;
            if (std::fabs(v) > s.maxAbs) {
                s.maxAbs = std::fabs(v);
                s.maxAbsIndex = i;
            }
        }
        s.mean = sum / static_cast<double>(n);
        // Squares relative to the largest residual: no underflow for tiny
        // residuals, no overflow for huge ones.
        double sumSq = 0.0;
        if (s.maxAbs > 0.0 && std::isfinite(s.maxAbs)) {
            for (double v : r.residuals) sumSq += (v / s.maxAbs) * (v / s.maxAbs);
            s.rms = s.maxAbs * std::sqrt(sumSq / static_cast<double>(n));
        } else {
            s.rms = s.maxAbs;
        }
    }
    r.stats = s;
}

}  // namespace metrofit
