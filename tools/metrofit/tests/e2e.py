#!/usr/bin/env python3
"""End-to-end tests of the installed metrofit:
    e2e.py --tool PATH/bin/metrofit --data examples/data --work SCRATCH [--group NAME ...]
The tool runs as a user would run it: on the samples (--json parameters against the generator's
truth, within tolerances derived from the noise), on its outputs (residual file, drawing, table),
and on broken input and bad command lines (exit status, one line "metrofit: error: ...")."""

import argparse
import json
import math
import os
import random
import re
import resource
import signal
import subprocess
import sys
import xml.etree.ElementTree as ET

FAILURES = []


def check(cond, what):
    if not cond:
        FAILURES.append(what)
        print("FAIL: " + what)
    return cond


class Tool:
    def __init__(self, path, work):
        self.path, self.work = path, work

    def run(self, *args, stdin=None):
        p = subprocess.run([self.path] + [str(a) for a in args], input=stdin, capture_output=True, timeout=60)
        return p.returncode, p.stdout.decode("utf-8"), p.stderr.decode("utf-8")

    def json(self, *args, stdin=None):
        rc, out, err = self.run(*args, "--json", stdin=stdin)
        if not check(rc == 0, "%s: exit %d, stderr %r" % (" ".join(map(str, args)), rc, err)):
            return None
        return json.loads(out)

    def write(self, name, text, mode="w"):
        path = os.path.join(self.work, name)
        with open(path, mode) as f:
            f.write(text)
        return path


def unit(v):
    n = math.sqrt(sum(x * x for x in v))
    return [c / n for c in v]


def angle_between_axes(a, b):
    """Angle between two lines' directions, ignoring orientation."""
    return math.acos(min(1.0, abs(sum(x * y for x, y in zip(unit(a), unit(b))))))


def dist_point_line(p, q, d):
    d = unit(d)
    w = [pi - qi for pi, qi in zip(p, q)]
    t = sum(wi * di for wi, di in zip(w, d))
    return math.sqrt(max(0.0, sum(wi * wi for wi in w) - t * t))


