// Unit tests of metrofit's parts: the point reader, residuals, the table,
// JSON, residual and SVG writers, the fit adapter on the library, and the
// command line run in-process.  The installed tool is exercised by e2e.py.
#include "fit.h"
#include "pointfile.h"
#include "report.h"
#include "svg.h"
#include "app.h"

#include <math/approximate.h>
#include <math/errors.h>
#include <math/geometric.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <sstream>
#include <string>
#include <vector>

using namespace metrofit;

namespace {

// The InputError message of f(), or "" if it returns.
template <class F>
std::string errorOf(F f) {
    try {
        f();
    } catch (InputError const& e) {
        return e.what();
    }
    return "";
}

PointSet read(std::string const& text, int wantDim = 0) {
    std::istringstream in(text);
    return readPoints(in, "t.csv", wantDim);
}

std::string readError(std::string const& text, int wantDim = 0) {
    return errorOf([&] { read(text, wantDim); });
}

std::size_t count(std::string const& hay, std::string const& needle) {
    std::size_t n = 0;
    for (std::size_t pos = hay.find(needle); pos != std::string::npos; pos = hay.find(needle, pos + 1)) ++n;
    return n;
}

bool has(std::string const& hay, std::string const& needle) { return hay.find(needle) != std::string::npos; }

PointSet make(int dim, std::vector<double> coords) {
    PointSet p;
    p.dim = dim;
    p.source = "m.txt";
    p.coords = std::move(coords);
    for (std::size_t i = 0; i < p.coords.size() / static_cast<std::size_t>(dim); ++i) p.lineNumbers.push_back(i + 1);
    return p;
}

std::string fitError(Shape s, Method m, PointSet const& p, bool single = false) {
    return errorOf([&] { runFit(s, m, p, single); });
}

// The values of parameter `key` of a fit.
std::vector<double> P(FitResult const& r, std::string const& key) {
    for (Parameter const& p : parameters(r))
        if (p.key == key) return p.values;
    ADD_FAILURE() << "no parameter " << key;
    return {kNaN, kNaN, kNaN};
}

struct RunResult {
    int rc;
    std::string out, err;
};

RunResult runTool(std::vector<std::string> args, std::string const& stdinText = "") {
    args.insert(args.begin(), "metrofit");
    std::vector<const char*> argv;
    for (auto const& a : args) argv.push_back(a.c_str());
    std::istringstream in(stdinText);
    std::ostringstream out, err;
    const int rc = run(static_cast<int>(argv.size()), argv.data(), in, out, err);
    return {rc, out.str(), err.str()};
}

// A circle of radius 2 about (1, -1), its 8 test points at radii 2 +- 0.1.
PointSet circlePoints(FitResult& r) {
    PointSet pts = make(2, {});
    pts.source = "c.csv";
    for (int i = 0; i < 8; ++i) {
        const double a = i * 0.7853981633974483, rad = 2.0 + (i % 2 ? 0.1 : -0.1);
        pts.coords.insert(pts.coords.end(), {1.0 + rad * std::cos(a), -1.0 + rad * std::sin(a)});
        pts.lineNumbers.push_back(static_cast<std::size_t>(i + 2));
    }
    r.shape = Shape::circle;
    r.method = Method::lsq;
    r.function = "approximate<double>::fitCircleLsq";
    r.primitive = math::Ccircle2<double>({1.0, -1.0}, 2.0);
    r.measures.push_back({"stdAbw", "std. deviation of radii (StdAbwCircle2)", 0.1069});
    computeResiduals(pts, r);
    return pts;
}

// A 16 MiB line of digits (as good as endless): a reader keeping whole lines reads all of it.
struct EndlessLine : std::streambuf {
    std::size_t served = 0;
    char chunk[4096];
    int_type underflow() override {
        if (served >= (std::size_t(16) << 20)) return traits_type::eof();
        std::fill(chunk, chunk + sizeof chunk, '1');
        served += sizeof chunk;
        setg(chunk, chunk, chunk + sizeof chunk);
        return '1';
    }
};

}  // namespace

