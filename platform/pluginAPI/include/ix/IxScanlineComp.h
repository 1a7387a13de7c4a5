#pragma once

#include "CoRgbaColor.h"
#include "IxScanline.h"
#include "VnExport.h"

#include <cstdint>

namespace Vn {

// Composites a foreground over a background, row by row, on straight (not premultiplied) float
// RGBA. A pixel's alpha is the part of it the layer covers; the correlation says how the two
// coverages lie against each other inside a pixel, and so how much of it both, one or neither
// cover:
//  - NONE: independently (both = a b), the usual case;
//  - SUPERPOSED: the edges coincide, as two mattes of the same object (both = min(a, b));
//  - ADJACENT: the layers touch without overlapping, as two halves of a split
//    (both = max(a + b - 1, 0)).
// The operation says whose colour shows in each part. The result is then mixed with the
// background by `mix`, scaled where the mask is transparent by `maskAmount`.
class VN_EXPORT IxScanlineComp {
public:
    using Color = CoRgbaColorTyped<float>;

    enum CompOp : std::int32_t {
        OVER = 0,    // both and foreground only: foreground; background only: background
        REPLACE = 1, // the foreground where it covers, nothing elsewhere
        ATOP = 2,    // foreground where both cover, background where only it covers
        INSIDE = 3,  // foreground where both cover
        OUTSIDE = 4, // foreground where only it covers
        CUTOUT = 5,  // background where only it covers
        XOR = 6,     // each where it alone covers
    };
    enum Correlation : std::int32_t { NONE = 0, SUPERPOSED = 1, ADJACENT = 2 };

    // The opacities scale the layers' alphas; mix 1 gives the composite, 0 the background;
    // maskAmount 0 ignores the mask, 1 mixes by the mask's alpha.
    IxScanlineComp(CompOp op, Correlation correlation, float fgOpacity, float bgOpacity, float mix,
                   float maskAmount);

    CompOp getOp() const noexcept { return _op; }
    Correlation getCorrelation() const noexcept { return _correlation; }

    // dst over its span, from the lines, which cover it.
    void compose(IxScanline<Color>& dst, IxScanline<Color> const& fg, IxScanline<Color> const& bg,
                 IxScanline<Color> const& mask) const;
    Color composeColor(Color const& fg, Color const& bg, Color const& mask) const;
    // The alpha of the composite alone, from the layers' alphas, mask ignored.
    void composeAlpha(float* dst, float const* fg, float const* bg, int n) const;

private:
    // The parts of the result's coverage that show the foreground and the background.
    void parts(float a, float b, float& fromFg, float& fromBg) const noexcept;
    Color pixel(Color const& fg, Color const& bg, float maskAlpha) const noexcept;

    CompOp _op;
    Correlation _correlation;
    float _fgOpacity;
    float _bgOpacity;
    float _mix;
    float _maskAmount;
};

} // namespace Vn
