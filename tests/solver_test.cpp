// Tests of the equation solvers: frame, Gauss-Jordan, LU, SVD.
#include <math/errors.h>
#include <math/matrix_calc.h>
#include <math/solver.h>

#include <gtest/gtest.h>

#include <Eigen/Dense>

#include <chrono>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

using math::Cmatrix;

namespace {

template <class T>
Cmatrix<T> randomMatrix(unsigned m, unsigned n, std::mt19937& rng, double lo = -1, double hi = 1) {
    std::uniform_real_distribution<double> u(lo, hi);
    Cmatrix<T> a(m, n);
    for (T& x : a) x = static_cast<T>(u(rng));
    return a;
}

template <class T>
Cmatrix<T> fromRows(unsigned m, unsigned n, std::vector<double> const& v) {
    Cmatrix<T> a(m, n);
    for (unsigned k = 0; k < m * n; ++k) a.getBase()[k] = static_cast<T>(v[k]);
    return a;
}

Eigen::MatrixXd toEigen(Cmatrix<double> const& a) {
    Eigen::MatrixXd e(a.m(), a.n());
    for (unsigned i = 0; i < a.m(); ++i)
        for (unsigned j = 0; j < a.n(); ++j) e(i, j) = a(i, j);
    return e;
}

Cmatrix<double> hilbert(unsigned n) {
    Cmatrix<double> h(n, n);
    for (unsigned i = 0; i < n; ++i)
        for (unsigned j = 0; j < n; ++j) h(i, j) = 1.0 / (i + j + 1);
    return h;
}

// Max-norm of a matrix (as double).
template <class T>
double maxAbs(Cmatrix<T> const& a) {
    double m = 0;
    for (T x : a) m = std::max(m, std::fabs(static_cast<double>(x)));
    return m;
}

// Normwise backward error |A·x − b|∞ / (|A|∞·|x|∞ + |b|∞) of a computed
// solution, evaluated in long double.
template <class T>
long double backwardError(Cmatrix<T> const& A, Cmatrix<T> const& X, Cmatrix<T> const& B) {
    long double rmax = 0, anorm = 0, xnorm = 0, bnorm = 0;
    for (unsigned i = 0; i < A.m(); ++i) {
        long double rs = 0;
        for (unsigned j = 0; j < A.n(); ++j) rs += std::fabs(static_cast<long double>(A(i, j)));
        anorm = std::max(anorm, rs);
    }
    for (unsigned c = 0; c < B.n(); ++c) {
        long double xs = 0;
        for (unsigned i = 0; i < X.m(); ++i) xs = std::max(xs, std::fabs(static_cast<long double>(X(i, c))));
        xnorm = std::max(xnorm, xs);
        for (unsigned i = 0; i < A.m(); ++i) {
            long double r = B(i, c);
            for (unsigned k = 0; k < A.n(); ++k) r -= static_cast<long double>(A(i, k)) * X(k, c);
            rmax = std::max(rmax, std::fabs(r));
            bnorm = std::max(bnorm, std::fabs(static_cast<long double>(B(i, c))));
        }
    }
    return rmax / (anorm * xnorm + bnorm);
}

// Expects a CthrowMath with the given id from f().
template <class F>
void expectMathError(F f, int id) {
    try {
        f();
        ADD_FAILURE() << "no exception, expected id " << id;
    } catch (CthrowMath const& e) {
        EXPECT_EQ(e.id(), id);
        EXPECT_EQ(e.info(), "");
        EXPECT_TRUE(e.arguments().empty());
    } catch (...) {
        ADD_FAILURE() << "wrong exception type, expected CthrowMath id " << id;
    }
}

// Exposes the protected parts of the frame for the tests.
template <class T>
struct OpenFrame : math::Csolver_le<T> {
    using math::Csolver_le<T>::Csolver_le;
    bool changed() const { return this->m_matrixChanged; }
    bool rhsSet() const { return this->m_rhsSet; }
    Cmatrix<T> const& A() const { return this->m_A; }
    Cmatrix<T> const& B() const { return this->m_B; }
};

template <class T>
struct OpenLU : math::Csolver_luDecomp<T> {
    using math::Csolver_luDecomp<T>::Csolver_luDecomp;
    Cmatrix<T> const& A() const { return this->m_A; }
    void crout2() { this->doCrout2(); }
};

// Crout's decomposition in its classic column-by-column form, literally as
// the library documents it, and its substitution: the reference for the
// bit-identity of the row-oriented implementation.
template <class T>
void referenceCrout(Cmatrix<T>& A, std::vector<int>& perm, T& d) {
    const unsigned n = A.n();
    std::vector<T> scale(n);
    for (unsigned i = 0; i < n; ++i) {
        T big = 0;
        for (unsigned j = 0; j < n; ++j)
            if (std::fabs(A(i, j)) > big) big = std::fabs(A(i, j));
        scale[i] = T(1) / big;
    }
    perm.assign(n, 0);
    d = 1;
    for (unsigned j = 0; j < n; ++j) {
        for (unsigned i = 0; i < j; ++i) {
            T s = A(i, j);
            for (unsigned k = 0; k < i; ++k) s -= A(i, k) * A(k, j);
            A(i, j) = s;
        }
        T big = 0;
        unsigned imax = j;
        for (unsigned i = j; i < n; ++i) {
            T s = A(i, j);
            for (unsigned k = 0; k < j; ++k) s -= A(i, k) * A(k, j);
            A(i, j) = s;
            const T t = scale[i] * std::fabs(s);
            if (t >= big) {
                big = t;
                imax = i;
            }
        }
        if (imax != j) {
            for (unsigned k = 0; k < n; ++k) std::swap(A(imax, k), A(j, k));
            d = -d;
        }
        perm[j] = static_cast<int>(imax);
        if (A(j, j) == T(0x1p-52)) A(j, j) = 0;
        for (unsigned i = j + 1; i < n; ++i) A(i, j) = A(i, j) * (T(1) / A(j, j));
    }
}

// Gauss-Jordan with full pivoting literally as documented (single pass
// pivot search): the reference for the two-pass search of the library.
template <class T>
Cmatrix<T> referenceGaussJordan(Cmatrix<T> A, Cmatrix<T> B) {
    const unsigned n = A.n(), k = B.n();
    std::vector<int> indxr(n, 0), indxc(n, 0), ipiv(n, 0);
    unsigned irow = 0, icol = 0;
    for (unsigned i = 0; i < n; ++i) {
        T big = 0;
        for (unsigned j = 0; j < n; ++j)
            if (ipiv[j] != 1)
                for (unsigned c = 0; c < n; ++c)
                    if (ipiv[c] == 0 && std::fabs(A(j, c)) >= big) {
                        big = std::fabs(A(j, c));
                        irow = j;
                        icol = c;
                    }
        ++ipiv[icol];
        if (irow != icol) {
            for (unsigned c = 0; c < n; ++c) std::swap(A(irow, c), A(icol, c));
            for (unsigned c = 0; c < k; ++c) std::swap(B(irow, c), B(icol, c));
        }
        indxr[i] = static_cast<int>(irow);
        indxc[i] = static_cast<int>(icol);
        if (A(icol, icol) == 0) throw 1;
        const T inv = T(1) / A(icol, icol);
        A(icol, icol) = 1;
        for (unsigned c = 0; c < n; ++c) A(icol, c) *= inv;
        for (unsigned c = 0; c < k; ++c) B(icol, c) *= inv;
        for (unsigned r = 0; r < n; ++r)
            if (r != icol) {
                const T d = A(r, icol);
                A(r, icol) = 0;
                for (unsigned c = 0; c < n; ++c) A(r, c) -= A(icol, c) * d;
                for (unsigned c = 0; c < k; ++c) B(r, c) -= B(icol, c) * d;
            }
    }
    return B;
}

}  // namespace

