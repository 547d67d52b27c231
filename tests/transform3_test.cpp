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
    Eigen::Vector3d ax(u(g), u(g), u(g));
    ax.normalize();
    const double angle = 3.141592653589793 * u(g);
    if (aa) *aa = Eigen::AngleAxisd(angle, ax);
    return Cquaternion<T>(Cdirec3<T>(T(ax.x()), T(ax.y()), T(ax.z()), true), T(angle));
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
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) EXPECT_EQ(R[i][j], i == j ? T(1) : T(0));
    // (0, 0, 0, 1): half a turn about z.
    Cquaternion<T>(0, 0, 0, 1).getRotMatrix(R);
    EXPECT_EQ(R[0][0], T(-1));
    EXPECT_EQ(R[1][1], T(-1));
    EXPECT_EQ(R[2][2], T(1));
    // A quaternion of norm 2 gives a scaled matrix, clamped into [-1, 1].
    Cquaternion<T>(2, 0, 0, 0).getRotMatrix(R);
    EXPECT_EQ(R[0][0], T(1));
    Cquaternion<T>(0, 2, 0, 0).getRotMatrix(R);
    EXPECT_EQ(R[1][1], T(-1));  // 1 - 2*4 = -7, clamped
    EXPECT_EQ(R[2][2], T(-1));
    EXPECT_EQ(R[0][0], T(1));

    // A matrix without a full 3x3 block has no rotation to read: the shape
    // error names its dimensions, nothing is read beyond the storage.
    for (auto mn : {std::pair<unsigned, unsigned>{0, 0}, {2, 2}, {3, 2}, {2, 3}, {1, 9}}) {
        const Cmatrix<T> small(mn.first, mn.second);
        try {
            const Cquaternion<T> q(small);
            ADD_FAILURE() << "no error for " << mn.first << "x" << mn.second << " " << q.w;
        } catch (CthrowMath const& e) {
            EXPECT_EQ(e.id(), int(CthrowMath::ERR_MATRIX_DIMS));
            EXPECT_EQ(e.arguments(), (std::vector<std::string>{std::to_string(mn.first), std::to_string(mn.second)}));
        }
    }

    Cmatrix<T> M;
    Cquaternion<T>(0, 0, 0, 1).getRotMatrix(M);
    ASSERT_EQ(M.m(), 3u);
    ASSERT_EQ(M.n(), 3u);
    EXPECT_EQ(M(0, 0), T(-1));
    EXPECT_EQ(M(2, 2), T(1));
}

TYPED_TEST(Transform3, QuaternionAgainstEigen) {
    using T = TypeParam;
    std::mt19937 gen(11);
    std::uniform_real_distribution<double> u(-5, 5);
    for (int i = 0; i < 500; ++i) {
        Eigen::AngleAxisd aa;
        const Cquaternion<T> q = randRotation<T>(gen, &aa);
        const Eigen::Matrix3d E = aa.toRotationMatrix();
        T R[3][3];
        q.getRotMatrix(R);
        for (int r = 0; r < 3; ++r)
            for (int c = 0; c < 3; ++c) EXPECT_NEAR(double(R[r][c]), E(r, c), 4 * tolT<T>());
        const Cpoint3<T> p(T(u(gen)), T(u(gen)), T(u(gen)));
        EXPECT_NEAR((ev(q.rotate(p)) - E * ev(p)).norm(), 0.0, 40 * tolT<T>());

        // Matrix -> quaternion round trip (up to the sign of q) through both inputs.
        const Cquaternion<T> back(R);
        Cmatrix<T> M4(4, 4);  // a 4x4 matrix serves as well
        for (unsigned r = 0; r < 3; ++r)
            for (unsigned c = 0; c < 3; ++c) M4(r, c) = R[r][c];
        const Cquaternion<T> back4(M4);
        const double sgn = double(back.w) * double(q.w) + double(back.x) * double(q.x) +
                                   double(back.y) * double(q.y) + double(back.z) * double(q.z) <
                                   0
                               ? -1.0
                               : 1.0;
        EXPECT_NEAR(sgn * back.w, double(q.w), 10 * tolT<T>());
        EXPECT_NEAR(sgn * back.x, double(q.x), 10 * tolT<T>());
        EXPECT_NEAR(sgn * back.y, double(q.y), 10 * tolT<T>());
        EXPECT_NEAR(sgn * back.z, double(q.z), 10 * tolT<T>());
        EXPECT_EQ(back4.w, back.w);
        EXPECT_EQ(back4.z, back.z);

        // Axis and angle back.
        Cdirec3<T> axis;
        T angle;
        q.getAxisAngle(axis, angle);
        const Eigen::Matrix3d E2 =
            Eigen::AngleAxisd(double(angle), Eigen::Vector3d(axis.x, axis.y, axis.z)).toRotationMatrix();
        EXPECT_NEAR((E2 - E).norm(), 0.0, 10 * tolT<T>());
    }
    // Half turns about each axis reach the branches of the matrix conversion
    // where the trace is -1.
    for (int k = 0; k < 3; ++k) {
        const Cdirec3<T> ax(T(k == 0), T(k == 1), T(k == 2), true);
        const Cquaternion<T> q(ax, T(3.141592653589793));
        T R[3][3];
        q.getRotMatrix(R);
        const Cquaternion<T> back(R);
        T R2[3][3];
        back.getRotMatrix(R2);
        for (int r = 0; r < 3; ++r)
            for (int c = 0; c < 3; ++c) EXPECT_NEAR(double(R2[r][c]), double(R[r][c]), 10 * tolT<T>());
    }
}