def group_samples(tool, data, gen):
    T = gen.TRUTH
    bore = os.path.join(data, "bore_edge.csv")

    # Circle: 235 points, noise 0.12 px.  The standard error of centre and
    # radius is about 0.12 * sqrt(2 / 235) = 0.011 px; 0.05 px is > 4 of them.
    j = tool.json("circle", bore)
    if j:
        t = T["bore_edge.csv"]
        check(j["fit"] == "circle" and j["method"] == "geom", "circle: fit/method fields")
        check(j["points"] == 235, "circle: 235 points, got %s" % j["points"])
        c = j["parameters"]["center"]
        check(math.hypot(c[0] - t["center"][0], c[1] - t["center"][1]) < 0.05, "circle: centre %s" % c)
        check(abs(j["parameters"]["radius"] - t["radius"]) < 0.05, "circle: radius %s" % j["parameters"]["radius"])
        # Sample deviation of 235 draws of sigma 0.12: within 15 %.
        check(abs(j["deviations"]["stdAbw"] - t["noise"]) < 0.15 * t["noise"], "circle: stdAbw %s" % j["deviations"])
        check(abs(j["residuals"]["rms"] - t["noise"]) < 0.15 * t["noise"], "circle: rms %s" % j["residuals"])
        check(abs(j["residuals"]["mean"]) < 0.02, "circle: mean residual %s" % j["residuals"]["mean"])
        # Uncertainties: about noise / sqrt(n) = 0.008 px, and the truth within 4 of them.
        u = j["uncertainties"]
        check(0.004 < u["radius"] < 0.016 and len(u["center"]) == 2, "circle: uncertainties %s" % u)
        check(abs(j["parameters"]["radius"] - t["radius"]) < 4 * u["radius"], "circle: radius within 4 u")
        check(j["solver"]["converged"] and 0 < j["solver"]["iterations"] < 20, "circle: solver %s" % j["solver"])

        # The closed form stays selectable, and agrees on this well-spread arc.
        jl = tool.json("circle", bore, "--method", "lsq")
        if jl:
            check(jl["function"] == "approximate<double>::fitCircleLsq" and "uncertainties" not in jl and
                  "solver" not in jl,
                  "circle lsq: function %s" % jl["function"])
            check(abs(jl["parameters"]["radius"] - j["parameters"]["radius"]) < 0.02, "circle lsq: radius")

        # The float instantiation on the same data: within the same tolerances.
        jf = tool.json("circle", bore, "--float")
        if jf:
            check(jf["type"] == "float" and "approximate<float>" in jf["function"], "circle --float: type")
            cf = jf["parameters"]["center"]
            check(math.hypot(cf[0] - t["center"][0], cf[1] - t["center"][1]) < 0.05, "circle --float: centre %s" % cf)
            check(abs(jf["parameters"]["radius"] - t["radius"]) < 0.05, "circle --float: radius")

        # Standard input gives the same numbers, named <stdin>.
        with open(bore, "rb") as f:
            js = tool.json("circle", "-", stdin=f.read())
        if js:
            check(js["input"] == "<stdin>", "stdin: input name")
            check(js["parameters"] == j["parameters"], "stdin: same parameters as the file")

    # Sphere: 300 points, noise 1.5 um on a 70-degree cap; 2 um tolerance on
    # centre and radius (the cap leaves z and r correlated, a few tenths of um).
    j = tool.json("sphere", os.path.join(data, "sphere_scan.txt"))
    if j:
        t = T["sphere_scan.txt"]
        c = j["parameters"]["center"]
        err = math.sqrt(sum((a - b) ** 2 for a, b in zip(c, t["center"])))
        check(err < 0.002, "sphere: centre %s (off by %g)" % (c, err))
        check(abs(j["parameters"]["radius"] - t["radius"]) < 0.002, "sphere: radius %s" % j["parameters"]["radius"])
        check(j["parameters"]["radius"] > 0, "sphere: radius reported positive")
        check(abs(j["deviations"]["stdAbw"] - t["noise"]) < 0.2 * t["noise"], "sphere: stdAbw %s" % j["deviations"])
        check(j["function"] == "approximate<double>::fitSphereGeom" and len(j["uncertainties"]["center"]) == 3,
              "sphere: geometric by default, %s" % j["function"])

    # Cylinder: 144 points on a 270-degree arc, noise 2 um; within 4
    # uncertainties of the truth; the nominal radius 8 by --radius.
    j = tool.json("cylinder", os.path.join(data, "shaft_scan.txt"))
    if j:
        t, p, u = T["shaft_scan.txt"], j["parameters"], j["uncertainties"]
        check(abs(p["radius"] - t["radius"]) < 4 * u["radius"] and u["radius"] < 0.001, "cylinder: radius %s" % p)
        check(angle_between_axes(p["direction"], t["direction"]) < 1e-4, "cylinder: direction %s" % p["direction"])
        check(dist_point_line(p["point"], t["point"], t["direction"]) < 0.002, "cylinder: axis point %s" % p["point"])
        check(j["solver"]["converged"] and j["solver"]["fixed_radius"] is None, "cylinder: solver %s" % j["solver"])
    j = tool.json("cylinder", os.path.join(data, "shaft_scan.txt"), "--radius", "8")
    if j:
        check(j["parameters"]["radius"] == 8.0 and j["uncertainties"]["radius"] == 0.0 and
              j["function"].endswith("fitCylinderGeomRfix") and j["solver"]["fixed_radius"] == 8.0,
              "cylinder --radius 8: %s" % j["parameters"])
        # 4 um too large: the points lie inside by about that much.
        check(abs(j["residuals"]["mean"] + 0.004) < 0.001, "cylinder --radius 8: mean %s" % j["residuals"]["mean"])

    # Plane with an outlier: the fit is pulled a little (0.35 mm on 96 points),
    # the tilt stays within 5e-4 rad, and the worst point is the outlier on
    # line 3 comments + 1 header + 38 = 42.
    for method in ("geom", "fast"):
        j = tool.json("plane", os.path.join(data, "plane_outlier.csv"), "--method", method)
        if j:
            t = T["plane_outlier.csv"]
            n = j["parameters"]["normal"]
            true_n = [-t["slope_x"], -t["slope_y"], 1.0]
            check(abs(math.sqrt(sum(c * c for c in n)) - 1) < 1e-12, "plane %s: unit normal %s" % (method, n))
            check(angle_between_axes(n, true_n) < 5e-4, "plane %s: normal %s" % (method, n))
            check(j["residuals"]["max_abs_line"] == 42, "plane %s: worst line %s" % (method, j["residuals"]))
            check(j["residuals"]["max_abs"] > 0.3, "plane %s: outlier residual %s" % (method, j["residuals"]))
            # A point of the true plane at (50, 30) lies on the fit within 0.01 mm.
            p = [50.0, 30.0, t["z0"] + t["slope_x"] * 50 + t["slope_y"] * 30]
            check(abs(sum(a * b for a, b in zip(n, p)) + j["parameters"]["d"]) < 0.01, "plane %s: offset" % method)
            if method == "geom":
                check(set(j["deviations"]) == {"stdAbwNormal", "stdAbwSecond", "stdAbwMain"},
                      "plane: deviation keys %s" % list(j["deviations"]))
                geom_normal = n
            else:
                check(angle_between_axes(n, geom_normal) < 1e-6, "plane fast vs geom: %s %s" % (n, geom_normal))

    # Spatial line: 61 points over 120 mm, noise 3 um.
    j = tool.json("line3", os.path.join(data, "line3.txt"))
    if j:
        t = T["line3.txt"]
        d, q = j["parameters"]["direction"], j["parameters"]["point"]
        check(angle_between_axes(d, t["direction"]) < 1e-4, "line3: direction %s" % d)
        check(dist_point_line(q, t["point"], t["direction"]) < 0.002, "line3: point %s" % q)
        check(abs(j["deviations"]["stdAbwMain"] - 120 / math.sqrt(12) * math.sqrt(61 / 60 * 62 / 60)) < 1.0,
              "line3: spread along %s" % j["deviations"])

    # Planar line, both methods: slope 0.35 within 5e-4 rad, the true line's
    # point (300, 225.5) within 0.05 px of the fit.
    results = {}
    for method in ("geom", "lsq"):
        j = tool.json("line2", os.path.join(data, "edge_line.csv"), "-m", method)
        if j:
            t = T["edge_line.csv"]
            d, q = j["parameters"]["direction"], j["parameters"]["point"]
            check(angle_between_axes(d, [1.0, t["slope"]]) < 5e-4, "line2 %s: direction %s" % (method, d))
            check(dist_point_line([300.0, 0.35 * 300 + 120.5], q, d) < 0.05, "line2 %s: point %s" % (method, q))
            check(abs(j["deviations"]["StdAbwLine2"] - t["noise"]) < 0.2 * t["noise"],
                  "line2 %s: StdAbwLine2 %s" % (method, j["deviations"]))
            results[method] = j
    if len(results) == 2:
        check("meanSqDist" in results["lsq"]["deviations"] and "stdAbwOrth" in results["geom"]["deviations"],
              "line2: method-specific measures")


