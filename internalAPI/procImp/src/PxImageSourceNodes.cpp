#include "PxImageSourceNodes.h"
#include "Assertions.h"
#include "IxImageOps.h"
#include "PxEx.h"

namespace Vn {

PxImageFormatSetRequest::PxImageFormatSetRequest(PxUPtr<PxImageFormatNode> const& node,
                                                 PxImageFormat const& format)
    : _node(node), _format(format) {
    if (!node)
        throw PxEx::ExInvalidParameter(__FILE__, __LINE__, "A format change needs a node");
}

void PxImageFormatSetRequest::performExecute() {
    _node->_format = _format;
    _node->invalidate(PxValidityInterval::FULL, -2);
}

PxImageFormat PxBlackSourceNode::getImageFormat() const {
    return PxImageFormat(IxPixelFormat(IxPixelFormat::RGBA, IxPixelFormat::UINT8, Rational(1, 1)),
                         Rational(1, 1));
}

PxRODResult PxBlackSourceNode::getImageROD(PxTimeStreamContext const&) const {
    return {GeRectangle<float>(), PxValidityInterval::FULL};
}

PxImageResult PxBlackSourceNode::getImageResult(PxImageContext const&) const {
    return {allocateEmptyImageBuffer(), PxValidityInterval::FULL};
}

PxColorSourceNode::PxColorSourceNode(
    PxNode::Init const& init, PxStrongHndl<PxImageFormatProtocol const> const& format,
    PxStrongHndl<PxAnimValueProtocol<int> const> const& width,
    PxStrongHndl<PxAnimValueProtocol<int> const> const& height,
    PxStrongHndl<PxAnimValueProtocol<CoRgbColorTyped<float>> const> const& fillColor,
    PxStrongHndl<PxAnimValueProtocol<double> const> const& fillOpacity,
    PxStrongHndl<PxAnimValueProtocol<CoRgbColorTyped<float>> const> const& color,
    PxStrongHndl<PxAnimValueProtocol<double> const> const& opacity)
    : PxNode(init), PxImageLeafNode(init, format, width, height, fillColor, fillOpacity),
      _color(color), _opacity(opacity) {
    VN_ASSERT(!_color.isNull() && !_opacity.isNull());
}

void PxColorSourceNode::init() {
    PxImageLeafNode::init();
    registerChild(_color);
    registerChild(_opacity);
}

PxImageResult PxColorSourceNode::getImageResult(PxImageContext const& context) const {
    PxValidityInterval vi = PxValidityInterval::FULL;
    IxTile const tile = allocateImageBuffer(context, vi);
    PxTimeContext const time(context.getTime());
    PxResult<CoRgbColorTyped<float>> const c = _color->getValue(time);
    PxResult<double> const o = _opacity->getValue(time);
    c.reduceVI(vi);
    o.reduceVI(vi);
    if (!tile.getPixelRegion().isEmpty()) {
        IxWriteGuard const guard(tile);
        ipSet(guard, tile.getPixelRegion(),
              {c.getValue().r, c.getValue().g, c.getValue().b, static_cast<float>(o.getValue())});
    }
    return {tile, vi};
}

} // namespace Vn
