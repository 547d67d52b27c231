// approximate<T>: fitting of geometric primitives to measured point sets.
//
// This header declares the closed-form least-squares fits (names ending in
// Lsq: algebraic models solved in one step), the orthogonal (total least
// squares) line and plane fits (names ending in Geom), the power-iteration
// plane fit (fitPlaneGeomFast) and the deviation measures (names beginning
// with StdAbw, the library's word for standard deviation), together with the
// result records they fill and the parameter record they read.
//
// Conventions shared by every member:
//  - Points arrive as std::vector<Cpoint2<T>> or std::vector<Cpoint3<T>>;
//    results go into a caller-supplied primitive (and record).
//  - Too few points is not an error: the primitive receives quiet NaN (see
//    each function) and every field of a record is quiet NaN.  Nothing here
//    throws on its own; exceptions of the matrix, the solvers and the
//    eigenvalue routines pass through unchanged (the primitive may then be
//    partly written).
//  - Degenerate configurations are documented per function: the circle and
//    sphere fits report a rank-deficient system (collinear or coincident
//    points) as the NaN-invalid primitive; a line through the origin for the
//    algebraic line model shows as NaN or non-finite values.
//  - Non-finite input (a NaN coordinate, or coordinates whose squares
//    overflow) gives the NaN-invalid primitive (and record) of the fits that
//    use the eigenvalue routine; it is never handed to that routine.
//  - Signs of eigenvectors, and so of fitted line directions and plane
//    normals, are whatever the eigen decomposition produces.
//
// Accuracy figures quoted below were measured with the test data of
// tests/approximate_lsq_test.cpp and tests/approximate_geom_test.cpp
// (Gaussian noise, fixed seeds); "1 um noise" means a standard deviation of
// 0.001 in millimetre coordinates.  Sums over points are accumulated in blocks
// of 1024 points (each block summed in the stated precision, then added to the
// total), which keeps the rounding of 10^6-point sums close to that of
// 10^3-point sums.
#ifndef MATH_APPROXIMATE_H
#define MATH_APPROXIMATE_H

#include <math/export.h>
#include <math/point.h>
#include <math/primitives2.h>
#include <math/primitives3.h>

#include <cstdint>
#include <limits>
#include <vector>

