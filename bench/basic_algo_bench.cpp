// Benchmarks of the medians of BasicAlgo<T> on 10^6 values.
//
// Every case copies its input once per iteration (the library's medians
// select on a copy, stdmedian and medianmittel work in place), and the peer
// does the same copy:
//   median (vector, list), medianSorted  beside a copy + std::nth_element
//   stdmedian                            beside a copy + std::nth_element for
//                                        the upper middle + std::max_element
//                                        over the lower half (the mean of both),
//                                        and beside a copy + std::sort (its
//                                        floor: it must leave v sorted)
//   medianmittel                         beside a copy + std::sort (its floor:
//                                        it sorts once)
// Names: BM_<op><type>/<n>/<impl>, see bench/run.
#include <math/basic_algo.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <list>
#include <memory>
#include <random>
#include <string>
#include <vector>

using math::BasicAlgo;

namespace {

template <class T>
std::vector<T> data(std::size_t n, bool sorted) {
    std::mt19937_64 rng(31);
    std::normal_distribution<double> g(100.0, 5.0);
    std::vector<T> v(n);
    for (T& x : v) x = static_cast<T>(g(rng));
    if (sorted) std::sort(v.begin(), v.end());
    return v;
}

template <class T>
T nthElementMedian(std::vector<T> const& v) {
    std::vector<T> w(v);
    const auto mid = w.begin() + static_cast<std::ptrdiff_t>((w.size() + 1) / 2 - 1);
    std::nth_element(w.begin(), mid, w.end());
    return *mid;
}

template <class T>
const char* typeName() {
    return sizeof(T) == 4 ? "float" : "double";
}

template <class F>
void reg(std::string const& op, char const* type, std::size_t n, char const* impl, F f) {
    const std::string name = "BM_" + op + "<" + type + ">/" + std::to_string(n) + "/" + impl;
    benchmark::RegisterBenchmark(name.c_str(), f)->Unit(benchmark::kMillisecond);
}

template <class T>
void registerType(std::size_t n) {
    const char* t = typeName<T>();
    auto v = std::make_shared<std::vector<T>>(data<T>(n, false));
    auto s = std::make_shared<std::vector<T>>(data<T>(n, true));
    auto l = std::make_shared<std::list<T>>(v->begin(), v->end());

    reg("median", t, n, "metromath", [v](benchmark::State& st) {
        for (auto _ : st) benchmark::DoNotOptimize(BasicAlgo<T>::median(*v));
    });
    reg("median", t, n, "nth_element", [v](benchmark::State& st) {
        for (auto _ : st) benchmark::DoNotOptimize(nthElementMedian(*v));
    });
    reg("medianSorted", t, n, "metromath", [s](benchmark::State& st) {
        for (auto _ : st) benchmark::DoNotOptimize(BasicAlgo<T>::median(*s));
    });
    reg("medianSorted", t, n, "nth_element", [s](benchmark::State& st) {
        for (auto _ : st) benchmark::DoNotOptimize(nthElementMedian(*s));
    });
    reg("medianList", t, n, "metromath", [l](benchmark::State& st) {
        for (auto _ : st) benchmark::DoNotOptimize(BasicAlgo<T>::median(*l));
    });
    reg("medianList", t, n, "nth_element", [l](benchmark::State& st) {
        for (auto _ : st) {
            std::vector<T> w(l->begin(), l->end());
            const auto mid = w.begin() + static_cast<std::ptrdiff_t>((w.size() + 1) / 2 - 1);
            std::nth_element(w.begin(), mid, w.end());
            benchmark::DoNotOptimize(*mid);
        }
    });
    reg("stdmedian", t, n, "metromath", [v](benchmark::State& st) {
        std::vector<T> w;
        for (auto _ : st) {
            w = *v;
            benchmark::DoNotOptimize(BasicAlgo<T>::stdmedian(w));
        }
    });
    reg("stdmedian", t, n, "nth_element", [v](benchmark::State& st) {
        std::vector<T> w;
        for (auto _ : st) {
            w = *v;
            const auto mid = w.begin() + static_cast<std::ptrdiff_t>(w.size() / 2);
            std::nth_element(w.begin(), mid, w.end());
            T m = *mid;
            if (w.size() % 2 == 0) m = (*std::max_element(w.begin(), mid) + m) * T(0.5);
            benchmark::DoNotOptimize(m);
        }
    });
    reg("stdmedian", t, n, "sort", [v](benchmark::State& st) {
        std::vector<T> w;
        for (auto _ : st) {
            w = *v;
            std::sort(w.begin(), w.end());
            benchmark::DoNotOptimize(w[w.size() / 2]);
        }
    });
    reg("medianmittel", t, n, "metromath", [v](benchmark::State& st) {
        std::vector<T> w;
        for (auto _ : st) {
            w = *v;
            benchmark::DoNotOptimize(BasicAlgo<T>::medianmittel(w));
        }
    });
    reg("medianmittel", t, n, "sort", [v](benchmark::State& st) {
        std::vector<T> w;
        for (auto _ : st) {
            w = *v;
            std::sort(w.begin(), w.end());
            benchmark::DoNotOptimize(w[w.size() / 2]);
        }
    });
}

}  // namespace

int main(int argc, char** argv) {
    registerType<float>(1000000);
    registerType<double>(1000000);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
