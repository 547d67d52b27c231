// Robustness sweep of the public interface.  Each family has a table of
// operations and the outcomes each class of input may give (finite / valid,
// NaN / invalid, empty, a library exception, the plain int 0 of the eigenvalue
// iteration); one loop runs every row over every input, each input under a
// watchdog (a hang ends the executable naming the case and step).  Leaks are
// caught by the test main after every test, memory errors by the sanitizer build.
#include <math/all.h>
#include <core/image.h>
#include <core/throw.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
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

// Outcomes: finite / valid result, NaN / invalid result, empty or zero result,
// a library exception, the plain int 0 the eigenvalue iteration throws.
constexpr unsigned FIN = 1, INV = 2, NIL = 4, THR = 8, EIG = 16, ANY = FIN | INV | NIL | THR;
int g_id = 0;  // id of the last library exception caught

// Runs f (returning an outcome) and classifies it; any other exception propagates.
template <class F>
unsigned outcome(char const* step, F&& f) {
    g_step = step;
    try {
        return f();
    } catch (CthrowBase const& e) {
        g_id = e.id();
        return THR;
    } catch (int v) {
        EXPECT_EQ(v, 0) << step;
        return EIG;
    }
}
#define TRY(step, ...) outcome(step, [&]() -> unsigned { __VA_ARGS__; return FIN; })

template <class T> constexpr T hugeVal() { return std::is_same<T, float>::value ? T(1e38f) : T(1e300); }
template <class T> constexpr T tinyVal() { return std::is_same<T, float>::value ? T(1e-40f) : T(1e-310); }
template <class T> constexpr T nan() { return std::numeric_limits<T>::quiet_NaN(); }
template <class T> constexpr T inf() { return std::numeric_limits<T>::infinity(); }
template <class T>
std::vector<T> specials() {
    using L = std::numeric_limits<T>;
    return {T(0),     -T(0),     T(1),          T(-1),          T(0.5),      nan<T>(),     inf<T>(),       -inf<T>(),
            hugeVal<T>(), -hugeVal<T>(), L::max(), L::lowest(), tinyVal<T>(), -tinyVal<T>(), L::denorm_min(), L::min()};
}
template <class T> bool fin(T v) { return std::isfinite(v); }
template <class T> bool fin(Cpoint2<T> const& p) { return fin(p.x) && fin(p.y); }
template <class T> bool fin(Cpoint3<T> const& p) { return fin(p.x) && fin(p.y) && fin(p.z); }
template <class T> bool anyNaN(Cpoint2<T> const& p) { return std::isnan(p.x) || std::isnan(p.y); }
template <class T> bool tameVal(T v) { return v == T(0) || (std::fabs(v) >= T(1e-3) && std::fabs(v) <= T(10)); }
template <class T> bool modVal(T v) { return v == T(0) || (std::fabs(v) >= T(0.5) && std::fabs(v) <= T(1)); }
inline unsigned valid(bool v) { return v ? FIN : INV; }

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

// Input classes.  An input with fewer elements than a row needs is `small`;
// otherwise it is `moderate` (finite, moderate magnitudes), `degenerate`
// (identical or collinear points; non-square matrices) or `wild` (extreme
// magnitudes, NaN, infinity, random mixtures).
enum Cls { small, moderate, degenerate, wild };
template <class V>
struct Input {
    std::string name;
    V v;
    Cls cls;
    std::size_t n() const { return v.size(); }
};
template <class V>
struct Row {
    const char* op;
    std::size_t need;   // fewer elements: the input is `small`
    unsigned want[4];   // accepted outcomes per class: small, moderate, degenerate, wild
    std::function<unsigned(Input<V> const&)> run;
};

// The loop of every family: each input under the watchdog, each row on it.
template <class V>
void sweep(std::string const& family, std::vector<Input<V>> const& inputs, std::vector<Row<V>> const& rows) {
    for (auto const& in : inputs)
        guarded(family + " " + in.name, [&] {
            for (auto const& r : rows) {
                const unsigned got = outcome(r.op, [&] { return r.run(in); });
                const Cls c = in.n() < r.need ? small : in.cls;
                EXPECT_TRUE(got & r.want[c]) << family << " " << r.op << " on " << in.name << ": outcome " << got;
            }
        });
}

// The named sets, a base shape scaled to extreme magnitudes, the base shape
// with each special value in each coordinate position, and seeded random sets
// (with duplicates).
template <class T, class P>
std::vector<Input<std::vector<P>>> pointSets(std::vector<Input<std::vector<P>>> s, std::vector<P> const& base,
                                             std::vector<T> const& scales, unsigned seed) {
    const unsigned dim = sizeof(P) / sizeof(T);
    s.push_back({"base", base, moderate});
    for (T scale : scales) {
        std::vector<P> p = base;
        for (auto& q : p)
            for (unsigned k = 0; k < dim; ++k) (&q.x)[k] *= scale;
        s.push_back({"scaled", p, wild});
    }
    for (T v : specials<T>()) {
        if (fin(v) && std::fabs(v) <= T(1)) continue;  // moderate values are covered above
        for (unsigned i = 0; i < dim * base.size(); ++i) {
            std::vector<P> p = base;
            (&p[i / dim].x)[i % dim] = v;
            s.push_back({"special-at-" + std::to_string(i), p, wild});
        }
        P all, one;
        for (unsigned k = 0; k < dim; ++k) (&all.x)[k] = v, (&one.x)[k] = k ? T(1) : v;
        s.push_back({"all-special", std::vector<P>(5, all), wild});
        s.push_back({"one-special", {one}, wild});
    }
    Gen<T> g(seed);
    for (int it = 0; it < 150; ++it) {
        std::vector<P> p(g.count(12));
        for (auto& q : p)
            for (unsigned k = 0; k < dim; ++k) (&q.x)[k] = g.val();
        const bool dup = !p.empty() && g.count(3) == 0;
        if (dup) p.push_back(p[g.count(p.size() - 1)]);
        bool tame = !dup;  // distinct points without a special value among the coordinates
        for (auto const& q : p)
            for (unsigned k = 0; k < dim; ++k) tame = tame && tameVal((&q.x)[k]);
        s.push_back({"random-" + std::to_string(it), p, tame ? moderate : wild});
    }
    return s;
}

template <class T>
using Set2 = Input<std::vector<Cpoint2<T>>>;
template <class T>
using Set3 = Input<std::vector<Cpoint3<T>>>;

