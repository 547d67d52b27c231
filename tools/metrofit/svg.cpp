#include "svg.h"

#include <math/geometric.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <ostream>
#include <string>

namespace metrofit {

namespace {

using P2 = math::Cpoint2<double>;
using P3 = math::Cpoint3<double>;
using D2 = math::Cdirec2<double>;
using D3 = math::Cdirec3<double>;

// One point in view coordinates: where it is drawn, the foot of its residual
// on the primitive and the unit direction in which the residual is measured.
struct Mark {
    P2 at;
    P2 foot;
    P2 dir;
};

// A panel in view (model) coordinates, before mapping to the canvas.  The
// points are not stored: mark(i) gives the view of point i on demand.
struct Panel {
    std::string title;
    std::string xLabel, yLabel;
    std::function<Mark(std::size_t)> mark;
    bool whiskers = true;    // residuals as magnified whiskers
    bool sizedDots = false;  // dots sized by |residual| and coloured by sign instead
    std::vector<std::vector<P2>> curves;  // primitive as polylines
    std::vector<P2> keepVisible;          // extra points the view must include (not drawn)
    bool hasCircle = false;
    P2 circleCenter{0, 0};
    double circleRadius = 0;
    bool flipY = true;  // map view y upwards on the canvas
    bool flat = false;  // side view: little padding across the primitive
    double magnification = 1.0;
};

// The second axis of a view: the first in-plane axis of the plane through
// the origin normal to n (Cplane3::pointAt's frame).
P3 axisAcross(D3 const& n) { return math::Cplane3<double>(n, 0.0).pointAt(1.0, 0.0); }

std::string escapeXml(std::string const& s) {
    std::string out;
    for (char c : s) {
        switch (c) {
            case '&': out += "&amp;"; break;
            case '<': out += "&lt;"; break;
            case '>': out += "&gt;"; break;
            case '"': out += "&quot;"; break;
            default:
                // Control characters are not allowed in XML 1.0 text.
                out += (static_cast<unsigned char>(c) < 0x20 && c != '\t') ? '?' : c;
        }
    }
    return out;
}

std::string fmt(double v) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.2f", v);
    return buf;
}

std::string shortNumber(double v) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.4g", v);
    return buf;
}

// Bounding box of the things that must be visible in full: all points and
// the primitive (whisker tips may be clipped).
void extentOf(Panel const& p, std::size_t n, P2& lo, P2& hi) {
    lo = {HUGE_VAL, HUGE_VAL};
    hi = {-HUGE_VAL, -HUGE_VAL};
    auto add = [&](P2 const& q) {
        if (!std::isfinite(q.x) || !std::isfinite(q.y)) return;
        lo = {std::min(lo.x, q.x), std::min(lo.y, q.y)};
        hi = {std::max(hi.x, q.x), std::max(hi.y, q.y)};
    };
    for (std::size_t i = 0; i < n; ++i) add(p.mark(i).at);
    for (P2 const& q : p.keepVisible) add(q);
    for (auto const& c : p.curves)
        for (P2 const& q : c) add(q);
    if (p.hasCircle) {
        add(p.circleCenter - P2(p.circleRadius, p.circleRadius));
        add(p.circleCenter + P2(p.circleRadius, p.circleRadius));
    }
    if (!(lo.x <= hi.x)) {
        lo = {-1, -1};
        hi = {1, 1};
    }
}

double panelExtent(Panel const& p, std::size_t n) {
    P2 lo, hi;
    extentOf(p, n, lo, hi);
    return std::max(hi.x - lo.x, hi.y - lo.y);
}

// Where a panel lands on the canvas.
struct Layout {
    P2 lo, hi;  // padded view box
    double scale = 1, plotW = 0, plotH = 0, offX = 0;
    static constexpr double margin = 48.0, titleH = 26.0, legendH = 40.0;
    double height() const { return titleH + plotH + legendH; }
};

