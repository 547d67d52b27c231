// Tests of CmatrixCalc: rotation conventions, rotation/scale split,
// symmetric eigen decomposition, matrix difference.
#include <math/errors.h>
#include <math/matrix_calc.h>

#include <gtest/gtest.h>

#include <Eigen/Dense>

#include <cmath>
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

template <class T>
Cmatrix<T> rx(T a) {
    return fromRows<T>(3, 3, {1, 0, 0, 0, std::cos(a), -std::sin(a), 0, std::sin(a), std::cos(a)});
}
template <class T>
Cmatrix<T> ry(T a) {
    return fromRows<T>(3, 3, {std::cos(a), 0, std::sin(a), 0, 1, 0, -std::sin(a), 0, std::cos(a)});
}
template <class T>
Cmatrix<T> rz(T a) {
    return fromRows<T>(3, 3, {std::cos(a), -std::sin(a), 0, std::sin(a), std::cos(a), 0, 0, 0, 1});
}

template <class T>
double tolOf() {
    return std::is_same<T, float>::value ? 2e-6 : 1e-14;
}

template <class T>
void expectMatNear(Cmatrix<T> const& a, Cmatrix<T> const& b, double tol) {
    ASSERT_EQ(a.m(), b.m());
    ASSERT_EQ(a.n(), b.n());
    for (unsigned i = 0; i < a.m(); ++i)
        for (unsigned j = 0; j < a.n(); ++j) EXPECT_NEAR(a(i, j), b(i, j), tol) << "(" << i << "," << j << ")";
}

Cmatrix<double> randomSymmetric(unsigned n, std::mt19937& rng) {
    std::uniform_real_distribution<double> u(-1, 1);
    Cmatrix<double> a(n, n);
    for (unsigned i = 0; i < n; ++i)
        for (unsigned j = 0; j <= i; ++j) a(i, j) = a(j, i) = u(rng);
    return a;
}

Eigen::MatrixXd toEigen(Cmatrix<double> const& a) {
    Eigen::MatrixXd e(a.m(), a.n());
    for (unsigned i = 0; i < a.m(); ++i)
        for (unsigned j = 0; j < a.n(); ++j) e(i, j) = a(i, j);
    return e;
}

}  // namespace

template <class T>
class MatrixCalcTyped : public ::testing::Test {};
using Scalars = ::testing::Types<float, double>;
TYPED_TEST_SUITE(MatrixCalcTyped, Scalars);

// ---------------------------------------------------------------------------
// Rotations
// ---------------------------------------------------------------------------

TYPED_TEST(MatrixCalcTyped, ArcToRotMatchesElementaryProducts) {
    using T = TypeParam;
    std::mt19937 rng(1);
    std::uniform_real_distribution<double> u(-3, 3);
    for (int trial = 0; trial < 50; ++trial) {
        const T a1 = T(u(rng)), a2 = T(u(rng)), a3 = T(u(rng));
        Cmatrix<T> xyz, cap, zyx, zxz;
        Cmatrix<T> out(7, 2, T(5));  // any previous shape is replaced
        CmatrixCalc<T>::ArcToRotXYZ(a1, a2, a3, xyz);
        CmatrixCalc<T>::ArcToRotCAP(a1, a2, a3, cap);
        CmatrixCalc<T>::ArcToRotZYX(a1, a2, a3, zyx);
        CmatrixCalc<T>::ArcToRotZXZ(a1, a2, a3, out);
        const double tol = 4 * tolOf<T>();
        expectMatNear(xyz, rx(a1) * ry(a2) * rz(a3), tol);
        expectMatNear(cap, (rx(a1) * ry(a2) * rz(a3)).transp(), tol);
        expectMatNear(zyx, rz(a3) * ry(a2) * rx(a1), tol);
        expectMatNear(out, rz(a1) * rx(a2) * rz(a3), tol);
        // CAP is the transpose of XYZ, element by element.
        for (unsigned i = 0; i < 3; ++i)
            for (unsigned j = 0; j < 3; ++j) EXPECT_NEAR(cap(i, j), xyz(j, i), tol);
    }
}

