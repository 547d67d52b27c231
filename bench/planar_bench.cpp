// Planar geometry beside OpenCV on the same data.
//
// Names follow bench/run: BM_<op><<type>>/<arguments>/<impl>, impl one of
//   metromath   this library
//   opencv      cv::convexHull / cv::pointPolygonTest (when installed), one thread
//   limit       one streaming pass that only sums the coordinates of the input
//   monotone    the textbook monotone chain (sort by x, two chains, rounded
//               cross products) on a copy of the same points
// Cases:
//   BM_convexHull<T>/1000000         CcvxHull2D<T> (interior filter, then Graham
//                                    scan) of 10^6 random points in a disc;
//                                    OpenCV and the monotone chain on the same points
//   BM_convexPoly<float>/1000000     Cpolygon2<float>::convexPoly(pts, false)
//                                    (monotone chain) on the same points
//   BM_pointInConvex<float>/1000/1000000   10^6 queries on a regular 1000-gon
//                                    (classified convex: angle table, O(log n))
//   BM_pointInConcave<float>/1000/1000000  10^6 queries on a 1000-vertex star
//                                    (winding number, O(n)); OpenCV's test is
//                                    O(n) for both polygons
// Every hull benchmark includes copying the input, as both libraries leave the
// caller's points unchanged and work on their own copy.
#include <math/convex_hull.h>
#include <math/polygon.h>

#include <benchmark/benchmark.h>

#ifdef METROMATH_HAVE_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

using math::CcvxHull2D;
using math::Cpoint2;
using math::Cpolygon2;
using math::Cvector2;

constexpr unsigned kPoints = 1000000;
constexpr unsigned kVertices = 1000;
constexpr double kPi = 3.141592653589793;

template <class T>
const char* typeName() {
    return std::is_same<T, int>::value ? "int" : (sizeof(T) == 4 ? "float" : "double");
}

void reg(std::string const& op, char const* type, std::string const& args, char const* impl,
         std::function<void(benchmark::State&)> f) {
    const std::string name = "BM_" + op + "<" + type + ">/" + args + "/" + impl;
    benchmark::RegisterBenchmark(name.c_str(), f)->Unit(benchmark::kMillisecond);
}

// ---------------------------------------------------------------------------
// Convex hull of 10^6 random points
// ---------------------------------------------------------------------------
template <class T>
struct HullData {
    std::vector<Cvector2<T>> v;
    std::vector<Cpoint2<T>> p;
#ifdef METROMATH_HAVE_OPENCV
    std::vector<cv::Point_<T>> cvp;
#endif
    HullData() {
        std::mt19937 rng(42);
        std::uniform_real_distribution<double> u(-1000, 1000);
        v.reserve(kPoints);
        while (v.size() < kPoints) {
            // Uniform in the disc of radius 1000.
            const double a = u(rng), b = u(rng);
            if (a * a + b * b > 1e6) continue;
            const T x = static_cast<T>(a), y = static_cast<T>(b);
            v.emplace_back(x, y);
            p.emplace_back(x, y);
#ifdef METROMATH_HAVE_OPENCV
            cvp.emplace_back(x, y);
#endif
        }
    }
};

template <class T>
void hullOurs(benchmark::State& st, std::shared_ptr<HullData<T>> d) {
    for (auto _ : st) {
        CcvxHull2D<T> h(d->v);
        benchmark::DoNotOptimize(h.points().data());
    }
    st.counters["corners"] = double(CcvxHull2D<T>(d->v).points().size());
}

template <class T>
void convexPolyOurs(benchmark::State& st, std::shared_ptr<HullData<T>> d) {
    for (auto _ : st) {
        Cpolygon2<T> h = Cpolygon2<T>::convexPoly(d->p, false);
        benchmark::DoNotOptimize(h.points().data());
    }
    st.counters["corners"] = double(Cpolygon2<T>::convexPoly(d->p, false).size());
}

template <class T>
void hullLimit(benchmark::State& st, std::shared_ptr<HullData<T>> d) {
    for (auto _ : st) {
        T sx = 0, sy = 0;
        for (auto const& q : d->v) {
            sx += q.x;
            sy += q.y;
        }
        benchmark::DoNotOptimize(sx);
        benchmark::DoNotOptimize(sy);
    }
}

// The textbook monotone chain (Andrew): sort by (x, y), lower and upper
// chains with a plain cross product; on a copy of the input, as ours.
template <class T>
void hullMonotone(benchmark::State& st, std::shared_ptr<HullData<T>> d) {
    std::size_t corners = 0;
    for (auto _ : st) {
        std::vector<Cvector2<T>> p = d->v;
        std::sort(p.begin(), p.end(), [](Cvector2<T> const& a, Cvector2<T> const& b) {
            return a.x < b.x || (a.x == b.x && a.y < b.y);
        });
        std::vector<Cvector2<T>> h(2 * p.size());
        const auto cross = [](Cvector2<T> const& o, Cvector2<T> const& a, Cvector2<T> const& b) {
            return (double(a.x) - o.x) * (double(b.y) - o.y) - (double(a.y) - o.y) * (double(b.x) - o.x);
        };
        std::size_t k = 0;
        for (std::size_t i = 0; i < p.size(); ++i) {
            while (k >= 2 && cross(h[k - 2], h[k - 1], p[i]) <= 0) --k;
            h[k++] = p[i];
        }
        for (std::size_t i = p.size() - 1, t = k + 1; i > 0; --i) {
            while (k >= t && cross(h[k - 2], h[k - 1], p[i - 1]) <= 0) --k;
            h[k++] = p[i - 1];
        }
        corners = k - 1;
        benchmark::DoNotOptimize(h.data());
    }
    st.counters["corners"] = double(corners);
}

