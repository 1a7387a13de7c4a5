#include "PxImageRequests.h"
#include "Assertions.h"
#include "PxEx.h"
#include "PxStreams.h"

#include <algorithm>
#include <string>

namespace Vn {

void PxImageFormatRequest::performExecute() {
    setResult(_node->getImageFormat());
}

void PxImageRODRequest::performExecute() {
    setResult(_node->getImageROD(_context));
}

void PxImageTileRequest::performExecute() {
    setResult(_node->getImageResult(_context));
}

PxImageMultiTileRequest::PxImageMultiTileRequest(PxUPtr<PxImageProtocol const> const& node,
                                                 int stream, PxTimeInfo const& time, int scale,
                                                 int requestParam,
                                                 RCWeakPtr<Handler> const& handler)
    : _node(node), _form(Form::WHOLE), _stream(stream), _time(time), _scale(scale),
      _requestParam(requestParam), _handler(handler) {
    PxStreams::validateStream(stream);
    VN_ASSERT(scale >= 0 && scale < 31);
    // clang-format off
    VN_ASSERT(requestParam == CONCURRENT_TILES || requestParam == SEQUENTIAL_TILES);
    // clang-format on
}

PxImageMultiTileRequest::PxImageMultiTileRequest(PxUPtr<PxImageProtocol const> const& node,
                                                 GeRectangle<int> const& rect, int stream,
                                                 PxTimeInfo const& time, int scale,
                                                 int requestParam,
                                                 RCWeakPtr<Handler> const& handler)
    : PxImageMultiTileRequest(node, stream, time, scale, requestParam, handler) {
    _form = Form::RECT;
    _rect = rect;
}

PxImageMultiTileRequest::PxImageMultiTileRequest(PxUPtr<PxImageProtocol const> const& node,
                                                 GeVector2<int> const& tilePos, int stream,
                                                 PxTimeInfo const& time, int scale,
                                                 RCWeakPtr<Handler> const& handler)
    : PxImageMultiTileRequest(node, stream, time, scale, CONCURRENT_TILES, handler) {
    _form = Form::TILE;
    _tilePos = tilePos;
}

void PxImageMultiTileRequest::performExecute() {
    PxImageProtocol const& node = *_node;
    double const time = _time.getTime();
    PxRODResult const rod = node.getImageROD(PxTimeStreamContext(time, _stream));
    float const scaleFactor = 1.0f / static_cast<float>(1 << _scale);
    GeRectangle<int> region = PxImageProtocol::nominalToPixelized(
        rod.getROD(), node.getImageFormat().getAspectRatio(), scaleFactor);
    if (_form == Form::RECT)
        region = region.intersect(_rect);
    else if (_form == Form::TILE)
        region = region.intersect(PxImageProtocol::convertTilesToPixels(
            {_tilePos.x, _tilePos.x + 1, _tilePos.y, _tilePos.y + 1}));
    _region = region;

    GeRectangle<int> const tiles = PxImageProtocol::convertPixelsToTiles(region);
    long long const nbTiles =
        static_cast<long long>(std::max(tiles.width(), 0)) * std::max(tiles.height(), 0);
    if (nbTiles > kMaxTiles)
        throw PxEx::ExInvalidParameter(__FILE__, __LINE__,
                                       "A multi-tile request over " + std::to_string(nbTiles) +
                                           " tiles: more than the " + std::to_string(kMaxTiles) +
                                           " one request may ask for");
    RCShdPtr<PxImageResults> results(new PxImageResults);
    results->reserve(static_cast<std::size_t>(tiles.width()) * tiles.height());
    auto contextOf = [&](int i, int j) {
        return PxImageContext(time, {i, j}, _scale, _stream);
    };
    if (_requestParam == SEQUENTIAL_TILES) {
        for (int j = tiles.ymin; j < tiles.ymax; ++j)
            for (int i = tiles.xmin; i < tiles.xmax; ++i)
                results->push_back(node.getImageResult(contextOf(i, j)));
    } else {
        PxRequestMgr& mgr = PxRequestMgr::getInstance();
        Vector<PxRequestPtr<PxImageTileRequest>> children;
        children.reserve(results->capacity());
        for (int j = tiles.ymin; j < tiles.ymax; ++j)
            for (int i = tiles.xmin; i < tiles.xmax; ++i) {
                children.emplace_back(new PxImageTileRequest(_node, contextOf(i, j)));
                mgr.executeRequest(children.back().get(), false);
            }
        for (auto& child : children) {
            results->push_back(child->getResult());
            child.reset(); // lets the tile's request go as soon as its result is kept
        }
    }
    _results = std::move(results);
}

void PxImageMultiTileRequest::postExecute() {
    PxResultHandlers::tell(_handler, *this);
}

void PxImageMultiTileRequest::performCleanUp() {
    _results = RCShdPtr<PxImageResults>();
}

PxRequestMgr& PxImageMultiTileRequest::wait() const {
    PxRequestMgr& mgr = PxRequestMgr::getInstance();
    if (!_read.load(std::memory_order_acquire)) {
        mgr.waitRequest(const_cast<PxImageMultiTileRequest*>(this));
        _read.store(true, std::memory_order_release);
    }
    return mgr;
}

RCShdPtr<PxImageResults> const& PxImageMultiTileRequest::getResults() const {
    wait();
    return _results;
}

GeRectangle<int> const& PxImageMultiTileRequest::getPixelRegion() const {
    wait();
    return _region;
}

IxTile PxImageMultiTileRequest::assembleTiles(Vector<PxImageResult> const& results,
                                              GeRectangle<int> const& region) {
    return PxImageProtocolServices::getInstance().assembleTiles(results, region);
}

} // namespace Vn
