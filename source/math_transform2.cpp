// CtransPrm2<T>, the planar transformation parameters, and the estimator base
// Ctrans2_Basic<T>.
#include <math/transform2.h>

#include <cmath>
#include <type_traits>

namespace math {

// ---------------------------------------------------------------------------
// CtransPrm2
// ---------------------------------------------------------------------------

template <class T>
CtransPrm2<T>::CtransPrm2() : m_alpha(T(0)), m_beta(T(0)), m_trans(T(0), T(0)), m_scale(T(1), T(1)) {}

template <class T>
CtransPrm2<T>::CtransPrm2(T angle, Cpoint2<T> const& translation, Cpoint2<T>& scale)
    : m_alpha(angle), m_beta(angle), m_trans(translation), m_scale(scale) {}

template <class T>
CtransPrm2<T>::CtransPrm2(T alpha, T beta, Cpoint2<T> const& translation, Cpoint2<T>& scale)
    : m_alpha(alpha), m_beta(beta), m_trans(translation), m_scale(scale) {}

// Copies are member-wise, defined here so that they stay exported functions.
template <class T>
CtransPrm2<T>::CtransPrm2(CtransPrm2 const&) = default;
template <class T>
CtransPrm2<T>& CtransPrm2<T>::operator=(CtransPrm2 const&) = default;

template <class T>
void CtransPrm2<T>::setRotation(T angle) {
    m_alpha = m_beta = angle;
}

template <class T>
void CtransPrm2<T>::setRotation(T alpha, T beta) {
    m_alpha = alpha;
    m_beta = beta;
}

template <class T>
void CtransPrm2<T>::setTranslation(T tx, T ty) {
    m_trans = Cpoint2<T>(tx, ty);
}

template <class T>
void CtransPrm2<T>::setTranslation(Cpoint2<T> const& t) {
    m_trans = t;
}

template <class T>
void CtransPrm2<T>::setScale(T sx, T sy) {
    m_scale = Cpoint2<T>(sx, sy);
}

template <class T>
void CtransPrm2<T>::setScale(Cpoint2<T> const& s) {
    m_scale = s;
}

template <class T>
Cmatrix<T> CtransPrm2<T>::getRot_Matrix() const {
    Cmatrix<T> R(2, 2);
    R(0, 0) = std::cos(m_alpha);
    R(0, 1) = -std::sin(m_alpha);
    R(1, 0) = std::sin(m_beta);
    R(1, 1) = std::cos(m_beta);
    return R;
}

template <class T>
Cmatrix<T> CtransPrm2<T>::getRot_Matrix() {
    return static_cast<CtransPrm2 const&>(*this).getRot_Matrix();
}

template <class T>
typename CtransPrm2<T>::template TransFunctor<T> CtransPrm2<T>::getTransFunctor() const {
    static_assert(sizeof(TransFunctor<T>) == 6 * sizeof(T) && std::is_standard_layout<TransFunctor<T>>::value,
                  "the forward functor holds exactly six numbers");
    TransFunctor<T> f;
    f.c11 = m_scale.x * std::cos(m_alpha);
    f.c12 = -m_scale.x * std::sin(m_alpha);
    f.c21 = m_scale.y * std::sin(m_beta);
    f.c22 = m_scale.y * std::cos(m_beta);
    f.tx = m_trans.x;
    f.ty = m_trans.y;
    return f;
}

template <class T>
typename CtransPrm2<T>::template ReTransFunctor<T> CtransPrm2<T>::getReTransFunctor() const {
    static_assert(sizeof(ReTransFunctor<T>) == 6 * sizeof(T) && std::is_standard_layout<ReTransFunctor<T>>::value,
                  "the backward functor holds exactly six numbers");
    ReTransFunctor<T> f;
    f.c11 = std::cos(m_alpha) / m_scale.x;
    f.c12 = std::sin(m_beta) / m_scale.y;
    f.c21 = -std::sin(m_alpha) / m_scale.x;
    f.c22 = std::cos(m_beta) / m_scale.y;
    f.tx = m_trans.x;
    f.ty = m_trans.y;
    return f;
}

template <class T>
void CtransPrm2<T>::transform(Cpoint2<T> const& src, Cpoint2<T>& dst) const {
    const TransFunctor<T> f = getTransFunctor();
    const T x = src.x, y = src.y;
    // The first coordinate takes x in both terms (kept behaviour).
    dst.x = f.c11 * x + f.c12 * x + f.tx;
    dst.y = f.c21 * x + f.c22 * y + f.ty;
}

template <class T>
void CtransPrm2<T>::transform(std::vector<Cpoint2<T>> const& src, std::vector<Cpoint2<T>>& dst) const {
    const TransFunctor<T> f = getTransFunctor();
    const T nan = quietNaN<T>();
    dst.resize(src.size(), Cpoint2<T>(nan, nan));  // no-op when src and dst are one vector
    const Cpoint2<T>* in = src.data();
    Cpoint2<T>* out = dst.data();
    for (std::size_t i = 0, n = dst.size(); i < n; ++i) {
        const T x = in[i].x, y = in[i].y;
        out[i].x = f.c11 * x + f.c12 * y + f.tx;
        out[i].y = f.c21 * x + f.c22 * y + f.ty;
    }
}

namespace {

// The backward coefficients of retransform (r11, r12, r21, r22).
template <class T>
struct Backward {
    T r11, r12, r21, r22, tx, ty;
    Backward(T alpha, T beta, Cpoint2<T> const& t, Cpoint2<T> const& s)
        : r11(std::cos(alpha) / s.x),
          r12(std::sin(alpha) / s.y),
          r21(-std::sin(beta) / s.x),
          r22(std::cos(beta) / s.y),
          tx(t.x),
          ty(t.y) {}
    void apply(Cpoint2<T> const& p, Cpoint2<T>& q) const {
        const T dx = p.x - tx, dy = p.y - ty;
        q.x = r11 * dx + r12 * dy;
        q.y = r21 * dx + r22 * dy;
    }
};

}  // namespace

template <class T>
void CtransPrm2<T>::retransform(Cpoint2<T> const& dst, Cpoint2<T>& src) const {
    Backward<T>(m_alpha, m_beta, m_trans, m_scale).apply(dst, src);
}

template <class T>
void CtransPrm2<T>::retransform(std::vector<Cpoint2<T>> const& dst, std::vector<Cpoint2<T>>& src) const {
    const Backward<T> b(m_alpha, m_beta, m_trans, m_scale);
    const T nan = quietNaN<T>();
    src.resize(dst.size(), Cpoint2<T>(nan, nan));
    const Cpoint2<T>* in = dst.data();
    Cpoint2<T>* out = src.data();
    for (std::size_t i = 0, n = src.size(); i < n; ++i) b.apply(in[i], out[i]);
}

// ---------------------------------------------------------------------------
// Ctrans2_Basic
// ---------------------------------------------------------------------------

template <class T>
Ctrans2_Basic<T>::Ctrans2_Basic() : m_sourceSet(false), m_destSet(false), m_nSource(0), m_nDest(0), m_prm() {}

template <class T>
Ctrans2_Basic<T>::Ctrans2_Basic(Ctrans2_Basic const&) = default;
template <class T>
Ctrans2_Basic<T>& Ctrans2_Basic<T>::operator=(Ctrans2_Basic const&) = default;
template <class T>
Ctrans2_Basic<T>::~Ctrans2_Basic() = default;

template class CtransPrm2<float>;
template class CtransPrm2<double>;
template class Ctrans2_Basic<float>;
template class Ctrans2_Basic<double>;

}  // namespace math