template <class T>
std::vector<Set2<T>> sets2() {
    using P = Cpoint2<T>;
    return pointSets<T, P>(
        {{"empty", {}, moderate},
         {"single", {{T(1), T(2)}}, moderate},
         {"two", {{T(1), T(2)}, {T(3), T(-1)}}, moderate},
         {"identical", std::vector<P>(7, P(T(1.5), T(-2))), degenerate},
         {"collinear", {{T(0), T(0)}, {T(1), T(1)}, {T(2), T(2)}, {T(3), T(3)}, {T(1), T(1)}}, degenerate},
         {"vertical", {{T(2), T(0)}, {T(2), T(1)}, {T(2), T(5)}, {T(2), T(-3)}}, degenerate},
         {"square", {{T(0), T(0)}, {T(1), T(0)}, {T(1), T(1)}, {T(0), T(1)}}, moderate}},
        // A concave hexagon-like shape.
        {{T(0), T(0)}, {T(4), T(0)}, {T(4), T(3)}, {T(2), T(1)}, {T(0), T(3)}, {T(-1), T(1.5)}},
        {hugeVal<T>(), std::numeric_limits<T>::max() / T(2), tinyVal<T>(), std::numeric_limits<T>::denorm_min()},
        12345u);
}

template <class T>
std::vector<Set3<T>> sets3() {
    using P = Cpoint3<T>;
    return pointSets<T, P>(
        {{"empty", {}, moderate},
         {"single", {{T(1), T(2), T(3)}}, moderate},
         {"two", {{T(1), T(2), T(3)}, {T(3), T(-1), T(0)}}, moderate},
         {"three", {{T(1), T(0), T(0)}, {T(0), T(1), T(0)}, {T(0), T(0), T(1)}}, moderate},
         {"identical", std::vector<P>(6, P(T(1), T(-2), T(3))), degenerate},
         {"collinear", {{T(0), T(0), T(0)}, {T(1), T(1), T(1)}, {T(2), T(2), T(2)}, {T(5), T(5), T(5)}}, degenerate},
         {"coplanar", {{T(0), T(0), T(1)}, {T(1), T(0), T(1)}, {T(1), T(1), T(1)}, {T(0), T(1), T(1)}, {T(3), T(2), T(1)}},
          moderate}},
        {{T(0), T(0), T(0)}, {T(4), T(0), T(0.1)}, {T(4), T(3), T(-0.2)}, {T(0), T(3), T(0.3)}, {T(2), T(1), T(2)},
         {T(1), T(2), T(-1)}},
        {hugeVal<T>(), tinyVal<T>()}, 99u);
}

// Matrices of awkward shape and content: square finite ones are `moderate`,
// non-square ones `degenerate`, those holding special values `wild`.
template <class T>
using Mat = Input<Cmatrix<T>>;
template <class T>
std::vector<Mat<T>> matrices() {
    std::vector<Mat<T>> r;
    const unsigned shapes[][3] = {{0, 0, 0}, {0, 3, 0}, {3, 0, 0}, {1, 1, 0}, {1, 1, 1}, {2, 3, 1}, {3, 2, 2},
                                  {3, 3, 0}, {3, 3, 1}, {3, 4, 1}, {4, 3, 1}, {4, 4, 9}, {5, 5, 7}};
    for (auto const& s : shapes) {
        Cmatrix<T> A(s[0], s[1], T(s[2] < 7 ? s[2] : 0));
        if (s[2] == 9) A.setIdentity();
        for (unsigned i = 0; s[2] == 7 && i < 5; ++i)  // symmetric, diagonally dominant
            for (unsigned j = 0; j < 5; ++j) A(i, j) = T(1) / T(i + j + 1) + (i == j ? T(1) : T(0));
        r.push_back({std::to_string(s[0]) + "x" + std::to_string(s[1]) + " " + std::to_string(s[2]), A,
                     s[0] == s[1] ? moderate : degenerate});
    }
    for (T v : specials<T>()) {
        for (unsigned pos = 0; pos < 9; pos += 4) {
            Cmatrix<T> S(3, 3);
            S(0, 0) = T(2), S(1, 1) = T(3), S(2, 2) = T(4), S(0, 1) = S(1, 0) = T(0.5);
            S(pos / 3, pos % 3) = S(pos % 3, pos / 3) = v;  // keeps symmetry
            r.push_back({"3x3 special", S, modVal(v) ? moderate : wild});
        }
        r.push_back({"3x3 all-special", Cmatrix<T>(3, 3, v), modVal(v) ? moderate : wild});
        r.push_back({"2x2 all-special", Cmatrix<T>(2, 2, v), modVal(v) ? moderate : wild});
    }
    // Seeded random shapes and values; square ones symmetric.
    Gen<T> g(4242u);
    for (int it = 0; it < 60; ++it) {
        const unsigned m = static_cast<unsigned>(g.count(5)), n = it % 2 ? m : static_cast<unsigned>(g.count(5));
        Cmatrix<T> A(m, n);
        bool tame = true;
        for (unsigned i = 0; i < m; ++i)
            for (unsigned j = 0; j < n; ++j) tame = tameVal(A(i, j) = m == n && j < i ? A(j, i) : g.val()) && tame;
        r.push_back({"random-" + std::to_string(it), A, !tame ? wild : m == n ? moderate : degenerate});
    }
    return r;
}

// Touches every element (lets the sanitizer see reads out of the block).
template <class T>
unsigned touch(Cmatrix<T> const& M) {
    T s = T(0);
    for (unsigned i = 0; i < M.m(); ++i)
        for (unsigned j = 0; j < M.n(); ++j) s += M(i, j) * T(0);
    return std::isnan(s) ? INV : M.size() ? FIN : NIL;
}

// Every output vertex of the hull and contour functions is one of the input
// points (none invented, none with NaN).
template <class T>
unsigned fromInput(std::vector<Cpoint2<T>> const& out, std::vector<Cpoint2<T>> const& in) {
    for (auto const& p : out) {
        bool found = false;
        for (auto const& q : in) found = found || (q.x == p.x && q.y == p.y);
        EXPECT_TRUE(found && !anyNaN(p)) << g_step.load();
    }
    return out.empty() ? NIL : FIN;
}


template <class T>
class Robust : public ::testing::Test {};
using Types = ::testing::Types<float, double>;
TYPED_TEST_SUITE(Robust, Types);

// ---------------------------------------------------------------------------
// Matrices, their streams, solvers, rotations and eigenvalues
// ---------------------------------------------------------------------------

