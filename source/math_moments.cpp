// Mergeable moment sums of point sets (CmomentSums2, CmomentSums3).
#include <math/errors.h>
#include <math/moments.h>

#include "math_approximate_sums.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace math {

namespace {

// Index of the second moment S_ij (i <= j) in the upper triangle by rows.
template <unsigned D>
constexpr unsigned idx2(unsigned i, unsigned j) {
    return D + (i * (2 * D - i + 1)) / 2 + (j - i);
}
template <unsigned D>
constexpr unsigned idxW(unsigned i) {
    return D + D * (D + 1) / 2 + i;
}
template <unsigned D>
constexpr unsigned idxWW() {
    return D + D * (D + 1) / 2 + D;
}

template <class U>
double coord(Cpoint2<U> const& p, unsigned k) {
    return static_cast<double>(k == 0 ? p.x : p.y);
}
template <class U>
double coord(Cpoint3<U> const& p, unsigned k) {
    return static_cast<double>(k == 0 ? p.x : (k == 1 ? p.y : p.z));
}

Cpoint2<double> makePoint(double const* c, std::integral_constant<unsigned, 2>) { return {c[0], c[1]}; }
Cpoint3<double> makePoint(double const* c, std::integral_constant<unsigned, 3>) { return {c[0], c[1], c[2]}; }

template <class T>
void setCoord(Cpoint2<T>& p, unsigned k, T v) {
    (k == 0 ? p.x : p.y) = v;
}
template <class T>
void setCoord(Cpoint3<T>& p, unsigned k, T v) {
    (k == 0 ? p.x : (k == 1 ? p.y : p.z)) = v;
}

// FNV-1a, 64 bit.
std::uint64_t fnv1a(std::uint8_t const* p, std::size_t n) {
    std::uint64_t h = 0xcbf29ce484222325ull;
    for (std::size_t i = 0; i < n; ++i) {
        h ^= p[i];
        h *= 0x100000001b3ull;
    }
    return h;
}

void putU64(std::uint8_t* p, std::uint64_t v) {
    for (int k = 0; k < 8; ++k) p[k] = static_cast<std::uint8_t>(v >> (8 * k));
}
std::uint64_t getU64(std::uint8_t const* p) {
    std::uint64_t v = 0;
    for (int k = 0; k < 8; ++k) v |= static_cast<std::uint64_t>(p[k]) << (8 * k);
    return v;
}
void putDouble(std::uint8_t* p, double d) {
    std::uint64_t v;
    std::memcpy(&v, &d, 8);
    putU64(p, v);
}
double getDouble(std::uint8_t const* p) {
    const std::uint64_t v = getU64(p);
    double d;
    std::memcpy(&d, &v, 8);
    return d;
}

[[noreturn]] void badBytes(char const* what) {
    throw CthrowMath(CthrowMath::ERR_MATH_INVALID_ARGUMENT, std::string("moment sums: ") + what);
}

}  // namespace

template <class T, unsigned D>
void CmomentSums<T, D>::addBlock(Tpoint const* pts, std::size_t count) {
    using approx_detail::blockedSums;
    if (count == 0) return;
    if (m_n == 0) {
        for (unsigned k = 0; k < D; ++k) m_ref[k] = coord(pts[0], k);
    }
    approx_detail::Sums<double, kSums> s;
    if constexpr (D == 2) {
        const double rx = m_ref[0], ry = m_ref[1];
        s = blockedSums<double, kSums>(pts, count, [rx, ry](auto* a, auto x, auto y) {
            const auto u = x - rx;
            const auto v = y - ry;
            const auto uu = u * u;
            const auto vv = v * v;
            const auto w = uu + vv;
            a[0] += u;
            a[1] += v;
            a[2] += uu;
            a[3] += u * v;
            a[4] += vv;
            a[5] += w * u;
            a[6] += w * v;
            a[7] += w * w;
        });
    } else {
        const double rx = m_ref[0], ry = m_ref[1], rz = m_ref[2];
        s = blockedSums<double, kSums>(pts, count, [rx, ry, rz](auto* a, auto x, auto y, auto z) {
            const auto u = x - rx;
            const auto v = y - ry;
            const auto t = z - rz;
            const auto uu = u * u;
            const auto vv = v * v;
            const auto tt = t * t;
            const auto w = uu + vv + tt;
            a[0] += u;
            a[1] += v;
            a[2] += t;
            a[3] += uu;
            a[4] += u * v;
            a[5] += u * t;
            a[6] += vv;
            a[7] += v * t;
            a[8] += tt;
            a[9] += w * u;
            a[10] += w * v;
            a[11] += w * t;
            a[12] += w * w;
        });
    }
    for (unsigned k = 0; k < kSums; ++k) m_s[k] += s[k];
    m_n += count;
}

