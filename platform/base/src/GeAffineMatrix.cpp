#include "GeAffineMatrix.h"

#include "Assertions.h"
#include "ExBase.h"

#include <cmath>

namespace Vn {

namespace {

[[noreturn]] void throwSingular() {
    throw MsgException<ExBase>(__FILE__, __LINE__,
                               "The matrix cannot be inverted: its linear part is singular");
}

} // namespace

// ---- 2D ----

template <class T>
GeAffineMatrix2<T>::GeAffineMatrix2() noexcept
    : GeAffineMatrix2(T(1), T(0), T(0), T(1), T(0), T(0)) {}

template <class T>
GeAffineMatrix2<T>::GeAffineMatrix2(T a00, T a01, T a10, T a11, T tx, T ty) noexcept
    : _m{{a00, a01, tx}, {a10, a11, ty}, {T(0), T(0), T(1)}} {}

template <class T>
T GeAffineMatrix2<T>::operator()(int row, int col) const {
    VN_ASSERT(row >= 0 && row < 3 && col >= 0 && col < 3);
    return _m[row][col];
}

template <class T>
void GeAffineMatrix2<T>::set(int row, int col, T value) {
    VN_ASSERT(row >= 0 && row < 2 && col >= 0 && col < 3);
    _m[row][col] = value;
}

template <class T>
GeAffineMatrix2<T> GeAffineMatrix2<T>::operator*(GeAffineMatrix2 const& o) const noexcept {
    GeAffineMatrix2 r;
    for (int i = 0; i < 2; ++i) {
        for (int j = 0; j < 3; ++j)
            r._m[i][j] = _m[i][0] * o._m[0][j] + _m[i][1] * o._m[1][j];
        r._m[i][2] += _m[i][2];
    }
    return r;
}

template <class T>
GeAffineMatrix2<T>& GeAffineMatrix2<T>::mulOnRight(GeAffineMatrix2 const& o) noexcept {
    return *this = *this * o;
}

template <class T>
GeAffineMatrix2<T>& GeAffineMatrix2<T>::mulOnLeft(GeAffineMatrix2 const& o) noexcept {
    return *this = o * *this;
}

template <class T>
GeVector2<T> GeAffineMatrix2<T>::transformPoint(GeVector2<T> const& p) const noexcept {
    return {_m[0][0] * p.x + _m[0][1] * p.y + _m[0][2], _m[1][0] * p.x + _m[1][1] * p.y + _m[1][2]};
}

template <class T>
T GeAffineMatrix2<T>::getDeterminant() const noexcept {
    return _m[0][0] * _m[1][1] - _m[0][1] * _m[1][0];
}

template <class T>
GeAffineMatrix2<T> GeAffineMatrix2<T>::getInverse() const {
    T const det = getDeterminant();
    if (det == T(0) || !std::isfinite(det))
        throwSingular();
    T const inv = T(1) / det;
    T const a00 = _m[1][1] * inv;
    T const a01 = -_m[0][1] * inv;
    T const a10 = -_m[1][0] * inv;
    T const a11 = _m[0][0] * inv;
    T const tx = _m[0][2];
    T const ty = _m[1][2];
    return GeAffineMatrix2(a00, a01, a10, a11, -(a00 * tx + a01 * ty), -(a10 * tx + a11 * ty));
}

template <class T>
bool GeAffineMatrix2<T>::isIdentity() const noexcept {
    return *this == GeAffineMatrix2();
}

template <class T>
bool GeAffineMatrix2<T>::operator==(GeAffineMatrix2 const& o) const noexcept {
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            if (!(_m[i][j] == o._m[i][j]))
                return false;
    return true;
}

// ---- 3D ----

template <class T>
GeAffineMatrix3<T>::GeAffineMatrix3() noexcept
    : GeAffineMatrix3(T(1), T(0), T(0), T(0), T(1), T(0), T(0), T(0), T(1), T(0), T(0), T(0)) {}

template <class T>
GeAffineMatrix3<T>::GeAffineMatrix3(T a00, T a01, T a02, T a10, T a11, T a12, T a20, T a21, T a22,
                                    T tx, T ty, T tz) noexcept
    : _m{{a00, a01, a02, tx}, {a10, a11, a12, ty}, {a20, a21, a22, tz}, {T(0), T(0), T(0), T(1)}} {}

template <class T>
T GeAffineMatrix3<T>::operator()(int row, int col) const {
    VN_ASSERT(row >= 0 && row < 4 && col >= 0 && col < 4);
    return _m[row][col];
}

template <class T>
void GeAffineMatrix3<T>::set(int row, int col, T value) {
    VN_ASSERT(row >= 0 && row < 3 && col >= 0 && col < 4);
    _m[row][col] = value;
}

template <class T>
GeAffineMatrix3<T> GeAffineMatrix3<T>::operator*(GeAffineMatrix3 const& o) const noexcept {
    GeAffineMatrix3 r;
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 4; ++j)
            r._m[i][j] = _m[i][0] * o._m[0][j] + _m[i][1] * o._m[1][j] + _m[i][2] * o._m[2][j];
        r._m[i][3] += _m[i][3];
    }
    return r;
}

