#pragma once

// Image nodes and tiles for the tests of the image road.

#include "EngineTestSupport.h"
#include "IxGuardBase.h"
#include "IxImageOps.h"
#include "PxImageRequests.h"
#include "PxImageSourceNodes.h"
#include "PxValueNode.h"

namespace VnTest {

// A value that holds for an interval around every time asked.
template <class T>
class IntervalValue final : public PxAnimValueProtocol<T> {
public:
    explicit IntervalValue(PxResult<T> r) : PxNode(PxNode::Init{"interval value"}), _r(r) {}
    PxResult<T> getValue(PxTimeContext const&) const override { return _r; }

private:
    PxResult<T> _r;
};

template <class T>
PxStrongHndl<PxAnimValueProtocol<T> const>
animValue(T v, PxValidityInterval vi = PxValidityInterval::FULL) {
    if (vi.isFull())
        return makeNode(new PxAnimValueNode<T>(PxNode::Init{"value"}, PxResult<T>(v)));
    return makeNode(new IntervalValue<T>(PxResult<T>(v, vi)));
}

inline PxImageFormat imageFormat(int comps = IxPixelFormat::RGBA,
                                 int depth = IxPixelFormat::FLOAT32,
                                 Rational aspect = Rational(1)) {
    return PxImageFormat(IxPixelFormat(comps, depth, aspect), Rational(25));
}

struct ColorSourceDesc {
    PxImageFormat format = imageFormat();
    int width = 40;
    int height = 30;
    CoRgbColorTyped<float> fill{0.0f, 0.0f, 0.0f};
    double fillOpacity = 0.0;
    CoRgbColorTyped<float> color{0.25f, 0.5f, 0.75f};
    double opacity = 1.0;
    PxValidityInterval colorVI = PxValidityInterval::FULL;
    PxValidityInterval opacityVI = PxValidityInterval::FULL;
};

inline PxStrongHndl<PxImageProtocol const> colorSource(ColorSourceDesc const& s = {}) {
    PxStrongHndl<PxImageFormatProtocol const> format =
        makeNode(new PxImageFormatNode(PxNode::Init{"format"}, s.format));
    return makeNode(new PxColorSourceNode(PxNode::Init{"color"}, format, animValue(s.width),
                                          animValue(s.height), animValue(s.fill),
                                          animValue(s.fillOpacity), animValue(s.color, s.colorVI),
                                          animValue(s.opacity, s.opacityVI)));
}

// One tile of a node, asked from outside the engine.
inline PxImageResult tileOf(PxStrongHndl<PxImageProtocol const> const& node,
                            PxImageContext const& context) {
    PxRequestPtr<PxImageTileRequest> r(
        new PxImageTileRequest(PxUPtr<PxImageProtocol const>(node), context));
    engine().executeRequest(r.get(), false);
    return r->getResult();
}

inline CoRgbaColorTyped<float> pixelAt(IxTile const& tile, int x, int y) {
    IxReadGuard const g(tile);
    return *g.getPixel<CoRgbaColorTyped<float>>(x, y);
}

} // namespace VnTest
