#include "ImageProtocolServices.h"
#include "Assertions.h"
#include "IxImageOps.h"

namespace Vn {

IxReadGuard ImageProtocolServices::extendGuard(IxReadGuard const& source,
                                               GeRectangle<int> const& region) const {
    IxTile const& tile = source.getTile();
    VN_ASSERT(tile.isValid());
    GeRectangle<int> const r = tile.getPixelRegion();
    if (r.intersect(region) == region)
        return source;
    IxTile const out(tile.getPixelFormat(), region, tile.getFillColor());
    {
        IxWriteGuard const dst(out);
        CoRgbaColorTyped<float> const& fill = tile.getFillColor();
        if (r.isEmpty()) {
            ipSet(dst, region, fill);
        } else {
            ipCopy(dst, source, r);
            ipSet(dst, {region.xmin, region.xmax, region.ymin, r.ymin}, fill);
            ipSet(dst, {region.xmin, r.xmin, r.ymin, r.ymax}, fill);
            ipSet(dst, {r.xmax, region.xmax, r.ymin, r.ymax}, fill);
            ipSet(dst, {region.xmin, region.xmax, r.ymax, region.ymax}, fill);
        }
    }
    return IxReadGuard(out);
}

IxTile ImageProtocolServices::allocateTile(PxImageContext const& context,
                                           IxPixelFormat const& format,
                                           CoRgbaColorTyped<float> const& fill,
                                           GeRectangle<int> const& region) const {
    if (context.isOutside())
        return IxTile(format, {}, fill);
    GePoint2<int> const& t = context.getTile();
    GeRectangle<int> const pixels =
        PxImageProtocol::convertTilesToPixels({t.x, t.x + 1, t.y, t.y + 1});
    return IxTile(format, pixels.intersect(region), fill);
}

IxTile ImageProtocolServices::assembleTiles(Vector<PxImageResult> const& results,
                                            GeRectangle<int> const& region) const {
    if (results.empty() || region.isEmpty())
        return IxTile::INVALID_TILE;
    Vector<IxTile> tiles;
    tiles.reserve(results.size());
    GeRectangle<int> u;
    for (auto const& r : results) {
        tiles.push_back(r.getTile());
        u = u.unite(tiles.back().getPixelRegion());
    }
    u = u.intersect(region);
    IxTile const& first = tiles.front();
    IxTile const out(first.getPixelFormat(), u, first.getFillColor());
    if (u.isEmpty())
        return out;
    IxWriteGuard const dst(out);
    for (auto const& t : tiles)
        ipCopy(dst, IxReadGuard(t), u);
    return out;
}

} // namespace Vn