TEST(MetrofitReader, FieldsAndNumbers) {
    using V = std::vector<std::string>;
    const std::vector<std::pair<const char*, V>> fields{
        {"1,2", {"1", "2"}},        {"  1 \t 2  3 ", {"1", "2", "3"}}, {"1 , 2;3", {"1", "2", "3"}},
        {"1,,2", {"1", "", "2"}},   {"1,2,", {"1", "2", ""}},          {"1 2 # three", {"1", "2"}},
        {"   # only a comment", {}}, {"\r", {}}};
    for (auto const& f : fields) EXPECT_EQ(splitFields(f.first), f.second) << f.first;
    double v = 0;
    // 0.1 correctly rounded, not merely close; 1e999 reads as infinite (rejected later).
    const std::vector<std::pair<const char*, double>> good{{"-1.25e-3", -1.25e-3}, {"+7", 7.0}, {".5", 0.5},
                                                           {"0.1", 0.1}, {"-inf", -INFINITY}, {"1e999", INFINITY}};
    for (auto const& g : good) {
        EXPECT_TRUE(parseNumber(g.first, v)) << g.first;
        EXPECT_EQ(v, g.second) << g.first;
    }
    EXPECT_TRUE(parseNumber("nan", v) && std::isnan(v));
    for (const char* bad : {"", "+", "++1", "+-1", "1.2.3", "1,5", "12abc", "0x10", "x", "1e", "--1"})
        EXPECT_FALSE(parseNumber(bad, v)) << bad;
}

TEST(MetrofitReader, AcceptedLayouts) {
    // Header, comments, CRLF, BOM, blank lines, trailing comment.
    const PointSet a = read("\xEF\xBB\xBFx_px,y_px\r\n# edge points\r\n\r\n1.5,2\r\n3,4.25 # second\r\n");
    EXPECT_TRUE(a.dim == 2 && a.header == (std::vector<std::string>{"x_px", "y_px"}));
    EXPECT_EQ(a.coords, (std::vector<double>{1.5, 2, 3, 4.25}));
    EXPECT_TRUE(a.lineNumbers == (std::vector<std::size_t>{4, 5}) && a.source == "t.csv");
    const PointSet b = read("# scan\n1 2 3\n\t4\t5\t6\n7;8;9\n", 3);
    EXPECT_TRUE(b.dim == 3 && b.header.empty());
    EXPECT_EQ(b.coords, (std::vector<double>{1, 2, 3, 4, 5, 6, 7, 8, 9}));
    // No trailing line end; an empty input gives an empty set, not an error.
    EXPECT_TRUE(read("1 2\n3 4").size() == 2u && read("").size() == 0u && read("# nothing\n\n").dim == 0);
    std::istringstream stdinText("5 6\n7 8\n");
    const PointSet s = readPointFile("-", stdinText);
    EXPECT_TRUE(s.size() == 2u && s.source == "<stdin>");
}

TEST(MetrofitReader, RejectionsNameTheLine) {
    const std::string pad(kMaxLineLength - 4, ' ');
    const std::vector<std::pair<std::string, std::string>> cases{
        {"x,y\n1,2\n3,abc\n", "t.csv:3: not a number: 'abc' in column 2"},
        {"1,2\n3,,4\n", "t.csv:2: empty value in column 2"},
        {"1 2\nnan 3\n", "t.csv:2: NaN 'nan' in column 1"},
        {"1 2\n3 inf\n", "t.csv:2: infinite or out-of-range value 'inf' in column 2"},
        {"1 2\n3 1e400\n", "t.csv:2: infinite or out-of-range value '1e400' in column 2"},
        {"1 2\n3 4 5\n", "t.csv:2: expected 2 values as on the first data line, found 3"},
        {"1\n", "t.csv:1: expected 2 or 3 values per line, found 1"},
        {"1 2 3 4\n", "t.csv:1: expected 2 or 3 values per line, found 4"},
        // Only one header line; a second text line, or text after data, is an error.
        {"x y\nu v\n1 2\n", "t.csv:2: not a number: 'u' in column 1"},
        {"1 2\nx y\n", "t.csv:2: not a number: 'x' in column 1"},
        // A line mixing numbers and text is data, not a header.
        {"1.0 abc\n", "t.csv:1: not a number: 'abc' in column 2"},
        // Binary data is named as such, also when it would pass for a header.
        {"1 2\n3 a\x01" "b\n", "t.csv:2: control character 0x01, not a text point file"},
        {std::string("\0\xff\xfe x\n", 6), "t.csv:1: control character 0x00, not a text point file"},
        // Long bad fields are cut in the message.
        {"1 " + std::string(50, 'z') + "\n", "t.csv:1: not a number: '" + std::string(40, 'z') + "...' in column 2"},
        // A line of 65536 bytes reads, one more does not (also without a line end).
        {"1 2\n3 4" + pad + "\n5 6", ""},
        {"1 2\n3 4  " + pad + "\n", "t.csv:2: line longer than 65536 bytes, not a point file"},
        {"1 2\n3 4  " + pad, "t.csv:2: line longer than 65536 bytes, not a point file"}};
    for (auto const& c : cases) EXPECT_EQ(readError(c.first), c.second) << c.first.substr(0, 20);
    EXPECT_EQ(readError("# c\n1 2\n", 3), "t.csv:2: this fit needs 3 values per line (x y z), found 2");
    // An endless line is refused once the limit is passed, not read whole.
    EndlessLine endless;
    std::istream in(&endless);
    EXPECT_EQ(errorOf([&] { readPoints(in, "t.csv"); }), "t.csv:1: line longer than 65536 bytes, not a point file");
    EXPECT_LE(endless.served, kMaxLineLength + 8192);
}

