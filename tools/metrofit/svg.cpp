#include "svg.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <array>
#include <ostream>
#include <sstream>
#include <string>

namespace metrofit {

namespace {

struct P2 {
    double x, y;
};

// One residual drawn in view coordinates: foot on the primitive and the
// unit direction in which the residual is measured.
struct Whisker {
    P2 foot;
    P2 dir;
    double residual;
};

// A panel in view (model) coordinates, before mapping to the canvas.
struct Panel {
    std::string title;
    std::string xLabel, yLabel;
    std::vector<P2> points;          // true positions
    std::vector<double> dotScale;    // optional per-point dot radius factor in [0, 1]
    std::vector<double> dotSign;     // optional per-point sign colouring
    std::vector<Whisker> whiskers;
    std::vector<std::vector<P2>> curves;  // primitive as polylines
    std::vector<P2> keepVisible;          // extra points the view must include (not drawn)
    bool hasCircle = false;
    P2 circleCenter{0, 0};
    double circleRadius = 0;
    bool flipY = true;  // map view y upwards on the canvas
    bool flat = false;  // side view: little padding across the primitive
    double magnification = 1.0;
};

using V3 = std::array<double, 3>;

double dot(V3 const& a, V3 const& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }
V3 cross(V3 const& a, V3 const& b) {
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}
V3 unit(V3 const& a) {
    const double l = std::sqrt(dot(a, a));
    return l > 0 ? V3{a[0] / l, a[1] / l, a[2] / l} : V3{0, 0, 0};
}
// A unit vector orthogonal to the unit vector n: the x axis projected into
// the plane normal to n, or the y axis when n is close to x.  For a normal
// near z this gives an in-plane axis near x, which keeps drawings of
// near-horizontal planes in their familiar orientation.
V3 orthogonalTo(V3 const& n) {
    const V3 ref = std::fabs(n[0]) < 0.9 ? V3{1, 0, 0} : V3{0, 1, 0};
    const double k = dot(ref, n);
    return unit({ref[0] - k * n[0], ref[1] - k * n[1], ref[2] - k * n[2]});
}

V3 pointOf(PointSet const& pts, std::size_t i) {
    return {pts.at(i, 0), pts.at(i, 1), pts.dim == 3 ? pts.at(i, 2) : 0.0};
}

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

// Bounding box of the things that must be visible in full: points and the
// primitive (whisker tips may be clipped).
void extentOf(Panel const& p, P2& lo, P2& hi) {
    lo = {HUGE_VAL, HUGE_VAL};
    hi = {-HUGE_VAL, -HUGE_VAL};
    auto add = [&](P2 const& q) {
        if (!std::isfinite(q.x) || !std::isfinite(q.y)) return;
        lo.x = std::min(lo.x, q.x);
        lo.y = std::min(lo.y, q.y);
        hi.x = std::max(hi.x, q.x);
        hi.y = std::max(hi.y, q.y);
    };
    for (P2 const& q : p.points) add(q);
    for (P2 const& q : p.keepVisible) add(q);
    for (auto const& c : p.curves)
        for (P2 const& q : c) add(q);
    if (p.hasCircle) {
        add({p.circleCenter.x - p.circleRadius, p.circleCenter.y - p.circleRadius});
        add({p.circleCenter.x + p.circleRadius, p.circleCenter.y + p.circleRadius});
    }
    if (!(lo.x <= hi.x)) {
        lo = {-1, -1};
        hi = {1, 1};
    }
}

const char* kPositive = "#d62728";
const char* kNegative = "#1f5fbf";

// Writes one panel at vertical offset `top`; returns its height.
double renderPanel(std::ostream& out, Panel const& p, double top, double width, int index) {
    const double margin = 48.0, titleH = 26.0, legendH = 40.0;
    P2 lo, hi;
    extentOf(p, lo, hi);
    double w = hi.x - lo.x, h = hi.y - lo.y;
    const double extent = std::max(w, h) > 0 ? std::max(w, h) : 1.0;
    // Pad by 12 % of the extent, so typical whiskers (<= 8 %) stay inside.
    const double pad = 0.12 * extent, padY = p.flat ? 0.03 * extent : pad;
    lo.x -= pad;
    hi.x += pad;
    lo.y -= padY;
    hi.y += padY;
    w = hi.x - lo.x;
    h = hi.y - lo.y;

    const double plotW = width - 2 * margin;
    double scale = plotW / w;
    double plotH = h * scale;
    const double maxH = 1.0 * plotW;
    if (plotH > maxH) {  // tall views: fit the height instead and centre horizontally
        scale = maxH / h;
        plotH = maxH;
    }
    const double offX = margin + 0.5 * (plotW - w * scale);
    const double plotTop = top + titleH;
    auto map = [&](P2 const& q) {
        const double sx = offX + (q.x - lo.x) * scale;
        const double sy = p.flipY ? plotTop + (hi.y - q.y) * scale : plotTop + (q.y - lo.y) * scale;
        return P2{sx, sy};
    };

    const std::string clipId = "clip" + std::to_string(index);
    out << "<g>\n<text x=\"" << fmt(margin) << "\" y=\"" << fmt(top + 18) << "\" class=\"title\">"
        << escapeXml(p.title) << "</text>\n";
    out << "<clipPath id=\"" << clipId << "\"><rect x=\"" << fmt(margin) << "\" y=\"" << fmt(plotTop)
        << "\" width=\"" << fmt(plotW) << "\" height=\"" << fmt(plotH) << "\"/></clipPath>\n";
    out << "<rect x=\"" << fmt(margin) << "\" y=\"" << fmt(plotTop) << "\" width=\"" << fmt(plotW)
        << "\" height=\"" << fmt(plotH) << "\" class=\"frame\"/>\n";
    out << "<g clip-path=\"url(#" << clipId << ")\">\n";

    // Fitted primitive.
    out << "<g class=\"primitive\">\n";
    if (p.hasCircle) {
        const P2 c = map(p.circleCenter);
        out << "<circle cx=\"" << fmt(c.x) << "\" cy=\"" << fmt(c.y) << "\" r=\"" << fmt(p.circleRadius * scale)
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

    // Measured points.
    out << "<g class=\"points\">\n";
    for (std::size_t i = 0; i < p.points.size(); ++i) {
        const P2 s = map(p.points[i]);
        double r = 1.8;
        std::string style;
        if (!p.dotScale.empty()) {
            r = 1.5 + 5.0 * p.dotScale[i];
            style = std::string(" style=\"fill:") + (p.dotSign[i] >= 0 ? kPositive : kNegative) + "\"";
        }
        out << "<circle cx=\"" << fmt(s.x) << "\" cy=\"" << fmt(s.y) << "\" r=\"" << fmt(r) << '"' << style
            << "/>\n";
    }
    out << "</g>\n";

    // Magnified residuals.
    std::size_t clipped = 0;
    out << "<g class=\"residuals\">\n";
    for (Whisker const& wk : p.whiskers) {
        const double len = p.magnification * wk.residual;
        const P2 tipV{wk.foot.x + len * wk.dir.x, wk.foot.y + len * wk.dir.y};
        const P2 a = map(wk.foot), b = map(tipV);
        if (!(tipV.x >= lo.x && tipV.x <= hi.x && tipV.y >= lo.y && tipV.y <= hi.y)) ++clipped;
        const char* colour = wk.residual >= 0 ? kPositive : kNegative;
        out << "<line x1=\"" << fmt(a.x) << "\" y1=\"" << fmt(a.y) << "\" x2=\"" << fmt(b.x) << "\" y2=\""
            << fmt(b.y) << "\" stroke=\"" << colour << "\"/><circle cx=\"" << fmt(b.x) << "\" cy=\"" << fmt(b.y)
            << "\" r=\"1.3\" fill=\"" << colour << "\"/>\n";
    }
    out << "</g>\n</g>\n";

    // Legend: axes and a scale bar of a round length (a power of ten).
    const double ly = plotTop + plotH + 18;
    const double bar = std::pow(10.0, std::floor(std::log10(w / 4)));
    out << "<text x=\"" << fmt(margin) << "\" y=\"" << fmt(ly) << "\" class=\"legend\">" << escapeXml(p.xLabel)
        << " →, " << escapeXml(p.yLabel) << (p.flipY ? " ↑" : " ↓") << "; bar at right: " << shortNumber(bar)
        << " (data units)</text>\n";
    out << "<path class=\"bar\" d=\"M" << fmt(width - margin - bar * scale) << ' ' << fmt(ly - 4) << "h"
        << fmt(bar * scale) << "\"/>\n";
    out << "<text x=\"" << fmt(margin) << "\" y=\"" << fmt(ly + 16) << "\" class=\"legend\">grey: "
        << p.points.size() << " measured points; black: fitted primitive";
    if (!p.whiskers.empty()) {
        out << "; residuals magnified ×" << shortNumber(p.magnification) << " (red +, blue −)";
        if (clipped) out << "; " << clipped << " clipped at the frame";
    } else if (!p.dotScale.empty()) {
        out << "; dot size ∝ |residual| (red +, blue −)";
    }
    out << "</text>\n</g>\n";
    return titleH + plotH + legendH;
}

// Samples of a straight segment as a polyline.
std::vector<P2> segment(P2 a, P2 b) { return {a, b}; }

Panel planarPanel(PointSet const& pts, FitResult const& r, SvgOptions const& opt, std::string const& title) {
    Panel p;
    p.title = title;
    p.xLabel = pts.header.size() >= 1 ? pts.header[0] : "x";
    p.yLabel = pts.header.size() >= 2 ? pts.header[1] : "y";
    p.flipY = !opt.yDown;
    const std::size_t n = pts.size();
    p.points.reserve(n);
    p.whiskers.reserve(n);
    for (std::size_t i = 0; i < n; ++i) p.points.push_back({pts.at(i, 0), pts.at(i, 1)});
    if (r.shape == Shape::circle) {
        p.hasCircle = true;
        p.circleCenter = {r.center[0], r.center[1]};
        p.circleRadius = std::fabs(r.radius);
        for (std::size_t i = 0; i < n; ++i) {
            const double dx = p.points[i].x - r.center[0], dy = p.points[i].y - r.center[1];
            const double l = std::hypot(dx, dy);
            const P2 u = l > 0 ? P2{dx / l, dy / l} : P2{1, 0};
            p.whiskers.push_back({{r.center[0] + p.circleRadius * u.x, r.center[1] + p.circleRadius * u.y}, u,
                                  r.residuals[i]});
        }
    } else {  // line2
        const P2 q{r.point[0], r.point[1]}, d{r.direction[0], r.direction[1]};
        const P2 nrm{-d.y, d.x};
        double tmin = HUGE_VAL, tmax = -HUGE_VAL;
        for (std::size_t i = 0; i < n; ++i) {
            const double t = (p.points[i].x - q.x) * d.x + (p.points[i].y - q.y) * d.y;
            tmin = std::min(tmin, t);
            tmax = std::max(tmax, t);
            p.whiskers.push_back({{q.x + t * d.x, q.y + t * d.y}, nrm, r.residuals[i]});
        }
        if (n > 0) {
            const double ext = 0.05 * (tmax - tmin);
            tmin -= ext;
            tmax += ext;
            p.curves.push_back(segment({q.x + tmin * d.x, q.y + tmin * d.y}, {q.x + tmax * d.x, q.y + tmax * d.y}));
        }
    }
    return p;
}

double panelExtent(Panel const& p) {
    P2 lo, hi;
    extentOf(p, lo, hi);
    return std::max(hi.x - lo.x, hi.y - lo.y);
}

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

void writeSvg(std::ostream& out, PointSet const& pts, FitResult const& r, SvgOptions const& opt) {
    std::vector<Panel> panels;
    const std::string heading = std::string(shapeInfo(r.shape).title) + " fit (" + methodName(r.method) + ") of " +
                                pts.source + ", " + std::to_string(pts.size()) + " points";
    const std::size_t n = pts.size();

    switch (r.shape) {
        case Shape::line2:
        case Shape::circle:
            panels.push_back(planarPanel(pts, r, opt, heading));
            break;

        case Shape::line3: {
            // Axial coordinate t and signed radial distance, the sign being
            // the side of the reference direction e1 the point lies on.
            Panel p;
            p.title = heading + ": axial against radial coordinate";
            p.flat = true;
            p.xLabel = "along the line";
            p.yLabel = "radial distance";
            p.flipY = true;
            const V3 d = unit(r.direction), e1 = orthogonalTo(d);
            double tmin = HUGE_VAL, tmax = -HUGE_VAL;
            for (std::size_t i = 0; i < n; ++i) {
                const V3 pt = pointOf(pts, i);
                const V3 w{pt[0] - r.point[0], pt[1] - r.point[1], pt[2] - r.point[2]};
                const double t = dot(w, d);
                const double side = dot(w, e1) >= 0 ? 1.0 : -1.0;
                p.points.push_back({t, side * r.residuals[i]});
                p.whiskers.push_back({{t, 0.0}, {0.0, side}, r.residuals[i]});
                tmin = std::min(tmin, t);
                tmax = std::max(tmax, t);
            }
            if (n > 0) p.curves.push_back(segment({tmin, 0.0}, {tmax, 0.0}));
            panels.push_back(p);
            break;
        }

        case Shape::sphere: {
            Panel p;
            p.title = heading + ": meridian section about the cap axis";
            p.xLabel = "across the axis";
            p.yLabel = "along the axis";
            p.flipY = true;
            const V3 c = r.center;
            V3 mean{0, 0, 0};
            for (std::size_t i = 0; i < n; ++i) {
                const V3 w = unit({pts.at(i, 0) - c[0], pts.at(i, 1) - c[1], pts.at(i, 2) - c[2]});
                for (int k = 0; k < 3; ++k) mean[k] += w[k];
            }
            // A full sphere has no cap axis; the z axis serves then.
            V3 axis = unit(mean);
            if (n == 0 || std::sqrt(dot(mean, mean)) < 1e-3 * static_cast<double>(n)) axis = {0, 0, 1};
            const V3 e1 = orthogonalTo(axis);
            const double R = std::fabs(r.radius);
            p.hasCircle = true;
            p.circleRadius = R;
            for (std::size_t i = 0; i < n; ++i) {
                const V3 w{pts.at(i, 0) - c[0], pts.at(i, 1) - c[1], pts.at(i, 2) - c[2]};
                const double h = dot(w, axis);
                const double rho = std::sqrt(dot(w, w));
                const double s = std::sqrt(std::max(rho * rho - h * h, 0.0)) * (dot(w, e1) >= 0 ? 1.0 : -1.0);
                const P2 u = rho > 0 ? P2{s / rho, h / rho} : P2{0, 1};
                p.points.push_back({s, h});
                p.whiskers.push_back({{R * u.x, R * u.y}, u, r.residuals[i]});
            }
            panels.push_back(p);
            break;
        }

        case Shape::plane: {
            // In-plane frame: origin at the centroid's foot on the plane,
            // axes e1 (from x, see orthogonalTo) and e2 = n × e1.
            const V3 nrm = unit(r.normal), e1 = orthogonalTo(nrm), e2 = cross(nrm, e1);
            V3 cen{0, 0, 0};
            for (std::size_t i = 0; i < n; ++i)
                for (int k = 0; k < 3; ++k) cen[k] += pts.at(i, k) / static_cast<double>(n);
            Panel top, side;
            top.title = heading + ": points in the plane's frame";
            top.xLabel = "in-plane axis 1";
            top.yLabel = "in-plane axis 2";
            side.title = "side view along in-plane axis 1, residuals along the normal";
            side.xLabel = "in-plane axis 1";
            side.yLabel = "normal";
            side.flat = true;
            double umin = HUGE_VAL, umax = -HUGE_VAL;
            const double maxAbs = r.stats.maxAbs > 0 ? r.stats.maxAbs : 1.0;
            for (std::size_t i = 0; i < n; ++i) {
                const V3 pt = pointOf(pts, i);
                const V3 w{pt[0] - cen[0], pt[1] - cen[1], pt[2] - cen[2]};
                const double u = dot(w, e1), v = dot(w, e2);
                top.points.push_back({u, v});
                top.dotScale.push_back(std::fabs(r.residuals[i]) / maxAbs);
                top.dotSign.push_back(r.residuals[i]);
                side.points.push_back({u, r.residuals[i]});
                side.whiskers.push_back({{u, 0.0}, {0.0, 1.0}, r.residuals[i]});
                umin = std::min(umin, u);
                umax = std::max(umax, u);
            }
            if (n > 0) side.curves.push_back(segment({umin, 0.0}, {umax, 0.0}));
            panels.push_back(top);
            panels.push_back(side);
            break;
        }
    }

    // The factor of every panel with whiskers, from its own extent unless given.
    for (Panel& p : panels) {
        if (p.whiskers.empty()) continue;
        if (opt.magnification > 0) {
            p.magnification = opt.magnification;
        } else {
            std::vector<double> res;
            res.reserve(p.whiskers.size());
            for (Whisker const& wk : p.whiskers) res.push_back(wk.residual);
            p.magnification = autoMagnification(res, panelExtent(p));
        }
        // A side view is flat: give it the height of twice the 90th-percentile
        // whisker (at least 4 %, at most 25 % of its length) on either side.
        if (p.flat && !p.curves.empty()) {
            std::vector<double> res;
            for (Whisker const& wk : p.whiskers) res.push_back(wk.residual);
            const double ext = panelExtent(p);
            const double half = std::min(std::max(2.0 * percentile90(res) * p.magnification, 0.04 * ext), 0.25 * ext);
            p.keepVisible.push_back({p.curves[0][0].x, half});
            p.keepVisible.push_back({p.curves[0][0].x, -half});
        }
    }

    std::ostringstream body;
    double y = 8.0;
    int index = 0;
    for (Panel const& p : panels) y += renderPanel(body, p, y, opt.width, index++) + 12.0;

    out << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << fmt(opt.width) << "\" height=\"" << fmt(y)
        << "\" viewBox=\"0 0 " << fmt(opt.width) << ' ' << fmt(y) << "\">\n"
        << "<style>\n"
        << "text { font-family: sans-serif; font-size: 12px; fill: #222; }\n"
        << ".title { font-size: 14px; font-weight: bold; }\n"
        << ".frame { fill: #fcfcfc; stroke: #bbb; }\n"
        << ".primitive circle, .primitive polyline, .primitive path { fill: none; stroke: #000; stroke-width: 1.2; }\n"
        << ".points circle { fill: #888; }\n"
        << ".residuals line { stroke-width: 1; }\n"
        << ".bar { stroke: #222; stroke-width: 2; }\n"
        << "</style>\n"
        << "<rect width=\"100%\" height=\"100%\" fill=\"#fff\"/>\n"
        << body.str() << "</svg>\n";
}

}  // namespace metrofit
