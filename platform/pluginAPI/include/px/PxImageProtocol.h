#pragma once

#include "CoRgbaColor.h"
#include "GeRectangle.h"
#include "IxGuardBase.h"
#include "IxTile.h"
#include "OPtr.h"
#include "PxImageFormat.h"
#include "PxNode.h"
#include "PxTimeContext.h"
#include "PxValidityInterval.h"
#include "Vector.h"

namespace Vn {

template <class T>
using GePoint2 = GePoint<T>;

// What an image call asks for: one tile of one frame of one stream, at 1 / 2^scale of full
// resolution. The outside tile (PxConfig) asks for what lies outside the region of definition.
class VN_EXPORT PxImageContext {
public:
    // The stream is checked with PxStreams::validateStream.
    PxImageContext(double time, GePoint2<int> const& tile, int scale, int stream);
    // The context asking a node for its fill colour alone, at a time and stream.
    static PxImageContext outside(double time, int stream);

    double getTime() const noexcept { return _time; }
    int getStream() const noexcept { return _stream; }
    int getScale() const noexcept { return _scale; }
    GePoint2<int> const& getTile() const noexcept { return _tile; }
    bool isOutside() const noexcept;
    // 1 / 2^scale; 1 for the outside context.
    float getScaleFactor() const noexcept;
    PxTimeStreamContext getTimeStreamContext() const { return {_time, _stream}; }

private:
    double _time;
    int _stream;
    int _scale;
    GePoint2<int> _tile;
};

// A node's region of definition at one time and stream, in nominal coordinates.
class VN_EXPORT PxRODResult : public PxBaseResult {
public:
    PxRODResult() noexcept = default;
    PxRODResult(GeRectangle<float> const& rod, PxValidityInterval const& vi) noexcept
        : PxBaseResult(vi), _rod(rod) {}
    GeRectangle<float> const& getROD() const noexcept { return _rod; }
    void setROD(GeRectangle<float> const& rod) noexcept { _rod = rod; }

private:
    GeRectangle<float> _rod;
};

// A tile with the time span over which it stays true. Copies share the pixels.
class VN_EXPORT PxImageResult : public PxBaseResult {
public:
    PxImageResult() noexcept = default;
    PxImageResult(IxTile tile, PxValidityInterval const& vi) noexcept
        : PxBaseResult(vi), _tile(std::move(tile)) {}

    IxTile const& getTile() const noexcept { return _tile; }
    IxReadGuard getTileGuard() const { return IxReadGuard(_tile); }
    GeRectangle<int> const& getPixelRegion() const noexcept { return _tile.getPixelRegion(); }
    CoRgbaColorTyped<float> const& getFillColor() const noexcept { return _tile.getFillColor(); }

private:
    IxTile _tile;
};

// A node that gives an image format.
class VN_EXPORT PxImageFormatProtocol : public virtual PxNode {
public:
    virtual PxImageFormat getImageFormat() const = 0;
};

// A node that gives images, tile by tile.
class VN_EXPORT PxImageProtocol : public PxImageFormatProtocol {
public:
    virtual PxRODResult getImageROD(PxTimeStreamContext const& context) const = 0;
    virtual PxImageResult getImageResult(PxImageContext const& context) const = 0;
    // False when no source stands at the end of the node's chain.
    virtual bool isChainConnected() const = 0;
    // The node can only make its whole image at once.
    virtual bool producesFullFrames() const = 0;
    virtual int getNbStreams() const = 0;

    // What lies outside the node's region at the context's time and stream.
    PxResult<CoRgbaColorTyped<float>> getImageFillColor(PxImageContext const& context) const;

    // Pixel coordinates lie within plus or minus this: a rectangle moved by as much again still
    // fits in an int.
    static constexpr int kMaxPixelCoordinate = 1 << 30;

    // Nominal rectangles to pixels and back. x is divided by the pixel aspect ratio, both axes
    // are multiplied by the scale factor; pixelizing rounds outwards. A rectangle with a NaN
    // side, or one beyond kMaxPixelCoordinate once pixelized, raises PxEx::ExInvalidParameter.
    static GeRectangle<int> nominalToPixelized(GeRectangle<float> const& rect, float aspect,
                                               float scaleFactor);
    static GeRectangle<float> pixelizedToNominal(GeRectangle<int> const& rect, float aspect,
                                                 float scaleFactor);
    // The pixels of a rectangle of tile indices; raises PxEx::ExInvalidParameter beyond
    // kMaxPixelCoordinate.
    static GeRectangle<int> convertTilesToPixels(GeRectangle<int> const& tiles);
    // The tile indices whose tiles meet a pixel rectangle.
    static GeRectangle<int> convertPixelsToTiles(GeRectangle<int> const& pixels);
    // A nominal rectangle of width x height pixels centred on the origin.
    static GeRectangle<float> createCenteredNominalROD(int width, int height, float aspect);
    // The pixel region of the node's image for a context: its pixelized region of definition
    // cut to the context's tile. The interval is narrowed by the region's.
    GeRectangle<int> computeTileRegion(PxImageContext const& context, PxValidityInterval& vi) const;

    // A tile of the node's pixel format for the context, cut to region.
    IxTile allocateImageBuffer(PxImageContext const& context, CoRgbaColorTyped<float> const& fill,
                               GeRectangle<int> const& region) const;
    // A tile of the node's pixel format without pixels: only its fill colour, transparent black
    // unless given.
    IxTile allocateEmptyImageBuffer() const;
    IxTile allocateEmptyImageBuffer(CoRgbaColorTyped<float> const& fill) const;

    // The child's tiles that meet region, read inline, with the child's fill colour. vi is
    // narrowed by everything read.
    static Vector<PxImageResult>
    getImageTilesInRegion(PxImageContext const& context,
                          PxNodePtr<PxImageProtocol const> const& child, PxValidityInterval& vi,
                          GeRectangle<int> const& region, CoRgbaColorTyped<float>& fill);
    static Vector<IxReadGuard> getGuards(Vector<PxImageResult> const& results);
    // The union of the results' pixel regions.
    static GeRectangle<int> computePixelRegion(Vector<PxImageResult> const& results);
};

// The services behind the image protocol, supplied by the engine library at start.
class VN_EXPORT PxImageProtocolServices {
public:
    static void initialize(OPtr<PxImageProtocolServices> services);
    static void finalize();
    static PxImageProtocolServices& getInstance();
    static bool isInitialized() noexcept;

    // A guard on pixels covering region: the source's own when it covers it, else a copy padded
    // with the source's fill colour.
    virtual IxReadGuard extendGuard(IxReadGuard const& source,
                                    GeRectangle<int> const& region) const = 0;
    // A tile for the context's tile index, cut to region.
    virtual IxTile allocateTile(PxImageContext const& context, IxPixelFormat const& format,
                                CoRgbaColorTyped<float> const& fill,
                                GeRectangle<int> const& region) const = 0;
    // One tile joining the results over region, in the first one's format and fill colour.
    virtual IxTile assembleTiles(Vector<PxImageResult> const& results,
                                 GeRectangle<int> const& region) const = 0;
    virtual ~PxImageProtocolServices();

protected:
    PxImageProtocolServices() noexcept = default;
};

} // namespace Vn
