#include <core/memtracker.h>
#include <math/errors.h>
#include <math/transform2.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

using namespace math;

namespace {

typedef long double LD;
const double kPi = 3.141592653589793;

template <class T>
double tolT() {
    return std::is_same<T, float>::value ? 2e-6 : 1e-14;
}

template <class T>
using Pts = std::vector<Cpoint2<T>>;

template <class T>
Pts<T> randPts(std::mt19937& g, std::size_t n, double lo = -10, double hi = 10) {
    std::uniform_real_distribution<double> u(lo, hi);
    Pts<T> v(n);
    for (auto& p : v) p = Cpoint2<T>(T(u(g)), T(u(g)));
    return v;
}

// x' = a0 + a1 x - a2 y, y' = b0 + b1 y + b2 x.
struct Ref {
    LD a0, a1, a2, b0, b1, b2;
    void map(LD x, LD y, LD& xd, LD& yd) const { xd = a0 + a1 * x - a2 * y, yd = b0 + b1 * y + b2 * x; }
};

// Ref of angles al, be, scales sx, sy and translation (tx, ty).
Ref refOf(LD al, LD be, LD sx, LD sy, LD tx, LD ty) {
    return Ref{tx, sx * std::cos(al), sx * std::sin(al), ty, sy * std::cos(be), sy * std::sin(be)};
}

template <class T>
Pts<T> mapRef(Pts<T> const& s, Ref const& r) {
    Pts<T> d(s.size());
    for (std::size_t i = 0; i < s.size(); ++i) {
        LD x, y;
        r.map(s[i].x, s[i].y, x, y);
        d[i] = Cpoint2<T>(T(x), T(y));
    }
    return d;
}

// Expects a CthrowMath with id and empty information from f().
template <class F>
void expectMath(F f, int id) {
    try {
        f();
        ADD_FAILURE() << "nothing thrown, expected CthrowMath id " << id;
    } catch (CthrowMath const& e) {
        EXPECT_EQ(e.id(), id);
        EXPECT_EQ(e.info(), "");
    } catch (...) {
        ADD_FAILURE() << "wrong exception type, expected CthrowMath id " << id;
    }
}

template <class T>
void expectAllNaN(CtransPrm2<T> const& p) {
    EXPECT_TRUE(std::isnan(p.getRot_X()) && std::isnan(p.getRot_Y()));
    EXPECT_TRUE(std::isnan(p.getTranslation().x) && std::isnan(p.getTranslation().y));
    EXPECT_TRUE(std::isnan(p.getScale().x) && std::isnan(p.getScale().y));
}

template <class T>
class Transform2 : public ::testing::Test {};
using Types = ::testing::Types<float, double>;
TYPED_TEST_SUITE(Transform2, Types);

// Slot of a virtual member function in the Itanium C++ ABI (pointer field = 1 + byte offset).
template <class M>
long vslot(M m) {
    struct Rep {
        std::ptrdiff_t ptr, adj;
    } r;
    static_assert(sizeof(M) == sizeof(Rep), "Itanium member pointer");
    std::memcpy(&r, &m, sizeof r);
    return (r.ptr & 1) ? long((r.ptr - 1) / std::ptrdiff_t(sizeof(void*))) : -1;
}

// Records the order in which setAll reaches the setters.
template <template <class> class Base, class T>
struct Recorder : Base<T> {
    std::string log;
    void setSource(Pts<T> const& s) override { log += "S", Base<T>::setSource(s); }
    void setDest(Pts<T> const& d) override { log += "D", Base<T>::setDest(d); }
};

}  // namespace

