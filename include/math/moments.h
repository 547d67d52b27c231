// Mergeable moment sums of point sets: CmomentSums2<T> (planar) and
// CmomentSums3<T> (spatial).
//
// The closed-form circle and sphere fits and the orthogonal line and plane
// fits are functions of a fixed set of moment sums.  An accumulator holds those
// sums for the points added so far, so that a point set can be summed in parts
// (files, threads, processes, machines), the parts merged in any order, and the
// fit run once on the result (approximate<T>::fitCircleLsq(sums, circle) and
// the other overloads taking an accumulator).
//
// What is kept (all in double, also for float points):
//   n, a reference point r (the first point added), and with u = p - r and
//   w = |u|^2 the sums  S_i = sum u_i,  S_ij = sum u_i u_j,  W_i = sum w u_i,
//   W = sum w^2  (planar: 8 sums, spatial: 13).
// Keeping the sums about a point of the data rather than the coordinate origin
// keeps them as accurate for a cloud 10^6 mm out as for one at the origin.
// merge() moves the other accumulator's sums to this one's reference with the
// exact polynomial shift (u -> u + d expanded in the stored sums), so merged
// sums equal the sums of the concatenated points up to rounding: fits from
// merged sums agree with the fit from one accumulator over all points to about
// 1e-13 relative for well-spread data (the tests check 1e-12).
//
// Points are added in blocks of 1024, each block summed in two interleaved
// lanes, then added to the totals: the same points added in the same calls
// give the same bits on every machine.  A NaN or infinite coordinate makes the
// sums non-finite; the fits then return their NaN-invalid result.
//
// Byte form (toBytes / fromBytes), fixed little-endian, for sending partial
// sums between processes:
//   byte 0: format version (1); byte 1: dimension (2 or 3); bytes 2..7: zero;
//   8 bytes: n (uint64); then the reference point and the sums as IEEE-754
//   doubles (2 + 8 or 3 + 13 of them); last 8 bytes: FNV-1a 64-bit hash of
//   everything before it.
// fromBytes throws CthrowMath ERR_MATH_INVALID_ARGUMENT for a buffer of the
// wrong length, version or dimension, non-zero reserved bytes or a hash that
// does not match; it never reads past the given size.
#ifndef MATH_MOMENTS_H
#define MATH_MOMENTS_H

#include <math/export.h>
#include <math/point.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <vector>

namespace math {

template <class T, unsigned D>
class METROMATH_API CmomentSums {
public:
    // Number of stored sums: D first moments, D(D+1)/2 second moments, D sums
    // w*u_i and the sum of w^2.
    static constexpr unsigned kSums = D + D * (D + 1) / 2 + D + 1;
    // Size of the byte form.
    static constexpr std::size_t kBytes = 8 + 8 + 8 * (D + kSums) + 8;
    typedef typename std::conditional<D == 2, Cpoint2<T>, Cpoint3<T>>::type Tpoint;
    typedef typename std::conditional<D == 2, Cpoint2<double>, Cpoint3<double>>::type TpointD;

    CmomentSums() = default;

    void add(Tpoint const& p) { add(&p, 1); }
    void add(std::vector<Tpoint> const& pts) { add(pts.data(), pts.size()); }
    void add(Tpoint const* pts, std::size_t count);
    // Points as rows of a strided array: coordinate k of point i is
    // data[i * rowStride + k * colStride] (strides in elements, may be
    // negative).  Read in place, block by block.
    void add(T const* data, std::size_t count, std::ptrdiff_t rowStride, std::ptrdiff_t colStride);

    // Adds the points summed by other (other is unchanged; other may be *this).
    void merge(CmomentSums const& other);
    CmomentSums& operator+=(CmomentSums const& other) {
        merge(other);
        return *this;
    }

    std::uint64_t count() const { return m_n; }
    // The reference point (the first point added; 0 while empty).
    TpointD reference() const;
    // The mean of the points; NaN while empty.
    TpointD centroid() const;
    // The stored sums in the order S_0..S_{D-1}, S_00, S_01, .., S_{D-1,D-1}
    // (upper triangle by rows), W_0..W_{D-1}, W.
    double sum(unsigned k) const { return k < kSums ? m_s[k] : 0.0; }
    // True when the reference and every sum are finite.
    bool isFinite() const;

    // Centred second moments C_ij = sum (p_i - mean_i)(p_j - mean_j), as a
    // full D x D array (row-major), computed from the sums.
    void centredScatter(double* out) const;
    // The sums moved to a new reference point (for the fits: the centroid).
    CmomentSums shiftedTo(TpointD const& ref) const;

    std::vector<std::uint8_t> toBytes() const;
    static CmomentSums fromBytes(std::uint8_t const* data, std::size_t size);
    static CmomentSums fromBytes(std::vector<std::uint8_t> const& bytes) {
        return fromBytes(bytes.data(), bytes.size());
    }

private:
    void addBlock(Tpoint const* pts, std::size_t count);
    void shiftSums(double const* d);  // u -> u + d in every sum

    std::uint64_t m_n = 0;
    double m_ref[D] = {};
    double m_s[kSums] = {};
};

template <class T>
using CmomentSums2 = CmomentSums<T, 2>;
template <class T>
using CmomentSums3 = CmomentSums<T, 3>;

extern template class CmomentSums<float, 2>;
extern template class CmomentSums<double, 2>;
extern template class CmomentSums<float, 3>;
extern template class CmomentSums<double, 3>;

}  // namespace math

#endif
