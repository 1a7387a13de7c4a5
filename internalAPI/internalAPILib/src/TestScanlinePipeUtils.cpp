#include "TestScanlinePipeUtils.h"

#include "Assertions.h"
#include "IpAlphaFilter2D.h"
#include "IpScanlinePipeUtils.h"
#include "IxGuardBase.h"
#include "PmShape2d.h"

#include <cmath>

namespace Vn {

char const* TestScanlinePipeUtils::getOperationName(Operations op) {
    static char const* const kNames[] = {
        "PassThrough", "Blur",        "BlurOriginal", "Dilate",
        "DetectEdge",  "ControlEdge", "Fill",         "DistanceTransform"};
    VN_ASSERT(PASS_THROUGH <= op && op <= DISTANCE_TRANSFORM);
    return kNames[op];
}

void TestScanlinePipeUtils::performOperation(IxWriteGuard& dst, IxReadGuard const& src,
                                             Operations op, IpDilate::StructuringElements element,
                                             float x, float y, GeRectangle<int>* region) {
    VN_ASSERT(PASS_THROUGH <= op && op <= DISTANCE_TRANSFORM);
    GeRectangle<int> const r = region ? *region : dst.getPixelRegion();
    IxPixelFormat::Comps const comps = src.getPixelFormat().getComps();
    Vector<IxReadGuard> const sources{src};

    if (op == BLUR_ORIGINAL) {
        IpFeatherFilter2D const filter(x, y);
        if (comps == IxPixelFormat::ALPHA) {
            filter.filter(sources, dst, r);
            return;
        }
        VN_ASSERT(comps == IxPixelFormat::RGBA);
        CoRgbaColorTyped<float> const fill = src.getTile().getFillColor();
        IxTile const alpha(IxPixelFormat(IxPixelFormat::ALPHA, IxPixelFormat::FLOAT32), r,
                           {0.0f, 0.0f, 0.0f, fill.a});
        filter.filter(sources, IxWriteGuard(alpha), r);
        ipCombineRGBWithA(dst, src, IxReadGuard(alpha), r);
        return;
    }

    IpScanlinePipePtr pipe = IpScanlinePipeUtils::createAlphaSource(comps);
    switch (op) {
    case BLUR:
        pipe = IpScanlinePipeUtils::createBlurAlpha(pipe, x, y);
        break;
    case DILATE:
        pipe = IpDilate::create(pipe, element, x, y);
        break;
    case DETECT_EDGE:
    case CONTROL_EDGE:
        pipe = IpScanlinePipeUtils::createEdgeProcessingGraph(
            pipe, op == DETECT_EDGE, element, -x, -y, x, y, x, y, x, y, false, nullptr, 0);
        break;
    case FILL:
        pipe = IpFillAlpha::create(pipe, static_cast<int>(std::ceil(x)),
                                   static_cast<int>(std::ceil(y)));
        break;
    case DISTANCE_TRANSFORM:
        pipe = IpDistTransform::create(pipe, static_cast<int>(std::ceil(x)),
                                       static_cast<int>(std::ceil(y)), 1.0f, 1.0f);
        break;
    default:
        break;
    }
    RCShdPtr<IpDestNode> const dest = IpScanlinePipeUtils::createAlphaDest(pipe, comps, r, nullptr);
    dest->process(dst, sources);
}

} // namespace Vn
