// BasicAlgo<T>: robust location estimates (medians, trimmed mean), outlier
// removal about a reference, the mean, Horner evaluation and deflation of
// polynomials, real roots of polynomials, the quadratic formula in real and
// complex form, the law of cosines, and two helpers on 3×3 quadratic forms.
// Exported for float and double.  Static functions only; nothing throws.
//
// A polynomial is a vector of coefficients, highest power first:
//   c[0]·x^m + c[1]·x^(m−1) + … + c[m]   (m + 1 entries).
//
// Orderings: every sort and selection here orders NaN after all numbers
// (numbers ascending, then the NaNs), so NaN input never breaks a selection.
//
// Usage:
//   std::vector<double> v{4, 1, 3, 2};
//   double lo  = math::BasicAlgo<double>::median(v);      // 2   (lower middle, v untouched)
//   double mid = math::BasicAlgo<double>::stdmedian(v);   // 2.5 (sorts v)
//   std::vector<double> p{1, -6, 11, -6};                  // (x−1)(x−2)(x−3)
//   double r = math::BasicAlgo<double>::evalNewtonRoot(p, 2.4);
//   math::BasicAlgo<double>::divPoly(p, r);                // p: the quadratic left
#ifndef MATH_BASIC_ALGO_H
#define MATH_BASIC_ALGO_H

#include <math/export.h>
#include <math/matrix.h>

#include <complex>
#include <list>
#include <utility>
#include <vector>

namespace math {

template <class T>
class METROMATH_API BasicAlgo {
public:
    typedef std::pair<double, double> Troots;
    typedef std::pair<std::complex<double>, std::complex<double>> TcomplexRoots;

    // --- location estimates ------------------------------------------------

    // k-th smallest value (1-based) of v in the NaN-last order; v is not
    // reordered (the selection works on a copy, iteratively).  −1 (not NaN)
    // when v is empty or when there is no k-th value (k = 0 or k > size).
    static T median(std::vector<T>& v, unsigned k);
    static T median(std::list<T>& v, unsigned k);
    // median(copy, (n + 1) / 2): for an even count the LOWER of the two middle
    // values, not their mean (unlike stdmedian); −1 when empty.
    static T median(std::vector<T> const& v);
    static T median(std::list<T> const& v);
    // Sorts v in place (NaN last); v[n/2] for odd n, (v[n/2 − 1] + v[n/2])·0.5
    // for even n.  Quiet NaN when empty.
    static T stdmedian(std::vector<T>& v);
    // Trimmed mean: while more than 3 values remain, remove the value farthest
    // from the current stdmedian (as rmGreatestDiv does); then the mean of the
    // 3 (or 2, or the 1) left.  0 when empty.  With more than 3 values v ends
    // sorted (NaN last) holding the 3 survivors; with 3 or fewer it is not
    // touched and summed in its own order.  O(n log n): sorted once, each
    // removal then takes the front or the last number of the window.
    static T medianmittel(std::vector<T>& v);
    // Erase and return the first value with the strictly greatest |v[i] − ref|
    // (the search starts from deviation 0 at index 0, so with all deviations 0
    // or NaN the first value goes).  The others keep their order.  Quiet NaN,
    // nothing removed, when v is empty.
    static T rmGreatestDiv(std::vector<T>& v, T ref);
    // Erase and return the first value with the strictly smallest |v[i] − ref|
    // (the search starts from the largest finite T at index 0).  Quiet NaN,
    // nothing removed, when v is empty.
    static T rmSmallestDiv(std::vector<T>& v, T ref);
    // Sum in T, in order, divided by the count: an empty v gives 0/0 = NaN.
    static T average(std::vector<T> const& v);

    // --- polynomials ---------------------------------------------------------

