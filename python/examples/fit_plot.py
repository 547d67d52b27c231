#!/usr/bin/env python3
"""Fits a circle to the bore-edge points of examples/data/bore_edge.csv and
draws points, circle and radial residuals into a PNG with matplotlib.

    PYTHONPATH=build/release/python /usr/bin/python3 python/examples/fit_plot.py [out.png]
"""
import os
import sys

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402
import numpy as np  # noqa: E402

import metromath as mm  # noqa: E402

root = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
with open(os.path.join(root, "examples", "data", "bore_edge.csv")) as f:
    rows = [line for line in f if line[:1] not in "#x"]  # comments and the header
pts = np.loadtxt(rows, delimiter=",", usecols=(0, 1))
circle, rec = mm.fit_circle_lsq(pts, record=True)
res = np.hypot(*(pts - circle.center).T) - circle.radius
print(circle, f"std_abw={rec['std_abw']:.4g}")

fig, (ax, bx) = plt.subplots(1, 2, figsize=(10, 4.5))
t = np.linspace(0, 2 * np.pi, 400)
ax.plot(pts[:, 0], pts[:, 1], ".", ms=3, label="edge points")
ax.plot(circle.center[0] + circle.radius * np.cos(t), circle.center[1] + circle.radius * np.sin(t), "-",
        label=f"fit r = {circle.radius:.4f}")
ax.set_aspect("equal")
ax.legend(loc="upper right")
ax.set_title("circle fit")
bx.plot(np.degrees(np.arctan2(*(pts - circle.center).T[::-1])), res, ".", ms=3)
bx.set_xlabel("angle (deg)")
bx.set_ylabel("radial residual")
bx.set_title("residuals")
fig.tight_layout()
out = sys.argv[1] if len(sys.argv) > 1 else "fit.png"
fig.savefig(out, dpi=100)
print("drawing:", out)
