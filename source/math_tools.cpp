#include <math/geometric.h>
#include <math/tools.h>

#include <cmath>

namespace math {

template <class T>
bool tools<T>::cutPointCloud(Cplane3<T> const& e, T const& dist, CbaseVecN<Cpoint3<T>> const& in,
                             CbaseVecN<Cpoint3<T>>& out) {
    const T maxDist = dist;
    if (!e.isValid() || !(maxDist >= T(0))) {
        out.clear();
        return false;
    }
    if (&in == &out) {
        // Compaction in place: the kept points move towards the front.
        std::size_t k = 0;
        for (std::size_t i = 0; i < out.size(); ++i)
            if (std::abs(geometric<T>::distance(e, out[i])) <= maxDist) out[k++] = out[i];
        out.resize(k);
        return true;
    }
    out.clear();
    for (Cpoint3<T> const& p : in)
        if (std::abs(geometric<T>::distance(e, p)) <= maxDist) out.push_back(p);
    return true;
}

template class tools<float>;
template class tools<double>;

}  // namespace math