template <class T>
class SolverTyped : public ::testing::Test {};
using Scalars = ::testing::Types<float, double>;
TYPED_TEST_SUITE(SolverTyped, Scalars);

// ---------------------------------------------------------------------------
// Frame
// ---------------------------------------------------------------------------

TYPED_TEST(SolverTyped, FrameFlagsStorageAndNotImplemented) {
    using T = TypeParam;
    Cmatrix<T> A = fromRows<T>(2, 2, {1, 2, 3, 4});
    OpenFrame<T> f(A);
    EXPECT_TRUE(f.changed());
    EXPECT_FALSE(f.rhsSet());
    EXPECT_EQ(f.B().size(), 0u);
    EXPECT_EQ(f.A()(1, 0), T(3));
    EXPECT_EQ(A.size(), 4u);  // the matrix constructors copy

    // The frame cannot solve: init() and subsolve() are not implemented.
    expectMathError([&] { f.solve(std::vector<T>{1, 2}); }, CthrowMath::ERR_MATH_FUNCNOTIMPL);
    EXPECT_TRUE(f.rhsSet());
    expectMathError([&] { f.setMatrix(A); }, CthrowMath::ERR_MATH_FUNCNOTIMPL);
    expectMathError([&] { f.invert(); }, CthrowMath::ERR_MATH_FUNCNOTIMPL);
    EXPECT_EQ(f.B().m(), 2u);  // invert() set up the identity first
    EXPECT_EQ(f.B()(1, 1), T(1));
    EXPECT_EQ(f.B()(0, 1), T(0));

    // setMatrix(Cmatrix&) swaps: the caller receives the previous matrix.
    math::Csolver_luDecomp<T> lu;
    Cmatrix<T> first = fromRows<T>(2, 2, {2, 0, 0, 4});
    lu.setMatrix(first);
    EXPECT_EQ(first.size(), 0u);  // the empty initial matrix came back
    Cmatrix<T> second = fromRows<T>(3, 3, {1, 0, 0, 0, 1, 0, 0, 0, 1});
    lu.setMatrix(second);
    EXPECT_EQ(second.m(), 2u);  // the (decomposed) 2×2 came back
    // solve(Cmatrix&) swaps B in: the caller receives the previous right-hand side.
    Cmatrix<T> b1 = fromRows<T>(3, 1, {1, 2, 3});
    Cmatrix<T> x1 = lu.solve(b1);
    EXPECT_EQ(b1.size(), 0u);
    Cmatrix<T> b2 = fromRows<T>(3, 1, {4, 5, 6});
    lu.solve(b2);
    EXPECT_EQ(b2(2, 0), T(3));  // the previous solution
    EXPECT_EQ(x1(1, 0), T(2));
    // The empty vector gives an empty right-hand side: invalid for n = 3.
    expectMathError([&] { lu.solve(std::vector<T>{}); }, CthrowMath::ERR_MATH_INVALID_ARGUMENT);
}

TYPED_TEST(SolverTyped, DeviationAndSolveItr) {
    using T = TypeParam;
    math::Csolver_GaussJordan<T> gj;
    // 1×1: 2·x = 4 with x = 1 leaves the residual 2, squared 4.
    EXPECT_EQ(gj.deviation(fromRows<T>(1, 1, {2}), fromRows<T>(1, 1, {1}), fromRows<T>(1, 1, {4})), T(4));
    Cmatrix<T> A = fromRows<T>(2, 2, {3, 1, 1, 2});
    Cmatrix<T> X = fromRows<T>(2, 1, {1, 2});
    EXPECT_EQ(gj.deviation(A, X, A * X), T(0));
    // Shapes that do not fit give NaN rather than reading out of range.
    EXPECT_TRUE(std::isnan(gj.deviation(A, fromRows<T>(3, 1, {1, 2, 3}), X)));

    // Iterative refinement never ends worse than the first solution.
    std::mt19937 rng(7);
    for (int trial = 0; trial < 40; ++trial) {
        const unsigned n = 2 + trial % 9;
        Cmatrix<T> M = randomMatrix<T>(n, n, rng);
        const Cmatrix<T> B = randomMatrix<T>(n, 2, rng);
        math::Csolver_luDecomp<T> lu(M);
        const Cmatrix<T> first = lu.solve(B);
        const T d0 = math::CmatrixCalc<T>::dif(M * first, B);
        const Cmatrix<T> refined = lu.solveItr(M, B);
        const T d1 = math::CmatrixCalc<T>::dif(M * refined, B);
        EXPECT_LE(d1, d0) << "n = " << n;
        math::Csolver_GaussJordan<T> g(M);
        const Cmatrix<T> gfirst = g.solve(B);
        const Cmatrix<T> grefined = g.solveItr(M, B);
        EXPECT_LE(math::CmatrixCalc<T>::dif(M * grefined, B), math::CmatrixCalc<T>::dif(M * gfirst, B));
    }
    math::Csolver_luDecomp<T> lu(A);
    expectMathError([&] { lu.solveItr(fromRows<T>(3, 3, {1, 0, 0, 0, 1, 0, 0, 0, 1}), X); },
                    CthrowMath::ERR_MATH_INVALID_ARGUMENT);
}

