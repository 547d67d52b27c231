// Benchmarks of the planar transformation estimators and the point-set
// transformer.
//
//  - BM_helmert<T>/<pairs>/..., BM_affine<T>/<pairs>/...: setAll + transform()
//    of a reused estimator on 10^3 .. 10^6 pairs (a 100 mm square at 1000 mm,
//    1 um noise), beside Eigen::umeyama(src, dst, true) on the same points
//    (zero-copy maps) and a limit kernel (one pass summing both sets in double).
//  - BM_transformTo<T>/<points>/..., BM_transformFrom<T>/...: the transformer's
//    vector forms on 10^6 points beside Eigen's R * (P.colwise() - c)
//    (R^T * P, colwise + c) into a preallocated block and the limit;
//    BM_transformInPlace<T>/...: the in-place forms, to and back per iteration.
#include <math/transform2.h>
#include <math/transform3.h>

#include <benchmark/benchmark.h>

// GCC 12 reports false array-bounds overreads inside Eigen's vectorised 2x2
// float kernels of umeyama; they are not in this file's code.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Warray-bounds"
#pragma GCC diagnostic ignored "-Wstringop-overread"
#endif
#include <Eigen/Dense>
#include <Eigen/Geometry>

#include <cmath>
#include <map>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

using namespace math;

