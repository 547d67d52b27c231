// Rotation angles, rotation/scale split, symmetric eigen decomposition,
// matrix difference.
#include <math/matrix_calc.h>

#include <math/errors.h>
#include <math/point.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

namespace math {

namespace {

// sqrt(a² + b²) without destructive overflow or underflow.
template <class T>
inline T pythag(T a, T b) {
    const T absa = std::fabs(a);
    const T absb = std::fabs(b);
    if (absa > absb) {
        const T q = absb / absa;
        return absa * std::sqrt(T(1) + q * q);
    }
    if (absb == T(0)) return T(0);
    const T q = absa / absb;
    return absb * std::sqrt(T(1) + q * q);
}

// The id of a shape error of the RotToArc* functions: ERR_MATRIX_DIMS shifted
// left by the column count, then by the row count, on unsigned 32-bit values
// (a shift of 32 or more leaves 0), then converted to int.
int shiftedDimsId(unsigned m, unsigned n) {
    std::uint32_t id = static_cast<std::uint32_t>(CthrowMath::ERR_MATRIX_DIMS);
    id = n >= 32u ? 0u : id << n;
    id = m >= 32u ? 0u : id << m;
    return static_cast<int>(id);
}

// A rotation matrix argument must be square with 3 or 4 rows.
template <class T>
void checkRotShape(Cmatrix<T> const& R) {
    const unsigned m = R.m();
    const unsigned n = R.n();
    if (m != n || (m != 3 && m != 4)) throw CthrowMath(shiftedDimsId(m, n), "");
}

// Runs body; an exception of the library leaving it gets the location (file,
// line) attached and is rethrown as the same object.
template <class F>
void atLocation(char const* file, int line, F const& body) {
    try {
        body();
    } catch (CthrowBase& e) {
        e.setExInfo(file, line);
        throw;
    }
}

}  // namespace

// ---------------------------------------------------------------------------
// Angles to rotation matrices
// ---------------------------------------------------------------------------
// The angles are read before `out` is resized, so they may live in `out`.

template <class T>
void CmatrixCalc<T>::ArcToRotCAP(T const& a1, T const& a2, T const& a3, Cmatrix<T>& out) {
    const T c1 = std::cos(a1), s1 = std::sin(a1);
    const T c2 = std::cos(a2), s2 = std::sin(a2);
    const T c3 = std::cos(a3), s3 = std::sin(a3);
    out.resize(3, 3);
    out(0, 0) = c2 * c3;
    out(0, 1) = s1 * s2 * c3 + c1 * s3;
    out(0, 2) = s1 * s3 - c1 * s2 * c3;
    out(1, 0) = -c2 * s3;
    out(1, 1) = c1 * c3 - s1 * s2 * s3;
    out(1, 2) = s1 * c3 + c1 * s2 * s3;
    out(2, 0) = s2;
    out(2, 1) = -s1 * c2;
    out(2, 2) = c1 * c2;
}

template <class T>
void CmatrixCalc<T>::ArcToRotXYZ(T const& a1, T const& a2, T const& a3, Cmatrix<T>& out) {
    const T c1 = std::cos(a1), s1 = std::sin(a1);
    const T c2 = std::cos(a2), s2 = std::sin(a2);
    const T c3 = std::cos(a3), s3 = std::sin(a3);
    out.resize(3, 3);
    out(0, 0) = c2 * c3;
    out(0, 1) = -c2 * s3;
    out(0, 2) = s2;
    out(1, 0) = c1 * s3 + s1 * s2 * c3;
    out(1, 1) = c1 * c3 - s1 * s2 * s3;
    out(1, 2) = -s1 * c2;
    out(2, 0) = s1 * s3 - c1 * s2 * c3;
    out(2, 1) = s1 * c3 + c1 * s2 * s3;
    out(2, 2) = c1 * c2;
}

template <class T>
void CmatrixCalc<T>::ArcToRotZYX(T const& a1, T const& a2, T const& a3, Cmatrix<T>& out) {
    const T c1 = std::cos(a1), s1 = std::sin(a1);
    const T c2 = std::cos(a2), s2 = std::sin(a2);
    const T c3 = std::cos(a3), s3 = std::sin(a3);
    out.resize(3, 3);
    out(0, 0) = c3 * c2;
    out(0, 1) = s1 * s2 * c3 - c1 * s3;
    out(0, 2) = s1 * s3 + c1 * s2 * c3;
    out(1, 0) = s3 * c2;
    out(1, 1) = c1 * c3 + s1 * s2 * s3;
    out(1, 2) = c1 * s2 * s3 - s1 * c3;
    out(2, 0) = -s2;
    out(2, 1) = s1 * c2;
    out(2, 2) = c1 * c2;
}

template <class T>
void CmatrixCalc<T>::ArcToRotZXZ(T const& a1, T const& a2, T const& a3, Cmatrix<T>& out) {
    const T c1 = std::cos(a1), s1 = std::sin(a1);
    const T c2 = std::cos(a2), s2 = std::sin(a2);
    const T c3 = std::cos(a3), s3 = std::sin(a3);
    out.resize(3, 3);
    out(0, 0) = c1 * c3 - s1 * c2 * s3;
    out(0, 1) = -c1 * s3 - s1 * c2 * c3;
    out(0, 2) = s1 * s2;
    out(1, 0) = s1 * c3 + c1 * c2 * s3;
    out(1, 1) = c1 * c2 * c3 - s1 * s3;
    out(1, 2) = -c1 * s2;
    out(2, 0) = s2 * s3;
    out(2, 1) = s2 * c3;
    out(2, 2) = c2;
}

// ---------------------------------------------------------------------------
// Rotation matrices to angles
// ---------------------------------------------------------------------------
// Each function names its location on the way out (atLocation): an exception
// gets rotToArcFile and the function's line constant attached and is rethrown.

template <class T>
void CmatrixCalc<T>::RotToArcCAP(Cmatrix<T> const& R, T& a1, T& a2, T& a3) {
    atLocation(rotToArcFile, lineRotToArcCAP, [&] {
        checkRotShape(R);
        const T r00 = R(0, 0), r01 = R(0, 1), r02 = R(0, 2);
        const T r10 = R(1, 0), r11 = R(1, 1), r12 = R(1, 2);
        const T r20 = R(2, 0);
        const T b2 = std::asin(r20);
        const T b3 = std::atan2(-r10, r00);
        const T c3 = std::cos(b3), s3 = std::sin(b3);
        a1 = std::atan2(r12 * c3 + r02 * s3, r01 * s3 + r11 * c3);
        a2 = b2;
        a3 = b3;
    });
}

template <class T>
void CmatrixCalc<T>::RotToArcCAP_transp(Cmatrix<T> const& R, T& a1, T& a2, T& a3) {
    atLocation(rotToArcFile, lineRotToArcCAP_transp, [&] {
        checkRotShape(R);
        const T r00 = R(0, 0), r01 = R(0, 1), r02 = R(0, 2);
        const T r10 = R(1, 0), r11 = R(1, 1);
        const T r20 = R(2, 0), r21 = R(2, 1);
        const T b2 = std::asin(r02);
        const T b3 = std::atan2(-r01, r00);
        const T c3 = std::cos(b3), s3 = std::sin(b3);
        a1 = std::atan2(r21 * c3 + r20 * s3, r10 * s3 + r11 * c3);
        a2 = b2;
        a3 = b3;
    });
}

template <class T>
void CmatrixCalc<T>::RotToArcXYZ(Cmatrix<T> const& R, T& a1, T& a2, T& a3) {
    atLocation(rotToArcFile, lineRotToArcXYZ, [&] {
        checkRotShape(R);
        const T r00 = R(0, 0), r01 = R(0, 1), r02 = R(0, 2);
        const T r10 = R(1, 0), r11 = R(1, 1);
        const T r20 = R(2, 0), r21 = R(2, 1);
        const T b2 = std::asin(r02);
        const T b3 = std::atan2(-r01, r00);
        const T c3 = std::cos(b3), s3 = std::sin(b3);
        // R20 pairs with c3 and R21 with s3: the library's XYZ formula.
        a1 = std::atan2(r20 * c3 + r21 * s3, r10 * s3 + r11 * c3);
        a2 = b2;
        a3 = b3;
    });
}

template <class T>
void CmatrixCalc<T>::RotToArcZXZ(Cmatrix<T> const& R, T& a1, T& a2, T& a3) {
    atLocation(rotToArcFile, lineRotToArcZXZ, [&] {
        checkRotShape(R);
        const T r00 = R(0, 0), r01 = R(0, 1);
        const T r11 = R(1, 1);
        const T r20 = R(2, 0), r21 = R(2, 1), r22 = R(2, 2);
        const T b2 = std::acos(r22);
        const T b3 = std::atan2(r20, r21);
        const T c3 = std::cos(b3), s3 = std::sin(b3);
        // R11 in both terms of the first argument: the library's ZXZ formula.
        a1 = std::atan2(r11 * c3 - r11 * s3, r00 * c3 - r01 * s3);
        a2 = b2;
        a3 = b3;
    });
}

// ---------------------------------------------------------------------------
// Rotation and scale
// ---------------------------------------------------------------------------

template <class T>
void CmatrixCalc<T>::getRotScale(Cmatrix<T> const& M, Cmatrix<T>& R, Cmatrix<T>& S) {
    const unsigned m = M.m();
    if (M.n() != m || (m != 3 && m != 4)) return;
    // Built aside, so M may be the same object as R or S.
    Cmatrix<T> s(3, 3, T(0));
    Cmatrix<T> r(3, 3);
    for (unsigned j = 0; j < 3; ++j) {
        const T a = M(0, j), b = M(1, j), c = M(2, j);
        s(j, j) = std::sqrt(a * a + b * b + c * c);
    }
    for (unsigned i = 0; i < 3; ++i)
        for (unsigned j = 0; j < 3; ++j) r(i, j) = M(i, j) / s(j, j);
    R.swap(r);
    S.swap(s);
}

// ---------------------------------------------------------------------------
// Eigenvalues
// ---------------------------------------------------------------------------

template <class T>
void CmatrixCalc<T>::QR_TriDiag(Cmatrix<T>& A, Cmatrix<T>& V) {
    if (A.m() != A.n()) return;
    const unsigned n = A.n();
    V.resize(n, n);
    V.setIdentity();
    if (n < 3) return;

    // Reflections are judged against the matrix's own scale: a column whose
    // squared length does not exceed 2^-52·max|A|² is negligible.  The
    // lengths are formed on values scaled by a power of two (exact), so that
    // neither squares nor the comparison overflow or underflow.
    T maxAbs = T(0);
    bool finite = true;
    for (T x : A) {
        if (!std::isfinite(x)) finite = false;
        maxAbs = std::max(maxAbs, std::fabs(x));
    }
    int expo = 0;
    if (finite && maxAbs > T(0)) std::frexp(maxAbs, &expo);
    const T maxScaled = std::ldexp(maxAbs, -expo);
    const T negligible = T(0x1p-52) * (maxScaled * maxScaled);

    std::vector<T> u(n), q(n);
    for (unsigned k = 0; k + 2 < n; ++k) {
        // x = column k below the diagonal = row k right of the diagonal.
        T* ak = A.getRow(k);
        const unsigned off = k + 1;
        const unsigned len = n - off;
        T s = T(0);
        for (unsigned i = 0; i < len; ++i) {
            const T v = std::ldexp(ak[off + i], -expo);
            s += v * v;
        }
        if (s == T(0) || s <= negligible) {
            // Nothing (or nothing measurable) to annihilate: drop the entries
            // below the subdiagonal so that A ends exactly tridiagonal.
            for (unsigned i = off + 1; i < n; ++i) ak[i] = A(i, k) = T(0);
            continue;
        }
        // Householder vector v = x − α·e1 with α = −sign(x0)·|x|, normalised
        // to u = v/|v|; |v|² = 2·|x|·(|x| + |x0|).
        const T normx = std::ldexp(std::sqrt(s), expo);
        const T x0 = ak[off];
        const T alpha = x0 > T(0) ? -normx : normx;
        const T vlen = std::sqrt(T(2) * normx) * std::sqrt(normx + std::fabs(x0));
        u[0] = (x0 - alpha) / vlen;
        for (unsigned i = 1; i < len; ++i) u[i] = ak[off + i] / vlen;

        // Trailing block S ← H·S·H with H = I − 2·u·uᵀ:
        // p = S·u, K = uᵀ·p, q = p − K·u, S ← S − 2·(u·qᵀ + q·uᵀ).
        T K = T(0);
        for (unsigned i = 0; i < len; ++i) {
            const T* si = A.getRow(off + i) + off;
            T p = T(0);
            for (unsigned j = 0; j < len; ++j) p += si[j] * u[j];
            q[i] = p;
            K += u[i] * p;
        }
        for (unsigned i = 0; i < len; ++i) q[i] -= K * u[i];
        for (unsigned i = 0; i < len; ++i) {
            T* si = A.getRow(off + i) + off;
            const T ui = u[i];
            const T qi = q[i];
            for (unsigned j = 0; j < len; ++j) si[j] -= T(2) * (ui * q[j] + qi * u[j]);
        }
        // Row and column k: x becomes α·e1.
        ak[off] = A(off, k) = alpha;
        for (unsigned i = off + 1; i < n; ++i) ak[i] = A(i, k) = T(0);

        // V ← H·V (V = Qᵀ): w = uᵀ·V[off..], V[off + i] −= 2·u_i·w.
        std::fill(q.begin(), q.end(), T(0));
        for (unsigned i = 0; i < len; ++i) {
            const T* vi = V.getRow(off + i);
            const T ui = u[i];
            for (unsigned j = 0; j < n; ++j) q[j] += ui * vi[j];
        }
        for (unsigned i = 0; i < len; ++i) {
            T* vi = V.getRow(off + i);
            const T f = T(2) * u[i];
            for (unsigned j = 0; j < n; ++j) vi[j] -= f * q[j];
        }
    }
}

template <class T>
void CmatrixCalc<T>::DiagTri(Cmatrix<T>& A, Cmatrix<T>& V) {
    if (A.m() != A.n()) throw 0;
    const unsigned n = A.n();
    if (V.m() != n || V.n() != n) {
        V.resize(n, n);
        V.setIdentity();
    }
    if (n == 0) return;
    std::vector<T> d(n), e(n);
    for (unsigned i = 0; i < n; ++i) {
        d[i] = A(i, i);
        e[i] = i + 1 < n ? A(i, i + 1) : T(0);
    }

    // Implicit QL with Wilkinson shift.  e[i] couples d[i] and d[i+1]; the
    // sweep counter runs over all eigenvalues together.
    const unsigned maxSweeps = 3 * n + 30;
    unsigned sweeps = 0;
    for (unsigned l = 0; l < n; ++l) {
        for (;;) {
            unsigned m = l;
            for (; m + 1 < n; ++m) {
                if (std::fabs(e[m]) + std::fabs(d[m]) + std::fabs(d[m + 1]) == std::fabs(d[m]) + std::fabs(d[m + 1]))
                    break;
            }
            if (m == l) break;
            if (sweeps == maxSweeps) throw 0;
            ++sweeps;

            // Shift: the eigenvalue of the leading 2×2 block closer to d[l].
            T g = (d[l + 1] - d[l]) / (T(2) * e[l]);
            T r = pythag(g, T(1));
            g = d[m] - d[l] + e[l] / (g + (g >= T(0) ? std::fabs(r) : -std::fabs(r)));
            T s = T(1), c = T(1), p = T(0);
            bool endedEarly = false;
            for (unsigned i = m; i-- > l;) {
                T f = s * e[i];
                const T b = c * e[i];
                r = pythag(f, g);
                e[i + 1] = r;
                if (r == T(0)) {  // underflow: the block splits here
                    d[i + 1] -= p;
                    e[m] = T(0);
                    endedEarly = true;
                    break;
                }
                s = f / r;
                c = g / r;
                g = d[i + 1] - p;
                r = (d[i] - g) * s + T(2) * c * b;
                p = s * r;
                d[i + 1] = g + p;
                g = c * r - b;
                // Rows i and i+1 of V: the eigenvectors are rows.
                T* vi = V.getRow(i);
                T* vn = V.getRow(i + 1);
                for (unsigned k = 0; k < n; ++k) {
                    f = vn[k];
                    vn[k] = c * f + s * vi[k];
                    vi[k] = c * vi[k] - s * f;
                }
            }
            if (endedEarly) continue;
            d[l] -= p;
            e[l] = g;
            e[m] = T(0);
        }
    }
    std::fill(A.begin(), A.end(), T(0));
    for (unsigned i = 0; i < n; ++i) A(i, i) = d[i];
}

template <class T>
void CmatrixCalc<T>::sortDiagonal(Cmatrix<T> const& A, Cmatrix<T>& P) {
    if (A.m() != A.n()) return;
    const unsigned n = A.n();
    std::vector<T> val(n);
    std::vector<unsigned> idx(n);
    for (unsigned i = 0; i < n; ++i) {
        val[i] = A(i, i);
        idx[i] = i;
    }
    P.resize(n, n);
    // Repeatedly take out the largest magnitude; only a strictly larger one
    // replaces the current choice, so on ties the smaller index comes first.
    for (unsigned k = 0; k < n; ++k) {
        std::size_t best = 0;
        for (std::size_t j = 1; j < val.size(); ++j)
            if (std::fabs(val[j]) > std::fabs(val[best])) best = j;
        P(k, idx[best]) = T(1);
        val.erase(val.begin() + static_cast<std::ptrdiff_t>(best));
        idx.erase(idx.begin() + static_cast<std::ptrdiff_t>(best));
    }
}

template <class T>
void CmatrixCalc<T>::getEigenvalue(Cmatrix<T>& A, Cmatrix<T>& V) {
    if (A.m() != A.n()) return;
    const unsigned n = A.n();
    QR_TriDiag(A, V);
    DiagTri(A, V);
    Cmatrix<T> P;
    sortDiagonal(A, P);
    // V ← P·V and A ← P·A·Pᵀ, done as the permutation they are: row k of the
    // new V is row i of the old one and A(k, k) the old A(i, i), where
    // P(k, i) = 1.
    Cmatrix<T> Vs(n, n);
    std::vector<T> diag(n);
    for (unsigned k = 0; k < n; ++k) {
        const T* pk = P.getRow(k);
        unsigned i = 0;
        while (pk[i] != T(1)) ++i;
        std::copy(V.getRow(i), V.getRow(i) + n, Vs.getRow(k));
        diag[k] = A(i, i);
    }
    for (unsigned k = 0; k < n; ++k) A(k, k) = diag[k];
    V.swap(Vs);
}

template <class T>
void CmatrixCalc<T>::getEigenvalue2x2sym(Cmatrix<T>& A, Cmatrix<T>& V) {
    if (A.m() != 2 || A.n() != 2) return;
    if (!(std::fabs(A(0, 1) - A(1, 0)) < T(0x1p-52))) return;
    V.resize(2, 2);
    // The identity for an (almost) diagonal A is overwritten below in every
    // case; an exactly diagonal A therefore ends with NaN (b = 0 divides).
    if (std::fabs(A(0, 1)) < T(0x1p-52)) V.setIdentity();
    const T a = A(0, 0);
    const T b = A(0, 1);
    const T d = A(1, 1);
    const T lambda = (a + d) * T(0.5) + std::sqrt((a - d) * (a - d) * T(0.25) + b * b);
    const T t = -(a - lambda) / b;
    const T c = T(1) / std::sqrt(t * t + T(1));
    const T s = t * c;
    V(0, 0) = c;
    V(0, 1) = s;
    V(1, 0) = -s;
    V(1, 1) = c;
    A(0, 0) = c * c * a + T(2) * c * s * b + s * s * d;
    A(0, 1) = (c * c - s * s) * b + (d - a) * s * c;
    A(1, 0) = A(0, 1);
    A(1, 1) = s * s * a - T(2) * c * s * b + c * c * d;
}

template <class T>
T CmatrixCalc<T>::dif(Cmatrix<T> const& A, Cmatrix<T> const& B) {
    if (A.m() != B.m() || A.n() != B.n()) return quietNaN<T>();
    T sum = T(0);
    const T* a = A.begin();
    const T* b = B.begin();
    const unsigned size = A.size();
    for (unsigned k = 0; k < size; ++k) {
        const T v = a[k] - b[k];
        sum += v * v;
    }
    return sum;
}

template class CmatrixCalc<float>;
template class CmatrixCalc<double>;

}  // namespace math