TYPED_TEST(MatrixCalcTyped, RotToArcRoundTrips) {
    using T = TypeParam;
    std::mt19937 rng(2);
    std::uniform_real_distribution<double> u(-3, 3), half(-1.5, 1.5);
    const double tol = std::is_same<T, float>::value ? 2e-4 : 1e-12;
    for (int trial = 0; trial < 100; ++trial) {
        const T a1 = T(u(rng)), a2 = T(half(rng)), a3 = T(u(rng));
        Cmatrix<T> R;
        T b1, b2, b3;
        CmatrixCalc<T>::ArcToRotXYZ(a1, a2, a3, R);
        CmatrixCalc<T>::RotToArcCAP_transp(R, b1, b2, b3);
        EXPECT_NEAR(b1, a1, tol);
        EXPECT_NEAR(b2, a2, tol);
        EXPECT_NEAR(b3, a3, tol);
        // The XYZ formula pairs R20 with c3: a1' = atan2(s1·sin 2a3 − c1·s2·cos 2a3, c1).
        CmatrixCalc<T>::RotToArcXYZ(R, b1, b2, b3);
        EXPECT_NEAR(b2, a2, tol);
        EXPECT_NEAR(b3, a3, tol);
        const double expect = std::atan2(std::sin(double(a1)) * std::sin(2.0 * a3) -
                                             std::cos(double(a1)) * std::sin(double(a2)) * std::cos(2.0 * a3),
                                         std::cos(double(a1)));
        EXPECT_NEAR(b1, expect, 10 * tol);

        CmatrixCalc<T>::ArcToRotCAP(a1, a2, a3, R);
        CmatrixCalc<T>::RotToArcCAP(R, b1, b2, b3);
        EXPECT_NEAR(b1, a1, tol);
        EXPECT_NEAR(b2, a2, tol);
        EXPECT_NEAR(b3, a3, tol);
        // A 4×4 homogeneous matrix is read through its upper-left 3×3.
        Cmatrix<T> H(4, 4, T(9));
        H.setMatrix(0, 0, R);
        T c1, c2, c3;
        CmatrixCalc<T>::RotToArcCAP(H, c1, c2, c3);
        EXPECT_EQ(c1, b1);
        EXPECT_EQ(c2, b2);
        EXPECT_EQ(c3, b3);
    }
    // At a3 = π/4 the XYZ formula is the exact inverse.
    Cmatrix<T> R;
    T b1, b2, b3;
    const T q = T(std::atan(1.0));
    CmatrixCalc<T>::ArcToRotXYZ(T(0.4), T(0.2), q, R);
    CmatrixCalc<T>::RotToArcXYZ(R, b1, b2, b3);
    EXPECT_NEAR(b1, 0.4, tol);
}

TYPED_TEST(MatrixCalcTyped, RotToArcGimbalLockAndZxzQuirk) {
    using T = TypeParam;
    // a2 = π/2 in CAP: a3 comes back as 0 and a1 carries the combined rotation.
    const T half = T(std::acos(-1.0) / 2);
    Cmatrix<T> R;
    CmatrixCalc<T>::ArcToRotCAP(T(0.3), half, T(0.2), R);
    R(1, 0) = 0;  // exactly zero, as the exact matrix has it
    R(0, 0) = 0;
    T a1, a2, a3;
    CmatrixCalc<T>::RotToArcCAP(R, a1, a2, a3);
    EXPECT_EQ(a3, T(0));
    EXPECT_NEAR(a1, 0.5, 1e-5);
    EXPECT_NEAR(a2, half, 1e-3);

    // ZXZ reads R11 twice: with a3 = 0 the first angle is atan2(R11, R00).
    CmatrixCalc<T>::ArcToRotZXZ(T(0.3), T(0.5), T(0), R);
    CmatrixCalc<T>::RotToArcZXZ(R, a1, a2, a3);
    EXPECT_NEAR(a2, 0.5, 1e-6);
    const T b3 = std::atan2(R(2, 0), R(2, 1));
    EXPECT_EQ(a3, b3);
    EXPECT_EQ(a1, std::atan2(R(1, 1) * std::cos(b3) - R(1, 1) * std::sin(b3), R(0, 0) * std::cos(b3) - R(0, 1) * std::sin(b3)));
    EXPECT_NEAR(a1, std::atan2(double(R(1, 1)), double(R(0, 0))), 1e-6);
    EXPECT_GT(std::fabs(a1 - T(0.3)), T(0.01));  // not the true first angle
}

