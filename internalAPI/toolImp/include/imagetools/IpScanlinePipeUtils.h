#pragma once

#include "GeRectangle.h"
#include "IpDilate.h"
#include "IpScanlinePipe.h"
#include "IxPixelFormat.h"
#include "RCPvtEngPtr.h"
#include "Vector.h"
#include "VnExport.h"

namespace Vn {

class PmShape2d;

// Builds graphs of alpha scanline pipes: sources and destinations of alpha, the per-pixel
// operations on alpha, the feather, and the graph of edge processing of a matte.
class VN_EXPORT IpScanlinePipeUtils {
public:
    // A source of the given components; for colour, its alpha.
    static IpScanlinePipePtr createAlphaSource(IxPixelFormat::Comps inputComps);
    // The end of the graph above pipe, over the destination region, which lays the graph out.
    // For RGBA the source's colour is kept and the alpha replaced. The region of the source
    // tiles the run reads is stored through srcRegion when given.
    static RCShdPtr<IpDestNode> createAlphaDest(IpScanlinePipePtr const& pipe,
                                                IxPixelFormat::Comps comps,
                                                GeRectangle<int> const& dstRegion,
                                                GeRectangle<int>* srcRegion);

    static IpScanlinePipePtr createExtractAlpha(IpScanlinePipePtr const& pipe);
    static IpScanlinePipePtr createInvertAlpha(IpScanlinePipePtr const& pipe);
    // The colour rows of rgba with the alpha of alpha.
    static IpScanlinePipePtr createInsertAlpha(IpScanlinePipePtr const& rgba,
                                               IpScanlinePipePtr const& alpha);
    static IpScanlinePipePtr createMaxAlpha(IpScanlinePipePtr const& a, IpScanlinePipePtr const& b);
    // The largest feather radius, in pixels.
    static constexpr int MAX_RADIUS = 1024;
    // The Gaussian feather of radius x across and y down; a radius that is NaN or beyond
    // MAX_RADIUS raises ExBase.
    static IpScanlinePipePtr createBlurAlpha(IpScanlinePipePtr const& pipe, float x, float y);
    // A dilation (erosion for negative amounts) by a disc at shapeInterpolation 0 or less, a
    // box at 1 or more, and the blend of the two between.
    static IpScanlinePipePtr createDilateNode(IpScanlinePipePtr const& pipe,
                                              float shapeInterpolation, float x, float y);
    // A look-up table over [low, high]; the table needs 2 entries or more.
    static IpScanlinePipePtr createLUTAlpha(IpScanlinePipePtr const& pipe, float low, float high,
                                            Vector<float> table);
    // Two dilations of the source, each feathered, and their difference (or average); inverted
    // on demand. Until curve look-up tables exist the curve must be null or the identity.
    static IpScanlinePipePtr
    createEdgeProcessingGraph(IpScanlinePipePtr const& pipe, bool difference,
                              IpDilate::StructuringElements element, float lowX, float lowY,
                              float highX, float highY, float blurLowX, float blurLowY,
                              float blurHighX, float blurHighY, bool invert,
                              RCPvtEngPtr<PmShape2d> const& curve, int size);
};

} // namespace Vn
