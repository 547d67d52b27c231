// CsplineBasis: knot vectors and the Cox-de Boor evaluation of the basis.
#include <math/spline.h>

#include <core/memtracker.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <new>
#include <string>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace math {

namespace {

// Sizes x to `count` zeros.  A count whose bytes do not fit into the tracked
// allocator's counts (the library's limit for any block), or memory the
// system refuses, throws CthrowBase ERR_CORE_NOMEMORY with the byte count.
void sizeKnots(std::vector<double>& x, std::uint64_t count) {
    const unsigned bytes = core::memTracker_bytes(count, sizeof(double));
    try {
        if (bytes == ~0u) throw std::bad_alloc();
        x.resize(std::size_t(count));
    } catch (std::bad_alloc const&) {
        throw CthrowBase(CthrowBase::ERR_CORE_NOMEMORY, "") << std::to_string(bytes);
    }
}

// One level d of the recursion at index i, from the previous level's values.
// Each term is 0 when its source value or its denominator is 0; terms are
// evaluated left to right, ((t - x_i) * N_i) / a.  Shared by the full-vector
// and the local evaluation so that both give the same bits.
struct Level {
    double a, b, tl, tr;  // x[i+d-1] - x[i], x[i+d] - x[i+1], t - x[i], x[i+d] - t
    Level(double const* x, unsigned i, unsigned d, double t)
        : a(x[i + d - 1] - x[i]), b(x[i + d] - x[i + 1]), tl(t - x[i]), tr(x[i + d] - t) {}
    double value(double n0, double n1) const {
        const double left = (n0 != 0 && a != 0) ? tl * n0 / a : 0.0;
        const double right = (n1 != 0 && b != 0) ? tr * n1 / b : 0.0;
        return left + right;
    }
    // First (c = 1) and second (c = 2) derivatives: c*lo0/a - c*lo1/b + tl*hi0/a + tr*hi1/b,
    // lo the values one derivative lower, hi those of the same derivative.
    double deriv(double c, double lo0, double lo1, double hi0, double hi1) const {
        const double t1 = (lo0 != 0 && a != 0) ? c * lo0 / a : 0.0;
        const double t2 = (lo1 != 0 && b != 0) ? c * lo1 / b : 0.0;
        const double t3 = (hi0 != 0 && a != 0) ? tl * hi0 / a : 0.0;
        const double t4 = (hi1 != 0 && b != 0) ? tr * hi1 / b : 0.0;
        return t1 - t2 + t3 + t4;
    }
};

// Local evaluation: the triangle of non-zero values over the window w ...
// w+k-1, with x pointing at knot w and N, D1, D2 at the window's k entries;
// the entry after the window is 0 at every level.  Every quotient is the
// Level one (the pair of a level entry, left and right, goes through one
// two-lane division where SSE2 is there: the same IEEE quotients).
struct Pair {
    double q0, q1;
};

// (num0 / den0, num1 / den1), each 0 unless its source and denominator are non-zero.
inline Pair guardedDiv(double num0, double num1, double src0, double src1, double den0, double den1) {
#if defined(__SSE2__)
    const __m128d zero = _mm_setzero_pd();
    const __m128d den = _mm_set_pd(den1, den0);
    const __m128d ok = _mm_and_pd(_mm_cmpneq_pd(_mm_set_pd(src1, src0), zero), _mm_cmpneq_pd(den, zero));
    const __m128d num = _mm_and_pd(ok, _mm_set_pd(num1, num0));
    const __m128d d = _mm_or_pd(_mm_and_pd(ok, den), _mm_andnot_pd(ok, _mm_set1_pd(1.0)));
    const __m128d q = _mm_div_pd(num, d);
    Pair r;
    _mm_storel_pd(&r.q0, q);
    _mm_storeh_pd(&r.q1, q);
    return r;
#else
    return Pair{(src0 != 0 && den0 != 0) ? num0 / den0 : 0.0, (src1 != 0 && den1 != 0) ? num1 / den1 : 0.0};
#endif
}

template <unsigned KC, int Mode>  // KC = 0: run-time order; Mode 0: N, 1: N, D1, 2: N, D1, D2
inline void levelsLocal(unsigned kr, double const* x, double t, double* N, double* D1, double* D2) {
    const unsigned k = KC ? KC : kr;
#if defined(__SSE2__)
    if (Mode == 0) {  // the same quotients, the knot differences in pairs
        const __m128d tv = _mm_set1_pd(t), one = _mm_set1_pd(1.0), zero = _mm_setzero_pd();
        for (unsigned d = 2; d <= k; ++d) {
            for (unsigned j = k - d; j < k; ++j) {
                const double n0 = N[j], n1 = j + 1 < k ? N[j + 1] : 0.0;
                if (n0 == 0 && n1 == 0) continue;
                const __m128d xa = _mm_loadu_pd(x + j), xb = _mm_loadu_pd(x + j + d - 1);
                const __m128d den = _mm_sub_pd(xb, xa);                                             // a, b
                const __m128d tt = _mm_sub_pd(_mm_shuffle_pd(tv, xb, 2), _mm_shuffle_pd(xa, tv, 0));  // tl, tr
                const __m128d nv = _mm_set_pd(n1, n0);
                const __m128d ok = _mm_and_pd(_mm_cmpneq_pd(nv, zero), _mm_cmpneq_pd(den, zero));
                const __m128d q = _mm_div_pd(_mm_and_pd(ok, _mm_mul_pd(tt, nv)),
                                             _mm_or_pd(_mm_and_pd(ok, den), _mm_andnot_pd(ok, one)));
                N[j] = _mm_cvtsd_f64(_mm_add_sd(q, _mm_unpackhi_pd(q, q)));
            }
        }
        return;
    }
#endif
    for (unsigned d = 2; d <= k; ++d) {
        for (unsigned j = k - d; j < k; ++j) {
            const double a = x[j + d - 1] - x[j], b = x[j + d] - x[j + 1];
            const double tl = t - x[j], tr = x[j + d] - t;
            const double n0 = N[j], n1 = j + 1 < k ? N[j + 1] : 0.0;
            if (Mode == 0) {
                if (n0 != 0 || n1 != 0) {
                    const Pair v = guardedDiv(tl * n0, tr * n1, n0, n1, a, b);
                    N[j] = v.q0 + v.q1;
                }
            } else {
                const double e0 = D1[j], e1 = j + 1 < k ? D1[j + 1] : 0.0;
                const Pair v = guardedDiv(tl * n0, tr * n1, n0, n1, a, b);
                const Pair p = guardedDiv(1.0 * n0, 1.0 * n1, n0, n1, a, b);
                const Pair q = guardedDiv(tl * e0, tr * e1, e0, e1, a, b);
                N[j] = v.q0 + v.q1;
                D1[j] = p.q0 - p.q1 + q.q0 + q.q1;
                if (Mode == 2) {
                    const double f0 = D2[j], f1 = j + 1 < k ? D2[j + 1] : 0.0;
                    const Pair r = guardedDiv(2.0 * e0, 2.0 * e1, e0, e1, a, b);
                    const Pair s = guardedDiv(tl * f0, tr * f1, f0, f1, a, b);
                    D2[j] = r.q0 - r.q1 + s.q0 + s.q1;
                }
            }
        }
    }
}

template <int Mode>
void levelsDispatch(unsigned k, double const* x, double t, double* N, double* D1, double* D2) {
    switch (k) {
        case 2: levelsLocal<2, Mode>(k, x, t, N, D1, D2); break;
        case 3: levelsLocal<3, Mode>(k, x, t, N, D1, D2); break;
        case 4: levelsLocal<4, Mode>(k, x, t, N, D1, D2); break;
        case 5: levelsLocal<5, Mode>(k, x, t, N, D1, D2); break;
        case 6: levelsLocal<6, Mode>(k, x, t, N, D1, D2); break;
        case 8: levelsLocal<8, Mode>(k, x, t, N, D1, D2); break;
        default: levelsLocal<0, Mode>(k, x, t, N, D1, D2); break;
    }
}

// The k values (and derivatives) of the window whose first knot is x[0], for
// t in its last interval.
void fillLocal(unsigned k, double const* x, double t, double* N, double* D1, double* D2) {
    for (unsigned j = 0; j < k; ++j) N[j] = 0.0;
    N[k - 1] = 1.0;
    if (D1)
        for (unsigned j = 0; j < k; ++j) D1[j] = 0.0;
    if (D2)
        for (unsigned j = 0; j < k; ++j) D2[j] = 0.0;
    if (D2)
        levelsDispatch<2>(k, x, t, N, D1, D2);
    else if (D1)
        levelsDispatch<1>(k, x, t, N, D1, D2);
    else
        levelsDispatch<0>(k, x, t, N, D1, D2);
}

// First pass of basis/dbasis over i = 0 ... sz-2: N[i] = 1 where x[i] <= t <
// x[i+1], else 0 (D1, D2 zeroed when given).  Returns how many got a 1 and
// sets last to the last of them.
std::size_t firstPass(double const* x, std::size_t sz, double t, double* N, double* D1, double* D2,
                      std::size_t& last) {
    std::size_t i = 0, count = 0;
    last = 0;
#if defined(__SSE2__)
    const __m128d tv = _mm_set1_pd(t), one = _mm_set1_pd(1.0), two = _mm_set1_pd(2.0), zero = _mm_setzero_pd();
    __m128i cnt = _mm_setzero_si128();
    __m128d idx = _mm_set_pd(2.0, 1.0), top = zero;  // index + 1 of each lane; the largest with a 1
    for (; i + 3 <= sz; i += 2) {  // entries i, i+1 (both < sz - 1)
        const __m128d in = _mm_and_pd(_mm_cmple_pd(_mm_loadu_pd(x + i), tv), _mm_cmplt_pd(tv, _mm_loadu_pd(x + i + 1)));
        _mm_storeu_pd(N + i, _mm_and_pd(in, one));
        if (D1) {
            _mm_storeu_pd(D1 + i, zero);
            _mm_storeu_pd(D2 + i, zero);
        }
        cnt = _mm_sub_epi64(cnt, _mm_castpd_si128(in));
        top = _mm_max_pd(top, _mm_and_pd(in, idx));
        idx = _mm_add_pd(idx, two);
    }
    std::uint64_t c2[2];
    double t2[2];
    _mm_storeu_si128(reinterpret_cast<__m128i*>(c2), cnt);
    _mm_storeu_pd(t2, top);
    count = std::size_t(c2[0] + c2[1]);
    const double topIdx = t2[0] > t2[1] ? t2[0] : t2[1];
    if (topIdx > 0) last = std::size_t(topIdx) - 1;
#endif
    for (; i + 1 < sz; ++i) {
        const bool in = (x[i] <= t) & (t < x[i + 1]);
        N[i] = in ? 1.0 : 0.0;
        if (D1) D1[i] = D2[i] = 0.0;
        count += in;
        last = in ? i : last;
    }
    return count;
}

// Index of the last non-empty interval [x[i], x[i+1]) with i <= last; -1 when none.
long lastNonEmpty(std::vector<double> const& x, long last) {
    for (long i = last; i >= 0; --i)
        if (x[i] < x[i + 1]) return i;
    return -1;
}

// The recursion of basis/dbasis on the full vectors, levels 2 ... k over the
// window w ... w+k-1, never past the end of N nor past the last knot.
void recurFull(std::vector<double> const& x, unsigned k, unsigned w, double t, double* N, double* D1,
               double* D2, std::size_t sizeN) {
    const std::size_t nk = x.size();
    for (unsigned d = 2; d <= k; ++d) {
        for (unsigned i = w; i < w + k && i + 1 < sizeN; ++i) {
            if (i + d >= nk) break;
            const Level L(x.data(), i, d, t);
            if (D1 == nullptr) {
                if (N[i] != 0 || N[i + 1] != 0) N[i] = L.value(N[i], N[i + 1]);
            } else {
                const double n0 = N[i], n1 = N[i + 1], e0 = D1[i], e1 = D1[i + 1];
                N[i] = L.value(n0, n1);
                D1[i] = L.deriv(1.0, n0, n1, e0, e1);
                D2[i] = L.deriv(2.0, e0, e1, D2[i], D2[i + 1]);
            }
        }
    }
}

// Loki's small-object pool, which holds the reference counts of the basis
// handles, is destroyed at exit in the reverse order of its creation.  Made
// when the library is loaded, it outlives every handle of an application,
// also handles in static storage.
const bool lokiPoolFirst = (Loki::AllocatorSingleton<>::Instance(), true);

}  // namespace

