// Benchmarks of the fits of approximate<T> on 10^3, 10^5 and 10^6 points.
//
// Beside every fit run, on the same data:
//  - a limit kernel: one streaming pass that only sums the coordinates (in
//    double, in point order, as the fits do), the least any fit must do;
//  - the peer doing the same job: OpenCV fitLine (DIST_L2) for the orthogonal
//    lines, a covariance pass plus Eigen's SelfAdjointEigenSolver for the
//    plane (as point-cloud libraries fit planes), and a Kasa circle fit
//    written with Eigen for the algebraic circle.
//
// Names: <family>/<variant>/<n>.  Compare a fit with Limit2/Limit3 and with
// its peer of the same n.
#include <math/approximate.h>

#include <benchmark/benchmark.h>

#include <Eigen/Dense>

#ifdef METROMATH_HAVE_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

#include <cmath>
#include <map>
#include <random>
#include <vector>

using namespace math;

namespace {

// ---------------------------------------------------------------------------
// Data: realistic measurement clouds in millimetres, cached per size.
// ---------------------------------------------------------------------------

// Points of a line 1000 mm from the origin, 100 mm long, 1 um noise.
template <class T>
std::vector<Cpoint2<T>> const& line2Data(std::size_t n) {
    static std::map<std::size_t, std::vector<Cpoint2<T>>> cache;
    auto& v = cache[n];
    if (v.empty()) {
        std::mt19937_64 rng(11);
        std::uniform_real_distribution<double> t(-50.0, 50.0);
        std::normal_distribution<double> e(0.0, 1e-3);
        v.resize(n);
        const double dx = std::cos(0.3), dy = std::sin(0.3);
        for (auto& p : v) {
            const double s = t(rng), o = e(rng);
            p = Cpoint2<T>(static_cast<T>(1000.0 + s * dx - o * dy), static_cast<T>(500.0 + s * dy + o * dx));
        }
    }
    return v;
}

// A full circle of radius 10 mm about (1000, 2000), 1 um noise.
template <class T>
std::vector<Cpoint2<T>> const& circleData(std::size_t n) {
    static std::map<std::size_t, std::vector<Cpoint2<T>>> cache;
    auto& v = cache[n];
    if (v.empty()) {
        std::mt19937_64 rng(12);
        std::uniform_real_distribution<double> a(0.0, 6.283185307179586);
        std::normal_distribution<double> e(0.0, 1e-3);
        v.resize(n);
        for (auto& p : v) {
            const double phi = a(rng), r = 10.0 + e(rng);
            p = Cpoint2<T>(static_cast<T>(1000.0 + r * std::cos(phi)), static_cast<T>(2000.0 + r * std::sin(phi)));
        }
    }
    return v;
}

// A spatial line through (100, 200, 300), 100 mm long, 1 um noise.
template <class T>
std::vector<Cpoint3<T>> const& line3Data(std::size_t n) {
    static std::map<std::size_t, std::vector<Cpoint3<T>>> cache;
    auto& v = cache[n];
    if (v.empty()) {
        std::mt19937_64 rng(13);
        std::uniform_real_distribution<double> t(-50.0, 50.0);
        std::normal_distribution<double> e(0.0, 1e-3);
        v.resize(n);
        for (auto& p : v) {
            const double s = t(rng);
            p = Cpoint3<T>(static_cast<T>(100.0 + 0.48 * s + e(rng)), static_cast<T>(200.0 + 0.6 * s + e(rng)),
                           static_cast<T>(300.0 + 0.64 * s + e(rng)));
        }
    }
    return v;
}

// A tilted plane patch 100 x 60 mm about (100, 200, 300), 1 um noise.
template <class T>
std::vector<Cpoint3<T>> const& planeData(std::size_t n) {
    static std::map<std::size_t, std::vector<Cpoint3<T>>> cache;
    auto& v = cache[n];
    if (v.empty()) {
        std::mt19937_64 rng(14);
        std::uniform_real_distribution<double> a(-50.0, 50.0), b(-30.0, 30.0);
        std::normal_distribution<double> e(0.0, 1e-3);
        v.resize(n);
        for (auto& p : v) {
            const double x = a(rng), y = b(rng);
            p = Cpoint3<T>(static_cast<T>(100.0 + x), static_cast<T>(200.0 + y),
                           static_cast<T>(300.0 + 0.2 * x - 0.1 * y + e(rng)));
        }
    }
    return v;
}

// A sphere of radius 10 mm about (3, -2, 5), full sphere, 1 um noise.
template <class T>
std::vector<Cpoint3<T>> const& sphereData(std::size_t n) {
    static std::map<std::size_t, std::vector<Cpoint3<T>>> cache;
    auto& v = cache[n];
    if (v.empty()) {
        std::mt19937_64 rng(15);
        std::normal_distribution<double> g(0.0, 1.0);
        std::normal_distribution<double> e(0.0, 1e-3);
        v.resize(n);
        for (auto& p : v) {
            double x = g(rng), y = g(rng), z = g(rng);
            const double r = (10.0 + e(rng)) / std::sqrt(x * x + y * y + z * z);
            x *= r;
            y *= r;
            z *= r;
            p = Cpoint3<T>(static_cast<T>(3.0 + x), static_cast<T>(-2.0 + y), static_cast<T>(5.0 + z));
        }
    }
    return v;
}

void setCounters(benchmark::State& st, std::size_t n) {
    st.SetItemsProcessed(static_cast<int64_t>(st.iterations()) * static_cast<int64_t>(n));
}

// ---------------------------------------------------------------------------
// Limit kernels: one streaming pass summing the coordinates in double.
// ---------------------------------------------------------------------------

template <class T>
void Limit2(benchmark::State& st) {
    auto const& pts = line2Data<T>(static_cast<std::size_t>(st.range(0)));
    for (auto _ : st) {
        double sx = 0.0, sy = 0.0;
        for (Cpoint2<T> const& p : pts) {
            sx += static_cast<double>(p.x);
            sy += static_cast<double>(p.y);
        }
        benchmark::DoNotOptimize(sx);
        benchmark::DoNotOptimize(sy);
    }
    setCounters(st, pts.size());
}

template <class T>
void Limit3(benchmark::State& st) {
    auto const& pts = line3Data<T>(static_cast<std::size_t>(st.range(0)));
    for (auto _ : st) {
        double sx = 0.0, sy = 0.0, sz = 0.0;
        for (Cpoint3<T> const& p : pts) {
            sx += static_cast<double>(p.x);
            sy += static_cast<double>(p.y);
            sz += static_cast<double>(p.z);
        }
        benchmark::DoNotOptimize(sx);
        benchmark::DoNotOptimize(sy);
        benchmark::DoNotOptimize(sz);
    }
    setCounters(st, pts.size());
}

// ---------------------------------------------------------------------------
// The library's fits.
// ---------------------------------------------------------------------------

template <class T>
void LineLsq(benchmark::State& st) {
    auto const& pts = line2Data<T>(static_cast<std::size_t>(st.range(0)));
    Cline2<T> line;
    for (auto _ : st) {
        benchmark::DoNotOptimize(approximate<T>::fitLineLsq(pts, line));
        benchmark::ClobberMemory();
    }
    setCounters(st, pts.size());
}

template <class T>
void LineGeom2(benchmark::State& st) {
    auto const& pts = line2Data<T>(static_cast<std::size_t>(st.range(0)));
    Cline2<T> line;
    for (auto _ : st) {
        approximate<T>::fitLineGeom(pts, line);
        benchmark::DoNotOptimize(line);
        benchmark::ClobberMemory();
    }
    setCounters(st, pts.size());
}

template <class T>
void LineGeom2Rec(benchmark::State& st) {
    auto const& pts = line2Data<T>(static_cast<std::size_t>(st.range(0)));
    Cline2<T> line;
    CqLineGeom2DStdAbw<T> rec;
    for (auto _ : st) {
        approximate<T>::fitLineGeom(pts, line, rec);
        benchmark::DoNotOptimize(line);
        benchmark::DoNotOptimize(rec);
        benchmark::ClobberMemory();
    }
    setCounters(st, pts.size());
}

template <class T>
void StdAbwLine(benchmark::State& st) {
    auto const& pts = line2Data<T>(static_cast<std::size_t>(st.range(0)));
    Cline2<T> line;
    approximate<T>::fitLineGeom(pts, line);
    for (auto _ : st) benchmark::DoNotOptimize(approximate<T>::StdAbwLine2(pts, line));
    setCounters(st, pts.size());
}

template <class T>
void CircleLsq(benchmark::State& st) {
    auto const& pts = circleData<T>(static_cast<std::size_t>(st.range(0)));
    Ccircle2<T> c;
    for (auto _ : st) {
        approximate<T>::fitCircleLsq(pts, c);
        benchmark::DoNotOptimize(c);
        benchmark::ClobberMemory();
    }
    setCounters(st, pts.size());
}

template <class T>
void CircleLsqBeta(benchmark::State& st) {
    auto const& pts = circleData<T>(static_cast<std::size_t>(st.range(0)));
    Ccircle2<T> c;
    for (auto _ : st) {
        approximate<T>::fitCircleLsqBeta(pts, c);
        benchmark::DoNotOptimize(c);
        benchmark::ClobberMemory();
    }
    setCounters(st, pts.size());
}

template <class T>
void StdAbwCircle(benchmark::State& st) {
    auto const& pts = circleData<T>(static_cast<std::size_t>(st.range(0)));
    const Ccircle2<T> c(Cpoint2<T>(T(1000), T(2000)), T(10));
    for (auto _ : st) benchmark::DoNotOptimize(approximate<T>::StdAbwCircle2(pts, c));
    setCounters(st, pts.size());
}

template <class T>
void SphereLsq(benchmark::State& st) {
    auto const& pts = sphereData<T>(static_cast<std::size_t>(st.range(0)));
    Csphere3<T> s;
    for (auto _ : st) {
        approximate<T>::fitSphereLsq(pts, s);
        benchmark::DoNotOptimize(s);
        benchmark::ClobberMemory();
    }
    setCounters(st, pts.size());
}

template <class T>
void StdAbwSphere(benchmark::State& st) {
    auto const& pts = sphereData<T>(static_cast<std::size_t>(st.range(0)));
    const Csphere3<T> s(Cpoint3<T>(T(3), T(-2), T(5)), T(10));
    for (auto _ : st) benchmark::DoNotOptimize(approximate<T>::StdAbwSphere(pts, s));
    setCounters(st, pts.size());
}

template <class T>
void LineGeom3(benchmark::State& st) {
    auto const& pts = line3Data<T>(static_cast<std::size_t>(st.range(0)));
    Cline3<T> line;
    for (auto _ : st) {
        approximate<T>::fitLineGeom(pts, line);
        benchmark::DoNotOptimize(line);
        benchmark::ClobberMemory();
    }
    setCounters(st, pts.size());
}

template <class T>
void LineGeom3Rec(benchmark::State& st) {
    auto const& pts = line3Data<T>(static_cast<std::size_t>(st.range(0)));
    Cline3<T> line;
    CqLineGeom3DStdAbw<T> rec;
    for (auto _ : st) {
        approximate<T>::fitLineGeom(pts, line, rec);
        benchmark::DoNotOptimize(line);
        benchmark::DoNotOptimize(rec);
        benchmark::ClobberMemory();
    }
    setCounters(st, pts.size());
}

template <class T>
void PlaneGeom(benchmark::State& st) {
    auto const& pts = planeData<T>(static_cast<std::size_t>(st.range(0)));
    Cplane3<T> plane;
    for (auto _ : st) {
        approximate<T>::fitPlaneGeom(pts, plane);
        benchmark::DoNotOptimize(plane);
        benchmark::ClobberMemory();
    }
    setCounters(st, pts.size());
}

template <class T>
void PlaneGeomRec(benchmark::State& st) {
    auto const& pts = planeData<T>(static_cast<std::size_t>(st.range(0)));
    Cplane3<T> plane;
    CqPlaneGeomStdAbw<T> rec;
    for (auto _ : st) {
        approximate<T>::fitPlaneGeom(pts, plane, rec);
        benchmark::DoNotOptimize(plane);
        benchmark::DoNotOptimize(rec);
        benchmark::ClobberMemory();
    }
    setCounters(st, pts.size());
}

template <class T>
void PlaneGeomFast(benchmark::State& st) {
    auto const& pts = planeData<T>(static_cast<std::size_t>(st.range(0)));
    Cplane3<T> plane;
    const CqPlaneGeomFast<T> prm;
    for (auto _ : st) {
        approximate<T>::fitPlaneGeomFast(pts, plane, prm);
        benchmark::DoNotOptimize(plane);
        benchmark::ClobberMemory();
    }
    setCounters(st, pts.size());
}

// ---------------------------------------------------------------------------
// Peers
// ---------------------------------------------------------------------------

// Plane as point-cloud libraries fit it: one pass of raw sums (centroid and
// covariance) in double, then Eigen's SelfAdjointEigenSolver on the 3x3
// covariance; the normal is the eigenvector of the smallest eigenvalue.
template <class T>
void PeerPlaneEigen(benchmark::State& st) {
    auto const& pts = planeData<T>(static_cast<std::size_t>(st.range(0)));
    for (auto _ : st) {
        Eigen::Matrix<double, 9, 1> acc = Eigen::Matrix<double, 9, 1>::Zero();
        for (Cpoint3<T> const& p : pts) {
            const double x = p.x, y = p.y, z = p.z;
            acc[0] += x * x;
            acc[1] += x * y;
            acc[2] += x * z;
            acc[3] += y * y;
            acc[4] += y * z;
            acc[5] += z * z;
            acc[6] += x;
            acc[7] += y;
            acc[8] += z;
        }
        acc /= static_cast<double>(pts.size());
        const Eigen::Vector3d c(acc[6], acc[7], acc[8]);
        Eigen::Matrix3d cov;
        cov(0, 0) = acc[0] - c.x() * c.x();
        cov(0, 1) = acc[1] - c.x() * c.y();
        cov(0, 2) = acc[2] - c.x() * c.z();
        cov(1, 1) = acc[3] - c.y() * c.y();
        cov(1, 2) = acc[4] - c.y() * c.z();
        cov(2, 2) = acc[5] - c.z() * c.z();
        cov(1, 0) = cov(0, 1);
        cov(2, 0) = cov(0, 2);
        cov(2, 1) = cov(1, 2);
        Eigen::SelfAdjointEigenSolver<Eigen::Matrix3d> es(cov);
        const Eigen::Vector3d nrm = es.eigenvectors().col(0);
        const double d = -nrm.dot(c);
        benchmark::DoNotOptimize(nrm.data());
        benchmark::DoNotOptimize(d);
        benchmark::ClobberMemory();
    }
    setCounters(st, pts.size());
}

// Kasa circle fit written with Eigen: centre the points, solve the linear least
// squares problem [2u 2v 1] (a, b, c)^T = u^2 + v^2 through its normal equations
// (built with Eigen's matrix products), centre = mean + (a, b),
// r = sqrt(c + a^2 + b^2).
template <class T>
void PeerCircleKasaEigen(benchmark::State& st) {
    auto const& pts = circleData<T>(static_cast<std::size_t>(st.range(0)));
    const Eigen::Index n = static_cast<Eigen::Index>(pts.size());
    using Mat2X = Eigen::Matrix<T, 2, Eigen::Dynamic>;
    const Eigen::Map<const Mat2X> P(&pts[0].x, 2, n);
    for (auto _ : st) {
        const Eigen::Matrix<double, 2, Eigen::Dynamic> Q = P.template cast<double>();
        const Eigen::Vector2d mean = Q.rowwise().mean();
        Eigen::Matrix<double, 3, Eigen::Dynamic> A(3, n);
        A.topRows<2>() = (Q.colwise() - mean) * 2.0;
        A.row(2).setOnes();
        const Eigen::RowVectorXd b = 0.25 * A.topRows<2>().colwise().squaredNorm();
        const Eigen::Matrix3d N = A * A.transpose();
        const Eigen::Vector3d rhs = A * b.transpose();
        const Eigen::Vector3d s = N.ldlt().solve(rhs);
        const double cx = mean.x() + s[0], cy = mean.y() + s[1];
        const double r = std::sqrt(s[2] + s[0] * s[0] + s[1] * s[1]);
        benchmark::DoNotOptimize(cx);
        benchmark::DoNotOptimize(cy);
        benchmark::DoNotOptimize(r);
        benchmark::ClobberMemory();
    }
    setCounters(st, pts.size());
}

#ifdef METROMATH_HAVE_OPENCV
// cv::fitLine with DIST_L2 over the same points (float coordinates are read in
// place; OpenCV reads 2D/3D points of float).
void PeerLine2OpenCV(benchmark::State& st) {
    auto const& pts = line2Data<float>(static_cast<std::size_t>(st.range(0)));
    const cv::Mat m(static_cast<int>(pts.size()), 1, CV_32FC2, const_cast<Cpoint2<float>*>(pts.data()));
    cv::Vec4f line;
    for (auto _ : st) {
        cv::fitLine(m, line, cv::DIST_L2, 0, 0.01, 0.01);
        benchmark::DoNotOptimize(line);
        benchmark::ClobberMemory();
    }
    setCounters(st, pts.size());
}

void PeerLine3OpenCV(benchmark::State& st) {
    auto const& pts = line3Data<float>(static_cast<std::size_t>(st.range(0)));
    const cv::Mat m(static_cast<int>(pts.size()), 1, CV_32FC3, const_cast<Cpoint3<float>*>(pts.data()));
    cv::Vec6f line;
    for (auto _ : st) {
        cv::fitLine(m, line, cv::DIST_L2, 0, 0.01, 0.01);
        benchmark::DoNotOptimize(line);
        benchmark::ClobberMemory();
    }
    setCounters(st, pts.size());
}
#endif

}  // namespace

