#include <math/errors.h>
#include <math/transform3.h>

#include <Eigen/Dense>
#include <Eigen/Geometry>
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>
#include <utility>
#include <vector>

using namespace math;

namespace {

template <class T>
double tolT() {
    return std::is_same<T, float>::value ? 5e-5 : 1e-13;
}

template <class T>
Eigen::Vector3d ev(Cpoint3<T> const& p) {
    return Eigen::Vector3d(double(p.x), double(p.y), double(p.z));
}

// A random unit axis and an angle in (-pi, pi].
template <class T>
Cquaternion<T> randRotation(std::mt19937& g, Eigen::AngleAxisd* aa = nullptr) {
    std::uniform_real_distribution<double> u(-1, 1);
    const Eigen::Vector3d ax = Eigen::Vector3d(u(g), u(g), u(g)).normalized();
    const double angle = 3.141592653589793 * u(g);
    if (aa) *aa = Eigen::AngleAxisd(angle, ax);
    return Cquaternion<T>(Cdirec3<T>(T(ax.x()), T(ax.y()), T(ax.z()), true), T(angle));
}

template <class T>
Cpoint3<T> randPoint(std::mt19937& g) {
    std::uniform_real_distribution<double> u(-5, 5);
    return Cpoint3<T>(T(u(g)), T(u(g)), T(u(g)));
}

template <class T>
class Transform3 : public ::testing::Test {};
using Types = ::testing::Types<float, double>;
TYPED_TEST_SUITE(Transform3, Types);

}  // namespace

TYPED_TEST(Transform3, QuaternionMatrixConvention) {
    using T = TypeParam;
    T R[3][3];
    Cquaternion<T>().getRotMatrix(R);
    for (int i = 0; i < 9; ++i) EXPECT_EQ(R[i / 3][i % 3], i % 4 == 0 ? T(1) : T(0));
    // (0, 0, 0, 1): half a turn about z; norm 2 gives a scaled matrix, clamped into [-1, 1].
    Cquaternion<T>(0, 0, 0, 1).getRotMatrix(R);
    EXPECT_TRUE(R[0][0] == T(-1) && R[1][1] == T(-1) && R[2][2] == T(1));
    Cquaternion<T>(0, 2, 0, 0).getRotMatrix(R);  // 1 - 2*4 = -7, clamped
    EXPECT_TRUE(R[0][0] == T(1) && R[1][1] == T(-1) && R[2][2] == T(-1));
    Cmatrix<T> M;
    Cquaternion<T>(0, 0, 0, 1).getRotMatrix(M);
    ASSERT_TRUE(M.m() == 3u && M.n() == 3u);
    EXPECT_TRUE(M(0, 0) == T(-1) && M(2, 2) == T(1));
    // A matrix without a full 3x3 block has no rotation to read: the shape
    // error names its dimensions, nothing is read beyond the storage.
    for (auto mn : {std::pair<unsigned, unsigned>{0, 0}, {2, 2}, {3, 2}, {2, 3}, {1, 9}}) {
        try {
            const Cquaternion<T> q{Cmatrix<T>(mn.first, mn.second)};
            ADD_FAILURE() << "no error for " << mn.first << "x" << mn.second << " " << q.w;
        } catch (CthrowMath const& e) {
            EXPECT_EQ(e.id(), int(CthrowMath::ERR_MATRIX_DIMS));
            EXPECT_EQ(e.arguments(), (std::vector<std::string>{std::to_string(mn.first), std::to_string(mn.second)}));
        }
    }
    // Normalisation.
    Cquaternion<T> q(0, 3, 0, 4), zero(0, 0, 0, 0);
    EXPECT_EQ(q.norm(), T(5));
    q.normalize();
    zero.normalize();
    EXPECT_NEAR(double(q.x), 0.6, tolT<T>());
    EXPECT_NEAR(double(q.z), 0.8, tolT<T>());
    EXPECT_FALSE(zero.isValid());
}