double CsplineBasis::EPS() { return tol::epsDouble; }

void* CsplineBasis::operator new(std::size_t size) {
    return core_memTracker_malloc(core::memTracker_bytes(size, 1), true);
}
void CsplineBasis::operator delete(void* p) noexcept { core_memTracker_free(p); }

CsplineBasis::CsplineBasis(int order, int nCtrl) : m_order(order) {
    if (order < 0 || nCtrl < 0) throw CthrowSpline(CthrowSpline::ERR_INVALID_ARGUMENT, "");
    sizeKnots(m_knots, std::uint64_t(order) + std::uint64_t(nCtrl));
    knot(static_cast<unsigned>(nCtrl));
}

CsplineBasis::CsplineBasis(int order, enKnots kind, CbaseVecN<Cpoint3<double>> const& points) : m_order(order) {
    if (order < 0) throw CthrowSpline(CthrowSpline::ERR_INVALID_ARGUMENT, "");
    sizeKnots(m_knots, std::uint64_t(order) + points.size());
    const unsigned n = static_cast<unsigned>(points.size());
    switch (kind) {
        case KNOT_OPEN: knot(n); break;
        case KNOT_CHORD: knotc(points); break;
        case KNOT_PERIODIC: knotu(n); break;
        default: break;  // unknown kind: the zeros stay
    }
}