TEST(MetrofitResiduals, SignConventionsAndSummary) {
    FitResult c;
    const PointSet cp = circlePoints(c);
    for (std::size_t i = 0; i < cp.size(); ++i) EXPECT_NEAR(c.residuals[i], i % 2 ? 0.1 : -0.1, 1e-12);
    for (double v : {c.stats.rms - 0.1, c.stats.mean, c.stats.min + 0.1, c.stats.max - 0.1}) EXPECT_NEAR(v, 0.0, 1e-12);
    // Line y = 1 along +x: left is positive; plane z = 5 (normal +z): above is
    // positive; sphere, cylinder: outside is positive; spatial line: radial.
    const PointSet lp = make(2, {0, 3, 5, -1, 2, 1}), sp = make(3, {0, 0, 7, 1, 2, 4, 4, 0, 0});
    struct Case {
        Shape shape;
        Primitive prim;
        std::vector<double> want;
        std::size_t worst;
    };
    const double r5 = std::sqrt(5.0);
    const std::vector<Case> cases{
        {Shape::line2, math::Cline2<double>(math::Cpoint2<double>(10, 1), math::Cdirec2<double>(1, 0)), {2, -2, 0}, 0},
        {Shape::plane, math::Cplane3<double>({0, 0, 1}, -5.0), {2, -1, -5}, 2},
        {Shape::sphere, math::Csphere3<double>({0, 0, 0}, 3), {4, std::sqrt(21.0) - 3, 1}, 0},
        {Shape::line3, math::Cline3<double>(math::Cpoint3<double>(0, 0, 100), math::Cdirec3<double>(0, 0, -1)),
         {0, r5, 4}, 2},
        {Shape::cylinder,
         math::Ccylinder3<double>(math::Cline3<double>({1, 2, 0}, math::Cdirec3<double>(0, 0, 1)), 3.0),
         {r5 - 3, -3, std::sqrt(13.0) - 3}, 1}};
    for (Case const& k : cases) {
        SCOPED_TRACE(shapeInfo(k.shape).name);
        FitResult r;
        r.shape = k.shape;
        r.primitive = k.prim;
        computeResiduals(k.shape == Shape::line2 ? lp : sp, r);
        ASSERT_EQ(r.residuals.size(), 3u);
        for (int i = 0; i < 3; ++i) EXPECT_NEAR(r.residuals[i], k.want[i], 1e-14);
        EXPECT_EQ(r.stats.maxAbsIndex, k.worst);  // the first of equal magnitudes
    }
}

