// Moment sums over point sets, shared by the fits of approximate<T> (private to
// the library's sources).
//
// Every sum of the fits is accumulated in a fixed, blocked order:
//  - the points are taken in blocks of kSumBlock;
//  - inside a block, point i goes to lane i mod L of the partial sums, and
//    every lane sums its points in order (L = 16 bytes / sizeof(S): 2 lanes of
//    double, 4 of float), so that one SIMD register carries the same sum of L
//    points side by side;
//  - at the end of a block the lanes are added in lane order, then the block
//    partial is added to the total.
// The precision of each sum is the one its fit states (S = T or double); the
// blocking bounds the growth of the rounding error (about kSumBlock / L +
// n / kSumBlock roundings per sum instead of n; for 10^6 float coordinates
// near 1000 that is the difference between a centroid off by a millimetre and
// one good to a fraction of a micrometre) and the lanes let the additions of
// independent points overlap.  The order is fixed: results do not depend on
// the compiler, the platform or the optimisation level.  With GCC and Clang
// the lanes are vector-extension registers; elsewhere (or with
// METROMATH_APPROX_PORTABLE_LANES defined) a plain array with the same
// element-wise arithmetic, which gives bit for bit the same sums.
#ifndef MATH_APPROXIMATE_SUMS_H
#define MATH_APPROXIMATE_SUMS_H

#include <math/approximate.h>
#include <math/errors.h>
#include <math/matrix_calc.h>
#include <math/point.h>
#include <math/primitives2.h>
#include <math/primitives3.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <type_traits>
#include <vector>

