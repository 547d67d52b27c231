// Tests of CmatrixCalc: rotation conventions, rotation/scale split,
// symmetric eigen decomposition, matrix difference.
#include <math/errors.h>
#include <math/matrix_calc.h>

#include <gtest/gtest.h>

#include <Eigen/Dense>

#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <vector>

using math::Cmatrix;
using math::CmatrixCalc;

namespace {

template <class T>
Cmatrix<T> fromRows(unsigned m, unsigned n, std::vector<double> const& v) {
    Cmatrix<T> a(m, n);
    for (unsigned k = 0; k < m * n; ++k) a.getBase()[k] = static_cast<T>(v[k]);
    return a;
}

// Elementary rotations about x, y, z.
template <class T>
Cmatrix<T> rot(int axis, T a) {
    const double c = std::cos(a), s = std::sin(a);
    if (axis == 0) return fromRows<T>(3, 3, {1, 0, 0, 0, c, -s, 0, s, c});
    if (axis == 1) return fromRows<T>(3, 3, {c, 0, s, 0, 1, 0, -s, 0, c});
    return fromRows<T>(3, 3, {c, -s, 0, s, c, 0, 0, 0, 1});
}

template <class T>
double tolOf() {
    return std::is_same<T, float>::value ? 2e-6 : 1e-14;
}

template <class T>
Eigen::MatrixXd toEigen(Cmatrix<T> const& a) {
    Eigen::MatrixXd e(a.m(), a.n());
    for (unsigned i = 0; i < a.m(); ++i)
        for (unsigned j = 0; j < a.n(); ++j) e(i, j) = a(i, j);
    return e;
}

template <class T>
void expectMatNear(Cmatrix<T> const& a, Cmatrix<T> const& b, double tol) {
    ASSERT_TRUE(a.m() == b.m() && a.n() == b.n());
    EXPECT_LE((toEigen(a) - toEigen(b)).cwiseAbs().maxCoeff(), tol);
}

template <class T>
void expectThrowsInt0(std::function<void()> f) {
    try {
        f();
        ADD_FAILURE() << "expected int 0";
    } catch (int e) {
        EXPECT_EQ(e, 0);
    }
}

template <class T = double>
Cmatrix<T> randomSymmetric(unsigned n, std::mt19937& rng) {
    std::uniform_real_distribution<double> u(-1, 1);
    Cmatrix<T> a(n, n);
    for (unsigned i = 0; i < n; ++i)
        for (unsigned j = 0; j <= i; ++j) a(i, j) = a(j, i) = T(u(rng));
    return a;
}

}  // namespace

template <class T>
class MatrixCalcTyped : public ::testing::Test {};
using Scalars = ::testing::Types<float, double>;
TYPED_TEST_SUITE(MatrixCalcTyped, Scalars);

TYPED_TEST(MatrixCalcTyped, ArcToRotMatchesElementaryProducts) {
    using T = TypeParam;
    std::mt19937 rng(1);
    std::uniform_real_distribution<double> u(-3, 3);
    const double tol = 4 * tolOf<T>();
    for (int trial = 0; trial < 50; ++trial) {
        const T a1 = T(u(rng)), a2 = T(u(rng)), a3 = T(u(rng));
        Cmatrix<T> xyz, cap, zyx, zxz(7, 2, T(5));  // any previous shape is replaced
        CmatrixCalc<T>::ArcToRotXYZ(a1, a2, a3, xyz);
        CmatrixCalc<T>::ArcToRotCAP(a1, a2, a3, cap);
        CmatrixCalc<T>::ArcToRotZYX(a1, a2, a3, zyx);
        CmatrixCalc<T>::ArcToRotZXZ(a1, a2, a3, zxz);
        expectMatNear(xyz, rot(0, a1) * rot(1, a2) * rot(2, a3), tol);
        expectMatNear(cap, (rot(0, a1) * rot(1, a2) * rot(2, a3)).transp(), tol);
        expectMatNear(zyx, rot(2, a3) * rot(1, a2) * rot(0, a1), tol);
        expectMatNear(zxz, rot(2, a1) * rot(0, a2) * rot(2, a3), tol);
    }
}