CsplineBasis::CsplineBasis(CsplineBasis const& other) = default;
CsplineBasis& CsplineBasis::operator=(CsplineBasis const& other) = default;
CsplineBasis::~CsplineBasis() = default;

void CsplineBasis::replaceKnotVec(std::vector<double> const& knots) { m_knots = knots; }

unsigned CsplineBasis::ctrlCount() const {
    const std::size_t k = static_cast<unsigned>(m_order);
    return m_knots.size() > k ? static_cast<unsigned>(m_knots.size() - k) : 0u;
}

// Open uniform: x0 = 0, x_i = x_{i-1} + 1 for k-1 < i < n+1 (k unsigned, so
// order 0 gives all zeros), else x_i = x_{i-1}.
void CsplineBasis::knot(unsigned n) {
    if (m_knots.empty()) return;
    const unsigned k = static_cast<unsigned>(m_order);
    m_knots[0] = 0.0;
    for (std::size_t i = 1; i < m_knots.size(); ++i)
        m_knots[i] = (k - 1 < i && i < std::size_t(n) + 1) ? m_knots[i - 1] + 1.0 : m_knots[i - 1];
}

void CsplineBasis::knotu(unsigned) {
    for (std::size_t i = 0; i < m_knots.size(); ++i) m_knots[i] = double(i);
}

