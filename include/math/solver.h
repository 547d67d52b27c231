// Solvers for linear equation systems A·X = B.
//
// Csolver_le<T> is the frame: it owns the system matrix A and the right-hand
// side B, offers solve / invert / iterative refinement / residual measure and
// leaves the numerical work to two virtual operations of its subclasses:
//   init()      prepares the solver for a newly installed system matrix
//               (a factorisation, a saved copy);
//   subsolve()  solves with the current A and B and returns X.
// setMatrix() installs a matrix and calls init() at once.  The constructors
// that take a matrix only install it and set the matrix-changed flag; every
// subclass therefore begins its subsolve() by preparing itself when the flag
// shows a matrix installed since the last preparation.
//
// Subclasses:
//   Csolver_GaussJordan<T>  Gauss-Jordan elimination with full pivoting;
//   Csolver_luDecomp<T>     Crout LU decomposition with partial pivoting and
//                           implicit row scaling, determinant;
//   Csolver_svd<T>          singular value decomposition A = U·W·Vᵀ (one-sided
//                           Jacobi), least-squares / minimum-norm solutions of
//                           m×n systems, rank and condition number.
//
// Usage:
//   math::Cmatrix<double> A(3, 3);  ...fill...
//   math::Csolver_luDecomp<double> lu;
//   lu.setMatrix(A);                                 // decomposes (A is copied)
//   math::Cmatrix<double> x = lu.solve(std::vector<double>{1, 2, 3});   // 3×1
//   double det = lu.getDet();
#ifndef MATH_SOLVER_H
#define MATH_SOLVER_H

#include <math/export.h>
#include <math/matrix.h>

#include <vector>

namespace math {

// Frame of the equation solvers.  Invariant: m_B is the right-hand side of the
// last solve (replaced by its solution there); m_matrixChanged is true while
// an installed system matrix has not yet been prepared by init().  The frame
// itself cannot solve: its init() and subsolve() throw ERR_MATH_FUNCNOTIMPL.
template <class T>
class METROMATH_API Csolver_le {
public:
    // Empty solver: no system matrix (0×0), flags cleared.
    Csolver_le();
    // Copies A in and sets the matrix-changed flag; init() is not called.
    explicit Csolver_le(Cmatrix<T> const& A);
    explicit Csolver_le(Cmatrix<T>& A);
    Csolver_le(Csolver_le const& other);
    Csolver_le& operator=(Csolver_le const& other);
    virtual ~Csolver_le();

    // Takes over A's storage by swapping (A receives the solver's previous
    // system matrix), sets the matrix-changed flag and calls init().
    void setMatrix(Cmatrix<T>& A);
    // Copies A, swaps the copy in, sets the matrix-changed flag, calls init().
    void setMatrix(Cmatrix<T> const& A);

    // Takes over B's storage by swapping and returns the solution X.
    Cmatrix<T> solve(Cmatrix<T>& B);
    // Copies B and returns the solution X.
    Cmatrix<T> solve(Cmatrix<T> const& B);
    // Solves for one right-hand side; the solution is a column (n×1).  An
    // empty b gives an empty right-hand side.
    Cmatrix<T> solve(std::vector<T> const& b);
    // The inverse: solves with the identity of A's row count as B.
    Cmatrix<T> invert();

    // Solution refined by iteration.  A must be the (undecomposed) system
    // matrix installed in this solver; the solves use the installed matrix,
    // A only forms the residuals.  The first solution X0 = solve(B) is
    // measured by CmatrixCalc<T>::dif(A·X, B); then, repeatedly, the current X
    // is kept, the correction solve(B − A·X) is added and the measure is
    // recomputed, for as long as it decreases strictly.  The last kept X is
    // returned, so the result is never worse (by the measure) than X0.
    // Throws ERR_MATH_INVALID_ARGUMENT when A and B do not fit the solution.
    Cmatrix<T> solveItr(Cmatrix<T> const& A, Cmatrix<T> const& B);

    // Σ over B's rows i and columns j of (B(i, j) − (A·X)(i, j))²: the plain
    // sum of squares, no root, no division.  Quiet NaN when the shapes do not
    // fit (A.n != X.m, or A·X smaller than B).
    T deviation(Cmatrix<T> const& A, Cmatrix<T> const& X, Cmatrix<T> const& B) const;

protected:
    // Solves A·X = B with the current members and returns X.
    virtual Cmatrix<T> subsolve();
    // Prepares the solver after a new system matrix has been installed.
    virtual void init();
    // Calls init() when a matrix was installed since the last preparation and
    // clears the flag after a successful init().  A failing init() leaves
    // the flag set, so the next solve reports the same error again.
    void prepare();

