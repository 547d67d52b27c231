// Planar transformations: the parameter set CtransPrm2<T> (two rotation
// angles, a translation, a scale per axis) and its least-squares estimation
// from point pairs, Ctrans2_Helmert<T> (similarity, 4 parameters) and
// Ctrans2_Affine<T> (a rotation and a scale per output axis, 6 parameters)
// behind the abstract Ctrans2_Basic<T>.  Exported for float and double.
//
//   std::vector<math::Cpoint2<double>> src = ..., dst = ...;  // the same marks in two frames
//   math::Ctrans2_Helmert<double> h;
//   h.setAll(src, dst);
//   math::CtransPrm2<double> prm = h.transform();    // angle, scale, translation
//   prm.transform(src, mapped);                      // mapped ~ dst
#ifndef MATH_TRANSFORM2_H
#define MATH_TRANSFORM2_H

#include <math/export.h>
#include <math/matrix.h>
#include <math/point.h>

#include <vector>

namespace math {

// One planar transformation from a source frame into a destination frame:
// rotation alpha of the x row, rotation beta of the y row (radians),
// translation (tx, ty) and scale (sx, sy).  A plain value without invariant
// and without validation: any numbers are accepted, a zero scale included
// (it only shows as +-inf / NaN from the backward mappings; nothing throws).
//
// Forward matrix M of the list transform and of the forward functor:
//   c11 = sx*cos(alpha)   c12 = -sx*sin(alpha)
//   c21 = sy*sin(beta)    c22 =  sy*cos(beta)
//   x' = c11*x + c12*y + tx,   y' = c21*x + c22*y + ty
// A similarity has alpha == beta and sx == sy.
//
// Kept as users depend on them:
//  - the single-point transform uses the source x in BOTH terms of x':
//      x' = sx*cos(alpha)*x - sx*sin(alpha)*x + tx   (y' as in the list form);
//  - retransform (point and list) applies
//      r11 = cos(alpha)/sx   r12 = sin(alpha)/sy
//      r21 = -sin(beta)/sx   r22 = cos(beta)/sy
//    to (x - tx, y - ty): the inverse of the list transform only when
//    alpha == beta and sx == sy (no general 2x2 inversion);
//  - getReTransFunctor stores (cos(alpha)/sx, sin(beta)/sy, -sin(alpha)/sx,
//    cos(beta)/sy, tx, ty): its off-diagonal angles are swapped against
//    retransform (the same only when alpha == beta);
//  - getRot_Matrix is (cos(alpha), -sin(alpha); sin(beta), cos(beta)), without
//    the scale;
//  - the constructors take the scale by non-const reference (only read), and
//    getTranslation, getScale, getRot_Matrix are non-const; const overloads
//    stand beside them.
template <class T>
class METROMATH_API CtransPrm2 {
public:
    // Forward coefficients: exactly the six numbers (c11, c12, c21, c22, tx, ty).
    // Applied to a point it gives the list transform's result.
    template <class U>
    class TransFunctor {
    public:
        U c11, c12, c21, c22, tx, ty;

        Cpoint2<U> operator()(Cpoint2<U> const& p) const {
            return Cpoint2<U>(c11 * p.x + c12 * p.y + tx, c21 * p.x + c22 * p.y + ty);
        }
    };

    // Backward coefficients: exactly the six numbers (c11, c12, c21, c22, tx,
    // ty) as filled by getReTransFunctor; applied to a point it computes
    // (c11*dx + c12*dy, c21*dx + c22*dy) with dx = x - tx, dy = y - ty.
    template <class U>
    class ReTransFunctor {
    public:
        U c11, c12, c21, c22, tx, ty;

        Cpoint2<U> operator()(Cpoint2<U> const& p) const {
            const U dx = p.x - tx, dy = p.y - ty;
            return Cpoint2<U>(c11 * dx + c12 * dy, c21 * dx + c22 * dy);
        }
    };

    // The identity: angles 0, translation (0, 0), scale (1, 1).
    CtransPrm2();
    // alpha = beta = angle.
    CtransPrm2(T angle, Cpoint2<T> const& translation, Cpoint2<T>& scale);
    CtransPrm2(T alpha, T beta, Cpoint2<T> const& translation, Cpoint2<T>& scale);
    CtransPrm2(CtransPrm2 const& other);
    CtransPrm2& operator=(CtransPrm2 const& other);

    // alpha = beta = angle.
    void setRotation(T angle);
    void setRotation(T alpha, T beta);
    void setTranslation(T tx, T ty);
    void setTranslation(Cpoint2<T> const& t);
    void setScale(T sx, T sy);
    void setScale(Cpoint2<T> const& s);

    T getRot_X() const { return m_alpha; }
    T getRot_Y() const { return m_beta; }
    Cpoint2<T> getTranslation() { return m_trans; }
    Cpoint2<T> getTranslation() const { return m_trans; }
    Cpoint2<T> getScale() { return m_scale; }
    Cpoint2<T> getScale() const { return m_scale; }
    // New 2x2 matrix (cos(alpha), -sin(alpha); sin(beta), cos(beta)).
    Cmatrix<T> getRot_Matrix();
    Cmatrix<T> getRot_Matrix() const;