TYPED_TEST(MatrixCalcTyped, RotToArcRoundTrips) {
    using T = TypeParam;
    std::mt19937 rng(2);
    std::uniform_real_distribution<double> u(-3, 3), half(-1.5, 1.5);
    const double tol = std::is_same<T, float>::value ? 2e-4 : 1e-12;
    for (int trial = 0; trial < 100; ++trial) {
        const T a1 = T(u(rng)), a2 = T(half(rng)), a3 = T(u(rng));
        Cmatrix<T> R, H(4, 4, T(9));
        T b1, b2, b3, c[3];
        CmatrixCalc<T>::ArcToRotXYZ(a1, a2, a3, R);
        CmatrixCalc<T>::RotToArcCAP_transp(R, b1, b2, b3);
        EXPECT_TRUE(std::fabs(b1 - a1) < tol && std::fabs(b2 - a2) < tol && std::fabs(b3 - a3) < tol);
        // The XYZ formula pairs R20 with c3: a1' = atan2(s1·sin 2a3 − c1·s2·cos 2a3, c1).
        CmatrixCalc<T>::RotToArcXYZ(R, b1, b2, b3);
        EXPECT_TRUE(std::fabs(b2 - a2) < tol && std::fabs(b3 - a3) < tol);
        const double s1 = std::sin(double(a1)), c1 = std::cos(double(a1)), s2 = std::sin(double(a2));
        EXPECT_NEAR(b1, std::atan2(s1 * std::sin(2.0 * a3) - c1 * s2 * std::cos(2.0 * a3), c1), 10 * tol);

        CmatrixCalc<T>::ArcToRotCAP(a1, a2, a3, R);
        CmatrixCalc<T>::RotToArcCAP(R, b1, b2, b3);
        EXPECT_TRUE(std::fabs(b1 - a1) < tol && std::fabs(b2 - a2) < tol && std::fabs(b3 - a3) < tol);
        // A 4×4 homogeneous matrix is read through its upper-left 3×3.
        H.setMatrix(0, 0, R);
        CmatrixCalc<T>::RotToArcCAP(H, c[0], c[1], c[2]);
        EXPECT_TRUE(c[0] == b1 && c[1] == b2 && c[2] == b3);
    }
}

TYPED_TEST(MatrixCalcTyped, RotToArcGimbalLockAndZxzQuirk) {
    using T = TypeParam;
    // a2 = π/2 in CAP: a3 comes back as 0 and a1 carries the combined rotation.
    const T half = T(std::acos(-1.0) / 2);
    Cmatrix<T> R;
    CmatrixCalc<T>::ArcToRotCAP(T(0.3), half, T(0.2), R);
    R(1, 0) = R(0, 0) = 0;  // exactly zero, as the exact matrix has it
    T a1, a2, a3;
    CmatrixCalc<T>::RotToArcCAP(R, a1, a2, a3);
    EXPECT_TRUE(a3 == T(0) && std::fabs(a1 - T(0.5)) < 1e-5 && std::fabs(a2 - half) < 1e-3) << a1 << " " << a2 << " " << a3;
    // ZXZ reads R11 twice: with a3 = 0 the first angle is atan2(R11, R00).
    CmatrixCalc<T>::ArcToRotZXZ(T(0.3), T(0.5), T(0), R);
    CmatrixCalc<T>::RotToArcZXZ(R, a1, a2, a3);
    const T b3 = std::atan2(R(2, 0), R(2, 1));
    EXPECT_TRUE(std::fabs(a2 - T(0.5)) < 1e-6 && a3 == b3);
    EXPECT_EQ(a1, std::atan2(R(1, 1) * std::cos(b3) - R(1, 1) * std::sin(b3), R(0, 0) * std::cos(b3) - R(0, 1) * std::sin(b3)));
    EXPECT_GT(std::fabs(a1 - T(0.3)), T(0.01));  // not the true first angle
}

