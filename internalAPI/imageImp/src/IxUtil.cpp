#include "IxUtil.h"
#include "Assertions.h"
#include "IxGuardBase.h"
#include "IxMemResourceImp.h"
#include "IxRect.h"
#include "IxTileManip.h"

#include <cstring>

namespace Vn {

namespace {

using TileMemoryBuffer = IxMemResourceImp::TileMemoryBuffer;

// Tiles made from images go through the privileged path.
class Manip : public IxTileManip {
public:
    using IxTileManip::createTile;
    using IxTileManip::getMemory;
};

// One side of a copy: where its region's first pixel lies and how its lines run.
struct Side {
    std::byte* first;
    std::ptrdiff_t stride;
    GeRectangle<int> region;
    int comps;
    int depth;
    // Lines start at line starts of the memory and are packed at the tile stride, so the bytes
    // between two lines are padding only.
    bool packed;
};

bool isPacked(GeRectangle<int> const& region, int pixelSize, std::ptrdiff_t stride,
              std::size_t offset) {
    std::size_t const line = static_cast<std::size_t>(region.width()) * pixelSize;
    return stride == static_cast<std::ptrdiff_t>((line + IxTile::MIN_LINE_ALIGN - 1) &
                                                 ~std::size_t(IxTile::MIN_LINE_ALIGN - 1)) &&
           (stride == 0 || offset % stride == 0);
}

void copyPixels(Side const& dst, Side const& src, GeRectangle<int> const* dstRect,
                GeRectangle<int> const* srcRect) {
    IxRect const dstR = dstRect ? *dstRect : dst.region;
    IxRect const srcR = srcRect ? *srcRect : src.region;
    VN_ASSERT(dst.depth == src.depth && dst.comps == src.comps);
    VN_ASSERT(dstR.getWidth() == srcR.getWidth());
    VN_ASSERT(dstR.getHeight() == srcR.getHeight());
    if (dstR.isEmpty())
        return;
    VN_ASSERT(dst.region.contains(dstR) && src.region.contains(srcR));

    std::ptrdiff_t const pixelSize = dst.comps * (dst.depth / 8);
    std::byte* d = dst.first + (dstR.ymin - dst.region.ymin) * dst.stride +
                   (dstR.xmin - dst.region.xmin) * pixelSize;
    std::byte const* s = src.first + (srcR.ymin - src.region.ymin) * src.stride +
                         (srcR.xmin - src.region.xmin) * pixelSize;
    std::size_t const lineBytes = static_cast<std::size_t>(dstR.getWidth()) * pixelSize;
    int const height = dstR.getHeight();
    bool const wholeLines = dstR.xmin == dst.region.xmin && dstR.xmax == dst.region.xmax &&
                            srcR.xmin == src.region.xmin && srcR.xmax == src.region.xmax;
    if (dst.stride == src.stride && wholeLines && dst.packed && src.packed) {
        // The last line stops at its last pixel: the memory may end there.
        std::memcpy(d, s, static_cast<std::size_t>(height - 1) * dst.stride + lineBytes);
        return;
    }
    for (int y = 0; y < height; ++y)
        std::memcpy(d + y * dst.stride, s + y * src.stride, lineBytes);
}

Side sideOf(IxGuardBase const& g, std::byte const* first) {
    IxTile const& t = g.getTile();
    return Side{
        const_cast<std::byte*>(first),
        t.getLineStride(),
        t.getPixelRegion(),
        t.getPixelFormat().getComps(),
        t.getPixelFormat().getDepth(),
        isPacked(t.getPixelRegion(), g.getPixelSize(), t.getLineStride(), t.getByteOffset())};
}

Side sideOf(ImLayout const& l, std::byte const* first) {
    ImPixelFormat const& f = l.getPixelFormat();
    return Side{const_cast<std::byte*>(first),
                l.getLineStride(),
                l.getRegion(),
                f.getComps(),
                f.getDepth(),
                l.getLineAlign() == IxTile::MIN_LINE_ALIGN &&
                    isPacked(l.getRegion(), f.getPixelSize(), l.getLineStride(), l.getOffset())};
}

} // namespace

ImPixelFormat IxUtil::ixToImPixelFormat(IxPixelFormat const& format) {
    int const comps = format.getComps();
    VN_ASSERT(comps >= 1 && comps <= 4);
    return ImPixelFormat(comps, format.getDepth());
}

IxPixelFormat IxUtil::imToIxPixelFormat(ImPixelFormat const& format, Rational const& aspect) {
    int const comps = format.getComps();
    VN_ASSERT(comps >= 1);
    VN_ASSERT(comps <= 4);
    return IxPixelFormat(comps, format.getDepth(), aspect);
}

ImImageConst IxUtil::ixTileToImImageConst(IxTile const& tile) {
    auto const* buffer = dynamic_cast<TileMemoryBuffer const*>(Manip::getMemory(tile).get());
    VN_ASSERT(buffer != nullptr);
    ImLayout const layout(ixToImPixelFormat(tile.getPixelFormat()), tile.getPixelRegion(),
                          IxTile::MIN_LINE_ALIGN, tile.getLineStride(), tile.getByteOffset());
    return ImImageConst(layout, ImMemoryBuffer(buffer->getBuffer()));
}

IxTile IxUtil::imImageConstToIxTile(ImImageConst const& image, Rational const& aspect,
                                    CoRgbaColorTyped<float> const& fillColor) {
    VN_ASSERT(image.getLayout().getLineAlign() == IxTile::MIN_LINE_ALIGN);
    ImLayout const& layout = image.getLayout();
    RCShdPtr<IxMemory> memory(new TileMemoryBuffer(image.getBuffer()));
    return Manip::createTile(imToIxPixelFormat(layout.getPixelFormat(), aspect), layout.getRegion(),
                             std::move(memory), fillColor, layout.getLineStride(),
                             static_cast<std::uint32_t>(layout.getOffset()));
}

void IxUtil::ixToImCopy(ImWriteGuard const& dst, IxReadGuard const& src,
                        GeRectangle<int> const* dstRect, GeRectangle<int> const* srcRect) {
    copyPixels(sideOf(dst.getLayout(), dst.getFirst()),
               sideOf(src, src.getAddress(src.getPixelRegion().xmin, src.getPixelRegion().ymin)),
               dstRect, srcRect);
}

void IxUtil::imToIxCopy(IxWriteGuard const& dst, ImReadGuard const& src,
                        GeRectangle<int> const* dstRect, GeRectangle<int> const* srcRect) {
    copyPixels(sideOf(dst, dst.getAddress(dst.getPixelRegion().xmin, dst.getPixelRegion().ymin)),
               sideOf(src.getLayout(), src.getFirst()), dstRect, srcRect);
}

} // namespace Vn
