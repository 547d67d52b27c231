// Robustness sweep of the public interface: every family is fed with empty and
// degenerate sets, NaN and +-infinity in each coordinate position, huge and
// subnormal magnitudes and badly shaped matrices.  Each case runs under a
// watchdog thread (a hang ends the executable with the case's name); it must
// return the documented result (NaN / isValid() false where stated) or throw
// one of the library's exceptions (CthrowBase and derived; a plain int only
// from the eigenvalue iteration).  Leaks are caught by the test main after
// every test, memory errors by the sanitizer build.  Seeded random loops per
// family mix normal and extreme values and check termination and that every
// output is finite or marked invalid.
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

// ---------------------------------------------------------------------------
// Watchdog
// ---------------------------------------------------------------------------

// Name of the step the guarded thread is in, reported when it does not finish.
std::atomic<char const*> g_step{""};

constexpr int kTimeoutSeconds = 20;  // generous: the sanitizer build is ~10x slower

// Runs f in its own thread and waits at most kTimeoutSeconds.  A case that
// does not finish cannot be cancelled: the executable ends at once with the
// name of the case and its last step (a hang is a failure of its own kind).
// Exceptions of f reach the caller through the future.
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

// ---------------------------------------------------------------------------
// Values
// ---------------------------------------------------------------------------

template <class T>
T hugeVal() {
    return std::is_same<T, float>::value ? T(1e38f) : T(1e300);
}
template <class T>
T tinyVal() {  // subnormal
    return std::is_same<T, float>::value ? T(1e-40f) : T(1e-310);
}
template <class T>
T nan() {
    return std::numeric_limits<T>::quiet_NaN();
}
template <class T>
T inf() {
    return std::numeric_limits<T>::infinity();
}

template <class T>
std::vector<T> specials() {
    using L = std::numeric_limits<T>;
    return {T(0),       -T(0),      T(1),       T(-1),          T(0.5),          nan<T>(),
            inf<T>(),   -inf<T>(),  hugeVal<T>(), -hugeVal<T>(), L::max(),       L::lowest(),
            tinyVal<T>(), -tinyVal<T>(), L::denorm_min(), L::min()};
}

template <class T>
bool fin(T v) {
    return std::isfinite(v);
}
template <class T>
bool fin(Cpoint2<T> const& p) {
    return fin(p.x) && fin(p.y);
}
template <class T>
bool fin(Cpoint3<T> const& p) {
    return fin(p.x) && fin(p.y) && fin(p.z);
}
template <class T>
bool anyNaN(Cpoint2<T> const& p) {
    return std::isnan(p.x) || std::isnan(p.y);
}

// A concave hexagon-like base shape, a square, and the named 2D test sets.
template <class T>
std::vector<Cpoint2<T>> baseShape() {
    return {{T(0), T(0)}, {T(4), T(0)}, {T(4), T(3)}, {T(2), T(1)}, {T(0), T(3)}, {T(-1), T(1.5)}};
}

template <class T>
struct Set2 {
    std::string name;
    std::vector<Cpoint2<T>> pts;
    bool moderate;  // all coordinates finite and of moderate size
};

template <class T>
std::vector<Set2<T>> sets2() {
    std::vector<Set2<T>> s;
    s.push_back({"empty", {}, true});
    s.push_back({"single", {{T(1), T(2)}}, true});
    s.push_back({"two", {{T(1), T(2)}, {T(3), T(-1)}}, true});
    s.push_back({"identical", std::vector<Cpoint2<T>>(7, Cpoint2<T>(T(1.5), T(-2))), true});
    s.push_back({"collinear", {{T(0), T(0)}, {T(1), T(1)}, {T(2), T(2)}, {T(3), T(3)}, {T(1), T(1)}}, true});
    s.push_back({"vertical", {{T(2), T(0)}, {T(2), T(1)}, {T(2), T(5)}, {T(2), T(-3)}}, true});
    s.push_back({"square", {{T(0), T(0)}, {T(1), T(0)}, {T(1), T(1)}, {T(0), T(1)}}, true});
    s.push_back({"base", baseShape<T>(), true});
    for (T scale : {hugeVal<T>(), std::numeric_limits<T>::max() / T(2), tinyVal<T>(), std::numeric_limits<T>::denorm_min()}) {
        std::vector<Cpoint2<T>> p = baseShape<T>();
        for (auto& q : p) q = Cpoint2<T>(q.x * scale, q.y * scale);
        s.push_back({"scaled", p, false});
    }
    for (T v : specials<T>()) {
        if (fin(v) && std::fabs(v) <= T(1)) continue;  // moderate values are covered above
        for (unsigned i = 0; i < 2 * baseShape<T>().size(); ++i) {
            std::vector<Cpoint2<T>> p = baseShape<T>();
            (i % 2 ? p[i / 2].y : p[i / 2].x) = v;
            s.push_back({"special-at-" + std::to_string(i), p, false});
        }
        s.push_back({"all-special", std::vector<Cpoint2<T>>(5, Cpoint2<T>(v, v)), false});
        s.push_back({"one-special", {Cpoint2<T>(v, T(1))}, false});
    }
    return s;
}

template <class T>
std::vector<Cpoint3<T>> baseShape3() {
    return {{T(0), T(0), T(0)}, {T(4), T(0), T(0.1)}, {T(4), T(3), T(-0.2)},
            {T(0), T(3), T(0.3)}, {T(2), T(1), T(2)},  {T(1), T(2), T(-1)}};
}

template <class T>
struct Set3 {
    std::string name;
    std::vector<Cpoint3<T>> pts;
    bool moderate;
};

template <class T>
std::vector<Set3<T>> sets3() {
    std::vector<Set3<T>> s;
    s.push_back({"empty", {}, true});
    s.push_back({"single", {{T(1), T(2), T(3)}}, true});
    s.push_back({"two", {{T(1), T(2), T(3)}, {T(3), T(-1), T(0)}}, true});
    s.push_back({"three", {{T(1), T(0), T(0)}, {T(0), T(1), T(0)}, {T(0), T(0), T(1)}}, true});
    s.push_back({"identical", std::vector<Cpoint3<T>>(6, Cpoint3<T>(T(1), T(-2), T(3))), true});
    s.push_back({"collinear", {{T(0), T(0), T(0)}, {T(1), T(1), T(1)}, {T(2), T(2), T(2)}, {T(5), T(5), T(5)}}, true});
    s.push_back({"coplanar", {{T(0), T(0), T(1)}, {T(1), T(0), T(1)}, {T(1), T(1), T(1)}, {T(0), T(1), T(1)}, {T(3), T(2), T(1)}}, true});
    s.push_back({"base", baseShape3<T>(), true});
    for (T scale : {hugeVal<T>(), tinyVal<T>()}) {
        std::vector<Cpoint3<T>> p = baseShape3<T>();
        for (auto& q : p) q = q * scale;
        s.push_back({"scaled", p, false});
    }
    for (T v : specials<T>()) {
        if (fin(v) && std::fabs(v) <= T(1)) continue;
        for (unsigned i = 0; i < 3 * baseShape3<T>().size(); ++i) {
            std::vector<Cpoint3<T>> p = baseShape3<T>();
            (&p[i / 3].x)[i % 3] = v;
            s.push_back({"special-at-" + std::to_string(i), p, false});
        }
        s.push_back({"all-special", std::vector<Cpoint3<T>>(5, Cpoint3<T>(v, v, v)), false});
    }
    return s;
}