// ---------------------------------------------------------------------------
// Gauss-Jordan
// ---------------------------------------------------------------------------

TYPED_TEST(SolverTyped, GaussJordanCases) {
    using T = TypeParam;
    // A zero on the diagonal is handled by pivoting.
    math::Csolver_GaussJordan<T> gj(fromRows<T>(2, 2, {0, 1, 1, 0}));
    Cmatrix<T> x = gj.solve(std::vector<T>{2, 3});
    ASSERT_EQ(x.m(), 2u);
    ASSERT_EQ(x.n(), 1u);
    EXPECT_EQ(x(0, 0), T(3));
    EXPECT_EQ(x(1, 0), T(2));

    // Two equal rows: exactly zero pivot.
    math::Csolver_GaussJordan<T> sing(fromRows<T>(3, 3, {1, 2, 3, 1, 2, 3, 0, 1, 5}));
    expectMathError([&] { sing.solve(std::vector<T>{1, 2, 3}); }, CthrowMath::ERR_SOLVE_MATRIXSINGULAR);
    // ... and the solver is usable again afterwards with another matrix.
    sing.setMatrix(fromRows<T>(2, 2, {2, 0, 0, 4}));
    x = sing.solve(std::vector<T>{2, 2});
    EXPECT_EQ(x(1, 0), T(0.5));

    // A tiny but non-zero pivot is solved without complaint.
    const T tiny = std::is_same<T, float>::value ? T(0x1p-120) : T(0x1p-1000);
    math::Csolver_GaussJordan<T> near(fromRows<T>(2, 2, {1, 1, 1, 1}));
    Cmatrix<T> nm = fromRows<T>(2, 2, {1, 1, 1, 1});
    nm(1, 1) = T(1) + std::numeric_limits<T>::epsilon();
    near.setMatrix(nm);
    EXPECT_NO_THROW(near.solve(std::vector<T>{1, 2}));
    math::Csolver_GaussJordan<T> small(fromRows<T>(1, 1, {0}));
    Cmatrix<T> sm(1, 1, tiny);
    small.setMatrix(sm);
    EXPECT_EQ(small.solve(std::vector<T>{tiny})(0, 0), T(1));

    // Not square: reported at the first solve, not at setMatrix.
    math::Csolver_GaussJordan<T> rect;
    EXPECT_NO_THROW(rect.setMatrix(fromRows<T>(2, 3, {1, 2, 3, 4, 5, 6})));
    expectMathError([&] { rect.solve(std::vector<T>{1, 2}); }, CthrowMath::ERR_MATRIX_NOTSQUARE);
    // Wrong right-hand side.
    expectMathError([&] { gj.solve(std::vector<T>{1, 2, 3}); }, CthrowMath::ERR_MATH_INVALID_ARGUMENT);

    // The inverse of a rotation is its transpose.
    Cmatrix<T> R;
    math::CmatrixCalc<T>::ArcToRotXYZ(T(0.3), T(-0.7), T(1.2), R);
    math::Csolver_GaussJordan<T> rot(R);
    const Cmatrix<T> inv = rot.invert();
    const double tol = std::is_same<T, float>::value ? 1e-6 : 1e-15;
    for (unsigned i = 0; i < 3; ++i)
        for (unsigned j = 0; j < 3; ++j) EXPECT_NEAR(inv(i, j), R(j, i), tol);
}

TYPED_TEST(SolverTyped, GaussJordanRepeatedSolvesAndPivotOrder) {
    using T = TypeParam;
    std::mt19937 rng(11);
    Cmatrix<T> A = randomMatrix<T>(5, 5, rng);
    const Cmatrix<T> b1 = randomMatrix<T>(5, 1, rng);
    const Cmatrix<T> b2 = randomMatrix<T>(5, 3, rng);
    math::Csolver_GaussJordan<T> s(A);
    const Cmatrix<T> x1 = s.solve(b1);
    const Cmatrix<T> x2 = s.solve(b2);
    math::Csolver_GaussJordan<T> f1(A), f2(A);
    const Cmatrix<T> y1 = f1.solve(b1);
    const Cmatrix<T> y2 = f2.solve(b2);
    for (unsigned k = 0; k < x1.size(); ++k) EXPECT_EQ(x1.getBase()[k], y1.getBase()[k]);
    for (unsigned k = 0; k < x2.size(); ++k) EXPECT_EQ(x2.getBase()[k], y2.getBase()[k]);
    // A copy of the solver solves alike.
    math::Csolver_GaussJordan<T> copy(s);
    const Cmatrix<T> x3 = copy.solve(b1);
    for (unsigned k = 0; k < x1.size(); ++k) EXPECT_EQ(x1.getBase()[k], x3.getBase()[k]);

    // Full pivoting with ">=": among equal magnitudes the last wins.  With all
    // entries of magnitude 1 the first pivot is (2, 2); the result is still
    // the exact solution.
    math::Csolver_GaussJordan<T> ties(fromRows<T>(3, 3, {1, 1, -1, 1, -1, 1, -1, 1, 1}));
    const Cmatrix<T> xt = ties.solve(std::vector<T>{1, 1, 1});
    for (unsigned i = 0; i < 3; ++i) EXPECT_EQ(xt(i, 0), T(1));
}