    // One point, source -> destination, with the x-in-both-terms first
    // coordinate described above.  src and dst may be the same point.
    void transform(Cpoint2<T> const& src, Cpoint2<T>& dst) const;
    // A list: dst is resized to src.size() and dst[i] = M*src[i] + t.  The
    // same vector as src and dst transforms it in place.
    void transform(std::vector<Cpoint2<T>> const& src, std::vector<Cpoint2<T>>& dst) const;
    // Destination -> source with the backward matrix described above.
    void retransform(Cpoint2<T> const& dst, Cpoint2<T>& src) const;
    void retransform(std::vector<Cpoint2<T>> const& dst, std::vector<Cpoint2<T>>& src) const;

    TransFunctor<T> getTransFunctor() const;
    ReTransFunctor<T> getReTransFunctor() const;

private:
    T m_alpha;            // rotation of the x row
    T m_beta;             // rotation of the y row
    Cpoint2<T> m_trans;   // (tx, ty)
    Cpoint2<T> m_scale;   // (sx, sy)
};

// Abstract estimator of a CtransPrm2<T> from pairs of points measured in a
// source and a destination frame (source[i] belongs to dest[i]).
//
// The four virtual operations, in this order, are the whole virtual table.
// The destructor is public and deliberately NOT virtual: do not delete a
// derived estimator through a Ctrans2_Basic<T> pointer.
//
// Errors are the nested classes below, empty and without a base class, thrown
// by value: catch them as Ctrans2_Basic<T>::xNotInitialized const& etc.  A
// degenerate point set (too few points, all on one line for the affine model,
// all coincident for Helmert, an empty set) is not detected by count: it ends
// in the LU solver's CthrowMath ERR_SOLVE_MATRIXSINGULAR (id 32, empty
// information), passed through unchanged.
template <class T>
class METROMATH_API Ctrans2_Basic {
public:
    // Source and destination counts differ.
    class METROMATH_API xArgumentMismatch {};
    // A point set was not given (Helmert only).
    class METROMATH_API xNotInitialized {};

    // Flags false, counts 0, parameters the identity.
    Ctrans2_Basic();
    Ctrans2_Basic(Ctrans2_Basic const& other);
    Ctrans2_Basic& operator=(Ctrans2_Basic const& other);
    ~Ctrans2_Basic();

    // Solves afresh from the stored sets; also keeps the result (getTransPrm).
    virtual CtransPrm2<T> transform() = 0;
    virtual void setSource(std::vector<Cpoint2<T>> const& source) = 0;
    virtual void setDest(std::vector<Cpoint2<T>> const& dest) = 0;
    // setSource(source), then setDest(dest), both through the virtual table.
    virtual void setAll(std::vector<Cpoint2<T>> const& source, std::vector<Cpoint2<T>> const& dest) = 0;

    // The parameters of the last successful transform() (the identity before).
    CtransPrm2<T> const& getTransPrm() const { return m_prm; }
    bool isSourceSet() const { return m_sourceSet; }
    bool isDestSet() const { return m_destSet; }
    unsigned getSourceCount() const { return m_nSource; }
    unsigned getDestCount() const { return m_nDest; }

protected:
    bool m_sourceSet;
    bool m_destSet;
    unsigned m_nSource;
    unsigned m_nDest;
    CtransPrm2<T> m_prm;
};

// How the estimators solve (both models):
//  - the sums of the normal equations are formed in double (also for float) on
//    source coordinates relative to the first source point and destination
//    coordinates relative to the first destination point, in the fixed
//    blocked lane order of the fits; the normal matrix is solved by a
//    Csolver_luDecomp<T> and the translation moved back to the original
//    origins.  This is the ordinary least-squares solution, kept accurate for
//    data far from the origin;
//  - a set with a NaN or infinite coordinate (or sums that overflow) gives a
//    result with all six numbers NaN (and the solution members NaN); nothing
//    is thrown for it;
//  - an LU error leaves the stored solution and parameters of the previous
//    transform() unchanged;
//  - a set of more than 2^31 - 1 (Helmert) or 2^32 - 1 (affine) points cannot
//    be held by the design matrix: setSource / setDest throw CthrowMath
//    ERR_MATH_INVALID_ARGUMENT.
//  - reuse with the same point count allocates nothing in the setters.
//
// Expected accuracy (10^4 pairs in a 100 mm square at 1000 mm, 1 um noise):
// against the exact least-squares solution, double within 1e-12 in the
// rotation/scale coefficients, 1e-8 mm in translation and 1e-9 mm for mapped
// points; float within 5e-6, 0.01 mm and 1 um.  Two distinct pairs give the
// Helmert transformation exactly, three non-collinear pairs the affine one.

// Similarity: x' = tx + a*x - b*y, y' = ty + b*x + a*y, unknowns (tx, ty, a, b).
// Design matrix 2n x 4, rows (1, 0, x, -y) and (0, 1, y, x) per source point;
// observations (x'0, y'0, x'1, y'1, ...).
//
// transform(): xNotInitialized when either set is missing, then
// xArgumentMismatch when the counts differ, then solve.  The result has
// scale sx = sy = sqrt(a^2 + b^2) (never negative) and angle alpha = beta =
// atan(b / a), the ONE-argument arctangent, or pi/2 (1.5707963267948966) when
// a is exactly 0 (also -0): the angle lies in (-pi/2, pi/2], so a rotation by
// +100 deg at scale 2 comes back as -80 deg at scale 2 (applying it does not
// reproduce the destination).  getSolution() holds (tx, ty, a, b) for
// callers who want atan2(b, a).
template <class T>
class METROMATH_API Ctrans2_Helmert : public Ctrans2_Basic<T> {
public:
    // Identity parameters, design matrix 0 x 4, empty solution and observations.
    Ctrans2_Helmert();
    Ctrans2_Helmert(Ctrans2_Helmert const& other);
    Ctrans2_Helmert& operator=(Ctrans2_Helmert const& other);
    ~Ctrans2_Helmert();