    // Horner: y = 0; y = (c[i] + y)·x for every coefficient but the last;
    // y += c[m].  Empty c: y = quiet NaN.
    static void evalPoly(std::vector<T> const& c, T x, T& y);
    // Value and first derivative in one pass over all coefficients but the
    // last: with k counting down from m, dy = (c[i]·k + dy)·x while k > 1 and
    // dy = c[i] + dy for k = 1.  A constant gives dy = 0; empty c: y = dy =
    // quiet NaN.
    static void evalPoly(std::vector<T> const& c, T x, T& y, T& dy);
    // Synthetic division by (x − r) in place; the remainder is dropped, so c
    // becomes the quotient (one entry shorter).  Empty c stays empty.
    static void divPoly(std::vector<T>& c, T const& r);
    // One real root near x0.
    //  fewer than 2 coefficients: quiet NaN;  linear: −c1/c0 (c0 = 0: quiet NaN);
    //  quadratic: solveQuad2(c).first (the larger real root, or NaN);
    //  degree ≥ 3: bracketing from f0 = P(x0) with widths h = 1.6, 2.56,
    //  6.5536, … (h squared each round): [x0, x0 + h] if P(x0 + h)·f0 < 0, else
    //  [x0 − h, x0] if P(x0 − h)·f0 < 0; when h exceeds √(max T) without such a
    //  sign change (also when f0 is 0 or NaN) the result is a SIGNALLING NaN.
    //  Then safeguarded Newton from the bracket's midpoint: a Newton step is
    //  taken when finite and strictly inside the bracket (its end of the same
    //  sign moves there), otherwise the bracket is bisected and the estimate
    //  moves to the midpoint of the kept half.  Ends when |x_prev − x_new|
    //  passes the 2^-15 comparison against 0, when a trial value is exactly 0
    //  (that point), when the bracket cannot shrink any more (the estimate),
    //  or with quiet NaN when the polynomial is not finite at a trial point.
    //  After 100 Newton steps only bisection is used, so the loop is bounded
    //  (about 2100 steps at most for double).
    static T evalNewtonRoot(std::vector<T> const& c, T x0);

    // --- quadratics a·x² + b·x + c = {a, b, c}; computed in T, then widened --

    // Real roots, larger first: p = b/a, D = p²·0.25 − c/a, (−p·0.5 ± √D).
    // Not exactly 3 coefficients: (0, 0).  a = 0: −c/b twice, or NaN twice
    // when b = 0 too.  D < 0: NaN twice.
    static Troots solveQuad2(std::vector<T> const& c);
    // Complex roots: as solveQuad2, but D < 0 gives (−p·0.5) ± √|D|·i, and
    // a = 0 gives −c/b twice WITHOUT checking b (b = 0: inf or NaN).  Not
    // exactly 3 coefficients: 0 + 0i twice.
    static TcomplexRoots solveQuad(std::vector<T> const& c);
    // Cosine of the angle opposite side a: (c² + b² − a²) / ((b + b)·c).  No
    // check of b or c being 0.
    static T cosALP(T a, T b, T c);

    // --- quadratic forms ----------------------------------------------------

    // Roots t of Q(p) = pᵀ·M·p = 0 along p = (1, t, v0 + v1·t) for a symmetric
    // 3×3 M (its upper triangle is read; a larger M: its top-left 3×3):
    //   a = M11 + 2·M12·v1 + M22·v1²,
    //   b = 2·(M01 + M02·v1 + M12·v0 + M22·v0·v1),
    //   c = M00 + 2·M02·v0 + M22·v0²,
    // res = solveQuad({a, b, c}).  M smaller than 3×3 or fewer than 2 values
    // in v: both roots 0 + 0i.
    static void IntersectEqu(Cmatrix<T>& M, std::vector<T>& v, TcomplexRoots& res);
    // Square-root split of a symmetric M (decomposed by
    // CmatrixCalc<T>::getEigenvalue, eigenvalues by decreasing |λ|):
    //   lambda[k] = λk,  root[k] = √|λk|,  M ← S = diag(root)·V
    // (row k of V: unit eigenvector of λk), so that the old M equals
    // Sᵀ·diag(sign λ)·S: row k of S is the eigenvector scaled to √|λk|.
    // M not square or empty: M unchanged, lambda and root cleared.  A
    // non-finite entry (or a decomposition that does not converge): M filled
    // with quiet NaN, lambda and root n quiet NaNs each.
    static void RotateEqu(Cmatrix<T>& M, std::vector<T>& lambda, std::vector<T>& root);
};

extern template class BasicAlgo<float>;
extern template class BasicAlgo<double>;

}  // namespace math

#endif