TEST(MetrofitReport, TableJsonAndResidualFile) {
    FitResult r;
    const PointSet pts = circlePoints(r);
    std::ostringstream table;
    writeTable(table, pts, r);
    const std::string t = table.str();
    EXPECT_EQ(t.rfind("circle fit (lsq, approximate<double>::fitCircleLsq) to 8 points from c.csv\n", 0), 0u) << t;
    for (const char* s : {"centre x", "centre y", "std. deviation of radii (StdAbwCircle2)", "0.1069",
                          "at line 2\n"})  // the worst point: the first of equal |residual|
        EXPECT_TRUE(has(t, s)) << s;
    const nlohmann::json j = nlohmann::json::parse(toJson(pts, r).dump());
    EXPECT_TRUE(j["fit"] == "circle" && j["method"] == "lsq" && j["points"] == 8 && j["input"] == "c.csv") << j;
    EXPECT_TRUE(j["parameters"]["center"] == (std::vector<double>{1.0, -1.0}) && j["parameters"]["radius"] == 2.0 &&
                j["deviations"]["stdAbw"] == 0.1069) << j;
    EXPECT_TRUE(j["residuals"]["rms"] == r.stats.rms && j["residuals"]["max_abs_line"] == 2);  // exact through the text
    // NaN measures (undetermined by the library) become null and "n/a".
    r.measures[0].value = std::nan("");
    std::ostringstream table2;
    writeTable(table2, pts, r);
    EXPECT_TRUE(toJson(pts, r)["deviations"]["stdAbw"].is_null() && has(table2.str(), "n/a"));
    EXPECT_EQ(formatNumber(0.0) + " " + formatNumber(-0.0) + " " + formatNumber(412.3712345678) + " " + formatNumber(-2.5e-7),
              "0 0 412.371235 -2.5e-07");
}

TEST(MetrofitSvg, MagnificationAndSampling) {
    for (auto const& c : std::vector<std::pair<double, double>>{{7.3, 5}, {2, 2}, {1999, 1000}, {0.31, 0.2}, {0, 1}})
        EXPECT_EQ(roundDown125(c.first), c.second) << c.first;
    // |r| = 0.01 .. 1.00: the 90th percentile (0.90) at 8 % of an extent of
    // 100 gives 8.9 -> 5; one huge outlier does not change it.
    std::vector<double> res;
    for (int i = 1; i <= 100; ++i) res.push_back((i % 2 ? -0.01 : 0.01) * i);
    EXPECT_EQ(autoMagnification(res, 100.0), 5.0);
    res.back() = 1e6;
    EXPECT_EQ(autoMagnification(res, 100.0), 5.0);
    EXPECT_TRUE(autoMagnification({0.0, 0.0}, 100.0) == 1.0 && autoMagnification({}, 100.0) == 1.0);
    // Large sets: a sorted sample of at most maxPoints holding the 10 largest |r|.
    res.assign(1000, 0.0);
    for (std::size_t i = 0; i < res.size(); ++i) res[i] = std::sin(0.37 * static_cast<double>(i) * i);
    res[777] = -5.0;
    const std::vector<std::size_t> d = drawnPoints(res, 100);
    EXPECT_TRUE(d.size() <= 100u && d.size() >= 90u) << d.size();
    EXPECT_TRUE(std::is_sorted(d.begin(), d.end()) && std::adjacent_find(d.begin(), d.end()) == d.end());
    std::vector<double> mags;
    for (double v : res) mags.push_back(std::fabs(v));
    std::vector<double> sorted = mags;
    std::sort(sorted.rbegin(), sorted.rend());
    std::size_t kept = 0;
    for (std::size_t i : d) kept += mags[i] >= sorted[9] ? 1 : 0;
    EXPECT_EQ(kept, 10u);
    EXPECT_EQ(drawnPoints(res, 2000).size(), 1000u);
}

TEST(MetrofitSvg, DrawingContents) {
    FitResult r;
    PointSet pts = circlePoints(r);
    pts.source = "a<b>&\"c\".csv";
    std::ostringstream out;
    SvgOptions opt;
    opt.magnification = 20.0;
    writeSvg(out, pts, r, opt);
    const std::string s = out.str();
    EXPECT_TRUE(s.rfind("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<svg ", 0) == 0u && s.substr(s.size() - 7) == "</svg>\n");
    // One whisker per point, the file name escaped, the factor stated, groups balanced.
    EXPECT_EQ(count(s, "<line "), pts.size());
    EXPECT_TRUE(has(s, "a&lt;b&gt;&amp;&quot;c&quot;.csv") && !has(s, "a<b>"));
    EXPECT_TRUE(has(s, "residuals magnified ×20"));
    EXPECT_EQ(count(s, "<g"), count(s, "</g>"));
    // A bounded sample says so.
    opt.maxPoints = 5;
    std::ostringstream few;
    writeSvg(few, pts, r, opt);
    EXPECT_EQ(count(few.str(), "<line "), drawnPoints(r.residuals, 5).size());
    EXPECT_TRUE(has(few.str(), "grey: 5 of 8 measured points drawn"));
}