TYPED_TEST(MatrixCalcTyped, RotToArcShapeErrors) {
    using T = TypeParam;
    using F = void (*)(Cmatrix<T> const&, T&, T&, T&);
    const F fns[] = {&CmatrixCalc<T>::RotToArcCAP, &CmatrixCalc<T>::RotToArcCAP_transp, &CmatrixCalc<T>::RotToArcXYZ,
                     &CmatrixCalc<T>::RotToArcZXZ};
    const int lines[] = {797, CmatrixCalc<T>::lineRotToArcCAP_transp, CmatrixCalc<T>::lineRotToArcXYZ,
                         CmatrixCalc<T>::lineRotToArcZXZ};
    struct Shape {
        unsigned m, n;
        int id;
    };
    const Shape shapes[] = {
        {2, 2, 28 * 16},         // 28 << 2 << 2
        {2, 3, 28 << 5},         // 28 << 3 << 2
        {3, 2, 28 << 5},         // 28 << 2 << 3
        {5, 5, 28 << 10},
        {1, 1, 28 << 2},
        {0, 0, 28},
        {3, 4, 28 << 7},
        {20, 20, 0},             // 28·2^40 does not fit 32 bits
        {1, 31, 0},              // shift of 32 or more: 0
        {40, 40, 0},
        {3, 29, int(28u << 29 << 3)},  // wraps modulo 2^32 before the conversion
    };
    for (unsigned f = 0; f < 4; ++f) {
        for (Shape const& s : shapes) {
            Cmatrix<T> R(s.m, s.n, T(0));
            T a1 = 7, a2 = 8, a3 = 9;
            try {
                fns[f](R, a1, a2, a3);
                ADD_FAILURE() << "no exception for " << s.m << "x" << s.n;
            } catch (CthrowMath const& e) {
                EXPECT_EQ(e.id(), s.id) << s.m << "x" << s.n;
                EXPECT_EQ(e.info(), "");
                EXPECT_EQ(e.file(), ".\\source\\math_solver_le");
                EXPECT_EQ(e.file().size(), 23u);  // two single backslashes
                EXPECT_EQ(e.file()[1], '\\');
                EXPECT_EQ(e.file()[8], '\\');
                EXPECT_EQ(e.line(), lines[f]);
            }
            EXPECT_EQ(a1, T(7));  // outputs untouched
            EXPECT_EQ(a3, T(9));
        }
    }
    // Distinct lines for the four functions.
    EXPECT_NE(lines[0], lines[1]);
    EXPECT_NE(lines[1], lines[2]);
    EXPECT_NE(lines[2], lines[3]);
    EXPECT_NE(lines[0], lines[3]);
}

TYPED_TEST(MatrixCalcTyped, GetRotScaleAndDif) {
    using T = TypeParam;
    Cmatrix<T> R0;
    CmatrixCalc<T>::ArcToRotXYZ(T(0.1), T(0.2), T(0.3), R0);
    Cmatrix<T> M = R0 * fromRows<T>(3, 3, {2, 0, 0, 0, 3, 0, 0, 0, 0.5});
    Cmatrix<T> R, S;
    CmatrixCalc<T>::getRotScale(M, R, S);
    expectMatNear(S, fromRows<T>(3, 3, {2, 0, 0, 0, 3, 0, 0, 0, 0.5}), 4 * tolOf<T>());
    expectMatNear(R, R0, 4 * tolOf<T>());
    EXPECT_EQ(S(0, 1), T(0));
    // 4×4: the upper-left block; other shapes: no effect.
    Cmatrix<T> H(4, 4, T(1));
    H.setMatrix(0, 0, M);
    Cmatrix<T> R4, S4;
    CmatrixCalc<T>::getRotScale(H, R4, S4);
    for (unsigned k = 0; k < 9; ++k) EXPECT_EQ(R4.getBase()[k], R.getBase()[k]);
    Cmatrix<T> Rn(1, 1, T(5)), Sn(1, 1, T(6));
    CmatrixCalc<T>::getRotScale(fromRows<T>(2, 2, {1, 0, 0, 1}), Rn, Sn);
    EXPECT_EQ(Rn.m(), 1u);
    EXPECT_EQ(Sn(0, 0), T(6));
    // The same object as input and output.
    Cmatrix<T> same = M;
    CmatrixCalc<T>::getRotScale(same, same, S);
    expectMatNear(same, R0, 4 * tolOf<T>());

    EXPECT_EQ(CmatrixCalc<T>::dif(M, M), T(0));
    EXPECT_EQ(CmatrixCalc<T>::dif(fromRows<T>(1, 2, {1, 2}), fromRows<T>(1, 2, {4, 6})), T(25));
    EXPECT_TRUE(std::isnan(CmatrixCalc<T>::dif(fromRows<T>(1, 2, {1, 2}), fromRows<T>(2, 1, {1, 2}))));
}