    Cmatrix<T> m_A;           // system matrix (subclasses may decompose it in place)
    Cmatrix<T> m_B;           // right-hand side; on return from a solve, the solution
    bool m_matrixChanged;     // a system matrix was installed and not yet prepared
    bool m_rhsSet;            // a right-hand side was set for the current subsolve
};

// Gauss-Jordan elimination with full pivoting.  Invariant: m_saved holds the
// system matrix as installed; the working matrix m_A is restored from it at the
// start of every solve and holds the inverse afterwards.  Only an exactly zero
// pivot is reported as singular (ERR_SOLVE_MATRIXSINGULAR).
template <class T>
class METROMATH_API Csolver_GaussJordan : public Csolver_le<T> {
public:
    Csolver_GaussJordan();
    explicit Csolver_GaussJordan(Cmatrix<T> const& A);
    explicit Csolver_GaussJordan(Cmatrix<T>& A);
    Csolver_GaussJordan(Csolver_GaussJordan const& other);
    Csolver_GaussJordan& operator=(Csolver_GaussJordan const& other);
    ~Csolver_GaussJordan() override;

protected:
    Cmatrix<T> subsolve() override;
    // Saves a copy of the system matrix.
    void init() override;

private:
    std::vector<int> m_indxr;  // pivot row of each elimination step
    std::vector<int> m_indxc;  // pivot column of each elimination step
    std::vector<int> m_ipiv;   // how often each column has served as pivot column
    std::vector<T> m_scan;     // pivot search: column mask, then row maxima
    Cmatrix<T> m_saved;        // the system matrix as installed
};

// LU decomposition in Crout's arrangement with partial pivoting and implicit
// row scaling.  Invariant after init(): m_A holds L strictly below the diagonal
// (unit diagonal implied) and U on and above it, rows in pivoted order; m_perm[j]
// is the row exchanged with row j at step j, m_d = ±1 the sign of the
// permutation.  A zero row is reported (ERR_SOLVE_MATRIXSINGULAR); a singular
// matrix with non-zero rows gives non-finite solutions instead.
template <class T>
class METROMATH_API Csolver_luDecomp : public Csolver_le<T> {
public:
    Csolver_luDecomp();
    explicit Csolver_luDecomp(Cmatrix<T> const& A);
    explicit Csolver_luDecomp(Cmatrix<T>& A);
    Csolver_luDecomp(Csolver_luDecomp const& other);
    Csolver_luDecomp& operator=(Csolver_luDecomp const& other);
    ~Csolver_luDecomp() override;

    // Determinant of the system matrix: U(0,0)·U(1,1)·…·U(n−1,n−1) in ascending
    // order, times the permutation sign.  Decomposes first when a matrix was
    // installed by a constructor and not yet prepared.
    T getDet();

protected:
    Cmatrix<T> subsolve() override;
    // Checks squareness, then getScale() and doCrout().
    void init() override;
    // Doolittle-style decomposition without pivoting or scaling (row by row);
    // not used by init().  Throws ERR_SOLVE_MATRIXSINGULAR on an exactly zero
    // pivot.
    void doCrout2();

private:
    void getScale();
    void doCrout();
    void swapRow(unsigned int i, unsigned int j);
    void substitute();

