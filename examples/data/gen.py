#!/usr/bin/env python3
"""Sample point files for metrofit, generated with a fixed seed.

    python3 examples/data/gen.py [--out DIR]      (default: this directory)

Standard library only; the same Python 3 gives the same bytes on every run
(random.Random(SEED) with the Mersenne Twister, fixed formatting), and the end-
to-end tests check that the committed files are reproduced exactly.

Files (the true parameters are in TRUTH below and in each file's comments):

  bore_edge.csv     edge points of a bore in a camera image, in pixels: a
                    circle of radius 80.45 px, sampled every 1.25 degrees
                    except where a clamp hides the rim between 200 and 265
                    degrees; Gaussian radial noise of 0.12 px (sub-pixel edge
                    detection).  Comma-separated with a header line.
                    Fit: metrofit circle examples/data/bore_edge.csv
  sphere_scan.txt   a reference ball of radius 12.7 mm probed from above over
                    a spherical cap (polar angle up to 70 degrees, 300 points
                    on a Fibonacci spiral), Gaussian radial noise of 1.5 um;
                    whitespace-separated x y z in mm with '#' comments.
                    Fit: metrofit sphere examples/data/sphere_scan.txt
  plane_outlier.csv a tilted flat face, 12 x 8 points over 110 x 70 mm with
                    jitter, Gaussian noise of 2 um along z, and one gross
                    outlier (a chip on the surface) 0.35 mm above the face.
                    Comma-separated x,y,z with a header line.
                    Fit: metrofit plane examples/data/plane_outlier.csv
  line3.txt         points along a spatial edge 120 mm long, Gaussian noise
                    of 3 um across the line; whitespace-separated x y z.
                    Fit: metrofit line3 examples/data/line3.txt
  edge_line.csv     a straight edge in an image, y = 0.35 x + 120.5 px,
                    Gaussian noise of 0.1 px across the edge.
                    Fit: metrofit line2 examples/data/edge_line.csv
  shaft_scan.txt    a shaft of nominal diameter 16 mm (true radius 7.996 mm)
                    probed on 4 circular tracks 15 mm apart over a 270-degree
                    arc (a fixture hides the rest), 36 points per track, axis
                    tilted to the machine's z; Gaussian radial noise of 2 um;
                    whitespace-separated x y z in mm with '#' comments.
                    Fit: metrofit cylinder examples/data/shaft_scan.txt
                    (nominal radius: --radius 8)
"""

import argparse
import math
import os
import random

SEED = 20240611

TRUTH = {
    "bore_edge.csv": {"center": (412.37, 287.91), "radius": 80.45, "noise": 0.12},
    "sphere_scan.txt": {"center": (25.0, -40.0, 12.3), "radius": 12.7, "noise": 0.0015},
    "plane_outlier.csv": {"z0": 15.0, "slope_x": 0.002, "slope_y": -0.0035, "noise": 0.002,
                          "outlier_index": 37, "outlier": 0.35},
    "line3.txt": {"point": (10.0, 20.0, 5.0), "direction": (0.6, 0.48, 0.64), "length": 120.0,
                  "noise": 0.003},
    "edge_line.csv": {"slope": 0.35, "intercept": 120.5, "noise": 0.1},
    "shaft_scan.txt": {"point": (120.0, 80.0, 10.0), "direction": (0.05, -0.03, 1.0), "radius": 7.996,
                       "noise": 0.002},
}


def bore_edge(rng):
    t = TRUTH["bore_edge.csv"]
    cx, cy = t["center"]
    lines = ["# Edge points of a bore in a camera image (pixel coordinates), from gen.py.",
             "# True circle: centre (412.37, 287.91) px, radius 80.45 px; radial noise 0.12 px;",
             "# the rim between 200 and 265 degrees is hidden by a clamp.",
             "x_px,y_px"]
    for k in range(288):
        a = k * 1.25
        if 200.0 <= a <= 265.0:
            continue
        r = t["radius"] + rng.gauss(0.0, t["noise"])
        phi = math.radians(a)
        lines.append("%.3f,%.3f" % (cx + r * math.cos(phi), cy + r * math.sin(phi)))
    return lines


def sphere_scan(rng):
    t = TRUTH["sphere_scan.txt"]
    cx, cy, cz = t["center"]
    n = 300
    lines = ["# Spherical cap scan of a reference ball, x y z in mm, from gen.py.",
             "# True sphere: centre (25.0, -40.0, 12.3) mm, radius 12.7 mm; radial noise 1.5 um;",
             "# polar angle up to 70 degrees from +z, %d points on a Fibonacci spiral." % n]
    golden = math.pi * (3.0 - math.sqrt(5.0))
    cos_max = math.cos(math.radians(70.0))
    for k in range(n):
        # Equal-area spacing over the cap: cos(theta) uniform in [cos_max, 1].
        c = 1.0 - (k + 0.5) / n * (1.0 - cos_max)
        s = math.sqrt(1.0 - c * c)
        phi = k * golden
        r = t["radius"] + rng.gauss(0.0, t["noise"])
        lines.append("%.5f %.5f %.5f" % (cx + r * s * math.cos(phi), cy + r * s * math.sin(phi), cz + r * c))
    return lines


