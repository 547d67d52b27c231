// The least-squares estimators of planar transformations: Ctrans2_Helmert<T>
// (similarity) and Ctrans2_Affine<T> (a rotation and a scale per axis).
//
// Both form their normal equations from sums in double over the stored design
// matrix and observations, with every coordinate taken relative to the first
// point of its set (u = x - x0, v = y - y0, u' = x' - x'0, v' = y' - y'0), so
// that the normal matrix of data 1000 mm from the origin is as well
// conditioned as that of data at the origin.  The sums follow the blocked
// lane order of the fits (math_approximate_sums.h).
#include <math/errors.h>
#include <math/solver.h>
#include <math/transform2.h>

#include "math_approximate_sums.h"

#include <cmath>
#include <cstddef>
#include <cstring>
#include <type_traits>

namespace math {

namespace {

using approx_detail::kSumBlock;
using approx_detail::LaneTraits;
using approx_detail::Sums;

// pi/2, the angle of an exactly zero cosine coefficient.
constexpr double kHalfPi = 1.5707963267948966;

// The N sums of add(acc, u, v, u', v') over the n pairs, point i loaded by
// load(i, x, y, xd, yd) (coordinates as stored, in double).  Blocked lanes as
// in approx_detail::blockedSums: point i of a block goes to lane i mod L.
template <std::size_t N, class Load, class Add>
Sums<double, N> pairSums(std::size_t n, Load load, Add add) {
    using Tr = LaneTraits<double>;
    using V = Tr::V;
    constexpr std::size_t L = Tr::L;
    Sums<double, N> total{};
    if (n == 0) return total;
    double x0, y0, xd0, yd0;
    load(0, x0, y0, xd0, yd0);
    for (std::size_t b = 0; b < n; b += kSumBlock) {
        const std::size_t e = n < b + kSumBlock ? n : b + kSumBlock;
        V lanes[N];
        for (std::size_t k = 0; k < N; ++k) lanes[k] = Tr::splat(0.0);
        std::size_t i = b;
        for (; i + L <= e; i += L) {
            V u, v, ud, vd;
            for (std::size_t k = 0; k < L; ++k) {
                double x, y, xd, yd;
                load(i + k, x, y, xd, yd);
                u[k] = x - x0;
                v[k] = y - y0;
                ud[k] = xd - xd0;
                vd[k] = yd - yd0;
            }
            add(lanes, u, v, ud, vd);
        }
        double part[N];
        for (std::size_t k = 0; k < N; ++k) {
            part[k] = lanes[k][0];
            for (std::size_t l = 1; l < L; ++l) part[k] += lanes[k][l];
        }
        for (; i < e; ++i) {
            double x, y, xd, yd;
            load(i, x, y, xd, yd);
            add(part, x - x0, y - y0, xd - xd0, yd - yd0);
        }
        for (std::size_t k = 0; k < N; ++k) total.s[k] += part[k];
    }
    return total;
}

template <std::size_t N>
bool allFinite(Sums<double, N> const& s) {
    for (std::size_t k = 0; k < N; ++k)
        if (!std::isfinite(s.s[k])) return false;
    return true;
}

// Solves the square system N*x = r with the LU solver (decomposed at the
// solve); its errors pass through.
template <class T>
Cmatrix<T> luSolve(Cmatrix<T>& N, Cmatrix<T> const& r) {
    Csolver_luDecomp<T> lu(N);
    return lu.solve(r);
}

// The angle of the cosine coefficient c and sine coefficient s: the
// one-argument arctangent, pi/2 when c is exactly 0.
template <class T>
T angleOf(T s, T c) {
    return c == T(0) ? T(kHalfPi) : std::atan(s / c);
}

template <class T>
void setColumn(Cmatrix<T>& M, unsigned m, double const* v) {
    if (M.m() != m || M.n() != 1) M.resize(m, 1);
    for (unsigned i = 0; i < m; ++i) M(i, 0) = static_cast<T>(v[i]);
}

// Sets count and flag-independent storage sizes; refuses counts the 32-bit
// matrix dimensions cannot hold.
inline unsigned checkedCount(std::size_t n, std::size_t limit) {
    if (n > limit) throw CthrowMath(CthrowMath::ERR_MATH_INVALID_ARGUMENT, "");
    return static_cast<unsigned>(n);
}

template <class T>
void setNaNResult(CtransPrm2<T>& prm) {
    const T nan = quietNaN<T>();
    prm.setRotation(nan, nan);
    prm.setTranslation(nan, nan);
    prm.setScale(nan, nan);
}

}  // namespace

// ---------------------------------------------------------------------------
// Ctrans2_Helmert
// ---------------------------------------------------------------------------

template <class T>
Ctrans2_Helmert<T>::Ctrans2_Helmert() : Ctrans2_Basic<T>(), m_A(0, 4), m_solution(), m_obs() {}

// Copies are member-wise, defined here so that they stay exported functions.
template <class T>
Ctrans2_Helmert<T>::Ctrans2_Helmert(Ctrans2_Helmert const&) = default;
template <class T>
Ctrans2_Helmert<T>& Ctrans2_Helmert<T>::operator=(Ctrans2_Helmert const&) = default;
template <class T>
Ctrans2_Helmert<T>::~Ctrans2_Helmert() = default;

template <class T>
void Ctrans2_Helmert<T>::setSource(std::vector<Cpoint2<T>> const& source) {
    const unsigned n = checkedCount(source.size(), 0x7FFFFFFFu);
    if (m_A.m() != 2 * n || m_A.n() != 4) m_A.resize(2 * n, 4);
    T* a = m_A.getBase();
    const Cpoint2<T>* p = source.data();
    for (unsigned i = 0; i < n; ++i, a += 8) {
        const T x = p[i].x, y = p[i].y;
        a[0] = T(1);
        a[1] = T(0);
        a[2] = x;
        a[3] = -y;
        a[4] = T(0);
        a[5] = T(1);
        a[6] = y;
        a[7] = x;
    }
    this->m_nSource = n;
    this->m_sourceSet = true;
}

template <class T>
void Ctrans2_Helmert<T>::setDest(std::vector<Cpoint2<T>> const& dest) {
    const unsigned n = checkedCount(dest.size(), 0x7FFFFFFFu);
    m_obs.resize(2 * static_cast<std::size_t>(n));
    // (x'0, y'0, x'1, y'1, ...) is the point array's own layout.
    static_assert(sizeof(Cpoint2<T>) == 2 * sizeof(T) && std::is_trivially_copyable<Cpoint2<T>>::value, "");
    if (n > 0) std::memcpy(m_obs.data(), dest.data(), 2 * static_cast<std::size_t>(n) * sizeof(T));
    this->m_nDest = n;
    this->m_destSet = true;
}

template <class T>
void Ctrans2_Helmert<T>::setAll(std::vector<Cpoint2<T>> const& source, std::vector<Cpoint2<T>> const& dest) {
    this->setSource(source);
    this->setDest(dest);
}

template <class T>
CtransPrm2<T> Ctrans2_Helmert<T>::transform() {
    if (!this->m_sourceSet || !this->m_destSet) throw typename Ctrans2_Basic<T>::xNotInitialized();
    if (this->m_nSource != this->m_nDest) throw typename Ctrans2_Basic<T>::xArgumentMismatch();
    const std::size_t n = this->m_nSource;
    const T* a = m_A.getBase();
    const T* l = m_obs.data();
    auto load = [a, l](std::size_t i, double& x, double& y, double& xd, double& yd) {
        x = static_cast<double>(a[8 * i + 2]);
        y = static_cast<double>(a[8 * i + 6]);
        xd = static_cast<double>(l[2 * i]);
        yd = static_cast<double>(l[2 * i + 1]);
    };
    // Su, Sv, S(u^2 + v^2), Su', Sv', S(u u' + v v'), S(u v' - v u').
    const Sums<double, 7> s = pairSums<7>(n, load, [](auto* acc, auto u, auto v, auto ud, auto vd) {
        acc[0] += u;
        acc[1] += v;
        acc[2] += u * u + v * v;
        acc[3] += ud;
        acc[4] += vd;
        acc[5] += u * ud + v * vd;
        acc[6] += u * vd - v * ud;
    });
    if (!allFinite(s)) {
        const double nan[4] = {quietNaN<double>(), quietNaN<double>(), quietNaN<double>(), quietNaN<double>()};
        setColumn(m_solution, 4, nan);
        setNaNResult(this->m_prm);
        return this->m_prm;
    }
    // Normal equations of the rows (1, 0, u, -v), (0, 1, v, u) for (tx', ty', a, b).
    Cmatrix<T> N(4, 4);
    const T cnt = static_cast<T>(n);
    const T su = static_cast<T>(s[0]), sv = static_cast<T>(s[1]), sq = static_cast<T>(s[2]);
    N(0, 0) = cnt;  N(0, 1) = T(0); N(0, 2) = su;   N(0, 3) = -sv;
    N(1, 0) = T(0); N(1, 1) = cnt;  N(1, 2) = sv;   N(1, 3) = su;
    N(2, 0) = su;   N(2, 1) = sv;   N(2, 2) = sq;   N(2, 3) = T(0);
    N(3, 0) = -sv;  N(3, 1) = su;   N(3, 2) = T(0); N(3, 3) = sq;
    Cmatrix<T> r(4, 1);
    r(0, 0) = static_cast<T>(s[3]);
    r(1, 0) = static_cast<T>(s[4]);
    r(2, 0) = static_cast<T>(s[5]);
    r(3, 0) = static_cast<T>(s[6]);
    const Cmatrix<T> x = luSolve(N, r);

    // Back to the original origins: x' - x'0 = tx' + a (x - x0) - b (y - y0).
    const double x0 = a[2], y0 = a[6], xd0 = l[0], yd0 = l[1];
    const T ca = x(2, 0), cb = x(3, 0);
    const double da = ca, db = cb;
    const double sol[4] = {static_cast<double>(x(0, 0)) + xd0 - da * x0 + db * y0,
                           static_cast<double>(x(1, 0)) + yd0 - db * x0 - da * y0, da, db};
    setColumn(m_solution, 4, sol);

    const T scale = std::sqrt(ca * ca + cb * cb);
    this->m_prm.setRotation(angleOf(cb, ca));
    this->m_prm.setTranslation(m_solution(0, 0), m_solution(1, 0));
    this->m_prm.setScale(scale, scale);
    return this->m_prm;
}

// ---------------------------------------------------------------------------
// Ctrans2_Affine
// ---------------------------------------------------------------------------

template <class T>
Ctrans2_Affine<T>::Ctrans2_Affine()
    : Ctrans2_Basic<T>(), m_Ax(0, 3), m_Ay(0, 3), m_solX(), m_solY(), m_obsX(), m_obsY() {}

template <class T>
Ctrans2_Affine<T>::Ctrans2_Affine(Ctrans2_Affine const&) = default;
template <class T>
Ctrans2_Affine<T>& Ctrans2_Affine<T>::operator=(Ctrans2_Affine const&) = default;
template <class T>
Ctrans2_Affine<T>::~Ctrans2_Affine() = default;

template <class T>
void Ctrans2_Affine<T>::setSource(std::vector<Cpoint2<T>> const& source) {
    const unsigned n = checkedCount(source.size(), 0xFFFFFFFFu);
    if (m_Ax.m() != n || m_Ax.n() != 3) m_Ax.resize(n, 3);
    if (m_Ay.m() != n || m_Ay.n() != 3) m_Ay.resize(n, 3);
    T* ax = m_Ax.getBase();
    T* ay = m_Ay.getBase();
    const Cpoint2<T>* p = source.data();
    for (unsigned i = 0; i < n; ++i, ax += 3, ay += 3) {
        const T x = p[i].x, y = p[i].y;
        ax[0] = T(1);
        ax[1] = x;
        ax[2] = -y;
        ay[0] = T(1);
        ay[1] = y;
        ay[2] = x;
    }
    this->m_nSource = n;
    this->m_sourceSet = true;
}

template <class T>
void Ctrans2_Affine<T>::setDest(std::vector<Cpoint2<T>> const& dest) {
    const unsigned n = checkedCount(dest.size(), 0xFFFFFFFFu);
    m_obsX.resize(n);
    m_obsY.resize(n);
    T* lx = m_obsX.data();
    T* ly = m_obsY.data();
    const Cpoint2<T>* p = dest.data();
    for (unsigned i = 0; i < n; ++i) {
        lx[i] = p[i].x;
        ly[i] = p[i].y;
    }
    this->m_nDest = n;
    this->m_destSet = true;
}

template <class T>
void Ctrans2_Affine<T>::setAll(std::vector<Cpoint2<T>> const& source, std::vector<Cpoint2<T>> const& dest) {
    this->setSource(source);
    this->setDest(dest);
}

template <class T>
CtransPrm2<T> Ctrans2_Affine<T>::transform() {
    CtransPrm2<T> result;
    if (this->m_nSource != this->m_nDest) throw typename Ctrans2_Basic<T>::xArgumentMismatch();
    const std::size_t n = this->m_nSource;
    const T* ax = m_Ax.getBase();
    const T* lx = m_obsX.data();
    const T* ly = m_obsY.data();
    auto load = [ax, lx, ly](std::size_t i, double& x, double& y, double& xd, double& yd) {
        x = static_cast<double>(ax[3 * i + 1]);
        y = -static_cast<double>(ax[3 * i + 2]);
        xd = static_cast<double>(lx[i]);
        yd = static_cast<double>(ly[i]);
    };
    // Su, Sv, Suu, Svv, Suv, Su', Suu', Svu', Sv', Svv', Suv'.
    const Sums<double, 11> s = pairSums<11>(n, load, [](auto* acc, auto u, auto v, auto ud, auto vd) {
        acc[0] += u;
        acc[1] += v;
        acc[2] += u * u;
        acc[3] += v * v;
        acc[4] += u * v;
        acc[5] += ud;
        acc[6] += u * ud;
        acc[7] += v * ud;
        acc[8] += vd;
        acc[9] += v * vd;
        acc[10] += u * vd;
    });
    if (!allFinite(s)) {
        const double nan[3] = {quietNaN<double>(), quietNaN<double>(), quietNaN<double>()};
        setColumn(m_solX, 3, nan);
        setColumn(m_solY, 3, nan);
        setNaNResult(result);
        this->m_prm = result;
        return result;
    }
    if (n > 0) {
        // Points on one line (also a single point): the centred moment matrix
        // is (nearly) singular.
        const double dn = static_cast<double>(n);
        const double cuu = s[2] - s[0] * s[0] / dn, cvv = s[3] - s[1] * s[1] / dn, cuv = s[4] - s[0] * s[1] / dn;
        const double tau = std::is_same<T, float>::value ? 0x1p-20 : 0x1p-36;
        if (cuu * cvv - cuv * cuv <= tau * cuu * cvv) throw CthrowMath(CthrowMath::ERR_SOLVE_MATRIXSINGULAR, "");
    }
    const T cnt = static_cast<T>(n);
    const T su = static_cast<T>(s[0]), sv = static_cast<T>(s[1]), suu = static_cast<T>(s[2]),
            svv = static_cast<T>(s[3]), suv = static_cast<T>(s[4]);
    // x equations, rows (1, u, -v) for (a0', a1, a2).
    Cmatrix<T> Nx(3, 3);
    Nx(0, 0) = cnt; Nx(0, 1) = su;   Nx(0, 2) = -sv;
    Nx(1, 0) = su;  Nx(1, 1) = suu;  Nx(1, 2) = -suv;
    Nx(2, 0) = -sv; Nx(2, 1) = -suv; Nx(2, 2) = svv;
    Cmatrix<T> rx(3, 1);
    rx(0, 0) = static_cast<T>(s[5]);
    rx(1, 0) = static_cast<T>(s[6]);
    rx(2, 0) = static_cast<T>(-s[7]);
    // y equations, rows (1, v, u) for (b0', b1, b2).
    Cmatrix<T> Ny(3, 3);
    Ny(0, 0) = cnt; Ny(0, 1) = sv;  Ny(0, 2) = su;
    Ny(1, 0) = sv;  Ny(1, 1) = svv; Ny(1, 2) = suv;
    Ny(2, 0) = su;  Ny(2, 1) = suv; Ny(2, 2) = suu;
    Cmatrix<T> ry(3, 1);
    ry(0, 0) = static_cast<T>(s[8]);
    ry(1, 0) = static_cast<T>(s[9]);
    ry(2, 0) = static_cast<T>(s[10]);
    const Cmatrix<T> xs = luSolve(Nx, rx);
    const Cmatrix<T> ys = luSolve(Ny, ry);

    // Back to the original origins.
    const double x0 = ax[1], y0 = -static_cast<double>(ax[2]), xd0 = lx[0], yd0 = ly[0];
    const T a1 = xs(1, 0), a2 = xs(2, 0), b1 = ys(1, 0), b2 = ys(2, 0);
    const double solX[3] = {static_cast<double>(xs(0, 0)) + xd0 - double(a1) * x0 + double(a2) * y0, a1, a2};
    const double solY[3] = {static_cast<double>(ys(0, 0)) + yd0 - double(b1) * y0 - double(b2) * x0, b1, b2};
    setColumn(m_solX, 3, solX);
    setColumn(m_solY, 3, solY);

    result.setRotation(angleOf(a2, a1), angleOf(b2, b1));
    result.setTranslation(m_solX(0, 0), m_solY(0, 0));
    result.setScale(std::sqrt(a1 * a1 + a2 * a2), std::sqrt(b1 * b1 + b2 * b2));
    this->m_prm = result;
    return result;
}

template class Ctrans2_Helmert<float>;
template class Ctrans2_Helmert<double>;
template class Ctrans2_Affine<float>;
template class Ctrans2_Affine<double>;

}  // namespace math