TYPED_TEST(Robust, Matrix) {
    using T = TypeParam;
    sweep<Cmatrix<T>>("matrix", matrices<T>(), {
        {"arithmetic", 0, {FIN, FIN, FIN, FIN}, [](Mat<T> const& c) {
             Cmatrix<T> const& A = c.v;
             Cmatrix<T> B = A, At = A.transp(), P = A * At, I = A;
             B += A, B -= A, B *= T(2);
             EXPECT_TRUE(At.m() == A.n() && At.n() == A.m() && P.m() == A.m() && P.n() == A.m());
             I.setIdentity(), I.setMatrix(1, 1, A), I.setMatrix(A.m(), A.n(), A);
             std::vector<T> v;
             if (A.m() > 0) {
                 A.getRow(0, v);
                 EXPECT_EQ(v.size(), A.n());
                 I.setRow(0, std::vector<T>(7, T(1)));
             }
             if (A.n() > 0) {
                 A.getCol(0, v);
                 EXPECT_EQ(v.size(), A.m());
                 I.setCol(0, std::vector<T>(7, T(1)));
             }
             touch(-A), touch(A + B), touch(A - B), touch(P), touch(I);
             EXPECT_EQ(A.byteSize(), A.m() * A.n() * sizeof(T));
             return FIN;
         }},
    });
    // Counts whose byte size does not fit the allocator are refused with the
    // core exception, not wrapped into a small block; a failed resize changes nothing.
    const unsigned dims[][2] = {{65536u, 65536u}, {0xFFFFFFFFu, 2u}, {0xFFFFFFFFu, 0xFFFFFFFFu}, {1u << 30, 4u}, {3u, 0x7FFFFFFFu}};
    for (auto const& d : dims) {
        g_id = -1;
        EXPECT_EQ(TRY("ctor", Cmatrix<T> M(d[0], d[1])), THR) << d[0] << "x" << d[1];
        EXPECT_EQ(g_id, CthrowBase::ERR_CORE_NOMEMORY);
        Cmatrix<T> M(2, 2, T(7));
        EXPECT_EQ(TRY("resize", M.resize(d[0], d[1])), THR);
        EXPECT_TRUE(M.m() == 2u && M(1, 1) == T(7));
    }
    // Empty dimension with a huge partner: nothing to allocate; 1 x 0 times 0 x huge is refused.
    Cmatrix<T> Z(0, 0xFFFFFFFFu);
    Z.setIdentity();
    EXPECT_EQ(Z.transp().m(), 0xFFFFFFFFu);
    EXPECT_EQ(TRY("product", Cmatrix<T> p = Cmatrix<T>(1, 0) * Z), THR);
}

// LU refuses a non-square matrix when it is installed, Gauss-Jordan at the
// first solve; the SVD takes any shape.  Every solver stays usable after
// whatever happened, and copies of it in any state are sound.
template <class T, class S>
std::vector<Row<Cmatrix<T>>> solverRows(unsigned setNonSquare, unsigned solveNonSquare) {
    return {
        {"setMatrix", 0, {0, ANY, setNonSquare, ANY}, [](Mat<T> const& c) { return TRY("set", S s; s.setMatrix(c.v)); }},
        {"solve", 0, {0, ANY, solveNonSquare, ANY}, [](Mat<T> const& c) {
             Cmatrix<T> const& A = c.v;
             S s;
             TRY("set", s.setMatrix(A));
             for (auto const& b : {std::vector<T>(), std::vector<T>(A.m() + 1, T(1)), std::vector<T>(A.m(), nan<T>())})
                 TRY("solve other", touch(s.solve(b)));
             const Cmatrix<T> B(A.m(), 2, T(1)), Bw(A.m() + 2, 2, T(1));
             for (Cmatrix<T> const* b : {&B, &Bw}) TRY("solve mat", touch(s.solve(*b))), TRY("solveItr", touch(s.solveItr(A, *b)));
             TRY("invert", touch(s.invert()));
             (void)s.deviation(A, Cmatrix<T>(A.n(), 2, T(1)), B);
             EXPECT_TRUE(std::isnan(s.deviation(A, Cmatrix<T>(A.n() + 1, 2), B)));
             S s2(s), s3;
             s3 = s2;
             const Cmatrix<T> x = s.solve(std::vector<T>(A.m(), T(1)));  // last: its exception is the row's outcome
             EXPECT_EQ(x.m(), A.n());
             return touch(x);
         }},
        {"reuse", 0, {FIN, FIN, FIN, FIN}, [](Mat<T> const& c) {
             S s;
             TRY("set", s.setMatrix(c.v); touch(s.solve(std::vector<T>(c.v.m(), T(1)))));
             TRY("ctor", S s4(c.v); touch(s4.solve(Cmatrix<T>(c.v.m(), 2, T(1)))));
             Cmatrix<T> I(2, 2);
             I.setIdentity();
             s.setMatrix(I);
             Cmatrix<T> x = s.solve(std::vector<T>{T(3), T(4)});
             return valid(x.m() == 2u && x(0, 0) == T(3) && x(1, 0) == T(4));
         }},
    };
}

TYPED_TEST(Robust, Solvers) {
    using T = TypeParam;
    sweep("gj", matrices<T>(), solverRows<T, Csolver_GaussJordan<T>>(ANY, THR));
    sweep("lu", matrices<T>(), solverRows<T, Csolver_luDecomp<T>>(THR, ANY));
    sweep("svd", matrices<T>(), solverRows<T, Csolver_svd<T>>(ANY, ANY));
    sweep<Cmatrix<T>>("solver details", matrices<T>(), {
        {"gj non-square id", 0, {0, FIN, FIN, FIN}, [](Mat<T> const& c) {
             Csolver_GaussJordan<T> s;
             s.setMatrix(c.v);
             g_id = 0;
             const unsigned o = TRY("solve", s.solve(std::vector<T>(c.v.m(), T(1))));
             return valid(c.cls != degenerate || (o == THR && g_id == CthrowMath::ERR_MATRIX_NOTSQUARE));
         }},
        {"lu det", 0, {ANY, ANY, ANY, ANY}, [](Mat<T> const& c) {
             Csolver_luDecomp<T> lu;
             TRY("set", lu.setMatrix(c.v));
             return TRY("det", lu.getDet());
         }},
        {"svd", 0, {FIN, FIN, FIN, FIN}, [](Mat<T> const& c) {
             for (T tol : {T(0), T(-1), nan<T>(), inf<T>(), T(2.220446049250313e-16)}) {
                 Csolver_svd<T> s(c.v);
                 s.setTolerance(tol);
                 const unsigned r = std::min(c.v.m(), c.v.n());
                 EXPECT_EQ(s.getSingularValues().size(), r);
                 for (T w : s.getSingularValues()) EXPECT_TRUE(c.cls == wild || fin(w) || w == inf<T>());
                 Cmatrix<T> U = s.getU(), V = s.getV();
                 EXPECT_TRUE(U.m() == c.v.m() && V.m() == c.v.n() && s.getRank() <= r);
                 if (r == 0) { EXPECT_TRUE(std::isnan(s.getCond())); }
                 touch(U), touch(V);
                 TRY("solve", touch(s.solve(std::vector<T>(c.v.m(), T(1)))));
             }
             return FIN;
         }},
    });
    // The empty system: square, nothing to decompose.
    Csolver_luDecomp<T> e;
    e.setMatrix(Cmatrix<T>());
    EXPECT_EQ(e.solve(std::vector<T>()).m(), 0u);
}