TYPED_TEST(SolverTyped, GaussJordanBitIdenticalToSinglePassPivotSearch) {
    using T = TypeParam;
    std::mt19937 rng(23);
    std::uniform_int_distribution<int> small(-2, 2);
    for (int trial = 0; trial < 66; ++trial) {
        const unsigned n = trial < 60 ? 1 + trial % 13 : (trial % 2 ? 16 : 21);
        Cmatrix<T> A = randomMatrix<T>(n, n, rng);
        if (trial % 3 == 1)  // small integers: many ties of the largest magnitude
            for (T& x : A) x = T(small(rng));
        if (trial % 5 == 2 && n > 2) A(1, 2) = std::numeric_limits<T>::infinity();
        const Cmatrix<T> B = randomMatrix<T>(n, 2, rng);
        bool refSingular = false;
        Cmatrix<T> ref;
        try {
            ref = referenceGaussJordan(A, B);
        } catch (int) {
            refSingular = true;
        }
        math::Csolver_GaussJordan<T> gj(A);
        if (refSingular) {
            expectMathError([&] { gj.solve(B); }, CthrowMath::ERR_SOLVE_MATRIXSINGULAR);
            continue;
        }
        const Cmatrix<T> x = gj.solve(B);
        for (unsigned e = 0; e < x.size(); ++e) {
            const T a = x.getBase()[e], r = ref.getBase()[e];
            if (std::isnan(r)) {
                EXPECT_TRUE(std::isnan(a));
            } else {
                EXPECT_EQ(a, r) << "n = " << n << " trial " << trial;
            }
        }
    }
}

TEST(SolverDouble, GaussJordanAndLuBackwardErrors) {
    // Backward errors near machine precision (a small multiple of 2^-52
    // allows for the growth of n-term sums) on random and graded systems.
    std::mt19937 rng(3);
    for (unsigned n : {2u, 3u, 4u, 6u, 10u, 20u, 50u}) {
        for (int trial = 0; trial < 5; ++trial) {
            Cmatrix<double> A = randomMatrix<double>(n, n, rng);
            if (trial == 4)  // badly scaled rows
                for (unsigned i = 0; i < n; ++i)
                    for (unsigned j = 0; j < n; ++j) A(i, j) *= std::pow(10.0, static_cast<int>(i % 7) - 3);
            const Cmatrix<double> B = randomMatrix<double>(n, 3, rng);
            math::Csolver_GaussJordan<double> gj(A);
            math::Csolver_luDecomp<double> lu(A);
            const Cmatrix<double> xg = gj.solve(B);
            const Cmatrix<double> xl = lu.solve(B);
            EXPECT_LT(backwardError(A, xg, B), 8.0L * n * 0x1p-52) << "GJ n = " << n;
            EXPECT_LT(backwardError(A, xl, B), 8.0L * n * 0x1p-52) << "LU n = " << n;
            // Both inverses agree with Eigen's.
            const Eigen::MatrixXd ei = toEigen(A).inverse();
            const Cmatrix<double> gi = gj.invert();
            const Cmatrix<double> li = lu.invert();
            const double scale = ei.cwiseAbs().maxCoeff();
            const double cond = toEigen(A).norm() * ei.norm();
            for (unsigned i = 0; i < n; ++i)
                for (unsigned j = 0; j < n; ++j) {
                    EXPECT_NEAR(gi(i, j), ei(i, j), cond * 1e-14 * scale);
                    EXPECT_NEAR(li(i, j), ei(i, j), cond * 1e-14 * scale);
                }
        }
    }
}

// ---------------------------------------------------------------------------
// LU
// ---------------------------------------------------------------------------

TYPED_TEST(SolverTyped, LuCases) {
    using T = TypeParam;
    // One row exchange: determinant −1.
    math::Csolver_luDecomp<T> swap;
    swap.setMatrix(fromRows<T>(2, 2, {0, 1, 1, 0}));
    EXPECT_EQ(swap.getDet(), T(-1));
    const Cmatrix<T> xs = swap.solve(std::vector<T>{2, 3});
    EXPECT_EQ(xs(0, 0), T(3));
    EXPECT_EQ(xs(1, 0), T(2));

    math::Csolver_luDecomp<T> id(fromRows<T>(3, 3, {1, 0, 0, 0, 1, 0, 0, 0, 1}));
    EXPECT_EQ(id.getDet(), T(1));  // decomposes on demand
    math::Csolver_luDecomp<T> diag;
    diag.setMatrix(fromRows<T>(3, 3, {2, 0, 0, 0, -3, 0, 0, 0, 0.5}));
    EXPECT_EQ(diag.getDet(), T(-3));

    // A zero row is singular, reported by setMatrix before any solve.
    math::Csolver_luDecomp<T> zero;
    expectMathError([&] { zero.setMatrix(fromRows<T>(2, 2, {1, 2, 0, 0})); }, CthrowMath::ERR_SOLVE_MATRIXSINGULAR);
    // Constructed over it, the first solve reports it (again at every solve).
    math::Csolver_luDecomp<T> zc(fromRows<T>(2, 2, {1, 2, 0, 0}));
    expectMathError([&] { zc.solve(std::vector<T>{1, 1}); }, CthrowMath::ERR_SOLVE_MATRIXSINGULAR);
    expectMathError([&] { zc.solve(std::vector<T>{1, 1}); }, CthrowMath::ERR_SOLVE_MATRIXSINGULAR);

    // Two equal non-zero rows: decomposed without complaint, non-finite solution.
    math::Csolver_luDecomp<T> eq;
    EXPECT_NO_THROW(eq.setMatrix(fromRows<T>(3, 3, {1, 2, 3, 1, 2, 3, 4, 0, 1})));
    const Cmatrix<T> xe = eq.solve(std::vector<T>{1, 1, 1});
    bool nonFinite = false;
    for (T v : xe) nonFinite = nonFinite || !std::isfinite(v);
    EXPECT_TRUE(nonFinite);

    // Not square: at setMatrix already (init checks).
    math::Csolver_luDecomp<T> rect;
    expectMathError([&] { rect.setMatrix(fromRows<T>(2, 3, {1, 2, 3, 4, 5, 6})); }, CthrowMath::ERR_MATRIX_NOTSQUARE);
    expectMathError([&] { swap.solve(std::vector<T>{1, 2, 3}); }, CthrowMath::ERR_MATH_INVALID_ARGUMENT);

    // Leading zeros of the right-hand side: same as full forward substitution.
    std::mt19937 rng(5);
    Cmatrix<T> A = randomMatrix<T>(6, 6, rng);
    math::Csolver_luDecomp<T> lu(A);
    Cmatrix<T> b = randomMatrix<T>(6, 1, rng);
    b(0, 0) = 0;
    b(1, 0) = 0;
    b(2, 0) = 0;
    const Cmatrix<T> x = lu.solve(static_cast<Cmatrix<T> const&>(b));
    math::Csolver_GaussJordan<T> gj(A);
    const Cmatrix<T> xg = gj.solve(b);
    for (unsigned i = 0; i < 6; ++i) EXPECT_NEAR(x(i, 0), xg(i, 0), (std::is_same<T, float>::value ? 1e-3 : 1e-11));
}

