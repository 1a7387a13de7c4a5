#pragma once

#include "VnExport.h"

namespace Vn {

// A vector of two doubles.
template <class T>
struct VN_EXPORT GeVector2 {
    T x{};
    T y{};
    bool operator==(GeVector2 const&) const = default;
};

// A vector of three doubles.
template <class T>
struct VN_EXPORT GeVector3 {
    T x{};
    T y{};
    T z{};
    bool operator==(GeVector3 const&) const = default;
};

} // namespace Vn
