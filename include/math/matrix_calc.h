// Rotation angles and rotation matrices, rotation/scale split, eigenvalues and
// eigenvectors of symmetric matrices, matrix difference.
//
// All angles are in radians, all matrices Cmatrix<T> indexed [row][column].
// With ci = cos ai, si = sin ai and the right-handed elementary rotations
// Rx, Ry, Rz, the four angle conventions are
//   XYZ  R = Rx(a1)·Ry(a2)·Rz(a3)
//   CAP  R = (Rx(a1)·Ry(a2)·Rz(a3))ᵀ
//   ZYX  R = Rz(a3)·Ry(a2)·Rx(a1)
//   ZXZ  R = Rz(a1)·Rx(a2)·Rz(a3)
//
// Usage:
//   math::Cmatrix<double> C = covariance;         // symmetric n×n
//   math::Cmatrix<double> V;
//   math::CmatrixCalc<double>::getEigenvalue(C, V);
//   // C(k, k): eigenvalues by decreasing |λ|; row k of V: unit eigenvector of C(k, k)
#ifndef MATH_MATRIX_CALC_H
#define MATH_MATRIX_CALC_H

#include <math/export.h>
#include <math/matrix.h>

namespace math {

// Static functions only; no state.  Shape errors of the RotToArc* functions
// throw CthrowMath; the other functions do nothing on a matrix of the wrong
// shape (dif returns NaN), DiagTri throws a plain int 0.
template <class T>
class METROMATH_API CmatrixCalc {
public:
    // Source location attached to the shape errors of the RotToArc* functions
    // (the solver source file's name, a fixed line per function).
    static constexpr char const* rotToArcFile = ".\\source\\math_solver_le";
    enum {
        lineRotToArcCAP = 797,
        lineRotToArcCAP_transp = 836,
        lineRotToArcXYZ = 875,
        lineRotToArcZXZ = 914
    };

    // Angles to a 3×3 rotation matrix; `out` is resized to 3×3, all nine
    // elements are written.
    static void ArcToRotCAP(T const& a1, T const& a2, T const& a3, Cmatrix<T>& out);
    static void ArcToRotXYZ(T const& a1, T const& a2, T const& a3, Cmatrix<T>& out);
    static void ArcToRotZYX(T const& a1, T const& a2, T const& a3, Cmatrix<T>& out);
    static void ArcToRotZXZ(T const& a1, T const& a2, T const& a3, Cmatrix<T>& out);

    // Rotation matrix (3×3, or 4×4 homogeneous: only the upper-left 3×3 is
    // read) to angles: the middle angle first, then the third, then the first
    // from the third; no gimbal-lock branch (atan2(0, 0) = 0 gives a3 = 0).
    // R not square or not 3/4 rows: CthrowMath with the id ERR_MATRIX_DIMS
    // shifted left by the column count, then by the row count (32-bit
    // unsigned; a shift of 32 or more gives 0), empty info, location
    // rotToArcFile and the function's line constant above.
    static void RotToArcCAP(Cmatrix<T> const& R, T& a1, T& a2, T& a3);
    // The exact inverse of ArcToRotXYZ.
    static void RotToArcCAP_transp(Cmatrix<T> const& R, T& a1, T& a2, T& a3);
    // As RotToArcCAP_transp, but the first arctangent argument pairs R20 with
    // c3 and R21 with s3 (the library's historical XYZ formula).
    static void RotToArcXYZ(Cmatrix<T> const& R, T& a1, T& a2, T& a3);
    // ZXZ angles; the first arctangent argument reads R11 in both terms
    // (historical formula, kept).
    static void RotToArcZXZ(Cmatrix<T> const& R, T& a1, T& a2, T& a3);

    // Column normalisation of a 3×3 or 4×4 M (upper-left 3×3): S = diag of the
    // column lengths, R(i, j) = M(i, j) / S(j, j).  Other shapes: no effect.
    static void getRotScale(Cmatrix<T> const& M, Cmatrix<T>& R, Cmatrix<T>& S);

    // Full eigen decomposition of a symmetric A: afterwards A is diagonal with
    // the eigenvalues by decreasing absolute value, and row k of V is the unit
    // eigenvector of A(k, k).  Householder tridiagonalisation (QR_TriDiag),
    // implicit QL with Wilkinson shift (DiagTri), sorting (sortDiagonal).
    // Not square: no effect.  The sweep limit of DiagTri throws int 0.
    static void getEigenvalue(Cmatrix<T>& A, Cmatrix<T>& V);
    // One plane rotation of a 2×2 symmetric A (|A01 − A10| < 2^-52, also for
    // float); other shapes: no effect.  With a = A00, b = A01, d = A11:
    //   λ = (a + d)·0.5 + √((a − d)²·0.25 + b²),  t = −(a − λ)/b,
    //   c = 1/√(t² + 1),  s = t·c,  V = ((c, s), (−s, c)),
    // and A is replaced by the rotated matrix (A00 = λ up to rounding).  b = 0
    // divides by zero and leaves NaN in V and A; the identity that V receives
    // first when |b| < 2^-52 is always overwritten.
    static void getEigenvalue2x2sym(Cmatrix<T>& A, Cmatrix<T>& V);
    // Householder reduction of a symmetric A to tridiagonal form T = Qᵀ·A·Q;
    // V = Qᵀ (rows of V are the columns of Q).  A ends tridiagonal (both
    // off-diagonals stored, zeros elsewhere).  The reflection of column k is
    // skipped when the squared length of A(k+1.., k) is 0 or does not exceed
    // 2^-52·max|A(i, j)|² (relative to the matrix's own scale); its entries
    // below the subdiagonal are then set to 0.  Not square: no effect.
    static void QR_TriDiag(Cmatrix<T>& A, Cmatrix<T>& V);
    // Implicit QL with Wilkinson shift on the tridiagonal A (diagonal and
    // superdiagonal are read); rotations act on rows of V.  Afterwards A is
    // diagonal.  Throws int 0 when A is not square or after 3·n + 30 sweeps.
    static void DiagTri(Cmatrix<T>& A, Cmatrix<T>& V);
    // Permutation P (n×n) with P(k, i) = 1 where i is the index of the k-th
    // largest |A(i, i)| (on ties the smaller index first).  Not square: no effect.
    static void sortDiagonal(Cmatrix<T> const& A, Cmatrix<T>& P);

    // Σ (A(i, j) − B(i, j))² over all elements; quiet NaN when the shapes differ.
    static T dif(Cmatrix<T> const& A, Cmatrix<T> const& B);
};

extern template class CmatrixCalc<float>;
extern template class CmatrixCalc<double>;

}  // namespace math

#endif
