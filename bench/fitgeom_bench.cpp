// Benchmarks of the iterative geometric fits (circle, sphere, cylinder) on
// 10^3 .. 10^6 points beside Ceres (where installed) solving the same least-
// squares problem with analytic per-point cost functions.
//
// Data (millimetres, 10 um noise along the normals, fixed seeds):
//   circle    120 degree arc, r 50, centre (1000, 2000)
//   sphere    90 degree cap (half-angle 45), r 50, centre (1000, 2000, 500)
//   cylinder  180 degree arc, r 20, 100 long, axis tilted, 1000 mm out
// The library's time is the whole fit (normalisation, start, iterations,
// record).  Ceres gets the start of the same kind (the algebraic circle /
// sphere of fitCircleLsq / fitSphereLsq; for the cylinder the same nominal
// axis that the library's start form gets, tilted 2 degrees and shifted
// 0.5 mm from the truth) and the same tolerances (parameter tolerance 1e-12,
// gradient 1e-12, function 1e-15), one thread, dense normal Cholesky; its
// time covers only Solve(), not building the problem nor the start, which
// favours Ceres.  Counters: iterations (the library's: passes over the
// points; Ceres: successful + unsuccessful steps) and ns per point per
// iteration.
//
// Names: BM_<fit>/<n>/<impl>, impl metromath or ceres (see bench/run).
#include <math/approximate.h>

#include <benchmark/benchmark.h>

#ifdef METROMATH_HAVE_CERES
#include <ceres/ceres.h>
#endif

#include <algorithm>
#include <cmath>
#include <map>
#include <random>
#include <string>
#include <vector>

using namespace math;