namespace math {

// ---------------------------------------------------------------------------
// Result records of the closed-form fits.  Plain structures; the fit that takes
// one writes its field.  A fresh record holds quiet NaN.
// ---------------------------------------------------------------------------

// Mean of the squared orthogonal distances of the points from the line of the
// algebraic line fit (divisor n, no square root); NaN for fewer than 3 points.
template <class T>
struct CqLineLsqNStdAbw {
    T meanSqDist = quietNaN<T>();
};

// StdAbwCircle2 of the points and the fitted circle; NaN for fewer than 4 points.
template <class T>
struct CqCircleLsqStdAbw {
    T stdAbw = quietNaN<T>();
};

// StdAbwSphere of the points and the fitted sphere.
template <class T>
struct CqSphereLsqStdAbw {
    T stdAbw = quietNaN<T>();
};

// ---------------------------------------------------------------------------
// Result and parameter records of the orthogonal fits.  The spreads are the
// standard deviations of the points along the principal axes of their scatter,
// sqrt(lambda / (n - 1)).  Note the field order: the planar line and the plane
// put the spread across the primitive first, the spatial line puts the spread
// along the line first.
// ---------------------------------------------------------------------------

// Planar line: spread across the line, then along it.
template <class T>
struct CqLineGeom2DStdAbw {
    T stdAbwOrth = quietNaN<T>();   // sqrt(lambda_min / (n - 1))
    T stdAbwAlong = quietNaN<T>();  // sqrt(lambda_max / (n - 1))
};

// Spatial line: spreads along the three principal axes, largest (along the
// line) first, each sqrt(|lambda_k| / (n - 1)).
template <class T>
struct CqLineGeom3DStdAbw {
    T stdAbwMain = quietNaN<T>();
    T stdAbwSecond = quietNaN<T>();
    T stdAbwThird = quietNaN<T>();
};

// Plane: spread along the normal first, then the two in-plane spreads, each
// sqrt(lambda_k / (n - 1)) without absolute value (see fitPlaneGeom).
template <class T>
struct CqPlaneGeomStdAbw {
    T stdAbwNormal = quietNaN<T>();  // sqrt(lambda_3 / (n - 1)), smallest
    T stdAbwSecond = quietNaN<T>();  // sqrt(lambda_2 / (n - 1))
    T stdAbwMain = quietNaN<T>();    // sqrt(lambda_1 / (n - 1)), largest
};

// Parameters of the power iteration of fitPlaneGeomFast (read only).
//
// The iteration multiplies the unit vector by the inertia tensor ten times and
// stops when the growth L over those ten products changes by less than eps, or
// when maxIter < k (k counts completed iterations from 0, so at most
// maxIter + 2 iterations run).  L is about lambda_max^10, so eps is an
// absolute threshold on a quantity that scales with the tenth power of the
// data's extent.
//
// Defaults: maxIter = 200 and eps = the smallest normal number of T.  With
// that eps the iteration ends as soon as L repeats exactly in double
// arithmetic: after 5 to 15 iterations for patches whose two in-plane extents
// are similar, after 150 to 200 when one is a tenth of the other.  200
// iterations cost about 30000 floating-point operations.  Since L is
// stationary to second order in the angle error, the normal is then converged
// to about 1e-8 rad (similar extents) or 1e-7 to 1e-6 rad (10:1 patches); for
// full double convergence pass eps = 0 and a larger maxIter (eps = 0 always
// runs maxIter + 2 iterations).  For clouds whose inertia tensor has its
// largest eigenvalue below about 1e-4 (L below eps from the start) the
// iteration stops after two rounds: scale such data or pass eps = 0.
template <class T>
struct CqPlaneGeomFast {
    std::uint32_t maxIter;
    T eps;

    CqPlaneGeomFast() : maxIter(200u), eps(std::numeric_limits<T>::min()) {}
    CqPlaneGeomFast(std::uint32_t maxIter_, T eps_) : maxIter(maxIter_), eps(eps_) {}
};

// Parameters of the iterative geometric fits (fitCircleGeom, fitSphereGeom,
// fitCylinderGeom, fitEllipseGeom, fitEllipseGeomLM and their Rfix forms),
// read only.  The fits work on data translated to the centroid and scaled by
// the RMS distance from it, so the tolerances below are relative and do not
// depend on where the points lie or on the unit of length.
//  - maxIter: iteration limit; a fit that has not met a tolerance by then is
//    returned invalid with converged == false in its record.
//  - relStepTol: converged when every step component is below
//    relStepTol * (relStepTol + |parameter|) in the normalised coordinates.
//  - gradTol: converged when |J^T r|_inf <= gradTol * (|r|^2 + gradTol).
//  - initDamping: Levenberg-Marquardt damping at the start, relative to the
//    largest diagonal element of J^T J (Gauss-Newton fits ignore it).
template <class T>
struct CqGeomFitPrm {
    std::uint32_t maxIter = 100u;
    T relStepTol = sizeof(T) == sizeof(float) ? T(1e-6) : T(1e-13);
    T gradTol = sizeof(T) == sizeof(float) ? T(1e-6) : T(1e-14);
    T initDamping = T(1e-3);
};

// Static fitting functions; the class holds no state.
template <class T>
class METROMATH_API approximate {
public:
    // -----------------------------------------------------------------------
    // Closed-form least-squares fits
    // -----------------------------------------------------------------------