template <class T, unsigned D>
void CmomentSums<T, D>::add(Tpoint const* pts, std::size_t count) {
    // Block by block, so that the strided form (which gathers a block at a
    // time) sums in exactly the same order.
    for (std::size_t b = 0; b < count; b += approx_detail::kSumBlock) {
        addBlock(pts + b, std::min(approx_detail::kSumBlock, count - b));
    }
}

template <class T, unsigned D>
void CmomentSums<T, D>::add(T const* data, std::size_t count, std::ptrdiff_t rowStride,
                            std::ptrdiff_t colStride) {
    Tpoint buf[approx_detail::kSumBlock];
    for (std::size_t b = 0; b < count; b += approx_detail::kSumBlock) {
        const std::size_t e = std::min(approx_detail::kSumBlock, count - b);
        for (std::size_t i = 0; i < e; ++i) {
            T const* row = data + static_cast<std::ptrdiff_t>(b + i) * rowStride;
            for (unsigned k = 0; k < D; ++k) setCoord(buf[i], k, row[static_cast<std::ptrdiff_t>(k) * colStride]);
        }
        addBlock(buf, e);
    }
}

template <class T, unsigned D>
void CmomentSums<T, D>::shiftSums(double const* d) {
    const double n = static_cast<double>(m_n);
    double s1[D], s2[D][D], w[D];
    for (unsigned i = 0; i < D; ++i) {
        s1[i] = m_s[i];
        w[i] = m_s[idxW<D>(i)];
        for (unsigned j = i; j < D; ++j) s2[i][j] = s2[j][i] = m_s[idx2<D>(i, j)];
    }
    const double ww = m_s[idxWW<D>()];
    double sw = 0, c = 0, dS1 = 0, dW = 0, dS2d = 0;
    for (unsigned i = 0; i < D; ++i) {
        sw += s2[i][i];
        c += d[i] * d[i];
        dS1 += d[i] * s1[i];
        dW += d[i] * w[i];
        for (unsigned j = 0; j < D; ++j) dS2d += d[i] * d[j] * s2[i][j];
    }
    // With u' = u + d and w' = |u'|^2 = w + 2 d.u + |d|^2, every sum expands
    // into the old ones.
    for (unsigned i = 0; i < D; ++i) {
        m_s[i] = s1[i] + n * d[i];
        for (unsigned j = i; j < D; ++j) m_s[idx2<D>(i, j)] = s2[i][j] + d[i] * s1[j] + d[j] * s1[i] + n * d[i] * d[j];
        double s2d = 0;
        for (unsigned j = 0; j < D; ++j) s2d += s2[i][j] * d[j];
        m_s[idxW<D>(i)] = w[i] + d[i] * sw + 2.0 * s2d + 2.0 * d[i] * dS1 + c * s1[i] + c * d[i] * n;
    }
    m_s[idxWW<D>()] = ww + 4.0 * dS2d + c * c * n + 4.0 * dW + 2.0 * c * sw + 4.0 * c * dS1;
}

