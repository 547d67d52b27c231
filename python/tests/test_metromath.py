"""The Python package against independent numpy computations, its error
mapping, the zero-copy read, the moment sums and the Dask fits."""
import pickle

import numpy as np
import pytest

import metromath as mm


def circle_points(rng, n=400, c=(1000.0, -2000.0), r=10.0, arc=2.0, noise=1e-3):
    t = rng.uniform(0, arc, n)
    return np.c_[c[0] + r * np.cos(t), c[1] + r * np.sin(t)] + rng.normal(0, noise, (n, 2))


def plane_points(rng, n=2000, off=1500.0):
    uv = rng.uniform(-50, 50, (n, 2))
    normal = np.array([0.2, -0.3, 1.0]) / np.linalg.norm([0.2, -0.3, 1.0])
    e1 = np.cross(normal, [1, 0, 0])
    e1 /= np.linalg.norm(e1)
    e2 = np.cross(normal, e1)
    p = off + uv[:, :1] * e1 + uv[:, 1:] * e2 + rng.normal(0, 1e-3, (n, 1)) * normal
    return p, normal


def kasa_reference(p):
    # The library's algebraic model A*(u^2+v^2) + B*u + C*v = 1 on centred points.
    m = p.mean(axis=0)
    u, v = (p - m).T
    sol = np.linalg.lstsq(np.c_[u * u + v * v, u, v], np.ones(len(u)), rcond=None)[0]
    a, b, c = sol
    return m - 0.5 * np.array([b, c]) / a, abs(0.5 * np.sqrt(b * b + c * c + 4 * a) / a)


def test_fits_agree_with_numpy_references():
    rng = np.random.default_rng(1)
    p = circle_points(rng)
    c = mm.fit_circle_lsq(p)
    ref_c, ref_r = kasa_reference(p)
    np.testing.assert_allclose(c.center, ref_c, rtol=1e-10)
    assert c.radius == pytest.approx(ref_r, rel=1e-8)
    c32 = mm.fit_circle_lsq((p - 1000).astype(np.float32))
    assert c32.radius == pytest.approx(ref_r, rel=1e-4)
    circle, rec = mm.fit_circle_lsq(p, record=True)
    d = np.hypot(*(p - circle.center).T)
    assert rec["std_abw"] == pytest.approx(d.std(ddof=1), rel=1e-6)
    assert mm.std_abw_circle2(p, circle) == rec["std_abw"]

    q, normal = plane_points(rng)
    e = mm.fit_plane_geom(q)
    _, _, vt = np.linalg.svd(q - q.mean(axis=0))
    assert abs(abs(e.normal @ vt[2]) - 1) < 1e-12
    assert abs(e.normal @ q.mean(axis=0) + e.d) < 1e-9
    e2, rec = mm.fit_plane_geom(q, record=True)
    assert rec["std_abw_normal"] == pytest.approx(1e-3, rel=0.1)
    dist = mm.distance(e, q)
    assert dist.shape == (len(q),) and np.abs(dist).max() < 1e-2
    np.testing.assert_allclose(mm.distance(e, mm.project(e, q)), 0, atol=1e-9)

    line = mm.fit_line_geom(q[:, :2] * [1, 0.01])
    assert isinstance(line, mm.Line2) and abs(line.direction[0]) > 0.99
    l3 = mm.fit_line_geom(np.c_[np.arange(10.0), 2 * np.arange(10.0), np.zeros(10)])
    assert abs(abs(l3.direction @ [1, 2, 0]) / np.sqrt(5) - 1) < 1e-12
    hit = mm.intersect(mm.Plane3([0, 0, 1], -2.0), mm.Line3([1, 1, 0], [0, 0, 1]))
    np.testing.assert_allclose(hit, [1, 1, 2])
    assert mm.intersect(mm.Line2([0, 0], [1, 0]), mm.Line2([0, 1], [1, 0])) is None
    assert "radius=10" in repr(mm.Circle2([0, 0], 10.0))


