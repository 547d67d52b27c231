#!/usr/bin/env python3
"""Fits a plane to a point cloud stored as many .npy files, on a Dask
LocalCluster of two workers, and checks it against an in-process fit.

    PYTHONPATH=build/rel/python /usr/bin/python3 python/examples/dask_plane.py \
        [--points 100000000] [--files 100] [--dir /tmp/metromath_scan]

The files (float64, shape (n, 3), a tilted 200 x 200 mm patch 1500 mm from the
origin with 1 um noise) are written once and reused.  Each worker sums its
chunks into moment accumulators; the accumulators are merged by a tree
reduction and one fit runs on the result.  Printed: wall time, points per
second per worker, the peak resident memory of each worker, and the
difference from the plane fitted in this process from the same files' merged
accumulators (read one file at a time).
"""
import argparse
import os
import resource
import time

import numpy as np

import metromath as mm

NORMAL = np.array([0.1, -0.2, 1.0]) / np.linalg.norm([0.1, -0.2, 1.0])


def write_files(folder, points, files):
    os.makedirs(folder, exist_ok=True)
    per = points // files
    e1 = np.cross(NORMAL, [1.0, 0.0, 0.0])
    e1 /= np.linalg.norm(e1)
    e2 = np.cross(NORMAL, e1)
    names = []
    for k in range(files):
        name = os.path.join(folder, f"part{k:04d}.npy")
        names.append(name)
        if os.path.exists(name) and np.load(name, mmap_mode="r").shape == (per, 3):
            continue
        rng = np.random.default_rng(k)
        uv = rng.uniform(-100, 100, (per, 2))
        p = 1500.0 + uv[:, :1] * e1 + uv[:, 1:] * e2 + rng.normal(0, 1e-3, (per, 1)) * NORMAL
        np.save(name, p)
    return names, per


def peak_rss_mb():
    return resource.getrusage(resource.RUSAGE_SELF).ru_maxrss / 1024.0


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--points", type=int, default=100_000_000)
    ap.add_argument("--files", type=int, default=100)
    ap.add_argument("--dir", default="/tmp/metromath_scan")
    args = ap.parse_args()

    import dask
    import dask.array as da
    import distributed

    import metromath.dask as mdask

    names, per = write_files(args.dir, args.points, args.files)
    load = dask.delayed(lambda f: np.load(f, mmap_mode="r"), pure=True)
    array = da.concatenate([da.from_delayed(load(f), (per, 3), np.float64) for f in names])

    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                                  dashboard_address=None) as cluster, distributed.Client(cluster) as client:
        t0 = time.perf_counter()
        plane = mdask.fit_plane(array)
        wall = time.perf_counter() - t0
        peaks = client.run(peak_rss_mb)

    ref = mm.MomentSums3()
    for f in names:
        ref.add(np.load(f, mmap_mode="r"))
    local = mm.fit_plane_geom_sums(ref)
    n = per * len(names)
    sign = 1.0 if plane.normal @ local.normal > 0 else -1.0
    angle = np.arcsin(min(1.0, np.linalg.norm(np.cross(plane.normal, local.normal))))
    print(f"points: {n:,} in {len(names)} files")
    print(f"dask fit: {wall:.2f} s on 2 workers, {n / wall / 2:,.0f} points/s per worker")
    for w, mb in sorted(peaks.items()):
        print(f"peak memory of worker {w}: {mb:.0f} MB")
    print(f"plane: {plane}")
    print(f"against the in-process fit: normal angle {angle:.2e} rad, "
          f"d difference {abs(sign * plane.d - local.d):.2e} mm")
    truth = np.arcsin(min(1.0, np.linalg.norm(np.cross(plane.normal, NORMAL))))
    print(f"against the truth: normal angle {truth:.2e} rad")


if __name__ == "__main__":
    main()
