#include <math/basic_algo.h>
#include <math/matrix_calc.h>
#include <math/point.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

namespace math {

namespace {

template <class T>
bool isNan(T x) {
    return x != x;
}

// Copies the n values from `first` into `w`, moves the NaNs behind the
// numbers and returns how many numbers there are.  The NaN test rides along the copy, so
// NaN-free input costs one pass.
template <class T, class It>
std::size_t copyNumbers(It first, std::size_t n, std::vector<T>& w) {
    w.resize(n);
    T* out = w.data();
    unsigned anyNan = 0;
    for (std::size_t i = 0; i < n; ++i, ++first) {
        const T x = *first;
        out[i] = x;
        anyNan |= static_cast<unsigned>(x != x);
    }
    if (!anyNan) return n;
    return static_cast<std::size_t>(std::partition(w.begin(), w.end(), [](T x) { return x == x; }) - w.begin());
}

// The k-th (1-based) value in the NaN-last order of the n values from
// `first`, 1 ≤ k ≤ n.
// Numbers are selected with std::nth_element (introselect: iterative, heap
// fallback, O(n)); a k past the numbers is one of the NaNs.
template <class T, class It>
T selectKth(It first, std::size_t n, std::size_t k) {
    std::vector<T> w;
    const std::size_t cnt = copyNumbers<T>(first, n, w);
    if (k > cnt) return w[k - 1];  // a NaN
    std::nth_element(w.begin(), w.begin() + static_cast<std::ptrdiff_t>(k - 1),
                     w.begin() + static_cast<std::ptrdiff_t>(cnt));
    return w[k - 1];
}

// Sorts v ascending with the NaNs after all numbers; returns the number count.
template <class T>
std::size_t sortNanLast(std::vector<T>& v) {
    const auto mid = std::partition(v.begin(), v.end(), [](T x) { return x == x; });
    std::sort(v.begin(), mid);
    return static_cast<std::size_t>(mid - v.begin());
}

// The convergence comparison of evalNewtonRoot: a equals b when
// a ≤ b + τ·(1 + |b|) and b ≤ a + τ·(1 + |a|), τ = 2^-15 for every T.
template <class T>
bool nearlyEqual(T a, T b) {
    constexpr T tau = T(0x1p-15);
    return a <= b + tau * (T(1) + std::fabs(b)) && b <= a + tau * (T(1) + std::fabs(a));
}

}  // namespace

// --- location estimates ------------------------------------------------------

template <class T>
T BasicAlgo<T>::median(std::vector<T>& v, unsigned k) {
    if (v.empty() || k == 0 || k > v.size()) return T(-1);
    return selectKth<T>(v.begin(), v.size(), k);
}

template <class T>
T BasicAlgo<T>::median(std::list<T>& v, unsigned k) {
    const std::size_t n = v.size();
    if (n == 0 || k == 0 || k > n) return T(-1);
    return selectKth<T>(v.begin(), n, k);
}

template <class T>
T BasicAlgo<T>::median(std::vector<T> const& v) {
    const std::size_t n = v.size();
    if (n == 0) return T(-1);
    return selectKth<T>(v.begin(), n, (n + 1) / 2);
}

template <class T>
T BasicAlgo<T>::median(std::list<T> const& v) {
    const std::size_t n = v.size();
    if (n == 0) return T(-1);
    return selectKth<T>(v.begin(), n, (n + 1) / 2);
}

template <class T>
T BasicAlgo<T>::stdmedian(std::vector<T>& v) {
    if (v.empty()) return quietNaN<T>();
    sortNanLast(v);
    const std::size_t m = v.size() / 2;
    if (v.size() % 2 == 1) return v[m];
    return (v[m - 1] + v[m]) * T(0.5);
}

template <class T>
T BasicAlgo<T>::medianmittel(std::vector<T>& v) {
    T result = T(0);
    if (v.size() > 3) {
        // Sorted once; removing an end keeps the rest sorted, so the window
        // v[lo, hi) of numbers followed by `nans` NaNs is what the repeated
        // sort-and-remove would hold.
        const std::size_t cnt = sortNanLast(v);
        std::size_t lo = 0, hi = cnt, nans = v.size() - cnt;
        const T nan = nans ? v[cnt] : quietNaN<T>();
        auto at = [&](std::size_t i) { return i < hi - lo ? v[lo + i] : nan; };
        while ((hi - lo) + nans > 3) {
            const std::size_t s = (hi - lo) + nans;
            const std::size_t m = s / 2;
            const T med = s % 2 == 1 ? at(m) : (at(m - 1) + at(m)) * T(0.5);
            // The first value of strictly greatest |x − med| (none: the
            // front).  In a sorted run that is the front or the last number;
            // a NaN deviation never wins.
            if (lo == hi) {
                --nans;  // only NaNs left: the front is a NaN
            } else if (med == -std::numeric_limits<T>::infinity()) {
                // −inf values deviate by NaN, every other number by +inf: the
                // first number above −inf goes (the front when there is none).
                // The −inf run moves one place right over it.
                const std::size_t j = static_cast<std::size_t>(
                    std::upper_bound(v.begin() + lo, v.begin() + hi, med) - v.begin());
                if (j < hi) v[j] = v[lo];
                ++lo;
            } else {
                const T dFront = std::fabs(v[lo] - med);
                const T dBack = std::fabs(v[hi - 1] - med);
                if (dBack > dFront && dBack > T(0))
                    --hi;
                else
                    ++lo;
            }
        }
        std::size_t k = 0;
        for (std::size_t i = lo; i < hi; ++i) v[k++] = v[i];
        for (std::size_t i = 0; i < nans; ++i) v[k++] = nan;
        v.resize(k);
        result = (v[0] + v[1] + v[2]) / T(3);
    } else if (v.size() == 3) {
        result = (v[0] + v[1] + v[2]) / T(3);
    }
    if (v.size() == 2) result = (v[0] + v[1]) * T(0.5);
    if (v.size() == 1) result = v[0];
    return result;
}

template <class T>
T BasicAlgo<T>::rmGreatestDiv(std::vector<T>& v, T ref) {
    if (v.empty()) return quietNaN<T>();
    std::size_t best = 0;
    T dev = T(0);
    for (std::size_t i = 0; i < v.size(); ++i) {
        const T d = std::fabs(v[i] - ref);
        if (d > dev) {
            dev = d;
            best = i;
        }
    }
    const T x = v[best];
    v.erase(v.begin() + static_cast<std::ptrdiff_t>(best));
    return x;
}

template <class T>
T BasicAlgo<T>::rmSmallestDiv(std::vector<T>& v, T ref) {
    if (v.empty()) return quietNaN<T>();
    std::size_t best = 0;
    T dev = std::numeric_limits<T>::max();
    for (std::size_t i = 0; i < v.size(); ++i) {
        const T d = std::fabs(v[i] - ref);
        if (d < dev) {
            dev = d;
            best = i;
        }
    }
    const T x = v[best];
    v.erase(v.begin() + static_cast<std::ptrdiff_t>(best));
    return x;
}

template <class T>
T BasicAlgo<T>::average(std::vector<T> const& v) {
    T sum = T(0);
    for (T x : v) sum += x;
    return sum / static_cast<T>(v.size());
}

// --- polynomials -------------------------------------------------------------

template <class T>
void BasicAlgo<T>::evalPoly(std::vector<T> const& c, T x, T& y) {
    if (c.empty()) {
        y = quietNaN<T>();
        return;
    }
    const std::size_t m = c.size() - 1;
    T v = T(0);
    for (std::size_t i = 0; i < m; ++i) v = (c[i] + v) * x;
    y = v + c[m];
}

template <class T>
void BasicAlgo<T>::evalPoly(std::vector<T> const& c, T x, T& y, T& dy) {
    if (c.empty()) {
        y = dy = quietNaN<T>();
        return;
    }
    const std::size_t m = c.size() - 1;
    T v = T(0), d = T(0);
    std::size_t k = c.size();
    for (std::size_t i = 0; i < m; ++i) {
        --k;
        if (k > 1)
            d = (c[i] * static_cast<T>(k) + d) * x;
        else
            d = c[i] + d;
        v = (c[i] + v) * x;
    }
    y = v + c[m];
    dy = d;
}

template <class T>
void BasicAlgo<T>::divPoly(std::vector<T>& c, T const& r) {
    if (c.empty()) return;
    const T root = r;  // r may alias an entry of c
    T b = c[0];
    for (std::size_t i = 1; i < c.size(); ++i) {
        c[i] = root * b + c[i];
        b = c[i];
    }
    c.pop_back();
}

template <class T>
T BasicAlgo<T>::evalNewtonRoot(std::vector<T> const& c, T x0) {
    const std::size_t n = c.size();
    if (n < 2) return quietNaN<T>();
    if (n == 2) return c[0] != T(0) ? -c[1] / c[0] : quietNaN<T>();
    if (n == 3) return static_cast<T>(solveQuad2(c).first);

    // Bracketing: widths 1.6, 2.56, 6.5536, ... until √(max T) is passed
    // (at most 9 rounds for double, 8 for float).
    T f0;
    evalPoly(c, x0, f0);
    const T hMax = std::sqrt(std::numeric_limits<T>::max());
    T h = T(1.6);
    T a, b, fa;
    for (;;) {
        T fp, fm;
        evalPoly(c, x0 + h, fp);
        if (fp * f0 < T(0)) {
            a = x0;
            fa = f0;
            b = x0 + h;
            break;
        }
        evalPoly(c, x0 - h, fm);
        if (fm * f0 < T(0)) {
            a = x0 - h;
            fa = fm;
            b = x0;
            break;
        }
        if (h > hMax) return std::numeric_limits<T>::signaling_NaN();
        h = h * h;
    }

    // Safeguarded Newton.  Every step either moves an end of the bracket
    // strictly inwards (Newton, at most maxNewton times) or halves it; a
    // bracket whose midpoint is one of its ends ends the loop.
    constexpr unsigned maxNewton = 100;
    unsigned newtonSteps = 0;
    T x = (a + b) * T(0.5);
    for (;;) {
        T y, dy;
        evalPoly(c, x, y, dy);
        if (!std::isfinite(y)) return quietNaN<T>();
        if (y == T(0)) return x;
        const T xn = x - y / dy;
        T xNew;
        if (newtonSteps < maxNewton && std::isfinite(xn) && a < xn && xn < b) {
            ++newtonSteps;
            T fn;
            evalPoly(c, xn, fn);
            if (!std::isfinite(fn)) return quietNaN<T>();
            if (fn == T(0)) return xn;
            if ((fn < T(0)) == (fa < T(0))) {
                a = xn;
                fa = fn;
            } else {
                b = xn;
            }
            xNew = xn;
        } else {
            const T mid = (a + b) * T(0.5);
            if (!(a < mid && mid < b)) return x;
            T fm;
            evalPoly(c, mid, fm);
            if (!std::isfinite(fm)) return quietNaN<T>();
            if (fm == T(0)) return mid;
            if ((fm < T(0)) == (fa < T(0))) {
                a = mid;
                fa = fm;
            } else {
                b = mid;
            }
            xNew = (a + b) * T(0.5);
        }
        if (nearlyEqual(x - xNew, T(0))) return xNew;
        x = xNew;
    }
}

// --- quadratics ----------------------------------------------------------------

template <class T>
typename BasicAlgo<T>::Troots BasicAlgo<T>::solveQuad2(std::vector<T> const& c) {
    if (c.size() != 3) return Troots(0.0, 0.0);
    const T a = c[0], b = c[1], cc = c[2];
    const double nan = quietNaN<double>();
    if (a == T(0)) {
        if (b != T(0)) {
            const T r = -cc / b;
            return Troots(r, r);
        }
        return Troots(nan, nan);
    }
    const T p = b / a;
    const T D = p * p * T(0.25) - cc / a;
    if (D >= T(0)) {
        const T s = std::sqrt(D);
        const T h = -p * T(0.5);
        return Troots(h + s, h - s);
    }
    return Troots(nan, nan);
}

template <class T>
typename BasicAlgo<T>::TcomplexRoots BasicAlgo<T>::solveQuad(std::vector<T> const& c) {
    typedef std::complex<double> Tc;
    if (c.size() != 3) return TcomplexRoots(Tc(0.0, 0.0), Tc(0.0, 0.0));
    const T a = c[0], b = c[1], cc = c[2];
    if (a == T(0)) {
        const T r = -cc / b;
        return TcomplexRoots(Tc(r, 0.0), Tc(r, 0.0));
    }
    const T p = b / a;
    const T D = p * p * T(0.25) - cc / a;
    const T h = -p * T(0.5);
    if (D < T(0)) {
        const T s = std::sqrt(std::fabs(D));
        return TcomplexRoots(Tc(h, s), Tc(h, -s));
    }
    const T s = std::sqrt(D);
    return TcomplexRoots(Tc(h + s, 0.0), Tc(h - s, 0.0));
}

template <class T>
T BasicAlgo<T>::cosALP(T a, T b, T c) {
    return (c * c + b * b - a * a) / ((b + b) * c);
}

// --- quadratic forms -------------------------------------------------------------

template <class T>
void BasicAlgo<T>::IntersectEqu(Cmatrix<T>& M, std::vector<T>& v, TcomplexRoots& res) {
    if (M.m() < 3 || M.n() < 3 || v.size() < 2) {
        res = TcomplexRoots(std::complex<double>(0.0, 0.0), std::complex<double>(0.0, 0.0));
        return;
    }
    const T v0 = v[0], v1 = v[1];
    const T two = T(2);
    const T a = M(1, 1) + two * M(1, 2) * v1 + M(2, 2) * (v1 * v1);
    const T b = two * (M(0, 1) + M(0, 2) * v1 + M(1, 2) * v0 + M(2, 2) * v0 * v1);
    const T c = M(0, 0) + two * M(0, 2) * v0 + M(2, 2) * (v0 * v0);
    res = solveQuad(std::vector<T>{a, b, c});
}

template <class T>
void BasicAlgo<T>::RotateEqu(Cmatrix<T>& M, std::vector<T>& lambda, std::vector<T>& root) {
    lambda.clear();
    root.clear();
    const unsigned n = M.n();
    if (M.m() != n || n == 0) return;
    bool finite = true;
    for (unsigned k = 0; k < M.size(); ++k) finite = finite && std::isfinite(M.getBase()[k]);
    Cmatrix<T> A(M);
    Cmatrix<T> V;
    if (finite) {
        try {
            CmatrixCalc<T>::getEigenvalue(A, V);
        } catch (int) {
            finite = false;  // no convergence within the sweep limit
        }
    }
    if (!finite) {
        for (unsigned k = 0; k < M.size(); ++k) M.getBase()[k] = quietNaN<T>();
        lambda.assign(n, quietNaN<T>());
        root.assign(n, quietNaN<T>());
        return;
    }
    lambda.resize(n);
    root.resize(n);
    for (unsigned k = 0; k < n; ++k) {
        lambda[k] = A(k, k);
        root[k] = std::sqrt(std::fabs(lambda[k]));
        const T* vk = V.getRow(k);
        T* sk = M.getRow(k);
        for (unsigned j = 0; j < n; ++j) sk[j] = root[k] * vk[j];
    }
}

template class BasicAlgo<float>;
template class BasicAlgo<double>;

}  // namespace math