TEST(MetrofitFit, WellPosedSetsIncludingDiagonalScatter) {
    // Symmetric sets have an exactly diagonal scatter matrix: they must fit.
    const PointSet sym = make(2, {3, -2, 1, 0, -1, -2, 1, -4});
    for (bool single : {false, true}) {  // float: 2^-23 relative, times a small factor
        const FitResult c = runFit(Shape::circle, Method::lsq, sym, single);
        const double tol = single ? 1e-5 : 1e-12;
        EXPECT_EQ(c.function, single ? "approximate<float>::fitCircleLsq" : "approximate<double>::fitCircleLsq");
        EXPECT_EQ(c.scalar, single ? "float" : "double");
        EXPECT_NEAR(P(c, "center")[0], 1.0, tol);
        EXPECT_NEAR(P(c, "center")[1], -2.0, tol);
        EXPECT_NEAR(P(c, "radius")[0], 2.0, tol);
        EXPECT_LT(c.stats.maxAbs, 2 * tol);
    }
    // A horizontal line by both methods; the direction is turned to +x.
    for (Method m : {Method::geom, Method::lsq}) {
        const FitResult l = runFit(Shape::line2, m, make(2, {5, 3, 1, 3, 2, 3, 7, 3}));
        EXPECT_NEAR(P(l, "direction")[0], 1.0, 1e-15) << methodName(m);
        EXPECT_NEAR(P(l, "direction")[1], 0.0, 1e-15) << methodName(m);
        EXPECT_LT(l.stats.maxAbs, 1e-12) << methodName(m);
    }
    // Float coordinates are rounded before the fit: 0.1 is not exact.
    const FitResult pf = runFit(Shape::plane, Method::geom, make(3, {0, 0, 0.1, 1, 0, 0.1, 0, 1, 0.1, 1, 1, 0.1}), true);
    EXPECT_EQ(P(pf, "d")[0], -static_cast<double>(0.1f));
    // Sphere about (1, 2, 3), radius 2; the radius is positive whether the
    // origin lies outside or inside (where the library's radius is negative).
    const double s2 = std::sqrt(2.0);
    const FitResult s = runFit(Shape::sphere, Method::lsq,
                               make(3, {3, 2, 3, -1, 2, 3, 1, 4, 3, 1, 0, 3, 1, 2, 5, 1, 2, 1, 1 + s2, 2 + s2, 3}));
    EXPECT_NEAR(P(s, "center")[2], 3.0, 1e-9);
    EXPECT_NEAR(P(s, "radius")[0], 2.0, 1e-9);
    const FitResult s0 = runFit(Shape::sphere, Method::lsq, make(3, {2, 0, 0, -2, 0, 0, 0, 2, 0, 0, -2, 0, 0, 0, 2}));
    EXPECT_NEAR(P(s0, "radius")[0], 2.0, 1e-9);
    // Spatial line along -x is reported along +x.
    const FitResult l3 = runFit(Shape::line3, Method::geom, make(3, {4, 1, 0, 2, 1, 0, 0, 1, 0, -3, 1, 0}));
    EXPECT_NEAR(P(l3, "direction")[0], 1.0, 1e-12);
    EXPECT_LT(l3.stats.maxAbs, 1e-12);
}

