#pragma once

#include "GeVector.h"
#include "PxImageProtocol.h"
#include "PxQueryRequest.h"
#include "RCCbHandler.h"

namespace Vn {

// Asks an image node for its format.
class VN_EXPORT PxImageFormatRequest final : public PxQueryRequest<PxImageFormat> {
public:
    explicit PxImageFormatRequest(PxUPtr<PxImageFormatProtocol const> const& node) : _node(node) {}
    void performExecute() override;
    PxImageFormat const& getImageFormat() const { return waitResult(); }

private:
    PxUPtr<PxImageFormatProtocol const> _node;
};

// Asks an image node for its region of definition at a time and stream.
class VN_EXPORT PxImageRODRequest final : public PxQueryRequest<PxRODResult> {
public:
    PxImageRODRequest(PxUPtr<PxImageProtocol const> const& node, PxTimeStreamContext const& context)
        : _node(node), _context(context) {}
    void performExecute() override;
    PxRODResult const& getImageROD() const { return waitResult(); }

private:
    PxUPtr<PxImageProtocol const> _node;
    PxTimeStreamContext _context;
};

// One tile of a node, as a request of its own.
class VN_EXPORT PxImageTileRequest final : public PxQueryRequest<PxImageResult> {
public:
    PxImageTileRequest(PxUPtr<PxImageProtocol const> const& node, PxImageContext const& context)
        : _node(node), _context(context) {}
    void performExecute() override;
    PxImageResult const& getResult() const { return waitResult(); }

private:
    PxUPtr<PxImageProtocol const> _node;
    PxImageContext _context;
};

// Results shared beyond the request that made them.
class VN_EXPORT PxImageResults : public RCBase<LkCounter<int>>, public Vector<PxImageResult> {};

// Every tile of a node for a time, stream and scale: of the whole image, of the part within a
// pixel rectangle, or the one tile at a tile position. Tiles outside the node's region of
// definition are not asked for, so an image without pixels gives no results.
//
// requestParam 0 computes the tiles concurrently, one child request each; 1 computes them one
// after another on the request's worker, which keeps one tile in flight.
class VN_EXPORT PxImageMultiTileRequest final : public PxRequest {
public:
    using Handler = RCCbHandler<PxImageMultiTileRequest const>;
    enum RequestParam : int { CONCURRENT_TILES = 0, SEQUENTIAL_TILES = 1 };
    // A request over more tiles than this fails with PxEx::ExInvalidParameter rather than make
    // that many requests.
    static constexpr long long kMaxTiles = 1 << 16;

    PxImageMultiTileRequest(PxUPtr<PxImageProtocol const> const& node, int stream,
                            PxTimeInfo const& time, int scale, int requestParam = 0,
                            RCWeakPtr<Handler> const& handler = {});
    PxImageMultiTileRequest(PxUPtr<PxImageProtocol const> const& node, GeRectangle<int> const& rect,
                            int stream, PxTimeInfo const& time, int scale, int requestParam = 0,
                            RCWeakPtr<Handler> const& handler = {});
    PxImageMultiTileRequest(PxUPtr<PxImageProtocol const> const& node,
                            GeVector2<int> const& tilePos, int stream, PxTimeInfo const& time,
                            int scale, RCWeakPtr<Handler> const& handler = {});

    void performExecute() override;
    // Calls the handler, when it still exists, with the request.
    void postExecute() override;
    void performCleanUp() override;

    // Waits, and raises what the request raised.
    RCShdPtr<PxImageResults> const& getResults() const;
    // The pixel region the request covers, once it has run.
    GeRectangle<int> const& getPixelRegion() const;

    // One tile of the results joined over region.
    static IxTile assembleTiles(Vector<PxImageResult> const& results,
                                GeRectangle<int> const& region);

private:
    enum class Form { WHOLE, RECT, TILE };
    PxRequestMgr& wait() const;

    PxUPtr<PxImageProtocol const> _node;
    Form _form;
    GeRectangle<int> _rect;
    GeVector2<int> _tilePos;
    int _stream;
    PxTimeInfo _time;
    int _scale;
    int _requestParam;
    RCWeakPtr<Handler> _handler;
    RCShdPtr<PxImageResults> _results;
    GeRectangle<int> _region;
    // Atomic: a handler told on a worker and the request's owner may both read the results.
    mutable std::atomic<bool> _read{false};
};

} // namespace Vn
