// Slab index of the winding-number test of Cpolygon2 (see polygon.h).
#include <math/polygon.h>

#include <algorithm>
#include <cmath>

namespace math {

namespace {

// Winding contributions of the edges [j, end) of the coordinate runs: the test
// of pointIsInWinding term for term, without branches so that the loop runs in
// vector registers (AVX2 where the processor has it; no fused multiply-add, so
// every clone computes the same values).
#if defined(__GNUC__) && !defined(__clang__) && defined(__x86_64__)
#define METROMATH_SLAB_CLONES __attribute__((target_clones("avx2", "default")))
#else
#define METROMATH_SLAB_CLONES
#endif

template <class T>
inline int slabWindingT(T const* ax, T const* ay, T const* bx, T const* by, std::uint32_t j,
                        std::uint32_t end, T px, T py) {
    int w = 0;
    for (; j < end; ++j) {
        const T c = (bx[j] - ax[j]) * (py - ay[j]) - (px - ax[j]) * (by[j] - ay[j]);
        const bool up = ay[j] <= py;
        w += int(up & (py < by[j]) & (c > T(0))) - int(!up & (by[j] <= py) & (c < T(0)));
    }
    return w;
}
METROMATH_SLAB_CLONES int slabWinding(float const* ax, float const* ay, float const* bx, float const* by,
                                      std::uint32_t j, std::uint32_t end, float px, float py) {
    return slabWindingT(ax, ay, bx, by, j, end, px, py);
}
METROMATH_SLAB_CLONES int slabWinding(double const* ax, double const* ay, double const* bx, double const* by,
                                      std::uint32_t j, std::uint32_t end, double px, double py) {
    return slabWindingT(ax, ay, bx, by, j, end, px, py);
}

constexpr std::size_t kSlabMinVertices = 32;
constexpr std::size_t kSlabEntriesPerVertex = 256;

}  // namespace

template <class T>
void Cpolygon2<T>::buildSlabs() {
    m_slabY.clear();
    m_slabStart.clear();
    m_slabEdges.clear();
    const std::size_t n = m_points.size();
    if (n < kSlabMinVertices || n > 0xffffffffu / 2) return;
    std::vector<T> ys;
    ys.reserve(n);
    for (Cpoint2<T> const& v : m_points) {
        if (!std::isfinite(v.x) || !std::isfinite(v.y)) return;
        ys.push_back(v.y);
    }
    std::sort(ys.begin(), ys.end());
    ys.erase(std::unique(ys.begin(), ys.end()), ys.end());
    if (ys.size() < 2) return;
    const std::size_t slabs = ys.size() - 1;
    const auto slabOf = [&ys](T y) { return std::size_t(std::lower_bound(ys.begin(), ys.end(), y) - ys.begin()); };

    // Edge i spans the slabs from the one starting at its lower end up to the
    // one ending at its upper end; horizontal edges span none.
    std::vector<std::uint32_t> count(slabs + 1, 0);
    std::size_t entries = 0;
    for (std::size_t i = 0; i < n; ++i) {
        const T y0 = m_points[i].y, y1 = m_points[i + 1 == n ? 0 : i + 1].y;
        if (y0 == y1) continue;
        const std::size_t lo = slabOf(std::min(y0, y1)), hi = slabOf(std::max(y0, y1));
        entries += hi - lo;
        if (entries > kSlabEntriesPerVertex * n) return;
        for (std::size_t k = lo; k < hi; ++k) ++count[k];
    }
    std::vector<std::uint32_t> start(slabs + 1, 0);
    for (std::size_t k = 0; k < slabs; ++k) start[k + 1] = start[k] + count[k];
    // Coordinates split by kind (a.x, a.y, b.x, b.y, each over all entries) so
    // that a slab's edges are four contiguous runs.
    std::vector<T> coord(4 * entries);
    std::vector<std::uint32_t> fill(start.begin(), start.end() - 1);
    for (std::size_t i = 0; i < n; ++i) {
        const Cpoint2<T>& a = m_points[i];
        const Cpoint2<T>& b = m_points[i + 1 == n ? 0 : i + 1];
        if (a.y == b.y) continue;
        const std::size_t lo = slabOf(std::min(a.y, b.y)), hi = slabOf(std::max(a.y, b.y));
        for (std::size_t k = lo; k < hi; ++k) {
            const std::uint32_t j = fill[k]++;
            coord[j] = a.x;
            coord[entries + j] = a.y;
            coord[2 * entries + j] = b.x;
            coord[3 * entries + j] = b.y;
        }
    }
    m_slabY.swap(ys);
    m_slabStart.swap(start);
    m_slabEdges.swap(coord);
}

template <class T>
bool Cpolygon2<T>::pointIsInSlabs(Cpoint2<T> const& p) const {
    // Slab k = [y_k, y_k+1) with y_k <= p.y < y_k+1; the winding rule counts an
    // edge a -> b exactly when min(a.y, b.y) <= p.y < max(a.y, b.y), which
    // holds for every edge of that slab and for no other.  Outside all slabs
    // (and for NaN) no edge counts.
    if (!(p.y >= m_slabY.front() && p.y < m_slabY.back())) return false;
    const std::size_t k = std::size_t(std::upper_bound(m_slabY.begin(), m_slabY.end(), p.y) - m_slabY.begin()) - 1;
    const std::size_t entries = m_slabEdges.size() / 4;
    T const* ax = m_slabEdges.data();
    T const* ay = ax + entries;
    T const* bx = ay + entries;
    T const* by = bx + entries;
    const int w = slabWinding(ax, ay, bx, by, m_slabStart[k], m_slabStart[k + 1], p.x, p.y);
    return w != 0;
}

#define METROMATH_POLYGON_SLABS_INSTANTIATE(T)                                  \
    template void Cpolygon2<T>::buildSlabs();                                   \
    template bool Cpolygon2<T>::pointIsInSlabs(Cpoint2<T> const&) const;

METROMATH_POLYGON_SLABS_INSTANTIATE(float)
METROMATH_POLYGON_SLABS_INSTANTIATE(double)

#undef METROMATH_POLYGON_SLABS_INSTANTIATE

}  // namespace math
