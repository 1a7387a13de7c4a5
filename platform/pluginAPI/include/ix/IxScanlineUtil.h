#pragma once

#include "CoRgbaColor.h"
#include "IxScanline.h"
#include "VnExport.h"

namespace Vn {

// Copies between lines, over the destination's span, which the source must cover.
class VN_EXPORT IxScanlineUtil {
public:
    // dst = channel c (0 red to 3 alpha) of src.
    static void extractChannel(IxScanline<float>& dst,
                               IxScanline<CoRgbaColorTyped<float>> const& src, int channel);
    static void copy(IxScanline<float>& dst, IxScanline<float> const& src);
    static void copy(IxScanline<CoRgbaColorTyped<float>>& dst,
                     IxScanline<CoRgbaColorTyped<float>> const& src);
    // The alpha of dst becomes alpha's.
    static void replaceAlpha(IxScanline<CoRgbaColorTyped<float>>& dst,
                             IxScanline<float> const& alpha);
};

} // namespace Vn