TYPED_TEST(SolverTyped, LuBitIdenticalToColumnCrout) {
    using T = TypeParam;
    std::mt19937 rng(17);
    for (int trial = 0; trial < 30; ++trial) {
        const unsigned n = 1 + trial % 12;
        Cmatrix<T> A = randomMatrix<T>(n, n, rng);
        if (trial % 3 == 0)  // ties in the pivot search
            for (unsigned j = 0; j < n; ++j) A(n - 1, j) = A(0, j);
        Cmatrix<T> ref = A;
        std::vector<int> perm;
        T d;
        referenceCrout(ref, perm, d);
        OpenLU<T> lu;
        lu.setMatrix(A);
        for (unsigned k = 0; k < A.size(); ++k) {
            const T a = lu.A().getBase()[k], r = ref.getBase()[k];
            if (std::isnan(r)) {
                EXPECT_TRUE(std::isnan(a));
            } else {
                EXPECT_EQ(a, r) << "n = " << n << " element " << k;
            }
        }
        T det = 1;
        for (unsigned i = 0; i < n; ++i) det *= ref(i, i);
        const T got = lu.getDet();
        if (!std::isnan(det)) {
            EXPECT_EQ(got, det * d);
        }
    }
}

TYPED_TEST(SolverTyped, LuDoCrout2) {
    using T = TypeParam;
    // Without pivoting: L·U reproduces A; a zero pivot throws.
    Cmatrix<T> A = fromRows<T>(3, 3, {4, 3, 2, 2, 5, 1, 1, 2, 6});
    OpenLU<T> lu(A);
    lu.crout2();
    const Cmatrix<T>& F = lu.A();
    for (unsigned i = 0; i < 3; ++i)
        for (unsigned j = 0; j < 3; ++j) {
            T s = 0;
            for (unsigned k = 0; k <= std::min(i, j); ++k) s += (k == i ? T(1) : F(i, k)) * F(k, j);
            EXPECT_NEAR(s, A(i, j), 1e-5);
        }
    OpenLU<T> z(fromRows<T>(2, 2, {0, 1, 1, 0}));
    expectMathError([&] { z.crout2(); }, CthrowMath::ERR_SOLVE_MATRIXSINGULAR);
}

// ---------------------------------------------------------------------------
// SVD
// ---------------------------------------------------------------------------

namespace {

// Checks A = U·diag(w)·Vᵀ, orthonormal columns of U and V, decreasing w, and
// the singular values against Eigen's JacobiSVD to relTol·w_max.
void checkSvd(Cmatrix<double> const& A, double relTol, char const* what) {
    math::Csolver_svd<double> svd(A);
    const std::vector<double> w = svd.getSingularValues();
    const Cmatrix<double> U = svd.getU();
    const Cmatrix<double> V = svd.getV();
    const unsigned r = std::min(A.m(), A.n());
    ASSERT_EQ(w.size(), r);
    ASSERT_EQ(U.m(), A.m());
    ASSERT_EQ(U.n(), r);
    ASSERT_EQ(V.m(), A.n());
    ASSERT_EQ(V.n(), r);
    const Eigen::JacobiSVD<Eigen::MatrixXd> ref(toEigen(A));
    const double wmax = ref.singularValues()(0);
    for (unsigned k = 0; k < r; ++k) {
        EXPECT_NEAR(w[k], ref.singularValues()(k), relTol * wmax) << what << " k = " << k;
        if (k) {
            EXPECT_LE(w[k], w[k - 1]);
        }
    }
    const Eigen::MatrixXd Ue = toEigen(U), Ve = toEigen(V);
    const Eigen::MatrixXd I = Eigen::MatrixXd::Identity(r, r);
    EXPECT_LT((Ue.transpose() * Ue - I).cwiseAbs().maxCoeff(), 1e-13) << what;
    EXPECT_LT((Ve.transpose() * Ve - I).cwiseAbs().maxCoeff(), 1e-13) << what;
    Eigen::VectorXd we(r);
    for (unsigned k = 0; k < r; ++k) we(k) = w[k];
    const Eigen::MatrixXd rec = Ue * we.asDiagonal() * Ve.transpose();
    EXPECT_LT((rec - toEigen(A)).cwiseAbs().maxCoeff(), 1e-13 * std::max(wmax, 1e-300)) << what;
}

}  // namespace

