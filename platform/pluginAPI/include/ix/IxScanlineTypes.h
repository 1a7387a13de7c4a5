#pragma once

#include "GeRectangle.h"
#include "IxGuardBase.h"
#include "IxTile.h"
#include "Vector.h"
#include "VnExport.h"

namespace Vn {

class PxValidityInterval;

// Types shared by the scanline code: fetchers of tiles.
class VN_EXPORT IxScanlineTypes {
public:
    // Hands out the tiles of an image by the pixels they hold. One thread per fetcher.
    class VN_EXPORT TileFetcher {
    public:
        virtual ~TileFetcher();
        // The image's pixels; tiles cover all of it.
        virtual GeRectangle<int> getRegion() const = 0;
        // A guard on the tile holding pixel (x, y), which lies in the region. Valid until the
        // next releaseTiles().
        virtual IxReadGuard const& getTile(int x, int y) const = 0;
        virtual void releaseTiles() const {}
        // Narrows vi by what has been read.
        virtual void reduceVI(PxValidityInterval& vi) const;
    };

    // A fetcher over tiles in memory, which must not overlap; their union's bounding box is
    // the region, and holes in it are an assertion failure when read.
    class VN_EXPORT TileListFetcher : public TileFetcher {
    public:
        explicit TileListFetcher(Vector<IxTile> const& tiles);
        GeRectangle<int> getRegion() const override { return _region; }
        IxReadGuard const& getTile(int x, int y) const override;

    private:
        Vector<IxReadGuard> _guards;
        GeRectangle<int> _region;
        mutable std::size_t _last = 0;
    };
};

} // namespace Vn