TYPED_TEST(Robust, MatrixCalc) {
    using T = TypeParam;
    using C = CmatrixCalc<T>;
    guarded("angles", [] {
        for (T a : specials<T>())
            for (T b : {T(0.3), a})
                for (T c : {T(-0.7), a}) {
                    Cmatrix<T> R;
                    T a1, a2, a3;
                    C::ArcToRotCAP(a, b, c, R), C::RotToArcCAP(R, a1, a2, a3);
                    C::ArcToRotXYZ(a, b, c, R), C::RotToArcCAP_transp(R, a1, a2, a3), C::RotToArcXYZ(R, a1, a2, a3);
                    C::ArcToRotZYX(a, b, c, R), C::ArcToRotZXZ(a, b, c, R), C::RotToArcZXZ(R, a1, a2, a3);
                    ASSERT_EQ(R.m(), 3u);
                    for (unsigned k = 0; k < 9; ++k) EXPECT_TRUE(!(fin(a) && fin(b) && fin(c)) || fin(R.getBase()[k]));
                }
    });
    sweep<Cmatrix<T>>("matrix calc", matrices<T>(), {
        // Only 3x3 and 4x4 are rotation matrices; the other shapes are refused.
        {"RotToArcCAP", 0, {0, ANY, THR, ANY}, [](Mat<T> const& c) {
             T a1, a2, a3;
             const unsigned o = TRY("cap", C::RotToArcCAP(c.v, a1, a2, a3));
             EXPECT_EQ(o == THR, c.v.m() != c.v.n() || (c.v.m() != 3 && c.v.m() != 4));
             TRY("cap_t", C::RotToArcCAP_transp(c.v, a1, a2, a3)), TRY("xyz", C::RotToArcXYZ(c.v, a1, a2, a3));
             TRY("zxz", C::RotToArcZXZ(c.v, a1, a2, a3));
             Cmatrix<T> R, S;
             C::getRotScale(c.v, R, S), touch(R), touch(S);
             C::sortDiagonal(c.v, S), touch(S);
             (void)C::dif(c.v, c.v);
             EXPECT_TRUE(std::isnan(C::dif(c.v, Cmatrix<T>(c.v.m() + 1, c.v.n()))));
             return o;
         }},
        // Finite symmetric input: orthonormal eigenvector rows.
        {"getEigenvalue", 0, {0, ANY | EIG, ANY | EIG, ANY | EIG}, [](Mat<T> const& c) {
             Cmatrix<T> A = c.v, V;
             C::getEigenvalue(A, V);
             touch(A), touch(V);
             for (unsigned i = 0; c.cls == moderate && i < V.m(); ++i) {
                 T n2 = 0;
                 for (unsigned j = 0; j < V.n(); ++j) n2 += V(i, j) * V(i, j);
                 EXPECT_NEAR(n2, T(1), T(1e-4)) << c.name;
             }
             return FIN;
         }},
        // The tridiagonal iteration throws the plain int 0 for a non-square matrix.
        {"DiagTri", 0, {0, ANY | EIG, EIG, ANY | EIG}, [](Mat<T> const& c) {
             Cmatrix<T> A = c.v, V, Vi(c.v.m(), c.v.m());
             C::getEigenvalue2x2sym(A, V), touch(A);
             A = c.v;
             TRY("QR_TriDiag", C::QR_TriDiag(A, V)), touch(A), touch(V);
             A = c.v;
             Vi.setIdentity();
             C::DiagTri(A, Vi);
             return FIN;
         }},
    });
}

// ---------------------------------------------------------------------------
// Point sets: polygons, hulls, areas of interest, bounding boxes, fits
// ---------------------------------------------------------------------------

