// Planar queries of geometric<T>.  The members are instantiated one by one
// here, so they link together with the class instantiation of the spatial part.
#include <math/geometric.h>

namespace math {

template <class T>
bool geometric<T>::intersect(Cline2<T> const& a, Cline2<T> const& b, Cpoint2<T>& s) {
    const T eps = T(tol::epsFloat);
    if (!a.isValid() || !b.isValid()) return false;  // no point, s unchanged
    const Cpoint2<T>& pa = a.point();
    const Cpoint2<T>& pb = b.point();
    const Cdirec2<T>& da = a.direction();
    const Cdirec2<T>& db = b.direction();
    const T det = da.x * db.y - da.y * db.x;
    if (-eps <= det && det <= eps) return false;
    // Non-finite components of valid lines (infinite coordinates) may still
    // give a NaN point.
    s.x = ((db.y * pb.x + pa.y * db.x) * da.x - (da.y * pa.x + pb.y * da.x) * db.x) / det;
    s.y = ((da.y * pb.x + pa.y * da.x) * db.y - (pb.y * db.x + pa.x * db.y) * da.y) / det;
    return true;
}

template bool geometric<float>::intersect(Cline2<float> const&, Cline2<float> const&, Cpoint2<float>&);
template bool geometric<double>::intersect(Cline2<double> const&, Cline2<double> const&, Cpoint2<double>&);

}  // namespace math
