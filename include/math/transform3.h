// Spatial rotations and similarity transformations: the quaternion
// Cquaternion<T>, the transformation parameters CtransPrm3<T> (rotation,
// translation, scale) and the point-set transformer Ctransformer<T> (into and
// out of a local frame), exported for float and double.
#ifndef MATH_TRANSFORM3_H
#define MATH_TRANSFORM3_H

#include <math/export.h>
#include <math/matrix.h>
#include <math/point.h>

#include <vector>

namespace math {

// A quaternion w + x*i + y*j + z*k (fields in this order, w the scalar part).
// As a rotation it must be of unit length; the rotation by angle a about the
// unit axis n is (cos(a/2), sin(a/2)*n).  Invalid when a component is NaN
// (a normalised zero quaternion becomes invalid).
template <class T>
class METROMATH_API Cquaternion {
public:
    T w, x, y, z;

    // The identity rotation (1, 0, 0, 0).
    Cquaternion() : w(T(1)), x(T(0)), y(T(0)), z(T(0)) {}
    // The four components as given.
    Cquaternion(T w_, T x_, T y_, T z_) : w(w_), x(x_), y(y_), z(z_) {}
    // The rotation by `angle` (radians, right-handed) about the unit axis.
    Cquaternion(Cdirec3<T> const& axis, T angle);
    // The rotation of the orthonormal matrix R (its upper-left 3x3 block; the
    // column count is the row stride, so a 4x4 matrix serves as well).  A
    // matrix with fewer than 3 rows or columns throws CthrowMath
    // ERR_MATRIX_DIMS with the row and column count.
    explicit Cquaternion(Cmatrix<T> const& R);
    // The same from a plain row-major 3x3 array.
    explicit Cquaternion(T const (&R)[3][3]);

    // sqrt(w^2 + x^2 + y^2 + z^2).
    T norm() const;
    // Divides by the norm; a zero (or NaN) norm makes the quaternion invalid.
    Cquaternion& normalize();
    Cquaternion normalized() const {
        Cquaternion q(*this);
        return q.normalize();
    }
    // (w, -x, -y, -z): the inverse rotation of a unit quaternion.
    Cquaternion conjugate() const { return Cquaternion(w, -x, -y, -z); }
    // Hamilton product: (p*q) rotates by q first, then by p.
    Cquaternion operator*(Cquaternion const& q) const;
    Cquaternion& operator*=(Cquaternion const& q) { return *this = *this * q; }

    // The rotated point q*p*conj(q) of a unit quaternion (the same as the
    // rotation matrix applied to p, without forming it).
    Cpoint3<T> rotate(Cpoint3<T> const& p) const;

    // The rotation matrix, row-major:
    //   R00 = 1-2(z^2+y^2)  R01 = 2(y x - w z)   R02 = 2(w y + z x)
    //   R10 = 2(w z + y x)  R11 = 1-2(z^2+x^2)   R12 = 2(z y - w x)
    //   R20 = 2(z x - w y)  R21 = 2(z y + w x)   R22 = 1-2(y^2+x^2)
    // and every element clamped into [-1, 1] (no renormalisation).
    void getRotMatrix(T (&R)[3][3]) const;
    // The same into a matrix resized to 3 x 3.
    void getRotMatrix(Cmatrix<T>& R) const;

    // Rotation angle in [0, 2*pi] and unit axis (for the identity the
    // axis is (0, 0, 1) and the angle 0).
    void getAxisAngle(Cdirec3<T>& axis, T& angle) const;

    bool isValid() const { return w == w && x == x && y == y && z == z; }
    void invalidate() { w = quietNaN<T>(); }
};

// A spatial similarity transformation p -> scale*R*p + translation, with R the
// rotation of a unit quaternion.  The quaternion is normalised on every
// assignment; a zero quaternion or a NaN makes the parameters invalid.  A
// scale of 0 is allowed but cannot be undone by retransform (division by 0).
template <class T>
class METROMATH_API CtransPrm3 {
public:
    // The identity transformation.
    CtransPrm3();
    CtransPrm3(Cquaternion<T> const& rot, Cpoint3<T> const& translation = Cpoint3<T>(), T scale = T(1));

    void setRotation(Cquaternion<T> const& rot);
    void setTranslation(Cpoint3<T> const& t) { m_trans = t; }
    void setScale(T s) { m_scale = s; }

    Cquaternion<T> const& rotation() const { return m_rot; }
    Cpoint3<T> const& translation() const { return m_trans; }
    T scale() const { return m_scale; }
    // The rotation matrix in use (row-major), as Cquaternion::getRotMatrix.
    T const (&rotMatrix() const)[3][3] { return m_R; }

