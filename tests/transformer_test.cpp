#include <math/errors.h>
#include <math/transform3.h>

#include <Eigen/Dense>
#include <Eigen/Geometry>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <utility>
#include <random>
#include <string>
#include <vector>

using namespace math;

namespace {

template <class T>
using Pts = std::vector<Cpoint3<T>>;
template <class T>
using Tr = Ctransformer<T>;

template <class T>
double tolT() {
    return std::is_same<T, float>::value ? 2e-5 : 1e-12;
}

template <class T>
Pts<T> randPts(std::mt19937& g, std::size_t n) {
    std::uniform_real_distribution<double> u(-100, 100);
    Pts<T> v(n);
    for (auto& p : v) p = Cpoint3<T>(T(u(g)), T(u(g)), T(u(g)));
    return v;
}

// A rows x cols matrix whose upper-left 3x3 block is R and whose other
// elements are 99 (never to be read).
template <class T>
Cmatrix<T> embed(Eigen::Matrix3d const& R, unsigned rows, unsigned cols) {
    Cmatrix<T> M(rows, cols, T(99));
    for (unsigned i = 0; i < 3; ++i)
        for (unsigned j = 0; j < 3; ++j) M(i, j) = T(R(i, j));
    return M;
}

template <class T>
void expectNear(Cpoint3<T> const& p, Eigen::Vector3d const& e, double tol) {
    EXPECT_NEAR((Eigen::Vector3d(p.x, p.y, p.z) - e).lpNorm<Eigen::Infinity>(), 0.0, tol);
}

template <class T>
class Transformer : public ::testing::Test {};
using Types = ::testing::Types<float, double>;
TYPED_TEST_SUITE(Transformer, Types);

}  // namespace

// All eight matrix forms against Eigen: R*(p - c) and R^T*p + c, for 3x3,
// 4x4 and 3x5 matrices (column count as row stride, the rest ignored).
TYPED_TEST(Transformer, MatrixFormsMatchEigen) {
    using T = TypeParam;
    std::mt19937 g(31);
    std::uniform_real_distribution<double> u(-1, 1);
    for (unsigned shape = 0; shape < 3; ++shape) {
        SCOPED_TRACE(shape);
        const Eigen::Matrix3d R = Eigen::AngleAxisd(3 * u(g), Eigen::Vector3d(u(g), u(g), u(g)).normalized()).toRotationMatrix();
        const Cmatrix<T> M = embed<T>(R, shape == 1 ? 4 : 3, shape == 0 ? 3 : shape == 1 ? 4 : 5);
        const Cpoint3<T> c(T(100 * u(g)), T(100 * u(g)), T(100 * u(g)));
        const Eigen::Vector3d ce(c.x, c.y, c.z);
        const Eigen::Matrix3d Rt = R.cast<T>().template cast<double>();  // R as stored
        const Pts<T> in = randPts<T>(g, 64);
        Pts<T> to = in, from = in, toOut(5), fromOut(7);
        Tr<T>::transformTo(M, to, c);
        Tr<T>::transformFrom(M, from, c);
        Tr<T>::transformTo(M, in, toOut, c);
        Tr<T>::transformFrom(M, in, fromOut, c);
        ASSERT_TRUE(toOut.size() == in.size() && fromOut.size() == in.size());
        for (std::size_t i = 0; i < in.size(); ++i) {
            const Eigen::Vector3d p(in[i].x, in[i].y, in[i].z);
            expectNear(to[i], Rt * (p - ce), 300 * tolT<T>());
            expectNear(from[i], Rt.transpose() * p + ce, 300 * tolT<T>());
            EXPECT_EQ(toOut[i], to[i]);
            EXPECT_EQ(fromOut[i], from[i]);
            Cpoint3<T> a = in[i], b;
            Tr<T>::transformTo(M, a, c);
            Tr<T>::transformTo(M, in[i], b, c);
            EXPECT_EQ(a, to[i]);
            EXPECT_EQ(b, to[i]);
            Tr<T>::transformFrom(M, a, c);  // round trip through an orthonormal R
            Tr<T>::transformFrom(M, to[i], b, c);
            EXPECT_EQ(a, b);
            expectNear(a, p, 300 * tolT<T>());
        }
    }
}

// The backward direction is the transpose, not the inverse.
TYPED_TEST(Transformer, BackwardIsTransposeNotInverse) {
    using T = TypeParam;
    Eigen::Matrix3d S;
    S << 2, 1, 0, 0, 1, 0, 0.5, 0, 3;
    const Cmatrix<T> M = embed<T>(S, 3, 3);
    const Cpoint3<T> c(T(1), T(-2), T(3)), p(T(4), T(5), T(-6));
    Cpoint3<T> q;
    Tr<T>::transformTo(M, p, q, c);
    Tr<T>::transformFrom(M, q, c);
    const Eigen::Vector3d pe(4, 5, -6), ce(1, -2, 3);
    expectNear(q, S.transpose() * (S * (pe - ce)) + ce, tolT<T>());
    EXPECT_GT(std::abs(q.x - p.x), 1);
}