TYPED_TEST(Transform2, ParameterInterfaceShape) {
    using T = TypeParam;
    using P = CtransPrm2<T>;
    using F = typename P::template TransFunctor<T>;
    using B = typename P::template ReTransFunctor<T>;
    // The scale goes in by non-const reference; const getters stand beside the non-const ones.
    static_assert(!std::is_constructible<P, T, Cpoint2<T> const&, Cpoint2<T> const&>::value, "");
    static_assert(std::is_constructible<P, T, Cpoint2<T> const&, Cpoint2<T>&>::value, "");
    static_assert(std::is_same<decltype(&P::getRot_X), T (P::*)() const>::value, "");
    static_assert(std::is_same<decltype(static_cast<Cpoint2<T> (P::*)()>(&P::getScale)), Cpoint2<T> (P::*)()>::value, "");
    static_assert(std::is_same<decltype(std::declval<P const&>().getRot_Matrix()), Cmatrix<T>>::value, "");
    static_assert(sizeof(F) == 6 * sizeof(T) && sizeof(B) == 6 * sizeof(T), "");
    static_assert(std::is_standard_layout<F>::value && std::is_trivially_copyable<B>::value, "");
    Cpoint2<T> s(T(2), T(3));
    P p(T(0.25), T(-0.5), Cpoint2<T>(T(7), T(-8)), s);
    const F f = p.getTransFunctor();
    const T* raw = &f.c11;
    const T want[6] = {T(2) * std::cos(T(0.25)), -T(2) * std::sin(T(0.25)), T(3) * std::sin(T(-0.5)),
                       T(3) * std::cos(T(-0.5)), T(7), T(-8)};
    for (int k = 0; k < 6; ++k) EXPECT_EQ(raw[k], want[k]) << k;
    P one(T(0.3), Cpoint2<T>(), s), copy;
    copy = one;
    EXPECT_EQ(copy.getRot_Y(), T(0.3));
    EXPECT_EQ(P(copy).getScale(), s);
}

// alpha = beta = 0.5, scale 2, t = (1, -1), point (1, 2): the single-point
// transform takes x in both terms of x'.
TYPED_TEST(Transform2, SinglePointForwardUsesXTwice) {
    using T = TypeParam;
    Cpoint2<T> s(T(2), T(2)), one, inplace(T(1), T(2));
    const CtransPrm2<T> p(T(0.5), Cpoint2<T>(T(1), T(-1)), s);
    Pts<T> out;
    p.transform(Pts<T>{inplace}, out), p.transform(inplace, one);
    const LD c = std::cos(0.5L), sn = std::sin(0.5L);
    EXPECT_NEAR(out[0].x, double(2 * c - 4 * sn + 1), tolT<T>());
    EXPECT_NEAR(one.x, double(2 * c - 2 * sn + 1), tolT<T>());
    EXPECT_NEAR(out[0].y, double(2 * sn + 4 * c - 1), tolT<T>());
    EXPECT_EQ(one.y, out[0].y);
    EXPECT_EQ(p.getTransFunctor()(inplace), out[0]);
    p.transform(inplace, inplace);  // the same point as input and output
    EXPECT_EQ(inplace, one);
}

// Backward formulas for alpha != beta, sx != sy, against long double; the
// functor takes the other angle off the diagonal, and neither is the inverse.
TYPED_TEST(Transform2, BackwardMatricesAsStated) {
    using T = TypeParam;
    const LD al = 0.4L, be = -0.7L, sx = 1.5L, sy = 0.8L, tx = 3, ty = -2;
    Cpoint2<T> s{T(sx), T(sy)};
    const CtransPrm2<T> p(T(al), T(be), Cpoint2<T>(T(tx), T(ty)), s);
    std::mt19937 g(2);
    const Pts<T> in = randPts<T>(g, 40);
    Pts<T> list, fwd;
    p.retransform(in, list);
    const auto r = p.getReTransFunctor();
    const LD wantR[4] = {std::cos(al) / sx, std::sin(be) / sy, -std::sin(al) / sx, std::cos(be) / sy};
    const T gotR[4] = {r.c11, r.c12, r.c21, r.c22};
    for (int k = 0; k < 4; ++k) EXPECT_NEAR(gotR[k], double(wantR[k]), tolT<T>()) << k;
    EXPECT_TRUE(r.tx == T(tx) && r.ty == T(ty));
    const Cmatrix<T> M = const_cast<CtransPrm2<T>&>(p).getRot_Matrix();
    ASSERT_TRUE(M.m() == 2u && M.n() == 2u);
    const LD wantM[4] = {std::cos(al), -std::sin(al), std::sin(be), std::cos(be)};
    for (unsigned k = 0; k < 4; ++k) EXPECT_NEAR(M(k / 2, k % 2), double(wantM[k]), tolT<T>()) << k;
    double roundTrip = 0, swapped = 0;
    p.transform(list, fwd);
    for (std::size_t i = 0; i < in.size(); ++i) {
        const LD dx = LD(in[i].x) - tx, dy = LD(in[i].y) - ty;
        const LD wx = std::cos(al) / sx * dx + std::sin(al) / sy * dy;
        const LD wy = -std::sin(be) / sx * dx + std::cos(be) / sy * dy;
        EXPECT_NEAR(list[i].x, double(wx), 20 * tolT<T>());
        EXPECT_NEAR(list[i].y, double(wy), 20 * tolT<T>());
        Cpoint2<T> one;
        p.retransform(in[i], one);
        EXPECT_EQ(one, list[i]);
        const Cpoint2<T> viaF = r(in[i]);
        swapped = std::max(swapped, std::abs(double(viaF.x) - double(wx)) + std::abs(double(viaF.y) - double(wy)));
        roundTrip = std::max(roundTrip, std::abs(double(fwd[i].x - in[i].x)));
    }
    EXPECT_GT(roundTrip, 0.1);
    EXPECT_GT(swapped, 0.1);
}

