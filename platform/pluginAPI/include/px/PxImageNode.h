#pragma once

#include "CoRgbaColor.h"
#include "PxImageProtocol.h"
#include "PxValueProtocol.h"

namespace Vn {

// An image node that works on a primary image: its format, chain, frame and stream questions
// are the primary's. It registers no child itself; each node registers what it reads.
class VN_EXPORT PxImageNode : public PxImageProtocol {
public:
    // The primary must not be null.
    PxImageNode(PxNode::Init const& init, PxNodePtr<PxImageProtocol const> const& primary);

    PxImageFormat getImageFormat() const override;
    PxRODResult getImageROD(PxTimeStreamContext const& context) const override;
    bool isChainConnected() const override;
    bool producesFullFrames() const override;
    int getNbStreams() const override;

    PxNodePtr<PxImageProtocol const> const& getPrimary() const noexcept { return _primary; }

private:
    PxNodePtr<PxImageProtocol const> _primary;
};

// An image that starts here: a frame of width x height pixels of a format, and outside it a
// fill colour of a colour and an opacity. All five come from child nodes, read at the time asked.
class VN_EXPORT PxImageLeafNode : public PxImageProtocol {
public:
    // No handle may be null.
    PxImageLeafNode(
        PxNode::Init const& init, PxStrongHndl<PxImageFormatProtocol const> const& format,
        PxStrongHndl<PxAnimValueProtocol<int> const> const& width,
        PxStrongHndl<PxAnimValueProtocol<int> const> const& height,
        PxStrongHndl<PxAnimValueProtocol<CoRgbColorTyped<float>> const> const& fillColor,
        PxStrongHndl<PxAnimValueProtocol<double> const> const& fillOpacity);

    PxImageFormat getImageFormat() const override;
    PxRODResult getImageROD(PxTimeStreamContext const& context) const override;
    bool isChainConnected() const override { return true; }
    bool producesFullFrames() const override { return false; }
    int getNbStreams() const override { return 1; }

    // The frame, {0, width x aspect, 0, height} in nominal coordinates; negative sizes count as 0.
    PxRODResult computeImageROD(PxTimeStreamContext const& context) const;
    // The fill colour at a time; narrows vi.
    CoRgbaColorTyped<float> computeFillColor(double time, PxValidityInterval& vi) const;
    // The tile for the context: the frame cut to the context's tile, with the fill colour.
    // Narrows vi by everything read.
    IxTile allocateImageBuffer(PxImageContext const& context, PxValidityInterval& vi) const;
    using PxImageProtocol::allocateImageBuffer;

protected:
    void init() override;

private:
    PxNodePtr<PxImageFormatProtocol const> _format;
    PxNodePtr<PxAnimValueProtocol<int> const> _width;
    PxNodePtr<PxAnimValueProtocol<int> const> _height;
    PxNodePtr<PxAnimValueProtocol<CoRgbColorTyped<float>> const> _fillColor;
    PxNodePtr<PxAnimValueProtocol<double> const> _fillOpacity;
};

} // namespace Vn
