#pragma once

#include "CoRgbaColor.h"
#include "GeRectangle.h"
#include "ImImageConst.h"
#include "IxPixelFormat.h"
#include "IxTile.h"
#include "Rational.h"
#include "VnExport.h"

namespace Vn {

class IxReadGuard;
class IxWriteGuard;

// Between tiles and the images of the primitives library.
class VN_EXPORT IxUtil {
public:
    static ImPixelFormat ixToImPixelFormat(IxPixelFormat const& format);
    static IxPixelFormat imToIxPixelFormat(ImPixelFormat const& format, Rational const& aspect);

    // An image over the tile's buffer: no pixel is copied. The tile's memory must be tile
    // memory of the engine.
    static ImImageConst ixTileToImImageConst(IxTile const& tile);
    // A tile over the image's buffer: no pixel is copied. The image's lines must be aligned as
    // a tile's.
    static IxTile imImageConstToIxTile(ImImageConst const& image, Rational const& aspect,
                                       CoRgbaColorTyped<float> const& fillColor);

    // Copy pixels of one format between a tile and an image. A null rectangle stands for the
    // whole region of its side; both rectangles must have the same size and lie in their
    // sides. Lines that are whole and alike on both sides go in one block.
    static void ixToImCopy(ImWriteGuard const& dst, IxReadGuard const& src,
                           GeRectangle<int> const* dstRect, GeRectangle<int> const* srcRect);
    static void imToIxCopy(IxWriteGuard const& dst, ImReadGuard const& src,
                           GeRectangle<int> const* dstRect, GeRectangle<int> const* srcRect);
};

} // namespace Vn
