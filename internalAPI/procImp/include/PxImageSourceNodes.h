#pragma once

#include "PxImageNode.h"
#include "PxQueryRequest.h"

namespace Vn {

// A constant image format, changed only by PxImageFormatSetRequest.
class VN_EXPORT PxImageFormatNode final : public PxImageFormatProtocol {
public:
    PxImageFormatNode(PxNode::Init const& init, PxImageFormat const& format)
        : PxNode(init), _format(format) {}
    PxImageFormat getImageFormat() const override { return _format; }

private:
    friend class PxImageFormatSetRequest;
    PxImageFormat _format;
};

// Writes a new format into the node and invalidates its parents over all time and streams.
class VN_EXPORT PxImageFormatSetRequest final : public PxMutationRequest {
public:
    // Raises PxEx::ExInvalidParameter for a null node.
    PxImageFormatSetRequest(PxUPtr<PxImageFormatNode> const& node, PxImageFormat const& format);
    void performExecute() override;

private:
    PxUPtr<PxImageFormatNode> _node;
    PxImageFormat _format;
};

// An image without pixels: RGBA UINT8, nothing inside, transparent black outside, forever.
class VN_EXPORT PxBlackSourceNode final : public PxImageProtocol {
public:
    explicit PxBlackSourceNode(PxNode::Init const& init) : PxNode(init) {}
    PxImageFormat getImageFormat() const override;
    PxRODResult getImageROD(PxTimeStreamContext const& context) const override;
    PxImageResult getImageResult(PxImageContext const& context) const override;
    bool isChainConnected() const override { return false; }
    bool producesFullFrames() const override { return false; }
    int getNbStreams() const override { return 1; }
};

// A frame of one colour and opacity, both animatable; the frame and what lies outside it are
// those of the image leaf.
class VN_EXPORT PxColorSourceNode final : public PxImageLeafNode {
public:
    PxColorSourceNode(
        PxNode::Init const& init, PxStrongHndl<PxImageFormatProtocol const> const& format,
        PxStrongHndl<PxAnimValueProtocol<int> const> const& width,
        PxStrongHndl<PxAnimValueProtocol<int> const> const& height,
        PxStrongHndl<PxAnimValueProtocol<CoRgbColorTyped<float>> const> const& fillColor,
        PxStrongHndl<PxAnimValueProtocol<double> const> const& fillOpacity,
        PxStrongHndl<PxAnimValueProtocol<CoRgbColorTyped<float>> const> const& color,
        PxStrongHndl<PxAnimValueProtocol<double> const> const& opacity);
    PxImageResult getImageResult(PxImageContext const& context) const override;

protected:
    void init() override;

private:
    PxNodePtr<PxAnimValueProtocol<CoRgbColorTyped<float>> const> _color;
    PxNodePtr<PxAnimValueProtocol<double> const> _opacity;
};

} // namespace Vn
