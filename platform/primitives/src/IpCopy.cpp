#include "IpCopy.h"
#include "Assertions.h"
#include "ImImageConst.h"
#include "IxConvertUtil.h"

#include <algorithm>
#include <cstring>

namespace Vn {

namespace {
constexpr int kChunk = 256;

IpPixels pixelsOf(ImLayout const& layout, std::byte const* first) {
    return {const_cast<std::byte*>(first), layout.getLineStride(), layout.getPixelFormat(),
            layout.getRegion()};
}
} // namespace

void ipCopy(ImWriteGuard const& dst, ImReadGuard const& src, GeRectangle<int> const& region) {
    ipCopy(pixelsOf(dst.getLayout(), dst.getFirst()), pixelsOf(src.getLayout(), src.getFirst()),
           region);
}

void ipSet(ImWriteGuard const& dst, GeRectangle<int> const& region,
           CoRgbaColorTyped<float> const& color) {
    ipSet(pixelsOf(dst.getLayout(), dst.getFirst()), region, color);
}

void ipCopy(IpPixels const& dst, IpPixels const& src, GeRectangle<int> const& region) {
    GeRectangle<int> const r = region.intersect(dst.region).intersect(src.region);
    if (r.isEmpty())
        return;
    ImPixelFormat const& df = dst.format;
    ImPixelFormat const& sf = src.format;
    if (df == sf) {
        std::size_t const bytes = static_cast<std::size_t>(r.width()) * df.getPixelSize();
        for (int y = r.ymin; y < r.ymax; ++y)
            std::memcpy(dst.address(r.xmin, y), src.address(r.xmin, y), bytes);
        return;
    }
    CoRgbaColorTyped<float> line[kChunk];
    for (int y = r.ymin; y < r.ymax; ++y) {
        for (int x = r.xmin; x < r.xmax; x += kChunk) {
            int const n = std::min(kChunk, r.xmax - x);
            IxConvertUtil::readFrom(line, src.address(x, y), n, sf);
            IxConvertUtil::writeTo(dst.address(x, y), line, n, df);
        }
    }
}

void ipSet(IpPixels const& dst, GeRectangle<int> const& region,
           CoRgbaColorTyped<float> const& color) {
    GeRectangle<int> const r = region.intersect(dst.region);
    if (r.isEmpty())
        return;
    ImPixelFormat const& f = dst.format;
    std::size_t const ps = f.getPixelSize();
    std::size_t const bytes = static_cast<std::size_t>(r.width()) * ps;
    // The first line is built by doubling one converted pixel; the others copy it.
    std::byte* first = dst.address(r.xmin, r.ymin);
    IxConvertUtil::writeTo(first, &color, 1, f);
    for (std::size_t done = ps; done < bytes;) {
        std::size_t const n = std::min(done, bytes - done);
        std::memcpy(first + done, first, n);
        done += n;
    }
    for (int y = r.ymin + 1; y < r.ymax; ++y)
        std::memcpy(dst.address(r.xmin, y), first, bytes);
}

} // namespace Vn
