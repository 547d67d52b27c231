// Benchmarks of the geometric ellipse fits on 10^3 .. 10^6 points beside Ceres.
//
// Data: an ellipse a = 10 mm, b = 6 mm, angle 0.5 rad about (1000, 2000) mm,
// points evenly spread in phase, 1 um Gaussian noise per coordinate.
//
// Cases (names BM_<fit><double>/<n>/<impl>):
//  - metromath: approximate<double>::fitEllipseGeom (Gauss-Newton on the
//    orthogonal distances) or fitEllipseGeomLM (Levenberg-Marquardt with one
//    phase per point, phases eliminated), default CqGeomFitPrm;
//  - ceres: the same phase model solved by Ceres (analytic 2x(5+1) cost
//    blocks, DENSE_SCHUR eliminating the phases, one thread) on the same
//    normalised data from the same start (the direct ellipse fit, recomputed
//    here with Eigen), tolerances set to those of CqGeomFitPrm.  The time
//    includes building the problem, as a user pays it.
// Counters: fit_iters = iterations of one fit; ns_pt_it = CPU-time per point
// and iteration.  Ceres counts successful and unsuccessful steps.
#include <math/approximate.h>

#include <benchmark/benchmark.h>

#include <Eigen/Dense>

#ifdef METROMATH_HAVE_CERES
#include <ceres/ceres.h>
#endif

#include <cmath>
#include <map>
#include <random>
#include <string>
#include <vector>

using namespace math;

