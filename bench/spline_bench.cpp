// Benchmarks of the spline basis and curve beside Eigen's Spline<double, 3>
// (unsupported/Eigen/Splines) on the same knots and control points.
//
// Cases: order k = 3, 4, 8 with 64 and 1024 control points (open uniform
// knots), 10^4 random parameters per iteration:
//   basis, dbasis      the full-vector Cox-de Boor (N, D1, D2 of every
//                      interval) against Eigen's BasisFunctions /
//                      BasisFunctionDerivatives (the k non-zero values)
//   localBasis(D)      the k values (and two derivatives), same peers
//   point, derivs      curve point, point with two derivatives, against
//                      Spline::operator() and Spline::derivatives(u, 2)
// and fit: least squares of m points of a noisy arc with n control points,
// against the same normal equations set up with Eigen's basis functions and
// solved densely (LLT).
#include <math/spline.h>

#include <benchmark/benchmark.h>

#include <Eigen/Dense>
#include <unsupported/Eigen/Splines>

#include <cmath>
#include <random>
#include <string>
#include <vector>

using namespace math;

namespace {

typedef Eigen::Spline<double, 3> Espline;
constexpr int kParams = 10000;

struct Setup {
    TsplineBasisPtr basis;
    Cspline curve;
    Espline eigen;
    std::vector<double> t;

