// The drawing of a fit: points, fitted primitive and magnified residuals, as
// an SVG document.
//
// Every view keeps equal scales on both axes.  Each residual is drawn as a
// "whisker" from its foot on the primitive, along the direction in which the
// distance is measured, with `magnification` times its true length (red:
// positive residual, blue: negative); a dot marks its tip.  The measured
// points themselves are grey dots at their true positions.  The factor is
// printed in the drawing.  Left automatic, it is the largest value of the
// series 1, 2, 5, 10, 20, ... (or 0.5, 0.2, ... below 1) at which the 90th
// percentile of |residual| is drawn at most 8 % of the view's extent; longer
// whiskers (outliers) are clipped at the frame and counted in the legend.
//
// Views by shape:
//   line2, circle: the plane of the points (y up unless yDown is set, as for
//     pixel coordinates);
//   line3: axial coordinate along the line against the radial distance, each
//     point turned about the line into one plane (the side of a fixed
//     reference direction it lies on is kept as the sign);
//   sphere: a meridian section: each point is turned about the axis through
//     the centre and the mean direction of the points (the cap axis) into one
//     plane, keeping its distance from the centre and its angle to the axis;
//     the fitted sphere shows as its great circle, residuals are radial;
//     below it the residual plot (see cylinder) about the cap axis;
//   cylinder: a section along the axis (points projected onto the plane
//     normal to it, the circle of the radius, radial residuals), and the
//     residual plot: each residual against the angle of its point about the
//     axis, at the arc length radius * angle (the surface unrolled, angle 0
//     at the points' mean direction about the axis), whiskers from zero;
//   plane: two panels: the points in the plane's own frame (the in-plane
//     axes of Cplane3::pointAt, origin at the centroid's foot; dots sized by
//     |residual| and coloured by sign), and a side view along the first
//     in-plane axis with the residuals along the normal.
// The 3D views take their second axis from the same pointAt frame of the
// plane normal to the line or cap axis.
//
// Large sets: at most maxPoints points are drawn (see drawnPoints); the view,
// the factor and the clipped count still take every point into account, and
// the legend says how many were drawn.  The document is written as it is
// produced, so memory stays bounded whatever the number of points.
#ifndef METROFIT_SVG_H
#define METROFIT_SVG_H

#include "fit.h"
#include "pointfile.h"

#include <cstddef>
#include <iosfwd>
#include <vector>

namespace metrofit {

struct SvgOptions {
    double magnification = 0.0;  // 0: automatic (see above)
    bool yDown = false;          // planar views: y axis downwards (image coordinates)
    double width = 800.0;        // px
    std::size_t maxPoints = 20000;  // points drawn at most
};

// The indices of the points drawn when at most `maxPoints` of the residuals'
// points may be: all of them if they fit; otherwise the maxPoints / 10 largest
// |residual| (the first of equal ones) and, for the rest, every k-th point
// chosen evenly over the file, ascending and without repetition.
std::vector<std::size_t> drawnPoints(std::vector<double> const& res, std::size_t maxPoints);

// The 90th percentile of |res| (rank floor(0.9 (n - 1)) of the sorted
// magnitudes), or the largest |res| if that is 0; 0 for no residuals.
double percentile90(std::vector<double> const& res);

// The automatic factor for residuals `res` in a view of size `extent`.
double autoMagnification(std::vector<double> const& res, double extent);

// Rounds down to the series 1, 2, 5 times a power of ten.
double roundDown125(double v);

// Writes the document to `out` as it goes; stops at the first failed write
// (the stream's state tells the caller).
void writeSvg(std::ostream& out, PointSet const& pts, FitResult const& r, SvgOptions const& opt);

}  // namespace metrofit

#endif