def test_hull_polygon_and_solvers():
    rng = np.random.default_rng(2)
    p = rng.normal(size=(1000, 2))
    hull = mm.convex_hull(p)
    # Convex and counter-clockwise or clockwise throughout, every point inside.
    e = np.roll(hull, -1, axis=0) - hull
    cross = e[:, 0] * np.roll(e, -1, axis=0)[:, 1] - e[:, 1] * np.roll(e, -1, axis=0)[:, 0]
    assert np.all(cross > 0) or np.all(cross < 0)
    inside = mm.Polygon2(hull).contains(p * 0.999)
    assert inside.dtype == bool and inside.all()
    square = mm.Polygon2(np.array([[0, 0], [4, 0], [4, 4], [0, 4]]))
    q = rng.uniform(-1, 5, (500, 2))
    expect = (q > 0).all(axis=1) & (q < 4).all(axis=1)
    np.testing.assert_array_equal(square.contains(q), expect)
    assert not square.contains(np.array([[np.nan, 1.0]]))[0]

    A = rng.normal(size=(6, 6))
    b = rng.normal(size=6)
    np.testing.assert_allclose(mm.lu_solve(A, b), np.linalg.solve(A, b), rtol=1e-10)
    R = np.array([[1, 2, 3], [2, 4, 6], [1, 1, 1.0]])
    x, rank, cond = mm.svd_solve(R, R @ [1, 1, 1])
    assert rank == 2 and cond > 1e15
    np.testing.assert_allclose(x, np.linalg.pinv(R) @ (R @ [1, 1, 1]), atol=1e-12)


def test_errors_shapes_and_dtypes():
    with pytest.raises(mm.MathError) as err:
        mm.lu_solve(np.zeros((3, 3)), np.ones(3))
    assert isinstance(err.value, ValueError)
    assert err.value.key == "CthrowMath::ERR_SOLVE_MATRIXSINGULAR" and err.value.id == 32
    assert "singulär" in err.value.message
    with pytest.raises(ValueError, match=r"shape \(N, 3\), got shape \(5, 2\)"):
        mm.fit_plane_geom(np.zeros((5, 2)))
    with pytest.raises(ValueError, match=r"shape \(N, 2\)"):
        mm.fit_circle_lsq(np.zeros(8))
    with pytest.raises(TypeError, match=r"shape \(N, 2\)"):
        mm.fit_circle_lsq(np.array([["a", "b"]] * 5))
    with pytest.raises(ValueError, match=r"b: expected a vector of shape \(3,\)"):
        mm.lu_solve(np.eye(3), np.ones(4))
    bad = circle_points(np.random.default_rng(3))
    bad[7, 1] = np.nan
    assert not mm.fit_circle_lsq_sums(mm.MomentSums2(bad)).is_valid()
    assert not mm.fit_circle_lsq(np.zeros((3, 2))).is_valid()  # too few points
    c = mm.fit_circle_lsq(np.arange(10, dtype=np.int32).reshape(5, 2))  # converted once
    assert isinstance(c, mm.Circle2)


def test_points_are_read_in_place():
    big = np.random.default_rng(4).normal(size=(2_000_000, 3))
    assert mm._metromath._data_address(big, 3) == big.ctypes.data
    view = big[::2]  # strided, still read where it lies
    assert mm._metromath._data_address(view, 3) == big.ctypes.data
    s = mm.MomentSums3()
    s.add(view)
    assert s.count == 1_000_000
    np.testing.assert_allclose(s.centroid, view.mean(axis=0), atol=1e-12)
    ints = np.zeros((10, 3), dtype=np.int64)
    assert mm._metromath._data_address(ints, 3) != ints.ctypes.data
    # Fits read C-contiguous float64 and float32 arrays where they lie; other
    # layouts are gathered once.
    assert mm._metromath._fit_address(big, 3) == big.ctypes.data
    assert mm._metromath._fit_address(view, 3) != big.ctypes.data
    small = np.ascontiguousarray(big[:1000, :2], dtype=np.float32)
    assert mm._metromath._fit_address(small, 2) == small.ctypes.data
    np.testing.assert_allclose(mm.fit_plane_geom(view).normal, mm.fit_plane_geom(view.copy()).normal, atol=0)


