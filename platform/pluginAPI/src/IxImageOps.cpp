#include "IxImageOps.h"
#include "IpCopy.h"
#include "IxGuardBase.h"

namespace Vn {

namespace {
IpPixels pixelsOf(IxGuardBase const& guard, std::byte const* first, int dx = 0, int dy = 0) {
    IxPixelFormat const& f = guard.getPixelFormat();
    return {const_cast<std::byte*>(first), guard.getLineStride(),
            ImPixelFormat(f.getComps(), f.getDepth()), guard.getPixelRegion().translated(dx, dy)};
}

} // namespace

IpPixels ipPixelsOf(IxGuardBase const& guard) {
    return pixelsOf(guard, guard.getFirst());
}

void ipCopy(IxWriteGuard const& dst, IxReadGuard const& src, GeRectangle<int> const& region) {
    ipCopy(pixelsOf(dst, dst.getFirst()), pixelsOf(src, src.getFirst()), region);
}

void ipCopy(IxWriteGuard const& dst, IxReadGuard const& src, GeRectangle<int> const& srcRegion,
            int dx, int dy) {
    // The source seen at its destination place: same memory, region moved.
    ipCopy(pixelsOf(dst, dst.getFirst()), pixelsOf(src, src.getFirst(), dx, dy),
           srcRegion.translated(dx, dy));
}

void ipSet(IxWriteGuard const& dst, GeRectangle<int> const& region,
           CoRgbaColorTyped<float> const& color) {
    ipSet(pixelsOf(dst, dst.getFirst()), region, color);
}

} // namespace Vn
