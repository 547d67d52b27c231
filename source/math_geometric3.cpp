// The spatial queries of geometric<T> (and the ellipse distance): distances,
// projections and intersections between points, lines, planes, spheres,
// cylinders and boxes.
#include <math/geometric.h>
#include <math/solver.h>

#include <core/throw.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

namespace math {

namespace {

// Parallelism tolerance: the single-precision epsilon for float and double.
template <class T>
constexpr T epsP() {
    return T(tol::epsFloat);
}

// |x| within eps_p of 1, closed interval (the tolerance comparison of geometric).
template <class T>
bool nearOne(T x) {
    return geometric<T>::equal(std::abs(x), T(1));
}

// ---- small dense helpers in double ------------------------------------------

double dot3(double const* a, double const* b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

// Determinant of a 3x3 matrix (rule of Sarrus).
double det3(double const (&A)[3][3]) {
    return A[0][0] * A[1][1] * A[2][2] + A[0][1] * A[1][2] * A[2][0] + A[0][2] * A[1][0] * A[2][1] -
           A[0][2] * A[1][1] * A[2][0] - A[0][0] * A[1][2] * A[2][1] - A[0][1] * A[1][0] * A[2][2];
}

// Solves A x = b by the adjugate (Cramer's rule); the caller has checked det.
void solve3(double const (&A)[3][3], double const* b, double det, double* x) {
    const double c00 = A[1][1] * A[2][2] - A[1][2] * A[2][1];
    const double c01 = A[0][2] * A[2][1] - A[0][1] * A[2][2];
    const double c02 = A[0][1] * A[1][2] - A[0][2] * A[1][1];
    const double c10 = A[1][2] * A[2][0] - A[1][0] * A[2][2];
    const double c11 = A[0][0] * A[2][2] - A[0][2] * A[2][0];
    const double c12 = A[0][2] * A[1][0] - A[0][0] * A[1][2];
    const double c20 = A[1][0] * A[2][1] - A[1][1] * A[2][0];
    const double c21 = A[0][1] * A[2][0] - A[0][0] * A[2][1];
    const double c22 = A[0][0] * A[1][1] - A[0][1] * A[1][0];
    x[0] = (c00 * b[0] + c01 * b[1] + c02 * b[2]) / det;
    x[1] = (c10 * b[0] + c11 * b[1] + c12 * b[2]) / det;
    x[2] = (c20 * b[0] + c21 * b[1] + c22 * b[2]) / det;
}

// Eigen-decomposition of a symmetric 3x3 matrix by cyclic Jacobi rotations:
// ev[k] the eigenvalues, column k of V the unit eigenvector of ev[k].  The
// sweep count is bounded; NaN input gives NaN output.
void symEig3(double const (&S)[3][3], double (&ev)[3], double (&V)[3][3]) {
    double A[3][3];
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) {
            A[i][j] = S[i][j];
            V[i][j] = i == j ? 1.0 : 0.0;
        }
    for (int sweep = 0; sweep < 64; ++sweep) {
        const double off = std::abs(A[0][1]) + std::abs(A[0][2]) + std::abs(A[1][2]);
        const double diag = std::abs(A[0][0]) + std::abs(A[1][1]) + std::abs(A[2][2]);
        if (!(off > 1e-300) || !(off > 1e-17 * diag)) break;
        for (int p = 0; p < 2; ++p)
            for (int q = p + 1; q < 3; ++q) {
                const double apq = A[p][q];
                if (apq == 0.0) continue;
                // Rotation angle that annihilates A[p][q].
                const double theta = (A[q][q] - A[p][p]) / (2.0 * apq);
                const double t = (theta >= 0.0 ? 1.0 : -1.0) / (std::abs(theta) + std::sqrt(theta * theta + 1.0));
                const double c = 1.0 / std::sqrt(t * t + 1.0);
                const double s = t * c;
                for (int k = 0; k < 3; ++k) {  // A := A * J
                    const double akp = A[k][p], akq = A[k][q];
                    A[k][p] = c * akp - s * akq;
                    A[k][q] = s * akp + c * akq;
                }
                for (int k = 0; k < 3; ++k) {  // A := J^T * A
                    const double apk = A[p][k], aqk = A[q][k];
                    A[p][k] = c * apk - s * aqk;
                    A[q][k] = s * apk + c * aqk;
                }
                for (int k = 0; k < 3; ++k) {  // V := V * J
                    const double vkp = V[k][p], vkq = V[k][q];
                    V[k][p] = c * vkp - s * vkq;
                    V[k][q] = s * vkp + c * vkq;
                }
            }
    }
    for (int i = 0; i < 3; ++i) ev[i] = A[i][i];
}

// ---- ellipse distance --------------------------------------------------------

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

}  // namespace

// ---------------------------------------------------------------------------
// Distances
// ---------------------------------------------------------------------------

template <class T>
T geometric<T>::distance(Cplane3<T> const& e, Cpoint3<T> const& p) {
    return e.a() * p.x + e.b() * p.y + e.c() * p.z + e.d();
}

template <class T>
void geometric<T>::distance(Cplane3<T> const& e, std::vector<Cpoint3<T>> const& ps, std::vector<T>& dist) {
    dist.clear();
    dist.resize(ps.size());
    for (std::size_t i = 0; i < ps.size(); ++i) dist[i] = distance(e, ps[i]);
}

template <class T>
T geometric<T>::distance(Cline3<T> const& l, Cpoint3<T> const& p) {
    Cpoint3<T> f(p);
    project(l, f);
    return (p - f).length();
}

template <class T>
void geometric<T>::distance(Cline3<T> const& l, std::vector<Cpoint3<T>> const& ps, std::vector<T>& dist) {
    dist.clear();
    dist.resize(ps.size());
    for (std::size_t i = 0; i < ps.size(); ++i) dist[i] = distance(l, ps[i]);
}

template <class T>
T geometric<T>::distance(Csphere3<T> const& s, Cpoint3<T> const& p) {
    return (p - s.center()).length() - s.radius();
}

template <class T>
void geometric<T>::distance(Csphere3<T> const& s, std::vector<Cpoint3<T>> const& ps, std::vector<T>& dist) {
    dist.clear();
    dist.resize(ps.size());
    for (std::size_t i = 0; i < ps.size(); ++i) dist[i] = distance(s, ps[i]);
}

template <class T>
T geometric<T>::distance(Ccylinder3<T> const& z, Cpoint3<T> const& p) {
    return distance(z.axis(), p) - z.radius();
}

template <class T>
void geometric<T>::distance(Ccylinder3<T> const& z, std::vector<Cpoint3<T>> const& ps, std::vector<T>& dist) {
    if (ps.empty()) return;
    dist.clear();
    dist.resize(ps.size());
    for (std::size_t i = 0; i < ps.size(); ++i) dist[i] = distance(z, ps[i]);
}

template <class T>
void geometric<T>::distance(Cpoint3<T> const& q, std::vector<Cpoint3<T>> const& ps, std::vector<T>& dist) {
    if (ps.empty()) return;
    dist.clear();
    dist.resize(ps.size());
    for (std::size_t i = 0; i < ps.size(); ++i) dist[i] = (ps[i] - q).length();
}

namespace {

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
void geometric<T>::distance(Cellipse2<T> const& el, std::vector<Cpoint2<T>> const& ps, std::vector<T>& dist) {
    const double ca = std::cos(double(el.angle())), sa = std::sin(double(el.angle()));
    dist.clear();
    dist.resize(ps.size());
    for (std::size_t i = 0; i < ps.size(); ++i) dist[i] = ellipseDistance(el, ca, sa, ps[i]);
}

// ---------------------------------------------------------------------------
// Projections
// ---------------------------------------------------------------------------

template <class T>
void geometric<T>::project(Cline3<T> const& l, Cpoint3<T>& p) {
    Cpoint3<T> const& o = l.point();
    Cdirec3<T> const& d = l.direction();
    const T t = (p.x - o.x) * d.x + (p.y - o.y) * d.y + (p.z - o.z) * d.z;
    p = Cpoint3<T>(o.x + t * d.x, o.y + t * d.y, o.z + t * d.z);
}

template <class T>
bool geometric<T>::project(Cline3<T> const& l, std::vector<Cpoint3<T>>& ps) {
    if (ps.empty()) return false;
    for (Cpoint3<T>& p : ps) project(l, p);
    return true;
}

template <class T>
void geometric<T>::project(Cplane3<T> const& e, Cpoint3<T>& p) {
    const T a = e.a(), b = e.b(), c = e.c(), d = e.d();
    const T x = p.x, y = p.y, z = p.z;
    p.x = (b * b + c * c) * x - (b * y + c * z + d) * a;
    p.y = (a * a + c * c) * y - (a * x + c * z + d) * b;
    p.z = (a * a + b * b) * z - (a * x + b * y + d) * c;
}

template <class T>
void geometric<T>::project(Cplane3<T> const& e, std::vector<Cpoint3<T>>& ps) {
    for (Cpoint3<T>& p : ps) project(e, p);
}

// ---------------------------------------------------------------------------
// Intersections
// ---------------------------------------------------------------------------

template <class T>
bool geometric<T>::intersect(Cplane3<T> const& e, Cline3<T> const& l, Cpoint3<T>& s) {
    Cdirec3<T> const& n = e.normal();
    Cdirec3<T> const& D = l.direction();
    Cpoint3<T> const& P = l.point();
    const T den = n.x * D.x + n.y * D.y + n.z * D.z;
    if (!(std::abs(den) > epsP<T>()) || !l.isValid() || !e.isValid()) {  // parallel or invalid
        s.x = quietNaN<T>();
        return false;
    }
    const T t = (-e.d() - (n.x * P.x + n.y * P.y + n.z * P.z)) / den;
    s = Cpoint3<T>(P.x + t * D.x, P.y + t * D.y, P.z + t * D.z);
    return true;
}

template <class T>
bool geometric<T>::intersect(Cplane3<T> const& e1, Cplane3<T> const& e2, Cline3<T>& l) {
    Cdirec3<T> const& N1 = e1.normal();
    Cdirec3<T> const& N2 = e2.normal();
    const T c = N1.x * N2.x + N1.y * N2.y + N1.z * N2.z;
    if (geometric<T>::equal(c, T(1)) || geometric<T>::equal(c, T(-1))) return false;
    const T d1 = e1.d(), d2 = e2.d();
    const T den = T(1) - c * c;
    const T alpha = (-d1 + d2 * c) / den;
    const T beta = (-d2 + d1 * c) / den;
    l.direction() = Cdirec3<T>(N1.cross(N2));
    l.point() = Cpoint3<T>(alpha * N1.x + beta * N2.x, alpha * N1.y + beta * N2.y, alpha * N1.z + beta * N2.z);
    return true;
}

template <class T>
bool geometric<T>::intersect(Cline3<T> const& a, Cline3<T> const& b, Cpoint3<T>& s) {
    T gap;
    return intersect(a, b, s, gap);
}

template <class T>
bool geometric<T>::intersect(Cline3<T> const& a, Cline3<T> const& b, Cpoint3<T>& s, T& gap) {
    Cdirec3<T> const& da = a.direction();
    Cdirec3<T> const& db = b.direction();
    const T c = -(da.x * db.x + da.y * db.y + da.z * db.z);
    if (geometric<T>::equal(c, T(1)) || geometric<T>::equal(c, T(-1))) return false;

    const Cpoint3<T> w = b.point() - a.point();
    const T e = da.x * w.x + da.y * w.y + da.z * w.z;
    const T f = -(db.x * w.x + db.y * w.y + db.z * w.z);
    const T den = T(1) - c * c;
    const T t = (e - f * c) / den;
    const T u = (f - e * c) / den;
    const Cpoint3<T> P = a.pointAt(t);
    const Cpoint3<T> Q = b.pointAt(u);

    if (geometric<T>::equal(P, Q)) {
        s = P;
        gap = T(0);
        return true;
    }
    // Skew lines: the midpoint and the gap are delivered with the false result.
    gap = (P - Q).length();
    s = (P + Q) * T(0.5);
    return false;
}

template <class T>
bool geometric<T>::intersect(Cplane3<T> const& e1, Cplane3<T> const& e2, Cplane3<T> const& e3, Cpoint3<T>& s) {
    const T a1 = e1.a(), b1 = e1.b(), c1 = e1.c();
    const T a2 = e2.a(), b2 = e2.b(), c2 = e2.c();
    const T a3 = e3.a(), b3 = e3.b(), c3 = e3.c();
    const T det = a1 * b2 * c3 + b1 * c2 * a3 + c1 * a2 * b3 - c1 * b2 * a3 - a1 * c2 * b3 - b1 * a2 * c3;
    if (-epsP<T>() <= det && det <= epsP<T>()) return false;
    if (!(det == det)) return false;  // NaN plane: no system to solve
    Cmatrix<T> A(3, 3);
    A(0, 0) = a1, A(0, 1) = b1, A(0, 2) = c1;
    A(1, 0) = a2, A(1, 1) = b2, A(1, 2) = c2;
    A(2, 0) = a3, A(2, 1) = b3, A(2, 2) = c3;
    try {
        Csolver_luDecomp<T> lu(A);
        const Cmatrix<T> x = lu.solve(std::vector<T>{-e1.d(), -e2.d(), -e3.d()});
        s = Cpoint3<T>(x(0, 0), x(1, 0), x(2, 0));
    } catch (CthrowBase const&) {
        // The determinant test excludes a singular system; a solver error is
        // reported as "no intersection" all the same, never passed on.
        return false;
    }
    return true;
}

template <class T>
bool geometric<T>::intersect(Csphere3<T> const& k, Cline3<T> const& l, std::pair<T, T>& t) {
    Cpoint3<T> const& C = k.center();
    Cpoint3<T> const& P = l.point();
    Cdirec3<T> const& D = l.direction();
    const T r = k.radius();
    const T b = ((D.x * P.x + D.y * P.y + D.z * P.z) - T(2) * (D.x * C.x + D.y * C.y + D.z * C.z)) * T(0.5);
    const T q = (C.x * C.x + C.y * C.y + C.z * C.z) + (P.x * P.x + P.y * P.y + P.z * P.z) -
                T(2) * (C.x * P.x + C.y * P.y + C.z * P.z) - r * r;
    const T disc = b * b - q;
    if (disc < T(0) || !l.isValid() || !k.isValid()) {
        t.first = t.second = quietNaN<T>();
        return false;
    }
    const T root = std::sqrt(disc);
    t.first = -b - root;
    t.second = -b + root;
    return true;
}

// Slab method: on each axis the line p + t*d lies between the two faces for
// t between (min - p)/d and (max - p)/d; the line meets the box where the
// three intervals overlap, [tEnter, tExit].  An axis with d = 0 constrains
// nothing if p lies between its faces and excludes everything otherwise.  The
// coordinates of the entry and exit point are clamped into the box so that
// rounding cannot leave them a hair outside.
template <class T>
bool geometric<T>::intersect(CboundingBox3<T> const& box, Cline3<T> const& l,
                             std::pair<Cpoint3<T>, Cpoint3<T>>& s) {
    if (!box.isValid() || !l.isValid()) return false;
    Cpoint3<T> const& p = l.point();
    Cdirec3<T> const& d = l.direction();
    T tEnter = -std::numeric_limits<T>::infinity();
    T tExit = std::numeric_limits<T>::infinity();
    for (unsigned i = 0; i < 3; ++i) {
        const T lo = box.min()[i], hi = box.max()[i];
        if (d[i] == T(0)) {
            if (p[i] < lo || p[i] > hi) return false;
            continue;
        }
        T t1 = (lo - p[i]) / d[i];
        T t2 = (hi - p[i]) / d[i];
        if (t1 > t2) std::swap(t1, t2);
        if (t1 > tEnter) tEnter = t1;
        if (t2 < tExit) tExit = t2;
        if (tEnter > tExit) return false;
    }
    if (std::isinf(tEnter) || std::isinf(tExit)) return false;  // a zero direction
    Cpoint3<T> a = l.pointAt(tEnter), b = l.pointAt(tExit);
    for (unsigned i = 0; i < 3; ++i) {
        a[i] = std::min(std::max(a[i], box.min()[i]), box.max()[i]);
        b[i] = std::min(std::max(b[i], box.min()[i]), box.max()[i]);
    }
    s.first = a;
    s.second = b;
    return true;
}

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
    const std::size_t n = lines.size();
    if (n < 2) return false;
    double m[3] = {0.0, 0.0, 0.0};
    for (Cline3<T> const& l : lines)
        for (unsigned k = 0; k < 3; ++k) m[k] += double(l.point()[k]);
    for (unsigned k = 0; k < 3; ++k) m[k] /= double(n);

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
    const std::size_t n = spheres.size();
    if (n < 2) return false;
    double m[3] = {0.0, 0.0, 0.0};
    for (Csphere3<T> const& k : spheres)
        for (unsigned i = 0; i < 3; ++i) m[i] += double(k.center()[i]);
    for (unsigned i = 0; i < 3; ++i) m[i] /= double(n);

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

// ---------------------------------------------------------------------------
// Planar lines and circles
// ---------------------------------------------------------------------------

template <class T>
T geometric<T>::distance(Cline2<T> const& l, Cpoint2<T> const& p) {
    Cpoint2<T> const& o = l.point();
    Cdirec2<T> const& d = l.direction();
    return d.x * (p.y - o.y) - d.y * (p.x - o.x);
}

template <class T>
void geometric<T>::distance(Cline2<T> const& l, std::vector<Cpoint2<T>> const& ps, std::vector<T>& dist) {
    dist.clear();
    dist.resize(ps.size());
    for (std::size_t i = 0; i < ps.size(); ++i) dist[i] = distance(l, ps[i]);
}

template <class T>
T geometric<T>::distance(Cline2<T> const& a, Cline2<T> const& b) {
    const T c = a.direction().x * b.direction().x + a.direction().y * b.direction().y;
    if (nearOne(c)) return std::abs(distance(a, b.point()));
    return T(0);
}

template <class T>
void geometric<T>::project(Cline2<T> const& l, Cpoint2<T>& p) {
    Cpoint2<T> const& o = l.point();
    Cdirec2<T> const& d = l.direction();
    const T t = (p.x - o.x) * d.x + (p.y - o.y) * d.y;
    p = Cpoint2<T>(o.x + t * d.x, o.y + t * d.y);
}

template <class T>
bool geometric<T>::project(Cline2<T> const& l, std::vector<Cpoint2<T>>& ps) {
    if (ps.empty()) return false;
    const Cdirec2<T> normal = l.direction().perp();
    for (Cpoint2<T>& p : ps) {
        Cpoint2<T> s;
        if (!intersect(l, Cline2<T>(p, normal), s)) return false;
        p = s;
    }
    return true;
}

// Circles |x - c_i|^2 = r_i^2: the planar counterpart of the sphere set
// below.  With a_i = c_i - m (m the centroid of the centres) and q = x - m,
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
    // Eigen-decomposition of [[sxx, sxy], [sxy, syy]]: the larger eigenvalue's
    // vector is (cos phi, sin phi) with phi = atan2(2 sxy, sxx - syy)/2.
    const double mean = 0.5 * (sxx + syy), diff = 0.5 * (sxx - syy);
    const double rad = std::hypot(diff, sxy);
    const double l1 = mean + rad, l2 = mean - rad;
    if (!(l1 > 0.0) || !std::isfinite(l1)) return false;
    const double phi = 0.5 * std::atan2(2.0 * sxy, sxx - syy);
    double dx = std::cos(phi), dy = std::sin(phi);
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

template <class T>
bool geometric<T>::outlier(std::vector<Cpoint3<T>>& pts, std::vector<T> const& residuals, T const& threshold) {
    if (pts.size() != residuals.size()) return false;
    std::size_t k = 0;
    for (std::size_t i = 0; i < pts.size(); ++i)
        if (std::abs(residuals[i]) <= threshold) pts[k++] = pts[i];
    pts.resize(k);
    return true;
}

// ---------------------------------------------------------------------------
// Explicit instantiation of every member defined here.
// ---------------------------------------------------------------------------

#define METROMATH_GEOMETRIC3_INSTANTIATE(T)                                                                    \
    template T geometric<T>::distance(Cplane3<T> const&, Cpoint3<T> const&);                                   \
    template void geometric<T>::distance(Cplane3<T> const&, std::vector<Cpoint3<T>> const&, std::vector<T>&);  \
    template T geometric<T>::distance(Cline3<T> const&, Cpoint3<T> const&);                                    \
    template void geometric<T>::distance(Cline3<T> const&, std::vector<Cpoint3<T>> const&, std::vector<T>&);   \
    template T geometric<T>::distance(Csphere3<T> const&, Cpoint3<T> const&);                                  \
    template void geometric<T>::distance(Csphere3<T> const&, std::vector<Cpoint3<T>> const&, std::vector<T>&); \
    template T geometric<T>::distance(Ccylinder3<T> const&, Cpoint3<T> const&);                                \
    template void geometric<T>::distance(Ccylinder3<T> const&, std::vector<Cpoint3<T>> const&,                 \
                                         std::vector<T>&);                                                     \
    template void geometric<T>::distance(Cpoint3<T> const&, std::vector<Cpoint3<T>> const&, std::vector<T>&);  \
    template T geometric<T>::distance(Cellipse2<T> const&, Cpoint2<T> const&);                                 \
    template void geometric<T>::distance(Cellipse2<T> const&, std::vector<Cpoint2<T>> const&, std::vector<T>&); \
    template void geometric<T>::project(Cline3<T> const&, Cpoint3<T>&);                                        \
    template bool geometric<T>::project(Cline3<T> const&, std::vector<Cpoint3<T>>&);                           \
    template void geometric<T>::project(Cplane3<T> const&, Cpoint3<T>&);                                       \
    template void geometric<T>::project(Cplane3<T> const&, std::vector<Cpoint3<T>>&);                          \
    template bool geometric<T>::intersect(Cplane3<T> const&, Cline3<T> const&, Cpoint3<T>&);                   \
    template bool geometric<T>::intersect(Cplane3<T> const&, Cplane3<T> const&, Cline3<T>&);                   \
    template bool geometric<T>::intersect(Cline3<T> const&, Cline3<T> const&, Cpoint3<T>&);                    \
    template bool geometric<T>::intersect(Cline3<T> const&, Cline3<T> const&, Cpoint3<T>&, T&);                \
    template bool geometric<T>::intersect(Cplane3<T> const&, Cplane3<T> const&, Cplane3<T> const&,             \
                                          Cpoint3<T>&);                                                        \
    template bool geometric<T>::intersect(Csphere3<T> const&, Cline3<T> const&, std::pair<T, T>&);             \
    template bool geometric<T>::intersect(CboundingBox3<T> const&, Cline3<T> const&,                           \
                                          std::pair<Cpoint3<T>, Cpoint3<T>>&);                                 \
    template bool geometric<T>::intersect(std::vector<Cline3<T>> const&, Cpoint3<T>&, T&);                     \
    template bool geometric<T>::intersect(std::vector<Csphere3<T>> const&, Cpoint3<T>&, bool);                 \
    template T geometric<T>::distance(Cline2<T> const&, Cpoint2<T> const&);                                    \
    template void geometric<T>::distance(Cline2<T> const&, std::vector<Cpoint2<T>> const&, std::vector<T>&);   \
    template T geometric<T>::distance(Cline2<T> const&, Cline2<T> const&);                                     \
    template void geometric<T>::project(Cline2<T> const&, Cpoint2<T>&);                                        \
    template bool geometric<T>::project(Cline2<T> const&, std::vector<Cpoint2<T>>&);                           \
    template bool geometric<T>::intersect(std::vector<Ccircle2<T>> const&, Cpoint2<T>&, bool);                 \
    template bool geometric<T>::outlier(std::vector<Cpoint3<T>>&, std::vector<T> const&, T const&);

METROMATH_GEOMETRIC3_INSTANTIATE(float)
METROMATH_GEOMETRIC3_INSTANTIATE(double)

#undef METROMATH_GEOMETRIC3_INSTANTIATE

}  // namespace math
