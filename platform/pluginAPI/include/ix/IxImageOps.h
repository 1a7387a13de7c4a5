#pragma once

#include "CoRgbaColor.h"
#include "GeRectangle.h"
#include "IpCopy.h"
#include "IpFilters.h"
#include "Vector.h"
#include "VnExport.h"

#include <cstdint>
#include <utility>

namespace Vn {

class IxGuardBase;
class IxPixelFormat;
class IxReadGuard;
class IxWriteGuard;

// The pixels a guard holds, for the operations of the primitives library.
VN_EXPORT IpPixels ipPixelsOf(IxGuardBase const& guard);
// The bytes a guard's pixels span, [first, last), or {0, 0} when it holds none: two guards
// whose spans meet may share memory.
VN_EXPORT std::pair<std::uintptr_t, std::uintptr_t> ipByteSpan(IxGuardBase const& guard);
// True when the guard holds the pixels of region, not empty, in format's components and depth:
// they can then be read or written in place.
VN_EXPORT bool ipHoldsPixels(IxGuardBase const& guard, IxPixelFormat const& format,
                             GeRectangle<int> const& region);

// The pixel operations of the primitives library over tiles.

// Copies the pixels of region that both tiles hold, at the same absolute coordinates,
// converting between formats.
VN_EXPORT void ipCopy(IxWriteGuard const& dst, IxReadGuard const& src,
                      GeRectangle<int> const& region);
// Copies the pixels of srcRegion into dst moved by (dx, dy); only what both tiles hold.
VN_EXPORT void ipCopy(IxWriteGuard const& dst, IxReadGuard const& src,
                      GeRectangle<int> const& srcRegion, int dx, int dy);
// Sets the pixels of region that dst holds to color, converted to dst's format.
VN_EXPORT void ipSet(IxWriteGuard const& dst, GeRectangle<int> const& region,
                     CoRgbaColorTyped<float> const& color);

// Converts the pixels of region (the whole source region when null) that both tiles hold into
// the destination's components and depth.
VN_EXPORT void ipFormatChange(IxWriteGuard const& dst, IxReadGuard const& src,
                              GeRectangle<int> const* region);
// Resamples the sources in x from their pixel aspect ratio to the destination's, for the
// destination pixels of region; rows are carried over. Where the filter reaches beyond the
// sources it reads the first source's fill colour. Weights are normalized, so a constant image
// stays constant. Raises PxEx::ExRequestCancelled between rows once the running request is
// cancelled.
VN_EXPORT void ipAspectChange(IxWriteGuard const& dst, Vector<IxReadGuard> const& srcs,
                              IpFilters::Filter const& filter, GeRectangle<int> const& region);

} // namespace Vn
