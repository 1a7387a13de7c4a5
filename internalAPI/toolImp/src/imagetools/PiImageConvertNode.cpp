#include "PiImageConvertNode.h"
#include "IpFilters.h"
#include "IxGuardBase.h"
#include "IxImageOps.h"
#include "PiOnWorker.h"
#include "PxImageRegionIter.h"
#include "PxQueryRequest.h"
#include "PxRequestMgr.h"
#include "PxStreams.h"
#include "StackGuard.h"

#include <cmath>
#include <functional>

namespace Vn {

PiImageConvertNode::PiImageConvertNode(PxNode::Init const& init,
                                       PxNodePtr<PxImageProtocol const> const& child,
                                       PxImageFormat const& source,
                                       PxImageFormat const& destination)
    : PxNode(init), _child(child), _source(source), _destination(destination) {
    if (_child.isNull())
        RCExUtil::throwExNullPtr(typeid(PxImageProtocol).name());
}

PxRODResult PiImageConvertNode::getImageROD(PxTimeStreamContext const& context) const {
    // Regions are nominal: the destination's aspect widens or narrows them only in pixels.
    return _child->getImageROD(context);
}

namespace {

// The most derived class names the node: PxNode is a virtual base.
#define VN_CONVERTER_CONSTRUCTOR(Class)                                                            \
    Class(PxNode::Init const& init, PxNodePtr<PxImageProtocol const> const& child,                 \
          PxImageFormat const& source, PxImageFormat const& destination)                           \
        : PxNode(init), PiImageConvertNode(init, child, source, destination)

class NoOpConverter final : public PiImageConvertNode {
public:
    VN_CONVERTER_CONSTRUCTOR(NoOpConverter) {}
    PxImageResult getImageResult(PxImageContext const& context) const override {
        VN_STACK_GUARD("NoOpConverter::getImageResult");
        return _child->getImageResult(context);
    }
};

class FormatConverter final : public PiImageConvertNode {
public:
    VN_CONVERTER_CONSTRUCTOR(FormatConverter) {}
    PxImageResult getImageResult(PxImageContext const& context) const override {
        PxImageResult const in = _child->getImageResult(context);
        IxTile const tile = allocateImageBuffer(context, in.getFillColor(), in.getPixelRegion());
        IxWriteGuard const dst(tile);
        IxReadGuard const src = in.getTileGuard();
        if (!in.getPixelRegion().isEmpty())
            ipFormatChange(dst, src, nullptr);
        return {tile, in.getValidityInterval()};
    }
};

class AspectConverter final : public PiImageConvertNode {
public:
    VN_CONVERTER_CONSTRUCTOR(AspectConverter),
        _ratio(static_cast<float>(destination.getPixelFormat().getAspectRatio().toDouble() /
                                  source.getPixelFormat().getAspectRatio().toDouble())) {}

    PxImageResult getImageResult(PxImageContext const& context) const override {
        PxRODResult const rod = getImageROD(context.getTimeStreamContext());
        PxValidityInterval vi = rod.getValidityInterval();
        GeRectangle<int> r;
        if (!context.isOutside()) {
            float const scaleFactor = 1.0f / static_cast<float>(1 << context.getScale());
            GePoint2<int> const& t = context.getTile();
            r = nominalToPixelized(rod.getROD(), getImageFormat().getAspectRatio(), scaleFactor)
                    .intersect(convertTilesToPixels({t.x, t.x + 1, t.y, t.y + 1}));
        }
        if (r.isEmpty())
            return outside(context, vi);

        int const x0 = static_cast<int>(std::floor(static_cast<float>(r.xmin) * _ratio));
        int const x1 = static_cast<int>(std::ceil(static_cast<float>(r.xmax) * _ratio));
        float const support = IpFilters::Filter::scale(_filter.getRadius(), _ratio);
        GeRectangle<int> const span(static_cast<int>(std::floor(static_cast<float>(x0) - support)),
                                    static_cast<int>(std::ceil(static_cast<float>(x1) + support)),
                                    r.ymin, r.ymax);
        CoRgbaColorTyped<float> fill;
        Vector<PxImageResult> const results =
            getImageTilesInRegion(context, _child, vi, span, fill);
        if (results.empty())
            return outside(context, vi);

        IxTile const tile = allocateImageBuffer(context, fill, r);
        IxWriteGuard const dst(tile);
        GeRectangle<int> const p = computePixelRegion(results);
        GeRectangle<int> const covered = r.intersect(
            {static_cast<int>(std::floor(static_cast<float>(p.xmin) / _ratio)),
             static_cast<int>(std::ceil(static_cast<float>(p.xmax) / _ratio)), p.ymin, p.ymax});
        if (!(covered == r))
            for (PxImageRegionIter it(r, covered); !it.isDone(); ++it)
                ipSet(dst, *it, fill);
        ipAspectChange(dst, getGuards(results), _filter, covered);
        return {tile, vi};
    }

private:
    // What lies outside the child: its fill colour, without pixels.
    PxImageResult outside(PxImageContext const& context, PxValidityInterval vi) const {
        PxResult<CoRgbaColorTyped<float>> const fill = _child->getImageFillColor(
            PxImageContext::outside(context.getTime(), context.getStream()));
        fill.reduceVI(vi);
        return {allocateEmptyImageBuffer(fill.getValue()), vi};
    }

