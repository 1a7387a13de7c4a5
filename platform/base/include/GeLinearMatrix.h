#pragma once

#include "VnExport.h"

namespace Vn {

// A 2x2 matrix kept by rows: (m[0], m[1]) is the first row, (m[2], m[3]) the second.
template <class T>
struct VN_EXPORT GeLinearMatrix2 {
    T m[4] = {T(1), T(0), T(0), T(1)};

    GeLinearMatrix2() noexcept = default;
    GeLinearMatrix2(T m00, T m01, T m10, T m11) noexcept : m{m00, m01, m10, m11} {}

    T operator[](int i) const noexcept { return m[i]; }
    T& operator[](int i) noexcept { return m[i]; }
    T operator()(int row, int col) const noexcept { return m[2 * row + col]; }
    T getDeterminant() const noexcept { return m[0] * m[3] - m[1] * m[2]; }
    bool operator==(GeLinearMatrix2 const&) const noexcept = default;
};

} // namespace Vn
