#include "PxImageNode.h"
#include "Assertions.h"

#include <algorithm>

namespace Vn {

// ---- PxImageNode ----

PxImageNode::PxImageNode(PxNode::Init const& init, PxNodePtr<PxImageProtocol const> const& primary)
    : PxNode(init), _primary(primary) {
    VN_ASSERT(!_primary.isNull());
}

PxImageFormat PxImageNode::getImageFormat() const {
    return _primary->getImageFormat();
}

PxRODResult PxImageNode::getImageROD(PxTimeStreamContext const& context) const {
    return _primary->getImageROD(context);
}

bool PxImageNode::isChainConnected() const {
    return _primary->isChainConnected();
}

bool PxImageNode::producesFullFrames() const {
    return _primary->producesFullFrames();
}

int PxImageNode::getNbStreams() const {
    return _primary->getNbStreams();
}

// ---- PxImageLeafNode ----

PxImageLeafNode::PxImageLeafNode(
    PxNode::Init const& init, PxStrongHndl<PxImageFormatProtocol const> const& format,
    PxStrongHndl<PxAnimValueProtocol<int> const> const& width,
    PxStrongHndl<PxAnimValueProtocol<int> const> const& height,
    PxStrongHndl<PxAnimValueProtocol<CoRgbColorTyped<float>> const> const& fillColor,
    PxStrongHndl<PxAnimValueProtocol<double> const> const& fillOpacity)
    : PxNode(init), _format(format), _width(width), _height(height), _fillColor(fillColor),
      _fillOpacity(fillOpacity) {
    // clang-format off
    VN_ASSERT(!_format.isNull() && !_width.isNull() && !_height.isNull() && !_fillColor.isNull() && !_fillOpacity.isNull());
    // clang-format on
}

void PxImageLeafNode::init() {
    PxImageProtocol::init();
    registerChild(_format);
    registerChild(_width);
    registerChild(_height);
    registerChild(_fillColor);
    registerChild(_fillOpacity);
}

PxImageFormat PxImageLeafNode::getImageFormat() const {
    return _format->getImageFormat();
}

PxRODResult PxImageLeafNode::getImageROD(PxTimeStreamContext const& context) const {
    return computeImageROD(context);
}

PxRODResult PxImageLeafNode::computeImageROD(PxTimeStreamContext const& context) const {
    PxTimeContext const time(context.getTime());
    PxResult<int> const w = _width->getValue(time);
    PxResult<int> const h = _height->getValue(time);
    PxValidityInterval vi = w.getValidityInterval();
    h.reduceVI(vi);
    float const aspect = getImageFormat().getAspectRatio();
    GeRectangle<float> const rod(0.0f, static_cast<float>(std::max(w.getValue(), 0)) * aspect, 0.0f,
                                 static_cast<float>(std::max(h.getValue(), 0)));
    return {rod, vi};
}

CoRgbaColorTyped<float> PxImageLeafNode::computeFillColor(double time,
                                                          PxValidityInterval& vi) const {
    PxTimeContext const t(time);
    PxResult<CoRgbColorTyped<float>> const c = _fillColor->getValue(t);
    PxResult<double> const o = _fillOpacity->getValue(t);
    c.reduceVI(vi);
    o.reduceVI(vi);
    return {c.getValue().r, c.getValue().g, c.getValue().b, static_cast<float>(o.getValue())};
}

IxTile PxImageLeafNode::allocateImageBuffer(PxImageContext const& context,
                                            PxValidityInterval& vi) const {
    CoRgbaColorTyped<float> const fill = computeFillColor(context.getTime(), vi);
    if (context.isOutside())
        return allocateEmptyImageBuffer(fill);
    return allocateImageBuffer(context, fill, computeTileRegion(context, vi));
}

} // namespace Vn