Layout layoutOf(Panel const& p, std::size_t n, double width) {
    Layout L;
    extentOf(p, n, L.lo, L.hi);
    const double w0 = L.hi.x - L.lo.x, h0 = L.hi.y - L.lo.y;
    const double extent = std::max(w0, h0) > 0 ? std::max(w0, h0) : 1.0;
    // Pad by 12 % of the extent, so typical whiskers (<= 8 %) stay inside.
    const P2 pad(0.12 * extent, p.flat ? 0.03 * extent : 0.12 * extent);
    L.lo = L.lo - pad;
    L.hi = L.hi + pad;
    const double w = L.hi.x - L.lo.x, h = L.hi.y - L.lo.y;
    L.plotW = width - 2 * Layout::margin;
    L.scale = L.plotW / w;
    L.plotH = h * L.scale;
    if (L.plotH > L.plotW) {  // tall views: fit the height instead and centre horizontally
        L.scale = L.plotW / h;
        L.plotH = L.plotW;
    }
    L.offX = Layout::margin + 0.5 * (L.plotW - w * L.scale);
    return L;
}

const char* kPositive = "#d62728";
const char* kNegative = "#1f5fbf";

// Writes one panel at vertical offset `top`, stopping at a failed write.
void renderPanel(std::ostream& out, Panel const& p, Layout const& L, double top, double width, int index,
                 std::vector<double> const& res, std::vector<std::size_t> const& drawn) {
    const double margin = Layout::margin;
    const double plotTop = top + Layout::titleH;
    auto map = [&](P2 const& q) {
        const double sx = L.offX + (q.x - L.lo.x) * L.scale;
        const double sy = p.flipY ? plotTop + (L.hi.y - q.y) * L.scale : plotTop + (q.y - L.lo.y) * L.scale;
        return P2{sx, sy};
    };
    auto tipOf = [&](Mark const& m, double r) { return m.foot + m.dir * (p.magnification * r); };

    const std::string clipId = "clip" + std::to_string(index);
    out << "<g>\n<text x=\"" << fmt(margin) << "\" y=\"" << fmt(top + 18) << "\" class=\"title\">"
        << escapeXml(p.title) << "</text>\n";
    out << "<clipPath id=\"" << clipId << "\"><rect x=\"" << fmt(margin) << "\" y=\"" << fmt(plotTop)
        << "\" width=\"" << fmt(L.plotW) << "\" height=\"" << fmt(L.plotH) << "\"/></clipPath>\n";
    out << "<rect x=\"" << fmt(margin) << "\" y=\"" << fmt(plotTop) << "\" width=\"" << fmt(L.plotW)
        << "\" height=\"" << fmt(L.plotH) << "\" class=\"frame\"/>\n";
    out << "<g clip-path=\"url(#" << clipId << ")\">\n";

    // Fitted primitive.
    out << "<g class=\"primitive\">\n";
    if (p.hasCircle) {
        const P2 c = map(p.circleCenter);
        out << "<circle cx=\"" << fmt(c.x) << "\" cy=\"" << fmt(c.y) << "\" r=\"" << fmt(p.circleRadius * L.scale)
            << "\"/>\n";
        out << "<path d=\"M" << fmt(c.x - 5) << ' ' << fmt(c.y) << "h10M" << fmt(c.x) << ' ' << fmt(c.y - 5)
            << "v10\"/>\n";
    }
    for (auto const& curve : p.curves) {
        out << "<polyline points=\"";
        for (std::size_t i = 0; i < curve.size(); ++i) {
            const P2 s = map(curve[i]);
            out << (i ? " " : "") << fmt(s.x) << ',' << fmt(s.y);
        }
        out << "\"/>\n";
    }
    out << "</g>\n";
    if (!out) return;

    // Measured points.
    double largest = 0.0;
    for (double v : res) largest = std::max(largest, std::fabs(v));
    out << "<g class=\"points\">\n";
    for (std::size_t i : drawn) {
        const P2 s = map(p.mark(i).at);
        out << "<circle cx=\"" << fmt(s.x) << "\" cy=\"" << fmt(s.y) << "\" r=\"";
        if (p.sizedDots) {
            out << fmt(1.5 + 5.0 * (largest > 0 ? std::fabs(res[i]) / largest : 0.0)) << "\" style=\"fill:"
                << (res[i] >= 0 ? kPositive : kNegative) << "\"/>\n";
        } else {
            out << "1.80\"/>\n";
        }
        if (!out) return;
    }
    out << "</g>\n";

    // Magnified residuals; clipped ones are counted over every point.
    std::size_t clipped = 0;
    out << "<g class=\"residuals\">\n";
    if (p.whiskers) {
        for (std::size_t i = 0; i < res.size(); ++i) {
            const P2 tip = tipOf(p.mark(i), res[i]);
            if (!(tip.x >= L.lo.x && tip.x <= L.hi.x && tip.y >= L.lo.y && tip.y <= L.hi.y)) ++clipped;
        }
        for (std::size_t i : drawn) {
            const Mark m = p.mark(i);
            const P2 a = map(m.foot), b = map(tipOf(m, res[i]));
            const char* colour = res[i] >= 0 ? kPositive : kNegative;
            out << "<line x1=\"" << fmt(a.x) << "\" y1=\"" << fmt(a.y) << "\" x2=\"" << fmt(b.x) << "\" y2=\""
                << fmt(b.y) << "\" stroke=\"" << colour << "\"/><circle cx=\"" << fmt(b.x) << "\" cy=\""
                << fmt(b.y) << "\" r=\"1.3\" fill=\"" << colour << "\"/>\n";
            if (!out) return;
        }
    }
    out << "</g>\n</g>\n";

    // Legend: axes and a scale bar of a round length (a power of ten).
    const double w = L.hi.x - L.lo.x;
    const double ly = plotTop + L.plotH + 18;
    const double bar = std::pow(10.0, std::floor(std::log10(w / 4)));
    out << "<text x=\"" << fmt(margin) << "\" y=\"" << fmt(ly) << "\" class=\"legend\">" << escapeXml(p.xLabel)
        << " →, " << escapeXml(p.yLabel) << (p.flipY ? " ↑" : " ↓") << "; bar at right: " << shortNumber(bar)
        << " (data units)</text>\n";
    out << "<path class=\"bar\" d=\"M" << fmt(width - margin - bar * L.scale) << ' ' << fmt(ly - 4) << "h"
        << fmt(bar * L.scale) << "\"/>\n";
    out << "<text x=\"" << fmt(margin) << "\" y=\"" << fmt(ly + 16) << "\" class=\"legend\">grey: ";
    if (drawn.size() < res.size()) {
        out << drawn.size() << " of " << res.size()
            << " measured points drawn (evenly spaced, and the largest residuals)";
    } else {
        out << res.size() << " measured points";
    }
    out << "; black: fitted primitive";
    if (p.whiskers) {
        out << "; residuals magnified ×" << shortNumber(p.magnification) << " (red +, blue −)";
        if (clipped) out << "; " << clipped << " clipped at the frame";
    } else if (p.sizedDots) {
        out << "; dot size ∝ |residual| (red +, blue −)";
    }
    out << "</text>\n</g>\n";
}