TYPED_TEST(Transform3, QuaternionAlgebra) {
    using T = TypeParam;
    std::mt19937 gen(12);
    std::uniform_real_distribution<double> u(-5, 5);
    for (int i = 0; i < 300; ++i) {
        const Cquaternion<T> a = randRotation<T>(gen), b = randRotation<T>(gen);
        const Cpoint3<T> p(T(u(gen)), T(u(gen)), T(u(gen)));
        // (a*b) rotates by b first, then by a.
        EXPECT_NEAR((ev((a * b).rotate(p)) - ev(a.rotate(b.rotate(p)))).norm(), 0.0, 100 * tolT<T>());
        // The conjugate undoes the rotation.
        EXPECT_NEAR((ev(a.conjugate().rotate(a.rotate(p))) - ev(p)).norm(), 0.0, 100 * tolT<T>());
        Cquaternion<T> c = a;
        c *= b;
        EXPECT_EQ(c.w, (a * b).w);
        EXPECT_NEAR(double((a * b).norm()), 1.0, 10 * tolT<T>());
    }
    Cquaternion<T> q(0, 3, 0, 4);
    EXPECT_EQ(q.norm(), T(5));
    q.normalize();
    EXPECT_NEAR(double(q.x), 0.6, tolT<T>());
    EXPECT_NEAR(double(q.z), 0.8, tolT<T>());
    Cquaternion<T> zero(0, 0, 0, 0);
    zero.normalize();
    EXPECT_FALSE(zero.isValid());
    EXPECT_TRUE(q.isValid());
    // i*j = k
    const Cquaternion<T> k = Cquaternion<T>(0, 1, 0, 0) * Cquaternion<T>(0, 0, 1, 0);
    EXPECT_EQ(k.w, T(0));
    EXPECT_EQ(k.x, T(0));
    EXPECT_EQ(k.y, T(0));
    EXPECT_EQ(k.z, T(1));
    // Rotation by +90 degrees about z takes x to y.
    const Cquaternion<T> rz(Cdirec3<T>(0, 0, 1, true), T(1.5707963267948966));
    const Cpoint3<T> r = rz.rotate(Cpoint3<T>(1, 0, 0));
    EXPECT_NEAR(double(r.x), 0.0, tolT<T>());
    EXPECT_NEAR(double(r.y), 1.0, tolT<T>());
}