// ---------------------------------------------------------------------------
// Eigenvalues
// ---------------------------------------------------------------------------

TEST(MatrixCalcDouble, EigenvaluesAgainstEigen) {
    std::mt19937 rng(42);
    for (unsigned n = 2; n <= 10; ++n) {
        for (int trial = 0; trial < 20; ++trial) {
            const Cmatrix<double> A0 = randomSymmetric(n, rng);
            Cmatrix<double> A = A0, V;
            CmatrixCalc<double>::getEigenvalue(A, V);
            ASSERT_EQ(V.m(), n);
            ASSERT_EQ(V.n(), n);
            Eigen::SelfAdjointEigenSolver<Eigen::MatrixXd> es(toEigen(A0));
            std::vector<double> ev(es.eigenvalues().data(), es.eigenvalues().data() + n);
            std::sort(ev.begin(), ev.end(), [](double a, double b) { return std::fabs(a) > std::fabs(b); });
            const double lmax = std::fabs(ev[0]);
            for (unsigned k = 0; k < n; ++k) {
                // Eigenvalues to 1e-12 relative to the largest magnitude (the
                // normwise conditioning of symmetric eigenvalues).
                EXPECT_NEAR(A(k, k), ev[k], 1e-12 * lmax) << "n = " << n << " k = " << k;
                if (k) {
                    EXPECT_GE(std::fabs(A(k - 1, k - 1)), std::fabs(A(k, k)));
                }
                // Row k of V is a unit eigenvector: A0·v = λ·v.
                double norm = 0;
                for (unsigned j = 0; j < n; ++j) norm += V(k, j) * V(k, j);
                EXPECT_NEAR(norm, 1, 1e-14);
                for (unsigned i = 0; i < n; ++i) {
                    double av = 0;
                    for (unsigned j = 0; j < n; ++j) av += A0(i, j) * V(k, j);
                    EXPECT_NEAR(av, A(k, k) * V(k, i), 1e-13 * lmax);
                }
                for (unsigned j = 0; j < n; ++j) {
                    if (j != k) {
                        EXPECT_EQ(A(k, j), 0.0);
                    }
                }
            }
            // Orthonormal rows.
            const Eigen::MatrixXd Ve = toEigen(V);
            EXPECT_LT((Ve * Ve.transpose() - Eigen::MatrixXd::Identity(n, n)).cwiseAbs().maxCoeff(), 1e-14);
        }
    }
}

TEST(MatrixCalcDouble, EigenvaluesRepeatedAndLarge) {
    // Repeated eigenvalues (Q·diag·Qᵀ with a random orthogonal Q) and a 50×50
    // matrix: eigen pairs and orthonormal rows, the sweep limit 3·n + 30
    // suffices.
    std::mt19937 rng(4);
    const Eigen::MatrixXd Q = Eigen::HouseholderQR<Eigen::MatrixXd>(Eigen::MatrixXd::Random(6, 6)).householderQ();
    Eigen::VectorXd lam(6);
    lam << 2, 2, 2, -1, 5, 0;
    const Eigen::MatrixXd S = Q * lam.asDiagonal() * Q.transpose();
    Cmatrix<double> A(6, 6);
    for (unsigned i = 0; i < 6; ++i)
        for (unsigned j = 0; j < 6; ++j) A(i, j) = 0.5 * (S(i, j) + S(j, i));
    std::vector<Cmatrix<double>> cases{A, randomSymmetric(50, rng)};
    for (Cmatrix<double> const& A0 : cases) {
        const unsigned n = A0.n();
        Cmatrix<double> E = A0, V;
        ASSERT_NO_THROW(CmatrixCalc<double>::getEigenvalue(E, V));
        const Eigen::MatrixXd Ve = toEigen(V);
        EXPECT_LT((Ve * Ve.transpose() - Eigen::MatrixXd::Identity(n, n)).cwiseAbs().maxCoeff(), 1e-13);
        const Eigen::MatrixXd R = toEigen(A0) * Ve.transpose() - Ve.transpose() * toEigen(E);
        EXPECT_LT(R.cwiseAbs().maxCoeff(), 1e-13 * std::fabs(E(0, 0)));
    }
    Cmatrix<double> E = A, V;
    CmatrixCalc<double>::getEigenvalue(E, V);
    const double expect[] = {5, 2, 2, 2, -1, 0};
    for (unsigned k = 0; k < 6; ++k) EXPECT_NEAR(E(k, k), expect[k], 1e-14 * 5);
}

