#!/usr/bin/env python3
"""Geometric circle, sphere and cylinder fits with scipy.optimize.least_squares.

The Python user's view of the fits that bench/fitgeom_bench.cpp measures: the
same data (same shapes, sizes and noise, numpy's generator), the same kind of
start (algebraic circle / sphere; for the cylinder a nominal axis tilted
2 degrees and shifted 0.5 mm), analytic Jacobians, tolerances 1e-12
(xtol, gtol) and 1e-15 (ftol), method 'lm' (MINPACK) and 'trf'.

Usage:  bench/fitgeom_scipy.py [n ...]      (default 1000 10000 100000 1000000)
Prints per fit: time per fit, Jacobian evaluations (iterations), function
evaluations and ns per point per iteration.
"""
import sys
import time

import numpy as np
from scipy.optimize import least_squares

PI = np.pi


def circle_data(n):
    rng = np.random.default_rng(1)
    t = 0.3 + (2 * PI / 3) * np.arange(n) / n
    r = 50 + rng.normal(0, 0.01, n)
    return np.column_stack([1000 + r * np.cos(t), 2000 + r * np.sin(t)])


def sphere_data(n):
    rng = np.random.default_rng(2)
    i = np.arange(n)
    th = (PI / 4) * np.sqrt((i + 0.5) / n)
    ph = 2.399963229728653 * i
    r = 50 + rng.normal(0, 0.01, n)
    return np.column_stack([1000 + r * np.sin(th) * np.cos(ph), 2000 + r * np.sin(th) * np.sin(ph),
                            500 + r * np.cos(th)])


def cyl_frame():
    a = np.array([1000.0, 1000.0, 1000.0])
    w = np.array([0.3, -0.2, 1.0])
    w /= np.linalg.norm(w)
    u = np.array([w[2], 0.0, -w[0]])
    u /= np.linalg.norm(u)
    return a, w, u, np.cross(w, u)


def cylinder_data(n):
    rng = np.random.default_rng(3)
    a, w, u, v = cyl_frame()
    t = rng.uniform(0, PI, n)
    z = rng.uniform(0, 100, n)
    r = 20 + rng.normal(0, 0.01, n)
    return a + (r * np.cos(t))[:, None] * u + (r * np.sin(t))[:, None] * v + z[:, None] * w


def kasa(p):
    """Algebraic circle / sphere on centred points: |q|^2 = 2 c.q + k."""
    m = p.mean(axis=0)
    q = p - m
    A = np.column_stack([2 * q, np.ones(len(q))])
    x = np.linalg.lstsq(A, (q * q).sum(axis=1), rcond=None)[0]
    c = x[:-1]
    return np.concatenate([m + c, [np.sqrt(x[-1] + c @ c)]])


def ball_fun(x, p):
    d = p - x[:-1]
    return np.sqrt((d * d).sum(axis=1)) - x[-1]


def ball_jac(x, p):
    d = p - x[:-1]
    rho = np.sqrt((d * d).sum(axis=1))
    return np.column_stack([-d / rho[:, None], -np.ones(len(p))])


def cyl_setup(p):
    a, w, u, v = cyl_frame()
    tilt = 2 * PI / 180
    a0 = a + 0.5 * u
    w0 = w + tilt * v
    w0 /= np.linalg.norm(w0)
    u0 = np.array([w0[2], 0.0, -w0[0]])
    u0 /= np.linalg.norm(u0)
    v0 = np.cross(w0, u0)
    d = p - a0
    s = d @ w0
    r0 = np.sqrt((d * d).sum(axis=1) - s * s).mean()
    return a0, w0, u0, v0, np.array([0, 0, 0, 0, r0])


def cyl_parts(x, p, a0, w0, u0, v0):
    m = w0 + x[2] * u0 + x[3] * v0
    nm = np.linalg.norm(m)
    wd = m / nm
    q = p - a0 - x[0] * u0 - x[1] * v0
    s = q @ wd
    rho = np.sqrt(np.maximum((q * q).sum(axis=1) - s * s, 0))
    return q, s, rho, wd, nm


def cyl_fun(x, p, a0, w0, u0, v0):
    return cyl_parts(x, p, a0, w0, u0, v0)[2] - x[4]


def cyl_jac(x, p, a0, w0, u0, v0):
    q, s, rho, wd, nm = cyl_parts(x, p, a0, w0, u0, v0)
    qu, qv = q @ u0, q @ v0
    wu, wv = wd @ u0, wd @ v0
    return np.column_stack([(-qu + s * wu) / rho, (-qv + s * wv) / rho, -s * (qu - s * wu) / nm / rho,
                            -s * (qv - s * wv) / nm / rho, -np.ones(len(p))])


def run(name, fun, jac, x0, args, n, method):
    best = None
    reps = 3 if n <= 100000 else 1
    for _ in range(reps):
        t0 = time.perf_counter()
        res = least_squares(fun, x0, jac=jac, args=args, method=method, xtol=1e-12, ftol=1e-15, gtol=1e-12)
        dt = time.perf_counter() - t0
        best = dt if best is None else min(best, dt)
    it = res.njev if res.njev is not None else res.nfev
    print(f"{name:9s} n={n:8d} {method:3s} {best * 1e3:10.2f} ms  iterations {it:3d}  fevals {res.nfev:3d}  "
          f"{best * 1e9 / (n * max(it, 1)):8.1f} ns/point/iter  status {res.status}")


def main():
    sizes = [int(a) for a in sys.argv[1:]] or [1000, 10000, 100000, 1000000]
    for n in sizes:
        p = circle_data(n)
        for m in ("lm", "trf"):
            run("circle", ball_fun, ball_jac, kasa(p), (p,), n, m)
        p = sphere_data(n)
        for m in ("lm", "trf"):
            run("sphere", ball_fun, ball_jac, kasa(p), (p,), n, m)
        p = cylinder_data(n)
        a0, w0, u0, v0, x0 = cyl_setup(p)
        for m in ("lm", "trf"):
            run("cylinder", cyl_fun, cyl_jac, x0, (p, a0, w0, u0, v0), n, m)


if __name__ == "__main__":
    main()
