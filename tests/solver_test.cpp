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
Cmatrix<T> randomMatrix(unsigned m, unsigned n, std::mt19937& rng) {
    std::uniform_real_distribution<double> u(-1, 1);
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

template <class T>
Eigen::MatrixXd toEigen(Cmatrix<T> const& a) {
    Eigen::MatrixXd e(a.m(), a.n());
    for (unsigned i = 0; i < a.m(); ++i)
        for (unsigned j = 0; j < a.n(); ++j) e(i, j) = a(i, j);
    return e;
}

// Normwise backward error |A·x − b|∞ / (|A|∞·|x|∞ + |b|∞), in long double.
long double backwardError(Cmatrix<double> const& A, Cmatrix<double> const& X, Cmatrix<double> const& B) {
    using L = Eigen::Matrix<long double, Eigen::Dynamic, Eigen::Dynamic>;
    const L a = toEigen(A).cast<long double>(), x = toEigen(X).cast<long double>(), b = toEigen(B).cast<long double>();
    const long double an = a.cwiseAbs().rowwise().sum().maxCoeff();
    return (a * x - b).cwiseAbs().maxCoeff() / (an * x.cwiseAbs().maxCoeff() + b.cwiseAbs().maxCoeff());
}

// Expects a CthrowMath with the given id and no information from f().
template <class F>
void expectMathError(F f, int id) {
    try {
        f();
        ADD_FAILURE() << "no exception, expected id " << id;
    } catch (CthrowMath const& e) {
        EXPECT_TRUE(e.id() == id && e.info().empty() && e.arguments().empty()) << e.id() << " vs " << id;
    }
}

template <class T>
::testing::AssertionResult sameValues(Cmatrix<T> const& x, Cmatrix<T> const& y) {
    if (x.m() != y.m() || x.n() != y.n()) return ::testing::AssertionFailure() << "shape " << x.m() << "x" << x.n();
    for (unsigned k = 0; k < x.size(); ++k) {
        const T a = x.getBase()[k], b = y.getBase()[k];
        if (!(a == b || (std::isnan(a) && std::isnan(b))))
            return ::testing::AssertionFailure() << "element " << k << ": " << a << " vs " << b;
    }
    return ::testing::AssertionSuccess();
}

// Exposes the protected parts of the frame and of the LU solver.
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

// Gauss-Jordan with full pivoting as documented, single-pass pivot search
// (">=": the last of equal magnitudes wins); throws 1 on an exact zero pivot.
template <class T>
Cmatrix<T> referenceGaussJordan(Cmatrix<T> A, Cmatrix<T> B) {
    const unsigned n = A.n(), k = B.n();
    std::vector<int> ipiv(n, 0);
    unsigned irow = 0, icol = 0;
    for (unsigned i = 0; i < n; ++i) {
        T big = 0;
        for (unsigned j = 0; j < n; ++j)
            for (unsigned c = 0; c < n; ++c)
                if (ipiv[j] != 1 && ipiv[c] == 0 && std::fabs(A(j, c)) >= big) big = std::fabs(A(j, c)), irow = j, icol = c;
        ++ipiv[icol];
        if (irow != icol) {
            for (unsigned c = 0; c < n; ++c) std::swap(A(irow, c), A(icol, c));
            for (unsigned c = 0; c < k; ++c) std::swap(B(irow, c), B(icol, c));
        }
        if (A(icol, icol) == 0) throw 1;
        const T inv = T(1) / A(icol, icol);
        A(icol, icol) = 1;
        for (unsigned c = 0; c < n; ++c) A(icol, c) *= inv;
        for (unsigned c = 0; c < k; ++c) B(icol, c) *= inv;
        for (unsigned r = 0; r < n; ++r) {
            if (r == icol) continue;
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

TYPED_TEST(SolverTyped, FrameFlagsStorageAndNotImplemented) {
    using T = TypeParam;
    Cmatrix<T> A = fromRows<T>(2, 2, {1, 2, 3, 4});
    OpenFrame<T> f(A);
    EXPECT_TRUE(f.changed() && !f.rhsSet() && f.B().size() == 0u && f.A()(1, 0) == T(3));
    EXPECT_EQ(A.size(), 4u);  // the matrix constructors copy
    // The frame cannot solve: init() and subsolve() are not implemented.
    expectMathError([&] { f.solve(std::vector<T>{1, 2}); }, CthrowMath::ERR_MATH_FUNCNOTIMPL);
    EXPECT_TRUE(f.rhsSet());
    expectMathError([&] { f.setMatrix(A); }, CthrowMath::ERR_MATH_FUNCNOTIMPL);
    expectMathError([&] { f.invert(); }, CthrowMath::ERR_MATH_FUNCNOTIMPL);
    EXPECT_TRUE(f.B().m() == 2u && f.B()(1, 1) == T(1) && f.B()(0, 1) == T(0));  // invert() set up the identity

    // setMatrix(Cmatrix&) and solve(Cmatrix&) swap: the caller receives the previous one.
    math::Csolver_luDecomp<T> lu;
    Cmatrix<T> first = fromRows<T>(2, 2, {2, 0, 0, 4}), second = fromRows<T>(3, 3, {1, 0, 0, 0, 1, 0, 0, 0, 1});
    Cmatrix<T> b1 = fromRows<T>(3, 1, {1, 2, 3}), b2 = fromRows<T>(3, 1, {4, 5, 6});
    lu.setMatrix(first);
    EXPECT_EQ(first.size(), 0u);
    lu.setMatrix(second);
    EXPECT_EQ(second.m(), 2u);
    const Cmatrix<T> x1 = lu.solve(b1);
    lu.solve(b2);
    EXPECT_TRUE(b1.size() == 0u && b2(2, 0) == T(3) && x1(1, 0) == T(2));  // b2 holds the previous solution
    // The empty vector gives an empty right-hand side: invalid for n = 3.
    expectMathError([&] { lu.solve(std::vector<T>{}); }, CthrowMath::ERR_MATH_INVALID_ARGUMENT);
}

TYPED_TEST(SolverTyped, DeviationAndSolveItr) {
    using T = TypeParam;
    math::Csolver_GaussJordan<T> gj;
    // 1×1: 2·x = 4 with x = 1 leaves the residual 2, squared 4.
    EXPECT_EQ(gj.deviation(fromRows<T>(1, 1, {2}), fromRows<T>(1, 1, {1}), fromRows<T>(1, 1, {4})), T(4));
    const Cmatrix<T> A = fromRows<T>(2, 2, {3, 1, 1, 2}), X = fromRows<T>(2, 1, {1, 2});
    EXPECT_EQ(gj.deviation(A, X, A * X), T(0));
    EXPECT_TRUE(std::isnan(gj.deviation(A, fromRows<T>(3, 1, {1, 2, 3}), X)));  // shapes that do not fit

    // Iterative refinement never ends worse than the first solution.
    std::mt19937 rng(7);
    for (int trial = 0; trial < 40; ++trial) {
        const unsigned n = 2 + trial % 9;
        const Cmatrix<T> M = randomMatrix<T>(n, n, rng), B = randomMatrix<T>(n, 2, rng);
        math::Csolver_luDecomp<T> lu(M);
        const T d0 = math::CmatrixCalc<T>::dif(M * lu.solve(B), B);
        EXPECT_LE(math::CmatrixCalc<T>::dif(M * lu.solveItr(M, B), B), d0) << "n = " << n;
    }
    // A·X must be defined and of B's shape: each mismatch alone is refused.
    math::Csolver_luDecomp<T> lu(A);
    for (Cmatrix<T> const& bad : {Cmatrix<T>(3, 3, T(1)), Cmatrix<T>(2, 3, T(1)), Cmatrix<T>(3, 2, T(1))})
        expectMathError([&] { lu.solveItr(bad, X); }, CthrowMath::ERR_MATH_INVALID_ARGUMENT);
}

TYPED_TEST(SolverTyped, GaussJordanCases) {
    using T = TypeParam;
    // A zero on the diagonal is handled by pivoting.
    math::Csolver_GaussJordan<T> gj(fromRows<T>(2, 2, {0, 1, 1, 0}));
    Cmatrix<T> x = gj.solve(std::vector<T>{2, 3});
    EXPECT_TRUE(sameValues(x, fromRows<T>(2, 1, {3, 2})));
    // Two equal rows: exactly zero pivot; the solver is usable again afterwards.
    math::Csolver_GaussJordan<T> sing(fromRows<T>(3, 3, {1, 2, 3, 1, 2, 3, 0, 1, 5}));
    expectMathError([&] { sing.solve(std::vector<T>{1, 2, 3}); }, CthrowMath::ERR_SOLVE_MATRIXSINGULAR);
    sing.setMatrix(fromRows<T>(2, 2, {2, 0, 0, 4}));
    EXPECT_EQ(sing.solve(std::vector<T>{2, 2})(1, 0), T(0.5));
    // Tiny but non-zero pivots are solved without complaint.
    Cmatrix<T> nm = fromRows<T>(2, 2, {1, 1, 1, 1});
    nm(1, 1) = T(1) + std::numeric_limits<T>::epsilon();
    EXPECT_NO_THROW(math::Csolver_GaussJordan<T>(nm).solve(std::vector<T>{1, 2}));
    const T tiny = std::is_same<T, float>::value ? T(0x1p-120) : T(0x1p-1000);
    EXPECT_EQ(math::Csolver_GaussJordan<T>(Cmatrix<T>(1, 1, tiny)).solve(std::vector<T>{tiny})(0, 0), T(1));
    // Not square: reported at the first solve, not at setMatrix.  Wrong right-hand side.
    math::Csolver_GaussJordan<T> rect;
    EXPECT_NO_THROW(rect.setMatrix(fromRows<T>(2, 3, {1, 2, 3, 4, 5, 6})));
    expectMathError([&] { rect.solve(std::vector<T>{1, 2}); }, CthrowMath::ERR_MATRIX_NOTSQUARE);
    expectMathError([&] { gj.solve(std::vector<T>{1, 2, 3}); }, CthrowMath::ERR_MATH_INVALID_ARGUMENT);
    // invert() after a refused 3×2 right-hand side sets up a fresh 2×2 identity.
    expectMathError([&] { gj.solve(Cmatrix<T>(3, 2, T(1))); }, CthrowMath::ERR_MATH_INVALID_ARGUMENT);
    EXPECT_TRUE(sameValues(gj.invert(), fromRows<T>(2, 2, {0, 1, 1, 0})));
    // Repeated solves and copies start again from the system matrix.
    std::mt19937 rng(11);
    const Cmatrix<T> A = randomMatrix<T>(5, 5, rng), b1 = randomMatrix<T>(5, 1, rng), b2 = randomMatrix<T>(5, 3, rng);
    math::Csolver_GaussJordan<T> s(A);
    const Cmatrix<T> x1 = s.solve(b1);
    EXPECT_TRUE(sameValues(s.solve(b2), math::Csolver_GaussJordan<T>(A).solve(b2)));
    EXPECT_TRUE(sameValues(math::Csolver_GaussJordan<T>(s).solve(b1), x1));
    // Full pivoting with ">=" on all-equal magnitudes: still the exact solution.
    math::Csolver_GaussJordan<T> ties(fromRows<T>(3, 3, {1, 1, -1, 1, -1, 1, -1, 1, 1}));
    const Cmatrix<T> xt = ties.solve(std::vector<T>{1, 1, 1});
    for (unsigned i = 0; i < 3; ++i) EXPECT_EQ(xt(i, 0), T(1));
}

// One table of sizes, with ties (small integers) and infinities; CTest also
// runs this under the SSE2 cap, so the vector elimination is proven bit
// identical to the plain loop on every instruction set.
TYPED_TEST(SolverTyped, GaussJordanBitIdenticalToSinglePassPivotSearch) {
    using T = TypeParam;
    std::mt19937 rng(23);
    std::uniform_int_distribution<int> small(-2, 2);
    for (int trial = 0; trial < 66; ++trial) {
        const unsigned n = trial < 60 ? 1 + trial % 13 : (trial % 2 ? 16 : 21);
        Cmatrix<T> A = randomMatrix<T>(n, n, rng);
        if (trial % 3 == 1)
            for (T& x : A) x = T(small(rng));
        if (trial % 5 == 2 && n > 2) A(1, 2) = std::numeric_limits<T>::infinity();
        const Cmatrix<T> B = randomMatrix<T>(n, 2, rng);
        SCOPED_TRACE(testing::Message() << "n = " << n << " trial " << trial);
        math::Csolver_GaussJordan<T> gj(A);
        try {
            const Cmatrix<T> ref = referenceGaussJordan(A, B);
            EXPECT_TRUE(sameValues(gj.solve(B), ref));
        } catch (int) {
            expectMathError([&] { gj.solve(B); }, CthrowMath::ERR_SOLVE_MATRIXSINGULAR);
        }
    }
}

TEST(SolverDouble, GaussJordanAndLuBackwardErrors) {
    // Backward errors near machine precision; both inverses agree with Eigen's.
    std::mt19937 rng(3);
    for (unsigned n : {2u, 3u, 4u, 6u, 10u, 20u, 50u}) {
        Cmatrix<double> A = randomMatrix<double>(n, n, rng);
        const Cmatrix<double> B = randomMatrix<double>(n, 3, rng);
        math::Csolver_GaussJordan<double> gj(A);
        math::Csolver_luDecomp<double> lu(A);
        EXPECT_LT(backwardError(A, gj.solve(B), B), 8.0L * n * 0x1p-52) << "GJ n = " << n;
        EXPECT_LT(backwardError(A, lu.solve(B), B), 8.0L * n * 0x1p-52) << "LU n = " << n;
        const Eigen::MatrixXd ei = toEigen(A).inverse();
        const double tol = toEigen(A).norm() * ei.norm() * 1e-14 * ei.cwiseAbs().maxCoeff();
        EXPECT_LT((toEigen(gj.invert()) - ei).cwiseAbs().maxCoeff(), tol);
        EXPECT_LT((toEigen(lu.invert()) - ei).cwiseAbs().maxCoeff(), tol);
        EXPECT_NEAR(lu.getDet(), toEigen(A).determinant(), 1e-12 * n * std::fabs(toEigen(A).determinant()));
    }
}

TYPED_TEST(SolverTyped, LuCases) {
    using T = TypeParam;
    // Determinants: one row exchange −1; identity 1 (decomposed on demand); diagonal product.
    math::Csolver_luDecomp<T> swap, diag, zero, eq, rect;
    swap.setMatrix(fromRows<T>(2, 2, {0, 1, 1, 0}));
    diag.setMatrix(fromRows<T>(3, 3, {2, 0, 0, 0, -3, 0, 0, 0, 0.5}));
    EXPECT_TRUE(swap.getDet() == T(-1) && diag.getDet() == T(-3));
    EXPECT_TRUE(sameValues(swap.solve(std::vector<T>{2, 3}), fromRows<T>(2, 1, {3, 2})));
    EXPECT_EQ(math::Csolver_luDecomp<T>(fromRows<T>(3, 3, {1, 0, 0, 0, 1, 0, 0, 0, 1})).getDet(), T(1));
    // A zero row is singular at setMatrix; constructed over it, at every solve.
    expectMathError([&] { zero.setMatrix(fromRows<T>(2, 2, {1, 2, 0, 0})); }, CthrowMath::ERR_SOLVE_MATRIXSINGULAR);
    math::Csolver_luDecomp<T> zc(fromRows<T>(2, 2, {1, 2, 0, 0}));
    for (int k = 0; k < 2; ++k)
        expectMathError([&] { zc.solve(std::vector<T>{1, 1}); }, CthrowMath::ERR_SOLVE_MATRIXSINGULAR);
    // Two equal non-zero rows: decomposed without complaint, non-finite solution.
    EXPECT_NO_THROW(eq.setMatrix(fromRows<T>(3, 3, {1, 2, 3, 1, 2, 3, 4, 0, 1})));
    bool nonFinite = false;
    for (T v : eq.solve(std::vector<T>{1, 1, 1})) nonFinite = nonFinite || !std::isfinite(v);
    EXPECT_TRUE(nonFinite);
    // Not square: at setMatrix already.  Wrong right-hand side.
    expectMathError([&] { rect.setMatrix(fromRows<T>(2, 3, {1, 2, 3, 4, 5, 6})); }, CthrowMath::ERR_MATRIX_NOTSQUARE);
    expectMathError([&] { swap.solve(std::vector<T>{1, 2, 3}); }, CthrowMath::ERR_MATH_INVALID_ARGUMENT);
    // Leading zeros of the right-hand side: same as full forward substitution.
    std::mt19937 rng(5);
    const Cmatrix<T> A = randomMatrix<T>(6, 6, rng);
    Cmatrix<T> b = randomMatrix<T>(6, 1, rng);
    b(0, 0) = b(1, 0) = b(2, 0) = 0;
    const Cmatrix<T> x = math::Csolver_luDecomp<T>(A).solve(static_cast<Cmatrix<T> const&>(b));
    const Cmatrix<T> xg = math::Csolver_GaussJordan<T>(A).solve(b);
    for (unsigned i = 0; i < 6; ++i) EXPECT_NEAR(x(i, 0), xg(i, 0), (std::is_same<T, float>::value ? 1e-3 : 1e-11));
    // doCrout2, without pivoting: L·U reproduces A; a zero pivot throws.
    const Cmatrix<T> A3 = fromRows<T>(3, 3, {4, 3, 2, 2, 5, 1, 1, 2, 6});
    OpenLU<T> c2(A3), z(fromRows<T>(2, 2, {0, 1, 1, 0}));
    c2.crout2();
    Cmatrix<T> L = c2.A(), U = c2.A();
    for (unsigned i = 0; i < 3; ++i)
        for (unsigned j = 0; j < 3; ++j) (i == j ? L(i, j) : i < j ? L(i, j) : U(i, j)) = T(i == j);  // unit L, upper U
    EXPECT_LT((toEigen(L * U) - toEigen(A3)).cwiseAbs().maxCoeff(), 1e-5);
    expectMathError([&] { z.crout2(); }, CthrowMath::ERR_SOLVE_MATRIXSINGULAR);
}

// A = U·diag(w)·Vᵀ with orthonormal U and V, w decreasing and equal to Eigen's
// JacobiSVD values to tol·w_max.
template <class T>
void checkSvd(Cmatrix<T> const& A, double tol, char const* what) {
    SCOPED_TRACE(testing::Message() << what << " " << A.m() << "x" << A.n());
    math::Csolver_svd<T> svd(A);
    const std::vector<T> w = svd.getSingularValues();
    const Eigen::MatrixXd U = toEigen(svd.getU()), V = toEigen(svd.getV()), Ae = toEigen(A);
    const unsigned r = std::min(A.m(), A.n());
    ASSERT_EQ(w.size(), r);
    ASSERT_TRUE(U.rows() == A.m() && U.cols() == r && V.rows() == A.n() && V.cols() == r);
    const Eigen::VectorXd ref = Eigen::JacobiSVD<Eigen::MatrixXd>(Ae).singularValues();
    const Eigen::VectorXd we = Eigen::Map<const Eigen::Matrix<T, Eigen::Dynamic, 1>>(w.data(), r).template cast<double>();
    EXPECT_LE((we - ref).cwiseAbs().maxCoeff(), tol * ref(0));
    for (unsigned k = 1; k < r; ++k) EXPECT_LE(w[k], w[k - 1]);
    const Eigen::MatrixXd I = Eigen::MatrixXd::Identity(r, r);
    EXPECT_LT((U.transpose() * U - I).cwiseAbs().maxCoeff(), tol);
    EXPECT_LT((V.transpose() * V - I).cwiseAbs().maxCoeff(), tol);
    EXPECT_LT((U * we.asDiagonal() * V.transpose() - Ae).cwiseAbs().maxCoeff(), tol * std::max(ref(0), 1e-300));
}

TEST(SolverSvd, DecompositionAgainstEigen) {
    std::mt19937 rng(2024);
    for (unsigned n = 1; n <= 12; ++n) checkSvd(randomMatrix<double>(n, n, rng), 1e-13, "random square");
    checkSvd(randomMatrix<double>(50, 50, rng), 1e-13, "random 50");
    // Columns of equal or nearly equal length (the rotation's ζ = 0 or tiny, t near 1).
    for (double d : {0.0, 0x1p-30, 1e-6}) checkSvd(fromRows<double>(2, 2, {2, 1, 1, 2 + d}), 1e-15, "equal columns");
    // Rank-deficient products, a zero column, the zero matrix, extreme scales.
    for (unsigned rank = 1; rank <= 4; ++rank) {
        const Cmatrix<double> A = randomMatrix<double>(7, rank, rng) * randomMatrix<double>(rank, 6, rng);
        checkSvd(A, 1e-13, "rank deficient");
        checkSvd(A.transp(), 1e-13, "rank deficient wide");
    }
    Cmatrix<double> zc = randomMatrix<double>(5, 4, rng), big = randomMatrix<double>(4, 4, rng), tiny = big;
    for (unsigned i = 0; i < 5; ++i) zc(i, 2) = 0;
    checkSvd(zc, 1e-13, "zero column");
    checkSvd(Cmatrix<double>(4, 3, 0.0), 1e-13, "zero matrix");
    big *= 1e200;
    tiny *= 1e-200;
    checkSvd(big, 1e-13, "huge");
    checkSvd(tiny, 1e-13, "tiny");
}

TEST(SolverSvd, SolveRankConditionAndThreshold) {
    std::mt19937 rng(99);
    // Square: backward stable, full rank, Eigen's condition number.
    Cmatrix<double> A = randomMatrix<double>(6, 6, rng);
    const Cmatrix<double> B = randomMatrix<double>(6, 2, rng);
    math::Csolver_svd<double> svd(A);  // over a non-const matrix: the same defaults
    EXPECT_LT(backwardError(A, svd.solve(B), B), 40 * 0x1p-52);
    EXPECT_TRUE(svd.getRank() == 6u && svd.getTolerance() == 6 * 0x1p-52);
    const Eigen::VectorXd sv = Eigen::JacobiSVD<Eigen::MatrixXd>(toEigen(A)).singularValues();
    EXPECT_NEAR(svd.getCond(), sv(0) / sv(5), 1e-12 * sv(0) / sv(5));
    // Tall: the least-squares solution; wide: the minimum-norm solution.
    for (auto mn : {std::make_pair(20u, 4u), std::make_pair(3u, 7u)}) {
        const Cmatrix<double> M = randomMatrix<double>(mn.first, mn.second, rng), b = randomMatrix<double>(mn.first, 1, rng);
        const Cmatrix<double> x = math::Csolver_svd<double>(M).solve(b);
        ASSERT_EQ(x.m(), mn.second);
        EXPECT_LT((toEigen(x) - toEigen(M).completeOrthogonalDecomposition().solve(toEigen(b))).cwiseAbs().maxCoeff(), 1e-13);
    }
    // Exactly singular: the zero singular value is dropped.
    math::Csolver_svd<double> ss(fromRows<double>(3, 3, {1, 0, 0, 0, 2, 0, 0, 0, 0}));
    const Cmatrix<double> xs = ss.solve(std::vector<double>{1, 4, 5});
    EXPECT_TRUE(ss.getRank() == 2u && ss.getCond() == std::numeric_limits<double>::infinity() && xs(2, 0) == 0);
    EXPECT_LT((toEigen(xs) - Eigen::Vector3d(1, 2, 0)).cwiseAbs().maxCoeff(), 1e-15);

    // The threshold, on the equilibrated matrix: [[1, 1], [0, δ]] has the
    // singular values ≈ √2 and δ/√2 after scaling; the default tolerance is
    // max(m, n)·2^-52.  A diagonal matrix is full rank at any grading.
    const double below = 0x1p-52, above = 0x1p-52 * 64;
    EXPECT_EQ(math::Csolver_svd<double>(fromRows<double>(2, 2, {1, 1, 0, below})).getRank(), 1u);
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
    EXPECT_TRUE(empty.getSingularValues().empty() && std::isnan(empty.getCond()) && empty.getRank() == 0u);
    A(1, 2) = std::numeric_limits<double>::quiet_NaN();
    EXPECT_TRUE(std::isnan(math::Csolver_svd<double>(A).solve(std::vector<double>{1, 2, 3, 4, 5, 6})(0, 0)));
    A(1, 2) = std::numeric_limits<double>::infinity();
    EXPECT_NO_THROW(math::Csolver_svd<double>(A).solve(std::vector<double>{1, 2, 3, 4, 5, 6}));
}

// Exactly rank-deficient systems: the minimum-norm least-squares solution,
// against Eigen's complete orthogonal decomposition in double.
template <class T>
void checkRankDeficient(Cmatrix<T> const& A, Cmatrix<T> const& b, double eps) {
    const Eigen::MatrixXd Ae = toEigen(A);
    const Eigen::CompleteOrthogonalDecomposition<Eigen::MatrixXd> cod(Ae);
    const Eigen::VectorXd xe = cod.solve(toEigen(b)), sv = Eigen::JacobiSVD<Eigen::MatrixXd>(Ae).singularValues();
    const long rank = cod.rank();
    const double kappa = rank ? sv(0) / sv(rank - 1) : 1;  // of the rank-k part
    math::Csolver_svd<T> svd(A);
    ASSERT_EQ(long(svd.getRank()), rank);
    const Cmatrix<T> x = svd.solve(b);
    for (T v : svd.getSingularValues()) ASSERT_TRUE(std::isfinite(v));
    EXPECT_LE((toEigen(x) - xe).cwiseAbs().maxCoeff(), 64 * eps * kappa * kappa * (xe.cwiseAbs().maxCoeff() + 1))
        << " κ = " << kappa;
}

TEST(SolverSvd, RankDeficientAgainstEigen) {
    // The two matrices that broke the convergence test (a zero column rotated
    // until subnormal): finite singular values, rank 2, the solvable system solved.
    for (auto const& rows : {std::vector<double>{1, 1, 0, 0, 0, 0, 0, 1, 1}, std::vector<double>{1, 2, 3, 2, 4, 6, 1, 1, 1}}) {
        checkRankDeficient(fromRows<double>(3, 3, rows), fromRows<double>(3, 1, {1, 2, 3}), 0x1p-52);
        checkRankDeficient(fromRows<float>(3, 3, rows), fromRows<float>(3, 1, {1, 2, 3}), 0x1p-23);
    }
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
    math::Csolver_svd<T> tall, wide;
    tall.setMatrix(Cmatrix<T>(huge, 0));
    EXPECT_TRUE(tall.getSingularValues().empty() && tall.getRank() == 0u);
    const Cmatrix<T> x = tall.solve(Cmatrix<T>(huge, 0));
    EXPECT_TRUE(x.m() == 0u && x.n() == 0u);
    wide.setMatrix(Cmatrix<T>(0, huge));
    EXPECT_EQ(wide.getV().m(), huge);
    EXPECT_THROW(wide.solve(Cmatrix<T>(0, 1)), CthrowBase);  // (2^32 - 1)·k elements: refused
    // Not square: reported as such, without touching the rows.
    expectMathError([&] { gj.setMatrix(Cmatrix<T>(huge, 0)), gj.solve(Cmatrix<T>(huge, 0)); },
                    CthrowMath::ERR_MATRIX_NOTSQUARE);
    math::Csolver_luDecomp<T> lu;
    expectMathError([&] { lu.setMatrix(Cmatrix<T>(0, huge)); }, CthrowMath::ERR_MATRIX_NOTSQUARE);
    // Generous bound: every call above is constant work.
    EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count(), 5.0);
}
