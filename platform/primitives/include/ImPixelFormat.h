#pragma once

#include "VnExport.h"

#include <cstdint>

namespace Vn {

// The format of an image's pixels: 1 to 4 components of one depth. One component is alpha, two
// are grey and alpha, three red, green, blue, four red, green, blue and alpha. A COMPLEX
// component is a pair of floats, real part first.
class VN_EXPORT ImPixelFormat {
public:
    enum Depth : std::int32_t { UINT8 = 8, FLOAT16 = 16, FLOAT32 = 32, COMPLEX = 64 };

    // No format: 0 components.
    constexpr ImPixelFormat() noexcept = default;
    ImPixelFormat(int comps, int depth);

    static constexpr bool isValidDepth(int depth) noexcept {
        return depth == UINT8 || depth == FLOAT16 || depth == FLOAT32 || depth == COMPLEX;
    }

    constexpr int getComps() const noexcept { return _comps; }
    constexpr Depth getDepth() const noexcept { return _depth; }
    constexpr bool isValid() const noexcept { return _comps != 0; }
    constexpr int getComponentSize() const noexcept { return _depth / 8; }
    constexpr int getPixelSize() const noexcept { return _comps * (_depth / 8); }
    constexpr bool operator==(ImPixelFormat const&) const noexcept = default;

private:
    std::int32_t _comps = 0;
    Depth _depth = UINT8;
};

} // namespace Vn
