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
//  - Points arrive as a CpointSpan<Cpoint2<T>> or CpointSpan<Cpoint3<T>>: a
//    std::vector of points, a braced list, or (pointer, count) of points
//    stored elsewhere, read in place and never copied as a whole; results go
//    into a caller-supplied primitive (and record).
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
// Each fit states below in which precision it sums and where it loses
// accuracy; the figures measured on noisy data (10^6 points, 1000 mm from the
// origin, float and double) are in docs/accuracy.md with the tests that
// measure them.  Sums over points are accumulated in blocks of 1024 points
// (each block summed in the stated precision, then added to the total), which
// keeps the rounding of 10^6-point sums close to that of 10^3-point sums.
#ifndef MATH_APPROXIMATE_H
#define MATH_APPROXIMATE_H

#include <math/export.h>
#include <math/moments.h>
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
// arithmetic.  L is stationary to second order in the angle error, so the
// normal is then less converged than L, the less so the more elongated the
// patch (iteration counts and angles in docs/accuracy.md); for full double
// convergence pass eps = 0 and a larger maxIter (eps = 0 always runs
// maxIter + 2 iterations).  For clouds whose inertia tensor has its
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
//  - maxIter: limit on the evaluations of residuals and Jacobian (each one
//    pass over the points; a rejected trial step counts as one); a fit that
//    has not met a tolerance by then is returned invalid with
//    converged == false in its record.
//  - relStepTol: converged when |step| <= relStepTol * (|x| + relStepTol),
//    Euclidean norms of the step and of the parameter vector x in the
//    normalised coordinates (an axis or normal direction counts as a unit
//    vector in x).
//  - gradTol: converged when for every parameter j the cosine between the
//    residual vector r and the Jacobian column J_j is at most gradTol:
//    |J_j^T r| <= gradTol * |J_j| * |r| (0 residuals pass at once).
//  - initDamping: the circle, sphere and cylinder fits take the plain
//    Gauss-Newton step while it lowers the sum of squares; after a rejected
//    step they damp with mu = initDamping * max diag(J^T J) (Levenberg-
//    Marquardt with Nielsen's update of mu).  The ellipse fits document their
//    own use.
// Defaults (float and double alike, the iterations run in double): 100
// evaluations, relStepTol 1e-12, gradTol 1e-12, initDamping 1e-3.  Exact
// and slightly noisy data converge in 3 to 6 evaluations, large residuals
// (e.g. six points on a quarter circle) in about 15 (tests and
// bench/fitgeom_bench.cpp).  The step test at 1e-12 leaves a linearly
// converging iteration (large residuals) about 1e-12 of the data's extent
// from the minimum.
template <class T>
struct CqGeomFitPrm {
    std::uint32_t maxIter = 100u;
    T relStepTol = T(1e-12);
    T gradTol = T(1e-12);
    T initDamping = T(1e-3);
};

// ---------------------------------------------------------------------------
// Result records of the iterative geometric fits.  Every record starts with
// the same four fields:
//   iterations  evaluations of residuals and Jacobian used (0 when the input
//               was refused before iterating);
//   converged   true when a tolerance of CqGeomFitPrm was met; false for
//               refused input (too few points, non-finite coordinates, a
//               degenerate configuration) and for no convergence, and then
//               the primitive is invalid;
//   sumSqDist   sum of the squared orthogonal distances at the solution;
//   stdAbw      sqrt(sumSqDist / (n - p)), p the number of fitted parameters
//               (NaN when n <= p).
// followed by the standard uncertainty u<Param> of each fitted parameter,
// the square root of the diagonal of sigma^2 (J^T J)^-1 at the solution
// with sigma = stdAbw.  This assumes independent residuals of equal variance
// (no systematic form error); NaN when n <= p or J^T J is singular.  A
// fixed radius has uRadius = 0.  Everything except iterations and converged
// is NaN when the fit fails.
// ---------------------------------------------------------------------------

// Planar circle (fitCircleGeom, fitCircleGeomRfix); p = 3 (2 for Rfix).
template <class T>
struct CqCircleGeomStdAbw {
    std::uint32_t iterations = 0u;
    bool converged = false;
    T sumSqDist = quietNaN<T>();
    T stdAbw = quietNaN<T>();
    T uCenterX = quietNaN<T>();
    T uCenterY = quietNaN<T>();
    T uRadius = quietNaN<T>();
};

