// Points, unit directions, the library's tolerance constants and the scalar
// helpers cNRB_math<T>.  Everything here is header-only and free of heap state.
#ifndef MATH_POINT_H
#define MATH_POINT_H

#include <math/export.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <initializer_list>
#include <limits>
#include <type_traits>
#include <vector>

namespace math {

// ---------------------------------------------------------------------------
// Tolerance constants (exact binary values, one definition each).
// ---------------------------------------------------------------------------
namespace tol {
constexpr double epsFloat = 0x1p-23;      // 1.1920928955078125e-07, single-precision epsilon
constexpr double epsDouble = 0x1p-52;     // 2.220446049250313e-16, double-precision epsilon
constexpr double direcFloat = 0x1p-15;    // 3.0517578125e-05, direction tolerance for float
constexpr double direcDouble = 0x1p-35;   // 2.9103830456733704e-11, direction tolerance for double

// The machine epsilon of T (2^-23 for float, 2^-52 for double).
template <class T>
constexpr T eps() {
    return std::is_same<T, float>::value ? T(epsFloat) : T(epsDouble);
}
// The direction / relative-comparison tolerance of T (2^-15 for float, 2^-35 for double).
template <class T>
constexpr T relative() {
    return std::is_same<T, float>::value ? T(direcFloat) : T(direcDouble);
}
}  // namespace tol

// Quiet NaN of T; for integer types 0 (the "invalid" marker of integer points).
template <class T>
constexpr T quietNaN() {
    return std::numeric_limits<T>::has_quiet_NaN ? std::numeric_limits<T>::quiet_NaN() : T(0);
}

namespace detail {
// True for NaN only.
template <class T>
inline bool isNaN(T v) {
    return !(v == v);
}
}  // namespace detail

// Relative comparison: a equals b when a < b + (|b| + 1)*t and b < a + (|a| + 1)*t,
// both strict, so NaN never compares equal.  Used by directions, rectangles and
// polygons with t = tol::relative<T>().
template <class T>
inline bool relEqual(T a, T b, T t) {
    return a < b + (std::abs(b) + T(1)) * t && b < a + (std::abs(a) + T(1)) * t;
}

// ---------------------------------------------------------------------------
// Points
// ---------------------------------------------------------------------------

// A point (or vector) of the plane: x, y in this order and nothing else.
template <class T>
struct Cpoint2 {
    T x, y;

    constexpr Cpoint2() : x(0), y(0) {}
    constexpr Cpoint2(T x_, T y_) : x(x_), y(y_) {}

    // Component i (0 = x, 1 = y); no bounds check.
    T& operator[](unsigned i) { return i == 0 ? x : y; }
    constexpr T const& operator[](unsigned i) const { return i == 0 ? x : y; }

    constexpr Cpoint2 operator+(Cpoint2 const& o) const { return Cpoint2(x + o.x, y + o.y); }
    constexpr Cpoint2 operator-(Cpoint2 const& o) const { return Cpoint2(x - o.x, y - o.y); }
    constexpr Cpoint2 operator-() const { return Cpoint2(-x, -y); }
    constexpr Cpoint2 operator*(T s) const { return Cpoint2(x * s, y * s); }
    constexpr Cpoint2 operator/(T s) const { return Cpoint2(x / s, y / s); }
    Cpoint2& operator+=(Cpoint2 const& o) { x += o.x; y += o.y; return *this; }
    Cpoint2& operator-=(Cpoint2 const& o) { x -= o.x; y -= o.y; return *this; }
    Cpoint2& operator*=(T s) { x *= s; y *= s; return *this; }
    Cpoint2& operator/=(T s) { x /= s; y /= s; return *this; }

    // Exact component-wise equality (use geometric<T>::equal for tolerances).
    constexpr bool operator==(Cpoint2 const& o) const { return x == o.x && y == o.y; }
    constexpr bool operator!=(Cpoint2 const& o) const { return !(*this == o); }

    constexpr T dot(Cpoint2 const& o) const { return x * o.x + y * o.y; }
    // z component of the cross product (x*o.y - y*o.x).
    constexpr T cross(Cpoint2 const& o) const { return x * o.y - y * o.x; }
    constexpr T squaredLength() const { return x * x + y * y; }
    // Euclidean length sqrt(x^2 + y^2), computed directly.
    T length() const { return static_cast<T>(std::sqrt(squaredLength())); }
};

template <class T>
constexpr Cpoint2<T> operator*(T s, Cpoint2<T> const& p) { return p * s; }

// A point (or vector) of space: x, y, z in this order and nothing else.
template <class T>
struct Cpoint3 {
    T x, y, z;

