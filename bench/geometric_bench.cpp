// Point-set distances of geometric<T> beside Eigen doing the same arithmetic
// on a 3 x N matrix, and beside the limit kernel (one streaming pass that only
// sums the coordinates).
#include <math/geometric.h>

#include <Eigen/Dense>
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

using namespace math;

namespace {

std::vector<Cpoint3<double>> cloud(std::size_t n) {
    std::mt19937 g(1);
    std::uniform_real_distribution<double> u(-10, 10);
    std::vector<Cpoint3<double>> p(n);
    for (auto& q : p) q = Cpoint3<double>(u(g), u(g), u(g));
    return p;
}

Eigen::Matrix3Xd asEigen(std::vector<Cpoint3<double>> const& p) {
    Eigen::Matrix3Xd m(3, p.size());
    for (std::size_t i = 0; i < p.size(); ++i) m.col(Eigen::Index(i)) << p[i].x, p[i].y, p[i].z;
    return m;
}

void BM_limit(benchmark::State& st) {
    const auto pts = cloud(std::size_t(st.range(0)));
    for (auto _ : st) {
        double s = 0;
        for (auto const& p : pts) s += p.x + p.y + p.z;
        benchmark::DoNotOptimize(s);
    }
    st.SetItemsProcessed(st.iterations() * st.range(0));
}

void BM_planeDistance_metromath(benchmark::State& st) {
    const auto pts = cloud(std::size_t(st.range(0)));
    const Cplane3<double> e(Cpoint3<double>(1, 2, 3), Cdirec3<double>(1, -2, 0.5));
    std::vector<double> d;
    for (auto _ : st) {
        geometric<double>::distance(e, pts, d);
        benchmark::DoNotOptimize(d.data());
    }
    st.SetItemsProcessed(st.iterations() * st.range(0));
}

void BM_planeDistance_eigen(benchmark::State& st) {
    const auto m = asEigen(cloud(std::size_t(st.range(0))));
    const Eigen::Vector3d n = Eigen::Vector3d(1, -2, 0.5).normalized();
    const double dd = -n.dot(Eigen::Vector3d(1, 2, 3));
    Eigen::RowVectorXd d(m.cols());
    for (auto _ : st) {
        d.noalias() = n.transpose() * m;
        d.array() += dd;
        benchmark::DoNotOptimize(d.data());
    }
    st.SetItemsProcessed(st.iterations() * st.range(0));
}

void BM_lineDistance_metromath(benchmark::State& st) {
    const auto pts = cloud(std::size_t(st.range(0)));
    const Cline3<double> l(Cpoint3<double>(1, 2, 3), Cdirec3<double>(1, -2, 0.5));
    std::vector<double> d;
    for (auto _ : st) {
        geometric<double>::distance(l, pts, d);
        benchmark::DoNotOptimize(d.data());
    }
    st.SetItemsProcessed(st.iterations() * st.range(0));
}

void BM_lineDistance_eigen(benchmark::State& st) {
    const auto m = asEigen(cloud(std::size_t(st.range(0))));
    const Eigen::Vector3d p(1, 2, 3), n = Eigen::Vector3d(1, -2, 0.5).normalized();
    Eigen::RowVectorXd d(m.cols());
    for (auto _ : st) {
        const Eigen::Matrix3Xd v = m.colwise() - p;
        const Eigen::RowVectorXd t = n.transpose() * v;
        d = (v - n * t).colwise().norm();
        benchmark::DoNotOptimize(d.data());
    }
    st.SetItemsProcessed(st.iterations() * st.range(0));
}

void BM_ellipseDistance_metromath(benchmark::State& st) {
    std::mt19937 g(2);
    std::uniform_real_distribution<double> u(-6, 6);
    std::vector<Cpoint2<double>> pts(std::size_t(st.range(0)));
    for (auto& q : pts) q = Cpoint2<double>(u(g), u(g));
    const Cellipse2<double> el(Cpoint2<double>(0.5, -0.5), 4, 1.5, 0.3);
    std::vector<double> d;
    for (auto _ : st) {
        geometric<double>::distance(el, pts, d);
        benchmark::DoNotOptimize(d.data());
    }
    st.SetItemsProcessed(st.iterations() * st.range(0));
}

}  // namespace

BENCHMARK(BM_limit)->Arg(100000);
BENCHMARK(BM_planeDistance_metromath)->Arg(100000);
BENCHMARK(BM_planeDistance_eigen)->Arg(100000);
BENCHMARK(BM_lineDistance_metromath)->Arg(100000);
BENCHMARK(BM_lineDistance_eigen)->Arg(100000);
BENCHMARK(BM_ellipseDistance_metromath)->Arg(10000);

BENCHMARK_MAIN();
