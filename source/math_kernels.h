// Small dense kernels shared by the library's sources (private, not
// installed): a map over point sets, 3-vectors, the 3x3 determinant and
// solve, and the eigen decompositions of symmetric 2x2 and 3x3 matrices.  Plain arrays, no
// allocation, no exceptions; NaN input gives NaN output.
#ifndef MATH_KERNELS_H
#define MATH_KERNELS_H

#include <cmath>
#include <cstddef>
#include <vector>

namespace math {
namespace kernel {

// out[i] = f(in[i]) for every element, out sized to in (the point-set forms
// of the distance queries).
template <class Points, class T, class F>
void mapPoints(Points const& in, std::vector<T>& out, F const& f) {
    out.clear();
    out.resize(in.size());
    for (std::size_t i = 0; i < in.size(); ++i) out[i] = f(in[i]);
}

inline double dot3(double const* a, double const* b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

// Determinant of a 3x3 matrix (rule of Sarrus), in the order
//   A00 A11 A22 + A01 A12 A20 + A02 A10 A21 - A02 A11 A20 - A00 A12 A21 - A01 A10 A22.
template <class S>
S det3(S const (&A)[3][3]) {
    return A[0][0] * A[1][1] * A[2][2] + A[0][1] * A[1][2] * A[2][0] + A[0][2] * A[1][0] * A[2][1] -
           A[0][2] * A[1][1] * A[2][0] - A[0][0] * A[1][2] * A[2][1] - A[0][1] * A[1][0] * A[2][2];
}

// Solves A x = b by the adjugate (Cramer's rule); the caller has checked det.
inline void solve3(double const (&A)[3][3], double const* b, double det, double* x) {
    const double c00 = A[1][1] * A[2][2] - A[1][2] * A[2][1];
    const double c01 = A[0][2] * A[2][1] - A[0][1] * A[2][2];
    const double c02 = A[0][1] * A[1][2] - A[0][2] * A[1][1];
    const double c10 = A[1][2] * A[2][0] - A[1][0] * A[2][2];
    const double c11 = A[0][0] * A[2][2] - A[0][2] * A[2][0];
    const double c12 = A[0][2] * A[1][0] - A[0][0] * A[1][2];
    const double c20 = A[1][0] * A[2][1] - A[1][1] * A[2][0];
    const double c21 = A[0][1] * A[2][0] - A[0][0] * A[2][1];
    const double c22 = A[0][0] * A[1][1] - A[0][1] * A[1][0];
    x[0] = (c00 * b[0] + c01 * b[1] + c02 * b[2]) / det;
    x[1] = (c10 * b[0] + c11 * b[1] + c12 * b[2]) / det;
    x[2] = (c20 * b[0] + c21 * b[1] + c22 * b[2]) / det;
}

// Eigen-decomposition of the symmetric 2x2 matrix [[sxx, sxy], [sxy, syy]]:
// l1 = mean + rad >= l2 = mean - rad with mean = (sxx + syy)/2 and
// rad = hypot((sxx - syy)/2, sxy); (c, s) = (cos phi, sin phi) with
// phi = atan2(2 sxy, sxx - syy)/2 is the unit eigenvector of l1, (-s, c)
// that of l2.
inline void symEig2(double sxx, double sxy, double syy, double& l1, double& l2, double& c, double& s) {
    const double mean = 0.5 * (sxx + syy), diff = 0.5 * (sxx - syy);
    const double rad = std::hypot(diff, sxy);
    l1 = mean + rad;
    l2 = mean - rad;
    const double phi = 0.5 * std::atan2(2.0 * sxy, sxx - syy);
    c = std::cos(phi);
    s = std::sin(phi);
}

// Eigen-decomposition of a symmetric 3x3 matrix by cyclic Jacobi rotations:
// ev[k] the eigenvalues, column k of V the unit eigenvector of ev[k].  The
// sweep count is bounded; NaN input gives NaN output.
inline void symEig3(double const (&S)[3][3], double (&ev)[3], double (&V)[3][3]) {
    double A[3][3];
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) {
            A[i][j] = S[i][j];
            V[i][j] = i == j ? 1.0 : 0.0;
        }
    for (int sweep = 0; sweep < 64; ++sweep) {
        const double off = std::abs(A[0][1]) + std::abs(A[0][2]) + std::abs(A[1][2]);
        const double diag = std::abs(A[0][0]) + std::abs(A[1][1]) + std::abs(A[2][2]);
        if (!(off > 1e-300) || !(off > 1e-17 * diag)) break;
        for (int p = 0; p < 2; ++p)
            for (int q = p + 1; q < 3; ++q) {
                const double apq = A[p][q];
                if (apq == 0.0) continue;
                // Rotation angle that annihilates A[p][q].
                const double theta = (A[q][q] - A[p][p]) / (2.0 * apq);
                const double t = (theta >= 0.0 ? 1.0 : -1.0) / (std::abs(theta) + std::sqrt(theta * theta + 1.0));
                const double c = 1.0 / std::sqrt(t * t + 1.0);
                const double s = t * c;
                for (int k = 0; k < 3; ++k) {  // A := A * J
                    const double akp = A[k][p], akq = A[k][q];
                    A[k][p] = c * akp - s * akq;
                    A[k][q] = s * akp + c * akq;
                }
                for (int k = 0; k < 3; ++k) {  // A := J^T * A
                    const double apk = A[p][k], aqk = A[q][k];
                    A[p][k] = c * apk - s * aqk;
                    A[q][k] = s * apk + c * aqk;
                }
                for (int k = 0; k < 3; ++k) {  // V := V * J
                    const double vkp = V[k][p], vkq = V[k][q];
                    V[k][p] = c * vkp - s * vkq;
                    V[k][q] = s * vkp + c * vkq;
                }
            }
    }
    for (int i = 0; i < 3; ++i) ev[i] = A[i][i];
}

}  // namespace kernel
}  // namespace math

#endif