TYPED_TEST(Transform3, QuaternionAgainstEigen) {
    using T = TypeParam;
    std::mt19937 gen(11);
    for (int i = 0; i < 300; ++i) {
        Eigen::AngleAxisd aa;
        const Cquaternion<T> q = randRotation<T>(gen, &aa), b = randRotation<T>(gen);
        const Eigen::Matrix3d E = aa.toRotationMatrix();
        T R[3][3];
        q.getRotMatrix(R);
        for (int r = 0; r < 9; ++r) EXPECT_NEAR(double(R[r / 3][r % 3]), E(r / 3, r % 3), 4 * tolT<T>());
        const Cpoint3<T> p = randPoint<T>(gen);
        EXPECT_NEAR((ev(q.rotate(p)) - E * ev(p)).norm(), 0.0, 40 * tolT<T>());
        // Matrix -> quaternion round trip (up to the sign of q); a 4x4 matrix serves as well.
        const Cquaternion<T> back(R);
        Cmatrix<T> M4(4, 4);
        for (unsigned r = 0; r < 9; ++r) M4(r / 3, r % 3) = R[r / 3][r % 3];
        const Cquaternion<T> back4(M4);
        const double dot = double(back.w) * q.w + double(back.x) * q.x + double(back.y) * q.y + double(back.z) * q.z;
        const double sgn = dot < 0 ? -1.0 : 1.0;
        EXPECT_NEAR(sgn * back.w, double(q.w), 10 * tolT<T>());
        EXPECT_NEAR(sgn * back.x, double(q.x), 10 * tolT<T>());
        EXPECT_NEAR(sgn * back.y, double(q.y), 10 * tolT<T>());
        EXPECT_NEAR(sgn * back.z, double(q.z), 10 * tolT<T>());
        EXPECT_TRUE(back4.w == back.w && back4.z == back.z);
        Cdirec3<T> axis;  // axis and angle back
        T angle;
        q.getAxisAngle(axis, angle);
        const Eigen::Matrix3d E2 =
            Eigen::AngleAxisd(double(angle), Eigen::Vector3d(axis.x, axis.y, axis.z)).toRotationMatrix();
        EXPECT_NEAR((E2 - E).norm(), 0.0, 10 * tolT<T>());
        // Algebra: (q*b) rotates by b first; the conjugate undoes q; *= is *.
        EXPECT_NEAR((ev((q * b).rotate(p)) - ev(q.rotate(b.rotate(p)))).norm(), 0.0, 100 * tolT<T>());
        EXPECT_NEAR((ev(q.conjugate().rotate(q.rotate(p))) - ev(p)).norm(), 0.0, 100 * tolT<T>());
        Cquaternion<T> c = q;
        c *= b;
        EXPECT_EQ(c.w, (q * b).w);
    }
    // Half turns about each axis reach the branches of the matrix conversion
    // where the trace is -1.
    for (int k = 0; k < 3; ++k) {
        T R[3][3], R2[3][3];
        Cquaternion<T>(Cdirec3<T>(T(k == 0), T(k == 1), T(k == 2), true), T(3.141592653589793)).getRotMatrix(R);
        Cquaternion<T>(R).getRotMatrix(R2);
        for (int r = 0; r < 9; ++r) EXPECT_NEAR(double(R2[r / 3][r % 3]), double(R[r / 3][r % 3]), 10 * tolT<T>());
    }
}

TYPED_TEST(Transform3, TransformationParameters) {
    using T = TypeParam;
    std::mt19937 gen(13);
    std::uniform_real_distribution<double> u(-5, 5);
    for (int i = 0; i < 200; ++i) {
        Eigen::AngleAxisd aa;
        const Cquaternion<T> q = randRotation<T>(gen, &aa);
        const Cpoint3<T> t = randPoint<T>(gen), p = randPoint<T>(gen);
        const T s = T(0.5 + std::abs(u(gen)));
        const CtransPrm3<T> tp(q, t, s);
        ASSERT_TRUE(tp.isValid());
        Cpoint3<T> x = p;
        tp.transform(x);  // oracle: s*R*p + t with Eigen's rotation
        EXPECT_NEAR((ev(x) - (double(s) * (aa.toRotationMatrix() * ev(p)) + ev(t))).norm(), 0.0, 200 * tolT<T>());
        tp.retransform(x);
        EXPECT_NEAR((ev(x) - ev(p)).norm(), 0.0, 200 * tolT<T>());
        // Composition and inverse.
        const CtransPrm3<T> tb(randRotation<T>(gen), randPoint<T>(gen), T(2));
        Cpoint3<T> y1, y2, y3, z1, z2;
        (tp * tb).transform(p, y1);
        tb.transform(p, y2);
        tp.transform(y2, y3);
        EXPECT_NEAR((ev(y1) - ev(y3)).norm(), 0.0, 1000 * tolT<T>());
        tp.inverse().transform(p, z1);
        tp.retransform(p, z2);
        EXPECT_NEAR((ev(z1) - ev(z2)).norm(), 0.0, 200 * tolT<T>());
    }
    // Point sets: in place and from input to a cleared output.
    const CtransPrm3<T> tp(Cquaternion<T>(Cdirec3<T>(0, 0, 1, true), T(1.5707963267948966)), Cpoint3<T>(1, 0, 0), T(2));
    std::vector<Cpoint3<T>> in = {Cpoint3<T>(1, 0, 0), Cpoint3<T>(0, 1, 0)}, out(3, Cpoint3<T>(7, 7, 7)), back, empty;
    tp.transform(in, out);
    ASSERT_EQ(out.size(), 2u);
    EXPECT_NEAR((ev(out[0]) - Eigen::Vector3d(1, 2, 0)).norm(), 0.0, 4 * tolT<T>());
    EXPECT_NEAR((ev(out[1]) - Eigen::Vector3d(-1, 0, 0)).norm(), 0.0, 4 * tolT<T>());
    tp.retransform(out, back);
    std::vector<Cpoint3<T>> inplace = in;
    tp.transform(inplace);
    tp.retransform(inplace);
    for (int k = 0; k < 2; ++k) {
        EXPECT_NEAR((ev(back[k]) - ev(in[k])).norm(), 0.0, 10 * tolT<T>());
        EXPECT_NEAR((ev(inplace[k]) - ev(in[k])).norm(), 0.0, 10 * tolT<T>());
    }
    tp.transform(empty, out);
    EXPECT_TRUE(out.empty());
    tp.transform(in, in);  // same container
    EXPECT_NEAR(double(in[0].y), 2.0, 4 * tolT<T>());
    // The identity, and a normalised rotation from a scaled quaternion.
    EXPECT_EQ(CtransPrm3<T>(Cquaternion<T>(2, 0, 0, 0)).rotation().w, T(1));
    EXPECT_FALSE(CtransPrm3<T>(Cquaternion<T>(0, 0, 0, 0)).isValid());
}