TYPED_TEST(Robust, PlanarSets) {
    using T = TypeParam;
    using P = Cpolygon2<T>;
    using A = approximate<T>;
    const std::vector<Cpoint2<T>> probes = {{T(1), T(1)},         {T(0), T(0)},      {nan<T>(), T(0)},
                                            {inf<T>(), inf<T>()}, {T(0), -inf<T>()}, {hugeVal<T>(), T(1)}};
    const Cimage img(16, 9);
    Gen<T> g(31u);
    sweep<std::vector<Cpoint2<T>>>("planar", sets2<T>(), {
        {"area", 3, {NIL, FIN | NIL, FIN | NIL, ANY}, [](Set2<T> const& s) {
             const T a = P(s.v).area();
             return a == T(0) ? NIL : valid(fin(a));
         }},
        // The mean of the points; NaN in both coordinates for no points.
        {"center", 1, {INV, FIN, FIN, ANY}, [](Set2<T> const& s) {
             const Cpoint2<T> c = P(s.v).center();
             long double x = 0, y = 0;
             for (auto const& p : s.v) x += p.x, y += p.y;
             if (s.cls != wild && s.n() > 0) { EXPECT_TRUE(std::fabs(c.x - x / s.n()) < 1e-4 && std::fabs(c.y - y / s.n()) < 1e-4); }
             return std::isnan(c.x) && std::isnan(c.y) ? INV : fin(c) ? FIN : NIL;
         }},
        // Hull vertices are input points, counter-clockwise or flat.
        {"convexPoly", 1, {NIL, FIN, FIN, ANY}, [](Set2<T> const& s) {
             unsigned o = fromInput(P(s.v).convexPoly().points(), s.v) | fromInput(P::contourPoly(s.v).points(), s.v);
             for (bool keep : {false, true}) {
                 P h = P::convexPoly(s.v, keep);
                 o = fromInput(h.points(), s.v);
                 if (s.cls != wild) { EXPECT_GE(h.area(), T(0)); }
             }
             P(s.v).boundingRect(), P::boundingRect(s.v);
             return o;
         }},
        {"minimumEnclosingRect", 1, {NIL, FIN | NIL, FIN | NIL, ANY}, [](Set2<T> const& s) {
             const std::vector<Cpoint2<T>> mer = P(s.v).minimumEnclosingRect();
             EXPECT_TRUE(mer.size() == 0 || mer.size() == 4);
             bool f = true;
             for (auto const& p : mer) f = f && fin(p);
             return mer.empty() ? NIL : valid(f);
         }},
        {"simplifiedTo", 0, {FIN, FIN, FIN, FIN}, [](Set2<T> const& s) {
             const std::size_t n = s.n();
             for (unsigned k = 0; k <= n + 1; ++k)
                 EXPECT_EQ(P(s.v).simplifiedTo(k).size(), n < 3 ? 0u : (k <= 2 || k >= n) ? n : k) << k;
             return FIN;
         }},
        // Unknown points (NaN) and every point of a classified polygon of type 1
        // (fewer than 3 points) or 2 are outside; the type is one of the defined ones.
        {"pointIsIn", 3, {NIL, FIN | NIL, FIN | NIL, ANY}, [&](Set2<T> const& s) {
             P poly(s.v), copy = poly;
             EXPECT_TRUE(poly == copy || s.cls == wild);
             for (auto const& p : probes) EXPECT_FALSE(anyNaN(p) && poly.pointIsIn(p));
             poly.preprocess();
             const int t = poly.type();
             EXPECT_TRUE(t == 1 || t == 2 || t == 3 || t == 4 || t == 6 || t == 7) << t;
             for (auto const& p : probes) EXPECT_FALSE((anyNaN(p) || t == 1 || t == 2) && poly.pointIsIn(p));
             for (auto const& p : s.v) poly.pointIsIn(p);
             poly.minimumEnclosingRect(), poly.simplifiedTo(3);
             return t == 1 ? NIL : FIN;
         }},
        {"editing", 0, {FIN, FIN, FIN, FIN}, [](Set2<T> const& s) {
             P poly(s.v);
             poly.preprocess(), poly.add(T(1), T(2));
             EXPECT_FALSE(poly.isPreprocessed());
             poly.add(std::vector<Cpoint2<T>>{{nan<T>(), T(1)}, {inf<T>(), T(0)}}), poly.add(s.v);
             EXPECT_FALSE(poly.remove(poly.size()));
             EXPECT_TRUE(poly.remove(0u));
             poly.remove(Cpoint2<T>(nan<T>(), T(1))), poly.preprocess(), poly.area();
             P q(s.v);
             q.set(Crect2<T>(T(0), T(0), T(1), T(1)));
             EXPECT_EQ(q.type(), 3);
             q.clear();
             EXPECT_TRUE(q.type() == 1 && !q.pointIsIn(Cpoint2<T>(T(0), T(0))));
             return valid(P(std::list<Cpoint2<T>>(s.v.begin(), s.v.end())).size() == s.n());
         }},
        // Within the exact range (magnitudes 2^-400 .. 2^500 or 0; non-finite
        // points are dropped) the hull is empty or has at least 3 corners.
        {"CcvxHull2D", 0, {0, FIN | NIL, FIN | NIL, ANY}, [](Set2<T> const& s) {
             std::vector<Cvector2<T>> v;
             bool exact = true;
             for (auto const& p : s.v) {
                 v.push_back(Cvector2<T>(p.x, p.y));
                 for (T c : {p.x, p.y})
                     exact = exact && !(fin(c) && c != T(0) && (std::fabs(c) > std::ldexp(T(1), 500) || std::fabs(c) < std::ldexp(T(1), -400)));
             }
             CcvxHull2D<T> h(v), h2;
             EXPECT_EQ(v.size(), s.n());  // the caller's vector is untouched
             EXPECT_TRUE(!exact || h.points().empty() || h.points().size() >= 3);
             std::vector<Cpoint2<T>> hp;
             for (auto const& c : h.points()) {
                 hp.push_back(Cpoint2<T>(c.x, c.y));
                 EXPECT_TRUE(fin(hp.back()));  // non-finite points are dropped
             }
             h2 = h, h2 = CcvxHull2D<T>();
             EXPECT_TRUE(h2.points().empty());
             return fromInput(hp, s.v);
         }},
        {"CboundingBox2", 1, {INV, FIN, FIN, ANY}, [&](Set2<T> const& s) {
             CboundingBox2<T> b, bl;
             b.set(s.v);
             bl.set(std::list<Cpoint2<T>>(s.v.begin(), s.v.end()));
             Cpoint2<T> c;
             b.getCenter(c);
             for (auto const& p : probes) EXPECT_FALSE(anyNaN(p) && b.isInside(p));
             bool in = b.isValid() && bl.isValid();
             for (auto const& p : s.v) in = in && b.isInside(p);
             return valid(in);
         }},
        // A random including or excluding region on a random image: mask and
        // count agree; an invalid area refuses every query.
        {"Caoi", 0, {FIN, FIN, FIN, FIN}, [&](Set2<T> const& s) {
             Caoi<T> a(Crect2<T>(T(0), T(0), T(5), T(4)));
             const unsigned i = a.add(P(s.v), Caoi<T>::MODE_EXCLUDE), j = a.add(P(s.v), Caoi<T>::MODE_INCLUDE);
             a.regionIsValid(i);
             EXPECT_TRUE(a.isValid());
             for (auto const& p : s.v) a.pointIsIn(p);
             a.pointIsIn(Cpoint2<T>(nan<T>(), T(1))), a.boundingRect();
             EXPECT_LE(a.count(img), 16u * 9u);
             EXPECT_EQ(a.mask(img).width(), 16u);
             TRY("point j", a.point(j, 100));
             if (a.pointCount(j) > 0) a.setPoint(j, 0, Cpoint2<T>(inf<T>(), T(0)));
             a.setPolygon(i, P()), a.remove(0);
             TRY("after remove", a.count(img));
             Caoi<T> r(Crect2<T>(g.val(), g.val(), g.val(), g.val()));
             r.add(P(s.v), g.count(2) == 0 ? Caoi<T>::MODE_EXCLUDE : Caoi<T>::MODE_INCLUDE);
             if (!r.isValid()) return TRY("invalid aoi", r.pointIsIn(Cpoint2<T>())) == THR ? FIN : INV;
             Cimage im(static_cast<unsigned>(g.count(12)), static_cast<unsigned>(g.count(12)));
             const std::uint64_t cnt = r.count(im);
             Cimage mk = r.mask(im);
             std::uint64_t set = 0;
             for (unsigned y = 0; y < mk.height(); ++y)
                 for (unsigned x = 0; x < mk.width(); ++x) set += mk.at(x, y) == 255;
             r.boundingRect();
             return valid(set == cnt && cnt <= std::uint64_t(im.width()) * im.height());
         }},
        // Fits of fewer points than they need are invalid (NaN); a geometric
        // line through two or more moderate points is valid and finite.
        {"fitLineLsq", 2, {INV, ANY | EIG, ANY | EIG, ANY | EIG}, [](Set2<T> const& s) {
             Cline2<T> l;
             CqLineLsqNStdAbw<T> rl;
             TRY("N", A::fitLineLsqN(s.v, l, rl)), TRY("N2", A::fitLineLsqN(s.v, l));
             const double ms = A::fitLineLsq(s.v, l);
             const T sd = A::StdAbwLine2(s.v, l);
             A::StdAbwLine2(s.v, Cline2<T>());
             return valid(!std::isnan(l.point().x) || !std::isnan(l.direction().x) || !std::isnan(ms) || !std::isnan(sd));
         }},
        {"fitCircleLsq", 4, {INV, ANY | EIG, ANY | EIG, ANY | EIG}, [](Set2<T> const& s) {
             Ccircle2<T> c, c2, cb;
             CqCircleLsqStdAbw<T> rc;
             TRY("beta", A::fitCircleLsqBeta(s.v, cb));
             TRY("plain", A::fitCircleLsq(s.v, c));
             A::StdAbwCircle2(s.v, Ccircle2<T>());
             EXPECT_TRUE(s.n() >= 2 || std::isnan(A::StdAbwCircle2(s.v, c)));
             A::fitCircleLsq(s.v, c2, rc);
             return valid(c.isValid() || c2.isValid() || cb.isValid() || !std::isnan(rc.stdAbw));
         }},
        {"fitLineGeom", 2, {INV, FIN, FIN, ANY | EIG}, [](Set2<T> const& s) {
             Cline2<T> l;
             CqLineGeom2DStdAbw<T> r2;
             TRY("rec", A::fitLineGeom(s.v, l, r2));
             EXPECT_TRUE(s.n() >= 2 || (std::isnan(r2.stdAbwOrth) && std::isnan(r2.stdAbwAlong)));
             A::fitLineGeom(s.v, l);
             return valid(l.isValid() && fin(l.point()));
         }},
    });
    // Regions covering far more than the image (pixel range clipped), an empty
    // image, a subnormal region; an invalid area refuses every query.
    guarded("aoi", [&] {
        Caoi<T> empty, big(Crect2<T>(-hugeVal<T>(), -hugeVal<T>(), inf<T>(), inf<T>())),
            h(Crect2<T>(-hugeVal<T>(), -hugeVal<T>(), hugeVal<T>(), hugeVal<T>())),
            sub(Crect2<T>(tinyVal<T>(), tinyVal<T>(), tinyVal<T>(), tinyVal<T>()));
        EXPECT_FALSE(empty.isValid());
        EXPECT_EQ(TRY("invalid pointIsIn", empty.pointIsIn(Cpoint2<T>(T(0), T(0)))), THR);
        EXPECT_EQ(g_id, CthrowMath::ERR_PRIMEXT_AOI_INVALID);
        EXPECT_EQ(TRY("invalid", empty.boundingRect()) & TRY("", empty.count(img)) & TRY("", empty.mask(img)), THR);
        TRY("big rect", big.count(Cimage())), TRY("tiny count", sub.count(img));
        TRY("huge count", EXPECT_LE(h.count(img), 144u));
        for (T v : specials<T>()) {
            Cpolygon2<T> r(Crect2<T>(v, T(0), T(1), v));
            r.pointIsIn(Cpoint2<T>(T(0.5), T(0.5))), r.boundingRect(), r.preprocess(), r.minimumEnclosingRect();
        }
        const int M = std::numeric_limits<int>::max(), m = std::numeric_limits<int>::min();
        EXPECT_EQ(CcvxHull2D<int>(std::vector<Cvector2<int>>{{m, m}, {M, m}, {M, M}, {m, M}, {0, 0}, {m, 0}, {M, M}}).points().size(), 4u);
    });
}