// Matrices of awkward shape and content.
template <class T>
std::vector<std::pair<std::string, Cmatrix<T>>> matrices() {
    std::vector<std::pair<std::string, Cmatrix<T>>> r;
    r.push_back({"0x0", Cmatrix<T>()});
    r.push_back({"0x3", Cmatrix<T>(0, 3)});
    r.push_back({"3x0", Cmatrix<T>(3, 0)});
    r.push_back({"1x1 zero", Cmatrix<T>(1, 1)});
    r.push_back({"1x1 one", Cmatrix<T>(1, 1, T(1))});
    r.push_back({"2x3", Cmatrix<T>(2, 3, T(1))});
    r.push_back({"3x2", Cmatrix<T>(3, 2, T(2))});
    r.push_back({"3x3 zero", Cmatrix<T>(3, 3)});
    r.push_back({"3x3 ones", Cmatrix<T>(3, 3, T(1))});
    r.push_back({"3x4", Cmatrix<T>(3, 4, T(1))});
    r.push_back({"4x3", Cmatrix<T>(4, 3, T(1))});
    {
        Cmatrix<T> I(4, 4);
        I.setIdentity();
        r.push_back({"4x4 identity", I});
    }
    {
        Cmatrix<T> A(5, 5);
        for (unsigned i = 0; i < 5; ++i)
            for (unsigned j = 0; j < 5; ++j) A(i, j) = T(1) / T(i + j + 1) + (i == j ? T(1) : T(0));
        r.push_back({"5x5 sym", A});
    }
    for (T v : specials<T>()) {
        for (unsigned pos = 0; pos < 9; pos += 4) {
            Cmatrix<T> A(3, 3);
            A(0, 0) = T(2);
            A(1, 1) = T(3);
            A(2, 2) = T(4);
            A(0, 1) = A(1, 0) = T(0.5);
            A(pos / 3, pos % 3) = v;
            if (pos != 4) A(pos % 3, pos / 3) = v;  // keep symmetry
            r.push_back({"3x3 special", A});
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
            Cmatrix<T> N = -A;
            Cmatrix<T> S = A + B;
            Cmatrix<T> D = A - B;
            Cmatrix<T> At = A.transp();
            EXPECT_EQ(At.m(), A.n());
            EXPECT_EQ(At.n(), A.m());
            Cmatrix<T> P = A * At;  // m x m
            EXPECT_EQ(P.m(), A.m());
            EXPECT_EQ(P.n(), A.m());
            Cmatrix<T> Q = At;
            Q *= A;  // n x n
            EXPECT_EQ(Q.m(), A.n());
            Cmatrix<T> I = A;
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
            Cmatrix<T> R;
            R.resize(A.n(), A.m());
            (void)(touch(N) + touch(S) + touch(D) + touch(P) + touch(Q) + touch(I) + touch(R));
            EXPECT_EQ(A.byteSize(), A.m() * A.n() * sizeof(T));
        }
    });
}

// Counts whose byte size does not fit the allocator are refused with the core
// exception, not wrapped into a small block.
TYPED_TEST(Robust, MatrixHugeDimensions) {
    using T = TypeParam;
    guarded("matrix huge", [] {
        struct Dim {
            unsigned m, n;
        };
        for (Dim d : {Dim{65536u, 65536u}, Dim{0xFFFFFFFFu, 2u}, Dim{0xFFFFFFFFu, 0xFFFFFFFFu}, Dim{1u << 30, 4u},
                      Dim{3u, 0x7FFFFFFFu}}) {
            int id = -1;
            EXPECT_EQ(attempt("ctor", [&] { Cmatrix<T> M(d.m, d.n); }, false, &id), Out::thrown) << d.m << "x" << d.n;
            EXPECT_EQ(id, CthrowBase::ERR_CORE_NOMEMORY);
            Cmatrix<T> M(2, 2, T(7));
            EXPECT_EQ(attempt("resize", [&] { M.resize(d.m, d.n); }), Out::thrown);
            EXPECT_EQ(M.m(), 2u);  // unchanged after the failed resize
            EXPECT_EQ(M(1, 1), T(7));
        }
        // Empty dimension with a huge partner: no elements, nothing to allocate.
        Cmatrix<T> Z(0, 0xFFFFFFFFu);
        Z.setIdentity();
        Cmatrix<T> Zt = Z.transp();
        EXPECT_EQ(Zt.m(), 0xFFFFFFFFu);
        // 1 x 0 times 0 x huge is 1 x huge: refused.
        Cmatrix<T> a(1, 0);
        EXPECT_EQ(attempt("product", [&] { Cmatrix<T> p = a * Z; }), Out::thrown);
    });
}

