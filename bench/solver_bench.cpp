// Equation solvers and the symmetric eigen decomposition beside Eigen.
//
// Names follow the convention of bench/run: BM_<op><<type>>/<n>/<impl>, impl
//   metromath          this library
//   eigen_partialpiv   Eigen::PartialPivLU   (LU with row pivoting)
//   eigen_fullpiv      Eigen::FullPivLU      (full pivoting, as Gauss-Jordan)
//   eigen_jacobi       Eigen::JacobiSVD      (two-sided Jacobi, thin U and V)
//   eigen_bdc          Eigen::BDCSVD         (bidiagonal divide and conquer)
//   eigen              Eigen::SelfAdjointEigenSolver (with eigenvectors)
// Every case installs the same random n×n matrix (a copy per iteration, for
// every implementation), decomposes it and solves one right-hand side; the
// eigen cases decompose a random symmetric matrix with eigenvectors.
// Sizes: 3, 4, 6, 10, 50.
#include <math/matrix_calc.h>
#include <math/solver.h>

#include <benchmark/benchmark.h>

#include <Eigen/Dense>

#include <random>
#include <string>
#include <vector>

namespace {

using math::Cmatrix;

struct Data {
    Cmatrix<double> a, s;  // general and symmetric
    std::vector<double> b;
    Eigen::MatrixXd ea, es;
    Eigen::VectorXd eb;
    explicit Data(unsigned n) : a(n, n), s(n, n), b(n) {
        std::mt19937 rng(1000 + n);
        std::uniform_real_distribution<double> u(-1, 1);
        for (double& x : a) x = u(rng);
        for (unsigned i = 0; i < n; ++i)
            for (unsigned j = 0; j <= i; ++j) s(i, j) = s(j, i) = u(rng);
        for (double& x : b) x = u(rng);
        ea.resize(n, n);
        es.resize(n, n);
        eb.resize(n);
        for (unsigned i = 0; i < n; ++i) {
            eb(i) = b[i];
            for (unsigned j = 0; j < n; ++j) {
                ea(i, j) = a(i, j);
                es(i, j) = s(i, j);
            }
        }
    }
};

template <class Solver>
void ours(benchmark::State& st, Data const& d) {
    Solver solver;
    for (auto _ : st) {
        solver.setMatrix(d.a);  // copies and decomposes
        Cmatrix<double> x = solver.solve(d.b);
        benchmark::DoNotOptimize(x.getBase());
    }
}

template <class Dec>
void eigenSolve(benchmark::State& st, Data const& d) {
    for (auto _ : st) {
        Eigen::MatrixXd a = d.ea;
        Dec dec(a);
        Eigen::VectorXd x = dec.solve(d.eb);
        benchmark::DoNotOptimize(x.data());
    }
}

template <class Dec>
void eigenSvd(benchmark::State& st, Data const& d) {
    for (auto _ : st) {
        Eigen::MatrixXd a = d.ea;
        Dec dec(a, Eigen::ComputeThinU | Eigen::ComputeThinV);
        Eigen::VectorXd x = dec.solve(d.eb);
        benchmark::DoNotOptimize(x.data());
    }
}

void oursEigen(benchmark::State& st, Data const& d) {
    Cmatrix<double> a, v;
    for (auto _ : st) {
        a = d.s;
        math::CmatrixCalc<double>::getEigenvalue(a, v);
        benchmark::DoNotOptimize(v.getBase());
    }
}

void eigenEigen(benchmark::State& st, Data const& d) {
    for (auto _ : st) {
        Eigen::MatrixXd a = d.es;
        Eigen::SelfAdjointEigenSolver<Eigen::MatrixXd> es(a);
        benchmark::DoNotOptimize(es.eigenvectors().data());
    }
}

std::vector<Data*> g_data;

template <class F>
void reg(std::string const& name, F f, Data const* d) {
    benchmark::RegisterBenchmark(name.c_str(), [f, d](benchmark::State& st) { f(st, *d); });
}

}  // namespace

int main(int argc, char** argv) {
    for (unsigned n : {3u, 4u, 6u, 10u, 50u}) {
        g_data.push_back(new Data(n));
        Data const* d = g_data.back();
        const std::string sz = "/" + std::to_string(n) + "/";
        const std::string gj = "BM_solveGaussJordan<double>" + sz;
        reg(gj + "metromath", ours<math::Csolver_GaussJordan<double>>, d);
        reg(gj + "eigen_fullpiv", eigenSolve<Eigen::FullPivLU<Eigen::MatrixXd>>, d);
        reg(gj + "eigen_partialpiv", eigenSolve<Eigen::PartialPivLU<Eigen::MatrixXd>>, d);
        const std::string lu = "BM_solveLU<double>" + sz;
        reg(lu + "metromath", ours<math::Csolver_luDecomp<double>>, d);
        reg(lu + "eigen_partialpiv", eigenSolve<Eigen::PartialPivLU<Eigen::MatrixXd>>, d);
        reg(lu + "eigen_fullpiv", eigenSolve<Eigen::FullPivLU<Eigen::MatrixXd>>, d);
        const std::string svd = "BM_solveSVD<double>" + sz;
        reg(svd + "metromath", ours<math::Csolver_svd<double>>, d);
        reg(svd + "eigen_jacobi", eigenSvd<Eigen::JacobiSVD<Eigen::MatrixXd>>, d);
        reg(svd + "eigen_bdc", eigenSvd<Eigen::BDCSVD<Eigen::MatrixXd>>, d);
        const std::string ev = "BM_eigenSym<double>" + sz;
        reg(ev + "metromath", oursEigen, d);
        reg(ev + "eigen", eigenEigen, d);
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    for (Data* d : g_data) delete d;
    return 0;
}