    float _ratio;
    Lanczos3Filter _filter;
};

#undef VN_CONVERTER_CONSTRUCTOR

} // namespace

PxNodePtr<PiImageConvertNode>
PiImageConvertNode::create(PxNodePtr<PxImageProtocol const> const& child,
                           PxImageFormat const& source, PxImageFormat const& destination) {
    // clang-format off
    VN_ASSERT(PxRequestMgr::getInstance().isWorkerThreadCurrent());
    // clang-format on
    IxPixelFormat const& s = source.getPixelFormat();
    IxPixelFormat const& d = destination.getPixelFormat();
    PxNodePtr<PiImageConvertNode> node;
    if (!(s.getAspectRatio() == d.getAspectRatio()))
        node = PxNodePtr<PiImageConvertNode>(
            new AspectConverter(PxNode::Init{"AspectConverter"}, child, source, destination));
    else if (s.getComps() != d.getComps() || s.getDepth() != d.getDepth())
        node = PxNodePtr<PiImageConvertNode>(
            new FormatConverter(PxNode::Init{"FormatConverter"}, child, source, destination));
    else
        node = PxNodePtr<PiImageConvertNode>(
            new NoOpConverter(PxNode::Init{"NoOpConverter"}, child, source, destination));
    PxNode::init(PxNodePtr<PxNode>(node));
    return node;
}

// ---- input ----

PiImageInputConvertNode::PiImageInputConvertNode(
    PxNode::Init const& init, PxStrongHndl<PxImageProtocol const> const& child,
    PxNodePtr<PxImageFormatProtocol const> const& formatNode)
    : PxNode(init), PxImageNode(init, child), _formatNode(formatNode) {
    if (_formatNode.isNull())
        RCExUtil::throwExNullPtr(typeid(PxImageFormatProtocol).name());
}

void PiImageInputConvertNode::init() {
    PxImageNode::init();
    registerChild(getPrimary());
    registerChild(_formatNode);
    // The inputs are read on a worker, after the edits still on their way there.
    piRunOnWorker([this] {
        _sourceFormat = getPrimary()->getImageFormat();
        rebuild();
    });
}

void PiImageInputConvertNode::rebuild() {
    PxImageFormat const target = _formatNode->getImageFormat();
    // Converters are made on the workers; a node built from the tool side waits for one.
    piRunOnWorker(
        [&] { _converter = PiImageConvertNode::create(getPrimary(), _sourceFormat, target); });
}

PxImageFormat PiImageInputConvertNode::getImageFormat() const {
    return _converter->getImageFormat();
}

PxRODResult PiImageInputConvertNode::getImageROD(PxTimeStreamContext const& context) const {
    return _converter->getImageROD(context);
}

PxImageResult PiImageInputConvertNode::getImageResult(PxImageContext const& context) const {
    return _converter->getImageResult(context);
}

void PiImageInputConvertNode::invalidateAndReinitialize(PxValidityInterval const& interval,
                                                        PxUPtr<PxNode const> const& from,
                                                        int stream) {
    PxImageNode::invalidateAndReinitialize(interval, from, stream);
    if (from.asNode() == static_cast<PxNode const*>(getPrimary().get())) {
        PxImageFormat const format = getPrimary()->getImageFormat();
        if (!_converter.isNull() && format == _converter->getSourceFormat())
            return;
        _sourceFormat = format;
        rebuild();
    } else if (from.asNode() == static_cast<PxNode const*>(_formatNode.get())) {
        _sourceFormat = getPrimary()->getImageFormat();
        rebuild();
    }
}

} // namespace Vn