template <class T, unsigned D>
void CmomentSums<T, D>::merge(CmomentSums const& other) {
    if (other.m_n == 0) return;
    if (m_n == 0) {
        *this = other;
        return;
    }
    CmomentSums o = other;  // other may be *this
    double d[D];
    for (unsigned k = 0; k < D; ++k) d[k] = o.m_ref[k] - m_ref[k];
    o.shiftSums(d);
    for (unsigned k = 0; k < kSums; ++k) m_s[k] += o.m_s[k];
    m_n += o.m_n;
}

template <class T, unsigned D>
typename CmomentSums<T, D>::TpointD CmomentSums<T, D>::reference() const {
    return makePoint(m_ref, std::integral_constant<unsigned, D>());
}

template <class T, unsigned D>
typename CmomentSums<T, D>::TpointD CmomentSums<T, D>::centroid() const {
    double c[D];
    const double n = static_cast<double>(m_n);
    for (unsigned k = 0; k < D; ++k) c[k] = m_n == 0 ? quietNaN<double>() : m_ref[k] + m_s[k] / n;
    return makePoint(c, std::integral_constant<unsigned, D>());
}

template <class T, unsigned D>
bool CmomentSums<T, D>::isFinite() const {
    for (unsigned k = 0; k < D; ++k)
        if (!std::isfinite(m_ref[k])) return false;
    for (unsigned k = 0; k < kSums; ++k)
        if (!std::isfinite(m_s[k])) return false;
    return true;
}

template <class T, unsigned D>
void CmomentSums<T, D>::centredScatter(double* out) const {
    const double n = static_cast<double>(m_n);
    for (unsigned i = 0; i < D; ++i)
        for (unsigned j = i; j < D; ++j)
            out[i * D + j] = out[j * D + i] = m_s[idx2<D>(i, j)] - m_s[i] * m_s[j] / n;
}

template <class T, unsigned D>
CmomentSums<T, D> CmomentSums<T, D>::shiftedTo(TpointD const& ref) const {
    CmomentSums r = *this;
    double d[D];
    for (unsigned k = 0; k < D; ++k) {
        d[k] = m_ref[k] - coord(ref, k);
        r.m_ref[k] = coord(ref, k);
    }
    r.shiftSums(d);
    return r;
}

template <class T, unsigned D>
std::vector<std::uint8_t> CmomentSums<T, D>::toBytes() const {
    std::vector<std::uint8_t> b(kBytes, 0);
    b[0] = 1;
    b[1] = static_cast<std::uint8_t>(D);
    putU64(&b[8], m_n);
    std::size_t o = 16;
    for (unsigned k = 0; k < D; ++k, o += 8) putDouble(&b[o], m_ref[k]);
    for (unsigned k = 0; k < kSums; ++k, o += 8) putDouble(&b[o], m_s[k]);
    putU64(&b[o], fnv1a(b.data(), o));
    return b;
}

template <class T, unsigned D>
CmomentSums<T, D> CmomentSums<T, D>::fromBytes(std::uint8_t const* data, std::size_t size) {
    if (data == nullptr || size != kBytes) badBytes("wrong length");
    if (data[0] != 1) badBytes("unknown version");
    if (data[1] != D) badBytes("wrong dimension");
    for (int k = 2; k < 8; ++k)
        if (data[k] != 0) badBytes("damaged header");
    if (getU64(data + kBytes - 8) != fnv1a(data, kBytes - 8)) badBytes("checksum mismatch");
    CmomentSums r;
    r.m_n = getU64(data + 8);
    std::size_t o = 16;
    for (unsigned k = 0; k < D; ++k, o += 8) r.m_ref[k] = getDouble(data + o);
    for (unsigned k = 0; k < kSums; ++k, o += 8) r.m_s[k] = getDouble(data + o);
    return r;
}

template class CmomentSums<float, 2>;
template class CmomentSums<double, 2>;
template class CmomentSums<float, 3>;
template class CmomentSums<double, 3>;

}  // namespace math