    // Algebraic line fit: the line a*x + b*y = 1 with (a, b) the linear least
    // squares solution over all points.  With the double sums Sx, Sy, Sxx,
    // Syy, Sxy (double also for float) the fitted line is A*x + B*y = D with
    // A = Syy*Sx - Sxy*Sy, B = Sxx*Sy - Sxy*Sx, D = Sxx*Syy - Sxy^2.
    //
    // Returns the mean squared orthogonal distance of the points from that
    // line, D*(n*D - A*Sx - B*Sy) / (n*(A^2 + B^2)) (divisor n, no root).
    //   - n < 2: the line's point.x and direction.x (and the y values) become
    //     quiet NaN; returns NaN.
    //   - n = 2: the line through the two points (two-point constructor);
    //     returns NaN (no deviation for the exact case).
    //   - B == 0 exactly (vertical line): point (D/A, y of the first point),
    //     direction (0, 1).  Otherwise the point is (x0, (D - x0*A)/B) at the
    //     first point's x0 and the direction (1, -A/B) normalised.
    //
    // Where the model fails: a line through the coordinate origin (or close to
    // it compared with the points' extent) has D = 0 and cannot be written as
    // a*x + b*y = 1; the point's x becomes NaN or huge.  Lines close to the
    // origin lose accuracy in proportion.  Translate the points first when the
    // line may pass near the origin, or use fitLineGeom.
    //
    // Accuracy: a line 1000 mm from the origin, 10^6 points over 100 mm with
    // 1 um noise: direction within 2e-8 rad and position within 1e-6 mm of the
    // truth (the statistical limit), for float input as for double.  The
    // returned mean square is a difference of terms (distance / noise)^2 =
    // 1e12 times larger than itself: there it is good to a few percent (5 %
    // measured); lines nearer the origin or with more noise fare better.  The
    // fit minimises algebraic, not orthogonal, distances; the line differs
    // from the orthogonal fit by a fraction of the noise.
    static double fitLineLsq(std::vector<Cpoint2<T>> const& pts, Cline2<T>& line);
    // The same fit; the mean squared distance goes into rec.meanSqDist.
    static void fitLineLsqN(std::vector<Cpoint2<T>> const& pts, Cline2<T>& line,
                            CqLineLsqNStdAbw<T>& rec);
    // The same fit, deviation discarded.
    static void fitLineLsqN(std::vector<Cpoint2<T>> const& pts, Cline2<T>& line);

    // Algebraic circle fit: A*(u^2 + v^2) + B*u + C*v = 1 on coordinates
    // u = x - mean x, v = y - mean y (the means and all moment sums in double
    // also for float, two passes over the points).  The 3x3 normal equations
    // are stored as Cmatrix<T> and solved with Csolver_svd<T>.  Centre
    // (mean x - B/(2A), mean y - C/(2A)), radius |sqrt(B^2 + C^2 + 4A) / (2A)|.
    //   - n <= 3: centre and radius quiet NaN (also for exactly 3 points).
    //   - Collinear or coincident points: the solver reports the 3x3 system
    //     rank-deficient (rank judged on the column-equilibrated matrix, see
    //     Csolver_svd) and centre and radius are quiet NaN.  Nearly collinear
    //     points of full rank still give a huge radius.
    //
    // Accuracy: this is the Kasa fit; it minimises algebraic, not orthogonal
    // distances.  A full circle of radius 10 mm at (1000, 2000) mm, 1000 points,
    // 1 um noise: centre and radius within 0.2 um (double) and 1 um (float,
    // whose input is quantised to 0.1 um there).  A 30 degree arc of the same
    // circle, 200 points, 1 um noise: centre and radius within 12 um in double
    // and in float, the same scatter as an orthogonal fit of those points (a
    // short arc fixes the centre poorly along its mid-normal); the algebraic
    // bias, about sigma^2 / r, is negligible at such noise.
    static void fitCircleLsq(std::vector<Cpoint2<T>> const& pts, Ccircle2<T>& circle);
    // As above, then rec.stdAbw = StdAbwCircle2(pts, circle) (NaN for n <= 3).
    static void fitCircleLsq(std::vector<Cpoint2<T>> const& pts, Ccircle2<T>& circle,
                             CqCircleLsqStdAbw<T>& rec);