// The views of each primitive.
struct Views {
    PointSet const& pts;
    FitResult const& r;
    SvgOptions const& opt;
    std::string heading;
    std::vector<Panel>& panels;

    std::size_t n() const { return pts.size(); }

    Panel planar() const {
        Panel p;
        p.title = heading;
        p.xLabel = pts.header.size() >= 1 ? pts.header[0] : "x";
        p.yLabel = pts.header.size() >= 2 ? pts.header[1] : "y";
        p.flipY = !opt.yDown;
        return p;
    }

    void operator()(math::Ccircle2<double> const& c) const {
        Panel p = planar();
        p.hasCircle = true;
        p.circleCenter = c.center();
        p.circleRadius = c.radius();
        PointSet const& s = pts;
        p.mark = [&s, c](std::size_t i) {
            const P2 q = point2(s, i);
            D2 u(q - c.center());
            if (!u.isValid()) u = D2::posX;
            return Mark{q, c.center() + u * c.radius(), u};
        };
        panels.push_back(p);
    }

    // The fitted ellipse as a closed polyline, each residual drawn along the
    // normal through its foot point.  The normal is the gradient of the
    // signed distance at the point (central differences of the library's
    // distance, steps of 1e-7 of the major semi-axis), the foot the point
    // moved back by its distance along it.
    void operator()(math::Cellipse2<double> const& el) const {
        Panel p = planar();
        PointSet const& s = pts;
        p.mark = [&s, el](std::size_t i) {
            using G = math::geometric<double>;
            const P2 q = point2(s, i);
            const double h = 1e-7 * std::max(std::fabs(el.a()), std::fabs(el.b()));
            const double d = G::distance(el, q);
            D2 u(P2(G::distance(el, q + P2(h, 0)) - G::distance(el, q - P2(h, 0)),
                    G::distance(el, q + P2(0, h)) - G::distance(el, q - P2(0, h))));
            if (!u.isValid() || !std::isfinite(d)) return Mark{q, q, P2(1, 0)};
            return Mark{q, q - u * d, u};
        };
        std::vector<P2> curve;
        const int segments = 360;
        for (int k = 0; k <= segments; ++k) curve.push_back(el.pointAt(2.0 * std::acos(-1.0) * k / segments));
        p.curves.push_back(curve);
        p.keepVisible.push_back(el.center());
        panels.push_back(p);
    }

