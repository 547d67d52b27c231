// Fits from mergeable moment sums: the overloads of approximate<T> that take a
// CmomentSums2<T> or CmomentSums3<T> instead of the points.
//
// Every fit first moves the sums to the centroid (an exact polynomial shift of
// the stored sums), then solves the same model as the fit over points, in
// double for float as well.
#include <math/approximate.h>
#include <math/matrix.h>
#include <math/matrix_calc.h>
#include <math/moments.h>
#include <math/solver.h>

#include <cmath>

namespace math {

namespace {

template <class T>
void nanCircle(Ccircle2<T>& c) {
    const T nan = quietNaN<T>();
    c = Ccircle2<T>(Cpoint2<T>(nan, nan), nan);
}
template <class T>
void nanSphere(Csphere3<T>& s) {
    const T nan = quietNaN<T>();
    s = Csphere3<T>(Cpoint3<T>(nan, nan, nan), nan);
}

// Solves the k x k algebraic system M a = r (k = 3 circle, 4 sphere) with the
// singular-value solver; false when it is rank-deficient or not finite.
bool solveAlgebraic(Cmatrix<double>& M, std::vector<double> const& r, std::vector<double>& a) {
    for (unsigned i = 0; i < M.m(); ++i)
        for (unsigned j = 0; j < M.n(); ++j)
            if (!std::isfinite(M(i, j))) return false;
    Csolver_svd<double> svd(M);
    const Cmatrix<double> x = svd.solve(r);
    if (svd.getRank() < M.n()) return false;
    a.resize(M.n());
    for (unsigned k = 0; k < M.n(); ++k) {
        a[k] = x(k, 0);
        if (!std::isfinite(a[k])) return false;
    }
    return true;
}

// Eigen decomposition of a symmetric 3x3 scatter; row k of V is the
// eigenvector of the k-th eigenvalue by decreasing |lambda|.
void eigen3(double const* C, Cmatrix<double>& V) {
    Cmatrix<double> A(3, 3);
    for (unsigned i = 0; i < 3; ++i)
        for (unsigned j = 0; j < 3; ++j) A(i, j) = C[i * 3 + j];
    V = Cmatrix<double>(3, 3, 0.0);
    CmatrixCalc<double>::getEigenvalue(A, V);
}

}  // namespace

template <class T>
void approximate<T>::fitLineGeom(CmomentSums2<T> const& sums, Cline2<T>& line) {
    const T nan = quietNaN<T>();
    if (sums.count() < 2 || !sums.isFinite()) {
        line = Cline2<T>(Cpoint2<T>(nan, nan), Cdirec2<T>(nan, nan, true));
        return;
    }
    double C[4];
    sums.centredScatter(C);
    const Cpoint2<double> c = sums.centroid();
    // Principal axis of the scatter: angle 1/2 atan2(2 Cxy, Cxx - Cyy).
    const double phi = 0.5 * std::atan2(2.0 * C[1], C[0] - C[3]);
    line = Cline2<T>(Cpoint2<T>(static_cast<T>(c.x), static_cast<T>(c.y)),
                     Cdirec2<T>(static_cast<T>(std::cos(phi)), static_cast<T>(std::sin(phi)), true));
}

template <class T>
void approximate<T>::fitCircleLsq(CmomentSums2<T> const& sums, Ccircle2<T>& circle) {
    if (sums.count() < 4 || !sums.isFinite()) {
        nanCircle(circle);
        return;
    }
    const Cpoint2<double> m = sums.centroid();
    const CmomentSums2<T> s = sums.shiftedTo(m);
    // A*(u^2 + v^2) + B*u + C*v = 1 on centred coordinates.
    const double Su = s.sum(0), Sv = s.sum(1), Suu = s.sum(2), Suv = s.sum(3), Svv = s.sum(4);
    const double Wu = s.sum(5), Wv = s.sum(6), W = s.sum(7);
    Cmatrix<double> M(3, 3);
    M(0, 0) = W;
    M(0, 1) = M(1, 0) = Wu;
    M(0, 2) = M(2, 0) = Wv;
    M(1, 1) = Suu;
    M(1, 2) = M(2, 1) = Suv;
    M(2, 2) = Svv;
    std::vector<double> a;
    if (!solveAlgebraic(M, {Suu + Svv, Su, Sv}, a)) {
        nanCircle(circle);
        return;
    }
    const double A = a[0], B = a[1], Cc = a[2];
    const double cx = m.x - 0.5 * B / A;
    const double cy = m.y - 0.5 * Cc / A;
    const double r = std::fabs(0.5 * std::sqrt(B * B + Cc * Cc + 4.0 * A) / A);
    if (!(std::isfinite(cx) && std::isfinite(cy) && std::isfinite(r))) {
        nanCircle(circle);
        return;
    }
    circle = Ccircle2<T>(Cpoint2<T>(static_cast<T>(cx), static_cast<T>(cy)), static_cast<T>(r));
}

template <class T>
void approximate<T>::fitLineGeom(CmomentSums3<T> const& sums, Cline3<T>& line) {
    const T nan = quietNaN<T>();
    if (sums.count() < 2 || !sums.isFinite()) {
        line = Cline3<T>(Cpoint3<T>(nan, nan, nan), Cdirec3<T>(nan, nan, nan, true));
        return;
    }
    double C[9];
    sums.centredScatter(C);
    Cmatrix<double> V;
    eigen3(C, V);
    const Cpoint3<double> c = sums.centroid();
    line = Cline3<T>(Cpoint3<T>(static_cast<T>(c.x), static_cast<T>(c.y), static_cast<T>(c.z)),
                     Cdirec3<T>(Cpoint3<T>(static_cast<T>(V(0, 0)), static_cast<T>(V(0, 1)),
                                           static_cast<T>(V(0, 2)))));
}

template <class T>
void approximate<T>::fitPlaneGeom(CmomentSums3<T> const& sums, Cplane3<T>& plane) {
    if (sums.count() < 3 || !sums.isFinite()) {
        plane = Cplane3<T>();
        plane.set(quietNaN<T>(), quietNaN<T>(), quietNaN<T>(), quietNaN<T>());
        return;
    }
    double C[9];
    sums.centredScatter(C);
    Cmatrix<double> V;
    eigen3(C, V);
    const Cpoint3<double> c = sums.centroid();
    // Normal and d in double, then stored: the plane through the centroid.
    double nx = V(2, 0), ny = V(2, 1), nz = V(2, 2);
    const double len = std::sqrt(nx * nx + ny * ny + nz * nz);
    nx /= len;
    ny /= len;
    nz /= len;
    const double d = -(nx * c.x + ny * c.y + nz * c.z);
    plane.set(static_cast<T>(nx), static_cast<T>(ny), static_cast<T>(nz), static_cast<T>(d));
}

template <class T>
void approximate<T>::fitSphereLsq(CmomentSums3<T> const& sums, Csphere3<T>& sphere) {
    if (sums.count() < 4 || !sums.isFinite()) {
        nanSphere(sphere);
        return;
    }
    const Cpoint3<double> m = sums.centroid();
    const CmomentSums3<T> s = sums.shiftedTo(m);
    // A*|u|^2 + B*u + C*v + D*t = 1 on centred coordinates.
    Cmatrix<double> M(4, 4);
    M(0, 0) = s.sum(12);
    for (unsigned i = 0; i < 3; ++i) M(0, i + 1) = M(i + 1, 0) = s.sum(9 + i);
    M(1, 1) = s.sum(3);
    M(1, 2) = M(2, 1) = s.sum(4);
    M(1, 3) = M(3, 1) = s.sum(5);
    M(2, 2) = s.sum(6);
    M(2, 3) = M(3, 2) = s.sum(7);
    M(3, 3) = s.sum(8);
    std::vector<double> a;
    if (!solveAlgebraic(M, {s.sum(3) + s.sum(6) + s.sum(8), s.sum(0), s.sum(1), s.sum(2)}, a)) {
        nanSphere(sphere);
        return;
    }
    const double A = a[0];
    const double cx = m.x - 0.5 * a[1] / A, cy = m.y - 0.5 * a[2] / A, cz = m.z - 0.5 * a[3] / A;
    const double r = std::fabs(0.5 * std::sqrt(a[1] * a[1] + a[2] * a[2] + a[3] * a[3] + 4.0 * A) / A);
    if (!(std::isfinite(cx) && std::isfinite(cy) && std::isfinite(cz) && std::isfinite(r))) {
        nanSphere(sphere);
        return;
    }
    sphere = Csphere3<T>(Cpoint3<T>(static_cast<T>(cx), static_cast<T>(cy), static_cast<T>(cz)),
                         static_cast<T>(r));
}

#define METROMATH_FIT_MOMENTS_INSTANTIATE(T)                                                 \
    template void approximate<T>::fitLineGeom(CmomentSums2<T> const&, Cline2<T>&);          \
    template void approximate<T>::fitCircleLsq(CmomentSums2<T> const&, Ccircle2<T>&);       \
    template void approximate<T>::fitLineGeom(CmomentSums3<T> const&, Cline3<T>&);          \
    template void approximate<T>::fitPlaneGeom(CmomentSums3<T> const&, Cplane3<T>&);        \
    template void approximate<T>::fitSphereLsq(CmomentSums3<T> const&, Csphere3<T>&);

METROMATH_FIT_MOMENTS_INSTANTIATE(float)
METROMATH_FIT_MOMENTS_INSTANTIATE(double)

#undef METROMATH_FIT_MOMENTS_INSTANTIATE

}  // namespace math
