#pragma once

#include "CoRgbaColor.h"
#include "VnExport.h"

namespace Vn {

class IxReadGuard;

// Single pixels of tiles, for checks and slow paths.
class VN_EXPORT IxPixelUtil {
public:
    // Pixel (x, y) of the guard's tile as float RGBA, converted as the scanline code converts;
    // the pixel must lie in the tile's region.
    static CoRgbaColorTyped<float> getPixelColor(IxReadGuard const& guard, int x, int y);
};

} // namespace Vn