#ifdef METROMATH_HAVE_OPENCV
template <class T>
void hullCv(benchmark::State& st, std::shared_ptr<HullData<T>> d) {
    std::vector<cv::Point_<T>> out;
    for (auto _ : st) {
        cv::convexHull(d->cvp, out, false, true);
        benchmark::DoNotOptimize(out.data());
    }
    st.counters["corners"] = double(out.size());
}
#endif

template <class T>
void registerHull() {
    auto d = std::make_shared<HullData<T>>();
    const std::string n = std::to_string(kPoints);
    reg("convexHull", typeName<T>(), n, "metromath", [d](benchmark::State& st) { hullOurs<T>(st, d); });
    reg("convexHull", typeName<T>(), n, "limit", [d](benchmark::State& st) { hullLimit<T>(st, d); });
    reg("convexHull", typeName<T>(), n, "monotone", [d](benchmark::State& st) { hullMonotone<T>(st, d); });
#ifdef METROMATH_HAVE_OPENCV
    // OpenCV's hull takes int and float points only.
    if constexpr (!std::is_same<T, double>::value)
        reg("convexHull", typeName<T>(), n, "opencv", [d](benchmark::State& st) { hullCv<T>(st, d); });
#endif
    if constexpr (std::is_same<T, float>::value) {
        reg("convexPoly", typeName<T>(), n, "metromath", [d](benchmark::State& st) { convexPolyOurs<T>(st, d); });
        reg("convexPoly", typeName<T>(), n, "limit", [d](benchmark::State& st) { hullLimit<T>(st, d); });
#ifdef METROMATH_HAVE_OPENCV
        reg("convexPoly", typeName<T>(), n, "opencv", [d](benchmark::State& st) { hullCv<T>(st, d); });
#endif
    }
}

// ---------------------------------------------------------------------------
// 10^6 point-in-polygon queries
// ---------------------------------------------------------------------------
struct PipData {
    Cpolygon2<float> poly;
    std::vector<Cpoint2<float>> queries;
#ifdef METROMATH_HAVE_OPENCV
    std::vector<cv::Point2f> contour;
    std::vector<cv::Point2f> cvQueries;
#endif
    explicit PipData(bool convex) {
        std::vector<Cpoint2<float>> v;
        for (unsigned i = 0; i < kVertices; ++i) {
            const double a = 2 * kPi * i / kVertices;
            const double r = convex ? 100.0 : (i % 2 ? 60.0 : 100.0);
            v.emplace_back(float(r * std::cos(a)), float(r * std::sin(a)));
        }
        poly.set(v);
        poly.preprocess();
        std::mt19937 rng(7);
        std::uniform_real_distribution<double> u(-110, 110);
        for (unsigned i = 0; i < kPoints; ++i) queries.emplace_back(float(u(rng)), float(u(rng)));
#ifdef METROMATH_HAVE_OPENCV
        for (auto const& p : poly.points()) contour.emplace_back(p.x, p.y);
        for (auto const& q : queries) cvQueries.emplace_back(q.x, q.y);
#endif
    }
};

void pipOurs(benchmark::State& st, std::shared_ptr<PipData> d) {
    std::size_t in = 0;
    for (auto _ : st) {
        in = 0;
        for (auto const& q : d->queries) in += d->poly.pointIsIn(q);
        benchmark::DoNotOptimize(in);
    }
    st.counters["inside"] = double(in);
    st.counters["type"] = double(d->poly.type());
}

void pipLimit(benchmark::State& st, std::shared_ptr<PipData> d) {
    for (auto _ : st) {
        float sx = 0, sy = 0;
        for (auto const& q : d->queries) {
            sx += q.x;
            sy += q.y;
        }
        benchmark::DoNotOptimize(sx);
        benchmark::DoNotOptimize(sy);
    }
}

#ifdef METROMATH_HAVE_OPENCV
void pipCv(benchmark::State& st, std::shared_ptr<PipData> d) {
    std::size_t in = 0;
    for (auto _ : st) {
        in = 0;
        for (auto const& q : d->cvQueries) in += cv::pointPolygonTest(d->contour, q, false) >= 0;
        benchmark::DoNotOptimize(in);
    }
    st.counters["inside"] = double(in);
}
#endif

void registerPip(bool convex) {
    auto d = std::make_shared<PipData>(convex);
    const char* op = convex ? "pointInConvex" : "pointInConcave";
    const std::string args = std::to_string(kVertices) + "/" + std::to_string(kPoints);
    reg(op, "float", args, "metromath", [d](benchmark::State& st) { pipOurs(st, d); });
    reg(op, "float", args, "limit", [d](benchmark::State& st) { pipLimit(st, d); });
#ifdef METROMATH_HAVE_OPENCV
    reg(op, "float", args, "opencv", [d](benchmark::State& st) { pipCv(st, d); });
#endif
}

}  // namespace

int main(int argc, char** argv) {
#ifdef METROMATH_HAVE_OPENCV
    cv::setNumThreads(1);  // every implementation on one core
#endif
    registerHull<float>();
    registerHull<int>();
    registerHull<double>();
    registerPip(true);
    registerPip(false);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