    void operator()(math::Cline2<double> const& l) const {
        Panel p = planar();
        PointSet const& s = pts;
        const D2 across = l.direction().perp();
        p.mark = [&s, l, across](std::size_t i) {
            const P2 q = point2(s, i);
            P2 foot = q;
            math::geometric<double>::project(l, foot);
            return Mark{q, foot, across};
        };
        double tmin = HUGE_VAL, tmax = -HUGE_VAL;
        for (std::size_t i = 0; i < n(); ++i) {
            const double t = (point2(pts, i) - l.point()).dot(l.direction());
            tmin = std::min(tmin, t);
            tmax = std::max(tmax, t);
        }
        const double ext = 0.05 * (tmax - tmin);
        p.curves.push_back({l.pointAt(tmin - ext), l.pointAt(tmax + ext)});
        panels.push_back(p);
    }

    // Axial coordinate t and signed radial distance, the sign being the side
    // of the reference axis e1 the point lies on.
    void operator()(math::Cline3<double> const& l) const {
        Panel p;
        p.title = heading + ": axial against radial coordinate";
        p.flat = true;
        p.xLabel = "along the line";
        p.yLabel = "radial distance";
        PointSet const& s = pts;
        std::vector<double> const& res = r.residuals;
        const P3 e1 = axisAcross(l.direction());
        p.mark = [&s, &res, l, e1](std::size_t i) {
            const P3 w = point3(s, i) - l.point();
            const double t = w.dot(l.direction()), side = w.dot(e1) >= 0 ? 1.0 : -1.0;
            return Mark{{t, side * res[i]}, {t, 0.0}, {0.0, side}};
        };
        double tmin = HUGE_VAL, tmax = -HUGE_VAL;
        for (std::size_t i = 0; i < n(); ++i) {
            tmin = std::min(tmin, p.mark(i).at.x);
            tmax = std::max(tmax, p.mark(i).at.x);
        }
        p.curves.push_back({{tmin, 0.0}, {tmax, 0.0}});
        panels.push_back(p);
    }