TYPED_TEST(Transform3, TransformationParameters) {
    using T = TypeParam;
    std::mt19937 gen(13);
    std::uniform_real_distribution<double> u(-5, 5);
    for (int i = 0; i < 200; ++i) {
        Eigen::AngleAxisd aa;
        const Cquaternion<T> q = randRotation<T>(gen, &aa);
        const Cpoint3<T> t(T(u(gen)), T(u(gen)), T(u(gen)));
        const T s = T(0.5 + std::abs(u(gen)));
        const CtransPrm3<T> tp(q, t, s);
        ASSERT_TRUE(tp.isValid());
        const Cpoint3<T> p(T(u(gen)), T(u(gen)), T(u(gen)));
        Cpoint3<T> x = p;
        tp.transform(x);
        // Oracle: s*R*p + t with Eigen's rotation.
        EXPECT_NEAR((ev(x) - (double(s) * (aa.toRotationMatrix() * ev(p)) + ev(t))).norm(), 0.0, 200 * tolT<T>());
        tp.retransform(x);
        EXPECT_NEAR((ev(x) - ev(p)).norm(), 0.0, 200 * tolT<T>());

        // Composition and inverse.
        const CtransPrm3<T> tb(randRotation<T>(gen), Cpoint3<T>(T(u(gen)), T(u(gen)), T(u(gen))), T(2));
        Cpoint3<T> y1, y2, y3;
        (tp * tb).transform(p, y1);
        tb.transform(p, y2);
        tp.transform(y2, y3);
        EXPECT_NEAR((ev(y1) - ev(y3)).norm(), 0.0, 1000 * tolT<T>());
        Cpoint3<T> z1, z2;
        tp.inverse().transform(p, z1);
        tp.retransform(p, z2);
        EXPECT_NEAR((ev(z1) - ev(z2)).norm(), 0.0, 200 * tolT<T>());
    }

    // Point sets: in place and from input to a cleared output.
    const CtransPrm3<T> tp(Cquaternion<T>(Cdirec3<T>(0, 0, 1, true), T(1.5707963267948966)), Cpoint3<T>(1, 0, 0),
                           T(2));
    std::vector<Cpoint3<T>> in = {Cpoint3<T>(1, 0, 0), Cpoint3<T>(0, 1, 0)};
    std::vector<Cpoint3<T>> out = {Cpoint3<T>(7, 7, 7), Cpoint3<T>(7, 7, 7), Cpoint3<T>(7, 7, 7)};
    tp.transform(in, out);
    ASSERT_EQ(out.size(), 2u);
    EXPECT_NEAR(double(out[0].x), 1.0, 4 * tolT<T>());
    EXPECT_NEAR(double(out[0].y), 2.0, 4 * tolT<T>());
    EXPECT_NEAR(double(out[1].x), -1.0, 4 * tolT<T>());
    EXPECT_NEAR(double(out[1].y), 0.0, 4 * tolT<T>());
    std::vector<Cpoint3<T>> back;
    tp.retransform(out, back);
    std::vector<Cpoint3<T>> inplace = in;
    tp.transform(inplace);
    tp.retransform(inplace);
    for (int k = 0; k < 2; ++k) {
        EXPECT_NEAR((ev(back[k]) - ev(in[k])).norm(), 0.0, 10 * tolT<T>());
        EXPECT_NEAR((ev(inplace[k]) - ev(in[k])).norm(), 0.0, 10 * tolT<T>());
    }
    std::vector<Cpoint3<T>> empty;
    tp.transform(empty, out);
    EXPECT_TRUE(out.empty());
    tp.transform(in, in);  // same container
    EXPECT_NEAR(double(in[0].y), 2.0, 4 * tolT<T>());

    // The identity, and a normalised rotation from a scaled quaternion.
    const CtransPrm3<T> id;
    Cpoint3<T> p(1, 2, 3);
    id.transform(p);
    EXPECT_EQ(p, Cpoint3<T>(1, 2, 3));
    const CtransPrm3<T> sc(Cquaternion<T>(2, 0, 0, 0));
    EXPECT_EQ(sc.rotation().w, T(1));
    EXPECT_FALSE(CtransPrm3<T>(Cquaternion<T>(0, 0, 0, 0)).isValid());
}
