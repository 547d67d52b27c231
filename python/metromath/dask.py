"""Fits of point clouds too big for one machine, on Dask.

Each chunk of a dask array of shape (N, 2) or (N, 3), chunked along N, is
summed into a moment accumulator where it lies (map_blocks); the accumulators
travel as their byte form and are merged by a tree reduction on the cluster;
one fit runs on the result.  The answer equals the in-memory fit of the
accumulated points (to about 1e-13 relative), whatever the chunking.

Example:
    >>> import dask.array as da, metromath.dask as mdask
    >>> plane = mdask.fit_plane(da.from_npy_stack("scan/"))  # doctest: +SKIP
"""
import numpy as np

from ._metromath import (
    MomentSums2,
    MomentSums3,
    fit_circle_lsq_sums,
    fit_line_geom_sums,
    fit_plane_geom_sums,
    fit_sphere_lsq_sums,
)

_SUMS = {2: MomentSums2, 3: MomentSums3}


def _chunk_bytes(block, dim):
    s = _SUMS[dim]()
    if block.shape[0]:
        s.add(block)
    return np.frombuffer(s.to_bytes(), dtype=np.uint8)[None, :]


def _merge(dim, *parts):
    s = _SUMS[dim]()
    for p in parts:
        s.merge(_SUMS[dim].from_bytes(np.asarray(p, dtype=np.uint8).tobytes()))
    return np.frombuffer(s.to_bytes(), dtype=np.uint8)[None, :]


def moment_sums(array, split_every=8):
    """The merged moment sums of a dask array of shape (N, 2|3) chunked along N."""
    import dask
    import dask.array as da

    if array.ndim != 2 or array.shape[1] not in (2, 3):
        raise ValueError("expected a dask array of shape (N, 2) or (N, 3)")
    dim = int(array.shape[1])
    if len(array.chunks[1]) != 1:
        array = array.rechunk({1: dim})
    width = len(_SUMS[dim]().to_bytes())
    parts = da.map_blocks(
        _chunk_bytes,
        array,
        dim,
        dtype=np.uint8,
        chunks=((1,) * len(array.chunks[0]), (width,)),
    )
    level = [dask.delayed(b) for b in parts.to_delayed().ravel()]
    merge = dask.delayed(_merge, pure=True)
    while len(level) > 1:
        level = [merge(dim, *level[i:i + split_every]) for i in range(0, len(level), split_every)]
    row = level[0].compute() if level else _chunk_bytes(np.empty((0, dim)), dim)
    return _SUMS[dim].from_bytes(np.asarray(row, dtype=np.uint8).tobytes())


def fit_plane(array, split_every=8):
    """Orthogonal plane of a dask array of shape (N, 3)."""
    return fit_plane_geom_sums(moment_sums(array, split_every))


def fit_sphere(array, split_every=8):
    """Algebraic sphere (centred) of a dask array of shape (N, 3)."""
    return fit_sphere_lsq_sums(moment_sums(array, split_every))


def fit_circle(array, split_every=8):
    """Algebraic circle of a dask array of shape (N, 2)."""
    return fit_circle_lsq_sums(moment_sums(array, split_every))


def fit_line(array, split_every=8):
    """Orthogonal line of a dask array of shape (N, 2) or (N, 3)."""
    return fit_line_geom_sums(moment_sums(array, split_every))