// Quaternion forms: the matrix of Cquaternion::getRotMatrix, not normalised,
// clamped element by element.
TYPED_TEST(Transformer, QuaternionFormsUseTheClampedMatrix) {
    using T = TypeParam;
    std::mt19937 g(32);
    std::uniform_real_distribution<double> u(-1.5, 1.5);
    const Cpoint3<T> c(T(10), T(20), T(-30)), p(T(1), T(2), T(3));
    Cpoint3<T> q;
    Tr<T>::transformTo(Cquaternion<T>(T(0), T(0), T(0), T(1)), p, q, c);  // half a turn about z
    EXPECT_EQ(q, Cpoint3<T>(-(p.x - c.x), -(p.y - c.y), p.z - c.z));
    // (1, 1, 0, 0) unnormalised: R11 = R22 = -1, R12 = -2 -> -1, R21 = 2 -> 1.
    Tr<T>::transformTo(Cquaternion<T>(T(1), T(1), T(0), T(0)), p, q, Cpoint3<T>());
    EXPECT_EQ(q, Cpoint3<T>(T(1), T(-2 - 3), T(2 - 3)));
    for (int rep = 0; rep < 40; ++rep) {
        const Cquaternion<T> qu(T(u(g)), T(u(g)), T(u(g)), T(u(g)));  // mostly not unit
        Cmatrix<T> M;
        qu.getRotMatrix(M);
        const Pts<T> in = randPts<T>(g, 5);
        for (int dir = 0; dir < 2; ++dir) {
            Pts<T> a = in, b = in, ao, bo;
            Cpoint3<T> one = in[2], two;
            if (dir == 0) {
                Tr<T>::transformTo(qu, a, c), Tr<T>::transformTo(M, b, c);
                Tr<T>::transformTo(qu, in, ao, c), Tr<T>::transformTo(M, in, bo, c);
                Tr<T>::transformTo(qu, one, c), Tr<T>::transformTo(qu, in[2], two, c);
            } else {
                Tr<T>::transformFrom(qu, a, c), Tr<T>::transformFrom(M, b, c);
                Tr<T>::transformFrom(qu, in, ao, c), Tr<T>::transformFrom(M, in, bo, c);
                Tr<T>::transformFrom(qu, one, c), Tr<T>::transformFrom(qu, in[2], two, c);
            }
            EXPECT_EQ(a, b);
            EXPECT_EQ(ao, bo);
            EXPECT_EQ(ao, a);
            EXPECT_EQ(one, a[2]);
            EXPECT_EQ(two, a[2]);
        }
    }
}

TYPED_TEST(Transformer, VectorsAliasingAndBadInput) {
    using T = TypeParam;
    std::mt19937 g(33);
    Cmatrix<T> R(3, 3);
    R.setIdentity();
    R(0, 1) = T(0.5);
    const Cpoint3<T> c(T(1), T(2), T(3));
    const Pts<T> in = randPts<T>(g, 10);
    Pts<T> ref;
    Tr<T>::transformTo(R, in, ref, c);
    // The same vector in and out acts in place; a centre inside the vector is read first.
    Pts<T> v = in;
    Tr<T>::transformTo(R, v, v, c);
    EXPECT_EQ(v, ref);
    Pts<T> w = in, wo = in;
    const Cpoint3<T> c4 = in[4];
    Tr<T>::transformTo(R, w, w[4]);
    Tr<T>::transformFrom(R, in, wo, wo[4]);  // the centre is an element of the cleared output
    Pts<T> w2 = in, wo2;
    Tr<T>::transformTo(R, w2, c4);
    Tr<T>::transformFrom(R, in, wo2, c4);
    EXPECT_EQ(w, w2);
    EXPECT_EQ(wo, wo2);
    Cpoint3<T> p = in[0];
    Tr<T>::transformTo(R, p, p, p);
    EXPECT_EQ(p, Cpoint3<T>());
    // Empty input: the output is cleared; an empty in-place vector stays empty.
    Pts<T> empty, out(2);
    Tr<T>::transformFrom(Cquaternion<T>(), empty, out, c);
    Tr<T>::transformFrom(R, empty, c);
    EXPECT_TRUE(out.empty() && empty.empty());
    // NaN propagates (0 * NaN is NaN, too).
    Pts<T> nan{Cpoint3<T>(std::numeric_limits<T>::quiet_NaN(), T(0), T(0))};
    Tr<T>::transformTo(R, nan, c);
    EXPECT_TRUE(std::isnan(nan[0].x) && std::isnan(nan[0].y) && std::isnan(nan[0].z));
    // Too small a matrix: ERR_MATRIX_DIMS with rows and columns, nothing touched.
    for (auto mn : {std::pair<unsigned, unsigned>(2, 3), {3, 2}, {0, 0}}) {
        Cmatrix<T> M(mn.first, mn.second);
        Pts<T> keep = in;
        try {
            Tr<T>::transformTo(M, in, keep, c);
            ADD_FAILURE() << "nothing thrown";
        } catch (CthrowMath const& e) {
            EXPECT_EQ(e.id(), CthrowMath::ERR_MATRIX_DIMS);
            EXPECT_EQ(e.arguments(), (std::vector<std::string>{std::to_string(mn.first), std::to_string(mn.second)}));
        }
        EXPECT_EQ(keep, in);
        Cpoint3<T> q = in[0];
        EXPECT_THROW(Tr<T>::transformFrom(M, q, c), CthrowMath);
        EXPECT_EQ(q, in[0]);
    }
}