    constexpr Cpoint3() : x(0), y(0), z(0) {}
    constexpr Cpoint3(T x_, T y_, T z_) : x(x_), y(y_), z(z_) {}

    // Component i (0 = x, 1 = y, 2 = z); no bounds check.
    T& operator[](unsigned i) { return i == 0 ? x : (i == 1 ? y : z); }
    constexpr T const& operator[](unsigned i) const { return i == 0 ? x : (i == 1 ? y : z); }

    constexpr Cpoint3 operator+(Cpoint3 const& o) const { return Cpoint3(x + o.x, y + o.y, z + o.z); }
    constexpr Cpoint3 operator-(Cpoint3 const& o) const { return Cpoint3(x - o.x, y - o.y, z - o.z); }
    constexpr Cpoint3 operator-() const { return Cpoint3(-x, -y, -z); }
    constexpr Cpoint3 operator*(T s) const { return Cpoint3(x * s, y * s, z * s); }
    constexpr Cpoint3 operator/(T s) const { return Cpoint3(x / s, y / s, z / s); }
    Cpoint3& operator+=(Cpoint3 const& o) { x += o.x; y += o.y; z += o.z; return *this; }
    Cpoint3& operator-=(Cpoint3 const& o) { x -= o.x; y -= o.y; z -= o.z; return *this; }
    Cpoint3& operator*=(T s) { x *= s; y *= s; z *= s; return *this; }
    Cpoint3& operator/=(T s) { x /= s; y /= s; z /= s; return *this; }

    constexpr bool operator==(Cpoint3 const& o) const { return x == o.x && y == o.y && z == o.z; }
    constexpr bool operator!=(Cpoint3 const& o) const { return !(*this == o); }

    constexpr T dot(Cpoint3 const& o) const { return x * o.x + y * o.y + z * o.z; }
    constexpr Cpoint3 cross(Cpoint3 const& o) const {
        return Cpoint3(y * o.z - z * o.y, z * o.x - x * o.z, x * o.y - y * o.x);
    }
    constexpr T squaredLength() const { return x * x + y * y + z * z; }
    T length() const { return static_cast<T>(std::sqrt(squaredLength())); }
};

template <class T>
constexpr Cpoint3<T> operator*(T s, Cpoint3<T> const& p) { return p * s; }

// ---------------------------------------------------------------------------
// Point ranges
// ---------------------------------------------------------------------------

// A read-only view of n consecutive points: what the fits and deviation
// measures read.  It owns nothing; the points must outlive every use of the
// view.  A std::vector<P> and a braced list of points convert to a view
// implicitly, so existing calls with vectors read the vector's own storage;
// other storage (a mapped file, an (n, 2) or (n, 3) array of coordinates in
// the layout of P) is read in place through CpointSpan(pointer, n), without
// a copy.  Cpoint2 and Cpoint3 are exactly their coordinates in order (no
// padding, no other members), so an array of 2n or 3n numbers of type T is an
// array of n points.
template <class P>
class CpointSpan {
public:
    using value_type = P;
    using const_iterator = P const*;
    using iterator = P const*;

    constexpr CpointSpan() noexcept = default;
    constexpr CpointSpan(P const* data, std::size_t n) noexcept : data_(data), size_(n) {}
    template <class A>
    CpointSpan(std::vector<P, A> const& v) noexcept : data_(v.data()), size_(v.size()) {}
    // Only for a call's argument: the list lives until the call returns.
    constexpr CpointSpan(std::initializer_list<P> l) noexcept : data_(l.begin()), size_(l.size()) {}

    constexpr std::size_t size() const noexcept { return size_; }
    constexpr bool empty() const noexcept { return size_ == 0; }
    constexpr P const* data() const noexcept { return data_; }
    constexpr P const& operator[](std::size_t i) const noexcept { return data_[i]; }
    constexpr P const& front() const noexcept { return data_[0]; }
    constexpr P const& back() const noexcept { return data_[size_ - 1]; }
    constexpr P const* begin() const noexcept { return data_; }
    constexpr P const* end() const noexcept { return data_ + size_; }

private:
    P const* data_ = nullptr;
    std::size_t size_ = 0;
};

static_assert(sizeof(Cpoint2<double>) == 2 * sizeof(double) && std::is_standard_layout<Cpoint2<double>>::value,
              "Cpoint2 must be its two coordinates");
static_assert(sizeof(Cpoint3<double>) == 3 * sizeof(double) && std::is_standard_layout<Cpoint3<double>>::value,
              "Cpoint3 must be its three coordinates");
static_assert(sizeof(Cpoint2<float>) == 2 * sizeof(float) && sizeof(Cpoint3<float>) == 3 * sizeof(float),
              "float points must be their coordinates");

// ---------------------------------------------------------------------------
// Directions
// ---------------------------------------------------------------------------

// A direction: the components of a point of type P, meant to be of unit length.
// The components are the public fields inherited from P (x, y[, z]), so a
// direction can be used wherever a vector is read.  The invalid direction has
// a quiet NaN in x; a direction is valid when no component is NaN.
template <class P>
class CdirecBase : public P {
public:
    using value_type = std::remove_reference_t<decltype(std::declval<P>().x)>;
    using T = value_type;