TEST(MetrofitFit, DegenerateSetsAreNamed) {
    const std::string dg = "m.txt: degenerate point configuration: ";
    struct Case {
        Shape s;
        Method m;
        PointSet p;
        bool single;
        std::string msg;
    };
    const std::vector<Case> cases{
        {Shape::circle, Method::lsq, make(2, {1, 1, 1, 1, 1, 1, 1, 1}), false,
         dg + "all points coincide, a circle is not determined"},
        {Shape::cylinder, Method::geom, make(3, {0, 0, 0, 1, 1, 1, 2, 2, 2, 3, 3, 3, 5, 5, 5}), false,
         dg + "the points are collinear, a cylinder is not determined"},
        {Shape::circle, Method::lsq, make(2, {0, 0, 1, 0, 0, 1, 2e60, 1}), false,
         "m.txt:4: coordinate beyond +-1e+60, outside the range the double fits can sum"},
        {Shape::circle, Method::lsq, make(2, {1e6, 0, 0, 2e6, -2e6, 0, 0, -2e6}), false, ""},
        {Shape::circle, Method::lsq, make(2, {1e6, 0, 0, 2e6, -2e6, 0, 0, -2e6}), true,
         "m.txt:2: coordinate beyond +-1e+06, outside the range the float fits can sum"}};
    for (Case const& c : cases) EXPECT_EQ(fitError(c.s, c.m, c.p, c.single), c.msg) << shapeInfo(c.s).name;
    // A nearly straight arc: radius 1e9 over an extent of 2.
    std::vector<double> arc;
    for (int i = -5; i <= 5; ++i) arc.insert(arc.end(), {0.2 * i, 1e9 - std::sqrt(1e18 - 0.04 * i * i)});
    const std::string e = fitError(Shape::circle, Method::lsq, make(2, arc));
    EXPECT_EQ(e.rfind(dg, 0), 0u) << e;
}

TEST(MetrofitFit, TinySetsAreJudgedOnTheirOwnScale) {
    // The same (inexact) sets moved to 2^-1000 (about 1e-301): every fit gives
    // the scaled result, not "all points coincide", and the residuals keep
    // their size (no squares underflow).
    const std::vector<std::pair<Shape, PointSet>> sets = {
        {Shape::circle, make(2, {3, -2, 1, 0, -1, -2, 1, -4, 2.3, -0.4})},
        {Shape::sphere, make(3, {3, 2, 3, -1, 2, 3, 1, 4, 3, 1, 0, 3, 1, 2, 5, 1, 2, 1.1})},
        {Shape::plane, make(3, {0, 0, 2, 1, 0, 1, 0, 3, 2, 2, 5, 0, 4, 1, -2.5})},
        {Shape::line2, make(2, {0, 1, 1, 3.1, 2, 5, 3, 6.9})},
        {Shape::line3, make(3, {0, 1, 2, 1, 3.1, 2, 2, 5, 2.2})},
    };
    for (auto const& s : sets) {
        SCOPED_TRACE(shapeInfo(s.first).name);
        PointSet tiny = s.second;
        for (double& c : tiny.coords) c = std::ldexp(c, -1000);
        const Method m = shapeInfo(s.first).methods.front().method;
        const FitResult big = runFit(s.first, m, s.second), small = runFit(s.first, m, tiny);
        const std::vector<Parameter> pb = parameters(big), ps = parameters(small);
        for (std::size_t k = 0; k < pb.size(); ++k) {
            const int power = pb[k].key == "direction" || pb[k].key == "normal" ? 0 : 1;
            for (std::size_t j = 0; j < pb[k].values.size(); ++j)
                EXPECT_NEAR(std::ldexp(ps[k].values[j], 1000 * power), pb[k].values[j], 1e-12) << pb[k].key;
        }
        EXPECT_NEAR(std::ldexp(small.stats.rms, 1000) / big.stats.rms, 1.0, 1e-9);
    }
    // The closed-form line's absolute 1e-8 acts on unit-size data: a line
    // over 20 um keeps its direction (not (0, 1)).
    const FitResult d = runFit(Shape::line2, Method::geom, make(2, {0, 0, 1e-5, 1e-5, 2e-5, 2.1e-5}));
    EXPECT_NEAR(P(d, "direction")[0], std::sqrt(0.5), 0.05);
    // Degenerate stays degenerate at any scale, and says why.
    PointSet line = make(2, {0, 1, 1, 3, 2, 5, 3, 7});
    for (double& c : line.coords) c = std::ldexp(c, -1000);
    EXPECT_EQ(fitError(Shape::circle, Method::lsq, line),
              "m.txt: degenerate point configuration: the points are collinear, a circle is not determined");
}

