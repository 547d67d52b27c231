// Every public header of the library.
#ifndef MATH_ALL_H
#define MATH_ALL_H

#include <math/errors.h>
#include <math/geometric.h>
#include <math/matrix.h>
#include <math/matrix_io.h>
#include <math/point.h>
#include <math/polygon.h>
#include <math/primitives2.h>

#endif
