// Spatial rotations and similarity transformations: Cquaternion<T> and
// CtransPrm3<T>.
#include <math/errors.h>
#include <math/transform3.h>

#include <cmath>

#include "math_primitive_ops.h"

namespace math {

// ---------------------------------------------------------------------------
// Cquaternion
// ---------------------------------------------------------------------------

template <class T>
Cquaternion<T>::Cquaternion(Cdirec3<T> const& axis, T angle) {
    ops::axisAngleQuaternion(axis, angle, w, x, y, z);
}

namespace {

// Shepperd's method: the largest of the four squared components 4w^2 = 1 + tr,
// 4x^2 = 1 + R00 - R11 - R22, ... is taken from the diagonal and the other
// three from sums and differences of the off-diagonal pairs, which keeps the
// division well away from zero.
template <class T>
void quatFromMatrix(T R00, T R01, T R02, T R10, T R11, T R12, T R20, T R21, T R22, Cquaternion<T>& q) {
    const T tr = R00 + R11 + R22;
    if (tr > T(0)) {
        const T s = std::sqrt(tr + T(1)) * T(2);  // 4w
        q = Cquaternion<T>(s * T(0.25), (R21 - R12) / s, (R02 - R20) / s, (R10 - R01) / s);
    } else if (R00 > R11 && R00 > R22) {
        const T s = std::sqrt(T(1) + R00 - R11 - R22) * T(2);  // 4x
        q = Cquaternion<T>((R21 - R12) / s, s * T(0.25), (R01 + R10) / s, (R02 + R20) / s);
    } else if (R11 > R22) {
        const T s = std::sqrt(T(1) + R11 - R00 - R22) * T(2);  // 4y
        q = Cquaternion<T>((R02 - R20) / s, (R01 + R10) / s, s * T(0.25), (R12 + R21) / s);
    } else {
        const T s = std::sqrt(T(1) + R22 - R00 - R11) * T(2);  // 4z
        q = Cquaternion<T>((R10 - R01) / s, (R02 + R20) / s, (R12 + R21) / s, s * T(0.25));
    }
    q.normalize();
}

}  // namespace

template <class T>
Cquaternion<T>::Cquaternion(Cmatrix<T> const& R) {
    // The rotation is the upper-left 3x3 block; a smaller matrix has none.
    if (R.m() < 3 || R.n() < 3)
        throw CthrowMath(CthrowMath::ERR_MATRIX_DIMS, "") << std::to_string(R.m()) << std::to_string(R.n());
    const T* r = R.getBase();
    const unsigned n = R.n();
    quatFromMatrix(r[0], r[1], r[2], r[n], r[n + 1], r[n + 2], r[2 * n], r[2 * n + 1], r[2 * n + 2], *this);
}

template <class T>
Cquaternion<T>::Cquaternion(T const (&R)[3][3]) {
    quatFromMatrix(R[0][0], R[0][1], R[0][2], R[1][0], R[1][1], R[1][2], R[2][0], R[2][1], R[2][2], *this);
}

template <class T>
T Cquaternion<T>::norm() const {
    return std::sqrt(w * w + x * x + y * y + z * z);
}

template <class T>
Cquaternion<T>& Cquaternion<T>::normalize() {
    if (!ops::normalizeQuaternion(w, x, y, z)) invalidate();
    return *this;
}

template <class T>
Cquaternion<T> Cquaternion<T>::operator*(Cquaternion const& q) const {
    return Cquaternion(w * q.w - x * q.x - y * q.y - z * q.z, w * q.x + x * q.w + y * q.z - z * q.y,
                       w * q.y - x * q.z + y * q.w + z * q.x, w * q.z + x * q.y - y * q.x + z * q.w);
}

template <class T>
Cpoint3<T> Cquaternion<T>::rotate(Cpoint3<T> const& p) const {
    // q p q* = p + w*t + v x t with v = (x, y, z) and t = 2 v x p.
    const Cpoint3<T> v(x, y, z);
    const Cpoint3<T> t = v.cross(p) * T(2);
    const Cpoint3<T> vt = v.cross(t);
    return Cpoint3<T>(p.x + w * t.x + vt.x, p.y + w * t.y + vt.y, p.z + w * t.z + vt.z);
}

template <class T>
void Cquaternion<T>::getRotMatrix(T (&R)[3][3]) const {
    ops::quaternionMatrix(w, x, y, z, R);
}

template <class T>
void Cquaternion<T>::getRotMatrix(Cmatrix<T>& M) const {
    T R[3][3];
    getRotMatrix(R);
    M.resize(3, 3);
    for (unsigned i = 0; i < 3; ++i)
        for (unsigned j = 0; j < 3; ++j) M(i, j) = R[i][j];
}

template <class T>
void Cquaternion<T>::getAxisAngle(Cdirec3<T>& axis, T& angle) const {
    const T s = std::sqrt(x * x + y * y + z * z);
    if (s > T(0)) {
        axis = Cdirec3<T>(x / s, y / s, z / s, true);
        angle = T(2) * std::atan2(s, w);
    } else {
        axis = Cdirec3<T>(T(0), T(0), T(1), true);
        angle = s == s && w == w ? T(0) : quietNaN<T>();
    }
}

// ---------------------------------------------------------------------------
// CtransPrm3
// ---------------------------------------------------------------------------

template <class T>
CtransPrm3<T>::CtransPrm3() : m_rot(), m_trans(), m_scale(T(1)) {
    updateMatrix();
}

template <class T>
CtransPrm3<T>::CtransPrm3(Cquaternion<T> const& rot, Cpoint3<T> const& translation, T scale)
    : m_rot(rot), m_trans(translation), m_scale(scale) {
    m_rot.normalize();
    updateMatrix();
}

template <class T>
void CtransPrm3<T>::setRotation(Cquaternion<T> const& rot) {
    m_rot = rot;
    m_rot.normalize();
    updateMatrix();
}

template <class T>
void CtransPrm3<T>::transform(Cpoint3<T> const& p, Cpoint3<T>& q) const {
    q = ops::transformPoint(m_R, m_scale, m_trans, p);  // p and q may be the same point
}

template <class T>
void CtransPrm3<T>::transform(Cpoint3<T>& p) const {
    transform(p, p);
}

template <class T>
void CtransPrm3<T>::transform(std::vector<Cpoint3<T>>& ps) const {
    for (Cpoint3<T>& p : ps) transform(p, p);
}

template <class T>
void CtransPrm3<T>::transform(std::vector<Cpoint3<T>> const& in, std::vector<Cpoint3<T>>& out) const {
    if (&in == &out) {
        transform(out);
        return;
    }
    out.clear();
    out.resize(in.size());
    for (std::size_t i = 0; i < in.size(); ++i) transform(in[i], out[i]);
}

template <class T>
void CtransPrm3<T>::retransform(Cpoint3<T> const& p, Cpoint3<T>& q) const {
    q = ops::retransformPoint(m_R, m_scale, m_trans, p);
}

template <class T>
void CtransPrm3<T>::retransform(Cpoint3<T>& p) const {
    retransform(p, p);
}

template <class T>
void CtransPrm3<T>::retransform(std::vector<Cpoint3<T>>& ps) const {
    for (Cpoint3<T>& p : ps) retransform(p, p);
}

template <class T>
void CtransPrm3<T>::retransform(std::vector<Cpoint3<T>> const& in, std::vector<Cpoint3<T>>& out) const {
    if (&in == &out) {
        retransform(out);
        return;
    }
    out.clear();
    out.resize(in.size());
    for (std::size_t i = 0; i < in.size(); ++i) retransform(in[i], out[i]);
}

template <class T>
CtransPrm3<T> CtransPrm3<T>::operator*(CtransPrm3 const& b) const {
    // a(b(p)) = sa*Ra*(sb*Rb*p + tb) + ta = (sa*sb)*(Ra*Rb)*p + (sa*Ra*tb + ta).
    Cpoint3<T> t;
    transform(b.m_trans, t);
    return CtransPrm3(m_rot * b.m_rot, t, m_scale * b.m_scale);
}

template <class T>
CtransPrm3<T> CtransPrm3<T>::inverse() const {
    // p = R^T*(q - t)/s = (1/s)*R^T*q - R^T*t/s.
    Cpoint3<T> t;
    retransform(Cpoint3<T>(), t);
    return CtransPrm3(m_rot.conjugate(), t, T(1) / m_scale);
}

template <class T>
bool CtransPrm3<T>::isValid() const {
    return m_rot.isValid() && m_trans.x == m_trans.x && m_trans.y == m_trans.y && m_trans.z == m_trans.z &&
           m_scale == m_scale;
}

template class Cquaternion<float>;
template class Cquaternion<double>;
template class CtransPrm3<float>;
template class CtransPrm3<double>;

}  // namespace math
