#pragma once

#include "GeRectangle.h"
#include "IxGuardBase.h"
#include "IxScanlineTypes.h"
#include "OPtr.h"
#include "PxImageProtocol.h"
#include "PxTimeContext.h"
#include "PxValidityInterval.h"
#include "Vector.h"
#include "VnExport.h"

namespace Vn {

class IxGuardProxy;

// Where a texture sampler takes its pixels: the tiles of one image, reached by the pixels they
// hold. One thread per fetcher.
class VN_EXPORT PxImageFetcherBase {
public:
    virtual ~PxImageFetcherBase();
    // The image's pixels.
    virtual GeRectangle<int> getImageRegion() const = 0;
    // A guard on the tile holding pixel (x, y) of the region, valid until the next release.
    virtual IxReadGuard const& getGuard(int x, int y) const = 0;
    // Asks for the tiles meeting region ahead of reading, so that they are made together.
    virtual void prefetch(GeRectangle<int> const& region) const;
    // Lets the tiles go; later reads fetch them again.
    virtual void releaseTiles() const = 0;
    // Lets the guards go but keeps the tiles, whose memory may then be paged out.
    virtual void releaseGuard() const = 0;
    // The proxy is told to let its guards go whenever this fetcher lets its own go. It must
    // outlive the fetcher or its release.
    virtual void registerGuardProxy(IxGuardProxy const& proxy) const = 0;
    // Narrows vi by the validity of everything read.
    virtual void reduceVI(PxValidityInterval& vi) const = 0;

protected:
    PxImageFetcherBase() noexcept = default;
    // The registered proxies, told to let go.
    void releaseProxies() const;
    void addProxy(IxGuardProxy const& proxy) const { _proxies.push_back(&proxy); }

private:
    mutable Vector<IxGuardProxy const*> _proxies;
};

// The tiles of an image node at one time and scale, stream 0, computed inline on the calling
// thread on first use and kept until released. A tile holding less than its part of the image
// reads as its fill colour over the rest.
class VN_EXPORT PxImageFetcher : public PxImageFetcherBase {
public:
    PxImageFetcher(PxNodePtr<PxImageProtocol const> const& node, PxTimeScaleContext const& context);
    ~PxImageFetcher() override;

    GeRectangle<int> getImageRegion() const override { return _region; }
    IxReadGuard const& getGuard(int x, int y) const override;
    void prefetch(GeRectangle<int> const& region) const override;
    void releaseTiles() const override;
    void releaseGuard() const override;
    void registerGuardProxy(IxGuardProxy const& proxy) const override { addProxy(proxy); }
    void reduceVI(PxValidityInterval& vi) const override { vi &= _vi; }

private:
    struct Entry;
    Entry& fetch(int tx, int ty) const;
    // The node's tile for tile (tx, ty), or when it holds less than its part of the region, a
    // tile of that whole part: its pixels, and its fill colour elsewhere.
    IxTile coverPart(IxTile const& tile, int tx, int ty) const;

    PxNodePtr<PxImageProtocol const> _node;
    PxTimeScaleContext _context;
    GeRectangle<int> _region;
    // The tile indices of the region; entries are mapped from them directly.
    GeRectangle<int> _tiles;
    mutable Vector<Entry> _entries;
    mutable PxValidityInterval _vi;
};

// A fetcher over a tile fetcher of the scanline code.
class VN_EXPORT PxImageFetcherAdapter : public PxImageFetcherBase {
public:
    explicit PxImageFetcherAdapter(OPtr<IxScanlineTypes::TileFetcher> fetcher);
    ~PxImageFetcherAdapter() override;

    GeRectangle<int> getImageRegion() const override { return _region; }
    IxReadGuard const& getGuard(int x, int y) const override { return _fetcher->getTile(x, y); }
    void releaseTiles() const override;
    void releaseGuard() const override;
    void registerGuardProxy(IxGuardProxy const& proxy) const override { addProxy(proxy); }
    void reduceVI(PxValidityInterval& vi) const override { _fetcher->reduceVI(vi); }

private:
    OPtr<IxScanlineTypes::TileFetcher> _fetcher;
    GeRectangle<int> _region;
};

} // namespace Vn
