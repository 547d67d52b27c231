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
//   plane: two panels: the points in the plane's own frame (two in-plane
//     axes, dots sized by |residual| and coloured by sign), and a side view
//     along the first in-plane axis with the residuals along the normal.
#ifndef METROFIT_SVG_H
#define METROFIT_SVG_H

#include "fit.h"
#include "pointfile.h"

#include <iosfwd>
#include <vector>

namespace metrofit {

struct SvgOptions {
    double magnification = 0.0;  // 0: automatic (see above)
    bool yDown = false;          // planar views: y axis downwards (image coordinates)
    double width = 800.0;        // px
};

// The 90th percentile of |res| (rank floor(0.9 (n - 1)) of the sorted
// magnitudes), or the largest |res| if that is 0; 0 for no residuals.
double percentile90(std::vector<double> const& res);

// The automatic factor for residuals `res` in a view of size `extent`.
double autoMagnification(std::vector<double> const& res, double extent);

// Rounds down to the series 1, 2, 5 times a power of ten.
double roundDown125(double v);

void writeSvg(std::ostream& out, PointSet const& pts, FitResult const& r, SvgOptions const& opt);

}  // namespace metrofit

#endif