def test_moment_sums_merge_pickle_and_damage():
    rng = np.random.default_rng(5)
    for off in (0.0, 1e6):
        p, _ = plane_points(rng, 5000, off)
        whole = mm.fit_plane_geom_sums(mm.MomentSums3(p))
        for _ in range(5):
            cuts = np.sort(rng.integers(0, len(p), 4))
            parts = [mm.MomentSums3(c) for c in np.split(p, cuts)]
            rng.shuffle(parts)
            total = parts[0]
            for q in parts[1:]:
                total = total + q
            assert total.count == len(p)
            merged = mm.fit_plane_geom_sums(total)
            assert abs(abs(merged.normal @ whole.normal) - 1) < 1e-12
            assert abs(abs(merged.d) - abs(whole.d)) <= 1e-12 * max(1, abs(whole.d))
    s = mm.MomentSums2(circle_points(rng))
    back = pickle.loads(pickle.dumps(s))
    assert back.to_bytes() == s.to_bytes()
    data = bytearray(s.to_bytes())
    data[20] ^= 4
    with pytest.raises(mm.MathError) as err:
        mm.MomentSums2.from_bytes(bytes(data))
    assert err.value.key == "CthrowMath::ERR_MATH_INVALID_ARGUMENT"
    with pytest.raises(mm.MathError):
        mm.MomentSums2.from_bytes(s.to_bytes()[:-1])
    f32 = mm.MomentSums2(circle_points(rng).astype(np.float32))
    assert f32.count == 400


def test_dask_fit_on_local_cluster_equals_in_memory_fit():
    da = pytest.importorskip("dask.array")
    distributed = pytest.importorskip("distributed")
    import metromath.dask as mdask

    rng = np.random.default_rng(6)
    p, _ = plane_points(rng, 20000, 1e5)
    c = circle_points(rng, 3000)
    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                                  dashboard_address=None) as cluster, distributed.Client(cluster):
        plane = mdask.fit_plane(da.from_array(p, chunks=(1500, 3)))
        circle = mdask.fit_circle(da.from_array(c, chunks=(700, 2)))
        line = mdask.fit_line(da.from_array(p, chunks=(5000, 3)))
        ball = np.c_[np.cos(c[:, :1] - 1000.0), np.sin(c[:, :1] - 1000.0), np.zeros((len(c), 1))]
        ball[:, 2] = c[:, 1] + 2000.0  # points of a cylinder-like band: a sphere still fits
        sphere = mdask.fit_sphere(da.from_array(ball, chunks=(400, 3)))
    ref = mm.fit_plane_geom_sums(mm.MomentSums3(p))
    assert abs(abs(plane.normal @ ref.normal) - 1) < 1e-12
    assert abs(abs(plane.d) - abs(ref.d)) < 1e-12 * abs(ref.d)
    refc = mm.fit_circle_lsq(c)
    np.testing.assert_allclose(circle.center, refc.center, rtol=1e-11)
    assert circle.radius == pytest.approx(refc.radius, rel=1e-9)
    assert line.is_valid()
    refs = mm.fit_sphere_lsq_sums(mm.MomentSums3(ball))
    assert sphere.radius == pytest.approx(refs.radius, rel=1e-10)


def test_geometric_fits_against_scipy_and_exact_data():
    scipy_opt = pytest.importorskip("scipy.optimize")
    rng = np.random.default_rng(7)
    p = circle_points(rng, 300, arc=1.0, noise=0.05)
    c, rec = mm.fit_circle_geom(p, record=True)
    ref = scipy_opt.least_squares(lambda q: np.hypot(*(p - q[:2]).T) - q[2],
                                  [*kasa_reference(p)[0], kasa_reference(p)[1]], xtol=1e-15, ftol=1e-15)
    # A 57-degree arc: the minimum is flat along the mid-normal, so compare the
    # objective (ours no worse than scipy's) and the parameters to 1e-7.
    assert rec["sum_sq_dist"] <= 2 * ref.cost * (1 + 1e-12)
    np.testing.assert_allclose([*c.center, c.radius], ref.x, rtol=1e-7)
    assert rec["converged"] and rec["iterations"] >= 1 and len(rec["u_center"]) == 2
    assert rec["u_radius"] > 0 and rec["std_abw"] == pytest.approx(0.05, rel=0.2)
    fixed, frec = mm.fit_circle_geom(p, radius=10.0, record=True)
    assert fixed.radius == 10.0 and frec["u_radius"] == 0.0
    assert mm.fit_circle_geom(p.astype(np.float32) - np.float32(1000)).radius == pytest.approx(c.radius, rel=1e-4)

    # Exact points of a tilted cylinder and sphere, far from the origin.
    axis = np.array([1.0, 2.0, 2.0]) / 3.0
    e1 = np.cross(axis, [1.0, 0, 0])
    e1 /= np.linalg.norm(e1)
    e2 = np.cross(axis, e1)
    t, h = rng.uniform(0, 2 * np.pi, 200), rng.uniform(-20, 20, 200)
    base = np.array([1e4, -5e3, 2e3])
    cyl = base + np.outer(h, axis) + 7.5 * (np.outer(np.cos(t), e1) + np.outer(np.sin(t), e2))
    z, zrec = mm.fit_cylinder_geom(cyl, record=True)
    assert z.radius == pytest.approx(7.5, rel=1e-9) and zrec["converged"]
    assert abs(abs(z.direction @ axis) - 1) < 1e-12
    assert np.abs(mm.distance(z, cyl)).max() < 1e-8
    z2 = mm.fit_cylinder_geom(cyl, start=mm.Cylinder3(mm.Line3(base, axis + 0.01), 1.0))
    assert z2.radius == pytest.approx(7.5, rel=1e-9)
    ball = base + 4.0 * np.c_[np.cos(t) * np.cos(h / 40), np.sin(t) * np.cos(h / 40), np.sin(h / 40)]
    s = mm.fit_sphere_geom(ball)
    np.testing.assert_allclose(s.center, base, rtol=1e-12)
    assert s.radius == pytest.approx(4.0, rel=1e-9)
    ring = base + 3.0 * (np.outer(np.cos(t), e1) + np.outer(np.sin(t), e2))
    c3 = mm.fit_circle_geom(ring)
    assert isinstance(c3, mm.Circle3) and c3.radius == pytest.approx(3.0, rel=1e-9)
    assert abs(abs(c3.normal @ axis) - 1) < 1e-10
    # Refused input is invalid, not an exception; unknown parameters are.
    bad, brec = mm.fit_sphere_geom(ball[:3], record=True)
    assert not bad.is_valid() and not brec["converged"]
    with pytest.raises(TypeError, match="max_iter"):
        mm.fit_circle_geom(p, max_iterations=3)
    assert mm.fit_circle_geom(p, max_iter=1, record=True)[1]["iterations"] <= 1


