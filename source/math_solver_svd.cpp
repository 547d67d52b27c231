// Singular value decomposition solver: one-sided (Hestenes) Jacobi.
//
// For a tall matrix M (p×r, p ≥ r) the method applies plane rotations J from
// the right until all columns of M·J are mutually orthogonal: M·J = U·W with
// W = diag(column lengths) and U the normalised columns, hence M = U·W·Jᵀ.
// A pair of columns (g_a, g_b) with α = |g_a|², β = |g_b|², γ = g_a·g_b is
// made orthogonal by the rotation with t = tan θ the smaller root of
// t² + 2ζt − 1 = 0, ζ = (β − α) / (2γ):
//   g_a' = c·g_a − s·g_b,   g_b' = s·g_a + c·g_b,   c = 1/√(1+t²), s = c·t.
// Sweeps over all pairs repeat until no pair has |γ| > tol·√α·√β.
//
// M is A itself when m ≥ n and Aᵀ when m < n (then A = J·W·Uᵀ).  The columns
// of M are stored as the rows of a row-major work matrix, so every dot
// product and rotation runs over contiguous memory.
#include <math/solver.h>

#include <math/errors.h>
#include <math/point.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

namespace math {

namespace {

// Largest number of sweeps.  Quadratic convergence needs well under ten for
// the sizes in use; the bound only protects against non-finite input.
constexpr int maxSweeps = 64;

// Euclidean length of x[0..p) without overflow or harmful underflow.
template <class T>
T rowNorm(const T* x, unsigned p) {
    T mx = T(0);
    for (unsigned i = 0; i < p; ++i) mx = std::max(mx, std::fabs(x[i]));
    if (!(mx > T(0))) {
        for (unsigned i = 0; i < p; ++i)
            if (x[i] != x[i]) return x[i];  // NaN propagates
        return mx;
    }
    if (!std::isfinite(mx)) return mx;
    // Scale by a power of two (exact, and finite even for a subnormal mx,
    // whose reciprocal would overflow).
    int e = 0;
    std::frexp(mx, &e);
    T s = T(0);
    for (unsigned i = 0; i < p; ++i) {
        const T v = std::ldexp(x[i], -e);
        s += v * v;
    }
    return std::ldexp(std::sqrt(s), e);
}

// α = x·x, β = y·y, γ = x·y over len elements, each summed in four
// interleaved partial sums (independent additions, combined pairwise).
template <class T>
inline void pairProducts(const T* x, const T* y, unsigned len, T& alpha, T& beta, T& gamma) {
    T a[4] = {T(0), T(0), T(0), T(0)};
    T b[4] = {T(0), T(0), T(0), T(0)};
    T g[4] = {T(0), T(0), T(0), T(0)};
    unsigned i = 0;
    for (; i + 4 <= len; i += 4) {
        for (unsigned q = 0; q < 4; ++q) {
            const T u = x[i + q];
            const T v = y[i + q];
            a[q] += u * u;
            b[q] += v * v;
            g[q] += u * v;
        }
    }
    for (unsigned q = 0; i < len; ++i, ++q) {
        const T u = x[i];
        const T v = y[i];
        a[q] += u * u;
        b[q] += v * v;
        g[q] += u * v;
    }
    alpha = (a[0] + a[1]) + (a[2] + a[3]);
    beta = (b[0] + b[1]) + (b[2] + b[3]);
    gamma = (g[0] + g[1]) + (g[2] + g[3]);
}

// Rotates the rows x and y of length len: x' = c·x − s·y, y' = s·x + c·y.
template <class T>
inline void rotateRows(T* x, T* y, unsigned len, T c, T s) {
    for (unsigned i = 0; i < len; ++i) {
        const T a = x[i];
        const T b = y[i];
        x[i] = c * a - s * b;
        y[i] = s * a + c * b;
    }
}

// Decomposes A = U·diag(w)·Vᵀ: w decreasing, Ut (r×m) and Vt (r×n) hold the
// columns of U and V as rows.
template <class T>
void jacobiSvd(Cmatrix<T> const& A, std::vector<T>& wOut, Cmatrix<T>& UtOut, Cmatrix<T>& VtOut) {
    const unsigned m = A.m();
    const unsigned n = A.n();
    const bool tall = m >= n;
    const unsigned r = tall ? n : m;  // number of singular values
    const unsigned p = tall ? m : n;  // length of the columns of M

    // Columns of M as rows of G.
    Cmatrix<T> G(r, p);
    if (tall && r != 0) {  // r = 0: no column to copy, however many rows
        for (unsigned i = 0; i < m; ++i) {
            const T* a = A.getRow(i);
            for (unsigned k = 0; k < n; ++k) G(k, i) = a[k];
        }
    } else {
        std::copy(A.begin(), A.end(), G.begin());
    }
    Cmatrix<T> J(r, r);
    J.setIdentity();

    // Scale by a power of two (exact) so that the largest magnitude lies in
    // [0.5, 1): the squared column lengths can neither overflow nor vanish
    // through the matrix's units.
    T maxAbs = T(0);
    bool finite = true;
    for (T x : G) {
        if (!std::isfinite(x)) finite = false;
        maxAbs = std::max(maxAbs, std::fabs(x));
    }
    int expo = 0;
    if (finite && maxAbs > T(0)) {
        std::frexp(maxAbs, &expo);
        for (T& x : G) x = std::ldexp(x, -expo);
    }

    // Sweeps.  The threshold allows for the rounding of a dot product of
    // length p, so that converged pairs are not rotated over and over.
    const T tol = tol::eps<T>() * std::sqrt(static_cast<T>(std::max(p, 1u)));
    // A column shorter than ε²·‖M‖_F is rounding noise of a column that is
    // zero in exact arithmetic (a rank-deficient matrix).  Rotating it against
    // the others only reproduces noise of its own size, sweep after sweep,
    // until it is subnormal: such a pair counts as converged.  (ε² rather
    // than ε keeps the relative accuracy of small but genuine singular values.)
    T frob2 = T(0);
    for (T x : G) frob2 += x * x;
    const T negligible = tol::eps<T>() * tol::eps<T>() * tol::eps<T>() * tol::eps<T>() * frob2;
    for (int sweep = 0; sweep < maxSweeps && r > 1; ++sweep) {
        bool rotated = false;
        for (unsigned a = 0; a + 1 < r; ++a) {
            T* ga = G.getRow(a);
            for (unsigned b = a + 1; b < r; ++b) {
                T* gb = G.getRow(b);
                T alpha, beta, gamma;
                pairProducts(ga, gb, p, alpha, beta, gamma);
                if (!(std::fabs(gamma) > tol * std::sqrt(alpha) * std::sqrt(beta))) continue;
                if (alpha <= negligible || beta <= negligible) continue;
                const T zeta = (beta - alpha) / (T(2) * gamma);
                const T az = std::fabs(zeta);
                // For huge ζ, t = 1/(2ζ) to working precision (and ζ² would overflow).
                const T t = az > T(1) / tol::eps<T>() ? T(0.5) / zeta
                                                       : (zeta >= T(0) ? T(1) : T(-1)) / (az + std::sqrt(T(1) + zeta * zeta));
                if (t == T(0) || !std::isfinite(t)) continue;
                const T c = T(1) / std::sqrt(T(1) + t * t);
                const T s = c * t;
                rotateRows(ga, gb, p, c, s);
                rotateRows(J.getRow(a), J.getRow(b), r, c, s);
                rotated = true;
            }
        }
        if (!rotated) break;
    }

    // Singular values = column lengths; order decreasingly (NaN last).
    std::vector<T> w(r);
    for (unsigned k = 0; k < r; ++k) w[k] = rowNorm(G.getRow(k), p);
    std::vector<unsigned> order(r);
    std::iota(order.begin(), order.end(), 0u);
    auto key = [](T x) { return x != x ? -std::numeric_limits<T>::infinity() : x; };
    std::stable_sort(order.begin(), order.end(), [&](unsigned i, unsigned j) { return key(w[i]) > key(w[j]); });

    Cmatrix<T> Ucols(r, p);  // rows: left singular vectors of M
    Cmatrix<T> Jcols(r, r);  // rows: right singular vectors of M
    wOut.resize(r);
    unsigned zeroFrom = r;
    for (unsigned k = 0; k < r; ++k) {
        const unsigned src = order[k];
        const T wk = w[src];
        wOut[k] = std::ldexp(wk, expo);
        std::copy(J.getRow(src), J.getRow(src) + r, Jcols.getRow(k));
        if (wk == T(0)) {
            if (zeroFrom == r) zeroFrom = k;
            continue;
        }
        const T* g = G.getRow(src);
        T* u = Ucols.getRow(k);
        const T inv = T(1) / wk;
        for (unsigned i = 0; i < p; ++i) u[i] = g[i] * inv;
    }

    // Exactly zero columns have no direction: complete U by the unit vector
    // least represented in the columns so far, orthogonalised twice.
    for (unsigned k = zeroFrom; k < r; ++k) {
        unsigned best = 0;
        T bestRes = -T(1);
        for (unsigned i = 0; i < p; ++i) {
            T res = T(1);
            for (unsigned j = 0; j < k; ++j) {
                const T v = Ucols(j, i);
                res -= v * v;
            }
            if (res > bestRes) {
                bestRes = res;
                best = i;
            }
        }
        T* u = Ucols.getRow(k);
        std::fill(u, u + p, T(0));
        u[best] = T(1);
        for (int pass = 0; pass < 2; ++pass) {
            for (unsigned j = 0; j < k; ++j) {
                const T* q = Ucols.getRow(j);
                T d = T(0);
                for (unsigned i = 0; i < p; ++i) d += q[i] * u[i];
                for (unsigned i = 0; i < p; ++i) u[i] -= d * q[i];
            }
        }
        const T len = rowNorm(u, p);
        for (unsigned i = 0; i < p; ++i) u[i] /= len;
    }

    if (tall) {  // A = M = U·W·Jᵀ
        UtOut.swap(Ucols);
        VtOut.swap(Jcols);
    } else {  // A = Mᵀ = J·W·Uᵀ
        UtOut.swap(Jcols);
        VtOut.swap(Ucols);
    }
}

}  // namespace

template <class T>
Csolver_svd<T>::Csolver_svd() : Csolver_le<T>(), m_plainDone(false), m_relTol(T(-1)) {}

template <class T>
Csolver_svd<T>::Csolver_svd(Cmatrix<T> const& A) : Csolver_le<T>(A), m_plainDone(false), m_relTol(T(-1)) {}

template <class T>
Csolver_svd<T>::Csolver_svd(Cmatrix<T>& A) : Csolver_le<T>(A), m_plainDone(false), m_relTol(T(-1)) {}

template <class T>
Csolver_svd<T>::Csolver_svd(Csolver_svd const& other) = default;

template <class T>
Csolver_svd<T>& Csolver_svd<T>::operator=(Csolver_svd const& other) = default;

template <class T>
Csolver_svd<T>::~Csolver_svd() = default;

template <class T>
T Csolver_svd<T>::getTolerance() const {
    if (m_relTol >= T(0)) return m_relTol;
    return static_cast<T>(std::max(this->m_A.m(), this->m_A.n())) * tol::eps<T>();
}

template <class T>
void Csolver_svd<T>::init() {
    m_plainDone = false;
    Cmatrix<T> const& A = this->m_A;
    const unsigned m = A.m();
    const unsigned n = A.n();
    m_colExp.clear();
    if (m == 0 || n == 0) {  // no element: nothing to scale, however long the other side
        jacobiSvd(A, m_we, m_Ute, m_Vte);
        return;
    }
    // Column lengths (power-of-two pre-scaled per column, so nothing overflows).
    std::vector<T> mx(n, T(0));
    bool finite = true;
    for (unsigned i = 0; i < m; ++i) {
        const T* a = A.getRow(i);
        for (unsigned j = 0; j < n; ++j) {
            if (!std::isfinite(a[j])) finite = false;
            mx[j] = std::max(mx[j], std::fabs(a[j]));
        }
    }
    m_colExp.assign(n, 0);
    if (finite) {
        std::vector<int> pre(n, 0);
        std::vector<T> ss(n, T(0));
        for (unsigned j = 0; j < n; ++j)
            if (mx[j] > T(0)) std::frexp(mx[j], &pre[j]);
        for (unsigned i = 0; i < m; ++i) {
            const T* a = A.getRow(i);
            for (unsigned j = 0; j < n; ++j) {
                const T v = std::ldexp(a[j], -pre[j]);
                ss[j] += v * v;
            }
        }
        for (unsigned j = 0; j < n; ++j) {
            if (!(mx[j] > T(0))) continue;  // zero column stays as it is
            int e = 0;
            std::frexp(std::sqrt(ss[j]), &e);
            m_colExp[j] = pre[j] + e;
        }
    }
    Cmatrix<T> Aeq(A);
    for (unsigned i = 0; i < m; ++i) {
        T* a = Aeq.getRow(i);
        for (unsigned j = 0; j < n; ++j) a[j] = std::ldexp(a[j], -m_colExp[j]);
    }
    jacobiSvd(Aeq, m_we, m_Ute, m_Vte);
}

template <class T>
void Csolver_svd<T>::preparePlain() {
    this->prepare();
    if (m_plainDone) return;
    jacobiSvd(this->m_A, m_w, m_Ut, m_Vt);
    m_plainDone = true;
}

template <class T>
unsigned int Csolver_svd<T>::getRank() {
    this->prepare();
    if (m_we.empty()) return 0;
    const T thresh = getTolerance() * m_we[0];
    unsigned rank = 0;
    for (T w : m_we)
        if (!(w == T(0) || w < thresh)) ++rank;
    return rank;
}

template <class T>
Cmatrix<T> Csolver_svd<T>::subsolve() {
    this->prepare();
    Cmatrix<T> const& B = this->m_B;
    const unsigned m = this->m_A.m();
    const unsigned n = this->m_A.n();
    if (B.m() != m) throw CthrowMath(CthrowMath::ERR_MATH_INVALID_ARGUMENT, "");
    const unsigned kc = B.n();
    const unsigned k = getRank();  // the leading k singular values are inverted

    // y = W⁺·Uᵀ·B over the equilibrated matrix, k×kc, row by row.
    m_work.assign(static_cast<std::size_t>(k) * kc, T(0));
    for (unsigned q = 0; q < k; ++q) {
        T* y = m_work.data() + static_cast<std::size_t>(q) * kc;
        const T* u = m_Ute.getRow(q);
        for (unsigned i = 0; i < m; ++i) {
            const T ui = u[i];
            const T* b = B.getRow(i);
            for (unsigned c = 0; c < kc; ++c) y[c] += ui * b[c];
        }
        const T winv = T(1) / m_we[q];
        for (unsigned c = 0; c < kc; ++c) y[c] *= winv;
    }
    // X = D·V·y, n×kc.
    Cmatrix<T> X(n, kc);
    for (unsigned q = 0; q < k; ++q) {
        const T* y = m_work.data() + static_cast<std::size_t>(q) * kc;
        const T* v = m_Vte.getRow(q);
        for (unsigned i = 0; i < n; ++i) {
            const T vi = v[i];
            T* x = X.getRow(i);
            for (unsigned c = 0; c < kc; ++c) x[c] += vi * y[c];
        }
    }
    if (!m_colExp.empty())
        for (unsigned i = 0; i < n; ++i) {
            T* x = X.getRow(i);
            for (unsigned c = 0; c < kc; ++c) x[c] = std::ldexp(x[c], -m_colExp[i]);
        }
    if (k > 0 && k < n && !m_colExp.empty()) minimumNorm(X, k);
    this->m_B = X;  // the frame keeps the solution as its right-hand side
    return X;
}

// The least-squares solutions are X + D·N with N ⊥ span(v_0..v_{k−1}), i.e. X
// plus any vector orthogonal to the columns of D⁻¹·V_k.  The one of least norm
// is the orthogonal projection of X onto span(D⁻¹·V_k): an orthonormal basis Q
// of that span (Gram-Schmidt, twice), then X ← Q·(Qᵀ·X).
template <class T>
void Csolver_svd<T>::minimumNorm(Cmatrix<T>& X, unsigned k) {
    const unsigned n = X.m();
    const unsigned kc = X.n();
    const int emax = *std::max_element(m_colExp.begin(), m_colExp.end());
    Cmatrix<T> Q(k, n);  // rows: basis vectors
    unsigned kept = 0;
    for (unsigned q = 0; q < k; ++q) {
        T* z = Q.getRow(kept);
        const T* v = m_Vte.getRow(q);
        for (unsigned i = 0; i < n; ++i) z[i] = std::ldexp(v[i], m_colExp[i] - emax);
        const T len0 = rowNorm(z, n);
        for (int pass = 0; pass < 2; ++pass)
            for (unsigned j = 0; j < kept; ++j) {
                const T* b = Q.getRow(j);
                T d = T(0);
                for (unsigned i = 0; i < n; ++i) d += b[i] * z[i];
                for (unsigned i = 0; i < n; ++i) z[i] -= d * b[i];
            }
        const T len = rowNorm(z, n);
        if (!(len > tol::eps<T>() * len0)) continue;  // lost in rounding: dependent
        for (unsigned i = 0; i < n; ++i) z[i] /= len;
        ++kept;
    }
    std::vector<T> c(static_cast<std::size_t>(kept) * kc, T(0));
    for (unsigned j = 0; j < kept; ++j) {
        const T* b = Q.getRow(j);
        for (unsigned i = 0; i < n; ++i) {
            const T* x = X.getRow(i);
            for (unsigned cc = 0; cc < kc; ++cc) c[j * kc + cc] += b[i] * x[cc];
        }
    }
    std::fill(X.begin(), X.end(), T(0));
    for (unsigned j = 0; j < kept; ++j) {
        const T* b = Q.getRow(j);
        for (unsigned i = 0; i < n; ++i) {
            T* x = X.getRow(i);
            for (unsigned cc = 0; cc < kc; ++cc) x[cc] += b[i] * c[j * kc + cc];
        }
    }
}

template <class T>
std::vector<T> const& Csolver_svd<T>::getSingularValues() {
    preparePlain();
    return m_w;
}

template <class T>
Cmatrix<T> Csolver_svd<T>::getU() {
    preparePlain();
    return m_Ut.transp();
}

template <class T>
Cmatrix<T> Csolver_svd<T>::getV() {
    preparePlain();
    return m_Vt.transp();
}

template <class T>
T Csolver_svd<T>::getCond() {
    preparePlain();
    if (m_w.empty()) return quietNaN<T>();
    const T lo = m_w.back();
    if (lo == T(0)) return std::numeric_limits<T>::infinity();
    return m_w.front() / lo;
}

template class Csolver_svd<float>;
template class Csolver_svd<double>;

}  // namespace math
