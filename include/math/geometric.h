// geometric<T>: the library's static geometric functions: tolerance
// comparisons, and the intersections, distances and projections between the
// planar and spatial primitives.  Instantiated for float and double.
#ifndef MATH_GEOMETRIC_H
#define MATH_GEOMETRIC_H

#include <math/export.h>
#include <math/point.h>
#include <math/primitives2.h>
#include <math/primitives3.h>

#include <utility>
#include <vector>

namespace math {

template <class T>
class METROMATH_API geometric {
public:
    // ---------------------------------------------------------------------
    // Tolerance comparisons
    // ---------------------------------------------------------------------

    // Absolute, closed interval: a - eps <= b && b <= a + eps with the
    // single-precision epsilon 2^-23 for float and double alike.  The coarse
    // tolerance for double is intended; equalT uses the type's own epsilon.
    static bool equal(T const& a, T const& b) {
        const T e = T(tol::epsFloat);
        return a - e <= b && b <= a + e;
    }
    // Absolute, closed interval with the epsilon of T (2^-23 float, 2^-52 double).
    static bool equalT(T const& a, T const& b) {
        const T e = tol::eps<T>();
        return a - e <= b && b <= a + e;
    }
    // Per component, absolute, open interval with the epsilon of T:
    // a_i - eps < b_i && b_i < a_i + eps.  Taken literally: once a_i + eps
    // rounds back to a_i (always for |a_i| >= 4, for even significands in
    // [2, 4)), a point is unequal even to itself.  That is the contract.
    static bool equal(Cpoint2<T> const& a, Cpoint2<T> const& b) {
        const T e = tol::eps<T>();
        return a.x - e < b.x && b.x < a.x + e && a.y - e < b.y && b.y < a.y + e;
    }
    static bool equal(Cpoint3<T> const& a, Cpoint3<T> const& b) {
        const T e = tol::eps<T>();
        return a.x - e < b.x && b.x < a.x + e && a.y - e < b.y && b.y < a.y + e && a.z - e < b.z &&
               b.z < a.z + e;
    }

    // ---------------------------------------------------------------------
    // Planar queries
    // ---------------------------------------------------------------------
    //
    // The parallelism tolerance eps_p is 2^-23 for float and double alike.
    // Functions over point sets size the output to the number of points and
    // fill it in order, unless stated otherwise.

    // Intersection of two planar lines.  det = a.dx*b.dy - a.dy*b.dx is the
    // sine of the angle between the unit directions; |det| <= eps_p counts as
    // parallel: false, s unchanged.  Otherwise s is the common point, from the
    // two equations x cross d = p cross d, and true.  An invalid line (NaN in
    // point or direction): false, s unchanged.
    static bool intersect(Cline2<T> const& a, Cline2<T> const& b, Cpoint2<T>& s);
    // Signed distance (p - point) x direction = dx*(p.y - y) - dy*(p.x - x):
    // positive for points to the left of the directed line.
    static T distance(Cline2<T> const& l, Cpoint2<T> const& p);
    static void distance(Cline2<T> const& l, CpointSpan<Cpoint2<T>> ps, std::vector<T>& dist);
    // Parallel lines (|a.direction . b.direction| within eps_p of 1): the
    // unsigned distance of b's point from a; otherwise 0 (the lines meet).
    static T distance(Cline2<T> const& a, Cline2<T> const& b);
    // Foot of the perpendicular: t = (p - point).direction, p = point + t*direction.
    static void project(Cline2<T> const& l, Cpoint2<T>& p);
    // false for an empty set.  Otherwise each point in turn becomes the
    // intersection of l with the perpendicular to l through it (intersect for
    // two Cline2); when an intersection fails, false at once (earlier points
    // projected, the rest unchanged); else true.
    static bool project(Cline2<T> const& l, std::vector<Cpoint2<T>>& ps);

    // Orthogonal distance from the ellipse, signed like the sphere distance:
    // negative inside.  Computed in double for both types in the ellipse's
    // frame, reflected into the first quadrant; the foot of the perpendicular
    // is the root of a convex, decreasing function of one variable, found by
    // Newton's method safeguarded by bisection inside its bracket (it always
    // terminates).  Exact for points at the centre and on the axes; negative
    // semi-axes count by their magnitude; a zero semi-axis makes the ellipse
    // the segment between its vertices; NaN anywhere gives NaN.
    static T distance(Cellipse2<T> const& el, Cpoint2<T> const& p);
    static void distance(Cellipse2<T> const& el, CpointSpan<Cpoint2<T>> ps, std::vector<T>& dist);