    constexpr CdirecBase() : P() {}
    // Plain copy of p; the flag only tells the reader that the caller vouches
    // for unit length and is deliberately never looked at.
    constexpr CdirecBase(P const& p, bool) : P(p) {}
    // Normalising construction (see normalise()).
    explicit CdirecBase(P const& p) : P(p) { normalise(); }

    bool isValid() const {
        for (unsigned i = 0; i < dim; ++i)
            if (!((*this)[i] == (*this)[i])) return false;
        return true;
    }
    void invalidate() { this->x = quietNaN<T>(); }

    // Every component passes the relative comparison with the direction
    // tolerance (2^-15 for float, 2^-35 for double).
    bool operator==(CdirecBase const& o) const {
        static const T t = tol::relative<T>();
        for (unsigned i = 0; i < dim; ++i)
            if (!relEqual<T>((*this)[i], o[i], t)) return false;
        return true;
    }
    bool operator!=(CdirecBase const& o) const { return !(*this == o); }

    T operator[](unsigned i) const { return P::operator[](i); }

    // The point itself (components as stored).
    P const& point() const { return *this; }

protected:
    static constexpr unsigned dim = sizeof(P) / sizeof(T);

    // Divides every component by the Euclidean length, computed directly.
    // When the sum of squares of finite components overflows or underflows
    // (components beyond about 1e154 or below 1e-154 in double), the
    // components are first scaled by a power of two (exact) to the largest
    // magnitude's binade, so (1e300, 1e300) gives (0.707.., 0.707..).  A length
    // of exactly 0 (a zero vector) leaves the components as they are and sets
    // x to a quiet NaN: the direction becomes invalid.
    void normalise() {
        T sum = T(0);
        for (unsigned i = 0; i < dim; ++i) sum += P::operator[](i) * P::operator[](i);
        if (!(sum <= std::numeric_limits<T>::max()) || sum < std::numeric_limits<T>::min()) {
            T mx = T(0);
            for (unsigned i = 0; i < dim; ++i) mx = std::max(mx, static_cast<T>(std::fabs(P::operator[](i))));
            if (mx > T(0) && mx <= std::numeric_limits<T>::max()) {  // finite, not all zero, no NaN
                int e = 0;
                std::frexp(mx, &e);
                for (unsigned i = 0; i < dim; ++i) P::operator[](i) = std::ldexp(P::operator[](i), -e);
                sum = T(0);
                for (unsigned i = 0; i < dim; ++i) sum += P::operator[](i) * P::operator[](i);
            }
        }
        const T len = static_cast<T>(std::sqrt(sum));
        if (len != T(0)) {
            for (unsigned i = 0; i < dim; ++i) P::operator[](i) /= len;
        } else {
            this->x = quietNaN<T>();
        }
    }
};

// Unit direction of the plane.
template <class T>
class Cdirec2 : public CdirecBase<Cpoint2<T>> {
    using Base = CdirecBase<Cpoint2<T>>;

public:
    constexpr Cdirec2() : Base() {}
    // Normalises (x, y) to unit length; a zero vector gives an invalid direction.
    explicit Cdirec2(Cpoint2<T> const& p) : Base(p) {}
    // Normalises (x, y) to unit length; a zero vector gives an invalid direction.
    Cdirec2(T x, T y) : Base(Cpoint2<T>(x, y)) {}
    // Stores (x, y) as given, without normalising; the flag is not looked at.
    constexpr Cdirec2(T x, T y, bool b) : Base(Cpoint2<T>(x, y), b) {}
    constexpr Cdirec2(Cdirec2 const&) = default;
    Cdirec2& operator=(Cdirec2 const&) = default;
    // Normalising assignment from a vector.
    Cdirec2& operator=(Cpoint2<T> const& p) {
        Cpoint2<T>::operator=(p);
        this->normalise();
        return *this;
    }