// Chord length: x[k-1+i] = ((n-k+1) C_i + i d_i) / L for i = 1 ... n-k (the
// extra i*d_i is part of the formula); chords past the last point count 0.
void CsplineBasis::knotc(CbaseVecN<Cpoint3<double>> const& points) {
    const long n = long(points.size());
    const long k = m_order;
    const std::size_t nd = points.size() > 1 ? points.size() - 1 : 0;
    std::vector<double> d(nd);
    double L = 0.0;
    for (std::size_t j = 0; j < nd; ++j) {
        d[j] = (points[j + 1] - points[j]).length();
        L += d[j];
    }
    for (long i = 0; i < k && i < long(m_knots.size()); ++i) m_knots[std::size_t(i)] = 0.0;
    const double span = double(n - k + 1);
    double C = 0.0;
    for (long i = 1; i <= n - k; ++i) {
        const double di = std::size_t(i) < nd ? d[std::size_t(i)] : 0.0;
        C += std::size_t(i - 1) < nd ? d[std::size_t(i - 1)] : 0.0;
        m_knots[std::size_t(k - 1 + i)] = (span * C + double(i) * di) / L;
    }
    for (std::size_t i = std::size_t(n); i < m_knots.size(); ++i) m_knots[i] = span;
}

// basis and dbasis: the first pass, the last-knot rule, then the recursion.
// A clean window (one 1, at its end, and 0 after it: every sorted vector) is
// done by the local kernel, which gives the bits of the full recursion
// (its other entries stay +0 there); anything else by the full recursion.
void CsplineBasis::evalFull(double t, double* N, double* D1, double* D2, std::size_t sz, unsigned& span,
                            unsigned endSpanLess) const {
    const std::size_t nk = m_knots.size();
    const unsigned k = static_cast<unsigned>(m_order);
    double const* x = m_knots.data();
    std::size_t iv = 0;
    const std::size_t count = sz >= 2 ? firstPass(x, sz, t, N, D1, D2, iv) : 0;
    bool found = count > 0;
    if (found) span = unsigned(iv);
    span = span + 1 - k;
    if (nk && t == x[nk - 1]) {
        const long i = sz >= 2 ? lastNonEmpty(m_knots, long(sz) - 2) : -1;
        span = unsigned(sz - k - 1 - endSpanLess);
        if (i < 0) return;
        N[std::size_t(i)] = 1.0;
        iv = std::size_t(i);
        found = true;
    }
    if (!found || k < 1) return;
    const unsigned w = unsigned(iv) + 1 - k;
    const bool clean = count <= 1 && iv + 1 >= k && iv + 1 < sz && N[iv + 1] == 0 && iv + k < nk;
    if (clean)
        fillLocal(k, x + w, t, N + w, D1 ? D1 + w : nullptr, D2 ? D2 + w : nullptr);
    else
        recurFull(m_knots, k, w, t, N, D1, D2, sz);
}