    // ---------------------------------------------------------------------
    // Spatial distances and projections
    // ---------------------------------------------------------------------

    // Signed distance a*p.x + b*p.y + c*p.z + d: positive on the side the
    // normal points to.
    static T distance(Cplane3<T> const& e, Cpoint3<T> const& p);
    static void distance(Cplane3<T> const& e, CpointSpan<Cpoint3<T>> ps, std::vector<T>& dist);
    // Unsigned distance of p from its projection onto l.
    static T distance(Cline3<T> const& l, Cpoint3<T> const& p);
    // An empty point set leaves the output empty.
    static void distance(Cline3<T> const& l, CpointSpan<Cpoint3<T>> ps, std::vector<T>& dist);
    // Signed |p - centre| - radius (negative inside).
    static T distance(Csphere3<T> const& s, Cpoint3<T> const& p);
    static void distance(Csphere3<T> const& s, CpointSpan<Cpoint3<T>> ps, std::vector<T>& dist);
    // Signed distance from the axis minus the radius (negative inside).
    static T distance(Ccylinder3<T> const& z, Cpoint3<T> const& p);
    // An empty point set leaves the output untouched.
    static void distance(Ccylinder3<T> const& z, CpointSpan<Cpoint3<T>> ps, std::vector<T>& dist);
    // |p_i - q| for every point; an empty point set leaves the output untouched.
    static void distance(Cpoint3<T> const& q, CpointSpan<Cpoint3<T>> ps, std::vector<T>& dist);

    // Foot of the perpendicular: t = (p - point).direction, p = point + t*direction.
    static void project(Cline3<T> const& l, Cpoint3<T>& p);
    // false for an empty set, otherwise every point projected and true.
    static bool project(Cline3<T> const& l, std::vector<Cpoint3<T>>& ps);
    // p - (n.p + d)*n, in the form x' = (b^2 + c^2)*x - (b*y + c*z + d)*a and
    // likewise for y and z, all from the old coordinates.
    static void project(Cplane3<T> const& e, Cpoint3<T>& p);
    static void project(Cplane3<T> const& e, std::vector<Cpoint3<T>>& ps);

    // Keeps exactly the points whose residual satisfies |r_i| <= threshold
    // (order kept; NaN residuals are removed).  false, and nothing removed,
    // when the number of residuals differs from the number of points.
    static bool outlier(std::vector<Cpoint3<T>>& pts, std::vector<T> const& residuals, T const& threshold);

    // ---------------------------------------------------------------------
    // Spatial intersections
    // ---------------------------------------------------------------------

    // Plane and line: false (and s.x NaN) when |n.direction| <= eps_p or
    // plane or line is invalid.
    static bool intersect(Cplane3<T> const& e, Cline3<T> const& l, Cpoint3<T>& s);
    // Two planes: false (l unchanged) when the normals are parallel within
    // eps_p; otherwise the line along n1 x n2 through the point a*n1 + b*n2.
    static bool intersect(Cplane3<T> const& e1, Cplane3<T> const& e2, Cline3<T>& l);
    // Mutually closest points P, Q of two lines.  Parallel lines: false, s
    // untouched.  P equal to Q (geometric::equal): s = P, true.  Skew lines:
    // s = (P + Q)/2 and false, the midpoint delivered all the same.
    static bool intersect(Cline3<T> const& a, Cline3<T> const& b, Cpoint3<T>& s);
    // The same; gap receives |P - Q| (0 when they meet, untouched when parallel).
    static bool intersect(Cline3<T> const& a, Cline3<T> const& b, Cpoint3<T>& s, T& gap);
    // Three planes: the rows of the 3x3 system are the normals, the right-hand
    // side (-d1, -d2, -d3).  |det| (rule of Sarrus) <= eps_p: false, s
    // unchanged; otherwise s is the LU solution and true.
    static bool intersect(Cplane3<T> const& e1, Cplane3<T> const& e2, Cplane3<T> const& e3, Cpoint3<T>& s);
    // Sphere and line point + t*direction: the parameters of the two crossings
    // (ascending) from b = (D.P - 2*D.C)*0.5 and q = |C|^2 + |P|^2 - 2*C.P - r^2.
    // The form of b equals D.(P - C) only when D.P = 0 (the line given by its
    // foot point) and is kept so.  b^2 - q < 0, or an invalid sphere or line:
    // both NaN and false.
    static bool intersect(Csphere3<T> const& k, Cline3<T> const& l, std::pair<T, T>& t);
    // Box and line by the slab method: entry and exit point in the order of
    // the line's direction (equal when the line only touches an edge or a
    // corner).  false (points untouched) when the line misses the box or box
    // or line are invalid.
    static bool intersect(CboundingBox3<T> const& box, Cline3<T> const& l,
                          std::pair<Cpoint3<T>, Cpoint3<T>>& s);

