#pragma once

#include "GeVector.h"
#include "VnExport.h"

namespace Vn {

// Affine transforms of the plane and of space, and the elementary operators that build them.
// Points are columns: in a product A * B, B acts on a point first. Instantiated for float and
// double.

// A 2D affine transform, kept as a 3x3 matrix whose last row stays (0, 0, 1).
template <class T>
class VN_EXPORT GeAffineMatrix2 {
public:
    // The identity.
    GeAffineMatrix2() noexcept;
    // The linear part by rows, then the translation.
    GeAffineMatrix2(T a00, T a01, T a10, T a11, T tx, T ty) noexcept;

    // Rows 0 to 2, columns 0 to 2; column 2 is the translation.
    T operator()(int row, int col) const;
    // Only rows 0 and 1 can be written: the last row is fixed.
    void set(int row, int col, T value);
    // The 9 values, row after row.
    T const* getData() const noexcept { return &_m[0][0]; }
    GeVector2<T> getTranslation() const noexcept { return {_m[0][2], _m[1][2]}; }

    GeAffineMatrix2 operator*(GeAffineMatrix2 const& o) const noexcept;
    // *this = *this * o: o acts first.
    GeAffineMatrix2& mulOnRight(GeAffineMatrix2 const& o) noexcept;
    // *this = o * *this: o acts last.
    GeAffineMatrix2& mulOnLeft(GeAffineMatrix2 const& o) noexcept;

    GeVector2<T> transformPoint(GeVector2<T> const& p) const noexcept;
    T getDeterminant() const noexcept;
    // Raises an ExBase when the linear part is singular.
    GeAffineMatrix2 getInverse() const;
    bool isIdentity() const noexcept;
    // Exact comparison of all values; a NaN makes two matrices unequal.
    bool operator==(GeAffineMatrix2 const& o) const noexcept;

private:
    T _m[3][3];
};

// A 3D affine transform, kept as a 4x4 matrix whose last row stays (0, 0, 0, 1).
template <class T>
class VN_EXPORT GeAffineMatrix3 {
public:
    // The identity.
    GeAffineMatrix3() noexcept;
    // The linear part by rows, then the translation.
    GeAffineMatrix3(T a00, T a01, T a02, T a10, T a11, T a12, T a20, T a21, T a22, T tx, T ty,
                    T tz) noexcept;

    // Rows 0 to 3, columns 0 to 3; column 3 is the translation.
    T operator()(int row, int col) const;
    // Only rows 0 to 2 can be written: the last row is fixed.
    void set(int row, int col, T value);
    // The 16 values, row after row.
    T const* getData() const noexcept { return &_m[0][0]; }
    GeVector3<T> getTranslation() const noexcept { return {_m[0][3], _m[1][3], _m[2][3]}; }

    GeAffineMatrix3 operator*(GeAffineMatrix3 const& o) const noexcept;
    // *this = *this * o: o acts first.
    GeAffineMatrix3& mulOnRight(GeAffineMatrix3 const& o) noexcept;
    // *this = o * *this: o acts last.
    GeAffineMatrix3& mulOnLeft(GeAffineMatrix3 const& o) noexcept;

    GeVector3<T> transformPoint(GeVector3<T> const& p) const noexcept;
    T getDeterminant() const noexcept;
    // Raises an ExBase when the linear part is singular.
    GeAffineMatrix3 getInverse() const;
    bool isIdentity() const noexcept;
    // Exact comparison of all values; a NaN makes two matrices unequal.
    bool operator==(GeAffineMatrix3 const& o) const noexcept;

private:
    T _m[4][4];
};

// Scaling along the axes.
template <class T>
struct VN_EXPORT GeScale2 {
    T x = T(1);
    T y = T(1);
    // The scaling applied after m: S * m.
    GeAffineMatrix2<T> operator*(GeAffineMatrix2<T> const& m) const noexcept;
    // m = m * S: the scaling applied before m.
    void mulOnRightAssign(GeAffineMatrix2<T>& m) const noexcept;
};

// Scale factors along three axes.
template <class T>
struct VN_EXPORT GeScale3 {
    T x = T(1);
    T y = T(1);
    T z = T(1);
    GeAffineMatrix3<T> operator*(GeAffineMatrix3<T> const& m) const noexcept;
    void mulOnRightAssign(GeAffineMatrix3<T>& m) const noexcept;
};

// A move by a vector.
template <class T>
struct VN_EXPORT GeTranslation2 {
    T x{};
    T y{};
    // The move applied after m: T * m.
    GeAffineMatrix2<T> operator*(GeAffineMatrix2<T> const& m) const noexcept;
    // m = m * T: the move applied before m.
    void mulOnRightAssign(GeAffineMatrix2<T>& m) const noexcept;
};

// A move along three axes.
template <class T>
struct VN_EXPORT GeTranslation3 {
    T x{};
    T y{};
    T z{};
    GeAffineMatrix3<T> operator*(GeAffineMatrix3<T> const& m) const noexcept;
    void mulOnRightAssign(GeAffineMatrix3<T>& m) const noexcept;
};

// A turn of the plane, counter-clockwise for a positive angle in radians.
template <class T>
struct VN_EXPORT GeRotation2 {
    T angle{};
    GeAffineMatrix2<T> getMatrix() const noexcept;
    // m = R * m: the turn applied after m.
    void rotate(GeAffineMatrix2<T>& m) const noexcept;
};

// A rotation of space as a unit quaternion (x, y, z, w); the default is the identity.
template <class T>
class VN_EXPORT GeQuaternion3 {
public:
    // The orders in which Euler angles are applied to a point.
    enum EulerConvention : int {
        // About x first, then y, then z: R = Rz * Ry * Rx.
        EULER_XYZ = 0,
    };

    GeQuaternion3() noexcept = default;
    GeQuaternion3(T x, T y, T z, T w) noexcept : _x(x), _y(y), _z(z), _w(w) {}

    // Replaces the rotation by the one the angles (radians) give in that convention; an unknown
    // convention is an assertion.
    GeQuaternion3& setEuler(int convention, T ax, T ay, T az);
    // The product q * o: o acts first.
    GeQuaternion3 operator*(GeQuaternion3 const& o) const noexcept;
    GeAffineMatrix3<T> getMatrix() const noexcept;

    T x() const noexcept { return _x; }
    T y() const noexcept { return _y; }
    T z() const noexcept { return _z; }
    T w() const noexcept { return _w; }

private:
    T _x{};
    T _y{};
    T _z{};
    T _w = T(1);
};

} // namespace Vn