TYPED_TEST(Robust, MatrixStreamDamagedInput) {
    using T = TypeParam;
    guarded("matrix io", [] {
        const char* texts[] = {"",
                               "abc",
                               "2",
                               "2  2\n1 2",
                               "-1  3\n1 2 3\n",
                               "3  -1\n",
                               "4294967295  4294967295\n",
                               "65536  65536\n1\n",
                               "1e9  1e9\n",
                               "2  2\nnan inf -inf 1e400\n",
                               "0  0\n",
                               "0  7\n",
                               "99999999999999999999  2\n"};
        for (const char* t : texts) {
            std::istringstream is(t);
            CioStreamMatrix<T> st(is);
            Cmatrix<T> M(1, 1, T(5));
            Out o = attempt(t, [&] { st >> M; });
            if (o == Out::thrown) {
                EXPECT_EQ(M.m(), 1u);  // kept as it was
                EXPECT_EQ(M(0, 0), T(5));
            }
            touch(M);
        }
        // Binary: counts and truncated / missing element blocks.
        struct Hdr {
            std::uint32_t m, n;
            unsigned elems;
        };
        for (Hdr h : {Hdr{2, 2, 4}, Hdr{2, 2, 1}, Hdr{0xFFFFFFFFu, 0xFFFFFFFFu, 0}, Hdr{65536, 65536, 0},
                      Hdr{0x80000000u, 1, 0}, Hdr{0, 0, 0}, Hdr{0, 0xFFFFFFFFu, 0}, Hdr{3, 1, 0}}) {
            std::string bytes(reinterpret_cast<const char*>(&h.m), 4);
            bytes.append(reinterpret_cast<const char*>(&h.n), 4);
            for (unsigned k = 0; k < h.elems; ++k) {
                T v = k == 1 ? nan<T>() : T(k);
                bytes.append(reinterpret_cast<const char*>(&v), sizeof v);
            }
            for (std::size_t cut : {bytes.size(), std::size_t(6), std::size_t(0)}) {
                std::istringstream is(bytes.substr(0, cut));
                CioStreamMatrix<T> st(is);
                Cmatrix<T> M(1, 1, T(5));
                Out o = attempt("bin", [&] { st.read(M); });
                if (o == Out::thrown) { EXPECT_EQ(M(0, 0), T(5)); }
                touch(M);
            }
        }
        // Round trip of special values in both forms.
        Cmatrix<T> A(2, 3);
        std::vector<T> sp = specials<T>();
        for (unsigned k = 0; k < 6; ++k) A.getBase()[k] = sp[k + 5];
        std::stringstream ss;
        {
            CioStreamMatrix<T> out(static_cast<std::ostream&>(ss));
            out.write(A);
        }
        Cmatrix<T> B;
        CioStreamMatrix<T> in(static_cast<std::istream&>(ss));
        in.read(B);
        ASSERT_EQ(B.m(), 2u);
        ASSERT_EQ(B.n(), 3u);
        for (unsigned k = 0; k < 6; ++k)
            EXPECT_TRUE(B.getBase()[k] == A.getBase()[k] || (std::isnan(B.getBase()[k]) && std::isnan(A.getBase()[k])));
        std::stringstream ts;
        {
            CioStreamMatrix<T> out(static_cast<std::ostream&>(ts));
            out << A;
        }
        Cmatrix<T> C;
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
        const bool square = A.m() == A.n();
        // LU refuses a non-square matrix when it is installed, Gauss-Jordan
        // at the first solve; the SVD takes any shape.
        if (!square && std::is_same<S, Csolver_luDecomp<T>>::value) {
            EXPECT_EQ(o, Out::thrown) << label;
        }
        if (!square && std::is_same<S, Csolver_GaussJordan<T>>::value) {
            EXPECT_EQ(o, Out::returned) << label;
            int id = 0;
            EXPECT_EQ(attempt("gj nonsquare", [&] { s.solve(std::vector<T>(A.m(), T(1))); }, false, &id), Out::thrown);
            EXPECT_EQ(id, CthrowMath::ERR_MATRIX_NOTSQUARE) << label;
        }
        std::vector<std::vector<T>> rhs = {{}, std::vector<T>(A.m(), T(1)), std::vector<T>(A.m() + 1, T(1)),
                                           std::vector<T>(A.m(), nan<T>())};
        for (auto const& b : rhs) {
            Cmatrix<T> x;
            Out so = attempt("solve vec", [&] { x = s.solve(b); });
            if (so == Out::returned) {
                touch(x);
                EXPECT_EQ(x.m(), A.n()) << label;
            }
        }
        Cmatrix<T> B(A.m(), 2, T(1));
        Cmatrix<T> Bw(A.m() + 2, 2, T(1));
        attempt("solve mat", [&] { touch(s.solve(B)); });
        attempt("solve wrong", [&] { touch(s.solve(Bw)); });
        attempt("solve swap", [&] {
            Cmatrix<T> b2 = B;
            touch(s.solve(b2));
        });
        attempt("invert", [&] { touch(s.invert()); });
        attempt("solveItr", [&] { touch(s.solveItr(A, B)); });
        attempt("solveItr wrong", [&] { touch(s.solveItr(A, Bw)); });
        Cmatrix<T> X(A.n(), 2, T(1));
        T dv = s.deviation(A, X, B);
        (void)dv;
        EXPECT_TRUE(std::isnan(s.deviation(A, Cmatrix<T>(A.n() + 1, 2), B))) << label;
        // The solver stays usable after whatever happened above.
        Cmatrix<T> I(2, 2);
        I.setIdentity();
        s.setMatrix(I);
        Cmatrix<T> x = s.solve(std::vector<T>{T(3), T(4)});
        ASSERT_EQ(x.m(), 2u);
        EXPECT_EQ(x(0, 0), T(3)) << label;
        EXPECT_EQ(x(1, 0), T(4)) << label;
        // Copies of a solver in any state.
        S s2(s);
        S s3;
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
            Csolver_luDecomp<T> lu(c.second);
            T det = T(0);
            attempt("det", [&] { det = lu.getDet(); });
            Csolver_luDecomp<T> lu2;
            attempt("setMatrix", [&] { lu2.setMatrix(c.second); });
            attempt("det2", [&] { det = lu2.getDet(); });
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
                std::vector<T> w = s.getSingularValues();
                EXPECT_EQ(w.size(), r) << c.first;
                Cmatrix<T> U = s.getU(), V = s.getV();
                EXPECT_EQ(U.m(), c.second.m());
                EXPECT_EQ(V.m(), c.second.n());
                EXPECT_LE(s.getRank(), r);
                T cond = s.getCond();
                if (r == 0) { EXPECT_TRUE(std::isnan(cond)) << c.first; }
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
                    if (fin(a) && fin(b) && fin(c)) {
                        for (unsigned k = 0; k < 9; ++k) EXPECT_TRUE(fin(R.getBase()[k]));
                    }
                }
        for (auto const& c : matrices<T>()) {
            Cmatrix<T> const& M = c.second;
            const bool rotShape = M.m() == M.n() && (M.m() == 3 || M.m() == 4);
            T a1, a2, a3;
            int id = 0;
            Out o = attempt("RotToArcCAP", [&] { C::RotToArcCAP(M, a1, a2, a3); }, false, &id);
            EXPECT_EQ(o == Out::thrown, !rotShape) << c.first;
            attempt("RotToArcCAP_transp", [&] { C::RotToArcCAP_transp(M, a1, a2, a3); });
            attempt("RotToArcXYZ", [&] { C::RotToArcXYZ(M, a1, a2, a3); });
            attempt("RotToArcZXZ", [&] { C::RotToArcZXZ(M, a1, a2, a3); });
            Cmatrix<T> R, S;
            C::getRotScale(M, R, S);
            touch(R);
            touch(S);
            Cmatrix<T> A = M, V;
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
            T df = C::dif(M, M);
            T dg = C::dif(M, Cmatrix<T>(M.m() + 1, M.n()));
            EXPECT_TRUE(std::isnan(dg));
            (void)df;
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
        std::vector<Cpoint2<T>> pts;
        for (T v : sp) {
            pts.push_back({v, T(1)});
            pts.push_back({T(2), v});
            pts.push_back({v, v});
        }
        pts.push_back({T(0), T(0)});
        for (auto const& p : pts)
            for (auto const& q : {Cpoint2<T>(T(3), T(4)), p, Cpoint2<T>(T(0), T(0))}) {
                Cline2<T> l(p, q);
                if (fin(p) && p.x == q.x && p.y == q.y) { EXPECT_FALSE(l.isValid()); }
                if (anyNaN(p)) { EXPECT_FALSE(l.isValid()); }
                Cline2<T> lp(p);
                if (p.x == T(0) && p.y == T(0)) { EXPECT_FALSE(lp.isValid()); }
                Cline2<T> ld(p, Cdirec2<T>(q));
                for (Cline2<T> const* L : {&l, &lp, &ld}) {
                    Cdirec2<T> n;
                    T d, dist, arc;
                    L->getHNF(n, d);
                    L->getDistArc(dist, arc);
                    Cpoint2<T> f;
                    L->getLotPoint(f);
                    L->pointAt(T(2));
                    if (L->isValid() && fin(L->point()) && std::fabs(L->point().x) < T(1e10) &&
                        std::fabs(L->point().y) < T(1e10)) {
                        EXPECT_TRUE(fin(d));
                        EXPECT_TRUE(fin(dist));
                    }
                }
                Ccircle2<T> c3(p, q, Cpoint2<T>(T(-1), T(5)));
                if (anyNaN(p)) { EXPECT_FALSE(c3.isValid()); }
                if (fin(p) && p.x == q.x && p.y == q.y) { EXPECT_FALSE(c3.isValid()); }
                Ccircle2<T> cr(p, q.x);
                cr.invalidate();
                EXPECT_FALSE(cr.isValid());
                Crect2<T> r(p, q);
                Crect2<T> r2(p, q.x, q.y);
                Crect2<T> r3(q.x, q.y, p.x, p.y);
                for (Crect2<T> const* R : {&r, &r2, &r3}) {
                    Crect2<T> n = R->normalize();
                    n.pointIsIn(p);
                    n.pointIsRealIn(q);
                    n.pointOnBorder(p);
                    R->intersects(r3);
                    Crect2<T> i = R->intersect(r2);
                    Crect2<T> u = R->unite(r);
                    (void)(i == u);
                    Crect2<T> m = *R;
                    m.setCenter(p);
                    m.adjust(p.x, p.y, q.x, q.y);
                    m.moveBy(p);
                    m.moveTo(q);
                    m += p;
                    m -= q;
                    m *= p.x;
                    (void)(m * q.y);
                    m.center();
                    m.setWidth(p.x);
                    m.setHeight(q.y);
                    if (anyNaN(p)) { EXPECT_FALSE(Crect2<T>(p, q).isValid()); }
                }
            }
        EXPECT_FALSE(Crect2<T>().isValid());
        // Directions: a zero or NaN vector gives the invalid direction.
        for (T v : sp)
            for (T w : {T(0), v, T(1)}) {
                Cdirec2<T> d2(v, w);
                Cdirec3<T> d3(w, v, w);
                if (std::isnan(v) || (v == T(0) && w == T(0))) {
                    EXPECT_FALSE(d2.isValid());
                    EXPECT_FALSE(d3.isValid());
                }
                // The length is computed directly (no scaling): only moderate
                // magnitudes are guaranteed a unit result.
                if (d2.isValid() && std::fabs(v) <= T(1) && std::fabs(v) >= T(0.5)) {
                    EXPECT_NEAR(d2.x * d2.x + d2.y * d2.y, T(1), T(1e-5));
                }
            }
        // Bounding boxes.
        CboundingBox2<T> b;
        EXPECT_FALSE(b.isValid());
        b.set(std::vector<Cpoint2<T>>());
        EXPECT_FALSE(b.isValid());
        b.set(std::list<Cpoint2<T>>());
        EXPECT_FALSE(b.isValid());
        for (auto const& s : sets2<T>()) {
            b.set(s.pts);
            std::list<Cpoint2<T>> l(s.pts.begin(), s.pts.end());
            CboundingBox2<T> bl;
            bl.set(l);
            if (s.pts.empty()) { EXPECT_FALSE(b.isValid()); }
            Cpoint2<T> c;
            b.getCenter(c);
            for (auto const& p : pts) {
                bool in = b.isInside(p);
                if (anyNaN(p)) { EXPECT_FALSE(in); }
            }
            if (s.moderate && !s.pts.empty()) {
                EXPECT_TRUE(b.isValid());
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
        EXPECT_FALSE(anyNaN(p)) << what;
        bool found = false;
        for (auto const& q : in) found = found || (q.x == p.x && q.y == p.y);
        EXPECT_TRUE(found) << what;
    }
}

template <class T>
void polygonCase(Set2<T> const& s) {
    using P = Cpolygon2<T>;
    const std::vector<Cpoint2<T>>& pts = s.pts;
    P poly(pts);
    P copy = poly;
    EXPECT_TRUE(poly == copy || !s.moderate);
    g_step = "area";
    T a = poly.area();
    if (pts.size() < 3) { EXPECT_EQ(a, T(0)); }
    if (s.moderate) { EXPECT_TRUE(fin(a)); }
    g_step = "center";
    Cpoint2<T> c = poly.center();
    if (pts.empty()) { EXPECT_TRUE(std::isnan(c.x)); }
    g_step = "boundingRect";
    poly.boundingRect();
    P::boundingRect(pts);
    g_step = "convexPoly";
    for (bool keep : {false, true}) {
        P h = P::convexPoly(pts, keep);
        expectFromInput(h.points(), pts, s.name + " convexPoly");
        if (s.moderate && !pts.empty()) { EXPECT_GE(h.size(), 1u) << s.name; }
        if (s.moderate) {
            EXPECT_GE(h.area(), T(0)) << s.name;  // counter-clockwise or flat
        }
    }
    expectFromInput(poly.convexPoly().points(), pts, s.name + " member convexPoly");
    g_step = "contourPoly";
    P ct = P::contourPoly(pts);
    expectFromInput(ct.points(), pts, s.name + " contourPoly");
    g_step = "minimumEnclosingRect";
    std::vector<Cpoint2<T>> mer = poly.minimumEnclosingRect();
    EXPECT_TRUE(mer.size() == 0 || mer.size() == 4) << s.name;
    if (pts.empty()) { EXPECT_TRUE(mer.empty()); }
    if (s.moderate) {
        for (auto const& p : mer) EXPECT_TRUE(fin(p)) << s.name;
    }
    g_step = "simplifiedTo";
    for (unsigned n = 0; n <= pts.size() + 1; ++n) {
        P sm = poly.simplifiedTo(n);
        if (pts.size() < 3)
            EXPECT_EQ(sm.size(), 0u);
        else if (n <= 2 || n >= pts.size())
            EXPECT_EQ(sm.size(), pts.size());
        else
            EXPECT_EQ(sm.size(), n) << s.name;
    }
    g_step = "pointIsIn unknown";
    std::vector<Cpoint2<T>> probes = {{T(1), T(1)}, {T(0), T(0)}, {nan<T>(), T(0)}, {inf<T>(), inf<T>()},
                                      {T(0), -inf<T>()}, {hugeVal<T>(), T(1)}};
    for (auto const& p : probes) {
        bool in = poly.pointIsIn(p);
        if (anyNaN(p)) { EXPECT_FALSE(in) << s.name; }
    }
    g_step = "preprocess";
    poly.preprocess();
    const int t = poly.type();
    EXPECT_TRUE(t == 1 || t == 2 || t == 3 || t == 4 || t == 6 || t == 7) << s.name << " type " << t;
    if (pts.size() < 3) { EXPECT_EQ(t, 1); }
    g_step = "pointIsIn classified";
    for (auto const& p : probes) {
        bool in = poly.pointIsIn(p);
        if (anyNaN(p)) { EXPECT_FALSE(in) << s.name; }
        if (t == 1 || t == 2) { EXPECT_FALSE(in); }
    }
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
    std::list<Cpoint2<T>> l(pts.begin(), pts.end());
    P pl(l);
    EXPECT_EQ(pl.size(), pts.size());
}

TYPED_TEST(Robust, Polygon) {
    using T = TypeParam;
    for (auto const& s : sets2<T>()) guarded("polygon " + s.name, [&] { polygonCase(s); });
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
            const auto& hp = h.points();
            // Within the exact range (magnitudes 2^-400 .. 2^500 or 0; non-finite
            // points are dropped) the hull is empty or has at least 3 corners;
            // beyond it only its shape is unspecified.
            bool exactRange = true;
            for (auto const& p : s.pts)
                for (T c : {p.x, p.y})
                    if (fin(c) && c != T(0) && (std::fabs(c) > std::ldexp(T(1), 500) || std::fabs(c) < std::ldexp(T(1), -400)))
                        exactRange = false;
            if (exactRange) {
                EXPECT_TRUE(hp.empty() || hp.size() >= 3) << s.name;
            }
            for (auto const& c : hp) {
                EXPECT_TRUE(fin(c.x) && fin(c.y)) << s.name;  // non-finite points are dropped
                bool found = false;
                for (auto const& p : s.pts) found = found || (p.x == c.x && p.y == c.y);
                EXPECT_TRUE(found);
            }
            CcvxHull2D<T> h2 = h;
            h2 = CcvxHull2D<T>();
            EXPECT_TRUE(h2.points().empty());
        });
    guarded("hull int", [] {
        const int M = std::numeric_limits<int>::max(), m = std::numeric_limits<int>::min();
        std::vector<Cvector2<int>> v = {{m, m}, {M, m}, {M, M}, {m, M}, {0, 0}, {m, 0}, {M, M}};
        CcvxHull2D<int> h(v);
        EXPECT_EQ(h.points().size(), 4u);
    });
}

TYPED_TEST(Robust, Aoi) {
    using T = TypeParam;
    guarded("aoi", [] {
        Caoi<T> empty;
        EXPECT_FALSE(empty.isValid());
        int id = 0;
        EXPECT_EQ(attempt("invalid pointIsIn", [&] { empty.pointIsIn(Cpoint2<T>(T(0), T(0))); }, false, &id), Out::thrown);
        EXPECT_EQ(id, CthrowMath::ERR_PRIMEXT_AOI_INVALID);
        EXPECT_EQ(attempt("invalid rect", [&] { empty.boundingRect(); }), Out::thrown);
        Cimage img(16, 9);
        EXPECT_EQ(attempt("invalid count", [&] { empty.count(img); }), Out::thrown);
        EXPECT_EQ(attempt("invalid mask", [&] { empty.mask(img); }), Out::thrown);
        // Index errors.
        attempt("polygon idx", [&] { empty.polygon(3); });
        attempt("mode idx", [&] { empty.mode(0); });
        attempt("setMode idx", [&] { empty.setMode(7, Caoi<T>::MODE_EXCLUDE); });
        attempt("regionIsValid idx", [&] { empty.regionIsValid(1); });
        attempt("pointCount idx", [&] { empty.pointCount(0); });
        attempt("point idx", [&] { empty.point(0, 0); });
        attempt("setPoint idx", [&] { empty.setPoint(0, 0, Cpoint2<T>()); });
        attempt("setPolygon idx", [&] { empty.setPolygon(0, Cpolygon2<T>()); });
        attempt("remove idx", [&] { empty.remove(0); });
        for (auto const& s : sets2<T>()) {
            g_step = "aoi set";
            Caoi<T> a(Crect2<T>(T(0), T(0), T(5), T(4)));
            unsigned i = a.add(Cpolygon2<T>(s.pts), Caoi<T>::MODE_EXCLUDE);
            unsigned j = a.add(Cpolygon2<T>(s.pts), Caoi<T>::MODE_INCLUDE);
            a.regionIsValid(i);
            EXPECT_TRUE(a.isValid());
            for (auto const& p : s.pts) a.pointIsIn(p);
            a.pointIsIn(Cpoint2<T>(nan<T>(), T(1)));
            Crect2<T> br = a.boundingRect();
            (void)br;
            std::uint64_t n = a.count(img);
            EXPECT_LE(n, 16u * 9u);
            Cimage mk = a.mask(img);
            EXPECT_EQ(mk.width(), 16u);
            attempt("point j", [&] { a.point(j, 100); });
            if (a.pointCount(j) > 0) a.setPoint(j, 0, Cpoint2<T>(inf<T>(), T(0)));
            a.setPolygon(i, Cpolygon2<T>());
            a.remove(0);
            attempt("after remove", [&] { a.count(img); });
            // A huge image against a region that covers it only partly, and an
            // empty image.
            Caoi<T> big(Crect2<T>(-hugeVal<T>(), -hugeVal<T>(), inf<T>(), inf<T>()));
            attempt("big rect", [&] { big.count(Cimage()); });
        }
        // Huge valid including region with a small image: pixel range clipped.
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
    for (T v : specials<T>()) {
        r.push_back({v, T(1), T(2)});
        r.push_back({T(1), v, T(2)});
        r.push_back({T(1), T(2), v});
    }
    return r;
}

TYPED_TEST(Robust, Primitives3AndTransform) {
    using T = TypeParam;
    guarded("primitives3", [] {
        std::vector<Cpoint3<T>> pr = probes3<T>();
        const Cpoint3<T> o(T(0), T(0), T(0)), ex(T(1), T(0), T(0)), ey(T(0), T(1), T(0));
        for (auto const& p : pr) {
            Cplane3<T> e(o, ex, p);
            Cplane3<T> e2(p, Cdirec3<T>(p));
            Cplane3<T> e3(Cdirec3<T>(T(0), T(0), T(1)), p.z);
            if (!fin(p.x) && std::isnan(p.x)) { EXPECT_FALSE(Cplane3<T>(p, p, ex).isValid()); }
            for (Cplane3<T> const* E : {&e, &e2, &e3}) {
                E->pointAt(p.x, p.y);
                Ccircle3<T> c(*E, ex, ey, p);
                c.isValid();
                Ccircle3<T> c2(*E, p, p, p);
                if (E->isValid() && fin(p)) {
                    // three coincident points: no circle
                    EXPECT_TRUE(!c2.isValid() || !fin(c2.radius()) || c2.radius() == T(0));
                }
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
        std::vector<T> sp = specials<T>();
        for (T v : sp) {
            for (unsigned pos = 0; pos < 4; ++pos) {
                T c[4] = {T(0.5), T(0.5), T(0.5), T(0.5)};
                c[pos] = v;
                Cquaternion<T> q(c[0], c[1], c[2], c[3]);
                q.norm();
                Cquaternion<T> n = q.normalized();
                if (std::isnan(v)) { EXPECT_FALSE(n.isValid()); }
                Cquaternion<T> z(T(0), T(0), T(0), T(0));
                EXPECT_FALSE(z.normalized().isValid());
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
                Cquaternion<T> back(M);
                Cquaternion<T> back2(R);
                Cdirec3<T> ax;
                T ang;
                n.getAxisAngle(ax, ang);
                Cquaternion<T> aa(Cdirec3<T>(v, T(1), T(0)), v);
                aa.getAxisAngle(ax, ang);
                CtransPrm3<T> tp(q, Cpoint3<T>(v, T(0), T(1)), v);
                tp.isValid();
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
                CtransPrm3<T> inv = tp.inverse();
                (void)(inv * tp);
                tp.setRotation(Cquaternion<T>(T(0), T(0), T(0), T(0)));
                EXPECT_FALSE(tp.isValid());
            }
        }
        // Rotation matrices of the wrong shape are refused, not read past their end.
        for (auto const& c : matrices<T>()) {
            int id = 0;
            Out o = attempt("quat from matrix", [&] { Cquaternion<T> q(c.second); }, false, &id);
            if (c.second.m() < 3 || c.second.n() < 3) {
                EXPECT_EQ(o, Out::thrown) << c.first;
                EXPECT_EQ(id, CthrowMath::ERR_MATRIX_DIMS);
            } else {
                EXPECT_EQ(o, Out::returned);
            }
        }
    });
}

TYPED_TEST(Robust, Geometric) {
    using T = TypeParam;
    using G = geometric<T>;
    guarded("geometric", [] {
        std::vector<Cpoint3<T>> pr = probes3<T>();
        std::vector<T> sp = specials<T>();
        std::vector<T> dist;
        const Cpoint3<T> o(T(0), T(0), T(0));
        for (auto const& p : pr) {
            for (T v : sp) {
                G::equal(v, p.x);
                G::equalT(v, p.y);
                G::equal(Cpoint2<T>(v, v), Cpoint2<T>(p.x, p.y));
                G::equal(p, o);
            }
            Cplane3<T> e(p, Cdirec3<T>(T(0), T(0), T(1)));
            Cplane3<T> e2(Cdirec3<T>(p), T(1));
            Cplane3<T> e3(Cdirec3<T>(T(1), T(0), T(0)), p.x);
            Cline3<T> l(p, Cdirec3<T>(T(1), T(1), T(0)));
            Cline3<T> l2(o, p);
            Cline3<T> l3(Cpoint3<T>(T(0), T(1), T(1)), Cdirec3<T>(p));
            Csphere3<T> s(p, T(2));
            Csphere3<T> s2(o, p.x);
            Ccylinder3<T> z(l, p.y);
            Cellipse2<T> el(Cpoint2<T>(p.x, T(0)), T(3), p.y, p.z);
            Cellipse2<T> el2(Cpoint2<T>(T(0), T(0)), T(3), T(1), T(0.3));
            std::vector<Cpoint3<T>> ps = pr;
            std::vector<Cpoint2<T>> ps2;
            for (auto const& q : pr) ps2.push_back(Cpoint2<T>(q.x, q.y));
            G::distance(e, p);
            G::distance(e2, ps, dist);
            EXPECT_EQ(dist.size(), ps.size());
            G::distance(l2, p);
            G::distance(l, ps, dist);
            G::distance(s, p);
            G::distance(s2, ps, dist);
            G::distance(z, p);
            G::distance(z, ps, dist);
            G::distance(p, ps, dist);
            g_step = "ellipse";
            G::distance(el, Cpoint2<T>(p.x, p.y));
            G::distance(el2, Cpoint2<T>(p.x, p.y));
            G::distance(el2, ps2, dist);
            G::distance(el, ps2, dist);
            EXPECT_EQ(dist.size(), ps2.size());
            g_step = "project";
            Cpoint3<T> q = p;
            G::project(l, q);
            G::project(e2, q);
            std::vector<Cpoint3<T>> pc = ps;
            G::project(l2, pc);
            G::project(e, pc);
            std::vector<Cpoint3<T>> none;
            EXPECT_FALSE(G::project(l, none));
            g_step = "intersect3";
            Cpoint3<T> x;
            bool ok = G::intersect(e, l3, x);
            if (!ok) { EXPECT_TRUE(std::isnan(x.x)); }
            Cline3<T> li;
            G::intersect(e, e2, li);
            G::intersect(e, e3, li);
            G::intersect(l, l2, x);
            T gap;
            G::intersect(l3, l2, x, gap);
            G::intersect(e, e2, e3, x);
            std::pair<T, T> t;
            if (!G::intersect(s, l, t)) { EXPECT_TRUE(std::isnan(t.first) && std::isnan(t.second)); }
            G::intersect(s2, l3, t);
            CboundingBox3<T> box(o, p);
            std::pair<Cpoint3<T>, Cpoint3<T>> seg;
            G::intersect(box, l, seg);
            G::intersect(CboundingBox3<T>(), l, seg);
            G::intersect(CboundingBox3<T>(Cpoint3<T>(T(-1), T(-1), T(-1)), Cpoint3<T>(T(1), T(1), T(1))), l3, seg);
            T rms;
            Cpoint3<T> ls;
            G::intersect(std::vector<Cline3<T>>{}, ls, rms);
            G::intersect(std::vector<Cline3<T>>{l}, ls, rms);
            G::intersect(std::vector<Cline3<T>>{l, l2, l3}, ls, rms);
            G::intersect(std::vector<Cline3<T>>{l, l, l}, ls, rms);
            for (bool side : {false, true}) {
                G::intersect(std::vector<Csphere3<T>>{}, ls, side);
                G::intersect(std::vector<Csphere3<T>>{s}, ls, side);
                G::intersect(std::vector<Csphere3<T>>{s, s2}, ls, side);
                G::intersect(std::vector<Csphere3<T>>{s, s2, Csphere3<T>(Cpoint3<T>(T(1), T(0), T(0)), T(1))}, ls, side);
                G::intersect(std::vector<Csphere3<T>>{s, s, s, s}, ls, side);
            }
            g_step = "planar";
            Cpoint2<T> p2(p.x, p.y);
            Cline2<T> a(p2, Cpoint2<T>(T(1), T(1)));
            Cline2<T> b(Cpoint2<T>(T(0), T(0)), Cdirec2<T>(T(0), T(1)));
            Cpoint2<T> s2p;
            G::intersect(a, b, s2p);
            G::intersect(a, a, s2p);
            G::distance(a, p2);
            G::distance(b, ps2, dist);
            G::distance(a, b);
            G::distance(b, a);
            Cpoint2<T> pp = p2;
            G::project(b, pp);
            std::vector<Cpoint2<T>> ps2c = ps2;
            G::project(a, ps2c);
            std::vector<Cpoint2<T>> none2;
            EXPECT_FALSE(G::project(b, none2));
            for (bool side : {false, true}) {
                G::intersect(std::vector<Ccircle2<T>>{}, s2p, side);
                G::intersect(std::vector<Ccircle2<T>>{Ccircle2<T>(p2, T(1))}, s2p, side);
                G::intersect(std::vector<Ccircle2<T>>{Ccircle2<T>(p2, T(1)), Ccircle2<T>(Cpoint2<T>(), p.z)}, s2p, side);
                G::intersect(std::vector<Ccircle2<T>>{Ccircle2<T>(p2, T(1)), Ccircle2<T>(p2, T(1)), Ccircle2<T>(p2, T(2))},
                             s2p, side);
            }
            g_step = "outlier";
            std::vector<Cpoint3<T>> op = ps;
            std::vector<T> res(op.size());
            for (std::size_t k = 0; k < res.size(); ++k) res[k] = sp[k % sp.size()];
            G::outlier(op, res, p.x);
            std::vector<Cpoint3<T>> op2 = ps;
            EXPECT_FALSE(G::outlier(op2, std::vector<T>(1), T(1)));
            EXPECT_EQ(op2.size(), ps.size());
        }
    });
}

TYPED_TEST(Robust, Tools) {
    using T = TypeParam;
    guarded("tools", [] {
        CbaseVecN<Cpoint3<T>> in, out;
        for (auto const& p : probes3<T>()) in.push_back(p);
        for (T d : specials<T>()) {
            for (auto const& p : probes3<T>()) {
                Cplane3<T> e(p, Cdirec3<T>(T(0), T(0), T(1)));
                bool ok = tools<T>::cutPointCloud(e, d, in, out);
                if (std::isnan(d) || d < T(0) || !e.isValid()) {
                    EXPECT_FALSE(ok);
                    EXPECT_TRUE(out.empty());
                }
                EXPECT_LE(out.size(), in.size());
                CbaseVecN<Cpoint3<T>> same = in;
                tools<T>::cutPointCloud(e, d, same, same);
                EXPECT_LE(same.size(), in.size());
                CbaseVecN<Cpoint3<T>> empty;
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
    Cline2<T> line;
    g_step = "fitLineLsq";
    double ms = 0;
    attempt("fitLineLsq", [&] { ms = A::fitLineLsq(s.pts, line); }, true);
    if (n < 2) {
        EXPECT_TRUE(std::isnan(line.point().x) && std::isnan(line.direction().x)) << s.name;
        EXPECT_TRUE(std::isnan(ms));
    }
    CqLineLsqNStdAbw<T> rl;
    attempt("fitLineLsqN", [&] { A::fitLineLsqN(s.pts, line, rl); }, true);
    attempt("fitLineLsqN2", [&] { A::fitLineLsqN(s.pts, line); }, true);
    Ccircle2<T> c;
    CqCircleLsqStdAbw<T> rc;
    attempt("fitCircleLsq", [&] { A::fitCircleLsq(s.pts, c); }, true);
    if (n <= 3) { EXPECT_FALSE(c.isValid()) << s.name; }
    attempt("fitCircleLsq rec", [&] { A::fitCircleLsq(s.pts, c, rc); }, true);
    if (n <= 3) { EXPECT_TRUE(std::isnan(rc.stdAbw)); }
    Ccircle2<T> cb;
    attempt("fitCircleLsqBeta", [&] { A::fitCircleLsqBeta(s.pts, cb); }, true);
    if (n <= 3) { EXPECT_FALSE(cb.isValid()) << s.name; }
    g_step = "StdAbw2";
    T sd = A::StdAbwLine2(s.pts, line);
    if (n < 2) { EXPECT_TRUE(std::isnan(sd)); }
    sd = A::StdAbwCircle2(s.pts, c);
    if (n < 2) { EXPECT_TRUE(std::isnan(sd)); }
    A::StdAbwLine2(s.pts, Cline2<T>());
    A::StdAbwCircle2(s.pts, Ccircle2<T>());
    Cline2<T> lg;
    attempt("fitLineGeom", [&] { A::fitLineGeom(s.pts, lg); }, true);
    if (n < 2) { EXPECT_FALSE(lg.isValid()) << s.name; }
    if (s.moderate && n >= 2) {
        EXPECT_TRUE(lg.isValid()) << s.name;
        EXPECT_TRUE(fin(lg.point())) << s.name;
    }
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
    T sd = A::StdAbwSphere(s.pts, sph);
    if (n < 2) { EXPECT_TRUE(std::isnan(sd)); }
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
    for (CqPlaneGeomFast<T> prm : {CqPlaneGeomFast<T>(), CqPlaneGeomFast<T>(0u, T(0)), CqPlaneGeomFast<T>(5000u, T(0)),
                                   CqPlaneGeomFast<T>(0xFFFFFFFFu, nan<T>()), CqPlaneGeomFast<T>(0xFFFFFFFFu, T(-1)),
                                   CqPlaneGeomFast<T>(0xFFFFFFFFu, inf<T>())}) {
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
// Seeded random loops: no crash, no hang, no leak; outputs finite or invalid.
// ---------------------------------------------------------------------------

template <class T>
struct Gen {
    std::mt19937 rng;
    std::vector<T> sp = specials<T>();
    explicit Gen(unsigned seed) : rng(seed) {}
    T val() {
        std::uniform_int_distribution<int> pick(0, 9);
        if (pick(rng) == 0) return sp[std::uniform_int_distribution<std::size_t>(0, sp.size() - 1)(rng)];
        return std::uniform_real_distribution<T>(T(-10), T(10))(rng);
    }
    std::size_t count(std::size_t maxN) { return std::uniform_int_distribution<std::size_t>(0, maxN)(rng); }
    std::vector<Cpoint2<T>> pts2(std::size_t maxN) {
        std::vector<Cpoint2<T>> r(count(maxN));
        for (auto& p : r) p = Cpoint2<T>(val(), val());
        if (!r.empty() && count(3) == 0) r.push_back(r[count(r.size() - 1)]);  // duplicates
        return r;
    }
    std::vector<Cpoint3<T>> pts3(std::size_t maxN) {
        std::vector<Cpoint3<T>> r(count(maxN));
        for (auto& p : r) p = Cpoint3<T>(val(), val(), val());
        return r;
    }
};

// All coordinates finite and of moderate size (no overflow in products).
template <class T>
bool allFinite2(std::vector<Cpoint2<T>> const& v) {
    for (auto const& p : v)
        if (!fin(p) || std::fabs(p.x) > T(1e6) || std::fabs(p.y) > T(1e6)) return false;
    return true;
}
template <class T>
bool allFinite3(std::vector<Cpoint3<T>> const& v) {
    for (auto const& p : v)
        if (!fin(p)) return false;
    return true;
}

TYPED_TEST(Robust, FuzzPlanar) {
    using T = TypeParam;
    guarded("fuzz planar", [] {
        Gen<T> g(12345u);
        for (int it = 0; it < 1500; ++it) {
            std::vector<Cpoint2<T>> pts = g.pts2(12);
            const bool clean = allFinite2(pts);
            Cpolygon2<T> poly(pts);
            T a = poly.area();
            if (clean) { EXPECT_TRUE(fin(a)); }
            g_step = "fuzz preprocess";
            poly.preprocess();
            poly.pointIsIn(Cpoint2<T>(g.val(), g.val()));
            g_step = "fuzz convexPoly";
            Cpolygon2<T> h = Cpolygon2<T>::convexPoly(pts, it % 2 == 0);
            expectFromInput(h.points(), pts, "fuzz convexPoly");
            Cpolygon2<T> ct = Cpolygon2<T>::contourPoly(pts);
            expectFromInput(ct.points(), pts, "fuzz contourPoly");
            g_step = "fuzz mer";
            std::vector<Cpoint2<T>> mer = poly.minimumEnclosingRect();
            EXPECT_TRUE(mer.empty() || mer.size() == 4);
            if (clean) {
                for (auto const& p : mer) EXPECT_TRUE(fin(p));
            }
            g_step = "fuzz simplified";
            Cpolygon2<T> sm = poly.simplifiedTo(static_cast<unsigned>(g.count(10)));
            (void)sm;
            std::vector<Cvector2<T>> v;
            for (auto const& p : pts) v.push_back(Cvector2<T>(p.x, p.y));
            g_step = "fuzz hull";
            CcvxHull2D<T> hull(v);
            for (auto const& c : hull.points()) EXPECT_TRUE(fin(c.x) && fin(c.y));
            CboundingBox2<T> b;
            b.set(pts);
            if (clean && !pts.empty()) { EXPECT_TRUE(b.isValid()); }
            g_step = "fuzz lines";
            Cline2<T> l(Cpoint2<T>(g.val(), g.val()), Cpoint2<T>(g.val(), g.val()));
            Cdirec2<T> nn;
            T d, dist, arc;
            l.getHNF(nn, d);
            l.getDistArc(dist, arc);
            Ccircle2<T> c(Cpoint2<T>(g.val(), g.val()), Cpoint2<T>(g.val(), g.val()), Cpoint2<T>(g.val(), g.val()));
            if (c.isValid()) { EXPECT_FALSE(std::isnan(c.radius())); }
            Cpoint2<T> s;
            geometric<T>::intersect(l, Cline2<T>(Cpoint2<T>(g.val(), g.val()), Cpoint2<T>(g.val(), g.val())), s);
            std::vector<Ccircle2<T>> cs;
            for (std::size_t k = g.count(5); k > 0; --k) cs.push_back(Ccircle2<T>(Cpoint2<T>(g.val(), g.val()), g.val()));
            geometric<T>::intersect(cs, s, it % 2 == 0);
            geometric<T>::project(l, pts);
            std::vector<T> dd;
            geometric<T>::distance(Cellipse2<T>(Cpoint2<T>(g.val(), g.val()), g.val(), g.val(), g.val()), pts, dd);
            EXPECT_EQ(dd.size(), pts.size());
            g_step = "fuzz aoi";
            Caoi<T> aoi(Crect2<T>(g.val(), g.val(), g.val(), g.val()));
            aoi.add(poly, it % 3 == 0 ? Caoi<T>::MODE_EXCLUDE : Caoi<T>::MODE_INCLUDE);
            if (aoi.isValid()) {
                Cimage img(static_cast<unsigned>(g.count(12)), static_cast<unsigned>(g.count(12)));
                std::uint64_t cnt = aoi.count(img);
                EXPECT_LE(cnt, std::uint64_t(img.width()) * img.height());
                Cimage mk = aoi.mask(img);
                std::uint64_t set = 0;
                for (unsigned y = 0; y < mk.height(); ++y)
                    for (unsigned x = 0; x < mk.width(); ++x) set += mk.at(x, y) == 255;
                EXPECT_EQ(set, cnt);  // mask and count agree
                aoi.boundingRect();
            } else {
                EXPECT_EQ(attempt("fuzz invalid aoi", [&] { aoi.pointIsIn(Cpoint2<T>()); }), Out::thrown);
            }
        }
    });
}

TYPED_TEST(Robust, FuzzSpatial) {
    using T = TypeParam;
    guarded("fuzz spatial", [] {
        Gen<T> g(777u);
        using G = geometric<T>;
        for (int it = 0; it < 1500; ++it) {
            auto P = [&] { return Cpoint3<T>(g.val(), g.val(), g.val()); };
            std::vector<Cpoint3<T>> pts = g.pts3(8);
            Cplane3<T> e(P(), P(), P());
            Cline3<T> l(P(), P());
            Csphere3<T> s(P(), g.val());
            Cpoint3<T> x;
            G::intersect(e, l, x);
            G::intersect(e, Cplane3<T>(P(), Cdirec3<T>(P())), l);
            G::intersect(l, Cline3<T>(P(), P()), x);
            G::intersect(e, Cplane3<T>(P(), Cdirec3<T>(P())), Cplane3<T>(P(), Cdirec3<T>(P())), x);
            std::pair<T, T> t;
            G::intersect(s, l, t);
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
            Cmatrix<T> A(m, n);
            bool clean = true;
            for (unsigned i = 0; i < m; ++i)
                for (unsigned j = 0; j < n; ++j) {
                    A(i, j) = g.val();
                    clean = clean && fin(A(i, j));
                }
            std::vector<T> b(m);
            for (T& v : b) v = g.val();
            Csolver_GaussJordan<T> gj;
            Csolver_luDecomp<T> lu;
            Csolver_svd<T> sv;
            attempt("fz gj", [&] {
                gj.setMatrix(A);
                touch(gj.solve(b));
            });
            attempt("fz lu", [&] {
                lu.setMatrix(A);
                touch(lu.solve(b));
                lu.getDet();
            });
            attempt("fz svd", [&] {
                sv.setMatrix(A);
                Cmatrix<T> x = sv.solve(b);
                touch(x);
                if (clean) {
                    for (T w : sv.getSingularValues()) EXPECT_TRUE(fin(w) || w == inf<T>());
                }
            });
            Cmatrix<T> S(m, m);
            for (unsigned i = 0; i < m; ++i)
                for (unsigned j = 0; j <= i; ++j) S(i, j) = S(j, i) = A.m() && A.n() ? A(i % m, j % n) : T(0);
            Cmatrix<T> V;
            attempt("fz eig", [&] { CmatrixCalc<T>::getEigenvalue(S, V); }, true);
            Cmatrix<T> R;
            CmatrixCalc<T>::ArcToRotZYX(g.val(), g.val(), g.val(), R);
            T a1, a2, a3;
            CmatrixCalc<T>::RotToArcXYZ(R, a1, a2, a3);
        }
    });
}

TYPED_TEST(Robust, FuzzFits) {
    using T = TypeParam;
    guarded("fuzz fits", [] {
        Gen<T> g(99u);
        using A = approximate<T>;
        for (int it = 0; it < 800; ++it) {
            std::vector<Cpoint2<T>> p2 = g.pts2(10);
            std::vector<Cpoint3<T>> p3 = g.pts3(10);
            Cline2<T> l;
            Ccircle2<T> c;
            Csphere3<T> s;
            Cline3<T> l3;
            Cplane3<T> e;
            CqLineGeom2DStdAbw<T> r2;
            CqPlaneGeomStdAbw<T> rp;
            attempt("fz line", [&] { A::fitLineLsq(p2, l); }, true);
            attempt("fz circle", [&] { A::fitCircleLsq(p2, c); }, true);
            attempt("fz beta", [&] { A::fitCircleLsqBeta(p2, c); }, true);
            attempt("fz geom2", [&] { A::fitLineGeom(p2, l, r2); }, true);
            attempt("fz geom2b", [&] { A::fitLineGeom(p2, l); }, true);
            attempt("fz sphere", [&] { A::fitSphereLsq(p3, s); }, true);
            attempt("fz line3", [&] { A::fitLineGeom(p3, l3); }, true);
            attempt("fz plane", [&] { A::fitPlaneGeom(p3, e, rp); }, true);
            attempt("fz planefast", [&] { A::fitPlaneGeomFast(p3, e, CqPlaneGeomFast<T>()); }, true);
        }
    });
}

}  // namespace