TYPED_TEST(Robust, SpatialSets) {
    using T = TypeParam;
    using A = approximate<T>;
    sweep<std::vector<Cpoint3<T>>>("spatial", sets3<T>(), {
        {"fitSphereLsq", 2, {INV, ANY | EIG, ANY | EIG, ANY | EIG}, [](Set3<T> const& s) {
             Csphere3<T> sph;
             CqSphereLsqStdAbw<T> rs;
             TRY("fit", A::fitSphereLsq(s.v, sph)), TRY("rec", A::fitSphereLsq(s.v, sph, rs));
             A::StdAbwSphere(s.v, Csphere3<T>());
             return valid(!std::isnan(A::StdAbwSphere(s.v, sph)));
         }},
        {"fitLineGeom", 2, {INV | THR | EIG, FIN | THR | EIG, FIN | THR | EIG, ANY | EIG}, [](Set3<T> const& s) {
             Cline3<T> l;
             CqLineGeom3DStdAbw<T> r3;
             TRY("rec", A::fitLineGeom(s.v, l, r3));
             A::fitLineGeom(s.v, l);
             return valid(l.isValid() && fin(l.point()));
         }},
        {"fitPlaneGeom", 3, {INV | THR | EIG, FIN | THR | EIG, ANY | EIG, ANY | EIG}, [](Set3<T> const& s) {
             Cplane3<T> e;
             CqPlaneGeomStdAbw<T> rp;
             TRY("rec", A::fitPlaneGeom(s.v, e, rp));
             EXPECT_TRUE(s.n() >= 3 || (std::isnan(rp.stdAbwNormal) && std::isnan(rp.stdAbwMain)));
             A::fitPlaneGeom(s.v, e);
             return valid(e.isValid() && fin(e.d()));
         }},
        // Unbounded iteration counts only where the iteration settles at once.
        {"fitPlaneGeomFast", 3, {INV, ANY | EIG, ANY | EIG, ANY | EIG}, [](Set3<T> const& s) {
             std::vector<CqPlaneGeomFast<T>> prms = {CqPlaneGeomFast<T>(), CqPlaneGeomFast<T>(0u, T(0))};
             if (s.name.compare(0, 7, "random-") != 0)
                 prms.insert(prms.end(), {CqPlaneGeomFast<T>(5000u, T(0)), CqPlaneGeomFast<T>(0xFFFFFFFFu, nan<T>()),
                                          CqPlaneGeomFast<T>(0xFFFFFFFFu, T(-1)), CqPlaneGeomFast<T>(0xFFFFFFFFu, inf<T>())});
             bool any = false;
             for (CqPlaneGeomFast<T> const& prm : prms) {
                 Cplane3<T> e;
                 TRY("fast", A::fitPlaneGeomFast(s.v, e, prm));
                 any = any || e.isValid();
             }
             return valid(any);
         }},
    });
}