TYPED_TEST(Transform2, SimilarityListRoundTripAndVectorHandling) {
    using T = TypeParam;
    std::mt19937 g(3);
    Cpoint2<T> s(T(2), T(2));
    const CtransPrm2<T> p(T(0.5), Cpoint2<T>(T(1), T(-1)), s);
    const Pts<T> in = randPts<T>(g, 200);
    Pts<T> fwd(500, Cpoint2<T>(T(9), T(9))), back(3);
    p.transform(in, fwd);
    p.retransform(fwd, back);
    ASSERT_TRUE(fwd.size() == in.size() && back.size() == in.size());
    for (std::size_t i = 0; i < in.size(); ++i) {
        EXPECT_NEAR(back[i].x, in[i].x, 30 * tolT<T>());
        EXPECT_NEAR(back[i].y, in[i].y, 30 * tolT<T>());
        EXPECT_EQ(p.getReTransFunctor()(fwd[i]), back[i]);  // alpha == beta: functor == retransform
    }
    Pts<T> v = in;  // the same vector in and out: in place
    p.transform(v, v);
    EXPECT_EQ(v, fwd);
    p.retransform(v, v);
    EXPECT_EQ(v, back);
    Pts<T> empty, out(4);
    p.transform(empty, out);
    EXPECT_TRUE(out.empty());
    out.resize(4);
    p.retransform(empty, out);
    EXPECT_TRUE(out.empty());
    // Zero scale: non-finite results, no exception (0 * inf is NaN).
    Cpoint2<T> z(T(0), T(2)), q;
    const CtransPrm2<T> zp(T(0.3), Cpoint2<T>(), z);
    EXPECT_NO_THROW(zp.retransform(Cpoint2<T>(T(1), T(1)), q));
    EXPECT_FALSE(std::isfinite(q.x) || std::isfinite(q.y) || std::isfinite(zp.getReTransFunctor().c11));
    zp.retransform(Pts<T>{Cpoint2<T>(T(0), T(0))}, out);
    EXPECT_TRUE(std::isnan(out[0].x));
}

TYPED_TEST(Transform2, EstimatorShapeAndErrorOrder) {
    using T = TypeParam;
    using B = Ctrans2_Basic<T>;
    static_assert(std::is_abstract<B>::value && !std::has_virtual_destructor<B>::value, "");
    static_assert(std::is_empty<typename B::xArgumentMismatch>::value && std::is_empty<typename B::xNotInitialized>::value,
                  "");
    static_assert(!std::is_base_of<std::exception, typename B::xArgumentMismatch>::value, "");
    static_assert(std::is_same<decltype(std::declval<Ctrans2_Helmert<T> const&>().getSolution()), Cmatrix<T> const&>::value,
                  "");
#if defined(__GNUC__) && (defined(__x86_64__) || defined(__aarch64__))
    EXPECT_EQ(vslot(&B::transform), 0);
    EXPECT_EQ(vslot(&B::setSource), 1);
    EXPECT_EQ(vslot(&B::setDest), 2);
    EXPECT_EQ(vslot(&B::setAll), 3);
#endif
    const Pts<T> three{Cpoint2<T>(T(0), T(0)), Cpoint2<T>(T(1), T(0)), Cpoint2<T>(T(0), T(1))};
    const Pts<T> two(three.begin(), three.begin() + 2);
    Recorder<Ctrans2_Helmert, T> rh;
    Recorder<Ctrans2_Affine, T> ra;
    static_cast<B&>(rh).setAll(three, three), static_cast<B&>(ra).setAll(three, three);
    EXPECT_TRUE(rh.log + ra.log == "SDSD" && rh.isSourceSet() && rh.isDestSet() && ra.getDestCount() == 3u);
    // Helmert: the flags first (xNotInitialized), then the counts, then the solver.
    Ctrans2_Helmert<T> h, d;
    EXPECT_THROW(h.transform(), typename B::xNotInitialized);
    h.setSource(three);  // counts 3 and 0 differ, but the flags come first
    EXPECT_THROW(h.transform(), typename B::xNotInitialized);
    d.setDest(two);
    EXPECT_THROW(d.transform(), typename B::xNotInitialized);
    h.setDest(two);
    EXPECT_THROW(h.transform(), typename B::xArgumentMismatch);
    h.setAll(Pts<T>(), Pts<T>());
    expectMath([&] { h.transform(); }, CthrowMath::ERR_SOLVE_MATRIXSINGULAR);
    // Affine: never xNotInitialized, a fresh estimator has counts 0 and 0.
    Ctrans2_Affine<T> a, e;
    expectMath([&] { a.transform(); }, CthrowMath::ERR_SOLVE_MATRIXSINGULAR);
    a.setSource(three);
    EXPECT_THROW(a.transform(), typename B::xArgumentMismatch);
    e.setDest(three);
    EXPECT_THROW(e.transform(), typename B::xArgumentMismatch);
    a.setDest(three);
    EXPECT_NO_THROW(a.transform());
}