TEST(SolverDouble, SvdAgainstEigen) {
    std::mt19937 rng(2024);
    // Random square and tall and wide matrices.  Singular values to 1e-13
    // relative to the largest (their conditioning is normwise).
    for (unsigned n = 1; n <= 12; ++n) checkSvd(randomMatrix<double>(n, n, rng), 1e-13, "random square");
    // Relative to each value for well-conditioned matrices (diagonally
    // dominant: every singular value within a factor of ~10 of the largest).
    for (unsigned n = 2; n <= 10; ++n) {
        Cmatrix<double> A = randomMatrix<double>(n, n, rng);
        for (unsigned i = 0; i < n; ++i) A(i, i) += 2.0 * n;
        math::Csolver_svd<double> svd(A);
        const Eigen::JacobiSVD<Eigen::MatrixXd> ref(toEigen(A));
        for (unsigned k = 0; k < n; ++k)
            EXPECT_NEAR(svd.getSingularValues()[k], ref.singularValues()(k), 1e-13 * ref.singularValues()(k));
    }
    checkSvd(randomMatrix<double>(50, 50, rng), 1e-13, "random 50");
    for (unsigned n = 1; n <= 8; ++n) checkSvd(randomMatrix<double>(n + 5, n, rng), 1e-13, "random tall");
    for (unsigned n = 1; n <= 6; ++n) checkSvd(randomMatrix<double>(n, n + 3, rng), 1e-13, "random wide");
    // Hilbert matrices up to n = 12 (condition up to ~1.7e16).
    for (unsigned n = 2; n <= 12; ++n) checkSvd(hilbert(n), 1e-13, "Hilbert");
    // Rank-deficient: products of thin factors, a zero column, the zero matrix.
    for (unsigned rank = 1; rank <= 4; ++rank) {
        const Eigen::MatrixXd L = Eigen::MatrixXd::Random(7, rank), R = Eigen::MatrixXd::Random(rank, 6);
        const Eigen::MatrixXd P = L * R;
        Cmatrix<double> A(7, 6);
        for (unsigned i = 0; i < 7; ++i)
            for (unsigned j = 0; j < 6; ++j) A(i, j) = P(i, j);
        checkSvd(A, 1e-13, "rank deficient");
        checkSvd(A.transp(), 1e-13, "rank deficient wide");
    }
    Cmatrix<double> zc = randomMatrix<double>(5, 4, rng);
    for (unsigned i = 0; i < 5; ++i) zc(i, 2) = 0;
    checkSvd(zc, 1e-13, "zero column");
    checkSvd(Cmatrix<double>(4, 3, 0.0), 1e-13, "zero matrix");
    // Entries of any scale: the decomposition is scale invariant.
    Cmatrix<double> tiny = randomMatrix<double>(4, 4, rng);
    tiny *= 1e-200;
    checkSvd(tiny, 1e-13, "tiny");
    Cmatrix<double> huge = randomMatrix<double>(4, 4, rng);
    huge *= 1e200;
    checkSvd(huge, 1e-13, "huge");
}

TEST(SolverDouble, SvdSolveRankConditionAndThreshold) {
    std::mt19937 rng(99);
    // Square, well conditioned: agrees with LU.
    Cmatrix<double> A = randomMatrix<double>(6, 6, rng);
    const Cmatrix<double> B = randomMatrix<double>(6, 2, rng);
    math::Csolver_svd<double> svd(A);
    const Cmatrix<double> x = svd.solve(B);
    EXPECT_LT(backwardError(A, x, B), 40 * 0x1p-52);
    EXPECT_EQ(svd.getRank(), 6u);
    const Eigen::JacobiSVD<Eigen::MatrixXd> ref(toEigen(A));
    const double condE = ref.singularValues()(0) / ref.singularValues()(5);
    EXPECT_NEAR(svd.getCond(), condE, 1e-12 * condE);

    // Tall: the least-squares solution (Eigen's as the oracle).
    Cmatrix<double> T = randomMatrix<double>(20, 4, rng);
    const Cmatrix<double> b = randomMatrix<double>(20, 1, rng);
    math::Csolver_svd<double> ls(T);
    const Cmatrix<double> xl = ls.solve(b);
    ASSERT_EQ(xl.m(), 4u);
    const Eigen::VectorXd xe = toEigen(T).jacobiSvd(Eigen::ComputeThinU | Eigen::ComputeThinV).solve(toEigen(b));
    for (unsigned i = 0; i < 4; ++i) EXPECT_NEAR(xl(i, 0), xe(i), 1e-13);

    // Wide: the minimum-norm solution.
    Cmatrix<double> W = randomMatrix<double>(3, 7, rng);
    const Cmatrix<double> bw = randomMatrix<double>(3, 1, rng);
    math::Csolver_svd<double> mn(W);
    const Cmatrix<double> xw = mn.solve(bw);
    ASSERT_EQ(xw.m(), 7u);
    const Eigen::VectorXd xwe = toEigen(W).completeOrthogonalDecomposition().solve(toEigen(bw));
    for (unsigned i = 0; i < 7; ++i) EXPECT_NEAR(xw(i, 0), xwe(i), 1e-13);

    // Exactly singular: rank 2 of 3, the zero singular value is dropped and
    // the result is the minimum-norm least-squares solution.
    Cmatrix<double> S = fromRows<double>(3, 3, {1, 0, 0, 0, 2, 0, 0, 0, 0});
    math::Csolver_svd<double> ss(S);
    const Cmatrix<double> xs = ss.solve(std::vector<double>{1, 4, 5});
    EXPECT_EQ(ss.getRank(), 2u);
    EXPECT_EQ(ss.getCond(), std::numeric_limits<double>::infinity());
    EXPECT_NEAR(xs(0, 0), 1, 1e-15);
    EXPECT_NEAR(xs(1, 0), 2, 1e-15);
    EXPECT_EQ(xs(2, 0), 0);

    // The threshold, on the equilibrated matrix: [[1, 1], [0, δ]] has the
    // singular values ≈ √2 and δ/√2 after scaling; the default tolerance is
    // max(m, n)·2^-52.  A diagonal matrix is full rank at any grading.
    const double below = 0x1p-52, above = 0x1p-52 * 64;
    math::Csolver_svd<double> tb(fromRows<double>(2, 2, {1, 1, 0, below}));
    EXPECT_EQ(tb.getRank(), 1u);
    math::Csolver_svd<double> ta(fromRows<double>(2, 2, {1, 1, 0, above}));
    EXPECT_EQ(ta.getRank(), 2u);
    EXPECT_NEAR(ta.solve(std::vector<double>{1, 1})(1, 0), 1 / above, 1e-6 / above);
    EXPECT_EQ(ta.getTolerance(), 2 * 0x1p-52);
    ta.setTolerance(1e-10);
    EXPECT_EQ(ta.getRank(), 1u);
    math::Csolver_svd<double> graded(fromRows<double>(2, 2, {1, 0, 0, 1e-300}));
    EXPECT_EQ(graded.getRank(), 2u);
    EXPECT_DOUBLE_EQ(graded.solve(std::vector<double>{1, 1})(1, 0), 1e300);
    EXPECT_EQ(math::Csolver_svd<float>(Cmatrix<float>(3, 5)).getTolerance(), 5 * 0x1p-23f);

    // Wrong right-hand side; the empty solver; non-finite input terminates.
    expectMathError([&] { svd.solve(std::vector<double>{1, 2}); }, CthrowMath::ERR_MATH_INVALID_ARGUMENT);
    math::Csolver_svd<double> empty;
    EXPECT_EQ(empty.getSingularValues().size(), 0u);
    EXPECT_TRUE(std::isnan(empty.getCond()));
    EXPECT_EQ(empty.getRank(), 0u);
    Cmatrix<double> bad = randomMatrix<double>(4, 4, rng);
    bad(1, 2) = std::numeric_limits<double>::quiet_NaN();
    math::Csolver_svd<double> nan(bad);
    const Cmatrix<double> xn = nan.solve(std::vector<double>{1, 2, 3, 4});
    EXPECT_TRUE(std::isnan(xn(0, 0)));
    bad(1, 2) = std::numeric_limits<double>::infinity();
    math::Csolver_svd<double> inf(bad);
    EXPECT_NO_THROW(inf.solve(std::vector<double>{1, 2, 3, 4}));
}