    // Algebraic circle fit with an additional eigen stage.  It forms the n x 3
    // design matrix with rows (2u, 2v, -1), its normal matrix K = Z^T Z and the
    // column g = Z^T (u^2 + v^2), decomposes K with CmatrixCalc::getEigenvalue
    // and builds the pseudo-inverse of K (eigenvalues with |lambda| not above
    // 2^-23 dropped, for float and double alike) and from it the parameters of
    // 2u*a + 2v*b - c = u^2 + v^2.  Those are computed and not used: the circle
    // written is that of the algebraic circle system of fitCircleLsq, so the
    // result is bit for bit the one of fitCircleLsq.  The eigen stage costs an
    // n x 3 matrix (and its transpose) and can raise the exceptions of the
    // eigenvalue routine.  Same too-few-points rule (n <= 3 gives NaN), and
    // non-finite moment sums give the NaN circle before the eigen stage.  More
    // than 2^32 - 1 points do not fit the n x 3 matrix: CthrowMath
    // ERR_MATRIX_DIMS is thrown before anything is allocated (use
    // fitCircleLsq, which has no such limit).
    static void fitCircleLsqBeta(std::vector<Cpoint2<T>> const& pts, Ccircle2<T>& circle);

    // Algebraic sphere fit: A*(x^2 + y^2 + z^2) + B*x + C*y + D*z = 1 on the raw,
    // uncentred coordinates (24 moment sums in double also for float; a 4x4
    // system in Cmatrix<T> solved with Csolver_svd<T>).  Centre
    // (-B/(2A), -C/(2A), -D/(2A)); radius -sqrt(B^2 + C^2 + D^2 + 4A) / (2A)
    // WITHOUT absolute value: on an exact sphere A = 1/(r^2 - |c|^2), so the
    // stored radius is negative when the coordinate origin lies inside the
    // fitted sphere and positive when it lies outside.  Take |radius| for the
    // size.
    //   - No count check, but an empty or too small set, coincident points or
    //     points on one circle give a rank-deficient 4x4 system: the solver
    //     reports it and centre and radius are quiet NaN.
    //   - A sphere through (or very near) the origin has 1/A = 0: the model
    //     fails there as the line model fails for lines through the origin.
    //
    // Accuracy: the uncentred system loses digits with the distance of the
    // sphere from the origin.  Exact points of a sphere of radius 10 in double:
    // centre and radius to 1e-12 at 45 from the origin, to 4e-8 at 1000.  With
    // 1 um noise and 10^4 points near the origin: within 0.1 um.  In float the
    // 4x4 system is solved in single precision: 5e-6 with the origin inside the
    // sphere, 2e-4 at 45 from the origin; move the points near the origin
    // first.
    static void fitSphereLsq(std::vector<Cpoint3<T>> const& pts, Csphere3<T>& sphere);
    // As above, then rec.stdAbw = StdAbwSphere(pts, sphere).
    static void fitSphereLsq(std::vector<Cpoint3<T>> const& pts, Csphere3<T>& sphere,
                             CqSphereLsqStdAbw<T>& rec);

    // -----------------------------------------------------------------------
    // Deviation measures: the sample standard deviation about the mean of a
    // per-point quantity d, sqrt((sum d^2 - (sum d)^2 / n) / (n - 1)), sums in T.
    // Being taken about the mean, a constant offset of d does not enter: the
    // measures describe the spread of the residuals, not their size.  One point
    // gives 0/0 = NaN, an empty set NaN.  For exactly fitting data rounding can
    // make the bracket slightly negative and the result NaN.
    // -----------------------------------------------------------------------

