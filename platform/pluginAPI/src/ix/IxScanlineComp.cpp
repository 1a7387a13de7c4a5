#include "IxScanlineComp.h"

#include "Assertions.h"

#include <algorithm>

namespace Vn {

namespace {
float unit(float v) {
    return v > 0.0f ? (v < 1.0f ? v : 1.0f) : 0.0f;
}
} // namespace

IxScanlineComp::IxScanlineComp(CompOp op, Correlation correlation, float fgOpacity, float bgOpacity,
                               float mix, float maskAmount)
    : _op(op), _correlation(correlation), _fgOpacity(fgOpacity), _bgOpacity(bgOpacity), _mix(mix),
      _maskAmount(maskAmount) {
    VN_ASSERT(OVER <= op && op <= XOR);
    VN_ASSERT(NONE <= correlation && correlation <= ADJACENT);
}

void IxScanlineComp::parts(float a, float b, float& fromFg, float& fromBg) const noexcept {
    float both;
    float aOnly;
    float bOnly;
    switch (_correlation) {
    case SUPERPOSED:
        both = std::min(a, b);
        aOnly = a - both;
        bOnly = b - both;
        break;
    case ADJACENT:
        both = std::max(a + b - 1.0f, 0.0f);
        aOnly = a - both;
        bOnly = b - both;
        break;
    default:
        both = a * b;
        aOnly = a - both;
        bOnly = b - both;
        break;
    }
    switch (_op) {
    case OVER:
        fromFg = both + aOnly;
        fromBg = bOnly;
        break;
    case REPLACE:
        fromFg = both + aOnly;
        fromBg = 0.0f;
        break;
    case ATOP:
        fromFg = both;
        fromBg = bOnly;
        break;
    case INSIDE:
        fromFg = both;
        fromBg = 0.0f;
        break;
    case OUTSIDE:
        fromFg = aOnly;
        fromBg = 0.0f;
        break;
    case CUTOUT:
        fromFg = 0.0f;
        fromBg = bOnly;
        break;
    default:
        fromFg = aOnly;
        fromBg = bOnly;
        break;
    }
}

IxScanlineComp::Color IxScanlineComp::pixel(Color const& fg, Color const& bg,
                                            float maskAlpha) const noexcept {
    float fromFg;
    float fromBg;
    parts(unit(fg.a * _fgOpacity), unit(bg.a * _bgOpacity), fromFg, fromBg);
    float const a = fromFg + fromBg;
    Color c{0.0f, 0.0f, 0.0f, a};
    if (a > 0.0f) {
        float const f = fromFg / a;
        float const g = fromBg / a;
        c.r = f * fg.r + g * bg.r;
        c.g = f * fg.g + g * bg.g;
        c.b = f * fg.b + g * bg.b;
    }
    float const m = _mix * (1.0f - _maskAmount + _maskAmount * maskAlpha);
    if (m == 1.0f)
        return c;
    return {bg.r + (c.r - bg.r) * m, bg.g + (c.g - bg.g) * m, bg.b + (c.b - bg.b) * m,
            bg.a + (c.a - bg.a) * m};
}

void IxScanlineComp::compose(IxScanline<Color>& dst, IxScanline<Color> const& fg,
                             IxScanline<Color> const& bg, IxScanline<Color> const& mask) const {
    int const x0 = dst.getX0();
    int const x1 = dst.getX1();
    if (x0 == x1)
        return;
    // clang-format off
    VN_ASSERT(fg.getX0() <= x0 && x1 <= fg.getX1() && bg.getX0() <= x0 && x1 <= bg.getX1() && mask.getX0() <= x0 && x1 <= mask.getX1());
    // clang-format on
    Color* d = dst.getData();
    Color const* f = &fg[x0];
    Color const* b = &bg[x0];
    Color const* k = &mask[x0];
    for (int i = 0; i < x1 - x0; ++i)
        d[i] = pixel(f[i], b[i], k[i].a);
}

IxScanlineComp::Color IxScanlineComp::composeColor(Color const& fg, Color const& bg,
                                                   Color const& mask) const {
    return pixel(fg, bg, mask.a);
}

void IxScanlineComp::composeAlpha(float* dst, float const* fg, float const* bg, int n) const {
    for (int i = 0; i < n; ++i) {
        float fromFg;
        float fromBg;
        float const b = unit(bg[i] * _bgOpacity);
        parts(unit(fg[i] * _fgOpacity), b, fromFg, fromBg);
        dst[i] = bg[i] + (fromFg + fromBg - bg[i]) * _mix;
    }
}

} // namespace Vn