def test_ellipse_fits_and_planar_transformations():
    rng = np.random.default_rng(8)
    t = rng.uniform(0, 2 * np.pi, 400)
    c, s = np.cos(0.4), np.sin(0.4)
    u, v = 6.0 * np.cos(t), 2.5 * np.sin(t)
    pts = np.c_[500 + c * u - s * v, -300 + s * u + c * v]
    for method in ("gn", "lm"):
        e, rec = mm.fit_ellipse_geom(pts, method=method, record=True)
        np.testing.assert_allclose([*e.center, e.a, e.b, e.angle], [500, -300, 6, 2.5, 0.4], rtol=1e-9, atol=1e-9)
        assert rec["converged"] and set(rec) >= {"u_a", "u_b", "u_angle", "u_center"}
        assert np.abs(mm.distance(e, pts)).max() < 1e-8
    with pytest.raises(ValueError, match="method"):
        mm.fit_ellipse_geom(pts, method="newton")
    assert not mm.fit_ellipse_geom(pts[:4]).is_valid()

    src = rng.uniform(0, 100, (50, 2)) + 1000
    ang, scale, shift = 0.3, 1.00002, np.array([25.4, -12.7])
    R = np.array([[np.cos(ang), -np.sin(ang)], [np.sin(ang), np.cos(ang)]])
    dst = scale * src @ R.T + shift
    prm, sol = mm.estimate_helmert(src, dst)
    assert prm.rot_x == pytest.approx(ang, abs=1e-12) and prm.scale[0] == pytest.approx(scale, rel=1e-12)
    np.testing.assert_allclose(prm.transform(src), dst, atol=1e-9)
    np.testing.assert_allclose(prm.retransform(dst), src, atol=1e-9)
    assert sol.shape == (4,) and sol[2] == pytest.approx(scale * np.cos(ang), rel=1e-12)
    A = np.array([[1.1, 0.2], [-0.1, 0.9]])
    aprm, sx, sy = mm.estimate_affine(src, src @ A.T + shift)
    np.testing.assert_allclose(aprm.transform(src), src @ A.T + shift, atol=1e-9)
    np.testing.assert_allclose([sx[1], -sx[2], sy[1], sy[2]], [A[0, 0], A[0, 1], A[1, 1], A[1, 0]], rtol=1e-10)  # x' = a0 + a1 x - a2 y
    with pytest.raises(ValueError, match="same number"):
        mm.estimate_helmert(src, dst[:-1])
    with pytest.raises(mm.MathError) as err:
        mm.estimate_helmert(np.ones((5, 2)), dst[:5])  # coincident source points
    assert err.value.key == "CthrowMath::ERR_SOLVE_MATRIXSINGULAR"