// Exactly rank-deficient systems: the minimum-norm least-squares solution,
// against Eigen's complete orthogonal decomposition (in double) over random
// integer products L·R of every shape 2..12 and rank 0..min(m, n) − 1.
template <class T>
void checkRankDeficient(Cmatrix<T> const& A, Cmatrix<T> const& b, double eps, char const* what) {
    Eigen::MatrixXd Ae(A.m(), A.n()), be(b.m(), 1);
    for (unsigned i = 0; i < A.m(); ++i) {
        for (unsigned j = 0; j < A.n(); ++j) Ae(i, j) = A(i, j);
        be(i) = b(i, 0);
    }
    const Eigen::CompleteOrthogonalDecomposition<Eigen::MatrixXd> cod(Ae);
    const Eigen::VectorXd xe = cod.solve(be);
    // The solution's sensitivity is σ_1/σ_k of the rank-k part.
    const Eigen::VectorXd sv = Eigen::JacobiSVD<Eigen::MatrixXd>(Ae).singularValues();
    const long rank = cod.rank();
    const double kappa = rank ? sv(0) / sv(rank - 1) : 1;
    math::Csolver_svd<T> svd(A);
    ASSERT_EQ(long(svd.getRank()), rank) << what;
    const Cmatrix<T> x = svd.solve(b);
    const std::vector<T> w = svd.getSingularValues();
    for (T v : w) ASSERT_TRUE(std::isfinite(v)) << what;
    double err = 0;
    for (unsigned i = 0; i < A.n(); ++i) err = std::max(err, std::fabs(double(x(i, 0)) - xe(i)));
    EXPECT_LE(err, 64 * eps * kappa * kappa * (xe.cwiseAbs().maxCoeff() + 1)) << what << " κ = " << kappa;
}

TEST(SolverSvd, RankDeficientAgainstEigen) {
    // The two matrices that broke the convergence test (a zero column rotated
    // until subnormal): finite singular values, rank 2, the solvable system solved.
    for (auto const& rows : {std::vector<double>{1, 1, 0, 0, 0, 0, 0, 1, 1}, std::vector<double>{1, 2, 3, 2, 4, 6, 1, 1, 1}}) {
        checkRankDeficient(fromRows<double>(3, 3, rows), fromRows<double>(3, 1, {1, 2, 3}), 0x1p-52, "named");
        checkRankDeficient(fromRows<float>(3, 3, rows), fromRows<float>(3, 1, {1, 2, 3}), 0x1p-23, "named float");
    }
    math::Csolver_svd<double> ok(fromRows<double>(3, 3, {1, 2, 3, 2, 4, 6, 1, 1, 1}));
    const Cmatrix<double> x = ok.solve(std::vector<double>{6, 12, 3});  // consistent
    EXPECT_NEAR(x(0, 0) + 2 * x(1, 0) + 3 * x(2, 0), 6, 1e-13);
    EXPECT_NEAR(x(0, 0) + x(1, 0) + x(2, 0), 3, 1e-13);

    std::mt19937 rng(11);
    std::uniform_int_distribution<int> dim(2, 12), val(-3, 3);
    for (int trial = 0; trial < 3000; ++trial) {
        const unsigned m = dim(rng), n = dim(rng);
        const unsigned k = std::uniform_int_distribution<unsigned>(0, std::min(m, n) - 1)(rng);
        Eigen::MatrixXd L(m, k), R(k, n);
        for (unsigned i = 0; i < m * k; ++i) L(i) = val(rng);
        for (unsigned i = 0; i < k * n; ++i) R(i) = val(rng);
        const Eigen::MatrixXd P = L * R;
        Cmatrix<double> A(m, n), b(m, 1);
        Cmatrix<float> Af(m, n), bf(m, 1);
        for (unsigned i = 0; i < m; ++i) {
            for (unsigned j = 0; j < n; ++j) Af(i, j) = float(A(i, j) = P(i, j));
            bf(i, 0) = float(b(i, 0) = val(rng));
        }
        SCOPED_TRACE(testing::Message() << "trial " << trial << ": " << m << "x" << n << " rank " << k);
        checkRankDeficient(A, b, 0x1p-52, "double");
        checkRankDeficient(Af, bf, 0x1p-23, "float");
        if (HasFatalFailure() || HasFailure()) return;
    }
}

TEST(SolverSvd, RankOnEquilibratedMatrix) {
    // A 200×200 product of rank 100: the rounding noise is not inverted.
    std::mt19937 rng(3);
    const Cmatrix<double> L = randomMatrix<double>(200, 100, rng), R = randomMatrix<double>(100, 200, rng);
    math::Csolver_svd<double> big(L * R);
    EXPECT_EQ(big.getRank(), 100u);

    // Degree-10 polynomial on raw powers of x in [−9, −3], 82 points: badly
    // scaled columns (1 .. 3.5e9) but full rank.  At least 7 correct digits
    // against a long double QR.
    const unsigned np = 82, nc = 11;
    Cmatrix<double> V(np, nc), y(np, 1);
    Eigen::Matrix<long double, Eigen::Dynamic, Eigen::Dynamic> Vl(np, nc);
    Eigen::Matrix<long double, Eigen::Dynamic, 1> yl(np);
    for (unsigned i = 0; i < np; ++i) {
        const double t = -9 + 6.0 * i / (np - 1);
        for (unsigned j = 0; j < nc; ++j) Vl(i, j) = V(i, j) = std::pow(t, double(j));
        yl(i) = y(i, 0) = std::sin(t) + 0.01 * t * t;
    }
    const Eigen::Matrix<long double, Eigen::Dynamic, 1> cl = Vl.colPivHouseholderQr().solve(yl);
    math::Csolver_svd<double> fit(V);
    EXPECT_EQ(fit.getRank(), nc);
    const Cmatrix<double> c = fit.solve(y);
    long double err = 0;
    for (unsigned j = 0; j < nc; ++j) err = std::max(err, std::fabs(c(j, 0) - cl(j)) / std::fabs(cl(j)));
    EXPECT_LT(err, 1e-7L);
}

