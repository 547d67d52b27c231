// Caoi<T>: area of interest made of including and excluding polygon regions.
#include <math/aoi.h>

#include <cmath>
#include <string>

namespace math {

template <class T>
Caoi<T>::Caoi(Cpolygon2<T> const& region) {
    add(region, MODE_INCLUDE);
}

template <class T>
Caoi<T>::Caoi(Crect2<T> const& region) {
    add(region, MODE_INCLUDE);
}

template <class T>
typename Caoi<T>::Region Caoi<T>::classify(Cpolygon2<T> const& poly, enMode mode) {
    Region r{poly, mode, false};
    bool finite = true;
    for (Cpoint2<T> const& p : poly.points()) finite = finite && std::isfinite(p.x) && std::isfinite(p.y);
    if (r.work.type() != Cpolygon2<T>::TYPE_RECT || !finite) r.work.preprocess();
    r.valid = finite && r.work.size() >= 3 && r.work.type() != Cpolygon2<T>::TYPE_INVALID &&
              r.work.type() != Cpolygon2<T>::TYPE_DEGENERATED;
    if (r.work.type() == Cpolygon2<T>::TYPE_RECT) {
        // A rectangle region (set(Crect2) or classified) must enclose area.
        const Crect2<T> b = r.work.boundingRect();
        r.valid = r.valid && b.width() > T(0) && b.height() > T(0);
    }
    return r;
}

template <class T>
unsigned int Caoi<T>::add(Cpolygon2<T> const& region, enMode mode) {
    m_work.push_back(classify(region, mode));
    m_regions.push_back(region);
    return static_cast<unsigned int>(m_regions.size() - 1);
}

template <class T>
unsigned int Caoi<T>::add(Crect2<T> const& region, enMode mode) {
    return add(Cpolygon2<T>(region.normalize()), mode);
}

template <class T>
void Caoi<T>::checkPolyIndex(unsigned int i) const {
    if (i >= m_regions.size()) {
        throw CthrowMath(CthrowMath::ERR_PRIMEXT_AOI_POLYINDEX, "")
            << std::to_string(i) << std::string("0")
            << std::to_string(static_cast<long long>(m_regions.size()) - 1);
    }
}

template <class T>
void Caoi<T>::checkValid() const {
    if (!isValid()) throw CthrowMath(CthrowMath::ERR_PRIMEXT_AOI_INVALID, "");
}

template <class T>
void Caoi<T>::remove(unsigned int i) {
    checkPolyIndex(i);
    m_regions.erase(m_regions.begin() + i);
    m_work.erase(m_work.begin() + i);
}

template <class T>
void Caoi<T>::clear() {
    m_regions.clear();
    m_work.clear();
}

template <class T>
Cpolygon2<T> const& Caoi<T>::polygon(unsigned int i) const {
    checkPolyIndex(i);
    return m_regions[i];
}

template <class T>
typename Caoi<T>::enMode Caoi<T>::mode(unsigned int i) const {
    checkPolyIndex(i);
    return m_work[i].mode;
}

template <class T>
void Caoi<T>::setMode(unsigned int i, enMode mode) {
    checkPolyIndex(i);
    m_work[i].mode = mode;
}

template <class T>
bool Caoi<T>::regionIsValid(unsigned int i) const {
    checkPolyIndex(i);
    return m_work[i].valid;
}

template <class T>
unsigned int Caoi<T>::pointCount(unsigned int i) const {
    checkPolyIndex(i);
    return m_regions[i].size();
}

template <class T>
Cpoint2<T> const& Caoi<T>::point(unsigned int i, unsigned int j) const {
    checkPolyIndex(i);
    const std::vector<Cpoint2<T>>& v = m_regions[i].points();
    if (j >= v.size()) {
        throw CthrowMath(CthrowMath::ERR_PRIMEXT_AOI_POINTINDEX, "")
            << std::to_string(j) << std::string("0") << std::to_string(static_cast<long long>(v.size()) - 1);
    }
    return v[j];
}

template <class T>
void Caoi<T>::setPoint(unsigned int i, unsigned int j, Cpoint2<T> const& p) {
    point(i, j);  // index checks
    std::vector<Cpoint2<T>> v = m_regions[i].points();
    v[j] = p;
    setPolygon(i, Cpolygon2<T>(v));
}

template <class T>
void Caoi<T>::setPolygon(unsigned int i, Cpolygon2<T> const& region) {
    checkPolyIndex(i);
    m_work[i] = classify(region, m_work[i].mode);
    m_regions[i] = region;
}

template <class T>
bool Caoi<T>::isValid() const {
    for (Region const& r : m_work)
        if (r.valid && r.mode == MODE_INCLUDE) return true;
    return false;
}

template <class T>
bool Caoi<T>::pointIsIn(Cpoint2<T> const& p) const {
    checkValid();
    return inside(p);
}

template <class T>
bool Caoi<T>::inside(Cpoint2<T> const& p) const {
    bool in = false;
    for (Region const& r : m_work) {
        if (!r.valid) continue;
        if (r.mode == MODE_EXCLUDE) {
            if (r.work.pointIsIn(p)) return false;
        } else if (!in) {
            in = r.work.pointIsIn(p);
        }
    }
    return in;
}

template <class T>
Crect2<T> Caoi<T>::boundingRect() const {
    checkValid();
    Crect2<T> box;
    bool first = true;
    for (Region const& r : m_work) {
        if (!r.valid || r.mode != MODE_INCLUDE) continue;
        const Crect2<T> b = Cpolygon2<T>::boundingRect(r.work.points());
        box = first ? b : box.unite(b);
        first = false;
    }
    return box;
}

template <class T>
bool Caoi<T>::pixelRange(Cimage const& image, long long& x0, long long& x1, long long& y0, long long& y1) const {
    const Crect2<T> b = boundingRect();
    if (image.width() == 0 || image.height() == 0) return false;
    // Clamp in T before converting (coordinates are finite but may be huge).
    const auto lo = [](T v, unsigned size) {
        const T c = std::ceil(v);
        return c < T(0) ? 0LL : (c > T(size) ? static_cast<long long>(size) : static_cast<long long>(c));
    };
    const auto hi = [](T v, unsigned size) {
        const T f = std::floor(v);
        return f < T(-1) ? -1LL : (f > T(size) - T(1) ? static_cast<long long>(size) - 1 : static_cast<long long>(f));
    };
    x0 = lo(b.left(), image.width());
    x1 = hi(b.right(), image.width());
    y0 = lo(b.top(), image.height());
    y1 = hi(b.bottom(), image.height());
    return x0 <= x1 && y0 <= y1;
}

template <class T>
std::uint64_t Caoi<T>::count(Cimage const& image) const {
    checkValid();
    long long x0, x1, y0, y1;
    if (!pixelRange(image, x0, x1, y0, y1)) return 0;
    std::uint64_t n = 0;
    for (long long y = y0; y <= y1; ++y)
        for (long long x = x0; x <= x1; ++x) n += inside(Cpoint2<T>(T(x), T(y))) ? 1u : 0u;
    return n;
}

template <class T>
Cimage Caoi<T>::mask(Cimage const& image) const {
    checkValid();
    Cimage m(image.width(), image.height(), 0);
    long long x0, x1, y0, y1;
    if (!pixelRange(image, x0, x1, y0, y1)) return m;
    for (long long y = y0; y <= y1; ++y)
        for (long long x = x0; x <= x1; ++x)
            if (inside(Cpoint2<T>(T(x), T(y)))) m.at(unsigned(x), unsigned(y)) = 255;
    return m;
}

template class Caoi<float>;
template class Caoi<double>;

}  // namespace math
