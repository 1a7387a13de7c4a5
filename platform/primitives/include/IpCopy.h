#pragma once

#include "CoRgbaColor.h"
#include "GeRectangle.h"
#include "ImPixelFormat.h"
#include "VnExport.h"

#include <cstddef>

namespace Vn {

class ImReadGuard;
class ImWriteGuard;

// Pixels held somewhere for the duration of an operation: the address of the region's first
// pixel, the line stride and the format. Coordinates are absolute.
struct VN_EXPORT IpPixels {
    std::byte* first = nullptr;
    std::ptrdiff_t stride = 0;
    ImPixelFormat format;
    GeRectangle<int> region;

    std::byte* address(int x, int y) const noexcept {
        return first + static_cast<std::ptrdiff_t>(y - region.ymin) * stride +
               static_cast<std::ptrdiff_t>(x - region.xmin) * format.getPixelSize();
    }
};

// Copies the pixels of region that both sides hold, at the same absolute coordinates. Formats
// may differ: pixels then go through float RGBA.
VN_EXPORT void ipCopy(IpPixels const& dst, IpPixels const& src, GeRectangle<int> const& region);
VN_EXPORT void ipCopy(ImWriteGuard const& dst, ImReadGuard const& src,
                      GeRectangle<int> const& region);

// Sets the pixels of region that dst holds to color, converted to dst's format.
VN_EXPORT void ipSet(IpPixels const& dst, GeRectangle<int> const& region,
                     CoRgbaColorTyped<float> const& color);
VN_EXPORT void ipSet(ImWriteGuard const& dst, GeRectangle<int> const& region,
                     CoRgbaColorTyped<float> const& color);

} // namespace Vn