namespace {

const double kPi = 3.14159265358979323846;

std::vector<Cpoint2<double>> const& circleData(std::size_t n) {
    static std::map<std::size_t, std::vector<Cpoint2<double>>> cache;
    auto& v = cache[n];
    if (v.empty()) {
        std::mt19937_64 rng(1);
        std::normal_distribution<double> e(0.0, 0.01);
        for (std::size_t i = 0; i < n; ++i) {
            const double t = 0.3 + (2 * kPi / 3) * i / n, r = 50 + e(rng);
            v.emplace_back(1000 + r * std::cos(t), 2000 + r * std::sin(t));
        }
    }
    return v;
}

std::vector<Cpoint3<double>> const& sphereData(std::size_t n) {
    static std::map<std::size_t, std::vector<Cpoint3<double>>> cache;
    auto& v = cache[n];
    if (v.empty()) {
        std::mt19937_64 rng(2);
        std::normal_distribution<double> e(0.0, 0.01);
        for (std::size_t i = 0; i < n; ++i) {
            const double th = (kPi / 4) * std::sqrt((i + 0.5) / n), ph = 2.399963229728653 * i, r = 50 + e(rng);
            v.emplace_back(1000 + r * std::sin(th) * std::cos(ph), 2000 + r * std::sin(th) * std::sin(ph),
                           500 + r * std::cos(th));
        }
    }
    return v;
}

// Cylinder axis: through (1000, 1000, 1000), direction (0.3, -0.2, 1) normalised.
void cylFrame(double* a, double* w, double* u, double* v) {
    a[0] = a[1] = a[2] = 1000.0;
    const double l = std::sqrt(0.09 + 0.04 + 1.0);
    w[0] = 0.3 / l, w[1] = -0.2 / l, w[2] = 1.0 / l;
    u[0] = w[2], u[1] = 0.0, u[2] = -w[0];
    const double lu = std::sqrt(u[0] * u[0] + u[2] * u[2]);
    u[0] /= lu, u[2] /= lu;
    v[0] = w[1] * u[2] - w[2] * u[1], v[1] = w[2] * u[0] - w[0] * u[2], v[2] = w[0] * u[1] - w[1] * u[0];
}

std::vector<Cpoint3<double>> const& cylinderData(std::size_t n) {
    static std::map<std::size_t, std::vector<Cpoint3<double>>> cache;
    auto& pts = cache[n];
    if (pts.empty()) {
        std::mt19937_64 rng(3);
        std::normal_distribution<double> e(0.0, 0.01);
        std::uniform_real_distribution<double> t(0.0, kPi), z(0.0, 100.0);
        double a[3], w[3], u[3], v[3];
        cylFrame(a, w, u, v);
        for (std::size_t i = 0; i < n; ++i) {
            const double tt = t(rng), zz = z(rng), r = 20 + e(rng);
            double p[3];
            for (int k = 0; k < 3; ++k) p[k] = a[k] + r * std::cos(tt) * u[k] + r * std::sin(tt) * v[k] + zz * w[k];
            pts.emplace_back(p[0], p[1], p[2]);
        }
    }
    return pts;
}

// The nominal axis given to both cylinder solvers.
Ccylinder3<double> nominalCylinder() {
    double a[3], w[3], u[3], v[3];
    cylFrame(a, w, u, v);
    const double tilt = 2 * kPi / 180;
    return Ccylinder3<double>(Cline3<double>(Cpoint3<double>(a[0] + 0.5 * u[0], a[1] + 0.5 * u[1], a[2] + 0.5 * u[2]),
                                             Cdirec3<double>(w[0] + tilt * v[0], w[1] + tilt * v[1], w[2] + tilt * v[2])),
                              20.0);
}

// iterations: steps taken (the library's passes over the points minus the
// first evaluation; Ceres's successful plus unsuccessful steps); passes:
// evaluations of residuals and Jacobian (Ceres: residual evaluations);
// s_per_point_iter: time per point and step.
void setCounters(benchmark::State& st, std::size_t n, double steps, double passes) {
    st.counters["iterations"] = steps;
    st.counters["passes"] = passes;
    st.counters["s_per_point_iter"] =
        benchmark::Counter(static_cast<double>(n) * std::max(steps, 1.0),
                           benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_circle_metromath(benchmark::State& st, std::size_t n) {
    auto const& p = circleData(n);
    Ccircle2<double> c;
    CqCircleGeomStdAbw<double> rec;
    for (auto _ : st) {
        approximate<double>::fitCircleGeom(p, c, rec);
        benchmark::DoNotOptimize(c);
    }
    if (!rec.converged) st.SkipWithError("not converged");
    setCounters(st, n, rec.iterations - 1.0, rec.iterations);
}

void BM_sphere_metromath(benchmark::State& st, std::size_t n) {
    auto const& p = sphereData(n);
    Csphere3<double> s;
    CqSphereGeomStdAbw<double> rec;
    for (auto _ : st) {
        approximate<double>::fitSphereGeom(p, s, rec);
        benchmark::DoNotOptimize(s);
    }
    if (!rec.converged) st.SkipWithError("not converged");
    setCounters(st, n, rec.iterations - 1.0, rec.iterations);
}

void BM_cylinder_metromath(benchmark::State& st, std::size_t n) {
    auto const& p = cylinderData(n);
    const Ccylinder3<double> start = nominalCylinder();
    Ccylinder3<double> c;
    CqCylinderGeomStdAbw<double> rec;
    for (auto _ : st) {
        approximate<double>::fitCylinderGeom(p, start, c, rec);
        benchmark::DoNotOptimize(c);
    }
    if (!rec.converged) st.SkipWithError("not converged");
    setCounters(st, n, rec.iterations - 1.0, rec.iterations);
}

// The automatic start (hemisphere search) included.
void BM_cylinderAuto_metromath(benchmark::State& st, std::size_t n) {
    auto const& p = cylinderData(n);
    Ccylinder3<double> c;
    CqCylinderGeomStdAbw<double> rec;
    for (auto _ : st) {
        approximate<double>::fitCylinderGeom(p, c, rec);
        benchmark::DoNotOptimize(c);
    }
    if (!rec.converged) st.SkipWithError("not converged");
    setCounters(st, n, rec.iterations - 1.0, rec.iterations);
}

#ifdef METROMATH_HAVE_CERES

// |p - c| - r over (cx, cy[, cz], r).
template <int D>
class BallCost : public ceres::SizedCostFunction<1, D + 1> {
public:
    explicit BallCost(const double* p) { for (int k = 0; k < D; ++k) m_p[k] = p[k]; }
    bool Evaluate(double const* const* x, double* res, double** jac) const override {
        double q[D], rr = 0.0;
        for (int k = 0; k < D; ++k) q[k] = m_p[k] - x[0][k], rr += q[k] * q[k];
        const double rho = std::sqrt(rr);
        res[0] = rho - x[0][D];
        if (jac && jac[0]) {
            for (int k = 0; k < D; ++k) jac[0][k] = -q[k] / rho;
            jac[0][D] = -1.0;
        }
        return true;
    }

private:
    double m_p[D];
};

// Distance from the axis minus r over (tx, ty, a, b, r): axis point
// a0 + tx u + ty v, direction normalise(w + a u + b v), (u, v, w) the frame
// of the start axis.
class CylCost : public ceres::SizedCostFunction<1, 5> {
public:
    CylCost(const double* p, const double* a0, const double* u, const double* v, const double* w) {
        for (int k = 0; k < 3; ++k) m_p[k] = p[k], m_a[k] = a0[k], m_u[k] = u[k], m_v[k] = v[k], m_w[k] = w[k];
    }
    bool Evaluate(double const* const* x, double* res, double** jac) const override {
        const double* s = x[0];
        double m[3], q[3];
        for (int k = 0; k < 3; ++k) {
            m[k] = m_w[k] + s[2] * m_u[k] + s[3] * m_v[k];
            q[k] = m_p[k] - m_a[k] - s[0] * m_u[k] - s[1] * m_v[k];
        }
        const double nm = std::sqrt(m[0] * m[0] + m[1] * m[1] + m[2] * m[2]);
        double wd[3];
        for (int k = 0; k < 3; ++k) wd[k] = m[k] / nm;
        const double sq = q[0] * wd[0] + q[1] * wd[1] + q[2] * wd[2];
        const double qq = q[0] * q[0] + q[1] * q[1] + q[2] * q[2];
        const double rho = std::sqrt(std::max(qq - sq * sq, 0.0));
        res[0] = rho - s[4];
        if (jac && jac[0]) {
            const double qu = q[0] * m_u[0] + q[1] * m_u[1] + q[2] * m_u[2];
            const double qv = q[0] * m_v[0] + q[1] * m_v[1] + q[2] * m_v[2];
            const double wu = wd[0] * m_u[0] + wd[1] * m_u[1] + wd[2] * m_u[2];
            const double wv = wd[0] * m_v[0] + wd[1] * m_v[1] + wd[2] * m_v[2];
            jac[0][0] = (-qu + sq * wu) / rho;
            jac[0][1] = (-qv + sq * wv) / rho;
            jac[0][2] = -sq * (qu - sq * wu) / nm / rho;
            jac[0][3] = -sq * (qv - sq * wv) / nm / rho;
            jac[0][4] = -1.0;
        }
        return true;
    }

private:
    double m_p[3], m_a[3], m_u[3], m_v[3], m_w[3];
};

ceres::Solver::Options ceresOptions() {
    ceres::Solver::Options o;
    o.linear_solver_type = ceres::DENSE_NORMAL_CHOLESKY;
    o.num_threads = 1;
    o.max_num_iterations = 100;
    o.parameter_tolerance = 1e-12;
    o.gradient_tolerance = 1e-12;
    o.function_tolerance = 1e-15;
    o.logging_type = ceres::SILENT;
    return o;
}

template <int D, class Pt>
void runBallCeres(benchmark::State& st, std::vector<Pt> const& p, const double* start) {
    double iters = 0, passes = 0;
    for (auto _ : st) {
        st.PauseTiming();
        double x[D + 1];
        for (int k = 0; k <= D; ++k) x[k] = start[k];
        ceres::Problem problem;
        for (auto const& q : p) {
            const double c[3] = {q.x, q.y, D == 3 ? q[2] : 0.0};
            problem.AddResidualBlock(new BallCost<D>(c), nullptr, x);
        }
        ceres::Solver::Summary sum;
        st.ResumeTiming();
        ceres::Solve(ceresOptions(), &problem, &sum);
        st.PauseTiming();
        if (!sum.IsSolutionUsable()) st.SkipWithError("ceres failed");
        iters = sum.num_successful_steps + sum.num_unsuccessful_steps;
        passes = sum.num_residual_evaluations;
        st.ResumeTiming();
    }
    setCounters(st, p.size(), iters, passes);
}

void BM_circle_ceres(benchmark::State& st, std::size_t n) {
    auto const& p = circleData(n);
    Ccircle2<double> c;
    approximate<double>::fitCircleLsq(p, c);
    const double start[3] = {c.center().x, c.center().y, c.radius()};
    runBallCeres<2>(st, p, start);
}

void BM_sphere_ceres(benchmark::State& st, std::size_t n) {
    auto const& p = sphereData(n);
    Csphere3<double> s;
    approximate<double>::fitSphereLsq(p, s);
    const double start[4] = {s.center().x, s.center().y, s.center().z, std::fabs(s.radius())};
    runBallCeres<3>(st, p, start);
}

void BM_cylinder_ceres(benchmark::State& st, std::size_t n) {
    auto const& p = cylinderData(n);
    const Ccylinder3<double> nom = nominalCylinder();
    const double a0[3] = {nom.axis().point().x, nom.axis().point().y, nom.axis().point().z};
    const double w[3] = {nom.axis().direction().x, nom.axis().direction().y, nom.axis().direction().z};
    double u[3] = {w[2], 0.0, -w[0]};
    const double lu = std::sqrt(u[0] * u[0] + u[2] * u[2]);
    u[0] /= lu, u[2] /= lu;
    const double v[3] = {w[1] * u[2] - w[2] * u[1], w[2] * u[0] - w[0] * u[2], w[0] * u[1] - w[1] * u[0]};
    // the same radius start as the library's: mean distance from the start axis
    double r0 = 0.0;
    for (auto const& q : p) {
        const double d[3] = {q.x - a0[0], q.y - a0[1], q.z - a0[2]};
        const double s = d[0] * w[0] + d[1] * w[1] + d[2] * w[2];
        r0 += std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2] - s * s);
    }
    r0 /= static_cast<double>(p.size());
    double iters = 0, passes = 0;
    for (auto _ : st) {
        st.PauseTiming();
        double x[5] = {0.0, 0.0, 0.0, 0.0, r0};
        ceres::Problem problem;
        for (auto const& q : p) {
            const double c[3] = {q.x, q.y, q.z};
            problem.AddResidualBlock(new CylCost(c, a0, u, v, w), nullptr, x);
        }
        ceres::Solver::Summary sum;
        st.ResumeTiming();
        ceres::Solve(ceresOptions(), &problem, &sum);
        st.PauseTiming();
        if (!sum.IsSolutionUsable()) st.SkipWithError("ceres failed");
        iters = sum.num_successful_steps + sum.num_unsuccessful_steps;
        passes = sum.num_residual_evaluations;
        st.ResumeTiming();
    }
    setCounters(st, p.size(), iters, passes);
}

#endif

struct Reg {
    Reg() {
        for (std::size_t n : {1000u, 10000u, 100000u, 1000000u}) {
            const std::string s = std::to_string(n);
            auto reg = [&](const char* fit, void (*fn)(benchmark::State&, std::size_t), const char* impl) {
                benchmark::RegisterBenchmark((std::string("BM_") + fit + "/" + s + "/" + impl).c_str(),
                                             [fn, n](benchmark::State& st) { fn(st, n); })
                    ->Unit(benchmark::kMicrosecond);
            };
            reg("circle", BM_circle_metromath, "metromath");
            reg("sphere", BM_sphere_metromath, "metromath");
            reg("cylinder", BM_cylinder_metromath, "metromath");
            reg("cylinderAuto", BM_cylinderAuto_metromath, "metromath");
#ifdef METROMATH_HAVE_CERES
            reg("circle", BM_circle_ceres, "ceres");
            reg("sphere", BM_sphere_ceres, "ceres");
            reg("cylinder", BM_cylinder_ceres, "ceres");
#endif
        }
    }
} const reg;

}  // namespace

BENCHMARK_MAIN();