    void operator()(math::Csphere3<double> const& sp) const {
        Panel p;
        p.title = heading + ": meridian section about the cap axis";
        p.xLabel = "across the axis";
        p.yLabel = "along the axis";
        P3 sum(0, 0, 0);
        for (std::size_t i = 0; i < n(); ++i) {
            const D3 u(point3(pts, i) - sp.center());
            if (u.isValid()) sum += u;
        }
        // A full sphere has no cap axis; the z axis serves then.
        D3 axis(sum);
        if (!(sum.length() >= 1e-3 * static_cast<double>(n()))) axis = D3(0, 0, 1, true);
        const P3 e1 = axisAcross(axis);
        const double R = sp.radius();
        p.hasCircle = true;
        p.circleCenter = {0, 0};
        p.circleRadius = R;
        PointSet const& s = pts;
        p.mark = [&s, sp, axis, e1, R](std::size_t i) {
            const P3 w = point3(s, i) - sp.center();
            const double h = w.dot(axis), rho = w.length();
            const double across = std::sqrt(std::max(rho * rho - h * h, 0.0)) * (w.dot(e1) >= 0 ? 1.0 : -1.0);
            const P2 u = rho > 0 ? P2(across / rho, h / rho) : P2(0, 1);
            return Mark{{across, h}, u * R, u};
        };
        panels.push_back(p);
        panels.push_back(unrolled(sp.center(), axis, R, "residuals against the angle about the cap axis"));
    }

    // A section across the axis: the points projected along it onto the
    // plane normal to it, the fitted circle of the radius, radial residuals.
    void operator()(math::Ccylinder3<double> const& z) const {
        Panel p;
        p.title = heading + ": section along the axis";
        p.xLabel = "across the axis 1";
        p.yLabel = "across the axis 2";
        const D3 axis = z.axis().direction();
        const P3 e1 = axisAcross(axis), e2 = axis.cross(e1), o = z.axis().point();
        const double R = z.radius();
        p.hasCircle = true;
        p.circleCenter = {0, 0};
        p.circleRadius = R;
        PointSet const& s = pts;
        p.mark = [&s, o, e1, e2, R](std::size_t i) {
            const P3 w = point3(s, i) - o;
            const P2 q(w.dot(e1), w.dot(e2));
            const double rho = std::hypot(q.x, q.y);
            const P2 u = rho > 0 ? q / rho : P2(1, 0);
            return Mark{q, u * R, u};
        };
        panels.push_back(p);
        panels.push_back(unrolled(o, axis, R, "residuals against the angle about the axis"));
    }

    // The residual plot of a 3D fit: each residual against the angle phi of
    // its point about `axis` through `o`, in [-180, 180] degrees from the
    // mean direction of the points about the axis (so a partial arc is not
    // split at the seam; the view's first axis across it when the points go
    // round), drawn at the arc length R phi (the surface unrolled, equal
    // scales) with the residuals as whiskers from zero.
    Panel unrolled(P3 const& o, D3 const& axis, double R, std::string const& title) const {
        Panel p;
        p.title = title + " (unrolled at radius " + shortNumber(R) + ")";
        p.xLabel = "arc length R·angle";
        p.yLabel = "residual";
        p.flat = true;
        const P3 e1 = axisAcross(axis), e2 = axis.cross(e1);
        P2 sum(0, 0);
        for (std::size_t i = 0; i < n(); ++i) {
            const P3 w = point3(pts, i) - o;
            const P2 q(w.dot(e1), w.dot(e2));
            const double len = std::hypot(q.x, q.y);
            if (len > 0) sum += q / len;
        }
        const double phi0 = std::hypot(sum.x, sum.y) >= 1e-3 * static_cast<double>(n()) ? std::atan2(sum.y, sum.x) : 0.0;
        PointSet const& s = pts;
        std::vector<double> const& res = r.residuals;
        p.mark = [&s, &res, o, e1, e2, R, phi0](std::size_t i) {
            const P3 w = point3(s, i) - o;
            const double x = R * std::remainder(std::atan2(w.dot(e2), w.dot(e1)) - phi0, 2.0 * 3.14159265358979323846);
            return Mark{{x, res[i]}, {x, 0.0}, {0.0, 1.0}};
        };
        double lo = HUGE_VAL, hi = -HUGE_VAL;
        for (std::size_t i = 0; i < n(); ++i) {
            lo = std::min(lo, p.mark(i).at.x);
            hi = std::max(hi, p.mark(i).at.x);
        }
        p.curves.push_back({{lo, 0.0}, {hi, 0.0}});
        return p;
    }

