// Robustness sweep of the public interface.  Every family runs over a table of
// input classes -- empty and degenerate sets, NaN and +-infinity in each
// coordinate position, huge and subnormal magnitudes, badly shaped matrices,
// and seeded random sets that mix normal and extreme values -- and each
// operation states its documented outcome for the class (NaN / isValid()
// false where stated, one of the library's exceptions, a plain int only from
// the eigenvalue iteration).  Each case runs under a watchdog thread (a hang
// ends the executable with the case's name and step); leaks are caught by the
// test main after every test, memory errors by the sanitizer build.
#include <math/all.h>
#include <core/image.h>
#include <core/throw.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <limits>
#include <list>
#include <random>
#include <sstream>
#include <string>
#include <vector>

using namespace math;

namespace {

// Name of the step the guarded thread is in, reported when it does not finish.
std::atomic<char const*> g_step{""};

constexpr int kTimeoutSeconds = 20;  // generous: the sanitizer build is ~10x slower

// Runs f in its own thread and waits at most kTimeoutSeconds.  A case that
// does not finish cannot be cancelled: the executable ends at once with the
// name of the case and its last step.  Exceptions of f reach the caller.
template <class F>
void guarded(std::string const& label, F&& f) {
    g_step = "";
    auto fut = std::async(std::launch::async, std::forward<F>(f));
    if (fut.wait_for(std::chrono::seconds(kTimeoutSeconds)) != std::future_status::ready) {
        std::fprintf(stderr, "HANG in case '%s' at step '%s'\n", label.c_str(), g_step.load());
        std::fflush(stderr);
        std::_Exit(3);
    }
    fut.get();
}

enum class Out { returned, thrown, thrownInt };

// Calls f and classifies the outcome; a CthrowBase-derived exception and (only
// where allowInt) a plain int are accepted outcomes, anything else propagates.
template <class F>
Out attempt(char const* step, F&& f, bool allowInt = false, int* id = nullptr) {
    g_step = step;
    try {
        f();
        return Out::returned;
    } catch (CthrowBase const& e) {
        if (id) *id = e.id();
        return Out::thrown;
    } catch (int v) {
        if (!allowInt) throw;
        EXPECT_EQ(v, 0) << step;
        return Out::thrownInt;
    }
}

template <class T>
constexpr T hugeVal() { return std::is_same<T, float>::value ? T(1e38f) : T(1e300); }
template <class T>
constexpr T tinyVal() { return std::is_same<T, float>::value ? T(1e-40f) : T(1e-310); }  // subnormal
template <class T>
constexpr T nan() { return std::numeric_limits<T>::quiet_NaN(); }
template <class T>
constexpr T inf() { return std::numeric_limits<T>::infinity(); }

template <class T>
std::vector<T> specials() {
    using L = std::numeric_limits<T>;
    return {T(0),       -T(0),        T(1),        T(-1),          T(0.5),          nan<T>(),
            inf<T>(),   -inf<T>(),    hugeVal<T>(), -hugeVal<T>(), L::max(),        L::lowest(),
            tinyVal<T>(), -tinyVal<T>(), L::denorm_min(), L::min()};
}

template <class T>
bool fin(T v) { return std::isfinite(v); }
template <class T>
bool fin(Cpoint2<T> const& p) { return fin(p.x) && fin(p.y); }
template <class T>
bool fin(Cpoint3<T> const& p) { return fin(p.x) && fin(p.y) && fin(p.z); }
template <class T>
bool anyNaN(Cpoint2<T> const& p) { return std::isnan(p.x) || std::isnan(p.y); }

// Seeded random values: one in ten a special value, the rest in [-10, 10].
template <class T>
struct Gen {
    std::mt19937 rng;
    std::vector<T> sp = specials<T>();
    explicit Gen(unsigned seed) : rng(seed) {}
    T val() {
        if (std::uniform_int_distribution<int>(0, 9)(rng) == 0)
            return sp[std::uniform_int_distribution<std::size_t>(0, sp.size() - 1)(rng)];
        return std::uniform_real_distribution<T>(T(-10), T(10))(rng);
    }
    std::size_t count(std::size_t maxN) { return std::uniform_int_distribution<std::size_t>(0, maxN)(rng); }
    Cpoint2<T> p2() { return Cpoint2<T>(val(), val()); }
    Cpoint3<T> p3() { return Cpoint3<T>(val(), val(), val()); }
};

// Input classes of point sets.  `moderate`: all coordinates finite and of
// moderate size, where the documented results are finite / valid.
template <class P>
struct PointSet {
    std::string name;
    std::vector<P> pts;
    bool moderate;
};
template <class T>
using Set2 = PointSet<Cpoint2<T>>;
template <class T>
using Set3 = PointSet<Cpoint3<T>>;

template <class P>
bool isRandom(PointSet<P> const& s) {
    return s.name.compare(0, 7, "random-") == 0;
}

// The named degenerate sets, a base shape scaled to extreme magnitudes, the
// base shape with each special value in each coordinate position, and seeded
// random sets (with duplicates).
template <class T, class P>
std::vector<PointSet<P>> pointSets(std::vector<PointSet<P>> s, std::vector<P> const& base,
                                   std::vector<T> const& scales, unsigned seed) {
    const unsigned dim = sizeof(P) / sizeof(T);
    static_assert(sizeof(P) % sizeof(T) == 0, "coordinates only");
    s.push_back({"base", base, true});
    for (T scale : scales) {
        std::vector<P> p = base;
        for (auto& q : p)
            for (unsigned k = 0; k < dim; ++k) (&q.x)[k] *= scale;
        s.push_back({"scaled", p, false});
    }
    for (T v : specials<T>()) {
        if (fin(v) && std::fabs(v) <= T(1)) continue;  // moderate values are covered above
        for (unsigned i = 0; i < dim * base.size(); ++i) {
            std::vector<P> p = base;
            (&p[i / dim].x)[i % dim] = v;
            s.push_back({"special-at-" + std::to_string(i), p, false});
        }
        P all, one;
        for (unsigned k = 0; k < dim; ++k) (&all.x)[k] = v, (&one.x)[k] = k ? T(1) : v;
        s.push_back({"all-special", std::vector<P>(5, all), false});
        s.push_back({"one-special", {one}, false});
    }
    Gen<T> g(seed);
    for (int it = 0; it < 150; ++it) {
        std::vector<P> p(g.count(12));
        for (auto& q : p)
            for (unsigned k = 0; k < dim; ++k) (&q.x)[k] = g.val();
        if (!p.empty() && g.count(3) == 0) p.push_back(p[g.count(p.size() - 1)]);
        s.push_back({"random-" + std::to_string(it), p, false});
    }
    return s;
}

template <class T>
std::vector<Set2<T>> sets2() {
    using P = Cpoint2<T>;
    std::vector<Set2<T>> s = {
        {"empty", {}, true},
        {"single", {{T(1), T(2)}}, true},
        {"two", {{T(1), T(2)}, {T(3), T(-1)}}, true},
        {"identical", std::vector<P>(7, P(T(1.5), T(-2))), true},
        {"collinear", {{T(0), T(0)}, {T(1), T(1)}, {T(2), T(2)}, {T(3), T(3)}, {T(1), T(1)}}, true},
        {"vertical", {{T(2), T(0)}, {T(2), T(1)}, {T(2), T(5)}, {T(2), T(-3)}}, true},
        {"square", {{T(0), T(0)}, {T(1), T(0)}, {T(1), T(1)}, {T(0), T(1)}}, true}};
    // A concave hexagon-like shape.
    const std::vector<P> base = {{T(0), T(0)}, {T(4), T(0)}, {T(4), T(3)}, {T(2), T(1)}, {T(0), T(3)}, {T(-1), T(1.5)}};
    return pointSets<T>(s, base, {hugeVal<T>(), std::numeric_limits<T>::max() / T(2), tinyVal<T>(),
                                  std::numeric_limits<T>::denorm_min()}, 12345u);
}

template <class T>
std::vector<Set3<T>> sets3() {
    using P = Cpoint3<T>;
    std::vector<Set3<T>> s = {
        {"empty", {}, true},
        {"single", {{T(1), T(2), T(3)}}, true},
        {"two", {{T(1), T(2), T(3)}, {T(3), T(-1), T(0)}}, true},
        {"three", {{T(1), T(0), T(0)}, {T(0), T(1), T(0)}, {T(0), T(0), T(1)}}, true},
        {"identical", std::vector<P>(6, P(T(1), T(-2), T(3))), true},
        {"collinear", {{T(0), T(0), T(0)}, {T(1), T(1), T(1)}, {T(2), T(2), T(2)}, {T(5), T(5), T(5)}}, true},
        {"coplanar", {{T(0), T(0), T(1)}, {T(1), T(0), T(1)}, {T(1), T(1), T(1)}, {T(0), T(1), T(1)}, {T(3), T(2), T(1)}}, true}};
    const std::vector<P> base = {{T(0), T(0), T(0)}, {T(4), T(0), T(0.1)}, {T(4), T(3), T(-0.2)},
                                 {T(0), T(3), T(0.3)}, {T(2), T(1), T(2)},  {T(1), T(2), T(-1)}};
    return pointSets<T>(s, base, {hugeVal<T>(), tinyVal<T>()}, 99u);
}

// Matrices of awkward shape and content.
template <class T>
std::vector<std::pair<std::string, Cmatrix<T>>> matrices() {
    std::vector<std::pair<std::string, Cmatrix<T>>> r = {
        {"0x0", Cmatrix<T>()},           {"0x3", Cmatrix<T>(0, 3)},          {"3x0", Cmatrix<T>(3, 0)},
        {"1x1 zero", Cmatrix<T>(1, 1)},  {"1x1 one", Cmatrix<T>(1, 1, T(1))}, {"2x3", Cmatrix<T>(2, 3, T(1))},
        {"3x2", Cmatrix<T>(3, 2, T(2))}, {"3x3 zero", Cmatrix<T>(3, 3)},     {"3x3 ones", Cmatrix<T>(3, 3, T(1))},
        {"3x4", Cmatrix<T>(3, 4, T(1))}, {"4x3", Cmatrix<T>(4, 3, T(1))},    {"4x4 identity", Cmatrix<T>(4, 4)}};
    r.back().second.setIdentity();
    Cmatrix<T> A(5, 5);
    for (unsigned i = 0; i < 5; ++i)
        for (unsigned j = 0; j < 5; ++j) A(i, j) = T(1) / T(i + j + 1) + (i == j ? T(1) : T(0));
    r.push_back({"5x5 sym", A});
    for (T v : specials<T>()) {
        for (unsigned pos = 0; pos < 9; pos += 4) {
            Cmatrix<T> S(3, 3);
            S(0, 0) = T(2);
            S(1, 1) = T(3);
            S(2, 2) = T(4);
            S(0, 1) = S(1, 0) = T(0.5);
            S(pos / 3, pos % 3) = S(pos % 3, pos / 3) = v;  // keeps symmetry
            r.push_back({"3x3 special", S});
        }
        r.push_back({"3x3 all-special", Cmatrix<T>(3, 3, v)});
        r.push_back({"2x2 all-special", Cmatrix<T>(2, 2, v)});
    }
    return r;
}

// Touches every element (lets the sanitizer see reads out of the block).
template <class T>
T touch(Cmatrix<T> const& M) {
    T s = T(0);
    for (unsigned i = 0; i < M.m(); ++i)
        for (unsigned j = 0; j < M.n(); ++j) s += M(i, j) * T(0);
    return s;
}

template <class T>
class Robust : public ::testing::Test {};
using Types = ::testing::Types<float, double>;
TYPED_TEST_SUITE(Robust, Types);

// ---------------------------------------------------------------------------
// Matrix and matrix stream
// ---------------------------------------------------------------------------

TYPED_TEST(Robust, MatrixShapesAndValues) {
    using T = TypeParam;
    guarded("matrix", [] {
        for (auto const& c : matrices<T>()) {
            Cmatrix<T> const& A = c.second;
            Cmatrix<T> B = A;
            B += A;
            B -= A;
            B += T(1);
            B -= T(1);
            B *= T(2);
            Cmatrix<T> At = A.transp(), P = A * At, Q = At, I = A, R;
            Q *= A;
            EXPECT_TRUE(At.m() == A.n() && At.n() == A.m() && P.m() == A.m() && P.n() == A.m() && Q.m() == A.n()) << c.first;
            I.setIdentity();
            I.setMatrix(1, 1, A);
            I.setMatrix(A.m(), A.n(), A);
            std::vector<T> v;
            if (A.m() > 0) {
                A.getRow(0, v);
                EXPECT_EQ(v.size(), A.n());
                I.setRow(0, std::vector<T>(7, T(1)));
                I.setRow(0, std::vector<T>());
            }
            if (A.n() > 0) {
                A.getCol(0, v);
                EXPECT_EQ(v.size(), A.m());
                I.setCol(0, std::vector<T>(7, T(1)));
            }
            R.resize(A.n(), A.m());
            (void)(touch(-A) + touch(A + B) + touch(A - B) + touch(P) + touch(Q) + touch(I) + touch(R));
            EXPECT_EQ(A.byteSize(), A.m() * A.n() * sizeof(T));
        }
    });
}

// Counts whose byte size does not fit the allocator are refused with the core
// exception, not wrapped into a small block.
TYPED_TEST(Robust, MatrixHugeDimensions) {
    using T = TypeParam;
    guarded("matrix huge", [] {
        const unsigned dims[][2] = {{65536u, 65536u}, {0xFFFFFFFFu, 2u}, {0xFFFFFFFFu, 0xFFFFFFFFu}, {1u << 30, 4u},
                                    {3u, 0x7FFFFFFFu}};
        for (auto const& d : dims) {
            int id = -1;
            EXPECT_EQ(attempt("ctor", [&] { Cmatrix<T> M(d[0], d[1]); }, false, &id), Out::thrown) << d[0] << "x" << d[1];
            EXPECT_EQ(id, CthrowBase::ERR_CORE_NOMEMORY);
            Cmatrix<T> M(2, 2, T(7));
            EXPECT_EQ(attempt("resize", [&] { M.resize(d[0], d[1]); }), Out::thrown);
            EXPECT_EQ(M.m(), 2u);  // unchanged after the failed resize
            EXPECT_EQ(M(1, 1), T(7));
        }
        // Empty dimension with a huge partner: no elements, nothing to allocate.
        Cmatrix<T> Z(0, 0xFFFFFFFFu);
        Z.setIdentity();
        EXPECT_EQ(Z.transp().m(), 0xFFFFFFFFu);
        // 1 x 0 times 0 x huge is 1 x huge: refused.
        EXPECT_EQ(attempt("product", [&] { Cmatrix<T> p = Cmatrix<T>(1, 0) * Z; }), Out::thrown);
    });
}

// Damaged headers and blocks (the exact outcomes are in matrix_io_test): a
// refused read leaves the target as it was; special values survive the
// binary round trip.
TYPED_TEST(Robust, MatrixStreamDamagedInput) {
    using T = TypeParam;
    guarded("matrix io", [] {
        for (const char* t : {"", "abc", "2", "2  2\n1 2", "-1  3\n1 2 3\n", "3  -1\n", "4294967295  4294967295\n",
                              "65536  65536\n1\n", "1e9  1e9\n", "2  2\nnan inf -inf 1e400\n", "0  0\n", "0  7\n",
                              "99999999999999999999  2\n"}) {
            std::istringstream is(t);
            CioStreamMatrix<T> st(is);
            Cmatrix<T> M(1, 1, T(5));
            if (attempt(t, [&] { st >> M; }) == Out::thrown) { EXPECT_TRUE(M.m() == 1u && M(0, 0) == T(5)) << t; }
            touch(M);
        }
        const std::uint32_t hdr[][3] = {{2, 2, 4}, {2, 2, 1}, {0xFFFFFFFFu, 0xFFFFFFFFu, 0}, {65536, 65536, 0},
                                        {0x80000000u, 1, 0}, {0, 0, 0}, {0, 0xFFFFFFFFu, 0}, {3, 1, 0}};
        for (auto const& h : hdr) {
            std::string bytes(reinterpret_cast<const char*>(h), 8);
            for (unsigned k = 0; k < h[2]; ++k) {
                T v = k == 1 ? nan<T>() : T(k);
                bytes.append(reinterpret_cast<const char*>(&v), sizeof v);
            }
            for (std::size_t cut : {bytes.size(), std::size_t(6), std::size_t(0)}) {
                std::istringstream is(bytes.substr(0, cut));
                CioStreamMatrix<T> st(is);
                Cmatrix<T> M(1, 1, T(5));
                if (attempt("bin", [&] { st.read(M); }) == Out::thrown) { EXPECT_EQ(M(0, 0), T(5)); }
                touch(M);
            }
        }
        Cmatrix<T> A(2, 3), B, C;
        std::vector<T> sp = specials<T>();
        for (unsigned k = 0; k < 6; ++k) A.getBase()[k] = sp[k + 5];
        std::stringstream ss, ts;
        CioStreamMatrix<T>(static_cast<std::ostream&>(ss)).write(A);
        CioStreamMatrix<T>(static_cast<std::istream&>(ss)).read(B);
        ASSERT_TRUE(B.m() == 2u && B.n() == 3u);
        for (unsigned k = 0; k < 6; ++k)
            EXPECT_TRUE(B.getBase()[k] == A.getBase()[k] || (std::isnan(B.getBase()[k]) && std::isnan(A.getBase()[k])));
        {
            CioStreamMatrix<T> out(static_cast<std::ostream&>(ts));
            out << A;
        }
        CioStreamMatrix<T> tin(static_cast<std::istream&>(ts));
        attempt("text special", [&] { tin >> C; });
        touch(C);
    });
}

// ---------------------------------------------------------------------------
// Solvers
// ---------------------------------------------------------------------------

template <class T, class S>
void solverSweep(char const* name) {
    for (auto const& c : matrices<T>()) {
        std::string label = std::string(name) + " " + c.first;
        Cmatrix<T> const& A = c.second;
        S s;
        Out o = attempt("setMatrix", [&] { s.setMatrix(A); });
        // LU refuses a non-square matrix when it is installed, Gauss-Jordan
        // at the first solve; the SVD takes any shape.
        if (A.m() != A.n() && std::is_same<S, Csolver_luDecomp<T>>::value) { EXPECT_EQ(o, Out::thrown) << label; }
        if (A.m() != A.n() && std::is_same<S, Csolver_GaussJordan<T>>::value) {
            EXPECT_EQ(o, Out::returned) << label;
            int id = 0;
            EXPECT_EQ(attempt("gj nonsquare", [&] { s.solve(std::vector<T>(A.m(), T(1))); }, false, &id), Out::thrown);
            EXPECT_EQ(id, CthrowMath::ERR_MATRIX_NOTSQUARE) << label;
        }
        for (auto const& b : {std::vector<T>(), std::vector<T>(A.m(), T(1)), std::vector<T>(A.m() + 1, T(1)),
                              std::vector<T>(A.m(), nan<T>())}) {
            Cmatrix<T> x;
            if (attempt("solve vec", [&] { x = s.solve(b); }) == Out::returned) { EXPECT_EQ(x.m(), A.n()) << label; }
            touch(x);
        }
        Cmatrix<T> B(A.m(), 2, T(1)), Bw(A.m() + 2, 2, T(1));
        for (Cmatrix<T> const* b : {&B, &Bw}) {
            attempt("solve mat", [&] { touch(s.solve(*b)); });
            attempt("solveItr", [&] { touch(s.solveItr(A, *b)); });
        }
        attempt("invert", [&] { touch(s.invert()); });
        (void)s.deviation(A, Cmatrix<T>(A.n(), 2, T(1)), B);
        EXPECT_TRUE(std::isnan(s.deviation(A, Cmatrix<T>(A.n() + 1, 2), B))) << label;
        // The solver stays usable after whatever happened above.
        Cmatrix<T> I(2, 2);
        I.setIdentity();
        s.setMatrix(I);
        Cmatrix<T> x = s.solve(std::vector<T>{T(3), T(4)});
        ASSERT_EQ(x.m(), 2u);
        EXPECT_TRUE(x(0, 0) == T(3) && x(1, 0) == T(4)) << label;
        // Copies of a solver in any state.
        S s2(s), s3;
        s3 = s2;
        S s4(A);
        attempt("ctor solve", [&] { touch(s4.solve(B)); });
    }
}

TYPED_TEST(Robust, SolverGaussJordan) {
    using T = TypeParam;
    guarded("gj", [] { solverSweep<T, Csolver_GaussJordan<T>>("gj"); });
}

TYPED_TEST(Robust, SolverLU) {
    using T = TypeParam;
    guarded("lu", [] {
        solverSweep<T, Csolver_luDecomp<T>>("lu");
        for (auto const& c : matrices<T>()) {
            Csolver_luDecomp<T> lu(c.second), lu2;
            attempt("det", [&] { lu.getDet(); });
            attempt("setMatrix", [&] { lu2.setMatrix(c.second); });
            attempt("det2", [&] { lu2.getDet(); });
        }
        // The empty system: square, nothing to decompose.
        Csolver_luDecomp<T> e;
        attempt("empty", [&] {
            e.setMatrix(Cmatrix<T>());
            EXPECT_EQ(e.solve(std::vector<T>()).m(), 0u);
        });
    });
}

TYPED_TEST(Robust, SolverSvd) {
    using T = TypeParam;
    guarded("svd", [] {
        solverSweep<T, Csolver_svd<T>>("svd");
        for (auto const& c : matrices<T>()) {
            for (T tol : {T(0), T(-1), nan<T>(), inf<T>(), T(2.220446049250313e-16)}) {
                Csolver_svd<T> s(c.second);
                s.setTolerance(tol);
                const unsigned r = std::min(c.second.m(), c.second.n());
                EXPECT_EQ(s.getSingularValues().size(), r) << c.first;
                Cmatrix<T> U = s.getU(), V = s.getV();
                EXPECT_TRUE(U.m() == c.second.m() && V.m() == c.second.n() && s.getRank() <= r) << c.first;
                if (r == 0) { EXPECT_TRUE(std::isnan(s.getCond())) << c.first; }
                touch(U);
                touch(V);
                attempt("solve", [&] { touch(s.solve(std::vector<T>(c.second.m(), T(1)))); });
            }
        }
    });
}

// ---------------------------------------------------------------------------
// Rotations, eigenvalues
// ---------------------------------------------------------------------------

TYPED_TEST(Robust, MatrixCalc) {
    using T = TypeParam;
    using C = CmatrixCalc<T>;
    guarded("matrix calc", [] {
        for (T a : specials<T>())
            for (T b : {T(0.3), a})
                for (T c : {T(-0.7), a}) {
                    Cmatrix<T> R;
                    T a1, a2, a3;
                    C::ArcToRotCAP(a, b, c, R);
                    C::RotToArcCAP(R, a1, a2, a3);
                    C::ArcToRotXYZ(a, b, c, R);
                    C::RotToArcCAP_transp(R, a1, a2, a3);
                    C::RotToArcXYZ(R, a1, a2, a3);
                    C::ArcToRotZYX(a, b, c, R);
                    C::ArcToRotZXZ(a, b, c, R);
                    C::RotToArcZXZ(R, a1, a2, a3);
                    ASSERT_EQ(R.m(), 3u);
                    for (unsigned k = 0; k < 9; ++k) EXPECT_TRUE(!(fin(a) && fin(b) && fin(c)) || fin(R.getBase()[k]));
                }
        for (auto const& c : matrices<T>()) {
            Cmatrix<T> const& M = c.second;
            T a1, a2, a3;
            const bool rotShape = M.m() == M.n() && (M.m() == 3 || M.m() == 4);
            EXPECT_EQ(attempt("RotToArcCAP", [&] { C::RotToArcCAP(M, a1, a2, a3); }) == Out::thrown, !rotShape) << c.first;
            attempt("RotToArcCAP_transp", [&] { C::RotToArcCAP_transp(M, a1, a2, a3); });
            attempt("RotToArcXYZ", [&] { C::RotToArcXYZ(M, a1, a2, a3); });
            attempt("RotToArcZXZ", [&] { C::RotToArcZXZ(M, a1, a2, a3); });
            Cmatrix<T> R, S, A = M, V;
            C::getRotScale(M, R, S);
            touch(R);
            touch(S);
            Out eo = attempt("getEigenvalue", [&] { C::getEigenvalue(A, V); }, true);
            touch(A);
            touch(V);
            if (eo == Out::returned && M.m() == M.n() && c.first.find("special") == std::string::npos) {
                // Finite symmetric input: orthonormal eigenvector rows.
                for (unsigned i = 0; i < V.m(); ++i) {
                    T n2 = 0;
                    for (unsigned j = 0; j < V.n(); ++j) n2 += V(i, j) * V(i, j);
                    EXPECT_NEAR(n2, T(1), T(1e-4)) << c.first;
                }
            }
            A = M;
            C::getEigenvalue2x2sym(A, V);
            touch(A);
            A = M;
            attempt("QR_TriDiag", [&] { C::QR_TriDiag(A, V); });
            touch(A);
            touch(V);
            A = M;
            Cmatrix<T> Vi(M.m(), M.m());
            Vi.setIdentity();
            Out d = attempt("DiagTri", [&] { C::DiagTri(A, Vi); }, true);
            if (M.m() != M.n()) { EXPECT_EQ(d, Out::thrownInt) << c.first; }
            C::sortDiagonal(M, S);
            touch(S);
            (void)C::dif(M, M);
            EXPECT_TRUE(std::isnan(C::dif(M, Cmatrix<T>(M.m() + 1, M.n()))));
        }
    });
}

// ---------------------------------------------------------------------------
// Planar primitives
// ---------------------------------------------------------------------------

TYPED_TEST(Robust, Primitives2) {
    using T = TypeParam;
    guarded("primitives2", [] {
        std::vector<T> sp = specials<T>();
        std::vector<Cpoint2<T>> pts = {{T(0), T(0)}};
        for (T v : sp) pts.insert(pts.end(), {{v, T(1)}, {T(2), v}, {v, v}});
        for (auto const& p : pts)
            for (auto const& q : {Cpoint2<T>(T(3), T(4)), p, Cpoint2<T>(T(0), T(0))}) {
                const bool same = fin(p) && p.x == q.x && p.y == q.y;
                Cline2<T> l(p, q), lp(p), ld(p, Cdirec2<T>(q));
                if (same || anyNaN(p)) { EXPECT_FALSE(l.isValid()); }
                if (p.x == T(0) && p.y == T(0)) { EXPECT_FALSE(lp.isValid()); }
                for (Cline2<T> const* L : {&l, &lp, &ld}) {
                    Cdirec2<T> n;
                    T d, dist, arc;
                    Cpoint2<T> f;
                    L->getHNF(n, d);
                    L->getDistArc(dist, arc);
                    L->getLotPoint(f);
                    L->pointAt(T(2));
                    if (L->isValid() && fin(L->point()) && std::fabs(L->point().x) < T(1e10) &&
                        std::fabs(L->point().y) < T(1e10)) {
                        EXPECT_TRUE(fin(d) && fin(dist));
                    }
                }
                Ccircle2<T> c3(p, q, Cpoint2<T>(T(-1), T(5))), cr(p, q.x);
                if (same || anyNaN(p)) { EXPECT_FALSE(c3.isValid()); }
                cr.invalidate();
                EXPECT_FALSE(cr.isValid());
                Crect2<T> r(p, q), r2(p, q.x, q.y), r3(q.x, q.y, p.x, p.y);
                if (anyNaN(p)) { EXPECT_FALSE(r.isValid()); }
                for (Crect2<T> const* R : {&r, &r2, &r3}) {
                    Crect2<T> n = R->normalize();
                    n.pointIsIn(p);
                    n.pointIsRealIn(q);
                    n.pointOnBorder(p);
                    R->intersects(r3);
                    (void)(R->intersect(r2) == R->unite(r));
                }
            }
        EXPECT_FALSE(Crect2<T>().isValid());
        // Directions: a zero or NaN vector gives the invalid direction.  The
        // length is computed directly (no scaling): only moderate magnitudes
        // are guaranteed a unit result.
        for (T v : sp)
            for (T w : {T(0), v, T(1)}) {
                Cdirec2<T> d2(v, w);
                Cdirec3<T> d3(w, v, w);
                if (std::isnan(v) || (v == T(0) && w == T(0))) { EXPECT_FALSE(d2.isValid() || d3.isValid()); }
                if (d2.isValid() && std::fabs(v) <= T(1) && std::fabs(v) >= T(0.5)) {
                    EXPECT_NEAR(d2.x * d2.x + d2.y * d2.y, T(1), T(1e-5));
                }
            }
        // Bounding boxes over every point-set class.
        CboundingBox2<T> b;
        EXPECT_FALSE(b.isValid());
        b.set(std::list<Cpoint2<T>>());
        EXPECT_FALSE(b.isValid());
        for (auto const& s : sets2<T>()) {
            b.set(s.pts);
            CboundingBox2<T> bl;
            bl.set(std::list<Cpoint2<T>>(s.pts.begin(), s.pts.end()));
            if (s.pts.empty()) { EXPECT_FALSE(b.isValid() || bl.isValid()); }
            Cpoint2<T> c;
            b.getCenter(c);
            for (auto const& p : pts)
                if (anyNaN(p)) { EXPECT_FALSE(b.isInside(p)); }
            if (s.moderate && !s.pts.empty()) {
                EXPECT_TRUE(b.isValid() && bl.isValid()) << s.name;
                for (auto const& p : s.pts) EXPECT_TRUE(b.isInside(p));
            }
        }
    });
}

// Every output vertex of the hull and contour functions is one of the input
// points (none invented, none with NaN).
template <class T>
void expectFromInput(std::vector<Cpoint2<T>> const& out, std::vector<Cpoint2<T>> const& in, std::string const& what) {
    for (auto const& p : out) {
        bool found = false;
        for (auto const& q : in) found = found || (q.x == p.x && q.y == p.y);
        EXPECT_TRUE(found && !anyNaN(p)) << what;
    }
}

template <class T>
void polygonCase(Set2<T> const& s) {
    using P = Cpolygon2<T>;
    const std::vector<Cpoint2<T>>& pts = s.pts;
    P poly(pts), copy = poly;
    EXPECT_TRUE(poly == copy || !s.moderate);
    g_step = "area";
    const T a = poly.area();
    if (pts.size() < 3) { EXPECT_EQ(a, T(0)); }
    if (s.moderate) { EXPECT_TRUE(fin(a)); }
    g_step = "center";
    if (pts.empty()) { EXPECT_TRUE(std::isnan(poly.center().x)); }
    poly.boundingRect();
    P::boundingRect(pts);
    g_step = "convexPoly";
    for (bool keep : {false, true}) {
        P h = P::convexPoly(pts, keep);
        expectFromInput(h.points(), pts, s.name + " convexPoly");
        if (s.moderate && !pts.empty()) { EXPECT_GE(h.size(), 1u) << s.name; }
        if (s.moderate) { EXPECT_GE(h.area(), T(0)) << s.name;  // counter-clockwise or flat
    }
    expectFromInput(poly.convexPoly().points(), pts, s.name + " member convexPoly"); }
    g_step = "contourPoly";
    expectFromInput(P::contourPoly(pts).points(), pts, s.name + " contourPoly");
    g_step = "minimumEnclosingRect";
    std::vector<Cpoint2<T>> mer = poly.minimumEnclosingRect();
    EXPECT_TRUE(mer.size() == 0 || mer.size() == 4) << s.name;
    if (pts.empty()) { EXPECT_TRUE(mer.empty()); }
    for (auto const& p : mer) EXPECT_TRUE(!s.moderate || fin(p)) << s.name;
    g_step = "simplifiedTo";
    for (unsigned n = 0; n <= pts.size() + 1; ++n) {
        const unsigned expect = pts.size() < 3 ? 0u : (n <= 2 || n >= pts.size()) ? unsigned(pts.size()) : n;
        EXPECT_EQ(poly.simplifiedTo(n).size(), expect) << s.name << " " << n;
    }
    const std::vector<Cpoint2<T>> probes = {{T(1), T(1)},     {T(0), T(0)},        {nan<T>(), T(0)},
                                            {inf<T>(), inf<T>()}, {T(0), -inf<T>()}, {hugeVal<T>(), T(1)}};
    g_step = "pointIsIn unknown";
    for (auto const& p : probes)
        if (anyNaN(p)) { EXPECT_FALSE(poly.pointIsIn(p)) << s.name; }
    g_step = "preprocess";
    poly.preprocess();
    const int t = poly.type();
    EXPECT_TRUE(t == 1 || t == 2 || t == 3 || t == 4 || t == 6 || t == 7) << s.name << " type " << t;
    if (pts.size() < 3) { EXPECT_EQ(t, 1); }
    g_step = "pointIsIn classified";
    for (auto const& p : probes)
        if (anyNaN(p) || t == 1 || t == 2) { EXPECT_FALSE(poly.pointIsIn(p)) << s.name; }
    for (auto const& p : pts) poly.pointIsIn(p);
    poly.minimumEnclosingRect();
    poly.simplifiedTo(3);
    g_step = "editing";
    poly.add(T(1), T(2));
    EXPECT_FALSE(poly.isPreprocessed());
    poly.add(std::vector<Cpoint2<T>>{{nan<T>(), T(1)}, {inf<T>(), T(0)}});
    poly.add(pts);
    EXPECT_FALSE(poly.remove(poly.size()));
    EXPECT_TRUE(poly.remove(0u));
    poly.remove(Cpoint2<T>(nan<T>(), T(1)));
    poly.preprocess();
    poly.area();
    P q;
    q = pts;
    q.set(Crect2<T>(T(0), T(0), T(1), T(1)));
    EXPECT_EQ(q.type(), 3);
    q.clear();
    EXPECT_EQ(q.type(), 1);
    EXPECT_FALSE(q.pointIsIn(Cpoint2<T>(T(0), T(0))));
    EXPECT_EQ(P(std::list<Cpoint2<T>>(pts.begin(), pts.end())).size(), pts.size());
}

TYPED_TEST(Robust, Polygon) {
    using T = TypeParam;
    for (auto const& s : sets2<T>())
        guarded("polygon " + s.name, [&] { polygonCase(s); });
    guarded("polygon rect", [] {
        for (T v : specials<T>()) {
            Cpolygon2<T> r(Crect2<T>(v, T(0), T(1), v));
            r.pointIsIn(Cpoint2<T>(T(0.5), T(0.5)));
            r.boundingRect();
            r.preprocess();
            r.minimumEnclosingRect();
        }
    });
}

TYPED_TEST(Robust, ConvexHull) {
    using T = TypeParam;
    for (auto const& s : sets2<T>())
        guarded("hull " + s.name, [&] {
            std::vector<Cvector2<T>> v;
            for (auto const& p : s.pts) v.push_back(Cvector2<T>(p.x, p.y));
            CcvxHull2D<T> h(v);
            EXPECT_EQ(v.size(), s.pts.size());  // caller's vector untouched
            // Within the exact range (magnitudes 2^-400 .. 2^500 or 0; non-finite
            // points are dropped) the hull is empty or has at least 3 corners;
            // beyond it only its shape is unspecified.
            bool exactRange = true;
            for (auto const& p : s.pts)
                for (T c : {p.x, p.y})
                    if (fin(c) && c != T(0) && (std::fabs(c) > std::ldexp(T(1), 500) || std::fabs(c) < std::ldexp(T(1), -400)))
                        exactRange = false;
            if (exactRange) { EXPECT_TRUE(h.points().empty() || h.points().size() >= 3) << s.name; }
            std::vector<Cpoint2<T>> hp;
            for (auto const& c : h.points()) hp.push_back(Cpoint2<T>(c.x, c.y));
            expectFromInput(hp, s.pts, s.name + " hull");
            for (auto const& c : hp) EXPECT_TRUE(fin(c)) << s.name;  // non-finite points are dropped
            CcvxHull2D<T> h2 = h;
            h2 = CcvxHull2D<T>();
            EXPECT_TRUE(h2.points().empty());
        });
    guarded("hull int", [] {
        const int M = std::numeric_limits<int>::max(), m = std::numeric_limits<int>::min();
        std::vector<Cvector2<int>> v = {{m, m}, {M, m}, {M, M}, {m, M}, {0, 0}, {m, 0}, {M, M}};
        EXPECT_EQ(CcvxHull2D<int>(v).points().size(), 4u);
    });
}

TYPED_TEST(Robust, Aoi) {
    using T = TypeParam;
    guarded("aoi", [] {
        Caoi<T> empty;
        EXPECT_FALSE(empty.isValid());
        Cimage img(16, 9);
        int id = 0;
        EXPECT_EQ(attempt("invalid pointIsIn", [&] { empty.pointIsIn(Cpoint2<T>(T(0), T(0))); }, false, &id), Out::thrown);
        EXPECT_EQ(id, CthrowMath::ERR_PRIMEXT_AOI_INVALID);
        EXPECT_EQ(attempt("invalid rect", [&] { empty.boundingRect(); }), Out::thrown);
        EXPECT_EQ(attempt("invalid count", [&] { empty.count(img); }), Out::thrown);
        EXPECT_EQ(attempt("invalid mask", [&] { empty.mask(img); }), Out::thrown);
        // (Index errors with their texts: aoi_test.)
        Gen<T> g(31u);
        for (auto const& s : sets2<T>()) {
            g_step = "aoi set";
            Caoi<T> a(Crect2<T>(T(0), T(0), T(5), T(4)));
            unsigned i = a.add(Cpolygon2<T>(s.pts), Caoi<T>::MODE_EXCLUDE);
            unsigned j = a.add(Cpolygon2<T>(s.pts), Caoi<T>::MODE_INCLUDE);
            a.regionIsValid(i);
            EXPECT_TRUE(a.isValid());
            for (auto const& p : s.pts) a.pointIsIn(p);
            a.pointIsIn(Cpoint2<T>(nan<T>(), T(1)));
            a.boundingRect();
            EXPECT_LE(a.count(img), 16u * 9u);
            EXPECT_EQ(a.mask(img).width(), 16u);
            attempt("point j", [&] { a.point(j, 100); });
            if (a.pointCount(j) > 0) a.setPoint(j, 0, Cpoint2<T>(inf<T>(), T(0)));
            a.setPolygon(i, Cpolygon2<T>());
            a.remove(0);
            attempt("after remove", [&] { a.count(img); });
            // A random including or excluding region on a random image: mask
            // and count agree; an invalid area refuses every query.
            Caoi<T> r(Crect2<T>(g.val(), g.val(), g.val(), g.val()));
            r.add(Cpolygon2<T>(s.pts), g.count(2) == 0 ? Caoi<T>::MODE_EXCLUDE : Caoi<T>::MODE_INCLUDE);
            if (r.isValid()) {
                Cimage im(static_cast<unsigned>(g.count(12)), static_cast<unsigned>(g.count(12)));
                const std::uint64_t cnt = r.count(im);
                EXPECT_LE(cnt, std::uint64_t(im.width()) * im.height());
                Cimage mk = r.mask(im);
                std::uint64_t set = 0;
                for (unsigned y = 0; y < mk.height(); ++y)
                    for (unsigned x = 0; x < mk.width(); ++x) set += mk.at(x, y) == 255;
                EXPECT_EQ(set, cnt) << s.name;
                r.boundingRect();
            } else {
                EXPECT_EQ(attempt("invalid aoi", [&] { r.pointIsIn(Cpoint2<T>()); }), Out::thrown);
            }
        }
        // Regions covering far more than the image (pixel range clipped),
        // an empty image, a subnormal region.
        Caoi<T> big(Crect2<T>(-hugeVal<T>(), -hugeVal<T>(), inf<T>(), inf<T>()));
        attempt("big rect", [&] { big.count(Cimage()); });
        Caoi<T> h(Crect2<T>(-hugeVal<T>(), -hugeVal<T>(), hugeVal<T>(), hugeVal<T>()));
        attempt("huge count", [&] { EXPECT_LE(h.count(img), 144u); });
        Caoi<T> sub(Crect2<T>(tinyVal<T>(), tinyVal<T>(), tinyVal<T>(), tinyVal<T>()));
        attempt("tiny count", [&] { sub.count(img); });
    });
}

// ---------------------------------------------------------------------------
// Spatial primitives, transformations, geometric queries, tools
// ---------------------------------------------------------------------------

template <class T>
std::vector<Cpoint3<T>> probes3() {
    std::vector<Cpoint3<T>> r = {{T(0), T(0), T(0)}, {T(1), T(2), T(3)}};
    for (T v : specials<T>()) r.insert(r.end(), {{v, T(1), T(2)}, {T(1), v, T(2)}, {T(1), T(2), v}});
    return r;
}

TYPED_TEST(Robust, Primitives3AndTransform) {
    using T = TypeParam;
    guarded("primitives3", [] {
        const Cpoint3<T> o(T(0), T(0), T(0)), ex(T(1), T(0), T(0)), ey(T(0), T(1), T(0));
        for (auto const& p : probes3<T>()) {
            if (std::isnan(p.x)) { EXPECT_FALSE(Cplane3<T>(p, p, ex).isValid()); }
            for (Cplane3<T> const& E : {Cplane3<T>(o, ex, p), Cplane3<T>(p, Cdirec3<T>(p)),
                                        Cplane3<T>(Cdirec3<T>(T(0), T(0), T(1)), p.z)}) {
                E.pointAt(p.x, p.y);
                Ccircle3<T>(E, ex, ey, p).isValid();
                Ccircle3<T> c2(E, p, p, p);  // three coincident points: no circle
                if (E.isValid() && fin(p)) { EXPECT_TRUE(!c2.isValid() || !fin(c2.radius()) || c2.radius() == T(0)); }
            }
            CboundingBox3<T> b;
            b.set(std::vector<Cpoint3<T>>{p, o});
            b.isInside(p);
            b.getCenter();
        }
        CboundingBox3<T> b;
        b.set(std::vector<Cpoint3<T>>());
        EXPECT_FALSE(b.isValid());
    });
    guarded("transform3", [] {
        for (T v : specials<T>()) {
            for (unsigned pos = 0; pos < 4; ++pos) {
                T c[4] = {T(0.5), T(0.5), T(0.5), T(0.5)};
                c[pos] = v;
                Cquaternion<T> q(c[0], c[1], c[2], c[3]);
                q.norm();
                Cquaternion<T> n = q.normalized();
                if (std::isnan(v)) { EXPECT_FALSE(n.isValid()); }
                EXPECT_FALSE(Cquaternion<T>(T(0), T(0), T(0), T(0)).normalized().isValid());
                n.conjugate();
                (void)(n * q);
                n *= q;
                n.rotate(Cpoint3<T>(v, T(1), T(2)));
                T R[3][3];
                n.getRotMatrix(R);
                for (auto& row : R)
                    for (T x : row) EXPECT_TRUE(std::isnan(x) || (x >= T(-1) && x <= T(1)));
                Cmatrix<T> M;
                n.getRotMatrix(M);
                Cquaternion<T> back(M), back2(R), aa(Cdirec3<T>(v, T(1), T(0)), v);
                Cdirec3<T> ax;
                T ang;
                n.getAxisAngle(ax, ang);
                aa.getAxisAngle(ax, ang);
                CtransPrm3<T> tp(q, Cpoint3<T>(v, T(0), T(1)), v);
                if (std::isnan(v)) { EXPECT_FALSE(tp.isValid()); }
                tp.setScale(T(0));
                Cpoint3<T> p(T(1), v, T(2)), r;
                tp.transform(p);
                tp.transform(p, r);
                tp.retransform(r);
                tp.retransform(p, r);
                std::vector<Cpoint3<T>> ps = probes3<T>(), out;
                tp.transform(ps);
                tp.transform(ps, out);
                EXPECT_EQ(out.size(), ps.size());
                tp.retransform(ps);
                tp.retransform(ps, out);
                tp.transform(std::vector<Cpoint3<T>>(), out);
                EXPECT_TRUE(out.empty());
                (void)(tp.inverse() * tp);
                tp.setRotation(Cquaternion<T>(T(0), T(0), T(0), T(0)));
                EXPECT_FALSE(tp.isValid());
            }
        }
        // Rotation matrices of the wrong shape are refused, not read past their end.
        for (auto const& c : matrices<T>()) {
            int id = 0;
            Out o = attempt("quat from matrix", [&] { Cquaternion<T> q(c.second); }, false, &id);
            const bool small = c.second.m() < 3 || c.second.n() < 3;
            EXPECT_EQ(o, small ? Out::thrown : Out::returned) << c.first;
            if (small) { EXPECT_EQ(id, CthrowMath::ERR_MATRIX_DIMS); }
        }
    });
}

TYPED_TEST(Robust, Geometric) {
    using T = TypeParam;
    using G = geometric<T>;
    guarded("geometric", [] {
        const std::vector<Cpoint3<T>> pr = probes3<T>();
        const std::vector<T> sp = specials<T>();
        std::vector<Cpoint2<T>> pr2;
        for (auto const& q : pr) pr2.push_back(Cpoint2<T>(q.x, q.y));
        std::vector<T> dist;
        const Cpoint3<T> o(T(0), T(0), T(0));
        for (auto const& p : pr) {
            const Cplane3<T> e(p, Cdirec3<T>(T(0), T(0), T(1))), e2(Cdirec3<T>(p), T(1)),
                e3(Cdirec3<T>(T(1), T(0), T(0)), p.x);
            const Cline3<T> l(p, Cdirec3<T>(T(1), T(1), T(0))), l2(o, p), l3(Cpoint3<T>(T(0), T(1), T(1)), Cdirec3<T>(p));
            const Csphere3<T> s(p, T(2)), s2(o, p.x);
            const Ccylinder3<T> z(l, p.y);
            g_step = "distance";
            for (auto const& d : {G::distance(e, p), G::distance(l2, p), G::distance(s, p), G::distance(z, p)}) (void)d;
            auto each = [&](auto const& f) {
                dist = {T(1)};
                f();
                EXPECT_EQ(dist.size(), pr.size());
            };
            each([&] { G::distance(e2, pr, dist); });
            each([&] { G::distance(l, pr, dist); });
            each([&] { G::distance(s2, pr, dist); });
            each([&] { G::distance(z, pr, dist); });
            each([&] { G::distance(p, pr, dist); });
            g_step = "ellipse";
            for (Cellipse2<T> const& el : {Cellipse2<T>(Cpoint2<T>(p.x, T(0)), T(3), p.y, p.z),
                                           Cellipse2<T>(Cpoint2<T>(T(0), T(0)), p.x, T(1), T(0)),
                                           Cellipse2<T>(Cpoint2<T>(T(0), T(0)), T(3), T(1), T(0.3))}) {
                G::distance(el, Cpoint2<T>(p.x, p.y));
                each([&] { G::distance(el, pr2, dist); });
            }
            g_step = "project";
            Cpoint3<T> q = p;
            G::project(l, q);
            G::project(e2, q);
            std::vector<Cpoint3<T>> pc = pr, none;
            G::project(l2, pc);
            G::project(e, pc);
            EXPECT_FALSE(G::project(l, none));
            g_step = "intersect3";
            Cpoint3<T> x;
            if (!G::intersect(e, l3, x)) { EXPECT_TRUE(std::isnan(x.x)); }
            Cline3<T> li;
            G::intersect(e, e2, li);
            G::intersect(e, e3, li);
            G::intersect(l, l2, x);
            T gap, rms;
            G::intersect(l3, l2, x, gap);
            G::intersect(e, e2, e3, x);
            std::pair<T, T> t;
            if (!G::intersect(s, l, t)) { EXPECT_TRUE(std::isnan(t.first) && std::isnan(t.second)); }
            G::intersect(s2, l3, t);
            std::pair<Cpoint3<T>, Cpoint3<T>> seg;
            G::intersect(CboundingBox3<T>(o, p), l, seg);
            G::intersect(CboundingBox3<T>(), l, seg);
            G::intersect(CboundingBox3<T>(Cpoint3<T>(T(-1), T(-1), T(-1)), Cpoint3<T>(T(1), T(1), T(1))), l3, seg);
            for (auto const& ls : {std::vector<Cline3<T>>{}, {l}, {l, l2, l3}, {l, l, l}}) G::intersect(ls, x, rms);
            const Csphere3<T> unit(Cpoint3<T>(T(1), T(0), T(0)), T(1));
            for (bool side : {false, true})
                for (auto const& ss : {std::vector<Csphere3<T>>{}, {s}, {s, s2}, {s, s2, unit}, {s, s, s, s}})
                    G::intersect(ss, x, side);
            g_step = "planar";
            const Cpoint2<T> p2(p.x, p.y);
            const Cline2<T> a(p2, Cpoint2<T>(T(1), T(1))), b(Cpoint2<T>(T(0), T(0)), Cdirec2<T>(T(0), T(1)));
            Cpoint2<T> s2p = p2;
            G::intersect(a, b, s2p);
            G::intersect(a, a, s2p);
            (void)(G::distance(a, p2) + G::distance(a, b) + G::distance(b, a));
            each([&] { G::distance(b, pr2, dist); });
            G::project(b, s2p);
            std::vector<Cpoint2<T>> ps2c = pr2, none2;
            G::project(a, ps2c);
            EXPECT_FALSE(G::project(b, none2));
            const Ccircle2<T> c1(p2, T(1)), c2(p2, T(2)), cz(Cpoint2<T>(), p.z);
            for (bool side : {false, true})
                for (auto const& cs : {std::vector<Ccircle2<T>>{}, {c1}, {c1, cz}, {c1, c1, c2}}) G::intersect(cs, s2p, side);
            g_step = "outlier";
            std::vector<Cpoint3<T>> op = pr, op2 = pr;
            std::vector<T> res(op.size());
            for (std::size_t k = 0; k < res.size(); ++k) res[k] = sp[k % sp.size()];
            G::outlier(op, res, p.x);
            EXPECT_FALSE(G::outlier(op2, std::vector<T>(1), T(1)));
            EXPECT_EQ(op2.size(), pr.size());
        }
    });
}

TYPED_TEST(Robust, Tools) {
    using T = TypeParam;
    guarded("tools", [] {
        CbaseVecN<Cpoint3<T>> in, out, empty;
        for (auto const& p : probes3<T>()) in.push_back(p);
        for (T d : specials<T>()) {
            for (auto const& p : probes3<T>()) {
                Cplane3<T> e(p, Cdirec3<T>(T(0), T(0), T(1)));
                const bool ok = tools<T>::cutPointCloud(e, d, in, out);
                if (std::isnan(d) || d < T(0) || !e.isValid()) { EXPECT_TRUE(!ok && out.empty()); }
                EXPECT_LE(out.size(), in.size());
                CbaseVecN<Cpoint3<T>> same = in;
                tools<T>::cutPointCloud(e, d, same, same);
                EXPECT_LE(same.size(), in.size());
                tools<T>::cutPointCloud(e, d, empty, out);
                EXPECT_TRUE(out.empty());
            }
        }
    });
}

// ---------------------------------------------------------------------------
// Fits
// ---------------------------------------------------------------------------

template <class T>
void fits2(Set2<T> const& s) {
    using A = approximate<T>;
    const std::size_t n = s.pts.size();
    Cline2<T> line, lg;
    double ms = 0;
    attempt("fitLineLsq", [&] { ms = A::fitLineLsq(s.pts, line); }, true);
    if (n < 2) { EXPECT_TRUE(std::isnan(line.point().x) && std::isnan(line.direction().x) && std::isnan(ms)) << s.name; }
    CqLineLsqNStdAbw<T> rl;
    attempt("fitLineLsqN", [&] { A::fitLineLsqN(s.pts, line, rl); }, true);
    attempt("fitLineLsqN2", [&] { A::fitLineLsqN(s.pts, line); }, true);
    Ccircle2<T> c, cb;
    CqCircleLsqStdAbw<T> rc;
    attempt("fitCircleLsq", [&] { A::fitCircleLsq(s.pts, c); }, true);
    if (n <= 3) { EXPECT_FALSE(c.isValid()) << s.name; }
    attempt("fitCircleLsq rec", [&] { A::fitCircleLsq(s.pts, c, rc); }, true);
    if (n <= 3) { EXPECT_TRUE(std::isnan(rc.stdAbw)); }
    attempt("fitCircleLsqBeta", [&] { A::fitCircleLsqBeta(s.pts, cb); }, true);
    if (n <= 3) { EXPECT_FALSE(cb.isValid()) << s.name; }
    g_step = "StdAbw2";
    const T sl = A::StdAbwLine2(s.pts, line), sc = A::StdAbwCircle2(s.pts, c);
    if (n < 2) { EXPECT_TRUE(std::isnan(sl) && std::isnan(sc)); }
    A::StdAbwLine2(s.pts, Cline2<T>());
    A::StdAbwCircle2(s.pts, Ccircle2<T>());
    attempt("fitLineGeom", [&] { A::fitLineGeom(s.pts, lg); }, true);
    if (n < 2) { EXPECT_FALSE(lg.isValid()) << s.name; }
    if (s.moderate && n >= 2) { EXPECT_TRUE(lg.isValid() && fin(lg.point())) << s.name; }
    CqLineGeom2DStdAbw<T> r2;
    attempt("fitLineGeom rec", [&] { A::fitLineGeom(s.pts, lg, r2); }, true);
    if (n < 2) { EXPECT_TRUE(std::isnan(r2.stdAbwOrth) && std::isnan(r2.stdAbwAlong)); }
}

template <class T>
void fits3(Set3<T> const& s) {
    using A = approximate<T>;
    const std::size_t n = s.pts.size();
    Csphere3<T> sph;
    CqSphereLsqStdAbw<T> rs;
    attempt("fitSphereLsq", [&] { A::fitSphereLsq(s.pts, sph); }, true);
    attempt("fitSphereLsq rec", [&] { A::fitSphereLsq(s.pts, sph, rs); }, true);
    g_step = "StdAbwSphere";
    if (n < 2) { EXPECT_TRUE(std::isnan(A::StdAbwSphere(s.pts, sph))); }
    A::StdAbwSphere(s.pts, Csphere3<T>());
    Cline3<T> l;
    Out o = attempt("fitLineGeom3", [&] { A::fitLineGeom(s.pts, l); }, true);
    if (o == Out::returned && n < 2) { EXPECT_FALSE(l.isValid()) << s.name; }
    if (o == Out::returned && s.moderate && n >= 2) { EXPECT_TRUE(fin(l.point())) << s.name; }
    CqLineGeom3DStdAbw<T> r3;
    attempt("fitLineGeom3 rec", [&] { A::fitLineGeom(s.pts, l, r3); }, true);
    Cplane3<T> e;
    o = attempt("fitPlaneGeom", [&] { A::fitPlaneGeom(s.pts, e); }, true);
    if (o == Out::returned && n < 3) { EXPECT_FALSE(e.isValid()) << s.name; }
    if (o == Out::returned && s.moderate && n >= 3 && s.name != "identical" && s.name != "collinear") {
        EXPECT_TRUE(e.isValid() && fin(e.d())) << s.name;
    }
    CqPlaneGeomStdAbw<T> rp;
    attempt("fitPlaneGeom rec", [&] { A::fitPlaneGeom(s.pts, e, rp); }, true);
    if (n < 3) { EXPECT_TRUE(std::isnan(rp.stdAbwNormal) && std::isnan(rp.stdAbwMain)); }
    // Unbounded iteration counts only where the iteration settles at once.
    std::vector<CqPlaneGeomFast<T>> prms = {CqPlaneGeomFast<T>(), CqPlaneGeomFast<T>(0u, T(0))};
    if (!isRandom(s))
        prms.insert(prms.end(), {CqPlaneGeomFast<T>(5000u, T(0)), CqPlaneGeomFast<T>(0xFFFFFFFFu, nan<T>()),
                                 CqPlaneGeomFast<T>(0xFFFFFFFFu, T(-1)), CqPlaneGeomFast<T>(0xFFFFFFFFu, inf<T>())});
    for (CqPlaneGeomFast<T> const& prm : prms) {
        attempt("fitPlaneGeomFast", [&] { A::fitPlaneGeomFast(s.pts, e, prm); }, true);
        if (n < 3) { EXPECT_FALSE(e.isValid()) << s.name; }
    }
}

TYPED_TEST(Robust, Fits2D) {
    using T = TypeParam;
    for (auto const& s : sets2<T>()) guarded("fits2 " + s.name, [&] { fits2(s); });
}

TYPED_TEST(Robust, Fits3D) {
    using T = TypeParam;
    for (auto const& s : sets3<T>()) guarded("fits3 " + s.name, [&] { fits3(s); });
}

// ---------------------------------------------------------------------------
// Seeded random loops over the queries that take single objects: no crash,
// no hang, no leak; outputs finite or invalid.  (Point sets with random
// content run through every family above.)
// ---------------------------------------------------------------------------

TYPED_TEST(Robust, FuzzPlanar) {
    using T = TypeParam;
    guarded("fuzz planar", [] {
        Gen<T> g(12345u);
        for (int it = 0; it < 1500; ++it) {
            std::vector<Cpoint2<T>> pts(g.count(12));
            for (auto& p : pts) p = g.p2();
            if (!pts.empty() && g.count(3) == 0) pts.push_back(pts[g.count(pts.size() - 1)]);  // duplicates
            bool clean = true;
            for (auto const& p : pts) clean = clean && fin(p) && std::fabs(p.x) <= T(1e6) && std::fabs(p.y) <= T(1e6);
            Cpolygon2<T> poly(pts);
            if (clean) { EXPECT_TRUE(fin(poly.area())); }
            g_step = "fuzz polygon";
            poly.preprocess();
            poly.pointIsIn(g.p2());
            expectFromInput(Cpolygon2<T>::convexPoly(pts, it % 2 == 0).points(), pts, "fuzz convexPoly");
            expectFromInput(Cpolygon2<T>::contourPoly(pts).points(), pts, "fuzz contourPoly");
            std::vector<Cpoint2<T>> mer = poly.minimumEnclosingRect();
            EXPECT_TRUE(mer.empty() || mer.size() == 4);
            for (auto const& p : mer) EXPECT_TRUE(!clean || fin(p));
            poly.simplifiedTo(static_cast<unsigned>(g.count(10)));
            g_step = "fuzz lines";
            Cline2<T> l(g.p2(), g.p2());
            Cdirec2<T> nn;
            T d, dist, arc;
            l.getHNF(nn, d);
            l.getDistArc(dist, arc);
            Ccircle2<T> c(g.p2(), g.p2(), g.p2());
            if (c.isValid()) { EXPECT_FALSE(std::isnan(c.radius())); }
            Cpoint2<T> s;
            geometric<T>::intersect(l, Cline2<T>(g.p2(), g.p2()), s);
            std::vector<Ccircle2<T>> cs;
            for (std::size_t k = g.count(5); k > 0; --k) cs.push_back(Ccircle2<T>(g.p2(), g.val()));
            geometric<T>::intersect(cs, s, it % 2 == 0);
            geometric<T>::project(l, pts);
            std::vector<T> dd;
            geometric<T>::distance(Cellipse2<T>(g.p2(), g.val(), g.val(), g.val()), pts, dd);
            EXPECT_EQ(dd.size(), pts.size());
        }
    });
}

TYPED_TEST(Robust, FuzzSpatial) {
    using T = TypeParam;
    guarded("fuzz spatial", [] {
        Gen<T> g(777u);
        using G = geometric<T>;
        for (int it = 0; it < 1500; ++it) {
            auto P = [&] { return g.p3(); };
            std::vector<Cpoint3<T>> pts(g.count(8));
            for (auto& p : pts) p = P();
            Cplane3<T> e(P(), P(), P());
            Cline3<T> l(P(), P());
            Cpoint3<T> x;
            G::intersect(e, l, x);
            G::intersect(e, Cplane3<T>(P(), Cdirec3<T>(P())), l);
            G::intersect(l, Cline3<T>(P(), P()), x);
            G::intersect(e, Cplane3<T>(P(), Cdirec3<T>(P())), Cplane3<T>(P(), Cdirec3<T>(P())), x);
            std::pair<T, T> t;
            G::intersect(Csphere3<T>(P(), g.val()), l, t);
            std::pair<Cpoint3<T>, Cpoint3<T>> seg;
            G::intersect(CboundingBox3<T>(P(), P()), l, seg);
            std::vector<Cline3<T>> ls;
            for (std::size_t k = g.count(5); k > 0; --k) ls.push_back(Cline3<T>(P(), P()));
            T rms;
            G::intersect(ls, x, rms);
            std::vector<Csphere3<T>> ss;
            for (std::size_t k = g.count(6); k > 0; --k) ss.push_back(Csphere3<T>(P(), g.val()));
            G::intersect(ss, x, it % 2 == 0);
            std::vector<T> d;
            G::distance(Ccylinder3<T>(l, g.val()), pts, d);
            G::project(e, pts);
            Ccircle3<T> c(e, P(), P(), P());
            Cquaternion<T> q(g.val(), g.val(), g.val(), g.val());
            q.normalize();
            CtransPrm3<T> tp(q, P(), g.val());
            tp.transform(pts);
            tp.retransform(pts);
            Cdirec3<T> ax;
            T ang;
            q.getAxisAngle(ax, ang);
            if (q.isValid() && fin(q.w) && fin(q.x) && fin(q.y) && fin(q.z)) { EXPECT_FALSE(std::isnan(ang)); }
            CbaseVecN<Cpoint3<T>> in, out;
            for (auto const& p : pts) in.push_back(p);
            tools<T>::cutPointCloud(e, g.val(), in, out);
        }
    });
}

TYPED_TEST(Robust, FuzzLinearAlgebra) {
    using T = TypeParam;
    guarded("fuzz linalg", [] {
        Gen<T> g(4242u);
        for (int it = 0; it < 1200; ++it) {
            const unsigned m = static_cast<unsigned>(g.count(5)), n = static_cast<unsigned>(g.count(5));
            Cmatrix<T> A(m, n), S(m, m), V, R;
            bool clean = true;
            for (T& a : A) clean = fin(a = g.val()) && clean;
            for (unsigned i = 0; i < m; ++i)
                for (unsigned j = 0; j <= i; ++j) S(i, j) = S(j, i) = n ? A(i, j % n) : T(0);
            std::vector<T> b(m);
            for (T& v : b) v = g.val();
            Csolver_GaussJordan<T> gj;
            Csolver_luDecomp<T> lu;
            Csolver_svd<T> sv;
            attempt("fz gj", [&] { gj.setMatrix(A), touch(gj.solve(b)); });
            attempt("fz lu", [&] { lu.setMatrix(A), touch(lu.solve(b)), lu.getDet(); });
            attempt("fz svd", [&] {
                sv.setMatrix(A);
                touch(sv.solve(b));
                for (T w : sv.getSingularValues()) EXPECT_TRUE(!clean || fin(w) || w == inf<T>());
            });
            attempt("fz eig", [&] { CmatrixCalc<T>::getEigenvalue(S, V); }, true);
            CmatrixCalc<T>::ArcToRotZYX(g.val(), g.val(), g.val(), R);
            T a1, a2, a3;
            CmatrixCalc<T>::RotToArcXYZ(R, a1, a2, a3);
        }
    });
}

}  // namespace