// Degenerate sets end in the LU solver's singular-matrix error; nothing is stored then.
TYPED_TEST(Transform2, DegenerateSetsAreSingular) {
    using T = TypeParam;
    std::mt19937 g(4);
    const Pts<T> dst = randPts<T>(g, 20);
    const Pts<T> same(20, Cpoint2<T>(T(1000.5), T(-3.25)));
    Pts<T> slanted(20), level(20), plumb(20);
    for (int i = 0; i < 20; ++i) {
        slanted[i] = Cpoint2<T>(T(1000 + 0.3 * i), T(1000 + 0.7 * i));
        level[i] = Cpoint2<T>(T(0.37 * i), T(5));
        plumb[i] = Cpoint2<T>(T(-2), T(0.37 * i));
    }
    Ctrans2_Helmert<T> h;
    h.setAll(same, dst);
    expectMath([&] { h.transform(); }, CthrowMath::ERR_SOLVE_MATRIXSINGULAR);
    h.setAll(Pts<T>(1, dst[0]), Pts<T>(1, dst[1]));
    expectMath([&] { h.transform(); }, CthrowMath::ERR_SOLVE_MATRIXSINGULAR);
    EXPECT_TRUE(h.getSolution().m() == 0u && h.getTransPrm().getScale() == Cpoint2<T>(T(1), T(1)));
    h.setAll(slanted, dst);  // collinear is fine for a similarity
    EXPECT_NO_THROW(h.transform());
    Ctrans2_Affine<T> a;
    const Pts<T> s1(slanted.begin(), slanted.begin() + 1), s2(slanted.begin(), slanted.begin() + 2);
    for (Pts<T> const* src : std::vector<Pts<T> const*>{&same, &slanted, &level, &plumb, &s1, &s2}) {
        a.setAll(*src, Pts<T>(dst.begin(), dst.begin() + src->size()));
        expectMath([&] { a.transform(); }, CthrowMath::ERR_SOLVE_MATRIXSINGULAR);
    }
    // A slanted band about 1e-3 of its length wide is still solved.
    Pts<T> band = slanted;
    for (int i = 0; i < 20; i += 2) band[i] += Cpoint2<T>(T(-0.7 * 0.013), T(0.3 * 0.013));
    a.setAll(band, dst);
    EXPECT_NO_THROW(a.transform());
}

TYPED_TEST(Transform2, NonFiniteCoordinatesGiveNaN) {
    using T = TypeParam;
    std::mt19937 g(5);
    for (T b : {std::numeric_limits<T>::quiet_NaN(), std::numeric_limits<T>::infinity()})
        for (int where = 0; where < 4; ++where) {
            SCOPED_TRACE(where);
            Pts<T> s = randPts<T>(g, 10), d = randPts<T>(g, 10);
            (where % 2 ? (where < 2 ? s : d)[0].x : (where < 2 ? s : d)[7].y) = b;
            Ctrans2_Helmert<T> h;
            Ctrans2_Affine<T> a;
            h.setAll(s, d), a.setAll(s, d);
            CtransPrm2<T> r;
            ASSERT_NO_THROW(r = h.transform());
            expectAllNaN(r);
            expectAllNaN(h.getTransPrm());
            for (unsigned k = 0; k < 4; ++k) EXPECT_TRUE(std::isnan(h.getSolution()(k, 0)));
            ASSERT_NO_THROW(r = a.transform());
            expectAllNaN(r);
            expectAllNaN(a.getTransPrm());
            for (unsigned k = 0; k < 3; ++k)
                EXPECT_TRUE(std::isnan(a.getSolutionX()(k, 0)) && std::isnan(a.getSolutionY()(k, 0)));
        }
}

