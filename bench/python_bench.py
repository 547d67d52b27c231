#!/usr/bin/env python3
"""Python-side fits of 10^6 points: metromath beside plain numpy, and the
binding's cost per call and per point.

Usage: PYTHONPATH=build/rel/python /usr/bin/python3 bench/python_bench.py

Rows: plane (numpy: SVD of the centred points), circle (numpy: the same
algebraic model by lstsq), each through the fit over points (the array is
read where it lies) and through the moment sums, beside the C++ fit alone on
the same points (timed inside the module on a std::vector).  The per-call
overhead is a Python fit of 10 points minus the C++ fit of the same 10; the
per-point cost of the binding is the Python fit of 10^6 points minus the C++
fit of them, divided by 10^6.
"""
import time

import numpy as np

import metromath as mm


def best(f, reps):
    t = []
    for _ in range(reps):
        s = time.perf_counter()
        f()
        t.append(time.perf_counter() - s)
    return min(t)


def numpy_plane(p):
    c = p - p.mean(axis=0)
    return np.linalg.svd(c, full_matrices=False)[2][2]


def numpy_circle(p):
    m = p.mean(axis=0)
    u, v = (p - m).T
    return np.linalg.lstsq(np.c_[u * u + v * v, u, v], np.ones(len(u)), rcond=None)[0]


def main():
    rng = np.random.default_rng(0)
    n = 1_000_000
    p3 = rng.normal(size=(n, 3)) * [50, 50, 0.01] + 1500
    t = rng.uniform(0, 6.28, n)
    p2 = np.c_[1000 + 10 * np.cos(t), 2000 + 10 * np.sin(t)] + rng.normal(0, 1e-3, (n, 2))
    p3s, p2s = p3[:10].copy(), p2[:10].copy()
    cpp = mm._metromath._cpp_fit_seconds
    rows = [
        ("plane", p3, p3s, lambda: numpy_plane(p3), lambda: mm.fit_plane_geom(p3),
         lambda: mm.fit_plane_geom_sums(mm.MomentSums3(p3)), lambda: mm.fit_plane_geom(p3s)),
        ("circle", p2, p2s, lambda: numpy_circle(p2), lambda: mm.fit_circle_lsq(p2),
         lambda: mm.fit_circle_lsq_sums(mm.MomentSums2(p2)), lambda: mm.fit_circle_lsq(p2s)),
    ]
    print(f"{'fit':8} {'numpy ms':>9} {'python ms':>10} {'sums ms':>8} {'C++ ms':>7} {'numpy/python':>13} "
          f"{'python/C++':>11} {'call us':>8} {'binding ns/pt':>14}")
    for name, big, small_pts, ref, pts, sums, small in rows:
        tn, tp, ts = best(ref, 3), best(pts, 5), best(sums, 5)
        tcpp = cpp(name, big, 5)
        tc = best(small, 2000) - cpp(name, small_pts, 2000)
        print(f"{name:8} {tn * 1e3:9.2f} {tp * 1e3:10.2f} {ts * 1e3:8.2f} {tcpp * 1e3:7.2f} {tn / tp:13.1f} "
              f"{tp / tcpp:11.2f} {tc * 1e6:8.2f} {(tp - tcpp) / n * 1e9:14.2f}")


if __name__ == "__main__":
    main()
