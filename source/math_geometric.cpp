// geometric<T>, the façade: the class instantiation, which carries the inline
// tolerance comparisons.  The queries are defined and instantiated by family
// in math_geometric_planar.cpp, math_geometric_ellipse.cpp,
// math_geometric_distance3.cpp, math_geometric_intersect3.cpp and
// math_geometric_sets.cpp.
#include <math/geometric.h>

namespace math {

template class geometric<float>;
template class geometric<double>;

}  // namespace math