    // p := scale*R*p + translation.
    void transform(Cpoint3<T>& p) const;
    void transform(Cpoint3<T> const& p, Cpoint3<T>& q) const;
    void transform(std::vector<Cpoint3<T>>& ps) const;
    // out is cleared and receives the transformed points of in, in order.
    void transform(std::vector<Cpoint3<T>> const& in, std::vector<Cpoint3<T>>& out) const;

    // The inverse: p := R^T*(p - translation)/scale.
    void retransform(Cpoint3<T>& p) const;
    void retransform(Cpoint3<T> const& p, Cpoint3<T>& q) const;
    void retransform(std::vector<Cpoint3<T>>& ps) const;
    void retransform(std::vector<Cpoint3<T>> const& in, std::vector<Cpoint3<T>>& out) const;

    // Composition: (a*b).transform(p) == a.transform(b.transform(p)).
    CtransPrm3 operator*(CtransPrm3 const& b) const;
    // The parameters of retransform as a transformation of their own.
    CtransPrm3 inverse() const;

    bool isValid() const;

private:
    void updateMatrix() { m_rot.getRotMatrix(m_R); }

    Cquaternion<T> m_rot;
    Cpoint3<T> m_trans;
    T m_scale;
    T m_R[3][3];
};

// Moves spatial points between the world frame and a local frame given by a
// rotation R and the local origin c (in world coordinates).  Static functions
// only, no state; each direction in four shapes (one point in place, one point
// in -> out, a vector in place, a vector in -> out).
//
//   transformTo:    p' = R*(p - c)        (d = p - c formed first)
//   transformFrom:  p' = R^T*p + c
//
// The rotation is the upper-left 3x3 block of a Cmatrix<T>, read row-major
// with the matrix's column count as row stride (a 4x4 homogeneous matrix
// works, its last row and column ignored), or a quaternion (w, x, y, z) turned
// into its matrix by Cquaternion<T>::getRotMatrix (not normalised; every
// element clamped into [-1, 1] without renormalising, so a non-unit
// quaternion gives a scaled and clamped matrix).
//
// Kept as users depend on them:
//  - transformFrom uses the TRANSPOSE of R, not its inverse: the two
//    directions undo each other only for an orthonormal R;
//  - the vector in -> out forms clear `out`, reserve in.size() and append in
//    order (an empty input leaves `out` empty).
// Every form reads a point's old coordinates before writing it, and the
// centre is copied first, so in/out or centre may alias any point; the same
// vector as in and out acts as the in-place form.  A matrix with fewer than 3
// rows or columns throws CthrowMath ERR_MATRIX_DIMS (rows and columns as
// "%0", "%1") before any point is touched.  NaN coordinates propagate.
template <class T>
class METROMATH_API Ctransformer {
public:
    typedef std::vector<Cpoint3<T>> Points;

    static void transformTo(Cmatrix<T> const& R, Cpoint3<T>& p, Cpoint3<T> const& c);
    static void transformTo(Cmatrix<T> const& R, Cpoint3<T> const& p, Cpoint3<T>& q, Cpoint3<T> const& c);
    static void transformTo(Cmatrix<T> const& R, Points& ps, Cpoint3<T> const& c);
    static void transformTo(Cmatrix<T> const& R, Points const& in, Points& out, Cpoint3<T> const& c);
    static void transformFrom(Cmatrix<T> const& R, Cpoint3<T>& p, Cpoint3<T> const& c);
    static void transformFrom(Cmatrix<T> const& R, Cpoint3<T> const& p, Cpoint3<T>& q, Cpoint3<T> const& c);
    static void transformFrom(Cmatrix<T> const& R, Points& ps, Cpoint3<T> const& c);
    static void transformFrom(Cmatrix<T> const& R, Points const& in, Points& out, Cpoint3<T> const& c);

    static void transformTo(Cquaternion<T> const& q, Cpoint3<T>& p, Cpoint3<T> const& c);
    static void transformTo(Cquaternion<T> const& q, Cpoint3<T> const& p, Cpoint3<T>& r, Cpoint3<T> const& c);
    static void transformTo(Cquaternion<T> const& q, Points& ps, Cpoint3<T> const& c);
    static void transformTo(Cquaternion<T> const& q, Points const& in, Points& out, Cpoint3<T> const& c);
    static void transformFrom(Cquaternion<T> const& q, Cpoint3<T>& p, Cpoint3<T> const& c);
    static void transformFrom(Cquaternion<T> const& q, Cpoint3<T> const& p, Cpoint3<T>& r, Cpoint3<T> const& c);
    static void transformFrom(Cquaternion<T> const& q, Points& ps, Cpoint3<T> const& c);
    static void transformFrom(Cquaternion<T> const& q, Points const& in, Points& out, Cpoint3<T> const& c);
};

extern template class Cquaternion<float>;
extern template class Cquaternion<double>;
extern template class CtransPrm3<float>;
extern template class CtransPrm3<double>;
extern template class Ctransformer<float>;
extern template class Ctransformer<double>;

}  // namespace math

#endif
