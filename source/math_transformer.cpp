// Ctransformer<T>: spatial points into (R*(p - c)) and out of (R^T*p + c) a
// local frame.
#include <math/errors.h>
#include <math/transform3.h>

#include <string>

namespace math {

namespace {

// The nine elements of the rotation, copied out of the caller's storage with
// the centre, so that neither can change under the points being written.
template <class T>
struct Frame {
    T r00, r01, r02, r10, r11, r12, r20, r21, r22;
    T cx, cy, cz;

    Frame(T const* r, unsigned stride, Cpoint3<T> const& c)
        : r00(r[0]), r01(r[1]), r02(r[2]),
          r10(r[stride]), r11(r[stride + 1]), r12(r[stride + 2]),
          r20(r[2 * stride]), r21(r[2 * stride + 1]), r22(r[2 * stride + 2]),
          cx(c.x), cy(c.y), cz(c.z) {}

    // R*(p - c), the difference formed first.
    void to(Cpoint3<T> const& p, Cpoint3<T>& q) const {
        const T dx = p.x - cx, dy = p.y - cy, dz = p.z - cz;
        q.x = r00 * dx + r01 * dy + r02 * dz;
        q.y = r10 * dx + r11 * dy + r12 * dz;
        q.z = r20 * dx + r21 * dy + r22 * dz;
    }
    // R^T*p + c.
    void from(Cpoint3<T> const& p, Cpoint3<T>& q) const {
        const T x = p.x, y = p.y, z = p.z;
        q.x = r00 * x + r10 * y + r20 * z + cx;
        q.y = r01 * x + r11 * y + r21 * z + cy;
        q.z = r02 * x + r12 * y + r22 * z + cz;
    }
};

template <class T>
Frame<T> frameOf(Cmatrix<T> const& R, Cpoint3<T> const& c) {
    if (R.m() < 3 || R.n() < 3)
        throw CthrowMath(CthrowMath::ERR_MATRIX_DIMS, "") << std::to_string(R.m()) << std::to_string(R.n());
    return Frame<T>(R.getBase(), R.n(), c);
}

template <class T>
Frame<T> frameOf(Cquaternion<T> const& q, Cpoint3<T> const& c) {
    T R[3][3];
    q.getRotMatrix(R);
    return Frame<T>(&R[0][0], 3, c);
}

enum Direction { kTo, kFrom };

template <Direction D, class T>
inline void apply(Frame<T> const& f, Cpoint3<T> const& p, Cpoint3<T>& q) {
    if (D == kTo)
        f.to(p, q);
    else
        f.from(p, q);
}

template <Direction D, class T>
void applyInPlace(Frame<T> const& f, std::vector<Cpoint3<T>>& ps) {
    Cpoint3<T>* p = ps.data();
    for (std::size_t i = 0, n = ps.size(); i < n; ++i) apply<D>(f, p[i], p[i]);
}

template <Direction D, class T>
void applyList(Frame<T> const& f, std::vector<Cpoint3<T>> const& in, std::vector<Cpoint3<T>>& out) {
    if (&in == &out) {
        applyInPlace<D>(f, out);
        return;
    }
    // Cleared, reserved, then the points appended in order; the append is
    // done as one resize and a plain loop over the storage (same contents,
    // without a capacity test per point).
    out.clear();
    out.reserve(in.size());
    out.resize(in.size());
    const Cpoint3<T>* p = in.data();
    Cpoint3<T>* q = out.data();
    for (std::size_t i = 0, n = in.size(); i < n; ++i) apply<D>(f, p[i], q[i]);
}

}  // namespace

// Rotation given as a matrix.
template <class T>
void Ctransformer<T>::transformTo(Cmatrix<T> const& R, Cpoint3<T>& p, Cpoint3<T> const& c) {
    frameOf(R, c).to(p, p);
}
template <class T>
void Ctransformer<T>::transformTo(Cmatrix<T> const& R, Cpoint3<T> const& p, Cpoint3<T>& q, Cpoint3<T> const& c) {
    frameOf(R, c).to(p, q);
}
template <class T>
void Ctransformer<T>::transformTo(Cmatrix<T> const& R, Points& ps, Cpoint3<T> const& c) {
    applyInPlace<kTo>(frameOf(R, c), ps);
}
template <class T>
void Ctransformer<T>::transformTo(Cmatrix<T> const& R, Points const& in, Points& out, Cpoint3<T> const& c) {
    applyList<kTo>(frameOf(R, c), in, out);
}
template <class T>
void Ctransformer<T>::transformFrom(Cmatrix<T> const& R, Cpoint3<T>& p, Cpoint3<T> const& c) {
    frameOf(R, c).from(p, p);
}
template <class T>
void Ctransformer<T>::transformFrom(Cmatrix<T> const& R, Cpoint3<T> const& p, Cpoint3<T>& q, Cpoint3<T> const& c) {
    frameOf(R, c).from(p, q);
}
template <class T>
void Ctransformer<T>::transformFrom(Cmatrix<T> const& R, Points& ps, Cpoint3<T> const& c) {
    applyInPlace<kFrom>(frameOf(R, c), ps);
}
template <class T>
void Ctransformer<T>::transformFrom(Cmatrix<T> const& R, Points const& in, Points& out, Cpoint3<T> const& c) {
    applyList<kFrom>(frameOf(R, c), in, out);
}

// Rotation given as a quaternion.
template <class T>
void Ctransformer<T>::transformTo(Cquaternion<T> const& q, Cpoint3<T>& p, Cpoint3<T> const& c) {
    frameOf(q, c).to(p, p);
}
template <class T>
void Ctransformer<T>::transformTo(Cquaternion<T> const& q, Cpoint3<T> const& p, Cpoint3<T>& r, Cpoint3<T> const& c) {
    frameOf(q, c).to(p, r);
}
template <class T>
void Ctransformer<T>::transformTo(Cquaternion<T> const& q, Points& ps, Cpoint3<T> const& c) {
    applyInPlace<kTo>(frameOf(q, c), ps);
}
template <class T>
void Ctransformer<T>::transformTo(Cquaternion<T> const& q, Points const& in, Points& out, Cpoint3<T> const& c) {
    applyList<kTo>(frameOf(q, c), in, out);
}
template <class T>
void Ctransformer<T>::transformFrom(Cquaternion<T> const& q, Cpoint3<T>& p, Cpoint3<T> const& c) {
    frameOf(q, c).from(p, p);
}
template <class T>
void Ctransformer<T>::transformFrom(Cquaternion<T> const& q, Cpoint3<T> const& p, Cpoint3<T>& r,
                                    Cpoint3<T> const& c) {
    frameOf(q, c).from(p, r);
}
template <class T>
void Ctransformer<T>::transformFrom(Cquaternion<T> const& q, Points& ps, Cpoint3<T> const& c) {
    applyInPlace<kFrom>(frameOf(q, c), ps);
}
template <class T>
void Ctransformer<T>::transformFrom(Cquaternion<T> const& q, Points const& in, Points& out, Cpoint3<T> const& c) {
    applyList<kFrom>(frameOf(q, c), in, out);
}

template class Ctransformer<float>;
template class Ctransformer<double>;

}  // namespace math