template <class T>
GeAffineMatrix3<T>& GeAffineMatrix3<T>::mulOnRight(GeAffineMatrix3 const& o) noexcept {
    return *this = *this * o;
}

template <class T>
GeAffineMatrix3<T>& GeAffineMatrix3<T>::mulOnLeft(GeAffineMatrix3 const& o) noexcept {
    return *this = o * *this;
}

template <class T>
GeVector3<T> GeAffineMatrix3<T>::transformPoint(GeVector3<T> const& p) const noexcept {
    GeVector3<T> r;
    T* out[3] = {&r.x, &r.y, &r.z};
    for (int i = 0; i < 3; ++i)
        *out[i] = _m[i][0] * p.x + _m[i][1] * p.y + _m[i][2] * p.z + _m[i][3];
    return r;
}

template <class T>
T GeAffineMatrix3<T>::getDeterminant() const noexcept {
    return _m[0][0] * (_m[1][1] * _m[2][2] - _m[1][2] * _m[2][1]) -
           _m[0][1] * (_m[1][0] * _m[2][2] - _m[1][2] * _m[2][0]) +
           _m[0][2] * (_m[1][0] * _m[2][1] - _m[1][1] * _m[2][0]);
}

template <class T>
GeAffineMatrix3<T> GeAffineMatrix3<T>::getInverse() const {
    T const det = getDeterminant();
    if (det == T(0) || !std::isfinite(det))
        throwSingular();
    T const inv = T(1) / det;
    GeAffineMatrix3 r;
    // The adjugate: transposed cofactors.
    r._m[0][0] = (_m[1][1] * _m[2][2] - _m[1][2] * _m[2][1]) * inv;
    r._m[0][1] = (_m[0][2] * _m[2][1] - _m[0][1] * _m[2][2]) * inv;
    r._m[0][2] = (_m[0][1] * _m[1][2] - _m[0][2] * _m[1][1]) * inv;
    r._m[1][0] = (_m[1][2] * _m[2][0] - _m[1][0] * _m[2][2]) * inv;
    r._m[1][1] = (_m[0][0] * _m[2][2] - _m[0][2] * _m[2][0]) * inv;
    r._m[1][2] = (_m[0][2] * _m[1][0] - _m[0][0] * _m[1][2]) * inv;
    r._m[2][0] = (_m[1][0] * _m[2][1] - _m[1][1] * _m[2][0]) * inv;
    r._m[2][1] = (_m[0][1] * _m[2][0] - _m[0][0] * _m[2][1]) * inv;
    r._m[2][2] = (_m[0][0] * _m[1][1] - _m[0][1] * _m[1][0]) * inv;
    for (int i = 0; i < 3; ++i)
        r._m[i][3] = -(r._m[i][0] * _m[0][3] + r._m[i][1] * _m[1][3] + r._m[i][2] * _m[2][3]);
    return r;
}

template <class T>
bool GeAffineMatrix3<T>::isIdentity() const noexcept {
    return *this == GeAffineMatrix3();
}

template <class T>
bool GeAffineMatrix3<T>::operator==(GeAffineMatrix3 const& o) const noexcept {
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            if (!(_m[i][j] == o._m[i][j]))
                return false;
    return true;
}

// ---- operators ----

template <class T>
GeAffineMatrix2<T> GeScale2<T>::operator*(GeAffineMatrix2<T> const& m) const noexcept {
    return GeAffineMatrix2<T>(x, T(0), T(0), y, T(0), T(0)) * m;
}

template <class T>
void GeScale2<T>::mulOnRightAssign(GeAffineMatrix2<T>& m) const noexcept {
    m.mulOnRight(GeAffineMatrix2<T>(x, T(0), T(0), y, T(0), T(0)));
}