// Circle in space (fitCircleGeom, fitCircleGeomRfix on Cpoint3).  Each point
// has two residual components, its height over the plane and its radial
// distance within the plane (d^2 = h^2 + (rho - r)^2), so here
// stdAbw = sqrt(sumSqDist / (2n - p)) with p = 6 (5 for Rfix): the deviation
// of one component.  The normal's uncertainties are those of its unit-vector
// components (dimensionless).
template <class T>
struct CqCircle3GeomStdAbw {
    std::uint32_t iterations = 0u;
    bool converged = false;
    T sumSqDist = quietNaN<T>();
    T stdAbw = quietNaN<T>();
    T uCenterX = quietNaN<T>();
    T uCenterY = quietNaN<T>();
    T uCenterZ = quietNaN<T>();
    T uNormalX = quietNaN<T>();
    T uNormalY = quietNaN<T>();
    T uNormalZ = quietNaN<T>();
    T uRadius = quietNaN<T>();
};

// Sphere (fitSphereGeom, fitSphereGeomRfix); p = 4 (3 for Rfix).
template <class T>
struct CqSphereGeomStdAbw {
    std::uint32_t iterations = 0u;
    bool converged = false;
    T sumSqDist = quietNaN<T>();
    T stdAbw = quietNaN<T>();
    T uCenterX = quietNaN<T>();
    T uCenterY = quietNaN<T>();
    T uCenterZ = quietNaN<T>();
    T uRadius = quietNaN<T>();
};

// Cylinder (fitCylinderGeom, fitCylinderGeomRfix); p = 5 (4 for Rfix): two
// shifts of the axis across itself, two tilts, the radius.  uPoint* are the
// uncertainties of the coordinates of the axis point (the point of the axis
// nearest the centroid of the points: it moves only across the axis), uDir*
// those of the unit direction's components (dimensionless).
template <class T>
struct CqCylinderGeomStdAbw {
    std::uint32_t iterations = 0u;
    bool converged = false;
    T sumSqDist = quietNaN<T>();
    T stdAbw = quietNaN<T>();
    T uPointX = quietNaN<T>();
    T uPointY = quietNaN<T>();
    T uPointZ = quietNaN<T>();
    T uDirX = quietNaN<T>();
    T uDirY = quietNaN<T>();
    T uDirZ = quietNaN<T>();
    T uRadius = quietNaN<T>();
};