def plane_outlier(rng):
    t = TRUTH["plane_outlier.csv"]
    lines = ["# Flat face with one chip on it, x,y,z in mm, from gen.py.",
             "# True plane: z = 15.0 + 0.002 x - 0.0035 y; noise 2 um along z;",
             "# the 38th point (index 37) lies 0.35 mm above the face.",
             "x,y,z"]
    k = 0
    for j in range(8):
        for i in range(12):
            x = i * 10.0 + rng.uniform(-1.0, 1.0)
            y = j * 10.0 + rng.uniform(-1.0, 1.0)
            z = t["z0"] + t["slope_x"] * x + t["slope_y"] * y + rng.gauss(0.0, t["noise"])
            if k == t["outlier_index"]:
                z += t["outlier"]
            lines.append("%.4f,%.4f,%.5f" % (x, y, z))
            k += 1
    return lines


def line3(rng):
    t = TRUTH["line3.txt"]
    px, py, pz = t["point"]
    dx, dy, dz = t["direction"]
    norm = math.sqrt(dx * dx + dy * dy + dz * dz)
    dx, dy, dz = dx / norm, dy / norm, dz / norm
    # Two unit vectors across the line for the noise.
    ux, uy, uz = dy, -dx, 0.0
    un = math.sqrt(ux * ux + uy * uy)
    ux, uy = ux / un, uy / un
    vx, vy, vz = dy * uz - dz * uy, dz * ux - dx * uz, dx * uy - dy * ux
    lines = ["# Points along a spatial edge, x y z in mm, from gen.py.",
             "# True line: through (10, 20, 5) along (0.6, 0.48, 0.64)/|.|; noise 3 um across.",
             "# One point per 2 mm over 120 mm."]
    for k in range(61):
        s = k * t["length"] / 60.0
        a, b = rng.gauss(0.0, t["noise"]), rng.gauss(0.0, t["noise"])
        lines.append("%.5f %.5f %.5f" % (px + s * dx + a * ux + b * vx,
                                         py + s * dy + a * uy + b * vy,
                                         pz + s * dz + a * uz + b * vz))
    return lines


def edge_line(rng):
    t = TRUTH["edge_line.csv"]
    m, c = t["slope"], t["intercept"]
    n = math.sqrt(1.0 + m * m)
    lines = ["# A straight edge in an image (pixel coordinates), from gen.py.",
             "# True line: y = 0.35 x + 120.5 px; noise 0.1 px across the edge.",
             "x_px,y_px"]
    for k in range(111):
        x = 50.0 + 5.0 * k
        e = rng.gauss(0.0, t["noise"])
        # Offset across the edge along its unit normal (-m, 1)/n.
        lines.append("%.3f,%.3f" % (x - e * m / n, m * x + c + e / n))
    return lines


def shaft_scan(rng):
    t = TRUTH["shaft_scan.txt"]
    px, py, pz = t["point"]
    dx, dy, dz = t["direction"]
    norm = math.sqrt(dx * dx + dy * dy + dz * dz)
    dx, dy, dz = dx / norm, dy / norm, dz / norm
    # Two unit vectors across the axis.
    ux, uy, uz = dz, 0.0, -dx
    un = math.sqrt(ux * ux + uz * uz)
    ux, uz = ux / un, uz / un
    vx, vy, vz = dy * uz - dz * uy, dz * ux - dx * uz, dx * uy - dy * ux
    lines = ["# Scan of a shaft on 4 tracks, x y z in mm, from gen.py.",
             "# True cylinder: axis through (120, 80, 10) along (0.05, -0.03, 1)/|.|, radius 7.996 mm;",
             "# radial noise 2 um; 270-degree arc, tracks 15 mm apart along the axis."]
    for track in range(4):
        s = 15.0 * track
        for k in range(36):
            phi = math.radians(-135.0 + 270.0 * k / 35.0)
            r = t["radius"] + rng.gauss(0.0, t["noise"])
            a, b = r * math.cos(phi), r * math.sin(phi)
            lines.append("%.5f %.5f %.5f" % (px + s * dx + a * ux + b * vx,
                                             py + s * dy + a * uy + b * vy,
                                             pz + s * dz + a * uz + b * vz))
    return lines


GENERATORS = [("bore_edge.csv", bore_edge), ("sphere_scan.txt", sphere_scan),
              ("plane_outlier.csv", plane_outlier), ("line3.txt", line3), ("edge_line.csv", edge_line),
              ("shaft_scan.txt", shaft_scan)]


def main():
    parser = argparse.ArgumentParser(description="Generate metrofit's sample point files.")
    parser.add_argument("--out", default=os.path.dirname(os.path.abspath(__file__)),
                        help="output directory (default: the directory of this script)")
    args = parser.parse_args()
    os.makedirs(args.out, exist_ok=True)
    for name, generate in GENERATORS:
        # One generator per file, each seeded on its own, so that changing one
        # file leaves the others as they are.
        rng = random.Random("%d:%s" % (SEED, name))
        with open(os.path.join(args.out, name), "w", newline="\n") as f:
            f.write("\n".join(generate(rng)) + "\n")


if __name__ == "__main__":
    main()
