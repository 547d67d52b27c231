// Orthogonal distance of points from a planar ellipse, geometric<T>::distance
// for Cellipse2.
#include <math/geometric.h>

#include <utility>
#include <cmath>

#include "math_kernels.h"

namespace math {

namespace {

// Distance of (y0, y1), both >= 0, from the ellipse (x/e0)^2 + (y/e1)^2 = 1
// with e0 >= e1 > 0 (after D. Eberly, "Distance from a point to an ellipse").
// The closest point is x = (r0*y0/(s + r0), y1/(s + 1)) where s is the root of
//   F(s) = (r0*z0/(s + r0))^2 + (z1/(s + 1))^2 - 1,  r0 = (e0/e1)^2, z = y/e,
// which is convex and decreasing on s > -1 and bracketed by
// [z1 - 1, |(r0*z0, z1)| - 1].  The root finder is Newton's method inside the
// bracket: starting at the left end (F >= 0) Newton approaches the root from
// the left without overshooting; any step that leaves the current bracket is
// replaced by bisection.  Every evaluation shrinks the bracket, and the loop
// also stops when a step no longer changes s, so it always terminates.
double ellipseDistFirstQuadrant(double e0, double e1, double y0, double y1) {
    if (y1 > 0.0) {
        if (y0 > 0.0) {
            const double z0 = y0 / e0, z1 = y1 / e1;
            double g = z0 * z0 + z1 * z1 - 1.0;
            if (g == 0.0) return 0.0;
            const double r0 = (e0 / e1) * (e0 / e1);
            const double n0 = r0 * z0;
            double s0 = z1 - 1.0;
            double s1 = g < 0.0 ? 0.0 : std::hypot(n0, z1) - 1.0;
            double s = s0;
            for (int i = 0; i < 1200; ++i) {
                const double ra = n0 / (s + r0), rb = z1 / (s + 1.0);
                g = ra * ra + rb * rb - 1.0;
                if (g > 0.0)
                    s0 = s;
                else if (g < 0.0)
                    s1 = s;
                else
                    break;
                const double dg = -2.0 * (ra * ra / (s + r0) + rb * rb / (s + 1.0));
                double next = s - g / dg;
                if (!(next > s0 && next < s1)) {
                    next = 0.5 * (s0 + s1);
                    if (next == s0 || next == s1) break;
                }
                if (next == s) break;
                s = next;
            }
            const double x0 = r0 * y0 / (s + r0), x1 = y1 / (s + 1.0);
            return std::hypot(x0 - y0, x1 - y1);
        }
        // On the minor axis: the nearest point is the co-vertex (0, e1).
        return std::abs(y1 - e1);
    }
    // On the major axis: inside the evolute's cusp the nearest point lies off
    // the axis, beyond it the vertex (e0, 0) is nearest.
    const double numer0 = e0 * y0, denom0 = e0 * e0 - e1 * e1;
    if (numer0 < denom0) {
        const double xde0 = numer0 / denom0;
        const double x0 = e0 * xde0, x1 = e1 * std::sqrt(1.0 - xde0 * xde0);
        return std::hypot(x0 - y0, x1);
    }
    return std::abs(y0 - e0);
}

// The point is taken into the ellipse's frame (centre at the origin, a axis
// along x), reflected into the first quadrant, and the axes are ordered so
// that the larger comes first; the distance there is the distance sought.
// Computed in double for both types.  Negative semi-axes count by their
// magnitude; a zero minor semi-axis makes the ellipse the segment between the
// vertices; NaN anywhere gives NaN.  ca, sa: cosine and sine of the angle.
template <class T>
T ellipseDistance(Cellipse2<T> const& el, double ca, double sa, Cpoint2<T> const& p) {
    const double dx = double(p.x) - double(el.center().x), dy = double(p.y) - double(el.center().y);
    double u = std::abs(ca * dx + sa * dy);   // along the a axis
    double v = std::abs(-sa * dx + ca * dy);  // along the b axis
    double e0 = std::abs(double(el.a())), e1 = std::abs(double(el.b()));
    if (!(e0 == e0 && e1 == e1 && u == u && v == v)) return quietNaN<T>();
    if (e0 < e1) {
        std::swap(e0, e1);
        std::swap(u, v);
    }
    if (e1 == 0.0) {  // degenerate: the segment [-e0, e0] on the axis (the point e0 = 0 included)
        return static_cast<T>(u <= e0 ? v : std::hypot(u - e0, v));
    }
    const double dist = ellipseDistFirstQuadrant(e0, e1, u, v);
    const double zu = u / e0, zv = v / e1;
    return static_cast<T>(zu * zu + zv * zv < 1.0 ? -dist : dist);
}

}  // namespace

template <class T>
T geometric<T>::distance(Cellipse2<T> const& el, Cpoint2<T> const& p) {
    return ellipseDistance(el, std::cos(double(el.angle())), std::sin(double(el.angle())), p);
}

template <class T>
void geometric<T>::distance(Cellipse2<T> const& el, CpointSpan<Cpoint2<T>> ps, std::vector<T>& dist) {
    const double ca = std::cos(double(el.angle())), sa = std::sin(double(el.angle()));
    kernel::mapPoints(ps, dist, [&](Cpoint2<T> const& p) { return ellipseDistance(el, ca, sa, p); });
}

#define METROMATH_GEOMETRIC_ELLIPSE(T)                                        \
    template T geometric<T>::distance(Cellipse2<T> const&, Cpoint2<T> const&); \
    template void geometric<T>::distance(Cellipse2<T> const&, CpointSpan<Cpoint2<T>>, std::vector<T>&);

METROMATH_GEOMETRIC_ELLIPSE(float)
METROMATH_GEOMETRIC_ELLIPSE(double)

#undef METROMATH_GEOMETRIC_ELLIPSE

}  // namespace math