    // In-plane frame: origin at the centroid's foot on the plane, axes e1, e2
    // of the plane's pointAt frame.
    void operator()(math::Cplane3<double> const& e) const {
        P3 centroid(0, 0, 0);
        for (std::size_t i = 0; i < n(); ++i) centroid += point3(pts, i) / static_cast<double>(n());
        math::geometric<double>::project(e, centroid);
        const math::Cplane3<double> frame(e.normal(), 0.0);
        const P3 e1 = frame.pointAt(1, 0), e2 = frame.pointAt(0, 1);
        PointSet const& s = pts;
        std::vector<double> const& res = r.residuals;
        Panel top, side;
        top.title = heading + ": points in the plane's frame";
        top.xLabel = "in-plane axis 1";
        top.yLabel = "in-plane axis 2";
        top.whiskers = false;
        top.sizedDots = true;
        top.mark = [&s, centroid, e1, e2](std::size_t i) {
            const P3 w = point3(s, i) - centroid;
            const P2 q(w.dot(e1), w.dot(e2));
            return Mark{q, q, {0, 0}};
        };
        side.title = "side view along in-plane axis 1, residuals along the normal";
        side.xLabel = "in-plane axis 1";
        side.yLabel = "normal";
        side.flat = true;
        side.mark = [&s, &res, centroid, e1](std::size_t i) {
            const double u = (point3(s, i) - centroid).dot(e1);
            return Mark{{u, res[i]}, {u, 0.0}, {0.0, 1.0}};
        };
        double umin = HUGE_VAL, umax = -HUGE_VAL;
        for (std::size_t i = 0; i < n(); ++i) {
            umin = std::min(umin, side.mark(i).at.x);
            umax = std::max(umax, side.mark(i).at.x);
        }
        side.curves.push_back({{umin, 0.0}, {umax, 0.0}});
        panels.push_back(top);
        panels.push_back(side);
    }
};

}  // namespace

double roundDown125(double v) {
    if (!(v > 0) || !std::isfinite(v)) return 1.0;
    const double decade = std::pow(10.0, std::floor(std::log10(v)));
    const double m = v / decade;  // in [1, 10), up to rounding
    double step = m >= 5 ? 5 : m >= 2 ? 2 : 1;
    if (m >= 10) step = 10;
    return step * decade;
}

double percentile90(std::vector<double> const& res) {
    if (res.empty()) return 0.0;
    std::vector<double> a(res.size());
    for (std::size_t i = 0; i < res.size(); ++i) a[i] = std::fabs(res[i]);
    // The element at rank floor(0.9 (n - 1)) of the sorted magnitudes; the
    // largest one when that is 0 (mostly exact points and a few off).
    const std::size_t k = (a.size() - 1) * 9 / 10;
    std::nth_element(a.begin(), a.begin() + static_cast<std::ptrdiff_t>(k), a.end());
    const double q = a[k];
    return q > 0 ? q : *std::max_element(a.begin(), a.end());
}

double autoMagnification(std::vector<double> const& res, double extent) {
    if (!(extent > 0) || !std::isfinite(extent)) return 1.0;
    const double q = percentile90(res);
    if (!(q > 0) || !std::isfinite(q)) return 1.0;
    return roundDown125(0.08 * extent / q);
}

