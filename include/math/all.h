// Every public header of the library.
#ifndef MATH_ALL_H
#define MATH_ALL_H

#include <math/aoi.h>
#include <math/approximate.h>
#include <math/basevec.h>
#include <math/basic_algo.h>
#include <math/convex_hull.h>
#include <math/errors.h>
#include <math/geometric.h>
#include <math/matrix.h>
#include <math/matrix_calc.h>
#include <math/matrix_io.h>
#include <math/moments.h>
#include <math/point.h>
#include <math/polygon.h>
#include <math/primitives2.h>
#include <math/primitives3.h>
#include <math/solver.h>
#include <math/spline.h>
#include <math/tools.h>
#include <math/transform2.h>
#include <math/transform3.h>

#endif