// The iterative fits: circle and cylinder by default, a fixed radius;
// parameters, uncertainties and iterations as the library's record gives them
// at the data's own scale.
TEST(MetrofitFit, GeometricFitsAndTheirRecords) {
    for (Shape s : {Shape::circle, Shape::sphere, Shape::ellipse})
        EXPECT_EQ(shapeInfo(s).methods.front().method, Method::geom);
    // A 100-degree arc of radius 5 about (1000.5, -300.25) with a wavy form
    // error; runFit scales by a power of two, which must not change anything.
    std::vector<double> xy;
    std::vector<math::Cpoint2<double>> lib;
    for (int k = 0; k < 40; ++k) {
        const double a = 0.2 + 1.75 * k / 39.0, r = 5.0 + 0.01 * std::sin(5.3 * k);
        lib.emplace_back(1000.5 + r * std::cos(a), -300.25 + r * std::sin(a));
        xy.insert(xy.end(), {lib.back().x, lib.back().y});
    }
    const FitResult c = runFit(Shape::circle, Method::geom, make(2, xy));
    math::Ccircle2<double> ref;
    math::CqCircleGeomStdAbw<double> rec;
    math::approximate<double>::fitCircleGeom(lib, ref, rec);
    EXPECT_TRUE(c.function == "approximate<double>::fitCircleGeom" && c.iterations.reported && c.iterations.converged &&
                c.iterations.count == rec.iterations) << c.function;
    EXPECT_NEAR(P(c, "radius")[0], ref.radius(), 1e-12 * ref.radius());
    EXPECT_NEAR(P(c, "center")[1], ref.center().y, 1e-12 * ref.radius());
    const std::vector<Parameter> ps = parameters(c);
    ASSERT_EQ(ps[0].uncertainties.size(), 2u);
    EXPECT_NEAR(ps[0].uncertainties[0], rec.uCenterX, 1e-9 * rec.uCenterX);
    EXPECT_NEAR(ps[1].uncertainties[0], rec.uRadius, 1e-9 * rec.uRadius);
    EXPECT_GT(rec.uRadius, 1e-4);
    // Fixed radius 5.5: the centre on the arc's concave side (the true centre's).
    FitOptions o;
    o.radius = 5.5;
    const FitResult cf = runFit(Shape::circle, o, make(2, xy));
    EXPECT_TRUE(cf.function == "approximate<double>::fitCircleGeomRfix" && P(cf, "radius")[0] == 5.5 &&
                parameters(cf)[1].uncertainties[0] == 0.0) << cf.function;
    const std::vector<double> cc = P(cf, "center");
    EXPECT_GT((cc[0] - 1000.5) * std::cos(1.075) + (cc[1] + 300.25) * std::sin(1.075), -1.0);
    EXPECT_LT(std::hypot(cc[0] - 1000.5, cc[1] + 300.25), 1.0);
    o.radius = 0.0;
    EXPECT_THROW(runFit(Shape::circle, o, make(2, xy)), InputError);
    o.radius = 1.0;
    EXPECT_THROW(runFit(Shape::line2, o, make(2, xy)), std::logic_error);
}

