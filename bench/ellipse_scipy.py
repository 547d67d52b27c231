#!/usr/bin/python3
"""The geometric ellipse fit as a Python user writes it with scipy, for
comparison with bench/ellipse_bench (same data model, same start, same
tolerances).

Model: residuals p_i - X(t_i), X(t) = c + R(th) (a cos t, b sin t), unknowns
(xc, yc, a, b, th, t_1..t_n), analytic sparse Jacobian, scipy.optimize.
least_squares(method='trf', tr_solver='lsmr'), on data translated to the
centroid and scaled by the RMS radius, started from the direct
(Halir-Flusser) ellipse fit.

Usage: bench/ellipse_scipy.py [n ...]      (default 1000 10000 100000)
Prints per n: seconds per fit, iterations (Jacobian evaluations), ns per
point and iteration, and the fitted axes.
"""
import sys
import time

import numpy as np
import scipy.sparse as sp
from scipy.optimize import least_squares


def data(n, rng):
    t = 2 * np.pi * (np.arange(n) + 0.5) / n
    c, s = np.cos(0.5), np.sin(0.5)
    u, w = 10.0 * np.cos(t), 6.0 * np.sin(t)
    x = 1000.0 + c * u - s * w + rng.normal(0, 1e-3, n)
    y = 2000.0 + s * u + c * w + rng.normal(0, 1e-3, n)
    return x, y


def direct_start(x, y):
    d1 = np.column_stack([x * x, x * y, y * y])
    d2 = np.column_stack([x, y, np.ones_like(x)])
    s1, s2, s3 = d1.T @ d1, d1.T @ d2, d2.T @ d2
    tm = -np.linalg.solve(s3, s2.T)
    m = s1 + s2 @ tm
    mc = np.vstack([m[2] / 2, -m[1], m[0] / 2])
    _, vec = np.linalg.eig(mc)
    vec = vec.real
    cond = 4 * vec[0] * vec[2] - vec[1] ** 2
    a1 = vec[:, np.argmax(cond > 0)]
    A, B, C = a1
    D, E, F = tm @ a1
    if A + C < 0:
        A, B, C, D, E, F = -A, -B, -C, -D, -E, -F
    den = 4 * A * C - B * B
    x0, y0 = (B * E - 2 * C * D) / den, (B * D - 2 * A * E) / den
    f0 = F + 0.5 * (D * x0 + E * y0)
    hs, hd = (A + C) / 2, np.hypot((A - C) / 2, B / 2)
    return np.array([x0, y0, np.sqrt(-f0 / (hs - hd)), np.sqrt(-f0 / (hs + hd)),
                     0.5 * np.arctan2(B, A - C) + np.pi / 2])


def fit(x, y):
    n = x.size
    cx, cy = x.mean(), y.mean()
    sc = 1.0 / np.sqrt(np.mean((x - cx) ** 2 + (y - cy) ** 2))
    xs, ys = (x - cx) * sc, (y - cy) * sc
    q0 = direct_start(xs, ys)
    ca, sa = np.cos(q0[4]), np.sin(q0[4])
    dx, dy = xs - q0[0], ys - q0[1]
    t0 = np.arctan2((-sa * dx + ca * dy) / q0[3], (ca * dx + sa * dy) / q0[2])
    rows = np.arange(2 * n)
    idx = np.arange(n)

    def res(p):
        q, t = p[:5], p[5:]
        ca, sa, ct, st = np.cos(q[4]), np.sin(q[4]), np.cos(t), np.sin(t)
        u, v = q[2] * ct, q[3] * st
        return np.concatenate([xs - (q[0] + ca * u - sa * v), ys - (q[1] + sa * u + ca * v)])

    def jac(p):
        q, t = p[:5], p[5:]
        ca, sa, ct, st = np.cos(q[4]), np.sin(q[4]), np.cos(t), np.sin(t)
        u, v = q[2] * ct, q[3] * st
        jx = np.column_stack([-np.ones(n), np.zeros(n), -ca * ct, sa * st, ca * v + sa * u,
                              ca * q[2] * st + sa * q[3] * ct])
        jy = np.column_stack([np.zeros(n), -np.ones(n), -sa * ct, -ca * st, sa * v - ca * u,
                              sa * q[2] * st - ca * q[3] * ct])
        vals = np.concatenate([jx, jy])
        cols = np.column_stack([np.tile(np.arange(5), (2 * n, 1)), 5 + np.concatenate([idx, idx])])
        return sp.csr_matrix((vals.ravel(), (np.repeat(rows, 6), cols.ravel())), shape=(2 * n, 5 + n))

    r = least_squares(res, np.concatenate([q0, t0]), jac=jac, method='trf', tr_solver='lsmr',
                      xtol=1e-13, gtol=1e-14, ftol=64 * 2.220446049250313e-16, max_nfev=100)
    q = r.x[:5]
    return r, (cx + q[0] / sc, cy + q[1] / sc, q[2] / sc, q[3] / sc, q[4])


def main():
    sizes = [int(a) for a in sys.argv[1:]] or [1000, 10000, 100000]
    rng = np.random.default_rng(5)
    print(f"{'n':>8} {'s/fit':>9} {'iters':>5} {'ns/pt/it':>9}  a, b")
    for n in sizes:
        x, y = data(n, rng)
        t = time.process_time()
        r, e = fit(x, y)
        dt = time.process_time() - t
        iters = r.njev
        print(f"{n:>8} {dt:9.3f} {iters:5d} {dt * 1e9 / (n * iters):9.0f}  {max(e[2], e[3]):.9f}, "
              f"{min(e[2], e[3]):.9f}  status {r.status}")


if __name__ == '__main__':
    main()