def group_outputs(tool, data, gen):
    bore = os.path.join(data, "bore_edge.csv")
    res_path = os.path.join(tool.work, "bore_res.csv")
    svg_path = os.path.join(tool.work, "bore.svg")
    rc, out, err = tool.run("circle", bore, "--residuals", res_path, "--svg", svg_path, "--y-down")
    check(rc == 0 and err == "", "outputs: exit %d, stderr %r" % (rc, err))

    # Table: heading, parameters, measures, worst line.
    check(out.startswith("circle fit (geom, approximate<double>::fitCircleGeom) to 235 points from "),
          "table heading: %r" % out[:120])
    m = re.search(r"^\s+radius\s+([-0-9.e+]+)\s+[0-9.e+-]+$", out, re.M)
    check(m and abs(float(m.group(1)) - 80.45) < 0.05, "table radius line")
    check("StdAbwCircle2" in out and re.search(r"at line \d+$", out, re.M), "table measures and worst line")

    # Residual file: one row per point, the original line numbers, and an rms
    # that matches the one reported.
    j = tool.json("circle", bore)
    with open(res_path) as f:
        rows = f.read().splitlines()
    check(rows[0] == "line,x,y,residual", "residual header %r" % rows[0])
    rows = [list(map(float, r.split(","))) for r in rows[1:]]
    check(len(rows) == 235, "residual rows %d" % len(rows))
    check(rows[0][0] == 5 and all(r[0] < s[0] for r, s in zip(rows, rows[1:])), "residual line numbers")
    rms = math.sqrt(sum(r[3] ** 2 for r in rows) / len(rows))
    if j:
        check(abs(rms - j["residuals"]["rms"]) < 1e-12 * rms, "residual rms %g vs %g" % (rms, j["residuals"]["rms"]))
        c, r0 = j["parameters"]["center"], j["parameters"]["radius"]
        worst = max(abs(math.hypot(r[1] - c[0], r[2] - c[1]) - r0 - r[3]) for r in rows)
        check(worst < 1e-9, "residuals are the radial distances (off by %g)" % worst)

    # Drawing: well-formed SVG, one whisker per point, the factor stated.
    ns = "{http://www.w3.org/2000/svg}"
    try:
        root = ET.parse(svg_path).getroot()
        check(root.tag == ns + "svg", "svg root")
        check(len(root.findall(".//" + ns + "line")) == 235, "svg whiskers")
        text = " ".join(t.text or "" for t in root.iter(ns + "text"))
        check(re.search(r"residuals magnified ×\d+", text), "svg legend: %r" % text)
    except ET.ParseError as e:
        check(False, "svg does not parse: %s" % e)

    # Every shape draws; the magnification is honoured; 3D fits name their view.
    views = {"sphere": ("sphere_scan.txt", "meridian section"), "plane": ("plane_outlier.csv", "plane's frame"),
             "line3": ("line3.txt", "axial against radial"), "line2": ("edge_line.csv", "line2 fit"),
             "cylinder": ("shaft_scan.txt", "section along the axis")}
    for shape, (name, title) in views.items():
        path = os.path.join(tool.work, shape + ".svg")
        rc, out, err = tool.run(shape, os.path.join(data, name), "--svg", path, "--magnify", "50", "--json")
        if check(rc == 0, "%s svg: exit %d %r" % (shape, rc, err)):
            s = open(path, encoding="utf-8").read()
            ET.fromstring(s)
            check("×50" in s, "%s svg: factor 50" % shape)
            check(title in s or shape == "line2", "%s svg: view title" % shape)

    # Large sets draw a bounded sample, and the legend says how many.
    many = "".join("%.6f,%.6f\n" % (50 + (10 + 0.01 * math.sin(7.3 * k)) * math.cos(0.001 * k),
                                    (10 + 0.01 * math.sin(7.3 * k)) * math.sin(0.001 * k)) for k in range(30000))
    path = os.path.join(tool.work, "many.svg")
    rc, out, err = tool.run("circle", tool.write("many.csv", many), "--svg", path)
    if check(rc == 0, "many svg: exit %d %r" % (rc, err)):
        root = ET.parse(path).getroot()
        lines = len(root.findall(".//" + ns + "line"))
        m = re.search(r"grey: (\d+) of 30000 measured points drawn", open(path, encoding="utf-8").read())
        check(m and int(m.group(1)) == lines and 18000 <= lines <= 20000, "many svg: %d whiskers, %r" % (lines, m))

    # --version and --help succeed on standard output.
    rc, out, err = tool.run("--version")
    check(rc == 0 and re.match(r"metrofit \d+\.\d+\.\d+", out), "version: %d %r" % (rc, out))
    rc, out, err = tool.run("--help")
    check(rc == 0 and "--residuals" in out and "Exit status" in out, "help: %d" % rc)


