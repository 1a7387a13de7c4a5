#include "PxImageFetcher.h"

#include "Assertions.h"
#include "IxConvertUtil.h"
#include "IxGuardProxy.h"
#include "IxImageOps.h"
#include "IxPixelUtil.h"
#include "PxConfig.h"

#include <algorithm>

namespace Vn {

IxGuardProxy::~IxGuardProxy() = default;

IxScanlineTypes::TileFetcher::~TileFetcher() = default;

void IxScanlineTypes::TileFetcher::reduceVI(PxValidityInterval&) const {}

IxScanlineTypes::TileListFetcher::TileListFetcher(Vector<IxTile> const& tiles) {
    _guards.reserve(tiles.size());
    for (IxTile const& t : tiles) {
        if (t.getPixelRegion().isEmpty())
            continue;
        _guards.emplace_back(t);
        _region = _region.unite(t.getPixelRegion());
    }
}

IxReadGuard const& IxScanlineTypes::TileListFetcher::getTile(int x, int y) const {
    auto holds = [x, y](IxReadGuard const& g) {
        GeRectangle<int> const& r = g.getPixelRegion();
        return x >= r.xmin && x < r.xmax && y >= r.ymin && y < r.ymax;
    };
    if (_last < _guards.size() && holds(_guards[_last]))
        return _guards[_last];
    for (std::size_t i = 0; i < _guards.size(); ++i)
        if (holds(_guards[i])) {
            _last = i;
            return _guards[i];
        }
    VN_ASSERT(!"no tile holds the pixel");
    return _guards.front();
}

PxImageFetcherBase::~PxImageFetcherBase() = default;

void PxImageFetcherBase::prefetch(GeRectangle<int> const&) const {}

void PxImageFetcherBase::releaseProxies() const {
    for (IxGuardProxy const* p : _proxies)
        p->releaseGuard();
}

// ---- fetcher over an image node ----

struct PxImageFetcher::Entry {
    PxImageResult result;
    IxTile tile; // the result's, or one holding its whole part of the region
    IxReadGuard guard;
    int tx = 0;
    int ty = 0;
    bool fetched = false;
};

namespace {
// Tile grids larger than this share entries, evicting one another.
constexpr int kMaxEntries = 4096;
} // namespace

PxImageFetcher::PxImageFetcher(PxNodePtr<PxImageProtocol const> const& node,
                               PxTimeScaleContext const& context)
    : _node(node), _context(context), _vi(PxValidityInterval::FULL) {
    PxRODResult const rod = _node->getImageROD(PxTimeStreamContext(context.getTime(), 0));
    rod.reduceVI(_vi);
    PxImageContext const image(context.getTime(), {0, 0}, context.getScale(), 0);
    _region = PxImageProtocol::nominalToPixelized(
        rod.getROD(), _node->getImageFormat().getAspectRatio(), image.getScaleFactor());
    _tiles = PxImageProtocol::convertPixelsToTiles(_region);
    long long const count = static_cast<long long>(_tiles.width()) * _tiles.height();
    _entries.resize(static_cast<std::size_t>(std::min<long long>(count, kMaxEntries)));
}

PxImageFetcher::~PxImageFetcher() = default;

PxImageFetcher::Entry& PxImageFetcher::fetch(int tx, int ty) const {
    long long const index =
        static_cast<long long>(ty - _tiles.ymin) * _tiles.width() + (tx - _tiles.xmin);
    Entry& e = _entries[static_cast<std::size_t>(index % static_cast<long long>(_entries.size()))];
    if (e.fetched && e.tx == tx && e.ty == ty) {
        if (!e.guard.holdsMemory())
            e.guard = IxReadGuard(e.tile);
        return e;
    }
    e.guard.reset();
    e.result =
        _node->getImageResult(PxImageContext(_context.getTime(), {tx, ty}, _context.getScale(), 0));
    e.result.reduceVI(_vi);
    e.tile = coverPart(e.result.getTile(), tx, ty);
    e.guard = IxReadGuard(e.tile);
    e.tx = tx;
    e.ty = ty;
    e.fetched = true;
    return e;
}

IxTile PxImageFetcher::coverPart(IxTile const& tile, int tx, int ty) const {
    int const ex = PxConfig::getTileSizeExpX();
    int const ey = PxConfig::getTileSizeExpY();
    GeRectangle<int> const part =
        GeRectangle<int>(tx << ex, (tx + 1) << ex, ty << ey, (ty + 1) << ey).intersect(_region);
    GeRectangle<int> const held = tile.getPixelRegion().intersect(part);
    if (held == part)
        return tile;
    // The fill colour stands for whatever a tile does not hold.
    IxTile whole(tile.getPixelFormat(), part, tile.getFillColor());
    IxWriteGuard const w(whole);
    ipSet(w, part, tile.getFillColor());
    if (!held.isEmpty())
        ipCopy(w, IxReadGuard(tile), held);
    return whole;
}

IxReadGuard const& PxImageFetcher::getGuard(int x, int y) const {
    // clang-format off
    VN_ASSERT(x >= _region.xmin && x < _region.xmax && y >= _region.ymin && y < _region.ymax);
    // clang-format on
    return fetch(x >> PxConfig::getTileSizeExpX(), y >> PxConfig::getTileSizeExpY()).guard;
}

void PxImageFetcher::prefetch(GeRectangle<int> const& region) const {
    GeRectangle<int> const tiles = PxImageProtocol::convertPixelsToTiles(region.intersect(_region));
    for (int ty = tiles.ymin; ty < tiles.ymax; ++ty)
        for (int tx = tiles.xmin; tx < tiles.xmax; ++tx)
            fetch(tx, ty);
}

void PxImageFetcher::releaseTiles() const {
    releaseProxies();
    for (Entry& e : _entries)
        e = Entry();
}

void PxImageFetcher::releaseGuard() const {
    releaseProxies();
    for (Entry& e : _entries)
        e.guard.reset();
}

// ---- adapter ----

PxImageFetcherAdapter::PxImageFetcherAdapter(OPtr<IxScanlineTypes::TileFetcher> fetcher)
    : _fetcher(std::move(fetcher)), _region(_fetcher->getRegion()) {}

PxImageFetcherAdapter::~PxImageFetcherAdapter() = default;

void PxImageFetcherAdapter::releaseTiles() const {
    releaseProxies();
    _fetcher->releaseTiles();
}

void PxImageFetcherAdapter::releaseGuard() const {
    // The tile fetcher's guards are its tiles: letting them go is all it can do.
    releaseProxies();
    _fetcher->releaseTiles();
}

CoRgbaColorTyped<float> IxPixelUtil::getPixelColor(IxReadGuard const& guard, int x, int y) {
    IxPixelFormat const& f = guard.getPixelFormat();
    CoRgbaColorTyped<float> c;
    IxConvertUtil::readFrom(&c, guard.getAddress(x, y), 1,
                            ImPixelFormat(f.getComps(), f.getDepth()));
    return c;
}

} // namespace Vn