TYPED_TEST(MatrixCalcTyped, EigenvalueSpecialMatrices) {
    using T = TypeParam;
    // Diagonal: V is a permutation, the values reordered by magnitude (on ties
    // the smaller index first).
    Cmatrix<T> D = fromRows<T>(4, 4, {1, 0, 0, 0, 0, -3, 0, 0, 0, 0, 2, 0, 0, 0, 0, 3});
    Cmatrix<T> V;
    CmatrixCalc<T>::getEigenvalue(D, V);
    const T expect[] = {-3, 3, 2, 1};
    const unsigned from[] = {1, 3, 2, 0};
    for (unsigned k = 0; k < 4; ++k) {
        EXPECT_EQ(D(k, k), expect[k]);
        for (unsigned j = 0; j < 4; ++j) EXPECT_EQ(V(k, j), j == from[k] ? T(1) : T(0));
    }
    // Not square: nothing happens.
    Cmatrix<T> R = fromRows<T>(2, 3, {1, 2, 3, 4, 5, 6});
    Cmatrix<T> W(1, 1, T(7));
    CmatrixCalc<T>::getEigenvalue(R, W);
    EXPECT_EQ(R(1, 2), T(6));
    EXPECT_EQ(W(0, 0), T(7));
    // 1×1 and empty.
    Cmatrix<T> one(1, 1, T(-5));
    CmatrixCalc<T>::getEigenvalue(one, W);
    EXPECT_EQ(one(0, 0), T(-5));
    EXPECT_EQ(W(0, 0), T(1));
    Cmatrix<T> none;
    EXPECT_NO_THROW(CmatrixCalc<T>::getEigenvalue(none, W));
    // A 3×3 covariance of micrometre-sized features in metres: the scale of
    // the entries must not matter.
    Cmatrix<T> C = fromRows<T>(3, 3, {4, 1, 0.5, 1, 3, 0.25, 0.5, 0.25, 1});
    Cmatrix<T> Cs = C;
    Cs *= T(1e-12);
    Cmatrix<T> Vc, Vs;
    CmatrixCalc<T>::getEigenvalue(C, Vc);
    CmatrixCalc<T>::getEigenvalue(Cs, Vs);
    for (unsigned k = 0; k < 3; ++k) {
        EXPECT_NEAR(Cs(k, k) * T(1e12), C(k, k), 20 * tolOf<T>() * 5);
        T dot = 0;
        for (unsigned j = 0; j < 3; ++j) dot += Vc(k, j) * Vs(k, j);
        EXPECT_NEAR(std::fabs(dot), 1, 20 * tolOf<T>());
    }
    // Non-finite input ends with the sweep limit (plain int 0), never hangs.
    Cmatrix<T> nan = fromRows<T>(3, 3, {1, 2, 3, 2, 1, 0, 3, 0, 1});
    nan(1, 1) = std::numeric_limits<T>::quiet_NaN();
    try {
        CmatrixCalc<T>::getEigenvalue(nan, V);
        ADD_FAILURE() << "expected int 0";
    } catch (int e) {
        EXPECT_EQ(e, 0);
    }
}