def dist_point_segment(p, q, r):
    dx, dy = r[0] - q[0], r[1] - q[1]
    t = max(0.0, min(1.0, ((p[0] - q[0]) * dx + (p[1] - q[1]) * dy) / (dx * dx + dy * dy)))
    return math.hypot(p[0] - q[0] - t * dx, p[1] - q[1] - t * dy)


def group_ellipse(tool, data, gen):
    # Exact points of a rotated ellipse far from the origin, unevenly spaced.
    cx, cy, a, b, th = 1250.5, -730.25, 40.0, 15.0, -0.7
    ct, st = math.cos(th), math.sin(th)
    rows = []
    for k in range(50):
        t = 0.3 + 2 * math.pi * k / 50 + 0.05 * math.sin(3 * k)
        u, v = a * math.cos(t), b * math.sin(t)
        rows.append("%.17g,%.17g" % (cx + ct * u - st * v, cy + st * u + ct * v))
    path = tool.write("ellipse.csv", "x,y\n" + "\n".join(rows) + "\n")
    want = {"a": a, "b": b, "angle": th}
    fits = {}
    for method, fn in (("geom", "fitEllipseGeom"), ("lm", "fitEllipseGeomLM")):
        j = tool.json("ellipse", path, "--method", method)
        if j is None:
            continue
        fits[method] = j
        p = j["parameters"]
        check(j["fit"] == "ellipse" and j["method"] == method and j["function"] == "approximate<double>::" + fn,
              "ellipse %s: fields %s %s" % (method, j["method"], j["function"]))
        check(math.hypot(p["center"][0] - cx, p["center"][1] - cy) < 1e-9 * a, "ellipse %s: centre %s" % (method, p))
        for k, v in want.items():
            check(abs(p[k] - v) < 1e-9 * (a if k != "angle" else 1), "ellipse %s: %s %r" % (method, k, p[k]))
        check(sorted(j["uncertainties"]) == ["a", "angle", "b", "center"] and len(j["uncertainties"]["center"]) == 2,
              "ellipse %s: uncertainties %s" % (method, j["uncertainties"]))
        check(j["solver"]["converged"] and j["solver"]["iterations"] > 0, "ellipse %s: solver %s" % (method, j["solver"]))
        check(j["residuals"]["max_abs"] < 1e-9 and "StdAbwEllipse" in j["deviations"],
              "ellipse %s: residuals %s" % (method, j["residuals"]))
    if len(fits) == 2:
        pg, pl = fits["geom"]["parameters"], fits["lm"]["parameters"]
        check(all(abs(pg[k] - pl[k]) < 1e-9 for k in ("a", "b", "angle")) and
              all(abs(pg["center"][i] - pl["center"][i]) < 1e-9 for i in range(2)), "ellipse: lm %s vs geom %s" % (pl, pg))

    # A noisy copy: the table, and a drawing whose whiskers start on the drawn
    # ellipse and point through their points.
    rnd = random.Random(5)
    noisy = []
    for r in rows:
        x, y = map(float, r.split(","))
        noisy.append("%.9g %.9g" % (x + rnd.gauss(0, 0.2), y + rnd.gauss(0, 0.2)))
    npath = tool.write("ellipse_noisy.txt", "\n".join(noisy) + "\n")
    svg_path = os.path.join(tool.work, "ellipse.svg")
    rc, out, err = tool.run("ellipse", npath, "--svg", svg_path, "--magnify", "10")
    check(rc == 0 and err == "", "ellipse svg: exit %d %r" % (rc, err))
    check(out.startswith("ellipse fit (geom, approximate<double>::fitEllipseGeom) to 50 points from ") and
          re.search(r"^  semi-axis a\s+4\d\.\d+\s+0\.\d+$", out, re.M) and
          re.search(r"^  iterations\s+\d+  \(converged\)$", out, re.M), "ellipse table: %r" % out)
    with open(svg_path) as f:
        svg = f.read()
    curve = [tuple(map(float, q.split(","))) for q in re.search(r'<polyline points="([^"]*)"', svg).group(1).split()]
    check(len(curve) == 361, "ellipse svg: %d curve points" % len(curve))
    pts = [tuple(map(float, m)) for m in re.findall(r'<circle cx="([-0-9.]+)" cy="([-0-9.]+)" r="1.80"/>', svg)]
    lines = [tuple(map(float, m)) for m in
             re.findall(r'<line x1="([-0-9.]+)" y1="([-0-9.]+)" x2="([-0-9.]+)" y2="([-0-9.]+)"', svg)]
    check(len(pts) == 50 and len(lines) == 50, "ellipse svg: %d points, %d whiskers" % (len(pts), len(lines)))
    for (px, py), (fx, fy, tx, ty) in zip(pts, lines):
        # Foot on the polyline (360 chords: sag below 0.1 px here).
        near = min(dist_point_segment((fx, fy), q, r) for q, r in zip(curve, curve[1:]))
        check(near < 0.2, "ellipse svg: foot (%g, %g) off the curve by %g px" % (fx, fy, near))
        # tip - foot = 10 (point - foot), to the 0.01 px of the printed numbers.
        check(math.hypot(tx - fx - 10 * (px - fx), ty - fy - 10 * (py - fy)) < 0.3,
              "ellipse svg: whisker (%g,%g)-(%g,%g) vs point (%g,%g)" % (fx, fy, tx, ty, px, py))

    for args, code, pattern in (
            (["ellipse", path, "--radius", "20"], 2, r"--radius is not available for ellipse with method geom; a fixed "
             r"radius is offered for circle, sphere, cylinder \(method geom\)$"),
            (["ellipse", path, "-m", "lsq"], 2, r"method 'lsq' is not available for ellipse; available: geom, lm$"),
            (["circle", path, "-m", "lm"], 2, r"method 'lm' is not available for circle; available: geom, lsq$"),
            (["ellipse", tool.write("four.csv", "\n".join(rows[:4]) + "\n")], 1, r"ellipse fit needs at least 5 points, found 4$"),
            (["ellipse", tool.write("eline.csv", "".join("%d,%d\n" % (i, 3 - i) for i in range(9)))], 1,
             r"collinear, an ellipse is not determined$")):
        expect_error(tool, args, code, pattern)