    // d = signed distance of a point from the line, along the line's direction
    // turned by +90 degrees (normalised; a zero direction gives NaN).
    static T StdAbwLine2(std::vector<Cpoint2<T>> const& pts, Cline2<T> const& line);
    // d = distance of a point from the circle's centre; the radius is not read.
    static T StdAbwCircle2(std::vector<Cpoint2<T>> const& pts, Ccircle2<T> const& circle);
    // d = distance of a point from the sphere's centre; the radius is not read.
    static T StdAbwSphere(std::vector<Cpoint3<T>> const& pts, Csphere3<T> const& sphere);

    // -----------------------------------------------------------------------
    // Orthogonal (total least squares) fits.  Too few points: n < 2 (lines) or
    // n < 3 (planes) give NaN primitives (line: point.x and direction.x; plane:
    // normal.x and d, the other values NaN as well); n = 2 (lines) or n = 3
    // (planes) give the exact primitive through the points by the two- or
    // three-point constructor.  With a record, every record field is NaN in
    // both cases.
    // -----------------------------------------------------------------------

    // Planar line, closed formula.  Point = centroid; direction from the
    // centred sums Sxx, Syy, Sxy (two passes, sums in T): (1, 0) if Syy == 0,
    // else (0, 1) if Sxx == 0, else with t = ((Sxx - Syy) + sqrt((Sxx - Syy)^2 +
    // 4 Sxy^2)) / 2 the direction (t, Sxy) normalised, or (0, 1) when
    // Sxy^2 + t^2 < 1e-8 (the same absolute constant for float and double).
    //
    // Accuracy: the centring keeps points far from the origin harmless.  10^6
    // points of a 100 mm line 1000 mm from the origin with 1 um noise: direction
    // within 3e-8 rad, position within 4e-7 mm in double; in float (sums in
    // float) direction within 6e-8 rad, centroid within 0.3 um.  The absolute
    // 1e-8 test means that sets of tiny extent (coordinates within about 1e-4
    // of each other) get direction (0, 1).
    static void fitLineGeom(std::vector<Cpoint2<T>> const& pts, Cline2<T>& line);

    // Planar line with spreads.  Point = centroid; the scatter matrix
    // [[Cxx, Cxy], [Cxy, Cyy]] from raw sums in T (Cxx = Sxx - Sx^2/n) is
    // rotated by CmatrixCalc::getEigenvalue2x2sym; the direction is the
    // eigenvector row of the larger eigenvalue (row 1 if e1 > e0, else row 0),
    // normalised; stdAbwOrth / stdAbwAlong = sqrt(e_min / (n-1)) /
    // sqrt(e_max / (n-1)).
    //
    // Exactly axis-parallel data (Cxy == 0: all x equal, all y equal, or any
    // set symmetric about an axis-parallel line) make the 2x2 rotation divide
    // by the zero off-diagonal term: direction and record are NaN.  The
    // two-argument form handles those sets.  A tiny negative eigenvalue on
    // exactly collinear data also gives stdAbwOrth = NaN.
    //
    // Accuracy: raw sums in T cancel for points far from the origin.  In double
    // the line of the example above is found as by the closed form (3e-8 rad)
    // and stdAbwOrth = 1 um to 1 %.  In float, points 1000 mm out lose the
    // small eigenvalue (stdAbwOrth may be NaN) and the direction keeps about
    // 1e-3 rad; centre float data near the origin first.
    static void fitLineGeom(std::vector<Cpoint2<T>> const& pts, Cline2<T>& line,
                            CqLineGeom2DStdAbw<T>& rec);

    // Spatial line from the inertia tensor.  Point = centroid (sums in T);
    // centred moments in double (second pass); the inertia tensor
    // [[Syy+Szz, -Sxy, -Sxz], [-Sxy, Sxx+Szz, -Syz], [-Sxz, -Syz, Sxx+Syy]] is
    // decomposed by CmatrixCalc::getEigenvalue and the direction is row 2 (the
    // smallest eigenvalue), normalised.  Coincident points give an arbitrary
    // direction (whatever the decomposition returns for a zero tensor).
    //
    // Accuracy: 10^6 points along 100 mm, 1000 mm from the origin, 1 um noise
    // per coordinate: direction within 5e-8 rad and position within 1.5e-6 mm
    // in double.  In float the centroid is summed in float: position within
    // 0.5 um, direction within 2e-7 rad (the moments are centred and in double).
    static void fitLineGeom(std::vector<Cpoint3<T>> const& pts, Cline3<T>& line);