    // Rotated by +90 degrees (counter-clockwise): (-y, x).  Not renormalised.
    Cdirec2 perp() const { return Cdirec2(-this->y, this->x, true); }
    Cdirec2 operator-() const { return Cdirec2(-this->x, -this->y, true); }
    // Component-wise sum and difference with a point (no scaling).
    Cpoint2<T> operator+(Cpoint2<T> const& p) const { return Cpoint2<T>(this->x + p.x, this->y + p.y); }
    Cpoint2<T> operator-(Cpoint2<T> const& p) const { return Cpoint2<T>(this->x - p.x, this->y - p.y); }

    static const Cdirec2 posX;
    static const Cdirec2 negX;
    static const Cdirec2 posY;
    static const Cdirec2 negY;
};

// The axis constants are constant-initialised (no run-time initialisation).
template <class T> const Cdirec2<T> Cdirec2<T>::posX(T(1), T(0), true);
template <class T> const Cdirec2<T> Cdirec2<T>::negX(T(-1), T(0), true);
template <class T> const Cdirec2<T> Cdirec2<T>::posY(T(0), T(1), true);
template <class T> const Cdirec2<T> Cdirec2<T>::negY(T(0), T(-1), true);

// Unit direction of space.
template <class T>
class Cdirec3 : public CdirecBase<Cpoint3<T>> {
    using Base = CdirecBase<Cpoint3<T>>;

public:
    constexpr Cdirec3() : Base() {}
    explicit Cdirec3(Cpoint3<T> const& p) : Base(p) {}
    Cdirec3(T x, T y, T z) : Base(Cpoint3<T>(x, y, z)) {}
    constexpr Cdirec3(T x, T y, T z, bool b) : Base(Cpoint3<T>(x, y, z), b) {}
    constexpr Cdirec3(Cdirec3 const&) = default;
    Cdirec3& operator=(Cdirec3 const&) = default;
    Cdirec3& operator=(Cpoint3<T> const& p) {
        Cpoint3<T>::operator=(p);
        this->normalise();
        return *this;
    }

    Cdirec3 operator-() const { return Cdirec3(-this->x, -this->y, -this->z, true); }
    Cpoint3<T> operator+(Cpoint3<T> const& p) const {
        return Cpoint3<T>(this->x + p.x, this->y + p.y, this->z + p.z);
    }
    Cpoint3<T> operator-(Cpoint3<T> const& p) const {
        return Cpoint3<T>(this->x - p.x, this->y - p.y, this->z - p.z);
    }
};

// ---------------------------------------------------------------------------
// Scalar helpers
// ---------------------------------------------------------------------------

// Formulas are exact as documented; the comparisons decide ties.  For float,
// pythag and absDistance compute in double and round once.
template <class T>
struct cNRB_math {
    // sqrt(a^2 + b^2) without overflow: p = |a|, q = |b|; q < p: p*sqrt(1+(q/p)^2);
    // q == 0: 0; otherwise q*sqrt(1+(p/q)^2) (equal magnitudes take this form).
    static T pythag(T const& a, T const& b) {
        using W = std::conditional_t<std::is_same<T, float>::value, double, T>;
        const W p = std::abs(W(a));
        const W q = std::abs(W(b));
        if (q < p) return static_cast<T>(p * std::sqrt(W(1) + (q / p) * (q / p)));
        if (q == W(0)) return T(0);
        return static_cast<T>(q * std::sqrt(W(1) + (p / q) * (p / q)));
    }
    // The same computation as pythag.
    static T absDistance(T const& a, T const& b) { return pythag(a, b); }
    // sqrt(a^2 + b^2) directly, without protection against overflow.
    static T calcEuclidDist(T const& a, T const& b) { return static_cast<T>(std::sqrt(a * a + b * b)); }
    // a if b > 0, otherwise -a (b = 0 and NaN give -a); a keeps its sign.
    static T sign(T const& a, T const& b) { return b > T(0) ? a : -a; }
    // -|a| if b < 0, otherwise |a| (b = 0 gives +|a|).
    static T setSignof(T const& a, T const& b) { return b < T(0) ? -std::abs(a) : std::abs(a); }
    // The larger magnitude; a tie returns |b|.
    static T absmax(T const& a, T const& b) {
        const T pa = std::abs(a);
        const T pb = std::abs(b);
        return pb < pa ? pa : pb;
    }
    // b if b <= a, otherwise a.
    static T min(T const& a, T const& b) { return b <= a ? b : a; }
    // a if b < a, otherwise b.
    static T max(T const& a, T const& b) { return b < a ? a : b; }
};

}  // namespace math

#endif