    // ---------------------------------------------------------------------
    // Least-squares intersections of sets (accumulated in double)
    // ---------------------------------------------------------------------

    // Lines: the point minimising the sum of the squared distances from the
    // lines, the solution of (sum P_i) x = sum P_i p_i with the projectors
    // P_i = I - d_i d_i^T (unit directions, points taken relative to their
    // mean); rms receives the root mean square of the distances.  The lines
    // count as parallel when det((sum P_i)/n) <= eps_p/2 (for two lines at
    // angle theta the pairwise test 1 - |cos theta| <= eps_p).  false
    // (outputs untouched) for fewer than two lines, a zero or NaN direction,
    // parallel lines, or a solution that is not finite (a NaN or infinite
    // line point).
    static bool intersect(std::vector<Cline3<T>> const& lines, Cpoint3<T>& s, T& rms);
    // Spheres |x - c_i|^2 = r_i^2 through their radical planes.  With
    // a_i = c_i - m (m the centroid of the centres) and q = x - m, equal
    // powers |x - c_i|^2 - r_i^2 of all spheres give the normal equations
    //   2 S q = sum a_i (|a_i|^2 - r_i^2),   S = sum a_i a_i^T,
    // solved on the range of S (eigenvalues above eps_p times the largest).
    //  - Centres spanning space: q is the least-squares point of all radical
    //    planes; the flag is not used.
    //  - Coplanar centres (e.g. three spheres): the solutions are q +- h*n
    //    with n the unit normal of the centres' plane and h^2 the mean of
    //    r_i^2 - |q - a_i|^2 (h = 0 when that mean is negative: the spheres
    //    do not reach, and the point in the centres' plane is returned).
    //    n is oriented along the vector area of the centre polygon c_0, c_1,
    //    ..., c_(n-1) (for three spheres (c_1 - c_0) x (c_2 - c_0); without
    //    area its first non-zero component is positive); true gives q + h*n,
    //    false q - h*n.
    //  - Collinear or coincident centres (the spheres meet in a circle or not
    //    at all), fewer than two spheres or NaN: false, s untouched.
    static bool intersect(std::vector<Csphere3<T>> const& spheres, Cpoint3<T>& s, bool positiveSide);
    // Circles |x - c_i|^2 = r_i^2 through their radical axes: the planar
    // counterpart of the spheres, with the 2x2 scatter matrix S of the centres.
    //  - Centres spanning the plane: q is the least-squares point of all
    //    radical axes; the flag is not used.
    //  - Collinear centres (e.g. two circles): the centres' fitted line
    //    carries the foot q, the solutions are q +- h*n with n the line's
    //    left normal and h^2 the mean of r_i^2 - |q - a_i|^2 (h = 0 when
    //    negative: the circles do not reach, and the point on the centre line
    //    is returned).  The line is directed from the first centre towards the
    //    last centre that differs from it along the line; true gives the point
    //    to the left of it (for two circles: left of c_0 -> c_1), false the
    //    point to the right.
    //  - Coincident centres, fewer than two circles or NaN: false, s untouched.
    static bool intersect(std::vector<Ccircle2<T>> const& circles, Cpoint2<T>& s, bool leftSide);
};

extern template class geometric<float>;
extern template class geometric<double>;

}  // namespace math

#endif