    T m_d;                  // sign of the row permutation
    std::vector<T> m_scale;  // 1 / largest magnitude of each row (by row position)
    std::vector<int> m_perm; // row exchanged with row j at step j
    std::vector<T> m_col;    // working column of substitute()
};

// Singular value decomposition A = U·W·Vᵀ of an m×n system matrix by the
// one-sided (Hestenes) Jacobi method, and the solutions X = V·W⁺·Uᵀ·B.
//
// Why one-sided Jacobi rather than Golub-Kahan-Reinsch: the solver serves the
// small (3×3, 4×4) normal-equation systems of the fits, where its cost does not
// matter and its accuracy does.  One-sided Jacobi is backward stable, computes
// small singular values of well-scaled matrices to high relative accuracy,
// returns columns of U that are orthogonal to working precision even for tiny
// singular values, and has no shift strategy or deflation cases to get wrong.
// Its rotations act on contiguous rows here (the columns of A are stored as
// rows), so it stays fast for the sizes it is used for.
//
// r = min(m, n) singular values are computed, sorted decreasingly; U is m×r and
// V is n×r with orthonormal columns (columns of U belonging to exactly zero
// singular values are completed to an orthonormal set).  The matrix is scaled
// by a power of two before the decomposition, so its scale does not matter.
//
// Solving and rank: the rank is judged on the column-equilibrated matrix
// A·D, D = diag(2^-e_j) scaling every non-zero column to a length in [1/2, 1)
// (exactly, by powers of two), so that the units of the unknowns do not
// decide it.  A singular value of A·D below tol·w_max, or exactly zero,
// counts as zero; tol = max(m, n)·ε (ε = 2^-52 for double, 2^-23 for float)
// unless set otherwise.  The solution is X = D·Y with Y = V'·W'⁺·U'ᵀ·B from
// the decomposition A·D = U'·W'·V'ᵀ; when the rank k is below n it is then
// projected onto span(D⁻¹·V'_k), which makes it the minimum-norm
// least-squares solution of the rank-k system.  So: full column rank gives
// the least-squares solution (accurate also for badly scaled columns),
// exactly rank-deficient or wide systems give the minimum-norm least-squares
// solution.  Non-finite input gives non-finite results (the sweep count is
// bounded).
template <class T>
class METROMATH_API Csolver_svd : public Csolver_le<T> {
public:
    Csolver_svd();
    explicit Csolver_svd(Cmatrix<T> const& A);
    explicit Csolver_svd(Cmatrix<T>& A);
    Csolver_svd(Csolver_svd const& other);
    Csolver_svd& operator=(Csolver_svd const& other);
    ~Csolver_svd() override;

    // The relative threshold below which a singular value of the
    // equilibrated matrix counts as zero.  Default (and after a negative
    // value is set): max(m, n)·ε of the installed matrix.
    void setTolerance(T relTol) { m_relTol = relTol; }
    T getTolerance() const;

    // The accessors decompose first when a matrix was installed by a
    // constructor and not yet prepared.
    // Singular values w_0 ≥ w_1 ≥ … ≥ w_{r−1} ≥ 0.
    std::vector<T> const& getSingularValues();
    // U (m×r) and V (n×r) with A = U·diag(w)·Vᵀ.
    Cmatrix<T> getU();
    Cmatrix<T> getV();
    // Number of singular values of the equilibrated matrix not treated as
    // zero (see above).
    unsigned int getRank();
    // w_max / w_min over all r singular values: +inf when w_min is 0, NaN for
    // an empty matrix.
    T getCond();

protected:
    // B must have m rows; returns the n×k solution.  Throws
    // ERR_MATH_INVALID_ARGUMENT otherwise.
    Cmatrix<T> subsolve() override;
    // Decomposes the equilibrated system matrix (A stays unchanged); the
    // decomposition of A itself follows when an accessor first needs it.
    void init() override;

private:
    void preparePlain();
    void minimumNorm(Cmatrix<T>& X, unsigned k);

    std::vector<T> m_w;    // singular values of A, decreasing (when m_plainDone)
    Cmatrix<T> m_Ut;       // r×m: row k is column k of U
    Cmatrix<T> m_Vt;       // r×n: row k is column k of V
    bool m_plainDone;      // m_w, m_Ut, m_Vt belong to the installed matrix
    std::vector<T> m_we;   // the same three for A·D
    Cmatrix<T> m_Ute;
    Cmatrix<T> m_Vte;
    std::vector<int> m_colExp;  // e_j of D (empty: D = I, for empty or non-finite A)
    std::vector<T> m_work; // working storage of subsolve()
    T m_relTol;            // negative: max(m, n)·ε
};

extern template class Csolver_le<float>;
extern template class Csolver_le<double>;
extern template class Csolver_GaussJordan<float>;
extern template class Csolver_GaussJordan<double>;
extern template class Csolver_luDecomp<float>;
extern template class Csolver_luDecomp<double>;
extern template class Csolver_svd<float>;
extern template class Csolver_svd<double>;

}  // namespace math

#endif
