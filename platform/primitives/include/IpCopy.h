#pragma once

#include "CoRgbaColor.h"
#include "GeRectangle.h"
#include "VnExport.h"

namespace Vn {

class ImReadGuard;
class ImWriteGuard;

// Copies the pixels of region that both images hold, at the same absolute coordinates. Formats
// may differ: pixels then go through float RGBA.
VN_EXPORT void ipCopy(ImWriteGuard const& dst, ImReadGuard const& src,
                      GeRectangle<int> const& region);

// Sets the pixels of region that dst holds to color, converted to dst's format.
VN_EXPORT void ipSet(ImWriteGuard const& dst, GeRectangle<int> const& region,
                     CoRgbaColorTyped<float> const& color);

} // namespace Vn
