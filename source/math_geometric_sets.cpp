// Least-squares intersections of sets of geometric<T>: the point nearest to a
// set of spatial lines, and the common point of a set of spheres or of planar
// circles through their radical planes and axes.  Accumulated in double.
#include <math/geometric.h>

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "math_kernels.h"

namespace math {

using kernel::det3;
using kernel::dot3;
using kernel::solve3;
using kernel::symEig3;

namespace {

// false for fewer than two items; otherwise true and m = the mean of
// at(item) over the items, summed in double in item order.
template <class Items, class At>
bool meanOfTwoOrMore(Items const& items, At const& at, double (&m)[3]) {
    if (items.size() < 2) return false;
    m[0] = m[1] = m[2] = 0.0;
    for (auto const& item : items)
        for (unsigned k = 0; k < 3; ++k) m[k] += double(at(item)[k]);
    for (unsigned k = 0; k < 3; ++k) m[k] /= double(items.size());
    return true;
}

}  // namespace

// Least squares: the squared distance of x from line i is |P_i (x - p_i)|^2
// with the projector P_i = I - d_i d_i^T, so the minimum solves
//   (sum P_i) x = sum P_i p_i.
// With the points taken relative to their mean, and accumulated in double.
// M = (sum P_i)/n has eigenvalues in [0, 1] summing to 2; if all lines are
// parallel its smallest eigenvalue is 0.  Because the other two are then at
// least 1 - lambda_min, det M lies between lambda_min*(1 - lambda_min)^2 and
// lambda_min, and the lines count as parallel when det M <= eps_p/2: for two
// lines at angle theta, lambda_min = (1 - |cos theta|)/2, so this is the
// pairwise test 1 - |cos theta| <= eps_p carried over to a set.
template <class T>
bool geometric<T>::intersect(std::vector<Cline3<T>> const& lines, Cpoint3<T>& s, T& rms) {
    double m[3];
    if (!meanOfTwoOrMore(lines, [](Cline3<T> const& l) { return l.point(); }, m)) return false;
    const std::size_t n = lines.size();

    double A[3][3] = {{0, 0, 0}, {0, 0, 0}, {0, 0, 0}};
    double b[3] = {0.0, 0.0, 0.0};
    for (Cline3<T> const& l : lines) {
        double d[3] = {double(l.direction().x), double(l.direction().y), double(l.direction().z)};
        const double len = std::sqrt(dot3(d, d));
        if (!(len > 0.0) || !std::isfinite(len)) return false;
        for (double& v : d) v /= len;
        const double q[3] = {double(l.point().x) - m[0], double(l.point().y) - m[1], double(l.point().z) - m[2]};
        const double dq = dot3(d, q);
        for (unsigned i = 0; i < 3; ++i) {
            for (unsigned j = 0; j < 3; ++j) A[i][j] += (i == j ? 1.0 : 0.0) - d[i] * d[j];
            b[i] += q[i] - d[i] * dq;
        }
    }
    double M[3][3];
    for (unsigned i = 0; i < 3; ++i)
        for (unsigned j = 0; j < 3; ++j) M[i][j] = A[i][j] / double(n);
    const double detM = det3(M);
    if (!(detM > 0.5 * tol::epsFloat)) return false;

    double x[3];
    solve3(A, b, det3(A), x);
    // A NaN or infinite line point gives no finite solution.
    if (!(std::isfinite(x[0] + m[0]) && std::isfinite(x[1] + m[1]) && std::isfinite(x[2] + m[2]))) return false;

    double sum = 0.0;
    for (Cline3<T> const& l : lines) {
        double d[3] = {double(l.direction().x), double(l.direction().y), double(l.direction().z)};
        const double len = std::sqrt(dot3(d, d));
        for (double& v : d) v /= len;
        const double q[3] = {x[0] + m[0] - double(l.point().x), x[1] + m[1] - double(l.point().y),
                             x[2] + m[2] - double(l.point().z)};
        const double dq = dot3(d, q);
        const double r[3] = {q[0] - dq * d[0], q[1] - dq * d[1], q[2] - dq * d[2]};
        sum += dot3(r, r);
    }
    s = Cpoint3<T>(T(x[0] + m[0]), T(x[1] + m[1]), T(x[2] + m[2]));
    rms = T(std::sqrt(sum / double(n)));
    return true;
}

// Spheres |x - c_i|^2 = r_i^2.  The power of x for sphere i is
// |x - c_i|^2 - r_i^2; where spheres meet, all powers are 0, and the radical
// plane of two spheres is where their powers agree.  With a_i = c_i - m
// (m the centroid of the centres) and q = x - m, equal powers mean
//   2 a_i.q = |a_i|^2 - r_i^2 + mu   (mu common to all spheres),
// a linear least-squares problem whose normal equations are
//   2 S q = sum a_i (|a_i|^2 - r_i^2),   S = sum a_i a_i^T,
// the scatter matrix of the centres (mu drops out because sum a_i = 0).
// S is solved on its range: eigen-directions with an eigenvalue above
// eps_p times the largest count, the others are left free.
//  - Centres spanning space (rank 3): q is the least-squares point of all
//    radical planes; the flag is not used.
//  - Coplanar centres (rank 2, e.g. three spheres): q lies in the plane fitted
//    to the centres, and the solutions are q +- h*n with n that plane's unit
//    normal and h^2 the mean of r_i^2 - |q - a_i|^2 (h = 0 when that mean is
//    negative, i.e. the spheres do not reach the plane point).  The flag
//    picks the side: true gives q + h*n, where n is oriented along the vector
//    area of the centre polygon c_0, c_1, ..., c_(n-1) (for three spheres
//    along (c_1 - c_0) x (c_2 - c_0)), false gives q - h*n.
//  - Collinear or coincident centres (rank <= 1): the spheres meet in a circle
//    or not at all; false, s untouched.  Fewer than two spheres or NaN: false.
template <class T>
bool geometric<T>::intersect(std::vector<Csphere3<T>> const& spheres, Cpoint3<T>& s, bool positiveSide) {
    double m[3];
    if (!meanOfTwoOrMore(spheres, [](Csphere3<T> const& k) { return k.center(); }, m)) return false;
    const std::size_t n = spheres.size();

    double S[3][3] = {{0, 0, 0}, {0, 0, 0}, {0, 0, 0}};
    double g[3] = {0.0, 0.0, 0.0};
    double area[3] = {0.0, 0.0, 0.0};
    for (std::size_t idx = 0; idx < n; ++idx) {
        Csphere3<T> const& k = spheres[idx];
        Csphere3<T> const& kn = spheres[(idx + 1) % n];
        const double a[3] = {double(k.center().x) - m[0], double(k.center().y) - m[1], double(k.center().z) - m[2]};
        const double an[3] = {double(kn.center().x) - m[0], double(kn.center().y) - m[1],
                              double(kn.center().z) - m[2]};
        const double r = double(k.radius());
        const double kk = dot3(a, a) - r * r;
        for (unsigned i = 0; i < 3; ++i) {
            for (unsigned j = 0; j < 3; ++j) S[i][j] += a[i] * a[j];
            g[i] += a[i] * kk;
        }
        area[0] += a[1] * an[2] - a[2] * an[1];
        area[1] += a[2] * an[0] - a[0] * an[2];
        area[2] += a[0] * an[1] - a[1] * an[0];
    }

    double ev[3], V[3][3];
    symEig3(S, ev, V);
    double evMax = std::max(ev[0], std::max(ev[1], ev[2]));
    if (!(evMax > 0.0) || !std::isfinite(evMax)) return false;

    double q[3] = {0.0, 0.0, 0.0};
    int rank = 0, freeIdx = -1;
    for (int k = 0; k < 3; ++k) {
        if (ev[k] > tol::epsFloat * evMax) {
            const double v[3] = {V[0][k], V[1][k], V[2][k]};
            const double c = dot3(v, g) / (2.0 * ev[k]);
            for (int i = 0; i < 3; ++i) q[i] += c * v[i];
            ++rank;
        } else {
            freeIdx = k;
        }
    }
    if (rank < 2) return false;

    if (rank == 2) {
        double nrm[3] = {V[0][freeIdx], V[1][freeIdx], V[2][freeIdx]};
        double side = dot3(nrm, area);
        if (side == 0.0) {  // no orientation from the polygon: first non-zero component positive
            for (double c : nrm)
                if (c != 0.0) {
                    side = c;
                    break;
                }
        }
        if (side < 0.0)
            for (double& c : nrm) c = -c;
        double h2 = 0.0;
        for (Csphere3<T> const& k : spheres) {
            const double d[3] = {q[0] - (double(k.center().x) - m[0]), q[1] - (double(k.center().y) - m[1]),
                                 q[2] - (double(k.center().z) - m[2])};
            const double r = double(k.radius());
            h2 += r * r - dot3(d, d);
        }
        h2 /= double(n);
        const double h = h2 > 0.0 ? std::sqrt(h2) : 0.0;
        const double sg = positiveSide ? h : -h;
        for (int i = 0; i < 3; ++i) q[i] += sg * nrm[i];
    }
    if (!(std::isfinite(q[0]) && std::isfinite(q[1]) && std::isfinite(q[2]))) return false;
    s = Cpoint3<T>(T(q[0] + m[0]), T(q[1] + m[1]), T(q[2] + m[2]));
    return true;
}

// Circles |x - c_i|^2 = r_i^2: the planar counterpart of the sphere set
// above.  With a_i = c_i - m (m the centroid of the centres) and q = x - m,
// equal powers |x - c_i|^2 - r_i^2 along all radical axes give the normal
// equations 2 S q = sum a_i (|a_i|^2 - r_i^2), S the scatter matrix of the
// centres, solved on its range (eigenvalues above eps_p times the largest).
//  - Centres spanning the plane: q is the least-squares point of all radical
//    axes; the flag is not used.
//  - Collinear centres (e.g. two circles): the centres' fitted line carries
//    the foot q, the solutions are q +- h*n with n the line's left normal and
//    h^2 the mean of r_i^2 - |q - a_i|^2 (h = 0 when negative: the circles do
//    not reach, and the point on the centre line is returned).  The line is
//    directed from the first centre towards the last centre that differs
//    from it along the line; true gives the point to the left of it (for two
//    circles: left of c_0 -> c_1), false the point to the right.
//  - Coincident centres, fewer than two circles or NaN: false, s untouched.
template <class T>
bool geometric<T>::intersect(std::vector<Ccircle2<T>> const& circles, Cpoint2<T>& s, bool leftSide) {
    const std::size_t n = circles.size();
    if (n < 2) return false;
    double mx = 0.0, my = 0.0;
    for (Ccircle2<T> const& k : circles) {
        mx += double(k.center().x);
        my += double(k.center().y);
    }
    mx /= double(n);
    my /= double(n);
    double sxx = 0.0, sxy = 0.0, syy = 0.0, gx = 0.0, gy = 0.0;
    for (Ccircle2<T> const& k : circles) {
        const double ax = double(k.center().x) - mx, ay = double(k.center().y) - my, r = double(k.radius());
        const double kk = ax * ax + ay * ay - r * r;
        sxx += ax * ax;
        sxy += ax * ay;
        syy += ay * ay;
        gx += ax * kk;
        gy += ay * kk;
    }
    // Eigen-decomposition of [[sxx, sxy], [sxy, syy]]: (dx, dy) is the unit
    // eigenvector of the larger eigenvalue l1.
    double l1, l2, dx, dy;
    kernel::symEig2(sxx, sxy, syy, l1, l2, dx, dy);
    if (!(l1 > 0.0) || !std::isfinite(l1)) return false;
    double qx, qy;
    if (l2 > tol::epsFloat * l1) {
        const double c1 = (dx * gx + dy * gy) / (2.0 * l1);
        const double c2 = (-dy * gx + dx * gy) / (2.0 * l2);
        qx = c1 * dx - c2 * dy;
        qy = c1 * dy + c2 * dx;
    } else {
        // Orientation of the centre line.
        for (std::size_t i = n - 1; i > 0; --i) {
            const double t = (double(circles[i].center().x) - double(circles[0].center().x)) * dx +
                             (double(circles[i].center().y) - double(circles[0].center().y)) * dy;
            if (t != 0.0) {
                if (t < 0.0) {
                    dx = -dx;
                    dy = -dy;
                }
                break;
            }
        }
        const double c1 = (dx * gx + dy * gy) / (2.0 * l1);
        qx = c1 * dx;
        qy = c1 * dy;
        double h2 = 0.0;
        for (Ccircle2<T> const& k : circles) {
            const double ex = qx - (double(k.center().x) - mx), ey = qy - (double(k.center().y) - my);
            const double r = double(k.radius());
            h2 += r * r - (ex * ex + ey * ey);
        }
        h2 /= double(n);
        const double h = h2 > 0.0 ? std::sqrt(h2) : 0.0;
        const double sg = leftSide ? h : -h;
        qx += sg * -dy;  // left normal (-dy, dx)
        qy += sg * dx;
    }
    if (!(std::isfinite(qx) && std::isfinite(qy))) return false;
    s = Cpoint2<T>(T(qx + mx), T(qy + my));
    return true;
}

#define METROMATH_GEOMETRIC_SETS(T)                                                             \
    template bool geometric<T>::intersect(std::vector<Cline3<T>> const&, Cpoint3<T>&, T&);       \
    template bool geometric<T>::intersect(std::vector<Csphere3<T>> const&, Cpoint3<T>&, bool);   \
    template bool geometric<T>::intersect(std::vector<Ccircle2<T>> const&, Cpoint2<T>&, bool);

METROMATH_GEOMETRIC_SETS(float)
METROMATH_GEOMETRIC_SETS(double)

#undef METROMATH_GEOMETRIC_SETS

}  // namespace math