// The one-argument arctangent: +100 deg at scale 2 comes back as -80 deg at
// scale 2; an exactly zero cosine coefficient gives pi/2, also for -90 deg.
TYPED_TEST(Transform2, AngleFoldsIntoHalfPlane) {
    using T = TypeParam;
    std::mt19937 g(7);
    const LD th = 100 * LD(kPi) / 180;
    const Pts<T> src = randPts<T>(g, 30), dst = mapRef(src, refOf(th, th, 2, 2, 5, -3));
    Ctrans2_Helmert<T> h;
    Ctrans2_Affine<T> a;
    h.setAll(src, dst);
    a.setAll(src, dst);
    const CtransPrm2<T> p = h.transform(), q = a.transform();
    for (T ang : {p.getRot_X(), p.getRot_Y(), q.getRot_X(), q.getRot_Y()}) EXPECT_NEAR(ang, -80 * kPi / 180, 1e3 * tolT<T>());
    EXPECT_NEAR(p.getScale().x, 2.0, 1e3 * tolT<T>());
    EXPECT_EQ(p.getScale().x, p.getScale().y);
    Pts<T> m;
    p.transform(src, m);
    EXPECT_GT(std::abs(m[0].x - dst[0].x) + std::abs(m[0].y - dst[0].y), 1.0);
    const Cmatrix<T>& s = h.getSolution();  // atan2 recovers the true angle
    EXPECT_NEAR(std::atan2(double(s(3, 0)), double(s(2, 0))), double(th), 1e3 * tolT<T>());
    EXPECT_NEAR(s(0, 0), 5.0, 1e4 * tolT<T>());
    EXPECT_NEAR(std::atan2(double(a.getSolutionY()(2, 0)), double(a.getSolutionY()(1, 0))), double(th), 1e3 * tolT<T>());
    const Pts<T> unit{Cpoint2<T>(T(0), T(0)), Cpoint2<T>(T(1), T(0)), Cpoint2<T>(T(0), T(1))};
    for (int sgn : {1, -1}) {
        SCOPED_TRACE(sgn);
        h.setAll(unit, Pts<T>{Cpoint2<T>(T(0), T(0)), Cpoint2<T>(T(0), T(sgn)), Cpoint2<T>(T(-sgn), T(0))});
        a.setAll(unit, Pts<T>{Cpoint2<T>(T(0), T(0)), Cpoint2<T>(T(0), T(sgn)), Cpoint2<T>(T(-sgn), T(0))});
        const CtransPrm2<T> hp = h.transform(), ap = a.transform();
        ASSERT_TRUE(h.getSolution()(2, 0) == T(0) && a.getSolutionX()(1, 0) == T(0) && a.getSolutionY()(1, 0) == T(0));
        for (T ang : {hp.getRot_X(), ap.getRot_X(), ap.getRot_Y()}) EXPECT_EQ(ang, T(1.5707963267948966));
        EXPECT_EQ(hp.getScale().x, T(1));
    }
}