namespace {

const double kPi = 3.14159265358979323846;

std::vector<Cpoint2<double>> const& ellipseData(std::size_t n) {
    static std::map<std::size_t, std::vector<Cpoint2<double>>> cache;
    auto& v = cache[n];
    if (v.empty()) {
        std::mt19937_64 rng(5);
        std::normal_distribution<double> e(0.0, 1e-3);
        const double c = std::cos(0.5), s = std::sin(0.5);
        for (std::size_t i = 0; i < n; ++i) {
            const double t = 2 * kPi * (double(i) + 0.5) / double(n);
            const double u = 10.0 * std::cos(t), w = 6.0 * std::sin(t);
            v.emplace_back(1000.0 + c * u - s * w + e(rng), 2000.0 + s * u + c * w + e(rng));
        }
    }
    return v;
}

void setCounters(benchmark::State& st, std::size_t n, double iters) {
    st.counters["fit_iters"] = iters;
    st.counters["ns_pt_it"] = benchmark::Counter(double(st.iterations()) * double(n) * iters * 1e-9,
                                                 benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

template <bool LM>
void metromathFit(benchmark::State& st, std::size_t n) {
    auto const& pts = ellipseData(n);
    Cellipse2<double> el;
    CqEllipseGeomStdAbw<double> rec;
    for (auto _ : st) {
        if (LM)
            approximate<double>::fitEllipseGeomLM(pts, el, rec);
        else
            approximate<double>::fitEllipseGeom(pts, el, rec);
        benchmark::DoNotOptimize(el);
    }
    if (!rec.converged) st.SkipWithError("not converged");
    setCounters(st, n, rec.iterations);
}

#ifdef METROMATH_HAVE_CERES
// Normalised data and the direct (Halir-Flusser) ellipse start, with Eigen.
struct Start {
    std::vector<double> x, y;
    double par[5];
};

bool directStart(std::vector<Cpoint2<double>> const& pts, Start& s) {
    const std::size_t n = pts.size();
    double cx = 0, cy = 0;
    for (auto const& p : pts) cx += p.x, cy += p.y;
    cx /= double(n), cy /= double(n);
    double r2 = 0;
    for (auto const& p : pts) r2 += (p.x - cx) * (p.x - cx) + (p.y - cy) * (p.y - cy);
    const double sc = 1.0 / std::sqrt(r2 / double(n));
    s.x.resize(n), s.y.resize(n);
    Eigen::Matrix3d S1 = Eigen::Matrix3d::Zero(), S2 = S1, S3 = S1;
    for (std::size_t i = 0; i < n; ++i) {
        const double x = (pts[i].x - cx) * sc, y = (pts[i].y - cy) * sc;
        s.x[i] = x, s.y[i] = y;
        const Eigen::Vector3d q(x * x, x * y, y * y), l(x, y, 1.0);
        S1 += q * q.transpose(), S2 += q * l.transpose(), S3 += l * l.transpose();
    }
    const Eigen::Matrix3d T = -S3.inverse() * S2.transpose();
    const Eigen::Matrix3d M = S1 + S2 * T;
    Eigen::Matrix3d Mc;
    Mc.row(0) = M.row(2) / 2, Mc.row(1) = -M.row(1), Mc.row(2) = M.row(0) / 2;
    Eigen::EigenSolver<Eigen::Matrix3d> es(Mc);
    for (int k = 0; k < 3; ++k) {
        const Eigen::Vector3d a1 = es.eigenvectors().col(k).real();
        if (4 * a1(0) * a1(2) - a1(1) * a1(1) <= 0) continue;
        const Eigen::Vector3d a2 = T * a1;
        double A = a1(0), B = a1(1), C = a1(2), D = a2(0), E = a2(1), F = a2(2);
        if (A + C < 0) A = -A, B = -B, C = -C, D = -D, E = -E, F = -F;
        const double den = 4 * A * C - B * B, x0 = (B * E - 2 * C * D) / den, y0 = (B * D - 2 * A * E) / den;
        const double F0 = F + 0.5 * (D * x0 + E * y0), hs = (A + C) / 2, hd = std::hypot((A - C) / 2, B / 2);
        s.par[0] = x0, s.par[1] = y0, s.par[2] = std::sqrt(-F0 / (hs - hd)), s.par[3] = std::sqrt(-F0 / (hs + hd));
        s.par[4] = 0.5 * std::atan2(B, A - C) + kPi / 2;
        return true;
    }
    return false;
}

// r = p - X(t), X(t) = c + R(th) (a cos t, b sin t); analytic derivatives.
class EllipseResidual : public ceres::SizedCostFunction<2, 5, 1> {
public:
    EllipseResidual(double x, double y) : x_(x), y_(y) {}
    bool Evaluate(double const* const* p, double* r, double** J) const override {
        const double* q = p[0];
        const double t = p[1][0], ca = std::cos(q[4]), sa = std::sin(q[4]), ct = std::cos(t), st = std::sin(t);
        const double u = q[2] * ct, v = q[3] * st;
        r[0] = x_ - (q[0] + ca * u - sa * v);
        r[1] = y_ - (q[1] + sa * u + ca * v);
        if (J) {
            if (J[0]) {
                double* j = J[0];  // row major 2x5
                j[0] = -1, j[1] = 0, j[2] = -ca * ct, j[3] = sa * st, j[4] = ca * v + sa * u;
                j[5] = 0, j[6] = -1, j[7] = -sa * ct, j[8] = -ca * st, j[9] = sa * v - ca * u;
            }
            if (J[1]) {
                J[1][0] = ca * q[2] * st + sa * q[3] * ct;
                J[1][1] = sa * q[2] * st - ca * q[3] * ct;
            }
        }
        return true;
    }

private:
    double x_, y_;
};

void ceresFit(benchmark::State& st, std::size_t n) {
    auto const& pts = ellipseData(n);
    double iters = 0;
    bool ok = true;
    for (auto _ : st) {
        Start s;
        if (!directStart(pts, s)) {
            ok = false;
            break;
        }
        std::vector<double> t(n);
        const double ca = std::cos(s.par[4]), sa = std::sin(s.par[4]);
        for (std::size_t i = 0; i < n; ++i) {
            const double dx = s.x[i] - s.par[0], dy = s.y[i] - s.par[1];
            t[i] = std::atan2((-sa * dx + ca * dy) / s.par[3], (ca * dx + sa * dy) / s.par[2]);
        }
        ceres::Problem problem;
        for (std::size_t i = 0; i < n; ++i)
            problem.AddResidualBlock(new EllipseResidual(s.x[i], s.y[i]), nullptr, s.par, &t[i]);
        ceres::Solver::Options o;
        o.linear_solver_type = ceres::DENSE_SCHUR;
        o.num_threads = 1;
        o.max_num_iterations = 100;
        o.parameter_tolerance = 1e-13;
        o.gradient_tolerance = 1e-14;
        o.function_tolerance = 64 * 2.220446049250313e-16;
        o.initial_trust_region_radius = 1e3;  // damping 1e-3
        o.logging_type = ceres::SILENT;
        ceres::Solver::Summary sum;
        ceres::Solve(o, &problem, &sum);
        iters = double(sum.iterations.size() - 1);
        ok = sum.IsSolutionUsable();
        benchmark::DoNotOptimize(s.par[0]);
    }
    if (!ok) st.SkipWithError("ceres failed");
    setCounters(st, n, iters);
}
#endif

}  // namespace

int main(int argc, char** argv) {
    const std::size_t sizes[] = {1000, 10000, 100000, 1000000};
    for (std::size_t n : sizes) {
        const std::string ns = std::to_string(n);
        auto reg = [&](std::string const& name, void (*fn)(benchmark::State&, std::size_t)) {
            auto* b = benchmark::RegisterBenchmark(name.c_str(), [fn, n](benchmark::State& st) { fn(st, n); });
            b->Unit(benchmark::kMillisecond);
            if (n >= 100000) b->Iterations(n >= 1000000 ? 1 : 3);
        };
        reg("BM_fitEllipseGeom<double>/" + ns + "/metromath", metromathFit<false>);
        reg("BM_fitEllipseGeomLM<double>/" + ns + "/metromath", metromathFit<true>);
#ifdef METROMATH_HAVE_CERES
        reg("BM_fitEllipseGeom<double>/" + ns + "/ceres", ceresFit);
        reg("BM_fitEllipseGeomLM<double>/" + ns + "/ceres", ceresFit);
#endif
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