std::vector<std::size_t> drawnPoints(std::vector<double> const& res, std::size_t maxPoints) {
    const std::size_t n = res.size();
    std::vector<std::size_t> idx;
    if (n <= maxPoints) {
        idx.resize(n);
        for (std::size_t i = 0; i < n; ++i) idx[i] = i;
        return idx;
    }
    const std::size_t largest = maxPoints / 10, even = maxPoints - largest;
    if (largest > 0) {
        std::vector<std::size_t> order(n);
        for (std::size_t i = 0; i < n; ++i) order[i] = i;
        auto before = [&res](std::size_t a, std::size_t b) {
            const double fa = std::fabs(res[a]), fb = std::fabs(res[b]);
            return fa > fb || (fa == fb && a < b) || (std::isnan(fa) && !std::isnan(fb));
        };
        std::nth_element(order.begin(), order.begin() + static_cast<std::ptrdiff_t>(largest - 1), order.end(),
                         before);
        idx.assign(order.begin(), order.begin() + static_cast<std::ptrdiff_t>(largest));
    }
    for (std::size_t j = 0; j < even; ++j) idx.push_back(static_cast<std::size_t>((static_cast<double>(j) + 0.5) *
                                                                                  static_cast<double>(n) /
                                                                                  static_cast<double>(even)));
    std::sort(idx.begin(), idx.end());
    idx.erase(std::unique(idx.begin(), idx.end()), idx.end());
    return idx;
}

void writeSvg(std::ostream& out, PointSet const& pts, FitResult const& r, SvgOptions const& opt) {
    std::vector<Panel> panels;
    const std::string heading = std::string(shapeInfo(r.shape).title) + " fit (" + methodName(r.method) + ") of " +
                                pts.source + ", " + std::to_string(pts.size()) + " points";
    const std::size_t n = std::min(pts.size(), r.residuals.size());
    if (n > 0) std::visit(Views{pts, r, opt, heading, panels}, r.primitive);

    // The factor of every panel with whiskers, from its own extent unless given.
    const double q90 = percentile90(r.residuals);
    for (Panel& p : panels) {
        if (!p.whiskers) continue;
        p.magnification = opt.magnification > 0 ? opt.magnification : autoMagnification(r.residuals, panelExtent(p, n));
        // A side view is flat: give it the height of twice the 90th-percentile
        // whisker (at least 4 %, at most 25 % of its length) on either side.
        if (p.flat && !p.curves.empty()) {
            const double ext = panelExtent(p, n);
            const double half = std::min(std::max(2.0 * q90 * p.magnification, 0.04 * ext), 0.25 * ext);
            p.keepVisible.push_back({p.curves[0][0].x, half});
            p.keepVisible.push_back({p.curves[0][0].x, -half});
        }
    }

    std::vector<Layout> layouts;
    double height = 8.0;
    for (Panel const& p : panels) {
        layouts.push_back(layoutOf(p, n, opt.width));
        height += layouts.back().height() + 12.0;
    }
    const std::vector<std::size_t> drawn = drawnPoints(r.residuals, opt.maxPoints);

    out << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << fmt(opt.width) << "\" height=\"" << fmt(height)
        << "\" viewBox=\"0 0 " << fmt(opt.width) << ' ' << fmt(height) << "\">\n"
        << "<style>\n"
        << "text { font-family: sans-serif; font-size: 12px; fill: #222; }\n"
        << ".title { font-size: 14px; font-weight: bold; }\n"
        << ".frame { fill: #fcfcfc; stroke: #bbb; }\n"
        << ".primitive circle, .primitive polyline, .primitive path { fill: none; stroke: #000; stroke-width: 1.2; }\n"
        << ".points circle { fill: #888; }\n"
        << ".residuals line { stroke-width: 1; }\n"
        << ".bar { stroke: #222; stroke-width: 2; }\n"
        << "</style>\n"
        << "<rect width=\"100%\" height=\"100%\" fill=\"#fff\"/>\n";
    double y = 8.0;
    for (std::size_t k = 0; k < panels.size() && out; ++k) {
        renderPanel(out, panels[k], layouts[k], y, opt.width, static_cast<int>(k), r.residuals, drawn);
        y += layouts[k].height() + 12.0;
    }
    out << "</svg>\n";
}

}  // namespace metrofit