template <class T>
GeAffineMatrix3<T> GeScale3<T>::operator*(GeAffineMatrix3<T> const& m) const noexcept {
    return GeAffineMatrix3<T>(x, T(0), T(0), T(0), y, T(0), T(0), T(0), z, T(0), T(0), T(0)) * m;
}

template <class T>
void GeScale3<T>::mulOnRightAssign(GeAffineMatrix3<T>& m) const noexcept {
    m.mulOnRight(GeAffineMatrix3<T>(x, T(0), T(0), T(0), y, T(0), T(0), T(0), z, T(0), T(0), T(0)));
}

template <class T>
GeAffineMatrix2<T> GeTranslation2<T>::operator*(GeAffineMatrix2<T> const& m) const noexcept {
    return GeAffineMatrix2<T>(T(1), T(0), T(0), T(1), x, y) * m;
}

template <class T>
void GeTranslation2<T>::mulOnRightAssign(GeAffineMatrix2<T>& m) const noexcept {
    m.mulOnRight(GeAffineMatrix2<T>(T(1), T(0), T(0), T(1), x, y));
}

template <class T>
GeAffineMatrix3<T> GeTranslation3<T>::operator*(GeAffineMatrix3<T> const& m) const noexcept {
    return GeAffineMatrix3<T>(T(1), T(0), T(0), T(0), T(1), T(0), T(0), T(0), T(1), x, y, z) * m;
}

template <class T>
void GeTranslation3<T>::mulOnRightAssign(GeAffineMatrix3<T>& m) const noexcept {
    m.mulOnRight(GeAffineMatrix3<T>(T(1), T(0), T(0), T(0), T(1), T(0), T(0), T(0), T(1), x, y, z));
}

template <class T>
GeAffineMatrix2<T> GeRotation2<T>::getMatrix() const noexcept {
    T const c = std::cos(angle);
    T const s = std::sin(angle);
    return GeAffineMatrix2<T>(c, -s, s, c, T(0), T(0));
}

template <class T>
void GeRotation2<T>::rotate(GeAffineMatrix2<T>& m) const noexcept {
    m.mulOnLeft(getMatrix());
}

template <class T>
GeQuaternion3<T>& GeQuaternion3<T>::setEuler(int convention, T ax, T ay, T az) {
    VN_ASSERT(convention == EULER_XYZ);
    T const h = T(0.5);
    GeQuaternion3 const qx(std::sin(ax * h), T(0), T(0), std::cos(ax * h));
    GeQuaternion3 const qy(T(0), std::sin(ay * h), T(0), std::cos(ay * h));
    GeQuaternion3 const qz(T(0), T(0), std::sin(az * h), std::cos(az * h));
    return *this = qz * (qy * qx);
}

template <class T>
GeQuaternion3<T> GeQuaternion3<T>::operator*(GeQuaternion3 const& o) const noexcept {
    return GeQuaternion3(_w * o._x + _x * o._w + _y * o._z - _z * o._y,
                         _w * o._y - _x * o._z + _y * o._w + _z * o._x,
                         _w * o._z + _x * o._y - _y * o._x + _z * o._w,
                         _w * o._w - _x * o._x - _y * o._y - _z * o._z);
}

template <class T>
GeAffineMatrix3<T> GeQuaternion3<T>::getMatrix() const noexcept {
    T const xx = _x * _x, yy = _y * _y, zz = _z * _z;
    T const xy = _x * _y, xz = _x * _z, yz = _y * _z;
    T const wx = _w * _x, wy = _w * _y, wz = _w * _z;
    return GeAffineMatrix3<T>(T(1) - T(2) * (yy + zz), T(2) * (xy - wz), T(2) * (xz + wy),
                              T(2) * (xy + wz), T(1) - T(2) * (xx + zz), T(2) * (yz - wx),
                              T(2) * (xz - wy), T(2) * (yz + wx), T(1) - T(2) * (xx + yy), T(0),
                              T(0), T(0));
}

#define VN_GE_AFFINE(T)                                                                            \
    template class GeAffineMatrix2<T>;                                                             \
    template class GeAffineMatrix3<T>;                                                             \
    template struct GeScale2<T>;                                                                   \
    template struct GeScale3<T>;                                                                   \
    template struct GeTranslation2<T>;                                                             \
    template struct GeTranslation3<T>;                                                             \
    template struct GeRotation2<T>;                                                                \
    template class GeQuaternion3<T>;

VN_GE_AFFINE(float)
VN_GE_AFFINE(double)

} // namespace Vn