    // Spatial line with spreads.  Point = centroid; scatter matrix from raw
    // sums in double (one pass), decomposed by getEigenvalue; the direction is
    // row 0 (largest eigenvalue), normalised; the record receives
    // sqrt(|lambda_k| / (n - 1)) for k = 1, 2, 3 (largest first).  Gives the
    // same line as the form without record.
    //
    // Accuracy: raw sums in double: for the example above the direction is
    // within 5e-8 rad, the position within 1.5e-6 mm and the two small spreads
    // (1 um) within 1 %; float input gives 3e-7 rad and 2e-5 mm.
    static void fitLineGeom(std::vector<Cpoint3<T>> const& pts, Cline3<T>& line,
                            CqLineGeom3DStdAbw<T>& rec);

    // Plane from the scatter matrix.  Raw sums in T, f = 1/n formed once,
    // Cxx = Sxx - Sx*Sx*f etc.; decomposed by getEigenvalue; the normal is
    // row 2 (smallest eigenvalue), normalised; the plane is set through the
    // centroid.  With a record: stdAbwNormal, stdAbwSecond, stdAbwMain =
    // sqrt(lambda_3 / (n-1)), sqrt(lambda_2 / (n-1)), sqrt(lambda_1 / (n-1))
    // WITHOUT absolute value: on exactly planar data lambda_3 can come out
    // slightly negative and stdAbwNormal is then NaN (the plane itself is
    // fine).  Collinear points give an arbitrary normal perpendicular to the
    // line.
    //
    // Accuracy: raw sums in T cancel when the cloud lies far from the origin.
    // Planes with normals near each axis, about 1500 mm from the origin,
    // 100 x 100 mm, 10^5 points, 1 um noise: normal within 3e-7 rad, plane
    // position within 6e-6 mm, stdAbwNormal within 2 % (double).  The same
    // clouds in float: normal off by up to 7e-4 rad; moved to the origin first,
    // within 3e-7 rad.
    static void fitPlaneGeom(std::vector<Cpoint3<T>> const& pts, Cplane3<T>& plane);
    static void fitPlaneGeom(std::vector<Cpoint3<T>> const& pts, Cplane3<T>& plane,
                             CqPlaneGeomStdAbw<T>& rec);

    // Plane by power iteration on the inertia tensor.  Raw sums in T, tensor
    // centred with f = 1/n; start v = (1, 1, 1); each iteration applies the
    // tensor ten times (products and length carried in double also for float,
    // so that L ~ lambda_max^10 does not overflow), L = |v|, v /= L; stop when
    // |L - L_prev| < prm.eps or prm.maxIter < k (see CqPlaneGeomFast).  The
    // normal is v (the eigenvector of the largest eigenvalue of the tensor),
    // d = -(normal . centroid); the four values are written with set(a, b, c, d).
    //
    // Where it fails: the start vector (1, 1, 1) is kept; a normal orthogonal
    // to it, e.g. (1, -1, 0)/sqrt(2) or (1, 1, -2)/sqrt(6), is not found when
    // the data are symmetric enough to keep the iteration in that subspace
    // (the result is then an in-plane direction).  Planes much longer than wide
    // converge slowly (see CqPlaneGeomFast).  Accuracy otherwise as for
    // fitPlaneGeom once converged.
    static void fitPlaneGeomFast(std::vector<Cpoint3<T>> const& pts, Cplane3<T>& plane,
                                 CqPlaneGeomFast<T> const& prm);
};

extern template class approximate<float>;
extern template class approximate<double>;

}  // namespace math

#endif
