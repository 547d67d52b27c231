// Closed-form helpers of the iterative geometric fits: the symmetric 3x3
// eigen decomposition used for planes and axes, and Taubin's circle.
#include "math_geomfit_kernel.h"

#include <cmath>

namespace math {
namespace geomfit_detail {

void symEigen3(const double S[3][3], double ev[3], double V[3][3]) {
    double a[3][3];
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) {
            a[i][j] = S[i][j];
            V[i][j] = i == j ? 1.0 : 0.0;
        }
    for (int sweep = 0; sweep < 50; ++sweep) {
        const double off = a[0][1] * a[0][1] + a[0][2] * a[0][2] + a[1][2] * a[1][2];
        const double diag = a[0][0] * a[0][0] + a[1][1] * a[1][1] + a[2][2] * a[2][2];
        if (!(off > 1e-40 * diag)) break;
        for (int p = 0; p < 2; ++p)
            for (int q = p + 1; q < 3; ++q) {
                if (a[p][q] == 0.0) continue;
                const double theta = (a[q][q] - a[p][p]) / (2.0 * a[p][q]);
                const double t = (theta >= 0.0 ? 1.0 : -1.0) / (std::fabs(theta) + std::sqrt(theta * theta + 1.0));
                const double c = 1.0 / std::sqrt(t * t + 1.0), s = t * c;
                for (int k = 0; k < 3; ++k) {  // columns p, q of a
                    const double akp = a[k][p], akq = a[k][q];
                    a[k][p] = c * akp - s * akq;
                    a[k][q] = s * akp + c * akq;
                }
                for (int k = 0; k < 3; ++k) {  // rows p, q
                    const double apk = a[p][k], aqk = a[q][k];
                    a[p][k] = c * apk - s * aqk;
                    a[q][k] = s * apk + c * aqk;
                }
                for (int k = 0; k < 3; ++k) {
                    const double vkp = V[k][p], vkq = V[k][q];
                    V[k][p] = c * vkp - s * vkq;
                    V[k][q] = s * vkp + c * vkq;
                }
            }
    }
    for (int i = 0; i < 3; ++i) ev[i] = a[i][i];
    // ascending order, columns of V along
    for (int i = 0; i < 2; ++i)
        for (int j = i + 1; j < 3; ++j)
            if (ev[j] < ev[i]) {
                std::swap(ev[i], ev[j]);
                for (int k = 0; k < 3; ++k) std::swap(V[k][i], V[k][j]);
            }
}

// Taubin's fit minimises sum (z - 2a x - 2b y + c)^2 / mean |grad|^2; its
// parameters follow from the smallest root of the cubic characteristic
// polynomial, found by Newton's method from 0 (Chernov's formulation).
bool taubinCircle(Moments2 const& M, double& cx, double& cy, double& r) {
    const double Mz = M.xx + M.yy;
    const double covXY = M.xx * M.yy - M.xy * M.xy;
    const double varZ = M.zz - Mz * Mz;
    const double A3 = 4.0 * Mz;
    const double A2 = -3.0 * Mz * Mz - M.zz;
    const double A1 = varZ * Mz + 4.0 * covXY * Mz - M.xz * M.xz - M.yz * M.yz;
    const double A0 = M.xz * (M.xz * M.yy - M.yz * M.xy) + M.yz * (M.yz * M.xx - M.xz * M.xy) - varZ * covXY;
    const double A22 = A2 + A2, A33 = A3 + A3 + A3;
    double x = 0.0, y = A0;
    for (int it = 0; it < 100; ++it) {
        const double dy = A1 + x * (A22 + A33 * x);
        const double xn = x - y / dy;
        if (xn == x || !std::isfinite(xn)) break;
        const double yn = A0 + xn * (A1 + xn * (A2 + xn * A3));
        if (std::fabs(yn) >= std::fabs(y)) break;
        x = xn;
        y = yn;
    }
    const double det = x * x - x * Mz + covXY;
    const double ux = (M.xz * (M.yy - x) - M.yz * M.xy) / det / 2.0;
    const double uy = (M.yz * (M.xx - x) - M.xz * M.xy) / det / 2.0;
    cx = ux + M.mx;
    cy = uy + M.my;
    r = std::sqrt(ux * ux + uy * uy + Mz);
    return std::isfinite(cx) && std::isfinite(cy) && std::isfinite(r) && r < 1e12;
}

}  // namespace geomfit_detail
}  // namespace math