    Setup(int k, int n) : basis(new CsplineBasis(k, n)) {
        std::mt19937_64 g(unsigned(k * 7919 + n));
        std::uniform_real_distribution<double> U(-1.0, 1.0);
        CbaseVecN<Cpoint3<double>> P;
        Eigen::Matrix<double, 3, Eigen::Dynamic> ec(3, n);
        for (int i = 0; i < n; ++i) {
            P.push_back(Cpoint3<double>(U(g), U(g), U(g)));
            ec.col(i) << P[i].x, P[i].y, P[i].z;
        }
        curve = Cspline(basis, P);
        std::vector<double> const& x = basis->knots();
        Eigen::Array<double, 1, Eigen::Dynamic> ek(x.size());
        for (std::size_t i = 0; i < x.size(); ++i) ek(i) = x[i];
        eigen = Espline(ek, ec);
        std::uniform_real_distribution<double> T(curve.tMin(), curve.tMax());
        for (int i = 0; i < kParams; ++i) t.push_back(T(g));
    }
};

Setup& setup(int k, int n) {
    static std::vector<std::unique_ptr<Setup>> all;
    for (auto& s : all)
        if (s->basis->order() == k && int(s->curve.ctrlCount()) == n) return *s;
    all.emplace_back(new Setup(k, n));
    return *all.back();
}

void finish(benchmark::State& st) { st.SetItemsProcessed(int64_t(st.iterations()) * kParams); }

void basisOurs(benchmark::State& st, int k, int n) {
    Setup& s = setup(k, n);
    std::vector<double> N(s.basis->knots().size() - 1, 0.0);
    unsigned span = 0;
    for (auto _ : st) {
        for (double t : s.t) {
            s.basis->basis(t, N, span);
            benchmark::DoNotOptimize(N.data());
        }
    }
    finish(st);
}

void dbasisOurs(benchmark::State& st, int k, int n) {
    Setup& s = setup(k, n);
    const std::size_t m = s.basis->knots().size() - 1;
    std::vector<double> N(m, 0.0), D1(m, 0.0), D2(m, 0.0);
    unsigned span = 0;
    for (auto _ : st) {
        for (double t : s.t) {
            s.basis->dbasis(t, N, D1, D2, span);
            benchmark::DoNotOptimize(D2.data());
        }
    }
    finish(st);
}

void localOurs(benchmark::State& st, int k, int n, bool derivs) {
    Setup& s = setup(k, n);
    double N[8], D1[8], D2[8];
    unsigned first = 0;
    for (auto _ : st) {
        for (double t : s.t) {
            s.basis->localBasis(t, first, N, derivs ? D1 : nullptr, derivs ? D2 : nullptr);
            benchmark::DoNotOptimize(N);
            benchmark::DoNotOptimize(D2);
        }
    }
    finish(st);
}

void basisEigen(benchmark::State& st, int k, int n, bool derivs) {
    Setup& s = setup(k, n);
    const auto& knots = s.eigen.knots();
    for (auto _ : st) {
        for (double t : s.t) {
            if (derivs) {
                auto d = Espline::BasisFunctionDerivatives(t, 2, k - 1, knots);
                benchmark::DoNotOptimize(d.data());
            } else {
                auto b = Espline::BasisFunctions(t, k - 1, knots);
                benchmark::DoNotOptimize(b.data());
            }
        }
    }
    finish(st);
}

void pointOurs(benchmark::State& st, int k, int n, bool derivs) {
    Setup& s = setup(k, n);
    Cpoint3<double> p, d1, d2;
    for (auto _ : st) {
        for (double t : s.t) {
            if (derivs)
                s.curve.derivs(t, p, d1, d2);
            else
                p = s.curve.point(t);
            benchmark::DoNotOptimize(p);
            benchmark::DoNotOptimize(d2);
        }
    }
    finish(st);
}

void pointEigen(benchmark::State& st, int k, int n, bool derivs) {
    Setup& s = setup(k, n);
    for (auto _ : st) {
        for (double t : s.t) {
            if (derivs) {
                auto d = s.eigen.derivatives(t, 2);
                benchmark::DoNotOptimize(d.data());
            } else {
                auto p = s.eigen(t);
                benchmark::DoNotOptimize(p.data());
            }
        }
    }
    finish(st);
}

// Fit: m points of a 90-degree arc of radius 10 mm with 1 um noise.
CbaseVecN<Cpoint3<double>> const& arc(int m) {
    static std::vector<CbaseVecN<Cpoint3<double>>> cache(2);
    auto& v = cache[m > 1000];
    if (v.empty()) {
        std::mt19937_64 g(90);
        std::normal_distribution<double> e(0.0, 1e-3);
        for (int j = 0; j < m; ++j) {
            const double a = (M_PI / 2) * j / (m - 1);
            v.push_back(Cpoint3<double>(10 * std::cos(a) + e(g), 10 * std::sin(a) + e(g), e(g)));
        }
    }
    return v;
}

void fitOurs(benchmark::State& st, int m, int n) {
    auto const& d = arc(m);
    Cspline c;
    for (auto _ : st) benchmark::DoNotOptimize(c.fit(d, 4, unsigned(n)));
    st.SetItemsProcessed(int64_t(st.iterations()) * m);
}

// The same least squares with Eigen: parameters and knots from our fit (not
// timed), rows from Spline::BasisFunctions, dense normal equations, LLT.
void fitEigen(benchmark::State& st, int m, int n) {
    auto const& d = arc(m);
    Cspline c;
    c.fit(d, 4, unsigned(n));
    std::vector<double> const& x = c.basis()->knots();
    Eigen::Array<double, 1, Eigen::Dynamic> ek(x.size());
    for (std::size_t i = 0; i < x.size(); ++i) ek(i) = x[i];
    std::vector<double> t(m);
    double L = 0, C = 0;
    for (int j = 1; j < m; ++j) L += (d[j] - d[j - 1]).length();
    for (int j = 1; j < m; ++j) {
        C += (d[j] - d[j - 1]).length();
        t[j] = std::min((n - 3) * C / L, double(n - 3));
    }
    for (auto _ : st) {
        Eigen::MatrixXd A = Eigen::MatrixXd::Zero(n, n), B = Eigen::MatrixXd::Zero(n, 3);
        for (int j = 0; j < m; ++j) {
            const auto N = Espline::BasisFunctions(t[j], 3, ek);
            const Eigen::DenseIndex f = Espline::Span(t[j], 3, ek) - 3;
            for (int a = 0; a < 4; ++a) {
                for (int b = 0; b < 4; ++b) A(f + a, f + b) += N(a) * N(b);
                B(f + a, 0) += N(a) * d[j].x;
                B(f + a, 1) += N(a) * d[j].y;
                B(f + a, 2) += N(a) * d[j].z;
            }
        }
        Eigen::MatrixXd X = A.llt().solve(B);
        benchmark::DoNotOptimize(X.data());
    }
    st.SetItemsProcessed(int64_t(st.iterations()) * m);
}

void registerAll() {
    using benchmark::RegisterBenchmark;
    for (int k : {3, 4, 8}) {
        for (int n : {64, 1024}) {
            const std::string a = "/" + std::to_string(k) + "/" + std::to_string(n) + "/";
            RegisterBenchmark(("BM_basis" + a + "metromath").c_str(), basisOurs, k, n);
            RegisterBenchmark(("BM_basis" + a + "eigen").c_str(), basisEigen, k, n, false);
            RegisterBenchmark(("BM_dbasis" + a + "metromath").c_str(), dbasisOurs, k, n);
            RegisterBenchmark(("BM_dbasis" + a + "eigen").c_str(), basisEigen, k, n, true);
            RegisterBenchmark(("BM_localBasis" + a + "metromath").c_str(), localOurs, k, n, false);
            RegisterBenchmark(("BM_localBasis" + a + "eigen").c_str(), basisEigen, k, n, false);
            RegisterBenchmark(("BM_localBasisD" + a + "metromath").c_str(), localOurs, k, n, true);
            RegisterBenchmark(("BM_localBasisD" + a + "eigen").c_str(), basisEigen, k, n, true);
            RegisterBenchmark(("BM_point" + a + "metromath").c_str(), pointOurs, k, n, false);
            RegisterBenchmark(("BM_point" + a + "eigen").c_str(), pointEigen, k, n, false);
            RegisterBenchmark(("BM_derivs" + a + "metromath").c_str(), pointOurs, k, n, true);
            RegisterBenchmark(("BM_derivs" + a + "eigen").c_str(), pointEigen, k, n, true);
        }
    }
    for (int m : {1000, 10000}) {
        const int n = m == 1000 ? 20 : 64;
        const std::string a = "/" + std::to_string(m) + "/" + std::to_string(n) + "/";
        RegisterBenchmark(("BM_fit" + a + "metromath").c_str(), fitOurs, m, n);
        RegisterBenchmark(("BM_fit" + a + "eigen").c_str(), fitEigen, m, n);
    }
}

}  // namespace

int main(int argc, char** argv) {
    registerAll();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