TEST(MetrofitFit, EllipseBothMethodsMatchTheLibrary) {
    Method m = Method::geom;
    EXPECT_TRUE(methodFromName("lm", m) && m == Method::lm);
    // A noisy 250-degree arc far out: the adapter (fitting on data scaled by
    // 2^e) agrees with the library called on the points as read.
    const math::Cellipse2<double> truth({-2000.25, 730.5}, 9.0, 4.0, 1.1);
    std::vector<double> xy;
    std::vector<math::Cpoint2<double>> lib;
    for (int k = 0; k < 45; ++k) {
        const math::Cpoint2<double> q = truth.pointAt(-0.4 + 4.36 * k / 44.0);
        lib.push_back(q + (q - truth.center()) * (0.002 * std::sin(4.1 * k)));
        xy.insert(xy.end(), {lib.back().x, lib.back().y});
    }
    const PointSet pts = make(2, xy);
    for (Method method : {Method::geom, Method::lm}) {
        SCOPED_TRACE(methodName(method));
        const FitResult r = runFit(Shape::ellipse, method, pts);
        math::Cellipse2<double> ref;
        math::CqEllipseGeomStdAbw<double> rec;
        if (method == Method::lm)
            math::approximate<double>::fitEllipseGeomLM(lib, ref, rec);
        else
            math::approximate<double>::fitEllipseGeom(lib, ref, rec);
        ASSERT_TRUE(ref.isValid() && r.iterations.converged);
        const std::vector<Parameter> ps = parameters(r);
        const double want[5] = {ref.center().x, ref.center().y, ref.a(), ref.b(), ref.angle()};
        const double wantU[5] = {rec.uCenterX, rec.uCenterY, rec.uA, rec.uB, rec.uAngle};
        for (std::size_t i = 0, k = 0; i < ps.size(); ++i) {
            for (std::size_t j = 0; j < ps[i].values.size(); ++j, ++k) {
                EXPECT_NEAR(ps[i].values[j], want[k], 1e-10 * 9.0) << ps[i].key;
                EXPECT_NEAR(ps[i].uncertainties[j], wantU[k], 1e-6 * wantU[k]) << ps[i].key;
            }
        }
        EXPECT_NEAR(r.measures[1].value, rec.stdAbw, 1e-6 * rec.stdAbw);
    }
    const FitResult f = runFit(Shape::ellipse, Method::geom, pts, true);  // float: to float's digits
    EXPECT_TRUE(f.function == "approximate<float>::fitEllipseGeom" && std::fabs(P(f, "a")[0] - 9.0) < 0.02) << f.function;
    // An exact circle: a == b, every uncertainty undetermined (NaN, "n/a").
    std::vector<double> cxy;
    for (int k = 0; k < 12; ++k) cxy.insert(cxy.end(), {3 + 2 * std::cos(k * 0.5236), 1 + 2 * std::sin(k * 0.5236)});
    const FitResult circ = runFit(Shape::ellipse, Method::lm, make(2, cxy));
    EXPECT_NEAR(P(circ, "a")[0], P(circ, "b")[0], 1e-12);
    for (Parameter const& p : parameters(circ))
        for (double u : p.uncertainties) EXPECT_TRUE(std::isnan(u)) << p.key;
}

// Exit codes and one-line errors of every usage mistake are run on the installed tool (e2e.py).
TEST(MetrofitApp, FixedRadiusInJsonAndTable) {
    const std::string pts = "x,y\n1,0\n0,1\n-1,0\n0,-1.01\n0.6,0.8\n0.8,-0.6\n";
    const RunResult r = runTool({"circle", "-", "--radius", "1"}, pts);
    EXPECT_TRUE(r.err.empty() && has(r.out, "from <stdin>") && has(r.out, "std. uncertainty\n") &&
                has(r.out, "  radius (fixed) ") && has(r.out, "  (converged)\n")) << r.out;
    EXPECT_EQ(oneLine("a\nb\r\n\nc\td\n"), "a; b; c d");
}

TEST(MetrofitApp, LibraryErrorsInUtf8OnOneLine) {
    // The table holds "\xDCbergebene Matrix ist singul\xE4r." in Windows-1252;
    // the report shows it in UTF-8, and a chained exception on the same line.
    const CthrowMath inner(CthrowMath::ERR_SOLVE_MATRIXSINGULAR, "");
    const CthrowMath outer(inner, CthrowMath::ERR_MATH_INVALID_ARGUMENT, "");
    const std::string line = libraryErrorLine("circle", outer);
    EXPECT_EQ(line.rfind("metrofit: error: the circle fit failed: CthrowMath::ERR_MATH_INVALID_ARGUMENT: ", 0), 0u)
        << line;
    EXPECT_TRUE(has(line, "Ung\xC3\xBCltiges Argument wurde \xC3\xBC" "bergeben.")) << line;
    EXPECT_TRUE(has(line, "; <- CthrowMath::ERR_SOLVE_MATRIXSINGULAR: \xC3\x9C" "bergebene Matrix ist singul\xC3\xA4r."))
        << line;
    EXPECT_EQ(line.find('\n'), std::string::npos);
    EXPECT_EQ(line.find('\xFC'), std::string::npos);  // no raw Windows-1252 byte left
}
