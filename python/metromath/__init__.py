"""metromath: fits of lines, circles, spheres and planes, geometric queries,
solvers and mergeable moment sums on numpy arrays.

Points are numpy arrays of shape (N, 2) or (N, 3), float64 or float32; any
other numeric dtype is converted to float64 once.  Errors of the library are
raised as MathError (a ValueError) with the attributes key, id and message.

Example:
    >>> import numpy as np, metromath
    >>> t = np.linspace(0, 2 * np.pi, 50)
    >>> c = metromath.fit_circle_lsq(np.c_[3 + 2 * np.cos(t), 1 + 2 * np.sin(t)])
    >>> round(c.radius, 9)
    2.0
"""
from ._metromath import (  # noqa: F401
    Circle2,
    Circle3,
    Cylinder3,
    Ellipse2,
    Line2,
    Line3,
    MathError,
    MomentSums2,
    MomentSums3,
    Plane3,
    Polygon2,
    Sphere3,
    TransPrm2,
    convex_hull,
    distance,
    estimate_affine,
    estimate_helmert,
    fit_circle_geom,
    fit_circle_lsq,
    fit_cylinder_geom,
    fit_ellipse_geom,
    fit_circle_lsq_sums,
    fit_line_geom,
    fit_line_geom_sums,
    fit_line_lsq,
    fit_plane_geom,
    fit_plane_geom_sums,
    fit_sphere_geom,
    fit_sphere_lsq,
    fit_sphere_lsq_sums,
    intersect,
    lu_solve,
    project,
    std_abw_circle2,
    std_abw_cylinder,
    std_abw_line2,
    std_abw_sphere,
    svd_solve,
)

__all__ = [n for n in dir() if not n.startswith("_")]