namespace math {
namespace approx_detail {

// The invalid lines written by the fits for too few points: NaN in every
// coordinate of point and direction.
template <class T>
void setNaNLine(Cline2<T>& line) {
    const T nan = quietNaN<T>();
    line = Cline2<T>(Cpoint2<T>(nan, nan), Cdirec2<T>(nan, nan, true));
}

template <class T>
void setNaNLine(Cline3<T>& line) {
    const T nan = quietNaN<T>();
    line = Cline3<T>(Cpoint3<T>(nan, nan, nan), Cdirec3<T>(nan, nan, nan, true));
}

// The invalid plane: a, b, c and d NaN.
template <class T>
void setNaNPlane(Cplane3<T>& plane) {
    const T nan = quietNaN<T>();
    plane.set(nan, nan, nan, nan);
}

// The shape through exactly as many points as determine it.
template <class T>
void setThrough(CpointSpan<Cpoint2<T>> pts, Cline2<T>& line) {
    line = Cline2<T>(pts[0], pts[1]);
}
template <class T>
void setThrough(CpointSpan<Cpoint3<T>> pts, Cline3<T>& line) {
    line = Cline3<T>(pts[0], pts[1]);
}
template <class T>
void setThrough(CpointSpan<Cpoint3<T>> pts, Cplane3<T>& plane) {
    plane = Cplane3<T>(pts[0], pts[1], pts[2]);
}
template <class T>
void setNaNShape(Cline2<T>& line) {
    setNaNLine(line);
}
template <class T>
void setNaNShape(Cline3<T>& line) {
    setNaNLine(line);
}
template <class T>
void setNaNShape(Cplane3<T>& plane) {
    setNaNPlane(plane);
}

// The invalid records: every field NaN.
template <class T>
void setNaN(CqLineGeom2DStdAbw<T>& rec) {
    rec.stdAbwOrth = rec.stdAbwAlong = quietNaN<T>();
}
template <class T>
void setNaN(CqLineGeom3DStdAbw<T>& rec) {
    rec.stdAbwMain = rec.stdAbwSecond = rec.stdAbwThird = quietNaN<T>();
}
template <class T>
void setNaN(CqPlaneGeomStdAbw<T>& rec) {
    rec.stdAbwNormal = rec.stdAbwSecond = rec.stdAbwMain = quietNaN<T>();
}
struct NoRecord {};
inline void setNaN(NoRecord&) {}

// The opening of the fits of a shape that K points determine (a line 2, a
// plane 3): fewer than K points give the invalid shape, exactly K the shape
// through them, and either way the record (if rec is not null) is invalid
// and the fit is done: true.  More points: false, nothing written.
template <std::size_t K, class P, class Shape, class Rec = NoRecord>
bool fewPoints(CpointSpan<P> pts, Shape& shape, Rec* rec = nullptr) {
    if (pts.size() > K) return false;
    if (pts.size() < K)
        setNaNShape(shape);
    else
        setThrough(pts, shape);
    if (rec) setNaN(*rec);
    return true;
}

// The eigen decomposition of the fits' symmetric matrices, guarded: false
// (A and V untouched) when an entry is not finite (a NaN point, or squares
// that overflowed in the sums), and false when the routine gives up on
// entries too large for its own squares (it then throws a plain int).  The
// fits answer false with their NaN-invalid result.
template <class T>
bool eigenOfFinite(Cmatrix<T>& A, Cmatrix<T>& V) {
    for (T x : A)
        if (!std::isfinite(x)) return false;
    try {
        CmatrixCalc<T>::getEigenvalue(A, V);
    } catch (int) {
        return false;
    }
    return true;
}

// Row count of a design matrix with one row per point.  A Cmatrix has at
// most 2^32 - 1 rows: a larger point set is refused with CthrowMath
// ERR_MATRIX_DIMS before anything is allocated (a narrowed count would leave
// the matrix shorter than the loop that fills it).
inline unsigned matrixRows(std::size_t n) {
    if (n > 0xFFFFFFFFu) throw CthrowMath(CthrowMath::ERR_MATRIX_DIMS, "");
    return static_cast<unsigned>(n);
}

constexpr std::size_t kSumBlock = 1024;

// L lanes of S with element-wise arithmetic.
template <class S>
struct LaneTraits {
    static constexpr std::size_t L = 16 / sizeof(S);
#if defined(__GNUC__) && !defined(METROMATH_APPROX_PORTABLE_LANES)
    typedef S V __attribute__((vector_size(16)));
#else
    struct V {
        S e[L];
        S& operator[](std::size_t k) { return e[k]; }
        S operator[](std::size_t k) const { return e[k]; }
        friend V operator+(V a, V const& b) { for (std::size_t k = 0; k < L; ++k) a.e[k] += b.e[k]; return a; }
        friend V operator-(V a, V const& b) { for (std::size_t k = 0; k < L; ++k) a.e[k] -= b.e[k]; return a; }
        friend V operator*(V a, V const& b) { for (std::size_t k = 0; k < L; ++k) a.e[k] *= b.e[k]; return a; }
        V& operator+=(V const& b) { for (std::size_t k = 0; k < L; ++k) e[k] += b.e[k]; return *this; }
        // With a scalar, as GCC's vector extension does: the scalar in every lane.
        friend V operator+(V a, S b) { for (std::size_t k = 0; k < L; ++k) a.e[k] += b; return a; }
        friend V operator-(V a, S b) { for (std::size_t k = 0; k < L; ++k) a.e[k] -= b; return a; }
        friend V operator*(V a, S b) { for (std::size_t k = 0; k < L; ++k) a.e[k] *= b; return a; }
        friend V operator*(S b, V a) { for (std::size_t k = 0; k < L; ++k) a.e[k] = b * a.e[k]; return a; }
    };
#endif
    // All lanes set to s.
    static V splat(S s) {
        V v;
        for (std::size_t k = 0; k < L; ++k) v[k] = s;
        return v;
    }
};

// Square root lane by lane, or of a scalar.
template <class X>
inline X lanewiseSqrt(X v) {
    if constexpr (std::is_arithmetic<X>::value) {
        return static_cast<X>(std::sqrt(v));
    } else {
        for (std::size_t k = 0; k < sizeof(X) / sizeof(v[0]); ++k) v[k] = std::sqrt(v[k]);
        return v;
    }
}

// Coordinates of L consecutive points (or one point), converted to S.
template <class S, class V, class T>
inline void load(Cpoint2<T> const* p, V& x, V& y) {
    for (std::size_t k = 0; k < LaneTraits<S>::L; ++k) {
        x[k] = static_cast<S>(p[k].x);
        y[k] = static_cast<S>(p[k].y);
    }
}
template <class S, class V, class T>
inline void load(Cpoint3<T> const* p, V& x, V& y, V& z) {
    for (std::size_t k = 0; k < LaneTraits<S>::L; ++k) {
        x[k] = static_cast<S>(p[k].x);
        y[k] = static_cast<S>(p[k].y);
        z[k] = static_cast<S>(p[k].z);
    }
}

// N sums of type S.  add(acc, x, y) or add(acc, x, y, z) adds one point's
// terms to acc[0 .. N-1]; it is a generic callable, called with lanes (V) and
// with scalars (S) for the points left over at the end of a block.
template <class S, std::size_t N>
struct Sums {
    S s[N];
    S operator[](std::size_t k) const { return s[k]; }
};

namespace impl {
template <class S, class V, class Add, class T>
inline void addPoints(Add& add, V* acc, Cpoint2<T> const* p) {
    V x, y;
    load<S>(p, x, y);
    add(acc, x, y);
}
template <class S, class V, class Add, class T>
inline void addPoints(Add& add, V* acc, Cpoint3<T> const* p) {
    V x, y, z;
    load<S>(p, x, y, z);
    add(acc, x, y, z);
}
template <class S, class Add, class T>
inline void addPoint(Add& add, S* acc, Cpoint2<T> const& p) {
    add(acc, static_cast<S>(p.x), static_cast<S>(p.y));
}
template <class S, class Add, class T>
inline void addPoint(Add& add, S* acc, Cpoint3<T> const& p) {
    add(acc, static_cast<S>(p.x), static_cast<S>(p.y), static_cast<S>(p.z));
}
}  // namespace impl

// The N sums of add over all points, in the blocked lane order described above.
template <class S, std::size_t N, class Pt, class Add>
Sums<S, N> blockedSums(Pt const* p, std::size_t n, Add add) {
    using Tr = LaneTraits<S>;
    using V = typename Tr::V;
    constexpr std::size_t L = Tr::L;
    Sums<S, N> total{};
    for (std::size_t b = 0; b < n; b += kSumBlock) {
        const std::size_t e = std::min(n, b + kSumBlock);
        V lanes[N];
        for (std::size_t k = 0; k < N; ++k) lanes[k] = Tr::splat(S(0));
        std::size_t i = b;
        for (; i + L <= e; i += L) impl::addPoints<S>(add, lanes, p + i);
        S part[N];
        for (std::size_t k = 0; k < N; ++k) {
            part[k] = lanes[k][0];
            for (std::size_t l = 1; l < L; ++l) part[k] += lanes[k][l];
        }
        for (; i < e; ++i) impl::addPoint<S>(add, part, p[i]);
        for (std::size_t k = 0; k < N; ++k) total.s[k] += part[k];
    }
    return total;
}

template <class S, std::size_t N, class Pt, class Add>
Sums<S, N> blockedSums(CpointSpan<Pt> pts, Add add) {
    return blockedSums<S, N>(pts.data(), pts.size(), add);
}

}  // namespace approx_detail
}  // namespace math

#endif