def expect_error(tool, args, code, pattern, stdin=None, quiet=False):
    rc, out, err = tool.run(*args, stdin=stdin)
    label = " ".join(os.path.basename(str(a)) for a in args)
    check(rc == code, "%s: exit %d, want %d (stderr %r)" % (label, rc, code, err))
    lines = err.splitlines()
    ok = len(lines) == 1 and lines[0].startswith("metrofit: error: ") and re.search(pattern, lines[0])
    check(ok, "%s: stderr %r, want one error line matching %r" % (label, err, pattern))
    check("FEHLER" not in out and not (quiet and out), "%s: output on stdout %r" % (label, out))
    return lines[0] if lines else ""


def group_errors(tool, data, gen):
    w = tool.write
    near = "".join("%.12f,%.12f\n" % (i, 0.5 * i + 3 + 1e-9 * (i % 3)) for i in range(20))
    ring = "".join("%.9f %.9f 4\n" % (math.cos(k), math.sin(k)) for k in range(12))
    # (fit, file, content, pattern): malformed lines name file and line; too few points;
    # degenerate configurations.  All exit 1.
    for fit, name, text, pattern in (
            ("circle", "bad.csv", "x,y\n1,2\n3,4\n5,abc\n6,7\n", r"bad\.csv:4: not a number: 'abc'"),
            ("circle", "cols.txt", "1 2\n3 4\n5 6 7\n", r"cols\.txt:3: expected 2 values"),
            ("circle", "nan.txt", "# c\n1 2\n3 4\nnan 6\n7 8\n", r"nan\.txt:4: NaN"),
            ("plane", "inf.txt", "1 2 3\n4 5 -inf\n", r"inf\.txt:2: infinite"),
            ("sphere", "huge.txt", "1 2 3\n4 5 1e999\n", r"huge\.txt:2: infinite or out-of-range"),
            ("circle", "xyz.txt", "1 2 3\n", r"xyz\.txt:1: this fit needs 2 values"),
            ("circle", "bin.dat", b"\x00\x01\xff\xfe garbage\n", r"bin\.dat:1: control character 0x00"),
            ("circle", "long.csv", "1,2\n" + "1" * 100000 + "\n", r"long\.csv:2: line longer than 65536 bytes"),
            ("circle", "three.csv", "0,1\n1,0\n-1,0\n", r"circle fit needs at least 4 points, found 3"),
            ("sphere", "empty.txt", "", r"needs at least 4 points, found 0"),
            ("line2", "one.txt", "x y\n1 2\n", r"needs at least 2 points, found 1"),
            ("circle", "collinear.csv", "".join("%d,%d\n" % (i, 2 * i + 1) for i in range(10)),
             r"collinear, a circle is not determined"),
            ("circle", "nearline.csv", near, r"degenerate"),
            ("sphere", "ring.txt", ring, r"coplanar, a sphere is not determined"),
            ("plane", "line.txt", "".join("%d %d %d\n" % (i, i, i) for i in range(6)), r"collinear, a plane is not determined"),
            ("plane", "line3pts.txt", "0 0 0\n1 1 1\n2 2 2\n", r"three points are collinear"),
            ("plane", "near3.txt", "0 0 0\n1 0 0\n2 2e-9 0\n", r"three points are collinear"),
            ("line3", "same.txt", "1 2 3\n1 2 3\n1 2 3\n", r"coincide"),
            ("line2", "same2.txt", "1 2\n1 2\n", r"coincide")):
        expect_error(tool, [fit, w(name, text, "wb" if isinstance(text, bytes) else "w")], 1, pattern, quiet=True)
    # Unreadable files.
    expect_error(tool, ["circle", os.path.join(tool.work, "missing.csv")], 1, r"cannot open .*No such file")
    expect_error(tool, ["circle", tool.work], 1, r"is a directory")
    if os.geteuid() != 0:
        locked = w("locked.csv", "1,2\n")
        os.chmod(locked, 0)
        expect_error(tool, ["circle", locked], 1, r"cannot open .*Permission denied")
    origin = w("origin.csv", "".join("%d,%d\n" % (i, 2 * i) for i in range(-3, 5)))
    expect_error(tool, ["line2", origin, "--method", "lsq"], 1, r"through the origin.*--method geom")
    j = tool.json("line2", origin)  # the orthogonal fit has no trouble with it
    if j:
        check(angle_between_axes(j["parameters"]["direction"], [1, 2]) < 1e-12, "line2 geom through the origin")

    # Extreme magnitudes: a clear result or a clear error, never a crash.
    big = "".join("%.6e %.6e\n" % (1e200 * math.cos(k), 1e200 * math.sin(k)) for k in range(8))
    rc, out, err = tool.run("circle", w("big.txt", big))
    check(rc in (0, 1) and (rc == 0 or err.startswith("metrofit: error: ")), "huge circle: exit %d %r" % (rc, err))

    # Outputs that cannot be written.
    bore = os.path.join(data, "bore_edge.csv")
    expect_error(tool, ["circle", bore, "--svg", "/nonexistent/dir/x.svg"], 1, r"cannot write the SVG file")
    expect_error(tool, ["circle", bore, "--residuals", tool.work], 1, r"cannot write the residuals file")

    # A write that fails part-way (file size limit) leaves no output and no
    # temporary file, and an existing output file unchanged.
    def small_files():
        signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
        resource.setrlimit(resource.RLIMIT_FSIZE, (8000, 8000))
    full = os.path.join(tool.work, "full")
    os.makedirs(full, exist_ok=True)
    for name in os.listdir(full):
        os.remove(os.path.join(full, name))
    with open(os.path.join(full, "x.svg"), "w") as f:
        f.write("old")
    for opt, name, what in (("--svg", "x.svg", "SVG"), ("--residuals", "x.csv", "residuals")):
        p = subprocess.run([tool.path, "circle", bore, opt, os.path.join(full, name)], capture_output=True,
                           preexec_fn=small_files, timeout=60)
        err = p.stderr.decode("utf-8")
        check(p.returncode == 1 and re.fullmatch(r"metrofit: error: writing the %s file '.*' failed: .*\n" % what, err),
              "full disk %s: exit %d %r" % (opt, p.returncode, err))
    check(sorted(os.listdir(full)) == ["x.svg"] and open(os.path.join(full, "x.svg")).read() == "old",
          "failed writes left %s" % sorted(os.listdir(full)))

    # Outputs never replace the input, also through another name.
    with open(bore) as f:
        text = f.read()
    own = w("own.csv", text)
    alias = os.path.join(tool.work, "alias.csv")
    if os.path.exists(alias):
        os.remove(alias)
    os.link(own, alias)
    expect_error(tool, ["circle", own, "--residuals", own], 2, r"the residuals file '.*own\.csv' is the input file")
    expect_error(tool, ["circle", own, "--svg", alias], 2, r"the SVG file '.*alias\.csv' is the input file")
    check(open(own).read() == text, "input file changed")