namespace {

template <class T>
struct Pairs {
    std::vector<Cpoint2<T>> src, dst;
};

template <class T>
Pairs<T> const& pairData(std::size_t n) {
    static std::map<std::size_t, Pairs<T>> cache;
    Pairs<T>& d = cache[n];
    if (d.src.empty()) {
        std::mt19937_64 rng(21);
        std::uniform_real_distribution<double> u(950.0, 1050.0);
        std::normal_distribution<double> e(0.0, 1e-3);
        const double s = 1.00002, c = s * std::cos(0.3), sn = s * std::sin(0.3);
        d.src.resize(n);
        d.dst.resize(n);
        for (std::size_t i = 0; i < n; ++i) {
            const double x = u(rng), y = u(rng);
            d.src[i] = Cpoint2<T>(T(x), T(y));
            d.dst[i] = Cpoint2<T>(T(25.4 + c * x - sn * y + e(rng)), T(-12.7 + sn * x + c * y + e(rng)));
        }
    }
    return d;
}

template <class T>
std::vector<Cpoint3<T>> const& cloud(std::size_t n) {
    static std::map<std::size_t, std::vector<Cpoint3<T>>> cache;
    auto& v = cache[n];
    if (v.empty()) {
        std::mt19937_64 rng(22);
        std::uniform_real_distribution<double> u(-100.0, 100.0);
        v.resize(n);
        for (auto& p : v) p = Cpoint3<T>(T(1000 + u(rng)), T(500 + u(rng)), T(u(rng)));
    }
    return v;
}

template <class T>
using Mat2X = Eigen::Matrix<T, 2, Eigen::Dynamic>;
template <class T>
using Mat3X = Eigen::Matrix<T, 3, Eigen::Dynamic>;

template <class T>
const char* tname() {
    return std::is_same<T, float>::value ? "float" : "double";
}

template <class F>
void reg(std::string const& name, F f) {
    benchmark::RegisterBenchmark(name.c_str(), f);
}

template <class T, class Est>
void estimatorCase(const char* op, std::size_t n) {
    const std::string base = std::string("BM_") + op + "<" + tname<T>() + ">/" + std::to_string(n) + "/";
    reg(base + "metromath", [n](benchmark::State& st) {
        Pairs<T> const& d = pairData<T>(n);
        Est est;
        est.setAll(d.src, d.dst);  // a reused estimator: storage sized once
        for (auto _ : st) {
            est.setAll(d.src, d.dst);
            CtransPrm2<T> p = est.transform();
            benchmark::DoNotOptimize(p);
        }
        st.SetItemsProcessed(st.iterations() * int64_t(n));
    });
    reg(base + "eigen", [n](benchmark::State& st) {
        Pairs<T> const& d = pairData<T>(n);
        const Eigen::Map<const Mat2X<T>> S(&d.src[0].x, 2, Eigen::Index(n)), D(&d.dst[0].x, 2, Eigen::Index(n));
        for (auto _ : st) {
            Eigen::Matrix<T, 3, 3> M = Eigen::umeyama(S, D, true);
            benchmark::DoNotOptimize(M);
        }
        st.SetItemsProcessed(st.iterations() * int64_t(n));
    });
    reg(base + "limit", [n](benchmark::State& st) {
        Pairs<T> const& d = pairData<T>(n);
        for (auto _ : st) {
            double sx = 0, sy = 0, tx = 0, ty = 0;
            for (std::size_t i = 0; i < n; ++i) {
                sx += d.src[i].x, sy += d.src[i].y, tx += d.dst[i].x, ty += d.dst[i].y;
            }
            benchmark::DoNotOptimize(sx + sy + tx + ty);
        }
        st.SetItemsProcessed(st.iterations() * int64_t(n));
    });
}

template <class T>
void transformerCases(std::size_t n) {
    Eigen::Matrix<double, 3, 3> Rd = Eigen::AngleAxisd(0.7, Eigen::Vector3d(1, 2, 3).normalized()).toRotationMatrix();
    const Eigen::Matrix<T, 3, 3> R = Rd.cast<T>();
    Cmatrix<T> M(3, 3);
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) M(i, j) = R(i, j);
    const Cpoint3<T> c(T(1000), T(500), T(0));
    const Eigen::Matrix<T, 3, 1> ce(c.x, c.y, c.z);
    const std::string sz = std::string("<") + tname<T>() + ">/" + std::to_string(n) + "/";
    for (int dir = 0; dir < 2; ++dir) {
        const std::string op = dir == 0 ? "BM_transformTo" : "BM_transformFrom";
        reg(op + sz + "metromath", [=](benchmark::State& st) {
            auto const& in = cloud<T>(n);
            std::vector<Cpoint3<T>> out(n);  // a reused output vector
            for (auto _ : st) {
                if (dir == 0)
                    Ctransformer<T>::transformTo(M, in, out, c);
                else
                    Ctransformer<T>::transformFrom(M, in, out, c);
                benchmark::DoNotOptimize(out.data());
            }
            st.SetItemsProcessed(st.iterations() * int64_t(n));
        });
        auto eigen = [=](benchmark::State& st) {
            auto const& in = cloud<T>(n);
            const Eigen::Map<const Mat3X<T>> P(&in[0].x, 3, Eigen::Index(n));
            Mat3X<T> out(3, Eigen::Index(n));
            for (auto _ : st) {
                if (dir == 0)
                    out.noalias() = R * (P.colwise() - ce);
                else
                    out.noalias() = (R.transpose() * P).colwise() + ce;
                benchmark::DoNotOptimize(out.data());
            }
            st.SetItemsProcessed(st.iterations() * int64_t(n));
        };
        auto limit = [=](benchmark::State& st) {
            auto const& in = cloud<T>(n);
            for (auto _ : st) {
                double s = 0;
                for (auto const& p : in) s += double(p.x) + double(p.y) + double(p.z);
                benchmark::DoNotOptimize(s);
            }
            st.SetItemsProcessed(st.iterations() * int64_t(n));
        };
        reg(op + sz + "eigen", eigen);
        reg(op + sz + "limit", limit);
    }
    // In place: into the local frame and back per iteration (keeps the data bounded).
    reg("BM_transformInPlace" + sz + "metromath", [=](benchmark::State& st) {
        std::vector<Cpoint3<T>> v = cloud<T>(n);
        for (auto _ : st) {
            Ctransformer<T>::transformTo(M, v, c);
            Ctransformer<T>::transformFrom(M, v, c);
            benchmark::DoNotOptimize(v.data());
        }
        st.SetItemsProcessed(2 * st.iterations() * int64_t(n));
    });
    reg("BM_transformInPlace" + sz + "eigen", [=](benchmark::State& st) {
        std::vector<Cpoint3<T>> v = cloud<T>(n);
        Eigen::Map<Mat3X<T>> P(&v[0].x, 3, Eigen::Index(n));
        for (auto _ : st) {
            P = R * (P.colwise() - ce);  // Eigen evaluates the product into a temporary
            P = (R.transpose() * P).colwise() + ce;
            benchmark::DoNotOptimize(v.data());
        }
        st.SetItemsProcessed(2 * st.iterations() * int64_t(n));
    });
    reg("BM_transformInPlace" + sz + "limit", [=](benchmark::State& st) {
        auto const& in = cloud<T>(n);
        for (auto _ : st) {
            for (int k = 0; k < 2; ++k) {
                double s = 0;
                for (auto const& p : in) s += double(p.x) + double(p.y) + double(p.z);
                benchmark::DoNotOptimize(s);
            }
        }
        st.SetItemsProcessed(2 * st.iterations() * int64_t(n));
    });
}

}  // namespace

int main(int argc, char** argv) {
    for (std::size_t n : {1000u, 10000u, 100000u, 1000000u}) {
        estimatorCase<float, Ctrans2_Helmert<float>>("helmert", n);
        estimatorCase<double, Ctrans2_Helmert<double>>("helmert", n);
        estimatorCase<float, Ctrans2_Affine<float>>("affine", n);
        estimatorCase<double, Ctrans2_Affine<double>>("affine", n);
    }
    transformerCases<float>(1000000);
    transformerCases<double>(1000000);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