// Result record of the geometric ellipse fits (fitEllipseGeom,
// fitEllipseGeomLM).  After a successful fit:
//  - iterations: iterations used (each solves one 5x5 system);
//  - converged: true;
//  - sumSqDist: sum of the squared orthogonal distances of the points from
//    the fitted ellipse;
//  - stdAbw: sqrt(sumSqDist / (n - 5)), five fitted parameters;
//  - uCenterX, uCenterY, uA, uB, uAngle: standard uncertainties of the
//    parameters, the square roots of the diagonal of stdAbw^2 * (J^T J)^-1
//    with J the Jacobian of the orthogonal distances at the solution.  They
//    assume independent residuals of equal variance; NaN when J^T J is
//    singular (an exact circle leaves the angle undetermined) or n == 5.
// After a failed fit the ellipse is invalid, converged is false, iterations
// holds the iterations used (0 when the input was refused before iterating)
// and every T field is NaN.
template <class T>
struct CqEllipseGeomStdAbw {
    std::uint32_t iterations = 0u;
    bool converged = false;
    T sumSqDist = quietNaN<T>();
    T stdAbw = quietNaN<T>();
    T uCenterX = quietNaN<T>();
    T uCenterY = quietNaN<T>();
    T uA = quietNaN<T>();
    T uB = quietNaN<T>();
    T uAngle = quietNaN<T>();
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
    // Accuracy: the moment sums are in double for float input as well, and the
    // line reaches the statistical limit also far from the origin.  The
    // returned mean square is a difference of terms (distance / noise)^2
    // times larger than itself and loses relative accuracy in proportion.
    // The fit minimises algebraic, not orthogonal, distances; the line
    // differs from the orthogonal fit by a fraction of the noise.
    static double fitLineLsq(CpointSpan<Cpoint2<T>> pts, Cline2<T>& line);
    // The same fit; the mean squared distance goes into rec.meanSqDist.
    static void fitLineLsqN(CpointSpan<Cpoint2<T>> pts, Cline2<T>& line,
                            CqLineLsqNStdAbw<T>& rec);
    // The same fit, deviation discarded.
    static void fitLineLsqN(CpointSpan<Cpoint2<T>> pts, Cline2<T>& line);

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
    // distances, with a bias of about sigma^2 / r (sigma the noise).  The
    // centring and the double sums keep circles far from the origin harmless
    // for float and double; a short arc fixes the centre poorly along its
    // mid-normal, as it does for an orthogonal fit.
    static void fitCircleLsq(CpointSpan<Cpoint2<T>> pts, Ccircle2<T>& circle);
    // As above, then rec.stdAbw = StdAbwCircle2(pts, circle) (NaN for n <= 3).
    static void fitCircleLsq(CpointSpan<Cpoint2<T>> pts, Ccircle2<T>& circle,
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
    static void fitCircleLsqBeta(CpointSpan<Cpoint2<T>> pts, Ccircle2<T>& circle);

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
    // sphere from the origin; in float the 4x4 system is solved in single
    // precision and loses them much sooner.  Move the points near the origin
    // first.
    static void fitSphereLsq(CpointSpan<Cpoint3<T>> pts, Csphere3<T>& sphere);
    // As above, then rec.stdAbw = StdAbwSphere(pts, sphere).
    static void fitSphereLsq(CpointSpan<Cpoint3<T>> pts, Csphere3<T>& sphere,
                             CqSphereLsqStdAbw<T>& rec);

    // -----------------------------------------------------------------------
    // Fits from moment sums (math/moments.h): the same models as the fits over
    // points, computed from accumulated (and possibly merged) sums, in double
    // also for float.  The sums are moved to their centroid first, so these
    // forms are as accurate far from the origin as near it.  Merged sums give
    // the fit of the concatenated points to about 1e-13 relative.
    //  - fitLineGeom (planar): line through the centroid along the principal
    //    axis of the centred scatter, angle 1/2 atan2(2 Cxy, Cxx - Cyy)
    //    (coincident points: direction (1, 0)).  n < 2: NaN line.
    //  - fitCircleLsq: the algebraic circle of fitCircleLsq (centred
    //    A*(u^2 + v^2) + B*u + C*v = 1).  n < 4, a rank-deficient system
    //    (collinear or coincident points) or non-finite sums: NaN circle.
    //  - fitLineGeom (spatial): centroid and the eigenvector of the largest
    //    eigenvalue of the centred scatter.  n < 2: NaN line.
    //  - fitPlaneGeom: centroid and the eigenvector of the smallest eigenvalue.
    //    n < 3: NaN plane.
    //  - fitSphereLsq: the algebraic sphere A*|u|^2 + B.u = 1 on CENTRED
    //    coordinates with a positive radius (the fit over points uses raw
    //    coordinates; both agree to rounding near the origin, this one stays
    //    accurate far from it).  n < 4, coplanar points or non-finite sums:
    //    NaN sphere.
    // Non-finite sums (a NaN or infinite point was added) give the NaN result.
    // -----------------------------------------------------------------------
    static void fitLineGeom(CmomentSums2<T> const& sums, Cline2<T>& line);
    static void fitCircleLsq(CmomentSums2<T> const& sums, Ccircle2<T>& circle);
    static void fitLineGeom(CmomentSums3<T> const& sums, Cline3<T>& line);
    static void fitPlaneGeom(CmomentSums3<T> const& sums, Cplane3<T>& plane);
    static void fitSphereLsq(CmomentSums3<T> const& sums, Csphere3<T>& sphere);

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
    static T StdAbwLine2(CpointSpan<Cpoint2<T>> pts, Cline2<T> const& line);
    // d = distance of a point from the circle's centre; the radius is not read.
    static T StdAbwCircle2(CpointSpan<Cpoint2<T>> pts, Ccircle2<T> const& circle);
    // d = distance of a point from the sphere's centre; the radius is not read.
    static T StdAbwSphere(CpointSpan<Cpoint3<T>> pts, Csphere3<T> const& sphere);

    // -----------------------------------------------------------------------
    // Geometric ellipse fits: the ellipse (centre, semi-axes a >= b > 0, angle
    // of the a axis in (-pi/2, pi/2]) minimising the sum of squared orthogonal
    // distances of the points.  Both methods
    //  - compute in double (also for float input) on data translated to the
    //    centroid and scaled by the RMS distance from it, and map the result
    //    back, so that offset and unit of length do not matter;
    //  - start from the direct least-squares conic fit constrained to an
    //    ellipse (4AC - B^2 = 1, the Halir-Flusser form of Fitzgibbon's fit)
    //    on the normalised data;
    //  - use analytic Jacobians and the tolerances of prm (see CqGeomFitPrm);
    //  - reach the same minimum on the same data (they differ by rounding
    //    only, far below the tolerances, on well-posed data) and report it in
    //    the record through the same final evaluation, so that sumSqDist and
    //    the uncertainties agree between them;
    //  - are deterministic: no randomness, same input, same bits.
    // They differ in how the minimum is sought:
    //  - fitEllipseGeom: Gauss-Newton on the orthogonal distances themselves.
    //    Every iteration finds the foot point of every point on the current
    //    ellipse (Newton's method on the foot-point equation in the phase,
    //    kept inside the quadrant that brackets the root; the same foot
    //    points as geometric<T>::distance) and the exact derivative of the
    //    signed distance, -n . dX/dparameter at the foot point.  A step that does not
    //    lower the sum of squares is halved (at most 30 times).  Five
    //    unknowns; one foot-point search per point and iteration.
    //  - fitEllipseGeomLM: Levenberg-Marquardt over centre, axes, angle and one
    //    phase t_i per point, residuals p_i - X(t_i) (two per point).  The
    //    per-point phase block is diagonal and eliminated (Schur complement),
    //    so an iteration costs O(n) and solves a 5x5 system; no foot-point
    //    search is needed while iterating (phases start from the angles of
    //    the points in the start ellipse's frame).  The damping is
    //    Marquardt's: prm.initDamping times the diagonal of J^T J, so that
    //    each phase is damped in its own scale.
    // Convergence: the gradient and step tests of CqGeomFitPrm (the step test
    // reads |parameter| as 1 for the centre, in units of the data's RMS
    // radius, and for the angle), or three steps in a row whose predicted
    // decrease of the sum of squares is below the sum's own rounding level.
    // Short noisy arcs (below about 80 degrees with noise above 1e-4 b) are
    // ill-posed: there the fits may need more than maxIter iterations
    // (invalid result) or the two methods may end in different local minima.
    // Refused input (the ellipse invalid, the record as described there):
    // fewer than 5 points, a non-finite coordinate (ends the fit before any
    // iteration), all points coincident, collinear points (smallest spread
    // below 16 machine epsilons of T relative to the largest), no ellipse
    // from the start fit, a semi-axis collapsing or exceeding 1e6 times the
    // data's RMS radius, and no convergence within prm.maxIter.  Exact circles
    // are fitted: a == b to rounding, an arbitrary angle, and (J^T J being
    // singular) all five uncertainties NaN.
    //
    // Accuracy (tests/approximate_ellipse_test.cpp): exact points of ellipses
    // with b/a from 0.05 to 0.999, rotated: every parameter (centre relative
    // to a, angle in radians) within 4e-14 (Gauss-Newton) and 2e-13
    // (Levenberg-Marquardt) at the origin, within 3e-10 at 10^6 mm (the
    // rounding of the input coordinates, 1e-10 mm, seen through the angle of
    // a nearly circular ellipse), 4e-6 in float.  Reference data built with
    // deviations in the null space of the Jacobian, rotated and moved
    // 1000 mm out: parameters, sumSqDist and stdAbw to 1e-9.  Near-circular
    // ellipses (b/a = 0.999, 10^4 points, noise 1e-3 a) converge to a valid
    // ellipse; the uncertainties match the spread over 300 noise seeds
    // within 20 %.
    static void fitEllipseGeom(CpointSpan<Cpoint2<T>> pts, Cellipse2<T>& ellipse,
                               CqGeomFitPrm<T> const& prm = CqGeomFitPrm<T>());
    static void fitEllipseGeom(CpointSpan<Cpoint2<T>> pts, Cellipse2<T>& ellipse,
                               CqEllipseGeomStdAbw<T>& rec,
                               CqGeomFitPrm<T> const& prm = CqGeomFitPrm<T>());
    static void fitEllipseGeomLM(CpointSpan<Cpoint2<T>> pts, Cellipse2<T>& ellipse,
                                 CqGeomFitPrm<T> const& prm = CqGeomFitPrm<T>());
    static void fitEllipseGeomLM(CpointSpan<Cpoint2<T>> pts, Cellipse2<T>& ellipse,
                                 CqEllipseGeomStdAbw<T>& rec,
                                 CqGeomFitPrm<T> const& prm = CqGeomFitPrm<T>());

    // d = signed orthogonal distance of a point from the ellipse
    // (geometric<T>::distance, negative inside), taken as the other measures:
    // sqrt((sum d^2 - (sum d)^2 / n) / (n - 1)) about the mean, sums in
    // double.  Fewer than 2 points or an invalid ellipse give NaN.  Unlike the
    // record's stdAbw (root of sum d^2 / (n - 5)) it does not see a constant
    // offset of all distances.
    static T StdAbwEllipse(CpointSpan<Cpoint2<T>> pts, Cellipse2<T> const& ellipse);


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
    // Accuracy: the centring keeps points far from the origin harmless, in
    // float (sums in float) as in double.  The absolute 1e-8 test means that
    // sets of tiny extent (coordinates within about 1e-4 of each other) get
    // direction (0, 1).
    static void fitLineGeom(CpointSpan<Cpoint2<T>> pts, Cline2<T>& line);

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
    // the line is found as by the closed form.  In float, points far out lose
    // the small eigenvalue (stdAbwOrth may be NaN) and most of the direction's
    // digits; centre float data near the origin first.
    static void fitLineGeom(CpointSpan<Cpoint2<T>> pts, Cline2<T>& line,
                            CqLineGeom2DStdAbw<T>& rec);

    // Spatial line from the inertia tensor.  Point = centroid (sums in T);
    // centred moments in double (second pass); the inertia tensor
    // [[Syy+Szz, -Sxy, -Sxz], [-Sxy, Sxx+Szz, -Syz], [-Sxz, -Syz, Sxx+Syy]] is
    // decomposed by CmatrixCalc::getEigenvalue and the direction is row 2 (the
    // smallest eigenvalue), normalised.  Coincident points give an arbitrary
    // direction (whatever the decomposition returns for a zero tensor).
    //
    // Accuracy: the moments are centred and in double, so the direction keeps
    // its accuracy far from the origin for float input as well; in float the
    // position is limited by the centroid summed in float.
    static void fitLineGeom(CpointSpan<Cpoint3<T>> pts, Cline3<T>& line);

    // Spatial line with spreads.  Point = centroid; scatter matrix from raw
    // sums in double (one pass), decomposed by getEigenvalue; the direction is
    // row 0 (largest eigenvalue), normalised; the record receives
    // sqrt(|lambda_k| / (n - 1)) for k = 1, 2, 3 (largest first).  Gives the
    // same line as the form without record.
    //
    // Accuracy: raw sums in double: in double as good as the form without
    // record, spreads included; float input loses somewhat more.
    static void fitLineGeom(CpointSpan<Cpoint3<T>> pts, Cline3<T>& line,
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
    // Accuracy: raw sums in T cancel when the cloud lies far from the origin:
    // harmless in double, costly in float; move float clouds to the origin
    // first.
    static void fitPlaneGeom(CpointSpan<Cpoint3<T>> pts, Cplane3<T>& plane);
    static void fitPlaneGeom(CpointSpan<Cpoint3<T>> pts, Cplane3<T>& plane,
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
    static void fitPlaneGeomFast(CpointSpan<Cpoint3<T>> pts, Cplane3<T>& plane,
                                 CqPlaneGeomFast<T> const& prm);
    // -----------------------------------------------------------------------
    // Geometric fits of circles, spheres and cylinders: least squares of the
    // true orthogonal distances (circle and sphere |p - c| - r, cylinder
    // distance from the axis minus r, circle in space
    // sqrt(h^2 + (rho - r)^2)), by Gauss-Newton steps with analytic
    // Jacobians, damped Levenberg-Marquardt style after a rejected step (see
    // CqGeomFitPrm).  All of them:
    //  - translate the points to their centroid and scale them by their RMS
    //    distance from it before iterating (in double, also for float input)
    //    and map the result back, so a fit 10^6 away from the origin is as
    //    good as one at the origin;
    //  - are deterministic (no random restarts; the same input gives the same
    //    bits) and bounded (every loop has a fixed limit);
    //  - never return a negative radius: a step to r < 0 is rejected;
    //  - refuse, with an invalid primitive (radius NaN, isValid() false) and
    //    converged == false in the record: fewer points than parameters,
    //    a non-finite coordinate (found before iterating, iterations = 0),
    //    all points coincident, collinear points (circles; cylinders when the
    //    second principal spread is below 1e-7 of the RMS extent), coplanar
    //    points (spheres), and no convergence within prm.maxIter;
    //  - give the uncertainties of the record from sigma^2 (J^T J)^-1, which
    //    assumes independent residuals of equal variance.
    // Forms without a record use the default CqGeomFitPrm.
    //
    // Accuracy (tests/approximate_fitgeom_test.cpp): exact points of a full
    // circle, a 30 and a 10 degree arc (r 100, 60 points; spheres from caps of
    // those angles, cylinders of those arcs 200 long and of length 0.1 r),
    // arbitrarily rotated: every parameter within 2e-15 r at the origin and
    // within 6e-11 r at 10^6 from it in double (1.5e-6 r in float); the
    // Gander-Golub-Strebel six points give centre (4.739782411, 2.983532699)
    // and r 4.714226038 to 1e-9 with r = mean distance to 1e-15.  Reference
    // data built by the null-space method 1000 mm out and rotated: within
    // 1e-9 r.
    // Over 1000 noisy samples (20 points) the mean radius error is within two
    // standard errors of zero, and the reported uncertainties match the
    // spread of the parameters within 4 %.  Large residuals on a short arc
    // converge linearly (about 15 evaluations); 300 random cylinders (20 to
    // 360 degree arcs, lengths 0.1 r to 50 r, rotated, noisy) all found the
    // true axis with the automatic start.
    //
    // Speed (bench/fitgeom_bench.cpp, one core): 17 to 30 ns per point and
    // evaluation; 10^6 points: circle 23 ms, sphere 58 ms, cylinder 86 ms
    // from a start axis, 77 ms with the automatic start; Ceres with analytic
    // cost functions needs 10 to 35 times as long for the same fits (its
    // Solve() alone) and never fewer iterations.
    // -----------------------------------------------------------------------

    // Planar circle; p = 3, at least 3 points (3 give the circle through
    // them).  Start: Taubin's algebraic fit (Newton on its characteristic
    // polynomial), which has small bias on short arcs.  At the optimum the
    // radius equals the mean distance of the points from the centre.
    static void fitCircleGeom(CpointSpan<Cpoint2<T>> pts, Ccircle2<T>& circle);
    static void fitCircleGeom(CpointSpan<Cpoint2<T>> pts, Ccircle2<T>& circle,
                              CqCircleGeomStdAbw<T>& rec, CqGeomFitPrm<T> const& prm = CqGeomFitPrm<T>());

    // Circle in space: plane and circle fitted together by the 3D distances
    // sqrt(h^2 + (rho - r)^2); p = 6, at least 3 points.  Start: the plane
    // of the scatter's smallest axis, the planar fit of the points projected
    // onto it.  The plane's normal is oriented with its largest-magnitude
    // component positive; the plane passes through the centre.
    static void fitCircleGeom(CpointSpan<Cpoint3<T>> pts, Ccircle3<T>& circle);
    static void fitCircleGeom(CpointSpan<Cpoint3<T>> pts, Ccircle3<T>& circle,
                              CqCircle3GeomStdAbw<T>& rec, CqGeomFitPrm<T> const& prm = CqGeomFitPrm<T>());

    // Sphere; p = 4, at least 4 points.  Start: the algebraic (Kasa) sphere
    // on the centred, scaled points, exact on exact data.  Coplanar points
    // (the algebraic system singular to 1e-13 relative) are refused.
    static void fitSphereGeom(CpointSpan<Cpoint3<T>> pts, Csphere3<T>& sphere);
    static void fitSphereGeom(CpointSpan<Cpoint3<T>> pts, Csphere3<T>& sphere,
                              CqSphereGeomStdAbw<T>& rec, CqGeomFitPrm<T> const& prm = CqGeomFitPrm<T>());

    // Cylinder with automatic start; p = 5, at least 5 points.  The start
    // axis is the direction whose closed-form (Taubin) circle through the
    // points projected along it has the smallest error, normalised to a sum
    // of squared distances: a coarse grid of 259 directions over the
    // hemisphere plus the three principal axes of the scatter, then the three
    // best refined by a pattern search in their tangent planes (down to
    // 1e-5 rad; the iteration does the rest).  The projected moments come
    // from the fourth-order moments of the points (one pass), so the search
    // does not depend on n.  Short wide and long thin cylinders alike start
    // within the basin of the true axis.  The axis is then refined with two small rotations about the
    // current axis and two shifts across it, re-centred every step; the axis
    // point returned is the point of the axis nearest the centroid, the
    // direction is oriented with its largest-magnitude component positive.
    static void fitCylinderGeom(CpointSpan<Cpoint3<T>> pts, Ccylinder3<T>& cyl);
    static void fitCylinderGeom(CpointSpan<Cpoint3<T>> pts, Ccylinder3<T>& cyl,
                                CqCylinderGeomStdAbw<T>& rec, CqGeomFitPrm<T> const& prm = CqGeomFitPrm<T>());
    // Cylinder from a caller's start (e.g. the nominal axis of a drawing):
    // the start's axis point and direction are used (the direction's sign is
    // kept in the result); the radius starts at the mean distance of the
    // points from the start axis, so start.radius() is not read.  An invalid
    // start axis is refused.
    static void fitCylinderGeom(CpointSpan<Cpoint3<T>> pts, Ccylinder3<T> const& start,
                                Ccylinder3<T>& cyl);
    static void fitCylinderGeom(CpointSpan<Cpoint3<T>> pts, Ccylinder3<T> const& start,
                                Ccylinder3<T>& cyl, CqCylinderGeomStdAbw<T>& rec,
                                CqGeomFitPrm<T> const& prm = CqGeomFitPrm<T>());

    // Fixed-radius fits: only centre (circle, sphere), centre and plane
    // (circle in space) or axis (cylinder) are fitted, the radius is the
    // given one (radius <= 0 or non-finite is refused).  On a partial arc or
    // cap two centres fit (one on either side of the points); these fits
    // first run the free fit and start from its centre (axis), so they
    // return the candidate on the side of the free fit's centre: the side of
    // the points' concavity.  Input that the free fit refuses (e.g. collinear
    // points, whose side is undecidable) is refused.  The record's iterations
    // count the free fit's and the fixed fit's evaluations; uRadius = 0.
    static void fitCircleGeomRfix(CpointSpan<Cpoint2<T>> pts, T radius, Ccircle2<T>& circle);
    static void fitCircleGeomRfix(CpointSpan<Cpoint2<T>> pts, T radius, Ccircle2<T>& circle,
                                  CqCircleGeomStdAbw<T>& rec, CqGeomFitPrm<T> const& prm = CqGeomFitPrm<T>());
    static void fitCircleGeomRfix(CpointSpan<Cpoint3<T>> pts, T radius, Ccircle3<T>& circle);
    static void fitCircleGeomRfix(CpointSpan<Cpoint3<T>> pts, T radius, Ccircle3<T>& circle,
                                  CqCircle3GeomStdAbw<T>& rec, CqGeomFitPrm<T> const& prm = CqGeomFitPrm<T>());
    static void fitSphereGeomRfix(CpointSpan<Cpoint3<T>> pts, T radius, Csphere3<T>& sphere);
    static void fitSphereGeomRfix(CpointSpan<Cpoint3<T>> pts, T radius, Csphere3<T>& sphere,
                                  CqSphereGeomStdAbw<T>& rec, CqGeomFitPrm<T> const& prm = CqGeomFitPrm<T>());
    static void fitCylinderGeomRfix(CpointSpan<Cpoint3<T>> pts, T radius, Ccylinder3<T>& cyl);
    static void fitCylinderGeomRfix(CpointSpan<Cpoint3<T>> pts, T radius, Ccylinder3<T>& cyl,
                                    CqCylinderGeomStdAbw<T>& rec, CqGeomFitPrm<T> const& prm = CqGeomFitPrm<T>());

    // d = distance of a point from the cylinder's axis (the radius is not
    // read), spread about the mean as the other StdAbw measures (divisor
    // n - 1, sums in T); an invalid axis gives NaN.  Sphere: StdAbwSphere.
    static T StdAbwCylinder(CpointSpan<Cpoint3<T>> pts, Ccylinder3<T> const& cyl);
};

extern template class approximate<float>;
extern template class approximate<double>;

}  // namespace math

#endif
