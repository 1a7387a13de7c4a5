#pragma once

#include "CoRgbaColor.h"
#include "VnExport.h"

#include <bit>
#include <cmath>
#include <cstdint>

namespace Vn {

// Reciprocals and reciprocal square roots as a 12-bit estimate refined by one Newton step, the
// way vector units compute them, but with an estimate that is the same on every processor: the
// correctly rounded value with its mantissa cut to 12 bits. Results are thus reproducible bit for
// bit. 0 gives infinity, infinity gives 0, NaN stays NaN, as the hardware estimates do.
class VN_EXPORT IpFastMath {
public:
    static float rcpEstimate(float d) noexcept { return cut(1.0f / d); }
    static float rsqrtEstimate(float v) noexcept { return cut(1.0f / std::sqrt(v)); }

    // e <- 2e - d e e.
    static float rcp(float d) noexcept {
        float const e = rcpEstimate(d);
        return 2.0f * e - d * e * e;
    }
    // e <- 0.5 e (3 - v e e).
    static float rsqrt(float v) noexcept {
        float const e = rsqrtEstimate(v);
        return 0.5f * e * (3.0f - v * e * e);
    }

    // 0 for infinities and NaN.
    static float finiteOrZero(float v) noexcept { return std::isfinite(v) ? v : 0.0f; }
    // v when |v| >= 1e-8, else 0: the divisor rule of alpha.
    static float divisor(float v) noexcept { return std::fabs(v) >= 1e-8f ? v : 0.0f; }

    // A premultiplied colour made straight: rgb divided by alpha, alpha by the Newton-refined
    // reciprocal of 1; what comes out non-finite becomes 0.
    static CoRgbaColorTyped<float> unpremultiply(CoRgbaColorTyped<float> const& c) noexcept {
        return divide(c, c.a, 1.0f);
    }
    // rgb by rgbDivisor, alpha by alphaDivisor, each under the 1e-8 rule.
    static CoRgbaColorTyped<float> divide(CoRgbaColorTyped<float> const& c, float rgbDivisor,
                                          float alphaDivisor) noexcept {
        float const e = rcp(divisor(rgbDivisor));
        float const ea = rcp(divisor(alphaDivisor));
        return {finiteOrZero(c.r * e), finiteOrZero(c.g * e), finiteOrZero(c.b * e),
                finiteOrZero(c.a * ea)};
    }

private:
    static float cut(float v) noexcept {
        if (!std::isfinite(v))
            return v;
        return std::bit_cast<float>(std::bit_cast<std::uint32_t>(v) & 0xFFFFF800u);
    }
};

} // namespace Vn