def group_usage(tool, data, gen):
    bore = os.path.join(data, "bore_edge.csv")
    for args, pattern in (
            (["torus", bore], r"unknown fit 'torus'; choose one of line2, line3, circle, sphere, plane, cylinder, ellipse$"),
            (["circle"], r"FILE is required"), ([], r"required"), (["circle", bore, "--frobnicate"], r"frobnicate"),
            (["cylinder", bore, "--method", "lsq"], r"method 'lsq' is not available for cylinder; available: geom"),
            (["plane", bore, "--radius", "5"], r"--radius is not available for plane with method geom"),
            (["circle", bore, "-m", "lsq", "--radius", "5"], r"--radius is not available for circle with method lsq"),
            (["sphere", bore, "--radius", "0"], r"--radius needs a positive number$"),
            (["line3", bore, "--method", "banana"], r"method 'banana' is not available for line3"),
            (["circle", bore, "--magnify", "-3"], r"--magnify needs a positive number$"),
            (["circle", bore, "--magnify", "inf"], r"--magnify needs a positive number$"),
            (["sphere", bore, "--radius", "nan"], r"--radius needs a positive number$"),
            (["circle", bore, "--magnify", "x"], r"magnify"), (["circle", bore, "extra"], r"extra")):
        expect_error(tool, args, 2, pattern, quiet=True)