// The shape error id is 28 << m << n as a 32-bit shift (0 once a shift
// reaches 32 bits), the file the historic one, each function its own line.
TYPED_TEST(MatrixCalcTyped, RotToArcShapeErrors) {
    using T = TypeParam;
    using F = void (*)(Cmatrix<T> const&, T&, T&, T&);
    const F fns[] = {&CmatrixCalc<T>::RotToArcCAP, &CmatrixCalc<T>::RotToArcCAP_transp, &CmatrixCalc<T>::RotToArcXYZ,
                     &CmatrixCalc<T>::RotToArcZXZ};
    const int lines[] = {797, CmatrixCalc<T>::lineRotToArcCAP_transp, CmatrixCalc<T>::lineRotToArcXYZ,
                         CmatrixCalc<T>::lineRotToArcZXZ};
    const struct {
        unsigned m, n;
        int id;
    } shapes[] = {{2, 2, 28 * 16}, {2, 3, 28 << 5}, {3, 2, 28 << 5}, {5, 5, 28 << 10}, {1, 1, 28 << 2}, {0, 0, 28},
                  {3, 4, 28 << 7}, {20, 20, 0},     {1, 31, 0},      {40, 40, 0},      {3, 29, int(28u << 29 << 3)}};
    for (unsigned f = 0; f < 4; ++f) {
        for (unsigned g = 0; g < f; ++g) EXPECT_NE(lines[f], lines[g]);
        for (auto const& s : shapes) {
            T a1 = 7, a2 = 8, a3 = 9;
            try {
                fns[f](Cmatrix<T>(s.m, s.n, T(0)), a1, a2, a3);
                ADD_FAILURE() << "no exception for " << s.m << "x" << s.n;
            } catch (CthrowMath const& e) {
                EXPECT_TRUE(e.id() == s.id && e.info().empty() && e.line() == lines[f]) << s.m << "x" << s.n << ": " << e.id();
                EXPECT_EQ(e.file(), ".\\source\\math_solver_le");  // two single backslashes, 23 bytes
            }
            EXPECT_TRUE(a1 == T(7) && a2 == T(8) && a3 == T(9));  // outputs untouched
        }
    }
}

TYPED_TEST(MatrixCalcTyped, GetRotScaleAndDif) {
    using T = TypeParam;
    Cmatrix<T> R0, R, S, H(4, 4, T(1)), R4, S4, Rn(1, 1, T(5)), Sn(1, 1, T(6));
    CmatrixCalc<T>::ArcToRotXYZ(T(0.1), T(0.2), T(0.3), R0);
    const Cmatrix<T> D = fromRows<T>(3, 3, {2, 0, 0, 0, 3, 0, 0, 0, 0.5}), M = R0 * D;
    CmatrixCalc<T>::getRotScale(M, R, S);
    expectMatNear(S, D, 4 * tolOf<T>());
    expectMatNear(R, R0, 4 * tolOf<T>());
    EXPECT_EQ(S(0, 1), T(0));
    // 4×4: the upper-left block; other shapes: no effect.
    H.setMatrix(0, 0, M);
    CmatrixCalc<T>::getRotScale(H, R4, S4);
    expectMatNear(R4, R, 0);
    CmatrixCalc<T>::getRotScale(fromRows<T>(2, 2, {1, 0, 0, 1}), Rn, Sn);
    EXPECT_TRUE(Rn.m() == 1u && Sn(0, 0) == T(6));
    // The same object as input and output.
    Cmatrix<T> same = M;
    CmatrixCalc<T>::getRotScale(same, same, S);
    expectMatNear(same, R0, 4 * tolOf<T>());

    EXPECT_EQ(CmatrixCalc<T>::dif(M, M), T(0));
    EXPECT_EQ(CmatrixCalc<T>::dif(fromRows<T>(1, 2, {1, 2}), fromRows<T>(1, 2, {4, 6})), T(25));
    EXPECT_TRUE(std::isnan(CmatrixCalc<T>::dif(fromRows<T>(1, 2, {1, 2}), fromRows<T>(2, 1, {1, 2}))));
}

// Random symmetric matrices 2..10 and 50, and repeated eigenvalues (Q·diag·Qᵀ):
// A is left diagonal with the eigenvalues ordered by decreasing magnitude,
// equal to Eigen's; the rows of V are orthonormal eigenvectors.
TEST(MatrixCalcDouble, EigenvaluesAgainstEigen) {
    std::mt19937 rng(42);
    std::vector<Cmatrix<double>> cases;
    for (unsigned n = 2; n <= 10; ++n)
        for (int trial = 0; trial < 20; ++trial) cases.push_back(randomSymmetric(n, rng));
    cases.push_back(randomSymmetric(50, rng));
    const Eigen::MatrixXd Q = Eigen::HouseholderQR<Eigen::MatrixXd>(Eigen::MatrixXd::Random(6, 6)).householderQ();
    Eigen::VectorXd lam(6);
    lam << 2, 2, 2, -1, 5, 0;
    const Eigen::MatrixXd S = Q * lam.asDiagonal() * Q.transpose();
    cases.emplace_back(6, 6);
    for (unsigned i = 0; i < 6; ++i)
        for (unsigned j = 0; j < 6; ++j) cases.back()(i, j) = 0.5 * (S(i, j) + S(j, i));
    for (Cmatrix<double> const& A0 : cases) {
        const unsigned n = A0.n();
        SCOPED_TRACE(n);
        Cmatrix<double> A = A0, V;
        CmatrixCalc<double>::getEigenvalue(A, V);
        ASSERT_TRUE(V.m() == n && V.n() == n);
        Eigen::VectorXd ev = Eigen::SelfAdjointEigenSolver<Eigen::MatrixXd>(toEigen(A0)).eigenvalues();
        std::sort(ev.data(), ev.data() + n, [](double a, double b) { return std::fabs(a) > std::fabs(b); });
        const double lmax = std::fabs(ev[0]);
        const Eigen::MatrixXd E = toEigen(A), Ve = toEigen(V);
        EXPECT_LT((E.diagonal() - ev).cwiseAbs().maxCoeff(), 1e-12 * lmax);
        EXPECT_EQ((E - Eigen::MatrixXd(E.diagonal().asDiagonal())).cwiseAbs().maxCoeff(), 0.0);
        for (unsigned k = 1; k < n; ++k) EXPECT_GE(std::fabs(E(k - 1, k - 1)), std::fabs(E(k, k)));
        EXPECT_LT((Ve * Ve.transpose() - Eigen::MatrixXd::Identity(n, n)).cwiseAbs().maxCoeff(), 1e-13);
        EXPECT_LT((toEigen(A0) * Ve.transpose() - Ve.transpose() * E).cwiseAbs().maxCoeff(), 1e-13 * lmax);
    }
}

