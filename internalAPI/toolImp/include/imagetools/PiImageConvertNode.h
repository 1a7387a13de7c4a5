#pragma once

#include "PxImageNode.h"

namespace Vn {

// Stands between a child and a consumer that needs another image format. The concrete kind is
// chosen by create() from the two formats and is named by the node's type name:
// "NoOpConverter" (same components, depth and aspect), "FormatConverter" (same aspect) or
// "AspectConverter" (the aspect differs; x is resampled). Frame rates take no part.
class VN_EXPORT PiImageConvertNode : public PxImageProtocol {
public:
    // On a worker. The result is already initialized. It does not register the child: whoever
    // owns the converter reads the child's invalidations.
    static PxNodePtr<PiImageConvertNode> create(PxNodePtr<PxImageProtocol const> const& child,
                                                PxImageFormat const& source,
                                                PxImageFormat const& destination);

    PxImageFormat getImageFormat() const override { return _destination; }
    PxRODResult getImageROD(PxTimeStreamContext const& context) const override;
    bool isChainConnected() const override { return _child->isChainConnected(); }
    bool producesFullFrames() const override { return _child->producesFullFrames(); }
    int getNbStreams() const override { return _child->getNbStreams(); }

    PxImageFormat const& getSourceFormat() const noexcept { return _source; }
    PxNodePtr<PxImageProtocol const> const& getChild() const noexcept { return _child; }

protected:
    PiImageConvertNode(PxNode::Init const& init, PxNodePtr<PxImageProtocol const> const& child,
                       PxImageFormat const& source, PxImageFormat const& destination);

    PxNodePtr<PxImageProtocol const> _child;
    PxImageFormat _source;
    PxImageFormat _destination;
};

// An input of a tool: the child's images in the format a format node gives, following changes
// of either.
class VN_EXPORT PiImageInputConvertNode final : public PxImageNode {
public:
    // No handle may be null.
    PiImageInputConvertNode(PxNode::Init const& init,
                            PxStrongHndl<PxImageProtocol const> const& child,
                            PxNodePtr<PxImageFormatProtocol const> const& formatNode);

    // The converter's: tiles come in the target format.
    PxImageFormat getImageFormat() const override;
    PxRODResult getImageROD(PxTimeStreamContext const& context) const override;
    PxImageResult getImageResult(PxImageContext const& context) const override;
    void invalidateAndReinitialize(PxValidityInterval const& interval,
                                   PxUPtr<PxNode const> const& from, int stream) override;

    // The converter in use, for inspection.
    PxNodePtr<PiImageConvertNode> const& getConverter() const noexcept { return _converter; }

protected:
    void init() override;

private:
    void rebuild();

    PxImageFormat _sourceFormat = PxImageFormat::INVALID_FORMAT;
    PxNodePtr<PiImageConvertNode> _converter;
    PxNodePtr<PxImageFormatProtocol const> _formatNode;
};

} // namespace Vn
