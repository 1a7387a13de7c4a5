#pragma once

namespace Vn {

// A colour with straight components in the order red, green, blue, alpha.
template <class T>
struct CoRgbaColorTyped {
    T r{};
    T g{};
    T b{};
    T a{};
    bool operator==(CoRgbaColorTyped const&) const = default;
};

} // namespace Vn