// ---------------------------------------------------------------------------
// Single objects built from one special value in each coordinate position.
// Classes of a value: NaN is `degenerate`; 0, +-0.5, +-1 are `moderate`;
// infinities, huge and subnormal magnitudes are `wild`.
// ---------------------------------------------------------------------------

template <class T>
std::vector<Input<std::vector<T>>> values() {
    std::vector<Input<std::vector<T>>> r;
    for (T v : specials<T>()) r.push_back({"value " + std::to_string(v), {v}, std::isnan(v) ? degenerate : modVal(v) ? moderate : wild});
    return r;
}
template <class T>
std::vector<Cpoint3<T>> probes3() {
    std::vector<Cpoint3<T>> r = {{T(0), T(0), T(0)}, {T(1), T(2), T(3)}};
    for (T v : specials<T>()) r.insert(r.end(), {{v, T(1), T(2)}, {T(1), v, T(2)}, {T(1), T(2), v}});
    return r;
}

TYPED_TEST(Robust, Primitives) {
    using T = TypeParam;
    using V = std::vector<T>;
    using P2 = Cpoint2<T>;
    using P3 = Cpoint3<T>;
    sweep<V>("primitives", values<T>(), {
        // A line through a point and itself or through NaN is invalid; so is
        // a line given by the origin alone.  Valid moderate lines have a finite
        // normal form.  A circle through coincident or NaN points is invalid.
        {"Cline2 Ccircle2 Crect2", 0, {0, FIN, INV, ANY}, [](Input<V> const& c) {
             const T v = c.v[0];
             for (P2 p : {P2(v, T(1)), P2(T(2), v), P2(v, v), P2(T(0), T(0))})
                 for (P2 q : {P2(T(3), T(4)), p, P2(T(0), T(0))}) {
                     const bool same = fin(p) && p.x == q.x && p.y == q.y;
                     Cline2<T> l(p, q);
                     EXPECT_FALSE((same || anyNaN(p)) && l.isValid());
                     EXPECT_FALSE(p.x == T(0) && p.y == T(0) && Cline2<T>(p).isValid());
                     Cdirec2<T> n;
                     T d, dist, arc;
                     l.getHNF(n, d), l.getDistArc(dist, arc);
                     if (l.isValid() && fin(l.point()) && std::fabs(l.point().x) < T(1e10) && std::fabs(l.point().y) < T(1e10)) {
                         EXPECT_TRUE(fin(d) && fin(dist));
                     }
                     EXPECT_FALSE((same || anyNaN(p)) && Ccircle2<T>(p, q, P2(T(-1), T(5))).isValid());
                     Crect2<T> r(p, q);
                     EXPECT_FALSE(anyNaN(p) && r.isValid());
                     r.normalize().pointIsIn(q), (void)(r.intersect(r) == r.unite(r));
                 }
             EXPECT_FALSE(Crect2<T>().isValid());
             return valid(Cline2<T>(P2(v, T(1)), P2(T(3), T(4))).isValid());
         }},
        // A zero or NaN vector gives the invalid direction.  The length is
        // computed directly (no scaling): only moderate magnitudes are
        // guaranteed a unit result.
        {"Cdirec", 0, {0, FIN, INV, ANY}, [](Input<V> const& c) {
             const T v = c.v[0];
             for (T w : {T(0), v, T(1)}) {
                 Cdirec2<T> d2(v, w);
                 Cdirec3<T> d3(w, v, w);
                 EXPECT_FALSE((std::isnan(v) || (v == T(0) && w == T(0))) && (d2.isValid() || d3.isValid()));
                 if (d2.isValid() && std::fabs(v) <= T(1) && std::fabs(v) >= T(0.5)) {
                     EXPECT_NEAR(d2.x * d2.x + d2.y * d2.y, T(1), T(1e-5));
                 }
             }
             return valid(Cdirec2<T>(v, T(1)).isValid());
         }},
        // Planes and circles in space; a circle through three coincident points is none.
        {"Cplane3 Ccircle3", 0, {0, FIN, INV, ANY}, [](Input<V> const& c) {
             const P3 o(T(0), T(0), T(0)), ex(T(1), T(0), T(0)), p(c.v[0], T(1), T(2));
             EXPECT_FALSE(std::isnan(p.x) && Cplane3<T>(p, p, ex).isValid());
             for (P3 const& q : probes3<T>()) {
                 for (Cplane3<T> const& E : {Cplane3<T>(o, ex, q), Cplane3<T>(q, Cdirec3<T>(q))}) {
                     Ccircle3<T> c2(E, q, q, q);
                     EXPECT_TRUE(!E.isValid() || !fin(q) || !c2.isValid() || !fin(c2.radius()) || c2.radius() == T(0));
                 }
                 CboundingBox3<T> b;
                 b.set(std::vector<P3>{q, o});
                 b.isInside(q);
             }
             return valid(Cplane3<T>(o, ex, P3(T(1), c.v[0], T(1))).isValid());
         }},
        // The value in each quaternion component: NaN gives invalid results,
        // rotation matrices stay in [-1, 1], the zero quaternion is no rotation.
        {"Cquaternion CtransPrm3", 0, {0, FIN, INV, ANY}, [](Input<V> const& c) {
             const T v = c.v[0];
             unsigned o = FIN;
             for (unsigned pos = 0; pos < 4; ++pos) {
                 T q4[4] = {T(0.5), T(0.5), T(0.5), T(0.5)};
                 q4[pos] = v;
                 Cquaternion<T> q(q4[0], q4[1], q4[2], q4[3]), n = q.normalized();
                 o = n.isValid() ? o : INV;
                 T R[3][3], ang;
                 n.getRotMatrix(R);
                 for (auto& row : R)
                     for (T x : row) EXPECT_TRUE(std::isnan(x) || (x >= T(-1) && x <= T(1)));
                 Cdirec3<T> ax;
                 Cquaternion<T>(R).getAxisAngle(ax, ang);
                 CtransPrm3<T> tp(q, P3(v, T(0), T(1)), v);
                 EXPECT_FALSE(std::isnan(v) && tp.isValid());
                 std::vector<P3> ps = probes3<T>(), out;
                 tp.transform(ps, out), tp.retransform(ps);
                 EXPECT_EQ(out.size(), ps.size());
                 tp.setRotation(Cquaternion<T>(T(0), T(0), T(0), T(0)));
                 EXPECT_FALSE(tp.isValid());
             }
             EXPECT_FALSE(Cquaternion<T>(T(0), T(0), T(0), T(0)).normalized().isValid());
             return o;
         }},
        // Cutting a cloud at a NaN or negative distance or at an invalid plane
        // gives nothing; never more points than went in.
        {"cutPointCloud", 0, {0, FIN, INV, ANY}, [](Input<V> const& c) {
             const T d = c.v[0];
             CbaseVecN<P3> in, out;
             for (auto const& p : probes3<T>()) in.push_back(p);
             for (auto const& p : probes3<T>()) {
                 Cplane3<T> e(p, Cdirec3<T>(T(0), T(0), T(1)));
                 const bool ok = tools<T>::cutPointCloud(e, d, in, out);
                 EXPECT_TRUE(!(std::isnan(d) || d < T(0) || !e.isValid()) || (!ok && out.empty()));
                 EXPECT_LE(out.size(), in.size());
             }
             return valid(tools<T>::cutPointCloud(Cplane3<T>(P3(), Cdirec3<T>(T(0), T(0), T(1))), std::fabs(d), in, out));
         }},
    });
    // Rotation matrices of the wrong shape are refused, not read past their end.
    sweep<Cmatrix<T>>("quaternion from matrix", matrices<T>(), {{"Cquaternion", 0, {0, ANY, ANY, ANY}, [](Mat<T> const& c) {
        const bool small = c.v.m() < 3 || c.v.n() < 3;
        g_id = 0;
        EXPECT_EQ(TRY("ctor", Cquaternion<T> q(c.v)), small ? THR : FIN);
        EXPECT_TRUE(!small || g_id == CthrowMath::ERR_MATRIX_DIMS);
        return FIN;
    }}});
}