// Measurement data: 10^4 pairs in a 100 mm square at (1000, 1000) mm, 1 um
// noise on the destination, against the least-squares solution in long
// double (normal equations on centred data) and against the truth.
TYPED_TEST(Transform2, AccuracyOnMeasurementData) {
    using T = TypeParam;
    const bool dbl = std::is_same<T, double>::value;
    for (bool affine : {false, true}) {
        SCOPED_TRACE(affine);
        const Ref truth = affine ? refOf(0.3L, 0.29995L, 1.00002L, 0.99997L, 25.4L, -12.7L)
                                 : refOf(0.3L, 0.3L, 1.00002L, 1.00002L, 25.4L, -12.7L);
        std::mt19937 g(2026);
        std::uniform_real_distribution<double> u(950, 1050);
        std::normal_distribution<double> e(0, 1e-3);
        const std::size_t n = 10000;
        Pts<T> s(n), d(n);
        LD mx = 0, my = 0, mxd = 0, myd = 0;
        for (std::size_t i = 0; i < n; ++i) {
            s[i] = Cpoint2<T>(T(u(g)), T(u(g)));
            LD xd, yd;
            truth.map(s[i].x, s[i].y, xd, yd);
            d[i] = Cpoint2<T>(T(xd + e(g)), T(yd + e(g)));
            mx += s[i].x / LD(n), my += s[i].y / LD(n), mxd += d[i].x / LD(n), myd += d[i].y / LD(n);
        }
        LD uu = 0, vv = 0, uv = 0, uxd = 0, vxd = 0, uyd = 0, vyd = 0;
        for (std::size_t i = 0; i < n; ++i) {
            const LD u0 = s[i].x - mx, v0 = s[i].y - my, ud = d[i].x - mxd, vd = d[i].y - myd;
            uu += u0 * u0, vv += v0 * v0, uv += u0 * v0, uxd += u0 * ud, vxd += v0 * ud, uyd += u0 * vd, vyd += v0 * vd;
        }
        Ref ref;
        if (affine) {  // x' = a1 u - a2 v, y' = b2 u + b1 v
            const LD det = uu * vv - uv * uv;
            ref.a1 = (uxd * vv - vxd * uv) / det, ref.a2 = -(vxd * uu - uxd * uv) / det;
            ref.b2 = (uyd * vv - vyd * uv) / det, ref.b1 = (vyd * uu - uyd * uv) / det;
        } else {  // similarity: a1 = b1, a2 = b2
            ref.a1 = ref.b1 = (uxd + vyd) / (uu + vv), ref.a2 = ref.b2 = (uyd - vxd) / (uu + vv);
        }
        ref.a0 = mxd - ref.a1 * mx + ref.a2 * my, ref.b0 = myd - ref.b1 * my - ref.b2 * mx;
        Ctrans2_Helmert<T> h;
        Ctrans2_Affine<T> a;
        Ctrans2_Basic<T>& est = affine ? static_cast<Ctrans2_Basic<T>&>(a) : h;
        est.setAll(s, d);
        const CtransPrm2<T> p = est.transform();
        const double tCoef = dbl ? 1e-12 : 5e-6, tTrans = dbl ? 1e-8 : 0.01;
        const Ref got = refOf(p.getRot_X(), p.getRot_Y(), p.getScale().x, p.getScale().y, p.getTranslation().x,
                              p.getTranslation().y);
        const LD gv[6] = {got.a0, got.a1, got.a2, got.b0, got.b1, got.b2}, rv[6] = {ref.a0, ref.a1, ref.a2, ref.b0, ref.b1, ref.b2};
        const LD tv[6] = {truth.a0, truth.a1, truth.a2, truth.b0, truth.b1, truth.b2};
        for (int k = 0; k < 6; ++k) {
            EXPECT_NEAR(double(gv[k]), double(rv[k]), k % 3 ? tCoef : tTrans) << k;
            EXPECT_NEAR(double(rv[k]), double(tv[k]), k % 3 ? 1.5e-6 : 2.5e-3) << k;  // the data's own limit
        }
    }
}

// An estimator reused on a set of the same size allocates nothing; reused on
// another size it answers as a fresh one (its systems are resized, not kept).
TYPED_TEST(Transform2, ReuseKeepsOrResizesTheSystems) {
    using T = TypeParam;
    std::mt19937 g(8);
    const Pts<T> s1 = randPts<T>(g, 100), s2 = randPts<T>(g, 100), d1 = randPts<T>(g, 100);
    Ctrans2_Helmert<T> h;
    Ctrans2_Affine<T> a;
    h.setAll(s1, d1), a.setAll(s1, d1);
    const auto before = core::memTracker_totalAllocations();
    h.setAll(s2, d1), a.setAll(s2, d1);
    EXPECT_EQ(core::memTracker_totalAllocations(), before);
    for (std::size_t n : {std::size_t(40), std::size_t(100)}) {
        const Pts<T> s(s2.begin(), s2.begin() + n), d(d1.begin(), d1.begin() + n);
        Ctrans2_Affine<T> fresh;
        fresh.setAll(s, d);
        a.setAll(s, d);
        EXPECT_EQ(a.transform().getRot_Y(), fresh.transform().getRot_Y()) << n;
    }
}