    CtransPrm2<T> transform() override;
    void setSource(std::vector<Cpoint2<T>> const& source) override;
    void setDest(std::vector<Cpoint2<T>> const& dest) override;
    void setAll(std::vector<Cpoint2<T>> const& source, std::vector<Cpoint2<T>> const& dest) override;

    // (tx, ty, a, b) as 4 x 1 of the last transform() (empty before).
    Cmatrix<T> const& getSolution() const { return m_solution; }

private:
    Cmatrix<T> m_A;          // design matrix, 2n x 4
    Cmatrix<T> m_solution;   // 4 x 1
    std::vector<T> m_obs;    // 2n observations
};

// Six parameters: x' = a0 + a1*x - a2*y, y' = b0 + b1*y + b2*x, two
// independent three-parameter problems.  Design rows (1, x, -y) and
// (1, y, x), observations x'i and y'i.
//
// transform(): only the counts are tested (xArgumentMismatch); the flags are
// NOT, xNotInitialized is never thrown: a fresh estimator (counts 0 and 0)
// goes on to the empty normal equations and ends in ERR_SOLVE_MATRIXSINGULAR.
// Source points on one line are refused before solving with
// CthrowMath(ERR_SOLVE_MATRIXSINGULAR, ""): the centred source moments give
// Suu*Svv - Suv^2 <= tau*Suu*Svv with tau = 2^-36 (double), 2^-20 (float),
// i.e. a set narrower than about 2e-6 (double) or 5e-4 (float) of its length
// (the LU solver would return noise for a slanted line).
// The result: translation (a0, b0), sx = sqrt(a1^2 + a2^2), sy = sqrt(b1^2 +
// b2^2), alpha = atan(a2 / a1), beta = atan(b2 / b1) (one-argument, pi/2 for
// an exactly zero denominator), as for Helmert.  getSolutionX() holds
// (a0, a1, a2), getSolutionY() (b0, b1, b2) for atan2.
template <class T>
class METROMATH_API Ctrans2_Affine : public Ctrans2_Basic<T> {
public:
    // Identity parameters, design matrices 0 x 3, empty solutions and observations.
    Ctrans2_Affine();
    Ctrans2_Affine(Ctrans2_Affine const& other);
    Ctrans2_Affine& operator=(Ctrans2_Affine const& other);
    ~Ctrans2_Affine();

    CtransPrm2<T> transform() override;
    void setSource(std::vector<Cpoint2<T>> const& source) override;
    void setDest(std::vector<Cpoint2<T>> const& dest) override;
    void setAll(std::vector<Cpoint2<T>> const& source, std::vector<Cpoint2<T>> const& dest) override;

    // (a0, a1, a2) and (b0, b1, b2) as 3 x 1 of the last transform().
    Cmatrix<T> const& getSolutionX() const { return m_solX; }
    Cmatrix<T> const& getSolutionY() const { return m_solY; }

private:
    Cmatrix<T> m_Ax;         // x design matrix, n x 3
    Cmatrix<T> m_Ay;         // y design matrix, n x 3
    Cmatrix<T> m_solX;       // 3 x 1
    Cmatrix<T> m_solY;       // 3 x 1
    std::vector<T> m_obsX;   // n
    std::vector<T> m_obsY;   // n
};

extern template class CtransPrm2<float>;
extern template class CtransPrm2<double>;
extern template class Ctrans2_Basic<float>;
extern template class Ctrans2_Basic<double>;
extern template class Ctrans2_Helmert<float>;
extern template class Ctrans2_Helmert<double>;
extern template class Ctrans2_Affine<float>;
extern template class Ctrans2_Affine<double>;

}  // namespace math

#endif
