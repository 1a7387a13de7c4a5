#pragma once

#include "VnExport.h"

namespace Vn {

// A colour with straight components in the order red, green, blue, alpha.
template <class T>
struct VN_EXPORT CoRgbaColorTyped {
    T r{};
    T g{};
    T b{};
    T a{};
    bool operator==(CoRgbaColorTyped const&) const = default;
};

} // namespace Vn

namespace Vn {

// A colour without alpha, in the order red, green, blue.
template <class T>
struct VN_EXPORT CoRgbColorTyped {
    T r{};
    T g{};
    T b{};
    bool operator==(CoRgbColorTyped const&) const = default;
};

} // namespace Vn