TEST(MatrixCalcDouble, TriDiagSkipIsRelativeToTheMatrixScale) {
    // Column 0 below the diagonal has squared length 2e-20, below
    // 2^-52·max|A|²: the reflection is skipped, the entry below the
    // subdiagonal dropped, A still ends tridiagonal, and the eigenvalues (well
    // separated, so perturbed only to second order) still agree with Eigen.
    Cmatrix<double> A = fromRows<double>(3, 3, {1, 1e-10, 1e-10, 1e-10, 2, 0.5, 1e-10, 0.5, 3});
    const Cmatrix<double> A0 = A;
    Cmatrix<double> V;
    CmatrixCalc<double>::QR_TriDiag(A, V);
    EXPECT_EQ(A(2, 0), 0.0);
    EXPECT_EQ(A(0, 2), 0.0);
    EXPECT_EQ(A(1, 0), 1e-10);  // no reflection: the subdiagonal is kept
    EXPECT_EQ(V(0, 0), 1.0);
    Cmatrix<double> E = A0, W;
    CmatrixCalc<double>::getEigenvalue(E, W);
    Eigen::SelfAdjointEigenSolver<Eigen::MatrixXd> es(toEigen(A0));
    for (unsigned k = 0; k < 3; ++k) EXPECT_NEAR(E(k, k), es.eigenvalues()(2 - k), 1e-15 * 3);

    // Scaling by a power of two scales every step exactly: the same
    // reflections are taken (none skipped for lack of absolute size), the
    // eigenvalues scale exactly and the eigenvectors are bit for bit equal.
    std::mt19937 rng(77);
    for (int exp : {-60, -40, -20, 20, 60}) {
        for (unsigned n : {3u, 5u, 8u}) {
            const Cmatrix<double> S = randomSymmetric(n, rng);
            Cmatrix<double> a = S, va;
            Cmatrix<double> b = S, vb;
            for (double& x : b) x = std::ldexp(x, exp);
            CmatrixCalc<double>::getEigenvalue(a, va);
            CmatrixCalc<double>::getEigenvalue(b, vb);
            for (unsigned k = 0; k < n; ++k) EXPECT_EQ(b(k, k), std::ldexp(a(k, k), exp)) << exp;
            for (unsigned e = 0; e < va.size(); ++e) EXPECT_EQ(vb.getBase()[e], va.getBase()[e]) << exp;
        }
    }
}

TYPED_TEST(MatrixCalcTyped, TriDiagAndDiagTriStages) {
    using T = TypeParam;
    std::mt19937 rng(8);
    std::uniform_real_distribution<double> u(-1, 1);
    const unsigned n = 6;
    Cmatrix<T> A(n, n);
    for (unsigned i = 0; i < n; ++i)
        for (unsigned j = 0; j <= i; ++j) A(i, j) = A(j, i) = T(u(rng));
    const Cmatrix<T> A0 = A;
    Cmatrix<T> V;
    CmatrixCalc<T>::QR_TriDiag(A, V);
    // Tridiagonal, symmetric, and V·A0·Vᵀ = A with V orthogonal.
    for (unsigned i = 0; i < n; ++i)
        for (unsigned j = 0; j < n; ++j) {
            if (i > j + 1 || j > i + 1) {
                EXPECT_EQ(A(i, j), T(0));
            }
            EXPECT_EQ(A(i, j), A(j, i));
        }
    expectMatNear(V * A0 * V.transp(), A, 20 * tolOf<T>());
    Cmatrix<T> I(n, n);
    I.setIdentity();
    expectMatNear(V * V.transp(), I, 10 * tolOf<T>());

    CmatrixCalc<T>::DiagTri(A, V);
    for (unsigned i = 0; i < n; ++i)
        for (unsigned j = 0; j < n; ++j)
            if (i != j) {
                EXPECT_EQ(A(i, j), T(0));
            }
    expectMatNear(V * A0 * V.transp(), A, 20 * tolOf<T>());

    // DiagTri with a V of the wrong shape starts from the identity.
    Cmatrix<T> Tm = fromRows<T>(3, 3, {2, 1, 0, 1, 2, 1, 0, 1, 2});
    Cmatrix<T> W(2, 5, T(3));
    CmatrixCalc<T>::DiagTri(Tm, W);
    ASSERT_EQ(W.m(), 3u);
    T d[3] = {Tm(0, 0), Tm(1, 1), Tm(2, 2)};
    std::sort(d, d + 3);
    EXPECT_NEAR(d[0], 2 - std::sqrt(2.0), 4 * tolOf<T>());
    EXPECT_NEAR(d[1], 2, 4 * tolOf<T>());
    EXPECT_NEAR(d[2], 2 + std::sqrt(2.0), 4 * tolOf<T>());
    // Not square: plain int 0.
    Cmatrix<T> rect(2, 3);
    try {
        CmatrixCalc<T>::DiagTri(rect, W);
        ADD_FAILURE() << "expected int 0";
    } catch (int e) {
        EXPECT_EQ(e, 0);
    }
}