void CsplineBasis::basis(double const& t, std::vector<double>& N, unsigned int& span) const {
    const std::size_t nk = m_knots.size();
    const std::size_t sz = nk ? nk - 1 : 0;
    if (N.size() != sz) N.resize(sz);
    evalFull(t, N.data(), nullptr, nullptr, sz, span, 0);
}

void CsplineBasis::dbasis(double const& t, std::vector<double>& N, std::vector<double>& D1, std::vector<double>& D2,
                          unsigned int& span) const {
    const std::size_t nk = m_knots.size();
    const std::size_t sz = nk ? nk - 1 : 0;
    if (N.size() != sz) N.resize(sz);
    if (D1.size() != sz) D1.resize(sz);
    if (D2.size() != sz) D2.resize(sz);
    evalFull(t, N.data(), D1.data(), D2.data(), sz, span, 2);
}

void CsplineBasis::rbasis(std::vector<double>& N, std::vector<double> const& w, unsigned int const& span) const {
    const unsigned k = static_cast<unsigned>(m_order);
    const std::size_t end = std::min(N.size(), w.size());
    double S = 0.0;
    for (std::size_t i = span, c = 0; c < k && i < end; ++i, ++c) S += w[i] * N[i];
    if (std::fabs(S) < EPS()) throw CthrowSpline(CthrowSpline::ERR_INVALID_DIVISION, "");
    const double inv = 1.0 / S;
    for (std::size_t i = span, c = 0; c < k && i < end; ++i, ++c) N[i] = w[i] * N[i] * inv;
}

bool CsplineBasis::localBasis(double t, unsigned& first, double* N, double* D1, double* D2) const {
    if (m_order < 1) return false;
    const unsigned k = static_cast<unsigned>(m_order);
    const std::size_t nk = m_knots.size();
    if (nk < 2 * std::size_t(k)) return false;
    const std::size_t n = nk - k;
    double const* x = m_knots.data();
    if (!(x[k - 1] <= t && t <= x[n])) return false;
    // Interval: the last i in [k-1, n-1] with x[i] <= t and x[i] < x[i+1].
    std::size_t iv;
    if (t < x[n]) {
        iv = std::size_t(std::upper_bound(x + k - 1, x + n, t) - x) - 1;
    } else {
        const long i = lastNonEmpty(m_knots, long(n) - 1);
        if (i < long(k) - 1) return false;
        iv = std::size_t(i);
    }
    const unsigned w = unsigned(iv + 1 - k);

    first = w;
    if (D2 != nullptr && D1 == nullptr) {  // the first derivatives in scratch space
        if (k <= 64) {
            double tmp[64];
            fillLocal(k, x + w, t, N, tmp, D2);
        } else {
            CbaseVecN<double> tmp(k);
            fillLocal(k, x + w, t, N, tmp.data(), D2);
        }
    } else {
        fillLocal(k, x + w, t, N, D1, D2);
    }
    return true;
}

}  // namespace math