TYPED_TEST(MatrixCalcTyped, EigenvalueSpecialMatrices) {
    using T = TypeParam;
    // Diagonal: V is a permutation, the values reordered by magnitude (on ties
    // the smaller index first).
    Cmatrix<T> D = fromRows<T>(4, 4, {1, 0, 0, 0, 0, -3, 0, 0, 0, 0, 2, 0, 0, 0, 0, 3}), V;
    CmatrixCalc<T>::getEigenvalue(D, V);
    const T expect[] = {-3, 3, 2, 1};
    const unsigned from[] = {1, 3, 2, 0};
    for (unsigned k = 0; k < 4; ++k) {
        EXPECT_EQ(D(k, k), expect[k]);
        for (unsigned j = 0; j < 4; ++j) EXPECT_EQ(V(k, j), j == from[k] ? T(1) : T(0));
    }
    // Not square: nothing happens.  1×1 and empty.
    Cmatrix<T> R = fromRows<T>(2, 3, {1, 2, 3, 4, 5, 6}), W(1, 1, T(7));
    CmatrixCalc<T>::getEigenvalue(R, W);
    EXPECT_TRUE(R(1, 2) == T(6) && W(0, 0) == T(7));
    Cmatrix<T> one(1, 1, T(-5)), none;
    CmatrixCalc<T>::getEigenvalue(one, W);
    EXPECT_TRUE(one(0, 0) == T(-5) && W(0, 0) == T(1));
    EXPECT_NO_THROW(CmatrixCalc<T>::getEigenvalue(none, W));
    // Non-finite input ends with the sweep limit (plain int 0), never hangs;
    // DiagTri on a non-square matrix throws the same.
    Cmatrix<T> nan = fromRows<T>(3, 3, {1, 2, 3, 2, 1, 0, 3, 0, 1}), rect(2, 3);
    nan(1, 1) = std::numeric_limits<T>::quiet_NaN();
    expectThrowsInt0<T>([&] { CmatrixCalc<T>::getEigenvalue(nan, V); });
    expectThrowsInt0<T>([&] { CmatrixCalc<T>::DiagTri(rect, W); });
}

