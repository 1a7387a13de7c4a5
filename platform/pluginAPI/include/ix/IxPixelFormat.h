#pragma once

#include "Rational.h"
#include "VnExport.h"

#include <cstdint>

namespace Vn {

// The format of a tile's pixels: components, bits per component, and the pixel's aspect ratio.
// A pixel takes comps * depth / 8 bytes; a COMPLEX component is a pair of floats.
class VN_EXPORT IxPixelFormat {
public:
    enum Comps : std::int32_t { ALPHA = 1, RGB = 3, RGBA = 4 };
    enum Depth : std::int32_t { UINT8 = 8, FLOAT16 = 16, FLOAT32 = 32, COMPLEX = 64 };

    // The format of a tile without memory: no components, no depth, aspect 0.
    static IxPixelFormat const INVALID_FORMAT;

    IxPixelFormat() noexcept = default;
    // Components other than ALPHA, RGB or RGBA, a depth other than the four, or an aspect not
    // above 0 is an assertion failure.
    IxPixelFormat(int comps, int depth, Rational const& aspect = Rational(1));

    Comps getComps() const noexcept { return _comps; }
    Depth getDepth() const noexcept { return _depth; }
    Rational const& getAspectRatio() const noexcept { return _aspect; }
    int getPixelSize() const noexcept { return _comps * (_depth / 8); }
    bool isValid() const noexcept { return _comps != 0; }
    bool operator==(IxPixelFormat const&) const noexcept = default;

private:
    Comps _comps = Comps(0);
    Depth _depth = Depth(0);
    Rational _aspect;
};

} // namespace Vn