#define METROMATH_BENCH_SIZES ->Arg(1000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMicrosecond)

BENCHMARK_TEMPLATE(Limit2, double) METROMATH_BENCH_SIZES;
BENCHMARK_TEMPLATE(Limit2, float) METROMATH_BENCH_SIZES;
BENCHMARK_TEMPLATE(Limit3, double) METROMATH_BENCH_SIZES;
BENCHMARK_TEMPLATE(Limit3, float) METROMATH_BENCH_SIZES;

BENCHMARK_TEMPLATE(LineLsq, double) METROMATH_BENCH_SIZES;
BENCHMARK_TEMPLATE(LineLsq, float) METROMATH_BENCH_SIZES;
BENCHMARK_TEMPLATE(StdAbwLine, double) METROMATH_BENCH_SIZES;
BENCHMARK_TEMPLATE(LineGeom2, double) METROMATH_BENCH_SIZES;
BENCHMARK_TEMPLATE(LineGeom2, float) METROMATH_BENCH_SIZES;
BENCHMARK_TEMPLATE(LineGeom2Rec, double) METROMATH_BENCH_SIZES;
BENCHMARK_TEMPLATE(LineGeom2Rec, float) METROMATH_BENCH_SIZES;
#ifdef METROMATH_HAVE_OPENCV
BENCHMARK(PeerLine2OpenCV) METROMATH_BENCH_SIZES;
#endif