TEST(SolverFloat, SvdDecomposition) {
    // Single precision: the same identities to float accuracy.
    std::mt19937 rng(5);
    for (unsigned n : {1u, 2u, 3u, 4u, 7u}) {
        for (unsigned extra : {0u, 3u}) {
            const Cmatrix<float> A = randomMatrix<float>(n + extra, n, rng);
            math::Csolver_svd<float> svd(A);
            const std::vector<float> w = svd.getSingularValues();
            const Cmatrix<float> U = svd.getU(), V = svd.getV();
            Cmatrix<double> Ad(A.m(), A.n());
            for (unsigned e = 0; e < A.size(); ++e) Ad.getBase()[e] = A.getBase()[e];
            const Eigen::JacobiSVD<Eigen::MatrixXd> ref(toEigen(Ad));
            for (unsigned k = 0; k < n; ++k) EXPECT_NEAR(w[k], ref.singularValues()(k), 4e-6 * ref.singularValues()(0));
            for (unsigned i = 0; i < A.m(); ++i)
                for (unsigned j = 0; j < n; ++j) {
                    double s = 0;
                    for (unsigned k = 0; k < n; ++k) s += double(U(i, k)) * w[k] * V(j, k);
                    EXPECT_NEAR(s, A(i, j), 4e-6);
                }
        }
    }
}

TYPED_TEST(SolverTyped, SvdFitUsage) {
    using T = TypeParam;
    // The fits' pattern: construct over a square matrix, solve a vector.
    const Cmatrix<T> M = fromRows<T>(3, 3, {4, 1, 2, 1, 5, 3, 2, 3, 6});
    math::Csolver_svd<T> svd(M);
    const Cmatrix<T> s = svd.solve(std::vector<T>{1, 2, 3});
    ASSERT_EQ(s.m(), 3u);
    ASSERT_EQ(s.n(), 1u);
    const Cmatrix<T> r = M * s;
    const double tol = std::is_same<T, float>::value ? 1e-5 : 1e-14;
    EXPECT_NEAR(r(0, 0), 1, tol);
    EXPECT_NEAR(r(1, 0), 2, tol);
    EXPECT_NEAR(r(2, 0), 3, tol);
    // The inverse through the frame.
    const Cmatrix<T> inv = svd.invert();
    const Cmatrix<T> I = M * inv;
    for (unsigned i = 0; i < 3; ++i)
        for (unsigned j = 0; j < 3; ++j) EXPECT_NEAR(I(i, j), i == j ? 1 : 0, tol);
    // A copy keeps its decomposition; a new matrix replaces it.
    math::Csolver_svd<T> copy(svd);
    EXPECT_EQ(copy.getSingularValues(), svd.getSingularValues());
    copy.setMatrix(fromRows<T>(1, 1, {-2}));
    EXPECT_EQ(copy.getSingularValues().size(), 1u);
    EXPECT_EQ(copy.getSingularValues()[0], T(2));
    EXPECT_EQ(copy.solve(std::vector<T>{4})(0, 0), T(-2));
}

// Empty systems whose other dimension is huge (0 x (2^32 - 1) or the reverse,
// as a damaged stream header can produce) hold no element: the solvers and
// the residual measure answer at once instead of walking 2^32 empty rows.
TYPED_TEST(SolverTyped, EmptyShapesWithHugeCountsAnswerAtOnce) {
    using T = TypeParam;
    const unsigned huge = 0xFFFFFFFFu;
    const auto t0 = std::chrono::steady_clock::now();
    math::Csolver_GaussJordan<T> gj;
    EXPECT_EQ(gj.deviation(Cmatrix<T>(huge, 0), Cmatrix<T>(0, 0), Cmatrix<T>(huge, 0)), T(0));
    EXPECT_EQ(gj.deviation(Cmatrix<T>(huge, 0), Cmatrix<T>(0, 2), Cmatrix<T>(huge, 0)), T(0));
    EXPECT_TRUE(std::isnan(gj.deviation(Cmatrix<T>(huge, 0), Cmatrix<T>(1, 1), Cmatrix<T>(huge, 0))));

    math::Csolver_svd<T> tall;
    tall.setMatrix(Cmatrix<T>(huge, 0));
    EXPECT_TRUE(tall.getSingularValues().empty());
    EXPECT_EQ(tall.getRank(), 0u);
    const Cmatrix<T> x = tall.solve(Cmatrix<T>(huge, 0));
    EXPECT_EQ(x.m(), 0u);
    EXPECT_EQ(x.n(), 0u);
    math::Csolver_svd<T> wide;
    wide.setMatrix(Cmatrix<T>(0, huge));
    EXPECT_EQ(wide.getV().m(), huge);
    // A solution with columns would need (2^32 - 1)·k elements: refused.
    EXPECT_THROW(wide.solve(Cmatrix<T>(0, 1)), CthrowBase);

    // Not square: reported as such, without touching the rows.
    expectMathError([&] { gj.setMatrix(Cmatrix<T>(huge, 0)), gj.solve(Cmatrix<T>(huge, 0)); },
                    CthrowMath::ERR_MATRIX_NOTSQUARE);
    math::Csolver_luDecomp<T> lu;
    expectMathError([&] { lu.setMatrix(Cmatrix<T>(0, huge)); }, CthrowMath::ERR_MATRIX_NOTSQUARE);
    // Generous bound: every call above is constant work.
    EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count(), 5.0);
}