TYPED_TEST(MatrixCalcTyped, SortDiagonalPermutation) {
    using T = TypeParam;
    Cmatrix<T> A(5, 5, T(0));
    const T diag[] = {1, -4, 4, 0, -1};
    for (unsigned i = 0; i < 5; ++i) A(i, i) = diag[i];
    Cmatrix<T> P(2, 2, T(9));
    CmatrixCalc<T>::sortDiagonal(A, P);
    // |−4| = |4|: index 1 first; |1| = |−1|: index 0 first.
    const unsigned order[] = {1, 2, 0, 4, 3};
    ASSERT_EQ(P.m(), 5u);
    for (unsigned k = 0; k < 5; ++k)
        for (unsigned i = 0; i < 5; ++i) EXPECT_EQ(P(k, i), i == order[k] ? T(1) : T(0));
    Cmatrix<T> keep(1, 1, T(9));
    CmatrixCalc<T>::sortDiagonal(fromRows<T>(1, 2, {1, 2}), keep);
    EXPECT_EQ(keep(0, 0), T(9));
}

TYPED_TEST(MatrixCalcTyped, Eigenvalue2x2Sym) {
    using T = TypeParam;
    Cmatrix<T> A = fromRows<T>(2, 2, {2, 1, 1, 3});
    Cmatrix<T> V;
    CmatrixCalc<T>::getEigenvalue2x2sym(A, V);
    // A is rotated to diag(λ+, λ−) with λ+ from step 1.
    const double lp = 2.5 + std::sqrt(0.25 + 1), lm = 2.5 - std::sqrt(1.25);
    EXPECT_NEAR(A(0, 0), lp, 4 * tolOf<T>());
    EXPECT_NEAR(A(1, 1), lm, 4 * tolOf<T>());
    EXPECT_NEAR(A(0, 1), 0, 4 * tolOf<T>());
    EXPECT_EQ(A(0, 1), A(1, 0));
    EXPECT_EQ(V(0, 0), V(1, 1));
    EXPECT_EQ(V(0, 1), -V(1, 0));
    // Row 0 of V is the eigenvector of λ+.
    EXPECT_NEAR(2 * V(0, 0) + 1 * V(0, 1), lp * V(0, 0), 8 * tolOf<T>());

    // Exactly diagonal: b = 0 divides by zero, NaN in V and A.
    Cmatrix<T> D = fromRows<T>(2, 2, {1, 0, 0, 2});
    CmatrixCalc<T>::getEigenvalue2x2sym(D, V);
    // (t = 1/0 = inf, c = 0, s = inf·0 = NaN.)
    EXPECT_EQ(V(0, 0), T(0));
    EXPECT_TRUE(std::isnan(V(0, 1)));
    EXPECT_TRUE(std::isnan(D(0, 0)));
    EXPECT_TRUE(std::isnan(D(0, 1)));
    // Tiny non-zero b: a normal rotation.
    Cmatrix<T> S = fromRows<T>(2, 2, {1, 0, 0, 2});
    S(0, 1) = S(1, 0) = std::is_same<T, float>::value ? T(1e-10) : T(1e-20);  // t² must stay finite
    CmatrixCalc<T>::getEigenvalue2x2sym(S, V);
    EXPECT_TRUE(std::isfinite(V(0, 0)));
    EXPECT_NEAR(S(0, 0), 2, 4 * tolOf<T>());
    // Not symmetric or not 2×2: no effect.
    Cmatrix<T> N = fromRows<T>(2, 2, {1, 1, 0.5, 2});
    Cmatrix<T> W(1, 1, T(4));
    CmatrixCalc<T>::getEigenvalue2x2sym(N, W);
    EXPECT_EQ(W.m(), 1u);
    EXPECT_EQ(N(1, 0), T(0.5));
    Cmatrix<T> big(3, 3, T(1));
    CmatrixCalc<T>::getEigenvalue2x2sym(big, W);
    EXPECT_EQ(W(0, 0), T(4));
}
