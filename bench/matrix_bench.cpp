// Dense matrix kernels beside their peers on the same data.
//
// Names follow the convention of bench/run: BM_<op><<type>>/<size>/<impl>,
// impl one of
//   metromath       Cmatrix<T>
//   eigen           Eigen::Matrix<T, Dynamic, Dynamic, RowMajor> (our layout)
//   eigen_colmajor  Eigen::Matrix<T, Dynamic, Dynamic> (Eigen's default layout)
//   opencv          cv::Mat (when OpenCV is installed), one thread
//   limit           a bare copy of the result's bytes into a new block: no
//                   kernel that writes a fresh result can beat it
// Every operation that returns a new matrix includes its allocation, for every
// implementation alike.  Sizes are square: 3, 4, 8, 64, 256.
#include <math/matrix.h>

#include <benchmark/benchmark.h>

#include <Eigen/Dense>

#ifdef METROMATH_HAVE_OPENCV
#include <opencv2/core.hpp>
#endif

#include <cstring>
#include <memory>
#include <random>
#include <string>

namespace {

using math::Cmatrix;

template <class T>
const char* typeName() {
    return sizeof(T) == 4 ? "float" : "double";
}

template <class T>
using EigenRM = Eigen::Matrix<T, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;
template <class T>
using EigenCM = Eigen::Matrix<T, Eigen::Dynamic, Eigen::Dynamic>;

// The same random n x n operands in every representation.
template <class T>
struct Operands {
    Cmatrix<T> a, b;
    EigenRM<T> ra, rb;
    EigenCM<T> ca, cb;
#ifdef METROMATH_HAVE_OPENCV
    cv::Mat oa, ob;
#endif
    explicit Operands(unsigned n) : a(n, n), b(n, n) {
        std::mt19937 rng(n);
        std::uniform_real_distribution<double> u(-1, 1);
        for (T& x : a) x = static_cast<T>(u(rng));
        for (T& x : b) x = static_cast<T>(u(rng));
        ra = Eigen::Map<const EigenRM<T>>(a.getBase(), n, n);
        rb = Eigen::Map<const EigenRM<T>>(b.getBase(), n, n);
        ca = ra;
        cb = rb;
#ifdef METROMATH_HAVE_OPENCV
        const int type = sizeof(T) == 4 ? CV_32F : CV_64F;
        oa = cv::Mat(static_cast<int>(n), static_cast<int>(n), type, a.getBase()).clone();
        ob = cv::Mat(static_cast<int>(n), static_cast<int>(n), type, b.getBase()).clone();
#endif
    }
};

// ---------------------------------------------------------------------------
// product C = A * B
// ---------------------------------------------------------------------------
template <class T>
void productOurs(benchmark::State& st, unsigned n) {
    Operands<T> d(n);
    for (auto _ : st) {
        Cmatrix<T> c = d.a * d.b;
        benchmark::DoNotOptimize(c.getBase());
    }
}
template <class T, class M>
void productEigen(benchmark::State& st, M const& a, M const& b) {
    for (auto _ : st) {
        M c = a * b;
        benchmark::DoNotOptimize(c.data());
    }
}

// ---------------------------------------------------------------------------
// transpose
// ---------------------------------------------------------------------------
template <class T>
void transpOurs(benchmark::State& st, unsigned n) {
    Operands<T> d(n);
    for (auto _ : st) {
        Cmatrix<T> t = d.a.transp();
        benchmark::DoNotOptimize(t.getBase());
    }
}
template <class T, class M>
void transpEigen(benchmark::State& st, M const& a) {
    for (auto _ : st) {
        M t = a.transpose();
        benchmark::DoNotOptimize(t.data());
    }
}

// ---------------------------------------------------------------------------
// C = A + B, A += B, A *= s
// ---------------------------------------------------------------------------
template <class T>
void addOurs(benchmark::State& st, unsigned n) {
    Operands<T> d(n);
    for (auto _ : st) {
        Cmatrix<T> c = d.a + d.b;
        benchmark::DoNotOptimize(c.getBase());
    }
}
template <class T, class M>
void addEigen(benchmark::State& st, M const& a, M const& b) {
    for (auto _ : st) {
        M c = a + b;
        benchmark::DoNotOptimize(c.data());
    }
}
template <class T>
void addAssignOurs(benchmark::State& st, unsigned n) {
    Operands<T> d(n);
    for (auto _ : st) {
        d.a += d.b;
        benchmark::DoNotOptimize(d.a.getBase());
        benchmark::ClobberMemory();
    }
}
template <class T, class M>
void addAssignEigen(benchmark::State& st, M a, M const& b) {
    for (auto _ : st) {
        a += b;
        benchmark::DoNotOptimize(a.data());
        benchmark::ClobberMemory();
    }
}
// The factor -1 keeps the values bounded (no overflow, no subnormals) while
// costing what any multiplication costs.
template <class T>
void scaleOurs(benchmark::State& st, unsigned n) {
    Operands<T> d(n);
    T s = T(-1);
    benchmark::DoNotOptimize(s);
    for (auto _ : st) {
        d.a *= s;
        benchmark::DoNotOptimize(d.a.getBase());
        benchmark::ClobberMemory();
    }
}
template <class T, class M>
void scaleEigen(benchmark::State& st, M a) {
    T s = T(-1);
    benchmark::DoNotOptimize(s);
    for (auto _ : st) {
        a *= s;
        benchmark::DoNotOptimize(a.data());
        benchmark::ClobberMemory();
    }
}

// A fresh result block filled by memcpy: the floor for + and transp.
template <class T>
void copyLimit(benchmark::State& st, unsigned n) {
    Operands<T> d(n);
    for (auto _ : st) {
        std::unique_ptr<T[]> c(new T[static_cast<std::size_t>(n) * n]);
        std::memcpy(c.get(), d.a.getBase(), d.a.byteSize());
        benchmark::DoNotOptimize(c.get());
    }
}

#ifdef METROMATH_HAVE_OPENCV
template <class T>
void productCv(benchmark::State& st, unsigned n) {
    Operands<T> d(n);
    for (auto _ : st) {
        cv::Mat c = d.oa * d.ob;
        benchmark::DoNotOptimize(c.data);
    }
}
template <class T>
void transpCv(benchmark::State& st, unsigned n) {
    Operands<T> d(n);
    for (auto _ : st) {
        cv::Mat t;
        cv::transpose(d.oa, t);
        benchmark::DoNotOptimize(t.data);
    }
}
template <class T>
void addCv(benchmark::State& st, unsigned n) {
    Operands<T> d(n);
    for (auto _ : st) {
        cv::Mat c;
        cv::add(d.oa, d.ob, c);
        benchmark::DoNotOptimize(c.data);
    }
}
template <class T>
void addAssignCv(benchmark::State& st, unsigned n) {
    Operands<T> d(n);
    for (auto _ : st) {
        cv::add(d.oa, d.ob, d.oa);
        benchmark::DoNotOptimize(d.oa.data);
        benchmark::ClobberMemory();
    }
}
template <class T>
void scaleCv(benchmark::State& st, unsigned n) {
    Operands<T> d(n);
    double s = -1;
    benchmark::DoNotOptimize(s);
    for (auto _ : st) {
        d.oa.convertTo(d.oa, -1, s);
        benchmark::DoNotOptimize(d.oa.data);
        benchmark::ClobberMemory();
    }
}
#endif

template <class F>
void reg(std::string const& op, char const* type, unsigned n, char const* impl, F f) {
    const std::string name = "BM_" + op + "<" + type + ">/" + std::to_string(n) + "/" + impl;
    benchmark::RegisterBenchmark(name.c_str(), f);
}

template <class T>
void registerType(unsigned n) {
    const char* t = typeName<T>();
    // Operands for the Eigen lambdas are built once per registration and kept
    // alive by the lambdas' shared pointers.
    auto d = std::make_shared<Operands<T>>(n);

    reg("product", t, n, "metromath", [n](benchmark::State& st) { productOurs<T>(st, n); });
    reg("product", t, n, "eigen", [d](benchmark::State& st) { productEigen<T>(st, d->ra, d->rb); });
    reg("product", t, n, "eigen_colmajor", [d](benchmark::State& st) { productEigen<T>(st, d->ca, d->cb); });

    reg("transp", t, n, "metromath", [n](benchmark::State& st) { transpOurs<T>(st, n); });
    reg("transp", t, n, "eigen", [d](benchmark::State& st) { transpEigen<T>(st, d->ra); });
    reg("transp", t, n, "eigen_colmajor", [d](benchmark::State& st) { transpEigen<T>(st, d->ca); });
    reg("transp", t, n, "limit", [n](benchmark::State& st) { copyLimit<T>(st, n); });

    reg("add", t, n, "metromath", [n](benchmark::State& st) { addOurs<T>(st, n); });
    reg("add", t, n, "eigen", [d](benchmark::State& st) { addEigen<T>(st, d->ra, d->rb); });
    reg("add", t, n, "eigen_colmajor", [d](benchmark::State& st) { addEigen<T>(st, d->ca, d->cb); });
    reg("add", t, n, "limit", [n](benchmark::State& st) { copyLimit<T>(st, n); });

    reg("add_assign", t, n, "metromath", [n](benchmark::State& st) { addAssignOurs<T>(st, n); });
    reg("add_assign", t, n, "eigen", [d](benchmark::State& st) { addAssignEigen<T>(st, d->ra, d->rb); });
    reg("add_assign", t, n, "eigen_colmajor", [d](benchmark::State& st) { addAssignEigen<T>(st, d->ca, d->cb); });

    reg("scale_assign", t, n, "metromath", [n](benchmark::State& st) { scaleOurs<T>(st, n); });
    reg("scale_assign", t, n, "eigen", [d](benchmark::State& st) { scaleEigen<T>(st, d->ra); });
    reg("scale_assign", t, n, "eigen_colmajor", [d](benchmark::State& st) { scaleEigen<T>(st, d->ca); });

#ifdef METROMATH_HAVE_OPENCV
    reg("product", t, n, "opencv", [n](benchmark::State& st) { productCv<T>(st, n); });
    reg("transp", t, n, "opencv", [n](benchmark::State& st) { transpCv<T>(st, n); });
    reg("add", t, n, "opencv", [n](benchmark::State& st) { addCv<T>(st, n); });
    reg("add_assign", t, n, "opencv", [n](benchmark::State& st) { addAssignCv<T>(st, n); });
    reg("scale_assign", t, n, "opencv", [n](benchmark::State& st) { scaleCv<T>(st, n); });
#endif
}

}  // namespace

int main(int argc, char** argv) {
#ifdef METROMATH_HAVE_OPENCV
    cv::setNumThreads(1);  // every implementation on one core
#endif
    for (unsigned n : {3u, 4u, 8u, 64u, 256u}) {
        registerType<float>(n);
        registerType<double>(n);
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
