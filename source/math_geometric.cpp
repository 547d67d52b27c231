#include <math/geometric.h>

namespace math {

template class geometric<float>;
template class geometric<double>;

}  // namespace math