BENCHMARK_TEMPLATE(CircleLsq, double) METROMATH_BENCH_SIZES;
BENCHMARK_TEMPLATE(CircleLsq, float) METROMATH_BENCH_SIZES;
BENCHMARK_TEMPLATE(CircleLsqBeta, double) METROMATH_BENCH_SIZES;
BENCHMARK_TEMPLATE(StdAbwCircle, double) METROMATH_BENCH_SIZES;
BENCHMARK_TEMPLATE(PeerCircleKasaEigen, double) METROMATH_BENCH_SIZES;
BENCHMARK_TEMPLATE(PeerCircleKasaEigen, float) METROMATH_BENCH_SIZES;

BENCHMARK_TEMPLATE(SphereLsq, double) METROMATH_BENCH_SIZES;
BENCHMARK_TEMPLATE(SphereLsq, float) METROMATH_BENCH_SIZES;
BENCHMARK_TEMPLATE(StdAbwSphere, double) METROMATH_BENCH_SIZES;

BENCHMARK_TEMPLATE(LineGeom3, double) METROMATH_BENCH_SIZES;
BENCHMARK_TEMPLATE(LineGeom3, float) METROMATH_BENCH_SIZES;
BENCHMARK_TEMPLATE(LineGeom3Rec, double) METROMATH_BENCH_SIZES;
BENCHMARK_TEMPLATE(LineGeom3Rec, float) METROMATH_BENCH_SIZES;
#ifdef METROMATH_HAVE_OPENCV
BENCHMARK(PeerLine3OpenCV) METROMATH_BENCH_SIZES;
#endif

BENCHMARK_TEMPLATE(PlaneGeom, double) METROMATH_BENCH_SIZES;
BENCHMARK_TEMPLATE(PlaneGeom, float) METROMATH_BENCH_SIZES;
BENCHMARK_TEMPLATE(PlaneGeomRec, double) METROMATH_BENCH_SIZES;
BENCHMARK_TEMPLATE(PlaneGeomFast, double) METROMATH_BENCH_SIZES;
BENCHMARK_TEMPLATE(PlaneGeomFast, float) METROMATH_BENCH_SIZES;
BENCHMARK_TEMPLATE(PeerPlaneEigen, double) METROMATH_BENCH_SIZES;
BENCHMARK_TEMPLATE(PeerPlaneEigen, float) METROMATH_BENCH_SIZES;

BENCHMARK_MAIN();