// Distances, projections and intersections of objects built from the value in
// each coordinate position: one distance per point, failed intersections give
// NaN, nothing projects onto an empty set, a bad outlier list is refused.
// Then seeded random objects of every kind.
TYPED_TEST(Robust, Geometric) {
    using T = TypeParam;
    using V = std::vector<T>;
    using G = geometric<T>;
    using P2 = Cpoint2<T>;
    using P3 = Cpoint3<T>;
    auto queries = [](P3 const& p, std::vector<P3> const& pr) {
        std::vector<P2> pr2;
        for (auto const& q : pr) pr2.push_back(P2(q.x, q.y));
        std::vector<T> dist;
        auto each = [&](auto const& f) {
            dist = {T(1)};
            f();
            EXPECT_EQ(dist.size(), pr.size());
        };
        const P3 o(T(0), T(0), T(0));
        const Cplane3<T> e(p, Cdirec3<T>(T(0), T(0), T(1))), e2(Cdirec3<T>(p), T(1));
        const Cline3<T> l(p, Cdirec3<T>(T(1), T(1), T(0))), l2(o, p), l3(P3(T(0), T(1), T(1)), Cdirec3<T>(p));
        const Csphere3<T> s(p, T(2)), s2(o, p.x);
        const Ccylinder3<T> z(l, p.y);
        each([&] { G::distance(e2, pr, dist); }), each([&] { G::distance(l, pr, dist); });
        each([&] { G::distance(s2, pr, dist); }), each([&] { G::distance(z, pr, dist); });
        each([&] { G::distance(p, pr, dist); });
        for (Cellipse2<T> const& el : {Cellipse2<T>(P2(p.x, T(0)), T(3), p.y, p.z), Cellipse2<T>(P2(), p.x, T(1), T(0))})
            each([&] { G::distance(el, pr2, dist); });
        P3 x;
        std::vector<P3> pc = pr, none;
        G::project(l2, pc), G::project(e, pc);
        EXPECT_FALSE(G::project(l, none));
        EXPECT_TRUE(G::intersect(e, l3, x) || std::isnan(x.x));
        std::pair<T, T> t;
        EXPECT_TRUE(G::intersect(s, l, t) || (std::isnan(t.first) && std::isnan(t.second)));
        T rms;
        for (bool side : {false, true})
            for (auto const& ss : {std::vector<Csphere3<T>>{}, {s}, {s, s2}, {s, s, s, s}}) G::intersect(ss, x, side);
        G::intersect(std::vector<Cline3<T>>{l, l2, l3}, x, rms);
        const Cline2<T> a(P2(p.x, p.y), P2(T(1), T(1))), b(P2(T(0), T(0)), Cdirec2<T>(T(0), T(1)));
        std::vector<P2> none2;
        each([&] { G::distance(b, pr2, dist); });
        EXPECT_FALSE(G::project(b, none2));
        P2 s2p;
        G::intersect(a, b, s2p);
        std::vector<P3> op2 = pr;
        EXPECT_FALSE(G::outlier(op2, std::vector<T>(1), T(1)));
        EXPECT_EQ(op2.size(), pr.size());
    };
    sweep<V>("geometric", values<T>(), {{"queries", 0, {FIN, FIN, FIN, FIN}, [&](Input<V> const& c) {
        for (P3 const& p : {P3(c.v[0], T(1), T(2)), P3(T(1), c.v[0], T(2)), P3(T(1), T(2), c.v[0])}) queries(p, probes3<T>());
        return FIN;
    }}});
    guarded("geometric random", [&] {
        Gen<T> g(777u);
        for (int it = 0; it < 300; ++it) {
            std::vector<P3> pts(2 + g.count(8));
            for (auto& p : pts) p = g.p3();
            queries(g.p3(), pts);
            Ccircle2<T> c(g.p2(), g.p2(), g.p2());
            EXPECT_TRUE(!c.isValid() || !std::isnan(c.radius()));
            Cquaternion<T> q(g.val(), g.val(), g.val(), g.val());
            q.normalize();
            Cdirec3<T> ax;
            T ang;
            q.getAxisAngle(ax, ang);
            EXPECT_TRUE(!q.isValid() || !(fin(q.w) && fin(q.x) && fin(q.y) && fin(q.z)) || !std::isnan(ang));
        }
    });
}

}  // namespace