TEST(MatrixCalcDouble, TriDiagSkipIsRelativeToTheMatrixScale) {
    // Column 0 below the diagonal has squared length 2e-20, below
    // 2^-52·max|A|²: the reflection is skipped, the entry below the
    // subdiagonal dropped, A still ends tridiagonal, and the eigenvalues (well
    // separated, so perturbed only to second order) still agree with Eigen.
    Cmatrix<double> A = fromRows<double>(3, 3, {1, 1e-10, 1e-10, 1e-10, 2, 0.5, 1e-10, 0.5, 3});
    const Cmatrix<double> A0 = A;
    Cmatrix<double> V, E = A0, W;
    CmatrixCalc<double>::QR_TriDiag(A, V);
    EXPECT_TRUE(A(2, 0) == 0.0 && A(0, 2) == 0.0);
    EXPECT_EQ(A(1, 0), 1e-10);  // no reflection: the subdiagonal is kept
    EXPECT_EQ(V(0, 0), 1.0);
    CmatrixCalc<double>::getEigenvalue(E, W);
    const Eigen::VectorXd es = Eigen::SelfAdjointEigenSolver<Eigen::MatrixXd>(toEigen(A0)).eigenvalues();
    for (unsigned k = 0; k < 3; ++k) EXPECT_NEAR(E(k, k), es(2 - k), 1e-15 * 3);
    // Scaling by a power of two scales every step exactly: the same
    // reflections are taken (none skipped for lack of absolute size), the
    // eigenvalues scale exactly and the eigenvectors are bit for bit equal.
    std::mt19937 rng(77);
    for (int exp : {-60, -40, -20, 20, 60}) {
        Cmatrix<double> a = randomSymmetric(8, rng), b = a, va, vb;
        for (double& x : b) x = std::ldexp(x, exp);
        CmatrixCalc<double>::getEigenvalue(a, va);
        CmatrixCalc<double>::getEigenvalue(b, vb);
        for (unsigned k = 0; k < 8; ++k) EXPECT_EQ(b(k, k), std::ldexp(a(k, k), exp)) << exp;
        for (unsigned e = 0; e < va.size(); ++e) EXPECT_EQ(vb.getBase()[e], va.getBase()[e]) << exp;
    }
}

TYPED_TEST(MatrixCalcTyped, DiagTriWithWrongShapedV) {
    using T = TypeParam;
    Cmatrix<T> Tm = fromRows<T>(3, 3, {2, 1, 0, 1, 2, 1, 0, 1, 2}), W(2, 5, T(3));
    CmatrixCalc<T>::DiagTri(Tm, W);
    ASSERT_EQ(W.m(), 3u);
    std::vector<double> d{Tm(0, 0), Tm(1, 1), Tm(2, 2)};
    std::sort(d.begin(), d.end());
    EXPECT_LT((Eigen::Vector3d(d.data()) - Eigen::Vector3d(2 - std::sqrt(2.0), 2, 2 + std::sqrt(2.0))).cwiseAbs().maxCoeff(), 4 * tolOf<T>());
}

TYPED_TEST(MatrixCalcTyped, Eigenvalue2x2Sym) {
    using T = TypeParam;
    Cmatrix<T> A = fromRows<T>(2, 2, {2, 1, 1, 3}), V;
    CmatrixCalc<T>::getEigenvalue2x2sym(A, V);
    // A is rotated to diag(λ+, λ−); row 0 of V is the eigenvector of λ+.
    const double lp = 2.5 + std::sqrt(1.25), lm = 2.5 - std::sqrt(1.25);
    EXPECT_NEAR(A(0, 0), lp, 4 * tolOf<T>());
    EXPECT_NEAR(A(1, 1), lm, 4 * tolOf<T>());
    EXPECT_NEAR(A(0, 1), 0, 4 * tolOf<T>());
    EXPECT_TRUE(A(0, 1) == A(1, 0) && V(0, 0) == V(1, 1) && V(0, 1) == -V(1, 0));
    EXPECT_NEAR(2 * V(0, 0) + 1 * V(0, 1), lp * V(0, 0), 8 * tolOf<T>());
    // Exactly diagonal: b = 0 divides by zero (t = inf, c = 0, s = inf·0 = NaN).
    Cmatrix<T> D = fromRows<T>(2, 2, {1, 0, 0, 2});
    CmatrixCalc<T>::getEigenvalue2x2sym(D, V);
    EXPECT_EQ(V(0, 0), T(0));
    EXPECT_TRUE(std::isnan(V(0, 1)) && std::isnan(D(0, 0)) && std::isnan(D(0, 1)));
    // Tiny non-zero b: a normal rotation.
    Cmatrix<T> S = fromRows<T>(2, 2, {1, 0, 0, 2});
    S(0, 1) = S(1, 0) = std::is_same<T, float>::value ? T(1e-10) : T(1e-20);  // t² must stay finite
    CmatrixCalc<T>::getEigenvalue2x2sym(S, V);
    EXPECT_TRUE(std::isfinite(V(0, 0)));
    EXPECT_NEAR(S(0, 0), 2, 4 * tolOf<T>());
    // Not symmetric or not 2×2: no effect.
    Cmatrix<T> N = fromRows<T>(2, 2, {1, 1, 0.5, 2}), W(1, 1, T(4)), big(3, 3, T(1));
    CmatrixCalc<T>::getEigenvalue2x2sym(N, W);
    EXPECT_TRUE(W.m() == 1u && N(1, 0) == T(0.5));
    CmatrixCalc<T>::getEigenvalue2x2sym(big, W);
    EXPECT_EQ(W(0, 0), T(4));
}