def group_data(tool, data, gen):
    # The committed samples are exactly what the generator writes.
    out = os.path.join(tool.work, "regen")
    subprocess.run([sys.executable, os.path.join(data, "gen.py"), "--out", out], check=True, timeout=60)
    for name in gen.TRUTH:
        with open(os.path.join(out, name), "rb") as a, open(os.path.join(data, name), "rb") as b:
            check(a.read() == b.read(), "examples/data/%s differs from gen.py's output" % name)


GROUPS = {"samples": group_samples, "outputs": group_outputs, "errors": group_errors, "usage": group_usage,
          "data": group_data, "ellipse": group_ellipse}


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--tool", required=True)
    ap.add_argument("--data", required=True)
    ap.add_argument("--work", required=True)
    ap.add_argument("--group", action="append", choices=sorted(GROUPS))
    args = ap.parse_args()
    os.makedirs(args.work, exist_ok=True)
    tool = Tool(os.path.abspath(args.tool), os.path.abspath(args.work))
    sys.path.insert(0, os.path.abspath(args.data))
    import gen  # the sample generator, for its TRUTH table
    for name in args.group or list(GROUPS):
        print("== " + name)
        GROUPS[name](tool, os.path.abspath(args.data), gen)
    if FAILURES:
        print("%d check(s) failed" % len(FAILURES))
        return 1
    print("all checks passed")
    return 0


if __name__ == "__main__":
    sys.exit(main())
